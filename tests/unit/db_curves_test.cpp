// Curve measurements against values worked out by hand, fitting of 2D
// polylines, explode, extents and colour with sub-entities.
#include <gtest/gtest.h>

#include <cmath>

#include "db/db.h"

namespace {

const double kPi = M_PI;

#define EXPECT_PT(p, X, Y, Z)    \
  do {                           \
    EXPECT_NEAR((p).x, X, 1e-9); \
    EXPECT_NEAR((p).y, Y, 1e-9); \
    EXPECT_NEAR((p).z, Z, 1e-9); \
  } while (0)

double length(const AcDbCurve &c) {
  double end = 0, d = -1;
  EXPECT_EQ(c.getEndParam(end), Acad::eOk);
  EXPECT_EQ(c.getDistAtParam(end, d), Acad::eOk);
  return d;
}

// (0,0) -> (2,0) as a half circle below the X axis, then straight up to (2,3).
AcDbPolyline bulgedPolyline(double bulge = 1.0) {
  AcDbPolyline p;
  p.addVertexAt(0, AcGePoint2d(0, 0), bulge);
  p.addVertexAt(1, AcGePoint2d(2, 0));
  p.addVertexAt(2, AcGePoint2d(2, 3));
  return p;
}

TEST(DbCurves, LineMeasures) {
  AcDbLine line(AcGePoint3d(0, 0, 0), AcGePoint3d(3, 4, 0));
  EXPECT_DOUBLE_EQ(length(line), 5);
  AcGePoint3d p;
  ASSERT_EQ(line.getPointAtDist(2.5, p), Acad::eOk);
  EXPECT_PT(p, 1.5, 2, 0);
  double d;
  ASSERT_EQ(line.getDistAtPoint(AcGePoint3d(3, 4, 0), d), Acad::eOk);
  EXPECT_DOUBLE_EQ(d, 5);
  EXPECT_EQ(line.getPointAtDist(5.1, p), Acad::eInvalidInput);
  EXPECT_EQ(line.getPointAtDist(-0.1, p), Acad::eInvalidInput);
  EXPECT_EQ(line.getDistAtPoint(AcGePoint3d(1, 1, 0), d), Acad::eInvalidInput);
  ASSERT_EQ(line.getClosestPointTo(AcGePoint3d(3, 0, 0), p), Acad::eOk);
  EXPECT_PT(p, 1.08, 1.44, 0);
  // Beyond the end: the end point, or the point on the extended line.
  ASSERT_EQ(line.getClosestPointTo(AcGePoint3d(6, 8, 1), p, false), Acad::eOk);
  EXPECT_PT(p, 3, 4, 0);
  ASSERT_EQ(line.getClosestPointTo(AcGePoint3d(6, 8, 1), p, true), Acad::eOk);
  EXPECT_PT(p, 6, 8, 0);
}

TEST(DbCurves, ProjectionAlongZ) {
  // A slanted line: in space the nearest point to (5,3,100) is its top end,
  // seen from above it is the middle.
  AcDbLine line(AcGePoint3d(0, 0, 0), AcGePoint3d(10, 0, 10));
  AcGePoint3d p;
  ASSERT_EQ(line.getClosestPointTo(AcGePoint3d(5, 3, 100), p), Acad::eOk);
  EXPECT_PT(p, 10, 0, 10);
  ASSERT_EQ(line.getClosestPointTo(AcGePoint3d(5, 3, 100), AcGeVector3d::kZAxis, p), Acad::eOk);
  EXPECT_PT(p, 5, 0, 5);
  EXPECT_EQ(line.getClosestPointTo(AcGePoint3d(5, 3, 100), AcGeVector3d(0, 0, 0), p), Acad::eInvalidInput);

  // An arc in a tilted plane (normal along Y) seen from above is a segment:
  // the nearest point as seen along Z keeps the picked X.
  AcDbArc arc(AcGePoint3d(0, 0, 0), AcGeVector3d(0, -1, 0), 1.0, 0, kPi);
  ASSERT_EQ(arc.getClosestPointTo(AcGePoint3d(0.6, 5, 0), AcGeVector3d::kZAxis, p), Acad::eOk);
  EXPECT_NEAR(p.x, 0.6, 1e-9);
  EXPECT_NEAR(p.y, 0, 1e-9);
  EXPECT_NEAR(std::fabs(p.z), 0.8, 1e-9);
}

TEST(DbCurves, ArcMeasures) {
  AcDbArc arc(AcGePoint3d(0, 0, 0), 2.0, 0, kPi / 2);
  double sp, ep;
  arc.getStartParam(sp), arc.getEndParam(ep);
  EXPECT_DOUBLE_EQ(sp, 0);
  EXPECT_DOUBLE_EQ(ep, kPi / 2);
  EXPECT_NEAR(length(arc), kPi, 1e-12);
  AcGePoint3d p;
  ASSERT_EQ(arc.getPointAtDist(kPi / 2, p), Acad::eOk);
  EXPECT_PT(p, std::sqrt(2.0), std::sqrt(2.0), 0);
  double d;
  ASSERT_EQ(arc.getDistAtPoint(AcGePoint3d(0, 2, 0), d), Acad::eOk);
  EXPECT_NEAR(d, kPi, 1e-12);
  ASSERT_EQ(arc.getClosestPointTo(AcGePoint3d(3, 3, 0), p), Acad::eOk);
  EXPECT_PT(p, std::sqrt(2.0), std::sqrt(2.0), 0);
  // A point in the gap: the nearer end; extended, the whole circle.
  ASSERT_EQ(arc.getClosestPointTo(AcGePoint3d(-1, -5, 0), p), Acad::eOk);
  EXPECT_PT(p, 2, 0, 0);
  ASSERT_EQ(arc.getClosestPointTo(AcGePoint3d(-1, -5, 0), p, true), Acad::eOk);
  EXPECT_PT(p, -2 / std::sqrt(26.0), -10 / std::sqrt(26.0), 0);

  // Across angle 0: parameters run on past 2pi.
  AcDbArc wrap(AcGePoint3d(0, 0, 0), 1.0, 3 * kPi / 2, kPi / 2);
  wrap.getStartParam(sp), wrap.getEndParam(ep);
  EXPECT_DOUBLE_EQ(sp, 3 * kPi / 2);
  EXPECT_DOUBLE_EQ(ep, 5 * kPi / 2);
  ASSERT_EQ(wrap.getPointAtParam(2 * kPi, p), Acad::eOk);
  EXPECT_PT(p, 1, 0, 0);
}

TEST(DbCurves, CircleIsClosedFromItsXAxis) {
  AcDbCircle c(AcGePoint3d(1, 1, 0), AcGeVector3d::kZAxis, 2);
  EXPECT_TRUE(c.isClosed());
  EXPECT_NEAR(length(c), 4 * kPi, 1e-12);
  AcGePoint3d p;
  ASSERT_EQ(c.getPointAtParam(kPi / 2, p), Acad::eOk);
  EXPECT_PT(p, 1, 3, 0);
  double d;
  ASSERT_EQ(c.getDistAtPoint(AcGePoint3d(3, 1, 0), d), Acad::eOk);
  EXPECT_NEAR(d, 0, 1e-12);
  double area;
  ASSERT_EQ(c.getArea(area), Acad::eOk);
  EXPECT_NEAR(area, 4 * kPi, 1e-9);
}

TEST(DbCurves, BulgedPolylineMeasures) {
  AcDbPolyline pl = bulgedPolyline();
  EXPECT_NEAR(length(pl), kPi + 3, 1e-12);
  AcGePoint3d p;
  ASSERT_EQ(pl.getPointAtParam(0.5, p), Acad::eOk);
  EXPECT_PT(p, 1, -1, 0);
  double d;
  ASSERT_EQ(pl.getDistAtParam(1.5, d), Acad::eOk);
  EXPECT_NEAR(d, kPi + 1.5, 1e-12);
  ASSERT_EQ(pl.getPointAtDist(kPi + 1, p), Acad::eOk);
  EXPECT_PT(p, 2, 1, 0);
  ASSERT_EQ(pl.getDistAtPoint(AcGePoint3d(1, -1, 0), d), Acad::eOk);
  EXPECT_NEAR(d, kPi / 2, 1e-12);
  ASSERT_EQ(pl.getClosestPointTo(AcGePoint3d(1, -5, 0), p), Acad::eOk);
  EXPECT_PT(p, 1, -1, 0);
  EXPECT_EQ(pl.getPointAtParam(2.5, p), Acad::eInvalidInput);
  EXPECT_EQ(pl.getPointAtDist(kPi + 3.01, p), Acad::eInvalidInput);
  // Extended past the straight end.
  ASSERT_EQ(pl.getClosestPointTo(AcGePoint3d(2.5, 7, 0), p, true), Acad::eOk);
  EXPECT_PT(p, 2, 7, 0);

  // A negative bulge turns clockwise: over the chord.
  AcDbPolyline cw = bulgedPolyline(-1.0);
  ASSERT_EQ(cw.getPointAtParam(0.5, p), Acad::eOk);
  EXPECT_PT(p, 1, 1, 0);

  // Elevation and a closed outline: two half circles make a disc.
  AcDbPolyline disc;
  disc.addVertexAt(0, AcGePoint2d(0, 0), 1);
  disc.addVertexAt(1, AcGePoint2d(2, 0), 1);
  disc.setClosed(true);
  disc.setElevation(5);
  double area;
  ASSERT_EQ(disc.getArea(area), Acad::eOk);
  EXPECT_NEAR(area, kPi, 1e-9);
  ASSERT_EQ(disc.getPointAtParam(1.5, p), Acad::eOk);
  EXPECT_PT(p, 1, 1, 5);
  double ep;
  disc.getEndParam(ep);
  EXPECT_DOUBLE_EQ(ep, 2);
}

TEST(DbCurves, OldStylePolylinesAndLeaders) {
  AcGePoint3dArray pts;
  pts.append(AcGePoint3d(0, 0, 0)).append(AcGePoint3d(3, 4, 0)).append(AcGePoint3d(3, 4, 12));
  AcDb3dPolyline p3(AcDb::k3dSimplePoly, pts);
  EXPECT_DOUBLE_EQ(length(p3), 17);
  AcGePoint3d p;
  ASSERT_EQ(p3.getPointAtDist(11, p), Acad::eOk);
  EXPECT_PT(p, 3, 4, 6);

  AcDbLeader leader;
  for (const AcGePoint3d &q : pts) leader.appendVertex(q);
  double d;
  ASSERT_EQ(leader.getDistAtPoint(AcGePoint3d(3, 4, 6), d), Acad::eOk);
  EXPECT_DOUBLE_EQ(d, 11);

  AcGeDoubleArray bulges;
  bulges.append(1.0).append(0.0);
  AcGePoint3dArray flat;
  flat.append(AcGePoint3d(0, 0, 0)).append(AcGePoint3d(2, 0, 0)).append(AcGePoint3d(2, 3, 0));
  AcDb2dPolyline p2(AcDb::k2dSimplePoly, flat, 0, false, 0, 0, &bulges);
  EXPECT_NEAR(length(p2), kPi + 3, 1e-12);
}

// Fitted 2D polylines ------------------------------------------------------------------------------

std::vector<AcDb::Vertex2dType> types(const AcDb2dPolyline &p) {
  std::vector<AcDb::Vertex2dType> out;
  for (const AcDb2dVertex *v : p.vertices()) out.push_back(v->vertexType());
  return out;
}

TEST(DbPolylineFit, CurveFitThroughThreePointsOfACircleIsThatCircle) {
  AcGePoint3dArray pts;
  pts.append(AcGePoint3d(0, 0, 0)).append(AcGePoint3d(1, 1, 0)).append(AcGePoint3d(2, 0, 0));
  AcDb2dPolyline p(AcDb::k2dSimplePoly, pts);
  ASSERT_EQ(p.curveFit(), Acad::eOk);
  EXPECT_EQ(p.polyType(), AcDb::k2dFitCurvePoly);
  using V = AcDb::Vertex2dType;
  EXPECT_EQ(types(p), (std::vector<V>{AcDb::k2dVertex, AcDb::k2dCurveFitVertex, AcDb::k2dVertex,
                                      AcDb::k2dCurveFitVertex, AcDb::k2dVertex}));
  // Every point of the fitted curve lies on the circle centred (1,0), radius 1.
  double ep;
  p.getEndParam(ep);
  for (double t = 0; t <= ep; t += 0.125) {
    AcGePoint3d q;
    ASSERT_EQ(p.getPointAtParam(t, q), Acad::eOk);
    EXPECT_NEAR(q.distanceTo(AcGePoint3d(1, 0, 0)), 1.0, 1e-9) << t;
  }
  EXPECT_NEAR(length(p), kPi, 1e-9);

  ASSERT_EQ(p.straighten(), Acad::eOk);
  EXPECT_EQ(p.vertices().size(), 3u);
  EXPECT_EQ(p.polyType(), AcDb::k2dSimplePoly);
  EXPECT_NEAR(length(p), 2 * std::sqrt(2.0), 1e-12);
}

TEST(DbPolylineFit, CurveFitKeepsTangentsContinuous) {
  AcGePoint3dArray pts;
  pts.append(AcGePoint3d(0, 0, 0)).append(AcGePoint3d(4, 1, 0)).append(AcGePoint3d(5, 5, 0));
  pts.append(AcGePoint3d(9, 4, 0));
  AcDb2dPolyline p(AcDb::k2dSimplePoly, pts);
  ASSERT_EQ(p.curveFit(), Acad::eOk);
  vantry::host::CurvePath path(p);
  const auto &segs = path.segments();
  ASSERT_EQ(segs.size(), 6u);
  for (size_t i = 0; i + 1 < segs.size(); ++i) {
    AcGeVector3d a = vantry::host::CurvePath::segDeriv(segs[i], 1).normal();
    AcGeVector3d b = vantry::host::CurvePath::segDeriv(segs[i + 1], 0).normal();
    EXPECT_NEAR(a.dotProduct(b), 1.0, 1e-9) << i;
    EXPECT_TRUE(segs[i].p1.isEqualTo(segs[i + 1].p0, AcGeTol()));
  }
  // The original vertices are still on the curve.
  for (const AcGePoint3d &q : pts) {
    double d;
    EXPECT_EQ(p.getDistAtPoint(q, d), Acad::eOk);
  }
}

TEST(DbPolylineFit, SplineFitKeepsTheFrame) {
  AcGePoint3dArray pts;
  pts.append(AcGePoint3d(0, 0, 0)).append(AcGePoint3d(1, 3, 0)).append(AcGePoint3d(4, 3, 0));
  pts.append(AcGePoint3d(5, 0, 0));
  AcDb2dPolyline p(AcDb::k2dSimplePoly, pts);
  ASSERT_EQ(p.splineFit(AcDb::k2dCubicSplinePoly, 8), Acad::eOk);
  std::vector<const AcDb2dVertex *> fit;
  int controls = 0;
  for (const AcDb2dVertex *v : p.vertices()) {
    if (v->vertexType() == AcDb::k2dSplineCtlVertex) ++controls;
    if (v->vertexType() == AcDb::k2dSplineFitVertex) fit.push_back(v);
  }
  EXPECT_EQ(controls, 4);
  ASSERT_EQ(fit.size(), 9u);
  // One cubic span with clamped ends: the Bezier curve of the frame.
  EXPECT_PT(fit.front()->position(), 0, 0, 0);
  EXPECT_PT(fit.back()->position(), 5, 0, 0);
  EXPECT_PT(fit[4]->position(), (0 + 3 * 1 + 3 * 4 + 5) / 8.0, (0 + 9 + 9 + 0) / 8.0, 0);
  AcGePoint3d start;
  p.getStartPoint(start);
  EXPECT_PT(start, 0, 0, 0);

  ASSERT_EQ(p.splineFit(AcDb::k2dQuadSplinePoly, 2), Acad::eOk);  // refits from the frame
  EXPECT_EQ(p.polyType(), AcDb::k2dQuadSplinePoly);
  ASSERT_EQ(p.straighten(), Acad::eOk);
  EXPECT_EQ(p.vertices().size(), 4u);
  EXPECT_EQ(types(p), std::vector<AcDb::Vertex2dType>(4, AcDb::k2dVertex));
}

TEST(DbPolylineFit, ResidentFittingErasesDroppedVerticesAndColoursSubentities) {
  AcDbDatabase db;
  AcGePoint3dArray pts;
  pts.append(AcGePoint3d(0, 0, 0)).append(AcGePoint3d(1, 1, 0)).append(AcGePoint3d(2, 0, 0));
  auto *p = new AcDb2dPolyline(AcDb::k2dSimplePoly, pts);
  AcDbBlockTableRecord *ms = nullptr;
  ASSERT_EQ(acdbOpenObject(ms, vantry::host::recordId(db.blockTableId(), L"*Model_Space"), AcDb::kForWrite),
            Acad::eOk);
  AcDbObjectId id;
  ASSERT_EQ(ms->appendAcDbEntity(id, p), Acad::eOk);
  ms->close();
  ASSERT_EQ(p->curveFit(), Acad::eOk);
  AcDbObjectId fitVertex = p->vertices()[1]->objectId();
  EXPECT_FALSE(fitVertex.isNull());
  ASSERT_EQ(p->straighten(), Acad::eOk);
  EXPECT_TRUE(fitVertex.isErased());

  ASSERT_EQ(p->setColorIndex(1, false), Acad::eOk);
  EXPECT_EQ(p->vertices()[0]->colorIndex(), 256);
  ASSERT_EQ(p->setColorIndex(3, true), Acad::eOk);
  for (const AcDb2dVertex *v : p->vertices()) EXPECT_EQ(v->colorIndex(), 3);
  p->close();
  EXPECT_EQ(p->curveFit(), Acad::eNotOpenForWrite);
}

// Explode and extents ------------------------------------------------------------------------------

TEST(DbExplode, PolylineBecomesArcsAndLines) {
  AcDbPolyline pl = bulgedPolyline(-1.0);
  AcDbVoidPtrArray parts;
  ASSERT_EQ(pl.explode(parts), Acad::eOk);
  ASSERT_EQ(parts.length(), 2);
  auto *arc = AcDbArc::cast(static_cast<AcDbEntity *>(parts[0]));
  auto *line = AcDbLine::cast(static_cast<AcDbEntity *>(parts[1]));
  ASSERT_TRUE(arc && line);
  EXPECT_PT(arc->center(), 1, 0, 0);
  EXPECT_NEAR(arc->radius(), 1, 1e-12);
  EXPECT_NEAR(arc->startAngle(), 0, 1e-9);  // clockwise from (0,0) = counter-clockwise from (2,0)
  EXPECT_NEAR(arc->endAngle(), kPi, 1e-9);
  EXPECT_PT(line->endPoint(), 2, 3, 0);
  for (void *e : parts) delete static_cast<AcDbEntity *>(e);
  AcDbVoidPtrArray none;
  EXPECT_EQ(AcDbLine().explode(none), Acad::eNotApplicable);
}

TEST(DbExplode, BlockReferenceCarriesItsEntitiesThroughItsTransform) {
  AcDbDatabase db;
  AcDbBlockTable *bt = nullptr;
  ASSERT_EQ(db.getBlockTable(bt, AcDb::kForWrite), Acad::eOk);
  auto *block = new AcDbBlockTableRecord;
  block->setName(L"TEE");
  AcDbObjectId blockId;
  ASSERT_EQ(bt->add(blockId, block), Acad::eOk);
  bt->close();
  auto *line = new AcDbLine(AcGePoint3d(0, 0, 0), AcGePoint3d(1, 0, 0));
  ASSERT_EQ(block->appendAcDbEntity(line), Acad::eOk);
  line->close();
  auto *circle = new AcDbCircle(AcGePoint3d(1, 0, 0), AcGeVector3d::kZAxis, 0.5);
  ASSERT_EQ(block->appendAcDbEntity(circle), Acad::eOk);
  circle->close();
  block->close();

  AcDbBlockReference ref(AcGePoint3d(10, 0, 0), blockId);
  ref.setScaleFactors(AcGeScale3d(2));
  ref.setRotation(kPi / 2);
  AcDbExtents ext;
  ASSERT_EQ(ref.getGeomExtents(ext), Acad::eOk);
  EXPECT_PT(ext.minPoint(), 9, 0, 0);
  EXPECT_PT(ext.maxPoint(), 11, 3, 0);
  AcDbVoidPtrArray parts;
  ASSERT_EQ(ref.explode(parts), Acad::eOk);
  ASSERT_EQ(parts.length(), 2);
  auto *l = AcDbLine::cast(static_cast<AcDbEntity *>(parts[0]));
  ASSERT_NE(l, nullptr);
  EXPECT_PT(l->endPoint(), 10, 2, 0);
  EXPECT_NEAR(AcDbCircle::cast(static_cast<AcDbEntity *>(parts[1]))->radius(), 1.0, 1e-12);
  for (void *e : parts) delete static_cast<AcDbEntity *>(e);

  // Unequal scales cannot carry a circle.
  ref.setScaleFactors(AcGeScale3d(1, 2, 1));
  AcDbVoidPtrArray bad;
  EXPECT_EQ(ref.explode(bad), Acad::eNotApplicable);
  EXPECT_EQ(bad.length(), 0);
}

TEST(DbExtents, ArcsCirclesAndEmptyEntities) {
  struct {
    AcDbEntity *ent;
    AcGePoint3d min, max;
  } cases[] = {
      {new AcDbArc(AcGePoint3d(0, 0, 0), 2.0, 0, kPi / 2), {0, 0, 0}, {2, 2, 0}},
      {new AcDbArc(AcGePoint3d(0, 0, 0), 1.0, kPi / 4, 7 * kPi / 4), {-1, -1, 0}, {std::sqrt(0.5), 1, 0}},
      {new AcDbCircle(AcGePoint3d(1, 1, 0), AcGeVector3d::kXAxis, 1), {1, 0, -1}, {1, 2, 1}},
      {new AcDbFace(AcGePoint3d(0, 0, 0), AcGePoint3d(1, 0, 0), AcGePoint3d(0, 1, 4)), {0, 0, 0}, {1, 1, 4}},
  };
  for (auto &c : cases) {
    AcDbExtents e;
    ASSERT_EQ(c.ent->getGeomExtents(e), Acad::eOk);
    for (int i = 0; i < 3; ++i) {
      EXPECT_NEAR(e.minPoint()[i], c.min[i], 1e-9);
      EXPECT_NEAR(e.maxPoint()[i], c.max[i], 1e-9);
    }
    delete c.ent;
  }
  AcDbExtents e;
  EXPECT_EQ(AcDbPolyline().getGeomExtents(e), Acad::eInvalidExtents);
  EXPECT_EQ(AcDbBlockReference().getGeomExtents(e), Acad::eInvalidExtents);
  EXPECT_EQ(AcDbMText().getGeomExtents(e), Acad::eInvalidExtents);
}

TEST(DbFace, EdgeVisibility) {
  AcDbFace f(AcGePoint3d(0, 0, 0), AcGePoint3d(1, 0, 0), AcGePoint3d(1, 1, 0), AcGePoint3d(0, 1, 0));
  EXPECT_EQ(f.makeEdgeInvisibleAt(2), Acad::eOk);
  EXPECT_EQ(f.makeEdgeInvisibleAt(4), Acad::eInvalidIndex);
  bool vis[4];
  for (Adesk::UInt16 i = 0; i < 4; ++i) f.isEdgeVisibleAt(i, vis[i]);
  EXPECT_TRUE(vis[0] && vis[1] && !vis[2] && vis[3]);
  AcDbDxfFiler out;
  f.dxfOutFields(&out);
  int64_t flags = -1;
  ASSERT_TRUE(out.getInt(70, flags));
  EXPECT_EQ(flags, 4);
}

}  // namespace
