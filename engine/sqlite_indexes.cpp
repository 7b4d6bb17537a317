// Indexes and relations of the SQLite engine (engine/schema.h).
//
// The primary key is listed as the index "PrimaryKey", as Access names it,
// also when it is the row number (an INTEGER PRIMARY KEY has no index of its
// own). An index that ignores nulls is a partial index over the records with
// a value in at least one of its fields. A primary key added to a table that
// has none rebuilds the table with it (sqlite_schema.cpp).
//
// Relations are the tables' foreign keys, which the engine enforces
// (PRAGMA foreign_keys is on for every connection). SQLite does not report a
// foreign key's name, so the name is read from the CREATE TABLE text
// ("CONSTRAINT name FOREIGN KEY ..." or "CONSTRAINT name REFERENCES ..."); an
// unnamed one is called after its two tables, the referenced one first, as
// Access names a new relation.
#include <algorithm>
#include <map>

#include "schema_rules.h"
#include "sqlite_schema.h"

namespace vantry::engine::sqlite {
namespace {

std::string text(sqlite3_stmt *st, int col) {
  const unsigned char *t = sqlite3_column_text(st, col);
  return t ? reinterpret_cast<const char *>(t) : std::string();
}

bool sameNames(const std::vector<std::string> &a, const std::vector<std::string> &b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (!sameName(a[i], b[i])) return false;
  return true;
}

std::string rule(const std::string &action) {
  return action == "NO ACTION" ? "RESTRICT" : action;
}

// Where a foreign key is written in a definition: the index of its part, and
// for a column's REFERENCES clause the clause's index; -1 when not found.
struct FkPlace {
  long part = -1;
  long clause = -1;
  std::string name;
};

FkPlace findForeignKey(const TableDdl &ddl, const std::string &parent, const std::vector<std::string> &from) {
  FkPlace place;
  for (size_t i = 0; i < ddl.parts.size(); ++i) {
    const TablePart &p = ddl.parts[i];
    if (!p.isColumn && p.kind == "FOREIGN" && sameName(p.refTable, parent) && sameNames(p.columns, from)) {
      place.part = static_cast<long>(i);
      place.name = p.constraintName;
      return place;
    }
    if (p.isColumn && from.size() == 1 && sameName(p.name, from[0]))
      for (size_t k = 0; k < p.clauses.size(); ++k)
        if (p.clauses[k].kind == "REFERENCES" && sameName(p.clauses[k].refTable, parent)) {
          place.part = static_cast<long>(i);
          place.clause = static_cast<long>(k);
          place.name = p.clauses[k].constraintName;
          return place;
        }
  }
  return place;
}

}  // namespace

// --- Indexes ----------------------------------------------------------------------------------

bool SqliteSchema::ListIndexes(const std::string &table, std::vector<IndexSpec> *out) {
  e_.clearError();
  if (!e_.needDatabase()) return false;
  TableInfo info;
  if (isInternalName(table)) return e_.fail(errc::kTableNotFound, "Table '" + table + "' does not exist.");
  if (!e_.loadTable(table, &info)) {
    if (e_.GetLastError().number == errc::kNoSuchTable)
      return e_.fail(errc::kTableNotFound, "Table '" + table + "' does not exist.");
    return false;
  }
  std::string schema;
  if (!e_.linkSchema(info.name, &schema)) return false;
  std::string qs = quoteIdent(schema) + ".";
  std::vector<IndexSpec> indexes;
  // The row number as the key: no index of its own.
  {
    Stmt st = e_.prepare("PRAGMA " + qs + "table_info(" + quoteIdent(info.source) + ")");
    if (!st) return false;
    int pkCount = 0;
    std::string pkName, pkType;
    while (sqlite3_step(st.get()) == SQLITE_ROW)
      if (sqlite3_column_int(st.get(), 5) > 0) {
        ++pkCount;
        pkName = text(st.get(), 1);
        pkType = asciiLower(text(st.get(), 2));
      }
    if (pkCount == 1 && pkType == "integer") {
      IndexSpec pk;
      pk.name = "PrimaryKey";
      pk.fields = {pkName};
      pk.descending = {false};
      pk.unique = pk.primary = true;
      indexes.push_back(pk);
    }
  }
  Stmt list = e_.prepare("PRAGMA " + qs + "index_list(" + quoteIdent(info.source) + ")");
  if (!list) return false;
  std::vector<IndexSpec> found;
  while (sqlite3_step(list.get()) == SQLITE_ROW) {
    IndexSpec ix;
    ix.name = text(list.get(), 1);
    ix.unique = sqlite3_column_int(list.get(), 2) != 0;
    ix.primary = text(list.get(), 3) == "pk";
    ix.ignoreNulls = sqlite3_column_int(list.get(), 4) != 0;
    found.push_back(ix);
  }
  for (IndexSpec &ix : found) {
    Stmt cols = e_.prepare("PRAGMA " + qs + "index_xinfo(" + quoteIdent(ix.name) + ")");
    if (!cols) return false;
    while (sqlite3_step(cols.get()) == SQLITE_ROW) {
      if (sqlite3_column_int(cols.get(), 5) == 0) continue;  // not a key column
      int cid = sqlite3_column_int(cols.get(), 1);
      ix.fields.push_back(cid == -2 ? "(expression)" : text(cols.get(), 2));
      ix.descending.push_back(sqlite3_column_int(cols.get(), 3) != 0);
    }
    if (ix.primary) ix.name = "PrimaryKey";
    indexes.push_back(std::move(ix));
  }
  orderIndexes(&indexes);
  *out = std::move(indexes);
  return true;
}

bool SqliteSchema::CreateIndex(const std::string &table, const IndexSpec &index) {
  e_.clearError();
  std::string declared;
  TableDdl ddl;
  if (!e_.needWritable() || !localTable(table, &declared, &ddl)) return false;
  if (!index.primary && !checkName(index.name)) return false;
  if (index.fields.empty()) return e_.fail(errc::kNoFields, "No field defined: cannot append the index '" + index.name + "'.");
  std::vector<std::string> fields;
  for (const std::string &f : index.fields) {
    TablePart *col = column(&ddl, declared, f);
    if (!col) return false;
    fields.push_back(col->name);
  }
  std::vector<IndexSpec> existing;
  if (!ListIndexes(declared, &existing)) return false;
  if (index.primary) {
    for (const IndexSpec &ix : existing)
      if (ix.primary) return e_.fail(errc::kPrimaryKeyExists, "Primary key already exists in table '" + declared + "'.");
  } else {
    Stmt st = e_.prepare("SELECT 1 FROM sqlite_master WHERE name = ?1 COLLATE NOCASE");
    if (!st) return false;
    sqlite3_bind_text(st.get(), 1, index.name.c_str(), -1, SQLITE_TRANSIENT);
    if (sqlite3_step(st.get()) == SQLITE_ROW || sameName(index.name, "PrimaryKey"))
      return e_.fail(errc::kIndexExists, "Index '" + index.name + "' already exists.");
  }
  std::string columns, anyValue, anyNull;
  for (size_t i = 0; i < fields.size(); ++i) {
    bool desc = i < index.descending.size() && index.descending[i];
    columns += (i ? ", " : "") + quoteIdent(fields[i]) + (desc ? " DESC" : "");
    anyValue += (i ? " OR " : "") + quoteIdent(fields[i]) + " IS NOT NULL";
    anyNull += (i ? " OR " : "") + quoteIdent(fields[i]) + " IS NULL";
  }
  if (index.primary) {
    // A key is required: its fields become NOT NULL, and the rebuild's copy
    // refuses duplicates (3022). Nulls are looked for first, to say so.
    Stmt st = e_.prepare("SELECT 1 FROM " + quoteIdent(declared) + " WHERE " + anyNull + " LIMIT 1");
    if (!st) return false;
    if (sqlite3_step(st.get()) == SQLITE_ROW)
      return e_.fail(errc::kNullInIndex, "Index or primary key cannot contain a Null value (table '" + declared + "').");
    for (TablePart &p : ddl.parts) {
      if (!p.isColumn) continue;
      bool inKey = false, required = false;
      for (const std::string &f : fields) inKey |= sameName(f, p.name);
      for (const ColumnClause &c : p.clauses) required |= c.kind == "NOTNULL";
      if (inKey && !required) {
        ColumnClause c;
        c.kind = "NOTNULL";
        c.text = "NOT NULL";
        p.clauses.push_back(c);
      }
    }
    TablePart key;
    key.kind = "PRIMARY";
    key.columns = fields;
    key.text = "PRIMARY KEY (" + columns + ")";
    ddl.parts.push_back(key);
    std::vector<std::pair<std::string, std::string>> copy;
    for (const TablePart &p : ddl.parts)
      if (p.isColumn) copy.emplace_back(p.name, quoteIdent(p.name));
    return rebuild(declared, ddl, copy);
  }
  std::string sql = std::string("CREATE ") + (index.unique ? "UNIQUE " : "") + "INDEX " + quoteIdent(index.name) +
                    " ON " + quoteIdent(declared) + " (" + columns + ")";
  if (index.ignoreNulls) sql += " WHERE " + anyValue;
  if (!e_.exec(sql)) return false;
  e_.afterWrite(nullptr);
  return true;
}

// --- Relations ---------------------------------------------------------------------------------

bool SqliteSchema::relationsOf(const std::string &table, const TableDdl &ddl, std::vector<RelationSpec> *out) {
  Stmt st = e_.prepare("PRAGMA foreign_key_list(" + quoteIdent(table) + ")");
  if (!st) return false;
  std::map<int, RelationSpec> byId;
  int rc;
  while ((rc = sqlite3_step(st.get())) == SQLITE_ROW) {
    RelationSpec &r = byId[sqlite3_column_int(st.get(), 0)];
    r.table = text(st.get(), 2);
    r.foreignTable = table;
    r.foreignFields.push_back(text(st.get(), 3));
    r.fields.push_back(text(st.get(), 4));  // empty: the referenced table's key
    r.onUpdate = rule(text(st.get(), 5));
    r.onDelete = rule(text(st.get(), 6));
  }
  if (rc != SQLITE_DONE) return e_.failSqlite(rc);
  for (auto &[id, r] : byId) {
    // The referenced table's declared name, and its key where no field is named.
    TableInfo parent;
    if (e_.loadTable(r.table, &parent)) {
      r.table = parent.name;
      if (std::all_of(r.fields.begin(), r.fields.end(), [](const std::string &f) { return f.empty(); })) {
        Stmt pk = e_.prepare(parent.pragma("table_info", parent.source));
        std::vector<std::pair<int, std::string>> keys;
        while (pk && sqlite3_step(pk.get()) == SQLITE_ROW)
          if (sqlite3_column_int(pk.get(), 5) > 0) keys.emplace_back(sqlite3_column_int(pk.get(), 5), text(pk.get(), 1));
        std::sort(keys.begin(), keys.end());
        for (size_t i = 0; i < r.fields.size() && i < keys.size(); ++i) r.fields[i] = keys[i].second;
      }
    }
    e_.clearError();
    r.name = findForeignKey(ddl, r.table, r.foreignFields).name;
    out->push_back(r);
  }
  return true;
}

bool SqliteSchema::ListRelations(std::vector<RelationSpec> *out) {
  e_.clearError();
  if (!e_.needDatabase()) return false;
  std::vector<std::pair<std::string, std::string>> tables;
  {
    Stmt st = e_.prepare("SELECT name, sql FROM sqlite_master WHERE type = 'table' AND sql LIKE '%REFERENCES%'");
    if (!st) return false;
    while (sqlite3_step(st.get()) == SQLITE_ROW)
      if (!isInternalName(text(st.get(), 0))) tables.emplace_back(text(st.get(), 0), text(st.get(), 1));
  }
  std::vector<RelationSpec> relations;
  for (const auto &[name, sql] : tables) {
    TableDdl ddl;
    if (!parseCreateTable(sql, &ddl)) continue;
    if (!relationsOf(name, ddl, &relations)) return false;
  }
  nameAndOrderRelations(&relations);
  e_.clearError();
  *out = std::move(relations);
  return true;
}

bool SqliteSchema::DeleteRelation(const std::string &name) {
  e_.clearError();
  if (!e_.needWritable()) return false;
  std::vector<RelationSpec> relations;
  if (!ListRelations(&relations)) return false;
  const RelationSpec *found = relationNamed(relations, name);
  if (!found) return e_.fail(errc::kItemNotFound, "Item not found in this collection (no relation '" + name + "').");
  std::string declared;
  TableDdl ddl;
  if (!localTable(found->foreignTable, &declared, &ddl)) return false;
  FkPlace place = findForeignKey(ddl, found->table, found->foreignFields);
  if (place.part < 0)
    return e_.fail(errc::kNotSupported, "The relation '" + name + "' cannot be found in the definition of '" +
                                            declared + "'.");
  if (place.clause < 0) {
    ddl.parts.erase(ddl.parts.begin() + place.part);
  } else {
    auto &clauses = ddl.parts[static_cast<size_t>(place.part)].clauses;
    clauses.erase(clauses.begin() + place.clause);
  }
  std::vector<std::pair<std::string, std::string>> copy;
  for (const TablePart &p : ddl.parts)
    if (p.isColumn) copy.emplace_back(p.name, quoteIdent(p.name));
  return rebuild(declared, ddl, copy);
}

}  // namespace vantry::engine::sqlite
