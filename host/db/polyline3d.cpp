// Old-style 3D polylines and their vertices.
#include "db/db.h"

using namespace vantry::host;

namespace vantry::host {
void copyEntityLook(AcDbEntity *dst, const AcDbEntity &src);
void explodePath(const CurvePath &path, const AcDbEntity &src, AcDbVoidPtrArray &out);
}  // namespace vantry::host

Acad::ErrorStatus AcDb3dPolylineVertex::setPosition(const AcGePoint3d &p) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  position_ = p;
  return Acad::eOk;
}

Acad::ErrorStatus AcDb3dPolylineVertex::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbEntity::dxfOutFields(f);
  f->writeString(100, L"AcDbVertex");
  f->writeString(100, L"AcDb3dPolylineVertex");
  f->writePoint3d(10, position_);
  f->writeInt16(70, 32);
  return Acad::eOk;
}

Acad::ErrorStatus AcDb3dPolylineVertex::dxfInFields(AcDbDxfFiler *f) {
  if (Acad::ErrorStatus es = AcDbEntity::dxfInFields(f); es != Acad::eOk) return es;
  f->getPoint(10, position_);
  return Acad::eOk;
}

AcDb3dPolyline::AcDb3dPolyline(AcDb::Poly3dType, const AcGePoint3dArray &vertices, bool closed)
    : closed_(closed) {
  for (const AcGePoint3d &p : vertices) verts_.list.push_back(new AcDb3dPolylineVertex(p));
}

AcDb3dPolyline::AcDb3dPolyline(const AcDb3dPolyline &o) : AcDbCurve(o), verts_(o.verts_), closed_(o.closed_) {}

AcDb3dPolyline::~AcDb3dPolyline() = default;

AcRxObject *AcDb3dPolyline::clone() const {
  return new AcDb3dPolyline(*this);
}

void AcDb3dPolyline::subJoinedDatabase() {
  verts_.join(*this);
}

void AcDb3dPolyline::subentities(std::vector<AcDbEntity *> &out) const {
  verts_.subentities(out);
}

AcDbObjectId AcDb3dPolyline::sequenceEndId() const {
  return verts_.sequenceEndId();
}

Acad::ErrorStatus AcDb3dPolyline::appendVertex(AcDb3dPolylineVertex *v) {
  AcDbObjectId id;
  return appendVertex(id, v);
}

Acad::ErrorStatus AcDb3dPolyline::appendVertex(AcDbObjectId &id, AcDb3dPolylineVertex *v) {
  id = AcDbObjectId::kNull;
  if (!v) return Acad::eNullEntityPointer;
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  return verts_.append(*this, v, &id);
}

AcDbObjectIterator *AcDb3dPolyline::vertexIterator() const {
  return verts_.iterator();
}

Acad::ErrorStatus AcDb3dPolyline::makeClosed() {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  closed_ = true;
  return Acad::eOk;
}

Acad::ErrorStatus AcDb3dPolyline::makeOpen() {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  closed_ = false;
  return Acad::eOk;
}

void AcDb3dPolyline::buildPath(CurvePath &path) const {
  size_t n = verts_.list.size();
  if (n == 0) return;
  if (n == 1) {
    path.addLine(verts_.list[0]->position(), verts_.list[0]->position(), 0, 0);
    return;
  }
  size_t segs = closed_ ? n : n - 1;
  for (size_t i = 0; i < segs; ++i)
    path.addLine(verts_.list[i]->position(), verts_.list[(i + 1) % n]->position(), double(i), double(i + 1));
  path.setClosed(closed_);
}

Acad::ErrorStatus AcDb3dPolyline::getGeomExtents(AcDbExtents &ext) const {
  ext = AcDbExtents();
  if (verts_.list.empty()) return Acad::eInvalidExtents;
  for (const AcDb3dPolylineVertex *v : verts_.list) ext.addPoint(v->position());
  return Acad::eOk;
}

Acad::ErrorStatus AcDb3dPolyline::explode(AcDbVoidPtrArray &out) const {
  if (verts_.list.size() < 2) return Acad::eNotApplicable;
  explodePath(CurvePath(*this), *this, out);
  return Acad::eOk;
}

Acad::ErrorStatus AcDb3dPolyline::transformBy(const AcGeMatrix3d &xform) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  for (AcDb3dPolylineVertex *v : verts_.list) {
    AcGePoint3d p = v->position();
    v->setPosition(p.transformBy(xform));
  }
  return Acad::eOk;
}

// POLYLINE (3D): 66, 10 origin, 70 flags (8 3D, 1 closed), 210 normal.
Acad::ErrorStatus AcDb3dPolyline::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbEntity::dxfOutFields(f);
  f->writeString(100, L"AcDb3dPolyline");
  f->writeInt16(66, 1);
  f->writePoint3d(10, AcGePoint3d::kOrigin);
  f->writeInt16(70, 8 | (closed_ ? 1 : 0));
  f->writeDouble(40, 0.0);
  f->writeDouble(41, 0.0);
  f->writeInt16(75, 0);
  f->writeVector3d(210, AcGeVector3d::kZAxis);
  return Acad::eOk;
}

Acad::ErrorStatus AcDb3dPolyline::dxfInFields(AcDbDxfFiler *f) {
  if (Acad::ErrorStatus es = AcDbEntity::dxfInFields(f); es != Acad::eOk) return es;
  int64_t flags;
  if (f->getInt(70, flags)) closed_ = flags & 1;
  return Acad::eOk;
}
