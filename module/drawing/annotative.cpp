// Annotative scaling for LISP: of any object that supports it, and of the
// block definition behind a block reference.
#include "frame/implementations.h"
#include "frame/value_list.h"

namespace vantry::lispfn {
namespace {

using frame::ArgList;

// The annotative protocol of the object's class, or null when it has none.
AcDbAnnotativeObjectPE *annotativeProtocol(const AcDbObject *obj) {
  return AcDbAnnotativeObjectPE::cast(obj->isA()->queryX(AcDbAnnotativeObjectPE::desc()));
}

}  // namespace

// Arguments: ename, flag. An object that cannot be opened, or whose class is
// never annotative, is left alone. The flag is read after the open, so the
// object is closed again before a missing flag is reported.
int AcDbAnnotativeObjectPE_setAnnotative() {
  acedRetNil();
  ArgList args;
  AcDbObjectId id;
  if (!frame::readObjectId(args.cursor(), id)) return 2;
  AcDbObjectPointer<AcDbObject> obj(id, AcDb::kForWrite);
  if (obj.openStatus() != Acad::eOk) return 0;
  bool annotative;
  if (!frame::readBoolean(args.cursor(), annotative)) {
    obj.close();
    return 2;
  }
  if (AcDbAnnotativeObjectPE *pe = annotativeProtocol(obj)) pe->setAnnotative(obj, annotative);
  return 0;
}

// Arguments: ename of a block reference, flag. The block definition, not the
// reference, becomes annotative (or stops being so); any other entity is
// left alone.
int SetAnnoBlock() {
  acedRetNil();
  ArgList args;
  AcDbObjectId id;
  if (!frame::readObjectId(args.cursor(), id)) return 2;
  AcDbObjectPointer<AcDbEntity> entity(id, AcDb::kForRead);
  if (entity.openStatus() != Acad::eOk) return 3;
  bool annotative;
  if (!frame::readBoolean(args.cursor(), annotative)) return 2;
  auto *ref = AcDbBlockReference::cast(entity.object());
  if (!ref) return 0;
  AcDbObjectPointer<AcDbBlockTableRecord> block(ref->blockTableRecord(), AcDb::kForRead);
  if (block.openStatus() != Acad::eOk) return 0;
  AcDbAnnotativeObjectPE *pe = annotativeProtocol(block);
  if (pe && block->upgradeOpen() == Acad::eOk) pe->setAnnotative(block, annotative);
  return 0;
}

}  // namespace vantry::lispfn
