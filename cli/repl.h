// The runner's interactive read-eval-print loop.
#pragma once

namespace vantry::cli {

// Reads forms from the terminal with line editing until end of input, each
// in the current drawing's LISP; returns the exit status.
int repl();

}  // namespace vantry::cli
