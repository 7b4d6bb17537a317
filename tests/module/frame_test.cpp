// The module's frame: value readers, the call frame's statuses and locks,
// the function tables, and the entry point's lifecycle and error reports.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "database/context.h"
#include "frame/function_table.h"
#include "frame/lifecycle.h"
#include "frame/value_list.h"
#include "session/session.h"
#include "module_fixture.h"

namespace vantry::frame {
namespace {

using host::Session;

// --- Readers --------------------------------------------------------------------

struct Chain {
  explicit Chain(resbuf *rb) : head(rb), cur(rb) {}
  ~Chain() { acutRelRb(head); }
  resbuf *head, *cur;
};

TEST(ValueList, ReadersConvertAndAdvanceOnlyOnSuccess) {
  Chain c(acutBuildList(RTSHORT, 7, RTREAL, -2.7, RTSTR, L"x", 0));
  double d;
  int i;
  ASSERT_TRUE(readReal(c.cur, d));
  EXPECT_EQ(d, 7.0);
  ASSERT_TRUE(readInteger(c.cur, i));
  EXPECT_EQ(i, -2);  // truncated toward zero
  resbuf *before = c.cur;
  EXPECT_FALSE(readReal(c.cur, d));
  EXPECT_FALSE(readRealStrict(c.cur, d));
  EXPECT_FALSE(readEntityName(c.cur, nullptr));
  EXPECT_EQ(c.cur, before);
  std::string narrow;
  ASSERT_TRUE(readNarrowString(c.cur, narrow));
  EXPECT_EQ(narrow, "x");
  EXPECT_EQ(c.cur, nullptr);
  EXPECT_FALSE(readReal(c.cur, d));  // a null cursor fails every reader
  bool flag;
  EXPECT_FALSE(readBoolean(c.cur, flag));
  skipArgument(c.cur);
  EXPECT_EQ(c.cur, nullptr);
}

// Reals no int holds: beyond the range saturate, NaN reads as 0 (module_fuzz found NaN converted
// unchecked, undefined behaviour, through ol_ol-createJigTimer).
TEST(ValueList, IntegerFromARealNoIntHolds) {
  Chain c(acutBuildList(RTREAL, 1e300, RTREAL, -1e300, RTREAL, std::nan(""), RTREAL, -HUGE_VAL, 0));
  int big = 0, small = 0, nan = 1, minusInfinity = 0;
  ASSERT_TRUE(readInteger(c.cur, big) && readInteger(c.cur, small) && readInteger(c.cur, nan) &&
              readInteger(c.cur, minusInfinity));
  EXPECT_EQ(big, 2147483647);
  EXPECT_EQ(small, -2147483647 - 1);
  EXPECT_EQ(nan, 0);
  EXPECT_EQ(minusInfinity, -2147483647 - 1);
}

TEST(ValueList, GroupCodeReadsAsItsCodeWithoutAdvancing) {
  Chain c(acutBuildList(62, 3, 0));
  int i = 0;
  ASSERT_TRUE(readInteger(c.cur, i));
  EXPECT_EQ(i, 62);
  EXPECT_EQ(c.cur, c.head);
}

TEST(ValueList, BooleanAtListEndIsFalseAndStays) {
  Chain c(acutBuildList(RTLB, RTNIL, RTSTR, L"a", RTLE, 0));
  bool b = true;
  EXPECT_FALSE(readBoolean(c.cur, b));  // RTLB fails
  ASSERT_TRUE(readListBegin(c.cur));
  ASSERT_TRUE(readBoolean(c.cur, b));
  EXPECT_FALSE(b);
  ASSERT_TRUE(readBoolean(c.cur, b));
  EXPECT_TRUE(b);
  ASSERT_TRUE(readBoolean(c.cur, b));
  EXPECT_FALSE(b);
  EXPECT_TRUE(readListEnd(c.cur));  // the RTLE is still there
}

TEST(ValueList, PointsFromNodesOrNumbers) {
  ads_point p2 = {1, 2, 9}, p3 = {4, 5, 6};
  Chain c(acutBuildList(RTPOINT, p2, RT3DPOINT, p3, RTSHORT, 1, RTREAL, 2.5, RTSHORT, 3, RTREAL, 8.0, RTREAL,
                        9.0, RTSTR, L"end", 0));
  ads_point p;
  ASSERT_TRUE(readPoint(c.cur, p));
  EXPECT_EQ(p[2], 0.0);  // RTPOINT is planar
  ASSERT_TRUE(readPoint(c.cur, p));
  EXPECT_EQ(p[2], 6.0);
  ASSERT_TRUE(readPoint(c.cur, p));
  EXPECT_EQ(p[0], 1.0);
  EXPECT_EQ(p[1], 2.5);
  EXPECT_EQ(p[2], 3.0);
  ASSERT_TRUE(readPoint(c.cur, p));
  EXPECT_EQ(p[2], 0.0);  // two numbers, then a string
  EXPECT_EQ(c.cur->restype, RTSTR);
  EXPECT_FALSE(readPoint(c.cur, p));
}

// --- The frame, through the host -----------------------------------------------------

class ModuleTest : public ModuleFixture {};

TEST_F(ModuleTest, TablesHaveTheirCodes) {
  EXPECT_STREQ(functionName(0), L"vt_append");
  EXPECT_STREQ(functionName(62), L"vt_relationInfo");
  EXPECT_STREQ(functionName(63), L"ol_ol-setGroupSelectable");
  EXPECT_STREQ(functionName(173), L"ol_ol-setAcadWindowText");
  EXPECT_EQ(functionName(174), nullptr);
  auto &names = Session::get().current()->functions().names;
  // The sibling solid module adds a function of its own beyond the module's codes.
  EXPECT_EQ(std::count_if(names.begin(), names.end(), [](const auto &n) { return n.first < 174; }), 174);
  EXPECT_EQ(names[17], L"vt_connect");
  EXPECT_EQ(names[65], L"AcDbCurve::getLength");
  EXPECT_EQ(names[114], L"AcDbMtext::lastLineWidth");
}

TEST_F(ModuleTest, StatusesBecomeResultsAndMessages) {
  Session &s = Session::get();
  s.clearTranscript();
  EXPECT_EQ(lisp(L"(asin 1)"), lisp(L"(/ pi 2)"));
  EXPECT_EQ(lisp(L"(asin \"x\")"), L"ERROR: ADS request error");
  EXPECT_EQ(s.transcript(), L"\nWrong type of arguments passed.\n");
  lisp(L"(entmake '((0 . \"LINE\") (10 0.0 0.0 0.0) (11 1.0 0.0 0.0)))");
  s.clearTranscript();
  EXPECT_EQ(lisp(L"(AcDbMText::ascent (entlast))"), L"ERROR: ADS request error");  // not MText
  EXPECT_EQ(s.transcript(), L"\nBad data passed .\n");
  // Status 4: the implementation spoke; the frame only shows the text screen.
  s.clearTranscript();
  int screens = s.textScreenCalls;
  EXPECT_EQ(lisp(L"(ol_ol-createLayer \"X\" 1 \"HIDDEN9\")"), L"ERROR: ADS request error");
  EXPECT_EQ(s.transcript(), L"\nLinetype \"HIDDEN9\" is not loaded in this drawing.\n");
  EXPECT_EQ(s.textScreenCalls, screens + 1);
}

TEST_F(ModuleTest, FrameLocksAndUnlocksTheDocumentCurrentAtEachEnd) {
  host::Document *doc = Session::get().current();
  int locks = doc->lockCalls_, unlocks = doc->unlockCalls_;
  EXPECT_EQ(lisp(L"(ol::pow 2 10)"), L"1024.0");
  EXPECT_EQ(doc->lockCalls_, locks + 1);
  EXPECT_EQ(doc->unlockCalls_, unlocks + 1);
  EXPECT_EQ(doc->lockCount_, 0);
}

TEST_F(ModuleTest, NumberFunctions) {
  EXPECT_EQ(lisp(L"(acos 1)"), L"0.0");
  EXPECT_EQ(lisp(L"(ol::pow 2)"), L"ERROR: ADS request error");
  EXPECT_EQ(lisp(L"(ol_atof \"12.5mm\")"), L"12.5");
  EXPECT_EQ(lisp(L"(ol_atof \"mm\")"), L"0.0");
  EXPECT_EQ(lisp(L"(ol_atof 12)"), L"ERROR: ADS request error");
  // rand() beyond 16 bits comes back as a real, as every integer result does.
  EXPECT_EQ(lisp(L"(numberp (ol_ol-rand))"), L"T");
  EXPECT_EQ(lisp(L"(numberp (ol_ol-rand \"x\"))"), L"T");  // not an integer: treated as absent
  EXPECT_EQ(lisp(L"(type (ol_ol-rand 100))"), L"INT");
  EXPECT_EQ(lisp(L"(< -1 (ol_ol-rand 3) 3)"), L"T");
  // No remainder by zero: nil without a message, and the process lives on.
  Session::get().clearTranscript();
  EXPECT_EQ(lisp(L"(ol_ol-rand 0)"), L"nil");
  EXPECT_EQ(Session::get().transcript(), L"");
}

TEST_F(ModuleTest, EveryDocumentGetsBannerAndFunctions) {
  Session &s = Session::get();
  s.clearTranscript();
  s.newDocument(L"");  // not through loadModule: send the message as the host would
  acrxEntryPoint(AcRx::kLoadDwgMsg, this);
  EXPECT_EQ(s.transcript(), L"\nLoading Orlec Vantry (Jet64)");
  auto &handlers = s.current()->functions().handlers;
  EXPECT_EQ(std::count_if(handlers.begin(), handlers.end(), [](const auto &h) { return h.first < 174; }),
            174);
  EXPECT_EQ(database::context().entries.size(), 2u);
  acrxEntryPoint(AcRx::kUnloadDwgMsg, this);
  EXPECT_EQ(database::context().entries.size(), 1u);
}

TEST_F(ModuleTest, StartUpLeavesItsMarks) {
  Session &s = Session::get();
  EXPECT_NE(std::find(s.mutexes.begin(), s.mutexes.end(), L"OrlecVantry"), s.mutexes.end());
  EXPECT_TRUE(automationRunning());
  EXPECT_TRUE(editorReactorInstalled());
  EXPECT_EQ(s.editorReactors.size(), 1u);
  ASSERT_NE(acrxFindClass(L"OLLeader"), nullptr);
  acrxEntryPoint(AcRx::kUnloadAppMsg, this);
  EXPECT_EQ(acrxFindClass(L"OLLeader"), nullptr);
  EXPECT_FALSE(automationRunning());
  EXPECT_TRUE(s.editorReactors.empty());
  EXPECT_EQ(host::automationLog().alive, 0);
  // The mutex outlives the module.
  EXPECT_NE(std::find(s.mutexes.begin(), s.mutexes.end(), L"OrlecVantry"), s.mutexes.end());
  acrxEntryPoint(AcRx::kInitAppMsg, this);  // for the fixture's shut-down
}

TEST(Lifecycle, AutomationAbsentOrFailing) {
  Session &s = Session::get();
  s.reset();
  s.newDocument(L"");
  int dummy;
  s.faults.automationUnavailable = true;
  EXPECT_EQ(acrxEntryPoint(AcRx::kInitAppMsg, &dummy), AcRx::kRetOK);
  EXPECT_FALSE(automationRunning());
  EXPECT_EQ(acrxEntryPoint(AcRx::kUnloadAppMsg, &dummy), AcRx::kRetOK);

  s.faults.automationUnavailable = false;
  s.faults.automationStartFails = true;
  s.clearTranscript();
  // The COM error does not describe itself: the report reads the last system
  // error, which creating the existing mutex again left at 183 (already exists).
  EXPECT_EQ(acrxEntryPoint(AcRx::kInitAppMsg, &dummy), AcRx::kRetError);
  EXPECT_EQ(s.transcript(), L"\nSystem error 183.\n");
  s.faults.automationStartFails = false;
  acrxEntryPoint(AcRx::kUnloadAppMsg, &dummy);
  s.reset();
}

TEST(Lifecycle, EntryPointReportsExceptions) {
  Session &s = Session::get();
  s.reset();
  s.newDocument(L"");
  s.clearTranscript();
  EXPECT_EQ(guardEntry([]() -> AcRx::AppRetCode { throw std::runtime_error("disk full"); }), AcRx::kRetError);
  EXPECT_EQ(s.transcript(), L"\nVantry General Error:  disk full");
  s.clearTranscript();
  SetLastError(5);
  EXPECT_EQ(guardEntry([]() -> AcRx::AppRetCode { throw 42; }), AcRx::kRetError);
  EXPECT_EQ(s.transcript(), L"\nSystem error 5.\n");
  s.clearTranscript();
  SetLastError(0);
  EXPECT_EQ(guardEntry([]() -> AcRx::AppRetCode { throw ComError{E_FAIL}; }), AcRx::kRetError);
  EXPECT_EQ(s.transcript(), L"\nVantry error.\n");
  EXPECT_EQ(acrxEntryPoint(AcRx::AppMsgCode(99), nullptr), AcRx::kRetOK);
  s.reset();
}

}  // namespace
}  // namespace vantry::frame

namespace vantry::frame {
namespace {

// The editor reactor closes a drawing's database when that drawing is saved
// under a new name, and only then.
TEST_F(ModuleTest, SavingUnderANewNameClosesTheDatabase) {
  Session &s = Session::get();
  std::string dir = ::testing::TempDir();
  std::wstring db(dir.begin(), dir.end());
  db += L"vantry_save_test.db";
  std::remove(std::string(db.begin(), db.end()).c_str());
  // Name the drawing in the temporary directory first, so that saving writes there.
  ASSERT_TRUE(s.save(s.current(), std::wstring(dir.begin(), dir.end()) + L"vantry_save_test.dwg"));
  ASSERT_EQ(lisp(L"(vt_create_db \"" + db + L"\")"), L"T");
  ASSERT_EQ(lisp(L"(vt_connect \"" + db + L"\")"), L"T");
  host::Document *first = s.current();

  // A save of another document's drawing changes nothing.
  s.newDocument(L"");
  acrxEntryPoint(AcRx::kLoadDwgMsg, this);
  host::Document *second = s.current();
  s.activate(first);
  EXPECT_TRUE(s.save(second, first->fileName() + std::wstring(L".other.dwg")));
  EXPECT_TRUE(database::currentConnection() != nullptr);

  // A plain save keeps it; a save under a new name closes it.
  EXPECT_TRUE(s.save(first, L""));
  EXPECT_EQ(lisp(L"(vt_mdb)"), L"\"" + db + L"\"");
  EXPECT_TRUE(s.save(first, std::wstring(dir.begin(), dir.end()) + L"renamed.dwg"));
  EXPECT_EQ(database::currentConnection(), nullptr);
  EXPECT_EQ(lisp(L"(vt_mdb)"), L"nil");
}

}  // namespace
}  // namespace vantry::frame
