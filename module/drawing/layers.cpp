// Layers, colours, plot styles and per-viewport freezing for LISP: a layer
// made or brought up to date in one call, the colour or plot style of an
// entity or a layer, and layers frozen or thawed in one layout viewport.
//
// A colour argument is one of
//   an integer 0-256            0 by block, 1-255 an index colour, 256 by layer
//   (red green blue)            a true colour, each 0-255
//   (red green blue book name)  a colour of a colour book: its RGB value, the
//                               book's name and the colour's name in it; read
//                               and checked, then refused with a message:
//                               the host's colours here hold no book names
// Layers take index colours 1-255 and true colours only.
//
// A layer's description is kept as the host files it: extended data of the
// application "AcAecLayerStandard", an empty string then the description.
#include <algorithm>
#include <cwctype>
#include <string>
#include <vector>

#include "frame/implementations.h"
#include "frame/value_list.h"

namespace vantry::lispfn {
namespace {

using frame::ArgList;

bool isInteger(const resbuf *rb) {
  return rb && (rb->restype == RTSHORT || rb->restype == RTLONG);
}

// One colour component: an integer, or a real without a fraction, 0-255.
bool component(double v, int &out) {
  if (!(v >= 0 && v <= 255) || v != double(int(v))) return false;
  out = int(v);
  return true;
}

// Reads a colour argument (see the file's head). 0 when read, 2 when the
// argument is not a colour's form, 3 when it is but its values are not a
// colour.
int readColor(resbuf *&cur, AcCmColor &out) {
  if (!cur) return 2;
  if (isInteger(cur)) {
    int index = cur->restype == RTSHORT ? cur->resval.rint : int(cur->resval.rlong);
    cur = cur->rbnext;
    return index < 0 || index > 256 || out.setColorIndex(Adesk::UInt16(index)) != Acad::eOk ? 3 : 0;
  }
  if (cur->restype == RT3DPOINT) {
    int rgb[3];
    for (int i = 0; i < 3; ++i)
      if (!component(cur->resval.rpoint[i], rgb[i])) return 3;
    cur = cur->rbnext;
    out.setRGB(Adesk::UInt8(rgb[0]), Adesk::UInt8(rgb[1]), Adesk::UInt8(rgb[2]));
    return 0;
  }
  if (cur->restype != RTLB) return 2;
  // (red green blue book name)
  resbuf *at = cur->rbnext;
  int rgb[3];
  for (int i = 0; i < 3; ++i, at = at->rbnext) {
    if (!at || !frame::isNumber(at)) return 2;
    double v = at->restype == RTREAL ? at->resval.rreal
               : at->restype == RTSHORT ? at->resval.rint
                                        : double(at->resval.rlong);
    if (!component(v, rgb[i])) return 3;
  }
  std::wstring book, name;
  if (!frame::readString(at, book) || !frame::readString(at, name) || !at || at->restype != RTLE) return 2;
  if (book.empty() || name.empty() || book.find(L'$') != std::wstring::npos ||
      name.find(L'$') != std::wstring::npos)
    return 3;
  acutPrintf(L"%s", L"\nColour book colours are not available in this build.\n");
  return 4;
}

const wchar_t kDescriptionApp[] = L"AcAecLayerStandard";

// Registers the description's application in the drawing once.
bool registerDescriptionApp(AcDbDatabase *db) {
  AcDbObjectPointer<AcDbRegAppTable> apps(db->regAppTableId(), AcDb::kForRead);
  if (apps.openStatus() != Acad::eOk) return false;
  if (apps->has(kDescriptionApp)) return true;
  if (apps->upgradeOpen() != Acad::eOk) return false;
  auto *app = new AcDbRegAppTableRecord();
  if (app->setName(kDescriptionApp) != Acad::eOk || apps->add(app) != Acad::eOk) {
    delete app;
    return false;
  }
  app->close();
  return true;
}

// The layer's description as extended data; an empty text removes it.
bool setDescription(AcDbDatabase *db, AcDbLayerTableRecord *layer, const std::wstring &text) {
  if (!registerDescriptionApp(db)) return false;
  resbuf *xd = text.empty() ? acutBuildList(1001, kDescriptionApp, 0)
                            : acutBuildList(1001, kDescriptionApp, 1000, L"", 1000, text.c_str(), 0);
  bool ok = xd && layer->setXData(xd) == Acad::eOk;
  acutRelRb(xd);
  return ok;
}

// An optional argument: absent or nil leaves the setting as it is.
bool given(resbuf *&cur) {
  if (!cur) return false;
  if (cur->restype == RTNIL) {
    cur = cur->rbnext;
    return false;
  }
  return true;
}

// The lineweights a layer may have, in hundredths of a millimetre, and -3
// for the drawing's default.
bool validLineWeight(int w) {
  static const int kWeights[] = {-3, 0,  5,  9,  13, 15, 18,  20,  25,  30,  35,  40,
                                 50, 53, 60, 70, 80, 90, 100, 106, 120, 140, 158, 200, 211};
  for (int k : kWeights)
    if (k == w) return true;
  return false;
}

AcDbDatabase *currentDatabase() {
  return acdbHostApplicationServices()->workingDatabase();
}

AcDbObjectId layerId(AcDbDatabase *db, const std::wstring &name) {
  AcDbObjectId id;
  AcDbObjectPointer<AcDbLayerTable> table(db ? db->layerTableId() : AcDbObjectId(), AcDb::kForRead);
  if (table.openStatus() == Acad::eOk) table->getAt(name.c_str(), id);
  return id;
}

void sayNoLayer(const std::wstring &name) {
  acutPrintf(L"\nLayer \"%s\" not found.\n", name.c_str());
}

// The target of setColor and setPlotStyle: an entity name or a layer's name.
struct Target {
  AcDbObjectId id;
  bool layer = false;
  std::wstring layerName;
};

// 0 with the target read; 2 when the argument is neither.
int readTarget(resbuf *&cur, Target &t) {
  if (cur && cur->restype == RTSTR) {
    frame::readString(cur, t.layerName);
    t.layer = true;
    t.id = layerId(currentDatabase(), t.layerName);
    return 0;
  }
  return frame::readObjectId(cur, t.id) ? 0 : 2;
}

}  // namespace

// (ol_ol-createLayer name [colour [linetype [lineweight [plotstyle
// [description]]]]]): makes the layer, or brings the existing one up to date
// with the settings given (nil or a missing argument keeps a setting as it
// is; a new layer starts white, Continuous, default lineweight, plot style
// "Normal"). Everything is checked before anything changes. T when done.
int ol_ol_createLayer() {
  acedRetNil();
  ArgList args;
  resbuf *&cur = args.cursor();
  std::wstring name, linetype, plotStyle, description;
  if (!cur || !frame::readString(cur, name)) return 2;
  AcCmColor color;
  bool hasColor = false, hasLinetype = false, hasWeight = false, hasPlotStyle = false, hasDescription = false;
  int weight = 0;
  if (given(cur)) {
    if (int status = readColor(cur, color)) return status;
    if (color.isByLayer() || color.isByBlock()) return 3;
    hasColor = true;
  }
  if (given(cur)) {
    if (!frame::readString(cur, linetype)) return 2;
    hasLinetype = true;
  }
  if (given(cur)) {
    if (!isInteger(cur) || !frame::readInteger(cur, weight)) return 2;
    if (!validLineWeight(weight)) return 3;
    hasWeight = true;
  }
  if (given(cur)) {
    if (!frame::readString(cur, plotStyle)) return 2;
    if (plotStyle.empty()) return 3;
    hasPlotStyle = true;
  }
  if (given(cur)) {
    if (!frame::readString(cur, description)) return 2;
    hasDescription = true;
  }

  AcDbDatabase *db = currentDatabase();
  if (!db) return 3;
  AcDbObjectId linetypeId;
  if (hasLinetype) {
    AcDbObjectPointer<AcDbLinetypeTable> linetypes(db->linetypeTableId(), AcDb::kForRead);
    if (linetypes.openStatus() != Acad::eOk || linetypes->getAt(linetype.c_str(), linetypeId) != Acad::eOk) {
      acutPrintf(L"\nLinetype \"%s\" is not loaded in this drawing.\n", linetype.c_str());
      return 4;
    }
  }

  AcDbObjectPointer<AcDbLayerTableRecord> layer;
  AcDbObjectId id = layerId(db, name);
  if (!id.isNull()) {
    if (layer.open(id, AcDb::kForWrite) != Acad::eOk) {
      acutPrintf(L"\nLayer \"%s\" cannot be changed now.\n", name.c_str());
      return 4;
    }
  } else {
    layer.create();
    if (layer->setName(name.c_str()) != Acad::eOk) return 3;
    AcDbObjectPointer<AcDbLayerTable> table(db->layerTableId(), AcDb::kForWrite);
    if (table.openStatus() != Acad::eOk || table->add(id, layer.object()) != Acad::eOk) {
      acutPrintf(L"\nLayer \"%s\" cannot be added to this drawing.\n", name.c_str());
      return 4;
    }
  }
  if (hasColor) layer->setColor(color);
  if (hasLinetype) layer->setLinetypeObjectId(linetypeId);
  if (hasWeight) layer->setLineWeight(AcDb::LineWeight(weight));
  if (hasPlotStyle) layer->setPlotStyleName(plotStyle.c_str());
  if (hasDescription && !setDescription(db, layer.object(), description)) {
    acutPrintf(L"\nThe description of layer \"%s\" could not be kept.\n", name.c_str());
    return 4;
  }
  acedRetT();
  return 0;
}

// (ol_ol-setColor ename-or-layer colour): the entity's colour (its
// sub-entities too) or the named layer's. T when set; nil, with a message,
// for a layer that is not there, and nil for an entity that cannot be
// changed (erased, or of a drawing that is closed).
int ol_ol_setColor() {
  acedRetNil();
  ArgList args;
  Target target;
  AcCmColor color;
  if (int status = readTarget(args.cursor(), target)) return status;
  if (int status = readColor(args.cursor(), color)) return status;
  if (target.layer) {
    if (color.isByLayer() || color.isByBlock()) return 3;
    if (target.id.isNull()) {
      sayNoLayer(target.layerName);
      return 0;
    }
    AcDbObjectPointer<AcDbLayerTableRecord> layer(target.id, AcDb::kForWrite);
    if (layer.openStatus() != Acad::eOk) return 0;
    layer->setColor(color);
  } else {
    AcDbObjectPointer<AcDbEntity> entity(target.id, AcDb::kForWrite);
    if (entity.openStatus() != Acad::eOk || entity->setColor(color, true) != Acad::eOk) return 0;
  }
  acedRetT();
  return 0;
}

// (ol_ol-setPlotStyle ename-or-layer name): the plot style of a layer (a
// style's name, kept as given; the drawing's plot style table decides how
// it plots). T when set; nil as for ol_ol-setColor. An entity's own plot
// style is refused with a message: the host's entities here keep none.
int ol_ol_setPlotStyle() {
  acedRetNil();
  ArgList args;
  Target target;
  std::wstring style;
  if (int status = readTarget(args.cursor(), target)) return status;
  if (!frame::readString(args.cursor(), style)) return 2;
  if (style.empty()) return 3;
  if (target.layer) {
    std::wstring key = style;
    for (auto &c : key) c = wchar_t(towupper(c));
    if (key == L"BYLAYER" || key == L"BYBLOCK") return 3;
    if (target.id.isNull()) {
      sayNoLayer(target.layerName);
      return 0;
    }
    AcDbObjectPointer<AcDbLayerTableRecord> layer(target.id, AcDb::kForWrite);
    if (layer.openStatus() != Acad::eOk || layer->setPlotStyleName(style.c_str()) != Acad::eOk) return 0;
  } else {
    acutPrintf(L"%s", L"\nPlot styles of single entities are not available in this build.\n");
    return 4;
  }
  acedRetT();
  return 0;
}

// (ol_ol-freezeInViewport viewport layers [freeze]): freezes (freeze absent
// or non-nil) or thaws (nil) the layers, a name or a list of names, in one
// layout viewport only, as the viewport's own list of frozen layers (group
// 341 of a drawing file). T when done; nil, with a message, when the entity
// is no viewport or a layer is not there (then nothing changes).
int ol_ol_freezeInViewport() {
  acedRetNil();
  ArgList args;
  resbuf *&cur = args.cursor();
  AcDbObjectId viewportId;
  if (!frame::readObjectId(cur, viewportId)) return 2;
  std::vector<std::wstring> names;
  std::wstring one;
  if (cur && cur->restype == RTSTR) {
    frame::readString(cur, one);
    names.push_back(one);
  } else if (frame::readListBegin(cur)) {
    while (cur && cur->restype == RTSTR) {
      frame::readString(cur, one);
      names.push_back(one);
    }
    if (!frame::readListEnd(cur)) return 2;
  } else {
    return 2;
  }
  bool freeze = true;
  if (cur) frame::readBoolean(cur, freeze);

  AcDbDatabase *db = currentDatabase();
  std::vector<AcDbObjectId> layers;
  for (const std::wstring &n : names) {
    AcDbObjectId id = layerId(db, n);
    if (id.isNull()) {
      sayNoLayer(n);
      return 0;
    }
    layers.push_back(id);
  }
  AcDbObjectPointer<AcDbEntity> viewport(viewportId, AcDb::kForWrite);
  if (viewport.openStatus() != Acad::eOk) return 0;
  // The viewport's data as its groups: the frozen layers are its 341 groups,
  // after the circle zoom (72) of its own part.
  AcDbDxfFiler data;
  viewport->dxfOutFields(&data);
  auto &items = data.items();
  size_t own = items.size();
  for (size_t i = 0; i < items.size(); ++i)
    if (items[i].code == 100 && items[i].text == L"AcDbViewport") own = i;
  if (own == items.size()) {
    acutPrintf(L"%s", L"\nThe entity is not a viewport.\n");
    return 0;
  }
  std::vector<AcDbObjectId> frozen;
  size_t at = items.size();
  for (size_t i = own; i < items.size();) {
    if (items[i].code == 341) {
      frozen.push_back(items[i].id);
      items.erase(items.begin() + long(i));
      at = i;
      continue;
    }
    if (items[i].code == 72 && at == items.size()) at = i + 1;
    ++i;
  }
  for (AcDbObjectId id : layers) {
    auto found = std::find(frozen.begin(), frozen.end(), id);
    if (freeze && found == frozen.end()) frozen.push_back(id);
    if (!freeze && found != frozen.end()) frozen.erase(found);
  }
  std::vector<AcDbDxfFiler::Item> refs;
  for (AcDbObjectId id : frozen) {
    AcDbDxfFiler::Item it;
    it.code = 341;
    it.id = id;
    refs.push_back(it);
  }
  items.insert(items.begin() + long(std::min(at, items.size())), refs.begin(), refs.end());
  if (viewport->dxfInFields(&data) != Acad::eOk) return 0;
  acedRetT();
  return 0;
}

}  // namespace vantry::lispfn
