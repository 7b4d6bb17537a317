// The spatial index: the same answers as testing every entity, and kept up
// to date through moves, erasures, additions, open writes and block edits.
#include <gtest/gtest.h>

#include <random>

#include "ss_fixture.h"

namespace vantry::host {
namespace {

class SsIndex : public SelectTest {
 protected:
  std::vector<AcDbObjectId> cross(double x0, double y0, double x1, double y1) {
    select::Filter none;
    return select::selectArea(db(), select::Area::rectangle({x0, y0}, {x1, y1}), true, none);
  }
  void moveLine(AcDbObjectId id, double dx, bool close = true) {
    AcDbLine *l = nullptr;
    ASSERT_EQ(acdbOpenObject(l, id, AcDb::kForWrite), Acad::eOk);
    l->setStartPoint(l->startPoint() + AcGeVector3d(dx, 0, 0));
    l->setEndPoint(l->endPoint() + AcGeVector3d(dx, 0, 0));
    if (close) l->close();
  }
};

TEST_F(SsIndex, AnswersAsAScanDoes) {
  std::mt19937 rng(7);
  std::uniform_real_distribution<double> at(0, 1000), size(0.1, 30);
  for (int i = 0; i < 3000; ++i) {
    double x = at(rng), y = at(rng), s = size(rng);
    switch (i % 4) {
      case 0:
        line(x, y, x + s, y - s / 2);
        break;
      case 1:
        circle(x, y, s / 2);
        break;
      case 2:
        add(new AcDbArc(AcGePoint3d(x, y, 0), s, 0.3, 2.5));
        break;
      default: {
        auto *p = new AcDbPolyline;
        p->addVertexAt(0, AcGePoint2d(x, y), 0.7);
        p->addVertexAt(1, AcGePoint2d(x + s, y), -0.4);
        p->addVertexAt(2, AcGePoint2d(x + s, y + s));
        add(p);
      }
    }
  }
  line(-5000, -5000, 5000, 5000);  // spans the whole grid
  select::Filter none;
  for (int q = 0; q < 60; ++q) {
    double x = at(rng), y = at(rng), w = size(rng) * 3;
    for (bool crossing : {true, false}) {
      select::Area area = select::Area::rectangle({x, y}, {x + w, y + w});
      auto indexed = select::selectArea(db(), area, crossing, none);
      auto scanned = select::selectAreaByScan(db(), area, crossing, none);
      ASSERT_EQ(indexed, scanned) << "window " << q << (crossing ? " crossing" : " inside");
    }
  }
}

TEST_F(SsIndex, FollowsWritesWithoutRebuilding) {
  AcDbObjectId moving = line(0, 0, 1, 0);
  AcDbObjectId gone = line(0, 5, 1, 5);
  for (int i = 0; i < 200; ++i) line(100 + i, 100, 101 + i, 101);
  EXPECT_EQ(cross(-1, -1, 2, 6).size(), 2u);
  int builds = select::indexBuilds();

  moveLine(moving, 50);
  EXPECT_EQ(cross(-1, -1, 2, 1).size(), 0u) << "no longer at the old place";
  EXPECT_EQ(cross(49, -1, 52, 1), std::vector<AcDbObjectId>{moving});

  AcDbEntity *ent = nullptr;
  ASSERT_EQ(acdbOpenObject(ent, gone, AcDb::kForWrite), Acad::eOk);
  ent->erase();
  ent->close();
  EXPECT_TRUE(cross(-1, 4, 2, 6).empty());

  AcDbObjectId fresh = circle(-300, -300, 1);  // outside the grid as built
  EXPECT_EQ(cross(-302, -302, -299, -299), std::vector<AcDbObjectId>{fresh});

  // Still open for write: the change shows before the close.
  moveLine(moving, 100, false);
  EXPECT_EQ(cross(149, -1, 152, 1), std::vector<AcDbObjectId>{moving});
  auto *open = AcDbLine::cast(objectOf(moving));
  ASSERT_TRUE(open->isWriteEnabled());
  open->setEndPoint(AcGePoint3d(400, 0, 0));
  EXPECT_EQ(cross(390, -1, 410, 1), std::vector<AcDbObjectId>{moving});
  open->close();
  EXPECT_EQ(cross(390, -1, 410, 1), std::vector<AcDbObjectId>{moving});
  EXPECT_EQ(select::indexBuilds(), builds) << "every change was filed in place";
}

TEST_F(SsIndex, BlockEditsAndLongRunsOfWritesRebuild) {
  AcDbObjectId def = block(L"GROWS");
  AcDbObjectId part = add(new AcDbLine({0, 0, 0}, {1, 0, 0}), def);
  AcDbObjectId ref = add(new AcDbBlockReference(AcGePoint3d(10, 10, 0), def));
  EXPECT_EQ(cross(10.5, 9.5, 10.6, 10.5), std::vector<AcDbObjectId>{ref});
  int builds = select::indexBuilds();
  AcDbLine *l = nullptr;
  ASSERT_EQ(acdbOpenObject(l, part, AcDb::kForWrite), Acad::eOk);
  l->setEndPoint(AcGePoint3d(40, 0, 0));
  l->close();
  EXPECT_EQ(cross(45, 9, 46, 11), std::vector<AcDbObjectId>{ref}) << "the reference grew with its block";
  EXPECT_EQ(select::indexBuilds(), builds + 1);

  std::vector<AcDbObjectId> many;
  for (int i = 0; i < 5000; ++i) many.push_back(line(-100, i, -99, i));
  EXPECT_EQ(cross(-101, 2499.5, -98, 2500.5), std::vector<AcDbObjectId>{many[2500]});
  EXPECT_EQ(select::indexBuilds(), builds + 2) << "the list of writes overflowed";
}

}  // namespace
}  // namespace vantry::host
