// Drawings written by other programs (the shared data's dxf folder), and the
// faults they showed: each opens, saves and opens again with every entity
// kept by type and handle. The saved files are left for the outside audit
// (tests/tools/dxf_compare.py, run by CTest after this).
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "dxf/internal.h"
#include "dxf_fixture.h"

namespace vantry::host {
namespace {

namespace fs = std::filesystem;
using Entities = std::set<std::pair<uint64_t, std::wstring>>;

std::string readAll(const fs::path &path) {
  std::ifstream f(path, std::ios::binary);
  std::ostringstream s;
  s << f.rdbuf();
  return s.str();
}

fs::path outDir() {
  const char *env = std::getenv("VANTRY_DXF_REAL_OUT");
  fs::path dir = env ? fs::path(env) : fs::temp_directory_path() / "vantry-dxf-real";
  fs::create_directories(dir);
  return dir;
}

std::wstring typeOf(const AcDbEntity *e) {
  if (auto *v = VerbatimEntity::cast(e)) return v->dxfType();
  return e->isA()->dxfName();
}

// Every entity of every block record, attributes and mesh vertices
// included, by handle and type.
Entities entitiesOf(AcDbDatabase &db) {
  Entities out;
  auto *impl = db.impl();
  auto *blocks = AcDbSymbolTable::cast(objectOf(impl->blockTable));
  for (AcDbObjectId b : blocks->recordIds()) {
    auto *btr = AcDbBlockTableRecord::cast(objectOf(b));
    for (AcDbObjectId id : btr->entityIds()) {
      auto *e = AcDbEntity::cast(objectOf(id));
      if (!e || e->isErased()) continue;
      out.insert({id.handle().value(), typeOf(e)});
      auto att = impl->attributes.find(DbAccess::stub(e));
      if (att != impl->attributes.end())
        for (AcDbObjectId a : att->second)
          out.insert({a.handle().value(), typeOf(AcDbEntity::cast(objectOf(a)))});
    }
  }
  return out;
}

// The entities as the file itself lists them (ENTITIES and BLOCKS, ATTRIBs
// of INSERTs, the vertices and end markers of meshes), by handle and type:
// those with a handle.
Entities entitiesInFile(const std::string &text) {
  dxf::Drawing d;
  std::wstring error;
  EXPECT_TRUE(dxf::parseDxf(text, d, &error)) << text::toUtf8(error);
  Entities out;
  auto add = [&](const std::vector<dxf::Record> &records) {
    for (const dxf::Record &r : records) {
      if (r.handle) out.insert({r.handle, r.type});
      int64_t flags = 0;
      bool mesh = r.type == L"POLYLINE" && r.fields.getInt(70, flags) && (flags & (16 | 64));
      for (const dxf::Record &s : r.subs)
        if (s.handle && ((r.type == L"INSERT" && s.type == L"ATTRIB") || mesh)) out.insert({s.handle, s.type});
    }
  };
  add(d.entities);
  for (const dxf::Block &b : d.blocks) add(b.entities);
  return out;
}

// Opens every drawing of dir, checks that every entity the file lists is in
// the drawing, saves it into out (for the outside audit) and opens the saved
// file again: no repairs needed, the same entities.
void openSaveReopenEvery(const fs::path &dir, const fs::path &out) {
  int files = 0;
  for (const auto &entry : fs::directory_iterator(dir)) {
    if (entry.path().extension() != ".dxf") continue;
    ++files;
    std::string name = entry.path().filename().string();
    SCOPED_TRACE(name);
    AcDbDatabase db;
    std::wstring notes;
    ASSERT_EQ(openDxf(entry.path().string(), &db, &notes), Acad::eOk) << text::toUtf8(notes);
    Entities read = entitiesOf(db);
    Entities listed = entitiesInFile(readAll(entry.path()));
    Entities missing;
    for (const auto &e : listed)
      if (!read.count(e)) missing.insert(e);
    EXPECT_TRUE(missing.empty()) << missing.size() << " entities of the file are not in the drawing";

    std::string saved = (out / name).string();
    std::wstring error;
    ASSERT_EQ(saveDxf(&db, saved, &error), Acad::eOk) << text::toUtf8(error);
    AcDbDatabase again;
    ASSERT_EQ(openDxf(saved, &again, &error), Acad::eOk) << text::toUtf8(error);
    EXPECT_TRUE(error.empty()) << "the saved file needed repairs: " << text::toUtf8(error);
    EXPECT_EQ(entitiesOf(again), read);
  }
  EXPECT_GT(files, 0) << "no drawings in " << dir;
}

TEST(DxfRealDrawings, EveryFileOpensSavesAndReopensWithEveryEntity) {
  fs::path dir = fs::path(VANTRY_SHARED_DATA) / "dxf";
  if (!fs::is_directory(dir)) GTEST_SKIP() << "no real drawings at " << dir << " (the shared data folder is absent)";
  openSaveReopenEvery(dir, outDir());
}

// Drawings ezdxf wrote at test time, one per file version R12 to R2018
// (tests/tools/dxf_generate.py; CTest's dxf.ezdxf_drawings makes them and
// names the folders).
TEST(DxfEzdxfDrawings, EveryVersionOpensSavesAndReopensWithEveryEntity) {
  const char *in = std::getenv("VANTRY_DXF_GENERATED");
  const char *out = std::getenv("VANTRY_DXF_GENERATED_OUT");
  if (!in || !out || !fs::is_directory(in))
    GTEST_SKIP() << "no drawings written by ezdxf (run through CTest's dxf.ezdxf_drawings)";
  fs::create_directories(out);
  openSaveReopenEvery(in, out);
}

// --- Faults the real drawings showed, each on a small file of its own ----------------------

std::string writeTemp(const std::string &name, const std::string &text) {
  fs::path path = fs::temp_directory_path() / "vantry-dxf-real-faults";
  fs::create_directories(path);
  path /= name;
  std::ofstream(path, std::ios::binary) << text;
  return path.string();
}

// Opens text, saves it and opens the saved file; answers the saved text.
std::string roundTrip(const std::string &name, const std::string &text, AcDbDatabase &db, AcDbDatabase &again) {
  std::wstring notes;
  std::string path = writeTemp(name, text);
  EXPECT_EQ(openDxf(path, &db, &notes), Acad::eOk) << text::toUtf8(notes);
  std::string saved = writeTemp("saved-" + name, "");
  EXPECT_EQ(saveDxf(&db, saved, &notes), Acad::eOk) << text::toUtf8(notes);
  EXPECT_EQ(openDxf(saved, &again, &notes), Acad::eOk) << text::toUtf8(notes);
  return readAll(saved);
}

const std::string kTables = "0\nSECTION\n2\nTABLES\n";
const std::string kEntities = "0\nSECTION\n2\nENTITIES\n";
const std::string kEnd = "0\nENDSEC\n";
const std::string kEof = "0\nEOF\n";

// Extended data of a layer named an application whose APPID record comes
// later in the file: the reader registered it before the application table
// existed, through a null database.
TEST(DxfRealFaults, XDataNamingAnApplicationRegisteredLaterDoesNotCrash) {
  std::string text = kTables +
                     "0\nTABLE\n2\nLAYER\n5\n2\n0\nLAYER\n5\n10\n2\nWALLS\n70\n0\n62\n7\n"
                     "1001\nLATER_APP\n1000\nstandard\n0\nENDTAB\n"
                     "0\nTABLE\n2\nAPPID\n5\n3\n0\nAPPID\n5\n2A\n2\nLATER_APP\n70\n0\n0\nENDTAB\n" +
                     kEnd + kEof;
  AcDbDatabase db, again;
  roundTrip("later_app.dxf", text, db, again);
  for (AcDbDatabase *d : {&db, &again}) {
    AcDbObjectId app = recordId(d->impl()->regAppTable, L"LATER_APP");
    ASSERT_FALSE(app.isNull());
    EXPECT_EQ(app.handle().value(), 0x2Au) << "the application keeps the file's record";
    auto *layer = objectOf(recordId(d->impl()->layerTable, L"WALLS"));
    ASSERT_TRUE(layer);
    resbuf *xd = layer->xData(L"LATER_APP");
    ASSERT_TRUE(xd && xd->rbnext);
    EXPECT_STREQ(xd->rbnext->resval.rstring, L"standard");
    acutRelRb(xd);
  }
}

// 102 groups that hold a plain string (not "{NAME" ... "}") were refused;
// an XRECORD's groups of 1000 and up were taken for extended data without
// its application; an MTEXT's embedded column object (whose 11 is a zero
// vector) made the text "not valid", and its defined height (46, the
// columns' height) was written as 0. Each is kept and written back.
TEST(DxfRealFaults, PlainStrings102XRecordDataAndMTextColumnsAreKept) {
  std::string text = kEntities +
                     "0\nHATCH\n5\n40\n330\n1F\n100\nAcDbEntity\n8\n0\n100\nAcDbHatch\n10\n0\n20\n0\n30\n0\n"
                     "2\nSOLID\n70\n1\n102\nDISPLAYNAME\n1\nkept\n"
                     "0\nMTEXT\n5\n41\n100\nAcDbEntity\n8\n0\n100\nAcDbMText\n10\n1\n20\n2\n30\n0\n40\n1.0\n"
                     "41\n20.0\n46\n100.0\n71\n1\n1\ncolumn text\n101\nEmbedded Object\n70\n1\n10\n1\n20\n0\n30\n0\n"
                     "11\n0\n21\n0\n31\n0\n40\n20\n72\n3\n" +
                     kEnd + "0\nSECTION\n2\nOBJECTS\n0\nXRECORD\n5\n50\n100\nAcDbXrecord\n1000\nDSTYLE\n1002\n{\n"
                     "1070\n3\n1002\n}\n" + kEnd + kEof;
  AcDbDatabase db, again;
  std::string saved = roundTrip("strings102.dxf", text, db, again);
  auto *ms = AcDbBlockTableRecord::cast(objectOf(again.impl()->modelSpace));
  ASSERT_EQ(ms->entityIds().size(), 2u);
  auto *hatch = VerbatimEntity::cast(objectOf(ms->entityIds()[0]));
  ASSERT_TRUE(hatch);
  EXPECT_EQ(hatch->objectId().handle().value(), 0x40u);
  auto has = [](const VerbatimEntity *e, int code, const wchar_t *value) {
    for (const auto &it : e->groups())
      if (it.code == code && it.text == value) return true;
    return false;
  };
  EXPECT_TRUE(has(hatch, 102, L"DISPLAYNAME"));
  EXPECT_TRUE(has(hatch, 2, L"SOLID"));
  auto *mtext = AcDbMText::cast(objectOf(ms->entityIds()[1]));
  ASSERT_TRUE(mtext);
  EXPECT_EQ(mtext->location(), AcGePoint3d(1, 2, 0));
  ACHAR *contents = mtext->contents();
  EXPECT_STREQ(contents, L"column text");
  acutDelString(contents);
  EXPECT_EQ(mtext->height(), 100.0) << "a column's defined height";
  EXPECT_NE(saved.find("101\nEmbedded Object\n"), std::string::npos) << "the columns are written back";
}

// ATTRIBs after an INSERT were skipped, and a second paper space block
// (*Paper_Space0) lost its layout and its paper space mark, so other
// readers dropped it; dimension styles other than Standard were not kept,
// so a DIMENSION named one that was not there.
TEST(DxfRealFaults, AttributesLayoutsAndDimensionStylesSurviveASave) {
  std::string text = kTables +
                     "0\nTABLE\n2\nDIMSTYLE\n5\nA\n0\nDIMSTYLE\n105\n27\n2\nISO-25\n70\n0\n41\n2.5\n0\nENDTAB\n"
                     "0\nTABLE\n2\nBLOCK_RECORD\n5\n1\n0\nBLOCK_RECORD\n5\n1F\n2\n*Model_Space\n"
                     "0\nBLOCK_RECORD\n5\n1B\n2\n*Paper_Space\n0\nBLOCK_RECORD\n5\n3E\n2\n*Paper_Space0\n"
                     "0\nBLOCK_RECORD\n5\n60\n2\nTAG\n0\nENDTAB\n" + kEnd +
                     "0\nSECTION\n2\nBLOCKS\n"
                     "0\nBLOCK\n5\n61\n330\n60\n2\nTAG\n70\n2\n10\n0\n20\n0\n30\n0\n0\nENDBLK\n5\n62\n330\n60\n"
                     "0\nBLOCK\n5\n3F\n330\n3E\n2\n*Paper_Space0\n70\n0\n10\n0\n20\n0\n30\n0\n"
                     "0\nLINE\n5\n70\n330\n3E\n100\nAcDbEntity\n67\n1\n8\n0\n100\nAcDbLine\n10\n0\n20\n0\n30\n0\n"
                     "11\n1\n21\n1\n31\n0\n0\nENDBLK\n5\n40\n330\n3E\n" + kEnd + kEntities +
                     "0\nINSERT\n5\n80\n330\n1F\n100\nAcDbEntity\n8\n0\n100\nAcDbBlockReference\n66\n1\n2\nTAG\n"
                     "10\n0\n20\n0\n30\n0\n"
                     "0\nATTRIB\n5\n81\n330\n80\n100\nAcDbEntity\n8\n0\n100\nAcDbText\n10\n0\n20\n0\n30\n0\n"
                     "40\n1\n1\nvalue\n100\nAcDbAttribute\n2\nNAME\n70\n0\n0\nSEQEND\n5\n82\n330\n80\n"
                     "0\nDIMENSION\n5\n90\n330\n1F\n100\nAcDbEntity\n8\n0\n100\nAcDbDimension\n2\n*D1\n3\nISO-25\n"
                     "10\n0\n20\n0\n30\n0\n70\n0\n" + kEnd + kEof;
  AcDbDatabase db, again;
  std::string saved = roundTrip("attribs.dxf", text, db, again);
  Entities got = entitiesOf(again);
  for (auto e : Entities{{0x70, L"LINE"}, {0x80, L"INSERT"}, {0x81, L"ATTRIB"}, {0x90, L"DIMENSION"}})
    EXPECT_TRUE(got.count(e)) << text::toUtf8(e.second);
  // The file's style keeps its handle; Standard is added beside it.
  std::map<std::wstring, uint64_t> styles;
  for (AcDbObjectId id : again.impl()->keptTables[L"DIMSTYLE"].records)
    styles[VerbatimObject::cast(objectOf(id))->name()] = id.handle().value();
  EXPECT_EQ(styles[L"ISO-25"], 0x27u);
  EXPECT_TRUE(styles.count(L"Standard"));
  EXPECT_NE(saved.find("  1\nLayout2\n"), std::string::npos) << "*Paper_Space0 has a layout";
  EXPECT_NE(saved.find(" 67\n1\n  8\n0\n100\nAcDbBlockBegin\n  2\n*Paper_Space0\n"), std::string::npos)
      << "a second layout's block is paper space";
  EXPECT_NE(saved.find(" 66\n1\n"), std::string::npos) << "the INSERT says its attributes follow";
}

// Polyface and polygon meshes were skipped (counted as kinds not kept); a
// DIMENSION of an old file (no subclass markers) was written without them,
// so newer readers did not find its block. Meshes are kept with their
// vertices' handles; the dimension gets the markers of its kind.
TEST(DxfRealFaults, MeshesAndOldDimensionsSurviveASave) {
  std::string text = kEntities +
                     "0\nPOLYLINE\n5\nA0\n8\n0\n66\n1\n10\n0\n20\n0\n30\n0\n70\n64\n71\n3\n72\n1\n"
                     "0\nVERTEX\n5\nA1\n8\n0\n10\n0\n20\n0\n30\n0\n70\n192\n"
                     "0\nVERTEX\n5\nA2\n8\n0\n10\n1\n20\n0\n30\n0\n70\n192\n"
                     "0\nVERTEX\n5\nA3\n8\n0\n10\n1\n20\n1\n30\n0\n70\n192\n"
                     "0\nVERTEX\n5\nA4\n8\n0\n10\n0\n20\n0\n30\n0\n70\n128\n71\n1\n72\n2\n73\n3\n"
                     "0\nSEQEND\n5\nA5\n8\n0\n"
                     "0\nDIMENSION\n5\nB0\n8\n0\n2\n*D1\n10\n0\n20\n5\n30\n0\n11\n2\n21\n5\n31\n0\n"
                     "70\n0\n13\n0\n23\n0\n33\n0\n14\n4\n24\n0\n34\n0\n50\n0\n" +
                     kEnd + kEof;
  AcDbDatabase db, again;
  std::wstring notes;
  std::string path = writeTemp("mesh.dxf", text);
  ASSERT_EQ(openDxf(path, &db, &notes), Acad::eOk);
  EXPECT_EQ(notes.find(L"skipped"), std::wstring::npos) << text::toUtf8(notes);
  std::string saved = roundTrip("mesh.dxf", text, db, again);
  Entities got = entitiesOf(again);
  for (auto e : Entities{{0xA0, L"POLYLINE"}, {0xA1, L"VERTEX"}, {0xA4, L"VERTEX"}, {0xA5, L"SEQEND"},
                         {0xB0, L"DIMENSION"}})
    EXPECT_TRUE(got.count(e)) << std::hex << e.first;
  EXPECT_NE(saved.find("100\nAcDbPolyFaceMesh\n"), std::string::npos);
  EXPECT_NE(saved.find("100\nAcDbPolyFaceMeshVertex\n"), std::string::npos);
  EXPECT_NE(saved.find("100\nAcDbFaceRecord\n"), std::string::npos);
  EXPECT_EQ(saved.find("SEQEND\n  5\nA5\n"), saved.rfind("SEQEND\n  5\nA5\n")) << "one end marker, the file's";
  // The dimension's block name under the dimension's own marker; its
  // points under the aligned one, its angle under the rotated one.
  size_t dim = saved.find("100\nAcDbDimension\n  2\n*D1\n");
  size_t aligned = saved.find("100\nAcDbAlignedDimension\n 13\n");
  size_t rotated = saved.find("100\nAcDbRotatedDimension\n 50\n");
  EXPECT_NE(dim, std::string::npos);
  EXPECT_TRUE(dim < aligned && aligned < rotated && rotated != std::string::npos);
}

// What the database does not model survives a save as read, with its
// handles: the viewport, view and UCS tables, the layouts (each block
// record naming its own, each layout its block), plot settings, extension
// dictionaries of entities and table records, an object nothing reaches
// and the classes. A layout block without a layout gets one in the kept
// dictionary. The open message counts what is kept.
TEST(DxfRealFaults, TablesLayoutsExtensionDictionariesAndLooseObjectsAreKept) {
  std::string text =
      "0\nSECTION\n2\nCLASSES\n0\nCLASS\n1\nVT_THING\n2\nVtThing\n3\nVT\n90\n0\n280\n0\n281\n0\n" + kEnd +
      kTables +
      "0\nTABLE\n2\nVPORT\n5\n8\n330\n0\n100\nAcDbSymbolTable\n70\n2\n"
      "0\nVPORT\n5\n30\n330\n8\n100\nAcDbSymbolTableRecord\n100\nAcDbViewportTableRecord\n2\n*Active\n70\n0\n"
      "12\n5\n22\n6\n40\n99\n"
      "0\nVPORT\n5\n31\n330\n8\n100\nAcDbSymbolTableRecord\n100\nAcDbViewportTableRecord\n2\n*Active\n70\n0\n"
      "0\nENDTAB\n0\nTABLE\n2\nVIEW\n5\n6\n330\n0\n100\nAcDbSymbolTable\n70\n1\n"
      "0\nVIEW\n5\n32\n330\n6\n100\nAcDbSymbolTableRecord\n100\nAcDbViewTableRecord\n2\nNORTH\n70\n0\n40\n7\n"
      "0\nENDTAB\n0\nTABLE\n2\nUCS\n5\n7\n330\n0\n100\nAcDbSymbolTable\n70\n1\n"
      "0\nUCS\n5\n33\n330\n7\n100\nAcDbSymbolTableRecord\n100\nAcDbUCSTableRecord\n2\nSKEW\n70\n0\n"
      "0\nENDTAB\n0\nTABLE\n2\nLAYER\n5\n2\n0\nLAYER\n5\n34\n102\n{ACAD_XDICTIONARY\n360\n90\n102\n}\n"
      "330\n2\n100\nAcDbSymbolTableRecord\n100\nAcDbLayerTableRecord\n2\nDUCT\n70\n0\n62\n1\n6\nContinuous\n"
      "0\nENDTAB\n0\nTABLE\n2\nBLOCK_RECORD\n5\n1\n0\nBLOCK_RECORD\n5\n1F\n2\n*Model_Space\n340\n50\n"
      "0\nBLOCK_RECORD\n5\n1B\n2\n*Paper_Space\n340\n51\n0\nBLOCK_RECORD\n5\n3E\n2\n*Paper_Space0\n"
      "0\nENDTAB\n" + kEnd + "0\nSECTION\n2\nBLOCKS\n"
      "0\nBLOCK\n5\n20\n330\n1F\n2\n*Model_Space\n70\n0\n10\n0\n20\n0\n30\n0\n0\nENDBLK\n5\n21\n330\n1F\n"
      "0\nBLOCK\n5\n1C\n330\n1B\n2\n*Paper_Space\n70\n0\n10\n0\n20\n0\n30\n0\n0\nENDBLK\n5\n1D\n330\n1B\n" +
      kEnd + kEntities +
      "0\nLINE\n5\n40\n102\n{ACAD_XDICTIONARY\n360\n92\n102\n}\n330\n1F\n100\nAcDbEntity\n8\nDUCT\n"
      "100\nAcDbLine\n10\n0\n20\n0\n30\n0\n11\n1\n21\n1\n31\n0\n"
      "0\nVIEWPORT\n5\n41\n330\n1B\n100\nAcDbEntity\n67\n1\n8\n0\n100\nAcDbViewport\n10\n5\n20\n5\n30\n0\n"
      "40\n10\n41\n10\n69\n2\n341\n34\n" + kEnd +
      "0\nSECTION\n2\nOBJECTS\n0\nDICTIONARY\n5\nC\n330\n0\n100\nAcDbDictionary\n3\nACAD_LAYOUT\n350\n1A\n"
      "3\nACAD_PLOTSETTINGS\n350\n19\n"
      "0\nDICTIONARY\n5\n1A\n330\nC\n100\nAcDbDictionary\n3\nModel\n350\n50\n3\nSheet A\n350\n51\n"
      "0\nLAYOUT\n5\n50\n330\n1A\n100\nAcDbPlotSettings\n1\n\n100\nAcDbLayout\n1\nModel\n70\n1\n71\n0\n"
      "330\n1F\n"
      "0\nLAYOUT\n5\n51\n330\n1A\n100\nAcDbPlotSettings\n1\nA3 sheet\n100\nAcDbLayout\n1\nSheet A\n70\n1\n"
      "71\n1\n330\n1B\n331\n41\n"
      "0\nDICTIONARY\n5\n19\n330\nC\n100\nAcDbDictionary\n3\nA3\n350\n52\n"
      "0\nPLOTSETTINGS\n5\n52\n330\n19\n100\nAcDbPlotSettings\n1\nA3\n"
      "0\nDICTIONARY\n5\n90\n330\n34\n100\nAcDbDictionary\n280\n1\n3\nLAYER_NOTE\n360\n91\n"
      "0\nXRECORD\n5\n91\n330\n90\n100\nAcDbXrecord\n1\nsupply only\n"
      "0\nDICTIONARY\n5\n92\n330\n40\n100\nAcDbDictionary\n3\nVT_DATA\n350\n93\n"
      "0\nXRECORD\n5\n93\n330\n92\n100\nAcDbXrecord\n70\n3\n"
      "0\nVT_THING\n5\n95\n330\n0\n100\nVtThing\n1\nnobody's\n" + kEnd + kEof;
  AcDbDatabase db, again;
  std::string saved = roundTrip("kept.dxf", text, db, again);
  auto has = [&](const std::string &what) { return saved.find(what) != std::string::npos; };
  // Tables: heads and records with their handles, both "*Active" tiles, no
  // viewport of the writer's own.
  EXPECT_TRUE(has("  0\nTABLE\n  2\nVPORT\n  5\n8\n"));
  EXPECT_TRUE(has("VPORT\n  5\n30\n") && has("VPORT\n  5\n31\n"));
  EXPECT_EQ(again.impl()->keptTables[L"VPORT"].records.size(), 2u);
  EXPECT_TRUE(has("VIEW\n  5\n32\n") && has("UCS\n  5\n33\n"));
  EXPECT_TRUE(has("BLOCK\n  5\n20\n") && has("ENDBLK\n  5\n21\n")) << "BLOCK and ENDBLK keep their handles";
  // Layouts: the file's, tied both ways; *Paper_Space0 had none and gets
  // one in the same dictionary, under a name not taken.
  EXPECT_TRUE(has("*Model_Space\n 70\n0\n340\n50\n") && has("*Paper_Space\n 70\n0\n340\n51\n"));
  EXPECT_TRUE(has("1\nSheet A\n 70\n1\n 71\n1\n330\n1B\n331\n41\n"));
  EXPECT_TRUE(has("  3\nSheet A\n350\n51\n  3\nLayout1\n350\n"));
  EXPECT_EQ(saved.find("  3\nModel\n"), saved.rfind("  3\nModel\n")) << "one Model layout";
  EXPECT_TRUE(has("PLOTSETTINGS\n  5\n52\n"));
  EXPECT_EQ(saved.find("ACAD_PLOTSETTINGS"), saved.rfind("ACAD_PLOTSETTINGS"));
  // Extension dictionaries of a layer and a line, with what they hold.
  EXPECT_TRUE(has("2\nDUCT\n") && has("{ACAD_XDICTIONARY\n360\n90\n"));
  EXPECT_TRUE(has("{ACAD_XDICTIONARY\n360\n92\n"));
  EXPECT_TRUE(has("XRECORD\n  5\n91\n") && has("  1\nsupply only\n") && has("XRECORD\n  5\n93\n"));
  // The object nothing reaches, the viewport's frozen layer, the class.
  EXPECT_TRUE(has("VT_THING\n  5\n95\n") && has("nobody's"));
  EXPECT_TRUE(has("341\n34\n"));
  EXPECT_TRUE(has("  1\nVT_THING\n  2\nVtThing\n"));
  // The open message's counts: the first open's are the file's own; the
  // second open's also what the saved file added (the dimension style
  // Standard, the layout of *Paper_Space0, the writer's three classes).
  std::wstring kept = describeKeptAsRead(&db);
  EXPECT_EQ(kept, L"1 VIEWPORT; table records: 1 UCS, 1 VIEW, 2 VPORT; objects: 2 LAYOUT, 1 PLOTSETTINGS, "
                  L"1 VT_THING, 2 XRECORD; 1 classes");
  kept = describeKeptAsRead(&again);
  for (const wchar_t *part : {L"1 VIEWPORT", L"table records: 1 DIMSTYLE, 1 UCS, 1 VIEW, 2 VPORT", L"3 LAYOUT",
                              L"1 PLOTSETTINGS", L"1 VT_THING", L"2 XRECORD", L"4 classes"})
    EXPECT_NE(kept.find(part), std::wstring::npos) << text::toUtf8(part) << " in " << text::toUtf8(kept);
}

// A MINSERT (an INSERT with columns and rows) was read as one reference:
// its grid was dropped on saving and a picture showed one copy. The grid is
// kept, and the copies lie along the reference's turned axes.
TEST(DxfRealFaults, AGridOfCopiesKeepsItsColumnsAndRows) {
  std::string text = kTables + "0\nTABLE\n2\nBLOCK_RECORD\n5\n1\n0\nBLOCK_RECORD\n5\n1F\n2\n*Model_Space\n"
                     "0\nBLOCK_RECORD\n5\n60\n2\nBAR\n0\nENDTAB\n" + kEnd + "0\nSECTION\n2\nBLOCKS\n"
                     "0\nBLOCK\n5\n61\n330\n60\n2\nBAR\n70\n0\n10\n0\n20\n0\n30\n0\n"
                     "0\nLINE\n5\n63\n330\n60\n100\nAcDbEntity\n8\n0\n100\nAcDbLine\n10\n0\n20\n0\n30\n0\n"
                     "11\n1\n21\n0\n31\n0\n0\nENDBLK\n5\n62\n330\n60\n" + kEnd + kEntities +
                     "0\nINSERT\n5\n80\n330\n1F\n100\nAcDbEntity\n8\n0\n100\nAcDbMInsertBlock\n2\nBAR\n"
                     "10\n100\n20\n0\n30\n0\n50\n90\n70\n3\n71\n2\n44\n10\n45\n5\n" + kEnd + kEof;
  AcDbDatabase db, again;
  std::string saved = roundTrip("minsert.dxf", text, db, again);
  EXPECT_NE(saved.find("100\nAcDbMInsertBlock\n"), std::string::npos);
  auto *ms = AcDbBlockTableRecord::cast(objectOf(again.impl()->modelSpace));
  ASSERT_EQ(ms->entityIds().size(), 1u);
  auto *grid = AcDbMInsertBlock::cast(objectOf(ms->entityIds()[0]));
  ASSERT_TRUE(grid) << "read back as a grid";
  EXPECT_EQ(grid->objectId().handle().value(), 0x80u);
  EXPECT_EQ(grid->columns(), 3);
  EXPECT_EQ(grid->rows(), 2);
  EXPECT_EQ(grid->columnSpacing(), 10.0);
  EXPECT_EQ(grid->rowSpacing(), 5.0);
  // Turned a quarter: columns run up +y, rows along -x; the unit line of
  // each copy points up too.
  AcDbExtents ext;
  ASSERT_EQ(grid->getGeomExtents(ext), Acad::eOk);
  EXPECT_NEAR(ext.minPoint().x, 95, 1e-9);
  EXPECT_NEAR(ext.maxPoint().x, 100, 1e-9);
  EXPECT_NEAR(ext.minPoint().y, 0, 1e-9);
  EXPECT_NEAR(ext.maxPoint().y, 21, 1e-9);
  AcDbVoidPtrArray pieces;
  ASSERT_EQ(grid->explode(pieces), Acad::eOk);
  EXPECT_EQ(pieces.length(), 6);
  for (int i = 0; i < pieces.length(); ++i) delete static_cast<AcDbEntity *>(pieces[i]);
}

// A layer's lineweight of 393 (no lineweight at all) was turned into the
// enumeration before it was checked, which the undefined-behaviour
// sanitizer stops on (found by dxf_fuzz). The drawing opens; the layer is
// there with a lineweight of its own kind.
TEST(DxfRealFaults, ALayerWithALineweightOutOfRangeStillOpens) {
  std::string text = kTables + "0\nTABLE\n2\nLAYER\n5\n2\n0\nLAYER\n5\n10\n2\nWALLS\n70\n0\n62\n7\n370\n393\n"
                     "0\nLAYER\n5\n11\n2\nDOORS\n70\n0\n62\n1\n370\n35\n0\nENDTAB\n" + kEnd + kEof;
  AcDbDatabase db, again;
  roundTrip("lineweight.dxf", text, db, again);
  auto *doors = AcDbLayerTableRecord::cast(objectOf(recordId(again.impl()->layerTable, L"DOORS")));
  ASSERT_TRUE(doors);
  EXPECT_EQ(doors->lineWeight(), AcDb::kLnWt035);
  if (auto *walls = AcDbLayerTableRecord::cast(objectOf(recordId(again.impl()->layerTable, L"WALLS")))) {
    EXPECT_NE(int(walls->lineWeight()), 393);
  }
}

}  // namespace
}  // namespace vantry::host
