// Checking a filed shape's text before the library's shape reader sees it.
//
// The reader trusts its input. A count it reads is room it reserves; a composite location reads
// pairs until an end marker; and a curve or surface built on another one (a trimmed or offset
// curve, an extrusion, a revolution, a trimmed or offset surface) is built on whatever the inner
// record gave, which is nothing when that record was damaged: the outer constructor then follows a
// null pointer. So the tables are walked here first, record by record, with the layout each record
// type has, and every curve and surface record is built on its own, innermost first: a record that
// builds nothing, or does not end where its layout says, refuses the text.
#include <Geom2d_Curve.hxx>
#include <GeomTools_Curve2dSet.hxx>
#include <GeomTools_CurveSet.hxx>
#include <GeomTools_SurfaceSet.hxx>
#include <Geom_Curve.hxx>
#include <Geom_Surface.hxx>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string_view>

#include "solid_internal.h"

namespace vantry::solid {

namespace {

constexpr const char *kTables[] = {
    "Locations", "Curve2ds",       "Curves",    "Polygon3D", "PolygonOnTriangulations",
    "Surfaces",  "Triangulations", "Polygon2D", "TShapes"};

// The text after "<table> " on the line where a table starts, or npos when the table is absent.
size_t tableAt(const std::string &text, std::string_view table) {
  for (size_t at = 0; at < text.size();) {
    size_t eol = text.find('\n', at);
    if (eol == std::string::npos) eol = text.size();
    std::string_view line(text.data() + at, eol - at);
    if (line.size() > table.size() && line.substr(0, table.size()) == table && line[table.size()] == ' ')
      return at + table.size() + 1;
    at = eol + 1;
  }
  return std::string::npos;
}

// Whether the table counts of a shape text fit the text: every entry of a table (locations, curves,
// surfaces, polygons, triangulations, shapes) takes at least one line, so a count larger than the
// lines that follow it is damage. The shape reader would believe it and reserve room for that many
// entries, and a count of two thousand million never finishes.
bool countsFit(const std::string &text) {
  size_t linesLeft = static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
  size_t at = 0;
  while (at < text.size()) {
    size_t eol = text.find('\n', at);
    if (eol == std::string::npos) eol = text.size();
    if (linesLeft > 0) --linesLeft;
    std::string_view line(text.data() + at, eol - at);
    for (const char *table : kTables) {
      std::string_view name(table);
      if (line.size() <= name.size() || line.substr(0, name.size()) != name || line[name.size()] != ' ')
        continue;
      std::string_view rest = line.substr(name.size() + 1);
      while (!rest.empty() && rest.back() == ' ') rest.remove_suffix(1);
      if (rest.empty() || rest.size() > 12 || rest.find_first_not_of("0123456789") != std::string_view::npos)
        return false;
      if (std::stoull(std::string(rest)) > linesLeft) return false;
    }
    at = eol + 1;
  }
  return true;
}

// Whether the location table of a shape text is well formed. The shape reader reads a composite
// location's (index, power) pairs until a zero index, and reads on for ever when damage took the
// zero away; so the table is read here first: each entry a matrix (type 1, twelve numbers) or pairs
// of an earlier entry's index and a power, ended by 0 (type 2).
bool locationsFit(const std::string &text) {
  size_t at = tableAt(text, "Locations");
  if (at == std::string::npos) return true;
  std::istringstream in(text.substr(at));
  long count = 0;
  if (!(in >> count) || count < 0) return false;
  for (long i = 1; i <= count; ++i) {
    int type = 0;
    if (!(in >> type)) return false;
    if (type == 1) {
      double v;
      for (int k = 0; k < 12; ++k)
        if (!(in >> v) || !std::isfinite(v)) return false;
    } else if (type == 2) {
      for (;;) {
        long index = 0, power = 0;
        if (!(in >> index)) return false;
        if (index == 0) break;
        if (index < 1 || index >= i || !(in >> power)) return false;
      }
    } else {
      return false;
    }
  }
  return true;
}

// The records of the geometry tables, read token by token.
class GeometryTables {
 public:
  explicit GeometryTables(const std::string &text) : text_(text) {}

  bool fit() {
    return table("Curve2ds", [this] { return curve(0, 2); }) &&
           table("Curves", [this] { return curve(0, 3); }) &&
           table("Surfaces", [this] { return surface(0); }) && empty("Polygon3D") &&
           empty("PolygonOnTriangulations") && empty("Triangulations") && empty("Polygon2D");
  }

 private:
  // Nesting a real shape never reaches (an offset of a trimmed curve is two deep); each level reads
  // the levels inside it again, so the depth is bounded.
  static constexpr int kDeepest = 6;

  template <class Record>
  bool table(std::string_view name, Record record) {
    at_ = tableAt(text_, name);
    if (at_ == std::string::npos) return true;
    long count = 0;
    if (!whole(count) || count < 0) return false;
    for (long i = 0; i < count; ++i)
      if (!record()) return false;
    return true;
  }

  // The mesh tables: filing writes the shapes without triangles, so they are empty.
  bool empty(std::string_view name) {
    at_ = tableAt(text_, name);
    long count = 0;
    return at_ == std::string::npos || (whole(count) && count == 0);
  }

  std::string_view token() {
    at_ = text_.find_first_not_of(" \t\r\n", at_);
    if (at_ == std::string::npos) return at_ = text_.size(), std::string_view();
    size_t end = std::min(text_.find_first_of(" \t\r\n", at_), text_.size());
    std::string_view t(text_.data() + at_, end - at_);
    at_ = end;
    return t;
  }
  bool whole(long &value) {
    std::string_view t = token();
    if (t.empty() || t.size() > 10) return false;
    std::string s(t);
    char *end = nullptr;
    value = std::strtol(s.c_str(), &end, 10);
    return *end == '\0';
  }
  bool count(long &value) { return whole(value) && value >= 0; }
  bool flag(bool &value) {
    std::string_view t = token();
    value = t == "1";
    return t == "0" || t == "1";
  }
  bool reals(long n) {
    for (long i = 0; i < n; ++i) {
      std::string_view t = token();
      if (t.empty() || t.size() > 64) return false;
      std::string s(t);
      char *end = nullptr;
      double v = std::strtod(s.c_str(), &end);
      if (*end != '\0' || !std::isfinite(v)) return false;
    }
    return true;
  }
  // n poles of a given dimension, each with its weight when rational. The counts are read from the
  // text, so the product is checked against what the text can hold before the loop.
  bool poles(long n, int dimension, bool rational) {
    long each = dimension + (rational ? 1 : 0);
    if (n > static_cast<long>(text_.size()) / each) return false;
    return reals(n * each);
  }
  bool knots(long n) {
    if (n > static_cast<long>(text_.size()) / 2) return false;
    for (long i = 0; i < n; ++i) {
      long multiplicity = 0;
      if (!reals(1) || !count(multiplicity)) return false;
    }
    return true;
  }
  bool spline(int dimension) {
    bool rational = false, periodic = false;
    long degree = 0, nPoles = 0, nKnots = 0;
    return flag(rational) && flag(periodic) && count(degree) && count(nPoles) && count(nKnots) &&
           poles(nPoles, dimension, rational) && knots(nKnots);
  }
  bool bezier(int dimension) {
    bool rational = false;
    long degree = 0;
    return flag(rational) && count(degree) && poles(degree + 1, dimension, rational);
  }

  // One record of a curve table, of 3D curves or of curves on surfaces (dimension 2); nested is the
  // record a trimmed or offset curve is built on.
  bool curve(int depth, int dimension) {
    size_t start = at_;
    long type = 0;
    if (depth > kDeepest || !whole(type)) return false;
    // Lines, circles, ellipses, parabolas and hyperbolas: their axes and sizes.
    static const long kReals3d[] = {0, 6, 13, 14, 13, 14}, kReals2d[] = {0, 4, 7, 8, 7, 8};
    const bool planar = dimension == 2;
    bool layout = type >= 1 && type <= 5 ? reals((planar ? kReals2d : kReals3d)[type])
                  : type == 6            ? bezier(dimension)
                  : type == 7            ? spline(dimension)
                  : type == 8            ? reals(2) && curve(depth + 1, dimension)
                  : type == 9            ? reals(planar ? 1 : 4) && curve(depth + 1, dimension)
                                         : false;
    if (!layout) return false;
    if (planar)
      return builds(start, [](std::istream &in) { return !GeomTools_Curve2dSet::ReadCurve2d(in).IsNull(); });
    return builds(start, [](std::istream &in) { return !GeomTools_CurveSet::ReadCurve(in).IsNull(); });
  }
  bool surface(int depth) {
    size_t start = at_;
    long type = 0;
    if (depth > kDeepest || !whole(type)) return false;
    static const long kReals[] = {0, 12, 13, 14, 13, 14};
    bool layout = false;
    if (type >= 1 && type <= 5) {
      layout = reals(kReals[type]);
    } else if (type == 6 || type == 7) {
      layout = reals(type == 6 ? 3 : 6) && curve(depth + 1, 3);
    } else if (type == 8) {
      bool uRational = false, vRational = false;
      long uDegree = 0, vDegree = 0;
      layout = flag(uRational) && flag(vRational) && count(uDegree) && count(vDegree) &&
               uDegree < static_cast<long>(text_.size()) && vDegree < static_cast<long>(text_.size()) &&
               poles((uDegree + 1) * (vDegree + 1), 3, uRational || vRational);
    } else if (type == 9) {
      bool uRational = false, vRational = false, uPeriodic = false, vPeriodic = false;
      long uDegree = 0, vDegree = 0, uPoles = 0, vPoles = 0, uKnots = 0, vKnots = 0;
      layout = flag(uRational) && flag(vRational) && flag(uPeriodic) && flag(vPeriodic) && count(uDegree) &&
               count(vDegree) && count(uPoles) && count(vPoles) && count(uKnots) && count(vKnots) &&
               uPoles < static_cast<long>(text_.size()) && vPoles < static_cast<long>(text_.size()) &&
               poles(uPoles * vPoles, 3, uRational || vRational) && knots(uKnots) && knots(vKnots);
    } else if (type == 10 || type == 11) {
      layout = reals(type == 10 ? 4 : 1) && surface(depth + 1);
    }
    return layout &&
           builds(start, [](std::istream &in) { return !GeomTools_SurfaceSet::ReadSurface(in).IsNull(); });
  }

  // Whether the library builds something from the record between start and here, and reads exactly
  // that record. Its readers catch their own constructors' failures and answer nothing; a stream
  // that fails throws, as in the shape reader itself.
  template <class Read>
  bool builds(size_t start, Read read) {
    std::istringstream in(text_.substr(start, at_ - start));
    in.exceptions(std::ios::failbit | std::ios::badbit);
    std::ostringstream chatter;  // the readers report what they caught on standard output
    std::streambuf *console = std::cout.rdbuf(chatter.rdbuf());
    std::string ignored;
    bool built = guarded(ignored, "", [&] {
      if (!read(in)) return false;
      in.exceptions(std::ios::goodbit);
      in >> std::ws;
      return in.eof();
    });
    std::cout.rdbuf(console);
    return built;
  }

  const std::string &text_;
  size_t at_ = 0;
};

}  // namespace

bool shapeTextFits(const std::string &text) {
  return countsFit(text) && locationsFit(text) && GeometryTables(text).fit();
}

}  // namespace vantry::solid
