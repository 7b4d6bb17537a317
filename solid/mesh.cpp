// Faces for drawing and explosion: the triangle mesh of all bodies, and the explode rule (a flat face
// with at most four corners and straight edges stays one piece, any other face gives its
// triangles), with each piece's sides marked where they lie on a feature edge of the body.
//
// Loft sides come back as degree-one B-spline surfaces even when flat, so flatness and straightness
// are judged by sampling the geometry, not by the surface's type. Likewise an edge is a feature
// edge by its geometry: the faces on either side of it meet at a crease (their normals at its middle
// differ), not smoothly (a straight leg running into the arc of a bend, the four arcs of a round
// section), and it is not a closed face's seam.
#include <BRepAdaptor_Curve.hxx>
#include <BRepAdaptor_Surface.hxx>
#include <BRepBndLib.hxx>
#include <BRepLProp_SLProps.hxx>
#include <BRepMesh_IncrementalMesh.hxx>
#include <BRepTools.hxx>
#include <BRepTools_WireExplorer.hxx>
#include <BRep_Tool.hxx>
#include <Bnd_Box.hxx>
#include <Geom2d_Curve.hxx>
#include <GeomLib_IsPlanarSurface.hxx>
#include <Poly_PolygonOnTriangulation.hxx>
#include <Poly_Triangulation.hxx>
#include <TColStd_Array1OfInteger.hxx>
#include <TopExp.hxx>
#include <TopExp_Explorer.hxx>
#include <TopTools_IndexedDataMapOfShapeListOfShape.hxx>
#include <TopTools_IndexedMapOfShape.hxx>
#include <TopoDS.hxx>
#include <algorithm>
#include <cmath>
#include <set>
#include <utility>

#include "budget.h"
#include "solid_internal.h"

namespace vantry::solid {

namespace {

constexpr double kFlat = 1e-6;  // relative to the face's size

double boxDiagonal(const TopoDS_Shape &s) {
  Bnd_Box box;
  BRepBndLib::Add(s, box);
  return box.IsVoid() ? 0 : std::sqrt(box.SquareExtent());
}

// Default fineness: chords within 1/500 of the body's size and turning at most 8 degrees, which
// draws a bend round (a quarter turn in 12 facets) without burying a drawing in faces.
void ensureMesh(const TopoDS_Shape &s, double deflection) {
  if (!(deflection > 0)) deflection = std::max(boxDiagonal(s) * 2e-3, 1e-6);
  IMeshTools_Parameters params;
  params.Deflection = deflection;
  params.Angle = 0.14;
  params.Relative = Standard_False;
  params.InParallel = Standard_False;
  // Under the step's time limit: a mesh that runs away leaves faces without triangles, which the
  // callers skip, rather than a hung session.
  Handle(Budget) budget = new Budget();
  BRepMesh_IncrementalMesh(s, params, budget->Start());
}

// Where two faces meeting at an edge differ in direction by more than this, the edge is a crease.
constexpr double kCrease = 2 * M_PI / 180;

// The outward normal of a face where the edge's middle lies on it; false where it has none.
bool normalAtEdge(const TopoDS_Edge &edge, const TopoDS_Face &face, gp_Dir &normal) {
  double first, last;
  Handle(Geom2d_Curve) uv = BRep_Tool::CurveOnSurface(edge, face, first, last);
  if (uv.IsNull()) return false;
  gp_Pnt2d p = uv->Value(0.5 * (first + last));
  BRepAdaptor_Surface surf(face);
  BRepLProp_SLProps props(surf, p.X(), p.Y(), 1, 1e-9);
  if (!props.IsNormalDefined()) return false;
  normal = props.Normal();
  if (face.Orientation() == TopAbs_REVERSED) normal.Reverse();
  return true;
}

// The body's feature edges: those where two faces meet at a crease, or that bound one face only.
TopTools_IndexedMapOfShape featureEdges(const TopoDS_Shape &body) {
  TopTools_IndexedDataMapOfShapeListOfShape facesOf;
  TopExp::MapShapesAndAncestors(body, TopAbs_EDGE, TopAbs_FACE, facesOf);
  TopTools_IndexedMapOfShape out;
  for (int i = 1; i <= facesOf.Extent(); ++i) {
    const TopoDS_Edge &edge = TopoDS::Edge(facesOf.FindKey(i));
    if (BRep_Tool::Degenerated(edge)) continue;
    std::vector<TopoDS_Face> faces;
    for (const TopoDS_Shape &f : facesOf(i))
      if (std::none_of(faces.begin(), faces.end(), [&](const TopoDS_Face &g) { return g.IsSame(f); }))
        faces.push_back(TopoDS::Face(f));
    if (faces.size() == 1 && BRep_Tool::IsClosed(edge, faces[0])) continue;  // a seam
    gp_Dir n0, n1;
    if (faces.size() == 2 && normalAtEdge(edge, faces[0], n0) && normalAtEdge(edge, faces[1], n1) &&
        n0.Angle(n1) < kCrease)
      continue;  // smooth
    out.Add(edge);
  }
  return out;
}

// The node pairs of a meshed face's triangulation that lie along its feature edges.
std::set<std::pair<int, int>> featureSides(const TopoDS_Face &face,
                                           const TopTools_IndexedMapOfShape &features) {
  std::set<std::pair<int, int>> out;
  TopLoc_Location loc;
  const Handle(Poly_Triangulation) &tri = BRep_Tool::Triangulation(face, loc);
  if (tri.IsNull()) return out;
  for (TopExp_Explorer ex(face, TopAbs_EDGE); ex.More(); ex.Next()) {
    const TopoDS_Edge &edge = TopoDS::Edge(ex.Current());
    if (!features.Contains(edge)) continue;
    Handle(Poly_PolygonOnTriangulation) poly = BRep_Tool::PolygonOnTriangulation(edge, tri, loc);
    if (poly.IsNull()) continue;
    const TColStd_Array1OfInteger &nodes = poly->Nodes();
    for (int k = nodes.Lower(); k < nodes.Upper(); ++k) out.insert(std::minmax(nodes(k), nodes(k + 1)));
  }
  return out;
}

// Whether a flat face's side from a to b runs along one of its feature edges.
bool featureSide(const TopoDS_Face &face, const TopTools_IndexedMapOfShape &features, const gp_Pnt &a,
                 const gp_Pnt &b) {
  double length = a.Distance(b);
  if (length < kTiny) return false;
  gp_Vec along(a, b);
  along /= length;
  for (TopExp_Explorer ex(face, TopAbs_EDGE); ex.More(); ex.Next()) {
    const TopoDS_Edge &edge = TopoDS::Edge(ex.Current());
    if (!features.Contains(edge)) continue;
    BRepAdaptor_Curve c(edge);
    gp_Pnt mid = c.Value(0.5 * (c.FirstParameter() + c.LastParameter()));
    gp_Vec am(a, mid);
    double t = am.Dot(along);
    if (t > 0 && t < length && (am - along * t).Magnitude() <= kFlat * length) return true;
  }
  return false;
}

// Appends the triangles of one meshed face, turned to face outwards: emit(p, q, r, nodes) with the
// triangulation's node numbers of the three corners in the same order.
template <class Emit>
void faceTriangles(const TopoDS_Face &face, Emit emit) {
  TopLoc_Location loc;
  const Handle(Poly_Triangulation) &tri = BRep_Tool::Triangulation(face, loc);
  if (tri.IsNull()) return;
  const gp_Trsf &t = loc.Transformation();
  bool reversed = face.Orientation() == TopAbs_REVERSED;
  for (int i = 1; i <= tri->NbTriangles(); ++i) {
    int n[3];
    tri->Triangle(i).Get(n[0], n[1], n[2]);
    if (reversed) std::swap(n[1], n[2]);
    emit(tri->Node(n[0]).Transformed(t), tri->Node(n[1]).Transformed(t), tri->Node(n[2]).Transformed(t), n);
  }
}

bool straightEdge(const TopoDS_Edge &e) {
  BRepAdaptor_Curve c(e);
  if (c.GetType() == GeomAbs_Line) return true;
  double u0 = c.FirstParameter(), u1 = c.LastParameter();
  gp_Pnt p0 = c.Value(u0), p1 = c.Value(u1);
  double len = p0.Distance(p1);
  if (len < kTiny) return false;
  gp_Lin chord(p0, gp_Dir(gp_Vec(p0, p1)));
  for (double f : {0.25, 0.5, 0.75})
    if (chord.Distance(c.Value(u0 + f * (u1 - u0))) > kFlat * len) return false;
  return true;
}

// The corners of a flat face with at most four corners and straight edges, in order round its
// outward normal; empty when the face is not one.
std::vector<gp_Pnt> flatCorners(const TopoDS_Face &face) {
  int wires = 0;
  for (TopExp_Explorer ex(face, TopAbs_WIRE); ex.More(); ex.Next()) ++wires;
  if (wires != 1) return {};
  std::vector<gp_Pnt> pts;
  for (BRepTools_WireExplorer we(BRepTools::OuterWire(face), face); we.More(); we.Next()) {
    if (!straightEdge(we.Current())) return {};
    pts.push_back(BRep_Tool::Pnt(we.CurrentVertex()));
    if (pts.size() > 8) return {};
  }
  // Drop corners that only split a straight side (left by a boolean that was not unified).
  for (size_t i = 0; pts.size() > 3 && i < pts.size();) {
    const gp_Pnt &a = pts[(i + pts.size() - 1) % pts.size()], &b = pts[i], &c = pts[(i + 1) % pts.size()];
    gp_Vec ab(a, b), bc(b, c);
    if (ab.Crossed(bc).Magnitude() <= kFlat * ab.Magnitude() * bc.Magnitude())
      pts.erase(pts.begin() + i);
    else
      ++i;
  }
  if (pts.size() < 3 || pts.size() > 4) return {};
  // Flat: every corner on the plane of the first three.
  gp_Vec n = gp_Vec(pts[0], pts[1]).Crossed(gp_Vec(pts[0], pts[2]));
  double size = pts[0].Distance(pts[1]) + pts[1].Distance(pts[2]);
  if (n.Magnitude() < kTiny) return {};
  n.Normalize();
  for (const gp_Pnt &p : pts)
    if (std::abs(gp_Vec(pts[0], p).Dot(n)) > kFlat * size) return {};
  BRepAdaptor_Surface surf(face);
  if (surf.GetType() != GeomAbs_Plane) {
    GeomLib_IsPlanarSurface planar(BRep_Tool::Surface(face), kFlat * size);
    if (!planar.IsPlanar()) return {};
  }
  // Order the corners round the outward normal.
  double u = 0.5 * (surf.FirstUParameter() + surf.LastUParameter());
  double v = 0.5 * (surf.FirstVParameter() + surf.LastVParameter());
  BRepLProp_SLProps props(surf, u, v, 1, 1e-9);
  if (props.IsNormalDefined()) {
    gp_Dir out = props.Normal();
    if (face.Orientation() == TopAbs_REVERSED) out.Reverse();
    if (n.Dot(gp_Vec(out)) < 0) std::reverse(pts.begin(), pts.end());
  }
  return pts;
}

}  // namespace

// A body the mesher or the explorer throws on gives nothing to draw: the answer is empty and the
// error is left alone (these are queries, not operations).
Mesh SolidBodies::mesh(double deflection) const {
  std::string ignored;
  return guarded(ignored, "", [&] {
    Mesh out;
    for (const Body &b : impl_->bodies) {
      ensureMesh(b.shape, deflection);
      for (TopExp_Explorer ex(b.shape, TopAbs_FACE); ex.More(); ex.Next()) {
        faceTriangles(TopoDS::Face(ex.Current()),
                      [&](const gp_Pnt &p, const gp_Pnt &q, const gp_Pnt &r, const int *) {
                        for (const gp_Pnt *v : {&p, &q, &r}) {
                          out.triangles.push_back(static_cast<int>(out.vertices.size()));
                          out.vertices.push_back(impl_->world(*v));
                        }
                      });
      }
    }
    return out;
  });
}

std::vector<FacePiece> SolidBodies::explode() const {
  std::string ignored;
  return guarded(ignored, "", [&] {
    std::vector<FacePiece> out;
    for (const Body &b : impl_->bodies) {
      bool meshed = false;
      TopTools_IndexedMapOfShape features = featureEdges(b.shape);
      for (TopExp_Explorer ex(b.shape, TopAbs_FACE); ex.More(); ex.Next()) {
        const TopoDS_Face &face = TopoDS::Face(ex.Current());
        std::vector<gp_Pnt> corners = flatCorners(face);
        if (!corners.empty()) {
          FacePiece piece;
          piece.kind = b.kind;
          piece.count = static_cast<int>(corners.size());
          for (size_t i = 0; i < corners.size(); ++i) {
            piece.corners[i] = impl_->world(corners[i]);
            piece.edge[i] = featureSide(face, features, corners[i], corners[(i + 1) % corners.size()]);
          }
          out.push_back(piece);
          continue;
        }
        if (!meshed) {
          ensureMesh(b.shape, 0);
          meshed = true;
        }
        std::set<std::pair<int, int>> sides = featureSides(face, features);
        faceTriangles(face, [&](const gp_Pnt &p, const gp_Pnt &q, const gp_Pnt &r, const int *n) {
          FacePiece piece;
          piece.kind = b.kind;
          piece.count = 3;
          piece.corners[0] = impl_->world(p);
          piece.corners[1] = impl_->world(q);
          piece.corners[2] = impl_->world(r);
          for (int i = 0; i < 3; ++i) piece.edge[i] = sides.count(std::minmax(n[i], n[(i + 1) % 3])) > 0;
          out.push_back(piece);
        });
      }
    }
    return out;
  });
}

}  // namespace vantry::solid
