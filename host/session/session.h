// The host stand-in's own side: the session that the runner and the tests
// drive. The module never includes this header (it sees only host/arx.h).
//
// One Session per process holds the open documents (each with its drawing
// database, its LISP environment and its external function registrations),
// the transcript, the scripted person's input and dialog queues, the system
// variables, the loaded modules and the faults a test has asked for.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "db/db.h"
#include "engine/engine.h"
#include "host/arx.h"
#include "lisp/lisp.h"

namespace vantry::host {

// What a document's LISP environment has registered: name -> code from
// acedDefun, code -> handler from acedRegFunc. Handlers are hashed: every
// external call looks its handler up.
struct FunctionRegistry {
  std::unordered_map<int, int (*)()> handlers;
  std::map<int, std::wstring> names;
};

class Document final : public AcApDocument {
 public:
  Document(std::wstring path, std::wstring title);
  ~Document() override;
  const ACHAR *fileName() const override { return path_.c_str(); }
  const ACHAR *docTitle() const override { return title_.c_str(); }
  AcDbDatabase *database() const override { return db_.get(); }
  AcAp::DocLockMode myLockMode() const override { return lockMode_; }
  AcAp::DocLockMode lockMode(bool) const override { return lockMode_; }
  bool isQuiescent() const override { return lockCount_ == 0; }

  void setPath(std::wstring path, std::wstring title) {
    path_ = std::move(path);
    title_ = std::move(title);
  }
  lisp::Interp &lisp() { return *lisp_; }
  FunctionRegistry &functions() { return functions_; }

  // Lock bookkeeping, visible to tests: the number of locks held now, the
  // mode of the innermost, and how many lock calls were ever made.
  int lockCount_ = 0;
  int lockCalls_ = 0;
  int unlockCalls_ = 0;
  AcAp::DocLockMode lockMode_ = AcAp::kNotLocked;
  std::vector<AcAp::DocLockMode> lockStack_;

 private:
  std::wstring path_, title_;
  std::unique_ptr<AcDbDatabase> db_;
  std::unique_ptr<lisp::Interp> lisp_;
  FunctionRegistry functions_;
};

// One answer of the scripted person.
struct InputItem {
  enum Kind {
    Point,   // a point typed or picked: x y z
    Text,    // typed text: a keyword, a string or a number as typed
    Empty,   // Enter alone
    Cancel,  // Esc
    Pick,    // a pick at a point, for entity selection
  };
  Kind kind = Empty;
  double pt[3] = {0, 0, 0};
  std::wstring text;
};

// Faults that a script (host:fault) or a test can switch on. The session
// installs them as the drawing database's and the engine's surroundings
// (DbEnv, engine::Env), so that neither reads the session.
struct Faults final : DbEnv, engine::EnvWrapper {
  Faults() : engine::EnvWrapper(engine::defaultEnv()) {}
  bool engineUnavailable = false;      // the database engine cannot be created
  bool automationUnavailable = false;  // the automation object cannot be created
  bool automationStartFails = false;   // its first method answers a failure
  bool automationStopFails = false;    // its second method answers a failure
  bool refuseAppends = false;          // block records refuse new entities (eOutOfMemory)
  bool appendRefused() override { return refuseAppends; }
  bool creationFails() override { return engineUnavailable || engine::EnvWrapper::creationFails(); }
  void clear() { engineUnavailable = automationUnavailable = automationStartFails = automationStopFails = refuseAppends = false; }
};

// What the automation server stand-in has seen: objects made, alive now,
// Start and Stop calls.
struct AutomationLog {
  int created = 0, alive = 0, starts = 0, stops = 0;
};
AutomationLog &automationLog();

class Session {
 public:
  static Session &get();

  // --- Transcript
  void print(std::wstring_view text);  // what the command line shows
  std::wstring transcript() const { return transcript_; }
  void clearTranscript() { transcript_.clear(); }
  bool atLineStart() const { return transcript_.empty() || transcript_.back() == L'\n'; }
  // Where the transcript goes besides being kept (the runner's stdout).
  std::function<void(std::wstring_view)> echo;
  // Whether echo reaches a terminal, where the status bar's progress meter
  // is drawn in place (and kept off the transcript) rather than written as
  // lines. The runner sets it; reset keeps it.
  bool echoIsTerminal = false;
  // What the terminal's last line shows of the status bar, erased before the
  // next text is echoed; empty when nothing is drawn.
  std::wstring statusLine;
  int textScreenCalls = 0;

  // --- Documents
  Document *newDocument(const std::wstring &path);  // becomes current
  Document *current() const { return current_; }
  void activate(Document *doc);
  bool close(Document *doc);  // sends the unload message first
  // Frees the documents closed since the last call. A closed document is
  // kept until then because a script may close the document whose LISP is
  // running it; so this is called only where no LISP runs (between the
  // runner's scripts or lines, between a fuzzer's inputs).
  void releaseRetired();
  const std::vector<std::unique_ptr<Document>> &documents() const { return documents_; }
  Document *findDocument(const std::wstring &pathOrTitle) const;
  Document *documentOf(const AcDbDatabase *db) const;
  // Saves the current document's drawing under name (save-as when the name
  // differs); fires saveComplete on the editor reactors.
  bool save(Document *doc, const std::wstring &name);

  // --- The scripted person
  std::deque<InputItem> input;
  std::deque<std::wstring> dialogAnswers;  // button names or values
  // Takes the next answer; with none queued, says so on the transcript and
  // answers Cancel.
  InputItem nextInput();
  std::optional<std::wstring> nextDialogAnswer();

  // --- System variables (names upper-case)
  std::map<std::wstring, resbuf> sysvars;  // RTSTR values own their strings

  // --- Modules and applications
  // The library that stands behind a module name, e.g. "vantry.arx" ->
  // "/path/libvantry.so".
  std::map<std::wstring, std::string> moduleLibraries;
  bool loadModule(const std::wstring &name, bool printit);
  bool unloadModule(const std::wstring &name);
  bool isModuleLoaded(const std::wstring &name) const;
  // Loaded modules in load order.
  struct Module {
    std::wstring name;
    void *handle;
    AcRx::AppRetCode (*entry)(AcRx::AppMsgCode, void *);
    bool mdiAware = false;
    bool unlocked = false;
  };
  std::vector<Module> modules;
  // Sends a message to every loaded module's entry point.
  void broadcast(AcRx::AppMsgCode msg);

  // --- Editor reactors (the "AcEditor" service)
  std::vector<AcEditorReactor *> editorReactors;

  // --- Named mutexes made through CreateMutexW
  std::vector<std::wstring> mutexes;

  Faults faults;

  // The external call in progress: its code, its arguments, its result.
  struct Call {
    int code = 0;
    lisp::Interp *interp = nullptr;
    std::vector<lisp::Value> args;
    lisp::Value result;
    bool resultSet = false;
    // A LISP error met while converting for the module (a value nested too
    // deep for the stack): raised when the function returns, never thrown
    // through the module's frames.
    std::optional<std::wstring> pendingError;
  };
  std::vector<Call *> calls;

  // Resets everything to a fresh process: no document is open, no module
  // loaded, no fault set; the echo hook is kept.
  void reset();

 private:
  Session();
  std::wstring transcript_;
  std::vector<std::unique_ptr<Document>> documents_;
  Document *current_ = nullptr;
};

// Builds a chain for a LISP value as the host passes it to external
// functions, and turns a chain returned by one back into a LISP value.
// Both are the host's value conversion (see docs/architecture.md).
resbuf *valueToArgs(lisp::Interp &in, const lisp::Value *args, int nargs);
lisp::Value chainToValue(lisp::Interp &in, const resbuf *rb);
// Installs the host's bridge, editor input and host: functions in a
// document's interpreter.
void installHostLisp(lisp::Interp &in);
// Its parts: initget and the get... built-ins over the scripted person; the
// host: functions for scripts and tests; getvar, setvar and alert.
void installEditorInput(lisp::Interp &in);
void installHostFunctions(lisp::Interp &in);
// The drawing database's built-ins: entget, entmake ..., tblsearch,
// dictsearch, regapp ... (host/db/lisp_entities.cpp).
void installEntityLisp(lisp::Interp &in);

}  // namespace vantry::host
