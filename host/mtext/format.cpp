// MText format codes turned into characters, paragraph breaks and stacks,
// each with the character state in force.
//
// Codes handled (a value runs up to the next ';'):
//   \P paragraph break (also \N column break, \X, and a raw line feed)
//   \~ non-breaking space         \\ \{ \}  literal characters
//   { } save and restore the state
//   \fname|b1|i0|...;  \Fname.shx|c0;  font, with bold and italic flags
//   \Hv;  \Hvx;   height, absolute or relative to the current height
//   \Wv;  \Wvx;   width factor        \Tv;  tracking (factor on advances)
//   \Qv; oblique, \Cv; \cv; colour, \Av; alignment, \p...; paragraph
//        properties: read and ignored (they do not change metrics)
//   \L \l underline on/off, \O \o overline on/off, \K \k strike-through
//   \Stop^bottom;  \Stop/bottom;  \Stop#bottom;  stacked text
//   \U+XXXX a character by its code point
//   %%d degree, %%p plus/minus, %%c diameter, %%% percent, %%nnn character code
#include <cwchar>
#include <cwctype>
#include <optional>

#include "mtext/layout.h"

namespace vantry::host {
namespace {

constexpr char32_t kNoBreakSpace = 0x00A0;
constexpr char32_t kDegree = 0x00B0;
constexpr char32_t kPlusMinus = 0x00B1;
constexpr char32_t kDiameter = 0x2300;

class Parser {
 public:
  Parser(std::wstring_view text, const MTextAttrs &base) : s_(text), cur_(base) {
    out_.attrs.push_back(base);
  }

  MTextFormatted run() {
    while (i_ < s_.size()) {
      wchar_t c = s_[i_];
      if (c == L'\\') {
        escape();
      } else if (c == L'{') {
        saved_.push_back(cur_);
        ++i_;
      } else if (c == L'}') {
        if (!saved_.empty()) {
          cur_ = saved_.back();
          saved_.pop_back();
        }
        ++i_;
      } else if (c == L'%' && percent()) {
      } else if (c == L'\n') {
        paragraph();
        ++i_;
      } else if (c == L'\r') {
        ++i_;
      } else {
        emit(char32_t(c));
        ++i_;
      }
    }
    return std::move(out_);
  }

 private:
  int attrsIndex() {
    const MTextAttrs &last = out_.attrs.back();
    if (!(last.font == cur_.font && last.bold == cur_.bold && last.italic == cur_.italic &&
          last.height == cur_.height && last.widthFactor == cur_.widthFactor &&
          last.tracking == cur_.tracking && last.underline == cur_.underline &&
          last.overline == cur_.overline))
      out_.attrs.push_back(cur_);
    return int(out_.attrs.size()) - 1;
  }

  void emit(char32_t ch) {
    MTextPiece p;
    p.ch = ch;
    p.attrs = attrsIndex();
    out_.pieces.push_back(std::move(p));
  }

  void paragraph() {
    MTextPiece p;
    p.kind = MTextPiece::Kind::kParagraph;
    p.attrs = attrsIndex();
    out_.pieces.push_back(std::move(p));
  }

  // The value of a code from just after its letter up to ';' (consumed), or
  // to the end of the text when ';' is missing.
  std::wstring value() {
    size_t end = s_.find(L';', i_);
    if (end == std::wstring_view::npos) end = s_.size();
    std::wstring v(s_.substr(i_, end - i_));
    i_ = end < s_.size() ? end + 1 : end;
    return v;
  }

  // "2.5" -> 2.5; "0.5x" -> 0.5 * current. Nothing for a bad or non-positive value.
  static std::optional<double> factor(const std::wstring &v, double current) {
    if (v.empty()) return std::nullopt;
    wchar_t *end = nullptr;
    double d = std::wcstod(v.c_str(), &end);
    if (end == v.c_str() || !(d > 0) || d > 1e12) return std::nullopt;
    if (*end == L'x' || *end == L'X') {
      d *= current;
      ++end;
    }
    if (*end != 0) return std::nullopt;
    return d;
  }

  void font(const std::wstring &v) {
    size_t bar = v.find(L'|');
    std::wstring name = v.substr(0, bar);
    if (name.empty()) return;
    cur_.font = name;
    cur_.bold = cur_.italic = false;
    while (bar != std::wstring::npos) {
      size_t next = v.find(L'|', bar + 1);
      std::wstring flag = v.substr(bar + 1, next == std::wstring::npos ? next : next - bar - 1);
      if (flag.size() >= 2 && flag[0] == L'b') cur_.bold = flag[1] != L'0';
      if (flag.size() >= 2 && flag[0] == L'i') cur_.italic = flag[1] != L'0';
      bar = next;
    }
  }

  // \Stop^bottom; the first unescaped '^', '/' or '#' splits the parts; "\;"
  // inside a stack is a literal ';'.
  void stack() {
    std::wstring top, bottom;
    wchar_t kind = 0;
    while (i_ < s_.size() && s_[i_] != L';') {
      wchar_t c = s_[i_++];
      if (c == L'\\' && i_ < s_.size()) {
        c = s_[i_++];
      } else if (!kind && (c == L'^' || c == L'/' || c == L'#')) {
        kind = c;
        continue;
      }
      (kind ? bottom : top) += c;
    }
    if (i_ < s_.size()) ++i_;
    MTextPiece p;
    p.kind = MTextPiece::Kind::kStack;
    p.top = std::move(top);
    p.bottom = std::move(bottom);
    p.stackKind = kind ? kind : L'/';
    p.attrs = attrsIndex();
    out_.pieces.push_back(std::move(p));
  }

  void escape() {
    if (i_ + 1 >= s_.size()) {  // a lone trailing backslash is literal
      emit(U'\\');
      ++i_;
      return;
    }
    wchar_t code = s_[i_ + 1];
    i_ += 2;
    switch (code) {
      case L'P':
      case L'N':
      case L'X':
        paragraph();
        return;
      case L'~':
        emit(kNoBreakSpace);
        return;
      case L'\\':
      case L'{':
      case L'}':
        emit(char32_t(code));
        return;
      case L'L':
        cur_.underline = true;
        return;
      case L'l':
        cur_.underline = false;
        return;
      case L'O':
        cur_.overline = true;
        return;
      case L'o':
        cur_.overline = false;
        return;
      case L'K':
      case L'k':
        return;
      case L'f':
      case L'F':
        font(value());
        return;
      case L'H':
        if (auto h = factor(value(), cur_.height)) cur_.height = *h;
        return;
      case L'W':
        if (auto w = factor(value(), cur_.widthFactor)) cur_.widthFactor = *w;
        return;
      case L'T':
        if (auto t = factor(value(), cur_.tracking)) cur_.tracking = *t;
        return;
      case L'Q':
      case L'C':
      case L'c':
      case L'A':
      case L'p':
        value();
        return;
      case L'S':
        stack();
        return;
      case L'U':
        if (unicode()) return;
        break;
      default:
        break;
    }
    // Not a code: the backslash and the character stay as text.
    emit(U'\\');
    emit(char32_t(code));
  }

  // After "\U": "+XXXX", exactly four hex digits (a fifth is text: "\U+00B0C" is "°C").
  bool unicode() {
    if (i_ >= s_.size() || s_[i_] != L'+') return false;
    size_t j = i_ + 1;
    char32_t cp = 0;
    while (j < s_.size() && j - i_ - 1 < 4 && std::iswxdigit(s_[j])) {
      wchar_t d = s_[j++];
      cp = cp * 16 + (std::iswdigit(d) ? d - L'0' : std::towlower(d) - L'a' + 10);
    }
    if (j - i_ - 1 < 4) return false;
    emit(cp);
    i_ = j;
    return true;
  }

  // At '%': handles "%%x" and returns true, or returns false for a plain '%'.
  bool percent() {
    if (i_ + 2 >= s_.size() || s_[i_ + 1] != L'%') return false;
    wchar_t c = std::towlower(s_[i_ + 2]);
    char32_t ch = 0;
    size_t len = 3;
    if (c == L'd') {
      ch = kDegree;
    } else if (c == L'p') {
      ch = kPlusMinus;
    } else if (c == L'c') {
      ch = kDiameter;
    } else if (c == L'%') {
      ch = U'%';
    } else if (i_ + 4 < s_.size() && std::iswdigit(s_[i_ + 2]) && std::iswdigit(s_[i_ + 3]) &&
               std::iswdigit(s_[i_ + 4])) {
      ch = char32_t((s_[i_ + 2] - L'0') * 100 + (s_[i_ + 3] - L'0') * 10 + (s_[i_ + 4] - L'0'));
      len = 5;
    } else {
      return false;
    }
    emit(ch);
    i_ += len;
    return true;
  }

  std::wstring_view s_;
  size_t i_ = 0;
  MTextAttrs cur_;
  std::vector<MTextAttrs> saved_;
  MTextFormatted out_;
};

}  // namespace

MTextFormatted parseMTextFormat(std::wstring_view contents, const MTextAttrs &base) {
  return Parser(contents, base).run();
}

}  // namespace vantry::host
