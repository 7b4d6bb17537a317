// The grid control: a spreadsheet-like window of rows and typed columns
// (text, number, combo, check, button and tree cells) in which the
// customisation dialogs let a person edit, add and delete records, then
// close with OK or Cancel.
//
// A GridDialog owns its grid and the rules of the table it shows (what a
// cell may hold, what a delete or a button press does, what OK must find).
// It runs modally (run()): the grid is drawn on the command line and the
// person acts on it through the host's modal-window answer
// (host/person.h), one answer of steps per dialog:
//
//   ROW.COLUMN=value   types into a cell, picks a combo item (by its text),
//                      sets a check (0 or 1), or answers a button cell's
//                      chooser
//   ROW.COLUMN         presses a button cell, flips a check, opens or
//                      closes a tree cell
//   add  add=KEY  add=PARENT/KEY
//                      adds a row (under PARENT in a tree), KEY in the
//                      first column
//   delete=ROW         deletes a row (a tree row with the rows under it)
//   OK  accept         closes with OK (refused while the grid breaks a rule)
//   Cancel  cancel     closes with Cancel
//
// ROW is the row's number as drawn (from 1), its first-column text (any
// case), PARENT/KEY for a row under another, or * for the row added last.
// Values may be quoted ("a;b", with \" and \\). A rule that refuses a step
// prints why and the dialog goes on with the next step; a step that cannot
// be done at all (no such row, column or item, bad syntax) cancels the
// dialog, as do steps that run out before OK or Cancel.
//
// Rows keep the record they were loaded from (origin) so that a dialog can
// tell edited, added and deleted records apart when it writes them back.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

struct PersonWindow;

namespace vantry::grid {

// In the order of PersonWindow::CellKind (host/person.h).
enum class CellKind { Text, Number, Combo, Check, Button, Tree };

struct Column {
  std::wstring key;    // what steps name (any case)
  std::wstring title;  // drawn in the header
  CellKind kind = CellKind::Text;
  std::vector<std::wstring> choices;  // a combo's items
  bool readOnly = false;
  int width = 12;  // characters, when drawn
};

struct Row {
  std::vector<std::wstring> cells;  // one per column
  int origin = -1;                  // the loaded record's index; -1 when added
  int parent = -1;                  // a tree row's parent row; -1 at the top
  bool deleted = false;
  bool expanded = true;  // a tree row's children shown
  bool leaf = false;     // a row under another in a tree
  int masked = -1;       // a column drawn as asterisks (a password)
};

class Grid {
 public:
  std::vector<Column> columns;
  std::vector<Row> rows;  // all rows ever, deleted ones included

  int column(const std::wstring &key) const;  // -1 when none
  // Rows as drawn: not deleted, each followed by its children. Numbers in
  // steps count in this order.
  std::vector<int> shownRows() const;
  // The row a step names; -1 when none.
  int findRow(const std::wstring &name, int lastAdded) const;
  std::wstring path(int row) const;  // KEY, or PARENT/KEY
  int addRow(int parent);            // empty cells
  // Marks a row and the rows under it deleted.
  void deleteRow(int row);
  // The grid as the command line shows it: a header, a line per shown row.
  std::wstring draw() const;
};

// What a rule answers: empty when the step may be done, else why not.
using Refusal = std::optional<std::wstring>;

// Thrown by a rule for a step that cannot be done at all (a column that a
// row does not have, an item not in a combo): the dialog is cancelled.
struct CannotDo {
  std::wstring why;
};

class GridDialog {
 public:
  explicit GridDialog(std::wstring title) : title_(std::move(title)) {}
  virtual ~GridDialog() = default;

  Grid grid;
  const std::wstring &title() const { return title_; }

  // Runs the dialog with the person: true for OK, false for Cancel.
  bool run();
  // Runs one answer's steps against the dialog (run() does this with the
  // person's answer); true when they ended with OK.
  bool runSteps(const std::wstring &answer);
  // What the dialog shows as it opens (its rows as drawn), for pictures.
  PersonWindow window() const;

 protected:
  // The rules, for the dialog of each table to give. `value` may be
  // rewritten (a combo item in its own spelling, a number tidied).
  virtual Refusal checkCell(int row, int column, std::wstring &value);
  virtual Refusal checkDelete(int row);
  virtual Refusal checkAdd(int parent);
  virtual void initRow(int row);  // fills a new row's defaults
  virtual Refusal press(int row, int column);  // a button cell
  virtual Refusal checkOk();

 private:
  enum class Outcome { Continue, Ok, Cancel };
  Outcome step(const std::wstring &text, int &lastAdded);
  void refuse(const std::wstring &why);
  std::wstring title_;
};

// Splits an answer into steps at ";" and line breaks outside quotes; each
// step trimmed, quotes kept.
std::vector<std::wstring> splitSteps(const std::wstring &answer);
// A step's value with its quotes taken off and \" \\ read.
std::wstring unquote(const std::wstring &value);
// Case-insensitive equality, as names are compared in the grid.
bool sameName(const std::wstring &a, const std::wstring &b);

}  // namespace vantry::grid
