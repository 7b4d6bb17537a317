// A table's CREATE TABLE text taken apart and put together again, so that a
// table rebuilt with one field changed keeps everything else its definition
// says (collations, checks, defaults, foreign keys) word for word.
//
// The text is split at its top-level commas into parts: column definitions
// and table constraints. A column definition is split further into its name,
// its type and its constraint clauses. Nothing here touches a database.
#pragma once

#include <string>
#include <vector>

namespace vantry::engine::sqlite {

// One constraint clause of a column, with a "CONSTRAINT name" before it
// included in its text. kind: "PRIMARY", "NOTNULL", "NULL", "UNIQUE",
// "CHECK", "DEFAULT", "COLLATE", "REFERENCES", "GENERATED".
struct ColumnClause {
  std::string kind;
  std::string text;
  std::string constraintName;  // unquoted; empty when not named
  std::string refTable;        // REFERENCES only, unquoted
};

struct TablePart {
  bool isColumn = false;
  std::string text;  // verbatim (table constraints), or as last put together (columns)
  // A column definition.
  std::string name;      // unquoted
  std::string nameText;  // as written
  std::string type;      // as written; may be empty
  std::vector<ColumnClause> clauses;
  // A table constraint: "PRIMARY", "UNIQUE", "CHECK" or "FOREIGN".
  std::string kind;
  std::string constraintName;        // unquoted; empty when not named
  std::vector<std::string> columns;  // its columns (PRIMARY, UNIQUE, FOREIGN), unquoted
  std::string refTable;              // FOREIGN only, unquoted
};

struct TableDdl {
  std::string head;  // "CREATE TABLE name (" as written
  std::vector<TablePart> parts;
  std::string tail;  // ")" and what follows it
};

// False when the text is not a CREATE TABLE with a parenthesised definition.
bool parseCreateTable(const std::string &sql, TableDdl *out);
// The column definition put together from its pieces.
std::string columnText(const TablePart &column);
// The whole statement, with the table named `name` (quoted here).
std::string createTableText(const TableDdl &ddl, const std::string &name);
// Removes the clauses of a kind from a column.
void dropClauses(TablePart *column, const std::string &kind);
// An identifier as written ("x", [x], `x`, x) without its quotes.
std::string unquoteIdent(const std::string &text);

}  // namespace vantry::engine::sqlite
