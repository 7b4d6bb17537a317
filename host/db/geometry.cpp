// Geometry value types: vectors, points and affine matrices.
#include <cmath>

#include "host/acge.h"

AcGeTol AcGeContext::gTol;

const AcGeVector2d AcGeVector2d::kXAxis(1, 0);
const AcGeVector2d AcGeVector2d::kYAxis(0, 1);
const AcGePoint2d AcGePoint2d::kOrigin(0, 0);
const AcGeVector3d AcGeVector3d::kIdentity(0, 0, 0);
const AcGeVector3d AcGeVector3d::kXAxis(1, 0, 0);
const AcGeVector3d AcGeVector3d::kYAxis(0, 1, 0);
const AcGeVector3d AcGeVector3d::kZAxis(0, 0, 1);
const AcGePoint3d AcGePoint3d::kOrigin(0, 0, 0);
const AcGeMatrix3d AcGeMatrix3d::kIdentity;

double AcGeVector2d::angle() const {
  double a = std::atan2(y, x);
  return a < 0 ? a + 2 * M_PI : a;
}

AcGeVector3d AcGeVector3d::normal(const AcGeTol &tol) const {
  double len = length();
  if (len <= tol.equalVector()) return *this;
  return *this / len;
}

AcGeVector3d &AcGeVector3d::normalize(const AcGeTol &tol) {
  return *this = normal(tol);
}

double AcGeVector3d::angleTo(const AcGeVector3d &v) const {
  double c = crossProduct(v).length(), d = dotProduct(v);
  return std::atan2(c, d);
}

double AcGeVector3d::angleTo(const AcGeVector3d &v, const AcGeVector3d &ref) const {
  double a = angleTo(v);
  if (crossProduct(v).dotProduct(ref) < 0) a = 2 * M_PI - a;
  return a >= 2 * M_PI ? 0.0 : a;
}

bool AcGeVector3d::isParallelTo(const AcGeVector3d &v, const AcGeTol &tol) const {
  double a = length(), b = v.length();
  if (a <= tol.equalVector() || b <= tol.equalVector()) return false;
  return crossProduct(v).length() / (a * b) <= tol.equalVector() * 1e3;
}

bool AcGeVector3d::isPerpendicularTo(const AcGeVector3d &v, const AcGeTol &tol) const {
  double a = length(), b = v.length();
  if (a <= tol.equalVector() || b <= tol.equalVector()) return false;
  return std::fabs(dotProduct(v)) / (a * b) <= tol.equalVector() * 1e3;
}

AcGeVector3d &AcGeVector3d::rotateBy(double angle, const AcGeVector3d &axis) {
  return transformBy(AcGeMatrix3d::rotation(angle, axis));
}

AcGeVector3d &AcGeVector3d::transformBy(const AcGeMatrix3d &m) {
  AcGeVector3d v = *this;
  x = m.entry[0][0] * v.x + m.entry[0][1] * v.y + m.entry[0][2] * v.z;
  y = m.entry[1][0] * v.x + m.entry[1][1] * v.y + m.entry[1][2] * v.z;
  z = m.entry[2][0] * v.x + m.entry[2][1] * v.y + m.entry[2][2] * v.z;
  return *this;
}

AcGeVector3d AcGeVector3d::perpVector() const {
  return vantry::host::ocsXAxis(normal());
}

AcGePoint3d &AcGePoint3d::transformBy(const AcGeMatrix3d &m) {
  AcGePoint3d p = *this;
  x = m.entry[0][0] * p.x + m.entry[0][1] * p.y + m.entry[0][2] * p.z + m.entry[0][3];
  y = m.entry[1][0] * p.x + m.entry[1][1] * p.y + m.entry[1][2] * p.z + m.entry[1][3];
  z = m.entry[2][0] * p.x + m.entry[2][1] * p.y + m.entry[2][2] * p.z + m.entry[2][3];
  return *this;
}

AcGeMatrix3d::AcGeMatrix3d() {
  setToIdentity();
}

AcGeMatrix3d &AcGeMatrix3d::setToIdentity() {
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c) entry[r][c] = r == c ? 1.0 : 0.0;
  return *this;
}

AcGeMatrix3d AcGeMatrix3d::translation(const AcGeVector3d &v) {
  AcGeMatrix3d m;
  m.entry[0][3] = v.x;
  m.entry[1][3] = v.y;
  m.entry[2][3] = v.z;
  return m;
}

// Rodrigues' rotation formula about an axis through center.
AcGeMatrix3d AcGeMatrix3d::rotation(double angle, const AcGeVector3d &axis, const AcGePoint3d &center) {
  AcGeVector3d k = axis.normal();
  double c = std::cos(angle), s = std::sin(angle), t = 1 - c;
  AcGeMatrix3d m;
  m.entry[0][0] = t * k.x * k.x + c;
  m.entry[0][1] = t * k.x * k.y - s * k.z;
  m.entry[0][2] = t * k.x * k.z + s * k.y;
  m.entry[1][0] = t * k.x * k.y + s * k.z;
  m.entry[1][1] = t * k.y * k.y + c;
  m.entry[1][2] = t * k.y * k.z - s * k.x;
  m.entry[2][0] = t * k.x * k.z - s * k.y;
  m.entry[2][1] = t * k.y * k.z + s * k.x;
  m.entry[2][2] = t * k.z * k.z + c;
  return translation(center.asVector()) * m * translation(-center.asVector());
}

AcGeMatrix3d AcGeMatrix3d::scaling(double scale, const AcGePoint3d &center) {
  AcGeMatrix3d m;
  for (int i = 0; i < 3; ++i) m.entry[i][i] = scale;
  return translation(center.asVector()) * m * translation(-center.asVector());
}

AcGeMatrix3d &AcGeMatrix3d::setCoordSystem(const AcGePoint3d &o, const AcGeVector3d &x, const AcGeVector3d &y,
                                           const AcGeVector3d &z) {
  setToIdentity();
  const AcGeVector3d *cols[3] = {&x, &y, &z};
  for (int c = 0; c < 3; ++c)
    for (int r = 0; r < 3; ++r) entry[r][c] = (*cols[c])[r];
  entry[0][3] = o.x;
  entry[1][3] = o.y;
  entry[2][3] = o.z;
  return *this;
}

AcGeMatrix3d AcGeMatrix3d::alignCoordSys(const AcGePoint3d &fo, const AcGeVector3d &fx,
                                         const AcGeVector3d &fy, const AcGeVector3d &fz,
                                         const AcGePoint3d &to, const AcGeVector3d &tx,
                                         const AcGeVector3d &ty, const AcGeVector3d &tz) {
  AcGeMatrix3d from, toM;
  from.setCoordSystem(fo, fx, fy, fz);
  toM.setCoordSystem(to, tx, ty, tz);
  return toM * from.inverse();
}

AcGeMatrix3d AcGeMatrix3d::planeToWorld(const AcGeVector3d &normal) {
  AcGeVector3d n = normal.normal();
  AcGeVector3d ax = vantry::host::ocsXAxis(n);
  AcGeVector3d ay = n.crossProduct(ax).normal();
  AcGeMatrix3d m;
  m.setCoordSystem(AcGePoint3d::kOrigin, ax, ay, n);
  return m;
}

AcGeMatrix3d AcGeMatrix3d::worldToPlane(const AcGeVector3d &normal) {
  return planeToWorld(normal).inverse();
}

AcGeMatrix3d AcGeMatrix3d::operator*(const AcGeMatrix3d &m) const {
  AcGeMatrix3d r;
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j) {
      double s = 0;
      for (int k = 0; k < 4; ++k) s += entry[i][k] * m.entry[k][j];
      r.entry[i][j] = s;
    }
  return r;
}

AcGeMatrix3d &AcGeMatrix3d::preMultBy(const AcGeMatrix3d &left) {
  return *this = left * *this;
}
AcGeMatrix3d &AcGeMatrix3d::postMultBy(const AcGeMatrix3d &right) {
  return *this = *this * right;
}

double AcGeMatrix3d::det() const {
  const auto &e = entry;
  return e[0][0] * (e[1][1] * e[2][2] - e[1][2] * e[2][1]) -
         e[0][1] * (e[1][0] * e[2][2] - e[1][2] * e[2][0]) +
         e[0][2] * (e[1][0] * e[2][1] - e[1][1] * e[2][0]);
}

double AcGeMatrix3d::scale() const {
  return std::cbrt(std::fabs(det()));
}

bool AcGeMatrix3d::isUniScaledOrtho(const AcGeTol &) const {
  AcGeVector3d c[3];
  for (int i = 0; i < 3; ++i) c[i] = AcGeVector3d(entry[0][i], entry[1][i], entry[2][i]);
  double l = c[0].length();
  if (l == 0) return false;
  const double eps = 1e-9 * l * l;
  return std::fabs(c[1].length() - l) <= 1e-9 * l && std::fabs(c[2].length() - l) <= 1e-9 * l &&
         std::fabs(c[0].dotProduct(c[1])) <= eps && std::fabs(c[0].dotProduct(c[2])) <= eps &&
         std::fabs(c[1].dotProduct(c[2])) <= eps;
}

// Inverse of an affine matrix: invert the 3x3 part by cofactors, then the
// translation.
AcGeMatrix3d AcGeMatrix3d::inverse() const {
  const auto &e = entry;
  double d = det();
  AcGeMatrix3d r;
  if (d == 0) return r;
  r.entry[0][0] = (e[1][1] * e[2][2] - e[1][2] * e[2][1]) / d;
  r.entry[0][1] = (e[0][2] * e[2][1] - e[0][1] * e[2][2]) / d;
  r.entry[0][2] = (e[0][1] * e[1][2] - e[0][2] * e[1][1]) / d;
  r.entry[1][0] = (e[1][2] * e[2][0] - e[1][0] * e[2][2]) / d;
  r.entry[1][1] = (e[0][0] * e[2][2] - e[0][2] * e[2][0]) / d;
  r.entry[1][2] = (e[0][2] * e[1][0] - e[0][0] * e[1][2]) / d;
  r.entry[2][0] = (e[1][0] * e[2][1] - e[1][1] * e[2][0]) / d;
  r.entry[2][1] = (e[0][1] * e[2][0] - e[0][0] * e[2][1]) / d;
  r.entry[2][2] = (e[0][0] * e[1][1] - e[0][1] * e[1][0]) / d;
  for (int i = 0; i < 3; ++i)
    r.entry[i][3] = -(r.entry[i][0] * e[0][3] + r.entry[i][1] * e[1][3] + r.entry[i][2] * e[2][3]);
  return r;
}

namespace vantry::host {

// The arbitrary axis algorithm: a normal close to the world Z axis takes its
// X axis from world Y x N, any other from world Z x N.
AcGeVector3d ocsXAxis(const AcGeVector3d &normal) {
  AcGeVector3d n = normal.normal();
  const double limit = 1.0 / 64.0;
  AcGeVector3d ax = (std::fabs(n.x) < limit && std::fabs(n.y) < limit) ? AcGeVector3d::kYAxis.crossProduct(n)
                                                                       : AcGeVector3d::kZAxis.crossProduct(n);
  return ax.normal();
}

}  // namespace vantry::host
