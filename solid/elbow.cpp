// Elbows: the radius elbow (a revolution of the section about the bend axis, with straight legs),
// the square elbow (two legs meeting on the mitre plane that halves the bend) and the flat
// cable-tray elbow (a square elbow whose throat is rounded).
//
// Every elbow starts from the same bend geometry: leg A's centre line runs through the start point
// along frame A's x, leg B's through the end point along frame B's x; they meet at the corner. The
// bend turns about n = uA x uB; k = n x u is the in-plane direction from a leg's centre line
// towards the inside of the bend (the throat side).
#include <BRepAdaptor_Curve.hxx>
#include <BRepBuilderAPI_MakeEdge.hxx>
#include <BRepBuilderAPI_MakeWire.hxx>
#include <BRepFilletAPI_MakeFillet.hxx>
#include <BRepOffsetAPI_ThruSections.hxx>
#include <BRepPrimAPI_MakeRevol.hxx>
#include <GC_MakeArcOfCircle.hxx>
#include <GC_MakeArcOfEllipse.hxx>
#include <TopExp_Explorer.hxx>
#include <TopoDS.hxx>
#include <algorithm>
#include <cmath>
#include <gp_Circ.hxx>
#include <gp_Elips.hxx>
#include <gp_Lin.hxx>

#include "budget.h"
#include "solid_internal.h"

namespace vantry::solid {

namespace {

struct Bend {
  gp_Pnt corner;
  gp_Dir u, v, n;
  double angle = 0;    // between the legs' directions, in (0, pi)
  double toStart = 0;  // corner's distance ahead of the start point along u
  double toEnd = 0;    // end point's distance ahead of the corner along v
};

double sectionScale(const Section &a, const Section &b) {
  return std::max({a.width, a.depth, b.width, b.depth, a.centre.Distance(b.centre)});
}

bool findBend(const Section &a, const Section &b, double tol, Bend &bend, std::string &why) {
  gp_Vec u(a.x), v(b.x);
  gp_Vec cross = u.Crossed(v);
  double c = u.Dot(v);
  if (cross.Magnitude() < 1e-9) {
    why = c > 0 ? "the elbow's legs run in one line" : "the elbow's legs double back on each other";
    return false;
  }
  bend.angle = std::atan2(cross.Magnitude(), c);
  // Nearest points of the two centre lines.
  gp_Vec w0(b.centre, a.centre);
  double d = u.Dot(w0), e = v.Dot(w0), denom = 1 - c * c;
  double t = (c * e - d) / denom, s = (e - c * d) / denom;
  gp_Pnt pa = a.centre.Translated(u * t), pb = b.centre.Translated(v * s);
  if (pa.Distance(pb) > tol) {
    why = "the elbow's centre lines do not meet";
    return false;
  }
  bend.corner = gp_Pnt((pa.XYZ() + pb.XYZ()) / 2);
  bend.u = gp_Dir(u);
  bend.v = gp_Dir(v);
  bend.n = gp_Dir(cross);
  bend.toStart = t;
  bend.toEnd = -s;
  return true;
}

// The in-plane direction from leg direction d towards the inside of the bend.
gp_Dir inward(const Bend &bend, const gp_Dir &d) {
  return bend.n.Crossed(d);
}

// A round section and, carried along its own x onto a plane, the ellipse it makes there, both split
// at the same parameters so that a ruled loft joins them with straight lines along x.
TopoDS_Wire ellipseOnPlane(const Section &s, const gp_Pnt &onPlane, const gp_Dir &normal, const gp_Dir &k,
                           TopoDS_Wire &sectionOutline) {
  gp_Vec x(s.x);
  auto carry = [&](const gp_Pnt &p) {
    double t = gp_Vec(p, onPlane).Dot(gp_Vec(normal)) / x.Dot(gp_Vec(normal));
    return p.Translated(x * t);
  };
  // Circle about x starting at k and turning towards x cross k; its projection is the ellipse whose
  // major axis is k carried onto the plane and whose minor axis is x cross k (which lies in the plane).
  double r = s.width / 2;
  gp_Dir minor = s.x.Crossed(k);
  gp_Pnt centre = carry(s.centre);
  gp_Vec major = gp_Vec(centre, carry(s.centre.Translated(gp_Vec(k) * r)));
  gp_Circ circ(gp_Ax2(s.centre, s.x, k), r);
  gp_Dir majorDir(major);
  gp_Elips elips(gp_Ax2(centre, majorDir.Crossed(minor), majorDir), std::max(major.Magnitude(), r),
                 std::min(major.Magnitude(), r));
  BRepBuilderAPI_MakeWire circle, ellipse;
  for (int i = 0; i < 4; ++i) {
    double a0 = i * M_PI / 2, a1 = (i + 1) * M_PI / 2;
    circle.Add(BRepBuilderAPI_MakeEdge(GC_MakeArcOfCircle(circ, a0, a1, Standard_True).Value()).Edge());
    ellipse.Add(BRepBuilderAPI_MakeEdge(GC_MakeArcOfEllipse(elips, a0, a1, Standard_True).Value()).Edge());
  }
  sectionOutline = circle.Wire();
  return ellipse.Wire();
}

// A leg from its section along its x (or against it, for the outgoing leg) to the mitre plane.
TopoDS_Shape mitredLeg(const Section &s, const gp_Pnt &onPlane, const gp_Dir &normal, const gp_Dir &k,
                       std::string &why) {
  if (s.rect) {
    // Straight lines along x from each corner: every side is flat, so a plain polyhedron.
    std::vector<gp_Pnt> corners = rectCorners(s), mitre;
    for (const gp_Pnt &p : corners) {
      double t = gp_Vec(p, onPlane).Dot(gp_Vec(normal)) / gp_Vec(s.x).Dot(gp_Vec(normal));
      mitre.push_back(p.Translated(gp_Vec(s.x) * t));
    }
    TopoDS_Shape leg = ruledPolyhedron(corners, mitre);
    if (leg.IsNull()) why = "an elbow leg could not be built";
    return leg;
  }
  TopoDS_Wire outline;
  TopoDS_Wire mitre = ellipseOnPlane(s, onPlane, normal, k, outline);
  BRepOffsetAPI_ThruSections loft(Standard_True, Standard_True, 1e-6);
  loft.AddWire(outline);
  loft.AddWire(mitre);
  Handle(Budget) budget = new Budget();
  loft.Build(budget->Start());
  if (budget->overrun()) {
    why = kOverrun;
    return {};
  }
  if (!loft.IsDone()) {
    why = "an elbow leg could not be built";
    return {};
  }
  TopoDS_Shape leg = loft.Shape();
  if (shapeVolume(leg) < 0) leg.Reverse();
  return leg;
}

// The mitre plane's normal: square to the heel-throat line and to n, pointing along leg A (the
// bisecting mitre's when heel and throat coincide).
gp_Dir mitreNormal(const Bend &bend, const gp_Pnt &heel, const gp_Pnt &throat) {
  gp_Vec ht(heel, throat);
  gp_Vec m = ht.Magnitude() > 1e-9 ? ht.Crossed(gp_Vec(bend.n)) : gp_Vec(bend.u) + gp_Vec(bend.v);
  if (m.Magnitude() < 1e-12) m = gp_Vec(bend.u) + gp_Vec(bend.v);
  if (m.Dot(gp_Vec(bend.u)) < 0) m.Reverse();
  return gp_Dir(m);
}

// Heel and throat: where leg A's outer and inner walls cross the bisecting mitre, in the centre plane.
// The bisecting mitre's normal is uA + uB: reflecting one leg's direction in it gives the other's.
void mitrePoints(const Bend &bend, double halfA, gp_Pnt &heel, gp_Pnt &throat) {
  gp_Dir m(gp_Vec(bend.u) + gp_Vec(bend.v));
  gp_Dir along = bend.n.Crossed(m);
  double s = halfA / along.Dot(inward(bend, bend.u));
  throat = bend.corner.Translated(gp_Vec(along) * s);
  heel = bend.corner.Translated(gp_Vec(along) * -s);
}

// The mitred elbow of two sections. The legs only touch on the mitre, so they are glued.
// The mitre plane passes through `onPlane` with normal m.
TopoDS_Shape squareElbow(const Section &a, const Section &b, const Bend &bend, const gp_Pnt &onPlane,
                         const gp_Dir &m, std::string &why) {
  if (bend.toStart <= 1e-9 || bend.toEnd <= 1e-9) {
    why = "the elbow's corner is not between its ends";
    return {};
  }
  // Each leg must reach the mitre ahead of its own section.
  double reachA = gp_Vec(a.centre, onPlane).Dot(gp_Vec(m)) / gp_Vec(bend.u).Dot(gp_Vec(m));
  double reachB = gp_Vec(onPlane, b.centre).Dot(gp_Vec(m)) / gp_Vec(bend.v).Dot(gp_Vec(m));
  if (!(reachA > 1e-9) || !(reachB > 1e-9)) {
    why = "the mitre is not between the elbow's ends";
    return {};
  }
  TopoDS_Shape legA = mitredLeg(a, onPlane, m, inward(bend, bend.u), why);
  Section back = b;
  back.x.Reverse();
  back.y.Reverse();  // keep the outline right-handed about the reversed x
  TopoDS_Shape legB = mitredLeg(back, onPlane, m, inward(bend, bend.v), why);
  if (legA.IsNull() || legB.IsNull()) return {};
  // An oblique cut of a prism holds its section's area times its centre-line length.
  double areaA = a.rect ? a.width * a.depth : M_PI * a.width * a.width / 4;
  double areaB = b.rect ? b.width * b.depth : M_PI * b.width * b.width / 4;
  return fuseAll({legA, legB}, Contact::kTouching, why, areaA * reachA + areaB * reachB);
}

double tolOr(double tolerance, double scale) {
  return std::isfinite(tolerance) && tolerance > 0 ? tolerance : 1e-6 * scale;
}

}  // namespace

bool SolidBodies::addSquareElbowPrep(Pt start, double widthA, double depthA, Pt end, double widthB,
                                     double depthB, const Frame &frameA, const Frame &frameB, bool rect,
                                     Pt &heel, Pt &throat, Pt &corner, bool sameThroat, double tolerance) {
  Impl &im = *impl_;
  bool hadOrigin = im.hasOrigin;
  gp_Pnt origin = im.origin;
  auto restore = [&] {
    im.hasOrigin = hadOrigin;
    im.origin = origin;
    return false;
  };
  Section a, b;
  if (!makeSection(im, start, rect, widthA, depthA, frameA, a) ||
      !makeSection(im, end, rect, widthB, depthB, frameB, b))
    return restore();
  double tol = tolOr(tolerance, sectionScale(a, b));
  Bend bend;
  if (!findBend(a, b, tol, bend, im.error)) return restore();
  if (bend.toStart <= tol || bend.toEnd <= tol) {
    im.error = "the elbow's corner is not between its ends";
    return restore();
  }
  if (std::abs(2 * halfExtent(a, bend.n) - 2 * halfExtent(b, bend.n)) > tol) {
    im.error = "the legs' sizes across the bend differ";
    return restore();
  }
  double inA = halfExtent(a, inward(bend, bend.u)), inB = halfExtent(b, inward(bend, bend.v));
  if (sameThroat && std::abs(2 * inA - 2 * inB) > tol) {
    im.error = "the legs' sizes in the bend plane differ";
    return restore();
  }
  gp_Pnt h, t;
  mitrePoints(bend, inA, h, t);
  heel = im.world(h);
  throat = im.world(t);
  corner = im.world(bend.corner);
  restore();
  im.error.clear();
  return true;
}

bool SolidBodies::addSquareElbow(Pt start, double widthA, double depthA, Pt end, double widthB, double depthB,
                                 const Frame &frameA, const Frame &frameB, bool rect, Pt heel, Pt throat,
                                 Pt corner, int option) {
  return impl_->transaction("the square elbow failed", [&](Impl &im) {
    Section a, b;
    if (!makeSection(im, start, rect, widthA, depthA, frameA, a) ||
        !makeSection(im, end, rect, widthB, depthB, frameB, b))
      return false;
    if (!finitePt(heel) || !finitePt(throat) || !finitePt(corner))
      return im.fail("a mitre point is not finite");
    Bend bend;
    if (!findBend(a, b, 1e-6 * sectionScale(a, b) + 1e-4, bend, im.error)) return false;
    gp_Pnt h = im.local(heel), t = im.local(throat);
    gp_Pnt onPlane = h.Distance(t) > 1e-9 ? gp_Pnt((h.XYZ() + t.XYZ()) / 2) : im.local(corner);
    TopoDS_Shape elbow = squareElbow(a, b, bend, onPlane, mitreNormal(bend, h, t), im.error);
    if (elbow.IsNull()) return false;
    im.bodies.push_back({elbow, option});
    return true;
  });
}

bool SolidBodies::addRadiusElbow(Pt start, double width, double depth, double extraA, double extraB, Pt end,
                                 double endWidth, double endDepth, const Frame &frameA, const Frame &frameB,
                                 bool rect, double radiusRatio, bool throatRatio, int option, bool legs) {
  return impl_->transaction("the radius elbow failed", [&](Impl &im) {
    Section a, b;
    if (!makeSection(im, start, rect, width, depth, frameA, a)) return false;
    if (!makeSection(im, end, rect, endWidth, endDepth, frameB, b)) return false;
    if (!std::isfinite(extraA) || !std::isfinite(extraB) || extraA < 0 || extraB < 0)
      return im.fail("an extra thickness is negative");
    double bare = 2 * (extraA + extraB);
    if (!(a.width - bare > 0) || (rect && !(a.depth - bare > 0)))
      return im.fail("the extra thicknesses leave no duct inside");
    if (!std::isfinite(radiusRatio) || !(radiusRatio > 0)) return im.fail("the radius ratio is not positive");
    double scale = sectionScale(a, b);
    Bend bend;
    if (!findBend(a, b, 1e-6 * scale + 1e-4, bend, im.error)) return false;
    gp_Dir k = inward(bend, bend.u);
    double half = halfExtent(a, k);
    double radius = throatRatio ? radiusRatio * 2 * half + half : radiusRatio * 2 * half;
    if (!(radius - half > 1e-9 * scale)) return im.fail("the elbow's throat radius is not positive");
    // The end section must be the start section turned through the bend.
    gp_Ax1 axis(bend.corner, bend.n);
    Section turned = a;
    turned.y = a.y.Rotated(axis, bend.angle);
    turned.z = a.z.Rotated(axis, bend.angle);
    turned.x = bend.v;
    double sizeTol = 1e-6 * scale;
    if (std::abs(2 * halfExtent(turned, b.y) - b.width) > sizeTol ||
        (rect && std::abs(2 * halfExtent(turned, b.z) - b.depth) > sizeTol))
      return im.fail("the elbow's end size is not its start size turned through the bend");
    double tangent = radius * std::tan(bend.angle / 2);
    double head = bend.toStart - tangent, tail = bend.toEnd - tangent;
    if (legs && (head < -sizeTol || tail < -sizeTol))
      return im.fail("the elbow's radius does not fit between its ends");
    Section arcStart = a;
    arcStart.centre = bend.corner.Translated(gp_Vec(bend.u) * -tangent);
    gp_Ax1 bendAxis(arcStart.centre.Translated(gp_Vec(k) * radius), bend.n);
    std::vector<TopoDS_Shape> pieces;
    pieces.push_back(BRepPrimAPI_MakeRevol(sectionFace(arcStart), bendAxis, bend.angle).Shape());
    if (legs && head > sizeTol) pieces.push_back(prism(a, head));
    if (legs && tail > sizeTol) {
      turned.centre = bend.corner.Translated(gp_Vec(bend.v) * tangent);
      pieces.push_back(prism(turned, tail));
    }
    // Pappus: the arc holds the section's area times its centre line's length.
    double area = rect ? a.width * a.depth : M_PI * a.width * a.width / 4;
    double length = radius * bend.angle + (legs ? std::max(head, 0.0) + std::max(tail, 0.0) : 0.0);
    if (pieces.size() == 1 && shapeVolume(pieces[0]) < 0) pieces[0].Reverse();
    TopoDS_Shape elbow = fuseAll(pieces, Contact::kTouching, im.error, area * length);
    if (elbow.IsNull()) return false;
    im.bodies.push_back({elbow, option});
    return true;
  });
}

bool SolidBodies::addCableTraySquareRadiusElbow(Pt start, double width, double depth, Pt end,
                                                const Frame &frameA, const Frame &frameB, double throatRadius,
                                                int option) {
  return impl_->transaction("the tray elbow failed", [&](Impl &im) {
    if (!std::isfinite(throatRadius) || throatRadius < 0) return im.fail("the throat radius is negative");
    Section a, b;
    if (!makeSection(im, start, true, width, depth, frameA, a) ||
        !makeSection(im, end, true, width, depth, frameB, b))
      return false;
    double scale = sectionScale(a, b);
    Bend bend;
    if (!findBend(a, b, 1e-6 * scale + 1e-4, bend, im.error)) return false;
    if (std::abs(halfExtent(a, bend.n) - halfExtent(b, bend.n)) > 1e-6 * scale)
      return im.fail("the tray's sides do not meet across the bend");
    gp_Pnt heel, throat;
    mitrePoints(bend, halfExtent(a, inward(bend, bend.u)), heel, throat);
    TopoDS_Shape elbow = squareElbow(a, b, bend, bend.corner, mitreNormal(bend, heel, throat), im.error);
    if (elbow.IsNull()) return false;
    if (throatRadius > 1e-9 * scale) {
      // The throat edge: the straight edge along n through the throat point.
      gp_Lin throatLine(throat, bend.n);
      TopoDS_Edge edge;
      for (TopExp_Explorer ex(elbow, TopAbs_EDGE); ex.More() && edge.IsNull(); ex.Next()) {
        const TopoDS_Edge &e = TopoDS::Edge(ex.Current());
        BRepAdaptor_Curve c(e);
        if (c.GetType() != GeomAbs_Line) continue;
        gp_Pnt p0 = c.Value(c.FirstParameter()), p1 = c.Value(c.LastParameter());
        if (throatLine.Distance(p0) < 1e-6 * scale && throatLine.Distance(p1) < 1e-6 * scale) edge = e;
      }
      if (edge.IsNull()) return im.fail("the tray elbow has no throat edge to round");
      BRepFilletAPI_MakeFillet fillet(elbow);
      fillet.Add(throatRadius, edge);
      fillet.Build();
      if (!fillet.IsDone()) return im.fail("the throat radius does not fit the tray elbow");
      elbow = fillet.Shape();
      if (!validSolid(elbow)) return im.fail("the rounded tray elbow is not a valid solid");
    }
    im.bodies.push_back({elbow, option});
    return true;
  });
}

}  // namespace vantry::solid
