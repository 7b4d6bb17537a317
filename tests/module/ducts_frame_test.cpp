// Duct runs, frames, justification and transition lengths.
#include <cwchar>

#include "ducts/frame.h"
#include "ducts_testing.h"

namespace vantry::ducts {
namespace {

using testing::DuctsTest;

DuctRun runFrom(AcGePoint3d s, AcGePoint3d e, double w = 200, double d = 100) {
  DuctRun r;
  r.startPoint = s;
  r.endPoint = e;
  r.width = w;
  r.depth = d;
  return r;
}

void expectVector(const AcGeVector3d &v, double x, double y, double z) {
  // The quarter-turn literal leaves y off its exact value by about 1.8e-9.
  EXPECT_NEAR(v.x, x, 1e-8);
  EXPECT_NEAR(v.y, y, 1e-8);
  EXPECT_NEAR(v.z, z, 1e-8);
}

TEST(DuctFrame, HorizontalRunLooksAlongItsPlanDirection) {
  FittingFrame f = computeFrame(runFrom({0, 0, 0}, {300, 400, 0}), nullptr, false);
  expectVector(f.x(), 0.6, 0.8, 0);
  expectVector(f.y(), -0.8, 0.6, 0);
  expectVector(f.z(), 0, 0, 1);
}

TEST(DuctFrame, SlopedRunKeepsYLevel) {
  FittingFrame f = computeFrame(runFrom({0, 0, 0}, {100, 0, 100}), nullptr, false);
  double h = std::sqrt(0.5);
  expectVector(f.x(), h, 0, h);
  expectVector(f.y(), 0, 1, 0);
  expectVector(f.z(), -h, 0, h);
}

TEST(DuctFrame, VerticalRunWithoutPartnerTakesZAlongWorldX) {
  FittingFrame f = computeFrame(runFrom({5, 5, 0}, {5, 5, 300}), nullptr, false);
  expectVector(f.x(), 0, 0, 1);
  expectVector(f.y(), 0, -1, 0);
  expectVector(f.z(), 1, 0, 0);
}

TEST(DuctFrame, VerticalRunWithPartnerTakesThePartnersY) {
  DuctRun up = runFrom({5, 5, 0}, {5, 5, 300});
  DuctRun north = runFrom({5, 5, 300}, {5, 900, 300});
  FittingFrame f = computeFrame(up, &north, false);
  expectVector(f.x(), 0, 0, 1);
  expectVector(f.y(), -1, 0, 0);  // north's y points west
  expectVector(f.z(), 0, -1, 0);
}

TEST(DuctFrame, MarkerMakesAHorizontalRunCountAsVertical) {
  DuctRun r = runFrom({0, 0, 0}, {100, 0, 0});
  EXPECT_FALSE(isVertical(r));
  r.verticalMarker = -1;
  EXPECT_TRUE(isVertical(r));
  FittingFrame f = computeFrame(r, nullptr, false);
  expectVector(f.z(), 1, 0, 0);  // z along world x, then squared against x: degenerate
  EXPECT_TRUE(isVertical(runFrom({1, 2, 0}, {1, 2 + 1e-12, 50})));
}

TEST(DuctFrame, JustificationMovesAlongTheFrame) {
  struct Case {
    const wchar_t *h, *v;
    int useOffset;
    double dy, dz;
  } cases[] = {
      {L"", L"", 0, 0, 0},    {L"l", L"", 0, 100, 0},     {L"r", L"", 0, -100, 0},  // r goes towards -y
      {L"", L"t", 0, 0, -50}, {L"", L"b", 0, 0, 50},      {L"", L"h", 0, 0, 50},    // h without offset is b
      {L"", L"h", 1, 0, 75},  {L"r", L"t", 1, -100, -50}, {L"L", L"T", 0, 0, 0},    // letters are exact
  };
  for (const Case &c : cases) {
    DuctRun r = runFrom({0, 0, 0}, {1000, 0, 0});
    r.horizontalJustification = c.h;
    r.verticalJustification = c.v;
    r.useVerticalOffset = c.useOffset;
    r.verticalOffset = 25;
    FittingFrame f = computeFrame(r, nullptr, false);
    AcGePoint3d s = justifiedStart(r, &f, false), e = justifiedEnd(r, &f, false);
    SCOPED_TRACE(::testing::Message()
                 << "h=" << (c.h[0] ? char(c.h[0]) : '-') << " v=" << (c.v[0] ? char(c.v[0]) : '-'));
    testing::expectPoint(s, 0, c.dy, c.dz, 1e-6);
    testing::expectPoint(e, 1000, c.dy, c.dz, 1e-6);
    testing::expectPoint(justifiedStart(r, nullptr, false), 0, 0, 0);  // no frame: reference point
  }
}

TEST(DuctFrame, TransitionLengthForAFifteenDegreeTaper) {
  const double t15 = std::tan(15 * 3.14159265 / 180);
  struct Case {
    double w1, d1;
    bool r1;
    double w2, d2;
    bool r2, want;
  };
  EXPECT_NEAR(transitionLength(200, 100, true, 210, 100, true, 15), 5 / t15, 1e-12);
  EXPECT_NEAR(transitionLength(200, 100, true, 210, 100, true, 15), 18.66, 0.005);
  EXPECT_NEAR(transitionLength(200, 100, true, 200, 160, true, 15), 30 / t15, 1e-12);  // larger change counts
  EXPECT_EQ(transitionLength(200, 100, true, 200, 100, true, 15), 0);
  // Rectangular to round: at least half the first run's larger side.
  EXPECT_EQ(transitionLength(300, 200, true, 300, 200, false, 15), 150);
  EXPECT_NEAR(transitionLength(300, 200, false, 600, 200, true, 15), 150 / t15, 1e-12);
}

// The run's own length, when it carries one, stands for the 15 degree taper; its sign is kept, so a
// negative one means no transition. b's own length plays no part.
TEST(DuctFrame, TransitionLengthOfRunsTakesTheLengthTheRunCarries) {
  DuctRun a = runFrom({0, 0, 0}, {1000, 0, 0}), b = runFrom({1000, 0, 0}, {2000, 0, 0});
  a.width = 200, a.depth = 100, b.width = 300, b.depth = 100;
  const double taper = 50 / std::tan(15 * kHalfTurn / 180);
  struct Case {
    const wchar_t *aText, *bText;
    double want;
  } cases[] = {
      {L"", L"", taper},     {L"250", L"", 250}, {L"250mm", L"", 250}, {L"0", L"", taper},
      {L"wide", L"", taper}, {L"-5", L"", -5},   {L"", L"400", taper},
  };
  for (const Case &c : cases) {
    a.sizeText = c.aText, b.sizeText = c.bText;
    EXPECT_NEAR(transitionLengthOf(a, b), c.want, 1e-12) << std::string(c.aText, c.aText + wcslen(c.aText));
  }
  // Equal sizes and no length of its own: no transition.
  b.width = 200, a.sizeText.clear();
  EXPECT_EQ(transitionLengthOf(a, b), 0);
}

TEST(DuctRunShape, RoundCodesAndFlex) {
  struct Case {
    const wchar_t *shape, *flex;
    bool rect;
    const wchar_t *family;
  } cases[] = {
      {L"RC", L"", true, L"RC"},    {L"RD", L"", false, L"OO"}, {L"rd", L"", false, L"OO"},
      {L"ox", L"", false, L"OO"},   {L"DX", L"", false, L"OO"}, {L"Rd", L"", true, L"OO"},  // mixed case
      {L"RC", L"FX", false, L"RC"}, {L"", L"", true, L"RC"},
  };
  for (const Case &c : cases) {
    DuctRun r;
    r.shapeCode = c.shape;
    r.flexCode = c.flex;
    EXPECT_EQ(isRectangular(r), c.rect) << std::string(c.shape, c.shape + wcslen(c.shape));
    EXPECT_EQ(shapeFamily(r), c.family);
  }
}

TEST(DuctRunReading, FieldsInOrderWithThicknessesAdded) {
  ads_point p456 = {4, 5, 6};
  resbuf *list =
      acutBuildList(RTLB, RTREAL, 1.0, RTSHORT, 2, RTREAL, 3.0, RT3DPOINT, p456, RTLONG, int32_t(70000),
                    RTREAL, 10.0, RTSHORT, 20, RTREAL, 200.0, RTREAL, 100.0, RTSTR, L"rd", RTREAL, 1.0,
                    RTREAL, 2.5, RTSTR, L"l", RTSTR, L"h", RTSHORT, 1, RTREAL, 7.5, RTLE, RTSTR, L"after", 0);
  resbuf *cur = list;
  DuctRun r;
  ASSERT_TRUE(readDuctRun(cur, r));
  ASSERT_NE(cur, nullptr);
  EXPECT_EQ(cur->restype, RTSTR);  // positioned after the run's end
  testing::expectPoint(r.startPoint, 1, 2, 3);
  testing::expectPoint(r.endPoint, 4, 5, 6);
  EXPECT_EQ(r.pointCode, 70000);
  EXPECT_EQ(r.headLength, 10);
  EXPECT_EQ(r.tailLength, 20);
  EXPECT_EQ(r.width, 207);  // 200 + 2 * 1 + 2 * 2.5
  EXPECT_EQ(r.depth, 107);
  EXPECT_EQ(r.shapeCode, L"rd");
  EXPECT_EQ(r.horizontalJustification, L"l");
  EXPECT_EQ(r.verticalJustification, L"h");
  EXPECT_EQ(r.useVerticalOffset, 1);
  EXPECT_EQ(r.verticalOffset, 7.5);
  EXPECT_EQ(r.verticalMarker, 0);
  acutRelRb(list);
}

TEST(DuctRunReading, ShortOrMistypedRunsAreRefusedWithoutMoving) {
  ads_point p000 = {0, 0, 0}, p100 = {1, 0, 0};
  resbuf *lists[] = {
      // the vertical offset is missing
      acutBuildList(RTLB, RT3DPOINT, p000, RT3DPOINT, p100, RTSHORT, 0, RTREAL, 0.0, RTREAL, 0.0, RTREAL, 1.0,
                    RTREAL, 1.0, RTSTR, L"RC", RTREAL, 0.0, RTREAL, 0.0, RTSTR, L"", RTSTR, L"", RTSHORT, 0,
                    RTLE, 0),
      // the shape is a number
      acutBuildList(RTLB, RT3DPOINT, p000, RT3DPOINT, p100, RTSHORT, 0, RTREAL, 0.0, RTREAL, 0.0, RTREAL, 1.0,
                    RTREAL, 1.0, RTSHORT, 3, RTREAL, 0.0, RTREAL, 0.0, RTSTR, L"", RTSTR, L"", RTSHORT, 0,
                    RTREAL, 0.0, RTLE, 0),
      // not a list
      acutBuildList(RTREAL, 1.0, 0),
  };
  for (resbuf *list : lists) {
    resbuf *cur = list;
    DuctRun r;
    EXPECT_FALSE(readDuctRun(cur, r));
    EXPECT_EQ(cur, list);
    acutRelRb(list);
  }
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

TEST_F(DuctsTest, TripleCoordReadsAPartnerAndRefusesBadRuns) {
  testing::RunList up{.x0 = 0, .y0 = 0, .z0 = 0, .x1 = 0, .y1 = 0, .z1 = 500};
  testing::RunList north{.x0 = 0, .y0 = 0, .z0 = 500, .x1 = 0, .y1 = 800, .z1 = 500};
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
