// The selection queries that the modes and the pick share: what may be
// selected, windows and polygons over the spatial index, the whole drawing,
// the last entity and the pick.
//
// Order: a bulk selection answers the newest entity first (the order in
// which the host reports "X" and window selections); members added one by
// one (picks, acedSSAdd) keep the order they came in.
#include <algorithm>
#include <cmath>

#include "session/session.h"
#include "select/select.h"

namespace vantry::host::select {
namespace {

bool newer(AcDbObjectId a, AcDbObjectId b) {
  return a.stub()->handle > b.stub()->handle;
}

const AcDbLayerTableRecord *layerOf(const AcDbEntity &ent) {
  return AcDbLayerTableRecord::cast(objectOf(ent.layerId()));
}

double realVar(const wchar_t *name, double fallback) {
  resbuf rb{};
  if (acedGetVar(name, &rb) != RTNORM) return fallback;
  switch (rb.restype) {
    case RTREAL:
      return rb.resval.rreal;
    case RTSHORT:
      return rb.resval.rint;
    case RTLONG:
      return rb.resval.rlong;
    case RTSTR:
      acutDelString(rb.resval.rstring);
      return fallback;
    default:
      return fallback;
  }
}

// Selects from candidate ids; `box` is the area's box for the quick reject.
std::vector<AcDbObjectId> testAll(const std::vector<AcDbObjectId> &candidates, const Area &area,
                                  bool crossing, const Filter &filter, Reach reach) {
  std::vector<AcDbObjectId> out;
  for (AcDbObjectId id : candidates) {
    auto *ent = AcDbEntity::cast(objectOf(id));
    if (!ent || ent->isErased() || !reachable(*ent, reach)) continue;
    Shape s = shapeOf(*ent);
    if (!(crossing ? crosses(s, area) : inside(s, area))) continue;
    if (!filter.matches(*ent)) continue;
    out.push_back(id);
  }
  std::sort(out.begin(), out.end(), newer);
  return out;
}

}  // namespace

bool reachable(const AcDbEntity &ent, Reach reach) {
  AcDbDatabase *db = ent.database();
  if (!db) return false;
  AcDbObjectId owner = ent.ownerId();
  if (reach == Reach::Everything) return owner == db->impl()->modelSpace || owner == db->impl()->paperSpace;
  if (owner != db->impl()->modelSpace) return false;
  const AcDbLayerTableRecord *layer = layerOf(ent);
  if (!layer) return true;
  if (layer->isFrozen()) return false;
  return reach == Reach::All || !layer->isOff();
}

const std::vector<AcDbObjectId> &currentSpace(AcDbDatabase *db) {
  static const std::vector<AcDbObjectId> none;
  auto *ms = AcDbBlockTableRecord::cast(objectOf(db->impl()->modelSpace));
  return ms ? ms->entityIds() : none;
}

std::vector<AcDbObjectId> selectArea(AcDbDatabase *db, const Area &area, bool crossing, const Filter &filter,
                                     Reach reach) {
  std::vector<AcDbObjectId> candidates;
  indexQuery(db, area.box(), candidates);
  return testAll(candidates, area, crossing, filter, reach);
}

std::vector<AcDbObjectId> selectAreaByScan(AcDbDatabase *db, const Area &area, bool crossing,
                                           const Filter &filter, Reach reach) {
  return testAll(currentSpace(db), area, crossing, filter, reach);
}

std::vector<AcDbObjectId> selectAll(AcDbDatabase *db, const Filter &filter, Reach reach) {
  std::vector<AcDbObjectId> out;
  auto scan = [&](AcDbObjectId space) {
    auto *rec = AcDbBlockTableRecord::cast(objectOf(space));
    if (!rec) return;
    const std::vector<AcDbObjectId> &ids = rec->entityIds();
    for (auto it = ids.rbegin(); it != ids.rend(); ++it) {
      auto *ent = AcDbEntity::cast(objectOf(*it));
      if (ent && !ent->isErased() && reachable(*ent, reach) && filter.matches(*ent)) out.push_back(*it);
    }
  };
  scan(db->impl()->modelSpace);
  if (reach == Reach::Everything) {
    size_t model = out.size();
    scan(db->impl()->paperSpace);
    std::inplace_merge(out.begin(), out.begin() + long(model), out.end(), newer);
  }
  return out;
}

AcDbObjectId lastEntity(AcDbDatabase *db) {
  const std::vector<AcDbObjectId> &ids = currentSpace(db);
  for (auto it = ids.rbegin(); it != ids.rend(); ++it) {
    auto *ent = AcDbEntity::cast(objectOf(*it));
    if (ent && !ent->isErased() && reachable(*ent, Reach::Visible)) return *it;
  }
  return AcDbObjectId::kNull;
}

double pickHalfSize() {
  double pickbox = realVar(L"PICKBOX", 3);
  double viewsize = realVar(L"VIEWSIZE", 100);
  double screen = 800;
  auto &vars = Session::get().sysvars;
  auto it = vars.find(L"SCREENSIZE");
  if (it != vars.end() && (it->second.restype == RTPOINT || it->second.restype == RT3DPOINT) &&
      it->second.resval.rpoint[1] > 0)
    screen = it->second.resval.rpoint[1];
  return pickbox * viewsize / screen;
}

AcDbObjectId pickAt(AcDbDatabase *db, P2 p, const Filter *filter) {
  double h = std::max(pickHalfSize(), 1e-9);
  Area box = Area::rectangle(P2{p.x - h, p.y - h}, P2{p.x + h, p.y + h});
  std::vector<AcDbObjectId> candidates;
  indexQuery(db, box.box(), candidates);
  AcDbObjectId best;
  double bestDistance = HUGE_VAL;
  for (AcDbObjectId id : candidates) {
    auto *ent = AcDbEntity::cast(objectOf(id));
    if (!ent || ent->isErased() || !reachable(*ent, Reach::Visible)) continue;
    if (filter && !filter->matches(*ent)) continue;
    Shape s = shapeOf(*ent);
    if (!crosses(s, box)) continue;
    double d = distanceTo(s, p);
    if (best.isNull() || d < bestDistance || (d == bestDistance && newer(id, best))) {
      best = id;
      bestDistance = d;
    }
  }
  return best;
}

}  // namespace vantry::host::select
