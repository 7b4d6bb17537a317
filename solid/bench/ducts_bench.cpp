// The duct fitting functions from LISP against the bare modeller operations each performs, in the
// same run, and a duct system of 100 fittings built from LISP.
//
// A LISP fitting call adds to its modeller operations: the evaluator, the arguments crossing as
// result buffers, frames and justification, the entity, and its appending to the drawing. The
// baselines call vantry::solid::SolidBodies with the same sections and points.
#include <benchmark/benchmark.h>

#include <cmath>
#include <string>

#include "session/session.h"
#include "solid_body.h"

namespace {

using vantry::solid::Frame;
using vantry::solid::Pt;
using vantry::solid::SolidBodies;
namespace lisp = vantry::lisp;

const Frame kEast{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
const Frame kNorth{{0, 1, 0}, {-1, 0, 0}, {0, 0, 1}};
lisp::Interp &session() {
  static lisp::Interp *in = [] {
    vantry::host::Session &s = vantry::host::Session::get();
    s.newDocument(L"");
    if (!s.loadModule(L"Vantry2025x64.arx", false)) std::abort();
    lisp::Interp &i = s.current()->lisp();
    i.eval(
        i.readAll(L"(defun run (x0 y0 x1 y1 w d shape) (list x0 y0 3000.0 x1 y1 3000.0 0 0.0 0.0 w d shape "
                  L"0.0 0.0 \"\" \"\" 0 0.0))",
                  {L"bench", 1})
            .at(0));
    return &i;
  }();
  return *in;
}

void runLisp(benchmark::State &state, const wchar_t *text) {
  lisp::Interp &in = session();
  lisp::Value form = in.readAll(text, {L"bench", 1}).at(0);
  for (auto _ : state) {
    lisp::Value v = in.eval(form);
    if (v.isNil()) state.SkipWithError("the fitting answered nil");
    benchmark::DoNotOptimize(v);
  }
}

// --- Straight piece: one prism -------------------------------------------------------------------

void BM_LispStraight(benchmark::State &state) {
  runLisp(state, L"(ol_ol-drawTripleCenter nil 0 (run 0.0 0.0 1000.0 0.0 600.0 400.0 \"RC\"))");
}
void BM_BareStraight(benchmark::State &state) {
  for (auto _ : state) {
    SolidBodies s;
    s.addTransition({0, 0, 3000}, true, 600, 400, {1000, 0, 3000}, true, 600, 400, kEast, kEast, 0);
    benchmark::DoNotOptimize(s);
  }
}

// --- Transition: rectangle to round ------------------------------------------------------------

void BM_LispTransition(benchmark::State &state) {
  runLisp(state,
          L"(ol_ol-drawTripleTransition nil 0 (run 0.0 0.0 1000.0 0.0 600.0 400.0 \"RC\") "
          L"(run 1000.0 0.0 2000.0 0.0 400.0 400.0 \"RD\"))");
}
void BM_BareTransition(benchmark::State &state) {
  const double length = 300;  // half the larger side of the 600 x 400 end
  for (auto _ : state) {
    SolidBodies s;
    s.addTransition({1000, 0, 3000}, true, 600, 400, {1000 + length, 0, 3000}, false, 400, 400, kEast, kEast,
                    0);
    benchmark::DoNotOptimize(s);
  }
}

// --- Radius elbow ---------------------------------------------------------------------------------

void BM_LispRadiusElbow(benchmark::State &state) {
  runLisp(state,
          L"(ol_ol-drawTripleElbow nil 0 nil 600.0 (run 0.0 0.0 1000.0 0.0 600.0 400.0 \"RC\") "
          L"(run 1000.0 0.0 1000.0 1000.0 600.0 400.0 \"RC\"))");
}
void BM_BareRadiusElbow(benchmark::State &state) {
  for (auto _ : state) {
    SolidBodies s;
    s.addRadiusElbow({400, 0, 3000}, 600, 400, 0, 0, {1000, 600, 3000}, 600, 400, kEast, kNorth, true, 1.0,
                     false, 0, true);
    benchmark::DoNotOptimize(s);
  }
}

// --- Square elbow: the prep, then the elbow ---------------------------------------------------------

void BM_LispSquareElbow(benchmark::State &state) {
  runLisp(state,
          L"(ol_ol-drawTripleElbow nil 0 T 600.0 (run 0.0 0.0 1000.0 0.0 600.0 400.0 \"RC\") "
          L"(run 1000.0 0.0 1000.0 1000.0 600.0 400.0 \"RC\"))");
}
void BM_BareSquareElbow(benchmark::State &state) {
  for (auto _ : state) {
    SolidBodies s;
    Pt heel, throat, corner;
    s.addSquareElbowPrep({400, 0, 3000}, 600, 400, {1000, 600, 3000}, 600, 400, kEast, kNorth, true, heel,
                         throat, corner, false, 1e-6);
    s.addSquareElbow({400, 0, 3000}, 600, 400, {1000, 600, 3000}, 600, 400, kEast, kNorth, true, heel, throat,
                     corner, 0);
    benchmark::DoNotOptimize(s);
  }
}

// --- Trapeze hanger: two rods and a strut ------------------------------------------------------------

void BM_LispHanger(benchmark::State &state) {
  runLisp(state, L"(ol_ol-drawHanger nil '(500.0 0.0 3000.0) 0.0 600.0 400.0 nil 10.0 40.0 4000.0 0)");
}
void BM_BareHanger(benchmark::State &state) {
  const Frame rod1{{0, 0, 1}, {1, 0, 0}, {0, 1, 0}}, rod2{{0, 0, 1}, {-1, 0, 0}, {0, -1, 0}};
  for (auto _ : state) {
    SolidBodies s;
    s.addTransition({500, -310, 2760}, false, 10, 10, {500, -310, 4000}, false, 10, 10, rod1, rod1, 0);
    s.addTransition({500, 310, 4000}, false, 10, 10, {500, 310, 2760}, false, 10, 10, rod2, rod2, 0);
    s.addTransition({510, 0, 2780}, true, 640, 40, {490, 0, 2780}, true, 640, 40, kEast, kEast, 0);
    benchmark::DoNotOptimize(s);
  }
}

// --- Wye: the prep twice, then the wye -----------------------------------------------------------------

void BM_LispWye(benchmark::State &state) {
  runLisp(state,
          L"(ol_ol-drawTripleWye nil 0 nil 0.0 (run 0.0 0.0 1000.0 0.0 400.0 200.0 \"RC\") "
          L"(run 1000.0 0.0 2000.0 1000.0 300.0 200.0 \"RC\") (run 1000.0 0.0 2000.0 -1000.0 300.0 200.0 "
          L"\"RC\"))");
}
void BM_BareWye(benchmark::State &state) {
  const double h = std::sqrt(0.5);
  const Frame ne{{h, h, 0}, {-h, h, 0}, {0, 0, 1}}, se{{h, -h, 0}, {h, h, 0}, {0, 0, 1}};
  for (auto _ : state) {
    SolidBodies s;
    Pt l1, l2, l3, c1, c2, c3;
    s.addWyePrep({800, 0, 3000}, 400, 200, {1000 + 200 * h, 200 * h, 3000}, 300, 200,
                 {1000 + 200 * h, -200 * h, 3000}, 300, 200, kEast, ne, se, true, l1, l2, l3, c1, c2, c3,
                 true, 1e-3);
    s.addWye({800, 0, 3000}, 400, 200, {1000 + 200 * h, 200 * h, 3000}, 300, 200,
             {1000 + 200 * h, -200 * h, 3000}, 300, 200, {1000, 0, 3000}, kEast, ne, se, true, l1, l2, l3, c1,
             c2, c3, 0);
    benchmark::DoNotOptimize(s);
  }
}

// --- A duct system of 100 fittings from LISP ---------------------------------------------------------

// 10 bays, each: 6 straight pieces, a transition, an elbow, a hanger and a takeoff or a wye.
const wchar_t kSystem[] =
    LR"((progn
  (setq n 0)
  (repeat 10
    (setq y (* n 5000.0) n (1+ n))
    (foreach x '(0.0 1000.0 2000.0 3000.0 4000.0 5000.0)
      (ol_ol-drawTripleCenter nil 0 (run x y (+ x 1000.0) y 600.0 400.0 "RC")))
    (ol_ol-drawTripleTransition nil 0 (run 0.0 y 1000.0 y 600.0 400.0 "RC") (run 1000.0 y 2000.0 y 500.0 400.0 "RC"))
    (ol_ol-drawTripleElbow nil 0 nil 600.0 (run 5000.0 y 6000.0 y 600.0 400.0 "RC")
                           (run 6000.0 y 6000.0 (+ y 1000.0) 600.0 400.0 "RC"))
    (ol_ol-drawHanger nil (list 500.0 y 3000.0) 0.0 600.0 400.0 nil 10.0 40.0 4000.0 0)
    (if (= (rem n 2) 0)
      (ol_ol-drawTripleTakeoff nil 0 nil 100.0 (run 2000.0 y 3000.0 y 600.0 400.0 "RC")
                               (run 3000.0 y 4000.0 y 600.0 400.0 "RC") (run 3000.0 y 3000.0 (+ y 900.0) 300.0 300.0 "RD")
                               (run 3000.0 y 3000.0 y 300.0 300.0 "RD"))
      (ol_ol-drawTripleWye nil 0 nil 0.0 (run 7000.0 y 8000.0 y 400.0 200.0 "RC")
                           (run 8000.0 y 9000.0 (+ y 1000.0) 300.0 200.0 "RC")
                           (run 8000.0 y 9000.0 (- y 1000.0) 300.0 200.0 "RC"))))
  n))";

void BM_LispDuctSystem100(benchmark::State &state) {
  lisp::Interp &in = session();
  lisp::Value form = in.readAll(kSystem, {L"bench", 1}).at(0);
  for (auto _ : state) benchmark::DoNotOptimize(in.eval(form));
}

}  // namespace

BENCHMARK(BM_LispStraight)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BareStraight)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LispTransition)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BareTransition)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LispRadiusElbow)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BareRadiusElbow)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LispSquareElbow)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BareSquareElbow)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LispHanger)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BareHanger)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LispWye)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BareWye)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LispDuctSystem100)->Unit(benchmark::kMillisecond)->Iterations(3);
