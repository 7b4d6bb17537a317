// Window and crossing tests of a plan shape against a rectangle or a polygon,
// and the distance from a point to a shape (the pick's ranking).
//
// Exactness: segments and arcs are intersected in closed form; a touch counts
// as a crossing (a line ending on the window's edge is crossed, and so is not
// wholly inside a polygon). Polygons are read with the even-odd rule, so a
// self-crossing polygon has holes where it overlaps itself.
#include <algorithm>
#include <cmath>

#include "select/select.h"

namespace vantry::host::select {
namespace {

constexpr double kTwoPi = 6.283185307179586;
constexpr double kEps = 1e-12;

double cross(P2 o, P2 a, P2 b) {
  return (a.x - o.x) * (b.y - o.y) - (a.y - o.y) * (b.x - o.x);
}

int sign(double v, double scale) {
  double tol = kEps * std::max(1.0, scale);
  return v > tol ? 1 : v < -tol ? -1 : 0;
}

bool onSegment(P2 p, P2 a, P2 b) {
  return std::min(a.x, b.x) <= p.x && p.x <= std::max(a.x, b.x) && std::min(a.y, b.y) <= p.y &&
         p.y <= std::max(a.y, b.y);
}

bool segmentsMeet(P2 a, P2 b, P2 c, P2 d) {
  double scale = std::max({std::fabs(a.x), std::fabs(a.y), std::fabs(b.x), std::fabs(b.y), std::fabs(c.x),
                           std::fabs(c.y), std::fabs(d.x), std::fabs(d.y)});
  scale *= scale;
  int d1 = sign(cross(c, d, a), scale), d2 = sign(cross(c, d, b), scale);
  int d3 = sign(cross(a, b, c), scale), d4 = sign(cross(a, b, d), scale);
  if (d1 * d2 < 0 && d3 * d4 < 0) return true;
  return (d1 == 0 && onSegment(a, c, d)) || (d2 == 0 && onSegment(b, c, d)) ||
         (d3 == 0 && onSegment(c, a, b)) || (d4 == 0 && onSegment(d, a, b));
}

// Whether the direction at angle t (radians) lies on the arc.
bool onArc(const Piece &arc, double t) {
  if (std::fabs(arc.sweep) >= kTwoPi - 1e-12) return true;
  double d = arc.sweep > 0 ? t - arc.a0 : arc.a0 - t;
  d = std::fmod(d, kTwoPi);
  if (d < 0) d += kTwoPi;
  double span = std::fabs(arc.sweep);
  return d <= span + 1e-12 || d >= kTwoPi - 1e-12;
}

bool arcMeetsSegment(const Piece &arc, P2 c, P2 d) {
  double dx = d.x - c.x, dy = d.y - c.y;
  double fx = c.x - arc.c.x, fy = c.y - arc.c.y;
  double A = dx * dx + dy * dy, B = 2 * (fx * dx + fy * dy), C = fx * fx + fy * fy - arc.r * arc.r;
  if (A == 0)
    return std::fabs(std::sqrt(fx * fx + fy * fy) - arc.r) <= 1e-9 * std::max(1.0, arc.r) &&
           onArc(arc, std::atan2(fy, fx));
  double disc = B * B - 4 * A * C;
  if (disc < 0) {
    // A tangent missed by rounding still touches.
    if (disc > -1e-12 * B * B)
      disc = 0;
    else
      return false;
  }
  double root = std::sqrt(disc);
  for (double t : {(-B - root) / (2 * A), (-B + root) / (2 * A)}) {
    if (t < -1e-12 || t > 1 + 1e-12) continue;
    double x = c.x + t * dx - arc.c.x, y = c.y + t * dy - arc.c.y;
    if (onArc(arc, std::atan2(y, x))) return true;
  }
  return false;
}

bool pieceMeetsSegment(const Piece &p, P2 c, P2 d) {
  return p.arc ? arcMeetsSegment(p, c, d) : segmentsMeet(p.a, p.b, c, d);
}

bool inPolygon(P2 p, const std::vector<P2> &poly) {
  bool in = false;
  for (size_t i = 0, j = poly.size() - 1; i < poly.size(); j = i++) {
    const P2 &a = poly[i], &b = poly[j];
    if ((a.y > p.y) != (b.y > p.y) && p.x < (b.x - a.x) * (p.y - a.y) / (b.y - a.y) + a.x) in = !in;
  }
  return in;
}

// The area's boundary as a closed run of points.
std::vector<P2> boundary(const Area &area) {
  if (area.polygon) return area.points;
  const Box &r = area.rect;
  return {{r.x0, r.y0}, {r.x1, r.y0}, {r.x1, r.y1}, {r.x0, r.y1}};
}

bool pointIn(const Area &area, P2 p) {
  return area.polygon ? inPolygon(p, area.points) : area.rect.contains(p);
}

bool meetsBoundary(const Piece &p, const std::vector<P2> &edge) {
  for (size_t i = 0; i < edge.size(); ++i)
    if (pieceMeetsSegment(p, edge[i], edge[(i + 1) % edge.size()])) return true;
  return false;
}

double segmentDistance(P2 p, P2 a, P2 b) {
  double dx = b.x - a.x, dy = b.y - a.y;
  double len2 = dx * dx + dy * dy;
  double t = len2 == 0 ? 0 : std::clamp(((p.x - a.x) * dx + (p.y - a.y) * dy) / len2, 0.0, 1.0);
  return std::hypot(p.x - a.x - t * dx, p.y - a.y - t * dy);
}

double arcDistance(P2 p, const Piece &arc) {
  double dx = p.x - arc.c.x, dy = p.y - arc.c.y;
  double d = std::hypot(dx, dy);
  if (d == 0) return arc.r;
  if (onArc(arc, std::atan2(dy, dx))) return std::fabs(d - arc.r);
  return std::min(std::hypot(p.x - arc.a.x, p.y - arc.a.y), std::hypot(p.x - arc.b.x, p.y - arc.b.y));
}

}  // namespace

Area Area::rectangle(P2 a, P2 b) {
  Area area;
  area.rect.add(a);
  area.rect.add(b);
  return area;
}

Area Area::poly(std::vector<P2> pts) {
  Area area;
  area.polygon = true;
  area.points = std::move(pts);
  return area;
}

Box Area::box() const {
  if (!polygon) return rect;
  Box b;
  for (P2 p : points) b.add(p);
  return b;
}

bool inside(const Shape &s, const Area &area) {
  if (s.empty()) return false;
  if (!area.polygon) return area.rect.contains(s.box());
  if (area.points.size() < 3 || !area.box().contains(s.box())) return false;
  std::vector<P2> edge = boundary(area);
  for (const Piece &p : s.pieces) {
    if (!inPolygon(p.a, area.points) || !inPolygon(p.b, area.points)) return false;
    if (meetsBoundary(p, edge)) return false;
  }
  for (const auto &r : s.regions)
    for (P2 q : r)
      if (!inPolygon(q, area.points)) return false;
  return true;
}

bool crosses(const Shape &s, const Area &area) {
  if (s.empty()) return false;
  Box box = s.box(), abox = area.box();
  if (!box.intersects(abox)) return false;
  if (!area.polygon && area.rect.contains(box)) return true;
  if (area.polygon && area.points.size() < 3) return false;
  std::vector<P2> edge = boundary(area);
  for (const Piece &p : s.pieces)
    if (pointIn(area, p.a) || pointIn(area, p.b)) return true;
  for (const Piece &p : s.pieces)
    if (meetsBoundary(p, edge)) return true;
  // An area wholly inside a region: any of its corners lies in the region.
  for (const auto &r : s.regions)
    if (r.size() >= 3 && inPolygon(edge.front(), r)) return true;
  return false;
}

double distanceTo(const Shape &s, P2 p) {
  double best = HUGE_VAL;
  for (const auto &r : s.regions)
    if (r.size() >= 3 && inPolygon(p, r)) return 0;
  for (const Piece &q : s.pieces)
    best = std::min(best, q.arc ? arcDistance(p, q) : segmentDistance(p, q.a, q.b));
  return best;
}

}  // namespace vantry::host::select
