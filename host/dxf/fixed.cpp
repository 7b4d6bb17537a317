// The parts of a written drawing file that the database does not model but
// strict readers expect, made where the drawing does not keep the file's
// own: the class list, the viewport "*Active", the dimension style
// Standard, and the layout, multiline style, plot settings and plot style
// name objects of the root dictionary.
#include <algorithm>

#include "common/text.h"
#include "dxf/internal.h"

namespace vantry::host::dxf {
namespace {

void reactors(Out &out, uint64_t owner) {
  out.ascii(102, "{ACAD_REACTORS");
  out.handle(330, owner);
  out.ascii(102, "}");
}

void xyz(Out &out, int code, double x, double y, double z) {
  double p[3] = {x, y, z};
  out.point(code, p, 3);
}

void xy(Out &out, int code, double x, double y) {
  double p[2] = {x, y};
  out.point(code, p, 2);
}

}  // namespace

void writeLayout(Out &out, const Fixed &fx, const Fixed::Layout &l) {
  int tab = l.tab;
  out.ascii(0, "LAYOUT");
  out.handle(5, l.handle);
  reactors(out, fx.layoutDict);
  out.handle(330, fx.layoutDict);
  out.ascii(100, "AcDbPlotSettings");
  out.ascii(1, "");
  out.ascii(2, "none_device");
  out.ascii(4, "");
  out.ascii(6, "");
  for (int c = 40; c <= 49; ++c) out.real(c, 0);
  out.real(140, 0);
  out.real(141, 0);
  out.real(142, 1);
  out.real(143, 1);
  out.integer(70, tab == 0 ? 1024 : 0);
  out.integer(72, 1);
  out.integer(73, 0);
  out.integer(74, 5);
  out.ascii(7, "");
  out.integer(75, 16);
  out.real(147, 1);
  out.real(148, 0);
  out.real(149, 0);
  out.ascii(100, "AcDbLayout");
  out.ascii(1, l.name);
  out.integer(70, 1);
  out.integer(71, tab);
  xy(out, 10, 0, 0);
  xy(out, 11, 420, 297);
  xyz(out, 12, 0, 0, 0);
  xyz(out, 14, 1e20, 1e20, 1e20);
  xyz(out, 15, -1e20, -1e20, -1e20);
  out.real(146, 0);
  xyz(out, 13, 0, 0, 0);
  xyz(out, 16, 1, 0, 0);
  xyz(out, 17, 0, 1, 0);
  out.integer(76, 1);
  out.handle(330, l.block);
}

namespace {

void dictionaryHead(Out &out, const char *type, uint64_t handle, uint64_t owner) {
  out.ascii(0, type);
  out.handle(5, handle);
  reactors(out, owner);
  out.handle(330, owner);
  out.ascii(100, "AcDbDictionary");
  out.integer(281, 1);
}

}  // namespace

void writeTableHead(Out &out, const char *name, uint64_t handle, int count) {
  out.ascii(0, "TABLE");
  out.ascii(2, name);
  out.handle(5, handle);
  out.handle(330, 0);
  out.ascii(100, "AcDbSymbolTable");
  out.integer(70, count);
}

// Classes of the objects written that have no fixed type number in the
// layout (1 DXF name, 2 class name, 3 application, 90 proxy flags, 280
// was-a-proxy, 281 is-an-entity): those the file gave, then the writer's
// own that are not among them.
void writeClasses(Out &out, const std::vector<std::vector<AcDbDxfFiler::Item>> &kept) {
  std::vector<std::wstring> names;
  for (const auto &groups : kept) {
    out.ascii(0, "CLASS");
    for (const auto &it : groups) {
      out.item(it);
      if (it.code == 1) names.push_back(upperKey(it.text));
    }
  }
  struct Cls {
    const char *dxf, *cpp;
  };
  static const Cls classes[] = {{"ACDBDICTIONARYWDFLT", "AcDbDictionaryWithDefault"},
                                {"ACDBPLACEHOLDER", "AcDbPlaceHolder"},
                                {"LAYOUT", "AcDbLayout"}};
  for (const Cls &c : classes) {
    if (std::find(names.begin(), names.end(), text::fromUtf8(c.dxf)) != names.end()) continue;
    out.ascii(0, "CLASS");
    out.ascii(1, c.dxf);
    out.ascii(2, c.cpp);
    out.ascii(3, "ObjectDBX Classes");
    out.integer(90, 0);
    out.integer(280, 0);
    out.integer(281, 0);
  }
}

// The viewport "*Active", looking at the drawing's extents.
void writeActiveViewport(Out &out, const Fixed &fx, const AcDbExtents &ext) {
  double cx = 0, cy = 0, h = 297;
  if (!ext.isEmpty()) {
    cx = (ext.minPoint().x + ext.maxPoint().x) / 2;
    cy = (ext.minPoint().y + ext.maxPoint().y) / 2;
    h = std::max({ext.maxPoint().y - ext.minPoint().y, (ext.maxPoint().x - ext.minPoint().x) / 1.5, 1.0}) *
        1.1;
  }
  out.ascii(0, "VPORT");
  out.handle(5, fx.vportActive);
  out.handle(330, fx.vportTable);
  out.ascii(100, "AcDbSymbolTableRecord");
  out.ascii(100, "AcDbViewportTableRecord");
  out.ascii(2, "*Active");
  out.integer(70, 0);
  xy(out, 10, 0, 0);
  xy(out, 11, 1, 1);
  xy(out, 12, cx, cy);
  xy(out, 13, 0, 0);
  xy(out, 14, 10, 10);
  xy(out, 15, 10, 10);
  xyz(out, 16, 0, 0, 1);
  xyz(out, 17, 0, 0, 0);
  out.real(40, h);
  out.real(41, 1.5);
  out.real(42, 50);
  out.real(43, 0);
  out.real(44, 0);
  out.real(50, 0);
  out.real(51, 0);
  static const int flags[][2] = {{71, 0}, {72, 100}, {73, 1}, {74, 3}, {75, 0}, {76, 0}, {77, 0}, {78, 0}};
  for (const auto &f : flags) out.integer(f[0], f[1]);
  out.integer(281, 0);
  out.integer(65, 1);
  xyz(out, 110, 0, 0, 0);
  xyz(out, 111, 1, 0, 0);
  xyz(out, 112, 0, 1, 0);
  out.integer(79, 0);
  out.real(146, 0);
}

// The dimension style "Standard" with metric values and the text style
// "Standard".
void writeStandardDimStyle(Out &out, const Fixed &fx) {
  out.ascii(0, "DIMSTYLE");
  out.handle(105, fx.dimStandard);
  out.handle(330, fx.dimTable);
  out.ascii(100, "AcDbSymbolTableRecord");
  out.ascii(100, "AcDbDimStyleTableRecord");
  out.ascii(2, "Standard");
  out.integer(70, 0);
  static const std::pair<int, double> reals[] = {{40, 1},    {41, 2.5},   {42, 0.625}, {43, 3.75},
                                                 {44, 1.25}, {140, 2.5},  {141, 2.5},  {143, 0.03937007874},
                                                 {144, 1},   {147, 0.625}};
  for (const auto &[c, v] : reals) out.real(c, v);
  static const std::pair<int, int> ints[] = {{77, 1}, {78, 8}, {271, 2}, {272, 2}, {276, 0}, {277, 2}};
  for (const auto &[c, v] : ints) out.integer(c, v);
  if (fx.standardStyle) out.handle(340, fx.standardStyle);
}

namespace {

void writeMlineStyles(Out &out, const Fixed &fx) {
  dictionaryHead(out, "DICTIONARY", fx.mlineDict, fx.nod);
  out.ascii(3, "Standard");
  out.handle(350, fx.mlineStandard);
  out.ascii(0, "MLINESTYLE");
  out.handle(5, fx.mlineStandard);
  reactors(out, fx.mlineDict);
  out.handle(330, fx.mlineDict);
  out.ascii(100, "AcDbMlineStyle");
  out.ascii(2, "Standard");
  out.integer(70, 0);
  out.ascii(3, "");
  out.integer(62, 256);
  out.real(51, 90);
  out.real(52, 90);
  out.integer(71, 2);
  for (double offset : {0.5, -0.5}) {
    out.real(49, offset);
    out.integer(62, 256);
    out.ascii(6, "BYLAYER");
  }
}

void writePlotStyleNames(Out &out, const Fixed &fx) {
  dictionaryHead(out, "ACDBDICTIONARYWDFLT", fx.plotStyleDict, fx.nod);
  for (const auto &[name, h] : fx.plotStyles) {
    out.text(3, name);
    out.handle(350, h);
  }
  out.ascii(100, "AcDbDictionaryWithDefault");
  out.handle(340, fx.plotStyles.front().second);
  for (const auto &[name, h] : fx.plotStyles) {
    out.ascii(0, "ACDBPLACEHOLDER");
    out.handle(5, h);
    reactors(out, fx.plotStyleDict);
    out.handle(330, fx.plotStyleDict);
  }
}

}  // namespace

void writeFixedRootEntries(Out &out, const Fixed &fx) {
  auto entry = [&](const char *key, uint64_t handle) {
    if (!handle) return;
    out.ascii(3, key);
    out.handle(350, handle);
  };
  if (!fx.keptLayoutDict) entry("ACAD_LAYOUT", fx.layoutDict);
  entry("ACAD_MLINESTYLE", fx.mlineDict);
  entry("ACAD_PLOTSETTINGS", fx.plotSettingsDict);
  entry("ACAD_PLOTSTYLENAME", fx.plotStyleDict);
}

void writeFixedObjects(Out &out, const Fixed &fx) {
  if (!fx.keptLayoutDict) {
    dictionaryHead(out, "DICTIONARY", fx.layoutDict, fx.nod);
    for (const Fixed::Layout &l : fx.layouts) {
      out.ascii(3, l.name);
      out.handle(350, l.handle);
    }
    for (const Fixed::Layout &l : fx.layouts) writeLayout(out, fx, l);
  }
  if (fx.mlineDict) writeMlineStyles(out, fx);
  if (fx.plotSettingsDict) dictionaryHead(out, "DICTIONARY", fx.plotSettingsDict, fx.nod);
  if (fx.plotStyleDict) writePlotStyleNames(out, fx);
}

}  // namespace vantry::host::dxf
