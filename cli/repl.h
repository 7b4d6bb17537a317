// The runner's interactive read-eval-print loop.
#pragma once

#include "lisp/lisp.h"

namespace vantry::cli {

// Reads forms from the terminal with line editing until end of input;
// returns the exit status.
int repl(lisp::Interp &in);

}  // namespace vantry::cli
