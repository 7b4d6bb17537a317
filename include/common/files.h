// Files that every room writes the same way: a file is replaced only by a
// complete new one, so a failed or interrupted write loses nothing that was
// there before.
//
// Callers: drawing saves (host/dxf), pictures (render/), database compaction
// (engine/), file checks of the module.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace vantry::files {

// Replaces `target` with a file written by `write`, which is handed a path
// beside the target (same directory, so the rename stays on one file system;
// nothing exists there yet) and answers whether it wrote the whole file. The
// new file is flushed to disk, then renamed over the target, then the
// directory is flushed. When `write` answers false, or the flush or the
// rename fails, the temporary file is removed and the target is left as it
// was; *error then says why, unless `write` failed (its own reason stands).
// errno is that of the failing step.
bool replaceFile(const std::string &target, const std::function<bool(const std::string &temp)> &write,
                 std::string *error = nullptr);

// Whether a regular file exists at a path as LISP or the module writes it.
bool isFile(std::wstring_view path);

}  // namespace vantry::files
