// AutoLISP conversions between numbers and the drawing's unit formats:
// rtos and distof for lengths, angtos and angtof for angles.
//
// Length formats (mode): 1 scientific "1.7500E+01", 2 decimal "17.50",
// 3 engineering "1'-5.50\"", 4 architectural "1'-5 1/2\"", 5 fractional
// "17 1/2". Engineering and architectural values are inches. Angle formats
// (unit): 0 degrees "45.0000", 1 degrees/minutes/seconds "45d0'0\"", 2 grads
// "50.0000g", 3 radians "0.7854r", 4 surveyor's bearing "N 45d0'0\" E".
//
// The host's unit variables are fixed at their defaults here: LUNITS 2,
// LUPREC 4, AUNITS 0, AUPREC 0, UNITMODE 0 (blanks and dashes as shown above)
// and DIMZIN 0 (no trailing-zero suppression; zero feet and exactly zero
// inches are left out of feet-and-inch values: "6\"", "1'").
#include <cmath>
#include <cstdio>
#include <numbers>
#include <numeric>
#include <optional>
#include <string>
#include <string_view>

#include "lisp/lisp.h"

namespace vantry::lisp {

namespace {

constexpr int kLunits = 2, kLuprec = 4, kAunits = 0, kAuprec = 0;
constexpr double kTwoPi = 2 * std::numbers::pi;

bool present(const Value *args, int nargs, int i) {
  return i < nargs && !args[i].isNil();
}

[[noreturn]] void badValue(Interp &in, const Value &v) {
  in.error(L"bad argument value: " + in.toString(v, true));
}

std::wstring printf1(const wchar_t *fmt, int prec, double v) {
  wchar_t buf[512];
  std::swprintf(buf, 512, fmt, prec, v);
  return buf;
}

// Fixed-point text without the sign of a value that rounds to zero.
std::wstring fixed(double v, int prec) {
  std::wstring s = printf1(L"%.*f", prec, v);
  if (s[0] == L'-' && s.find_first_not_of(L"-0.") == std::wstring::npos) s.erase(0, 1);
  return s;
}

std::wstring integerText(double v) {
  return printf1(L"%.*f", 0, v);
}

// n/den in lowest terms; n is in 1..den-1.
std::wstring fraction(int64_t n, int64_t den) {
  int64_t g = std::gcd(n, den);
  return std::to_wstring(n / g) + L"/" + std::to_wstring(den / g);
}

// Whole units and a fraction of 1/den: "17", "1/2", "17 1/2"; "0 1/2" when
// the zero is asked for (inches after feet).
std::wstring mixed(double units, int64_t den, bool keepZero = false) {
  double whole = std::floor(units / den);
  int64_t frac = int64_t(units - whole * den);
  if (frac == 0) return integerText(whole);
  if (whole == 0 && !keepZero) return fraction(frac, den);
  return integerText(whole) + L" " + fraction(frac, den);
}

// Feet and inches with zero feet and zero inches left out (DIMZIN 0).
std::wstring feetInches(double feet, bool zeroInches, const std::wstring &inches) {
  if (feet == 0) return inches + L"\"";
  if (zeroInches) return integerText(feet) + L"'";
  return integerText(feet) + L"'-" + inches + L"\"";
}

std::wstring formatLength(double x, int mode, int prec) {
  if (!std::isfinite(x)) return fixed(x, prec);
  if (mode == 1) return printf1(L"%.*E", prec, x);
  if (mode == 2) return fixed(x, prec);
  std::wstring sign = x < 0 ? L"-" : L"";
  double a = std::fabs(x);
  std::wstring body;
  if (mode == 3) {
    // Count in units of the last printed inch digit, so that rounding up to
    // a whole foot carries into the feet.
    double scale = std::pow(10.0, prec);
    double units = std::round(a * scale);
    double feet = std::floor(units / (12 * scale));
    double inchUnits = units - feet * 12 * scale;
    body = feetInches(feet, inchUnits == 0, fixed(inchUnits / scale, prec));
    if (units == 0) sign.clear();
  } else {
    int64_t den = int64_t(1) << std::min(prec, 8);
    double units = std::round(a * double(den));
    if (units == 0) sign.clear();
    if (mode == 5) return sign + mixed(units, den);
    double feet = std::floor(units / double(12 * den));
    double inchUnits = units - feet * double(12 * den);
    body = feetInches(feet, inchUnits == 0, mixed(inchUnits, den, feet != 0));
  }
  return sign + body;
}

// --- Parsing lengths -------------------------------------------------------------

// A small cursor over the text being parsed.
struct Scan {
  std::wstring_view s;
  size_t i = 0;
  bool eat(wchar_t c) {
    if (i < s.size() && s[i] == c) return ++i, true;
    return false;
  }
  void blanks() {
    while (i < s.size() && s[i] == L' ') ++i;
  }
  bool done() const { return i == s.size(); }
  bool digitAhead() const { return i < s.size() && s[i] >= L'0' && s[i] <= L'9'; }
};

std::optional<double> unsignedInt(Scan &sc) {
  if (!sc.digitAhead()) return std::nullopt;
  double v = 0;
  while (sc.digitAhead()) v = v * 10 + (sc.s[sc.i++] - L'0');
  return v;
}

// digits [. digits] | . digits, then an optional exponent.
std::optional<double> decimal(Scan &sc) {
  size_t start = sc.i;
  while (sc.digitAhead()) ++sc.i;
  if (sc.eat(L'.'))
    while (sc.digitAhead()) ++sc.i;
  std::wstring_view body = sc.s.substr(start, sc.i - start);
  if (body.empty() || body == L".") return sc.i = start, std::nullopt;
  if (sc.i < sc.s.size() && (sc.s[sc.i] == L'e' || sc.s[sc.i] == L'E')) {
    size_t save = sc.i++;
    if (!sc.eat(L'+')) sc.eat(L'-');
    if (!sc.digitAhead()) sc.i = save;
    while (sc.digitAhead()) ++sc.i;
  }
  return std::wcstod(std::wstring(sc.s.substr(start, sc.i - start)).c_str(), nullptr);
}

// A number as typed for a length: "17.5", "1.75E+01", "1/2", "17 1/2" or
// "17-1/2".
std::optional<double> lengthNumber(Scan &sc) {
  size_t start = sc.i;
  if (auto whole = unsignedInt(sc)) {
    if (sc.eat(L'/')) {
      if (auto den = unsignedInt(sc); den && *den != 0) return *whole / *den;
      sc.i = start;
      return std::nullopt;
    }
    if (sc.eat(L' ') || sc.eat(L'-')) {
      Scan probe = sc;
      auto num = unsignedInt(probe);
      if (num && probe.eat(L'/')) {
        if (auto den = unsignedInt(probe); den && *den != 0) {
          sc = probe;
          return *whole + *num / *den;
        }
      }
    }
    sc.i = start;
  }
  return decimal(sc);
}

std::optional<double> parseLength(std::wstring_view text, int mode) {
  Scan sc{text};
  sc.blanks();
  bool neg = sc.eat(L'-');
  if (!neg) sc.eat(L'+');
  auto first = lengthNumber(sc);
  if (!first) return std::nullopt;
  double v = *first;
  if (mode == 3 || mode == 4) {
    if (sc.eat(L'\'')) {
      v *= 12;
      sc.blanks();
      if (!sc.eat(L'-')) sc.blanks();
      if (!sc.done()) {
        auto inches = lengthNumber(sc);
        if (!inches) return std::nullopt;
        v += *inches;
        sc.eat(L'"');
      }
    } else {
      sc.eat(L'"');
    }
  }
  sc.blanks();
  if (!sc.done()) return std::nullopt;
  return neg ? -v : v;
}

// --- Angles ------------------------------------------------------------------------

// Degrees/minutes/seconds of a count of units, perDeg units to the degree.
// Precision 0 shows degrees, 1-2 minutes, 3-4 seconds, 5-8 decimals of a second.
std::wstring dms(int64_t units, int64_t perDeg, int prec) {
  std::wstring s = std::to_wstring(units / perDeg) + L"d";
  if (prec == 0) return s;
  int64_t rem = units % perDeg, perMin = perDeg / 60;
  s += std::to_wstring(rem / perMin) + L"'";
  if (prec <= 2) return s;
  rem %= perMin;
  if (prec <= 4) return s + std::to_wstring(rem) + L"\"";
  int decimals = prec - 4;
  return s + fixed(double(rem) / std::pow(10.0, decimals), decimals) + L"\"";
}

int64_t dmsPerDegree(int prec) {
  if (prec == 0) return 1;
  if (prec <= 2) return 60;
  int64_t per = 3600;
  for (int p = 4; p < prec; ++p) per *= 10;
  return per;
}

// A decimal value of a whole turn of `turn` units, wrapped so that a value
// rounding up to a full turn reads as zero.
std::wstring wrapped(double v, double turn, int prec) {
  double scale = std::pow(10.0, prec);
  double units = std::round(v * scale);
  if (units >= std::round(turn * scale)) units = 0;
  return fixed(units / scale, prec);
}

std::wstring formatAngle(double rad, int unit, int prec) {
  rad = std::fmod(rad, kTwoPi);
  if (rad < 0) rad += kTwoPi;
  double deg = rad * 180 / std::numbers::pi;
  switch (unit) {
    case 0:
      return wrapped(deg, 360, prec);
    case 2:
      return wrapped(deg * 400 / 360, 400, prec) + L"g";
    case 3:
      return wrapped(rad, kTwoPi, prec) + L"r";
    default:
      break;
  }
  prec = std::min(prec, 8);
  int64_t perDeg = dmsPerDegree(prec);
  int64_t turn = 360 * perDeg, quarter = 90 * perDeg;
  int64_t units = int64_t(std::llround(deg * double(perDeg))) % turn;
  if (unit == 1) return dms(units, perDeg, prec);
  // Surveyor's: the bearing from north or south towards east or west.
  if (units == 0) return L"E";
  if (units == quarter) return L"N";
  if (units == 2 * quarter) return L"W";
  if (units == 3 * quarter) return L"S";
  int q = int(units / quarter);
  static constexpr const wchar_t *kNs[] = {L"N", L"N", L"S", L"S"};
  static constexpr const wchar_t *kEw[] = {L"E", L"W", L"W", L"E"};
  int64_t b = (q % 2 == 0) ? (q + 1) * quarter - units : units - q * quarter;
  return std::wstring(kNs[q]) + L" " + dms(b, perDeg, prec) + L" " + kEw[q];
}

// An angle as typed: a number in the unit's measure, or with its own mark:
// "45d30'15\"", "50g", "0.785r"; or a bearing "N 45d E", or "N", "E"...
std::optional<double> angleValue(Scan &sc, int unit) {
  auto v = decimal(sc);
  if (!v) return std::nullopt;
  if (sc.eat(L'd') || sc.eat(L'D')) {
    double deg = *v;
    size_t save = sc.i;
    if (auto m = decimal(sc); m && sc.eat(L'\'')) {
      deg += *m / 60;
      save = sc.i;
      if (auto s = decimal(sc); s && sc.eat(L'"'))
        deg += *s / 3600;
      else
        sc.i = save;
    } else {
      sc.i = save;
    }
    return deg * std::numbers::pi / 180;
  }
  if (sc.eat(L'g') || sc.eat(L'G')) return *v * std::numbers::pi / 200;
  if (sc.eat(L'r') || sc.eat(L'R')) return *v;
  if (unit == 2) return *v * std::numbers::pi / 200;
  if (unit == 3) return *v;
  return *v * std::numbers::pi / 180;
}

std::optional<double> parseAngle(std::wstring_view text, int unit) {
  std::wstring up = upcase(text);
  Scan sc{up};
  sc.blanks();
  std::optional<double> r;
  wchar_t ns = sc.done() ? 0 : sc.s[sc.i];
  if (ns == L'N' || ns == L'S' || ns == L'E' || ns == L'W') {
    ++sc.i;
    sc.blanks();
    if (sc.done()) {
      r = ns == L'E' ? 0 : ns == L'N' ? 0.5 : ns == L'W' ? 1 : 1.5;
      r = *r * std::numbers::pi;
    } else if (ns == L'N' || ns == L'S') {
      auto b = angleValue(sc, unit == 4 ? 0 : unit);
      sc.blanks();
      wchar_t ew = sc.done() ? 0 : sc.s[sc.i++];
      if (!b || (ew != L'E' && ew != L'W')) return std::nullopt;
      double axis = ns == L'N' ? std::numbers::pi / 2 : 3 * std::numbers::pi / 2;
      bool towardsZero = (ns == L'N') == (ew == L'E');
      r = towardsZero ? axis - *b : axis + *b;
    }
  } else {
    bool neg = sc.eat(L'-');
    r = angleValue(sc, unit);
    if (r && neg) r = -*r;
  }
  sc.blanks();
  if (!r || !sc.done()) return std::nullopt;
  double a = std::fmod(*r, kTwoPi);
  return a < 0 ? a + kTwoPi : a;
}

// --- Built-ins -----------------------------------------------------------------------

Value fRtos(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 3);
  double x = numArg(in, args[0]);
  int mode = present(args, nargs, 1) ? intArg(in, args[1]) : kLunits;
  int prec = present(args, nargs, 2) ? intArg(in, args[2]) : kLuprec;
  if (mode < 1 || mode > 5) badValue(in, args[1]);
  if (prec < 0) badValue(in, args[2]);
  return makeString(formatLength(x, mode, std::min(prec, 16)));
}

Value fDistof(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 2);
  const std::wstring &s = strArg(in, args[0]);
  int mode = present(args, nargs, 1) ? intArg(in, args[1]) : kLunits;
  if (mode < 1 || mode > 5) badValue(in, args[1]);
  auto v = parseLength(s, mode);
  return v ? Value::real(*v) : Value();
}

// angtos answers nil for a unit it does not know.
Value fAngtos(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 3);
  double a = numArg(in, args[0]);
  int unit = present(args, nargs, 1) ? intArg(in, args[1]) : kAunits;
  int prec = present(args, nargs, 2) ? intArg(in, args[2]) : kAuprec;
  if (prec < 0) badValue(in, args[2]);
  if (unit < 0 || unit > 4 || !std::isfinite(a)) return Value();
  return makeString(formatAngle(a, unit, std::min(prec, 16)));
}

Value fAngtof(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 2);
  const std::wstring &s = strArg(in, args[0]);
  int unit = present(args, nargs, 1) ? intArg(in, args[1]) : kAunits;
  if (unit < 0 || unit > 4) return Value();
  auto v = parseAngle(s, unit);
  return v ? Value::real(*v) : Value();
}

}  // namespace

void installUnits(Interp &in) {
  in.defineSubr(L"rtos", fRtos);
  in.defineSubr(L"distof", fDistof);
  in.defineSubr(L"angtos", fAngtos);
  in.defineSubr(L"angtof", fAngtof);
}

}  // namespace vantry::lisp
