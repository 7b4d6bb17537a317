// Annotation: multiline text and leaders. Part of host/acdb.h; include that.
#pragma once

// Multiline text. Its metrics come from the MText layout with the text style's
// font (host/mtext/layout.h).
class AcDbMText : public AcDbEntity {
 public:
  ACRX_DECLARE_MEMBERS(AcDbMText);
  enum AttachmentPoint {
    kTopLeft = 1,
    kTopCenter = 2,
    kTopRight = 3,
    kMiddleLeft = 4,
    kMiddleCenter = 5,
    kMiddleRight = 6,
    kBottomLeft = 7,
    kBottomCenter = 8,
    kBottomRight = 9,
  };
  enum FlowDirection { kLtoR = 1, kRtoL = 2, kTtoB = 3, kBtoT = 4, kByStyle = 5 };
  AcDbMText();
  ACHAR *contents() const;  // the caller frees it
  int setContents(const ACHAR *text);
  AcGePoint3d location() const { return location_; }
  Acad::ErrorStatus setLocation(const AcGePoint3d &p);
  double textHeight() const { return height_; }
  Acad::ErrorStatus setTextHeight(double h);  // h > 0
  double width() const { return width_; }
  Acad::ErrorStatus setWidth(double w);  // w >= 0; 0 means no wrapping
  // The frame's defined height (a column's height where the text has
  // columns); 0 means none.
  double height() const { return definedHeight_; }
  Acad::ErrorStatus setHeight(double h);  // h >= 0
  AcGeVector3d normal() const { return normal_; }
  Acad::ErrorStatus setNormal(const AcGeVector3d &n);  // not zero; keeps direction in the plane
  AcGeVector3d direction() const { return direction_; }
  Acad::ErrorStatus setDirection(const AcGeVector3d &d);  // not zero nor along the normal
  double rotation() const;
  Acad::ErrorStatus setRotation(double angle);
  AttachmentPoint attachment() const { return attachment_; }
  Acad::ErrorStatus setAttachment(AttachmentPoint a);  // 1..9
  FlowDirection flowDirection() const { return flow_; }
  Acad::ErrorStatus setFlowDirection(FlowDirection f);
  AcDbObjectId textStyle() const { return style_; }
  Acad::ErrorStatus setTextStyle(AcDbObjectId style);
  double lineSpacingFactor() const { return spacing_; }
  Acad::ErrorStatus setLineSpacingFactor(double f);  // 0.25..4
  // Background mask.
  bool backgroundFillOn() const { return fill_; }
  Acad::ErrorStatus setBackgroundFill(bool on);
  double getBackgroundScaleFactor() const { return fillScale_; }
  Acad::ErrorStatus getBackgroundScaleFactor(double &s) const {
    s = fillScale_;
    return Acad::eOk;
  }
  Acad::ErrorStatus setBackgroundScaleFactor(double s);  // 1..5
  bool useBackgroundColorOn() const { return useBgColor_; }
  Acad::ErrorStatus setUseBackgroundColor(bool on);
  Acad::ErrorStatus getBackgroundFillColor(AcCmColor &c) const {
    c = fillColor_;
    return Acad::eOk;
  }
  Acad::ErrorStatus setBackgroundFillColor(const AcCmColor &c);

  // Metrics of the laid-out text (drawing units).
  double actualWidth() const;
  double actualHeight(void *drawContext = nullptr) const;
  double ascent() const;
  double descent() const;
  // The text's font and width factor as its style sets them.
  void styleFont(std::wstring &font, double &widthFactor) const;

  Acad::ErrorStatus getGeomExtents(AcDbExtents &extents) const override;
  Acad::ErrorStatus transformBy(const AcGeMatrix3d &xform) override;
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 private:
  std::wstring contents_;
  AcGePoint3d location_;
  double height_ = 2.5, width_ = 0, definedHeight_ = 0, spacing_ = 1.0, fillScale_ = 1.5;
  AcGeVector3d normal_ = AcGeVector3d::kZAxis, direction_ = AcGeVector3d::kXAxis;
  AttachmentPoint attachment_ = kTopLeft;
  FlowDirection flow_ = kLtoR;
  AcDbObjectId style_;
  bool fill_ = false, useBgColor_ = false;
  AcCmColor fillColor_;
  // The embedded object a drawing file gave the text (columns: "101 Embedded
  // Object" and what follows), written back as read.
  std::vector<AcDbDxfFiler::Item> embedded_;
};

// A leader: a path through its vertices, with or without an arrowhead. As a
// curve it is the straight path through the vertices (parameter = vertex
// index), also when it is drawn splined.
class AcDbLeader : public AcDbCurve {
 public:
  ACRX_DECLARE_MEMBERS(AcDbLeader);
  bool appendVertex(const AcGePoint3d &p);
  void removeLastVertex();
  int numVertices() const { return int(verts_.size()); }
  AcGePoint3d vertexAt(int i) const { return verts_.at(i); }
  bool setVertexAt(int i, const AcGePoint3d &p);
  bool hasArrowHead() const { return arrow_; }
  void enableArrowHead() { arrow_ = true; }
  void disableArrowHead() { arrow_ = false; }
  bool isSplined() const { return splined_; }
  void setToSplineLeader() { splined_ = true; }
  void setToStraightLeader() { splined_ = false; }
  AcDbObjectId annotationObjId() const { return annotation_; }
  Acad::ErrorStatus attachAnnotation(AcDbObjectId id);
  AcGeVector3d normal() const { return normal_; }
  Acad::ErrorStatus getGeomExtents(AcDbExtents &extents) const override;
  Acad::ErrorStatus explode(AcDbVoidPtrArray &entities) const override;
  Acad::ErrorStatus transformBy(const AcGeMatrix3d &xform) override;
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 protected:
  void buildPath(vantry::host::CurvePath &path) const override;

 private:
  std::vector<AcGePoint3d> verts_;
  bool arrow_ = true, splined_ = false;
  AcDbObjectId annotation_;
  AcGeVector3d normal_ = AcGeVector3d::kZAxis;
};
