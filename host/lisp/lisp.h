// The host's AutoLISP: reader, evaluator, printer and built-in functions.
//
// One Interp is one LISP environment (the host keeps one per document). It is
// driven by the host: the runner loads script files through it, the bridge in
// host/ installs the functions of external modules as Exrxsubr values and
// tells the interpreter how to call them, and the editor input built-ins ask
// the host's scripted person. Everything the LISP prints goes through the
// output hook (the host's transcript).
//
// Errors: every LISP error is raised through Interp::error, the one throw
// point. When no vl-catch-all-apply is active and *error* holds a function,
// that function is called at the point of the error (so the caller's dynamic
// bindings are still visible to it, as on the host) and the error then unwinds
// silently as ErrorHandled; otherwise it unwinds as LispError to whoever
// catches it: vl-catch-all-apply, or the top level, which prints
// "; error: <message>".
#pragma once

#include <csignal>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "common/text.h"
#include "lisp/value.h"

namespace vantry::lisp {

// An error that unwinds LISP evaluation. `message` is what *error* receives.
struct LispError {
  std::wstring message;
};
// An error that *error* has handled already; it unwinds to the top level.
struct ErrorHandled {
  std::wstring message;
};
// The embedder's stop (requestStop): unwinds every evaluation to whoever
// started it. Neither *error* nor vl-catch-all-apply sees it, so a loop that
// catches its own cancels still ends.
struct Stopped {};

// Where a reader error happened, for messages that name the file and line.
struct SourcePos {
  std::wstring file;
  int line = 0;
};

// What a safe point (Interp::safePoint) looks at, read inline on every call:
// the lowest stack address this thread may use, and a pending interrupt.
namespace safe {
// initial-exec: read on every call; the host library is linked at start-up,
// so the variable sits at a fixed offset from the thread pointer.
extern constinit __attribute__((tls_model("initial-exec"))) thread_local uintptr_t stackLimit;
extern volatile std::sig_atomic_t interrupt;
}  // namespace safe

class Interp {
 public:
  Interp();
  ~Interp();
  Interp(const Interp &) = delete;
  Interp &operator=(const Interp &) = delete;

  // --- Symbols and definitions
  Symbol *intern(std::wstring_view name);  // case-insensitive
  void defineSubr(std::wstring_view name, SubrFn fn);
  void defineSpecial(std::wstring_view name, SpecialFn fn);
  // Visits every interned symbol (atoms-family), in no particular order.
  void forEachSymbol(const std::function<void(Symbol *)> &visit) const;
  Value symbolValue(std::wstring_view name);
  void setSymbolValue(std::wstring_view name, Value v);

  // --- Evaluation
  Value eval(const Value &form);
  // Calls a function value (SUBR, USUBR, EXRXSUBR, a symbol naming one, or a
  // lambda list) with evaluated arguments.
  Value apply(const Value &fn, const Value *args, int nargs);
  Value applyList(const Value &fn, const Value &argList);
  // Evaluates every form of a source text, top level style: an error stops
  // the text and is reported (printed, or left to *error*), then rethrown as
  // ErrorHandled so the caller knows the text did not finish. Returns the
  // value of the last form.
  Value evalText(std::wstring_view text, const SourcePos &where);
  // Reads and evaluates the forms of a text one by one; errors propagate.
  Value evalForms(std::wstring_view text, const SourcePos &where);
  // Loads a file as the load built-in does; the path is used as given.
  Value loadFile(const std::wstring &path);

  // --- Reading and printing
  // Reads all forms of a text. A malformed text raises LispError naming
  // where.file and the line.
  std::vector<Value> readAll(std::wstring_view text, const SourcePos &where);
  // prin1 form (strings quoted and escaped) or princ form.
  std::wstring toString(const Value &v, bool escape) const;
  static std::wstring formatReal(double r);

  // --- Errors
  [[noreturn]] void error(std::wstring message);
  // "bad argument type: <predicate>[:] <value>": the colon follows numberp,
  // fixnump and "2D/3D point" only, as on the host ("numberp: nil" but
  // "stringp nil", "consp 3", "listp 1").
  [[noreturn]] void badArgType(std::wstring_view predicate, const Value &v);
  [[noreturn]] void tooFewArgs();
  // A safe point: raises "internal stack limit reached" when the thread's
  // stack is nearly spent, and "Function cancelled" when an interrupt is
  // pending (printing "*Cancel*" first, as the host's command line does).
  // Every call, every turn of a loop and every walk that recurses over LISP
  // values passes one.
  void safePoint() {
    char probe;
    if (reinterpret_cast<uintptr_t>(&probe) < safe::stackLimit || safe::interrupt) safePointSlow();
  }
  [[noreturn]] void tooManyArgs();
  // Prints "; error: ..." on the transcript (the top-level report).
  void reportError(const std::wstring &message);

  // --- Host hooks
  std::function<void(std::wstring_view)> output;  // the transcript
  // Calls an external function; installed by the host's bridge.
  std::function<Value(Interp &, const Exrxsubr &, const Value *, int)> callExternal;
  // The host's support directories, searched by findfile and load after the
  // current directory.
  std::function<std::vector<std::wstring>()> supportPath;
  // Told after a LISP function deleted, renamed, copied onto or truncated a
  // file, so that whoever keeps facts about files looks again.
  std::function<void()> filesChanged;
  void noteFilesChanged() {
    if (filesChanged) filesChanged();
  }

  // Common symbols.
  Symbol *symT, *symQuote, *symLambda, *symFunction, *symError;

  // Nesting depth of vl-catch-all-apply; errors are not given to *error*
  // while one is active.
  int catchDepth = 0;
  bool inErrorHandler = false;
  // Limit on nested function calls before "internal stack limit reached".
  int maxDepth = 15000;
  // Names of the user functions under trace: each call prints
  // "Entering (NAME args...)" and "Result: value" on the transcript.
  std::unordered_set<std::wstring> traced;

  // Dynamic bindings (defun arguments and locals) save the symbol's previous
  // value here and restore it on every exit.
  struct Binding {
    Symbol *sym;
    Value old;
  };
  std::vector<Binding> bindings;
  int depth = 0;

  Value makeT() { return Value(symT); }
  Value boolean(bool b) { return b ? Value(symT) : Value(); }

 private:
  void safePointSlow();
  Value callUsubr(Usubr *f, const Value *args, int nargs);
  Value callUsubrPlain(Usubr *f, const Value *args, int nargs);
  Value callTraced(Usubr *f, const Value *args, int nargs);
  Value evalCall(const Value &form);
  Value evalCallBody(const Value &form);
  Value applyBody(const Value &fn, const Value *args, int nargs);
  std::unordered_map<std::wstring, Value> symbols_;
};

// The built-in families; each installs its functions in an interpreter.
void installCore(Interp &in);     // special forms, evaluation, errors
void installLists(Interp &in);    // list functions and predicates
void installMath(Interp &in);     // numbers and geometry
void installStrings(Interp &in);  // strings, conversions, wcmatch, vl-string-*
void installFiles(Interp &in);    // files, printing, load, findfile, getenv
void installAll(Interp &in);
void installUnits(Interp &in);       // rtos distof angtos angtof (called by installStrings)
void installSessionLisp(Interp &in); // atoms-family, blackboard, defun-q lists, trace, cvunit ...
void installFileSystem(Interp &in);  // vl-file-*, vl-filename-*, vl-directory-files (called by installFiles)

// A value as another document's LISP sees it (each document's LISP has its own symbols): symbols
// interned again by name in `to`, a user function made again from its names and body (so it runs
// there, and after its own document is gone); everything else is shared, since no LISP operation
// changes a value in place.
Value carryOver(Interp &to, const Value &v);

// Wild-card match of wcmatch: # @ . * ? ~ [..] [~..] ` and comma
// alternatives; case-sensitive.
bool wcmatch(std::wstring_view str, std::wstring_view pattern);

// Helpers for built-ins: argument checks that raise the host's messages.
void needArgs(Interp &in, int nargs, int min, int max);
double numArg(Interp &in, const Value &v);               // "numberp"
int32_t intArg(Interp &in, const Value &v);              // "fixnump"
const std::wstring &strArg(Interp &in, const Value &v);  // "stringp"
Value listArg(Interp &in, const Value &v);               // "listp"

// The backslash escapes of string literals, which the reader reads and the
// printer writes: the character and the letter after the backslash.
struct StringEscape {
  wchar_t character, letter;
};
inline constexpr StringEscape kStringEscapes[] = {
    {L'"', L'"'}, {L'\\', L'\\'}, {L'\n', L'n'}, {L'\r', L'r'}, {L'\t', L't'}, {L'\x1b', L'e'},
};

// The person's Esc: set from a signal handler (the runner's SIGINT),
// consumed by the evaluator at its next call or by acedUsrBrk.
// A stop (requestStop) stays pending until clearInterrupts: every safe point
// after it throws Stopped, and takeInterrupt keeps answering true.
void requestInterrupt();
bool takeInterrupt();
void requestStop();
void clearInterrupts();

// Text conversion and case folding are the shared ones (common/text.h);
// symbols fold as names do.
using text::downcase;
using text::fromUtf8;
using text::nativePath;
using text::toUtf8;
using text::upcase;

}  // namespace vantry::lisp
