// Editor input: how the host turns the scripted person's answers into
// points, numbers, angles and keywords.
//
// The LISP built-ins (initget, getpoint, getint, ...) and the C API of the
// editor (acedInitGet, acedGetPoint, acedGetInt, acedGetKword, acedGetInput)
// share this code: initGet records the conditions and keywords for the next
// request, ask() runs one request against Session::input (prompt, answer,
// echo, conversion, and re-prompting with the host's message when the answer
// does not fit), and lastInput() is what acedGetInput hands back after a
// keyword. The parse functions are plain conversions with no session.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/arx.h"

namespace vantry::host {
struct InputItem;
}

namespace vantry::host::editor {

// An answer as the command line echoes it: a point as "x,y,z", text as
// typed, "*Cancel*" for Esc, nothing for Enter.
std::wstring echoOf(const InputItem &item);

// initget bits.
enum : int {
  kNoNull = 1,
  kNoZero = 2,
  kNoNegative = 4,
  kNoLimits = 8,
  k3D = 16,
  kDashed = 32,
  kNoZDist = 64,
  kArbitrary = 128,
};

using Point = std::array<double, 3>;

// One keyword of an initget keyword string. `local` is what the person
// types; `global` is what is returned (the same word unless the string has a
// "_" part). A keyword is accepted typed in full (any case) or shortened to
// at least `minimum` letters when `prefix` is set, or typed as exactly
// `minimum` letters otherwise.
struct Keyword {
  std::wstring local, global;
  std::wstring minimum;  // upper case
  bool prefix = true;
};

// Parses "Yes No", "LType eXit", "LTYPE,LT" and "Yes No _Yes No" (local
// keywords, "_", the global ones in the same order). Capital letters mark the
// abbreviation: leading capitals allow any prefix that holds them ("LType":
// LT, LTY, ...); capitals inside the word are an alternative to the whole word
// ("eXit": X or EXIT); a word in one case must be typed whole.
std::vector<Keyword> parseKeywords(std::wstring_view format);
// The keyword the typed text stands for, or null. "_word" matches a global
// keyword.
const Keyword *matchKeyword(const std::vector<Keyword> &keywords, std::wstring_view typed);

// Conversions of typed text. Each accepts surrounding blanks.
std::optional<long long> parseInteger(std::wstring_view text);
std::optional<double> parseReal(std::wstring_view text);
// An angle in radians: a number in the units of AUNITS (0 degrees, 1 degrees
// minutes seconds, 2 grads, 3 radians, 4 surveyor's units), or with its own
// unit: "30d15'10\"", "50g", "1.2r", "N45dE".
std::optional<double> parseAngle(std::wstring_view text, int aunits);
// "x,y" or "x,y,z" (z defaults to 0), "@dx,dy[,dz]" relative to `last`,
// "dist<angle" polar from the origin and "@dist<angle" from `last`.
std::optional<Point> parsePoint(std::wstring_view text, const Point &last, int aunits);

enum class Kind { Point, Corner, String, Int, Real, Kword, Dist, Angle, Orient };

struct Query {
  Kind kind = Kind::Point;
  std::wstring prompt;
  std::optional<Point> base;  // the rubber-band origin, or the first point of a distance/angle
  bool spaces = false;        // getstring: the answer may hold blanks
};

struct Reply {
  // RTNORM (a value of the kind asked for, or the keyword for getkword),
  // RTKWORD (a keyword or arbitrary text: `text`), RTNONE (Enter), RTCAN.
  int status = RTNONE;
  Point point{0, 0, 0};
  long long integer = 0;
  double real = 0;
  std::wstring text;
};

// Sets the conditions and keywords of the next request (any kind but
// String, which ignores them and clears them).
void initGet(int bits, std::wstring_view keywords);
// Runs one request against the scripted person.
Reply ask(const Query &query);
// The text of the last keyword or arbitrary answer.
const std::wstring &lastInput();

}  // namespace vantry::host::editor
