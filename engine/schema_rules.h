// The rules of Access's schema that both engines (SQLite, the server) apply the same way: how names
// compare and which are allowed, the order indexes and relations are listed in and what unnamed
// relations are called, and what a field takes part in.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "engine/schema.h"

namespace vantry::engine {

// Names compare without regard to case, in ASCII, as Access's and SQLite's do.
inline bool sameName(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
    if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
    if (x != y) return false;
  }
  return true;
}

// Whether a table, field, index or relation name has a shape Access allows: not blank, not starting
// with a space, none of . ! ` [ ] (its SQL's marks around names) nor a control character, and at
// most `longest` bytes. Each engine adds the names it keeps for itself.
bool accessNameShape(const std::string &name, size_t longest);

// "Table '<table>' does not exist."
std::string tableNotFound(const std::string &table);

// A table's indexes as they are listed: the primary key first, then by name without regard to case.
void orderIndexes(std::vector<IndexSpec> *indexes);

// Relations as they are listed: an unnamed one (empty name) is called after its two tables, a second
// of the same pair numbered as Access numbers them; then all by name without regard to case.
void nameAndOrderRelations(std::vector<RelationSpec> *relations);

// The relation of that name (the last, should two have it), or null.
const RelationSpec *relationNamed(const std::vector<RelationSpec> &relations, const std::string &name);

// The first relation by which another table refers to `table`, or null.
const RelationSpec *relationFromAnother(const std::vector<RelationSpec> &relations, const std::string &table);

// The first index with `field` among its fields, or null.
const IndexSpec *indexUsing(const std::vector<IndexSpec> &indexes, const std::string &field);

// The first relation in which `table`'s `field` takes part, on either side, or null.
const RelationSpec *relationUsing(const std::vector<RelationSpec> &relations, const std::string &table,
                                  const std::string &field);

}  // namespace vantry::engine
