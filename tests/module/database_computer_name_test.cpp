// vt_compact's message box names the computer when the name fits a buffer of
// 15 characters with its terminator, as the platform's call fills it: a name
// of 14 characters is shown, one of 15 is not (the box is then not shown).
// The name is set in a UTS namespace of a child process; where one cannot be
// made, the test is skipped.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "module_fixture.h"
#include "session/session.h"

namespace vantry {
namespace {

class ComputerNameTest : public ModuleFixture {};

TEST_F(ComputerNameTest, TheBoxNamesAComputerWhoseNameFitsFifteenCharactersWithItsEnd) {
  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    if (::unshare(CLONE_NEWUTS) != 0) ::_exit(77);
    auto boxFor = [&](const std::string &name) {
      if (::sethostname(name.c_str(), name.size()) != 0) ::_exit(77);
      host::Session::get().clearTranscript();
      lisp(L"(vt_compact \"/nonexistent/a.db\" \"/nonexistent/b.db\")");
      return host::Session::get().transcript();
    };
    if (boxFor("abcdefghijklmn").find(L"(Your computer name is ABCDEFGHIJKLMN)") == std::wstring::npos) ::_exit(1);
    if (boxFor("abcdefghijklmno").find(L"Your computer name") != std::wstring::npos) ::_exit(2);
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "cannot set the computer's name here (no UTS namespace)";
  EXPECT_EQ(WEXITSTATUS(status), 0) << "1: a 14-character name not shown; 2: a 15-character name shown";
}

}  // namespace
}  // namespace vantry
