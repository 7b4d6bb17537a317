// The few operating-system services of the host's platform that the module
// uses, under the platform's own names: message boxes, the active window,
// beeps, the named mutex, the last error and COM start-up. On the host's platform this header
// would be the platform's own; here the stand-in answers them headless:
// message boxes are shown on the transcript and answered from the dialog
// queue, beeps are written to the transcript, mutexes live in a name table
// that tests can inspect.
#pragma once

#include <cstdint>

typedef void *HWND;
typedef void *HANDLE;
typedef int BOOL;
typedef unsigned int UINT;
typedef unsigned long DWORD;
typedef int32_t HRESULT;  // 32 bits, as on the platform: failures are negative

#ifndef TRUE
#define TRUE 1
#define FALSE 0
#endif

#define S_OK ((HRESULT)0L)
#define S_FALSE ((HRESULT)1L)
#define E_FAIL ((HRESULT)0x80004005)
#define E_NOINTERFACE ((HRESULT)0x80004002)
#define REGDB_E_CLASSNOTREG ((HRESULT)0x80040154)
#define SUCCEEDED(hr) (((HRESULT)(hr)) >= 0)
#define FAILED(hr) (((HRESULT)(hr)) < 0)

// Message box styles and answers.
enum : UINT {
  MB_OK = 0x0,
  MB_OKCANCEL = 0x1,
  MB_ABORTRETRYIGNORE = 0x2,
  MB_YESNOCANCEL = 0x3,
  MB_YESNO = 0x4,
  MB_RETRYCANCEL = 0x5,
  MB_ICONHAND = 0x10,
  MB_ICONERROR = 0x10,
  MB_ICONQUESTION = 0x20,
  MB_ICONEXCLAMATION = 0x30,
  MB_ICONWARNING = 0x30,
  MB_ICONASTERISK = 0x40,
  MB_ICONINFORMATION = 0x40,
  MB_DEFBUTTON2 = 0x100,
  MB_DEFBUTTON3 = 0x200,
  MB_SYSTEMMODAL = 0x1000,
  MB_TASKMODAL = 0x2000,
};
enum : int {
  IDOK = 1,
  IDCANCEL = 2,
  IDABORT = 3,
  IDRETRY = 4,
  IDIGNORE = 5,
  IDYES = 6,
  IDNO = 7,
};

// Shows a message box; the answer comes from the dialog queue. With nothing
// queued the box is answered as the person closing it would (IDCANCEL where
// the box has a Cancel button, IDNO for Yes/No, else its first button).
// While the box is up it is the active window; when it closes, activation
// goes back to its owner, or to no window at all when it has none.
int MessageBoxW(HWND owner, const wchar_t *text, const wchar_t *caption, UINT type);

// The window that has the keyboard focus of this program. The host has one
// main window, active when the session starts; there are no others, so
// SetActiveWindow accepts that handle (or null, activating nothing) and
// answers the window that was active before. Any other handle fails: null,
// with ERROR_INVALID_WINDOW_HANDLE as the last error.
HWND GetActiveWindow();
HWND SetActiveWindow(HWND window);
#define ERROR_INVALID_WINDOW_HANDLE 1400
// A window's caption, enabled state and place in the z-order. The host's
// main window is the only window; any other handle fails with
// ERROR_INVALID_WINDOW_HANDLE. EnableWindow answers nonzero when the window
// was disabled before. GetWindowTextW copies at most maxCount - 1
// characters and a closing null and answers the number copied.
BOOL EnableWindow(HWND window, BOOL enable);
BOOL IsWindowEnabled(HWND window);
int GetWindowTextW(HWND window, wchar_t *buffer, int maxCount);
int GetWindowTextLengthW(HWND window);
BOOL SetWindowTextW(HWND window, const wchar_t *text);
// Only the z-order is kept: HWND_BOTTOM puts the window behind every other,
// HWND_TOP and HWND_TOPMOST bring it forward. Unless SWP_NOACTIVATE is
// given the window also becomes the active one. Position and size are
// ignored.
#define HWND_TOP ((HWND)0)
#define HWND_BOTTOM ((HWND)1)
#define HWND_TOPMOST ((HWND)-1)
#define HWND_NOTOPMOST ((HWND)-2)
enum : UINT {
  SWP_NOSIZE = 0x1,
  SWP_NOMOVE = 0x2,
  SWP_NOZORDER = 0x4,
  SWP_NOACTIVATE = 0x10,
};
BOOL SetWindowPos(HWND window, HWND insertAfter, int x, int y, int cx, int cy, UINT flags);
BOOL MessageBeep(UINT type);
BOOL Beep(DWORD frequency, DWORD duration);

// Named mutexes: the handle is a token; the name stays registered for the
// life of the process, as a mutex whose handle is never closed does.
HANDLE CreateMutexW(void *attributes, BOOL initialOwner, const wchar_t *name);
// The machine's name. *size holds the buffer's length in characters; on
// success it becomes the name's length. A buffer too small fails
// (ERROR_BUFFER_OVERFLOW) as on the platform.
BOOL GetComputerNameW(wchar_t *buffer, DWORD *size);
#define ERROR_BUFFER_OVERFLOW 111
#define MAX_COMPUTERNAME_LENGTH 15

DWORD GetLastError();
void SetLastError(DWORD code);

HRESULT CoInitialize(void *reserved);
void CoUninitialize();

// --- COM: just enough to create and drive an automation object ---------------

struct GUID {
  uint32_t Data1;
  uint16_t Data2, Data3;
  uint8_t Data4[8];
};
typedef GUID IID;
typedef GUID CLSID;
inline bool IsEqualGUID(const GUID &a, const GUID &b) {
  if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) return false;
  for (int i = 0; i < 8; ++i)
    if (a.Data4[i] != b.Data4[i]) return false;
  return true;
}

enum : DWORD {
  CLSCTX_INPROC_SERVER = 0x1,
  CLSCTX_INPROC_HANDLER = 0x2,
  CLSCTX_LOCAL_SERVER = 0x4,
  CLSCTX_REMOTE_SERVER = 0x10,
  CLSCTX_ALL = 0x17,
};

extern const IID IID_IUnknown;
extern const IID IID_IDispatch;

struct IUnknown {
  virtual HRESULT QueryInterface(const IID &riid, void **ppv) = 0;
  virtual unsigned long AddRef() = 0;
  virtual unsigned long Release() = 0;

 protected:
  ~IUnknown() = default;
};

// The automation base operations. Their arguments are those of the
// platform's; this host's automation objects answer them with E_NOTIMPL.
struct IDispatch : IUnknown {
  virtual HRESULT GetTypeInfoCount(UINT *count) = 0;
  virtual HRESULT GetTypeInfo(UINT index, DWORD lcid, void **info) = 0;
  virtual HRESULT GetIDsOfNames(const IID &riid, wchar_t **names, UINT count, DWORD lcid, long *ids) = 0;
  virtual HRESULT Invoke(long id, const IID &riid, DWORD lcid, uint16_t flags, void *params, void *result,
                         void *excepInfo, UINT *argErr) = 0;

 protected:
  ~IDispatch() = default;
};

#define E_NOTIMPL ((HRESULT)0x80004001)

// Creates an object of a registered class and asks it for an interface.
HRESULT CoCreateInstance(const CLSID &clsid, IUnknown *outer, DWORD clsContext, const IID &riid, void **ppv);

// --- The registry: the user's settings -----------------------------------------
//
// A tree of keys under the predefined roots, each key holding named values
// (the empty name is the key's default value). The stand-in keeps string
// (REG_SZ) and number (REG_DWORD) values and any bytes (REG_BINARY) in a
// settings file of the user's (VANTRY_REGISTRY names it; otherwise
// $XDG_CONFIG_HOME/vantry/registry, else ~/.config/vantry/registry), written
// as a complete new file on every change. Key and value names compare without
// regard to case. A REG_SZ value's size counts its characters and the closing
// null, in bytes of wchar_t. Results are the platform's error codes.
typedef struct HKEY__ *HKEY;
typedef long LONG;
typedef unsigned char BYTE;
#define HKEY_CURRENT_USER ((HKEY)(uintptr_t)0x80000001)
#define HKEY_LOCAL_MACHINE ((HKEY)(uintptr_t)0x80000002)
#define ERROR_SUCCESS 0L
#define ERROR_FILE_NOT_FOUND 2L
#define ERROR_INVALID_HANDLE 6L
#define ERROR_WRITE_FAULT 29L
#define ERROR_INVALID_PARAMETER 87L
#define ERROR_MORE_DATA 234L
enum : DWORD { REG_NONE = 0, REG_SZ = 1, REG_BINARY = 3, REG_DWORD = 4 };
enum : DWORD { KEY_READ = 0x20019, KEY_WRITE = 0x20006, KEY_ALL_ACCESS = 0xF003F };
enum : DWORD { REG_OPTION_NON_VOLATILE = 0 };
enum : DWORD { REG_CREATED_NEW_KEY = 1, REG_OPENED_EXISTING_KEY = 2 };

// Opens (creating it and its parents when missing) a key below an open key;
// the caller closes *result with RegCloseKey.
LONG RegCreateKeyExW(HKEY key, const wchar_t *subKey, DWORD reserved, wchar_t *keyClass, DWORD options,
                     DWORD access, void *security, HKEY *result, DWORD *disposition);
// Opens an existing key; ERROR_FILE_NOT_FOUND when it is missing.
LONG RegOpenKeyExW(HKEY key, const wchar_t *subKey, DWORD options, DWORD access, HKEY *result);
LONG RegCloseKey(HKEY key);
// With data null, *size becomes the value's size; a buffer smaller than the
// value answers ERROR_MORE_DATA with *size set to what is needed.
LONG RegQueryValueExW(HKEY key, const wchar_t *name, DWORD *reserved, DWORD *type, BYTE *data, DWORD *size);
LONG RegSetValueExW(HKEY key, const wchar_t *name, DWORD reserved, DWORD type, const BYTE *data, DWORD size);
LONG RegDeleteValueW(HKEY key, const wchar_t *name);
// The index-th subkey of an open key, in the order of their names;
// ERROR_NO_MORE_ITEMS past the last. *nameSize holds the buffer's length in
// characters and becomes the name's length without the closing null; a
// buffer too small answers ERROR_MORE_DATA. Key names come back upper-cased,
// as the settings file keeps them. The class and time arguments are unused.
#define ERROR_NO_MORE_ITEMS 259L
LONG RegEnumKeyExW(HKEY key, DWORD index, wchar_t *name, DWORD *nameSize, DWORD *reserved, wchar_t *keyClass,
                   DWORD *classSize, void *lastWriteTime);

// --- The shell: known folders, opening files, the common dialogs ---------------
//
// On a desktop (DISPLAY or WAYLAND_DISPLAY set) files and addresses are
// opened with the desktop's opener; headless, nothing is started and the
// transcript says what would have opened. The dialogs are answered by the
// scripted person from the dialog queue; with nothing queued, or the answer
// "Cancel", a dialog is cancelled.
#define MAX_PATH 260
typedef void *HINSTANCE;
typedef intptr_t LPARAM;
typedef uintptr_t WPARAM;
typedef intptr_t LRESULT;
#define E_INVALIDARG ((HRESULT)0x80070057)
#define ERROR_PATH_NOT_FOUND 3
#define ERROR_ACCESS_DENIED 5
#define ERROR_INSUFFICIENT_BUFFER 122
#define ERROR_CANCELLED 1223
#define HRESULT_FROM_WIN32(x) ((HRESULT)(x) <= 0 ? (HRESULT)(x) : (HRESULT)(((x) & 0x0000FFFF) | 0x80070000))

// Known folders by CSIDL. On this system they are the user's folders as
// xdg-user-dir gives them (XDG_<NAME>_DIR in $XDG_CONFIG_HOME/user-dirs.dirs,
// else HOME; HOME/Desktop for the desktop) and the XDG base folders:
//   DESKTOP, DESKTOPDIRECTORY  DESKTOP      PERSONAL          DOCUMENTS
//   MYMUSIC                    MUSIC        MYVIDEO           VIDEOS
//   MYPICTURES                 PICTURES     TEMPLATES         TEMPLATES
//   COMMON_DOCUMENTS           PUBLICSHARE  PROFILE           HOME
//   APPDATA        XDG_CONFIG_HOME (HOME/.config)
//   LOCAL_APPDATA  XDG_DATA_HOME (HOME/.local/share)
//   FONTS          XDG_DATA_HOME/fonts
//   INTERNET_CACHE XDG_CACHE_HOME (HOME/.cache)
//   COMMON_APPDATA the first of XDG_DATA_DIRS (/usr/local/share)
// S_OK with the path (MAX_PATH characters at most, no closing separator);
// E_FAIL when the folder does not exist, unless CSIDL_FLAG_CREATE asks for
// it to be made (with its parents); E_INVALIDARG for a folder this system
// does not have; HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER) for a path
// that does not fit. On failure the path is empty.
enum : int {
  CSIDL_DESKTOP = 0x0000,
  CSIDL_PERSONAL = 0x0005,
  CSIDL_MYDOCUMENTS = 0x0005,
  CSIDL_MYMUSIC = 0x000d,
  CSIDL_MYVIDEO = 0x000e,
  CSIDL_DESKTOPDIRECTORY = 0x0010,
  CSIDL_FONTS = 0x0014,
  CSIDL_TEMPLATES = 0x0015,
  CSIDL_APPDATA = 0x001a,
  CSIDL_LOCAL_APPDATA = 0x001c,
  CSIDL_INTERNET_CACHE = 0x0020,
  CSIDL_COMMON_APPDATA = 0x0023,
  CSIDL_MYPICTURES = 0x0027,
  CSIDL_PROFILE = 0x0028,
  CSIDL_COMMON_DOCUMENTS = 0x002e,
  CSIDL_FLAG_CREATE = 0x8000,
};
#define SHGFP_TYPE_CURRENT 0
HRESULT SHGetFolderPathW(HWND owner, int csidl, HANDLE token, DWORD flags, wchar_t *path);

// Opens, edits or explores a file, folder or address (a name with a scheme:
// "https:", "mailto:", "file:"), or runs a program with parameters. A null
// or "open" verb opens; "edit" and "explore" are the other verbs known.
// Answers a value above 32 on success, else ERROR_FILE_NOT_FOUND,
// ERROR_PATH_NOT_FOUND or SE_ERR_NOASSOC (an unknown verb).
#define SE_ERR_NOASSOC 31
#define SW_SHOWNORMAL 1
HINSTANCE ShellExecuteW(HWND owner, const wchar_t *verb, const wchar_t *file, const wchar_t *parameters,
                        const wchar_t *directory, int show);

// Item identifier lists: here an opaque handle on one absolute path. Made by
// ILCreateFromPathW (null for a path that does not exist) or
// SHBrowseForFolderW, freed with ILFree (or CoTaskMemFree).
struct ITEMIDLIST;
typedef ITEMIDLIST *PIDLIST_ABSOLUTE;
typedef const ITEMIDLIST *PCIDLIST_ABSOLUTE;
typedef const ITEMIDLIST *PCUITEMID_CHILD;
PIDLIST_ABSOLUTE ILCreateFromPathW(const wchar_t *path);
void ILFree(PIDLIST_ABSOLUTE pidl);
void CoTaskMemFree(void *p);
BOOL SHGetPathFromIDListW(PCIDLIST_ABSOLUTE pidl, wchar_t *path);
// Shows the folder's items in the file manager with the given children
// selected; with count 0, opens the folder that holds `folder` and selects
// it there.
HRESULT SHOpenFolderAndSelectItems(PCIDLIST_ABSOLUTE folder, UINT count, const PCUITEMID_CHILD *items,
                                   DWORD flags);

// The folder browser. The callback, when given, is called with
// BFFM_INITIALIZED before the person answers; sending the dialog
// BFFM_SETSELECTIONW (wParam TRUE, lParam a path) then sets the folder it
// starts in, against which a relative answer is taken. The answer must name
// an existing folder; anything else is noted on the transcript and the
// dialog is cancelled. Null on cancel.
typedef int (*BFFCALLBACK)(HWND dialog, UINT message, LPARAM lParam, LPARAM data);
struct BROWSEINFOW {
  HWND hwndOwner;
  PCIDLIST_ABSOLUTE pidlRoot;
  wchar_t *pszDisplayName;  // MAX_PATH characters: the chosen folder's name
  const wchar_t *lpszTitle;
  UINT ulFlags;
  BFFCALLBACK lpfn;
  LPARAM lParam;
  int iImage;
};
enum : UINT { BIF_RETURNONLYFSDIRS = 0x1, BIF_NEWDIALOGSTYLE = 0x40, BIF_EDITBOX = 0x10 };
#define BFFM_INITIALIZED 1
#define WM_USER 0x0400
#define BFFM_SETSELECTIONW (WM_USER + 103)
PIDLIST_ABSOLUTE SHBrowseForFolderW(BROWSEINFOW *info);
// Only the folder browser's BFFM_SETSELECTIONW is understood; 0 otherwise.
LRESULT SendMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

// The open and save dialogs. The filter is pairs of a description and its
// patterns, each closed by a null, the whole closed by another. The answer
// is a path, taken relative to lpstrInitialDir (else the current folder);
// a name without an extension gets lpstrDefExt. OFN_FILEMUSTEXIST and
// OFN_PATHMUSTEXIST refuse an answer that names no existing file or folder
// (noted on the transcript; the dialog is cancelled); OFN_OVERWRITEPROMPT
// asks, through a message box answered from the same queue, before an
// existing file is chosen for saving. FALSE on cancel, with
// CommDlgExtendedError() 0; FALSE with FNERR_BUFFERTOOSMALL when the path
// does not fit nMaxFile.
enum : DWORD {
  OFN_OVERWRITEPROMPT = 0x2,
  OFN_HIDEREADONLY = 0x4,
  OFN_NOCHANGEDIR = 0x8,
  OFN_PATHMUSTEXIST = 0x800,
  OFN_FILEMUSTEXIST = 0x1000,
  OFN_EXPLORER = 0x80000,
};
#define FNERR_BUFFERTOOSMALL 0x3003
struct OPENFILENAMEW {
  DWORD lStructSize;
  HWND hwndOwner;
  HINSTANCE hInstance;
  const wchar_t *lpstrFilter;
  wchar_t *lpstrCustomFilter;
  DWORD nMaxCustFilter;
  DWORD nFilterIndex;
  wchar_t *lpstrFile;
  DWORD nMaxFile;
  wchar_t *lpstrFileTitle;
  DWORD nMaxFileTitle;
  const wchar_t *lpstrInitialDir;
  const wchar_t *lpstrTitle;
  DWORD Flags;
  uint16_t nFileOffset;
  uint16_t nFileExtension;
  const wchar_t *lpstrDefExt;
  LPARAM lCustData;
  void *lpfnHook;
  const wchar_t *lpTemplateName;
  void *pvReserved;
  DWORD dwReserved;
  DWORD FlagsEx;
};
BOOL GetOpenFileNameW(OPENFILENAMEW *ofn);
BOOL GetSaveFileNameW(OPENFILENAMEW *ofn);
DWORD CommDlgExtendedError();

#include "host/automation.h"
