// The wye: junction and collars from the prep, the body's extents and volume bounds, refusals.
#include <gtest/gtest.h>

#include "solid_testing.h"

namespace vantry::solid {
namespace {

using namespace testing;

// A flat symmetric wye: trunk from 1000 west of the junction at (0,0,0), branches at +-30 degrees,
// ports 1500 out; all sections 300 x 200.
struct Wye {
  Pt p1 = at(-1000, 0, 0), p2, p3;
  Frame f1 = kEast, f2 = planFrame(M_PI / 6), f3 = planFrame(-M_PI / 6);
  double w = 300, d = 200;
  Wye(double reach = 1500) {
    p2 = at(reach * std::cos(M_PI / 6), reach * std::sin(M_PI / 6), 0);
    p3 = at(reach * std::cos(M_PI / 6), -reach * std::sin(M_PI / 6), 0);
  }
  bool prep(SolidBodies &s, Pt leg[3], Pt collar[3], bool shortLegs = false, bool rect = true) const {
    return s.addWyePrep(p1, w, d, p2, w, d, p3, w, d, f1, f2, f3, rect, leg[0], leg[1], leg[2], collar[0],
                        collar[1], collar[2], shortLegs, 1e-3);
  }
  bool build(SolidBodies &s, const Pt leg[3], const Pt collar[3], bool rect = true) const {
    return s.addWye(p1, w, d, p2, w, d, p3, w, d, leg[0], f1, f2, f3, rect, leg[0], leg[1], leg[2], collar[0],
                    collar[1], collar[2], 5);
  }
};

TEST(Wye, BodyReachesItsPortsAndHoldsItsPieces) {
  Wye wye;
  SolidBodies s;
  Pt leg[3], collar[3];
  ASSERT_TRUE(wye.prep(s, leg, collar));
  ASSERT_TRUE(wye.build(s, leg, collar)) << s.lastError();
  EXPECT_EQ(s.bodyCount(), 1);
  Pt lo, hi;
  ASSERT_TRUE(s.extents(lo, hi));
  // The ports' outer corners: 1500 out at 30 degrees, plus half the width across.
  EXPECT_NEAR(lo.x, -1000, 1e-5);
  EXPECT_NEAR(hi.x, 1500 * std::cos(M_PI / 6) + 150 * std::sin(M_PI / 6), 1e-5);
  EXPECT_NEAR(hi.y, 1500 * std::sin(M_PI / 6) + 150 * std::cos(M_PI / 6), 1e-5);
  EXPECT_NEAR(lo.y, -hi.y, 1e-5);
  EXPECT_NEAR(hi.z - lo.z, 200, 1e-5);
  // Beyond the collars the branches are apart and the trunk is alone: those parts are a lower
  // bound. The collars (here straight, the sizes being equal) and the joint can add at most
  // themselves.
  double area = 300.0 * 200, c = 150 / std::tan(M_PI / 6);
  double apart = area * (1000 + 2 * (1500 - c));
  double most = apart + 2 * area * c + M_PI * 150 * 150 * 200;
  EXPECT_GT(s.volume(), apart + area * c);  // at least one collar's worth joins the rest
  EXPECT_LT(s.volume(), most);
}

TEST(Wye, RoundWyeAndShortLegs) {
  // Round, diameter 400, ports 300 out: the collar would be 200 / tan 30 = 346.
  SolidBodies s;
  Pt leg[3], collar[3];
  Wye round(300);
  round.w = 400;
  round.d = 0;
  EXPECT_FALSE(round.prep(s, leg, collar, false, false));
  ASSERT_TRUE(round.prep(s, leg, collar, true, false)) << s.lastError();
  EXPECT_NEAR(collar[1].x, round.p2.x, 1e-9);  // the collar is the port itself
  ASSERT_TRUE(round.build(s, leg, collar, false)) << s.lastError();
  EXPECT_GT(s.volume(), M_PI * 200 * 200 * 1000);  // the trunk alone
}

TEST(Wye, PrepRefusals) {
  struct Case {
    const char *what;
    Pt p2;
    Frame f2;
  } cases[] = {
      {"branch behind the junction", at(-500, -100, 0), planFrame(M_PI / 6)},
      {"branch turned back against the trunk", at(-1000, 100, 0), planFrame(M_PI * 0.9)},
      {"branches along one line", at(1500 * std::cos(M_PI / 6), -1500 * std::sin(M_PI / 6), 0),
       planFrame(-M_PI / 6)},
      {"centre lines miss the junction", at(1500 * std::cos(M_PI / 6), 1500 * std::sin(M_PI / 6), 300),
       planFrame(M_PI / 6)},
  };
  for (const Case &c : cases) {
    Wye wye;
    wye.p2 = c.p2;
    wye.f2 = c.f2;
    SolidBodies s;
    Pt leg[3], collar[3];
    EXPECT_FALSE(wye.prep(s, leg, collar)) << c.what;
    EXPECT_FALSE(s.lastError().empty()) << c.what;
  }
}

}  // namespace
}  // namespace vantry::solid
