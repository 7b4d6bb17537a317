// Saving a drawing database as an ASCII drawing file.
//
// Layout written (docs/dxf.md): HEADER, CLASSES, TABLES (VPORT, LTYPE,
// LAYER, STYLE, VIEW, UCS, APPID, DIMSTYLE, BLOCK_RECORD), BLOCKS (a BLOCK
// and ENDBLK for every block record, user blocks with their entities),
// ENTITIES (model space, then the paper space entities marked 67 1), OBJECTS
// (the root dictionary and the dictionaries and groups under it, then the
// fixed objects and the stand-ins' extension dictionaries), EOF.
//
// Every object carries its handle: database objects their own; what the
// writer adds (BLOCK and ENDBLK entities, fixed tables and objects, stand-in
// blocks and their drawables) takes handles from the database's next handle
// up, and $HANDSEED is above them all. Each object's own groups come from its
// dxfOutFields in the file form; the writer adds the 0 type, the handle, the
// owner, the 102 groups of an extension dictionary and the extended data.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <memory>

#include "common/files.h"
#include "common/text.h"
#include "dxf/internal.h"

namespace vantry::host {
namespace dxf {
namespace {

// The most characters a value of a drawing file may hold.
constexpr size_t kMaxValueChars = 2049;

// A custom entity written through its stand-in.
struct StandIn {
  const AcDbEntity *entity = nullptr;  // the custom entity
  std::vector<AcDbEntity *> drawable;  // owned
  AcDbDxfFiler data{true};
  std::wstring className, blockName;
  uint64_t btr = 0, begin = 0, end = 0, xdict = 0, xrecord = 0;
  StandIn() = default;
  StandIn(const StandIn &) = delete;
  ~StandIn() {
    for (AcDbEntity *e : drawable) delete e;
  }
};

class Writer {
 public:
  Writer(AcDbDatabase *db, Out &out) : db_(db), out_(out), next_(db->impl()->stubs.size() + 1) {}
  Acad::ErrorStatus write(std::wstring *error);

 private:
  uint64_t alloc() { return next_++; }
  static uint64_t handleOf(AcDbObjectId id) { return id.isNull() ? 0 : id.handle().value(); }
  Acad::ErrorStatus plan();
  void header(const AcDbExtents &ext);
  void tables(const AcDbExtents &ext);
  void symbolTable(AcDbObjectId table, const char *name);
  void blocks();
  void blockEntities(AcDbObjectId btr);
  void entities();
  void objects();
  void objectTree(AcDbObjectId id);
  // Writes one object: 0 type, handle (105 for dimension styles), the 102
  // groups, owner, its fields, extended data.
  void object(const std::wstring &type, uint64_t handle, uint64_t owner, const AcDbDxfFiler &f,
              const AcDbObject *xdataOf, uint64_t xdict = 0, bool ownerReactor = false);
  void items(const std::vector<AcDbDxfFiler::Item> &items, size_t from);
  void item(const AcDbDxfFiler::Item &it);
  // An entity (with its vertices and end marker), resident or a stand-in's drawable.
  void entity(const AcDbEntity *ent, uint64_t owner);
  void standInInsert(const AcDbEntity *ent, const StandIn &s);
  bool writable(AcDbObjectId id) const;

  AcDbDatabase *db_;
  Out &out_;
  uint64_t next_;
  Fixed fx_;
  std::map<AcDbObjectId, std::pair<uint64_t, uint64_t>> blockEnds_;  // BLOCK, ENDBLK
  std::map<const AcDbEntity *, std::unique_ptr<StandIn>> standIns_;
  std::vector<const StandIn *> standInOrder_;
  std::map<const AcDbEntity *, uint64_t> drawableHandles_;
  std::map<const AcDbEntity *, uint64_t> attributeEnds_;  // INSERT -> its SEQEND after the ATTRIBs
  Acad::ErrorStatus failure_ = Acad::eOk;
  std::wstring failureText_;
};

bool Writer::writable(AcDbObjectId id) const {
  AcDbObject *o = objectOf(id);
  return o && !o->isErased() && (AcDbDictionary::cast(o) || AcDbGroup::cast(o) || VerbatimObject::cast(o));
}

// Gives the added objects their handles and asks the stand-ins for their
// drawables and data, before anything is written: the header's $HANDSEED
// must be above every handle.
Acad::ErrorStatus Writer::plan() {
  auto *impl = db_->impl();
  fx_.nod = handleOf(impl->nod);
  fx_.modelSpace = handleOf(impl->modelSpace);
  fx_.paperSpace = handleOf(impl->paperSpace);
  fx_.standardStyle = handleOf(recordId(impl->styleTable, L"Standard"));
  for (uint64_t *h : {&fx_.vportTable, &fx_.vportActive, &fx_.viewTable, &fx_.ucsTable, &fx_.dimTable,
                      &fx_.dimStandard, &fx_.layoutDict, &fx_.layoutModel, &fx_.layoutPaper, &fx_.mlineDict,
                      &fx_.mlineStandard, &fx_.plotSettingsDict, &fx_.plotStyleDict})
    *h = alloc();
  fx_.plotStyles.push_back({L"Normal", alloc()});
  auto *layers = AcDbSymbolTable::cast(objectOf(impl->layerTable));
  for (AcDbObjectId id : layers ? layers->recordIds() : std::vector<AcDbObjectId>()) {
    auto *layer = AcDbLayerTableRecord::cast(objectOf(id));
    if (!layer || layer->isErased()) continue;
    ACHAR *ps = layer->plotStyleName();
    std::wstring name = ps ? ps : L"Normal";
    acutDelString(ps);
    bool known = false;
    for (const auto &p : fx_.plotStyles) known = known || upperKey(p.first) == upperKey(name);
    if (!known) fx_.plotStyles.push_back({name, alloc()});
  }

  auto *blockTable = AcDbSymbolTable::cast(objectOf(impl->blockTable));
  if (!blockTable) return Acad::eMissingSymbolTable;
  int anonymous = 0;
  for (AcDbObjectId btrId : blockTable->recordIds()) {
    if (btrId.isErased()) continue;
    blockEnds_[btrId] = {alloc(), alloc()};
    auto *btr = AcDbBlockTableRecord::cast(objectOf(btrId));
    if (btr && btr->isLayout() && btrId != impl->modelSpace && btrId != impl->paperSpace)
      fx_.moreLayouts.emplace_back(alloc(), handleOf(btrId));
    for (AcDbObjectId id : btr ? btr->entityIds() : std::vector<AcDbObjectId>()) {
      auto *ent = AcDbEntity::cast(objectOf(id));
      if (!ent || ent->isErased()) continue;
      if (impl->attributes.count(DbAccess::stub(ent))) attributeEnds_[ent] = alloc();
      const DxfStandIn *si = findDxfStandIn(ent->isA());
      if (!si || !si->write) continue;
      auto s = std::make_unique<StandIn>();
      s->entity = ent;
      s->className = ent->isA()->name();
      if (Acad::ErrorStatus es = si->write(ent, s->drawable, s->data); es != Acad::eOk) {
        failureText_ = L"the " + s->className + L" entity " + ent->handle().toString() +
                       L" could not be written (status " + std::to_wstring(int(es)) + L")";
        return es;
      }
      for (const auto &it : s->data.items())
        if (it.code <= 0 || it.code == 5 || it.code == 100 || it.code == 102 || it.code == 105 ||
            it.code >= 1000) {
          failureText_ = L"the " + s->className + L" entity's data holds the reserved group code " +
                         std::to_wstring(it.code);
          return Acad::eInvalidDxfCode;
        }
      for (const auto &it : s->data.items())
        if (it.text.size() > kMaxValueChars && it.dims == 0 && (it.code < 10 || it.code >= 300)) {
          failureText_ = L"the " + s->className + L" entity's data holds a value of group " +
                         std::to_wstring(it.code) + L" longer than " + std::to_wstring(kMaxValueChars) +
                         L" characters";
          return Acad::eInvalidDxfCode;
        }
      do {
        s->blockName = L"*U" + std::to_wstring(++anonymous);
      } while (blockTable->has(s->blockName.c_str()));
      s->btr = alloc(), s->begin = alloc(), s->end = alloc(), s->xdict = alloc(), s->xrecord = alloc();
      for (AcDbEntity *d : s->drawable) {
        drawableHandles_[d] = next_;
        next_ += 1;
        if (auto *p2 = AcDb2dPolyline::cast(d)) next_ += p2->vertices().size() + 1;
        if (auto *p3 = AcDb3dPolyline::cast(d)) next_ += p3->vertices().size() + 1;
      }
      standInOrder_.push_back(s.get());
      standIns_[ent] = std::move(s);
    }
  }
  return Acad::eOk;
}

Acad::ErrorStatus Writer::write(std::wstring *error) {
  if (Acad::ErrorStatus es = plan(); es != Acad::eOk) {
    if (error) *error = failureText_.empty() ? L"the drawing has no block table" : failureText_;
    return es;
  }
  AcDbExtents ext;
  if (auto *ms = AcDbBlockTableRecord::cast(objectOf(db_->impl()->modelSpace))) {
    for (AcDbObjectId id : ms->entityIds()) {
      auto *ent = AcDbEntity::cast(objectOf(id));
      AcDbExtents e;
      if (ent && !ent->isErased() && ent->getGeomExtents(e) == Acad::eOk) ext.addExt(e);
    }
  }
  header(ext);
  out_.ascii(0, "SECTION");
  out_.ascii(2, "CLASSES");
  writeClasses(out_);
  out_.ascii(0, "ENDSEC");
  tables(ext);
  blocks();
  entities();
  objects();
  out_.ascii(0, "EOF");
  return Acad::eOk;
}

void Writer::header(const AcDbExtents &ext) {
  auto *impl = db_->impl();
  out_.ascii(0, "SECTION");
  out_.ascii(2, "HEADER");
  auto var = [&](const char *name) { out_.ascii(9, name); };
  auto pt = [&](const char *name, double x, double y, double z) {
    var(name);
    double p[3] = {x, y, z};
    out_.point(10, p, 3);
  };
  var("$ACADVER");
  out_.ascii(1, "AC1015");
  var("$ACADMAINTVER");
  out_.integer(70, 6);
  var("$DWGCODEPAGE");
  out_.ascii(3, "ANSI_1252");
  pt("$INSBASE", 0, 0, 0);
  if (ext.isEmpty()) {
    pt("$EXTMIN", 1e20, 1e20, 1e20);
    pt("$EXTMAX", -1e20, -1e20, -1e20);
  } else {
    pt("$EXTMIN", ext.minPoint().x, ext.minPoint().y, ext.minPoint().z);
    pt("$EXTMAX", ext.maxPoint().x, ext.maxPoint().y, ext.maxPoint().z);
  }
  var("$LIMMIN");
  double lo[2] = {0, 0}, hi[2] = {420, 297};
  out_.point(10, lo, 2);
  var("$LIMMAX");
  out_.point(10, hi, 2);
  var("$LTSCALE");
  out_.real(40, 1);
  var("$TEXTSIZE");
  out_.real(40, impl->textsize);
  var("$TEXTSTYLE");
  std::wstring style = recordName(impl->textstyle);
  out_.text(7, style.empty() ? L"Standard" : style);
  var("$CLAYER");
  std::wstring layer = recordName(impl->clayer);
  out_.text(8, layer.empty() ? L"0" : layer);
  var("$CELTYPE");
  std::wstring lt = recordName(impl->celtype);
  out_.text(6, lt.empty() ? L"ByLayer" : lt);
  var("$CECOLOR");
  out_.integer(62, impl->cecolor.colorIndex());
  var("$CELWEIGHT");
  out_.integer(370, -1);
  var("$DIMSTYLE");
  out_.ascii(2, "Standard");
  var("$LUNITS");
  out_.integer(70, 2);
  var("$LUPREC");
  out_.integer(70, 4);
  var("$SPLINETYPE");
  out_.integer(70, impl->splinetype);
  var("$SPLINESEGS");
  out_.integer(70, impl->splinesegs);
  var("$TILEMODE");
  out_.integer(70, 1);
  var("$MEASUREMENT");
  out_.integer(70, 1);
  var("$PSTYLEMODE");
  out_.integer(290, 1);
  var("$HANDSEED");
  out_.handle(5, next_);
  out_.ascii(0, "ENDSEC");
}

void Writer::tables(const AcDbExtents &ext) {
  auto *impl = db_->impl();
  out_.ascii(0, "SECTION");
  out_.ascii(2, "TABLES");
  writeVportTable(out_, fx_, ext);
  symbolTable(impl->linetypeTable, "LTYPE");
  symbolTable(impl->layerTable, "LAYER");
  symbolTable(impl->styleTable, "STYLE");
  writeEmptyTable(out_, "VIEW", fx_.viewTable);
  writeEmptyTable(out_, "UCS", fx_.ucsTable);
  symbolTable(impl->regAppTable, "APPID");
  // Dimension styles: those the drawing file gave, and Standard unless it
  // was among them.
  std::vector<const VerbatimObject *> styles;
  bool standard = true;
  for (AcDbObjectId id : impl->dimStyles)
    if (auto *s = VerbatimObject::cast(objectOf(id)); s && !s->isErased()) {
      styles.push_back(s);
      standard = standard && upperKey(s->name()) != L"STANDARD";
    }
  writeDimStyleTable(out_, fx_, int(styles.size()), standard);
  for (const VerbatimObject *s : styles) {
    AcDbDxfFiler f(true);
    s->dxfOutFields(&f);
    object(L"DIMSTYLE", handleOf(s->objectId()), fx_.dimTable, f, s);
  }
  out_.ascii(0, "ENDTAB");
  symbolTable(impl->blockTable, "BLOCK_RECORD");
  out_.ascii(0, "ENDSEC");
}

// A table of the database: its head, every record not erased, ENDTAB. Block
// records name their layouts (340); layers their plot style name (390).
void Writer::symbolTable(AcDbObjectId tableId, const char *name) {
  auto *table = AcDbSymbolTable::cast(objectOf(tableId));
  if (!table) return;
  bool blocks = std::strcmp(name, "BLOCK_RECORD") == 0;
  AcDbDxfFiler head(true);
  table->dxfOutFields(&head);
  for (auto &it : head.items())
    if (it.code == 70 && blocks) it.integer += int64_t(standInOrder_.size());
  out_.ascii(0, "TABLE");
  out_.ascii(2, name);
  out_.handle(5, handleOf(tableId));
  out_.handle(330, 0);
  for (const auto &it : head.items())
    if (it.code == 100 || it.code == 70) item(it);
  std::wstring type = text::fromUtf8(name);
  for (AcDbObjectId id : table->recordIds()) {
    AcDbObject *rec = objectOf(id);
    if (!rec || rec->isErased()) continue;
    AcDbDxfFiler f(true);
    rec->dxfOutFields(&f);
    if (blocks) {
      uint64_t layout = id == db_->impl()->modelSpace   ? fx_.layoutModel
                        : id == db_->impl()->paperSpace ? fx_.layoutPaper
                                                        : 0;
      for (const auto &[lh, bh] : fx_.moreLayouts)
        if (bh == handleOf(id)) layout = lh;
      AcDbDxfFiler::Item it;
      it.code = 340;
      it.text = AcDbHandle(layout).toString();
      f.items().push_back(it);
    }
    if (auto *layer = AcDbLayerTableRecord::cast(rec)) {
      ACHAR *ps = layer->plotStyleName();
      std::wstring key = upperKey(ps ? ps : L"Normal");
      acutDelString(ps);
      for (const auto &[n, h] : fx_.plotStyles)
        if (upperKey(n) == key) {
          AcDbDxfFiler::Item it;
          it.code = 390;
          it.text = AcDbHandle(h).toString();
          f.items().push_back(it);
        }
    }
    object(type, handleOf(id), handleOf(tableId), f, rec);
  }
  if (blocks) {
    for (const StandIn *s : standInOrder_) {
      out_.ascii(0, "BLOCK_RECORD");
      out_.handle(5, s->btr);
      out_.handle(330, handleOf(tableId));
      out_.ascii(100, "AcDbSymbolTableRecord");
      out_.ascii(100, "AcDbBlockTableRecord");
      out_.text(2, s->blockName);
      out_.handle(340, 0);
    }
  }
  out_.ascii(0, "ENDTAB");
}

// One BLOCK ... ENDBLK per block record. Model and paper space blocks stay
// empty: their entities are in the ENTITIES section.
void Writer::blocks() {
  out_.ascii(0, "SECTION");
  out_.ascii(2, "BLOCKS");
  auto begin = [&](uint64_t handle, uint64_t btr, bool paper, const std::wstring &name, int flags,
                   const AcGePoint3d &origin) {
    out_.ascii(0, "BLOCK");
    out_.handle(5, handle);
    out_.handle(330, btr);
    out_.ascii(100, "AcDbEntity");
    if (paper) out_.integer(67, 1);
    out_.ascii(8, "0");
    out_.ascii(100, "AcDbBlockBegin");
    out_.text(2, name);
    out_.integer(70, flags);
    double p[3] = {origin.x, origin.y, origin.z};
    out_.point(10, p, 3);
    out_.text(3, name);
    out_.ascii(1, "");
  };
  auto end = [&](uint64_t handle, uint64_t btr, bool paper) {
    out_.ascii(0, "ENDBLK");
    out_.handle(5, handle);
    out_.handle(330, btr);
    out_.ascii(100, "AcDbEntity");
    if (paper) out_.integer(67, 1);
    out_.ascii(8, "0");
    out_.ascii(100, "AcDbBlockEnd");
  };
  auto *table = AcDbSymbolTable::cast(objectOf(db_->impl()->blockTable));
  for (AcDbObjectId id : table->recordIds()) {
    auto found = blockEnds_.find(id);
    auto *btr = AcDbBlockTableRecord::cast(objectOf(id));
    if (found == blockEnds_.end() || !btr) continue;
    bool paper = id == db_->impl()->paperSpace;
    begin(found->second.first, handleOf(id), paper, btr->name(), btr->isAnonymous() ? 1 : 0, btr->origin());
    if (id != db_->impl()->modelSpace && id != db_->impl()->paperSpace) blockEntities(id);
    end(found->second.second, handleOf(id), paper);
  }
  for (const StandIn *s : standInOrder_) {
    begin(s->begin, s->btr, false, s->blockName, 1, AcGePoint3d::kOrigin);
    for (AcDbEntity *d : s->drawable) entity(d, s->btr);
    end(s->end, s->btr, false);
  }
  out_.ascii(0, "ENDSEC");
}

void Writer::blockEntities(AcDbObjectId btrId) {
  auto *btr = AcDbBlockTableRecord::cast(objectOf(btrId));
  for (AcDbObjectId id : btr->entityIds()) {
    auto *ent = AcDbEntity::cast(objectOf(id));
    if (ent && !ent->isErased()) entity(ent, handleOf(btrId));
  }
}

void Writer::entities() {
  out_.ascii(0, "SECTION");
  out_.ascii(2, "ENTITIES");
  blockEntities(db_->impl()->modelSpace);
  blockEntities(db_->impl()->paperSpace);
  out_.ascii(0, "ENDSEC");
}

void Writer::entity(const AcDbEntity *ent, uint64_t owner) {
  if (auto s = standIns_.find(ent); s != standIns_.end()) return standInInsert(ent, *s->second);
  auto *verbatim = VerbatimEntity::cast(ent);
  const ACHAR *type = verbatim ? verbatim->dxfType().c_str() : ent->isA()->dxfName();
  if (!type || !*type) return;  // a class no reader knows and without a stand-in: left out
  bool resident = !ent->objectId().isNull();
  uint64_t handle = resident ? handleOf(ent->objectId()) : drawableHandles_[ent];
  AcDbDxfFiler f(true);
  ent->dxfOutFields(&f);
  if (auto ends = attributeEnds_.find(ent); ends != attributeEnds_.end()) {
    // An INSERT with attributes or a mesh kept as groups: 66 says they
    // follow (a mesh's own groups have it), then each ATTRIB or VERTEX and
    // an end marker (a mesh's own, when the file gave it one).
    auto &its = f.items();
    if (std::none_of(its.begin(), its.end(), [](const AcDbDxfFiler::Item &it) { return it.code == 66; })) {
      auto at = std::find_if(its.begin(), its.end(), [](const AcDbDxfFiler::Item &it) {
        return it.code == 100 && (it.text == L"AcDbBlockReference" || it.text == L"AcDbPolyFaceMesh" ||
                                  it.text == L"AcDbPolygonMesh");
      });
      AcDbDxfFiler::Item follow;
      follow.code = 66;
      follow.integer = 1;
      its.insert(at == its.end() ? at : at + 1, follow);
    }
    object(type, handle, owner, f, ent);
    bool ended = false;
    for (AcDbObjectId id : db_->impl()->attributes[DbAccess::stub(ent)]) {
      auto *att = AcDbEntity::cast(objectOf(id));
      if (!att || att->isErased()) continue;
      AcDbDxfFiler af(true);
      att->dxfOutFields(&af);
      const ACHAR *subType = dxfTypeOf(att);
      ended = std::wstring_view(subType) == L"SEQEND";
      object(subType, handleOf(id), handle, af, att);
    }
    if (ended) return;
    AcDbDxfFiler sf(true);
    ent->AcDbEntity::dxfOutFields(&sf);
    object(L"SEQEND", ends->second, handle, sf, nullptr);
    return;
  }
  object(type, handle, owner, f, ent);
  // Vertices and the end marker follow an old-style polyline.
  std::vector<const AcDbEntity *> verts;
  const AcDbEntity *seqend = nullptr;
  if (auto *p2 = AcDb2dPolyline::cast(ent)) {
    verts.assign(p2->vertices().begin(), p2->vertices().end());
    seqend = DbAccess::seqend2d(p2);
  } else if (auto *p3 = AcDb3dPolyline::cast(ent)) {
    verts.assign(p3->vertices().begin(), p3->vertices().end());
    seqend = DbAccess::seqend3d(p3);
  } else {
    return;
  }
  uint64_t sub = handle;
  for (const AcDbEntity *v : verts) {
    AcDbDxfFiler vf(true);
    v->dxfOutFields(&vf);
    ++sub;
    object(L"VERTEX", resident ? handleOf(v->objectId()) : sub, handle, vf, v);
  }
  AcDbDxfFiler sf(true);
  const AcDbEntity *marker = seqend && resident ? seqend : ent;
  marker->AcDbEntity::dxfOutFields(&sf);
  object(L"SEQEND", seqend && resident ? handleOf(seqend->objectId()) : ++sub, handle, sf, nullptr);
}

// The stand-in of a custom entity: an INSERT of its block with the entity's
// handle, owner and common properties, and its extension dictionary.
void Writer::standInInsert(const AcDbEntity *ent, const StandIn &s) {
  AcDbDxfFiler f(true);
  ent->AcDbEntity::dxfOutFields(&f);
  f.writeString(100, L"AcDbBlockReference");
  f.writeString(2, s.blockName);
  f.writePoint3d(10, AcGePoint3d::kOrigin);
  f.writeDouble(41, 1);
  f.writeDouble(42, 1);
  f.writeDouble(43, 1);
  f.writeDouble(50, 0);
  f.writeVector3d(210, AcGeVector3d::kZAxis);
  object(L"INSERT", handleOf(ent->objectId()), handleOf(ent->ownerId()), f, ent, s.xdict);
}

void Writer::objects() {
  out_.ascii(0, "SECTION");
  out_.ascii(2, "OBJECTS");
  objectTree(db_->impl()->nod);
  writeFixedObjects(out_, fx_);
  for (const StandIn *s : standInOrder_) {
    // The INSERT that owns the dictionary is the entity whose stand-in this is.
    uint64_t insert = handleOf(s->entity->objectId());
    AcDbDxfFiler d(true);
    d.writeString(100, L"AcDbDictionary");
    d.writeInt16(280, 1);
    d.writeInt16(281, 1);
    d.writeString(3, s->className);
    AcDbDxfFiler::Item entry;
    entry.code = 350;
    entry.text = AcDbHandle(s->xrecord).toString();
    d.items().push_back(entry);
    object(L"DICTIONARY", s->xdict, insert, d, nullptr, 0, true);
    AcDbDxfFiler x(true);
    x.writeString(100, L"AcDbXrecord");
    x.writeInt16(280, 1);
    for (const auto &it : s->data.items()) x.items().push_back(it);
    object(L"XRECORD", s->xrecord, s->xdict, x, nullptr, 0, true);
  }
  out_.ascii(0, "ENDSEC");
}

// A dictionary, group or object kept as read and, for a dictionary, what it
// holds, for a kept object what it owns; entries of kinds the file does not
// carry are left out. The root lists the fixed objects too.
void Writer::objectTree(AcDbObjectId id) {
  AcDbObject *obj = objectOf(id);
  if (!obj) return;
  bool root = id == db_->impl()->nod;
  AcDbDxfFiler f(true);
  obj->dxfOutFields(&f);
  std::vector<AcDbObjectId> children;
  if (AcDbDictionary::cast(obj)) {
    auto &its = f.items();
    std::vector<AcDbDxfFiler::Item> kept;
    for (size_t i = 0; i < its.size(); ++i) {
      if (its[i].code == 3 && i + 1 < its.size() && its[i + 1].code == 350) {
        bool keep = writable(its[i + 1].id) && !(root && isFixedRootKey(upperKey(its[i].text)));
        if (keep) {
          kept.push_back(its[i]);
          kept.push_back(its[i + 1]);
          children.push_back(its[i + 1].id);
        }
        ++i;
        continue;
      }
      kept.push_back(its[i]);
    }
    its = std::move(kept);
  }
  object(dxfTypeOf(obj), handleOf(id), handleOf(obj->ownerId()), f, obj, 0, !root);
  // An object kept as read is followed by the objects it owns.
  if (VerbatimObject::cast(obj))
    if (auto owned = db_->impl()->attributes.find(DbAccess::stub(obj)); owned != db_->impl()->attributes.end())
      children = owned->second;
  for (AcDbObjectId c : children) objectTree(c);
}

void Writer::object(const std::wstring &type, uint64_t handle, uint64_t owner, const AcDbDxfFiler &f,
                    const AcDbObject *xdataOf, uint64_t xdict, bool ownerReactor) {
  out_.text(0, type);
  out_.handle(type == L"DIMSTYLE" ? 105 : 5, handle);
  const auto &its = f.items();
  size_t i = 0;
  while (i < its.size() && its[i].code == 5) ++i;
  bool hadReactors = false;
  while (i < its.size() && its[i].code == 102) {
    hadReactors = hadReactors || its[i].text == L"{ACAD_REACTORS";
    for (; i < its.size(); ++i) {
      item(its[i]);
      if (its[i].code == 102 && its[i].text == L"}") {
        ++i;
        break;
      }
    }
  }
  if (ownerReactor && !hadReactors) {
    out_.ascii(102, "{ACAD_REACTORS");
    out_.handle(330, owner);
    out_.ascii(102, "}");
  }
  if (xdict) {
    out_.ascii(102, "{ACAD_XDICTIONARY");
    out_.handle(360, xdict);
    out_.ascii(102, "}");
  }
  if (i < its.size() && its[i].code == 330) ++i;  // the object's own idea of its owner
  out_.handle(330, owner);
  items(its, i);
  if (type == L"DICTIONARY" && handle == fx_.nod) writeFixedRootEntries(out_, fx_);
  if (xdataOf) writeXData(out_, xdataOf);
}

void Writer::items(const std::vector<AcDbDxfFiler::Item> &its, size_t from) {
  for (size_t i = from; i < its.size(); ++i) item(its[i]);
}

void Writer::item(const AcDbDxfFiler::Item &it) {
  if (it.dims) return out_.point(it.code, it.real, it.dims);
  switch (groupKind(it.code)) {
    case Kind::Real:
      return out_.real(it.code, it.real[0]);
    case Kind::Int:
      return out_.integer(it.code, it.integer);
    case Kind::Handle:
      if (!it.id.isNull() || it.text.empty()) return out_.handle(it.code, handleOf(it.id));
      return out_.text(it.code, it.text);
    case Kind::Text:
    case Kind::Binary:
      return out_.text(it.code, it.text);
  }
}

}  // namespace
}  // namespace dxf

// The section writer's output replaces the target only when complete
// (common/files.h), so a failed save loses nothing.
Acad::ErrorStatus saveDxf(AcDbDatabase *db, const std::string &path, std::wstring *error) {
  auto fail = [&](Acad::ErrorStatus es, const std::wstring &why) {
    if (error) *error = why;
    return es;
  };
  if (!db) return fail(Acad::eNullObjectPointer, L"no drawing to save");
  if (path.empty()) return fail(Acad::eInvalidInput, L"no file name");
  Acad::ErrorStatus es = Acad::eOk;
  std::wstring why;
  std::string ioError;
  bool replaced = files::replaceFile(
      path,
      [&](const std::string &temp) {
        FILE *f = std::fopen(temp.c_str(), "wb");
        if (!f) {
          ioError = "cannot write " + temp + ": " + std::strerror(errno);
          return false;
        }
        dxf::Out out(f);
        es = dxf::Writer(db, out).write(&why);
        bool written = es == Acad::eOk && out.flush();
        int savedErrno = errno;
        written = std::fclose(f) == 0 && written;
        if (es == Acad::eOk && !written) ioError = "cannot write " + temp + ": " + std::strerror(savedErrno);
        return written;
      },
      &ioError);
  if (es != Acad::eOk) return fail(es, why);
  if (!replaced) return fail(Acad::eFileAccessErr, text::fromUtf8(ioError));
  if (error) error->clear();
  return Acad::eOk;
}

}  // namespace vantry::host
