// The entity and table built-ins as a LISP caller sees them: entmake, entget
// and entmod round trips, extended data, walking the drawing, tables and
// dictionaries, and bad input.
#include "db/lisp_data.h"

#include <gtest/gtest.h>

#include "host_fixture.h"

namespace vantry::host {
namespace {

class DbLispTest : public HostTest {
 protected:
  DbLispTest() { installEntityLisp(s().current()->lisp()); }
  // Each check is a LISP expression that must answer T.
  void expectT(const std::wstring &expr) { EXPECT_EQ(lisp(expr), L"T") << expr; }
};

TEST_F(DbLispTest, LineRoundTripAndNewLayer) {
  lisp(L"(setq e (entmake '((0 . \"LINE\") (8 . \"DUCT\") (62 . 1) (10 0 0 0) (11 3 4 0))))");
  expectT(L"(equal (car e) '(0 . \"LINE\"))");
  lisp(L"(setq d (entget (entlast)))");
  expectT(L"(equal (cdr (assoc 10 d)) '(0.0 0.0 0.0))");
  expectT(L"(equal (cdr (assoc 11 d)) '(3.0 4.0 0.0))");
  expectT(L"(= (cdr (assoc 8 d)) \"DUCT\")");
  expectT(L"(= (cdr (assoc 62 d)) 1)");
  expectT(L"(= (cdr (assoc 0 d)) \"LINE\")");
  expectT(L"(eq (type (cdr (assoc -1 d))) 'ENAME)");
  expectT(L"(= (cdr (assoc 0 (tblsearch \"LAYER\" \"duct\"))) \"LAYER\")");

  // entmod: new start point, same entity.
  lisp(L"(entmod (subst '(10 1 1 0) (assoc 10 d) d))");
  expectT(L"(equal (cdr (assoc 10 (entget (entlast)))) '(1.0 1.0 0.0))");
  EXPECT_EQ(lisp(L"(entmod (subst '(0 . \"CIRCLE\") (assoc 0 d) d))"), L"nil");
  EXPECT_EQ(lisp(L"(entmod '((10 0 0 0)))"), L"nil");  // no entity name

  // The curve behind the list measures what the list says.
  AcDbObjectId id;
  ASSERT_TRUE(
      idFromValue(s().current()->lisp().eval(s().current()->lisp().readAll(L"(entlast)", {})[0]), id));
  AcDbObjectPointer<AcDbCurve> curve(id, AcDb::kForRead);
  ASSERT_EQ(curve.openStatus(), Acad::eOk);
  double end, len;
  curve->getEndParam(end);
  curve->getDistAtParam(end, len);
  EXPECT_NEAR(len, std::hypot(2.0, 3.0), 1e-12);
}

TEST_F(DbLispTest, ArcsCirclesPolylinesMTextKeepTheirFields) {
  lisp(L"(entmake '((0 . \"ARC\") (10 1 2 0) (40 . 2.5) (50 . 0.5) (51 . 2.0)))");
  lisp(L"(setq d (entget (entlast)))");
  expectT(L"(and (equal (cdr (assoc 50 d)) 0.5 1e-12) (equal (cdr (assoc 51 d)) 2.0 1e-12))");
  expectT(L"(equal (cdr (assoc 40 d)) 2.5)");

  lisp(L"(entmake '((0 . \"LWPOLYLINE\") (90 . 2) (70 . 1) (10 0 0) (42 . 1.0) (10 2 0)))");
  lisp(L"(setq d (entget (entlast)))");
  expectT(L"(= (cdr (assoc 90 d)) 2)");
  expectT(L"(= (cdr (assoc 70 d)) 1)");
  expectT(L"(equal (cdr (assoc 10 d)) '(0.0 0.0))");
  expectT(L"(equal (cdr (assoc 42 d)) 1.0)");
  expectT(L"(equal (mapcar 'cdr (vl-remove-if-not '(lambda (g) (= (car g) 10)) d)) '((0.0 0.0) (2.0 0.0)))");

  std::wstring longText(300, L'x');
  lisp(L"(setq txt \"" + longText + L"\")");
  lisp(L"(entmake (list '(0 . \"MTEXT\") '(10 5 5 0) '(40 . 2.0) (cons 1 txt) '(71 . 5) '(41 . 30.0)))");
  lisp(L"(setq d (entget (entlast)))");
  expectT(L"(= (strcat (cdr (assoc 3 d)) (cdr (assoc 1 d))) txt)");
  expectT(
      L"(and (= (cdr (assoc 71 d)) 5) (equal (cdr (assoc 41 d)) 30.0) (= (cdr (assoc 7 d)) \"Standard\"))");

  lisp(L"(entmake '((0 . \"CIRCLE\") (67 . 1) (10 0 0 0) (40 . 1.0)))");
  expectT(L"(= (cdr (assoc 67 (entget (entlast)))) 1)");
}

TEST_F(DbLispTest, ExtendedDataByApplication) {
  EXPECT_EQ(lisp(L"(regapp \"VANTRY\")"), L"\"VANTRY\"");
  EXPECT_EQ(lisp(L"(regapp \"vantry\")"), L"nil");
  EXPECT_EQ(lisp(L"(regapp \"bad*name\")"), L"nil");
  lisp(
      L"(setq e (entmakex '((0 . \"LINE\") (10 0 0 0) (11 1 0 0)"
      L" (-3 (\"VANTRY\" (1000 . \"duct\") (1070 . 5) (1040 . 2.5) (1010 1.0 2.0 3.0))))))");
  expectT(
      L"(equal (assoc -3 (entget e '(\"VANTRY\")))"
      L" '(-3 (\"VANTRY\" (1000 . \"duct\") (1070 . 5) (1040 . 2.5) (1010 1.0 2.0 3.0))))");
  expectT(L"(equal (assoc -3 (entget e '(\"VAN*\"))) (assoc -3 (entget e '(\"VANTRY\"))))");
  EXPECT_EQ(lisp(L"(assoc -3 (entget e))"), L"nil");
  EXPECT_EQ(lisp(L"(assoc -3 (entget e '(\"OTHER\")))"), L"nil");
  // Replace through entmod; an unregistered application is refused.
  lisp(L"(entmod (append (entget e) '((-3 (\"VANTRY\" (1000 . \"pipe\"))))))");
  expectT(L"(equal (assoc -3 (entget e '(\"*\"))) '(-3 (\"VANTRY\" (1000 . \"pipe\"))))");
  EXPECT_EQ(lisp(L"(entmake '((0 . \"LINE\") (10 0 0 0) (11 1 0 0) (-3 (\"NOPE\" (1000 . \"x\")))))"),
            L"nil");
  EXPECT_EQ(lisp(L"(entmod (append (entget e) '((-3 (\"NOPE\" (1000 . \"x\"))))))"), L"nil");
  expectT(L"(equal (assoc -3 (entget e '(\"*\"))) '(-3 (\"VANTRY\" (1000 . \"pipe\"))))");
}

TEST_F(DbLispTest, WalkDeleteAndHandles) {
  lisp(L"(setq l (entmakex '((0 . \"LINE\") (10 0 0 0) (11 1 0 0))))");
  lisp(L"(entmake '((0 . \"POLYLINE\") (66 . 1) (70 . 0)))");
  lisp(L"(entmake '((0 . \"VERTEX\") (10 0 0 0) (42 . 1.0)))");
  lisp(L"(entmake '((0 . \"VERTEX\") (10 2 0 0)))");
  EXPECT_EQ(lisp(L"(entmake '((0 . \"SEQEND\")))"), L"((0 . \"SEQEND\"))");
  lisp(L"(setq p (entlast))");
  lisp(L"(setq c (entmakex '((0 . \"CIRCLE\") (10 0 0 0) (40 . 1.0))))");
  expectT(L"(equal (entnext) l)");
  expectT(L"(equal (entnext l) p)");
  expectT(L"(= (cdr (assoc 0 (entget (entnext p)))) \"VERTEX\")");
  expectT(L"(equal (cdr (assoc 42 (entget (entnext p)))) 1.0)");
  expectT(L"(= (cdr (assoc 0 (entget (entnext (entnext (entnext p)))))) \"SEQEND\")");
  expectT(L"(equal (entnext (entnext (entnext (entnext p)))) c)");
  EXPECT_EQ(lisp(L"(entnext c)"), L"nil");
  expectT(L"(equal (entlast) c)");

  // The polyline measures its half circle.
  AcDbObjectId pid;
  ASSERT_TRUE(idFromValue(s().current()->lisp().symbolValue(L"p"), pid));
  AcDbObjectPointer<AcDb2dPolyline> pl(pid, AcDb::kForRead);
  ASSERT_EQ(pl.openStatus(), Acad::eOk);
  double end, len;
  pl->getEndParam(end);
  pl->getDistAtParam(end, len);
  EXPECT_NEAR(len, M_PI, 1e-12);
  pl.close();

  // entdel erases and brings back; erased entities are skipped.
  expectT(L"(equal (entdel c) c)");
  EXPECT_EQ(lisp(L"(entget c)"), L"nil");
  expectT(L"(equal (entlast) p)");
  expectT(L"(equal (entdel c) c)");
  expectT(L"(equal (entlast) c)");
  EXPECT_EQ(lisp(L"(entdel (entnext p))"), L"nil");  // a vertex is not deleted alone

  expectT(L"(equal (handent (cdr (assoc 5 (entget l)))) l)");
  EXPECT_EQ(lisp(L"(handent \"FFFFFF\")"), L"nil");
  EXPECT_EQ(lisp(L"(handent \"not hex\")"), L"nil");
  expectT(L"(equal (entupd l) l)");
  EXPECT_EQ(lisp(L"(entmake '((0 . \"VERTEX\") (10 0 0 0)))"), L"nil");  // no polyline under way
}

TEST_F(DbLispTest, TablesAndDictionaries) {
  lisp(L"(entmake '((0 . \"LINE\") (8 . \"WALLS\") (10 0 0 0) (11 1 0 0)))");
  expectT(L"(= (cdr (assoc 2 (tblnext \"LAYER\" T))) \"0\")");
  expectT(L"(= (cdr (assoc 2 (tblnext \"layer\"))) \"WALLS\")");
  EXPECT_EQ(lisp(L"(tblnext \"LAYER\")"), L"nil");
  lisp(L"(tblsearch \"LAYER\" \"0\" T)");
  expectT(L"(= (cdr (assoc 2 (tblnext \"LAYER\"))) \"WALLS\")");
  lisp(L"(setq st (tblsearch \"STYLE\" \"standard\"))");
  expectT(L"(and (= (cdr (assoc 3 st)) \"txt\") (equal (cdr (assoc 41 st)) 1.0))");
  expectT(
      L"(and (= (cdr (assoc 62 (tblsearch \"LAYER\" \"0\"))) 7) (= (cdr (assoc 6 (tblsearch \"LAYER\" "
      L"\"0\"))) "
      L"\"Continuous\"))");
  EXPECT_EQ(lisp(L"(tblsearch \"BLOCK\" \"*Model_Space\")"), L"nil");
  EXPECT_EQ(lisp(L"(tblsearch \"VIEW\" \"x\")"), L"nil");
  expectT(L"(= (cdr (assoc 0 (entget (tblobjname \"APPID\" \"ACAD\")))) \"APPID\")");

  // A layer record changed through its entity name.
  lisp(L"(setq ld (entget (tblobjname \"LAYER\" \"WALLS\")))");
  lisp(L"(entmod (subst '(62 . 3) (assoc 62 ld) ld))");
  expectT(L"(= (cdr (assoc 62 (tblsearch \"LAYER\" \"WALLS\"))) 3)");

  lisp(L"(setq nod (namedobjdict))");
  expectT(L"(= (cdr (assoc 0 (dictsearch nod \"acad_group\"))) \"DICTIONARY\")");
  expectT(L"(= (cdr (assoc 0 (dictnext nod T))) \"DICTIONARY\")");
  EXPECT_EQ(lisp(L"(dictnext nod)"), L"nil");
  EXPECT_EQ(lisp(L"(dictsearch nod \"NO_SUCH\")"), L"nil");

  lisp(
      L"(setq a (entmakex '((0 . \"LINE\") (10 0 0 0) (11 1 0 0))) b (entmakex '((0 . \"LINE\") (10 0 0 0) "
      L"(11 "
      L"0 1 0))))");
  lisp(L"(setq g (entmakex (list '(0 . \"GROUP\") '(300 . \"run\") '(71 . 1) (cons 340 b) (cons 340 a))))");
  expectT(L"(equal (mapcar 'cdr (vl-remove-if-not '(lambda (x) (= (car x) 340)) (entget g))) (list b a))");
  expectT(L"(= (cdr (assoc 300 (entget g))) \"run\")");
}

TEST_F(DbLispTest, BadInputGetsNilOrTheHostsMessage) {
  EXPECT_EQ(lisp(L"(entget 5)"), L"ERROR: bad argument type: lentityp 5");
  EXPECT_EQ(lisp(L"(entmake '((0 . \"NOSUCH\") (10 0 0 0)))"), L"nil");
  EXPECT_EQ(lisp(L"(entmake '((0 . \"LINE\") (10 0 0 0)))"), L"nil");
  EXPECT_EQ(lisp(L"(entmake '((0 . \"LINE\") (10 . \"x\") (11 1 1 0)))"), L"nil");
  EXPECT_EQ(lisp(L"(entmake '((0 . \"CIRCLE\") (10 0 0 0) (40 . -1.0)))"), L"nil");
  EXPECT_EQ(lisp(L"(entmake '((0 . \"LINE\") (6 . \"NOLINETYPE\") (10 0 0 0) (11 1 1 0)))"), L"nil");
  EXPECT_EQ(lisp(L"(entmake '((0 . \"INSERT\") (2 . \"NOBLOCK\") (10 0 0 0)))"), L"nil");
  EXPECT_EQ(lisp(L"(entmake '((10 0 0 0)))"), L"nil");
  EXPECT_EQ(lisp(L"(entmake '(1 2 3))"), L"nil");
  EXPECT_EQ(lisp(L"(entmake '((0 . \"GROUP\")))"), L"nil");  // objects only through entmakex
  EXPECT_EQ(lisp(L"(entlast)"), L"nil");
  EXPECT_EQ(lisp(L"(tblsearch 1 \"0\")"), L"ERROR: bad argument type: stringp 1");
}

TEST_F(DbLispTest, BlocksFacesLeadersAndVertices) {
  AcDbDatabase *db = s().current()->database();
  AcDbBlockTable *bt = nullptr;
  ASSERT_EQ(db->getBlockTable(bt, AcDb::kForWrite), Acad::eOk);
  auto *block = new AcDbBlockTableRecord;
  block->setName(L"VALVE");
  ASSERT_EQ(bt->add(block), Acad::eOk);
  bt->close();
  auto *line = new AcDbLine(AcGePoint3d(0, 0, 0), AcGePoint3d(1, 0, 0));
  block->appendAcDbEntity(line);
  line->close();
  block->close();

  lisp(
      L"(setq r (entmakex '((0 . \"INSERT\") (2 . \"valve\") (10 5 5 0) (41 . 2.0) (42 . 2.0) (43 . 2.0))))");
  expectT(L"(= (cdr (assoc 2 (entget r))) \"VALVE\")");
  expectT(L"(eq (type (cdr (assoc -2 (tblsearch \"BLOCK\" \"VALVE\")))) 'ENAME)");
  expectT(L"(= (cdr (assoc 2 (tblnext \"BLOCK\" T))) \"VALVE\")");  // the layouts are not listed
  EXPECT_EQ(lisp(L"(tblnext \"BLOCK\")"), L"nil");

  lisp(L"(setq f (entmakex '((0 . \"3DFACE\") (10 0 0 0) (11 1 0 0) (12 1 1 0) (13 0 1 0) (70 . 5))))");
  AcDbObjectId fid;
  ASSERT_TRUE(idFromValue(s().current()->lisp().symbolValue(L"f"), fid));
  {
    AcDbObjectPointer<AcDbFace> face(fid, AcDb::kForRead);
    ASSERT_EQ(face.openStatus(), Acad::eOk);
    bool v0, v1, v2;
    face->isEdgeVisibleAt(0, v0), face->isEdgeVisibleAt(1, v1), face->isEdgeVisibleAt(2, v2);
    EXPECT_TRUE(!v0 && v1 && !v2);
  }

  lisp(L"(setq ld (entmakex '((0 . \"LEADER\") (10 0 0 0) (10 3 4 0) (10 9 4 0))))");
  expectT(L"(= (cdr (assoc 76 (entget ld))) 3)");

  // Changing a vertex's bulge through its own data list bends the polyline.
  lisp(L"(entmake '((0 . \"POLYLINE\") (70 . 0)))");
  lisp(L"(entmake '((0 . \"VERTEX\") (10 0 0 0)))");
  lisp(L"(entmake '((0 . \"VERTEX\") (10 2 0 0)))");
  lisp(L"(entmake '((0 . \"SEQEND\")))");
  lisp(L"(setq v (entget (entnext (entlast))))");
  EXPECT_NE(lisp(L"(entmod (subst '(42 . 1.0) (assoc 42 v) v))"), L"nil");
  AcDbObjectId pid;
  ASSERT_TRUE(
      idFromValue(s().current()->lisp().eval(s().current()->lisp().readAll(L"(entlast)", {})[0]), pid));
  AcDbObjectPointer<AcDbCurve> pl(pid, AcDb::kForRead);
  ASSERT_EQ(pl.openStatus(), Acad::eOk);
  double end, len;
  pl->getEndParam(end);
  pl->getDistAtParam(end, len);
  EXPECT_NEAR(len, M_PI, 1e-12);
}

TEST_F(DbLispTest, DictionaryCursorAndErasedEntities) {
  AcDbDatabase *db = s().current()->database();
  AcDbDictionary *groups = nullptr;
  ASSERT_EQ(db->getGroupDictionary(groups, AcDb::kForWrite), Acad::eOk);
  for (const wchar_t *name : {L"G1", L"G2", L"G3"}) {
    AcDbObjectId id;
    auto *g = new AcDbGroup(name);
    ASSERT_EQ(groups->setAt(name, g, id), Acad::eOk);
    g->close();
  }
  groups->close();
  lisp(L"(setq gd (cdr (assoc -1 (dictsearch (namedobjdict) \"ACAD_GROUP\"))))");
  expectT(L"(= (cdr (assoc 300 (dictsearch gd \"g2\" T))) \"G2\")");
  expectT(L"(= (cdr (assoc 300 (dictnext gd))) \"G3\")");
  EXPECT_EQ(lisp(L"(dictnext gd)"), L"nil");
  expectT(L"(= (cdr (assoc 300 (dictnext gd T))) \"G1\")");

  lisp(L"(setq e (entmakex '((0 . \"LINE\") (10 0 0 0) (11 1 0 0))) d (entget e))");
  lisp(L"(entdel e)");
  EXPECT_EQ(lisp(L"(entget e)"), L"nil");
  EXPECT_EQ(lisp(L"(entmod d)"), L"nil");
  EXPECT_EQ(lisp(L"(entupd e)"), L"nil");
  expectT(L"(equal (handent (cdr (assoc 5 d))) e)");  // the name of an erased entity, for entdel
}

}  // namespace
}  // namespace vantry::host
