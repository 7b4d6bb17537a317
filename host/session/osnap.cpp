// Object snaps: the osnap function and the snaps commands apply to points.
//
// The entities the aperture box around the pick touches (a crossing
// selection of APERTURE pixels of the headless view) offer their snap points
// for each mode asked; the one nearest the pick wins. Curves are taken as
// their line and arc segments, so a polyline snaps at every vertex and on
// every segment. Modes and their OSMODE bits:
//   END 1  segment ends (not of circles)      MID 2   segment midpoints
//   CEN 4  arc and circle centres             NOD 8   POINT entities
//   QUA 16 quadrants on arcs and circles      INT 32  intersections of two entities
//   INS 64 insertion points (blocks, texts)   PER 128 foot of the perpendicular from the last point
//   TAN 256 tangent points from the last point  NEA 512 nearest point
//   GCEN 1024 centre of a closed polyline's vertices
//   APP 2048 intersections in plan (the headless view is a plan view: as INT)
//   EXT 4096 on a line's extension beyond its ends
//   PAR 8192 on the line through the last point parallel to a line
//   NON (none, OFF) no snap.
#include <cmath>

#include "common/text.h"
#include "db/db.h"
#include "db/lisp_data.h"
#include "session/internal.h"
#include "session/session.h"

namespace vantry::host {
namespace {

using lisp::Interp;
using lisp::Value;
using Seg = CurvePath::Seg;

struct Mode {
  const wchar_t *name;
  int bit;
};
const Mode kModes[] = {{L"ENDPOINT", 1},      {L"MIDPOINT", 2},      {L"CENTER", 4},         {L"NODE", 8},
                       {L"QUADRANT", 16},     {L"INTERSECTION", 32}, {L"INSERTION", 64},     {L"PERPENDICULAR", 128},
                       {L"TANGENT", 256},     {L"NEAREST", 512},     {L"GCENTER", 1024},     {L"APPARENT", 2048},
                       {L"EXTENSION", 4096},  {L"PARALLEL", 8192},   {L"NONE", 0},           {L"OFF", 0}};

double angleOn(const Seg &s, const AcGePoint3d &q) {
  AcGeVector3d d = q - s.c;
  return std::atan2(d.dotProduct(s.v), d.dotProduct(s.u));
}
// Whether a point of the segment's circle lies on the arc itself.
bool onArc(const Seg &s, const AcGePoint3d &q) {
  if (std::fabs(s.sweep) >= 2 * M_PI - 1e-12) return true;
  double a = angleOn(s, q) - s.a0;
  if (s.sweep < 0) a = -a;
  a = std::fmod(a, 2 * M_PI);
  if (a < 0) a += 2 * M_PI;
  return a <= std::fabs(s.sweep) + 1e-9;
}
bool onLine(const Seg &s, const AcGePoint3d &q) {
  AcGeVector3d d = s.p1 - s.p0;
  double len2 = d.dotProduct(d);
  if (len2 == 0) return false;
  double t = (q - s.p0).dotProduct(d) / len2;
  return t >= -1e-9 && t <= 1 + 1e-9;
}
bool onSeg(const Seg &s, const AcGePoint3d &q) {
  return s.arc ? onArc(s, q) : onLine(s, q);
}

// Intersections in plan of the full line or circle of two segments.
std::vector<AcGePoint3d> meet(const Seg &a, const Seg &b) {
  std::vector<AcGePoint3d> out;
  auto lineCircle = [&](const Seg &l, const Seg &c) {
    double dx = l.p1.x - l.p0.x, dy = l.p1.y - l.p0.y;
    double fx = l.p0.x - c.c.x, fy = l.p0.y - c.c.y;
    double A = dx * dx + dy * dy, B = 2 * (fx * dx + fy * dy), C = fx * fx + fy * fy - c.r * c.r;
    double disc = B * B - 4 * A * C;
    if (A == 0 || disc < -1e-12) return;
    disc = std::sqrt(std::max(0.0, disc));
    for (double t : {(-B - disc) / (2 * A), (-B + disc) / (2 * A)})
      out.push_back(l.p0 + (l.p1 - l.p0) * t);
  };
  if (!a.arc && !b.arc) {
    double d1x = a.p1.x - a.p0.x, d1y = a.p1.y - a.p0.y, d2x = b.p1.x - b.p0.x, d2y = b.p1.y - b.p0.y;
    double den = d1x * d2y - d1y * d2x;
    if (std::fabs(den) < 1e-12) return out;
    double t = ((b.p0.x - a.p0.x) * d2y - (b.p0.y - a.p0.y) * d2x) / den;
    out.push_back(a.p0 + (a.p1 - a.p0) * t);
  } else if (!a.arc) {
    lineCircle(a, b);
  } else if (!b.arc) {
    lineCircle(b, a);
  } else {
    double dx = b.c.x - a.c.x, dy = b.c.y - a.c.y, d = std::hypot(dx, dy);
    if (d == 0 || d > a.r + b.r + 1e-12 || d < std::fabs(a.r - b.r) - 1e-12) return out;
    double along = (a.r * a.r - b.r * b.r + d * d) / (2 * d);
    double h = std::sqrt(std::max(0.0, a.r * a.r - along * along));
    double mx = a.c.x + along * dx / d, my = a.c.y + along * dy / d;
    out.push_back(AcGePoint3d(mx + h * dy / d, my - h * dx / d, a.c.z));
    out.push_back(AcGePoint3d(mx - h * dy / d, my + h * dx / d, a.c.z));
  }
  return out;
}

struct Touched {
  AcDbObjectId id;
  std::vector<Seg> segs;
  bool circle = false;
};

// The entities in the aperture around pick, by a crossing selection.
std::vector<AcDbObjectId> inAperture(Interp &in, const AcGePoint3d &pick) {
  resbuf rb{};
  double aperture = acedGetVar(L"APERTURE", &rb) == RTNORM && rb.restype == RTSHORT ? rb.resval.rint : 10;
  double viewsize = acedGetVar(L"VIEWSIZE", &rb) == RTNORM && rb.restype == RTREAL ? rb.resval.rreal : 100;
  double screen = 800;
  if (acedGetVar(L"SCREENSIZE", &rb) == RTNORM && rb.restype == RTPOINT && rb.resval.rpoint[1] > 0)
    screen = rb.resval.rpoint[1];
  double h = aperture * viewsize / screen;
  lisp::ListBuilder lo, hi;
  lo.add(Value::real(pick.x - h)), lo.add(Value::real(pick.y - h));
  hi.add(Value::real(pick.x + h)), hi.add(Value::real(pick.y + h));
  Value ssArgs[3] = {lisp::makeString(L"_C"), lo.take(), hi.take()};
  Value ss = in.apply(Value(in.intern(L"SSGET")), ssArgs, 3);
  std::vector<AcDbObjectId> out;
  if (ss.isNil()) return out;
  Value count = in.apply(Value(in.intern(L"SSLENGTH")), &ss, 1);
  for (int32_t i = 0; i < (count.isNumber() ? int32_t(count.number()) : 0); ++i) {
    Value nameArgs[2] = {ss, Value::integer(i)};
    AcDbObjectId id;
    if (idFromValue(in.apply(Value(in.intern(L"SSNAME")), nameArgs, 2), id)) out.push_back(id);
  }
  return out;
}

// A point group of an entity kept as its groups (a POINT's 10, a TEXT's 10).
bool verbatimPoint(const AcDbEntity *ent, const wchar_t *type, AcGePoint3d &p) {
  auto *v = VerbatimEntity::cast(ent);
  if (!v || text::upcase(v->dxfType()) != type) return false;
  for (const AcDbDxfFiler::Item &g : v->groups())
    if (g.code == 10 && g.dims >= 2) {
      p = AcGePoint3d(g.real[0], g.real[1], g.dims == 3 ? g.real[2] : 0.0);
      return true;
    }
  return false;
}

}  // namespace

int osnapBits(const std::wstring &modes) {
  std::wstring all = text::upcase(modes);
  int bits = 0;
  size_t start = 0;
  while (start <= all.size()) {
    size_t end = all.find(L',', start);
    if (end == std::wstring::npos) end = all.size();
    std::wstring one = all.substr(start, end - start);
    start = end + 1;
    while (!one.empty() && (one[0] == L'_' || one[0] == L' ')) one.erase(0, 1);
    while (!one.empty() && one.back() == L' ') one.pop_back();
    if (one.empty()) continue;
    if (one == L"NON" || one == L"NONE" || one == L"OFF") continue;
    if (one == L"GCE" || one == L"GCEN") {
      bits |= 1024;
      continue;
    }
    const Mode *found = nullptr;
    if (one.size() >= 3)
      for (const Mode &m : kModes)
        if (m.bit && std::wstring_view(m.name).starts_with(one.substr(0, 3)) &&
            std::wstring_view(m.name).starts_with(one))
          found = &m;
    if (!found) return -1;
    bits |= found->bit;
  }
  return bits;
}

bool osnapPoint(Interp &in, const AcGePoint3d &pick, int bits, const AcGePoint3d *from, AcGePoint3d &out) {
  if (!(bits & 16383)) return false;
  std::vector<Touched> near;
  for (AcDbObjectId id : inAperture(in, pick)) near.push_back(Touched{id, {}, false});
  bool found = false;
  auto consider = [&](const AcGePoint3d &p) {
    if (!found || p.distanceTo(pick) < out.distanceTo(pick)) out = p, found = true;
  };
  for (Touched &t : near) {
    AcDbEntity *ent = nullptr;
    if (acdbOpenObject(ent, t.id, AcDb::kForRead) != Acad::eOk) continue;
    AcGePoint3d p;
    if (auto *cv = AcDbCurve::cast(ent)) {
      t.segs = CurvePath(*cv).segments();
      t.circle = AcDbCircle::cast(ent) != nullptr;
      if ((bits & 512) && cv->getClosestPointTo(pick, p) == Acad::eOk) consider(p);
      if ((bits & 1024) && cv->isClosed() && !t.circle && !t.segs.empty()) {
        AcGeVector3d sum(0, 0, 0);
        for (const Seg &s : t.segs) sum += s.p0.asVector();
        consider(AcGePoint3d::kOrigin + sum / double(t.segs.size()));
      }
    }
    if (bits & 64) {
      if (auto *ref = AcDbBlockReference::cast(ent)) consider(ref->position());
      if (auto *mt = AcDbMText::cast(ent)) consider(mt->location());
      if (verbatimPoint(ent, L"TEXT", p)) consider(p);
    }
    if ((bits & 8) && verbatimPoint(ent, L"POINT", p)) consider(p);
    ent->close();
    for (const Seg &s : t.segs) {
      if ((bits & 1) && !t.circle) consider(s.p0), consider(s.p1);
      if ((bits & 2) && !t.circle) consider(CurvePath::segPoint(s, 0.5));
      if (s.arc && (bits & 4)) consider(s.c);
      if (s.arc && (bits & 16))
        for (AcGeVector3d d : {AcGeVector3d(s.r, 0, 0), AcGeVector3d(0, s.r, 0), AcGeVector3d(-s.r, 0, 0),
                               AcGeVector3d(0, -s.r, 0)})
          if (onArc(s, s.c + d)) consider(s.c + d);
      if (!s.arc && (bits & 4096)) {
        // The line's extension: the foot of the pick on the full line, off the segment.
        AcGeVector3d d = s.p1 - s.p0;
        if (d.length() > 0) {
          AcGePoint3d q = s.p0 + d * ((pick - s.p0).dotProduct(d) / d.dotProduct(d));
          if (!onLine(s, q)) consider(q);
        }
      }
      if (!from) continue;
      if (bits & 128) {
        if (s.arc) {
          AcGeVector3d d = *from - s.c;
          d.z = 0;
          if (d.length() > 0)
            for (double k : {1.0, -1.0}) {
              AcGePoint3d q = s.c + d.normal() * (k * s.r);
              if (onArc(s, q)) consider(q);
            }
        } else {
          AcGeVector3d d = s.p1 - s.p0;
          if (d.length() > 0) {
            AcGePoint3d q = s.p0 + d * ((*from - s.p0).dotProduct(d) / d.dotProduct(d));
            if (onLine(s, q)) consider(q);
          }
        }
      }
      if ((bits & 256) && s.arc) {
        double dx = from->x - s.c.x, dy = from->y - s.c.y, d = std::hypot(dx, dy);
        if (d > s.r) {
          double base = std::atan2(dy, dx), spread = std::acos(s.r / d);
          for (double a : {base + spread, base - spread}) {
            AcGePoint3d q(s.c.x + s.r * std::cos(a), s.c.y + s.r * std::sin(a), s.c.z);
            if (onArc(s, q)) consider(q);
          }
        }
      }
      if ((bits & 8192) && !s.arc) {
        AcGeVector3d d = s.p1 - s.p0;
        if (d.length() > 0) consider(*from + d * ((pick - *from).dotProduct(d) / d.dotProduct(d)));
      }
    }
  }
  if (bits & (32 | 2048))
    for (size_t i = 0; i < near.size(); ++i)
      for (size_t j = i + 1; j < near.size(); ++j)
        for (const Seg &a : near[i].segs)
          for (const Seg &b : near[j].segs)
            for (const AcGePoint3d &q : meet(a, b))
              if (onSeg(a, q) && onSeg(b, q)) consider(q);
  return found;
}

namespace {

// (osnap point modes): the snap point nearest to point among the modes
// named, on what the aperture box around it touches; nil when none, or
// when a mode is not a snap mode. Perpendicular, tangent and parallel
// snaps start from LASTPOINT.
Value osnapFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 2, 2);
  std::vector<Value> xyz = args[0].isCons() ? lisp::listToVector(args[0]) : std::vector<Value>{};
  bool ok = xyz.size() == 2 || xyz.size() == 3;
  for (const Value &c : xyz) ok = ok && c.isNumber();
  if (!ok) in.badArgType(L"2D/3D point", args[0]);
  AcGePoint3d pick(xyz[0].number(), xyz[1].number(), xyz.size() == 3 ? xyz[2].number() : 0.0);
  int bits = osnapBits(lisp::strArg(in, args[1]));
  if (bits <= 0) return Value();
  resbuf rb{};
  AcGePoint3d last;
  bool haveLast = acedGetVar(L"LASTPOINT", &rb) == RTNORM && rb.restype == RT3DPOINT;
  if (haveLast) last = AcGePoint3d(rb.resval.rpoint[0], rb.resval.rpoint[1], rb.resval.rpoint[2]);
  AcGePoint3d p;
  if (!osnapPoint(in, pick, bits, haveLast ? &last : nullptr, p)) return Value();
  lisp::ListBuilder out;
  out.add(Value::real(p.x));
  out.add(Value::real(p.y));
  out.add(Value::real(p.z));
  return out.take();
}

}  // namespace

void installOsnapLisp(Interp &in) {
  in.defineSubr(L"osnap", osnapFn);
}

}  // namespace vantry::host
