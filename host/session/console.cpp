// The command line: acutPrintf, the text and graphics screens, alerts.
//
// acutPrintf follows the host platform's wide printf: %s and %c take wide
// strings and characters, %hs and %hc narrow ones, %ls/%lc/%ws/%wc wide ones,
// and %S/%C the opposite width of %s/%c (narrow). Narrow strings are taken as
// UTF-8. The length prefixes I64, I32 and I of that platform are understood.
// Each conversion is formatted on its own: numbers through snprintf (which
// tells the size it needs, so output of any length fits), strings and
// characters here, with width, precision and the "-" flag applied as printf
// does. %n stores nothing (its pointer is skipped). A conversion this
// formatter does not know is printed as written.
#include <cstdio>
#include <cstring>
#include <string>

#include "session/session.h"
#include "session/internal.h"

namespace vantry::host {
namespace {

std::wstring widenAscii(const std::string &s) {
  return std::wstring(s.begin(), s.end());
}

// Pads a converted string or character to the field width.
void pad(std::wstring &out, std::wstring text, bool left, int width) {
  if (int(text.size()) < width) {
    std::wstring fill(width - text.size(), L' ');
    text = left ? text + fill : fill + text;
  }
  out += text;
}

template <class T>
std::string formatNumber(const std::string &format, T value) {
  int n = snprintf(nullptr, 0, format.c_str(), value);
  if (n < 0) return std::string();
  std::string buf(size_t(n) + 1, '\0');
  snprintf(buf.data(), buf.size(), format.c_str(), value);
  buf.resize(size_t(n));
  return buf;
}

}  // namespace

std::wstring formatHostPrintf(const wchar_t *format, va_list args) {
  std::wstring out;
  if (!format) return out;
  const wchar_t *p = format;
  while (*p) {
    if (*p != L'%') {
      out += *p++;
      continue;
    }
    const wchar_t *start = p++;
    if (*p == L'%') {
      out += L'%';
      ++p;
      continue;
    }
    // %[flags][width][.precision][length]conversion
    std::string flags;
    while (*p && wcschr(L"-+ #0", *p)) flags += char(*p++);
    int width = -1, precision = -1;
    if (*p == L'*') {
      width = va_arg(args, int);
      if (width < 0) {
        flags += '-';
        width = -width;
      }
      ++p;
    } else if (iswdigit(*p)) {
      width = 0;
      while (iswdigit(*p)) width = width * 10 + (*p++ - L'0');
    }
    if (*p == L'.') {
      ++p;
      precision = 0;
      if (*p == L'*') {
        precision = va_arg(args, int);
        ++p;
      } else {
        while (iswdigit(*p)) precision = precision * 10 + (*p++ - L'0');
      }
    }
    std::string length;    // as the C library spells it
    char width_class = 0;  // 'h' narrow, 'l' wide, for s and c
    if (p[0] == L'I' && p[1] == L'6' && p[2] == L'4') {
      length = "ll";
      p += 3;
    } else if (p[0] == L'I' && p[1] == L'3' && p[2] == L'2') {
      p += 3;
    } else if (*p == L'I') {
      length = "z";
      ++p;
    } else {
      while (*p && wcschr(L"hlLzjtqw", *p)) {
        wchar_t c = *p++;
        if (c == L'w') {
          width_class = 'l';
        } else if (c == L'q') {
          length += "ll";
        } else {
          length += char(c);
        }
      }
    }
    if (length == "h" || length == "l") width_class = length[0];
    wchar_t conv = *p ? *p++ : 0;
    bool left = flags.find('-') != std::string::npos;
    std::string conversion = "%" + flags;
    if (width >= 0) conversion += std::to_string(width);
    if (precision >= 0) conversion += "." + std::to_string(precision);

    switch (conv) {
      case L'd':
      case L'i':
      case L'u':
      case L'o':
      case L'x':
      case L'X': {
        std::string s = conversion + length + char(conv);
        bool is_signed = conv == L'd' || conv == L'i';
        if (length == "ll" || length == "L") {
          s = conversion + "ll" + char(conv);
          out += widenAscii(is_signed ? formatNumber(s, va_arg(args, long long))
                                      : formatNumber(s, va_arg(args, unsigned long long)));
        } else if (length == "l") {
          out += widenAscii(is_signed ? formatNumber(s, va_arg(args, long))
                                      : formatNumber(s, va_arg(args, unsigned long)));
        } else if (length == "z" || length == "j" || length == "t") {
          out += widenAscii(is_signed ? formatNumber(s, va_arg(args, long long))
                                      : formatNumber(s, va_arg(args, unsigned long long)));
        } else {  // int, short and char are passed as int
          out += widenAscii(is_signed ? formatNumber(s, va_arg(args, int))
                                      : formatNumber(s, va_arg(args, unsigned int)));
        }
        break;
      }
      case L'f':
      case L'F':
      case L'e':
      case L'E':
      case L'g':
      case L'G':
      case L'a':
      case L'A':
        if (length == "L")
          out += widenAscii(formatNumber(conversion + "L" + char(conv), va_arg(args, long double)));
        else
          out += widenAscii(formatNumber(conversion + char(conv), va_arg(args, double)));
        break;
      case L'p':
        out += widenAscii(formatNumber(conversion + "p", va_arg(args, void *)));
        break;
      case L'c':
      case L'C': {
        bool narrow = width_class == 'h' || (conv == L'C' && width_class != 'l');
        wchar_t c =
            narrow ? wchar_t(static_cast<unsigned char>(va_arg(args, int))) : wchar_t(va_arg(args, wint_t));
        pad(out, std::wstring(1, c), left, width);
        break;
      }
      case L's':
      case L'S': {
        bool narrow = width_class == 'h' || (conv == L'S' && width_class != 'l');
        std::wstring text;
        if (narrow) {
          const char *s = va_arg(args, const char *);
          if (!s) {
            text = L"(null)";
          } else {
            // Precision counts bytes of a narrow string.
            size_t n = precision >= 0 ? strnlen(s, size_t(precision)) : strlen(s);
            text = text::fromUtf8(std::string_view(s, n));
          }
        } else {
          const wchar_t *s = va_arg(args, const wchar_t *);
          text = s ? s : L"(null)";
          if (precision >= 0 && text.size() > size_t(precision)) text.resize(size_t(precision));
        }
        pad(out, std::move(text), left, width);
        break;
      }
      case L'n':
        (void)va_arg(args, void *);
        break;
      default:
        out.append(start, p);
        break;
    }
  }
  return out;
}

// --- Host API ---------------------------------------------------------------------------

namespace {

// What the transcript shows for an alert; the person's answer, if one is
// queued, dismisses it.
void showAlert(const std::wstring &text) {
  Session &s = Session::get();
  if (!s.atLineStart()) s.print(L"\n");
  s.print(L"[Alert] " + text + L"\n");
  if (auto answer = s.nextDialogAnswer())
    s.print(L"  -> " + *answer + L"\n");
  else
    s.print(L"  -> OK (no answer queued)\n");
}

}  // namespace
}  // namespace vantry::host

int acutPrintf(const ACHAR *format, ...) {
  va_list args;
  va_start(args, format);
  std::wstring text = vantry::host::formatHostPrintf(format, args);
  va_end(args);
  vantry::host::Session::get().print(text);
  return int(text.size());
}

int acedUsrBrk() {
  return vantry::lisp::takeInterrupt() ? 1 : 0;
}

int acedTextScr() {
  ++vantry::host::Session::get().textScreenCalls;
  return RTNORM;
}

int acedGraphScr() {
  return RTNORM;
}

int acedAlert(const ACHAR *text) {
  if (!text) return RTERROR;
  vantry::host::showAlert(text);
  return RTNORM;
}

namespace vantry::host {
namespace {

// (alert text): shows the box; always nil.
lisp::Value alertFn(lisp::Interp &in, const lisp::Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 1);
  showAlert(lisp::strArg(in, args[0]));
  return lisp::Value();
}

}  // namespace

void installAlertLisp(lisp::Interp &in) {
  in.defineSubr(L"alert", alertFn);
}

}  // namespace vantry::host
