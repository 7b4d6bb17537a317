// Selection sets and picking for LISP. Every selection comes back as a plain
// list of entity names, never as a host selection set: the host's set is
// always freed before the function returns.
//
//   ssgetC / ssgetCP / ssgetPK   the host's crossing window, crossing polygon
//                                and interactive selection (with prompts and
//                                keywords), filters passed through untouched;
//   ssgetX-all / -block /        scans of model space in database order;
//     -circle / -polyline        paper-space layouts are never looked at;
//   ol_ol-entsel                 one pick, retried after a pick that hit
//                                nothing, with keywords.
#include <optional>
#include <string>

#include "frame/implementations.h"
#include "frame/value_list.h"

namespace vantry::lispfn {
namespace {

using frame::ArgList;

// The keyword fetch buffer of ol_ol-entsel, in characters with the
// terminating zero. A longer keyword cannot be fetched and counts as a failed
// pick (RTINPUTTRUNC).
constexpr size_t kKeywordBufferSize = 132;

// ERRNO after a pick that found no entity.
constexpr int kErrnoPickMissed = 7;

// The block name that ssgetX-block's predicate looks for, as given; no
// value means any block reference. It lives between the call and its scan
// and keeps the last call's value afterwards.
std::optional<std::wstring> g_blockName;

// What every host selection does with acedSSGet's answer: nil unless the set
// holds members, else their names in the set's order. A member whose name
// cannot be had is left out. The set is freed whenever there is one.
int finishSelection(int rc, const ads_name ss) {
  if (rc != RTNORM) return 0;
  int32_t length = 0;
  if (acedSSLength(ss, &length) != RTNORM || length <= 0) {
    acedSSFree(ss);
    return 0;
  }
  frame::ResultChain names;
  names.add(RTLB);
  for (int32_t i = 0; i < length; ++i) {
    ads_name entity;
    if (acedSSName(ss, i, entity) == RTNORM) names.addName(entity);
  }
  names.add(RTLE);
  names.returnToHost();
  acedSSFree(ss);
  return 0;
}

// What a scan accepts: entities whose class derives from `cls` (every
// entity when null) and, when `byBlockName`, only references to `block`.
struct Predicate {
  const AcRxClass *cls = nullptr;
  bool byBlockName = false;
  AcDbObjectId block;
};

bool accepts(const Predicate &pred, const AcDbEntity *ent) {
  if (pred.cls && !ent->isA()->isDerivedFrom(pred.cls)) return false;
  if (!pred.byBlockName) return true;
  return !pred.block.isNull() &&
         static_cast<const AcDbBlockReference *>(ent)->blockTableRecord() == pred.block;
}

// The entity names of model space that the predicate accepts, in database
// order, erased entities skipped. When the drawing's tables cannot be
// opened the result stays nil.
int scanModelSpace(Predicate pred) {
  AcDbDatabase *db = acdbHostApplicationServices()->workingDatabase();
  AcDbBlockTable *table = nullptr;
  if (!db || db->getBlockTable(table, AcDb::kForRead) != Acad::eOk) return 0;
  AcDbObjectId modelId;
  Acad::ErrorStatus found = table->getIdAt(ACDB_MODEL_SPACE, modelId);
  // A block name is matched by looking it up in the block table: the table
  // compares names with the host's own case folding (accented letters
  // included) and treats no character as a wildcard. Block names are unique
  // under that folding, so a reference matches exactly when it points at
  // the record found. A name the table lacks matches nothing.
  if (pred.byBlockName && table->getIdAt(g_blockName->c_str(), pred.block) != Acad::eOk)
    pred.block = AcDbObjectId::kNull;
  table->close();
  AcDbBlockTableRecord *model = nullptr;
  if (found != Acad::eOk || acdbOpenObject(model, modelId, AcDb::kForRead) != Acad::eOk) return 0;
  AcDbBlockTableRecordIterator *it = nullptr;
  if (model->newIterator(it, true, true) != Acad::eOk) {
    model->close();
    return 0;
  }
  frame::ResultChain names;
  names.add(RTLB);
  for (; !it->done(); it->step(true, true)) {
    AcDbEntity *ent = nullptr;
    if (it->getEntity(ent, AcDb::kForRead) != Acad::eOk) continue;
    ads_name name;
    if (accepts(pred, ent) && acdbGetAdsName(name, ent->objectId()) == Acad::eOk)
      names.addName(name);
    ent->close();
  }
  delete it;
  model->close();
  names.add(RTLE);
  names.returnToHost();
  return 0;
}

}  // namespace

// Arguments: corner, corner, [filter...]. Everything after the corners is
// the host's filter as it arrived.
int ssgetC() {
  acedRetNil();
  ArgList args;
  resbuf *&cur = args.cursor();
  ads_point p1, p2;
  if (!frame::readPoint(cur, p1) || !frame::readPoint(cur, p2)) return 2;
  ads_name ss;
  return finishSelection(acedSSGet(L"_C", p1, p2, cur, ss), ss);
}

// Arguments: the polygon's points, checked by the host alone.
int ssgetCP() {
  acedRetNil();
  ArgList args;
  ads_name ss;
  return finishSelection(acedSSGet(L"_CP", args.head(), nullptr, nullptr, ss), ss);
}

// Arguments: [add prompt], [remove prompt], [keywords], [filter...]. Each of
// the three leading positions counts only when it holds a string (nil skips
// it); the mode grows ":$" for an add prompt and ":K" for keywords.
int ssgetPK() {
  acedRetNil();
  ArgList args;
  resbuf *&cur = args.cursor();
  std::wstring mode, prompt[2], keywords;
  bool isString[3] = {false, false, false};
  for (int position = 0; position < 3 && cur; ++position) {
    std::wstring &text = position < 2 ? prompt[position] : keywords;
    isString[position] = frame::readString(cur, text);
    if (!isString[position]) frame::skipArgument(cur);
  }
  if (isString[0]) mode += L":$";
  if (isString[2]) mode += L":K";
  const ACHAR *prompts[2] = {prompt[0].c_str(), prompt[1].c_str()};
  const void *pt1 = isString[0] && !prompt[0].empty() ? prompts : nullptr;
  const void *pt2 = isString[2] && !keywords.empty() ? keywords.c_str() : nullptr;
  const resbuf *filter = cur && cur->restype != RTNIL ? cur : nullptr;
  ads_name ss;
  int rc = acedSSGet(mode.c_str(), pt1, pt2, filter, ss);
  return finishSelection(rc, ss);
}

int ssgetX_all() {
  acedRetNil();
  ArgList args;
  return scanModelSpace({});
}

// Arguments: [block name]. Without a string: every block reference.
int ssgetX_block() {
  acedRetNil();
  ArgList args;
  std::wstring name;
  if (frame::readString(args.cursor(), name))
    g_blockName = name;
  else
    g_blockName.reset();
  return scanModelSpace({AcDbBlockReference::desc(), g_blockName.has_value(), {}});
}

int ssgetX_circle() {
  acedRetNil();
  ArgList args;
  return scanModelSpace({AcDbCircle::desc(), false, {}});
}

int ssgetX_polyline() {
  acedRetNil();
  ArgList args;
  // Light polylines only: the old-style 2D and 3D polylines are other classes.
  return scanModelSpace({AcDbPolyline::desc(), false, {}});
}

// Arguments: prompt, [keywords]. (ename point) for a pick, the keyword for a
// keyword, nil for a cancel, T for any other failure. A pick that found
// nothing asks again, without limit.
int ol_ol_entsel() {
  acedRetNil();
  ArgList args;
  resbuf *&cur = args.cursor();
  std::wstring prompt, keywords;
  if (!frame::readString(cur, prompt)) return 2;
  if (cur && !frame::readString(cur, keywords)) keywords.clear();
  for (;;) {
    if (!keywords.empty()) acedInitGet(0, keywords.c_str());
    ads_name entity;
    ads_point pick;
    int rc = acedEntSel(prompt.c_str(), entity, pick);
    if (rc == RTNORM) {
      resbuf *list = acutBuildList(RTENAME, entity, RT3DPOINT, pick, 0);
      acedRetList(list);
      acutRelRb(list);
      return 0;
    }
    if (rc == RTCAN) return 0;
    if (rc == RTKWORD) {
      ACHAR keyword[kKeywordBufferSize];
      if (acedGetInput(keyword, kKeywordBufferSize) == RTNORM) {
        acedRetStr(keyword);
        return 0;
      }
    }
    resbuf err{};
    if (acedGetVar(L"ERRNO", &err) != RTNORM) break;
    int code = err.restype == RTSHORT ? err.resval.rint : err.restype == RTLONG ? err.resval.rlong : -1;
    if (code != kErrnoPickMissed) break;
  }
  acedRetT();
  return 0;
}

}  // namespace vantry::lispfn
