// Selection filters: codes, wild cards, relational tests, groupings, the two
// forms a filter arrives in, and malformed filters.
#include <gtest/gtest.h>

#include "ss_fixture.h"

namespace vantry::host {
namespace {

class SsFilter : public SelectTest {
 protected:
  SsFilter() {
    ensureRecord(db()->layerTableId(), AcDbLayerTableRecord::desc(), L"DUCT-A");
    ensureRecord(db()->layerTableId(), AcDbLayerTableRecord::desc(), L"DUCT-B");
    ensureRecord(db()->layerTableId(), AcDbLayerTableRecord::desc(), L"PIPE");
    ensureRecord(db()->regAppTableId(), AcDbRegAppTableRecord::desc(), L"VTAPP");
    duct = line(0, 0, 5, 0);
    setLayer(duct, L"DUCT-A", 1);
    small = circle(2, 2, 2);
    setLayer(small, L"DUCT-B", 3);
    big = circle(20, 2, 5);
    setLayer(big, L"PIPE", 256);
    AcDbEntity *ent = nullptr;
    EXPECT_EQ(acdbOpenObject(ent, big, AcDb::kForWrite), Acad::eOk);
    resbuf *xd = acutBuildList(1001, L"VTAPP", 1000, L"tag", 0);
    EXPECT_EQ(ent->setXData(xd), Acad::eOk);
    acutRelRb(xd);
    ent->close();
    auto *p = new AcDbPolyline;
    p->addVertexAt(0, AcGePoint2d(0, 5));
    p->addVertexAt(1, AcGePoint2d(5, 5));
    poly = add(p);
    AcDbObjectId valve = block(L"VALVE");
    add(new AcDbLine({0, 0, 0}, {1, 0, 0}), valve);
    ref = add(new AcDbBlockReference(AcGePoint3d(30, 0, 0), valve));
  }

  void setLayer(AcDbObjectId id, const wchar_t *layer, int color) {
    AcDbEntity *ent = nullptr;
    ASSERT_EQ(acdbOpenObject(ent, id, AcDb::kForWrite), Acad::eOk);
    ASSERT_EQ(ent->setLayer(layer), Acad::eOk);
    ent->setColorIndex(Adesk::UInt16(color));
    ent->close();
  }

  // Selects "X" with a filter written as LISP, passed as the bridge passes
  // an argument list.
  std::vector<AcDbObjectId> lispFilter(const std::wstring &text, int *rc = nullptr) {
    lisp::Interp &in = s().current()->lisp();
    std::vector<lisp::Value> forms = in.readAll(text, {L"filter", 1});
    resbuf *rb = valueToArgs(in, forms.data(), int(forms.size()));
    auto out = select(L"X", nullptr, nullptr, rb, rc);
    acutRelRb(rb);
    return out;
  }

 public:
  AcDbObjectId duct, small, big, poly, ref;
};

TEST_F(SsFilter, CodesWildcardsRelationsAndGroupings) {
  struct {
    const wchar_t *filter;
    std::vector<AcDbObjectId SsFilter::*> expected;
  } cases[] = {
      {L"((0 . \"CIRCLE\"))", {&SsFilter::big, &SsFilter::small}},
      {L"((0 . \"LINE,CIRCLE\"))", {&SsFilter::big, &SsFilter::small, &SsFilter::duct}},
      {L"((0 . \"*LINE\"))", {&SsFilter::poly, &SsFilter::duct}},
      {L"((8 . \"duct-*\"))", {&SsFilter::small, &SsFilter::duct}},
      {L"((0 . \"~CIRCLE\") (8 . \"DUCT*\"))", {&SsFilter::duct}},
      {L"((62 . 1))", {&SsFilter::duct}},
      {L"((-4 . \"<OR\") (8 . \"PIPE\") (62 . 1) (-4 . \"OR>\"))", {&SsFilter::big, &SsFilter::duct}},
      {L"((-4 . \"<NOT\") (0 . \"CIRCLE\") (-4 . \"NOT>\"))",
       {&SsFilter::ref, &SsFilter::poly, &SsFilter::duct}},
      {L"((-4 . \"<XOR\") (0 . \"CIRCLE\") (8 . \"DUCT*\") (-4 . \"XOR>\"))",
       {&SsFilter::big, &SsFilter::duct}},
      {L"((0 . \"CIRCLE\") (-4 . \">\") (40 . 3.0))", {&SsFilter::big}},
      {L"((0 . \"CIRCLE\") (-4 . \"<=\") (40 . 2))", {&SsFilter::small}},
      {L"((0 . \"CIRCLE\") (-4 . \">,*,*\") (10 10.0 0.0 0.0))", {&SsFilter::big}},
      {L"((-4 . \"&\") (62 . 2))", {&SsFilter::small}},
      {L"((2 . \"valve\"))", {&SsFilter::ref}},
      {L"((-3 (\"VTAPP\")))", {&SsFilter::big}},
      {L"((-4 . \"<AND\") (0 . \"CIRCLE\") (-4 . \"<NOT\") (8 . \"PIPE\") (-4 . \"NOT>\") (-4 . \"AND>\"))",
       {&SsFilter::small}},
      {L"((410 . \"Model\") (0 . \"INSERT\"))", {&SsFilter::ref}},
      // Not every element can travel as a group: the real colour makes the
      // bridge pass each pair as a list of its own.
      {L"((0 . \"LINE\") (62 . 1.0))", {&SsFilter::duct}},
  };
  for (auto &c : cases) {
    SCOPED_TRACE(std::string(c.filter, c.filter + wcslen(c.filter)));
    std::vector<AcDbObjectId> expected;
    for (auto m : c.expected) expected.push_back(this->*m);
    EXPECT_EQ(lispFilter(c.filter), expected);
  }
}

TEST_F(SsFilter, GroupCodeChainsAndDottedPairArguments) {
  resbuf *chain = acutBuildList(-4, L"<OR", RTDXF0, L"LWPOLYLINE", 8, L"PIPE", -4, L"OR>", 0);
  EXPECT_EQ(select(L"_X", nullptr, nullptr, chain), (std::vector<AcDbObjectId>{poly, big}));
  acutRelRb(chain);
  // (ssgetC p1 p2 '(0 . "LINE")) hands on a lone dotted pair.
  resbuf *pair = acutBuildList(RTLB, RTSHORT, 0, RTDOTE, RTSTR, L"LINE", RTLE, 0);
  EXPECT_EQ(select(L"X", nullptr, nullptr, pair), std::vector<AcDbObjectId>{duct});
  acutRelRb(pair);
  int rc = 0;
  EXPECT_TRUE(lispFilter(L"((0 . \"ARC\"))", &rc).empty());
  EXPECT_EQ(rc, RTERROR) << "nothing selected: no set";
}

TEST_F(SsFilter, MalformedFiltersFail) {
  const wchar_t *bad[] = {
      L"((-4 . \"<OR\") (0 . \"LINE\"))",
      L"((0 . \"LINE\") (-4 . \"OR>\"))",
      L"((-4 . \"<NOT\") (0 . \"LINE\") (8 . \"0\") (-4 . \"NOT>\"))",
      L"((-4 . \"<XOR\") (0 . \"LINE\") (-4 . \"XOR>\"))",
      L"((-4 . \"<AND\") (-4 . \"AND>\"))",
      L"((-4 . \"<OR\") (0 . \"LINE\") (-4 . \"AND>\"))",
      L"((0 . \"LINE\") (-4 . \">\"))",
      L"((-4 . \"<FOO\") (0 . \"LINE\") (-4 . \"FOO>\"))",
  };
  for (const wchar_t *f : bad) {
    SCOPED_TRACE(std::string(f, f + wcslen(f)));
    int rc = 0;
    EXPECT_TRUE(lispFilter(f, &rc).empty());
    EXPECT_EQ(rc, RTERROR);
  }
  resbuf *notPair = acutBuildList(RTSTR, L"LINE", 0);
  int rc = 0;
  select(L"X", nullptr, nullptr, notPair, &rc);
  EXPECT_EQ(rc, RTERROR);
  acutRelRb(notPair);
}

TEST_F(SsFilter, WindowSelectionsApplyTheFilter) {
  resbuf *circles = acutBuildList(RTDXF0, L"CIRCLE", 0);
  EXPECT_EQ(window(true, -1, -1, 6, 6, circles), std::vector<AcDbObjectId>{small});
  acutRelRb(circles);
}

}  // namespace
}  // namespace vantry::host
