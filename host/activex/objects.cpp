// VLA-objects: how a LISP value names the application, a document or an
// object of a drawing, the interface names they print with, and the checks
// every call makes before it touches the drawing.
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <map>
#include <tuple>

#include "activex/internal.h"
#include "db/lisp_data.h"
#include "session/session.h"

namespace vantry::host::activex {
namespace {

using Key = std::tuple<int, int64_t, uint64_t>;

// The VLA-objects LISP holds, by what they name; an object leaves the map
// when its last LISP reference goes (or when it is released), so a later
// conversion makes a new one. The map is never destroyed: documents retired
// at exit release their LISP values (and so their objects) after the
// function-local statics are gone, and each object leaves the map then.
std::map<Key, VlaObject *> &live() {
  static auto *objects = new std::map<Key, VlaObject *>;
  return *objects;
}

Key keyOf(const VlaObject &o) {
  return {int(o.kind), o.serial, o.handle};
}

struct Naming {
  const wchar_t *cls;    // the database class
  const wchar_t *dxf;    // its type in drawing data, for objects kept as their groups
  const wchar_t *iface;  // the interface
};
const Naming kNames[] = {
    {L"AcDbLine", L"LINE", L"IAcadLine"},
    {L"AcDbCircle", L"CIRCLE", L"IAcadCircle"},
    {L"AcDbArc", L"ARC", L"IAcadArc"},
    {L"AcDbPolyline", L"LWPOLYLINE", L"IAcadLWPolyline"},
    {L"AcDb2dPolyline", L"POLYLINE", L"IAcadPolyline"},
    {L"AcDb3dPolyline", nullptr, L"IAcad3DPolyline"},
    {L"AcDbMText", L"MTEXT", L"IAcadMText"},
    {L"AcDbText", L"TEXT", L"IAcadText"},
    {L"AcDbAttributeDefinition", L"ATTDEF", L"IAcadAttribute"},
    {L"AcDbAttribute", L"ATTRIB", L"IAcadAttributeReference"},
    {L"AcDbPoint", L"POINT", L"IAcadPoint"},
    {L"AcDbEllipse", L"ELLIPSE", L"IAcadEllipse"},
    {L"AcDbSpline", L"SPLINE", L"IAcadSpline"},
    {L"AcDbHatch", L"HATCH", L"IAcadHatch"},
    {L"AcDbLeader", L"LEADER", L"IAcadLeader"},
    {L"AcDbFace", L"3DFACE", L"IAcad3DFace"},
    {L"AcDbBlockReference", L"INSERT", L"IAcadBlockReference"},
    {L"AcDbLayerTableRecord", nullptr, L"IAcadLayer"},
    {L"AcDbTextStyleTableRecord", nullptr, L"IAcadTextStyle"},
    {L"AcDbLinetypeTableRecord", nullptr, L"IAcadLineType"},
    {L"AcDbRegAppTableRecord", nullptr, L"IAcadRegisteredApplication"},
    {L"AcDbBlockTableRecord", nullptr, L"IAcadBlock"},
    {L"AcDbLayerTable", nullptr, L"IAcadLayers"},
    {L"AcDbBlockTable", nullptr, L"IAcadBlocks"},
    {L"AcDbTextStyleTable", nullptr, L"IAcadTextStyles"},
    {L"AcDbLinetypeTable", nullptr, L"IAcadLineTypes"},
    {L"AcDbRegAppTable", nullptr, L"IAcadRegisteredApplications"},
    {L"AcDbDictionary", nullptr, L"IAcadDictionary"},
    {L"AcDbGroup", nullptr, L"IAcadGroup"},
    {L"AcDbXrecord", L"XRECORD", L"IAcadXRecord"},
};

// The naming of an object: by its class, or for one kept as its groups by
// its type; walking up the classes for a class of its own (a custom entity).
const Naming *namingOf(const AcDbObject *obj) {
  if (const ACHAR *dxf = dxfTypeOf(obj); dxf && (VerbatimEntity::cast(obj) || VerbatimObject::cast(obj))) {
    for (const Naming &n : kNames)
      if (n.dxf && std::wstring_view(n.dxf) == dxf) return &n;
    return nullptr;
  }
  for (AcRxClass *c = obj->isA(); c; c = c->myParent())
    for (const Naming &n : kNames)
      if (std::wstring_view(n.cls) == c->name()) return &n;
  return nullptr;
}

std::wstring interfaceOf(AcDbObjectId id) {
  AcDbObject *obj = objectOf(id);
  if (!obj) return L"IAcadObject";
  AcDbDatabase *db = id.database();
  if (id == db->impl()->modelSpace) return L"IAcadModelSpace";
  if (id == db->impl()->paperSpace) return L"IAcadPaperSpace";
  if (const Naming *n = namingOf(obj)) return n->iface;
  return AcDbEntity::cast(obj) ? L"IAcadEntity" : L"IAcadObject";
}

Value shared(VlaObject::Kind kind, int64_t serial, uint64_t handle, std::wstring iface) {
  Key key{int(kind), serial, handle};
  auto found = live().find(key);
  if (found != live().end()) return Value(found->second);
  auto *o = new VlaObject(kind, serial, handle);
  o->iface = std::move(iface);
  live()[key] = o;
  return Value(o);
}

[[noreturn]] void disconnected(Interp &in) {
  serverError(in, L"The object invoked has disconnected from its clients");
}

}  // namespace

VlaObject::~VlaObject() {
  auto found = live().find(keyOf(*this));
  if (found != live().end() && found->second == this) live().erase(found);
}

std::wstring VlaObject::printed() const {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%016" PRIxPTR, reinterpret_cast<uintptr_t>(this));
  return L"#<VLA-OBJECT " + iface + L" " + std::wstring(buf, buf + std::strlen(buf)) + L">";
}

void VlaObject::release() {
  released = true;
  auto found = live().find(keyOf(*this));
  if (found != live().end() && found->second == this) live().erase(found);
}

Value applicationValue() {
  return shared(VlaObject::Kind::Application, 0, 0, L"IAcadApplication");
}

Value documentValue(AcDbDatabase *db) {
  return shared(VlaObject::Kind::Document, db->serial(), 0, L"IAcadDocument");
}

Value objectValue(AcDbObjectId id) {
  if (id.isNull()) return Value();
  return shared(VlaObject::Kind::Object, id.database()->serial(), id.handle().value(), interfaceOf(id));
}

std::wstring objectName(const AcDbObject *obj) {
  if (VerbatimEntity::cast(obj) || VerbatimObject::cast(obj)) {
    const Naming *n = namingOf(obj);
    return n ? n->cls : std::wstring(dxfTypeOf(obj));
  }
  return obj->isA()->name();
}

AcDbObjectId objectIdOf(const VlaObject &o) {
  if (o.kind != VlaObject::Kind::Object) return AcDbObjectId::kNull;
  AcDbDatabase *db = databaseBySerial(o.serial);
  AcDbObjectId id;
  if (!db || db->getAcDbObjectId(id, false, AcDbHandle(o.handle)) != Acad::eOk) return AcDbObjectId::kNull;
  return id;
}

VlaObject *vlaArg(Interp &in, const Value &v) {
  auto *o = foreign<VlaObject>(v);
  if (!o) in.badArgType(L"VLA-OBJECT", v);
  return o;
}

Target resolve(Interp &in, const Value &v, bool erasedToo) {
  Target t;
  t.self = vlaArg(in, v);
  if (t.self->released) automationError(in, L"Object was released");
  if (t.self->kind == VlaObject::Kind::Application) return t;
  t.db = databaseBySerial(t.self->serial);
  // A closed document's drawing may live on a while (retired), but its
  // objects are no longer served.
  if (!t.db || !Session::get().documentOf(t.db)) disconnected(in);
  if (t.self->kind == VlaObject::Kind::Document) return t;
  t.id = objectIdOf(*t.self);
  if (t.id.isNull()) disconnected(in);
  if (t.id.isErased() && !erasedToo) automationError(in, L"Object was erased");
  t.cls = t.id.objectClass();
  return t;
}

Document *documentOf(Interp &in, const Target &t) {
  Document *doc = t.db ? Session::get().documentOf(t.db) : Session::get().current();
  if (!doc) disconnected(in);
  return doc;
}

}  // namespace vantry::host::activex

namespace vantry::host {

bool objectIdOfValue(const lisp::Value &v, AcDbObjectId &id) {
  if (idFromValue(v, id)) return true;
  auto *o = activex::foreign<activex::VlaObject>(v);
  id = o && !o->released ? activex::objectIdOf(*o) : AcDbObjectId::kNull;
  return !id.isNull();
}

}  // namespace vantry::host
