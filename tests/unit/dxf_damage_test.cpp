// Damaged drawing files and failed saves: a clear status and a message
// naming the line, never a crash, a hang or a lost file.
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <sstream>

#include "dxf_fixture.h"

namespace vantry::host {
namespace {

namespace fs = std::filesystem;

std::string tempPath(const std::string &name) {
  fs::path dir = fs::temp_directory_path() / "vantry-dxf-damage";
  fs::create_directories(dir);
  return (dir / name).string();
}

void write(const std::string &path, const std::string &text) {
  std::ofstream(path, std::ios::binary) << text;
}

std::string readAll(const std::string &path) {
  std::ifstream f(path, std::ios::binary);
  std::ostringstream s;
  s << f.rdbuf();
  return s.str();
}

const std::string kHead = "0\nSECTION\n2\nENTITIES\n";
const std::string kTail = "0\nENDSEC\n0\nEOF\n";

int modelEntities(AcDbDatabase &db) {
  auto *ms = AcDbBlockTableRecord::cast(objectOf(db.impl()->modelSpace));
  return ms ? int(ms->entityIds().size()) : -1;
}

// A damaged file opens with what can be read; the notes say, line by line,
// what was dropped or repaired.
TEST(DxfDamage, DamagedFilesOpenWithWhatWasDroppedLineByLine) {
  struct Case {
    const char *name;
    std::string text;
    std::wstring note;
    int entities;  // in model space afterwards
  };
  std::vector<Case> cases = {
      {"not a code", kHead + "abc\nLINE\n0\nLINE\n" + kTail, L"lines 5-6: dropped, expected a group code, found \"abc\"",
       1},
      {"code without value", kHead + "0\nLINE\n0", L"line 7: the file ends after group code 0, before its value", 1},
      {"no EOF", kHead + "0\nLINE\n10\n1.0\n", L"line 8: the file ends without EOF", 1},
      {"bad real", kHead + "0\nLINE\n10\n1.x\n" + kTail, L"line 8: dropped group 10: expected a number, found \"1.x\"",
       1},
      {"bad integer", kHead + "0\nLINE\n62\nred\n" + kTail,
       L"line 8: dropped group 62: expected an integer, found \"red\"", 1},
      {"bad handle", kHead + "0\nLINE\n5\nXYZ\n" + kTail, L"line 8: dropped group 5: expected a handle, found \"XYZ\"",
       1},
      {"unclosed 102", kHead + "0\nLINE\n102\n{ACAD_REACTORS\n330\n1\n0\nCIRCLE\n40\n1\n" + kTail,
       L"line 7: the 102 group is not closed; it ends at line 11", 2},
      {"polyline without end", kHead + "0\nPOLYLINE\n70\n0\n0\nVERTEX\n10\n0\n20\n0\n" + kTail,
       L"line 5: the POLYLINE has no SEQEND; one is added", 1},
      {"xdata without application", kHead + "0\nLINE\n1000\nx\n" + kTail,
       L"line 7: dropped group 1000: extended data must start with its application (group 1001)", 1},
      {"negative radius", kHead + "0\nCIRCLE\n10\n0\n20\n0\n40\n-1\n0\nLINE\n" + kTail,
       L"line 5: dropped the CIRCLE: its data is not valid", 1},
      {"handle beyond the file", kHead + "0\nLINE\n5\nFFFFFFFFF\n" + kTail,
       L"line 8: dropped group 5: the handle FFFFFFFFF is beyond", 1},
      {"stray vertex", kHead + "0\nVERTEX\n10\n0\n20\n0\n0\nLINE\n" + kTail,
       L"line 5: dropped the VERTEX: it belongs to no entity", 1},
      {"groups outside a section", "0\nSECTION\n2\nHEADER\n0\nENDSEC\n70\n1\n" + kHead + "0\nLINE\n" + kTail,
       L"line 7: dropped the groups up to line 8: they are outside any section", 1},
      {"no ENDSEC", kHead + "0\nLINE\n0\nSECTION\n2\nOBJECTS\n" + kTail, L"line 7: the section of line 1 has no ENDSEC",
       1},
  };
  for (const Case &c : cases) {
    std::string path = tempPath("damaged-case.dxf");
    write(path, c.text);
    AcDbDatabase db;
    std::wstring notes;
    ASSERT_EQ(openDxf(path, &db, &notes), Acad::eOk) << c.name << ": " << text::toUtf8(notes);
    EXPECT_NE(notes.find(c.note), std::wstring::npos) << c.name << ": " << text::toUtf8(notes);
    EXPECT_EQ(modelEntities(db), c.entities) << c.name;
    EXPECT_EQ(saveDxf(&db, tempPath("damaged-case-saved.dxf"), nullptr), Acad::eOk) << c.name;
  }
}

// Handles: missing ones and those an earlier object has are given anew and
// reported; the first object keeps the handle, and references find it.
TEST(DxfDamage, DuplicatedAndZeroHandlesAreRepairedAndReported) {
  std::string path = tempPath("handles.dxf");
  write(path, kHead + "0\nLINE\n5\n2A\n11\n1\n21\n0\n31\n0\n0\nLINE\n5\n2A\n11\n2\n21\n0\n31\n0\n"
                      "0\nLINE\n5\n0\n11\n3\n21\n0\n31\n0\n" + kTail);
  AcDbDatabase db;
  std::wstring notes;
  ASSERT_EQ(openDxf(path, &db, &notes), Acad::eOk) << text::toUtf8(notes);
  EXPECT_NE(notes.find(L"line 15: the LINE has the handle 2A of the object of line 5; it gets a new one"),
            std::wstring::npos)
      << text::toUtf8(notes);
  EXPECT_NE(notes.find(L"gave new handles to 1 objects the file left without one"), std::wstring::npos)
      << text::toUtf8(notes);
  auto *ms = AcDbBlockTableRecord::cast(objectOf(db.impl()->modelSpace));
  ASSERT_EQ(ms->entityIds().size(), 3u);
  std::set<uint64_t> handles;
  for (AcDbObjectId id : ms->entityIds()) handles.insert(id.handle().value());
  EXPECT_EQ(handles.size(), 3u);
  auto *first = AcDbLine::cast(objectOf(ms->entityIds()[0]));
  EXPECT_EQ(first->objectId().handle().value(), 0x2Au);
  EXPECT_EQ(first->endPoint(), AcGePoint3d(1, 0, 0));
}

// Only what is no drawing file at all is refused, with the line.
TEST(DxfDamage, WhatIsNoDrawingIsRefusedWithTheLine) {
  struct Case {
    const char *name;
    std::string text;
    std::wstring message;
  };
  std::vector<Case> cases = {
      {"no SECTION", "0\nLINE\n" + kTail, L"line 1: not a drawing file: expected SECTION, found \"LINE\""},
      {"empty", "", L"line 1: not a drawing file: no SECTION"},
      {"text", "hello\nworld\n", L"line 1: not a drawing file: no SECTION"},
      {"binary", std::string("0\nSECTION\n\0\0", 13), L"line 1: not an ASCII drawing file (binary data)"},
  };
  for (const Case &c : cases) {
    std::string path = tempPath("bad.dxf");
    write(path, c.text);
    AcDbDatabase db;
    std::wstring error;
    EXPECT_EQ(openDxf(path, &db, &error), Acad::eDxfReadAborted) << c.name;
    EXPECT_EQ(error.substr(0, c.message.size()), c.message) << c.name << ": " << text::toUtf8(error);
    // The drawing is still a whole drawing afterwards.
    EXPECT_FALSE(db.impl()->modelSpace.isNull()) << c.name;
  }
  AcDbDatabase db;
  std::wstring error;
  EXPECT_EQ(openDxf(tempPath("missing.dxf"), &db, &error), Acad::eFileNotFound);
}

// A good file cut short anywhere, or with bytes changed, is refused or read
// with notes; the process survives either way.
TEST(DxfDamage, TruncatedAndFlippedFilesNeverCrash) {
  AcDbDatabase db;
  testing::buildEveryKind(db);
  std::string good = tempPath("good.dxf");
  ASSERT_EQ(saveDxf(&db, good, nullptr), Acad::eOk);
  std::string text = readAll(good);
  size_t eof = text.rfind("EOF");
  ASSERT_NE(eof, std::string::npos);
  std::string path = tempPath("damaged.dxf");
  int refused = 0, cuts = 0;
  for (size_t cut = 0; cut < eof; cut += 1 + cut / 50) {
    write(path, text.substr(0, cut));
    AcDbDatabase into;
    std::wstring error;
    Acad::ErrorStatus es = openDxf(path, &into, &error);
    ++cuts;
    if (es != Acad::eOk) {
      ++refused;
      EXPECT_EQ(error.rfind(L"line ", 0), 0u) << "cut at " << cut << ": " << text::toUtf8(error);
    } else {
      // Opened: the notes say where it ends.
      EXPECT_NE(error.find(L"line "), std::wstring::npos) << "cut at " << cut << " passed as whole";
      EXPECT_EQ(saveDxf(&into, tempPath("resaved.dxf"), nullptr), Acad::eOk) << "cut at " << cut;
    }
  }
  EXPECT_GT(cuts - refused, cuts / 2) << "most of a cut file is recovered";

  std::mt19937 random(1234);
  const char noise[] = {'x', '0', '\n', ' ', '-', '.', 'E', '}', '{', '9'};
  for (int i = 0; i < 300; ++i) {
    std::string damaged = text;
    for (int k = 0; k < 3; ++k) damaged[random() % damaged.size()] = noise[random() % sizeof noise];
    write(path, damaged);
    AcDbDatabase into;
    std::wstring error;
    if (openDxf(path, &into, &error) != Acad::eOk)
      EXPECT_EQ(error.rfind(L"line ", 0), 0u) << text::toUtf8(error);
    else
      EXPECT_EQ(saveDxf(&into, tempPath("resaved.dxf"), nullptr), Acad::eOk);
  }
}

TEST(DxfDamage, AFailedSaveKeepsTheOldFile) {
  std::string path = tempPath("kept.dxf");
  write(path, "the old drawing");
  AcDbDatabase db;
  testing::buildEveryKind(db);

  // The target cannot be replaced: it is a directory now.
  std::string dir = tempPath("a-directory.dxf");
  fs::create_directories(dir);
  std::wstring error;
  EXPECT_EQ(saveDxf(&db, dir, &error), Acad::eFileAccessErr);
  EXPECT_NE(error.find(L"cannot replace"), std::wstring::npos) << text::toUtf8(error);
  EXPECT_TRUE(fs::is_directory(dir));

  // The folder does not exist: nothing is written.
  EXPECT_EQ(saveDxf(&db, tempPath("no-such-dir/x.dxf"), &error), Acad::eFileAccessErr);
  EXPECT_EQ(readAll(path), "the old drawing");

  // No temporary file is left beside the targets (other tests save in the
  // same folder at the same time, so only this test's names are looked at).
  for (const auto &e : fs::directory_iterator(fs::path(path).parent_path())) {
    std::string name = e.path().filename().string();
    if (name.rfind("kept.dxf", 0) == 0 || name.rfind("a-directory.dxf", 0) == 0) {
      EXPECT_EQ(name.find(".tmp"), std::string::npos) << e.path();
    }
  }
}

}  // namespace
}  // namespace vantry::host
