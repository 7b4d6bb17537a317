// The engine on a local PostgreSQL server against the engine on SQLite, in
// the same run: a walk over 20,000 records in index order, seeks by key, and
// appends. The server is the tests' throw-away one (scripts/pg-test-server):
// on 127.0.0.1, fsync off. Without a server the PostgreSQL cases say so.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <filesystem>

#include "engine/engine.h"
#include "../../tests/pg/pg_server.h"

namespace vantry::engine {
namespace {

constexpr int kRows = 20000;

// One database of each kind holding the same table.
struct Databases {
  std::string sqlitePath, pgUrl;
  Databases() {
    char tmpl[] = "/tmp/vantry-pg-bench-XXXXXX";
    dir = mkdtemp(tmpl);
    sqlitePath = dir + "/walk.db";
    LastError err;
    CreateDatabaseFile(sqlitePath, &err);
    fill(sqlitePath);
    if (testing::PgServer::shared().running()) {
      pgUrl = testing::PgServer::shared().freshSchema("bench");
      fill(pgUrl);
    }
  }
  ~Databases() { std::filesystem::remove_all(dir); }
  static void fill(const std::string &target) {
    EngineConnection e = createEngine();
    e->Open(target, 0, false);
    ValueArray out;
    e->ExecuteSql("CREATE TABLE parts (id COUNTER PRIMARY KEY, code TEXT(20), size DOUBLE, qty LONG)", &out);
    e->ExecuteSql("CREATE INDEX by_code ON parts (code)", &out);
    std::string insert;
    for (int i = 0; i < kRows; ++i) {
      insert += (insert.empty() ? "INSERT INTO parts (code, size, qty) VALUES " : ", ");
      insert += "('P" + std::to_string((i * 7919) % kRows) + "', " + std::to_string(i * 0.5) + ", " +
                std::to_string(i) + ")";
      if ((i + 1) % 1000 == 0) {
        e->ExecuteSql(insert, &out);
        insert.clear();
      }
    }
  }
  std::string dir;
};

Databases &databases() {
  static Databases d;
  return d;
}

const std::string *target(benchmark::State &state, bool pg) {
  const std::string &t = pg ? databases().pgUrl : databases().sqlitePath;
  if (t.empty()) state.SkipWithError(("no PostgreSQL server: " + testing::PgServer::shared().why()).c_str());
  return t.empty() ? nullptr : &t;
}

void BM_Walk(benchmark::State &state, bool pg) {
  const std::string *t = target(state, pg);
  if (!t) return;
  EngineConnection e = createEngine();
  e->Open(*t, 0, false);
  for (auto _ : state) {
    e->OpenTable("parts", "by_code");
    Record r;
    int n = 0;
    for (bool ok = e->MoveFirst(&r); ok; ok = e->Skip(1, &r)) ++n;
    if (n != kRows) state.SkipWithError("the walk lost records");
  }
  state.SetItemsProcessed(state.iterations() * kRows);
}
BENCHMARK_CAPTURE(BM_Walk, sqlite, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Walk, postgresql, true)->Unit(benchmark::kMillisecond);

void BM_Seek(benchmark::State &state, bool pg) {
  const std::string *t = target(state, pg);
  if (!t) return;
  EngineConnection e = createEngine();
  e->Open(*t, 0, false);
  e->OpenTable("parts", "by_code");
  int i = 0;
  for (auto _ : state) {
    Record r;
    if (!e->SeekValue(Value::text("P" + std::to_string((i++ * 31) % kRows)), &r)) state.SkipWithError("no match");
  }
}
BENCHMARK_CAPTURE(BM_Seek, sqlite, false)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_Seek, postgresql, true)->Unit(benchmark::kMicrosecond);

void BM_Append(benchmark::State &state, bool pg) {
  const std::string *t = target(state, pg);
  if (!t) return;
  EngineConnection e = createEngine();
  e->Open(*t, 0, false);
  e->OpenTable("parts", "");
  for (auto _ : state) {
    Record stored;
    if (!e->AppendRecord({{"code", Value::text("new")}, {"qty", Value::integer(1)}}, false, &stored))
      state.SkipWithError("append failed");
  }
}
BENCHMARK_CAPTURE(BM_Append, sqlite, false)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_Append, postgresql, true)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace vantry::engine
