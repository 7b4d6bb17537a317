// Light polylines with bulges, and leaders.
#include <cmath>

#include "db/db.h"

using namespace vantry::host;

namespace vantry::host {

// Gives a new entity (one made by explode) the look of its source.
void copyEntityLook(AcDbEntity *dst, const AcDbEntity &src) {
  if (!src.layerId().isNull()) dst->setLayer(src.layerId(), false);
  if (!src.linetypeId().isNull()) dst->setLinetype(src.linetypeId(), false);
  dst->setColor(src.color(), false);
  dst->setLineWeight(src.lineWeight(), false);
  dst->setLinetypeScale(src.linetypeScale(), false);
}

// Exploded pieces of a path: lines for straight segments, arcs (always
// counter-clockwise about their normal) for the others.
void explodePath(const CurvePath &path, const AcDbEntity &src, AcDbVoidPtrArray &out) {
  for (const CurvePath::Seg &s : path.segments()) {
    AcDbEntity *e;
    if (!s.arc) {
      e = new AcDbLine(s.p0, s.p1);
    } else {
      AcGeVector3d n = s.u.crossProduct(s.v);
      if (s.sweep < 0) n = -n;
      AcGeVector3d x = ocsXAxis(n), y = n.crossProduct(x);
      auto angle = [&](const AcGePoint3d &p) {
        AcGeVector3d d = p - s.c;
        double a = std::atan2(d.dotProduct(y), d.dotProduct(x));
        return a < 0 ? a + 2 * M_PI : a;
      };
      e = new AcDbArc(s.c, n, s.r, angle(s.p0), angle(s.p1));
    }
    copyEntityLook(e, src);
    out.append(e);
  }
}

}  // namespace vantry::host

// --- Light polylines --------------------------------------------------------------------------

AcDbPolyline::AcDbPolyline(unsigned int reserve) {
  verts_.reserve(reserve);
}

Acad::ErrorStatus AcDbPolyline::addVertexAt(unsigned int index, const AcGePoint2d &pt, double bulge,
                                            double startWidth, double endWidth, Adesk::Int32 vertexId) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (index > verts_.size()) return Acad::eInvalidIndex;
  Vertex v;
  v.pt = pt;
  v.bulge = bulge;
  v.startWidth = startWidth < 0 ? 0 : startWidth;
  v.endWidth = endWidth < 0 ? 0 : endWidth;
  v.id = vertexId;
  verts_.insert(verts_.begin() + index, v);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbPolyline::removeVertexAt(unsigned int index) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (index >= verts_.size()) return Acad::eInvalidIndex;
  verts_.erase(verts_.begin() + index);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbPolyline::getPointAt(unsigned int index, AcGePoint2d &pt) const {
  if (index >= verts_.size()) return Acad::eInvalidIndex;
  pt = verts_[index].pt;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbPolyline::getPointAt(unsigned int index, AcGePoint3d &pt) const {
  if (index >= verts_.size()) return Acad::eInvalidIndex;
  pt = AcGePoint3d(verts_[index].pt.x, verts_[index].pt.y, elevation_);
  if (!normal_.isEqualTo(AcGeVector3d::kZAxis)) pt.transformBy(AcGeMatrix3d::planeToWorld(normal_));
  return Acad::eOk;
}

Acad::ErrorStatus AcDbPolyline::setPointAt(unsigned int index, const AcGePoint2d &pt) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (index >= verts_.size()) return Acad::eInvalidIndex;
  verts_[index].pt = pt;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbPolyline::getBulgeAt(unsigned int index, double &bulge) const {
  if (index >= verts_.size()) return Acad::eInvalidIndex;
  bulge = verts_[index].bulge;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbPolyline::setBulgeAt(unsigned int index, double bulge) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (index >= verts_.size()) return Acad::eInvalidIndex;
  verts_[index].bulge = bulge;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbPolyline::getWidthsAt(unsigned int index, double &sw, double &ew) const {
  if (index >= verts_.size()) return Acad::eInvalidIndex;
  sw = verts_[index].startWidth;
  ew = verts_[index].endWidth;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbPolyline::setWidthsAt(unsigned int index, double sw, double ew) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (index >= verts_.size()) return Acad::eInvalidIndex;
  if (sw < 0 || ew < 0) return Acad::eInvalidInput;
  verts_[index].startWidth = sw;
  verts_[index].endWidth = ew;
  return Acad::eOk;
}

AcDbPolyline::SegType AcDbPolyline::segType(unsigned int index) const {
  unsigned n = numVerts();
  if (n == 0 || index >= n) return kEmpty;
  if (n == 1) return kPoint;
  if (index == n - 1 && !closed_) return kEmpty;
  const Vertex &a = verts_[index], &b = verts_[(index + 1) % n];
  if (a.pt.isEqualTo(b.pt)) return kCoincident;
  return std::fabs(a.bulge) > 1e-12 ? kArc : kLine;
}

bool AcDbPolyline::hasBulges() const {
  for (const Vertex &v : verts_)
    if (v.bulge != 0) return true;
  return false;
}

Acad::ErrorStatus AcDbPolyline::setNormal(const AcGeVector3d &n) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (n.isZeroLength()) return Acad::eInvalidInput;
  normal_ = n.normal();
  return Acad::eOk;
}

Acad::ErrorStatus AcDbPolyline::setThickness(double t) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  thickness_ = t;
  return Acad::eOk;
}

// A constant width exists when every segment's widths are equal.
Acad::ErrorStatus AcDbPolyline::getConstantWidth(double &width) const {
  width = verts_.empty() ? 0 : verts_[0].startWidth;
  for (const Vertex &v : verts_)
    if (v.startWidth != width || v.endWidth != width) return Acad::eNotApplicable;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbPolyline::setConstantWidth(double width) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (width < 0) return Acad::eInvalidInput;
  for (Vertex &v : verts_) v.startWidth = v.endWidth = width;
  return Acad::eOk;
}

void AcDbPolyline::reset(bool reuse, unsigned int numVerts) {
  if (!reuse)
    verts_.clear();
  else if (numVerts < verts_.size())
    verts_.resize(numVerts);
}

// Segment i runs from vertex i to i+1 (the last back to 0 when closed); a
// single vertex is a point of parameter 0.
void AcDbPolyline::buildPath(CurvePath &path) const {
  size_t n = verts_.size();
  if (n == 0) return;
  AcGeMatrix3d toWorld = AcGeMatrix3d::planeToWorld(normal_);
  bool flat = normal_.isEqualTo(AcGeVector3d::kZAxis);
  auto world = [&](size_t i) {
    AcGePoint3d p(verts_[i].pt.x, verts_[i].pt.y, elevation_);
    return flat ? p : p.transformBy(toWorld);
  };
  if (n == 1) {
    path.addLine(world(0), world(0), 0, 0);
    return;
  }
  size_t segs = closed_ ? n : n - 1;
  AcGePoint3d a = world(0);
  for (size_t i = 0; i < segs; ++i) {
    AcGePoint3d b = world((i + 1) % n);
    path.addBulge(a, b, verts_[i].bulge, normal_, double(i), double(i + 1));
    a = b;
  }
  path.setClosed(closed_);
}

Acad::ErrorStatus AcDbPolyline::getGeomExtents(AcDbExtents &ext) const {
  ext = AcDbExtents();
  if (verts_.empty()) return Acad::eInvalidExtents;
  CurvePath(*this).addExtents(ext);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbPolyline::explode(AcDbVoidPtrArray &out) const {
  if (verts_.size() < 2) return Acad::eNotApplicable;
  explodePath(CurvePath(*this), *this, out);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbPolyline::transformBy(const AcGeMatrix3d &xform) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (!xform.isUniScaledOrtho()) return Acad::eNotApplicable;
  AcGeVector3d n = transformedNormal(normal_, xform);
  AcGeMatrix3d toPlane = AcGeMatrix3d::worldToPlane(n);
  double s = xform.scale();
  for (unsigned i = 0; i < numVerts(); ++i) {
    AcGePoint3d p;
    getPointAt(i, p);
    p.transformBy(xform).transformBy(toPlane);
    verts_[i].pt = AcGePoint2d(p.x, p.y);
    elevation_ = p.z;
    verts_[i].startWidth *= s;
    verts_[i].endWidth *= s;
  }
  normal_ = n;
  return Acad::eOk;
}

// LWPOLYLINE: 90 count, 70 flags (1 closed, 128 linetype generation), 43
// constant width when there is one, 38 elevation, 39 thickness, then per
// vertex 10 (x y), 40, 41, 42 bulge, 91 vertex id; 210 normal.
Acad::ErrorStatus AcDbPolyline::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbEntity::dxfOutFields(f);
  f->writeString(100, L"AcDbPolyline");
  f->writeInt32(90, int32_t(verts_.size()));
  f->writeInt16(70, (closed_ ? 1 : 0) | (plinegen_ ? 128 : 0));
  double w;
  if (getConstantWidth(w) == Acad::eOk) f->writeDouble(43, w);
  f->writeDouble(38, elevation_);
  f->writeDouble(39, thickness_);
  for (const Vertex &v : verts_) {
    f->writePoint2d(10, v.pt);
    f->writeDouble(40, v.startWidth);
    f->writeDouble(41, v.endWidth);
    f->writeDouble(42, v.bulge);
    f->writeInt32(91, v.id);
  }
  f->writeVector3d(210, normal_);
  return Acad::eOk;
}

// Vertex groups follow their 10 group in any order up to the next 10.
Acad::ErrorStatus AcDbPolyline::dxfInFields(AcDbDxfFiler *f) {
  if (Acad::ErrorStatus es = AcDbEntity::dxfInFields(f); es != Acad::eOk) return es;
  std::vector<Vertex> verts;
  double constWidth = -1;
  for (const auto &it : f->items()) {
    switch (it.code) {
      case 10:
        verts.push_back(Vertex{AcGePoint2d(it.real[0], it.real[1])});
        break;
      case 40:
      case 41:
      case 42:
      case 91:
        if (verts.empty()) break;
        if (it.code == 40) verts.back().startWidth = it.real[0];
        if (it.code == 41) verts.back().endWidth = it.real[0];
        if (it.code == 42) verts.back().bulge = it.real[0];
        if (it.code == 91) verts.back().id = Adesk::Int32(it.integer);
        break;
      case 43:
        constWidth = it.real[0];
        break;
      default:
        break;
    }
  }
  for (const Vertex &v : verts)
    if (v.startWidth < 0 || v.endWidth < 0 || !std::isfinite(v.bulge)) return Acad::eInvalidInput;
  int64_t flags;
  if (f->getInt(70, flags)) closed_ = flags & 1, plinegen_ = (flags & 128) != 0;
  f->getDouble(38, elevation_);
  f->getDouble(39, thickness_);
  AcGeVector3d n;
  if (f->getVector(210, n)) {
    if (n.isZeroLength()) return Acad::eInvalidInput;
    normal_ = n.normal();
  }
  if (f->find(10)) verts_ = std::move(verts);
  if (constWidth >= 0)
    for (Vertex &v : verts_)
      if (v.startWidth == 0 && v.endWidth == 0) v.startWidth = v.endWidth = constWidth;
  return Acad::eOk;
}

// --- Leaders -----------------------------------------------------------------------------------

bool AcDbLeader::appendVertex(const AcGePoint3d &p) {
  if (checkWrite() != Acad::eOk) return false;
  verts_.push_back(p);
  return true;
}

void AcDbLeader::removeLastVertex() {
  if (checkWrite() == Acad::eOk && !verts_.empty()) verts_.pop_back();
}

bool AcDbLeader::setVertexAt(int i, const AcGePoint3d &p) {
  if (checkWrite() != Acad::eOk || i < 0 || i >= numVertices()) return false;
  verts_[i] = p;
  return true;
}

Acad::ErrorStatus AcDbLeader::attachAnnotation(AcDbObjectId id) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  annotation_ = id;
  return Acad::eOk;
}

void AcDbLeader::buildPath(CurvePath &path) const {
  if (verts_.empty()) return;
  if (verts_.size() == 1) path.addLine(verts_[0], verts_[0], 0, 0);
  for (size_t i = 0; i + 1 < verts_.size(); ++i)
    path.addLine(verts_[i], verts_[i + 1], double(i), double(i + 1));
}

Acad::ErrorStatus AcDbLeader::getGeomExtents(AcDbExtents &ext) const {
  ext = AcDbExtents();
  if (verts_.empty()) return Acad::eInvalidExtents;
  for (const AcGePoint3d &p : verts_) ext.addPoint(p);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbLeader::explode(AcDbVoidPtrArray &out) const {
  if (verts_.size() < 2) return Acad::eNotApplicable;
  explodePath(CurvePath(*this), *this, out);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbLeader::transformBy(const AcGeMatrix3d &xform) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  for (AcGePoint3d &p : verts_) p.transformBy(xform);
  normal_.transformBy(xform);
  normal_.normalize();
  return Acad::eOk;
}

// LEADER: 3 dimension style, 71 arrowhead, 72 path type (1 spline), 73
// creation (3 without annotation), 74, 75 hook line, 40/41 text size, 76
// vertex count, 10 each vertex, 340 annotation, 210 normal.
Acad::ErrorStatus AcDbLeader::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbEntity::dxfOutFields(f);
  f->writeString(100, L"AcDbLeader");
  f->writeString(3, L"Standard");
  f->writeInt16(71, arrow_ ? 1 : 0);
  f->writeInt16(72, splined_ ? 1 : 0);
  f->writeInt16(73, annotation_.isNull() ? 3 : 1);
  f->writeInt16(74, 0);
  f->writeInt16(75, 0);
  f->writeDouble(40, 0.0);
  f->writeDouble(41, 0.0);
  f->writeInt16(76, int(verts_.size()));
  for (const AcGePoint3d &p : verts_) f->writePoint3d(10, p);
  if (!annotation_.isNull()) f->writeObjectId(340, annotation_);
  f->writeVector3d(210, normal_);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbLeader::dxfInFields(AcDbDxfFiler *f) {
  if (Acad::ErrorStatus es = AcDbEntity::dxfInFields(f); es != Acad::eOk) return es;
  int64_t v;
  if (f->getInt(71, v)) arrow_ = v != 0;
  if (f->getInt(72, v)) splined_ = v == 1;
  if (f->find(10)) {
    verts_.clear();
    for (const auto &it : f->items())
      if (it.code == 10) verts_.emplace_back(it.real[0], it.real[1], it.dims == 3 ? it.real[2] : 0.0);
  }
  if (const auto *a = f->find(340)) annotation_ = a->id;
  AcGeVector3d n;
  if (f->getVector(210, n) && !n.isZeroLength()) normal_ = n.normal();
  return Acad::eOk;
}
