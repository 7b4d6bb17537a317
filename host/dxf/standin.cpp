// The registry of stand-ins for custom entity classes in drawing files.
#include <map>

#include "dxf/internal.h"

namespace vantry::host {
namespace {

std::map<const AcRxClass *, DxfStandIn> &standIns() {
  static auto *m = new std::map<const AcRxClass *, DxfStandIn>();
  return *m;
}

}  // namespace

void registerDxfStandIn(AcRxClass *cls, DxfStandIn standIn) {
  if (cls) standIns()[cls] = std::move(standIn);
}

void removeDxfStandIn(AcRxClass *cls) {
  standIns().erase(cls);
}

const DxfStandIn *findDxfStandIn(const AcRxClass *cls) {
  if (standIns().empty()) return nullptr;
  for (; cls; cls = cls->myParent()) {
    auto it = standIns().find(cls);
    if (it != standIns().end()) return &it->second;
  }
  return nullptr;
}

const DxfStandIn *findDxfStandIn(const std::wstring &className) {
  if (standIns().empty() || className.empty()) return nullptr;
  return findDxfStandIn(acrxFindClass(className.c_str()));
}

}  // namespace vantry::host

// The host API's form (include/host/dxf_standin.h) over the registry.
Acad::ErrorStatus acdbRegisterDxfStandIn(AcRxClass *cls, AcDbDxfStandInWriter write,
                                         AcDbDxfStandInReader read) {
  if (!cls || !write || !read) return Acad::eNullObjectPointer;
  vantry::host::DxfStandIn standIn;
  standIn.write = [write](const AcDbEntity *ent, std::vector<AcDbEntity *> &drawable, AcDbDxfFiler &data) {
    AcDbVoidPtrArray made;
    Acad::ErrorStatus es = write(ent, made, &data);
    // What the writer made is the host's whatever the status, so nothing leaks on a failed save.
    for (void *p : made) drawable.push_back(static_cast<AcDbEntity *>(p));
    return es;
  };
  standIn.read = [read](const AcDbDxfFiler &data, std::wstring *error) { return read(&data, error); };
  vantry::host::registerDxfStandIn(cls, std::move(standIn));
  return Acad::eOk;
}

Acad::ErrorStatus acdbRemoveDxfStandIn(AcRxClass *cls) {
  return cls && vantry::host::standIns().erase(cls) ? Acad::eOk : Acad::eKeyNotFound;
}
