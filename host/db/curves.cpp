// Curves: the AcDbCurve queries over a CurvePath, and lines, circles, arcs.
#include <cmath>

#include "db/db.h"

using namespace vantry::host;

namespace {

const double kTwoPi = 2 * M_PI;

double wrapAngle(double a) {
  a = std::fmod(a, kTwoPi);
  if (a < 0) a += kTwoPi;
  return a >= kTwoPi ? 0.0 : a;
}

// The angle of a world point about a centre in the plane of a normal.
double angleInPlane(const AcGePoint3d &p, const AcGePoint3d &c, const AcGeVector3d &n) {
  AcGeVector3d x = ocsXAxis(n), y = n.normal().crossProduct(x);
  AcGeVector3d d = p - c;
  return wrapAngle(std::atan2(d.dotProduct(y), d.dotProduct(x)));
}

bool uniform(const AcGeMatrix3d &m) {
  return m.isUniScaledOrtho();
}

// The circle part of CIRCLE and ARC: 39 thickness, 10 centre in the plane of
// 210 the normal, 40 radius. A zero normal or a radius not above 0 is refused.
void writeCircleFields(AcDbDxfFiler *f, const AcGePoint3d &center, double radius, const AcGeVector3d &normal,
                       double thickness) {
  f->writeString(100, L"AcDbCircle");
  if (thickness != 0) f->writeDouble(39, thickness);
  f->writePoint3d(10, AcGePoint3d(center).transformBy(AcGeMatrix3d::worldToPlane(normal)));
  f->writeDouble(40, radius);
  f->writeVector3d(210, normal);
}

Acad::ErrorStatus readCircleFields(AcDbDxfFiler *f, AcGePoint3d &center, double &radius, AcGeVector3d &normal,
                                   double &thickness) {
  AcGeVector3d n;
  if (f->getVector(210, n)) {
    if (n.isZeroLength()) return Acad::eInvalidInput;
    normal = n.normal();
  }
  AcGePoint3d c;
  if (f->getPoint(10, c)) center = c.transformBy(AcGeMatrix3d::planeToWorld(normal));
  double r;
  if (f->getDouble(40, r)) {
    if (!(r > 0)) return Acad::eInvalidInput;
    radius = r;
  }
  f->getDouble(39, thickness);
  return Acad::eOk;
}

}  // namespace

// --- AcDbCurve --------------------------------------------------------------------------------

bool AcDbCurve::isClosed() const {
  CurvePath p(*this);
  return !p.empty() && p.segments().front().p0.isEqualTo(p.segments().back().p1);
}

Acad::ErrorStatus AcDbCurve::getStartParam(double &param) const {
  param = CurvePath(*this).startParam();
  return Acad::eOk;
}

Acad::ErrorStatus AcDbCurve::getEndParam(double &param) const {
  param = CurvePath(*this).endParam();
  return Acad::eOk;
}

Acad::ErrorStatus AcDbCurve::getStartPoint(AcGePoint3d &p) const {
  CurvePath path(*this);
  if (path.empty()) return Acad::eInvalidInput;
  p = path.segments().front().p0;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbCurve::getEndPoint(AcGePoint3d &p) const {
  CurvePath path(*this);
  if (path.empty()) return Acad::eInvalidInput;
  p = path.segments().back().p1;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbCurve::getPointAtParam(double param, AcGePoint3d &p) const {
  return CurvePath(*this).pointAtParam(param, p);
}

Acad::ErrorStatus AcDbCurve::getParamAtPoint(const AcGePoint3d &p, double &param) const {
  return CurvePath(*this).paramAtPoint(p, param);
}

Acad::ErrorStatus AcDbCurve::getDistAtParam(double param, double &dist) const {
  return CurvePath(*this).distAtParam(param, dist);
}

Acad::ErrorStatus AcDbCurve::getParamAtDist(double dist, double &param) const {
  return CurvePath(*this).paramAtDist(dist, param);
}

Acad::ErrorStatus AcDbCurve::getDistAtPoint(const AcGePoint3d &p, double &dist) const {
  CurvePath path(*this);
  double param;
  if (Acad::ErrorStatus es = path.paramAtPoint(p, param); es != Acad::eOk) return es;
  return path.distAtParam(param, dist);
}

Acad::ErrorStatus AcDbCurve::getPointAtDist(double dist, AcGePoint3d &p) const {
  CurvePath path(*this);
  double param;
  if (Acad::ErrorStatus es = path.paramAtDist(dist, param); es != Acad::eOk) return es;
  return path.pointAtParam(param, p);
}

Acad::ErrorStatus AcDbCurve::getFirstDeriv(double param, AcGeVector3d &deriv) const {
  return CurvePath(*this).derivAtParam(param, deriv);
}

Acad::ErrorStatus AcDbCurve::getClosestPointTo(const AcGePoint3d &given, AcGePoint3d &onCurve,
                                               bool extend) const {
  return CurvePath(*this).closestPoint(given, nullptr, extend, onCurve);
}

Acad::ErrorStatus AcDbCurve::getClosestPointTo(const AcGePoint3d &given, const AcGeVector3d &direction,
                                               AcGePoint3d &onCurve, bool extend) const {
  return CurvePath(*this).closestPoint(given, &direction, extend, onCurve);
}

Acad::ErrorStatus AcDbCurve::getArea(double &area) const {
  return CurvePath(*this).area(area);
}

// --- Lines -------------------------------------------------------------------------------------

Acad::ErrorStatus AcDbLine::setStartPoint(const AcGePoint3d &p) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  start_ = p;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbLine::setEndPoint(const AcGePoint3d &p) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  end_ = p;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbLine::setThickness(double t) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  thickness_ = t;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbLine::setNormal(const AcGeVector3d &n) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (n.isZeroLength()) return Acad::eInvalidInput;
  normal_ = n.normal();
  return Acad::eOk;
}

// The parameter of a line is the distance from its start.
void AcDbLine::buildPath(CurvePath &path) const {
  path.addLine(start_, end_, 0.0, start_.distanceTo(end_));
}

Acad::ErrorStatus AcDbLine::getGeomExtents(AcDbExtents &ext) const {
  ext = AcDbExtents();
  ext.addPoint(start_);
  ext.addPoint(end_);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbLine::transformBy(const AcGeMatrix3d &xform) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  start_.transformBy(xform);
  end_.transformBy(xform);
  normal_ = transformedNormal(normal_, xform);
  return Acad::eOk;
}

// LINE: 39 thickness, 10 start, 11 end, 210 normal.
Acad::ErrorStatus AcDbLine::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbEntity::dxfOutFields(f);
  f->writeString(100, L"AcDbLine");
  if (thickness_ != 0) f->writeDouble(39, thickness_);
  f->writePoint3d(10, start_);
  f->writePoint3d(11, end_);
  f->writeVector3d(210, normal_);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbLine::dxfInFields(AcDbDxfFiler *f) {
  if (Acad::ErrorStatus es = AcDbEntity::dxfInFields(f); es != Acad::eOk) return es;
  f->getPoint(10, start_);
  f->getPoint(11, end_);
  f->getDouble(39, thickness_);
  AcGeVector3d n;
  if (f->getVector(210, n)) {
    if (n.isZeroLength()) return Acad::eInvalidInput;
    normal_ = n.normal();
  }
  return Acad::eOk;
}

// --- Circles ----------------------------------------------------------------------------------

AcDbCircle::AcDbCircle(const AcGePoint3d &center, const AcGeVector3d &normal, double radius)
    : center_(center), normal_(normal.normal()), radius_(radius) {}

Acad::ErrorStatus AcDbCircle::setCenter(const AcGePoint3d &c) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  center_ = c;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbCircle::setRadius(double r) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (!(r > 0)) return Acad::eInvalidInput;
  radius_ = r;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbCircle::setNormal(const AcGeVector3d &n) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (n.isZeroLength()) return Acad::eInvalidInput;
  normal_ = n.normal();
  return Acad::eOk;
}

Acad::ErrorStatus AcDbCircle::setThickness(double t) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  thickness_ = t;
  return Acad::eOk;
}

// From the object coordinate system's X axis round, parameter 0 to 2pi.
void AcDbCircle::buildPath(CurvePath &path) const {
  AcGeVector3d x = ocsXAxis(normal_), y = normal_.crossProduct(x);
  path.addArc(center_, x, y, radius_, 0, kTwoPi, 0, kTwoPi);
  path.setClosed(true);
}

Acad::ErrorStatus AcDbCircle::getGeomExtents(AcDbExtents &ext) const {
  ext = AcDbExtents();
  CurvePath(*this).addExtents(ext);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbCircle::transformBy(const AcGeMatrix3d &xform) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (!uniform(xform)) return Acad::eNotApplicable;
  center_.transformBy(xform);
  radius_ *= xform.scale();
  normal_ = transformedNormal(normal_, xform);
  return Acad::eOk;
}

// CIRCLE: 39 thickness, 10 centre (object coordinates), 40 radius, 210 normal.
Acad::ErrorStatus AcDbCircle::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbEntity::dxfOutFields(f);
  writeCircleFields(f, center_, radius_, normal_, thickness_);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbCircle::dxfInFields(AcDbDxfFiler *f) {
  if (Acad::ErrorStatus es = AcDbEntity::dxfInFields(f); es != Acad::eOk) return es;
  if (Acad::ErrorStatus es = readCircleFields(f, center_, radius_, normal_, thickness_); es != Acad::eOk)
    return es;
  return Acad::eOk;
}

// --- Arcs ----------------------------------------------------------------------------------------

AcDbArc::AcDbArc(const AcGePoint3d &center, double radius, double startAngle, double endAngle)
    : center_(center), radius_(radius), start_(wrapAngle(startAngle)), end_(wrapAngle(endAngle)) {}

AcDbArc::AcDbArc(const AcGePoint3d &center, const AcGeVector3d &normal, double radius, double startAngle,
                 double endAngle)
    : center_(center),
      normal_(normal.normal()),
      radius_(radius),
      start_(wrapAngle(startAngle)),
      end_(wrapAngle(endAngle)) {}

Acad::ErrorStatus AcDbArc::setCenter(const AcGePoint3d &c) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  center_ = c;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbArc::setRadius(double r) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (!(r > 0)) return Acad::eInvalidInput;
  radius_ = r;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbArc::setStartAngle(double a) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  start_ = wrapAngle(a);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbArc::setEndAngle(double a) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  end_ = wrapAngle(a);
  return Acad::eOk;
}

double AcDbArc::totalAngle() const {
  return wrapAngle(end_ - start_);
}

Acad::ErrorStatus AcDbArc::setNormal(const AcGeVector3d &n) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (n.isZeroLength()) return Acad::eInvalidInput;
  normal_ = n.normal();
  return Acad::eOk;
}

Acad::ErrorStatus AcDbArc::setThickness(double t) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  thickness_ = t;
  return Acad::eOk;
}

// The parameter is the angle: startAngle to startAngle + totalAngle.
void AcDbArc::buildPath(CurvePath &path) const {
  AcGeVector3d x = ocsXAxis(normal_), y = normal_.crossProduct(x);
  double sweep = totalAngle();
  path.addArc(center_, x, y, radius_, start_, sweep, start_, start_ + sweep);
}

Acad::ErrorStatus AcDbArc::getGeomExtents(AcDbExtents &ext) const {
  ext = AcDbExtents();
  CurvePath(*this).addExtents(ext);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbArc::transformBy(const AcGeMatrix3d &xform) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (!uniform(xform)) return Acad::eNotApplicable;
  CurvePath path(*this);
  AcGePoint3d s = path.segments().front().p0, e = path.segments().front().p1;
  s.transformBy(xform);
  e.transformBy(xform);
  center_.transformBy(xform);
  radius_ *= xform.scale();
  normal_ = transformedNormal(normal_, xform);
  start_ = angleInPlane(s, center_, normal_);
  end_ = angleInPlane(e, center_, normal_);
  return Acad::eOk;
}

// ARC: the circle's fields, then 50 start and 51 end angle.
Acad::ErrorStatus AcDbArc::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbEntity::dxfOutFields(f);
  writeCircleFields(f, center_, radius_, normal_, thickness_);
  f->writeString(100, L"AcDbArc");
  f->writeAngle(50, start_);
  f->writeAngle(51, end_);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbArc::dxfInFields(AcDbDxfFiler *f) {
  if (Acad::ErrorStatus es = AcDbEntity::dxfInFields(f); es != Acad::eOk) return es;
  if (Acad::ErrorStatus es = readCircleFields(f, center_, radius_, normal_, thickness_); es != Acad::eOk)
    return es;
  double v;
  if (f->getAngle(50, v)) start_ = wrapAngle(v);
  if (f->getAngle(51, v)) end_ = wrapAngle(v);
  return Acad::eOk;
}
