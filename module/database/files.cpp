// Files and folders for the product's LISP: paths as it writes them ("\" or
// "/" between folders).
//
//   (vt_mkdir path)                 T; the folder and any missing parents (T when it exists)
//   (vt_rmdir path [all])           T; an empty folder, or with all T the folder and its contents
//   (vt_fcopy source target)        T; target a file (replaced) or a folder (the same name in it)
//   (vt_fmove source target)        T; as vt_fcopy, the source gone afterwards
//   (vt_fcopyIfChanged source target)
//                                   T when it copied, nil when the target had the source's size
//                                   and time already (nothing copied)
//   (vt_fdir folder [pattern [folders]])
//                                   the names in the folder matching the host's wild-card
//                                   pattern (default "*"), without regard to case, sorted;
//                                   files, or with folders T the sub-folders
//   (vt_fdelete path)               T; the file is deleted
//
// A copy or a move across file systems writes the whole target beside it
// and renames it over the old one, so a failure leaves source and target as
// they were. A copy keeps the source's modification time, which is what
// vt_fcopyIfChanged compares. A failure answers nil with the error recorded
// (vt_lastError) and printed as the database's errors are: 3024 no such file,
// 3044 no such folder, 3051 no permission, 3000 anything else.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "common/files.h"
#include "common/text.h"
#include "database/context.h"
#include "engine/engine.h"
#include "frame/implementations.h"
#include "frame/value_list.h"

namespace vantry::lispfn {
namespace {

namespace fs = std::filesystem;
using frame::ArgList;

// Records and prints a failure; the call answers nil (already set).
int failure(long number, const std::wstring &description) {
  database::setLastError(number, description);
  database::printEngineError(number, description);
  return 0;
}

int systemFailure(const std::error_code &ec, const std::wstring &path) {
  switch (ec.value()) {
    case ENOENT:
      return failure(engine::errc::kCouldNotFindFile, L"Could not find file '" + path + L"'.");
    case EACCES:
    case EPERM:
    case EROFS:
      return failure(engine::errc::kCannotOpen, L"Cannot open or write the file '" + path + L"': permission denied.");
    default:
      return failure(engine::errc::kGeneric, L"'" + path + L"': " + text::fromUtf8(ec.message()) + L".");
  }
}

int readPath(ArgList &args, std::wstring &out) {
  if (!args.cursor()) return 1;
  return frame::readString(args.cursor(), out) ? 0 : 2;
}

bool isDirectory(const fs::path &p) {
  std::error_code ec;
  return fs::is_directory(p, ec);
}

bool isRegular(const fs::path &p) {
  std::error_code ec;
  return fs::is_regular_file(p, ec);
}

// The target of a copy or move: into a folder under the source's name.
fs::path targetFor(const fs::path &source, const std::wstring &target) {
  fs::path t = text::nativePath(target);
  if (isDirectory(t)) t /= source.filename();
  return t;
}

// Copies source over target by writing beside it and renaming, keeping the
// source's modification time. 0, or the failure reported.
bool copyWhole(const fs::path &source, const fs::path &target, const std::wstring &shown) {
  std::error_code ec;
  fs::file_time_type time = fs::last_write_time(source, ec);
  if (ec) {
    systemFailure(ec, shown);
    return false;
  }
  if (!isDirectory(target.parent_path().empty() ? fs::path(".") : target.parent_path())) {
    failure(engine::errc::kInvalidPath, L"'" + text::fromUtf8(target.parent_path().string()) +
                                            L"' is not a valid path.");
    return false;
  }
  std::error_code copyError;
  std::string why;
  bool ok = files::replaceFile(
      target.string(),
      [&](const std::string &temp) {
        fs::copy_file(source, temp, copyError);
        if (!copyError) fs::last_write_time(temp, time, copyError);
        return !copyError;
      },
      &why);
  engine::noteFileSystemChange();
  if (ok) return true;
  if (copyError)
    systemFailure(copyError, shown);
  else
    systemFailure(std::error_code(errno, std::generic_category()), text::fromUtf8(target.string()));
  return false;
}

// Reads source and target, checks the source. 0 and the paths, or a status
// (the failure already reported when the status is -1).
int readCopy(ArgList &args, fs::path *source, fs::path *target, std::wstring *shown) {
  std::wstring s, t;
  if (int st = readPath(args, s)) return st;
  if (int st = readPath(args, t)) return st;
  *source = text::nativePath(s);
  *shown = s;
  if (!isRegular(*source)) {
    failure(engine::errc::kCouldNotFindFile, L"Could not find file '" + s + L"'.");
    return -1;
  }
  *target = targetFor(*source, t);
  return 0;
}

bool sameFile(const fs::path &a, const fs::path &b) {
  std::error_code ec;
  return fs::equivalent(a, b, ec);
}

}  // namespace

int vt_mkdir() {
  acedRetNil();
  ArgList args;
  std::wstring path;
  if (int st = readPath(args, path)) return st;
  fs::path p = text::nativePath(path);
  std::error_code ec;
  fs::create_directories(p, ec);
  if (!isDirectory(p)) {
    if (!ec) ec = std::make_error_code(std::errc::file_exists);
    return systemFailure(ec, path);
  }
  acedRetT();
  return 0;
}

int vt_rmdir() {
  acedRetNil();
  ArgList args;
  std::wstring path;
  if (int st = readPath(args, path)) return st;
  bool all = false;
  if (args.cursor()) frame::readBoolean(args.cursor(), all);
  fs::path p = text::nativePath(path);
  if (!isDirectory(p)) return failure(engine::errc::kInvalidPath, L"'" + path + L"' is not a valid path.");
  std::error_code ec;
  if (all)
    fs::remove_all(p, ec);
  else
    fs::remove(p, ec);
  engine::noteFileSystemChange();
  if (ec && (ec.value() == ENOTEMPTY || ec.value() == EEXIST))
    return failure(engine::errc::kGeneric, L"The folder '" + path + L"' is not empty.");
  if (ec) return systemFailure(ec, path);
  acedRetT();
  return 0;
}

int vt_fcopy() {
  acedRetNil();
  ArgList args;
  fs::path source, target;
  std::wstring shown;
  int st = readCopy(args, &source, &target, &shown);
  if (st) return st < 0 ? 0 : st;
  if (sameFile(source, target) || copyWhole(source, target, shown)) acedRetT();
  return 0;
}

int vt_fcopyIfChanged() {
  acedRetNil();
  ArgList args;
  fs::path source, target;
  std::wstring shown;
  int st = readCopy(args, &source, &target, &shown);
  if (st) return st < 0 ? 0 : st;
  std::error_code e1, e2, e3, e4;
  if (isRegular(target) && fs::file_size(source, e1) == fs::file_size(target, e2) &&
      fs::last_write_time(source, e3) == fs::last_write_time(target, e4) && !e1 && !e2 && !e3 && !e4)
    return 0;
  if (sameFile(source, target)) return 0;
  if (copyWhole(source, target, shown)) acedRetT();
  return 0;
}

int vt_fmove() {
  acedRetNil();
  ArgList args;
  fs::path source, target;
  std::wstring shown;
  int st = readCopy(args, &source, &target, &shown);
  if (st) return st < 0 ? 0 : st;
  if (sameFile(source, target)) {
    acedRetT();
    return 0;
  }
  std::error_code ec;
  fs::rename(source, target, ec);
  engine::noteFileSystemChange();
  if (ec.value() == EXDEV) {
    // Another file system: a whole copy first, then the source goes.
    if (!copyWhole(source, target, shown)) return 0;
    ec.clear();
    fs::remove(source, ec);
  } else if (ec.value() == ENOENT) {
    return failure(engine::errc::kInvalidPath,
                   L"'" + text::fromUtf8(target.parent_path().string()) + L"' is not a valid path.");
  }
  if (ec) return systemFailure(ec, shown);
  acedRetT();
  return 0;
}

int vt_fdelete() {
  acedRetNil();
  ArgList args;
  std::wstring path;
  if (int st = readPath(args, path)) return st;
  fs::path p = text::nativePath(path);
  if (isDirectory(p))
    return failure(engine::errc::kCannotOpen, L"'" + path + L"' is a folder; vt_rmdir removes folders.");
  std::error_code ec;
  if (!fs::remove(p, ec) && !ec) ec = std::make_error_code(std::errc::no_such_file_or_directory);
  engine::noteFileSystemChange();
  if (ec) return systemFailure(ec, path);
  acedRetT();
  return 0;
}

int vt_fdir() {
  acedRetNil();
  ArgList args;
  std::wstring folder, pattern = L"*";
  if (int st = readPath(args, folder)) return st;
  if (args.cursor() && args.cursor()->restype != RTNIL && !frame::readString(args.cursor(), pattern)) return 2;
  if (args.cursor() && args.cursor()->restype == RTNIL) frame::skipArgument(args.cursor());
  bool folders = false;
  if (args.cursor()) frame::readBoolean(args.cursor(), folders);
  fs::path p = text::nativePath(folder);
  if (!isDirectory(p)) return failure(engine::errc::kInvalidPath, L"'" + folder + L"' is not a valid path.");
  std::error_code ec;
  std::vector<std::wstring> names;
  std::wstring upper = text::upcase(pattern);
  for (fs::directory_iterator it(p, ec), end; !ec && it != end; it.increment(ec)) {
    std::error_code kindError;
    bool dir = it->is_directory(kindError);
    if (dir != folders || (!dir && !it->is_regular_file(kindError))) continue;
    std::wstring name = text::fromUtf8(it->path().filename().string());
    if (acutWcMatch(text::upcase(name).c_str(), upper.c_str()) == RTNORM) names.push_back(name);
  }
  if (ec) return systemFailure(ec, folder);
  std::sort(names.begin(), names.end(), [](const std::wstring &a, const std::wstring &b) {
    return text::upcase(a) < text::upcase(b);
  });
  if (names.empty()) return 0;
  frame::ResultChain out;
  out.add(RTLB);
  for (const std::wstring &n : names) out.addText(n.c_str());
  out.add(RTLE);
  out.returnToHost();
  return 0;
}

}  // namespace vantry::lispfn
