// Points, solids and traces, ellipses, splines, construction lines and rays,
// hatches and dimensions (host/acdb_shapes.h).
#include <algorithm>
#include <cmath>

#include "db/db.h"

using namespace vantry::host;

namespace {

const double kTwoPi = 2 * M_PI;

double wrapAngle(double a) {
  a = std::fmod(a, kTwoPi);
  return a < 0 ? a + kTwoPi : a;
}

Acad::ErrorStatus readNormal(AcDbDxfFiler *f, AcGeVector3d &normal) {
  AcGeVector3d n;
  if (f->getVector(210, n)) {
    if (n.isZeroLength()) return Acad::eInvalidInput;
    normal = n.normal();
  }
  return Acad::eOk;
}

// Every group of a code, in order.
template <class Fn>
void each(const AcDbDxfFiler *f, int code, Fn fn) {
  for (const auto &it : f->items())
    if (it.code == code) fn(it);
}

}  // namespace

#define CHECKED_SET(CLASS, NAME, TYPE, FIELD, CHECK)                     \
  Acad::ErrorStatus CLASS::NAME(TYPE v) {                                \
    if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es; \
    if (!(CHECK)) return Acad::eInvalidInput;                            \
    FIELD = v;                                                           \
    return Acad::eOk;                                                    \
  }

// --- Points ------------------------------------------------------------------------------------

CHECKED_SET(AcDbPoint, setPosition, const AcGePoint3d &, position_, true)
CHECKED_SET(AcDbPoint, setThickness, double, thickness_, std::isfinite(v))
CHECKED_SET(AcDbPoint, setEcsRotation, double, rotation_, std::isfinite(v))
CHECKED_SET(AcDbPoint, setNormal, const AcGeVector3d &, normal_, !v.isZeroLength())

Acad::ErrorStatus AcDbPoint::getGeomExtents(AcDbExtents &ext) const {
  ext = AcDbExtents();
  ext.addPoint(position_);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbPoint::transformBy(const AcGeMatrix3d &xform) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  position_.transformBy(xform);
  if (xform.isUniScaledOrtho()) normal_ = transformedNormal(normal_, xform);
  return Acad::eOk;
}

// POINT: 10 position (world), 39 thickness, 210 normal, 50 angle of the X axis.
Acad::ErrorStatus AcDbPoint::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbEntity::dxfOutFields(f);
  f->writeString(100, L"AcDbPoint");
  f->writePoint3d(10, position_);
  if (thickness_ != 0) f->writeDouble(39, thickness_);
  f->writeVector3d(210, normal_);
  if (rotation_ != 0) f->writeAngle(50, rotation_);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbPoint::dxfInFields(AcDbDxfFiler *f) {
  if (Acad::ErrorStatus es = AcDbEntity::dxfInFields(f); es != Acad::eOk) return es;
  if (Acad::ErrorStatus es = readNormal(f, normal_); es != Acad::eOk) return es;
  f->getPoint(10, position_);
  f->getDouble(39, thickness_);
  f->getAngle(50, rotation_);
  return Acad::eOk;
}

// --- Solids and traces ---------------------------------------------------------------------------

AcDbSolid::AcDbSolid(const AcGePoint3d &p0, const AcGePoint3d &p1, const AcGePoint3d &p2, const AcGePoint3d &p3)
    : pts_{p0, p1, p2, p3} {}
AcDbSolid::AcDbSolid(const AcGePoint3d &p0, const AcGePoint3d &p1, const AcGePoint3d &p2) : pts_{p0, p1, p2, p2} {}

Acad::ErrorStatus AcDbSolid::getPointAt(Adesk::UInt16 i, AcGePoint3d &p) const {
  if (i > 3) return Acad::eInvalidIndex;
  p = pts_[i];
  return Acad::eOk;
}

Acad::ErrorStatus AcDbSolid::setPointAt(Adesk::UInt16 i, const AcGePoint3d &p) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (i > 3) return Acad::eInvalidIndex;
  pts_[i] = p;
  return Acad::eOk;
}

CHECKED_SET(AcDbSolid, setThickness, double, thickness_, std::isfinite(v))
CHECKED_SET(AcDbSolid, setNormal, const AcGeVector3d &, normal_, !v.isZeroLength())

Acad::ErrorStatus AcDbSolid::getGeomExtents(AcDbExtents &ext) const {
  ext = AcDbExtents();
  for (const AcGePoint3d &p : pts_) ext.addPoint(p);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbSolid::transformBy(const AcGeMatrix3d &xform) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (!xform.isUniScaledOrtho()) return Acad::eNotApplicable;
  for (AcGePoint3d &p : pts_) p.transformBy(xform);
  normal_ = transformedNormal(normal_, xform);
  return Acad::eOk;
}

// SOLID and TRACE: 100 AcDbTrace, 10 11 12 13 corners (object coordinates),
// 39 thickness, 210 normal.
Acad::ErrorStatus AcDbSolid::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbEntity::dxfOutFields(f);
  f->writeString(100, L"AcDbTrace");
  AcGeMatrix3d toPlane = AcGeMatrix3d::worldToPlane(normal_);
  for (int i = 0; i < 4; ++i) f->writePoint3d(10 + i, AcGePoint3d(pts_[i]).transformBy(toPlane));
  if (thickness_ != 0) f->writeDouble(39, thickness_);
  f->writeVector3d(210, normal_);
  return Acad::eOk;
}

// A fourth corner left out repeats the third.
Acad::ErrorStatus AcDbSolid::dxfInFields(AcDbDxfFiler *f) {
  if (Acad::ErrorStatus es = AcDbEntity::dxfInFields(f); es != Acad::eOk) return es;
  if (Acad::ErrorStatus es = readNormal(f, normal_); es != Acad::eOk) return es;
  AcGeMatrix3d toWorld = AcGeMatrix3d::planeToWorld(normal_);
  AcGePoint3d p;
  for (int i = 0; i < 4; ++i)
    if (f->getPoint(10 + i, p)) pts_[i] = p.transformBy(toWorld);
  if (!f->find(13) && f->find(12)) pts_[3] = pts_[2];
  f->getDouble(39, thickness_);
  return Acad::eOk;
}

// --- Ellipses ---------------------------------------------------------------------------------

AcDbEllipse::AcDbEllipse(const AcGePoint3d &center, const AcGeVector3d &unitNormal, const AcGeVector3d &majorAxis,
                         double radiusRatio, double startAngle, double endAngle) {
  set(center, unitNormal, majorAxis, radiusRatio, startAngle, endAngle);
}

Acad::ErrorStatus AcDbEllipse::set(const AcGePoint3d &center, const AcGeVector3d &unitNormal,
                                   const AcGeVector3d &majorAxis, double ratio, double start, double end) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (unitNormal.isZeroLength() || majorAxis.isZeroLength() || !(ratio > 0 && ratio <= 1) ||
      std::fabs(unitNormal.normal().dotProduct(majorAxis.normal())) > 1e-6 || !std::isfinite(start) ||
      !std::isfinite(end))
    return Acad::eInvalidInput;
  center_ = center, normal_ = unitNormal.normal(), major_ = majorAxis, ratio_ = ratio;
  start_ = wrapAngle(start);
  end_ = wrapAngle(end);
  if (end_ <= start_ + 1e-12) end_ += kTwoPi;
  return Acad::eOk;
}

AcGeVector3d AcDbEllipse::minorAxis() const {
  return normal_.crossProduct(major_) * ratio_;
}

CHECKED_SET(AcDbEllipse, setCenter, const AcGePoint3d &, center_, true)
CHECKED_SET(AcDbEllipse, setRadiusRatio, double, ratio_, v > 0 && v <= 1)

Acad::ErrorStatus AcDbEllipse::setStartParam(double p) {
  return set(center_, normal_, major_, ratio_, p, end_);
}
Acad::ErrorStatus AcDbEllipse::setEndParam(double p) {
  return set(center_, normal_, major_, ratio_, start_, p);
}

bool AcDbEllipse::isClosed() const {
  return end_ - start_ >= kTwoPi - 1e-9;
}

// Pieces of 0.25 degrees of the parameter: point(t) = c + cos t major + sin t minor.
void AcDbEllipse::buildPath(CurvePath &path) const {
  AcGeVector3d minor = minorAxis();
  int pieces = std::max(1, int(std::ceil((end_ - start_) / (M_PI / 720))));
  auto at = [&](double t) { return center_ + major_ * std::cos(t) + minor * std::sin(t); };
  for (int i = 0; i < pieces; ++i) {
    double t0 = start_ + (end_ - start_) * i / pieces, t1 = start_ + (end_ - start_) * (i + 1) / pieces;
    path.addLine(at(t0), at(t1), t0, t1);
  }
  path.setClosed(isClosed());
}

Acad::ErrorStatus AcDbEllipse::getGeomExtents(AcDbExtents &ext) const {
  ext = AcDbExtents();
  CurvePath(*this).addExtents(ext);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbEllipse::transformBy(const AcGeMatrix3d &xform) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (!xform.isUniScaledOrtho()) return Acad::eNotApplicable;
  AcGeVector3d major = AcGeVector3d(major_).transformBy(xform);
  AcGeVector3d normal = transformedNormal(normal_, xform);
  center_.transformBy(xform);
  major_ = major;
  normal_ = normal;
  return Acad::eOk;
}

// ELLIPSE: 10 centre and 11 major axis end (world, relative to the centre),
// 210 normal, 40 ratio, 41 and 42 start and end parameters.
Acad::ErrorStatus AcDbEllipse::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbEntity::dxfOutFields(f);
  f->writeString(100, L"AcDbEllipse");
  f->writePoint3d(10, center_);
  f->writeVector3d(11, major_);
  f->writeVector3d(210, normal_);
  f->writeDouble(40, ratio_);
  f->writeDouble(41, start_);
  f->writeDouble(42, end_);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbEllipse::dxfInFields(AcDbDxfFiler *f) {
  if (Acad::ErrorStatus es = AcDbEntity::dxfInFields(f); es != Acad::eOk) return es;
  AcGePoint3d c = center_;
  AcGeVector3d n = normal_, major = major_;
  double ratio = ratio_, s = start_, e = end_;
  f->getPoint(10, c);
  f->getVector(11, major);
  f->getVector(210, n);
  f->getDouble(40, ratio);
  f->getDouble(41, s);
  f->getDouble(42, e);
  // A ratio just above 1 from rounding is the circle it means.
  if (ratio > 1 && ratio < 1 + 1e-9) ratio = 1;
  if (n.isZeroLength() || major.isZeroLength() || !(ratio > 0 && ratio <= 1)) return Acad::eInvalidInput;
  // The axis is taken into the plane of the normal (files round it).
  n = n.normal();
  major = major - n * major.dotProduct(n);
  if (major.isZeroLength()) return Acad::eInvalidInput;
  center_ = c, normal_ = n, major_ = major, ratio_ = ratio;
  start_ = wrapAngle(s);
  end_ = wrapAngle(e);
  if (end_ <= start_ + 1e-12) end_ += kTwoPi;
  return Acad::eOk;
}

// --- Splines ------------------------------------------------------------------------------------

Acad::ErrorStatus AcDbSpline::getControlPointAt(int i, AcGePoint3d &p) const {
  if (i < 0 || i >= int(control_.size())) return Acad::eInvalidIndex;
  p = control_[size_t(i)];
  return Acad::eOk;
}

Acad::ErrorStatus AcDbSpline::setControlPointAt(int i, const AcGePoint3d &p) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (i < 0 || i >= int(control_.size())) return Acad::eInvalidIndex;
  control_[size_t(i)] = p;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbSpline::getFitPointAt(int i, AcGePoint3d &p) const {
  if (i < 0 || i >= int(fit_.size())) return Acad::eInvalidIndex;
  p = fit_[size_t(i)];
  return Acad::eOk;
}

double AcDbSpline::weightAt(int i) const {
  return i >= 0 && i < int(weights_.size()) ? weights_[size_t(i)] : 1.0;
}

Acad::ErrorStatus AcDbSpline::setNurbsData(int degree, bool rational, bool closed, bool periodic,
                                           const std::vector<AcGePoint3d> &ctrl, const std::vector<double> &knots,
                                           const std::vector<double> &weights) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (degree < 1 || degree > 25 || ctrl.size() < size_t(degree) + 1 || knots.size() != ctrl.size() + degree + 1 ||
      (rational && weights.size() != ctrl.size()) ||
      std::any_of(weights.begin(), weights.end(), [](double w) { return !(w > 0); }) ||
      !std::is_sorted(knots.begin(), knots.end()) || !(knots.back() > knots.front()))
    return Acad::eInvalidInput;
  degree_ = degree;
  control_ = ctrl;
  knots_ = knots;
  weights_ = rational ? weights : std::vector<double>();
  flags_ = (closed ? 1 : 0) | (periodic ? 2 : 0) | (rational ? 4 : 0) | 8;
  fit_.clear();
  return Acad::eOk;
}

// De Boor's algorithm on homogeneous points.
AcGePoint3d AcDbSpline::evaluate(double u) const {
  int p = degree_, n = int(control_.size());
  int k = p;
  while (k < n - 1 && u >= knots_[size_t(k + 1)]) ++k;
  std::vector<double> d(size_t(p + 1) * 4);
  for (int j = 0; j <= p; ++j) {
    const AcGePoint3d &c = control_[size_t(k - p + j)];
    double w = weightAt(k - p + j);
    d[size_t(j) * 4] = c.x * w, d[size_t(j) * 4 + 1] = c.y * w, d[size_t(j) * 4 + 2] = c.z * w, d[size_t(j) * 4 + 3] = w;
  }
  for (int r = 1; r <= p; ++r)
    for (int j = p; j >= r; --j) {
      double lo = knots_[size_t(j + k - p)], hi = knots_[size_t(j + 1 + k - r)];
      double a = hi > lo ? (u - lo) / (hi - lo) : 0;
      for (int c = 0; c < 4; ++c) d[size_t(j) * 4 + c] = (1 - a) * d[size_t(j - 1) * 4 + c] + a * d[size_t(j) * 4 + c];
    }
  double w = d[size_t(p) * 4 + 3];
  if (w == 0) w = 1;
  return AcGePoint3d(d[size_t(p) * 4] / w, d[size_t(p) * 4 + 1] / w, d[size_t(p) * 4 + 2] / w);
}

// 32 pieces per knot span, the parameter running over the knot values.
void AcDbSpline::buildPath(CurvePath &path) const {
  if (control_.size() < size_t(degree_) + 1 || knots_.size() != control_.size() + degree_ + 1) {
    // Fit points only: the polygon through them.
    for (size_t i = 0; i + 1 < fit_.size(); ++i) path.addLine(fit_[i], fit_[i + 1], double(i), double(i + 1));
    return;
  }
  double u0 = knots_[size_t(degree_)], u1 = knots_[control_.size()];
  for (size_t s = size_t(degree_); s < control_.size(); ++s) {
    double a = knots_[s], b = knots_[s + 1];
    if (!(b > a)) continue;
    for (int i = 0; i < 32; ++i) {
      double t0 = a + (b - a) * i / 32, t1 = a + (b - a) * (i + 1) / 32;
      path.addLine(evaluate(t0), evaluate(std::min(t1, u1)), t0, t1);
    }
  }
  path.setEmptyParams(u0, u1);
  path.setClosed((flags_ & 1) != 0);
}

Acad::ErrorStatus AcDbSpline::getGeomExtents(AcDbExtents &ext) const {
  ext = AcDbExtents();
  CurvePath(*this).addExtents(ext);
  for (const AcGePoint3d &p : fit_) ext.addPoint(p);
  return ext.isEmpty() ? Acad::eInvalidExtents : Acad::eOk;
}

Acad::ErrorStatus AcDbSpline::transformBy(const AcGeMatrix3d &xform) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  for (AcGePoint3d &p : control_) p.transformBy(xform);
  for (AcGePoint3d &p : fit_) p.transformBy(xform);
  startTangent_.transformBy(xform);
  endTangent_.transformBy(xform);
  if (hasNormal_ && xform.isUniScaledOrtho()) normal_ = transformedNormal(normal_, xform);
  return Acad::eOk;
}

// SPLINE: 210 normal (planar splines), 70 flags, 71 degree, 72 73 74 counts
// of knots, control points and fit points, 42 43 44 tolerances, 12 13 end
// tangents, 40 each knot, 41 each weight, 10 each control point, 11 each
// fit point.
Acad::ErrorStatus AcDbSpline::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbEntity::dxfOutFields(f);
  f->writeString(100, L"AcDbSpline");
  if (hasNormal_) f->writeVector3d(210, normal_);
  f->writeInt16(70, flags_);
  f->writeInt16(71, degree_);
  f->writeInt16(72, int(knots_.size()));
  f->writeInt16(73, int(control_.size()));
  f->writeInt16(74, int(fit_.size()));
  f->writeDouble(42, knotTol_);
  f->writeDouble(43, controlTol_);
  if (!fit_.empty()) f->writeDouble(44, fitTol_);
  if (hasStartTangent_) f->writeVector3d(12, startTangent_);
  if (hasEndTangent_) f->writeVector3d(13, endTangent_);
  for (double k : knots_) f->writeDouble(40, k);
  for (double w : weights_) f->writeDouble(41, w);
  for (const AcGePoint3d &p : control_) f->writePoint3d(10, p);
  for (const AcGePoint3d &p : fit_) f->writePoint3d(11, p);
  return Acad::eOk;
}

// The counts must agree with what follows; a spline with neither control
// points (degree + 1 at least) nor two fit points is refused.
Acad::ErrorStatus AcDbSpline::dxfInFields(AcDbDxfFiler *f) {
  if (Acad::ErrorStatus es = AcDbEntity::dxfInFields(f); es != Acad::eOk) return es;
  int64_t flags = flags_, degree = degree_;
  f->getInt(70, flags);
  f->getInt(71, degree);
  std::vector<double> knots, weights;
  std::vector<AcGePoint3d> ctrl, fit;
  each(f, 40, [&](const auto &it) { knots.push_back(it.real[0]); });
  each(f, 41, [&](const auto &it) { weights.push_back(it.real[0]); });
  each(f, 10, [&](const auto &it) { ctrl.emplace_back(it.real[0], it.real[1], it.real[2]); });
  each(f, 11, [&](const auto &it) { fit.emplace_back(it.real[0], it.real[1], it.real[2]); });
  if (degree < 1 || degree > 25) return Acad::eInvalidInput;
  bool nurbs = !ctrl.empty();
  if (nurbs && (ctrl.size() < size_t(degree) + 1 || knots.size() != ctrl.size() + size_t(degree) + 1 ||
                !std::is_sorted(knots.begin(), knots.end()) || !(knots.back() > knots.front())))
    return Acad::eInvalidInput;
  if (!nurbs && fit.size() < 2) return Acad::eInvalidInput;
  if (!weights.empty() && (weights.size() != ctrl.size() ||
                           std::any_of(weights.begin(), weights.end(), [](double w) { return !(w > 0); })))
    return Acad::eInvalidInput;
  int64_t n;
  if ((f->getInt(72, n) && n != int64_t(knots.size())) || (f->getInt(73, n) && n != int64_t(ctrl.size())) ||
      (f->getInt(74, n) && n != int64_t(fit.size())))
    return Acad::eInvalidInput;
  flags_ = int(flags), degree_ = int(degree);
  knots_ = std::move(knots), weights_ = std::move(weights), control_ = std::move(ctrl), fit_ = std::move(fit);
  f->getDouble(42, knotTol_);
  f->getDouble(43, controlTol_);
  f->getDouble(44, fitTol_);
  hasStartTangent_ = f->getVector(12, startTangent_);
  hasEndTangent_ = f->getVector(13, endTangent_);
  hasNormal_ = f->getVector(210, normal_);
  return Acad::eOk;
}

// --- Construction lines and rays -----------------------------------------------------------------

CHECKED_SET(AcDbXline, setBasePoint, const AcGePoint3d &, base_, true)

Acad::ErrorStatus AcDbXline::setUnitDir(const AcGeVector3d &d) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (d.isZeroLength()) return Acad::eInvalidInput;
  dir_ = d.normal();
  return Acad::eOk;
}

Acad::ErrorStatus AcDbXline::transformBy(const AcGeMatrix3d &xform) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  AcGeVector3d d = AcGeVector3d(dir_).transformBy(xform);
  if (d.isZeroLength()) return Acad::eNotApplicable;
  base_.transformBy(xform);
  dir_ = d.normal();
  return Acad::eOk;
}

// XLINE and RAY: 10 base point, 11 unit direction (world).
Acad::ErrorStatus AcDbXline::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbEntity::dxfOutFields(f);
  f->writeString(100, marker_);
  f->writePoint3d(10, base_);
  f->writeVector3d(11, dir_);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbXline::dxfInFields(AcDbDxfFiler *f) {
  if (Acad::ErrorStatus es = AcDbEntity::dxfInFields(f); es != Acad::eOk) return es;
  AcGeVector3d d;
  if (f->getVector(11, d)) {
    if (d.isZeroLength()) return Acad::eInvalidInput;
    dir_ = d.normal();
  }
  f->getPoint(10, base_);
  return Acad::eOk;
}

// --- Entities kept by their kind's groups ----------------------------------------------------------

const AcDbDxfFiler::Item *AcDbGroupedEntity::group(int code) const {
  for (const auto &it : groups_)
    if (it.code == code) return &it;
  return nullptr;
}

AcDbDxfFiler::Item *AcDbGroupedEntity::group(int code) {
  for (auto &it : groups_)
    if (it.code == code) return &it;
  return nullptr;
}

Acad::ErrorStatus AcDbGroupedEntity::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbEntity::dxfOutFields(f);
  for (const auto &it : groups_) f->items().push_back(it);
  return Acad::eOk;
}

// The kind's part starts at its marker; a list without it (entmake's, an
// old file's) gives every group that is not the entity part's. A part that
// does not check out leaves the entity as it was.
Acad::ErrorStatus AcDbGroupedEntity::dxfInFields(AcDbDxfFiler *f) {
  if (Acad::ErrorStatus es = AcDbEntity::dxfInFields(f); es != Acad::eOk) return es;
  const auto &its = f->items();
  auto marker = std::find_if(its.begin(), its.end(),
                             [&](const AcDbDxfFiler::Item &it) { return it.code == 100 && it.text == marker_; });
  std::vector<AcDbDxfFiler::Item> groups;
  if (marker != its.end()) {
    groups.assign(marker, its.end());
  } else {
    for (const auto &it : its) {
      switch (it.code) {
        case -1: case 0: case 5: case 6: case 8: case 48: case 60: case 62: case 67: case 100: case 330:
        case 370: case 410: case 420: case 440:
          continue;
        default:
          groups.push_back(it);
      }
    }
    // A dimension gets the markers of its parts, so that its kind's points
    // sit under their own marker when it is written.
    if (std::wstring_view(marker_) == L"AcDbDimension")
      addKindMarkers(L"DIMENSION", groups);
    else
      groups.insert(groups.begin(), AcDbDxfFiler::Item{100, 0, {0, 0, 0}, 0, marker_, {}});
  }
  std::swap(groups, groups_);
  if (Acad::ErrorStatus es = checkGroups(); es != Acad::eOk) {
    std::swap(groups, groups_);
    return es;
  }
  return Acad::eOk;
}

// --- Hatches --------------------------------------------------------------------------------------

AcDbHatch::AcDbHatch() : AcDbGroupedEntity(L"AcDbHatch") {
  AcDbDxfFiler f;
  f.writeString(100, L"AcDbHatch");
  f.writePoint3d(10, AcGePoint3d::kOrigin);
  f.writeVector3d(210, AcGeVector3d::kZAxis);
  f.writeString(2, L"SOLID");
  f.writeInt16(70, 1);
  f.writeInt16(71, 0);
  f.writeInt32(91, 0);
  f.writeInt16(75, 1);
  f.writeInt16(76, 1);
  f.writeInt32(98, 0);
  groups_ = std::move(f.items());
}

const ACHAR *AcDbHatch::patternName() const {
  const auto *it = group(2);
  return it ? it->text.c_str() : L"";
}

bool AcDbHatch::isSolidFill() const {
  const auto *it = group(70);
  return it && (it->integer & 1);
}

int AcDbHatch::numLoops() const {
  const auto *it = group(91);
  return it ? int(it->integer) : 0;
}

AcGeVector3d AcDbHatch::normal() const {
  const auto *it = group(210);
  AcGeVector3d n = it ? AcGeVector3d(it->real[0], it->real[1], it->real[2]) : AcGeVector3d::kZAxis;
  return n.isZeroLength() ? AcGeVector3d::kZAxis : n.normal();
}

double AcDbHatch::elevation() const {
  const auto *it = group(10);
  return it ? it->real[2] : 0;
}

// Loops as the groups give them: after 91, each loop starts with 92 (its
// type: 2 a polyline with 72 has-bulges, 73 closed, 93 count, 10 [42]
// vertices; else 93 edges, each 72 its kind: 1 line 10 11, 2 arc 10 40 50
// 51 73, 3 elliptic arc 10 11 40 50 51 73, 4 spline, drawn through its
// control points 10), then 97 and its source references.
std::vector<std::vector<AcGePoint3d>> AcDbHatch::loopPolygons() const {
  std::vector<std::vector<AcGePoint3d>> loops;
  AcGeMatrix3d toWorld = AcGeMatrix3d::planeToWorld(normal());
  double z = elevation();
  auto at = [&](double x, double y) { return AcGePoint3d(x, y, z).transformBy(toWorld); };
  const auto &its = groups_;
  size_t i = 0;
  while (i < its.size() && its[i].code != 91) ++i;
  if (i == its.size()) return loops;
  int64_t count = its[i++].integer;
  auto next = [&](int code) -> const AcDbDxfFiler::Item * { return i < its.size() && its[i].code == code ? &its[i++] : nullptr; };
  auto arc = [&](std::vector<AcGePoint3d> &loop, double cx, double cy, AcGeVector2d major, double ratio, double a0,
                 double a1, bool ccw) {
    if (!std::isfinite(a0) || !std::isfinite(a1)) return;
    double sweep = std::fmod(ccw ? a1 - a0 : a0 - a1, kTwoPi);
    if (sweep <= 0) sweep += kTwoPi;
    int pieces = std::clamp(int(std::ceil(sweep / (M_PI / 90))), 1, 720);
    AcGeVector2d minor(-major.y * ratio, major.x * ratio);
    for (int k = 0; k <= pieces; ++k) {
      double t = a0 + (ccw ? sweep : -sweep) * k / pieces;
      loop.push_back(at(cx + major.x * std::cos(t) + minor.x * std::sin(t), cy + major.y * std::cos(t) + minor.y * std::sin(t)));
    }
  };
  for (int64_t l = 0; l < count && l < 100000; ++l) {
    while (i < its.size() && its[i].code != 92) ++i;
    const auto *type = next(92);
    if (!type) break;
    std::vector<AcGePoint3d> loop;
    if (type->integer & 2) {
      const auto *bulged = next(72);
      next(73);
      const auto *n = next(93);
      std::vector<std::pair<AcGePoint2d, double>> vs;
      for (int64_t k = 0; n && k < n->integer && k < 100000; ++k) {
        const auto *v = next(10);
        if (!v) break;
        const auto *b = bulged && bulged->integer ? next(42) : nullptr;
        vs.push_back({AcGePoint2d(v->real[0], v->real[1]), b ? b->real[0] : 0});
      }
      for (size_t k = 0; k < vs.size(); ++k) {
        const auto &[p0, bulge] = vs[k];
        const AcGePoint2d &p1 = vs[(k + 1) % vs.size()].first;
        double chord = p0.distanceTo(p1);
        if (std::fabs(bulge) < 1e-12 || !std::isfinite(bulge) || !(chord > 1e-12)) {
          loop.push_back(at(p0.x, p0.y));
          continue;
        }
        double theta = 4 * std::atan(bulge), r = chord / (2 * std::sin(std::fabs(theta) / 2));
        AcGeVector2d d = (p1 - p0) * (1 / chord), left(-d.y, d.x);
        double h = r * std::cos(theta / 2) * (bulge > 0 ? 1 : -1);
        AcGePoint2d c = AcGePoint2d((p0.x + p1.x) / 2, (p0.y + p1.y) / 2) + left * h;
        double a0 = std::atan2(p0.y - c.y, p0.x - c.x), a1 = a0 + theta;
        arc(loop, c.x, c.y, AcGeVector2d(r, 0), 1, a0, a1, bulge > 0);
        loop.pop_back();
      }
    } else {
      const auto *n = next(93);
      for (int64_t k = 0; n && k < n->integer && k < 100000; ++k) {
        const auto *kind = next(72);
        if (!kind) break;
        if (kind->integer == 1) {
          const auto *a = next(10), *b = next(11);
          if (a) loop.push_back(at(a->real[0], a->real[1]));
          if (b) loop.push_back(at(b->real[0], b->real[1]));
        } else if (kind->integer == 2 || kind->integer == 3) {
          const auto *c = next(10);
          const auto *m = kind->integer == 3 ? next(11) : nullptr;
          const auto *r = next(40), *a0 = next(50), *a1 = next(51), *ccw = next(73);
          if (!c || !r) continue;
          AcGeVector2d major = m ? AcGeVector2d(m->real[0], m->real[1]) : AcGeVector2d(r->real[0], 0);
          double ratio = m ? r->real[0] : 1;
          double s = a0 ? a0->real[0] * M_PI / 180 : 0, e = a1 ? a1->real[0] * M_PI / 180 : kTwoPi;
          arc(loop, c->real[0], c->real[1], major, ratio, s, e, !ccw || ccw->integer);
        } else {
          // A spline edge: 94 degree, 73 rational, 74 periodic, 95 knots,
          // 96 control points, 40 knots, 10 control points [42 weights],
          // 97 fit points 11, 12 13 tangents.
          while (i < its.size() && its[i].code != 10 && its[i].code != 72 && its[i].code != 92 && its[i].code != 97) ++i;
          while (i < its.size() && (its[i].code == 10 || its[i].code == 42)) {
            if (its[i].code == 10) loop.push_back(at(its[i].real[0], its[i].real[1]));
            ++i;
          }
          while (i < its.size() && its[i].code != 72 && its[i].code != 92 && its[i].code != 97) ++i;
        }
      }
    }
    loops.push_back(std::move(loop));
  }
  return loops;
}

Acad::ErrorStatus AcDbHatch::getGeomExtents(AcDbExtents &ext) const {
  ext = AcDbExtents();
  for (const auto &loop : loopPolygons())
    for (const AcGePoint3d &p : loop) ext.addPoint(p);
  return ext.isEmpty() ? Acad::eInvalidExtents : Acad::eOk;
}

// A hatch names its pattern and its loop count, and has as many loops as
// it says.
Acad::ErrorStatus AcDbHatch::checkGroups() const {
  const auto *loops = group(91);
  if (!group(2) || !loops || loops->integer < 0) return Acad::eInvalidInput;
  int64_t found = 0;
  bool inLoops = false;
  for (const auto &it : groups_) {
    if (it.code == 91) inLoops = true;
    if (inLoops && it.code == 92) ++found;
    if (it.code == 75) inLoops = false;
  }
  return found == loops->integer ? Acad::eOk : Acad::eInvalidInput;
}

// --- Dimensions ------------------------------------------------------------------------------------

AcDbDimension::AcDbDimension() : AcDbGroupedEntity(L"AcDbDimension") {}

std::wstring AcDbDimension::dimBlockName() const {
  const auto *it = group(2);
  return it ? it->text : std::wstring();
}

AcDbObjectId AcDbDimension::dimBlockId() const {
  AcDbDatabase *db = database() ? database() : workingDatabase();
  std::wstring name = dimBlockName();
  return db && !name.empty() ? recordId(db->blockTableId(), name) : AcDbObjectId::kNull;
}

AcGePoint3d AcDbDimension::dimLinePoint() const {
  const auto *it = group(10);
  return it ? AcGePoint3d(it->real[0], it->real[1], it->real[2]) : AcGePoint3d();
}

AcGePoint3d AcDbDimension::textPosition() const {
  const auto *it = group(11);
  return it ? AcGePoint3d(it->real[0], it->real[1], it->real[2]) : AcGePoint3d();
}

int AcDbDimension::dimensionType() const {
  const auto *it = group(70);
  return it ? int(it->integer & 7) : 0;
}

std::wstring AcDbDimension::dimensionText() const {
  const auto *it = group(1);
  return it ? it->text : std::wstring();
}

std::wstring AcDbDimension::dimensionStyleName() const {
  const auto *it = group(3);
  return it ? it->text : L"Standard";
}

// The extents of its block, which holds the lines, arrows and text.
Acad::ErrorStatus AcDbDimension::getGeomExtents(AcDbExtents &ext) const {
  ext = AcDbExtents();
  if (auto *btr = AcDbBlockTableRecord::cast(objectOf(dimBlockId())))
    for (AcDbObjectId id : btr->entityIds()) {
      auto *e = AcDbEntity::cast(objectOf(id));
      AcDbExtents part;
      if (e && !e->isErased() && e->getGeomExtents(part) == Acad::eOk) ext.addExt(part);
    }
  if (ext.isEmpty()) ext.addPoint(dimLinePoint());
  return Acad::eOk;
}

// A dimension has its definition point and kind.
Acad::ErrorStatus AcDbDimension::checkGroups() const {
  return group(10) && group(70) ? Acad::eOk : Acad::eInvalidInput;
}
