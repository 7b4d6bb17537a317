// Linked tables. A link is a row of _vantry_links (name, path, source) in
// the database file itself, so it survives reopening: every Open attaches
// each linked file once, under a schema name of its own ("vt_link_1" ...).
// The local name (`name`) may differ from the table's name in its file
// (`source`). Cursors open a linked table as "vt_link_n"."source"; SQL has
// each linked name put in place the same way before it runs
// (SqliteEngine::expandTableNames), so two files that both hold a table of
// one name never answer for each other; statements of a database without
// links are not looked at. A local table of the link's name is refused when
// the link is made. A link whose file has gone is not attached, and naming
// the table then fails with "Could not find file" (3024) instead of "no
// such table".
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

bool SqliteEngine::linkSchema(const std::string &table, std::string *schema, std::string *source) {
  *schema = "main";
  if (source) *source = table;
  if (links_.empty()) return true;
  std::string key = asciiLower(table);
  if (key.rfind("main.", 0) == 0) key.erase(0, 5);
  auto it = links_.find(key);
  if (it == links_.end()) return true;
  if (it->second.attached) {
    *schema = it->second.schema;
    if (source) *source = it->second.source;
    return true;
  }
  return fail(errc::kCouldNotFindFile, "Could not find file '" + it->second.path + "'.");
}

void SqliteEngine::attachLinks() {
  links_.clear();
  sqlite3_stmt *st = nullptr;
  // No link table: no links (the statement does not compile).
  if (sqlite3_prepare_v2(db_, "SELECT name, path, source FROM _vantry_links", -1, &st, nullptr) != SQLITE_OK) {
    sqlite3_finalize(st);
    return;
  }
  std::map<std::string, std::string> attachedPaths;
  int count = 0;
  while (sqlite3_step(st) == SQLITE_ROW) {
    const char *name = reinterpret_cast<const char *>(sqlite3_column_text(st, 0));
    const char *path = reinterpret_cast<const char *>(sqlite3_column_text(st, 1));
    const char *source = reinterpret_cast<const char *>(sqlite3_column_text(st, 2));
    if (!name || !path) continue;
    Link link;
    link.path = path;
    link.source = source ? source : name;
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

bool SqliteSchema::LinkTable(const std::string &path, const std::string &table, const std::string &localName) {
  e_.clearError();
  if (!e_.needWritable()) return false;
  if (!checkName(table) || (!localName.empty() && !checkName(localName))) return false;
  std::string file = normalizePath(path);
  char resolved[PATH_MAX];
  if (file.empty() || !isRegularFile(file) || !::realpath(file.c_str(), resolved))
    return e_.fail(errc::kCouldNotFindFile, "Could not find file '" + path + "'.");
  file = resolved;
  if (!checkNewName(localName.empty() ? table : localName)) return false;

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
  // Linked under its own name, the table keeps the spelling of its file.
  std::string local = localName.empty() || asciiLower(localName) == asciiLower(declared) ? declared : localName;
  Stmt ins = e_.prepare("INSERT INTO _vantry_links (name, path, source) VALUES (?1, ?2, ?3)");
  if (!ins) return undo();
  sqlite3_bind_text(ins.get(), 1, local.c_str(), -1, SQLITE_TRANSIENT);
  sqlite3_bind_text(ins.get(), 2, file.c_str(), -1, SQLITE_TRANSIENT);
  sqlite3_bind_text(ins.get(), 3, declared.c_str(), -1, SQLITE_TRANSIENT);
  rc = sqlite3_step(ins.get());
  if (rc != SQLITE_DONE) {
    e_.failSqlite(rc);
    return undo();
  }
  e_.links_[asciiLower(local)] = SqliteEngine::Link{schema, file, true, declared};
  e_.afterWrite(nullptr);
  return true;
}

bool SqliteSchema::renameLink(const std::string &table, const std::string &newName) {
  auto it = e_.links_.find(asciiLower(table));
  if (asciiLower(newName) == it->first ? !checkName(newName) : !checkNewName(newName)) return false;
  Stmt upd = e_.prepare("UPDATE _vantry_links SET name = ?2 WHERE name = ?1");
  if (!upd) return false;
  sqlite3_bind_text(upd.get(), 1, table.c_str(), -1, SQLITE_TRANSIENT);
  sqlite3_bind_text(upd.get(), 2, newName.c_str(), -1, SQLITE_TRANSIENT);
  int rc = sqlite3_step(upd.get());
  if (rc != SQLITE_DONE) return e_.failSqlite(rc);
  e_.forgetTable(table);
  SqliteEngine::Link link = it->second;
  e_.links_.erase(it);
  e_.links_[asciiLower(newName)] = std::move(link);
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
