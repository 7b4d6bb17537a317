// The person's Esc during a long database call: the call stops at its next
// safe point, the LISP that made it is cancelled ("*Cancel*", then "Function
// cancelled"), and the database is as it was before the call (what the call
// had begun is rolled back). The interrupt comes from another thread while
// the call runs, as the runner's SIGINT handler sends it.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include "database/context.h"
#include "lisp/lisp.h"
#include "module_fixture.h"
#include "session/session.h"

namespace vantry {
namespace {

class InterruptTest : public ModuleFixture {
 protected:
  InterruptTest() {
    dir = std::filesystem::temp_directory_path() / ("vantry-interrupt-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
    path = (dir / "long.db").wstring();
    std::filesystem::remove(path);
    EXPECT_EQ(lisp(L"(vt_create_db \"" + path + L"\")"), L"T");
    EXPECT_EQ(lisp(L"(vt_connect \"" + path + L"\")"), L"T");
    EXPECT_EQ(lisp(L"(vt_command \"CREATE TABLE Parts (ID COUNTER, Tag TEXT(20))\")"), L"0");
    EXPECT_EQ(lisp(L"(vt_sql \"INSERT INTO Parts (Tag) VALUES ('kept')\")"), L"(1)");
    lisp::takeInterrupt();
  }
  ~InterruptTest() override {
    lisp::takeInterrupt();
    std::filesystem::remove_all(dir);
  }

  // Runs `text` while another thread sends the interrupt after `delay`;
  // answers what lisp() answers and the transcript it printed.
  std::wstring interrupted(const std::wstring &text, std::wstring *printed,
                           std::chrono::milliseconds delay = std::chrono::milliseconds(300)) {
    std::atomic<bool> done{false};
    std::thread esc([&] {
      auto until = std::chrono::steady_clock::now() + delay;
      while (!done && std::chrono::steady_clock::now() < until)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
      if (!done) lisp::requestInterrupt();
    });
    host::Session::get().clearTranscript();
    std::wstring out = lisp(text);
    done = true;
    esc.join();
    *printed = host::Session::get().transcript();
    return out;
  }

  std::filesystem::path dir;
  std::wstring path;
};

TEST_F(InterruptTest, EscStopsALongStatementAndItsChangesAreRolledBack) {
  std::wstring printed;
  // Millions of rows inserted by one statement: far longer than the delay.
  std::wstring out = interrupted(
      L"(vt_sql \"INSERT INTO Parts (Tag) SELECT 'x' FROM (WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL "
      L"SELECT i + 1 FROM n WHERE i < 20000000) SELECT i FROM n)\")",
      &printed);
  EXPECT_EQ(out, L"ERROR: Function cancelled");
  EXPECT_NE(printed.find(L"*Cancel*"), std::wstring::npos) << printed;
  EXPECT_EQ(printed.find(L"connection"), std::wstring::npos) << printed;  // no reopen, no box
  EXPECT_EQ(lisp(L"(vt_lastError)"), L"\"(3059) Operation canceled by user.\"");
  EXPECT_EQ(lisp(L"(vt_sql \"SELECT count(*) AS n FROM Parts\")"), L"(((\"n\" . 1)))");
}

TEST_F(InterruptTest, EscStopsALongFetch) {
  std::wstring printed;
  std::wstring out = interrupted(
      L"(vt_sql \"SELECT count(*) FROM (WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n "
      L"WHERE i < 2000000000) SELECT i FROM n)\")",
      &printed);
  EXPECT_EQ(out, L"ERROR: Function cancelled");
  EXPECT_NE(printed.find(L"*Cancel*"), std::wstring::npos) << printed;
}

TEST_F(InterruptTest, EscStopsACounterClimbAndLeavesTheTableAsItWas) {
  std::wstring printed;
  EXPECT_EQ(lisp(L"(vt_table \"Parts\")"), L"\"Parts\"");
  // A climb of two billion appends and deletes: hours without the interrupt.
  std::wstring out = interrupted(L"(vt_append_withindex 2000000000 '((\"Tag\" . \"far\")))", &printed);
  EXPECT_EQ(out, L"ERROR: Function cancelled");
  EXPECT_NE(printed.find(L"*Cancel*"), std::wstring::npos) << printed;
  EXPECT_EQ(lisp(L"(vt_sql \"SELECT Tag FROM Parts\")"), L"(((\"Tag\" . \"kept\")))");
  // The session goes on: the next call works and is not cancelled.
  EXPECT_EQ(lisp(L"(vt_sql \"SELECT count(*) AS n FROM Parts\")"), L"(((\"n\" . 1)))");
}

}  // namespace
}  // namespace vantry
