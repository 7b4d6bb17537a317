// Curves with their measurements: the curve base class, lines, circles and
// arcs. Part of host/acdb.h; include that.
#pragma once

// A curve with a parameter running from getStartParam to getEndParam. Every
// query is exact: lines and circular arcs are measured in closed form.
// Queries outside the curve (a parameter or distance beyond its ends, a
// point not on it) fail with eInvalidInput.
class AcDbCurve : public AcDbEntity {
 public:
  ACRX_DECLARE_MEMBERS(AcDbCurve);
  virtual bool isClosed() const;
  virtual bool isPeriodic() const { return false; }
  virtual Acad::ErrorStatus getStartParam(double &param) const;
  virtual Acad::ErrorStatus getEndParam(double &param) const;
  virtual Acad::ErrorStatus getStartPoint(AcGePoint3d &p) const;
  virtual Acad::ErrorStatus getEndPoint(AcGePoint3d &p) const;
  virtual Acad::ErrorStatus getPointAtParam(double param, AcGePoint3d &p) const;
  virtual Acad::ErrorStatus getParamAtPoint(const AcGePoint3d &p, double &param) const;
  virtual Acad::ErrorStatus getDistAtParam(double param, double &dist) const;
  virtual Acad::ErrorStatus getParamAtDist(double dist, double &param) const;
  virtual Acad::ErrorStatus getDistAtPoint(const AcGePoint3d &p, double &dist) const;
  virtual Acad::ErrorStatus getPointAtDist(double dist, AcGePoint3d &p) const;
  virtual Acad::ErrorStatus getFirstDeriv(double param, AcGeVector3d &deriv) const;
  // The point of the curve nearest to givenPoint; with extend, lines and end
  // segments run on past the ends and arcs become whole circles.
  virtual Acad::ErrorStatus getClosestPointTo(const AcGePoint3d &givenPoint, AcGePoint3d &pointOnCurve,
                                              bool extend = false) const;
  // The same as seen along direction: the curve point whose projection along
  // direction lies nearest to givenPoint's projection.
  virtual Acad::ErrorStatus getClosestPointTo(const AcGePoint3d &givenPoint, const AcGeVector3d &direction,
                                              AcGePoint3d &pointOnCurve, bool extend = false) const;
  // The area enclosed by the curve and the chord from end to start, for a
  // planar curve.
  virtual Acad::ErrorStatus getArea(double &area) const;

 protected:
  friend class vantry::host::CurvePath;
  // Describes the curve as lines and circular arcs with their parameters.
  virtual void buildPath(vantry::host::CurvePath &path) const = 0;
};

class AcDbLine : public AcDbCurve {
 public:
  ACRX_DECLARE_MEMBERS(AcDbLine);
  AcDbLine() = default;
  AcDbLine(const AcGePoint3d &start, const AcGePoint3d &end) : start_(start), end_(end) {}
  AcGePoint3d startPoint() const { return start_; }
  AcGePoint3d endPoint() const { return end_; }
  Acad::ErrorStatus setStartPoint(const AcGePoint3d &p);
  Acad::ErrorStatus setEndPoint(const AcGePoint3d &p);
  double thickness() const { return thickness_; }
  Acad::ErrorStatus setThickness(double t);
  AcGeVector3d normal() const { return normal_; }
  Acad::ErrorStatus setNormal(const AcGeVector3d &n);
  Acad::ErrorStatus getGeomExtents(AcDbExtents &extents) const override;
  Acad::ErrorStatus transformBy(const AcGeMatrix3d &xform) override;
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 protected:
  void buildPath(vantry::host::CurvePath &path) const override;

 private:
  AcGePoint3d start_, end_;
  double thickness_ = 0;
  AcGeVector3d normal_ = AcGeVector3d::kZAxis;
};

class AcDbCircle : public AcDbCurve {
 public:
  ACRX_DECLARE_MEMBERS(AcDbCircle);
  AcDbCircle() = default;
  AcDbCircle(const AcGePoint3d &center, const AcGeVector3d &normal, double radius);
  AcGePoint3d center() const { return center_; }
  Acad::ErrorStatus setCenter(const AcGePoint3d &c);
  double radius() const { return radius_; }
  Acad::ErrorStatus setRadius(double r);  // r > 0
  AcGeVector3d normal() const { return normal_; }
  Acad::ErrorStatus setNormal(const AcGeVector3d &n);
  double thickness() const { return thickness_; }
  Acad::ErrorStatus setThickness(double t);
  bool isClosed() const override { return true; }
  bool isPeriodic() const override { return true; }
  Acad::ErrorStatus getGeomExtents(AcDbExtents &extents) const override;
  Acad::ErrorStatus transformBy(const AcGeMatrix3d &xform) override;
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 protected:
  void buildPath(vantry::host::CurvePath &path) const override;

 private:
  AcGePoint3d center_;
  AcGeVector3d normal_ = AcGeVector3d::kZAxis;
  double radius_ = 1.0, thickness_ = 0;
};

// An arc counter-clockwise about its normal from startAngle to endAngle,
// angles measured from the X axis of its object coordinate system. Its
// parameter is the angle: from startAngle to endAngle (plus 2pi when the end
// angle is the smaller).
class AcDbArc : public AcDbCurve {
 public:
  ACRX_DECLARE_MEMBERS(AcDbArc);
  AcDbArc() = default;
  AcDbArc(const AcGePoint3d &center, double radius, double startAngle, double endAngle);
  AcDbArc(const AcGePoint3d &center, const AcGeVector3d &normal, double radius, double startAngle,
          double endAngle);
  AcGePoint3d center() const { return center_; }
  Acad::ErrorStatus setCenter(const AcGePoint3d &c);
  double radius() const { return radius_; }
  Acad::ErrorStatus setRadius(double r);
  double startAngle() const { return start_; }
  Acad::ErrorStatus setStartAngle(double a);
  double endAngle() const { return end_; }
  Acad::ErrorStatus setEndAngle(double a);
  double totalAngle() const;
  AcGeVector3d normal() const { return normal_; }
  Acad::ErrorStatus setNormal(const AcGeVector3d &n);
  double thickness() const { return thickness_; }
  Acad::ErrorStatus setThickness(double t);
  Acad::ErrorStatus getGeomExtents(AcDbExtents &extents) const override;
  Acad::ErrorStatus transformBy(const AcGeMatrix3d &xform) override;
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 protected:
  void buildPath(vantry::host::CurvePath &path) const override;

 private:
  AcGePoint3d center_;
  AcGeVector3d normal_ = AcGeVector3d::kZAxis;
  double radius_ = 1.0, start_ = 0, end_ = M_PI, thickness_ = 0;
};
