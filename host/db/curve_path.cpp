// Curve measurement over runs of line and circular-arc segments, in closed
// form: lengths, parameters, nearest points (also as seen along a direction)
// and extents.
#include <algorithm>
#include <cmath>
#include <limits>

#include "db/db.h"

namespace vantry::host {
namespace {

const double kTwoPi = 2 * M_PI;
const double kInf = std::numeric_limits<double>::infinity();

double wrap(double a) {
  a = std::fmod(a, kTwoPi);
  return a < 0 ? a + kTwoPi : a;
}

// The arc's local t for the angle theta (measured from u towards v); the
// value lies in [0, 2pi/|sweep|).
double arcT(const CurvePath::Seg &s, double theta) {
  double phi = s.sweep > 0 ? wrap(theta - s.a0) : wrap(s.a0 - theta);
  return phi / std::fabs(s.sweep);
}

}  // namespace

CurvePath::CurvePath(const AcDbCurve &curve) {
  curve.buildPath(*this);
}

void CurvePath::addLine(const AcGePoint3d &p0, const AcGePoint3d &p1, double par0, double par1) {
  Seg s;
  s.p0 = p0;
  s.p1 = p1;
  s.par0 = par0;
  s.par1 = par1;
  s.len = p0.distanceTo(p1);
  cum_.push_back(segs_.empty() ? 0.0 : cum_.back() + segs_.back().len);
  segs_.push_back(s);
}

void CurvePath::addArc(const AcGePoint3d &c, const AcGeVector3d &u, const AcGeVector3d &v, double r,
                       double a0, double sweep, double par0, double par1) {
  Seg s;
  s.arc = true;
  s.c = c;
  s.u = u;
  s.v = v;
  s.r = r;
  s.a0 = a0;
  s.sweep = sweep;
  s.par0 = par0;
  s.par1 = par1;
  s.p0 = segPoint(s, 0);
  s.p1 = segPoint(s, 1);
  s.len = r * std::fabs(sweep);
  cum_.push_back(segs_.empty() ? 0.0 : cum_.back() + segs_.back().len);
  segs_.push_back(s);
}

// The bulge b = tan(sweep / 4); the centre lies off the chord's midpoint by
// (chord / 2) / tan(sweep / 2), to the left (about the normal) for a
// counter-clockwise arc under half a turn.
void CurvePath::addBulge(const AcGePoint3d &p0, const AcGePoint3d &p1, double bulge,
                         const AcGeVector3d &normal, double par0, double par1) {
  double chord = p0.distanceTo(p1);
  if (std::fabs(bulge) < 1e-12 || chord < 1e-14) {
    addLine(p0, p1, par0, par1);
    return;
  }
  AcGeVector3d n = normal.normal();
  double sweep = 4 * std::atan(bulge);
  AcGeVector3d d = (p1 - p0) / chord;
  AcGeVector3d left = n.crossProduct(d);
  AcGePoint3d mid = p0 + (p1 - p0) * 0.5;
  AcGePoint3d c = mid + left * ((chord / 2) / std::tan(sweep / 2));
  double r = c.distanceTo(p0);
  AcGeVector3d u = (p0 - c) / r;
  addArc(c, u, n.crossProduct(u), r, 0, sweep, par0, par1);
  segs_.back().p1 = p1;  // exactly the vertex
}

double CurvePath::length() const {
  return segs_.empty() ? 0.0 : cum_.back() + segs_.back().len;
}

AcGePoint3d CurvePath::segPoint(const Seg &s, double t) {
  if (!s.arc) return s.p0 + (s.p1 - s.p0) * t;
  double a = s.a0 + t * s.sweep;
  return s.c + (s.u * std::cos(a) + s.v * std::sin(a)) * s.r;
}

AcGeVector3d CurvePath::segDeriv(const Seg &s, double t) {
  if (!s.arc) return s.p1 - s.p0;
  double a = s.a0 + t * s.sweep;
  return (s.v * std::cos(a) - s.u * std::sin(a)) * (s.r * s.sweep);
}

double CurvePath::tolerance() const {
  double scale = 1.0;
  for (const Seg &s : segs_)
    scale = std::max({scale, std::fabs(s.p0.x), std::fabs(s.p0.y), std::fabs(s.p0.z)});
  return 1e-9 * std::max(scale, length());
}

bool CurvePath::locate(double param, size_t &seg, double &t) const {
  if (segs_.empty()) return false;
  double lo = startParam(), hi = endParam();
  double tol = 1e-9 * std::max(1.0, std::fabs(hi - lo));
  if (!(param >= lo - tol && param <= hi + tol)) return false;
  param = std::clamp(param, lo, hi);
  size_t a = 0, b = segs_.size();
  while (b - a > 1) {  // the last segment starting at or before param
    size_t m = (a + b) / 2;
    if (segs_[m].par0 <= param)
      a = m;
    else
      b = m;
  }
  const Seg &s = segs_[a];
  seg = a;
  t = s.par1 > s.par0 ? std::clamp((param - s.par0) / (s.par1 - s.par0), 0.0, 1.0) : 0.0;
  return true;
}

Acad::ErrorStatus CurvePath::pointAtParam(double param, AcGePoint3d &p) const {
  size_t i;
  double t;
  if (!locate(param, i, t)) return Acad::eInvalidInput;
  p = segPoint(segs_[i], t);
  return Acad::eOk;
}

Acad::ErrorStatus CurvePath::derivAtParam(double param, AcGeVector3d &d) const {
  size_t i;
  double t;
  if (!locate(param, i, t)) return Acad::eInvalidInput;
  const Seg &s = segs_[i];
  d = segDeriv(s, t);
  if (s.par1 > s.par0) d = d / (s.par1 - s.par0);
  return Acad::eOk;
}

Acad::ErrorStatus CurvePath::distAtParam(double param, double &dist) const {
  size_t i;
  double t;
  if (!locate(param, i, t)) return Acad::eInvalidInput;
  dist = cum_[i] + t * segs_[i].len;
  return Acad::eOk;
}

Acad::ErrorStatus CurvePath::paramAtDist(double dist, double &param) const {
  double total = length();
  double tol = 1e-9 * std::max(1.0, total);
  if (segs_.empty() || !(dist >= -tol && dist <= total + tol)) return Acad::eInvalidInput;
  dist = std::clamp(dist, 0.0, total);
  size_t i = std::upper_bound(cum_.begin(), cum_.end(), dist) - cum_.begin();
  i = i == 0 ? 0 : i - 1;
  const Seg &s = segs_[i];
  double t = s.len > 0 ? std::clamp((dist - cum_[i]) / s.len, 0.0, 1.0) : 0.0;
  param = s.par0 + t * (s.par1 - s.par0);
  return Acad::eOk;
}

void CurvePath::nearest(const AcGePoint3d &q, const AcGeVector3d *dir, bool extend, size_t &bestSeg,
                        double &bestT) const {
  AcGeVector3d d = dir ? dir->normal() : AcGeVector3d();
  auto proj = [&](const AcGeVector3d &v) { return dir ? v - d * v.dotProduct(d) : v; };
  auto dist2 = [&](const Seg &s, double t) { return proj(segPoint(s, t) - q).lengthSqrd(); };
  double best = kInf;
  bestSeg = 0;
  bestT = 0;
  size_t n = segs_.size();
  for (size_t i = 0; i < n; ++i) {
    const Seg &s = segs_[i];
    bool open = !closed_ && extend;
    double lo = 0, hi = 1;
    std::vector<double> cands;
    if (!s.arc) {
      if (open && i == 0) lo = -kInf;
      if (open && i + 1 == n) hi = kInf;
      AcGeVector3d w = proj(s.p1 - s.p0);
      double ww = w.lengthSqrd();
      double t = ww > 1e-300 ? proj(q - s.p0).dotProduct(w) / ww : 0.0;
      cands.push_back(std::clamp(t, lo, hi));
    } else {
      double full = kTwoPi / std::fabs(s.sweep);
      if (open && n == 1) {
        lo = -kInf, hi = kInf;  // a whole circle
      } else {
        if (open && i == 0) lo = 1 - full;
        if (open && i + 1 == n) hi = full;
      }
      // Stationary angles of the (projected) distance.
      std::vector<double> thetas;
      AcGeVector3d n3 = s.u.crossProduct(s.v);
      if (!dir || n3.isParallelTo(d)) {
        AcGeVector3d rel = q - s.c;
        thetas.push_back(std::atan2(rel.dotProduct(s.v), rel.dotProduct(s.u)));
      } else {
        AcGeVector3d A = proj(s.c - q), U = proj(s.u) * s.r, V = proj(s.v) * s.r;
        auto g = [&](double th) {
          AcGeVector3d p = A + U * std::cos(th) + V * std::sin(th);
          AcGeVector3d dp = V * std::cos(th) - U * std::sin(th);
          return p.dotProduct(dp);
        };
        const int kSteps = 64;
        double prev = g(0);
        for (int k = 1; k <= kSteps; ++k) {
          double a = kTwoPi * (k - 1) / kSteps, b = kTwoPi * k / kSteps, gb = g(b);
          if (prev == 0) thetas.push_back(a);
          if ((prev < 0) != (gb < 0)) {
            double ga = prev;
            for (int it = 0; it < 200 && b - a > 1e-15; ++it) {
              double m = (a + b) / 2, gm = g(m);
              if ((ga < 0) == (gm < 0))
                a = m, ga = gm;
              else
                b = m;
            }
            thetas.push_back((a + b) / 2);
          }
          prev = gb;
        }
      }
      for (double th : thetas) {
        double t = arcT(s, th);
        for (double k : {t, t - full, t + full})
          if (k >= lo && k <= hi) cands.push_back(k);
      }
      if (std::isfinite(lo)) cands.push_back(lo);
      if (std::isfinite(hi)) cands.push_back(hi);
      if (cands.empty()) cands.push_back(0);
    }
    for (double t : cands) {
      double e = dist2(s, t);
      if (e < best) best = e, bestSeg = i, bestT = t;
    }
  }
}

Acad::ErrorStatus CurvePath::closestPoint(const AcGePoint3d &q, const AcGeVector3d *direction, bool extend,
                                          AcGePoint3d &out) const {
  if (segs_.empty()) return Acad::eInvalidInput;
  if (direction && direction->isZeroLength()) return Acad::eInvalidInput;
  size_t i;
  double t;
  nearest(q, direction, extend, i, t);
  out = segPoint(segs_[i], t);
  return Acad::eOk;
}

Acad::ErrorStatus CurvePath::paramAtPoint(const AcGePoint3d &p, double &param) const {
  if (segs_.empty()) return Acad::eInvalidInput;
  size_t i;
  double t;
  nearest(p, nullptr, false, i, t);
  if (segPoint(segs_[i], t).distanceTo(p) > tolerance()) return Acad::eInvalidInput;
  param = segs_[i].par0 + t * (segs_[i].par1 - segs_[i].par0);
  return Acad::eOk;
}

// The vector area of the chords (end back to start included) plus, for each
// arc, its circular segment, signed by its turn about the plane's normal.
Acad::ErrorStatus CurvePath::area(double &a) const {
  a = 0;
  if (segs_.empty()) return Acad::eOk;
  AcGeVector3d sum;
  AcGePoint3d o = segs_.front().p0;
  for (const Seg &s : segs_) sum += (s.p0 - o).crossProduct(s.p1 - o) * 0.5;
  AcGeVector3d n = sum.normal();
  if (n.isZeroLength()) {
    for (const Seg &s : segs_)
      if (s.arc) n = s.u.crossProduct(s.v);
  }
  double total = sum.dotProduct(n);
  for (const Seg &s : segs_) {
    if (!s.arc) continue;
    double w = std::fabs(s.sweep);
    double seg = 0.5 * s.r * s.r * (w - std::sin(w));
    double turn = s.u.crossProduct(s.v).dotProduct(n) * (s.sweep > 0 ? 1 : -1);
    total += turn >= 0 ? seg : -seg;
  }
  a = std::fabs(total);
  return Acad::eOk;
}

void CurvePath::addExtents(AcDbExtents &ext) const {
  for (const Seg &s : segs_) {
    ext.addPoint(s.p0);
    ext.addPoint(s.p1);
    if (!s.arc) continue;
    for (int k = 0; k < 3; ++k) {
      if (std::fabs(s.u[k]) < 1e-300 && std::fabs(s.v[k]) < 1e-300) continue;
      double th = std::atan2(s.v[k], s.u[k]);
      for (double a : {th, th + M_PI}) {
        double t = arcT(s, a);
        if (t <= 1) ext.addPoint(segPoint(s, t));
      }
    }
  }
}

}  // namespace vantry::host
