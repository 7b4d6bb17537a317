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
//
// A window may say what it shows (PersonWindow), so that the runner can
// draw it as a picture (vantry --window-pictures DIR).
#pragma once

#include <string>
#include <vector>

// What a module's window shows when it opens: a text, a grid, buttons.
struct PersonWindow {
  enum CellKind { kText, kNumber, kCombo, kCheck, kButton, kTree };
  struct Column {
    std::wstring title;
    int width = 12;  // characters
    CellKind kind = kText;
  };
  struct Row {
    std::vector<std::wstring> cells;  // as drawn (a check: "1" or "0")
    int number = 0;                   // as steps name it
    bool child = false;               // a tree row under another
    int box = 0;                      // a tree row's box: 1 open, -1 closed, 0 none
  };
  std::wstring caption;
  std::wstring text;  // above the grid; may be empty
  std::vector<Column> columns;
  std::vector<Row> rows;
  std::vector<std::wstring> buttons;  // the first is the default
};

bool acedPersonAnswer(const wchar_t *caption, std::wstring *answer);
bool acedPersonAnswer(const PersonWindow &window, std::wstring *answer);
