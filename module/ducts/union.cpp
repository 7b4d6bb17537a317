// ol_ol-tripleUnion: joins a second duct solid into the first.
#include "frame/implementations.h"
#include "frame/value_list.h"
#include "solid/hvac_solid.h"

namespace vantry::lispfn {

// (ol_ol-tripleUnion target other) -> nil, always. When the join succeeds the second solid is
// erased.
int ol_ol_tripleUnion() {
  acedRetNil();
  frame::ArgList args;
  resbuf *&cur = args.cursor();
  ads_name first, second;
  if (!frame::readEntityName(cur, first) || !frame::readEntityName(cur, second)) return 2;
  AcDbObjectId firstId, secondId;
  if (acdbGetObjectId(firstId, first) != Acad::eOk || acdbGetObjectId(secondId, second) != Acad::eOk)
    return 2;
  AcDbObjectPointer<ol_hvacSolid> target(firstId, AcDb::kForWrite);
  if (target.openStatus() != Acad::eOk) return 2;
  AcDbObjectPointer<ol_hvacSolid> other(secondId, AcDb::kForWrite);
  if (other.openStatus() != Acad::eOk) return 2;
  if (target->doUnion(other.object())) other->erase();
  // The holders close the second, then the first.
  return 0;
}

}  // namespace vantry::lispfn
