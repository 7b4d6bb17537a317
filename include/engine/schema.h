// The engine's schema interface: tables, fields, indexes, relations and
// linked tables of the open database, as the module's schema functions
// (vt_structure, vt_create_table, vt_create_index, vt_relationInfo ...) see
// them. An engine offers it through Engine::schema(); the object belongs to
// the engine and lives as long as it does.
//
// Fields are described with Access's type names, whatever the file declares:
// Text, Memo, Byte, Integer, Long, Single, Double, Currency, Decimal, YesNo,
// DateTime, Counter, OLE. Every operation clears the pending error first and
// reports a refusal as the engine's other operations do: false, with the
// error pending (Engine::HasError, GetLastError). Every change is committed
// when the call returns, and a change that fails leaves the database as it
// was. The engine's own tables (names beginning "_vantry_" or "sqlite_") are
// never shown and cannot be named.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vantry::engine {

// Error numbers of the schema operations, beside those of engine.h.
namespace errc {
inline constexpr long kTableExists = 3010;        // a table of that name exists
inline constexpr long kObjectNotFound = 3011;     // a linked file has no table of that name
inline constexpr long kNullInIndex = 3058;        // a primary key cannot hold a null
inline constexpr long kInvalidName = 3125;        // not a name a table, field or index can have
inline constexpr long kFieldTooSmall = 3163;      // a text longer than the field's new size
inline constexpr long kFieldTwice = 3191;         // a field defined more than once
inline constexpr long kInvalidFieldType = 3259;   // not a field type the engine knows
inline constexpr long kNoFields = 3264;           // a table or index without fields
inline constexpr long kFieldInIndex = 3280;       // the field is part of an index
inline constexpr long kPrimaryKeyExists = 3283;   // the table has a primary key already
inline constexpr long kIndexExists = 3284;        // an index of that name exists
inline constexpr long kInRelationship = 3303;     // the field or table is part of a relation
inline constexpr long kTableNotFound = 3376;      // no table of that name
inline constexpr long kFieldExists = 3380;        // a field of that name exists in the table
}  // namespace errc

struct FieldSpec {
  std::string name;
  std::string type;   // an Access type name (see above)
  int32_t size = 0;   // Text: characters (0: 255); Decimal: precision; read back: Access's size in bytes
  int32_t scale = 0;  // Decimal only
  bool required = false;
  // The default as SQL text (a literal or an expression); empty: none.
  std::string defaultValue;

  // Access's field attributes for a field of this kind: variable or fixed
  // size, a counter's auto-increment, else updatable on a database open
  // for writing.
  int32_t attributes(bool updatable) const {
    bool variable = type == "Text" || type == "Memo" || type == "OLE";
    int32_t a = variable ? 2 : 1;  // dbVariableField, dbFixedField
    if (type == "Counter")
      a |= 16;  // dbAutoIncrField
    else if (updatable)
      a |= 32;  // dbUpdatableField
    return a;
  }
};

struct IndexSpec {
  std::string name;  // the primary key is named "PrimaryKey"
  std::vector<std::string> fields;
  std::vector<bool> descending;  // parallel to fields
  bool unique = false;
  bool primary = false;
  bool ignoreNulls = false;  // records with a null in every index field are left out
};

// A relation is a foreign key: `foreignTable`'s `foreignFields` refer to
// `table`'s `fields`. Rules: "CASCADE", "SET NULL", "SET DEFAULT" or
// "RESTRICT" (the engine refuses the change while related records exist).
struct RelationSpec {
  std::string name;  // the constraint's name, else table & foreign table joined
  std::string table;
  std::vector<std::string> fields;
  std::string foreignTable;
  std::vector<std::string> foreignFields;
  std::string onUpdate;
  std::string onDelete;
};

class Schema {
 public:
  virtual ~Schema() = default;

  // --- Tables and fields ---
  // User tables and linked tables in name order; with `withQueries` the
  // stored queries and views follow.
  virtual bool ListTables(bool withQueries, std::vector<std::string> *out) = 0;
  // The table's fields in field order; a counter has type "Counter".
  virtual bool Structure(const std::string &table, std::vector<FieldSpec> *out) = 0;
  // A new table. `primaryKey` names its key fields (may be empty); a Counter
  // field is always the key, so another key beside it is refused (3251).
  virtual bool CreateTable(const std::string &table, const std::vector<FieldSpec> &fields,
                           const std::vector<std::string> &primaryKey) = 0;
  virtual bool AddField(const std::string &table, const FieldSpec &field) = 0;
  // Refused for a field of an index (3280) or of a relation (3303).
  virtual bool DropField(const std::string &table, const std::string &field) = 0;
  // Indexes, relations, triggers and views follow the new name.
  virtual bool RenameField(const std::string &table, const std::string &field, const std::string &newName) = 0;
  // Gives the field named field.name a new type, size, required flag and
  // default, converting the values; a value that does not fit the new type
  // refuses the whole change (3421) and nothing is lost.
  virtual bool AlterField(const std::string &table, const FieldSpec &field) = 0;
  virtual bool SetRequired(const std::string &table, const std::string &field, bool required) = 0;
  virtual bool RenameTable(const std::string &table, const std::string &newName) = 0;
  // Refused while another table's relation refers to it (3303). A linked
  // table's link is removed; its file is left alone.
  virtual bool DeleteTable(const std::string &table) = 0;
  // Access's Attributes: of a table (0, or dbAttachedTable for a link), of a
  // field (dbFixedField 1 / dbVariableField 2, dbAutoIncrField 16,
  // dbUpdatableField 32).
  virtual bool TableAttributes(const std::string &table, int32_t *out) = 0;
  virtual bool FieldAttributes(const std::string &table, const std::string &field, int32_t *out) = 0;

  // --- Indexes ---
  virtual bool ListIndexes(const std::string &table, std::vector<IndexSpec> *out) = 0;
  // A unique index that the data already breaks: 3022; a primary key on a
  // table that has one: 3283, over a field holding a null: 3058.
  virtual bool CreateIndex(const std::string &table, const IndexSpec &index) = 0;

  // --- Relations ---
  virtual bool ListRelations(std::vector<RelationSpec> *out) = 0;
  virtual bool DeleteRelation(const std::string &name) = 0;

  // --- Linked tables ---
  // Makes `table` of the database file at `path` reachable under
  // `localName` (its own name when empty), by cursors and SQL, in this and
  // every later connection to this database. When the file has gone, using
  // the table fails with 3024.
  virtual bool LinkTable(const std::string &path, const std::string &table,
                         const std::string &localName = std::string()) = 0;
};

}  // namespace vantry::engine
