// Window and crossing selections per entity kind, against the window
// (0,0)-(10,10) and a triangle, with the cases where the vertices or the
// extents alone would give the wrong answer.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "ss_fixture.h"

namespace vantry::host {
namespace {

const double kPi = M_PI;

AcDbEntity *lwpoly(std::initializer_list<std::array<double, 3>> verts, bool closed = false) {
  auto *p = new AcDbPolyline;
  unsigned i = 0;
  for (auto &v : verts) p->addVertexAt(i++, AcGePoint2d(v[0], v[1]), v[2]);
  p->setClosed(closed);
  return p;
}

AcDbEntity *mtext(double x, double y, AcDbMText::AttachmentPoint at) {
  auto *m = new AcDbMText;
  m->setContents(L"AB");
  m->setTextHeight(1.0);
  m->setLocation(AcGePoint3d(x, y, 0));
  m->setAttachment(at);
  return m;
}

struct Case {
  const char *what;
  std::function<AcDbEntity *()> make;
  bool window, crossing;
};

class SsGeometry : public SelectTest {};

TEST_F(SsGeometry, WindowAndCrossingPerEntityKind) {
  const Case cases[] = {
      {"line inside",
       [] {
         return new AcDbLine({1, 1, 0}, {9, 9, 0});
       },
       true, true},
      {"line with one end out",
       [] {
         return new AcDbLine({5, 5, 0}, {15, 5, 0});
       },
       false, true},
      {"line through, both ends out",
       [] {
         return new AcDbLine({-5, 5, 0}, {15, 5, 0});
       },
       false, true},
      {"line outside, box overlapping",
       [] {
         return new AcDbLine({8, 12, 0}, {12, 8.5, 0});
       },
       false, false},
      {"line far away",
       [] {
         return new AcDbLine({20, 20, 0}, {30, 30, 0});
       },
       false, false},
      // The arc dips to y = 7.5 between vertices at y = 10.5.
      {"bulge crossing between outside vertices",
       [] {
         return lwpoly({{2, 10.5, 1}, {8, 10.5, 0}});
       },
       false, true},
      {"same vertices, straight",
       [] {
         return lwpoly({{2, 10.5, 0}, {8, 10.5, 0}});
       },
       false, false},
      // Vertices inside, the arc swelling out past x = 10.
      {"bulge leaving between inside vertices",
       [] {
         return lwpoly({{8, 2, 1}, {8, 8, 0}});
       },
       false, true},
      {"closed polyline inside",
       [] {
         return lwpoly({{1, 1, 0}, {9, 1, 0}, {9, 9, 0}}, true);
       },
       true, true},
      {"circle inside",
       [] {
         return new AcDbCircle({5, 5, 0}, AcGeVector3d::kZAxis, 2);
       },
       true, true},
      {"circle on the edge",
       [] {
         return new AcDbCircle({10, 5, 0}, AcGeVector3d::kZAxis, 2);
       },
       false, true},
      {"circle enclosing the window",
       [] {
         return new AcDbCircle({5, 5, 0}, AcGeVector3d::kZAxis, 20);
       },
       false, false},
      // Ends inside at 60 and 300 degrees, the middle out at (10.5, 5).
      {"arc bulging out",
       [] {
         return new AcDbArc({5, 5, 0}, 5.5, -kPi / 3, kPi / 3);
       },
       false, true},
      {"arc inside",
       [] {
         return new AcDbArc({5, -3, 0}, 5, kPi / 4, 3 * kPi / 4);
       },
       true, true},
      // Three quarters through 270 and 0 degrees: its box is the whole circle's.
      {"three-quarter arc inside",
       [] {
         return new AcDbArc({5, 5, 0}, 4, kPi, kPi / 2);
       },
       true, true},
      {"left half arc inside",
       [] {
         return new AcDbArc({9, 5, 0}, 2, kPi / 2, 3 * kPi / 2);
       },
       true, true},
      {"right half arc past the edge",
       [] {
         return new AcDbArc({9, 5, 0}, 2, -kPi / 2, kPi / 2);
       },
       false, true},
      {"mtext up-right of its corner", [] { return mtext(1, 1, AcDbMText::kBottomLeft); }, true, true},
      {"mtext down-left of its corner", [] { return mtext(1, 1, AcDbMText::kTopRight); }, false, true},
      {"face with a corner out",
       [] {
         return new AcDbFace({1, 1, 0}, {12, 1, 0}, {5, 5, 0});
       },
       false, true},
      {"face enclosing the window (edges only)",
       [] {
         return new AcDbFace({-10, -10, 0}, {30, -10, 0}, {30, 30, 0}, {-10, 30, 0});
       },
       false, false},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.what);
    AcDbObjectId id = add(c.make());
    EXPECT_EQ(has(window(false, 0, 0, 10, 10), id), c.window);
    EXPECT_EQ(has(window(true, 0, 0, 10, 10), id), c.crossing);
    // Corners given the other way round select the same.
    EXPECT_EQ(has(window(true, 10, 10, 0, 0), id), c.crossing);
    AcDbEntity *ent = nullptr;
    ASSERT_EQ(acdbOpenObject(ent, id, AcDb::kForWrite), Acad::eOk);
    ent->erase();
    ent->close();
  }
}

TEST_F(SsGeometry, OldStylePolylinesAndLeaders) {
  AcGePoint3dArray pts;
  pts.append(AcGePoint3d(2, 10.5, 0));
  pts.append(AcGePoint3d(8, 10.5, 0));
  AcGeDoubleArray bulges;
  bulges.append(1.0);
  bulges.append(0.0);
  AcDbObjectId p2d = add(new AcDb2dPolyline(AcDb::k2dSimplePoly, pts, 0, false, 0, 0, &bulges));
  AcGePoint3dArray pts3;
  pts3.append(AcGePoint3d(-5, 5, 3));
  pts3.append(AcGePoint3d(-1, 5, 0));
  pts3.append(AcGePoint3d(4, 5, 7));
  AcDbObjectId p3d = add(new AcDb3dPolyline(AcDb::k3dSimplePoly, pts3));
  auto *leader = new AcDbLeader;
  leader->appendVertex(AcGePoint3d(12, 2, 0));
  leader->appendVertex(AcGePoint3d(12, 8, 0));
  AcDbObjectId outside = add(leader);
  auto crossing = window(true, 0, 0, 10, 10);
  EXPECT_TRUE(has(crossing, p2d)) << "the bulge of an old-style polyline crosses";
  EXPECT_TRUE(has(crossing, p3d)) << "a 3D polyline is tested in plan";
  EXPECT_FALSE(has(crossing, outside));
  EXPECT_TRUE(has(window(false, 11, 1, 13, 9), outside));
  EXPECT_TRUE(window(false, 0, 0, 10, 10).empty());
}

TEST_F(SsGeometry, BlockReferencesByTheirExtents) {
  AcDbObjectId def = block(L"CORNERS");
  add(new AcDbLine({0, 0, 0}, {1, 1, 0}), def);
  add(new AcDbLine({19, 19, 0}, {20, 20, 0}), def);
  auto *ref = new AcDbBlockReference(AcGePoint3d(-5, -5, 0), def);
  AcDbObjectId id = add(ref);
  // No line of the block comes near (4,4)-(6,6), but its extents cover it.
  EXPECT_TRUE(has(window(true, 4, 4, 6, 6), id));
  EXPECT_FALSE(has(window(false, 4, 4, 6, 6), id));
  EXPECT_TRUE(has(window(false, -6, -6, 16, 16), id));
  EXPECT_FALSE(has(window(true, 20, 20, 30, 30), id));
}

TEST_F(SsGeometry, PolygonsUseTheirEdgesNotTheirBox) {
  AcDbObjectId in = line(1, 1, 2, 2);
  AcDbObjectId across = line(4, 4, 6, 6);  // crosses x + y = 10
  AcDbObjectId corner = line(8, 8, 9, 9);  // inside the box, outside the triangle
  AcDbObjectId ring = circle(3, 3, 1);     // wholly inside
  const ads_point a = {0, 0, 0}, b = {10, 0, 0}, c = {0, 10, 0};
  resbuf *tri = acutBuildList(RTPOINT, a, RTPOINT, b, RT3DPOINT, c, 0);
  auto wp = select(L"_WP", tri);
  auto cp = select(L"CP", tri);
  EXPECT_TRUE(has(wp, in) && has(wp, ring));
  EXPECT_FALSE(has(wp, across) || has(wp, corner));
  EXPECT_TRUE(has(cp, in) && has(cp, across) && has(cp, ring));
  EXPECT_FALSE(has(cp, corner));
  acutRelRb(tri);
}

TEST_F(SsGeometry, MalformedPolygonListsFailWithoutASet) {
  line(1, 1, 2, 2);
  const ads_point a = {0, 0, 0}, b = {10, 0, 0}, c = {0, 10, 0};
  struct {
    const char *what;
    resbuf *list;
  } cases[] = {
      {"a string among the points", acutBuildList(RTPOINT, a, RTSTR, L"x", RTPOINT, c, 0)},
      {"two points", acutBuildList(RTPOINT, a, RTPOINT, b, 0)},
      {"no list", nullptr},
  };
  for (auto &c : cases) {
    SCOPED_TRACE(c.what);
    int rc = 0;
    EXPECT_TRUE(select(L"_CP", c.list, nullptr, nullptr, &rc).empty());
    EXPECT_EQ(rc, RTERROR);
    acutRelRb(c.list);
  }
  int rc = 0;
  select(L"_C", a, nullptr, nullptr, &rc);
  EXPECT_EQ(rc, RTERROR) << "a crossing window needs two corners";
  select(L"_Q", nullptr, nullptr, nullptr, &rc);
  EXPECT_EQ(rc, RTERROR) << "unknown mode";
}

TEST_F(SsGeometry, LayersAndSpaces) {
  AcDbObjectId visible = line(1, 1, 2, 2);
  AcDbObjectId frozen = line(3, 3, 4, 4);
  AcDbLayerTable *lt = nullptr;
  ASSERT_EQ(db()->getLayerTable(lt, AcDb::kForWrite), Acad::eOk);
  auto *cold = new AcDbLayerTableRecord;
  cold->setName(L"COLD");
  cold->setIsFrozen(true);
  lt->add(cold);
  cold->close();
  lt->close();
  AcDbEntity *ent = nullptr;
  ASSERT_EQ(acdbOpenObject(ent, frozen, AcDb::kForWrite), Acad::eOk);
  ASSERT_EQ(ent->setLayer(L"COLD"), Acad::eOk);
  ent->close();
  AcDbObjectId paper = add(new AcDbLine({1, 1, 0}, {2, 2, 0}), db()->impl()->paperSpace);

  auto crossing = window(true, 0, 0, 10, 10);
  EXPECT_TRUE(has(crossing, visible));
  EXPECT_FALSE(has(crossing, frozen)) << "frozen layers are not selectable";
  EXPECT_FALSE(has(crossing, paper)) << "paper space is not current";
  auto all = select(L"_ALL");
  EXPECT_TRUE(has(all, visible) && !has(all, frozen) && !has(all, paper));
  auto x = select(L"X");
  EXPECT_TRUE(has(x, visible) && has(x, frozen) && has(x, paper)) << "X reaches the whole drawing";
  ASSERT_EQ(x.size(), 3u);
  EXPECT_EQ(x.front(), paper) << "newest first";
  EXPECT_EQ(select(L"L"), std::vector<AcDbObjectId>{visible}) << "the last visible model-space entity";
}

}  // namespace
}  // namespace vantry::host
