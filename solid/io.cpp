// Filing the bodies: STEP export and import, and the text form the entity files in a drawing.
//
// Text form, one record per line, then each body's shape text:
//   vantry-solid 1
//   origin <x> <y> <z>              hexadecimal floating point, so the origin comes back exactly
//   bodies <n>
//   body <kind> <chars>             followed by exactly <chars> characters of the shape, in Open
//                                   CASCADE's own ASCII shape format without triangles
// The shape format writes every real to 17 significant digits, so geometry (and volumes) come back
// to the last bit or very nearly.
#include <BRepBndLib.hxx>
#include <BRepTools.hxx>
#include <BRep_Builder.hxx>
#include <BRep_Tool.hxx>
#include <Geom2d_Curve.hxx>
#include <Geom_Curve.hxx>
#include <Geom_Surface.hxx>
#include <TopExp.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Vertex.hxx>
#include <gp_Pnt2d.hxx>
#include <Bnd_Box.hxx>
#include <IFSelect_ReturnStatus.hxx>
#include <Interface_Static.hxx>
#include <Message.hxx>
#include <Message_Messenger.hxx>
#include <STEPControl_Reader.hxx>
#include <STEPControl_Writer.hxx>
#include <TopExp_Explorer.hxx>
#include <TopoDS_Compound.hxx>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>

#include "budget.h"
#include "solid_internal.h"

namespace vantry::solid {

namespace {

// The STEP translators report to the default messenger (standard output); the module's transcript
// is no place for that.
void quietMessages() {
  static bool done = [] {
    const Handle(Message_Messenger) &m = Message::DefaultMessenger();
    m->RemovePrinters(STANDARD_TYPE(Message_Printer));
    return true;
  }();
  (void)done;
}

TopoDS_Shape moved(const TopoDS_Shape &s, const gp_Vec &by) {
  gp_Trsf t;
  t.SetTranslation(by);
  return s.Moved(TopLoc_Location(t));
}

// Whether a shape read from text hangs together: every tolerance small against the shape's size,
// and every edge's 3D curve and its curve on each face reaching the edge's vertices. A number
// changed by damage (a direction, an index, a parameter) mostly breaks one of these; they are cheap,
// and a shape that fails them is not handed to the full check, which can take very long on such a
// shape (it intersects every wire with itself).
bool hangsTogether(const TopoDS_Shape &s) {
  Bnd_Box box;
  BRepBndLib::Add(s, box, Standard_False);
  if (box.IsVoid() || box.IsOpen()) return false;
  const double size = std::sqrt(box.SquareExtent());
  if (!(size > 0) || !(size < 1e12)) return false;
  const double loosest = std::max(1e-3 * size, 1e-3), gap = std::max(1e-6 * size, 1e-4);
  for (TopExp_Explorer ex(s, TopAbs_VERTEX); ex.More(); ex.Next())
    if (!(BRep_Tool::Tolerance(TopoDS::Vertex(ex.Current())) < loosest)) return false;
  for (TopExp_Explorer ex(s, TopAbs_EDGE); ex.More(); ex.Next())
    if (!(BRep_Tool::Tolerance(TopoDS::Edge(ex.Current())) < loosest)) return false;
  for (TopExp_Explorer fx(s, TopAbs_FACE); fx.More(); fx.Next()) {
    const TopoDS_Face &face = TopoDS::Face(fx.Current());
    if (!(BRep_Tool::Tolerance(face) < loosest)) return false;
    Handle(Geom_Surface) surface = BRep_Tool::Surface(face);
    if (surface.IsNull()) return false;
    for (TopExp_Explorer ex(face, TopAbs_EDGE); ex.More(); ex.Next()) {
      const TopoDS_Edge &edge = TopoDS::Edge(ex.Current());
      TopoDS_Vertex v0, v1;
      TopExp::Vertices(edge, v0, v1);
      if (v0.IsNull() || v1.IsNull()) return false;
      const gp_Pnt p0 = BRep_Tool::Pnt(v0), p1 = BRep_Tool::Pnt(v1);
      double a = 0, b = 0;
      Handle(Geom_Curve) curve = BRep_Tool::Curve(edge, a, b);
      if (curve.IsNull() && !BRep_Tool::Degenerated(edge)) return false;
      if (!curve.IsNull() && (!(curve->Value(a).Distance(p0) < gap) || !(curve->Value(b).Distance(p1) < gap)))
        return false;
      Handle(Geom2d_Curve) onFace = BRep_Tool::CurveOnSurface(edge, face, a, b);
      if (onFace.IsNull()) return false;
      gp_Pnt2d u0 = onFace->Value(a), u1 = onFace->Value(b);
      if (!(surface->Value(u0.X(), u0.Y()).Distance(p0) < gap) || !(surface->Value(u1.X(), u1.Y()).Distance(p1) < gap))
        return false;
    }
  }
  return true;
}

}  // namespace

bool SolidBodies::writeStep(const std::string &path) const {
  if (impl_->bodies.empty()) return impl_->fail("there is no body to export");
  quietMessages();
  auto write = [&] {
    BRep_Builder builder;
    TopoDS_Compound all;
    builder.MakeCompound(all);
    gp_Vec toWorld(impl_->origin.XYZ());
    for (const Body &b : impl_->bodies) builder.Add(all, moved(b.shape, toWorld));
    STEPControl_Writer writer;
    Interface_Static::SetCVal("write.step.schema", "AP214IS");
    if (writer.Transfer(all, STEPControl_AsIs) != IFSelect_RetDone)
      return impl_->fail("the bodies could not be turned into STEP");
    if (writer.Write(path.c_str()) != IFSelect_RetDone) return impl_->fail("cannot write " + path);
    return true;
  };
  if (!guarded(impl_->error, "STEP export failed", write)) return false;
  impl_->error.clear();
  return true;
}

bool SolidBodies::readStep(const std::string &path) {
  quietMessages();
  std::vector<TopoDS_Shape> solids;
  auto read = [&] {
    STEPControl_Reader reader;
    if (reader.ReadFile(path.c_str()) != IFSelect_RetDone)
      return impl_->fail("cannot read STEP file " + path);
    reader.TransferRoots();
    TopoDS_Shape shape = reader.OneShape();
    for (TopExp_Explorer ex(shape, TopAbs_SOLID); ex.More(); ex.Next()) solids.push_back(ex.Current());
    return true;
  };
  if (!guarded(impl_->error, "STEP import failed", read)) return false;
  if (solids.empty()) return impl_->fail("the STEP file holds no solid");
  // The new local origin is the middle of what was read.
  Bnd_Box box;
  for (const TopoDS_Shape &s : solids) BRepBndLib::Add(s, box);
  gp_Pnt mid((box.CornerMin().XYZ() + box.CornerMax().XYZ()) / 2);
  impl_->bodies.clear();
  for (const TopoDS_Shape &s : solids) impl_->bodies.push_back({moved(s, gp_Vec(mid.XYZ()).Reversed()), 0});
  impl_->origin = mid;
  impl_->hasOrigin = true;
  impl_->error.clear();
  return true;
}

std::string SolidBodies::toString() const {
  std::ostringstream out;
  char line[160];
  std::snprintf(line, sizeof line, "vantry-solid 1\norigin %a %a %a\nbodies %zu\n", impl_->origin.X(),
                impl_->origin.Y(), impl_->origin.Z(), impl_->bodies.size());
  out << line;
  for (const Body &b : impl_->bodies) {
    std::ostringstream shape;
    BRepTools::Write(b.shape, shape, Standard_False, Standard_False, TopTools_FormatVersion_CURRENT);
    std::string text = shape.str();
    out << "body " << b.kind << ' ' << text.size() << '\n' << text << '\n';
  }
  return out.str();
}

bool SolidBodies::fromString(const std::string &text) {
  std::istringstream in(text);
  std::string word, x, y, z;
  int version = 0;
  size_t count = 0;
  if (!(in >> word >> version) || word != "vantry-solid" || version != 1)
    return impl_->fail("not a solid's text (bad header)");
  if (!(in >> word >> x >> y >> z) || word != "origin") return impl_->fail("a solid's text lacks its origin");
  char *end = nullptr;
  double ox = std::strtod(x.c_str(), &end), oy = std::strtod(y.c_str(), &end),
         oz = std::strtod(z.c_str(), &end);
  if (!std::isfinite(ox) || !std::isfinite(oy) || !std::isfinite(oz))
    return impl_->fail("a solid's text has an origin that is not finite");
  if (!(in >> word >> count) || word != "bodies" || count > text.size() / 8)
    return impl_->fail("a solid's text lacks its body count");
  std::vector<Body> bodies;
  for (size_t i = 0; i < count; ++i) {
    size_t chars = 0;
    Body b;
    if (!(in >> word >> b.kind >> chars) || word != "body" || in.get() != '\n')
      return impl_->fail("a solid's text has a bad body record");
    // The count is checked against what is left of the text before anything is made of it.
    if (chars > text.size() - std::min(text.size(), static_cast<size_t>(in.tellg())))
      return impl_->fail("a solid's text is cut short");
    std::string shapeText(chars, '\0');
    if (!in.read(shapeText.data(), static_cast<std::streamsize>(chars)))
      return impl_->fail("a solid's text is cut short");
    if (!shapeTextFits(shapeText)) return impl_->fail("a solid's text holds a damaged shape");
    // The shape reader tells standard output what it found wrong ("Not a TShape table"); the
    // host's transcript is no place for it, and the failure is reported below anyway.
    std::ostringstream chatter;
    std::streambuf *console = std::cout.rdbuf(chatter.rdbuf());
    bool read = guarded(impl_->error, "a solid's text holds a bad shape", [&] {
      std::istringstream shapeIn(shapeText);
      // The shape reader loops over a stream that has failed as if it still gave numbers (a
      // vertex's list of representations whose end marker was damaged never ends): a failed read
      // throws instead, and the shape is refused.
      shapeIn.exceptions(std::ios::failbit | std::ios::badbit);
      BRep_Builder builder;
      Handle(Budget) budget = new Budget();
      BRepTools::Read(b.shape, shapeIn, builder, budget->Start());
      if (budget->overrun()) b.shape.Nullify();
    });
    std::cout.rdbuf(console);
    if (!read || b.shape.IsNull()) return impl_->fail("a solid's text holds a bad shape");
    // A shape that reads may still be damaged (a number changed in a file): it is trusted only when
    // it passes the library's full check as a solid of positive volume, and is no larger than a
    // fitting can be.
    std::string ignored;
    bool sound = withinSize(b.shape) &&
                 guarded(ignored, "", [&] { return hangsTogether(b.shape) && validSolid(b.shape); });
    if (!sound) return impl_->fail("a solid's text holds a damaged shape");
    bodies.push_back(b);
  }
  impl_->bodies = std::move(bodies);
  impl_->origin = gp_Pnt(ox, oy, oz);
  impl_->hasOrigin = count > 0 || ox != 0 || oy != 0 || oz != 0;
  impl_->error.clear();
  return true;
}

}  // namespace vantry::solid
