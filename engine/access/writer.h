// Writing what a Reader reads into a new SQLite database: the work of the
// import's child process (import.cpp).
#pragma once

#include <functional>
#include <string>

#include "engine/access.h"

namespace vantry::engine::access {

struct WriterCallbacks {
  Progress progress;
  std::function<void(const std::string &)> note;
};

// Reads `accessPath` and writes the database at `sqlitePath` (which must not
// exist). The report says what was written or why nothing useful was.
ImportReport writeDatabase(const std::string &accessPath, const std::string &sqlitePath, const WriterCallbacks &cb);

}  // namespace vantry::engine::access
