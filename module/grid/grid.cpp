// The grid control and its dialog run by the person (grid.h).
#include "grid/grid.h"

#include <algorithm>

#include "common/text.h"
#include "host/arx.h"
#include "host/person.h"

namespace vantry::grid {
namespace {

std::wstring trim(const std::wstring &s) {
  size_t b = s.find_first_not_of(L" \t\r\n");
  if (b == std::wstring::npos) return L"";
  size_t e = s.find_last_not_of(L" \t\r\n");
  return s.substr(b, e - b + 1);
}

// The first `c` outside quotes; npos when none.
size_t findOutsideQuotes(const std::wstring &s, wchar_t c) {
  bool quoted = false;
  for (size_t i = 0; i < s.size(); ++i) {
    if (quoted && s[i] == L'\\' && i + 1 < s.size()) {
      ++i;
    } else if (s[i] == L'"') {
      quoted = !quoted;
    } else if (!quoted && s[i] == c) {
      return i;
    }
  }
  return std::wstring::npos;
}

std::wstring fit(const std::wstring &s, int width) {
  if (int(s.size()) > width) return s.substr(0, width - 1) + L"~";
  return s + std::wstring(width - s.size(), L' ');
}

}  // namespace

bool sameName(const std::wstring &a, const std::wstring &b) {
  return text::upcase(a) == text::upcase(b);
}

std::vector<std::wstring> splitSteps(const std::wstring &answer) {
  std::vector<std::wstring> steps;
  std::wstring current;
  bool quoted = false;
  for (size_t i = 0; i < answer.size(); ++i) {
    wchar_t c = answer[i];
    if (quoted && c == L'\\' && i + 1 < answer.size()) {
      current += c;
      current += answer[++i];
      continue;
    }
    if (c == L'"') quoted = !quoted;
    if (!quoted && (c == L';' || c == L'\n')) {
      if (!trim(current).empty()) steps.push_back(trim(current));
      current.clear();
      continue;
    }
    current += c;
  }
  if (!trim(current).empty()) steps.push_back(trim(current));
  return steps;
}

std::wstring unquote(const std::wstring &value) {
  std::wstring v = trim(value);
  if (v.size() < 2 || v.front() != L'"' || v.back() != L'"') return v;
  std::wstring out;
  for (size_t i = 1; i + 1 < v.size(); ++i) {
    if (v[i] == L'\\' && i + 2 < v.size()) ++i;
    out += v[i];
  }
  return out;
}

// --- Grid --------------------------------------------------------------------

int Grid::column(const std::wstring &key) const {
  for (size_t c = 0; c < columns.size(); ++c)
    if (sameName(columns[c].key, key)) return int(c);
  return -1;
}

std::vector<int> Grid::shownRows() const {
  std::vector<int> out;
  for (size_t r = 0; r < rows.size(); ++r) {
    if (rows[r].deleted || rows[r].parent != -1) continue;
    out.push_back(int(r));
    for (size_t k = 0; k < rows.size(); ++k)
      if (!rows[k].deleted && rows[k].parent == int(r)) out.push_back(int(k));
  }
  return out;
}

std::wstring Grid::path(int row) const {
  const Row &r = rows[row];
  std::wstring key = r.cells.empty() ? L"" : r.cells[0];
  return r.parent == -1 ? key : rows[r.parent].cells[0] + L"/" + key;
}

int Grid::findRow(const std::wstring &name, int lastAdded) const {
  std::vector<int> shown = shownRows();
  if (name == L"*") {
    return std::find(shown.begin(), shown.end(), lastAdded) != shown.end() ? lastAdded : -1;
  }
  if (!name.empty() && std::all_of(name.begin(), name.end(), [](wchar_t c) { return c >= L'0' && c <= L'9'; })) {
    size_t n = name.size() > 6 ? 0 : std::stoul(name);
    return n >= 1 && n <= shown.size() ? shown[n - 1] : -1;
  }
  for (int r : shown)
    if (sameName(path(r), name)) return r;
  return -1;
}

int Grid::addRow(int parent) {
  Row row;
  row.cells.assign(columns.size(), L"");
  row.parent = parent;
  row.leaf = parent != -1;
  rows.push_back(std::move(row));
  return int(rows.size()) - 1;
}

void Grid::deleteRow(int row) {
  rows[row].deleted = true;
  for (Row &r : rows)
    if (r.parent == row) r.deleted = true;
}

std::wstring Grid::draw() const {
  std::wstring out = L"    #  ";
  for (const Column &c : columns) out += fit(c.title, c.width) + L" ";
  while (out.back() == L' ') out.pop_back();
  out += L"\n";
  std::vector<int> shown = shownRows();
  for (size_t n = 0; n < shown.size(); ++n) {
    const Row &r = rows[shown[n]];
    if (r.parent != -1 && !rows[r.parent].expanded) continue;
    wchar_t number[16];
    swprintf(number, 16, L"%5zu  ", n + 1);
    out += number;
    for (size_t c = 0; c < columns.size(); ++c) {
      std::wstring cell = r.cells[c];
      if (int(c) == r.masked && !cell.empty()) cell = L"********";
      switch (columns[c].kind) {
        case CellKind::Check:
          cell = cell == L"1" ? L"[x]" : L"[ ]";
          break;
        case CellKind::Button:
          cell = L"[" + cell + L"]";
          break;
        case CellKind::Tree: {
          bool hasChildren = false;
          for (const Row &k : rows)
            if (!k.deleted && k.parent == shown[n]) hasChildren = true;
          if (r.parent != -1) cell = L"   " + cell;
          else cell = std::wstring(hasChildren ? (r.expanded ? L"[-] " : L"[+] ") : L"    ") + cell;
          break;
        }
        default:
          break;
      }
      out += fit(cell, columns[c].width) + L" ";
    }
    while (!out.empty() && out.back() == L' ') out.pop_back();
    out += L"\n";
  }
  if (shown.empty()) out += L"       (no rows)\n";
  return out;
}

// --- GridDialog --------------------------------------------------------------

Refusal GridDialog::checkCell(int, int column, std::wstring &value) {
  const Column &c = grid.columns[column];
  if (c.kind == CellKind::Combo) {
    for (const std::wstring &item : c.choices) {
      if (sameName(item, value)) {
        value = item;
        return std::nullopt;
      }
    }
    throw CannotDo{L"\"" + value + L"\" is not an item of " + c.title};
  }
  if (c.kind == CellKind::Check && value != L"0" && value != L"1") throw CannotDo{L"a check is 0 or 1"};
  return std::nullopt;
}
Refusal GridDialog::checkDelete(int) {
  return std::nullopt;
}
Refusal GridDialog::checkAdd(int parent) {
  if (parent != -1) throw CannotDo{L"rows are not added under others here"};
  return std::nullopt;
}
void GridDialog::initRow(int) {}
Refusal GridDialog::press(int, int column) {
  throw CannotDo{grid.columns[column].title + L" has nothing to press"};
}
Refusal GridDialog::checkOk() {
  return std::nullopt;
}

void GridDialog::refuse(const std::wstring &why) {
  acutPrintf(L"[%s] %s\n", title_.c_str(), why.c_str());
}

// The window as it opens, for a picture of it.
PersonWindow GridDialog::window() const {
  PersonWindow w;
  w.caption = title_;
  w.buttons = {L"OK", L"Cancel"};
  for (const Column &c : grid.columns)
    w.columns.push_back({c.title, c.width, static_cast<PersonWindow::CellKind>(c.kind)});
  std::vector<int> shown = grid.shownRows();
  for (size_t n = 0; n < shown.size(); ++n) {
    const Row &r = grid.rows[shown[n]];
    if (r.parent != -1 && !grid.rows[r.parent].expanded) continue;
    PersonWindow::Row row;
    row.cells = r.cells;
    if (r.masked >= 0 && !row.cells[r.masked].empty()) row.cells[r.masked] = L"********";
    row.number = int(n + 1);
    row.child = r.parent != -1;
    bool children = false;
    for (const Row &k : grid.rows) children = children || (!k.deleted && k.parent == shown[n]);
    row.box = children ? (r.expanded ? 1 : -1) : 0;
    w.rows.push_back(std::move(row));
  }
  return w;
}

bool GridDialog::run() {
  acutPrintf(L"\n[%s]\n%s", title_.c_str(), grid.draw().c_str());
  std::wstring answer;
  if (!acedPersonAnswer(window(), &answer)) return false;
  return runSteps(answer);
}

bool GridDialog::runSteps(const std::wstring &answer) {
  int lastAdded = -1;
  for (const std::wstring &s : splitSteps(answer)) {
    Outcome o;
    try {
      o = step(s, lastAdded);
    } catch (const CannotDo &c) {
      acutPrintf(L"[%s] cannot do \"%s\": %s; the dialog is cancelled\n", title_.c_str(), s.c_str(),
                 c.why.c_str());
      return false;
    }
    if (o == Outcome::Ok) {
      acutPrintf(L"[%s] -> OK\n", title_.c_str());
      return true;
    }
    if (o == Outcome::Cancel) {
      acutPrintf(L"[%s] -> Cancel\n", title_.c_str());
      return false;
    }
  }
  acutPrintf(L"[%s] -> Cancel (the steps ran out)\n", title_.c_str());
  return false;
}

GridDialog::Outcome GridDialog::step(const std::wstring &text, int &lastAdded) {
  size_t eq = findOutsideQuotes(text, L'=');
  std::wstring target = trim(text.substr(0, eq));
  std::optional<std::wstring> value;
  if (eq != std::wstring::npos) value = unquote(text.substr(eq + 1));

  if (!value && (sameName(target, L"OK") || sameName(target, L"accept"))) {
    if (Refusal r = checkOk()) {
      refuse(*r);
      return Outcome::Continue;
    }
    return Outcome::Ok;
  }
  if (!value && sameName(target, L"cancel")) return Outcome::Cancel;
  if (sameName(target, L"add")) {
    int parent = -1;
    std::wstring key = value.value_or(L"");
    if (size_t slash = key.rfind(L'/'); slash != std::wstring::npos) {
      parent = grid.findRow(key.substr(0, slash), lastAdded);
      if (parent == -1 || grid.rows[parent].parent != -1) throw CannotDo{L"no row \"" + key.substr(0, slash) + L"\""};
      key = key.substr(slash + 1);
    }
    if (Refusal r = checkAdd(parent)) {
      refuse(*r);
      return Outcome::Continue;
    }
    int row = grid.addRow(parent);
    initRow(row);
    lastAdded = row;
    if (value) {
      std::wstring k = key;
      if (Refusal r = checkCell(row, 0, k)) {
        grid.rows[row].deleted = true;
        refuse(*r);
        return Outcome::Continue;
      }
      grid.rows[row].cells[0] = k;
    }
    return Outcome::Continue;
  }
  if (sameName(target, L"delete")) {
    if (!value) throw CannotDo{L"delete names a row (delete=ROW)"};
    int row = grid.findRow(*value, lastAdded);
    if (row == -1) throw CannotDo{L"no row \"" + *value + L"\""};
    if (Refusal r = checkDelete(row)) {
      refuse(*r);
      return Outcome::Continue;
    }
    grid.deleteRow(row);
    return Outcome::Continue;
  }

  size_t dot = target.rfind(L'.');
  if (dot == std::wstring::npos) throw CannotDo{L"not a step of this dialog"};
  std::wstring rowName = trim(target.substr(0, dot));
  int row = grid.findRow(rowName, lastAdded);
  if (row == -1) throw CannotDo{L"no row \"" + rowName + L"\""};
  int column = grid.column(trim(target.substr(dot + 1)));
  if (column == -1) throw CannotDo{L"no column \"" + trim(target.substr(dot + 1)) + L"\""};
  const Column &c = grid.columns[column];
  std::wstring &cell = grid.rows[row].cells[column];
  if (!value) {
    switch (c.kind) {
      case CellKind::Button:
        if (Refusal r = press(row, column)) refuse(*r);
        return Outcome::Continue;
      case CellKind::Tree:
        grid.rows[row].expanded = !grid.rows[row].expanded;
        return Outcome::Continue;
      case CellKind::Check: {
        std::wstring flipped = cell == L"1" ? L"0" : L"1";
        if (c.readOnly) throw CannotDo{c.title + L" cannot be changed"};
        if (Refusal r = checkCell(row, column, flipped)) refuse(*r);
        else cell = flipped;
        return Outcome::Continue;
      }
      default:
        throw CannotDo{c.title + L" is not pressed; give it a value"};
    }
  }
  if (c.readOnly) throw CannotDo{c.title + L" cannot be changed"};
  std::wstring v = *value;
  if (Refusal r = checkCell(row, column, v)) {
    refuse(*r);
    return Outcome::Continue;
  }
  cell = v;
  return Outcome::Continue;
}

}  // namespace vantry::grid
