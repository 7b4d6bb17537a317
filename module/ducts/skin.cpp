// ol_ol-drawTripleSkin: a plate through a list of points (a duct's end cap, a plenum side).
#include "ducts/duct_run.h"
#include "ducts/fitting.h"
#include "frame/implementations.h"
#include "frame/value_list.h"

namespace vantry::lispfn {

// (ol_ol-drawTripleSkin thickness (p1 p2 p3 ...)) -> (("en" . ename)) or nil
int ol_ol_drawTripleSkin() {
  acedRetNil();
  frame::ArgList args;
  resbuf *&cur = args.cursor();
  double thickness = 0;
  if (!frame::readReal(cur, thickness) || !frame::readListBegin(cur)) return 2;
  AcArray<AcGePoint3d> points(8);
  ads_point p;
  while (frame::readPoint(cur, p)) {
    if (!ducts::finiteNumbers({p[0], p[1], p[2]})) return 3;
    points.append(AcGePoint3d(p[0], p[1], p[2]));
  }
  if (!ducts::finiteNumbers({thickness})) return 3;
  ducts::SolidPtr solid = ducts::newSolid();
  if (!solid) return 0;
  if (solid->addSkin(points, thickness))
    ducts::answerSolid(std::move(solid), L"en");
  else
    ducts::refused(*solid);
  return 0;
}

}  // namespace vantry::lispfn
