// Reading a duct run and its shape predicates.
#include "ducts/duct_run.h"

#include <cmath>
#include <cwctype>

#include "frame/value_list.h"

namespace vantry::ducts {
namespace {

bool isRoundCode(std::wstring code) {
  for (wchar_t &c : code) c = wchar_t(std::towupper(c));
  return code == L"RD" || code == L"OO" || code == L"DX" || code == L"OX";
}

bool readPoint3(resbuf *&cur, AcGePoint3d &p) {
  ads_point v;
  if (!frame::readPoint(cur, v)) return false;
  p = AcGePoint3d(v[0], v[1], v[2]);
  return true;
}

}  // namespace

bool readDuctRun(resbuf *&cursor, DuctRun &out) {
  using namespace frame;
  resbuf *cur = cursor;
  DuctRun run;
  if (!readListBegin(cur) || !readPoint3(cur, run.startPoint) || !readPoint3(cur, run.endPoint) ||
      !readInteger(cur, run.pointCode) || !readReal(cur, run.headLength) || !readReal(cur, run.tailLength) ||
      !readReal(cur, run.width) || !readReal(cur, run.depth) || !readString(cur, run.shapeCode) ||
      !readReal(cur, run.extraThicknessA) || !readReal(cur, run.extraThicknessB))
    return false;
  double extra = 2 * run.extraThicknessA + 2 * run.extraThicknessB;
  run.width += extra;
  run.depth += extra;
  if (!readString(cur, run.horizontalJustification) || !readString(cur, run.verticalJustification) ||
      !readInteger(cur, run.useVerticalOffset) || !readReal(cur, run.verticalOffset) || !readListEnd(cur))
    return false;
  out = run;
  cursor = cur;
  return true;
}

bool readRunArgs(resbuf *&cursor, RunArgs &args) {
  if (!frame::readBoolean(cursor, args.convert) || !frame::readInteger(cursor, args.option) ||
      !readDuctRun(cursor, args.a))
    return false;
  args.hasB = readDuctRun(cursor, args.b);
  return true;
}

bool finiteNumbers(std::initializer_list<double> values) {
  for (double v : values)
    if (!std::isfinite(v)) return false;
  return true;
}

bool finiteRuns(std::initializer_list<const DuctRun *> runs) {
  for (const DuctRun *r : runs) {
    const AcGePoint3d &s = r->startPoint, &e = r->endPoint;
    if (!finiteNumbers({s.x, s.y, s.z, e.x, e.y, e.z, r->headLength, r->tailLength, r->width, r->depth,
                        r->extraThicknessA, r->extraThicknessB, r->verticalOffset}))
      return false;
  }
  return true;
}

bool isRectangular(const DuctRun &run) {
  static const wchar_t *const kRound[] = {L"RD", L"OO", L"DX", L"OX", L"rd", L"oo", L"dx", L"ox"};
  for (const wchar_t *code : kRound)
    if (run.shapeCode == code) return false;
  return run.flexCode != L"FX";
}

std::wstring shapeFamily(const DuctRun &run) {
  return isRoundCode(run.shapeCode) ? L"OO" : L"RC";
}

bool isVertical(const DuctRun &run) {
  if (run.verticalMarker == -1) return true;
  return AcGePoint2d(run.startPoint.x, run.startPoint.y)
      .isEqualTo(AcGePoint2d(run.endPoint.x, run.endPoint.y), AcGeContext::gTol);
}

}  // namespace vantry::ducts
