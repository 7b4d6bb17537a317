// ol_ol-drawTripleTransition: a change of size or shape from the end of one run to the start of
// the next, over a length for a 15 degree taper (or the length the run carries).
#include "ducts/fitting.h"
#include "ducts/frame.h"
#include "frame/implementations.h"
#include "frame/value_list.h"

namespace vantry::lispfn {

// (ol_ol-drawTripleTransition convert option a b)
//   -> (("en1" . solid) ("dHeadLength" . 0.0) ("dTailLength" . length)) or nil
int ol_ol_drawTripleTransition() {
  using namespace ducts;
  acedRetNil();
  frame::ArgList list;
  RunArgs in;
  if (!readRunArgs(list.cursor(), in) || !in.hasB) return 2;
  if (!finiteRuns({&in.a, &in.b})) return 3;
  const DuctRun &a = in.a, &b = in.b;

  FittingFrame frameA = computeFrame(a, &b, in.convert);
  FittingFrame frameB = computeFrame(b, &a, in.convert);
  AcGePoint3d p1 = justifiedEnd(a, &frameA, in.convert);
  AcGePoint3d p2 = justifiedStart(b, &frameB, in.convert);
  double length = transitionLengthOf(a, b);
  if (length <= 0) return 0;

  p2 = p2 + length * frameB.x();
  SolidPtr solid = newSolid();
  if (!solid) return 0;
  // Added to the drawing whatever the modeller answered (the caller counts on the length); a
  // refusal is told all the same.
  if (!solid->addTransition(p1, isRectangular(a), std::abs(a.width), std::abs(a.depth), p2, isRectangular(b),
                            std::abs(b.width), std::abs(b.depth), frameA.data(), frameB.data(), in.option))
    refused(*solid);
  ads_name name;
  if (!addToDrawing(std::move(solid), name)) return 0;
  frame::ResultChain result;
  result.add(RTLB);
  result.addPair(L"en1", name);
  result.addPair(L"dHeadLength", 0.0);
  result.addPair(L"dTailLength", length);
  result.add(RTLE);
  result.returnToHost();
  return 0;
}

}  // namespace vantry::lispfn
