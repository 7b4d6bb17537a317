// Custom entities in drawing files: filed as an INSERT of simple entities
// with their own data in an XRECORD, and turned back on opening.
#include <filesystem>
#include <fstream>
#include <sstream>

#include "dxf_fixture.h"

// A square of a size at a corner, carrying an opaque payload.
class TestSquare : public AcDbEntity {
 public:
  ACRX_DECLARE_MEMBERS(TestSquare);
  AcGePoint3d corner;
  double size = 1;
  std::string payload;
};
ACRX_DXF_DEFINE_MEMBERS(TestSquare, AcDbEntity, 0, 0, 0, , TESTAPP)

namespace vantry::host {
namespace {

namespace fs = std::filesystem;

std::string tempPath(const std::string &name) {
  fs::path dir = fs::temp_directory_path() / "vantry-dxf-standin";
  fs::create_directories(dir);
  return (dir / name).string();
}

std::string hex(const std::string &bytes) {
  static const char digits[] = "0123456789ABCDEF";
  std::string out;
  for (unsigned char b : bytes) {
    out += digits[b >> 4];
    out += digits[b & 15];
  }
  return out;
}

DxfStandIn squareStandIn() {
  DxfStandIn s;
  s.write = [](const AcDbEntity *ent, std::vector<AcDbEntity *> &drawable, AcDbDxfFiler &data) {
    auto *sq = static_cast<const TestSquare *>(ent);
    AcGePoint3d c = sq->corner;
    double d = sq->size;
    AcGePoint3d p[4] = {c, c + AcGeVector3d(d, 0, 0), c + AcGeVector3d(d, d, 0), c + AcGeVector3d(0, d, 0)};
    for (int i = 0; i < 4; ++i) drawable.push_back(new AcDbLine(p[i], p[(i + 1) % 4]));
    data.writeString(1, L"square v1");
    data.writePoint3d(10, c);
    data.writeDouble(40, d);
    data.writeInt32(90, int32_t(sq->payload.size()));
    for (size_t i = 0; i < sq->payload.size(); i += 127)
      data.writeString(310, text::fromUtf8(hex(sq->payload.substr(i, 127))));
    return Acad::eOk;
  };
  s.read = [](const AcDbDxfFiler &data, std::wstring *error) -> AcDbEntity * {
    std::wstring tag;
    if (!data.getString(1, tag) || tag != L"square v1") {
      *error = L"not a square";
      return nullptr;
    }
    auto *sq = new TestSquare;
    data.getPoint(10, sq->corner);
    data.getDouble(40, sq->size);
    for (const auto &it : data.items()) {
      if (it.code != 310) continue;
      std::string h = text::toUtf8(it.text);
      for (size_t i = 0; i + 1 < h.size(); i += 2)
        sq->payload += char(std::stoi(h.substr(i, 2), nullptr, 16));
    }
    int64_t n = 0;
    if (!data.getInt(90, n) || size_t(n) != sq->payload.size()) {
      *error = L"the payload is cut short";
      delete sq;
      return nullptr;
    }
    return sq;
  };
  return s;
}

class DxfStandInTest : public ::testing::Test {
 protected:
  DxfStandInTest() {
    AcDbDatabase warmUp;  // registers the database classes
    TestSquare::rxInit();
    acrxBuildClassHierarchy();
    registerDxfStandIn(TestSquare::desc(), squareStandIn());
  }
  ~DxfStandInTest() override { removeDxfStandIn(TestSquare::desc()); }

  // A drawing with a square on layer "Ducts" carrying extended data.
  AcDbObjectId addSquare(AcDbDatabase &db, const std::string &payload) {
    AcDbObjectId layer = testing::addRecord(db.layerTableId(), new AcDbLayerTableRecord, L"Ducts");
    testing::addRecord(db.regAppTableId(), new AcDbRegAppTableRecord, L"VT_APP");
    auto *sq = new TestSquare;
    sq->corner = AcGePoint3d(1, 2, 0);
    sq->size = 3.5;
    sq->payload = payload;
    sq->setLayer(layer);
    AcDbObjectId id = testing::append(db.impl()->modelSpace, sq);
    AcDbObject *o = nullptr;
    EXPECT_EQ(acdbOpenObject(o, id, AcDb::kForWrite), Acad::eOk);
    resbuf *xd = acutBuildList(1001, L"VT_APP", 1000, L"fitting 7", 0);
    EXPECT_EQ(o->setXData(xd), Acad::eOk);
    acutRelRb(xd);
    o->close();
    return id;
  }
};

TEST_F(DxfStandInTest, ACustomEntityComesBackFromItsStandIn) {
  std::string payload;
  for (int i = 0; i < 200000; ++i) payload += char(i * 7 + i / 256);
  AcDbDatabase db;
  AcDbObjectId id = addSquare(db, payload);
  std::string path = tempPath("square.dxf");
  std::wstring error;
  ASSERT_EQ(saveDxf(&db, path, &error), Acad::eOk) << text::toUtf8(error);

  // Any reader sees an INSERT of a block of four lines.
  std::ifstream f(path);
  std::stringstream text;
  text << f.rdbuf();
  std::string file = text.str();
  EXPECT_NE(file.find("\nINSERT\n"), std::string::npos);
  EXPECT_NE(file.find("\n*U1\n"), std::string::npos);
  EXPECT_NE(file.find("{ACAD_XDICTIONARY"), std::string::npos);
  EXPECT_NE(file.find("\nTestSquare\n"), std::string::npos);

  AcDbDatabase back;
  ASSERT_EQ(openDxf(path, &back, &error), Acad::eOk) << text::toUtf8(error);
  AcDbObjectId again;
  ASSERT_EQ(back.getAcDbObjectId(again, false, id.handle()), Acad::eOk);
  auto *sq = TestSquare::cast(objectOf(again));
  ASSERT_TRUE(sq) << "the INSERT did not become the custom entity";
  EXPECT_EQ(sq->corner, AcGePoint3d(1, 2, 0));
  EXPECT_EQ(sq->size, 3.5);
  EXPECT_EQ(sq->payload, payload);
  EXPECT_EQ(recordName(sq->layerId()), L"Ducts");
  resbuf *xd = sq->xData(L"VT_APP");
  ASSERT_TRUE(xd && xd->rbnext);
  EXPECT_STREQ(xd->rbnext->resval.rstring, L"fitting 7");
  acutRelRb(xd);
  // Its block is dropped; the model space holds just the entity.
  EXPECT_TRUE(recordId(back.blockTableId(), L"*U1").isNull());
  auto *ms = AcDbBlockTableRecord::cast(objectOf(back.impl()->modelSpace));
  EXPECT_EQ(ms->entityIds().size(), 1u);
}

TEST_F(DxfStandInTest, WithoutItsStandInTheFileKeepsTheDrawable) {
  AcDbDatabase db;
  addSquare(db, "abc");
  std::string path = tempPath("square-plain.dxf");
  ASSERT_EQ(saveDxf(&db, path, nullptr), Acad::eOk);
  removeDxfStandIn(TestSquare::desc());

  AcDbDatabase back;
  std::wstring error;
  ASSERT_EQ(openDxf(path, &back, &error), Acad::eOk) << text::toUtf8(error);
  auto *ms = AcDbBlockTableRecord::cast(objectOf(back.impl()->modelSpace));
  ASSERT_EQ(ms->entityIds().size(), 1u);
  auto *ref = AcDbBlockReference::cast(objectOf(ms->entityIds()[0]));
  ASSERT_TRUE(ref);
  auto *block = AcDbBlockTableRecord::cast(objectOf(ref->blockTableRecord()));
  ASSERT_TRUE(block);
  EXPECT_EQ(block->entityIds().size(), 4u);
  // And a custom entity without a stand-in is left out of the file.
  EXPECT_EQ(saveDxf(&db, path, nullptr), Acad::eOk);
  AcDbDatabase none;
  ASSERT_EQ(openDxf(path, &none, &error), Acad::eOk);
  EXPECT_TRUE(AcDbBlockTableRecord::cast(objectOf(none.impl()->modelSpace))->entityIds().empty());
}

TEST_F(DxfStandInTest, RefusalsFailTheSaveOrTheOpen) {
  AcDbDatabase db;
  addSquare(db, "abc");
  std::string path = tempPath("square-refused.dxf");
  std::ofstream(path) << "old";
  DxfStandIn failing = squareStandIn();
  failing.write = [](const AcDbEntity *, std::vector<AcDbEntity *> &drawable, AcDbDxfFiler &) {
    drawable.push_back(new AcDbLine);  // the writer deletes it all the same
    return Acad::eNotImplementedYet;
  };
  registerDxfStandIn(TestSquare::desc(), failing);
  std::wstring error;
  EXPECT_EQ(saveDxf(&db, path, &error), Acad::eNotImplementedYet);
  EXPECT_NE(error.find(L"TestSquare"), std::wstring::npos);
  std::ifstream f(path);
  std::string kept;
  f >> kept;
  EXPECT_EQ(kept, "old");

  // Reserved codes in the data would break the file's structure.
  DxfStandIn reserved = squareStandIn();
  reserved.write = [](const AcDbEntity *, std::vector<AcDbEntity *> &, AcDbDxfFiler &data) {
    data.writeString(0, L"LINE");
    return Acad::eOk;
  };
  registerDxfStandIn(TestSquare::desc(), reserved);
  EXPECT_EQ(saveDxf(&db, path, &error), Acad::eInvalidDxfCode);

  // A reader that refuses the data fails the open with the line of the INSERT.
  registerDxfStandIn(TestSquare::desc(), squareStandIn());
  ASSERT_EQ(saveDxf(&db, path, nullptr), Acad::eOk);
  DxfStandIn picky = squareStandIn();
  picky.read = [](const AcDbDxfFiler &, std::wstring *error) -> AcDbEntity * {
    *error = L"version 2 wanted";
    return nullptr;
  };
  registerDxfStandIn(TestSquare::desc(), picky);
  AcDbDatabase back;
  EXPECT_EQ(openDxf(path, &back, &error), Acad::eDxfReadAborted);
  EXPECT_NE(error.find(L"the TestSquare entity cannot be read: version 2 wanted"), std::wstring::npos)
      << text::toUtf8(error);
  EXPECT_EQ(error.rfind(L"line ", 0), 0u);
}

}  // namespace
}  // namespace vantry::host
