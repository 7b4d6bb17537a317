// The vantry runner as a person uses it: its output and its exit status.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

namespace fs = std::filesystem;

struct RunResult {
  int status;
  std::string out;
};

// Runs the runner with arguments (shell-quoted by the caller) and stdin
// closed; stderr joins stdout.
RunResult vantry(const std::string &args) {
  std::string cmd = std::string(VANTRY_BIN_DIR) + "/vantry " + args + " </dev/null 2>&1";
  RunResult r{-1, ""};
  FILE *p = popen(cmd.c_str(), "r");
  if (!p) return r;
  std::array<char, 4096> buf;
  size_t n;
  while ((n = fread(buf.data(), 1, buf.size(), p)) > 0) r.out.append(buf.data(), n);
  int st = pclose(p);
  r.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
  return r;
}

class Cli : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = fs::temp_directory_path() / ("vantry_cli_" + std::to_string(::getpid()) + "_" +
                                       ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(dir);
  }
  void TearDown() override { fs::remove_all(dir); }
  std::string write(const std::string &name, const std::string &text) {
    fs::path p = dir / name;
    std::ofstream(p) << text;
    return p.string();
  }
  fs::path dir;
};

TEST_F(Cli, EvaluatesAnExpression) {
  RunResult r = vantry("--no-module -e '(list 1 2.5 \"a\")'");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "(1 2.5 \"a\")\n");
}

TEST_F(Cli, RunsScriptsInOneSession) {
  std::string a = write("a.lsp", "(setq shared 41)\n");
  std::string b = write("b.lsp", "(princ (1+ shared))\n");
  RunResult r = vantry("--no-module run " + a + " " + b);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "42\n");
}

// A script that closes its drawing leaves the next script a new one, whose LISP starts afresh.
TEST_F(Cli, AScriptAfterTheDrawingWasClosedRunsInANewOne) {
  std::string a = write("a.lsp", "(setq shared 41) (host:close-document)\n");
  std::string b = write("b.lsp", "(princ (list shared (host:documents)))\n");
  RunResult r = vantry("--no-module run " + a + " " + b);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "(nil (Drawing2.dwg))\n");
  // With no drawing left at the end, what is asked of the current one is a clear error.
  for (const char *what : {"--step", "--save", "--png"}) {
    r = vantry(std::string("--no-module ") + what + " " + (dir / "out").string() + " run " + a);
    EXPECT_EQ(r.status, 1) << what;
    EXPECT_NE(r.out.find(std::string(what) + ": no drawing is open"), std::string::npos) << r.out;
  }
}

TEST_F(Cli, AnErrorEndsTheScriptWithStatusOne) {
  std::string s = write("e.lsp", "(princ \"before\")\n(car 5)\n(princ \"after\")\n");
  RunResult r = vantry("--no-module run " + s);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("before"), std::string::npos);
  EXPECT_NE(r.out.find("; error: bad argument type: consp 5"), std::string::npos);
  EXPECT_EQ(r.out.find("after"), std::string::npos);
}

TEST_F(Cli, ReaderErrorsNameTheFileAndLine) {
  std::string s = write("bad.lsp", "(setq a 1)\n\n(setq b \"unterminated)\n");
  RunResult r = vantry("--no-module run " + s);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("malformed string on input (" + s + ", line 3)"), std::string::npos) << r.out;

  s = write("paren.lsp", "(defun f ()\n  (+ 1 2)\n");
  r = vantry("--no-module run " + s);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("malformed list on input (" + s + ", line 1)"), std::string::npos) << r.out;
}

TEST_F(Cli, MissingFilesAndBadUsageAreClearErrors) {
  RunResult r = vantry("--no-module run " + (dir / "nope.lsp").string());
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.out.find("cannot read script"), std::string::npos);
  r = vantry("--bogus");
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.out.find("usage:"), std::string::npos);
  r = vantry("--no-module --module no_such_module.arx -e 1");
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.out.find("cannot load module no_such_module.arx"), std::string::npos);
}

TEST_F(Cli, StepExportNeedsTheSolidModule) {
  std::string s = write("empty.lsp", "(princ)\n");
  RunResult r = vantry("--no-module --step " + (dir / "out.step").string() + " run " + s);
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.out.find("--step needs the solid module"), std::string::npos) << r.out;
  // With the modules but no duct solid in the drawing, nothing is written.
  r = vantry("--step " + (dir / "out.step").string() + " run " + s);
  EXPECT_NE(r.status, 0) << r.out;
  EXPECT_FALSE(fs::exists(dir / "out.step"));
}

// The width and height of a PNG file from its header; 0 x 0 when it is not one.
std::pair<int, int> pngSize(const fs::path &file) {
  std::ifstream in(file, std::ios::binary);
  unsigned char h[24] = {};
  if (!in.read(reinterpret_cast<char *>(h), sizeof h) || h[1] != 'P' || h[2] != 'N' || h[3] != 'G')
    return {0, 0};
  auto be = [&](int at) { return (h[at] << 24) | (h[at + 1] << 16) | (h[at + 2] << 8) | h[at + 3]; };
  return {be(16), be(20)};
}

TEST_F(Cli, PicturesOfTheDrawingAfterTheScriptsAndOfASavedOne) {
  std::string s = write("draw.lsp", "(entmake '((0 . \"LINE\") (10 0.0 0.0 0.0) (11 100.0 50.0 0.0)))\n");
  fs::path dxf = dir / "drawn.dxf", after = dir / "after.png", again = dir / "again.png";
  RunResult r = vantry("--no-module --save " + dxf.string() + " --png " + after.string() + " run " + s);
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(pngSize(after), std::make_pair(1600, 800));  // plan and isometric side by side
  r = vantry("--no-module --view plan render " + dxf.string() + " " + again.string());
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(pngSize(again), std::make_pair(800, 800));  // one view, square

  // A drawing that cannot be read, a picture that cannot be written, and bad
  // usage are errors that say what went wrong; no picture is left behind.
  // (A damaged drawing opens with what can be read; this is no drawing at all.)
  std::string broken = write("broken.dxf", "0\nLINE\n10\nnot a number\n");
  r = vantry("--no-module render " + broken + " " + (dir / "x.png").string());
  EXPECT_EQ(r.status, 2) << r.out;
  EXPECT_NE(r.out.find("cannot open the drawing"), std::string::npos) << r.out;
  EXPECT_FALSE(fs::exists(dir / "x.png"));
  r = vantry("--no-module render " + dxf.string() + " " + (dir / "no" / "such" / "dir.png").string());
  EXPECT_EQ(r.status, 1) << r.out;
  EXPECT_NE(r.out.find("cannot write"), std::string::npos) << r.out;
  EXPECT_EQ(vantry("--no-module render " + dxf.string()).status, 2);
  EXPECT_EQ(vantry("--no-module --view sideways render " + dxf.string() + " y.png").status, 2);
}

TEST_F(Cli, RunawayRecursionEndsInALispError) {
  std::string s = write("deep.lsp", "(defun down (n) (down (1+ n)))\n(down 0)\n");
  RunResult r = vantry("--no-module run " + s);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("; error: internal stack limit reached (simulated)"), std::string::npos) << r.out;
}

TEST_F(Cli, InputFileAnswersThePerson) {
  std::string in = write("answers.lsp", "(1 2) \"Hello\" nil cancel\n");
  std::string s =
      write("ask.lsp",
            "(print (getpoint \"\\nPoint: \"))\n"
            "(print (getstring \"\\nName: \"))\n"
            "(print (getstring \"\\nEmpty: \"))\n"
            "(print (vl-catch-all-error-message (vl-catch-all-apply 'getint '(\"\\nInt: \"))))\n"
            "(print (vl-catch-all-error-message (vl-catch-all-apply 'getint '(\"\\nMore: \"))))\n");
  RunResult r = vantry("--no-module --input " + in + " run " + s);
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_NE(r.out.find("(1.0 2.0 0.0)"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("\"Hello\""), std::string::npos);
  EXPECT_NE(r.out.find("\"\""), std::string::npos);
  EXPECT_NE(r.out.find("\"Function cancelled\""), std::string::npos);
  // Nothing more queued: the host answers as a cancel and says so instead of waiting.
  size_t last = r.out.rfind("\"Function cancelled\"");
  EXPECT_NE(last, r.out.find("\"Function cancelled\""));
}

}  // namespace

namespace {

// Starts the runner on a script, waits until it has printed `ready`, sends
// it an interrupt and answers what it printed in all and its exit status
// (-1 when it was still running ten seconds later and had to be killed).
RunResult interrupted(const std::string &script, const std::string &ready) {
  int out[2];
  if (pipe(out) != 0) return {-1, ""};
  pid_t child = fork();
  if (child == 0) {
    dup2(out[1], 1);
    dup2(out[1], 2);
    close(out[0]);
    std::string bin = std::string(VANTRY_BIN_DIR) + "/vantry";
    execl(bin.c_str(), bin.c_str(), "--no-module", "run", script.c_str(), static_cast<char *>(nullptr));
    _exit(127);
  }
  close(out[1]);
  RunResult r{-1, ""};
  char buf[4096];
  ssize_t n;
  while (r.out.find(ready) == std::string::npos && (n = read(out[0], buf, sizeof buf)) > 0) r.out.append(buf, n);
  kill(child, SIGINT);
  int status = 0;
  for (int i = 0; i < 1000 && waitpid(child, &status, WNOHANG) == 0; ++i) usleep(10000);
  if (waitpid(child, &status, WNOHANG) == 0) {
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
  } else if (WIFEXITED(status)) {
    r.status = WEXITSTATUS(status);
  }
  while ((n = read(out[0], buf, sizeof buf)) > 0) r.out.append(buf, n);
  close(out[0]);
  return r;
}

}  // namespace

// An interrupt is the person's Esc: a running loop stops at its next call
// with "*Cancel*", *error* sees "Function cancelled", the script's later
// forms do not run, and the runner ends as after any error.
TEST_F(Cli, AnInterruptCancelsARunningLoop) {
  std::string loop = write("loop.lsp",
                           "(defun *error* (m) (princ (strcat \"\\nhandled: \" m)))\n"
                           "(princ \"looping\\n\") (while T)\n"
                           "(princ \"after\")\n");
  RunResult r = interrupted(loop, "looping");
  EXPECT_EQ(r.status, 1) << r.out;
  EXPECT_NE(r.out.find("*Cancel*\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("handled: Function cancelled"), std::string::npos) << r.out;
  EXPECT_EQ(r.out.find("after"), std::string::npos) << r.out;
}
