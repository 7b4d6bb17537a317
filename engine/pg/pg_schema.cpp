// Tables and fields on the server (pg_schema.h). Every refusal the SQLite
// engine makes for the same fault is made here first, with its number and
// text, before the server is asked; what only the server finds (duplicate
// values for a unique index, a value that does not convert) comes back with
// the same numbers through PgEngine::failFrom.
#include "pg_text.h"
#include "pg_schema.h"

#include <algorithm>
#include <cstring>
#include <set>

#include "../schema_rules.h"
#include "../sqlite_schema.h"

namespace vantry::engine::pg {

namespace {

std::string noField(const std::string &field, const std::string &table) {
  return "Item not found in this collection (no field '" + field + "' in table '" + table + "').";
}

// What kind of values a server type holds, for conversions.
enum class Kind { kText, kWhole, kNumber, kBoolean, kDate, kBinary, kOther };

Kind kindOf(const std::string &type) {
  if (type == "text" || startsWith(type, "character")) return Kind::kText;
  if (type == "smallint" || type == "integer" || type == "bigint") return Kind::kWhole;
  if (type == "real" || type == "double precision" || startsWith(type, "numeric") || type == "money")
    return Kind::kNumber;
  if (type == "boolean") return Kind::kBoolean;
  if (startsWith(type, "timestamp") || type == "date") return Kind::kDate;
  if (type == "bytea") return Kind::kBinary;
  return Kind::kOther;
}

// A server type as the declared type of the SQLite engine that stands for
// the same Access type, so that both engines describe a field alike.
std::string declaredOf(const std::string &type, bool byte) {
  if (startsWith(type, "character varying(")) return "VARCHAR" + type.substr(17);
  if (startsWith(type, "character(")) return "CHAR" + type.substr(9);
  if (type == "text" || type == "character varying") return "LONGTEXT";
  if (type == "smallint") return byte ? "BYTE" : "SHORT";
  if (type == "integer") return "LONG";
  if (type == "bigint") return "BIGINT";
  if (type == "real") return "SINGLE";
  if (type == "double precision") return "DOUBLE";
  if (type == "numeric(19,4)" || type == "money") return "CURRENCY";
  if (startsWith(type, "numeric")) return "DECIMAL" + type.substr(7);
  if (type == "boolean") return "YESNO";
  if (kindOf(type) == Kind::kDate) return "DATETIME";
  if (type == "bytea") return "OLEOBJECT";
  if (type == "uuid") return "GUID";
  return upper(type);
}

}  // namespace

std::string defaultSql(const std::string &value, const std::string &type) {
  std::string v = value;
  while (v.size() >= 2 && v.front() == '(' && v.back() == ')') v = v.substr(1, v.size() - 2);
  std::string u = upper(v);
  if (type == "boolean") {
    if (u == "-1" || u == "1" || u == "TRUE" || u == "YES" || u == "ON") return "true";
    if (u == "0" || u == "FALSE" || u == "NO" || u == "OFF") return "false";
  }
  if (u == "NOW()") return "LOCALTIMESTAMP(0)";
  if (u == "DATE()") return "CURRENT_DATE::timestamp(0)";
  return "(" + value + ")";
}

namespace {

// The server's text of a default as the SQLite engine reports it: a number
// bare, a text quoted, yes and no as -1 and 0, the clock as Now() and Date().
std::string defaultText(std::string d, Kind kind) {
  if (d.empty()) return d;
  if (kind == Kind::kBoolean) {
    if (d == "true") return "-1";
    if (d == "false") return "0";
  }
  std::string u = upper(d);
  if (startsWith(u, "LOCALTIMESTAMP") || startsWith(u, "NOW()")) return "Now()";
  if (startsWith(u, "CURRENT_DATE")) return "Date()";
  // Casts the server adds: 'x'::character varying, '-1'::integer.
  for (;;) {
    size_t at = d.rfind("::");
    if (at == std::string::npos || at == 0) break;
    std::string cast = d.substr(at + 2);
    if (cast.find_first_of("'\"") != std::string::npos) break;
    d = d.substr(0, at);
  }
  while (d.size() >= 2 && d.front() == '(' && d.back() == ')') d = d.substr(1, d.size() - 2);
  if (kind == Kind::kWhole || kind == Kind::kNumber) {
    if (d.size() >= 2 && d.front() == '\'' && d.back() == '\'') d = d.substr(1, d.size() - 2);
  }
  return d;
}

}  // namespace

Schema *PgEngine::schema() {
  if (!schemaOps_) schemaOps_ = std::make_unique<PgSchema>(*this);
  return schemaOps_.get();
}

// --- Helpers ----------------------------------------------------------------------------------

bool PgSchema::writable() {
  if (!e_.needDatabase()) return false;
  if (e_.readOnly_) return e_.fail(errc::kReadOnly, "Cannot update. Database or object is read-only.");
  return true;
}

bool PgSchema::isInternalName(const std::string &name) {
  std::string l = lower(name);
  return startsWith(l, "_vantry_") || startsWith(l, "sqlite_") || startsWith(l, "pg_");
}

bool PgSchema::checkName(const std::string &name) {
  // The server keeps 63 bytes of a name: a longer one would be cut silently.
  if (!accessNameShape(name, 63) || isInternalName(name))
    return e_.fail(errc::kInvalidName, "'" + name + "' is not a valid name.");
  return true;
}

bool PgSchema::checkNewName(const std::string &name) {
  if (!checkName(name)) return false;
  Result r = e_.exec(
      "SELECT c.relkind::text FROM pg_class c JOIN pg_namespace n ON n.oid = c.relnamespace "
      "WHERE n.nspname = $1 AND lower(c.relname) = lower($2) ORDER BY c.relkind IN ('r', 'p', 'f') DESC LIMIT 1",
      {e_.schema_, name});
  if (!r) return false;
  if (PQntuples(r.get()) > 0) {
    std::string kind = PQgetvalue(r.get(), 0, 0);
    if (kind == "r" || kind == "p" || kind == "f")
      return e_.fail(errc::kTableExists, "Table '" + name + "' already exists.");
    return e_.fail(errc::kObjectExists, "Object '" + name + "' already exists.");
  }
  // Stored queries share the tables' names, as in Access.
  Result q = e_.exec("SELECT to_regclass(quote_ident($1) || '._vantry_queries') IS NOT NULL", {e_.schema_});
  if (!q) return false;
  if (PQgetvalue(q.get(), 0, 0)[0] == 't') {
    Result taken = e_.exec("SELECT 1 FROM _vantry_queries WHERE lower(name) = lower($1)", {name});
    if (!taken) return false;
    if (PQntuples(taken.get()) > 0) return e_.fail(errc::kObjectExists, "Object '" + name + "' already exists.");
  }
  return true;
}

bool PgSchema::findTable(const std::string &name, Table *out) {
  if (!e_.needDatabase()) return false;
  if (isInternalName(name)) return e_.fail(errc::kTableNotFound, tableNotFound(name));
  Result r = e_.exec(
      "SELECT c.oid::text, c.relname FROM pg_class c JOIN pg_namespace n ON n.oid = c.relnamespace "
      "WHERE n.nspname = $1 AND lower(c.relname) = lower($2) AND c.relkind IN ('r', 'p') "
      "ORDER BY c.relname = $2 DESC LIMIT 1",
      {e_.schema_, name});
  if (!r) return false;
  if (PQntuples(r.get()) == 0) return e_.fail(errc::kTableNotFound, tableNotFound(name));
  out->oid = PQgetvalue(r.get(), 0, 0);
  out->name = PQgetvalue(r.get(), 0, 1);
  out->qualified = quoteIdent(e_.schema_) + "." + quoteIdent(out->name);
  return true;
}

bool PgSchema::columnsOf(const Table &t, std::vector<Column> *out) {
  Result r = e_.exec(
      "SELECT a.attnum, a.attname, format_type(a.atttypid, a.atttypmod), a.attnotnull, "
      "  coalesce(pg_get_expr(d.adbin, d.adrelid), ''), "
      "  a.attidentity <> '' OR coalesce(pg_get_expr(d.adbin, d.adrelid) LIKE 'nextval(%', false), "
      "  coalesce((SELECT string_agg(k.conname, chr(1)) FROM pg_constraint k WHERE k.conrelid = a.attrelid "
      "    AND k.contype = 'c' AND k.conkey = ARRAY[a.attnum] "
      "    AND pg_get_constraintdef(k.oid) LIKE '%>= 0) AND (%<= 255)))'), '') "
      "FROM pg_attribute a LEFT JOIN pg_attrdef d ON d.adrelid = a.attrelid AND d.adnum = a.attnum "
      "WHERE a.attrelid = $1::oid AND a.attnum > 0 AND NOT a.attisdropped ORDER BY a.attnum",
      {t.oid});
  if (!r) return false;
  out->clear();
  for (int i = 0; i < PQntuples(r.get()); ++i) {
    Column c;
    c.attnum = std::atoi(PQgetvalue(r.get(), i, 0));
    c.name = PQgetvalue(r.get(), i, 1);
    c.type = PQgetvalue(r.get(), i, 2);
    c.notNull = PQgetvalue(r.get(), i, 3)[0] == 't';
    c.counter = PQgetvalue(r.get(), i, 5)[0] == 't';
    if (!c.counter) c.defaultExpr = PQgetvalue(r.get(), i, 4);
    std::string checks = PQgetvalue(r.get(), i, 6);
    for (size_t at = 0; !checks.empty() && at <= checks.size();) {
      size_t end = checks.find('\1', at);
      if (end == std::string::npos) end = checks.size();
      c.byteChecks.push_back(checks.substr(at, end - at));
      at = end + 1;
    }
    if (c.type != "smallint") c.byteChecks.clear();
    out->push_back(std::move(c));
  }
  return true;
}

const PgSchema::Column *PgSchema::columnNamed(const std::vector<Column> &cols, const Table &t,
                                              const std::string &field) {
  for (const Column &c : cols)
    if (sameName(c.name, field)) return &c;
  e_.fail(errc::kItemNotFound, noField(field, t.name));
  return nullptr;
}

bool PgSchema::change(const std::vector<std::string> &statements) {
  if (!e_.BeginWork()) return false;
  for (const std::string &sql : statements)
    if (!e_.exec(sql)) {
      e_.EndWork(false);
      return false;
    }
  bool ok = e_.EndWork(true);
  e_.namesChanged();
  return ok;
}

void PgSchema::forget(const std::string &table) {
  auto it = e_.cursors_.find(lower(table));
  if (it == e_.cursors_.end()) return;
  if (e_.current_ == it->second.get()) e_.current_ = nullptr;
  e_.cursors_.erase(it);
}

bool PgSchema::explainDependents(const std::string &what) {
  // 2BP01: objects depend on it; 0A000: the server cannot retype a field a view reads.
  if (e_.lastState_ != "2BP01" && e_.lastState_ != "0A000") return false;
  std::string detail = e_.error_.description;
  return e_.fail(errc::kNotSupported, "Cannot change " + what + " on the server: views or other objects depend on it (" +
                                          detail + "). Drop them first, then make the change.");
}

bool PgSchema::serverType(const FieldSpec &f, std::string *type, bool *byte) {
  std::string declared;
  *byte = false;
  if (!sqlite::declaredTypeFor(f, &declared))
    return e_.fail(errc::kInvalidFieldType, "Invalid field data type '" + f.type + "' for field '" + f.name + "'.");
  std::string t = upper(f.type);
  if (t == "TEXT") {
    *type = "varchar" + declared.substr(7);  // VARCHAR(n)
  } else if (t == "DECIMAL") {
    *type = "numeric" + declared.substr(7);  // DECIMAL(p,s)
  } else {
    static const std::pair<const char *, const char *> kTypes[] = {
        {"MEMO", "text"},        {"BYTE", "smallint"},          {"INTEGER", "smallint"}, {"LONG", "integer"},
        {"SINGLE", "real"},      {"DOUBLE", "double precision"}, {"CURRENCY", "numeric(19,4)"},
        {"YESNO", "boolean"},    {"DATETIME", "timestamp(0)"},  {"OLE", "bytea"},
        {"COUNTER", "integer GENERATED BY DEFAULT AS IDENTITY"}};
    for (const auto &[name, server] : kTypes)
      if (t == name) *type = server;
    *byte = t == "BYTE";
  }
  return true;
}

// --- Listing and describing --------------------------------------------------------------------

bool PgSchema::ListTables(bool withQueries, std::vector<std::string> *out) {
  e_.clearError();
  if (!e_.needDatabase()) return false;
  Result r = e_.exec(std::string("SELECT c.relname FROM pg_class c JOIN pg_namespace n ON n.oid = c.relnamespace "
                                 "WHERE n.nspname = $1 AND c.relkind IN ('r', 'p'") +
                         (withQueries ? ", 'v', 'm'" : "") + ")",
                     {e_.schema_});
  if (!r) return false;
  std::vector<std::string> names;
  for (int i = 0; i < PQntuples(r.get()); ++i)
    if (!isInternalName(PQgetvalue(r.get(), i, 0))) names.push_back(PQgetvalue(r.get(), i, 0));
  if (withQueries) {
    Result q = e_.exec("SELECT to_regclass(quote_ident($1) || '._vantry_queries') IS NOT NULL", {e_.schema_});
    if (!q) return false;
    if (PQgetvalue(q.get(), 0, 0)[0] == 't') {
      Result stored = e_.exec("SELECT name FROM _vantry_queries");
      if (!stored) return false;
      for (int i = 0; i < PQntuples(stored.get()); ++i) names.push_back(PQgetvalue(stored.get(), i, 0));
    }
  }
  std::stable_sort(names.begin(), names.end(),
                   [](const std::string &a, const std::string &b) { return lower(a) < lower(b); });
  *out = std::move(names);
  return true;
}

bool PgSchema::Structure(const std::string &table, std::vector<FieldSpec> *out) {
  e_.clearError();
  Table t;
  std::vector<Column> cols;
  if (!findTable(table, &t) || !columnsOf(t, &cols)) return false;
  std::vector<FieldSpec> fields;
  for (const Column &c : cols) {
    FieldSpec f = sqlite::describeColumn(c.name, c.counter ? "INTEGER" : declaredOf(c.type, !c.byteChecks.empty()),
                                         c.counter);
    f.required = c.notNull && !c.counter;
    f.defaultValue = defaultText(c.defaultExpr, kindOf(c.type));
    fields.push_back(std::move(f));
  }
  *out = std::move(fields);
  return true;
}

bool PgSchema::TableAttributes(const std::string &table, int32_t *out) {
  e_.clearError();
  Table t;
  if (!findTable(table, &t)) return false;
  *out = 0;
  return true;
}

bool PgSchema::FieldAttributes(const std::string &table, const std::string &field, int32_t *out) {
  std::vector<FieldSpec> fields;
  if (!Structure(table, &fields)) return false;
  for (const FieldSpec &f : fields) {
    if (!sameName(f.name, field)) continue;
    *out = f.attributes(e_.IsUpdatable());
    return true;
  }
  return e_.fail(errc::kItemNotFound, noField(field, table));
}

// --- Making and changing tables -----------------------------------------------------------------

bool PgSchema::CreateTable(const std::string &table, const std::vector<FieldSpec> &fields,
                           const std::vector<std::string> &primaryKey) {
  e_.clearError();
  if (!writable() || !checkNewName(table)) return false;
  if (fields.empty()) return e_.fail(errc::kNoFields, "No field defined: cannot append the table '" + table + "'.");
  std::set<std::string> seen;
  std::string counter;
  std::vector<std::string> types;
  std::vector<bool> bytes;
  for (const FieldSpec &f : fields) {
    if (!checkName(f.name)) return false;
    if (!seen.insert(lower(f.name)).second)
      return e_.fail(errc::kFieldTwice, "Cannot define field '" + f.name + "' more than once.");
    std::string type;
    bool byte = false;
    if (!serverType(f, &type, &byte)) return false;
    types.push_back(type);
    bytes.push_back(byte);
    if (upper(f.type) == "COUNTER") {
      if (!counter.empty())
        return e_.fail(errc::kNotSupported, "A table can have only one counter field ('" + counter + "').");
      counter = f.name;
    }
  }
  for (const std::string &k : primaryKey)
    if (!seen.count(lower(k)))
      return e_.fail(errc::kItemNotFound, "Item not found in this collection (no field '" + k + "' for the key).");
  if (!counter.empty() && !primaryKey.empty() && !(primaryKey.size() == 1 && sameName(primaryKey[0], counter)))
    return e_.fail(errc::kNotSupported,
                   "The counter field '" + counter + "' is the table's primary key; another key cannot be added.");
  std::string sql = "CREATE TABLE " + quoteIdent(e_.schema_) + "." + quoteIdent(table) + " (";
  for (size_t i = 0; i < fields.size(); ++i) {
    const FieldSpec &f = fields[i];
    std::string name = quoteIdent(f.name);
    sql += (i ? ", " : "") + name + " " + types[i];
    if (upper(f.type) == "COUNTER") {
      sql += " PRIMARY KEY";
      continue;
    }
    bool inKey = false;
    for (const std::string &k : primaryKey) inKey |= sameName(k, f.name);
    if (f.required || inKey) sql += " NOT NULL";
    if (!f.defaultValue.empty()) sql += " DEFAULT " + defaultSql(f.defaultValue, types[i]);
    if (bytes[i]) sql += " CHECK (" + name + " BETWEEN 0 AND 255)";
  }
  if (counter.empty() && !primaryKey.empty()) {
    sql += ", PRIMARY KEY (";
    for (size_t i = 0; i < primaryKey.size(); ++i) {
      std::string declared = primaryKey[i];
      for (const FieldSpec &f : fields)
        if (sameName(f.name, declared)) declared = f.name;
      sql += (i ? ", " : "") + quoteIdent(declared);
    }
    sql += ")";
  }
  sql += ")";
  return change({sql});
}

bool PgSchema::AddField(const std::string &table, const FieldSpec &field) {
  e_.clearError();
  Table t;
  std::vector<Column> cols;
  if (!writable() || !findTable(table, &t) || !checkName(field.name) || !columnsOf(t, &cols)) return false;
  for (const Column &c : cols)
    if (sameName(c.name, field.name))
      return e_.fail(errc::kFieldExists, "Field '" + field.name + "' already exists in table '" + t.name + "'.");
  std::string type;
  bool byte = false;
  if (!serverType(field, &type, &byte)) return false;
  if (upper(field.type) == "COUNTER")
    return e_.fail(errc::kNotSupported, "A counter field can only be made with its table.");
  if (field.required && field.defaultValue.empty()) {
    // The records there would hold null in it.
    Result any = e_.exec("SELECT 1 FROM " + t.qualified + " LIMIT 1");
    if (!any) return false;
    if (PQntuples(any.get()) > 0)
      return e_.fail(errc::kRequired, "The field '" + t.name + "." + field.name +
                                          "' cannot contain a Null value because it is required.");
  }
  std::string name = quoteIdent(field.name);
  std::string sql = "ALTER TABLE " + t.qualified + " ADD COLUMN " + name + " " + type;
  if (field.required) sql += " NOT NULL";
  if (!field.defaultValue.empty()) sql += " DEFAULT " + defaultSql(field.defaultValue, type);
  if (byte) sql += " CHECK (" + name + " BETWEEN 0 AND 255)";
  forget(t.name);
  return change({sql});
}

const PgSchema::Column *PgSchema::fieldToChange(const std::string &table, const std::string &field, Table *t,
                                               std::vector<Column> *cols) {
  if (!writable() || !findTable(table, t) || !columnsOf(*t, cols)) return nullptr;
  return columnNamed(*cols, *t, field);
}

bool PgSchema::DropField(const std::string &table, const std::string &field) {
  e_.clearError();
  Table t;
  std::vector<Column> cols;
  const Column *col = fieldToChange(table, field, &t, &cols);
  if (!col) return false;
  std::string name = col->name;
  std::vector<IndexSpec> indexes;
  if (!ListIndexes(t.name, &indexes)) return false;
  if (const IndexSpec *ix = indexUsing(indexes, name))
    return e_.fail(errc::kFieldInIndex, "Cannot delete the field '" + name + "': it is part of the index '" +
                                            ix->name + "'.");
  std::vector<RelationSpec> relations;
  if (!ListRelations(&relations)) return false;
  if (const RelationSpec *r = relationUsing(relations, t.name, name))
    return e_.fail(errc::kInRelationship, "Cannot delete the field '" + name + "': it is part of the relation '" +
                                              r->name + "'.");
  if (cols.size() == 1) return e_.fail(errc::kNoFields, "Cannot delete the only field of table '" + t.name + "'.");
  forget(t.name);
  if (change({"ALTER TABLE " + t.qualified + " DROP COLUMN " + quoteIdent(name)})) return true;
  explainDependents("the field '" + name + "'");
  return false;
}

bool PgSchema::RenameField(const std::string &table, const std::string &field, const std::string &newName) {
  e_.clearError();
  Table t;
  std::vector<Column> cols;
  if (!writable() || !findTable(table, &t) || !checkName(newName) || !columnsOf(t, &cols)) return false;
  const Column *col = columnNamed(cols, t, field);
  if (!col) return false;
  for (const Column &c : cols)
    if (sameName(c.name, newName) && !sameName(c.name, field))
      return e_.fail(errc::kFieldExists, "Field '" + newName + "' already exists in table '" + t.name + "'.");
  if (col->name == newName) return true;
  forget(t.name);
  return change({"ALTER TABLE " + t.qualified + " RENAME COLUMN " + quoteIdent(col->name) + " TO " +
                 quoteIdent(newName)});
}

bool PgSchema::SetRequired(const std::string &table, const std::string &field, bool required) {
  e_.clearError();
  Table t;
  std::vector<Column> cols;
  const Column *col = fieldToChange(table, field, &t, &cols);
  if (!col) return false;
  if (col->notNull == required) return true;
  std::string name = quoteIdent(col->name);
  if (!required) {
    std::vector<IndexSpec> indexes;
    if (!ListIndexes(t.name, &indexes)) return false;
    for (const IndexSpec &ix : indexes)
      for (const std::string &f : ix.fields)
        if (ix.primary && f == col->name)
          return e_.fail(errc::kFieldInIndex, "The field '" + col->name +
                                                  "' cannot be made optional: it is part of the primary key.");
  }
  if (required) {
    Result r = e_.exec("SELECT 1 FROM " + t.qualified + " WHERE " + name + " IS NULL LIMIT 1");
    if (!r) return false;
    if (PQntuples(r.get()) > 0)
      return e_.fail(errc::kRequired,
                     "The field '" + col->name + "' cannot be made required: some records hold no value in it.");
  }
  forget(t.name);
  return change({"ALTER TABLE " + t.qualified + " ALTER COLUMN " + name + (required ? " SET" : " DROP") +
                 " NOT NULL"});
}

bool PgSchema::RenameTable(const std::string &table, const std::string &newName) {
  e_.clearError();
  Table t;
  if (!writable() || !findTable(table, &t)) return false;
  if (!sameName(t.name, newName) && !checkNewName(newName)) return false;
  if (sameName(t.name, newName) && !checkName(newName)) return false;
  if (t.name == newName) return true;
  forget(t.name);
  return change({"ALTER TABLE " + t.qualified + " RENAME TO " + quoteIdent(newName)});
}

bool PgSchema::DeleteTable(const std::string &table) {
  e_.clearError();
  Table t;
  if (!writable() || !findTable(table, &t)) return false;
  std::vector<RelationSpec> relations;
  if (!ListRelations(&relations)) return false;
  if (const RelationSpec *r = relationFromAnother(relations, t.name))
    return e_.fail(errc::kInRelationship, "Cannot delete the table '" + t.name + "': it is part of the relation '" +
                                              r->name + "' with '" + r->foreignTable + "'.");
  forget(t.name);
  if (change({"DROP TABLE " + t.qualified})) return true;
  explainDependents("the table '" + t.name + "'");
  return false;
}

bool PgSchema::LinkTable(const std::string &path, const std::string &table, const std::string &) {
  e_.clearError();
  if (!e_.needDatabase()) return false;
  return e_.fail(errc::kNotSupported,
                 "Cannot link the table '" + table + "' of '" + path +
                     "': a database on a server cannot reach a database file. Import the file into the server "
                     "(vantry import FILE postgresql://...) and use its tables there.");
}

}  // namespace vantry::engine::pg
