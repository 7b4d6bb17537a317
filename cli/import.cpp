// `vantry import` (import.h).
#include "import.h"

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>

#include "engine/access.h"

namespace vantry::cli {

namespace {

bool isServerUrl(const std::string &s) {
  return s.rfind("postgresql://", 0) == 0 || s.rfind("postgres://", 0) == 0;
}

// A URL as it may be shown: without the password.
std::string shown(const std::string &url) {
  size_t scheme = url.find("://"), at = url.find('@');
  if (scheme == std::string::npos || at == std::string::npos) return url;
  size_t colon = url.find(':', scheme + 3);
  if (colon == std::string::npos || colon > at) return url;
  return url.substr(0, colon) + url.substr(at);
}

}  // namespace

int importAccess(const std::string &accessPath, const std::string &out) {
  struct stat st {};
  bool server = isServerUrl(out);
  if (!server && ::stat(out.c_str(), &st) == 0) {
    std::fprintf(stderr, "vantry import: '%s' exists already; nothing was written\n", out.c_str());
    return 2;
  }
  bool terminal = ::isatty(2) != 0;
  auto last = std::chrono::steady_clock::now();
  bool drawn = false;
  auto progress = [&](size_t done, size_t total, const std::string &table) {
    if (!terminal) return;
    auto now = std::chrono::steady_clock::now();
    if (drawn && now - last < std::chrono::milliseconds(100) && done < total) return;
    last = now;
    drawn = true;
    constexpr int kWidth = 30;
    int filled = total ? int(double(done) / double(total) * kWidth) : kWidth;
    if (filled > kWidth) filled = kWidth;
    std::string bar(size_t(filled), '#');
    bar.append(size_t(kWidth - filled), '.');
    std::fprintf(stderr, "\r[%s] %zu/%zu rows  %-24.24s", bar.c_str(), done, total, table.c_str());
    std::fflush(stderr);
  };
  engine::access::ImportReport r = server ? engine::access::importFileToServer(accessPath, out, progress)
                                          : engine::access::importFile(accessPath, out, progress);
  if (drawn) std::fprintf(stderr, "\n");
  if (!r.ok) {
    std::fprintf(stderr, "vantry import: (%ld) %s\n", r.number, r.message.c_str());
    return 1;
  }
  std::printf("imported %zu tables, %zu rows, %zu indexes, %zu relations, %zu stored queries into %s\n", r.tables,
              r.rows, r.indexes, r.relations, r.queries, shown(out).c_str());
  if (!r.notes.empty()) std::printf("not carried over:\n%s", r.notes.c_str());
  return 0;
}

}  // namespace vantry::cli
