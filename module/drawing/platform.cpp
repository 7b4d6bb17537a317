// The platform's services for LISP: the temporary folder, read-only files,
// network paths, compressed GUIDs, the computer's name, the subkeys of a
// settings key and the size of the session's screen.
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "common/text.h"
#include "drawing/platform.h"
#include "frame/implementations.h"
#include "frame/value_list.h"
#include "services/services.h"

namespace vantry::lispfn {
namespace {

using frame::ArgList;

// A single string argument: status 2 when it is missing or no string, as a
// failed reader always answers.
int readPathArgument(ArgList &args, std::wstring &out) {
  return args.cursor() && frame::readString(args.cursor(), out) ? 0 : 2;
}

// "\\server\share" or "//server/share": a path through the network by name.
bool isUncPath(const std::wstring &p) {
  auto sep = [](wchar_t c) { return c == L'\\' || c == L'/'; };
  return p.size() > 2 && sep(p[0]) && sep(p[1]) && !sep(p[2]);
}

// Mount points in mountinfo escape blanks and backslashes as octal.
std::string unescapeMount(const std::string &s) {
  std::string out;
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '\\' && i + 3 < s.size()) {
      int v = 0;
      bool octal = true;
      for (int k = 1; k <= 3; ++k) {
        char c = s[i + k];
        if (c < '0' || c > '7') octal = false;
        v = v * 8 + (c - '0');
      }
      if (octal) {
        out += char(v);
        i += 3;
        continue;
      }
    }
    out += s[i];
  }
  return out;
}

bool networkType(const std::string &type) {
  static const char *const kTypes[] = {"nfs",       "nfs4",       "cifs",     "smb3",     "smbfs",
                                       "ncpfs",     "afs",        "9p",       "ceph",     "glusterfs",
                                       "lustre",    "davfs",      "sshfs",    "fuse.sshfs", "fuse.rclone",
                                       "fuse.davfs2", "fuse.glusterfs", "fuse.s3fs", "fuse.gcsfuse"};
  for (const char *t : kTypes)
    if (type == t) return true;
  return false;
}

// The path made absolute and resolved as far as it exists, so that a file
// not yet written still tells the folder it would go to.
std::string resolvedPath(std::string path) {
  if (path.empty()) return {};
  if (path[0] != '/') {
    char cwd[PATH_MAX];
    if (!getcwd(cwd, sizeof cwd)) return {};
    path = std::string(cwd) + "/" + path;
  }
  std::string head = path, tail;
  while (!head.empty()) {
    char real[PATH_MAX];
    if (realpath(head.c_str(), real)) return std::string(real) + tail;
    size_t slash = head.find_last_of('/');
    if (slash == std::string::npos || slash == 0) return path;
    tail = head.substr(slash) + tail;
    head.resize(slash);
  }
  return path;
}

}  // namespace
}  // namespace vantry::lispfn

namespace vantry::drawing {

std::string mountType(std::istream &in, const std::string &path) {
  std::string line, best, bestType;
  while (std::getline(in, line)) {
    // id parent major:minor root mountpoint options [optional...] - type source super
    std::istringstream fields(line);
    std::string id, parent, dev, root, point, field;
    if (!(fields >> id >> parent >> dev >> root >> point)) continue;
    while (fields >> field && field != "-") {
    }
    std::string type;
    if (!(fields >> type)) continue;
    point = lispfn::unescapeMount(point);
    bool under = path == point || point == "/" ||
                 (path.compare(0, point.size(), point) == 0 && path.size() > point.size() &&
                  path[point.size()] == '/');
    // A later mount over the same point hides the earlier one.
    if (under && point.size() >= best.size()) {
      best = point;
      bestType = type;
    }
  }
  return bestType;
}

bool isNetworkPath(const std::wstring &name) {
  if (lispfn::isUncPath(name)) return true;
  std::string path = lispfn::resolvedPath(text::nativePath(name));
  if (path.empty()) return false;
  std::ifstream in("/proc/self/mountinfo");
  return isNetworkFileSystem(mountType(in, path));
}

bool isNetworkFileSystem(const std::string &type) {
  return lispfn::networkType(type);
}

}  // namespace vantry::drawing

namespace vantry::lispfn {
namespace {

// The compressed form: the 128 bits as one big number written in 22 digits
// of base 64 (the first digit carries the top two bits), digits in the order
// 0-9, A-Z, a-z, "_", "$". Only letters, digits and two characters that are
// safe in names and files.
std::wstring compressGuid(const uint8_t bytes[16]) {
  static const char kDigits[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_$";
  std::wstring out;
  // 2 bits, then 21 groups of 6 bits, from the top.
  int bit = 0;
  auto take = [&](int n) {
    int v = 0;
    for (int k = 0; k < n; ++k, ++bit) v = (v << 1) | ((bytes[bit / 8] >> (7 - bit % 8)) & 1);
    return v;
  };
  out += wchar_t(kDigits[take(2)]);
  for (int i = 0; i < 21; ++i) out += wchar_t(kDigits[take(6)]);
  return out;
}

int screenSize(int axis) {
  acedRetNil();
  ArgList args;
  resbuf rb = {};
  if (acedGetVar(L"SCREENSIZE", &rb) != RTNORM || (rb.restype != RTPOINT && rb.restype != RT3DPOINT)) return 0;
  frame::returnInteger(int32_t(rb.resval.rpoint[axis]));
  return 0;
}

}  // namespace

// The folder for temporary files (the one the error reports use: TMP, TEMP,
// TMPDIR, else /tmp), with its closing separator so that a file name can be
// appended, as the platform gives it.
int GetTempPath() {
  acedRetNil();
  ArgList args;
  std::string dir = services::tempFolder();
  if (dir.back() != '/') dir += '/';
  acedRetStr(text::fromUtf8(dir).c_str());
  return 0;
}

// T when the file exists and cannot be written: no write permission for
// anyone (the platform's read-only attribute), or a file system mounted
// read-only. nil for a writable file and for one that is not there.
int IsFileReadOnly() {
  acedRetNil();
  ArgList args;
  std::wstring name;
  if (int status = readPathArgument(args, name)) return status;
  std::string path = text::nativePath(name);
  struct stat st;
  if (path.empty() || stat(path.c_str(), &st) != 0) return 0;
  struct statvfs vfs;
  bool readOnlyMount = statvfs(path.c_str(), &vfs) == 0 && (vfs.f_flag & ST_RDONLY);
  if ((st.st_mode & 0222) == 0 || readOnlyMount) acedRetT();
  return 0;
}

// T for a path that goes through the network: a "\\server\share" name, or a
// path on a mounted network file system.
int PathIsNetworkPath() {
  acedRetNil();
  ArgList args;
  std::wstring name;
  if (int status = readPathArgument(args, name)) return status;
  if (drawing::isNetworkPath(name)) acedRetT();
  return 0;
}

// A new random GUID (version 4, from the system's generator) in its
// compressed 22-character form.
int CreateCompressedGuidString() {
  acedRetNil();
  ArgList args;
  uint8_t bytes[16];
  size_t got = 0;
  while (got < sizeof bytes) {
    ssize_t n = getrandom(bytes + got, sizeof bytes - got, 0);
    if (n < 0) {
      if (errno == EINTR) continue;
      acutPrintf(L"\nNo random numbers from the system: %s.\n", text::fromUtf8(std::strerror(errno)).c_str());
      return 4;
    }
    got += size_t(n);
  }
  bytes[6] = uint8_t((bytes[6] & 0x0f) | 0x40);  // version 4: random
  bytes[8] = uint8_t((bytes[8] & 0x3f) | 0x80);  // the standard variant
  acedRetStr(compressGuid(bytes).c_str());
  return 0;
}

// The computer's name as the platform gives it (the same call the database
// error box uses); nil when it cannot be read.
int GetComputerName() {
  acedRetNil();
  ArgList args;
  wchar_t name[MAX_COMPUTERNAME_LENGTH + 1];
  DWORD size = MAX_COMPUTERNAME_LENGTH + 1;
  if (GetComputerNameW(name, &size)) acedRetStr(name);
  return 0;
}

// (RegEnumKey "HKEY_CURRENT_USER\\Software\\Maker" ["Sub\\Key"]): the names of
// the key's subkeys, in order; nil when the key is not there or has none.
// The root is written out or short (HKCU, HKLM); the optional second string
// is a path below the first.
int RegEnumKey() {
  acedRetNil();
  ArgList args;
  std::wstring path, sub;
  if (int status = readPathArgument(args, path)) return status;
  if (args.cursor() && !frame::readString(args.cursor(), sub)) return 2;
  if (!sub.empty()) path += L"\\" + sub;
  size_t slash = path.find(L'\\');
  std::wstring root = text::upcase(path.substr(0, slash)), rest = slash == std::wstring::npos ? L"" : path.substr(slash + 1);
  HKEY rootKey;
  if (root == L"HKEY_CURRENT_USER" || root == L"HKCU")
    rootKey = HKEY_CURRENT_USER;
  else if (root == L"HKEY_LOCAL_MACHINE" || root == L"HKLM")
    rootKey = HKEY_LOCAL_MACHINE;
  else
    return 3;
  HKEY key;
  if (RegOpenKeyExW(rootKey, rest.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return 0;
  frame::ResultChain chain;
  chain.add(RTLB);
  int count = 0;
  for (DWORD i = 0;; ++i) {
    std::vector<wchar_t> name(256);
    DWORD size = DWORD(name.size());
    LONG r = RegEnumKeyExW(key, i, name.data(), &size, nullptr, nullptr, nullptr, nullptr);
    if (r == ERROR_MORE_DATA) {
      name.resize(name.size() * 64);
      size = DWORD(name.size());
      r = RegEnumKeyExW(key, i, name.data(), &size, nullptr, nullptr, nullptr, nullptr);
    }
    if (r != ERROR_SUCCESS) break;
    chain.addText(name.data());
    ++count;
  }
  RegCloseKey(key);
  chain.add(RTLE);
  if (count) chain.returnToHost();
  return 0;
}

// The session's screen, in pixels.
int GetSystemMetrics_SM_CXSCREEN() {
  return screenSize(0);
}
int GetSystemMetrics_SM_CYSCREEN() {
  return screenSize(1);
}

}  // namespace vantry::lispfn
