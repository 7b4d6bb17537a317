// Block references from LISP: the model-space scan by block name and the
// block reference jig, over blocks built with the host's API (LISP cannot
// define blocks in this host); and the host's jig contract that the
// module's jigs stand on.
#include <gtest/gtest.h>

#include "session/session.h"
#include "select/select.h"
#include "module_fixture.h"

namespace vantry {
namespace {

using host::Session;

class BlockSelectionTest : public ModuleFixture {
 protected:
  BlockSelectionTest() { db_ = acdbHostApplicationServices()->workingDatabase(); }

  AcDbObjectId append(AcDbEntity *ent, const wchar_t *space = ACDB_MODEL_SPACE) {
    AcDbBlockTable *table = nullptr;
    EXPECT_EQ(db_->getBlockTable(table, AcDb::kForRead), Acad::eOk);
    AcDbBlockTableRecord *record = nullptr;
    EXPECT_EQ(table->getAt(space, record, AcDb::kForWrite), Acad::eOk);
    table->close();
    AcDbObjectId id;
    EXPECT_EQ(record->appendAcDbEntity(id, ent), Acad::eOk);
    ent->close();
    record->close();
    return id;
  }
  AcDbObjectId define(const wchar_t *name) {
    AcDbBlockTable *table = nullptr;
    EXPECT_EQ(db_->getBlockTable(table, AcDb::kForWrite), Acad::eOk);
    auto *block = new AcDbBlockTableRecord();
    block->setName(name);
    AcDbObjectId id;
    EXPECT_EQ(table->add(id, block), Acad::eOk);
    auto *line = new AcDbLine(AcGePoint3d(0, 0, 0), AcGePoint3d(1, 0, 0));
    block->appendAcDbEntity(line);
    line->close();
    block->close();
    table->close();
    return id;
  }
  AcDbObjectId insert(AcDbObjectId block, AcGePoint3d at, const wchar_t *space = ACDB_MODEL_SPACE) {
    return append(new AcDbBlockReference(at, block), space);
  }
  static std::wstring name(AcDbObjectId id) { return L"(handent \"" + id.handle().toString() + L"\")"; }
  // The LISP list of the entities' names, as printed.
  std::wstring names(std::initializer_list<AcDbObjectId> ids) {
    std::wstring text = L"(list";
    for (AcDbObjectId id : ids) text += L" " + name(id);
    return lisp(text + L")");
  }
  AcGePoint3d position(AcDbObjectId id) {
    AcDbObjectPointer<AcDbBlockReference> ref(id, AcDb::kForRead);
    return ref->position();
  }
  void queue(std::initializer_list<host::InputItem> items) {
    for (const host::InputItem &item : items) Session::get().input.push_back(item);
  }
  static host::InputItem point(double x, double y, double z = 0) {
    host::InputItem item;
    item.kind = host::InputItem::Point;
    item.pt[0] = x, item.pt[1] = y, item.pt[2] = z;
    return item;
  }
  static host::InputItem text(const wchar_t *t) {
    host::InputItem item;
    item.kind = host::InputItem::Text;
    item.text = t;
    return item;
  }
  static host::InputItem of(host::InputItem::Kind kind) {
    host::InputItem item;
    item.kind = kind;
    return item;
  }
  AcDbDatabase *db_;
};

TEST_F(BlockSelectionTest, ScanByBlockNameIgnoresCaseAndPaperSpace) {
  AcDbObjectId valve = define(L"VALVE"), damper = define(L"Fire-Damper"), valve2 = define(L"Valve2");
  AcDbObjectId v1 = insert(valve, {0, 0, 0}), d1 = insert(damper, {5, 0, 0});
  append(new AcDbLine(AcGePoint3d(0, 0, 0), AcGePoint3d(1, 1, 0)));
  AcDbObjectId v2 = insert(valve, {9, 0, 0}), s1 = insert(valve2, {7, 7, 0});
  insert(valve, {3, 3, 0}, ACDB_PAPER_SPACE);

  struct Case {
    const wchar_t *call;
    std::initializer_list<AcDbObjectId> expected;
  } cases[] = {
      {L"(ssgetX-block \"valve\")", {v1, v2}},   {L"(ssgetX-block \"VALVE\")", {v1, v2}},
      {L"(ssgetX-block \"fire-damper\")", {d1}}, {L"(ssgetX-block \"valve2\")", {s1}},
      {L"(ssgetX-block \"VALVE*\")", {}},  // no wildcards
      {L"(ssgetX-block \"VALV\")", {}},          {L"(ssgetX-block \"\")", {}},
      {L"(ssgetX-block)", {v1, d1, v2, s1}},     {L"(ssgetX-block 12)", {v1, d1, v2, s1}},
  };
  for (const Case &c : cases) EXPECT_EQ(lisp(c.call), names(c.expected)) << c.call;
}

// Block names fold as the host's symbol tables fold them, accented Latin
// letters included, and only whole names match.
TEST_F(BlockSelectionTest, ScanByBlockNameFoldsAccentedLetters) {
  AcDbObjectId vanne = define(L"VANNE-\u00C9T\u00C9"), ecluse = define(L"\u00E9cluse");
  AcDbObjectId v = insert(vanne, {0, 0, 0}), e = insert(ecluse, {5, 0, 0});
  struct Case {
    const wchar_t *call;
    std::initializer_list<AcDbObjectId> expected;
  } cases[] = {
      {L"(ssgetX-block \"vanne-\u00E9t\u00E9\")", {v}},
      {L"(ssgetX-block \"Vanne-\u00C9t\u00E9\")", {v}},
      {L"(ssgetX-block \"\u00C9CLUSE\")", {e}},
      {L"(ssgetX-block \"ECLUSE\")", {}},  // a different letter, not a case
      {L"(ssgetX-block \"vanne-*\")", {}},
  };
  for (const Case &c : cases) EXPECT_EQ(lisp(c.call), names(c.expected)) << c.call;
}

// Every host selection is freed, whatever it gave: members, nothing, a
// cancel, a keyword, a malformed polygon.
TEST_F(BlockSelectionTest, HostSelectionsAreFreed) {
  append(new AcDbLine(AcGePoint3d(1, 1, 0), AcGePoint3d(2, 2, 0)));
  append(new AcDbCircle(AcGePoint3d(8, 8, 0), AcGeVector3d::kZAxis, 1));
  host::InputItem pick = point(1.5, 1.5);
  pick.kind = host::InputItem::Pick;
  struct Case {
    const wchar_t *call;
    std::vector<host::InputItem> answers;
    bool some;
  } cases[] = {
      {L"(ssgetC '(0 0) '(10 10))", {}, true},
      {L"(ssgetC '(0 0) '(10 10) '((0 . \"CIRCLE\")))", {}, true},
      {L"(ssgetC '(0 0) '(10 10) '((0 . \"ARC\")))", {}, false},
      {L"(ssgetC '(50 50) '(60 60))", {}, false},
      {L"(ssgetCP '(0 0) '(12 0) '(0 12))", {}, true},
      {L"(ssgetCP '(0 0) '(12 0))", {}, false},
      {L"(ssgetCP \"corner\")", {}, false},
      {L"(ssgetPK)", {pick, of(host::InputItem::Empty)}, true},
      {L"(ssgetPK \"Add: \" \"Drop: \" \"EXit\")", {pick, text(L"ex")}, false},
      {L"(ssgetPK \"Add: \")", {pick, of(host::InputItem::Cancel)}, false},
      {L"(ssgetPK nil nil nil '((0 . \"ARC\")))", {text(L"all"), of(host::InputItem::Empty)}, false},
  };
  for (const Case &c : cases) {
    int live = host::select::liveSets();
    for (const host::InputItem &item : c.answers) Session::get().input.push_back(item);
    std::wstring result = lisp(c.call);
    EXPECT_EQ(result != L"nil", c.some) << c.call << L" gave " << result;
    EXPECT_EQ(host::select::liveSets(), live) << c.call;
    EXPECT_TRUE(Session::get().input.empty()) << c.call;
  }
}

TEST_F(BlockSelectionTest, ScanSkipsErasedReferences) {
  AcDbObjectId valve = define(L"VALVE");
  AcDbObjectId v1 = insert(valve, {0, 0, 0}), v2 = insert(valve, {1, 0, 0});
  EXPECT_EQ(lisp(L"(entdel " + name(v1) + L") (ssgetX-block \"valve\")"), names({v2}));
}

TEST_F(BlockSelectionTest, BlockJigPlacesTheReference) {
  AcDbObjectId ref = insert(define(L"VALVE"), {1, 2, 0});
  struct Case {
    std::vector<host::InputItem> answers;
    const wchar_t *extra;
    std::wstring result;
    AcGePoint3d after;
  } cases[] = {
      {{point(10, 20)}, L"", L"(10.0 20.0 0.0)", {10, 20, 0}},
      {{of(host::InputItem::Cancel)}, L" \"Insert valve: \"", L"nil", {10, 20, 0}},
      {{of(host::InputItem::Empty)}, L" \"Insert valve: \"", L"nil", {10, 20, 0}},
      {{text(L"r")}, L" \"Insert valve: \" \"Rotate Scale\"", L"\"Rotate\"", {10, 20, 0}},
      {{text(L"nothing"), point(4, 5, 6)}, L" nil \"Rotate\"", L"(4.0 5.0 6.0)", {4, 5, 6}},
  };
  for (const Case &c : cases) {
    for (const host::InputItem &item : c.answers) Session::get().input.push_back(item);
    std::wstring call = L"(AcDbBlockReference::Jig " + name(ref) + c.extra + L")";
    EXPECT_EQ(lisp(call), c.result) << call;
    EXPECT_TRUE(position(ref).isEqualTo(c.after)) << call;
    EXPECT_TRUE(Session::get().input.empty()) << call;
  }
  Session::get().clearTranscript();
  queue({point(0, 0)});
  lisp(L"(AcDbBlockReference::Jig " + name(ref) + L" \"Insert valve: \")");
  EXPECT_NE(Session::get().transcript().find(L"Insert valve: "), std::wstring::npos);
}

// A jig over a line's end, to see what the host's acquire functions answer.
class EndJig : public AcEdJig {
 public:
  enum What { kPoint, kPointFromBase, kAngle, kDist };
  explicit EndJig(What what) : what_(what), line_(AcGePoint3d(0, 0, 5), AcGePoint3d(1, 0, 5)) {}
  DragStatus sampler() override {
    AcGePoint3d base(0, 0, 5);
    switch (what_) {
      case kPoint:
        return acquirePoint(point_);
      case kPointFromBase:
        return acquirePoint(point_, base);
      case kAngle:
        return acquireAngle(value_, base);
      case kDist:
        return acquireDist(value_, base);
    }
    return kCancel;
  }
  bool update() override {
    ++updates_;
    return line_.setEndPoint(point_) == Acad::eOk;
  }
  AcDbEntity *entity() const override { return const_cast<AcDbLine *>(&line_); }
  What what_;
  AcDbLine line_;
  AcGePoint3d point_;
  double value_ = 0;
  int updates_ = 0;
};

TEST_F(BlockSelectionTest, JigAcquiresFromTheQueuedAnswer) {
  struct Case {
    const char *name;
    EndJig::What what;
    int controls;
    std::vector<host::InputItem> answers;
    AcEdJig::DragStatus status;
    AcGePoint3d point;
    double value;
  } cases[] = {
      {"a point, flattened", EndJig::kPoint, 0, {point(1, 2, 3)}, AcEdJig::kNormal, {1, 2, 0}, 0},
      {"a point in 3D",
       EndJig::kPoint,
       AcEdJig::kAccept3dCoordinates,
       {point(1, 2, 3)},
       AcEdJig::kNormal,
       {1, 2, 3},
       0},
      {"at the base's elevation",
       EndJig::kPointFromBase,
       AcEdJig::kUseBasePointElevation,
       {point(1, 2, 3)},
       AcEdJig::kNormal,
       {1, 2, 5},
       0},
      {"the second keyword", EndJig::kPoint, 0, {text(L"s")}, AcEdJig::kKW2, {}, 0},
      {"Enter asked again",
       EndJig::kPoint,
       0,
       {of(host::InputItem::Empty), point(1, 1)},
       AcEdJig::kNormal,
       {1, 1, 0},
       0},
      {"Enter accepted",
       EndJig::kPoint,
       AcEdJig::kNullResponseAccepted,
       {of(host::InputItem::Empty)},
       AcEdJig::kNull,
       {},
       0},
      {"other text refused", EndJig::kPoint, 0, {text(L"zz"), point(2, 2)}, AcEdJig::kNormal, {2, 2, 0}, 0},
      {"other text accepted",
       EndJig::kPoint,
       AcEdJig::kAcceptOtherInputString,
       {text(L"zz")},
       AcEdJig::kOther,
       {},
       0},
      {"cancel", EndJig::kPoint, 0, {of(host::InputItem::Cancel)}, AcEdJig::kCancel, {}, 0},
      {"an angle typed", EndJig::kAngle, 0, {text(L"45")}, AcEdJig::kNormal, {}, 0.7853981633974483},
      {"an angle shown", EndJig::kAngle, 0, {point(0, 3)}, AcEdJig::kNormal, {}, 1.5707963267948966},
      {"a zero distance refused",
       EndJig::kDist,
       AcEdJig::kNoZeroResponseAccepted,
       {text(L"0"), text(L"2.5")},
       AcEdJig::kNormal,
       {},
       2.5},
      {"a distance shown", EndJig::kDist, 0, {point(3, 4, 5)}, AcEdJig::kNormal, {}, 5},
  };
  for (const Case &c : cases) {
    EndJig jig(c.what);
    jig.setDispPrompt(L"%s %d: ", L"Case", 1);
    jig.setKeywordList(L"First Second");
    jig.setUserInputControls(AcEdJig::UserInputControls(c.controls));
    for (const host::InputItem &item : c.answers) Session::get().input.push_back(item);
    EXPECT_EQ(jig.drag(), c.status) << c.name;
    EXPECT_TRUE(Session::get().input.empty()) << c.name;
    EXPECT_EQ(jig.updates_, c.status == AcEdJig::kNormal ? 1 : 0) << c.name;
    if (c.status != AcEdJig::kNormal) continue;
    if (c.what == EndJig::kAngle || c.what == EndJig::kDist)
      EXPECT_NEAR(jig.value_, c.value, 1e-12) << c.name;
    else
      EXPECT_TRUE(jig.line_.endPoint().isEqualTo(c.point)) << c.name;
  }
  EXPECT_NE(Session::get().transcript().find(L"Case 1: "), std::wstring::npos);
}

TEST_F(BlockSelectionTest, JigAppendsItsEntityOnce) {
  EndJig jig(EndJig::kPoint);
  queue({point(4, 0)});
  ASSERT_EQ(jig.drag(), AcEdJig::kNormal);
  AcDbLine *line = new AcDbLine(AcGePoint3d(0, 0, 0), AcGePoint3d(1, 1, 0));
  struct OwnJig : AcEdJig {
    AcDbEntity *ent;
    AcDbEntity *entity() const override { return ent; }
  } own;
  own.ent = line;
  AcDbObjectId id = own.append();
  ASSERT_FALSE(id.isNull());
  EXPECT_TRUE(own.append().isNull());  // already in the drawing
  EXPECT_EQ(lisp(L"(ssgetX-all)"), names({id}));
  AcEdJig none;
  EXPECT_TRUE(none.append().isNull());
  EXPECT_EQ(none.drag(), AcEdJig::kCancel);
}

}  // namespace
}  // namespace vantry
