// The vlax-curve-* functions: the drawing's curve queries (AcDbCurve) from
// LISP. The curve is given by its entity name or its VLA-object. A query
// the curve cannot answer (a parameter or distance beyond it, a point off
// it) gives nil, as on the host; an argument of the wrong type is the
// host's argument error.
#include <algorithm>
#include <cmath>

#include "activex/activex.h"
#include "db/lisp_data.h"
#include "session/internal.h"
#include "session/session.h"

namespace vantry::host {
namespace {

using lisp::Interp;
using lisp::Type;
using lisp::Value;

// Opens the curve for reading; closes it when the holder goes. An entity
// that is not a curve gives a null holder.
struct CurveRef {
  AcDbCurve *curve = nullptr;
  CurveRef(Interp &in, const Value &v) {
    AcDbObjectId id;
    if (!objectIdOfValue(v, id)) in.badArgType(L"lentityp", v);
    AcDbEntity *ent = nullptr;
    if (acdbOpenObject(ent, id, AcDb::kForRead) != Acad::eOk) return;
    curve = AcDbCurve::cast(ent);
    if (!curve) ent->close();
  }
  ~CurveRef() {
    if (curve) curve->close();
  }
  CurveRef(const CurveRef &) = delete;
  CurveRef &operator=(const CurveRef &) = delete;
};

Value point(const AcGePoint3d &p) {
  lisp::ListBuilder b;
  b.add(Value::real(p.x));
  b.add(Value::real(p.y));
  b.add(Value::real(p.z));
  return b.take();
}
Value vector(const AcGeVector3d &v) {
  return point(AcGePoint3d(v.x, v.y, v.z));
}

AcGePoint3d pointArg(Interp &in, const Value &v) {
  std::vector<Value> xyz = v.isCons() ? lisp::listToVector(v) : std::vector<Value>{};
  bool ok = xyz.size() == 2 || xyz.size() == 3;
  for (const Value &c : xyz) ok = ok && c.isNumber();
  if (!ok) in.badArgType(L"2D/3D point", v);
  return AcGePoint3d(xyz[0].number(), xyz[1].number(), xyz.size() == 3 ? xyz[2].number() : 0.0);
}

Value real(Acad::ErrorStatus es, double v) {
  return es == Acad::eOk ? Value::real(v) : Value();
}
Value pointOrNil(Acad::ErrorStatus es, const AcGePoint3d &p) {
  return es == Acad::eOk ? point(p) : Value();
}

#define CURVE_FN(NAME, MIN, MAX)                     \
  Value NAME(Interp &in, const Value *a, int n) {    \
    lisp::needArgs(in, n, MIN, MAX);                 \
    CurveRef c(in, a[0]);                            \
    if (!c.curve) return Value();                    \
    AcDbCurve *cv = c.curve;

CURVE_FN(getArea, 1, 1)
  double area = 0;
  Acad::ErrorStatus es = cv->getArea(area);
  return real(es, area);
}
CURVE_FN(getStartParam, 1, 1)
  double p = 0;
  Acad::ErrorStatus es = cv->getStartParam(p);
  return real(es, p);
}
CURVE_FN(getEndParam, 1, 1)
  double p = 0;
  Acad::ErrorStatus es = cv->getEndParam(p);
  return real(es, p);
}
CURVE_FN(getStartPoint, 1, 1)
  AcGePoint3d p;
  Acad::ErrorStatus es = cv->getStartPoint(p);
  return pointOrNil(es, p);
}
CURVE_FN(getEndPoint, 1, 1)
  AcGePoint3d p;
  Acad::ErrorStatus es = cv->getEndPoint(p);
  return pointOrNil(es, p);
}
CURVE_FN(isClosed, 1, 1)
  return in.boolean(cv->isClosed());
}
CURVE_FN(isPeriodic, 1, 1)
  return in.boolean(cv->isPeriodic());
}
// Planar when every point sampled along the curve lies in one plane.
CURVE_FN(isPlanar, 1, 1)
  double s = 0, e = 0;
  if (cv->getStartParam(s) != Acad::eOk || cv->getEndParam(e) != Acad::eOk) return Value();
  std::vector<AcGePoint3d> pts;
  for (int i = 0; i <= 32; ++i) {
    AcGePoint3d p;
    if (cv->getPointAtParam(s + (e - s) * i / 32, p) == Acad::eOk) pts.push_back(p);
  }
  AcGeVector3d normal;
  for (size_t i = 1; i < pts.size() && normal.length() < 1e-9; ++i)
    for (size_t j = i + 1; j < pts.size() && normal.length() < 1e-9; ++j)
      normal = (pts[i] - pts[0]).crossProduct(pts[j] - pts[0]);
  if (normal.length() < 1e-9) return in.makeT();  // a straight curve lies in a plane
  normal = normal.normal();
  for (const AcGePoint3d &p : pts)
    if (std::fabs((p - pts[0]).dotProduct(normal)) > 1e-9) return Value();
  return in.makeT();
}
CURVE_FN(getPointAtParam, 2, 2)
  AcGePoint3d p;
  Acad::ErrorStatus es = cv->getPointAtParam(lisp::numArg(in, a[1]), p);
  return pointOrNil(es, p);
}
CURVE_FN(getParamAtPoint, 2, 2)
  double p = 0;
  Acad::ErrorStatus es = cv->getParamAtPoint(pointArg(in, a[1]), p);
  return real(es, p);
}
CURVE_FN(getDistAtParam, 2, 2)
  double d = 0;
  Acad::ErrorStatus es = cv->getDistAtParam(lisp::numArg(in, a[1]), d);
  return real(es, d);
}
CURVE_FN(getParamAtDist, 2, 2)
  double p = 0;
  Acad::ErrorStatus es = cv->getParamAtDist(lisp::numArg(in, a[1]), p);
  return real(es, p);
}
CURVE_FN(getDistAtPoint, 2, 2)
  double d = 0;
  Acad::ErrorStatus es = cv->getDistAtPoint(pointArg(in, a[1]), d);
  return real(es, d);
}
CURVE_FN(getPointAtDist, 2, 2)
  AcGePoint3d p;
  Acad::ErrorStatus es = cv->getPointAtDist(lisp::numArg(in, a[1]), p);
  return pointOrNil(es, p);
}
CURVE_FN(getFirstDeriv, 2, 2)
  AcGeVector3d d;
  return cv->getFirstDeriv(lisp::numArg(in, a[1]), d) == Acad::eOk ? vector(d) : Value();
}
// The second derivative from the first, by differences of second order:
// central inside the parameter range, one-sided at its ends.
CURVE_FN(getSecondDeriv, 2, 2)
  double t = lisp::numArg(in, a[1]), s = 0, e = 0;
  if (cv->getStartParam(s) != Acad::eOk || cv->getEndParam(e) != Acad::eOk || t < s - 1e-12 || t > e + 1e-12)
    return Value();
  t = std::clamp(t, s, e);
  double h = std::max(1e-9, (e - s) * 1e-5);
  auto deriv = [&](double u, AcGeVector3d &d) { return cv->getFirstDeriv(u, d) == Acad::eOk; };
  AcGeVector3d d0, d1, d2, dd;
  if (t - h >= s && t + h <= e) {
    if (!deriv(t - h, d0) || !deriv(t + h, d1)) return Value();
    dd = (d1 - d0) * (0.5 / h);
  } else {
    double k = t - h < s ? h : -h;  // forward from the start, backward from the end
    if (!deriv(t, d0) || !deriv(t + k, d1) || !deriv(t + 2 * k, d2)) return Value();
    dd = (d0 * -3.0 + d1 * 4.0 - d2) * (0.5 / k);
  }
  double scale = std::max(1.0, dd.length());
  for (double *c : {&dd.x, &dd.y, &dd.z})
    if (std::fabs(*c) < 1e-6 * scale) *c = 0;  // what is left of the differences
  return vector(dd);
}
CURVE_FN(getClosestPointTo, 2, 3)
  AcGePoint3d out;
  bool extend = n == 3 && !a[2].isNil();
  Acad::ErrorStatus es = cv->getClosestPointTo(pointArg(in, a[1]), out, extend);
  return pointOrNil(es, out);
}
CURVE_FN(getClosestPointToProjection, 3, 4)
  AcGePoint3d out, dir = pointArg(in, a[2]);
  bool extend = n == 4 && !a[3].isNil();
  Acad::ErrorStatus es = cv->getClosestPointTo(pointArg(in, a[1]), AcGeVector3d(dir.x, dir.y, dir.z), out, extend);
  return pointOrNil(es, out);
}

#undef CURVE_FN

}  // namespace

void installCurveLisp(lisp::Interp &in) {
  static const struct {
    const wchar_t *name;
    lisp::SubrFn fn;
  } table[] = {
      {L"vlax-curve-getArea", getArea},
      {L"vlax-curve-getStartParam", getStartParam},
      {L"vlax-curve-getEndParam", getEndParam},
      {L"vlax-curve-getStartPoint", getStartPoint},
      {L"vlax-curve-getEndPoint", getEndPoint},
      {L"vlax-curve-isClosed", isClosed},
      {L"vlax-curve-isPeriodic", isPeriodic},
      {L"vlax-curve-isPlanar", isPlanar},
      {L"vlax-curve-getPointAtParam", getPointAtParam},
      {L"vlax-curve-getParamAtPoint", getParamAtPoint},
      {L"vlax-curve-getDistAtParam", getDistAtParam},
      {L"vlax-curve-getParamAtDist", getParamAtDist},
      {L"vlax-curve-getDistAtPoint", getDistAtPoint},
      {L"vlax-curve-getPointAtDist", getPointAtDist},
      {L"vlax-curve-getFirstDeriv", getFirstDeriv},
      {L"vlax-curve-getSecondDeriv", getSecondDeriv},
      {L"vlax-curve-getClosestPointTo", getClosestPointTo},
      {L"vlax-curve-getClosestPointToProjection", getClosestPointToProjection},
  };
  for (const auto &e : table) in.defineSubr(e.name, e.fn);
}

}  // namespace vantry::host
