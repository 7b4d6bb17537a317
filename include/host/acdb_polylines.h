// Polylines: the light polyline with bulges and widths, and the old-style
// 2D (with vertices and fitting) and 3D polylines whose vertices are entities
// of their own. Part of host/acdb.h; include that.
#pragma once

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
  template <class>
  friend class vantry::host::PolylineVertices;
  friend struct vantry::host::DbAccess;
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

namespace vantry::host {

// The vertices of an old-style polyline and its end marker, kept the same
// way for 2D and 3D polylines. The polyline owns them until it joins a
// database; from then on the database owns them and the polyline keeps its
// pointers.
template <class Vertex>
class PolylineVertices {
 public:
  PolylineVertices() = default;
  // Copies of the other's vertices, in no database.
  PolylineVertices(const PolylineVertices &other);
  PolylineVertices &operator=(const PolylineVertices &) = delete;
  ~PolylineVertices();

  // Takes over a new vertex; when the polyline is in a database the vertex
  // joins it at once, looking like the polyline (*id then names it). The
  // caller has checked that the polyline is open for write.
  Acad::ErrorStatus append(AcDbEntity &polyline, Vertex *vertex, AcDbObjectId *id);
  // The polyline joined a database: its vertices and a new end marker join
  // too, looking like it.
  void join(AcDbEntity &polyline);
  void subentities(std::vector<AcDbEntity *> &out) const;
  AcDbObjectId sequenceEndId() const;
  // A new iterator over the vertices; the caller deletes it.
  AcDbObjectIterator *iterator() const;

  std::vector<Vertex *> list;
  AcDbSequenceEnd *seqend = nullptr;

 private:
  bool resident_ = false;
};

}  // namespace vantry::host

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
  const std::vector<AcDb2dVertex *> &vertices() const { return verts_.list; }
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
  Acad::ErrorStatus addVertex(AcDb2dVertex *v, AcDbObjectId *id);
  void dropVertices(bool keep(const AcDb2dVertex &));
  vantry::host::PolylineVertices<AcDb2dVertex> verts_;
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
  const std::vector<AcDb3dPolylineVertex *> &vertices() const { return verts_.list; }
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
  vantry::host::PolylineVertices<AcDb3dPolylineVertex> verts_;
  bool closed_ = false;
};
