// The grid control: how a person's answer splits into steps, how steps name
// rows and cells, and what a tree shows.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "grid/grid.h"
#include "session/session.h"

namespace vantry {
namespace {

using grid::CellKind;

TEST(GridSteps, SplitAtSemicolonsAndLineBreaksOutsideQuotes) {
  struct Case {
    std::wstring answer;
    std::vector<std::wstring> steps;
  } cases[] = {
      {L"a=1; b ;c", {L"a=1", L"b", L"c"}},
      {L"a=1\nb=2\r\n;;", {L"a=1", L"b=2"}},
      {L"x=\"p;q\"; y", {L"x=\"p;q\"", L"y"}},
      {L"x=\"say \\\"hi;\\\"\"; OK", {L"x=\"say \\\"hi;\\\"\"", L"OK"}},
      {L"  ", {}},
  };
  for (const Case &c : cases) EXPECT_EQ(grid::splitSteps(c.answer), c.steps) << std::string(c.answer.begin(), c.answer.end());
}

TEST(GridSteps, UnquoteReadsEscapesAndLeavesBareValues) {
  EXPECT_EQ(grid::unquote(L" \"a;b\" "), L"a;b");
  EXPECT_EQ(grid::unquote(L"\"say \\\"hi\\\" \\\\\""), L"say \"hi\" \\");
  EXPECT_EQ(grid::unquote(L"plain value"), L"plain value");
  EXPECT_EQ(grid::unquote(L"\""), L"\"");
}

// A dialog over a small tree: groups with items under them.
class TreeDialog : public grid::GridDialog {
 public:
  TreeDialog() : GridDialog(L"Tree") {
    grid.columns = {{L"Name", L"Name", CellKind::Tree, {}, false, 10},
                    {L"Kind", L"Kind", CellKind::Combo, {L"Round", L"Square"}, false, 8},
                    {L"On", L"On", CellKind::Check, {}, false, 3}};
    add(-1, L"Ducts");
    add(0, L"A.1");
    add(0, L"B");
    add(-1, L"Pipes");
  }
  int add(int parent, const std::wstring &name) {
    int r = grid.addRow(parent);
    grid.rows[r].cells[0] = name;
    grid.rows[r].cells[2] = L"0";
    return r;
  }

 protected:
  grid::Refusal checkAdd(int) override { return std::nullopt; }
  grid::Refusal checkOk() override {
    for (int r : grid.shownRows())
      if (grid.rows[r].cells[0].empty()) return std::wstring(L"a row has no name");
    return std::nullopt;
  }
};

class GridDialogTest : public ::testing::Test {
 protected:
  GridDialogTest() { host::Session::get().clearTranscript(); }
  std::wstring transcript() { return host::Session::get().transcript(); }
  TreeDialog d;
};

TEST_F(GridDialogTest, RowsAreNamedByNumberKeyPathOrTheLastAdded) {
  EXPECT_EQ(d.grid.findRow(L"1", -1), 0);
  EXPECT_EQ(d.grid.findRow(L"4", -1), 3);  // Pipes: after Ducts' two items
  EXPECT_EQ(d.grid.findRow(L"5", -1), -1);
  EXPECT_EQ(d.grid.findRow(L"0", -1), -1);
  EXPECT_EQ(d.grid.findRow(L"99999999999", -1), -1);
  EXPECT_EQ(d.grid.findRow(L"ducts/a.1", -1), 1);
  EXPECT_EQ(d.grid.findRow(L"A.1", -1), -1);  // an item is named under its group
  EXPECT_EQ(d.grid.findRow(L"*", 2), 2);
  EXPECT_EQ(d.grid.findRow(L"*", -1), -1);
  d.grid.deleteRow(0);
  EXPECT_EQ(d.grid.findRow(L"1", -1), 3) << "a deleted group takes its items out of the count";
  EXPECT_EQ(d.grid.findRow(L"*", 2), -1);
}

TEST_F(GridDialogTest, ACellIsTheTextAfterTheLastDot) {
  EXPECT_TRUE(d.runSteps(L"Ducts/A.1.Kind=square; Ducts/A.1.On; OK"));
  EXPECT_EQ(d.grid.rows[1].cells[1], L"Square") << "a combo item in its own spelling";
  EXPECT_EQ(d.grid.rows[1].cells[2], L"1");
}

TEST_F(GridDialogTest, StepsThatCannotBeDoneCancelAndSayWhich) {
  struct Case {
    std::wstring answer, told;
  } cases[] = {
      {L"1.Kind=Oval; OK", L"cannot do \"1.Kind=Oval\": \"Oval\" is not an item of Kind"},
      {L"9.Kind=Round; OK", L"cannot do \"9.Kind=Round\": no row \"9\""},
      {L"1.Size=3; OK", L"no column \"Size\""},
      {L"1.Kind; OK", L"Kind is not pressed; give it a value"},
      {L"1.On=2; OK", L"a check is 0 or 1"},
      {L"delete; OK", L"delete names a row (delete=ROW)"},
      {L"jump; OK", L"\"jump\": not a step of this dialog"},
      {L"add=Nowhere/X; OK", L"no row \"Nowhere\""},
      {L"add=Ducts/B/C; OK", L"no row \"Ducts/B\""},
  };
  for (const Case &c : cases) {
    TreeDialog fresh;
    host::Session::get().clearTranscript();
    EXPECT_FALSE(fresh.runSteps(c.answer)) << std::string(c.answer.begin(), c.answer.end());
    EXPECT_NE(transcript().find(c.told), std::wstring::npos) << std::string(transcript().begin(), transcript().end());
    EXPECT_NE(transcript().find(L"; the dialog is cancelled"), std::wstring::npos);
  }
}

TEST_F(GridDialogTest, ARefusedOkLetsTheStepsGoOn) {
  EXPECT_TRUE(d.runSteps(L"add; OK; *.Name=Wires; OK"));
  EXPECT_NE(transcript().find(L"[Tree] a row has no name"), std::wstring::npos);
  EXPECT_EQ(d.grid.rows.back().cells[0], L"Wires");
  TreeDialog again;
  EXPECT_FALSE(again.runSteps(L"add; OK"));
  EXPECT_NE(transcript().find(L"[Tree] -> Cancel (the steps ran out)"), std::wstring::npos);
}

TEST_F(GridDialogTest, AClosedTreeRowHidesItsItemsButKeepsTheirNumbers) {
  std::wstring open = d.grid.draw();
  EXPECT_NE(open.find(L"    1  [-] Ducts"), std::wstring::npos);
  EXPECT_NE(open.find(L"    2     A.1"), std::wstring::npos);
  EXPECT_NE(open.find(L"    4      Pipes"), std::wstring::npos) << "a group without items has no box";
  EXPECT_FALSE(d.runSteps(L"Ducts.Name; 3.On; Cancel"));
  std::wstring closed = d.grid.draw();
  EXPECT_NE(closed.find(L"    1  [+] Ducts"), std::wstring::npos);
  EXPECT_EQ(closed.find(L"A.1"), std::wstring::npos);
  EXPECT_NE(closed.find(L"    4      Pipes"), std::wstring::npos);
  EXPECT_EQ(d.grid.rows[2].cells[2], L"1") << "a hidden row is still named by its number";
}

}  // namespace
}  // namespace vantry
