// Single-line text, attribute definitions and attributes. Part of
// host/acdb.h; include that.
//
// Points are kept in world coordinates; the drawing-data form gives the
// position (10) and the alignment point (11) in the text's object
// coordinates, as the host does.
#pragma once

namespace AcDb {
enum TextHorzMode { kTextLeft = 0, kTextCenter = 1, kTextRight = 2, kTextAlign = 3, kTextMid = 4, kTextFit = 5 };
enum TextVertMode { kTextBase = 0, kTextBottom = 1, kTextVertMid = 2, kTextTop = 3 };
}  // namespace AcDb

class AcDbText : public AcDbEntity {
 public:
  ACRX_DECLARE_MEMBERS(AcDbText);
  AcDbText() = default;
  AcDbText(const AcGePoint3d &position, const ACHAR *text, AcDbObjectId style = AcDbObjectId::kNull,
           double height = 0, double rotation = 0);

  AcGePoint3d position() const { return position_; }
  Acad::ErrorStatus setPosition(const AcGePoint3d &p);
  // The second point, used by every justification but left/baseline.
  AcGePoint3d alignmentPoint() const { return alignment_; }
  Acad::ErrorStatus setAlignmentPoint(const AcGePoint3d &p);
  bool isDefaultAlignment() const { return horz_ == AcDb::kTextLeft && vert_ == AcDb::kTextBase; }
  // The caller frees the copy with acutDelString.
  ACHAR *textString() const;
  const ACHAR *textStringConst() const { return text_.c_str(); }
  Acad::ErrorStatus setTextString(const ACHAR *text);
  AcDbObjectId textStyle() const { return style_; }
  Acad::ErrorStatus setTextStyle(AcDbObjectId style);
  double height() const { return height_; }
  Acad::ErrorStatus setHeight(double h);  // h > 0
  double rotation() const { return rotation_; }
  Acad::ErrorStatus setRotation(double a);
  double widthFactor() const { return widthFactor_; }
  Acad::ErrorStatus setWidthFactor(double f);  // f > 0
  double oblique() const { return oblique_; }
  Acad::ErrorStatus setOblique(double a);
  double thickness() const { return thickness_; }
  Acad::ErrorStatus setThickness(double t);
  AcGeVector3d normal() const { return normal_; }
  Acad::ErrorStatus setNormal(const AcGeVector3d &n);
  AcDb::TextHorzMode horizontalMode() const { return horz_; }
  Acad::ErrorStatus setHorizontalMode(AcDb::TextHorzMode m);
  AcDb::TextVertMode verticalMode() const { return vert_; }
  Acad::ErrorStatus setVerticalMode(AcDb::TextVertMode m);
  // Generation flags (71): 2 backward, 4 upside down.
  bool isMirroredInX() const { return (generation_ & 2) != 0; }
  Acad::ErrorStatus mirrorInX(bool on);
  bool isMirroredInY() const { return (generation_ & 4) != 0; }
  Acad::ErrorStatus mirrorInY(bool on);

  Acad::ErrorStatus getGeomExtents(AcDbExtents &extents) const override;
  Acad::ErrorStatus transformBy(const AcGeMatrix3d &xform) override;
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 protected:
  // The text part (after the entity part): 100 AcDbText, 39, 10, 40, 1, 50,
  // 41, 51, 7, 71, 72, 11, 210; the caller adds the kind's own part.
  void writeTextPart(AcDbDxfFiler *filer) const;
  Acad::ErrorStatus readTextPart(AcDbDxfFiler *filer, int verticalCode);

 private:
  AcGePoint3d position_, alignment_;
  bool alignmentSet_ = false;
  std::wstring text_;
  AcDbObjectId style_;
  double height_ = 0, rotation_ = 0, widthFactor_ = 1, oblique_ = 0, thickness_ = 0;
  AcGeVector3d normal_ = AcGeVector3d::kZAxis;
  AcDb::TextHorzMode horz_ = AcDb::kTextLeft;
  AcDb::TextVertMode vert_ = AcDb::kTextBase;
  int generation_ = 0;
};

// Attribute flags (70) of definitions and attributes: 1 invisible, 2
// constant, 4 verify, 8 preset.
class AcDbAttributeDefinition : public AcDbText {
 public:
  ACRX_DECLARE_MEMBERS(AcDbAttributeDefinition);
  AcDbAttributeDefinition() = default;
  AcDbAttributeDefinition(const AcGePoint3d &position, const ACHAR *text, const ACHAR *tag, const ACHAR *prompt,
                          AcDbObjectId style = AcDbObjectId::kNull);
  // The caller frees the copies with acutDelString.
  ACHAR *tag() const;
  const ACHAR *tagConst() const { return tag_.c_str(); }
  Acad::ErrorStatus setTag(const ACHAR *tag);  // not empty, no spaces
  ACHAR *prompt() const;
  const ACHAR *promptConst() const { return prompt_.c_str(); }
  Acad::ErrorStatus setPrompt(const ACHAR *prompt);
  bool isInvisible() const { return (flags_ & 1) != 0; }
  Acad::ErrorStatus setInvisible(bool on);
  bool isConstant() const { return (flags_ & 2) != 0; }
  Acad::ErrorStatus setConstant(bool on);
  bool isVerifiable() const { return (flags_ & 4) != 0; }
  Acad::ErrorStatus setVerifiable(bool on);
  bool isPreset() const { return (flags_ & 8) != 0; }
  Acad::ErrorStatus setPreset(bool on);
  Adesk::UInt16 fieldLength() const { return fieldLength_; }
  Acad::ErrorStatus setFieldLength(Adesk::UInt16 n);
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 private:
  std::wstring tag_, prompt_;
  int flags_ = 0;
  Adesk::UInt16 fieldLength_ = 0;
};

// An attribute of a block reference: owned by the reference, written after
// it (with a SEQEND) in drawing data.
class AcDbAttribute : public AcDbText {
 public:
  ACRX_DECLARE_MEMBERS(AcDbAttribute);
  AcDbAttribute() = default;
  AcDbAttribute(const AcGePoint3d &position, const ACHAR *text, const ACHAR *tag,
                AcDbObjectId style = AcDbObjectId::kNull);
  ACHAR *tag() const;  // the caller frees it
  const ACHAR *tagConst() const { return tag_.c_str(); }
  Acad::ErrorStatus setTag(const ACHAR *tag);  // not empty, no spaces
  bool isInvisible() const { return (flags_ & 1) != 0; }
  Acad::ErrorStatus setInvisible(bool on);
  bool isConstant() const { return (flags_ & 2) != 0; }
  bool isVerifiable() const { return (flags_ & 4) != 0; }
  bool isPreset() const { return (flags_ & 8) != 0; }
  Adesk::UInt16 fieldLength() const { return fieldLength_; }
  Acad::ErrorStatus setFieldLength(Adesk::UInt16 n);
  // Takes the definition's text properties and tag, placed by the
  // reference's transform (block coordinates to world), with its default
  // value.
  Acad::ErrorStatus setAttributeFromBlock(const AcDbAttributeDefinition *def, const AcGeMatrix3d &blockTransform);
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 private:
  std::wstring tag_;
  int flags_ = 0;
  Adesk::UInt16 fieldLength_ = 0;
};
