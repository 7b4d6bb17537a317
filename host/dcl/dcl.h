// Dialogs described in the dialog control language (DCL): the host's
// programmable dialog boxes, run headless.
//
// A DCL file is read into definitions (parser.cpp), checked and resolved
// against the base definitions every file sees (base.cpp) and the files it
// includes (model.cpp). A dialog is instanced from a resolved definition:
// a tree of tiles, each with its attributes after inheritance, laid out in
// pixels (layout.cpp). The running dialog (dialog.cpp) keeps what LISP or a
// module changes at run time (values, lists, images, modes, actions); the
// scripted person answers it from the session's dialog queue, one queued
// answer per dialog, as steps ("key=value", "key" to press, ";" between).
//
// Who calls it: the LISP built-ins (lisp.cpp), the host's C API for
// programmable dialogs (include/host/adsdlg.h, api.cpp) and the runner's
// render-dialog (render/dialog.cpp). docs/dialogs.md tells the whole story.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vantry::lisp {
class Interp;
}

namespace vantry::host::dcl {

// --- Definitions as written ------------------------------------------------

// One attribute: name = value. Strings keep their text without quotes;
// numbers and reserved words (true, false, left, centered ...) keep theirs.
struct Attribute {
  std::wstring name, value;
  bool quoted = false;  // written as a "string"
  int line = 0;
};

// A tile definition: `name : proto [: proto ...] { attributes; children }`
// at the top of a file, or a child within one: `: proto { ... }` (no name)
// or a reference `name;`.
struct Definition {
  std::wstring name;                     // empty for an anonymous child
  std::vector<std::wstring> prototypes;  // a reference names itself here
  std::vector<Attribute> attributes;
  std::vector<Definition> children;
  bool hasBody = false;  // written with braces (a reference has none)
  std::wstring file;
  int line = 0;
};

// --- Diagnostics ------------------------------------------------------------

struct Diagnostic {
  enum Level { Error = 1, Warning = 2, Hint = 3 };
  Level level = Error;
  std::wstring file;
  int line = 0;
  std::wstring message;
  std::wstring text() const;  // "file, line N: message" with its level
};

// --- Resolved tiles ---------------------------------------------------------

// A tile of an instanced dialog: its primitive kind (dialog, row, button,
// list_box ...), its attributes after inheritance, its children, and where
// the layout put it (pixels, relative to the dialog's top left).
struct Tile {
  std::wstring kind;
  std::map<std::wstring, Attribute> attrs;
  std::vector<std::unique_ptr<Tile>> children;
  Tile *parent = nullptr;
  std::wstring file;
  int line = 0;
  int x = 0, y = 0, width = 0, height = 0;

  const Attribute *attr(const std::wstring &name) const;
  std::wstring str(const std::wstring &name, const std::wstring &fallback = L"") const;
  double number(const std::wstring &name, double fallback) const;
  bool flag(const std::wstring &name) const;  // "true"
  std::wstring key() const { return str(L"key"); }
  bool isCluster() const;  // row, column and their boxed and radio kinds, dialog
  bool isActive() const;   // a tile a person acts on (button, edit_box ...)
};

// The primitive kinds: every definition's prototype chain ends in one.
bool isPrimitive(const std::wstring &kind);

// --- Loaded files -----------------------------------------------------------

// One loaded DCL file: its own definitions, those of the files it includes
// (searched after its own, in include order), and the base ones last.
struct File {
  std::wstring path;
  std::vector<Definition> definitions;
  std::vector<std::shared_ptr<const File>> includes;
  int auditLevel = 1;
  bool base = false;  // the base definitions themselves
  const Definition *find(const std::wstring &name) const;  // own, included, base
};

// Reads and checks a DCL file. Diagnostics of the audit level (1 errors, 2
// warnings, 3 hints; dcl_settings can raise it) go to *diagnostics; the
// file is null when any is an error. The base definitions are always there.
std::shared_ptr<const File> loadFile(const std::wstring &path, std::vector<Diagnostic> *diagnostics);
// The same from text (the base definitions, tests).
std::shared_ptr<const File> loadText(const std::wstring &text, const std::wstring &path,
                                     std::vector<Diagnostic> *diagnostics);
// Instances the dialog `name` of a file: null when the file has no dialog of
// that name (or the definition is not a dialog). The tree is laid out.
std::unique_ptr<Tile> instance(const File &file, const std::wstring &name, std::wstring *why = nullptr);

// The definitions every file sees (base.cpp), as DCL text.
extern const wchar_t *const kBaseDefinitions;
const File &baseFile();

// Parses a text into definitions; syntax errors go to *diagnostics and stop
// the parse (parser.cpp).
std::vector<Definition> parse(const std::wstring &text, const std::wstring &path,
                              std::vector<std::wstring> *includes, std::vector<Diagnostic> *diagnostics);

// --- Layout (layout.cpp) ----------------------------------------------------

// Dialog units: a character's width and a line's height, in pixels.
constexpr int kCharWidth = 7;
constexpr int kLineHeight = 16;
// Lays the whole tree out; root is the dialog tile.
void layout(Tile &root);
// Width in pixels of a text as the layout measures it.
int textWidth(const std::wstring &text);
// The text shown for a label: the mnemonic's "&" taken out ("&&" is "&").
std::wstring shownLabel(const std::wstring &label);

// --- Running dialogs (dialog.cpp) -------------------------------------------

struct Dialog;

// What an action receives: the tile's key, its value, its client data, why
// it was called (1 picked, 2 edit box left, 3 slider dragged, 4 double
// click) and, for images, where.
struct Event {
  Dialog *dialog = nullptr;
  struct TileState *tile = nullptr;  // null for new_dialog's default action on no tile
  std::wstring key, value, data;
  int reason = 1;
  int x = 0, y = 0;
};
using Action = std::function<void(const Event &)>;

// One drawing command of an image tile, in the tile's pixels.
struct ImageOp {
  enum Kind { Vector, Fill, Slide } kind = Vector;
  int x1 = 0, y1 = 0, x2 = 0, y2 = 0;  // Fill, Slide: corner and size
  int color = 0;
  std::wstring slide;
};

// What a tile holds at run time.
struct TileState {
  Tile *tile = nullptr;
  std::wstring value;
  std::vector<std::wstring> list;  // list_box, popup_list
  std::vector<ImageOp> image;      // image, image_button
  std::wstring data;               // client_data_tile from LISP
  void *clientData = nullptr;      // ads_client_data_tile from C++
  Action action;                   // action_tile or its C form
  bool enabled = true;
};

struct Dialog {
  std::wstring name, title;
  std::shared_ptr<const File> file;
  std::unique_ptr<Tile> root;
  std::map<std::wstring, TileState> tiles;  // by key; keyless tiles are not here
  Action defaultAction;                     // new_dialog's
  bool started = false, done = false;
  int status = 0;
  int posX = -1, posY = -1;  // where it is on the screen (-1: centred)

  TileState *find(const std::wstring &key);
  // Sets a tile's value as set_tile does: a radio button set to "1" clears
  // the others of its cluster; a cluster set to a key selects that button.
  void setValue(TileState &t, const std::wstring &value);
  std::wstring value(TileState &t) const;
};

// The dialogs of the session: loaded files by id and the stack of dialogs
// begun with new_dialog (the top one is current).
struct Screen {
  std::map<int, std::shared_ptr<const File>> files;
  int nextId = 1;
  std::vector<std::unique_ptr<Dialog>> stack;
  // Image being drawn (start_image) and list being filled (start_list).
  TileState *image = nullptr;
  TileState *list = nullptr;
  int listOperation = 3, listIndex = 0, listAdded = 0;

  Dialog *current() { return stack.empty() ? nullptr : stack.back().get(); }
};
Screen &screen();
void reset();  // closes every dialog, forgets every file

// load_dialog: the file's id, or -1 (the file is not there or has errors;
// the errors were told as the host tells them, and acad.dce holds them).
int loadDialogFile(const std::wstring &name, const std::vector<std::wstring> &searchPath);
// A dialog of a file with its tiles in their DCL state, on no screen (the
// pictures draw it); null, with *why, when the file has no such dialog.
std::unique_ptr<Dialog> makeDialog(std::shared_ptr<const File> file, const std::wstring &name,
                                   std::wstring *why = nullptr);
// new_dialog: the new current dialog, or null.
Dialog *newDialog(const std::wstring &name, int id, Action defaultAction, int x = -1, int y = -1);
// start_dialog: runs a dialog (null: the one begun last that has not
// started) with the scripted person and answers its status. How LISP actions run is the caller's: the runtime calls
// Action objects. A C++ exception out of an action ends every dialog (as
// term_dialog) and goes on to the caller.
std::optional<int> startDialog(Dialog *d = nullptr);  // nullopt: no such dialog
// done_dialog on d (null: the running dialog, or the current one); false
// with none. *x, *y: where the dialog was on the screen.
bool doneDialog(Dialog *d, std::optional<int> status, int *x = nullptr, int *y = nullptr);
// Lists and images being filled: start_list (operation 1 changes items from
// index on, 2 appends, 3 starts anew), add_list, start_image, the drawing
// commands, and their ends. False when the tile is of the wrong kind, the
// operation unknown, nothing was started or the index is past the end.
bool startList(TileState *t, int operation, int index);
bool addList(const std::wstring &item);
bool startImage(TileState *t);
bool addImage(const ImageOp &op);
void endList();
void endImage();
// term_dialog: every dialog ends with status -1.
void termDialogs();
// The action that runs when a person picks a tile: the tile's own, the
// standard exit of "accept" and "cancel", or the dialog's default.
void fire(Dialog &d, TileState *t, const std::wstring &key, int reason, int x = 0, int y = 0);
// load_dialog, new_dialog ... start_image ... dimy_tile (lisp.cpp).
void installDialogLisp(lisp::Interp &in);

// The DCL action attribute (LISP text) made into an Action; set by lisp.cpp
// so that the runtime need not know the interpreter.
extern std::function<Action(const std::wstring &lispText)> lispAction;

}  // namespace vantry::host::dcl
