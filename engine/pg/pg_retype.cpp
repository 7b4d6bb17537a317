// A field's new type on the server (Schema::AlterField): the values are
// converted in place, in one transaction with the field's new default,
// required flag and byte check. What the SQLite engine refuses is refused
// here before anything changes: a value that does not fit the new type
// (3421), a text longer than a new text size (3163); whatever else the
// server's conversion refuses is 3421 too, and rolls the change back.
#include "../schema_rules.h"
#include "pg_text.h"
#include "pg_schema.h"

namespace vantry::engine::pg {

namespace {

bool isText(const std::string &type) {
  return type == "text" || startsWith(type, "character");
}
bool isWhole(const std::string &type) {
  return type == "smallint" || type == "integer" || type == "bigint";
}
bool isNumber(const std::string &type) {
  return isWhole(type) || type == "real" || type == "double precision" || startsWith(type, "numeric");
}
bool isDate(const std::string &type) {
  return startsWith(type, "timestamp") || type == "date";
}

// How the values of column `c` of server type `from` become those of an
// Access type `to` (its server type `target`): the USING expression, and a
// condition that holds for a value that does not fit (empty: the server's
// conversion decides).
struct Conversion {
  std::string expr;
  std::string misfit;
};

Conversion conversion(const std::string &c, const std::string &from, const std::string &to, const std::string &target) {
  std::string t = upper(to);
  // A yes/no value as Access's number for it.
  std::string number = from == "boolean" ? "(CASE WHEN " + c + " THEN -1 ELSE 0 END)" : c;
  auto whole = [&](const char *lo, const char *hi) {
    Conversion v;
    if (from == "boolean" || isWhole(from)) {
      v.expr = number + "::" + target;
      v.misfit = number + " NOT BETWEEN " + lo + " AND " + hi;
    } else {
      // A whole number only: "12" and 12.0 fit, "x" and 2.5 do not.
      v.expr = "trim(" + c + "::text)::numeric::" + target;
      v.misfit = "CASE WHEN " + c + " IS NULL THEN false WHEN trim(" + c +
                 "::text) !~ '^[-+]?[0-9]+(\\.0*)?$' THEN true ELSE trim(" + c + "::text)::numeric NOT BETWEEN " + lo +
                 " AND " + hi + " END";
    }
    return v;
  };
  if (t == "BYTE") return whole("0", "255");
  if (t == "INTEGER") return whole("-32768", "32767");
  if (t == "LONG") return whole("-2147483648", "2147483647");
  if (t == "SINGLE" || t == "DOUBLE" || t == "CURRENCY" || t == "DECIMAL") {
    if (from == "boolean" || isNumber(from)) return {number + "::" + target, ""};
    return {"trim(" + c + "::text)::" + target,
            "CASE WHEN " + c + " IS NULL THEN false ELSE trim(" + c +
                "::text) !~ '^[-+]?([0-9]+\\.?[0-9]*|\\.[0-9]+)([eE][-+]?[0-9]+)?$' END"};
  }
  if (t == "YESNO") {
    if (from == "boolean") return {c, ""};
    if (isNumber(from)) return {"(" + c + " <> 0)", ""};
    std::string u = "upper(trim(" + c + "::text))";
    return {"CASE WHEN " + u + " IN ('TRUE', 'YES', 'ON', '-1', '1') THEN true WHEN " + u +
                " IN ('FALSE', 'NO', 'OFF', '0') THEN false END",
            c + " IS NOT NULL AND " + u + " NOT IN ('TRUE', 'YES', 'ON', '-1', '1', 'FALSE', 'NO', 'OFF', '0')"};
  }
  if (t == "DATETIME") {
    if (isDate(from)) return {c + "::timestamp(0)", ""};
    if (isText(from)) return {"trim(" + c + ")::timestamp(0)", ""};
    return {"NULL", c + " IS NOT NULL"};
  }
  if (t == "TEXT" || t == "MEMO") {
    if (from == "bytea") return {"NULL", c + " IS NOT NULL"};
    // Not cast to the new size: the server's cast would cut a longer text.
    return {number + "::text", ""};
  }
  if (t == "OLE") {
    if (from == "bytea") return {c, ""};
    return {"convert_to(" + c + "::text, 'UTF8')", ""};
  }
  return {c + "::" + target, ""};
}

}  // namespace

bool PgSchema::AlterField(const std::string &table, const FieldSpec &field) {
  e_.clearError();
  Table t;
  std::vector<Column> cols;
  const Column *col = fieldToChange(table, field.name, &t, &cols);
  if (!col) return false;
  std::string type;
  bool byte = false;
  if (!serverType(field, &type, &byte)) return false;
  if (col->counter != (upper(field.type) == "COUNTER"))
    return e_.fail(errc::kNotSupported, "The counter of a table cannot be changed into another type, "
                                        "nor a field into a counter.");
  std::vector<RelationSpec> relations;
  if (!ListRelations(&relations)) return false;
  if (const RelationSpec *r = relationUsing(relations, t.name, col->name))
    return e_.fail(errc::kInRelationship, "Cannot change the field '" + col->name + "': it is part of the relation '" +
                                              r->name + "'.");
  std::string name = col->name, q = quoteIdent(name);
  if (col->counter) type = "integer";  // a counter stays one: only its default and flag are changed
  Conversion conv = conversion(q, col->type, field.type, type);
  std::string misfit = conv.misfit;
  long misfitError = errc::kConversion;
  std::string misfitText = "The values of field '" + name + "' do not all fit the type " + field.type + ".";
  if (upper(field.type) == "TEXT") {
    int n = field.size ? field.size : 255;
    misfit = "length(" + conv.expr + ") > " + std::to_string(n);
    misfitError = errc::kFieldTooSmall;
    misfitText = "The field '" + name + "' is too small for the text it holds (" + std::to_string(n) + " characters).";
  }
  if (!misfit.empty()) {
    Result r = e_.exec("SELECT 1 FROM " + t.qualified + " WHERE " + misfit + " LIMIT 1");
    if (!r) return false;
    if (PQntuples(r.get()) > 0) return e_.fail(misfitError, misfitText);
  }
  if (field.required) {
    Result r = e_.exec("SELECT 1 FROM " + t.qualified + " WHERE " + q + " IS NULL LIMIT 1");
    if (!r) return false;
    if (PQntuples(r.get()) > 0)
      return e_.fail(errc::kRequired,
                     "The field '" + name + "' cannot be made required: some records hold no value in it.");
  }
  const std::string alter = "ALTER TABLE " + t.qualified + " ALTER COLUMN " + q;
  std::vector<std::string> steps;
  if (!col->counter) steps.push_back(alter + " DROP DEFAULT");  // an old default may not convert
  for (const std::string &check : col->byteChecks)
    steps.push_back("ALTER TABLE " + t.qualified + " DROP CONSTRAINT " + quoteIdent(check));
  if (!col->counter) steps.push_back(alter + " TYPE " + type + " USING " + conv.expr);
  // A key's fields stay required: the server holds no null in a primary key.
  std::vector<IndexSpec> indexes;
  if (!ListIndexes(t.name, &indexes)) return false;
  bool inKey = false;
  for (const IndexSpec &ix : indexes)
    if (ix.primary)
      for (const std::string &f : ix.fields) inKey |= f == name;
  steps.push_back(alter + (field.required || col->counter || inKey ? " SET" : " DROP") + " NOT NULL");
  if (!field.defaultValue.empty() && !col->counter)
    steps.push_back(alter + " SET DEFAULT " + defaultSql(field.defaultValue, type));
  if (byte) steps.push_back("ALTER TABLE " + t.qualified + " ADD CHECK (" + q + " BETWEEN 0 AND 255)");
  forget(t.name);
  if (change(steps)) return true;
  if (explainDependents("the field '" + name + "'")) return false;
  // The conversion the checks above let through and the server refused.
  const std::string &state = e_.lastState_;
  if (startsWith(state, "22") || state == "23514" || state == "42804" || state == "42846")
    return e_.fail(errc::kConversion, misfitText + " (" + e_.error_.description + ")");
  return false;
}

}  // namespace vantry::engine::pg
