// Selection sets (add, delete, membership, freeing), the person's selection
// driven by queued answers, and picking with acedEntSel.
#include <gtest/gtest.h>

#include "ss_fixture.h"

namespace vantry::host {
namespace {

class SsSets : public SelectTest {
 protected:
  SsSets() {
    a = line(0, 0, 10, 0);
    b = line(0, 5, 10, 5);
    c = circle(30, 30, 1);
  }
  static void nameOf(AcDbObjectId id, ads_name n) { select::nameOf(id, n); }
  // The members of the person's selection with a mode, or the status.
  std::vector<AcDbObjectId> person(const wchar_t *mode = L"", const void *pt1 = nullptr,
                                   const void *pt2 = nullptr, int *rc = nullptr) {
    return select(mode, pt1, pt2, nullptr, rc);
  }
  int errnoValue() {
    resbuf rb;
    EXPECT_EQ(acedGetVar(L"ERRNO", &rb), RTNORM);
    return rb.resval.rint;
  }
  AcDbObjectId a, b, c;
};

TEST_F(SsSets, AddDeleteMembershipAndFree) {
  ads_name na, nb, ss, same, got;
  nameOf(a, na);
  nameOf(b, nb);
  ASSERT_EQ(acedSSAdd(na, nullptr, ss), RTNORM);
  ASSERT_EQ(acedSSAdd(nb, ss, same), RTNORM);
  EXPECT_TRUE(same[0] == ss[0] && same[1] == ss[1]);
  ASSERT_EQ(acedSSAdd(na, ss, same), RTNORM);  // already there: no duplicate
  int32_t n = 0;
  ASSERT_EQ(acedSSLength(ss, &n), RTNORM);
  EXPECT_EQ(n, 2);
  ASSERT_EQ(acedSSName(ss, 1, got), RTNORM);
  EXPECT_TRUE(got[0] == nb[0] && got[1] == nb[1]);
  EXPECT_EQ(acedSSName(ss, 2, got), RTERROR);
  EXPECT_EQ(acedSSName(ss, -1, got), RTERROR);
  EXPECT_EQ(acedSSMemb(na, ss), RTNORM);
  EXPECT_EQ(acedSSDel(na, ss), RTNORM);
  EXPECT_EQ(acedSSMemb(na, ss), RTERROR);
  EXPECT_EQ(acedSSDel(na, ss), RTERROR) << "not a member any more";
  ASSERT_EQ(acedSSName(ss, 0, got), RTNORM);
  EXPECT_TRUE(got[0] == nb[0]) << "the others move up";
  EXPECT_EQ(acedSSFree(ss), RTNORM);
  EXPECT_EQ(acedSSFree(ss), RTERROR);
  EXPECT_EQ(acedSSLength(ss, &n), RTERROR) << "a freed set's name is dead";
  EXPECT_EQ(acedSSAdd(na, ss, same), RTERROR);
  ads_name empty;
  ASSERT_EQ(acedSSAdd(nullptr, nullptr, empty), RTNORM);
  ASSERT_EQ(acedSSLength(empty, &n), RTNORM);
  EXPECT_EQ(n, 0);
  EXPECT_EQ(acedSSFree(empty), RTNORM);
  ads_name bogus = {999, 5};
  EXPECT_EQ(acedSSAdd(bogus, nullptr, empty), RTERROR) << "not an entity";
}

TEST_F(SsSets, SetsOutliveTheirDrawing) {
  auto *other = new AcDbDatabase();
  AcDbBlockTableRecord *ms = nullptr;
  ASSERT_EQ(acdbOpenObject(ms, other->impl()->modelSpace, AcDb::kForWrite), Acad::eOk);
  AcDbObjectId id;
  auto *l = new AcDbLine({0, 0, 0}, {1, 1, 0});
  ASSERT_EQ(ms->appendAcDbEntity(id, l), Acad::eOk);
  l->close();
  ms->close();
  ads_name name, ss;
  nameOf(id, name);
  ASSERT_EQ(acedSSAdd(name, nullptr, ss), RTNORM);
  select::setPrevious({id});
  delete other;
  int32_t n = 0;
  EXPECT_EQ(acedSSLength(ss, &n), RTNORM);
  EXPECT_EQ(n, 1);
  EXPECT_EQ(acedSSMemb(name, ss), RTNORM);
  std::vector<AcDbObjectId> members;
  EXPECT_TRUE(select::setMembers(ss, members));
  EXPECT_TRUE(members.empty()) << "a name of a closed drawing converts to nothing";
  EXPECT_TRUE(select::previous().empty());
  EXPECT_EQ(acedSSFree(ss), RTNORM);
}

TEST_F(SsSets, PersonPicksWindowsRemovesAndEnds) {
  queuePick(5, 0);    // a
  queuePoint(-1, 4);  // empty ground: a window ...
  queuePoint(11, 6);  // ... to the right: b is wholly inside
  queueText(L"R");
  queuePick(5, 0.1);  // a again, within the pick box: removed
  queueText(L"A");
  queueText(L"C");
  queuePoint(29, 29);
  queuePoint(29.5, 31);  // crossing the circle c
  queue(InputItem::Empty);
  EXPECT_EQ(person(), (std::vector<AcDbObjectId>{b, c}));
  std::wstring t = s().transcript();
  EXPECT_NE(t.find(L"Select objects: 5,0,0\n1 found\n"), std::wstring::npos) << t;
  EXPECT_NE(t.find(L"Specify opposite corner: 11,6,0\n1 found, 2 total\n"), std::wstring::npos) << t;
  EXPECT_NE(t.find(L"Remove objects: 5,0.1,0\n1 removed, 1 total\n"), std::wstring::npos) << t;
  EXPECT_TRUE(s().input.empty());
  // "P" is what the last selection chose.
  EXPECT_EQ(select(L"P"), (std::vector<AcDbObjectId>{b, c}));
}

TEST_F(SsSets, PersonRightToLeftIsACrossingAndPolygonsWork) {
  queuePoint(12, 6);
  queuePoint(5, -1);  // leftwards: crossing, so both lines
  queue(InputItem::Empty);
  EXPECT_EQ(person(), (std::vector<AcDbObjectId>{b, a}));
  queueText(L"_CP");
  queuePoint(29, 29);
  queuePoint(40, 29);
  queueText(L"U");  // takes (40,29) back
  queuePoint(31, 29);
  queuePoint(31, 40);
  queue(InputItem::Empty);  // closes the polygon
  queue(InputItem::Empty);  // ends the selection
  EXPECT_EQ(person(), std::vector<AcDbObjectId>{c});
}

TEST_F(SsSets, PersonCancelEmptyAndInvalidAnswers) {
  int sets = select::liveSets(), rc = 0;
  queuePick(5, 0);
  queue(InputItem::Cancel);
  EXPECT_TRUE(person(L"", nullptr, nullptr, &rc).empty());
  EXPECT_EQ(rc, RTCAN);
  EXPECT_EQ(select::liveSets(), sets) << "a cancelled selection makes no set";
  queue(InputItem::Empty);
  person(L"", nullptr, nullptr, &rc);
  EXPECT_EQ(rc, RTERROR) << "nothing chosen";
  queueText(L"BOGUS");
  queuePick(100, 100);  // a miss
  queue(InputItem::Empty);
  person(L"", nullptr, nullptr, &rc);
  EXPECT_EQ(rc, RTERROR);
  EXPECT_NE(s().transcript().find(L"*Invalid selection*"), std::wstring::npos);
  EXPECT_NE(s().transcript().find(L"100,100,0\n0 found\n"), std::wstring::npos);
  person(L"", nullptr, nullptr, &rc);  // nothing queued: as a cancel
  EXPECT_EQ(rc, RTCAN);
}

TEST_F(SsSets, PromptsKeywordsAndSingle) {
  const ACHAR *prompts[2] = {L"Pick ducts: ", L"Drop ducts: "};
  queuePick(5, 5);
  queueText(L"r");
  queuePick(5, 5);
  queue(InputItem::Empty);
  int rc = 0;
  person(L":$", prompts, nullptr, &rc);
  EXPECT_EQ(rc, RTERROR);  // picked, then removed: nothing left
  EXPECT_NE(s().transcript().find(L"Pick ducts: 5,5,0"), std::wstring::npos);
  EXPECT_NE(s().transcript().find(L"Drop ducts: 5,5,0\n1 removed, 0 total"), std::wstring::npos);

  // A keyword, typed shortened, ends the selection with RTKWORD.
  queuePick(5, 0);
  queueText(L"ex");
  EXPECT_TRUE(person(L":$:K", prompts, L"EXit Undo", &rc).empty());
  EXPECT_EQ(rc, RTKWORD);
  ACHAR buf[16];
  EXPECT_EQ(acedGetInput(buf, 16), RTNORM);
  EXPECT_STREQ(buf, L"EXit");
  // A built-in option wins over a keyword of the same letters.
  queueText(L"L");
  queue(InputItem::Empty);
  EXPECT_EQ(person(L":K", nullptr, L"Last"), std::vector<AcDbObjectId>{c});

  // With a callback the keyword adds what the callback answers.
  static AcDbObjectId given;
  given = a;
  acedSSSetKwordCallbackPtr([](const ACHAR *kw) -> resbuf * {
    if (std::wstring(kw) != L"Undo") return acutBuildList(RTSTR, L"unexpected", 0);
    ads_name n;
    acdbGetAdsName(n, given);
    return acutBuildList(RTENAME, n, 0);
  });
  queueText(L"U");
  queue(InputItem::Empty);
  EXPECT_EQ(person(L":K", nullptr, L"EXit Undo"), std::vector<AcDbObjectId>{a});
  acedSSSetKwordCallbackPtr(nullptr);

  queuePick(5, 0);
  EXPECT_EQ(person(L":S"), std::vector<AcDbObjectId>{a}) << "one answer only";
  EXPECT_TRUE(s().input.empty());
}

TEST_F(SsSets, EntSelPicksMissesAndKeywords) {
  ads_name ent;
  ads_point pt;
  queuePick(3, 0.05);
  ASSERT_EQ(acedEntSel(L"Select a duct: ", ent, pt), RTNORM);
  ads_name na;
  nameOf(a, na);
  EXPECT_TRUE(ent[0] == na[0] && ent[1] == na[1]);
  EXPECT_DOUBLE_EQ(pt[1], 0.05);
  EXPECT_NE(s().transcript().find(L"Select a duct: 3,0.05,0"), std::wstring::npos);

  queuePick(3, 2.5);  // half way between the lines: nothing within the pick box
  EXPECT_EQ(acedEntSel(nullptr, ent, pt), RTERROR);
  EXPECT_EQ(errnoValue(), 7);
  queuePick(3, 4.9);  // nearer b than a
  ASSERT_EQ(acedEntSel(nullptr, ent, pt), RTNORM);
  EXPECT_EQ(errnoValue(), 0);
  queue(InputItem::Empty);
  EXPECT_EQ(acedEntSel(nullptr, ent, pt), RTERROR);
  EXPECT_EQ(errnoValue(), 52);
  queue(InputItem::Cancel);
  EXPECT_EQ(acedEntSel(nullptr, ent, pt), RTCAN);
  acedInitGet(0, L"Next Back");
  queueText(L"n");
  EXPECT_EQ(acedEntSel(nullptr, ent, pt), RTKWORD);
  ACHAR kw[8];
  EXPECT_EQ(acedGetInput(kw, 8), RTNORM);
  EXPECT_STREQ(kw, L"Next");
  EXPECT_EQ(acedGetInput(kw, 3), RTINPUTTRUNC);
}

TEST_F(SsSets, PickBoxFollowsTheView) {
  ads_name ent;
  ads_point pt;
  // 3 pixels of 100/800 units: 0.375 units either side.
  queuePick(5, 0.3);
  EXPECT_EQ(acedEntSel(nullptr, ent, pt), RTNORM);
  queuePick(5, 0.45);
  EXPECT_EQ(acedEntSel(nullptr, ent, pt), RTERROR);
  resbuf big{};
  big.restype = RTREAL;
  big.resval.rreal = 200;  // zoomed out: pixels twice as large
  setSystemValue(L"VIEWSIZE", big);
  queuePick(5, 0.45);
  EXPECT_EQ(acedEntSel(nullptr, ent, pt), RTNORM);
}

TEST_F(SsSets, NEntSelGoesIntoBlocks) {
  AcDbObjectId def = block(L"NEST");
  AcDbObjectId inner = add(new AcDbLine({0, 0, 0}, {4, 0, 0}), def);
  auto *ref = new AcDbBlockReference(AcGePoint3d(50, 50, 0), def);
  ref->setRotation(M_PI / 2);
  AcDbObjectId refId = add(ref);
  queuePick(50, 52);  // on the line, turned to run up from (50,50)
  ads_name ent;
  ads_point pt, xf[4];
  resbuf *refs = nullptr;
  ASSERT_EQ(acedNEntSel(nullptr, ent, pt, xf, &refs), RTNORM);
  AcDbObjectId got;
  acdbGetObjectId(got, ent);
  EXPECT_EQ(got, inner);
  EXPECT_NEAR(xf[0][1], 1, 1e-12) << "the X axis turned onto Y";
  EXPECT_NEAR(xf[3][0], 50, 1e-12);
  ASSERT_NE(refs, nullptr);
  AcDbObjectId container;
  acdbGetObjectId(container, refs->resval.rlname);
  EXPECT_EQ(container, refId);
  EXPECT_EQ(refs->rbnext, nullptr);
  acutRelRb(refs);
}

}  // namespace
}  // namespace vantry::host
