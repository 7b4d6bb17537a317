// Jigs: dragging entities under the cursor until a point, an angle, a
// distance or a keyword ends the drag.
//
// A jig is a subclass of AcEdJig. Its sampler() asks for the value that the
// cursor gives (acquirePoint, acquireAngle, acquireDist) and says whether it
// changed; its update() changes the dragged entity to follow the value;
// entity() names the entity the host redraws. drag() runs sampler() and
// update() until the person ends the drag and answers the status of that
// last sample: kNormal for a value, kKW1.. for the first, second ...
// keyword of setKeywordList, kNull for Enter (when accepted), kOther for
// other text (when accepted), kCancel for Esc.
//
// In the headless host the person's answers come from the input queue. One
// answer ends the drag: drag() calls sampler() once, and update() when the
// sample is kNormal, so the entity is left where the end of a real drag
// would leave it. An answer that does not fit (text that is no keyword, a
// zero or negative value that the controls refuse, Enter when it is not
// accepted) is refused with the host's message and asked again. The rubber
// band is not drawn.
//
// Ownership: the jig owns nothing of the host's; the entity that entity()
// returns belongs to the subclass. append() adds that entity to the current
// space of the working drawing, after which the drawing owns it (the jig
// closes it there).
#pragma once

#include <string>

#include "host/arx.h"

// Declared in host/acdb.h, which may still be on its way in when arx.h
// brings this header.
class AcDbEntity;
class AcDbObjectId;
class AcGePoint3d;

class AcEdJig : public AcRxObject {
 public:
  enum DragStatus {
    kModeless = -17,
    kNoChange = -6,
    kCancel = -4,
    kOther = -3,
    kNull = -1,
    kNormal = 0,
    kKW1 = 1,
    kKW2,
    kKW3,
    kKW4,
    kKW5,
    kKW6,
    kKW7,
    kKW8,
    kKW9,
  };

  // Bits of setUserInputControls.
  enum UserInputControls {
    kGovernedByOrthoMode = 0x000001,
    kNullResponseAccepted = 0x000002,
    kDontEchoCancelForCtrlC = 0x000004,
    kDontUpdateLastPoint = 0x000008,
    kNoDwgLimitsChecking = 0x000010,
    kNoZeroResponseAccepted = 0x000020,
    kNoNegativeResponseAccepted = 0x000040,
    kAccept3dCoordinates = 0x000080,
    kAcceptMouseUpAsPoint = 0x000100,
    kAnyBlankTerminatesInput = 0x000200,
    kInitialBlankTerminatesInput = 0x000400,
    kAcceptOtherInputString = 0x000800,
    kGovernedByUCSDetect = 0x001000,
    kNoZDirectionOrtho = 0x002000,
    kImpliedFaceForUCSChange = 0x004000,
    kUseBasePointElevation = 0x008000,
    kDisableDirectDistanceInput = 0x010000,
  };

  enum CursorType {
    kNoSpecialCursor = -1,
    kCrosshair = 0,
    kRectCursor,
    kRubberBand,
    kNotRotated,
    kTargetBox,
    kRotatedCrosshair,
    kCrosshairNoRotate,
    kInvisible,
    kEntitySelect,
    kParallelogram,
    kEntitySelectNoPersp,
    kPkfirstOrGrips,
    kCrosshairDashed,
  };

  AcEdJig();
  ~AcEdJig() override;

  // Runs the drag; see the header comment.
  DragStatus drag();
  // The subclass's sample: acquire a value and say kNormal (changed),
  // kNoChange, or the acquire's other status. The default answers kCancel.
  virtual DragStatus sampler();
  // Follows the last sample; false when the entity could not follow.
  virtual bool update();
  // The entity being dragged; null by default.
  virtual AcDbEntity *entity() const;
  // Adds entity() to the working drawing's current space (model space) and
  // closes it there. A null id when there is no entity or it is already in
  // a drawing.
  AcDbObjectId append();

  // Acquisition of the value that ends the drag. Without
  // kAccept3dCoordinates a point is taken in the XY plane: its z is 0, or
  // the base point's z with kUseBasePointElevation. An angle is a number
  // typed in the drawing's angle units or the direction from the base point
  // to a point answered; a distance a number or the distance from the base
  // point (or between two points when there is none).
  DragStatus acquirePoint(AcGePoint3d &point);
  DragStatus acquirePoint(AcGePoint3d &point, const AcGePoint3d &basePoint);
  DragStatus acquireAngle(double &angle);
  DragStatus acquireAngle(double &angle, const AcGePoint3d &basePoint);
  DragStatus acquireDist(double &distance);
  DragStatus acquireDist(double &distance, const AcGePoint3d &basePoint);
  // Any text; kNormal. str must hold 2049 characters.
  DragStatus acquireString(ACHAR (&str)[2049]);

  const ACHAR *dispPrompt() const { return prompt_.c_str(); }
  void setDispPrompt(const ACHAR *prompt, ...);  // printf-style
  // Keywords in the host's syntax ("Yes No", capitals mark the
  // abbreviation); the n-th keyword answers kKWn.
  const ACHAR *keywordList() const { return keywords_.c_str(); }
  void setKeywordList(const ACHAR *keywords);
  UserInputControls userInputControls() const { return controls_; }
  void setUserInputControls(UserInputControls controls) { controls_ = controls; }
  CursorType specialCursorType() const { return cursor_; }
  void setSpecialCursorType(CursorType type) { cursor_ = type; }

 private:
  struct Request;
  DragStatus acquire(const Request &request, AcGePoint3d *point, double *value, std::wstring *text);

  std::wstring prompt_, keywords_;
  UserInputControls controls_ = UserInputControls(0);
  CursorType cursor_ = kNoSpecialCursor;
};
