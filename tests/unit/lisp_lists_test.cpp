// List functions and predicates, checked through the printed form a LISP
// caller sees.
#include "lisp_fixture.h"

namespace vantry::lisp {
namespace {

class LispLists : public LispFixture {};

TEST_F(LispLists, CarCdrFamilyWalksToFourLevels) {
  expectValues({
      {L"(car '(1 2))", L"1"},
      {L"(car nil)", L"nil"},
      {L"(cdr '(1 . 2))", L"2"},
      {L"(caar '((1 2) 3))", L"1"},
      {L"(cadr '(1 2 3))", L"2"},
      {L"(cadr '(1))", L"nil"},
      {L"(caadr '(1 (2 3)))", L"2"},
      {L"(cdddr '(1 2 3 4))", L"(4)"},
      {L"(cadddr '(1 2 3 4))", L"4"},
      {L"(cddddr '(1 2 3 4 5))", L"(5)"},
      {L"(caaddr '(1 2 (3 4)))", L"3"},
  });
  expectErrors({
      {L"(car 5)", L"bad argument type: consp 5"},
      {L"(cadr '(1 . 2))", L"bad argument type: consp 2"},
      {L"(cdr \"ab\")", L"bad argument type: consp \"ab\""},
      {L"(car)", L"too few arguments"},
      {L"(car '(1) '(2))", L"too many arguments"},
  });
}

TEST_F(LispLists, BuildingLists) {
  expectValues({
      {L"(cons 1 2)", L"(1 . 2)"},
      {L"(list)", L"nil"},
      {L"(list 1 \"a\" 'b 2.5)", L"(1 \"a\" B 2.5)"},
      {L"(vl-list* 1 2 '(3 4))", L"(1 2 3 4)"},
      {L"(vl-list* 1 2)", L"(1 . 2)"},
      {L"(vl-list* 1)", L"1"},
      {L"(append '(1 2) '(3) nil '(4 5))", L"(1 2 3 4 5)"},
      {L"(append)", L"nil"},
      {L"(append '(1) '(2 . 3))", L"(1 2 . 3)"},
      {L"(reverse '(1 (2 3) 4))", L"(4 (2 3) 1)"},
  });
  expectErrors({
      {L"(cons 1)", L"too few arguments"},
      {L"(append '(1) 2)", L"bad argument type: listp 2"},
      {L"(append '(1 . 2) '(3))", L"bad argument type: listp (1 . 2)"},
      {L"(reverse \"a\")", L"bad argument type: listp \"a\""},
  });
}

TEST_F(LispLists, LengthsAndPositions) {
  expectValues({
      {L"(length '(1 2 3))", L"3"},
      {L"(vl-list-length '(1 . 2))", L"nil"},
      {L"(nth 2 '(a b c))", L"C"},
      {L"(nth 3 '(a b c))", L"nil"},
      {L"(nth -1 '(a b c))", L"nil"},
      {L"(last '(1 2 3))", L"3"},
      {L"(last '(1 2 . 3))", L"3"},
      {L"(last '((a . b)))", L"(A . B)"},
  });
  expectErrors({
      {L"(length 5)", L"bad argument type: listp 5"},
      {L"(length '(1 . 2))", L"bad argument type: listp (1 . 2)"},
      {L"(vl-list-length 5)", L"bad argument type: listp 5"},
      {L"(nth 1.0 '(1 2))", L"bad argument type: fixnump: 1.0"},
      {L"(nth 0 7)", L"bad argument type: listp 7"},
  });
}

TEST_F(LispLists, SearchingUsesEqual) {
  expectValues({
      {L"(member 'c '(a b c d))", L"(C D)"},
      {L"(member '(1) '(0 (1) 2))", L"((1) 2)"},
      {L"(member 1.0 '(0 1 2))", L"(1 2)"},
      {L"(assoc 2 '((1 . \"a\") (2 . \"b\")))", L"(2 . \"b\")"},
      {L"(assoc \"k\" '(x (\"k\" 1)))", L"(\"k\" 1)"},
      {L"(vl-position \"c\" '(\"a\" \"b\" \"c\"))", L"2"},
      {L"(vl-remove 2 '(1 2 3 2))", L"(1 3)"},
      {L"(subst 'qq 'b '(a b (c d) b))", L"(A QQ (C D) QQ)"},
      {L"(subst 'qq '(c d) '(a b (c d) b))", L"(A B QQ B)"},
      {L"(subst 1 2 '(2 (2)))", L"(1 (2))"},  // top level only
      {L"(subst 'qq 'z '(a b))", L"(A B)"},
      {L"(subst 2 1 '(0 . 1))", L"(0 . 2)"},
      {L"(subst 'x 1 '(1 0 . 1))", L"(X 0 . X)"},
      {L"(subst 'x 0 '(1 0 . 1))", L"(1 X . 1)"},
  });
}

// Results that are part of an argument share its cells instead of copying.
TEST_F(LispLists, ResultsShareTheArgumentsCells) {
  run(L"(setq l '(1 2 3 4) tl '(8 9))");
  expectValues({
      {L"(eq (member 2 l) (cdr l))", L"T"},
      {L"(eq (subst 0 7 l) l)", L"T"},
      {L"(eq (cdr (subst 0 1 l)) (cdr l))", L"T"},
      {L"(eq (cddr (append '(1 2) tl)) tl)", L"T"},
      {L"(eq (vl-member-if 'zerop l) l)", L"nil"},
      {L"(eq (vl-member-if 'numberp l) l)", L"T"},
      {L"l", L"(1 2 3 4)"},
  });
}

TEST_F(LispLists, FunctionsAppliedOverLists) {
  expectValues({
      {L"(mapcar '1+ '(1 2 3))", L"(2 3 4)"},
      {L"(mapcar '+ '(1 2 3) '(10 20))", L"(11 22)"},
      {L"(mapcar '(lambda (x) (* x x)) '(1 2))", L"(1 4)"},
      {L"(mapcar 'list '(1 2) '(a b) '(\"x\" \"y\"))", L"((1 A \"x\") (2 B \"y\"))"},
      {L"(vl-remove-if 'minusp '(-1 2 -3 4))", L"(2 4)"},
      {L"(vl-remove-if-not 'minusp '(-1 2 -3 4))", L"(-1 -3)"},
      {L"(vl-member-if 'minusp '(1 -2 3))", L"(-2 3)"},
      {L"(vl-member-if-not 'numberp '(1 a 2))", L"(A 2)"},
      {L"(vl-some '= '(1 2 3) '(3 2 1))", L"T"},
      {L"(vl-some '(lambda (x) (if (> x 1) (* x 10))) '(1 2 3))", L"20"},
      {L"(vl-every '< '(1 2) '(2 3 0))", L"T"},
      {L"(vl-every 'numberp '(1 a))", L"nil"},
      {L"(vl-every 'minusp nil)", L"T"},
  });
  expectErrors({
      {L"(mapcar 'car '(1))", L"bad argument type: consp 1"},
      {L"(mapcar '1+ 5)", L"bad argument type: listp 5"},
      {L"(mapcar '1+)", L"too few arguments"},
  });
}

TEST_F(LispLists, SortingOrdersAndDropsEqDuplicates) {
  expectValues({
      {L"(vl-sort '(3 2 1 3) '<)", L"(1 2 3)"},
      {L"(vl-sort '(3 1 2 1) '<=)", L"(1 2 3)"},
      {L"(vl-sort '(\"b\" \"a\" \"b\") '<)", L"(\"a\" \"b\" \"b\")"},
      {L"(vl-sort '((1 3) (2 2) (3 1)) (function (lambda (e1 e2) (< (cadr e1) (cadr e2)))))",
       L"((3 1) (2 2) (1 3))"},
      // Equal keys: the later element first, as vl-sort-i orders them.
      {L"(vl-sort '((1 a) (1 b) (0 c)) '(lambda (x y) (< (car x) (car y))))", L"((0 C) (1 B) (1 A))"},
      {L"(vl-sort-i '(3 2 1 3) '<)", L"(2 1 3 0)"},
      {L"(vl-sort-i '(3 2 1 3) '>)", L"(3 0 1 2)"},
      {L"(vl-sort-i '(\"a\" \"d\" \"f\" \"c\") '>)", L"(2 1 3 0)"},
      {L"(vl-sort-i '((1 3) (2 2) (3 1)) (function (lambda (e1 e2) (< (cadr e1) (cadr e2)))))", L"(2 1 0)"},
      {L"(acad_strlsort '(\"Jan\" \"Feb\" \"Mar\" \"Apr\"))", L"(\"Apr\" \"Feb\" \"Jan\" \"Mar\")"},
      {L"(acad_strlsort '(\"b\" \"A\" \"a\" \"B\"))", L"(\"A\" \"a\" \"B\" \"b\")"},
      {L"(acad_strlsort '(\"a\" 1))", L"nil"},
  });
  expectErrors({
      {L"(vl-sort 5 '<)", L"bad argument type: listp 5"},
      {L"(vl-sort '(1 \"a\") '<)", L"bad argument type: numberp: \"a\""},
  });
}

TEST_F(LispLists, SortingALongListMatchesCounting) {
  // 0..999 scrambled by a multiplier prime to 1000, sorted back.
  run(L"(setq i 0 l nil want nil)"
      L"(while (< i 1000) (setq l (cons (rem (* i 7919) 1000) l) want (cons (- 999 i) want) i (1+ i)))");
  EXPECT_EQ(run(L"(equal (vl-sort l '<) want)"), L"T");
  EXPECT_EQ(run(L"(equal (mapcar '(lambda (k) (nth k l)) (vl-sort-i l '<)) want)"), L"T");
}

TEST_F(LispLists, Predicates) {
  run(L"(setq bound 1)");
  expectValues({
      {L"(listp nil)", L"T"},
      {L"(listp 1)", L"nil"},
      {L"(atom nil)", L"T"},
      {L"(vl-consp nil)", L"nil"},
      {L"(vl-consp '(1 . 2))", L"T"},

      {L"(vl-symbolp \"a\")", L"nil"},
      {L"(not 0)", L"nil"},
      {L"(boundp 'bound)", L"T"},
      {L"(boundp 'never-set-anywhere)", L"nil"},
      {L"(boundp nil)", L"nil"},
  });
  expectErrors({{L"(boundp 1)", L"bad argument type: symbolp 1"}});
}

TEST_F(LispLists, EqIsIdentityEqualIsStructure) {
  // Entity names made apart compare by the names they carry.
  in.setSymbolValue(L"E1", Value(new Handle2(Type::Ename, 7, 8)));
  in.setSymbolValue(L"E2", Value(new Handle2(Type::Ename, 7, 8)));
  in.setSymbolValue(L"E3", Value(new Handle2(Type::Ename, 7, 9)));
  expectValues({
      {L"(eq e1 e2)", L"T"},
      {L"(equal (list e1) (list e3))", L"nil"},
      {L"(eq 'a 'a)", L"T"},
      {L"(eq 1 1.0)", L"nil"},
      {L"(eq \"a\" \"a\")", L"nil"},
      {L"(eq '(1) '(1))", L"nil"},
      {L"(equal '(1 (2 \"x\")) '(1 (2 \"x\")))", L"T"},
      {L"(equal '(1 . 2) '(1 . 2))", L"T"},
      {L"(equal '(1 2) '(1 2 3))", L"nil"},
      {L"(equal 1 1.0)", L"T"},
      {L"(equal \"a\" \"A\")", L"nil"},
      {L"(equal 1.123456 1.123457)", L"nil"},
      {L"(equal 1.123456 1.123457 0.000001)", L"T"},
      {L"(equal '(1.0 (2.0)) '(1.0001 (2.0)) 0.001)", L"T"},
      {L"(equal '(1.0 (2.0)) '(1.0 (2.1)) 0.001)", L"nil"},
      {L"(equal 5 7 2)", L"T"},
  });
  expectErrors({{L"(equal 1 2 \"x\")", L"bad argument type: numberp: \"x\""}});
}

TEST_F(LispLists, TypeNamesEveryKindOfValue) {
  in.setSymbolValue(L"E", Value(new Handle2(Type::Ename, 1, 2)));
  in.setSymbolValue(L"S", Value(new Handle2(Type::Pickset, 3, 4)));
  in.setSymbolValue(L"F", Value(new File(L"x.txt", nullptr, L'r')));
  in.setSymbolValue(L"X", Value(new Exrxsubr(L"X", 1, nullptr)));
  in.setSymbolValue(L"ERR", Value(new CatchError(L"divide by zero")));
  expectValues({
      {L"(type 1)", L"INT"},
      {L"(type 1.0)", L"REAL"},
      {L"(type \"\")", L"STR"},
      {L"(type 'a)", L"SYM"},
      {L"(type '(1))", L"LIST"},
      {L"(type car)", L"SUBR"},
      {L"(type (lambda (x) x))", L"USUBR"},
      {L"(type x)", L"EXRXSUBR"},
      {L"(type e)", L"ENAME"},
      {L"(type s)", L"PICKSET"},
      {L"(type f)", L"FILE"},
      {L"(type err)", L"VL-CATCH-ALL-APPLY-ERROR"},
      {L"(type nil)", L"nil"},
  });
}

}  // namespace
}  // namespace vantry::lisp
