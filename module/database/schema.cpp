// The schema functions: tables and fields, indexes, relations and linked
// tables of the current database (the engine's Schema, engine/schema.h).
//
//   (vt_list_tables [queries])          table names; with T the stored queries and views too
//   (vt_structure table)                ((name type size required default counter) ...)
//   (vt_create_table table fields [key])
//                                       fields: ((name type [required [default]]) ...),
//                                       type an Access name ("Text(20)", "Long", "Counter" ...);
//                                       key: a field name or a list of them
//   (vt_modify_table table action ...)  "ADD" field, "DROP" name, "RENAME" name new-name,
//                                       "ALTER" field (new type, required, default)
//   (vt_rename_table table new-name)    (vt_delete_table table)
//   (vt_field_required table field [flag])
//                                       without flag: T when the field is required;
//                                       with it: makes it so (T)
//   (vt_attributes table [field])       Access's Attributes of the table or field
//   (vt_list_indexes table)             index names, the primary key as "PrimaryKey"
//   (vt_create_index table name fields [unique [primary [ignore-nulls]]])
//                                       fields: "A;-B" or ("A" "-B") ("-": descending)
//   (vt_indexUnique table index)        T or nil
//   (vt_indexFields table index)        ("A" "-B")
//   (vt_relationExists name) / (vt_relationExists table foreign-table)
//   (vt_relationDelete name)  (vt_relationCount)  (vt_relationInfo name-or-number)
//   (vt_link_table path table [local])  the table of another database file, under its own name
//                                       or `local`; the file as given or in a support folder
//
// Each answers nil when no database is open; a refusal is the engine's error
// (recorded, printed, nil). Missing arguments are status 1, arguments of the
// wrong type status 2, an unknown action or field type text status 3.
#include <algorithm>

#include "common/files.h"
#include "common/text.h"
#include "database/context.h"
#include "engine/schema.h"
#include "frame/implementations.h"
#include "frame/support.h"
#include "frame/value_list.h"

namespace vantry::lispfn {
namespace {

using database::EngineConnection;
using frame::ArgList;
using frame::ResultChain;

std::string utf8(const std::wstring &w) {
  return text::toUtf8(w);
}

std::wstring wide(const std::string &s) {
  return text::fromUtf8(s);
}

// Names of tables, fields, indexes and relations compare without regard to case.
bool sameName(const std::wstring &a, const std::wstring &b) {
  return text::upcase(a) == text::upcase(b);
}

// The current connection's schema, or null (nil answered) when none is open.
engine::Schema *currentSchema(EngineConnection *c) {
  *c = database::currentConnection();
  return *c ? (*c)->schema() : nullptr;
}

// Ends a call whose engine operation answered `ok`: T, or the engine's error.
int answer(const EngineConnection &c, bool ok) {
  if (ok)
    acedRetT();
  else
    database::reportEngineError(c);
  return 0;
}

// Reads one string argument: status 1 when there is none, 2 when it is not a string.
int readName(ArgList &args, std::wstring &out) {
  if (!args.cursor()) return 1;
  return frame::readString(args.cursor(), out) ? 0 : 2;
}

// A default value as SQL text: a string as a literal, a number as itself,
// T as yes (-1). False for any other value.
bool defaultText(const resbuf *rb, std::string *out) {
  switch (rb->restype) {
    case RTSTR: {
      std::string s = utf8(rb->resval.rstring);
      std::string q = "'";
      for (char ch : s) q += ch == '\'' ? std::string("''") : std::string(1, ch);
      *out = q + "'";
      return true;
    }
    case RTSHORT:
      *out = std::to_string(rb->resval.rint);
      return true;
    case RTLONG:
      *out = std::to_string(rb->resval.rlong);
      return true;
    case RTREAL: {
      char buf[40];
      snprintf(buf, sizeof buf, "%.17g", rb->resval.rreal);
      *out = buf;
      return true;
    }
    case RTT:
      *out = "-1";
      return true;
    case RTNIL:
      out->clear();
      return true;
    default:
      return false;
  }
}

// "Text(20)", "Decimal(10,2)", "long": the type's name and its numbers.
// Status 3 for a text that is no type at all.
int parseType(const std::wstring &text, engine::FieldSpec *f) {
  std::string t = utf8(text);
  size_t paren = t.find('(');
  f->type = t.substr(0, paren);
  while (!f->type.empty() && f->type.back() == ' ') f->type.pop_back();
  std::string u = f->type;
  for (char &ch : u) ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
  static const std::pair<const char *, const char *> kSynonyms[] = {
      {"AUTONUMBER", "Counter"}, {"BOOLEAN", "YesNo"}, {"DATE", "DateTime"}, {"OLEOBJECT", "OLE"},
      {"LONGTEXT", "Memo"},      {"SHORT", "Integer"}, {"NUMBER", "Double"}};
  for (const auto &[from, to] : kSynonyms)
    if (u == from) f->type = to;
  if (paren != std::string::npos) {
    int a = 0, b = 0;
    if (std::sscanf(t.c_str() + paren, "(%d,%d)", &a, &b) == 2 || std::sscanf(t.c_str() + paren, "(%d)", &a) == 1) {
      f->size = a;
      f->scale = b;
    } else {
      return 3;
    }
  }
  return f->type.empty() ? 3 : 0;
}

// One field as a list: (name type [required [default]]), or (name . type).
// `cur` is on its RTLB and moves past its RTLE. 0, or the status.
int readField(resbuf *&cur, engine::FieldSpec *f) {
  if (!cur || cur->restype != RTLB) return 2;
  cur = cur->rbnext;
  std::wstring name, type;
  if (!frame::readString(cur, name)) return 2;
  if (cur && cur->restype == RTDOTE) cur = cur->rbnext;
  if (!frame::readString(cur, type)) return 2;
  f->name = utf8(name);
  if (int st = parseType(type, f)) return st;
  if (cur && cur->restype != RTLE) {
    f->required = cur->restype != RTNIL;
    cur = cur->rbnext;
  }
  if (cur && cur->restype != RTLE) {
    if (!defaultText(cur, &f->defaultValue)) return 2;
    cur = cur->rbnext;
  }
  if (!cur || cur->restype != RTLE) return 2;
  cur = cur->rbnext;
  return 0;
}

// Names as a string ("A;B", each may begin with "-" or "+") or a list of such strings.
int readNames(resbuf *&cur, std::vector<std::string> *names, std::vector<bool> *descending) {
  std::vector<std::wstring> items;
  std::wstring one;
  if (!cur) return 1;
  if (cur->restype == RTLB) {
    cur = cur->rbnext;
    while (cur && cur->restype != RTLE) {
      if (!frame::readString(cur, one)) return 2;
      items.push_back(one);
    }
    if (!cur) return 2;
    cur = cur->rbnext;
  } else if (frame::readString(cur, one)) {
    size_t start = 0;
    while (start <= one.size()) {
      size_t semi = one.find(L';', start);
      if (semi == std::wstring::npos) semi = one.size();
      items.push_back(one.substr(start, semi - start));
      start = semi + 1;
    }
  } else {
    return 2;
  }
  for (std::wstring &item : items) {
    size_t b = item.find_first_not_of(L' ');
    item = b == std::wstring::npos ? std::wstring() : item.substr(b);
    bool desc = !item.empty() && item[0] == L'-';
    if (!item.empty() && (item[0] == L'-' || item[0] == L'+')) item.erase(0, 1);
    if (item.empty()) return 3;
    names->push_back(utf8(item));
    if (descending) descending->push_back(desc);
  }
  return 0;
}

void returnNames(const std::vector<std::string> &names) {
  ResultChain out;
  if (names.empty()) return;
  out.add(RTLB);
  for (const std::string &n : names) out.addText(wide(n).c_str());
  out.add(RTLE);
  out.returnToHost();
}

// --- Tables -----------------------------------------------------------------------------------

int listTablesBody() {
  acedRetNil();
  EngineConnection c;
  engine::Schema *s = currentSchema(&c);
  if (!s) return 0;
  ArgList args;
  bool queries = false;
  if (args.cursor()) frame::readBoolean(args.cursor(), queries);
  std::vector<std::string> names;
  if (!s->ListTables(queries, &names)) return answer(c, false);
  returnNames(names);
  return 0;
}

int structureBody() {
  acedRetNil();
  EngineConnection c;
  engine::Schema *s = currentSchema(&c);
  if (!s) return 0;
  ArgList args;
  std::wstring table;
  if (int st = readName(args, table)) return st;
  std::vector<engine::FieldSpec> fields;
  if (!s->Structure(utf8(table), &fields)) return answer(c, false);
  ResultChain out;
  out.add(RTLB);
  for (const engine::FieldSpec &f : fields) {
    out.add(RTLB);
    out.addText(wide(f.name).c_str());
    out.addText(wide(f.type).c_str());
    if (resbuf *rb = out.add(RTSHORT)) rb->resval.rint = static_cast<short>(f.size);
    out.add(f.required ? RTT : RTNIL);
    // The default as Access keeps it: a text without its quotes, a number as a number.
    const std::string &d = f.defaultValue;
    std::string inner = d;
    while (inner.size() >= 2 && inner.front() == '(' && inner.back() == ')') inner = inner.substr(1, inner.size() - 2);
    char *end = nullptr;
    double number = inner.empty() ? 0 : std::strtod(inner.c_str(), &end);
    if (d.empty()) {
      out.add(RTNIL);
    } else if (end && *end == '\0') {
      bool whole = number == static_cast<double>(static_cast<int32_t>(number)) && inner.find_first_of(".eE") == std::string::npos;
      if (resbuf *rb = out.add(whole ? RTLONG : RTREAL)) {
        if (whole)
          rb->resval.rlong = static_cast<int32_t>(number);
        else
          rb->resval.rreal = number;
      }
    } else if (inner.size() >= 2 && inner.front() == '\'' && inner.back() == '\'') {
      std::string t;
      for (size_t i = 1; i + 1 < inner.size(); ++i) {
        t += inner[i];
        if (inner[i] == '\'' && inner[i + 1] == '\'') ++i;
      }
      out.addText(wide(t).c_str());
    } else {
      out.addText(wide(d).c_str());
    }
    out.add(f.type == "Counter" ? RTT : RTNIL);
    out.add(RTLE);
  }
  out.add(RTLE);
  out.returnToHost();
  return 0;
}

int createTableBody() {
  acedRetNil();
  EngineConnection c;
  engine::Schema *s = currentSchema(&c);
  if (!s) return 0;
  ArgList args;
  std::wstring table;
  if (int st = readName(args, table)) return st;
  resbuf *&cur = args.cursor();
  if (!cur) return 1;
  if (cur->restype != RTLB) return 2;
  cur = cur->rbnext;
  std::vector<engine::FieldSpec> fields;
  while (cur && cur->restype != RTLE) {
    engine::FieldSpec f;
    if (int st = readField(cur, &f)) return st;
    fields.push_back(f);
  }
  if (!cur) return 2;
  cur = cur->rbnext;
  std::vector<std::string> key;
  if (cur && cur->restype != RTNIL) {
    if (int st = readNames(cur, &key, nullptr)) return st;
  }
  return answer(c, s->CreateTable(utf8(table), fields, key));
}

int modifyTableBody() {
  acedRetNil();
  EngineConnection c;
  engine::Schema *s = currentSchema(&c);
  if (!s) return 0;
  ArgList args;
  std::wstring table, action, name, newName;
  if (int st = readName(args, table)) return st;
  if (int st = readName(args, action)) return st;
  std::wstring a = text::upcase(action);
  resbuf *&cur = args.cursor();
  if (a == L"ADD" || a == L"ALTER" || a == L"MODIFY") {
    if (!cur) return 1;
    engine::FieldSpec f;
    if (int st = readField(cur, &f)) return st;
    return answer(c, a == L"ADD" ? s->AddField(utf8(table), f) : s->AlterField(utf8(table), f));
  }
  if (a == L"DROP" || a == L"DELETE") {
    if (int st = readName(args, name)) return st;
    return answer(c, s->DropField(utf8(table), utf8(name)));
  }
  if (a == L"RENAME") {
    if (int st = readName(args, name)) return st;
    if (int st = readName(args, newName)) return st;
    return answer(c, s->RenameField(utf8(table), utf8(name), utf8(newName)));
  }
  return 3;
}

int renameTableBody() {
  acedRetNil();
  EngineConnection c;
  engine::Schema *s = currentSchema(&c);
  if (!s) return 0;
  ArgList args;
  std::wstring table, newName;
  if (int st = readName(args, table)) return st;
  if (int st = readName(args, newName)) return st;
  return answer(c, s->RenameTable(utf8(table), utf8(newName)));
}

int deleteTableBody() {
  acedRetNil();
  EngineConnection c;
  engine::Schema *s = currentSchema(&c);
  if (!s) return 0;
  ArgList args;
  std::wstring table;
  if (int st = readName(args, table)) return st;
  return answer(c, s->DeleteTable(utf8(table)));
}

int fieldRequiredBody() {
  acedRetNil();
  EngineConnection c;
  engine::Schema *s = currentSchema(&c);
  if (!s) return 0;
  ArgList args;
  std::wstring table, field;
  if (int st = readName(args, table)) return st;
  if (int st = readName(args, field)) return st;
  if (args.cursor() && args.cursor()->restype != RTLE) {
    bool flag = false;
    frame::readBoolean(args.cursor(), flag);
    return answer(c, s->SetRequired(utf8(table), utf8(field), flag));
  }
  std::vector<engine::FieldSpec> fields;
  if (!s->Structure(utf8(table), &fields)) return answer(c, false);
  for (const engine::FieldSpec &f : fields)
    if (sameName(wide(f.name), field)) {
      if (f.required) acedRetT();
      return 0;
    }
  database::setLastError(engine::errc::kItemNotFound, L"Item not found in this collection.");
  database::printEngineError(engine::errc::kItemNotFound, L"Item not found in this collection.");
  return 0;
}

int attributesBody() {
  acedRetNil();
  EngineConnection c;
  engine::Schema *s = currentSchema(&c);
  if (!s) return 0;
  ArgList args;
  std::wstring table, field;
  if (int st = readName(args, table)) return st;
  int32_t value = 0;
  bool ok;
  if (args.cursor()) {
    if (!frame::readString(args.cursor(), field)) return 2;
    ok = s->FieldAttributes(utf8(table), utf8(field), &value);
  } else {
    ok = s->TableAttributes(utf8(table), &value);
  }
  if (!ok) return answer(c, false);
  frame::returnInteger(value);
  return 0;
}

// --- Indexes ----------------------------------------------------------------------------------

// The index of a table by name; reports 3265 for an unknown one.
bool findIndex(const EngineConnection &c, engine::Schema *s, const std::wstring &table, const std::wstring &name,
               engine::IndexSpec *out) {
  std::vector<engine::IndexSpec> indexes;
  if (!s->ListIndexes(utf8(table), &indexes)) {
    database::reportEngineError(c);
    return false;
  }
  for (engine::IndexSpec &ix : indexes)
    if (sameName(wide(ix.name), name)) {
      *out = std::move(ix);
      return true;
    }
  std::wstring d = L"Item not found in this collection (no index '" + name + L"' in table '" + table + L"').";
  database::setLastError(engine::errc::kItemNotFound, d);
  database::printEngineError(engine::errc::kItemNotFound, d);
  return false;
}

int listIndexesBody() {
  acedRetNil();
  EngineConnection c;
  engine::Schema *s = currentSchema(&c);
  if (!s) return 0;
  ArgList args;
  std::wstring table;
  if (int st = readName(args, table)) return st;
  std::vector<engine::IndexSpec> indexes;
  if (!s->ListIndexes(utf8(table), &indexes)) return answer(c, false);
  std::vector<std::string> names;
  for (const engine::IndexSpec &ix : indexes) names.push_back(ix.name);
  returnNames(names);
  return 0;
}

int createIndexBody() {
  acedRetNil();
  EngineConnection c;
  engine::Schema *s = currentSchema(&c);
  if (!s) return 0;
  ArgList args;
  std::wstring table, name;
  if (int st = readName(args, table)) return st;
  if (int st = readName(args, name)) return st;
  engine::IndexSpec ix;
  ix.name = utf8(name);
  if (int st = readNames(args.cursor(), &ix.fields, &ix.descending)) return st;
  bool *flags[] = {&ix.unique, &ix.primary, &ix.ignoreNulls};
  for (bool *flag : flags)
    if (args.cursor()) frame::readBoolean(args.cursor(), *flag);
  if (ix.primary) ix.unique = true;
  return answer(c, s->CreateIndex(utf8(table), ix));
}

int indexUniqueBody() {
  acedRetNil();
  EngineConnection c;
  engine::Schema *s = currentSchema(&c);
  if (!s) return 0;
  ArgList args;
  std::wstring table, name;
  if (int st = readName(args, table)) return st;
  if (int st = readName(args, name)) return st;
  engine::IndexSpec ix;
  if (findIndex(c, s, table, name, &ix) && ix.unique) acedRetT();
  return 0;
}

int indexFieldsBody() {
  acedRetNil();
  EngineConnection c;
  engine::Schema *s = currentSchema(&c);
  if (!s) return 0;
  ArgList args;
  std::wstring table, name;
  if (int st = readName(args, table)) return st;
  if (int st = readName(args, name)) return st;
  engine::IndexSpec ix;
  if (!findIndex(c, s, table, name, &ix)) return 0;
  std::vector<std::string> names;
  for (size_t i = 0; i < ix.fields.size(); ++i)
    names.push_back((i < ix.descending.size() && ix.descending[i] ? "-" : "") + ix.fields[i]);
  returnNames(names);
  return 0;
}

// --- Relations --------------------------------------------------------------------------------

int relationExistsBody() {
  acedRetNil();
  EngineConnection c;
  engine::Schema *s = currentSchema(&c);
  if (!s) return 0;
  ArgList args;
  std::wstring name, foreign;
  if (int st = readName(args, name)) return st;
  bool pair = args.cursor() != nullptr;
  if (pair && !frame::readString(args.cursor(), foreign)) return 2;
  std::vector<engine::RelationSpec> relations;
  if (!s->ListRelations(&relations)) return answer(c, false);
  for (const engine::RelationSpec &r : relations) {
    bool match = pair ? sameName(wide(r.table), name) && sameName(wide(r.foreignTable), foreign)
                      : sameName(wide(r.name), name);
    if (match) {
      acedRetT();
      break;
    }
  }
  return 0;
}

int relationDeleteBody() {
  acedRetNil();
  EngineConnection c;
  engine::Schema *s = currentSchema(&c);
  if (!s) return 0;
  ArgList args;
  std::wstring name;
  if (int st = readName(args, name)) return st;
  return answer(c, s->DeleteRelation(utf8(name)));
}

int relationCountBody() {
  acedRetNil();
  EngineConnection c;
  engine::Schema *s = currentSchema(&c);
  if (!s) return 0;
  std::vector<engine::RelationSpec> relations;
  if (!s->ListRelations(&relations)) return answer(c, false);
  frame::returnInteger(static_cast<int32_t>(relations.size()));
  return 0;
}

int relationInfoBody() {
  acedRetNil();
  EngineConnection c;
  engine::Schema *s = currentSchema(&c);
  if (!s) return 0;
  ArgList args;
  resbuf *&cur = args.cursor();
  if (!cur) return 1;
  std::wstring name;
  int number = -1;
  if (cur->restype == RTSTR)
    frame::readString(cur, name);
  else if (cur->restype == RTSHORT || cur->restype == RTLONG)
    frame::readInteger(cur, number);
  else
    return 2;
  std::vector<engine::RelationSpec> relations;
  if (!s->ListRelations(&relations)) return answer(c, false);
  const engine::RelationSpec *r = nullptr;
  if (number >= 0 && number < static_cast<int>(relations.size())) r = &relations[static_cast<size_t>(number)];
  for (const engine::RelationSpec &each : relations)
    if (number < 0 && sameName(wide(each.name), name)) r = &each;
  if (!r) {
    std::wstring d = L"Item not found in this collection (no relation " +
                     (number < 0 ? L"'" + name + L"'" : std::to_wstring(number)) + L").";
    database::setLastError(engine::errc::kItemNotFound, d);
    database::printEngineError(engine::errc::kItemNotFound, d);
    return 0;
  }
  ResultChain out;
  auto pair = [&](const wchar_t *key, const std::string &value) {
    out.add(RTLB);
    out.addText(key);
    out.add(RTDOTE);
    out.addText(wide(value).c_str());
    out.add(RTLE);
  };
  out.add(RTLB);
  pair(L"Name", r->name);
  pair(L"Table", r->table);
  pair(L"ForeignTable", r->foreignTable);
  out.add(RTLB);
  out.addText(L"Fields");
  for (size_t i = 0; i < r->fields.size(); ++i) pair(wide(r->fields[i]).c_str(), r->foreignFields[i]);
  out.add(RTLE);
  pair(L"OnUpdate", r->onUpdate);
  pair(L"OnDelete", r->onDelete);
  out.add(RTLE);
  out.returnToHost();
  return 0;
}

// --- Linked tables ----------------------------------------------------------------------------

// A linked database file as the product names it: the path as given, else
// in each support folder (ACADPREFIX) joined with "\", as vt_connect looks.
std::string findLinkedFile(const std::wstring &path) {
  if (files::isFile(path)) return text::nativePath(path);
  if (std::wstring found = frame::findInSupportFolders(path); !found.empty()) return text::nativePath(found);
  return text::nativePath(path);
}

int linkTableBody() {
  acedRetNil();
  EngineConnection c;
  engine::Schema *s = currentSchema(&c);
  if (!s) return 0;
  ArgList args;
  std::wstring path, table, local;
  if (int st = readName(args, path)) return st;
  if (int st = readName(args, table)) return st;
  if (args.cursor() && args.cursor()->restype != RTNIL)
    if (int st = readName(args, local)) return st;
  return answer(c, s->LinkTable(findLinkedFile(path), utf8(table), utf8(local)));
}

}  // namespace

int vt_list_tables() { return database::catchEngineError(listTablesBody); }
int vt_structure() { return database::catchEngineError(structureBody); }
int vt_create_table() { return database::catchEngineError(createTableBody); }
int vt_modify_table() { return database::catchEngineError(modifyTableBody); }
int vt_rename_table() { return database::catchEngineError(renameTableBody); }
int vt_delete_table() { return database::catchEngineError(deleteTableBody); }
int vt_field_required() { return database::catchEngineError(fieldRequiredBody); }
int vt_attributes() { return database::catchEngineError(attributesBody); }
int vt_list_indexes() { return database::catchEngineError(listIndexesBody); }
int vt_create_index() { return database::catchEngineError(createIndexBody); }
int vt_indexUnique() { return database::catchEngineError(indexUniqueBody); }
int vt_indexFields() { return database::catchEngineError(indexFieldsBody); }
int vt_relationExists() { return database::catchEngineError(relationExistsBody); }
int vt_relationDelete() { return database::catchEngineError(relationDeleteBody); }
int vt_relationCount() { return database::catchEngineError(relationCountBody); }
int vt_relationInfo() { return database::catchEngineError(relationInfoBody); }
int vt_link_table() { return database::catchEngineError(linkTableBody); }

}  // namespace vantry::lispfn
