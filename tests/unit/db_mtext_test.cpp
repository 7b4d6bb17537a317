// MText: stored settings, their validation, and metrics that behave as text
// does (through the MText layout with the text style's font).
#include <gtest/gtest.h>

#include <cmath>

#include "db/db.h"

namespace {

class DbMTextTest : public ::testing::Test {
 protected:
  // Appends an MText to model space and keeps it open for write.
  AcDbMText *add(const wchar_t *contents, double height = 2.5, double width = 0) {
    auto *m = new AcDbMText();
    m->setContents(contents);
    m->setTextHeight(height);
    m->setWidth(width);
    AcDbBlockTableRecord *ms = nullptr;
    EXPECT_EQ(
        acdbOpenObject(ms, vantry::host::recordId(db.blockTableId(), ACDB_MODEL_SPACE), AcDb::kForWrite),
        Acad::eOk);
    EXPECT_EQ(ms->appendAcDbEntity(m), Acad::eOk);
    ms->close();
    return m;
  }
  AcDbDatabase db;
};

TEST_F(DbMTextTest, MetricsBehaveAsText) {
  AcDbMText *shortText = add(L"AB");
  AcDbMText *longText = add(L"ABABABAB");
  EXPECT_GT(shortText->actualWidth(), 0);
  EXPECT_GT(longText->actualWidth(), 3 * shortText->actualWidth());

  AcDbMText *empty = add(L"", 3.0);
  EXPECT_NEAR(empty->actualHeight(), 3.0, 1e-9);

  AcDbMText *oneLine = add(L"one two three four", 2.5, 0);
  AcDbMText *wrapped = add(L"one two three four", 2.5, oneLine->actualWidth() / 2);
  EXPECT_GT(wrapped->actualHeight(), 1.5 * oneLine->actualHeight());
  EXPECT_LT(wrapped->actualWidth(), oneLine->actualWidth());

  AcDbMText *tall = add(L"AB", 5.0);
  EXPECT_NEAR(tall->actualWidth(), 2 * shortText->actualWidth(), 1e-6);
  EXPECT_GE(tall->descent(), 0);
  EXPECT_GT(tall->ascent(), 0);
  for (AcDbMText *m : {shortText, longText, empty, oneLine, wrapped, tall}) m->close();
}

TEST_F(DbMTextTest, TextStyleWidthFactorWidens) {
  AcDbTextStyleTable *styles = nullptr;
  ASSERT_EQ(db.getTextStyleTable(styles, AcDb::kForWrite), Acad::eOk);
  auto *wide = new AcDbTextStyleTableRecord;
  wide->setName(L"Wide");
  wide->setFileName(L"txt");
  wide->setXScale(2.0);
  AcDbObjectId wideId;
  ASSERT_EQ(styles->add(wideId, wide), Acad::eOk);
  wide->close();
  styles->close();
  AcDbMText *a = add(L"HELLO"), *b = add(L"HELLO");
  ASSERT_EQ(b->setTextStyle(wideId), Acad::eOk);
  EXPECT_NEAR(b->actualWidth(), 2 * a->actualWidth(), 1e-6);
  EXPECT_EQ(b->setTextStyle(db.layerTableId()), Acad::eInvalidInput);
  a->close();
  b->close();
}

TEST_F(DbMTextTest, SettersValidate) {
  AcDbMText *m = add(L"x");
  struct {
    Acad::ErrorStatus got, want;
  } cases[] = {
      {m->setTextHeight(0), Acad::eInvalidInput},
      {m->setWidth(-1), Acad::eInvalidInput},
      {m->setAttachment(AcDbMText::AttachmentPoint(0)), Acad::eInvalidInput},
      {m->setAttachment(AcDbMText::AttachmentPoint(10)), Acad::eInvalidInput},
      {m->setAttachment(AcDbMText::kBottomRight), Acad::eOk},
      {m->setBackgroundScaleFactor(0.5), Acad::eInvalidInput},
      {m->setBackgroundScaleFactor(1.5), Acad::eOk},
      {m->setDirection(AcGeVector3d(0, 0, 0)), Acad::eInvalidInput},
      {m->setDirection(AcGeVector3d(0, 0, 2)), Acad::eInvalidInput},  // along the normal
      {m->setNormal(AcGeVector3d(0, 0, 0)), Acad::eInvalidInput},
      {m->setLineSpacingFactor(5), Acad::eInvalidInput},
  };
  for (size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) EXPECT_EQ(cases[i].got, cases[i].want) << i;

  ASSERT_EQ(m->setDirection(AcGeVector3d(0, 3, 0)), Acad::eOk);
  EXPECT_TRUE(m->direction().isEqualTo(AcGeVector3d(0, 1, 0)));
  EXPECT_NEAR(m->rotation(), M_PI / 2, 1e-12);
  // A new normal keeps the direction in the text's plane.
  ASSERT_EQ(m->setNormal(AcGeVector3d(0, 1, 0)), Acad::eOk);
  EXPECT_NEAR(m->direction().dotProduct(m->normal()), 0, 1e-12);
  EXPECT_NEAR(m->direction().length(), 1, 1e-12);
  m->close();
  EXPECT_EQ(m->setWidth(10), Acad::eNotOpenForWrite);
}

TEST_F(DbMTextTest, ExtentsFollowTheAttachmentPoint) {
  AcDbMText *m = add(L"Text");
  m->setLocation(AcGePoint3d(10, 10, 0));
  double w = m->actualWidth(), h = m->actualHeight();
  AcDbExtents e;
  ASSERT_EQ(m->getGeomExtents(e), Acad::eOk);
  EXPECT_NEAR(e.minPoint().x, 10, 1e-9);
  EXPECT_NEAR(e.maxPoint().y, 10, 1e-9);
  EXPECT_NEAR(e.maxPoint().x - e.minPoint().x, w, 1e-9);
  m->setAttachment(AcDbMText::kBottomRight);
  ASSERT_EQ(m->getGeomExtents(e), Acad::eOk);
  EXPECT_NEAR(e.maxPoint().x, 10, 1e-9);
  EXPECT_NEAR(e.minPoint().y, 10, 1e-9);
  EXPECT_NEAR(e.maxPoint().y, 10 + h, 1e-9);
  m->close();
}

TEST_F(DbMTextTest, BackgroundMaskInTheExchangeForm) {
  AcDbMText *m = add(L"masked");
  m->setBackgroundFill(true);
  m->setBackgroundScaleFactor(2.0);
  m->setUseBackgroundColor(true);
  AcDbDxfFiler f;
  m->dxfOutFields(&f);
  int64_t bg = 0;
  double scale = 0;
  ASSERT_TRUE(f.getInt(90, bg));
  EXPECT_EQ(bg, 3);
  ASSERT_TRUE(f.getDouble(45, scale));
  EXPECT_DOUBLE_EQ(scale, 2.0);

  AcDbMText *copy = add(L"");
  ASSERT_EQ(copy->dxfInFields(&f), Acad::eOk);
  EXPECT_TRUE(copy->backgroundFillOn());
  EXPECT_TRUE(copy->useBackgroundColorOn());
  EXPECT_DOUBLE_EQ(copy->getBackgroundScaleFactor(), 2.0);
  ACHAR *text = copy->contents();
  EXPECT_STREQ(text, L"masked");
  acutDelString(text);
  copy->close();
  m->close();
}

}  // namespace
