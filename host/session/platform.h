// What the headless platform layer (win32.cpp) lets tests see of the windows
// it pretends to have: the host's main window, and the owner of the last
// message box. Neither the module nor the LISP core includes this header.
#pragma once

#include "host/win32.h"

namespace vantry::host {

// The handle of the host's main window; the same for the whole process.
HWND mainWindow();
// The owner passed to the last MessageBoxW of the session (null when it had
// none, or when no box was shown since the session was reset).
HWND lastMessageBoxOwner();
// The style flags (MB_...) of the last message box.
UINT lastMessageBoxType();
// How many message boxes the session has shown.
int messageBoxCount();

}  // namespace vantry::host
