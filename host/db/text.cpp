// Single-line text, attribute definitions and attributes (host/acdb_text.h),
// and the attributes of block references.
#include <algorithm>
#include <cmath>

#include "db/db.h"
#include "mtext/layout.h"

using namespace vantry::host;

namespace {

double wrapAngle(double a) {
  a = std::fmod(a, 2 * M_PI);
  return a < 0 ? a + 2 * M_PI : a;
}

ACHAR *copyOf(const std::wstring &s) {
  ACHAR *out = nullptr;
  acutNewString(s.c_str(), out);
  return out;
}

// A tag may not be empty nor hold spaces.
bool validTag(const ACHAR *tag) {
  if (!tag || !*tag) return false;
  for (const ACHAR *p = tag; *p; ++p)
    if (*p == L' ') return false;
  return true;
}

// The width of one line of text for a height of 1, with its style's font.
double unitWidth(const std::wstring &text, AcDbObjectId style, double widthFactor) {
  MTextLayoutInput in;
  for (wchar_t c : text) {
    if (c == L'\\' || c == L'{' || c == L'}') in.contents += L'\\';
    in.contents += c;
  }
  in.textHeight = 1;
  in.widthFactor = widthFactor;
  if (auto *rec = AcDbTextStyleTableRecord::cast(objectOf(style))) {
    const ACHAR *file = nullptr;
    rec->fileName(file);
    in.fontName = file ? file : L"";
    in.widthFactor = widthFactor * rec->xScale();
  }
  MTextLayout layout = layoutMText(in);
  return layout.lines.empty() ? 0 : layout.lines[0].width;
}

}  // namespace

// --- Text ----------------------------------------------------------------------------------------

AcDbText::AcDbText(const AcGePoint3d &position, const ACHAR *text, AcDbObjectId style, double height,
                   double rotation)
    : position_(position),
      alignment_(position),
      text_(text ? text : L""),
      style_(style),
      height_(height),
      rotation_(wrapAngle(rotation)) {}

#define TEXT_SETTER(NAME, TYPE, FIELD, CHECK)         \
  Acad::ErrorStatus AcDbText::NAME(TYPE v) {           \
    if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es; \
    if (!(CHECK)) return Acad::eInvalidInput;          \
    FIELD = v;                                         \
    return Acad::eOk;                                  \
  }
TEXT_SETTER(setPosition, const AcGePoint3d &, position_, true)
TEXT_SETTER(setHeight, double, height_, v > 0 && std::isfinite(v))
TEXT_SETTER(setWidthFactor, double, widthFactor_, v > 0 && std::isfinite(v))
TEXT_SETTER(setOblique, double, oblique_, std::fabs(v) <= 85 * M_PI / 180)
TEXT_SETTER(setThickness, double, thickness_, std::isfinite(v))
TEXT_SETTER(setHorizontalMode, AcDb::TextHorzMode, horz_, v >= AcDb::kTextLeft && v <= AcDb::kTextFit)
TEXT_SETTER(setVerticalMode, AcDb::TextVertMode, vert_, v >= AcDb::kTextBase && v <= AcDb::kTextTop)
#undef TEXT_SETTER

Acad::ErrorStatus AcDbText::setAlignmentPoint(const AcGePoint3d &p) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  alignment_ = p;
  alignmentSet_ = true;
  return Acad::eOk;
}

ACHAR *AcDbText::textString() const {
  return copyOf(text_);
}

Acad::ErrorStatus AcDbText::setTextString(const ACHAR *text) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (!text) return Acad::eInvalidInput;
  text_ = text;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbText::setTextStyle(AcDbObjectId style) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (!style.isNull() && !AcDbTextStyleTableRecord::cast(objectOf(style))) return Acad::eInvalidInput;
  style_ = style;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbText::setRotation(double a) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (!std::isfinite(a)) return Acad::eInvalidInput;
  rotation_ = wrapAngle(a);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbText::setNormal(const AcGeVector3d &n) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (n.isZeroLength()) return Acad::eInvalidInput;
  normal_ = n.normal();
  return Acad::eOk;
}

Acad::ErrorStatus AcDbText::mirrorInX(bool on) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  generation_ = on ? generation_ | 2 : generation_ & ~2;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbText::mirrorInY(bool on) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  generation_ = on ? generation_ | 4 : generation_ & ~4;
  return Acad::eOk;
}

// The box of the line from its baseline start: the width from the style's
// font, the height the cap height, a fifth of it below the baseline.
Acad::ErrorStatus AcDbText::getGeomExtents(AcDbExtents &ext) const {
  ext = AcDbExtents();
  double width = unitWidth(text_, style_, widthFactor_) * height_;
  AcGeVector3d x = ocsXAxis(normal_), y = normal_.crossProduct(x);
  AcGeVector3d dir = x * std::cos(rotation_) + y * std::sin(rotation_);
  AcGeVector3d up = normal_.crossProduct(dir);
  AcGePoint3d start = position_;
  if (!isDefaultAlignment()) {
    AcGePoint3d second = alignmentSet_ ? alignment_ : position_;
    if (horz_ == AcDb::kTextAlign || horz_ == AcDb::kTextFit) {
      start = position_;
      width = position_.distanceTo(second);
    } else {
      double shift = horz_ == AcDb::kTextCenter || horz_ == AcDb::kTextMid ? width / 2
                     : horz_ == AcDb::kTextRight                           ? width
                                                                           : 0;
      double lift = horz_ == AcDb::kTextMid || vert_ == AcDb::kTextVertMid ? -height_ / 2
                    : vert_ == AcDb::kTextTop                              ? -height_
                    : vert_ == AcDb::kTextBottom                           ? height_ / 4
                                                                           : 0;
      start = second - dir * shift + up * lift;
    }
  }
  for (double a : {0.0, 1.0})
    for (double b : {-0.2, 1.0}) ext.addPoint(start + dir * (a * width) + up * (b * height_));
  return Acad::eOk;
}

Acad::ErrorStatus AcDbText::transformBy(const AcGeMatrix3d &xform) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (!xform.isUniScaledOrtho()) return Acad::eNotApplicable;
  AcGeVector3d x = ocsXAxis(normal_), y = normal_.crossProduct(x);
  AcGeVector3d dir = x * std::cos(rotation_) + y * std::sin(rotation_);
  dir.transformBy(xform);
  position_.transformBy(xform);
  alignment_.transformBy(xform);
  normal_ = transformedNormal(normal_, xform);
  AcGeVector3d nx = ocsXAxis(normal_), ny = normal_.crossProduct(nx);
  rotation_ = wrapAngle(std::atan2(dir.dotProduct(ny), dir.dotProduct(nx)));
  height_ *= xform.scale();
  return Acad::eOk;
}

void AcDbText::writeTextPart(AcDbDxfFiler *f) const {
  AcGeMatrix3d toPlane = AcGeMatrix3d::worldToPlane(normal_);
  f->writeString(100, L"AcDbText");
  if (thickness_ != 0) f->writeDouble(39, thickness_);
  f->writePoint3d(10, AcGePoint3d(position_).transformBy(toPlane));
  f->writeDouble(40, height_);
  f->writeString(1, text_);
  if (rotation_ != 0) f->writeAngle(50, rotation_);
  if (widthFactor_ != 1) f->writeDouble(41, widthFactor_);
  if (oblique_ != 0) f->writeAngle(51, oblique_);
  f->writeString(7, recordName(style_).empty() ? L"Standard" : recordName(style_));
  if (generation_) f->writeInt16(71, generation_);
  if (horz_) f->writeInt16(72, horz_);
  if (!isDefaultAlignment() || alignmentSet_) f->writePoint3d(11, AcGePoint3d(alignment_).transformBy(toPlane));
  f->writeVector3d(210, normal_);
}

// 10 and 11 are in the plane of 210; 7 names a text style of the drawing
// (an unknown one is refused); the height must be above 0 once given.
Acad::ErrorStatus AcDbText::readTextPart(AcDbDxfFiler *f, int verticalCode) {
  AcGeVector3d n;
  if (f->getVector(210, n)) {
    if (n.isZeroLength()) return Acad::eInvalidInput;
    normal_ = n.normal();
  }
  AcGeMatrix3d toWorld = AcGeMatrix3d::planeToWorld(normal_);
  AcGePoint3d p;
  if (f->getPoint(10, p)) position_ = p.transformBy(toWorld);
  if (f->getPoint(11, p)) {
    alignment_ = p.transformBy(toWorld);
    alignmentSet_ = true;
  }
  double v;
  if (f->getDouble(40, v)) {
    if (!(v > 0) || !std::isfinite(v)) return Acad::eInvalidInput;
    height_ = v;
  }
  if (f->getDouble(41, v)) {
    if (!(v > 0) || !std::isfinite(v)) return Acad::eInvalidInput;
    widthFactor_ = v;
  }
  if (f->getAngle(50, v)) rotation_ = wrapAngle(v);
  if (f->getAngle(51, v)) oblique_ = v;
  f->getDouble(39, thickness_);
  std::wstring s;
  if (f->getString(1, s)) text_ = s;
  if (f->getString(7, s)) {
    AcDbDatabase *db = database() ? database() : workingDatabase();
    AcDbObjectId id = db ? recordId(db->textStyleTableId(), s) : AcDbObjectId::kNull;
    if (id.isNull()) return Acad::eKeyNotFound;
    style_ = id;
  }
  int64_t i;
  if (f->getInt(71, i)) generation_ = int(i & 6);
  if (f->getInt(72, i)) {
    if (i < 0 || i > 5) return Acad::eInvalidInput;
    horz_ = AcDb::TextHorzMode(i);
  }
  if (f->getInt(verticalCode, i)) {
    if (i < 0 || i > 3) return Acad::eInvalidInput;
    vert_ = AcDb::TextVertMode(i);
  }
  // A justified text placed by its alignment point alone stands there.
  if (!isDefaultAlignment() && alignmentSet_ && !f->find(10)) position_ = alignment_;
  if (!isDefaultAlignment() && !alignmentSet_) alignment_ = position_, alignmentSet_ = true;
  return Acad::eOk;
}

// TEXT: the text part, then 100 AcDbText and 73 vertical alignment.
Acad::ErrorStatus AcDbText::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbEntity::dxfOutFields(f);
  writeTextPart(f);
  f->writeString(100, L"AcDbText");
  if (vert_) f->writeInt16(73, vert_);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbText::dxfInFields(AcDbDxfFiler *f) {
  if (Acad::ErrorStatus es = AcDbEntity::dxfInFields(f); es != Acad::eOk) return es;
  return readTextPart(f, 73);
}

// --- Attribute definitions ------------------------------------------------------------------------

AcDbAttributeDefinition::AcDbAttributeDefinition(const AcGePoint3d &position, const ACHAR *text, const ACHAR *tag,
                                                 const ACHAR *prompt, AcDbObjectId style)
    : AcDbText(position, text, style), tag_(tag ? tag : L""), prompt_(prompt ? prompt : L"") {}

ACHAR *AcDbAttributeDefinition::tag() const {
  return copyOf(tag_);
}
ACHAR *AcDbAttributeDefinition::prompt() const {
  return copyOf(prompt_);
}

Acad::ErrorStatus AcDbAttributeDefinition::setTag(const ACHAR *tag) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (!validTag(tag)) return Acad::eInvalidInput;
  tag_ = tag;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbAttributeDefinition::setPrompt(const ACHAR *prompt) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  prompt_ = prompt ? prompt : L"";
  return Acad::eOk;
}

#define FLAG_SETTER(CLASS, NAME, BIT)                                      \
  Acad::ErrorStatus CLASS::NAME(bool on) {                                 \
    if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;   \
    flags_ = on ? flags_ | BIT : flags_ & ~BIT;                            \
    return Acad::eOk;                                                      \
  }
FLAG_SETTER(AcDbAttributeDefinition, setInvisible, 1)
FLAG_SETTER(AcDbAttributeDefinition, setConstant, 2)
FLAG_SETTER(AcDbAttributeDefinition, setVerifiable, 4)
FLAG_SETTER(AcDbAttributeDefinition, setPreset, 8)
FLAG_SETTER(AcDbAttribute, setInvisible, 1)
#undef FLAG_SETTER

Acad::ErrorStatus AcDbAttributeDefinition::setFieldLength(Adesk::UInt16 n) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  fieldLength_ = n;
  return Acad::eOk;
}

// ATTDEF: the text part, then 100 AcDbAttributeDefinition, 3 prompt, 2 tag,
// 70 flags, 73 field length, 74 vertical alignment.
Acad::ErrorStatus AcDbAttributeDefinition::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbEntity::dxfOutFields(f);
  writeTextPart(f);
  f->writeString(100, L"AcDbAttributeDefinition");
  f->writeString(3, prompt_);
  f->writeString(2, tag_);
  f->writeInt16(70, flags_);
  if (fieldLength_) f->writeInt16(73, fieldLength_);
  if (verticalMode()) f->writeInt16(74, verticalMode());
  return Acad::eOk;
}

// A definition must have a tag.
Acad::ErrorStatus AcDbAttributeDefinition::dxfInFields(AcDbDxfFiler *f) {
  if (Acad::ErrorStatus es = AcDbEntity::dxfInFields(f); es != Acad::eOk) return es;
  if (Acad::ErrorStatus es = readTextPart(f, 74); es != Acad::eOk) return es;
  std::wstring s;
  if (f->getString(2, s)) {
    if (!validTag(s.c_str())) return Acad::eInvalidInput;
    tag_ = s;
  }
  if (tag_.empty()) return Acad::eInvalidInput;
  if (f->getString(3, s)) prompt_ = s;
  int64_t i;
  if (f->getInt(70, i)) flags_ = int(i & 15);
  if (f->getInt(73, i)) fieldLength_ = Adesk::UInt16(std::clamp<int64_t>(i, 0, 65535));
  return Acad::eOk;
}

// --- Attributes ----------------------------------------------------------------------------------

AcDbAttribute::AcDbAttribute(const AcGePoint3d &position, const ACHAR *text, const ACHAR *tag, AcDbObjectId style)
    : AcDbText(position, text, style), tag_(tag ? tag : L"") {}

ACHAR *AcDbAttribute::tag() const {
  return copyOf(tag_);
}

Acad::ErrorStatus AcDbAttribute::setTag(const ACHAR *tag) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (!validTag(tag)) return Acad::eInvalidInput;
  tag_ = tag;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbAttribute::setFieldLength(Adesk::UInt16 n) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  fieldLength_ = n;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbAttribute::setAttributeFromBlock(const AcDbAttributeDefinition *def,
                                                       const AcGeMatrix3d &blockTransform) {
  if (Acad::ErrorStatus es = checkWrite(); es != Acad::eOk) return es;
  if (!def) return Acad::eNullObjectPointer;
  AcDbText &text = *this;
  const AcDbText &from = *def;
  AcDbObjectId layer = layerId(), linetype = linetypeId();
  AcCmColor color = this->color();
  text = from;  // the text part and the entity's look
  if (!layer.isNull() && database()) setLayer(layer), setLinetype(linetype), setColor(color);
  tag_ = def->tagConst();
  flags_ = def->isInvisible() | (def->isConstant() << 1) | (def->isVerifiable() << 2) | (def->isPreset() << 3);
  fieldLength_ = def->fieldLength();
  // A reference scaled unevenly keeps the definition's size and angle and
  // moves the text's points only.
  if (AcDbText::transformBy(blockTransform) != Acad::eOk) {
    setPosition(def->position().transformBy(blockTransform));
    setAlignmentPoint(def->alignmentPoint().transformBy(blockTransform));
  }
  return Acad::eOk;
}

// ATTRIB: the text part, then 100 AcDbAttribute, 2 tag, 70 flags, 73 field
// length, 74 vertical alignment.
Acad::ErrorStatus AcDbAttribute::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbEntity::dxfOutFields(f);
  writeTextPart(f);
  f->writeString(100, L"AcDbAttribute");
  f->writeString(2, tag_);
  f->writeInt16(70, flags_);
  if (fieldLength_) f->writeInt16(73, fieldLength_);
  if (verticalMode()) f->writeInt16(74, verticalMode());
  return Acad::eOk;
}

Acad::ErrorStatus AcDbAttribute::dxfInFields(AcDbDxfFiler *f) {
  if (Acad::ErrorStatus es = AcDbEntity::dxfInFields(f); es != Acad::eOk) return es;
  if (Acad::ErrorStatus es = readTextPart(f, 74); es != Acad::eOk) return es;
  std::wstring s;
  if (f->getString(2, s)) {
    if (!validTag(s.c_str())) return Acad::eInvalidInput;
    tag_ = s;
  }
  if (tag_.empty()) return Acad::eInvalidInput;
  int64_t i;
  if (f->getInt(70, i)) flags_ = int(i & 15);
  if (f->getInt(73, i)) fieldLength_ = Adesk::UInt16(std::clamp<int64_t>(i, 0, 65535));
  return Acad::eOk;
}

// --- The attributes of block references ----------------------------------------------------------

Acad::ErrorStatus AcDbBlockReference::appendAttribute(AcDbObjectId &id, AcDbAttribute *att) {
  id = AcDbObjectId::kNull;
  if (!att) return Acad::eNullObjectPointer;
  if (objectId().isNull()) return Acad::eWrongDatabase;
  if (!isWriteEnabled()) return Acad::eNotOpenForWrite;
  if (!att->objectId().isNull()) return Acad::eAlreadyInDb;
  AcDbDatabase *db = database();
  id = DbAccess::addToDatabase(db, att, objectId(), true);
  auto &list = db->impl()->attributes[DbAccess::stub(this)];
  // Before the end marker, when the reference has one.
  auto end = std::find_if(list.begin(), list.end(), [](AcDbObjectId a) { return AcDbSequenceEnd::cast(objectOf(a)); });
  list.insert(end, id);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbBlockReference::appendAttribute(AcDbAttribute *att) {
  AcDbObjectId id;
  return appendAttribute(id, att);
}

std::vector<AcDbObjectId> AcDbBlockReference::attributeIds() const {
  std::vector<AcDbObjectId> ids;
  AcDbDatabase *db = database();
  if (!db) return ids;
  auto found = db->impl()->attributes.find(DbAccess::stub(this));
  if (found == db->impl()->attributes.end()) return ids;
  for (AcDbObjectId id : found->second)
    if (AcDbAttribute::cast(objectOf(id)) && !id.isErased()) ids.push_back(id);
  return ids;
}

AcDbObjectIterator *AcDbBlockReference::attributeIterator() const {
  return DbAccess::objectIterator(attributeIds());
}
