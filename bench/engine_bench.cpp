// The engine against raw SQLite doing the same work, in the same run: a walk
// over every record, indexed seeks, and Open + Close of a 10 MB database.
// Raw counterparts read every column into a record of name/value pairs, as
// the engine does.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "engine/engine.h"

namespace {

using vantry::engine::createEngine;
using vantry::engine::EngineConnection;
using vantry::engine::Record;
using vantry::engine::Value;

constexpr int kRows = 100000;

// Builds the benchmark databases once, in a temporary directory removed at exit.
struct Files {
  std::string dir, table, big;
  Files() {
    std::string tmpl = (std::filesystem::temp_directory_path() / "vantry-bench-XXXXXX").string();
    dir = mkdtemp(tmpl.data());
    table = dir + "/walk.db";
    big = dir + "/big.db";
    run(table,
        "CREATE TABLE t(id INTEGER PRIMARY KEY AUTOINCREMENT, tag TEXT, name TEXT, width INTEGER, flow REAL,"
        "  ratio REAL, lined BIT, made DATETIME);"
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
            std::to_string(kRows) +
            ") INSERT INTO t(tag, name, width, flow, ratio, lined, made) SELECT printf('T%06d', i),"
            " 'duct ' || i, i % 900, i * 0.5, 1.0 / i, i % 2, printf('2024-%02d-%02d 10:00:00', i % 12 + 1, "
            "i % 28 + 1)"
            " FROM n;"
            "CREATE INDEX by_tag ON t(tag);");
    run(big,
        "CREATE TABLE blobs(id INTEGER PRIMARY KEY, body TEXT);"
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 10000)"
        " INSERT INTO blobs SELECT i, hex(randomblob(500)) FROM n;");
  }
  ~Files() {
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
  }
  static void run(const std::string &path, const std::string &sql) {
    sqlite3 *db = nullptr;
    sqlite3_open(path.c_str(), &db);
    sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr);
    sqlite3_close(db);
  }
};

const Files &files() {
  static Files f;
  return f;
}

// A raw record: every column by name, as the engine builds one.
void readRaw(sqlite3_stmt *st, Record *out) {
  out->clear();
  int n = sqlite3_column_count(st);
  for (int i = 0; i < n; ++i) {
    Value v;
    switch (sqlite3_column_type(st, i)) {
      case SQLITE_INTEGER:
        v = Value::integer(sqlite3_column_int(st, i));
        break;
      case SQLITE_FLOAT:
        v = Value::real(sqlite3_column_double(st, i));
        break;
      case SQLITE_TEXT:
        v = Value::text(reinterpret_cast<const char *>(sqlite3_column_text(st, i)));
        break;
      default:
        v = Value::null();
    }
    out->push_back({sqlite3_column_name(st, i), std::move(v)});
  }
}

void BM_EngineWalk(benchmark::State &state) {
  EngineConnection e = createEngine();
  e->Open(files().table, 0, false);
  e->OpenTable("t", "");
  Record r;
  int64_t rows = 0;
  for (auto _ : state) {
    for (bool ok = e->MoveFirst(&r); ok; ok = e->Skip(1, &r)) ++rows;
  }
  state.SetItemsProcessed(rows);
}
BENCHMARK(BM_EngineWalk)->Unit(benchmark::kMillisecond);

void BM_RawWalk(benchmark::State &state) {
  sqlite3 *db = nullptr;
  sqlite3_open_v2(files().table.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
  sqlite3_stmt *st = nullptr;
  sqlite3_prepare_v2(db, "SELECT * FROM t ORDER BY rowid", -1, &st, nullptr);
  Record r;
  int64_t rows = 0;
  for (auto _ : state) {
    while (sqlite3_step(st) == SQLITE_ROW) {
      readRaw(st, &r);
      ++rows;
    }
    sqlite3_reset(st);
  }
  state.SetItemsProcessed(rows);
  sqlite3_finalize(st);
  sqlite3_close(db);
}
BENCHMARK(BM_RawWalk)->Unit(benchmark::kMillisecond);

std::vector<std::string> seekKeys() {
  std::mt19937 rng(7);
  std::vector<std::string> keys(4096);
  char buf[16];
  for (std::string &k : keys) {
    std::snprintf(buf, sizeof buf, "T%06d", static_cast<int>(rng() % kRows) + 1);
    k = buf;
  }
  return keys;
}

void BM_EngineSeek(benchmark::State &state) {
  EngineConnection e = createEngine();
  e->Open(files().table, 0, false);
  e->OpenTable("t", "by_tag");
  std::vector<std::string> keys = seekKeys();
  Record r;
  size_t i = 0;
  for (auto _ : state) {
    if (!e->SeekValue(Value::text(keys[i++ % keys.size()]), &r)) state.SkipWithError("seek failed");
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}
BENCHMARK(BM_EngineSeek);

void BM_RawSeek(benchmark::State &state) {
  sqlite3 *db = nullptr;
  sqlite3_open_v2(files().table.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
  sqlite3_stmt *st = nullptr;
  sqlite3_prepare_v2(db, "SELECT * FROM t WHERE tag = ?1 ORDER BY tag, rowid LIMIT 1", -1, &st, nullptr);
  std::vector<std::string> keys = seekKeys();
  Record r;
  size_t i = 0;
  for (auto _ : state) {
    const std::string &k = keys[i++ % keys.size()];
    sqlite3_bind_text(st, 1, k.c_str(), static_cast<int>(k.size()), SQLITE_STATIC);
    if (sqlite3_step(st) == SQLITE_ROW) readRaw(st, &r);
    sqlite3_reset(st);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
  sqlite3_finalize(st);
  sqlite3_close(db);
}
BENCHMARK(BM_RawSeek);

void BM_EngineOpenClose10MB(benchmark::State &state) {
  EngineConnection e = createEngine();
  for (auto _ : state) {
    if (e->Open(files().big, 0, false) != "OK") state.SkipWithError("open failed");
    e->Close();
  }
}
BENCHMARK(BM_EngineOpenClose10MB)->Unit(benchmark::kMicrosecond);

void BM_RawOpenClose10MB(benchmark::State &state) {
  for (auto _ : state) {
    sqlite3 *db = nullptr;
    sqlite3_open_v2(files().big.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
    sqlite3_exec(db, "SELECT count(*) FROM sqlite_master", nullptr, nullptr, nullptr);
    sqlite3_close(db);
  }
}
BENCHMARK(BM_RawOpenClose10MB)->Unit(benchmark::kMicrosecond);

}  // namespace
