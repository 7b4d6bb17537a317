// Editor input: keyword matching, conversions of typed text, and the get...
// built-ins answered by the scripted person.
#include <cmath>

#include "editor/editor.h"
#include "host_fixture.h"

namespace vantry::host {
namespace {

using editor::matchKeyword;
using editor::parseKeywords;

TEST(EditorKeywords, AbbreviationsFollowTheCapitals) {
  struct {
    const wchar_t *format, *typed, *want;  // want null: no match
  } cases[] = {
      {L"Yes No", L"y", L"Yes"},
      {L"Yes No", L"NO", L"No"},
      {L"Yes No", L"maybe", nullptr},
      {L"LType eXit", L"lt", L"LType"},
      {L"LType eXit", L"ltyp", L"LType"},
      {L"LType eXit", L"l", nullptr},
      {L"LType eXit", L"x", L"eXit"},
      {L"LType eXit", L"exit", L"eXit"},
      {L"LType eXit", L"ex", nullptr},
      {L"ALL Window", L"al", nullptr},
      {L"ALL Window", L"all", L"ALL"},
      {L"ALL Window", L"w", L"Window"},
      {L"radius", L"r", nullptr},
      {L"radius", L"Radius", L"radius"},
      {L"LTYPE,LT", L"lt", L"LTYPE"},
      {L"LTYPE,LT", L"lty", L"LTYPE"},
      {L"LTYPE,LT", L"l", nullptr},
      {L"Oui Non _Yes No", L"o", L"Yes"},
      {L"Oui Non _Yes No", L"n", L"No"},
      {L"Oui Non _Yes No", L"_yes", L"Yes"},
      {L"Oui Non _Yes No", L"_y", nullptr},
      {L"  Yes   No  ", L" n ", L"No"},
      {L"", L"x", nullptr},
      {L"Yes No", L"", nullptr},
  };
  for (const auto &c : cases) {
    auto keywords = parseKeywords(c.format);
    const editor::Keyword *k = matchKeyword(keywords, c.typed);
    if (!c.want)
      EXPECT_EQ(k, nullptr) << c.format << " / " << c.typed;
    else if (!k)
      ADD_FAILURE() << "no match: " << c.format << " / " << c.typed;
    else
      EXPECT_EQ(k->global, c.want) << c.format << " / " << c.typed;
  }
}

TEST(EditorConversions, NumbersAnglesAndPoints) {
  EXPECT_EQ(editor::parseInteger(L" -12 "), -12);
  EXPECT_FALSE(editor::parseInteger(L"1.5"));
  EXPECT_FALSE(editor::parseInteger(L"-"));
  EXPECT_FALSE(editor::parseInteger(L"99999999999999999999"));
  EXPECT_EQ(editor::parseReal(L".5"), 0.5);
  EXPECT_EQ(editor::parseReal(L"1e3"), 1000.0);
  for (const wchar_t *bad : {L"", L"abc", L"inf", L"nan", L"1,5", L"0x10", L"."})
    EXPECT_FALSE(editor::parseReal(bad)) << bad;

  const double deg = M_PI / 180;
  struct {
    const wchar_t *text;
    int aunits;
    double want;  // radians; NAN: refused
  } angles[] = {
      {L"90", 0, 90 * deg},
      {L"100", 2, 90 * deg},
      {L"1.5", 3, 1.5},
      {L"45d30'", 0, 45.5 * deg},
      {L"10d0'36\"", 1, 10.01 * deg},
      {L"-45d", 0, -45 * deg},
      {L"50g", 0, 45 * deg},
      {L"2r", 0, 2.0},
      {L"N45dE", 4, 45 * deg},
      {L"N30dW", 0, 120 * deg},
      {L"S30dE", 0, 300 * deg},
      {L"S", 0, 270 * deg},
      {L"N100dE", 0, NAN},
      {L"abc", 0, NAN},
      {L"10d-5'", 0, NAN},
  };
  for (const auto &a : angles) {
    auto got = editor::parseAngle(a.text, a.aunits);
    if (std::isnan(a.want)) {
      EXPECT_FALSE(got) << a.text;
    } else {
      ASSERT_TRUE(got) << a.text;
      EXPECT_NEAR(*got, a.want, 1e-12) << a.text;
    }
  }

  editor::Point last{10, 20, 5};
  struct {
    const wchar_t *text;
    bool ok;
    editor::Point want;
  } points[] = {
      {L"1,2", true, {1, 2, 0}}, {L"1,2,3", true, {1, 2, 3}}, {L"@1,1", true, {11, 21, 5}},
      {L"@", true, {10, 20, 5}}, {L"2<90", true, {0, 2, 0}},  {L"@2<180", true, {8, 20, 5}},
      {L"1", false, {}},         {L"1,2,3,4", false, {}},     {L"a,b", false, {}},
      {L"1,,2", false, {}},
  };
  for (const auto &p : points) {
    auto got = editor::parsePoint(p.text, last, 0);
    ASSERT_EQ(bool(got), p.ok) << p.text;
    if (got) {
      for (int i = 0; i < 3; ++i) EXPECT_NEAR((*got)[i], p.want[i], 1e-12) << p.text;
    }
  }
}

using EditorInput = HostTest;

TEST_F(EditorInput, GetintRepromptsUntilTheAnswerFits) {
  queueText(L"abc");
  queuePoint(1, 2);
  queueText(L"40000");
  queueText(L"0");
  queueText(L"-3");
  queueText(L"12");
  EXPECT_EQ(lisp(L"(initget 7) (getint \"\\nCount: \")"), L"12");
  EXPECT_EQ(s().transcript(),
            L"\nCount: abc\nRequires an integer value.\n"
            L"\nCount: 1,2,0\nRequires an integer value.\n"
            L"\nCount: 40000\nRequires an integer between -32768 and 32767.\n"
            L"\nCount: 0\nValue must be nonzero.\n"
            L"\nCount: -3\nValue must be positive.\n"
            L"\nCount: 12\n");
  EXPECT_TRUE(s().input.empty());
}

TEST_F(EditorInput, EmptyCancelAndTheConditionsOfInitget) {
  queue(InputItem::Empty);
  EXPECT_EQ(lisp(L"(getreal)"), L"nil");
  queue(InputItem::Empty);
  queueText(L"2.5");
  EXPECT_EQ(lisp(L"(initget 1) (getreal)"), L"2.5");  // Enter refused: asked again
  queue(InputItem::Empty);
  EXPECT_EQ(lisp(L"(getreal)"), L"nil");  // initget applied to one request only
  queue(InputItem::Cancel);
  EXPECT_EQ(lisp(L"(getpoint)"), L"ERROR: Function cancelled");
  s().clearTranscript();
  EXPECT_EQ(lisp(L"(getint \"N: \")"), L"ERROR: Function cancelled");  // nothing queued
  EXPECT_EQ(s().transcript(), L"N: [no input queued] *Cancel*\n");
  queue(InputItem::Empty);
  EXPECT_EQ(lisp(L"(initget 129) (getpoint)"), L"\"\"");  // arbitrary input: Enter is ""
  queueText(L"free text");
  EXPECT_EQ(lisp(L"(initget 128) (getpoint)"), L"\"free text\"");
}

TEST_F(EditorInput, KeywordsAnswerAnyRequest) {
  queueText(L"maybe");
  queueText(L"n");
  EXPECT_EQ(lisp(L"(initget 1 \"Yes No\") (getkword \"Sure? \")"), L"\"No\"");
  EXPECT_EQ(s().transcript(), L"Sure? maybe\nInvalid option keyword.\nSure? n\n");
  queueText(L"x");
  queue(InputItem::Empty);
  EXPECT_EQ(lisp(L"(getkword)"), L"nil") << "no keywords: every answer is refused until Enter";

  s().clearTranscript();
  queueText(L"zz");
  queueText(L"c");
  EXPECT_EQ(lisp(L"(initget \"Close Undo\") (getpoint \"Next: \")"), L"\"Close\"");
  EXPECT_EQ(s().transcript(), L"Next: zz\nPoint or option keyword required.\nNext: c\n");
  queueText(L"p");
  EXPECT_EQ(lisp(L"(initget \"Pi Two-pi\") (getreal)"), L"\"Pi\"");
  queueText(L"zz");
  queuePoint(1, 1);
  EXPECT_EQ(lisp(L"(getpoint)"), L"(1.0 1.0 0.0)");
  EXPECT_NE(s().transcript().find(L"zz\nInvalid point.\n"), std::wstring::npos);
}

TEST_F(EditorInput, PointsDistancesAndAngles) {
  queueText(L"3,4");
  EXPECT_EQ(lisp(L"(getpoint '(0 0) \"From: \")"), L"(3.0 4.0 0.0)");
  EXPECT_EQ(lisp(L"(getvar \"LASTPOINT\")"), L"(3.0 4.0 0.0)");
  queueText(L"@1,1");
  EXPECT_EQ(lisp(L"(getpoint \"Rel: \" '(0 0))"), L"(4.0 5.0 0.0)");  // prompt and point in either order

  queuePoint(3, 4, 12);
  EXPECT_EQ(lisp(L"(getdist '(0 0 0))"), L"13.0");
  queuePoint(3, 4, 12);
  EXPECT_EQ(lisp(L"(initget 64) (getdist '(0 0 0))"), L"5.0");
  // With no base point, a point asks for the second one.
  queuePoint(1, 1);
  queueText(L"@0,2");
  EXPECT_EQ(lisp(L"(getdist)"), L"2.0");
  queueText(L"7.5");
  EXPECT_EQ(lisp(L"(getdist)"), L"7.5");

  queuePoint(0, 5);
  EXPECT_EQ(lisp(L"(/ (getangle '(0 0)) pi)"), L"0.5");
  queueText(L"-90");
  EXPECT_EQ(lisp(L"(/ (getorient) pi)"), L"1.5");  // normalised to [0, 2pi)
  queueText(L"hello world");
  queueText(L"hello world");
  EXPECT_EQ(lisp(L"(list (getstring) (getstring T \"Name: \"))"), L"(\"hello\" \"hello world\")");
  queue(InputItem::Empty);
  EXPECT_EQ(lisp(L"(getstring)"), L"\"\"");

  queuePoint(5, 5);
  EXPECT_EQ(lisp(L"(getcorner '(0 0) \"Other corner: \")"), L"(5.0 5.0 0.0)");
  EXPECT_EQ(lisp(L"(getcorner)"), L"ERROR: too few arguments");
  EXPECT_EQ(lisp(L"(getpoint 5)"), L"ERROR: bad argument type: 2D/3D point: 5");
  EXPECT_EQ(lisp(L"(initget 1.5)"), L"ERROR: bad argument type: fixnump: 1.5");
}

TEST_F(EditorInput, ScriptsQueueAnswersFromLisp) {
  EXPECT_EQ(lisp(L"(host:queue-input '((1 2) (pick 3 4 5) \"kw\" nil cancel 42))"), L"6");
  ASSERT_EQ(s().input.size(), 6u);
  EXPECT_EQ(s().input[0].kind, InputItem::Point);
  EXPECT_EQ(s().input[1].kind, InputItem::Pick);
  EXPECT_EQ(s().input[1].pt[2], 5.0);
  EXPECT_EQ(s().input[2].text, L"kw");
  EXPECT_EQ(s().input[3].kind, InputItem::Empty);
  EXPECT_EQ(s().input[4].kind, InputItem::Cancel);
  EXPECT_EQ(s().input[5].text, L"42");
  EXPECT_EQ(lisp(L"(host:queue-input '((1 \"a\")))"), L"ERROR: host:queue-input: not an answer: (1 \"a\")");
  EXPECT_EQ(s().input.size(), 6u) << "a bad list queues nothing";
}

}  // namespace
}  // namespace vantry::host
