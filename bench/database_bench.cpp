// The module's database functions as a LISP programmer uses them, against
// raw SQLite doing the same work and Python's sqlite3 module, in one run:
//
//   walk     vt_top, then vt_skip until nil, over 100,000 records
//   seek     vt_seek by the indexed key
//   append   vt_append, each record committed when the call returns
//   select   vt_sql "SELECT * FROM t" into one LISP list
//
// The raw counterparts step SQLite and build the same result-buffer lists
// (a list of (name . value) pairs per record) that the module hands the host.
// BM_DbModuleSkipWalk is the module side alone: the handler the host calls for
// vt_skip (per-call check, document lock, Skip, the record's result list),
// called directly with no LISP around it; without a call in progress the host
// keeps no result, so no LISP value is built.
// The Python figures come from bench/python_sqlite.py, run once per run on
// the same files; they appear as benchmarks with the time Python measured.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "bench_session.h"
#include "host/arx.h"

namespace {

namespace lisp = vantry::lisp;
using vantry::bench::compile;
using vantry::bench::session;

constexpr int kRows = 100000;
constexpr int kSeekKeys = 4096;
constexpr int kAppendsPerRound = 1000;
constexpr int kPythonAppends = 20000;

const char kFields[] =
    "(id INTEGER PRIMARY KEY AUTOINCREMENT, tag TEXT, name TEXT, width INTEGER, flow REAL, ratio REAL, "
    "lined BIT, made DATETIME)";

void exec(const std::string &path, const std::string &sql) {
  sqlite3 *db = nullptr;
  sqlite3_open(path.c_str(), &db);
  char *err = nullptr;
  if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &err) != SQLITE_OK) {
    std::fprintf(stderr, "database_bench: %s\n", err ? err : "setup failed");
    std::abort();
  }
  sqlite3_close(db);
}

// The benchmark's databases, made once in a temporary directory removed at
// exit: walk.db (table t, 100,000 records, index by_tag) and one empty
// append table a per appender, so that each starts from the same state.
struct Files {
  std::string dir, walk, lispAppend, rawAppend, pyAppend;
  Files() {
    std::string tmpl = (std::filesystem::temp_directory_path() / "vantry-dbbench-XXXXXX").string();
    dir = mkdtemp(tmpl.data());
    walk = dir + "/walk.db";
    exec(walk, std::string("CREATE TABLE t") + kFields +
                   ";WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
                   std::to_string(kRows) +
                   ") INSERT INTO t(tag, name, width, flow, ratio, lined, made) SELECT printf('T%06d', i),"
                   " 'duct ' || i, i % 900, i * 0.5, 1.0 / i, i % 2,"
                   " printf('2024-%02d-%02d 10:00:00', i % 12 + 1, i % 28 + 1) FROM n;"
                   "CREATE INDEX by_tag ON t(tag);");
    for (std::string *p : {&lispAppend, &rawAppend, &pyAppend}) {
      *p = dir + "/append" + std::to_string(p - &lispAppend) + ".db";
      exec(*p, std::string("PRAGMA journal_mode=WAL; CREATE TABLE a") + kFields +
                   "; CREATE INDEX a_tag ON a(tag);");
    }
  }
  ~Files() {
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
  }
};

const Files &files() {
  static Files f;
  return f;
}

std::wstring widen(const std::string &s) {
  return std::wstring(s.begin(), s.end());
}

// UTF-8 to wide text, as the module's conversion gives it.
std::wstring fromUtf8(const unsigned char *p) {
  std::wstring out;
  while (*p) {
    unsigned c = *p++;
    int more = c >= 0xF0 ? 3 : c >= 0xE0 ? 2 : c >= 0xC0 ? 1 : 0;
    if (more) c &= 0x3F >> more;
    for (; more && (*p & 0xC0) == 0x80; --more) c = c << 6 | (*p++ & 0x3F);
    out.push_back(static_cast<wchar_t>(c));
  }
  return out;
}

lisp::Value eval(const std::wstring &text) {
  return session().evalText(text, {L"bench", 1});
}

// The timed LISP of each workload runs through here, so that a profiler can
// count it alone, without the files' making and the first calls' binding:
//   valgrind --tool=callgrind --toggle-collect='*timedEval*' ...
__attribute__((noinline)) lisp::Value timedEval(const lisp::Value &form) {
  return session().eval(form);
}

// Makes `path` the connection of the session and `table` its current table.
bool openTable(benchmark::State &state, const std::string &path, const std::wstring &table,
               const std::wstring &index) {
  eval(L"(vt_connect \"" + widen(path) + L"\")");
  if (eval(L"(vt_table \"" + table + L"\" \"" + index + L"\")").isNil()) {
    state.SkipWithError("vt_table failed");
    return false;
  }
  return true;
}

// ---- raw SQLite building the module's result lists

std::vector<std::wstring> columnNames(sqlite3_stmt *st) {
  std::vector<std::wstring> names;
  for (int i = 0; i < sqlite3_column_count(st); ++i)
    names.push_back(fromUtf8(reinterpret_cast<const unsigned char *>(sqlite3_column_name(st, i))));
  return names;
}

// Appends the current row as (("name" . value) ...) after *tail.
void appendRow(sqlite3_stmt *st, const std::vector<std::wstring> &names, resbuf *&tail) {
  auto add = [&](resbuf *chain) {
    tail->rbnext = chain;
    while (tail->rbnext) tail = tail->rbnext;
  };
  add(acutBuildList(RTLB, 0));
  for (int i = 0; i < static_cast<int>(names.size()); ++i) {
    const wchar_t *name = names[i].c_str();
    switch (sqlite3_column_type(st, i)) {
      case SQLITE_INTEGER: {
        int64_t v = sqlite3_column_int64(st, i);
        add(v >= -32768 && v <= 32767
                ? acutBuildList(RTLB, RTSTR, name, RTDOTE, RTSHORT, int(v), RTLE, 0)
                : acutBuildList(RTLB, RTSTR, name, RTDOTE, RTLONG, int32_t(v), RTLE, 0));
        break;
      }
      case SQLITE_FLOAT:
        add(acutBuildList(RTLB, RTSTR, name, RTDOTE, RTREAL, sqlite3_column_double(st, i), RTLE, 0));
        break;
      case SQLITE_TEXT:
        add(acutBuildList(RTLB, RTSTR, name, RTDOTE, RTSTR, fromUtf8(sqlite3_column_text(st, i)).c_str(),
                          RTLE, 0));
        break;
      default:
        add(acutBuildList(RTLB, RTSTR, name, RTDOTE, RTNIL, RTLE, 0));
    }
  }
  add(acutBuildList(RTLE, 0));
}

sqlite3 *openRaw(const std::string &path, int flags) {
  sqlite3 *db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, flags, nullptr) != SQLITE_OK) std::abort();
  return db;
}

sqlite3_stmt *prepareRaw(sqlite3 *db, const char *sql) {
  sqlite3_stmt *st = nullptr;
  if (sqlite3_prepare_v2(db, sql, -1, &st, nullptr) != SQLITE_OK) std::abort();
  return st;
}

std::vector<std::string> seekKeys() {
  std::mt19937 rng(11);
  std::vector<std::string> keys(kSeekKeys);
  char buf[16];
  for (std::string &k : keys) {
    std::snprintf(buf, sizeof buf, "T%06d", static_cast<int>(rng() % kRows) + 1);
    k = buf;
  }
  return keys;
}

// ---- walk

void BM_DbLispSkipWalk(benchmark::State &state) {
  if (!openTable(state, files().walk, L"t", L"")) return;
  eval(
      L"(defun bench-walk (/ n) (setq n 0) (if (vt_top) (progn (setq n 1) (while (vt_skip) (setq n (1+ "
      L"n))))) n)");
  lisp::Value walk = compile(L"(bench-walk)");
  for (auto _ : state) {
    lisp::Value n = timedEval(walk);
    if (n.type() != lisp::Type::Int || n.asInt() != kRows) state.SkipWithError("the walk missed records");
  }
  state.SetItemsProcessed(state.iterations() * kRows);
}
BENCHMARK(BM_DbLispSkipWalk)->Unit(benchmark::kMillisecond);

// The registered handler of a function of the current document, as the host calls it.
int (*handlerOf(const wchar_t *name))() {
  vantry::host::Document *doc = vantry::host::Session::get().current();
  for (const auto &[code, n] : doc->functions().names)
    if (n == name) return doc->functions().handlers.at(code);
  return nullptr;
}

void BM_DbModuleSkipWalk(benchmark::State &state) {
  if (!openTable(state, files().walk, L"t", L"")) return;
  int (*skip)() = handlerOf(L"vt_skip");
  lisp::Value atEnd = compile(L"(list (cdr (assoc \"id\" (vt_getrec))) (vt_skip))");
  for (auto _ : state) {
    eval(L"(vt_top)");
    for (int i = 1; i < kRows; ++i) skip();
    state.PauseTiming();
    // The handler's results are not kept: check that it ended on the last record.
    lisp::Value end = session().eval(atEnd);
    if (lisp::car(end).type() != lisp::Type::Int || lisp::car(end).asInt() != kRows ||
        !lisp::car(lisp::cdr(end)).isNil())
      state.SkipWithError("the handler walk did not reach the last record");
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kRows);
}
BENCHMARK(BM_DbModuleSkipWalk)->Unit(benchmark::kMillisecond);

void BM_DbRawSkipWalk(benchmark::State &state) {
  sqlite3 *db = openRaw(files().walk, SQLITE_OPEN_READONLY);
  sqlite3_stmt *st = prepareRaw(db, "SELECT * FROM t ORDER BY rowid");
  std::vector<std::wstring> names = columnNames(st);
  int64_t rows = 0;
  for (auto _ : state) {
    while (sqlite3_step(st) == SQLITE_ROW) {
      resbuf head{}, *tail = &head;
      appendRow(st, names, tail);
      acutRelRb(head.rbnext);
      ++rows;
    }
    sqlite3_reset(st);
  }
  state.SetItemsProcessed(rows);
  sqlite3_finalize(st);
  sqlite3_close(db);
}
BENCHMARK(BM_DbRawSkipWalk)->Unit(benchmark::kMillisecond);

// ---- seek

void BM_DbLispSeek(benchmark::State &state) {
  if (!openTable(state, files().walk, L"t", L"by_tag")) return;
  std::wstring keys = L"(setq bench-keys '(";
  for (const std::string &k : seekKeys()) keys += L"\"" + widen(k) + L"\" ";
  eval(keys + L"))");
  eval(L"(defun bench-seek (/ n) (setq n 0) (foreach k bench-keys (if (vt_seek k) (setq n (1+ n)))) n)");
  lisp::Value seek = compile(L"(bench-seek)");
  for (auto _ : state) {
    lisp::Value n = timedEval(seek);
    if (n.type() != lisp::Type::Int || n.asInt() != kSeekKeys) state.SkipWithError("a seek failed");
  }
  state.SetItemsProcessed(state.iterations() * kSeekKeys);
}
BENCHMARK(BM_DbLispSeek)->Unit(benchmark::kMillisecond);

void BM_DbRawSeek(benchmark::State &state) {
  sqlite3 *db = openRaw(files().walk, SQLITE_OPEN_READONLY);
  sqlite3_stmt *st = prepareRaw(db, "SELECT * FROM t WHERE tag = ?1 ORDER BY tag, rowid LIMIT 1");
  std::vector<std::wstring> names = columnNames(st);
  std::vector<std::string> keys = seekKeys();
  for (auto _ : state) {
    for (const std::string &k : keys) {
      sqlite3_bind_text(st, 1, k.c_str(), static_cast<int>(k.size()), SQLITE_STATIC);
      if (sqlite3_step(st) != SQLITE_ROW) state.SkipWithError("seek failed");
      resbuf head{}, *tail = &head;
      appendRow(st, names, tail);
      acutRelRb(head.rbnext);
      sqlite3_reset(st);
    }
  }
  state.SetItemsProcessed(state.iterations() * kSeekKeys);
  sqlite3_finalize(st);
  sqlite3_close(db);
}
BENCHMARK(BM_DbRawSeek)->Unit(benchmark::kMillisecond);

// ---- append

void BM_DbLispAppend(benchmark::State &state) {
  if (!openTable(state, files().lispAppend, L"a", L"")) return;
  lisp::Value append = compile(
      L"(progn (setq bench-last nil) (repeat 1000 (setq bench-last (vt_append '((\"tag\" . \"A000001\") "
      L"(\"name\" . \"appended\") (\"width\" . 450) (\"flow\" . 2.5) (\"ratio\" . 0.25) (\"lined\" . T) "
      L"(\"made\" . \"2024-05-06 07:08:09\"))))) bench-last)");
  for (auto _ : state)
    if (timedEval(append).isNil()) state.SkipWithError("vt_append failed");
  state.SetItemsProcessed(state.iterations() * kAppendsPerRound);
}
BENCHMARK(BM_DbLispAppend)->Unit(benchmark::kMillisecond);

void BM_DbRawAppend(benchmark::State &state) {
  sqlite3 *db = openRaw(files().rawAppend, SQLITE_OPEN_READWRITE);
  sqlite3_exec(db, "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL", nullptr, nullptr, nullptr);
  sqlite3_stmt *st = prepareRaw(
      db, "INSERT INTO a(tag, name, width, flow, ratio, lined, made) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7)");
  for (auto _ : state) {
    for (int i = 0; i < kAppendsPerRound; ++i) {
      sqlite3_bind_text(st, 1, "A000001", -1, SQLITE_STATIC);
      sqlite3_bind_text(st, 2, "appended", -1, SQLITE_STATIC);
      sqlite3_bind_int(st, 3, 450);
      sqlite3_bind_double(st, 4, 2.5);
      sqlite3_bind_double(st, 5, 0.25);
      sqlite3_bind_int(st, 6, 1);
      sqlite3_bind_text(st, 7, "2024-05-06 07:08:09", -1, SQLITE_STATIC);
      if (sqlite3_step(st) != SQLITE_DONE) state.SkipWithError("insert failed");
      sqlite3_reset(st);
    }
  }
  state.SetItemsProcessed(state.iterations() * kAppendsPerRound);
  sqlite3_finalize(st);
  sqlite3_close(db);
}
BENCHMARK(BM_DbRawAppend)->Unit(benchmark::kMillisecond);

// ---- SELECT * into one list

void BM_DbLispSqlSelectAll(benchmark::State &state) {
  eval(L"(vt_connect \"" + widen(files().walk) + L"\")");
  lisp::Value select = compile(L"(vt_sql \"SELECT * FROM t\")");
  for (auto _ : state) {
    lisp::Value rows = timedEval(select);
    if (lisp::listLength(rows) != kRows) state.SkipWithError("vt_sql missed records");
  }
  state.SetItemsProcessed(state.iterations() * kRows);
}
BENCHMARK(BM_DbLispSqlSelectAll)->Unit(benchmark::kMillisecond);

void BM_DbRawSelectAll(benchmark::State &state) {
  sqlite3 *db = openRaw(files().walk, SQLITE_OPEN_READONLY);
  sqlite3_stmt *st = prepareRaw(db, "SELECT * FROM t");
  std::vector<std::wstring> names = columnNames(st);
  for (auto _ : state) {
    resbuf head{}, *tail = &head;
    tail->rbnext = acutBuildList(RTLB, 0), tail = tail->rbnext;
    while (sqlite3_step(st) == SQLITE_ROW) appendRow(st, names, tail);
    tail->rbnext = acutBuildList(RTLE, 0);
    sqlite3_reset(st);
    acutRelRb(head.rbnext);
  }
  state.SetItemsProcessed(state.iterations() * kRows);
  sqlite3_finalize(st);
  sqlite3_close(db);
}
BENCHMARK(BM_DbRawSelectAll)->Unit(benchmark::kMillisecond);

// ---- Python's sqlite3 module, on the same files in the same run

struct PythonFigure {
  double seconds = 0;
  int64_t items = 0;
};

// Runs bench/python_sqlite.py once; empty when python3 or the script is missing.
const std::map<std::string, PythonFigure> &pythonFigures() {
  static std::map<std::string, PythonFigure> figures = [] {
    std::map<std::string, PythonFigure> out;
    // By the source tree's absolute path: the compiler cache may have made
    // __FILE__ relative to the build tree.
    std::string script = std::string(VANTRY_SOURCE_DIR) + "/bench/python_sqlite.py";
    std::string cmd = "/usr/bin/python3 '" + script + "' '" + files().walk + "' '" + files().pyAppend + "' " +
                      std::to_string(kPythonAppends);
    FILE *p = popen(cmd.c_str(), "r");
    if (!p) return out;
    char line[256];
    while (std::fgets(line, sizeof line, p)) {
      std::istringstream in(line);
      std::string name;
      PythonFigure f;
      if (in >> name >> f.seconds >> f.items) out[name] = f;
    }
    pclose(p);
    return out;
  }();
  return figures;
}

void reportPython(benchmark::State &state, const char *workload) {
  auto it = pythonFigures().find(workload);
  for (auto _ : state) {
    if (it == pythonFigures().end()) {
      state.SkipWithError("python3 or bench/python_sqlite.py did not answer");
      break;
    }
    state.SetIterationTime(it->second.seconds);
  }
  if (it != pythonFigures().end()) state.SetItemsProcessed(it->second.items);
}

void BM_DbPythonWalk(benchmark::State &state) {
  reportPython(state, "walk");
}
void BM_DbPythonSeek(benchmark::State &state) {
  reportPython(state, "seek");
}
void BM_DbPythonAppend(benchmark::State &state) {
  reportPython(state, "append");
}
void BM_DbPythonSelectAll(benchmark::State &state) {
  reportPython(state, "select");
}
BENCHMARK(BM_DbPythonWalk)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DbPythonSeek)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DbPythonAppend)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DbPythonSelectAll)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
