// String, conversion and pattern built-ins as a LISP caller sees them.
#include <gtest/gtest.h>

#include "lisp/lisp.h"

namespace vantry::lisp {
namespace {

class LispStrings : public ::testing::Test {
 protected:
  LispStrings() { installAll(in); }
  // The prin1 form of the last value, or "ERROR: message".
  std::wstring run(const std::wstring &text) {
    try {
      Value v;
      for (const Value &f : in.readAll(text, {L"t.lsp", 1})) v = in.eval(f);
      return in.toString(v, true);
    } catch (const LispError &e) {
      return L"ERROR: " + e.message;
    }
  }
  struct Case {
    const wchar_t *text, *expected;
  };
  void check(std::initializer_list<Case> cases) {
    for (const Case &c : cases) EXPECT_EQ(run(c.text), c.expected) << c.text;
  }
  Interp in;
};

TEST_F(LispStrings, ConcatenationLengthAndSlices) {
  check({
      {L"(strcat)", L"\"\""},
      {L"(strcat \"a\" \"bc\" \"\" \"d\")", L"\"abcd\""},
      {L"(strcat \"a\" 1)", L"ERROR: bad argument type: stringp 1"},
      {L"(strlen)", L"0"},
      {L"(strlen \"abc\" \"de\")", L"5"},
      {L"(strlen \"\u20ac\u4e2d\")", L"2"},
      {L"(substr \"abcde\" 2)", L"\"bcde\""},
      {L"(substr \"abcde\" 2 1)", L"\"b\""},
      {L"(substr \"abcde\" 3 2)", L"\"cd\""},
      {L"(substr \"abcde\" 4 99)", L"\"de\""},
      {L"(substr \"abcde\" 6)", L"\"\""},
      {L"(substr \"abcde\" 2 0)", L"\"\""},
      {L"(substr \"\u20acabc\u20ac\" 4 2)", L"\"c\u20ac\""},
      {L"(substr \"abc\" 0)", L"ERROR: bad argument value: 0"},
      {L"(substr \"abc\" 1 -1)", L"ERROR: bad argument value: -1"},
      {L"(substr \"abc\")", L"ERROR: too few arguments"},
      {L"(substr \"abc\" 1.0)", L"ERROR: bad argument type: fixnump: 1.0"},
  });
}

TEST_F(LispStrings, CaseAndCharacterCodes) {
  check({
      {L"(strcase \"This is a TEST.\")", L"\"THIS IS A TEST.\""},
      {L"(strcase \"This is a TEST.\" T)", L"\"this is a test.\""},
      {L"(strcase \"\u00e9t\u00e9 \u00df \u00f7\")", L"\"\u00c9T\u00c9 \u00df \u00f7\""},
      {L"(strcase \"\u0141\u00f3d\u017a \u0106MA\" T)", L"\"\u0142\u00f3d\u017a \u0107ma\""},
      {L"(strcase \"\u0142\u00f3d\u017a\")", L"\"\u0141\u00d3D\u0179\""},
      {L"(strcase \"\u0436\u03c3\u03c2\")", L"\"\u0416\u03a3\u03a3\""},
      {L"(ascii \"A\")", L"65"},
      {L"(ascii \"\")", L"0"},
      {L"(ascii \"\u20ac\")", L"8364"},
      {L"(chr 65)", L"\"A\""},
      {L"(chr 8364)", L"\"\u20ac\""},
      {L"(chr 0)", L"\"\""},
      {L"(chr -1)", L"ERROR: bad argument value: -1"},
      {L"(itoa -17)", L"\"-17\""},
      {L"(itoa 1.5)", L"ERROR: bad argument type: fixnump: 1.5"},
  });
  EXPECT_EQ(upcase(L"abc\u00e9\u00ff\u0142"), L"ABC\u00c9\u00ff\u0142");  // symbols: ASCII and Latin-1 only
  EXPECT_EQ(downcase(L"ABC\u00c9\u00d7"), L"abc\u00e9\u00d7");
}

TEST_F(LispStrings, NumbersFromText) {
  check({
      {L"(atoi \"97\")", L"97"},
      {L"(atoi \"  -3.9x\")", L"-3"},
      {L"(atoi \"+12abc\")", L"12"},
      {L"(atoi \"x12\")", L"0"},
      {L"(atoi \"99999999999\")", L"2147483647"},
      {L"(atoi \"-99999999999\")", L"-2147483648"},
      {L"(atof \"97.1\")", L"97.1"},
      {L"(atof \"3\")", L"3.0"},
      {L"(atof \" -1.5e2mm\")", L"-150.0"},
      {L"(atof \".5\")", L"0.5"},
      {L"(atof \"1e\")", L"1.0"},
      {L"(atof \"abc\")", L"0.0"},
      {L"(atof \"inf\")", L"0.0"},
      {L"(read \"hello there\")", L"HELLO"},
      {L"(read \"(a \\\"b\\\" 1.5)\")", L"(A \"b\" 1.5)"},
      {L"(read \"\")", L"nil"},
      {L"(read)", L"nil"},
      {L"(read 1)", L"ERROR: bad argument type: stringp 1"},
  });
}

TEST_F(LispStrings, WildCardPatterns) {
  struct {
    const wchar_t *str, *pattern;
    bool match;
  } cases[] = {
      {L"this is a string", L"this*", true},
      {L"this is a string", L"*string", true},
      {L"this is a string", L"*is a*", true},
      {L"this is a string", L"This*", false},  // case-sensitive
      {L"test1", L"test[4-61]", true},
      {L"test3", L"test[4-61]", false},
      {L"test3", L"test[~4-61]", true},
      {L"A~C", L"[A~BC]~C", true},  // ~ inside a set is literal unless first
      {L"abc", L"ABC,XYZ*,*c", true},
      {L"XYZzy", L"ABC,XYZ*,*c", true},
      {L"Q", L"ABC,XYZ*,*c", false},
      {L"Name", L"*`,*", false},
      {L"a,b", L"*`,*", true},
      {L"a*b", L"a`*b", true},
      {L"axb", L"a`*b", false},
      {L"a\\b", L"*`\\*", true},
      {L"R2D2", L"@#@#", true},
      {L"R2D2", L"@@@@", false},
      {L"a-b", L"a.b", true},
      {L"a1b", L"a.b", false},
      {L"\u00e9t\u00e9", L"@@@", true},
      {L"abc", L"~*b*", false},
      {L"xyz", L"~*b*", true},
      {L"", L"*", true},
      {L"", L"?", false},
      {L"abc", L"a?c", true},
      {L"aXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXb", L"a*X*X*X*X*X*c", false},
      {L"]", L"[]]", true},
      {L"a", L"[a", false},  // an unclosed set matches nothing
  };
  Value fn = in.symbolValue(L"wcmatch");
  for (const auto &c : cases) {
    Value args[2] = {makeString(c.str), makeString(c.pattern)};
    EXPECT_EQ(!in.apply(fn, args, 2).isNil(), c.match) << c.str << L" ~ " << c.pattern;
  }
  EXPECT_EQ(run(L"(wcmatch \"a\" 1)"), L"ERROR: bad argument type: stringp 1");
}

TEST_F(LispStrings, LinearUnits) {
  check({
      {L"(rtos 17.5 1 4)", L"\"1.7500E+01\""},
      {L"(rtos 17.5 2 2)", L"\"17.50\""},
      {L"(rtos 17.5 3 2)", L"\"1'-5.50\\\"\""},
      {L"(rtos 17.5 4 2)", L"\"1'-5 1/2\\\"\""},
      {L"(rtos 17.5 5 2)", L"\"17 1/2\""},
      {L"(rtos 17.5)", L"\"17.5000\""},
      {L"(rtos 2)", L"\"2.0000\""},
      {L"(rtos -0.00001 2 2)", L"\"0.00\""},
      {L"(rtos 3.14159 2 0)", L"\"3\""},
      {L"(rtos -17.5 4 2)", L"\"-1'-5 1/2\\\"\""},
      {L"(rtos 6 3 2)", L"\"6.00\\\"\""},  // zero feet left out
      {L"(rtos 24 3 2)", L"\"2'\""},       // exactly zero inches left out
      {L"(rtos 11.999 3 2)", L"\"1'\""},   // rounding carries into the feet
      {L"(rtos 12.5 4 4)", L"\"1'-0 1/2\\\"\""},
      {L"(rtos 0.375 4 3)", L"\"3/8\\\"\""},
      {L"(rtos 0.375 4 2)", L"\"1/2\\\"\""},  // to the nearest quarter, away from zero
      {L"(rtos 0.25 5 4)", L"\"1/4\""},
      {L"(rtos 3 5 4)", L"\"3\""},
      {L"(rtos 0 4 2)", L"\"0\\\"\""},
      {L"(rtos 1 6)", L"ERROR: bad argument value: 6"},
      {L"(rtos 1 2 -1)", L"ERROR: bad argument value: -1"},
      {L"(rtos \"1\")", L"ERROR: bad argument type: numberp: \"1\""},
  });
  check({
      {L"(distof \"1.7500E+01\" 1)", L"17.5"},
      {L"(distof \"17.50\" 2)", L"17.5"},
      {L"(distof \"1'-5.50\\\"\" 3)", L"17.5"},
      {L"(distof \"1'-5 1/2\\\"\" 4)", L"17.5"},
      {L"(distof \"1'-5 1/2\\\"\" 3)", L"17.5"},  // modes 3 and 4 read each other
      {L"(distof \"1'5-1/2\\\"\" 4)", L"17.5"},
      {L"(distof \"17 1/2\" 5)", L"17.5"},
      {L"(distof \"-3/4\" 5)", L"-0.75"},
      {L"(distof \"2'\" 4)", L"24.0"},
      {L"(distof \" 42 \")", L"42.0"},
      {L"(distof \"1'-5\\\"\" 2)", L"nil"},  // feet are no decimal number
      {L"(distof \"abc\" 2)", L"nil"},
      {L"(distof \"1/0\" 5)", L"nil"},
      {L"(distof \"\")", L"nil"},
  });
  // rtos and distof are complementary in every mode.
  for (int mode = 1; mode <= 5; ++mode) {
    std::wstring m = std::to_wstring(mode);
    EXPECT_EQ(run(L"(distof (rtos 123.25 " + m + L" 4) " + m + L")"), L"123.25") << mode;
  }
}

TEST_F(LispStrings, AngularUnits) {
  check({
      {L"(angtos 0.785398 0 4)", L"\"45.0000\""},
      {L"(angtos -0.785398 0 4)", L"\"315.0000\""},
      {L"(angtos -0.785398 4)", L"\"S 45d E\""},
      {L"(angtos 0.785398 1 4)", L"\"45d0'0\\\"\""},
      {L"(angtos 0.785398 2 4)", L"\"50.0000g\""},
      {L"(angtos 0.785398 3 4)", L"\"0.7854r\""},
      {L"(angtos 0.785398 4 4)", L"\"N 45d0'0\\\" E\""},
      {L"(angtos 1.0 1 2)", L"\"57d18'\""},
      {L"(angtos 1.0 1 4)", L"\"57d17'45\\\"\""},
      {L"(angtos 1.0 1 6)", L"\"57d17'44.81\\\"\""},
      {L"(angtos (* pi 0.5) 4)", L"\"N\""},
      {L"(angtos pi 4)", L"\"W\""},
      {L"(angtos 2.0 4 2)", L"\"N 24d35' W\""},
      {L"(angtos 4.0 4 0)", L"\"S 41d W\""},
      {L"(angtos (* 2 pi) 0 2)", L"\"0.00\""},
      {L"(angtos 6.283 0 0)", L"\"0\""},  // 359.98 rounds to a full turn
      {L"(angtos 1 5)", L"nil"},
  });
  check({
      {L"(angtof \"45.0000\")", L"0.785398"},
      {L"(angtof \"45.0000\" 3)", L"1.0177"},
      {L"(angtof \"45d30'\" 1)", L"0.794125"},
      {L"(angtof \"50g\")", L"0.785398"},
      {L"(angtof \"0.5r\" 0)", L"0.5"},
      {L"(angtof \"N 45d E\" 4)", L"0.785398"},
      {L"(angtof \"S 45d E\" 4)", L"5.49779"},
      {L"(angtof \"n45dw\" 4)", L"2.35619"},
      {L"(angtof \"W\" 4)", L"3.14159"},
      {L"(angtof \"-90\")", L"4.71239"},
      {L"(angtof \"x\")", L"nil"},
      {L"(angtof \"N 45d\" 4)", L"nil"},
  });
  for (int unit = 0; unit <= 4; ++unit) {
    std::wstring u = std::to_wstring(unit);
    EXPECT_EQ(run(L"(angtof (angtos 2.5 " + u + L" 8) " + u + L")"), L"2.5") << unit;
  }
}

TEST_F(LispStrings, VisualLispStringFunctions) {
  check({
      {L"(vl-string-search \"foo\" \"pfooyfoo\")", L"1"},
      {L"(vl-string-search \"foo\" \"pfooyfoo\" 2)", L"5"},
      {L"(vl-string-search \"bar\" \"pfooyfoo\")", L"nil"},
      {L"(vl-string-search \"foo\" \"foo\" 9)", L"nil"},
      {L"(vl-string-subst \"Obi-wan\" \"Ben\" \"Ben Kenobi Ben\")", L"\"Obi-wan Kenobi Ben\""},
      {L"(vl-string-subst \"Obi-wan\" \"Ben\" \"ben Kenobi\")", L"\"ben Kenobi\""},
      {L"(vl-string-subst \"X\" \"Ben\" \"Ben \\\"Ben\\\"\" 3)", L"\"Ben \\\"X\\\"\""},
      {L"(vl-string-trim \" \\t\\n\" \" \\t\\n STR \\n\\t \")", L"\"STR\""},
      {L"(vl-string-left-trim \"12\" \"1212ab12\")", L"\"ab12\""},
      {L"(vl-string-right-trim \"12\" \"1212ab12\")", L"\"1212ab\""},
      {L"(vl-string-trim \"ab\" \"abba\")", L"\"\""},
      {L"(vl-string-position 122 \"azbzc\")", L"1"},
      {L"(vl-string-position (ascii \"z\") \"azbzlmnqc\" nil T)", L"3"},
      {L"(vl-string-position 122 \"azbzc\" 2)", L"3"},
      {L"(vl-string-position 122 \"azbzc\" 2 T)", L"3"},
      {L"(vl-string-position 97 \"azbzc\" 1 T)", L"nil"},
      {L"(vl-string-position 120 \"azbzc\")", L"nil"},
      {L"(vl-string-translate \"abcABC\" \"123123\" \"A is a, B is b, C is C\")",
       L"\"1 is 1, 2 is 2, 3 is 3\""},
      {L"(vl-string-translate \"abc\" \"1\" \"cab\")", L"\"c1b\""},
      {L"(vl-string->list \"12\")", L"(49 50)"},
      {L"(vl-string->list \"\")", L"nil"},
      {L"(vl-list->string '(49 50))", L"\"12\""},
      {L"(vl-list->string nil)", L"\"\""},
      {L"(vl-list->string '(49 \"2\"))", L"ERROR: bad argument type: fixnump: \"2\""},
      {L"(vl-string-elt \"May the Force be with you\" 8)", L"70"},
      {L"(vl-string-elt \"abc\" 3)", L"ERROR: bad argument value: 3"},
      {L"(vl-string-mismatch \"VL-FUN\" \"VL-VAR\")", L"3"},
      {L"(vl-string-mismatch \"vl-fun\" \"avl-var\")", L"0"},
      {L"(vl-string-mismatch \"vl-fun\" \"avl-var\" 0 1)", L"3"},
      {L"(vl-string-mismatch \"VL-FUN\" \"Vl-vAR\")", L"1"},
      {L"(vl-string-mismatch \"VL-FUN\" \"Vl-vAR\" 0 0 T)", L"3"},
      {L"(vl-prin1-to-string \"a\\\\b\")", L"\"\\\"a\\\\\\\\b\\\"\""},
      {L"(vl-princ-to-string \"a\\\\b\")", L"\"a\\\\b\""},
      {L"(vl-princ-to-string '(1 \"x\"))", L"\"(1 x)\""},
      {L"(vl-symbol-name 'abc)", L"\"ABC\""},
      {L"(vl-symbol-name \"abc\")", L"ERROR: bad argument type: symbolp \"abc\""},
      {L"(setq zz 42) (vl-symbol-value 'zz)", L"42"},
  });
}

TEST_F(LispStrings, SymbolTableNames) {
  check({
      {L"(snvalid \"hocus-pocus\")", L"T"},
      {L"(snvalid \"hocus pocus\")", L"T"},
      {L"(snvalid \"hocus%pocus\")", L"T"},
      {L"(snvalid \"hocus|pocus\")", L"nil"},
      {L"(snvalid \"hocus|pocus\" 1)", L"T"},
      {L"(snvalid \"|hocus\" 1)", L"nil"},
      {L"(snvalid \"a*b\")", L"nil"},
      {L"(snvalid \"a\\\\b\")", L"nil"},
      {L"(snvalid \"\")", L"nil"},
  });
}

}  // namespace
}  // namespace vantry::lisp
