// The SQLite copies the engine answers from when it opens an Access file
// (include/engine/access.h). A copy is named by the Access file's absolute
// path (its file name and a hash of the path) and has a stamp beside it,
// NAME.source, holding the size and modification time of the Access file it
// was made from; a copy whose stamp does not match the file now is remade.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "common/files.h"
#include "engine/access.h"
#include "engine/engine.h"

namespace vantry::engine::access {

namespace {

bool makeDirs(const std::string &dir) {
  if (dir.empty()) return false;
  struct stat st {};
  if (::stat(dir.c_str(), &st) == 0) return S_ISDIR(st.st_mode) && ::access(dir.c_str(), W_OK) == 0;
  size_t slash = dir.find_last_of('/');
  if (slash != std::string::npos && slash > 0 && !makeDirs(dir.substr(0, slash))) return false;
  return ::mkdir(dir.c_str(), 0700) == 0 || errno == EEXIST;
}

std::string cacheDir() {
  if (const char *d = std::getenv("VANTRY_ACCESS_CACHE"); d && *d) return d;
  if (const char *d = std::getenv("XDG_CACHE_HOME"); d && *d) return std::string(d) + "/vantry/access";
  if (const char *d = std::getenv("HOME"); d && *d) return std::string(d) + "/.cache/vantry/access";
  return std::string();
}

std::string stampOf(const struct stat &st) {
  std::ostringstream s;
  s << st.st_size << " " << st.st_mtim.tv_sec << "." << st.st_mtim.tv_nsec << " " << st.st_ino;
  return s.str();
}

uint64_t fnv1a(const std::string &s) {
  uint64_t h = 1469598103934665603ull;
  for (unsigned char c : s) {
    h ^= c;
    h *= 1099511628211ull;
  }
  return h;
}

}  // namespace

ImportReport cachedCopy(const std::string &accessPath, std::string *copyPath) {
  ImportReport report;
  char *real = ::realpath(accessPath.c_str(), nullptr);
  std::string absolute = real ? real : accessPath;
  std::free(real);
  struct stat st {};
  if (::stat(absolute.c_str(), &st) != 0) {
    report.number = errc::kCouldNotFindFile;
    report.message = "Could not find file '" + accessPath + "'.";
    return report;
  }
  size_t slash = absolute.find_last_of('/');
  std::string base = slash == std::string::npos ? absolute : absolute.substr(slash + 1);
  std::string dir = cacheDir();
  if (!makeDirs(dir)) dir = slash == std::string::npos ? "." : absolute.substr(0, slash);
  char hash[20];
  std::snprintf(hash, sizeof hash, "%016llx", static_cast<unsigned long long>(fnv1a(absolute)));
  std::string copy = dir + "/" + base + "." + hash + ".vantry.db";
  std::string stampFile = copy + ".source";
  std::string want = stampOf(st);

  std::string have;
  {
    std::ifstream in(stampFile);
    std::getline(in, have);
  }
  struct stat cs {};
  if (have == want && ::stat(copy.c_str(), &cs) == 0) {
    *copyPath = copy;
    report.ok = true;
    return report;
  }
  report = importFile(absolute, copy);
  if (!report.ok) return report;
  files::replaceFile(stampFile, [&](const std::string &temp) {
    std::ofstream out(temp);
    out << want << "\n";
    return bool(out.flush());
  });
  *copyPath = copy;
  return report;
}

}  // namespace vantry::engine::access
