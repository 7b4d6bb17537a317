// Common entity properties, extents and the entity part of the exchange form.
#include <algorithm>
#include <cfloat>

#include "db/db.h"

using namespace vantry::host;

// --- Extents ---------------------------------------------------------------------------------

AcDbExtents::AcDbExtents() : min_(1e20, 1e20, 1e20), max_(-1e20, -1e20, -1e20) {}

Acad::ErrorStatus AcDbExtents::set(const AcGePoint3d &min, const AcGePoint3d &max) {
  if (min.x > max.x || min.y > max.y || min.z > max.z) return Acad::eInvalidExtents;
  min_ = min;
  max_ = max;
  return Acad::eOk;
}

void AcDbExtents::addPoint(const AcGePoint3d &p) {
  for (int i = 0; i < 3; ++i) {
    min_[i] = std::min(min_[i], p[i]);
    max_[i] = std::max(max_[i], p[i]);
  }
}

void AcDbExtents::addExt(const AcDbExtents &e) {
  if (e.isEmpty()) return;
  addPoint(e.min_);
  addPoint(e.max_);
}

void AcDbExtents::expandBy(const AcGeVector3d &v) {
  addPoint(max_ + v), addPoint(min_ + v);
}

// The box around the transformed corners of this box.
void AcDbExtents::transformBy(const AcGeMatrix3d &m) {
  if (isEmpty()) return;
  AcDbExtents out;
  for (int i = 0; i < 8; ++i) {
    AcGePoint3d c((i & 1) ? max_.x : min_.x, (i & 2) ? max_.y : min_.y, (i & 4) ? max_.z : min_.z);
    out.addPoint(c.transformBy(m));
  }
  *this = out;
}

// --- Entities --------------------------------------------------------------------------------

Acad::ErrorStatus AcDbEntity::checkWrite() const {
  return DbAccess::openForWriteOrNew(this) ? Acad::eOk : Acad::eNotOpenForWrite;
}

Acad::ErrorStatus AcDbEntity::setColor(const AcCmColor &color, bool doSubents) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  color_ = color;
  if (doSubents) {
    std::vector<AcDbEntity *> subs;
    subentities(subs);
    for (AcDbEntity *s : subs) s->color_ = color;
  }
  return Acad::eOk;
}

Acad::ErrorStatus AcDbEntity::setColorIndex(Adesk::UInt16 index, bool doSubents) {
  AcCmColor c;
  if (Acad::ErrorStatus es = c.setColorIndex(index); es != Acad::eOk) return es;
  return setColor(c, doSubents);
}

ACHAR *AcDbEntity::layer() const {
  std::wstring n = recordName(layer_);
  ACHAR *out = nullptr;
  acutNewString(n.empty() ? L"0" : n.c_str(), out);
  return out;
}

Acad::ErrorStatus AcDbEntity::setLayer(AcDbObjectId id, bool doSubents) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (!AcDbLayerTableRecord::cast(objectOf(id)) || id.isErased()) return Acad::eKeyNotFound;
  if (database() && id.database() != database()) return Acad::eWrongDatabase;
  layer_ = id;
  if (doSubents) {
    std::vector<AcDbEntity *> subs;
    subentities(subs);
    for (AcDbEntity *s : subs) s->layer_ = id;
  }
  return Acad::eOk;
}

Acad::ErrorStatus AcDbEntity::setLayer(const ACHAR *name, bool doSubents) {
  if (!name) return Acad::eInvalidInput;
  AcDbDatabase *db = database() ? database() : workingDatabase();
  if (!db) return Acad::eNullObjectId;
  AcDbObjectId id = recordId(db->layerTableId(), name);
  if (id.isNull()) return Acad::eKeyNotFound;
  return setLayer(id, doSubents);
}

ACHAR *AcDbEntity::linetype() const {
  std::wstring n = recordName(linetype_);
  ACHAR *out = nullptr;
  acutNewString(n.empty() ? L"ByLayer" : n.c_str(), out);
  return out;
}

Acad::ErrorStatus AcDbEntity::setLinetype(AcDbObjectId id, bool doSubents) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (!AcDbLinetypeTableRecord::cast(objectOf(id)) || id.isErased()) return Acad::eKeyNotFound;
  linetype_ = id;
  if (doSubents) {
    std::vector<AcDbEntity *> subs;
    subentities(subs);
    for (AcDbEntity *s : subs) s->linetype_ = id;
  }
  return Acad::eOk;
}

Acad::ErrorStatus AcDbEntity::setLinetype(const ACHAR *name, bool doSubents) {
  if (!name) return Acad::eInvalidInput;
  AcDbDatabase *db = database() ? database() : workingDatabase();
  if (!db) return Acad::eNullObjectId;
  AcDbObjectId id = recordId(db->linetypeTableId(), name);
  if (id.isNull()) return Acad::eKeyNotFound;
  return setLinetype(id, doSubents);
}

Acad::ErrorStatus AcDbEntity::setLinetypeScale(double s, bool) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (!(s > 0)) return Acad::eInvalidInput;
  ltscale_ = s;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbEntity::setVisibility(AcDb::Visibility v, bool) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  visibility_ = v;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbEntity::setLineWeight(AcDb::LineWeight w, bool) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (w < AcDb::kLnWtByLwDefault || w > 211) return Acad::eInvalidInput;
  lineWeight_ = w;
  return Acad::eOk;
}

void AcDbEntity::setDatabaseDefaults() {
  setDatabaseDefaults(database() ? database() : workingDatabase());
}

const AcDbDxfFiler::Item *vantry::host::drawingVar(const AcDbDatabase *db, const std::wstring &name) {
  if (!db) return nullptr;
  auto &vars = db->impl()->vars;
  auto found = vars.find(name);
  return found == vars.end() ? nullptr : &found->second;
}

// Layer, linetype, colour, lineweight (CELWEIGHT) and linetype scale
// (CELTSCALE) from the drawing's current values.
void AcDbEntity::setDatabaseDefaults(AcDbDatabase *db) {
  if (!db) return;
  layer_ = db->clayer();
  linetype_ = db->celtype();
  color_ = db->cecolor();
  if (const auto *w = drawingVar(db, L"CELWEIGHT"); w && w->integer >= -3 && w->integer <= 211)
    lineWeight_ = AcDb::LineWeight(w->integer);
  if (const auto *s = drawingVar(db, L"CELTSCALE"); s && s->real[0] > 0) ltscale_ = s->real[0];
  std::vector<AcDbEntity *> subs;
  subentities(subs);
  for (AcDbEntity *s : subs) s->layer_ = layer_, s->linetype_ = linetype_, s->color_ = color_;
}

Acad::ErrorStatus AcDbEntity::getGeomExtents(AcDbExtents &) const {
  return Acad::eInvalidExtents;
}
Acad::ErrorStatus AcDbEntity::explode(AcDbVoidPtrArray &) const {
  return Acad::eNotApplicable;
}
Acad::ErrorStatus AcDbEntity::transformBy(const AcGeMatrix3d &) {
  return Acad::eNotApplicable;
}

Acad::ErrorStatus AcDbEntity::getTransformedCopy(const AcGeMatrix3d &xform, AcDbEntity *&ent) const {
  ent = AcDbEntity::cast(clone());
  if (!ent) return Acad::eNotApplicable;
  if (Acad::ErrorStatus es = ent->transformBy(xform); es != Acad::eOk) {
    delete ent;
    ent = nullptr;
    return es;
  }
  return Acad::eOk;
}

// The entity part: 67 paper space, 410 layout, 8 layer, 6 linetype and 62
// colour unless by layer, 420 true colour, 370 lineweight, 48 linetype scale
// and 60 visibility when not the defaults.
Acad::ErrorStatus AcDbEntity::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbObject::dxfOutFields(f);
  f->writeString(100, L"AcDbEntity");
  auto *owner = AcDbBlockTableRecord::cast(objectOf(ownerId()));
  bool paper = owner && upperKey(owner->name()).rfind(L"*PAPER_SPACE", 0) == 0;
  if (owner && owner->isLayout()) {
    if (paper) f->writeInt16(67, 1);
    if (!f->isFile()) f->writeString(410, paper ? L"Layout1" : L"Model");
  }
  std::wstring layerName = recordName(layer_);
  f->writeString(8, layerName.empty() ? L"0" : layerName);
  std::wstring lt = recordName(linetype_);
  if (!lt.empty() && upperKey(lt) != L"BYLAYER") f->writeString(6, lt);
  if (!color_.isByLayer()) f->writeInt16(62, color_.colorIndex() == 256 ? 7 : color_.colorIndex());
  if (color_.isByColor()) f->writeInt32(420, (color_.red() << 16) | (color_.green() << 8) | color_.blue());
  if (lineWeight_ != AcDb::kLnWtByLayer) f->writeInt16(370, lineWeight_);
  if (ltscale_ != 1.0) f->writeDouble(48, ltscale_);
  if (visibility_ == AcDb::kInvisible) f->writeInt16(60, 1);
  return Acad::eOk;
}

// Unknown layers are made (as the host does for entity data); unknown
// linetypes are refused.
Acad::ErrorStatus AcDbEntity::dxfInFields(AcDbDxfFiler *f) {
  AcDbDatabase *db = database() ? database() : workingDatabase();
  std::wstring s;
  int64_t v;
  double d;
  if (f->getString(8, s) && db) {
    if (!validSymbolName(s)) return Acad::eInvalidInput;
    layer_ = ensureRecord(db->layerTableId(), AcDbLayerTableRecord::desc(), s);
  }
  if (f->getString(6, s) && db) {
    AcDbObjectId id = recordId(db->linetypeTableId(), s);
    if (id.isNull()) return Acad::eKeyNotFound;
    linetype_ = id;
  }
  if (f->getInt(62, v)) {
    if (v < 0 || v > 256) return Acad::eInvalidInput;
    color_.setColorIndex(Adesk::UInt16(v));
  }
  if (f->getInt(420, v)) color_.setRGB(Adesk::UInt8(v >> 16), Adesk::UInt8(v >> 8), Adesk::UInt8(v));
  if (f->getInt(370, v)) {
    if (v < AcDb::kLnWtByLwDefault || v > 211) return Acad::eInvalidInput;
    lineWeight_ = AcDb::LineWeight(v);
  }
  if (f->getDouble(48, d)) {
    if (!(d > 0)) return Acad::eInvalidInput;
    ltscale_ = d;
  }
  if (f->getInt(60, v)) visibility_ = v ? AcDb::kInvisible : AcDb::kVisible;
  return Acad::eOk;
}

namespace vantry::host {

AcGeVector3d transformedNormal(const AcGeVector3d &normal, const AcGeMatrix3d &xform) {
  AcGeVector3d x = ocsXAxis(normal), y = normal.normal().crossProduct(x);
  x.transformBy(xform), y.transformBy(xform);
  return x.crossProduct(y).normal();
}

}  // namespace vantry::host
