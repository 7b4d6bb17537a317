// MText, 3D faces and block references.
#include <algorithm>
#include <cmath>

#include "db/db.h"
#include "mtext/layout.h"

using namespace vantry::host;

namespace vantry::host {
void copyEntityLook(AcDbEntity *dst, const AcDbEntity &src);
}

namespace {

double wrapAngle(double a) {
  a = std::fmod(a, 2 * M_PI);
  return a < 0 ? a + 2 * M_PI : a;
}

// MText as the layout component sees it.
MTextLayout layoutOf(const AcDbMText &m) {
  MTextLayoutInput in;
  ACHAR *c = m.contents();
  in.contents = c ? c : L"";
  acutDelString(c);
  in.textHeight = m.textHeight();
  in.width = m.width();
  m.styleFont(in.fontName, in.widthFactor);
  in.lineSpacingFactor = m.lineSpacingFactor();
  return layoutMText(in);
}

}  // namespace

// --- MText ---------------------------------------------------------------------------------------

AcDbMText::AcDbMText() = default;

ACHAR *AcDbMText::contents() const {
  ACHAR *out = nullptr;
  acutNewString(contents_.c_str(), out);
  return out;
}

int AcDbMText::setContents(const ACHAR *text) {
  if (checkWrite() != Acad::eOk) return 0;
  contents_ = text ? text : L"";
  return int(contents_.size());
}

#define MTEXT_CHECKED_SETTER(NAME, TYPE, FIELD, VALID)                   \
  Acad::ErrorStatus AcDbMText::NAME(TYPE v) {                            \
    if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es; \
    if (!(VALID)) return Acad::eInvalidInput;                            \
    FIELD = v;                                                           \
    return Acad::eOk;                                                    \
  }
MTEXT_CHECKED_SETTER(setLocation, const AcGePoint3d &, location_, true)
MTEXT_CHECKED_SETTER(setTextHeight, double, height_, v > 0)
MTEXT_CHECKED_SETTER(setWidth, double, width_, v >= 0)
MTEXT_CHECKED_SETTER(setHeight, double, definedHeight_, v >= 0)
MTEXT_CHECKED_SETTER(setAttachment, AttachmentPoint, attachment_, v >= kTopLeft && v <= kBottomRight)
MTEXT_CHECKED_SETTER(setFlowDirection, FlowDirection, flow_, v >= kLtoR && v <= kByStyle)
MTEXT_CHECKED_SETTER(setLineSpacingFactor, double, spacing_, v >= 0.25 && v <= 4.0)
MTEXT_CHECKED_SETTER(setBackgroundFill, bool, fill_, true)
MTEXT_CHECKED_SETTER(setBackgroundScaleFactor, double, fillScale_, v >= 1.0 && v <= 5.0)
MTEXT_CHECKED_SETTER(setUseBackgroundColor, bool, useBgColor_, true)
MTEXT_CHECKED_SETTER(setBackgroundFillColor, const AcCmColor &, fillColor_, true)
#undef MTEXT_CHECKED_SETTER

// The direction stays in the text's plane: its part along the new normal is
// dropped, and if nothing is left it becomes the plane's X axis.
Acad::ErrorStatus AcDbMText::setNormal(const AcGeVector3d &n) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (n.isZeroLength()) return Acad::eInvalidInput;
  normal_ = n.normal();
  AcGeVector3d d = direction_ - normal_ * direction_.dotProduct(normal_);
  direction_ = d.length() > 1e-9 ? d.normal() : ocsXAxis(normal_);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbMText::setDirection(const AcGeVector3d &dir) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (dir.isZeroLength()) return Acad::eInvalidInput;
  AcGeVector3d d = dir - normal_ * dir.dotProduct(normal_);
  if (d.length() <= 1e-9 * dir.length()) return Acad::eInvalidInput;
  direction_ = d.normal();
  return Acad::eOk;
}

double AcDbMText::rotation() const {
  AcGeVector3d x = ocsXAxis(normal_), y = normal_.crossProduct(x);
  return wrapAngle(std::atan2(direction_.dotProduct(y), direction_.dotProduct(x)));
}

Acad::ErrorStatus AcDbMText::setRotation(double angle) {
  AcGeVector3d d = ocsXAxis(normal_);
  d.rotateBy(angle, normal_);
  return setDirection(d);
}

Acad::ErrorStatus AcDbMText::setTextStyle(AcDbObjectId style) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (!AcDbTextStyleTableRecord::cast(objectOf(style))) return Acad::eInvalidInput;
  if (database() && style.database() != database()) return Acad::eWrongDatabase;
  style_ = style;
  return Acad::eOk;
}

void AcDbMText::styleFont(std::wstring &font, double &widthFactor) const {
  AcDbObjectId id = style_;
  if (id.isNull()) {
    AcDbDatabase *db = database() ? database() : workingDatabase();
    if (db) id = db->textstyle();
  }
  font = L"txt";
  widthFactor = 1.0;
  if (auto *rec = AcDbTextStyleTableRecord::cast(objectOf(id))) {
    const ACHAR *f = nullptr;
    rec->fileName(f);
    font = f ? f : L"";
    widthFactor = rec->xScale();
  }
}

double AcDbMText::actualWidth() const {
  return layoutOf(*this).actualWidth;
}
double AcDbMText::actualHeight(void *) const {
  return layoutOf(*this).actualHeight;
}
double AcDbMText::ascent() const {
  return layoutOf(*this).ascent;
}
double AcDbMText::descent() const {
  return layoutOf(*this).descent;
}

// The laid-out box placed by the attachment point about the location, in the
// text's plane along its direction. Empty text has no extents.
Acad::ErrorStatus AcDbMText::getGeomExtents(AcDbExtents &ext) const {
  ext = AcDbExtents();
  if (contents_.empty()) return Acad::eInvalidExtents;
  MTextLayout l = layoutOf(*this);
  double w = l.actualWidth, h = l.actualHeight;
  int col = (attachment_ - 1) % 3, row = (attachment_ - 1) / 3;
  double left = -w * col / 2.0, top = h * row / 2.0;
  AcGeVector3d x = direction_, y = normal_.crossProduct(direction_).normal();
  for (double dx : {left, left + w})
    for (double dy : {top, top - h}) ext.addPoint(location_ + x * dx + y * dy);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbMText::transformBy(const AcGeMatrix3d &xform) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (!xform.isUniScaledOrtho()) return Acad::eNotApplicable;
  AcGeVector3d x = direction_, y = normal_.crossProduct(direction_);
  x.transformBy(xform), y.transformBy(xform);
  location_.transformBy(xform);
  double s = xform.scale();
  height_ *= s;
  width_ *= s;
  definedHeight_ *= s;
  normal_ = x.crossProduct(y).normal();
  direction_ = x.normal();
  return Acad::eOk;
}

// MTEXT: 10 location, 40 height, 41 defined width, 46 defined height, 71
// attachment, 72 flow, 3 ... 1 contents in 250-character pieces, 7 style,
// 210 normal, 11 direction, 42/43 actual size, 50 rotation, 73/44 line
// spacing, 90 background (1 fill, 2 drawing background colour), 63 fill
// colour, 45 fill scale.
Acad::ErrorStatus AcDbMText::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbEntity::dxfOutFields(f);
  f->writeString(100, L"AcDbMText");
  f->writePoint3d(10, location_);
  f->writeDouble(40, height_);
  f->writeDouble(41, width_);
  f->writeDouble(46, definedHeight_);
  f->writeInt16(71, attachment_);
  f->writeInt16(72, flow_);
  size_t pos = 0;
  while (contents_.size() - pos > 250) {
    f->writeString(3, contents_.substr(pos, 250));
    pos += 250;
  }
  f->writeString(1, contents_.substr(pos));
  std::wstring style = recordName(style_);
  f->writeString(7, style.empty() ? L"Standard" : style);
  f->writeVector3d(210, normal_);
  f->writeVector3d(11, direction_);
  if (!f->isFile()) {
    MTextLayout l = layoutOf(*this);
    f->writeDouble(42, l.actualWidth);
    f->writeDouble(43, l.actualHeight);
    f->writeAngle(50, rotation());
  }
  f->writeInt16(73, 1);
  f->writeDouble(44, spacing_);
  int bg = (fill_ ? 1 : 0) | (fill_ && useBgColor_ ? 2 : 0);
  if (bg) {
    f->writeInt32(90, bg);
    if (!useBgColor_) f->writeInt16(63, fillColor_.colorIndex() == 256 ? 7 : fillColor_.colorIndex());
    f->writeDouble(45, fillScale_);
    f->writeInt32(441, 0);
  }
  if (f->isFile())
    for (const auto &it : embedded_) f->items().push_back(it);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbMText::dxfInFields(AcDbDxfFiler *in) {
  // An embedded object (columns) repeats codes of the text's own (10, 11,
  // 40, 71 ...) with other meanings: the text reads only what comes before
  // it, and keeps the rest to write back.
  AcDbDxfFiler own(in->isFile());
  std::vector<AcDbDxfFiler::Item> embedded;
  bool inEmbedded = false;
  for (const auto &it : in->items()) {
    inEmbedded = inEmbedded || it.code == 101;
    (inEmbedded ? embedded : own.items()).push_back(it);
  }
  AcDbDxfFiler *f = &own;
  if (Acad::ErrorStatus es = AcDbEntity::dxfInFields(f); es != Acad::eOk) return es;
  double d;
  int64_t v;
  f->getPoint(10, location_);
  if (f->getDouble(40, d)) {
    if (!(d > 0)) return Acad::eInvalidInput;
    height_ = d;
  }
  if (f->getDouble(41, d)) width_ = std::max(0.0, d);
  if (f->getDouble(46, d)) definedHeight_ = std::max(0.0, d);
  if (f->getInt(71, v)) {
    if (v < 1 || v > 9) return Acad::eInvalidInput;
    attachment_ = AttachmentPoint(v);
  }
  if (f->getInt(72, v) && v >= 1 && v <= 5) flow_ = FlowDirection(v);
  if (f->find(1) || f->find(3)) {
    std::wstring text;
    for (const auto &it : f->items())
      if (it.code == 3) text += it.text;
    if (const auto *last = f->find(1)) text += last->text;
    contents_ = text;
  }
  std::wstring style;
  if (f->getString(7, style)) {
    AcDbDatabase *db = database() ? database() : workingDatabase();
    AcDbObjectId id = db ? recordId(db->textStyleTableId(), style) : AcDbObjectId::kNull;
    if (id.isNull()) return Acad::eKeyNotFound;
    style_ = id;
  }
  AcGeVector3d n;
  if (f->getVector(210, n)) {
    if (n.isZeroLength()) return Acad::eInvalidInput;
    normal_ = n.normal();
    direction_ = ocsXAxis(normal_);
  }
  AcGeVector3d dir;
  if (f->getVector(11, dir)) {
    AcGeVector3d p = dir - normal_ * dir.dotProduct(normal_);
    if (p.length() <= 1e-9) return Acad::eInvalidInput;
    direction_ = p.normal();
  } else if (f->getAngle(50, d)) {
    direction_ = ocsXAxis(normal_).rotateBy(d, normal_);
  }
  if (f->getDouble(44, d) && d >= 0.25 && d <= 4.0) spacing_ = d;
  if (f->getInt(90, v)) fill_ = v & 1, useBgColor_ = (v & 2) != 0;
  if (f->getInt(63, v) && v >= 0 && v <= 256) fillColor_.setColorIndex(Adesk::UInt16(v));
  if (f->getDouble(45, d) && d >= 1 && d <= 5) fillScale_ = d;
  if (in->isFile()) embedded_ = std::move(embedded);
  return Acad::eOk;
}

// --- 3D faces --------------------------------------------------------------------------------------

AcDbFace::AcDbFace(const AcGePoint3d &p0, const AcGePoint3d &p1, const AcGePoint3d &p2, const AcGePoint3d &p3,
                   bool e0, bool e1, bool e2, bool e3)
    : pts_{p0, p1, p2, p3}, invisible_{!e0, !e1, !e2, !e3} {}

AcDbFace::AcDbFace(const AcGePoint3d &p0, const AcGePoint3d &p1, const AcGePoint3d &p2, bool e0, bool e1,
                   bool e2, bool e3)
    : pts_{p0, p1, p2, p2}, invisible_{!e0, !e1, !e2, !e3} {}

Acad::ErrorStatus AcDbFace::getVertexAt(Adesk::UInt16 i, AcGePoint3d &p) const {
  if (i > 3) return Acad::eInvalidIndex;
  p = pts_[i];
  return Acad::eOk;
}

Acad::ErrorStatus AcDbFace::setVertexAt(Adesk::UInt16 i, const AcGePoint3d &p) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (i > 3) return Acad::eInvalidIndex;
  pts_[i] = p;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbFace::isEdgeVisibleAt(Adesk::UInt16 i, bool &visible) const {
  if (i > 3) return Acad::eInvalidIndex;
  visible = !invisible_[i];
  return Acad::eOk;
}

Acad::ErrorStatus AcDbFace::makeEdgeInvisibleAt(Adesk::UInt16 i) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (i > 3) return Acad::eInvalidIndex;
  invisible_[i] = true;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbFace::makeEdgeVisibleAt(Adesk::UInt16 i) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (i > 3) return Acad::eInvalidIndex;
  invisible_[i] = false;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbFace::getGeomExtents(AcDbExtents &ext) const {
  ext = AcDbExtents();
  for (const AcGePoint3d &p : pts_) ext.addPoint(p);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbFace::explode(AcDbVoidPtrArray &) const {
  return Acad::eNotApplicable;
}

Acad::ErrorStatus AcDbFace::transformBy(const AcGeMatrix3d &xform) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  for (AcGePoint3d &p : pts_) p.transformBy(xform);
  return Acad::eOk;
}

// 3DFACE: 10-13 corners, 70 invisible edges (1, 2, 4, 8 for edges 0-3).
Acad::ErrorStatus AcDbFace::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbEntity::dxfOutFields(f);
  f->writeString(100, L"AcDbFace");
  for (int i = 0; i < 4; ++i) f->writePoint3d(10 + i, pts_[i]);
  int flags = 0;
  for (int i = 0; i < 4; ++i) flags |= invisible_[i] ? 1 << i : 0;
  f->writeInt16(70, flags);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbFace::dxfInFields(AcDbDxfFiler *f) {
  if (Acad::ErrorStatus es = AcDbEntity::dxfInFields(f); es != Acad::eOk) return es;
  for (int i = 0; i < 4; ++i) f->getPoint(10 + i, pts_[i]);
  if (!f->find(13) && f->find(12)) pts_[3] = pts_[2];
  int64_t flags;
  if (f->getInt(70, flags))
    for (int i = 0; i < 4; ++i) invisible_[i] = flags & (1 << i);
  return Acad::eOk;
}

// --- Block references --------------------------------------------------------------------------------

Acad::ErrorStatus AcDbBlockReference::setBlockTableRecord(AcDbObjectId id) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  auto *btr = AcDbBlockTableRecord::cast(objectOf(id));
  if (!btr || btr->isLayout()) return Acad::eInvalidInput;
  if (database() && id.database() != database()) return Acad::eWrongDatabase;
  block_ = id;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbBlockReference::setPosition(const AcGePoint3d &p) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  position_ = p;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbBlockReference::setScaleFactors(const AcGeScale3d &s) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (s.sx == 0 || s.sy == 0 || s.sz == 0) return Acad::eInvalidInput;
  scale_ = s;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbBlockReference::setRotation(double a) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  rotation_ = wrapAngle(a);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbBlockReference::setNormal(const AcGeVector3d &n) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (n.isZeroLength()) return Acad::eInvalidInput;
  normal_ = n.normal();
  return Acad::eOk;
}

AcGeMatrix3d AcDbBlockReference::blockTransform() const {
  AcGePoint3d origin;
  if (auto *btr = AcDbBlockTableRecord::cast(objectOf(block_))) origin = btr->origin();
  AcGeMatrix3d scale;
  scale(0, 0) = scale_.sx, scale(1, 1) = scale_.sy, scale(2, 2) = scale_.sz;
  return AcGeMatrix3d::translation(position_.asVector()) * AcGeMatrix3d::planeToWorld(normal_) *
         AcGeMatrix3d::rotation(rotation_, AcGeVector3d::kZAxis) * scale *
         AcGeMatrix3d::translation(-origin.asVector());
}

// The union of the block's entities' extents, each box carried through the
// block transform. Nesting deeper than 32 is taken as a cycle.
Acad::ErrorStatus AcDbBlockReference::getGeomExtents(AcDbExtents &ext) const {
  static thread_local int depth = 0;
  ext = AcDbExtents();
  auto *btr = AcDbBlockTableRecord::cast(objectOf(block_));
  if (!btr || depth > 32) return Acad::eInvalidExtents;
  ++depth;
  AcGeMatrix3d m = blockTransform();
  for (AcDbObjectId id : btr->entityIds()) {
    auto *e = AcDbEntity::cast(objectOf(id));
    AcDbExtents part;
    if (!e || e->isErased() || e->getGeomExtents(part) != Acad::eOk) continue;
    part.transformBy(m);
    ext.addExt(part);
  }
  --depth;
  return ext.isEmpty() ? Acad::eInvalidExtents : Acad::eOk;
}

// Transformed copies of the block's entities; a piece that cannot take the
// transform (an arc under unequal scales) fails the whole explode.
Acad::ErrorStatus AcDbBlockReference::explode(AcDbVoidPtrArray &out) const {
  auto *btr = AcDbBlockTableRecord::cast(objectOf(block_));
  if (!btr) return Acad::eInvalidInput;
  AcGeMatrix3d m = blockTransform();
  std::vector<AcDbEntity *> made;
  for (AcDbObjectId id : btr->entityIds()) {
    auto *e = AcDbEntity::cast(objectOf(id));
    if (!e || e->isErased() || AcDbVertex::cast(e) || AcDbSequenceEnd::cast(e)) continue;
    AcDbEntity *copy = nullptr;
    if (e->getTransformedCopy(m, copy) != Acad::eOk) {
      for (AcDbEntity *x : made) delete x;
      return Acad::eNotApplicable;
    }
    made.push_back(copy);
  }
  for (AcDbEntity *x : made) out.append(x);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbBlockReference::transformBy(const AcGeMatrix3d &xform) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (!xform.isUniScaledOrtho()) return Acad::eNotApplicable;
  AcGeVector3d x = ocsXAxis(normal_), y = normal_.crossProduct(x);
  AcGeVector3d dir = x * std::cos(rotation_) + y * std::sin(rotation_);
  x.transformBy(xform), y.transformBy(xform), dir.transformBy(xform);
  normal_ = x.crossProduct(y).normal();
  AcGeVector3d nx = ocsXAxis(normal_), ny = normal_.crossProduct(nx);
  rotation_ = wrapAngle(std::atan2(dir.dotProduct(ny), dir.dotProduct(nx)));
  position_.transformBy(xform);
  double s = xform.scale();
  scale_ = AcGeScale3d(scale_.sx * s, scale_.sy * s, scale_.sz * s);
  return Acad::eOk;
}

// INSERT: 2 block name, 10 position (object coordinates), 41/42/43 scales,
// 50 rotation, 210 normal.
Acad::ErrorStatus AcDbBlockReference::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbEntity::dxfOutFields(f);
  // A grid of copies is the same entity with its own marker and four groups.
  const auto *grid = AcDbMInsertBlock::cast(this);
  f->writeString(100, grid ? L"AcDbMInsertBlock" : L"AcDbBlockReference");
  if (!attributeIds().empty()) f->writeInt16(66, 1);
  f->writeString(2, recordName(block_));
  f->writePoint3d(10, AcGePoint3d(position_).transformBy(AcGeMatrix3d::worldToPlane(normal_)));
  f->writeDouble(41, scale_.sx);
  f->writeDouble(42, scale_.sy);
  f->writeDouble(43, scale_.sz);
  f->writeAngle(50, rotation_);
  if (grid) {
    f->writeInt16(70, grid->columns());
    f->writeInt16(71, grid->rows());
    f->writeDouble(44, grid->columnSpacing());
    f->writeDouble(45, grid->rowSpacing());
  }
  f->writeVector3d(210, normal_);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbBlockReference::dxfInFields(AcDbDxfFiler *f) {
  if (Acad::ErrorStatus es = AcDbEntity::dxfInFields(f); es != Acad::eOk) return es;
  std::wstring name;
  if (f->getString(2, name)) {
    AcDbDatabase *db = database() ? database() : workingDatabase();
    AcDbObjectId id = db ? recordId(db->blockTableId(), name) : AcDbObjectId::kNull;
    auto *btr = AcDbBlockTableRecord::cast(objectOf(id));
    if (!btr || btr->isLayout()) return Acad::eKeyNotFound;
    block_ = id;
  }
  AcGeVector3d n;
  if (f->getVector(210, n)) {
    if (n.isZeroLength()) return Acad::eInvalidInput;
    normal_ = n.normal();
  }
  AcGePoint3d p;
  if (f->getPoint(10, p)) position_ = p.transformBy(AcGeMatrix3d::planeToWorld(normal_));
  double s[3] = {scale_.sx, scale_.sy, scale_.sz};
  for (int i = 0; i < 3; ++i)
    if (f->getDouble(41 + i, s[i]) && s[i] == 0) return Acad::eInvalidInput;
  scale_ = AcGeScale3d(s[0], s[1], s[2]);
  double r;
  if (f->getAngle(50, r)) rotation_ = wrapAngle(r);
  return Acad::eOk;
}

// --- Grids of block references (MINSERT) --------------------------------------------------------

AcDbBlockReference *vantry::host::newBlockReference(const AcDbDxfFiler &groups) {
  int64_t columns = 1, rows = 1;
  groups.getInt(70, columns);
  groups.getInt(71, rows);
  if (columns > 1 || rows > 1) return new AcDbMInsertBlock;
  return new AcDbBlockReference;
}

Acad::ErrorStatus AcDbMInsertBlock::setColumns(Adesk::UInt16 n) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (n < 1) return Acad::eInvalidInput;
  columns_ = n;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbMInsertBlock::setRows(Adesk::UInt16 n) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (n < 1) return Acad::eInvalidInput;
  rows_ = n;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbMInsertBlock::setColumnSpacing(double d) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (!std::isfinite(d)) return Acad::eInvalidInput;
  columnSpacing_ = d;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbMInsertBlock::setRowSpacing(double d) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (!std::isfinite(d)) return Acad::eInvalidInput;
  rowSpacing_ = d;
  return Acad::eOk;
}

// The copy's offset lies in the reference's plane, turned by its rotation;
// the spacings are drawing units, not scaled by the reference's factors.
AcGeVector3d AcDbMInsertBlock::gridOffset(int c, int r) const {
  double a = rotation();
  AcGeVector3d inPlane(c * columnSpacing_ * std::cos(a) - r * rowSpacing_ * std::sin(a),
                       c * columnSpacing_ * std::sin(a) + r * rowSpacing_ * std::cos(a), 0);
  return inPlane.transformBy(AcGeMatrix3d::planeToWorld(normal()));
}

// A box moved over the grid spans the boxes of its four corner copies.
Acad::ErrorStatus AcDbMInsertBlock::getGeomExtents(AcDbExtents &ext) const {
  AcDbExtents one;
  if (Acad::ErrorStatus es = AcDbBlockReference::getGeomExtents(one); es != Acad::eOk) return es;
  ext = AcDbExtents();
  for (int c : {0, columns_ - 1})
    for (int r : {0, rows_ - 1}) {
      AcDbExtents corner = one;
      corner.transformBy(AcGeMatrix3d::translation(gridOffset(c, r)));
      ext.addExt(corner);
    }
  return Acad::eOk;
}

// Every copy's pieces. A grid of more than 10,000 copies is not exploded:
// a drawing program refuses to explode such a reference at all.
Acad::ErrorStatus AcDbMInsertBlock::explode(AcDbVoidPtrArray &out) const {
  if (int(columns_) * int(rows_) > 10000) return Acad::eNotApplicable;
  AcDbVoidPtrArray first;
  if (Acad::ErrorStatus es = AcDbBlockReference::explode(first); es != Acad::eOk) return es;
  std::vector<AcDbEntity *> made;
  bool ok = true;
  for (int r = 0; r < rows_ && ok; ++r)
    for (int c = 0; c < columns_ && ok; ++c)
      for (int i = 0; i < first.length() && ok; ++i) {
        auto *piece = static_cast<AcDbEntity *>(first[i]);
        AcDbEntity *copy = nullptr;
        ok = piece->getTransformedCopy(AcGeMatrix3d::translation(gridOffset(c, r)), copy) == Acad::eOk;
        if (ok) made.push_back(copy);
      }
  for (int i = 0; i < first.length(); ++i) delete static_cast<AcDbEntity *>(first[i]);
  if (!ok) {
    for (AcDbEntity *x : made) delete x;
    return Acad::eNotApplicable;
  }
  for (AcDbEntity *x : made) out.append(x);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbMInsertBlock::transformBy(const AcGeMatrix3d &xform) {
  if (Acad::ErrorStatus es = AcDbBlockReference::transformBy(xform); es != Acad::eOk) return es;
  columnSpacing_ *= xform.scale();
  rowSpacing_ *= xform.scale();
  return Acad::eOk;
}

// 70 columns, 71 rows (1 when absent or less), 44 and 45 their spacings.
Acad::ErrorStatus AcDbMInsertBlock::dxfInFields(AcDbDxfFiler *f) {
  if (Acad::ErrorStatus es = AcDbBlockReference::dxfInFields(f); es != Acad::eOk) return es;
  int64_t n;
  if (f->getInt(70, n)) columns_ = Adesk::UInt16(std::clamp<int64_t>(n, 1, 32767));
  if (f->getInt(71, n)) rows_ = Adesk::UInt16(std::clamp<int64_t>(n, 1, 32767));
  double d;
  if (f->getDouble(44, d)) {
    if (!std::isfinite(d)) return Acad::eInvalidInput;
    columnSpacing_ = d;
  }
  if (f->getDouble(45, d)) {
    if (!std::isfinite(d)) return Acad::eInvalidInput;
    rowSpacing_ = d;
  }
  return Acad::eOk;
}
