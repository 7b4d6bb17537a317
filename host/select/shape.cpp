// What an entity looks like in plan, for selection.
//
//   curves (lines, arcs, circles, light polylines with bulges, old-style 2D
//   and 3D polylines, leaders): their path, segment by segment; an arc in a
//   plane parallel to XY stays an arc, an arc in a tilted plane (an ellipse
//   in plan) becomes 64 chords per turn;
//   MText: the four edges of its box (location, attachment, actual width and
//   height, direction) and the box as a region;
//   3D faces: their edges (three when the last two corners coincide);
//   block references: the box of their extents, as edges and region;
//   any other entity: the shapes of the pieces it explodes into, else the box
//   of its extents.
// Widths and thicknesses are not part of the shape.
#include <cmath>

#include "select/select.h"

namespace vantry::host::select {
namespace {

constexpr double kTwoPi = 6.283185307179586;

P2 xy(const AcGePoint3d &p) {
  return P2{p.x, p.y};
}

void addLine(Shape &s, P2 a, P2 b) {
  Piece p;
  p.a = a;
  p.b = b;
  s.pieces.push_back(p);
}

void addPolygon(Shape &s, const std::vector<P2> &pts, bool region) {
  for (size_t i = 0; i < pts.size(); ++i) addLine(s, pts[i], pts[(i + 1) % pts.size()]);
  if (region) s.regions.push_back(pts);
}

void addBox(Shape &s, const AcDbExtents &e) {
  AcGePoint3d lo = e.minPoint(), hi = e.maxPoint();
  addPolygon(s, {{lo.x, lo.y}, {hi.x, lo.y}, {hi.x, hi.y}, {lo.x, hi.y}}, true);
}

void addPath(Shape &s, const CurvePath &path) {
  for (const CurvePath::Seg &seg : path.segments()) {
    if (!seg.arc) {
      addLine(s, xy(seg.p0), xy(seg.p1));
      continue;
    }
    AcGeVector3d n = seg.u.crossProduct(seg.v);
    if (std::fabs(n.z) > 1 - 1e-12) {
      // In plan the arc is a circular arc: its angles measured in XY, the
      // sweep mirrored when the arc's plane faces down.
      Piece p;
      p.arc = true;
      p.c = xy(seg.c);
      p.r = seg.r;
      AcGePoint3d start = CurvePath::segPoint(seg, 0);
      p.a0 = std::atan2(start.y - seg.c.y, start.x - seg.c.x);
      p.sweep = n.z > 0 ? seg.sweep : -seg.sweep;
      p.a = xy(start);
      p.b = xy(CurvePath::segPoint(seg, 1));
      s.pieces.push_back(p);
      continue;
    }
    int n64 = std::max(1, int(std::ceil(std::fabs(seg.sweep) / kTwoPi * 64)));
    P2 prev = xy(CurvePath::segPoint(seg, 0));
    for (int i = 1; i <= n64; ++i) {
      P2 next = xy(CurvePath::segPoint(seg, double(i) / n64));
      addLine(s, prev, next);
      prev = next;
    }
  }
}

void addMText(Shape &s, const AcDbMText &m) {
  double w = m.actualWidth(), h = m.actualHeight();
  int a = int(m.attachment());
  int col = (a - 1) % 3, row = (a - 1) / 3;
  double left = -w * col / 2.0, top = h * row / 2.0;
  AcGeVector3d x = m.direction().normal(), y = m.normal().crossProduct(m.direction()).normal();
  AcGePoint3d o = m.location();
  auto corner = [&](double dx, double dy) { return xy(o + x * dx + y * dy); };
  addPolygon(s, {corner(left, top), corner(left + w, top), corner(left + w, top - h), corner(left, top - h)},
             true);
}

void addFace(Shape &s, const AcDbFace &f) {
  std::vector<P2> pts;
  for (Adesk::UInt16 i = 0; i < 4; ++i) {
    AcGePoint3d p;
    f.getVertexAt(i, p);
    P2 q = xy(p);
    if (i == 3 && q.x == pts[2].x && q.y == pts[2].y) break;
    pts.push_back(q);
  }
  addPolygon(s, pts, false);
}

void addEntity(Shape &s, const AcDbEntity &ent, int depth) {
  if (const AcDbCurve *c = AcDbCurve::cast(&ent)) {
    addPath(s, CurvePath(*c));
    return;
  }
  if (const AcDbMText *m = AcDbMText::cast(&ent)) {
    addMText(s, *m);
    return;
  }
  if (const AcDbFace *f = AcDbFace::cast(&ent)) {
    addFace(s, *f);
    return;
  }
  AcDbExtents ext;
  if (!AcDbBlockReference::cast(&ent) && depth < 4) {
    AcDbVoidPtrArray parts;
    if (ent.explode(parts) == Acad::eOk && !parts.isEmpty()) {
      for (void *p : parts) {
        auto *part = static_cast<AcDbEntity *>(p);
        addEntity(s, *part, depth + 1);
        delete part;
      }
      return;
    }
    for (void *p : parts) delete static_cast<AcDbEntity *>(p);
  }
  if (ent.getGeomExtents(ext) == Acad::eOk) addBox(s, ext);
}

}  // namespace

Box Shape::box() const {
  Box b;
  for (const Piece &p : pieces) {
    b.add(p.a);
    b.add(p.b);
    if (!p.arc) continue;
    // The arc's extreme points at the quarter angles it passes.
    double lo = std::min(p.a0, p.a0 + p.sweep), hi = std::max(p.a0, p.a0 + p.sweep);
    for (int k = int(std::floor(lo / (kTwoPi / 4))); k * (kTwoPi / 4) <= hi; ++k) {
      double t = k * (kTwoPi / 4);
      if (t < lo) continue;
      b.add(P2{p.c.x + p.r * std::cos(t), p.c.y + p.r * std::sin(t)});
    }
  }
  for (const auto &r : regions)
    for (P2 q : r) b.add(q);
  return b;
}

Shape shapeOf(const AcDbEntity &ent) {
  Shape s;
  addEntity(s, ent, 0);
  return s;
}

}  // namespace vantry::host::select
