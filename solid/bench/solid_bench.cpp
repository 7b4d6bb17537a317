// The duct solid modeller: each operation against the bare Open CASCADE calls it is made of, in the
// same run, and a system of 100 fittings. The bare versions build the same shapes with the same
// options but skip what the modeller adds (argument checks, local origin, validity checks, the
// glued-fuse check).
//
// It lives inside solid/ because the baselines call Open CASCADE directly, and no Open CASCADE
// header is included outside solid/.
#include <benchmark/benchmark.h>

#include <BRepAlgoAPI_Fuse.hxx>
#include <BRepBuilderAPI_MakeEdge.hxx>
#include <BRepBuilderAPI_MakeFace.hxx>
#include <BRepBuilderAPI_MakePolygon.hxx>
#include <BRepBuilderAPI_MakeWire.hxx>
#include <BRepMesh_IncrementalMesh.hxx>
#include <BRepOffsetAPI_ThruSections.hxx>
#include <BRepPrimAPI_MakeCylinder.hxx>
#include <BRepPrimAPI_MakePrism.hxx>
#include <BRepPrimAPI_MakeRevol.hxx>
#include <BRepTools.hxx>
#include <BRep_Builder.hxx>
#include <GC_MakeArcOfCircle.hxx>
#include <STEPControl_Writer.hxx>
#include <ShapeUpgrade_UnifySameDomain.hxx>
#include <TopTools_ListOfShape.hxx>
#include <cmath>
#include <filesystem>
#include <gp_Circ.hxx>
#include <sstream>

#include "solid_body.h"

namespace {

using vantry::solid::Frame;
using vantry::solid::Pt;
using vantry::solid::SolidBodies;

const Frame kEast{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
const Frame kNorth{{0, 1, 0}, {-1, 0, 0}, {0, 0, 1}};

// --- bare Open CASCADE pieces ---

TopoDS_Wire rectWire(double x, double w, double d) {
  return BRepBuilderAPI_MakePolygon(gp_Pnt(x, -w / 2, -d / 2), gp_Pnt(x, w / 2, -d / 2),
                                    gp_Pnt(x, w / 2, d / 2), gp_Pnt(x, -w / 2, d / 2), Standard_True)
      .Wire();
}

TopoDS_Wire roundWire(double x, double r, double w, double d) {
  double c = std::atan2(d, w);
  const double a[5] = {-M_PI + c, -c, c, M_PI - c, M_PI + c};
  gp_Circ circ(gp_Ax2(gp_Pnt(x, 0, 0), gp::DX(), gp::DY()), r);
  BRepBuilderAPI_MakeWire wire;
  for (int i = 0; i < 4; ++i)
    wire.Add(BRepBuilderAPI_MakeEdge(GC_MakeArcOfCircle(circ, a[i], a[i + 1], true).Value()));
  return wire.Wire();
}

TopoDS_Shape loft(const TopoDS_Wire &a, const TopoDS_Wire &b) {
  BRepOffsetAPI_ThruSections l(Standard_True, Standard_True, 1e-6);
  l.AddWire(a);
  l.AddWire(b);
  l.Build();
  return l.Shape();
}

TopoDS_Shape fuse(const std::vector<TopoDS_Shape> &shapes, bool glue) {
  TopTools_ListOfShape args, tools;
  args.Append(shapes[0]);
  for (size_t i = 1; i < shapes.size(); ++i) tools.Append(shapes[i]);
  BRepAlgoAPI_Fuse f;
  f.SetArguments(args);
  f.SetTools(tools);
  f.SetFuzzyValue(1e-4);
  f.SetRunParallel(Standard_False);
  if (glue) f.SetGlue(BOPAlgo_GlueShift);
  f.Build();
  ShapeUpgrade_UnifySameDomain u(f.Shape(), Standard_True, Standard_True, Standard_False);
  u.Build();
  return u.Shape();
}

// The radius elbow of the modeller's test: 400 x 200, R 600, 90 degrees, legs of 400.
TopoDS_Shape bareRadiusElbow() {
  TopoDS_Face face = BRepBuilderAPI_MakeFace(rectWire(400, 400, 200), Standard_True).Face();
  TopoDS_Shape arc = BRepPrimAPI_MakeRevol(face, gp_Ax1(gp_Pnt(400, 600, 0), gp::DZ()), M_PI / 2).Shape();
  TopoDS_Shape head =
      BRepPrimAPI_MakePrism(BRepBuilderAPI_MakeFace(rectWire(0, 400, 200), true).Face(), gp_Vec(400, 0, 0))
          .Shape();
  gp_Trsf t;
  t.SetRotation(gp_Ax1(gp_Pnt(1000, 0, 0), gp::DZ()), M_PI / 2);
  TopoDS_Shape tail = BRepPrimAPI_MakePrism(face.Moved(TopLoc_Location(t)), gp_Vec(0, 400, 0)).Shape();
  return fuse({arc, head, tail}, true);
}

bool elbow(SolidBodies &s) {
  return s.addRadiusElbow({0, 0, 0}, 400, 200, 0, 0, {1000, 1000, 0}, 400, 200, kEast, kNorth, true, 1.5,
                          false, 0, true);
}

// --- fittings ---

void BM_Straight(benchmark::State &state) {
  for (auto _ : state) {
    SolidBodies s;
    benchmark::DoNotOptimize(
        s.addTransition({0, 0, 0}, true, 400, 200, {1200, 0, 0}, true, 400, 200, kEast, kEast, 0));
  }
}
// The plainest way to a box duct: the section's face swept along the run.
void BM_StraightBare(benchmark::State &state) {
  for (auto _ : state)
    benchmark::DoNotOptimize(
        BRepPrimAPI_MakePrism(BRepBuilderAPI_MakeFace(rectWire(0, 400, 200), true).Face(), gp_Vec(1200, 0, 0))
            .Shape());
}

void BM_RectToRound(benchmark::State &state) {
  for (auto _ : state) {
    SolidBodies s;
    benchmark::DoNotOptimize(
        s.addTransition({0, 0, 0}, true, 600, 300, {450, 0, 0}, false, 400, 0, kEast, kEast, 0));
  }
}
void BM_RectToRoundBare(benchmark::State &state) {
  for (auto _ : state) benchmark::DoNotOptimize(loft(rectWire(0, 600, 300), roundWire(450, 200, 600, 300)));
}

void BM_RadiusElbow(benchmark::State &state) {
  for (auto _ : state) {
    SolidBodies s;
    benchmark::DoNotOptimize(elbow(s));
  }
}
void BM_RadiusElbowBare(benchmark::State &state) {
  for (auto _ : state) benchmark::DoNotOptimize(bareRadiusElbow());
}

void BM_SquareElbow(benchmark::State &state) {
  for (auto _ : state) {
    SolidBodies s;
    Pt heel, throat, corner;
    s.addSquareElbowPrep({0, 0, 0}, 400, 200, {1000, 1000, 0}, 400, 200, kEast, kNorth, true, heel, throat,
                         corner, true, 1e-3);
    benchmark::DoNotOptimize(s.addSquareElbow({0, 0, 0}, 400, 200, {1000, 1000, 0}, 400, 200, kEast, kNorth,
                                              true, heel, throat, corner, 0));
  }
}
// The loft-based way to the same mitred legs (the modeller builds them as plane-faced polyhedra
// instead, which is what makes it faster than this baseline).
void BM_SquareElbowBare(benchmark::State &state) {
  auto mitre = [](double x, double w, double d) {  // the leg's section carried to the mitre x + y = 1000
    return BRepBuilderAPI_MakePolygon(gp_Pnt(x, -w / 2, -d / 2), gp_Pnt(x, w / 2, -d / 2),
                                      gp_Pnt(x, w / 2, d / 2), gp_Pnt(x, -w / 2, d / 2), Standard_True)
        .Wire();
  };
  for (auto _ : state) {
    TopoDS_Wire m = BRepBuilderAPI_MakePolygon(gp_Pnt(1200, -200, -100), gp_Pnt(800, 200, -100),
                                               gp_Pnt(800, 200, 100), gp_Pnt(1200, -200, 100), Standard_True)
                        .Wire();
    TopoDS_Shape a = loft(mitre(0, 400, 200), m);
    TopoDS_Wire end =
        BRepBuilderAPI_MakePolygon(gp_Pnt(1200, 1000, -100), gp_Pnt(800, 1000, -100), gp_Pnt(800, 1000, 100),
                                   gp_Pnt(1200, 1000, 100), Standard_True)
            .Wire();
    TopoDS_Shape b = loft(m, end);
    benchmark::DoNotOptimize(fuse({a, b}, true));
  }
}

void BM_Wye(benchmark::State &state) {
  const double c = std::cos(M_PI / 6), s30 = std::sin(M_PI / 6);
  const Frame f2{{c, s30, 0}, {-s30, c, 0}, {0, 0, 1}}, f3{{c, -s30, 0}, {s30, c, 0}, {0, 0, 1}};
  for (auto _ : state) {
    SolidBodies s;
    Pt leg[3], col[3];
    s.addWyePrep({-1000, 0, 0}, 300, 200, {1500 * c, 1500 * s30, 0}, 300, 200, {1500 * c, -1500 * s30, 0},
                 300, 200, kEast, f2, f3, true, leg[0], leg[1], leg[2], col[0], col[1], col[2], false, 1e-3);
    benchmark::DoNotOptimize(s.addWye({-1000, 0, 0}, 300, 200, {1500 * c, 1500 * s30, 0}, 300, 200,
                                      {1500 * c, -1500 * s30, 0}, 300, 200, leg[0], kEast, f2, f3, true,
                                      leg[0], leg[1], leg[2], col[0], col[1], col[2], 0));
  }
}

// The wye's pieces (trunk, two straight branches at the trunk's size, the joint's cylinder) fused.
void BM_WyeBare(benchmark::State &state) {
  const double c = std::cos(M_PI / 6), s30 = std::sin(M_PI / 6);
  for (auto _ : state) {
    TopoDS_Face face = BRepBuilderAPI_MakeFace(rectWire(0, 300, 200), true).Face();
    TopoDS_Shape trunk =
        BRepPrimAPI_MakePrism(face.Moved(TopLoc_Location(gp_Trsf())), gp_Vec(-1000, 0, 0)).Shape();
    std::vector<TopoDS_Shape> pieces{trunk};
    for (double sign : {1.0, -1.0}) {
      gp_Trsf turn;
      turn.SetRotation(gp_Ax1(gp::Origin(), gp::DZ()), sign * M_PI / 6);
      pieces.push_back(
          BRepPrimAPI_MakePrism(face.Moved(TopLoc_Location(turn)), gp_Vec(1500 * c, sign * 1500 * s30, 0))
              .Shape());
    }
    pieces.push_back(BRepPrimAPI_MakeCylinder(gp_Ax2(gp_Pnt(0, 0, -100), gp::DZ()), 150, 200).Shape());
    benchmark::DoNotOptimize(fuse(pieces, false));
  }
}

// A rectangle-to-round transition joined to a round elbow at its port: the glued fuse.
void BM_UnionTouching(benchmark::State &state) {
  SolidBodies a, b;
  a.addTransition({0, 0, 0}, true, 500, 300, {400, 0, 0}, false, 300, 0, kEast, kEast, 0);
  b.addRadiusElbow({400, 0, 0}, 300, 0, 0, 0, {1400, 1000, 0}, 300, 0, kEast, kNorth, false, 1.5, false, 0,
                   true);
  for (auto _ : state) {
    SolidBodies t = a;
    benchmark::DoNotOptimize(t.doUnion(b));
  }
}

void BM_Explode(benchmark::State &state) {
  SolidBodies s;
  elbow(s);
  for (auto _ : state) {
    SolidBodies t;
    elbow(t);
    benchmark::DoNotOptimize(t.explode());
  }
}
void BM_ExplodeBare(benchmark::State &state) {
  for (auto _ : state) {
    TopoDS_Shape e = bareRadiusElbow();
    BRepMesh_IncrementalMesh(e, 2.0, Standard_False, 0.14, Standard_False);
    benchmark::DoNotOptimize(e);
  }
}

void BM_TextRoundTrip(benchmark::State &state) {
  SolidBodies s;
  elbow(s);
  for (auto _ : state) {
    SolidBodies t;
    benchmark::DoNotOptimize(t.fromString(s.toString()));
  }
}
void BM_TextRoundTripBare(benchmark::State &state) {
  TopoDS_Shape e = bareRadiusElbow();
  for (auto _ : state) {
    std::ostringstream out;
    BRepTools::Write(e, out, Standard_False, Standard_False, TopTools_FormatVersion_CURRENT);
    std::istringstream in(out.str());
    TopoDS_Shape back;
    BRepTools::Read(back, in, BRep_Builder());
    benchmark::DoNotOptimize(back);
  }
}

void BM_Step(benchmark::State &state) {
  SolidBodies s;
  elbow(s);
  std::string path = (std::filesystem::temp_directory_path() / "vantry_bench.step").string();
  for (auto _ : state) benchmark::DoNotOptimize(s.writeStep(path));
  std::filesystem::remove(path);
}
void BM_StepBare(benchmark::State &state) {
  TopoDS_Shape e = bareRadiusElbow();
  std::string path = (std::filesystem::temp_directory_path() / "vantry_bench_bare.step").string();
  for (auto _ : state) {
    STEPControl_Writer w;
    w.Transfer(e, STEPControl_AsIs);
    benchmark::DoNotOptimize(w.Write(path.c_str()));
  }
  std::filesystem::remove(path);
}

// A duct system of 100 fittings: per bay of ten, six straight pieces, a transition, an elbow, a
// square elbow and a hanger (band and rod cut by its opening), each in its own solid, spread along
// a run far from the origin.
void BM_System100(benchmark::State &state) {
  const Frame up{{0, 0, 1}, {1, 0, 0}, {0, 1, 0}};
  for (auto _ : state) {
    int built = 0;
    for (int bay = 0; bay < 10; ++bay) {
      double x0 = 2e5 + bay * 10000, y0 = 3e5;
      for (int i = 0; i < 6; ++i) {
        SolidBodies s;
        built += s.addTransition({x0 + i * 1000, y0, 3000}, true, 600, 400, {x0 + i * 1000 + 1000, y0, 3000},
                                 true, 600, 400, kEast, kEast, 0);
      }
      SolidBodies t;
      built += t.addTransition({x0 + 6000, y0, 3000}, true, 600, 400, {x0 + 6500, y0, 3000}, false, 400, 0,
                               kEast, kEast, 0);
      SolidBodies e;
      built += e.addRadiusElbow({x0 + 6500, y0, 3000}, 400, 0, 0, 0, {x0 + 7500, y0 + 1000, 3000}, 400, 0,
                                kEast, kNorth, false, 1.5, false, 0, true);
      SolidBodies q;
      Pt h, th, c;
      q.addSquareElbowPrep({x0 + 7500, y0 + 2000, 3000}, 400, 200, {x0 + 8500, y0 + 3000, 3000}, 400, 200,
                           kEast, kNorth, true, h, th, c, true, 1e-3);
      built += q.addSquareElbow({x0 + 7500, y0 + 2000, 3000}, 400, 200, {x0 + 8500, y0 + 3000, 3000}, 400,
                                200, kEast, kNorth, true, h, th, c, 0);
      SolidBodies hanger;
      Pt at{x0 + 3000, y0, 3000};
      hanger.addTransition({at.x - 20, at.y, at.z}, true, 700, 500, {at.x + 20, at.y, at.z}, true, 700, 500,
                           kEast, kEast, 0);
      hanger.addTransition({at.x, at.y, at.z + 200}, false, 10, 10, {at.x, at.y, 4500}, false, 10, 10, up, up,
                           0);
      built += hanger.subtractTransition({at.x - 20, at.y, at.z}, true, 610, 410, {at.x + 20, at.y, at.z},
                                         true, 610, 410, kEast, kEast, 0);
    }
    if (built != 100) state.SkipWithError("a fitting failed");
  }
}

BENCHMARK(BM_Straight)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StraightBare)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RectToRound)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RectToRoundBare)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RadiusElbow)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RadiusElbowBare)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SquareElbow)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SquareElbowBare)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Wye)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WyeBare)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_UnionTouching)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Explode)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ExplodeBare)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TextRoundTrip)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TextRoundTripBare)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Step)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StepBare)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_System100)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace
