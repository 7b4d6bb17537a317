// The module's entry point and lifecycle: start-up, document load and
// unload, shut-down, the editor reactor, and the last-resort error reports.
#include <cstdlib>
#include <ctime>
#include <cwchar>
#include <exception>

#include "database/context.h"
#include "drawing/crt_random.h"
#include "drawing/ol_leader.h"
#include "frame/function_table.h"
#include "frame/lifecycle.h"

namespace vantry::frame {
namespace {

const wchar_t kSolidModule[] = L"ol_ol-solid2025x64.dbx";
const wchar_t kMutexName[] = L"OrlecVantry";

// Closes the open database when the drawing it belongs to is saved under a
// new name. Only the first document entry is compared, whichever document
// was saved: with several documents open this is the intended rule.
class vtEditorReactor : public AcEditorReactor {
 public:
  ~vtEditorReactor() override = default;
  void saveComplete(AcDbDatabase *db, const ACHAR *actualName) override {
    AcApDocument *doc = acDocManager->curDocument();
    if (!doc || doc->database() != db) return;
    database::DatabaseContext &c = database::context();
    if (c.entries.empty()) return;
    const database::DocumentDatabaseEntry &first = c.entries.front();
    if (first.documentKey != (actualName ? actualName : L"") && first.connection &&
        first.connection == c.connection)
      database::closeCurrentDatabase();
  }
};

// Process-wide state made at start-up.
IVantryAutomation *automation = nullptr;
vtEditorReactor *editorReactor = nullptr;

void startAutomation() {
  void *p = nullptr;
  HRESULT hr = CoCreateInstance(CLSID_VantryAutomation, nullptr, CLSCTX_ALL, IID_IVantryAutomation, &p);
  if (FAILED(hr) || !p) return;
  automation = static_cast<IVantryAutomation *>(p);
  hr = automation->Start();
  if (FAILED(hr)) {
    // An object that would not start is not kept: nothing would release it.
    automation->Release();
    automation = nullptr;
    throw ComError{hr};
  }
}

AcRx::AppRetCode startUp(void *appId) {
  acrxLoadModule(kSolidModule, false, false);
  CreateMutexW(nullptr, FALSE, kMutexName);
  crt::srand(unsigned(std::time(nullptr)));
  startAutomation();
  editorReactor = new vtEditorReactor();
  acedEditor->addReactor(editorReactor);
  acrxUnlockApplication(appId);
  acrxRegisterAppMDIAware(appId);
  OLLeader::rxInit();
  CoInitialize(nullptr);
  return AcRx::kRetOK;
}

void loadDocument() {
  acutPrintf(L"%s", L"\nLoading Orlec Vantry (Jet64)");
  registerFunctions(kDatabaseFunctions, kDatabaseCount, kDatabaseBase);
  database::addDocumentRecord(database::currentDocumentKey());
  registerFunctions(kDrawingFunctions, kDrawingCount, kDrawingBase);
}

void unloadDocument() {
  database::removeDocumentRecord(database::currentDocumentKey());
}

void shutDown() {
  OLLeader::rxUninit();
  if (automation) {
    IVantryAutomation *a = automation;
    automation = nullptr;
    HRESULT hr = a->Stop();
    if (FAILED(hr)) {
      a->Release();
      throw ComError{hr};
    }
    a->Release();
  }
  if (editorReactor) {
    acedEditor->removeReactor(editorReactor);
    delete editorReactor;
    editorReactor = nullptr;
  }
  acrxUnloadModule(kSolidModule, false);
  CoUninitialize();
  database::clearContext();
}

}  // namespace

AcRx::AppRetCode dispatchMessage(AcRx::AppMsgCode msg, void *appId) {
  switch (msg) {
    case AcRx::kInitAppMsg:
      return startUp(appId);
    case AcRx::kUnloadAppMsg:
      shutDown();
      break;
    case AcRx::kLoadDwgMsg:
      loadDocument();
      break;
    case AcRx::kUnloadDwgMsg:
      unloadDocument();
      break;
    default:
      break;
  }
  return AcRx::kRetOK;
}

AcRx::AppRetCode guardEntry(const std::function<AcRx::AppRetCode()> &body) {
  try {
    return body();
  } catch (const std::exception &e) {
    // An exception that describes itself: its text, cut to the 1,000
    // characters the report has room for.
    wchar_t message[1000];
    std::swprintf(message, 1000, L"%hs", e.what());
    acutPrintf(L"\nVantry General Error:  %s", message);
    return AcRx::kRetError;
  } catch (...) {
    DWORD err = GetLastError();
    if (err != 0)
      acutPrintf(L"\nSystem error %u.\n", unsigned(err));
    else
      acutPrintf(L"%s", L"\nVantry error.\n");
    return AcRx::kRetError;
  }
}

bool automationRunning() {
  return automation != nullptr;
}
bool editorReactorInstalled() {
  return editorReactor != nullptr;
}

}  // namespace vantry::frame

extern "C" __attribute__((visibility("default"))) AcRx::AppRetCode acrxEntryPoint(AcRx::AppMsgCode msg,
                                                                                  void *appId) {
  return vantry::frame::guardEntry([&] { return vantry::frame::dispatchMessage(msg, appId); });
}
