// The wild-card pattern language of wcmatch (and of selection-set filters).
//
// A pattern is one or more alternatives separated by commas; the string
// matches when any alternative matches the whole string. Within an
// alternative:
//   #  one digit            @  one letter           .  one non-alphanumeric
//   *  any run, even empty  ?  any one character    `x the character x itself
//   [abc] [a-z] one of the set; [~abc] one character not in the set
//   ~  as the alternative's first character: everything the rest does not match
// Inside brackets every character stands for itself except a leading ~ and the
// - of a range. The comparison is case-sensitive.
#include <string>
#include <string_view>
#include <vector>

#include "lisp/lisp.h"

namespace vantry::lisp {

namespace {

enum class Tok { Literal, Any, Star, Digit, Alpha, NonAlnum, Set };

struct Token {
  Token(Tok k, wchar_t c = 0) : kind(k), ch(c) {}
  Tok kind;
  wchar_t ch;            // Literal
  bool negated = false;  // Set
  std::wstring ranges;   // Set: pairs lo,hi
};

bool isDigit(wchar_t c) {
  return c >= L'0' && c <= L'9';
}

// A letter is an ASCII letter or any character that has a case partner.
bool isAlpha(wchar_t c) {
  if ((c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z')) return true;
  if (c < 0x80) return false;
  std::wstring_view one(&c, 1);
  return upcase(one) != one || downcase(one) != one;
}

bool tokenMatches(const Token &t, wchar_t c) {
  switch (t.kind) {
    case Tok::Literal:
      return c == t.ch;
    case Tok::Any:
      return true;
    case Tok::Digit:
      return isDigit(c);
    case Tok::Alpha:
      return isAlpha(c);
    case Tok::NonAlnum:
      return !isDigit(c) && !isAlpha(c);
    case Tok::Set: {
      bool in = false;
      for (size_t i = 0; i + 1 < t.ranges.size() && !in; i += 2)
        in = c >= t.ranges[i] && c <= t.ranges[i + 1];
      return in != t.negated;
    }
    case Tok::Star:
      break;
  }
  return false;
}

// Parses one alternative. Returns false when a bracket is never closed: such
// an alternative matches nothing.
bool compile(std::wstring_view p, std::vector<Token> &out) {
  for (size_t i = 0; i < p.size(); ++i) {
    wchar_t c = p[i];
    switch (c) {
      case L'#':
        out.emplace_back(Tok::Digit);
        break;
      case L'@':
        out.emplace_back(Tok::Alpha);
        break;
      case L'.':
        out.emplace_back(Tok::NonAlnum);
        break;
      case L'?':
        out.emplace_back(Tok::Any);
        break;
      case L'*':
        if (out.empty() || out.back().kind != Tok::Star) out.emplace_back(Tok::Star);
        break;
      case L'`':
        out.emplace_back(Tok::Literal, i + 1 < p.size() ? p[++i] : L'`');
        break;
      case L'[': {
        Token t(Tok::Set);
        size_t j = i + 1;
        if (j < p.size() && p[j] == L'~') t.negated = true, ++j;
        size_t first = j;
        // A ] right after the opening bracket belongs to the set.
        while (j < p.size() && (p[j] != L']' || j == first)) {
          wchar_t lo = p[j], hi = lo;
          if (j + 2 < p.size() && p[j + 1] == L'-' && p[j + 2] != L']') {
            hi = p[j + 2];
            j += 2;
          }
          t.ranges += lo;
          t.ranges += hi;
          ++j;
        }
        if (j >= p.size()) return false;
        out.push_back(std::move(t));
        i = j;
        break;
      }
      default:
        out.emplace_back(Tok::Literal, c);
    }
  }
  return true;
}

// Every token but * consumes exactly one character, so the classic
// backtrack-to-last-star walk is complete and linear in practice.
bool matchTokens(const std::vector<Token> &toks, std::wstring_view s) {
  size_t ti = 0, si = 0, starTok = std::wstring_view::npos, starStr = 0;
  while (si < s.size()) {
    if (ti < toks.size() && toks[ti].kind == Tok::Star) {
      starTok = ti++;
      starStr = si;
    } else if (ti < toks.size() && tokenMatches(toks[ti], s[si])) {
      ++ti;
      ++si;
    } else if (starTok != std::wstring_view::npos) {
      ti = starTok + 1;
      si = ++starStr;
    } else {
      return false;
    }
  }
  while (ti < toks.size() && toks[ti].kind == Tok::Star) ++ti;
  return ti == toks.size();
}

// Splits at commas that are neither escaped nor inside brackets.
std::vector<std::wstring_view> alternatives(std::wstring_view p) {
  std::vector<std::wstring_view> alts;
  size_t start = 0;
  bool inSet = false;
  for (size_t i = 0; i < p.size(); ++i) {
    if (p[i] == L'`') {
      ++i;
    } else if (inSet) {
      if (p[i] == L']' && !(i > 0 && (p[i - 1] == L'[' || (p[i - 1] == L'~' && i > 1 && p[i - 2] == L'['))))
        inSet = false;
    } else if (p[i] == L'[') {
      inSet = true;
    } else if (p[i] == L',') {
      alts.push_back(p.substr(start, i - start));
      start = i + 1;
    }
  }
  alts.push_back(p.substr(start));
  return alts;
}

}  // namespace

bool wcmatch(std::wstring_view str, std::wstring_view pattern) {
  for (std::wstring_view alt : alternatives(pattern)) {
    bool negate = !alt.empty() && alt[0] == L'~';
    if (negate) alt.remove_prefix(1);
    std::vector<Token> toks;
    bool ok = compile(alt, toks) && matchTokens(toks, str);
    if (ok != negate) return true;
  }
  return false;
}

}  // namespace vantry::lisp
