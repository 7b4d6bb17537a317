// AutoLISP's numbers: comparison, arithmetic, bit operations, transcendental
// functions and the plane geometry helpers (polar, distance, angle, inters).
//
// Integers are 32-bit and wrap on overflow as the host's do: (+ 2147483647 1)
// is -2147483648. Arithmetic runs left to right and stays integer until the
// first real argument, so (/ 7 2 2.0) is (/ 3 2.0) = 1.5 and integer division
// truncates toward zero. Dividing by an integer or real zero is the error
// "divide by zero"; a function outside its domain ((sqrt -1), (log 0)) is
// "function undefined for argument: <the argument>".
//
// Comparisons take numbers or strings; strings compare by character code. The
// ordering tests refuse a mix; = and /= also accept other atoms and compare
// them by identity, so (= 'a 'a) is T.
#include <cmath>
#include <cstdint>

#include "lisp/lisp.h"

namespace vantry::lisp {
namespace {

constexpr double kPi = 3.14159265358979323846;

int32_t wrap(int64_t v) {
  return int32_t(uint32_t(uint64_t(v)));
}

const Value &number(Interp &in, const Value &v) {
  if (!v.isNumber()) in.badArgType(L"numberp", v);
  return v;
}

[[noreturn]] void undefinedFor(Interp &in, const Value &arg) {
  in.error(L"function undefined for argument: " + in.toString(arg, true));
}

// --- Comparison ----------------------------------------------------------------

// -1, 0 or 1. `a` has been checked to be a number or a string; `b` must match.
int compare(Interp &in, const Value &a, const Value &b) {
  if (a.type() == Type::Str) {
    int c = str(a).compare(strArg(in, b));
    return c < 0 ? -1 : c > 0;
  }
  number(in, b);
  if (a.type() == Type::Int && b.type() == Type::Int)
    return a.asInt() < b.asInt() ? -1 : a.asInt() > b.asInt();
  double x = a.number(), y = b.number();
  return x < y ? -1 : x > y;
}

bool comparable(const Value &v) {
  return v.isNumber() || v.type() == Type::Str;
}

// Compares each argument with the next; `Holds` tells whether one pair passes.
template <bool (*Holds)(int)>
Value fOrder(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, -1);
  if (!comparable(args[0])) in.badArgType(L"numberp", args[0]);
  bool all = true;
  for (int i = 0; i + 1 < nargs; ++i)
    if (!Holds(compare(in, args[i], args[i + 1]))) all = false;
  return in.boolean(all);
}

bool lt(int c) {
  return c < 0;
}
bool gt(int c) {
  return c > 0;
}
bool le(int c) {
  return c <= 0;
}
bool ge(int c) {
  return c >= 0;
}

bool sameValue(Interp &in, const Value &a, const Value &b) {
  if (comparable(a) && comparable(b) && a.isNumber() == b.isNumber()) return compare(in, a, b) == 0;
  return a.same(b);
}

Value fEq(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, -1);
  for (int i = 0; i + 1 < nargs; ++i)
    if (!sameValue(in, args[i], args[i + 1])) return Value();
  return in.makeT();
}

Value fNe(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, -1);
  for (int i = 0; i + 1 < nargs; ++i)
    if (sameValue(in, args[i], args[i + 1])) return Value();
  return in.makeT();
}

// --- Arithmetic ------------------------------------------------------------------

enum class Op { Add, Sub, Mul, Div, Rem };

int32_t intStep(Interp &in, Op op, int32_t a, int32_t b) {
  switch (op) {
    case Op::Add:
      return wrap(int64_t(a) + b);
    case Op::Sub:
      return wrap(int64_t(a) - b);
    case Op::Mul:
      return wrap(int64_t(a) * b);
    case Op::Div:
      if (b == 0) in.error(L"divide by zero");
      return wrap(int64_t(a) / b);
    case Op::Rem:
      if (b == 0) in.error(L"divide by zero");
      return wrap(int64_t(a) % b);
  }
  return 0;
}

double realStep(Interp &in, Op op, double a, double b) {
  switch (op) {
    case Op::Add:
      return a + b;
    case Op::Sub:
      return a - b;
    case Op::Mul:
      return a * b;
    case Op::Div:
      if (b == 0) in.error(L"divide by zero");
      return a / b;
    case Op::Rem:
      if (b == 0) in.error(L"divide by zero");
      return std::fmod(a, b);
  }
  return 0;
}

// Folds the arguments left to right. No argument gives 0; one argument is
// returned as it is, except that (- x) negates.
template <Op O>
Value fArith(Interp &in, const Value *args, int nargs) {
  if (nargs == 0) return Value::integer(0);
  const Value &first = number(in, args[0]);
  if (nargs == 1) {
    if (O != Op::Sub) return first;
    return first.type() == Type::Int ? Value::integer(wrap(-int64_t(first.asInt())))
                                     : Value::real(-first.asReal());
  }
  int i = 1;
  if (first.type() == Type::Int) {
    int32_t acc = first.asInt();
    for (; i < nargs && number(in, args[i]).type() == Type::Int; ++i)
      acc = intStep(in, O, acc, args[i].asInt());
    if (i == nargs) return Value::integer(acc);
    double r = acc;
    for (; i < nargs; ++i) r = realStep(in, O, r, number(in, args[i]).number());
    return Value::real(r);
  }
  double r = first.asReal();
  for (; i < nargs; ++i) r = realStep(in, O, r, number(in, args[i]).number());
  return Value::real(r);
}

template <int Delta>
Value fStep(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  const Value &v = number(in, args[0]);
  if (v.type() == Type::Int) return Value::integer(wrap(int64_t(v.asInt()) + Delta));
  return Value::real(v.asReal() + Delta);
}

Value fAbs(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  const Value &v = number(in, args[0]);
  if (v.type() == Type::Int) return Value::integer(v.asInt() < 0 ? wrap(-int64_t(v.asInt())) : v.asInt());
  return Value::real(std::fabs(v.asReal()));
}

// The result is real when any argument is.
template <bool Max>
Value fMinMax(Interp &in, const Value *args, int nargs) {
  if (nargs == 0) return Value::integer(0);
  bool real = false;
  int best = 0;
  for (int i = 0; i < nargs; ++i) {
    real |= number(in, args[i]).type() == Type::Real;
    double x = args[i].number(), b = args[best].number();
    if (Max ? x > b : x < b) best = i;
  }
  if (real) return Value::real(args[best].number());
  return args[best];
}

// A real outside the integer range is truncated but stays real.
Value fFix(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  const Value &v = number(in, args[0]);
  if (v.type() == Type::Int) return v;
  double t = std::trunc(v.asReal());
  if (t >= -2147483648.0 && t <= 2147483647.0) return Value::integer(int32_t(t));
  return Value::real(t);
}

Value fFloat(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  return Value::real(numArg(in, args[0]));
}

// --- Transcendental functions ---------------------------------------------------------

double sinOf(double x) {
  return std::sin(x);
}
double cosOf(double x) {
  return std::cos(x);
}
double expOf(double x) {
  return std::exp(x);
}

template <double (*F)(double)>
Value fReal1(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  return Value::real(F(numArg(in, args[0])));
}

Value fSqrt(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  double x = numArg(in, args[0]);
  if (x < 0) undefinedFor(in, args[0]);
  return Value::real(std::sqrt(x));
}

Value fLog(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  double x = numArg(in, args[0]);
  if (x <= 0) undefinedFor(in, args[0]);
  return Value::real(std::log(x));
}

Value fAtan(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 2);
  double y = numArg(in, args[0]);
  if (nargs == 1) return Value::real(std::atan(y));
  return Value::real(std::atan2(y, numArg(in, args[1])));
}

// Two integers give an integer: a negative power is the truncated quotient
// ((expt 2 -1) is 0) and a positive one wraps like multiplication.
Value fExpt(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, 2);
  const Value &base = number(in, args[0]), &power = number(in, args[1]);
  if (base.type() == Type::Int && power.type() == Type::Int) {
    int32_t b = base.asInt(), p = power.asInt();
    if (p < 0) {
      if (b == 0) in.error(L"divide by zero");
      if (b == 1) return Value::integer(1);
      if (b == -1) return Value::integer(p % 2 ? -1 : 1);
      return Value::integer(0);
    }
    uint32_t result = 1, square = uint32_t(b);
    for (uint32_t e = uint32_t(p); e; e >>= 1) {
      if (e & 1) result *= square;
      square *= square;
    }
    return Value::integer(int32_t(result));
  }
  double b = base.number(), p = power.number();
  if (b < 0 && p != std::trunc(p)) undefinedFor(in, base);
  if (b == 0 && p < 0) in.error(L"divide by zero");
  return Value::real(std::pow(b, p));
}

// --- Integers as bits --------------------------------------------------------------

Value fGcd(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, 2);
  int32_t a = intArg(in, args[0]), b = intArg(in, args[1]);
  if (a <= 0) in.error(L"improper argument: " + std::to_wstring(a));
  if (b <= 0) in.error(L"improper argument: " + std::to_wstring(b));
  while (b) {
    int32_t t = a % b;
    a = b;
    b = t;
  }
  return Value::integer(a);
}

template <bool And>
Value fLogic(Interp &in, const Value *args, int nargs) {
  if (nargs == 0) return Value::integer(0);
  uint32_t acc = uint32_t(intArg(in, args[0]));
  for (int i = 1; i < nargs; ++i)
    acc = And ? acc & uint32_t(intArg(in, args[i])) : acc | uint32_t(intArg(in, args[i]));
  return Value::integer(int32_t(acc));
}

// A logical shift: zeros come in from either end.
Value fLsh(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 0, 2);
  if (nargs == 0) return Value::integer(0);
  uint32_t v = uint32_t(intArg(in, args[0]));
  int32_t by = nargs == 2 ? intArg(in, args[1]) : 0;
  if (by >= 32 || by <= -32) return Value::integer(0);
  return Value::integer(int32_t(by >= 0 ? v << by : v >> -by));
}

Value fNot(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  return Value::integer(~intArg(in, args[0]));
}

// (boole op i1 i2 ...): bit k of the result is the bit of `op` chosen by the
// pair of input bits: 1 when both are set, 2 when only i1's is, 4 when only
// i2's is, 8 when neither is. 1 is and, 6 xor, 7 or, 8 nor.
Value fBoole(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, -1);
  int32_t op = intArg(in, args[0]);
  uint32_t acc = uint32_t(intArg(in, args[1]));
  for (int i = 2; i < nargs; ++i) {
    uint32_t b = uint32_t(intArg(in, args[i])), r = 0;
    if (op & 1) r |= acc & b;
    if (op & 2) r |= acc & ~b;
    if (op & 4) r |= ~acc & b;
    if (op & 8) r |= ~acc & ~b;
    acc = r;
  }
  return Value::integer(int32_t(acc));
}

Value fZerop(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  return in.boolean(numArg(in, args[0]) == 0);
}

Value fMinusp(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  return in.boolean(numArg(in, args[0]) < 0);
}

// --- Points ----------------------------------------------------------------------

struct Point {
  double c[3] = {0, 0, 0};
  int dim = 0;
};

// A list of two or three numbers.
Point pointArg(Interp &in, const Value &v) {
  Point p;
  for (const Value *cell = &v; cell->isCons(); cell = &cell->as<Cons>()->cdr) {
    const Value &x = cell->as<Cons>()->car;
    if (p.dim == 3 || !x.isNumber()) in.badArgType(L"2D/3D point", v);
    p.c[p.dim++] = x.number();
  }
  if (p.dim < 2 || listLength(v) < 0) in.badArgType(L"2D/3D point", v);
  return p;
}

Value pointValue(const double *c, int dim) {
  ListBuilder b;
  for (int i = 0; i < dim; ++i) b.add(Value::real(c[i]));
  return b.take();
}

Value fPolar(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 3, 3);
  Point p = pointArg(in, args[0]);
  double a = numArg(in, args[1]), d = numArg(in, args[2]);
  double out[3] = {p.c[0] + d * std::cos(a), p.c[1] + d * std::sin(a), p.c[2]};
  return pointValue(out, p.dim);
}

// In the plane when either point is 2D.
Value fDistance(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, 2);
  Point p = pointArg(in, args[0]), q = pointArg(in, args[1]);
  double dz = p.dim == 3 && q.dim == 3 ? q.c[2] - p.c[2] : 0;
  return Value::real(
      std::sqrt((q.c[0] - p.c[0]) * (q.c[0] - p.c[0]) + (q.c[1] - p.c[1]) * (q.c[1] - p.c[1]) + dz * dz));
}

// The angle of p->q seen from above, in [0, 2*pi).
Value fAngle(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, 2);
  Point p = pointArg(in, args[0]), q = pointArg(in, args[1]);
  double a = std::atan2(q.c[1] - p.c[1], q.c[0] - p.c[0]);
  if (a < 0) a += 2 * kPi;
  return Value::real(a);
}

// (inters p1 p2 p3 p4 [onseg]). With all four points 3D the lines must meet
// in space (their closest points no farther apart than a relative 1e-10);
// otherwise they are taken in the plane and a 2D point is returned. Unless
// onseg is given as nil the point must lie on both segments.
Value fInters(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 4, 5);
  Point p[4];
  int dim = 3;
  for (int i = 0; i < 4; ++i) {
    p[i] = pointArg(in, args[i]);
    if (p[i].dim == 2) dim = 2;
  }
  bool onSeg = nargs < 5 || !args[4].isNil();
  double u[3], v[3], w[3], scale = 0;
  for (int k = 0; k < 3; ++k) {
    double keep = k < dim ? 1 : 0;
    u[k] = (p[1].c[k] - p[0].c[k]) * keep;
    v[k] = (p[3].c[k] - p[2].c[k]) * keep;
    w[k] = (p[0].c[k] - p[2].c[k]) * keep;
    for (const Point &q : p) scale = std::fmax(scale, std::fabs(q.c[k] * keep));
  }
  auto dot = [](const double *a, const double *b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; };
  // Closest points p0 + s*u and p2 + t*v of the two lines.
  double a = dot(u, u), b = dot(u, v), c = dot(v, v), d = dot(u, w), e = dot(v, w);
  double den = a * c - b * b;
  if (a == 0 || c == 0 || den <= 1e-20 * a * c) return Value();
  double s = (b * e - c * d) / den, t = (a * e - b * d) / den;
  double tol = 1e-10 * std::fmax(1.0, scale);
  double at[3], gap = 0;
  for (int k = 0; k < 3; ++k) {
    at[k] = p[0].c[k] + s * u[k];
    double other = p[2].c[k] + t * v[k];
    gap += (at[k] - other) * (at[k] - other);
  }
  if (dim == 3 && std::sqrt(gap) > tol) return Value();
  const double eps = 1e-10;
  if (onSeg && (s < -eps || s > 1 + eps || t < -eps || t > 1 + eps)) return Value();
  return pointValue(at, dim);
}

struct Entry {
  const wchar_t *name;
  SubrFn fn;
};

const Entry kMath[] = {
    {L"=", fEq},
    {L"/=", fNe},
    {L"<", fOrder<lt>},
    {L">", fOrder<gt>},
    {L"<=", fOrder<le>},
    {L">=", fOrder<ge>},
    {L"+", fArith<Op::Add>},
    {L"-", fArith<Op::Sub>},
    {L"*", fArith<Op::Mul>},
    {L"/", fArith<Op::Div>},
    {L"REM", fArith<Op::Rem>},
    {L"1+", fStep<1>},
    {L"1-", fStep<-1>},
    {L"ABS", fAbs},
    {L"MIN", fMinMax<false>},
    {L"MAX", fMinMax<true>},
    {L"FIX", fFix},
    {L"FLOAT", fFloat},
    {L"SQRT", fSqrt},
    {L"SIN", fReal1<sinOf>},
    {L"COS", fReal1<cosOf>},
    {L"EXP", fReal1<expOf>},
    {L"ATAN", fAtan},
    {L"LOG", fLog},
    {L"EXPT", fExpt},
    {L"GCD", fGcd},
    {L"LOGAND", fLogic<true>},
    {L"LOGIOR", fLogic<false>},
    {L"LSH", fLsh},
    {L"~", fNot},
    {L"BOOLE", fBoole},
    {L"ZEROP", fZerop},
    {L"MINUSP", fMinusp},
    {L"POLAR", fPolar},
    {L"DISTANCE", fDistance},
    {L"ANGLE", fAngle},
    {L"INTERS", fInters},
};

}  // namespace

void installMath(Interp &in) {
  for (const Entry &e : kMath) in.defineSubr(e.name, e.fn);
  in.setSymbolValue(L"PI", Value::real(kPi));
}

}  // namespace vantry::lisp
