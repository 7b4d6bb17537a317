// ol_ol-drawTripleWye: a trunk dividing into two branches.
//
// Runs: a is the trunk up to the junction, b and c the branches leaving it; their centre lines
// must meet at one junction J. The modeller's wye takes the trunk's section at the junction and
// tapers each branch to its own size over a collar that ends where the branches have parted; the
// fitting's ports are there:
//
//   trunk port   J - (h + extension) along a     h: the largest half-size of the three sections
//   branch ports each branch's collar + extension along the branch
//
// With `shortLegs` a branch whose run ends before its collar is cut at the run's end instead of
// failing. The wye has the trunk's shape; a branch of the other shape (round off a rectangular
// trunk) gets a transition from the wye's port to its own shape ("en2" for b, "en3" for c). Lengths
// returned: dHeadLength from a's justified end back to the trunk port, dTailLength1 and
// dTailLength2 from b's and c's justified starts on to their ports (including any shape
// transition), so that straight pieces cut back by them meet the wye face to face. The three centre
// lines must meet: runs justified to a side ("l", "r") shift each centre line across its own run,
// and a wye between them is refused with the modeller's reason.
#include <algorithm>
#include <cmath>

#include "ducts/fitting.h"
#include "ducts/frame.h"
#include "frame/implementations.h"
#include "frame/value_list.h"

namespace vantry::lispfn {
namespace {

using namespace ducts;

AcGePoint3d toPoint(const AModeler::Point3d &p) {
  return {p.x, p.y, p.z};
}

// A transition from the wye's port (branch size, trunk's shape) to the branch's own shape.
bool shapeChange(const DuctRun &br, const FittingFrame &f, const AcGePoint3d &port, bool rect, int option,
                 SolidPtr &out, double &length) {
  out = nullptr;
  length = 0;
  if (isRectangular(br) == rect) return true;
  double w = std::abs(br.width), d = std::abs(br.depth);
  length = transitionLength(w, d, rect, w, d, isRectangular(br), 15.0);
  out = newSolid();
  if (!out) return false;
  if (!out->addTransition(port, rect, w, d, port + length * f.x(), isRectangular(br), w, d, f.data(),
                          f.data(), option)) {
    out.reset();
    length = 0;
  }
  return true;
}

}  // namespace

// (ol_ol-drawTripleWye convert option shortLegs extension a b c)
//   -> (("en1" . wye) ("en2" . t or nil) ("en3" . t or nil) ("dHeadLength" . r) ("dTailLength1" . r)
//       ("dTailLength2" . r)) or nil
int ol_ol_drawTripleWye() {
  acedRetNil();
  frame::ArgList args;
  resbuf *&cur = args.cursor();
  bool convert = false, shortLegs = false;
  int option = 0;
  double extension = 0;
  DuctRun a, b, c;
  if (!frame::readBoolean(cur, convert) || !frame::readInteger(cur, option) ||
      !frame::readBoolean(cur, shortLegs) || !frame::readReal(cur, extension) || !readDuctRun(cur, a) ||
      !readDuctRun(cur, b) || !readDuctRun(cur, c))
    return 2;
  if (!finiteNumbers({extension}) || !finiteRuns({&a, &b, &c})) return 3;
  extension = std::max(extension, 0.0);
  FittingFrame fa = computeFrame(a, &b, convert), fb = computeFrame(b, &a, convert),
               fc = computeFrame(c, &a, convert);
  AcGePoint3d p1 = justifiedStart(a, &fa, convert), p2 = justifiedEnd(b, &fb, convert),
              p3 = justifiedEnd(c, &fc, convert);
  bool rect = isRectangular(a);
  double w1 = std::abs(a.width), d1 = std::abs(a.depth), w2 = std::abs(b.width), d2 = std::abs(b.depth),
         w3 = std::abs(c.width), d3 = std::abs(c.depth);
  double scale = std::max({1.0, p1.distanceTo(p2), p1.distanceTo(p3), w1, w2, w3});
  const double tolerance = 1e-6 * scale;

  SolidPtr wye = newSolid();
  if (!wye) return 0;
  AModeler::Point3d l1, l2, l3;
  AcGePoint3d c1, c2, c3;
  // First where the junction and the collars are, for the runs as given; then the wye between its
  // own ports.
  if (!wye->addWyePrep(p1, w1, d1, p2, w2, d2, p3, w3, d3, fa.data(), fb.data(), fc.data(), rect, l1, l2, l3,
                       c1, c2, c3, shortLegs, tolerance))
    return refused(*wye);
  AcGePoint3d junction = toPoint(l1);
  double h = std::max({w1, d1, w2, d2, w3, d3}) / 2;
  double head = std::min(h + extension, junction.distanceTo(p1));
  double tail1 = std::min(junction.distanceTo(c2) + extension, junction.distanceTo(p2));
  double tail2 = std::min(junction.distanceTo(c3) + extension, junction.distanceTo(p3));
  AcGePoint3d q1 = junction - head * fa.x(), q2 = junction + tail1 * fb.x(), q3 = junction + tail2 * fc.x();
  if (!wye->addWyePrep(q1, w1, d1, q2, w2, d2, q3, w3, d3, fa.data(), fb.data(), fc.data(), rect, l1, l2, l3,
                       c1, c2, c3, true, tolerance) ||
      !wye->addWye(q1, w1, d1, q2, w2, d2, q3, w3, d3, junction, fa.data(), fb.data(), fc.data(), rect, l1,
                   l2, l3, c1, c2, c3, option))
    return refused(*wye);
  SolidPtr change2, change3;
  double extra2 = 0, extra3 = 0;
  shapeChange(b, fb, q2, rect, option, change2, extra2);
  shapeChange(c, fc, q3, rect, option, change3, extra3);

  ads_name n1, n2, n3;
  bool have2 = false, have3 = false;
  if (!addToDrawing(std::move(wye), n1)) return 0;
  if (change2) have2 = addToDrawing(std::move(change2), n2);
  if (change3) have3 = addToDrawing(std::move(change3), n3);
  frame::ResultChain result;
  result.add(RTLB);
  result.addPair(L"en1", n1);
  result.addPair(L"en2", have2 ? n2 : nullptr);
  result.addPair(L"en3", have3 ? n3 : nullptr);
  // From the runs' own ends: the junction lies on their centre lines, but a justified run's end
  // need not be it.
  result.addPair(L"dHeadLength", (justifiedEnd(a, &fa, convert) - q1).dotProduct(fa.x()));
  result.addPair(L"dTailLength1",
                 (q2 - justifiedStart(b, &fb, convert)).dotProduct(fb.x()) + (have2 ? extra2 : 0));
  result.addPair(L"dTailLength2",
                 (q3 - justifiedStart(c, &fc, convert)).dotProduct(fc.x()) + (have3 ? extra3 : 0));
  result.add(RTLE);
  result.returnToHost();
  return 0;
}

}  // namespace vantry::lispfn
