// Elbows: the cases each must refuse, and which size pairings a square elbow's prep accepts. (Their
// volumes are measured through the fitting functions, tests/module/ducts_fittings_test.cpp.)
#include <gtest/gtest.h>

#include <limits>

#include "solid_testing.h"

namespace vantry::solid {
namespace {

using namespace testing;

// A vertical run leaving upwards, partnered with an eastward run: y taken from the partner.
const Frame kUp{{0, 0, 1}, {0, 1, 0}, {-1, 0, 0}};

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

}  // namespace
}  // namespace vantry::solid
