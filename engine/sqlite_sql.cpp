// SQL statements and stored queries.
//
// Stored queries live in the database file, in the table _vantry_queries
// (name, sql), created by the first CreateQuery. A query's text is kept as
// given; at each run its PARAMETERS clause is read, the names it declares
// become bound parameters ?1, ?2 ... in declaration order, and the values
// passed to RunQuery bind to them in order: they are never pasted into the
// text. A query without the clause binds its own ?, ?NNN or :name
// parameters in order.
//
// A query that names another query in FROM or JOIN reaches a query without
// parameters through its view (attachStoredQueries); one with parameters, or
// one that names such a query, is put in place as a subquery of its text
// (expandTableNames), and its parameters are asked for after the naming
// query's own, in the order met, each name once, as Access asks for them. A
// statement run without values (ExecuteSql) that names such a query is
// refused with "Too few parameters. Expected N.", as Access refuses it.
#include <cstring>

#include "engine/schema.h"
#include "sqlite_internal.h"

namespace vantry::engine::sqlite {

namespace {

constexpr const char *kQueryTable = "_vantry_queries";

bool onlySpaceOrSemicolons(const char *p) {
  for (; *p; ++p)
    if (!std::isspace(static_cast<unsigned char>(*p)) && *p != ';') return false;
  return true;
}

// A parameter value converted by its declared type, as Access would.
bool convertParameter(const Value &v, const std::string &type, Value *out) {
  std::string t = asciiLower(type);
  *out = v;
  if (v.isEmptyOrNull()) return true;
  if (t.find("date") != std::string::npos || t.find("time") != std::string::npos) {
    std::string iso;
    if (v.type() != ValueType::kText && v.type() != ValueType::kDate) return false;
    if (!normalizeDate(v.asText(), &iso)) return false;
    *out = Value::date(iso);
  } else if (t == "yesno" || t == "bit" || t == "logical" || t == "boolean") {
    if (v.type() == ValueType::kInteger) *out = Value::boolean(v.asInteger() != 0);
    if (v.type() == ValueType::kReal) *out = Value::boolean(v.asReal() != 0);
  }
  return true;
}

}  // namespace

bool SqliteEngine::runStatement(const std::string &sql, const std::vector<RawValue> &params,
                                AnswerSink *sink, int32_t *affected, bool refuseSelect, bool expanded) {
  if (!needDatabase()) return false;
  // A primary key made by SQL is made as the schema makes one, so that a
  // table keeps one key at most (3283) and its fields become required.
  std::string keyTable;
  IndexSpec key;
  if (primaryIndexStatement(sql, &keyTable, &key)) return schema()->CreateIndex(keyTable, key);
  // Puts in place what SQLite cannot resolve by itself: stored queries with
  // parameters, linked tables (by their files' schemas, so that two files
  // holding tables of one name cannot be confused). Only a statement run
  // without values gets here with parameters to ask for (RunQuery puts its
  // queries in place before binding): they go unanswered.
  auto expand = [&](std::string *text) {
    std::vector<std::string> names, types;
    if (!expandTableNames(text, &names, &types)) return false;
    if (!names.empty())
      return fail(errc::kTooFewParameters, "Too few parameters. Expected " + std::to_string(names.size()) + ".");
    return true;
  };
  if (!expanded && !links_.empty()) {
    std::string again = sql;
    if (!expand(&again)) return false;
    if (again != sql) return runStatement(again, params, sink, affected, refuseSelect, true);
    expanded = true;
  }
  std::string text = sql.find('+') == std::string::npos ? rewriteAccessSql(sql)
                                                         : rewriteAccessSql(sql, {}, {}, textFields());
  sqlite3_stmt *raw = nullptr;
  const char *tail = nullptr;
  int rc = sqlite3_prepare_v2(db_, text.c_str(), static_cast<int>(text.size()), &raw, &tail);
  Stmt st(raw);
  if (rc == SQLITE_ERROR && !expanded && std::strncmp(sqlite3_errmsg(db_), "no such table", 13) == 0) {
    // The name may be a stored query with parameters: statements that name
    // none never come here.
    std::string again = sql;
    if (!expand(&again)) return false;
    if (again != sql) return runStatement(again, params, sink, affected, refuseSelect, true);
    // Looking for stored queries ran statements of its own: prepare once
    // more so that the error reported is this statement's.
    rc = sqlite3_prepare_v2(db_, text.c_str(), static_cast<int>(text.size()), &raw, &tail);
    st = Stmt(raw);
  }
  if (rc != SQLITE_OK) return failSqlite(rc, text);
  if (!st)
    return fail(errc::kInvalidStatement,
                "Invalid SQL statement; expected 'DELETE', 'INSERT', "
                "'PROCEDURE', 'SELECT', or 'UPDATE'.");
  if (tail && !onlySpaceOrSemicolons(tail))
    return fail(errc::kCharsAfterEnd, "Characters found after end of SQL statement.");
  int columns = sqlite3_column_count(st.get());
  if (refuseSelect && columns > 0) return fail(errc::kCannotExecuteSelect, "Cannot execute a select query.");
  int wanted = sqlite3_bind_parameter_count(st.get());
  if (static_cast<int>(params.size()) < wanted)
    return fail(errc::kTooFewParameters, "Too few parameters. Expected " +
                                             std::to_string(wanted - static_cast<int>(params.size())) + ".");
  for (int i = 0; i < wanted; ++i) st.bind(i + 1, params[i]);
  bool reads = sqlite3_stmt_readonly(st.get()) != 0;
  size_t w = text.find_first_not_of(" \t\r\n");
  std::string verb = asciiLower(text.substr(w == std::string::npos ? 0 : w, 6));
  bool changesSchema = !reads && (verb.rfind("create", 0) == 0 || verb.rfind("drop", 0) == 0 ||
                                  verb.rfind("alter", 0) == 0);
  // Triggers made or dropped here expire the prepared statement, which
  // SQLite prepares again at its first step.
  if (changesSchema) dropDecimalGuards();
  else if (!reads && !readOnly_) guardDecimals();
  int64_t totalBefore = sqlite3_total_changes64(db_);
  std::vector<std::string> names(columns);
  std::vector<FieldKind> kinds(columns);
  for (int i = 0; i < columns; ++i) {
    names[i] = sqlite3_column_name(st.get(), i);
    const char *decl = sqlite3_column_decltype(st.get(), i);
    kinds[i] = decl ? fieldKindOf(decl) : FieldKind::kPlain;
  }
  while ((rc = sqlite3_step(st.get())) == SQLITE_ROW) {
    if (!sink) continue;
    sink->beginRow();
    for (int i = 0; i < columns; ++i) sink->field(size_t(i), names[i], columnValue(st.get(), i, kinds[i]));
    sink->endRow();
  }
  if (!reads) afterWrite(nullptr);
  if (rc != SQLITE_DONE) return failSqlite(rc, text);
  // sqlite3_changes() keeps the last INSERT/UPDATE/DELETE's count across other statements.
  int changes = reads || sqlite3_total_changes64(db_) == totalBefore ? 0 : sqlite3_changes(db_);
  if (affected) *affected = changes;
  if (sink && columns == 0 && !reads && changes > 0) sink->value(Value::integer(changes));
  if (asciiLower(text).find("journal_mode") != std::string::npos) noteJournalMode();
  if (changesSchema) {
    // A schema change leaves the open cursors' field lists behind: reload them.
    for (auto &[key, c] : cursors_) {
      TableInfo fresh;
      if (loadTable(c->table.name, &fresh)) c->table.columns = std::move(fresh.columns);
    }
    clearError();
  }
  return true;
}

bool SqliteEngine::storedQueryText(const std::string &name, std::string *sql) {
  // Read with the raw interface: a file without stored queries has no table
  // of them, which is no error here.
  sqlite3_stmt *st = nullptr;
  std::string q = std::string("SELECT sql FROM main.") + kQueryTable +
                  " WHERE name = ?1 AND NOT EXISTS (SELECT 1 FROM temp.sqlite_master "
                  "WHERE type = 'view' AND name = ?1 COLLATE NOCASE)";
  bool found = false;
  if (sqlite3_prepare_v2(db_, q.c_str(), -1, &st, nullptr) == SQLITE_OK) {
    sqlite3_bind_text(st, 1, name.c_str(), -1, SQLITE_TRANSIENT);
    if (sqlite3_step(st) == SQLITE_ROW && sqlite3_column_text(st, 0)) {
      *sql = reinterpret_cast<const char *>(sqlite3_column_text(st, 0));
      found = true;
    }
  }
  sqlite3_finalize(st);
  return found;
}

bool SqliteEngine::expandTableNames(std::string *sql, std::vector<std::string> *names,
                                    std::vector<std::string> *types, int depth) {
  // Queries name queries that exist already, so a chain deeper than this is
  // a loop made by deleting and recreating one of them.
  constexpr int kDeepest = 32;
  bool ok = true;
  auto as = [](const TableName &ref) { return ref.aliased ? std::string() : " AS " + quoteIdent(ref.name); };
  std::string out = replaceTableNames(*sql, [&](const TableName &ref) -> std::string {
    if (!ok) return std::string();
    auto link = links_.find(asciiLower(ref.name));
    if (link != links_.end()) {
      // One whose file has gone fails by its name, with error 3024.
      if (!link->second.attached) return std::string();
      return quoteIdent(link->second.schema) + "." + quoteIdent(link->second.source) + as(ref);
    }
    std::string stored;
    if (ref.target || !storedQueryText(ref.name, &stored)) return std::string();
    if (depth >= kDeepest) {
      ok = fail(errc::kGeneric, "Circular reference caused by query '" + ref.name + "'.");
      return std::string();
    }
    std::vector<std::string> own, ownTypes;
    std::string body;
    if (!splitParameters(stored, &own, &ownTypes, &body)) {
      ok = fail(errc::kSyntaxExpression, "Syntax error in PARAMETERS clause of query '" + ref.name + "'.");
      return std::string();
    }
    // A parameter of the same name in two queries is asked for once.
    for (size_t k = 0; k < own.size(); ++k) {
      bool known = false;
      for (const std::string &n : *names) known |= asciiLower(n) == asciiLower(own[k]);
      if (known) continue;
      names->push_back(own[k]);
      types->push_back(k < ownTypes.size() ? ownTypes[k] : std::string());
    }
    if (!expandTableNames(&body, names, types, depth + 1)) {
      ok = false;
      return std::string();
    }
    while (!body.empty() && (body.back() == ';' || std::isspace(static_cast<unsigned char>(body.back()))))
      body.pop_back();
    return "(" + body + ")" + as(ref);
  });
  if (ok) *sql = std::move(out);
  return ok;
}

void SqliteEngine::attachStoredQueries() {
  if (!db_) return;
  sqlite3_stmt *st = nullptr;
  std::string list = std::string("SELECT name, sql FROM main.") + kQueryTable;
  if (sqlite3_prepare_v2(db_, list.c_str(), -1, &st, nullptr) != SQLITE_OK) {
    sqlite3_finalize(st);  // no stored queries in this file
    return;
  }
  std::vector<std::pair<std::string, std::string>> views;
  while (sqlite3_step(st) == SQLITE_ROW) {
    const unsigned char *name = sqlite3_column_text(st, 0), *sql = sqlite3_column_text(st, 1);
    if (!name || !sql) continue;
    std::vector<std::string> params, types;
    std::string body;
    if (!splitParameters(reinterpret_cast<const char *>(sql), &params, &types, &body) || !params.empty()) continue;
    views.emplace_back(reinterpret_cast<const char *>(name), rewriteAccessSql(body));
  }
  sqlite3_finalize(st);
  // SQLite makes a view of a body that names nothing it knows, so each body
  // is compiled first: one that does not compile (it names a query with
  // parameters, say) stays out, and is put in place where it is named. A
  // query naming another is made in a later pass than the one it names.
  for (bool made = true; made;) {
    made = false;
    for (auto it = views.begin(); it != views.end();) {
      sqlite3_stmt *probe = nullptr;
      bool compiles = sqlite3_prepare_v2(db_, it->second.c_str(), -1, &probe, nullptr) == SQLITE_OK && probe;
      sqlite3_finalize(probe);
      if (!compiles) {
        ++it;
        continue;
      }
      std::string create = "CREATE TEMP VIEW IF NOT EXISTS " + quoteIdent(it->first) + " AS " + it->second;
      sqlite3_exec(db_, create.c_str(), nullptr, nullptr, nullptr);
      it = views.erase(it);
      made = true;
    }
  }
}

bool SqliteEngine::ExecuteSql(const std::string &sql, ValueArray *result) {
  clearError();
  result->clear();
  ArrayAnswer answer(result);
  if (runStatement(sql, {}, &answer, nullptr, false)) return true;
  result->clear();
  return false;
}

bool SqliteEngine::ExecuteSqlInto(const std::string &sql, AnswerSink *sink) {
  clearError();
  return runStatement(sql, {}, sink, nullptr, false);
}

bool SqliteEngine::ExecuteCommand(const std::string &sql, int32_t *affected) {
  clearError();
  *affected = 0;
  return runStatement(sql, {}, nullptr, affected, true);
}

const std::set<std::string> &SqliteEngine::textFields() {
  int version = -1;
  if (Stmt v = prepare("PRAGMA schema_version"); v && sqlite3_step(v.get()) == SQLITE_ROW)
    version = sqlite3_column_int(v.get(), 0);
  if (version == textFieldsVersion_ && version != -1) return textFields_;
  textFields_.clear();
  std::set<std::string> others;
  if (Stmt st = prepare("SELECT p.name, p.type FROM sqlite_master AS m, pragma_table_info(m.name) AS p "
                        "WHERE m.type IN ('table', 'view') AND m.name NOT LIKE 'sqlite\\_%' ESCAPE '\\'")) {
    while (sqlite3_step(st.get()) == SQLITE_ROW) {
      const char *name = reinterpret_cast<const char *>(sqlite3_column_text(st.get(), 0));
      const char *type = reinterpret_cast<const char *>(sqlite3_column_text(st.get(), 1));
      std::string t = type ? type : "";
      bool text = affinityOf(t) == Affinity::kText && fieldKindOf(t) == FieldKind::kPlain;
      (text ? textFields_ : others).insert(asciiLower(name ? name : ""));
    }
  }
  for (const std::string &o : others) textFields_.erase(o);
  clearError();
  textFieldsVersion_ = version;
  return textFields_;
}

void SqliteEngine::dropDecimalGuards() {
  for (const std::string &name : decimalTriggers_) exec("DROP TRIGGER IF EXISTS temp." + quoteIdent(name));
  decimalTriggers_.clear();
  decimalsVersion_ = -1;
}

void SqliteEngine::guardDecimals() {
  int version = -1;
  if (Stmt v = prepare("PRAGMA main.schema_version"); v && sqlite3_step(v.get()) == SQLITE_ROW)
    version = sqlite3_column_int(v.get(), 0);
  if (version == decimalsVersion_ && version != -1) return;
  dropDecimalGuards();
  decimalsVersion_ = version;
  struct Field {
    std::string table, name;
    int precision, scale;
  };
  std::vector<Field> fields;
  if (Stmt st = prepare("SELECT m.name, p.name, p.type FROM main.sqlite_master AS m, pragma_table_info(m.name) AS p "
                        "WHERE m.type = 'table' AND m.name NOT LIKE 'sqlite\\_%' ESCAPE '\\' "
                        "AND m.sql NOT LIKE '%WITHOUT ROWID%' AND (p.type LIKE 'DEC%' OR p.type LIKE 'NUMERIC%')")) {
    while (sqlite3_step(st.get()) == SQLITE_ROW) {
      auto text = [&](int i) { return std::string(reinterpret_cast<const char *>(sqlite3_column_text(st.get(), i))); };
      Field f{text(0), text(1), 0, 0};
      if (decimalShape(text(2), &f.precision, &f.scale)) fields.push_back(std::move(f));
    }
  }
  // After each insert or update of the field, a value whose whole part is
  // too wide aborts the statement (3421, nothing written), and any other is
  // rounded to the field's places, as a record written through a cursor is.
  // (A trigger's own statements name tables without their schema.)
  for (const Field &f : fields) {
    TableInfo t;
    if (!loadTable(f.table, &t)) continue;
    std::string c = "NEW." + quoteIdent(f.name);
    std::string rounded = std::string(kDecimalRound) + "(" + c + ", " + std::to_string(f.scale) + ")";
    std::string body = " FOR EACH ROW WHEN typeof(" + c + ") IN ('integer', 'real') BEGIN" +
                       " SELECT RAISE(ABORT, " + sqlString(kDecimalRefusal + f.name) + ") WHERE abs(" + rounded +
                       ") >= 1e" + std::to_string(f.precision - f.scale) + ";" +
                       " UPDATE " + quoteIdent(f.table) + " SET " + quoteIdent(f.name) + " = " + rounded +
                       " WHERE " + t.rowid + " = NEW." + t.rowid + " AND " + c + " <> " + rounded + "; END";
    for (std::string on : {std::string("INSERT"), "UPDATE OF " + quoteIdent(f.name)}) {
      std::string name = "_vantry_decimal_" + std::to_string(decimalTriggers_.size());
      if (exec("CREATE TEMP TRIGGER " + quoteIdent(name) + " AFTER " + on + " ON main." + quoteIdent(f.table) + body))
        decimalTriggers_.push_back(name);
    }
  }
  clearError();
}

bool SqliteEngine::CreateQuery(const std::string &name, const std::string &sql) {
  clearError();
  if (!needWritable()) return false;
  if (name.empty()) return fail(errc::kNotSupported, "A query needs a name.");
  std::vector<std::string> params, types;
  std::string body;
  if (!splitParameters(sql, &params, &types, &body))
    return fail(errc::kSyntaxExpression, "Syntax error in PARAMETERS clause.");
  std::string expanded = body;
  std::vector<std::string> allParams = params, allTypes = types;
  if (!expandTableNames(&expanded, &allParams, &allTypes)) return false;
  Stmt check = prepare(rewriteAccessSql(expanded, allParams));  // the body must compile now
  if (!check) return false;
  Stmt taken =
      prepare("SELECT 1 FROM sqlite_master WHERE name = ?1 COLLATE NOCASE AND type IN ('table', 'view')");
  if (!taken) return false;
  sqlite3_bind_text(taken.get(), 1, name.c_str(), -1, SQLITE_TRANSIENT);
  bool exists = sqlite3_step(taken.get()) == SQLITE_ROW;
  if (!exists) {
    Stmt q = prepare(std::string("SELECT 1 FROM sqlite_master WHERE name = '") + kQueryTable + "'");
    if (q && sqlite3_step(q.get()) == SQLITE_ROW) {
      Stmt stored = prepare(std::string("SELECT 1 FROM ") + kQueryTable + " WHERE name = ?1");
      if (!stored) return false;
      sqlite3_bind_text(stored.get(), 1, name.c_str(), -1, SQLITE_TRANSIENT);
      exists = sqlite3_step(stored.get()) == SQLITE_ROW;
    }
  }
  if (exists) return fail(errc::kObjectExists, "Object '" + name + "' already exists.");
  if (!exec(std::string("CREATE TABLE IF NOT EXISTS ") + kQueryTable +
            " (name TEXT PRIMARY KEY COLLATE NOCASE, sql TEXT NOT NULL)"))
    return false;
  Stmt ins = prepare(std::string("INSERT INTO ") + kQueryTable + " (name, sql) VALUES (?1, ?2)");
  if (!ins) return false;
  sqlite3_bind_text(ins.get(), 1, name.c_str(), -1, SQLITE_TRANSIENT);
  sqlite3_bind_text(ins.get(), 2, sql.c_str(), -1, SQLITE_TRANSIENT);
  int rc = sqlite3_step(ins.get());
  if (rc != SQLITE_DONE) return failSqlite(rc);
  afterWrite(nullptr);
  attachStoredQueries();
  return true;
}

bool SqliteEngine::RunQuery(const std::string &name, const ValueArray &params, ValueArray *result) {
  clearError();
  result->clear();
  if (!needDatabase()) return false;
  std::string sql;
  Stmt table = prepare(std::string("SELECT type FROM sqlite_master WHERE name = ?1 COLLATE NOCASE"));
  if (!table) return false;
  for (const char *candidate : {kQueryTable, name.c_str()}) {
    sqlite3_reset(table.get());
    sqlite3_bind_text(table.get(), 1, candidate, -1, SQLITE_TRANSIENT);
    bool found = sqlite3_step(table.get()) == SQLITE_ROW;
    std::string type = found ? reinterpret_cast<const char *>(sqlite3_column_text(table.get(), 0)) : "";
    if (candidate == kQueryTable && found) {
      Stmt q = prepare(std::string("SELECT sql FROM ") + kQueryTable + " WHERE name = ?1");
      if (!q) return false;
      sqlite3_bind_text(q.get(), 1, name.c_str(), -1, SQLITE_TRANSIENT);
      if (sqlite3_step(q.get()) == SQLITE_ROW) {
        sql = reinterpret_cast<const char *>(sqlite3_column_text(q.get(), 0));
        break;
      }
    } else if (candidate != kQueryTable && type == "view") {
      sql = "SELECT * FROM " + quoteIdent(name);
    }
  }
  if (sql.empty())
    return fail(errc::kNoSuchTable, "The database engine cannot find the input table or query '" + name +
                                        "'. Make sure it exists and that its name is spelled correctly.");
  std::vector<std::string> names, types;
  std::string body;
  if (!splitParameters(sql, &names, &types, &body))
    return fail(errc::kSyntaxExpression, "Syntax error in PARAMETERS clause of query '" + name + "'.");
  // Queries it names bring their parameters, asked for after its own.
  if (!expandTableNames(&body, &names, &types)) return false;
  std::vector<RawValue> raw;
  for (const Value &v : params) {
    if (v.isListMarker()) continue;  // list structure from the caller; the values bind in order
    Value typed = v;
    if (raw.size() < types.size() && !convertParameter(v, types[raw.size()], &typed))
      return fail(errc::kConversion, "Data type conversion error: parameter '" + names[raw.size()] + "'.");
    raw.push_back(toRawPlain(typed));
  }
  if (raw.size() < names.size())
    return fail(errc::kTooFewParameters,
                "Too few parameters. Expected " + std::to_string(names.size() - raw.size()) + ".");
  // The body is rewritten with parameter names first; runStatement's own
  // rewrite then finds nothing of them left.
  std::vector<std::string> textNames;  // Text, Char, Memo ... parameters
  for (size_t k = 0; k < names.size() && k < types.size(); ++k) {
    std::string type = asciiLower(types[k]);
    if (type.find("text") != std::string::npos || type.find("char") != std::string::npos ||
        type.find("memo") != std::string::npos)
      textNames.push_back(names[k]);
  }
  ArrayAnswer answer(result);
  if (runStatement(rewriteAccessSql(body, names, textNames), raw, &answer, nullptr, false)) return true;
  result->clear();
  return false;
}

}  // namespace vantry::engine::sqlite
