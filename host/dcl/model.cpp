// DCL files resolved: includes read, prototypes followed, attributes
// inherited, dialogs instanced as tile trees, and the semantic audit.
//
// A tile's attributes are those of its prototypes in the order written
// (a later prototype overrides an earlier one) and then its own. Its
// children are its own when it lists any, otherwise its prototypes'.
// Names are looked up in the file, then in the files it includes, then in
// the base definitions.
//
// Audit levels: 1 finds what stops a dialog from being built (an undefined
// tile, a prototype chain that loops or ends nowhere, an include that is not
// there); 2 what makes it behave badly (an active tile without a key, a key
// used twice, an attribute value of the wrong kind, a dialog no one can
// leave); 3 attributes that repeat what they inherit.
#include <algorithm>
#include <cwctype>
#include <fstream>
#include <set>
#include <sstream>

#include "common/text.h"
#include "dcl/dcl.h"

namespace vantry::host::dcl {
namespace {

const std::set<std::wstring> kPrimitives = {
    L"dialog",      L"row",         L"column",       L"boxed_row",     L"boxed_column", L"radio_row",
    L"radio_column", L"boxed_radio_row", L"boxed_radio_column", L"concatenation", L"paragraph",
    L"button",      L"image_button", L"edit_box",    L"list_box",      L"popup_list",   L"toggle",
    L"radio_button", L"slider",     L"text",         L"text_part",     L"image",        L"spacer",
    L"dcl_settings"};

const std::set<std::wstring> kActive = {L"button",   L"image_button", L"edit_box", L"list_box",
                                        L"popup_list", L"toggle",     L"radio_button", L"slider"};

const std::set<std::wstring> kNumeric = {L"width",          L"height",        L"edit_width", L"edit_limit",
                                         L"min_value",      L"max_value",     L"small_increment",
                                         L"big_increment",  L"aspect_ratio",  L"audit_level", L"color"};
const std::set<std::wstring> kBoolean = {L"fixed_width",          L"fixed_height",         L"is_default",
                                         L"is_cancel",            L"is_enabled",           L"is_tab_stop",
                                         L"is_bold",              L"multiple_select",      L"allow_accept",
                                         L"children_fixed_width", L"children_fixed_height", L"fixed_width_font",
                                         L"tab_truncate"};
const std::set<std::wstring> kAlignments = {L"left", L"right", L"top", L"bottom", L"centered"};

bool isNumber(const std::wstring &s) {
  if (s.empty()) return false;
  wchar_t *end = nullptr;
  std::wcstod(s.c_str(), &end);
  return *end == 0;
}

class Builder {
 public:
  Builder(const File &scope, std::vector<Diagnostic> *diags) : scope_(scope), diags_(diags) {}

  // The tile a definition stands for; null when it cannot be built.
  std::unique_ptr<Tile> build(const Definition &d) {
    auto tile = std::make_unique<Tile>();
    tile->file = d.file;
    tile->line = d.line;
    bool inheritedChildren = false;
    for (const std::wstring &p : d.prototypes) {
      if (isPrimitive(p)) {
        tile->kind = p;
        continue;
      }
      const Definition *proto = scope_.find(p);
      if (!proto) {
        report(d, L"Tile \"" + p + L"\" is not defined.");
        return nullptr;
      }
      if (std::find(chain_.begin(), chain_.end(), proto) != chain_.end()) {
        report(d, L"Tile \"" + p + L"\" is its own prototype (a circular definition).");
        return nullptr;
      }
      chain_.push_back(proto);
      std::unique_ptr<Tile> base = build(*proto);
      chain_.pop_back();
      if (!base) return nullptr;
      tile->kind = base->kind;
      for (auto &[name, a] : base->attrs) tile->attrs[name] = a;
      if (!base->children.empty()) {
        tile->children = std::move(base->children);
        inheritedChildren = true;
      }
    }
    if (tile->kind.empty()) {
      report(d, L"Tile \"" + d.name + L"\" has no prototype.");
      return nullptr;
    }
    for (const Attribute &a : d.attributes) {
      auto it = tile->attrs.find(a.name);
      if (it != tile->attrs.end() && it->second.value == a.value)
        hint(d.file, a.line, L"Attribute \"" + a.name + L"\" repeats the value it inherits (" + a.value + L").");
      tile->attrs[a.name] = a;
    }
    if (!d.children.empty()) {
      if (inheritedChildren) tile->children.clear();
      for (const Definition &c : d.children) {
        std::unique_ptr<Tile> child = build(c);
        if (!child) return nullptr;
        tile->children.push_back(std::move(child));
      }
    }
    for (auto &c : tile->children) c->parent = tile.get();
    return tile;
  }

 private:
  void report(const Definition &d, std::wstring message) {
    if (!diags_) return;
    Diagnostic g;
    g.level = Diagnostic::Error;
    g.file = d.file;
    g.line = d.line;
    g.message = std::move(message);
    diags_->push_back(std::move(g));
  }
  void hint(const std::wstring &file, int line, std::wstring message) {
    if (!diags_) return;
    diags_->push_back({Diagnostic::Hint, file, line, std::move(message)});
  }

  const File &scope_;
  std::vector<Diagnostic> *diags_;
  std::vector<const Definition *> chain_;
};

// Level 2: what a person would trip over in a built dialog.
void auditDialog(const Tile &root, std::vector<Diagnostic> &out) {
  std::set<std::wstring> keys;
  bool canLeave = false;
  std::function<void(const Tile &)> walk = [&](const Tile &t) {
    auto warn = [&](std::wstring message) { out.push_back({Diagnostic::Warning, t.file, t.line, std::move(message)}); };
    std::wstring key = t.key();
    if (t.isActive() && key.empty()) warn(L"A " + t.kind + L" tile has no key: no program can reach it.");
    if (!key.empty() && !keys.insert(key).second) warn(L"The key \"" + key + L"\" is used by more than one tile.");
    if (t.kind == L"button" && (t.flag(L"is_cancel") || t.flag(L"is_default") || key == L"accept" || key == L"cancel"))
      canLeave = true;
    for (const auto &[name, a] : t.attrs) {
      if (kNumeric.count(name) && !isNumber(a.value))
        warn(L"Attribute \"" + name + L"\" wants a number, not \"" + a.value + L"\".");
      else if (kBoolean.count(name) && a.value != L"true" && a.value != L"false")
        warn(L"Attribute \"" + name + L"\" wants true or false, not \"" + a.value + L"\".");
      else if ((name == L"alignment" || name == L"children_alignment") && !kAlignments.count(a.value))
        warn(L"Attribute \"" + name + L"\" has an unknown value \"" + a.value + L"\".");
    }
    for (const auto &c : t.children) walk(*c);
  };
  walk(root);
  if (!canLeave)
    out.push_back({Diagnostic::Warning, root.file, root.line,
                   L"The dialog has neither an OK nor a Cancel button: a person cannot leave it."});
}

bool readText(const std::wstring &path, std::wstring &text) {
  std::ifstream in(text::nativePath(path), std::ios::binary);
  if (!in) return false;
  std::ostringstream bytes;
  bytes << in.rdbuf();
  text = text::fromUtf8(bytes.str());
  return true;
}

std::wstring directoryOf(const std::wstring &path) {
  size_t slash = path.find_last_of(L"/\\");
  return slash == std::wstring::npos ? L"" : path.substr(0, slash + 1);
}

bool isAbsolute(const std::wstring &p) {
  return !p.empty() && (p[0] == L'/' || p[0] == L'\\' || (p.size() > 1 && p[1] == L':'));
}

std::shared_ptr<File> build(const std::wstring &text, const std::wstring &path, std::vector<Diagnostic> *diags,
                            std::set<std::wstring> &open, bool base = false) {
  auto file = std::make_shared<File>();
  file->path = path;
  file->base = base;
  std::vector<std::wstring> includes;
  std::vector<Diagnostic> found;
  file->definitions = parse(text, path, &includes, &found);
  bool syntaxError = !found.empty();
  if (!syntaxError) {
    // An included file is looked for as named, then beside the file that
    // includes it.
    for (const std::wstring &inc : includes) {
      std::vector<std::wstring> candidates = {inc};
      if (!isAbsolute(inc)) candidates.push_back(directoryOf(path) + inc);
      std::wstring incText, incPath;
      for (const std::wstring &c : candidates)
        if (readText(c, incText)) {
          incPath = c;
          break;
        }
      if (incPath.empty()) {
        found.push_back({Diagnostic::Error, path, 0, L"Cannot open the included file \"" + inc + L"\"."});
        continue;
      }
      if (open.count(incPath)) continue;  // included twice or in a loop: once is enough
      open.insert(incPath);
      std::shared_ptr<File> sub = build(incText, incPath, &found, open);
      if (sub) file->includes.push_back(sub);
    }
  }
  // dcl_settings in any file read sets the audit level of the whole load.
  for (const Definition &d : file->definitions)
    if (std::find(d.prototypes.begin(), d.prototypes.end(), L"default_dcl_settings") != d.prototypes.end() ||
        std::find(d.prototypes.begin(), d.prototypes.end(), L"dcl_settings") != d.prototypes.end())
      for (const Attribute &a : d.attributes)
        if (a.name == L"audit_level" && isNumber(a.value)) file->auditLevel = std::clamp(int(std::wcstol(a.value.c_str(), nullptr, 10)), 0, 3);
  for (const auto &inc : file->includes) file->auditLevel = std::max(file->auditLevel, inc->auditLevel);

  if (!syntaxError) {
    Builder builder(*file, &found);
    for (const Definition &d : file->definitions) {
      std::unique_ptr<Tile> t = builder.build(d);
      if (t && t->kind == L"dialog") {
        layout(*t);
        auditDialog(*t, found);
      }
    }
  }
  // A definition used by several others is built with each: tell its
  // findings once.
  bool failed = false;
  std::set<std::wstring> told;
  for (Diagnostic &g : found) {
    if (!told.insert(g.text()).second) continue;
    if (g.level == Diagnostic::Error) failed = true;
    if (diags && (g.level <= file->auditLevel || g.level == Diagnostic::Error)) diags->push_back(std::move(g));
  }
  return failed ? nullptr : file;
}

}  // namespace

bool isPrimitive(const std::wstring &kind) { return kPrimitives.count(kind) != 0; }

const Attribute *Tile::attr(const std::wstring &name) const {
  auto it = attrs.find(name);
  return it == attrs.end() ? nullptr : &it->second;
}
std::wstring Tile::str(const std::wstring &name, const std::wstring &fallback) const {
  const Attribute *a = attr(name);
  return a ? a->value : fallback;
}
double Tile::number(const std::wstring &name, double fallback) const {
  const Attribute *a = attr(name);
  return a && isNumber(a->value) ? std::wcstod(a->value.c_str(), nullptr) : fallback;
}
bool Tile::flag(const std::wstring &name) const { return str(name) == L"true"; }
bool Tile::isCluster() const {
  return kind == L"dialog" || kind.find(L"row") != std::wstring::npos || kind.find(L"column") != std::wstring::npos ||
         kind == L"concatenation" || kind == L"paragraph";
}
bool Tile::isActive() const { return kActive.count(kind) != 0; }

std::wstring Diagnostic::text() const {
  std::wstring where = line > 0 ? file + L", line " + std::to_wstring(line) : file;
  const wchar_t *kind = level == Error ? L"Error" : level == Warning ? L"Warning" : L"Hint";
  return std::wstring(kind) + L" in " + where + L":\n   " + message;
}

const Definition *File::find(const std::wstring &name) const {
  // The last definition of a name wins, as a later definition replaces an
  // earlier one.
  for (auto it = definitions.rbegin(); it != definitions.rend(); ++it)
    if (it->name == name) return &*it;
  for (const auto &inc : includes)
    if (const Definition *d = inc->find(name)) return d;
  if (!base)
    for (const Definition &d : baseFile().definitions)
      if (d.name == name) return &d;
  return nullptr;
}

std::shared_ptr<const File> loadText(const std::wstring &text, const std::wstring &path,
                                     std::vector<Diagnostic> *diagnostics) {
  std::set<std::wstring> open = {path};
  return build(text, path, diagnostics, open);
}

const File &baseFile() {
  static const std::shared_ptr<const File> base = [] {
    std::vector<Diagnostic> ignored;
    std::set<std::wstring> open;
    return std::shared_ptr<const File>(build(kBaseDefinitions, L"base.dcl", &ignored, open, true));
  }();
  return *base;
}

std::shared_ptr<const File> loadFile(const std::wstring &path, std::vector<Diagnostic> *diagnostics) {
  std::wstring text;
  if (!readText(path, text)) return nullptr;
  return loadText(text, path, diagnostics);
}

std::unique_ptr<Tile> instance(const File &file, const std::wstring &name, std::wstring *why) {
  const Definition *d = file.find(name);
  if (!d) {
    if (why) *why = L"no dialog \"" + name + L"\"";
    return nullptr;
  }
  Builder builder(file, nullptr);
  std::unique_ptr<Tile> t = builder.build(*d);
  if (!t || t->kind != L"dialog") {
    if (why) *why = L"\"" + name + L"\" is not a dialog";
    return nullptr;
  }
  layout(*t);
  return t;
}

}  // namespace vantry::host::dcl
