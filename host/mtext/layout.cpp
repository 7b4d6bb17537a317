// MText layout: format codes applied, glyphs measured, paragraphs wrapped at
// spaces, lines stacked at 5/3 of their height times the spacing factor. The
// rules are stated in mtext_layout.h.
#include "mtext/layout.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <mutex>

namespace vantry::host {
namespace {

constexpr double kLinePitch = 5.0 / 3.0;  // baseline to baseline, in text heights
// Stacked text: both parts at 70% of the height, the top part's baseline at
// 0.6 of the height, the bottom part's 0.3 of the height below the baseline.
constexpr double kStackScale = 0.7;
constexpr double kStackTopBaseline = 0.6;
constexpr double kStackBottomBaseline = -0.3;
constexpr double kTabSpaces = 4;
constexpr double kWrapTolerance = 1e-9;
// Round glyphs (O, C, S, o) reach a little past the baseline and the cap line
// by design; ink closer to those lines than this share of the cap height is
// counted as on them, so capitals alone have no descent and no extra ascent.
constexpr double kOvershoot = 0.025;

// A measured piece of a paragraph, in drawing units.
struct Item {
  double advance = 0;
  double top = 0, bottom = 0;  // ink, when `ink`
  bool ink = false;
  bool space = false;  // a place to wrap
  double height = 0;   // nominal
  std::wstring text;
};

// Rough proportions of a sans-serif font, in cap heights, for when no font
// file exists on the machine.
GlyphMetrics estimateGlyph(char32_t c) {
  GlyphMetrics m;
  auto in = [c](const char *set) {
    for (const char *p = set; *p; ++p)
      if (char32_t(*p) == c) return true;
    return false;
  };
  if (c == U' ' || c == 0xA0) {
    m.advance = 0.45;
    return m;
  }
  m.ink = true;
  m.advance = in("iljtfrI1!|.,:;'") ? 0.4 : in("mwMW") ? 1.2 : (c >= U'A' && c <= U'Z') ? 0.95 : 0.8;
  m.top = in("acemnorsuvwxz") ? 0.75 : in(".,_") ? 0.15 : 1.0;
  m.bottom = in("gjpqy") ? -0.3 : in(",;") ? -0.2 : 0.0;
  return m;
}

void warnEstimatedOnce() {
  static std::once_flag once;
  std::call_once(once, [] {
    std::fprintf(stderr,
                 "vantry: no font file found under the font root (see docs/fonts.md); "
                 "MText metrics are estimated\n");
  });
}

class Measurer {
 public:
  explicit Measurer(const MTextFormatted &f) : f_(f) {}

  bool estimated() const { return estimated_; }

  // Metrics of `ch` for attrs `a`, in cap heights (not yet scaled).
  GlyphMetrics glyph(int a, char32_t ch) {
    auto it = files_.find(a);
    if (it == files_.end()) {
      const MTextAttrs &s = f_.attrs[a];
      it = files_.emplace(a, resolveFontFile(s.font, s.bold, s.italic)).first;
    }
    // A file that is not a readable font gives way to the default font, and
    // that to estimates.
    GlyphMetrics m;
    if (!measureGlyph(it->second, ch, &m) && !measureGlyph(resolveFontFile(L""), ch, &m)) {
      estimated_ = true;
      m = estimateGlyph(ch);
    }
    return m;
  }

  Item character(const MTextPiece &p) {
    const MTextAttrs &a = f_.attrs[p.attrs];
    Item item;
    item.height = a.height;
    char32_t ch = p.ch;
    if (ch == U'\t') {
      item.space = true;
      item.advance = kTabSpaces * glyph(p.attrs, U' ').advance * a.height * a.widthFactor * a.tracking;
      item.text = L"\t";
      return item;
    }
    item.text = std::wstring(1, wchar_t(ch));
    if (ch < 0x20) return item;  // other control characters take no room
    GlyphMetrics m = glyph(p.attrs, ch);
    item.space = ch == U' ';
    item.advance = m.advance * a.height * a.widthFactor * a.tracking;
    item.ink = m.ink;
    if (m.top > 1 && m.top < 1 + kOvershoot) m.top = 1;
    if (m.bottom < 0 && m.bottom > -kOvershoot) m.bottom = 0;
    item.top = m.top * a.height;
    item.bottom = m.bottom * a.height;
    return item;
  }

  // A stack is one unbreakable item: '/' and '^' as wide as the wider part,
  // '#' as both parts side by side with a slash between.
  Item stack(const MTextPiece &p) {
    const MTextAttrs &a = f_.attrs[p.attrs];
    double h = a.height * kStackScale;
    double xScale = h * a.widthFactor * a.tracking;
    Item item;
    item.height = a.height;
    item.text = p.top + std::wstring(1, p.stackKind) + p.bottom;
    auto part = [&](const std::wstring &s, double baseline) {
      double width = 0;
      for (wchar_t c : s) {
        GlyphMetrics m = glyph(p.attrs, char32_t(c));
        width += m.advance * xScale;
        if (!m.ink) continue;
        double top = baseline + m.top * h, bottom = baseline + m.bottom * h;
        item.top = item.ink ? std::max(item.top, top) : top;
        item.bottom = item.ink ? std::min(item.bottom, bottom) : bottom;
        item.ink = true;
      }
      return width;
    };
    double top = part(p.top, kStackTopBaseline * a.height);
    double bottom = part(p.bottom, kStackBottomBaseline * a.height);
    if (p.stackKind == L'#') {
      item.advance = top + bottom + glyph(p.attrs, U'/').advance * xScale;
    } else {
      item.advance = std::max(top, bottom);
    }
    return item;
  }

 private:
  const MTextFormatted &f_;
  std::map<int, std::string> files_;
  bool estimated_ = false;
};

// Builds the line of items [begin, end), stacked under `previous` (null for
// the first line). `emptyHeight` is the height of a line with no items.
MTextLine makeLine(const std::vector<Item> &items, size_t begin, size_t end, double emptyHeight,
                   const MTextLine *previous, double spacing) {
  MTextLine line;
  line.height = begin < end ? 0 : emptyHeight;
  bool ink = false;
  double pen = 0;
  for (size_t i = begin; i < end; ++i) {
    const Item &it = items[i];
    line.text += it.text;
    line.height = std::max(line.height, it.height);
    pen += it.advance;
    if (!it.space) line.width = pen;
    if (it.ink) {
      line.ascent = ink ? std::max(line.ascent, it.top) : it.top;
      line.descent = std::max(ink ? line.descent : 0.0, -it.bottom);
      ink = true;
    }
  }
  if (!ink) {
    line.ascent = line.height;
    line.descent = 0;
  }
  line.baseline = previous ? previous->baseline + kLinePitch * line.height * spacing : line.height;
  return line;
}

// Wraps one paragraph's items into lines: greedy, breaking only at spaces;
// the spaces at a break belong to neither line.
void wrapParagraph(const std::vector<Item> &items, double width, double emptyHeight, double spacing,
                   std::vector<MTextLine> *lines) {
  auto add = [&](size_t b, size_t e) {
    lines->push_back(makeLine(items, b, e, emptyHeight, lines->empty() ? nullptr : &lines->back(), spacing));
  };
  size_t start = 0;
  const size_t n = items.size();
  if (n == 0) return add(0, 0);
  while (start < n) {
    double pen = 0;
    bool content = false;
    size_t breakAt = n;  // first space of the last run of spaces after content
    size_t end = n;
    for (size_t i = start; i < n; ++i) {
      const Item &it = items[i];
      if (it.space) {
        if (content && !items[i - 1].space) breakAt = i;
        pen += it.advance;
        continue;
      }
      if (width > 0 && content && breakAt != n && pen + it.advance > width * (1 + kWrapTolerance)) {
        end = breakAt;
        break;
      }
      pen += it.advance;
      content = true;
    }
    add(start, end);
    start = end;
    while (start < n && items[start].space) ++start;
  }
}

}  // namespace

MTextLayout layoutMText(const MTextLayoutInput &in) {
  MTextAttrs base;
  base.font = in.fontName;
  auto positive = [](double v) { return std::isfinite(v) && v > 0; };
  base.height = positive(in.textHeight) ? in.textHeight : 1.0;
  base.widthFactor = positive(in.widthFactor) ? in.widthFactor : 1.0;
  double spacing = positive(in.lineSpacingFactor) ? in.lineSpacingFactor : 1.0;

  MTextFormatted formatted = parseMTextFormat(in.contents, base);
  Measurer measure(formatted);
  MTextLayout out;

  // Each paragraph's items; an empty paragraph takes the height in force at
  // its break (or, for the last one, at the break before it).
  std::vector<Item> items;
  double emptyHeight = base.height;
  for (const MTextPiece &p : formatted.pieces) {
    switch (p.kind) {
      case MTextPiece::Kind::kChar:
        items.push_back(measure.character(p));
        break;
      case MTextPiece::Kind::kStack:
        items.push_back(measure.stack(p));
        break;
      case MTextPiece::Kind::kParagraph:
        emptyHeight = formatted.attrs[p.attrs].height;
        wrapParagraph(items, in.width, emptyHeight, spacing, &out.lines);
        items.clear();
        break;
    }
  }
  wrapParagraph(items, in.width, emptyHeight, spacing, &out.lines);

  for (const MTextLine &l : out.lines) out.actualWidth = std::max(out.actualWidth, l.width);
  out.ascent = out.lines.front().ascent;
  out.descent = out.lines.back().descent;
  out.actualHeight = out.lines.back().baseline + out.descent;
  out.lastLineWidth = out.lines.back().width;
  out.estimated = measure.estimated();
  if (out.estimated) warnEstimatedOnce();
  if (!out.estimated) {
    std::string file = resolveFontFile(base.font);
    GlyphMetrics probe;
    out.fontFile = measureGlyph(file, U'H', &probe) ? file : resolveFontFile(L"");
  }
  return out;
}

}  // namespace vantry::host
