// libFuzzer target: the Access-dialect SQL translator and the functions the
// dialect brings (engine/access_*.cpp).
//
// Each input is one statement as the product's LISP would send it. A leading
// PARAMETERS clause is split off as a stored query's is, and its names become
// bound parameters. The translation is then prepared and run on an in-memory
// database holding two small tables of the product's kind, with the dialect's
// functions registered, so the date, format, pattern and conversion functions
// see whatever values the statement hands them. Whatever happens must end in
// a translation and an SQLite answer (an error is fine): a crash, a sanitizer
// report, a leak or a hang is a fault. The run of one statement is bounded
// (virtual-machine steps, memory, length), and nothing may reach a file:
// ATTACH, VACUUM INTO and pragmas are refused.
#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "../engine/sqlite_internal.h"

using namespace vantry::engine::sqlite;

namespace {

// While an input's statements are prepared, they may not end or begin
// transactions: each input's changes are undone by the savepoint around it.
bool guarding = false;

const char kSchema[] =
    "CREATE TABLE Layers (ID INTEGER PRIMARY KEY AUTOINCREMENT, LayerName TEXT(50), System TEXT(20),"
    " Linetype TEXT(20), Color SHORT, Width DOUBLE, Lined YESNO, Made DATETIME, Note MEMO);"
    "CREATE TABLE Systems (Name TEXT(20) PRIMARY KEY, Kind TEXT(10), Cost CURRENCY);"
    "INSERT INTO Layers (LayerName, System, Linetype, Color, Width, Lined, Made, Note) VALUES"
    " ('HVAC-L0001', 'Supply', 'Continuous', 1, 400.5, -1, '2024-01-31 10:00:00', 'first'),"
    " ('hvac-l0002', 'return', 'Dashed', 2, 250, 0, '1999-12-31 23:59:59', NULL),"
    " ('PLMB_0003', NULL, 'Hidden', 256, -1e10, 1, 'not a date', 'x');"
    "INSERT INTO Systems VALUES ('Supply', 'HVAC', 12.5), ('Return', 'hvac', NULL);";

sqlite3 *openDatabase() {
  sqlite3 *db = nullptr;
  sqlite3_open_v2(":memory:", &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_MEMORY, nullptr);
  registerAccessFunctions(db);
  sqlite3_exec(db, kSchema, nullptr, nullptr, nullptr);
  sqlite3_limit(db, SQLITE_LIMIT_ATTACHED, 0);
  sqlite3_limit(db, SQLITE_LIMIT_LENGTH, 1 << 20);
  sqlite3_limit(db, SQLITE_LIMIT_SQL_LENGTH, 1 << 20);
  sqlite3_set_authorizer(
      db,
      [](void *, int action, const char *, const char *, const char *, const char *) {
        if (action == SQLITE_ATTACH || action == SQLITE_PRAGMA || action == SQLITE_DETACH) return SQLITE_DENY;
        return guarding && (action == SQLITE_TRANSACTION || action == SQLITE_SAVEPOINT) ? SQLITE_DENY : SQLITE_OK;
      },
      nullptr);
  return db;
}

bool writesFiles(const std::string &sql) {
  std::string lower = asciiLower(sql);
  return lower.find("vacuum") != std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  sqlite3_hard_heap_limit64(256 << 20);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::string sql(reinterpret_cast<const char *>(data), size);
  std::vector<std::string> names, types, textNames;
  std::string body;
  if (!splitParameters(sql, &names, &types, &body)) return 0;
  for (size_t i = 0; i < names.size(); ++i)
    if (asciiLower(types[i]).find("text") != std::string::npos) textNames.push_back(names[i]);
  std::string translated = rewriteAccessSql(body, names, textNames);
  accessPatternToRegex(body);
  if (writesFiles(translated)) return 0;

  static sqlite3 *db = openDatabase();
  // At most about a million steps per input: a runaway recursive query or a
  // huge cross join ends with an interrupt.
  static int steps = 0;
  sqlite3_progress_handler(
      db, 1000, [](void *p) { return ++*static_cast<int *>(p) > 1000 ? 1 : 0; }, &steps);
  steps = 0;
  sqlite3_exec(db, "SAVEPOINT fuzz", nullptr, nullptr, nullptr);
  guarding = true;
  const char *tail = translated.c_str();
  const char *end = tail + translated.size();
  while (tail && tail < end && *tail) {
    sqlite3_stmt *st = nullptr;
    if (sqlite3_prepare_v2(db, tail, static_cast<int>(end - tail), &st, &tail) != SQLITE_OK) break;
    if (!st) continue;
    for (int i = 1; i <= sqlite3_bind_parameter_count(st); ++i)
      sqlite3_bind_text(st, i, i % 2 ? "Supply" : "2024-02-29", -1, SQLITE_STATIC);
    int rows = 0;
    while (sqlite3_step(st) == SQLITE_ROW && ++rows < 1000)
      for (int c = 0; c < sqlite3_column_count(st); ++c) sqlite3_column_text(st, c);
    sqlite3_finalize(st);
  }
  guarding = false;
  // Each input starts from the same tables: whatever it changed is undone.
  sqlite3_exec(db, "ROLLBACK TO fuzz; RELEASE fuzz", nullptr, nullptr, nullptr);
  if (sqlite3_get_autocommit(db) == 0) sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
  return 0;
}
