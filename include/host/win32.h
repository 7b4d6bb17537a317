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

#include "host/automation.h"
