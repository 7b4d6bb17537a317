// New entities from LISP (MText, leaders) reaching model space: where they
// go, the alerts when model space cannot be had, and the document lock.
#include <gtest/gtest.h>

#include "session/session.h"
#include "module_fixture.h"

namespace vantry {
namespace {

using host::Session;

class AppendTest : public ModuleFixture {
 protected:
  AcDbDatabase *drawing() { return Session::get().current()->database(); }

  // The entities of a drawing's model space.
  static int modelSpaceCount(AcDbDatabase *db) {
    AcDbBlockTable *table = nullptr;
    EXPECT_EQ(db->getBlockTable(table, AcDb::kForRead), Acad::eOk);
    AcDbBlockTableRecord *model = nullptr;
    EXPECT_EQ(table->getAt(ACDB_MODEL_SPACE, model, AcDb::kForRead), Acad::eOk);
    table->close();
    AcDbBlockTableRecordIterator *it = nullptr;
    model->newIterator(it, true, true);
    int n = 0;
    for (; !it->done(); it->step(true, true)) ++n;
    delete it;
    model->close();
    return n;
  }
};

const wchar_t *const kMakers[] = {
    L"(AcDbMText::insert \"x\" '(1.0 2.0 0.0))",
    L"(AcDbLeader::create '(0.0 0.0 0.0) '(1.0 1.0 0.0))",
};

// The block table or model space held open for write elsewhere: the step
// that failed is told, the result is nil, nothing is added, and the
// document's lock is given back.
TEST_F(AppendTest, AlertsNameTheStepThatFailed) {
  host::Document *doc = Session::get().current();
  for (const wchar_t *make : kMakers) {
    AcDbBlockTable *table = nullptr;
    ASSERT_EQ(drawing()->getBlockTable(table, AcDb::kForWrite), Acad::eOk);
    Session::get().clearTranscript();
    EXPECT_EQ(lisp(make), L"nil") << make;
    EXPECT_EQ(Session::get().transcript().rfind(L"[Alert] Failed to get block table!\n", 0), 0u) << make;

    AcDbBlockTableRecord *model = nullptr;
    ASSERT_EQ(table->getAt(ACDB_MODEL_SPACE, model, AcDb::kForWrite), Acad::eOk);
    table->close();
    Session::get().clearTranscript();
    EXPECT_EQ(lisp(make), L"nil") << make;
    EXPECT_EQ(Session::get().transcript().rfind(L"[Alert] Failed to get block table record!\n", 0), 0u)
        << make;
    model->close();

    EXPECT_EQ(modelSpaceCount(drawing()), 0) << make;
    EXPECT_EQ(doc->lockCount_, 0) << make;
  }
  Session::get().clearTranscript();
  EXPECT_EQ(lisp(L"(cdr (assoc 0 (entget " + std::wstring(kMakers[0]) + L")))"), L"\"MTEXT\"");
  EXPECT_EQ(Session::get().transcript(), L"");
}

// A working database pointed at a side drawing does not take the new
// entities: they go to the current document's model space, under its lock.
TEST_F(AppendTest, NewEntitiesGoToTheCurrentDocument) {
  host::Document *doc = Session::get().current();
  auto *side = new AcDbDatabase(true, true);
  acdbHostApplicationServices()->setWorkingDatabase(side);
  for (const wchar_t *make : kMakers) {
    int before = modelSpaceCount(drawing()), locks = doc->lockCalls_;
    Session::get().clearTranscript();
    EXPECT_EQ(lisp(L"(type " + std::wstring(make) + L")"), L"ENAME") << make;
    EXPECT_EQ(Session::get().transcript(), L"") << make;
    EXPECT_EQ(modelSpaceCount(drawing()), before + 1) << make;
    // At least the append's own lock, on the current document (the call
    // frame locks the working database's document, which here is none).
    EXPECT_GE(doc->lockCalls_, locks + 1) << make;
    EXPECT_EQ(doc->lockCount_, 0) << make;
  }
  EXPECT_EQ(modelSpaceCount(side), 0);
  acdbHostApplicationServices()->setWorkingDatabase(nullptr);
  delete side;
}

}  // namespace
}  // namespace vantry
