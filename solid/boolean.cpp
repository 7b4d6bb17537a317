// Booleans between bodies and the checks on what they give back.
//
// Fittings are fused from pieces that mostly only touch face to face (an elbow's arc and its legs,
// the two mitred legs of a square elbow, two fittings joined at a port). For those the glue option is
// far faster, but it is only right when the pieces do not overlap: it is used when the caller knows
// the pieces only touch, or when their oriented boxes show they cannot overlap; its result is then
// checked (valid, and volume equal to the sum of the pieces) and the fuse is redone in full when the
// check fails. Whichever way it was made, a union is accepted only when it is a valid solid (the
// library's full check) holding at least its largest piece. A fuzzy value joins faces that agree
// only to the drawing's precision, and same-domain faces are merged after every boolean so that a
// flat side stays one face.
#include <BRepAlgoAPI_Common.hxx>
#include <BRepAlgoAPI_Cut.hxx>
#include <BRepAlgoAPI_Fuse.hxx>
#include <BRepBndLib.hxx>
#include <BRepCheck_Analyzer.hxx>
#include <BRepGProp.hxx>
#include <Bnd_OBB.hxx>
#include <GProp_GProps.hxx>
#include <ShapeUpgrade_UnifySameDomain.hxx>
#include <TopExp_Explorer.hxx>
#include <TopTools_ListOfShape.hxx>
#include <TopoDS.hxx>
#include <algorithm>
#include <cmath>

#include "budget.h"
#include "solid_internal.h"

namespace vantry::solid {

double shapeVolume(const TopoDS_Shape &s) {
  if (s.IsNull()) return 0;
  GProp_GProps props;
  BRepGProp::VolumeProperties(s, props);
  return props.Mass();
}

bool hasVolume(const TopoDS_Shape &s) {
  if (s.IsNull()) return false;
  TopExp_Explorer ex(s, TopAbs_SOLID);
  return ex.More() && shapeVolume(s) > 0;
}

bool validSolid(const TopoDS_Shape &s) {
  return hasVolume(s) && BRepCheck_Analyzer(s).IsValid();
}

// The single solid of a boolean's result, or the result itself when it holds several.
static TopoDS_Shape simplify(const TopoDS_Shape &s) {
  int solids = 0;
  TopoDS_Shape only;
  for (TopExp_Explorer ex(s, TopAbs_SOLID); ex.More(); ex.Next()) {
    ++solids;
    only = ex.Current();
  }
  return solids == 1 ? only : s;
}

static TopoDS_Shape unify(const TopoDS_Shape &s) {
  ShapeUpgrade_UnifySameDomain unify(s, Standard_True, Standard_True, Standard_False);
  unify.Build();
  return simplify(unify.Shape());
}

// A boolean's result is unified only when its size is within the budget (unification takes no
// progress indicator, so it cannot be stopped once it runs); a larger one fails the step.
static TopoDS_Shape runFuse(const std::vector<TopoDS_Shape> &shapes, bool glue, std::string &why,
                            bool &overrun) {
  TopTools_ListOfShape args, tools;
  args.Append(shapes[0]);
  for (size_t i = 1; i < shapes.size(); ++i) tools.Append(shapes[i]);
  BRepAlgoAPI_Fuse fuse;
  fuse.SetArguments(args);
  fuse.SetTools(tools);
  fuse.SetFuzzyValue(kFuzzy);
  fuse.SetRunParallel(Standard_False);
  if (glue) fuse.SetGlue(BOPAlgo_GlueShift);
  Handle(Budget) budget = new Budget();
  fuse.Build(budget->Start());
  overrun = budget->overrun();
  if (overrun) {
    why = kOverrun;
    return {};
  }
  if (!fuse.IsDone() || fuse.HasErrors()) return {};
  if (!withinSize(fuse.Shape())) {
    why = "the union has more faces than a fitting can have";
    return {};
  }
  return unify(fuse.Shape());
}

// True when no two shapes can overlap by more than the fuzzy value: their oriented boxes, pulled in
// by a little more than that, are apart. (Boxes that only meet on a shared face, as a fitting meets
// the next at its port, pass; a box that merely encloses another's corner does not.)
static bool onlyTouching(const std::vector<TopoDS_Shape> &shapes) {
  std::vector<Bnd_OBB> boxes;
  for (const TopoDS_Shape &s : shapes) {
    Bnd_OBB obb;
    BRepBndLib::AddOBB(s, obb, Standard_False, Standard_False, Standard_False);
    if (obb.IsVoid()) return false;
    double pull = 10 * kFuzzy;
    if (obb.XHSize() <= pull || obb.YHSize() <= pull || obb.ZHSize() <= pull) return false;
    boxes.emplace_back(gp_Pnt(obb.Center()), gp_Dir(obb.XDirection()), gp_Dir(obb.YDirection()),
                       gp_Dir(obb.ZDirection()), obb.XHSize() - pull, obb.YHSize() - pull,
                       obb.ZHSize() - pull);
  }
  for (size_t i = 0; i < boxes.size(); ++i)
    for (size_t j = i + 1; j < boxes.size(); ++j)
      if (!boxes[i].IsOut(boxes[j])) return false;
  return true;
}

TopoDS_Shape fuseAll(const std::vector<TopoDS_Shape> &shapes, Contact contact, std::string &why,
                     double pieceVolume) {
  if (shapes.empty()) {
    why = "nothing to fuse";
    return {};
  }
  if (shapes.size() == 1) return shapes[0];
  return guarded(why, "the union failed", [&]() -> TopoDS_Shape {
    if (contact == Contact::kTouching || (contact == Contact::kUnknown && onlyTouching(shapes))) {
      double sum = pieceVolume;
      if (!(sum > 0)) {
        sum = 0;
        for (const TopoDS_Shape &s : shapes) sum += shapeVolume(s);
      }
      // Glued pieces that only touch keep every bit of their volume; a wrong glue loses or doubles some.
      bool overrun = false;
      TopoDS_Shape glued = runFuse(shapes, true, why, overrun);
      if (overrun) return {};
      if (!glued.IsNull() && std::abs(shapeVolume(glued) - sum) <= 1e-6 * sum && validSolid(glued))
        return glued;
    }
    // A union holds at least its largest piece; a result that is smaller, or not a valid solid, has
    // lost pieces or faces on the way (overlapping pieces that the boolean misread).
    double largest = 0;
    for (const TopoDS_Shape &s : shapes) largest = std::max(largest, shapeVolume(s));
    bool overrun = false;
    TopoDS_Shape fused = runFuse(shapes, false, why, overrun);
    if (overrun) return {};
    if (!validSolid(fused) || shapeVolume(fused) < largest * (1 - 1e-6)) {
      why = "the union of the pieces is not a valid solid";
      return {};
    }
    return fused;
  });
}

template <class Op>
static TopoDS_Shape runBinary(const TopoDS_Shape &a, const TopoDS_Shape &b, const char *name,
                              std::string &why) {
  const std::string failed = std::string("the ") + name + " failed";
  return guarded(why, failed.c_str(), [&]() -> TopoDS_Shape {
    Op cut;
    TopTools_ListOfShape args, tools;
    args.Append(a);
    tools.Append(b);
    cut.SetArguments(args);
    cut.SetTools(tools);
    cut.SetFuzzyValue(kFuzzy);
    cut.SetRunParallel(Standard_False);
    Handle(Budget) budget = new Budget();
    cut.Build(budget->Start());
    if (budget->overrun()) {
      why = kOverrun;
      return {};
    }
    if (!cut.IsDone() || cut.HasErrors()) {
      why = failed;
      return {};
    }
    if (!withinSize(cut.Shape())) {
      why = std::string("the ") + name + " has more faces than a fitting can have";
      return {};
    }
    return unify(cut.Shape());
  });
}

TopoDS_Shape cutShape(const TopoDS_Shape &a, const TopoDS_Shape &b, std::string &why) {
  return runBinary<BRepAlgoAPI_Cut>(a, b, "cut", why);
}

TopoDS_Shape commonShape(const TopoDS_Shape &a, const TopoDS_Shape &b, std::string &why) {
  return runBinary<BRepAlgoAPI_Common>(a, b, "slice", why);
}

}  // namespace vantry::solid
