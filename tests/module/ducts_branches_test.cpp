// Takeoffs and wyes from LISP: the solids they make, their ports and the lengths they
// report.
#include "ducts_testing.h"

namespace vantry::ducts {
namespace {

using testing::DuctsTest;
using testing::expectPoint;
using testing::rel;
using testing::RunList;

// A main of 400 x 200 running east through the junction at (1000 0 0).
const RunList kMainIn{.width = 400, .depth = 200};
const RunList kMainOut{.x0 = 1000, .x1 = 2000, .width = 400, .depth = 200};
const RunList kNone{.x0 = 1000, .x1 = 1000};

struct TakeoffCase {
  const char *name, *shoe;
  RunList in, out, branch, second;
  double collars;         // volume of the collars, hand-worked
  double main;            // volume of the main piece
  double back, forward;   // its reach along a and b
  double reach1, reach2;  // the collars' lengths from the centre line
};

TEST_F(DuctsTest, TakeoffCollarsSitFlushOnTheMain) {
  const RunList north{.x0 = 1000, .x1 = 1000, .y1 = 800};  // 200 x 100: its width lies along the main
  const RunList south{.x0 = 1000, .x1 = 1000, .y1 = -800};
  const RunList up{.x0 = 1000, .x1 = 1000, .z1 = 800, .width = 150, .shape = "RD"};
  const TakeoffCase cases[] = {
      // Straight collar 100 beyond the side wall (200 out): 100 x 200 x 100 outside. The main
      // reaches the collar's half width plus a quarter of the branch's larger side.
      {"square collar", "nil", kMainIn, kMainOut, north, kNone, 100 * 200 * 100.0, 300 * 400 * 200.0, 150,
       150, 300, 0},
      // The shoe is 100 wider at the wall, narrowing to the branch over the collar.
      {"shoe", "T", kMainIn, kMainOut, north, kNone, 100 * 100 * (300 + 200) / 2.0, 400 * 400 * 200.0, 200,
       200, 300, 0},
      // A cross: both sides.
      {"cross", "nil", kMainIn, kMainOut, north, south, 2 * 100 * 200 * 100.0, 300 * 400 * 200.0, 150, 150,
       300, 300},
      // From the top of the main, round: the wall is 100 up.
      {"round from the top", "nil", kMainIn, kMainOut, up, kNone, M_PI * 75 * 75 * 100,
       (2 * 112.5) * 400 * 200.0, 112.5, 112.5, 200, 0},
  };
  for (const TakeoffCase &c : cases) {
    SCOPED_TRACE(c.name);
    lisp(std::string("(setq r (ol_ol-drawTripleTakeoff nil 0 ") + c.shoe + " 100.0 " + c.in.lisp() + " " +
         c.out.lisp() + " " + c.branch.lisp() + " " + c.second.lisp() + "))");
    EXPECT_EQ(lisp("(mapcar 'car r)"),
              "(\"en1\" \"en2\" \"dHeadLength\" \"dTailLength1\" \"dTailLength2\" \"dTailLength3\")");
    EXPECT_LT(rel(volumeOf(idOf("(cdr (assoc \"en2\" r))")), c.collars), 1e-6);
    EXPECT_LT(rel(volumeOf(idOf("(cdr (assoc \"en1\" r))")), c.main), 1e-6);
    EXPECT_NEAR(std::stod(lisp("(cdr (assoc \"dHeadLength\" r))")), c.back, 1e-3);
    EXPECT_NEAR(std::stod(lisp("(cdr (assoc \"dTailLength1\" r))")), c.forward, 1e-3);
    EXPECT_NEAR(std::stod(lisp("(cdr (assoc \"dTailLength2\" r))")), c.reach1, 1e-3);
    EXPECT_NEAR(std::stod(lisp("(cdr (assoc \"dTailLength3\" r))")), c.reach2, 1e-3);
  }
}

// A round shoe widens no further than the wall it sits on: a 250 branch with a 150 collar off the
// side of a 300 deep main, off the top of a 400 wide one.
TEST_F(DuctsTest, RoundShoeStaysWithinItsWall) {
  const RunList in{.width = 400, .depth = 300}, out{.x0 = 1000, .x1 = 2000, .width = 400, .depth = 300};
  const RunList side{.x0 = 1000, .x1 = 1000, .y1 = 800, .width = 250, .shape = "RD"};
  const RunList top{.x0 = 1000, .x1 = 1000, .z1 = 800, .width = 350, .shape = "RD"};
  auto collarOf = [&](const RunList &branch) {
    AcDbObjectId id = idOf("(cdr (assoc \"en2\" (ol_ol-drawTripleTakeoff nil 0 T 150.0 " + in.lisp() + " " +
                           out.lisp() + " " + branch.lisp() + " " + kNone.lisp() + ")))");
    EXPECT_TRUE(validOf(id)) << transcript();
    return extentsOf(id);
  };
  AcDbExtents e = collarOf(side);
  EXPECT_NEAR(e.minPoint().z, -150, 1e-4);  // the mouth fills the wall's 300, no more
  EXPECT_NEAR(e.maxPoint().z, 150, 1e-4);
  e = collarOf(top);
  EXPECT_NEAR(e.minPoint().y, -200, 1e-4);
  EXPECT_NEAR(e.maxPoint().y, 200, 1e-4);
}

TEST_F(DuctsTest, TakeoffThatCannotBeBuiltIsNilAndSaysWhy) {
  const RunList along{.x0 = 1000, .x1 = 1800}, outside{.x0 = 1000, .y0 = 500, .x1 = 1000, .y1 = 1300};
  for (const RunList &branch : {along, outside}) {
    EXPECT_EQ(lisp("(ol_ol-drawTripleTakeoff nil 0 nil 100.0 " + kMainIn.lisp() + " " + kMainOut.lisp() +
                   " " + branch.lisp() + " " + kNone.lisp() + ")"),
              "nil");
  }
  EXPECT_NE(transcript().find("\nNo duct solid made: a takeoff branch runs along the main.\n"),
            std::string::npos);
  EXPECT_NE(transcript().find("\nNo duct solid made: a takeoff branch starts outside the main.\n"),
            std::string::npos);
  EXPECT_EQ(lisp("(ol_ol-drawTripleTakeoff nil 0 nil 100.0 " + kMainIn.lisp() + ")"),
            "ERROR: ADS request error");
}

// --- Wyes ---------------------------------------------------------------------------------------

TEST_F(DuctsTest, WyeBranchOfTheOtherShapeGetsATransition) {
  const RunList left{.x0 = 1000, .x1 = 2000, .y1 = 1000, .width = 300};
  const RunList roundRight{.x0 = 1000, .x1 = 2000, .y1 = -1000, .width = 300, .shape = "RD"};
  lisp("(setq r (ol_ol-drawTripleWye nil 0 nil 50.0 " + kMainIn.lisp() + " " + left.lisp() + " " +
       roundRight.lisp() + "))");
  EXPECT_EQ(lisp("(mapcar 'car r)"),
            "(\"en1\" \"en2\" \"en3\" \"dHeadLength\" \"dTailLength1\" \"dTailLength2\")");
  EXPECT_EQ(lisp("(assoc \"en2\" r)"), "(\"en2\")");            // b is rectangular like the trunk: no change
  EXPECT_EQ(lisp("(cdr (assoc \"dHeadLength\" r))"), "250.0");  // h + the extension
  // The shape change is half the branch's larger side long: 150.
  EXPECT_NEAR(std::stod(lisp("(cdr (assoc \"dTailLength2\" r))")) -
                  std::stod(lisp("(cdr (assoc \"dTailLength1\" r))")),
              150, 1e-6);
  EXPECT_GT(volumeOf(idOf("(cdr (assoc \"en3\" r))")), 0);
}

}  // namespace
}  // namespace vantry::ducts
