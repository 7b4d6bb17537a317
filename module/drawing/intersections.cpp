// Where arcs, circles and lines meet, for LISP: ol_ol-intersectArcArc,
// ol_ol-intersectArcLine and ol_ol-intersectLineArc.
//
// Each takes two entity names and an optional extension mode, numbered as
// the host numbers its own intersection modes: 0 only points on both
// objects, 1 the first object extended, 2 the second extended, 3 both. An
// arc extended is its whole circle; a line extended is the infinite line. A
// circle is its own extension.
//
// The work is done in the plane of the (first) arc: its object coordinate
// system, where the arc's angles are measured. Points go back to LISP in
// world coordinates, as a list ordered along the first object (from its
// start); nil when there is none.
//
// Exact cases: circles that touch give their one point of contact, and a
// line that touches a circle its one point, not two points a rounding apart.
// Two arcs of one circle meet along their overlap: its end points are the
// answer (nil when two whole circles coincide, which meet everywhere).
#include <algorithm>
#include <cmath>
#include <vector>

#include "frame/implementations.h"
#include "frame/value_list.h"

namespace vantry::lispfn {
namespace {

using frame::ArgList;

constexpr double kTwoPi = 6.283185307179586;

// An arc or a circle, in the plane of its own normal.
struct PlaneArc {
  AcGeVector3d normal;
  AcGePoint3d center;  // in the plane's coordinates; z is the elevation
  double radius = 0, start = 0, sweep = kTwoPi;
  bool whole = true;  // a circle
};

// A line in the same plane's coordinates.
struct PlaneLine {
  AcGePoint3d from, to;
};

enum class Read { kOk, kMissing, kWrongType, kBadData };

int statusOf(Read r) {
  return r == Read::kBadData ? 3 : 2;
}

double norm2pi(double a) {
  a = std::fmod(a, kTwoPi);
  return a < 0 ? a + kTwoPi : a;
}

Read readArc(resbuf *&cur, PlaneArc &arc) {
  if (!cur) return Read::kMissing;
  AcDbObjectId id;
  if (!frame::readObjectId(cur, id)) return Read::kWrongType;
  AcDbObjectPointer<AcDbEntity> ent(id, AcDb::kForRead);
  if (ent.openStatus() != Acad::eOk) return Read::kBadData;
  AcGePoint3d center;
  if (const AcDbArc *a = AcDbArc::cast(ent.object())) {
    arc.normal = a->normal();
    center = a->center();
    arc.radius = a->radius();
    arc.start = norm2pi(a->startAngle());
    arc.sweep = norm2pi(a->endAngle() - a->startAngle());
    if (arc.sweep == 0) arc.sweep = kTwoPi;
    arc.whole = false;
  } else if (const AcDbCircle *c = AcDbCircle::cast(ent.object())) {
    arc.normal = c->normal();
    center = c->center();
    arc.radius = c->radius();
  } else {
    return Read::kBadData;
  }
  if (!(arc.radius > 0)) return Read::kBadData;
  arc.center = center.transformBy(AcGeMatrix3d::worldToPlane(arc.normal));
  return Read::kOk;
}

// The line's end points in world coordinates.
Read readLine(resbuf *&cur, AcGePoint3d &from, AcGePoint3d &to) {
  if (!cur) return Read::kMissing;
  AcDbObjectId id;
  if (!frame::readObjectId(cur, id)) return Read::kWrongType;
  AcDbObjectPointer<AcDbLine> line(id, AcDb::kForRead);
  if (line.openStatus() != Acad::eOk) return Read::kBadData;
  from = line->startPoint();
  to = line->endPoint();
  if (from.distanceTo(to) == 0) return Read::kBadData;
  return Read::kOk;
}

// The optional extension mode, 0 to 3; nil stands for the default, 0.
Read readMode(resbuf *&cur, int &mode) {
  mode = 0;
  if (!cur) return Read::kOk;
  if (cur->restype == RTNIL) {
    cur = cur->rbnext;
    return Read::kOk;
  }
  if (cur->restype != RTSHORT && cur->restype != RTLONG) return Read::kWrongType;
  frame::readInteger(cur, mode);
  return mode >= 0 && mode <= 3 ? Read::kOk : Read::kBadData;
}

// A length tolerance for the sizes involved: drawings in millimetres and in
// metres both round at about the same relative place.
double lengthTol(double size) {
  return 1e-10 * std::max(1.0, size);
}

// The angle of a point of the arc's circle, from the arc's start, 0..2pi.
double angleFromStart(const PlaneArc &arc, double x, double y) {
  return norm2pi(std::atan2(y - arc.center.y, x - arc.center.x) - arc.start);
}

// Whether a point of the circle lies on the arc, its ends included within
// the tolerance (measured along the arc).
bool onArc(const PlaneArc &arc, double x, double y, double tol) {
  if (arc.whole) return true;
  double a = angleFromStart(arc, x, y);
  double slack = tol / arc.radius;
  return a <= arc.sweep + slack || a >= kTwoPi - slack;
}

AcGePoint3d endPoint(const PlaneArc &arc, bool atEnd) {
  double a = arc.start + (atEnd ? arc.sweep : 0);
  return {arc.center.x + arc.radius * std::cos(a), arc.center.y + arc.radius * std::sin(a), arc.center.z};
}

// A point found, with the parameter that orders it along the first object.
struct Hit {
  double order;
  AcGePoint3d p;
};

// Hands the points back in world coordinates, dropping repeats.
void returnHits(std::vector<Hit> hits, const AcGeVector3d &normal, double tol) {
  std::sort(hits.begin(), hits.end(), [](const Hit &a, const Hit &b) { return a.order < b.order; });
  AcGeMatrix3d toWorld = AcGeMatrix3d::planeToWorld(normal);
  frame::ResultChain chain;
  std::vector<AcGePoint3d> kept;
  for (const Hit &h : hits) {
    bool repeat = false;
    for (const AcGePoint3d &k : kept) repeat = repeat || k.distanceTo(h.p) <= tol;
    if (repeat) continue;
    kept.push_back(h.p);
  }
  if (kept.empty()) return;
  chain.add(RTLB);
  for (AcGePoint3d p : kept) {
    p.transformBy(toWorld);
    if (resbuf *rb = chain.add(RT3DPOINT)) {
      rb->resval.rpoint[0] = p.x;
      rb->resval.rpoint[1] = p.y;
      rb->resval.rpoint[2] = p.z;
    }
  }
  chain.add(RTLE);
  chain.returnToHost();
}

bool parallel(const AcGeVector3d &a, const AcGeVector3d &b) {
  AcGeVector3d u = a, v = b;
  u *= 1.0 / u.length();
  v *= 1.0 / v.length();
  return std::fabs(std::fabs(u.dotProduct(v)) - 1.0) <= 1e-12;
}

int arcArc(resbuf *&cur) {
  PlaneArc a, b;
  int mode;
  Read r;
  if ((r = readArc(cur, a)) != Read::kOk) return statusOf(r);
  if ((r = readArc(cur, b)) != Read::kOk) return statusOf(r);
  if ((r = readMode(cur, mode)) != Read::kOk) return statusOf(r);
  if (!parallel(a.normal, b.normal)) return 0;  // not in one plane: drafting never meets this
  // The second arc in the first one's plane. A reversed normal mirrors its
  // angles: take them back through the world.
  AcGeMatrix3d toA = AcGeMatrix3d::worldToPlane(a.normal);
  AcGePoint3d bc = b.center;
  bc.transformBy(AcGeMatrix3d::planeToWorld(b.normal)).transformBy(toA);
  if (!b.whole) {
    AcGePoint3d s = endPoint(b, false), e = endPoint(b, true);
    AcGeMatrix3d bToA = toA * AcGeMatrix3d::planeToWorld(b.normal);
    s.transformBy(bToA);
    e.transformBy(bToA);
    double sa = std::atan2(s.y - bc.y, s.x - bc.x), ea = std::atan2(e.y - bc.y, e.x - bc.x);
    bool same = a.normal.dotProduct(b.normal) > 0;
    b.start = norm2pi(same ? sa : ea);
  }
  b.center = bc;
  bool extendA = mode & 1, extendB = mode & 2;
  if (extendA) a.whole = true;
  if (extendB) b.whole = true;
  double tol = lengthTol(std::max({a.radius, b.radius, std::fabs(a.center.x), std::fabs(a.center.y),
                                   std::fabs(bc.x), std::fabs(bc.y)}));
  if (std::fabs(a.center.z - bc.z) > tol) return 0;  // parallel planes apart

  double dx = bc.x - a.center.x, dy = bc.y - a.center.y, d = std::hypot(dx, dy);
  std::vector<Hit> hits;
  auto keep = [&](double x, double y) {
    if (onArc(a, x, y, tol) && onArc(b, x, y, tol))
      hits.push_back({angleFromStart(a, x, y), {x, y, a.center.z}});
  };
  if (d <= tol && std::fabs(a.radius - b.radius) <= tol) {
    // One circle: the arcs meet along their overlap, bounded by end points.
    if (a.whole && b.whole) return 0;
    for (const PlaneArc *arc : {&a, &b}) {
      if (arc->whole) continue;
      for (bool atEnd : {false, true}) {
        AcGePoint3d p = endPoint(*arc, atEnd);
        keep(p.x, p.y);
      }
    }
  } else if (d > tol) {
    double sum = a.radius + b.radius, diff = std::fabs(a.radius - b.radius);
    if (d > sum + tol || d < diff - tol) return 0;
    double ux = dx / d, uy = dy / d;
    if (std::fabs(d - sum) <= tol || std::fabs(d - diff) <= tol) {
      // Touching: one point on the line of centres, on the side of the
      // larger circle's reach.
      double along = std::fabs(d - sum) <= tol ? a.radius : (a.radius >= b.radius ? a.radius : -a.radius);
      keep(a.center.x + ux * along, a.center.y + uy * along);
    } else {
      double along = (d * d + a.radius * a.radius - b.radius * b.radius) / (2 * d);
      double h = std::sqrt(std::max(0.0, a.radius * a.radius - along * along));
      double mx = a.center.x + ux * along, my = a.center.y + uy * along;
      keep(mx - uy * h, my + ux * h);
      keep(mx + uy * h, my - ux * h);
    }
  }
  returnHits(hits, a.normal, tol);
  return 0;
}

int arcLine(resbuf *&cur, bool lineFirst) {
  PlaneArc arc;
  AcGePoint3d from, to;
  int mode;
  Read r;
  if (lineFirst) {
    if ((r = readLine(cur, from, to)) != Read::kOk) return statusOf(r);
    if ((r = readArc(cur, arc)) != Read::kOk) return statusOf(r);
  } else {
    if ((r = readArc(cur, arc)) != Read::kOk) return statusOf(r);
    if ((r = readLine(cur, from, to)) != Read::kOk) return statusOf(r);
  }
  if ((r = readMode(cur, mode)) != Read::kOk) return statusOf(r);
  bool extendArc = mode & (lineFirst ? 2 : 1), extendLine = mode & (lineFirst ? 1 : 2);
  if (extendArc) arc.whole = true;

  AcGeMatrix3d toPlane = AcGeMatrix3d::worldToPlane(arc.normal);
  from.transformBy(toPlane);
  to.transformBy(toPlane);
  double len = from.distanceTo(to);
  double ux = (to.x - from.x) / len, uy = (to.y - from.y) / len, uz = (to.z - from.z) / len;
  double tol = lengthTol(std::max({arc.radius, len, std::fabs(from.x), std::fabs(from.y), std::fabs(to.x),
                                   std::fabs(to.y), std::fabs(arc.center.x), std::fabs(arc.center.y)}));
  std::vector<Hit> hits;
  // t is the distance along the line from its start.
  auto keep = [&](double t) {
    if (!extendLine && (t < -tol || t > len + tol)) return;
    double x = from.x + ux * t, y = from.y + uy * t;
    if (onArc(arc, x, y, tol)) hits.push_back({t, {x, y, arc.center.z}});
  };
  double rise = to.z - from.z;
  if (std::fabs(rise) > tol || std::fabs(from.z - arc.center.z) > tol) {
    // Not in the arc's plane: at most the one point where it crosses it.
    if (std::fabs(rise) <= tol) return 0;
    double t = (arc.center.z - from.z) / uz;
    double x = from.x + ux * t, y = from.y + uy * t;
    if (std::fabs(std::hypot(x - arc.center.x, y - arc.center.y) - arc.radius) <= tol) keep(t);
  } else {
    // In the plane: the foot of the centre on the line, then either side.
    double flat = std::hypot(ux, uy);
    double fx = ux / flat, fy = uy / flat;
    double tFoot = (arc.center.x - from.x) * fx + (arc.center.y - from.y) * fy;
    double footX = from.x + fx * tFoot, footY = from.y + fy * tFoot;
    double h = std::hypot(arc.center.x - footX, arc.center.y - footY);
    if (h > arc.radius + tol) return 0;
    // Distances in the plane are distances along the line, up to the line's
    // negligible rise.
    if (std::fabs(h - arc.radius) <= tol) {
      keep(tFoot / flat);
    } else {
      double s = std::sqrt(arc.radius * arc.radius - h * h);
      keep((tFoot - s) / flat);
      keep((tFoot + s) / flat);
    }
  }
  returnHits(hits, arc.normal, tol);
  return 0;
}

}  // namespace

int ol_ol_intersectArcArc() {
  acedRetNil();
  ArgList args;
  return arcArc(args.cursor());
}

int ol_ol_intersectArcLine() {
  acedRetNil();
  ArgList args;
  return arcLine(args.cursor(), false);
}

int ol_ol_intersectLineArc() {
  acedRetNil();
  ArgList args;
  return arcLine(args.cursor(), true);
}

}  // namespace vantry::lispfn
