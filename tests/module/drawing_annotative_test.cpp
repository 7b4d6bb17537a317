// Annotative scaling from LISP: block definitions behind references, and
// objects whose class offers the annotative protocol. Blocks are built here
// with the host's API, since LISP cannot define them in this host.
#include <gtest/gtest.h>

#include "database/context.h"
#include "session/session.h"
#include "module_fixture.h"

namespace vantry {
namespace {

using host::Session;

class AnnotativeTest : public ModuleFixture {
 protected:
  AnnotativeTest() { db_ = acdbHostApplicationServices()->workingDatabase(); }
  AcDbObjectId appendToModel(AcDbEntity *ent) {
    AcDbBlockTable *table = nullptr;
    EXPECT_EQ(db_->getBlockTable(table, AcDb::kForRead), Acad::eOk);
    AcDbBlockTableRecord *model = nullptr;
    EXPECT_EQ(table->getAt(ACDB_MODEL_SPACE, model, AcDb::kForWrite), Acad::eOk);
    EXPECT_EQ(model->appendAcDbEntity(ent), Acad::eOk);
    AcDbObjectId id = ent->objectId();
    ent->close();
    model->close();
    table->close();
    return id;
  }
  // A block holding one line, and a reference to it in model space; gives
  // the block's id and sets `ref` to the reference's.
  AcDbObjectId defineAndInsert(const wchar_t *name, AcDbObjectId &ref) {
    AcDbBlockTable *table = nullptr;
    EXPECT_EQ(db_->getBlockTable(table, AcDb::kForWrite), Acad::eOk);
    auto *block = new AcDbBlockTableRecord();
    block->setName(name);
    AcDbObjectId id;
    EXPECT_EQ(table->add(id, block), Acad::eOk);
    block->appendAcDbEntity(new AcDbLine(AcGePoint3d(0, 0, 0), AcGePoint3d(1, 0, 0)));
    block->close();
    table->close();
    ref = appendToModel(new AcDbBlockReference(AcGePoint3d(5, 5, 0), id));
    return id;
  }
  bool annotative(AcDbObjectId id) {
    AcDbObjectPointer<AcDbObject> obj(id, AcDb::kForRead);
    auto *pe = AcDbAnnotativeObjectPE::cast(obj->isA()->queryX(AcDbAnnotativeObjectPE::desc()));
    return pe && pe->annotative(obj);
  }
  AcDbObjectId line() { return appendToModel(new AcDbLine(AcGePoint3d(0, 0, 0), AcGePoint3d(1, 0, 0))); }
  // The LISP expression naming the entity.
  static std::wstring name(AcDbObjectId id) { return L"(handent \"" + id.handle().toString() + L"\")"; }
  AcDbDatabase *db_;
};

TEST_F(AnnotativeTest, BlockDefinitionNotReferenceBecomesAnnotative) {
  AcDbObjectId ref;
  AcDbObjectId block = defineAndInsert(L"VALVE", ref);
  EXPECT_EQ(lisp(L"(SetAnnoBlock " + name(ref) + L" T)"), L"nil");
  EXPECT_TRUE(annotative(block));
  EXPECT_FALSE(annotative(ref));
  EXPECT_EQ(lisp(L"(SetAnnoBlock " + name(ref) + L" nil)"), L"nil");
  EXPECT_FALSE(annotative(block));
}

TEST_F(AnnotativeTest, SetAnnoBlockStatuses) {
  AcDbObjectId ref;
  AcDbObjectId block = defineAndInsert(L"VALVE", ref);
  Session &console = Session::get();
  console.clearTranscript();
  EXPECT_EQ(lisp(L"(SetAnnoBlock " + name(ref) + L")"), L"ERROR: ADS request error");
  EXPECT_EQ(lisp(L"(SetAnnoBlock \"VALVE\" T)"), L"ERROR: ADS request error");
  EXPECT_EQ(console.transcript(), L"\nWrong type of arguments passed.\n\nWrong type of arguments passed.\n");
  // Any other entity is left alone.
  AcDbObjectId other = line();
  EXPECT_EQ(lisp(L"(SetAnnoBlock " + name(other) + L" T)"), L"nil");
  EXPECT_FALSE(annotative(other));
  EXPECT_FALSE(annotative(block));
  // An erased reference cannot be opened: bad data.
  console.clearTranscript();
  EXPECT_EQ(lisp(L"(setq e " + name(ref) + L") (entdel e) (SetAnnoBlock e T)"), L"ERROR: ADS request error");
  EXPECT_EQ(console.transcript(), L"\nBad data passed .\n");
}

TEST_F(AnnotativeTest, ObjectsOfAnnotativeClasses) {
  auto *text = new AcDbMText();
  text->setContents(L"note");
  AcDbObjectId note = appendToModel(text);
  const std::wstring set = L"(AcDbAnnotativeObjectPE::setAnnotative " + name(note);
  EXPECT_EQ(lisp(set + L" T)"), L"nil");
  EXPECT_TRUE(annotative(note));
  lisp(set + L" nil)");
  EXPECT_FALSE(annotative(note));
  // A missing flag is a wrong type, and the text is closed again.
  EXPECT_EQ(lisp(set + L")"), L"ERROR: ADS request error");
  EXPECT_EQ(lisp(set + L" T)"), L"nil");
  EXPECT_TRUE(annotative(note));
  // A line has no annotative protocol: nothing happens.
  AcDbObjectId other = line();
  EXPECT_EQ(lisp(L"(AcDbAnnotativeObjectPE::setAnnotative " + name(other) + L" T)"), L"nil");
  EXPECT_FALSE(annotative(other));
}

}  // namespace
}  // namespace vantry
