// The statement runner behind vt_sql: one reopen and retry, its three modes,
// its labels, and its message box. A connection that fails on command stands
// in for a database lost behind the module's back.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "database/context.h"
#include "session/session.h"
#include "session/internal.h"
#include "module_fixture.h"

namespace vantry {
namespace {

using engine::Engine;
using engine::LastError;
using engine::Record;
using engine::Value;
using engine::ValueArray;

// An engine that passes every call to a real one, except that it fails
// ExecuteSql a chosen number of times, can forget its name, and can fail to
// open. It counts the calls the runner makes.
class FlakyEngine : public Engine {
 public:
  explicit FlakyEngine(engine::EngineConnection inner) : in_(std::move(inner)) {}

  int failExecutions = 0;  // the next this many ExecuteSql calls fail; -1 every one
  bool forgetName = false;
  bool failOpen = false;
  int executions = 0, opens = 0, closes = 0;
  bool lastOpenReadOnly = false;

  std::string Open(const std::string &path, int32_t options, bool readOnly) override {
    ++opens;
    lastOpenReadOnly = readOnly;
    if (failOpen) return inject(engine::errc::kCannotOpen, "The file cannot be opened."), "";
    return pass(), in_->Open(path, options, readOnly);
  }
  bool ExecuteSql(const std::string &sql, ValueArray *result) override {
    ++executions;
    if (failExecutions != 0) {
      if (failExecutions > 0) --failExecutions;
      return inject(engine::errc::kGeneric, "The connection was lost."), false;
    }
    return pass(), in_->ExecuteSql(sql, result);
  }
  std::string GetName() override { return forgetName ? std::string() : in_->GetName(); }
  void Close() override {
    ++closes;
    in_->Close();
  }
  LastError GetLastError() override { return injected_.number ? injected_ : in_->GetLastError(); }
  bool HasError() override { return injected_.number || in_->HasError(); }

  bool IsConnected() override { return in_->IsConnected(); }
  bool IsAlive() override { return in_->IsAlive(); }
  int16_t IsUpdatable() override { return in_->IsUpdatable(); }
  bool CompactDatabase(const std::string &s, const std::string &d) override {
    return in_->CompactDatabase(s, d);
  }
  int32_t GetVersion() override { return in_->GetVersion(); }
  bool OpenTable(const std::string &t, const std::string &i) override { return pass(), in_->OpenTable(t, i); }
  bool MoveFirst(Record *r) override { return pass(), in_->MoveFirst(r); }
  bool Skip(int32_t n, Record *r) override { return pass(), in_->Skip(n, r); }
  bool GetRecord(Record *r) override { return pass(), in_->GetRecord(r); }
  bool MoveLast(Record *r) override { return pass(), in_->MoveLast(r); }
  bool CloseTable() override { return pass(), in_->CloseTable(); }
  bool CloseAllTables() override { return pass(), in_->CloseAllTables(); }
  bool RecordCount(int32_t *n) override { return pass(), in_->RecordCount(n); }
  std::string CurrentIndex() override { return in_->CurrentIndex(); }
  std::string CurrentTable() override { return in_->CurrentTable(); }
  bool SeekValue(const Value &k, Record *r) override { return pass(), in_->SeekValue(k, r); }
  bool SeekPoint2(double x, double y, Record *r) override { return pass(), in_->SeekPoint2(x, y, r); }
  bool SeekPoint3(double x, double y, double z, Record *r) override {
    return pass(), in_->SeekPoint3(x, y, z, r);
  }
  bool SeekValues(const std::array<Value, 10> &k, Record *r) override {
    return pass(), in_->SeekValues(k, r);
  }
  bool AppendRecord(const Record &r, bool keep, Record *s) override {
    return pass(), in_->AppendRecord(r, keep, s);
  }
  bool DeleteRecord() override { return pass(), in_->DeleteRecord(); }
  bool ReplaceRecord(const Record &r, Record *s) override { return pass(), in_->ReplaceRecord(r, s); }
  bool RunQuery(const std::string &n, const ValueArray &p, ValueArray *r) override {
    return pass(), in_->RunQuery(n, p, r);
  }
  bool CreateQuery(const std::string &n, const std::string &s) override {
    return pass(), in_->CreateQuery(n, s);
  }
  bool ExecuteCommand(const std::string &s, int32_t *n) override { return pass(), in_->ExecuteCommand(s, n); }

 private:
  void inject(long number, const char *description) { injected_ = {number, description}; }
  void pass() { injected_ = {}; }

  engine::EngineConnection in_;
  LastError injected_;
};

class StatementRunnerTest : public ModuleFixture {
 protected:
  StatementRunnerTest() {
    auto dir = std::filesystem::temp_directory_path() / ("vantry-runner-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
    path = (dir / "runner.db").wstring();
    std::filesystem::remove(path);
    EXPECT_EQ(lisp(L"(vt_create_db \"" + path + L"\")"), L"T");
  }
  ~StatementRunnerTest() override { std::filesystem::remove_all(std::filesystem::path(path).parent_path()); }

  // Connects in `mode` and puts a flaky engine, holding the real connection,
  // in the place of the current connection and of the document's entry.
  std::shared_ptr<FlakyEngine> connectFlaky(const std::wstring &mode = L"w") {
    lisp(L"(vt_close_db)");  // a fresh engine each time, never one wrapped twice
    EXPECT_EQ(lisp(L"(vt_connect \"" + path + L"\" \"" + mode + L"\")"), L"T");
    database::DatabaseContext &ctx = database::context();
    auto flaky = std::make_shared<FlakyEngine>(ctx.connection);
    ctx.entries.front().connection = flaky;
    database::makeCurrent(flaky, ctx.path, ctx.readOnly);
    return flaky;
  }
  std::wstring transcript() { return host::Session::get().transcript(); }
  void clearTranscript() { host::Session::get().clearTranscript(); }

  std::wstring path;
};

TEST_F(StatementRunnerTest, AFailureThatTheReopenCuresIsNeverSeen) {
  for (const wchar_t *call : {L"(vt_sql \"SELECT 7 AS x\")", L"(vt_sql-nil \"SELECT 7 AS x\")",
                              L"(vt_sql-error \"SELECT 7 AS x\")", L"(vt_sql \"SELECT 7 AS x\" 2)"}) {
    auto flaky = connectFlaky();
    flaky->failExecutions = 1;
    clearTranscript();
    EXPECT_EQ(lisp(call), L"(((\"x\" . 7)))") << call;
    EXPECT_EQ(flaky->executions, 2) << call;
    EXPECT_EQ(flaky->closes, 1) << call;
    EXPECT_EQ(flaky->opens, 1) << call;
    EXPECT_FALSE(flaky->lastOpenReadOnly) << call;
    EXPECT_EQ(transcript(), L"") << call;
    EXPECT_EQ(host::messageBoxCount(), 0) << call;
  }
  // The reopen keeps the mode the database was open in.
  auto flaky = connectFlaky(L"r");
  flaky->failExecutions = 1;
  EXPECT_EQ(lisp(L"(vt_sql \"SELECT 1 AS x\")"), L"(((\"x\" . 1)))");
  EXPECT_TRUE(flaky->lastOpenReadOnly);
}

TEST_F(StatementRunnerTest, ASecondFailureIsAnsweredByTheMode) {
  auto flaky = connectFlaky();
  flaky->failExecutions = -1;
  EXPECT_EQ(lisp(L"(vt_sql-nil \"SELECT 1\")"), L"nil");
  EXPECT_EQ(flaky->executions, 2);  // exactly one retry
  EXPECT_EQ(lisp(L"(vt_sql-error \"SELECT 1\")"), L"\"*ERROR*\"");
  EXPECT_EQ(lisp(L"(vt_sql \"SELECT 1\" 2)"), L"\"*ERROR*\"");
  EXPECT_EQ(lisp(L"(vt_sql \"SELECT 1\" 1.9)"), L"nil");  // a real mode is truncated: 1
  EXPECT_EQ(flaky->executions, 8);
  EXPECT_EQ(host::messageBoxCount(), 0);
  EXPECT_EQ(transcript().find(L"Query"), std::wstring::npos);
  // Any other mode asks; nothing queued closes the box, which answers No.
  clearTranscript();
  EXPECT_EQ(lisp(L"(vt_sql \"SELECT 1\" 7)"), L"nil");
  EXPECT_EQ(host::messageBoxCount(), 1);
  std::wstring shown = transcript();
  EXPECT_EQ(shown,
            L"[Orlec] Database connection error.\nClose and reopen AutoCAD.\n\nIf you are getting this error "
            L"frequently, press \"Yes\" to send an error report to Orlec Support.\n"
            L"  <Yes> <No>: No (no answer queued)\n");
  EXPECT_EQ(host::lastMessageBoxType(), UINT(MB_YESNO | MB_DEFBUTTON2 | MB_ICONERROR));
}

TEST_F(StatementRunnerTest, TheBoxBelongsToTheActiveWindowWhichIsActiveAgainAfterwards) {
  auto flaky = connectFlaky();
  flaky->failExecutions = -1;
  ASSERT_EQ(GetActiveWindow(), host::mainWindow());
  EXPECT_EQ(lisp(L"(host:queue-dialog \"No\") (vt_sql \"SELECT 1\")"), L"nil");
  EXPECT_EQ(host::lastMessageBoxOwner(), host::mainWindow());
  EXPECT_EQ(GetActiveWindow(), host::mainWindow());
}

TEST_F(StatementRunnerTest, YesPrintsTheLabelOfTheAttemptThatFailedAndFailsTheCall) {
  // Query 2: the database was reopened and the statement failed again.
  auto flaky = connectFlaky();
  flaky->failExecutions = -1;
  clearTranscript();
  EXPECT_EQ(lisp(L"(host:queue-dialog \"Yes\") (vt_sql \"SELECT 2\")").rfind(L"ERROR: ", 0), 0u);
  std::wstring shown = transcript();
  EXPECT_NE(shown.find(L"<Yes> <No>: Yes\n\nQuery 2: SELECT 2\nVantry Error: The connection was lost."),
            std::wstring::npos)
      << shown;
  EXPECT_EQ(lisp(L"(vt_lastError)"), L"\"(3000) The connection was lost.\"");
  // Query 1: no path to reopen from, so there is no second attempt.
  flaky = connectFlaky();
  flaky->failExecutions = -1;
  flaky->forgetName = true;
  database::makeCurrent(flaky, L"", 0);
  database::context().entries.front().path.clear();
  clearTranscript();
  EXPECT_EQ(lisp(L"(host:queue-dialog \"Yes\") (vt_sql \"SELECT 1\")").rfind(L"ERROR: ", 0), 0u);
  EXPECT_NE(transcript().find(L"Yes\n\nQuery 1: SELECT 1"), std::wstring::npos) << transcript();
  EXPECT_EQ(flaky->executions, 1);
  EXPECT_EQ(flaky->opens, 0);
}

TEST_F(StatementRunnerTest, AReopenThatFailsReportsTheErrorAndAnswersByModeWithoutABox) {
  // The failed reopen leaves the database closed, so each call gets a fresh one.
  struct Case {
    const wchar_t *call, *answer;
  } cases[] = {{L"(vt_sql-nil \"SELECT 1\")", L"nil"},
               {L"(vt_sql-error \"SELECT 1\")", L"\"*ERROR*\""},
               {L"(vt_sql \"SELECT 1\")", L"ERROR: "}};
  for (const Case &c : cases) {
    auto flaky = connectFlaky();
    flaky->failExecutions = -1;
    flaky->failOpen = true;
    clearTranscript();
    EXPECT_EQ(lisp(c.call).rfind(c.answer, 0), 0u) << c.call;
    EXPECT_NE(transcript().find(L"Vantry Error: The file cannot be opened."), std::wstring::npos) << c.call;
    EXPECT_EQ(flaky->executions, 1) << c.call;  // no second attempt after a failed reopen
    EXPECT_EQ(host::messageBoxCount(), 0) << c.call;
    EXPECT_EQ(lisp(L"(vt_lastError)"), L"\"(3051) The file cannot be opened.\"") << c.call;
  }
}

}  // namespace
}  // namespace vantry
