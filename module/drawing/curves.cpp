// Curve measurement for LISP: length, point at a distance, closest point in
// plan, distance at a point. Each opens the named entity for read as a curve
// (status 3 when it is not one) and answers nil when the host's query fails,
// e.g. a distance beyond the curve's end or a point off the curve.
#include "frame/implementations.h"
#include "frame/value_list.h"

namespace vantry::lispfn {
namespace {

using frame::ArgList;

void retPoint(const AcGePoint3d &p) {
  ads_point out = {p.x, p.y, p.z};
  acedRetPoint(out);
}

}  // namespace

int AcDbCurve_getLength() {
  acedRetNil();
  ArgList args;
  AcDbObjectId id;
  if (!frame::readObjectId(args.cursor(), id)) return 2;
  AcDbObjectPointer<AcDbCurve> curve(id, AcDb::kForRead);
  if (curve.openStatus() != Acad::eOk) return 3;
  double endParam, length;
  if (curve->getEndParam(endParam) == Acad::eOk && curve->getDistAtParam(endParam, length) == Acad::eOk)
    acedRetReal(length);
  return 0;
}

int AcDbCurve_getPointAtDist() {
  acedRetNil();
  ArgList args;
  AcDbObjectId id;
  double dist;
  if (!frame::readObjectId(args.cursor(), id) || !frame::readReal(args.cursor(), dist)) return 2;
  AcDbObjectPointer<AcDbCurve> curve(id, AcDb::kForRead);
  if (curve.openStatus() != Acad::eOk) return 3;
  AcGePoint3d p;
  if (curve->getPointAtDist(dist, p) == Acad::eOk) retPoint(p);
  return 0;
}

// The nearest point as seen in plan: the given point is projected along the
// world Z axis, and the curve is not extended past its ends.
int AcDbCurve_getClosestPointTo() {
  acedRetNil();
  ArgList args;
  AcDbObjectId id;
  ads_point given;
  if (!frame::readObjectId(args.cursor(), id) || !frame::readPoint(args.cursor(), given)) return 2;
  AcDbObjectPointer<AcDbCurve> curve(id, AcDb::kForRead);
  if (curve.openStatus() != Acad::eOk) return 3;
  AcGePoint3d closest;
  if (curve->getClosestPointTo(AcGePoint3d(given[0], given[1], given[2]), AcGeVector3d::kZAxis, closest,
                               false) == Acad::eOk)
    retPoint(closest);
  return 0;
}

int AcDbCurve_getDistAtPoint() {
  acedRetNil();
  ArgList args;
  AcDbObjectId id;
  ads_point at;
  if (!frame::readObjectId(args.cursor(), id) || !frame::readPoint(args.cursor(), at)) return 2;
  AcDbObjectPointer<AcDbCurve> curve(id, AcDb::kForRead);
  if (curve.openStatus() != Acad::eOk) return 3;
  double dist;
  if (curve->getDistAtPoint(AcGePoint3d(at[0], at[1], at[2]), dist) == Acad::eOk) acedRetReal(dist);
  return 0;
}

}  // namespace vantry::lispfn
