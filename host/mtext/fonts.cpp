// Font files for CAD font names, and glyph metrics read from them with FreeType.
//
// CAD drawings name fonts as the CAD program knows them: stroke fonts by file
// ("txt", "romans.shx") and outline fonts by file or family ("arial.ttf",
// "Arial"). None of those files exist here, so each known name maps to a
// family of installed Debian fonts (fonts-dejavu-core, fonts-liberation2)
// with similar proportions; docs/fonts.md lists the table. Unknown names take
// the default family (DejaVu Sans). The font root is /usr/share/fonts, or
// $VANTRY_FONT_ROOT when set (tests point it at an empty directory to see the
// estimated metrics).
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_TRUETYPE_TABLES_H

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <tuple>

#include "mtext/layout.h"

namespace vantry::host {
namespace {

// Candidate files (relative to the font root), first existing wins.
struct Family {
  const char *key;
  const char *regular[3];
  const char *bold[3];
  const char *italic[3];
  const char *boldItalic[3];
};

// clang-format off
constexpr Family kFamilies[] = {
  {"sans",
   {"truetype/dejavu/DejaVuSans.ttf", "truetype/liberation2/LiberationSans-Regular.ttf"},
   {"truetype/dejavu/DejaVuSans-Bold.ttf", "truetype/liberation2/LiberationSans-Bold.ttf"},
   {"truetype/dejavu/DejaVuSans-Oblique.ttf", "truetype/liberation2/LiberationSans-Italic.ttf"},
   {"truetype/dejavu/DejaVuSans-BoldOblique.ttf", "truetype/liberation2/LiberationSans-BoldItalic.ttf"}},
  {"condensed",
   {"truetype/dejavu/DejaVuSansCondensed.ttf", "truetype/dejavu/DejaVuSans.ttf"},
   {"truetype/dejavu/DejaVuSansCondensed-Bold.ttf", "truetype/dejavu/DejaVuSans-Bold.ttf"},
   {"truetype/dejavu/DejaVuSansCondensed-Oblique.ttf", "truetype/dejavu/DejaVuSans-Oblique.ttf"},
   {"truetype/dejavu/DejaVuSansCondensed-BoldOblique.ttf", "truetype/dejavu/DejaVuSans-BoldOblique.ttf"}},
  {"mono",
   {"truetype/dejavu/DejaVuSansMono.ttf", "truetype/liberation2/LiberationMono-Regular.ttf"},
   {"truetype/dejavu/DejaVuSansMono-Bold.ttf", "truetype/liberation2/LiberationMono-Bold.ttf"},
   {"truetype/dejavu/DejaVuSansMono-Oblique.ttf", "truetype/liberation2/LiberationMono-Italic.ttf"},
   {"truetype/dejavu/DejaVuSansMono-BoldOblique.ttf", "truetype/liberation2/LiberationMono-BoldItalic.ttf"}},
  {"serif",
   {"truetype/dejavu/DejaVuSerif.ttf", "truetype/liberation2/LiberationSerif-Regular.ttf"},
   {"truetype/dejavu/DejaVuSerif-Bold.ttf", "truetype/liberation2/LiberationSerif-Bold.ttf"},
   {"truetype/dejavu/DejaVuSerif-Italic.ttf", "truetype/liberation2/LiberationSerif-Italic.ttf"},
   {"truetype/dejavu/DejaVuSerif-BoldItalic.ttf", "truetype/liberation2/LiberationSerif-BoldItalic.ttf"}},
  {"serif-italic",
   {"truetype/dejavu/DejaVuSerif-Italic.ttf", "truetype/liberation2/LiberationSerif-Italic.ttf"},
   {"truetype/dejavu/DejaVuSerif-BoldItalic.ttf", "truetype/liberation2/LiberationSerif-BoldItalic.ttf"},
   {"truetype/dejavu/DejaVuSerif-Italic.ttf", "truetype/liberation2/LiberationSerif-Italic.ttf"},
   {"truetype/dejavu/DejaVuSerif-BoldItalic.ttf", "truetype/liberation2/LiberationSerif-BoldItalic.ttf"}},
  // Metric-compatible outline fonts first, DejaVu when they are not installed.
  {"liberation-sans",
   {"truetype/liberation2/LiberationSans-Regular.ttf", "truetype/liberation/LiberationSans-Regular.ttf",
    "truetype/dejavu/DejaVuSans.ttf"},
   {"truetype/liberation2/LiberationSans-Bold.ttf", "truetype/liberation/LiberationSans-Bold.ttf",
    "truetype/dejavu/DejaVuSans-Bold.ttf"},
   {"truetype/liberation2/LiberationSans-Italic.ttf", "truetype/liberation/LiberationSans-Italic.ttf",
    "truetype/dejavu/DejaVuSans-Oblique.ttf"},
   {"truetype/liberation2/LiberationSans-BoldItalic.ttf", "truetype/liberation/LiberationSans-BoldItalic.ttf",
    "truetype/dejavu/DejaVuSans-BoldOblique.ttf"}},
  {"liberation-serif",
   {"truetype/liberation2/LiberationSerif-Regular.ttf", "truetype/liberation/LiberationSerif-Regular.ttf",
    "truetype/dejavu/DejaVuSerif.ttf"},
   {"truetype/liberation2/LiberationSerif-Bold.ttf", "truetype/liberation/LiberationSerif-Bold.ttf",
    "truetype/dejavu/DejaVuSerif-Bold.ttf"},
   {"truetype/liberation2/LiberationSerif-Italic.ttf", "truetype/liberation/LiberationSerif-Italic.ttf",
    "truetype/dejavu/DejaVuSerif-Italic.ttf"},
   {"truetype/liberation2/LiberationSerif-BoldItalic.ttf", "truetype/liberation/LiberationSerif-BoldItalic.ttf",
    "truetype/dejavu/DejaVuSerif-BoldItalic.ttf"}},
  {"liberation-mono",
   {"truetype/liberation2/LiberationMono-Regular.ttf", "truetype/liberation/LiberationMono-Regular.ttf",
    "truetype/dejavu/DejaVuSansMono.ttf"},
   {"truetype/liberation2/LiberationMono-Bold.ttf", "truetype/liberation/LiberationMono-Bold.ttf",
    "truetype/dejavu/DejaVuSansMono-Bold.ttf"},
   {"truetype/liberation2/LiberationMono-Italic.ttf", "truetype/liberation/LiberationMono-Italic.ttf",
    "truetype/dejavu/DejaVuSansMono-Oblique.ttf"},
   {"truetype/liberation2/LiberationMono-BoldItalic.ttf", "truetype/liberation/LiberationMono-BoldItalic.ttf",
    "truetype/dejavu/DejaVuSansMono-BoldOblique.ttf"}},
};

// CAD font names (lower case, without extension) and the family each takes.
constexpr struct { const char *name; const char *family; } kNames[] = {
  // Stroke fonts.
  {"txt", "sans"}, {"simplex", "sans"}, {"romans", "sans"}, {"romand", "sans"},
  {"complex", "sans"}, {"greeks", "sans"}, {"greekc", "sans"},
  {"isocp", "condensed"}, {"isocp2", "condensed"}, {"isocp3", "condensed"},
  {"isoct", "condensed"}, {"isoct2", "condensed"}, {"isoct3", "condensed"},
  {"isocpeur", "condensed"}, {"isocteur", "condensed"},
  {"monotxt", "mono"},
  {"romanc", "serif"}, {"romant", "serif"}, {"gothice", "serif"}, {"gothicg", "serif"},
  {"gothici", "serif"}, {"italic", "serif-italic"}, {"italicc", "serif-italic"},
  {"italict", "serif-italic"}, {"scripts", "serif-italic"}, {"scriptc", "serif-italic"},
  // Outline fonts.
  {"arial", "liberation-sans"}, {"arialbd", "liberation-sans"}, {"helvetica", "liberation-sans"},
  {"arial narrow", "condensed"}, {"arialn", "condensed"},
  {"times", "liberation-serif"}, {"times new roman", "liberation-serif"},
  {"courier", "liberation-mono"}, {"courier new", "liberation-mono"}, {"cour", "liberation-mono"},
  {"verdana", "sans"}, {"tahoma", "sans"}, {"calibri", "liberation-sans"},
  {"dejavu sans", "sans"}, {"dejavu sans condensed", "condensed"}, {"dejavu sans mono", "mono"},
  {"dejavu serif", "serif"}, {"liberation sans", "liberation-sans"},
  {"liberation serif", "liberation-serif"}, {"liberation mono", "liberation-mono"},
};
// clang-format on

constexpr const char *kDefaultFamily = "sans";
// Directories searched for a font named by its file ("DejaVuSerif.ttf").
constexpr const char *kFileDirs[] = {"truetype/dejavu", "truetype/liberation2", "truetype/liberation"};

std::filesystem::path fontRoot() {
  const char *env = std::getenv("VANTRY_FONT_ROOT");
  return env && *env ? env : "/usr/share/fonts";
}

bool isFile(const std::filesystem::path &p) {
  std::error_code ec;
  return std::filesystem::is_regular_file(p, ec);
}

std::string lowerAscii(std::string s) {
  for (char &c : s) c = char(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

const Family *family(std::string_view key) {
  for (const Family &f : kFamilies)
    if (key == f.key) return &f;
  return nullptr;
}

std::string firstExisting(const char *const (&candidates)[3]) {
  for (const char *c : candidates) {
    if (!c) break;
    std::filesystem::path p = fontRoot() / c;
    if (isFile(p)) return p.string();
  }
  return {};
}

std::string familyFile(const Family &f, bool bold, bool italic) {
  const auto &files = bold ? (italic ? f.boldItalic : f.bold) : (italic ? f.italic : f.regular);
  std::string path = firstExisting(files);
  return path.empty() && (bold || italic) ? firstExisting(f.regular) : path;
}

// --- FreeType faces, one per file, kept for the process.

constexpr FT_UInt kPixelSize = 1024;  // fixed measuring size; unhinted, so metrics scale linearly

struct Face {
  FT_Face face = nullptr;
  double capHeight = 0;  // pixels at kPixelSize
  std::map<char32_t, GlyphMetrics> glyphs;
};

struct FontCache {
  std::mutex mutex;
  FT_Library library = nullptr;
  bool libraryFailed = false;
  std::map<std::string, std::unique_ptr<Face>> faces;  // null entry: file unreadable
  ~FontCache() {
    for (auto &[path, f] : faces)
      if (f) FT_Done_Face(f->face);
    if (library) FT_Done_FreeType(library);
  }
};

FontCache &cache() {
  static FontCache c;
  return c;
}

bool loadMetrics(FT_Face face, FT_UInt index, double capHeight, GlyphMetrics *out) {
  if (FT_Load_Glyph(face, index, FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP)) return false;
  const FT_Glyph_Metrics &m = face->glyph->metrics;
  out->advance = m.horiAdvance / 64.0 / capHeight;
  out->ink = m.height > 0 && m.width > 0;
  out->top = out->ink ? m.horiBearingY / 64.0 / capHeight : 0;
  out->bottom = out->ink ? (m.horiBearingY - m.height) / 64.0 / capHeight : 0;
  return true;
}

// Opens `path` under the cache's lock; null if it cannot be read as a scalable font.
Face *openFace(FontCache &c, const std::string &path) {
  auto it = c.faces.find(path);
  if (it != c.faces.end()) return it->second.get();
  std::unique_ptr<Face> f;
  if (!c.library && !c.libraryFailed) c.libraryFailed = FT_Init_FreeType(&c.library) != 0;
  FT_Face face = nullptr;
  if (c.library && FT_New_Face(c.library, path.c_str(), 0, &face) == 0) {
    if (FT_IS_SCALABLE(face) && FT_Set_Pixel_Sizes(face, 0, kPixelSize) == 0) {
      f = std::make_unique<Face>();
      f->face = face;
      // The cap height is the ink top of "H"; the OS/2 table's value when the
      // font has no "H"; 70% of the em as a last resort.
      GlyphMetrics h;
      FT_UInt hIndex = FT_Get_Char_Index(face, 'H');
      if (hIndex && loadMetrics(face, hIndex, 1.0, &h) && h.ink) {
        f->capHeight = h.top;
      } else if (auto *os2 = static_cast<TT_OS2 *>(FT_Get_Sfnt_Table(face, FT_SFNT_OS2));
                 os2 && os2->version >= 2 && os2->sCapHeight > 0) {
        f->capHeight = double(os2->sCapHeight) * kPixelSize / face->units_per_EM;
      } else {
        f->capHeight = 0.7 * kPixelSize;
      }
    } else {
      FT_Done_Face(face);
    }
  }
  return (c.faces[path] = std::move(f)).get();
}

}  // namespace

namespace {

// UTF-8 of a font name; anything that is not a character becomes '?', so
// that no name can make the path conversion throw.
std::string utf8(std::wstring_view w) {
  std::string s;
  for (wchar_t wc : w) {
    auto c = char32_t(wc);
    if (c == 0 || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = U'?';
    if (c < 0x80) {
      s += char(c);
    } else if (c < 0x800) {
      s += char(0xC0 | (c >> 6));
      s += char(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      s += char(0xE0 | (c >> 12));
      s += char(0x80 | ((c >> 6) & 0x3F));
      s += char(0x80 | (c & 0x3F));
    } else {
      s += char(0xF0 | (c >> 18));
      s += char(0x80 | ((c >> 12) & 0x3F));
      s += char(0x80 | ((c >> 6) & 0x3F));
      s += char(0x80 | (c & 0x3F));
    }
  }
  return s;
}

std::string resolveUncached(std::wstring_view fontName, bool bold, bool italic) {
  // A path to an existing file is taken as it is.
  std::filesystem::path asPath{utf8(fontName)};
  if (asPath.has_parent_path() && isFile(asPath)) return asPath.string();
  // A file name found in the font directories ("DejaVuSerif.ttf").
  if (asPath.has_extension() && !asPath.has_parent_path()) {
    for (const char *dir : kFileDirs) {
      std::filesystem::path p = fontRoot() / dir / asPath;
      if (isFile(p)) return p.string();
    }
  }
  // A CAD name: lower case, directory and extension dropped, spaces trimmed.
  std::string key = lowerAscii(asPath.has_extension() ? asPath.stem().string() : asPath.filename().string());
  while (!key.empty() && key.back() == ' ') key.pop_back();
  while (!key.empty() && key.front() == ' ') key.erase(0, 1);
  for (const auto &n : kNames) {
    if (key != n.name) continue;
    if (std::string path = familyFile(*family(n.family), bold, italic); !path.empty()) return path;
    break;
  }
  return familyFile(*family(kDefaultFamily), bold, italic);
}

}  // namespace

// Layouts resolve the same few names over and over: answers are kept per
// font root, name and style.
std::string resolveFontFile(std::wstring_view fontName, bool bold, bool italic) {
  static std::mutex mutex;
  static std::map<std::tuple<std::string, std::wstring, bool, bool>, std::string> known;
  auto key = std::make_tuple(fontRoot().string(), std::wstring(fontName), bold, italic);
  std::lock_guard<std::mutex> lock(mutex);
  auto it = known.find(key);
  if (it == known.end()) it = known.emplace(key, resolveUncached(fontName, bold, italic)).first;
  return it->second;
}

bool measureGlyph(const std::string &file, char32_t ch, GlyphMetrics *out) {
  if (file.empty()) return false;
  FontCache &c = cache();
  std::lock_guard<std::mutex> lock(c.mutex);
  Face *f = openFace(c, file);
  if (!f) return false;
  if (auto it = f->glyphs.find(ch); it != f->glyphs.end()) {
    *out = it->second;
    return true;
  }
  GlyphMetrics m;
  FT_UInt index = FT_Get_Char_Index(f->face, ch);
  bool done = false;
  if (!index) {
    // Missing here: measure it in the default font if that font has it.
    std::string fallback = familyFile(*family(kDefaultFamily), false, false);
    Face *d = fallback.empty() || fallback == file ? nullptr : openFace(c, fallback);
    FT_UInt dIndex = d ? FT_Get_Char_Index(d->face, ch) : 0;
    done = dIndex && loadMetrics(d->face, dIndex, d->capHeight, &m);
  }
  if (!done && !loadMetrics(f->face, index, f->capHeight, &m)) m = GlyphMetrics{};
  f->glyphs.emplace(ch, m);
  *out = m;
  return true;
}

}  // namespace vantry::host
