// MText layout: how a multiline text lays out, measured with real font metrics.
//
// The drawing database asks this component for the metrics of an MText entity
// (actual width and height, ascent, descent, the width of its last line) and a
// renderer may ask it for the laid-out lines. It knows nothing of the drawing
// database: it takes the contents string with its format codes, the nominal
// text height, the defined width, the text style's font name and width factor
// and the line spacing factor, and gives the lines and the metrics in drawing
// units for that height.
//
// Fonts: a CAD font name ("txt", "romans.shx", "arial.ttf", "Arial") is mapped
// to a font file installed from a Debian font package (table and fallbacks in
// mtext_fonts.cpp, documented in docs/fonts.md) and measured with FreeType.
// When no font file exists at all the metrics are estimated, the layout says
// so in `estimated`, and one warning goes to stderr per process.
//
// Metric rules (all lengths in drawing units):
//  - the cap height of the font (the top of "H") maps to the nominal height;
//    widths scale with the same factor times the width factor;
//  - a line's nominal height is the tallest height in it; the first line's
//    baseline lies that far below the top of the text; each further baseline
//    lies 5/3 x its line's nominal height x the line spacing factor below the
//    one before;
//  - a line's ascent and descent are the ink of its glyphs above and below its
//    baseline; a line without ink (empty, or spaces only) stands as its
//    nominal box: ascent = nominal height, descent = 0;
//  - actualHeight = last baseline + last line's descent (so empty contents
//    give the nominal height); actualWidth = the widest line; a line's width
//    is the sum of its glyph advances without trailing spaces;
//  - wrapping happens at spaces when the defined width is positive; a word
//    longer than the width stays whole on its own line.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vantry::host {

// --- Input and output

struct MTextLayoutInput {
  std::wstring contents;           // with MText format codes
  double textHeight = 2.5;         // nominal height; <= 0 or not finite: 1.0
  double width = 0.0;              // defined width; <= 0 means no wrapping
  std::wstring fontName;           // the text style's font; empty means the default font
  double widthFactor = 1.0;        // the text style's width factor; <= 0 or not finite: 1.0
  double lineSpacingFactor = 1.0;  // <= 0 or not finite: 1.0
};

struct MTextLine {
  std::wstring text;    // the characters after format codes (stacks as "top/bottom")
  double width = 0;     // advance width without trailing spaces
  double height = 0;    // nominal height: the tallest text height in the line
  double baseline = 0;  // distance from the top of the text down to the baseline
  double ascent = 0;    // ink above the baseline
  double descent = 0;   // ink below the baseline, >= 0
};

struct MTextLayout {
  std::vector<MTextLine> lines;  // at least one line, even for empty contents
  double actualWidth = 0;
  double actualHeight = 0;
  double ascent = 0;         // the first line's ascent
  double descent = 0;        // the last line's descent
  double lastLineWidth = 0;  // the last line's width
  bool estimated = false;    // no font file could be read: metrics are estimates
  std::string fontFile;      // the file that measured the style's font ("" when estimated)
};

MTextLayout layoutMText(const MTextLayoutInput &in);

// --- Format codes (mtext_format.cpp)

// The character state that format codes change.
struct MTextAttrs {
  std::wstring font;  // CAD font name as written in the style or a \f code
  bool bold = false;
  bool italic = false;
  double height = 1.0;
  double widthFactor = 1.0;
  double tracking = 1.0;  // \T: factor on every advance
  bool underline = false;
  bool overline = false;
};

struct MTextPiece {
  enum class Kind { kChar, kParagraph, kStack };
  Kind kind = Kind::kChar;
  char32_t ch = 0;           // kChar; a non-breaking space is U+00A0
  std::wstring top, bottom;  // kStack
  wchar_t stackKind = L'/';  // kStack: '/' bar, '#' diagonal, '^' tolerance
  int attrs = 0;             // index into MTextFormatted::attrs
};

struct MTextFormatted {
  std::vector<MTextAttrs> attrs;  // attrs[0] is the base state
  std::vector<MTextPiece> pieces;
};

// Applies the format codes of `contents` starting from `base`. Never fails:
// an unknown code is kept as literal text, a bad value leaves the state as it
// was, an unbalanced brace is ignored.
MTextFormatted parseMTextFormat(std::wstring_view contents, const MTextAttrs &base);

// --- Fonts (mtext_fonts.cpp)

// The installed font file for a CAD font name and style, or the default font
// when the name is unknown, or "" when no font file exists on this machine.
std::string resolveFontFile(std::wstring_view fontName, bool bold = false, bool italic = false);

// A glyph's metrics in units of its font's cap height.
struct GlyphMetrics {
  double advance = 0;
  double top = 0;     // ink top above the baseline (0 when no ink)
  double bottom = 0;  // ink bottom, negative below the baseline (0 when no ink)
  bool ink = false;
};

// Measures `ch` in the font file `file` with FreeType; a character the font
// lacks is measured in the default font. Returns false if the file cannot be
// read. Thread-safe; faces are opened once and kept.
bool measureGlyph(const std::string &file, char32_t ch, GlyphMetrics *out);

}  // namespace vantry::host
