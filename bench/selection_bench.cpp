// The module's selections on a drawing of 100,000 entities of mixed kinds:
// the model-space scans from LISP, and a crossing window holding about 100
// entities against the same selection made by testing every entity.
//
// The drawing is a grid of 316 x 317 cells 10 units apart, one entity per
// cell, its kind cycling through line, circle, arc, light polyline with a
// bulge, MText, block reference (of two blocks) and 3D face, each within its
// cell. A window of 10 x 10 cells holds about 100 of them.
#include <benchmark/benchmark.h>

#include <cmath>
#include <string>

#include "bench_session.h"

namespace {

namespace lisp = vantry::lisp;
using vantry::bench::session;

constexpr int kEntities = 100000;
constexpr int kColumns = 316;
constexpr double kCell = 10.0;

AcDbObjectId defineBlock(AcDbBlockTable *table, const wchar_t *name) {
  auto *block = new AcDbBlockTableRecord();
  block->setName(name);
  AcDbObjectId id;
  table->add(id, block);
  auto *line = new AcDbLine(AcGePoint3d(0, 0, 0), AcGePoint3d(2, 2, 0));
  block->appendAcDbEntity(line);
  line->close();
  block->close();
  return id;
}

AcDbEntity *entityFor(int i, AcDbObjectId valve, AcDbObjectId damper) {
  double x = (i % kColumns) * kCell + 1, y = (i / kColumns) * kCell + 1;
  switch (i % 8) {
    case 0:
      return new AcDbLine(AcGePoint3d(x, y, 0), AcGePoint3d(x + 5, y + 3, 0));
    case 1:
      return new AcDbCircle(AcGePoint3d(x + 3, y + 3, 0), AcGeVector3d::kZAxis, 2);
    case 2:
      return new AcDbArc(AcGePoint3d(x + 3, y + 3, 0), 2, 0, 3);
    case 3: {
      auto *pl = new AcDbPolyline(3);
      pl->addVertexAt(0, AcGePoint2d(x, y), 0.5);
      pl->addVertexAt(1, AcGePoint2d(x + 4, y));
      pl->addVertexAt(2, AcGePoint2d(x + 4, y + 4));
      return pl;
    }
    case 4: {
      auto *text = new AcDbMText();
      text->setLocation(AcGePoint3d(x, y + 4, 0));
      text->setTextHeight(1.0);
      text->setContents(L"AHU");
      return text;
    }
    case 5:
      return new AcDbBlockReference(AcGePoint3d(x, y, 0), valve);
    case 6:
      return new AcDbBlockReference(AcGePoint3d(x, y, 0), damper);
    default:
      return new AcDbFace(AcGePoint3d(x, y, 0), AcGePoint3d(x + 4, y, 0), AcGePoint3d(x + 4, y + 4, 0));
  }
}

// The drawing lives in a document of its own, so that other benchmarks'
// drawings do not add to it; it is current while one of these runs.
class InSelectionDrawing {
 public:
  InSelectionDrawing() : previous_(vantry::host::Session::get().current()) {
    vantry::host::Session::get().activate(document());
  }
  ~InSelectionDrawing() { vantry::host::Session::get().activate(previous_); }
  lisp::Interp &lisp() { return document()->lisp(); }
  lisp::Value compile(const std::wstring &text) { return lisp().readAll(text, {L"bench", 1}).at(0); }

 private:
  static vantry::host::Document *document();
  vantry::host::Document *previous_;
};

// Makes the document and fills its model space, once.
vantry::host::Document *InSelectionDrawing::document() {
  static vantry::host::Document *doc = [] {
    session();
    vantry::host::Session &s = vantry::host::Session::get();
    vantry::host::Document *previous = s.current();
    vantry::host::Document *made = s.newDocument(L"");
    AcDbDatabase *db = made->database();
    AcDbBlockTable *table = nullptr;
    if (db->getBlockTable(table, AcDb::kForWrite) != Acad::eOk) std::abort();
    AcDbObjectId valve = defineBlock(table, L"VALVE"), damper = defineBlock(table, L"DAMPER");
    AcDbBlockTableRecord *model = nullptr;
    table->getAt(ACDB_MODEL_SPACE, model, AcDb::kForWrite);
    table->close();
    for (int i = 0; i < kEntities; ++i) {
      AcDbEntity *ent = entityFor(i, valve, damper);
      if (model->appendAcDbEntity(ent) != Acad::eOk) std::abort();
      ent->close();
    }
    model->close();
    s.activate(previous);
    return made;
  }();
  return doc;
}

void runScan(benchmark::State &state, const wchar_t *call, int expected) {
  InSelectionDrawing drawing;
  lisp::Interp &in = drawing.lisp();
  lisp::Value form = drawing.compile(call);
  if (lisp::listLength(in.eval(form)) != expected) {
    state.SkipWithError("unexpected selection size");
    return;
  }
  for (auto _ : state) benchmark::DoNotOptimize(in.eval(form));
  // Entities looked at per second: every one of model space.
  state.SetItemsProcessed(state.iterations() * kEntities);
}

void BM_SsgetXAll(benchmark::State &state) {
  runScan(state, L"(ssgetX-all)", kEntities);
}
void BM_SsgetXBlockNamed(benchmark::State &state) {
  runScan(state, L"(ssgetX-block \"valve\")", kEntities / 8);
}
BENCHMARK(BM_SsgetXAll)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SsgetXBlockNamed)->Unit(benchmark::kMillisecond);

// The window: cells 100..109 by 100..109, about 100 entities (and a few
// reaching in from the neighbouring cells).
constexpr double kX0 = 100 * kCell, kY0 = 100 * kCell, kX1 = 110 * kCell, kY1 = 110 * kCell;

void BM_SsgetCWindow(benchmark::State &state) {
  InSelectionDrawing drawing;
  lisp::Interp &in = drawing.lisp();
  lisp::Value form = drawing.compile(L"(ssgetC '(" + std::to_wstring(kX0) + L" " + std::to_wstring(kY0) +
                                     L") '(" + std::to_wstring(kX1) + L" " + std::to_wstring(kY1) + L"))");
  int found = lisp::listLength(in.eval(form));
  for (auto _ : state) benchmark::DoNotOptimize(in.eval(form));
  state.counters["selected"] = found;
}
BENCHMARK(BM_SsgetCWindow)->Unit(benchmark::kMicrosecond);

// The baseline: the same window by testing every entity of model space, as
// a caller without the host's index would: open each, take its extents, keep
// it when they meet the window. Extents are a looser test than the host's
// exact one, so the baseline does less work per entity than a true
// selection would.
void BM_SsgetCByTestingEveryEntity(benchmark::State &state) {
  InSelectionDrawing drawing;
  AcDbDatabase *db = acdbHostApplicationServices()->workingDatabase();
  int found = 0;
  for (auto _ : state) {
    found = 0;
    AcDbBlockTable *table = nullptr;
    db->getBlockTable(table, AcDb::kForRead);
    AcDbBlockTableRecord *model = nullptr;
    table->getAt(ACDB_MODEL_SPACE, model, AcDb::kForRead);
    table->close();
    AcDbBlockTableRecordIterator *it = nullptr;
    model->newIterator(it);
    for (; !it->done(); it->step()) {
      AcDbEntity *ent = nullptr;
      if (it->getEntity(ent, AcDb::kForRead) != Acad::eOk) continue;
      AcDbExtents ext;
      if (ent->getGeomExtents(ext) == Acad::eOk && ext.minPoint().x <= kX1 && ext.maxPoint().x >= kX0 &&
          ext.minPoint().y <= kY1 && ext.maxPoint().y >= kY0)
        ++found;
      ent->close();
    }
    delete it;
    model->close();
  }
  state.counters["selected"] = found;
}
BENCHMARK(BM_SsgetCByTestingEveryEntity)->Unit(benchmark::kMicrosecond);

}  // namespace
