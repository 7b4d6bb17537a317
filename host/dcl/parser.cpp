// The DCL reader: text to definitions.
//
//   file       := { '@include' string | definition }
//   definition := name ':' proto { ':' proto } '{' body '}'
//   body       := { name '=' value ';' | name ';' | ':' proto { ':' proto } ( '{' body '}' | ';' ) }
//   value      := string | number | name
//
// Comments are // to the end of the line and /* ... */. Names are letters,
// digits and "_" and keep their case (DCL names are case-sensitive).
// Strings take the escapes \" \\ \n \t. The first syntax error stops the
// parse: the host refuses the whole file.
#include <cwctype>

#include "dcl/dcl.h"

namespace vantry::host::dcl {
namespace {

struct Token {
  enum Kind { End, Name, String, Number, Punct } kind = End;
  std::wstring text;
  int line = 1;
};

class Parser {
 public:
  Parser(const std::wstring &text, const std::wstring &path, std::vector<std::wstring> *includes,
         std::vector<Diagnostic> *diagnostics)
      : text_(text), path_(path), includes_(includes), diagnostics_(diagnostics) {
    next();
  }

  std::vector<Definition> file() {
    std::vector<Definition> out;
    while (ok_ && tok_.kind != Token::End) {
      if (isPunct(L"@")) {
        next();
        if (tok_.kind != Token::Name || tok_.text != L"include") return fail(), out;
        next();
        if (tok_.kind != Token::String) return fail(), out;
        if (includes_) includes_->push_back(tok_.text);
        next();
        continue;
      }
      if (tok_.kind != Token::Name) return fail(), out;
      Definition d;
      d.name = tok_.text;
      d.file = path_;
      d.line = tok_.line;
      next();
      if (!isPunct(L":")) return fail(), out;
      if (!prototypes(d)) return out;
      if (!isPunct(L"{")) return fail(), out;
      next();
      if (!body(d)) return out;
      out.push_back(std::move(d));
    }
    return out;
  }

  bool ok() const { return ok_; }

 private:
  // ':' proto { ':' proto }, the current token being the first ':'.
  bool prototypes(Definition &d) {
    while (isPunct(L":")) {
      next();
      if (tok_.kind != Token::Name) return fail();
      d.prototypes.push_back(tok_.text);
      next();
    }
    return true;
  }

  // The inside of braces, through the closing one.
  bool body(Definition &d) {
    d.hasBody = true;
    for (;;) {
      if (!ok_) return false;
      if (isPunct(L"}")) {
        next();
        return true;
      }
      if (isPunct(L":")) {
        Definition child;
        child.file = path_;
        child.line = tok_.line;
        if (!prototypes(child)) return false;
        if (isPunct(L"{")) {
          next();
          if (!body(child)) return false;
        } else if (isPunct(L";")) {
          next();
        } else {
          return fail();
        }
        d.children.push_back(std::move(child));
        continue;
      }
      if (tok_.kind != Token::Name) return fail();
      Token name = tok_;
      next();
      if (isPunct(L";")) {  // a reference to a defined tile
        Definition ref;
        ref.prototypes.push_back(name.text);
        ref.file = path_;
        ref.line = name.line;
        d.children.push_back(std::move(ref));
        next();
        continue;
      }
      if (!isPunct(L"=")) return fail();
      next();
      if (tok_.kind != Token::String && tok_.kind != Token::Number && tok_.kind != Token::Name) return fail();
      Attribute a;
      a.name = name.text;
      a.value = tok_.text;
      a.quoted = tok_.kind == Token::String;
      a.line = name.line;
      next();
      if (!isPunct(L";")) return fail();
      next();
      d.attributes.push_back(std::move(a));
    }
  }

  bool isPunct(const wchar_t *p) const { return tok_.kind == Token::Punct && tok_.text == p; }

  // The host's form: the line and the symbol it stumbled on.
  bool fail() {
    if (!ok_) return false;
    ok_ = false;
    Diagnostic d;
    d.file = path_;
    d.line = tok_.line;
    d.message = tok_.kind == Token::End ? std::wstring(L"syntax error\nPremature end of file.")
                                        : L"syntax error\nSymbol: \"" + tok_.text + L"\".";
    if (diagnostics_) diagnostics_->push_back(std::move(d));
    return false;
  }

  void next() {
    skipBlanks();
    tok_ = Token();
    tok_.line = line_;
    if (pos_ >= text_.size()) return;
    wchar_t c = text_[pos_];
    if (std::iswalpha(c) || c == L'_') {
      size_t start = pos_;
      while (pos_ < text_.size() && (std::iswalnum(text_[pos_]) || text_[pos_] == L'_')) ++pos_;
      tok_.kind = Token::Name;
      tok_.text = text_.substr(start, pos_ - start);
    } else if (std::iswdigit(c) || ((c == L'-' || c == L'+' || c == L'.') && pos_ + 1 < text_.size() &&
                                    (std::iswdigit(text_[pos_ + 1]) || text_[pos_ + 1] == L'.'))) {
      size_t start = pos_++;
      while (pos_ < text_.size() && (std::iswdigit(text_[pos_]) || text_[pos_] == L'.')) ++pos_;
      tok_.kind = Token::Number;
      tok_.text = text_.substr(start, pos_ - start);
    } else if (c == L'"') {
      ++pos_;
      tok_.kind = Token::String;
      for (;;) {
        if (pos_ >= text_.size() || text_[pos_] == L'\n') {  // a string must end on its line
          tok_.kind = Token::Punct;
          tok_.text = L"\"";
          fail();
          return;
        }
        wchar_t ch = text_[pos_++];
        if (ch == L'"') break;
        if (ch == L'\\' && pos_ < text_.size()) {
          wchar_t e = text_[pos_++];
          ch = e == L'n' ? L'\n' : e == L't' ? L'\t' : e;
        }
        tok_.text += ch;
      }
    } else {
      tok_.kind = Token::Punct;
      tok_.text = std::wstring(1, c);
      ++pos_;
    }
  }

  void skipBlanks() {
    while (pos_ < text_.size()) {
      wchar_t c = text_[pos_];
      if (c == L'\n') {
        ++line_;
        ++pos_;
      } else if (std::iswspace(c) || c == 0xFEFF) {
        ++pos_;
      } else if (c == L'/' && pos_ + 1 < text_.size() && text_[pos_ + 1] == L'/') {
        while (pos_ < text_.size() && text_[pos_] != L'\n') ++pos_;
      } else if (c == L'/' && pos_ + 1 < text_.size() && text_[pos_ + 1] == L'*') {
        pos_ += 2;
        while (pos_ < text_.size() && !(text_[pos_] == L'*' && pos_ + 1 < text_.size() && text_[pos_ + 1] == L'/')) {
          if (text_[pos_] == L'\n') ++line_;
          ++pos_;
        }
        pos_ = std::min(text_.size(), pos_ + 2);
      } else {
        break;
      }
    }
  }

  const std::wstring &text_;
  std::wstring path_;
  std::vector<std::wstring> *includes_;
  std::vector<Diagnostic> *diagnostics_;
  size_t pos_ = 0;
  int line_ = 1;
  Token tok_;
  bool ok_ = true;
};

}  // namespace

std::vector<Definition> parse(const std::wstring &text, const std::wstring &path,
                              std::vector<std::wstring> *includes, std::vector<Diagnostic> *diagnostics) {
  Parser p(text, path, includes, diagnostics);
  std::vector<Definition> defs = p.file();
  if (!p.ok()) defs.clear();
  return defs;
}

}  // namespace vantry::host::dcl
