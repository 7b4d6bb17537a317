#include "frame/text.h"

#include <sys/stat.h>

#include <cwctype>

namespace vantry::frame {

std::string toUtf8(std::wstring_view w) {
  std::string out;
  out.reserve(w.size());
  for (wchar_t wc : w) {
    uint32_t c = uint32_t(wc);
    if (c < 0x80) {
      out += char(c);
    } else if (c < 0x800) {
      out += char(0xC0 | (c >> 6));
      out += char(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += char(0xE0 | (c >> 12));
      out += char(0x80 | ((c >> 6) & 0x3F));
      out += char(0x80 | (c & 0x3F));
    } else {
      out += char(0xF0 | (c >> 18));
      out += char(0x80 | ((c >> 12) & 0x3F));
      out += char(0x80 | ((c >> 6) & 0x3F));
      out += char(0x80 | (c & 0x3F));
    }
  }
  return out;
}

std::wstring fromUtf8(std::string_view s) {
  std::wstring out;
  out.reserve(s.size());
  for (size_t i = 0; i < s.size();) {
    unsigned char c = s[i];
    int extra = c < 0x80 ? 0 : (c >> 5) == 6 ? 1 : (c >> 4) == 14 ? 2 : (c >> 3) == 30 ? 3 : -1;
    if (extra < 0 || i + extra >= s.size() + (extra == 0 ? 1 : 0)) {
      out += wchar_t(c);  // not UTF-8: keep the byte as a Latin-1 character
      ++i;
      continue;
    }
    uint32_t cp = extra == 0 ? c : c & (0x3F >> extra);
    bool ok = true;
    for (int k = 1; k <= extra; ++k) {
      unsigned char cc = s[i + k];
      if ((cc & 0xC0) != 0x80) ok = false;
      cp = (cp << 6) | (cc & 0x3F);
    }
    if (!ok) {
      out += wchar_t(c);
      ++i;
      continue;
    }
    out += wchar_t(cp);
    i += extra + 1;
  }
  return out;
}

std::string nativePath(std::wstring_view path) {
  std::string out = toUtf8(path);
  for (char &c : out)
    if (c == '\\') c = '/';
  return out;
}

bool fileExists(std::wstring_view path) {
  struct stat st;
  return !path.empty() && ::stat(nativePath(path).c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

bool samePath(std::wstring_view a, std::wstring_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    wchar_t x = a[i] == L'\\' ? L'/' : std::towlower(a[i]);
    wchar_t y = b[i] == L'\\' ? L'/' : std::towlower(b[i]);
    if (x != y) return false;
  }
  return true;
}

}  // namespace vantry::frame
