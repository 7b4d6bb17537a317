// The sibling module's LISP function ol_solid-exportStep: every ol_hvacSolid in the current
// drawing's model space into one STEP file.
//
//   (ol_solid-exportStep "path.step") -> the number of solids written, or nil (with a message)
//
// Registered for each document under kExportStepCode, a code far above the product module's
// (0 to 173): the stand-in keeps one code space per document.
#include "export_step.h"

#include <string>
#include <vector>

#include "solid/hvac_solid.h"
#include "step_export.h"

namespace {

std::string narrow(const wchar_t *w) {
  std::string out;
  for (; *w; ++w) {
    wchar_t c = *w;
    if (c < 0x80) {
      out += char(c);
    } else if (c < 0x800) {
      out += char(0xC0 | (c >> 6)), out += char(0x80 | (c & 0x3F));
    } else {
      out += char(0xE0 | (c >> 12)), out += char(0x80 | ((c >> 6) & 0x3F)), out += char(0x80 | (c & 0x3F));
    }
  }
  return out;
}

// Every solid of model space, opened for read; the caller closes them.
std::vector<ol_hvacSolid *> openSolids() {
  std::vector<ol_hvacSolid *> solids;
  AcDbDatabase *db = acdbHostApplicationServices()->workingDatabase();
  AcDbBlockTable *table = nullptr;
  if (!db || db->getBlockTable(table, AcDb::kForRead) != Acad::eOk) return solids;
  AcDbBlockTableRecord *space = nullptr;
  if (table->getAt(ACDB_MODEL_SPACE, space, AcDb::kForRead) == Acad::eOk) {
    AcDbBlockTableRecordIterator *it = nullptr;
    if (space->newIterator(it) == Acad::eOk) {
      for (; !it->done(); it->step()) {
        AcDbObjectId id;
        ol_hvacSolid *solid = nullptr;
        if (it->getEntityId(id) == Acad::eOk && acdbOpenObject(solid, id, AcDb::kForRead) == Acad::eOk)
          solids.push_back(solid);
      }
      delete it;
    }
    space->close();
  }
  table->close();
  return solids;
}

int exportStep() {
  acedRetNil();
  resbuf *args = acedGetArgs();
  if (!args || args->restype != RTSTR || !args->resval.rstring) {
    acutRelRb(args);
    acutPrintf(L"%s", L"\nol_solid-exportStep: a file name is needed.\n");
    return RSRSLT;
  }
  std::string path = narrow(args->resval.rstring);
  acutRelRb(args);
  std::vector<ol_hvacSolid *> solids = openSolids();
  std::vector<const vantry::solid::SolidBodies *> bodies;
  for (const ol_hvacSolid *s : solids)
    if (s->bodyCount() > 0) bodies.push_back(&s->bodies());
  std::string error;
  bool ok = vantry::solid::writeStepFile(bodies, path, error);
  int count = int(bodies.size());
  for (ol_hvacSolid *s : solids) s->close();
  if (!ok) {
    std::wstring why(error.begin(), error.end());
    acutPrintf(L"\nNo STEP file written: %s.\n", why.c_str());
    return RSRSLT;
  }
  acedRetInt(count);
  return RSRSLT;
}

}  // namespace

void registerExportStep() {
  acedDefun(kExportStepName, kExportStepCode);
  acedRegFunc(exportStep, kExportStepCode);
}

void unregisterExportStep() {
  acedRegFunc(nullptr, kExportStepCode);
  acedUndef(kExportStepName, kExportStepCode);
}
