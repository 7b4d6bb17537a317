// The multiline text editor from LISP: the person edits an MText's
// contents in place.
//
// Headless, the editor is the command line: the contents it would show are
// written to the transcript and the new contents are one line of text
// input (spaces kept), which the scripted person answers; a cancel leaves
// the text as it was. Contents keep their formatting codes (\P for a new
// paragraph), as the editor's raw text does.
#include <string>
#include <vector>

#include "frame/implementations.h"
#include "frame/value_list.h"

namespace vantry::lispfn {

// (ed_editMultilineText mtext): the new contents, set on the MText; nil
// when the person cancels (or gives the same contents back unchanged: the
// answer is then nil too, nothing having changed) or the entity cannot be
// opened. An entity that is no MText is bad data.
int ed_editMultilineText() {
  acedRetNil();
  frame::ArgList args;
  AcDbObjectId id;
  if (!frame::readObjectId(args.cursor(), id)) return 2;
  AcDbObjectPointer<AcDbEntity> entity(id, AcDb::kForRead);
  if (entity.openStatus() != Acad::eOk) return 0;
  if (!AcDbMText::cast(entity.object())) return 3;
  entity.close();
  AcDbObjectPointer<AcDbMText> mtext(id, AcDb::kForRead);
  if (mtext.openStatus() != Acad::eOk) return 0;
  ACHAR *old = mtext->contents();
  std::wstring before = old ? old : L"";
  acutDelString(old);
  mtext.close();

  acutPrintf(L"\n[Text editor] %s", before.c_str());
  std::vector<ACHAR> answer(65536);
  int rc = acedGetString(1, L"\nNew contents: ", answer.data(), answer.size());
  if (rc != RTNORM) return 0;
  std::wstring after = answer.data();
  if (after == before) return 0;
  if (mtext.open(id, AcDb::kForWrite) != Acad::eOk) return 0;
  mtext->setContents(after.c_str());
  acedRetStr(after.c_str());
  return 0;
}

}  // namespace vantry::lispfn
