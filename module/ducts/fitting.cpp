// Making duct solids and handing them to the drawing.
#include "ducts/fitting.h"

#include "drawing/append.h"
#include "frame/value_list.h"

namespace vantry::ducts {

void LetGo::operator()(AcDbEntity *entity) const {
  if (entity->objectId().isNull())
    delete entity;
  else
    entity->close();
}

SolidPtr newSolid() {
  SolidPtr solid(ol_hvacSolid::create());
  if (!solid) tellNoSolid("the solid module ol_ol-solid2025x64.dbx is not loaded");
  return solid;
}

void tellNoSolid(const char *why) {
  acutPrintf(L"\nNo duct solid made: %hs.\n", why && *why ? why : "the solid modeller refused it");
}

bool refused(const ol_hvacSolid &) {
  return false;
}

bool addToDrawing(EntityPtr entity, ads_name &name) {
  if (!drawing::AppendToModelSpace(entity.get())) return false;
  acdbGetAdsName(name, entity->objectId());
  entity.reset();  // in the drawing now, so closed
  return true;
}

void answerSolid(SolidPtr solid, const ACHAR *key) {
  ads_name name;
  if (!addToDrawing(std::move(solid), name)) return;
  frame::ResultChain result;
  result.add(RTLB);
  result.addPair(key, name);
  result.add(RTLE);
  result.returnToHost();
}
}  // namespace vantry::ducts
