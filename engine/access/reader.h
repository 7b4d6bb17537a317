// Reading an Access file: its tables (fields, keys, indexes), rows,
// relations and stored queries. The catalog and table definitions come from
// mdbtools' library; rows are decoded from the pages by decode.h.
//
// The library is not safe on damaged files, so a Reader runs only in the
// child process of an import (import.cpp), never in the runner itself.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "decode.h"

namespace vantry::engine::access {

struct Column {
  std::string name;
  ColumnLayout layout;
  bool counter = false;       // a long numbered by the database
  bool guidCounter = false;   // a replication id made by the database
  bool required = false;      // NOT NULL
  std::string defaultValue;   // the Access expression, as written
};

struct Index {
  std::string name;
  bool primary = false, unique = false;
  std::vector<int> columns;  // positions in Table::columns
  std::vector<bool> descending;
};

struct Table {
  std::string name;
  std::vector<Column> columns;
  std::vector<Index> indexes;
  uint32_t declaredRows = 0;  // what the table definition says
  int droppedIndexes = 0;     // index descriptions that did not hold together
};

struct Relation {
  std::string name, table, referencedTable;
  std::vector<std::string> columns, referencedColumns;
  bool cascadeUpdates = false, cascadeDeletes = false, enforced = true;
};

struct StoredQuery {
  std::string name;
  int type = 0;  // 1 select, 2 make-table, 3 append, 4 update, 5 delete, 6 crosstab, 7 definition, 8 pass-through, 9 union
  std::string sql;
};

// A multi-valued or attachment field. The owning row holds a number in the
// field; the values live in a hidden table of their own, one row each,
// under that number.
struct ComplexField {
  std::string table, column;  // the owning table and field
  bool attachment = false;    // else multi-valued
  Column value;               // multi-valued: the values' field (type, size)
};

// One value of a complex field, under the owner's number: an attachment's
// file name, type (its extension, as Access keeps it) and bytes (unpacked),
// or one of a multi-valued field's values (in `value`).
struct ComplexValue {
  int64_t key = 0;
  Value fileName, fileType, data;
  Value value;
};

class Reader {
 public:
  Reader();
  ~Reader();
  Reader(const Reader &) = delete;
  Reader &operator=(const Reader &) = delete;

  // Opens the file. False with *message when it is not an Access file, is
  // encrypted, or its catalog cannot be read; *encrypted tells the second.
  bool open(const std::string &path, std::string *message, bool *encrypted);

  const std::vector<Table> &tables() const;
  Jet format() const;

  // Calls `row` with each row's values, in the table's field order. False
  // with *message when a page or row is damaged.
  bool scan(size_t table, const std::function<void(std::vector<Value> &)> &row, std::string *message);

  std::vector<Relation> relations(std::string *message);

  // The complex fields of every table, system tables included (an ACE
  // file's own resources are attachments), from the catalog of complex
  // columns. Empty for a Jet file, which has none.
  std::vector<ComplexField> complexFields(std::string *message);
  // Calls `value` with each value of complexFields()[field]. False with
  // *message when a row, or an attachment's packed bytes, are damaged.
  bool scanComplex(size_t field, const std::function<void(ComplexValue &)> &value, std::string *message);
  std::vector<StoredQuery> queries(std::string *message);

 private:
  struct State;
  std::unique_ptr<State> s_;
};

// Rebuilds a stored query's SQL from its rows in the query catalog: each row
// is (attribute, flag, name1, name2, expression), in catalog order.
struct QueryRow {
  int attribute = 0, flag = 0;
  std::string name1, name2, expression;
};
StoredQuery rebuildQuery(const std::string &name, const std::vector<QueryRow> &rows);

}  // namespace vantry::engine::access
