// AppendToModelSpace: the shared entity-appending routine.
#include "drawing/append.h"

#include <cwchar>

namespace vantry::drawing {

bool AppendToModelSpace(AcDbEntity *entity) {
  // The current document's drawing, not the working database: a command may
  // have pointed the working database at a side drawing, but new entities
  // belong where the person is drawing.
  AcApDocument *doc = acDocManager->curDocument();
  AcDbDatabase *db = doc ? doc->database() : nullptr;
  bool locked = doc && acDocManager->lockDocument(doc, AcAp::kWrite, nullptr, nullptr, true) == Acad::eOk;
  bool ok = false;
  AcDbBlockTable *table = nullptr;
  if (!db || db->getBlockTable(table, AcDb::kForRead) != Acad::eOk || !table) {
    acedAlert(L"Failed to get block table!");
  } else {
    AcDbBlockTableRecord *space = nullptr;
    if (table->getAt(ACDB_MODEL_SPACE, space, AcDb::kForWrite) != Acad::eOk || !space) {
      acedAlert(L"Failed to get block table record!");
    } else {
      Acad::ErrorStatus es = space->appendAcDbEntity(entity);
      if (es != Acad::eOk) {
        wchar_t text[64];
        std::swprintf(text, 64, L"Failed to append entity!\n%i", int(es));
        acedAlert(text);
      } else {
        ok = true;
      }
      space->close();
    }
    table->close();
  }
  if (locked) acDocManager->unlockDocument(doc);
  return ok;
}

void returnNewEntity(AcDbEntity *entity) {
  ads_name name;
  if (!entity->objectId().isNull() && acdbGetAdsName(name, entity->objectId()) == Acad::eOk)
    acedRetName(name, RTENAME);
  if (entity->objectId().isNull())
    delete entity;
  else
    entity->close();
}

}  // namespace vantry::drawing
