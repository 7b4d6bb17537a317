// Importing an Access file into SQLite (include/engine/access.h).
//
// The parent forks a child that opens the Access file, writes the whole
// SQLite database into a temporary file beside the target, and tells the
// parent how far it got through a pipe, one line per message:
//
//   P <done> <total> <table>      progress
//   N <text>                      a note: something not carried over
//   D <tables> <rows> <indexes> <relations> <queries>   finished
//   E <number> <text>             failed
//
// The child's standard streams go to /dev/null (the library writes warnings
// there). The parent renames the temporary file over the target only after
// the child said "D" and exited cleanly.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <set>

#include "common/files.h"
#include "engine/access.h"
#include "engine/engine.h"
#include "writer.h"

namespace vantry::engine::access {

namespace {

constexpr long kEncrypted = 3031;  // Access's "Not a valid password."
// How long the child may go without news before it is taken for hung
// ($VANTRY_ACCESS_SILENCE_SECONDS, for tests; a minute otherwise).
int silenceSeconds() {
  const char *s = std::getenv("VANTRY_ACCESS_SILENCE_SECONDS");
  int n = s ? std::atoi(s) : 0;
  return n > 0 ? n : 60;
}

bool headerSaysAccess(const std::string &path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  char h[19] = {};
  bool yes = ::pread(fd, h, sizeof h, 0) == ssize_t(sizeof h) &&
             (std::memcmp(h + 4, "Standard Jet DB", 15) == 0 || std::memcmp(h + 4, "Standard ACE DB", 15) == 0);
  ::close(fd);
  return yes;
}

void writeAll(int fd, const std::string &s) {
  const char *p = s.data();
  size_t n = s.size();
  while (n > 0) {
    ssize_t w = ::write(fd, p, n);
    if (w < 0 && errno == EINTR) continue;
    if (w <= 0) return;
    p += w;
    n -= size_t(w);
  }
}

std::string oneLine(std::string s) {
  for (char &c : s)
    if (c == '\n' || c == '\r') c = ' ';
  return s;
}

// The child's whole life: read, write, report, exit.
[[noreturn]] void child(const std::string &accessPath, const std::string &temp, int out) {
  int null = ::open("/dev/null", O_RDWR);
  if (null >= 0) {
    ::dup2(null, 0);
    ::dup2(null, 1);
    ::dup2(null, 2);
  }
  // Faults for the tests of what the parent does when the reader crashes or hangs.
  if (const char *fault = std::getenv("VANTRY_ACCESS_FAULT")) {
    if (std::strcmp(fault, "crash") == 0) {
      // Die by the signal itself, as an unguarded reader would, even where a
      // sanitizer has put its own handler in the way.
      ::signal(SIGSEGV, SIG_DFL);
      ::raise(SIGSEGV);
    }
    if (std::strcmp(fault, "hang") == 0)
      for (;;) ::pause();
  }
  WriterCallbacks cb;
  cb.progress = [&](size_t done, size_t total, const std::string &table) {
    writeAll(out, "P " + std::to_string(done) + " " + std::to_string(total) + " " + oneLine(table) + "\n");
  };
  cb.note = [&](const std::string &text) { writeAll(out, "N " + oneLine(text) + "\n"); };
  ImportReport r = writeDatabase(accessPath, temp, cb);
  if (r.ok)
    writeAll(out, "D " + std::to_string(r.tables) + " " + std::to_string(r.rows) + " " + std::to_string(r.indexes) +
                      " " + std::to_string(r.relations) + " " + std::to_string(r.queries) + "\n");
  else
    writeAll(out, "E " + std::to_string(r.number) + " " + oneLine(r.message) + "\n");
  ::_exit(r.ok ? 0 : 1);
}

// Runs the child and follows it. *report gets the outcome.
void runChild(const std::string &accessPath, const std::string &temp, const Progress &progress,
              ImportReport *report) {
  std::string name = accessPath;
  auto damaged = [&](const std::string &why) {
    report->ok = false;
    report->number = errc::kCorrupt;
    report->message = "The Access database '" + name + "' is damaged and cannot be read: " + why + ".";
  };
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) {
    report->number = errc::kGeneric;
    report->message = std::string("Cannot start reading the Access database: ") + std::strerror(errno) + ".";
    return;
  }
  std::fflush(nullptr);
  pid_t pid = ::fork();
  if (pid < 0) {
    ::close(fds[0]);
    ::close(fds[1]);
    report->number = errc::kGeneric;
    report->message = std::string("Cannot start reading the Access database: ") + std::strerror(errno) + ".";
    return;
  }
  if (pid == 0) {
    ::close(fds[0]);
    child(accessPath, temp, fds[1]);
  }
  ::close(fds[1]);
  std::string pending, last;
  bool done = false, silent = false;
  for (;;) {
    pollfd p{fds[0], POLLIN, 0};
    int rc = ::poll(&p, 1, silenceSeconds() * 1000);
    if (rc < 0 && errno == EINTR) continue;
    if (rc == 0) {
      silent = true;
      ::kill(pid, SIGKILL);
      break;
    }
    char buf[4096];
    ssize_t n = ::read(fds[0], buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    pending.append(buf, size_t(n));
    for (size_t eol; (eol = pending.find('\n')) != std::string::npos; pending.erase(0, eol + 1)) {
      std::string line = pending.substr(0, eol);
      if (line.size() < 2) continue;
      std::string body = line.substr(2);
      switch (line[0]) {
        case 'P': {
          size_t done1 = 0, total = 0;
          int used = 0;
          if (std::sscanf(body.c_str(), "%zu %zu %n", &done1, &total, &used) >= 2 && progress)
            progress(done1, total, body.substr(size_t(used)));
          break;
        }
        case 'N': report->notes += body + "\n"; break;
        case 'D':
          std::sscanf(body.c_str(), "%zu %zu %zu %zu %zu", &report->tables, &report->rows, &report->indexes,
                      &report->relations, &report->queries);
          done = true;
          break;
        case 'E': {
          char *end = nullptr;
          report->number = std::strtol(body.c_str(), &end, 10);
          report->message = end && *end == ' ' ? end + 1 : body;
          break;
        }
        default: break;
      }
    }
  }
  ::close(fds[0]);
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (silent) return damaged("reading it stopped making progress");
  if (WIFSIGNALED(status)) return damaged("reading it failed (signal " + std::to_string(WTERMSIG(status)) + ")");
  if (done && WIFEXITED(status) && WEXITSTATUS(status) == 0) {
    report->ok = true;
    return;
  }
  if (report->message.empty()) damaged("reading it ended early");
}

}  // namespace

bool isAccessFile(const std::string &path) { return headerSaysAccess(path); }

ImportReport importFile(const std::string &accessPath, const std::string &out, const Progress &progress) {
  ImportReport report;
  struct stat st {};
  if (::stat(accessPath.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) {
    report.number = errc::kCouldNotFindFile;
    report.message = "Could not find file '" + accessPath + "'.";
    return report;
  }
  std::string error;
  bool written = files::replaceFile(
      out,
      [&](const std::string &temp) {
        runChild(accessPath, temp, progress, &report);
        return report.ok;
      },
      &error);
  if (!written && report.ok) {
    report.ok = false;
    report.number = errc::kCannotOpen;
    report.message = "Cannot write '" + out + "': " + error + ".";
  }
  return report;
}

}  // namespace vantry::engine::access
