// AutoLISP built-ins on the file system: vl-file-* (delete, copy, rename,
// size, directory test), vl-filename-* (parts of a name, temporary names) and
// vl-directory-files.
//
// Names are taken as LISP writes them ("\\" or "/" between directories) and
// relative names are relative to the current directory. The vl-filename-*
// functions only take a name apart; they keep its letter case, since this
// machine's file names are case-sensitive.
#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "lisp/lisp.h"

namespace vantry::lisp {

namespace fs = std::filesystem;

namespace {

bool present(const Value *args, int nargs, int i) {
  return i < nargs && !args[i].isNil();
}

fs::path pathArg(Interp &in, const Value &v) {
  return fs::path(nativePath(strArg(in, v)));
}

// --- Files -----------------------------------------------------------------------

Value fFileDelete(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  fs::path p = pathArg(in, args[0]);
  std::error_code ec;
  if (fs::is_directory(p, ec) || !fs::remove(p, ec) || ec) return Value();
  in.noteFilesChanged();
  return in.makeT();
}

// (vl-file-copy from to [append]): the number of bytes copied, or nil. An
// existing destination is never overwritten, only appended to.
Value fFileCopy(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, 3);
  fs::path from = pathArg(in, args[0]), to = pathArg(in, args[1]);
  bool append = present(args, nargs, 2);
  std::error_code ec;
  if (!fs::is_regular_file(from, ec) || fs::is_directory(to, ec)) return Value();
  if (!append && fs::exists(to, ec)) return Value();
  FILE *src = std::fopen(from.c_str(), "rb");
  if (!src) return Value();
  FILE *dst = std::fopen(to.c_str(), append ? "ab" : "wb");
  in.noteFilesChanged();
  if (!dst) {
    std::fclose(src);
    return Value();
  }
  char buf[65536];
  int64_t total = 0;
  bool ok = true;
  for (size_t n; (n = std::fread(buf, 1, sizeof buf, src)) > 0; total += int64_t(n))
    if (std::fwrite(buf, 1, n, dst) != n) ok = false;
  ok = !std::ferror(src) && ok;
  std::fclose(src);
  ok = std::fclose(dst) == 0 && ok;
  if (!ok) return Value();
  return total <= INT32_MAX ? Value::integer(int32_t(total)) : Value::real(double(total));
}

// Fails when the new name exists already.
Value fFileRename(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, 2);
  fs::path from = pathArg(in, args[0]), to = pathArg(in, args[1]);
  std::error_code ec;
  if (!fs::exists(from, ec) || fs::exists(to, ec)) return Value();
  fs::rename(from, to, ec);
  in.noteFilesChanged();
  return ec ? Value() : in.makeT();
}

// The size in bytes; 0 for a directory; nil when there is no such entry.
Value fFileSize(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  fs::path p = pathArg(in, args[0]);
  std::error_code ec;
  fs::file_status st = fs::status(p, ec);
  if (ec || !fs::exists(st)) return Value();
  if (fs::is_directory(st)) return Value::integer(0);
  uintmax_t size = fs::file_size(p, ec);
  if (ec) return Value();
  return size <= INT32_MAX ? Value::integer(int32_t(size)) : Value::real(double(size));
}

// (vl-file-systime path): when the file was last written, in local time, as
// (year month weekday day hours minutes seconds milliseconds) with Sunday
// weekday 0; nil for a directory or a file that is not there.
Value fFileSystime(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  std::string native = nativePath(strArg(in, args[0]));
  struct stat st {};
  if (::stat(native.c_str(), &st) != 0 || S_ISDIR(st.st_mode)) return Value();
  struct tm local {};
  time_t t = st.st_mtim.tv_sec;
  localtime_r(&t, &local);
  ListBuilder b;
  for (int v : {local.tm_year + 1900, local.tm_mon + 1, local.tm_wday, local.tm_mday, local.tm_hour, local.tm_min,
                local.tm_sec, int(st.st_mtim.tv_nsec / 1000000)})
    b.add(Value::integer(v));
  return b.take();
}

Value fFileDirectoryP(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  std::error_code ec;
  return in.boolean(fs::is_directory(pathArg(in, args[0]), ec));
}

// --- Names -------------------------------------------------------------------------

// Where the last component of a LISP file name starts: after the last "/" or
// "\\", or after a drive letter's colon.
size_t nameStart(std::wstring_view s) {
  size_t sep = s.find_last_of(L"/\\");
  if (sep != std::wstring_view::npos) return sep + 1;
  return s.size() > 1 && s[1] == L':' ? 2 : 0;
}

std::wstring_view directoryOf(std::wstring_view s) {
  size_t start = nameStart(s);
  if (start == 0) return {};
  size_t end = start;
  if (s[end - 1] == L'/' || s[end - 1] == L'\\') --end;
  if (end == 0 || (end == 2 && s[1] == L':')) ++end;  // keep the root's separator
  return s.substr(0, std::min(end, start));
}

// The extension with its dot; empty when there is none. A leading dot names a
// hidden file, not an extension.
std::wstring_view extensionOf(std::wstring_view s) {
  std::wstring_view name = s.substr(nameStart(s));
  size_t dot = name.rfind(L'.');
  if (dot == std::wstring_view::npos || dot == 0 || dot + 1 == name.size()) return {};
  return name.substr(dot);
}

std::wstring_view baseOf(std::wstring_view s) {
  std::wstring_view name = s.substr(nameStart(s));
  return name.substr(0, name.size() - extensionOf(s).size() - (name.size() && name.back() == L'.' ? 1 : 0));
}

Value fFilenameDirectory(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  return makeString(std::wstring(directoryOf(strArg(in, args[0]))));
}

Value fFilenameBase(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  return makeString(std::wstring(baseOf(strArg(in, args[0]))));
}

Value fFilenameExtension(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  std::wstring_view ext = extensionOf(strArg(in, args[0]));
  return ext.empty() ? Value() : makeString(std::wstring(ext));
}

// (vl-filename-mktemp [pattern directory extension]): directory\BASEnnn.EXT
// with up to five characters of the pattern's base name (upper-cased) and
// three hexadecimal digits from a counter of this process, skipping names
// that exist. The directory is the argument, else the pattern's, else $TMP,
// $TEMP, $TMPDIR, else the current directory.
Value fFilenameMktemp(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 0, 3);
  std::wstring pattern = present(args, nargs, 0) ? strArg(in, args[0]) : L"$VL~~";
  std::wstring dir = present(args, nargs, 1) ? strArg(in, args[1]) : std::wstring(directoryOf(pattern));
  for (const char *var : {"TMP", "TEMP", "TMPDIR"}) {
    const char *v = std::getenv(var);
    if (dir.empty() && v && *v) dir = fromUtf8(v);
  }
  if (dir.empty()) {
    std::error_code ec;
    dir = fromUtf8(fs::current_path(ec).generic_string());
  }
  std::wstring ext = present(args, nargs, 2) ? strArg(in, args[2]) : std::wstring(extensionOf(pattern));
  if (!ext.empty() && ext[0] != L'.') ext.insert(0, 1, L'.');
  std::wstring base = upcase(baseOf(pattern).substr(0, 5));
  ext = upcase(ext);
  if (dir.empty()) dir = L".";
  if (dir.back() != L'/' && dir.back() != L'\\') dir += L'/';
  static unsigned counter = 0;
  for (int tries = 0; tries < 4096; ++tries) {
    counter = (counter + 1) & 0xFFF;
    wchar_t digits[8];
    std::swprintf(digits, 8, L"%03X", counter);
    std::wstring name = dir + base + digits + ext;
    std::error_code ec;
    if (!fs::exists(nativePath(name), ec)) return makeString(std::move(name));
  }
  return Value();
}

// --- Directories -------------------------------------------------------------------

// A DOS wild-card pattern ("*" any run, "?" one character), letter case
// ignored; "*.*" matches every name, with or without a dot.
bool dosMatch(std::wstring_view name, std::wstring_view pattern) {
  if (pattern == L"*.*") return true;
  std::wstring n = upcase(name), p = upcase(pattern);
  size_t ni = 0, pi = 0, star = std::wstring::npos, mark = 0;
  while (ni < n.size()) {
    if (pi < p.size() && p[pi] == L'*') {
      star = pi++;
      mark = ni;
    } else if (pi < p.size() && (p[pi] == L'?' || p[pi] == n[ni])) {
      ++pi;
      ++ni;
    } else if (star != std::wstring::npos) {
      pi = star + 1;
      ni = ++mark;
    } else {
      return false;
    }
  }
  while (pi < p.size() && p[pi] == L'*') ++pi;
  return pi == p.size();
}

// (vl-directory-files [directory pattern which]): which -1 lists directories
// only, 1 files only, 0 (the default) both. Directories include "." and "..".
// The names come sorted without regard to case; nil when none matches.
Value fDirectoryFiles(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 0, 3);
  fs::path dir = present(args, nargs, 0) ? pathArg(in, args[0]) : fs::path(".");
  std::wstring pattern = present(args, nargs, 1) ? strArg(in, args[1]) : L"*.*";
  int which = present(args, nargs, 2) ? intArg(in, args[2]) : 0;
  std::error_code ec;
  if (!fs::is_directory(dir, ec)) return Value();
  std::vector<std::wstring> dots, names;
  if (which <= 0)
    for (const wchar_t *d : {L".", L".."})
      if (dosMatch(d, pattern)) dots.push_back(d);
  for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
    std::error_code tec;
    bool isDir = it->is_directory(tec);
    if ((which < 0 && !isDir) || (which > 0 && isDir)) continue;
    std::wstring name = fromUtf8(it->path().filename().string());
    if (dosMatch(name, pattern)) names.push_back(std::move(name));
  }
  std::sort(names.begin(), names.end(), [](const std::wstring &a, const std::wstring &b) {
    std::wstring ua = upcase(a), ub = upcase(b);
    return ua != ub ? ua < ub : a < b;
  });
  ListBuilder out;
  for (std::wstring &n : dots) out.add(makeString(std::move(n)));
  for (std::wstring &n : names) out.add(makeString(std::move(n)));
  return out.take();
}

// (vl-mkdir dir): T when the directory was made, nil when it exists already
// or cannot be made.
Value fMkdir(Interp &in, const Value *a, int n) {
  needArgs(in, n, 1, 1);
  std::error_code ec;
  return in.boolean(std::filesystem::create_directory(nativePath(strArg(in, a[0])), ec) && !ec);
}

struct Entry {
  const wchar_t *name;
  SubrFn fn;
};

constexpr Entry kFileSystem[] = {
    {L"vl-file-delete", fFileDelete},
    {L"vl-file-copy", fFileCopy},
    {L"vl-file-rename", fFileRename},
    {L"vl-file-size", fFileSize},
    {L"vl-file-systime", fFileSystime},
    {L"vl-file-directory-p", fFileDirectoryP},
    {L"vl-filename-directory", fFilenameDirectory},
    {L"vl-filename-base", fFilenameBase},
    {L"vl-filename-extension", fFilenameExtension},
    {L"vl-filename-mktemp", fFilenameMktemp},
    {L"vl-directory-files", fDirectoryFiles},
    {L"vl-mkdir", fMkdir},
};

}  // namespace

void installFileSystem(Interp &in) {
  for (const Entry &e : kFileSystem) in.defineSubr(e.name, e.fn);
}

}  // namespace vantry::lisp
