// The schema operations (engine/schema.h) on a PostgreSQL server: the
// tables, fields, indexes and relations of the connection's schema, in
// Access's type names and with the SQLite engine's error numbers and texts.
// One object per engine, made on first use; it keeps nothing of its own
// beyond the engine, and reads the server's catalogue on every call, so
// another user's changes show at once.
//
// Access types are the server's own: Text(n) varchar(n), Memo text, Byte
// smallint with a check of 0 to 255, Integer smallint, Long integer, Single
// real, Double double precision, Currency numeric(19,4), Decimal(p,s)
// numeric(p,s), YesNo boolean, DateTime timestamp(0), OLE bytea, Counter an
// identity integer that is the primary key. Read back, each server type
// gets the Access name the SQLite engine gives the type it stands for.
//
// The server changes a table in place and in one transaction, so nothing is
// rebuilt; a change that fails is rolled back whole.
#pragma once

#include <string>
#include <vector>

#include "engine/schema.h"
#include "pg_engine.h"

namespace vantry::engine::pg {

// A field's default as the server's SQL for its type (`type`, the server's).
// Access's yes and no (-1, 0, True, Yes ...) become the boolean's; Now() and
// Date() the server's own clock (a default may not name a function of the
// session).
std::string defaultSql(const std::string &value, const std::string &type);

class PgSchema final : public Schema {
 public:
  explicit PgSchema(PgEngine &engine) : e_(engine) {}

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
  // A server cannot reach a database file: refused (3251).
  bool LinkTable(const std::string &path, const std::string &table, const std::string &localName) override;

  // Makes a relation: `index.foreignTable`'s fields refer to `table`'s, with
  // its rules (empty: RESTRICT). Not in the interface (the SQLite engine
  // makes relations only with a table's definition); the import uses it.
  bool CreateRelation(const RelationSpec &relation);

  // The server's type for an Access field (false: 3259 pending), and
  // whether it carries the byte check.
  bool serverType(const FieldSpec &field, std::string *type, bool *byte);

 private:
  struct Table {
    std::string oid;
    std::string name;       // as declared
    std::string qualified;  // "schema"."name"
  };
  struct Column {
    int attnum = 0;
    std::string name;
    std::string type;  // as format_type() spells it
    bool notNull = false;
    std::string defaultExpr;  // the server's text; empty: none
    bool counter = false;
    std::vector<std::string> byteChecks;  // names of the 0..255 checks on it
  };

  bool writable();
  // A table of the schema by name without regard to case; 3376 when none.
  bool findTable(const std::string &name, Table *out);
  bool columnsOf(const Table &t, std::vector<Column> *out);
  const Column *columnNamed(const std::vector<Column> &cols, const Table &t, const std::string &field);
  // A field to change: the database writable, its table found and its
  // columns read into t and cols, the field among them; null (with the
  // error set) when any of these fails.
  const Column *fieldToChange(const std::string &table, const std::string &field, Table *t, std::vector<Column> *cols);
  static bool isInternalName(const std::string &name);
  bool checkName(const std::string &name);
  bool checkNewName(const std::string &name);
  // Runs `sql` as one piece of work: committed whole or not at all.
  bool change(const std::vector<std::string> &statements);
  // The open cursor of a changed table is dropped: the table is opened again.
  void forget(const std::string &table);
  // A refusal because views depend on what is changed, said so.
  bool explainDependents(const std::string &what);

  PgEngine &e_;
};

}  // namespace vantry::engine::pg
