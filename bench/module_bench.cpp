// The module's database functions: the per-call check against a drawing
// function of the same shape, and a connect/close cycle of a 10 MB database
// against opening and closing it with SQLite directly.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <unistd.h>

#include <string>

#include "bench_session.h"

namespace {

namespace lisp = vantry::lisp;
using vantry::bench::compile;
using vantry::bench::session;

// A database of about 10 MB, made once.
const std::string &bigDatabase() {
  static std::string path = [] {
    std::string p = "/tmp/vantry_bench_" + std::to_string(getpid()) + ".db";
    unlink(p.c_str());
    sqlite3 *db;
    sqlite3_open(p.c_str(), &db);
    sqlite3_exec(db,
                 "CREATE TABLE ducts (id INTEGER PRIMARY KEY, size TEXT, width REAL, depth REAL, note TEXT);"
                 "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 100000) "
                 "INSERT INTO ducts SELECT i, 'D' || i, i * 10.0, i * 5.0, printf('%.60c', 'x') FROM n;",
                 nullptr, nullptr, nullptr);
    sqlite3_close(db);
    std::atexit([] { unlink(bigDatabase().c_str()); });
    return p;
  }();
  return path;
}

void runLoop(benchmark::State &state, const std::wstring &call) {
  lisp::Interp &in = session();
  in.evalText(L"(defun bench-calls (n) (repeat n " + call + L"))", {L"bench", 1});
  lisp::Value loop = compile(L"(bench-calls 1000)");
  for (auto _ : state) benchmark::DoNotOptimize(in.eval(loop));
  state.SetItemsProcessed(state.iterations() * 1000);
}

// Same shape: no arguments, a number back. vt_random runs the per-call check
// with a database connected, current and alive; ol_ol-rand runs none.
void BM_DrawingCall(benchmark::State &state) {
  runLoop(state, L"(ol_ol-rand)");
}
void BM_DatabaseCall(benchmark::State &state) {
  lisp::Interp &in = session();
  std::wstring path(bigDatabase().begin(), bigDatabase().end());
  in.evalText(L"(vt_connect \"" + path + L"\")", {L"bench", 1});
  runLoop(state, L"(vt_random)");
  in.evalText(L"(vt_close_db)", {L"bench", 1});
}
BENCHMARK(BM_DrawingCall);
BENCHMARK(BM_DatabaseCall);

void BM_SqliteOpenClose(benchmark::State &state) {
  const std::string &path = bigDatabase();
  for (auto _ : state) {
    sqlite3 *db;
    sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
    sqlite3_exec(db, "SELECT count(*) FROM sqlite_master", nullptr, nullptr, nullptr);
    sqlite3_close(db);
  }
}
void BM_ConnectCloseDb(benchmark::State &state) {
  lisp::Interp &in = session();
  std::wstring path(bigDatabase().begin(), bigDatabase().end());
  lisp::Value cycle = compile(L"(progn (vt_connect \"" + path + L"\") (vt_close_db))");
  for (auto _ : state) benchmark::DoNotOptimize(in.eval(cycle));
}
BENCHMARK(BM_SqliteOpenClose)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ConnectCloseDb)->Unit(benchmark::kMicrosecond);

}  // namespace
