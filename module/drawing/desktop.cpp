// The host's window and status bar, and the platform's shell, for LISP: the
// progress meter, the main window's enabled state, z-order and caption, the
// user's known folders, opening files, folders and help, and the folder,
// open and save dialogs.
//
// Everything goes through the host's API and the platform's calls (the main
// window is adsw_acadMainWnd()); a failure the platform reports is told on
// the command line in the platform's words and answers nil.
#include <algorithm>
#include <string>
#include <vector>

#include "common/files.h"
#include "frame/implementations.h"
#include "frame/support.h"
#include "frame/value_list.h"

namespace vantry::lispfn {
namespace {

using frame::ArgList;

// An optional string argument: absent or nil leaves out as it is (and gives
// 0), a string is read; anything else is status 2.
int readOptionalString(ArgList &args, std::wstring &out) {
  resbuf *&cur = args.cursor();
  if (!cur) return 0;
  if (cur->restype == RTNIL) {
    frame::skipArgument(cur);
    return 0;
  }
  return frame::readString(cur, out) ? 0 : 2;
}

int readRequiredString(ArgList &args, std::wstring &out) {
  return args.cursor() && frame::readString(args.cursor(), out) ? 0 : 2;
}

// The platform's words for what ShellExecute answers below 33.
const wchar_t *shellFailure(intptr_t code) {
  switch (code) {
    case ERROR_FILE_NOT_FOUND:
      return L"The system cannot find the file specified.";
    case ERROR_PATH_NOT_FOUND:
      return L"The system cannot find the path specified.";
    case ERROR_ACCESS_DENIED:
      return L"Access is denied.";
    case SE_ERR_NOASSOC:
      return L"No application is associated with the specified file for this operation.";
    default:
      return L"The operation could not be completed.";
  }
}

// Opens through the shell; false, having said why, when it cannot.
bool shellOpen(const std::wstring &what, const wchar_t *verb, const wchar_t *parameters,
               const wchar_t *directory) {
  intptr_t code = reinterpret_cast<intptr_t>(
      ShellExecuteW(adsw_acadMainWnd(), verb, what.c_str(), parameters, directory, SW_SHOWNORMAL));
  if (code > 32) return true;
  acutPrintf(L"\nCannot open \"%s\": %s\n", what.c_str(), shellFailure(code));
  return false;
}

// A help file found as given, else in each of the host's support folders
// (ACADPREFIX). Empty when not found.
std::wstring findHelpFile(const std::wstring &name) {
  if (files::isFile(name) || name.find(L"://") != std::wstring::npos) return name;
  return frame::findInSupportFolders(name);
}

bool isFolderPath(const std::wstring &path) {
  PIDLIST_ABSOLUTE pidl = ILCreateFromPathW(path.c_str());
  if (!pidl) return false;
  ILFree(pidl);
  return !files::isFile(path);
}

// The folder browser's start: set when the dialog comes up.
int browseStarts(HWND dialog, UINT message, LPARAM, LPARAM data) {
  if (message == BFFM_INITIALIZED && data) SendMessageW(dialog, BFFM_SETSELECTIONW, TRUE, data);
  return 0;
}

// "Drawings (*.dwg)|*.dwg|All files (*.*)|*.*||" as the platform's filter:
// each "|" a null, closed by two.
std::wstring platformFilter(const std::wstring &filter) {
  std::wstring out = filter;
  while (!out.empty() && out.back() == L'|') out.pop_back();
  if (out.empty()) return std::wstring(2, L'\0');
  for (wchar_t &c : out)
    if (c == L'|') c = L'\0';
  out.push_back(L'\0');
  out.push_back(L'\0');
  return out;
}

}  // namespace

// (acedSetStatusBarProgressMeter label min max): T, the meter shown at min.
// A maximum below the minimum is bad data.
int acedSetStatusBarProgressMeter() {
  acedRetNil();
  ArgList args;
  std::wstring label;
  int minPos, maxPos;
  if (int status = readRequiredString(args, label)) return status;
  if (!frame::readInteger(args.cursor(), minPos) || !frame::readInteger(args.cursor(), maxPos)) return 2;
  if (maxPos < minPos) return 3;
  if (::acedSetStatusBarProgressMeter(label.c_str(), minPos, maxPos) == 0) acedRetT();
  return 0;
}

// (acedSetStatusBarProgressMeterPos position): T, the meter moved (kept
// within its range); nil when no meter is shown.
int acedSetStatusBarProgressMeterPos() {
  acedRetNil();
  ArgList args;
  int pos;
  if (!frame::readInteger(args.cursor(), pos)) return 2;
  if (::acedSetStatusBarProgressMeterPos(pos) == 0) acedRetT();
  return 0;
}

// (acedRestoreStatusBar): nil, the meter gone.
int acedRestoreStatusBar() {
  acedRetNil();
  ArgList args;
  ::acedRestoreStatusBar();
  return 0;
}

// (ol_ol-enableAutoCADWindow), (ol_ol-disableAutoCADWindow): T, the host's
// main window taking the person's input again, or no longer.
int ol_ol_enableAutoCADWindow() {
  acedRetNil();
  ArgList args;
  EnableWindow(adsw_acadMainWnd(), TRUE);
  if (IsWindowEnabled(adsw_acadMainWnd())) acedRetT();
  return 0;
}

int ol_ol_disableAutoCADWindow() {
  acedRetNil();
  ArgList args;
  EnableWindow(adsw_acadMainWnd(), FALSE);
  if (!IsWindowEnabled(adsw_acadMainWnd())) acedRetT();
  return 0;
}

// (ol_ol-sendToBack): T, the host's main window behind every other window,
// without taking the activation.
int ol_ol_sendToBack() {
  acedRetNil();
  ArgList args;
  if (SetWindowPos(adsw_acadMainWnd(), HWND_BOTTOM, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE))
    acedRetT();
  return 0;
}

// (ol_ol-getAcadWindowText): the main window's caption.
int ol_ol_getAcadWindowText() {
  acedRetNil();
  ArgList args;
  HWND main = adsw_acadMainWnd();
  std::vector<wchar_t> text(size_t(GetWindowTextLengthW(main)) + 1);
  GetWindowTextW(main, text.data(), int(text.size()));
  acedRetStr(text.data());
  return 0;
}

// (ol_ol-setAcadWindowText text): the text, now the main window's caption.
int ol_ol_setAcadWindowText() {
  acedRetNil();
  ArgList args;
  std::wstring text;
  if (int status = readRequiredString(args, text)) return status;
  if (SetWindowTextW(adsw_acadMainWnd(), text.c_str())) acedRetStr(text.c_str());
  return 0;
}

// (ol_ol-SHGetFolderPath csidl): the known folder's path, without a closing
// separator; nil when it does not exist (add CSIDL_FLAG_CREATE, 32768, to
// have it made). A number that names no known folder is bad data.
int ol_ol_SHGetFolderPath() {
  acedRetNil();
  ArgList args;
  int csidl;
  if (!args.cursor() || !frame::readInteger(args.cursor(), csidl)) return 2;
  wchar_t path[MAX_PATH];
  HRESULT hr = SHGetFolderPathW(adsw_acadMainWnd(), csidl, nullptr, SHGFP_TYPE_CURRENT, path);
  if (hr == E_INVALIDARG) return 3;
  if (hr == S_OK) acedRetStr(path);
  return 0;
}

// (ol_ol-shellExecute file [parameters [verb [folder]]]): T when the file,
// folder or address is opened ("open", the default, "edit" or "explore"),
// or the program run with its parameters; nil, with the reason on the
// command line, when it cannot be.
int ol_ol_shellExecute() {
  acedRetNil();
  ArgList args;
  std::wstring file, parameters, verb, folder;
  if (int status = readRequiredString(args, file)) return status;
  if (int status = readOptionalString(args, parameters)) return status;
  if (int status = readOptionalString(args, verb)) return status;
  if (int status = readOptionalString(args, folder)) return status;
  if (shellOpen(file, verb.empty() ? nullptr : verb.c_str(), parameters.empty() ? nullptr : parameters.c_str(),
                folder.empty() ? nullptr : folder.c_str()))
    acedRetT();
  return 0;
}

// (ol_ol-SHOpenFolderAndSelect path): T, the folder that holds the file or
// folder shown with it selected; nil, with the reason, when it is not there.
int ol_ol_SHOpenFolderAndSelect() {
  acedRetNil();
  ArgList args;
  std::wstring path;
  if (int status = readRequiredString(args, path)) return status;
  PIDLIST_ABSOLUTE item = ILCreateFromPathW(path.c_str());
  if (!item) {
    acutPrintf(L"\nCannot show \"%s\": %s\n", path.c_str(), shellFailure(ERROR_FILE_NOT_FOUND));
    return 0;
  }
  HRESULT hr = SHOpenFolderAndSelectItems(item, 0, nullptr, 0);
  ILFree(item);
  if (SUCCEEDED(hr)) acedRetT();
  return 0;
}

// (ol_ol-showHelp file [topic]): T, the help opened: a file (found as given
// or in a support folder), a folder of pages or an address; the topic is a
// page of a folder, else a place in the file or address ("#topic"). nil,
// with the reason, when the help cannot be found or opened.
int ol_ol_showHelp() {
  acedRetNil();
  ArgList args;
  std::wstring file, topic;
  if (int status = readRequiredString(args, file)) return status;
  if (int status = readOptionalString(args, topic)) return status;
  if (file.empty()) return 3;
  std::wstring found = findHelpFile(file);
  bool folder = found.empty() && isFolderPath(file);
  if (found.empty() && !folder) {
    acutPrintf(L"\nCannot find the help file \"%s\".\n", file.c_str());
    return 0;
  }
  std::wstring target = folder ? file : found;
  if (!topic.empty()) {
    if (folder) {
      target += L"/" + topic;
    } else if (target.find(L"://") != std::wstring::npos) {
      target += L"#" + topic;
    } else {
      // A place in a local file is reached through its address.
      PIDLIST_ABSOLUTE item = ILCreateFromPathW(target.c_str());
      wchar_t full[MAX_PATH];
      if (item && SHGetPathFromIDListW(item, full)) target = std::wstring(L"file://") + full + L"#" + topic;
      if (item) ILFree(item);
    }
  }
  if (shellOpen(target, nullptr, nullptr, nullptr)) acedRetT();
  return 0;
}

// (XFolderDialog [title [folder]]): the folder the person chose, starting
// in folder (a relative answer is taken there); nil when they cancel.
int XFolderDialog() {
  acedRetNil();
  ArgList args;
  std::wstring title, start;
  if (int status = readOptionalString(args, title)) return status;
  if (int status = readOptionalString(args, start)) return status;
  wchar_t name[MAX_PATH] = {};
  BROWSEINFOW info{};
  info.hwndOwner = adsw_acadMainWnd();
  info.pszDisplayName = name;
  info.lpszTitle = title.empty() ? nullptr : title.c_str();
  info.ulFlags = BIF_RETURNONLYFSDIRS | BIF_NEWDIALOGSTYLE | BIF_EDITBOX;
  if (!start.empty()) {
    info.lpfn = browseStarts;
    info.lParam = reinterpret_cast<LPARAM>(start.c_str());
  }
  PIDLIST_ABSOLUTE chosen = SHBrowseForFolderW(&info);
  if (!chosen) return 0;
  wchar_t path[MAX_PATH];
  if (SHGetPathFromIDListW(chosen, path)) acedRetStr(path);
  CoTaskMemFree(chosen);
  return 0;
}

// (CFileDialog open [extension [file [filter [title]]]]): the file the
// person chose in an open dialog (open not nil: the file must exist) or a
// save dialog (nil: replacing a file is asked first); nil when they cancel.
// extension goes on a name typed without one; file is the name offered,
// whose folder is where the dialog starts; filter is "Text|*.txt|All|*.*".
int CFileDialog() {
  acedRetNil();
  ArgList args;
  if (!args.cursor()) return 2;
  bool open;
  if (!frame::readBoolean(args.cursor(), open)) return 2;
  std::wstring extension, file, filter, title;
  if (int status = readOptionalString(args, extension)) return status;
  if (int status = readOptionalString(args, file)) return status;
  if (int status = readOptionalString(args, filter)) return status;
  if (int status = readOptionalString(args, title)) return status;
  if (!extension.empty() && extension[0] == L'.') extension.erase(0, 1);

  std::vector<wchar_t> buffer(32768, L'\0');
  std::wstring folder;
  size_t slash = file.find_last_of(L"\\/");
  if (slash != std::wstring::npos) {
    folder = file.substr(0, slash);
    if (folder.empty()) folder = L"/";
  }
  file.copy(buffer.data(), std::min(file.size(), buffer.size() - 1));
  std::wstring platform = platformFilter(filter);
  OPENFILENAMEW ofn{};
  ofn.lStructSize = sizeof ofn;
  ofn.hwndOwner = adsw_acadMainWnd();
  ofn.lpstrFilter = platform.c_str();
  ofn.nFilterIndex = 1;
  ofn.lpstrFile = buffer.data();
  ofn.nMaxFile = DWORD(buffer.size());
  ofn.lpstrInitialDir = folder.empty() ? nullptr : folder.c_str();
  ofn.lpstrTitle = title.empty() ? nullptr : title.c_str();
  ofn.lpstrDefExt = extension.empty() ? nullptr : extension.c_str();
  ofn.Flags = OFN_HIDEREADONLY | OFN_PATHMUSTEXIST | OFN_EXPLORER | OFN_NOCHANGEDIR |
              (open ? OFN_FILEMUSTEXIST : OFN_OVERWRITEPROMPT);
  BOOL chosen = open ? GetOpenFileNameW(&ofn) : GetSaveFileNameW(&ofn);
  if (chosen) {
    acedRetStr(buffer.data());
  } else if (CommDlgExtendedError() == FNERR_BUFFERTOOSMALL) {
    acutPrintf(L"\nThe file name chosen is too long.\n");
  }
  return 0;
}

}  // namespace vantry::lispfn
