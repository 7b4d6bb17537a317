// The host's AutoLISP: the cost of an external call against a built-in one,
// and two plain LISP workloads against the same work in C++.
#include <benchmark/benchmark.h>

#include <cmath>

#include "bench_session.h"

namespace {

namespace lisp = vantry::lisp;
using vantry::bench::compile;
lisp::Interp &interp() {
  return vantry::bench::session();
}

// A loop of calls of one function of one real, in LISP.
void runCalls(benchmark::State &state, const wchar_t *fn) {
  lisp::Interp &in = interp();
  in.evalText(std::wstring(L"(defun bench-loop (n / x) (setq x 0.5) (repeat n (") + fn + L" x)))",
              {L"bench", 1});
  lisp::Value call = compile(L"(bench-loop 1000)");
  for (auto _ : state) benchmark::DoNotOptimize(in.eval(call));
  state.SetItemsProcessed(state.iterations() * 1000);
}

void BM_BuiltinSin(benchmark::State &state) {
  runCalls(state, L"sin");
}
void BM_ExternalSin(benchmark::State &state) {
  runCalls(state, L"tm-sin");
}
BENCHMARK(BM_BuiltinSin);
BENCHMARK(BM_ExternalSin);

int nativeFib(int n) {
  return n < 2 ? n : nativeFib(n - 1) + nativeFib(n - 2);
}

void BM_NativeFib25(benchmark::State &state) {
  for (auto _ : state) {
    int n = 25;
    benchmark::DoNotOptimize(n);
    benchmark::DoNotOptimize(nativeFib(n));
  }
}
void BM_LispFib25(benchmark::State &state) {
  lisp::Interp &in = interp();
  in.evalText(L"(defun fib (n) (if (< n 2) n (+ (fib (- n 1)) (fib (- n 2)))))", {L"bench", 1});
  lisp::Value call = compile(L"(fib 25)");
  for (auto _ : state) benchmark::DoNotOptimize(in.eval(call));
}
BENCHMARK(BM_NativeFib25)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LispFib25)->Unit(benchmark::kMillisecond);

void BM_NativeCountTo1M(benchmark::State &state) {
  for (auto _ : state) {
    int i = 0;
    while (i < 1000000) {
      benchmark::DoNotOptimize(i);
      ++i;
    }
  }
}
void BM_LispCountTo1M(benchmark::State &state) {
  lisp::Interp &in = interp();
  lisp::Value loop = compile(L"(progn (setq i 0) (while (< i 1000000) (setq i (1+ i))))");
  for (auto _ : state) benchmark::DoNotOptimize(in.eval(loop));
}
BENCHMARK(BM_NativeCountTo1M)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LispCountTo1M)->Unit(benchmark::kMillisecond);

}  // namespace
