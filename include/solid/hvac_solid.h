// ol_hvacSolid: the duct solid entity of the sibling module ol_ol-solid2025x64.
//
// The entity a duct fitting becomes in the drawing: a straight piece, a transition, an elbow, a
// takeoff, a wye, a skin or a hanger, each one or more solid bodies. Its operations are the fitting
// operations the product module calls (one body added, cut or joined per call); the bodies are
// modelled by vantry::solid::SolidBodies, which this header only names, so that a caller sees the
// host's API and nothing of the modelling library.
//
// Who calls it. The product module (ducts/) includes this header and calls the operations through
// the virtual table only: it creates a solid through the class's registered pseudo-constructor
// (ol_hvacSolid::create()), opens existing ones by id with the typed open, and never links a
// symbol of the sibling. So the product module loads and runs with the sibling absent; create()
// then answers null and the fitting functions say so.
//
// Points and frames are in world coordinates. A frame is three consecutive unit vectors x, y, z:
// x along the duct in the direction of flow, y across it, z = x cross y. A section lies in the
// plane of its frame's y and z: a rectangle width (along y) by depth (along z), or, when its
// rectangular flag is false, a circle of diameter width. The integer option of the add operations
// is kept with the body as its kind tag. Every operation answers true when it did its work and
// false otherwise (lastError() says why), and refuses (false) on a solid of a database that is not
// open for write.
#pragma once

#include "host/arx.h"

namespace vantry::solid {
class SolidBodies;
}

// The host's modelling point type, as the elbow and wye operations hand their construction points.
namespace AModeler {
struct Point3d {
  double x = 0, y = 0, z = 0;
};
}  // namespace AModeler

class ol_hvacSolid : public AcDbEntity {
 public:
  static constexpr const ACHAR *kClassName = L"ol_hvacSolid";
  // The registered descriptor; null while the sibling module is not loaded.
  static AcRxClass *desc() { return acrxFindClass(kClassName); }
  static ol_hvacSolid *cast(const AcRxObject *obj) {
    return obj && obj->isKindOf(desc()) ? static_cast<ol_hvacSolid *>(const_cast<AcRxObject *>(obj))
                                        : nullptr;
  }
  // A new, empty solid that the caller owns until it joins a database; null when the class is not
  // registered (the sibling module is not loaded).
  static ol_hvacSolid *create() {
    AcRxClass *cls = desc();
    return cls ? cast(cls->create()) : nullptr;
  }
  // Registers the class (with its pseudo-constructor) with the host; called by the sibling's
  // start-up.
  static void rxInit();

  ol_hvacSolid();
  ol_hvacSolid(const ol_hvacSolid &other);
  ~ol_hvacSolid() override;
  AcRxClass *isA() const override;

  // --- Fitting operations ---

  // A ruled loft from the start section to the end section.
  virtual bool addTransition(const AcGePoint3d &start, bool startRect, double startWidth, double startDepth,
                             const AcGePoint3d &end, bool endRect, double endWidth, double endDepth,
                             const AcGeVector3d *startFrame, const AcGeVector3d *endFrame, int option);
  // The same loft cut away from every body it meets.
  virtual bool subtractTransition(const AcGePoint3d &start, bool startRect, double startWidth,
                                  double startDepth, const AcGePoint3d &end, bool endRect, double endWidth,
                                  double endDepth, const AcGeVector3d *startFrame,
                                  const AcGeVector3d *endFrame, int option);
  // The closed polygon through the points thickened along its right-hand normal.
  virtual bool addSkin(const AcArray<AcGePoint3d> &points, double thickness);
  // Checks one pairing of the legs' sizes for a mitred elbow; adds nothing. On success gives the
  // heel and throat on the mitre and the legs' corner.
  virtual bool addSquareElbowPrep(const AcGePoint3d &start, double widthA, double depthA,
                                  const AcGePoint3d &end, double widthB, double depthB,
                                  const AcGeVector3d *frameA, const AcGeVector3d *frameB, bool rect,
                                  AModeler::Point3d &heel, AModeler::Point3d &throat, AcGePoint3d &corner,
                                  bool sameThroat, double tolerance);
  // The mitred elbow the prep accepted.
  virtual bool addSquareElbow(const AcGePoint3d &start, double widthA, double depthA, const AcGePoint3d &end,
                              double widthB, double depthB, const AcGeVector3d *frameA,
                              const AcGeVector3d *frameB, bool rect, AModeler::Point3d heel,
                              AModeler::Point3d throat, const AcGePoint3d &corner, int option);
  // The section swept round an arc tangent to both legs (radius = ratio x the size in the bend
  // plane, or the throat radius with throatRatio), with straight legs to the points when legs.
  virtual bool addRadiusElbow(const AcGePoint3d &start, double width, double depth, double extraA,
                              double extraB, const AcGePoint3d &end, double endWidth, double endDepth,
                              const AcGeVector3d *frameA, const AcGeVector3d *frameB, bool rect,
                              double radiusRatio, bool throatRatio, int option, bool legs);
  // A flat cable-tray elbow: square heel, throat rounded by throatRadius.
  virtual bool addCableTraySquareRadiusElbow(const AcGePoint3d &start, double width, double depth,
                                             const AcGePoint3d &end, const AcGeVector3d *frameA,
                                             const AcGeVector3d *frameB, double throatRadius, int option);
  // Finds a wye's junction: each port's leg start (the junction's foot on its centre line) and
  // collar (where a branch runs at its own size). Adds nothing.
  virtual bool addWyePrep(const AcGePoint3d &p1, double width1, double depth1, const AcGePoint3d &p2,
                          double width2, double depth2, const AcGePoint3d &p3, double width3, double depth3,
                          const AcGeVector3d *frame1, const AcGeVector3d *frame2, const AcGeVector3d *frame3,
                          bool rect, AModeler::Point3d &legStart1, AModeler::Point3d &legStart2,
                          AModeler::Point3d &legStart3, AcGePoint3d &collar1, AcGePoint3d &collar2,
                          AcGePoint3d &collar3, bool shortLegs, double tolerance);
  // The wye as one body: trunk, two tapering branches and the rounded joint at the junction.
  virtual bool addWye(const AcGePoint3d &p1, double width1, double depth1, const AcGePoint3d &p2,
                      double width2, double depth2, const AcGePoint3d &p3, double width3, double depth3,
                      const AcGePoint3d &junction, const AcGeVector3d *frame1, const AcGeVector3d *frame2,
                      const AcGeVector3d *frame3, bool rect, AModeler::Point3d legStart1,
                      AModeler::Point3d legStart2, AModeler::Point3d legStart3, const AcGePoint3d &collar1,
                      const AcGePoint3d &collar2, const AcGePoint3d &collar3, int option);
  // Cuts the last body added by the plane through a, b, c, keeping the side of keep.
  virtual bool sliceLast(const AcGePoint3d &a, const AcGePoint3d &b, const AcGePoint3d &c,
                         const AcGePoint3d &keep);
  virtual void clearBodies();
  // Fuses every body of both solids into one body here; other is left as it was.
  virtual bool doUnion(const ol_hvacSolid *other);

  // --- Queries ---

  virtual int bodyCount() const;
  // Sum of the bodies' volumes.
  virtual double volume() const;
  // True when the solid has bodies and each passes the modeller's full check (a closed, valid solid
  // of positive volume).
  virtual bool isValid() const;
  // All bodies as an AP214 STEP file; false when there is none or the file cannot be written.
  virtual bool writeStep(const char *path) const;
  // Why the last failed operation failed (empty after a success); valid until the next operation.
  virtual const char *lastError() const;
  // The bodies, for the sibling module's own use (STEP export, drawing files); the product module
  // never calls it.
  const vantry::solid::SolidBodies &bodies() const { return *bodies_; }
  // Replaces the bodies by those of their filing text (the drawing-file reader's; not virtual, the
  // product module never calls it). False, with lastError() set and the bodies kept, when the text is
  // damaged.
  bool restore(const std::string &text);
  // Keeps a filing text that restore() refused (a damaged drawing): the solid then has no body, draws
  // and explodes to nothing, refuses every fitting operation, and files the text back as it came,
  // so saving the drawing loses nothing of it. `why` is the reason, kept as lastError().
  void keepUnreadable(const std::string &text, const std::string &why);
  // The kept text of a solid read damaged; empty for a sound solid.
  const std::string &unreadableText() const { return unreadable_; }

  // --- The host's entity protocol ---

  Acad::ErrorStatus getGeomExtents(AcDbExtents &extents) const override;
  // Into new AcDbFace entities the caller owns: a flat face of at most four corners as one face,
  // any other face as its triangles.
  Acad::ErrorStatus explode(AcDbVoidPtrArray &entities) const override;
  Acad::ErrorStatus transformBy(const AcGeMatrix3d &xform) override;
  Acad::ErrorStatus getTransformedCopy(const AcGeMatrix3d &xform, AcDbEntity *&ent) const override;
  AcRxObject *clone() const override;
  Acad::ErrorStatus copyFrom(const AcRxObject *other) override;

 private:
  // Whether the bodies may change now; when not, lastError() says so.
  bool writable() const;
  vantry::solid::SolidBodies *bodies_;  // owned
  mutable const char *refusal_ = nullptr;
  std::string unreadable_, unreadableWhy_;
};
