// Duct sections (rectangles and circles in a frame's y-z plane) and the two simple bodies made from
// them: the ruled loft between two sections and the straight prism of one.
#include <BRepAdaptor_Surface.hxx>
#include <BRepBuilderAPI_MakeEdge.hxx>
#include <BRepBuilderAPI_MakeFace.hxx>
#include <BRepBuilderAPI_MakePolygon.hxx>
#include <BRepBuilderAPI_MakeVertex.hxx>
#include <BRepBuilderAPI_MakeWire.hxx>
#include <BRepOffsetAPI_ThruSections.hxx>
#include <BRepPrimAPI_MakePrism.hxx>
#include <BRep_Builder.hxx>
#include <BRep_Tool.hxx>
#include <GC_MakeArcOfCircle.hxx>
#include <TopExp.hxx>
#include <TopExp_Explorer.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Shell.hxx>
#include <TopoDS_Solid.hxx>
#include <TopoDS_Vertex.hxx>
#include <algorithm>
#include <cmath>
#include <gp_Circ.hxx>

#include "budget.h"
#include "solid_internal.h"

namespace vantry::solid {

bool sectionFrame(const Frame &f, Section &s, std::string &why) {
  gp_Vec x = toVec(f.x), y = toVec(f.y);
  if (!(x.Magnitude() > kTiny) || !std::isfinite(x.Magnitude())) {
    why = "the frame's x axis is zero";
    return false;
  }
  x.Normalize();
  y -= x * y.Dot(x);  // square y to x; a caller's frame is unit and square to host tolerance only
  if (!(y.Magnitude() > 1e-6) || !std::isfinite(y.Magnitude())) {
    why = "the frame's y axis is zero or along x";
    return false;
  }
  y.Normalize();
  s.x = gp_Dir(x);
  s.y = gp_Dir(y);
  s.z = gp_Dir(x.Crossed(y));
  return true;
}

bool sectionSize(Section &s, double width, double depth, std::string &why) {
  auto fits = [](double v) { return std::isfinite(v) && v >= kSmallest && v <= kLargest; };
  if (!std::isfinite(width) || !(width > 0) || (s.rect && (!std::isfinite(depth) || !(depth > 0)))) {
    why = "a section size is not a positive number";
    return false;
  }
  if (!fits(width) || (s.rect && !fits(depth))) {
    why = "a section size is too small or too large for the model's tolerance";
    return false;
  }
  s.width = width;
  s.depth = s.rect ? depth : width;
  return true;
}

static gp_Pnt onSection(const Section &s, double dy, double dz) {
  return s.centre.Translated(gp_Vec(s.y) * dy + gp_Vec(s.z) * dz);
}

TopoDS_Wire sectionWire(const Section &s, const Section &cornerOf) {
  if (s.rect) {
    double w = s.width / 2, d = s.depth / 2;
    BRepBuilderAPI_MakePolygon poly(onSection(s, -w, -d), onSection(s, w, -d), onSection(s, w, d),
                                    onSection(s, -w, d), Standard_True);
    return poly.Wire();
  }
  // Four arcs meeting at the angles of the partner's corners, starting at its (-y,-z) corner and
  // turning from y towards z, as the rectangle's polygon does.
  double r = s.width / 2;
  double c = std::atan2(cornerOf.depth, cornerOf.width);
  const double angles[5] = {-M_PI + c, -c, c, M_PI - c, M_PI + c};
  gp_Circ circ(gp_Ax2(s.centre, s.x, s.y), r);
  BRepBuilderAPI_MakeWire wire;
  for (int i = 0; i < 4; ++i) {
    GC_MakeArcOfCircle arc(circ, angles[i], angles[i + 1], Standard_True);
    wire.Add(BRepBuilderAPI_MakeEdge(arc.Value()).Edge());
  }
  return wire.Wire();
}

TopoDS_Shape sectionFace(const Section &s) {
  return BRepBuilderAPI_MakeFace(sectionWire(s, s), Standard_True).Face();
}

TopoDS_Shape ruledPolyhedron(const std::vector<gp_Pnt> &bottom, const std::vector<gp_Pnt> &top) {
  const size_t n = bottom.size();
  if (n < 3 || top.size() != n) return {};
  // Shared vertices and edges, so that the faces close into one shell.
  std::vector<TopoDS_Vertex> vb(n), vt(n);
  for (size_t i = 0; i < n; ++i) {
    vb[i] = BRepBuilderAPI_MakeVertex(bottom[i]).Vertex();
    vt[i] = BRepBuilderAPI_MakeVertex(top[i]).Vertex();
  }
  std::vector<TopoDS_Edge> eb(n), et(n), side(n);
  for (size_t i = 0; i < n; ++i) {
    size_t j = (i + 1) % n;
    eb[i] = BRepBuilderAPI_MakeEdge(vb[i], vb[j]).Edge();
    et[i] = BRepBuilderAPI_MakeEdge(vt[i], vt[j]).Edge();
    side[i] = BRepBuilderAPI_MakeEdge(vb[i], vt[i]).Edge();
  }
  auto face = [](std::initializer_list<TopoDS_Edge> edges) -> TopoDS_Face {
    BRepBuilderAPI_MakeWire wire;
    for (const TopoDS_Edge &e : edges) wire.Add(e);
    if (!wire.IsDone()) return {};
    BRepBuilderAPI_MakeFace f(wire.Wire(), Standard_True);
    return f.IsDone() ? f.Face() : TopoDS_Face();
  };
  // Both polygons are convex and the sides flat, so the solid is convex: a face faces outwards when
  // its normal points away from the middle of the corners.
  gp_XYZ middle(0, 0, 0);
  for (size_t i = 0; i < n; ++i) middle += bottom[i].XYZ() + top[i].XYZ();
  middle /= 2.0 * n;
  BRep_Builder builder;
  TopoDS_Shell shell;
  builder.MakeShell(shell);
  auto add = [&](TopoDS_Face f) {
    if (f.IsNull()) return false;
    BRepAdaptor_Surface surf(f, Standard_False);
    if (surf.GetType() != GeomAbs_Plane) return false;
    gp_Dir normal = surf.Plane().Axis().Direction();
    if (f.Orientation() == TopAbs_REVERSED) normal.Reverse();
    gp_Pnt on = BRep_Tool::Pnt(TopExp::FirstVertex(TopoDS::Edge(TopExp_Explorer(f, TopAbs_EDGE).Current())));
    if (gp_Vec(gp_Pnt(middle), on).Dot(gp_Vec(normal)) < 0) f.Reverse();
    builder.Add(shell, f);
    return true;
  };
  BRepBuilderAPI_MakeWire bw, tw;
  for (size_t i = 0; i < n; ++i) {
    bw.Add(eb[i]);
    tw.Add(et[i]);
  }
  BRepBuilderAPI_MakeFace bf(bw.Wire(), Standard_True), tf(tw.Wire(), Standard_True);
  if (!bf.IsDone() || !tf.IsDone() || !add(bf.Face()) || !add(tf.Face())) return {};
  for (size_t i = 0; i < n; ++i)
    if (!add(face({eb[i], side[(i + 1) % n], et[i], side[i]}))) return {};
  shell.Closed(Standard_True);
  TopoDS_Solid solid;
  builder.MakeSolid(solid);
  builder.Add(solid, shell);
  return solid;
}

// True when each side quad of two corresponding polygons is flat.
static bool flatSides(const std::vector<gp_Pnt> &a, const std::vector<gp_Pnt> &b) {
  for (size_t i = 0; i < a.size(); ++i) {
    size_t j = (i + 1) % a.size();
    gp_Vec n = gp_Vec(a[i], a[j]).Crossed(gp_Vec(a[i], b[i]));
    double size = a[i].Distance(a[j]) + a[i].Distance(b[i]);
    if (n.Magnitude() < 1e-12 * size * size) return false;
    if (std::abs(gp_Vec(a[i], b[j]).Dot(n.Normalized())) > 1e-9 * size) return false;
  }
  return true;
}

std::vector<gp_Pnt> rectCorners(const Section &s) {
  double w = s.width / 2, d = s.depth / 2;
  return {onSection(s, -w, -d), onSection(s, w, -d), onSection(s, w, d), onSection(s, -w, d)};
}

double halfExtent(const Section &s, const gp_Dir &d) {
  if (s.rect) return std::abs(d.Dot(s.y)) * s.width / 2 + std::abs(d.Dot(s.z)) * s.depth / 2;
  double along = d.Dot(s.x);
  return s.width / 2 * std::sqrt(std::max(0.0, 1 - along * along));
}

TopoDS_Shape loftSections(const Section &a, const Section &b, std::string &why) {
  gp_Vec ab(a.centre, b.centre);
  if (ab.Magnitude() < kSmallest) {
    why = "the two sections have the same centre";
    return {};
  }
  // A piece thinner than its size allows for (a strut a millionth as thick as it is long).
  double largest = std::max({ab.Magnitude(), a.width, a.depth, b.width, b.depth});
  double smallest = std::min({ab.Magnitude(), a.width, a.depth, b.width, b.depth});
  if (smallest < kSlenderest * largest) {
    why = "the piece is too slender for the model's tolerance";
    return {};
  }
  // Neither section's plane may reach the other's centre (the sides would cross). Which way a frame's
  // x points does not matter: a hanger rod may run against its frame.
  double lean = 1e-6 * ab.Magnitude();
  if (std::abs(ab.Dot(gp_Vec(a.x))) <= lean || std::abs(ab.Dot(gp_Vec(b.x))) <= lean) {
    why = "a section's plane passes through the other end";
    return {};
  }
  const Section &corners = a.rect ? a : b;
  return guarded(why, "the loft between the sections failed", [&]() -> TopoDS_Shape {
    // The same section at both ends, turned alike: a prism along the run (straight pieces, rods).
    if (a.rect == b.rect && a.width == b.width && a.depth == b.depth && a.y.IsEqual(b.y, 1e-12) &&
        a.z.IsEqual(b.z, 1e-12))
      return BRepPrimAPI_MakePrism(sectionFace(a), ab).Shape();
    // Rectangles whose sides pair up flat (parallel sections, as in most transitions) make a plain
    // polyhedron: plane faces are cheaper in every later boolean than the loft's flat B-splines.
    if (a.rect && b.rect) {
      std::vector<gp_Pnt> ca = rectCorners(a), cb = rectCorners(b);
      if (flatSides(ca, cb)) {
        TopoDS_Shape shape = ruledPolyhedron(ca, cb);
        if (hasVolume(shape)) return shape;
      }
    }
    BRepOffsetAPI_ThruSections loft(Standard_True, Standard_True, 1e-6);
    loft.AddWire(sectionWire(a, corners));
    loft.AddWire(sectionWire(b, corners));
    Handle(Budget) budget = new Budget();
    loft.Build(budget->Start());
    if (budget->overrun()) {
      why = kOverrun;
      return {};
    }
    if (!loft.IsDone()) {
      why = "the loft between the sections failed";
      return {};
    }
    // The sections' checks above keep the sides from crossing, and the loft orients its solid
    // itself, so it is trusted as it comes.
    TopoDS_Shape shape = loft.Shape();
    if (!TopExp_Explorer(shape, TopAbs_SOLID).More()) {
      why = "the loft between the sections is not a valid solid";
      return {};
    }
    return shape;
  });
}

TopoDS_Shape prism(const Section &s, double length) {
  return BRepPrimAPI_MakePrism(sectionFace(s), gp_Vec(s.x) * length).Shape();
}

}  // namespace vantry::solid
