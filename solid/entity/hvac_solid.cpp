// ol_hvacSolid over the modeller: conversions between the host's geometry types and the
// modeller's, the write check, and the host's entity protocol (extents, explode, transform, copy).
#include "solid/hvac_solid.h"

#include "face.h"
#include "solid_body.h"

using vantry::solid::Frame;
using vantry::solid::Pt;
using vantry::solid::SolidBodies;
using vantry::solid::Vec;

namespace {

Pt pt(const AcGePoint3d &p) {
  return {p.x, p.y, p.z};
}
Pt pt(const AModeler::Point3d &p) {
  return {p.x, p.y, p.z};
}
AcGePoint3d acPoint(const Pt &p) {
  return {p.x, p.y, p.z};
}
AModeler::Point3d amPoint(const Pt &p) {
  return {p.x, p.y, p.z};
}
Vec vec(const AcGeVector3d &v) {
  return {v.x, v.y, v.z};
}
// A frame is three consecutive vectors; a null frame reads as zero vectors, which the modeller
// refuses.
Frame frame(const AcGeVector3d *f) {
  if (!f) return {};
  return {vec(f[0]), vec(f[1]), vec(f[2])};
}

const char kNotOpenForWrite[] = "the solid is not open for write";

}  // namespace

ol_hvacSolid::ol_hvacSolid() : bodies_(new SolidBodies()) {}

ol_hvacSolid::ol_hvacSolid(const ol_hvacSolid &other)
    : AcDbEntity(other),
      bodies_(new SolidBodies(*other.bodies_)),
      unreadable_(other.unreadable_),
      unreadableWhy_(other.unreadableWhy_) {}

ol_hvacSolid::~ol_hvacSolid() {
  delete bodies_;
}

AcRxClass *ol_hvacSolid::isA() const {
  return desc();
}

void ol_hvacSolid::rxInit() {
  newAcRxClass(
      kClassName, L"AcDbEntity", 0, []() -> AcRxObject * { return new ol_hvacSolid(); }, L"OL_HVACSOLID",
      L"ol_ol-solid2025x64");
}

bool ol_hvacSolid::writable() const {
  refusal_ = checkWrite() == Acad::eOk ? nullptr : kNotOpenForWrite;
  if (!refusal_ && !unreadable_.empty()) refusal_ = "the solid's filed shape is damaged and was not read";
  return refusal_ == nullptr;
}

bool ol_hvacSolid::addTransition(const AcGePoint3d &start, bool startRect, double startWidth,
                                 double startDepth, const AcGePoint3d &end, bool endRect, double endWidth,
                                 double endDepth, const AcGeVector3d *startFrame,
                                 const AcGeVector3d *endFrame, int option) {
  return writable() && bodies_->addTransition(pt(start), startRect, startWidth, startDepth, pt(end), endRect,
                                              endWidth, endDepth, frame(startFrame), frame(endFrame), option);
}

bool ol_hvacSolid::subtractTransition(const AcGePoint3d &start, bool startRect, double startWidth,
                                      double startDepth, const AcGePoint3d &end, bool endRect,
                                      double endWidth, double endDepth, const AcGeVector3d *startFrame,
                                      const AcGeVector3d *endFrame, int option) {
  return writable() &&
         bodies_->subtractTransition(pt(start), startRect, startWidth, startDepth, pt(end), endRect, endWidth,
                                     endDepth, frame(startFrame), frame(endFrame), option);
}

bool ol_hvacSolid::addSkin(const AcArray<AcGePoint3d> &points, double thickness) {
  if (!writable()) return false;
  std::vector<Pt> pts;
  pts.reserve(points.length());
  for (const AcGePoint3d &p : points) pts.push_back(pt(p));
  return bodies_->addSkin(pts, thickness);
}

bool ol_hvacSolid::addSquareElbowPrep(const AcGePoint3d &start, double widthA, double depthA,
                                      const AcGePoint3d &end, double widthB, double depthB,
                                      const AcGeVector3d *frameA, const AcGeVector3d *frameB, bool rect,
                                      AModeler::Point3d &heel, AModeler::Point3d &throat, AcGePoint3d &corner,
                                      bool sameThroat, double tolerance) {
  Pt h, t, c;
  if (!bodies_->addSquareElbowPrep(pt(start), widthA, depthA, pt(end), widthB, depthB, frame(frameA),
                                   frame(frameB), rect, h, t, c, sameThroat, tolerance))
    return false;
  heel = amPoint(h);
  throat = amPoint(t);
  corner = acPoint(c);
  return true;
}

bool ol_hvacSolid::addSquareElbow(const AcGePoint3d &start, double widthA, double depthA,
                                  const AcGePoint3d &end, double widthB, double depthB,
                                  const AcGeVector3d *frameA, const AcGeVector3d *frameB, bool rect,
                                  AModeler::Point3d heel, AModeler::Point3d throat, const AcGePoint3d &corner,
                                  int option) {
  return writable() &&
         bodies_->addSquareElbow(pt(start), widthA, depthA, pt(end), widthB, depthB, frame(frameA),
                                 frame(frameB), rect, pt(heel), pt(throat), pt(corner), option);
}

bool ol_hvacSolid::addRadiusElbow(const AcGePoint3d &start, double width, double depth, double extraA,
                                  double extraB, const AcGePoint3d &end, double endWidth, double endDepth,
                                  const AcGeVector3d *frameA, const AcGeVector3d *frameB, bool rect,
                                  double radiusRatio, bool throatRatio, int option, bool legs) {
  return writable() &&
         bodies_->addRadiusElbow(pt(start), width, depth, extraA, extraB, pt(end), endWidth, endDepth,
                                 frame(frameA), frame(frameB), rect, radiusRatio, throatRatio, option, legs);
}

bool ol_hvacSolid::addCableTraySquareRadiusElbow(const AcGePoint3d &start, double width, double depth,
                                                 const AcGePoint3d &end, const AcGeVector3d *frameA,
                                                 const AcGeVector3d *frameB, double throatRadius,
                                                 int option) {
  return writable() && bodies_->addCableTraySquareRadiusElbow(pt(start), width, depth, pt(end), frame(frameA),
                                                              frame(frameB), throatRadius, option);
}

bool ol_hvacSolid::addWyePrep(const AcGePoint3d &p1, double width1, double depth1, const AcGePoint3d &p2,
                              double width2, double depth2, const AcGePoint3d &p3, double width3,
                              double depth3, const AcGeVector3d *frame1, const AcGeVector3d *frame2,
                              const AcGeVector3d *frame3, bool rect, AModeler::Point3d &legStart1,
                              AModeler::Point3d &legStart2, AModeler::Point3d &legStart3,
                              AcGePoint3d &collar1, AcGePoint3d &collar2, AcGePoint3d &collar3,
                              bool shortLegs, double tolerance) {
  Pt l1, l2, l3, c1, c2, c3;
  if (!bodies_->addWyePrep(pt(p1), width1, depth1, pt(p2), width2, depth2, pt(p3), width3, depth3,
                           frame(frame1), frame(frame2), frame(frame3), rect, l1, l2, l3, c1, c2, c3,
                           shortLegs, tolerance))
    return false;
  legStart1 = amPoint(l1);
  legStart2 = amPoint(l2);
  legStart3 = amPoint(l3);
  collar1 = acPoint(c1);
  collar2 = acPoint(c2);
  collar3 = acPoint(c3);
  return true;
}

bool ol_hvacSolid::addWye(const AcGePoint3d &p1, double width1, double depth1, const AcGePoint3d &p2,
                          double width2, double depth2, const AcGePoint3d &p3, double width3, double depth3,
                          const AcGePoint3d &junction, const AcGeVector3d *frame1, const AcGeVector3d *frame2,
                          const AcGeVector3d *frame3, bool rect, AModeler::Point3d legStart1,
                          AModeler::Point3d legStart2, AModeler::Point3d legStart3,
                          const AcGePoint3d &collar1, const AcGePoint3d &collar2, const AcGePoint3d &collar3,
                          int option) {
  return writable() &&
         bodies_->addWye(pt(p1), width1, depth1, pt(p2), width2, depth2, pt(p3), width3, depth3, pt(junction),
                         frame(frame1), frame(frame2), frame(frame3), rect, pt(legStart1), pt(legStart2),
                         pt(legStart3), pt(collar1), pt(collar2), pt(collar3), option);
}

bool ol_hvacSolid::sliceLast(const AcGePoint3d &a, const AcGePoint3d &b, const AcGePoint3d &c,
                             const AcGePoint3d &keep) {
  return writable() && bodies_->sliceLast(pt(a), pt(b), pt(c), pt(keep));
}

void ol_hvacSolid::clearBodies() {
  if (writable()) bodies_->clearBodies();
}

bool ol_hvacSolid::doUnion(const ol_hvacSolid *other) {
  if (!writable()) return false;
  if (!other || other == this) {
    refusal_ = "there is no other solid to join";
    return false;
  }
  return bodies_->doUnion(*other->bodies_);
}

int ol_hvacSolid::bodyCount() const {
  return bodies_->bodyCount();
}

double ol_hvacSolid::volume() const {
  return bodies_->volume();
}

bool ol_hvacSolid::writeStep(const char *path) const {
  return path && bodies_->writeStep(path);
}

bool ol_hvacSolid::restore(const std::string &text) {
  refusal_ = nullptr;
  if (!bodies_->fromString(text)) return false;
  unreadable_.clear();
  unreadableWhy_.clear();
  return true;
}

void ol_hvacSolid::keepUnreadable(const std::string &text, const std::string &why) {
  bodies_->clearBodies();
  unreadable_ = text;
  unreadableWhy_ = why;
  refusal_ = unreadableWhy_.c_str();
}

bool ol_hvacSolid::isValid() const {
  return bodies_->valid();
}

const char *ol_hvacSolid::lastError() const {
  return refusal_ ? refusal_ : bodies_->lastError().c_str();
}

// --- Entity protocol ---------------------------------------------------------------------------

Acad::ErrorStatus ol_hvacSolid::getGeomExtents(AcDbExtents &extents) const {
  Pt lo, hi;
  if (!bodies_->extents(lo, hi)) return Acad::eInvalidExtents;
  return extents.set(acPoint(lo), acPoint(hi));
}

Acad::ErrorStatus ol_hvacSolid::explode(AcDbVoidPtrArray &entities) const {
  if (bodies_->empty()) return Acad::eNotApplicable;
  for (const vantry::solid::FacePiece &f : bodies_->explode()) {
    AcDbFace *face = newFace(f);
    face->setColor(color());
    if (!layerId().isNull()) face->setLayer(layerId());
    entities.append(face);
  }
  return Acad::eOk;
}

Acad::ErrorStatus ol_hvacSolid::transformBy(const AcGeMatrix3d &xform) {
  if (!writable()) return Acad::eNotOpenForWrite;
  return bodies_->transformBy(xform.entry) ? Acad::eOk : Acad::eInvalidInput;
}

Acad::ErrorStatus ol_hvacSolid::getTransformedCopy(const AcGeMatrix3d &xform, AcDbEntity *&ent) const {
  ent = nullptr;
  auto *copy = new ol_hvacSolid(*this);
  if (!copy->bodies_->transformBy(xform.entry)) {
    delete copy;
    return Acad::eInvalidInput;
  }
  ent = copy;
  return Acad::eOk;
}

AcRxObject *ol_hvacSolid::clone() const {
  return new ol_hvacSolid(*this);
}

Acad::ErrorStatus ol_hvacSolid::copyFrom(const AcRxObject *other) {
  const ol_hvacSolid *src = cast(other);
  if (!src) return Acad::eWrongObjectType;
  if (src == this) return Acad::eOk;
  AcDbEntity::operator=(*src);
  *bodies_ = *src->bodies_;
  unreadable_ = src->unreadable_;
  unreadableWhy_ = src->unreadableWhy_;
  return Acad::eOk;
}
