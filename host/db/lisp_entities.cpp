// The entity built-ins of the host's AutoLISP: entget, entmake, entmakex,
// entmod, entdel, entlast, entnext, handent and entupd, over the working
// drawing.
//
// entmake makes an entity from its data list in model space (paper space
// with (67 . 1)); groups the drawing keeps itself (-1, 5, 100, 330, 410) are
// ignored, a layer that does not exist is made, extended data must name
// registered applications. An old-style polyline is made in steps: POLYLINE
// starts it, each VERTEX adds a vertex, SEQEND appends the whole; another
// type in between drops the unfinished polyline. entmakex also makes the
// ownerless objects DICTIONARY and GROUP. Any refusal answers nil.
#include <map>
#include <memory>

#include "db/lisp_data.h"
#include "lisp/lisp.h"
#include "session/session.h"

namespace vantry::host {
namespace {

using lisp::Interp;
using lisp::Type;
using lisp::Value;

AcDbDatabase *drawing(Interp &in) {
  AcDbDatabase *db = workingDatabase();
  if (!db) in.error(L"no drawing is open");
  return db;
}

// The codes an entity's list must carry for entmake.
struct EntityType {
  const wchar_t *name;
  AcDbObject *(*make)();
  std::vector<int> required;
};

template <class T>
AcDbObject *make() {
  return new T();
}

const std::vector<EntityType> &entityTypes() {
  static const std::vector<EntityType> types = {
      {L"LINE", make<AcDbLine>, {10, 11}},       {L"CIRCLE", make<AcDbCircle>, {10, 40}},
      {L"ARC", make<AcDbArc>, {10, 40, 50, 51}}, {L"LWPOLYLINE", make<AcDbPolyline>, {10}},
      {L"MTEXT", make<AcDbMText>, {10}},         {L"LEADER", make<AcDbLeader>, {10}},
      {L"3DFACE", make<AcDbFace>, {10, 11, 12}}, {L"INSERT", make<AcDbBlockReference>, {2, 10}},
      {L"DICTIONARY", make<AcDbDictionary>, {}}, {L"GROUP", make<AcDbGroup>, {}},
  };
  return types;
}

// An old-style polyline being made, per drawing.
std::map<int64_t, std::unique_ptr<AcDbCurve>> &pending() {
  static auto *m = new std::map<int64_t, std::unique_ptr<AcDbCurve>>();
  return *m;
}

bool hasAll(const AcDbDxfFiler &f, const std::vector<int> &codes) {
  for (int c : codes)
    if (!f.find(c)) return false;
  return true;
}

// Appends to model or paper space; closes the entity. Null on failure (the
// entity is then deleted).
AcDbObjectId appendToSpace(AcDbDatabase *db, AcDbEntity *ent, bool paper) {
  AcDbObjectId space = recordId(db->blockTableId(), paper ? ACDB_PAPER_SPACE : ACDB_MODEL_SPACE);
  AcDbBlockTableRecord *btr = nullptr;
  AcDbObjectId id;
  if (acdbOpenObject(btr, space, AcDb::kForWrite) != Acad::eOk) {
    delete ent;
    return id;
  }
  Acad::ErrorStatus es = btr->appendAcDbEntity(id, ent);
  btr->close();
  if (es != Acad::eOk) {
    delete ent;
    return AcDbObjectId::kNull;
  }
  ent->close();
  return id;
}

// Fields and extended data onto an object; the object must take both.
bool applyData(AcDbObject *obj, AcDbDxfFiler &f, ParsedData &parsed) {
  if (obj->dxfInFields(&f) != Acad::eOk) return false;
  if (parsed.hasXData && parsed.xdata && obj->setXData(parsed.xdata) != Acad::eOk) return false;
  return true;
}

// The unchecked xdata of a new object: setXData checks registration only
// for resident objects, so check here.
bool appsRegistered(AcDbDatabase *db, const ParsedData &parsed) {
  for (const resbuf *p = parsed.xdata; p; p = p->rbnext)
    if (p->restype == 1001 && recordId(db->regAppTableId(), p->resval.rstring).isNull()) return false;
  return true;
}

// Makes what a data list describes; the id of a finished entity or object,
// null while an old-style polyline is under way (done says whether the list
// was accepted).
AcDbObjectId makeFromData(Interp &in, const Value &list, bool ownerless, bool &accepted) {
  accepted = false;
  AcDbDatabase *db = drawing(in);
  AcDbDxfFiler f;
  ParsedData parsed;
  if (!parseEntityData(list, f, parsed) || parsed.type.empty() || !appsRegistered(db, parsed))
    return AcDbObjectId::kNull;
  auto &building = pending()[db->serial()];
  int64_t flags = 0;
  f.getInt(70, flags);

  if (parsed.type == L"POLYLINE") {
    std::unique_ptr<AcDbCurve> pl;
    if (flags & 8)
      pl = std::make_unique<AcDb3dPolyline>();
    else
      pl = std::make_unique<AcDb2dPolyline>();
    pl->setDatabaseDefaults(db);
    if (!applyData(pl.get(), f, parsed)) return AcDbObjectId::kNull;
    building = std::move(pl);
    accepted = true;
    return AcDbObjectId::kNull;
  }
  if (parsed.type == L"VERTEX") {
    if (!building || !f.find(10)) return AcDbObjectId::kNull;
    if (auto *p3 = AcDb3dPolyline::cast(building.get())) {
      auto *v = new AcDb3dPolylineVertex();
      if (!applyData(v, f, parsed) || p3->appendVertex(v) != Acad::eOk) {
        delete v;
        return AcDbObjectId::kNull;
      }
    } else {
      auto *v = new AcDb2dVertex();
      if (!applyData(v, f, parsed) || AcDb2dPolyline::cast(building.get())->appendVertex(v) != Acad::eOk) {
        delete v;
        return AcDbObjectId::kNull;
      }
    }
    accepted = true;
    return AcDbObjectId::kNull;
  }
  if (parsed.type == L"SEQEND") {
    if (!building) return AcDbObjectId::kNull;
    AcDbEntity *pl = building.release();
    AcDbObjectId id = appendToSpace(db, pl, false);
    accepted = !id.isNull();
    return id;
  }
  building.reset();  // anything else drops an unfinished polyline

  const EntityType *type = nullptr;
  for (const EntityType &t : entityTypes())
    if (parsed.type == t.name) type = &t;
  if (!type || !hasAll(f, type->required)) return AcDbObjectId::kNull;
  std::unique_ptr<AcDbObject> obj(type->make());
  auto *ent = AcDbEntity::cast(obj.get());
  if (!ent) {
    if (!ownerless) return AcDbObjectId::kNull;  // entmake makes entities only
    AcDbObjectId id;
    if (db->addAcDbObject(id, obj.get()) != Acad::eOk) return AcDbObjectId::kNull;
    AcDbObject *o = obj.release();
    bool ok = applyData(o, f, parsed);
    o->close();
    if (!ok) {
      acdbOpenObject(o, id, AcDb::kForWrite);
      if (o) o->erase(), o->close();
      return AcDbObjectId::kNull;
    }
    accepted = true;
    return id;
  }
  ent->setDatabaseDefaults(db);
  if (!applyData(ent, f, parsed)) return AcDbObjectId::kNull;
  int64_t paper = 0;
  f.getInt(67, paper);
  AcDbObjectId id = appendToSpace(db, static_cast<AcDbEntity *>(obj.release()), paper == 1);
  accepted = !id.isNull();
  return id;
}

// --- The built-ins -------------------------------------------------------------------------------

Value fEntget(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 2);
  AcDbObjectId id = entityArg(in, args[0]);
  std::vector<std::wstring> apps;
  if (nargs == 2)
    for (const Value &a : lisp::listToVector(lisp::listArg(in, args[1]))) apps.push_back(lisp::strArg(in, a));
  AcDbObject *obj = nullptr;
  if (acdbOpenObject(obj, id, AcDb::kForRead) != Acad::eOk) return Value();
  Value data = entityData(obj, nargs == 2 ? &apps : nullptr);
  obj->close();
  return data;
}

Value fEntmake(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 0, 1);
  if (nargs == 0) return Value();
  bool accepted;
  makeFromData(in, lisp::listArg(in, args[0]), false, accepted);
  return accepted ? args[0] : Value();
}

Value fEntmakex(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 0, 1);
  if (nargs == 0) return Value();
  bool accepted;
  AcDbObjectId id = makeFromData(in, lisp::listArg(in, args[0]), true, accepted);
  return accepted && !id.isNull() ? enameValue(id) : Value();
}

// Changes the object named by -1; the type, when given, must stay.
Value fEntmod(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 1);
  const Value &list = lisp::listArg(in, args[0]);
  AcDbDxfFiler f;
  ParsedData parsed;
  if (!parseEntityData(list, f, parsed) || parsed.self.isNull()) return Value();
  AcDbObject *obj = nullptr;
  if (acdbOpenObject(obj, parsed.self, AcDb::kForWrite) != Acad::eOk) return Value();
  const ACHAR *dxf = dxfTypeOf(obj);
  bool ok = (parsed.type.empty() || (dxf && parsed.type == dxf)) && applyData(obj, f, parsed);
  obj->close();
  return ok ? args[0] : Value();
}

// Erases a main entity, or brings back an erased one.
Value fEntdel(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 1);
  AcDbObjectId id = entityArg(in, args[0]);
  AcDbEntity *ent = nullptr;
  if (acdbOpenObject(ent, id, AcDb::kForWrite, true) != Acad::eOk) return Value();
  bool ok =
      !AcDbVertex::cast(ent) && !AcDbSequenceEnd::cast(ent) && ent->erase(!ent->isErased()) == Acad::eOk;
  ent->close();
  return ok ? args[0] : Value();
}

// A main entity: in model or paper space, not erased.
bool isMainEntity(const AcDbStub &s) {
  auto *ent = AcDbEntity::cast(s.obj);
  if (!ent || ent->isErased()) return false;
  auto *owner = AcDbBlockTableRecord::cast(objectOf(ent->ownerId()));
  return owner && owner->isLayout();
}

Value fEntlast(Interp &in, const Value *, int nargs) {
  lisp::needArgs(in, nargs, 0, 0);
  auto &stubs = drawing(in)->impl()->stubs;
  for (size_t i = stubs.size(); i-- > 0;)
    if (isMainEntity(stubs[i])) return enameValue(AcDbObjectId(&stubs[i]));
  return Value();
}

Value nextMainAfter(AcDbDatabase *db, size_t from) {
  auto &stubs = db->impl()->stubs;
  for (size_t i = from; i < stubs.size(); ++i)
    if (isMainEntity(stubs[i])) return enameValue(AcDbObjectId(&stubs[i]));
  return Value();
}

// The sub-entities (vertices, then the end marker) of an old-style polyline.
std::vector<AcDbObjectId> subentityIds(const AcDbObject *o) {
  std::vector<AcDbObjectId> ids;
  if (auto *p = AcDb2dPolyline::cast(o)) {
    for (AcDb2dVertex *v : p->vertices()) ids.push_back(v->objectId());
    ids.push_back(p->sequenceEndId());
  } else if (auto *p3 = AcDb3dPolyline::cast(o)) {
    for (AcDb3dPolylineVertex *v : p3->vertices()) ids.push_back(v->objectId());
    ids.push_back(p3->sequenceEndId());
  }
  return ids;
}

// Without an argument the first main entity; after a polyline its first
// vertex; after a vertex the next vertex or the end marker; after the end
// marker or a main entity the next main entity.
Value fEntnext(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 0, 1);
  AcDbDatabase *db = drawing(in);
  if (nargs == 0 || args[0].isNil()) return nextMainAfter(db, 0);
  AcDbObjectId id = entityArg(in, args[0]);
  if (id.isNull() || id.database() != db) return Value();
  AcDbObject *o = objectOf(id);
  std::vector<AcDbObjectId> subs = subentityIds(o);
  if (!subs.empty()) return enameValue(subs.front());
  if (AcDbVertex::cast(o) || AcDbSequenceEnd::cast(o)) {
    AcDbObject *owner = objectOf(o->ownerId());
    std::vector<AcDbObjectId> siblings = subentityIds(owner);
    for (size_t i = 0; i + 1 < siblings.size(); ++i)
      if (siblings[i] == id) return enameValue(siblings[i + 1]);
    if (!owner) return Value();
    return nextMainAfter(db, owner->objectId().handle().value());
  }
  return nextMainAfter(db, id.handle().value());
}

Value fHandent(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 1);
  const std::wstring &text = lisp::strArg(in, args[0]);
  AcDbHandle h(text.c_str());
  AcDbObjectId id;
  if (h.isNull() || drawing(in)->getAcDbObjectId(id, false, h) != Acad::eOk || !id.isValid()) return Value();
  return enameValue(id);
}

Value fEntupd(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 1);
  AcDbObjectId id = entityArg(in, args[0]);
  return AcDbEntity::cast(objectOf(id)) && !id.isErased() ? args[0] : Value();
}

}  // namespace

void installEntityLisp(Interp &in) {
  static const struct {
    const wchar_t *name;
    lisp::SubrFn fn;
  } table[] = {
      {L"entget", fEntget},   {L"entmake", fEntmake}, {L"entmakex", fEntmakex},
      {L"entmod", fEntmod},   {L"entdel", fEntdel},   {L"entlast", fEntlast},
      {L"entnext", fEntnext}, {L"handent", fHandent}, {L"entupd", fEntupd},
  };
  for (const auto &e : table) in.defineSubr(e.name, e.fn);
  installTableLisp(in);
}

}  // namespace vantry::host
