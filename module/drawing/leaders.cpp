// The product's leaders (OLLeader, drawing/ol_leader.h) from LISP: insert
// one, change its points, block or offset, explode it into plain entities.
//
// Arguments common to them: points are a list of two or more points, the
// arrow's tip first; a block is the name of a block of the drawing (nil for
// none); an offset is a point read as a vector from the last vertex. An
// entity name that is no OLLeader is bad data (status 3); one that cannot
// be opened (erased, or of a closed drawing) answers nil.
#include <string>
#include <vector>

#include "drawing/append.h"
#include "drawing/ol_leader.h"
#include "frame/implementations.h"
#include "frame/value_list.h"

namespace vantry::lispfn {
namespace {

using frame::ArgList;

// A list of points: 0, 2 when it is no list of points, 3 when it has fewer
// than two or two in a row are the same (checked by the leader).
int readPoints(resbuf *&cur, std::vector<AcGePoint3d> &out) {
  if (!frame::readListBegin(cur)) return 2;
  ads_point p;
  while (cur && cur->restype != RTLE) {
    if (!frame::readPoint(cur, p)) return 2;
    out.emplace_back(p[0], p[1], p[2]);
  }
  if (!frame::readListEnd(cur)) return 2;
  return out.size() < 2 ? 3 : 0;
}

// A block name or nil: 0, 2 for another kind of value.
int readBlockName(resbuf *&cur, std::wstring &out) {
  if (cur && cur->restype == RTNIL) {
    cur = cur->rbnext;
    out.clear();
    return 0;
  }
  return frame::readString(cur, out) ? 0 : 2;
}

bool blockExists(AcDbDatabase *db, const std::wstring &name) {
  if (name.empty()) return true;
  AcDbBlockTable *table = nullptr;
  if (!db || db->getBlockTable(table, AcDb::kForRead) != Acad::eOk || !table) return false;
  AcDbObjectId id;
  bool found = table->getAt(name.c_str(), id) == Acad::eOk;
  table->close();
  if (found) {
    AcDbObjectPointer<AcDbBlockTableRecord> record(id, AcDb::kForRead);
    // Layouts and anonymous blocks are no blocks to place at a leader.
    found = record.openStatus() == Acad::eOk && !record->isLayout() && !record->isAnonymous();
  }
  if (!found) acutPrintf(L"\nBlock \"%s\" not found.\n", name.c_str());
  return found;
}

// Opens the leader named by the next argument for write. 0 and an open
// leader; 0 and nothing open when the entity cannot be opened; 2 or 3 as
// the header says.
int openLeader(resbuf *&cur, AcDbObjectPointer<OLLeader> &leader) {
  AcDbObjectId id;
  if (!frame::readObjectId(cur, id)) return 2;
  AcDbObjectPointer<AcDbEntity> entity(id, AcDb::kForRead);
  if (entity.openStatus() != Acad::eOk) return 0;
  if (!OLLeader::cast(entity.object())) return 3;
  entity.close();
  leader.open(id, AcDb::kForWrite);
  return 0;
}

AcDbDatabase *currentDrawing() {
  AcApDocument *doc = acDocManager->curDocument();
  return doc ? doc->database() : nullptr;
}

}  // namespace

// (ol_ol-leader-insert points [block [offset]]): a new leader in model space
// with the drawing's current layer, colour and linetype, its arrow sized by
// DIMASZ x DIMSCALE. Its entity name; nil with a message for a block that is
// not there or when the class is not registered.
int ol_ol_leader_insert() {
  acedRetNil();
  ArgList args;
  resbuf *&cur = args.cursor();
  std::vector<AcGePoint3d> points;
  std::wstring block;
  ads_point offset = {0, 0, 0};
  if (int status = readPoints(cur, points)) return status;
  if (cur && readBlockName(cur, block)) return 2;
  if (cur && cur->restype != RTNIL && !frame::readPoint(cur, offset)) return 2;
  if (!OLLeader::desc()) {
    acutPrintf(L"%s", L"\nThe OLLeader class is not registered.\n");
    return 0;
  }
  AcDbDatabase *db = currentDrawing();
  if (!blockExists(db, block)) return 0;
  auto *leader = new OLLeader();
  if (leader->setVertices(points) != Acad::eOk) {
    delete leader;
    return 3;
  }
  leader->setBlockName(block);
  leader->setOffset(AcGeVector3d(offset[0], offset[1], offset[2]));
  resbuf size = {}, scale = {};
  double arrow = 0.18, factor = 1.0;
  if (acedGetVar(L"DIMASZ", &size) == RTNORM && size.restype == RTREAL) arrow = size.resval.rreal;
  if (acedGetVar(L"DIMSCALE", &scale) == RTNORM && scale.restype == RTREAL && scale.resval.rreal > 0)
    factor = scale.resval.rreal;
  leader->setArrowSize(arrow * factor);
  leader->setDatabaseDefaults(db);
  drawing::AppendToModelSpace(leader);
  drawing::returnNewEntity(leader);
  return 0;
}

// (ol_ol-leader-setPoints leader points): T when changed.
int ol_ol_leader_setPoints() {
  acedRetNil();
  ArgList args;
  AcDbObjectPointer<OLLeader> leader;
  if (int status = openLeader(args.cursor(), leader)) return status;
  std::vector<AcGePoint3d> points;
  if (int status = readPoints(args.cursor(), points)) return status;
  if (leader.openStatus() != Acad::eOk) return 0;
  if (leader->setVertices(points) != Acad::eOk) return 3;
  acedRetT();
  return 0;
}

// (ol_ol-leader-setBlock leader block-or-nil): T when changed; nil with a
// message for a block that is not there.
int ol_ol_leader_setBlock() {
  acedRetNil();
  ArgList args;
  AcDbObjectPointer<OLLeader> leader;
  if (int status = openLeader(args.cursor(), leader)) return status;
  std::wstring block;
  if (!args.cursor() || readBlockName(args.cursor(), block)) return 2;
  if (leader.openStatus() != Acad::eOk) return 0;
  if (!blockExists(leader->database(), block)) return 0;
  leader->setBlockName(block);
  acedRetT();
  return 0;
}

// (ol_ol-leader-setOffset leader offset): T when changed.
int ol_ol_leader_setOffset() {
  acedRetNil();
  ArgList args;
  AcDbObjectPointer<OLLeader> leader;
  if (int status = openLeader(args.cursor(), leader)) return status;
  ads_point offset;
  if (!frame::readPoint(args.cursor(), offset)) return 2;
  if (leader.openStatus() != Acad::eOk) return 0;
  leader->setOffset(AcGeVector3d(offset[0], offset[1], offset[2]));
  acedRetT();
  return 0;
}

// (ol_ol-leader-explode leader): replaces the leader by its pieces (lines,
// the arrowhead's 3D face, the block's reference) in the same space, with
// its layer, colour and linetype; the list of their entity names, the
// leader erased. Nil when the leader cannot be opened; when a piece cannot
// be added, the pieces added so far are erased again and the leader stays.
int ol_ol_leader_explode() {
  acedRetNil();
  ArgList args;
  AcDbObjectPointer<OLLeader> leader;
  if (int status = openLeader(args.cursor(), leader)) return status;
  if (leader.openStatus() != Acad::eOk) return 0;
  AcDbVoidPtrArray parts;
  if (leader->explode(parts) != Acad::eOk) return 0;
  AcDbObjectPointer<AcDbBlockTableRecord> space(leader->ownerId(), AcDb::kForWrite);
  std::vector<AcDbObjectId> added;
  bool ok = space.openStatus() == Acad::eOk;
  for (void *p : parts) {
    auto *e = static_cast<AcDbEntity *>(p);
    AcDbObjectId id;
    if (ok && space->appendAcDbEntity(id, e) == Acad::eOk) {
      added.push_back(id);
      e->close();
    } else {
      ok = false;
      delete e;
    }
  }
  if (!ok) {
    for (AcDbObjectId id : added) {
      AcDbObjectPointer<AcDbEntity> piece(id, AcDb::kForWrite);
      if (piece.openStatus() == Acad::eOk) piece->erase();
    }
    acutPrintf(L"%s", L"\nThe leader could not be exploded.\n");
    return 0;
  }
  leader->erase();
  frame::ResultChain chain;
  chain.add(RTLB);
  for (AcDbObjectId id : added) {
    ads_name name;
    if (acdbGetAdsName(name, id) == Acad::eOk) chain.addName(name);
  }
  chain.add(RTLE);
  chain.returnToHost();
  return 0;
}

}  // namespace vantry::lispfn
