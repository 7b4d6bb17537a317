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

TEST(Union, NeedsBodiesOnBothSides) {
  SolidBodies a = box(at(0, 0, 0), 100, 10, 10), empty;
  EXPECT_FALSE(a.doUnion(empty));
  EXPECT_FALSE(empty.doUnion(a));
  EXPECT_EQ(a.bodyCount(), 1);
  EXPECT_EQ(empty.bodyCount(), 0);
}

TEST(Subtract, BandHangerIsBandMinusOpening) {
  // A band round a 400 x 200 duct with 50 thick stock, 40 long; the opening is larger than the
  // clear size by a tenth of the stock each way.
  SolidBodies s;
  ASSERT_TRUE(s.addTransition(at(-20, 0, 0), true, 500, 300, at(20, 0, 0), true, 500, 300, kEast, kEast, 0));
  ASSERT_TRUE(
      s.subtractTransition(at(-20, 0, 0), true, 410, 210, at(20, 0, 0), true, 410, 210, kEast, kEast, 0))
      << s.lastError();
  EXPECT_LT(rel(s.volume(), 40.0 * (500 * 300 - 410 * 210)), 1e-9);
  // Nothing in the way: refused, bodies kept.
  EXPECT_FALSE(
      s.subtractTransition(at(1000, 0, 0), true, 10, 10, at(1100, 0, 0), true, 10, 10, kEast, kEast, 0));
  EXPECT_LT(rel(s.volume(), 40.0 * (500 * 300 - 410 * 210)), 1e-9);
  SolidBodies empty;
  EXPECT_FALSE(empty.subtractTransition(at(0, 0, 0), true, 1, 1, at(1, 0, 0), true, 1, 1, kEast, kEast, 0));
}

TEST(SliceLast, KeepsTheSideOfTheFourthPoint) {
  struct Case {
    const char *what;
    Pt a, b, c, keep;
    bool ok;
    double volume;
  } cases[] = {
      {"keep the start", at(300, 0, 0), at(300, 1, 0), at(300, 0, 1), at(0, 0, 0), true, 300.0 * 400 * 200},
      {"keep the end", at(300, 0, 0), at(300, 1, 0), at(300, 0, 1), at(900, 9, 9), true, 700.0 * 400 * 200},
      // A slanted cut through the middle at 45 degrees in plan halves the box by symmetry.
      {"slanted", at(500, 0, 0), at(501, 1, 0), at(500, 0, 1), at(0, 0, 0), true, 500.0 * 400 * 200},
      {"points in a line", at(0, 0, 0), at(1, 0, 0), at(2, 0, 0), at(0, 5, 0), false, 0},
      {"keep on the plane", at(300, 0, 0), at(300, 1, 0), at(300, 0, 1), at(300, 50, 50), false, 0},
      {"nothing on the kept side", at(2000, 0, 0), at(2000, 1, 0), at(2000, 0, 1), at(3000, 0, 0), false, 0},
  };
  for (const Case &c : cases) {
    SolidBodies s = box(at(0, 0, 0), 1000, 400, 200);
    ASSERT_TRUE(
        s.addTransition(at(0, 0, 1000), true, 400, 200, at(1000, 0, 1000), true, 400, 200, kEast, kEast, 0));
    double first = 1000.0 * 400 * 200;
    EXPECT_EQ(s.sliceLast(c.a, c.b, c.c, c.keep), c.ok) << c.what << ": " << s.lastError();
    double lastVolume = c.ok ? c.volume : first;  // a refusal leaves the body whole
    EXPECT_LT(rel(s.volume(), first + lastVolume), 1e-9) << c.what;
  }
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

TEST(TransformBy, MovesTurnsScalesAndRefuses) {
  struct Case {
    const char *what;
    double m[4][4];
    bool ok;
    double volumeFactor;
    Pt lo, hi;  // extents of the 100 x 40 x 20 box from (0,-20,-10) after the move
  } cases[] = {
      {"translate",
       {{1, 0, 0, 10}, {0, 1, 0, 20}, {0, 0, 1, 30}, {0, 0, 0, 1}},
       true,
       1,
       at(10, 0, 20),
       at(110, 40, 40)},
      {"quarter turn about z",
       {{0, -1, 0, 0}, {1, 0, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}},
       true,
       1,
       at(-20, 0, -10),
       at(20, 100, 10)},
      {"uniform scale 2",
       {{2, 0, 0, 0}, {0, 2, 0, 0}, {0, 0, 2, 0}, {0, 0, 0, 1}},
       true,
       8,
       at(0, -40, -20),
       at(200, 40, 20)},
      {"mirror in x",
       {{-1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}},
       true,
       1,
       at(-100, -20, -10),
       at(0, 20, 10)},
      {"stretch x by 3",
       {{3, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}},
       true,
       3,
       at(0, -20, -10),
       at(300, 20, 10)},
      {"singular",
       {{1, 0, 0, 0}, {0, 0, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}},
       false,
       1,
       at(0, -20, -10),
       at(100, 20, 10)},
      {"projective",
       {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 1, 1}},
       false,
       1,
       at(0, -20, -10),
       at(100, 20, 10)},
  };
  for (const Case &c : cases) {
    SolidBodies s = box(at(0, 0, 0), 100, 40, 20);
    EXPECT_EQ(s.transformBy(c.m), c.ok) << c.what;
    EXPECT_LT(rel(s.volume(), 80000.0 * c.volumeFactor), 1e-9) << c.what;
    Pt lo, hi;
    ASSERT_TRUE(s.extents(lo, hi));
    for (auto [got, want] : {std::pair{lo.x, c.lo.x},
                             {lo.y, c.lo.y},
                             {lo.z, c.lo.z},
                             {hi.x, c.hi.x},
                             {hi.y, c.hi.y},
                             {hi.z, c.hi.z}})
      EXPECT_NEAR(got, want, 1e-6) << c.what;  // extents are exact to the modelling tolerance
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

TEST(Mesh, EnclosesTheBodiesFacingOutwards) {
  SolidBodies s = box(at(100, 200, 300), 1000, 400, 200);
  EXPECT_LT(rel(meshVolume(s.mesh()), 1000.0 * 400 * 200), 1e-9);
  SolidBodies e;
  ASSERT_TRUE(e.addRadiusElbow(at(0, 0, 0), 300, 0, 0, 0, at(1000, 1000, 0), 300, 0, kEast, kNorth, false,
                               1.5, false, 0, true));
  double exact = e.volume();
  EXPECT_LT(rel(meshVolume(e.mesh()), exact), 1e-2);     // chords cut inside the curved walls
  EXPECT_LT(rel(meshVolume(e.mesh(0.5)), exact), 3e-3);  // finer with a smaller deflection
  EXPECT_TRUE(SolidBodies().mesh().triangles.empty());
}

TEST(Explode, FlatFacesStayWholeAndFaceOutwards) {
  // A triangular plate: two triangles and three quads.
  SolidBodies s;
  ASSERT_TRUE(s.addSkin({at(0, 0, 0), at(30, 0, 0), at(0, 40, 0)}, 10));
  int tri = 0, quad = 0;
  for (const FacePiece &f : s.explode()) {
    (f.count == 3 ? tri : quad)++;
    // Outward: the face's normal (by its corner order) points away from the plate's middle.
    const Pt &a = f.corners[0], &b = f.corners[1], &c = f.corners[2];
    double nx = (b.y - a.y) * (c.z - a.z) - (b.z - a.z) * (c.y - a.y);
    double ny = (b.z - a.z) * (c.x - a.x) - (b.x - a.x) * (c.z - a.z);
    double nz = (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
    double cx = 10, cy = 40.0 / 3, cz = 5;  // centroid of the plate
    EXPECT_GT(nx * (a.x - cx) + ny * (a.y - cy) + nz * (a.z - cz), 0);
  }
  EXPECT_EQ(tri, 2);
  EXPECT_EQ(quad, 3);
  // A cylinder: round ends and the curved side all come as triangles.
  SolidBodies round;
  ASSERT_TRUE(round.addTransition(at(0, 0, 0), false, 100, 0, at(300, 0, 0), false, 100, 0, kEast, kEast, 0));
  auto pieces = round.explode();
  EXPECT_GT(pieces.size(), 20u);
  for (const FacePiece &f : pieces) EXPECT_EQ(f.count, 3);
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
