// COM object creation, with the one class this host serves: the product's
// automation server (host/automation.h). Its object counts its calls in
// automationLog() and answers as the session's faults say.
#include <unistd.h>

#include <atomic>
#include <cctype>
#include <string>

#include "session/session.h"

const IID IID_IUnknown = {0x00000000, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
const IID IID_IDispatch = {0x00020400, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

namespace vantry::host {

AutomationLog &automationLog() {
  static AutomationLog log;
  return log;
}

namespace {

class AutomationObject final : public IVantryAutomation {
 public:
  AutomationObject() {
    ++automationLog().created;
    ++automationLog().alive;
  }
  HRESULT QueryInterface(const IID &riid, void **ppv) override {
    if (IsEqualGUID(riid, IID_IUnknown) || IsEqualGUID(riid, IID_IDispatch) ||
        IsEqualGUID(riid, IID_IVantryAutomation)) {
      *ppv = static_cast<IVantryAutomation *>(this);
      AddRef();
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  unsigned long AddRef() override { return ++refs_; }
  unsigned long Release() override {
    unsigned long n = --refs_;
    if (n == 0) {
      --automationLog().alive;
      delete this;
    }
    return n;
  }
  HRESULT GetTypeInfoCount(UINT *count) override {
    if (count) *count = 0;
    return S_OK;
  }
  HRESULT GetTypeInfo(UINT, DWORD, void **) override { return E_NOTIMPL; }
  HRESULT GetIDsOfNames(const IID &, wchar_t **, UINT, DWORD, long *) override { return E_NOTIMPL; }
  HRESULT Invoke(long, const IID &, DWORD, uint16_t, void *, void *, void *, UINT *) override {
    return E_NOTIMPL;
  }
  HRESULT Start() override {
    ++automationLog().starts;
    return Session::get().faults.automationStartFails ? E_FAIL : S_OK;
  }
  HRESULT Stop() override {
    ++automationLog().stops;
    return Session::get().faults.automationStopFails ? E_FAIL : S_OK;
  }

 private:
  ~AutomationObject() = default;
  std::atomic<unsigned long> refs_{0};
};

}  // namespace
}  // namespace vantry::host

BOOL GetComputerNameW(wchar_t *buffer, DWORD *size) {
  if (!buffer || !size) return FALSE;
  // The platform's computer name is the host name's first label, upper-cased.
  char host[256] = {};
  if (gethostname(host, sizeof host - 1) != 0) return FALSE;
  std::string name(host);
  name = name.substr(0, name.find('.'));
  if (name.size() + 1 > *size) {
    *size = DWORD(name.size() + 1);
    SetLastError(ERROR_BUFFER_OVERFLOW);
    return FALSE;
  }
  for (size_t i = 0; i < name.size(); ++i)
    buffer[i] = wchar_t(std::toupper(static_cast<unsigned char>(name[i])));
  buffer[name.size()] = L'\0';
  *size = DWORD(name.size());
  return TRUE;
}

HRESULT CoCreateInstance(const CLSID &clsid, IUnknown *outer, DWORD, const IID &riid, void **ppv) {
  if (!ppv) return E_FAIL;
  *ppv = nullptr;
  if (outer) return E_FAIL;
  if (!IsEqualGUID(clsid, CLSID_VantryAutomation) ||
      vantry::host::Session::get().faults.automationUnavailable)
    return REGDB_E_CLASSNOTREG;
  auto *obj = new vantry::host::AutomationObject();
  obj->AddRef();
  HRESULT hr = obj->QueryInterface(riid, ppv);
  obj->Release();
  return hr;
}
