// Justification, frames and transition lengths of duct runs.
#include "ducts/frame.h"

#include <algorithm>
#include <cmath>
#include <cwchar>

namespace vantry::ducts {
namespace {

// Asks the drawing's LISP application to convert a reference point; the point stays when it
// cannot.
AcGePoint3d converted(const AcGePoint3d &p, int pointCode) {
  resbuf *call = acutBuildList(RTSTR, L"convert_rp_dp", RTLB, RTREAL, p.x, RTREAL, p.y, RTREAL, p.z, RTLE,
                               RTLONG, int32_t(pointCode), 0);
  resbuf *result = nullptr;
  AcGePoint3d out = p;
  if (acedInvoke(call, &result) == RTNORM && result && result->restype == RT3DPOINT)
    out = AcGePoint3d(result->resval.rpoint[0], result->resval.rpoint[1], result->resval.rpoint[2]);
  acutRelRb(call);
  acutRelRb(result);
  return out;
}

AcGePoint3d justified(const DuctRun &run, AcGePoint3d p, const FittingFrame *frame, bool convert) {
  if (convert) p = converted(p, run.pointCode);
  if (!frame) return p;
  const double d = std::abs(run.depth) / 2;
  const std::wstring &v = run.verticalJustification;
  if (v == L"t")
    p = p - d * frame->z();
  else if (v == L"h" && run.useVerticalOffset != 0)
    p = p + (d + run.verticalOffset) * frame->z();
  else if (v == L"b" || v == L"h")
    p = p + d * frame->z();
  const double w = std::abs(run.width) / 2;
  if (run.horizontalJustification == L"r")
    p = p - w * frame->y();
  else if (run.horizontalJustification == L"l")
    p = p + w * frame->y();
  return p;
}

// The plan angle from a to b, in [0, 2pi).
double planAngle(const AcGePoint3d &a, const AcGePoint3d &b) {
  double angle = std::atan2(b.y - a.y, b.x - a.x);
  return angle < 0 ? angle + 2 * M_PI : angle;
}

}  // namespace

AcGePoint3d justifiedStart(const DuctRun &run, const FittingFrame *frame, bool convert) {
  return justified(run, run.startPoint, frame, convert);
}

AcGePoint3d justifiedEnd(const DuctRun &run, const FittingFrame *frame, bool convert) {
  return justified(run, run.endPoint, frame, convert);
}

FittingFrame computeFrame(const DuctRun &run, const DuctRun *partner, bool convert) {
  FittingFrame f;
  AcGePoint3d p0 = justifiedStart(run, nullptr, convert);
  AcGePoint3d p1 = justifiedEnd(run, nullptr, convert);
  f.x() = p1 - p0;
  if (!isVertical(run)) {
    double a = planAngle(p0, p1) + kQuarterTurn;
    AcGePoint3d q(p0.x + std::cos(a), p0.y + std::sin(a), p0.z);
    f.y() = q - p0;
    f.z() = f.x().crossProduct(f.y());
  } else if (!partner) {
    f.z() = AcGeVector3d(1, 0, 0);
  } else {
    f.y() = computeFrame(*partner, nullptr, convert).y();
    f.z() = f.x().crossProduct(f.y());
  }
  f.y() = f.z().crossProduct(f.x());
  for (AcGeVector3d &v : f.axis) v.normalize(AcGeContext::gTol);
  return f;
}

double transitionLength(double w1, double d1, bool r1, double w2, double d2, bool r2, double angleDeg) {
  double m = std::max(std::abs(w1 - w2), std::abs(d1 - d2));
  double length = (m * 0.5) / std::tan(angleDeg * kHalfTurn / 180);
  if (r1 != r2) length = std::max(length, std::max(w1, d1) * 0.5);
  return length;
}

double transitionLengthOf(const DuctRun &a, const DuctRun &b) {
  double length = a.sizeText.empty() ? 0.0 : std::wcstod(a.sizeText.c_str(), nullptr);
  if (length != 0.0) return length;
  return transitionLength(std::abs(a.width), std::abs(a.depth), isRectangular(a), std::abs(b.width),
                          std::abs(b.depth), isRectangular(b), 15.0);
}

}  // namespace vantry::ducts
