// The session's documents and the host's document manager.
//
// The session holds the open documents in opening order; exactly one is
// current whenever any is open. The document manager of the host API is a
// view on the same list. Besides the current document the manager tracks the
// MDI-active one: setCurDocument without activation moves only the current
// document, as the host allows while a command works in a background drawing.
//
// A closed document is kept alive (retired) until the driver says no LISP
// runs (releaseRetired) or the next reset: a script may close the document
// whose LISP environment is running it, and that environment must outlive the
// call. LISP values elsewhere name its objects by the drawing's serial, which
// no longer resolves once the drawing is gone.
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "dcl/dcl.h"
#include "engine/engine.h"
#include "dxf/dxf.h"
#include "session/session.h"
#include "session/internal.h"

namespace vantry::host {
namespace {

namespace fs = std::filesystem;

int untitledCount = 0;
Document *mdiActive = nullptr;
AcDbDatabase *workingOverride = nullptr;
std::vector<std::unique_ptr<Document>> retired;

bool sameTitle(std::wstring_view a, std::wstring_view b) {
  return text::upcase(a) == text::upcase(b);
}

std::wstring directoryOf(const std::wstring &path) {
  fs::path p(text::toUtf8(path));
  std::string dir = p.parent_path().string();
  if (dir.empty() || dir.back() != '/') dir += '/';
  return text::fromUtf8(dir);
}

// DWGNAME and DWGPREFIX follow the current document.
void publishCurrent(Document *doc) {
  if (!doc) {
    setSystemString(L"DWGNAME", L"");
    setSystemString(L"DWGPREFIX", L"");
    return;
  }
  setSystemString(L"DWGNAME", doc->docTitle());
  setSystemString(L"DWGPREFIX", directoryOf(doc->fileName()));
}

}  // namespace

std::wstring absolutePath(const std::wstring &path) {
  fs::path p(text::nativePath(path));
  if (p.is_relative()) {
    std::error_code ec;
    fs::path cwd = fs::current_path(ec);
    if (!ec) p = cwd / p;
  }
  return text::fromUtf8(p.lexically_normal().string());
}

std::wstring titleOf(const std::wstring &path) {
  return text::fromUtf8(fs::path(text::nativePath(path)).filename().string());
}

// --- Document ---------------------------------------------------------------------

Document::Document(std::wstring path, std::wstring title)
    : path_(std::move(path)),
      title_(std::move(title)),
      db_(std::make_unique<AcDbDatabase>()),
      lisp_(std::make_unique<lisp::Interp>()) {
  lisp_->output = [](std::wstring_view text) { Session::get().print(text); };
  lisp::installAll(*lisp_);
  installHostLisp(*lisp_);
}

Document::~Document() = default;

// --- Session ------------------------------------------------------------------------

Session::Session() {
  // The host keeps the memory it has had rather than handing it back to the
  // system after every large result: a query of a hundred thousand records
  // frees a few hundred megabytes of small nodes at once, and returning them
  // only for the next query to fault them in again (page by page, each page
  // cleared by the kernel) cost more than building the result itself.
  mallopt(M_TRIM_THRESHOLD, 512 << 20);
  mallopt(M_TOP_PAD, 16 << 20);
  mallopt(M_MMAP_THRESHOLD, 32 << 20);
  // The session's fault switches are what the drawing database and the
  // engine ask.
  setDbEnv(&faults);
  engine::setEnv(&faults);
}

Session &Session::get() {
  // Never destroyed: modules may still hold host objects while the process
  // exits, and their libraries are not unloaded in a fixed order.
  static Session *session = nullptr;
  if (!session) {
    session = new Session();
    session->reset();
  }
  return *session;
}

void Session::reset() {
  // Close as the host quits: every document gets its unload message while
  // the modules are still there, then the modules go.
  while (!documents_.empty()) close(documents_.back().get());
  unloadAllModules();
  retired.clear();
  untitledCount = 0;
  mdiActive = nullptr;
  workingOverride = nullptr;

  transcript_.clear();
  textScreenCalls = 0;
  input.clear();
  resetSharedLisp();
  dialogAnswers.clear();
  moduleLibraries.clear();
  editorReactors.clear();
  mutexes.clear();
  faults.clear();
  calls.clear();
  seedSystemVariables();
  resetPlatform();
  resetDesktop();
  resetEditorInput();
  dcl::reset();
  // No document is open: whoever starts the host opens the first drawing
  // (newDocument(L"") gives "Drawing1.dwg").
}

void Session::print(std::wstring_view text) {
  transcript_.append(text);
  appendToCommandLog(text);
  if (!echo) return;
  // A progress meter drawn on the terminal's last line gives way to the
  // text; it is drawn again at its next step.
  if (!statusLine.empty()) {
    echo(L"\r\033[K");
    statusLine.clear();
  }
  echo(text);
}

// A path that names an existing file opens that drawing: a drawing file that
// cannot be read is reported on the transcript and no document is made.
Document *Session::newDocument(const std::wstring &path) {
  std::wstring full, title;
  if (path.empty()) {
    title = L"Drawing" + std::to_wstring(++untitledCount) + L".dwg";
    full = absolutePath(title);
  } else {
    full = absolutePath(path);
    title = titleOf(full);
  }
  auto made = std::make_unique<Document>(full, title);
  std::string native = text::toUtf8(full);
  std::error_code ec;
  if (!path.empty() && fs::is_regular_file(native, ec)) {
    std::wstring why;
    if (openDxf(native, made->database(), &why) != Acad::eOk) {
      print(L"\nCannot open the drawing \"" + full + L"\": " + why + L"\n");
      return nullptr;
    }
    // What the reader left out or repaired, one line each.
    if (!why.empty()) print(L"\n" + title + L" is open; what was left out or repaired:\n" + why + L"\n");
    // What it keeps as read without modelling it, counted by kind.
    if (std::wstring kept = describeKeptAsRead(made->database()); !kept.empty())
      print(L"\n" + title + L" keeps as read what is not modelled: " + kept + L"\n");
  }
  documents_.push_back(std::move(made));
  Document *doc = documents_.back().get();
  activate(doc);
  broadcast(AcRx::kLoadDwgMsg);
  applySharedLisp(*doc);
  return doc;
}

void Session::activate(Document *doc) {
  current_ = doc;
  mdiActive = doc;
  workingOverride = nullptr;
  publishCurrent(doc);
}

bool Session::close(Document *doc) {
  auto owned = [this, doc] {
    return std::find_if(documents_.begin(), documents_.end(),
                        [doc](const std::unique_ptr<Document> &d) { return d.get() == doc; });
  };
  if (owned() == documents_.end()) return false;
  Document *previous = current_;
  activate(doc);
  broadcast(AcRx::kUnloadDwgMsg);
  auto it = owned();  // the modules may have opened documents meanwhile
  retired.push_back(std::move(*it));
  documents_.erase(it);
  if (previous == doc || !previous) {
    activate(documents_.empty() ? nullptr : documents_.back().get());
  } else {
    activate(previous);
  }
  return true;
}

void Session::releaseRetired() {
  retired.clear();
}

Document *Session::findDocument(const std::wstring &pathOrTitle) const {
  if (pathOrTitle.empty()) return nullptr;
  std::wstring full = absolutePath(pathOrTitle);
  for (const auto &d : documents_) {
    std::wstring title = d->docTitle();
    if (full == d->fileName() || sameTitle(pathOrTitle, title)) return d.get();
    // A title without its extension names the document too.
    size_t dot = title.rfind(L'.');
    if (dot != std::wstring::npos && sameTitle(pathOrTitle, title.substr(0, dot))) return d.get();
  }
  return nullptr;
}

Document *Session::documentOf(const AcDbDatabase *db) const {
  if (!db) return nullptr;
  for (const auto &d : documents_)
    if (d->database() == db) return d.get();
  return nullptr;
}

// Writes the drawing file (host/dxf.h): written beside the target and renamed
// over it when complete, so a failed save loses nothing.
bool Session::save(Document *doc, const std::wstring &name) {
  if (!doc) doc = current_;
  if (!doc) return false;
  std::wstring target = name.empty() ? std::wstring(doc->fileName()) : absolutePath(name);
  std::vector<AcEditorReactor *> reactors = editorReactors;
  for (AcEditorReactor *r : reactors) r->beginSave(doc->database(), target.c_str());

  std::wstring why;
  if (saveDxf(doc->database(), text::toUtf8(target), &why) != Acad::eOk) {
    print(L"\nUnable to save the drawing as \"" + target + L"\": " + why + L"\n");
    reactors = editorReactors;
    for (AcEditorReactor *r : reactors) r->abortSave(doc->database());
    return false;
  }
  if (target != doc->fileName()) {
    doc->setPath(target, titleOf(target));
    if (doc == current_) publishCurrent(doc);
  }
  reactors = editorReactors;
  for (AcEditorReactor *r : reactors) r->saveComplete(doc->database(), target.c_str());
  return true;
}

// --- The document manager ----------------------------------------------------------

namespace {

bool isOpen(const AcApDocument *doc) {
  for (const auto &d : Session::get().documents())
    if (d.get() == doc) return true;
  return false;
}

class DocumentIterator final : public AcApDocumentIterator {
 public:
  DocumentIterator() {
    for (const auto &d : Session::get().documents()) docs_.push_back(d.get());
  }
  bool done() const override { return pos_ >= docs_.size(); }
  void step() override { ++pos_; }
  AcApDocument *document() override { return done() ? nullptr : docs_[pos_]; }

 private:
  std::vector<Document *> docs_;  // a snapshot: closing while iterating is safe
  size_t pos_ = 0;
};

class DocManager final : public AcApDocManager {
 public:
  AcApDocument *curDocument() const override { return Session::get().current(); }
  AcApDocument *mdiActiveDocument() const override {
    return isOpen(mdiActive) ? mdiActive : Session::get().current();
  }
  AcApDocument *document(const AcDbDatabase *db) const override { return Session::get().documentOf(db); }

  // Locks nest: every lock pushes its mode and the innermost mode is the
  // document's lock mode until it is unlocked.
  Acad::ErrorStatus lockDocument(AcApDocument *doc, AcAp::DocLockMode mode, const ACHAR *, const ACHAR *,
                                 bool) override {
    if (!doc) return Acad::eNullObjectPointer;
    if (!isOpen(doc)) return Acad::eNoDocument;
    auto *d = static_cast<Document *>(doc);
    ++d->lockCalls_;
    ++d->lockCount_;
    d->lockStack_.push_back(mode);
    d->lockMode_ = mode;
    return Acad::eOk;
  }
  Acad::ErrorStatus unlockDocument(AcApDocument *doc) override {
    if (!doc) return Acad::eNullObjectPointer;
    if (!isOpen(doc)) return Acad::eNoDocument;
    auto *d = static_cast<Document *>(doc);
    ++d->unlockCalls_;
    if (d->lockCount_ == 0) return Acad::eNotApplicable;
    --d->lockCount_;
    d->lockStack_.pop_back();
    d->lockMode_ = d->lockStack_.empty() ? AcAp::kNotLocked : d->lockStack_.back();
    return Acad::eOk;
  }
  Acad::ErrorStatus setCurDocument(AcApDocument *doc, AcAp::DocLockMode mode, bool activate) override {
    if (!doc) return Acad::eNullObjectPointer;
    if (!isOpen(doc)) return Acad::eNoDocument;
    Document *active = mdiActive;
    Session::get().activate(static_cast<Document *>(doc));
    if (!activate) mdiActive = active;
    if (mode != AcAp::kNone) return lockDocument(doc, mode, nullptr, nullptr, false);
    return Acad::eOk;
  }
  Acad::ErrorStatus activateDocument(AcApDocument *doc, bool) override {
    if (!doc) return Acad::eNullObjectPointer;
    if (!isOpen(doc)) return Acad::eNoDocument;
    Session::get().activate(static_cast<Document *>(doc));
    return Acad::eOk;
  }
  int documentCount() const override { return int(Session::get().documents().size()); }
  AcApDocumentIterator *newAcApDocumentIterator() override { return new DocumentIterator(); }
};

class HostServices final : public AcDbHostApplicationServices {
 public:
  AcDbDatabase *workingDatabase() const override {
    if (workingOverride) return workingOverride;
    Document *doc = Session::get().current();
    return doc ? doc->database() : nullptr;
  }
  // Holds until the current document changes, as on the host.
  void setWorkingDatabase(AcDbDatabase *db) override { workingOverride = db; }
};

}  // namespace
}  // namespace vantry::host

AcApDocManager *acDocManagerPtr() {
  static vantry::host::DocManager manager;
  return &manager;
}

AcDbHostApplicationServices *acdbHostApplicationServices() {
  static vantry::host::HostServices services;
  return &services;
}
