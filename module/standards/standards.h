// The product's drafting standards in the drawing's database, and the grid
// dialogs in which people edit them.
//
// The standards are five tables of the connected database (made when first
// written, inside the write's own transaction):
//
//   StdLayerSystems  SystemName (key), Discipline ("HVAC", "Plumbing",
//                    "Electrical"), Description, LayerPrefix
//   StdLayers        LayerName (key), SystemName (a layer system or null),
//                    Color (1-255), Linetype, Lineweight (hundredths of a
//                    millimetre, -3 for the default), Plot, Description
//   StdTextStyles    StyleName (key), FontName, Height, WidthFactor,
//                    ObliqueAngle (degrees), Annotative
//   StdLabelGroups   GroupName (key), TextStyle (a text style or null),
//                    LayerName, Description
//   StdLabels        GroupName and LabelName (the key), LabelText
//
// Names are compared in any case, as the host compares layer and style
// names. A layer system named by layers, or a text style named by label
// groups, cannot be deleted; renaming one renames it in those records too.
//
// A TableDialog shows the records of one table (and, in a tree, those of a
// child table under each) in a grid. Nothing is written until OK; then every
// change goes to the database in one transaction: deletions, renames (through
// temporary names, so that two records may swap names), changed fields, new
// records. A failed write is rolled back and reported, and nothing is lost.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "engine/engine.h"
#include "grid/grid.h"

namespace vantry::standards {

using engine::EngineConnection;

// --- SQL helpers -------------------------------------------------------------

// A text as an SQL literal: 'it''s'.
std::string literal(const std::wstring &text);
// Rows of a SELECT; false with the engine's error pending when it failed.
bool select(const EngineConnection &c, const std::wstring &sql, std::vector<engine::Record> *rows);
// Whether a table (or query) of that name exists.
bool tableExists(const EngineConnection &c, const std::wstring &table);
// One statement that changes data or schema; false with the error pending.
bool command(const EngineConnection &c, const std::wstring &sql);
// A field's value as the grid shows it ("" for null; numbers without
// trailing zeros; yes/no as "1" or "0").
std::wstring cellText(const engine::Value &v);

// The CREATE TABLE statement of a standards table ("" for another name).
std::wstring createStatement(const std::wstring &table);

// The drawing's database for the standards dialogs: the connection of the
// current drawing, writable. Empty, with a message printed, when no database
// is connected or it is open read-only.
EngineConnection standardsDatabase(const wchar_t *function);

// --- Table dialogs -----------------------------------------------------------

enum class FieldType { Text, Integer, Real, Boolean };

// One field shown in a grid column.
struct FieldSpec {
  std::wstring field;  // in the table
  int column = 0;      // in the grid
  FieldType type = FieldType::Text;
  int maxLength = 255;  // text
  double low = -1e300, high = 1e300;  // numbers
  bool required = false;
  std::wstring fallback;  // a new row's value
};

// A table that names this table's key in one of its fields.
struct Reference {
  std::wstring table, field;
  std::wstring nameField;  // the referring record's own name, for messages
  std::wstring what;       // "layer", "label group"
  bool blocksDelete = true;
};

struct TableSpec {
  std::wstring table;
  std::wstring what;           // "layer system", used in messages
  std::vector<FieldSpec> fields;  // fields[0] is the key
  std::wstring filterField, filterValue;  // only these records (set on new ones)
  std::vector<Reference> references;
  std::wstring parentField;  // a child table: the field naming its parent's key
};

class TableDialog : public grid::GridDialog {
 public:
  // A dialog over `spec`'s records, with `child`'s records under each (a
  // tree) when `child` has a table.
  TableDialog(std::wstring title, TableSpec spec, TableSpec child = {});

  // Reads the records; false with the engine's error reported.
  bool load(const EngineConnection &c);
  // Runs the dialog and writes its changes on OK: 1 written, 0 cancelled,
  // -1 the write failed (reported, rolled back).
  int runAndSave(const EngineConnection &c);

 protected:
  grid::Refusal checkCell(int row, int column, std::wstring &value) override;
  grid::Refusal checkDelete(int row) override;
  grid::Refusal checkAdd(int parent) override;
  void initRow(int row) override;
  grid::Refusal checkOk() override;

  const TableSpec &specOf(int row) const { return grid.rows[row].parent == -1 ? spec_ : child_; }
  const FieldSpec *fieldAt(int row, int column) const;
  // The records of a referring table that name `key`.
  std::vector<std::wstring> referrers(const Reference &r, const std::wstring &key) const;

  EngineConnection db_;
  TableSpec spec_, child_;
  std::vector<std::wstring> outsideKeys_;  // keys of records the filter leaves out
  // The cells each loaded row had, by the row's origin.
  std::vector<std::vector<std::wstring>> original_;
  std::wstring loadedKey(int row) const;  // the key the row was loaded with

 private:
  bool save();
  bool saveChildren(int phase);
};

// The LISP result for an implementation that ran a dialog: T for a write,
// nil otherwise. Returns the status for the call frame.
int answerDialog(int outcome);

}  // namespace vantry::standards
