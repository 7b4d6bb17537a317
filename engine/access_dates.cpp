// More of the Access dialect's functions: dates (Year ... Second, Date,
// DateSerial, DateAdd, DateDiff, DatePart, CDate), conversions (CInt, CLng,
// CSng, CDbl, CStr, CBool, Int, Fix, Str) and a few others (IsNull, Space,
// String, Sgn, Sqr). A null argument gives null, as in Access (IsNull
// aside). Dates are text "YYYY-MM-DD HH:MM:SS", read by normalizeDate.
#include <cmath>
#include <cstdio>
#include <ctime>
#include <string>

#include "sqlite_internal.h"

namespace vantry::engine::sqlite {

namespace {

std::string textOf(sqlite3_value *v) {
  const unsigned char *p = sqlite3_value_text(v);
  return p ? std::string(reinterpret_cast<const char *>(p), static_cast<size_t>(sqlite3_value_bytes(v)))
           : std::string();
}

void resultText(sqlite3_context *ctx, const std::string &s) {
  sqlite3_result_text(ctx, s.data(), static_cast<int>(s.size()), SQLITE_TRANSIENT);
}

bool anyNull(int argc, sqlite3_value **argv) {
  for (int i = 0; i < argc; ++i)
    if (sqlite3_value_type(argv[i]) == SQLITE_NULL) return true;
  return false;
}

// A date argument as broken-down UTC time; false (with the error set) when
// it does not read as a date.
bool dateArg(sqlite3_context *ctx, sqlite3_value *v, std::tm *out) {
  std::string iso;
  if (!normalizeDate(textOf(v), &iso) ||
      std::sscanf(iso.c_str(), "%d-%d-%d %d:%d:%d", &out->tm_year, &out->tm_mon, &out->tm_mday, &out->tm_hour,
                  &out->tm_min, &out->tm_sec) != 6) {
    sqlite3_result_error(ctx, "Data type mismatch in criteria expression (not a date).", -1);
    return false;
  }
  out->tm_year -= 1900;
  out->tm_mon -= 1;
  return true;
}

std::tm normalized(std::tm tm) {
  std::time_t t = timegm(&tm);
  std::tm out{};
  gmtime_r(&t, &out);
  return out;
}

void resultDate(sqlite3_context *ctx, std::tm tm) {
  tm = normalized(tm);
  char buf[80];  // room for any int in every field, so the text is never cut
  std::snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:%02d:%02d", tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday,
                tm.tm_hour, tm.tm_min, tm.tm_sec);
  resultText(ctx, buf);
}

// Year, Month, Day, Hour, Minute, Second: the part named by the user data.
void datePartOf(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
  if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
  std::tm tm{};
  if (!dateArg(ctx, argv[0], &tm)) return;
  int which = static_cast<int>(reinterpret_cast<intptr_t>(sqlite3_user_data(ctx)));
  const int parts[] = {tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec};
  sqlite3_result_int(ctx, parts[which]);
}

void dateToday(sqlite3_context *ctx, int, sqlite3_value **) {
  std::time_t t = std::time(nullptr);
  std::tm tm{};
  localtime_r(&t, &tm);
  tm.tm_hour = tm.tm_min = tm.tm_sec = 0;
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S", &tm);
  resultText(ctx, buf);
}

void dateSerial(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
  if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
  std::tm tm{};
  tm.tm_year = sqlite3_value_int(argv[0]) - 1900;
  tm.tm_mon = sqlite3_value_int(argv[1]) - 1;
  tm.tm_mday = sqlite3_value_int(argv[2]);
  resultDate(ctx, tm);
}

void cdate(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
  if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
  std::tm tm{};
  if (dateArg(ctx, argv[0], &tm)) resultDate(ctx, tm);
}

// The interval names of DateAdd, DateDiff and DatePart.
enum class Interval { kYear, kQuarter, kMonth, kDayOfYear, kDay, kWeekday, kWeek, kHour, kMinute, kSecond, kNone };

Interval intervalOf(const std::string &name) {
  std::string n = asciiLower(name);
  if (n == "yyyy") return Interval::kYear;
  if (n == "q") return Interval::kQuarter;
  if (n == "m") return Interval::kMonth;
  if (n == "y") return Interval::kDayOfYear;
  if (n == "d") return Interval::kDay;
  if (n == "w") return Interval::kWeekday;
  if (n == "ww") return Interval::kWeek;
  if (n == "h") return Interval::kHour;
  if (n == "n") return Interval::kMinute;
  if (n == "s") return Interval::kSecond;
  return Interval::kNone;
}

bool intervalArg(sqlite3_context *ctx, sqlite3_value *v, Interval *out) {
  *out = intervalOf(textOf(v));
  if (*out == Interval::kNone) sqlite3_result_error(ctx, "Invalid procedure call (unknown interval).", -1);
  return *out != Interval::kNone;
}

void dateAdd(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
  if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
  Interval iv;
  std::tm tm{};
  if (!intervalArg(ctx, argv[0], &iv) || !dateArg(ctx, argv[2], &tm)) return;
  int n = static_cast<int>(std::trunc(sqlite3_value_double(argv[1])));
  if (iv == Interval::kYear || iv == Interval::kQuarter || iv == Interval::kMonth) {
    int months = iv == Interval::kYear ? 12 * n : iv == Interval::kQuarter ? 3 * n : n;
    int total = tm.tm_year * 12 + tm.tm_mon + months;
    tm.tm_year = total >= 0 ? total / 12 : (total - 11) / 12;
    tm.tm_mon = total - tm.tm_year * 12;
    // The day stays, or becomes the month's last when the month is shorter.
    std::tm last{};
    last.tm_year = tm.tm_year, last.tm_mon = tm.tm_mon + 1, last.tm_mday = 0;
    last = normalized(last);
    if (tm.tm_mday > last.tm_mday) tm.tm_mday = last.tm_mday;
  } else if (iv == Interval::kWeek) {
    tm.tm_mday += 7 * n;
  } else if (iv == Interval::kHour) {
    tm.tm_hour += n;
  } else if (iv == Interval::kMinute) {
    tm.tm_min += n;
  } else if (iv == Interval::kSecond) {
    tm.tm_sec += n;
  } else {
    tm.tm_mday += n;
  }
  resultDate(ctx, tm);
}

int64_t floorDiv(int64_t a, int64_t b) {
  return a >= 0 ? a / b : -((-a + b - 1) / b);
}

// DateDiff counts the interval's boundaries crossed from the first date to the second.
void dateDiff(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
  if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
  Interval iv;
  std::tm a{}, b{};
  if (!intervalArg(ctx, argv[0], &iv) || !dateArg(ctx, argv[1], &a) || !dateArg(ctx, argv[2], &b)) return;
  int64_t ta = timegm(&a), tb = timegm(&b);
  int64_t r = 0;
  switch (iv) {
    case Interval::kYear:
      r = b.tm_year - a.tm_year;
      break;
    case Interval::kQuarter:
      r = (b.tm_year * 4 + b.tm_mon / 3) - (a.tm_year * 4 + a.tm_mon / 3);
      break;
    case Interval::kMonth:
      r = (b.tm_year * 12 + b.tm_mon) - (a.tm_year * 12 + a.tm_mon);
      break;
    case Interval::kWeek:  // Sundays crossed (1970-01-04 was a Sunday)
      r = floorDiv(floorDiv(tb, 86400) - 3, 7) - floorDiv(floorDiv(ta, 86400) - 3, 7);
      break;
    case Interval::kWeekday:  // whole weeks between
      r = (floorDiv(tb, 86400) - floorDiv(ta, 86400)) / 7;
      break;
    case Interval::kHour:
      r = floorDiv(tb, 3600) - floorDiv(ta, 3600);
      break;
    case Interval::kMinute:
      r = floorDiv(tb, 60) - floorDiv(ta, 60);
      break;
    case Interval::kSecond:
      r = tb - ta;
      break;
    default:
      r = floorDiv(tb, 86400) - floorDiv(ta, 86400);
      break;
  }
  sqlite3_result_int64(ctx, r);
}

void datePart(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
  if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
  Interval iv;
  std::tm tm{};
  if (!intervalArg(ctx, argv[0], &iv) || !dateArg(ctx, argv[1], &tm)) return;
  tm = normalized(tm);  // fills the weekday and the day of the year
  int r = 0;
  switch (iv) {
    case Interval::kYear: r = tm.tm_year + 1900; break;
    case Interval::kQuarter: r = tm.tm_mon / 3 + 1; break;
    case Interval::kMonth: r = tm.tm_mon + 1; break;
    case Interval::kDayOfYear: r = tm.tm_yday + 1; break;
    case Interval::kWeekday: r = tm.tm_wday + 1; break;  // Sunday is 1
    case Interval::kWeek: r = (tm.tm_yday + (tm.tm_wday - tm.tm_yday % 7 + 7) % 7) / 7 + 1; break;  // Sunday starts a week
    case Interval::kHour: r = tm.tm_hour; break;
    case Interval::kMinute: r = tm.tm_min; break;
    case Interval::kSecond: r = tm.tm_sec; break;
    default: r = tm.tm_mday; break;
  }
  sqlite3_result_int(ctx, r);
}

// Access rounds to even in CInt and CLng: CInt(2.5) is 2, CInt(3.5) is 4.
void cint(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
  if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
  double d = sqlite3_value_double(argv[0]);
  double r = std::nearbyint(d);  // the default rounding mode rounds halves to even
  int64_t limit = sqlite3_user_data(ctx) ? 2147483647 : 32767;
  if (r > double(limit) || r < double(-limit - 1)) return sqlite3_result_error(ctx, "Overflow.", -1);
  sqlite3_result_int64(ctx, static_cast<int64_t>(r));
}

void cdbl(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
  if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
  double d = sqlite3_value_double(argv[0]);
  sqlite3_result_double(ctx, sqlite3_user_data(ctx) ? double(float(d)) : d);
}

void cstr(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
  if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
  resultText(ctx, textOf(argv[0]));
}

void cbool(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
  if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
  sqlite3_result_int(ctx, sqlite3_value_double(argv[0]) != 0 ? -1 : 0);
}

// Int rounds down, Fix towards zero.
void intFix(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
  if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
  if (sqlite3_value_numeric_type(argv[0]) == SQLITE_INTEGER) return sqlite3_result_value(ctx, argv[0]);
  double d = sqlite3_value_double(argv[0]);
  double r = sqlite3_user_data(ctx) ? std::trunc(d) : std::floor(d);
  sqlite3_result_int64(ctx, static_cast<int64_t>(r));
}

// Str: the number as text, with a leading blank for a positive one.
void str(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
  if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
  std::string t = textOf(argv[0]);
  resultText(ctx, sqlite3_value_double(argv[0]) >= 0 ? " " + t : t);
}

void isNull(sqlite3_context *ctx, int, sqlite3_value **argv) {
  sqlite3_result_int(ctx, sqlite3_value_type(argv[0]) == SQLITE_NULL ? -1 : 0);
}

void space(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
  if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
  int n = sqlite3_value_int(argv[0]);
  if (n < 0) return sqlite3_result_error(ctx, "Invalid procedure call.", -1);
  resultText(ctx, std::string(static_cast<size_t>(n), ' '));
}

// String(n, c): n times the first character of c (or the character of code c).
void stringFn(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
  if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
  int n = sqlite3_value_int(argv[0]);
  if (n < 0) return sqlite3_result_error(ctx, "Invalid procedure call.", -1);
  std::string c;
  if (sqlite3_value_numeric_type(argv[1]) == SQLITE_INTEGER && sqlite3_value_type(argv[1]) != SQLITE_TEXT) {
    c = std::string(1, static_cast<char>(sqlite3_value_int(argv[1]) & 0x7f));
  } else {
    std::string s = textOf(argv[1]);
    size_t len = 1;
    while (len < s.size() && (static_cast<unsigned char>(s[len]) & 0xC0) == 0x80) ++len;
    c = s.substr(0, len);
  }
  std::string out;
  for (int i = 0; i < n; ++i) out += c;
  resultText(ctx, out);
}

void sgn(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
  if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
  double d = sqlite3_value_double(argv[0]);
  sqlite3_result_int(ctx, d > 0 ? 1 : d < 0 ? -1 : 0);
}

// a \\ b: both rounded to whole numbers (halves to even), then divided
// with the remainder dropped.
void intDiv(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
  if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
  int64_t a = static_cast<int64_t>(std::nearbyint(sqlite3_value_double(argv[0])));
  int64_t b = static_cast<int64_t>(std::nearbyint(sqlite3_value_double(argv[1])));
  if (b == 0) return sqlite3_result_error(ctx, "Division by zero.", -1);
  sqlite3_result_int64(ctx, a / b);
}

void sqr(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
  if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
  double d = sqlite3_value_double(argv[0]);
  if (d < 0) return sqlite3_result_error(ctx, "Invalid procedure call.", -1);
  sqlite3_result_double(ctx, std::sqrt(d));
}

}  // namespace

void registerAccessDateFunctions(sqlite3 *db) {
  struct Fn {
    const char *name;
    int args;
    void (*fn)(sqlite3_context *, int, sqlite3_value **);
    intptr_t data;
    bool deterministic;
  } fns[] = {
      {"year", 1, datePartOf, 0, true},    {"month", 1, datePartOf, 1, true},  {"day", 1, datePartOf, 2, true},
      {"hour", 1, datePartOf, 3, true},    {"minute", 1, datePartOf, 4, true}, {"second", 1, datePartOf, 5, true},
      {"vt_date", 0, dateToday, 0, false}, {"dateserial", 3, dateSerial, 0, true},
      {"dateadd", 3, dateAdd, 0, true},    {"datediff", 3, dateDiff, 0, true}, {"datepart", 2, datePart, 0, true},
      {"cdate", 1, cdate, 0, true},        {"cint", 1, cint, 0, true},         {"clng", 1, cint, 1, true},
      {"csng", 1, cdbl, 1, true},          {"cdbl", 1, cdbl, 0, true},         {"cstr", 1, cstr, 0, true},
      {"cbool", 1, cbool, 0, true},        {"int", 1, intFix, 0, true},        {"fix", 1, intFix, 1, true},
      {"str", 1, str, 0, true},            {"vt_isnull", 1, isNull, 0, true},     {"space", 1, space, 0, true},
      {"string", 2, stringFn, 0, true},    {"sgn", 1, sgn, 0, true},           {"sqr", 1, sqr, 0, true},
      {"vt_intdiv", 2, intDiv, 0, true},
  };
  for (const Fn &f : fns)
    sqlite3_create_function_v2(db, f.name, f.args, SQLITE_UTF8 | (f.deterministic ? SQLITE_DETERMINISTIC : 0),
                               reinterpret_cast<void *>(f.data), f.fn, nullptr, nullptr, nullptr);
}

}  // namespace vantry::engine::sqlite
