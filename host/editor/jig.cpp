// AcEdJig over the scripted person: every acquire is one editor request of
// host/editor/editor.h (prompt, answer, echo, keyword completion and the
// host's messages), whose answer ends the drag.
#include <cstdarg>

#include "editor/editor.h"
#include "session/internal.h"

namespace ed = vantry::host::editor;

struct AcEdJig::Request {
  ed::Kind kind;
  const AcGePoint3d *base;
};

AcEdJig::AcEdJig() = default;
AcEdJig::~AcEdJig() = default;

AcEdJig::DragStatus AcEdJig::sampler() {
  return kCancel;
}

bool AcEdJig::update() {
  return false;
}

AcDbEntity *AcEdJig::entity() const {
  return nullptr;
}

// One sample ends the drag headless: a kNoChange sample leaves the entity as
// the last update put it, which a real drag ended there would answer as
// kNormal.
AcEdJig::DragStatus AcEdJig::drag() {
  DragStatus status = sampler();
  if (status == kNormal) update();
  return status == kNoChange ? kNormal : status;
}

AcDbObjectId AcEdJig::append() {
  AcDbEntity *ent = entity();
  AcDbDatabase *db = acdbHostApplicationServices()->workingDatabase();
  if (!ent || !db || !ent->objectId().isNull()) return AcDbObjectId::kNull;
  AcDbBlockTable *table = nullptr;
  if (db->getBlockTable(table, AcDb::kForRead) != Acad::eOk) return AcDbObjectId::kNull;
  AcDbBlockTableRecord *space = nullptr;
  Acad::ErrorStatus es = table->getAt(ACDB_MODEL_SPACE, space, AcDb::kForWrite);
  table->close();
  if (es != Acad::eOk) return AcDbObjectId::kNull;
  AcDbObjectId id;
  if (space->appendAcDbEntity(id, ent) == Acad::eOk) ent->close();
  space->close();
  return id;
}

void AcEdJig::setDispPrompt(const ACHAR *prompt, ...) {
  va_list args;
  va_start(args, prompt);
  prompt_ = prompt ? vantry::host::formatHostPrintf(prompt, args) : L"";
  va_end(args);
}

void AcEdJig::setKeywordList(const ACHAR *keywords) {
  keywords_ = keywords ? keywords : L"";
}

// The request loop: Enter is asked again unless accepted; a keyword answers
// its kKWn, other text kOther (the editor takes it only when it is
// accepted); Esc kCancel.
AcEdJig::DragStatus AcEdJig::acquire(const Request &request, AcGePoint3d *point, double *value,
                                     std::wstring *text) {
  int bits = 0;
  if (controls_ & kNoZeroResponseAccepted) bits |= ed::kNoZero;
  if (controls_ & kNoNegativeResponseAccepted) bits |= ed::kNoNegative;
  if (controls_ & kAcceptOtherInputString) bits |= ed::kArbitrary;
  if (controls_ & kAccept3dCoordinates) bits |= ed::k3D;
  ed::Query query;
  query.kind = request.kind;
  query.prompt = prompt_;
  query.spaces = true;
  if (request.base) query.base = ed::Point{request.base->x, request.base->y, request.base->z};
  ed::Reply reply;
  do {
    ed::initGet(bits, keywords_);
    reply = ed::ask(query);
  } while (reply.status == RTNONE && !(controls_ & kNullResponseAccepted));
  switch (reply.status) {
    case RTCAN:
      return kCancel;
    case RTNONE:
      return kNull;
    case RTKWORD: {
      std::vector<ed::Keyword> keywords = ed::parseKeywords(keywords_);
      for (size_t i = 0; i < keywords.size() && i < 9; ++i)
        if (keywords[i].global == reply.text) return DragStatus(kKW1 + int(i));
      return kOther;
    }
    default:
      break;
  }
  if (text) *text = reply.text;
  if (value) *value = reply.real;
  if (point) {
    *point = AcGePoint3d(reply.point[0], reply.point[1], reply.point[2]);
    if (!(controls_ & kAccept3dCoordinates))
      point->z = request.base && (controls_ & kUseBasePointElevation) ? request.base->z : 0.0;
  }
  return kNormal;
}

AcEdJig::DragStatus AcEdJig::acquirePoint(AcGePoint3d &point) {
  return acquire({ed::Kind::Point, nullptr}, &point, nullptr, nullptr);
}

AcEdJig::DragStatus AcEdJig::acquirePoint(AcGePoint3d &point, const AcGePoint3d &basePoint) {
  return acquire({ed::Kind::Point, &basePoint}, &point, nullptr, nullptr);
}

AcEdJig::DragStatus AcEdJig::acquireAngle(double &angle) {
  return acquire({ed::Kind::Angle, nullptr}, nullptr, &angle, nullptr);
}

AcEdJig::DragStatus AcEdJig::acquireAngle(double &angle, const AcGePoint3d &basePoint) {
  return acquire({ed::Kind::Angle, &basePoint}, nullptr, &angle, nullptr);
}

AcEdJig::DragStatus AcEdJig::acquireDist(double &distance) {
  return acquire({ed::Kind::Dist, nullptr}, nullptr, &distance, nullptr);
}

AcEdJig::DragStatus AcEdJig::acquireDist(double &distance, const AcGePoint3d &basePoint) {
  return acquire({ed::Kind::Dist, &basePoint}, nullptr, &distance, nullptr);
}

AcEdJig::DragStatus AcEdJig::acquireString(ACHAR (&str)[2049]) {
  std::wstring text;
  DragStatus status = acquire({ed::Kind::String, nullptr}, nullptr, nullptr, &text);
  if (status == kNormal) {
    size_t n = text.size() < 2048 ? text.size() : 2048;
    text.copy(str, n);
    str[n] = L'\0';
  }
  return status;
}
