// Frames of runs and the points the LISP application converts, as a LISP caller sees them.
#include "ducts/frame.h"
#include "ducts_testing.h"

namespace vantry::ducts {
namespace {

using testing::DuctsTest;

// --- Through LISP: conversion and the frame query ------------------------------------------

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

}  // namespace
}  // namespace vantry::ducts
