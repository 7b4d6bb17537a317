// Elbows: radius elbows by Pappus (area x centre-line path), mitred square elbows (area x centre-line
// length to the mitre), the flat cable-tray elbow, and the cases each must refuse.
#include <gtest/gtest.h>

#include <limits>

#include "solid_testing.h"

namespace vantry::solid {
namespace {

using namespace testing;

// A vertical run leaving upwards, partnered with an eastward run: y taken from the partner.
const Frame kUp{{0, 0, 1}, {0, 1, 0}, {-1, 0, 0}};

TEST(RadiusElbow, VolumeIsAreaTimesCentreLine) {
  struct Case {
    const char *what;
    bool rect;
    double w, d;
    Frame fb;
    Pt end;
    double ratio;
    bool throat;
    bool legs;
    double radius;  // centre-line radius worked out by hand
    double angle;
    double legLength;  // both legs together
  } cases[] = {
      // 90 degrees in plan: in-plane size is the width 400; R = 1.5 x 400; tangent length 600.
      {"plan 90", true, 400, 200, kNorth, at(1000, 1000, 0), 1.5, false, true, 600, M_PI / 2, 800},
      {"plan 90 arc only", true, 400, 200, kNorth, at(1000, 1000, 0), 1.5, false, false, 600, M_PI / 2, 0},
      // The same radius given at the throat: 1.0 x 400 + 200.
      {"throat ratio", true, 400, 200, kNorth, at(1000, 1000, 0), 1.0, true, true, 600, M_PI / 2, 800},
      // Turning up: the bend is about y, so the in-plane size is the depth 200; R = 2 x 200.
      {"up 90", true, 400, 200, kUp, at(1000, 0, 1000), 2.0, false, true, 400, M_PI / 2, 1200},
      // 45 degrees, round, diameter 300: R = 300, tangent length 300 tan 22.5.
      {"round 45", false, 300, 0, planFrame(M_PI / 4), at(1000 + 800 * M_SQRT1_2, 800 * M_SQRT1_2, 0), 1.0,
       false, true, 300, M_PI / 4, 1800 - 2 * 300 * std::tan(M_PI / 8)},
  };
  for (const Case &c : cases) {
    SolidBodies s;
    ASSERT_TRUE(s.addRadiusElbow(at(0, 0, 0), c.w, c.d, 0, 0, c.end, c.w, c.d, kEast, c.fb, c.rect, c.ratio,
                                 c.throat, 7, c.legs))
        << c.what << ": " << s.lastError();
    double area = c.rect ? c.w * c.d : M_PI * c.w * c.w / 4;
    EXPECT_LT(rel(s.volume(), area * (c.radius * c.angle + c.legLength)), 1e-7) << c.what;
    EXPECT_EQ(s.bodyCount(), 1) << c.what;
  }
}

TEST(RadiusElbow, Refusals) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  struct Case {
    const char *what;
    double ratio, extraA, endW, endD;
    Pt end;
    Frame fb;
    bool legs;
  } cases[] = {
      {"throat radius zero (ratio 0.5)", 0.5, 0, 400, 200, at(1000, 1000, 0), kNorth, true},
      {"ratio NaN", nan, 0, 400, 200, at(1000, 1000, 0), kNorth, true},
      {"radius too big for the legs", 3.0, 0, 400, 200, at(1000, 1000, 0), kNorth, true},
      {"centre lines miss", 1.5, 0, 400, 200, at(1000, 1000, 50), kNorth, true},
      {"legs in line", 1.5, 0, 400, 200, at(2000, 0, 0), kEast, true},
      {"end size not the start turned", 1.5, 0, 200, 400, at(1000, 1000, 0), kNorth, true},
      {"extra thickness eats the duct", 1.5, 60, 400, 200, at(1000, 1000, 0), kNorth, true},
      {"negative extra thickness", 1.5, -1, 400, 200, at(1000, 1000, 0), kNorth, true},
  };
  for (const Case &c : cases) {
    SolidBodies s;
    EXPECT_FALSE(s.addRadiusElbow(at(0, 0, 0), 400, 200, c.extraA, 40, c.end, c.endW, c.endD, kEast, c.fb,
                                  true, c.ratio, false, 0, c.legs))
        << c.what;
    EXPECT_EQ(s.bodyCount(), 0) << c.what;
    EXPECT_FALSE(s.lastError().empty()) << c.what;
  }
  // Just above the settled minimum ratio the throat is positive and the elbow builds.
  SolidBodies s;
  EXPECT_TRUE(s.addRadiusElbow(at(0, 0, 0), 400, 200, 0, 0, at(1000, 1000, 0), 400, 200, kEast, kNorth, true,
                               0.501, false, 0, true));
}

TEST(SquareElbow, PrepAcceptsOnlyPairingsThatFitAcrossTheBend) {
  struct Case {
    const char *what;
    double wB, dB;
    Frame fb;
    Pt end;
    bool sameThroat, fits;
  } cases[] = {
      {"same sizes", 400, 200, kNorth, at(1000, 1000, 0), true, true},
      {"swapped: depth across the bend differs", 200, 400, kNorth, at(1000, 1000, 0), false, false},
      {"narrower outlet, throat may differ", 300, 200, kNorth, at(1000, 1000, 0), false, true},
      {"narrower outlet, same throat asked", 300, 200, kNorth, at(1000, 1000, 0), true, false},
      // Turning up, the width (along y) crosses the bend: the outlet's width must be 400.
      {"up, width across", 400, 300, kUp, at(1000, 0, 1000), false, true},
      {"up, width differs", 300, 400, kUp, at(1000, 0, 1000), false, false},
      {"corner behind the start", 400, 200, kNorth, at(-100, 1000, 0), false, false},
  };
  for (const Case &c : cases) {
    SolidBodies s;
    Pt heel, throat, corner;
    EXPECT_EQ(s.addSquareElbowPrep(at(0, 0, 0), 400, 200, c.end, c.wB, c.dB, kEast, c.fb, true, heel, throat,
                                   corner, c.sameThroat, 1e-3),
              c.fits)
        << c.what << ": " << s.lastError();
  }
}

TEST(SquareElbow, MitredLegsHaveAreaTimesCentreLineVolume) {
  struct Case {
    const char *what;
    bool rect;
    double w, d;
    Frame fb;
    Pt end;
    double centreLine;
  } cases[] = {
      {"rect 90", true, 400, 200, kNorth, at(1000, 1000, 0), 2000},
      {"rect 60", true, 400, 200, planFrame(M_PI / 3), at(1000 + 700 * 0.5, 700 * std::sqrt(3.0) / 2, 0),
       1700},
      {"round 90 (gored)", false, 300, 0, kNorth, at(1000, 600, 0), 1600},
      {"rect up 90", true, 400, 200, kUp, at(1000, 0, 500), 1500},
  };
  for (const Case &c : cases) {
    SolidBodies s;
    Pt heel, throat, corner;
    ASSERT_TRUE(s.addSquareElbowPrep(at(0, 0, 0), c.w, c.d, c.end, c.w, c.d, kEast, c.fb, c.rect, heel,
                                     throat, corner, true, 1e-3))
        << c.what << ": " << s.lastError();
    ASSERT_TRUE(s.addSquareElbow(at(0, 0, 0), c.w, c.d, c.end, c.w, c.d, kEast, c.fb, c.rect, heel, throat,
                                 corner, 2))
        << c.what << ": " << s.lastError();
    double area = c.rect ? c.w * c.d : M_PI * c.w * c.w / 4;
    EXPECT_LT(rel(s.volume(), area * c.centreLine), 1e-7) << c.what;
    EXPECT_EQ(s.bodyCount(), 1) << c.what;
  }
}

TEST(CableTrayElbow, SquareHeelAndRoundedThroat) {
  // 90 degrees flat, width 600 in plan, sides 100 high, 1000 to the corner each way. The mitred L
  // has area 600 x 2000; rounding the inner corner adds r^2 (1 - pi/4).
  const double r = 150;
  for (double radius : {0.0, r}) {
    SolidBodies s;
    ASSERT_TRUE(
        s.addCableTraySquareRadiusElbow(at(0, 0, 0), 600, 100, at(1000, 1000, 0), kEast, kNorth, radius, 4))
        << s.lastError();
    double want = 100 * (600.0 * 2000 + radius * radius * (1 - M_PI / 4));
    EXPECT_LT(rel(s.volume(), want), 1e-7) << radius;
  }
  SolidBodies s;
  EXPECT_FALSE(
      s.addCableTraySquareRadiusElbow(at(0, 0, 0), 600, 100, at(1000, 1000, 0), kEast, kNorth, -1, 0));
  EXPECT_FALSE(s.addCableTraySquareRadiusElbow(at(0, 0, 0), 600, 100, at(2000, 0, 0), kEast, kEast, 100, 0));
  EXPECT_EQ(s.bodyCount(), 0);
}

}  // namespace
}  // namespace vantry::solid
