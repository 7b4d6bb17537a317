// Conversions of the scripted person's typed answers: initget keyword
// strings and their abbreviations, integers, reals, angles in the host's
// angular units, and points (absolute, relative "@", polar "<"). Plain
// functions of host/editor/editor.h, with no session.
#include <cmath>
#include <cwchar>
#include <cwctype>

#include "editor/editor.h"
#include "common/text.h"

namespace vantry::host::editor {
namespace {

constexpr double kPi = 3.14159265358979323846;

std::wstring_view trim(std::wstring_view s) {
  while (!s.empty() && std::iswspace(s.front())) s.remove_prefix(1);
  while (!s.empty() && std::iswspace(s.back())) s.remove_suffix(1);
  return s;
}

std::vector<std::wstring> words(std::wstring_view s) {
  std::vector<std::wstring> out;
  std::wstring w;
  for (wchar_t c : s) {
    if (std::iswspace(c)) {
      if (!w.empty()) out.push_back(std::move(w));
      w.clear();
    } else {
      w += c;
    }
  }
  if (!w.empty()) out.push_back(std::move(w));
  return out;
}

Keyword makeKeyword(const std::wstring &word) {
  Keyword k;
  size_t comma = word.find(L',');
  if (comma != std::wstring::npos) {
    k.local = word.substr(0, comma);
    k.minimum = text::upcase(word.substr(comma + 1));
    k.prefix = true;
    return k;
  }
  k.local = word;
  bool lower = false, upper = false;
  for (wchar_t c : word) {
    lower = lower || std::iswlower(c);
    upper = upper || std::iswupper(c);
  }
  if (!lower || !upper) {  // one case: the whole word
    k.minimum = text::upcase(word);
    return k;
  }
  size_t lead = 0;
  while (lead < word.size() && !std::iswlower(word[lead])) ++lead;
  bool laterCapitals = false;
  for (size_t i = lead; i < word.size(); ++i) laterCapitals = laterCapitals || std::iswupper(word[i]);
  if (lead > 0 && !laterCapitals) {
    k.minimum = word.substr(0, lead);
    return k;
  }
  for (wchar_t c : word)
    if (std::iswupper(c)) k.minimum += c;
  k.prefix = false;
  return k;
}

bool accepts(const std::wstring &word, const Keyword &k, const std::wstring &typed) {
  std::wstring full = text::upcase(word);
  if (typed == full || typed == k.minimum) return true;
  return k.prefix && typed.size() >= k.minimum.size() && full.compare(0, typed.size(), typed) == 0 &&
         typed.compare(0, k.minimum.size(), k.minimum) == 0;
}

// Degrees written as 30d15'10" (minutes and seconds optional) or a number.
std::optional<double> degrees(std::wstring_view t) {
  size_t d = t.find(L'D');
  if (d == std::wstring_view::npos) return parseReal(t);
  auto deg = parseReal(t.substr(0, d));
  if (!deg) return std::nullopt;
  std::wstring_view rest = t.substr(d + 1);
  double minutes = 0, seconds = 0;
  size_t m = rest.find(L'\'');
  if (m != std::wstring_view::npos) {
    auto v = parseReal(rest.substr(0, m));
    if (!v || *v < 0) return std::nullopt;
    minutes = *v;
    rest = rest.substr(m + 1);
  }
  if (!trim(rest).empty()) {
    if (rest.back() != L'"') return std::nullopt;
    auto v = parseReal(rest.substr(0, rest.size() - 1));
    if (!v || *v < 0) return std::nullopt;
    seconds = *v;
  }
  double magnitude = std::fabs(*deg) + minutes / 60 + seconds / 3600;
  return std::signbit(*deg) ? -magnitude : magnitude;
}

}  // namespace

// --- Conversions -------------------------------------------------------------------

std::vector<Keyword> parseKeywords(std::wstring_view format) {
  std::vector<std::wstring> all = words(format);
  std::vector<Keyword> out;
  size_t split = all.size();
  for (size_t i = 0; i < all.size(); ++i) {
    if (all[i].size() > 1 && all[i][0] == L'_') {
      split = i;
      break;
    }
  }
  for (size_t i = 0; i < split; ++i) out.push_back(makeKeyword(all[i]));
  for (size_t i = split; i < all.size(); ++i) {
    size_t n = i - split;
    std::wstring global = i == split ? all[i].substr(1) : all[i];
    if (n < out.size()) out[n].global = global;
  }
  for (Keyword &k : out)
    if (k.global.empty()) k.global = k.local;
  return out;
}

const Keyword *matchKeyword(const std::vector<Keyword> &keywords, std::wstring_view typed) {
  std::wstring t = text::upcase(trim(typed));
  if (t.empty()) return nullptr;
  if (t.size() > 1 && t[0] == L'_') {
    std::wstring g = t.substr(1);
    for (const Keyword &k : keywords)
      if (text::upcase(k.global) == g) return &k;
    return nullptr;
  }
  for (const Keyword &k : keywords)
    if (accepts(k.local, k, t)) return &k;
  return nullptr;
}

std::optional<long long> parseInteger(std::wstring_view text) {
  std::wstring_view t = trim(text);
  size_t i = 0;
  bool negative = false;
  if (i < t.size() && (t[i] == L'+' || t[i] == L'-')) negative = t[i++] == L'-';
  if (i == t.size()) return std::nullopt;
  long long v = 0;
  for (; i < t.size(); ++i) {
    if (!std::iswdigit(t[i])) return std::nullopt;
    v = v * 10 + (t[i] - L'0');
    if (v > (1LL << 40)) return std::nullopt;
  }
  return negative ? -v : v;
}

std::optional<double> parseReal(std::wstring_view text) {
  std::wstring t(trim(text));
  if (t.empty()) return std::nullopt;
  bool digit = false;
  for (wchar_t c : t) {
    if (std::iswdigit(c))
      digit = true;
    else if (!wcschr(L"+-.eE", c))
      return std::nullopt;
  }
  if (!digit) return std::nullopt;
  wchar_t *end = nullptr;
  double v = wcstod(t.c_str(), &end);
  if (!end || *end || !std::isfinite(v)) return std::nullopt;
  return v;
}

std::optional<double> parseAngle(std::wstring_view text, int aunits) {
  std::wstring t = text::upcase(trim(text));
  if (t.empty()) return std::nullopt;
  auto rad = [](double deg) { return deg * kPi / 180.0; };
  // Surveyor's bearing: N|S [angle E|W], or a bare compass direction.
  if (t == L"N") return rad(90);
  if (t == L"S") return rad(270);
  if (t == L"E") return rad(0);
  if (t == L"W") return rad(180);
  if ((t[0] == L'N' || t[0] == L'S') && t.size() > 2 && (t.back() == L'E' || t.back() == L'W')) {
    auto a = degrees(std::wstring_view(t).substr(1, t.size() - 2));
    if (!a || *a < 0 || *a > 90) return std::nullopt;
    bool north = t[0] == L'N', east = t.back() == L'E';
    double d = north ? (east ? 90 - *a : 90 + *a) : (east ? 270 + *a : 270 - *a);
    return rad(d);
  }
  wchar_t unit = t.back();
  if (unit == L'R' || unit == L'G') {
    auto v = parseReal(std::wstring_view(t).substr(0, t.size() - 1));
    if (!v) return std::nullopt;
    return unit == L'R' ? *v : *v * kPi / 200.0;
  }
  if (t.find(L'D') != std::wstring::npos) {
    auto d = degrees(t);
    return d ? std::optional<double>(rad(*d)) : std::nullopt;
  }
  auto v = parseReal(t);
  if (!v) return std::nullopt;
  if (aunits == 2) return *v * kPi / 200.0;
  if (aunits == 3) return *v;
  return rad(*v);
}

std::optional<Point> parsePoint(std::wstring_view text, const Point &last, int aunits) {
  std::wstring_view t = trim(text);
  Point origin{0, 0, 0};
  if (!t.empty() && t[0] == L'@') {
    origin = last;
    t = trim(t.substr(1));
    if (t.empty()) return last;
  }
  size_t lt = t.find(L'<');
  if (lt != std::wstring_view::npos) {
    auto d = parseReal(t.substr(0, lt));
    auto a = parseAngle(t.substr(lt + 1), aunits);
    if (!d || !a) return std::nullopt;
    return Point{origin[0] + *d * std::cos(*a), origin[1] + *d * std::sin(*a), origin[2]};
  }
  std::vector<double> parts;
  size_t start = 0;
  while (true) {
    size_t comma = t.find(L',', start);
    auto v = parseReal(
        t.substr(start, comma == std::wstring_view::npos ? std::wstring_view::npos : comma - start));
    if (!v) return std::nullopt;
    parts.push_back(*v);
    if (comma == std::wstring_view::npos) break;
    start = comma + 1;
  }
  if (parts.size() < 2 || parts.size() > 3) return std::nullopt;
  return Point{origin[0] + parts[0], origin[1] + parts[1], origin[2] + (parts.size() == 3 ? parts[2] : 0)};
}

}  // namespace vantry::host::editor
