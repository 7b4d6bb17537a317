// ol_ol-getTripleCoord: the frame of a run, as the fitting functions compute it.
#include "ducts/frame.h"
#include "frame/implementations.h"
#include "frame/value_list.h"

namespace vantry::lispfn {

// (ol_ol-getTripleCoord run [partner]) -> ((xx xy xz) (yx yy yz) (zx zy zz))
int ol_ol_getTripleCoord() {
  using namespace ducts;
  acedRetNil();
  frame::ArgList args;
  resbuf *&cur = args.cursor();
  DuctRun a, b;
  if (!readDuctRun(cur, a)) return 2;
  bool hasPartner = readDuctRun(cur, b);
  if (!finiteRuns({&a}) || (hasPartner && !finiteRuns({&b}))) return 3;
  FittingFrame f = computeFrame(a, hasPartner ? &b : nullptr, true);
  resbuf *list = acutBuildList(RTLB, RTLB, RTREAL, f.x().x, RTREAL, f.x().y, RTREAL, f.x().z, RTLE, RTLB,
                               RTREAL, f.y().x, RTREAL, f.y().y, RTREAL, f.y().z, RTLE, RTLB, RTREAL, f.z().x,
                               RTREAL, f.z().y, RTREAL, f.z().z, RTLE, RTLE, 0);
  acedRetList(list);
  acutRelRb(list);
  return 0;
}

}  // namespace vantry::lispfn
