// OLLeader's entity protocol and its stand-in in drawing files.
//
// Stand-in data (the XRECORD under the class's name), in order:
//   70  format, 1
//   40  arrow size
//   10  each vertex, arrow tip first (world coordinates)
//   11  the block's offset from the last vertex
//   2   the block's name (only when there is a block)
// What other programs draw: each segment as a LINE, the arrowhead as a
// 3DFACE triangle and the block as an INSERT, all on layer 0 with colour
// ByBlock so that the leader's own INSERT gives them its layer and colour.
#include "drawing/ol_leader.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr int kFormat = 1;

// A unit vector across the segment from the tip, in the plane that holds
// the segment and the world Z axis (or the world Y axis for a segment along
// Z), so that a plan view shows the arrowhead's full width.
AcGeVector3d across(const AcGeVector3d &along) {
  AcGeVector3d side = along.crossProduct(AcGeVector3d(0, 0, 1));
  if (side.isZeroLength()) side = along.crossProduct(AcGeVector3d(0, 1, 0));
  return side.normalize();
}

AcDbObjectId blockRecord(AcDbDatabase *db, const std::wstring &name) {
  AcDbObjectId id;
  if (!db || name.empty()) return id;
  AcDbBlockTable *table = nullptr;
  if (db->getBlockTable(table, AcDb::kForRead) != Acad::eOk || !table) return id;
  table->getAt(name.c_str(), id);
  table->close();
  return id;
}

Acad::ErrorStatus writeLeader(const AcDbEntity *entity, AcDbVoidPtrArray &drawable, AcDbDxfFiler *data) {
  const OLLeader *leader = OLLeader::cast(entity);
  if (!leader) return Acad::eWrongObjectType;
  AcDbVoidPtrArray parts;
  leader->explode(parts);
  for (void *p : parts) {
    auto *e = static_cast<AcDbEntity *>(p);
    e->setLayer(AcDbObjectId());
    e->setColorIndex(0);
    e->setLinetype(AcDbObjectId());
    e->setLineWeight(AcDb::kLnWtByBlock);
    drawable.append(e);
  }
  data->writeInt16(70, kFormat);
  data->writeDouble(40, leader->arrowSize());
  for (const AcGePoint3d &v : leader->vertices()) data->writePoint3d(10, v);
  data->writeVector3d(11, leader->offset());
  if (!leader->blockName().empty()) data->writeString(2, leader->blockName());
  return Acad::eOk;
}

AcDbEntity *readLeader(const AcDbDxfFiler *data, std::wstring *why) {
  auto refuse = [why](const wchar_t *text) -> AcDbEntity * {
    if (why) *why = text;
    return nullptr;
  };
  const auto &items = data->items();
  if (items.empty() || items[0].code != 70 || items[0].integer != kFormat)
    return refuse(L"its data is not in a format this module reads");
  std::vector<AcGePoint3d> points;
  AcGeVector3d offset;
  std::wstring block;
  double arrow = 0.18;
  for (size_t i = 1; i < items.size(); ++i) {
    const AcDbDxfFiler::Item &it = items[i];
    if (it.code == 10)
      points.emplace_back(it.real[0], it.real[1], it.real[2]);
    else if (it.code == 11)
      offset = AcGeVector3d(it.real[0], it.real[1], it.real[2]);
    else if (it.code == 2)
      block = it.text;
    else if (it.code == 40)
      arrow = it.real[0];
    else
      return refuse(L"its data holds a group this module does not know");
  }
  auto *leader = new OLLeader();
  if (leader->setVertices(points) != Acad::eOk || leader->setArrowSize(arrow) != Acad::eOk) {
    delete leader;
    return refuse(L"its vertices or arrow size are not valid");
  }
  leader->setOffset(offset);
  leader->setBlockName(block);
  return leader;
}

}  // namespace

void OLLeader::rxInit() {
  newAcRxClass(
      kClassName, L"AcDbEntity", 0, []() -> AcRxObject * { return new OLLeader(); }, nullptr,
      L"Vantry2025x64");
  acrxBuildClassHierarchy();
  acdbRegisterDxfStandIn(desc(), writeLeader, readLeader);
}

void OLLeader::rxUninit() {
  if (AcRxClass *cls = desc()) {
    acdbRemoveDxfStandIn(cls);
    deleteAcRxClass(cls);
  }
}

AcRxClass *OLLeader::isA() const {
  return desc();
}

Acad::ErrorStatus OLLeader::setVertices(const std::vector<AcGePoint3d> &points) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (points.size() < 2) return Acad::eInvalidInput;
  for (size_t i = 0; i < points.size(); ++i) {
    for (double c : {points[i].x, points[i].y, points[i].z})
      if (!std::isfinite(c)) return Acad::eInvalidInput;
    if (i > 0 && points[i].isEqualTo(points[i - 1])) return Acad::eInvalidInput;
  }
  vertices_ = points;
  return Acad::eOk;
}

Acad::ErrorStatus OLLeader::setBlockName(const std::wstring &name) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  block_ = name;
  return Acad::eOk;
}

Acad::ErrorStatus OLLeader::setOffset(const AcGeVector3d &offset) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  offset_ = offset;
  return Acad::eOk;
}

Acad::ErrorStatus OLLeader::setArrowSize(double size) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (!(size >= 0) || !std::isfinite(size)) return Acad::eInvalidInput;
  arrow_ = size;
  return Acad::eOk;
}

void OLLeader::pieces(AcDbVoidPtrArray &out) const {
  if (vertices_.size() < 2) return;
  for (size_t i = 0; i + 1 < vertices_.size(); ++i) out.append(new AcDbLine(vertices_[i], vertices_[i + 1]));
  AcGeVector3d along = vertices_[1] - vertices_[0];
  double size = std::min(arrow_, along.length());
  if (size > 0) {
    along.normalize();
    AcGeVector3d side = across(along) * (size / 6);
    AcGePoint3d base = vertices_[0] + along * size;
    out.append(new AcDbFace(vertices_[0], base + side, base - side));
  }
  AcDbDatabase *db = database() ? database() : acdbHostApplicationServices()->workingDatabase();
  AcDbObjectId block = blockRecord(db, block_);
  if (!block.isNull()) out.append(new AcDbBlockReference(vertices_.back() + offset_, block));
}

Acad::ErrorStatus OLLeader::getGeomExtents(AcDbExtents &extents) const {
  AcDbVoidPtrArray parts;
  pieces(parts);
  AcDbExtents all;
  for (void *p : parts) {
    auto *e = static_cast<AcDbEntity *>(p);
    AcDbExtents one;
    if (e->getGeomExtents(one) == Acad::eOk) all.addExt(one);
    delete e;
  }
  if (all.isEmpty()) return Acad::eInvalidExtents;
  extents = all;
  return Acad::eOk;
}

Acad::ErrorStatus OLLeader::explode(AcDbVoidPtrArray &entities) const {
  AcDbVoidPtrArray parts;
  pieces(parts);
  if (parts.length() == 0) return Acad::eNotApplicable;
  for (void *p : parts) {
    auto *e = static_cast<AcDbEntity *>(p);
    e->setColor(color());
    if (!layerId().isNull()) e->setLayer(layerId());
    if (!linetypeId().isNull()) e->setLinetype(linetypeId());
    e->setLineWeight(lineWeight());
    entities.append(e);
  }
  return Acad::eOk;
}

Acad::ErrorStatus OLLeader::transformBy(const AcGeMatrix3d &xform) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  for (AcGePoint3d &v : vertices_) v.transformBy(xform);
  offset_.transformBy(xform);
  arrow_ *= xform.scale();
  return Acad::eOk;
}

AcRxObject *OLLeader::clone() const {
  auto *copy = new OLLeader();
  copy->AcDbEntity::operator=(*this);
  copy->vertices_ = vertices_;
  copy->block_ = block_;
  copy->offset_ = offset_;
  copy->arrow_ = arrow_;
  return copy;
}

Acad::ErrorStatus OLLeader::copyFrom(const AcRxObject *other) {
  const OLLeader *src = cast(other);
  if (!src) return Acad::eWrongObjectType;
  if (src == this) return Acad::eOk;
  AcDbEntity::operator=(*src);
  vertices_ = src->vertices_;
  block_ = src->block_;
  offset_ = src->offset_;
  arrow_ = src->arrow_;
  return Acad::eOk;
}

Acad::ErrorStatus OLLeader::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbEntity::dxfOutFields(f);
  f->writeString(100, kClassName);
  f->writeDouble(40, arrow_);
  for (const AcGePoint3d &v : vertices_) f->writePoint3d(10, v);
  if (!block_.empty()) f->writeString(2, block_);
  f->writeVector3d(11, offset_);
  return Acad::eOk;
}

Acad::ErrorStatus OLLeader::dxfInFields(AcDbDxfFiler *f) {
  if (Acad::ErrorStatus es = AcDbEntity::dxfInFields(f); es != Acad::eOk) return es;
  std::vector<AcGePoint3d> points;
  for (const auto &it : f->items())
    if (it.code == 10) points.emplace_back(it.real[0], it.real[1], it.real[2]);
  if (!points.empty()) {
    if (Acad::ErrorStatus es = setVertices(points); es != Acad::eOk) return es;
  }
  double d;
  if (f->getDouble(40, d)) {
    if (Acad::ErrorStatus es = setArrowSize(d); es != Acad::eOk) return es;
  }
  std::wstring name;
  if (f->getString(2, name)) block_ = name;
  AcGeVector3d v;
  if (f->getVector(11, v)) offset_ = v;
  return Acad::eOk;
}
