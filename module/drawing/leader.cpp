// A host leader from LISP: a leader through the given points, appended to
// model space with the current drawing's layer, colour and style.
#include "drawing/append.h"
#include "frame/implementations.h"
#include "frame/value_list.h"

namespace vantry::lispfn {

// Arguments: any number of points, arrow end first. Reading stops at the
// first value that is not a point. Even without points the leader is
// appended. Its entity name; when model space refuses it the alerts say
// why and the result is nil (a leader in no drawing has no name). Status 0
// in every case.
int AcDbLeader_create() {
  acedRetNil();
  frame::ArgList args;
  auto *leader = new AcDbLeader();
  ads_point p;
  while (frame::readPoint(args.cursor(), p)) leader->appendVertex(AcGePoint3d(p[0], p[1], p[2]));
  AcApDocument *doc = acDocManager->curDocument();
  leader->setDatabaseDefaults(doc ? doc->database() : nullptr);
  vantry::drawing::AppendToModelSpace(leader);
  vantry::drawing::returnNewEntity(leader);
  return 0;
}

}  // namespace vantry::lispfn
