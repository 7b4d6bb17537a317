// The platform services of include/host/win32.h, answered headless.
//
// A message box is written to the transcript as
//   [<caption>] <text>
//     <Yes> <No>: No (no answer queued)
// and answered from the dialog queue. A queued answer names a button
// ("OK", "Cancel", "Yes", "No", "Abort", "Retry", "Ignore", any case); an
// answer that is not a button of the box is consumed, noted, and the box
// takes its default. The default is what closing the box gives: IDCANCEL
// when it has a Cancel button, IDNO for Yes/No, IDABORT for
// Abort/Retry/Ignore, IDOK for OK. Beeps are a line on the transcript and are
// counted. The last error is per thread, as on the platform.
//
// Windows: the host has one main window, active from the start. A message
// box takes the activation while it is up and hands it back to its owner when
// it closes; a box without an owner leaves no window active, which is why a
// caller that owns its box to the active window gets that window back.
#include <algorithm>
#include <string>
#include <vector>

#include "session/session.h"
#include "session/internal.h"

namespace vantry::host {
namespace {

constexpr DWORD kErrorAlreadyExists = 183;

thread_local DWORD lastError = 0;
int comInits = 0;
int beeps = 0;

// The main window's handle: a token that no allocation can return.
HWND const kMainWindow = reinterpret_cast<HWND>(static_cast<uintptr_t>(0x10010));
HWND activeWindow = kMainWindow;
HWND boxOwner = nullptr;
UINT boxType = 0;
int boxes = 0;

struct Button {
  const wchar_t *name;
  int id;
};

std::vector<Button> buttonsOf(UINT type) {
  switch (type & 0xF) {
    case MB_OKCANCEL:
      return {{L"OK", IDOK}, {L"Cancel", IDCANCEL}};
    case MB_ABORTRETRYIGNORE:
      return {{L"Abort", IDABORT}, {L"Retry", IDRETRY}, {L"Ignore", IDIGNORE}};
    case MB_YESNOCANCEL:
      return {{L"Yes", IDYES}, {L"No", IDNO}, {L"Cancel", IDCANCEL}};
    case MB_YESNO:
      return {{L"Yes", IDYES}, {L"No", IDNO}};
    case MB_RETRYCANCEL:
      return {{L"Retry", IDRETRY}, {L"Cancel", IDCANCEL}};
    default:
      return {{L"OK", IDOK}};
  }
}

const Button &defaultButton(const std::vector<Button> &buttons) {
  for (const Button &b : buttons)
    if (b.id == IDCANCEL) return b;
  for (const Button &b : buttons)
    if (b.id == IDNO) return b;
  return buttons.front();
}

}  // namespace

void resetPlatform() {
  lastError = 0;
  comInits = 0;
  beeps = 0;
  activeWindow = kMainWindow;
  boxOwner = nullptr;
  boxType = 0;
  boxes = 0;
}

HWND mainWindow() {
  return kMainWindow;
}
HWND lastMessageBoxOwner() {
  return boxOwner;
}
UINT lastMessageBoxType() {
  return boxType;
}
int messageBoxCount() {
  return boxes;
}

int comInitCount() {
  return comInits;
}
int beepCount() {
  return beeps;
}

}  // namespace vantry::host

using vantry::host::Session;

int MessageBoxW(HWND owner, const wchar_t *text, const wchar_t *caption, UINT type) {
  using namespace vantry::host;
  Session &s = Session::get();
  boxOwner = owner;
  boxType = type;
  ++boxes;
  // The box is active while it is up; closing it activates its owner.
  activeWindow = owner;
  std::vector<Button> buttons = buttonsOf(type);
  std::wstring shown;
  for (const Button &b : buttons) shown += std::wstring(L"<") + b.name + L"> ";
  if (!s.atLineStart()) s.print(L"\n");
  s.print(L"[" + std::wstring(caption ? caption : L"Error") + L"] " + (text ? text : L"") + L"\n");
  s.print(L"  " + shown.substr(0, shown.size() - 1) + L": ");

  const Button &fallback = defaultButton(buttons);
  std::optional<std::wstring> answer = s.nextDialogAnswer();
  if (!answer) {
    s.print(std::wstring(fallback.name) + L" (no answer queued)\n");
    return fallback.id;
  }
  std::wstring wanted = vantry::text::upcase(*answer);
  for (const Button &b : buttons) {
    if (vantry::text::upcase(b.name) == wanted) {
      s.print(std::wstring(b.name) + L"\n");
      return b.id;
    }
  }
  s.print(std::wstring(fallback.name) + L" (\"" + *answer + L"\" is not a button of this box)\n");
  return fallback.id;
}

HWND GetActiveWindow() {
  return vantry::host::activeWindow;
}

HWND SetActiveWindow(HWND window) {
  using namespace vantry::host;
  if (window && window != kMainWindow) {
    lastError = ERROR_INVALID_WINDOW_HANDLE;
    return nullptr;
  }
  HWND before = activeWindow;
  activeWindow = window;
  return before;
}

BOOL MessageBeep(UINT) {
  ++vantry::host::beeps;
  Session::get().print(Session::get().atLineStart() ? L"[Beep]\n" : L"\n[Beep]\n");
  return TRUE;
}

BOOL Beep(DWORD, DWORD) {
  return MessageBeep(0);
}

// Named mutexes stay registered for the life of the session; a second
// creation of the same name answers a handle and ERROR_ALREADY_EXISTS, as the
// platform does when another holder of the name is alive.
HANDLE CreateMutexW(void *, BOOL, const wchar_t *name) {
  static uintptr_t next = 0x100;
  HANDLE token = reinterpret_cast<HANDLE>(next += 4);
  vantry::host::lastError = 0;
  if (!name) return token;
  auto &names = Session::get().mutexes;
  if (std::find(names.begin(), names.end(), name) != names.end())
    vantry::host::lastError = vantry::host::kErrorAlreadyExists;
  else
    names.push_back(name);
  return token;
}

DWORD GetLastError() {
  return vantry::host::lastError;
}
void SetLastError(DWORD code) {
  vantry::host::lastError = code;
}

// S_OK the first time, S_FALSE when already initialised, as on the platform.
HRESULT CoInitialize(void *) {
  return vantry::host::comInits++ == 0 ? S_OK : S_FALSE;
}

void CoUninitialize() {
  if (vantry::host::comInits > 0) --vantry::host::comInits;
}
