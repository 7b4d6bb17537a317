// The interactive loop: reads until the parentheses balance, evaluates, and
// prints the value as the host's command line does.
#include "repl.h"

#include <editline/readline.h>

#include <cstdio>
#include <cstdlib>

#include "session/session.h"

namespace vantry::cli {
namespace {

// Whether a text holds complete forms: parentheses balanced outside strings
// and comments.
bool complete(const std::string &text) {
  int depth = 0;
  bool inString = false;
  for (size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (inString) {
      if (c == '\\')
        ++i;
      else if (c == '"')
        inString = false;
    } else if (c == '"') {
      inString = true;
    } else if (c == ';') {
      while (i < text.size() && text[i] != '\n') ++i;
    } else if (c == '(') {
      ++depth;
    } else if (c == ')') {
      --depth;
    }
  }
  return !inString && depth <= 0;
}

}  // namespace

int repl() {
  host::Session &s = host::Session::get();
  std::string pending;
  for (;;) {
    char *line = readline(pending.empty() ? "Command: " : "");
    if (!line) break;
    if (*line) add_history(line);
    pending += line;
    pending += '\n';
    std::free(line);
    if (!complete(pending)) continue;
    // Each line runs in the current drawing's LISP (a new drawing when the last one was closed);
    // between lines no LISP runs, so the drawings closed meanwhile go.
    s.releaseRetired();
    if (!s.current()) s.newDocument(L"");
    lisp::Interp &in = s.current()->lisp();
    try {
      lisp::Value v = in.evalText(vantry::text::fromUtf8(pending), {L"", 1});
      if (!s.atLineStart()) s.print(L"\n");
      s.print(in.toString(v, true) + L"\n");
    } catch (const lisp::ErrorHandled &) {
    }
    pending.clear();
  }
  std::printf("\n");
  return 0;
}

}  // namespace vantry::cli
