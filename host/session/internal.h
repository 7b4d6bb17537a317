// Wiring between the stand-in's own files, behind host/session/session.h.
//
// Session::reset() in documents.cpp puts every part of the stand-in back to
// a fresh process; the parts that keep state outside Session (the platform's
// counters, the pending initget, the class registry's built-ins) expose their
// reset here. installHostFunctions() gathers the LISP built-ins that live in
// the files of the part they belong to (getvar/setvar beside the system
// variables, alert beside the command line). Neither the module nor the LISP
// core includes this header.
#pragma once

#include <cstdarg>
#include <string>
#include <string_view>
#include <vector>

#include "host/arx.h"
#include "lisp/lisp.h"

namespace vantry::host {

class Document;

// --- System variables (sysvars.cpp)
// Clears Session::sysvars and seeds the variables a script expects.
void seedSystemVariables();
// Sets a variable whatever its access, for the host's own bookkeeping
// (DWGNAME, DWGPREFIX, LASTPOINT, CLAYER from -LAYER) and for tests. Creates
// it when unknown. A drawing variable goes to the working drawing, which
// ignores a value it cannot hold (a missing layer, a value of another type).
void setSystemString(const std::wstring &name, std::wstring_view value);
void setSystemValue(const std::wstring &name, const resbuf &value);
// Appends to the command-line log (LOGFILENAME) while LOGFILEON is 1.
void appendToCommandLog(std::wstring_view text);
// ACADPREFIX split at ";" (the host's support directories).
std::vector<std::wstring> supportDirectories();
// getvar and setvar.
void installSystemVariableLisp(lisp::Interp &in);
// The documented variables, one row a line (sysvar_table.cpp).
extern const char *const kSystemVariableTable;

// --- Command line (console.cpp)
// The text acutPrintf prints for a format and its arguments.
std::wstring formatHostPrintf(const wchar_t *format, va_list args);
// alert.
void installAlertLisp(lisp::Interp &in);

// --- Registry (registry.cpp): vl-registry-read, -write, -delete.
void installRegistryLisp(lisp::Interp &in);
// Forgets the settings read so far: the next use reads the settings file
// again (for tests of what the file keeps).
void reloadRegistry();

// --- Platform (win32.cpp): the windows the headless platform pretends to
// have, as tests see them.
void resetPlatform();
// The handle of the host's main window; the same for the whole process.
HWND mainWindow();
// The owner passed to the last MessageBoxW of the session (null when it had
// none, or when no box was shown since the session was reset).
HWND lastMessageBoxOwner();
// The style flags (MB_...) of the last message box.
UINT lastMessageBoxType();
// How many message boxes the session has shown.
int messageBoxCount();
// CoInitialize calls not yet matched by CoUninitialize.
int comInitCount();
int beepCount();

// --- The main window, its status bar (desktop.cpp) and the shell
// (shell.cpp): window caption, enabled state and z-order, the progress
// meter, known folders, opening files, the file and folder dialogs.
void resetDesktop();
// Whether files would open on a desktop: DISPLAY or WAYLAND_DISPLAY is set.
bool haveDesktop();
// (host:main-window), (host:status-bar).
void installDesktopLisp(lisp::Interp &in);

// --- Editor input (input.cpp)
// Forgets a pending initget and the last keyword.
void resetEditorInput();

// --- Applications (apps.cpp)
// Sends every loaded module its unload messages and closes it, last loaded first.
void unloadAllModules();

// --- LISP built-ins of the session (lispfns.cpp)
void installSessionBuiltins(lisp::Interp &in);
// The vlax-curve-* functions (lisp_curves.cpp).
void installCurveLisp(lisp::Interp &in);
// command, command-s and vl-cmdf (commands.cpp).
void installCommandLisp(lisp::Interp &in);
// Gives a new document what vl-propagate and vl-load-all promised every
// document; resetSharedLisp forgets those promises, the settings store and
// the pick-first set.
void applySharedLisp(Document &doc);
void resetSharedLisp();

// --- Undo (undo.cpp): each database's record of changes, kept from the
// first use of a command on it. A command is one step, UNDO BEgin to End
// one step (a group), the changes LISP makes between commands one step.
void undoCommandStarts(AcDbDatabase *db, const std::wstring &name);
void undoCommandEnds(AcDbDatabase *db);
void undoBegin(AcDbDatabase *db);
void undoEnd(AcDbDatabase *db);
void undoMark(AcDbDatabase *db);
bool undoHasMark(AcDbDatabase *db);
// Goes back count steps, or to the last mark when count < 0, printing what
// it undid ("Mark encountered", "Everything has been undone").
void undoBack(AcDbDatabase *db, int count);
// UNDOCTL and UNDOMARKS as the record stands.
void undoPublishState(AcDbDatabase *db);

// --- Object snaps (osnap.cpp)
// The OSMODE bits of a list of snap modes ("end,MID,_int", "non"); -1 when
// a name is not a snap mode.
int osnapBits(const std::wstring &modes);
// The snap point nearest to pick for the modes (OSMODE bits) on what the
// aperture around pick touches; from (the last point) is the base of
// perpendicular, tangent and parallel snaps. False when none.
bool osnapPoint(lisp::Interp &in, const AcGePoint3d &pick, int bits, const AcGePoint3d *from, AcGePoint3d &out);
// osnap.
void installOsnapLisp(lisp::Interp &in);

// --- Documents (documents.cpp)
// Turns a file name as LISP or the module writes it into an absolute native
// path, and gives the title (the last component).
std::wstring absolutePath(const std::wstring &path);
std::wstring titleOf(const std::wstring &path);

}  // namespace vantry::host
