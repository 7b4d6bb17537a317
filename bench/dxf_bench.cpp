// Drawing files: saving a drawing of 100,000 mixed entities as DXF and
// opening it again, against the bare cost of writing and reading the same
// number of bytes with stdio (the floor any writer or reader pays).
// bench/ezdxf_bench.py does the same save and open with ezdxf on the file
// this writes (VANTRY_DXF_BENCH_FILE, default /tmp/vantry-dxf-bench.dxf).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "db/db.h"
#include "dxf/dxf.h"

namespace {

const int kCount = 100000;

std::string benchFile() {
  const char *p = std::getenv("VANTRY_DXF_BENCH_FILE");
  return p ? p : "/tmp/vantry-dxf-bench.dxf";
}

// Lines, circles, arcs, light polylines with bulges, 2D polylines, faces and
// a few MTexts, on ten layers, one in ten with extended data.
AcDbDatabase &drawing() {
  static AcDbDatabase *db = [] {
    auto *d = new AcDbDatabase;
    AcDbSymbolTable *layers = nullptr;
    acdbOpenObject(layers, d->layerTableId(), AcDb::kForWrite);
    std::vector<AcDbObjectId> layerIds;
    for (int i = 0; i < 10; ++i) {
      auto *rec = new AcDbLayerTableRecord;
      rec->setName((L"Layer" + std::to_wstring(i)).c_str());
      AcDbObjectId id;
      layers->add(id, rec);
      rec->close();
      layerIds.push_back(id);
    }
    layers->close();
    AcDbSymbolTable *apps = nullptr;
    acdbOpenObject(apps, d->regAppTableId(), AcDb::kForWrite);
    auto *app = new AcDbRegAppTableRecord;
    app->setName(L"VT_APP");
    apps->add(app);
    app->close();
    apps->close();
    AcDbBlockTableRecord *ms = nullptr;
    acdbOpenObject(ms, vantry::host::recordId(d->blockTableId(), ACDB_MODEL_SPACE), AcDb::kForWrite);
    resbuf *xd = acutBuildList(1001, L"VT_APP", 1000, L"Zuluft", 1070, 3, 1040, 2.5, 0);
    for (int i = 0; i < kCount; ++i) {
      double x = i * 0.37, y = (i % 1000) * 1.13;
      AcDbEntity *e;
      switch (i % 7) {
        case 0:
          e = new AcDbLine(AcGePoint3d(x, y, 0), AcGePoint3d(x + 1.5, y + 0.7, 0));
          break;
        case 1:
          e = new AcDbCircle(AcGePoint3d(x, y, 0), AcGeVector3d::kZAxis, 0.25 + i % 5);
          break;
        case 2:
          e = new AcDbArc(AcGePoint3d(x, y, 0), 1.0 + i % 3, 0.1, 2.2);
          break;
        case 3:
        case 4: {
          auto *p = new AcDbPolyline;
          p->addVertexAt(0, AcGePoint2d(x, y), 0.3);
          p->addVertexAt(1, AcGePoint2d(x + 2, y));
          p->addVertexAt(2, AcGePoint2d(x + 2, y + 2), -0.5);
          p->addVertexAt(3, AcGePoint2d(x, y + 2));
          p->setClosed(true);
          e = p;
          break;
        }
        case 5: {
          AcGePoint3dArray pts;
          for (int k = 0; k < 3; ++k) pts.append(AcGePoint3d(x + k, y + (k % 2), 0));
          e = new AcDb2dPolyline(AcDb::k2dSimplePoly, pts);
          break;
        }
        default:
          if (i % 70 == 6) {
            auto *t = new AcDbMText;
            t->setContents(L"Duct 300x200");
            t->setLocation(AcGePoint3d(x, y, 0));
            e = t;
          } else {
            e = new AcDbFace(AcGePoint3d(x, y, 0), AcGePoint3d(x + 1, y, 0), AcGePoint3d(x + 1, y + 1, 0));
          }
      }
      e->setLayer(layerIds[i % 10]);
      AcDbObjectId id;
      ms->appendAcDbEntity(id, e);
      if (i % 10 == 0) e->setXData(xd);
      e->close();
    }
    acutRelRb(xd);
    ms->close();
    return d;
  }();
  return *db;
}

void BM_DxfSave100k(benchmark::State &state) {
  AcDbDatabase &db = drawing();
  std::wstring error;
  for (auto _ : state)
    if (vantry::host::saveDxf(&db, benchFile(), &error) != Acad::eOk) state.SkipWithError("save failed");
  state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(BM_DxfSave100k)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_DxfOpen100k(benchmark::State &state) {
  std::wstring error;
  if (vantry::host::saveDxf(&drawing(), benchFile(), &error) != Acad::eOk) state.SkipWithError("save failed");
  for (auto _ : state) {
    auto *into = new AcDbDatabase(false);
    if (vantry::host::openDxf(benchFile(), into, &error) != Acad::eOk) state.SkipWithError("open failed");
    state.PauseTiming();  // deleting the drawing is not part of opening it
    delete into;
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(BM_DxfOpen100k)->Unit(benchmark::kMillisecond)->Iterations(3);

// The drawings other programs wrote (the shared data's dxf folder, named by
// $VANTRY_SHARED_DATA): all of them opened, then all of them saved, per
// round. bench/ezdxf_bench.py --dir does the same with ezdxf.
std::vector<std::string> realDrawings() {
  std::vector<std::string> out;
  const char *root = std::getenv("VANTRY_SHARED_DATA");
  if (!root) return out;
  std::error_code ec;
  for (const auto &e : std::filesystem::directory_iterator(std::filesystem::path(root) / "dxf", ec))
    if (e.path().extension() == ".dxf") out.push_back(e.path().string());
  return out;
}

void BM_DxfOpenRealDrawings(benchmark::State &state) {
  std::vector<std::string> files = realDrawings();
  if (files.empty()) return state.SkipWithError("set VANTRY_SHARED_DATA to the shared data folder");
  std::wstring error;
  for (auto _ : state) {
    for (const std::string &f : files) {
      auto *into = new AcDbDatabase(false);
      if (vantry::host::openDxf(f, into, &error) != Acad::eOk) state.SkipWithError("open failed");
      state.PauseTiming();
      delete into;
      state.ResumeTiming();
    }
  }
  state.SetItemsProcessed(state.iterations() * int64_t(files.size()));
}
BENCHMARK(BM_DxfOpenRealDrawings)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_DxfSaveRealDrawings(benchmark::State &state) {
  std::vector<std::string> files = realDrawings();
  if (files.empty()) return state.SkipWithError("set VANTRY_SHARED_DATA to the shared data folder");
  std::vector<AcDbDatabase *> dbs;
  std::wstring error;
  for (const std::string &f : files) {
    dbs.push_back(new AcDbDatabase(false));
    if (vantry::host::openDxf(f, dbs.back(), &error) != Acad::eOk) return state.SkipWithError("open failed");
  }
  std::string out = benchFile() + ".real.dxf";
  for (auto _ : state)
    for (AcDbDatabase *db : dbs)
      if (vantry::host::saveDxf(db, out, &error) != Acad::eOk) state.SkipWithError("save failed");
  for (AcDbDatabase *db : dbs) delete db;
  std::remove(out.c_str());
  state.SetItemsProcessed(state.iterations() * int64_t(files.size()));
}
BENCHMARK(BM_DxfSaveRealDrawings)->Unit(benchmark::kMillisecond)->Iterations(5);

// The floor: the same bytes written and read back with stdio, no parsing.
void BM_DxfBaselineStdioSameBytes(benchmark::State &state) {
  std::string path = benchFile();
  FILE *f = std::fopen(path.c_str(), "rb");
  if (!f) {
    state.SkipWithError("run BM_DxfSave100k first");
    return;
  }
  std::string text;
  char buf[1 << 16];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) text.append(buf, n);
  std::fclose(f);
  std::string copy = path + ".copy";
  for (auto _ : state) {
    FILE *out = std::fopen(copy.c_str(), "wb");
    std::fwrite(text.data(), 1, text.size(), out);
    std::fclose(out);
    FILE *in = std::fopen(copy.c_str(), "rb");
    std::string back;
    while ((n = std::fread(buf, 1, sizeof buf, in)) > 0) back.append(buf, n);
    std::fclose(in);
    benchmark::DoNotOptimize(back.size());
  }
  std::remove(copy.c_str());
  state.SetBytesProcessed(int64_t(state.iterations() * text.size()));
}
BENCHMARK(BM_DxfBaselineStdioSameBytes)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
