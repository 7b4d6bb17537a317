// CompactDatabase: a compacted copy of a database file, and the salvage of a
// damaged one.
//
// A sound source is copied with VACUUM INTO. A damaged source is salvaged
// into a fresh file: every table whose definition can be read is created
// again and filled, in rowid order, with every row that can still be read
// (after a damaged stretch the walk resumes at the next readable rowid);
// counters, indexes, views and triggers follow, each as far as it goes.
// Either way the copy is written under a temporary name and renamed to the
// destination only when complete.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "common/files.h"
#include "sqlite_internal.h"

namespace vantry::engine::sqlite {

namespace {

struct Db {
  sqlite3 *h = nullptr;
  ~Db() { sqlite3_close_v2(h); }
};

struct SchemaEntry {
  std::string type, name, sql;
};

bool exists(const std::string &path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0;
}

bool isDirectory(const std::string &path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::string text(sqlite3_stmt *st, int col) {
  const unsigned char *p = sqlite3_column_text(st, col);
  return p ? reinterpret_cast<const char *>(p) : std::string();
}

// Whether the source reads through completely; a definite "damaged" needs
// the check to have said so (an I/O failure is not damage).
int checkSource(sqlite3 *src) {
  sqlite3_stmt *st = nullptr;
  int rc = sqlite3_prepare_v2(src, "PRAGMA quick_check(1)", -1, &st, nullptr);
  if (rc == SQLITE_OK) rc = sqlite3_step(st);
  if (rc == SQLITE_ROW) rc = text(st, 0) == "ok" ? SQLITE_OK : SQLITE_CORRUPT;
  sqlite3_finalize(st);
  return rc;
}

// Schema entries that can be read, in their stored order.
std::vector<SchemaEntry> readSchema(sqlite3 *src) {
  std::vector<SchemaEntry> out;
  sqlite3_stmt *st = nullptr;
  if (sqlite3_prepare_v2(src, "SELECT type, name, sql FROM sqlite_master", -1, &st, nullptr) == SQLITE_OK)
    while (sqlite3_step(st) == SQLITE_ROW) out.push_back({text(st, 0), text(st, 1), text(st, 2)});
  sqlite3_finalize(st);
  return out;
}

// The table's column names; true when one of them is the rowid (INTEGER PRIMARY KEY).
bool rowidIsColumn(sqlite3 *db, const std::string &table, std::vector<std::string> *columns) {
  sqlite3_stmt *st = nullptr;
  int pks = 0;
  bool integerPk = false;
  if (sqlite3_prepare_v2(db, ("PRAGMA table_info(" + quoteIdent(table) + ")").c_str(), -1, &st, nullptr) ==
      SQLITE_OK) {
    while (sqlite3_step(st) == SQLITE_ROW) {
      columns->push_back(text(st, 1));
      int pk = sqlite3_column_int(st, 5);
      if (pk > 0) ++pks;
      if (pk == 1 && asciiLower(text(st, 2)) == "integer") integerPk = true;
    }
  }
  sqlite3_finalize(st);
  return integerPk && pks == 1;
}

// Copies the readable rows of `table`; answers how many, or -1 when the
// person's interrupt stopped it.
//
// The walk goes in rowid order and only ever forwards: a row whose rowid is
// not above the highest one copied (a damaged page can hand back keys out of
// order, or the same stretch again) counts as damage, and a restart after
// damage is taken only at a rowid above that highest one. So every restart
// moves on, each damaged stretch costs at most 63 probes, and the walk ends
// after at most as many restarts as the file has rows.
int64_t salvageRows(sqlite3 *src, sqlite3 *dst, const std::string &table) {
  std::vector<std::string> columns;
  bool aliased = rowidIsColumn(dst, table, &columns);
  if (columns.empty()) return 0;
  std::string names, marks;
  for (const std::string &c : columns) {
    names += (names.empty() ? "" : ", ") + quoteIdent(c);
    marks += marks.empty() ? "?" : ", ?";
  }
  // Column 0 of the read is the rowid; it is written too unless a column is the rowid.
  std::string select =
      "SELECT rowid, " + names + " FROM " + quoteIdent(table) + " WHERE rowid >= ?1 ORDER BY rowid";
  std::string insert = "INSERT OR IGNORE INTO " + quoteIdent(table) + " (" + (aliased ? "" : "rowid, ") +
                       names + ") VALUES (" + (aliased ? "" : "?, ") + marks + ")";
  int skip = aliased ? 1 : 0;
  sqlite3_stmt *rd = nullptr, *wr = nullptr;
  int64_t copied = 0;
  if (sqlite3_prepare_v2(src, select.c_str(), -1, &rd, nullptr) != SQLITE_OK ||
      sqlite3_prepare_v2(dst, insert.c_str(), -1, &wr, nullptr) != SQLITE_OK) {
    sqlite3_finalize(rd);
    sqlite3_finalize(wr);
    return 0;
  }
  int n = sqlite3_column_count(rd);
  int64_t from = INT64_MIN;  // the walk reads rowids >= from
  bool any = false;          // whether a row was copied yet
  int64_t high = 0;          // the highest rowid copied, once one was
  bool cancelled = false;
  for (;;) {
    sqlite3_reset(rd);
    sqlite3_bind_int64(rd, 1, from);
    int rc;
    while ((rc = sqlite3_step(rd)) == SQLITE_ROW) {
      int64_t rowid = sqlite3_column_int64(rd, 0);
      if (any && rowid <= high) {
        rc = SQLITE_CORRUPT;  // out of order: the index of the table is damaged here
        break;
      }
      any = true;
      high = rowid;
      for (int i = skip; i < n; ++i) sqlite3_bind_value(wr, i + 1 - skip, sqlite3_column_value(rd, i));
      if (sqlite3_step(wr) == SQLITE_DONE) ++copied;
      sqlite3_reset(wr);
      if ((copied & 1023) == 0 && interruptRequested()) {
        cancelled = true;
        break;
      }
    }
    if (cancelled || rc == SQLITE_DONE || (rc & 0xff) == SQLITE_INTERRUPT) {
      cancelled |= (rc & 0xff) == SQLITE_INTERRUPT;
      break;
    }
    if (!any && from != INT64_MIN) {
      any = true;  // the row the walk restarted at cannot be read again: past it
      high = from;
    }
    // A damaged stretch: probe ever further past the highest rowid copied
    // for a place, beyond it, where the walk can start again.
    int64_t base = any ? high : 0;
    bool resumed = false;
    for (int shift = 0; shift < 63 && !resumed && base <= INT64_MAX - (int64_t(1) << shift); ++shift) {
      sqlite3_reset(rd);
      sqlite3_bind_int64(rd, 1, base + (int64_t(1) << shift));
      int probe = sqlite3_step(rd);
      if ((probe & 0xff) == SQLITE_INTERRUPT) {
        cancelled = true;
        break;
      }
      if (probe == SQLITE_ROW && (!any || sqlite3_column_int64(rd, 0) > high)) {
        from = sqlite3_column_int64(rd, 0);
        resumed = true;
      }
    }
    if (!resumed) break;
  }
  sqlite3_finalize(rd);
  sqlite3_finalize(wr);
  return cancelled ? -1 : copied;
}

// Salvages what `src` still holds into the fresh database `dst`: SQLITE_OK,
// SQLITE_NOTADB when not even the schema can be read, SQLITE_INTERRUPT when
// the person's interrupt stopped it.
int salvage(sqlite3 *src, sqlite3 *dst) {
  std::vector<SchemaEntry> schema = readSchema(src);
  if (schema.empty()) return interruptRequested() ? SQLITE_INTERRUPT : SQLITE_NOTADB;
  sqlite3_exec(dst, "PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF; BEGIN", nullptr, nullptr, nullptr);
  for (const SchemaEntry &e : schema) {
    if (e.type != "table" || e.name.rfind("sqlite_", 0) == 0 || e.sql.empty()) continue;
    if (sqlite3_exec(dst, e.sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK &&
        salvageRows(src, dst, e.name) < 0) {
      sqlite3_exec(dst, "ROLLBACK", nullptr, nullptr, nullptr);
      return SQLITE_INTERRUPT;
    }
  }
  // Counters keep the highest value they had, so numbers are never reused.
  sqlite3_stmt *seq = nullptr;
  if (sqlite3_prepare_v2(src, "SELECT name, seq FROM sqlite_sequence", -1, &seq, nullptr) == SQLITE_OK) {
    while (sqlite3_step(seq) == SQLITE_ROW) {
      char *sql = sqlite3_mprintf(
          "UPDATE sqlite_sequence SET seq = max(seq, %lld) WHERE name = %Q;"
          "INSERT INTO sqlite_sequence(name, seq) SELECT %Q, %lld WHERE changes() = 0",
          sqlite3_column_int64(seq, 1), text(seq, 0).c_str(), text(seq, 0).c_str(),
          sqlite3_column_int64(seq, 1));
      sqlite3_exec(dst, sql, nullptr, nullptr, nullptr);
      sqlite3_free(sql);
    }
  }
  sqlite3_finalize(seq);
  for (const SchemaEntry &e : schema)
    if (e.type != "table" && !e.sql.empty()) sqlite3_exec(dst, e.sql.c_str(), nullptr, nullptr, nullptr);
  return sqlite3_exec(dst, "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK ? SQLITE_OK : SQLITE_NOTADB;
}

}  // namespace

bool SqliteEngine::CompactDatabase(const std::string &source, const std::string &destination) {
  clearError();
  std::string src = normalizePath(source), dst = normalizePath(destination);
  if (src.empty() || !exists(src))
    return fail(errc::kCouldNotFindFile, "Could not find file '" + source + "'.");
  if (dst.empty() || exists(dst))
    return fail(errc::kDatabaseExists, "Database '" + destination + "' already exists.");
  size_t slash = dst.find_last_of('/');
  std::string dir = slash == std::string::npos ? "." : (slash == 0 ? "/" : dst.substr(0, slash));
  if (!isDirectory(dir))
    return fail(errc::kInvalidPath, "'" + dir +
                                        "' is not a valid path. Make sure that the path name is "
                                        "spelled correctly.");
  Db in;
  int rc = sqlite3_open_v2(src.c_str(), &in.h, SQLITE_OPEN_READONLY, nullptr);
  if (rc == SQLITE_OK) {
    sqlite3_extended_result_codes(in.h, 1);
    sqlite3_busy_timeout(in.h, 2000);
    watchInterrupts(in.h);
    rc = checkSource(in.h);
  }
  bool replaced = files::replaceFile(dst, [&](const std::string &tmp) {
    if (rc == SQLITE_OK) {
      char *sql = sqlite3_mprintf("VACUUM INTO %Q", tmp.c_str());
      rc = sqlite3_exec(in.h, sql, nullptr, nullptr, nullptr);
      sqlite3_free(sql);
    } else if ((rc & 0xff) == SQLITE_CORRUPT || (rc & 0xff) == SQLITE_NOTADB) {
      Db out;
      rc = sqlite3_open_v2(tmp.c_str(), &out.h, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
      if (rc == SQLITE_OK) rc = salvage(in.h, out.h);
    }
    return rc == SQLITE_OK;
  });
  if (replaced) return true;
  if (rc == SQLITE_OK) rc = SQLITE_CANTOPEN;
  switch (rc & 0xff) {
    case SQLITE_INTERRUPT:
      return fail(errc::kCancelled, "Operation canceled by user.");
    case SQLITE_NOTADB:
    case SQLITE_CORRUPT:
      return fail(errc::kUnrecognizedFormat, "Unrecognized database format '" + source + "'.");
    case SQLITE_IOERR:
    case SQLITE_FULL:
      return fail(errc::kDiskOrNetwork, "Disk or network error.");
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return fail(errc::kLocked, "Could not compact '" + source + "'; currently locked.");
    default:
      return fail(errc::kCannotOpen, "The database engine cannot open or write to the file '" + source +
                                         "' or '" + destination + "'.");
  }
}

}  // namespace vantry::engine::sqlite
