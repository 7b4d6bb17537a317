// AutoLISP built-ins on strings: concatenation, slicing, case, character
// codes, string/number conversion, read, wcmatch, the vl-string-* family and
// the symbol/printer helpers. Positions are 1-based for substr and 0-based for
// every vl-string-* function, as in AutoLISP. Strings are sequences of
// Unicode code points (one wchar_t each).
#include <cmath>
#include <cwchar>
#include <string>
#include <string_view>

#include "lisp/lisp.h"

namespace vantry::lisp {

namespace {

// --- Argument helpers ---------------------------------------------------------

bool present(const Value *args, int nargs, int i) {
  return i < nargs && !args[i].isNil();
}

[[noreturn]] void badValue(Interp &in, const Value &v) {
  in.error(L"bad argument value: " + in.toString(v, true));
}

// An optional 0-based start position; nil or absent is 0.
size_t startArg(Interp &in, const Value *args, int nargs, int i) {
  if (!present(args, nargs, i)) return 0;
  int32_t p = intArg(in, args[i]);
  if (p < 0) badValue(in, args[i]);
  return size_t(p);
}

// --- Core string functions ----------------------------------------------------

Value fStrcat(Interp &in, const Value *args, int nargs) {
  std::wstring r;
  for (int i = 0; i < nargs; ++i) r += strArg(in, args[i]);
  return makeString(std::move(r));
}

Value fStrlen(Interp &in, const Value *args, int nargs) {
  size_t n = 0;
  for (int i = 0; i < nargs; ++i) n += strArg(in, args[i]).size();
  return Value::integer(int32_t(n));
}

// (substr str start [length]): start counts from 1.
Value fSubstr(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, 3);
  const std::wstring &s = strArg(in, args[0]);
  int32_t start = intArg(in, args[1]);
  if (start < 1) badValue(in, args[1]);
  size_t len = std::wstring::npos;
  if (present(args, nargs, 2)) {
    int32_t n = intArg(in, args[2]);
    if (n < 0) badValue(in, args[2]);
    len = size_t(n);
  }
  if (size_t(start) > s.size()) return makeString(L"");
  return makeString(s.substr(size_t(start) - 1, len));
}

Value fStrcase(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 2);
  return makeString(present(args, nargs, 1) ? text::downcaseText(strArg(in, args[0])) : text::upcaseText(strArg(in, args[0])));
}

Value fAscii(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  const std::wstring &s = strArg(in, args[0]);
  return Value::integer(s.empty() ? 0 : int32_t(s[0]));
}

Value fChr(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  int32_t c = intArg(in, args[0]);
  if (c < 0 || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) badValue(in, args[0]);
  return makeString(c == 0 ? std::wstring() : std::wstring(1, wchar_t(c)));
}

Value fItoa(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  return makeString(std::to_wstring(intArg(in, args[0])));
}

// atoi reads like C's: blanks, a sign, digits; anything else ends it. The
// result saturates at the 32-bit range.
Value fAtoi(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  const std::wstring &s = strArg(in, args[0]);
  size_t i = 0;
  while (i < s.size() && std::iswspace(s[i])) ++i;
  bool neg = i < s.size() && s[i] == L'-';
  if (i < s.size() && (s[i] == L'-' || s[i] == L'+')) ++i;
  int64_t v = 0;
  for (; i < s.size() && s[i] >= L'0' && s[i] <= L'9'; ++i) {
    v = v * 10 + (s[i] - L'0');
    if (v > 2147483648LL) v = 2147483648LL;
  }
  if (neg) v = -v;
  if (v > INT32_MAX) v = INT32_MAX;
  return Value::integer(int32_t(v));
}

// The longest prefix of s (after blanks) that is a decimal number:
// [sign] digits [. digits] [e [sign] digits]. Returns its length, 0 if none.
size_t numberPrefix(std::wstring_view s, size_t i) {
  size_t start = i;
  if (i < s.size() && (s[i] == L'+' || s[i] == L'-')) ++i;
  size_t digits = 0;
  while (i < s.size() && std::iswdigit(s[i])) ++i, ++digits;
  if (i < s.size() && s[i] == L'.') {
    ++i;
    while (i < s.size() && std::iswdigit(s[i])) ++i, ++digits;
  }
  if (digits == 0) return 0;
  if (i < s.size() && (s[i] == L'e' || s[i] == L'E')) {
    size_t j = i + 1;
    if (j < s.size() && (s[j] == L'+' || s[j] == L'-')) ++j;
    if (j < s.size() && std::iswdigit(s[j])) {
      while (j < s.size() && std::iswdigit(s[j])) ++j;
      i = j;
    }
  }
  return i - start;
}

Value fAtof(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  const std::wstring &s = strArg(in, args[0]);
  size_t i = 0;
  while (i < s.size() && std::iswspace(s[i])) ++i;
  size_t n = numberPrefix(s, i);
  return Value::real(n ? std::wcstod(s.substr(i, n).c_str(), nullptr) : 0.0);
}

// (read [str]): the first expression of the text; nil for none.
Value fRead(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 0, 1);
  if (!present(args, nargs, 0)) return Value();
  std::vector<Value> forms = in.readAll(strArg(in, args[0]), {L"", 1});
  return forms.empty() ? Value() : forms[0];
}

Value fWcmatch(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, 2);
  return in.boolean(wcmatch(strArg(in, args[0]), strArg(in, args[1])));
}

// --- vl-string-* ---------------------------------------------------------------

Value fStringSearch(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, 3);
  const std::wstring &pat = strArg(in, args[0]);
  const std::wstring &s = strArg(in, args[1]);
  size_t start = startArg(in, args, nargs, 2);
  if (start > s.size()) return Value();
  size_t at = s.find(pat, start);
  return at == std::wstring::npos ? Value() : Value::integer(int32_t(at));
}

// Replaces the first occurrence only, as AutoLISP does.
Value fStringSubst(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 3, 4);
  const std::wstring &repl = strArg(in, args[0]);
  const std::wstring &pat = strArg(in, args[1]);
  std::wstring s = strArg(in, args[2]);
  size_t start = startArg(in, args, nargs, 3);
  size_t at = start > s.size() ? std::wstring::npos : s.find(pat, start);
  if (at != std::wstring::npos) s.replace(at, pat.size(), repl);
  return makeString(std::move(s));
}

enum Trim { kLeft = 1, kRight = 2 };

Value trim(Interp &in, const Value *args, int nargs, int sides) {
  needArgs(in, nargs, 2, 2);
  const std::wstring &set = strArg(in, args[0]);
  const std::wstring &s = strArg(in, args[1]);
  size_t b = 0, e = s.size();
  if (sides & kLeft)
    while (b < e && set.find(s[b]) != std::wstring::npos) ++b;
  if (sides & kRight)
    while (e > b && set.find(s[e - 1]) != std::wstring::npos) --e;
  return makeString(s.substr(b, e - b));
}

Value fStringTrim(Interp &in, const Value *a, int n) {
  return trim(in, a, n, kLeft | kRight);
}
Value fStringLeftTrim(Interp &in, const Value *a, int n) {
  return trim(in, a, n, kLeft);
}
Value fStringRightTrim(Interp &in, const Value *a, int n) {
  return trim(in, a, n, kRight);
}

// (vl-string-position code str [start [from-end]]): from the end, the search
// runs backward from the last character down to start.
Value fStringPosition(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, 4);
  int32_t code = intArg(in, args[0]);
  const std::wstring &s = strArg(in, args[1]);
  size_t start = startArg(in, args, nargs, 2);
  if (start >= s.size()) return Value();
  size_t at = present(args, nargs, 3) ? s.rfind(wchar_t(code)) : s.find(wchar_t(code), start);
  if (at == std::wstring::npos || at < start) return Value();
  return Value::integer(int32_t(at));
}

// Characters of source-set become the character at the same place in
// dest-set; those beyond the end of dest-set are left as they are.
Value fStringTranslate(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 3, 3);
  const std::wstring &from = strArg(in, args[0]);
  const std::wstring &to = strArg(in, args[1]);
  std::wstring s = strArg(in, args[2]);
  for (wchar_t &c : s) {
    size_t k = from.find(c);
    if (k != std::wstring::npos && k < to.size()) c = to[k];
  }
  return makeString(std::move(s));
}

Value fStringToList(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  ListBuilder b;
  for (wchar_t c : strArg(in, args[0])) b.add(Value::integer(int32_t(c)));
  return b.take();
}

Value fListToString(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  std::wstring s;
  for (Value l = listArg(in, args[0]); l.isCons(); l = cdr(l)) {
    int32_t c = intArg(in, car(l));
    if (c < 0 || c > 0x10FFFF) badValue(in, car(l));
    if (c != 0) s += wchar_t(c);
  }
  return makeString(std::move(s));
}

Value fStringElt(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, 2);
  const std::wstring &s = strArg(in, args[0]);
  int32_t p = intArg(in, args[1]);
  if (p < 0 || size_t(p) >= s.size()) badValue(in, args[1]);
  return Value::integer(int32_t(s[size_t(p)]));
}

// The length of the common prefix of str1 from pos1 and str2 from pos2.
Value fStringMismatch(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, 5);
  const std::wstring &a = strArg(in, args[0]);
  const std::wstring &b = strArg(in, args[1]);
  size_t i = startArg(in, args, nargs, 2), j = startArg(in, args, nargs, 3);
  bool fold = present(args, nargs, 4);
  int32_t n = 0;
  for (; i < a.size() && j < b.size(); ++i, ++j, ++n) {
    wchar_t x = a[i], y = b[j];
    if (fold) x = text::upcaseText(x), y = text::upcaseText(y);
    if (x != y) break;
  }
  return Value::integer(n);
}

// --- Printer and symbols --------------------------------------------------------

Value fPrin1ToString(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  return makeString(in.toString(args[0], true));
}

Value fPrincToString(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  return makeString(in.toString(args[0], false));
}

Symbol *symbolArg(Interp &in, const Value &v) {
  if (v.type() != Type::Sym) in.badArgType(L"symbolp", v);
  return v.as<Symbol>();
}

Value fSymbolName(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  if (args[0].isNil()) return makeString(L"nil");
  return makeString(symbolArg(in, args[0])->name);
}

Value fSymbolValue(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  if (args[0].isNil()) return Value();
  return symbolArg(in, args[0])->value;
}

// (snvalid name [flag]): a valid name of a drawing's symbol table under
// extended names. Flag 1 allows | inside the name (xref-dependent names).
Value fSnvalid(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 2);
  const std::wstring &s = strArg(in, args[0]);
  bool bar = present(args, nargs, 1) && intArg(in, args[1]) == 1;
  static constexpr std::wstring_view kForbidden = L"<>/\\\":?*,=`;";
  bool ok = !s.empty();
  for (size_t i = 0; ok && i < s.size(); ++i) {
    wchar_t c = s[i];
    if (c < 0x20 || c == 0x7F || kForbidden.find(c) != std::wstring_view::npos) ok = false;
    if (c == L'|') ok = bar && i > 0 && i + 1 < s.size();
  }
  return in.boolean(ok);
}

struct Entry {
  const wchar_t *name;
  SubrFn fn;
};

constexpr Entry kStrings[] = {
    {L"strcat", fStrcat},
    {L"strlen", fStrlen},
    {L"substr", fSubstr},
    {L"strcase", fStrcase},
    {L"ascii", fAscii},
    {L"chr", fChr},
    {L"itoa", fItoa},
    {L"atoi", fAtoi},
    {L"atof", fAtof},
    {L"read", fRead},
    {L"wcmatch", fWcmatch},
    {L"vl-string-search", fStringSearch},
    {L"vl-string-subst", fStringSubst},
    {L"vl-string-trim", fStringTrim},
    {L"vl-string-left-trim", fStringLeftTrim},
    {L"vl-string-right-trim", fStringRightTrim},
    {L"vl-string-position", fStringPosition},
    {L"vl-string-translate", fStringTranslate},
    {L"vl-string->list", fStringToList},
    {L"vl-list->string", fListToString},
    {L"vl-string-elt", fStringElt},
    {L"vl-string-mismatch", fStringMismatch},
    {L"vl-prin1-to-string", fPrin1ToString},
    {L"vl-princ-to-string", fPrincToString},
    {L"vl-symbol-name", fSymbolName},
    {L"vl-symbol-value", fSymbolValue},
    {L"snvalid", fSnvalid},
};

}  // namespace

void installStrings(Interp &in) {
  for (const Entry &e : kStrings) in.defineSubr(e.name, e.fn);
  installUnits(in);
}

}  // namespace vantry::lisp
