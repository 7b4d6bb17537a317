// ol_ol-drawTripleTakeoff: branches taken off the side of a main duct.
//
// Runs: a is the main duct up to the junction (its end), b the main duct on from there, c the
// branch, d a second branch (a cross) or a run of no length for none. Each branch starts on the
// main's centre line and leaves through the main's wall:
//
//         main a            main b
//   ===========|=====J=====|===========      en1: the main through the junction, a's size to b's
//              |  |shoe|   |                 en2: the collars, cut flush with the main's wall
//                 |    |                          (sliceLast), each reaching collarLength beyond
//                 | c  |                          the wall on every side
//
// A collar leaves through the wall its direction faces most (a side, the top or the bottom of a
// rectangular main; for a round main, the plane where the collar's sides meet the round wall). A
// branch that leaves aslant crosses the wall over a stretch of its length; its collar runs on until
// its farthest side is collarLength past the wall, so its end face lies whole outside the main.
// With `shoe` the collar widens towards the main by half its length on each side (a bellmouth), so
// at the wall it is collarLength wider than the branch; a round shoe no wider than the wall it sits
// on. A collarLength <= 0 means half the branch's larger side. The main piece reaches past the
// collars' footprints by a quarter of the largest branch's size, from a's centre line to b's.
// Lengths returned: dHeadLength the main piece's reach back from a's justified end, dTailLength1
// its reach on from b's justified start, dTailLength2 and dTailLength3 each collar's length from
// its branch's justified start (0 without a second branch).
#include <algorithm>
#include <cmath>

#include "ducts/fitting.h"
#include "ducts/frame.h"
#include "frame/implementations.h"
#include "frame/value_list.h"

namespace vantry::lispfn {
namespace {

using namespace ducts;

struct Main {
  const DuctRun *run;
  const FittingFrame *frame;
  AcGePoint3d junction;
};

struct Footprint {
  double back = 0, forward = 0;  // how far the collar reaches along the main on either side of J
};

// Adds one branch's collar to solid; reach receives its length from its start. Null on success, else
// why not: the reason to tell, or "" when the solid itself refused (told nothing).
const char *addCollar(const Main &m, const DuctRun &br, const FittingFrame &fb, bool convert, bool shoe,
                      double collar, int option, ol_hvacSolid *solid, double &reach, Footprint &foot) {
  const AcGeVector3d &x = fb.x(), &xm = m.frame->x();
  AcGePoint3d s = justifiedStart(br, &fb, convert);
  AcGeVector3d across = x - x.dotProduct(xm) * xm;
  double sinAngle = across.length();
  if (sinAngle < 1e-6) return "a takeoff branch runs along the main";
  across = across / sinAngle;
  // The wall the collar leaves by: its normal, its distance from the main's centre line, and the
  // wall's size across the main (which a round shoe's mouth must stay within).
  AcGeVector3d wall;
  double h, wallSize;
  const bool rect = isRectangular(br);
  double w = std::abs(br.width), d = rect ? std::abs(br.depth) : w;
  if (isRectangular(*m.run)) {
    double cy = across.dotProduct(m.frame->y()), cz = across.dotProduct(m.frame->z());
    bool side = std::abs(cy) >= std::abs(cz);
    wall = side ? (cy < 0 ? -1.0 : 1.0) * m.frame->y() : (cz < 0 ? -1.0 : 1.0) * m.frame->z();
    h = (side ? std::abs(m.run->width) : std::abs(m.run->depth)) / 2;
    wallSize = side ? std::abs(m.run->depth) : std::abs(m.run->width);
  } else {
    double r = std::abs(m.run->width) / 2, half = std::min(w / 2, 0.999 * r);
    wall = across;
    h = std::sqrt(r * r - half * half);
    wallSize = 2 * r;
  }
  double facing = x.dotProduct(wall);
  if (facing < 1e-6) return "a takeoff branch leaves backwards into the main";
  AcGePoint3d onWall = m.junction + h * wall;
  double t = (onWall - s).dotProduct(wall) / facing;
  if (t < 0) return "a takeoff branch starts outside the main";
  if (collar <= 0) collar = std::max(w, d) / 2;

  // The collar's size along the main grows with the shoe: collar wider at the wall, a round one no
  // wider than the wall it sits on.
  bool widthAlongMain = std::abs(fb.y().dotProduct(xm)) >= std::abs(fb.z().dotProduct(xm)) || !rect;
  double grow = shoe ? collar : 0;
  if (!rect) grow = std::max(0.0, std::min(grow, wallSize - w));
  double mw = widthAlongMain ? w + grow : w, md = widthAlongMain ? d : d + grow;  // the mouth, at the wall
  // A branch that leaves the wall aslant crosses it over a stretch of its length: its sides reach
  // past the wall from where they cross it, each by the collar's length at least, so that the end
  // face lies whole outside the main. The mouth's corner farthest out crosses spread beyond t.
  double spread =
      rect ? (mw / 2 * std::abs(fb.y().dotProduct(wall)) + md / 2 * std::abs(fb.z().dotProduct(wall)))
           : mw / 2 * std::sqrt(std::max(0.0, 1 - facing * facing));
  spread /= facing;
  reach = t + spread + collar;
  AcGePoint3d e = s + reach * x;
  // The size runs from the mouth, where the centre line crosses the wall, to the branch's own at e;
  // the loft starts at s, inside the main, at that taper carried on (the slice cuts that part away).
  double taper = reach - t, k = reach / taper;
  double sw = w + (mw - w) * k, sd = d + (md - d) * k;
  if (!solid->addTransition(s, rect, sw, sd, e, rect, w, d, fb.data(), fb.data(), option) ||
      !solid->sliceLast(onWall, onWall + xm, onWall + wall.crossProduct(xm), e))
    return "";  // the solid refused: nil with no message (its reason stays in lastError)

  double alongAtWall = widthAlongMain ? mw : md;
  double centre = (s + t * x - m.junction).dotProduct(xm), half = alongAtWall / 2 / sinAngle;
  foot.back = std::max(foot.back, half - centre);
  foot.forward = std::max(foot.forward, half + centre);
  return nullptr;
}

}  // namespace

// (ol_ol-drawTripleTakeoff convert option shoe collarLength a b c d)
//   -> (("en1" . main) ("en2" . collars) ("dHeadLength" . r) ("dTailLength1" . r)
//       ("dTailLength2" . r) ("dTailLength3" . r)) or nil
int ol_ol_drawTripleTakeoff() {
  acedRetNil();
  frame::ArgList args;
  resbuf *&cur = args.cursor();
  bool convert = false, shoe = false;
  int option = 0;
  double collar = 0;
  DuctRun a, b, c, d;
  if (!frame::readBoolean(cur, convert) || !frame::readInteger(cur, option) ||
      !frame::readBoolean(cur, shoe) || !frame::readReal(cur, collar) || !readDuctRun(cur, a) ||
      !readDuctRun(cur, b) || !readDuctRun(cur, c) || !readDuctRun(cur, d))
    return 2;
  if (!finiteNumbers({collar}) || !finiteRuns({&a, &b, &c, &d})) return 3;
  FittingFrame fa = computeFrame(a, &b, convert), fb = computeFrame(b, &a, convert);
  FittingFrame fc = computeFrame(c, &a, convert), fd = computeFrame(d, &a, convert);
  Main m{&a, &fa, justifiedEnd(a, &fa, convert)};
  bool second = justifiedStart(d, nullptr, convert).distanceTo(justifiedEnd(d, nullptr, convert)) >= 0.01;

  SolidPtr collars = newSolid();
  if (!collars) return 0;
  double reachC = 0, reachD = 0;
  Footprint foot;
  const char *why = addCollar(m, c, fc, convert, shoe, collar, option, collars.get(), reachC, foot);
  if (!why && second) why = addCollar(m, d, fd, convert, shoe, collar, option, collars.get(), reachD, foot);
  if (why) {
    if (*why) tellNoSolid(why);
    return 0;
  }
  double margin = std::max({std::abs(c.width), std::abs(c.depth), second ? std::abs(d.width) : 0.0,
                            second ? std::abs(d.depth) : 0.0}) /
                  4;
  // The main piece runs from a's centre line to b's (they differ where b is justified to a side
  // and sized otherwise), its ends measured from each run's own justified end.
  AcGePoint3d startB = justifiedStart(b, &fb, convert);
  double back = foot.back + margin;
  double forward = (m.junction + (foot.forward + margin) * fb.x() - startB).dotProduct(fb.x());
  SolidPtr main = newSolid();
  if (!main) return 0;
  if (!main->addTransition(m.junction - back * fa.x(), isRectangular(a), std::abs(a.width), std::abs(a.depth),
                           startB + forward * fb.x(), isRectangular(b), std::abs(b.width), std::abs(b.depth),
                           fa.data(), fb.data(), option))
    return refused(*main);
  ads_name mainName, collarName;
  if (!addToDrawing(std::move(main), mainName) || !addToDrawing(std::move(collars), collarName)) return 0;
  frame::ResultChain result;
  result.add(RTLB);
  result.addPair(L"en1", mainName);
  result.addPair(L"en2", collarName);
  result.addPair(L"dHeadLength", back);
  result.addPair(L"dTailLength1", forward);
  result.addPair(L"dTailLength2", reachC);
  result.addPair(L"dTailLength3", reachD);
  result.add(RTLE);
  result.returnToHost();
  return 0;
}

}  // namespace vantry::lispfn
