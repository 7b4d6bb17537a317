// Making a database's contents from a drawing file as read (dxf_reader.cpp).
//
// Every object keeps the handle the file gave it: the store is first filled
// with free stubs up to the largest handle the file names, and a handle
// chooser puts each new object on the stub of its file handle (vertices and
// end markers that join with their polyline too). Objects the file lacks get
// new handles above all of the file's, so a reference in the file always
// finds what it named, or nothing.
//
// What is made: the layer, linetype, text style, application and block
// tables with their records; block origins; the entities of every block, of
// model space and of paper space; the root dictionary with the dictionaries
// and groups under it; extension dictionaries; extended data; the current
// layer, text style, linetype, colour, text size and spline settings.
// Everything else is kept as its groups, with its handle, owner and
// reactors, to be written back as read: entity kinds the database has no
// class for, polyface and polygon meshes, the dimension style, viewport,
// view and UCS tables, the objects (layouts, plot settings, styles ...),
// the objects nothing reaches, and the file's classes.
#include <algorithm>
#include <map>
#include <set>
#include <unordered_map>

#include "dxf/internal.h"

namespace vantry::host::dxf {
namespace {

struct BuildError {
  Acad::ErrorStatus es;
  std::wstring text;
};

AcDbEntity *makeEntity(const Record &r) {
  const std::wstring &type = r.type;
  if (type == L"INSERT") return newBlockReference(r.fields);
  if (type == L"LINE") return new AcDbLine;
  if (type == L"CIRCLE") return new AcDbCircle;
  if (type == L"ARC") return new AcDbArc;
  if (type == L"LWPOLYLINE") return new AcDbPolyline;
  if (type == L"MTEXT") return new AcDbMText;
  if (type == L"LEADER") return new AcDbLeader;
  if (type == L"3DFACE") return new AcDbFace;
  if (type == L"TEXT") return new AcDbText;
  if (type == L"ATTDEF") return new AcDbAttributeDefinition;
  if (type == L"POINT") return new AcDbPoint;
  if (type == L"SOLID") return new AcDbSolid;
  if (type == L"TRACE") return new AcDbTrace;
  if (type == L"ELLIPSE") return new AcDbEllipse;
  if (type == L"SPLINE") return new AcDbSpline;
  if (type == L"XLINE") return new AcDbXline;
  if (type == L"RAY") return new AcDbRay;
  if (type == L"HATCH") return new AcDbHatch;
  if (type == L"DIMENSION") return new AcDbDimension;
  return nullptr;
}

class Builder {
 public:
  Builder(Drawing &d, AcDbDatabase *db) : d_(d), db_(db), impl_(db->impl()) {}
  ~Builder() {
    for (AcDbObject *o : open_) o->close();
    setHandleChooser(db_, nullptr);
  }
  void build();

 private:
  [[noreturn]] void fail(const Record &r, const std::wstring &what,
                         Acad::ErrorStatus es = Acad::eDxfReadAborted) {
    throw BuildError{es, L"line " + std::to_wstring(r.line) + L": " + what};
  }
  AcDbObjectId idOf(uint64_t h) const {
    auto &stubs = impl_->stubs;
    return h == 0 || h > stubs.size() ? AcDbObjectId::kNull : AcDbObjectId(&stubs[size_t(h - 1)]);
  }
  // The handle an object of the record gets: its own unless it has none
  // or an earlier object took it; then a new one (0), counted or noted.
  uint64_t claim(uint64_t handle, const Record *r) {
    if (!r) return handle;
    if (handle == 0) {
      ++withoutHandle_;
      return 0;
    }
    if (auto [at, fresh] = claimed_.emplace(handle, r->line); !fresh) {
      d_.notes.push_back(L"line " + std::to_wstring(r->line) + L": the " + r->type + L" has the handle " +
                         AcDbHandle(handle).toString() + L" of the object of line " + std::to_wstring(at->second) +
                         L"; it gets a new one");
      return 0;
    }
    return handle;
  }
  void note(const Record &r, const std::wstring &what) {
    d_.notes.push_back(L"line " + std::to_wstring(r.line) + L": " + what);
  }
  // The object joins with the handle (when free), open for write until the end.
  AcDbObjectId place(AcDbObject *obj, uint64_t handle, AcDbObjectId owner, const Record *r = nullptr) {
    want_[obj] = claim(handle, r);
    AcDbObjectId id = DbAccess::addToDatabase(db_, obj, owner, true);
    open_.push_back(obj);
    if (r) joined(obj, *r);
    return id;
  }
  // What a record says beside its groups, taken once its object has joined:
  // reactors (applied at the end, when what they name is there) and an
  // extension dictionary (made after the objects).
  void joined(AcDbObject *obj, const Record &r) {
    if (!r.reactors.empty()) reactors_.emplace_back(obj, &r);
    if (r.xdict) xdicts_.emplace_back(obj, r.xdict);
  }
  // Reserves a handle that no database object takes (a BLOCK's, an
  // ENDBLK's): 0 when the file gave none or an earlier object has it.
  uint64_t reserve(const Record &r) {
    return r.handle && claimed_.emplace(r.handle, r.line).second ? r.handle : 0;
  }
  void resolve(Record &r) {
    for (auto &it : r.fields.items())
      if (isReference(it.code) && !it.dims) it.id = idOf(uint64_t(it.integer));
  }
  void applyXData(AcDbObject *obj, const Record &r);
  // Takes an entity out again (its data was refused): out of its block and
  // the store.
  void discard(AcDbEntity *ent, AcDbObjectId btr);
  void forget(AcDbObject *obj);
  AcDbEntity *keepAsRead(AcDbEntity *ent, Record &r, AcDbObjectId owner);
  void findStandIns(std::vector<Record> &records);
  const DxfStandIn *standInOf(const Record &insert, const Record **xrecord, std::wstring *cls) const;
  Table *table(const wchar_t *name);
  void symbolTable(const wchar_t *name, const wchar_t *recordType, AcDbObjectId slot, AcRxClass *recordClass);
  void blockDefinitions(std::vector<std::pair<AcDbObjectId, Block *>> &defs);
  void entity(Record &r, AcDbObjectId btr);
  void polyline(Record &r, AcDbObjectId btr);
  void mesh(Record &r, AcDbObjectId btr);
  void attributes(Record &insert, AcDbEntity *ref);
  void appendTo(AcDbObjectId btr, AcDbObjectId id) {
    DbAccess::blockEntities(static_cast<AcDbBlockTableRecord *>(objectOf(btr))).push_back(id);
  }
  void objects();
  void dictionary(Record &r, AcDbDictionary *dict, bool root);
  void ownedObjects(Record &r, AcDbObject *owner);
  void extensionDictionaries();
  void looseObjects();
  void applyReactors();
  void headerVariables();
  void keptTable(const wchar_t *name);

  Drawing &d_;
  AcDbDatabase *db_;
  AcDbDatabase::Impl *impl_;
  std::unordered_map<const AcDbObject *, uint64_t> want_;
  uint64_t seqend_ = 0;  // the end marker's handle while a polyline joins
  std::unordered_map<uint64_t, Record *> objectsByHandle_;
  std::set<std::wstring> droppedBlocks_;  // upper-case names of stand-in blocks
  std::set<uint64_t> visited_;
  std::vector<AcDbObject *> open_;
  std::unordered_map<uint64_t, int> claimed_;  // handle -> line of the record that has it
  int withoutHandle_ = 0;
  // Extended data of table records, applied once every table is read: it
  // may name an application whose record comes later in the file.
  std::vector<std::pair<AcDbObject *, const Record *>> tableXData_;
  std::vector<std::pair<AcDbObject *, const Record *>> reactors_;
  std::vector<std::pair<AcDbObject *, uint64_t>> xdicts_;  // object, its dictionary's handle
  size_t xdictsMade_ = 0;
};

void Builder::build() {
  while (impl_->stubs.size() < d_.maxHandle)
    impl_->stubs.push_back(AcDbStub{db_, nullptr, impl_->stubs.size() + 1});
  setHandleChooser(db_, [this](const AcDbObject *o) -> uint64_t {
    auto it = want_.find(o);
    if (it != want_.end()) return it->second;
    return AcDbSequenceEnd::cast(o) ? seqend_ : 0;
  });
  for (Record &o : d_.objects)
    if (o.handle) objectsByHandle_.emplace(o.handle, &o);
  findStandIns(d_.entities);
  for (Block &b : d_.blocks) findStandIns(b.entities);

  // The tables first, then their records: a record's data may name another
  // table's record (a layer its linetype), in whatever order the file
  // gives the tables.
  auto head = [&](const wchar_t *name, AcDbObjectId &slot, AcDbSymbolTable *tableObj) {
    Table *t = table(name);
    slot = place(tableObj, t ? t->head.handle : 0, AcDbObjectId::kNull, t ? &t->head : nullptr);
  };
  head(L"LTYPE", impl_->linetypeTable, new AcDbLinetypeTable);
  head(L"LAYER", impl_->layerTable, new AcDbLayerTable);
  head(L"STYLE", impl_->styleTable, new AcDbTextStyleTable);
  head(L"APPID", impl_->regAppTable, new AcDbRegAppTable);
  head(L"BLOCK_RECORD", impl_->blockTable, new AcDbBlockTable);
  symbolTable(L"APPID", L"APPID", impl_->regAppTable, AcDbRegAppTableRecord::desc());
  symbolTable(L"LTYPE", L"LTYPE", impl_->linetypeTable, AcDbLinetypeTableRecord::desc());
  symbolTable(L"STYLE", L"STYLE", impl_->styleTable, AcDbTextStyleTableRecord::desc());
  symbolTable(L"LAYER", L"LAYER", impl_->layerTable, AcDbLayerTableRecord::desc());
  symbolTable(L"BLOCK_RECORD", L"BLOCK_RECORD", impl_->blockTable, AcDbBlockTableRecord::desc());
  for (const wchar_t *name : {L"DIMSTYLE", L"VPORT", L"VIEW", L"UCS"}) keptTable(name);
  for (auto &[obj, r] : tableXData_) applyXData(obj, *r);
  std::vector<std::pair<AcDbObjectId, Block *>> defs;
  blockDefinitions(defs);
  completeDatabase(db_, false);

  for (auto &[btr, block] : defs)
    for (Record &r : block->entities) entity(r, btr);
  for (Record &r : d_.entities) {
    AcDbObjectId owner = idOf(r.owner);
    if (!AcDbBlockTableRecord::cast(objectOf(owner))) {
      int64_t paper = 0;
      r.fields.getInt(67, paper);
      owner = paper ? impl_->paperSpace : impl_->modelSpace;
    }
    entity(r, owner);
  }
  objects();
  extensionDictionaries();
  looseObjects();
  applyReactors();
  for (Record &c : d_.classes)
    if (c.type == L"CLASS") impl_->classes.push_back(c.fields.items());
  headerVariables();
  if (withoutHandle_ && d_.maxHandle)
    d_.notes.push_back(L"gave new handles to " + std::to_wstring(withoutHandle_) +
                       L" objects the file left without one");
}

Table *Builder::table(const wchar_t *name) {
  for (Table &t : d_.tables)
    if (upperKey(t.name) == name) return &t;
  return nullptr;
}

// An INSERT stands in for a custom entity when its extension dictionary
// holds an XRECORD under the name of a class with a registered stand-in.
const DxfStandIn *Builder::standInOf(const Record &insert, const Record **xrecord, std::wstring *cls) const {
  auto xd = objectsByHandle_.find(insert.xdict);
  if (!insert.xdict || xd == objectsByHandle_.end()) return nullptr;
  const auto &its = xd->second->fields.items();
  for (size_t i = 0; i + 1 < its.size(); ++i) {
    if (its[i].code != 3 || (its[i + 1].code != 350 && its[i + 1].code != 360)) continue;
    const DxfStandIn *si = findDxfStandIn(its[i].text);
    auto xr = objectsByHandle_.find(uint64_t(its[i + 1].integer));
    if (!si || !si->read || xr == objectsByHandle_.end() || xr->second->type != L"XRECORD") continue;
    *xrecord = xr->second;
    *cls = its[i].text;
    return si;
  }
  return nullptr;
}

void Builder::findStandIns(std::vector<Record> &records) {
  for (Record &r : records) {
    const Record *xr;
    std::wstring cls, block;
    if (r.type == L"INSERT" && standInOf(r, &xr, &cls) && r.fields.getString(2, block))
      droppedBlocks_.insert(upperKey(block));
  }
}

// A table and its records. A record without a name, with a name the
// database refuses, or with the name of one before it is skipped.
void Builder::symbolTable(const wchar_t *name, const wchar_t *recordType, AcDbObjectId slot,
                          AcRxClass *recordClass) {
  Table *t = table(name);
  auto *tableObj = static_cast<AcDbSymbolTable *>(objectOf(slot));
  if (!t) return;
  for (Record &r : t->records) {
    std::wstring recName;
    if (upperKey(r.type) != recordType || !r.fields.getString(2, recName)) continue;
    if (droppedBlocks_.count(upperKey(recName))) continue;
    auto *rec = AcDbSymbolTableRecord::cast(recordClass->create());
    if (tableObj->has(recName.c_str()) || rec->setName(recName.c_str()) != Acad::eOk) {
      delete rec;
      note(r, L"dropped the " + std::wstring(recordType) + L" \"" + recName + L"\": " +
                  (tableObj->has(recName.c_str()) ? L"an earlier record has its name" : L"the name is not valid"));
      continue;
    }
    AcDbObjectId id = place(rec, r.handle, slot, &r);
    DbAccess::addTableRecord(tableObj, upperKey(recName), id);
    resolve(r);
    if (rec->dxfInFields(&r.fields) != Acad::eOk)
      note(r, L"the " + std::wstring(recordType) + L" \"" + recName + L"\" is not valid; its name is kept");
    if (auto *layer = AcDbLayerTableRecord::cast(rec)) {
      // 390: the plot style name's placeholder, named by its dictionary entry.
      if (const auto *ps = r.fields.find(390)) {
        uint64_t h = uint64_t(ps->integer);
        for (const Record &o : d_.objects) {
          const auto &its = o.fields.items();
          for (size_t i = 0; i + 1 < its.size(); ++i)
            if (its[i].code == 3 && its[i + 1].code == 350 && uint64_t(its[i + 1].integer) == h)
              layer->setPlotStyleName(its[i].text.c_str());
        }
      }
    }
    tableXData_.emplace_back(rec, &r);
  }
}

// Ties each BLOCK of the file to its block record (by owner, else by name;
// a file without block records gets them from the blocks) and takes its
// origin.
void Builder::blockDefinitions(std::vector<std::pair<AcDbObjectId, Block *>> &defs) {
  auto *blocks = static_cast<AcDbBlockTable *>(objectOf(impl_->blockTable));
  for (Block &b : d_.blocks) {
    std::wstring name;
    b.begin.fields.getString(2, name);
    if (name.empty() || droppedBlocks_.count(upperKey(name))) continue;
    AcDbObjectId btr = idOf(b.begin.owner);
    auto *rec = AcDbBlockTableRecord::cast(objectOf(btr));
    if (!rec || upperKey(rec->name()) != upperKey(name)) {
      btr = recordId(impl_->blockTable, name);
      rec = AcDbBlockTableRecord::cast(objectOf(btr));
    }
    if (!rec) {
      rec = new AcDbBlockTableRecord;
      if (rec->setName(name.c_str()) != Acad::eOk) {
        delete rec;
        fail(b.begin, L"the block name \"" + name + L"\" is not valid");
      }
      btr = place(rec, 0, impl_->blockTable);
      if (table(L"BLOCK_RECORD")) note(b.begin, L"the BLOCK \"" + name + L"\" has no block record; one is made");
      DbAccess::addTableRecord(blocks, upperKey(name), btr);
    }
    AcGePoint3d origin;
    if (b.begin.fields.getPoint(10, origin)) rec->setOrigin(origin);
    if (!impl_->blockEnds.count(DbAccess::stub(rec)))
      impl_->blockEnds[DbAccess::stub(rec)] = {reserve(b.begin), reserve(b.end)};
    defs.emplace_back(btr, &b);
  }
}

void Builder::entity(Record &r, AcDbObjectId btr) {
  if (r.type == L"POLYLINE") return polyline(r, btr);
  const Record *xrecord = nullptr;
  std::wstring cls;
  if (r.type == L"INSERT") {
    if (const DxfStandIn *si = standInOf(r, &xrecord, &cls)) {
      // The class's data: the XRECORD's groups after its marker and cloning flag.
      AcDbDxfFiler data(true);
      const auto &its = xrecord->fields.items();
      size_t i = 0;
      if (i < its.size() && its[i].code == 100) ++i;
      if (i < its.size() && its[i].code == 280) ++i;
      data.items().assign(its.begin() + long(i), its.end());
      std::wstring why;
      AcDbEntity *ent = si->read(data, &why);
      if (!ent) fail(r, L"the " + cls + L" entity cannot be read: " + why);
      // Its dictionary and record are the writer's to make again.
      visited_.insert(r.xdict);
      visited_.insert(xrecord->handle);
      appendTo(btr, place(ent, r.handle, btr, &r));
      resolve(r);
      if (Acad::ErrorStatus es = ent->AcDbEntity::dxfInFields(&r.fields); es != Acad::eOk)
        fail(r, L"the " + cls + L" entity is not valid", es);
      applyXData(ent, r);
      return;
    }
  }
  if (r.type == L"VERTEX" || r.type == L"SEQEND" || r.type == L"ATTRIB" || r.type == L"ENDBLK" ||
      r.type == L"BLOCK") {
    note(r, L"dropped the " + r.type + L": it belongs to no entity");
    return;
  }
  // Kinds the database does not model are kept as their groups.
  AcDbEntity *ent = makeEntity(r);
  if (!ent) ent = new VerbatimEntity(r.type);
  appendTo(btr, place(ent, r.handle, btr, &r));
  ent->setLayer(recordId(impl_->layerTable, L"0"));
  resolve(r);
  if (ent->dxfInFields(&r.fields) != Acad::eOk) {
    if (!AcDbGroupedEntity::cast(ent)) {
      note(r, L"dropped the " + r.type + L": its data is not valid");
      discard(ent, btr);
      return;
    }
    auto &list = DbAccess::blockEntities(static_cast<AcDbBlockTableRecord *>(objectOf(btr)));
    auto at = std::find(list.begin(), list.end(), ent->objectId());
    ent = keepAsRead(ent, r, btr);
    if (at != list.end()) *at = ent->objectId();
  }
  applyXData(ent, r);
  if (r.type == L"INSERT") attributes(r, ent);
}

void Builder::discard(AcDbEntity *ent, AcDbObjectId btr) {
  auto &list = DbAccess::blockEntities(static_cast<AcDbBlockTableRecord *>(objectOf(btr)));
  std::erase(list, ent->objectId());
  forget(ent);
}

// Takes an object out of the store and out of everything still to be done
// with it (its reactors, its extension dictionary, its handle), and deletes it.
void Builder::forget(AcDbObject *obj) {
  std::erase(open_, obj);
  std::erase_if(reactors_, [&](const auto &p) { return p.first == obj; });
  std::erase_if(xdicts_, [&](const auto &p) { return p.first == obj; });
  std::erase_if(tableXData_, [&](const auto &p) { return p.first == obj; });
  want_.erase(obj);
  DbAccess::stub(obj)->obj = nullptr;
  delete obj;
}

// An entity of a kind kept by its groups (a hatch, a dimension) whose groups
// the database refuses is kept as read instead: written back, not drawn.
AcDbEntity *Builder::keepAsRead(AcDbEntity *ent, Record &r, AcDbObjectId owner) {
  uint64_t handle = want_[ent];
  forget(ent);
  auto *kept = new VerbatimEntity(r.type);
  want_[kept] = handle;
  DbAccess::addToDatabase(db_, kept, owner, true);
  open_.push_back(kept);
  joined(kept, r);
  kept->setLayer(recordId(impl_->layerTable, L"0"));
  kept->dxfInFields(&r.fields);
  return kept;
}

// The ATTRIBs after an INSERT and its end marker, owned by it. One whose
// data does not read is kept as its groups.
void Builder::attributes(Record &insert, AcDbEntity *ref) {
  std::vector<AcDbObjectId> ids;
  for (Record &a : insert.subs) {
    if (a.type != L"ATTRIB") continue;
    resolve(a);
    AcDbEntity *att = new AcDbAttribute;
    AcDbObjectId id = place(att, a.handle, ref->objectId(), &a);
    att->setLayer(recordId(impl_->layerTable, L"0"));
    if (att->dxfInFields(&a.fields) != Acad::eOk) {
      att = keepAsRead(att, a, ref->objectId());
      id = att->objectId();
    }
    applyXData(att, a);
    ids.push_back(id);
  }
  for (Record &s : insert.subs)
    if (s.type == L"SEQEND" && !ids.empty()) {
      auto *end = new AcDbSequenceEnd;
      ids.push_back(place(end, s.handle, ref->objectId(), &s));
      end->setLayer(ref->layerId());
    }
  if (!ids.empty()) impl_->attributes[DbAccess::stub(ref)] = std::move(ids);
}

// An old-style polyline: its vertices are made first and join the database
// with it, each with its file handle, and so does its end marker.
void Builder::polyline(Record &r, AcDbObjectId btr) {
  int64_t flags = 0;
  r.fields.getInt(70, flags);
  if (flags & (16 | 64)) return mesh(r, btr);
  std::vector<Record *> verts;
  seqend_ = 0;
  for (Record &s : r.subs) {
    if (s.type == L"VERTEX") verts.push_back(&s);
    if (s.type == L"SEQEND") seqend_ = claim(s.handle, &s);
  }
  AcDbEntity *pl;
  std::vector<AcDbEntity *> made;
  if (flags & 8) {
    auto *p3 = new AcDb3dPolyline;
    for (Record *v : verts) {
      auto *vx = new AcDb3dPolylineVertex;
      want_[vx] = claim(v->handle, v);
      p3->appendVertex(vx);
      made.push_back(vx);
    }
    pl = p3;
  } else {
    auto *p2 = new AcDb2dPolyline;
    for (Record *v : verts) {
      auto *vx = new AcDb2dVertex;
      want_[vx] = claim(v->handle, v);
      p2->appendVertex(vx);
      made.push_back(vx);
    }
    pl = p2;
  }
  appendTo(btr, place(pl, r.handle, btr, &r));
  seqend_ = 0;
  pl->setLayer(recordId(impl_->layerTable, L"0"));
  resolve(r);
  if (Acad::ErrorStatus es = pl->dxfInFields(&r.fields); es != Acad::eOk)
    fail(r, L"the POLYLINE is not valid", es);
  applyXData(pl, r);
  for (size_t i = 0; i < verts.size(); ++i) {
    AcDbObject *v = nullptr;
    if (acdbOpenObject(v, made[i]->objectId(), AcDb::kForWrite) != Acad::eOk)
      fail(*verts[i], L"a VERTEX is busy");
    open_.push_back(v);
    resolve(*verts[i]);
    if (Acad::ErrorStatus es = v->dxfInFields(&verts[i]->fields); es != Acad::eOk)
      fail(*verts[i], L"the VERTEX is not valid", es);
    applyXData(v, *verts[i]);
  }
}

// A polyface or polygon mesh is kept as its groups: the POLYLINE, and its
// VERTEX records and end marker as entities it owns, written back after it
// with their handles.
void Builder::mesh(Record &r, AcDbObjectId btr) {
  auto *head = new VerbatimEntity(L"POLYLINE");
  appendTo(btr, place(head, r.handle, btr, &r));
  head->setLayer(recordId(impl_->layerTable, L"0"));
  resolve(r);
  if (head->dxfInFields(&r.fields) != Acad::eOk) {
    note(r, L"dropped the POLYLINE: its data is not valid");
    discard(head, btr);
    return;
  }
  applyXData(head, r);
  std::vector<AcDbObjectId> ids;
  for (Record &s : r.subs) {
    if (s.type != L"VERTEX" && s.type != L"SEQEND") continue;
    auto *sub = new VerbatimEntity(s.type);
    AcDbObjectId id = place(sub, s.handle, head->objectId(), &s);
    sub->setLayer(recordId(impl_->layerTable, L"0"));
    resolve(s);
    sub->dxfInFields(&s.fields);
    applyXData(sub, s);
    ids.push_back(id);
  }
  impl_->attributes[DbAccess::stub(head)] = std::move(ids);
}

// Extended data, registering the applications it names that are not yet.
void Builder::applyXData(AcDbObject *obj, const Record &r) {
  if (!r.xdata) return;
  for (const resbuf *p = r.xdata; p; p = p->rbnext)
    if (p->restype == 1001 && p->resval.rstring && validSymbolName(p->resval.rstring))
      ensureRecord(impl_->regAppTable, AcDbRegAppTableRecord::desc(), p->resval.rstring);
  if (obj->setXData(r.xdata) != Acad::eOk) note(r, L"dropped the extended data of the " + r.type + L": it is not valid");
}

// The root dictionary is the first DICTIONARY without an owner.
void Builder::objects() {
  for (Record &r : d_.objects) {
    if (r.type != L"DICTIONARY" || (r.hasOwner && r.owner != 0)) continue;
    auto *nod = new AcDbDictionary;
    impl_->nod = place(nod, r.handle, AcDbObjectId::kNull, &r);
    visited_.insert(r.handle);
    applyXData(nod, r);
    dictionary(r, nod, true);
    return;
  }
}

// A dictionary's entries: dictionaries and groups made as such, objects of
// other kinds kept as their groups with what they own.
void Builder::dictionary(Record &r, AcDbDictionary *dict, bool root) {
  const auto &its = r.fields.items();
  for (size_t i = 0; i + 1 < its.size(); ++i) {
    if (its[i].code != 3 || (its[i + 1].code != 350 && its[i + 1].code != 360)) continue;
    std::wstring key = its[i].text;
    uint64_t h = uint64_t(its[i + 1].integer);
    auto found = objectsByHandle_.find(h);
    if (found == objectsByHandle_.end() || key.empty()) continue;
    Record &child = *found->second;
    if (!visited_.insert(h).second) continue;  // a second way to the same object
    AcDbObject *obj = child.type == L"DICTIONARY" ? static_cast<AcDbObject *>(new AcDbDictionary)
                      : child.type == L"GROUP"    ? static_cast<AcDbObject *>(new AcDbGroup)
                                                  : new VerbatimObject(child.type);
    want_[obj] = claim(h, &child);
    AcDbObjectId id;
    if (Acad::ErrorStatus es = dict->setAt(key.c_str(), obj, id); es != Acad::eOk) {
      delete obj;
      fail(child, L"the dictionary entry \"" + key + L"\" is not valid", es);
    }
    open_.push_back(obj);
    joined(obj, child);
    if (root && upperKey(key) == L"ACAD_GROUP") impl_->groupDict = id;
    if (auto *sub = AcDbDictionary::cast(obj)) {
      dictionary(child, sub, false);
    } else if (VerbatimObject::cast(obj)) {
      resolve(child);
      obj->dxfInFields(&child.fields);
      ownedObjects(child, obj);
    } else {
      resolve(child);
      if (Acad::ErrorStatus es = obj->dxfInFields(&child.fields); es != Acad::eOk)
        fail(child, L"the GROUP \"" + key + L"\" is not valid", es);
    }
    applyXData(obj, child);
  }
}

// The objects a kept object owns (a dictionary with a default's entries, a
// variable's ...): those of the file whose owner it is, kept as their groups
// with their handles, and what they own in turn; the writer puts them after
// it.
void Builder::ownedObjects(Record &r, AcDbObject *owner) {
  if (!r.handle) return;
  std::vector<AcDbObjectId> ids;
  for (Record &o : d_.objects) {
    if (!o.hasOwner || o.owner != r.handle || !o.handle || o.handle == r.xdict || !visited_.insert(o.handle).second)
      continue;
    auto *obj = new VerbatimObject(o.type);
    AcDbObjectId id = place(obj, o.handle, owner->objectId(), &o);
    resolve(o);
    obj->dxfInFields(&o.fields);
    applyXData(obj, o);
    ids.push_back(id);
    ownedObjects(o, obj);
  }
  if (!ids.empty()) impl_->attributes[DbAccess::stub(owner)] = std::move(ids);
}

// A table the database does not model, kept as its groups: its head and
// its records, with their handles. Dimension styles, views and UCSs are kept
// once by name; viewports may share one ("*Active" split in tiles).
void Builder::keptTable(const wchar_t *name) {
  Table *t = table(name);
  if (!t) return;
  auto &kept = impl_->keptTables[name];
  auto *head = new VerbatimObject(L"TABLE");
  kept.head = place(head, t->head.handle, AcDbObjectId::kNull, &t->head);
  resolve(t->head);
  head->dxfInFields(&t->head.fields);
  tableXData_.emplace_back(head, &t->head);
  bool unique = std::wstring_view(name) != L"VPORT";
  std::set<std::wstring> names;
  for (Record &r : t->records) {
    std::wstring recName;
    if (upperKey(r.type) != name || !r.fields.getString(2, recName) || recName.empty()) continue;
    if (unique && !names.insert(upperKey(recName)).second) {
      note(r, L"dropped the " + r.type + L" \"" + recName + L"\": an earlier record has its name");
      continue;
    }
    auto *rec = new VerbatimObject(name);
    AcDbObjectId id = place(rec, r.handle, kept.head, &r);
    resolve(r);
    rec->dxfInFields(&r.fields);
    tableXData_.emplace_back(rec, &r);
    kept.records.push_back(id);
  }
}

// The extension dictionaries of the objects made so far (and of those made
// while making them), each with what it holds.
void Builder::extensionDictionaries() {
  for (; xdictsMade_ < xdicts_.size(); ++xdictsMade_) {
    auto [obj, handle] = xdicts_[xdictsMade_];
    auto found = objectsByHandle_.find(handle);
    if (found == objectsByHandle_.end() || found->second->type != L"DICTIONARY" || !visited_.insert(handle).second)
      continue;
    Record &r = *found->second;
    auto *dict = new AcDbDictionary;
    AcDbObjectId id = place(dict, handle, obj->objectId(), &r);
    impl_->extensionDictionaries[DbAccess::stub(obj)] = id;
    applyXData(dict, r);
    dictionary(r, dict, false);
  }
}

// Objects of the file that nothing made so far reaches (a second dictionary
// without owner, an image definition's reactor owned by its image ...):
// kept as their groups, owned by what the file says when it is there.
// Extension dictionaries are left to their objects.
void Builder::looseObjects() {
  std::set<uint64_t> xdicts;
  for (const Record &o : d_.objects)
    if (o.xdict) xdicts.insert(o.xdict);
  for (Record &o : d_.objects) {
    if (o.handle && (xdicts.count(o.handle) || !visited_.insert(o.handle).second)) continue;
    AcDbObjectId owner = idOf(o.owner);
    auto *obj = new VerbatimObject(o.type);
    AcDbObjectId id = place(obj, o.handle, objectOf(owner) ? owner : AcDbObjectId::kNull, &o);
    resolve(o);
    obj->dxfInFields(&o.fields);
    applyXData(obj, o);
    impl_->looseObjects.push_back(id);
  }
  extensionDictionaries();
}

// Reactors name what is there now; those naming nothing are left out.
void Builder::applyReactors() {
  for (auto &[obj, r] : reactors_)
    for (uint64_t h : r->reactors)
      if (AcDbObjectId id = idOf(h); objectOf(id) && id != obj->objectId()) obj->addPersistentReactor(id);
}

void Builder::headerVariables() {
  auto text = [&](const wchar_t *name) {
    auto it = d_.header.find(name);
    return it == d_.header.end() ? std::wstring() : it->second.text;
  };
  auto item = [&](const wchar_t *name) -> const AcDbDxfFiler::Item * {
    auto it = d_.header.find(name);
    return it == d_.header.end() ? nullptr : &it->second;
  };
  if (AcDbObjectId id = recordId(impl_->layerTable, text(L"$CLAYER")); !id.isNull()) db_->setClayer(id);
  if (AcDbObjectId id = recordId(impl_->styleTable, text(L"$TEXTSTYLE")); !id.isNull()) db_->setTextstyle(id);
  if (AcDbObjectId id = recordId(impl_->linetypeTable, text(L"$CELTYPE")); !id.isNull()) db_->setCeltype(id);
  if (const auto *c = item(L"$CECOLOR"); c && c->integer >= 0 && c->integer <= 256) {
    AcCmColor color;
    color.setColorIndex(Adesk::UInt16(c->integer));
    db_->setCecolor(color);
  }
  if (const auto *s = item(L"$TEXTSIZE")) db_->setTextsize(s->real[0]);
  if (const auto *s = item(L"$SPLINESEGS")) db_->setSplinesegs(Adesk::Int16(s->integer));
  if (const auto *s = item(L"$SPLINETYPE")) db_->setSplinetype(Adesk::Int16(s->integer));
  // The rest of the header is the drawing's own variables, kept as read;
  // what the writer works out itself is left out.
  for (const auto &[name, value] : d_.header) {
    std::wstring key = upperKey(name.size() > 1 && name[0] == L'$' ? name.substr(1) : name);
    if (key == L"ACADVER" || key == L"ACADMAINTVER" || key == L"HANDSEED" || key == L"DWGCODEPAGE" ||
        key == L"CLAYER" || key == L"TEXTSTYLE" || key == L"CELTYPE" || key == L"CECOLOR" || key == L"TEXTSIZE" ||
        key == L"SPLINESEGS" || key == L"SPLINETYPE" || key.empty() || groupKind(value.code) == Kind::Handle)
      continue;
    impl_->vars[key] = value;
  }
}

}  // namespace

Acad::ErrorStatus buildDrawing(Drawing &d, AcDbDatabase *db, std::wstring *error) {
  try {
    Builder(d, db).build();
  } catch (const BuildError &e) {
    if (error) *error = e.text;
    return e.es;
  }
  return Acad::eOk;
}

}  // namespace vantry::host::dxf

namespace vantry::host {

std::wstring describeKeptAsRead(AcDbDatabase *db) {
  std::map<std::wstring, int> entities, records, objects;
  auto *impl = db->impl();
  for (const AcDbStub &s : impl->stubs) {
    if (!s.obj || s.obj->isErased()) continue;
    if (auto *e = VerbatimEntity::cast(s.obj)) {
      ++entities[e->dxfType()];
    } else if (auto *o = VerbatimObject::cast(s.obj)) {
      const std::wstring &t = o->dxfType();
      if (t == L"TABLE") continue;
      ++(impl->keptTables.count(t) ? records : objects)[t];
    }
  }
  auto list = [](const std::map<std::wstring, int> &counts) {
    std::wstring out;
    for (const auto &[type, n] : counts) out += (out.empty() ? L"" : L", ") + std::to_wstring(n) + L" " + type;
    return out;
  };
  std::wstring out = list(entities);
  auto part = [&](const wchar_t *what, const std::wstring &text) {
    if (!text.empty()) out += (out.empty() ? L"" : L"; ") + std::wstring(what) + text;
  };
  part(L"table records: ", list(records));
  part(L"objects: ", list(objects));
  if (!impl->classes.empty()) part(L"", std::to_wstring(impl->classes.size()) + L" classes");
  return out;
}

}  // namespace vantry::host

namespace vantry::host::dxf {

bool emptyDatabase(AcDbDatabase *db) {
  auto *impl = db->impl();
  for (const AcDbStub &s : impl->stubs)
    if (s.obj && (s.obj->isReadEnabled() || s.obj->isNotifyEnabled())) return false;
  for (AcDbStub &s : impl->stubs) {
    delete s.obj;
    s.obj = nullptr;
  }
  AcDbDatabase::Impl fresh;
  fresh.serial = impl->serial;
  fresh.transactions = std::move(impl->transactions);
  *impl = std::move(fresh);
  return true;
}

void completeDatabase(AcDbDatabase *db, bool dictionaries) {
  auto *impl = db->impl();
  auto table = [&](AcDbObjectId &slot, AcDbSymbolTable *(*make)()) {
    if (!AcDbSymbolTable::cast(objectOf(slot)))
      slot = DbAccess::addToDatabase(db, make(), AcDbObjectId::kNull, false);
  };
  table(impl->blockTable, [] { return static_cast<AcDbSymbolTable *>(new AcDbBlockTable); });
  table(impl->layerTable, [] { return static_cast<AcDbSymbolTable *>(new AcDbLayerTable); });
  table(impl->styleTable, [] { return static_cast<AcDbSymbolTable *>(new AcDbTextStyleTable); });
  table(impl->linetypeTable, [] { return static_cast<AcDbSymbolTable *>(new AcDbLinetypeTable); });
  table(impl->regAppTable, [] { return static_cast<AcDbSymbolTable *>(new AcDbRegAppTable); });

  AcRxClass *lt = AcDbLinetypeTableRecord::desc();
  impl->byBlock = ensureRecord(impl->linetypeTable, lt, L"ByBlock");
  impl->byLayer = ensureRecord(impl->linetypeTable, lt, L"ByLayer");
  bool hadContinuous = !recordId(impl->linetypeTable, L"Continuous").isNull();
  impl->continuous = ensureRecord(impl->linetypeTable, lt, L"Continuous");
  if (!hadContinuous)
    static_cast<AcDbLinetypeTableRecord *>(objectOf(impl->continuous))->setComments(L"Solid line");
  bool hadZero = !recordId(impl->layerTable, L"0").isNull();
  AcDbObjectId zero = ensureRecord(impl->layerTable, AcDbLayerTableRecord::desc(), L"0");
  if (!hadZero) static_cast<AcDbLayerTableRecord *>(objectOf(zero))->setLinetypeObjectId(impl->continuous);
  AcDbObjectId standard = ensureRecord(impl->styleTable, AcDbTextStyleTableRecord::desc(), L"Standard");
  ensureRecord(impl->regAppTable, AcDbRegAppTableRecord::desc(), L"ACAD");

  auto space = [&](const wchar_t *name) {
    AcDbObjectId id = recordId(impl->blockTable, name);
    if (!id.isNull()) return id;
    auto *rec = new AcDbBlockTableRecord;
    rec->setName(name);
    id = DbAccess::addToDatabase(db, rec, impl->blockTable, false);
    DbAccess::addTableRecord(static_cast<AcDbSymbolTable *>(objectOf(impl->blockTable)), upperKey(name), id);
    return id;
  };
  impl->modelSpace = space(ACDB_MODEL_SPACE);
  impl->paperSpace = space(ACDB_PAPER_SPACE);

  if (impl->clayer.isNull()) impl->clayer = zero;
  if (impl->textstyle.isNull()) impl->textstyle = standard;
  if (impl->celtype.isNull()) impl->celtype = impl->byLayer;
  if (!dictionaries) return;
  if (!AcDbDictionary::cast(objectOf(impl->nod))) {
    impl->nod = DbAccess::addToDatabase(db, new AcDbDictionary, AcDbObjectId::kNull, false);
    impl->groupDict = AcDbObjectId::kNull;
  }
  auto *nod = static_cast<AcDbDictionary *>(objectOf(impl->nod));
  if (!AcDbDictionary::cast(objectOf(impl->groupDict))) {
    AcDbObjectId groups;
    if (nod->getAt(L"ACAD_GROUP", groups) != Acad::eOk || !AcDbDictionary::cast(objectOf(groups))) {
      bool wasWrite = nod->isWriteEnabled();
      if (!wasWrite) DbAccess::open(nod, AcDb::kForWrite, 256);
      nod->setAt(L"ACAD_GROUP", new AcDbDictionary, groups);
      objectOf(groups)->close();
      if (!wasWrite) nod->close();
    }
    impl->groupDict = groups;
  }
}

}  // namespace vantry::host::dxf
