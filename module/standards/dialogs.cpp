// The customisation dialogs from LISP: layer systems of each discipline,
// layers, text styles and label groups, each a grid over its standards
// table (standards.h).
//
//   (ol_ol-LayerSystemOptionsHVAC)     the HVAC layer systems
//   (ol_ol-LayerSystemOptionsPlumb)    the plumbing layer systems
//   (ol_ol-LayerSystemOptionsElec)     the electrical layer systems
//   (ol_ol-customizeLayers [system])   the layers, or those of one system
//   (ol_ol-customizeTextStyles)        the text styles
//   (ol_ol-customizeLabelGroup [group]) the label groups with their labels
//
// Each answers T when the person closed it with OK and its changes were
// written, nil when the person cancelled, the write failed or no writable
// database is connected.
#include <cwchar>

#include "common/text.h"
#include "database/context.h"
#include "frame/implementations.h"
#include "frame/value_list.h"
#include "host/arx.h"
#include "host/person.h"
#include "standards/standards.h"

namespace vantry::lispfn {
namespace {

using grid::CellKind;
using grid::Column;
using grid::Refusal;
using standards::EngineConnection;
using standards::FieldSpec;
using standards::FieldType;
using standards::Reference;
using standards::TableDialog;
using standards::TableSpec;

Column column(std::wstring key, CellKind kind, int width, std::vector<std::wstring> choices = {}) {
  Column c;
  c.title = key;
  c.key = std::move(key);
  c.kind = kind;
  c.width = width;
  c.choices = std::move(choices);
  return c;
}

FieldSpec text(std::wstring field, int column, int maxLength, bool required = false, std::wstring fallback = L"") {
  FieldSpec f;
  f.field = std::move(field);
  f.column = column;
  f.maxLength = maxLength;
  f.required = required;
  f.fallback = std::move(fallback);
  return f;
}

FieldSpec numberField(std::wstring field, int column, FieldType type, double low, double high, std::wstring fallback) {
  FieldSpec f;
  f.field = std::move(field);
  f.column = column;
  f.type = type;
  f.low = low;
  f.high = high;
  f.fallback = std::move(fallback);
  return f;
}

// The values of one field of a table, for a combo's items ("" first when
// the field may be left empty).
std::vector<std::wstring> choices(const EngineConnection &c, const std::wstring &table, const std::wstring &field,
                                  std::vector<std::wstring> first) {
  std::vector<engine::Record> rows;
  if (standards::tableExists(c, table))
    standards::select(c, L"SELECT DISTINCT [" + field + L"] FROM [" + table + L"] ORDER BY [" + field + L"]", &rows);
  for (const engine::Record &r : rows) {
    std::wstring v = r.empty() ? L"" : standards::cellText(r[0].value);
    bool seen = v.empty();
    for (const std::wstring &f : first) seen = seen || grid::sameName(f, v);
    if (!seen) first.push_back(v);
  }
  return first;
}

// Whether `name` is a key of the table (any case); it is then rewritten
// in the key's own spelling.
bool exists(const EngineConnection &c, const std::wstring &table, const std::wstring &field, std::wstring &name) {
  for (const std::wstring &v : choices(c, table, field, {})) {
    if (grid::sameName(v, name)) {
      name = v;
      return true;
    }
  }
  return false;
}

// The optional name argument: nil or absent gives "", a string itself;
// false for anything else.
bool optionalName(frame::ArgList &args, std::wstring &name) {
  resbuf *&cur = args.cursor();
  if (!cur || cur->restype == RTNIL) return true;
  return frame::readString(cur, name);
}

// --- Layer systems --------------------------------------------------------------

class SystemsDialog : public TableDialog {
 public:
  SystemsDialog(const std::wstring &discipline, const std::wstring &title)
      : TableDialog(title, tableSpec(discipline)) {
    grid.columns = {column(L"System", CellKind::Text, 16), column(L"Description", CellKind::Text, 28),
                    column(L"Prefix", CellKind::Text, 8), column(L"Layers", CellKind::Button, 8)};
  }

  bool loadAll(const EngineConnection &c) {
    if (!load(c)) return false;
    for (size_t r = 0; r < grid.rows.size(); ++r)
      grid.rows[r].cells[3] = std::to_wstring(referrers(spec_.references[0], grid.rows[r].cells[0]).size());
    return true;
  }

 protected:
  void initRow(int row) override {
    TableDialog::initRow(row);
    grid.rows[row].cells[3] = L"0";
  }
  // The Layers button lists the layers that name the system.
  Refusal press(int row, int) override {
    std::vector<std::wstring> layers;
    if (grid.rows[row].origin >= 0) layers = referrers(spec_.references[0], loadedKey(row));
    std::wstring list;
    for (const std::wstring &l : layers) list += (list.empty() ? L"" : L", ") + l;
    acutPrintf(L"[Layers of %s] %s\n", grid.rows[row].cells[0].c_str(), list.empty() ? L"(none)" : list.c_str());
    return std::nullopt;
  }

 private:
  static TableSpec tableSpec(const std::wstring &discipline) {
    TableSpec s;
    s.table = L"StdLayerSystems";
    s.what = L"layer system";
    s.fields = {text(L"SystemName", 0, 64, true), text(L"Description", 1, 255), text(L"LayerPrefix", 2, 16)};
    s.filterField = L"Discipline";
    s.filterValue = discipline;
    s.references = {{L"StdLayers", L"SystemName", L"LayerName", L"layer", true}};
    return s;
  }
};

// Runs a loaded dialog and answers for it; a failed read is the engine's
// error, reported.
int finish(TableDialog &d, const EngineConnection &c, bool loaded) {
  if (!loaded) {
    database::reportEngineError(c);
    acedRetNil();
    return 0;
  }
  return standards::answerDialog(d.runAndSave(c));
}

int layerSystems(const wchar_t *function, const wchar_t *discipline, const wchar_t *title) {
  acedRetNil();
  frame::ArgList args;
  EngineConnection c = standards::standardsDatabase(function);
  if (!c) return 0;
  SystemsDialog d(discipline, title);
  return finish(d, c, d.loadAll(c));
}

// --- Layers ----------------------------------------------------------------------

const std::vector<std::wstring> kLinetypes = {L"CONTINUOUS", L"DASHED", L"HIDDEN", L"CENTER", L"PHANTOM",
                                              L"DOT",        L"DASHDOT", L"DIVIDE", L"BORDER"};
const std::vector<std::wstring> kLineweights = {L"-3", L"0",  L"5",  L"9",   L"13",  L"15",  L"18",  L"20",  L"25",
                                                L"30", L"35", L"40", L"50",  L"53",  L"60",  L"70",  L"80",  L"90",
                                                L"100", L"106", L"120", L"140", L"158", L"200", L"211"};
const wchar_t *const kColorNames[] = {L"red", L"yellow", L"green", L"cyan", L"blue", L"magenta", L"white"};

class LayersDialog : public TableDialog {
 public:
  LayersDialog(const EngineConnection &c, const std::wstring &system)
      : TableDialog(system.empty() ? L"Layers" : L"Layers of " + system, tableSpec(system)) {
    grid.columns = {column(L"Layer", CellKind::Text, 20),
                    column(L"System", CellKind::Combo, 14, choices(c, L"StdLayerSystems", L"SystemName", {})),
                    column(L"Color", CellKind::Button, 6),
                    column(L"Linetype", CellKind::Combo, 13, choices(c, L"StdLayers", L"Linetype", kLinetypes)),
                    column(L"Lineweight", CellKind::Combo, 11, kLineweights),
                    column(L"Plot", CellKind::Check, 4),
                    column(L"Description", CellKind::Text, 24)};
    grid.columns[1].readOnly = !system.empty();
  }

 protected:
  // A colour is a number from 1 to 255 or one of the seven named ones.
  Refusal checkCell(int row, int column, std::wstring &value) override {
    if (column == 2)
      for (int i = 0; i < 7; ++i)
        if (grid::sameName(value, kColorNames[i])) value = std::to_wstring(i + 1);
    return TableDialog::checkCell(row, column, value);
  }
  // The Color button opens the colour chooser: a dialog of its own, which
  // takes the person's next answer (a colour number or name).
  Refusal press(int row, int column) override {
    PersonWindow chooser;
    chooser.caption = L"Select Color";
    chooser.text = L"Colour " + grid.rows[row].cells[column] +
                   L". A colour number from 1 to 255, or red, yellow, green, cyan, blue, magenta, white.";
    chooser.buttons = {L"OK", L"Cancel"};
    std::wstring answer;
    if (!acedPersonAnswer(chooser, &answer)) return std::nullopt;
    answer = grid::unquote(answer);
    if (Refusal r = checkCell(row, column, answer)) return r;
    grid.rows[row].cells[column] = answer;
    return std::nullopt;
  }

 private:
  static TableSpec tableSpec(const std::wstring &system) {
    TableSpec s;
    s.table = L"StdLayers";
    s.what = L"layer";
    s.fields = {text(L"LayerName", 0, 255, true),
                text(L"SystemName", 1, 64),
                numberField(L"Color", 2, FieldType::Integer, 1, 255, L"7"),
                text(L"Linetype", 3, 64, false, L"CONTINUOUS"),
                numberField(L"Lineweight", 4, FieldType::Integer, -3, 211, L"-3"),
                numberField(L"Plot", 5, FieldType::Boolean, 0, 1, L"1"),
                text(L"Description", 6, 255)};
    s.fields[2].required = true;
    if (!system.empty()) {
      s.filterField = L"SystemName";
      s.filterValue = system;
    }
    s.references = {{L"StdLabelGroups", L"LayerName", L"GroupName", L"label group", true}};
    return s;
  }
};

// --- Text styles -------------------------------------------------------------------

class TextStylesDialog : public TableDialog {
 public:
  TextStylesDialog() : TableDialog(L"Text Styles", tableSpec()) {
    grid.columns = {column(L"Style", CellKind::Text, 16),  column(L"Font", CellKind::Text, 16),
                    column(L"Height", CellKind::Number, 8), column(L"Width", CellKind::Number, 6),
                    column(L"Oblique", CellKind::Number, 7), column(L"Annotative", CellKind::Check, 10)};
  }

 private:
  static TableSpec tableSpec() {
    TableSpec s;
    s.table = L"StdTextStyles";
    s.what = L"text style";
    s.fields = {text(L"StyleName", 0, 64, true),
                text(L"FontName", 1, 255, true, L"romans.shx"),
                numberField(L"Height", 2, FieldType::Real, 0, 1e6, L"0"),
                numberField(L"WidthFactor", 3, FieldType::Real, 0.01, 100, L"1"),
                numberField(L"ObliqueAngle", 4, FieldType::Real, -85, 85, L"0"),
                numberField(L"Annotative", 5, FieldType::Boolean, 0, 1, L"0")};
    s.references = {{L"StdLabelGroups", L"TextStyle", L"GroupName", L"label group", true}};
    return s;
  }
};

// --- Label groups ------------------------------------------------------------------

class LabelGroupsDialog : public TableDialog {
 public:
  LabelGroupsDialog(const EngineConnection &c, const std::wstring &group)
      : TableDialog(group.empty() ? L"Label Groups" : L"Label Group " + group, tableSpec(group), childTableSpec()),
        group_(group) {
    grid.columns = {column(L"Name", CellKind::Tree, 18), column(L"Text", CellKind::Text, 24),
                    column(L"Style", CellKind::Combo, 14, choices(c, L"StdTextStyles", L"StyleName", {})),
                    column(L"Layer", CellKind::Combo, 16, choices(c, L"StdLayers", L"LayerName", {})),
                    column(L"Description", CellKind::Text, 24)};
  }

 protected:
  Refusal checkAdd(int parent) override {
    if (parent == -1 && !group_.empty())
      return L"Only the group \"" + group_ + L"\" is shown; add groups with no group named.";
    return TableDialog::checkAdd(parent);
  }

 private:
  static TableSpec tableSpec(const std::wstring &group) {
    TableSpec s;
    s.table = L"StdLabelGroups";
    s.what = L"label group";
    s.fields = {text(L"GroupName", 0, 64, true), text(L"TextStyle", 2, 64), text(L"LayerName", 3, 255),
                text(L"Description", 4, 255)};
    if (!group.empty()) {
      s.filterField = L"GroupName";
      s.filterValue = group;
    }
    return s;
  }
  static TableSpec childTableSpec() {
    TableSpec s;
    s.table = L"StdLabels";
    s.what = L"label";
    s.fields = {text(L"LabelName", 0, 64, true), text(L"LabelText", 1, 255)};
    s.parentField = L"GroupName";
    return s;
  }
  std::wstring group_;
};

int ol_ol_LayerSystemOptionsHVAC_() {
  return layerSystems(L"ol_ol-LayerSystemOptionsHVAC", L"HVAC", L"HVAC Layer Systems");
}

int ol_ol_LayerSystemOptionsPlumb_() {
  return layerSystems(L"ol_ol-LayerSystemOptionsPlumb", L"Plumbing", L"Plumbing Layer Systems");
}

int ol_ol_LayerSystemOptionsElec_() {
  return layerSystems(L"ol_ol-LayerSystemOptionsElec", L"Electrical", L"Electrical Layer Systems");
}

int ol_ol_customizeLayers_() {
  acedRetNil();
  frame::ArgList args;
  std::wstring system;
  if (!optionalName(args, system)) return 2;
  EngineConnection c = standards::standardsDatabase(L"ol_ol-customizeLayers");
  if (!c) return 0;
  if (!system.empty() && !exists(c, L"StdLayerSystems", L"SystemName", system)) return 3;
  LayersDialog d(c, system);
  return finish(d, c, d.load(c));
}

int ol_ol_customizeTextStyles_() {
  acedRetNil();
  frame::ArgList args;
  EngineConnection c = standards::standardsDatabase(L"ol_ol-customizeTextStyles");
  if (!c) return 0;
  TextStylesDialog d;
  return finish(d, c, d.load(c));
}

int ol_ol_customizeLabelGroup_() {
  acedRetNil();
  frame::ArgList args;
  std::wstring group;
  if (!optionalName(args, group)) return 2;
  EngineConnection c = standards::standardsDatabase(L"ol_ol-customizeLabelGroup");
  if (!c) return 0;
  if (!group.empty() && !exists(c, L"StdLabelGroups", L"GroupName", group)) return 3;
  LabelGroupsDialog d(c, group);
  return finish(d, c, d.load(c));
}

}  // namespace

// The engine's own failures (which the call frame would leave to the host)
// are reported as the database functions report them.
int ol_ol_LayerSystemOptionsHVAC() { return database::catchEngineError(ol_ol_LayerSystemOptionsHVAC_); }
int ol_ol_LayerSystemOptionsPlumb() { return database::catchEngineError(ol_ol_LayerSystemOptionsPlumb_); }
int ol_ol_LayerSystemOptionsElec() { return database::catchEngineError(ol_ol_LayerSystemOptionsElec_); }
int ol_ol_customizeLayers() { return database::catchEngineError(ol_ol_customizeLayers_); }
int ol_ol_customizeTextStyles() { return database::catchEngineError(ol_ol_customizeTextStyles_); }
int ol_ol_customizeLabelGroup() { return database::catchEngineError(ol_ol_customizeLabelGroup_); }

}  // namespace vantry::lispfn
