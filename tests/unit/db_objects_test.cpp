// The drawing database: default contents, ids and entity names, the open and
// close discipline, symbol tables, dictionaries, groups, extended data,
// transactions and the annotative protocol.
#include <gtest/gtest.h>

#include <memory>

#include "db/db.h"

namespace {

// Appends an entity to a database's model space; the entity is closed after.
AcDbObjectId append(AcDbDatabase &db, AcDbEntity *ent) {
  AcDbBlockTable *bt = nullptr;
  EXPECT_EQ(db.getBlockTable(bt, AcDb::kForRead), Acad::eOk);
  AcDbBlockTableRecord *ms = nullptr;
  EXPECT_EQ(bt->getAt(ACDB_MODEL_SPACE, ms, AcDb::kForWrite), Acad::eOk);
  bt->close();
  AcDbObjectId id;
  EXPECT_EQ(ms->appendAcDbEntity(id, ent), Acad::eOk);
  ms->close();
  ent->close();
  return id;
}

TEST(DbDatabase, NewDrawingHasTheDefaultRecords) {
  AcDbDatabase db;
  struct {
    AcDbObjectId table;
    const wchar_t *name;
  } cases[] = {{db.layerTableId(), L"0"},
               {db.textStyleTableId(), L"Standard"},
               {db.blockTableId(), L"*Model_Space"},
               {db.blockTableId(), L"*paper_space"},
               {db.regAppTableId(), L"ACAD"},
               {db.linetypeTableId(), L"Continuous"}};
  for (const auto &c : cases) EXPECT_FALSE(vantry::host::recordId(c.table, c.name).isNull()) << c.name;

  AcDbTextStyleTableRecord *style = nullptr;
  ASSERT_EQ(acdbOpenObject(style, db.textstyle(), AcDb::kForRead), Acad::eOk);
  const ACHAR *font = nullptr;
  style->fileName(font);
  EXPECT_STREQ(font, L"txt");
  EXPECT_DOUBLE_EQ(style->xScale(), 1.0);
  style->close();

  AcDbDictionary *nod = nullptr;
  ASSERT_EQ(db.getNamedObjectsDictionary(nod, AcDb::kForRead), Acad::eOk);
  AcDbObjectId groups;
  EXPECT_EQ(nod->getAt(L"acad_group", groups), Acad::eOk);
  EXPECT_EQ(groups, db.groupDictionaryId());
  nod->close();
}

TEST(DbObjects, OpenDiscipline) {
  AcDbDatabase db;
  AcDbObjectId id = append(db, new AcDbLine(AcGePoint3d(0, 0, 0), AcGePoint3d(1, 0, 0)));

  AcDbLine *w = nullptr, *again = nullptr;
  ASSERT_EQ(acdbOpenObject(w, id, AcDb::kForWrite), Acad::eOk);
  EXPECT_EQ(acdbOpenObject(again, id, AcDb::kForWrite), Acad::eWasOpenForWrite);
  EXPECT_EQ(again, nullptr);
  EXPECT_EQ(acdbOpenObject(again, id, AcDb::kForRead), Acad::eWasOpenForWrite);
  EXPECT_EQ(w->close(), Acad::eOk);

  AcDbLine *r1 = nullptr, *r2 = nullptr;
  ASSERT_EQ(acdbOpenObject(r1, id, AcDb::kForRead), Acad::eOk);
  ASSERT_EQ(acdbOpenObject(r2, id, AcDb::kForRead), Acad::eOk);
  EXPECT_EQ(acdbOpenObject(w, id, AcDb::kForWrite), Acad::eWasOpenForRead);
  EXPECT_EQ(r1->upgradeOpen(), Acad::eHadMultipleReaders);
  EXPECT_EQ(r1->setStartPoint(AcGePoint3d(5, 5, 5)), Acad::eNotOpenForWrite);
  r2->close();
  EXPECT_EQ(r1->upgradeOpen(), Acad::eOk);
  EXPECT_EQ(r1->setStartPoint(AcGePoint3d(5, 5, 5)), Acad::eOk);
  EXPECT_EQ(r1->close(), Acad::eOk);
  EXPECT_EQ(r1->close(), Acad::eNotOpenForRead);

  // The typed open checks the class and leaves nothing open when it refuses.
  AcDbCircle *circle = nullptr;
  EXPECT_EQ(acdbOpenObject(circle, id, AcDb::kForWrite), Acad::eNotThatKindOfClass);
  EXPECT_EQ(circle, nullptr);
  AcDbCurve *curve = nullptr;
  ASSERT_EQ(acdbOpenObject(curve, id, AcDb::kForWrite), Acad::eOk);

  // Erased objects open only when asked for.
  EXPECT_EQ(curve->erase(), Acad::eOk);
  curve->close();
  EXPECT_EQ(acdbOpenObject(w, id, AcDb::kForRead), Acad::eWasErased);
  ASSERT_EQ(acdbOpenObject(w, id, AcDb::kForWrite, true), Acad::eOk);
  EXPECT_EQ(w->erase(false), Acad::eOk);
  w->close();
  EXPECT_EQ(acdbOpenObject(w, id, AcDb::kForRead), Acad::eOk);
  w->close();
  EXPECT_EQ(acdbOpenObject(w, AcDbObjectId::kNull, AcDb::kForRead), Acad::eNullObjectId);
}

TEST(DbObjects, ScopedHolderClosesOnEveryPath) {
  AcDbDatabase db;
  AcDbObjectId id = append(db, new AcDbCircle(AcGePoint3d(0, 0, 0), AcGeVector3d::kZAxis, 2));
  {
    AcDbObjectPointer<AcDbCircle> c(id, AcDb::kForWrite);
    ASSERT_EQ(c.openStatus(), Acad::eOk);
    EXPECT_EQ(c->setRadius(3), Acad::eOk);
  }
  AcDbObjectPointer<AcDbLine> wrong(id, AcDb::kForRead);
  EXPECT_EQ(wrong.openStatus(), Acad::eNotThatKindOfClass);
  AcDbObjectPointer<AcDbCircle> c(id, AcDb::kForWrite);
  ASSERT_EQ(c.openStatus(), Acad::eOk);
  EXPECT_DOUBLE_EQ(c->radius(), 3);
}

TEST(DbObjects, EntityNamesRoundTripAndStaleNamesFail) {
  ads_name name;
  AcDbObjectId id;
  {
    AcDbDatabase db;
    id = append(db, new AcDbLine());
    ASSERT_EQ(acdbGetAdsName(name, id), Acad::eOk);
    AcDbObjectId back;
    ASSERT_EQ(acdbGetObjectId(back, name), Acad::eOk);
    EXPECT_EQ(back, id);
    ads_name bogus = {name[0] + 1000, name[1]};
    EXPECT_EQ(acdbGetObjectId(back, bogus), Acad::eInvalidAdsName);
    AcDbObjectId byHandle;
    EXPECT_EQ(db.getAcDbObjectId(byHandle, false, id.handle()), Acad::eOk);
    EXPECT_EQ(byHandle, id);
    EXPECT_EQ(AcDbHandle(id.handle().toString().c_str()), id.handle());
  }
  AcDbObjectId gone;
  EXPECT_EQ(acdbGetObjectId(gone, name), Acad::eInvalidAdsName);
}

TEST(DbTables, AddLookUpRenameAndRefuse) {
  AcDbDatabase db;
  AcDbLayerTable *layers = nullptr;
  ASSERT_EQ(db.getLayerTable(layers, AcDb::kForRead), Acad::eOk);
  auto *rec = new AcDbLayerTableRecord;
  rec->setName(L"Walls");
  EXPECT_EQ(layers->add(rec), Acad::eNotOpenForWrite);
  ASSERT_EQ(layers->upgradeOpen(), Acad::eOk);
  AcDbObjectId id;
  ASSERT_EQ(layers->add(id, rec), Acad::eOk);
  rec->close();
  auto *dup = new AcDbLayerTableRecord;
  dup->setName(L"WALLS");
  EXPECT_EQ(layers->add(dup), Acad::eDuplicateRecordName);
  delete dup;
  auto *wrong = new AcDbTextStyleTableRecord;
  wrong->setName(L"X");
  EXPECT_EQ(layers->add(wrong), Acad::eWrongObjectType);
  delete wrong;
  EXPECT_EQ(AcDbLayerTableRecord().setName(L"a*b"), Acad::eInvalidSymbolTableName);

  AcDbLayerTableRecord *walls = nullptr;
  ASSERT_EQ(layers->getAt(L"walls", walls, AcDb::kForWrite), Acad::eOk);
  EXPECT_EQ(walls->setName(L"0"), Acad::eDuplicateRecordName);
  EXPECT_EQ(walls->setName(L"Partitions"), Acad::eOk);
  walls->close();
  EXPECT_FALSE(layers->has(L"Walls"));
  EXPECT_TRUE(layers->has(L"partitions"));

  AcDbSymbolTableIterator *it = nullptr;
  layers->newIterator(it);
  std::vector<std::wstring> names;
  for (; !it->done(); it->step()) {
    AcDbObjectId rid;
    it->getRecordId(rid);
    names.push_back(vantry::host::recordName(rid));
  }
  delete it;
  layers->close();
  EXPECT_EQ(names, (std::vector<std::wstring>{L"0", L"Partitions"}));
}

TEST(DbTables, BlockRecordIteratesItsEntitiesAndSkipsErased) {
  AcDbDatabase db;
  AcDbObjectId a = append(db, new AcDbLine());
  AcDbObjectId b = append(db, new AcDbCircle());
  AcDbObjectId c = append(db, new AcDbArc());
  AcDbEntity *e = nullptr;
  ASSERT_EQ(acdbOpenAcDbEntity(e, b, AcDb::kForWrite), Acad::eOk);
  e->erase();
  e->close();
  AcDbBlockTableRecord *ms = nullptr;
  ASSERT_EQ(acdbOpenObject(ms, vantry::host::recordId(db.blockTableId(), L"*Model_Space"), AcDb::kForRead),
            Acad::eOk);
  AcDbLine refused;
  EXPECT_EQ(ms->appendAcDbEntity(&refused), Acad::eNotOpenForWrite);
  EXPECT_TRUE(refused.objectId().isNull());
  AcDbBlockTableRecordIterator *it = nullptr;
  ms->newIterator(it);
  std::vector<AcDbObjectId> seen;
  for (; !it->done(); it->step()) {
    AcDbObjectId id;
    it->getEntityId(id);
    seen.push_back(id);
  }
  delete it;
  ms->close();
  EXPECT_EQ(seen, (std::vector<AcDbObjectId>{a, c}));

  // A new entity takes the database's current layer.
  AcDbEntity *ent = nullptr;
  ASSERT_EQ(acdbOpenAcDbEntity(ent, a, AcDb::kForRead), Acad::eOk);
  EXPECT_EQ(ent->layerId(), db.clayer());
  ent->close();
}

TEST(DbGroups, OrderedMembersSelectableAndErasedSkipped) {
  AcDbDatabase db;
  AcDbObjectId l1 = append(db, new AcDbLine()), l2 = append(db, new AcDbLine()),
               l3 = append(db, new AcDbLine());
  AcDbDictionary *groups = nullptr;
  ASSERT_EQ(db.getGroupDictionary(groups, AcDb::kForWrite), Acad::eOk);
  auto *g = new AcDbGroup(L"ducts", false);
  AcDbObjectId gid;
  ASSERT_EQ(groups->setAt(L"RUN1", g, gid), Acad::eOk);
  groups->close();
  EXPECT_EQ(g->append(l2), Acad::eOk);
  EXPECT_EQ(g->append(l3), Acad::eOk);
  EXPECT_EQ(g->prepend(l1), Acad::eOk);
  EXPECT_NE(g->append(l1), Acad::eOk);  // once only
  EXPECT_FALSE(g->isSelectable());
  EXPECT_EQ(g->setSelectable(true), Acad::eOk);
  g->close();

  AcDbEntity *e = nullptr;
  ASSERT_EQ(acdbOpenAcDbEntity(e, l2, AcDb::kForWrite), Acad::eOk);
  EXPECT_TRUE(e->hasPersistentReactor(gid));
  e->erase();
  e->close();

  AcDbGroup *rg = nullptr;
  ASSERT_EQ(acdbOpenObject(rg, gid, AcDb::kForRead), Acad::eOk);
  AcDbObjectIdArray ids;
  EXPECT_EQ(rg->allEntityIds(ids), 2u);
  EXPECT_EQ(ids[0], l1);
  EXPECT_EQ(ids[1], l3);
  EXPECT_TRUE(rg->isSelectable());
  EXPECT_EQ(rg->setDescription(L"x"), Acad::eNotOpenForWrite);
  ACHAR *name = nullptr;
  ASSERT_EQ(rg->getName(name), Acad::eOk);
  EXPECT_STREQ(name, L"RUN1");
  acutDelString(name);
  rg->close();
}

TEST(DbXData, RoundTripReplaceRemoveAndRefuse) {
  AcDbDatabase db;
  AcDbObjectId id = append(db, new AcDbLine());
  vantry::host::ensureRecord(db.regAppTableId(), AcDbRegAppTableRecord::desc(), L"VANTRY");
  AcDbEntity *e = nullptr;
  ASSERT_EQ(acdbOpenAcDbEntity(e, id, AcDb::kForWrite), Acad::eOk);
  double pt[3] = {1, 2, 3};
  resbuf *rb =
      acutBuildList(1001, L"VANTRY", 1000, L"duct", 1002, L"{", 1070, 42, 1040, 2.5, 1010, pt, 1002, L"}", 0);
  ASSERT_EQ(e->setXData(rb), Acad::eOk);
  acutRelRb(rb);

  resbuf *back = e->xData(L"vantry");
  std::vector<int> codes;
  for (resbuf *p = back; p; p = p->rbnext) codes.push_back(p->restype);
  EXPECT_EQ(codes, (std::vector<int>{1001, 1000, 1002, 1070, 1040, 1010, 1002}));
  EXPECT_STREQ(back->rbnext->resval.rstring, L"duct");
  EXPECT_DOUBLE_EQ(back->rbnext->rbnext->rbnext->rbnext->resval.rreal, 2.5);
  acutRelRb(back);

  struct {
    resbuf *chain;
    Acad::ErrorStatus expect;
  } bad[] = {
      {acutBuildList(1001, L"NOT_REGISTERED", 1000, L"x", 0), Acad::eKeyNotFound},
      {acutBuildList(1001, L"VANTRY", 1002, L"{", 1000, L"x", 0), Acad::eInvalidResBuf},
      {acutBuildList(1001, L"VANTRY", 1002, L"}", 0), Acad::eInvalidResBuf},
      {acutBuildList(1001, L"VANTRY", 8, L"layer", 0), Acad::eInvalidResBuf},
      {acutBuildList(1000, L"no app", 0), Acad::eInvalidResBuf},
  };
  for (auto &c : bad) {
    EXPECT_EQ(e->setXData(c.chain), c.expect);
    acutRelRb(c.chain);
  }
  // A refused call changed nothing; an empty group removes the data.
  resbuf *still = e->xData(L"VANTRY");
  EXPECT_NE(still, nullptr);
  acutRelRb(still);
  resbuf *clear = acutBuildList(1001, L"VANTRY", 0);
  EXPECT_EQ(e->setXData(clear), Acad::eOk);
  acutRelRb(clear);
  EXPECT_EQ(e->xData(L"VANTRY"), nullptr);
  e->close();
}

TEST(DbTransactions, EndClosesAbortRestores) {
  AcDbDatabase db;
  AcDbObjectId id = append(db, new AcDbCircle(AcGePoint3d(0, 0, 0), AcGeVector3d::kZAxis, 1));
  AcTransactionManager *tm = db.transactionManager();

  tm->startTransaction();
  AcDbObject *o = nullptr, *same = nullptr;
  ASSERT_EQ(tm->getObject(o, id, AcDb::kForRead), Acad::eOk);
  ASSERT_EQ(tm->getObject(same, id, AcDb::kForWrite), Acad::eOk);
  EXPECT_EQ(o, same);
  AcDbCircle::cast(o)->setRadius(7);
  tm->abortTransaction();
  AcDbCircle *c = nullptr;
  ASSERT_EQ(acdbOpenObject(c, id, AcDb::kForWrite), Acad::eOk);  // closed by the abort
  EXPECT_DOUBLE_EQ(c->radius(), 1);
  c->close();

  tm->startTransaction();
  ASSERT_EQ(tm->getObject(o, id, AcDb::kForWrite), Acad::eOk);
  AcDbCircle::cast(o)->setRadius(9);
  tm->endTransaction();
  ASSERT_EQ(acdbOpenObject(c, id, AcDb::kForRead), Acad::eOk);
  EXPECT_DOUBLE_EQ(c->radius(), 9);
  c->close();
  EXPECT_NE(tm->endTransaction(), Acad::eOk);
}

TEST(DbAnnotative, ThroughTheClassDescriptor) {
  AcDbDatabase db;
  auto *pe = AcDbAnnotativeObjectPE::cast(AcDbMText::desc()->queryX(AcDbAnnotativeObjectPE::desc()));
  ASSERT_NE(pe, nullptr);
  EXPECT_EQ(AcDbLine::desc()->queryX(AcDbAnnotativeObjectPE::desc()), nullptr);
  EXPECT_NE(AcDbBlockTableRecord::desc()->queryX(AcDbAnnotativeObjectPE::desc()), nullptr);

  AcDbObjectId id = append(db, new AcDbMText());
  AcDbObject *m = nullptr;
  ASSERT_EQ(acdbOpenObject(m, id, AcDb::kForRead), Acad::eOk);
  EXPECT_FALSE(pe->annotative(m));
  EXPECT_EQ(pe->setAnnotative(m, true), Acad::eNotOpenForWrite);
  ASSERT_EQ(m->upgradeOpen(), Acad::eOk);
  EXPECT_EQ(pe->setAnnotative(m, true), Acad::eOk);
  EXPECT_TRUE(pe->annotative(m));
  EXPECT_EQ(pe->setAnnotative(m, false), Acad::eOk);
  EXPECT_FALSE(pe->annotative(m));
  m->close();
  EXPECT_FALSE(vantry::host::recordId(db.regAppTableId(), L"AcadAnnotative").isNull());
}

}  // namespace
