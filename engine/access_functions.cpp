// The Access dialect's functions, registered on every connection the engine
// opens. Text lengths and positions count characters (UTF-8), 1-based as in
// Access; a null argument gives null, as Access's functions do (Nz aside).
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <regex>
#include <string>

#include "sqlite_internal.h"

namespace vantry::engine::sqlite {

namespace {

std::string argText(sqlite3_value *v) {
  const unsigned char *p = sqlite3_value_text(v);
  return p ? std::string(reinterpret_cast<const char *>(p), static_cast<size_t>(sqlite3_value_bytes(v)))
           : std::string();
}

bool anyNull(int argc, sqlite3_value **argv) {
  for (int i = 0; i < argc; ++i)
    if (sqlite3_value_type(argv[i]) == SQLITE_NULL) return true;
  return false;
}

void resultText(sqlite3_context *ctx, const std::string &s) {
  sqlite3_result_text(ctx, s.data(), static_cast<int>(s.size()), SQLITE_TRANSIENT);
}

// Byte offsets of each UTF-8 character start, plus the end.
std::vector<size_t> charStarts(const std::string &s) {
  std::vector<size_t> at;
  for (size_t i = 0; i < s.size(); ++i)
    if ((static_cast<unsigned char>(s[i]) & 0xC0) != 0x80) at.push_back(i);
  at.push_back(s.size());
  return at;
}

// Characters [from, from + count) of s, 0-based, clamped.
std::string chars(const std::string &s, int64_t from, int64_t count) {
  std::vector<size_t> at = charStarts(s);
  int64_t n = static_cast<int64_t>(at.size()) - 1;
  from = std::clamp<int64_t>(from, 0, n);
  int64_t to = std::clamp<int64_t>(count < 0 ? n : from + count, from, n);
  return s.substr(at[from], at[to] - at[from]);
}

void ucase(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
  if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
  std::string s = argText(argv[0]);
  for (char &c : s)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  resultText(ctx, s);
}

void lcase(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
  if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
  resultText(ctx, asciiLower(argText(argv[0])));
}

void len(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
  if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
  sqlite3_result_int64(ctx, static_cast<int64_t>(charStarts(argText(argv[0])).size()) - 1);
}

// Mid(text, start[, length])
void mid(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
  if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
  int64_t start = sqlite3_value_int64(argv[1]);
  if (start < 1 || (argc > 2 && sqlite3_value_int64(argv[2]) < 0))
    return sqlite3_result_error(ctx, "Invalid procedure call or argument (Mid).", -1);
  resultText(ctx, chars(argText(argv[0]), start - 1, argc > 2 ? sqlite3_value_int64(argv[2]) : -1));
}

void left(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
  if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
  int64_t n = sqlite3_value_int64(argv[1]);
  if (n < 0) return sqlite3_result_error(ctx, "Invalid procedure call or argument (Left).", -1);
  resultText(ctx, chars(argText(argv[0]), 0, n));
}

void right(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
  if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
  int64_t n = sqlite3_value_int64(argv[1]);
  if (n < 0) return sqlite3_result_error(ctx, "Invalid procedure call or argument (Right).", -1);
  std::string s = argText(argv[0]);
  int64_t total = static_cast<int64_t>(charStarts(s).size()) - 1;
  resultText(ctx, chars(s, std::max<int64_t>(0, total - n), n));
}

// InStr(start, text, sought): 1-based position at or after start, 0 when absent.
void instr3(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
  if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
  int64_t start = sqlite3_value_int64(argv[0]);
  if (start < 1) return sqlite3_result_error(ctx, "Invalid procedure call or argument (InStr).", -1);
  std::string s = argText(argv[1]), sought = argText(argv[2]);
  std::vector<size_t> at = charStarts(s);
  if (start > static_cast<int64_t>(at.size()) - 1) return sqlite3_result_int64(ctx, 0);
  size_t found = s.find(sought, at[start - 1]);
  if (found == std::string::npos) return sqlite3_result_int64(ctx, 0);
  sqlite3_result_int64(ctx, std::lower_bound(at.begin(), at.end(), found) - at.begin() + 1);
}

// Nz(value[, instead]): instead (or "") when value is null.
void nz(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
  if (sqlite3_value_type(argv[0]) != SQLITE_NULL) return sqlite3_result_value(ctx, argv[0]);
  if (argc > 1) return sqlite3_result_value(ctx, argv[1]);
  sqlite3_result_text(ctx, "", 0, SQLITE_STATIC);
}

// Val(text): the number at the start of the text, blanks ignored; 0 when none.
void val(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
  if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
  std::string s = argText(argv[0]), digits;
  bool dot = false, exp = false;
  for (size_t i = 0; i < s.size(); ++i) {
    char c = s[i];
    if (c == ' ' || c == '\t') continue;
    bool sign = (c == '-' || c == '+') && (digits.empty() || std::tolower(digits.back()) == 'e');
    if (std::isdigit(static_cast<unsigned char>(c)) || sign) {
      digits += c;
    } else if (c == '.' && !dot && !exp) {
      dot = true, digits += c;
    } else if ((c == 'e' || c == 'E') && !exp && !digits.empty()) {
      exp = true, digits += c;
    } else {
      break;
    }
  }
  sqlite3_result_double(ctx, std::strtod(digits.c_str(), nullptr));
}

void now(sqlite3_context *ctx, int, sqlite3_value **) {
  std::time_t t = std::time(nullptr);
  std::tm tm{};
  localtime_r(&t, &tm);
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S", &tm);
  resultText(ctx, buf);
}

void regexpFn(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
  if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
  auto *re = static_cast<std::regex *>(sqlite3_get_auxdata(ctx, 0));
  if (!re) {
    try {
      re = new std::regex(argText(argv[0]), std::regex::ECMAScript | std::regex::icase);
    } catch (const std::regex_error &) {
      return sqlite3_result_error(ctx, "Invalid pattern.", -1);
    }
    sqlite3_set_auxdata(ctx, 0, re, [](void *p) { delete static_cast<std::regex *>(p); });
    re = static_cast<std::regex *>(sqlite3_get_auxdata(ctx, 0));
    if (!re) return sqlite3_result_error_nomem(ctx);
  }
  sqlite3_result_int(ctx, std::regex_match(argText(argv[1]), *re) ? 1 : 0);
}

}  // namespace

namespace {
// Format(value, format): dates by their parts, numbers by a 0/#/,/% picture.
void format(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
  if (sqlite3_value_type(argv[0]) == SQLITE_NULL) return sqlite3_result_null(ctx);
  int type = sqlite3_value_numeric_type(argv[0]);
  bool numeric = type == SQLITE_INTEGER || type == SQLITE_FLOAT;
  std::string fmt = argc > 1 && sqlite3_value_type(argv[1]) != SQLITE_NULL ? argText(argv[1]) : "";
  resultText(ctx, formatValue(argText(argv[0]), numeric, sqlite3_value_double(argv[0]), fmt));
}
}  // namespace

void registerAccessFunctions(sqlite3 *db) {
  struct Fn {
    const char *name;
    int args;
    void (*fn)(sqlite3_context *, int, sqlite3_value **);
    bool deterministic;
  } fns[] = {
      {"ucase", 1, ucase, true},     {"lcase", 1, lcase, true},      {"len", 1, len, true},
      {"mid", 2, mid, true},         {"mid", 3, mid, true},          {"vt_left", 2, left, true},
      {"vt_right", 2, right, true},  {"instr", 3, instr3, true},     {"nz", 1, nz, true},
      {"nz", 2, nz, true},           {"val", 1, val, true},          {"now", 0, now, false},
      {"regexp", 2, regexpFn, true}, {"vt_format", 1, format, true}, {"vt_format", 2, format, true},
  };
  for (const Fn &f : fns)
    sqlite3_create_function_v2(db, f.name, f.args, SQLITE_UTF8 | (f.deterministic ? SQLITE_DETERMINISTIC : 0),
                               nullptr, f.fn, nullptr, nullptr, nullptr);
  registerAccessDateFunctions(db);
}

}  // namespace vantry::engine::sqlite
