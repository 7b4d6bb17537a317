// Stored queries: Access keeps a query not as text but as rows of its query
// catalog, one per piece, each with an attribute saying which piece it is:
//
//   0 start, 255 end; 1 the query's type in the flag (with the target table
//   of an append or make-table in name1, the text of a definition or
//   pass-through query in the expression); 2 a parameter (name1, its type
//   in the flag); 3 options in the flag (2 DISTINCT, or for a union plain
//   UNION rather than UNION ALL; 8 DISTINCTROW, 16 TOP with the count in
//   name1, 32 PERCENT); 5 a table (name1, alias name2, or
//   the text of a union's part in the expression); 6 an output column
//   (expression, alias name1; the target field in name2 for appends and
//   updates); 7 a join (name1 and name2 the two sides, the condition in the
//   expression, the flag 1 inner, 2 left, 3 right); 8 WHERE; 9 GROUP BY;
//   10 HAVING; 11 ORDER BY (name1 "D" descending).
//
// rebuildQuery puts the pieces back together as the Access SQL the query
// shows in its SQL view; the engine translates that dialect when it runs.
#include <set>

#include "reader.h"

namespace vantry::engine::access {

namespace {

std::string bracket(const std::string &name) {
  if (name.empty() || name.front() == '[') return name;
  for (char c : name)
    if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '_')) return "[" + name + "]";
  return name;
}

const char *parameterType(int flag) {
  switch (flag) {
    case 1: return "Bit";
    case 2: return "Byte";
    case 3: return "Short";
    case 4: return "Long";
    case 5: return "Currency";
    case 6: return "IEEESingle";
    case 7: return "IEEEDouble";
    case 8: return "DateTime";
    case 9: return "Binary";
    case 11: return "LongBinary";
    case 12: return "Memo";
    case 15: return "Guid";
    case 16: return "Decimal";
    default: return "Text";
  }
}

std::string join(const std::vector<std::string> &parts, const char *sep) {
  std::string out;
  for (size_t i = 0; i < parts.size(); ++i) out += (i ? sep : "") + parts[i];
  return out;
}

// FROM: tables joined as the join rows say, the others after commas.
std::string fromClause(const std::vector<const QueryRow *> &tables, const std::vector<const QueryRow *> &joins) {
  struct Item {
    std::string text;
    std::set<std::string> keys;
    bool joined = false;
  };
  std::vector<Item> items;
  for (const QueryRow *t : tables) {
    Item it;
    if (t->name1.empty() && !t->expression.empty())
      it.text = "(" + t->expression + ")" + (t->name2.empty() ? "" : " AS " + bracket(t->name2));
    else
      it.text = bracket(t->name1) + (t->name2.empty() ? "" : " AS " + bracket(t->name2));
    it.keys.insert(t->name2.empty() ? t->name1 : t->name2);
    items.push_back(std::move(it));
  }
  auto find = [&](const std::string &key) -> int {
    for (size_t i = 0; i < items.size(); ++i)
      if (items[i].keys.count(key)) return int(i);
    return -1;
  };
  for (const QueryRow *j : joins) {
    int a = find(j->name1), b = find(j->name2);
    if (a < 0 || b < 0) continue;
    if (a == b) {
      // Another condition between tables already joined.
      std::string &t = items[a].text;
      if (!t.empty() && t.back() == ')') t.insert(t.size() - 1, " AND (" + j->expression + ")");
      continue;
    }
    const char *kind = j->flag == 2 ? " LEFT JOIN " : j->flag == 3 ? " RIGHT JOIN " : " INNER JOIN ";
    auto side = [](const Item &i) { return i.joined ? "(" + i.text + ")" : i.text; };
    Item merged;
    merged.text = side(items[a]) + kind + side(items[b]) + " ON (" + j->expression + ")";
    merged.keys = items[a].keys;
    merged.keys.insert(items[b].keys.begin(), items[b].keys.end());
    merged.joined = true;
    int lo = std::min(a, b), hi = std::max(a, b);
    items.erase(items.begin() + hi);
    items[lo] = std::move(merged);
  }
  std::vector<std::string> parts;
  for (const Item &i : items) parts.push_back(i.text);
  return join(parts, ", ");
}

}  // namespace

StoredQuery rebuildQuery(const std::string &name, const std::vector<QueryRow> &rows) {
  StoredQuery q;
  q.name = name;
  int options = 0;
  std::string target, top, typeText;
  std::vector<const QueryRow *> params, tables, columns, joins;
  std::vector<std::string> where, group, having, order;
  for (const QueryRow &r : rows) {
    switch (r.attribute) {
      case 1:
        q.type = r.flag;
        target = r.name1;
        typeText = r.expression;
        break;
      case 2: params.push_back(&r); break;
      case 3:
        options = r.flag;
        top = r.name1;
        break;
      case 5: tables.push_back(&r); break;
      case 6: columns.push_back(&r); break;
      case 7: joins.push_back(&r); break;
      case 8: where.push_back(r.expression); break;
      case 9: group.push_back(r.expression); break;
      case 10: having.push_back(r.expression); break;
      case 11: order.push_back(r.expression + (r.name1 == "D" || r.name1 == "d" ? " DESC" : "")); break;
      default: break;
    }
  }
  if (q.type == 7 || q.type == 8) {
    q.sql = typeText;
    return q;
  }
  std::string sql;
  if (!params.empty()) {
    std::vector<std::string> ps;
    for (const QueryRow *p : params) ps.push_back(bracket(p->name1) + " " + parameterType(p->flag));
    sql = "PARAMETERS " + join(ps, ", ") + ";\n";
  }
  std::string from = tables.empty() ? "" : " FROM " + fromClause(tables, joins);
  auto tail = [&](bool withOrder) {
    std::string t;
    if (!where.empty()) t += " WHERE " + join(where, " AND ");
    if (!group.empty() && q.type != 6) t += " GROUP BY " + join(group, ", ");
    if (!having.empty()) t += " HAVING " + join(having, " AND ");
    if (withOrder && !order.empty()) t += " ORDER BY " + join(order, ", ");
    return t;
  };
  auto outputs = [&](bool withAliases) {
    std::vector<std::string> cs;
    if (options & 1) cs.push_back("*");
    for (const QueryRow *c : columns)
      cs.push_back(c->expression + (withAliases && !c->name1.empty() ? " AS " + bracket(c->name1) : ""));
    return join(cs, ", ");
  };
  auto head = [&] {
    std::string h = "SELECT ";
    if (options & 2) h += "DISTINCT ";
    if (options & 8) h += "DISTINCTROW ";
    if ((options & 16) && !top.empty()) h += "TOP " + top + ((options & 32) ? " PERCENT " : " ");
    return h;
  };
  switch (q.type) {
    case 2:  // make-table
      sql += head() + outputs(true) + " INTO " + bracket(target) + from + tail(true);
      break;
    case 3: {  // append
      std::vector<std::string> fields;
      for (const QueryRow *c : columns) fields.push_back(bracket(c->name2.empty() ? c->name1 : c->name2));
      sql += "INSERT INTO " + bracket(target) + " (" + join(fields, ", ") + ") ";
      if (tables.empty()) {
        std::vector<std::string> vals;
        for (const QueryRow *c : columns) vals.push_back(c->expression);
        sql += "VALUES (" + join(vals, ", ") + ")";
      } else {
        std::vector<std::string> vals;
        for (const QueryRow *c : columns) vals.push_back(c->expression);
        sql += head() + join(vals, ", ") + from + tail(true);
      }
      break;
    }
    case 4: {  // update
      // Access writes the updated fields qualified ("Ducts.Width"); SQLite
      // takes them bare, and with one table to update they can only be its.
      std::vector<std::string> sets;
      std::string only;
      if (tables.size() == 1) only = tables.front()->name2.empty() ? tables.front()->name1 : tables.front()->name2;
      for (const QueryRow *c : columns) {
        std::string field = c->name2;
        for (const std::string &prefix : {only + ".", "[" + only + "]."})
          if (!only.empty() && field.size() > prefix.size() && field.compare(0, prefix.size(), prefix) == 0)
            field = field.substr(prefix.size());
        sets.push_back(field + " = " + c->expression);
      }
      sql += "UPDATE " + fromClause(tables, joins) + " SET " + join(sets, ", ") + tail(false);
      break;
    }
    case 5: {  // delete
      std::string what = tables.size() == 1 ? "*" : bracket(tables.front()->name2.empty() ? tables.front()->name1
                                                                                         : tables.front()->name2) +
                                                        ".*";
      sql += "DELETE " + what + from + tail(false);
      break;
    }
    case 6: {  // crosstab
      std::vector<std::string> value, rowsHead, pivot;
      for (const QueryRow *c : columns) {
        std::string e = c->expression + (c->name1.empty() ? "" : " AS " + bracket(c->name1));
        (c->flag == 1 ? pivot : c->flag == 2 ? rowsHead : value).push_back(c->flag == 1 ? c->expression : e);
      }
      std::vector<std::string> groups;
      for (const QueryRow &r : rows)
        if (r.attribute == 9 && r.flag != 1) groups.push_back(r.expression);
      sql += "TRANSFORM " + join(value, ", ") + " " + head() + join(rowsHead, ", ") + from + tail(false);
      if (!groups.empty()) sql += " GROUP BY " + join(groups, ", ");
      if (!order.empty()) sql += " ORDER BY " + join(order, ", ");
      sql += " PIVOT " + join(pivot, ", ");
      break;
    }
    case 9: {  // union
      std::vector<std::string> parts;
      for (const QueryRow *t : tables) parts.push_back(t->expression);
      // The option 2 asks for distinct rows; without it the parts are joined
      // with UNION ALL.
      sql += join(parts, (options & 2) ? " UNION " : " UNION ALL ");
      if (!order.empty()) sql += " ORDER BY " + join(order, ", ");
      break;
    }
    default:  // select
      sql += head() + outputs(true) + from + tail(true);
      break;
  }
  q.sql = sql;
  return q;
}

}  // namespace vantry::engine::access
