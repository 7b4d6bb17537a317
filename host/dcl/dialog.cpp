// Running dialogs: loaded files, the stack of dialogs, tile values, and the
// scripted person who answers a started dialog.
//
// One queued dialog answer serves one start_dialog. It is a list of steps
// separated by ";" (or line breaks), done in order:
//   key=value   the person sets the tile: types into an edit box, picks list
//               items (indices, "0 2" for several, or an item's text), sets a
//               toggle ("0"/"1"), selects a radio button of a cluster by its
//               key, moves a slider, clicks an image button at "x,y"
//   key         the person presses the tile: a button, a toggle (flips), a
//               radio button (selects)
//   OK, Cancel  Enter (the default button) and Esc (the cancel button), when
//               no tile has that key
// A value may be written in double quotes (with \" and \\) to hold ";".
// Each step runs the tile's action as the host does. When the steps are
// spent, or one cannot be done, the dialog is cancelled (Esc); with nothing
// queued it is cancelled at once. The transcript shows the dialog, the
// answer and the status.
#include <algorithm>
#include <cwctype>
#include <filesystem>
#include <fstream>

#include "common/files.h"
#include "common/text.h"
#include "dcl/dcl.h"
#include "host/arx.h"
#include "session/session.h"

namespace vantry::host::dcl {

std::function<Action(const std::wstring &)> lispAction;

namespace {

void print(const std::wstring &s) { Session::get().print(s); }

// acad.dce in the current directory holds the findings of the latest load;
// a clean load removes it.
void writeErrorFile(const std::wstring &path, const std::vector<Diagnostic> &diags) {
  std::error_code ec;
  if (diags.empty()) {
    std::filesystem::remove("acad.dce", ec);
    return;
  }
  std::ofstream out("acad.dce", std::ios::binary | std::ios::trunc);
  std::wstring text = L"====== DCL audit of " + path + L" ======\n\n";
  for (const Diagnostic &d : diags) text += d.text() + L"\n\n";
  out << text::toUtf8(text);
}

std::vector<std::wstring> splitSteps(const std::wstring &answer) {
  std::vector<std::wstring> steps;
  std::wstring cur;
  bool quoted = false;
  for (size_t i = 0; i < answer.size(); ++i) {
    wchar_t c = answer[i];
    if (quoted && c == L'\\' && i + 1 < answer.size()) {
      cur += c;
      cur += answer[++i];
      continue;
    }
    if (c == L'"') quoted = !quoted;
    if (!quoted && (c == L';' || c == L'\n')) {
      steps.push_back(cur);
      cur.clear();
      continue;
    }
    cur += c;
  }
  steps.push_back(cur);
  std::vector<std::wstring> out;
  for (std::wstring &s : steps) {
    size_t a = s.find_first_not_of(L" \t\r"), b = s.find_last_not_of(L" \t\r");
    if (a != std::wstring::npos) out.push_back(s.substr(a, b - a + 1));
  }
  return out;
}

std::wstring unquote(const std::wstring &v) {
  if (v.size() < 2 || v.front() != L'"' || v.back() != L'"') return v;
  std::wstring out;
  for (size_t i = 1; i + 1 < v.size(); ++i) {
    if (v[i] == L'\\' && i + 2 < v.size()) ++i;
    out += v[i];
  }
  return out;
}

bool hasAction(const TileState &t) { return bool(t.action) || t.tile->attr(L"action"); }

bool isRadioCluster(const Tile &t) { return t.kind.find(L"radio_") != std::wstring::npos; }

Dialog *running() {
  auto &stack = screen().stack;
  for (auto it = stack.rbegin(); it != stack.rend(); ++it)
    if ((*it)->started && !(*it)->done) return it->get();
  return screen().current();
}

// A list value from the person: indices ("2", "0 3") or an item's text.
bool listValue(const TileState &t, const std::wstring &v, std::wstring &out, std::wstring &why) {
  bool digits = !v.empty() && std::all_of(v.begin(), v.end(), [](wchar_t c) { return std::iswdigit(c) || c == L' '; });
  if (!digits) {
    auto it = std::find(t.list.begin(), t.list.end(), v);
    if (it == t.list.end()) return why = L"no item \"" + v + L"\"", false;
    out = std::to_wstring(it - t.list.begin());
    return true;
  }
  std::vector<long> picked;
  size_t pos = 0;
  while (pos < v.size()) {
    size_t end = v.find(L' ', pos);
    std::wstring n = v.substr(pos, end == std::wstring::npos ? std::wstring::npos : end - pos);
    if (!n.empty()) picked.push_back(std::wcstol(n.c_str(), nullptr, 10));
    pos = end == std::wstring::npos ? v.size() : end + 1;
  }
  if (picked.size() > 1 && (t.tile->kind != L"list_box" || !t.tile->flag(L"multiple_select")))
    return why = L"only one item can be picked", false;
  out.clear();
  for (long i : picked) {
    if (i < 0 || size_t(i) >= t.list.size()) return why = L"no item " + std::to_wstring(i), false;
    out += (out.empty() ? L"" : L" ") + std::to_wstring(i);
  }
  return true;
}

// Esc: the cancel button's action, or the dialog ends with status 0.
void escape(Dialog &d) {
  for (auto &[key, t] : d.tiles)
    if (t.tile->kind == L"button" && (t.tile->flag(L"is_cancel") || key == L"cancel") && t.enabled) {
      fire(d, &t, key, 1);
      return;
    }
  d.done = true;
  d.status = 0;
}

// Enter: the default button's action; false when the dialog has none.
bool enter(Dialog &d) {
  for (auto &[key, t] : d.tiles)
    if (t.tile->kind == L"button" && (t.tile->flag(L"is_default") || key == L"accept") && t.enabled) {
      fire(d, &t, key, 1);
      return true;
    }
  return false;
}

// One step of the person; an empty result when done, else why not.
std::wstring perform(Dialog &d, const std::wstring &step) {
  size_t eq = step.find(L'=');
  std::wstring key = step.substr(0, eq), value = eq == std::wstring::npos ? L"" : unquote(step.substr(eq + 1));
  while (!key.empty() && key.back() == L' ') key.pop_back();
  TileState *t = d.find(key);
  if (!t) {
    std::wstring word = text::upcase(key);
    if (eq == std::wstring::npos && word == L"OK") return enter(d) ? L"" : L"the dialog has no default button";
    if (eq == std::wstring::npos && word == L"CANCEL") return escape(d), L"";
    return L"no tile \"" + key + L"\"";
  }
  if (!t->enabled) return L"the tile \"" + key + L"\" is disabled";
  const std::wstring &kind = t->tile->kind;
  if (eq == std::wstring::npos) {
    if (kind == L"button" || kind == L"image_button") {
      fire(d, t, key, 1);
    } else if (kind == L"toggle") {
      d.setValue(*t, t->value == L"1" ? L"0" : L"1");
      fire(d, t, key, 1);
    } else if (kind == L"radio_button") {
      d.setValue(*t, L"1");
      fire(d, t, key, 1);
    } else {
      return L"the tile \"" + key + L"\" takes a value (" + key + L"=...)";
    }
    return L"";
  }
  std::wstring why;
  if (kind == L"edit_box") {
    size_t limit = size_t(t->tile->number(L"edit_limit", 132));
    d.setValue(*t, value.substr(0, limit));
    fire(d, t, key, 2);
  } else if (kind == L"list_box" || kind == L"popup_list") {
    std::wstring v;
    if (!listValue(*t, value, v, why)) return L"the tile \"" + key + L"\": " + why;
    d.setValue(*t, v);
    fire(d, t, key, 1);
  } else if (kind == L"toggle") {
    if (value != L"0" && value != L"1") return L"a toggle is \"0\" or \"1\"";
    d.setValue(*t, value);
    fire(d, t, key, 1);
  } else if (kind == L"radio_button") {
    if (value != L"1") return L"a radio button is only selected (" + key + L"=1)";
    d.setValue(*t, value);
    fire(d, t, key, 1);
  } else if (isRadioCluster(*t->tile)) {
    TileState *button = d.find(value);
    if (!button || button->tile->parent != t->tile) return L"the cluster \"" + key + L"\" has no button \"" + value + L"\"";
    if (!button->enabled) return L"the tile \"" + value + L"\" is disabled";
    d.setValue(*button, L"1");
    fire(d, button, value, 1);
  } else if (kind == L"slider") {
    wchar_t *end = nullptr;
    long v = std::wcstol(value.c_str(), &end, 10);
    long lo = long(t->tile->number(L"min_value", 0)), hi = long(t->tile->number(L"max_value", 10000));
    if (end == value.c_str() || *end || v < std::min(lo, hi) || v > std::max(lo, hi))
      return L"the slider \"" + key + L"\" takes a whole number from " + std::to_wstring(lo) + L" to " + std::to_wstring(hi);
    d.setValue(*t, std::to_wstring(v));
    fire(d, t, key, 1);
  } else if (kind == L"image_button") {
    int x = 0, y = 0;
    if (swscanf(value.c_str(), L"%d,%d", &x, &y) != 2) return L"an image button is clicked at \"x,y\"";
    fire(d, t, key, 1, x, y);
  } else {
    return L"a person cannot set the " + kind + L" \"" + key + L"\"";
  }
  return L"";
}

// Ends d and whatever was begun above it (nested dialogs that an error left).
void pop(Dialog *d) {
  auto &stack = screen().stack;
  auto it = std::find_if(stack.begin(), stack.end(), [&](auto &p) { return p.get() == d; });
  if (screen().image && it != stack.end()) screen().image = nullptr;
  if (screen().list && it != stack.end()) screen().list = nullptr;
  if (it != stack.end()) stack.erase(it, stack.end());
}

}  // namespace

Screen &screen() {
  static Screen s;
  return s;
}

void reset() {
  Screen &s = screen();
  s.stack.clear();
  s.files.clear();
  s.nextId = 1;
  s.image = s.list = nullptr;
}

TileState *Dialog::find(const std::wstring &key) {
  auto it = tiles.find(key);
  return it == tiles.end() ? nullptr : &it->second;
}

void Dialog::setValue(TileState &t, const std::wstring &v) {
  Tile *tile = t.tile;
  if (tile->kind == L"radio_button") {
    t.value = v == L"1" ? L"1" : L"0";
    if (t.value == L"1" && tile->parent) {
      for (auto &c : tile->parent->children)
        if (c.get() != tile && c->kind == L"radio_button")
          if (TileState *o = find(c->key())) o->value = L"0";
      if (TileState *cluster = find(tile->parent->key())) cluster->value = tile->key();
    }
    return;
  }
  if (isRadioCluster(*tile)) {
    if (TileState *b = find(v); b && b->tile->parent == tile) setValue(*b, L"1");
    return;
  }
  t.value = v;
}

std::wstring Dialog::value(TileState &t) const {
  if (isRadioCluster(*t.tile))
    for (auto &c : t.tile->children)
      if (auto it = tiles.find(c->key()); c->kind == L"radio_button" && it != tiles.end() && it->second.value == L"1")
        return c->key();
  return t.value;
}

int loadDialogFile(const std::wstring &name, const std::vector<std::wstring> &searchPath) {
  std::wstring file = name;
  size_t slash = file.find_last_of(L"/\\");
  if (file.find(L'.', slash == std::wstring::npos ? 0 : slash + 1) == std::wstring::npos) file += L".dcl";
  std::wstring path;
  if (files::isFile(file)) {
    path = file;
  } else if (slash == std::wstring::npos) {
    for (const std::wstring &dir : searchPath)
      if (files::isFile(dir + file)) {
        path = dir + file;
        break;
      }
  }
  if (path.empty()) return -1;
  std::vector<Diagnostic> diags;
  std::shared_ptr<const File> loaded = loadFile(path, &diags);
  writeErrorFile(path, diags);
  if (!diags.empty()) {
    const Diagnostic &first = diags.front();
    std::wstring message;
    if (first.message.rfind(L"syntax error", 0) == 0)
      message = L"Error in dialog file\n\"" + first.file + L"\", line " + std::to_wstring(first.line) + L":\n" + first.message;
    else
      message = std::wstring(loaded ? L"Dialog file \"" : L"Errors in dialog file \"") + path +
                L"\".\nSee acad.dce for details.";
    acedAlert(message.c_str());
  }
  if (!loaded) return -1;
  Screen &s = screen();
  s.files[s.nextId] = loaded;
  return s.nextId++;
}

std::unique_ptr<Dialog> makeDialog(std::shared_ptr<const File> file, const std::wstring &name, std::wstring *why) {
  std::unique_ptr<Tile> root = instance(*file, name, why);
  if (!root) return nullptr;
  auto d = std::make_unique<Dialog>();
  d->name = name;
  d->title = shownLabel(root->str(L"label", name));
  d->file = std::move(file);
  std::function<void(Tile &)> collect = [&](Tile &t) {
    std::wstring key = t.key();
    if (!key.empty() && !d->tiles.count(key)) {
      TileState &st = d->tiles[key];
      st.tile = &t;
      st.value = t.str(L"value");
      st.enabled = t.str(L"is_enabled") != L"false";
      std::wstring list = t.str(L"list");
      for (size_t pos = 0; !list.empty() && pos <= list.size();) {
        size_t nl = list.find(L'\n', pos);
        st.list.push_back(list.substr(pos, nl == std::wstring::npos ? std::wstring::npos : nl - pos));
        if (nl == std::wstring::npos) break;
        pos = nl + 1;
      }
      if (t.kind == L"toggle" || t.kind == L"radio_button") st.value = st.value == L"1" ? L"1" : L"0";
    }
    for (auto &c : t.children) collect(*c);
  };
  collect(*root);
  d->root = std::move(root);
  // A radio cluster's value names its selected button.
  for (auto &[key, st] : d->tiles)
    if (st.tile->kind == L"radio_button" && st.value == L"1") d->setValue(st, L"1");
  return d;
}

Dialog *newDialog(const std::wstring &name, int id, Action defaultAction, int x, int y) {
  Screen &s = screen();
  auto f = s.files.find(id);
  if (f == s.files.end()) return nullptr;
  std::unique_ptr<Dialog> d = makeDialog(f->second, name);
  if (!d) return nullptr;
  d->defaultAction = std::move(defaultAction);
  d->posX = x;
  d->posY = y;
  s.stack.push_back(std::move(d));
  return s.stack.back().get();
}

std::optional<int> startDialog(Dialog *d) {
  for (auto it = screen().stack.rbegin(); !d && it != screen().stack.rend(); ++it)
    if (!(*it)->started) d = it->get();
  if (!d || d->started) return std::nullopt;
  d->started = true;
  const std::wstring tag = L"[" + d->title + L"] ";
  try {
    std::optional<std::wstring> answer = d->done ? std::nullopt : Session::get().nextDialogAnswer();
    if (d->done) {
      // done_dialog before start_dialog: it ends at once.
    } else if (!answer) {
      print(tag + L"-> Cancel (no answer queued)\n");
      escape(*d);
    } else {
      print(tag + *answer + L"\n");
      for (const std::wstring &step : splitSteps(*answer)) {
        if (d->done) break;
        std::wstring why = perform(*d, step);
        if (!why.empty()) {
          print(tag + L"cannot do \"" + step + L"\": " + why + L"; the dialog is cancelled\n");
          escape(*d);
        }
      }
      if (!d->done) {
        print(tag + L"no more answers: the dialog is cancelled\n");
        escape(*d);
      }
    }
    if (!d->done) {
      // The cancel button's action did not end the dialog: a person would
      // be stuck; the headless host closes it.
      print(tag + L"the cancel action left the dialog open; it is closed\n");
      d->done = true;
      d->status = 0;
    }
  } catch (...) {
    termDialogs();
    pop(d);
    throw;
  }
  int status = d->status;
  print(tag + L"-> " + std::to_wstring(status) + L"\n");
  pop(d);
  return status;
}

bool doneDialog(Dialog *d, std::optional<int> status, int *x, int *y) {
  if (!d) d = running();
  if (!d) return false;
  d->done = true;
  d->status = status.value_or(0);
  if (x) *x = d->posX >= 0 ? d->posX : (1920 - d->root->width) / 2;
  if (y) *y = d->posY >= 0 ? d->posY : (1080 - d->root->height) / 2;
  return true;
}

bool startList(TileState *t, int operation, int index) {
  Screen &s = screen();
  s.list = nullptr;
  if (!t || (t->tile->kind != L"list_box" && t->tile->kind != L"popup_list") || operation < 1 || operation > 3)
    return false;
  s.list = t;
  s.listOperation = operation;
  s.listIndex = index;
  if (operation == 3) {
    t->list.clear();
    t->value.clear();
  }
  return true;
}

bool addList(const std::wstring &item) {
  Screen &s = screen();
  if (!s.list) return false;
  if (s.listOperation != 1) {
    s.list->list.push_back(item);
    return true;
  }
  if (s.listIndex < 0 || size_t(s.listIndex) >= s.list->list.size()) return false;
  s.list->list[size_t(s.listIndex++)] = item;
  return true;
}

void endList() { screen().list = nullptr; }

bool startImage(TileState *t) {
  screen().image = nullptr;
  if (!t || (t->tile->kind != L"image" && t->tile->kind != L"image_button")) return false;
  screen().image = t;
  return true;
}

bool addImage(const ImageOp &op) {
  if (!screen().image) return false;
  screen().image->image.push_back(op);
  return true;
}

void endImage() { screen().image = nullptr; }

void termDialogs() {
  for (auto &d : screen().stack) {
    d->done = true;
    d->status = -1;
  }
}

void fire(Dialog &d, TileState *t, const std::wstring &key, int reason, int x, int y) {
  Event ev;
  ev.dialog = &d;
  ev.key = key;
  ev.reason = reason;
  ev.x = x;
  ev.y = y;
  ev.tile = t;
  if (t) {
    ev.value = d.value(*t);
    ev.data = t->data;
    // A radio button without an action of its own tells its cluster.
    if (t->tile->kind == L"radio_button" && !hasAction(*t) && t->tile->parent)
      if (TileState *cluster = d.find(t->tile->parent->key()); cluster && hasAction(*cluster)) {
        fire(d, cluster, cluster->tile->key(), reason);
        return;
      }
    if (t->action) return t->action(ev);
    if (const Attribute *a = t->tile->attr(L"action"); a && lispAction) return lispAction(a->value)(ev);
    if (t->tile->kind == L"button" && (key == L"accept" || key == L"cancel" || t->tile->flag(L"is_cancel"))) {
      d.done = true;
      d.status = key == L"accept" ? 1 : 0;
      return;
    }
  }
  if (d.defaultAction) d.defaultAction(ev);
}

}  // namespace vantry::host::dcl
