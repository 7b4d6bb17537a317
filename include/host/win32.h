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

#include "host/automation.h"
