// The host's selection over a drawing of 100,000 entities of mixed kinds:
// acedSSGet "X", and a crossing window holding about 100 entities through
// the spatial index against the same selection made by testing every
// entity (the baseline, in the same run).
#include <benchmark/benchmark.h>

#include <random>

#include "bench_session.h"
#include "select/select.h"

namespace vantry::bench {
namespace {

constexpr int kEntities = 100000;
constexpr double kSide = 1000;  // the drawing is kSide x kSide: 0.1 entity per square unit
// A window of 32 x 32 units holds about 100 entities.
const ads_point kLow = {484, 484, 0}, kHigh = {516, 516, 0};

// A document of its own, so that other benchmarks' drawings do not mix in.
host::Document *drawing() {
  static host::Document *doc = [] {
    session();
    host::Session &s = host::Session::get();
    host::Document *before = s.current();
    host::Document *d = s.newDocument(L"");
    AcDbDatabase *db = d->database();
    AcDbBlockTableRecord *ms = nullptr;
    acdbOpenObject(ms, db->impl()->modelSpace, AcDb::kForWrite);
    std::mt19937 rng(11);
    std::uniform_real_distribution<double> at(0, kSide), size(0.2, 3);
    for (int i = 0; i < kEntities; ++i) {
      double x = at(rng), y = at(rng), r = size(rng);
      AcDbEntity *e;
      switch (i % 4) {
        case 0:
          e = new AcDbLine(AcGePoint3d(x, y, 0), AcGePoint3d(x + r, y + r / 2, 0));
          break;
        case 1:
          e = new AcDbCircle(AcGePoint3d(x, y, 0), AcGeVector3d::kZAxis, r);
          break;
        case 2:
          e = new AcDbArc(AcGePoint3d(x, y, 0), r, 0.5, 2.0);
          break;
        default: {
          auto *p = new AcDbPolyline;
          p->addVertexAt(0, AcGePoint2d(x, y), 0.5);
          p->addVertexAt(1, AcGePoint2d(x + r, y));
          p->addVertexAt(2, AcGePoint2d(x + r, y + r));
          e = p;
        }
      }
      ms->appendAcDbEntity(e);
      e->close();
    }
    ms->close();
    if (before) s.activate(before);
    return d;
  }();
  return doc;
}

// Makes the selection drawing current for one benchmark.
struct Current {
  host::Document *before;
  Current() : before(host::Session::get().current()) { host::Session::get().activate(drawing()); }
  ~Current() {
    if (before) host::Session::get().activate(before);
  }
};

void BM_SSGetAll(benchmark::State &state) {
  Current current;
  int32_t n = 0;
  for (auto _ : state) {
    ads_name ss;
    if (acedSSGet(L"X", nullptr, nullptr, nullptr, ss) != RTNORM) state.SkipWithError("no selection");
    acedSSLength(ss, &n);
    acedSSFree(ss);
  }
  state.SetItemsProcessed(state.iterations() * n);
}

void BM_SSGetCrossingIndexed(benchmark::State &state) {
  Current current;
  int32_t n = 0;
  for (auto _ : state) {
    ads_name ss;
    if (acedSSGet(L"_C", kLow, kHigh, nullptr, ss) != RTNORM) state.SkipWithError("no selection");
    acedSSLength(ss, &n);
    acedSSFree(ss);
  }
  state.counters["found"] = n;
}

// The same selection by testing every entity of model space.
void BM_CrossingByTestingEveryEntity(benchmark::State &state) {
  Current current;
  AcDbDatabase *db = drawing()->database();
  host::select::Filter none;
  host::select::Area area = host::select::Area::rectangle({kLow[0], kLow[1]}, {kHigh[0], kHigh[1]});
  size_t n = 0;
  for (auto _ : state) n = host::select::selectAreaByScan(db, area, true, none).size();
  state.counters["found"] = double(n);
}

// Building the index from nothing: what the first window of a session pays.
void BM_IndexBuild(benchmark::State &state) {
  Current current;
  AcDbDatabase *db = drawing()->database();
  std::vector<AcDbObjectId> out;
  for (auto _ : state) {
    host::select::indexReset();
    out.clear();
    host::select::indexQuery(db, host::select::Box{kLow[0], kLow[1], kHigh[0], kHigh[1]}, out);
  }
  state.SetItemsProcessed(state.iterations() * kEntities);
}

BENCHMARK(BM_SSGetAll)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SSGetCrossingIndexed)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CrossingByTestingEveryEntity)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_IndexBuild)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace vantry::bench
