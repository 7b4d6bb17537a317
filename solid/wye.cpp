// The wye: a trunk that splits into two branches.
//
// Shape, as a sheet-metal worker would make it: the trunk runs straight to the junction; each
// branch leaves the junction at the trunk's full size, tapers over its collar to its own size (a
// transition), and runs straight on to its port. Where a branch turns away from the trunk, the
// heel between the trunk's end and the branch's start is filled by the trunk's section turned
// about the bend axis through the junction: a cylinder (a sphere for round ducts), which makes a
// rounded joint. The collar is long enough that the two branches have parted before they reach
// their own sizes: with h the largest half-size of the three sections and a the angle between the
// branches, the branches' inner walls cross at h / tan(a/2) from the junction along each branch.
#include <BRepPrimAPI_MakeCylinder.hxx>
#include <BRepPrimAPI_MakeSphere.hxx>
#include <algorithm>
#include <cmath>
#include <gp_Mat.hxx>

#include "solid_internal.h"

namespace vantry::solid {

namespace {

struct Port {
  Section s;
  gp_Pnt foot;   // the junction's foot on the port's centre line
  double along;  // the port's distance from its foot, along the flow
};

// The point nearest (least squares) to the three centre lines.
bool junctionOf(const Section *s[3], gp_Pnt &j) {
  gp_Mat a(0, 0, 0, 0, 0, 0, 0, 0, 0);
  gp_XYZ b(0, 0, 0);
  for (int i = 0; i < 3; ++i) {
    const gp_XYZ &d = s[i]->x.XYZ();
    gp_Mat proj(1 - d.X() * d.X(), -d.X() * d.Y(), -d.X() * d.Z(), -d.Y() * d.X(), 1 - d.Y() * d.Y(),
                -d.Y() * d.Z(), -d.Z() * d.X(), -d.Z() * d.Y(), 1 - d.Z() * d.Z());
    a += proj;
    b += s[i]->centre.XYZ().Multiplied(proj);
  }
  if (std::abs(a.Determinant()) < 1e-12) return false;
  j = gp_Pnt(b.Multiplied(a.Inverted()));
  return true;
}

double largestHalf(const Section &s) {
  return std::max(s.width, s.depth) / 2;
}

// The trunk's section carried round to face along a branch (the smallest turn that does it), at
// `at`, and told in the branch's own frame: the branch's y and z, the trunk's width along the one
// of them its turned width lies nearer. A taper between two sections of one frame pairs its corners
// side by side, whichever way the runs' frames happen to point; pairing them in the trunk's frame
// instead twists a taper whose branch frame is turned half round against the trunk's.
Section trunkAtBranch(const Section &trunk, const Section &branch, const gp_Pnt &at) {
  gp_Dir turnedY = trunk.y;
  gp_Vec axis = gp_Vec(trunk.x).Crossed(gp_Vec(branch.x));
  if (axis.Magnitude() > 1e-12) turnedY = trunk.y.Rotated(gp_Ax1(at, gp_Dir(axis)), trunk.x.Angle(branch.x));
  Section s = branch;
  s.centre = at;
  s.rect = trunk.rect;
  bool widthAlongY = std::abs(turnedY.Dot(branch.y)) >= std::abs(turnedY.Dot(branch.z));
  s.width = widthAlongY ? trunk.width : trunk.depth;
  s.depth = widthAlongY ? trunk.depth : trunk.width;
  return s;
}

}  // namespace

bool SolidBodies::addWyePrep(Pt p1, double width1, double depth1, Pt p2, double width2, double depth2, Pt p3,
                             double width3, double depth3, const Frame &frame1, const Frame &frame2,
                             const Frame &frame3, bool rect, Pt &legStart1, Pt &legStart2, Pt &legStart3,
                             Pt &collar1, Pt &collar2, Pt &collar3, bool shortLegs, double tolerance) {
  Impl &im = *impl_;
  bool hadOrigin = im.hasOrigin;
  gp_Pnt origin = im.origin;
  auto restore = [&](const char *why = nullptr) {
    if (why) im.error = why;
    im.hasOrigin = hadOrigin;
    im.origin = origin;
    return false;
  };
  Port port[3];
  if (!makeSection(im, p1, rect, width1, depth1, frame1, port[0].s) ||
      !makeSection(im, p2, rect, width2, depth2, frame2, port[1].s) ||
      !makeSection(im, p3, rect, width3, depth3, frame3, port[2].s))
    return restore();
  const Section *secs[3] = {&port[0].s, &port[1].s, &port[2].s};
  double scale = 0;
  for (const Port &p : port)
    scale = std::max({scale, p.s.width, p.s.depth, p.s.centre.Distance(port[0].s.centre)});
  double tol = std::isfinite(tolerance) && tolerance > 0 ? tolerance : 1e-6 * scale;
  gp_Pnt j;
  if (!junctionOf(secs, j)) return restore("the wye's centre lines are all parallel");
  for (Port &p : port) {
    gp_Vec x(p.s.x);
    double t = gp_Vec(p.s.centre, j).Dot(x);
    p.foot = p.s.centre.Translated(x * t);
    if (p.foot.Distance(j) > tol) return restore("the wye's centre lines do not meet at one junction");
    p.along = -t;  // the trunk's is negative: it flows towards the junction
  }
  if (-port[0].along <= tol) return restore("the wye's trunk does not reach the junction");
  for (int i = 1; i < 3; ++i) {
    if (port[i].along <= tol) return restore("a wye branch does not leave the junction forwards");
    if (port[i].s.x.Dot(port[0].s.x) < -1e-6) return restore("a wye branch turns back against the trunk");
  }
  double apart = port[1].s.x.Angle(port[2].s.x);
  if (apart < 1e-6) return restore("the wye's branches leave along one line");
  double h = std::max({largestHalf(port[0].s), largestHalf(port[1].s), largestHalf(port[2].s)});
  double collar = std::max(h / std::tan(apart / 2), h);
  gp_Pnt collars[3] = {port[0].foot, {}, {}};
  for (int i = 1; i < 3; ++i) {
    if (port[i].along < collar - tol) {
      if (!shortLegs) return restore("a wye branch is shorter than its collar");
      collars[i] = port[i].s.centre;
    } else {
      collars[i] = port[i].foot.Translated(gp_Vec(port[i].s.x) * collar);
    }
  }
  legStart1 = im.world(port[0].foot);
  legStart2 = im.world(port[1].foot);
  legStart3 = im.world(port[2].foot);
  collar1 = im.world(collars[0]);
  collar2 = im.world(collars[1]);
  collar3 = im.world(collars[2]);
  restore();
  im.error.clear();
  return true;
}

bool SolidBodies::addWye(Pt p1, double width1, double depth1, Pt p2, double width2, double depth2, Pt p3,
                         double width3, double depth3, Pt junction, const Frame &frame1, const Frame &frame2,
                         const Frame &frame3, bool rect, Pt legStart1, Pt legStart2, Pt legStart3, Pt collar1,
                         Pt collar2, Pt collar3, int option) {
  return impl_->transaction("the wye failed", [&](Impl &im) {
    Section s[3];
    if (!makeSection(im, p1, rect, width1, depth1, frame1, s[0]) ||
        !makeSection(im, p2, rect, width2, depth2, frame2, s[1]) ||
        !makeSection(im, p3, rect, width3, depth3, frame3, s[2]))
      return false;
    for (const Pt *p : {&junction, &legStart1, &legStart2, &legStart3, &collar1, &collar2, &collar3})
      if (!finitePt(*p)) return im.fail("a wye point is not finite");
    gp_Pnt j = im.local(junction);
    gp_Pnt start[3] = {im.local(legStart1), im.local(legStart2), im.local(legStart3)};
    gp_Pnt collar[3] = {im.local(collar1), im.local(collar2), im.local(collar3)};
    const Section &trunk = s[0];
    std::vector<TopoDS_Shape> pieces;
    std::vector<gp_Dir> joints;  // one joint per bend axis: both branches of a flat wye share it
    double trunkLength = gp_Vec(trunk.centre, start[0]).Dot(gp_Vec(trunk.x));
    if (trunkLength <= 1e-9) return im.fail("the wye's trunk does not reach its leg start");
    pieces.push_back(prism(trunk, trunkLength));
    for (int i = 1; i < 3; ++i) {
      gp_Vec out(start[i], s[i].centre);
      if (out.Dot(gp_Vec(s[i].x)) <= 1e-9)
        return im.fail("a wye branch does not leave its leg start forwards");
      double taper = gp_Vec(start[i], collar[i]).Dot(gp_Vec(s[i].x));
      double straight = gp_Vec(collar[i], s[i].centre).Dot(gp_Vec(s[i].x));
      if (taper <= 1e-9 || straight < -1e-9)
        return im.fail("a wye collar is not between its leg start and port");
      Section from = trunkAtBranch(trunk, s[i], start[i]);
      Section to = s[i];
      to.centre = collar[i];
      TopoDS_Shape taperBody = loftSections(from, to, im.error);
      if (taperBody.IsNull()) return false;
      pieces.push_back(taperBody);
      if (straight > 1e-9) pieces.push_back(prism(to, straight));
      // The rounded joint at the heel.
      gp_Vec bendAxis = gp_Vec(trunk.x).Crossed(gp_Vec(s[i].x));
      if (bendAxis.Magnitude() < 1e-9) continue;
      gp_Dir n(bendAxis);
      bool shared = false;
      for (const gp_Dir &other : joints) shared = shared || other.IsParallel(n, 1e-9) || !rect;
      if (shared) continue;
      joints.push_back(n);
      if (!rect) {
        pieces.push_back(BRepPrimAPI_MakeSphere(j, trunk.width / 2).Shape());
        continue;
      }
      double radius = halfExtent(trunk, n.Crossed(trunk.x));
      double height = 2 * halfExtent(trunk, n);
      pieces.push_back(
          BRepPrimAPI_MakeCylinder(gp_Ax2(j.Translated(gp_Vec(n) * (-height / 2)), n), radius, height)
              .Shape());
    }
    TopoDS_Shape wye = fuseAll(pieces, Contact::kOverlapping, im.error);
    if (wye.IsNull()) return false;
    im.bodies.push_back({wye, option});
    return true;
  });
}

}  // namespace vantry::solid
