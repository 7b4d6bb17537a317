// From the drawing database to primitives: curves sampled, faces kept,
// texts placed line by line with the layout's font metrics, hatches filled,
// block references walked, everything else exploded until it is one of
// those.
#include <algorithm>
#include <cmath>
#include <cwctype>
#include <memory>

#include "db/db.h"
#include "mtext/layout.h"
#include "render.h"

namespace vantry::render {
namespace {

// Explosion depth limit: a block that (wrongly) holds a reference to itself
// must not recurse for ever.
constexpr int kMaxDepth = 8;
// Pieces per unit of curve parameter (a radian for arcs, a segment for
// polylines): an arc of a right angle gets 19 pieces, a straight segment 12.
constexpr double kPiecesPerParam = 12;

// The usual colours of the first index colours; 7 is drawn black on the
// white background, the rest of the 255 a neutral grey.
Rgb indexColor(int index) {
  switch (index) {
    case 1: return {0.85, 0.10, 0.10};
    case 2: return {0.85, 0.75, 0.05};
    case 3: return {0.10, 0.65, 0.15};
    case 4: return {0.05, 0.65, 0.75};
    case 5: return {0.10, 0.25, 0.85};
    case 6: return {0.75, 0.10, 0.75};
    case 8: return {0.35, 0.35, 0.35};
    case 9: return {0.65, 0.65, 0.65};
    case 0:
    case 7: return {0.10, 0.10, 0.10};
    default: return {0.55, 0.58, 0.62};
  }
}

Rgb colorOf(const AcDbEntity *e, const Rgb &byBlock) {
  AcCmColor c = e->color();
  if (c.isByColor()) return {c.red() / 255.0, c.green() / 255.0, c.blue() / 255.0};
  if (c.isByBlock()) return byBlock;
  if (c.isByLayer()) {
    AcDbLayerTableRecord *layer = nullptr;
    if (acdbOpenObject(layer, e->layerId(), AcDb::kForRead) != Acad::eOk) return indexColor(7);
    AcCmColor lc = layer->color();
    layer->close();
    if (lc.isByColor()) return {lc.red() / 255.0, lc.green() / 255.0, lc.blue() / 255.0};
    return indexColor(std::abs(int(lc.colorIndex())));
  }
  return indexColor(c.colorIndex());
}

// The groups of an entity kept as read from a file (TEXT, ATTRIB, HATCH ...),
// as it writes them.
struct Groups {
  std::vector<AcDbDxfFiler::Item> items;
  const AcDbDxfFiler::Item *find(int code) const {
    for (const auto &it : items)
      if (it.code == code) return &it;
    return nullptr;
  }
  double real(int code, double dflt) const {
    const auto *it = find(code);
    return it && std::isfinite(it->real[0]) ? it->real[0] : dflt;
  }
  int64_t integer(int code, int64_t dflt) const {
    const auto *it = find(code);
    return it ? it->integer : dflt;
  }
  AcGePoint3d point(int code) const {
    const auto *it = find(code);
    return it ? AcGePoint3d(it->real[0], it->real[1], it->real[2]) : AcGePoint3d();
  }
  std::wstring text(int code) const {
    const auto *it = find(code);
    return it ? it->text : std::wstring();
  }
};

// The special characters of a TEXT's value (%%d degree, %%p plus-minus,
// %%c diameter, %%% percent; %%o and %%u switch over- and underline, which a
// picture leaves out).
std::wstring plainTextValue(const std::wstring &s) {
  std::wstring out;
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] == L'%' && i + 2 < s.size() && s[i + 1] == L'%') {
      wchar_t c = wchar_t(std::towlower(s[i + 2]));
      const wchar_t *rep = c == L'd' ? L"\u00b0" : c == L'p' ? L"\u00b1" : c == L'c' ? L"\u2300"
                         : c == L'%' ? L"%" : c == L'o' || c == L'u' ? L"" : nullptr;
      if (rep) {
        out += rep;
        i += 2;
        continue;
      }
    }
    out += s[i];
  }
  return out;
}

// The font file name a text style gives (empty: the default font).
std::wstring styleFont(AcDbDatabase *db, const std::wstring &style) {
  if (!db) return {};
  AcDbObjectId id = vantry::host::recordId(db->textStyleTableId(), style.empty() ? L"Standard" : style);
  AcDbTextStyleTableRecord *rec = nullptr;
  if (id.isNull() || acdbOpenObject(rec, id, AcDb::kForRead) != Acad::eOk) return {};
  const ACHAR *file = nullptr;
  rec->fileName(file);
  std::wstring font = file ? file : L"";
  rec->close();
  return font;
}

// A single line's width with the font's metrics, for a cap height of 1.
double lineWidth(const std::wstring &text, const std::wstring &font, double widthFactor) {
  vantry::host::MTextLayoutInput in;
  // The value is plain text: the layout's format codes are escaped.
  for (wchar_t c : text) {
    if (c == L'\\' || c == L'{' || c == L'}') in.contents += L'\\';
    in.contents += c;
  }
  in.textHeight = 1;
  in.fontName = font;
  in.widthFactor = widthFactor;
  vantry::host::MTextLayout layout = vantry::host::layoutMText(in);
  return layout.lines.empty() ? 0 : layout.lines[0].width;
}

class Collector {
 public:
  explicit Collector(std::vector<Primitive> &out) : out_(out) {}

  // Adds an entity, its coordinates mapped by m (the block references it
  // sits in).
  void add(const AcDbEntity *e, const Rgb &byBlock, int depth, const AcGeMatrix3d &m) {
    Rgb color = colorOf(e, byBlock);
    if (const AcDbFace *face = AcDbFace::cast(e)) return addFace(face, color, m);
    if (const AcDbCurve *curve = AcDbCurve::cast(e)) {
      if (addCurve(curve, color, m)) return;
    }
    if (const AcDbMText *text = AcDbMText::cast(e)) return addMText(text, color, m);
    if (AcDbText::cast(e) || AcDbHatch::cast(e) || vantry::host::VerbatimEntity::cast(e)) {
      std::wstring type = vantry::host::dxfTypeOf(e);
      if (type == L"TEXT" || type == L"ATTRIB") return addText(e, type, color, m);
      if (type == L"HATCH") return addHatch(e, color, m);
      if (type == L"ATTDEF") {
        // A definition outside a block shows its tag.
        AcDbDxfFiler f(true);
        e->dxfOutFields(&f);
        for (auto &it : f.items())
          if (it.code == 1) it.text = static_cast<const AcDbAttributeDefinition *>(e)->tagConst();
        return addTextGroups(std::move(f.items()), false, e->database(), color, m);
      }
    }
    if (const AcDbPoint *point = AcDbPoint::cast(e)) {
      // A small cross: points have no size of their own.
      AcGePoint3d p = point->position();
      for (const AcGeVector3d &d : {AcGeVector3d(0.5, 0, 0), AcGeVector3d(0, 0.5, 0)}) {
        Primitive line;
        line.color = color;
        line.points = {map(m, p - d), map(m, p + d)};
        out_.push_back(std::move(line));
      }
      return;
    }
    if (const AcDbSolid *solid = AcDbSolid::cast(e)) {
      // Filled in the order 0 1 3 2.
      Primitive fill;
      fill.kind = Primitive::Fill;
      fill.color = color;
      std::vector<AcGePoint3d> loop;
      for (int i : {0, 1, 3, 2}) {
        AcGePoint3d v;
        solid->getPointAt(Adesk::UInt16(i), v);
        loop.push_back(map(m, v));
      }
      fill.loops.push_back(loop);
      out_.push_back(std::move(fill));
      return;
    }
    if (const AcDbDimension *dim = AcDbDimension::cast(e)) {
      // Its block holds what it shows, in world coordinates.
      AcDbBlockTableRecord *btr = nullptr;
      if (depth < kMaxDepth && acdbOpenObject(btr, dim->dimBlockId(), AcDb::kForRead) == Acad::eOk) {
        for (AcDbObjectId id : btr->entityIds()) {
          AcDbEntity *part = nullptr;
          if (acdbOpenObject(part, id, AcDb::kForRead) != Acad::eOk) continue;
          add(part, color, depth + 1, m);
          part->close();
        }
        btr->close();
      }
      return;
    }
    if (depth >= kMaxDepth) return;
    if (const AcDbBlockReference *ref = AcDbBlockReference::cast(e)) return addReference(ref, color, depth, m);
    AcDbVoidPtrArray pieces;
    if (e->explode(pieces) != Acad::eOk) return;
    for (int i = 0; i < pieces.length(); ++i) {
      std::unique_ptr<AcDbEntity> piece(static_cast<AcDbEntity *>(pieces[i]));
      if (piece) add(piece.get(), color, depth + 1, m);
    }
  }

 private:
  static AcGePoint3d map(const AcGeMatrix3d &m, AcGePoint3d p) { return p.transformBy(m); }

  // The block's entities under the reference's transform, then the
  // reference's attributes (which lie where they are, in the reference's
  // own space).
  // A grid of copies (MINSERT) draws its block once per copy, up to 10,000.
  void addReference(const AcDbBlockReference *ref, const Rgb &color, int depth, const AcGeMatrix3d &m) {
    AcDbBlockTableRecord *btr = nullptr;
    if (acdbOpenObject(btr, ref->blockTableRecord(), AcDb::kForRead) == Acad::eOk) {
      const auto *grid = AcDbMInsertBlock::cast(ref);
      int columns = grid ? grid->columns() : 1, rows = grid ? grid->rows() : 1;
      if (columns * rows > 10000) columns = rows = 1;
      for (int r = 0; r < rows; ++r)
        for (int c = 0; c < columns; ++c) {
          AcGeVector3d offset = grid ? grid->gridOffset(c, r) : AcGeVector3d();
          AcGeMatrix3d inner = m * AcGeMatrix3d::translation(offset) * ref->blockTransform();
          AcDbBlockTableRecordIterator *it = nullptr;
          if (btr->newIterator(it) != Acad::eOk) continue;
          for (; !it->done(); it->step()) {
            AcDbEntity *e = nullptr;
            if (it->getEntity(e, AcDb::kForRead) != Acad::eOk) continue;
            // Attribute definitions are the block's template, not drawn in
            // its references.
            const ACHAR *type = vantry::host::dxfTypeOf(e);
            if (!(type && std::wstring_view(type) == L"ATTDEF")) add(e, color, depth + 1, inner);
            e->close();
          }
          delete it;
        }
      btr->close();
    }
    AcDbDatabase *db = ref->database();
    if (!db) return;
    auto found = db->impl()->attributes.find(vantry::host::DbAccess::stub(ref));
    if (found == db->impl()->attributes.end()) return;
    for (AcDbObjectId id : found->second) {
      AcDbEntity *att = nullptr;
      if (acdbOpenObject(att, id, AcDb::kForRead) != Acad::eOk) continue;
      add(att, color, depth + 1, m);
      att->close();
    }
  }

  void addFace(const AcDbFace *face, const Rgb &color, const AcGeMatrix3d &m) {
    Primitive p;
    p.kind = Primitive::Face;
    p.color = color;
    bool visible[4];
    for (int i = 0; i < 4; ++i) {
      AcGePoint3d v;
      face->getVertexAt(Adesk::UInt16(i), v);
      face->isEdgeVisibleAt(Adesk::UInt16(i), visible[i]);
      v.transformBy(m);
      // A triangle repeats its third corner as the fourth: its edge 2 has
      // no length and edge 3 closes it.
      if (i == 3 && v.distanceTo(p.points.back()) < 1e-12) break;
      p.points.push_back(v);
    }
    p.edges = {visible[0], visible[1], p.points.size() == 3 ? visible[3] : visible[2]};
    if (p.points.size() == 4) p.edges.push_back(visible[3]);
    out_.push_back(std::move(p));
  }

  bool addCurve(const AcDbCurve *curve, const Rgb &color, const AcGeMatrix3d &m) {
    double start = 0, end = 0;
    if (curve->getStartParam(start) != Acad::eOk || curve->getEndParam(end) != Acad::eOk) return false;
    Primitive p;
    p.color = color;
    p.closed = curve->isClosed();
    // Clamped before it becomes an integer: a damaged curve's parameters may be anything.
    double n = std::ceil((end - start) * kPiecesPerParam);
    int pieces = AcDbLine::cast(curve) || !std::isfinite(n) ? 1 : int(std::clamp(n, 1.0, 4096.0));
    for (int i = 0; i <= pieces; ++i) {
      AcGePoint3d v;
      if (curve->getPointAtParam(start + (end - start) * i / pieces, v) != Acad::eOk) return false;
      p.points.push_back(map(m, v));
    }
    out_.push_back(std::move(p));
    return true;
  }

  // One line of text whose baseline starts at `start` (in the entity's own
  // space) and runs along `dir`, its letters standing along `up`, mapped by m.
  void addLine(std::wstring text, const AcGePoint3d &start, const AcGeVector3d &dir, const AcGeVector3d &up,
               double height, double width, const Rgb &color, const AcGeMatrix3d &m) {
    if (text.empty() || !(height > 0) || !std::isfinite(height)) return;
    Primitive p;
    p.kind = Primitive::Text;
    p.color = color;
    p.text = std::move(text);
    AcGePoint3d at = map(m, start), along = map(m, start + dir * width);
    AcGeVector3d heading = dir.normal();
    heading.transformBy(m);
    double scale = m.scale() > 0 ? m.scale() : 1;
    p.points.push_back(at);
    p.direction = heading.isZeroLength() ? AcGeVector3d::kXAxis : heading.normal();
    AcGeVector3d rising = up.normal();
    rising.transformBy(m);
    p.up = rising.isZeroLength() ? AcGeVector3d::kYAxis : rising.normal();
    p.height = height * scale;
    p.width = width > 0 ? along.distanceTo(at) : 0;
    out_.push_back(std::move(p));
  }

  // Multiline text, line by line as the layout breaks it, each line placed
  // in the text's box by the attachment point.
  void addMText(const AcDbMText *text, const Rgb &color, const AcGeMatrix3d &m) {
    vantry::host::MTextLayoutInput in;
    ACHAR *contents = text->contents();
    in.contents = contents ? contents : L"";
    acutDelString(contents);
    in.textHeight = text->textHeight();
    in.width = text->width();
    text->styleFont(in.fontName, in.widthFactor);
    in.lineSpacingFactor = text->lineSpacingFactor();
    vantry::host::MTextLayout layout = vantry::host::layoutMText(in);
    int a = std::clamp(int(text->attachment()), 1, 9) - 1;
    int column = a % 3, row = a / 3;
    double box = text->width() > 0 ? text->width() : layout.actualWidth;
    double top = row * layout.actualHeight / 2;  // above the location
    AcGeVector3d x = text->direction().normal(), y = text->normal().normal().crossProduct(x);
    for (const auto &line : layout.lines) {
      double left = -column * box / 2 + column * (box - line.width) / 2;
      AcGePoint3d start = text->location() + x * left + y * (top - line.baseline);
      addLine(line.text, start, x, y, line.height, line.width, color, m);
    }
  }

  // TEXT and ATTRIB kept as read: the value placed by its justification,
  // measured with the style's font.
  void addText(const AcDbEntity *e, const std::wstring &type, const Rgb &color, const AcGeMatrix3d &m) {
    AcDbDxfFiler f(true);
    e->dxfOutFields(&f);
    addTextGroups(std::move(f.items()), type == L"ATTRIB", e->database(), color, m);
  }

  void addTextGroups(std::vector<AcDbDxfFiler::Item> items, bool attrib, AcDbDatabase *db, const Rgb &color,
                     const AcGeMatrix3d &m) {
    Groups g;
    g.items = std::move(items);
    if (attrib && (g.integer(70, 0) & 1)) return;  // an invisible attribute
    std::wstring value = plainTextValue(g.text(1));
    double height = g.real(40, 0), factor = g.real(41, 1);
    if (!(factor > 0)) factor = 1;
    int horizontal = int(g.integer(72, 0)), vertical = int(g.integer(attrib ? 74 : 73, 0));
    AcGeVector3d normal = g.find(210) ? AcGeVector3d(g.point(210).x, g.point(210).y, g.point(210).z)
                                      : AcGeVector3d::kZAxis;
    if (normal.isZeroLength()) normal = AcGeVector3d::kZAxis;
    AcGeMatrix3d ocs = AcGeMatrix3d::planeToWorld(normal.normal());
    AcGePoint3d first = g.point(10), second = g.find(11) ? g.point(11) : first;
    double angle = g.real(50, 0) * M_PI / 180;
    AcGeVector3d dir(std::cos(angle), std::sin(angle), 0), up(-std::sin(angle), std::cos(angle), 0);
    double width = lineWidth(value, styleFont(db, g.text(7)), factor) * height;
    AcGePoint3d start = first;
    if (horizontal == 3 || horizontal == 5) {
      // Aligned and fit: the line runs from the first point to the second;
      // aligned keeps the proportions, so its height follows the length.
      AcGeVector3d span = second - first;
      if (!span.isZeroLength() && width > 0) {
        dir = span.normal();
        if (horizontal == 3) height *= span.length() / width;
        width = span.length();
      }
    } else if (horizontal != 0 || vertical != 0) {
      double shift = horizontal == 1 || horizontal == 4 ? width / 2 : horizontal == 2 ? width : 0;
      double lift = horizontal == 4 || vertical == 2 ? -height / 2 : vertical == 3 ? -height : vertical == 1 ? height / 4 : 0;
      start = second - dir * shift + up * lift;
    }
    addLine(value, map(ocs, start), AcGeVector3d(dir).transformBy(ocs), AcGeVector3d(up).transformBy(ocs), height,
            width, color, m);
  }

  // A hatch: its boundary loops, filled, and drawn as lines. Loops are in
  // the hatch's own plane (elevation 30, normal 210): polylines with
  // bulges, or edges (lines, circular and elliptic arcs, splines by their
  // control points).
  void addHatch(const AcDbEntity *e, const Rgb &color, const AcGeMatrix3d &m) {
    AcDbDxfFiler f(true);
    e->dxfOutFields(&f);
    const auto &its = f.items();
    size_t i = 0;
    while (i < its.size() && !(its[i].code == 100 && its[i].text == L"AcDbHatch")) ++i;
    if (i == its.size()) i = 0;
    double elevation = 0;
    AcGeVector3d normal = AcGeVector3d::kZAxis;
    bool solid = false;
    size_t loops = 0;
    for (; i < its.size(); ++i) {
      if (its[i].code == 10) elevation = its[i].real[2];
      if (its[i].code == 210) normal = AcGeVector3d(its[i].real[0], its[i].real[1], its[i].real[2]);
      if (its[i].code == 70) solid = its[i].integer & 1;
      if (its[i].code == 91) {
        loops = size_t(std::max<int64_t>(0, its[i].integer));
        ++i;
        break;
      }
    }
    if (normal.isZeroLength()) normal = AcGeVector3d::kZAxis;
    AcGeMatrix3d toWorld = m * AcGeMatrix3d::planeToWorld(normal.normal());
    auto at = [&](double x, double y) { return map(toWorld, AcGePoint3d(x, y, elevation)); };
    // The next group of a code, if it comes before the next loop's 92 (or the
    // end of the loops).
    auto next = [&](int code) -> const AcDbDxfFiler::Item * {
      if (i < its.size() && its[i].code == code) return &its[i++];
      return nullptr;
    };
    auto arcPoints = [&](std::vector<AcGePoint3d> &loop, double cx, double cy, double rx, double ry, double rot,
                         double a0, double a1, bool ccw) {
      if (!std::isfinite(a0) || !std::isfinite(a1)) return;
      if (!ccw) std::swap(a0, a1), a0 = -a0, a1 = -a1;
      // The sweep, in (0, 2 pi]: angles of a damaged file may be anything.
      double sweep = std::fmod(a1 - a0, 2 * M_PI);
      if (sweep <= 0) sweep += 2 * M_PI;
      a1 = a0 + sweep;
      int pieces = std::clamp(int(std::ceil(sweep * kPiecesPerParam)), 1, 720);
      for (int k = 0; k <= pieces; ++k) {
        double t = a0 + (a1 - a0) * k / pieces;
        double px = rx * std::cos(t), py = ry * std::sin(t) * (ccw ? 1 : -1);
        loop.push_back(at(cx + px * std::cos(rot) - py * std::sin(rot), cy + px * std::sin(rot) + py * std::cos(rot)));
      }
    };
    Primitive fill;
    fill.kind = Primitive::Fill;
    // A pattern is shown as a lighter tint of its colour, a solid fill as the colour.
    fill.color = solid ? color : Rgb{1 - (1 - color.r) * 0.35, 1 - (1 - color.g) * 0.35, 1 - (1 - color.b) * 0.35};
    for (size_t l = 0; l < loops && l < 10000; ++l) {
      while (i < its.size() && its[i].code != 92) ++i;
      const auto *flags = next(92);
      if (!flags) break;
      std::vector<AcGePoint3d> loop;
      if (flags->integer & 2) {
        const auto *bulged = next(72);
        next(73);
        const auto *count = next(93);
        int64_t n = count ? count->integer : 0;
        std::vector<std::pair<AcGePoint2d, double>> vs;
        for (int64_t k = 0; k < n && k < 100000; ++k) {
          const auto *v = next(10);
          if (!v) break;
          const auto *b = bulged && bulged->integer ? next(42) : nullptr;
          vs.push_back({AcGePoint2d(v->real[0], v->real[1]), b ? b->real[0] : 0});
        }
        for (size_t k = 0; k < vs.size(); ++k) {
          const auto &[p0, bulge] = vs[k];
          const AcGePoint2d &p1 = vs[(k + 1) % vs.size()].first;
          loop.push_back(at(p0.x, p0.y));
          if (std::fabs(bulge) > 1e-12 && std::isfinite(bulge)) {
            // The arc through the bulge: its included angle is 4 atan(bulge).
            double theta = 4 * std::atan(bulge), chord = p0.distanceTo(p1);
            if (!(chord >= 1e-12) || !std::isfinite(chord)) continue;
            double r = chord / (2 * std::sin(std::fabs(theta) / 2));
            AcGeVector2d d = (p1 - p0) * (1 / chord), left(-d.y, d.x);
            double h = r * std::cos(theta / 2) * (bulge > 0 ? 1 : -1);
            AcGePoint2d c = AcGePoint2d((p0.x + p1.x) / 2, (p0.y + p1.y) / 2) + left * h;
            double a0 = std::atan2(p0.y - c.y, p0.x - c.x);
            int pieces = std::clamp(int(std::ceil(std::fabs(theta) * kPiecesPerParam)), 1, 720);
            for (int s = 1; s < pieces; ++s) {
              double t = a0 + theta * s / pieces;
              loop.push_back(at(c.x + r * std::cos(t), c.y + r * std::sin(t)));
            }
          }
        }
      } else {
        const auto *count = next(93);
        int64_t n = count ? count->integer : 0;
        for (int64_t k = 0; k < n && k < 100000; ++k) {
          const auto *type = next(72);
          if (!type) break;
          if (type->integer == 1) {  // line
            const auto *a = next(10), *b = next(11);
            if (a) loop.push_back(at(a->real[0], a->real[1]));
            if (b) loop.push_back(at(b->real[0], b->real[1]));
          } else if (type->integer == 2) {  // circular arc
            const auto *c = next(10), *r = next(40), *a0 = next(50), *a1 = next(51), *ccw = next(73);
            if (!c || !r || !a0 || !a1) continue;
            arcPoints(loop, c->real[0], c->real[1], r->real[0], r->real[0], 0, a0->real[0] * M_PI / 180,
                      a1->real[0] * M_PI / 180, !ccw || ccw->integer);
          } else if (type->integer == 3) {  // elliptic arc
            const auto *c = next(10), *major = next(11), *ratio = next(40), *a0 = next(50), *a1 = next(51),
                       *ccw = next(73);
            if (!c || !major || !ratio || !a0 || !a1) continue;
            double rx = std::hypot(major->real[0], major->real[1]);
            arcPoints(loop, c->real[0], c->real[1], rx, rx * ratio->real[0],
                      std::atan2(major->real[1], major->real[0]), a0->real[0] * M_PI / 180,
                      a1->real[0] * M_PI / 180, !ccw || ccw->integer);
          } else if (type->integer == 4) {  // spline: its control points
            while (i < its.size() && its[i].code != 72 && its[i].code != 92 && its[i].code != 97) {
              if (its[i].code == 10) loop.push_back(at(its[i].real[0], its[i].real[1]));
              ++i;
            }
          }
        }
      }
      if (loop.size() >= 2) fill.loops.push_back(std::move(loop));
      // A damaged file's counts may ask for millions of corners: a picture
      // stops at a generous number.
      size_t corners = 0;
      for (const auto &l : fill.loops) corners += l.size();
      if (corners > 200000) break;
    }
    for (const auto &loop : fill.loops) {
      Primitive edge;
      edge.color = color;
      edge.closed = true;
      edge.points = loop;
      out_.push_back(std::move(edge));
    }
    if (!fill.loops.empty()) out_.push_back(std::move(fill));
  }

  std::vector<Primitive> &out_;
};

}  // namespace

std::vector<Primitive> collectModelSpace(AcDbDatabase *db) {
  std::vector<Primitive> out;
  AcDbBlockTable *table = nullptr;
  if (!db || db->getBlockTable(table, AcDb::kForRead) != Acad::eOk) return out;
  AcDbBlockTableRecord *space = nullptr;
  Acad::ErrorStatus es = table->getAt(ACDB_MODEL_SPACE, space, AcDb::kForRead);
  table->close();
  if (es != Acad::eOk) return out;
  AcDbBlockTableRecordIterator *it = nullptr;
  if (space->newIterator(it) == Acad::eOk) {
    Collector collector(out);
    for (; !it->done(); it->step()) {
      AcDbEntity *e = nullptr;
      if (it->getEntity(e, AcDb::kForRead) != Acad::eOk) continue;
      collector.add(e, indexColor(7), 0, AcGeMatrix3d::kIdentity);
      e->close();
    }
    delete it;
  }
  space->close();
  return out;
}

}  // namespace vantry::render
