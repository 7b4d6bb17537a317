// Documents, the document manager and its locks, saving and the editor
// reactors that saving fires.
#include <filesystem>
#include <fstream>

#include "db/db.h"
#include "dxf/dxf.h"
#include "host_fixture.h"

namespace vantry::host {
namespace {

namespace fs = std::filesystem;

std::wstring sysvarString(const wchar_t *name) {
  resbuf rb{};
  if (acedGetVar(name, &rb) != RTNORM || rb.restype != RTSTR) return L"<none>";
  std::wstring v = rb.resval.rstring;
  acutDelString(rb.resval.rstring);
  return v;
}

struct SaveLog : AcEditorReactor {
  std::vector<std::wstring> events;
  void beginSave(AcDbDatabase *, const ACHAR *name) override { events.push_back(L"begin " + titleOf(name)); }
  void saveComplete(AcDbDatabase *db, const ACHAR *name) override {
    events.push_back(L"complete " + titleOf(name));
    lastDb = db;
  }
  void abortSave(AcDbDatabase *) override { events.push_back(L"abort"); }
  AcDbDatabase *lastDb = nullptr;
};

using Documents = HostTest;

TEST_F(Documents, UntitledDrawingsAreNumberedAndBecomeCurrent) {
  Document *second = s().newDocument(L"");
  EXPECT_STREQ(second->docTitle(), L"Drawing2.dwg");
  EXPECT_EQ(s().current(), second);
  EXPECT_EQ(fs::path(second->fileName()).parent_path(), fs::current_path());
  EXPECT_EQ(sysvarString(L"DWGNAME"), L"Drawing2.dwg");
  EXPECT_EQ(sysvarString(L"DWGPREFIX"), text::fromUtf8(fs::current_path().string()) + L"/");
  EXPECT_EQ(acDocManager->documentCount(), 2);
  EXPECT_EQ(acdbHostApplicationServices()->workingDatabase(), second->database());
}

TEST_F(Documents, ClosingTheCurrentMakesAnotherCurrent) {
  Document *first = s().current();
  Document *second = s().newDocument(L"/tmp/vantry-docs/plan.dwg");
  EXPECT_EQ(s().findDocument(L"PLAN"), second);  // title without extension, any case
  EXPECT_EQ(s().findDocument(L"/tmp/vantry-docs/plan.dwg"), second);
  EXPECT_EQ(s().findDocument(L"nothing.dwg"), nullptr);

  s().activate(first);
  EXPECT_TRUE(s().close(second));
  EXPECT_EQ(s().current(), first);  // closing a background drawing keeps the current one
  EXPECT_FALSE(s().close(second));  // already closed

  EXPECT_TRUE(s().close(first));
  EXPECT_EQ(s().current(), nullptr);
  EXPECT_EQ(acDocManager->curDocument(), nullptr);
  EXPECT_EQ(acdbHostApplicationServices()->workingDatabase(), nullptr);
}

TEST_F(Documents, LocksNestAndKeepTheirCounters) {
  Document *doc = s().current();
  AcApDocManager *dm = acDocManager;
  EXPECT_EQ(dm->lockDocument(doc, AcAp::kWrite), Acad::eOk);
  EXPECT_EQ(dm->lockDocument(doc, AcAp::kRead), Acad::eOk);
  EXPECT_EQ(doc->lockCount_, 2);
  EXPECT_EQ(doc->myLockMode(), AcAp::kRead);
  EXPECT_FALSE(doc->isQuiescent());
  EXPECT_EQ(lisp(L"(host:lock-state)"), L"2");

  EXPECT_EQ(dm->unlockDocument(doc), Acad::eOk);
  EXPECT_EQ(doc->myLockMode(), AcAp::kWrite);
  EXPECT_EQ(dm->unlockDocument(doc), Acad::eOk);
  EXPECT_EQ(doc->myLockMode(), AcAp::kNotLocked);
  EXPECT_EQ(dm->unlockDocument(doc), Acad::eNotApplicable);  // one unlock too many
  EXPECT_EQ(doc->lockCalls_, 2);
  EXPECT_EQ(doc->unlockCalls_, 3);
  EXPECT_TRUE(doc->isQuiescent());

  EXPECT_EQ(dm->lockDocument(nullptr), Acad::eNullObjectPointer);
  Document *gone = s().newDocument(L"");
  s().close(gone);
  EXPECT_EQ(dm->lockDocument(gone), Acad::eNoDocument);
}

TEST_F(Documents, SetCurDocumentWithoutActivationLeavesTheActiveOne) {
  AcApDocManager *dm = acDocManager;
  Document *first = s().current();
  Document *second = s().newDocument(L"");
  EXPECT_EQ(dm->setCurDocument(first, AcAp::kWrite, false), Acad::eOk);
  EXPECT_EQ(dm->curDocument(), first);
  EXPECT_EQ(dm->mdiActiveDocument(), second);
  EXPECT_EQ(first->lockCount_, 1);
  EXPECT_EQ(dm->document(second->database()), second);

  EXPECT_EQ(dm->activateDocument(first), Acad::eOk);
  EXPECT_EQ(dm->mdiActiveDocument(), first);

  std::vector<AcApDocument *> seen;
  AcApDocumentIterator *it = dm->newAcApDocumentIterator();
  for (; !it->done(); it->step()) seen.push_back(it->document());
  delete it;
  EXPECT_EQ(seen, (std::vector<AcApDocument *>{first, second}));
}

TEST_F(Documents, SaveAsRenamesTheDocumentAndFiresTheReactors) {
  fs::path dir = fs::temp_directory_path() / "vantry-save-test";
  fs::remove_all(dir);
  fs::create_directories(dir);
  SaveLog log;
  acedEditor->addReactor(&log);
  acedEditor->addReactor(&log);  // once only

  Document *doc = s().current();
  std::wstring target = text::fromUtf8((dir / "duct.dwg").string());
  ASSERT_TRUE(s().save(doc, target));
  EXPECT_TRUE(fs::exists(dir / "duct.dwg"));
  EXPECT_STREQ(doc->docTitle(), L"duct.dwg");
  EXPECT_EQ(sysvarString(L"DWGNAME"), L"duct.dwg");
  EXPECT_EQ(log.events, (std::vector<std::wstring>{L"begin duct.dwg", L"complete duct.dwg"}));
  EXPECT_EQ(log.lastDb, doc->database());

  // Saving over an existing file replaces it with the drawing.
  std::ofstream(dir / "kept.dwg") << "contents";
  EXPECT_EQ(lisp(L"(host:save-as \"" + text::fromUtf8((dir / "kept.dwg").string()) + L"\")"), L"T");
  EXPECT_GT(fs::file_size(dir / "kept.dwg"), 1000u);

  log.events.clear();
  EXPECT_FALSE(s().save(doc, text::fromUtf8((dir / "no-such-dir" / "x.dwg").string())));
  EXPECT_EQ(log.events, (std::vector<std::wstring>{L"begin x.dwg", L"abort"}));
  EXPECT_STREQ(doc->docTitle(), L"kept.dwg");

  acedEditor->removeReactor(&log);
  log.events.clear();
  s().save(doc, L"");
  EXPECT_TRUE(log.events.empty());
  fs::remove_all(dir);
}

TEST_F(Documents, ScriptsDriveDocumentsThroughHostFunctions) {
  fs::path file = fs::temp_directory_path() / "vantry-open-test.dwg";
  {
    AcDbDatabase drawing;
    ASSERT_EQ(saveDxf(&drawing, file.string(), nullptr), Acad::eOk);
  }
  std::wstring path = text::fromUtf8(file.string());
  EXPECT_EQ(lisp(L"(host:new-document)"), L"\"Drawing2.dwg\"");
  EXPECT_EQ(lisp(L"(host:open-document \"" + path + L"\")"), L"\"vantry-open-test.dwg\"");
  EXPECT_EQ(lisp(L"(host:open-document \"/no/such/file.dwg\")"), L"nil");
  EXPECT_EQ(lisp(L"(host:documents)"), L"(\"Drawing1.dwg\" \"Drawing2.dwg\" \"vantry-open-test.dwg\")");
  EXPECT_EQ(lisp(L"(host:activate \"drawing1\")"), L"T");
  EXPECT_EQ(lisp(L"(host:current-document)"), L"\"Drawing1.dwg\"");
  // Opening an open drawing again switches to it.
  EXPECT_EQ(lisp(L"(host:open-document \"" + path + L"\")"), L"\"vantry-open-test.dwg\"");
  EXPECT_EQ(s().documents().size(), 3u);
  // The running script closes its own document: its interpreter survives the call.
  EXPECT_EQ(lisp(L"(host:close-document)"), L"T");
  EXPECT_EQ(s().documents().size(), 2u);
  EXPECT_EQ(lisp(L"(host:close-document \"nothing\")"), L"nil");
  fs::remove(file);
}

// A closed drawing is freed once no LISP runs (a long session, or a fuzzer's thousands of inputs,
// grew by every drawing it had closed). What another drawing's LISP kept of it stays safe: its
// entity names no longer resolve, and a function it defined still runs.
TEST_F(Documents, AClosedDrawingIsFreedAndWhatNamedItStaysSafe) {
  EXPECT_EQ(lisp(L"(host:new-document)"), L"\"Drawing2.dwg\"");
  lisp(L"(entmake '((0 . \"LINE\") (10 0.0 0.0 0.0) (11 1.0 1.0 0.0)))"
       L"(vl-bb-set 'kept (list (entlast) (lambda (x / y) (setq y (* 2 x)) y) (ssadd (entlast))))");
  int64_t serial = s().current()->database()->serial();
  EXPECT_EQ(lisp(L"(host:close-document)"), L"T");
  ASSERT_NE(databaseBySerial(serial), nullptr);  // the closing script may still be running
  s().releaseRetired();
  EXPECT_EQ(databaseBySerial(serial), nullptr);
  EXPECT_EQ(lisp(L"(setq kept (vl-bb-ref 'kept)) (entget (car kept))"), L"nil");
  EXPECT_EQ(lisp(L"((cadr kept) 21)"), L"42");
  EXPECT_EQ(lisp(L"(entget (ssname (caddr kept) 0))"), L"nil");
}

}  // namespace
}  // namespace vantry::host
