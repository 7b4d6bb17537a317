// A module's own modal windows answered by the scripted person
// (include/host/person.h): one queued dialog answer per window shown.
#include "host/person.h"

#include "session/session.h"
#include "session/windows.h"

namespace vantry::host {
namespace {
WindowObserver observer;
}

void setWindowObserver(WindowObserver o) {
  observer = std::move(o);
}

}  // namespace vantry::host

bool acedPersonAnswer(const wchar_t *caption, std::wstring *answer) {
  using vantry::host::Session;
  Session &s = Session::get();
  std::wstring title = caption ? caption : L"";
  if (!s.atLineStart()) s.print(L"\n");
  std::optional<std::wstring> next = s.nextDialogAnswer();
  if (!next) {
    s.print(L"[" + title + L"] -> Cancel (no answer queued)\n");
    return false;
  }
  s.print(L"[" + title + L"] " + *next + L"\n");
  if (answer) *answer = *next;
  return true;
}

bool acedPersonAnswer(const PersonWindow &window, std::wstring *answer) {
  if (vantry::host::observer) vantry::host::observer(window);
  return acedPersonAnswer(window.caption.c_str(), answer);
}
