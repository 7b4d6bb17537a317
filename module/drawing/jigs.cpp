// Jigs for LISP: drag a block reference, a text, or a set of entities to a
// new place or angle, or stretch a rubber-band line or rectangle from a
// point, until the person answers a point, an angle or a keyword.
//
// Every jig takes its own arguments first, then [prompt] [keywords]; an
// absent or non-string prompt gives the jig's default prompt. Its result is
// the value that ended the drag (a point, or an angle in radians), the
// keyword typed (completed as the host completes it), or nil for a cancel
// or an Enter. Dragged entities are moved with transformBy exactly as the
// end of a drag leaves them; a drag ended by anything but a value leaves
// every entity as it was.
//
// Bad input: a missing argument or one of the wrong type is status 2; an
// entity that cannot be opened for write, or is not of the class the jig
// drags, and an empty entity list are status 3.
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "frame/implementations.h"
#include "frame/value_list.h"

namespace vantry::lispfn {
namespace {

using frame::ArgList;
using DragStatus = AcEdJig::DragStatus;

constexpr size_t kKeywordBufferSize = 132;

// Entities held open for write while they are dragged; every transform
// applied is remembered so that an unfinished drag can put them back.
class DraggedEntities {
 public:
  DraggedEntities() = default;
  DraggedEntities(const DraggedEntities &) = delete;
  DraggedEntities &operator=(const DraggedEntities &) = delete;
  ~DraggedEntities() {
    for (AcDbEntity *ent : ents_) ent->close();
  }

  // Opens each id once (repeats are dropped). False, with nothing left
  // open, when one cannot be opened for write or is not a `cls`.
  bool open(const std::vector<AcDbObjectId> &ids, const AcRxClass *cls) {
    std::vector<AcDbObjectId> seen;
    for (AcDbObjectId id : ids) {
      if (std::find(seen.begin(), seen.end(), id) != seen.end()) continue;
      seen.push_back(id);
      AcDbEntity *ent = nullptr;
      if (acdbOpenAcDbEntity(ent, id, AcDb::kForWrite) != Acad::eOk) return closeAll();
      ents_.push_back(ent);
      if (!ent->isKindOf(cls)) return closeAll();
    }
    return !ents_.empty();
  }

  AcDbEntity *front() const { return ents_.empty() ? nullptr : ents_.front(); }

  void transformBy(const AcGeMatrix3d &m) {
    for (AcDbEntity *ent : ents_) ent->transformBy(m);
    applied_ = m * applied_;
    moved_ = true;
  }

  void restore() {
    if (!moved_) return;
    AcGeMatrix3d back = applied_.inverse();
    for (AcDbEntity *ent : ents_) ent->transformBy(back);
    applied_ = AcGeMatrix3d::kIdentity;
    moved_ = false;
  }

 private:
  bool closeAll() {
    for (AcDbEntity *ent : ents_) ent->close();
    ents_.clear();
    return false;
  }

  std::vector<AcDbEntity *> ents_;
  AcGeMatrix3d applied_ = AcGeMatrix3d::kIdentity;
  bool moved_ = false;
};

// Moves entities by the displacement from `anchor` to the point sampled.
// With a base point the person drags a rubber band from it.
class MoveJig : public AcEdJig {
 public:
  MoveJig(DraggedEntities &ents, const AcGePoint3d &anchor, bool rubberBand)
      : ents_(ents), anchor_(anchor), at_(anchor), placed_(anchor), rubberBand_(rubberBand) {}
  DragStatus sampler() override {
    AcGePoint3d p;
    DragStatus s = rubberBand_ ? acquirePoint(p, anchor_) : acquirePoint(p);
    if (s != kNormal) return s;
    if (p == at_) return kNoChange;
    at_ = p;
    return kNormal;
  }
  bool update() override {
    ents_.transformBy(AcGeMatrix3d::translation(at_ - placed_));
    placed_ = at_;
    return true;
  }
  AcDbEntity *entity() const override { return ents_.front(); }
  AcGePoint3d point() const { return at_; }

 private:
  DraggedEntities &ents_;
  AcGePoint3d anchor_, at_, placed_;  // placed_: where the last update put the anchor
  bool rubberBand_;
};

// Rotates entities about a base point, in the XY plane, by the angle
// sampled: a typed angle or the direction from the base to a point.
class RotateJig : public AcEdJig {
 public:
  RotateJig(DraggedEntities &ents, const AcGePoint3d &base) : ents_(ents), base_(base) {}
  DragStatus sampler() override {
    double a = 0;
    DragStatus s = acquireAngle(a, base_);
    if (s != kNormal) return s;
    if (a == angle_) return kNoChange;
    angle_ = a;
    return kNormal;
  }
  bool update() override {
    ents_.transformBy(AcGeMatrix3d::rotation(angle_ - applied_, AcGeVector3d::kZAxis, base_));
    applied_ = angle_;
    return true;
  }
  AcDbEntity *entity() const override { return ents_.front(); }
  double angle() const { return angle_; }

 private:
  DraggedEntities &ents_;
  AcGePoint3d base_;
  double angle_ = 0, applied_ = 0;
};

// A rubber band from a base point: a line to the point sampled, or the
// rectangle with the two points as opposite corners. The band is the jig's
// own entity, never added to the drawing.
class RubberBandJig : public AcEdJig {
 public:
  enum Shape { kLine, kRectangle };
  RubberBandJig(Shape shape, const AcGePoint3d &base) : shape_(shape), base_(base), at_(base) {
    if (shape == kLine) {
      band_ = std::make_unique<AcDbLine>(base, base);
    } else {
      auto rect = std::make_unique<AcDbPolyline>(4);
      for (unsigned i = 0; i < 4; ++i) rect->addVertexAt(i, AcGePoint2d(base.x, base.y));
      rect->setClosed(true);
      rect->setElevation(base.z);
      band_ = std::move(rect);
    }
  }
  DragStatus sampler() override {
    AcGePoint3d p;
    DragStatus s = acquirePoint(p, base_);
    if (s != kNormal) return s;
    if (p == at_) return kNoChange;
    at_ = p;
    return kNormal;
  }
  bool update() override {
    if (shape_ == kLine) return static_cast<AcDbLine *>(band_.get())->setEndPoint(at_) == Acad::eOk;
    auto *rect = static_cast<AcDbPolyline *>(band_.get());
    const AcGePoint2d corners[4] = {{base_.x, base_.y}, {at_.x, base_.y}, {at_.x, at_.y}, {base_.x, at_.y}};
    for (unsigned i = 0; i < 4; ++i) rect->setPointAt(i, corners[i]);
    return true;
  }
  AcDbEntity *entity() const override { return band_.get(); }
  AcGePoint3d point() const { return at_; }

 private:
  Shape shape_;
  AcGePoint3d base_, at_;
  std::unique_ptr<AcDbEntity> band_;
};

// The arguments after a jig's own: [prompt] [keywords].
struct PromptArgs {
  std::wstring prompt, keywords;
};

PromptArgs readPromptArgs(resbuf *&cur, const wchar_t *defaultPrompt) {
  PromptArgs p;
  if (!frame::readString(cur, p.prompt)) {
    p.prompt = defaultPrompt;
    frame::skipArgument(cur);
  }
  if (!frame::readString(cur, p.keywords)) p.keywords.clear();
  return p;
}

void prepare(AcEdJig &jig, const PromptArgs &p) {
  jig.setDispPrompt(L"%s", p.prompt.c_str());
  jig.setKeywordList(p.keywords.c_str());
  jig.setUserInputControls(
      AcEdJig::UserInputControls(AcEdJig::kAccept3dCoordinates | AcEdJig::kNullResponseAccepted));
}

void returnPoint(const AcGePoint3d &p) {
  ads_point out = {p.x, p.y, p.z};
  acedRetPoint(out);
}

// Runs the drag and sets the result: `onValue` for a value, the keyword
// string for a keyword, nil otherwise. True when a value ended the drag.
template <class OnValue>
bool runDrag(AcEdJig &jig, OnValue onValue) {
  DragStatus s = jig.drag();
  if (s == AcEdJig::kNormal) {
    onValue();
    return true;
  }
  if (s >= AcEdJig::kKW1) {
    ACHAR keyword[kKeywordBufferSize];
    if (acedGetInput(keyword, kKeywordBufferSize) == RTNORM) acedRetStr(keyword);
  }
  return false;
}

// A list of entity names, (ename ...). Empty when the list is nil or empty;
// false when it is not a list of entity names.
bool readNameList(resbuf *&cur, std::vector<AcDbObjectId> &ids) {
  if (cur && cur->restype == RTNIL) {
    cur = cur->rbnext;
    return true;
  }
  resbuf *start = cur;
  if (!frame::readListBegin(cur)) return false;
  AcDbObjectId id;
  ads_name name;
  while (!frame::readListEnd(cur)) {
    if (!frame::readEntityName(cur, name)) {
      cur = start;
      return false;
    }
    // A name that maps to no object of an open drawing stays a null id,
    // which cannot be opened: bad data rather than a wrong type.
    if (acdbGetObjectId(id, name) != Acad::eOk) id = AcDbObjectId::kNull;
    ids.push_back(id);
  }
  return true;
}

int moveJig(const std::vector<AcDbObjectId> &ids, const AcRxClass *cls, const PromptArgs &p,
            const AcGePoint3d *base) {
  DraggedEntities ents;
  if (!ents.open(ids, cls)) return 3;
  AcGePoint3d anchor;
  if (base) {
    anchor = *base;
  } else if (auto *ref = AcDbBlockReference::cast(ents.front())) {
    anchor = ref->position();
  } else {
    anchor = static_cast<AcDbMText *>(ents.front())->location();
  }
  MoveJig jig(ents, anchor, base != nullptr);
  prepare(jig, p);
  if (!runDrag(jig, [&] { returnPoint(jig.point()); })) ents.restore();
  return 0;
}

int rotateJig(const std::vector<AcDbObjectId> &ids, const AcGePoint3d &base, const PromptArgs &p) {
  DraggedEntities ents;
  if (!ents.open(ids, AcDbEntity::desc())) return 3;
  RotateJig jig(ents, base);
  prepare(jig, p);
  if (!runDrag(jig, [&] { acedRetReal(jig.angle()); })) ents.restore();
  return 0;
}

int rubberBand(RubberBandJig::Shape shape, const wchar_t *defaultPrompt) {
  acedRetNil();
  ArgList args;
  resbuf *&cur = args.cursor();
  ads_point base;
  if (!frame::readPoint(cur, base)) return 2;
  PromptArgs p = readPromptArgs(cur, defaultPrompt);
  RubberBandJig jig(shape, AcGePoint3d(base[0], base[1], base[2]));
  prepare(jig, p);
  runDrag(jig, [&] { returnPoint(jig.point()); });
  return 0;
}

int singleMove(const AcRxClass *cls, const wchar_t *defaultPrompt) {
  acedRetNil();
  ArgList args;
  resbuf *&cur = args.cursor();
  AcDbObjectId id;
  ads_name name;
  if (!frame::readObjectId(cur, id)) {
    if (!frame::readEntityName(cur, name)) return 2;
    return 3;  // an entity name of no open drawing
  }
  PromptArgs p = readPromptArgs(cur, defaultPrompt);
  return moveJig({id}, cls, p, nullptr);
}

}  // namespace

// Arguments: ename of a block reference, [prompt], [keywords]. The
// reference follows the cursor by its insertion point.
int AcDbBlockReference_Jig() {
  return singleMove(AcDbBlockReference::desc(), L"\nSpecify insertion point: ");
}

// Arguments: ename of an MText, [prompt], [keywords]. The text follows the
// cursor by its location.
int ol_ol_textJig() {
  return singleMove(AcDbMText::desc(), L"\nSpecify text location: ");
}

// Arguments: base point, [prompt], [keywords]. The opposite corner.
int RectangleJig() {
  return rubberBand(RubberBandJig::kRectangle, L"\nSpecify opposite corner: ");
}

// Arguments: start point, [prompt], [keywords]. The end point.
int ol_ol_lineJig() {
  return rubberBand(RubberBandJig::kLine, L"\nSpecify end point: ");
}

// Arguments: ename, base point, [prompt], [keywords]. The angle turned by,
// in radians.
int ol_ol_rotateJig() {
  acedRetNil();
  ArgList args;
  resbuf *&cur = args.cursor();
  AcDbObjectId id;
  ads_name name;
  ads_point base;
  bool named = frame::readObjectId(cur, id);
  if (!named && !frame::readEntityName(cur, name)) return 2;
  if (!frame::readPoint(cur, base)) return 2;
  if (!named) return 3;
  PromptArgs p = readPromptArgs(cur, L"\nSpecify rotation angle: ");
  return rotateJig({id}, AcGePoint3d(base[0], base[1], base[2]), p);
}

// Arguments: (ename ...), base point, [prompt], [keywords]. The angle.
int ol_ol_multiRotateJig() {
  acedRetNil();
  ArgList args;
  resbuf *&cur = args.cursor();
  std::vector<AcDbObjectId> ids;
  ads_point base;
  if (!readNameList(cur, ids) || !frame::readPoint(cur, base)) return 2;
  PromptArgs p = readPromptArgs(cur, L"\nSpecify rotation angle: ");
  return rotateJig(ids, AcGePoint3d(base[0], base[1], base[2]), p);
}

// Arguments: (ename ...), base point, [prompt], [keywords]. The point the
// base was moved to; every entity moves by the same displacement.
int ol_ol_multiMoveJig() {
  acedRetNil();
  ArgList args;
  resbuf *&cur = args.cursor();
  std::vector<AcDbObjectId> ids;
  ads_point base;
  if (!readNameList(cur, ids) || !frame::readPoint(cur, base)) return 2;
  PromptArgs p = readPromptArgs(cur, L"\nSpecify second point: ");
  AcGePoint3d from(base[0], base[1], base[2]);
  return moveJig(ids, AcDbEntity::desc(), p, &from);
}

}  // namespace vantry::lispfn
