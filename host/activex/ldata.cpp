// LISP data kept with the drawing (vlax-ldata-*). A named dictionary's data
// lives in the named object dictionary under that name; an object's data
// in the dictionary "VANTRY_LDATA" there, under the object's handle (the
// drawing database does not build extension dictionaries). Each key holds
// one XRECORD, so the data is saved with the drawing and read back from it.
//
// The XRECORD's data groups after its marker and cloning flag (280), one
// value after another:
//   1 text [3 more text ...]   a string, in pieces of at most 250 characters
//   90 integer                 an integer
//   40 real                    a real
//   2 name                     a symbol (nil and T are symbols here)
//   70 0 ... [72 0 value] 71 0 a list: its elements, and a dotted tail
#include "activex/internal.h"
#include "db/lisp_data.h"

namespace vantry::host::activex {
namespace {

using lisp::Type;

constexpr const wchar_t *kObjectData = L"VANTRY_LDATA";
constexpr size_t kPiece = 250;

// Whether a value can be kept (vlax-ldata-test): numbers, strings, symbols
// and lists of them; not entity names, files, functions or VLA-objects,
// which name things of one session.
bool storable(Interp &in, const Value &v) {
  in.safePoint();
  switch (v.type()) {
    case Type::Nil:
    case Type::Int:
    case Type::Real:
    case Type::Str:
    case Type::Sym:
      return true;
    case Type::List: {
      const Value *p = &v;
      for (; p->isCons(); p = &p->as<lisp::Cons>()->cdr)
        if (!storable(in, p->as<lisp::Cons>()->car)) return false;
      return storable(in, *p);
    }
    default:
      return false;
  }
}

void encode(AcDbDxfFiler &f, const Value &v) {
  switch (v.type()) {
    case Type::Nil:
      f.writeString(2, L"NIL");
      return;
    case Type::Int:
      f.writeInt32(90, v.asInt());
      return;
    case Type::Real:
      f.writeDouble(40, v.asReal());
      return;
    case Type::Str: {
      const std::wstring &s = lisp::str(v);
      f.writeString(1, s.substr(0, kPiece));
      for (size_t at = kPiece; at < s.size(); at += kPiece) f.writeString(3, s.substr(at, kPiece));
      return;
    }
    case Type::Sym:
      f.writeString(2, v.as<lisp::Symbol>()->name);
      return;
    case Type::List: {
      f.writeInt16(70, 0);
      const Value *p = &v;
      for (; p->isCons(); p = &p->as<lisp::Cons>()->cdr) encode(f, p->as<lisp::Cons>()->car);
      if (!p->isNil()) {
        f.writeInt16(72, 0);
        encode(f, *p);
      }
      f.writeInt16(71, 0);
      return;
    }
    default:
      return;
  }
}

// Reads one value from items[at]; false when the groups are not ldata.
bool decode(Interp &in, const std::vector<AcDbDxfFiler::Item> &items, size_t &at, Value &out) {
  if (at >= items.size()) return false;
  const AcDbDxfFiler::Item &it = items[at++];
  switch (it.code) {
    case 1: {
      std::wstring s = it.text;
      while (at < items.size() && items[at].code == 3) s += items[at++].text;
      out = lisp::makeString(std::move(s));
      return true;
    }
    case 90:
      out = Value::integer(int32_t(it.integer));
      return true;
    case 40:
      out = Value::real(it.real[0]);
      return true;
    case 2:
      out = upperKey(it.text) == L"NIL" ? Value() : Value(in.intern(it.text));
      return true;
    case 70: {
      lisp::ListBuilder b;
      while (at < items.size() && items[at].code != 71 && items[at].code != 72) {
        Value e;
        if (!decode(in, items, at, e)) return false;
        b.add(e);
      }
      if (at < items.size() && items[at].code == 72) {
        ++at;
        Value tail;
        if (!decode(in, items, at, tail)) return false;
        b.dot(tail);
      }
      if (at >= items.size() || items[at].code != 71) return false;
      ++at;
      out = b.take();
      return true;
    }
    default:
      return false;
  }
}

// Where a dict argument keeps its data: the dictionary and its name chain
// from the named object dictionary.
struct Place {
  AcDbDatabase *db = nullptr;
  std::vector<std::wstring> path;  // dictionary names from the root
};

Place placeOf(Interp &in, const Value &dict) {
  Place p;
  if (dict.type() == Type::Str) {
    p.db = workingDatabase();
    if (!p.db) in.error(L"no drawing is open");
    p.path = {lisp::str(dict)};
    return p;
  }
  AcDbObjectId id;
  if (!objectIdOfValue(dict, id)) {
    if (foreign<VlaObject>(dict)) resolve(in, dict);  // says why
    in.badArgType(L"VLA-OBJECT", dict);
  }
  if (id.isErased()) automationError(in, L"Object was erased");
  p.db = id.database();
  p.path = {kObjectData, id.handle().toString()};
  return p;
}

// The dictionary at the place; with create, made where missing. Null when
// it is not there.
AcDbObjectId dictionaryAt(Interp &in, const Place &p, bool create) {
  AcDbObjectId id = p.db->namedObjectsDictionaryId();
  for (const std::wstring &name : p.path) {
    AcDbObjectId next;
    {
      AcDbObjectPointer<AcDbDictionary> d(id, AcDb::kForRead);
      if (d.openStatus() != Acad::eOk) statusError(in, d.openStatus());
      d->getAt(name.c_str(), next);
    }
    if (!next.isNull() && !AcDbDictionary::cast(objectOf(next))) automationError(in, L"Not applicable");
    if (next.isNull()) {
      if (!create) return AcDbObjectId::kNull;
      AcDbObjectPointer<AcDbDictionary> d(id, AcDb::kForWrite);
      if (d.openStatus() != Acad::eOk) statusError(in, d.openStatus());
      auto *sub = new AcDbDictionary;
      if (Acad::ErrorStatus es = d->setAt(name.c_str(), sub, next); es != Acad::eOk) {
        delete sub;
        statusError(in, es);
      }
      sub->close();
    }
    id = next;
  }
  return id;
}

std::wstring keyArg(Interp &in, const Value &v) {
  const std::wstring &key = lisp::strArg(in, v);
  if (key.empty()) in.badArgType(L"stringp", v);
  return key;
}

// The value an XRECORD holds; false when it is not ldata.
bool valueOf(Interp &in, AcDbObjectId id, Value &out) {
  auto *rec = VerbatimObject::cast(objectOf(id));
  if (!rec || rec->dxfType() != L"XRECORD") return false;
  AcDbDxfFiler f;
  rec->dxfOutFields(&f);
  const auto &groups = f.items();
  size_t at = 0;
  while (at < groups.size() && !(groups[at].code == 100 && groups[at].text == L"AcDbXrecord")) ++at;
  if (at == groups.size()) return false;
  for (++at; at < groups.size() && groups[at].code == 280; ++at) {
  }
  return decode(in, groups, at, out) && at == groups.size();
}

// (vlax-ldata-put dict key data [private]): the data.
Value putFn(Interp &in, const Value *a, int n) {
  lisp::needArgs(in, n, 3, 4);
  std::wstring key = keyArg(in, a[1]);
  if (!storable(in, a[2])) in.badArgType(L"vlax-ldata-test", a[2]);
  Place p = placeOf(in, a[0]);
  AcDbObjectId dict = dictionaryAt(in, p, true);
  AcDbDxfFiler f;
  f.writeString(100, L"AcDbXrecord");
  f.writeInt16(280, 1);
  encode(f, a[2]);
  auto *rec = new VerbatimObject(L"XRECORD");
  rec->dxfInFields(&f);
  AcDbObjectPointer<AcDbDictionary> d(dict, AcDb::kForWrite);
  AcDbObjectId id;
  Acad::ErrorStatus es = d.openStatus();
  if (es == Acad::eOk) es = d->setAt(key.c_str(), rec, id);
  if (es != Acad::eOk) {
    delete rec;
    d.close();
    statusError(in, es);
  }
  rec->close();
  return a[2];
}

// (vlax-ldata-get dict key [default [private]])
Value getFn(Interp &in, const Value *a, int n) {
  lisp::needArgs(in, n, 2, 4);
  std::wstring key = keyArg(in, a[1]);
  Value fallback = n >= 3 ? a[2] : Value();
  AcDbObjectId dict = dictionaryAt(in, placeOf(in, a[0]), false);
  if (dict.isNull()) return fallback;
  AcDbObjectId id;
  {
    AcDbObjectPointer<AcDbDictionary> d(dict, AcDb::kForRead);
    if (d.openStatus() == Acad::eOk) d->getAt(key.c_str(), id);
  }
  Value v;
  return !id.isNull() && valueOf(in, id, v) ? v : fallback;
}

// (vlax-ldata-delete dict key [private]): T when there was data to delete.
Value deleteFn(Interp &in, const Value *a, int n) {
  lisp::needArgs(in, n, 2, 3);
  std::wstring key = keyArg(in, a[1]);
  AcDbObjectId dict = dictionaryAt(in, placeOf(in, a[0]), false);
  if (dict.isNull()) return Value();
  AcDbObjectId id;
  {
    AcDbObjectPointer<AcDbDictionary> d(dict, AcDb::kForWrite);
    if (d.openStatus() != Acad::eOk || d->remove(key.c_str(), id) != Acad::eOk) return Value();
  }
  AcDbObjectPointer<AcDbObject> rec(id, AcDb::kForWrite);
  if (rec.openStatus() == Acad::eOk) rec->erase();
  return in.makeT();
}

// (vlax-ldata-list dict [private]): ((key . data) ...) in the order kept.
Value listFn(Interp &in, const Value *a, int n) {
  lisp::needArgs(in, n, 1, 2);
  AcDbObjectId dict = dictionaryAt(in, placeOf(in, a[0]), false);
  if (dict.isNull()) return Value();
  std::vector<std::pair<std::wstring, AcDbObjectId>> entries;
  {
    AcDbObjectPointer<AcDbDictionary> d(dict, AcDb::kForRead);
    if (d.openStatus() != Acad::eOk) return Value();
    std::unique_ptr<AcDbDictionaryIterator> it(d->newIterator());
    for (; !it->done(); it->next()) entries.push_back({it->name(), it->objectId()});
  }
  lisp::ListBuilder b;
  for (const auto &[key, id] : entries) {
    Value v;
    if (!id.isErased() && valueOf(in, id, v)) b.add(lisp::cons(lisp::makeString(key), v));
  }
  return b.take();
}

Value testFn(Interp &in, const Value *a, int n) {
  lisp::needArgs(in, n, 1, 1);
  return in.boolean(storable(in, a[0]));
}

}  // namespace

void installLdataLisp(Interp &in) {
  in.defineSubr(L"VLAX-LDATA-PUT", putFn);
  in.defineSubr(L"VLAX-LDATA-GET", getFn);
  in.defineSubr(L"VLAX-LDATA-DELETE", deleteFn);
  in.defineSubr(L"VLAX-LDATA-LIST", listFn);
  in.defineSubr(L"VLAX-LDATA-TEST", testFn);
}

}  // namespace vantry::host::activex
