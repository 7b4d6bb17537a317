#include "common/text.h"

namespace vantry::text {

namespace {

// `latinOnly` limits the mapping to ASCII and Latin-1, the letters the host
// folds in names; text case also maps Latin Extended-A, Greek and Cyrillic.

wchar_t toUpper(wchar_t c, bool latinOnly) {
  if (c >= L'a' && c <= L'z') return c - 32;
  if (c < 0xE0) return c;
  if (c <= 0xFE) return c == 0xF7 ? c : c - 32;
  if (latinOnly) return c;
  if (c == 0xFF) return 0x178;
  if (c >= 0x100 && c <= 0x137 && c != 0x130 && c != 0x131) return c & ~1u;
  if ((c >= 0x139 && c <= 0x148) || (c >= 0x179 && c <= 0x17E)) return (c & 1) ? c : c - 1;
  if (c >= 0x14A && c <= 0x177) return c & ~1u;
  if (c == 0x3C2) return 0x3A3;
  if (c >= 0x3B1 && c <= 0x3C9) return c - 32;
  if (c >= 0x430 && c <= 0x44F) return c - 32;
  if (c >= 0x450 && c <= 0x45F) return c - 80;
  return c;
}

wchar_t toLower(wchar_t c, bool latinOnly) {
  if (c >= L'A' && c <= L'Z') return c + 32;
  if (c < 0xC0) return c;
  if (c <= 0xDE) return c == 0xD7 ? c : c + 32;
  if (latinOnly) return c;
  if (c == 0x178) return 0xFF;
  if (c >= 0x100 && c <= 0x137 && c != 0x130 && c != 0x131) return c | 1u;
  if ((c >= 0x139 && c <= 0x148) || (c >= 0x179 && c <= 0x17E)) return (c & 1) ? c + 1 : c;
  if (c >= 0x14A && c <= 0x177) return c | 1u;
  if (c >= 0x391 && c <= 0x3A9 && c != 0x3A2) return c + 32;
  if (c >= 0x410 && c <= 0x42F) return c + 32;
  if (c >= 0x400 && c <= 0x40F) return c + 80;
  return c;
}

std::wstring mapCase(std::wstring_view s, bool upper, bool latinOnly) {
  std::wstring r(s);
  for (wchar_t &c : r) c = upper ? toUpper(c, latinOnly) : toLower(c, latinOnly);
  return r;
}

wchar_t pathChar(wchar_t c) {
  return c == L'\\' ? L'/' : toLower(c, false);
}

}  // namespace

std::string toUtf8(std::wstring_view w) {
  std::string out;
  out.reserve(w.size());
  for (wchar_t wc : w) {
    uint32_t c = uint32_t(wc);
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
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

// A byte that does not start a well-formed UTF-8 sequence is taken as a
// Latin-1 character, so that files written in the host's legacy 8-bit code
// page still read as text.
std::wstring fromUtf8(std::string_view s) {
  std::wstring out;
  out.reserve(s.size());
  for (size_t i = 0; i < s.size();) {
    unsigned char b = static_cast<unsigned char>(s[i]);
    int len = b < 0x80 ? 1 : (b >> 5) == 6 ? 2 : (b >> 4) == 14 ? 3 : (b >> 3) == 30 ? 4 : 0;
    uint32_t c = len == 1 ? b : len == 2 ? (b & 0x1F) : len == 3 ? (b & 0x0F) : (b & 0x07);
    bool ok = len > 0 && i + size_t(len) <= s.size();
    for (int k = 1; ok && k < len; ++k) {
      unsigned char cb = static_cast<unsigned char>(s[i + size_t(k)]);
      ok = (cb & 0xC0) == 0x80;
      c = (c << 6) | (cb & 0x3F);
    }
    static constexpr uint32_t kMin[] = {0, 0, 0x80, 0x800, 0x10000};
    if (ok && (c < kMin[len] || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF))) ok = false;
    if (!ok) {
      out += wchar_t(b);
      ++i;
    } else {
      out += wchar_t(c);
      i += size_t(len);
    }
  }
  return out;
}

std::wstring upcase(std::wstring_view s) {
  return mapCase(s, true, true);
}
std::wstring downcase(std::wstring_view s) {
  return mapCase(s, false, true);
}
std::wstring upcaseText(std::wstring_view s) {
  return mapCase(s, true, false);
}
std::wstring downcaseText(std::wstring_view s) {
  return mapCase(s, false, false);
}
wchar_t upcaseText(wchar_t c) {
  return toUpper(c, false);
}

std::string nativePath(std::wstring_view path) {
  std::string out = toUtf8(path);
  for (char &c : out)
    if (c == '\\') c = '/';
  return out;
}

bool samePath(std::wstring_view a, std::wstring_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (pathChar(a[i]) != pathChar(b[i])) return false;
  return true;
}

}  // namespace vantry::text
