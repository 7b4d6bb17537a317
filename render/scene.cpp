// From the drawing database to primitives: curves sampled, faces kept,
// texts placed, everything else exploded until it is one of those.
#include <algorithm>
#include <cmath>
#include <memory>

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

class Collector {
 public:
  explicit Collector(std::vector<Primitive> &out) : out_(out) {}

  void add(const AcDbEntity *e, const Rgb &byBlock, int depth) {
    Rgb color = colorOf(e, byBlock);
    if (const AcDbFace *face = AcDbFace::cast(e)) return addFace(face, color);
    if (const AcDbCurve *curve = AcDbCurve::cast(e)) {
      if (addCurve(curve, color)) return;
    }
    if (const AcDbMText *text = AcDbMText::cast(e)) return addText(text, color);
    if (depth >= kMaxDepth) return;
    AcDbVoidPtrArray pieces;
    if (e->explode(pieces) != Acad::eOk) return;
    for (int i = 0; i < pieces.length(); ++i) {
      std::unique_ptr<AcDbEntity> piece(static_cast<AcDbEntity *>(pieces[i]));
      if (piece) add(piece.get(), color, depth + 1);
    }
  }

 private:
  void addFace(const AcDbFace *face, const Rgb &color) {
    Primitive p;
    p.kind = Primitive::Face;
    p.color = color;
    bool visible[4];
    for (int i = 0; i < 4; ++i) {
      AcGePoint3d v;
      face->getVertexAt(Adesk::UInt16(i), v);
      face->isEdgeVisibleAt(Adesk::UInt16(i), visible[i]);
      // A triangle repeats its third corner as the fourth: its edge 2 has
      // no length and edge 3 closes it.
      if (i == 3 && v.distanceTo(p.points.back()) < 1e-12) break;
      p.points.push_back(v);
    }
    p.edges = {visible[0], visible[1], p.points.size() == 3 ? visible[3] : visible[2]};
    if (p.points.size() == 4) p.edges.push_back(visible[3]);
    out_.push_back(std::move(p));
  }

  bool addCurve(const AcDbCurve *curve, const Rgb &color) {
    double start = 0, end = 0;
    if (curve->getStartParam(start) != Acad::eOk || curve->getEndParam(end) != Acad::eOk) return false;
    Primitive p;
    p.color = color;
    p.closed = curve->isClosed();
    int pieces = AcDbLine::cast(curve) ? 1 : std::clamp(int(std::ceil((end - start) * kPiecesPerParam)), 1, 4096);
    for (int i = 0; i <= pieces; ++i) {
      AcGePoint3d v;
      if (curve->getPointAtParam(start + (end - start) * i / pieces, v) != Acad::eOk) return false;
      p.points.push_back(v);
    }
    out_.push_back(std::move(p));
    return true;
  }

  void addText(const AcDbMText *text, const Rgb &color) {
    ACHAR *contents = text->contents();
    Primitive p;
    p.kind = Primitive::Text;
    p.color = color;
    p.points.push_back(text->location());
    p.height = text->textHeight();
    p.text = contents ? contents : L"";
    acutDelString(contents);
    out_.push_back(std::move(p));
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
      collector.add(e, indexColor(7), 0);
      e->close();
    }
    delete it;
  }
  space->close();
  return out;
}

}  // namespace vantry::render
