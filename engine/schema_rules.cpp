#include "schema_rules.h"

#include <algorithm>
#include <map>

namespace vantry::engine {

namespace {

std::string lowerName(std::string s) {
  for (char &c : s)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return s;
}

bool hasName(const std::vector<std::string> &names, const std::string &name) {
  return std::any_of(names.begin(), names.end(), [&](const std::string &n) { return sameName(n, name); });
}

}  // namespace

bool accessNameShape(const std::string &name, size_t longest) {
  if (name.find_first_not_of(' ') == std::string::npos || name.front() == ' ' || name.size() > longest)
    return false;
  for (unsigned char c : name)
    if (c < 32 || c == '.' || c == '!' || c == '`' || c == '[' || c == ']') return false;
  return true;
}

std::string tableNotFound(const std::string &table) {
  return "Table '" + table + "' does not exist.";
}

void orderIndexes(std::vector<IndexSpec> *indexes) {
  std::stable_sort(indexes->begin(), indexes->end(), [](const IndexSpec &a, const IndexSpec &b) {
    if (a.primary != b.primary) return a.primary;
    return lowerName(a.name) < lowerName(b.name);
  });
}

void nameAndOrderRelations(std::vector<RelationSpec> *relations) {
  std::map<std::string, int> used;
  for (const RelationSpec &r : *relations)
    if (!r.name.empty()) used[lowerName(r.name)]++;
  for (RelationSpec &r : *relations) {
    if (!r.name.empty()) continue;
    std::string base = r.table + r.foreignTable, name = base;
    for (int n = 1; used.count(lowerName(name)); ++n) name = base + std::to_string(n);
    used[lowerName(name)]++;
    r.name = name;
  }
  std::stable_sort(relations->begin(), relations->end(), [](const RelationSpec &a, const RelationSpec &b) {
    return lowerName(a.name) < lowerName(b.name);
  });
}

const RelationSpec *relationNamed(const std::vector<RelationSpec> &relations, const std::string &name) {
  const RelationSpec *found = nullptr;
  for (const RelationSpec &r : relations)
    if (sameName(r.name, name)) found = &r;
  return found;
}

const RelationSpec *relationFromAnother(const std::vector<RelationSpec> &relations,
                                        const std::string &table) {
  for (const RelationSpec &r : relations)
    if (sameName(r.table, table) && !sameName(r.foreignTable, table)) return &r;
  return nullptr;
}

const IndexSpec *indexUsing(const std::vector<IndexSpec> &indexes, const std::string &field) {
  for (const IndexSpec &ix : indexes)
    if (hasName(ix.fields, field)) return &ix;
  return nullptr;
}

const RelationSpec *relationUsing(const std::vector<RelationSpec> &relations, const std::string &table,
                                  const std::string &field) {
  for (const RelationSpec &r : relations)
    if ((sameName(r.foreignTable, table) && hasName(r.foreignFields, field)) ||
        (sameName(r.table, table) && hasName(r.fields, field)))
      return &r;
  return nullptr;
}

}  // namespace vantry::engine
