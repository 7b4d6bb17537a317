// Old-style 2D polylines with vertex objects and fitting, their vertices and
// end marker.
#include <algorithm>
#include <cmath>

#include "db/db.h"

using namespace vantry::host;

namespace vantry::host {
void copyEntityLook(AcDbEntity *dst, const AcDbEntity &src);
void explodePath(const CurvePath &path, const AcDbEntity &src, AcDbVoidPtrArray &out);
// Curve fitting and spline fitting (db_polyfit.cpp).
Acad::ErrorStatus fitCurve(AcDb2dPolyline &pline);
Acad::ErrorStatus fitSpline(AcDb2dPolyline &pline, AcDb::Poly2dType type, int segs);
}  // namespace vantry::host

namespace {

bool isFitVertex(const AcDb2dVertex &v) {
  return v.vertexType() == AcDb::k2dCurveFitVertex || v.vertexType() == AcDb::k2dSplineFitVertex;
}

}  // namespace

// --- Vertices ------------------------------------------------------------------------------------

AcDb2dVertex::AcDb2dVertex(const AcGePoint3d &position, double bulge, double startWidth, double endWidth,
                           double tangent)
    : position_(position), bulge_(bulge), startWidth_(startWidth), endWidth_(endWidth), tangent_(tangent) {}

#define VERTEX_SETTER(NAME, FIELD, TYPE)                                 \
  Acad::ErrorStatus AcDb2dVertex::NAME(TYPE v) {                         \
    if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es; \
    FIELD = v;                                                           \
    return Acad::eOk;                                                    \
  }
VERTEX_SETTER(setPosition, position_, const AcGePoint3d &)
VERTEX_SETTER(setBulge, bulge_, double)
VERTEX_SETTER(setStartWidth, startWidth_, double)
VERTEX_SETTER(setEndWidth, endWidth_, double)
VERTEX_SETTER(setTangent, tangent_, double)
#undef VERTEX_SETTER

Acad::ErrorStatus AcDb2dVertex::useTangent() {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  tangentUsed_ = true;
  return Acad::eOk;
}

Acad::ErrorStatus AcDb2dVertex::ignoreTangent() {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  tangentUsed_ = false;
  return Acad::eOk;
}

// VERTEX of a 2D polyline: 10 position (object coordinates), 40/41 widths,
// 42 bulge, 70 flags (1 curve-fit vertex, 2 tangent used, 8 spline-fit
// vertex, 16 spline control point), 50 tangent.
Acad::ErrorStatus AcDb2dVertex::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbEntity::dxfOutFields(f);
  f->writeString(100, L"AcDbVertex");
  f->writeString(100, L"AcDb2dVertex");
  f->writePoint3d(10, position_);
  f->writeDouble(40, startWidth_);
  f->writeDouble(41, endWidth_);
  f->writeDouble(42, bulge_);
  int flags = (type_ == AcDb::k2dCurveFitVertex ? 1 : 0) | (tangentUsed_ ? 2 : 0) |
              (type_ == AcDb::k2dSplineFitVertex ? 8 : 0) | (type_ == AcDb::k2dSplineCtlVertex ? 16 : 0);
  f->writeInt16(70, flags);
  f->writeAngle(50, tangent_);
  return Acad::eOk;
}

Acad::ErrorStatus AcDb2dVertex::dxfInFields(AcDbDxfFiler *f) {
  if (Acad::ErrorStatus es = AcDbEntity::dxfInFields(f); es != Acad::eOk) return es;
  f->getPoint(10, position_);
  f->getDouble(40, startWidth_);
  f->getDouble(41, endWidth_);
  f->getDouble(42, bulge_);
  f->getAngle(50, tangent_);
  int64_t flags;
  if (f->getInt(70, flags)) {
    tangentUsed_ = flags & 2;
    type_ = (flags & 1)    ? AcDb::k2dCurveFitVertex
            : (flags & 8)  ? AcDb::k2dSplineFitVertex
            : (flags & 16) ? AcDb::k2dSplineCtlVertex
                           : AcDb::k2dVertex;
  }
  if (startWidth_ < 0 || endWidth_ < 0 || !std::isfinite(bulge_)) return Acad::eInvalidInput;
  return Acad::eOk;
}

// --- 2D polylines -------------------------------------------------------------------------------

AcDb2dPolyline::AcDb2dPolyline(AcDb::Poly2dType type, const AcGePoint3dArray &vertices, double elevation,
                               bool closed, double defStart, double defEnd, const AcGeDoubleArray *bulges)
    : closed_(closed), elevation_(elevation), defStart_(defStart), defEnd_(defEnd) {
  for (int i = 0; i < vertices.length(); ++i) {
    AcGePoint3d p = vertices[i];
    p.z = elevation;
    double b = bulges && i < bulges->length() ? (*bulges)[i] : 0.0;
    verts_.list.push_back(new AcDb2dVertex(p, b, defStart, defEnd));
  }
  if (type == AcDb::k2dFitCurvePoly)
    curveFit();
  else if (type != AcDb::k2dSimplePoly)
    splineFit(type, 8);
}

AcDb2dPolyline::AcDb2dPolyline(const AcDb2dPolyline &o)
    : AcDbCurve(o),
      verts_(o.verts_),
      type_(o.type_),
      closed_(o.closed_),
      plinegen_(o.plinegen_),
      elevation_(o.elevation_),
      defStart_(o.defStart_),
      defEnd_(o.defEnd_),
      thickness_(o.thickness_),
      normal_(o.normal_) {}

AcDb2dPolyline::~AcDb2dPolyline() = default;

AcRxObject *AcDb2dPolyline::clone() const {
  return new AcDb2dPolyline(*this);
}

void AcDb2dPolyline::subJoinedDatabase() {
  verts_.join(*this);
}

void AcDb2dPolyline::subentities(std::vector<AcDbEntity *> &out) const {
  verts_.subentities(out);
}

AcDbObjectId AcDb2dPolyline::sequenceEndId() const {
  return verts_.sequenceEndId();
}

Acad::ErrorStatus AcDb2dPolyline::setPolyType(AcDb::Poly2dType type) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  switch (type) {
    case AcDb::k2dSimplePoly:
      return straighten();
    case AcDb::k2dFitCurvePoly:
      return curveFit();
    default:
      return splineFit(type, database() ? database()->splinesegs() : 8);
  }
}

Acad::ErrorStatus AcDb2dPolyline::addVertex(AcDb2dVertex *v, AcDbObjectId *id) {
  if (!v) return Acad::eNullEntityPointer;
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  return verts_.append(*this, v, id);
}

Acad::ErrorStatus AcDb2dPolyline::appendVertex(AcDb2dVertex *v) {
  return addVertex(v, nullptr);
}

Acad::ErrorStatus AcDb2dPolyline::appendVertex(AcDbObjectId &id, AcDb2dVertex *v) {
  id = AcDbObjectId::kNull;
  return addVertex(v, &id);
}

Acad::ErrorStatus AcDb2dPolyline::openVertex(AcDb2dVertex *&v, AcDbObjectId id, AcDb::OpenMode mode,
                                             bool openErased) const {
  v = nullptr;
  if (objectOf(id) && objectOf(id)->ownerId() != objectId()) return Acad::eInvalidInput;
  return acdbOpenObject(v, id, mode, openErased);
}

AcDbObjectIterator *AcDb2dPolyline::vertexIterator() const {
  return verts_.iterator();
}

AcGePoint3d AcDb2dPolyline::vertexPosition(const AcDb2dVertex &v) const {
  AcGePoint3d p(v.position().x, v.position().y, elevation_);
  return normal_.isEqualTo(AcGeVector3d::kZAxis) ? p : p.transformBy(AcGeMatrix3d::planeToWorld(normal_));
}

Acad::ErrorStatus AcDb2dPolyline::makeClosed() {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  closed_ = true;
  return Acad::eOk;
}

Acad::ErrorStatus AcDb2dPolyline::makeOpen() {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  closed_ = false;
  return Acad::eOk;
}

#define PLINE_SETTER(NAME, FIELD, TYPE)                                  \
  Acad::ErrorStatus AcDb2dPolyline::NAME(TYPE v) {                       \
    if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es; \
    FIELD = v;                                                           \
    return Acad::eOk;                                                    \
  }
PLINE_SETTER(setElevation, elevation_, double)
PLINE_SETTER(setDefaultStartWidth, defStart_, double)
PLINE_SETTER(setDefaultEndWidth, defEnd_, double)
PLINE_SETTER(setThickness, thickness_, double)
#undef PLINE_SETTER

Acad::ErrorStatus AcDb2dPolyline::setNormal(const AcGeVector3d &n) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (n.isZeroLength()) return Acad::eInvalidInput;
  normal_ = n.normal();
  return Acad::eOk;
}

Acad::ErrorStatus AcDb2dPolyline::setLinetypeGenerationOn() {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  plinegen_ = true;
  return Acad::eOk;
}

Acad::ErrorStatus AcDb2dPolyline::setLinetypeGenerationOff() {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  plinegen_ = false;
  return Acad::eOk;
}

// Removes the vertices keep() rejects: resident ones are erased, others deleted.
void AcDb2dPolyline::dropVertices(bool keep(const AcDb2dVertex &)) {
  std::vector<AcDb2dVertex *> kept;
  for (AcDb2dVertex *v : verts_.list) {
    if (keep(*v)) {
      kept.push_back(v);
    } else if (!v->objectId().isNull()) {
      DbAccess::setErased(v, true);
    } else {
      delete v;
    }
  }
  verts_.list = std::move(kept);
}

Acad::ErrorStatus AcDb2dPolyline::curveFit() {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  straighten();
  return fitCurve(*this);
}

Acad::ErrorStatus AcDb2dPolyline::splineFit() {
  AcDbDatabase *db = database() ? database() : workingDatabase();
  int type = db ? db->splinetype() : 6;
  int segs = db ? db->splinesegs() : 8;
  return splineFit(type == 5 ? AcDb::k2dQuadSplinePoly : AcDb::k2dCubicSplinePoly, Adesk::Int16(segs));
}

Acad::ErrorStatus AcDb2dPolyline::splineFit(AcDb::Poly2dType type, Adesk::Int16 segs) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (type != AcDb::k2dQuadSplinePoly && type != AcDb::k2dCubicSplinePoly) return Acad::eInvalidInput;
  straighten();
  return fitSpline(*this, type, std::max(1, std::abs(int(segs))));
}

// Takes the fitting away: fit vertices go, control vertices become plain
// vertices again, and every segment becomes straight.
Acad::ErrorStatus AcDb2dPolyline::straighten() {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  dropVertices([](const AcDb2dVertex &v) { return !isFitVertex(v); });
  for (AcDb2dVertex *v : verts_.list) {
    DbAccess::setVertexType(v, AcDb::k2dVertex);
    v->setBulge(0);
  }
  type_ = AcDb::k2dSimplePoly;
  return Acad::eOk;
}

// The curve runs through the vertices that are not spline control points.
void AcDb2dPolyline::buildPath(CurvePath &path) const {
  std::vector<const AcDb2dVertex *> shown;
  for (const AcDb2dVertex *v : verts_.list)
    if (v->vertexType() != AcDb::k2dSplineCtlVertex) shown.push_back(v);
  size_t n = shown.size();
  if (n == 0) return;
  if (n == 1) {
    path.addLine(vertexPosition(*shown[0]), vertexPosition(*shown[0]), 0, 0);
    return;
  }
  size_t segs = closed_ ? n : n - 1;
  for (size_t i = 0; i < segs; ++i)
    path.addBulge(vertexPosition(*shown[i]), vertexPosition(*shown[(i + 1) % n]), shown[i]->bulge(), normal_,
                  double(i), double(i + 1));
  path.setClosed(closed_);
}

Acad::ErrorStatus AcDb2dPolyline::getGeomExtents(AcDbExtents &ext) const {
  ext = AcDbExtents();
  CurvePath path(*this);
  if (path.empty()) return Acad::eInvalidExtents;
  path.addExtents(ext);
  return Acad::eOk;
}

Acad::ErrorStatus AcDb2dPolyline::explode(AcDbVoidPtrArray &out) const {
  CurvePath path(*this);
  if (path.empty() || (path.segments().size() == 1 && path.length() == 0)) return Acad::eNotApplicable;
  explodePath(path, *this, out);
  return Acad::eOk;
}

Acad::ErrorStatus AcDb2dPolyline::transformBy(const AcGeMatrix3d &xform) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (!xform.isUniScaledOrtho()) return Acad::eNotApplicable;
  AcGeVector3d n = transformedNormal(normal_, xform);
  AcGeMatrix3d toPlane = AcGeMatrix3d::worldToPlane(n);
  for (AcDb2dVertex *v : verts_.list) {
    AcGePoint3d p = vertexPosition(*v).transformBy(xform).transformBy(toPlane);
    elevation_ = p.z;
    v->position_ = p;
    v->startWidth_ *= xform.scale();
    v->endWidth_ *= xform.scale();
  }
  normal_ = n;
  return Acad::eOk;
}

// POLYLINE (2D): 66 vertices follow, 10 (0 0 elevation), 39 thickness, 70
// flags (1 closed, 2 curve fit, 4 spline fit, 128 linetype generation), 40/41
// default widths, 75 curve type (5 quadratic, 6 cubic, 8 none used here),
// 210 normal.
Acad::ErrorStatus AcDb2dPolyline::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbEntity::dxfOutFields(f);
  f->writeString(100, L"AcDb2dPolyline");
  f->writeInt16(66, 1);
  f->writePoint3d(10, AcGePoint3d(0, 0, elevation_));
  if (thickness_ != 0) f->writeDouble(39, thickness_);
  int flags = (closed_ ? 1 : 0) | (type_ == AcDb::k2dFitCurvePoly ? 2 : 0) |
              (type_ == AcDb::k2dQuadSplinePoly || type_ == AcDb::k2dCubicSplinePoly ? 4 : 0) |
              (plinegen_ ? 128 : 0);
  f->writeInt16(70, flags);
  f->writeDouble(40, defStart_);
  f->writeDouble(41, defEnd_);
  f->writeInt16(75, type_ == AcDb::k2dQuadSplinePoly ? 5 : type_ == AcDb::k2dCubicSplinePoly ? 6 : 0);
  f->writeVector3d(210, normal_);
  return Acad::eOk;
}

Acad::ErrorStatus AcDb2dPolyline::dxfInFields(AcDbDxfFiler *f) {
  if (Acad::ErrorStatus es = AcDbEntity::dxfInFields(f); es != Acad::eOk) return es;
  AcGePoint3d p;
  if (f->getPoint(10, p)) elevation_ = p.z;
  f->getDouble(39, thickness_);
  f->getDouble(40, defStart_);
  f->getDouble(41, defEnd_);
  int64_t flags, curve;
  if (f->getInt(70, flags)) {
    closed_ = flags & 1;
    plinegen_ = (flags & 128) != 0;
    bool curved = flags & 2, spline = flags & 4;
    int64_t t = 6;
    f->getInt(75, t);
    type_ = curved   ? AcDb::k2dFitCurvePoly
            : spline ? (t == 5 ? AcDb::k2dQuadSplinePoly : AcDb::k2dCubicSplinePoly)
                     : AcDb::k2dSimplePoly;
  } else if (f->getInt(75, curve) && curve == 0) {
    type_ = AcDb::k2dSimplePoly;
  }
  AcGeVector3d n;
  if (f->getVector(210, n)) {
    if (n.isZeroLength()) return Acad::eInvalidInput;
    normal_ = n.normal();
  }
  return Acad::eOk;
}
