#include "common/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "common/text.h"

namespace vantry::files {

namespace {

// fsync of a file or directory by name; a directory that cannot be opened
// for reading is not an error of the write.
bool sync(const std::string &path, bool directory) {
  int fd = ::open(path.c_str(), (directory ? O_DIRECTORY : 0) | O_RDONLY | O_CLOEXEC);
  if (fd < 0) return directory;
  bool ok = ::fsync(fd) == 0 || directory;
  int saved = errno;
  ::close(fd);
  errno = saved;
  return ok;
}

std::string directoryOf(const std::string &path) {
  size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

bool replaceFile(const std::string &target, const std::function<bool(const std::string &temp)> &write,
                 std::string *error) {
  std::string temp = target + ".tmp" + std::to_string(::getpid());
  ::unlink(temp.c_str());
  auto fail = [&](const char *what, bool say) {
    int saved = errno;
    ::unlink(temp.c_str());
    if (say && error) *error = std::string(what) + " " + target + ": " + std::strerror(saved);
    errno = saved;
    return false;
  };
  if (!write(temp)) return fail("cannot write", false);
  if (!sync(temp, false)) return fail("cannot write", true);
  if (std::rename(temp.c_str(), target.c_str()) != 0) return fail("cannot replace", true);
  sync(directoryOf(target), true);
  return true;
}

bool isFile(std::wstring_view path) {
  struct stat st;
  return !path.empty() && ::stat(text::nativePath(path).c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

}  // namespace vantry::files
