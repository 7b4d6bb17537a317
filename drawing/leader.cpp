// A host leader from LISP: a leader through the given points, appended to
// model space with the drawing's current layer, colour and style.
#include "drawing/append.h"
#include "frame/implementations.h"
#include "frame/value_list.h"

namespace vantry::lispfn {

// Arguments: any number of points, arrow end first. Reading stops at the
// first value that is not a point. Even without points the leader is
// appended. Its entity name, or nil when model space refused it (the alert
// says why).
int AcDbLeader_create() {
  acedRetNil();
  frame::ArgList args;
  auto *leader = new AcDbLeader();
  ads_point p;
  while (frame::readPoint(args.cursor(), p)) leader->appendVertex(AcGePoint3d(p[0], p[1], p[2]));
  leader->setDatabaseDefaults(acdbHostApplicationServices()->workingDatabase());
  if (!vantry::drawing::AppendToModelSpace(leader)) {
    delete leader;
    return 0;
  }
  ads_name name;
  if (acdbGetAdsName(name, leader->objectId()) == Acad::eOk) acedRetName(name, RTENAME);
  leader->close();
  return 0;
}

}  // namespace vantry::lispfn
