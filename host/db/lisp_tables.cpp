// The symbol table and dictionary built-ins of the host's AutoLISP:
// tblsearch, tblnext, tblobjname, namedobjdict, dictsearch, dictnext and
// regapp, over the working drawing.
//
// Tables are named LAYER, LTYPE, STYLE, BLOCK and APPID; DIMSTYLE gives the
// dimension styles, VPORT, VIEW and UCS the records the drawing keeps as a
// file gave them (Standard and *Active are always there). A record reads as (0 . type) (2 . name)
// (70 . flags) and its other fields, without handles and markers; a block as
// its name, flags, (10 . origin) and (-2 . first entity). The layout blocks
// *Model_Space and *Paper_Space are not listed. tblnext and dictnext keep a
// cursor per drawing and table or dictionary.
#include <map>
#include <set>

#include "db/lisp_data.h"
#include "lisp/lisp.h"
#include "session/session.h"

namespace vantry::host {
namespace {

using lisp::Interp;
using lisp::ListBuilder;
using lisp::Value;

AcDbDatabase *drawing(Interp &in) {
  AcDbDatabase *db = workingDatabase();
  if (!db) in.error(L"no drawing is open");
  return db;
}

AcDbObjectId tableOf(AcDbDatabase *db, const std::wstring &name) {
  std::wstring t = upperKey(name);
  if (t == L"LAYER") return db->layerTableId();
  if (t == L"LTYPE") return db->linetypeTableId();
  if (t == L"STYLE") return db->textStyleTableId();
  if (t == L"BLOCK") return db->blockTableId();
  if (t == L"APPID") return db->regAppTableId();
  return AcDbObjectId::kNull;
}

bool listed(AcDbObjectId rec) {
  if (rec.isNull() || rec.isErased()) return false;
  auto *btr = AcDbBlockTableRecord::cast(objectOf(rec));
  return !(btr && btr->isLayout());
}

// The record as tblsearch and tblnext give it.
Value recordData(AcDbObjectId rec) {
  AcDbObject *obj = objectOf(rec);
  AcDbDxfFiler f;
  obj->dxfOutFields(&f);
  ListBuilder b;
  b.add(lisp::cons(Value::integer(0), lisp::makeString(obj->isA()->dxfName() == std::wstring(L"BLOCK_RECORD")
                                                           ? L"BLOCK"
                                                           : obj->isA()->dxfName())));
  for (const auto &it : f.items()) {
    switch (it.code) {
      case 5:
      case 100:
      case 102:
      case 330:
      case 290:
      case 370:
      case 390:
        continue;
      default:
        break;
    }
    Value v;
    if (it.dims) {
      ListBuilder p;
      for (int i = 0; i < it.dims; ++i) p.add(Value::real(it.real[i]));
      v = p.take();
    } else if (!it.text.empty() || rbKind(it.code) == RbKind::String) {
      v = lisp::makeString(it.text);
    } else if (rbKind(it.code) == RbKind::Real) {
      v = Value::real(it.real[0]);
    } else {
      v = Value::integer(int32_t(it.integer));
    }
    b.add(lisp::cons(Value::integer(it.code), v));
  }
  if (auto *btr = AcDbBlockTableRecord::cast(obj)) {
    for (AcDbObjectId e : btr->entityIds())
      if (!e.isErased()) {
        b.add(lisp::cons(Value::integer(-2), enameValue(e)));
        break;
      }
  }
  return b.take();
}

// Cursors: the index in a table's record order (or a dictionary's entries)
// of the record tblnext (dictnext) gives next.
std::map<std::pair<int64_t, uint64_t>, size_t> &cursors() {
  static auto *m = new std::map<std::pair<int64_t, uint64_t>, size_t>();
  return *m;
}

std::map<std::pair<int64_t, std::wstring>, size_t> &extraCursors() {
  static auto *m = new std::map<std::pair<int64_t, std::wstring>, size_t>();
  return *m;
}

size_t &cursorOf(AcDbObjectId container) {
  return cursors()[{container.database()->serial(), container.handle().value()}];
}

// Dimension styles (kept as their groups) and the active viewport, which
// the drawing holds beside its modelled tables: every saved drawing has
// the Standard style and the *Active viewport (host/dxf/fixed.cpp writes
// them when the drawing gave none).
Value groupsData(const wchar_t *type, const std::vector<AcDbDxfFiler::Item> &items) {
  ListBuilder b;
  b.add(lisp::cons(Value::integer(0), lisp::makeString(type)));
  for (const auto &it : items) {
    if (it.code == 5 || it.code == 100 || it.code == 102 || it.code == 105 || it.code == 330 ||
        it.code == 360)
      continue;
    if (it.code >= 340 && it.code <= 349) continue;  // references to styles and blocks by handle
    Value v;
    if (it.dims) {
      ListBuilder p;
      for (int i = 0; i < it.dims; ++i) p.add(Value::real(it.real[i]));
      v = p.take();
    } else if (rbKind(it.code) == RbKind::String) {
      v = lisp::makeString(it.text);
    } else if (rbKind(it.code) == RbKind::Real) {
      v = Value::real(it.real[0]);
    } else {
      v = Value::integer(int32_t(it.integer));
    }
    b.add(lisp::cons(Value::integer(it.code), v));
  }
  return b.take();
}

// Records of the tables the database keeps as a file gave them (dimension
// styles, viewports, views, UCSs), with the Standard dimension style and the
// *Active viewport that every drawing has even where its file named none.
std::vector<std::pair<std::wstring, Value>> extraRecords(AcDbDatabase *db, const std::wstring &table) {
  std::vector<std::pair<std::wstring, Value>> out;
  std::wstring t = upperKey(table);
  if (t != L"DIMSTYLE" && t != L"VPORT" && t != L"VIEW" && t != L"UCS") return out;
  std::set<std::wstring> names;
  if (auto kept = db->impl()->keptTables.find(t); kept != db->impl()->keptTables.end())
    for (AcDbObjectId id : kept->second.records) {
      auto *s = VerbatimObject::cast(objectOf(id));
      if (!s || s->isErased() || !names.insert(upperKey(s->name())).second) continue;
      AcDbDxfFiler f;
      s->dxfOutFields(&f);
      out.emplace_back(s->name(), groupsData(t.c_str(), f.items()));
    }
  if (t == L"DIMSTYLE" && !names.count(L"STANDARD")) {
    AcDbDxfFiler f;
    f.writeString(2, L"Standard");
    f.writeInt16(70, 0);
    out.emplace(out.begin(), L"Standard", groupsData(L"DIMSTYLE", f.items()));
  } else if (t == L"VPORT" && !names.count(L"*ACTIVE")) {
    AcDbDxfFiler f;
    f.writeString(2, L"*Active");
    f.writeInt16(70, 0);
    f.writePoint2d(10, AcGePoint2d(0, 0));
    f.writePoint2d(11, AcGePoint2d(1, 1));
    f.writePoint3d(16, AcGePoint3d(0, 0, 1));
    f.writeDouble(41, 1.5);
    out.emplace_back(L"*Active", groupsData(L"VPORT", f.items()));
  }
  return out;
}

Value fTblsearch(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 2, 3);
  AcDbObjectId table = tableOf(drawing(in), lisp::strArg(in, args[0]));
  const std::wstring &name = lisp::strArg(in, args[1]);
  if (table.isNull()) {
    for (auto &[key, data] : extraRecords(drawing(in), lisp::strArg(in, args[0])))
      if (upperKey(key) == upperKey(name)) return data;
    return Value();
  }
  AcDbObjectId rec = recordId(table, name);
  if (!listed(rec)) return Value();
  if (nargs == 3 && !args[2].isNil()) {
    const auto &order = static_cast<AcDbSymbolTable *>(objectOf(table))->recordIds();
    for (size_t i = 0; i < order.size(); ++i)
      if (order[i] == rec) cursorOf(table) = i + 1;
  }
  return recordData(rec);
}

Value fTblnext(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 2);
  AcDbObjectId table = tableOf(drawing(in), lisp::strArg(in, args[0]));
  if (table.isNull()) {
    // The kept tables: a cursor per drawing and table name.
    auto records = extraRecords(drawing(in), lisp::strArg(in, args[0]));
    if (records.empty()) return Value();
    size_t &cursor = extraCursors()[{drawing(in)->serial(), upperKey(lisp::strArg(in, args[0]))}];
    if (nargs == 2 && !args[1].isNil()) cursor = 0;
    return cursor < records.size() ? records[cursor++].second : Value();
  }
  size_t &cursor = cursorOf(table);
  if (nargs == 2 && !args[1].isNil()) cursor = 0;
  const auto &order = static_cast<AcDbSymbolTable *>(objectOf(table))->recordIds();
  while (cursor < order.size()) {
    AcDbObjectId rec = order[cursor++];
    if (listed(rec)) return recordData(rec);
  }
  return Value();
}

Value fTblobjname(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 2, 2);
  AcDbObjectId table = tableOf(drawing(in), lisp::strArg(in, args[0]));
  AcDbObjectId rec = recordId(table, lisp::strArg(in, args[1]));
  return rec.isNull() ? Value() : enameValue(rec);
}

Value fNamedobjdict(Interp &in, const Value *, int nargs) {
  lisp::needArgs(in, nargs, 0, 0);
  return enameValue(drawing(in)->namedObjectsDictionaryId());
}

AcDbDictionary *dictionaryArg(Interp &in, const Value &v) {
  AcDbObjectId id = entityArg(in, v);
  return id.isErased() ? nullptr : AcDbDictionary::cast(objectOf(id));
}

Value entryData(AcDbObjectId id) {
  AcDbObject *obj = nullptr;
  if (acdbOpenObject(obj, id, AcDb::kForRead) != Acad::eOk) return Value();
  Value data = entityData(obj, nullptr);
  obj->close();
  return data;
}

Value fDictsearch(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 2, 3);
  AcDbDictionary *dict = dictionaryArg(in, args[0]);
  const std::wstring &key = lisp::strArg(in, args[1]);
  if (!dict) return Value();
  AcDbObjectId id;
  if (dict->getAt(key.c_str(), id) != Acad::eOk) return Value();
  if (nargs == 3 && !args[2].isNil()) {
    std::unique_ptr<AcDbDictionaryIterator> it(dict->newIterator());
    for (size_t i = 0; !it->done(); it->next(), ++i)
      if (it->objectId() == id) cursorOf(dict->objectId()) = i + 1;
  }
  return entryData(id);
}

Value fDictnext(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 2);
  AcDbDictionary *dict = dictionaryArg(in, args[0]);
  if (!dict) return Value();
  size_t &cursor = cursorOf(dict->objectId());
  if (nargs == 2 && !args[1].isNil()) cursor = 0;
  std::unique_ptr<AcDbDictionaryIterator> it(dict->newIterator());
  for (size_t i = 0; i < cursor && !it->done(); ++i) it->next();
  if (it->done()) return Value();
  ++cursor;
  return entryData(it->objectId());
}

// Registers an application name; nil when it is registered already or not a
// valid name.
Value fRegapp(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 1);
  const std::wstring &name = lisp::strArg(in, args[0]);
  AcDbDatabase *db = drawing(in);
  if (!validSymbolName(name) || !recordId(db->regAppTableId(), name).isNull()) return Value();
  ensureRecord(db->regAppTableId(), AcDbRegAppTableRecord::desc(), name);
  return lisp::makeString(name);
}

}  // namespace

void installTableLisp(Interp &in) {
  static const struct {
    const wchar_t *name;
    lisp::SubrFn fn;
  } table[] = {
      {L"tblsearch", fTblsearch},   {L"tblnext", fTblnext},
      {L"tblobjname", fTblobjname}, {L"namedobjdict", fNamedobjdict},
      {L"dictsearch", fDictsearch}, {L"dictnext", fDictnext},
      {L"regapp", fRegapp},
  };
  for (const auto &e : table) in.defineSubr(e.name, e.fn);
}

}  // namespace vantry::host
