// Making duct solids and handing them to the drawing.
#include "ducts/fitting.h"

#include "drawing/append.h"

namespace vantry::ducts {

ol_hvacSolid *newSolid() {
  ol_hvacSolid *solid = ol_hvacSolid::create();
  if (!solid)
    acutPrintf(L"%s", L"\nNo duct solid made: the solid module ol_ol-solid2025x64.dbx is not loaded.\n");
  return solid;
}

bool addToDrawingEntity(AcDbEntity *entity, ads_name &name) {
  if (!drawing::AppendToModelSpace(entity)) {
    delete entity;
    return false;
  }
  acdbGetAdsName(name, entity->objectId());
  entity->close();
  return true;
}

bool addToDrawing(ol_hvacSolid *solid, ads_name &name) {
  return addToDrawingEntity(solid, name);
}

void appendNamePair(resbuf *&tail, const ACHAR *key, const int64_t *name) {
  resbuf *pair = name ? acutBuildList(RTLB, RTSTR, key, RTDOTE, RTENAME, name, RTLE, 0)
                      : acutBuildList(RTLB, RTSTR, key, RTDOTE, RTNIL, RTLE, 0);
  tail->rbnext = pair;
  while (tail->rbnext) tail = tail->rbnext;
}

}  // namespace vantry::ducts
