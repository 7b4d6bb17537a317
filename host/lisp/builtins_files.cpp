// AutoLISP built-ins for open files and printing, findfile, load and the
// environment, and the text encoding of everything the LISP reads and writes.
//
// Files are UTF-8. A file descriptor (File) owns its FILE*; close releases it
// at once and leaves the descriptor unusable ("bad argument type: streamp").
// Lines end in "\n" when written; "\r\n" and a UTF-8 byte-order mark are
// accepted when read. Without a file, the printing functions write to the
// host's transcript (Interp::output). The console has no keyboard here:
// read-line and read-char without a file answer nil, as a cancelled input.
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "lisp/lisp.h"

extern char **environ;

namespace vantry::lisp {

namespace fs = std::filesystem;

namespace {

bool present(const Value *args, int nargs, int i) {
  return i < nargs && !args[i].isNil();
}

void emit(Interp &in, std::wstring_view text) {
  if (in.output) in.output(text);
}

// An open file descriptor; a closed one or any other value is refused.
File *fileArg(Interp &in, const Value &v, bool writing) {
  if (v.type() != Type::File || !v.as<File>()->fp || (writing && v.as<File>()->mode == L'r'))
    in.badArgType(L"streamp", v);
  return v.as<File>();
}

// Writes to the file given as args[i], or to the transcript when it is absent.
void write(Interp &in, const Value *args, int nargs, int i, std::wstring_view text) {
  if (present(args, nargs, i)) {
    File *f = fileArg(in, args[i], true);
    std::string bytes = toUtf8(text);
    std::fwrite(bytes.data(), 1, bytes.size(), f->fp);
  } else {
    emit(in, text);
  }
}

// --- Files --------------------------------------------------------------------

// (open name mode [encoding]): nil when the file cannot be opened.
Value fOpen(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, 3);
  const std::wstring &name = strArg(in, args[0]);
  std::wstring mode = downcase(strArg(in, args[1]));
  if (mode != L"r" && mode != L"w" && mode != L"a")
    in.error(L"bad argument value: " + in.toString(args[1], true));
  bool bom = present(args, nargs, 2) && downcase(strArg(in, args[2])) == L"utf8-bom";
  std::string path = nativePath(name);
  std::error_code ec;
  if (path.empty() || fs::is_directory(path, ec)) return Value();
  FILE *fp = std::fopen(path.c_str(), mode == L"r" ? "rb" : mode == L"w" ? "wb" : "ab");
  if (mode != L"r") in.noteFilesChanged();
  if (!fp) return Value();
  if (bom && mode == L"w") std::fputs("\xEF\xBB\xBF", fp);
  return Value(new File(name, fp, mode[0]));
}

Value fClose(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  File *f = fileArg(in, args[0], false);
  std::fclose(f->fp);
  f->fp = nullptr;
  return Value();
}

// Skips a byte-order mark at the start of a file.
void skipBom(FILE *fp) {
  if (std::ftell(fp) != 0) return;
  unsigned char b[3];
  size_t n = std::fread(b, 1, 3, fp);
  if (n == 3 && b[0] == 0xEF && b[1] == 0xBB && b[2] == 0xBF) return;
  std::fseek(fp, 0, SEEK_SET);
}

Value fReadLine(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 0, 1);
  if (!present(args, nargs, 0)) return Value();
  File *f = fileArg(in, args[0], false);
  skipBom(f->fp);
  std::string line;
  int c;
  bool any = false;
  while ((c = std::fgetc(f->fp)) != EOF) {
    any = true;
    if (c == '\n') break;
    line += char(c);
  }
  if (!any) return Value();
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return makeString(fromUtf8(line));
}

// One character; "\r\n" reads as 10.
Value fReadChar(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 0, 1);
  if (!present(args, nargs, 0)) return Value();
  File *f = fileArg(in, args[0], false);
  skipBom(f->fp);
  int c = std::fgetc(f->fp);
  if (c == EOF) return Value();
  if (c == '\r') {
    int next = std::fgetc(f->fp);
    if (next == '\n') return Value::integer(10);
    if (next != EOF) std::ungetc(next, f->fp);
    return Value::integer(13);
  }
  std::string bytes(1, char(c));
  int len = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 1;
  for (int k = 1; k < len; ++k) {
    int cb = std::fgetc(f->fp);
    if (cb == EOF) break;
    if ((cb & 0xC0) != 0x80) {
      std::ungetc(cb, f->fp);
      break;
    }
    bytes += char(cb);
  }
  // A malformed sequence reads as its first byte (see fromUtf8).
  return Value::integer(int32_t(fromUtf8(bytes)[0]));
}

Value fWriteLine(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 2);
  const std::wstring &s = strArg(in, args[0]);
  write(in, args, nargs, 1, s + L"\n");
  return args[0];
}

Value fWriteChar(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 2);
  int32_t c = intArg(in, args[0]);
  if (c <= 0 || c > 0x10FFFF) in.error(L"bad argument value: " + in.toString(args[0], true));
  write(in, args, nargs, 1, std::wstring(1, wchar_t(c)));
  return args[0];
}

// --- Printing ------------------------------------------------------------------
// (princ), (prin1) and (print) with no argument answer the null symbol, whose
// name is empty, so that a function ending with one returns quietly.

Value print(Interp &in, const Value *args, int nargs, bool escape, const wchar_t *before,
            const wchar_t *after) {
  needArgs(in, nargs, 0, 2);
  if (nargs == 0) return Value(in.intern(L""));
  write(in, args, nargs, 1, before + in.toString(args[0], escape) + after);
  return args[0];
}

Value fPrinc(Interp &in, const Value *a, int n) {
  return print(in, a, n, false, L"", L"");
}
Value fPrin1(Interp &in, const Value *a, int n) {
  return print(in, a, n, true, L"", L"");
}
Value fPrint(Interp &in, const Value *a, int n) {
  return print(in, a, n, true, L"\n", L" ");
}

Value fTerpri(Interp &in, const Value *, int nargs) {
  needArgs(in, nargs, 0, 0);
  emit(in, L"\n");
  return Value();
}

Value fPrompt(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  emit(in, strArg(in, args[0]));
  return Value();
}

// --- findfile and load -----------------------------------------------------------

// The path itself when it exists; otherwise an entry of its directory whose
// name differs only in letter case, as scripts written for a case-blind file
// system expect.
std::optional<fs::path> existing(const fs::path &p) {
  std::error_code ec;
  if (fs::exists(p, ec)) return p;
  fs::path dir = p.has_parent_path() ? p.parent_path() : fs::path(".");
  std::wstring want = upcase(fromUtf8(p.filename().string()));
  if (want.empty() || !fs::is_directory(dir, ec)) return std::nullopt;
  for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec))
    if (upcase(fromUtf8(it->path().filename().string())) == want) return dir / it->path().filename();
  return std::nullopt;
}

// A file name with a directory is looked for there only; a bare name in the
// current directory, then in each support directory. The answer is the full
// path with "/" between directories.
std::optional<std::wstring> findFile(Interp &in, std::wstring_view name) {
  std::string native = nativePath(name);
  if (native.empty()) return std::nullopt;
  std::vector<fs::path> candidates{fs::path(native)};
  bool bare = native.find('/') == std::string::npos && !(native.size() > 1 && native[1] == ':');
  if (bare && in.supportPath)
    for (const std::wstring &dir : in.supportPath()) candidates.push_back(fs::path(nativePath(dir)) / native);
  for (const fs::path &c : candidates) {
    if (auto found = existing(c)) {
      std::error_code ec;
      fs::path full = fs::absolute(*found, ec);
      return fromUtf8((ec ? *found : full).lexically_normal().generic_string());
    }
  }
  return std::nullopt;
}

Value fFindfile(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  auto found = findFile(in, strArg(in, args[0]));
  return found ? makeString(*found) : Value();
}

bool isFunction(const Value &v) {
  return v.type() == Type::Subr || v.type() == Type::Usubr || v.type() == Type::Exrxsubr;
}

// (load name [onfailure]): ".lsp" is added to a name without an extension.
// When the file is missing, onfailure is the answer (a function is called for
// it); without one, the error "LOAD failed".
Value fLoad(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 2);
  const std::wstring &name = strArg(in, args[0]);
  std::wstring file = name;
  size_t sep = file.find_last_of(L"/\\");
  size_t dot = file.rfind(L'.');
  if (dot == std::wstring::npos || (sep != std::wstring::npos && dot < sep)) file += L".lsp";
  auto found = findFile(in, file);
  if (found) return in.loadFile(*found);
  if (nargs < 2) in.error(L"LOAD failed: " + in.toString(args[0], true));
  if (isFunction(args[1])) return in.apply(args[1], nullptr, 0);
  return args[1];
}

// --- Environment ---------------------------------------------------------------------

// The exact name first, then any spelling of it, as variable names are
// case-blind on the host's platform.
Value fGetenv(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  std::string name = toUtf8(strArg(in, args[0]));
  if (const char *v = std::getenv(name.c_str())) return makeString(fromUtf8(v));
  std::wstring want = upcase(fromUtf8(name));
  for (char **e = environ; e && *e; ++e) {
    const char *eq = std::strchr(*e, '=');
    if (eq && upcase(fromUtf8(std::string_view(*e, size_t(eq - *e)))) == want)
      return makeString(fromUtf8(eq + 1));
  }
  return Value();
}

Value fSetenv(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, 2);
  std::string name = toUtf8(strArg(in, args[0]));
  const std::wstring &value = strArg(in, args[1]);
  if (name.empty() || name.find('=') != std::string::npos)
    in.error(L"bad argument value: " + in.toString(args[0], true));
  ::setenv(name.c_str(), toUtf8(value).c_str(), 1);
  return args[1];
}

struct Entry {
  const wchar_t *name;
  SubrFn fn;
};

constexpr Entry kFiles[] = {
    {L"open", fOpen},          {L"close", fClose},          {L"read-line", fReadLine},
    {L"read-char", fReadChar}, {L"write-line", fWriteLine}, {L"write-char", fWriteChar},
    {L"princ", fPrinc},        {L"prin1", fPrin1},          {L"print", fPrint},
    {L"terpri", fTerpri},      {L"prompt", fPrompt},        {L"findfile", fFindfile},
    // Every directory searched is trusted here: there is no separate list.
    {L"findtrustedfile", fFindfile},
    {L"load", fLoad},          {L"getenv", fGetenv},        {L"setenv", fSetenv},
};

}  // namespace

void installFiles(Interp &in) {
  for (const Entry &e : kFiles) in.defineSubr(e.name, e.fn);
  installFileSystem(in);
}

}  // namespace vantry::lisp
