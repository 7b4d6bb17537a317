// A new, empty database file.
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include "engine/engine.h"

namespace vantry::engine {

bool CreateDatabaseFile(const std::string &pathIn, LastError *error) {
  std::string path = pathIn;
  for (char &c : path)
    if (c == '\\') c = '/';
  auto fail = [&](long number, const std::string &text) {
    if (error) *error = {number, text};
    return false;
  };
  // A database is a file: no name at all, or a name that ends in a
  // separator or names a folder, is no place for one (SQLite would take an
  // empty name for a temporary database, and a folder is not "existing").
  struct stat st;
  if (path.empty()) return fail(errc::kInvalidPath, "The database file name is empty.");
  if (path.back() == '/' || (::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)))
    return fail(errc::kInvalidPath, "'" + pathIn + "' is a folder, not a database file name.");
  if (::stat(path.c_str(), &st) == 0) return fail(errc::kDatabaseExists, "Database already exists.");
  std::string dir = path.substr(0, path.find_last_of('/') == std::string::npos ? 0 : path.find_last_of('/'));
  if (!dir.empty() && (::stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)))
    return fail(errc::kInvalidPath, "'" + path + "' is not a valid path.");
  sqlite3 *db = nullptr;
  int rc = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  // An empty file is not yet a database: write its header by setting a user version.
  if (rc == SQLITE_OK) rc = sqlite3_exec(db, "PRAGMA user_version = 1;", nullptr, nullptr, nullptr);
  sqlite3_close(db);
  if (rc != SQLITE_OK) {
    ::unlink(path.c_str());
    return fail(errc::kCannotOpen, "Could not create the database file '" + path + "'.");
  }
  if (error) *error = {};
  return true;
}

}  // namespace vantry::engine
