// 3D faces and block references. Part of host/acdb.h; include that.
#pragma once

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

  // Attributes. The reference must be resident and open for write and the
  // attribute new; the attribute joins the database owned by the reference,
  // open for write (the caller closes it). A drawing file writes them after
  // the reference, with 66 set and an end marker.
  Acad::ErrorStatus appendAttribute(AcDbObjectId &id, AcDbAttribute *att);
  Acad::ErrorStatus appendAttribute(AcDbAttribute *att);
  // Walks the attributes that are not erased; the caller deletes it.
  AcDbObjectIterator *attributeIterator() const;
  std::vector<AcDbObjectId> attributeIds() const;

 private:
  AcGePoint3d position_;
  AcDbObjectId block_;
  AcGeScale3d scale_;
  double rotation_ = 0;
  AcGeVector3d normal_ = AcGeVector3d::kZAxis;
};

// A block reference drawn as a grid of copies (MINSERT): columns along the
// reference's rotated x axis, rows along its y axis, in its own plane. A
// drawing file writes it as an INSERT with the grid's groups.
class AcDbMInsertBlock : public AcDbBlockReference {
 public:
  ACRX_DECLARE_MEMBERS(AcDbMInsertBlock);
  AcDbMInsertBlock() = default;
  AcDbMInsertBlock(const AcGePoint3d &position, AcDbObjectId blockTableRecord, Adesk::UInt16 columns,
                   Adesk::UInt16 rows, double columnSpacing, double rowSpacing)
      : AcDbBlockReference(position, blockTableRecord),
        columns_(columns),
        rows_(rows),
        columnSpacing_(columnSpacing),
        rowSpacing_(rowSpacing) {}
  Adesk::UInt16 columns() const { return columns_; }
  Acad::ErrorStatus setColumns(Adesk::UInt16 n);  // at least 1
  Adesk::UInt16 rows() const { return rows_; }
  Acad::ErrorStatus setRows(Adesk::UInt16 n);  // at least 1
  double columnSpacing() const { return columnSpacing_; }
  Acad::ErrorStatus setColumnSpacing(double d);
  double rowSpacing() const { return rowSpacing_; }
  Acad::ErrorStatus setRowSpacing(double d);
  // Where the copy in column c, row r lies from the reference's own (0, 0),
  // in world coordinates: its block transform is this translation after
  // blockTransform().
  AcGeVector3d gridOffset(int c, int r) const;
  Acad::ErrorStatus getGeomExtents(AcDbExtents &extents) const override;
  Acad::ErrorStatus explode(AcDbVoidPtrArray &entities) const override;
  Acad::ErrorStatus transformBy(const AcGeMatrix3d &xform) override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 private:
  Adesk::UInt16 columns_ = 1, rows_ = 1;
  double columnSpacing_ = 0, rowSpacing_ = 0;
};
