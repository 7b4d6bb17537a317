// The SQLite engine's schema operations (engine/schema.h), shared by
// sqlite_schema.cpp (tables and fields), sqlite_indexes.cpp (indexes and
// relations) and sqlite_links.cpp (linked tables). One object per engine,
// made on first use; it keeps no state of its own beyond the engine.
#pragma once

#include <string>
#include <vector>

#include "engine/schema.h"
#include "sqlite_ddl.h"
#include "sqlite_internal.h"

namespace vantry::engine::sqlite {

class SqliteSchema final : public Schema {
 public:
  explicit SqliteSchema(SqliteEngine &engine) : e_(engine) {}

  bool ListTables(bool withQueries, std::vector<std::string> *out) override;
  bool Structure(const std::string &table, std::vector<FieldSpec> *out) override;
  bool CreateTable(const std::string &table, const std::vector<FieldSpec> &fields,
                   const std::vector<std::string> &primaryKey) override;
  bool AddField(const std::string &table, const FieldSpec &field) override;
  bool DropField(const std::string &table, const std::string &field) override;
  bool RenameField(const std::string &table, const std::string &field, const std::string &newName) override;
  bool AlterField(const std::string &table, const FieldSpec &field) override;
  bool SetRequired(const std::string &table, const std::string &field, bool required) override;
  bool RenameTable(const std::string &table, const std::string &newName) override;
  bool DeleteTable(const std::string &table) override;
  bool TableAttributes(const std::string &table, int32_t *out) override;
  bool FieldAttributes(const std::string &table, const std::string &field, int32_t *out) override;
  bool ListIndexes(const std::string &table, std::vector<IndexSpec> *out) override;
  bool CreateIndex(const std::string &table, const IndexSpec &index) override;
  bool ListRelations(std::vector<RelationSpec> *out) override;
  bool DeleteRelation(const std::string &name) override;
  bool LinkTable(const std::string &path, const std::string &table, const std::string &localName) override;

  // ATTACH `path` AS `schema`, with nothing recorded as an error.
  static bool attach(sqlite3 *db, const std::string &path, const std::string &schema);

 private:
  friend class SqliteEngine;

  // A local table's declared name and definition; 3376 when there is none
  // (a linked table: 3251, its design belongs to its own file).
  bool localTable(const std::string &table, std::string *declared, TableDdl *ddl);
  // Names the engine keeps for itself.
  static bool isInternalName(const std::string &name);
  // Refuses the engine's own names (3265: no such item for the user).
  bool checkName(const std::string &name);
  // Refuses a name that a table, view, stored query or link has (3010, 3012).
  bool checkNewName(const std::string &name);
  // The column of a definition by name, or null (3265).
  TablePart *column(TableDdl *ddl, const std::string &table, const std::string &field);
  // Rebuilds `table` from `ddl`, copying each new column from the select
  // expression beside it, in one transaction: indexes, triggers and the
  // counter's next value are kept, foreign keys checked at the end. `check`
  // (may be empty) runs on the new table before the commit and refuses the
  // change when it answers a row. Nothing changes when anything fails.
  bool rebuild(const std::string &table, const TableDdl &ddl,
               const std::vector<std::pair<std::string, std::string>> &copy, const std::string &check = {},
               long checkError = 0, const std::string &checkText = {});
  // Relations of one child table (its foreign keys), named.
  bool relationsOf(const std::string &table, const TableDdl &ddl, std::vector<RelationSpec> *out);
  bool unlink(const std::string &table);
  bool renameLink(const std::string &table, const std::string &newName);  // the local name only
  void detachUnused(const std::string &schema);

  SqliteEngine &e_;
};

// The declared type written for an Access type name, and the Access type
// name, size and attributes read back from a declared type.
bool declaredTypeFor(const FieldSpec &field, std::string *out);
FieldSpec describeColumn(const std::string &name, const std::string &declType, bool counter);

}  // namespace vantry::engine::sqlite
