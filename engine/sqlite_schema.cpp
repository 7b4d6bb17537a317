// Tables and fields of the SQLite engine (engine/schema.h).
//
// Access type names map to declared types that SQLite reads with a fitting
// affinity and that the engine's value conversion knows (Text(n) VARCHAR(n),
// Memo LONGTEXT, Byte BYTE, Integer SHORT, Long LONG, Single SINGLE, Double
// DOUBLE, Currency CURRENCY, Decimal DECIMAL(p,s), YesNo YESNO, DateTime
// DATETIME, OLE OLEOBJECT, Counter INTEGER PRIMARY KEY AUTOINCREMENT); read
// back, any declared type gets the nearest Access name.
//
// SQLite changes little of a table in place (add a field, rename a field or
// the table). Dropping or retyping a field, making it required, adding a
// primary key or removing a foreign key rebuild the table: a new table from
// the old definition with that one change, the rows copied, the old table
// dropped and the new one renamed, its indexes and triggers made again, all
// in one transaction with foreign keys checked before the commit.
#include "sqlite_schema.h"

#include <algorithm>
#include <cctype>
#include <set>

#include "schema_rules.h"

namespace vantry::engine::sqlite {
namespace {

std::string upper(std::string s) {
  for (char &c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return s;
}

std::string text(sqlite3_stmt *st, int col) {
  const unsigned char *t = sqlite3_column_text(st, col);
  return t ? reinterpret_cast<const char *>(t) : std::string();
}

// What a retyped field's values must satisfy, as a condition on column `c`
// that holds for a value that does not fit; and the copy expression.
struct Conversion {
  std::string expr;
  std::string misfit;
};

Conversion conversionTo(const FieldSpec &f, const std::string &c) {
  std::string t = upper(f.type);
  auto range = [&](const char *lo, const char *hi) {
    return Conversion{c, c + " IS NOT NULL AND (typeof(" + c + ") <> 'integer' OR " + c + " < " + lo + " OR " +
                             c + " > " + hi + ")"};
  };
  if (t == "BYTE") return range("0", "255");
  if (t == "INTEGER") return range("-32768", "32767");
  if (t == "LONG") return range("-2147483648", "2147483647");
  if (t == "SINGLE" || t == "DOUBLE" || t == "CURRENCY" || t == "DECIMAL")
    return {c, c + " IS NOT NULL AND typeof(" + c + ") NOT IN ('integer', 'real')"};
  if (t == "YESNO")
    return {"CASE WHEN typeof(" + c + ") IN ('integer', 'real') THEN (CASE WHEN " + c +
                " <> 0 THEN -1 ELSE 0 END) WHEN upper(" + c + ") IN ('TRUE', 'YES', 'ON') THEN -1 WHEN upper(" + c +
                ") IN ('FALSE', 'NO', 'OFF') THEN 0 ELSE " + c + " END",
            c + " IS NOT NULL AND typeof(" + c + ") <> 'integer'"};
  if (t == "DATETIME")
    return {"CASE WHEN typeof(" + c + ") = 'text' AND datetime(" + c + ") IS NOT NULL THEN datetime(" + c +
                ") ELSE " + c + " END",
            c + " IS NOT NULL AND (typeof(" + c + ") <> 'text' OR datetime(" + c + ") IS NULL)"};
  if (t == "TEXT" || t == "MEMO")
    return {"CASE WHEN " + c + " IS NULL THEN NULL ELSE CAST(" + c + " AS TEXT) END",
            c + " IS NOT NULL AND typeof(" + c + ") = 'blob'"};
  return {c, ""};
}

}  // namespace

Schema *SqliteEngine::schema() {
  dropDecimalGuards();  // the schema's work may change a guarded table
  if (!schema_) schema_ = std::make_shared<SqliteSchema>(*this);
  return schema_.get();
}

// --- Types ------------------------------------------------------------------------------------

bool declaredTypeFor(const FieldSpec &f, std::string *out) {
  std::string t = upper(f.type);
  if (t == "TEXT") {
    int n = f.size ? f.size : 255;
    if (n < 1 || n > 255) return false;
    *out = "VARCHAR(" + std::to_string(n) + ")";
  } else if (t == "DECIMAL") {
    int p = f.size ? f.size : 18;
    if (p < 1 || p > 28 || f.scale < 0 || f.scale > p) return false;
    *out = "DECIMAL(" + std::to_string(p) + "," + std::to_string(f.scale) + ")";
  } else {
    static const std::pair<const char *, const char *> kTypes[] = {
        {"MEMO", "LONGTEXT"},     {"BYTE", "BYTE"},         {"INTEGER", "SHORT"},     {"LONG", "LONG"},
        {"SINGLE", "SINGLE"},     {"DOUBLE", "DOUBLE"},     {"CURRENCY", "CURRENCY"}, {"YESNO", "YESNO"},
        {"DATETIME", "DATETIME"}, {"OLE", "OLEOBJECT"},     {"COUNTER", "INTEGER"}};
    out->clear();
    for (const auto &[name, declared] : kTypes)
      if (t == name) *out = declared;
    if (out->empty()) return false;
  }
  return true;
}

FieldSpec describeColumn(const std::string &name, const std::string &declType, bool counter) {
  FieldSpec f;
  f.name = name;
  std::string u = upper(declType);
  size_t paren = u.find('(');
  std::string base = u.substr(0, paren);
  while (!base.empty() && base.back() == ' ') base.pop_back();
  std::vector<int> args;
  if (paren != std::string::npos) {
    std::string inner = u.substr(paren + 1);
    size_t i = 0;
    while (i < inner.size()) {
      if (std::isdigit(static_cast<unsigned char>(inner[i]))) {
        args.push_back(std::atoi(inner.c_str() + i));
        while (i < inner.size() && std::isdigit(static_cast<unsigned char>(inner[i]))) ++i;
      } else {
        ++i;
      }
    }
  }
  auto is = [&](std::initializer_list<const char *> names) {
    for (const char *n : names)
      if (base == n) return true;
    return false;
  };
  auto set = [&](const char *type, int size) {
    f.type = type;
    f.size = size;
  };
  Affinity aff = affinityOf(declType);
  if (counter)
    set("Counter", 4);
  else if (is({"VARCHAR", "CHAR", "NVARCHAR", "NCHAR", "TEXT", "CHARACTER", "VARYING CHARACTER"}) && !args.empty())
    set("Text", args[0]);
  else if (is({"TEXT", "LONGTEXT", "MEMO", "CLOB", "NTEXT", "LONGCHAR"}))
    set("Memo", 0);
  else if (is({"BYTE", "TINYINT", "INTEGER1"}))
    set("Byte", 1);
  else if (is({"SHORT", "SMALLINT", "INT2", "INTEGER2"}))
    set("Integer", 2);
  else if (is({"LONG", "INTEGER", "INT", "INT4", "INTEGER4", "MEDIUMINT", "BIGINT", "INT8", "COUNTER"}))
    set("Long", 4);
  else if (is({"SINGLE", "FLOAT4", "IEEESINGLE"}))
    set("Single", 4);
  else if (is({"DOUBLE", "REAL", "FLOAT", "DOUBLE PRECISION", "FLOAT8", "IEEEDOUBLE", "NUMBER"}))
    set("Double", 8);
  else if (is({"CURRENCY", "MONEY"}))
    set("Currency", 8);
  else if (is({"DECIMAL", "NUMERIC", "DEC"})) {
    set("Decimal", 16);
    if (args.size() > 1) f.scale = args[1];
  } else if (fieldKindOf(declType) == FieldKind::kYesNo)
    set("YesNo", 1);
  else if (fieldKindOf(declType) == FieldKind::kDate)
    set("DateTime", 8);
  else if (is({"OLEOBJECT", "LONGBINARY", "BLOB", "BINARY", "VARBINARY", "IMAGE", "GENERAL", ""}))
    set("OLE", 0);
  else if (aff == Affinity::kInteger)
    set("Long", 4);
  else if (aff == Affinity::kText)
    set("Memo", 0);
  else if (aff == Affinity::kReal)
    set("Double", 8);
  else if (aff == Affinity::kBlob)
    set("OLE", 0);
  else
    set("Decimal", 16);
  return f;
}

// --- Names --------------------------------------------------------------------------------------

bool SqliteSchema::isInternalName(const std::string &name) {
  std::string l = asciiLower(name);
  return l.rfind("_vantry_", 0) == 0 || l.rfind("sqlite_", 0) == 0;
}

bool SqliteSchema::checkName(const std::string &name) {
  if (!accessNameShape(name, 64) || isInternalName(name))
    return e_.fail(errc::kInvalidName, "'" + name + "' is not a valid name.");
  return true;
}

bool SqliteSchema::checkNewName(const std::string &name) {
  if (!checkName(name)) return false;
  Stmt st = e_.prepare("SELECT type FROM sqlite_master WHERE name = ?1 COLLATE NOCASE");
  if (!st) return false;
  sqlite3_bind_text(st.get(), 1, name.c_str(), -1, SQLITE_TRANSIENT);
  int rc = sqlite3_step(st.get());
  if (rc == SQLITE_ROW && text(st.get(), 0) == "table")
    return e_.fail(errc::kTableExists, "Table '" + name + "' already exists.");
  if (rc == SQLITE_ROW || e_.links_.count(asciiLower(name)))
    return e_.fail(rc == SQLITE_ROW ? errc::kObjectExists : errc::kTableExists,
                   rc == SQLITE_ROW ? "Object '" + name + "' already exists." : "Table '" + name + "' already exists.");
  if (rc != SQLITE_DONE) return e_.failSqlite(rc);
  // Stored queries share the tables' names, as in Access.
  sqlite3_stmt *q = nullptr;
  bool query = false;
  if (sqlite3_prepare_v2(e_.db(), "SELECT 1 FROM _vantry_queries WHERE name = ?1 COLLATE NOCASE", -1, &q,
                         nullptr) == SQLITE_OK) {
    sqlite3_bind_text(q, 1, name.c_str(), -1, SQLITE_TRANSIENT);
    query = sqlite3_step(q) == SQLITE_ROW;
  }
  sqlite3_finalize(q);
  if (query) return e_.fail(errc::kObjectExists, "Object '" + name + "' already exists.");
  return true;
}

bool SqliteSchema::localTable(const std::string &table, std::string *declared, TableDdl *ddl) {
  if (!e_.needDatabase()) return false;
  if (e_.links_.count(asciiLower(table)))
    return e_.fail(errc::kNotSupported, "Cannot change the design of the linked table '" + table +
                                            "': it belongs to its own database.");
  if (isInternalName(table)) return e_.fail(errc::kTableNotFound, tableNotFound(table));
  Stmt st = e_.prepare("SELECT name, sql FROM sqlite_master WHERE type = 'table' AND name = ?1 COLLATE NOCASE");
  if (!st) return false;
  sqlite3_bind_text(st.get(), 1, table.c_str(), -1, SQLITE_TRANSIENT);
  int rc = sqlite3_step(st.get());
  if (rc == SQLITE_DONE) return e_.fail(errc::kTableNotFound, tableNotFound(table));
  if (rc != SQLITE_ROW) return e_.failSqlite(rc);
  *declared = text(st.get(), 0);
  if (!parseCreateTable(text(st.get(), 1), ddl))
    return e_.fail(errc::kNotSupported, "The definition of table '" + *declared + "' cannot be changed.");
  return true;
}

TablePart *SqliteSchema::column(TableDdl *ddl, const std::string &table, const std::string &field) {
  for (TablePart &p : ddl->parts)
    if (p.isColumn && sameName(p.name, field)) return &p;
  e_.fail(errc::kItemNotFound, "Item not found in this collection (no field '" + field + "' in table '" + table + "').");
  return nullptr;
}

// --- Listing and describing --------------------------------------------------------------------

bool SqliteSchema::ListTables(bool withQueries, std::vector<std::string> *out) {
  e_.clearError();
  if (!e_.needDatabase()) return false;
  std::vector<std::string> names;
  std::string sql = "SELECT name FROM sqlite_master WHERE type = 'table'";
  if (withQueries) sql += " OR type = 'view'";
  Stmt st = e_.prepare(sql);
  if (!st) return false;
  int rc;
  while ((rc = sqlite3_step(st.get())) == SQLITE_ROW)
    if (!isInternalName(text(st.get(), 0))) names.push_back(text(st.get(), 0));
  if (rc != SQLITE_DONE) return e_.failSqlite(rc);
  // Links and stored queries live in tables that may not exist yet.
  std::vector<const char *> extra;
  if (!e_.links_.empty()) extra.push_back("SELECT name FROM _vantry_links");
  if (withQueries) extra.push_back("SELECT name FROM _vantry_queries");
  for (const char *q : extra) {
    sqlite3_stmt *s = nullptr;
    if (sqlite3_prepare_v2(e_.db(), q, -1, &s, nullptr) == SQLITE_OK)
      while (sqlite3_step(s) == SQLITE_ROW) names.push_back(text(s, 0));
    sqlite3_finalize(s);
  }
  std::stable_sort(names.begin(), names.end(),
                   [](const std::string &a, const std::string &b) { return asciiLower(a) < asciiLower(b); });
  *out = std::move(names);
  return true;
}

bool SqliteSchema::Structure(const std::string &table, std::vector<FieldSpec> *out) {
  e_.clearError();
  if (!e_.needDatabase()) return false;
  if (isInternalName(table)) return e_.fail(errc::kTableNotFound, tableNotFound(table));
  TableInfo info;
  if (!e_.loadTable(table, &info)) {
    if (e_.GetLastError().number == errc::kNoSuchTable) return e_.fail(errc::kTableNotFound, tableNotFound(table));
    return false;
  }
  std::string schemaName;
  if (!e_.linkSchema(table, &schemaName)) return false;
  Stmt st = e_.prepare("PRAGMA " + quoteIdent(schemaName) + ".table_info(" + quoteIdent(info.source) + ")");
  if (!st) return false;
  std::vector<FieldSpec> fields;
  int pkCount = 0, rc;
  std::vector<bool> pk;
  while ((rc = sqlite3_step(st.get())) == SQLITE_ROW) {
    std::string name = text(st.get(), 1), decl = text(st.get(), 2);
    FieldSpec f = describeColumn(name, decl, false);
    f.required = sqlite3_column_int(st.get(), 3) != 0;
    if (sqlite3_column_type(st.get(), 4) != SQLITE_NULL) f.defaultValue = text(st.get(), 4);
    bool isPk = sqlite3_column_int(st.get(), 5) != 0;
    pkCount += isPk;
    pk.push_back(isPk && upper(decl) == "INTEGER");
    fields.push_back(std::move(f));
  }
  if (rc != SQLITE_DONE) return e_.failSqlite(rc);
  // An INTEGER primary key alone is the row number: SQLite numbers it as a counter.
  for (size_t i = 0; i < fields.size(); ++i)
    if (pk[i] && pkCount == 1) {
      std::string def = fields[i].defaultValue;
      bool required = fields[i].required;
      fields[i] = describeColumn(fields[i].name, "INTEGER", true);
      fields[i].defaultValue = def;
      fields[i].required = required;
    }
  *out = std::move(fields);
  return true;
}

bool SqliteSchema::TableAttributes(const std::string &table, int32_t *out) {
  e_.clearError();
  if (!e_.needDatabase()) return false;
  if (e_.links_.count(asciiLower(table))) {
    *out = 0x40000000;  // dbAttachedTable
    return true;
  }
  std::string declared;
  TableDdl ddl;
  if (!localTable(table, &declared, &ddl)) return false;
  *out = 0;
  return true;
}

bool SqliteSchema::FieldAttributes(const std::string &table, const std::string &field, int32_t *out) {
  std::vector<FieldSpec> fields;
  if (!Structure(table, &fields)) return false;
  for (const FieldSpec &f : fields) {
    if (!sameName(f.name, field)) continue;
    *out = f.attributes(e_.IsUpdatable());
    return true;
  }
  return e_.fail(errc::kItemNotFound,
                 "Item not found in this collection (no field '" + field + "' in table '" + table + "').");
}

// --- Making and changing tables -----------------------------------------------------------------

bool SqliteSchema::CreateTable(const std::string &table, const std::vector<FieldSpec> &fields,
                               const std::vector<std::string> &primaryKey) {
  e_.clearError();
  if (!e_.needWritable() || !checkNewName(table)) return false;
  if (fields.empty()) return e_.fail(errc::kNoFields, "No field defined: cannot append the table '" + table + "'.");
  std::set<std::string> seen;
  std::string counter;
  for (const FieldSpec &f : fields) {
    if (!checkName(f.name)) return false;
    if (!seen.insert(asciiLower(f.name)).second)
      return e_.fail(errc::kFieldTwice, "Cannot define field '" + f.name + "' more than once.");
    std::string declared;
    if (!declaredTypeFor(f, &declared))
      return e_.fail(errc::kInvalidFieldType, "Invalid field data type '" + f.type + "' for field '" + f.name + "'.");
    if (upper(f.type) == "COUNTER") {
      if (!counter.empty())
        return e_.fail(errc::kNotSupported, "A table can have only one counter field ('" + counter + "').");
      counter = f.name;
    }
  }
  for (const std::string &k : primaryKey)
    if (!seen.count(asciiLower(k)))
      return e_.fail(errc::kItemNotFound, "Item not found in this collection (no field '" + k + "' for the key).");
  if (!counter.empty() && !primaryKey.empty() && !(primaryKey.size() == 1 && sameName(primaryKey[0], counter)))
    return e_.fail(errc::kNotSupported,
                   "The counter field '" + counter + "' is the table's primary key; another key cannot be added.");
  std::string sql = "CREATE TABLE " + quoteIdent(table) + " (";
  for (size_t i = 0; i < fields.size(); ++i) {
    const FieldSpec &f = fields[i];
    std::string declared;
    declaredTypeFor(f, &declared);
    sql += (i ? ", " : "") + quoteIdent(f.name) + " " + declared;
    bool inKey = false;
    for (const std::string &k : primaryKey) inKey |= sameName(k, f.name);
    if (upper(f.type) == "COUNTER") {
      sql += " PRIMARY KEY AUTOINCREMENT";
      continue;
    }
    if (f.required || inKey) sql += " NOT NULL";
    if (!f.defaultValue.empty()) sql += " DEFAULT (" + f.defaultValue + ")";
  }
  if (counter.empty() && !primaryKey.empty()) {
    sql += ", PRIMARY KEY (";
    for (size_t i = 0; i < primaryKey.size(); ++i) sql += (i ? ", " : "") + quoteIdent(primaryKey[i]);
    sql += ")";
  }
  sql += ")";
  if (!e_.exec(sql)) return false;
  e_.afterWrite(nullptr);
  return true;
}

bool SqliteSchema::rebuild(const std::string &table, const TableDdl &ddl,
                           const std::vector<std::pair<std::string, std::string>> &copy, const std::string &check,
                           long checkError, const std::string &checkText) {
  const std::string temp = "_vantry_rebuild";
  std::vector<std::string> extras;  // its indexes, then its triggers
  {
    Stmt st = e_.prepare(
        "SELECT sql FROM sqlite_master WHERE tbl_name = ?1 COLLATE NOCASE AND type IN ('index', 'trigger') "
        "AND sql IS NOT NULL ORDER BY type = 'trigger'");
    if (!st) return false;
    sqlite3_bind_text(st.get(), 1, table.c_str(), -1, SQLITE_TRANSIENT);
    while (sqlite3_step(st.get()) == SQLITE_ROW) extras.push_back(text(st.get(), 0));
  }
  // The counter's next value: rows deleted at the end must not be numbered again.
  bool hadSequence = false;
  int64_t sequence = 0;
  {
    sqlite3_stmt *s = nullptr;
    if (sqlite3_prepare_v2(e_.db(), "SELECT seq FROM sqlite_sequence WHERE name = ?1", -1, &s, nullptr) ==
        SQLITE_OK) {
      sqlite3_bind_text(s, 1, table.c_str(), -1, SQLITE_TRANSIENT);
      if (sqlite3_step(s) == SQLITE_ROW) {
        hadSequence = true;
        sequence = sqlite3_column_int64(s, 0);
      }
    }
    sqlite3_finalize(s);
  }
  e_.forgetTable(table);
  // Foreign keys cannot be switched inside a transaction; they are checked
  // for the rebuilt table before the commit instead. The legacy rename keeps
  // SQLite from checking views that name the table while it is away.
  sqlite3_exec(e_.db(), "PRAGMA foreign_keys=OFF; PRAGMA legacy_alter_table=ON", nullptr, nullptr, nullptr);
  bool ok = e_.txn(SqliteEngine::Txn::kBeginImmediate);
  if (ok) ok = e_.exec(createTableText(ddl, temp));
  if (ok) {
    std::string names, exprs;
    for (const auto &[name, expr] : copy) {
      names += (names.empty() ? "" : ", ") + quoteIdent(name);
      exprs += (exprs.empty() ? "" : ", ") + expr;
    }
    ok = e_.exec("INSERT INTO " + quoteIdent(temp) + " (" + names + ") SELECT " + exprs + " FROM " +
                 quoteIdent(table));
  }
  if (ok && !check.empty()) {
    Stmt st = e_.prepare("SELECT 1 FROM " + quoteIdent(temp) + " WHERE " + check + " LIMIT 1");
    ok = st && sqlite3_step(st.get()) != SQLITE_ROW;
    if (st && !ok) e_.fail(checkError, checkText);
  }
  if (ok) ok = e_.exec("DROP TABLE " + quoteIdent(table));
  if (ok) ok = e_.exec("ALTER TABLE " + quoteIdent(temp) + " RENAME TO " + quoteIdent(table));
  for (size_t i = 0; ok && i < extras.size(); ++i) ok = e_.exec(extras[i]);
  if (ok && hadSequence) {
    Stmt st = e_.prepare("INSERT OR REPLACE INTO sqlite_sequence (rowid, name, seq) VALUES ((SELECT rowid FROM "
                         "sqlite_sequence WHERE name = ?1), ?1, max(?2, coalesce((SELECT seq FROM "
                         "sqlite_sequence WHERE name = ?1), 0)))");
    ok = static_cast<bool>(st);
    if (ok) {
      sqlite3_bind_text(st.get(), 1, table.c_str(), -1, SQLITE_TRANSIENT);
      sqlite3_bind_int64(st.get(), 2, sequence);
      int rc = sqlite3_step(st.get());
      ok = rc == SQLITE_DONE || e_.failSqlite(rc);
    }
  }
  if (ok) {
    Stmt st = e_.prepare("PRAGMA foreign_key_check(" + quoteIdent(table) + ")");
    ok = st && sqlite3_step(st.get()) != SQLITE_ROW;
    if (st && !ok)
      e_.fail(errc::kRelatedRecord, "The change would leave records of '" + table +
                                        "' without the related record their relation requires.");
  }
  if (ok) ok = e_.txn(SqliteEngine::Txn::kCommit);
  if (!ok) {
    // The description names the table, not the engine's temporary one.
    LastError kept = e_.GetLastError();
    for (size_t at; (at = kept.description.find(temp)) != std::string::npos;)
      kept.description.replace(at, temp.size(), table);
    sqlite3_exec(e_.db(), "ROLLBACK", nullptr, nullptr, nullptr);
    e_.fail(kept.number, kept.description);
  }
  sqlite3_exec(e_.db(), "PRAGMA legacy_alter_table=OFF; PRAGMA foreign_keys=ON", nullptr, nullptr, nullptr);
  e_.afterWrite(nullptr);
  return ok;
}

namespace {

std::vector<std::pair<std::string, std::string>> copyAll(const TableDdl &ddl) {
  std::vector<std::pair<std::string, std::string>> copy;
  for (const TablePart &p : ddl.parts)
    if (p.isColumn) copy.emplace_back(p.name, quoteIdent(p.name));
  return copy;
}

ColumnClause clause(const std::string &kind, const std::string &text) {
  ColumnClause c;
  c.kind = kind;
  c.text = text;
  return c;
}

}  // namespace

bool SqliteSchema::AddField(const std::string &table, const FieldSpec &field) {
  e_.clearError();
  std::string declared, type;
  TableDdl ddl;
  if (!e_.needWritable() || !localTable(table, &declared, &ddl) || !checkName(field.name)) return false;
  for (const TablePart &p : ddl.parts)
    if (p.isColumn && sameName(p.name, field.name))
      return e_.fail(errc::kFieldExists, "Field '" + field.name + "' already exists in table '" + declared + "'.");
  if (!declaredTypeFor(field, &type))
    return e_.fail(errc::kInvalidFieldType, "Invalid field data type '" + field.type + "' for field '" +
                                                field.name + "'.");
  if (upper(field.type) == "COUNTER")
    return e_.fail(errc::kNotSupported, "A counter field can only be made with its table.");
  std::string def = quoteIdent(field.name) + " " + type;
  if (field.required) def += " NOT NULL";
  if (!field.defaultValue.empty()) def += " DEFAULT (" + field.defaultValue + ")";
  e_.forgetTable(declared);
  if (!field.required || !field.defaultValue.empty()) {
    if (!e_.exec("ALTER TABLE " + quoteIdent(declared) + " ADD COLUMN " + def)) return false;
    e_.afterWrite(nullptr);
    return true;
  }
  // A required field without a default: SQLite adds it only by a rebuild,
  // which refuses when the table has records (they would hold null).
  std::vector<std::pair<std::string, std::string>> copy = copyAll(ddl);
  TablePart col;
  col.isColumn = true;
  col.name = field.name;
  col.nameText = quoteIdent(field.name);
  col.type = type;
  col.clauses.push_back(clause("NOTNULL", "NOT NULL"));
  size_t at = 0;
  while (at < ddl.parts.size() && ddl.parts[at].isColumn) ++at;
  ddl.parts.insert(ddl.parts.begin() + static_cast<long>(at), col);
  return rebuild(declared, ddl, copy);
}

bool SqliteSchema::DropField(const std::string &table, const std::string &field) {
  e_.clearError();
  std::string declared;
  TableDdl ddl;
  if (!e_.needWritable() || !localTable(table, &declared, &ddl)) return false;
  TablePart *col = column(&ddl, declared, field);
  if (!col) return false;
  std::string name = col->name;
  // A field of an index, the primary key included.
  std::vector<IndexSpec> indexes;
  if (!ListIndexes(declared, &indexes)) return false;
  if (const IndexSpec *ix = indexUsing(indexes, name))
    return e_.fail(errc::kFieldInIndex, "Cannot delete the field '" + name + "': it is part of the index '" +
                                            ix->name + "'.");
  std::vector<RelationSpec> relations;
  if (!ListRelations(&relations)) return false;
  if (const RelationSpec *r = relationUsing(relations, declared, name))
    return e_.fail(errc::kInRelationship, "Cannot delete the field '" + name + "': it is part of the relation '" +
                                              r->name + "'.");
  int columns = 0;
  for (const TablePart &p : ddl.parts) columns += p.isColumn;
  if (columns == 1) return e_.fail(errc::kNoFields, "Cannot delete the only field of table '" + declared + "'.");
  std::vector<TablePart> kept;
  for (TablePart &p : ddl.parts)
    if (!(p.isColumn && sameName(p.name, name))) kept.push_back(std::move(p));
  ddl.parts = std::move(kept);
  return rebuild(declared, ddl, copyAll(ddl));
}

bool SqliteSchema::RenameField(const std::string &table, const std::string &field, const std::string &newName) {
  e_.clearError();
  std::string declared;
  TableDdl ddl;
  if (!e_.needWritable() || !localTable(table, &declared, &ddl) || !checkName(newName)) return false;
  TablePart *col = column(&ddl, declared, field);
  if (!col) return false;
  for (const TablePart &p : ddl.parts)
    if (p.isColumn && sameName(p.name, newName) && !sameName(p.name, field))
      return e_.fail(errc::kFieldExists, "Field '" + newName + "' already exists in table '" + declared + "'.");
  e_.forgetTable(declared);
  if (!e_.exec("ALTER TABLE " + quoteIdent(declared) + " RENAME COLUMN " + quoteIdent(col->name) + " TO " +
               quoteIdent(newName)))
    return false;
  e_.afterWrite(nullptr);
  return true;
}

bool SqliteSchema::AlterField(const std::string &table, const FieldSpec &field) {
  e_.clearError();
  std::string declared, type;
  TableDdl ddl;
  if (!e_.needWritable() || !localTable(table, &declared, &ddl)) return false;
  TablePart *col = column(&ddl, declared, field.name);
  if (!col) return false;
  if (!declaredTypeFor(field, &type))
    return e_.fail(errc::kInvalidFieldType, "Invalid field data type '" + field.type + "' for field '" +
                                                field.name + "'.");
  std::vector<FieldSpec> now;
  if (!Structure(declared, &now)) return false;
  for (const FieldSpec &f : now)
    if (sameName(f.name, col->name) && (f.type == "Counter") != (upper(field.type) == "COUNTER"))
      return e_.fail(errc::kNotSupported, "The counter of a table cannot be changed into another type, "
                                          "nor a field into a counter.");
  std::vector<RelationSpec> relations;
  if (!ListRelations(&relations)) return false;
  if (const RelationSpec *r = relationUsing(relations, declared, col->name))
    return e_.fail(errc::kInRelationship, "Cannot change the field '" + col->name +
                                              "': it is part of the relation '" + r->name + "'.");
  std::string name = col->name;
  col->type = type;
  dropClauses(col, "NOTNULL");
  dropClauses(col, "DEFAULT");
  if (field.required) col->clauses.push_back(clause("NOTNULL", "NOT NULL"));
  if (!field.defaultValue.empty()) col->clauses.push_back(clause("DEFAULT", "DEFAULT (" + field.defaultValue + ")"));
  std::vector<std::pair<std::string, std::string>> copy = copyAll(ddl);
  Conversion conv = conversionTo(field, quoteIdent(name));
  std::string check = conv.misfit;
  long checkError = errc::kConversion;
  std::string checkText = "The values of field '" + name + "' do not all fit the type " + field.type + ".";
  if (upper(field.type) == "TEXT") {
    int n = field.size ? field.size : 255;
    check = "length(" + quoteIdent(name) + ") > " + std::to_string(n);
    checkError = errc::kFieldTooSmall;
    checkText = "The field '" + name + "' is too small for the text it holds (" + std::to_string(n) +
                " characters).";
  }
  for (auto &[n, expr] : copy)
    if (sameName(n, name)) expr = conv.expr;
  return rebuild(declared, ddl, copy, check, checkError, checkText);
}

bool SqliteSchema::SetRequired(const std::string &table, const std::string &field, bool required) {
  e_.clearError();
  std::string declared;
  TableDdl ddl;
  if (!e_.needWritable() || !localTable(table, &declared, &ddl)) return false;
  TablePart *col = column(&ddl, declared, field);
  if (!col) return false;
  bool now = false;
  for (const ColumnClause &c : col->clauses) now |= c.kind == "NOTNULL";
  if (now == required) return true;
  std::string name = col->name;
  if (required) {
    Stmt st = e_.prepare("SELECT 1 FROM " + quoteIdent(declared) + " WHERE " + quoteIdent(name) + " IS NULL LIMIT 1");
    if (!st) return false;
    if (sqlite3_step(st.get()) == SQLITE_ROW)
      return e_.fail(errc::kRequired,
                     "The field '" + name + "' cannot be made required: some records hold no value in it.");
  }
  dropClauses(col, "NOTNULL");
  if (required) col->clauses.push_back(clause("NOTNULL", "NOT NULL"));
  return rebuild(declared, ddl, copyAll(ddl));
}

bool SqliteSchema::RenameTable(const std::string &table, const std::string &newName) {
  e_.clearError();
  if (!e_.needWritable()) return false;
  if (e_.links_.count(asciiLower(table))) return renameLink(table, newName);
  std::string declared;
  TableDdl ddl;
  if (!localTable(table, &declared, &ddl)) return false;
  if (!sameName(declared, newName) && !checkNewName(newName)) return false;
  if (sameName(declared, newName) && !checkName(newName)) return false;
  e_.forgetTable(declared);
  if (!e_.exec("ALTER TABLE " + quoteIdent(declared) + " RENAME TO " + quoteIdent(newName))) return false;
  e_.afterWrite(nullptr);
  return true;
}

bool SqliteSchema::DeleteTable(const std::string &table) {
  e_.clearError();
  if (!e_.needWritable()) return false;
  if (e_.links_.count(asciiLower(table))) return unlink(table);
  std::string declared;
  TableDdl ddl;
  if (!localTable(table, &declared, &ddl)) return false;
  std::vector<RelationSpec> relations;
  if (!ListRelations(&relations)) return false;
  if (const RelationSpec *r = relationFromAnother(relations, declared))
    return e_.fail(errc::kInRelationship, "Cannot delete the table '" + declared + "': it is part of the relation '" +
                                              r->name + "' with '" + r->foreignTable + "'.");
  e_.forgetTable(declared);
  if (!e_.exec("DROP TABLE " + quoteIdent(declared))) return false;
  e_.afterWrite(nullptr);
  return true;
}

}  // namespace vantry::engine::sqlite
