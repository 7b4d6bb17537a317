// ol_ol-drawHanger: a duct hanger as one solid, either a trapeze (a strut under the duct hung on
// two rods) or a band round the duct hung on one rod.
//
// The hanger's frame is fixed by its angle: x along the duct in plan, y across it, z up.
//
// Trapeze: the strut, clearWidth + 4 rodSize long across the duct and strutDepth deep, sits under
// the duct's clear depth, 2 rodSize thick along the duct. Its rods (rodSize round) stand rodSize in
// from the strut's ends and run to topElevation: the first from the strut's face that looks towards
// topElevation, the second always from its upper face.
//
// Band: a ring strutDepth thick round the clear size, rodSize wide along the duct, with one rod
// from its top (or bottom) to topElevation. The ring is a band section minus an opening that is
// larger than the clear size by a tenth of the band's added thickness on each side.
#include "ducts/fitting.h"
#include "ducts/frame.h"
#include "frame/implementations.h"
#include "frame/value_list.h"

namespace vantry::lispfn {
namespace {

using ducts::kQuarterTurn;

struct HangerArgs {
  bool style = false, style2 = false;
  AcGePoint3d insertion;
  double angle = 0, clearWidth = 0, clearDepth = 0, rodSize = 0, strutDepth = 0, topElevation = 0;
  int option = 0;
};

using Axes = AcGeVector3d[3];

bool trapeze(ol_hvacSolid *solid, const HangerArgs &h, const Axes F) {
  AcGePoint3d C = h.insertion - AcGeVector3d(0, 0, h.clearDepth * 0.5 + h.strutDepth * 0.5);
  double W = h.clearWidth + 4 * h.rodSize;
  double s = W * 0.5 - h.rodSize;
  AcGePoint3d A = C - s * F[1];
  double zEnd = h.topElevation <= A.z ? A.z - h.strutDepth * 0.5 : A.z + h.strutDepth * 0.5;
  if (zEnd != h.topElevation) {
    const Axes up1 = {AcGeVector3d(0, 0, 1), F[0], F[1]};
    if (!solid->addTransition(AcGePoint3d(A.x, A.y, zEnd), false, h.rodSize, h.rodSize,
                              AcGePoint3d(A.x, A.y, h.topElevation), false, h.rodSize, h.rodSize, up1, up1,
                              h.option))
      return false;
    AcGePoint3d B = C + s * F[1];
    const Axes up2 = {AcGeVector3d(0, 0, 1), AcGeVector3d(-1, 0, 0), AcGeVector3d(0, -1, 0)};
    if (!solid->addTransition(AcGePoint3d(B.x, B.y, h.topElevation), false, h.rodSize, h.rodSize,
                              AcGePoint3d(B.x, B.y, B.z + h.strutDepth * 0.5), false, h.rodSize, h.rodSize,
                              up2, up2, h.option))
      return false;
  }
  return solid->addTransition(C + h.rodSize * F[0], true, W, h.strutDepth, C - h.rodSize * F[0], true, W,
                              h.strutDepth, F, F, h.option);
}

bool band(ol_hvacSolid *solid, const HangerArgs &h, const Axes F) {
  AcGePoint3d E1 = h.insertion - (h.rodSize * 0.5) * F[0];
  AcGePoint3d E2 = h.insertion + (h.rodSize * 0.5) * F[0];
  double bw = h.clearWidth + 2 * h.strutDepth, bd = h.clearDepth + 2 * h.strutDepth;
  // The band's wall is 0.9 strutDepth thick: one thinner than the model's smallest size would be cut
  // down to faces the booleans cannot tell apart.
  if (!(std::abs(h.strutDepth) * 0.9 >= ducts::kSmallestSize)) return false;
  if (!solid->addTransition(E1, h.style2, bw, bd, E2, h.style2, bw, bd, F, F, h.option)) return false;
  const AcGePoint3d &I = h.insertion;
  bool down = h.topElevation <= I.z;
  double zEnd = down ? I.z - h.clearDepth * 0.5 : I.z + h.clearDepth * 0.5;
  const Axes rodDown = {AcGeVector3d(0, 0, -1), F[1], F[0]};
  const Axes rodUp = {AcGeVector3d(0, 0, 1), F[0], F[1]};
  if (zEnd != h.topElevation &&
      !solid->addTransition(AcGePoint3d(I.x, I.y, zEnd), false, h.rodSize, h.rodSize,
                            AcGePoint3d(I.x, I.y, h.topElevation), false, h.rodSize, h.rodSize,
                            down ? rodDown : rodUp, down ? rodDown : rodUp, h.option))
    return false;
  double ow = h.clearWidth + h.strutDepth * 2.0 * 0.1, od = h.clearDepth + h.strutDepth * 2.0 * 0.1;
  return solid->subtractTransition(E1, h.style2, ow, od, E2, h.style2, ow, od, F, F, h.option);
}

}  // namespace

// (ol_ol-drawHanger style insertion angle clearWidth clearDepth style2 rodSize strutDepth
//                   topElevation option) -> (("hanger" . ename)) or nil
int ol_ol_drawHanger() {
  acedRetNil();
  frame::ArgList args;
  resbuf *&cur = args.cursor();
  HangerArgs h;
  ads_point p;
  if (!frame::readBoolean(cur, h.style) || !frame::readPoint(cur, p) || !frame::readReal(cur, h.angle) ||
      !frame::readReal(cur, h.clearWidth) || !frame::readReal(cur, h.clearDepth) ||
      !frame::readBoolean(cur, h.style2) || !frame::readReal(cur, h.rodSize) ||
      !frame::readReal(cur, h.strutDepth) || !frame::readReal(cur, h.topElevation) ||
      !frame::readInteger(cur, h.option))
    return 2;
  if (!ducts::finiteNumbers({p[0], p[1], p[2], h.angle, h.clearWidth, h.clearDepth, h.rodSize, h.strutDepth,
                             h.topElevation}))
    return 3;
  h.insertion = AcGePoint3d(p[0], p[1], p[2]);
  const Axes F = {AcGeVector3d(std::cos(h.angle), std::sin(h.angle), 0),
                  AcGeVector3d(std::cos(h.angle + kQuarterTurn), std::sin(h.angle + kQuarterTurn), 0),
                  AcGeVector3d(0, 0, 1)};
  ducts::SolidPtr solid = ducts::newSolid();
  if (!solid) return 0;
  if (h.style ? band(solid.get(), h, F) : trapeze(solid.get(), h, F))
    ducts::answerSolid(std::move(solid), L"hanger");
  else
    ducts::refused(*solid);
  return 0;
}

}  // namespace vantry::lispfn
