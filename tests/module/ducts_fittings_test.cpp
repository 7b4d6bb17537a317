// The duct fitting functions from LISP: the solids they make, measured against hand-worked volumes
// and extents, and what they answer on degenerate or bad input.
#include "ducts_testing.h"

namespace vantry::ducts {
namespace {

using testing::DuctsTest;
using testing::expectPoint;
using testing::rel;
using testing::RunList;

// --- Straight pieces ----------------------------------------------------------------------------

TEST_F(DuctsTest, StraightPieceTooShortIsNil) {
  const RunList cases[] = {
      RunList{.head = 600, .tail = 400},      // cut back to nothing
      RunList{.head = 700, .tail = 400},      // past each other
      RunList{.x1 = 0.005},                   // shorter than 0.01 from the start
      RunList{.head = 500, .tail = 499.995},  // shorter than 0.01 after trimming
  };
  for (const RunList &r : cases)
    EXPECT_EQ(lisp("(ol_ol-drawTripleCenter nil 0 " + r.lisp() + ")"), "nil") << r.lisp();
  EXPECT_EQ(transcript().find("passed"), std::string::npos);  // nil without a message
  EXPECT_EQ(lisp("(ol_ol-drawTripleCenter nil 0 '(1 2))"), "ERROR: ADS request error");
  EXPECT_EQ(lisp("(ol_ol-drawTripleCenter \"x\" 0.0)"), "ERROR: ADS request error");
  EXPECT_NE(transcript().find("\nWrong type of arguments passed.\n"), std::string::npos);
}

// --- Transitions --------------------------------------------------------------------------------

// A size change of 10 on the larger side over a 15 degree taper: 18.66 long.
TEST_F(DuctsTest, RectangleToRectangleTransition) {
  RunList a, b{.x0 = 1000, .x1 = 2000, .width = 210};
  lisp("(setq r (ol_ol-drawTripleTransition nil 0 " + a.lisp() + " " + b.lisp() + "))");
  EXPECT_EQ(lisp("(mapcar 'car r)"), "(\"en1\" \"dHeadLength\" \"dTailLength\")");
  EXPECT_EQ(lisp("(cdr (assoc \"dHeadLength\" r))"), "0.0");
  double length = realOf("(cdr (assoc \"dTailLength\" r))");
  EXPECT_NEAR(length, 18.66, 0.005);
  AcDbObjectId id = idOf("(cdr (assoc \"en1\" r))");
  EXPECT_LT(rel(volumeOf(id), length * 100 * 205), 1e-9);  // the width grows evenly at one depth
  AcDbExtents e = extentsOf(id);
  expectPoint(e.minPoint(), 1000, -105, -50);
  expectPoint(e.maxPoint(), 1000 + length, 105, 50);
}

// --- Elbows -------------------------------------------------------------------------------------

struct ElbowCase {
  const char *name;
  std::string head;  // the arguments before the radius
  double radius;
  RunList a, b;
  double volume, reach;
};

TEST_F(DuctsTest, ElbowVolumesByPappusAndByMitre) {
  const RunList east, north{.x0 = 1000, .x1 = 1000, .y1 = 1000};
  const RunList eastRound{.width = 200, .shape = "rd"},
      northRound{.x0 = 1000, .x1 = 1000, .y1 = 1000, .shape = "rd"};
  const RunList riser{.x0 = 1000, .x1 = 1000, .z1 = 1000};
  const double area = 200 * 100, quarter = M_PI / 2;
  const ElbowCase cases[] = {
      // Radius elbows: the section revolved through the bend about a radius R = ratio x size in plane.
      {"plan bend, ratio 1", "nil", 200, east, north, area * 200 * quarter, 200},
      {"round, ratio 1.5", "nil", 300, eastRound, northRound, M_PI * 100 * 100 * 300 * quarter, 300},
      {"ratio 0.3 becomes 0.501", "nil", 60, east, north, area * 100.2 * quarter, 100.2},
      {"ratio 0 becomes 1.5", "nil", 0, east, north, area * 300 * quarter, 300},
      {"riser: depth is in the bend plane", "nil", 200, east, riser, area * 100 * quarter, 100},
      {"type text other than CABLETRAY", "\"SHEET\" nil", 200, east, north, area * 200 * quarter, 200},
      // Square elbow: each mitred leg's volume is the area times its centre line to the mitre.
      {"square", "T", 200, east, north, area * 400, 200},
      // A flat cable tray: the mitred tray with collars 10 longer, its throat rounded by 100.
      {"flat cable tray", "\"CABLETRAY\"", 200, east, north, area * 420 + 100 * 100 * (1 - M_PI / 4) * 100,
       210},
      // A cable tray that climbs stays a radius elbow.
      {"climbing cable tray", "\"CABLETRAY\"", 200, east, riser, area * 100 * quarter, 100},
  };
  for (const ElbowCase &c : cases) {
    SCOPED_TRACE(c.name);
    lisp("(setq r (ol_ol-drawTripleElbow nil 0 " + c.head + " " + std::to_string(c.radius) + " " +
         c.a.lisp() + " " + c.b.lisp() + "))");
    AcDbObjectId id = idOf("(cdr (assoc \"en1\" r))");
    ASSERT_FALSE(id.isNull()) << lisp("r");
    EXPECT_LT(rel(volumeOf(id), c.volume), 1e-6);
    EXPECT_NEAR(std::stod(lisp("(cdr (assoc \"dHeadLength\" r))")), c.reach, 1e-3);
    EXPECT_NEAR(std::stod(lisp("(cdr (assoc \"dTailLength\" r))")), c.reach, 1e-3);
    EXPECT_EQ(lisp("(assoc \"en2\" r)"), "(\"en2\")");  // the key is always there; no change of size
  }
}

// Radius or square, the elbow keeps a's size throughout and a second solid widens it to b's.
TEST_F(DuctsTest, ElbowIntoALargerRunGetsATransition) {
  RunList east, north{.x0 = 1000, .x1 = 1000, .y1 = 1000, .width = 300};
  for (const char *square : {"nil", "T"}) {
    SCOPED_TRACE(square);
    lisp(std::string("(setq r (ol_ol-drawTripleElbow nil 0 ") + square + " 200 " + east.lisp() + " " +
         north.lisp() + "))");
    EXPECT_EQ(lisp("(mapcar 'car r)"), "(\"en1\" \"en2\" \"dHeadLength\" \"dTailLength\")");
    AcDbObjectId change = idOf("(cdr (assoc \"en2\" r))");
    const double length = 186.6025;  // a 15 degree taper over 50 on each side
    ASSERT_FALSE(change.isNull()) << lisp("r");
    EXPECT_LT(rel(volumeOf(change), length * 100 * 250), 1e-6);
    EXPECT_NEAR(realOf("(cdr (assoc \"dHeadLength\" r))"), 200, 1e-3);
    EXPECT_NEAR(realOf("(cdr (assoc \"dTailLength\" r))"), 200 + length, 1e-3);
    AcDbExtents e = extentsOf(change);
    expectPoint(e.minPoint(), 850, 200, -50, 1e-4);
    expectPoint(e.maxPoint(), 1150, 200 + length, 50, 1e-3);
  }
  // A round run into a rectangular one: the shape changes in the second solid too.
  RunList roundEast{.shape = "RD"};
  lisp("(setq r (ol_ol-drawTripleElbow nil 0 T 200 " + roundEast.lisp() + " " + north.lisp() + "))");
  EXPECT_GT(volumeOf(idOf("(cdr (assoc \"en2\" r))")), 0) << lisp("r");
}

// An elbow that cannot be built answers nil and says why on the command line.
TEST_F(DuctsTest, ElbowThatCannotBeBuiltIsNilAndSaysWhy) {
  const RunList east, north{.x0 = 1000, .x1 = 1000, .y1 = 1000};
  const struct Case {
    const char *name;
    RunList a, b;
    double radius;
    const char *why;
  } cases[] = {
      {"straight on", east, RunList{.x0 = 1000, .x1 = 2000}, 200, "the elbow's runs lie in one line"},
      {"centre lines miss each other", east,
       RunList{.x0 = 1000, .z0 = 300, .x1 = 1000, .y1 = 1000, .z1 = 300}, 200,
       "the centre lines of the elbow's runs do not meet"},
      // Runs 500 long and a radius of 900: the elbow would reach 400 behind the start of a.
      {"longer than its runs", RunList{.x0 = 500}, RunList{.x0 = 1000, .x1 = 1000, .y1 = 500}, 900,
       "the elbow reaches behind the start of its first run"},
      {"longer than its second run", east, RunList{.x0 = 1000, .x1 = 1000, .y1 = 150}, 200,
       "the elbow reaches past the end of its second run"},
      // A turn in plan and in elevation at once: a's sides would roll against b's.
      {"rolled", east, RunList{.x0 = 1000, .x1 = 1000, .y1 = 1000, .z1 = 1000}, 200,
       "the elbow turns in plan and in elevation at once (a rolled elbow)"},
      // The modeller's own refusal: nil with no message, as the product answers it.
      {"negative radius", east, north, -200, nullptr},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    size_t before = transcript().size();
    EXPECT_EQ(lisp("(ol_ol-drawTripleElbow nil 0 nil " + std::to_string(c.radius) + " " + c.a.lisp() + " " +
                   c.b.lisp() + ")"),
              "nil");
    std::string said = transcript().substr(before);
    if (c.why)
      EXPECT_NE(said.find("\nNo duct solid made: " + std::string(c.why) + ".\n"), std::string::npos) << said;
    else
      EXPECT_EQ(said.find("No duct solid made"), std::string::npos) << said;
  }
  // The elbow that just fits its runs is built.
  EXPECT_NE(lisp("(ol_ol-drawTripleElbow nil 0 nil 200 " + RunList{.x0 = 800}.lisp() + " " +
                 RunList{.x0 = 1000, .x1 = 1000, .y1 = 200}.lisp() + ")"),
            "nil");
  EXPECT_EQ(lisp("(ol_ol-drawTripleElbow nil 0 nil \"r\" " + east.lisp() + ")"), "ERROR: ADS request error");
}

// --- Hangers ------------------------------------------------------------------------------------

TEST_F(DuctsTest, HangerVolumesAreStrutPlusRodsOrBandMinusOpening) {
  const double rod = M_PI * 5 * 5;  // a rod of 10
  struct Case {
    const char *name, *args;
    double volume;
    double minZ, maxZ;
  } cases[] = {
      // Trapeze under a 200 x 100 duct at (500 0 0): strut 240 x 40 x 20 centred at z -70, rods
      // 110 off centre.
      {"trapeze hung from above", "nil '(500 0 0) 0.0 200 100 nil 10 40 500.0 0",
       240 * 40 * 20 + 2 * rod * 550, -90, 500},
      // Rod 1 runs down from the strut's lower face, rod 2 still from its upper face.
      {"trapeze standing on a structure below", "nil '(500 0 0) 0.0 200 100 nil 10 40 -500.0 0",
       240 * 40 * 20 + rod * (410 + 450), -500, -50},
      {"trapeze with its rod end at the top", "nil '(500 0 0) 0.0 200 100 nil 10 40 -50.0 0", 240 * 40 * 20,
       -90, -50},
      // Band 210 x 110 x 10 round the duct, its opening 201 x 101 (a tenth of the band's added
      // thickness), the rod from the clear top (cut by the opening's extra half unit) to 500.
      {"band hung from above", "T '(500 0 0) 0.0 200 100 T 10 5 500.0 0",
       10.0 * 210 * 110 - 10.0 * 201 * 101 + rod * 449.5, -55, 500},
      {"band with its rod end at the top", "T '(500 0 0) 0.0 200 100 T 10 5 50.0 0",
       10.0 * 210 * 110 - 10.0 * 201 * 101, -55, 55},
      // Below the insertion the rod runs down from the clear bottom (again cut by half a unit).
      {"band standing on a structure below", "T '(500 0 0) 0.0 200 100 T 10 5 -500.0 0",
       10.0 * 210 * 110 - 10.0 * 201 * 101 + rod * 449.5, -500, 55},
      {"band with its rod end at the bottom", "T '(500 0 0) 0.0 200 100 T 10 5 -50.0 0",
       10.0 * 210 * 110 - 10.0 * 201 * 101, -55, 55},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    lisp(std::string("(setq r (ol_ol-drawHanger ") + c.args + "))");
    EXPECT_EQ(lisp("(car (car r))"), "\"hanger\"");
    AcDbObjectId id = idOf("(cdr (assoc \"hanger\" r))");
    ASSERT_FALSE(id.isNull()) << lisp("r");
    EXPECT_LT(rel(volumeOf(id), c.volume), 1e-6);
    AcDbExtents e = extentsOf(id);
    EXPECT_NEAR(e.minPoint().z, c.minZ, 1e-4);
    EXPECT_NEAR(e.maxPoint().z, c.maxZ, 1e-4);
  }
}

// --- Union and explode --------------------------------------------------------------------------

TEST_F(DuctsTest, UnionJoinsTheSecondIntoTheFirstAndErasesIt) {
  RunList a{.x1 = 500}, b{.x0 = 500, .x1 = 1000};
  lisp("(setq s1 (ol_ol-drawTripleCenter nil 0 " + a.lisp() + ") s2 (ol_ol-drawTripleCenter nil 0 " +
       b.lisp() + "))");
  EXPECT_EQ(lisp("(ol_ol-tripleUnion s1 s2)"), "nil");
  AcDbObjectId first = idOf("s1"), second = idOf("s2");
  EXPECT_LT(rel(volumeOf(first), 1000.0 * 200 * 100), 1e-9);
  EXPECT_TRUE(second.isErased());
  {
    AcDbObjectPointer<ol_hvacSolid> s(first, AcDb::kForRead);
    ASSERT_EQ(s.openStatus(), Acad::eOk);
    EXPECT_EQ(s->bodyCount(), 1);
  }
  // The second is gone: opening it fails, which is a wrong argument.
  EXPECT_EQ(lisp("(ol_ol-tripleUnion s1 s2)"), "ERROR: ADS request error");
  EXPECT_EQ(lisp("(ol_ol-tripleUnion s1 \"s2\")"), "ERROR: ADS request error");
}

TEST_F(DuctsTest, WithoutTheSolidModuleNothingIsDrawn) {
  ASSERT_TRUE(host::Session::get().unloadModule(L"ol_ol-solid2025x64.dbx"));
  EXPECT_EQ(lisp("(ol_ol-drawTripleCenter nil 0 " + RunList{}.lisp() + ")"), "nil");
  EXPECT_NE(transcript().find("solid module ol_ol-solid2025x64.dbx is not loaded"), std::string::npos);
  EXPECT_EQ(lisp("(ol_ol-drawHanger nil '(0 0 0) 0.0 200 100 nil 10 40 500.0 0)"), "nil");
}

}  // namespace
}  // namespace vantry::ducts

namespace vantry::ducts {
namespace {
using testing::DuctsTest;
using testing::RunList;

// Degenerate or infinite input crashed the modeller (a depth of 1e308 whose half-size doubled
// overflows; INF or NaN sizes; a trapeze 1e6 wide on 0.001 rods turned 0.5 rad) or hung it (a band
// hanger of strut depth 1e-9). Numbers that are not finite are bad data; sizes the model cannot hold
// make no solid, at once.
TEST_F(DuctsTest, DegenerateOrInfiniteInputNeverReachesTheModeller) {
  lisp("(setq inf (* 1e308 10.0) nan (- inf inf))");
  for (const char *depth : {"inf", "nan"}) {
    SCOPED_TRACE(depth);
    RunList r;
    std::string run = r.lisp();
    run.replace(run.find(" 100 "), 5, std::string(" ") + depth + " ");
    EXPECT_EQ(lisp("(ol_ol-drawTripleCenter nil 0 " + run + ")"), "ERROR: ADS request error");
    EXPECT_NE(transcript().find("Bad data passed ."), std::string::npos);
    EXPECT_EQ(lisp("(ol_ol-drawHanger nil '(0 0 0) 0.0 400.0 " + std::string(depth) +
                   " nil 10.0 50.0 1000.0 0)"),
              "ERROR: ADS request error");
  }
  RunList huge;
  huge.depth = 1e308;
  EXPECT_EQ(lisp("(ol_ol-drawTripleCenter nil 0 " + huge.lisp() + ")"), "nil");
  EXPECT_EQ(lisp("(ol_ol-drawHanger nil '(0 0 0) 0.5 1e6 300.0 nil 0.001 50.0 1000.0 0)"), "nil");
  EXPECT_EQ(lisp("(ol_ol-drawHanger T '(0 0 0) 0.5 400.0 300.0 T 10.0 1e-9 1000.0 0)"), "nil");
  EXPECT_EQ(lisp("(ol_ol-drawHanger T '(0 0 0) 0.5 400.0 300.0 nil 10.0 1e-9 1000.0 0)"), "nil");
  // Sizes the model holds still build.
  EXPECT_NE(lisp("(ol_ol-drawHanger T '(0 0 0) 0.5 400.0 300.0 nil 10.0 2.0 1000.0 0)"), "nil");
}

}  // namespace
}  // namespace vantry::ducts
