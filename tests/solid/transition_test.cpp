// Straight pieces and transitions: volumes against hand-worked formulas, extents, and refusals.
#include <gtest/gtest.h>

#include <limits>

#include "solid_testing.h"

namespace vantry::solid {
namespace {

using namespace testing;

TEST(Transition, RectangleToRectangleFollowsThePrismatoidFormula) {
  // Ruled sides between parallel sections: V = L/6 (A0 + 4 Am + A1), Am the section halfway.
  struct Case {
    double w0, d0, w1, d1, length;
  } cases[] = {{600, 300, 400, 300, 500}, {500, 200, 300, 400, 700}, {100, 100, 800, 50, 250}};
  for (const Case &c : cases) {
    SolidBodies s;
    ASSERT_TRUE(s.addTransition(at(10, 20, 30), true, c.w0, c.d0, at(10 + c.length, 20, 30), true, c.w1, c.d1,
                                kEast, kEast, 0));
    double mid = (c.w0 + c.w1) / 2 * (c.d0 + c.d1) / 2;
    double want = c.length / 6 * (c.w0 * c.d0 + 4 * mid + c.w1 * c.d1);
    EXPECT_LT(rel(s.volume(), want), 1e-7) << c.w0 << "x" << c.d0 << " to " << c.w1 << "x" << c.d1;
  }
}

TEST(Transition, RectangleToRoundFollowsThePrismatoidFormula) {
  // Each side of the rectangle is ruled to the arc between the neighbouring corner angles. The
  // halfway section is traced from that pairing (corner angle c = atan2(d, w)), point for point in
  // proportion along side and arc, and the prismatoid formula gives the volume.
  const double w = 600, d = 300, r = 200, length = 450;
  SolidBodies s;
  ASSERT_TRUE(s.addTransition(at(0, 0, 0), true, w, d, at(length, 0, 0), false, 2 * r, 0, kEast, kEast, 0))
      << s.lastError();
  const double c = std::atan2(d, w);
  const double corner[5][2] = {
      {-w / 2, -d / 2}, {w / 2, -d / 2}, {w / 2, d / 2}, {-w / 2, d / 2}, {-w / 2, -d / 2}};
  const double angle[5] = {-M_PI + c, -c, c, M_PI - c, M_PI + c};
  double mid = 0;
  const int n = 2000;
  double px = 0, py = 0;
  for (int side = 0; side < 4; ++side) {
    for (int i = 0; i <= n; ++i) {
      double t = double(i) / n;
      double rx = corner[side][0] + t * (corner[side + 1][0] - corner[side][0]);
      double ry = corner[side][1] + t * (corner[side + 1][1] - corner[side][1]);
      double a = angle[side] + t * (angle[side + 1] - angle[side]);
      double x = (rx + r * std::cos(a)) / 2, y = (ry + r * std::sin(a)) / 2;
      if (side + i > 0) mid += px * y - x * py;
      px = x;
      py = y;
    }
  }
  mid = std::abs(mid) / 2;
  double want = length / 6 * (w * d + 4 * mid + M_PI * r * r);
  EXPECT_LT(rel(s.volume(), want), 1e-6);
  // The rectangular end explodes to one quad; the round end and the four curved sides to triangles.
  int quads = 0;
  for (const FacePiece &f : s.explode()) quads += f.count == 4;
  EXPECT_EQ(quads, 1);
}

TEST(Transition, RefusesBadInputAndKeepsWhatItHad) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const Frame zero{};
  const Frame alongOnly{{1, 0, 0}, {1, 0, 0}, {0, 0, 1}};
  struct Case {
    const char *what;
    Pt a, b;
    double w0, d0;
    Frame fa;
  } cases[] = {
      {"zero width", at(0, 0, 0), at(100, 0, 0), 0, 50, kEast},
      {"negative depth", at(0, 0, 0), at(100, 0, 0), 50, -5, kEast},
      {"NaN size", at(0, 0, 0), at(100, 0, 0), nan, 50, kEast},
      {"NaN point", at(nan, 0, 0), at(100, 0, 0), 50, 50, kEast},
      {"same point", at(5, 5, 5), at(5, 5, 5), 50, 50, kEast},
      {"zero frame", at(0, 0, 0), at(100, 0, 0), 50, 50, zero},
      {"y along x", at(0, 0, 0), at(100, 0, 0), 50, 50, alongOnly},
      {"end in the start's plane", at(0, 0, 0), at(0, 100, 0), 50, 50, kEast},
  };
  for (const Case &c : cases) {
    SolidBodies s;
    ASSERT_TRUE(
        s.addTransition(at(0, 0, -500), true, 10, 10, at(10, 0, -500), true, 10, 10, kEast, kEast, 3));
    double before = s.volume();
    EXPECT_FALSE(s.addTransition(c.a, true, c.w0, c.d0, c.b, true, 50, 50, c.fa, kEast, 0)) << c.what;
    EXPECT_FALSE(s.lastError().empty()) << c.what;
    EXPECT_EQ(s.bodyCount(), 1) << c.what;
    EXPECT_DOUBLE_EQ(s.volume(), before) << c.what;
  }
}

TEST(Transition, RodRunningAgainstItsFrameIsStillARod) {
  // A hanger rod hanging down to a structure below keeps an upward frame.
  const Frame up{{0, 0, 1}, {1, 0, 0}, {0, 1, 0}};
  SolidBodies s;
  ASSERT_TRUE(s.addTransition(at(0, 0, 0), false, 10, 10, at(0, 0, -300), false, 10, 10, up, up, 0));
  EXPECT_LT(rel(s.volume(), M_PI * 25 * 300), 1e-6);
}

}  // namespace
}  // namespace vantry::solid
