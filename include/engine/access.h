// Access databases (.mdb, .accdb): imported into SQLite, the engine's own
// format. `vantry import` writes such a copy where it is told; the engine
// opens an Access file read-only by answering from a copy it keeps in a
// cache and remakes when the Access file changes.
//
// The file is read in a child process: the library that reads Access
// catalogs has faults on damaged files, and a damaged or hostile file must
// not take the caller down. A child that crashes, or stops giving news for
// a minute, is reported as a damaged file.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace vantry::engine::access {

struct ImportReport {
  bool ok = false;
  long number = 0;          // the engine's error number when !ok (errc in engine.h, or 3031 encrypted)
  std::string message;      // what went wrong, for a person
  size_t tables = 0, rows = 0, indexes = 0, relations = 0, queries = 0;
  std::string notes;        // what was read but not carried over, one line each
};

// Called now and then during an import: rows done so far, rows in all, the
// table being read.
using Progress = std::function<void(size_t done, size_t total, const std::string &table)>;

// Whether a path names an existing Access file, by the engine its header
// names. The extension says nothing: the product names its SQLite databases
// .mdb as well.
bool isAccessFile(const std::string &path);

// Writes a new SQLite database at `out` holding what `accessPath` holds. The
// target is replaced only by a complete database; when the import fails it
// is left as it was.
ImportReport importFile(const std::string &accessPath, const std::string &out, const Progress &progress = {});

// Writes what `accessPath` holds into the PostgreSQL database that `url`
// names (a "postgresql://" URL, "?schema=NAME" choosing the schema), with
// the tables' fields mapped to the server's types as the schema functions
// map them. One transaction: a table of a name the schema holds already
// (3010), an unreachable server (3043) or any other failure leaves the
// server as it was. `notes` also says what the server cannot hold (OLE
// values, indexes and queries it refuses).
ImportReport importFileToServer(const std::string &accessPath, const std::string &url,
                                const Progress &progress = {});

// The SQLite copy the engine answers from, made when missing or older than
// the Access file. Kept in $VANTRY_ACCESS_CACHE, else $XDG_CACHE_HOME/vantry/access,
// else ~/.cache/vantry/access, named by the Access file's path; beside the
// Access file as NAME.vantry.db when none of those can be written.
ImportReport cachedCopy(const std::string &accessPath, std::string *copyPath);

}  // namespace vantry::engine::access
