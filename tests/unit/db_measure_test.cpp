// Curve queries that must agree with one another on every kind of curve:
// distance and parameter are inverse, a point from a distance measures back
// to that distance, nearest points are no farther than any sampled point of
// the curve; plus areas, closed fits and transactions that erase.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <memory>

#include "db/db.h"

namespace {

using Maker = std::function<AcDbCurve *()>;

std::vector<std::pair<const char *, Maker>> curves() {
  return {
      {"line", [] { return new AcDbLine(AcGePoint3d(1, 2, 3), AcGePoint3d(-4, 6, 0)); }},
      {"circle", [] { return new AcDbCircle(AcGePoint3d(1, 1, 1), AcGeVector3d(1, 2, 2), 3); }},
      {"arc", [] { return new AcDbArc(AcGePoint3d(0, 0, 2), AcGeVector3d(0, 0, 1), 2, 5.5, 1.0); }},
      {"tilted arc", [] { return new AcDbArc(AcGePoint3d(1, 0, 0), AcGeVector3d(1, -1, 3), 1.5, 0.2, 4.0); }},
      {"bulged polyline",
       [] {
         auto *p = new AcDbPolyline;
         p->addVertexAt(0, AcGePoint2d(0, 0), 0.7);
         p->addVertexAt(1, AcGePoint2d(4, 0), -2.0);
         p->addVertexAt(2, AcGePoint2d(6, 1));
         p->addVertexAt(3, AcGePoint2d(6, 5), 0.3);
         p->setClosed(true);
         p->setNormal(AcGeVector3d(0, 1, 1));
         p->setElevation(2);
         return p;
       }},
      {"2D polyline fitted",
       [] {
         AcGePoint3dArray pts;
         pts.append(AcGePoint3d(0, 0, 0)).append(AcGePoint3d(3, 2, 0)).append(AcGePoint3d(5, -1, 0));
         pts.append(AcGePoint3d(8, 3, 0));
         auto *p = new AcDb2dPolyline(AcDb::k2dSimplePoly, pts);
         p->curveFit();
         return p;
       }},
      {"3D polyline",
       [] {
         AcGePoint3dArray pts;
         pts.append(AcGePoint3d(0, 0, 0)).append(AcGePoint3d(1, 2, 3)).append(AcGePoint3d(4, 0, -1));
         return new AcDb3dPolyline(AcDb::k3dSimplePoly, pts, true);
       }},
      {"leader",
       [] {
         auto *l = new AcDbLeader;
         l->appendVertex(AcGePoint3d(0, 0, 0));
         l->appendVertex(AcGePoint3d(2, 2, 0));
         l->appendVertex(AcGePoint3d(5, 2, 1));
         return l;
       }},
  };
}

TEST(DbMeasure, DistanceAndParameterAreInverse) {
  for (auto &[name, make] : curves()) {
    std::unique_ptr<AcDbCurve> c(make());
    double sp, ep, total;
    ASSERT_EQ(c->getStartParam(sp), Acad::eOk);
    ASSERT_EQ(c->getEndParam(ep), Acad::eOk);
    ASSERT_EQ(c->getDistAtParam(ep, total), Acad::eOk) << name;
    double start;
    ASSERT_EQ(c->getDistAtParam(sp, start), Acad::eOk);
    EXPECT_NEAR(start, 0, 1e-12) << name;
    for (int i = 0; i <= 20; ++i) {
      double d = total * i / 20, param, back, dp;
      ASSERT_EQ(c->getParamAtDist(d, param), Acad::eOk) << name << " " << d;
      ASSERT_EQ(c->getDistAtParam(param, back), Acad::eOk) << name;
      EXPECT_NEAR(back, d, 1e-9) << name;
      AcGePoint3d byDist, byParam;
      ASSERT_EQ(c->getPointAtDist(d, byDist), Acad::eOk);
      ASSERT_EQ(c->getPointAtParam(param, byParam), Acad::eOk);
      EXPECT_TRUE(byDist.isEqualTo(byParam, AcGeTol())) << name;
      if (i > 0 && i < 20) {  // a closed curve's start is also its end
        ASSERT_EQ(c->getDistAtPoint(byDist, dp), Acad::eOk) << name << " " << d;
        EXPECT_NEAR(dp, d, 1e-9) << name;
      }
    }
    AcGePoint3d p;
    EXPECT_EQ(c->getPointAtDist(total * 1.01 + 1e-6, p), Acad::eInvalidInput) << name;
    EXPECT_EQ(c->getPointAtParam(ep + 0.1, p), Acad::eInvalidInput) << name;
    EXPECT_EQ(c->getPointAtParam(sp - 0.1, p), Acad::eInvalidInput) << name;
  }
}

// The arc length between nearby parameters matches the chord: lengths are
// those of the drawn curve, not of its parameter.
TEST(DbMeasure, LengthsMatchTheDrawnCurve) {
  for (auto &[name, make] : curves()) {
    std::unique_ptr<AcDbCurve> c(make());
    double sp, ep, total, sum = 0;
    c->getStartParam(sp), c->getEndParam(ep), c->getDistAtParam(ep, total);
    const int kSteps = 12000;  // a multiple of every segment count, so samples hit the vertices
    AcGePoint3d prev;
    c->getPointAtParam(sp, prev);
    for (int i = 1; i <= kSteps; ++i) {
      AcGePoint3d q;
      c->getPointAtParam(sp + (ep - sp) * i / kSteps, q);
      sum += q.distanceTo(prev);
      prev = q;
    }
    EXPECT_NEAR(sum, total, 1e-4 * total) << name;
  }
}

// The nearest point (in space, or seen along a direction) is no farther than
// any sampled point of the curve, and lies on the curve.
TEST(DbMeasure, NearestPointsBeatEverySample) {
  const AcGePoint3d probes[] = {{0, 0, 0}, {5, -3, 2}, {-2, 4, -6}, {3, 3, 10}, {1.2, 0.3, -0.4}};
  const AcGeVector3d dirs[] = {AcGeVector3d::kZAxis, AcGeVector3d(1, 1, 0), AcGeVector3d(0.3, -0.2, 1)};
  for (auto &[name, make] : curves()) {
    std::unique_ptr<AcDbCurve> c(make());
    double sp, ep;
    c->getStartParam(sp), c->getEndParam(ep);
    for (const AcGePoint3d &q : probes) {
      for (int mode = -1; mode < 3; ++mode) {
        const AcGeVector3d *dir = mode < 0 ? nullptr : &dirs[mode];
        auto gap = [&](const AcGePoint3d &p) {
          AcGeVector3d v = p - q;
          if (dir) v = v - dir->normal() * v.dotProduct(dir->normal());
          return v.length();
        };
        AcGePoint3d best;
        ASSERT_EQ(dir ? c->getClosestPointTo(q, *dir, best) : c->getClosestPointTo(q, best), Acad::eOk)
            << name;
        double param;
        EXPECT_EQ(c->getParamAtPoint(best, param), Acad::eOk) << name;
        double found = gap(best);
        for (int i = 0; i <= 2000; ++i) {
          AcGePoint3d s;
          c->getPointAtParam(sp + (ep - sp) * i / 2000, s);
          ASSERT_LE(found, gap(s) + 1e-9)
              << name << " probe " << q.x << "," << q.y << "," << q.z << " mode " << mode;
        }
      }
    }
  }
}

TEST(DbMeasure, AreasOfClosedOutlines) {
  // A 2 x 2 square with its bottom edge bowed inwards by a half circle.
  AcDbPolyline p;
  p.addVertexAt(0, AcGePoint2d(0, 0), -1.0);
  p.addVertexAt(1, AcGePoint2d(2, 0));
  p.addVertexAt(2, AcGePoint2d(2, 2));
  p.addVertexAt(3, AcGePoint2d(0, 2));
  p.setClosed(true);
  double area;
  ASSERT_EQ(p.getArea(area), Acad::eOk);
  EXPECT_NEAR(area, 4 - M_PI / 2, 1e-12);
  AcDbExtents e;
  ASSERT_EQ(p.getGeomExtents(e), Acad::eOk);
  EXPECT_NEAR(e.minPoint().y, 0, 1e-12);  // the bow points inwards
  p.setBulgeAt(0, 1.0);                   // now outwards
  ASSERT_EQ(p.getArea(area), Acad::eOk);
  EXPECT_NEAR(area, 4 + M_PI / 2, 1e-12);
  ASSERT_EQ(p.getGeomExtents(e), Acad::eOk);
  EXPECT_NEAR(e.minPoint().y, -1, 1e-12);
}

TEST(DbMeasure, ClosedFitsOfCocircularPoints) {
  // Four points of the circle of radius 5 about the origin.
  AcGePoint3dArray pts;
  pts.append(AcGePoint3d(5, 0, 0)).append(AcGePoint3d(0, 5, 0)).append(AcGePoint3d(-3, -4, 0));
  pts.append(AcGePoint3d(4, -3, 0));
  AcDb2dPolyline fit(AcDb::k2dSimplePoly, pts, 0, true);
  ASSERT_EQ(fit.curveFit(), Acad::eOk);
  EXPECT_EQ(fit.vertices().size(), 8u);
  double ep, len;
  fit.getEndParam(ep);
  fit.getDistAtParam(ep, len);
  EXPECT_NEAR(len, 10 * M_PI, 1e-9);

  AcDb2dPolyline spline(AcDb::k2dSimplePoly, pts, 0, true);
  ASSERT_EQ(spline.splineFit(AcDb::k2dCubicSplinePoly, 6), Acad::eOk);
  int fitted = 0;
  for (const AcDb2dVertex *v : spline.vertices()) fitted += v->vertexType() == AcDb::k2dSplineFitVertex;
  EXPECT_EQ(fitted, 24);  // six per span, four spans, the start not repeated
  // A closed uniform cubic B-spline passes through (P[i-1] + 4 P[i] + P[i+1]) / 6.
  AcGePoint3d expect((0 + 4 * 5 + 4) / 6.0, (5 + 0 - 3) / 6.0, 0);
  bool found = false;
  for (const AcDb2dVertex *v : spline.vertices())
    if (v->vertexType() == AcDb::k2dSplineFitVertex && v->position().isEqualTo(expect, AcGeTol()))
      found = true;
  EXPECT_TRUE(found);
}

TEST(DbMeasure, AbortBringsBackAnErasedEntity) {
  AcDbDatabase db;
  AcDbBlockTableRecord *ms = nullptr;
  ASSERT_EQ(acdbOpenObject(ms, vantry::host::recordId(db.blockTableId(), ACDB_MODEL_SPACE), AcDb::kForWrite),
            Acad::eOk);
  auto *line = new AcDbLine(AcGePoint3d(0, 0, 0), AcGePoint3d(1, 0, 0));
  AcDbObjectId id;
  ms->appendAcDbEntity(id, line);
  line->close();
  ms->close();
  AcTransactionManager *tm = db.transactionManager();
  tm->startTransaction();
  AcDbObject *o = nullptr;
  ASSERT_EQ(tm->getObject(o, id, AcDb::kForWrite), Acad::eOk);
  ASSERT_EQ(o->erase(), Acad::eOk);
  tm->abortTransaction();
  EXPECT_FALSE(id.isErased());
}

}  // namespace
