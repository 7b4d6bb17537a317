// Damaged drawing files and failed saves: a clear status and a message
// naming the line, never a crash, a hang or a lost file.
#include <filesystem>
#include <fstream>
#include <random>
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

TEST(DxfDamage, BadFilesNameTheLineAtFault) {
  struct Case {
    const char *name;
    std::string text;
    std::wstring message;
  };
  std::vector<Case> cases = {
      {"not a code", kHead + "abc\nLINE\n" + kTail, L"line 5: expected a group code, found \"abc\""},
      {"code without value", kHead + "0", L"line 5: the file ends after group code 0, before its value"},
      {"no EOF", kHead + "0\nLINE\n10\n1.0\n", L"line 8: the file ends without EOF"},
      {"bad real", kHead + "0\nLINE\n10\n1.x\n" + kTail,
       L"line 8: expected a number for group code 10, found \"1.x\""},
      {"bad integer", kHead + "0\nLINE\n62\nred\n" + kTail,
       L"line 8: expected an integer for group code 62, found \"red\""},
      {"bad handle", kHead + "0\nLINE\n5\nXYZ\n" + kTail,
       L"line 8: expected a handle for group code 5, found \"XYZ\""},
      {"no SECTION", "0\nLINE\n" + kTail, L"line 1: expected SECTION or EOF, found \"LINE\""},
      {"unclosed 102", kHead + "0\nLINE\n102\n{ACAD_REACTORS\n330\n1\n0\nCIRCLE\n" + kTail,
       L"line 11: the 102 group opened at line 7 is not closed"},
      {"polyline without end", kHead + "0\nPOLYLINE\n70\n0\n0\nVERTEX\n10\n0\n20\n0\n" + kTail,
       L"line 15: the POLYLINE of line 5 has no SEQEND"},
      {"xdata without application", kHead + "0\nLINE\n1000\nx\n" + kTail,
       L"line 7: extended data must start with group 1001, found group 1000"},
      {"negative radius", kHead + "0\nCIRCLE\n10\n0\n20\n0\n40\n-1\n" + kTail,
       L"line 5: the CIRCLE is not valid"},
      {"handle beyond the file", kHead + "0\nLINE\n5\nFFFFFFFFF\n" + kTail,
       L"line 8: the handle FFFFFFFFF is beyond"},
      {"binary", std::string("0\nSECTION\n\0\0", 13), L"line 1: not an ASCII drawing file (binary data)"},
  };
  for (const Case &c : cases) {
    std::string path = tempPath("bad.dxf");
    write(path, c.text);
    AcDbDatabase db;
    std::wstring error;
    EXPECT_NE(openDxf(path, &db, &error), Acad::eOk) << c.name;
    EXPECT_EQ(error.substr(0, c.message.size()), c.message) << c.name << ": " << text::toUtf8(error);
    // The drawing is still a whole drawing afterwards.
    EXPECT_FALSE(db.impl()->modelSpace.isNull()) << c.name;
  }
  AcDbDatabase db;
  std::wstring error;
  EXPECT_EQ(openDxf(tempPath("missing.dxf"), &db, &error), Acad::eFileNotFound);
}

// A good file cut short anywhere, or with bytes changed, is refused or read;
// the process survives either way.
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
    }
  }
  EXPECT_EQ(refused, cuts) << "a cut file must never pass as whole";

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

  // No temporary file is left beside the target.
  for (const auto &e : fs::directory_iterator(fs::path(path).parent_path()))
    EXPECT_EQ(e.path().string().find(".tmp"), std::string::npos) << e.path();
}

}  // namespace
}  // namespace vantry::host
