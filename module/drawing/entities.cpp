// Entity settings and extents for LISP: the geometric extents, the colour
// (sub-entities included), the curve type of an old-style 2D polyline and the
// visibility of a 3D face's edges.
#include "frame/implementations.h"
#include "frame/value_list.h"

namespace vantry::lispfn {
namespace {

using frame::ArgList;

// A real integer argument (short or long), not a real and not a group code.
bool readIntegerValue(resbuf *&cur, int &out) {
  if (!cur || (cur->restype != RTSHORT && cur->restype != RTLONG)) return false;
  return frame::readInteger(cur, out);
}

}  // namespace

// (("min" . point) ("max" . point)) in world coordinates; nil for an entity
// that has no extents (nothing drawn) or cannot be opened.
int AcDbEntity_getGeomExtents() {
  acedRetNil();
  ArgList args;
  AcDbObjectId id;
  if (!frame::readObjectId(args.cursor(), id)) return 2;
  AcDbObjectPointer<AcDbEntity> entity(id, AcDb::kForRead);
  if (entity.openStatus() != Acad::eOk) return 0;
  AcDbExtents extents;
  if (entity->getGeomExtents(extents) != Acad::eOk || extents.isEmpty()) return 0;
  AcGePoint3d lo = extents.minPoint(), hi = extents.maxPoint();
  ads_point min = {lo.x, lo.y, lo.z}, max = {hi.x, hi.y, hi.z};
  resbuf *list = acutBuildList(RTLB, RTLB, RTSTR, L"min", RTDOTE, RT3DPOINT, min, RTLE, RTLB, RTSTR, L"max",
                               RTDOTE, RT3DPOINT, max, RTLE, RTLE, 0);
  if (list) {
    acedRetList(list);
    acutRelRb(list);
  }
  return 0;
}

// Arguments: ename, colour index (0 by block, 1..255, 256 by layer). The
// colour goes to the entity and its sub-entities (an old-style polyline's
// vertices). The result is nil in every case. An entity that cannot be
// opened is left alone without a word, and so is one given an index that
// no colour has: the host refuses the index and nothing is changed.
int AcDbEntity_setColor() {
  acedRetNil();
  ArgList args;
  AcDbObjectId id;
  int index;
  if (!frame::readObjectId(args.cursor(), id) || !readIntegerValue(args.cursor(), index)) return 2;
  AcDbObjectPointer<AcDbEntity> entity(id, AcDb::kForWrite);
  if (entity.openStatus() != Acad::eOk) return 0;
  // An index beyond 16 bits must not wrap round to a valid one.
  AcCmColor color;
  if (index < 0 || index > 0xFFFF || color.setColorIndex(Adesk::UInt16(index)) != Acad::eOk) return 0;
  entity->setColor(color, true);
  return 0;
}

// Arguments: ename, "f" (fit curve), "s" (spline fit) or "d" (straighten:
// decurve), matched exactly; any other string changes nothing. T whenever
// the polyline could be opened.
int AcDb2dPolyline_setCurveType() {
  acedRetNil();
  ArgList args;
  AcDbObjectId id;
  std::wstring type;
  if (!frame::readObjectId(args.cursor(), id) || !frame::readString(args.cursor(), type)) return 2;
  AcDbObjectPointer<AcDb2dPolyline> poly(id, AcDb::kForWrite);
  if (poly.openStatus() != Acad::eOk) return 0;
  if (type == L"f")
    poly->curveFit();
  else if (type == L"d")
    poly->straighten();
  else if (type == L"s")
    poly->splineFit();
  acedRetT();
  return 0;
}

// Arguments: ename, edge index 0..3. T whenever the face could be opened.
int AcDbFace_makeEdgeInvisibleAt() {
  acedRetNil();
  ArgList args;
  AcDbObjectId id;
  int index;
  if (!frame::readObjectId(args.cursor(), id) || !readIntegerValue(args.cursor(), index)) return 2;
  AcDbObjectPointer<AcDbFace> face(id, AcDb::kForWrite);
  if (face.openStatus() != Acad::eOk) return 0;
  if (index >= 0 && index <= 0xFFFF) face->makeEdgeInvisibleAt(Adesk::UInt16(index));
  acedRetT();
  return 0;
}

}  // namespace vantry::lispfn
