// The platform's shell, answered on this system (include/host/win32.h):
// known folders from the XDG user folders, files and addresses opened with
// the desktop's opener (xdg-open) when there is a desktop, and the folder,
// open and save dialogs answered by the scripted person.
//
// What the shell does is a line on the transcript:
//   [Shell] open /home/me/report.pdf            a desktop: xdg-open started
//   [Shell] would open /home/me/report.pdf      headless: nothing started
//   [Shell] run /opt/tool/bin/conv -q a.dxf     a program with parameters
//   [Shell] show /home/me/a.dwg in /home/me     SHOpenFolderAndSelectItems
// A dialog shows as "[<title>] -> <answer>" (or "-> Cancel (no answer
// queued)"), followed, when the answer cannot be taken, by why.
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "session/session.h"
#include "session/internal.h"

namespace fs = std::filesystem;

// An item identifier list: here one absolute path.
struct ITEMIDLIST {
  std::wstring path;
};

namespace vantry::host {
namespace {

Session &session() {
  return Session::get();
}

DWORD dialogError = 0;
HWND const kBrowseDialog = reinterpret_cast<HWND>(static_cast<uintptr_t>(0x10020));
bool browsing = false;
std::wstring browseStart;

std::string homeFolder() {
  const char *home = std::getenv("HOME");
  if (home && *home) return home;
  if (const passwd *pw = getpwuid(getuid())) return pw->pw_dir;
  return "/";
}

std::string envOr(const char *name, const std::string &fallback) {
  const char *v = std::getenv(name);
  return v && *v == '/' ? std::string(v) : fallback;
}

// XDG_<NAME>_DIR from user-dirs.dirs: "$HOME/sub" or an absolute path, in
// double quotes. Empty when the file does not name it.
std::string userDirSetting(const std::string &name) {
  std::string home = homeFolder();
  std::ifstream in(envOr("XDG_CONFIG_HOME", home + "/.config") + "/user-dirs.dirs");
  std::string key = "XDG_" + name + "_DIR=", line, found;
  while (std::getline(in, line)) {
    size_t start = line.find_first_not_of(" \t");
    if (start == std::string::npos || line.compare(start, key.size(), key) != 0) continue;
    std::string value = line.substr(start + key.size());
    if (value.size() < 2 || value.front() != '"' || value.back() != '"') continue;
    value = value.substr(1, value.size() - 2);
    if (value == "$HOME")
      found = home;
    else if (value.rfind("$HOME/", 0) == 0)
      found = home + value.substr(5);
    else if (!value.empty() && value[0] == '/')
      found = value;
  }
  return found;
}

std::string userDir(const std::string &name) {
  std::string set = userDirSetting(name);
  if (!set.empty()) return set;
  return name == "DESKTOP" ? homeFolder() + "/Desktop" : homeFolder();
}

// The folder behind a CSIDL (its flags taken off), or nullopt.
std::optional<std::string> knownFolder(int csidl) {
  std::string home = homeFolder();
  switch (csidl) {
    case CSIDL_DESKTOP:
    case CSIDL_DESKTOPDIRECTORY:
      return userDir("DESKTOP");
    case CSIDL_PERSONAL:
      return userDir("DOCUMENTS");
    case CSIDL_MYMUSIC:
      return userDir("MUSIC");
    case CSIDL_MYVIDEO:
      return userDir("VIDEOS");
    case CSIDL_MYPICTURES:
      return userDir("PICTURES");
    case CSIDL_TEMPLATES:
      return userDir("TEMPLATES");
    case CSIDL_COMMON_DOCUMENTS:
      return userDir("PUBLICSHARE");
    case CSIDL_PROFILE:
      return home;
    case CSIDL_APPDATA:
      return envOr("XDG_CONFIG_HOME", home + "/.config");
    case CSIDL_LOCAL_APPDATA:
      return envOr("XDG_DATA_HOME", home + "/.local/share");
    case CSIDL_FONTS:
      return envOr("XDG_DATA_HOME", home + "/.local/share") + "/fonts";
    case CSIDL_INTERNET_CACHE:
      return envOr("XDG_CACHE_HOME", home + "/.cache");
    case CSIDL_COMMON_APPDATA: {
      std::string dirs = envOr("XDG_DATA_DIRS", "/usr/local/share");
      return dirs.substr(0, dirs.find(':'));
    }
    default:
      return std::nullopt;
  }
}

// A path without its closing separators (the root stays "/").
std::string withoutClosingSlash(std::string p) {
  while (p.size() > 1 && p.back() == '/') p.pop_back();
  return p;
}

bool copyOut(const std::wstring &text, wchar_t *out, size_t room) {
  if (text.size() + 1 > room) return false;
  text.copy(out, text.size());
  out[text.size()] = 0;
  return true;
}

// "https:", "mailto:", "file:": a scheme of two letters or more (so that
// "C:" stays a drive).
bool isAddress(const std::wstring &name) {
  size_t colon = name.find(L':');
  if (colon == std::wstring::npos || colon < 2) return false;
  for (size_t i = 0; i < colon; ++i) {
    wchar_t c = name[i];
    bool ok = (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z') ||
              (i > 0 && ((c >= L'0' && c <= L'9') || c == L'+' || c == L'-' || c == L'.'));
    if (!ok) return false;
  }
  return true;
}

// An absolute, normal native path: relative names are taken in base (or
// the current folder).
std::string resolve(const std::wstring &name, const std::wstring &base) {
  fs::path p(text::nativePath(name));
  if (p.is_relative()) {
    std::error_code ec;
    fs::path from = base.empty() ? fs::current_path(ec) : fs::path(text::nativePath(base));
    if (from.is_relative()) from = fs::current_path(ec) / from;
    p = from / p;
  }
  return withoutClosingSlash(p.lexically_normal().string());
}

// Words of a parameter line; double quotes keep blanks in a word.
std::vector<std::string> splitParameters(const std::string &line) {
  std::vector<std::string> words;
  std::string word;
  bool quoted = false, any = false;
  for (char c : line) {
    if (c == '"') {
      quoted = !quoted;
      any = true;
    } else if ((c == ' ' || c == '\t') && !quoted) {
      if (any) words.push_back(word);
      word.clear();
      any = false;
    } else {
      word += c;
      any = true;
    }
  }
  if (any) words.push_back(word);
  return words;
}

// Starts a program detached from the session (its own session, no
// terminal, not waited for).
void startDetached(const std::vector<std::string> &command) {
  std::vector<char *> argv;
  for (const std::string &a : command) argv.push_back(const_cast<char *>(a.c_str()));
  argv.push_back(nullptr);
  pid_t child = fork();
  if (child < 0) return;
  if (child == 0) {
    setsid();
    if (fork() == 0) {
      int null = open("/dev/null", O_RDWR);
      if (null >= 0) {
        dup2(null, 0);
        dup2(null, 1);
        dup2(null, 2);
      }
      execvp(argv[0], argv.data());
      _exit(127);
    }
    _exit(0);
  }
  int status;
  waitpid(child, &status, 0);
}

void shellLine(const std::wstring &what) {
  if (!session().atLineStart()) session().print(L"\n");
  session().print(L"[Shell] " + what + L"\n");
}

// Opens a file, folder or address with the desktop's opener, or says what
// would have opened.
void openWithDesktop(const std::wstring &target) {
  if (haveDesktop()) {
    shellLine(L"open " + target);
    startDetached({"xdg-open", text::toUtf8(target)});
  } else {
    shellLine(L"would open " + target);
  }
}

// The person's answer to a dialog, shown on the transcript; nullopt for a
// cancel (nothing queued, or "Cancel").
std::optional<std::wstring> dialogAnswer(const std::wstring &title) {
  Session &s = session();
  if (!s.atLineStart()) s.print(L"\n");
  s.print(L"[" + title + L"]");
  std::optional<std::wstring> answer = s.nextDialogAnswer();
  s.print(answer ? L" -> " + *answer + L"\n" : std::wstring(L" -> Cancel (no answer queued)\n"));
  if (answer && (text::upcase(*answer) == L"CANCEL" || answer->empty())) return std::nullopt;
  return answer;
}

void refused(const std::wstring &why) {
  session().print(L"  (" + why + L": cancelled)\n");
}

bool isFolder(const std::string &p) {
  std::error_code ec;
  return fs::is_directory(p, ec);
}

bool exists(const std::string &p) {
  std::error_code ec;
  return fs::exists(p, ec);
}

BOOL fileDialog(OPENFILENAMEW *ofn, bool open) {
  dialogError = 0;
  if (!ofn || !ofn->lpstrFile || ofn->nMaxFile == 0) {
    dialogError = 0x0002;  // CDERR_INITIALIZATION
    return FALSE;
  }
  std::wstring title = ofn->lpstrTitle && *ofn->lpstrTitle ? ofn->lpstrTitle : open ? L"Open" : L"Save As";
  std::optional<std::wstring> answer = dialogAnswer(title);
  if (!answer) return FALSE;
  std::wstring base = ofn->lpstrInitialDir ? ofn->lpstrInitialDir : L"";
  std::string path = resolve(*answer, base);
  fs::path p(path);
  if (!p.has_extension() && ofn->lpstrDefExt && *ofn->lpstrDefExt)
    path += "." + text::toUtf8(ofn->lpstrDefExt);
  std::wstring wide = text::fromUtf8(path);
  std::string parent = fs::path(path).parent_path().string();
  if (isFolder(path)) {
    refused(L"\"" + wide + L"\" is a folder");
    return FALSE;
  }
  if ((ofn->Flags & (OFN_PATHMUSTEXIST | OFN_FILEMUSTEXIST)) && !isFolder(parent.empty() ? "/" : parent)) {
    refused(L"the folder of \"" + wide + L"\" does not exist");
    return FALSE;
  }
  if ((ofn->Flags & OFN_FILEMUSTEXIST) && !exists(path)) {
    refused(L"\"" + wide + L"\" does not exist");
    return FALSE;
  }
  if (!open && (ofn->Flags & OFN_OVERWRITEPROMPT) && exists(path)) {
    std::wstring name = text::fromUtf8(fs::path(path).filename().string());
    std::wstring question = name + L" already exists.\nDo you want to replace it?";
    if (MessageBoxW(ofn->hwndOwner, question.c_str(), L"Confirm Save As", MB_YESNO | MB_ICONWARNING) != IDYES)
      return FALSE;
  }
  if (!copyOut(wide, ofn->lpstrFile, ofn->nMaxFile)) {
    dialogError = FNERR_BUFFERTOOSMALL;
    return FALSE;
  }
  size_t slash = wide.find_last_of(L'/');
  ofn->nFileOffset = uint16_t(slash == std::wstring::npos ? 0 : slash + 1);
  size_t dot = wide.find_last_of(L'.');
  ofn->nFileExtension = uint16_t(dot != std::wstring::npos && dot > ofn->nFileOffset ? dot + 1 : 0);
  if (ofn->lpstrFileTitle && ofn->nMaxFileTitle)
    copyOut(wide.substr(ofn->nFileOffset), ofn->lpstrFileTitle, ofn->nMaxFileTitle);
  return TRUE;
}

}  // namespace
}  // namespace vantry::host

using namespace vantry;
using vantry::host::Session;

HRESULT SHGetFolderPathW(HWND, int csidl, HANDLE, DWORD, wchar_t *path) {
  if (path) path[0] = 0;
  std::optional<std::string> folder = host::knownFolder(csidl & 0xff);
  if (!folder) return E_INVALIDARG;
  std::string p = host::withoutClosingSlash(*folder);
  if (!host::isFolder(p)) {
    if (!(csidl & CSIDL_FLAG_CREATE)) return E_FAIL;
    std::error_code ec;
    fs::create_directories(p, ec);
    if (ec) return HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);
  }
  if (!path) return E_INVALIDARG;
  if (!host::copyOut(text::fromUtf8(p), path, MAX_PATH)) return HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER);
  return S_OK;
}

HINSTANCE ShellExecuteW(HWND, const wchar_t *verb, const wchar_t *file, const wchar_t *parameters,
                        const wchar_t *directory, int) {
  auto result = [](intptr_t code) { return reinterpret_cast<HINSTANCE>(code); };
  std::wstring action = text::downcase(verb ? verb : L"");
  if (action.empty()) action = L"open";
  if (action != L"open" && action != L"edit" && action != L"explore") return result(SE_ERR_NOASSOC);
  std::wstring name = file ? file : L"";
  if (name.empty()) return result(ERROR_FILE_NOT_FOUND);
  if (host::isAddress(name)) {
    host::openWithDesktop(name);
    return result(42);
  }
  std::string path = host::resolve(name, directory ? directory : L"");
  if (!host::exists(path)) {
    std::string parent = fs::path(path).parent_path().string();
    return result(host::isFolder(parent.empty() ? "/" : parent) ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND);
  }
  std::wstring wide = text::fromUtf8(path);
  struct stat st {};
  bool program = action == L"open" && stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && (st.st_mode & S_IXUSR);
  if (!program) {
    // Exploring a file shows the folder that holds it.
    if (action == L"explore" && !host::isFolder(path)) wide = text::fromUtf8(fs::path(path).parent_path().string());
    host::openWithDesktop(wide);
    return result(42);
  }
  std::wstring params = parameters ? parameters : L"";
  std::wstring line = wide + (params.empty() ? L"" : L" " + params);
  if (host::haveDesktop()) {
    host::shellLine(L"run " + line);
    std::vector<std::string> command{path};
    for (std::string &w : host::splitParameters(text::toUtf8(params))) command.push_back(std::move(w));
    host::startDetached(command);
  } else {
    host::shellLine(L"would run " + line);
  }
  return result(42);
}

PIDLIST_ABSOLUTE ILCreateFromPathW(const wchar_t *path) {
  if (!path || !*path) return nullptr;
  std::string p = host::resolve(path, L"");
  if (!host::exists(p)) return nullptr;
  return new ITEMIDLIST{text::fromUtf8(p)};
}

void ILFree(PIDLIST_ABSOLUTE pidl) {
  delete pidl;
}

void CoTaskMemFree(void *p) {
  delete static_cast<ITEMIDLIST *>(p);
}

BOOL SHGetPathFromIDListW(PCIDLIST_ABSOLUTE pidl, wchar_t *path) {
  if (!pidl || !path) return FALSE;
  return host::copyOut(pidl->path, path, MAX_PATH);
}

HRESULT SHOpenFolderAndSelectItems(PCIDLIST_ABSOLUTE folder, UINT count, const PCUITEMID_CHILD *items, DWORD) {
  if (!folder || (count && !items)) return E_INVALIDARG;
  std::wstring shown, in;
  if (count == 0) {
    shown = folder->path;
    in = text::fromUtf8(fs::path(text::toUtf8(folder->path)).parent_path().string());
  } else {
    in = folder->path;
    for (UINT i = 0; i < count; ++i) {
      if (!items[i]) return E_INVALIDARG;
      shown += (i ? L", " : L"") + items[i]->path;
    }
  }
  if (host::haveDesktop()) {
    host::shellLine(L"show " + shown + L" in " + in);
    host::startDetached({"xdg-open", text::toUtf8(in)});
  } else {
    host::shellLine(L"would show " + shown + L" in " + in);
  }
  return S_OK;
}

PIDLIST_ABSOLUTE SHBrowseForFolderW(BROWSEINFOW *info) {
  if (!info) return nullptr;
  host::browsing = true;
  host::browseStart = info->pidlRoot ? info->pidlRoot->path : L"";
  if (info->lpfn) info->lpfn(host::kBrowseDialog, BFFM_INITIALIZED, 0, info->lParam);
  host::browsing = false;
  std::wstring title = info->lpszTitle && *info->lpszTitle ? info->lpszTitle : L"Browse For Folder";
  std::optional<std::wstring> answer = host::dialogAnswer(title);
  if (!answer) return nullptr;
  std::string path = host::resolve(*answer, host::browseStart);
  if (!host::isFolder(path)) {
    host::refused(L"\"" + text::fromUtf8(path) + L"\" is not a folder");
    return nullptr;
  }
  if (info->pszDisplayName) {
    std::string name = fs::path(path).filename().string();
    host::copyOut(text::fromUtf8(name.empty() ? path : name), info->pszDisplayName, MAX_PATH);
  }
  return new ITEMIDLIST{text::fromUtf8(path)};
}

LRESULT SendMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (window != host::kBrowseDialog || !host::browsing) return 0;
  if (message == BFFM_SETSELECTIONW && wParam && lParam) {
    host::browseStart = reinterpret_cast<const wchar_t *>(lParam);
    return 1;
  }
  return 0;
}

BOOL GetOpenFileNameW(OPENFILENAMEW *ofn) {
  return host::fileDialog(ofn, true);
}

BOOL GetSaveFileNameW(OPENFILENAMEW *ofn) {
  return host::fileDialog(ofn, false);
}

DWORD CommDlgExtendedError() {
  return host::dialogError;
}
