// System variables through the C API and through getvar/setvar.
#include <ctime>
#include <sstream>

#include "host_fixture.h"

namespace vantry::host {
namespace {

using SystemVariables = HostTest;

TEST_F(SystemVariables, SeededValuesHaveTheHostsTypes) {
  struct {
    const wchar_t *name;
    const wchar_t *lisp;  // what getvar gives
  } cases[] = {
      {L"pickbox", L"3"},
      {L"LUNITS", L"2"},
      {L"LUPREC", L"4"},
      {L"AUNITS", L"0"},
      {L"AUPREC", L"0"},
      {L"ERRNO", L"0"},
      {L"CLAYER", L"\"0\""},
      {L"SDI", L"0"},
      {L"CMDECHO", L"1"},
      {L"FILEDIA", L"1"},
      {L"TEXTSTYLE", L"\"Standard\""},
      {L"ACADVER", L"\"25.0\""},
      {L"LASTPOINT", L"(0.0 0.0 0.0)"},
      {L"NOSUCHVAR", L"nil"},
  };
  for (const auto &c : cases)
    EXPECT_EQ(lisp(std::wstring(L"(getvar \"") + c.name + L"\")"), c.lisp) << c.name;
  EXPECT_EQ(lisp(L"(type (getvar \"MILLISECS\"))"), L"INT");
  EXPECT_EQ(lisp(L"(getvar 'osmode)"), L"ERROR: bad argument type: stringp OSMODE");
}

TEST_F(SystemVariables, SetVarChecksAccessTypeAndRange) {
  auto shortRb = [](int v) {
    resbuf rb{};
    rb.restype = RTSHORT;
    rb.resval.rint = short(v);
    return rb;
  };
  resbuf text{};
  text.restype = RTSTR;
  text.resval.rstring = const_cast<ACHAR *>(L"x");
  resbuf real{};
  real.restype = RTREAL;
  real.resval.rreal = 2.5;
  struct {
    const wchar_t *name;
    resbuf value;
    int status;
  } cases[] = {
      {L"PICKBOX", shortRb(10), RTNORM}, {L"PICKBOX", shortRb(51), RTREJ},
      {L"PICKBOX", text, RTREJ},         {L"LUPREC", shortRb(-1), RTREJ},
      {L"LUNITS", shortRb(0), RTREJ},    {L"ERRNO", shortRb(7), RTNORM},
      {L"DWGNAME", text, RTERROR},       {L"ACADPREFIX", text, RTERROR},
      {L"CDATE", real, RTERROR},         {L"NOSUCHVAR", shortRb(1), RTERROR},
      {L"USERR1", shortRb(4), RTNORM},   {L"USERR2", real, RTNORM},
      {L"USERI1", real, RTREJ},          {L"CLAYER", text, RTREJ},  // no layer "x"
  };
  for (const auto &c : cases) EXPECT_EQ(acedSetVar(c.name, &c.value), c.status) << c.name;
  EXPECT_EQ(lisp(L"(list (getvar \"PICKBOX\") (getvar \"ERRNO\") (getvar \"USERR1\") (getvar \"clayer\"))"),
            L"(10 7 4.0 \"0\")");
  EXPECT_EQ(acedSetVar(nullptr, &text), RTERROR);
}

TEST_F(SystemVariables, GetVarHandsTheCallerItsOwnString) {
  resbuf a{}, b{};
  ASSERT_EQ(acedGetVar(L"TEXTSTYLE", &a), RTNORM);
  ASSERT_EQ(acedGetVar(L"TEXTSTYLE", &b), RTNORM);
  ASSERT_EQ(a.restype, RTSTR);
  EXPECT_NE(a.resval.rstring, b.resval.rstring);
  a.resval.rstring[0] = L'X';  // the host's copy is untouched
  EXPECT_EQ(lisp(L"(getvar \"TEXTSTYLE\")"), L"\"Standard\"");
  acutDelString(a.resval.rstring);
  acutDelString(b.resval.rstring);
  EXPECT_EQ(acedGetVar(L"NOSUCHVAR", &a), RTERROR);
}

TEST_F(SystemVariables, SetvarFromLispAnswersTheValueOrTheHostsError) {
  EXPECT_EQ(lisp(L"(setvar \"osmode\" 0)"), L"0");
  EXPECT_EQ(lisp(L"(getvar \"OSMODE\")"), L"0");
  EXPECT_EQ(lisp(L"(setvar \"USERR3\" 2)"), L"2.0");
  EXPECT_EQ(lisp(L"(setvar \"LASTPOINT\" '(1 2))"), L"(1.0 2.0 0.0)");
  EXPECT_EQ(lisp(L"(setvar \"unknown\" 1)"), L"ERROR: AutoCAD variable setting rejected: \"UNKNOWN\" 1");
  EXPECT_EQ(lisp(L"(setvar \"PICKBOX\" \"big\")"),
            L"ERROR: AutoCAD variable setting rejected: \"PICKBOX\" \"big\"");
  EXPECT_EQ(lisp(L"(setvar \"DWGNAME\" \"x.dwg\")"),
            L"ERROR: AutoCAD variable setting rejected: \"DWGNAME\" \"x.dwg\"");
  EXPECT_EQ(lisp(L"(setvar \"PICKBOX\" 100000)"),
            L"ERROR: AutoCAD variable setting rejected: \"PICKBOX\" 100000");
  // The host's bookkeeping can still move a read-only variable.
  EXPECT_EQ(lisp(L"(host:set-sysvar \"ACADPREFIX\" \"/a/;/b/\")"), L"\"/a/;/b/\"");
  EXPECT_EQ(supportDirectories(), (std::vector<std::wstring>{L"/a/", L"/b/"}));
}

// The documented table: defaults of every type, enumerated values, ranges
// and read-only variables, as setvar sees them.
TEST_F(SystemVariables, DocumentedVariablesKeepTheirTypesAndLimits) {
  struct {
    const wchar_t *text, *want;
  } cases[] = {
      {L"(getvar \"DIMTXT\")", L"0.18"},
      {L"(getvar \"CECOLOR\")", L"\"BYLAYER\""},
      {L"(getvar \"DIMBLK\")", L"\"\""},
      {L"(getvar \"LIMMAX\")", L"(12.0 9.0)"},
      {L"(getvar \"UCSYDIR\")", L"(0.0 1.0 0.0)"},
      {L"(getvar \"CELWEIGHT\")", L"-1"},
      {L"(setvar \"SPLINETYPE\" 5)", L"5"},
      {L"(setvar \"SPLINETYPE\" 4)", L"ERROR: AutoCAD variable setting rejected: \"SPLINETYPE\" 4"},
      {L"(setvar \"UCSAXISANG\" 45)", L"45"},
      {L"(setvar \"UCSAXISANG\" 40)", L"ERROR: AutoCAD variable setting rejected: \"UCSAXISANG\" 40"},
      {L"(setvar \"APERTURE\" 0)", L"ERROR: AutoCAD variable setting rejected: \"APERTURE\" 0"},
      {L"(setvar \"TEXTSIZE\" 3)", L"3.0"},
      {L"(setvar \"SNAPUNIT\" '(1 2))", L"(1.0 2.0)"},
      {L"(setvar \"UCSORG\" '(1 2 3))", L"ERROR: AutoCAD variable setting rejected: \"UCSORG\" (1 2 3)"},
      {L"(setvar \"DIMSTYLE\" \"X\")", L"ERROR: AutoCAD variable setting rejected: \"DIMSTYLE\" \"X\""},
      {L"(setvar \"CMLSTYLE\" 5)", L"ERROR: AutoCAD variable setting rejected: \"CMLSTYLE\" 5"},
  };
  for (const auto &c : cases) EXPECT_EQ(lisp(c.text), c.want) << c.text;
  // Every row of the table became a variable.
  int rows = 0, known = 0;
  std::istringstream table(kSystemVariableTable);
  for (std::string line; std::getline(table, line);) {
    if (line.empty()) continue;
    ++rows;
    resbuf rb{};
    std::wstring name = text::fromUtf8(line.substr(0, line.find(' ')));
    if (acedGetVar(name.c_str(), &rb) == RTNORM) ++known;
    if (rb.restype == RTSTR) acutDelString(rb.resval.rstring);
  }
  EXPECT_GE(rows, 300);
  EXPECT_EQ(known, rows);
}

TEST_F(SystemVariables, ClockVariablesFollowTheLocalDate) {
  time_t t = time(nullptr);
  struct tm local {};
  localtime_r(&t, &local);
  resbuf rb{};
  ASSERT_EQ(acedGetVar(L"CDATE", &rb), RTNORM);
  ASSERT_EQ(rb.restype, RTREAL);
  long ymd = (local.tm_year + 1900) * 10000L + (local.tm_mon + 1) * 100 + local.tm_mday;
  EXPECT_EQ(long(rb.resval.rreal), ymd);
  double hhmm = (rb.resval.rreal - ymd) * 100;  // HH.MMSS...
  EXPECT_NEAR(hhmm, local.tm_hour + local.tm_min / 100.0, 0.02);

  ASSERT_EQ(acedGetVar(L"DATE", &rb), RTNORM);
  double julianNoon = 2440587.5 + double(t + local.tm_gmtoff) / 86400.0;
  EXPECT_NEAR(rb.resval.rreal, julianNoon, 1.0 / 1440);
}

TEST_F(SystemVariables, SupportPathEntriesEndInASeparator) {
  std::vector<std::wstring> dirs = supportDirectories();
  ASSERT_FALSE(dirs.empty());
  for (const auto &d : dirs) EXPECT_EQ(d.back(), L'/') << d;
}

}  // namespace
}  // namespace vantry::host
