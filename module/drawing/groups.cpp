// Named groups for LISP: find (or make) a group by name, and switch whether
// picking one member selects the whole group.
#include "frame/implementations.h"
#include "frame/value_list.h"

namespace vantry::lispfn {
namespace {

using frame::ArgList;

void returnId(AcDbObjectId id) {
  ads_name name;
  if (acdbGetAdsName(name, id) == Acad::eOk) acedRetName(name, RTENAME);
}

}  // namespace

// Arguments: name, [create], [selectable]. The group's entity name, or nil
// when there is none and create is not set. A new group is empty.
int ol_ol_GetGroup() {
  acedRetNil();
  ArgList args;
  resbuf *&cur = args.cursor();
  std::wstring name;
  if (!frame::readString(cur, name)) return 2;
  bool create = false, selectable = false;
  if (frame::readBoolean(cur, create)) {
    if (!frame::readBoolean(cur, selectable)) selectable = false;
  } else {
    create = false;
  }
  AcDbDatabase *db = acdbHostApplicationServices()->workingDatabase();
  AcDbDictionary *groups = nullptr;
  if (!db || db->getGroupDictionary(groups, AcDb::kForRead) != Acad::eOk) return 0;
  AcDbObjectId id;
  if (groups->getAt(name.c_str(), id) == Acad::eOk) {
    returnId(id);
  } else if (create && groups->upgradeOpen() == Acad::eOk) {
    auto *group = new AcDbGroup();
    if (groups->setAt(name.c_str(), group, id) == Acad::eOk) {
      group->setSelectable(selectable);
      group->close();
      returnId(id);
    } else {
      delete group;  // refused (a bad name): never joined the drawing
    }
  }
  groups->close();
  return 0;
}

// Arguments: name, selectable. T when the group was found and set.
int ol_ol_setGroupSelectable() {
  acedRetNil();
  ArgList args;
  std::wstring name;
  bool selectable;
  if (!frame::readString(args.cursor(), name) || !frame::readBoolean(args.cursor(), selectable)) return 2;
  AcDbDatabase *db = acdbHostApplicationServices()->workingDatabase();
  AcDbDictionary *groups = nullptr;
  if (!db || db->getGroupDictionary(groups, AcDb::kForWrite) != Acad::eOk) return 0;
  AcDbObjectId id;
  Acad::ErrorStatus found = groups->getAt(name.c_str(), id);
  groups->close();
  if (found != Acad::eOk) return 0;
  AcDbObjectPointer<AcDbGroup> group(id, AcDb::kForWrite);
  if (group.openStatus() != Acad::eOk) return 0;
  if (group->setSelectable(selectable) == Acad::eOk) acedRetT();
  return 0;
}

}  // namespace vantry::lispfn
