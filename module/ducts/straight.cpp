// ol_ol-drawTripleCenter: a straight piece of duct along one run, cut back by the run's head and
// tail lengths.
#include "ducts/fitting.h"
#include "ducts/frame.h"
#include "frame/implementations.h"
#include "frame/value_list.h"

namespace vantry::lispfn {

// (ol_ol-drawTripleCenter convert option run [partner]) -> entity name or nil
int ol_ol_drawTripleCenter() {
  using namespace ducts;
  acedRetNil();
  frame::ArgList list;
  RunArgs in;
  if (!readRunArgs(list.cursor(), in)) return 2;
  if (!finiteRuns({&in.a}) || (in.hasB && !finiteRuns({&in.b}))) return 3;
  const DuctRun &a = in.a;

  FittingFrame f = computeFrame(a, in.hasB ? &in.b : nullptr, in.convert);
  AcGePoint3d s = justifiedStart(a, &f, in.convert);
  AcGePoint3d e = justifiedEnd(a, &f, in.convert);
  if (s.distanceTo(e) < 0.01) return 0;
  s = s + a.headLength * f.x();
  e = e - a.tailLength * f.x();
  // Cut back past each other (head + tail beyond the run's length) is as degenerate as too short.
  if (s.distanceTo(e) < 0.01 || (e - s).dotProduct(f.x()) < 0) return 0;

  SolidPtr solid = newSolid();
  bool rc = shapeFamily(a) == L"RC";
  double w = std::abs(a.width), d = std::abs(a.depth);
  if (!solid) return 0;
  if (!solid->addTransition(s, rc, w, d, e, rc, w, d, f.data(), f.data(), in.option)) return refused(*solid);
  ads_name name;
  if (addToDrawing(std::move(solid), name)) acedRetName(name, RTENAME);
  return 0;
}

}  // namespace vantry::lispfn
