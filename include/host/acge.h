// The host's geometry value types, as the drawing database uses them.
//
// Plain values with no ownership: points, vectors and 4x4 affine matrices in
// double precision, the global tolerance, and the small growable array the
// host's API passes collections in. Included by host/acdb.h; module code
// reaches it through host/arx.h.
#pragma once

#include <cmath>
#include <vector>

// --- Tolerance ---------------------------------------------------------------------

class AcGeTol {
 public:
  AcGeTol() = default;
  double equalPoint() const { return equalPoint_; }
  double equalVector() const { return equalVector_; }
  void setEqualPoint(double v) { equalPoint_ = v; }
  void setEqualVector(double v) { equalVector_ = v; }

 private:
  double equalPoint_ = 1e-10;
  double equalVector_ = 1e-12;
};

struct AcGeContext {
  static AcGeTol gTol;
};

// --- Arrays ------------------------------------------------------------------------

// A growable array with the host's spelling. Elements are values; an array
// of pointers (AcDbVoidPtrArray) does not own what they point at.
template <class T>
class AcArray {
 public:
  AcArray() = default;
  explicit AcArray(int reserve) { items_.reserve(reserve > 0 ? reserve : 0); }
  int length() const { return int(items_.size()); }
  int logicalLength() const { return length(); }
  bool isEmpty() const { return items_.empty(); }
  AcArray &append(const T &v) {
    items_.push_back(v);
    return *this;
  }
  int appendIndex(const T &v) {
    items_.push_back(v);
    return length() - 1;
  }
  AcArray &insertAt(int i, const T &v) {
    items_.insert(items_.begin() + i, v);
    return *this;
  }
  AcArray &removeAt(int i) {
    items_.erase(items_.begin() + i);
    return *this;
  }
  AcArray &removeAll() {
    items_.clear();
    return *this;
  }
  AcArray &setLogicalLength(int n) {
    items_.resize(n);
    return *this;
  }
  bool find(const T &v, int &index, int start = 0) const {
    for (int i = start; i < length(); ++i)
      if (items_[i] == v) {
        index = i;
        return true;
      }
    return false;
  }
  bool contains(const T &v) const {
    int i;
    return find(v, i);
  }
  T &operator[](int i) { return items_[i]; }
  const T &operator[](int i) const { return items_[i]; }
  T &at(int i) { return items_[i]; }
  const T &at(int i) const { return items_[i]; }
  T &first() { return items_.front(); }
  T &last() { return items_.back(); }
  const T *asArrayPtr() const { return items_.data(); }
  auto begin() { return items_.begin(); }
  auto end() { return items_.end(); }
  auto begin() const { return items_.begin(); }
  auto end() const { return items_.end(); }

 private:
  std::vector<T> items_;
};

typedef AcArray<double> AcGeDoubleArray;
typedef AcArray<void *> AcDbVoidPtrArray;

// --- Vectors and points --------------------------------------------------------------

class AcGeMatrix3d;

class AcGeVector2d {
 public:
  AcGeVector2d() = default;
  AcGeVector2d(double xx, double yy) : x(xx), y(yy) {}
  double length() const { return std::hypot(x, y); }
  double angle() const;  // in [0, 2pi)
  AcGeVector2d operator+(const AcGeVector2d &v) const { return {x + v.x, y + v.y}; }
  AcGeVector2d operator-(const AcGeVector2d &v) const { return {x - v.x, y - v.y}; }
  AcGeVector2d operator*(double s) const { return {x * s, y * s}; }
  double dotProduct(const AcGeVector2d &v) const { return x * v.x + y * v.y; }
  static const AcGeVector2d kXAxis, kYAxis;
  double x = 0, y = 0;
};

class AcGePoint2d {
 public:
  AcGePoint2d() = default;
  AcGePoint2d(double xx, double yy) : x(xx), y(yy) {}
  AcGePoint2d operator+(const AcGeVector2d &v) const { return {x + v.x, y + v.y}; }
  AcGeVector2d operator-(const AcGePoint2d &p) const { return {x - p.x, y - p.y}; }
  double distanceTo(const AcGePoint2d &p) const { return std::hypot(x - p.x, y - p.y); }
  bool isEqualTo(const AcGePoint2d &p, const AcGeTol &tol = AcGeContext::gTol) const {
    return distanceTo(p) <= tol.equalPoint();
  }
  bool operator==(const AcGePoint2d &p) const { return isEqualTo(p); }
  static const AcGePoint2d kOrigin;
  double x = 0, y = 0;
};

class AcGeVector3d {
 public:
  AcGeVector3d() = default;
  AcGeVector3d(double xx, double yy, double zz) : x(xx), y(yy), z(zz) {}
  double length() const { return std::sqrt(x * x + y * y + z * z); }
  double lengthSqrd() const { return x * x + y * y + z * z; }
  bool isZeroLength(const AcGeTol &tol = AcGeContext::gTol) const { return length() <= tol.equalVector(); }
  AcGeVector3d normal(const AcGeTol &tol = AcGeContext::gTol) const;
  AcGeVector3d &normalize(const AcGeTol &tol = AcGeContext::gTol);
  double dotProduct(const AcGeVector3d &v) const { return x * v.x + y * v.y + z * v.z; }
  AcGeVector3d crossProduct(const AcGeVector3d &v) const {
    return {y * v.z - z * v.y, z * v.x - x * v.z, x * v.y - y * v.x};
  }
  // The angle to v in [0, pi].
  double angleTo(const AcGeVector3d &v) const;
  // The angle to v in [0, 2pi), counter-clockwise as seen from refVector.
  double angleTo(const AcGeVector3d &v, const AcGeVector3d &refVector) const;
  bool isParallelTo(const AcGeVector3d &v, const AcGeTol &tol = AcGeContext::gTol) const;
  bool isPerpendicularTo(const AcGeVector3d &v, const AcGeTol &tol = AcGeContext::gTol) const;
  bool isEqualTo(const AcGeVector3d &v, const AcGeTol &tol = AcGeContext::gTol) const {
    return (*this - v).length() <= tol.equalVector();
  }
  // Rotates this vector by angle (radians, right-handed) about axis.
  AcGeVector3d &rotateBy(double angle, const AcGeVector3d &axis);
  AcGeVector3d &transformBy(const AcGeMatrix3d &m);
  // An arbitrary unit vector perpendicular to this one.
  AcGeVector3d perpVector() const;
  AcGeVector3d operator+(const AcGeVector3d &v) const { return {x + v.x, y + v.y, z + v.z}; }
  AcGeVector3d operator-(const AcGeVector3d &v) const { return {x - v.x, y - v.y, z - v.z}; }
  AcGeVector3d operator-() const { return {-x, -y, -z}; }
  AcGeVector3d operator*(double s) const { return {x * s, y * s, z * s}; }
  AcGeVector3d operator/(double s) const { return {x / s, y / s, z / s}; }
  AcGeVector3d &operator+=(const AcGeVector3d &v) {
    x += v.x, y += v.y, z += v.z;
    return *this;
  }
  AcGeVector3d &operator*=(double s) {
    x *= s, y *= s, z *= s;
    return *this;
  }
  bool operator==(const AcGeVector3d &v) const { return isEqualTo(v); }
  double operator[](int i) const { return i == 0 ? x : i == 1 ? y : z; }
  static const AcGeVector3d kIdentity, kXAxis, kYAxis, kZAxis;
  double x = 0, y = 0, z = 0;
};
inline AcGeVector3d operator*(double s, const AcGeVector3d &v) {
  return v * s;
}

class AcGePoint3d {
 public:
  AcGePoint3d() = default;
  AcGePoint3d(double xx, double yy, double zz) : x(xx), y(yy), z(zz) {}
  // The 2D point in the plane z = 0 of this point.
  AcGePoint2d convert2d() const { return {x, y}; }
  double distanceTo(const AcGePoint3d &p) const { return (*this - p).length(); }
  bool isEqualTo(const AcGePoint3d &p, const AcGeTol &tol = AcGeContext::gTol) const {
    return distanceTo(p) <= tol.equalPoint();
  }
  AcGePoint3d &transformBy(const AcGeMatrix3d &m);
  AcGeVector3d asVector() const { return {x, y, z}; }
  AcGePoint3d operator+(const AcGeVector3d &v) const { return {x + v.x, y + v.y, z + v.z}; }
  AcGePoint3d operator-(const AcGeVector3d &v) const { return {x - v.x, y - v.y, z - v.z}; }
  AcGeVector3d operator-(const AcGePoint3d &p) const { return {x - p.x, y - p.y, z - p.z}; }
  AcGePoint3d &operator+=(const AcGeVector3d &v) {
    x += v.x, y += v.y, z += v.z;
    return *this;
  }
  bool operator==(const AcGePoint3d &p) const { return isEqualTo(p); }
  bool operator!=(const AcGePoint3d &p) const { return !isEqualTo(p); }
  double operator[](int i) const { return i == 0 ? x : i == 1 ? y : z; }
  double &operator[](int i) { return i == 0 ? x : i == 1 ? y : z; }
  static const AcGePoint3d kOrigin;
  double x = 0, y = 0, z = 0;
};

typedef AcArray<AcGePoint3d> AcGePoint3dArray;

class AcGeScale3d {
 public:
  AcGeScale3d() = default;
  explicit AcGeScale3d(double s) : sx(s), sy(s), sz(s) {}
  AcGeScale3d(double x, double y, double z) : sx(x), sy(y), sz(z) {}
  double operator[](int i) const { return i == 0 ? sx : i == 1 ? sy : sz; }
  double sx = 1, sy = 1, sz = 1;
};
typedef AcArray<AcGePoint2d> AcGePoint2dArray;

// --- Matrices ------------------------------------------------------------------------

// A 4x4 matrix acting on column vectors: p' = M p. Only affine matrices (last
// row 0 0 0 1) are made by the constructors below.
class AcGeMatrix3d {
 public:
  AcGeMatrix3d();  // identity
  static const AcGeMatrix3d kIdentity;
  AcGeMatrix3d &setToIdentity();
  static AcGeMatrix3d translation(const AcGeVector3d &v);
  static AcGeMatrix3d rotation(double angle, const AcGeVector3d &axis,
                               const AcGePoint3d &center = AcGePoint3d::kOrigin);
  static AcGeMatrix3d scaling(double scale, const AcGePoint3d &center = AcGePoint3d::kOrigin);
  // Maps the world axes onto (origin, x, y, z).
  static AcGeMatrix3d alignCoordSys(const AcGePoint3d &fromOrigin, const AcGeVector3d &fromX,
                                    const AcGeVector3d &fromY, const AcGeVector3d &fromZ,
                                    const AcGePoint3d &toOrigin, const AcGeVector3d &toX,
                                    const AcGeVector3d &toY, const AcGeVector3d &toZ);
  // The matrix from the object coordinate system of a normal (the arbitrary
  // axis algorithm of the drawing exchange format) to world coordinates.
  static AcGeMatrix3d planeToWorld(const AcGeVector3d &normal);
  static AcGeMatrix3d worldToPlane(const AcGeVector3d &normal);
  AcGeMatrix3d &setCoordSystem(const AcGePoint3d &origin, const AcGeVector3d &x, const AcGeVector3d &y,
                               const AcGeVector3d &z);
  AcGeMatrix3d operator*(const AcGeMatrix3d &m) const;
  AcGeMatrix3d &preMultBy(const AcGeMatrix3d &left);
  AcGeMatrix3d &postMultBy(const AcGeMatrix3d &right);
  AcGeMatrix3d inverse() const;
  double det() const;
  // The uniform scale factor of the linear part (cube root of |det|).
  double scale() const;
  bool isUniScaledOrtho(const AcGeTol &tol = AcGeContext::gTol) const;
  double operator()(int r, int c) const { return entry[r][c]; }
  double &operator()(int r, int c) { return entry[r][c]; }
  double entry[4][4];
};

namespace vantry::host {
// The object coordinate system's X axis for a normal (arbitrary axis algorithm).
AcGeVector3d ocsXAxis(const AcGeVector3d &normal);
}  // namespace vantry::host
