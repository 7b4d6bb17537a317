// `vantry import FILE.mdb OUT.db`: an Access database copied into a new
// SQLite database (include/engine/access.h), with a progress bar when
// standard error is a terminal.
#pragma once

#include <string>

namespace vantry::cli {

// Exit status: 0 imported, 1 the import failed (the reason on standard
// error), 2 the target exists already.
int importAccess(const std::string &accessPath, const std::string &out);

}  // namespace vantry::cli
