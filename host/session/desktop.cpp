// The host's main window and its status bar, headless.
//
// The main window (win32.cpp hands out its handle) keeps a caption, an
// enabled state and a place in the z-order, and nothing else: there is no
// screen. Its caption, until someone sets one, is the host's own:
// "<PRODUCT> 2025 - [<current drawing>]".
//
// The status bar shows at most one progress meter. On a terminal it is one
// line drawn in place, "<label> [#####.....]  40%", which is not kept on the
// transcript and gives way to the next text printed (Session::print). On a
// transcript that is not a terminal each visible step is a line:
//   [Progress] <label> 0%
//   [Progress] <label> 40%
//   [Progress] <label> closed
// A step is a change of the whole percentage, so a meter writes at most 101
// lines however many positions it is given.
#include <algorithm>
#include <cstdlib>
#include <string>

#include "session/session.h"
#include "session/internal.h"

namespace vantry::host {
namespace {

struct Window {
  bool captionSet = false;
  std::wstring caption;
  bool enabled = true;
  bool bottom = false;  // behind every other window
};
Window window;

struct Meter {
  bool shown = false;
  std::wstring label;
  int minPos = 0, maxPos = 0, pos = 0;
  int percent = -1;  // as last shown
};
Meter meter;

std::wstring caption() {
  if (window.captionSet) return window.caption;
  Session &s = Session::get();
  std::wstring product = L"AutoCAD";
  auto it = s.sysvars.find(L"PRODUCT");
  if (it != s.sysvars.end() && it->second.restype == RTSTR && it->second.resval.rstring)
    product = it->second.resval.rstring;
  std::wstring text = product + L" 2025";
  if (s.current()) text += L" - [" + std::wstring(s.current()->docTitle()) + L"]";
  return text;
}

bool isMainWindow(HWND w) {
  if (w == mainWindow()) return true;
  SetLastError(ERROR_INVALID_WINDOW_HANDLE);
  return false;
}

int percentOf(const Meter &m) {
  if (m.maxPos == m.minPos) return 100;
  return int((long long)(m.pos - m.minPos) * 100 / ((long long)m.maxPos - m.minPos));
}

void lineOnTranscript(const std::wstring &line) {
  Session &s = Session::get();
  if (!s.atLineStart()) s.print(L"\n");
  s.print(line + L"\n");
}

// Shows the meter's step when its percentage has changed.
void showMeter() {
  int percent = percentOf(meter);
  if (percent == meter.percent) return;
  meter.percent = percent;
  Session &s = Session::get();
  if (s.echoIsTerminal && s.echo) {
    constexpr int kWidth = 30;
    int filled = percent * kWidth / 100;
    std::wstring bar = meter.label + L" [" + std::wstring(size_t(filled), L'#') +
                       std::wstring(size_t(kWidth - filled), L'.') + L"] ";
    std::wstring number = std::to_wstring(percent) + L"%";
    bar += std::wstring(4 - number.size(), L' ') + number;
    // Drawn at the start of a line of its own.
    s.echo((s.statusLine.empty() ? (s.atLineStart() ? L"" : L"\n") : L"\r\033[K") + bar);
    s.statusLine = bar;
    return;
  }
  lineOnTranscript(L"[Progress] " + meter.label + L" " + std::to_wstring(percent) + L"%");
}

void closeMeter() {
  Session &s = Session::get();
  if (!meter.shown) return;
  if (s.echoIsTerminal && s.echo) {
    if (!s.statusLine.empty()) {
      s.echo(L"\r\033[K");
      s.statusLine.clear();
    }
  } else {
    lineOnTranscript(L"[Progress] " + meter.label + L" closed");
  }
  meter = Meter();
}

using lisp::Interp;
using lisp::Value;

// (host:main-window): (("text" . caption) ("enabled" . T) ("z-order" .
// "top") ("active" . T)), as the main window stands.
Value mainWindowFn(Interp &in, const Value *, int nargs) {
  lisp::needArgs(in, nargs, 0, 0);
  lisp::ListBuilder b;
  b.add(lisp::cons(lisp::makeString(L"text"), lisp::makeString(caption())));
  b.add(lisp::cons(lisp::makeString(L"enabled"), in.boolean(window.enabled)));
  b.add(lisp::cons(lisp::makeString(L"z-order"), lisp::makeString(window.bottom ? L"bottom" : L"top")));
  b.add(lisp::cons(lisp::makeString(L"active"), in.boolean(GetActiveWindow() == mainWindow())));
  return b.take();
}

// (host:status-bar): (label min max position) of the meter shown, or nil.
Value statusBarFn(Interp &in, const Value *, int nargs) {
  lisp::needArgs(in, nargs, 0, 0);
  if (!meter.shown) return Value();
  lisp::ListBuilder b;
  b.add(lisp::makeString(meter.label));
  b.add(Value::integer(meter.minPos));
  b.add(Value::integer(meter.maxPos));
  b.add(Value::integer(meter.pos));
  return b.take();
}

}  // namespace

void resetDesktop() {
  window = Window();
  meter = Meter();
  Session::get().statusLine.clear();
}

bool haveDesktop() {
  auto set = [](const char *name) {
    const char *v = std::getenv(name);
    return v && *v;
  };
  return set("DISPLAY") || set("WAYLAND_DISPLAY");
}

void installDesktopLisp(lisp::Interp &in) {
  in.defineSubr(L"host:main-window", mainWindowFn);
  in.defineSubr(L"host:status-bar", statusBarFn);
}

}  // namespace vantry::host

using vantry::host::Session;

HWND adsw_acadMainWnd() {
  return vantry::host::mainWindow();
}

int acedSetStatusBarProgressMeter(const ACHAR *label, int minPos, int maxPos) {
  using namespace vantry::host;
  if (maxPos < minPos) return -1;
  closeMeter();
  meter.shown = true;
  meter.label = label ? label : L"";
  meter.minPos = meter.pos = minPos;
  meter.maxPos = maxPos;
  meter.percent = -1;
  showMeter();
  return 0;
}

int acedSetStatusBarProgressMeterPos(int pos) {
  using namespace vantry::host;
  if (!meter.shown) return -1;
  meter.pos = pos < meter.minPos ? meter.minPos : pos > meter.maxPos ? meter.maxPos : pos;
  showMeter();
  return 0;
}

void acedRestoreStatusBar() {
  vantry::host::closeMeter();
}

BOOL EnableWindow(HWND w, BOOL enable) {
  using namespace vantry::host;
  if (!isMainWindow(w)) return FALSE;
  BOOL wasDisabled = !window.enabled;
  window.enabled = enable != FALSE;
  return wasDisabled;
}

BOOL IsWindowEnabled(HWND w) {
  using namespace vantry::host;
  return isMainWindow(w) && window.enabled;
}

int GetWindowTextW(HWND w, wchar_t *buffer, int maxCount) {
  using namespace vantry::host;
  if (!isMainWindow(w) || !buffer || maxCount <= 0) return 0;
  std::wstring text = caption();
  size_t n = std::min(text.size(), size_t(maxCount - 1));
  text.copy(buffer, n);
  buffer[n] = 0;
  return int(n);
}

int GetWindowTextLengthW(HWND w) {
  using namespace vantry::host;
  return isMainWindow(w) ? int(caption().size()) : 0;
}

BOOL SetWindowTextW(HWND w, const wchar_t *text) {
  using namespace vantry::host;
  if (!isMainWindow(w)) return FALSE;
  window.captionSet = true;
  window.caption = text ? text : L"";
  return TRUE;
}

BOOL SetWindowPos(HWND w, HWND insertAfter, int, int, int, int, UINT flags) {
  using namespace vantry::host;
  if (!isMainWindow(w)) return FALSE;
  if (flags & SWP_NOZORDER) return TRUE;
  if (insertAfter == HWND_BOTTOM)
    window.bottom = true;
  else if (insertAfter == HWND_TOP || insertAfter == HWND_TOPMOST)
    window.bottom = false;
  if (!(flags & SWP_NOACTIVATE)) SetActiveWindow(w);
  return TRUE;
}
