// Access's Format() for dates and numbers, in the common forms: named formats
// ("Short Date", "Fixed" ...) and pictures ("yyyy-mm-dd hh:nn", "#,##0.00",
// "0.0%"). Month and day names are English. Only the first section of a
// picture (before ";") is used.
#include <cmath>
#include <cstdio>
#include <string>

#include "sqlite_internal.h"

namespace vantry::engine::sqlite {

namespace {

const char *kMonths[] = {"January", "February", "March",     "April",   "May",      "June",
                         "July",    "August",   "September", "October", "November", "December"};
const char *kDays[] = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};

struct DateParts {
  int y, m, d, h, mi, s;
};

int weekday(int y, int m, int d) {  // 0 = Sunday
  static const int t[] = {0, 3, 2, 5, 0, 3, 5, 1, 4, 6, 2, 4};
  if (m < 3) y -= 1;
  return (y + y / 4 - y / 100 + y / 400 + t[m - 1] + d) % 7;
}

std::string two(int v) {
  char b[8];
  std::snprintf(b, sizeof b, "%02d", v);
  return b;
}

std::string formatDate(const DateParts &p, const std::string &f) {
  std::string out;
  bool lastWasHour = false;
  size_t i = 0;
  auto run = [&](char c) {
    size_t n = 0;
    while (i + n < f.size() && std::tolower(static_cast<unsigned char>(f[i + n])) == c) ++n;
    return n;
  };
  while (i < f.size()) {
    char c = static_cast<char>(std::tolower(static_cast<unsigned char>(f[i])));
    if (f.compare(i, 5, "AM/PM") == 0 || f.compare(i, 5, "am/pm") == 0) {
      std::string ap = p.h < 12 ? "AM" : "PM";
      out += f[i] == 'a' ? asciiLower(ap) : ap;
      i += 5;
      continue;
    }
    size_t n = run(c);
    switch (c) {
      case 'y':
        out += n >= 3 ? std::to_string(p.y) : two(p.y % 100);
        break;
      case 'm':
        if (lastWasHour && n <= 2) {
          out += n == 2 ? two(p.mi) : std::to_string(p.mi);
        } else {
          out += n >= 4   ? kMonths[p.m - 1]
                 : n == 3 ? std::string(kMonths[p.m - 1]).substr(0, 3)
                          : (n == 2 ? two(p.m) : std::to_string(p.m));
        }
        break;
      case 'd': {
        const char *name = kDays[weekday(p.y, p.m, p.d)];
        out += n >= 4   ? name
               : n == 3 ? std::string(name).substr(0, 3)
                        : (n == 2 ? two(p.d) : std::to_string(p.d));
        break;
      }
      case 'h': {
        bool twelve = f.find("AM/PM") != std::string::npos || f.find("am/pm") != std::string::npos;
        int h = twelve ? (p.h % 12 == 0 ? 12 : p.h % 12) : p.h;
        out += n >= 2 ? two(h) : std::to_string(h);
        break;
      }
      case 'n':
        out += n >= 2 ? two(p.mi) : std::to_string(p.mi);
        break;
      case 's':
        out += n >= 2 ? two(p.s) : std::to_string(p.s);
        break;
      case '\\':
        n = 1;
        if (i + 1 < f.size()) out += f[i + 1], n = 2;
        break;
      case '"': {
        size_t e = f.find('"', i + 1);
        n = (e == std::string::npos ? f.size() : e + 1) - i;
        out += f.substr(i + 1, n > 1 ? n - 2 : 0);
        break;
      }
      default:
        n = 1;
        out += f[i];
    }
    if (c == 'h')
      lastWasHour = true;
    else if (std::isalpha(static_cast<unsigned char>(c)))
      lastWasHour = false;
    i += n;
  }
  return out;
}

std::string formatNumber(double x, std::string f) {
  size_t first = f.find_first_of("0#"), last = f.find_last_of("0#");
  if (first == std::string::npos) return f;
  std::string prefix = f.substr(0, first), suffix = f.substr(last + 1),
              body = f.substr(first, last - first + 1);
  if (f.find('%') != std::string::npos) x *= 100;
  size_t dot = body.find('.');
  std::string intPart = body.substr(0, dot), fracPart = dot == std::string::npos ? "" : body.substr(dot + 1);
  int decimals = 0, minDecimals = 0, minInt = 0;
  for (char c : fracPart) decimals += c == '0' || c == '#', minDecimals += c == '0';
  for (char c : intPart) minInt += c == '0';
  bool group = intPart.find(',') != std::string::npos;
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.*f", decimals, std::fabs(x));
  std::string digits = buf, frac;
  size_t p = digits.find('.');
  if (p != std::string::npos) frac = digits.substr(p + 1), digits.resize(p);
  while (static_cast<int>(frac.size()) > minDecimals && frac.back() == '0') frac.pop_back();
  if (digits == "0" && minInt == 0) digits.clear();
  while (static_cast<int>(digits.size()) < minInt) digits.insert(0, "0");
  if (group)
    for (int k = static_cast<int>(digits.size()) - 3; k > 0; k -= 3)
      digits.insert(static_cast<size_t>(k), ",");
  bool negative = x < 0 && (digits.find_first_not_of("0,") != std::string::npos ||
                            frac.find_first_not_of('0') != std::string::npos);
  return prefix + (negative ? "-" : "") + digits + (frac.empty() ? "" : "." + frac) + suffix;
}

}  // namespace

std::string formatValue(const std::string &value, bool numeric, double number, const std::string &format) {
  std::string f = format, key = asciiLower(format);
  static const std::pair<const char *, const char *> kNamed[] = {
      {"short date", "m/d/yyyy"}, {"medium date", "dd-mmm-yy"},   {"long date", "dddd, mmmm d, yyyy"},
      {"short time", "hh:nn"},    {"medium time", "hh:nn AM/PM"}, {"long time", "h:nn:ss AM/PM"},
      {"fixed", "0.00"},          {"standard", "#,##0.00"},       {"percent", "0.00%"},
      {"general number", ""},
  };
  for (const auto &[name, picture] : kNamed)
    if (key == name) f = picture;
  if (f.empty()) return value;
  std::string iso;
  bool dateFormat =
      f.find_first_of("yYdDhHnNsS") != std::string::npos ||
      (f.find_first_of("mM") != std::string::npos && f.find_first_of("0#") == std::string::npos);
  if (dateFormat && !numeric && normalizeDate(value, &iso)) {
    DateParts p{};
    std::sscanf(iso.c_str(), "%d-%d-%d %d:%d:%d", &p.y, &p.m, &p.d, &p.h, &p.mi, &p.s);
    return formatDate(p, f.substr(0, f.find(';')));
  }
  if (key == "general date" && normalizeDate(value, &iso)) {
    DateParts p{};
    std::sscanf(iso.c_str(), "%d-%d-%d %d:%d:%d", &p.y, &p.m, &p.d, &p.h, &p.mi, &p.s);
    return formatDate(p, p.h || p.mi || p.s ? "m/d/yyyy h:nn:ss AM/PM" : "m/d/yyyy");
  }
  if (numeric && !dateFormat) return formatNumber(number, f.substr(0, f.find(';')));
  return value;
}

}  // namespace vantry::engine::sqlite
