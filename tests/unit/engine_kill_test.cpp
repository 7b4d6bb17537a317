// Writes from LISP survive the process being killed the moment they return.
//
// The runner `vantry` runs a script that makes one write after another with
// the module's functions and prints a mark after each call returns. After the
// k-th write the script blocks (it opens a pipe that nobody writes to), the
// test kills the process with SIGKILL (no close, no destructor, no
// checkpoint), and raw SQLite then reads the file: the first k writes must all
// be there and the (k+1)-th must not have started. Run once for every k, so
// each kind of write is the last one before a kill once.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <string>
#include <vector>

#include "engine_testing.h"

namespace vantry::engine {
namespace {

using testing::rawScalar;
using testing::rawSql;
using testing::TempDir;

// The writes, in the order the script makes them, each with a raw SQLite
// query that answers "1" once its change is in the file.
struct Write {
  const char *lisp;
  const char *done;
};
const Write kWrites[] = {
    {"(vt_append '((\"Tag\" . \"appended\") (\"Width\" . 111) (\"Lined\" . T)))",
     "SELECT count(*) FROM Ducts WHERE Tag = 'appended' AND Lined = -1"},
    {"(vt_replace '((\"Width\" . 222)))",
     "SELECT count(*) FROM Ducts WHERE Tag = 'appended' AND Width = 222"},
    {"(progn (vt_top) (vt_delete))", "SELECT count(*) = 0 FROM Ducts WHERE Tag = 'a'"},
    {"(vt_command \"UPDATE Ducts SET Width = 333 WHERE Tag = 'b'\")",
     "SELECT count(*) FROM Ducts WHERE Tag = 'b' AND Width = 333"},
    {"(vt_sql \"INSERT INTO Ducts (Tag, Width) VALUES ('by sql', 444)\")",
     "SELECT count(*) FROM Ducts WHERE Tag = 'by sql'"},
    {"(vt_create_query \"Wide\" \"SELECT Tag FROM Ducts WHERE Width > 300\")",
     "SELECT count(*) FROM sqlite_master WHERE name = '_vantry_queries' AND "
     "(SELECT count(*) FROM _vantry_queries WHERE name = 'Wide') = 1"},
    {"(vt_append_withindex 20 '((\"Tag\" . \"twenty\")))",
     "SELECT count(*) = 1 FROM Ducts WHERE ID >= 6 AND (SELECT Tag FROM Ducts WHERE ID = 20) = 'twenty'"},
    // Schema changes; each check holds from its change on, whatever follows.
    {"(vt_create_table \"Parts\" '((\"ID\" \"Counter\") (\"Name\" \"Text(20)\")))",
     "SELECT count(*) FROM sqlite_master WHERE type = 'table' AND name IN ('Parts', 'Pieces')"},
    {"(vt_modify_table \"Parts\" \"ALTER\" '(\"Name\" \"Memo\"))",
     "SELECT count(*) FROM sqlite_master WHERE name IN ('Parts', 'Pieces') AND sql LIKE '%LONGTEXT%'"},
    {"(vt_create_index \"Parts\" \"ByName\" \"Name\" T)", "SELECT count(*) FROM sqlite_master WHERE name = 'ByName'"},
    {"(vt_rename_table \"Parts\" \"Pieces\")", "SELECT count(*) FROM sqlite_master WHERE name = 'Pieces'"},
};
constexpr int kWriteCount = sizeof kWrites / sizeof kWrites[0];

void replace(std::string &text, const std::string &what, const std::string &with) {
  text.replace(text.find(what), what.size(), with);
}

class KillAfterWriteTest : public ::testing::TestWithParam<int> {
 protected:
  void SetUp() override {
    db = dir / "kill.db";
    rawSql(db,
           "CREATE TABLE Ducts(ID INTEGER PRIMARY KEY AUTOINCREMENT, Tag TEXT, Width INTEGER, Lined BIT);"
           "INSERT INTO Ducts(Tag, Width) VALUES ('a', 100), ('b', 200), ('c', 300);");
    block = dir / "block";
    ASSERT_EQ(mkfifo(block.c_str(), 0600), 0);
    script = dir / "writes.lsp";
    // After the k-th write the script says so and opens the pipe, which
    // blocks it until the kill.
    std::string text = R"((defun after (n r)
  (princ (strcat "\n@wrote " (itoa n) " " (vl-prin1-to-string r) "\n"))
  (if (= n @KILL_AT@) (progn (princ "\n@returned\n") (open "@BLOCK_PATH@" "r"))))
(vt_connect "@DB_PATH@")
(vt_table "Ducts")
)";
    replace(text, "@KILL_AT@", std::to_string(GetParam()));
    replace(text, "@BLOCK_PATH@", block);
    replace(text, "@DB_PATH@", db);
    for (int i = 0; i < kWriteCount; ++i)
      text += "(after " + std::to_string(i + 1) + " " + kWrites[i].lisp + ")\n";
    std::ofstream(script) << text;
  }

  // Runs the script until it says the k-th write returned, then kills it.
  // Answers what it printed; `killed` tells whether it was still running.
  std::string runAndKill(bool *killed) {
    int out[2];
    if (pipe(out) != 0) return "<no pipe>";
    pid_t child = fork();
    if (child == 0) {
      dup2(out[1], 1);
      dup2(out[1], 2);
      close(out[0]);
      close(out[1]);
      std::string bin = std::string(VANTRY_BIN_DIR) + "/vantry";
      execl(bin.c_str(), bin.c_str(), "run", script.c_str(), static_cast<char *>(nullptr));
      _exit(127);
    }
    close(out[1]);
    std::string text;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (text.find("@returned") == std::string::npos && std::chrono::steady_clock::now() < deadline) {
      pollfd p{out[0], POLLIN, 0};
      if (poll(&p, 1, 1000) <= 0) continue;
      char buf[4096];
      ssize_t n = read(out[0], buf, sizeof buf);
      if (n <= 0) break;  // the script ended or failed before its mark
      text.append(buf, static_cast<size_t>(n));
    }
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    close(out[0]);
    *killed =
        WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL && text.find("@returned") != std::string::npos;
    return text;
  }

  TempDir dir;
  std::string db, block, script;
};

TEST_P(KillAfterWriteTest, EveryWriteThatReturnedIsInTheFile) {
  int k = GetParam();
  bool killed = false;
  std::string printed = runAndKill(&killed);
  ASSERT_TRUE(killed) << "the script did not reach write " << k << ":\n" << printed;
  for (int i = 0; i < kWriteCount; ++i) {
    std::string expected = i < k ? "1" : "0", got = rawScalar(db, kWrites[i].done);
    // Before the first stored query its table does not exist, so the query fails.
    if (got == "<error>" && i >= k) got = "0";
    EXPECT_EQ(got, expected) << "write " << i + 1 << " " << kWrites[i].lisp
                             << (i < k ? " was lost" : " ran after the kill point") << "\n"
                             << printed;
  }
}

INSTANTIATE_TEST_SUITE_P(AfterEachWrite, KillAfterWriteTest, ::testing::Range(1, kWriteCount + 1));

}  // namespace
}  // namespace vantry::engine
