// The AutoLISP reader.
//
//   form    := atom | "'" form | "(" form* ")" | "(" form+ "." form ")"
//   atom    := integer | real | string | symbol
//   string  := '"' (char | "\" escape)* '"'      escapes: \\ \" \n \r \t \e \nnn (octal)
//   comment := ";" to end of line | ";|" ... "|;"
//
// An integer literal that does not fit 32 bits reads as a real, as on the
// host. Errors carry the host's wording and, after it, the file and line.
#include <algorithm>
#include <iterator>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cwctype>

#include "lisp/lisp.h"

namespace vantry::lisp {
namespace {

class Reader {
 public:
  Reader(Interp &in, std::wstring_view text, const SourcePos &where)
      : in_(in), s_(text), where_(where), line_(where.line > 0 ? where.line : 1) {}

  // Reads the next form into *out; false at the end of the text.
  bool next(Value *out) {
    skipSpace();
    if (pos_ >= s_.size()) return false;
    if (s_[pos_] == L')') fail(L"extra right paren on input");
    *out = form(0);
    return true;
  }

 private:
  static constexpr int kMaxNesting = 10000;

  [[noreturn]] void fail(const std::wstring &what) {
    std::wstring msg = what;
    if (!where_.file.empty() || line_ > 0) {
      msg += L" (";
      if (!where_.file.empty()) msg += where_.file + L", ";
      msg += L"line " + std::to_wstring(line_) + L")";
    }
    in_.error(msg);
  }

  void skipSpace() {
    while (pos_ < s_.size()) {
      wchar_t c = s_[pos_];
      if (c == L'\n') {
        ++line_;
        ++pos_;
      } else if (std::iswspace(c)) {
        ++pos_;
      } else if (c == L';') {
        if (pos_ + 1 < s_.size() && s_[pos_ + 1] == L'|') {
          size_t end = s_.find(L"|;", pos_ + 2);
          size_t stop = end == std::wstring_view::npos ? s_.size() : end + 2;
          for (size_t i = pos_; i < stop; ++i)
            if (s_[i] == L'\n') ++line_;
          pos_ = stop;
        } else {
          while (pos_ < s_.size() && s_[pos_] != L'\n') ++pos_;
        }
      } else {
        break;
      }
    }
  }

  static bool isDelimiter(wchar_t c) {
    return std::iswspace(c) || c == L'(' || c == L')' || c == L'\'' || c == L'"' || c == L';';
  }

  Value form(int nesting) {
    if (nesting > kMaxNesting) fail(L"malformed list on input");
    skipSpace();
    if (pos_ >= s_.size()) fail(L"malformed list on input");
    wchar_t c = s_[pos_];
    if (c == L'(') {
      ++pos_;
      return list(nesting + 1);
    }
    if (c == L'\'') {
      ++pos_;
      skipSpace();
      if (pos_ >= s_.size() || s_[pos_] == L')') fail(L"malformed list on input");
      Value quoted = form(nesting + 1);
      return cons(Value(in_.symQuote), cons(std::move(quoted), Value()));
    }
    if (c == L'"') return string();
    return atom();
  }

  Value list(int nesting) {
    int startLine = line_;
    ListBuilder b;
    for (;;) {
      skipSpace();
      if (pos_ >= s_.size()) {
        line_ = startLine;
        fail(L"malformed list on input");
      }
      wchar_t c = s_[pos_];
      if (c == L')') {
        ++pos_;
        return b.take();
      }
      if (c == L'.' && pos_ + 1 < s_.size() && isDelimiter(s_[pos_ + 1]) && !b.empty()) {
        ++pos_;
        skipSpace();
        if (pos_ >= s_.size() || s_[pos_] == L')') fail(L"malformed dotted pair on input");
        b.dot(form(nesting));
        skipSpace();
        if (pos_ >= s_.size() || s_[pos_] != L')') fail(L"malformed dotted pair on input");
        ++pos_;
        return b.take();
      }
      b.add(form(nesting));
    }
  }

  Value string() {
    int startLine = line_;
    ++pos_;
    std::wstring out;
    for (;;) {
      if (pos_ >= s_.size()) {
        line_ = startLine;
        fail(L"malformed string on input");
      }
      wchar_t c = s_[pos_++];
      if (c == L'"') break;
      if (c == L'\n') ++line_;
      if (c != L'\\') {
        out += c;
        continue;
      }
      if (pos_ >= s_.size()) fail(L"malformed string on input");
      wchar_t e = s_[pos_++];
      const StringEscape *esc = std::find_if(std::begin(kStringEscapes), std::end(kStringEscapes),
                                             [e](const StringEscape &x) { return x.letter == e; });
      if (esc != std::end(kStringEscapes)) {
        out += esc->character;
      } else if (e >= L'0' && e <= L'7') {
        int code = e - L'0';
        for (int k = 0; k < 2 && pos_ < s_.size() && s_[pos_] >= L'0' && s_[pos_] <= L'7'; ++k)
          code = code * 8 + (s_[pos_++] - L'0');
        out += wchar_t(code);
      } else {
        // The host keeps an unknown escape's character and drops the backslash.
        out += e;
      }
    }
    return makeString(std::move(out));
  }

  Value atom() {
    size_t start = pos_;
    while (pos_ < s_.size() && !isDelimiter(s_[pos_])) ++pos_;
    std::wstring_view tok = s_.substr(start, pos_ - start);
    Value number;
    if (parseNumber(tok, &number)) return number;
    Symbol *sym = in_.intern(tok);
    if (sym->name == L"NIL") return Value();
    return Value(sym);
  }

  static bool parseNumber(std::wstring_view tok, Value *out) {
    size_t i = 0, n = tok.size();
    if (i < n && (tok[i] == L'+' || tok[i] == L'-')) ++i;
    size_t digits = 0, fracDigits = 0;
    while (i < n && std::iswdigit(tok[i])) ++i, ++digits;
    bool isReal = false;
    if (i < n && tok[i] == L'.') {
      isReal = true;
      ++i;
      while (i < n && std::iswdigit(tok[i])) ++i, ++fracDigits;
    }
    if (digits + fracDigits == 0) return false;
    if (i < n && (tok[i] == L'e' || tok[i] == L'E')) {
      size_t j = i + 1;
      if (j < n && (tok[j] == L'+' || tok[j] == L'-')) ++j;
      size_t expDigits = 0;
      while (j < n && std::iswdigit(tok[j])) ++j, ++expDigits;
      if (expDigits == 0) return false;
      isReal = true;
      i = j;
    }
    if (i != n) return false;
    std::string narrow(tok.begin(), tok.end());
    if (!isReal) {
      errno = 0;
      long long v = std::strtoll(narrow.c_str(), nullptr, 10);
      if (v >= INT32_MIN && v <= INT32_MAX && errno != ERANGE) {
        *out = Value::integer(int32_t(v));
        return true;
      }
    }
    *out = Value::real(std::strtod(narrow.c_str(), nullptr));
    return true;
  }

  Interp &in_;
  std::wstring_view s_;
  const SourcePos &where_;
  size_t pos_ = 0;
  int line_;
};

}  // namespace

// Reads and evaluates one form at a time, as a loaded file runs: the forms
// before a malformed one have run when its error is raised.
Value Interp::evalForms(std::wstring_view text, const SourcePos &where) {
  Reader r(*this, text, where);
  Value form, result;
  while (r.next(&form)) result = eval(form);
  return result;
}

std::vector<Value> Interp::readAll(std::wstring_view text, const SourcePos &where) {
  Reader r(*this, text, where);
  std::vector<Value> forms;
  Value v;
  while (r.next(&v)) forms.push_back(std::move(v));
  return forms;
}

}  // namespace vantry::lisp
