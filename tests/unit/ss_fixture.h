// A fresh host session with one drawing, and helpers that put entities in
// its model space (or a block) and run selections, freeing every set.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "select/select.h"
#include "host_fixture.h"

namespace vantry::host {

class SelectTest : public HostTest {
 protected:
  SelectTest() { select::resetSelection(); }
  ~SelectTest() override {
    EXPECT_EQ(select::liveSets(), baseSets_) << "a selection set was not freed";
    select::resetSelection();
  }

  AcDbDatabase *db() { return workingDatabase(); }

  // Appends an entity to a block record (model space by default); the
  // record keeps it. Returns its id.
  AcDbObjectId add(AcDbEntity *ent, AcDbObjectId block = AcDbObjectId::kNull) {
    if (block.isNull()) block = db()->impl()->modelSpace;
    AcDbBlockTableRecord *rec = nullptr;
    EXPECT_EQ(acdbOpenObject(rec, block, AcDb::kForWrite), Acad::eOk);
    AcDbObjectId id;
    EXPECT_EQ(rec->appendAcDbEntity(id, ent), Acad::eOk);
    ent->close();
    rec->close();
    return id;
  }

  AcDbObjectId line(double x0, double y0, double x1, double y1) {
    return add(new AcDbLine(AcGePoint3d(x0, y0, 0), AcGePoint3d(x1, y1, 0)));
  }
  AcDbObjectId circle(double x, double y, double r) {
    return add(new AcDbCircle(AcGePoint3d(x, y, 0), AcGeVector3d::kZAxis, r));
  }

  // A new block definition; its id.
  AcDbObjectId block(const wchar_t *name) {
    AcDbBlockTable *bt = nullptr;
    EXPECT_EQ(db()->getBlockTable(bt, AcDb::kForWrite), Acad::eOk);
    auto *rec = new AcDbBlockTableRecord;
    rec->setName(name);
    AcDbObjectId id;
    EXPECT_EQ(bt->add(id, rec), Acad::eOk);
    rec->close();
    bt->close();
    return id;
  }

  // Runs acedSSGet; the members (empty when it did not answer RTNORM), the
  // status in *rc. The set is freed.
  std::vector<AcDbObjectId> select(const wchar_t *mode, const void *pt1 = nullptr, const void *pt2 = nullptr,
                                   const resbuf *filter = nullptr, int *rc = nullptr) {
    ads_name ss;
    int status = acedSSGet(mode, pt1, pt2, filter, ss);
    if (rc) *rc = status;
    std::vector<AcDbObjectId> out;
    if (status != RTNORM) return out;
    int32_t n = -1;
    EXPECT_EQ(acedSSLength(ss, &n), RTNORM);
    for (int32_t i = 0; i < n; ++i) {
      ads_name e;
      EXPECT_EQ(acedSSName(ss, i, e), RTNORM);
      AcDbObjectId id;
      acdbGetObjectId(id, e);
      out.push_back(id);
    }
    EXPECT_EQ(acedSSFree(ss), RTNORM);
    return out;
  }

  std::vector<AcDbObjectId> window(bool crossing, double x0, double y0, double x1, double y1,
                                   const resbuf *filter = nullptr) {
    ads_point a = {x0, y0, 0}, b = {x1, y1, 0};
    return select(crossing ? L"_C" : L"_W", a, b, filter);
  }

  static bool has(const std::vector<AcDbObjectId> &ids, AcDbObjectId id) {
    return std::find(ids.begin(), ids.end(), id) != ids.end();
  }

  void queuePick(double x, double y) {
    InputItem item;
    item.kind = InputItem::Pick;
    item.pt[0] = x, item.pt[1] = y;
    s().input.push_back(item);
  }

  int baseSets_ = 0;
};

}  // namespace vantry::host
