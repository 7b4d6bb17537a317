// ol_ol-drawTripleElbow: an elbow where run a turns into run b.
//
// Run a comes in along frame A's x and run b leaves along frame B's x; their centre lines (through
// a's justified start and b's justified end) meet at the corner. The elbow sits at the corner and
// reaches back along each run by its tangent length T (plus a size transition's length where one
// comes with it); the straight duct beyond is the caller's. dHeadLength is what to cut from the
// end of run a and dTailLength what to cut from the start of run b, each measured from that run's
// justified end, so that a straight piece cut back by them meets the elbow face to face. For
// centred runs that meet at one point they are T (+ the transition); a justified pair's centre
// lines meet elsewhere than their ends, and the difference is included. An elbow that does not
// fit within its runs (it would reach behind the start of a or past the end of b) is not built.
//
//   radius elbow:   centre-line radius R = ratio x the section's size s in the bend plane,
//                   T = R tan(angle / 2); the arc alone, tangent point to tangent point.
//   square elbow:   mitred, with collars: T = s tan(angle / 2), so the throat wall runs s/2
//                   tan(angle / 2) on each side of the mitre.
//   cable tray:     a flat one is the mitred tray with its throat rounded by R - s/2 over the same
//                   T as the radius elbow plus a collar of 0.05 s; one that climbs or falls
//                   stays a radius elbow.
//
// The elbow has one size throughout: a's section (a square elbow falls back to b's when a's does
// not fit the mitre; the pairings below). When b's size (turned into the elbow's orientation) or
// shape differs from the elbow's, a second solid carries a 15 degree transition for the change,
// named "en2": from the elbow's end to b's size along b, or, for a square elbow built at b's size,
// from a's size to the elbow's start along a (dHeadLength then includes its length). Without a
// change, "en2" is there with nil.
#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "ducts/fitting.h"
#include "ducts/frame.h"
#include "frame/implementations.h"
#include "frame/value_list.h"

namespace vantry::lispfn {
namespace {

using namespace ducts;

// A flat tray elbow's straight collar beyond its rounded throat, as a share of the tray's width.
constexpr double kTrayCollar = 0.05;

struct Size {
  double width = 0, depth = 0;
};

bool sameSize(const Size &p, const Size &q, bool rect) {
  auto eq = [](double u, double v) {
    return std::abs(u - v) <= 1e-9 * std::max({1.0, std::abs(u), std::abs(v)});
  };
  return eq(p.width, q.width) && (!rect || eq(p.depth, q.depth));
}

// Where the line through p along u meets the line through q along v: false when they are
// parallel or pass each other by more than a hair.
bool corner(const AcGePoint3d &p, const AcGeVector3d &u, const AcGePoint3d &q, const AcGeVector3d &v,
            AcGePoint3d &out) {
  AcGeVector3d w = p - q;
  double b = u.dotProduct(v), d = u.dotProduct(w), e = v.dotProduct(w);
  double den = 1 - b * b;
  if (den < 1e-12) return false;
  double s = (b * e - d) / den, t = (e - b * d) / den;
  AcGePoint3d c1 = p + s * u, c2 = q + t * v;
  double scale = std::max(
      {1.0, std::abs(p.x), std::abs(p.y), std::abs(p.z), std::abs(q.x), std::abs(q.y), std::abs(q.z)});
  if (c1.distanceTo(c2) > 1e-6 * scale) return false;
  out = c1 + 0.5 * (c2 - c1);
  return true;
}

struct Elbow {
  DuctRun a, b;
  FittingFrame fa, fb;
  bool square = false, cableTray = false, convert = false;
  double ratio = 0;
  int option = 0;
};

struct Built {
  SolidPtr elbow, transition;
  double head = 0, tail = 0;
  std::string why;  // when nothing is built
};

bool fail(Built &out, const char *why) {
  out.why = why;
  return false;
}

// The elbow step. On success out holds the new solids (not yet in the drawing); on failure out.why
// says why.
bool buildElbow(const Elbow &in, Built &out) {
  const DuctRun &a = in.a, &b = in.b;
  const FittingFrame &fa = in.fa, &fb = in.fb;
  AcGePoint3d start = justifiedStart(a, &fa, in.convert), end = justifiedEnd(b, &fb, in.convert);
  double angle = fa.x().angleTo(fb.x());
  if (angle < 1e-6 || angle > M_PI - 1e-6) return fail(out, "the elbow's runs lie in one line");
  AcGePoint3d c;
  if (!corner(start, fa.x(), end, fb.x(), c))
    return fail(out, "the centre lines of the elbow's runs do not meet");
  AcGeVector3d n = fa.x().crossProduct(fb.x()).normal();

  bool rect = isRectangular(a);
  Size own{std::abs(a.width), std::abs(a.depth)};
  // The section's size in the bend plane, and a's section turned through the bend, in frame B.
  bool widthInPlane = !rect || std::abs(n.dotProduct(fa.z())) >= std::abs(n.dotProduct(fa.y()));
  double s = widthInPlane ? own.width : own.depth;
  AcGeVector3d turnedY = fa.y();
  turnedY.rotateBy(angle, n);
  double alongY = std::abs(turnedY.dotProduct(fb.y())), alongZ = std::abs(turnedY.dotProduct(fb.z()));
  // A turn in plan and in elevation at once leaves a's sides askew to b's: the section would roll.
  if (rect && std::min(alongY, alongZ) > 1e-6)
    return fail(out, "the elbow turns in plan and in elevation at once (a rolled elbow)");
  bool aligned = alongY >= alongZ;
  Size ownAtEnd = aligned ? own : Size{own.depth, own.width};
  const Size bSize{std::abs(b.width), std::abs(b.depth)};  // measured in frame B, as ownAtEnd
  Size startSize = own, endSize = ownAtEnd;                // the elbow's end sections, in frames A and B

  double ratio = in.ratio;
  if (ratio > 0 && ratio <= 0.5) ratio = 0.501;
  double tanHalf = std::tan(angle / 2);
  double reach;
  SolidPtr solid = newSolid();
  if (!solid) return fail(out, "");
  bool ok;
  if (!in.square) {
    if (ratio == 0) ratio = 1.5;
    reach = ratio * s * tanHalf;
    AcGePoint3d p0 = c - reach * fa.x(), p1 = c + reach * fb.x();
    ok = solid->addRadiusElbow(p0, own.width, own.depth, a.extraThicknessA, a.extraThicknessB, p1,
                               ownAtEnd.width, ownAtEnd.depth, fa.data(), fb.data(), shapeFamily(a) == L"RC",
                               ratio, false, in.option, true);
    bool flat =
        a.startPoint.z == a.endPoint.z && a.endPoint.z == b.startPoint.z && b.startPoint.z == b.endPoint.z;
    if (ok && in.cableTray && flat) {
      // The tray keeps a short straight collar beyond the rounded throat, which the rounding needs.
      solid->clearBodies();
      reach += kTrayCollar * s;
      ok = solid->addCableTraySquareRadiusElbow(c - reach * fa.x(), own.width, own.depth, c + reach * fb.x(),
                                                fa.data(), fb.data(), ratio * s - s / 2, in.option);
    }
  } else {
    // The square elbow has one size throughout. The pairings, first fit wins: a's section with its
    // sides as they are at the end, or swapped (which of the two fits shows how the frames turn the
    // section); then b's section the same two ways (a's section may not fit at all, say a run of no
    // size). Swapping means nothing for a round section; b's is tried only when its shape is a's.
    struct Pairing {
      Size start, end;
    };
    std::vector<Pairing> pairings{{own, own}};
    if (rect) pairings.push_back({own, {own.depth, own.width}});
    if (rect == isRectangular(b)) {
      pairings.push_back({bSize, bSize});
      if (rect) pairings.push_back({{bSize.depth, bSize.width}, bSize});
    }
    AModeler::Point3d heel, throat;
    AcGePoint3d mitreCorner;
    ok = false;
    reach = 0;
    for (const Pairing &p : pairings) {
      reach = (widthInPlane ? p.start.width : p.start.depth) * tanHalf;
      AcGePoint3d p0 = c - reach * fa.x(), p1 = c + reach * fb.x();
      if (!solid->addSquareElbowPrep(p0, p.start.width, p.start.depth, p1, p.end.width, p.end.depth,
                                     fa.data(), fb.data(), rect, heel, throat, mitreCorner, true, 1e-6))
        continue;
      ok = solid->addSquareElbow(p0, p.start.width, p.start.depth, p1, p.end.width, p.end.depth, fa.data(),
                                 fb.data(), rect, heel, throat, mitreCorner, in.option);
      if (ok) startSize = p.start, endSize = p.end;
      break;
    }
  }
  if (!ok) return fail(out, "");  // the solid refused: nil with no message

  // The elbow has one size throughout; a second solid changes the size where the elbow's differs
  // from a run's: before the elbow along a when it was built at b's size, else after it along b.
  double reachA = reach, reachB = reach;
  SolidPtr change;
  auto changeSize = [&](const AcGePoint3d &from, bool fromRect, const Size &fromSize, bool toRect,
                        const Size &toSize, const FittingFrame &f) {
    double length =
        transitionLength(fromSize.width, fromSize.depth, fromRect, toSize.width, toSize.depth, toRect, 15.0);
    SolidPtr t = length > 0 ? newSolid() : nullptr;
    if (!t || !t->addTransition(from, fromRect, fromSize.width, fromSize.depth, from + length * f.x(), toRect,
                                toSize.width, toSize.depth, f.data(), f.data(), in.option))
      return 0.0;
    change = std::move(t);
    return length;
  };
  if (!sameSize(own, startSize, rect)) {
    double before =
        transitionLength(own.width, own.depth, rect, startSize.width, startSize.depth, rect, 15.0);
    reachA += changeSize(c - (reach + before) * fa.x(), rect, own, rect, startSize, fa);
  } else if (!sameSize(endSize, bSize, rect) || rect != isRectangular(b)) {
    reachB += changeSize(c + reach * fb.x(), rect, endSize, isRectangular(b), bSize, fb);
  }
  // Measured from the runs' own (justified) ends, which a justified pair's corner lies off.
  AcGePoint3d endA = justifiedEnd(a, &fa, in.convert), startB = justifiedStart(b, &fb, in.convert);
  double head = (endA - c).dotProduct(fa.x()) + reachA, tail = (c - startB).dotProduct(fb.x()) + reachB;
  double tol = 1e-9 * std::max({1.0, head, tail});
  if (head > (endA - start).dotProduct(fa.x()) + tol)
    return fail(out, "the elbow reaches behind the start of its first run");
  if (tail > (end - startB).dotProduct(fb.x()) + tol)
    return fail(out, "the elbow reaches past the end of its second run");
  out.elbow = std::move(solid);
  out.transition = std::move(change);
  out.head = head;
  out.tail = tail;
  return true;
}

}  // namespace

// (ol_ol-drawTripleElbow convert option [type] square radius a b)
//   -> (("en1" . elbow) ("en2" . transition or nil) ("dHeadLength" . T [+ L]) ("dTailLength" . T [+ L]))
//      or nil
int ol_ol_drawTripleElbow() {
  acedRetNil();
  frame::ArgList args;
  resbuf *&cur = args.cursor();
  Elbow e;
  if (!frame::readBoolean(cur, e.convert) || !frame::readInteger(cur, e.option)) return 2;
  std::wstring type;
  if (frame::readString(cur, type) && type == L"CABLETRAY") {
    e.cableTray = true;
  } else if (!frame::readBoolean(cur, e.square)) {
    return 2;
  }
  double radius = 0;
  if (!frame::readReal(cur, radius) || !readDuctRun(cur, e.a) || !readDuctRun(cur, e.b)) return 2;
  if (!finiteNumbers({radius}) || !finiteRuns({&e.a, &e.b})) return 3;
  e.ratio = radius / e.a.width;
  e.fa = computeFrame(e.a, &e.b, e.convert);
  e.fb = computeFrame(e.b, &e.a, e.convert);

  Built built;
  if (!buildElbow(e, built)) {
    if (!built.why.empty()) tellNoSolid(built.why.c_str());
    return 0;
  }
  ads_name elbowName, changeName;
  bool haveChange = false;
  if (!addToDrawing(std::move(built.elbow), elbowName)) return 0;
  if (built.transition) haveChange = addToDrawing(std::move(built.transition), changeName);
  frame::ResultChain result;
  result.add(RTLB);
  result.addPair(L"en1", elbowName);
  result.addPair(L"en2", haveChange ? changeName : nullptr);
  result.addPair(L"dHeadLength", built.head);
  result.addPair(L"dTailLength", built.tail);
  result.add(RTLE);
  result.returnToHost();
  return 0;
}

}  // namespace vantry::lispfn
