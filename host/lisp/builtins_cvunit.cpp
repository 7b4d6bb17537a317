// cvunit: conversion between named units of measure.
//
// Each unit is a factor to the base unit of its dimension (metre, radian,
// kilogram, second, kelvin) and, for temperatures, an offset: base = value *
// factor + offset. A dimension is a vector of powers of length, angle, mass,
// time and temperature, so square and cubic lengths come from the length
// units ("sq foot", "square meter", "cubic inch"), and two units convert only
// when their dimensions are equal. Names are matched without regard to case
// and with a plural "s" or "es" allowed, as the unit file of the host spells
// them: "inch", "inches", "in", "foot", "feet", "ft" ...
#include <cmath>

#include "lisp/lisp.h"

namespace vantry::lisp {
namespace {

struct Dim {
  int length = 0, angle = 0, mass = 0, time = 0, temp = 0;
  bool operator==(const Dim &) const = default;
};

struct Unit {
  double factor = 1, offset = 0;
  Dim dim;
};

struct UnitDef {
  const wchar_t *names;  // comma-separated; the first ones take a plural "s"
  double factor, offset;
  Dim dim;
};

constexpr Dim kLength{1, 0, 0, 0, 0}, kAngle{0, 1, 0, 0, 0}, kMass{0, 0, 1, 0, 0}, kTime{0, 0, 0, 1, 0},
    kTemp{0, 0, 0, 0, 1}, kArea{2, 0, 0, 0, 0}, kVolume{3, 0, 0, 0, 0};

const UnitDef kUnits[] = {
    // Lengths, in metres.
    {L"meter,metre,m", 1, 0, kLength},
    {L"millimeter,millimetre,mm", 1e-3, 0, kLength},
    {L"centimeter,centimetre,cm", 1e-2, 0, kLength},
    {L"decimeter,decimetre,dm", 1e-1, 0, kLength},
    {L"kilometer,kilometre,km", 1e3, 0, kLength},
    {L"micron,micrometer,micrometre", 1e-6, 0, kLength},
    {L"nanometer,nanometre,nm", 1e-9, 0, kLength},
    {L"angstrom", 1e-10, 0, kLength},
    {L"inch,in", 0.0254, 0, kLength},
    {L"foot,feet,ft", 0.3048, 0, kLength},
    {L"yard,yd", 0.9144, 0, kLength},
    {L"mile,mi", 1609.344, 0, kLength},
    {L"mil", 0.0000254, 0, kLength},
    {L"rod,pole,perch", 5.0292, 0, kLength},
    {L"chain", 20.1168, 0, kLength},
    {L"furlong", 201.168, 0, kLength},
    {L"fathom", 1.8288, 0, kLength},
    {L"nautical mile", 1852, 0, kLength},
    {L"survey foot,survey feet", 1200.0 / 3937.0, 0, kLength},
    {L"astronomical unit,au", 149597870700.0, 0, kLength},
    {L"light year", 9460730472580800.0, 0, kLength},
    {L"parsec", 3.0856775814913673e16, 0, kLength},
    // Areas and volumes with names of their own.
    {L"acre", 4046.8564224, 0, kArea},
    {L"hectare,ha", 1e4, 0, kArea},
    {L"are", 100, 0, kArea},
    {L"liter,litre,l", 1e-3, 0, kVolume},
    {L"milliliter,millilitre,ml", 1e-6, 0, kVolume},
    {L"gallon,gal", 0.003785411784, 0, kVolume},
    {L"quart,qt", 0.000946352946, 0, kVolume},
    {L"pint,pt", 0.000473176473, 0, kVolume},
    {L"fluid ounce", 2.95735295625e-5, 0, kVolume},
    {L"cup", 2.365882365e-4, 0, kVolume},
    {L"barrel", 0.158987294928, 0, kVolume},
    // Angles, in radians.
    {L"radian,rad", 1, 0, kAngle},
    {L"degree,deg", M_PI / 180, 0, kAngle},
    {L"grad,gradian,gon", M_PI / 200, 0, kAngle},
    {L"circle,revolution", 2 * M_PI, 0, kAngle},
    {L"right angle", M_PI / 2, 0, kAngle},
    // Masses, in kilograms.
    {L"kilogram,kg", 1, 0, kMass},
    {L"gram,g", 1e-3, 0, kMass},
    {L"milligram,mg", 1e-6, 0, kMass},
    {L"tonne,metric ton", 1e3, 0, kMass},
    {L"pound,lb", 0.45359237, 0, kMass},
    {L"ounce,oz", 0.028349523125, 0, kMass},
    {L"ton,short ton", 907.18474, 0, kMass},
    {L"long ton", 1016.0469088, 0, kMass},
    {L"stone", 6.35029318, 0, kMass},
    // Times, in seconds.
    {L"second,sec", 1, 0, kTime},
    {L"millisecond,msec", 1e-3, 0, kTime},
    {L"minute,min", 60, 0, kTime},
    {L"hour,hr", 3600, 0, kTime},
    {L"day", 86400, 0, kTime},
    {L"week", 604800, 0, kTime},
    {L"year,yr", 31557600, 0, kTime},
    // Temperatures, in kelvins.
    {L"kelvin,k", 1, 0, kTemp},
    {L"celsius,centigrade,c", 1, 273.15, kTemp},
    {L"fahrenheit,f", 5.0 / 9.0, 273.15 - 32 * 5.0 / 9.0, kTemp},
    {L"rankine,r", 5.0 / 9.0, 0, kTemp},
};

std::wstring trim(std::wstring s) {
  size_t a = s.find_first_not_of(L' '), b = s.find_last_not_of(L' ');
  if (a == std::wstring::npos) return L"";
  s = s.substr(a, b - a + 1);
  // Runs of spaces count as one.
  std::wstring out;
  for (wchar_t c : s)
    if (c != L' ' || out.empty() || out.back() != L' ') out += c;
  return out;
}

const UnitDef *findSimple(const std::wstring &name) {
  auto matches = [&](std::wstring_view candidate) {
    if (name == candidate) return true;
    // A plural, unless the name is an abbreviation (three letters or fewer).
    if (candidate.size() <= 3) return false;
    if (name.size() == candidate.size() + 1 && name.back() == L's' && name.starts_with(candidate)) return true;
    if (name.size() == candidate.size() + 2 && name.ends_with(L"es") && name.starts_with(candidate)) return true;
    return false;
  };
  for (const UnitDef &u : kUnits) {
    std::wstring_view all = u.names;
    size_t start = 0;
    while (start <= all.size()) {
      size_t end = all.find(L',', start);
      if (end == std::wstring_view::npos) end = all.size();
      if (matches(all.substr(start, end - start))) return &u;
      start = end + 1;
    }
  }
  return nullptr;
}

bool findUnit(std::wstring name, Unit &out) {
  name = trim(downcase(name));
  if (name.empty()) return false;
  int power = 1;
  for (auto [prefix, p] : {std::pair{L"sq ", 2}, {L"square ", 2}, {L"cu ", 3}, {L"cubic ", 3}}) {
    if (name.starts_with(prefix)) {
      power = p;
      name = name.substr(wcslen(prefix));
      break;
    }
  }
  const UnitDef *def = findSimple(name);
  if (!def) return false;
  if (power > 1 && !(def->dim == kLength)) return false;
  out.factor = std::pow(def->factor, power);
  out.offset = def->offset;
  out.dim = def->dim;
  out.dim.length *= power;
  return true;
}

// (cvunit value from to): the value (a number, or a list of numbers such as
// a point) converted; nil when either name is unknown or the two measure
// different things.
Value fCvunit(Interp &in, const Value *a, int n) {
  needArgs(in, n, 3, 3);
  const std::wstring &fromName = strArg(in, a[1]);
  const std::wstring &toName = strArg(in, a[2]);
  if (!a[0].isNumber() && !a[0].isCons()) in.badArgType(L"numberp", a[0]);
  Unit from, to;
  if (!findUnit(fromName, from) || !findUnit(toName, to) || !(from.dim == to.dim)) return Value();
  auto convert = [&](double v) { return ((v * from.factor + from.offset) - to.offset) / to.factor; };
  if (a[0].isNumber()) return Value::real(convert(a[0].number()));
  ListBuilder b;
  for (const Value *p = &a[0]; p->isCons(); p = &p->as<Cons>()->cdr) {
    const Value &x = p->as<Cons>()->car;
    if (!x.isNumber()) in.badArgType(L"numberp", x);
    b.add(Value::real(convert(x.number())));
  }
  return b.take();
}

}  // namespace

void installCvunit(Interp &in) {
  in.defineSubr(L"CVUNIT", fCvunit);
}

}  // namespace vantry::lisp
