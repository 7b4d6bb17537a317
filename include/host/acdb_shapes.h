// Points, filled triangles and quadrilaterals (solids and traces), ellipses,
// splines, construction lines and rays, hatches and dimensions. Part of
// host/acdb.h; include that.
#pragma once

class AcDbPoint : public AcDbEntity {
 public:
  ACRX_DECLARE_MEMBERS(AcDbPoint);
  AcDbPoint() = default;
  explicit AcDbPoint(const AcGePoint3d &position) : position_(position) {}
  AcGePoint3d position() const { return position_; }
  Acad::ErrorStatus setPosition(const AcGePoint3d &p);
  double thickness() const { return thickness_; }
  Acad::ErrorStatus setThickness(double t);
  AcGeVector3d normal() const { return normal_; }
  Acad::ErrorStatus setNormal(const AcGeVector3d &n);
  // The angle of the X axis used when points are shown with a shape (50).
  double ecsRotation() const { return rotation_; }
  Acad::ErrorStatus setEcsRotation(double a);
  Acad::ErrorStatus getGeomExtents(AcDbExtents &extents) const override;
  Acad::ErrorStatus transformBy(const AcGeMatrix3d &xform) override;
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 private:
  AcGePoint3d position_;
  double thickness_ = 0, rotation_ = 0;
  AcGeVector3d normal_ = AcGeVector3d::kZAxis;
};

// Four corners in the plane of the normal (a triangle repeats its third);
// the fill runs 0-1-3-2, as the host draws it.
class AcDbSolid : public AcDbEntity {
 public:
  ACRX_DECLARE_MEMBERS(AcDbSolid);
  AcDbSolid() = default;
  AcDbSolid(const AcGePoint3d &p0, const AcGePoint3d &p1, const AcGePoint3d &p2, const AcGePoint3d &p3);
  AcDbSolid(const AcGePoint3d &p0, const AcGePoint3d &p1, const AcGePoint3d &p2);
  Acad::ErrorStatus getPointAt(Adesk::UInt16 index, AcGePoint3d &p) const;  // 0..3
  Acad::ErrorStatus setPointAt(Adesk::UInt16 index, const AcGePoint3d &p);
  double thickness() const { return thickness_; }
  Acad::ErrorStatus setThickness(double t);
  AcGeVector3d normal() const { return normal_; }
  Acad::ErrorStatus setNormal(const AcGeVector3d &n);
  Acad::ErrorStatus getGeomExtents(AcDbExtents &extents) const override;
  Acad::ErrorStatus transformBy(const AcGeMatrix3d &xform) override;
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 private:
  AcGePoint3d pts_[4];
  double thickness_ = 0;
  AcGeVector3d normal_ = AcGeVector3d::kZAxis;
};

// A trace holds the same data as a solid (a wide line segment of old).
class AcDbTrace : public AcDbSolid {
 public:
  ACRX_DECLARE_MEMBERS(AcDbTrace);
  using AcDbSolid::AcDbSolid;
};

// An ellipse or elliptical arc: centre, major axis (a vector, world),
// the minor to major ratio (0 < ratio <= 1) and the start and end
// parameters (0 to 2 pi for a whole ellipse). The curve queries measure a
// fine polygon through it (0.25 degree steps of the parameter), exact at
// its points.
class AcDbEllipse : public AcDbCurve {
 public:
  ACRX_DECLARE_MEMBERS(AcDbEllipse);
  AcDbEllipse() = default;
  AcDbEllipse(const AcGePoint3d &center, const AcGeVector3d &unitNormal, const AcGeVector3d &majorAxis,
              double radiusRatio, double startAngle = 0.0, double endAngle = 6.28318530717958647692);
  AcGePoint3d center() const { return center_; }
  Acad::ErrorStatus setCenter(const AcGePoint3d &c);
  AcGeVector3d normal() const { return normal_; }
  AcGeVector3d majorAxis() const { return major_; }
  AcGeVector3d minorAxis() const;
  double radiusRatio() const { return ratio_; }
  Acad::ErrorStatus setRadiusRatio(double r);
  double startParam() const { return start_; }
  double endParam() const { return end_; }
  Acad::ErrorStatus setStartParam(double p);
  Acad::ErrorStatus setEndParam(double p);
  Acad::ErrorStatus set(const AcGePoint3d &center, const AcGeVector3d &unitNormal, const AcGeVector3d &majorAxis,
                        double radiusRatio, double startAngle = 0.0, double endAngle = 6.28318530717958647692);
  bool isClosed() const override;
  Acad::ErrorStatus getGeomExtents(AcDbExtents &extents) const override;
  Acad::ErrorStatus transformBy(const AcGeMatrix3d &xform) override;
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 protected:
  void buildPath(vantry::host::CurvePath &path) const override;

 private:
  AcGePoint3d center_;
  AcGeVector3d normal_ = AcGeVector3d::kZAxis, major_ = AcGeVector3d::kXAxis;
  double ratio_ = 1, start_ = 0, end_ = 6.28318530717958647692;
};

// A NURBS curve: degree, knots, control points with optional weights, and
// the fit data it was made from. The curve queries measure a fine polygon
// through it (32 pieces per knot span), exact at its points; the parameter
// is the knot value.
class AcDbSpline : public AcDbCurve {
 public:
  ACRX_DECLARE_MEMBERS(AcDbSpline);
  AcDbSpline() = default;
  int degree() const { return degree_; }
  int numControlPoints() const { return int(control_.size()); }
  Acad::ErrorStatus getControlPointAt(int index, AcGePoint3d &p) const;
  Acad::ErrorStatus setControlPointAt(int index, const AcGePoint3d &p);
  int numFitPoints() const { return int(fit_.size()); }
  Acad::ErrorStatus getFitPointAt(int index, AcGePoint3d &p) const;
  bool isRational() const { return !weights_.empty(); }
  bool isPeriodic() const override { return (flags_ & 2) != 0; }
  double weightAt(int index) const;
  const std::vector<double> &knots() const { return knots_; }
  // Sets the whole curve; knots must number control points + degree + 1,
  // weights none or one per control point (all above 0).
  Acad::ErrorStatus setNurbsData(int degree, bool rational, bool closed, bool periodic,
                                 const std::vector<AcGePoint3d> &controlPoints, const std::vector<double> &knots,
                                 const std::vector<double> &weights);
  Acad::ErrorStatus getGeomExtents(AcDbExtents &extents) const override;
  Acad::ErrorStatus transformBy(const AcGeMatrix3d &xform) override;
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 protected:
  void buildPath(vantry::host::CurvePath &path) const override;

 private:
  AcGePoint3d evaluate(double u) const;
  int flags_ = 8, degree_ = 3;
  std::vector<double> knots_, weights_;
  std::vector<AcGePoint3d> control_, fit_;
  double knotTol_ = 1e-10, controlTol_ = 1e-10, fitTol_ = 1e-10;
  bool hasStartTangent_ = false, hasEndTangent_ = false;
  AcGeVector3d startTangent_, endTangent_, normal_;
  bool hasNormal_ = false;
};

// Construction lines (infinite both ways) and rays (from the base point
// along the direction). Their extents are empty.
class AcDbXline : public AcDbEntity {
 public:
  ACRX_DECLARE_MEMBERS(AcDbXline);
  AcDbXline() = default;
  AcGePoint3d basePoint() const { return base_; }
  Acad::ErrorStatus setBasePoint(const AcGePoint3d &p);
  AcGeVector3d unitDir() const { return dir_; }
  Acad::ErrorStatus setUnitDir(const AcGeVector3d &d);  // not zero; kept as a unit vector
  Acad::ErrorStatus transformBy(const AcGeMatrix3d &xform) override;
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 protected:
  const wchar_t *marker_ = L"AcDbXline";

 private:
  AcGePoint3d base_;
  AcGeVector3d dir_ = AcGeVector3d::kXAxis;
};

class AcDbRay : public AcDbXline {
 public:
  ACRX_DECLARE_MEMBERS(AcDbRay);
  AcDbRay() { marker_ = L"AcDbRay"; }
};

// An entity whose kind's part is kept as the groups it was given, in their
// order, and read for what the database answers about it: hatches and
// dimensions, whose parts (boundary edges, pattern lines, the many kinds
// of dimension) are written back exactly as read.
class AcDbGroupedEntity : public AcDbEntity {
 public:
  ACRX_DECLARE_MEMBERS(AcDbGroupedEntity);
  const std::vector<AcDbDxfFiler::Item> &kindGroups() const { return groups_; }
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 protected:
  explicit AcDbGroupedEntity(const wchar_t *marker) : marker_(marker) {}
  // The first group of a code in the kind's part, or null.
  const AcDbDxfFiler::Item *group(int code) const;
  AcDbDxfFiler::Item *group(int code);
  // Checks the kind's groups after a read; eInvalidInput refuses them.
  virtual Acad::ErrorStatus checkGroups() const { return Acad::eOk; }
  std::vector<AcDbDxfFiler::Item> groups_;

 private:
  const wchar_t *marker_;
};

// A hatch: pattern name (2), solid fill (70), boundary loops (91 ...) in
// its plane (elevation and normal).
class AcDbHatch : public AcDbGroupedEntity {
 public:
  ACRX_DECLARE_MEMBERS(AcDbHatch);
  AcDbHatch();
  const ACHAR *patternName() const;
  bool isSolidFill() const;
  int numLoops() const;
  AcGeVector3d normal() const;
  double elevation() const;
  // The loops as polygons in world coordinates (arcs and curves in small
  // steps), for extents and pictures.
  std::vector<std::vector<AcGePoint3d>> loopPolygons() const;
  Acad::ErrorStatus getGeomExtents(AcDbExtents &extents) const override;

 protected:
  Acad::ErrorStatus checkGroups() const override;
};

// A dimension: its block of lines, arrows and text (2), definition point
// (10), text position (11), kind (70 & 7), style (3) and text override (1);
// the kind's own points follow in its groups.
class AcDbDimension : public AcDbGroupedEntity {
 public:
  ACRX_DECLARE_MEMBERS(AcDbDimension);
  AcDbDimension();
  // The block the dimension draws (null when the drawing lacks it).
  AcDbObjectId dimBlockId() const;
  std::wstring dimBlockName() const;
  AcGePoint3d dimLinePoint() const;
  AcGePoint3d textPosition() const;
  int dimensionType() const;
  std::wstring dimensionText() const;
  std::wstring dimensionStyleName() const;
  Acad::ErrorStatus getGeomExtents(AcDbExtents &extents) const override;

 protected:
  Acad::ErrorStatus checkGroups() const override;
};
