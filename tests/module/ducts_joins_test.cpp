// Fittings off the flat, centred case: a wye and a tee turned into every orientation, and each
// fitting kind between justified runs, joined to the straight pieces cut back by its lengths.
#include "ducts_testing.h"

namespace vantry::ducts {
namespace {

using testing::DuctsTest;
using testing::RunList;

struct V {
  double x, y, z;
};
V operator*(double k, V a) {
  return {k * a.x, k * a.y, k * a.z};
}
V operator+(V a, V b) {
  return {a.x + b.x, a.y + b.y, a.z + b.z};
}

// One run from p to q.
RunList runOf(V p, V q, double w, double d) {
  RunList r;
  r.x0 = p.x, r.y0 = p.y, r.z0 = p.z, r.x1 = q.x, r.y1 = q.y, r.z1 = q.z, r.width = w, r.depth = d;
  return r;
}

struct Orientation {
  const char *name;
  V along, side;        // the trunk's flow and the direction its branches spread in
  double width, depth;  // the trunk's: its 400 side lies across the branches' plane each time
};
const V kE{1, 0, 0}, kW{-1, 0, 0}, kN{0, 1, 0}, kS{0, -1, 0}, kUp{0, 0, 1}, kDown{0, 0, -1};
const Orientation kOrientations[] = {
    {"flat", kE, kN, 300, 400},
    {"vertical bend plane", kE, kUp, 400, 300},
    {"riser, branches in x-z", kUp, kE, 400, 300},
    {"riser, branches in y-z", kUp, kN, 400, 300},
    {"drop", kDown, kW, 400, 300},
    {"flat, mirrored", kW, kS, 300, 400},
};

// One flat face of a solid: its area and centroid.
struct Face {
  double area;
  AcGePoint3d centroid;
};

std::vector<Face> facesOf(AcDbObjectId id) {
  std::vector<Face> out;
  AcDbObjectPointer<ol_hvacSolid> s(id, AcDb::kForRead);
  AcDbVoidPtrArray pieces;
  if (s.openStatus() != Acad::eOk || s->explode(pieces) != Acad::eOk) return out;
  for (void *piece : pieces) {
    auto *f = static_cast<AcDbFace *>(piece);
    AcGePoint3d p[4];
    for (int k = 0; k < 4; ++k) f->getVertexAt(Adesk::UInt16(k), p[k]);
    delete f;
    // Two triangles (a triangle repeats its third corner), each weighted by its area.
    double area = 0;
    AcGeVector3d moment(0, 0, 0);
    for (int t : {1, 2}) {
      double at = 0.5 * (p[t] - p[0]).crossProduct(p[t + 1] - p[0]).length();
      area += at;
      moment += at / 3 * ((p[0].asVector() + p[t].asVector()) + p[t + 1].asVector());
    }
    if (area > 0) out.push_back({area, AcGePoint3d::kOrigin + moment / area});
  }
  return out;
}

// Whether some face of one solid is a face of the other: the same area and centroid.
bool shareAFace(AcDbObjectId one, AcDbObjectId other) {
  std::vector<Face> theirs = facesOf(other);
  for (const Face &f : facesOf(one))
    for (const Face &g : theirs)
      if (std::abs(f.area - g.area) <= 1e-6 * f.area && f.centroid.distanceTo(g.centroid) < 1e-5) return true;
  return false;
}

// A 400 x 300 trunk into two 300 x 300 branches, as a wye (branches 45 degrees off the trunk) and
// as a tee (90 degrees), in six orientations: the same solid each time, and a valid one. The tee by
// hand, the trunk's 400 across the branches' plane: the trunk piece, 200 long (h, the largest
// half-size), 24e6; two tapers over the collar h, from the trunk's section to the branch's,
// 200/6 (120000 + 4 x 105000 + 90000) = 21e6 each, each overlapping the trunk by
// 150 x 2 (200 x 150 - 150^2 / 8) = 8156250; the rounded joint adds, beyond the tapers, the
// half-cylinder's corners where the tapers narrow: 150^3 / 3. Together 50,812,500.
TEST_F(DuctsTest, WyeAndTeeAreTheSameInEveryOrientation) {
  const V j{5000, 3000, 2000};
  double wye = 0;
  for (double spread : {45.0, 90.0}) {
    double c = std::cos(spread * M_PI / 180), s = std::sin(spread * M_PI / 180);
    for (const Orientation &o : kOrientations) {
      SCOPED_TRACE(std::string(o.name) + (spread == 90 ? ", tee" : ", wye"));
      RunList trunk = runOf(j + (-1000) * o.along, j, o.width, o.depth);
      RunList left = runOf(j, j + 1000 * (c * o.along + s * o.side), 300, 300);
      RunList right = runOf(j, j + 1000 * (c * o.along + (-s) * o.side), 300, 300);
      lisp("(setq r (ol_ol-drawTripleWye nil 0 nil 0.0 " + trunk.lisp() + " " + left.lisp() + " " +
           right.lisp() + "))");
      AcDbObjectId id = idOf("(cdr (assoc \"en1\" r))");
      ASSERT_FALSE(id.isNull()) << transcript();
      EXPECT_TRUE(validOf(id));
      // Straight pieces cut back by the lengths meet it (a riser's with the partner the wye took).
      trunk.tail = realOf("(cdr (assoc \"dHeadLength\" r))");
      left.head = realOf("(cdr (assoc \"dTailLength1\" r))");
      right.head = realOf("(cdr (assoc \"dTailLength2\" r))");
      for (const RunList *run : {&trunk, &left, &right}) {
        const RunList &partner = run == &trunk ? left : trunk;
        EXPECT_TRUE(shareAFace(
            idOf("(ol_ol-drawTripleCenter nil 0 " + run->lisp() + " " + partner.lisp() + ")"), id));
      }
      if (spread == 90) {
        EXPECT_LT(testing::rel(volumeOf(id), 50812500), 1e-9);
      } else if (wye == 0) {
        wye = volumeOf(id);
      } else {
        EXPECT_LT(testing::rel(volumeOf(id), wye), 1e-9);
      }
    }
  }
}

// --- Joins ---------------------------------------------------------------------------------------

// A fitting between runs, and which length each run's straight piece is cut back by.
struct Join {
  const char *name;
  std::string call;  // the fitting, before its runs
  std::vector<RunList> runs;
  std::vector<const char *> keys;  // per run: its cut-back length's key (the first run's is its tail)
};

std::vector<Join> joins(const RunList &justified) {
  auto run = [&](V p, V q, double w, double d) {
    RunList r = runOf(p, q, w, d);
    r.horizontal = justified.horizontal, r.vertical = justified.vertical;
    r.useOffset = justified.useOffset, r.offset = justified.offset;
    return r;
  };
  const V o{0, 0, 0}, east{3000, 0, 0}, far{6000, 0, 0};
  RunList a = run(o, east, 600, 400), north = run(east, {3000, 3000, 0}, 600, 400),
          up = run(east, {3000, 0, 3000}, 600, 400);
  return {
      {"radius elbow", "(ol_ol-drawTripleElbow nil 0 nil 600.0", {a, north}, {"dHeadLength", "dTailLength"}},
      {"elbow turning up", "(ol_ol-drawTripleElbow nil 0 nil 600.0", {a, up}, {"dHeadLength", "dTailLength"}},
      {"square elbow", "(ol_ol-drawTripleElbow nil 0 T 0.0", {a, north}, {"dHeadLength", "dTailLength"}},
      {"transition",
       "(ol_ol-drawTripleTransition nil 0",
       {a, run(east, far, 500, 300)},
       {"dHeadLength", "dTailLength"}},
      {"takeoff",
       "(ol_ol-drawTripleTakeoff nil 0 nil 100.0",
       {a, run(east, far, 500, 400), run(east, {3000, 2000, 0}, 300, 200), run(east, east, 300, 200)},
       {"dHeadLength", "dTailLength1", "dTailLength2", nullptr}},
      // Aslant: the collar's end face lies whole outside the main, shoe or not.
      {"takeoff at 45 degrees",
       "(ol_ol-drawTripleTakeoff nil 0 nil 100.0",
       {a, run(east, far, 600, 400), run(east, {4500, 1500, 0}, 300, 200), run(east, east, 300, 200)},
       {"dHeadLength", "dTailLength1", "dTailLength2", nullptr}},
      {"takeoff at 45 degrees with a shoe",
       "(ol_ol-drawTripleTakeoff nil 0 T 100.0",
       {a, run(east, far, 600, 400), run(east, {4500, 1500, 0}, 300, 200), run(east, east, 300, 200)},
       {"dHeadLength", "dTailLength1", "dTailLength2", nullptr}},
      {"wye",
       "(ol_ol-drawTripleWye nil 0 nil 0.0",
       {run(o, east, 400, 300), run(east, {5000, 2000, 0}, 300, 300), run(east, {5000, -2000, 0}, 300, 300)},
       {"dHeadLength", "dTailLength1", "dTailLength2"}},
  };
}

// Each fitting and the straight pieces cut back by its lengths meet face to face (an end face of
// each piece is a face of the fitting), overlap nowhere (the union holds the sum of their volumes)
// and join into one valid solid, whatever the runs' justification. A wye's centre lines cannot
// meet between runs justified to a side: it answers nil and says why.
TEST_F(DuctsTest, FittingsMeetTheirStraightsForEveryJustification) {
  const RunList justifications[] = {
      {},
      {.horizontal = "l"},
      {.horizontal = "r"},
      {.vertical = "t"},
      {.vertical = "b"},
      {.vertical = "h", .useOffset = 1, .offset = 50},
  };
  for (const RunList &j : justifications) {
    for (const Join &join : joins(j)) {
      SCOPED_TRACE(std::string(join.name) + " justified \"" + j.horizontal + j.vertical + "\"");
      std::string runs;
      for (const RunList &r : join.runs) runs += " " + r.lisp();
      size_t before = transcript().size();
      lisp("(setq r " + join.call + runs + "))");
      if (std::string(join.name) == "wye" && !j.horizontal.empty()) {
        EXPECT_EQ(lisp("r"), "nil");
        // The solid's own refusal (its centre lines, each shifted across its run, do not meet):
        // nil with no message.
        EXPECT_EQ(transcript().find("No duct solid made", before), std::string::npos);
        continue;
      }
      std::vector<AcDbObjectId> fitting;
      for (const char *key : {"en1", "en2", "en3"}) {
        AcDbObjectId id = idOf("(cdr (assoc \"" + std::string(key) + "\" r))");
        if (!id.isNull()) fitting.push_back(id);
      }
      ASSERT_FALSE(fitting.empty()) << transcript();
      double sum = 0;
      for (AcDbObjectId id : fitting) sum += volumeOf(id);
      std::vector<AcDbObjectId> pieces;
      for (size_t i = 0; i < join.runs.size(); ++i) {
        if (!join.keys[i]) continue;
        RunList r = join.runs[i];
        (i == 0 ? r.tail : r.head) = realOf("(cdr (assoc \"" + std::string(join.keys[i]) + "\" r))");
        const RunList &partner = join.runs[i == 0 ? 1 : 0];
        AcDbObjectId piece = idOf("(ol_ol-drawTripleCenter nil 0 " + r.lisp() + " " + partner.lisp() + ")");
        ASSERT_FALSE(piece.isNull()) << join.keys[i];
        bool meets = false;
        for (AcDbObjectId f : fitting) meets = meets || shareAFace(piece, f);
        EXPECT_TRUE(meets) << join.keys[i] << " = " << (i == 0 ? r.tail : r.head);
        sum += volumeOf(piece);
        pieces.push_back(piece);
      }
      for (size_t i = 1; i < fitting.size(); ++i) pieces.push_back(fitting[i]);
      AcDbObjectId whole = fitting[0];
      for (AcDbObjectId piece : pieces) {
        ads_name n1, n2;
        acdbGetAdsName(n1, whole);
        acdbGetAdsName(n2, piece);
        AcDbObjectPointer<ol_hvacSolid> target(whole, AcDb::kForWrite), other(piece, AcDb::kForRead);
        ASSERT_TRUE(target->doUnion(other.object())) << target->lastError();
      }
      EXPECT_LT(testing::rel(volumeOf(whole), sum), 1e-6);
      EXPECT_TRUE(validOf(whole));
    }
  }
}

}  // namespace
}  // namespace vantry::ducts
