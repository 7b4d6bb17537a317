// Operations on bodies as a whole: union, subtraction (a band hanger), slicing, skins, moving,
// meshing and exploding.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <utility>

#include "solid_testing.h"

namespace vantry::solid {
namespace {

using namespace testing;

// A box duct piece: `length` east from `from`, width along y, depth along z.
SolidBodies box(Pt from, double length, double w, double d, int kind = 0) {
  SolidBodies s;
  EXPECT_TRUE(
      s.addTransition(from, true, w, d, at(from.x + length, from.y, from.z), true, w, d, kEast, kEast, kind));
  return s;
}

TEST(Union, TouchingPiecesBecomeOneBodyWithSummedVolume) {
  SolidBodies a = box(at(5e5, 0, 0), 1000, 400, 200, 3);
  SolidBodies b = box(at(5e5 + 1000, 0, 0), 600, 400, 200, 9);
  ASSERT_TRUE(a.doUnion(b)) << a.lastError();
  EXPECT_EQ(a.bodyCount(), 1);
  EXPECT_LT(rel(a.volume(), 400.0 * 200 * 1600), 1e-9);
  // Same-domain faces were merged: the joined box explodes to six quads, tagged as the target.
  auto faces = a.explode();
  ASSERT_EQ(faces.size(), 6u);
  for (const FacePiece &f : faces) {
    EXPECT_EQ(f.count, 4);
    EXPECT_EQ(f.kind, 3);
  }
  EXPECT_EQ(b.bodyCount(), 1);  // the other is left as it was
}

TEST(Union, OverlappingPiecesCountTheOverlapOnce) {
  SolidBodies a = box(at(0, 0, 0), 1000, 400, 200);
  SolidBodies b;  // a round branch crossing the box
  ASSERT_TRUE(
      b.addTransition(at(500, -500, 0), false, 150, 0, at(500, 500, 0), false, 150, 0, kNorth, kNorth, 0));
  // Overlap: the cylinder's part inside the box, |y| <= 200, the whole section (150 < 200 depth).
  double overlap = M_PI * 75 * 75 * 400;
  double want = 400.0 * 200 * 1000 + M_PI * 75 * 75 * 1000 - overlap;
  ASSERT_TRUE(a.doUnion(b)) << a.lastError();
  EXPECT_LT(rel(a.volume(), want), 1e-7);
}

TEST(Skin, PlateOfPolygonAreaTimesThickness) {
  SolidBodies s;
  ASSERT_TRUE(s.addSkin({at(0, 0, 0), at(100, 0, 0), at(100, 50, 0), at(0, 50, 0), at(0, 0, 0)}, 5));
  EXPECT_LT(rel(s.volume(), 100.0 * 50 * 5), 1e-12);
  Pt lo, hi;
  ASSERT_TRUE(s.extents(lo, hi));
  EXPECT_NEAR(lo.z, 0, 1e-9);  // counter-clockwise seen from above: thickened upwards
  EXPECT_NEAR(hi.z, 5, 1e-9);
  // Clockwise, in a vertical plane, an L shape: area 3 squares of 10.
  SolidBodies l;
  ASSERT_TRUE(
      l.addSkin({at(0, 0, 0), at(0, 0, 20), at(0, 10, 20), at(0, 10, 10), at(0, 20, 10), at(0, 20, 0)}, 2));
  EXPECT_LT(rel(l.volume(), 300.0 * 2), 1e-12);
  ASSERT_TRUE(l.extents(lo, hi));
  EXPECT_NEAR(lo.x, -2, 1e-9);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  struct Bad {
    const char *what;
    std::vector<Pt> pts;
    double t;
  } bad[] = {
      {"two points", {at(0, 0, 0), at(1, 0, 0)}, 1},
      {"in a line", {at(0, 0, 0), at(1, 0, 0), at(2, 0, 0)}, 1},
      {"not flat", {at(0, 0, 0), at(10, 0, 0), at(10, 10, 1), at(0, 10, 0)}, 1},
      {"no thickness", {at(0, 0, 0), at(10, 0, 0), at(10, 10, 0)}, 0},
      {"NaN point", {at(0, 0, 0), at(nan, 0, 0), at(10, 10, 0)}, 1},
      {"crossing itself", {at(0, 0, 0), at(10, 10, 0), at(10, 0, 0), at(0, 10, 0)}, 1},
  };
  for (const Bad &b : bad) {
    SolidBodies t;
    EXPECT_FALSE(t.addSkin(b.pts, b.t)) << b.what;
    EXPECT_EQ(t.bodyCount(), 0) << b.what;
  }
}

// Volume enclosed by a closed triangle mesh (divergence theorem); positive only when every
// triangle faces outwards.
double meshVolume(const Mesh &m) {
  double v = 0;
  for (size_t i = 0; i + 2 < m.triangles.size(); i += 3) {
    const Pt &a = m.vertices[m.triangles[i]], &b = m.vertices[m.triangles[i + 1]],
             &c = m.vertices[m.triangles[i + 2]];
    v += (a.x * (b.y * c.z - b.z * c.y) - a.y * (b.x * c.z - b.z * c.x) + a.z * (b.x * c.y - b.y * c.x)) / 6;
  }
  return v;
}

// Feature edges: where faces meet at a crease. A box's every side is one; a round duct's only its two
// end circles (not its seam, nor where the four arcs of its section meet); a radius elbow's not
// where its legs run smoothly into the arc.
TEST(Explode, MarksTheFeatureEdges) {
  auto sides = [](const SolidBodies &s, auto keep) {
    double length = 0;
    int count = 0;
    for (const FacePiece &f : s.explode())
      for (int i = 0; i < f.count; ++i) {
        const Pt &a = f.corners[i], &b = f.corners[(i + 1) % f.count];
        if (!f.edge[i] || !keep(a, b)) continue;
        length += std::hypot(b.x - a.x, b.y - a.y, b.z - a.z);
        ++count;
      }
    return std::pair(length, count);
  };
  auto any = [](const Pt &, const Pt &) { return true; };
  // Each edge is a side of the two faces that meet there.
  EXPECT_NEAR(sides(box(at(0, 0, 0), 1000, 400, 200), any).first, 2 * 4 * (1000 + 400 + 200), 1e-6);
  SolidBodies round;
  ASSERT_TRUE(round.addTransition(at(0, 0, 0), false, 200, 0, at(300, 0, 0), false, 200, 0, kEast, kEast, 0));
  auto [circles, n] = sides(round, any);
  EXPECT_NEAR(circles, 2 * 2 * M_PI * 200, 0.01 * M_PI * 200);
  auto alongAxis = [](const Pt &a, const Pt &b) { return std::abs(b.x - a.x) > 1; };
  EXPECT_EQ(sides(round, alongAxis).second, 0);
  SolidBodies elbow;
  ASSERT_TRUE(elbow.addRadiusElbow(at(0, 0, 0), 200, 100, 0, 0, at(1000, 1000, 0), 200, 100, kEast, kNorth,
                                   true, 1.0, false, 0, true))
      << elbow.lastError();
  // Upright sides lie on the ends' upright edges only: two at each end, on both of their faces.
  auto upright = [](const Pt &a, const Pt &b) { return std::hypot(b.x - a.x, b.y - a.y) < 1e-6; };
  EXPECT_EQ(sides(elbow, upright).second, 8);
}

}  // namespace
}  // namespace vantry::solid

namespace vantry::solid {
namespace {
using namespace testing;

// A modelling step that runs past its time limit stops and fails its operation, leaving the bodies
// as they were: the runaway becomes a failed fitting, not a hung session.
TEST(Budget, StepPastItsTimeLimitFailsTheOperation) {
  SolidBodies a, b;
  ASSERT_TRUE(a.addTransition(at(0, 0, 0), true, 200, 100, at(1000, 0, 0), true, 200, 100, kEast, kEast, 0));
  ASSERT_TRUE(b.addTransition(at(500, -500, 0), true, 200, 100, at(500, 500, 0), true, 200, 100, kNorth, kNorth, 0));
  setStepTimeLimit(0);
  EXPECT_FALSE(a.doUnion(b));
  setStepTimeLimit(20);
  EXPECT_EQ(a.lastError(), "the modeller ran past its time limit");
  EXPECT_EQ(a.bodyCount(), 1);
  EXPECT_TRUE(a.doUnion(b)) << a.lastError();
}

}  // namespace
}  // namespace vantry::solid
