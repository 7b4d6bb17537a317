// A drawing with every kind the database keeps, for the drawing-file tests,
// and a comparison of two databases object by object through their
// group-code form (ids compared by handle).
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "db/db.h"
#include "dxf/dxf.h"
#include "lisp/lisp.h"
#include "session/session.h"

namespace vantry::host::testing {

inline AcDbObjectId addRecord(AcDbObjectId table, AcDbSymbolTableRecord *rec, const wchar_t *name) {
  AcDbSymbolTable *t = nullptr;
  EXPECT_EQ(acdbOpenObject(t, table, AcDb::kForWrite), Acad::eOk);
  rec->setName(name);
  AcDbObjectId id;
  EXPECT_EQ(t->add(id, rec), Acad::eOk);
  rec->close();
  t->close();
  return id;
}

inline AcDbObjectId append(AcDbObjectId btrId, AcDbEntity *ent) {
  AcDbBlockTableRecord *btr = nullptr;
  EXPECT_EQ(acdbOpenObject(btr, btrId, AcDb::kForWrite), Acad::eOk);
  AcDbObjectId id;
  EXPECT_EQ(btr->appendAcDbEntity(id, ent), Acad::eOk);
  btr->close();
  ent->close();
  return id;
}

// Counts of the entity kinds buildEveryKind puts in model space.
inline std::map<std::string, int> everyKindModelCounts() {
  return {{"LINE", 2},  {"CIRCLE", 1}, {"ARC", 1},    {"LWPOLYLINE", 1}, {"POLYLINE", 4},
          {"MTEXT", 1}, {"LEADER", 1}, {"3DFACE", 1}, {"INSERT", 1}};
}

// Tables, a user block, every entity kind (model and paper space), a group
// and extended data of two applications.
inline void buildEveryKind(AcDbDatabase &db) {
  auto *impl = db.impl();
  auto *ducts = new AcDbLayerTableRecord;
  AcCmColor green;
  green.setColorIndex(3);
  ducts->setColor(green);
  ducts->setPlotStyleName(L"Heavy");
  AcDbObjectId ductsLayer = addRecord(db.layerTableId(), ducts, L"Ducts");
  auto *narrow = new AcDbTextStyleTableRecord;
  narrow->setFileName(L"romans");
  narrow->setXScale(0.8);
  addRecord(db.textStyleTableId(), narrow, L"Narrow");
  addRecord(db.regAppTableId(), new AcDbRegAppTableRecord, L"VT_APP");
  addRecord(db.regAppTableId(), new AcDbRegAppTableRecord, L"VT_OTHER");

  auto *valve = new AcDbBlockTableRecord;
  valve->setOrigin(AcGePoint3d(1, 2, 0));
  AcDbObjectId valveId = addRecord(db.blockTableId(), valve, L"VALVE");
  append(valveId, new AcDbLine(AcGePoint3d(0, 0, 0), AcGePoint3d(2, 0, 0)));
  append(valveId, new AcDbCircle(AcGePoint3d(1, 0, 0), AcGeVector3d::kZAxis, 0.5));

  AcDbObjectId ms = impl->modelSpace, ps = impl->paperSpace;
  auto *line = new AcDbLine(AcGePoint3d(0.1, 0.2, 0.3), AcGePoint3d(1e6 / 3, -2.5e-7, 7));
  line->setLayer(ductsLayer);
  line->setColorIndex(1);
  AcDbObjectId lineId = append(ms, line);
  {
    AcDbObject *o = nullptr;
    EXPECT_EQ(acdbOpenObject(o, lineId, AcDb::kForWrite), Acad::eOk);
    double pt[3] = {1.5, -2.25, 1e-9};
    resbuf *xd = acutBuildList(1001, L"VT_APP", 1000, L"Zuluft \u00d8200 \u00b0C ^ caret", 1002, L"{", 1070,
                               12, 1071, 123456, 1040, 0.1, 1010, pt, 1005, L"1F", 1002, L"}", 1001,
                               L"VT_OTHER", 1000, L"second", 0);
    EXPECT_EQ(o->setXData(xd), Acad::eOk);
    acutRelRb(xd);
    resbuf *bin = acutNewRb(1004);
    bin->resval.rbinary.clen = 3;
    bin->resval.rbinary.buf = static_cast<char *>(malloc(3));
    memcpy(bin->resval.rbinary.buf, "\x01\xAB\xFF", 3);
    resbuf *head = acutBuildList(1001, L"VT_OTHER", 1000, L"second", 0);
    head->rbnext->rbnext = bin;
    EXPECT_EQ(o->setXData(head), Acad::eOk);
    acutRelRb(head);
    o->close();
  }
  {
    // Locked once its line is made: an entity on a locked layer cannot be
    // opened for write.
    AcDbObject *o = nullptr;
    ASSERT_EQ(acdbOpenObject(o, ductsLayer, AcDb::kForWrite), Acad::eOk);
    static_cast<AcDbLayerTableRecord *>(o)->setIsLocked(true);
    o->close();
  }
  AcDbObjectId circleId = append(ms, new AcDbCircle(AcGePoint3d(5, 5, 0), AcGeVector3d(0, 0.6, 0.8), 2));
  append(ms, new AcDbArc(AcGePoint3d(1, 1, 0), 3, 0.5, 5.9));
  auto *lw = new AcDbPolyline;
  lw->addVertexAt(0, AcGePoint2d(0, 0), 0.5, 0.1, 0.2);
  lw->addVertexAt(1, AcGePoint2d(10, 0), -1);
  lw->addVertexAt(2, AcGePoint2d(10, 10));
  lw->setClosed(true);
  lw->setElevation(1.5);
  append(ms, lw);
  AcGePoint3dArray pts;
  pts.append(AcGePoint3d(0, 0, 0));
  pts.append(AcGePoint3d(5, 5, 0));
  pts.append(AcGePoint3d(10, 0, 0));
  pts.append(AcGePoint3d(15, 5, 0));
  AcGeDoubleArray bulges;
  for (double b : {0.3, 0.0, -0.2, 0.0}) bulges.append(b);
  append(ms, new AcDb2dPolyline(AcDb::k2dSimplePoly, pts, 0, false, 0.5, 0.5, &bulges));
  append(ms, new AcDb2dPolyline(AcDb::k2dFitCurvePoly, pts, 2, true));
  append(ms, new AcDb2dPolyline(AcDb::k2dCubicSplinePoly, pts, 0, false));
  AcGePoint3dArray p3;
  p3.append(AcGePoint3d(0, 0, 0));
  p3.append(AcGePoint3d(1, 2, 3));
  p3.append(AcGePoint3d(4, 5, -6));
  append(ms, new AcDb3dPolyline(AcDb::k3dSimplePoly, p3, true));
  auto *mt = new AcDbMText;
  mt->setContents(L"Abluft\\P\u00d8 250 \u2013 {\\H2x;big}");
  mt->setLocation(AcGePoint3d(3, 4, 0));
  mt->setTextHeight(2.5);
  mt->setWidth(40);
  mt->setTextStyle(recordId(db.textStyleTableId(), L"Narrow"));
  AcDbObjectId mtextId = append(ms, mt);
  auto *leader = new AcDbLeader;
  leader->appendVertex(AcGePoint3d(0, 0, 0));
  leader->appendVertex(AcGePoint3d(5, 5, 0));
  leader->appendVertex(AcGePoint3d(8, 5, 0));
  leader->attachAnnotation(mtextId);
  append(ms, leader);
  auto *face =
      new AcDbFace(AcGePoint3d(0, 0, 0), AcGePoint3d(1, 0, 0), AcGePoint3d(1, 1, 1), AcGePoint3d(0, 1, 1));
  face->makeEdgeInvisibleAt(1);
  face->makeEdgeInvisibleAt(3);
  append(ms, face);
  auto *ref = new AcDbBlockReference(AcGePoint3d(20, 10, 0), valveId);
  ref->setScaleFactors(AcGeScale3d(2, 2, 1));
  ref->setRotation(0.75);
  append(ms, ref);
  append(ms, new AcDbLine(AcGePoint3d(0, 0, 0), AcGePoint3d(0, 0, 1)));
  append(ps, new AcDbCircle(AcGePoint3d(100, 100, 0), AcGeVector3d::kZAxis, 10));

  AcDbDictionary *groups = nullptr;
  EXPECT_EQ(db.getGroupDictionary(groups, AcDb::kForWrite), Acad::eOk);
  auto *group = new AcDbGroup(L"supply run", false);
  AcDbObjectId groupId;
  EXPECT_EQ(groups->setAt(L"RUN1", group, groupId), Acad::eOk);
  EXPECT_EQ(group->append(lineId), Acad::eOk);
  EXPECT_EQ(group->append(circleId), Acad::eOk);
  group->close();
  groups->close();
}

// The group-code form of an object with ids as handles, for comparing
// objects of two databases; a dictionary's entries under the keys `skip`
// are left out.
inline std::wstring describe(const AcDbObject *o, const std::set<std::wstring> &skip = {}) {
  AcDbDxfFiler f;
  o->dxfOutFields(&f);
  auto &its = f.items();
  for (size_t i = 0; i + 1 < its.size();)
    if (its[i].code == 3 && its[i + 1].code == 350 && skip.count(its[i].text))
      its.erase(its.begin() + long(i), its.begin() + long(i) + 2);
    else
      ++i;
  std::wstring out = o->isA()->name();
  for (const auto &it : f.items()) {
    out += L" (" + std::to_wstring(it.code) + L" ";
    if (!it.id.isNull()) out += L"#" + it.id.handle().toString();
    out += it.text;
    for (int i = 0; i < (it.dims ? it.dims : 1); ++i) out += L" " + std::to_wstring(it.real[i]);
    out += L" " + std::to_wstring(it.integer) + L")";
  }
  resbuf *xd = o->xData();
  for (const resbuf *rb = xd; rb; rb = rb->rbnext) {
    out += L" [" + std::to_wstring(rb->restype) + L" ";
    switch (rbKind(rb->restype)) {
      case RbKind::String:
        out += rb->resval.rstring;
        break;
      case RbKind::Real:
        out += std::to_wstring(rb->resval.rreal);
        break;
      case RbKind::Point:
        for (double d : rb->resval.rpoint) out += std::to_wstring(d) + L",";
        break;
      case RbKind::Short:
        out += std::to_wstring(rb->resval.rint);
        break;
      case RbKind::Long:
        out += std::to_wstring(rb->resval.rlong);
        break;
      case RbKind::Binary:
        for (short i = 0; i < rb->resval.rbinary.clen; ++i)
          out += std::to_wstring(static_cast<unsigned char>(rb->resval.rbinary.buf[i])) + L",";
        break;
      default:
        break;
    }
    out += L"]";
  }
  acutRelRb(xd);
  return out;
}

// Every live object of a that the file keeps (entities, table records,
// dictionaries, groups) is in b under the same handle with the same form.
// A saved file's root dictionary also lists what every drawing file has
// (layouts, multiline styles, plot settings, plot style names); the
// writer adds those where a drawing has none, and they are read back.
inline void expectSameObjects(AcDbDatabase &a, AcDbDatabase &b) {
  std::set<std::wstring> added;
  auto *root = AcDbDictionary::cast(objectOf(a.impl()->nod));
  for (const wchar_t *key : {L"ACAD_LAYOUT", L"ACAD_MLINESTYLE", L"ACAD_PLOTSETTINGS", L"ACAD_PLOTSTYLENAME"})
    if (root && !root->has(key)) added.insert(key);
  auto &sa = a.impl()->stubs;
  auto &sb = b.impl()->stubs;
  int compared = 0;
  for (size_t i = 0; i < sa.size(); ++i) {
    AcDbObject *o = sa[i].obj;
    if (!o || o->isErased()) continue;
    if (!AcDbEntity::cast(o) && !AcDbSymbolTableRecord::cast(o) && !AcDbGroup::cast(o) &&
        !AcDbDictionary::cast(o))
      continue;
    ASSERT_LT(i, sb.size()) << "handle " << std::hex << (i + 1) << " is gone";
    AcDbObject *p = sb[i].obj;
    ASSERT_TRUE(p) << "handle " << std::hex << (i + 1) << " is empty after reading";
    EXPECT_EQ(describe(p, o == root ? added : std::set<std::wstring>{}), describe(o));
    ++compared;
  }
  EXPECT_GT(compared, 20);
}

}  // namespace vantry::host::testing
