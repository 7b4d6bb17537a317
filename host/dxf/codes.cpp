// Group codes and values of drawing files: value kinds, text escapes and the
// buffered group writer.
#include <cmath>
#include <cstring>

#include "dxf/internal.h"

namespace vantry::host::dxf {

Kind groupKind(int code) {
  if (code == 5 || code == 105) return Kind::Handle;
  if (code >= 0 && code <= 9) return Kind::Text;
  if (code >= 10 && code <= 59) return Kind::Real;
  if (code >= 60 && code <= 99) return Kind::Int;
  if (code >= 100 && code <= 102) return Kind::Text;
  if (code >= 110 && code <= 149) return Kind::Real;
  if (code >= 160 && code <= 179) return Kind::Int;
  if (code >= 210 && code <= 239) return Kind::Real;
  if (code >= 270 && code <= 299) return Kind::Int;
  if (code >= 300 && code <= 309) return Kind::Text;
  if (code >= 310 && code <= 319) return Kind::Binary;
  if (code >= 320 && code <= 369) return Kind::Handle;
  if (code >= 370 && code <= 389) return Kind::Int;
  if (code >= 390 && code <= 399) return Kind::Handle;
  if (code >= 400 && code <= 409) return Kind::Int;
  if (code >= 410 && code <= 419) return Kind::Text;
  if (code >= 420 && code <= 429) return Kind::Int;
  if (code >= 430 && code <= 439) return Kind::Text;
  if (code >= 440 && code <= 459) return Kind::Int;
  if (code >= 460 && code <= 469) return Kind::Real;
  if (code >= 470 && code <= 479) return Kind::Text;
  if (code >= 480 && code <= 481) return Kind::Handle;
  if (code == 1004) return Kind::Binary;
  if (code >= 1000 && code <= 1009) return Kind::Text;
  if (code >= 1010 && code <= 1059) return Kind::Real;
  if (code >= 1060 && code <= 1071) return Kind::Int;
  return Kind::Text;  // 999 comments and codes nobody defines
}

bool isReference(int code) {
  return (code >= 330 && code <= 369) || (code >= 390 && code <= 399) || code == 480 || code == 481;
}

void appendText(std::string &out, std::wstring_view text) {
  for (wchar_t c : text) {
    if (c >= 32 && c < 127) {
      if (c == L'^') {
        out += "^ ";
      } else {
        out += char(c);
      }
    } else if (c < 32) {
      out += '^';
      out += char(c + 64);
    } else if (c > 0xFFFF) {
      out += '?';  // beyond what \U+XXXX can say
    } else {
      char buf[16];
      std::snprintf(buf, sizeof buf, "\\U+%04X", unsigned(c) & 0x1FFFFF);
      out += buf;
    }
  }
}

namespace {

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Windows-1252 bytes 0x80-0x9F; the rest match Latin-1.
const char16_t kCp1252[32] = {0x20AC, 0x81,   0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                              0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x8D,   0x017D, 0x8F,
                              0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                              0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x9D,   0x017E, 0x0178};

// Decodes one UTF-8 sequence at s[i]; 0 when it is not valid UTF-8.
size_t utf8At(std::string_view s, size_t i, wchar_t &out) {
  auto b = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
  unsigned c = b(i);
  size_t n = c >= 0xF0 && c < 0xF5 ? 4 : c >= 0xE0 ? 3 : c >= 0xC2 && c < 0xE0 ? 2 : 0;
  if (n == 0 || i + n > s.size()) return 0;
  unsigned v = c & (0x7F >> n);
  for (size_t k = 1; k < n; ++k) {
    if ((b(i + k) & 0xC0) != 0x80) return 0;
    v = (v << 6) | (b(i + k) & 0x3F);
  }
  out = wchar_t(v);
  return n;
}

}  // namespace

std::wstring readText(std::string_view s) {
  std::wstring out;
  out.reserve(s.size());
  for (size_t i = 0; i < s.size();) {
    unsigned char c = static_cast<unsigned char>(s[i]);
    if (c == '^' && i + 1 < s.size()) {
      char n = s[i + 1];
      if (n == ' ') {
        out += L'^';
        i += 2;
        continue;
      }
      if (n >= '@' && n <= '_') {
        out += wchar_t(n - 64);
        i += 2;
        continue;
      }
    }
    if (c == '\\' && i + 7 <= s.size() && (s[i + 1] == 'U' || s[i + 1] == 'u') && s[i + 2] == '+') {
      int v = 0;
      bool ok = true;
      for (size_t k = 3; k < 7 && ok; ++k) {
        int d = hexDigit(s[i + k]);
        ok = d >= 0;
        v = v * 16 + d;
      }
      if (ok) {
        out += wchar_t(v);
        i += 7;
        continue;
      }
    }
    if (c < 0x80) {
      out += wchar_t(c);
      ++i;
      continue;
    }
    wchar_t w;
    if (size_t n = utf8At(s, i, w)) {
      out += w;
      i += n;
      continue;
    }
    out += c < 0xA0 ? wchar_t(kCp1252[c - 0x80]) : wchar_t(c);
    ++i;
  }
  return out;
}

// --- Out --------------------------------------------------------------------------------------

void Out::codeLine(int code) {
  char buf[16];
  auto r = std::to_chars(buf, buf + sizeof buf, code);
  size_t n = size_t(r.ptr - buf);
  if (n < 3) buf_.append(3 - n, ' ');
  buf_.append(buf, n);
  buf_ += '\n';
}

void Out::real(int code, double v) {
  codeLine(code);
  if (!std::isfinite(v)) v = 0;  // no reader takes inf or nan
  char buf[32];
  auto r = std::to_chars(buf, buf + sizeof buf, v);
  std::string_view s(buf, size_t(r.ptr - buf));
  buf_ += s;
  // Reals always show a point or an exponent, as strict readers expect.
  if (s.find_first_of(".e") == std::string_view::npos) buf_ += ".0";
  buf_ += '\n';
  spill();
}

void Out::integer(int code, int64_t v) {
  codeLine(code);
  char buf[24];
  auto r = std::to_chars(buf, buf + sizeof buf, v);
  buf_.append(buf, size_t(r.ptr - buf));
  buf_ += '\n';
  spill();
}

void Out::handle(int code, uint64_t h) {
  codeLine(code);
  char buf[24];
  auto r = std::to_chars(buf, buf + sizeof buf, h, 16);
  for (char *p = buf; p < r.ptr; ++p)
    if (*p >= 'a') *p = char(*p - 'a' + 'A');
  buf_.append(buf, size_t(r.ptr - buf));
  buf_ += '\n';
  spill();
}

void Out::point(int code, const double *xyz, int dims) {
  for (int i = 0; i < dims; ++i) real(code + 10 * i, xyz[i]);
}

void Out::item(const AcDbDxfFiler::Item &it) {
  if (it.dims) return point(it.code, it.real, it.dims);
  switch (groupKind(it.code)) {
    case Kind::Real:
      return real(it.code, it.real[0]);
    case Kind::Int:
      return integer(it.code, it.integer);
    case Kind::Handle:
      if (!it.id.isNull() || it.text.empty()) return handle(it.code, it.id.isNull() ? 0 : it.id.handle().value());
      return text(it.code, it.text);
    case Kind::Text:
    case Kind::Binary:
      return text(it.code, it.text);
  }
}

bool Out::flush() {
  if (!buf_.empty() && !failed_ && std::fwrite(buf_.data(), 1, buf_.size(), f_) != buf_.size())
    failed_ = true;
  buf_.clear();
  return !failed_;
}

// 1001 application, then its items; points as three groups.
void writeXData(Out &out, const AcDbObject *obj) {
  if (obj->xDataApplications().empty()) return;
  resbuf *chain = obj->xData();
  for (const resbuf *rb = chain; rb; rb = rb->rbnext) {
    int code = rb->restype;
    switch (rbKind(code)) {
      case RbKind::String:
        out.text(code, rb->resval.rstring ? rb->resval.rstring : L"");
        break;
      case RbKind::Point:
        out.point(code, rb->resval.rpoint, 3);
        break;
      case RbKind::Real:
        out.real(code, rb->resval.rreal);
        break;
      case RbKind::Short:
        out.integer(code, rb->resval.rint);
        break;
      case RbKind::Long:
        out.integer(code, rb->resval.rlong);
        break;
      case RbKind::Binary: {
        static const char hex[] = "0123456789ABCDEF";
        std::string s;
        for (short k = 0; k < rb->resval.rbinary.clen; ++k) {
          unsigned char b = static_cast<unsigned char>(rb->resval.rbinary.buf[k]);
          s += hex[b >> 4];
          s += hex[b & 15];
        }
        out.ascii(code, s);
        break;
      }
      default:
        break;
    }
  }
  acutRelRb(chain);
}

// --- Record -------------------------------------------------------------------------------------

Record::Record(Record &&o) noexcept {
  *this = std::move(o);
}

Record &Record::operator=(Record &&o) noexcept {
  if (this == &o) return *this;
  acutRelRb(xdata);
  type = std::move(o.type);
  line = o.line;
  handle = o.handle, owner = o.owner, xdict = o.xdict;
  hasOwner = o.hasOwner;
  reactors = std::move(o.reactors);
  subs = std::move(o.subs);
  fields = std::move(o.fields);
  xdata = o.xdata;
  o.xdata = nullptr;
  return *this;
}

Record::~Record() {
  acutRelRb(xdata);
}

}  // namespace vantry::host::dxf
