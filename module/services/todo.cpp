// The to-do drawing, and asking before going on.
//
// A LISP program that must go on in another drawing (one it is about to
// open, perhaps after the host starts again) leaves a to-do: the drawing and
// a LISP function to call there. The product's start-up LISP of every
// drawing calls ol_ol-executeToDo, which runs the to-do once the drawing it
// names is the current one. The to-do is kept in the settings under
// HKEY_CURRENT_USER\Software\Vantry\ToDo ("Drawing", "Function"), so that
// it outlives the session.
//
//   (ol_ol-setToDoDrawing path [function])  T; nil as the path clears it
//   (ol_ol-getToDoDrawing)                  the drawing, or nil
//   (ol_ol-executeToDo)                     T when the to-do ran, else nil
//   (ol_ol-safeContinue message)            T when the person goes on
#include <filesystem>

#include "common/text.h"
#include "frame/implementations.h"
#include "frame/value_list.h"
#include "host/arx.h"
#include "services/services.h"

namespace vantry::lispfn {
namespace {

constexpr const wchar_t *kToDoKey = L"Software\\Vantry\\ToDo";

bool clearToDo() {
  HKEY k;
  LONG rc = RegOpenKeyExW(HKEY_CURRENT_USER, kToDoKey, 0, KEY_WRITE, &k);
  if (rc == ERROR_FILE_NOT_FOUND) return true;
  if (rc != ERROR_SUCCESS) return false;
  bool ok = true;
  for (const wchar_t *name : {L"Drawing", L"Function"}) {
    rc = RegDeleteValueW(k, name);
    ok = ok && (rc == ERROR_SUCCESS || rc == ERROR_FILE_NOT_FOUND);
  }
  RegCloseKey(k);
  return ok;
}

// A drawing's path as the documents know it: absolute, with "/" and "\"
// both read as separators, ".." resolved; compared in any case.
std::wstring drawingKey(const std::wstring &path) {
  std::error_code ec;
  std::filesystem::path p = std::filesystem::absolute(text::nativePath(path), ec);
  return text::upcase(text::fromUtf8(p.lexically_normal().string()));
}

}  // namespace

int ol_ol_setToDoDrawing() {
  acedRetNil();
  frame::ArgList args;
  resbuf *&cur = args.cursor();
  if (cur && cur->restype == RTNIL) {
    if (!clearToDo()) services::tell(L"ol_ol-setToDoDrawing: the to-do could not be cleared in the settings.");
    return 0;
  }
  std::wstring path, function;
  if (!frame::readString(cur, path)) return 2;
  if (cur && cur->restype != RTNIL && !frame::readString(cur, function)) return 2;
  if (path.empty()) return 3;
  std::error_code ec;
  std::wstring full = text::fromUtf8(std::filesystem::absolute(text::nativePath(path), ec).lexically_normal().string());
  // Nothing half written: a write that fails puts the old to-do back.
  std::optional<std::wstring> oldDrawing = services::readSetting(kToDoKey, L"Drawing");
  std::optional<std::wstring> oldFunction = services::readSetting(kToDoKey, L"Function");
  if (!clearToDo() || (!function.empty() && !services::writeSetting(kToDoKey, L"Function", function)) ||
      !services::writeSetting(kToDoKey, L"Drawing", full)) {
    clearToDo();
    if (oldFunction) services::writeSetting(kToDoKey, L"Function", *oldFunction);
    if (oldDrawing) services::writeSetting(kToDoKey, L"Drawing", *oldDrawing);
    services::tell(L"ol_ol-setToDoDrawing: the to-do could not be kept in the settings.");
    return 0;
  }
  acedRetT();
  return 0;
}

int ol_ol_getToDoDrawing() {
  acedRetNil();
  frame::ArgList args;
  std::optional<std::wstring> drawing = services::readSetting(kToDoKey, L"Drawing");
  if (drawing && !drawing->empty()) acedRetStr(drawing->c_str());
  return 0;
}

int ol_ol_executeToDo() {
  acedRetNil();
  frame::ArgList args;
  std::optional<std::wstring> drawing = services::readSetting(kToDoKey, L"Drawing");
  if (!drawing || drawing->empty()) return 0;
  AcApDocument *doc = acDocManager->curDocument();
  const ACHAR *name = doc ? doc->fileName() : nullptr;
  if (!name || !*name || drawingKey(name) != drawingKey(*drawing)) return 0;
  std::wstring function = services::readSetting(kToDoKey, L"Function").value_or(L"");
  // Cleared before it runs: a to-do runs once, even when it fails.
  if (!clearToDo()) {
    services::tell(L"ol_ol-executeToDo: the to-do could not be cleared in the settings, so it was not run.");
    return 0;
  }
  if (!function.empty()) {
    resbuf *call = acutBuildList(RTSTR, function.c_str(), RTNONE);
    resbuf *result = nullptr;
    int rc = acedInvoke(call, &result);
    acutRelRb(call);
    if (result) acutRelRb(result);
    if (rc != RTNORM) {
      services::tell(L"ol_ol-executeToDo: the to-do function " + function + L" failed in " + *drawing + L".");
      return 0;
    }
  }
  acedRetT();
  return 0;
}

int ol_ol_safeContinue() {
  acedRetNil();
  frame::ArgList args;
  std::wstring message;
  if (!frame::readString(args.cursor(), message)) return 2;
  std::wstring text = message.empty() ? L"Do you want to continue?" : message + L"\n\nDo you want to continue?";
  HWND active = GetActiveWindow();
  int answer = MessageBoxW(active, text.c_str(), L"Orlec", MB_YESNO | MB_ICONWARNING | MB_DEFBUTTON2);
  SetActiveWindow(active);
  if (answer == IDYES) acedRetT();
  return 0;
}

}  // namespace vantry::lispfn
