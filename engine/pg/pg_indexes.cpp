// Indexes and relations on the server (pg_schema.h).
//
// The primary key is listed as the index "PrimaryKey", whatever the server
// calls it. An index that ignores nulls is a partial index over the records
// with a value in at least one of its fields, as on SQLite.
//
// Relations are the server's foreign keys. A foreign key that was given no
// name of its own (the server names it "<table>_<fields>_fkey") is called
// after its two tables, the referenced one first, numbered when the same
// pair has more than one: the name the SQLite engine gives such a relation.
#include <algorithm>

#include "../schema_rules.h"
#include "pg_text.h"
#include "pg_schema.h"

namespace vantry::engine::pg {

namespace {

std::string rule(char action) {
  switch (action) {
    case 'c':
      return "CASCADE";
    case 'n':
      return "SET NULL";
    case 'd':
      return "SET DEFAULT";
    default:
      return "RESTRICT";  // 'a' no action, 'r' restrict: the change is refused
  }
}

// The rule in SQL; an empty or unknown one refuses.
std::string ruleSql(const std::string &rule) {
  std::string u = rule;
  for (char &ch : u) ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
  if (u == "CASCADE" || u == "SET NULL" || u == "SET DEFAULT") return u;
  return "NO ACTION";
}

// Whether the server chose the name: "<table>_<fields>_fkey", maybe numbered.
bool serverNamed(const std::string &name, const std::string &table) {
  size_t at = name.rfind("_fkey");
  if (at == std::string::npos || name.rfind(table + "_", 0) != 0) return false;
  return name.find_first_not_of("0123456789", at + 5) == std::string::npos;
}

}  // namespace

// --- Indexes ----------------------------------------------------------------------------------

bool PgSchema::ListIndexes(const std::string &table, std::vector<IndexSpec> *out) {
  e_.clearError();
  Table t;
  std::vector<Column> cols;
  if (!findTable(table, &t) || !columnsOf(t, &cols)) return false;
  Result r = e_.exec(
      "SELECT ci.relname, i.indisunique, i.indisprimary, i.indpred IS NOT NULL, i.indkey::text, "
      "  i.indoption::text, i.indnkeyatts FROM pg_index i JOIN pg_class ci ON ci.oid = i.indexrelid "
      "WHERE i.indrelid = $1::oid AND ci.relname !~ '^vt_order_[0-9]+_[0-9a-f]{12}$'",  // the cursors' own (pg_cursor.cpp)
      {t.oid});
  if (!r) return false;
  std::vector<IndexSpec> indexes;
  for (int row = 0; row < PQntuples(r.get()); ++row) {
    IndexSpec ix;
    ix.name = PQgetvalue(r.get(), row, 0);
    ix.unique = PQgetvalue(r.get(), row, 1)[0] == 't';
    ix.primary = PQgetvalue(r.get(), row, 2)[0] == 't';
    ix.ignoreNulls = PQgetvalue(r.get(), row, 3)[0] == 't';
    if (ix.primary) ix.name = "PrimaryKey";
    // indkey: attribute numbers (0: an expression); indoption bit 0: descending.
    int keys = std::atoi(PQgetvalue(r.get(), row, 6));
    const char *k = PQgetvalue(r.get(), row, 4), *o = PQgetvalue(r.get(), row, 5);
    for (int n = 0; n < keys && *k; ++n) {
      char *next = nullptr;
      int attnum = static_cast<int>(std::strtol(k, &next, 10));
      if (next == k) break;
      k = next;
      int option = static_cast<int>(std::strtol(o, &next, 10));
      o = next;
      std::string name = "(expression)";
      for (const Column &c : cols)
        if (c.attnum == attnum) name = c.name;
      ix.fields.push_back(name);
      ix.descending.push_back((option & 1) != 0);
    }
    indexes.push_back(std::move(ix));
  }
  orderIndexes(&indexes);
  *out = std::move(indexes);
  return true;
}

bool PgSchema::CreateIndex(const std::string &table, const IndexSpec &index) {
  e_.clearError();
  Table t;
  std::vector<Column> cols;
  if (!writable() || !findTable(table, &t) || !columnsOf(t, &cols)) return false;
  if (!index.primary && !checkName(index.name)) return false;
  if (index.fields.empty())
    return e_.fail(errc::kNoFields, "No field defined: cannot append the index '" + index.name + "'.");
  std::vector<std::string> fields;
  for (const std::string &f : index.fields) {
    const Column *c = columnNamed(cols, t, f);
    if (!c) return false;
    fields.push_back(c->name);
  }
  std::vector<IndexSpec> existing;
  if (!ListIndexes(t.name, &existing)) return false;
  if (index.primary) {
    for (const IndexSpec &ix : existing)
      if (ix.primary) return e_.fail(errc::kPrimaryKeyExists, "Primary key already exists in table '" + t.name + "'.");
  } else {
    Result r = e_.exec(
        "SELECT 1 FROM pg_class c JOIN pg_namespace n ON n.oid = c.relnamespace "
        "WHERE n.nspname = $1 AND lower(c.relname) = lower($2)",
        {e_.schema_, index.name});
    if (!r) return false;
    if (PQntuples(r.get()) > 0 || sameName(index.name, "PrimaryKey"))
      return e_.fail(errc::kIndexExists, "Index '" + index.name + "' already exists.");
  }
  std::string columns, plain, anyValue, anyNull;
  for (size_t i = 0; i < fields.size(); ++i) {
    bool desc = i < index.descending.size() && index.descending[i];
    std::string q = quoteIdent(fields[i]);
    columns += (i ? ", " : "") + q + (desc ? " DESC" : "");
    plain += (i ? ", " : "") + q;
    anyValue += (i ? " OR " : "") + q + " IS NOT NULL";
    anyNull += (i ? " OR " : "") + q + " IS NULL";
  }
  forget(t.name);
  if (index.primary) {
    // A key is required: the server makes its fields NOT NULL. Nulls are
    // looked for first, to say so; duplicates are the server's 3022.
    Result r = e_.exec("SELECT 1 FROM " + t.qualified + " WHERE " + anyNull + " LIMIT 1");
    if (!r) return false;
    if (PQntuples(r.get()) > 0)
      return e_.fail(errc::kNullInIndex, "Index or primary key cannot contain a Null value (table '" + t.name + "').");
    return change({"ALTER TABLE " + t.qualified + " ADD PRIMARY KEY (" + plain + ")"});
  }
  std::string sql = std::string("CREATE ") + (index.unique ? "UNIQUE " : "") + "INDEX " + quoteIdent(index.name) +
                    " ON " + t.qualified + " (" + columns + ")";
  if (index.ignoreNulls) sql += " WHERE " + anyValue;
  return change({sql});
}

// --- Relations ---------------------------------------------------------------------------------

bool PgSchema::ListRelations(std::vector<RelationSpec> *out) {
  e_.clearError();
  if (!e_.needDatabase()) return false;
  // One row per pair of fields, in the key's order.
  Result r = e_.exec(
      "SELECT k.oid::text, k.conname, p.relname, f.relname, k.confupdtype::text, k.confdeltype::text, "
      "  pa.attname, fa.attname "
      "FROM pg_constraint k JOIN pg_class f ON f.oid = k.conrelid JOIN pg_class p ON p.oid = k.confrelid "
      "JOIN pg_namespace n ON n.oid = f.relnamespace "
      "CROSS JOIN LATERAL unnest(k.confkey, k.conkey) WITH ORDINALITY AS u(pn, fn, o) "
      "JOIN pg_attribute pa ON pa.attrelid = k.confrelid AND pa.attnum = u.pn "
      "JOIN pg_attribute fa ON fa.attrelid = k.conrelid AND fa.attnum = u.fn "
      "WHERE k.contype = 'f' AND n.nspname = $1 ORDER BY k.oid, u.o",
      {e_.schema_});
  if (!r) return false;
  std::vector<RelationSpec> relations;
  std::string last;
  for (int row = 0; row < PQntuples(r.get()); ++row) {
    std::string oid = PQgetvalue(r.get(), row, 0);
    if (oid != last) {
      last = oid;
      RelationSpec rel;
      rel.name = PQgetvalue(r.get(), row, 1);
      rel.table = PQgetvalue(r.get(), row, 2);
      rel.foreignTable = PQgetvalue(r.get(), row, 3);
      rel.onUpdate = rule(PQgetvalue(r.get(), row, 4)[0]);
      rel.onDelete = rule(PQgetvalue(r.get(), row, 5)[0]);
      if (serverNamed(rel.name, rel.foreignTable)) rel.name.clear();  // named below, as SQLite's are
      relations.push_back(std::move(rel));
    }
    relations.back().fields.push_back(PQgetvalue(r.get(), row, 6));
    relations.back().foreignFields.push_back(PQgetvalue(r.get(), row, 7));
  }
  nameAndOrderRelations(&relations);
  *out = std::move(relations);
  return true;
}

bool PgSchema::DeleteRelation(const std::string &name) {
  e_.clearError();
  if (!writable()) return false;
  std::vector<RelationSpec> relations;
  if (!ListRelations(&relations)) return false;
  const RelationSpec *found = relationNamed(relations, name);
  if (!found) return e_.fail(errc::kItemNotFound, "Item not found in this collection (no relation '" + name + "').");
  // The server's own name of the constraint: the listed one may be made up.
  std::string fields;
  for (const std::string &f : found->foreignFields) fields += (fields.empty() ? "" : ",") + f;
  Result r = e_.exec(
      "SELECT k.conname, f.relname FROM pg_constraint k JOIN pg_class f ON f.oid = k.conrelid "
      "JOIN pg_class p ON p.oid = k.confrelid JOIN pg_namespace n ON n.oid = f.relnamespace "
      "WHERE k.contype = 'f' AND n.nspname = $1 AND f.relname = $2 AND p.relname = $3 AND "
      "  (SELECT string_agg(a.attname, ',' ORDER BY u.o) FROM unnest(k.conkey) WITH ORDINALITY AS u(n, o) "
      "   JOIN pg_attribute a ON a.attrelid = k.conrelid AND a.attnum = u.n) = $4 "
      "ORDER BY k.conname = $5 DESC LIMIT 1",
      {e_.schema_, found->foreignTable, found->table, fields, found->name});
  if (!r) return false;
  if (PQntuples(r.get()) == 0) return e_.fail(errc::kItemNotFound, "Item not found in this collection (no relation '" + name + "').");
  std::string child = PQgetvalue(r.get(), 0, 1);
  forget(child);
  return change({"ALTER TABLE " + quoteIdent(e_.schema_) + "." + quoteIdent(child) + " DROP CONSTRAINT " +
                 quoteIdent(PQgetvalue(r.get(), 0, 0))});
}

bool PgSchema::CreateRelation(const RelationSpec &rel) {
  e_.clearError();
  Table parent, child;
  std::vector<Column> parentCols, childCols;
  if (!writable() || !findTable(rel.table, &parent) || !findTable(rel.foreignTable, &child) ||
      !columnsOf(parent, &parentCols) || !columnsOf(child, &childCols))
    return false;
  if (rel.fields.empty() || rel.fields.size() != rel.foreignFields.size())
    return e_.fail(errc::kNoFields, "The relation '" + rel.name + "' needs as many fields on each side.");
  std::string from, to;
  for (size_t i = 0; i < rel.fields.size(); ++i) {
    const Column *p = columnNamed(parentCols, parent, rel.fields[i]);
    const Column *c = p ? columnNamed(childCols, child, rel.foreignFields[i]) : nullptr;
    if (!c) return false;
    to += (i ? ", " : "") + quoteIdent(p->name);
    from += (i ? ", " : "") + quoteIdent(c->name);
  }
  std::vector<RelationSpec> relations;
  if (!ListRelations(&relations)) return false;
  if (!rel.name.empty() && relationNamed(relations, rel.name))
    return e_.fail(errc::kObjectExists, "Object '" + rel.name + "' already exists.");
  forget(child.name);
  std::string sql = "ALTER TABLE " + child.qualified + " ADD " +
                    (rel.name.empty() ? std::string() : "CONSTRAINT " + quoteIdent(rel.name) + " ") + "FOREIGN KEY (" +
                    from + ") REFERENCES " + parent.qualified + " (" + to + ") ON UPDATE " + ruleSql(rel.onUpdate) +
                    " ON DELETE " + ruleSql(rel.onDelete);
  return change({sql});
}

}  // namespace vantry::engine::pg
