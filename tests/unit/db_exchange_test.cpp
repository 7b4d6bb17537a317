// The group-code form of every entity class: what one object writes, a fresh
// object of the same class reads back to the same fields; and the
// transforms that move entities.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "db/db.h"

namespace {

class DbExchangeTest : public ::testing::Test {
 protected:
  DbExchangeTest() {
    AcDbBlockTable *bt = nullptr;
    db.getBlockTable(bt, AcDb::kForWrite);
    auto *block = new AcDbBlockTableRecord;
    block->setName(L"VALVE");
    bt->add(blockId, block);
    block->close();
    bt->close();
    AcDbLayerTable *lt = nullptr;
    db.getLayerTable(lt, AcDb::kForWrite);
    auto *layer = new AcDbLayerTableRecord;
    layer->setName(L"PIPES");
    lt->add(layerId, layer);
    layer->close();
    lt->close();
  }

  AcDbObjectId append(AcDbEntity *ent) {
    AcDbBlockTableRecord *ms = nullptr;
    EXPECT_EQ(
        acdbOpenObject(ms, vantry::host::recordId(db.blockTableId(), ACDB_MODEL_SPACE), AcDb::kForWrite),
        Acad::eOk);
    AcDbObjectId id;
    EXPECT_EQ(ms->appendAcDbEntity(id, ent), Acad::eOk);
    ms->close();
    return id;
  }

  // The fields an object writes, less its identity (handle, owner).
  static std::vector<AcDbDxfFiler::Item> fields(const AcDbObject *o) {
    AcDbDxfFiler f;
    o->dxfOutFields(&f);
    std::vector<AcDbDxfFiler::Item> out;
    for (const auto &it : f.items())
      if (it.code != 5 && it.code != 330) out.push_back(it);
    return out;
  }

  AcDbDatabase db;
  AcDbObjectId blockId, layerId;
};

std::wstring describe(const AcDbDxfFiler::Item &it) {
  return std::to_wstring(it.code) + L":" + it.text + L":" + std::to_wstring(it.real[0]) + L"," +
         std::to_wstring(it.real[1]) + L"," + std::to_wstring(it.real[2]) + L":" +
         std::to_wstring(it.integer);
}

TEST_F(DbExchangeTest, EveryEntityReadsBackWhatItWrote) {
  auto styled = [&](AcDbEntity *e) {
    e->setLayer(layerId);
    e->setColorIndex(5);
    return e;
  };
  std::vector<std::pair<const char *, std::function<AcDbEntity *()>>> cases = {
      {"line", [&] { return styled(new AcDbLine(AcGePoint3d(1, 2, 3), AcGePoint3d(4, 5, 6))); }},
      {"circle", [&] { return styled(new AcDbCircle(AcGePoint3d(1, 2, 3), AcGeVector3d(1, 1, 1), 2.5)); }},
      {"arc", [&] { return styled(new AcDbArc(AcGePoint3d(1, 2, 3), AcGeVector3d(0, 1, 0), 2, 0.25, 4.5)); }},
      {"polyline",
       [&] {
         auto *p = new AcDbPolyline;
         p->addVertexAt(0, AcGePoint2d(0, 0), 0.5, 0.1, 0.2);
         p->addVertexAt(1, AcGePoint2d(3, 1), -0.25);
         p->addVertexAt(2, AcGePoint2d(4, 4));
         p->setClosed(true);
         p->setElevation(2);
         return styled(p);
       }},
      {"mtext",
       [&] {
         auto *m = new AcDbMText;
         m->setContents(L"{\\fArial;Duct} 300x200");
         m->setLocation(AcGePoint3d(5, 6, 0));
         m->setTextHeight(3.5);
         m->setWidth(40);
         m->setAttachment(AcDbMText::kMiddleCenter);
         m->setRotation(0.5);
         return styled(m);
       }},
      {"leader",
       [&] {
         auto *l = new AcDbLeader;
         l->appendVertex(AcGePoint3d(0, 0, 0));
         l->appendVertex(AcGePoint3d(5, 5, 0));
         l->appendVertex(AcGePoint3d(9, 5, 0));
         l->disableArrowHead();
         return styled(l);
       }},
      {"face",
       [&] {
         auto *f = new AcDbFace(AcGePoint3d(0, 0, 0), AcGePoint3d(1, 0, 0), AcGePoint3d(1, 1, 1),
                                AcGePoint3d(0, 1, 1), true, false, true, false);
         return styled(f);
       }},
      {"insert",
       [&] {
         auto *r = new AcDbBlockReference(AcGePoint3d(7, 8, 9), blockId);
         r->setScaleFactors(AcGeScale3d(2, 3, 4));
         r->setRotation(1.25);
         r->setNormal(AcGeVector3d(0, 0, -1));
         return styled(r);
       }},
      {"vertex", [&] { return styled(new AcDb2dVertex(AcGePoint3d(1, 2, 0), 0.3, 1, 2, 0.7)); }},
  };
  for (auto &[name, makeOne] : cases) {
    AcDbEntity *original = makeOne();
    append(original);
    auto *copy = AcDbEntity::cast(original->isA()->create());
    ASSERT_NE(copy, nullptr) << name;
    append(copy);
    AcDbDxfFiler f;
    original->dxfOutFields(&f);
    ASSERT_EQ(copy->dxfInFields(&f), Acad::eOk) << name;
    auto a = fields(original), b = fields(copy);
    ASSERT_EQ(a.size(), b.size()) << name;
    for (size_t i = 0; i < a.size(); ++i) {
      EXPECT_EQ(a[i].code, b[i].code) << name;
      EXPECT_EQ(a[i].text, b[i].text) << name << " " << a[i].code;
      EXPECT_EQ(a[i].integer, b[i].integer) << name << " " << a[i].code;
      EXPECT_EQ(a[i].id, b[i].id) << name << " " << a[i].code;
      for (int k = 0; k < 3; ++k)
        EXPECT_NEAR(a[i].real[k], b[i].real[k], 1e-9) << name << " " << describe(a[i]);
    }
    original->close();
    copy->close();
  }
}

TEST_F(DbExchangeTest, FileFormWritesDegrees) {
  AcDbArc arc(AcGePoint3d(0, 0, 0), 1, M_PI / 2, M_PI);
  AcDbDxfFiler file(true), lisp;
  arc.dxfOutFields(&file);
  arc.dxfOutFields(&lisp);
  double a;
  ASSERT_TRUE(file.getDouble(50, a));
  EXPECT_DOUBLE_EQ(a, 90);
  ASSERT_TRUE(lisp.getDouble(51, a));
  EXPECT_DOUBLE_EQ(a, M_PI);
  AcDbArc back;
  ASSERT_EQ(back.dxfInFields(&file), Acad::eOk);
  EXPECT_NEAR(back.startAngle(), M_PI / 2, 1e-12);
}

TEST_F(DbExchangeTest, BadFieldsAreRefused) {
  struct {
    AcRxClass *cls;
    int code;
    double value;
  } cases[] = {
      {AcDbCircle::desc(), 40, 0},    {AcDbArc::desc(), 40, -2},           {AcDbMText::desc(), 40, 0},
      {AcDbMText::desc(), 71, 12},    {AcDbBlockReference::desc(), 41, 0}, {AcDbEntity::desc(), 62, 300},
      {AcDbPolyline::desc(), 40, -1},
  };
  for (const auto &c : cases) {
    AcDbEntity *e = AcDbEntity::cast(c.cls->create());
    if (!e) e = new AcDbLine();  // the entity part alone
    AcDbDxfFiler f;
    if (AcDbPolyline::cast(e)) f.writePoint2d(10, AcGePoint2d(0, 0));
    AcDbDxfFiler::Item it;
    it.code = c.code;
    it.real[0] = c.value;
    it.integer = int64_t(c.value);
    f.items().push_back(it);
    EXPECT_NE(e->dxfInFields(&f), Acad::eOk) << c.cls->name() << " " << c.code;
    delete e;
  }
}

// --- Transforms -----------------------------------------------------------------------------------

TEST(DbTransform, MirroredArcKeepsItsPoints) {
  AcDbArc arc(AcGePoint3d(1, 0, 0), 1, 0, M_PI / 2);  // from (2,0) to (1,1)
  AcGeMatrix3d mirror;
  mirror(0, 0) = -1;  // x -> -x
  ASSERT_EQ(arc.transformBy(mirror), Acad::eOk);
  AcGePoint3d s, e, mid;
  arc.getStartPoint(s), arc.getEndPoint(e);
  double sp, ep;
  arc.getStartParam(sp), arc.getEndParam(ep);
  arc.getPointAtParam((sp + ep) / 2, mid);
  // The same set of points, mirrored: ends (-2,0) and (-1,1), middle off the chord.
  bool ends = (s.isEqualTo(AcGePoint3d(-2, 0, 0)) && e.isEqualTo(AcGePoint3d(-1, 1, 0))) ||
              (e.isEqualTo(AcGePoint3d(-2, 0, 0)) && s.isEqualTo(AcGePoint3d(-1, 1, 0)));
  EXPECT_TRUE(ends);
  EXPECT_NEAR(mid.distanceTo(AcGePoint3d(-1, 0, 0)), 1, 1e-12);
  EXPECT_NEAR(mid.x, -1 - std::cos(M_PI / 4), 1e-12);
  EXPECT_NEAR(arc.totalAngle(), M_PI / 2, 1e-12);

  AcGeMatrix3d squash;
  squash(1, 1) = 0.5;
  EXPECT_EQ(arc.transformBy(squash), Acad::eNotApplicable);
}

TEST(DbTransform, PolylineRotatedAndScaled) {
  AcDbPolyline p;
  p.addVertexAt(0, AcGePoint2d(0, 0), 1);
  p.addVertexAt(1, AcGePoint2d(2, 0));
  AcGeMatrix3d m = AcGeMatrix3d::rotation(M_PI / 2, AcGeVector3d::kZAxis) * AcGeMatrix3d::scaling(2);
  ASSERT_EQ(p.transformBy(m), Acad::eOk);
  AcGePoint3d q;
  p.getPointAt(1, q);
  EXPECT_NEAR(q.x, 0, 1e-12);
  EXPECT_NEAR(q.y, 4, 1e-12);
  double end, len;
  p.getEndParam(end);
  p.getDistAtParam(end, len);
  EXPECT_NEAR(len, 2 * M_PI, 1e-12);
  p.getPointAtParam(0.5, q);  // the arc's far point, (1,-1) before: (2,2)*... rotated (1,1)*2
  EXPECT_NEAR(q.x, 2, 1e-12);
  EXPECT_NEAR(q.y, 2, 1e-12);
}

TEST(DbGeometry, MatricesAndTheArbitraryAxis) {
  AcGeMatrix3d m = AcGeMatrix3d::rotation(0.3, AcGeVector3d(1, 2, 3), AcGePoint3d(4, 5, 6)) *
                   AcGeMatrix3d::translation(AcGeVector3d(1, -1, 2)) * AcGeMatrix3d::scaling(3);
  AcGeMatrix3d id = m * m.inverse();
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c) EXPECT_NEAR(id(r, c), r == c ? 1 : 0, 1e-12);
  EXPECT_NEAR(m.scale(), 3, 1e-12);
  EXPECT_TRUE(m.isUniScaledOrtho());

  // Near the Z axis the X axis comes from Y x N, otherwise from Z x N.
  EXPECT_TRUE(vantry::host::ocsXAxis(AcGeVector3d::kZAxis).isEqualTo(AcGeVector3d::kXAxis));
  EXPECT_TRUE(vantry::host::ocsXAxis(-AcGeVector3d::kZAxis).isEqualTo(-AcGeVector3d::kXAxis));
  EXPECT_TRUE(vantry::host::ocsXAxis(AcGeVector3d::kXAxis).isEqualTo(AcGeVector3d::kYAxis));
  AcGeVector3d v(1, 0, 0);
  v.rotateBy(M_PI / 2, AcGeVector3d::kZAxis);
  EXPECT_TRUE(v.isEqualTo(AcGeVector3d(0, 1, 0)));
  AcGePoint3d p(1, 2, 3);
  p.transformBy(AcGeMatrix3d::planeToWorld(AcGeVector3d(0, 1, 0)))
      .transformBy(AcGeMatrix3d::worldToPlane(AcGeVector3d(0, 1, 0)));
  EXPECT_TRUE(p.isEqualTo(AcGePoint3d(1, 2, 3)));
}

TEST(DbDictionary, EntriesKeysAndOwnership) {
  AcDbDatabase db;
  AcDbDictionary *nod = nullptr;
  ASSERT_EQ(db.getNamedObjectsDictionary(nod, AcDb::kForWrite), Acad::eOk);
  auto *a = new AcDbDictionary, *b = new AcDbDictionary;
  AcDbObjectId ida, idb;
  ASSERT_EQ(nod->setAt(L"Vantry_A", a, ida), Acad::eOk);
  a->close();
  ASSERT_EQ(nod->setAt(L"VANTRY_B", b, idb), Acad::eOk);
  b->close();
  EXPECT_TRUE(nod->has(L"vantry_a"));
  EXPECT_EQ(nod->setName(L"vantry_a", L"vantry_b"), Acad::eDuplicateKey);
  EXPECT_EQ(nod->setName(L"vantry_a", L"VANTRY_C"), Acad::eOk);
  // Replacing an entry erases what it held.
  auto *c = new AcDbDictionary;
  AcDbObjectId idc;
  ASSERT_EQ(nod->setAt(L"vantry_b", c, idc), Acad::eOk);
  c->close();
  EXPECT_TRUE(idb.isErased());
  AcDbObjectId removed;
  ASSERT_EQ(nod->remove(L"VANTRY_C", removed), Acad::eOk);
  EXPECT_EQ(removed, ida);
  EXPECT_TRUE(vantry::host::objectOf(ida)->ownerId().isNull());
  std::vector<std::wstring> keys;
  std::unique_ptr<AcDbDictionaryIterator> it(nod->newIterator());
  for (; !it->done(); it->next()) keys.push_back(it->name());
  EXPECT_EQ(keys, (std::vector<std::wstring>{L"ACAD_GROUP", L"VANTRY_B"}));
  nod->close();
  AcDbDictionary refused;
  EXPECT_EQ(nod->setAt(L"X", &refused, idc), Acad::eNotOpenForWrite);
  EXPECT_TRUE(refused.objectId().isNull());
}

TEST(DbTransactionsNested, InnerEndHandsObjectsToTheOuter) {
  AcDbDatabase db;
  AcTransactionManager *tm = db.transactionManager();
  tm->startTransaction();
  tm->startTransaction();
  AcDbObject *o = nullptr;
  ASSERT_EQ(tm->getObject(o, db.layerTableId(), AcDb::kForWrite), Acad::eOk);
  EXPECT_EQ(tm->numActiveTransactions(), 2);
  tm->endTransaction();
  AcDbObject *other = nullptr;
  EXPECT_EQ(acdbOpenObject(other, db.layerTableId(), AcDb::kForRead), Acad::eWasOpenForWrite);
  tm->endTransaction();
  EXPECT_EQ(acdbOpenObject(other, db.layerTableId(), AcDb::kForRead), Acad::eOk);
  other->close();
  EXPECT_EQ(tm->getObject(o, db.layerTableId(), AcDb::kForRead), Acad::eInvalidContext);
}

}  // namespace
