// Drawing files: what is saved opens again as the same objects under the
// same handles, and the file holds the structure strict readers expect.
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "dxf_fixture.h"

namespace vantry::host {
namespace {

namespace fs = std::filesystem;
using testing::buildEveryKind;

std::string tempPath(const std::string &name) {
  fs::path dir = fs::temp_directory_path() / "vantry-dxf-test";
  fs::create_directories(dir);
  return (dir / name).string();
}

std::string readAll(const std::string &path) {
  std::ifstream f(path, std::ios::binary);
  std::ostringstream s;
  s << f.rdbuf();
  return s.str();
}

struct Pair {
  int code;
  std::string value;
};

std::vector<Pair> pairsOf(const std::string &text) {
  std::vector<Pair> out;
  std::istringstream in(text);
  std::string c, v;
  while (std::getline(in, c) && std::getline(in, v)) out.push_back({std::stoi(c), v});
  return out;
}

TEST(DxfRoundTrip, EveryObjectComesBackUnderItsHandle) {
  AcDbDatabase db;
  buildEveryKind(db);
  std::string path = tempPath("every.dxf");
  std::wstring error = L"not cleared";
  ASSERT_EQ(saveDxf(&db, path, &error), Acad::eOk) << text::toUtf8(error);
  EXPECT_TRUE(error.empty());

  AcDbDatabase back;
  ASSERT_EQ(openDxf(path, &back, &error), Acad::eOk) << text::toUtf8(error);
  EXPECT_TRUE(error.empty()) << text::toUtf8(error);
  testing::expectSameObjects(db, back);

  // A second generation reads the same again.
  std::string again = tempPath("every2.dxf");
  ASSERT_EQ(saveDxf(&back, again, &error), Acad::eOk);
  AcDbDatabase third(false);
  ASSERT_EQ(openDxf(again, &third, &error), Acad::eOk) << text::toUtf8(error);
  testing::expectSameObjects(db, third);
}

TEST(DxfRoundTrip, RealsAndSettingsComeBackExactly) {
  AcDbDatabase db;
  AcDbObjectId lineId = testing::append(
      db.impl()->modelSpace, new AcDbLine(AcGePoint3d(0.1, 1.0 / 3, -7e-300), AcGePoint3d(1e22, 2, 3)));
  AcDbObjectId layer = testing::addRecord(db.layerTableId(), new AcDbLayerTableRecord, L"Hangers");
  ASSERT_EQ(db.setClayer(layer), Acad::eOk);
  AcCmColor red;
  red.setColorIndex(1);
  db.setCecolor(red);
  db.setTextsize(3.5);
  db.setSplinesegs(12);
  db.setSplinetype(5);
  std::string path = tempPath("reals.dxf");
  ASSERT_EQ(saveDxf(&db, path, nullptr), Acad::eOk);

  AcDbDatabase back;
  std::wstring error;
  ASSERT_EQ(openDxf(path, &back, &error), Acad::eOk) << text::toUtf8(error);
  AcDbObjectId id;
  ASSERT_EQ(back.getAcDbObjectId(id, false, lineId.handle()), Acad::eOk);
  auto *line = AcDbLine::cast(objectOf(id));
  ASSERT_TRUE(line);
  EXPECT_EQ(line->startPoint().x, 0.1);
  EXPECT_EQ(line->startPoint().y, 1.0 / 3);
  EXPECT_EQ(line->startPoint().z, -7e-300);
  EXPECT_EQ(line->endPoint().x, 1e22);
  EXPECT_EQ(recordName(back.clayer()), L"Hangers");
  EXPECT_EQ(back.cecolor().colorIndex(), 1);
  EXPECT_EQ(back.textsize(), 3.5);
  EXPECT_EQ(back.splinesegs(), 12);
  EXPECT_EQ(back.splinetype(), 5);

  // New objects get handles above everything the file named.
  std::string text = readAll(path);
  auto pairs = pairsOf(text);
  uint64_t seed = 0;
  for (size_t i = 0; i + 1 < pairs.size(); ++i)
    if (pairs[i].code == 9 && pairs[i].value == "$HANDSEED")
      seed = std::stoull(pairs[i + 1].value, nullptr, 16);
  AcDbObjectId fresh = testing::append(back.impl()->modelSpace, new AcDbLine);
  EXPECT_GE(fresh.handle().value(), seed);
}

// What lenient readers would repair silently: every handle unique and below
// $HANDSEED, every owner an object of the file, the nine tables, each BLOCK
// owned by its BLOCK_RECORD, every POLYLINE closed by SEQEND, balanced
// extended-data braces.
TEST(DxfRoundTrip, TheFileIsCompleteAsStrictReadersExpect) {
  AcDbDatabase db;
  buildEveryKind(db);
  std::string path = tempPath("strict.dxf");
  ASSERT_EQ(saveDxf(&db, path, nullptr), Acad::eOk);
  auto pairs = pairsOf(readAll(path));
  ASSERT_GT(pairs.size(), 100u);
  EXPECT_EQ(pairs.back().code, 0);
  EXPECT_EQ(pairs.back().value, "EOF");

  uint64_t seed = 0;
  std::set<uint64_t> handles;
  std::vector<uint64_t> owners;
  std::vector<std::string> tables;
  std::map<uint64_t, std::string> blockRecords;  // handle -> name
  std::vector<std::pair<uint64_t, std::string>> blockOwners;
  std::string type, pendingPolyline;
  int braces = 0;
  for (size_t i = 0; i < pairs.size(); ++i) {
    const Pair &p = pairs[i];
    if (p.code == 0) {
      if (!pendingPolyline.empty() && p.value != "VERTEX" && p.value != "SEQEND")
        ADD_FAILURE() << "POLYLINE without SEQEND before " << p.value;
      if (p.value == "POLYLINE") pendingPolyline = "open";
      if (p.value == "SEQEND") pendingPolyline.clear();
      EXPECT_EQ(braces, 0) << "unbalanced braces before " << p.value;
      type = p.value;
    }
    if (p.code == 9 && p.value == "$HANDSEED") seed = std::stoull(pairs[i + 1].value, nullptr, 16);
    if ((p.code == 5 || p.code == 105) && type != "SECTION") {
      uint64_t h = std::stoull(p.value, nullptr, 16);
      if (type == "BLOCK_RECORD") blockRecords[h] = "";
      EXPECT_TRUE(handles.insert(h).second) << "handle " << p.value << " twice";
      // The owner follows the handle and any 102 groups.
      size_t j = i + 1;
      while (j < pairs.size() && pairs[j].code == 102) {
        ++j;
        while (pairs[j].code != 102) ++j;
        ++j;
      }
      if (type != "TABLE" && type != "DICTIONARY") {
        ASSERT_EQ(pairs[j].code, 330) << type << " " << p.value << " has no owner";
      }
      if (pairs[j].code == 330) {
        uint64_t owner = std::stoull(pairs[j].value, nullptr, 16);
        owners.push_back(owner);
        if (type == "BLOCK") blockOwners.emplace_back(owner, "");
      }
    }
    if (p.code == 2 && type == "TABLE") tables.push_back(p.value);
    if (p.code == 1002) braces += p.value == "{" ? 1 : -1;
  }
  EXPECT_GT(seed, 0u);
  for (uint64_t h : handles) EXPECT_LT(h, seed);
  for (uint64_t o : owners) {
    if (o == 0) continue;
    EXPECT_TRUE(handles.count(o)) << "owner " << std::hex << o << " is not in the file";
  }
  EXPECT_EQ(tables, (std::vector<std::string>{"VPORT", "LTYPE", "LAYER", "STYLE", "VIEW", "UCS", "APPID",
                                              "DIMSTYLE", "BLOCK_RECORD"}));
  ASSERT_EQ(blockOwners.size(), blockRecords.size());
  for (const auto &[owner, name] : blockOwners) EXPECT_TRUE(blockRecords.count(owner));
}

// A file another program wrote: no handles, no tables, no objects, kinds
// the database does not keep.
TEST(DxfRoundTrip, ForeignFilesOpenWithWhatTheyHave) {
  std::string path = tempPath("foreign.dxf");
  std::ofstream(path) << "0\nSECTION\n2\nHEADER\n9\n$ACADVER\n1\nAC1009\n9\n$UNKNOWNVAR\n70\n3\n0\nENDSEC\n"
                         "0\nSECTION\n2\nENTITIES\n"
                         "0\nLINE\n8\nWALLS\n10\n1.0\n20\n2.0\n30\n0.0\n11\n3.0\n21\n4.0\n31\n0.0\n"
                         "0\nTEXT\n8\n0\n10\n0\n20\n0\n40\n2.5\n1\nhello\n"
                         "0\nTEXT\n8\n0\n10\n0\n20\n0\n40\n2.5\n1\nagain\n"
                         "0\nENDSEC\n0\nSECTION\n2\nTHUMBNAILIMAGE\n90\n3\n310\nABCDEF\n0\nENDSEC\n0\nEOF\n";
  AcDbDatabase db;
  std::wstring error;
  ASSERT_EQ(openDxf(path, &db, &error), Acad::eOk) << text::toUtf8(error);
  EXPECT_EQ(error, L"");
  auto *ms = AcDbBlockTableRecord::cast(objectOf(db.impl()->modelSpace));
  ASSERT_TRUE(ms);
  // The texts are texts of the drawing, read from a file without markers.
  ASSERT_EQ(ms->entityIds().size(), 3u);
  for (auto [i, value] : {std::pair{1, L"hello"}, std::pair{2, L"again"}}) {
    auto *text = AcDbText::cast(objectOf(ms->entityIds()[size_t(i)]));
    ASSERT_TRUE(text);
    EXPECT_STREQ(text->textStringConst(), value);
    EXPECT_EQ(text->height(), 2.5);
  }
  auto *line = AcDbLine::cast(objectOf(ms->entityIds()[0]));
  ASSERT_TRUE(line);
  EXPECT_EQ(line->endPoint(), AcGePoint3d(3, 4, 0));
  ACHAR *layer = line->layer();
  EXPECT_STREQ(layer, L"WALLS");
  acutDelString(layer);
  // What every drawing has is there, and the drawing saves again.
  EXPECT_FALSE(db.groupDictionaryId().isNull());
  EXPECT_FALSE(recordId(db.linetypeTableId(), L"Continuous").isNull());
  EXPECT_EQ(saveDxf(&db, tempPath("foreign-again.dxf"), nullptr), Acad::eOk);
}

// The runner opens a drawing before the scripts and saves after them.
TEST(DxfRoundTrip, TheRunnerOpensAndSavesDrawings) {
  AcDbDatabase db;
  buildEveryKind(db);
  std::string in = tempPath("runner-in.dxf"), out = tempPath("runner-out.dxf"), script = tempPath("add.lsp");
  ASSERT_EQ(saveDxf(&db, in, nullptr), Acad::eOk);
  AcDbObjectId first = AcDbBlockTableRecord::cast(objectOf(db.impl()->modelSpace))->entityIds().front();
  std::ofstream(script) << "(entmake '((0 . \"LINE\") (8 . \"Added\") (10 0.0 0.0 0.0) (11 1.0 2.0 0.0)))\n"
                           "(princ (cdr (assoc 8 (entget (handent \""
                        << text::toUtf8(first.handle().toString()) << "\")))))\n";
  std::remove(out.c_str());
  auto run = [](const std::string &args) {
    std::string cmd = std::string(VANTRY_BIN_DIR) + "/vantry --no-module " + args + " </dev/null 2>&1";
    FILE *p = popen(cmd.c_str(), "r");
    std::string text;
    char buf[4096];
    size_t n;
    while (p && (n = fread(buf, 1, sizeof buf, p)) > 0) text.append(buf, n);
    int st = p ? pclose(p) : -1;
    return std::make_pair(WIFEXITED(st) ? WEXITSTATUS(st) : -1, text);
  };
  auto [status, text] = run("--drawing " + in + " --save " + out + " run " + script);
  EXPECT_EQ(status, 0) << text;
  EXPECT_NE(text.find("Ducts"), std::string::npos) << "the script did not see the opened drawing: " << text;
  AcDbDatabase back;
  std::wstring error;
  ASSERT_EQ(openDxf(out, &back, &error), Acad::eOk) << text::toUtf8(error);
  auto *ms = AcDbBlockTableRecord::cast(objectOf(back.impl()->modelSpace));
  EXPECT_EQ(ms->entityIds().size(),
            AcDbBlockTableRecord::cast(objectOf(db.impl()->modelSpace))->entityIds().size() + 1);
  EXPECT_FALSE(recordId(back.layerTableId(), L"Added").isNull());

  auto [missing, why] = run("--drawing " + tempPath("no-such.dxf") + " run " + script);
  EXPECT_EQ(missing, 2);
  EXPECT_NE(why.find("cannot open the drawing"), std::string::npos) << why;
}

// Writes the every-kind drawing where the audit by another reader
// (tests/tools/dxf_audit.py) expects it.
TEST(DxfRoundTrip, WritesTheDrawingForTheOutsideAudit) {
  const char *target = std::getenv("VANTRY_DXF_AUDIT_FILE");
  std::string path = target ? target : tempPath("audit.dxf");
  AcDbDatabase db;
  buildEveryKind(db);
  ASSERT_EQ(saveDxf(&db, path, nullptr), Acad::eOk);
  EXPECT_GT(fs::file_size(path), 1000u);
}

}  // namespace
}  // namespace vantry::host
