// The common properties of every entity of the drawing database, and its
// extents. Part of host/acdb.h; include that.
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
