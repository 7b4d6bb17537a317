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
#include <algorithm>
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
      {L"TEXT", make<AcDbText>, {1, 10, 40}},    {L"ATTDEF", make<AcDbAttributeDefinition>, {1, 2, 10, 40}},
      {L"POINT", make<AcDbPoint>, {10}},         {L"SOLID", make<AcDbSolid>, {10, 11, 12}},
      {L"TRACE", make<AcDbTrace>, {10, 11, 12}}, {L"ELLIPSE", make<AcDbEllipse>, {10, 11, 40}},
      {L"SPLINE", make<AcDbSpline>, {}},         {L"XLINE", make<AcDbXline>, {10, 11}},
      {L"RAY", make<AcDbRay>, {10, 11}},         {L"HATCH", make<AcDbHatch>, {2, 91}},
      {L"DIMENSION", make<AcDbDimension>, {10, 70}},
      {L"DICTIONARY", make<AcDbDictionary>, {}}, {L"GROUP", make<AcDbGroup>, {}},
  };
  return types;
}

// An entity made but not yet in the drawing: it waits for the end of the
// complex entity it belongs to. An INSERT keeps its ATTRIBs here.
struct Made {
  std::unique_ptr<AcDbEntity> entity;
  std::vector<std::unique_ptr<AcDbAttribute>> attributes;
};

// What an unfinished complex entity holds, per drawing: an old-style
// polyline, an INSERT collecting its ATTRIBs, a block definition
// collecting its entities (which may themselves be polylines and INSERTs
// with attributes).
struct Building {
  std::unique_ptr<AcDbCurve> polyline;
  std::unique_ptr<Made> insert;
  bool insertPaper = false;
  bool inBlock = false;
  std::wstring blockName, blockDescription;
  int blockFlags = 0;
  AcGePoint3d blockOrigin;
  std::vector<Made> blockEntities;
  void clear() { *this = Building(); }
  bool busy() const { return polyline || insert || inBlock; }
};

std::map<int64_t, Building> &pending() {
  static auto *m = new std::map<int64_t, Building>();
  return *m;
}

bool hasAll(const AcDbDxfFiler &f, const std::vector<int> &codes) {
  for (int c : codes)
    if (!f.find(c)) return false;
  return true;
}

// Appends an entity (and its attributes, then an end marker) to a block
// record; the entity ends closed. Null on failure (nothing is left).
AcDbObjectId appendTo(AcDbObjectId btrId, Made made) {
  AcDbBlockTableRecord *btr = nullptr;
  if (acdbOpenObject(btr, btrId, AcDb::kForWrite) != Acad::eOk) return AcDbObjectId::kNull;
  AcDbObjectId id;
  AcDbEntity *ent = made.entity.get();
  Acad::ErrorStatus es = btr->appendAcDbEntity(id, ent);
  btr->close();
  if (es != Acad::eOk) return AcDbObjectId::kNull;
  made.entity.release();
  if (auto *ref = AcDbBlockReference::cast(ent); ref && !made.attributes.empty()) {
    for (auto &att : made.attributes) {
      AcDbAttribute *a = att.release();
      if (ref->appendAttribute(a) == Acad::eOk) a->close();
      else delete a;
    }
    auto *end = new AcDbSequenceEnd;
    AcDbDatabase *db = ref->database();
    AcDbObjectId endId = DbAccess::addToDatabase(db, end, ref->objectId(), false);
    end->setLayer(ref->layerId());
    db->impl()->attributes[DbAccess::stub(ref)].push_back(endId);
  }
  ent->close();
  return id;
}

AcDbObjectId appendToSpace(AcDbDatabase *db, Made made, bool paper) {
  return appendTo(recordId(db->blockTableId(), paper ? ACDB_PAPER_SPACE : ACDB_MODEL_SPACE), std::move(made));
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

// A finished entity goes into the block under way, else into its space.
AcDbObjectId place(AcDbDatabase *db, Building &b, Made made, bool paper, bool &accepted) {
  if (b.inBlock) {
    b.blockEntities.push_back(std::move(made));
    accepted = true;
    return AcDbObjectId::kNull;
  }
  AcDbObjectId id = appendToSpace(db, std::move(made), paper);
  accepted = !id.isNull();
  return id;
}

// The block a finished BLOCK ... ENDBLK sequence defines: a new record, or
// an existing user block redefined (its old entities erased). An anonymous
// block (flag 1, a name starting with *) gets the next free *U name.
AcDbObjectId finishBlock(AcDbDatabase *db, Building &b) {
  std::wstring name = b.blockName;
  bool anonymous = (b.blockFlags & 1) && !name.empty() && name[0] == L'*';
  auto *table = static_cast<AcDbSymbolTable *>(objectOf(db->blockTableId()));
  if (anonymous) {
    int n = 0;
    do name = L"*U" + std::to_wstring(++n);
    while (table->has(name.c_str()));
  } else if (!validSymbolName(name)) {
    return AcDbObjectId::kNull;
  }
  AcDbObjectId btrId = recordId(db->blockTableId(), name);
  if (!btrId.isNull()) {
    auto *old = AcDbBlockTableRecord::cast(objectOf(btrId));
    if (!old || old->isLayout() || btrId.isErased()) return AcDbObjectId::kNull;
    AcDbBlockTableRecord *btr = nullptr;
    if (acdbOpenObject(btr, btrId, AcDb::kForWrite) != Acad::eOk) return AcDbObjectId::kNull;
    for (AcDbObjectId e : btr->entityIds()) {
      AcDbEntity *ent = nullptr;
      if (acdbOpenObject(ent, e, AcDb::kForWrite) == Acad::eOk) ent->erase(), ent->close();
    }
    DbAccess::blockEntities(btr).clear();
    btr->setOrigin(b.blockOrigin);
    btr->close();
  } else {
    AcDbBlockTable *blocks = nullptr;
    if (db->getBlockTable(blocks, AcDb::kForWrite) != Acad::eOk) return AcDbObjectId::kNull;
    auto *rec = new AcDbBlockTableRecord;
    rec->setName(name.c_str());
    rec->setOrigin(b.blockOrigin);
    Acad::ErrorStatus es = blocks->add(btrId, rec);
    blocks->close();
    if (es != Acad::eOk) {
      delete rec;
      return AcDbObjectId::kNull;
    }
    rec->close();
  }
  for (Made &m : b.blockEntities) appendTo(btrId, std::move(m));
  b.blockName = name;
  return btrId;
}

// A table record made from its data list: the name must be new and valid.
// Dimension styles are kept as their groups.
AcDbObjectId makeRecord(AcDbDatabase *db, const std::wstring &type, AcDbDxfFiler &f, ParsedData &parsed) {
  std::wstring name;
  if (!f.getString(2, name) || !validSymbolName(name)) return AcDbObjectId::kNull;
  if (type == L"DIMSTYLE") {
    auto &kept = db->impl()->keptTables[L"DIMSTYLE"];
    for (AcDbObjectId id : kept.records)
      if (auto *s = VerbatimObject::cast(objectOf(id)); s && !s->isErased() && upperKey(s->name()) == upperKey(name))
        return AcDbObjectId::kNull;
    AcDbDxfFiler groups;
    groups.writeString(100, L"AcDbSymbolTableRecord");
    groups.writeString(100, L"AcDbDimStyleTableRecord");
    for (const auto &it : f.items()) groups.items().push_back(it);
    if (!f.find(70)) groups.writeInt16(70, 0);
    auto *style = new VerbatimObject(L"DIMSTYLE");
    style->dxfInFields(&groups);
    AcDbObjectId id = DbAccess::addToDatabase(db, style, kept.head, false);
    kept.records.push_back(id);
    return id;
  }
  AcDbObjectId tableId = type == L"LAYER"   ? db->layerTableId()
                         : type == L"STYLE" ? db->textStyleTableId()
                         : type == L"LTYPE" ? db->linetypeTableId()
                         : type == L"APPID" ? db->regAppTableId()
                                            : AcDbObjectId::kNull;
  if (tableId.isNull() || !recordId(tableId, name).isNull()) return AcDbObjectId::kNull;
  AcDbSymbolTable *table = nullptr;
  if (acdbOpenObject(table, tableId, AcDb::kForWrite) != Acad::eOk) return AcDbObjectId::kNull;
  std::unique_ptr<AcDbSymbolTableRecord> rec(type == L"LAYER"   ? static_cast<AcDbSymbolTableRecord *>(new AcDbLayerTableRecord)
                                             : type == L"STYLE" ? static_cast<AcDbSymbolTableRecord *>(new AcDbTextStyleTableRecord)
                                             : type == L"LTYPE" ? static_cast<AcDbSymbolTableRecord *>(new AcDbLinetypeTableRecord)
                                                                : static_cast<AcDbSymbolTableRecord *>(new AcDbRegAppTableRecord));
  AcDbObjectId id;
  bool ok = applyData(rec.get(), f, parsed) && table->add(id, rec.get()) == Acad::eOk;
  table->close();
  if (!ok) return AcDbObjectId::kNull;
  rec.release()->close();
  return id;
}

// Makes what a data list describes; the id of a finished entity or object,
// null while a complex entity is under way (accepted says whether the list
// was taken). A list a complex entity under way cannot take drops that
// entity whole.
AcDbObjectId makeFromData(Interp &in, const Value &list, bool ownerless, bool &accepted, Value *blockName) {
  accepted = false;
  AcDbDatabase *db = drawing(in);
  Building &b = pending()[db->serial()];
  AcDbDxfFiler f;
  ParsedData parsed;
  if (!parseEntityData(list, f, parsed) || parsed.type.empty() || !appsRegistered(db, parsed)) {
    b.clear();
    return AcDbObjectId::kNull;
  }
  const std::wstring &type = parsed.type;
  int64_t flags = 0;
  f.getInt(70, flags);
  int64_t paper = 0;
  f.getInt(67, paper);

  // Parts of an old-style polyline.
  if (b.polyline) {
    if (type == L"VERTEX") {
      if (!f.find(10)) return b.clear(), AcDbObjectId::kNull;
      bool added;
      if (auto *p3 = AcDb3dPolyline::cast(b.polyline.get())) {
        auto *v = new AcDb3dPolylineVertex();
        added = applyData(v, f, parsed) && p3->appendVertex(v) == Acad::eOk;
        if (!added) delete v;
      } else {
        auto *v = new AcDb2dVertex();
        added = applyData(v, f, parsed) && AcDb2dPolyline::cast(b.polyline.get())->appendVertex(v) == Acad::eOk;
        if (!added) delete v;
      }
      if (!added) return b.clear(), AcDbObjectId::kNull;
      accepted = true;
      return AcDbObjectId::kNull;
    }
    if (type != L"SEQEND") return b.clear(), AcDbObjectId::kNull;
    Made made{std::unique_ptr<AcDbEntity>(b.polyline.release()), {}};
    return place(db, b, std::move(made), b.insertPaper, accepted);
  }
  // Attributes of an INSERT.
  if (b.insert) {
    if (type == L"ATTRIB") {
      auto att = std::make_unique<AcDbAttribute>();
      att->setDatabaseDefaults(db);
      if (!hasAll(f, {1, 2, 10, 40}) || !applyData(att.get(), f, parsed)) return b.clear(), AcDbObjectId::kNull;
      b.insert->attributes.push_back(std::move(att));
      accepted = true;
      return AcDbObjectId::kNull;
    }
    if (type != L"SEQEND") return b.clear(), AcDbObjectId::kNull;
    Made made = std::move(*b.insert);
    b.insert.reset();
    return place(db, b, std::move(made), b.insertPaper, accepted);
  }
  if (type == L"VERTEX" || type == L"SEQEND" || type == L"ATTRIB") return b.clear(), AcDbObjectId::kNull;

  // Block definitions.
  if (type == L"BLOCK") {
    std::wstring name;
    if (b.inBlock || !f.getString(2, name) || !f.find(10) || name.empty()) return b.clear(), AcDbObjectId::kNull;
    b.clear();
    b.inBlock = true;
    b.blockName = name;
    b.blockFlags = int(flags);
    f.getPoint(10, b.blockOrigin);
    accepted = true;
    return AcDbObjectId::kNull;
  }
  if (type == L"ENDBLK") {
    if (!b.inBlock) return b.clear(), AcDbObjectId::kNull;
    AcDbObjectId btr = finishBlock(db, b);
    if (!btr.isNull() && blockName) *blockName = lisp::makeString(b.blockName);
    b.clear();
    accepted = !btr.isNull();
    return btr;
  }

  // Table records.
  if (type == L"LAYER" || type == L"STYLE" || type == L"LTYPE" || type == L"APPID" || type == L"DIMSTYLE") {
    if (b.busy()) return b.clear(), AcDbObjectId::kNull;
    AcDbObjectId id = makeRecord(db, type, f, parsed);
    accepted = !id.isNull();
    return id;
  }

  if (type == L"POLYLINE") {
    std::unique_ptr<AcDbCurve> pl;
    if (flags & 8)
      pl = std::make_unique<AcDb3dPolyline>();
    else
      pl = std::make_unique<AcDb2dPolyline>();
    pl->setDatabaseDefaults(db);
    if (!applyData(pl.get(), f, parsed)) return b.clear(), AcDbObjectId::kNull;
    b.polyline = std::move(pl);
    b.insertPaper = paper == 1;
    accepted = true;
    return AcDbObjectId::kNull;
  }

  const EntityType *kind = nullptr;
  for (const EntityType &t : entityTypes())
    if (type == t.name) kind = &t;
  if (!kind || !hasAll(f, kind->required)) return b.clear(), AcDbObjectId::kNull;
  std::unique_ptr<AcDbObject> obj(type == L"INSERT" ? newBlockReference(f) : kind->make());
  auto *ent = AcDbEntity::cast(obj.get());
  if (!ent) {
    if (!ownerless || b.busy()) return b.clear(), AcDbObjectId::kNull;  // entmake makes entities only
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
  if (!applyData(ent, f, parsed)) return b.clear(), AcDbObjectId::kNull;
  Made made{std::unique_ptr<AcDbEntity>(static_cast<AcDbEntity *>(obj.release())), {}};
  int64_t follow = 0;
  if (type == L"INSERT" && f.getInt(66, follow) && follow == 1) {
    b.insert = std::make_unique<Made>(std::move(made));
    b.insertPaper = paper == 1;
    accepted = true;
    return AcDbObjectId::kNull;
  }
  return place(db, b, std::move(made), paper == 1, accepted);
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
  if (nargs == 0) {
    pending()[drawing(in)->serial()].clear();  // cancels a complex entity under way
    return Value();
  }
  bool accepted;
  Value name;
  makeFromData(in, lisp::listArg(in, args[0]), false, accepted, &name);
  if (accepted && !name.isNil()) return name;  // ENDBLK: the block's name
  return accepted ? args[0] : Value();
}

Value fEntmakex(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 0, 1);
  if (nargs == 0) {
    pending()[drawing(in)->serial()].clear();
    return Value();
  }
  bool accepted;
  AcDbObjectId id = makeFromData(in, lisp::listArg(in, args[0]), true, accepted, nullptr);
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

// The sub-entities of a complex entity: an old-style polyline's vertices
// and end marker, an INSERT's attributes and end marker.
std::vector<AcDbObjectId> subentityIds(const AcDbObject *o) {
  std::vector<AcDbObjectId> ids;
  if (auto *p = AcDb2dPolyline::cast(o)) {
    for (AcDb2dVertex *v : p->vertices()) ids.push_back(v->objectId());
    ids.push_back(p->sequenceEndId());
  } else if (auto *p3 = AcDb3dPolyline::cast(o)) {
    for (AcDb3dPolylineVertex *v : p3->vertices()) ids.push_back(v->objectId());
    ids.push_back(p3->sequenceEndId());
  } else if (auto *ref = AcDbBlockReference::cast(o); ref && ref->database()) {
    auto &all = ref->database()->impl()->attributes;
    if (auto found = all.find(DbAccess::stub(ref)); found != all.end())
      for (AcDbObjectId id : found->second)
        if (!id.isErased()) ids.push_back(id);
  }
  return ids;
}

// Whether an entity is part of a complex entity (a vertex, an attribute,
// an end marker).
bool isSubentity(const AcDbObject *o) {
  return AcDbVertex::cast(o) || AcDbSequenceEnd::cast(o) || AcDbAttribute::cast(o) ||
         (VerbatimEntity::cast(o) && AcDbEntity::cast(objectOf(o->ownerId())));
}

// Erases a main entity, or brings back an erased one.
Value fEntdel(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 1);
  AcDbObjectId id = entityArg(in, args[0]);
  AcDbEntity *ent = nullptr;
  if (acdbOpenObject(ent, id, AcDb::kForWrite, true) != Acad::eOk) return Value();
  bool ok = !isSubentity(ent) && ent->erase(!ent->isErased()) == Acad::eOk;
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

// The entity after a block's or a space's entity: in a block definition the
// next of its entities (nil after the last); in a space the next main
// entity of the drawing.
Value nextAfter(AcDbDatabase *db, const AcDbObject *o) {
  auto *btr = AcDbBlockTableRecord::cast(objectOf(o->ownerId()));
  if (btr && !btr->isLayout()) {
    const auto &ids = btr->entityIds();
    auto at = std::find(ids.begin(), ids.end(), o->objectId());
    for (++at; at < ids.end(); ++at)
      if (!at->isErased()) return enameValue(*at);
    return Value();
  }
  return nextMainAfter(db, o->objectId().handle().value());
}

// Without an argument the first main entity; after a complex entity its
// first sub-entity; after a sub-entity the next one, and after the end
// marker the entity after the complex entity.
Value fEntnext(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 0, 1);
  AcDbDatabase *db = drawing(in);
  if (nargs == 0 || args[0].isNil()) return nextMainAfter(db, 0);
  AcDbObjectId id = entityArg(in, args[0]);
  if (id.isNull() || id.database() != db) return Value();
  AcDbObject *o = objectOf(id);
  if (!o) return Value();
  std::vector<AcDbObjectId> subs = subentityIds(o);
  if (!subs.empty()) return enameValue(subs.front());
  if (isSubentity(o)) {
    AcDbObject *owner = objectOf(o->ownerId());
    std::vector<AcDbObjectId> siblings = subentityIds(owner);
    for (size_t i = 0; i + 1 < siblings.size(); ++i)
      if (siblings[i] == id) return enameValue(siblings[i + 1]);
    if (!owner) return Value();
    return nextAfter(db, owner);
  }
  return nextAfter(db, o);
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
