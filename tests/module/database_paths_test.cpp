// Database paths kept for reopening: a relative path is made absolute when
// the database is connected, so a reopen after the working directory changed
// opens the same file, not one of the same name elsewhere.
#include <unistd.h>

#include <filesystem>

#include "module_fixture.h"

namespace vantry {
namespace {

namespace fs = std::filesystem;

class DatabasePathTest : public ModuleFixture {
 protected:
  DatabasePathTest() : home_(fs::current_path()) {
    char tmpl[] = "/tmp/vantry-paths-XXXXXX";
    root_ = mkdtemp(tmpl);
    fs::create_directory(root_ / "a");
    fs::create_directory(root_ / "b");
  }
  ~DatabasePathTest() override {
    fs::current_path(home_);
    std::error_code ec;
    fs::remove_all(root_, ec);
  }
  // Makes rel.db in `dir` with one row tagged `tag`, and leaves it connected.
  void makeIn(const char *dir, const wchar_t *tag) {
    fs::current_path(root_ / dir);
    ASSERT_EQ(lisp(L"(vt_create_db \"rel.db\")"), L"T");
    ASSERT_EQ(lisp(L"(vt_connect \"rel.db\")"), L"T");
    lisp(L"(vt_sql \"CREATE TABLE t (tag TEXT)\" 1)");
    lisp(std::wstring(L"(vt_sql \"INSERT INTO t VALUES ('") + tag + L"')\" 1)");
  }

  fs::path home_, root_;
};

TEST_F(DatabasePathTest, ARelativePathReopensTheSameFileAfterTheWorkingDirectoryChanged) {
  makeIn("b", L"B");
  lisp(L"(vt_close_db)");
  makeIn("a", L"A");
  fs::current_path(root_ / "b");
  std::wstring expected = L"\"" + (root_ / "a" / "rel.db").wstring() + L"\"";
  EXPECT_EQ(lisp(L"(vt_mdb)"), expected);
  EXPECT_EQ(lisp(L"(vt_sql \"SELECT tag FROM t\")"), L"(((\"tag\" . \"A\")))");
  // A failed statement reopens the database from its path and tries again.
  EXPECT_EQ(lisp(L"(vt_sql \"SELECT nothing FROM t\" 1)"), L"nil");
  EXPECT_EQ(lisp(L"(vt_sql \"SELECT tag FROM t\")"), L"(((\"tag\" . \"A\")))");
  EXPECT_EQ(lisp(L"(vt_connect \"../a/rel.db\")"), L"T");  // the same file: nothing reopened
  EXPECT_EQ(lisp(L"(vt_mdb)"), expected);
  lisp(L"(vt_close_db)");
}

}  // namespace
}  // namespace vantry
