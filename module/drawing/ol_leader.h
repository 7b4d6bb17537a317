// OLLeader: the product's own leader entity.
//
// A leader is a polyline of at least two vertices, the first the arrow's
// tip, with a closed arrowhead there and, optionally, a block placed at the
// last vertex moved by an offset (a tag, a label, a symbol). Moving the
// vertices carries the block along, which a host leader with a separate
// block reference does not do.
//
// The module registers the class with the host's class system at start-up
// (rxInit) and removes it at shut-down, with its stand-in for drawing files:
// other programs see the leader as lines, a 3D face for the arrowhead and an
// INSERT of its block; this module reads the same leader back (drawing
// files keep its vertices, block and offset exactly).
#pragma once

#include <string>
#include <vector>

#include "host/arx.h"

class OLLeader : public AcDbEntity {
 public:
  static constexpr const ACHAR *kClassName = L"OLLeader";
  static AcRxClass *desc() { return acrxFindClass(kClassName); }
  static OLLeader *cast(const AcRxObject *obj) {
    AcRxClass *cls = desc();
    return cls && obj && obj->isKindOf(cls) ? static_cast<OLLeader *>(const_cast<AcRxObject *>(obj)) : nullptr;
  }
  // Registers the class and its drawing-file stand-in; rxUninit undoes both.
  static void rxInit();
  static void rxUninit();

  OLLeader() = default;
  AcRxClass *isA() const override;

  const std::vector<AcGePoint3d> &vertices() const { return vertices_; }
  // At least two points, no two in a row the same (eInvalidInput).
  Acad::ErrorStatus setVertices(const std::vector<AcGePoint3d> &points);
  // The name of the block placed at the last vertex; empty for none. The
  // block is looked up by name in the leader's drawing when it is drawn, so
  // a drawing file read back (or another drawing the leader is copied to)
  // finds its own block of that name.
  const std::wstring &blockName() const { return block_; }
  Acad::ErrorStatus setBlockName(const std::wstring &name);
  AcGeVector3d offset() const { return offset_; }
  Acad::ErrorStatus setOffset(const AcGeVector3d &offset);
  // The arrowhead's length (its width is a third of it).
  double arrowSize() const { return arrow_; }
  Acad::ErrorStatus setArrowSize(double size);

  Acad::ErrorStatus getGeomExtents(AcDbExtents &extents) const override;
  // The lines, the arrowhead (a 3D face) and the block's reference, with the
  // leader's layer, colour, linetype and lineweight.
  Acad::ErrorStatus explode(AcDbVoidPtrArray &entities) const override;
  Acad::ErrorStatus transformBy(const AcGeMatrix3d &xform) override;
  AcRxObject *clone() const override;
  Acad::ErrorStatus copyFrom(const AcRxObject *other) override;
  // Entity data: the common part, then 100 OLLeader, 40 arrow size, 10 for
  // each vertex, 2 the block's name (when there is one), 11 the offset.
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 private:
  // The pieces explode and the stand-in draw, in world coordinates, with no
  // properties set.
  void pieces(AcDbVoidPtrArray &out) const;
  std::vector<AcGePoint3d> vertices_;
  std::wstring block_;
  AcGeVector3d offset_;
  double arrow_ = 0.18;
};
