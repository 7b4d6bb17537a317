// The sibling module's entry point: registers ol_hvacSolid with the host's class system on start-up
// and removes it on unload, together with its stand-in for drawing files (dxf_filing.cpp); defines its
// LISP function ol_solid-exportStep in every document.
//
// The library is linked with -z nodelete: solids of the class may outlive its registration (the
// host deletes them with their drawing, possibly after the module's unload), so their code must
// stay mapped.
#include "dxf_filing.h"
#include "export_step.h"
#include "solid/hvac_solid.h"

extern "C" __attribute__((visibility("default"))) AcRx::AppRetCode acrxEntryPoint(AcRx::AppMsgCode msg,
                                                                                  void *appId) {
  switch (msg) {
    case AcRx::kInitAppMsg:
      ol_hvacSolid::rxInit();
      acrxBuildClassHierarchy();
      registerDxfFiling();
      acrxUnlockApplication(appId);
      acrxRegisterAppMDIAware(appId);
      break;
    case AcRx::kLoadDwgMsg:
      registerExportStep();
      break;
    case AcRx::kUnloadDwgMsg:
      unregisterExportStep();
      break;
    case AcRx::kUnloadAppMsg:
      unregisterDxfFiling();
      if (AcRxClass *cls = ol_hvacSolid::desc()) deleteAcRxClass(cls);
      break;
    default:
      break;
  }
  return AcRx::kRetOK;
}
