// Where a run's ends lie and how its frame turns: justification, the frame of a run, and the
// length of a size transition. Every fitting function builds on these.
#pragma once

#include "ducts/duct_run.h"

namespace vantry::ducts {

// The quarter turn and the half turn as this family has always written them: not pi to full
// precision. Frames and hanger axes are turned by kQuarterTurn; degrees become radians with
// kHalfTurn / 180.
constexpr double kQuarterTurn = 1.570796325;
constexpr double kHalfTurn = 3.14159265;

// The run's start (or end) point: converted through the LISP function "convert_rp_dp" when
// convert is true (kept as it is when that call fails or answers no 3D point), then, when a frame
// is given, moved by the run's justification: vertically along z by half the depth ("t" down,
// "b" up, "h" up plus the vertical offset when that is switched on, else as "b"), horizontally
// along y by half the width ("r" towards -y, "l" towards +y).
AcGePoint3d justifiedStart(const DuctRun &run, const FittingFrame *frame, bool convert);
AcGePoint3d justifiedEnd(const DuctRun &run, const FittingFrame *frame, bool convert);

// The frame of a run. A run that is not vertical takes y as its plan direction turned a quarter
// to the left; a vertical run takes z = (1, 0, 0) alone, or, with a partner, the partner's y.
// Then y = z cross x and all three are made unit length.
FittingFrame computeFrame(const DuctRun &run, const DuctRun *partner, bool convert);

// The length over which a size change is made, for a taper of angleDeg on the side that changes
// most; a change between rectangular and round is at least half the larger side of the first run.
double transitionLength(double w1, double d1, bool r1, double w2, double d2, bool r2, double angleDeg);

// The length of the transition from the end of run a to run b: the number a's sizeText holds
// when it holds a non-zero one (a leading number counts; its sign is kept), else transitionLength
// of the two runs' sizes at 15 degrees. Zero or less means no transition.
double transitionLengthOf(const DuctRun &a, const DuctRun &b);

}  // namespace vantry::ducts
