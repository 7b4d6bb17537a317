// Frames of runs and the points the LISP application converts, as a LISP caller sees them.
#include "ducts/frame.h"
#include "ducts_testing.h"

namespace vantry::ducts {
namespace {

using testing::DuctsTest;

DuctRun runFrom(AcGePoint3d s, AcGePoint3d e) {
  DuctRun r;
  r.startPoint = s;
  r.endPoint = e;
  return r;
}

// --- Through LISP: conversion and the frame query ------------------------------------------

TEST_F(DuctsTest, ConvertedPointsComeFromTheApplication) {
  // The application's converter folds x onto y: the run then heads north-east.
  lisp("(defun convert_rp_dp (p code) (list (car p) (+ (car p) code) (caddr p)))");
  testing::RunList r;
  EXPECT_EQ(lisp("(equal (ol_ol-getTripleCoord " + r.lisp() +
                 ") (list (list (sqrt 0.5) (sqrt 0.5) 0) (list (- (sqrt 0.5)) (sqrt 0.5) 0) '(0 0 1)) 1e-8)"),
            "T");
  DuctRun run = runFrom({10, 0, 0}, {20, 0, 0});
  run.pointCode = 5;
  testing::expectPoint(justifiedStart(run, nullptr, true), 10, 15, 0);
  testing::expectPoint(justifiedStart(run, nullptr, false), 10, 0, 0);
  // An answer that is not a 3D point, or a failing converter, leaves the point as it was.
  lisp("(defun convert_rp_dp (p code) \"no\")");
  testing::expectPoint(justifiedEnd(run, nullptr, true), 20, 0, 0);
  lisp("(defun convert_rp_dp (p code) (/ 1 0))");
  testing::expectPoint(justifiedEnd(run, nullptr, true), 20, 0, 0);
}

// Converted points move the solids the fitting functions make: a converter that lifts each point by
// its run's point code lifts a straight piece and an elbow (points and frames alike) by that much.
TEST_F(DuctsTest, FittingsBuildOnConvertedPoints) {
  lisp("(defun convert_rp_dp (p code) (list (car p) (cadr p) (+ (caddr p) code)))");
  testing::RunList east{.code = 500}, north{.x0 = 1000, .x1 = 1000, .y1 = 1000, .code = 500};
  for (const char *convert : {"nil", "T"}) {
    SCOPED_TRACE(convert);
    double lift = std::string(convert) == "T" ? 500 : 0;
    AcDbExtents e =
        extentsOf(idOf(std::string("(ol_ol-drawTripleCenter ") + convert + " 0 " + east.lisp() + ")"));
    testing::expectPoint(e.minPoint(), 0, -100, lift - 50);
    testing::expectPoint(e.maxPoint(), 1000, 100, lift + 50);
    e = extentsOf(idOf(std::string("(cdr (assoc \"en1\" (ol_ol-drawTripleElbow ") + convert + " 0 nil 200 " +
                       east.lisp() + " " + north.lisp() + ")))"));
    testing::expectPoint(e.minPoint(), 800, -100, lift - 50, 1e-4);
    testing::expectPoint(e.maxPoint(), 1100, 200, lift + 50, 1e-4);
  }
}

// A sloped run keeps y level; a vertical run takes z = world x alone, or its partner's y.
TEST_F(DuctsTest, TripleCoordReadsAPartnerAndRefusesBadRuns) {
  testing::RunList sloped{.x1 = 100, .z1 = 100};
  testing::RunList up{.x0 = 0, .y0 = 0, .z0 = 0, .x1 = 0, .y1 = 0, .z1 = 500};
  testing::RunList north{.x0 = 0, .y0 = 0, .z0 = 500, .x1 = 0, .y1 = 800, .z1 = 500};
  EXPECT_EQ(lisp("(equal (ol_ol-getTripleCoord " + sloped.lisp() +
                 ") (list (list (sqrt 0.5) 0 (sqrt 0.5)) '(0 1 0) (list (- (sqrt 0.5)) 0 (sqrt 0.5))) 1e-8)"),
            "T");
  EXPECT_EQ(lisp("(ol_ol-getTripleCoord " + up.lisp() + ")"), "((0.0 0.0 1.0) (0.0 -1.0 0.0) (1.0 0.0 0.0))");
  EXPECT_EQ(lisp("(ol_ol-getTripleCoord " + up.lisp() + " " + north.lisp() + ")"),
            "((0.0 0.0 1.0) (-1.0 0.0 0.0) (0.0 -1.0 0.0))");
  // A bad second run is no partner.
  EXPECT_EQ(lisp("(ol_ol-getTripleCoord " + up.lisp() + " '(1 2))"),
            "((0.0 0.0 1.0) (0.0 -1.0 0.0) (1.0 0.0 0.0))");
  EXPECT_EQ(lisp("(ol_ol-getTripleCoord '(1 2 3))"), "ERROR: ADS request error");
  EXPECT_NE(transcript().find("Wrong type of arguments passed."), std::string::npos);
}

}  // namespace
}  // namespace vantry::ducts
