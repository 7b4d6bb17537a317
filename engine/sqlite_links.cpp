// Linked tables. A link is a row of _vantry_links (name, path, source) in
// the database file itself, so it survives reopening: every Open attaches
// each linked file once, under a schema name of its own ("vt_link_1" ...).
// SQLite looks for an unqualified table name in the main file first and then
// in the attached ones, so SQL and cursors reach a linked table by its name
// with nothing rewritten; a local table of the same name is refused when the
// link is made. A link whose file has gone is not attached, and naming the
// table then fails with "Could not find file" (3024) instead of "no such
// table".
#include <sys/stat.h>

#include <climits>
#include <cstdlib>

#include "engine/schema.h"
#include "sqlite_internal.h"
#include "sqlite_schema.h"

namespace vantry::engine::sqlite {

namespace {

bool isRegularFile(const std::string &path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

}  // namespace

void SqliteEngine::forgetTable(const std::string &name) {
  auto it = cursors_.find(asciiLower(name));
  if (it != cursors_.end()) {
    if (current_ == it->second.get()) current_ = nullptr;
    cursors_.erase(it);
  }
  nextCounter_.erase(asciiLower(name));
}

bool SqliteEngine::linkSchema(const std::string &table, std::string *schema) {
  *schema = "main";
  if (links_.empty()) return true;
  std::string key = asciiLower(table);
  if (key.rfind("main.", 0) == 0) key.erase(0, 5);
  auto it = links_.find(key);
  if (it == links_.end()) return true;
  if (it->second.attached) {
    *schema = it->second.schema;
    return true;
  }
  return fail(errc::kCouldNotFindFile, "Could not find file '" + it->second.path + "'.");
}

void SqliteEngine::attachLinks() {
  links_.clear();
  sqlite3_stmt *st = nullptr;
  // No link table: no links (the statement does not compile).
  if (sqlite3_prepare_v2(db_, "SELECT name, path FROM _vantry_links", -1, &st, nullptr) != SQLITE_OK) {
    sqlite3_finalize(st);
    return;
  }
  std::map<std::string, std::string> attachedPaths;
  int count = 0;
  while (sqlite3_step(st) == SQLITE_ROW) {
    const char *name = reinterpret_cast<const char *>(sqlite3_column_text(st, 0));
    const char *path = reinterpret_cast<const char *>(sqlite3_column_text(st, 1));
    if (!name || !path) continue;
    Link link;
    link.path = path;
    auto seen = attachedPaths.find(link.path);
    if (seen != attachedPaths.end()) {
      link.schema = seen->second;
      link.attached = true;
    } else if (isRegularFile(normalizePath(link.path))) {
      link.schema = "vt_link_" + std::to_string(++count);
      link.attached = SqliteSchema::attach(db_, normalizePath(link.path), link.schema);
      if (link.attached) attachedPaths[link.path] = link.schema;
    }
    links_[asciiLower(name)] = std::move(link);
  }
  sqlite3_finalize(st);
}

bool SqliteSchema::attach(sqlite3 *db, const std::string &path, const std::string &schema) {
  sqlite3_stmt *st = nullptr;
  bool ok = sqlite3_prepare_v2(db, ("ATTACH ?1 AS " + quoteIdent(schema)).c_str(), -1, &st, nullptr) == SQLITE_OK;
  if (ok) {
    sqlite3_bind_text(st, 1, path.c_str(), -1, SQLITE_TRANSIENT);
    ok = sqlite3_step(st) == SQLITE_DONE;
  }
  sqlite3_finalize(st);
  return ok;
}

void SqliteSchema::detachUnused(const std::string &schema) {
  for (const auto &[name, link] : e_.links_)
    if (link.schema == schema) return;
  sqlite3_exec(e_.db(), ("DETACH " + quoteIdent(schema)).c_str(), nullptr, nullptr, nullptr);
}

bool SqliteSchema::LinkTable(const std::string &path, const std::string &table) {
  e_.clearError();
  if (!e_.needWritable()) return false;
  if (!checkName(table)) return false;
  std::string file = normalizePath(path);
  char resolved[PATH_MAX];
  if (file.empty() || !isRegularFile(file) || !::realpath(file.c_str(), resolved))
    return e_.fail(errc::kCouldNotFindFile, "Could not find file '" + path + "'.");
  file = resolved;
  if (!checkNewName(table)) return false;

  // Reuse the schema of a file linked already, else attach it anew.
  std::string schema;
  for (const auto &[name, link] : e_.links_)
    if (link.attached && link.path == file) schema = link.schema;
  bool fresh = schema.empty();
  if (fresh) {
    for (int n = 1; schema.empty(); ++n) {
      std::string candidate = "vt_link_" + std::to_string(n);
      bool used = false;
      for (const auto &[name, link] : e_.links_) used |= link.schema == candidate;
      if (!used) schema = candidate;
    }
    if (!attach(e_.db(), file, schema))
      return e_.fail(errc::kCannotOpen, "The database engine cannot open the file '" + path + "'.");
  }
  auto undo = [&] {
    if (fresh) sqlite3_exec(e_.db(), ("DETACH " + quoteIdent(schema)).c_str(), nullptr, nullptr, nullptr);
    return false;
  };

  // The table as the linked file declares it. Read with the raw interface:
  // a file that is no database must not mark this connection as damaged.
  sqlite3_stmt *st = nullptr;
  std::string sql = "SELECT name FROM " + quoteIdent(schema) +
                    ".sqlite_master WHERE type = 'table' AND name = ?1 COLLATE NOCASE";
  int rc = sqlite3_prepare_v2(e_.db(), sql.c_str(), -1, &st, nullptr);
  std::string declared;
  if (rc == SQLITE_OK) {
    sqlite3_bind_text(st, 1, table.c_str(), -1, SQLITE_TRANSIENT);
    rc = sqlite3_step(st);
    if (rc == SQLITE_ROW) declared = reinterpret_cast<const char *>(sqlite3_column_text(st, 0));
  }
  sqlite3_finalize(st);
  if (rc != SQLITE_ROW && rc != SQLITE_DONE) {
    undo();
    return e_.fail(errc::kUnrecognizedFormat, "Unrecognized database format '" + path + "'.");
  }
  if (declared.empty() || isInternalName(declared)) {
    undo();
    return e_.fail(errc::kObjectNotFound,
                   "The database engine could not find the object '" + table + "' in '" + path + "'.");
  }

  if (!e_.exec("CREATE TABLE IF NOT EXISTS _vantry_links (name TEXT PRIMARY KEY COLLATE NOCASE, "
               "path TEXT NOT NULL, source TEXT NOT NULL)"))
    return undo();
  Stmt ins = e_.prepare("INSERT INTO _vantry_links (name, path, source) VALUES (?1, ?2, ?1)");
  if (!ins) return undo();
  sqlite3_bind_text(ins.get(), 1, declared.c_str(), -1, SQLITE_TRANSIENT);
  sqlite3_bind_text(ins.get(), 2, file.c_str(), -1, SQLITE_TRANSIENT);
  rc = sqlite3_step(ins.get());
  if (rc != SQLITE_DONE) {
    e_.failSqlite(rc);
    return undo();
  }
  e_.links_[asciiLower(declared)] = SqliteEngine::Link{schema, file, true};
  e_.afterWrite(nullptr);
  return true;
}

bool SqliteSchema::unlink(const std::string &table) {
  auto it = e_.links_.find(asciiLower(table));
  Stmt del = e_.prepare("DELETE FROM _vantry_links WHERE name = ?1");
  if (!del) return false;
  sqlite3_bind_text(del.get(), 1, table.c_str(), -1, SQLITE_TRANSIENT);
  int rc = sqlite3_step(del.get());
  if (rc != SQLITE_DONE) return e_.failSqlite(rc);
  e_.forgetTable(table);
  std::string schema = it->second.schema;
  bool attached = it->second.attached;
  e_.links_.erase(it);
  if (attached) detachUnused(schema);
  e_.afterWrite(nullptr);
  return true;
}

}  // namespace vantry::engine::sqlite
