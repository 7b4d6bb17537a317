// The standards tables and the grid dialog over them (standards.h).
#include "standards/standards.h"

#include <cmath>
#include <cwchar>

#include "common/text.h"
#include "database/context.h"
#include "frame/function_table.h"
#include "host/arx.h"

namespace vantry::standards {
namespace {

using grid::CannotDo;
using grid::Refusal;
using grid::sameName;

std::wstring number(double v) {
  wchar_t buf[64];
  std::swprintf(buf, 64, L"%.10g", v == 0 ? 0.0 : v);
  return buf;
}

std::wstring ident(const std::wstring &name) {
  return L"[" + name + L"]";
}

// A grid cell as an SQL value of the field's type.
std::wstring sqlValue(const FieldSpec &f, const std::wstring &cell) {
  if (cell.empty()) return f.type == FieldType::Boolean ? L"False" : L"NULL";
  switch (f.type) {
    case FieldType::Text:
      return text::fromUtf8(literal(cell));
    case FieldType::Boolean:
      return cell == L"1" ? L"True" : L"False";
    default:
      return cell;
  }
}

std::wstring plural(const std::wstring &what) {
  return what + L"s";
}

}  // namespace

// --- SQL helpers ---------------------------------------------------------------

std::string literal(const std::wstring &t) {
  std::wstring out = L"'";
  for (wchar_t c : t) {
    out += c;
    if (c == L'\'') out += c;
  }
  return text::toUtf8(out + L"'");
}

bool select(const EngineConnection &c, const std::wstring &sql, std::vector<engine::Record> *rows) {
  engine::ValueArray result;
  if (!c->ExecuteSql(text::toUtf8(sql), &result)) return false;
  rows->clear();
  for (size_t i = 0; i < result.size();) {
    const engine::Value &v = result[i];
    if (v.type() == engine::ValueType::kText && v.asText() == engine::kNewRecordMarker) {
      rows->emplace_back();
      ++i;
      continue;
    }
    if (!rows->empty() && i + 1 < result.size()) {
      rows->back().push_back({result[i].asText(), result[i + 1]});
      i += 2;
      continue;
    }
    ++i;
  }
  return true;
}

bool tableExists(const EngineConnection &c, const std::wstring &table) {
  engine::ValueArray result;
  return c->ExecuteSql(text::toUtf8(L"SELECT * FROM " + ident(table) + L" WHERE 1 = 0"), &result);
}

bool command(const EngineConnection &c, const std::wstring &sql) {
  int32_t affected = 0;
  return c->ExecuteCommand(text::toUtf8(sql), &affected);
}

std::wstring cellText(const engine::Value &v) {
  switch (v.type()) {
    case engine::ValueType::kInteger:
      return std::to_wstring(v.asInteger());
    case engine::ValueType::kReal:
      return number(v.asReal());
    case engine::ValueType::kBoolean:
      return v.asBoolean() ? L"1" : L"0";
    case engine::ValueType::kText:
    case engine::ValueType::kDate:
      return text::fromUtf8(v.asText());
    default:
      return L"";
  }
}

std::wstring createStatement(const std::wstring &table) {
  static const std::map<std::wstring, std::wstring> kCreate = {
      {L"StdLayerSystems",
       L"CREATE TABLE StdLayerSystems (SystemName TEXT(64) NOT NULL PRIMARY KEY, Discipline TEXT(16) NOT NULL, "
       L"Description TEXT(255), LayerPrefix TEXT(16))"},
      {L"StdLayers",
       L"CREATE TABLE StdLayers (LayerName TEXT(255) NOT NULL PRIMARY KEY, SystemName TEXT(64), Color LONG NOT "
       L"NULL, Linetype TEXT(64), Lineweight LONG, Plot YESNO, Description TEXT(255))"},
      {L"StdTextStyles",
       L"CREATE TABLE StdTextStyles (StyleName TEXT(64) NOT NULL PRIMARY KEY, FontName TEXT(255) NOT NULL, "
       L"Height DOUBLE, WidthFactor DOUBLE, ObliqueAngle DOUBLE, Annotative YESNO)"},
      {L"StdLabelGroups",
       L"CREATE TABLE StdLabelGroups (GroupName TEXT(64) NOT NULL PRIMARY KEY, TextStyle TEXT(64), LayerName "
       L"TEXT(255), Description TEXT(255))"},
      {L"StdLabels",
       L"CREATE TABLE StdLabels (GroupName TEXT(64) NOT NULL, LabelName TEXT(64) NOT NULL, LabelText "
       L"TEXT(255), CONSTRAINT PrimaryKey PRIMARY KEY (GroupName, LabelName))"},
  };
  auto it = kCreate.find(table);
  return it == kCreate.end() ? L"" : it->second;
}

EngineConnection standardsDatabase(const wchar_t *function) {
  frame::checkDatabaseBeforeCall();
  EngineConnection c = database::currentConnection();
  if (!c) {
    acutPrintf(L"\n%s: no database is connected to this drawing; connect the standards database with "
               L"vt_connect first.\n",
               function);
    return {};
  }
  if (database::currentReadOnly()) {
    acutPrintf(L"\n%s: the database %s is open read-only; the standards cannot be changed.\n", function,
               database::context().path.c_str());
    return {};
  }
  return c;
}

int answerDialog(int outcome) {
  if (outcome == 1) acedRetT();
  else acedRetNil();
  return 0;
}

// --- TableDialog -----------------------------------------------------------------

TableDialog::TableDialog(std::wstring title, TableSpec spec, TableSpec child)
    : GridDialog(std::move(title)), spec_(std::move(spec)), child_(std::move(child)) {}

const FieldSpec *TableDialog::fieldAt(int row, int column) const {
  for (const FieldSpec &f : specOf(row).fields)
    if (f.column == column) return &f;
  return nullptr;
}

std::wstring TableDialog::loadedKey(int row) const {
  int o = grid.rows[row].origin;
  return o < 0 ? L"" : original_[o][0];
}

bool TableDialog::load(const EngineConnection &c) {
  db_ = c;
  auto fieldList = [](const TableSpec &s) {
    std::wstring list;
    for (const FieldSpec &f : s.fields) list += (list.empty() ? L"" : L", ") + ident(f.field);
    return list;
  };
  std::vector<engine::Record> records;
  if (tableExists(c, spec_.table)) {
    std::wstring sql = L"SELECT " + fieldList(spec_) + L" FROM " + ident(spec_.table);
    if (!spec_.filterField.empty())
      sql += L" WHERE " + ident(spec_.filterField) + L" = " + text::fromUtf8(literal(spec_.filterValue));
    if (!select(c, sql + L" ORDER BY " + ident(spec_.fields[0].field), &records)) return false;
    if (!spec_.filterField.empty()) {
      std::vector<engine::Record> others;
      if (!select(c,
                  L"SELECT " + ident(spec_.fields[0].field) + L" FROM " + ident(spec_.table) + L" WHERE " +
                      ident(spec_.filterField) + L" <> " + text::fromUtf8(literal(spec_.filterValue)) +
                      L" OR " + ident(spec_.filterField) + L" IS NULL",
                  &others))
        return false;
      for (const engine::Record &r : others) outsideKeys_.push_back(cellText(r[0].value));
    }
  }
  for (const engine::Record &rec : records) {
    int row = grid.addRow(-1);
    for (size_t k = 0; k < spec_.fields.size() && k < rec.size(); ++k)
      grid.rows[row].cells[spec_.fields[k].column] = cellText(rec[k].value);
    grid.rows[row].origin = int(original_.size());
    original_.push_back(grid.rows[row].cells);
  }
  if (child_.table.empty() || !tableExists(c, child_.table)) return true;
  std::vector<engine::Record> children;
  if (!select(c,
              L"SELECT " + ident(child_.parentField) + L", " + fieldList(child_) + L" FROM " +
                  ident(child_.table) + L" ORDER BY " + ident(child_.fields[0].field),
              &children))
    return false;
  size_t parents = grid.rows.size();
  for (const engine::Record &rec : children) {
    std::wstring parentKey = cellText(rec[0].value);
    for (size_t p = 0; p < parents; ++p) {
      if (!sameName(grid.rows[p].cells[0], parentKey)) continue;
      int row = grid.addRow(int(p));
      for (size_t k = 0; k < child_.fields.size() && k + 1 < rec.size(); ++k)
        grid.rows[row].cells[child_.fields[k].column] = cellText(rec[k + 1].value);
      grid.rows[row].origin = int(original_.size());
      original_.push_back(grid.rows[row].cells);
      break;
    }
  }
  return true;
}

Refusal TableDialog::checkCell(int row, int column, std::wstring &value) {
  const FieldSpec *f = fieldAt(row, column);
  const grid::Column &col = grid.columns[column];
  if (!f) throw CannotDo{L"a " + specOf(row).what + L" has no " + col.title};
  if (col.kind == grid::CellKind::Combo || col.kind == grid::CellKind::Check) {
    if (!(col.kind == grid::CellKind::Combo && value.empty() && !f->required)) GridDialog::checkCell(row, column, value);
  }
  const std::wstring &what = specOf(row).what;
  if (f->required && value.empty()) return L"The " + what + L" needs a " + col.title + L".";
  if (f->type == FieldType::Text) {
    if (int(value.size()) > f->maxLength)
      return col.title + L" of a " + what + L" is at most " + std::to_wstring(f->maxLength) + L" characters.";
    if (f == &specOf(row).fields[0] && value.find_first_of(L"<>/\\\":;?*|,=`") != std::wstring::npos)
      return L"\"" + value + L"\" cannot name a " + what + L": it may not hold < > / \\ \" : ; ? * | , = `.";
    return std::nullopt;
  }
  if (f->type == FieldType::Integer || f->type == FieldType::Real) {
    if (value.empty()) return std::nullopt;
    wchar_t *end = nullptr;
    double v = std::wcstod(value.c_str(), &end);
    if (end == value.c_str() || *end || !std::isfinite(v)) return col.title + L" must be a number, not \"" + value + L"\".";
    if (f->type == FieldType::Integer && v != std::floor(v)) return col.title + L" must be a whole number.";
    if (v < f->low || v > f->high)
      return col.title + L" must be between " + number(f->low) + L" and " + number(f->high) + L".";
    value = number(v);
  }
  return std::nullopt;
}

std::vector<std::wstring> TableDialog::referrers(const Reference &r, const std::wstring &key) const {
  std::vector<std::wstring> names;
  if (!tableExists(db_, r.table)) return names;
  std::vector<engine::Record> rows;
  if (!select(db_,
              L"SELECT " + ident(r.nameField) + L" FROM " + ident(r.table) + L" WHERE " + ident(r.field) +
                  L" = " + text::fromUtf8(literal(key)) + L" ORDER BY " + ident(r.nameField),
              &rows))
    return names;
  for (const engine::Record &rec : rows)
    if (!rec.empty()) names.push_back(cellText(rec[0].value));
  return names;
}

Refusal TableDialog::checkDelete(int row) {
  if (grid.rows[row].origin < 0) return std::nullopt;
  const TableSpec &s = specOf(row);
  std::wstring key = loadedKey(row);
  for (const Reference &r : s.references) {
    if (!r.blocksDelete) continue;
    std::vector<std::wstring> names = referrers(r, key);
    if (names.empty()) continue;
    std::wstring why = L"The " + s.what + L" \"" + key + L"\" is used by the " + r.what + L" \"" + names[0] + L"\"";
    if (names.size() > 1) why += L" and " + std::to_wstring(names.size() - 1) + L" more";
    return why + L"; it cannot be deleted.";
  }
  return std::nullopt;
}

Refusal TableDialog::checkAdd(int parent) {
  if (parent != -1 && child_.table.empty()) throw CannotDo{L"rows are not added under others here"};
  return std::nullopt;
}

void TableDialog::initRow(int row) {
  for (const FieldSpec &f : specOf(row).fields) grid.rows[row].cells[f.column] = f.fallback;
  const TableSpec &s = specOf(row);
  if (!s.filterField.empty())
    for (const FieldSpec &f : s.fields)
      if (f.field == s.filterField) grid.rows[row].cells[f.column] = s.filterValue;
}

Refusal TableDialog::checkOk() {
  std::vector<int> shown = grid.shownRows();
  for (int r : shown) {
    const TableSpec &s = specOf(r);
    for (const FieldSpec &f : s.fields) {
      if (f.required && grid.rows[r].cells[f.column].empty())
        return L"Row " + std::to_wstring(std::find(shown.begin(), shown.end(), r) - shown.begin() + 1) +
               L": the " + s.what + L" needs a " + grid.columns[f.column].title + L".";
    }
    const std::wstring &key = grid.rows[r].cells[s.fields[0].column];
    for (int o : shown) {
      if (o < r && grid.rows[o].parent == grid.rows[r].parent &&
          sameName(grid.rows[o].cells[s.fields[0].column], key))
        return L"There are two " + plural(s.what) + L" named \"" + key + L"\".";
    }
    if (grid.rows[r].parent == -1)
      for (const std::wstring &other : outsideKeys_)
        if (sameName(other, key)) return L"There is already a " + s.what + L" named \"" + key + L"\".";
  }
  return std::nullopt;
}

int TableDialog::runAndSave(const EngineConnection &c) {
  if (!run()) return 0;
  if (!command(c, L"BEGIN")) {
    database::reportEngineError(c);
    return -1;
  }
  bool written;
  try {
    written = save() && command(c, L"COMMIT");
  } catch (...) {
    command(c, L"ROLLBACK");
    throw;
  }
  if (written) return 1;
  engine::LastError e = c->GetLastError();
  command(c, L"ROLLBACK");
  database::setLastError(e.number, text::fromUtf8(e.description));
  database::printEngineError(e.number, text::fromUtf8(e.description));
  acutPrintf(L"\n[%s] Nothing was changed.\n", title().c_str());
  return -1;
}

bool TableDialog::save() {
  for (const TableSpec *s : {&spec_, &child_}) {
    if (s->table.empty() || tableExists(db_, s->table)) continue;
    if (!command(db_, createStatement(s->table))) return false;
  }
  if (!child_.table.empty() && !saveChildren(0)) return false;

  const std::wstring table = ident(spec_.table), key = ident(spec_.fields[0].field);
  const int keyColumn = spec_.fields[0].column;
  auto where = [&](const std::wstring &k) { return L" WHERE " + key + L" = " + text::fromUtf8(literal(k)); };
  std::vector<Reference> refs = spec_.references;
  if (!child_.table.empty()) refs.push_back({child_.table, child_.parentField, L"", L"", false});
  for (auto it = refs.begin(); it != refs.end();) it = tableExists(db_, it->table) ? it + 1 : refs.erase(it);

  auto renameEverywhere = [&](const std::wstring &from, const std::wstring &to) {
    if (!command(db_, L"UPDATE " + table + L" SET " + key + L" = " + text::fromUtf8(literal(to)) + where(from)))
      return false;
    for (const Reference &r : refs)
      if (!command(db_, L"UPDATE " + ident(r.table) + L" SET " + ident(r.field) + L" = " +
                            text::fromUtf8(literal(to)) + L" WHERE " + ident(r.field) + L" = " +
                            text::fromUtf8(literal(from))))
        return false;
    return true;
  };

  std::vector<int> parents;
  for (size_t r = 0; r < grid.rows.size(); ++r)
    if (grid.rows[r].parent == -1) parents.push_back(int(r));
  // Deleted records first, so that their names are free for others.
  for (int r : parents) {
    const grid::Row &row = grid.rows[r];
    if (!row.deleted || row.origin < 0) continue;
    if (!command(db_, L"DELETE FROM " + table + where(loadedKey(r)))) return false;
    if (!child_.table.empty() && tableExists(db_, child_.table) &&
        !command(db_, L"DELETE FROM " + ident(child_.table) + L" WHERE " + ident(child_.parentField) + L" = " +
                          text::fromUtf8(literal(loadedKey(r)))))
      return false;
  }
  // Renames through temporary names: two records may swap theirs.
  std::vector<int> renamed;
  for (int r : parents) {
    const grid::Row &row = grid.rows[r];
    if (row.deleted || row.origin < 0 || row.cells[keyColumn] == loadedKey(r)) continue;
    renamed.push_back(r);
    if (!renameEverywhere(loadedKey(r), L"~rename~" + std::to_wstring(r))) return false;
  }
  for (int r : renamed)
    if (!renameEverywhere(L"~rename~" + std::to_wstring(r), grid.rows[r].cells[keyColumn])) return false;
  // Changed fields, then new records.
  for (int r : parents) {
    const grid::Row &row = grid.rows[r];
    if (row.deleted) continue;
    if (row.origin >= 0) {
      std::wstring sets;
      for (size_t k = 1; k < spec_.fields.size(); ++k) {
        const FieldSpec &f = spec_.fields[k];
        if (row.cells[f.column] == original_[row.origin][f.column]) continue;
        sets += (sets.empty() ? L"" : L", ") + ident(f.field) + L" = " + sqlValue(f, row.cells[f.column]);
      }
      if (!sets.empty() && !command(db_, L"UPDATE " + table + L" SET " + sets + where(row.cells[keyColumn])))
        return false;
      continue;
    }
    std::wstring names, values;
    bool filterShown = false;
    for (const FieldSpec &f : spec_.fields) {
      names += (names.empty() ? L"" : L", ") + ident(f.field);
      values += (values.empty() ? L"" : L", ") + sqlValue(f, row.cells[f.column]);
      filterShown = filterShown || f.field == spec_.filterField;
    }
    if (!spec_.filterField.empty() && !filterShown) {
      names += L", " + ident(spec_.filterField);
      values += L", " + text::fromUtf8(literal(spec_.filterValue));
    }
    if (!command(db_, L"INSERT INTO " + table + L" (" + names + L") VALUES (" + values + L")")) return false;
  }
  return child_.table.empty() || saveChildren(1);
}

// Phase 0, before the parents change: deleted, renamed and changed children,
// found under their parents' loaded names. Phase 1, after: new children,
// under their parents' final names.
bool TableDialog::saveChildren(int phase) {
  const std::wstring table = ident(child_.table), key = ident(child_.fields[0].field);
  const std::wstring parentField = ident(child_.parentField);
  const int keyColumn = child_.fields[0].column;
  auto where = [&](int r, const std::wstring &k) {
    return L" WHERE " + parentField + L" = " + text::fromUtf8(literal(loadedKey(grid.rows[r].parent))) + L" AND " +
           key + L" = " + text::fromUtf8(literal(k));
  };
  std::vector<int> children;
  for (size_t r = 0; r < grid.rows.size(); ++r)
    if (grid.rows[r].parent != -1) children.push_back(int(r));
  if (phase == 1) {
    for (int r : children) {
      const grid::Row &row = grid.rows[r];
      if (row.deleted || row.origin >= 0) continue;
      std::wstring names = parentField, values = text::fromUtf8(literal(grid.rows[row.parent].cells[spec_.fields[0].column]));
      for (const FieldSpec &f : child_.fields) {
        names += L", " + ident(f.field);
        values += L", " + sqlValue(f, row.cells[f.column]);
      }
      if (!command(db_, L"INSERT INTO " + table + L" (" + names + L") VALUES (" + values + L")")) return false;
    }
    return true;
  }
  for (int r : children) {
    const grid::Row &row = grid.rows[r];
    if (row.deleted && row.origin >= 0 && !command(db_, L"DELETE FROM " + table + where(r, loadedKey(r)))) return false;
  }
  std::vector<int> renamed;
  for (int r : children) {
    const grid::Row &row = grid.rows[r];
    if (row.deleted || row.origin < 0 || row.cells[keyColumn] == loadedKey(r)) continue;
    renamed.push_back(r);
    if (!command(db_, L"UPDATE " + table + L" SET " + key + L" = '~rename~" + std::to_wstring(r) + L"'" +
                          where(r, loadedKey(r))))
      return false;
  }
  for (int r : renamed)
    if (!command(db_, L"UPDATE " + table + L" SET " + key + L" = " +
                          text::fromUtf8(literal(grid.rows[r].cells[keyColumn])) +
                          where(r, L"~rename~" + std::to_wstring(r))))
      return false;
  for (int r : children) {
    const grid::Row &row = grid.rows[r];
    if (row.deleted || row.origin < 0) continue;
    std::wstring sets;
    for (size_t k = 1; k < child_.fields.size(); ++k) {
      const FieldSpec &f = child_.fields[k];
      if (row.cells[f.column] == original_[row.origin][f.column]) continue;
      sets += (sets.empty() ? L"" : L", ") + ident(f.field) + L" = " + sqlValue(f, row.cells[f.column]);
    }
    if (!sets.empty() && !command(db_, L"UPDATE " + table + L" SET " + sets + where(r, row.cells[keyColumn])))
      return false;
  }
  return true;
}

}  // namespace vantry::standards
