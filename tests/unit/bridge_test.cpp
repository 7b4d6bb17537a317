// The bridge seen from C++: calls outside an external function, and a failing
// external function meeting *error*.
#include "host_fixture.h"

namespace vantry::host {
namespace {

class Bridge : public HostTest {
 protected:
  Bridge() { EXPECT_TRUE(s().loadModule(L"vantry_testmod.arx", false)); }
};

TEST_F(Bridge, ResultCallsOutsideACallAreRefused) {
  EXPECT_EQ(acedRetInt(1), RTERROR);
  EXPECT_EQ(acedRetNil(), RTERROR);
  EXPECT_EQ(acedGetArgs(), nullptr);
  EXPECT_EQ(acedGetFunCode(), RTERROR);
}

TEST_F(Bridge, FailingExternalFunctionReachesStarError) {
  // *error* runs where the error happened: the caller's local is visible.
  std::wstring r = lisp(
      L"(defun *error* (msg) (setq seen (list msg mine)))"
      L"(defun f (/ mine) (setq mine 'local) (tm-fail))"
      L"(f)");
  EXPECT_EQ(r, L"HANDLED: ADS request error");
  EXPECT_EQ(lisp(L"seen"), L"(\"ADS request error\" LOCAL)");
  EXPECT_NE(s().transcript().find(L"tm-fail failed on purpose."), std::wstring::npos);
}

TEST_F(Bridge, DefinitionsBelongToTheirDocument) {
  Document *first = s().current();
  s().newDocument(L"");
  // The module defined its functions in the new document too, with the same codes.
  EXPECT_EQ(s().current()->functions().names, first->functions().names);
  EXPECT_EQ(lisp(L"(tm-add 1 2)"), L"3.0");
  acedUndef(L"tm-add", 500);
  EXPECT_EQ(lisp(L"(tm-add 1 2)"), L"ERROR: no function definition: TM-ADD");
  s().activate(first);
  EXPECT_EQ(lisp(L"(tm-add 1 2)"), L"3.0");
}

TEST_F(Bridge, BuildListReleasesAndRejectsUnknownTypes) {
  EXPECT_EQ(acutBuildList(RTSHORT, 1, 4242, 0), nullptr);
  resbuf *rb = acutBuildList(RTDXF0, L"LINE", 8, L"0", 62, 1, 0);
  ASSERT_NE(rb, nullptr);
  EXPECT_EQ(rb->restype, 0);
  EXPECT_STREQ(rb->resval.rstring, L"LINE");
  EXPECT_EQ(rb->rbnext->rbnext->resval.rint, 1);
  acutRelRb(rb);
}

}  // namespace
}  // namespace vantry::host
