// Numbers and geometry, checked through the printed form a LISP caller sees.
#include "lisp_fixture.h"

namespace vantry::lisp {
namespace {

class LispMath : public LispFixture {};

TEST_F(LispMath, ArithmeticKeepsIntegersAndWrapsAt32Bits) {
  expectValues({
      {L"(+)", L"0"},
      {L"(+ 1 2.5)", L"3.5"},
      {L"(+ 2147483647 1)", L"-2147483648"},
      {L"(* 65536 65536)", L"0"},
      {L"(* 65536 65536 1.0)", L"0.0"},  // left to right: the integer product wraps first
      {L"(* 2 0.5)", L"1.0"},
      {L"(- 5)", L"-5"},
      {L"(- -2147483648)", L"-2147483648"},
      {L"(- 10 1 2)", L"7"},
      {L"(/ 7 2)", L"3"},
      {L"(/ -7 2)", L"-3"},
      {L"(/ 7 2.0)", L"3.5"},
      {L"(/ 7 2 2.0)", L"1.5"},
      {L"(/ -2147483648 -1)", L"-2147483648"},
      {L"(rem 42 12)", L"6"},
      {L"(rem -7 2)", L"-1"},
      {L"(rem 7.5 2)", L"1.5"},
      {L"(rem 20 7 4)", L"2"},
      {L"(1+ 2147483647)", L"-2147483648"},
      {L"(1- 0.5)", L"-0.5"},
      {L"(abs -5)", L"5"},

      {L"(max 1 2.0)", L"2.0"},
      {L"(max 3 2.0)", L"3.0"},
      {L"(min -1.5 4)", L"-1.5"},
      {L"(fix 3.7)", L"3"},
      {L"(fix -3.7)", L"-3"},
      {L"(fix 1e10)", L"1.0e+010"},
  });
  expectErrors({
      {L"(+ 1 \"a\")", L"bad argument type: numberp: \"a\""},
      {L"(* 2 nil)", L"bad argument type: numberp: nil"},
      {L"(1+ 'a)", L"bad argument type: numberp: A"},
      {L"(/ 1 0)", L"divide by zero"},
      {L"(/ 1.0 0)", L"divide by zero"},
      {L"(/ 1 0.0)", L"divide by zero"},
      {L"(rem 1 0)", L"divide by zero"},
      {L"(fix)", L"too few arguments"},
  });
}

TEST_F(LispMath, TranscendentalFunctions) {
  expectValues({
      {L"pi", L"3.14159"},
      {L"(sqrt 16)", L"4.0"},
      {L"(sqrt 2)", L"1.41421"},

      {L"(atan 1)", L"0.785398"},
      {L"(atan 2.0 3.0)", L"0.588003"},
      {L"(atan 2.0 -3.0)", L"2.55359"},
      {L"(atan 1.0 0.0)", L"1.5708"},
      {L"(expt 2 10)", L"1024"},
      {L"(expt 2 31)", L"-2147483648"},
      {L"(expt 2 -1)", L"0"},
      {L"(expt -1 -3)", L"-1"},
      {L"(expt 2.0 3)", L"8.0"},
      {L"(expt 4 0.5)", L"2.0"},
  });
  expectErrors({
      {L"(sqrt -1)", L"function undefined for argument: -1"},
      {L"(sqrt -1.0)", L"function undefined for argument: -1.0"},
      {L"(log 0)", L"function undefined for argument: 0"},
      {L"(expt -8 0.5)", L"function undefined for argument: -8"},
      {L"(expt 0 -1)", L"divide by zero"},
      {L"(sin \"x\")", L"bad argument type: numberp: \"x\""},
      {L"(atan 1 2 3)", L"too many arguments"},
  });
}

TEST_F(LispMath, IntegersAsBits) {
  expectValues({
      {L"(gcd 81 57)", L"3"},
      {L"(logand 7 12)", L"4"},
      {L"(logand 7 15 3)", L"3"},
      {L"(logior)", L"0"},
      {L"(lsh 2 1)", L"4"},
      {L"(lsh 16384 1)", L"32768"},
      {L"(lsh 2 -1)", L"1"},
      {L"(lsh 1 31)", L"-2147483648"},
      {L"(lsh -1 -28)", L"15"},
      {L"(lsh 1 32)", L"0"},
      {L"(~ 5)", L"-6"},
      {L"(boole 1 12 5)", L"4"},
      {L"(boole 6 6 5)", L"3"},
      {L"(boole 7 12 5)", L"13"},
      {L"(boole 8 6 5)", L"-8"},
      {L"(boole 6 1 2 4)", L"7"},
      {L"(boole 2 12 5)", L"8"},
  });
  expectErrors({
      {L"(gcd 0 5)", L"improper argument: 0"},
      {L"(gcd 4 -6)", L"improper argument: -6"},
      {L"(logand 1 2.0)", L"bad argument type: fixnump: 2.0"},
      {L"(~ 1.5)", L"bad argument type: fixnump: 1.5"},
  });
}

TEST_F(LispMath, ComparisonsOfNumbersAndStrings) {
  expectValues({
      {L"(= 1 1.0)", L"T"},
      {L"(= 1 1 2)", L"nil"},
      {L"(= 7)", L"T"},
      {L"(= \"a\" \"a\")", L"T"},
      {L"(= \"a\" \"A\")", L"nil"},
      {L"(= 'a 'a)", L"T"},
      {L"(= 1 \"1\")", L"nil"},
      {L"(/= 1 2)", L"T"},
      {L"(/= 1 1.0)", L"nil"},
      {L"(/= 10 20 10 20 20)", L"nil"},
      {L"(< 1 3 2)", L"nil"},
      {L"(< 1)", L"T"},
      {L"(<= 1 1 2)", L"T"},
      {L"(> 3 2.5 1)", L"T"},
      {L"(>= 2 2 3)", L"nil"},
      {L"(< \"abc\" \"abd\")", L"T"},
      {L"(< \"B\" \"a\")", L"T"},
      {L"(> \"b\" \"a\" \"A\")", L"T"},
      {L"(<= \"ab\" \"abc\")", L"T"},
      {L"(zerop 0.0)", L"T"},
      {L"(zerop 1e-9)", L"nil"},
      {L"(minusp -0.5)", L"T"},
  });
  expectErrors({
      {L"(=)", L"too few arguments"},
      {L"(< 1 \"a\")", L"bad argument type: numberp: \"a\""},
      {L"(< \"a\" 1)", L"bad argument type: stringp 1"},
      {L"(> 'a 1)", L"bad argument type: numberp: A"},
      {L"(zerop nil)", L"bad argument type: numberp: nil"},
  });
}

TEST_F(LispMath, PointsAndAngles) {
  expectValues({
      {L"(polar '(1 1 3.5) 0.785398 1.414214)", L"(2.0 2.0 3.5)"},
      {L"(polar '(1 2) 0 3)", L"(4.0 2.0)"},
      {L"(distance '(0 0) '(3 4))", L"5.0"},
      {L"(distance '(0 0 0) '(3 4 12))", L"13.0"},
      {L"(distance '(0 0) '(3 4 12))", L"5.0"},
      {L"(angle '(1 1) '(2 2))", L"0.785398"},
      {L"(angle '(0 0) '(0 -1))", L"4.71239"},
      {L"(angle '(5 5 0) '(1 2 0))", L"3.78509"},
  });
  expectErrors({
      {L"(distance '(1) '(2 3))", L"bad argument type: 2D/3D point: (1)"},
      {L"(polar '(0 \"a\") 0 1)", L"bad argument type: 2D/3D point: (0 \"a\")"},
      {L"(distance 5 '(1 2))", L"bad argument type: 2D/3D point: 5"},
      {L"(angle '(1 2 3 4) '(1 2))", L"bad argument type: 2D/3D point: (1 2 3 4)"},
      {L"(polar '(0 0) \"a\" 1)", L"bad argument type: numberp: \"a\""},
  });
}

TEST_F(LispMath, IntersOfSegmentsAndLines) {
  run(L"(setq a '(1.0 1.0) b '(9.0 9.0) c '(4.0 1.0) d '(4.0 2.0))");
  expectValues({
      {L"(inters a b c d)", L"nil"},
      {L"(inters a b c d T)", L"nil"},
      {L"(inters a b c d nil)", L"(4.0 4.0)"},
      {L"(inters '(0 0 0) '(100 100 0) '(100 0 0) '(0 100 0))", L"(50.0 50.0 0.0)"},
      {L"(inters '(0 0 0) '(100 100 0) '(100 0 0) '(60 40 0))", L"nil"},
      {L"(inters '(0 0 0) '(100 100 0) '(100 0 0) '(60 40 0) nil)", L"(50.0 50.0 0.0)"},
      {L"(inters '(0 0) '(1 0) '(1 0) '(1 1))", L"(1.0 0.0)"},         // meeting at an end point
      {L"(inters '(0 0) '(1 0) '(0 1) '(1 1) nil)", L"nil"},           // parallel
      {L"(inters '(0 0) '(1 0) '(0 0) '(0 0) nil)", L"nil"},           // a line of no length
      {L"(inters '(0 0 0) '(1 0 0) '(0 1 1) '(0 -1 1) nil)", L"nil"},  // skew in space
      {L"(inters '(0 0 5) '(2 2 5) '(0 2) '(2 0))", L"(1.0 1.0)"},     // any 2D point: in the plane
  });
  expectErrors({{L"(inters a b c)", L"too few arguments"}});
}

}  // namespace
}  // namespace vantry::lisp
