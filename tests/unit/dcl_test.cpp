// DCL files: the reader's syntax errors, the audit's findings by level,
// inheritance and includes, acad.dce, the layout and the picture.
#include <cairo.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "dcl/dcl.h"
#include "host_fixture.h"
#include "render.h"

namespace vantry::host::dcl {
namespace {

std::vector<Diagnostic> load(const std::wstring &text, std::shared_ptr<const File> *out = nullptr) {
  std::vector<Diagnostic> d;
  auto f = loadText(text, L"t.dcl", &d);
  if (out) *out = f;
  return d;
}

TEST(DclSyntax, TheFirstErrorStopsTheFileWithItsLineAndSymbol) {
  struct Case {
    const wchar_t *text;
    int line;
    const wchar_t *message;
  } cases[] = {
      {L"d : dialog {\n  label = \"x\"\n  ok_only;\n}", 3, L"syntax error\nSymbol: \"ok_only\"."},
      {L"d : dialog { label = \"never ends;\n}", 1, L"syntax error\nSymbol: \"\"\"."},
      {L"d : dialog { ok_only;", 1, L"syntax error\nPremature end of file."},
      {L"/* comment\n\n*/ d dialog { }", 3, L"syntax error\nSymbol: \"dialog\"."},
      {L"d : dialog { : button { key = ; } }", 1, L"syntax error\nSymbol: \";\"."},
  };
  for (const Case &c : cases) {
    std::shared_ptr<const File> f;
    auto d = load(c.text, &f);
    EXPECT_EQ(f, nullptr) << c.text;
    ASSERT_EQ(d.size(), 1u) << c.text;
    EXPECT_EQ(d[0].line, c.line) << c.text;
    EXPECT_EQ(d[0].message, c.message) << c.text;
  }
}

TEST(DclAudit, ErrorsStopTheLoad) {
  struct Case {
    const wchar_t *text;
    const wchar_t *message;
  } cases[] = {
      {L"d : dialog { : nothing_here { } ok_only; }", L"Tile \"nothing_here\" is not defined."},
      {L"a : b { }\nb : a { }\nd : dialog { a; ok_only; }", L"is its own prototype"},
      {L"@include \"not_there.dcl\"\nd : dialog { ok_only; }", L"Cannot open the included file \"not_there.dcl\"."},
  };
  for (const Case &c : cases) {
    std::shared_ptr<const File> f;
    auto d = load(c.text, &f);
    EXPECT_EQ(f, nullptr) << c.text;
    ASSERT_FALSE(d.empty()) << c.text;
    EXPECT_EQ(d[0].level, Diagnostic::Error);
    EXPECT_NE(d[0].message.find(c.message), std::wstring::npos) << d[0].message;
  }
}

TEST(DclAudit, WarningsAndHintsOnlyAtTheirLevelAndTheFileStillLoads) {
  std::wstring body =
      L"d : dialog {\n"
      L"  : button { label = \"no key\"; }\n"
      L"  : edit_box { key = \"w\"; width = wide; }\n"
      L"  : toggle { key = \"w\"; }\n"
      L"  : retirement_button { key = \"r\"; label = \"R\"; fixed_width = true; }\n"
      L"}\n";
  std::shared_ptr<const File> f;
  EXPECT_TRUE(load(body, &f).empty()) << "level 1 finds nothing here";
  EXPECT_NE(f, nullptr);
  auto d = load(L"dcl_settings : default_dcl_settings { audit_level = 3; }\n" + body, &f);
  ASSERT_NE(f, nullptr);
  std::vector<std::wstring> found;
  for (auto &g : d) found.push_back(std::to_wstring(g.level) + L":" + std::to_wstring(g.line) + L":" + g.message);
  auto has = [&](const std::wstring &s) {
    return std::any_of(found.begin(), found.end(), [&](auto &x) { return x.find(s) != std::wstring::npos; });
  };
  EXPECT_TRUE(has(L"2:3:A button tile has no key"));
  EXPECT_TRUE(has(L"2:4:Attribute \"width\" wants a number"));
  EXPECT_TRUE(has(L"2:5:The key \"w\" is used by more than one tile."));
  EXPECT_TRUE(has(L"3:6:Attribute \"fixed_width\" repeats"));
  EXPECT_TRUE(has(L"2:2:The dialog has neither an OK nor a Cancel button"));
}

TEST(DclModel, PrototypesInheritInOrderAndChildrenComeFromThePrototypeUnlessGiven) {
  std::shared_ptr<const File> f;
  ASSERT_TRUE(load(L"wide : button { width = 20; label = \"A\"; }\n"
                   L"bold : text { label = \"B\"; is_bold = true; }\n"
                   L"both : wide : bold { key = \"k\"; }\n"
                   L"pair : row { : button { key = \"p1\"; } : button { key = \"p2\"; } }\n"
                   L"d : dialog { both; pair; : pair { : button { key = \"own\"; } } ok_only; }",
                   &f)
                  .empty());
  auto t = instance(*f, L"d");
  ASSERT_NE(t, nullptr);
  const Tile &both = *t->children[0];
  EXPECT_EQ(both.kind, L"text");  // the last prototype's kind
  EXPECT_EQ(both.str(L"label"), L"B");
  EXPECT_EQ(both.str(L"width"), L"20");
  EXPECT_EQ(both.key(), L"k");
  EXPECT_EQ(t->children[1]->children.size(), 2u);
  ASSERT_EQ(t->children[2]->children.size(), 1u);
  EXPECT_EQ(t->children[2]->children[0]->key(), L"own");
  EXPECT_EQ(instance(*f, L"wide"), nullptr) << "a button is not a dialog";
}

TEST(DclLayout, ChildrenSitInsideTheirClusterAndOkCancelIsOneCentredRow) {
  std::shared_ptr<const File> f;
  ASSERT_TRUE(load(L"d : dialog { label = \"T\"; : boxed_column { label = \"Box\";"
                   L" : edit_box { key = \"e\"; label = \"Name:\"; edit_width = 20; }"
                   L" : list_box { key = \"l\"; height = 6; } }"
                   L" : image { key = \"i\"; width = 10; aspect_ratio = 0.5; } ok_cancel; }",
                   &f)
                  .empty());
  auto t = instance(*f, L"d");
  ASSERT_NE(t, nullptr);
  std::function<void(const Tile &)> inside = [&](const Tile &p) {
    for (auto &c : p.children) {
      EXPECT_GE(c->x, p.x) << text::toUtf8(c->kind);
      EXPECT_GE(c->y, p.y) << text::toUtf8(c->kind);
      EXPECT_LE(c->x + c->width, p.x + p.width) << text::toUtf8(c->kind);
      EXPECT_LE(c->y + c->height, p.y + p.height) << text::toUtf8(c->kind);
      inside(*c);
    }
  };
  inside(*t);
  const Tile &image = *t->children[1];
  EXPECT_EQ(image.width, 10 * kCharWidth);
  EXPECT_EQ(image.height, 140) << "the aspect ratio is width over height";
  const Tile &row = *t->children[2]->children[0];
  const Tile &ok = *row.children[0], &cancel = *row.children[2];
  EXPECT_EQ(ok.y, cancel.y);
  EXPECT_LT(ok.x + ok.width, cancel.x);
  int left = ok.x - t->x, right = t->x + t->width - (cancel.x + cancel.width);
  EXPECT_NEAR(left, right, 2) << "the buttons are centred";
  EXPECT_GE(t->children[0]->children[1]->height, 6 * kLineHeight);
}

class DclFiles : public HostTest {
 protected:
  DclFiles() : dir_(std::filesystem::temp_directory_path() / ("vantry-dcl-" + std::to_string(getpid()))) {
    std::filesystem::create_directories(dir_);
    old_ = std::filesystem::current_path();
    std::filesystem::current_path(dir_);
  }
  ~DclFiles() override {
    std::filesystem::current_path(old_);
    std::filesystem::remove_all(dir_);
  }
  void write(const char *name, const char *text) { std::ofstream(dir_ / name) << text; }
  std::filesystem::path dir_, old_;
};

TEST_F(DclFiles, ErrorsAlertAndGoToAcadDceWhichACleanLoadRemoves) {
  write("bad.dcl", "d : dialog {\n  : nothing { }\n  ok_only;\n}\n");
  write("syntax.dcl", "d : dialog {\n  label = \"x\"\n}\n");
  write("good.dcl", "d : dialog { label = \"Good\"; ok_only; }\n");
  EXPECT_EQ(lisp(L"(load_dialog \"bad\")"), L"-1");
  EXPECT_NE(s().transcript().find(L"[Alert] Errors in dialog file \"bad.dcl\".\nSee acad.dce for details."),
            std::wstring::npos)
      << text::toUtf8(s().transcript());
  std::ifstream dce("acad.dce");
  std::string all((std::istreambuf_iterator<char>(dce)), {});
  EXPECT_NE(all.find("Error in bad.dcl, line 2:\n   Tile \"nothing\" is not defined."), std::string::npos) << all;
  s().clearTranscript();
  EXPECT_EQ(lisp(L"(load_dialog \"syntax.dcl\")"), L"-1");
  EXPECT_NE(s().transcript().find(L"Error in dialog file\n\"syntax.dcl\", line 3:\nsyntax error\nSymbol: \"}\"."),
            std::wstring::npos)
      << text::toUtf8(s().transcript());
  EXPECT_EQ(lisp(L"(load_dialog \"good\")"), L"1");
  EXPECT_FALSE(std::filesystem::exists("acad.dce"));
}

TEST_F(DclFiles, ThePictureShowsTheTitleBarAndTheDefaultButton) {
  write("p.dcl", "p : dialog { label = \"Picture\"; : toggle { key = \"t\"; label = \"On\"; value = \"1\"; } ok_cancel; }\n");
  std::string error;
  ASSERT_TRUE(render::writeDialogPng(L"p.dcl", L"p", "p.png", &error)) << error;
  cairo_surface_t *png = cairo_image_surface_create_from_png("p.png");
  ASSERT_EQ(cairo_surface_status(png), CAIRO_STATUS_SUCCESS);
  int w = cairo_image_surface_get_width(png), h = cairo_image_surface_get_height(png);
  EXPECT_GT(w, 100);
  EXPECT_GT(h, 60);
  auto *px = reinterpret_cast<uint32_t *>(cairo_image_surface_get_data(png));
  int stride = cairo_image_surface_get_stride(png) / 4;
  EXPECT_EQ(px[2 * stride + w - 3] & 0xffffff, 0x2b579au) << "title bar";
  EXPECT_EQ(px[(h / 2) * stride + w / 2] & 0xffffff, 0xf0f0f0u) << "the dialog's face";
  std::shared_ptr<const File> f = loadFile(L"p.dcl", nullptr);
  auto t = instance(*f, L"p");
  const Tile &ok = *t->children[1]->children[0]->children[0];
  EXPECT_EQ(px[(28 + ok.y) * stride + 8 + ok.x] & 0xffffff, 0x0078d7u) << "the default button's outline";
  cairo_surface_destroy(png);

  // Radio buttons side by side: nothing is drawn in the empty end of the
  // first, wider than its label (a line from the label's end to the next
  // circle was, while the text left its point in the path).
  write("r.dcl", "r : dialog { : radio_row { : radio_button { key = \"a\"; label = \"Round\"; value = \"1\"; width = 24; }\n"
                 ": radio_button { key = \"b\"; label = \"Rectangular\"; } } ok_only; }\n");
  ASSERT_TRUE(render::writeDialogPng(L"r.dcl", L"r", "r.png", &error)) << error;
  png = cairo_image_surface_create_from_png("r.png");
  ASSERT_EQ(cairo_surface_status(png), CAIRO_STATUS_SUCCESS);
  px = reinterpret_cast<uint32_t *>(cairo_image_surface_get_data(png));
  stride = cairo_image_surface_get_stride(png) / 4;
  std::shared_ptr<const File> rf = loadFile(L"r.dcl", nullptr);
  auto rt = instance(*rf, L"r");
  const Tile &row = *rt->children[0];
  const Tile &first = *row.children[0], &second = *row.children[1];
  int stray = 0;
  for (int y = first.y; y < first.y + first.height; ++y)
    for (int x = first.x + first.width - 16; x < first.x + first.width - 2; ++x)
      if ((px[(28 + y) * stride + 8 + x] & 0xffffff) != 0xf0f0f0u) ++stray;
  EXPECT_EQ(stray, 0) << "pixels drawn after the first radio button's label";
  EXPECT_LE(second.x, first.x + first.width + 8) << "the buttons are neighbours";
  cairo_surface_destroy(png);
  EXPECT_FALSE(render::writeDialogPng(L"p.dcl", L"nope", "q.png", &error));
  EXPECT_NE(error.find("no dialog \"nope\""), std::string::npos) << error;
}

}  // namespace
}  // namespace vantry::host::dcl
