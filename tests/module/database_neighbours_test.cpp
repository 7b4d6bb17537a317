// The database room's neighbours: the C run-time's random numbers behind
// ol_ol-rand and vt_random, and an automation object that fails to start.
#include <gtest/gtest.h>

#include "drawing/crt_random.h"
#include "frame/lifecycle.h"
#include "module_fixture.h"
#include "session/session.h"

namespace vantry {
namespace {

using host::Session;

TEST(CrtRandom, TheSameSeedGivesThePlatformsSequence) {
  // The platform's documented generator, from seed 1 (also its state before any srand).
  crt::srand(1);
  const int expected[] = {41, 18467, 6334, 26500, 19169, 15724, 11478, 29358, 26962, 24464};
  for (int e : expected) EXPECT_EQ(crt::rand(), e);
  crt::srand(12345);
  int first = crt::rand();
  crt::srand(12345);
  EXPECT_EQ(crt::rand(), first);
}

using RandTest = ModuleFixture;

TEST_F(RandTest, OlRandAnswersIntegersInTheRangeOfTheC_LibrarysRand) {
  crt::srand(1);
  EXPECT_EQ(lisp(L"(ol_ol-rand)"), L"41");
  EXPECT_EQ(lisp(L"(ol_ol-rand 40)"), L"27");  // 18467 % 40
  EXPECT_EQ(lisp(L"(ol_ol-rand -1)"), L"6334");
  // Every draw is an integer that itoa and nth take.
  EXPECT_EQ(lisp(L"(setq ok T)"
                 L"(repeat 2000 (setq r (ol_ol-rand))"
                 L"  (if (not (and (= (type r) 'INT) (<= 0 r 32767) (= (atoi (itoa r)) r))) (setq ok nil)))"
                 L"(repeat 200 (setq r (ol_ol-rand 40)) (if (not (and (= (type r) 'INT) (<= 0 r 39))) (setq ok nil)))"
                 L"(list ok (nth (ol_ol-rand 3) '(a a a)))"),
            L"(T A)");
  EXPECT_EQ(lisp(L"(setq r (vt_random 1000)) (and (= (type r) 'INT) (<= 0 r 999))"), L"T");
}

TEST(AutomationStart, AFailingStartReleasesTheObject) {
  Session &s = Session::get();
  s.reset();
  s.newDocument(L"");
  int dummy;
  s.faults.automationStartFails = true;
  int aliveBefore = host::automationLog().alive;
  EXPECT_EQ(acrxEntryPoint(AcRx::kInitAppMsg, &dummy), AcRx::kRetError);
  // The host does not send the unload message to a module whose start failed.
  EXPECT_FALSE(frame::automationRunning());
  EXPECT_EQ(host::automationLog().alive, aliveBefore);
  s.faults.automationStartFails = false;
  acrxEntryPoint(AcRx::kUnloadAppMsg, &dummy);
  s.reset();
}

}  // namespace
}  // namespace vantry
