// The user options and settings of the services, kept in the registry.
#include <cstdlib>
#include <cwctype>

#include "host/arx.h"
#include "services/services.h"

namespace vantry::services {

std::optional<std::wstring> readSetting(const wchar_t *key, const wchar_t *name) {
  HKEY k;
  if (RegOpenKeyExW(HKEY_CURRENT_USER, key, 0, KEY_READ, &k) != ERROR_SUCCESS) return std::nullopt;
  std::optional<std::wstring> result;
  DWORD type = 0, size = 0;
  if (RegQueryValueExW(k, name, nullptr, &type, nullptr, &size) == ERROR_SUCCESS && type == REG_SZ) {
    std::wstring value(size / sizeof(wchar_t) + 1, L'\0');
    DWORD room = static_cast<DWORD>(value.size() * sizeof(wchar_t));
    if (RegQueryValueExW(k, name, nullptr, &type, reinterpret_cast<BYTE *>(value.data()), &room) == ERROR_SUCCESS) {
      value.resize(std::wcslen(value.c_str()));
      result = value;
    }
  }
  RegCloseKey(k);
  return result;
}

bool writeSetting(const wchar_t *key, const wchar_t *name, const std::wstring &value) {
  HKEY k;
  if (RegCreateKeyExW(HKEY_CURRENT_USER, key, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE, nullptr, &k,
                      nullptr) != ERROR_SUCCESS)
    return false;
  LONG rc = RegSetValueExW(k, name, 0, REG_SZ, reinterpret_cast<const BYTE *>(value.c_str()),
                           static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
  RegCloseKey(k);
  return rc == ERROR_SUCCESS;
}

std::wstring userOption(const wchar_t *name) {
  return readSetting(kUserOptionsKey, name).value_or(L"");
}

uint64_t userOptionNumber(const wchar_t *name, uint64_t fallback) {
  HKEY k;
  if (RegOpenKeyExW(HKEY_CURRENT_USER, kUserOptionsKey, 0, KEY_READ, &k) != ERROR_SUCCESS) return fallback;
  DWORD type = 0, number = 0, size = sizeof number;
  LONG rc = RegQueryValueExW(k, name, nullptr, &type, reinterpret_cast<BYTE *>(&number), &size);
  RegCloseKey(k);
  if (rc == ERROR_SUCCESS && type == REG_DWORD) return number;
  std::wstring text = userOption(name);
  if (text.empty() || !std::iswdigit(text[0])) return fallback;
  return std::wcstoull(text.c_str(), nullptr, 10);
}

uint64_t downloadLimit() {
  return userOptionNumber(L"DownloadLimitMB", 1024) << 20;
}

uint64_t extractLimit() {
  return userOptionNumber(L"ExtractLimitMB", 4096) << 20;
}

std::string tempFolder() {
  for (const char *var : {"TMP", "TEMP", "TMPDIR"}) {
    if (const char *v = std::getenv(var); v && *v) {
      std::string dir = v;
      while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
      return dir;
    }
  }
  return "/tmp";
}

void tell(const std::wstring &text) {
  acutPrintf(L"\n%s\n", text.c_str());
}

}  // namespace vantry::services
