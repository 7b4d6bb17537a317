// Entities of the drawing database: the common entity properties, curves
// with their measurements, polylines (light, 2D with vertices and fitting,
// 3D), MText, leaders, 3D faces and block references. Part of host/acdb.h;
// include that.
//
// Coordinates: every point an entity answers is in world coordinates, except
// where a name says otherwise (AcDbPolyline::getPointAt(i, AcGePoint2d&) and
// AcDb2dVertex::position() are in the entity's object coordinate system, the
// plane of its normal with the arbitrary axis algorithm). Angles are radians.
#pragma once

class AcDbExtents {
 public:
  AcDbExtents();  // empty: min above max
  AcDbExtents(const AcGePoint3d &min, const AcGePoint3d &max) : min_(min), max_(max) {}
  AcGePoint3d minPoint() const { return min_; }
  AcGePoint3d maxPoint() const { return max_; }
  Acad::ErrorStatus set(const AcGePoint3d &min, const AcGePoint3d &max);
  void addPoint(const AcGePoint3d &p);
  void addExt(const AcDbExtents &e);
  void expandBy(const AcGeVector3d &v);
  void transformBy(const AcGeMatrix3d &m);
  bool isEmpty() const { return min_.x > max_.x; }

 private:
  AcGePoint3d min_, max_;
};

class AcDbEntity : public AcDbObject {
 public:
  ACRX_DECLARE_MEMBERS(AcDbEntity);
  AcDbObjectId blockId() const { return ownerId(); }

  AcCmColor color() const { return color_; }
  // With doSubents, vertices of polylines take the colour too.
  virtual Acad::ErrorStatus setColor(const AcCmColor &color, bool doSubents = true);
  Adesk::UInt16 colorIndex() const { return color_.colorIndex(); }
  Acad::ErrorStatus setColorIndex(Adesk::UInt16 index, bool doSubents = true);

  // The layer's name (the caller frees it; "0" for an entity without one).
  ACHAR *layer() const;
  AcDbObjectId layerId() const { return layer_; }
  // A resident entity may only name a layer of its database (eKeyNotFound).
  Acad::ErrorStatus setLayer(const ACHAR *name, bool doSubents = true);
  Acad::ErrorStatus setLayer(AcDbObjectId layer, bool doSubents = true);
  ACHAR *linetype() const;  // the caller frees it; "ByLayer" when unset
  AcDbObjectId linetypeId() const { return linetype_; }
  Acad::ErrorStatus setLinetype(const ACHAR *name, bool doSubents = true);
  Acad::ErrorStatus setLinetype(AcDbObjectId linetype, bool doSubents = true);
  double linetypeScale() const { return ltscale_; }
  Acad::ErrorStatus setLinetypeScale(double s, bool doSubents = true);
  AcDb::Visibility visibility() const { return visibility_; }
  Acad::ErrorStatus setVisibility(AcDb::Visibility v, bool doSubents = true);
  AcDb::LineWeight lineWeight() const { return lineWeight_; }
  Acad::ErrorStatus setLineWeight(AcDb::LineWeight w, bool doSubents = true);

  // Layer, colour and linetype from the database's current settings (the
  // entity's own database, else the working database).
  void setDatabaseDefaults();
  void setDatabaseDefaults(AcDbDatabase *db);

  // The smallest world box around the entity; eInvalidExtents when it has
  // none (an empty polyline, a reference to an empty block).
  virtual Acad::ErrorStatus getGeomExtents(AcDbExtents &extents) const;
  // New entities, not in any database, that the caller owns; eNotApplicable
  // for entities that do not break up.
  virtual Acad::ErrorStatus explode(AcDbVoidPtrArray &entities) const;
  virtual Acad::ErrorStatus transformBy(const AcGeMatrix3d &xform);
  // A transformed copy the caller owns.
  virtual Acad::ErrorStatus getTransformedCopy(const AcGeMatrix3d &xform, AcDbEntity *&ent) const;

  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 protected:
  // Whether a resident entity may be changed now: eNotOpenForWrite if not.
  Acad::ErrorStatus checkWrite() const;
  // Sub-entities that share colour, layer and linetype (polyline vertices).
  virtual void subentities(std::vector<AcDbEntity *> &out) const { (void)out; }

 private:
  AcCmColor color_;
  AcDbObjectId layer_, linetype_;
  double ltscale_ = 1.0;
  AcDb::Visibility visibility_ = AcDb::kVisible;
  AcDb::LineWeight lineWeight_ = AcDb::kLnWtByLayer;
};

// --- Curves -------------------------------------------------------------------------------

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

// --- Light polyline -------------------------------------------------------------------------

// Vertices in its plane (object coordinates at an elevation along the
// normal), each with a bulge: the tangent of a quarter of the included angle
// of the arc to the next vertex, positive counter-clockwise, 0 for a straight
// segment. The parameter is the vertex index; segment i runs from i to i+1.
class AcDbPolyline : public AcDbCurve {
 public:
  ACRX_DECLARE_MEMBERS(AcDbPolyline);
  enum SegType { kLine, kArc, kCoincident, kPoint, kEmpty };
  explicit AcDbPolyline(unsigned int reserve = 0);
  unsigned int numVerts() const { return unsigned(verts_.size()); }
  // Inserts before index (index == numVerts appends); widths < 0 take 0.
  Acad::ErrorStatus addVertexAt(unsigned int index, const AcGePoint2d &pt, double bulge = 0.,
                                double startWidth = -1., double endWidth = -1., Adesk::Int32 vertexId = 0);
  Acad::ErrorStatus removeVertexAt(unsigned int index);
  Acad::ErrorStatus getPointAt(unsigned int index, AcGePoint2d &pt) const;
  Acad::ErrorStatus getPointAt(unsigned int index, AcGePoint3d &pt) const;  // world
  Acad::ErrorStatus setPointAt(unsigned int index, const AcGePoint2d &pt);
  Acad::ErrorStatus getBulgeAt(unsigned int index, double &bulge) const;
  Acad::ErrorStatus setBulgeAt(unsigned int index, double bulge);
  Acad::ErrorStatus getWidthsAt(unsigned int index, double &startWidth, double &endWidth) const;
  Acad::ErrorStatus setWidthsAt(unsigned int index, double startWidth, double endWidth);
  SegType segType(unsigned int index) const;
  bool hasBulges() const;
  bool isClosed() const override { return closed_; }
  void setClosed(bool closed) { closed_ = closed; }
  bool hasPlinegen() const { return plinegen_; }
  void setPlinegen(bool v) { plinegen_ = v; }
  double elevation() const { return elevation_; }
  void setElevation(double e) { elevation_ = e; }
  AcGeVector3d normal() const { return normal_; }
  Acad::ErrorStatus setNormal(const AcGeVector3d &n);
  double thickness() const { return thickness_; }
  Acad::ErrorStatus setThickness(double t);
  Acad::ErrorStatus getConstantWidth(double &width) const;
  Acad::ErrorStatus setConstantWidth(double width);
  void reset(bool reuse, unsigned int numVerts);
  Acad::ErrorStatus getGeomExtents(AcDbExtents &extents) const override;
  Acad::ErrorStatus explode(AcDbVoidPtrArray &entities) const override;
  Acad::ErrorStatus transformBy(const AcGeMatrix3d &xform) override;
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 protected:
  void buildPath(vantry::host::CurvePath &path) const override;

 private:
  struct Vertex {
    AcGePoint2d pt;
    double bulge = 0, startWidth = 0, endWidth = 0;
    Adesk::Int32 id = 0;
  };
  std::vector<Vertex> verts_;
  bool closed_ = false, plinegen_ = false;
  double elevation_ = 0, thickness_ = 0;
  AcGeVector3d normal_ = AcGeVector3d::kZAxis;
};

// --- Old-style polylines ---------------------------------------------------------------------

// Walks the vertices of an old-style polyline. The caller deletes it.
class AcDbObjectIterator {
 public:
  bool done() const { return pos_ >= ids_.size(); }
  void step(bool backwards = false, bool skipErasedObjects = true);
  void start(bool atEnd = false) { pos_ = atEnd && !ids_.empty() ? ids_.size() - 1 : 0; }
  AcDbObjectId objectId() const { return done() ? AcDbObjectId::kNull : ids_[pos_]; }
  // The vertex itself, for an iterator over a polyline not in a database.
  AcDbEntity *entity() const { return done() ? nullptr : ents_[pos_]; }

 private:
  friend class AcDb2dPolyline;
  friend class AcDb3dPolyline;
  std::vector<AcDbObjectId> ids_;
  std::vector<AcDbEntity *> ents_;
  size_t pos_ = 0;
};

class AcDbVertex : public AcDbEntity {
 public:
  ACRX_DECLARE_MEMBERS(AcDbVertex);
};

class AcDb2dVertex : public AcDbVertex {
 public:
  ACRX_DECLARE_MEMBERS(AcDb2dVertex);
  AcDb2dVertex() = default;
  explicit AcDb2dVertex(const AcGePoint3d &position, double bulge = 0, double startWidth = 0,
                        double endWidth = 0, double tangent = 0);
  AcDb::Vertex2dType vertexType() const { return type_; }
  AcGePoint3d position() const { return position_; }  // object coordinates
  Acad::ErrorStatus setPosition(const AcGePoint3d &p);
  double bulge() const { return bulge_; }
  Acad::ErrorStatus setBulge(double b);
  double startWidth() const { return startWidth_; }
  Acad::ErrorStatus setStartWidth(double w);
  double endWidth() const { return endWidth_; }
  Acad::ErrorStatus setEndWidth(double w);
  bool isTangentUsed() const { return tangentUsed_; }
  Acad::ErrorStatus useTangent();
  Acad::ErrorStatus ignoreTangent();
  double tangent() const { return tangent_; }
  Acad::ErrorStatus setTangent(double t);
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 private:
  friend struct vantry::host::DbAccess;
  friend class AcDb2dPolyline;
  AcDb::Vertex2dType type_ = AcDb::k2dVertex;
  AcGePoint3d position_;
  double bulge_ = 0, startWidth_ = 0, endWidth_ = 0, tangent_ = 0;
  bool tangentUsed_ = false;
};

class AcDb3dPolylineVertex : public AcDbVertex {
 public:
  ACRX_DECLARE_MEMBERS(AcDb3dPolylineVertex);
  AcDb3dPolylineVertex() = default;
  explicit AcDb3dPolylineVertex(const AcGePoint3d &p) : position_(p) {}
  AcDb::Vertex3dType vertexType() const { return AcDb::k3dSimpleVertex; }
  AcGePoint3d position() const { return position_; }  // world
  Acad::ErrorStatus setPosition(const AcGePoint3d &p);
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 private:
  AcGePoint3d position_;
};

// The end marker of an old-style polyline's vertices.
class AcDbSequenceEnd : public AcDbEntity {
 public:
  ACRX_DECLARE_MEMBERS(AcDbSequenceEnd);
};

// An old-style 2D polyline. It owns its vertices (and its end marker), which
// join the database with it. Curve fitting adds a curve-fit vertex between
// each pair of vertices and sets bulges so that the arcs pass through every
// vertex with a continuous tangent; spline fitting keeps the vertices as a
// hidden control frame and adds spline-fit vertices along a B-spline
// (quadratic or cubic per the database's SPLINETYPE, SPLINESEGS per span);
// straighten takes the fitting away again. The curve (and its parameter,
// the index among the visible vertices) runs through the vertices that are
// not spline control vertices.
class AcDb2dPolyline : public AcDbCurve {
 public:
  ACRX_DECLARE_MEMBERS(AcDb2dPolyline);
  AcDb2dPolyline() = default;
  AcDb2dPolyline(AcDb::Poly2dType type, const AcGePoint3dArray &vertices, double elevation = 0,
                 bool closed = false, double defaultStartWidth = 0, double defaultEndWidth = 0,
                 const AcGeDoubleArray *bulges = nullptr);
  AcDb2dPolyline(const AcDb2dPolyline &other);
  ~AcDb2dPolyline() override;

  AcDb::Poly2dType polyType() const { return type_; }
  Acad::ErrorStatus setPolyType(AcDb::Poly2dType type);
  // The polyline must be open for write if resident; the vertex must be new.
  // A resident polyline's vertex joins the database (closed).
  Acad::ErrorStatus appendVertex(AcDb2dVertex *vertex);
  Acad::ErrorStatus appendVertex(AcDbObjectId &id, AcDb2dVertex *vertex);
  Acad::ErrorStatus openVertex(AcDb2dVertex *&vertex, AcDbObjectId id, AcDb::OpenMode mode,
                               bool openErased = false) const;
  // The caller deletes the iterator.
  AcDbObjectIterator *vertexIterator() const;
  // The vertices not erased, control vertices included (the polyline's own).
  const std::vector<AcDb2dVertex *> &vertices() const { return verts_; }
  // A vertex's world position.
  AcGePoint3d vertexPosition(const AcDb2dVertex &vertex) const;

  bool isClosed() const override { return closed_; }
  Acad::ErrorStatus makeClosed();
  Acad::ErrorStatus makeOpen();
  double elevation() const { return elevation_; }
  Acad::ErrorStatus setElevation(double e);
  AcGeVector3d normal() const { return normal_; }
  Acad::ErrorStatus setNormal(const AcGeVector3d &n);
  double defaultStartWidth() const { return defStart_; }
  double defaultEndWidth() const { return defEnd_; }
  Acad::ErrorStatus setDefaultStartWidth(double w);
  Acad::ErrorStatus setDefaultEndWidth(double w);
  double thickness() const { return thickness_; }
  Acad::ErrorStatus setThickness(double t);
  bool isLinetypeGenerationOn() const { return plinegen_; }
  Acad::ErrorStatus setLinetypeGenerationOn();
  Acad::ErrorStatus setLinetypeGenerationOff();

  Acad::ErrorStatus curveFit();
  Acad::ErrorStatus splineFit();
  Acad::ErrorStatus splineFit(AcDb::Poly2dType splineType, Adesk::Int16 splineSegs);
  Acad::ErrorStatus straighten();

  Acad::ErrorStatus getGeomExtents(AcDbExtents &extents) const override;
  Acad::ErrorStatus explode(AcDbVoidPtrArray &entities) const override;
  Acad::ErrorStatus transformBy(const AcGeMatrix3d &xform) override;
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;
  AcRxObject *clone() const override;
  AcDbObjectId sequenceEndId() const;

 protected:
  void buildPath(vantry::host::CurvePath &path) const override;
  void subJoinedDatabase() override;
  void subentities(std::vector<AcDbEntity *> &out) const override;

 private:
  friend struct vantry::host::DbAccess;
  Acad::ErrorStatus addVertex(AcDb2dVertex *v);
  void dropVertices(bool keep(const AcDb2dVertex &));
  std::vector<AcDb2dVertex *> verts_;
  AcDbSequenceEnd *seqend_ = nullptr;
  AcDb::Poly2dType type_ = AcDb::k2dSimplePoly;
  bool closed_ = false, plinegen_ = false;
  double elevation_ = 0, defStart_ = 0, defEnd_ = 0, thickness_ = 0;
  AcGeVector3d normal_ = AcGeVector3d::kZAxis;
};

// An old-style 3D polyline of simple vertices (spline fitting is not built:
// eNotImplementedYet). Its parameter is the vertex index.
class AcDb3dPolyline : public AcDbCurve {
 public:
  ACRX_DECLARE_MEMBERS(AcDb3dPolyline);
  AcDb3dPolyline() = default;
  AcDb3dPolyline(AcDb::Poly3dType type, const AcGePoint3dArray &vertices, bool closed = false);
  AcDb3dPolyline(const AcDb3dPolyline &other);
  ~AcDb3dPolyline() override;
  AcDb::Poly3dType polyType() const { return AcDb::k3dSimplePoly; }
  Acad::ErrorStatus appendVertex(AcDb3dPolylineVertex *vertex);
  Acad::ErrorStatus appendVertex(AcDbObjectId &id, AcDb3dPolylineVertex *vertex);
  AcDbObjectIterator *vertexIterator() const;
  const std::vector<AcDb3dPolylineVertex *> &vertices() const { return verts_; }
  bool isClosed() const override { return closed_; }
  Acad::ErrorStatus makeClosed();
  Acad::ErrorStatus makeOpen();
  Acad::ErrorStatus splineFit() { return Acad::eNotImplementedYet; }
  Acad::ErrorStatus straighten() { return Acad::eOk; }
  Acad::ErrorStatus getGeomExtents(AcDbExtents &extents) const override;
  Acad::ErrorStatus explode(AcDbVoidPtrArray &entities) const override;
  Acad::ErrorStatus transformBy(const AcGeMatrix3d &xform) override;
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;
  AcRxObject *clone() const override;
  AcDbObjectId sequenceEndId() const;

 protected:
  void buildPath(vantry::host::CurvePath &path) const override;
  void subJoinedDatabase() override;
  void subentities(std::vector<AcDbEntity *> &out) const override;

 private:
  friend struct vantry::host::DbAccess;
  std::vector<AcDb3dPolylineVertex *> verts_;
  AcDbSequenceEnd *seqend_ = nullptr;
  bool closed_ = false;
};

// --- Annotation -------------------------------------------------------------------------------

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
  double height_ = 2.5, width_ = 0, spacing_ = 1.0, fillScale_ = 1.5;
  AcGeVector3d normal_ = AcGeVector3d::kZAxis, direction_ = AcGeVector3d::kXAxis;
  AttachmentPoint attachment_ = kTopLeft;
  FlowDirection flow_ = kLtoR;
  AcDbObjectId style_;
  bool fill_ = false, useBgColor_ = false;
  AcCmColor fillColor_;
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

// --- Faces and references ----------------------------------------------------------------------

// A three- or four-sided face; edge i runs from vertex i to vertex i+1 (mod 4).
class AcDbFace : public AcDbEntity {
 public:
  ACRX_DECLARE_MEMBERS(AcDbFace);
  AcDbFace() = default;
  AcDbFace(const AcGePoint3d &p0, const AcGePoint3d &p1, const AcGePoint3d &p2, const AcGePoint3d &p3,
           bool e0vis = true, bool e1vis = true, bool e2vis = true, bool e3vis = true);
  AcDbFace(const AcGePoint3d &p0, const AcGePoint3d &p1, const AcGePoint3d &p2, bool e0vis = true,
           bool e1vis = true, bool e2vis = true, bool e3vis = true);
  Acad::ErrorStatus getVertexAt(Adesk::UInt16 index, AcGePoint3d &p) const;  // 0..3
  Acad::ErrorStatus setVertexAt(Adesk::UInt16 index, const AcGePoint3d &p);
  Acad::ErrorStatus isEdgeVisibleAt(Adesk::UInt16 index, bool &visible) const;
  Acad::ErrorStatus makeEdgeInvisibleAt(Adesk::UInt16 index);
  Acad::ErrorStatus makeEdgeVisibleAt(Adesk::UInt16 index);
  Acad::ErrorStatus getGeomExtents(AcDbExtents &extents) const override;
  Acad::ErrorStatus explode(AcDbVoidPtrArray &entities) const override;
  Acad::ErrorStatus transformBy(const AcGeMatrix3d &xform) override;
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 private:
  AcGePoint3d pts_[4];
  bool invisible_[4] = {false, false, false, false};
};

class AcDbBlockReference : public AcDbEntity {
 public:
  ACRX_DECLARE_MEMBERS(AcDbBlockReference);
  AcDbBlockReference() = default;
  AcDbBlockReference(const AcGePoint3d &position, AcDbObjectId blockTableRecord)
      : position_(position), block_(blockTableRecord) {}
  AcDbObjectId blockTableRecord() const { return block_; }
  Acad::ErrorStatus setBlockTableRecord(AcDbObjectId id);
  AcGePoint3d position() const { return position_; }
  Acad::ErrorStatus setPosition(const AcGePoint3d &p);
  AcGeScale3d scaleFactors() const { return scale_; }
  Acad::ErrorStatus setScaleFactors(const AcGeScale3d &s);  // no zero factor
  double rotation() const { return rotation_; }
  Acad::ErrorStatus setRotation(double a);
  AcGeVector3d normal() const { return normal_; }
  Acad::ErrorStatus setNormal(const AcGeVector3d &n);
  // Block coordinates to world: move the block's origin to the position,
  // scale, rotate about the normal, in the plane of the normal.
  AcGeMatrix3d blockTransform() const;
  Acad::ErrorStatus getGeomExtents(AcDbExtents &extents) const override;
  Acad::ErrorStatus explode(AcDbVoidPtrArray &entities) const override;
  Acad::ErrorStatus transformBy(const AcGeMatrix3d &xform) override;
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 private:
  AcGePoint3d position_;
  AcDbObjectId block_;
  AcGeScale3d scale_;
  double rotation_ = 0;
  AcGeVector3d normal_ = AcGeVector3d::kZAxis;
};
