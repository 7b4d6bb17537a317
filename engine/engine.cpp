// Engine values, date text and the engine factory.
#include "engine/engine.h"

#include <atomic>
#include <cctype>
#include <cstdio>
#include <cstring>

#include "sqlite_internal.h"

namespace vantry::engine {

bool Value::isListMarker() const {
  return type_ == ValueType::kText &&
         (text_ == kMarkerListBegin || text_ == kMarkerListEnd || text_ == kMarkerDot);
}

bool Value::operator==(const Value &o) const {
  if (type_ != o.type_) return false;
  switch (type_) {
    case ValueType::kEmpty:
    case ValueType::kNull:
      return true;
    case ValueType::kInteger:
    case ValueType::kBoolean:
      return num_.i == o.num_.i;
    case ValueType::kReal:
      return num_.d == o.num_.d;
    case ValueType::kText:
    case ValueType::kDate:
      return text_ == o.text_;
  }
  return false;
}

std::string Value::debugString() const {
  char buf[64];
  switch (type_) {
    case ValueType::kEmpty:
      return "<empty>";
    case ValueType::kNull:
      return "<null>";
    case ValueType::kInteger:
      return std::to_string(asInteger());
    case ValueType::kReal:
      std::snprintf(buf, sizeof buf, "%.17g", num_.d);
      return std::string(buf) + "r";
    case ValueType::kText:
      return "\"" + text_ + "\"";
    case ValueType::kBoolean:
      return asBoolean() ? "<true>" : "<false>";
    case ValueType::kDate:
      return "#" + text_ + "#";
  }
  return "?";
}

namespace {

// Reads an unsigned decimal of 1..maxDigits digits at *p.
bool readNumber(const char *&p, int maxDigits, int *out) {
  int n = 0, digits = 0;
  while (std::isdigit(static_cast<unsigned char>(*p)) && digits < maxDigits) {
    n = n * 10 + (*p++ - '0');
    ++digits;
  }
  *out = n;
  return digits > 0;
}

bool validDate(int y, int m, int d) {
  static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (y < 100 || y > 9999 || m < 1 || m > 12 || d < 1) return false;
  bool leap = (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
  return d <= kDays[m - 1] + (m == 2 && leap ? 1 : 0);
}

// "H:MM[:SS][ AM|PM]" at p, to the end of the text.
bool readTime(const char *p, int *h, int *mi, int *s) {
  *s = 0;
  if (!readNumber(p, 2, h) || *p++ != ':' || !readNumber(p, 2, mi)) return false;
  if (*p == ':' && !readNumber(++p, 2, s)) return false;
  while (*p == ' ') ++p;
  if (*p) {
    bool pm = (std::toupper(p[0]) == 'P');
    if ((std::toupper(p[0]) != 'A' && !pm) || std::toupper(p[1]) != 'M' || p[2]) return false;
    if (*h < 1 || *h > 12) return false;
    *h = (*h % 12) + (pm ? 12 : 0);
  }
  return *h < 24 && *mi < 60 && *s < 60;
}

// Whether s is already "YYYY-MM-DD HH:MM:SS" with a valid date and time, the
// form the engine stores: every date of a walk is read in this form.
bool isNormalDate(const std::string &s) {
  static const char kShape[] = "dddd-dd-dd dd:dd:dd";
  if (s.size() != sizeof kShape - 1) return false;
  for (size_t i = 0; i < s.size(); ++i) {
    bool digit = s[i] >= '0' && s[i] <= '9';
    if (kShape[i] == 'd' ? !digit : s[i] != kShape[i]) return false;
  }
  auto num = [&](int at, int n) {
    int v = 0;
    for (int k = 0; k < n; ++k) v = v * 10 + (s[at + k] - '0');
    return v;
  };
  return validDate(num(0, 4), num(5, 2), num(8, 2)) && num(11, 2) < 24 && num(14, 2) < 60 && num(17, 2) < 60;
}

}  // namespace

void replayAnswer(const ValueArray &values, AnswerSink *sink) {
  auto isMarker = [](const Value &v) {
    return v.type() == ValueType::kText && v.asText() == kNewRecordMarker;
  };
  size_t i = 0;
  for (; i < values.size() && !isMarker(values[i]); ++i) sink->value(Value(values[i]));
  const std::string noName;
  while (i < values.size()) {
    sink->beginRow();
    size_t k = 0;
    for (++i; i < values.size() && !isMarker(values[i]); i += 2, ++k) {
      const Value &name = values[i];
      bool hasValue = i + 1 < values.size() && !isMarker(values[i + 1]);
      sink->field(k, name.type() == ValueType::kText ? name.asText() : noName,
                  hasValue ? Value(values[i + 1]) : Value());
      if (!hasValue) {
        ++i;
        break;
      }
    }
    sink->endRow();
  }
}

bool Engine::ExecuteSqlInto(const std::string &sql, AnswerSink *sink) {
  ValueArray answer;
  if (!ExecuteSql(sql, &answer)) return false;
  replayAnswer(answer, sink);
  return true;
}

bool normalizeDate(const std::string &in, std::string *out) {
  if (isNormalDate(in)) {
    if (out != &in) *out = in;
    return true;
  }
  const char *p = in.c_str();
  while (*p == ' ') ++p;
  int y = 0, m = 0, d = 0, h = 0, mi = 0, s = 0;
  const char *start = p;
  if (!readNumber(p, 4, &y)) return false;
  if (*p == '-' && p - start == 4) {  // ISO
    if (!readNumber(++p, 2, &m) || *p++ != '-' || !readNumber(p, 2, &d)) return false;
  } else if (*p == '/') {  // US month/day/year
    m = y;
    if (!readNumber(++p, 2, &d) || *p++ != '/' || !readNumber(p, 4, &y)) return false;
  } else {
    return false;
  }
  if (!validDate(y, m, d)) return false;
  if (*p == ' ' || *p == 'T') {
    while (*p == ' ' || *p == 'T') ++p;
    if (*p && !readTime(p, &h, &mi, &s)) return false;
  } else if (*p) {
    return false;
  }
  // "YYYY-MM-DD HH:MM:SS" by hand: dates are read with every record of a walk.
  char buf[19];
  auto put = [&](int at, int value, int digits) {
    for (int k = at + digits - 1; k >= at; --k, value /= 10) buf[k] = static_cast<char>('0' + value % 10);
  };
  put(0, y, 4), put(5, m, 2), put(8, d, 2), put(11, h, 2), put(14, mi, 2), put(17, s, 2);
  buf[4] = buf[7] = '-', buf[10] = ' ', buf[13] = buf[16] = ':';
  out->assign(buf, sizeof buf);
  return true;
}

EngineConnection makeRoutingEngine();

EngineConnection createEngine(int32_t *hresult) {
  if (env().creationFails()) {
    if (hresult) *hresult = hr::kClassNotRegistered;
    return nullptr;
  }
  if (hresult) *hresult = hr::kOk;
  return makeRoutingEngine();  // engine/pg/routing.cpp: SQLite, or a server when Open names one
}

namespace {
std::atomic<bool (*)()> g_interruptCheck{nullptr};
}  // namespace

void setInterruptCheck(bool (*check)()) {
  g_interruptCheck.store(check);
}

bool interruptRequested() {
  bool (*check)() = g_interruptCheck.load(std::memory_order_relaxed);
  return check && check();
}

namespace sqlite {
void watchInterrupts(sqlite3 *db) {
  sqlite3_progress_handler(db, 4096, [](void *) { return interruptRequested() ? 1 : 0; }, nullptr);
}
}  // namespace sqlite

}  // namespace vantry::engine
