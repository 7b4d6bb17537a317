// The module's AcDbCurve::getLength called from LISP on 100,000 light
// polylines of model space, against a plain LISP loop over the same entity
// names that calls a built-in instead (what the loop itself costs).
#include <benchmark/benchmark.h>

#include <cstdlib>

#include "bench_session.h"

namespace {

using vantry::host::Document;
using vantry::host::Session;
namespace lisp = vantry::lisp;

// The document of the shared bench session (others may have made and
// closed documents since), current.
lisp::Interp &benchDocument() {
  lisp::Interp &in = vantry::bench::session();
  for (const auto &d : Session::get().documents())
    if (&d->lisp() == &in) {
      Session::get().activate(d.get());
      return in;
    }
  std::abort();
}

// 100,000 polylines of four vertices, one bulged segment each (the shape
// bench/db_bench.cpp measures without LISP), made once; their names are in
// *POLYS*.
lisp::Interp &withPolylines() {
  lisp::Interp &in = benchDocument();
  static bool made = [&in] {
    in.evalText(
        L"(setq *polys* nil i 0)"
        L"(repeat 100000 (setq i (1+ i) x (float (rem i 1000)))"
        L" (entmake (list '(0 . \"LWPOLYLINE\") '(100 . \"AcDbEntity\") '(100 . \"AcDbPolyline\")"
        L"  '(90 . 4) '(70 . 0) (list 10 x 0.0) '(42 . 0.5) (list 10 (+ x 2) 0.0) (list 10 (+ x 2) 3.0)"
        L"  (list 10 x 3.0)))"
        L" (setq *polys* (cons (entlast) *polys*)))",
        {L"bench", 1});
    return true;
  }();
  (void)made;
  return in;
}

void run(benchmark::State &state, const wchar_t *loop) {
  lisp::Interp &in = withPolylines();
  lisp::Value form = vantry::bench::compile(loop);
  for (auto _ : state) benchmark::DoNotOptimize(in.eval(form));
  state.SetItemsProcessed(state.iterations() * 100000);
}

void BM_CurveLengthFromLisp(benchmark::State &state) {
  run(state, L"(foreach e *polys* (AcDbCurve::getLength e))");
}
void BM_CurveLengthBaselineLispLoop(benchmark::State &state) {
  run(state, L"(foreach e *polys* (type e))");
}

BENCHMARK(BM_CurveLengthBaselineLispLoop)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CurveLengthFromLisp)->Unit(benchmark::kMillisecond);

}  // namespace
