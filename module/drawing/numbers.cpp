// The module's number functions: arc sine and cosine, power, the leading
// number of a text, and the C run-time's random numbers (seeded once at
// start-up).
#include <cmath>
#include <cstdint>
#include <cwchar>

#include "drawing/crt_random.h"
#include "frame/implementations.h"
#include "frame/value_list.h"

namespace vantry::lispfn {
namespace {

using frame::ArgList;

// One real in, one real out.
int realFunction(double (*f)(double)) {
  acedRetNil();
  ArgList args;
  double x;
  if (!frame::readReal(args.cursor(), x)) return 2;
  acedRetReal(f(x));
  return 0;
}

// One generator for the process, as the host's C library keeps one: the
// module seeds it at start-up on one thread and LISP draws on another.
uint32_t g_randState = 1;

}  // namespace

}  // namespace vantry::lispfn

namespace vantry::crt {

void srand(unsigned seed) {
  lispfn::g_randState = seed;
}

int rand() {
  lispfn::g_randState = lispfn::g_randState * 214013u + 2531011u;
  return static_cast<int>((lispfn::g_randState >> 16) & 0x7fff);
}

}  // namespace vantry::crt

namespace vantry::lispfn {

int asin() {
  return realFunction(::asin);
}
int acos() {
  return realFunction(::acos);
}

int ol_pow() {
  acedRetNil();
  ArgList args;
  double base, exponent;
  if (!frame::readReal(args.cursor(), base)) return 2;
  if (!frame::readReal(args.cursor(), exponent)) return 2;
  acedRetReal(std::pow(base, exponent));
  return 0;
}

int ol_atof() {
  acedRetNil();
  ArgList args;
  std::wstring text;
  if (!frame::readString(args.cursor(), text)) return 2;
  // The leading number of the text, 0.0 when there is none.
  acedRetReal(std::wcstod(text.c_str(), nullptr));
  return 0;
}

// Without an argument (or with -1): rand(), 0..32767. With n: rand() modulo n, the C
// remainder (0..n-1 for a positive n). n = 0 has no remainder: the result is
// nil, with no message, as for every path of this function that sets
// nothing; the division is never made.
int ol_ol_rand() {
  acedRetNil();
  ArgList args;
  int n = -1;
  resbuf *&cur = args.cursor();
  if (cur && (cur->restype == RTSHORT || cur->restype == RTLONG)) frame::readInteger(cur, n);
  if (n == 0) return 0;
  int r = crt::rand();
  frame::returnInteger(n == -1 ? r : r % n);
  return 0;
}

}  // namespace vantry::lispfn
