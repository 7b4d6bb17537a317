// Fitting of 2D polylines: arc (curve) fitting and B-spline fitting.
//
// Curve fit: every vertex gets a tangent (its own when it has one, else the
// tangent at that vertex of the circle through it and its neighbours; at the
// ends of an open polyline, of the circle through the first or last three
// vertices). Between two vertices a biarc is placed: two arcs meeting at a
// new curve-fit vertex with a common tangent, the junction chosen so that
// both arcs' tangent lengths are equal. The bulges of the original vertex and
// of the new vertex describe the two arcs.
//
// Spline fit: the vertices become the hidden control frame of a uniform
// B-spline (quadratic or cubic; clamped to the end vertices when open,
// periodic when closed), and spline-fit vertices are placed along it, segs
// per span.
#include <algorithm>
#include <cmath>

#include "db/db.h"

namespace vantry::host {

void copyEntityLook(AcDbEntity *dst, const AcDbEntity &src);

namespace {

struct V2 {
  double x = 0, y = 0;
  V2 operator+(V2 o) const { return {x + o.x, y + o.y}; }
  V2 operator-(V2 o) const { return {x - o.x, y - o.y}; }
  V2 operator*(double s) const { return {x * s, y * s}; }
  double dot(V2 o) const { return x * o.x + y * o.y; }
  double cross(V2 o) const { return x * o.y - y * o.x; }
  double len() const { return std::hypot(x, y); }
  V2 unit() const {
    double l = len();
    return l > 0 ? V2{x / l, y / l} : *this;
  }
};

V2 at(const AcDb2dVertex *v) {
  return {v->position().x, v->position().y};
}

// The tangent, in the direction of travel a -> b -> c, at the middle point b
// of the circle through the three points; the chord direction when they are
// collinear.
V2 middleTangent(V2 a, V2 b, V2 c) {
  V2 u = a - b, w = c - b;
  V2 t = w * u.dot(u) - u * w.dot(w);
  return t.len() > 0 ? t.unit() : (c - a).unit();
}

// The tangent at an end point (first when atStart, else last) of the circle
// through a, b, c, in the direction of travel.
V2 endTangent(V2 a, V2 b, V2 c, bool atStart) {
  double d = 2 * (a.x * (b.y - c.y) + b.x * (c.y - a.y) + c.x * (a.y - b.y));
  double scale = std::max({(b - a).len(), (c - b).len(), 1e-300});
  if (std::fabs(d) < 1e-12 * scale * scale) return atStart ? (b - a).unit() : (c - b).unit();
  double aa = a.dot(a), bb = b.dot(b), cc = c.dot(c);
  V2 o{(aa * (b.y - c.y) + bb * (c.y - a.y) + cc * (a.y - b.y)) / d,
       (aa * (c.x - b.x) + bb * (a.x - c.x) + cc * (b.x - a.x)) / d};
  V2 r = (atStart ? a : c) - o;
  double turn = (b - a).cross(c - b) > 0 ? 1 : -1;
  return V2{-r.y, r.x}.unit() * turn;
}

// The bulge of an arc from p to q that leaves p along tangent t.
double bulgeFromStart(V2 p, V2 q, V2 t) {
  V2 ch = q - p;
  double alpha = std::atan2(t.cross(ch), t.dot(ch));
  return std::tan(alpha / 2);
}

// The bulge of an arc from p to q that arrives at q along tangent t.
double bulgeFromEnd(V2 p, V2 q, V2 t) {
  V2 ch = q - p;
  double beta = std::atan2(ch.cross(t), ch.dot(t));
  return std::tan(beta / 2);
}

AcDb2dVertex *newVertex(AcDb2dPolyline &pline, V2 p, double bulge, AcDb::Vertex2dType type, double sw,
                        double ew) {
  auto *v = new AcDb2dVertex(AcGePoint3d(p.x, p.y, pline.elevation()), bulge, sw, ew);
  DbAccess::setVertexType(v, type);
  if (!pline.objectId().isNull()) {
    copyEntityLook(v, pline);
    DbAccess::addToDatabase(pline.database(), v, pline.objectId(), false);
  }
  return v;
}

}  // namespace

Acad::ErrorStatus fitCurve(AcDb2dPolyline &pline) {
  std::vector<AcDb2dVertex *> &verts = DbAccess::vertices2d(&pline);
  size_t n = verts.size();
  DbAccess::setPolyType(&pline, AcDb::k2dFitCurvePoly);
  if (n < 2) return Acad::eOk;
  bool closed = pline.isClosed();
  std::vector<V2> p(n), t(n);
  for (size_t i = 0; i < n; ++i) p[i] = at(verts[i]);
  for (size_t i = 0; i < n; ++i) {
    if (verts[i]->isTangentUsed()) {
      t[i] = {std::cos(verts[i]->tangent()), std::sin(verts[i]->tangent())};
    } else if (closed || (i > 0 && i + 1 < n)) {
      t[i] = middleTangent(p[(i + n - 1) % n], p[i], p[(i + 1) % n]);
    } else if (n == 2) {
      t[i] = (p[1] - p[0]).unit();
    } else if (i == 0) {
      t[i] = endTangent(p[0], p[1], p[2], true);
    } else {
      t[i] = endTangent(p[n - 3], p[n - 2], p[n - 1], false);
    }
  }
  std::vector<AcDb2dVertex *> out;
  size_t segs = closed ? n : n - 1;
  for (size_t i = 0; i < n; ++i) {
    out.push_back(verts[i]);
    if (i >= segs) break;
    size_t j = (i + 1) % n;
    V2 v = p[j] - p[i], tt = t[i] + t[j];
    double vv = v.dot(v), vt = v.dot(tt), c = 1 - t[i].dot(t[j]);
    if (vv < 1e-24) continue;
    V2 junction;
    if (c < 1e-12) {
      junction = std::fabs(vt) > 1e-12 ? (p[i] + t[i] * (vv / (2 * vt)) + p[j] - t[j] * (vv / (2 * vt))) * 0.5
                                       : (p[i] + p[j]) * 0.5;
    } else {
      double d = (-vt + std::sqrt(vt * vt + 2 * c * vv)) / (2 * c);
      junction = (p[i] + t[i] * d + p[j] - t[j] * d) * 0.5;
    }
    verts[i]->setBulge(bulgeFromStart(p[i], junction, t[i]));
    double w = (verts[i]->startWidth() + verts[i]->endWidth()) / 2;
    out.push_back(newVertex(pline, junction, bulgeFromEnd(junction, p[j], t[j]), AcDb::k2dCurveFitVertex, w,
                            verts[i]->endWidth()));
  }
  verts = std::move(out);
  return Acad::eOk;
}

Acad::ErrorStatus fitSpline(AcDb2dPolyline &pline, AcDb::Poly2dType type, int segs) {
  std::vector<AcDb2dVertex *> &verts = DbAccess::vertices2d(&pline);
  size_t n = verts.size();
  DbAccess::setPolyType(&pline, type);
  for (AcDb2dVertex *v : verts) {
    DbAccess::setVertexType(v, AcDb::k2dSplineCtlVertex);
    v->setBulge(0);
  }
  if (n < 2) return Acad::eOk;
  bool closed = pline.isClosed() && n >= 3;
  int k = type == AcDb::k2dQuadSplinePoly ? 3 : 4;  // order
  std::vector<V2> ctrl;
  for (AcDb2dVertex *v : verts) ctrl.push_back(at(v));
  std::vector<double> knots;
  double u0, u1;
  int pts;
  if (closed) {
    for (int i = 0; i < k - 1; ++i) ctrl.push_back(ctrl[i]);
    for (size_t i = 0; i < ctrl.size() + k; ++i) knots.push_back(double(i));
    u0 = k - 1;
    u1 = double(ctrl.size());
    pts = segs * int(n);  // the start is not repeated
  } else {
    k = std::min<int>(k, int(n));
    int spans = int(n) - k + 1;
    for (int i = 0; i < k; ++i) knots.push_back(0);
    for (int i = 1; i < spans; ++i) knots.push_back(i);
    for (int i = 0; i < k; ++i) knots.push_back(spans);
    u0 = 0;
    u1 = spans;
    pts = segs * spans + 1;
  }
  int nc = int(ctrl.size());
  auto eval = [&](double u) {
    int s = k - 1;
    while (s < nc - 1 && knots[s + 1] <= u) ++s;
    std::vector<V2> d(k);
    for (int j = 0; j < k; ++j) d[j] = ctrl[j + s - k + 1];
    for (int r = 1; r < k; ++r)
      for (int j = k - 1; j >= r; --j) {
        double lo = knots[j + s - k + 1], hi = knots[j + 1 + s - r];
        double a = hi > lo ? (u - lo) / (hi - lo) : 0;
        d[j] = d[j - 1] * (1 - a) + d[j] * a;
      }
    return d[k - 1];
  };
  double w = pline.defaultStartWidth();
  for (int i = 0; i < pts; ++i) {
    double u = closed ? u0 + (u1 - u0) * i / pts : u0 + (u1 - u0) * i / (pts - 1);
    verts.push_back(newVertex(pline, eval(u), 0, AcDb::k2dSplineFitVertex, w, w));
  }
  return Acad::eOk;
}

}  // namespace vantry::host
