// AppendToModelSpace: the shared entity-appending routine.
#include "drawing/append.h"

#include <cwchar>

namespace vantry::drawing {

bool AppendToModelSpace(AcDbEntity *entity) {
  AcDbDatabase *db = acdbHostApplicationServices()->workingDatabase();
  AcApDocument *doc = acDocManager->document(db);
  acDocManager->lockDocument(doc, AcAp::kWrite, nullptr, nullptr, true);
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
  acDocManager->unlockDocument(doc);
  return ok;
}

}  // namespace vantry::drawing
