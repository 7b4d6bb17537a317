// Inside the modeller: the body list behind SolidBodies and the Open CASCADE helpers its operation
// files share. Only solid/*.cpp include this header.
#pragma once

#include <TopoDS_Shape.hxx>
#include <TopoDS_Wire.hxx>
#include <cmath>
#include <gp_Ax2.hxx>
#include <gp_Dir.hxx>
#include <gp_Pnt.hxx>
#include <gp_Vec.hxx>
#include <string>
#include <vector>

#include "guarded.h"
#include "solid_body.h"

namespace vantry::solid {

// Boolean settings: a fuzzy value that joins touching pieces whose faces agree only to the
// precision of the drawing, and the same tolerance for "two points are one".
inline constexpr double kFuzzy = 1e-4;
inline constexpr double kTiny = 1e-9;
// What the model can hold. A size, thickness or length below kSmallest (ten times the fuzzy value)
// is degenerate: the booleans would join its faces. Sizes and distances from the local origin beyond
// kLargest leave too few bits for the model's tolerance (and doubling one may overflow). A piece
// whose smallest dimension is below kSlenderest of its largest is degenerate at the tolerance its
// size allows.
inline constexpr double kSmallest = 10 * kFuzzy;
inline constexpr double kLargest = 1e9;
inline constexpr double kSlenderest = 1e-6;

struct Body {
  TopoDS_Shape shape;  // a solid (or compound of solids), in local coordinates
  int kind = 0;
};

struct SolidBodies::Impl {
  bool hasOrigin = false;
  gp_Pnt origin;  // world position of the local (0,0,0)
  std::vector<Body> bodies;
  std::string error;

  // World point to local, fixing the origin on first use.
  gp_Pnt local(const Pt &p);
  gp_Pnt localConst(const Pt &p) const {
    return gp_Pnt(p.x - origin.X(), p.y - origin.Y(), p.z - origin.Z());
  }
  Pt world(const gp_Pnt &p) const { return {p.X() + origin.X(), p.Y() + origin.Y(), p.Z() + origin.Z()}; }
  bool fail(const std::string &why) {
    error = why;
    return false;
  }
  // Runs an operation that changes the bodies (or fixes the origin) as one whole: step(*this),
  // guarded. When the step answers false or throws, everything is put back as it was except the
  // error, which says why; when it succeeds, the error is cleared.
  template <class Step>
  bool transaction(const char *failed, Step &&step, Detail detail = Detail::kMessage) {
    Impl saved = *this;
    if (guarded(
            error, failed, [&] { return step(*this); }, detail)) {
      error.clear();
      return true;
    }
    saved.error = std::move(error);
    *this = std::move(saved);
    return false;
  }
};

// A section of a duct: its centre, frame (x is the normal) and size.
struct Section {
  gp_Pnt centre;
  gp_Dir x, y, z;
  bool rect = true;
  double width = 0, depth = 0;
};

inline bool finitePt(const Pt &p) {
  return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}
// A local point within kLargest of the local origin.
inline bool nearOrigin(const gp_Pnt &p) {
  return std::abs(p.X()) <= kLargest && std::abs(p.Y()) <= kLargest && std::abs(p.Z()) <= kLargest;
}
inline gp_Vec toVec(const Vec &v) {
  return gp_Vec(v.x, v.y, v.z);
}
inline Pt toPt(const gp_Pnt &p) {
  return {p.X(), p.Y(), p.Z()};
}

// Fills s.x, s.y, s.z from a caller's frame: x normalised, y made square to x, z = x cross y. False
// when the frame is degenerate.
bool sectionFrame(const Frame &f, Section &s, std::string &why);
// A whole section from a caller's arguments, its centre made local. False (with impl.error set) on a
// point that is not finite, a bad frame or a bad size.
bool makeSection(SolidBodies::Impl &impl, const Pt &p, bool rect, double width, double depth, const Frame &f,
                 Section &s);
// Checks the size (finite, > 0; depth only for rectangles).
bool sectionSize(Section &s, double width, double depth, std::string &why);
// The section's closed wire. A rectangle starts at its (-y,-z) corner; a circle is split into four
// arcs at the angles of `cornerOf`'s corners (seen from the circle's centre in its own frame), so a
// loft to a rectangle pairs each side with one arc. Pass the section itself for a plain split.
TopoDS_Wire sectionWire(const Section &s, const Section &cornerOf);
// A solid with plane faces from two polygons whose corresponding sides span flat quads (the caller
// makes sure they do). Null on failure.
TopoDS_Shape ruledPolyhedron(const std::vector<gp_Pnt> &bottom, const std::vector<gp_Pnt> &top);
// A rectangular section's corners in the order of its wire.
std::vector<gp_Pnt> rectCorners(const Section &s);
// The section's planar face.
TopoDS_Shape sectionFace(const Section &s);
// Half the extent of the section along a direction in (or near) its plane.
double halfExtent(const Section &s, const gp_Dir &d);

// A ruled loft between two sections. Null shape on failure (why says it).
TopoDS_Shape loftSections(const Section &a, const Section &b, std::string &why);
// A straight prism of one section from its centre along its x by `length`.
TopoDS_Shape prism(const Section &s, double length);

// How the pieces of a fuse meet: only face to face (known by construction), overlapping, or not known.
enum class Contact { kTouching, kOverlapping, kUnknown };
// Fuses shapes into one solid: fuzzy, glued first when the pieces only touch (checked by volume and
// validity, redone in full if the glued result is wrong), then same-domain faces unified. Null on
// failure.
// `pieceVolume`, when the caller knows it (the sum of the pieces' volumes), saves measuring them. The
// result passes validSolid and holds at least the largest piece's volume; any other is a failure.
TopoDS_Shape fuseAll(const std::vector<TopoDS_Shape> &shapes, Contact contact, std::string &why,
                     double pieceVolume = -1);
// a minus b, fuzzy, unified. Null on failure.
TopoDS_Shape cutShape(const TopoDS_Shape &a, const TopoDS_Shape &b, std::string &why);
// a common b, fuzzy, unified. Null on failure.
TopoDS_Shape commonShape(const TopoDS_Shape &a, const TopoDS_Shape &b, std::string &why);
// Volume of a shape (signed: negative when inside out).
double shapeVolume(const TopoDS_Shape &s);
// True when the shape holds a solid and has positive volume: the cheap check, enough for what the
// loft and the booleans give back.
bool hasVolume(const TopoDS_Shape &s);
// hasVolume, and the full topological and geometric check as well (for shapes made from a caller's
// free outline, such as a skin, or by a fillet).
bool validSolid(const TopoDS_Shape &s);
// Whether a filed shape's text is fit for the library's shape reader, which trusts its input: its
// table counts fit the text, its locations end, and every curve and surface record has the layout
// of its type and builds (solid/shape_text.cpp).
bool shapeTextFits(const std::string &text);

}  // namespace vantry::solid
