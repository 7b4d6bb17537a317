// MText layout: format codes, font resolution and metrics that behave as text does.
#include "mtext/layout.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <filesystem>
#include <string>

namespace vantry::host {
namespace {

constexpr double kH = 2.5;
constexpr double kEps = 1e-9;

MTextLayout layout(const std::wstring &contents, double width = 0, double height = kH,
                   const std::wstring &font = L"txt", double widthFactor = 1.0, double spacing = 1.0) {
  return layoutMText({contents, height, width, font, widthFactor, spacing});
}

double widthOf(const std::wstring &contents, const std::wstring &font = L"txt") {
  return layout(contents, 0, kH, font).actualWidth;
}

// The pieces flattened: characters as themselves, "|" for a paragraph break,
// "[top/bottom]" for a stack.
std::wstring flatten(const MTextFormatted &f) {
  std::wstring s;
  for (const MTextPiece &p : f.pieces) {
    if (p.kind == MTextPiece::Kind::kParagraph) s += L'|';
    if (p.kind == MTextPiece::Kind::kStack) s += L"[" + p.top + p.stackKind + p.bottom + L"]";
    if (p.kind == MTextPiece::Kind::kChar) s += wchar_t(p.ch);
  }
  return s;
}

TEST(MTextFormat, CodesLeaveOnlyTheirText) {
  struct {
    const wchar_t *in, *out;
  } cases[] = {
      {L"{\\fArial|b1|i0|c0|p34;\\H2x;Big}", L"Big"},
      {L"a\\Pb\\Pc", L"a|b|c"},
      {L"a\nb", L"a|b"},
      {L"\\\\ \\{ \\}", L"\\ { }"},
      {L"%%d%%P%%c%%%", L"\u00B0\u00B1\u2300%"},
      {L"%%176 50% %%q", L"\u00B0 50% %%q"},
      {L"\\U+00B0C \\U+zz", L"\u00B0C \\U+zz"},
      {L"\\C1;red \\c255;\\Lunder\\l \\Oover\\o \\Kx\\k", L"red under over x"},
      {L"\\A1;\\Q15;\\T1.2;\\pi-2;x", L"x"},
      {L"1\\S1/2; \\S+0.1^-0.2; \\S3#4;", L"1[1/2] [+0.1^-0.2] [3#4]"},
      {L"\\Sa\\;b/c;", L"[a;b/c]"},
      {L"a\\~b", L"a\u00A0b"},
      {L"\\q a\\", L"\\q a\\"},
      {L"\\H2", L""},
      {L"}a{b", L"ab"},
  };
  for (const auto &c : cases) EXPECT_EQ(flatten(parseMTextFormat(c.in, {})), c.out) << c.in;
}

TEST(MTextFormat, CodesChangeTheStateAndBracesRestoreIt) {
  MTextAttrs base;
  base.font = L"txt";
  base.height = 2.5;
  base.widthFactor = 0.8;
  struct {
    const wchar_t *in;
    double height, widthFactor;
    const wchar_t *font;
    bool bold, italic, underline, overline;
  } cases[] = {
      {L"x", 2.5, 0.8, L"txt", false, false, false, false},
      {L"\\H2;x", 2, 0.8, L"txt", false, false, false, false},
      {L"\\H2x;x", 5, 0.8, L"txt", false, false, false, false},
      {L"\\H.5x;\\H0.5x;x", 0.625, 0.8, L"txt", false, false, false, false},
      {L"{\\H3;\\W2;\\L\\O\\fArial|b1;a}x", 2.5, 0.8, L"txt", false, false, false, false},
      {L"\\H-1;\\H0;\\Habc;\\H2y;\\W0;x", 2.5, 0.8, L"txt", false, false, false, false},
      {L"\\W0.5;x", 2.5, 0.5, L"txt", false, false, false, false},
      {L"\\W2x;\\W2x;x", 2.5, 3.2, L"txt", false, false, false, false},
      {L"\\Fromans.shx|c0;x", 2.5, 0.8, L"romans.shx", false, false, false, false},
      {L"\\fArial|b1|i1|c0;x", 2.5, 0.8, L"Arial", true, true, false, false},
      {L"\\f|b1;x", 2.5, 0.8, L"txt", false, false, false, false},
      {L"\\L\\Ox", 2.5, 0.8, L"txt", false, false, true, true},
      {L"\\L\\O\\l\\ox", 2.5, 0.8, L"txt", false, false, false, false},
  };
  for (const auto &c : cases) {
    MTextFormatted f = parseMTextFormat(c.in, base);
    ASSERT_FALSE(f.pieces.empty()) << c.in;
    const MTextAttrs &a = f.attrs[f.pieces.back().attrs];
    EXPECT_DOUBLE_EQ(a.height, c.height) << c.in;
    EXPECT_DOUBLE_EQ(a.widthFactor, c.widthFactor) << c.in;
    EXPECT_EQ(a.font, c.font) << c.in;
    EXPECT_EQ(a.bold, c.bold) << c.in;
    EXPECT_EQ(a.italic, c.italic) << c.in;
    EXPECT_EQ(a.underline, c.underline) << c.in;
    EXPECT_EQ(a.overline, c.overline) << c.in;
  }
}

TEST(MTextFonts, CadNamesMapToInstalledFamilies) {
  auto ends = [](const std::string &path, const char *file) {
    return path.size() >= std::strlen(file) &&
           path.compare(path.size() - std::strlen(file), std::string::npos, file) == 0;
  };
  const char *dejavu = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
  if (!std::filesystem::exists(dejavu)) GTEST_SKIP() << "fonts-dejavu-core is not installed";
  bool liberation =
      std::filesystem::exists("/usr/share/fonts/truetype/liberation2/LiberationSans-Regular.ttf");
  struct {
    const wchar_t *name;
    bool bold, italic;
    const char *file;
  } cases[] = {
      {L"txt", false, false, "DejaVuSans.ttf"},
      {L"ROMANS.SHX", false, false, "DejaVuSans.ttf"},
      {L"isocp", false, false, "DejaVuSansCondensed.ttf"},
      {L"monotxt.shx", false, false, "DejaVuSansMono.ttf"},
      {L"romanc", true, false, "DejaVuSerif-Bold.ttf"},
      {L"no such font", false, false, "DejaVuSans.ttf"},
      {L"", false, true, "DejaVuSans-Oblique.ttf"},
      {L"DejaVuSerif.ttf", false, false, "DejaVuSerif.ttf"},
      {L"arial.ttf", false, false, liberation ? "LiberationSans-Regular.ttf" : "DejaVuSans.ttf"},
      {L"Arial", true, false, liberation ? "LiberationSans-Bold.ttf" : "DejaVuSans-Bold.ttf"},
      {L"Times New Roman", false, true, liberation ? "LiberationSerif-Italic.ttf" : "DejaVuSerif-Italic.ttf"},
  };
  for (const auto &c : cases) {
    std::string file = resolveFontFile(c.name, c.bold, c.italic);
    EXPECT_TRUE(ends(file, c.file)) << file << " for " << std::string(c.name, c.name + std::wcslen(c.name));
  }
  EXPECT_EQ(resolveFontFile(L"/usr/share/fonts/truetype/dejavu/DejaVuSerif.ttf"),
            "/usr/share/fonts/truetype/dejavu/DejaVuSerif.ttf");
}

class MTextLayoutTest : public testing::Test {
 protected:
  void SetUp() override {
    if (layout(L"A").estimated) GTEST_SKIP() << "no font file installed";
  }
};

TEST_F(MTextLayoutTest, LongerTextIsWiderAndWidthScalesWithHeight) {
  double previous = 0;
  for (const wchar_t *s : {L"A", L"AB", L"ABC", L"ABC D", L"ABC DE"}) {
    double w = widthOf(s);
    EXPECT_GT(w, previous) << s;
    previous = w;
  }
  EXPECT_NEAR(layout(L"ABC", 0, 2 * kH).actualWidth, 2 * widthOf(L"ABC"), kEps);
  EXPECT_NEAR(widthOf(L"ABC   "), widthOf(L"ABC"), kEps);
  // Scaled by the cap height, not the em: a sans-serif capital H is about as wide as it is tall.
  EXPECT_NEAR(widthOf(L"H") / kH, 1.0, 0.15);
  EXPECT_LT(widthOf(L"iii", L"txt"), widthOf(L"WWW", L"txt"));
  EXPECT_NEAR(widthOf(L"iii", L"monotxt"), widthOf(L"WWW", L"monotxt"), kEps);
}

TEST_F(MTextLayoutTest, CapHeightIsTheNominalHeight) {
  struct {
    const wchar_t *in;
    double height, ascent, descent;
  } cases[] = {
      {L"", kH, kH, 0},
      {L"H", kH, kH, 0},
      {L"HOCS", kH, kH, 0},
      {L"   ", kH, kH, 0},
      {L"A\\PB", kH + 5.0 / 3 * kH, kH, 0},
      {L"A\\P", kH + 5.0 / 3 * kH, kH, 0},
      {L"\\H5;H", 5, 5, 0},
  };
  for (const auto &c : cases) {
    MTextLayout l = layout(c.in);
    EXPECT_NEAR(l.actualHeight, c.height, kEps) << c.in;
    EXPECT_NEAR(l.ascent, c.ascent, kEps) << c.in;
    EXPECT_NEAR(l.descent, c.descent, kEps) << c.in;
  }
  // Descenders go below the baseline; lowercase without ascenders stays under the cap line.
  MTextLayout g = layout(L"Agj");
  EXPECT_GT(g.descent, 0.1 * kH);
  EXPECT_NEAR(g.actualHeight, kH + g.descent, kEps);
  EXPECT_LT(layout(L"ace").ascent, kH);
  EXPECT_GT(layout(L"bdl").ascent, kH);
  EXPECT_EQ(layout(L"").lines.size(), 1u);
  EXPECT_EQ(layout(L"").actualWidth, 0);
}

TEST_F(MTextLayoutTest, ParagraphsAndSpacingStackLines) {
  EXPECT_EQ(layout(L"A\\PB\\PC").lines.size(), 3u);
  EXPECT_NEAR(layout(L"A\\PB\\PC").actualHeight, kH + 2 * 5.0 / 3 * kH, kEps);
  EXPECT_NEAR(layout(L"A\\PB", 0, kH, L"txt", 1, 1.5).actualHeight, kH + 1.5 * 5.0 / 3 * kH, kEps);
  // A taller second line sits lower: the pitch follows that line's height.
  EXPECT_NEAR(layout(L"A\\P\\H2x;B").actualHeight, kH + 5.0 / 3 * 2 * kH, kEps);
  MTextLayout l = layout(L"WWWW\\PI");
  EXPECT_NEAR(l.actualWidth, widthOf(L"WWWW"), kEps);
  EXPECT_NEAR(l.lastLineWidth, widthOf(L"I"), kEps);
  EXPECT_EQ(l.lines[1].text, L"I");
}

TEST_F(MTextLayoutTest, WrapsAtSpacesWithinTheDefinedWidth) {
  const double twoWords = widthOf(L"AAA BBB");
  MTextLayout l = layout(L"AAA BBB CCC", twoWords + 0.01);
  ASSERT_EQ(l.lines.size(), 2u);
  EXPECT_EQ(l.lines[0].text, L"AAA BBB");
  EXPECT_EQ(l.lines[1].text, L"CCC");
  EXPECT_NEAR(l.actualWidth, twoWords, kEps);
  EXPECT_NEAR(l.lastLineWidth, widthOf(L"CCC"), kEps);
  EXPECT_GT(l.actualHeight, layout(L"AAA BBB CCC").actualHeight);

  MTextLayout spaces = layout(L"AAA   BBB", widthOf(L"AAA"));
  ASSERT_EQ(spaces.lines.size(), 2u);
  EXPECT_EQ(spaces.lines[0].text, L"AAA");
  EXPECT_EQ(spaces.lines[1].text, L"BBB");
  EXPECT_EQ(layout(L"AAA BBB CCC", 0).lines.size(), 1u);
  EXPECT_EQ(layout(L"AAA BBB CCC", 1e6).lines.size(), 1u);
  EXPECT_EQ(layout(L"AAA BBB CCC", 0.001).lines.size(), 3u);
  // A word wider than the width is not broken; a non-breaking space joins words.
  MTextLayout longWord = layout(L"ABCDEFGH", 1.0);
  EXPECT_EQ(longWord.lines.size(), 1u);
  EXPECT_GT(longWord.actualWidth, 1.0);
  EXPECT_EQ(layout(L"AAA\\~BBB", 1.0).lines.size(), 1u);
}

TEST_F(MTextLayoutTest, WidthFactorAndHeightCodesScaleMetrics) {
  const double w = widthOf(L"ABC");
  EXPECT_NEAR(layout(L"ABC", 0, kH, L"txt", 0.5).actualWidth, 0.5 * w, kEps);
  EXPECT_NEAR(widthOf(L"\\W0.5;ABC"), 0.5 * w, kEps);
  EXPECT_NEAR(widthOf(L"\\H5;ABC"), 2 * w, kEps);
  EXPECT_NEAR(widthOf(L"{\\H5;ABC}ABC"), 3 * w, kEps);
  EXPECT_NEAR(layout(L"\\H5;ABC").actualHeight, 5, kEps);
}

TEST_F(MTextLayoutTest, FormatCodesAreNotGlyphs) {
  const double w = widthOf(L"ABC");
  for (const wchar_t *s :
       {L"{\\C1;ABC}", L"\\LABC\\l", L"\\OA\\oBC", L"{\\fDejaVu Sans|b0;ABC}", L"\\A1;ABC", L"A{}B{\\K}C"})
    EXPECT_NEAR(widthOf(s), w, kEps) << s;
  MTextLayout deg = layout(L"%%d");
  EXPECT_EQ(deg.lines[0].text, L"\u00B0");
  EXPECT_NEAR(deg.actualWidth, widthOf(L"\\U+00B0"), kEps);
  EXPECT_NEAR(widthOf(L"20%%d"), widthOf(L"20") + deg.actualWidth, kEps);
  EXPECT_GT(widthOf(L"%%c"), 0);
}

TEST_F(MTextLayoutTest, StacksAreNarrowerThanTheirTextInline) {
  const double stacked = widthOf(L"1\\S1/2;");
  EXPECT_GT(stacked, widthOf(L"1"));
  EXPECT_LT(stacked, widthOf(L"11/2"));
  EXPECT_GT(widthOf(L"\\S1#2;"), widthOf(L"\\S1/2;"));
  // The parts sit one over the other: the narrower part adds no width.
  EXPECT_NEAR(widthOf(L"\\S1/234;"), widthOf(L"\\S/234;"), kEps);
  EXPECT_NEAR(widthOf(L"\\S1234^5;"), widthOf(L"\\S1234^;"), kEps);
  EXPECT_GT(layout(L"\\S1/2;").actualHeight, kH);
}

TEST_F(MTextLayoutTest, BadInputGivesSaneMetrics) {
  const double nan = std::nan(""), inf = HUGE_VAL;
  struct {
    MTextLayoutInput in;
    double height;
  } cases[] = {
      {{L"", -3, 0, L"txt", 1, 1}, 1.0},
      {{L"", nan, nan, L"txt", nan, nan}, 1.0},
      {{L"A B", inf, inf, L"txt", inf, inf}, 1.0},
      {{L"A", 0, -5, L"", -1, -1}, 1.0},
      {{L"\\H;\\W;\\S;\\f;{{{", kH, 0, L"txt", 1, 1}, kH},
      {{L"\U0001F600\u2603", kH, 0, L"??", 1, 1}, -1},
  };
  for (const auto &c : cases) {
    MTextLayout l = layoutMText(c.in);
    EXPECT_TRUE(std::isfinite(l.actualWidth) && std::isfinite(l.actualHeight)) << c.in.contents.size();
    EXPECT_GE(l.actualWidth, 0);
    if (c.height > 0) {
      EXPECT_NEAR(l.actualHeight, c.height, kEps);
    }
  }
  EXPECT_GT(layout(L"\U0001F600").actualWidth, 0);
  // Font names that are not fonts, or not even text, fall back to the default font.
  const double w = widthOf(L"ABC", L"");
  for (const wchar_t *font : {L"\xD800x", L"/etc/hostname", L"../../x.ttf", L"Schrift\u00E9.ttf"}) {
    MTextLayout l = layout(L"ABC", 0, kH, font);
    EXPECT_FALSE(l.estimated);
    EXPECT_NEAR(l.actualWidth, w, kEps);
    EXPECT_EQ(l.fontFile, resolveFontFile(L""));
  }
}

TEST(MTextLayoutWithoutFonts, MetricsAreEstimatedAndStillBehave) {
  std::filesystem::path empty = std::filesystem::temp_directory_path() / "vantry-no-fonts";
  std::filesystem::create_directories(empty);
  const char *old = std::getenv("VANTRY_FONT_ROOT");
  std::string saved = old ? old : "";
  setenv("VANTRY_FONT_ROOT", empty.c_str(), 1);
  MTextLayout a = layout(L"ABC"), b = layout(L"ABCD"), e = layout(L""), w = layout(L"AAA BBB", 1.0);
  old ? setenv("VANTRY_FONT_ROOT", saved.c_str(), 1) : unsetenv("VANTRY_FONT_ROOT");
  EXPECT_TRUE(a.estimated);
  EXPECT_EQ(a.fontFile, "");
  EXPECT_GT(a.actualWidth, 0);
  EXPECT_GT(b.actualWidth, a.actualWidth);
  EXPECT_NEAR(e.actualHeight, kH, kEps);
  EXPECT_EQ(w.lines.size(), 2u);
}

}  // namespace
}  // namespace vantry::host
