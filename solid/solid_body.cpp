// SolidBodies: the body list, its local origin, and the operations that act on bodies as a whole
// (transitions and their subtraction, skins, slicing, union, volume, extents, transformation).
// Elbows, wyes, meshing and filing live in their own files.
#include <BRepBndLib.hxx>
#include <BRepBuilderAPI_GTransform.hxx>
#include <BRepBuilderAPI_MakeFace.hxx>
#include <BRepBuilderAPI_MakePolygon.hxx>
#include <BRepBuilderAPI_Transform.hxx>
#include <BRepPrimAPI_MakePrism.hxx>
#include <Bnd_Box.hxx>
#include <algorithm>
#include <cmath>
#include <gp_GTrsf.hxx>
#include <gp_Pln.hxx>
#include <gp_Trsf.hxx>

#include "solid_internal.h"

namespace vantry::solid {

gp_Pnt SolidBodies::Impl::local(const Pt &p) {
  if (!hasOrigin) {
    origin = gp_Pnt(p.x, p.y, p.z);
    hasOrigin = true;
  }
  return localConst(p);
}

bool makeSection(SolidBodies::Impl &impl, const Pt &p, bool rect, double width, double depth, const Frame &f,
                 Section &s) {
  if (!finitePt(p)) return impl.fail("a point is not finite");
  s.rect = rect;
  if (!sectionFrame(f, s, impl.error) || !sectionSize(s, width, depth, impl.error)) return false;
  s.centre = impl.local(p);
  if (!nearOrigin(s.centre)) return impl.fail("a point lies too far from the solid's other points");
  return true;
}

SolidBodies::SolidBodies() : impl_(std::make_unique<Impl>()) {}
SolidBodies::~SolidBodies() = default;
SolidBodies::SolidBodies(const SolidBodies &other) : impl_(std::make_unique<Impl>(*other.impl_)) {}
SolidBodies &SolidBodies::operator=(const SolidBodies &other) {
  if (this != &other) *impl_ = *other.impl_;
  return *this;
}
SolidBodies::SolidBodies(SolidBodies &&other) noexcept : impl_(std::move(other.impl_)) {
  other.impl_ = std::make_unique<Impl>();
}
SolidBodies &SolidBodies::operator=(SolidBodies &&other) noexcept {
  std::swap(impl_, other.impl_);
  return *this;
}

const std::string &SolidBodies::lastError() const {
  return impl_->error;
}
int SolidBodies::bodyCount() const {
  return static_cast<int>(impl_->bodies.size());
}
void SolidBodies::clearBodies() {
  impl_->bodies.clear();
  impl_->error.clear();
}

double SolidBodies::volume() const {
  double v = 0;
  for (const Body &b : impl_->bodies) v += shapeVolume(b.shape);
  return v;
}

bool SolidBodies::valid() const {
  std::string ignored;
  return !impl_->bodies.empty() && guarded(ignored, "", [&] {
    return std::all_of(impl_->bodies.begin(), impl_->bodies.end(),
                       [](const Body &b) { return validSolid(b.shape); });
  });
}

static bool localBox(const std::vector<Body> &bodies, Bnd_Box &box) {
  for (const Body &b : bodies) BRepBndLib::AddOptimal(b.shape, box, Standard_False, Standard_False);
  return !box.IsVoid();
}

bool SolidBodies::extents(Pt &min, Pt &max) const {
  Bnd_Box box;
  if (!localBox(impl_->bodies, box)) return false;
  box.SetGap(0);
  double x0, y0, z0, x1, y1, z1;
  box.Get(x0, y0, z0, x1, y1, z1);
  min = impl_->world(gp_Pnt(x0, y0, z0));
  max = impl_->world(gp_Pnt(x1, y1, z1));
  return true;
}

bool SolidBodies::addTransition(Pt start, bool startRect, double startWidth, double startDepth, Pt end,
                                bool endRect, double endWidth, double endDepth, const Frame &startFrame,
                                const Frame &endFrame, int option) {
  // The origin may be fixed by this call; a failure undoes that too.
  const bool hadOrigin = impl_->hasOrigin;
  auto undo = [&] {
    impl_->hasOrigin = hadOrigin;
    if (!hadOrigin) impl_->origin = gp_Pnt();
    return false;
  };
  Section a, b;
  if (!makeSection(*impl_, start, startRect, startWidth, startDepth, startFrame, a) ||
      !makeSection(*impl_, end, endRect, endWidth, endDepth, endFrame, b))
    return undo();
  TopoDS_Shape loft = loftSections(a, b, impl_->error);
  if (loft.IsNull()) return undo();
  impl_->bodies.push_back({loft, option});
  impl_->error.clear();
  return true;
}

bool SolidBodies::subtractTransition(Pt start, bool startRect, double startWidth, double startDepth, Pt end,
                                     bool endRect, double endWidth, double endDepth, const Frame &startFrame,
                                     const Frame &endFrame, int) {
  if (impl_->bodies.empty()) return impl_->fail("there is no body to cut");
  Section a, b;
  if (!makeSection(*impl_, start, startRect, startWidth, startDepth, startFrame, a) ||
      !makeSection(*impl_, end, endRect, endWidth, endDepth, endFrame, b))
    return false;
  TopoDS_Shape tool = loftSections(a, b, impl_->error);
  if (tool.IsNull()) return false;
  Bnd_Box toolBox;
  BRepBndLib::Add(tool, toolBox);
  std::vector<Body> result = impl_->bodies;
  bool cutAny = false;
  for (Body &body : result) {
    Bnd_Box box;
    BRepBndLib::Add(body.shape, box);
    if (box.IsOut(toolBox)) continue;
    double before = shapeVolume(body.shape);
    TopoDS_Shape cut = cutShape(body.shape, tool, impl_->error);
    if (cut.IsNull()) return false;
    double after = shapeVolume(cut);
    if (after >= before * (1 - 1e-9)) continue;
    if (!(after > 0) || !hasVolume(cut)) return impl_->fail("the cut leaves no solid");
    body.shape = cut;
    cutAny = true;
  }
  if (!cutAny) return impl_->fail("the cut meets no body");
  impl_->bodies = std::move(result);
  impl_->error.clear();
  return true;
}

bool SolidBodies::addSkin(const std::vector<Pt> &points, double thickness) {
  auto build = [&](Impl &im) {
    if (!std::isfinite(thickness) || std::abs(thickness) < kSmallest || std::abs(thickness) > kLargest)
      return im.fail("the skin's thickness is too small or too large for the model's tolerance");
    for (const Pt &p : points)
      if (!finitePt(p)) return im.fail("a point is not finite");
    std::vector<gp_Pnt> pts;
    for (const Pt &p : points) {
      gp_Pnt q = im.local(p);
      if (!nearOrigin(q)) return im.fail("a point lies too far from the solid's other points");
      if (pts.empty() || !q.IsEqual(pts.back(), 1e-9)) pts.push_back(q);
    }
    while (pts.size() > 1 && pts.front().IsEqual(pts.back(), 1e-9)) pts.pop_back();
    if (pts.size() < 3) return im.fail("a skin needs three distinct points");
    // Newell's normal: the right-hand normal of the polygon, robust to nearly collinear corners.
    gp_XYZ n(0, 0, 0), c(0, 0, 0);
    for (size_t i = 0; i < pts.size(); ++i) {
      const gp_XYZ &p = pts[i].XYZ(), &q = pts[(i + 1) % pts.size()].XYZ();
      n += gp_XYZ((p.Y() - q.Y()) * (p.Z() + q.Z()), (p.Z() - q.Z()) * (p.X() + q.X()),
                  (p.X() - q.X()) * (p.Y() + q.Y()));
      c += p;
    }
    c /= static_cast<double>(pts.size());
    if (n.Modulus() < kTiny) return im.fail("the skin's points enclose no area");
    gp_Dir normal(n);
    double size = 0;
    for (const gp_Pnt &p : pts) size = std::max(size, p.XYZ().Subtracted(c).Modulus());
    for (const gp_Pnt &p : pts)
      if (std::abs((p.XYZ() - c).Dot(normal.XYZ())) > 1e-6 * size + 1e-9)
        return im.fail("the skin's points are not in one plane");
    BRepBuilderAPI_MakePolygon poly;
    for (const gp_Pnt &p : pts) poly.Add(p);
    poly.Close();
    if (!poly.IsDone()) return im.fail("the skin's outline is not a polygon");
    BRepBuilderAPI_MakeFace face(gp_Pln(gp_Pnt(c), normal), poly.Wire(), Standard_True);
    if (!face.IsDone()) return im.fail("the skin's outline is not a plane face");
    TopoDS_Shape plate = BRepPrimAPI_MakePrism(face.Face(), gp_Vec(normal) * thickness).Shape();
    if (shapeVolume(plate) < 0) plate.Reverse();
    if (!validSolid(plate)) return im.fail("the skin's outline crosses itself");
    im.bodies.push_back({plate, 0});
    return true;
  };
  return impl_->transaction("the skin could not be built", build, Detail::kTextOnly);
}

bool SolidBodies::sliceLast(Pt a, Pt b, Pt c, Pt keep) {
  if (impl_->bodies.empty()) return impl_->fail("there is no body to slice");
  if (!finitePt(a) || !finitePt(b) || !finitePt(c) || !finitePt(keep))
    return impl_->fail("a point is not finite");
  gp_Pnt pa = impl_->local(a), pb = impl_->local(b), pc = impl_->local(c), pk = impl_->local(keep);
  if (!nearOrigin(pa) || !nearOrigin(pb) || !nearOrigin(pc) || !nearOrigin(pk))
    return impl_->fail("a point lies too far from the solid's other points");
  gp_Vec n = gp_Vec(pa, pb).Crossed(gp_Vec(pa, pc));
  double scale = std::max({pa.Distance(pb), pa.Distance(pc), 1.0});
  if (n.Magnitude() < 1e-9 * scale * scale) return impl_->fail("the slicing points do not span a plane");
  n.Normalize();
  double side = gp_Vec(pa, pk).Dot(n);
  if (std::abs(side) < 1e-9 * scale) return impl_->fail("the point to keep lies on the slicing plane");
  if (side < 0) n.Reverse();
  Body &last = impl_->bodies.back();
  Bnd_Box box;
  BRepBndLib::Add(last.shape, box);
  // A slab on the kept side, larger than the body wherever the plane is: the slice is its common.
  double reach = 4 * (std::sqrt(box.SquareExtent()) + pa.Distance(box.CornerMin()) + 1);
  gp_Dir dir(n);
  gp_Ax3 axes(pa, dir);
  TopoDS_Shape slab;
  auto makeSlab = [&] {
    TopoDS_Face face = BRepBuilderAPI_MakeFace(gp_Pln(axes), -reach, reach, -reach, reach).Face();
    slab = BRepPrimAPI_MakePrism(face, gp_Vec(dir) * reach).Shape();
  };
  if (!guarded(impl_->error, "the slicing plane could not be built", makeSlab, Detail::kTextOnly))
    return false;
  TopoDS_Shape kept = commonShape(last.shape, slab, impl_->error);
  if (kept.IsNull()) return false;
  if (!hasVolume(kept)) return impl_->fail("nothing of the body lies on that side");
  last.shape = kept;
  impl_->error.clear();
  return true;
}

bool SolidBodies::doUnion(const SolidBodies &other) {
  if (impl_->bodies.empty() || other.impl_->bodies.empty())
    return impl_->fail("a solid to unite has no body");
  std::vector<TopoDS_Shape> shapes;
  for (const Body &b : impl_->bodies) shapes.push_back(b.shape);
  gp_Trsf shift;
  shift.SetTranslation(gp_Vec(impl_->origin, other.impl_->origin));
  for (const Body &b : other.impl_->bodies) shapes.push_back(b.shape.Moved(TopLoc_Location(shift)));
  TopoDS_Shape fused = fuseAll(shapes, Contact::kUnknown, impl_->error);
  if (fused.IsNull()) return false;
  int kind = impl_->bodies.front().kind;
  impl_->bodies.assign(1, Body{fused, kind});
  impl_->error.clear();
  return true;
}

bool SolidBodies::transformBy(const double m[4][4]) {
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c)
      if (!std::isfinite(m[r][c])) return impl_->fail("the matrix is not finite");
  if (m[3][0] != 0 || m[3][1] != 0 || m[3][2] != 0 || m[3][3] != 1)
    return impl_->fail("the matrix is not affine");
  gp_Mat l(m[0][0], m[0][1], m[0][2], m[1][0], m[1][1], m[1][2], m[2][0], m[2][1], m[2][2]);
  double det = l.Determinant();
  if (std::abs(det) < 1e-12) return impl_->fail("the matrix is singular");
  // Bodies sit about the local origin, so they take only the linear part; the origin takes the
  // whole matrix.
  gp_Mat ltl = l.Transposed().Multiplied(l);
  double s2 = std::cbrt(det * det);
  bool similar = true;
  for (int r = 1; r <= 3; ++r)
    for (int c = 1; c <= 3; ++c)
      if (std::abs(ltl(r, c) - (r == c ? s2 : 0)) > 1e-9 * s2) similar = false;
  std::vector<Body> moved = impl_->bodies;
  bool done = guarded(impl_->error, "the transformation failed", [&] {
    for (Body &b : moved) {
      if (similar) {
        gp_Trsf t;
        t.SetValues(m[0][0], m[0][1], m[0][2], 0, m[1][0], m[1][1], m[1][2], 0, m[2][0], m[2][1], m[2][2], 0);
        b.shape = BRepBuilderAPI_Transform(b.shape, t, Standard_True).Shape();
      } else {
        gp_GTrsf g(l, gp_XYZ(0, 0, 0));
        b.shape = BRepBuilderAPI_GTransform(b.shape, g, Standard_True).Shape();
      }
      if (shapeVolume(b.shape) < 0) b.shape.Reverse();
    }
  });
  if (!done) return false;
  impl_->bodies = std::move(moved);
  if (impl_->hasOrigin) {
    const gp_Pnt &o = impl_->origin;
    impl_->origin = gp_Pnt(m[0][0] * o.X() + m[0][1] * o.Y() + m[0][2] * o.Z() + m[0][3],
                           m[1][0] * o.X() + m[1][1] * o.Y() + m[1][2] * o.Z() + m[1][3],
                           m[2][0] * o.X() + m[2][1] * o.Y() + m[2][2] * o.Z() + m[2][3]);
  }
  impl_->error.clear();
  return true;
}

}  // namespace vantry::solid
