// The PostgreSQL engine's connection, errors and values: the server's
// SQLSTATEs as the Access-style numbers the module knows, a lost server as
// a dead engine (the module's per-call check reopens it), and the server's
// types as the interface's values.
#include "pg_text.h"
#include "pg_engine.h"
#include "pg_schema.h"

#include <cstring>
#include <fstream>

namespace vantry::engine::pg {

namespace {

std::string firstLine(const std::string &path) {
  std::ifstream in(path);
  std::string line;
  while (in && std::getline(in, line)) {
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ' || line.back() == '\t')) line.pop_back();
    size_t s = line.find_first_not_of(" \t");
    if (s != std::string::npos && line[s] != '#') return line.substr(s);
  }
  return "";
}

bool isUrl(const std::string &s) {
  return startsWith(s, "postgresql://") || startsWith(s, "postgres://");
}

// Takes "schema=..." out of the URL's query (libpq does not know it) and
// gives the connection a time limit unless the URL sets one.
std::string libpqUrl(const std::string &url, std::string *schema) {
  size_t q = url.find('?');
  std::string base = url.substr(0, q);
  std::string kept;
  bool timeout = false;
  if (q != std::string::npos) {
    std::string query = url.substr(q + 1);
    size_t start = 0;
    while (start <= query.size()) {
      size_t end = query.find('&', start);
      if (end == std::string::npos) end = query.size();
      std::string part = query.substr(start, end - start);
      if (startsWith(part, "schema=")) {
        *schema = part.substr(7);
      } else if (!part.empty()) {
        if (startsWith(part, "connect_timeout=")) timeout = true;
        kept += (kept.empty() ? "" : "&") + part;
      }
      start = end + 1;
    }
  }
  if (!timeout) kept += std::string(kept.empty() ? "" : "&") + "connect_timeout=5";
  return base + "?" + kept;
}

int64_t nowNanos() {
  return env().monotonicNanos();
}

// The parameters as libpq takes them: a text each, null for a null.
std::vector<const char *> paramValues(const std::vector<std::optional<std::string>> &params) {
  std::vector<const char *> values;
  values.reserve(params.size());
  for (const auto &p : params) values.push_back(p ? p->c_str() : nullptr);
  return values;
}

}  // namespace

bool serverUrlOf(const std::string &path, std::string *url) {
  if (isUrl(path)) {
    *url = path;
    return true;
  }
  std::string p = path;
  for (char &ch : p)
    if (ch == '\\') ch = '/';
  auto endsWith = [&](const char *suffix) {
    size_t n = std::strlen(suffix);
    if (p.size() < n) return false;
    for (size_t i = 0; i < n; ++i)
      if (std::tolower(static_cast<unsigned char>(p[p.size() - n + i])) != suffix[i]) return false;
    return true;
  };
  std::string file;
  if (endsWith(".pgconnect")) {
    file = p;
  } else {
    size_t slash = p.rfind('/');
    size_t dot = p.rfind('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return false;
    file = p.substr(0, dot) + ".pgconnect";
    std::ifstream probe(file);
    if (!probe) return false;
  }
  std::string line = firstLine(file);
  if (!isUrl(line)) return false;
  *url = line;
  return true;
}

PgEngine::PgEngine() = default;

PgEngine::~PgEngine() {
  Close();
}

bool PgEngine::fail(long number, const std::string &description) {
  lastState_.clear();
  error_.number = number;
  error_.description = description;
  return false;
}

bool PgEngine::failFrom(const PGresult *r) {
  if (!conn_ || PQstatus(conn_) == CONNECTION_BAD) {
    std::string msg = conn_ ? PQerrorMessage(conn_) : "";
    while (!msg.empty() && msg.back() == '\n') msg.pop_back();
    return fail(errc::kDiskOrNetwork, "Disk or network error: the connection to the database server was lost" +
                                          (msg.empty() ? std::string(".") : " (" + msg + ")."));
  }
  const char *state = r ? PQresultErrorField(r, PG_DIAG_SQLSTATE) : nullptr;
  std::string code = state ? state : "";
  std::string msg = r ? PQresultErrorField(r, PG_DIAG_MESSAGE_PRIMARY) ? PQresultErrorField(r, PG_DIAG_MESSAGE_PRIMARY)
                                                                        : ""
                      : PQerrorMessage(conn_);
  const char *tableField = r ? PQresultErrorField(r, PG_DIAG_TABLE_NAME) : nullptr;
  const char *columnField = r ? PQresultErrorField(r, PG_DIAG_COLUMN_NAME) : nullptr;
  struct KeepState {  // fail() clears it; the refusal's own state is kept
    std::string &state, code;
    ~KeepState() { state = code; }
  } keep{lastState_, code};
  if (code == "23505")
    return fail(errc::kDuplicateKey,
                "The changes you requested to the table were not successful because they would "
                "create duplicate values in the index, primary key, or relationship (" +
                    msg + ").");
  if (code == "23502")
    return fail(errc::kRequired, "The field '" + std::string(columnField ? columnField : "?") +
                                     "' cannot contain a Null value because it is required.");
  if (code == "23514")
    return fail(errc::kValidationRule, "One or more values are prohibited by the validation rule (" + msg + ").");
  if (code == "23503")
    return fail(errc::kRelatedRecord, "You cannot add or change a record because a related record is required.");
  if (code == "42P01")
    return fail(errc::kNoSuchTable, "The database engine cannot find the input table or query (" + msg +
                                        "). Make sure it exists and that its name is spelled correctly.");
  if (code == "42P07") return fail(errc::kObjectExists, "Table or query already exists (" + msg + ").");
  if (code == "42703") return fail(errc::kTooFewParameters, "Too few parameters: unknown name (" + msg + ").");
  if (code == "42883") return fail(errc::kUndefinedFunction, "Undefined function in expression (" + msg + ").");
  if (code == "55P03" || code == "40001" || code == "40P01")
    return fail(errc::kLocked, "Could not update; currently locked by another user (" + msg + ").");
  if (code == "25006") return fail(errc::kReadOnly, "The database is open read-only (" + msg + ").");
  if (code == "57014") return fail(errc::kCancelled, "The operation was cancelled.");
  if (code == "42501")
    return fail(errc::kCannotOpen, "The server does not let this user make that change (" + msg + ").");
  if (startsWith(code, "22")) return fail(errc::kConversion, "Data type conversion error (" + msg + ").");
  if (startsWith(code, "42")) return fail(errc::kSyntaxExpression, "Syntax error in query expression (" + msg + ").");
  if (startsWith(code, "08") || startsWith(code, "57P"))
    return fail(errc::kDiskOrNetwork, "Disk or network error: the database server went away (" + msg + ").");
  (void)tableField;
  return fail(errc::kGeneric, msg.empty() ? "The database server refused the operation." : msg);
}

bool PgEngine::needDatabase() {
  if (conn_) return true;
  return fail(errc::kNoDatabase, "Object invalid or no longer set: no database is open.");
}

bool PgEngine::needCursor() {
  if (!needDatabase()) return false;
  if (!current_) return fail(errc::kNoCurrentRecord, "No current record: no table is open.");
  return true;
}

bool PgEngine::needWritable() {
  if (!needCursor()) return false;
  if (readOnly_) return fail(errc::kReadOnly, "Cannot update. Database or object is read-only.");
  return true;
}

bool PgEngine::canSend() {
  drain();
  if (conn_) return true;
  fail(errc::kNoDatabase, "Object invalid or no longer set: no database is open.");
  return false;
}

bool PgEngine::answered(const Result &r) {
  ExecStatusType st = r ? PQresultStatus(r.get()) : PGRES_FATAL_ERROR;
  if (st != PGRES_COMMAND_OK && st != PGRES_TUPLES_OK) return false;
  lastContact_ = nowNanos();
  return true;
}

Result PgEngine::exec(const std::string &sql, const std::vector<std::optional<std::string>> &params) {
  if (!canSend()) return nullptr;
  std::vector<const char *> values = paramValues(params);
  Result r(PQexecParams(conn_, sql.c_str(), static_cast<int>(values.size()), nullptr, values.data(), nullptr,
                        nullptr, 0));
  if (answered(r)) return r;
  failFrom(r.get());
  return nullptr;
}

bool PgEngine::askAhead(const std::string &sql, const std::vector<std::optional<std::string>> &params,
                        const Ahead &what) {
  drain();
  auto it = prepared_.find(sql);
  if (!conn_ || it == prepared_.end()) return false;
  std::vector<const char *> values = paramValues(params);
  if (!PQsendQueryPrepared(conn_, it->second.c_str(), static_cast<int>(values.size()), values.data(), nullptr, nullptr,
                           0))
    return false;
  ahead_ = what;
  ahead_.active = true;
  return true;
}

Result PgEngine::takeAhead(uint64_t cursor, size_t from, size_t to, int64_t *asked) {
  if (!ahead_.active || ahead_.cursor != cursor || ahead_.from != from || ahead_.to != to) {
    drain();
    return nullptr;
  }
  *asked = ahead_.asked;
  Result r(PQgetResult(conn_));
  drain();  // the end of the answer
  if (!r || PQresultStatus(r.get()) != PGRES_TUPLES_OK) return nullptr;  // read again, and fail, in order
  lastContact_ = nowNanos();
  return r;
}

void PgEngine::drain() {
  if (!ahead_.active) return;
  ahead_.active = false;
  if (!conn_) return;
  while (PGresult *r = PQgetResult(conn_)) PQclear(r);
}

Result PgEngine::run(const std::string &sql, const std::vector<std::optional<std::string>> &params) {
  if (!canSend()) return nullptr;
  std::vector<const char *> values = paramValues(params);
  const int n = static_cast<int>(values.size());
  for (int attempt = 0;; ++attempt) {
    auto it = prepared_.find(sql);
    if (it == prepared_.end()) {
      if (prepared_.size() >= 256) {  // many tables and field lists: start again
        Result d(PQexec(conn_, "DEALLOCATE ALL"));
        prepared_.clear();
      }
      std::string name = "vt_s" + std::to_string(++preparedSerial_);
      Result p(PQprepare(conn_, name.c_str(), sql.c_str(), n, nullptr));
      if (!p || PQresultStatus(p.get()) != PGRES_COMMAND_OK) {
        failFrom(p.get());
        return nullptr;
      }
      it = prepared_.emplace(sql, std::move(name)).first;
    }
    Result r(PQexecPrepared(conn_, it->second.c_str(), n, values.data(), nullptr, nullptr, 0));
    if (answered(r)) return r;
    // A table changed under the statement (its columns' types) or a
    // statement the server no longer knows: prepared again, once, when no
    // work is open (a failure inside work has ended that work).
    const char *state = r ? PQresultErrorField(r.get(), PG_DIAG_SQLSTATE) : nullptr;
    bool again = state && (std::strcmp(state, "0A000") == 0 || std::strcmp(state, "26000") == 0);
    if (again) prepared_.erase(it);
    if (!again || attempt > 0 || PQtransactionStatus(conn_) != PQTRANS_IDLE) {
      failFrom(r.get());
      return nullptr;
    }
  }
}

std::string PgEngine::Open(const std::string &url, int32_t, bool readOnly) {
  Close();
  clearError();
  std::string schema = "public";
  std::string target = libpqUrl(url, &schema);
  PGconn *c = PQconnectdb(target.c_str());
  if (!c || PQstatus(c) != CONNECTION_OK) {
    std::string msg = c ? PQerrorMessage(c) : "out of memory";
    while (!msg.empty() && msg.back() == '\n') msg.pop_back();
    PQfinish(c);
    if (msg.find("does not exist") != std::string::npos)
      fail(errc::kCouldNotFindFile, "Could not find the database on the server (" + msg + ").");
    else if (msg.find("authentication") != std::string::npos || msg.find("password") != std::string::npos)
      fail(errc::kCannotOpen, "Could not open the database: the server refused the user (" + msg + ").");
    else
      fail(errc::kDiskOrNetwork, "Disk or network error: could not reach the database server (" + msg + ").");
    return "";
  }
  conn_ = c;
  PQsetNoticeProcessor(conn_, [](void *, const char *) {}, nullptr);
  schema_ = schema;
  // Names resolve in the chosen schema; a lock held by another user's open
  // transaction is waited for a moment, then refused as the lock error.
  std::string setup = "SET search_path TO " + quoteIdent(schema_) +
                      "; SET lock_timeout = '2s'; SET DateStyle = 'ISO, MDY'; SET client_encoding = 'UTF8'";
  if (readOnly) setup += "; SET default_transaction_read_only = on";
  Result r(PQexec(conn_, setup.c_str()));
  if (!r || PQresultStatus(r.get()) != PGRES_COMMAND_OK) {
    failFrom(r.get());
    LastError keep = error_;
    Close();
    error_ = keep;
    return "";
  }
  Result s = exec("SELECT 1 FROM pg_namespace WHERE nspname = $1", {schema_});
  if (!s || PQntuples(s.get()) == 0) {
    if (s) fail(errc::kCouldNotFindFile, "Could not find the schema '" + schema_ + "' on the server.");
    LastError keep = error_;
    Close();
    error_ = keep;
    return "";
  }
  prepareSession();  // without it the dialect's functions are missing, not the tables
  name_ = url;
  url_ = url;
  readOnly_ = readOnly;
  lastContact_ = nowNanos();
  return "OK";
}

bool PgEngine::IsAlive() {
  if (!conn_) return false;
  if (PQstatus(conn_) == CONNECTION_BAD) return false;
  // A dropped connection shows only when it is used: after a quiet moment
  // the server is asked (an empty statement, one round trip).
  if (nowNanos() - lastContact_ < 500'000'000) return true;
  drain();
  Result r(PQexec(conn_, ""));
  if (!r || PQstatus(conn_) == CONNECTION_BAD) return false;
  lastContact_ = nowNanos();
  return true;
}

void PgEngine::Close() {
  work_.clear();  // the server undoes a transaction left open when its connection ends
  namesChanged();  // the next database may be another schema
  cursors_.clear();
  current_ = nullptr;
  drain();
  prepared_.clear();  // statements belong to their connection
  if (conn_) PQfinish(conn_);
  conn_ = nullptr;
  name_.clear();
  url_.clear();
}

bool PgEngine::BeginWork() {
  if (!needDatabase()) return false;
  bool savepoint = !work_.empty();
  if (!exec(savepoint ? "SAVEPOINT vt_work_" + std::to_string(work_.size()) : std::string("BEGIN"))) return false;
  work_.push_back(savepoint);
  return true;
}

bool PgEngine::EndWork(bool commit) {
  if (work_.empty() || !conn_) {
    work_.clear();
    if (!commit) return false;
    return fail(errc::kDiskOrNetwork, "Disk or network error: the connection to the database server was lost "
                                      "before the work was committed.");
  }
  bool savepoint = work_.back();
  work_.pop_back();
  std::string name = "vt_work_" + std::to_string(work_.size());
  // The error that made the work fail is the one to report, not the undo's.
  LastError kept = error_;
  drain();
  if (!commit) {
    Result r(PQexec(conn_, (savepoint ? "ROLLBACK TO SAVEPOINT " + name + "; RELEASE SAVEPOINT " + name
                                      : std::string("ROLLBACK"))
                               .c_str()));
    error_ = kept;
    return false;
  }
  Result done = exec(savepoint ? "RELEASE SAVEPOINT " + name : std::string("COMMIT"));
  // COMMIT of a transaction that a refusal aborted answers ROLLBACK.
  if (done && std::strcmp(PQcmdStatus(done.get()), "ROLLBACK") == 0)
    return error_.number != errc::kNone ? false
                                        : fail(errc::kGeneric, "The server rolled the work back: a step of it failed.");
  if (done) return true;
  if (!savepoint) return false;
  // A release that failed leaves the outer work aborted: undo this level.
  Result r(PQexec(conn_, ("ROLLBACK TO SAVEPOINT " + name).c_str()));
  return false;
}

bool PgEngine::CompactDatabase(const std::string &, const std::string &) {
  clearError();
  return fail(errc::kNotSupported, "Operation is not supported for a database on a server: it keeps itself compact.");
}

int32_t PgEngine::GetVersion() {
  if (!conn_) return 0;
  int v = PQserverVersion(conn_);  // 150018 -> 15.18
  return (v / 10000) * 100 + v % 100;
}

// --- Tables and values ---

bool PgEngine::loadTable(const std::string &name, PgTable *out) {
  Result t = exec(
      "SELECT c.oid, c.relname FROM pg_class c JOIN pg_namespace n ON n.oid = c.relnamespace "
      "WHERE n.nspname = $1 AND lower(c.relname) = lower($2) AND c.relkind IN ('r', 'p') "
      "ORDER BY c.relname = $2 DESC LIMIT 1",
      {schema_, name});
  if (!t) return false;
  if (PQntuples(t.get()) == 0)
    return fail(errc::kNoSuchTable, "The database engine cannot find the input table or query '" + name +
                                        "'. Make sure it exists and that its name is spelled correctly.");
  std::string oid = PQgetvalue(t.get(), 0, 0);
  out->name = PQgetvalue(t.get(), 0, 1);
  out->qualified = quoteIdent(schema_) + "." + quoteIdent(out->name);
  Result cols = exec(
      "SELECT a.attname, a.atttypid, format_type(a.atttypid, a.atttypmod), "
      "  a.attidentity <> '' OR coalesce(pg_get_expr(d.adbin, d.adrelid) LIKE 'nextval(%', false), "
      "  coalesce(a.attnum = ANY(i.indkey) AND i.indnkeyatts = 1, false) "
      "FROM pg_attribute a LEFT JOIN pg_attrdef d ON d.adrelid = a.attrelid AND d.adnum = a.attnum "
      "LEFT JOIN pg_index i ON i.indrelid = a.attrelid AND i.indisprimary "
      "WHERE a.attrelid = $1::oid AND a.attnum > 0 AND NOT a.attisdropped ORDER BY a.attnum",
      {oid});
  if (!cols) return false;
  out->columns.clear();
  out->keyExpr = "ctid";
  out->keyType = "tid";
  for (int i = 0; i < PQntuples(cols.get()); ++i) {
    PgColumn c;
    c.name = PQgetvalue(cols.get(), i, 0);
    c.type = static_cast<Oid>(std::strtoul(PQgetvalue(cols.get(), i, 1), nullptr, 10));
    c.typeName = PQgetvalue(cols.get(), i, 2);
    c.counter = PQgetvalue(cols.get(), i, 3)[0] == 't';
    if (PQgetvalue(cols.get(), i, 4)[0] == 't') {
      out->keyExpr = quoteIdent(c.name);
      out->keyType = c.typeName;
    }
    out->columns.push_back(std::move(c));
  }
  return true;
}

std::string PgEngine::selectList(const PgTable &t) const {
  std::string s;
  for (const auto &c : t.columns) s += quoteIdent(c.name) + ", ";
  return s + t.keyExpr + "::text, xmin::text";
}

// Type numbers of the server's built-in types (pg_type.dat).
namespace oid {
inline constexpr Oid kBool = 16, kInt8 = 20, kInt2 = 21, kInt4 = 23, kFloat4 = 700, kFloat8 = 701, kNumeric = 1700,
                     kMoney = 790, kDate = 1082, kTimestamp = 1114, kTimestampTz = 1184;
}

Value PgEngine::valueOf(const PGresult *r, int row, int col) {
  if (PQgetisnull(r, row, col)) return Value::null();
  const char *s = PQgetvalue(r, row, col);
  switch (PQftype(r, col)) {
    case oid::kBool:
      return Value::boolean(s[0] == 't');
    case oid::kInt2:
    case oid::kInt4:
      return Value::integer(static_cast<int32_t>(std::strtol(s, nullptr, 10)));
    case oid::kInt8: {
      long long v = std::strtoll(s, nullptr, 10);
      if (v >= INT32_MIN && v <= INT32_MAX) return Value::integer(static_cast<int32_t>(v));
      return Value::real(static_cast<double>(v));
    }
    case oid::kFloat4:
    case oid::kFloat8:
    case oid::kNumeric:
      return Value::real(std::strtod(s, nullptr));
    case oid::kDate:
      return Value::date(std::string(s) + " 00:00:00");
    case oid::kTimestamp:
    case oid::kTimestampTz:
      return Value::date(std::string(s, std::min<size_t>(19, std::strlen(s))));
    default:
      return Value::text(s);
  }
}

bool PgEngine::paramOf(const Value &v, const PgColumn *col, std::optional<std::string> *out) {
  Oid type = col ? col->type : 0;
  auto number = [&](double d) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.17g", d);
    return std::string(buf);
  };
  switch (v.type()) {
    case ValueType::kEmpty:
    case ValueType::kNull:
      out->reset();
      return true;
    case ValueType::kBoolean:
      // Access's yes is -1 where a number holds it.
      if (type == oid::kBool || type == 0)
        *out = v.asBoolean() ? "true" : "false";
      else
        *out = v.asBoolean() ? "-1" : "0";
      return true;
    case ValueType::kInteger:
      *out = type == oid::kBool ? (v.asInteger() ? "true" : "false") : std::to_string(v.asInteger());
      return true;
    case ValueType::kReal:
      if (type == oid::kBool) {
        *out = v.asReal() != 0 ? "true" : "false";
      } else if (type == oid::kInt2 || type == oid::kInt4 || type == oid::kInt8) {
        double d = v.asReal();
        if (d != static_cast<double>(static_cast<long long>(d))) return false;
        *out = std::to_string(static_cast<long long>(d));
      } else {
        *out = number(v.asReal());
      }
      return true;
    case ValueType::kDate:
    case ValueType::kText:
      if (type == oid::kDate || type == oid::kTimestamp || type == oid::kTimestampTz) {
        std::string iso;
        if (!normalizeDate(v.asText(), &iso)) return false;
        *out = iso;
        return true;
      }
      *out = v.asText();
      return true;
  }
  return false;
}

PgRow PgEngine::rowOf(const PgTable &t, const PGresult *r, int row) const {
  PgRow out;
  int n = static_cast<int>(t.columns.size());
  out.record.reserve(n);
  for (int i = 0; i < n; ++i) out.record.push_back(Field{t.columns[i].name, valueOf(r, row, i)});
  out.key = PQgetvalue(r, row, n);
  out.xmin = PQgetvalue(r, row, n + 1);
  return out;
}

}  // namespace vantry::engine::pg
