// acedEntSel and acedNEntSel: one entity picked at a point.
//
// The request runs through the editor's point request (host/editor/editor.h),
// so a pending acedInitGet applies: its keywords answer RTKWORD (acedGetInput
// hands the keyword over), bit 1 refuses Enter. A pick or a point picks the
// entity nearest the point within the pick box (pickAt); none there answers
// RTERROR with ERRNO 7. Enter answers RTERROR with ERRNO 52; Esc RTCAN.
//
// acedNEntSel goes down into what it picked: through block references to the
// nested entity nearest the point (xform then maps that entity's block
// coordinates to the world, rows 0-2 the images of the X, Y and Z axes, row
// 3 the origin's image; refstk lists the references, innermost first, as
// RTENAME nodes the caller releases), and from an old-style polyline to the
// vertex that starts the segment picked.
#include <cmath>

#include "editor/editor.h"
#include "session/session.h"
#include "select/select.h"
#include "session/internal.h"

namespace vantry::host::select {
namespace {

void setErrno(int value) {
  resbuf rb{};
  rb.restype = RTSHORT;
  rb.resval.rint = short(value);
  setSystemValue(L"ERRNO", rb);
}

// The pick itself: status, and the id and point on RTNORM.
int pick(const ACHAR *prompt, AcDbObjectId &id, P2 &at, ads_point pt) {
  AcDbDatabase *db = workingDatabase();
  if (!db) return RTERROR;
  editor::Query q;
  q.kind = editor::Kind::Point;
  q.prompt = prompt ? prompt : L"\nSelect object: ";
  editor::Reply r = editor::ask(q);
  if (r.status == RTNONE) {
    setErrno(52);
    return RTERROR;
  }
  if (r.status != RTNORM) return r.status;
  at = P2{r.point[0], r.point[1]};
  id = pickAt(db, at);
  if (id.isNull()) {
    setErrno(7);
    return RTERROR;
  }
  setErrno(0);
  if (pt)
    for (int i = 0; i < 3; ++i) pt[i] = r.point[i];
  return RTNORM;
}

// The entity of a block definition nearest the pick, seen through xf.
AcDbObjectId nestedPick(AcDbObjectId block, const AcGeMatrix3d &xf, P2 at) {
  auto *rec = AcDbBlockTableRecord::cast(objectOf(block));
  if (!rec) return AcDbObjectId::kNull;
  double h = std::max(pickHalfSize(), 1e-9);
  Area box = Area::rectangle(P2{at.x - h, at.y - h}, P2{at.x + h, at.y + h});
  AcDbObjectId best;
  double bestDistance = HUGE_VAL;
  for (AcDbObjectId id : rec->entityIds()) {
    auto *ent = AcDbEntity::cast(objectOf(id));
    AcDbEntity *copy = nullptr;
    if (!ent || ent->isErased() || ent->getTransformedCopy(xf, copy) != Acad::eOk || !copy) continue;
    Shape s = shapeOf(*copy);
    delete copy;
    if (!crosses(s, box)) continue;
    double d = distanceTo(s, at);
    if (d <= bestDistance) best = id, bestDistance = d;
  }
  return best;
}

// The vertex of an old-style polyline that starts the segment nearest at.
AcDbObjectId vertexPick(const AcDbCurve &poly, P2 at) {
  std::vector<AcDbObjectId> verts;
  if (auto *p2 = AcDb2dPolyline::cast(&poly)) {
    for (AcDb2dVertex *v : p2->vertices())
      if (v->vertexType() != AcDb::k2dSplineCtlVertex) verts.push_back(v->objectId());
  } else if (auto *p3 = AcDb3dPolyline::cast(&poly)) {
    for (AcDb3dPolylineVertex *v : p3->vertices()) verts.push_back(v->objectId());
  }
  if (verts.empty()) return AcDbObjectId::kNull;
  CurvePath path(poly);
  size_t best = 0;
  double bestDistance = HUGE_VAL;
  for (size_t i = 0; i < path.segments().size(); ++i) {
    Shape s;
    const CurvePath::Seg &seg = path.segments()[i];
    Piece piece;
    piece.a = P2{seg.p0.x, seg.p0.y};
    piece.b = P2{seg.p1.x, seg.p1.y};
    s.pieces.push_back(piece);
    // An arc segment is measured by its chord and midpoint: close enough to
    // rank segments that meet the pick box.
    AcGePoint3d mid = CurvePath::segPoint(seg, 0.5);
    double d = std::min(distanceTo(s, at), std::hypot(mid.x - at.x, mid.y - at.y));
    if (d < bestDistance) best = i, bestDistance = d;
  }
  return verts[std::min(best, verts.size() - 1)];
}

}  // namespace
}  // namespace vantry::host::select

using namespace vantry::host::select;
using vantry::host::objectOf;

int acedEntSel(const ACHAR *prompt, ads_name entity, ads_point pick) {
  AcDbObjectId id;
  P2 at;
  int rc = vantry::host::select::pick(prompt, id, at, pick);
  if (rc == RTNORM && entity) nameOf(id, entity);
  return rc;
}

int acedNEntSel(const ACHAR *prompt, ads_name entity, ads_point pick, ads_point xform[4],
                struct resbuf **refstk) {
  if (refstk) *refstk = nullptr;
  AcDbObjectId id;
  P2 at;
  int rc = vantry::host::select::pick(prompt, id, at, pick);
  if (rc != RTNORM) return rc;
  AcGeMatrix3d xf;  // identity
  std::vector<AcDbObjectId> refs;
  for (int depth = 0; depth < 16; ++depth) {
    auto *ref = AcDbBlockReference::cast(objectOf(id));
    if (!ref) break;
    AcGeMatrix3d inner = xf * ref->blockTransform();
    AcDbObjectId nested = nestedPick(ref->blockTableRecord(), inner, at);
    if (nested.isNull()) break;
    refs.push_back(id);
    xf = inner;
    id = nested;
  }
  if (auto *curve = AcDbCurve::cast(objectOf(id)); curve && refs.empty()) {
    AcDbObjectId vertex = vertexPick(*curve, at);
    if (!vertex.isNull()) id = vertex;
  }
  if (entity) nameOf(id, entity);
  if (xform)
    for (int c = 0; c < 4; ++c)
      for (int r = 0; r < 3; ++r) xform[c][r] = xf(r, c);
  if (refstk) {
    for (AcDbObjectId ref : refs) {  // outermost first: prepending leaves the innermost first
      resbuf *rb = acutNewRb(RTENAME);
      acdbGetAdsName(rb->resval.rlname, ref);
      rb->rbnext = *refstk;
      *refstk = rb;
    }
  }
  return RTNORM;
}
