// The drawing database: entmake of 100,000 lines from LISP against a plain
// LISP loop of the same length and shape, and curve length queries on
// 100,000 light polylines against the bare arithmetic of the same lengths.
#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>
#include <vector>

#include "db/lisp_data.h"
#include "session/session.h"

namespace {

using vantry::host::Session;
namespace lisp = vantry::lisp;

const int kCount = 100000;

lisp::Interp &interp() {
  static lisp::Interp *in = [] {
    Session &s = Session::get();
    s.newDocument(L"");
    vantry::host::installEntityLisp(s.current()->lisp());
    return &s.current()->lisp();
  }();
  return *in;
}

lisp::Value compile(const wchar_t *text) {
  return interp().readAll(text, {L"bench", 1}).at(0);
}

// The baseline builds the same list per step and hands it to a built-in
// that does nothing with it.
void BM_LispLoopBuildingLineLists(benchmark::State &state) {
  lisp::Value loop = compile(
      L"(progn (setq i 0) (repeat 100000 (setq i (1+ i))"
      L" (length (list '(0 . \"LINE\") (list 10 i 0.0 0.0) (list 11 i 1.0 0.0)))))");
  for (auto _ : state) benchmark::DoNotOptimize(interp().eval(loop));
  state.SetItemsProcessed(state.iterations() * kCount);
}

void BM_EntmakeLines(benchmark::State &state) {
  for (auto _ : state) {
    state.PauseTiming();
    Session::get().newDocument(L"");  // a fresh drawing each round
    vantry::host::installEntityLisp(Session::get().current()->lisp());
    lisp::Interp &in = Session::get().current()->lisp();
    lisp::Value form = in.readAll(
        L"(progn (setq i 0) (repeat 100000 (setq i (1+ i))"
        L" (entmake (list '(0 . \"LINE\") (list 10 i 0.0 0.0) (list 11 i 1.0 0.0)))))",
        {L"bench", 1})[0];
    state.ResumeTiming();
    benchmark::DoNotOptimize(in.eval(form));
    state.PauseTiming();
    Session::get().close(Session::get().current());
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}

BENCHMARK(BM_LispLoopBuildingLineLists)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EntmakeLines)->Unit(benchmark::kMillisecond);

// 100,000 polylines of four vertices, one bulged segment each.
std::vector<std::unique_ptr<AcDbPolyline>> &polylines() {
  static auto *v = [] {
    auto *out = new std::vector<std::unique_ptr<AcDbPolyline>>();
    for (int i = 0; i < kCount; ++i) {
      auto p = std::make_unique<AcDbPolyline>(4);
      double x = i % 1000;
      p->addVertexAt(0, AcGePoint2d(x, 0), 0.5);
      p->addVertexAt(1, AcGePoint2d(x + 2, 0));
      p->addVertexAt(2, AcGePoint2d(x + 2, 3));
      p->addVertexAt(3, AcGePoint2d(x, 3));
      out->push_back(std::move(p));
    }
    return out;
  }();
  return *v;
}

// The length as the module asks for it: end parameter, then distance there.
void BM_CurveLength(benchmark::State &state) {
  auto &all = polylines();
  for (auto _ : state) {
    double total = 0;
    for (auto &p : all) {
      double end, len;
      p->getEndParam(end);
      p->getDistAtParam(end, len);
      total += len;
    }
    benchmark::DoNotOptimize(total);
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}

// The same lengths computed directly from the vertices.
void BM_BareLengthArithmetic(benchmark::State &state) {
  auto &all = polylines();
  for (auto _ : state) {
    double total = 0;
    for (auto &p : all) {
      for (unsigned i = 0; i + 1 < p->numVerts(); ++i) {
        AcGePoint2d a, b;
        double bulge;
        p->getPointAt(i, a);
        p->getPointAt(i + 1, b);
        p->getBulgeAt(i, bulge);
        double chord = a.distanceTo(b);
        double sweep = 4 * std::atan(bulge);
        total += bulge == 0 ? chord : chord / (2 * std::sin(std::fabs(sweep) / 2)) * std::fabs(sweep);
      }
    }
    benchmark::DoNotOptimize(total);
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}

BENCHMARK(BM_CurveLength)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BareLengthArithmetic)->Unit(benchmark::kMillisecond);

}  // namespace
