// `vantry import FILE.mdb OUT.db`: an Access database copied into a new
// SQLite database (include/engine/access.h), with a progress bar when
// standard error is a terminal. `vantry import FILE.mdb postgresql://...`
// writes it into a server's schema instead, in one transaction.
#pragma once

#include <string>

namespace vantry::cli {

// Exit status: 0 imported, 1 the import failed (the reason on standard
// error), 2 the target file exists already (on a server, a table of the
// file's exists already fails the import: 1).
int importAccess(const std::string &accessPath, const std::string &out);

}  // namespace vantry::cli
