// ol_ol-explodeSolid: breaks a duct solid into 3D faces in the drawing, leaving the solid.
#include "drawing/append.h"
#include "ducts/fitting.h"
#include "frame/implementations.h"
#include "frame/value_list.h"

namespace vantry::lispfn {

// (ol_ol-explodeSolid solid) -> (("FACE" . ename) ...); with no argument, nothing.
int ol_ol_explodeSolid() {
  frame::ArgList args;
  resbuf *&cur = args.cursor();
  if (!cur) return 0;
  acedRetNil();
  ads_name name;
  if (!frame::readEntityName(cur, name)) return 2;
  AcDbObjectId id;
  if (acdbGetObjectId(id, name) != Acad::eOk) return 3;
  AcDbObjectPointer<ol_hvacSolid> solid(id, AcDb::kForWrite);
  if (solid.openStatus() != Acad::eOk) return 3;
  AcDbVoidPtrArray pieces;
  solid->explode(pieces);
  frame::ResultChain result;
  result.add(RTLB);
  for (void *p : pieces) {
    ducts::EntityPtr face(static_cast<AcDbEntity *>(p));
    ads_name faceName;
    if (ducts::addToDrawing(std::move(face), faceName)) result.addPair(L"FACE", faceName);
  }
  result.add(RTLE);
  result.returnToHost();
  return 0;
}

}  // namespace vantry::lispfn
