// The object model's containers: the application, documents, the symbol
// tables as collections (Layers, Blocks, TextStyles), blocks (ModelSpace,
// PaperSpace and user blocks) and the table records; and the lookup of a
// member by name that every vla-/vlax- call goes through.
#include <cmath>

#include "activex/internal.h"
#include "session/session.h"

namespace vantry::host::activex {
namespace {

using Kind = VlaObject::Kind;

bool isApplication(const Target &t) {
  return t.self->kind == Kind::Application;
}
bool isDocument(const Target &t) {
  return t.self->kind == Kind::Document;
}
bool isDrawingObject(const Target &t) {
  return !t.id.isNull();
}
bool inDrawing(const Target &t) {
  return t.db != nullptr;
}
template <class T>
bool isA(const Target &t) {
  return t.is(T::desc());
}
bool isTable(const Target &t) {
  return isA<AcDbLayerTable>(t) || isA<AcDbBlockTable>(t) || isA<AcDbTextStyleTable>(t);
}
bool isCollection(const Target &t) {
  return isTable(t) || isA<AcDbBlockTableRecord>(t);
}

Value str(std::wstring s) {
  return lisp::makeString(std::move(s));
}

// The records of a table or the entities of a block that are not erased.
std::vector<AcDbObjectId> liveMembers(const Target &t) {
  std::vector<AcDbObjectId> out;
  const std::vector<AcDbObjectId> *ids = nullptr;
  if (auto *table = AcDbSymbolTable::cast(objectOf(t.id))) ids = &table->recordIds();
  if (auto *block = AcDbBlockTableRecord::cast(objectOf(t.id))) ids = &block->entityIds();
  if (ids)
    for (AcDbObjectId id : *ids)
      if (!id.isErased()) out.push_back(id);
  return out;
}

}  // namespace

std::wstring currentLayerName() {
  resbuf rb{};
  std::wstring name;
  if (acedGetVar(L"CLAYER", &rb) == RTNORM && rb.restype == RTSTR) {
    name = rb.resval.rstring;
    acutDelString(rb.resval.rstring);
  }
  return name;
}

namespace {

// --- Members of the application and documents

Value getApplication(Interp &, const Target &) {
  return applicationValue();
}
Value getDocument(Interp &, const Target &t) {
  return documentValue(t.db);
}
Value getActiveDocument(Interp &, const Target &) {
  Document *doc = Session::get().current();
  return doc ? documentValue(doc->database()) : Value();
}
Value getDocName(Interp &in, const Target &t) {
  return str(documentOf(in, t)->docTitle());
}
Value getFullName(Interp &in, const Target &t) {
  return str(documentOf(in, t)->fileName());
}
Value getPath(Interp &in, const Target &t) {
  std::wstring path = documentOf(in, t)->fileName();
  size_t slash = path.find_last_of(L"/\\");
  return str(slash == std::wstring::npos ? L"" : path.substr(0, slash));
}
Value getModelSpace(Interp &, const Target &t) {
  return objectValue(t.db->impl()->modelSpace);
}
Value getPaperSpace(Interp &, const Target &t) {
  return objectValue(t.db->impl()->paperSpace);
}
Value getLayers(Interp &, const Target &t) {
  return objectValue(t.db->layerTableId());
}
Value getBlocks(Interp &, const Target &t) {
  return objectValue(t.db->blockTableId());
}
Value getTextStyles(Interp &, const Target &t) {
  return objectValue(t.db->textStyleTableId());
}
Value getActiveLayer(Interp &, const Target &t) {
  AcDbObjectId id = recordId(t.db->layerTableId(), currentLayerName());
  return objectValue(id.isNull() ? t.db->clayer() : id);
}
void putActiveLayer(Interp &in, const Target &t, const Value &v) {
  Target layer = resolve(in, v);
  if (!isA<AcDbLayerTableRecord>(layer) || layer.db != t.db) serverError(in, L"Type mismatch");
  if (Acad::ErrorStatus es = t.db->setClayer(layer.id); es != Acad::eOk) statusError(in, es);
  resbuf rb{};
  rb.restype = RTSTR;
  std::wstring name = recordName(layer.id);
  rb.resval.rstring = name.data();
  acedSetVar(L"CLAYER", &rb);
}

// --- Members every drawing object has

Value getHandle(Interp &, const Target &t) {
  return str(t.id.handle().toString());
}
Value getObjectName(Interp &in, const Target &t) {
  return withRead<AcDbObject>(in, t, [](AcDbObject *o) { return str(objectName(o)); });
}

// --- Collections

Value getCount(Interp &, const Target &t) {
  return Value::integer(int(liveMembers(t).size()));
}

// (vla-Item collection index-or-name): an index counts from 0; a name is
// looked up without case (tables only).
Value callItem(Interp &in, const Target &t, const Value *a, int n) {
  methodArgs(in, n, 1, 1);
  std::vector<AcDbObjectId> members = liveMembers(t);
  Value key = a[0];
  if (auto *var = foreign<Variant>(key)) key = var->value;
  if (key.isNumber()) {
    double d = key.number();
    if (d != std::floor(d) || d < 0 || d >= double(members.size())) serverError(in, L"Invalid index");
    return objectValue(members[size_t(d)]);
  }
  if (key.type() != lisp::Type::Str) serverError(in, L"Type mismatch");
  if (!isTable(t)) serverError(in, L"Invalid index");
  AcDbObjectId id = recordId(t.id, lisp::str(key));
  if (id.isNull() || id.isErased()) automationError(in, L"Key not found");
  return objectValue(id);
}

// Adds a record named `name` to the target's table, or answers the one
// there: the collections' Add keeps an existing record.
template <class Record>
AcDbObjectId addRecord(Interp &in, const Target &t, const std::wstring &name, const AcGePoint3d *origin) {
  AcDbObjectId id = recordId(t.id, name);
  if (!id.isNull() && !id.isErased()) return id;
  if (!validSymbolName(name)) automationError(in, L"Invalid symbol table name");
  withWrite<AcDbSymbolTable>(in, t, [&](AcDbSymbolTable *table) {
    auto *rec = new Record;
    Acad::ErrorStatus es = rec->setName(name.c_str());
    if constexpr (std::is_same_v<Record, AcDbBlockTableRecord>)
      if (es == Acad::eOk && origin) es = rec->setOrigin(*origin);
    if (es == Acad::eOk) es = table->add(id, rec);
    if (es != Acad::eOk) {
      delete rec;
      return es;
    }
    return rec->close();
  });
  return id;
}

// Layers.Add(name), TextStyles.Add(name), Blocks.Add(insertionPoint, name).
Value callAdd(Interp &in, const Target &t, const Value *a, int n) {
  if (isA<AcDbBlockTable>(t)) {
    methodArgs(in, n, 2, 2);
    AcGePoint3d origin = pointArg(in, a[0]);
    return objectValue(addRecord<AcDbBlockTableRecord>(in, t, stringArg(in, a[1]), &origin));
  }
  methodArgs(in, n, 1, 1);
  std::wstring name = stringArg(in, a[0]);
  if (isA<AcDbLayerTable>(t)) return objectValue(addRecord<AcDbLayerTableRecord>(in, t, name, nullptr));
  return objectValue(addRecord<AcDbTextStyleTableRecord>(in, t, name, nullptr));
}

// --- Table records

Value getRecordName(Interp &, const Target &t) {
  return str(recordName(t.id));
}
void putRecordName(Interp &in, const Target &t, const Value &v) {
  std::wstring name = stringArg(in, v);
  if (auto *b = AcDbBlockTableRecord::cast(objectOf(t.id)); b && b->isLayout()) automationError(in, L"Not applicable");
  withWrite<AcDbSymbolTableRecord>(in, t, [&](AcDbSymbolTableRecord *r) { return r->setName(name.c_str()); });
}

Value getOrigin(Interp &in, const Target &t) {
  return withRead<AcDbBlockTableRecord>(in, t, [](AcDbBlockTableRecord *b) { return pointVariant(b->origin()); });
}
void putOrigin(Interp &in, const Target &t, const Value &v) {
  AcGePoint3d p = pointArg(in, v);
  withWrite<AcDbBlockTableRecord>(in, t, [&](AcDbBlockTableRecord *b) { return b->setOrigin(p); });
}
Value getIsLayout(Interp &in, const Target &t) {
  return withRead<AcDbBlockTableRecord>(in, t, [&](AcDbBlockTableRecord *b) { return vlaBool(in, b->isLayout()); });
}

// Layers
Value getLayerColor(Interp &in, const Target &t) {
  return withRead<AcDbLayerTableRecord>(in, t, [](AcDbLayerTableRecord *l) {
    return Value::integer(l->color().colorIndex());
  });
}
void putLayerColor(Interp &in, const Target &t, const Value &v) {
  int index = integerArg(in, v);
  AcCmColor c;
  if (index < 1 || index > 255 || c.setColorIndex(Adesk::UInt16(index)) != Acad::eOk)
    automationError(in, L"Invalid input");
  withWrite<AcDbLayerTableRecord>(in, t, [&](AcDbLayerTableRecord *l) {
    l->setColor(c);
    return Acad::eOk;
  });
}
Value getLayerLinetype(Interp &in, const Target &t) {
  return withRead<AcDbLayerTableRecord>(in, t, [](AcDbLayerTableRecord *l) {
    std::wstring name = recordName(l->linetypeObjectId());
    return str(name.empty() ? L"Continuous" : name);
  });
}
void putLayerLinetype(Interp &in, const Target &t, const Value &v) {
  AcDbObjectId lt = recordId(t.db->linetypeTableId(), stringArg(in, v));
  if (lt.isNull() || lt.isErased()) automationError(in, L"Key not found");
  withWrite<AcDbLayerTableRecord>(in, t, [&](AcDbLayerTableRecord *l) {
    l->setLinetypeObjectId(lt);
    return Acad::eOk;
  });
}
Value getLayerLineweight(Interp &in, const Target &t) {
  return withRead<AcDbLayerTableRecord>(in, t, [](AcDbLayerTableRecord *l) { return Value::integer(l->lineWeight()); });
}
void putLayerLineweight(Interp &in, const Target &t, const Value &v) {
  int w = integerArg(in, v);
  if (w < AcDb::kLnWtByLwDefault || w > 211) automationError(in, L"Invalid input");
  withWrite<AcDbLayerTableRecord>(in, t, [&](AcDbLayerTableRecord *l) { return l->setLineWeight(AcDb::LineWeight(w)); });
}

// The layer's switches: on, frozen, locked, plotted.
template <bool (AcDbLayerTableRecord::*Get)() const, bool Invert>
Value getLayerFlag(Interp &in, const Target &t) {
  return withRead<AcDbLayerTableRecord>(in, t, [&](AcDbLayerTableRecord *l) { return vlaBool(in, (l->*Get)() != Invert); });
}
template <bool Invert, class Set>
void putLayerFlag(Interp &in, const Target &t, const Value &v, Set set) {
  bool b = boolArg(in, v) != Invert;
  withWrite<AcDbLayerTableRecord>(in, t, [&](AcDbLayerTableRecord *l) { return set(l, b); });
}
void putLayerOn(Interp &in, const Target &t, const Value &v) {
  putLayerFlag<true>(in, t, v, [](AcDbLayerTableRecord *l, bool off) {
    l->setIsOff(off);
    return Acad::eOk;
  });
}
void putFreeze(Interp &in, const Target &t, const Value &v) {
  if (boolArg(in, v) && upperKey(recordName(t.id)) == upperKey(currentLayerName()))
    automationError(in, L"Invalid layer");
  putLayerFlag<false>(in, t, v, [](AcDbLayerTableRecord *l, bool b) { return l->setIsFrozen(b); });
}
void putLock(Interp &in, const Target &t, const Value &v) {
  putLayerFlag<false>(in, t, v, [](AcDbLayerTableRecord *l, bool b) {
    l->setIsLocked(b);
    return Acad::eOk;
  });
}
void putPlottable(Interp &in, const Target &t, const Value &v) {
  putLayerFlag<false>(in, t, v, [](AcDbLayerTableRecord *l, bool b) { return l->setIsPlottable(b); });
}

// Layer.Delete: not layer 0, not the current layer, not one an entity is on.
Value callDeleteLayer(Interp &in, const Target &t, const Value *, int n) {
  methodArgs(in, n, 0, 0);
  std::wstring key = upperKey(recordName(t.id));
  if (key == L"0" || key == upperKey(currentLayerName()) || t.id == t.db->clayer())
    automationError(in, L"Invalid layer");
  auto &stubs = t.db->impl()->stubs;
  for (AcDbStub &s : stubs) {
    auto *ent = AcDbEntity::cast(s.obj);
    if (ent && !ent->isErased() && ent->layerId() == t.id) automationError(in, L"Object is referenced");
  }
  withWrite<AcDbObject>(in, t, [](AcDbObject *o) { return o->erase(); });
  return Value();
}

// Text styles
template <double (AcDbTextStyleTableRecord::*Get)() const>
Value getStyleReal(Interp &in, const Target &t) {
  return withRead<AcDbTextStyleTableRecord>(in, t, [](AcDbTextStyleTableRecord *s) { return Value::real((s->*Get)()); });
}
template <Acad::ErrorStatus (AcDbTextStyleTableRecord::*Set)(double)>
void putStyleReal(Interp &in, const Target &t, const Value &v) {
  double d = realArg(in, v);
  withWrite<AcDbTextStyleTableRecord>(in, t, [&](AcDbTextStyleTableRecord *s) { return (s->*Set)(d); });
}
Value getFontFile(Interp &in, const Target &t) {
  return withRead<AcDbTextStyleTableRecord>(in, t, [](AcDbTextStyleTableRecord *s) {
    const ACHAR *name = nullptr;
    s->fileName(name);
    return str(name ? name : L"");
  });
}
void putFontFile(Interp &in, const Target &t, const Value &v) {
  std::wstring name = stringArg(in, v);
  withWrite<AcDbTextStyleTableRecord>(in, t, [&](AcDbTextStyleTableRecord *s) { return s->setFileName(name.c_str()); });
}

const std::vector<Property> kProperties = {
    {L"Application", [](const Target &) { return true; }, getApplication, nullptr},
    {L"ActiveDocument", isApplication, getActiveDocument, nullptr},
    {L"Document", inDrawing, getDocument, nullptr},
    {L"Name", isDocument, getDocName, nullptr},
    {L"FullName", isDocument, getFullName, nullptr},
    {L"Path", isDocument, getPath, nullptr},
    {L"ModelSpace", isDocument, getModelSpace, nullptr},
    {L"PaperSpace", isDocument, getPaperSpace, nullptr},
    {L"Layers", isDocument, getLayers, nullptr},
    {L"Blocks", isDocument, getBlocks, nullptr},
    {L"TextStyles", isDocument, getTextStyles, nullptr},
    {L"ActiveLayer", isDocument, getActiveLayer, putActiveLayer},
    {L"Handle", isDrawingObject, getHandle, nullptr},
    {L"ObjectName", isDrawingObject, getObjectName, nullptr},
    {L"Count", isCollection, getCount, nullptr},
    {L"Name", isA<AcDbSymbolTableRecord>, getRecordName, putRecordName},
    {L"Origin", isA<AcDbBlockTableRecord>, getOrigin, putOrigin},
    {L"IsLayout", isA<AcDbBlockTableRecord>, getIsLayout, nullptr},
    {L"Color", isA<AcDbLayerTableRecord>, getLayerColor, putLayerColor},
    {L"Linetype", isA<AcDbLayerTableRecord>, getLayerLinetype, putLayerLinetype},
    {L"Lineweight", isA<AcDbLayerTableRecord>, getLayerLineweight, putLayerLineweight},
    {L"LayerOn", isA<AcDbLayerTableRecord>, getLayerFlag<&AcDbLayerTableRecord::isOff, true>, putLayerOn},
    {L"Freeze", isA<AcDbLayerTableRecord>, getLayerFlag<&AcDbLayerTableRecord::isFrozen, false>, putFreeze},
    {L"Lock", isA<AcDbLayerTableRecord>, getLayerFlag<&AcDbLayerTableRecord::isLocked, false>, putLock},
    {L"Plottable", isA<AcDbLayerTableRecord>, getLayerFlag<&AcDbLayerTableRecord::isPlottable, false>, putPlottable},
    {L"Height", isA<AcDbTextStyleTableRecord>, getStyleReal<&AcDbTextStyleTableRecord::textSize>,
     putStyleReal<&AcDbTextStyleTableRecord::setTextSize>},
    {L"Width", isA<AcDbTextStyleTableRecord>, getStyleReal<&AcDbTextStyleTableRecord::xScale>,
     putStyleReal<&AcDbTextStyleTableRecord::setXScale>},
    {L"ObliqueAngle", isA<AcDbTextStyleTableRecord>, getStyleReal<&AcDbTextStyleTableRecord::obliquingAngle>,
     putStyleReal<&AcDbTextStyleTableRecord::setObliquingAngle>},
    {L"FontFile", isA<AcDbTextStyleTableRecord>, getFontFile, putFontFile},
};

const std::vector<Method> kMethods = {
    {L"Item", isCollection, callItem},
    {L"Add", isTable, callAdd},
    {L"Delete", isA<AcDbLayerTableRecord>, callDeleteLayer},
};

bool sameName(std::wstring_view a, std::wstring_view b) {
  return upperKey(a) == upperKey(b);
}

template <class Member>
const Member *findIn(const std::vector<Member> &members, const Target &t, std::wstring_view name) {
  for (const Member &m : members)
    if (sameName(m.name, name) && m.applies(t)) return &m;
  return nullptr;
}

}  // namespace

const std::vector<Property> &containerProperties() {
  return kProperties;
}
const std::vector<Method> &containerMethods() {
  return kMethods;
}

std::vector<AcDbObjectId> members(const Target &t) {
  return liveMembers(t);
}
bool isCollectionTarget(const Target &t) {
  return !t.id.isNull() && isCollection(t);
}

const Property *findProperty(const Target &t, std::wstring_view name) {
  if (const Property *p = findIn(kProperties, t, name)) return p;
  return findIn(entityProperties(), t, name);
}

const Method *findMethod(const Target &t, std::wstring_view name) {
  if (const Method *m = findIn(kMethods, t, name)) return m;
  return findIn(entityMethods(), t, name);
}

bool anyProperty(std::wstring_view name, bool writable) {
  for (const auto *list : {&kProperties, &entityProperties()})
    for (const Property &p : *list)
      if (sameName(p.name, name) && (!writable || p.put)) return true;
  return false;
}

bool anyMethod(std::wstring_view name) {
  for (const auto *list : {&kMethods, &entityMethods()})
    for (const Method &m : *list)
      if (sameName(m.name, name)) return true;
  return false;
}

void methodArgs(Interp &in, int nargs, int min, int max) {
  if (nargs < min) serverError(in, L"Parameter not optional");
  if (nargs > max) serverError(in, L"Invalid number of parameters");
}

}  // namespace vantry::host::activex
