#include "frame/support.h"

#include "common/files.h"
#include "host/arx.h"

namespace vantry::frame {

std::wstring findInSupportFolders(const std::wstring &name) {
  resbuf rb{};
  if (acedGetVar(L"ACADPREFIX", &rb) != RTNORM || rb.restype != RTSTR || !rb.resval.rstring) return L"";
  std::wstring dirs = rb.resval.rstring;
  acutDelString(rb.resval.rstring);
  size_t start = 0;
  while (start < dirs.size()) {
    size_t end = dirs.find(L';', start);
    if (end == std::wstring::npos) end = dirs.size();
    std::wstring candidate = dirs.substr(start, end - start) + L"\\" + name;
    if (end > start && files::isFile(candidate)) return candidate;
    start = end + 1;
  }
  return L"";
}

}  // namespace vantry::frame
