// A duct run as the fitting functions read it from LISP, and its frame.
//
// A DuctRun is one run of duct between two reference points, with its size, shape and how its
// drawn centre line sits against the reference line (justification). Every fitting function reads
// one or more runs, each from one LISP sub-list:
//
//   (sx sy sz  ex ey ez  pointCode headLength tailLength width depth "shape"
//    extraA extraB "horizontal" "vertical" useVerticalOffset verticalOffset)
//
// (each point may also come as one three-number list). The two extra thicknesses (lining,
// insulation) are added twice each to width and depth on reading.
//
// A FittingFrame is the run's local axes: x along the run from start to end, y across it
// horizontally, z = x cross y.
#pragma once

#include <initializer_list>

#include <string>

#include "host/arx.h"

namespace vantry::ducts {

struct DuctRun {
  AcGePoint3d startPoint, endPoint;  // reference points, before justification
  int pointCode = 0;                 // handed to "convert_rp_dp" with each point
  double headLength = 0, tailLength = 0;
  double width = 0, depth = 0;  // extra thicknesses included; the absolute values count
  std::wstring shapeCode;       // two letters: "RD", "OO", "DX", "OX" (any case) are round or oval
  double extraThicknessA = 0, extraThicknessB = 0;
  std::wstring horizontalJustification;  // "l", "r", else centre
  std::wstring verticalJustification;    // "t", "b", "h", else centre
  int useVerticalOffset = 0;
  double verticalOffset = 0;
  // Not read from LISP.
  int verticalMarker = 0;  // -1 forces the run to count as vertical
  std::wstring sizeText;   // a number here is the transition length
  std::wstring flexCode;   // "FX" makes the run not rectangular
};

struct FittingFrame {
  AcGeVector3d axis[3];  // x, y, z, consecutive: the solid's operations take a pointer to them
  AcGeVector3d &x() { return axis[0]; }
  AcGeVector3d &y() { return axis[1]; }
  AcGeVector3d &z() { return axis[2]; }
  const AcGeVector3d &x() const { return axis[0]; }
  const AcGeVector3d &y() const { return axis[1]; }
  const AcGeVector3d &z() const { return axis[2]; }
  const AcGeVector3d *data() const { return axis; }
};

// Reads one run list at the cursor. On failure the cursor is left where it was.
bool readDuctRun(resbuf *&cursor, DuctRun &run);

// The arguments of a fitting along one run or from one run to the next: (convert option a [b]).
// convert sends the runs' points through "convert_rp_dp"; option is the bodies' kind tag.
struct RunArgs {
  bool convert = false;
  int option = 0;
  DuctRun a, b;
  bool hasB = false;  // b came (a fitting that needs it checks)
};
// Reads them at the cursor; false when convert, option or a is missing or malformed.
bool readRunArgs(resbuf *&cursor, RunArgs &args);

// Whether every number of the runs (points, lengths, sizes, offset) is finite. A run holding an
// infinity or NaN is bad data: the fittings answer status 3 ("Bad data passed .") before any
// geometry is made from it.
bool finiteRuns(std::initializer_list<const DuctRun *> runs);
// Whether the numbers are all finite.
bool finiteNumbers(std::initializer_list<double> values);

// False for the round and oval shape codes (any case) and for flex duct.
bool isRectangular(const DuctRun &run);
// "OO" for round and oval shapes, "RC" for every other.
std::wstring shapeFamily(const DuctRun &run);
// Marked vertical, or start and end equal in plan within the global tolerance.
bool isVertical(const DuctRun &run);

}  // namespace vantry::ducts
