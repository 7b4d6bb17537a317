// Values between the engine's interface and SQLite's storage classes.
//
// Field kinds come from the declared type: BIT, YESNO, BOOLEAN, LOGICAL (or a
// type containing BOOL) are yes/no fields, stored as -1 and 0 as Access
// stores them, and read as booleans (any non-zero number is true, so files
// written by others with 1 read the same). A boolean into any other field is
// -1 or 0 too; a type containing DATE or TIME is a
// date/time field, stored as text "YYYY-MM-DD HH:MM:SS" so that it sorts and
// compares as text. Integers leave the engine as 32-bit integers when they
// fit and as reals otherwise. Blobs have no engine value and read as null.
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "sqlite_internal.h"

namespace vantry::engine::sqlite {

// Columns are read through their sqlite3_value: one call into the library
// per column (each sqlite3_column_* call takes the connection's mutex and
// checks for a failed allocation), the rest reads the value in place.
RawValue RawValue::column(sqlite3_stmt *st, int col) {
  RawValue v;
  sqlite3_value *val = sqlite3_column_value(st, col);
  v.type = sqlite3_value_type(val);
  switch (v.type) {
    case SQLITE_INTEGER:
      v.i = sqlite3_value_int64(val);
      break;
    case SQLITE_FLOAT:
      v.d = sqlite3_value_double(val);
      break;
    case SQLITE_TEXT:
    case SQLITE_BLOB: {
      const void *p = v.type == SQLITE_TEXT ? static_cast<const void *>(sqlite3_value_text(val))
                                            : sqlite3_value_blob(val);
      int n = sqlite3_value_bytes(val);
      if (p) v.s.assign(static_cast<const char *>(p), static_cast<size_t>(n));
      break;
    }
    default:
      break;
  }
  return v;
}

Stmt &Stmt::operator=(Stmt &&o) noexcept {
  if (this != &o) {
    sqlite3_finalize(st_);
    st_ = o.st_;
    o.st_ = nullptr;
  }
  return *this;
}

void Stmt::bind(int pos, const RawValue &v) {
  switch (v.type) {
    case SQLITE_INTEGER:
      sqlite3_bind_int64(st_, pos, v.i);
      break;
    case SQLITE_FLOAT:
      sqlite3_bind_double(st_, pos, v.d);
      break;
    case SQLITE_TEXT:
      sqlite3_bind_text(st_, pos, v.s.data(), static_cast<int>(v.s.size()), SQLITE_TRANSIENT);
      break;
    case SQLITE_BLOB:
      sqlite3_bind_blob(st_, pos, v.s.data(), static_cast<int>(v.s.size()), SQLITE_TRANSIENT);
      break;
    default:
      sqlite3_bind_null(st_, pos);
  }
}

std::string asciiLower(std::string s) {
  for (char &c : s)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return s;
}

namespace {
// Access's yes and no.
constexpr int64_t kStoredTrue = -1;
constexpr int64_t kStoredFalse = 0;

int64_t storedBoolean(bool b) {
  return b ? kStoredTrue : kStoredFalse;
}

bool contains(const std::string &hay, const char *needle) {
  return hay.find(needle) != std::string::npos;
}

std::string asciiUpper(std::string s) {
  for (char &c : s)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return s;
}

// A text that SQLite's numeric affinity would turn into a number.
bool looksNumeric(const std::string &s) {
  const char *b = s.c_str();
  while (*b == ' ') ++b;
  if (!*b) return false;
  char *end = nullptr;
  std::strtod(b, &end);
  while (*end == ' ') ++end;
  return end != b && *end == '\0';
}

bool parseYesNoText(const std::string &text, bool *out) {
  std::string u = asciiUpper(text);
  if (u == "TRUE" || u == "YES" || u == "ON") return *out = true, true;
  if (u == "FALSE" || u == "NO" || u == "OFF") return *out = false, true;
  if (looksNumeric(text)) return *out = std::strtod(text.c_str(), nullptr) != 0, true;
  return false;
}
}  // namespace

// The leading word of an upper-cased declared type: "DECIMAL" of "DECIMAL(10,2)".
std::string typeWord(const std::string &upper) {
  size_t end = 0;
  while (end < upper.size() && std::isalpha(static_cast<unsigned char>(upper[end]))) ++end;
  return upper.substr(0, end);
}

FieldKind fieldKindOf(const std::string &declType) {
  std::string u = asciiUpper(declType);
  if (u == "BIT" || u == "YESNO" || u == "LOGICAL" || contains(u, "BOOL")) return FieldKind::kYesNo;
  if (contains(u, "DATE") || contains(u, "TIME")) return FieldKind::kDate;
  std::string word = typeWord(u);
  for (const char *real : {"SINGLE", "DOUBLE", "CURRENCY", "DECIMAL", "NUMERIC", "MONEY", "FLOAT", "REAL"})
    if (word == real) return FieldKind::kReal;
  return FieldKind::kPlain;
}

Affinity affinityOf(const std::string &declType) {
  std::string u = asciiUpper(declType);
  if (contains(u, "INT")) return Affinity::kInteger;
  if (contains(u, "CHAR") || contains(u, "CLOB") || contains(u, "TEXT")) return Affinity::kText;
  if (u.empty() || contains(u, "BLOB")) return Affinity::kBlob;
  if (contains(u, "REAL") || contains(u, "FLOA") || contains(u, "DOUB")) return Affinity::kReal;
  return Affinity::kNumeric;
}

Value fromRaw(RawValue raw, FieldKind kind) {
  if (kind == FieldKind::kYesNo) {
    bool b = false;
    switch (raw.type) {
      case SQLITE_INTEGER:
        return Value::boolean(raw.i != 0);
      case SQLITE_FLOAT:
        return Value::boolean(raw.d != 0);
      case SQLITE_TEXT:
        if (parseYesNoText(raw.s, &b)) return Value::boolean(b);
        return Value::text(raw.s);
      default:
        return Value::null();
    }
  }
  switch (raw.type) {
    case SQLITE_INTEGER:
      if (kind == FieldKind::kReal) return Value::real(static_cast<double>(raw.i));
      if (raw.i >= INT32_MIN && raw.i <= INT32_MAX) return Value::integer(static_cast<int32_t>(raw.i));
      return Value::real(static_cast<double>(raw.i));
    case SQLITE_FLOAT:
      return Value::real(raw.d);
    case SQLITE_TEXT:
      // normalizeDate reads all of its input before it writes, and writes nothing when it fails.
      if (kind == FieldKind::kDate && normalizeDate(raw.s, &raw.s)) return Value::date(std::move(raw.s));
      return Value::text(std::move(raw.s));
    default:
      return Value::null();
  }
}

Value columnValue(sqlite3_stmt *st, int col, FieldKind kind) {
  sqlite3_value *val = sqlite3_column_value(st, col);
  switch (sqlite3_value_type(val)) {
    case SQLITE_INTEGER: {
      int64_t i = sqlite3_value_int64(val);
      if (kind == FieldKind::kYesNo) return Value::boolean(i != 0);
      if (kind != FieldKind::kReal && i >= INT32_MIN && i <= INT32_MAX) return Value::integer(static_cast<int32_t>(i));
      return Value::real(static_cast<double>(i));
    }
    case SQLITE_FLOAT: {
      double d = sqlite3_value_double(val);
      return kind == FieldKind::kYesNo ? Value::boolean(d != 0) : Value::real(d);
    }
    case SQLITE_TEXT: {
      // As fromRaw reads a text, from the value in hand: no second look-up
      // of the column and no intermediate copy.
      const auto *p = reinterpret_cast<const char *>(sqlite3_value_text(val));
      std::string s;
      if (p) s.assign(p, static_cast<size_t>(sqlite3_value_bytes(val)));
      if (kind == FieldKind::kYesNo) {
        bool b = false;
        if (parseYesNoText(s, &b)) return Value::boolean(b);
        return Value::text(std::move(s));
      }
      if (kind == FieldKind::kDate && normalizeDate(s, &s)) return Value::date(std::move(s));
      return Value::text(std::move(s));
    }
    default:  // null, and blobs, which cross as null
      return Value::null();
  }
}

RawValue toRawPlain(const Value &v) {
  RawValue r;
  switch (v.type()) {
    case ValueType::kInteger:
      r.type = SQLITE_INTEGER;
      r.i = v.asInteger();
      break;
    case ValueType::kBoolean:
      r.type = SQLITE_INTEGER;
      r.i = storedBoolean(v.asBoolean());
      break;
    case ValueType::kReal:
      r.type = SQLITE_FLOAT;
      r.d = v.asReal();
      break;
    case ValueType::kText:
    case ValueType::kDate:
      r.type = SQLITE_TEXT;
      r.s = v.asText();
      break;
    default:
      break;
  }
  return r;
}

namespace {

// A field that holds whole numbers: SQLite's integer affinity, or one of
// Access's integer types, whose names SQLite reads as numeric.
bool holdsWholeNumbers(const ColumnInfo &col) {
  if (col.affinity == Affinity::kInteger) return true;
  std::string u = asciiUpper(col.declType);
  std::string word = typeWord(u);
  return word == "BYTE" || word == "SHORT" || word == "LONG" || word == "COUNTER" || word == "AUTOINCREMENT";
}

// A number for a DECIMAL(p,s) field, rounded to its s places as Access
// stores it; false when its whole part needs more than p-s digits.
bool fitDecimal(RawValue *out, int precision, int scale) {
  double limit = std::pow(10.0, precision - scale);
  if (out->type == SQLITE_INTEGER) return std::fabs(double(out->i)) < limit;
  if (out->type != SQLITE_FLOAT && out->type != SQLITE_TEXT) return true;
  double d = out->type == SQLITE_FLOAT ? out->d : std::strtod(out->s.c_str(), nullptr);
  if (!std::isfinite(d)) return false;
  double rounded = roundDecimal(d, scale);
  if (std::fabs(rounded) >= limit) return false;
  *out = RawValue{SQLITE_FLOAT, 0, rounded, {}};
  return true;
}

}  // namespace

double roundDecimal(double d, int places) {
  char buf[400];
  std::snprintf(buf, sizeof buf, "%.*f", places, d);
  return std::strtod(buf, nullptr);
}

void registerDecimalRounding(sqlite3 *db) {
  auto round = [](sqlite3_context *ctx, int, sqlite3_value **argv) {
    if (sqlite3_value_type(argv[0]) == SQLITE_NULL) return sqlite3_result_null(ctx);
    double d = sqlite3_value_double(argv[0]);
    int places = sqlite3_value_int(argv[1]);
    if (!std::isfinite(d) || places < 0 || places > 28) return sqlite3_result_double(ctx, d);
    sqlite3_result_double(ctx, roundDecimal(d, places));
  };
  sqlite3_create_function_v2(db, kDecimalRound, 2, SQLITE_UTF8 | SQLITE_DETERMINISTIC, nullptr, round, nullptr,
                             nullptr, nullptr);
}

bool decimalShape(const std::string &declType, int *precision, int *scale) {
  std::string u = asciiUpper(declType);
  std::string word = typeWord(u);
  if (word != "DECIMAL" && word != "NUMERIC" && word != "DEC") return false;
  return std::sscanf(u.c_str() + word.size(), " (%d , %d )", precision, scale) == 2 && *precision >= 1 &&
         *precision <= 28 && *scale >= 0 && *scale <= *precision;
}

bool toRaw(const Value &v, const ColumnInfo &col, RawValue *out, std::string *error) {
  *out = toRawPlain(v);
  auto refuse = [&] {
    *error = "Data type conversion error: " + v.debugString() + " does not fit field '" + col.name + "'.";
    return false;
  };
  switch (col.kind) {
    case FieldKind::kYesNo:
      if (v.type() == ValueType::kText) {
        bool b = false;
        if (!parseYesNoText(v.asText(), &b)) return refuse();
        *out = RawValue{SQLITE_INTEGER, storedBoolean(b), 0, {}};
      } else if (v.type() == ValueType::kInteger || v.type() == ValueType::kReal) {
        bool b = v.type() == ValueType::kInteger ? v.asInteger() != 0 : v.asReal() != 0;
        *out = RawValue{SQLITE_INTEGER, storedBoolean(b), 0, {}};
      } else if (v.type() == ValueType::kDate) {
        return refuse();
      }
      return true;
    case FieldKind::kDate:
      if (v.type() == ValueType::kText || v.type() == ValueType::kDate) {
        if (!normalizeDate(v.asText(), &out->s)) return refuse();
      } else if (!v.isEmptyOrNull()) {
        return refuse();
      }
      return true;
    case FieldKind::kPlain:
    case FieldKind::kReal:
      break;
  }
  bool numeric = col.affinity == Affinity::kInteger || col.affinity == Affinity::kReal ||
                 col.affinity == Affinity::kNumeric;
  if (numeric && out->type == SQLITE_TEXT && !looksNumeric(out->s)) return refuse();
  if (col.decimal < 0) {
    int precision = 0, scale = 0;
    col.decimal = decimalShape(col.declType, &precision, &scale) ? 1 : 0;
    col.decimalPrecision = static_cast<int8_t>(precision);
    col.decimalScale = static_cast<int8_t>(scale);
  }
  if (col.decimal) return fitDecimal(out, col.decimalPrecision, col.decimalScale) || refuse();
  if (col.wholeNumbers < 0) col.wholeNumbers = holdsWholeNumbers(col) ? 1 : 0;
  if (!col.wholeNumbers) return true;
  // An integer field takes a whole number only: a fraction (given as a real or
  // as text) is refused rather than stored as it stands or cut off.
  double d = out->type == SQLITE_FLOAT ? out->d : out->type == SQLITE_TEXT ? std::strtod(out->s.c_str(), nullptr) : 0;
  if (out->type == SQLITE_TEXT && d != std::floor(d)) return refuse();
  if (out->type != SQLITE_FLOAT) return true;
  if (!std::isfinite(d) || d != std::floor(d) || std::fabs(d) >= 9.2e18) return refuse();
  out->type = SQLITE_INTEGER;  // a whole real into an integer field stays exact
  out->i = static_cast<int64_t>(d);
  return true;
}

std::string quoteIdent(const std::string &name) {
  std::string q = "\"";
  for (char c : name) {
    if (c == '"') q += '"';
    q += c;
  }
  return q + "\"";
}

std::string sqlString(const std::string &text) {
  std::string out = "'";
  for (char c : text) out += c == '\'' ? std::string("''") : std::string(1, c);
  return out + "'";
}

std::string normalizePath(std::string path) {
  for (char &c : path)
    if (c == '\\') c = '/';
  return path;
}

}  // namespace vantry::engine::sqlite
