// Printing values as the host's AutoLISP prints them.
//
// prin1 form quotes and escapes strings; princ form writes them raw. Reals
// show six significant digits, always with a decimal point, and exponents
// with a sign and three digits ("1.0e+010"), as the host's run-time shows
// them.
#include <algorithm>
#include <iterator>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <vector>

#include "lisp/lisp.h"

namespace vantry::lisp {
namespace {

std::wstring widen(const char *s) {
  return std::wstring(s, s + std::char_traits<char>::length(s));
}

std::wstring address(const Object *o) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "@%016" PRIxPTR, reinterpret_cast<uintptr_t>(o));
  return widen(buf);
}

void escapeInto(std::wstring &out, const std::wstring &s) {
  out += L'"';
  for (wchar_t c : s) {
    const StringEscape *e = std::find_if(std::begin(kStringEscapes), std::end(kStringEscapes),
                                         [c](const StringEscape &x) { return x.character == c; });
    if (e != std::end(kStringEscapes)) {
      out += L'\\';
      out += e->letter;
    } else {
      out += c;
    }
  }
  out += L'"';
}

// Everything but a cons cell.
void printAtom(std::wstring &out, const Value &v, bool escape) {
  switch (v.type()) {
    case Type::Nil:
      out += L"nil";
      return;
    case Type::Int:
      out += std::to_wstring(v.asInt());
      return;
    case Type::Real:
      out += Interp::formatReal(v.asReal());
      return;
    case Type::Str:
      if (escape)
        escapeInto(out, str(v));
      else
        out += str(v);
      return;
    case Type::Sym:
      out += v.as<Symbol>()->name;
      return;
    case Type::List:
      return;  // printInto's
    case Type::Subr:
      out += L"#<SUBR " + address(v.obj()) + L" " + v.as<Subr>()->name + L">";
      return;
    case Type::Usubr: {
      const std::wstring &n = v.as<Usubr>()->name;
      out += L"#<USUBR " + address(v.obj()) + L" " + (n.empty() ? L"-lambda-" : n) + L">";
      return;
    }
    case Type::Exrxsubr:
      out += L"#<EXRXSUBR " + address(v.obj()) + L" " + v.as<Exrxsubr>()->name + L">";
      return;
    case Type::Ename:
    case Type::Pickset: {
      char buf[48];
      std::snprintf(buf, sizeof buf, "%" PRIx64, static_cast<uint64_t>(v.as<Handle2>()->w0));
      out += (v.type() == Type::Ename ? L"<Entity name: " : L"<Selection set: ") + widen(buf) + L">";
      return;
    }
    case Type::File: {
      out += L"#<file ";
      escapeInto(out, v.as<File>()->name);
      out += L">";
      return;
    }
    case Type::CatchError:
      out += L"#<%catch-all-apply-error%>";
      return;
    case Type::Foreign:
      out += v.as<Foreign>()->printed();
      return;
  }
}

// Lists nest through their cars as deep as a program builds them, so the
// walk keeps its own stack of the lists it is inside instead of recursing.
void printInto(std::wstring &out, const Value &v, bool escape) {
  std::vector<const Value *> open;  // per list being printed: the cell printed last
  const Value *cur = &v;
  for (;;) {
    while (cur->isCons()) {
      out += L'(';
      open.push_back(cur);
      cur = &cur->as<Cons>()->car;
    }
    printAtom(out, *cur, escape);
    for (;;) {
      if (open.empty()) return;
      const Value &rest = open.back()->as<Cons>()->cdr;
      if (rest.isCons()) {
        out += L' ';
        open.back() = &rest;
        cur = &rest.as<Cons>()->car;
        break;
      }
      if (!rest.isNil()) {
        out += L" . ";
        printAtom(out, rest, escape);
      }
      out += L')';
      open.pop_back();
    }
  }
}

}  // namespace

std::wstring Interp::formatReal(double r) {
  if (std::isnan(r)) return L"-1.#IND";
  if (std::isinf(r)) return r > 0 ? L"1.#INF" : L"-1.#INF";
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.6g", r);
  std::string s = buf;
  size_t e = s.find('e');
  std::string mantissa = e == std::string::npos ? s : s.substr(0, e);
  if (mantissa.find('.') == std::string::npos) mantissa += ".0";
  if (e == std::string::npos) return widen(mantissa.c_str());
  char sign = s[e + 1];
  int exponent = std::atoi(s.c_str() + e + 2);
  std::snprintf(buf, sizeof buf, "%se%c%03d", mantissa.c_str(), sign, exponent);
  return widen(buf);
}

std::wstring Interp::toString(const Value &v, bool escape) const {
  std::wstring out;
  printInto(out, v, escape);
  return out;
}

}  // namespace vantry::lisp
