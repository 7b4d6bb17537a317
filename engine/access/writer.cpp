// The import's child: an Access file's tables, rows, keys, indexes,
// relations and stored queries written into a new SQLite database
// (writer.h). Field types keep the Access names the engine knows (YESNO,
// SHORT, LONG, CURRENCY, DATETIME ...), so that values cross to LISP as they
// would from the Access file.
#include "writer.h"

#include <sqlite3.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <set>

#include "engine/engine.h"
#include "reader.h"

namespace vantry::engine::access {

namespace {

std::string quote(const std::string &name) {
  std::string out = "\"";
  for (char c : name) {
    if (c == '"') out += '"';
    out += c;
  }
  return out + "\"";
}

std::string lower(std::string s) {
  for (char &c : s) c = char(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

std::string trim(const std::string &s) {
  size_t b = s.find_first_not_of(" \t\r\n"), e = s.find_last_not_of(" \t\r\n");
  return b == std::string::npos ? std::string() : s.substr(b, e - b + 1);
}

// An Access default value as a SQLite one; empty when it has none.
std::string defaultSql(const std::string &expression) {
  std::string e = trim(expression);
  if (!e.empty() && e[0] == '=') e = trim(e.substr(1));
  if (e.empty()) return std::string();
  std::string l = lower(e);
  if (l == "yes" || l == "true" || l == "on") return "-1";
  if (l == "no" || l == "false" || l == "off") return "0";
  if (l == "now()") return "(strftime('%Y-%m-%d %H:%M:%S', 'now', 'localtime'))";
  if (l == "date()") return "(strftime('%Y-%m-%d 00:00:00', 'now', 'localtime'))";
  if (l == "null") return "NULL";
  char *end = nullptr;
  std::strtod(e.c_str(), &end);
  if (end && *end == '\0' && std::isdigit(static_cast<unsigned char>(e.back()))) return e;
  if (e.size() >= 2 && (e.front() == '"' || e.front() == '\'') && e.back() == e.front()) {
    std::string body = e.substr(1, e.size() - 2), out = "'";
    std::string doubled(2, e.front());
    for (size_t i = 0; i < body.size(); ++i) {
      if (body.compare(i, 2, doubled) == 0) ++i;
      if (body[i] == '\'') out += '\'';
      out += body[i];
    }
    return out + "'";
  }
  return std::string();
}

const char *kGuidDefault =
    "('{' || hex(randomblob(4)) || '-' || hex(randomblob(2)) || '-' || hex(randomblob(2)) || '-' || "
    "hex(randomblob(2)) || '-' || hex(randomblob(6)) || '}')";

std::string sqlType(const Column &c, Jet jet) {
  const ColumnLayout &l = c.layout;
  switch (l.type) {
    case coltype::kBool: return "YESNO";
    case coltype::kByte: return "BYTE";
    case coltype::kInt: return "SHORT";
    case coltype::kLong: return "LONG";
    case coltype::kComplex: return "LONG";
    case coltype::kMoney: return "CURRENCY";
    case coltype::kFloat: return "SINGLE";
    case coltype::kDouble: return "DOUBLE";
    case coltype::kDateTime:
    case coltype::kExtDateTime: return "DATETIME";
    case coltype::kBinary: return "BINARY(" + std::to_string(l.size) + ")";
    case coltype::kText: return "TEXT(" + std::to_string(jet == Jet::k3 ? l.size : l.size / 2) + ")";
    case coltype::kMemo: return "LONGTEXT";
    case coltype::kGuid: return "GUID";
    case coltype::kNumeric:
      return "DECIMAL(" + std::to_string(l.precision) + "," + std::to_string(l.scale) + ")";
    case coltype::kBigInt: return "BIGINT";
    default: return "LONGBINARY";
  }
}

class Db {
 public:
  ~Db() {
    if (db) sqlite3_close_v2(db);
  }
  bool exec(const std::string &sql, std::string *error) {
    char *msg = nullptr;
    if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &msg) == SQLITE_OK) return true;
    *error = (msg ? msg : "unknown error") + std::string(" in: ") + sql;
    sqlite3_free(msg);
    return false;
  }
  sqlite3 *db = nullptr;
};

void bind(sqlite3_stmt *st, int i, const Value &v) {
  switch (v.kind) {
    case Value::kNull: sqlite3_bind_null(st, i); break;
    case Value::kInteger: sqlite3_bind_int64(st, i, v.integer); break;
    case Value::kReal: sqlite3_bind_double(st, i, v.real); break;
    // The nearest double to the exact amount: both operands are exact, so
    // the quotient is rounded once.
    case Value::kCurrency: sqlite3_bind_double(st, i, double(v.integer) / 10000.0); break;
    // The values live until the row is stored.
    case Value::kBlob: sqlite3_bind_blob(st, i, v.text.data(), int(v.text.size()), SQLITE_STATIC); break;
    default: sqlite3_bind_text(st, i, v.text.data(), int(v.text.size()), SQLITE_STATIC); break;
  }
}

}  // namespace

ImportReport writeDatabase(const std::string &accessPath, const std::string &sqlitePath, const WriterCallbacks &cb) {
  ImportReport report;
  auto fail = [&](long number, std::string message) {
    report.ok = false;
    report.number = number;
    report.message = std::move(message);
    return report;
  };
  auto note = [&](const std::string &text) {
    if (cb.note) cb.note(text);
  };
  Reader reader;
  std::string why;
  bool encrypted = false;
  if (!reader.open(accessPath, &why, &encrypted)) {
    if (encrypted)
      return fail(3031, "Not a valid password. The Access database '" + accessPath + "' is encrypted or "
                        "protected by a password; it cannot be read.");
    if (why.find("not an Access") != std::string::npos)
      return fail(errc::kUnrecognizedFormat, "Unrecognized database format '" + accessPath + "'.");
    return fail(errc::kCorrupt, "The Access database '" + accessPath + "' is damaged and cannot be read: " + why + ".");
  }
  const std::vector<Table> &tables = reader.tables();
  Jet jet = reader.format();
  std::string relWhy, queryWhy;
  std::vector<Relation> relations = reader.relations(&relWhy);
  std::vector<StoredQuery> queries = reader.queries(&queryWhy);
  if (!relWhy.empty()) note("relations not read: " + relWhy);
  if (!queryWhy.empty()) note("stored queries not read: " + queryWhy);

  Db out;
  if (sqlite3_open_v2(sqlitePath.c_str(), &out.db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) != SQLITE_OK)
    return fail(errc::kCannotOpen, "Cannot write '" + sqlitePath + "'.");
  std::string err;
  // The file is temporary until the import is whole: no journal is needed.
  if (!out.exec("PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF; PRAGMA foreign_keys=OFF; "
                    "PRAGMA locking_mode=EXCLUSIVE; PRAGMA page_size=16384; BEGIN", &err))
    return fail(errc::kGeneric, err);

  std::map<std::string, const Table *> byName;
  for (const Table &t : tables) byName[lower(t.name)] = &t;
  // Whether `cols` of table `t` are its primary key or a unique index: only
  // such columns can be referenced by a foreign key.
  auto keyed = [&](const Table &t, const std::vector<std::string> &cols) {
    std::set<std::string> want;
    for (const std::string &c : cols) want.insert(lower(c));
    for (const Index &x : t.indexes) {
      if (!x.unique) continue;
      std::set<std::string> have;
      for (int k : x.columns) have.insert(lower(t.columns[size_t(k)].name));
      if (have == want) return true;
    }
    return false;
  };

  size_t total = 0, done = 0;
  for (const Table &t : tables) total += t.declaredRows;
  std::set<std::string> indexNames;
  struct Later {
    std::string sql, fallback, what;
  };
  std::vector<Later> indexes;
  for (size_t ti = 0; ti < tables.size(); ++ti) {
    const Table &t = tables[ti];
    if (t.droppedIndexes)
      note("table " + t.name + ": " + std::to_string(t.droppedIndexes) +
           " index description(s) without sound columns left out");
    const Index *pk = nullptr;
    for (const Index &x : t.indexes)
      if (x.primary) pk = &x;
    int counterKey = -1;
    if (pk && pk->columns.size() == 1 && t.columns[size_t(pk->columns[0])].counter) counterKey = pk->columns[0];
    std::string create = "CREATE TABLE " + quote(t.name) + " (";
    std::vector<std::string> triggers;
    for (size_t ci = 0; ci < t.columns.size(); ++ci) {
      const Column &c = t.columns[ci];
      if (ci) create += ", ";
      create += quote(c.name) + " ";
      if (int(ci) == counterKey) {
        create += "INTEGER PRIMARY KEY AUTOINCREMENT";
        continue;
      }
      create += sqlType(c, jet);
      if (c.required) create += " NOT NULL";
      std::string def = c.guidCounter ? kGuidDefault : defaultSql(c.defaultValue);
      if (!def.empty()) {
        create += " DEFAULT " + def;
      } else if (!trim(c.defaultValue).empty()) {
        note("table " + t.name + ", field " + c.name + ": default value " + c.defaultValue + " not carried over");
      }
      if (c.counter) {
        // A counter that is not the key alone: numbered on by a trigger.
        triggers.push_back("CREATE TRIGGER " + quote(t.name + "." + c.name + ".counter") + " AFTER INSERT ON " +
                           quote(t.name) + " WHEN NEW." + quote(c.name) + " IS NULL BEGIN UPDATE " + quote(t.name) +
                           " SET " + quote(c.name) + " = (SELECT coalesce(max(" + quote(c.name) + "), 0) + 1 FROM " +
                           quote(t.name) + ") WHERE rowid = NEW.rowid; END");
      }
    }
    if (pk && counterKey < 0) {
      create += ", PRIMARY KEY (";
      for (size_t k = 0; k < pk->columns.size(); ++k)
        create += (k ? ", " : "") + quote(t.columns[size_t(pk->columns[k])].name);
      create += ")";
    }
    for (const Relation &r : relations) {
      if (lower(r.table) != lower(t.name) || !r.enforced) continue;
      auto target = byName.find(lower(r.referencedTable));
      if (target == byName.end() || !keyed(*target->second, r.referencedColumns)) {
        note("relation " + r.name + " not carried over: " + r.referencedTable +
             " has no key or unique index on the fields it names");
        continue;
      }
      create += ", CONSTRAINT " + quote(r.name) + " FOREIGN KEY (";
      for (size_t k = 0; k < r.columns.size(); ++k) create += (k ? ", " : "") + quote(r.columns[k]);
      create += ") REFERENCES " + quote(target->second->name) + " (";
      for (size_t k = 0; k < r.referencedColumns.size(); ++k)
        create += (k ? ", " : "") + quote(r.referencedColumns[k]);
      create += ")";
      if (r.cascadeUpdates) create += " ON UPDATE CASCADE";
      if (r.cascadeDeletes) create += " ON DELETE CASCADE";
      ++report.relations;
    }
    create += ")";
    if (!out.exec(create, &err)) return fail(errc::kGeneric, "Cannot create table '" + t.name + "': " + err);
    for (const std::string &tr : triggers)
      if (!out.exec(tr, &err)) return fail(errc::kGeneric, err);

    for (const Index &x : t.indexes) {
      bool named = lower(x.name) != "primarykey";
      if (x.primary && !named) continue;
      std::string name = indexNames.count(lower(x.name)) ? t.name + "." + x.name : x.name;
      indexNames.insert(lower(name));
      std::string cols;
      for (size_t k = 0; k < x.columns.size(); ++k)
        cols += (k ? ", " : "") + quote(t.columns[size_t(x.columns[k])].name) + (x.descending[k] ? " DESC" : "");
      std::string body = " INDEX " + quote(name) + " ON " + quote(t.name) + " (" + cols + ")";
      indexes.push_back({std::string("CREATE") + (x.unique ? " UNIQUE" : "") + body,
                         x.unique ? "CREATE" + body : std::string(), t.name + "." + x.name});
    }

    // Rows, in one transaction with the rest.
    std::string insert = "INSERT INTO " + quote(t.name) + " VALUES (";
    for (size_t ci = 0; ci < t.columns.size(); ++ci) insert += ci ? ", ?" : "?";
    insert += ")";
    sqlite3_stmt *st = nullptr;
    if (sqlite3_prepare_v2(out.db, insert.c_str(), -1, &st, nullptr) != SQLITE_OK) {
      sqlite3_finalize(st);
      return fail(errc::kGeneric, sqlite3_errmsg(out.db));
    }
    std::string rowError;
    size_t tableRows = 0;
    if (cb.progress) cb.progress(done, total, t.name);
    bool ok = reader.scan(
        ti,
        [&](std::vector<Value> &values) {
          if (!rowError.empty()) return;
          for (size_t i = 0; i < values.size(); ++i) bind(st, int(i) + 1, values[i]);
          if (sqlite3_step(st) != SQLITE_DONE) rowError = sqlite3_errmsg(out.db);
          sqlite3_reset(st);
          ++tableRows;
          if (++done % 8192 == 0 && cb.progress) cb.progress(done, std::max(total, done), t.name);
        },
        &why);
    sqlite3_finalize(st);
    if (!ok) return fail(errc::kCorrupt, "The Access database '" + accessPath + "' is damaged and cannot be read: " + why + ".");
    if (!rowError.empty()) return fail(errc::kGeneric, "A row of table '" + t.name + "' cannot be stored: " + rowError);
    report.rows += tableRows;
    ++report.tables;
  }
  if (cb.progress) cb.progress(done, std::max(total, done), std::string());

  // Multi-valued and attachment fields: the owner keeps its number in the
  // field, and the values go to a table named "table.field" (Access allows
  // no dot in a name, so it cannot clash), one row per value, under that
  // number in a field of the owner field's name.
  std::string complexWhy;
  std::vector<ComplexField> complex = reader.complexFields(&complexWhy);
  if (!complexWhy.empty()) note("multi-valued or attachment fields: " + complexWhy);
  for (size_t fi = 0; fi < complex.size(); ++fi) {
    const ComplexField &f = complex[fi];
    auto owner = byName.find(lower(f.table));
    if (owner == byName.end()) continue;  // a system table's
    std::string name = owner->second->name + "." + f.column, key = quote(f.column);
    std::string create = "CREATE TABLE " + quote(name) + " (" + key + " LONG NOT NULL, " +
                         (f.attachment ? "FileName TEXT(255), FileType TEXT(255), FileData LONGBINARY"
                                       : "Value " + sqlType(f.value, jet)) + ")";
    if (!out.exec(create, &err) ||
        !out.exec("CREATE INDEX " + quote(name) + " ON " + quote(name) + " (" + key + ")", &err))
      return fail(errc::kGeneric, "Cannot create table '" + name + "': " + err);
    sqlite3_stmt *st = nullptr;
    std::string insert = "INSERT INTO " + quote(name) + (f.attachment ? " VALUES (?, ?, ?, ?)" : " VALUES (?, ?)");
    sqlite3_prepare_v2(out.db, insert.c_str(), -1, &st, nullptr);
    std::string rowError;
    bool ok = reader.scanComplex(
        fi,
        [&](ComplexValue &v) {
          sqlite3_bind_int64(st, 1, v.key);
          if (f.attachment) {
            bind(st, 2, v.fileName);
            bind(st, 3, v.fileType);
            bind(st, 4, v.data);
          } else {
            bind(st, 2, v.value);
          }
          if (sqlite3_step(st) != SQLITE_DONE && rowError.empty()) rowError = sqlite3_errmsg(out.db);
          sqlite3_reset(st);
        },
        &why);
    sqlite3_finalize(st);
    if (!ok) return fail(errc::kCorrupt, "The Access database '" + accessPath + "' is damaged and cannot be read: " + why + ".");
    if (!rowError.empty()) return fail(errc::kGeneric, "A value of '" + name + "' cannot be stored: " + rowError);
    ++report.tables;
  }

  for (const Later &x : indexes) {
    if (out.exec(x.sql, &err)) {
      ++report.indexes;
    } else if (!x.fallback.empty() && out.exec(x.fallback, &err)) {
      ++report.indexes;
      note("index " + x.what + " holds duplicate values: carried over as not unique");
    } else {
      note("index " + x.what + " not carried over: " + err);
    }
  }

  if (!queries.empty()) {
    if (!out.exec("CREATE TABLE _vantry_queries (name TEXT PRIMARY KEY COLLATE NOCASE, sql TEXT NOT NULL)", &err))
      return fail(errc::kGeneric, err);
    sqlite3_stmt *st = nullptr;
    sqlite3_prepare_v2(out.db, "INSERT INTO _vantry_queries (name, sql) VALUES (?1, ?2)", -1, &st, nullptr);
    for (const StoredQuery &q : queries) {
      if (byName.count(lower(q.name)) || q.sql.empty()) {
        note("stored query " + q.name + " not carried over");
        continue;
      }
      sqlite3_bind_text(st, 1, q.name.c_str(), -1, SQLITE_TRANSIENT);
      sqlite3_bind_text(st, 2, q.sql.c_str(), -1, SQLITE_TRANSIENT);
      if (sqlite3_step(st) == SQLITE_DONE) ++report.queries;
      sqlite3_reset(st);
    }
    sqlite3_finalize(st);
  }
  if (!out.exec("COMMIT", &err)) return fail(errc::kGeneric, err);
  sqlite3_close_v2(out.db);
  out.db = nullptr;
  report.ok = true;
  return report;
}

}  // namespace vantry::engine::access
