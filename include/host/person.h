// The person at a module's own modal window (one the module draws itself,
// such as its grid dialogs) on the host's platform.
//
// On the platform the window would take the mouse and keyboard until the
// person closes it. Headless, the window is announced on the transcript as
//   [<caption>] <answer>
// and the person's next queued dialog answer (host:queue-dialog, vantry
// --dialog) is handed to the window as text, steps that the window reads in
// its own terms. With nothing queued the person closes the window:
//   [<caption>] -> Cancel (no answer queued)
// and the call answers false. One answer is taken per call.
#pragma once

#include <string>

bool acedPersonAnswer(const wchar_t *caption, std::wstring *answer);
