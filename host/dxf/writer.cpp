// Saving a drawing database as an ASCII drawing file.
//
// Layout written (docs/dxf.md): HEADER, CLASSES, TABLES (VPORT, LTYPE,
// LAYER, STYLE, VIEW, UCS, APPID, DIMSTYLE, BLOCK_RECORD), BLOCKS (a BLOCK
// and ENDBLK for every block record, user blocks with their entities),
// ENTITIES (model space, then the paper space entities marked 67 1), OBJECTS
// (the root dictionary and what it holds, the fixed objects, the stand-ins'
// extension dictionaries, the objects nothing reaches, then the extension
// dictionaries of everything written), EOF.
//
// Every object carries its handle: database objects their own; BLOCK and
// ENDBLK entities the file's when it gave them; what the writer adds (other
// BLOCK and ENDBLK entities, fixed tables and objects, stand-in blocks and
// their drawables) takes handles from the database's next handle up, and
// $HANDSEED is above them all. Each object's own groups come from its
// dxfOutFields in the file form; the writer adds the 0 type, the handle, the
// owner, the 102 groups of an extension dictionary and the extended data.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <set>

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
  // A table the database does not model: the head and records the drawing
  // keeps (its "name" entry of keptTables), with `fixed` records first.
  void keptTable(const wchar_t *name, uint64_t head, int fixed, const std::function<void()> &writeFixed);
  // Plans the layouts, the layout dictionary and the plot style names.
  void planLayouts();
  void planPlotStyles();
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
  std::map<uint64_t, uint64_t> layoutOf_;                 // layout block record -> its layout
  std::map<std::wstring, uint64_t> plotStyleOf_;          // upper-case plot style name -> placeholder
  uint64_t plotStyleDefault_ = 0;
  AcDbObjectId layoutDict_;  // the layout dictionary the drawing keeps
  std::vector<AcDbObjectId> xdicts_;  // extension dictionaries of what was written, to follow
  std::set<uint64_t> written_;        // objects of the OBJECTS section written
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
  fx_.standardStyle = handleOf(recordId(impl->styleTable, L"Standard"));
  auto keptHead = [&](const wchar_t *name) {
    auto t = impl->keptTables.find(name);
    return t != impl->keptTables.end() && objectOf(t->second.head) ? handleOf(t->second.head) : alloc();
  };
  fx_.vportTable = keptHead(L"VPORT");
  fx_.viewTable = keptHead(L"VIEW");
  fx_.ucsTable = keptHead(L"UCS");
  fx_.dimTable = keptHead(L"DIMSTYLE");
  bool active = false;
  if (auto t = impl->keptTables.find(L"VPORT"); t != impl->keptTables.end())
    for (AcDbObjectId id : t->second.records)
      if (auto *v = VerbatimObject::cast(objectOf(id)); v && !v->isErased())
        active = active || upperKey(v->name()) == L"*ACTIVE";
  if (!active) fx_.vportActive = alloc();
  fx_.dimStandard = alloc();
  // The root dictionary's fixed entries the drawing keeps are its own.
  auto *nod = AcDbDictionary::cast(objectOf(impl->nod));
  auto kept = [&](const wchar_t *key) {
    AcDbObjectId id;
    return nod && nod->getAt(key, id) == Acad::eOk && writable(id) ? id : AcDbObjectId::kNull;
  };
  if (kept(L"ACAD_MLINESTYLE").isNull()) fx_.mlineDict = alloc(), fx_.mlineStandard = alloc();
  if (kept(L"ACAD_PLOTSETTINGS").isNull()) fx_.plotSettingsDict = alloc();
  AcDbObjectId layouts = kept(L"ACAD_LAYOUT");
  fx_.keptLayoutDict = AcDbDictionary::cast(objectOf(layouts)) != nullptr;
  fx_.layoutDict = fx_.keptLayoutDict ? handleOf(layouts) : alloc();
  if (fx_.keptLayoutDict) layoutDict_ = layouts;
  planPlotStyles();

  auto *blockTable = AcDbSymbolTable::cast(objectOf(impl->blockTable));
  if (!blockTable) return Acad::eMissingSymbolTable;
  int anonymous = 0;
  // BLOCK and ENDBLK keep the file's handles while no object has them.
  auto free = [&](uint64_t h) { return h && h <= impl->stubs.size() && !impl->stubs[size_t(h - 1)].obj; };
  for (AcDbObjectId btrId : blockTable->recordIds()) {
    if (btrId.isErased()) continue;
    auto *btr = AcDbBlockTableRecord::cast(objectOf(btrId));
    auto ends = impl->blockEnds.find(DbAccess::stub(btr));
    uint64_t begin = ends != impl->blockEnds.end() && free(ends->second.first) ? ends->second.first : alloc();
    uint64_t end = ends != impl->blockEnds.end() && free(ends->second.second) ? ends->second.second : alloc();
    blockEnds_[btrId] = {begin, end};
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
  planLayouts();
  return Acad::eOk;
}

// The entries of a dictionary, modelled or kept as read (3 key, 350 or 360).
std::vector<std::pair<std::wstring, AcDbObjectId>> entriesOf(const AcDbObject *dict) {
  std::vector<std::pair<std::wstring, AcDbObjectId>> out;
  AcDbDxfFiler f(true);
  if (dict) dict->dxfOutFields(&f);
  const auto &its = f.items();
  for (size_t i = 0; i + 1 < its.size(); ++i)
    if (its[i].code == 3 && (its[i + 1].code == 350 || its[i + 1].code == 360)) out.emplace_back(its[i].text, its[i + 1].id);
  return out;
}

// Every layout block (model space, paper space, *Paper_Space0 ...) names
// its layout: the one the drawing keeps whose block it is, else one the
// writer makes (Model, Layout1, Layout2 ...; a name not taken).
void Writer::planLayouts() {
  auto *impl = db_->impl();
  std::set<std::wstring> names;
  if (fx_.keptLayoutDict) {
    for (const auto &[key, id] : entriesOf(objectOf(layoutDict_))) {
      auto *layout = VerbatimObject::cast(objectOf(id));
      if (!layout || layout->isErased()) continue;
      names.insert(upperKey(key));
      // The block record: the 330 after the layout's own marker.
      const auto &g = layout->groups();
      auto marker = std::find_if(g.begin(), g.end(), [](const auto &it) { return it.code == 100 && it.text == L"AcDbLayout"; });
      auto block = std::find_if(marker, g.end(), [](const auto &it) { return it.code == 330; });
      if (block != g.end() && !block->id.isNull()) layoutOf_.emplace(handleOf(block->id), handleOf(id));
    }
  }
  auto *blockTable = AcDbSymbolTable::cast(objectOf(impl->blockTable));
  int tab = int(layoutOf_.size());
  for (AcDbObjectId btrId : blockTable->recordIds()) {
    auto *btr = AcDbBlockTableRecord::cast(objectOf(btrId));
    if (!btr || btr->isErased() || !btr->isLayout() || layoutOf_.count(handleOf(btrId))) continue;
    std::wstring name = btrId == impl->modelSpace ? L"Model" : L"";
    for (int n = 1; name.empty() || (btrId != impl->modelSpace && names.count(upperKey(name))); ++n)
      name = L"Layout" + std::to_wstring(n);
    names.insert(upperKey(name));
    Fixed::Layout l{alloc(), handleOf(btrId), text::toUtf8(name), btrId == impl->modelSpace ? 0 : ++tab};
    layoutOf_[l.block] = l.handle;
    fx_.layouts.push_back(std::move(l));
  }
}

// A layer's plot style name is an entry of the plot style name dictionary:
// the drawing's own when it keeps one (a name not in it takes its
// default), else the writer's, with an entry for every name the layers use.
void Writer::planPlotStyles() {
  auto *impl = db_->impl();
  auto *nod = AcDbDictionary::cast(objectOf(impl->nod));
  AcDbObjectId keptDict;
  if (nod && nod->getAt(L"ACAD_PLOTSTYLENAME", keptDict) == Acad::eOk && writable(keptDict)) {
    for (const auto &[key, id] : entriesOf(objectOf(keptDict))) {
      plotStyleOf_.emplace(upperKey(key), handleOf(id));
      if (!plotStyleDefault_) plotStyleDefault_ = handleOf(id);
    }
    if (auto *wd = VerbatimObject::cast(objectOf(keptDict)))
      for (const auto &it : wd->groups())
        if (it.code == 340 && !it.id.isNull()) plotStyleDefault_ = handleOf(it.id);
    return;
  }
  fx_.plotStyleDict = alloc();
  auto add = [&](const std::wstring &name) {
    if (plotStyleOf_.count(upperKey(name))) return;
    fx_.plotStyles.push_back({name, alloc()});
    plotStyleOf_[upperKey(name)] = fx_.plotStyles.back().second;
  };
  add(L"Normal");
  plotStyleDefault_ = fx_.plotStyles.front().second;
  auto *layers = AcDbSymbolTable::cast(objectOf(impl->layerTable));
  for (AcDbObjectId id : layers ? layers->recordIds() : std::vector<AcDbObjectId>()) {
    auto *layer = AcDbLayerTableRecord::cast(objectOf(id));
    if (!layer || layer->isErased()) continue;
    ACHAR *ps = layer->plotStyleName();
    add(ps ? ps : L"Normal");
    acutDelString(ps);
  }
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
  writeClasses(out_, db_->impl()->classes);
  out_.ascii(0, "ENDSEC");
  tables(ext);
  blocks();
  entities();
  objects();
  out_.ascii(0, "EOF");
  return Acad::eOk;
}

// The header: the version, then every variable with the drawing's value
// where it keeps one (Impl::vars, read from its file or set), else the
// writer's default; the variables the drawing keeps beyond these follow.
// Extents are measured now.
void Writer::header(const AcDbExtents &ext) {
  auto *impl = db_->impl();
  out_.ascii(0, "SECTION");
  out_.ascii(2, "HEADER");
  out_.ascii(9, "$ACADVER");
  out_.ascii(1, "AC1015");
  out_.ascii(9, "$ACADMAINTVER");
  out_.integer(70, 6);
  out_.ascii(9, "$DWGCODEPAGE");
  out_.ascii(3, "ANSI_1252");
  std::vector<std::pair<std::wstring, AcDbDxfFiler::Item>> vars;
  auto item = [](int code) {
    AcDbDxfFiler::Item it;
    it.code = code;
    return it;
  };
  auto text = [&](const wchar_t *name, int code, const std::wstring &value) {
    AcDbDxfFiler::Item it = item(code);
    it.text = value;
    vars.emplace_back(name, it);
  };
  auto integer = [&](const wchar_t *name, int code, int64_t value) {
    AcDbDxfFiler::Item it = item(code);
    it.integer = value;
    vars.emplace_back(name, it);
  };
  auto real = [&](const wchar_t *name, double value) {
    AcDbDxfFiler::Item it = item(40);
    it.real[0] = value;
    vars.emplace_back(name, it);
  };
  auto point = [&](const wchar_t *name, double x, double y, double z, int dims) {
    AcDbDxfFiler::Item it = item(10);
    it.dims = dims;
    it.real[0] = x, it.real[1] = y, it.real[2] = z;
    vars.emplace_back(name, it);
  };
  point(L"INSBASE", 0, 0, 0, 3);
  if (ext.isEmpty()) {
    point(L"EXTMIN", 1e20, 1e20, 1e20, 3);
    point(L"EXTMAX", -1e20, -1e20, -1e20, 3);
  } else {
    point(L"EXTMIN", ext.minPoint().x, ext.minPoint().y, ext.minPoint().z, 3);
    point(L"EXTMAX", ext.maxPoint().x, ext.maxPoint().y, ext.maxPoint().z, 3);
  }
  point(L"LIMMIN", 0, 0, 0, 2);
  point(L"LIMMAX", 420, 297, 0, 2);
  real(L"LTSCALE", 1);
  real(L"TEXTSIZE", impl->textsize);
  std::wstring style = recordName(impl->textstyle);
  text(L"TEXTSTYLE", 7, style.empty() ? L"Standard" : style);
  std::wstring layer = recordName(impl->clayer);
  text(L"CLAYER", 8, layer.empty() ? L"0" : layer);
  std::wstring lt = recordName(impl->celtype);
  text(L"CELTYPE", 6, lt.empty() ? L"ByLayer" : lt);
  integer(L"CECOLOR", 62, impl->cecolor.colorIndex());
  integer(L"CELWEIGHT", 370, -1);
  text(L"DIMSTYLE", 2, L"Standard");
  integer(L"LUNITS", 70, 2);
  integer(L"LUPREC", 70, 4);
  integer(L"SPLINETYPE", 70, impl->splinetype);
  integer(L"SPLINESEGS", 70, impl->splinesegs);
  integer(L"TILEMODE", 70, 1);
  integer(L"MEASUREMENT", 70, 1);
  integer(L"PSTYLEMODE", 290, 1);
  std::set<std::wstring> named;
  for (auto &[name, value] : vars) {
    named.insert(name);
    // The drawing's extents are measured; the rest comes from the drawing.
    if (name == L"EXTMIN" || name == L"EXTMAX" || name == L"TEXTSIZE" || name == L"TEXTSTYLE" ||
        name == L"CLAYER" || name == L"CELTYPE" || name == L"CECOLOR" || name.starts_with(L"SPLINE"))
      continue;
    if (auto found = impl->vars.find(name); found != impl->vars.end()) value = found->second;
  }
  for (const auto &[name, value] : impl->vars)
    if (!named.count(name)) vars.emplace_back(name, value);
  for (const auto &[name, value] : vars) {
    out_.text(9, L"$" + name);
    if (value.dims) {
      out_.point(value.code, value.real, value.dims);
      continue;
    }
    switch (groupKind(value.code)) {
      case Kind::Real:
        out_.real(value.code, value.real[0]);
        break;
      case Kind::Int:
        out_.integer(value.code, value.integer);
        break;
      case Kind::Handle:
        out_.handle(value.code, uint64_t(value.integer));
        break;
      default:
        out_.text(value.code, value.text);
    }
  }
  out_.ascii(9, "$HANDSEED");
  out_.handle(5, next_);
  out_.ascii(0, "ENDSEC");
}

void Writer::tables(const AcDbExtents &ext) {
  auto *impl = db_->impl();
  out_.ascii(0, "SECTION");
  out_.ascii(2, "TABLES");
  keptTable(L"VPORT", fx_.vportTable, fx_.vportActive ? 1 : 0, [&] {
    if (fx_.vportActive) writeActiveViewport(out_, fx_, ext);
  });
  symbolTable(impl->linetypeTable, "LTYPE");
  symbolTable(impl->layerTable, "LAYER");
  symbolTable(impl->styleTable, "STYLE");
  keptTable(L"VIEW", fx_.viewTable, 0, [] {});
  keptTable(L"UCS", fx_.ucsTable, 0, [] {});
  symbolTable(impl->regAppTable, "APPID");
  // Dimension styles: those the drawing file gave, and Standard unless it
  // was among them.
  bool standard = true;
  if (auto t = impl->keptTables.find(L"DIMSTYLE"); t != impl->keptTables.end())
    for (AcDbObjectId id : t->second.records)
      if (auto *s = VerbatimObject::cast(objectOf(id)); s && !s->isErased())
        standard = standard && upperKey(s->name()) != L"STANDARD";
  keptTable(L"DIMSTYLE", fx_.dimTable, standard ? 1 : 0, [&] {
    if (standard) writeStandardDimStyle(out_, fx_);
  });
  symbolTable(impl->blockTable, "BLOCK_RECORD");
  out_.ascii(0, "ENDSEC");
}

// Markers of a kept table's records, for records of old files that have none.
const wchar_t *recordMarker(std::wstring_view table) {
  if (table == L"VPORT") return L"AcDbViewportTableRecord";
  if (table == L"VIEW") return L"AcDbViewTableRecord";
  if (table == L"UCS") return L"AcDbUCSTableRecord";
  return L"AcDbDimStyleTableRecord";
}

void Writer::keptTable(const wchar_t *name, uint64_t head, int fixed, const std::function<void()> &writeFixed) {
  auto *impl = db_->impl();
  std::vector<const VerbatimObject *> records;
  const VerbatimObject *headObj = nullptr;
  if (auto t = impl->keptTables.find(name); t != impl->keptTables.end()) {
    headObj = VerbatimObject::cast(objectOf(t->second.head));
    for (AcDbObjectId id : t->second.records)
      if (auto *r = VerbatimObject::cast(objectOf(id)); r && !r->isErased()) records.push_back(r);
  }
  bool dimensions = std::wstring_view(name) == L"DIMSTYLE";
  int count = fixed + int(records.size());
  if (!headObj) {
    writeTableHead(out_, text::toUtf8(name).c_str(), head, count);
    if (dimensions) out_.ascii(100, "AcDbDimStyleTable");
  } else {
    // The file's head (its name first), its count made the table's; an old
    // file's head gets the markers.
    AcDbDxfFiler f(true);
    auto &its = f.items();
    its.resize(1);
    its[0].code = 2;
    its[0].text = name;
    bool markers = false;
    for (const auto &it : headObj->groups()) {
      markers = markers || it.code == 100;
      if (it.code != 2) its.push_back(it);
    }
    AcDbDxfFiler::Item marker;
    marker.code = 100;
    marker.text = L"AcDbSymbolTable";
    if (!markers) its.insert(its.begin() + 1, marker);
    for (auto &it : its)
      if (it.code == 70) it.integer = count;
    marker.text = L"AcDbDimStyleTable";
    if (!markers && dimensions) its.push_back(marker);
    object(L"TABLE", head, 0, f, headObj);
  }
  writeFixed();
  for (const VerbatimObject *r : records) {
    AcDbDxfFiler f(true);
    r->dxfOutFields(&f);
    auto &its = f.items();
    if (std::none_of(its.begin(), its.end(), [](const auto &it) { return it.code == 100; })) {
      auto at = std::find_if(its.begin(), its.end(), [](const auto &it) { return it.code != 5 && it.code != 102 && it.code != 330; });
      AcDbDxfFiler::Item m[2];
      m[0].code = m[1].code = 100;
      m[0].text = L"AcDbSymbolTableRecord";
      m[1].text = recordMarker(name);
      its.insert(at, m, m + 2);
    }
    object(name, handleOf(r->objectId()), head, f, r);
  }
  out_.ascii(0, "ENDTAB");
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
  // A table's extension dictionary (a layer table's layer states) follows
  // in the OBJECTS section, as every object's does.
  auto &xdicts = db_->impl()->extensionDictionaries;
  if (auto found = xdicts.find(DbAccess::stub(table)); found != xdicts.end() && writable(found->second)) {
    out_.ascii(102, "{ACAD_XDICTIONARY");
    out_.handle(360, handleOf(found->second));
    out_.ascii(102, "}");
    xdicts_.push_back(found->second);
  }
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
      auto layout = layoutOf_.find(handleOf(id));
      AcDbDxfFiler::Item it;
      it.code = 340;
      it.text = AcDbHandle(layout == layoutOf_.end() ? 0 : layout->second).toString();
      f.items().push_back(it);
    }
    if (auto *layer = AcDbLayerTableRecord::cast(rec)) {
      ACHAR *ps = layer->plotStyleName();
      auto found = plotStyleOf_.find(upperKey(ps ? ps : L"Normal"));
      acutDelString(ps);
      uint64_t h = found != plotStyleOf_.end() ? found->second : plotStyleDefault_;
      if (h) {
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
    // Every layout's block but model space's is paper space: the active
    // one and the others (*Paper_Space0, *Paper_Space1 ...).
    bool paper = btr->isLayout() && id != db_->impl()->modelSpace;
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
        return it.code == 100 && (it.text == L"AcDbBlockReference" || it.text == L"AcDbMInsertBlock" ||
                                  it.text == L"AcDbPolyFaceMesh" ||
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
  for (AcDbObjectId id : db_->impl()->looseObjects)
    if (writable(id)) objectTree(id);
  // Extension dictionaries of what was written (their objects' may add more).
  for (size_t i = 0; i < xdicts_.size(); ++i) objectTree(xdicts_[i]);
  out_.ascii(0, "ENDSEC");
}

// A dictionary, group or object kept as read and, for a dictionary, what it
// holds, for a kept object what it owns; entries of kinds the file does not
// carry are left out. The root lists the fixed objects too.
void Writer::objectTree(AcDbObjectId id) {
  AcDbObject *obj = objectOf(id);
  if (!obj || !written_.insert(handleOf(id)).second) return;
  bool root = id == db_->impl()->nod;
  AcDbDxfFiler f(true);
  obj->dxfOutFields(&f);
  std::vector<AcDbObjectId> children;
  if (AcDbDictionary::cast(obj)) {
    auto &its = f.items();
    std::vector<AcDbDxfFiler::Item> kept;
    for (size_t i = 0; i < its.size(); ++i) {
      if (its[i].code == 3 && i + 1 < its.size() && its[i + 1].code == 350) {
        if (writable(its[i + 1].id)) {
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
    // The kept layout dictionary lists the layouts made for layout blocks
    // without one of their own.
    if (id == layoutDict_)
      for (const Fixed::Layout &l : fx_.layouts) {
        AcDbDxfFiler::Item key, entry;
        key.code = 3;
        key.text = text::fromUtf8(l.name);
        entry.code = 350;
        entry.text = AcDbHandle(l.handle).toString();
        its.push_back(key);
        its.push_back(entry);
      }
  }
  object(dxfTypeOf(obj), handleOf(id), handleOf(obj->ownerId()), f, obj, 0, !root);
  // An object kept as read is followed by the objects it owns.
  if (VerbatimObject::cast(obj))
    if (auto owned = db_->impl()->attributes.find(DbAccess::stub(obj)); owned != db_->impl()->attributes.end())
      children = owned->second;
  for (AcDbObjectId c : children) objectTree(c);
  if (id == layoutDict_)
    for (const Fixed::Layout &l : fx_.layouts) writeLayout(out_, fx_, l);
}

void Writer::object(const std::wstring &type, uint64_t handle, uint64_t owner, const AcDbDxfFiler &f,
                    const AcDbObject *xdataOf, uint64_t xdict, bool ownerReactor) {
  const auto &its = f.items();
  size_t i = 0;
  out_.text(0, type);
  if (type == L"TABLE" && !its.empty() && its[0].code == 2) item(its[i++]);  // a table's name comes first
  out_.handle(type == L"DIMSTYLE" ? 105 : 5, handle);
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
  if (!xdict && xdataOf) {
    // An extension dictionary the drawing keeps follows in the OBJECTS section.
    auto &xdicts = db_->impl()->extensionDictionaries;
    if (auto found = xdicts.find(DbAccess::stub(xdataOf)); found != xdicts.end() && writable(found->second)) {
      xdict = handleOf(found->second);
      xdicts_.push_back(found->second);
    }
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

void Writer::item(const AcDbDxfFiler::Item &it) { out_.item(it); }

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
