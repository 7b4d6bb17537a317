// The LISP face of the dialogs: load_dialog, new_dialog, start_dialog ...
// over the running dialogs of dialog.cpp.
//
// An action (action_tile, a tile's action attribute, new_dialog's default)
// is LISP text, read and evaluated when the person picks the tile, with
// $key, $value, $data, $reason, $x and $y bound to what happened; their
// former values come back afterwards. An error in an action ends every
// dialog (as term_dialog) and goes on to whoever called start_dialog.
#include "dcl/dcl.h"
#include "lisp/lisp.h"
#include "session/session.h"

namespace vantry::host::dcl {
namespace {

using lisp::Interp;
using lisp::Value;

Action makeAction(Interp &in, std::wstring text) {
  if (text.empty()) return nullptr;
  return [&in, text](const Event &ev) {
    static const wchar_t *const names[] = {L"$KEY", L"$VALUE", L"$DATA", L"$REASON", L"$X", L"$Y"};
    Value values[] = {lisp::makeString(ev.key), lisp::makeString(ev.value), lisp::makeString(ev.data),
                      Value::integer(ev.reason), Value::integer(ev.x), Value::integer(ev.y)};
    std::vector<Value> saved;
    for (const wchar_t *n : names) saved.push_back(in.symbolValue(n));
    struct Restore {
      Interp &in;
      std::vector<Value> &saved;
      ~Restore() {
        for (size_t i = 0; i < saved.size(); ++i) in.setSymbolValue(names[i], saved[i]);
      }
    } restore{in, saved};
    for (size_t i = 0; i < saved.size(); ++i) in.setSymbolValue(names[i], values[i]);
    in.evalForms(text, {L"action_tile", 1});
  };
}

Dialog *current() { return screen().current(); }

TileState *tileArg(Interp &in, const Value &key) {
  const std::wstring &k = lisp::strArg(in, key);
  Dialog *d = current();
  return d ? d->find(k) : nullptr;
}

Value loadDialogFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 1);
  std::vector<std::wstring> path;
  if (in.supportPath)
    for (std::wstring dir : in.supportPath()) {
      if (!dir.empty() && dir.back() != L'/' && dir.back() != L'\\') dir += L'/';
      path.push_back(dir);
    }
  return Value::integer(loadDialogFile(lisp::strArg(in, args[0]), path));
}

Value unloadDialogFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 1);
  screen().files.erase(lisp::intArg(in, args[0]));
  return Value();
}

Value newDialogFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 2, 4);
  const std::wstring &name = lisp::strArg(in, args[0]);
  int id = lisp::intArg(in, args[1]);
  std::wstring action = nargs > 2 ? lisp::strArg(in, args[2]) : L"";
  int x = -1, y = -1;
  if (nargs > 3) {
    std::vector<Value> pt = lisp::listToVector(lisp::listArg(in, args[3]));
    if (pt.size() < 2 || !pt[0].isNumber() || !pt[1].isNumber()) in.badArgType(L"2D/3D point", args[3]);
    x = int(pt[0].number());
    y = int(pt[1].number());
  }
  return in.boolean(newDialog(name, id, makeAction(in, action), x, y) != nullptr);
}

Value startDialogFn(Interp &in, const Value *, int nargs) {
  lisp::needArgs(in, nargs, 0, 0);
  std::optional<int> status = startDialog();
  return status ? Value::integer(*status) : Value();
}

Value doneDialogFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 0, 1);
  std::optional<int> status;
  if (nargs == 1 && !args[0].isNil()) status = lisp::intArg(in, args[0]);
  int x = 0, y = 0;
  if (!doneDialog(nullptr, status, &x, &y)) return Value();
  lisp::ListBuilder b;
  b.add(Value::integer(x));
  b.add(Value::integer(y));
  return b.take();
}

Value termDialogFn(Interp &in, const Value *, int nargs) {
  lisp::needArgs(in, nargs, 0, 0);
  termDialogs();
  return Value();
}

Value actionTileFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 2, 2);
  TileState *t = tileArg(in, args[0]);
  std::wstring text = lisp::strArg(in, args[1]);
  if (!t) return Value();
  t->action = makeAction(in, text);
  return in.makeT();
}

Value setTileFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 2, 2);
  TileState *t = tileArg(in, args[0]);
  const std::wstring &v = lisp::strArg(in, args[1]);
  if (!t) return Value();
  current()->setValue(*t, v);
  return args[1];
}

Value getTileFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 1);
  TileState *t = tileArg(in, args[0]);
  return t ? lisp::makeString(current()->value(*t)) : Value();
}

// The attribute as the DCL file gives it, not as the program changed it.
Value getAttrFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 2, 2);
  TileState *t = tileArg(in, args[0]);
  const std::wstring &name = lisp::strArg(in, args[1]);
  if (!t) return Value();
  const Attribute *a = t->tile->attr(name);
  return a ? lisp::makeString(a->value) : Value();
}

// Modes: 0 enable, 1 disable, 2 focus, 3 select the edit box's text, 4 flip
// an image's highlight. Focus, selection and highlight have nothing to
// show headless.
Value modeTileFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 2, 2);
  TileState *t = tileArg(in, args[0]);
  int mode = lisp::intArg(in, args[1]);
  if (t && (mode == 0 || mode == 1)) t->enabled = mode == 0;
  return Value();
}

Value clientDataTileFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 2, 2);
  TileState *t = tileArg(in, args[0]);
  const std::wstring &data = lisp::strArg(in, args[1]);
  if (t) t->data = data;
  return Value();
}

// (start_list key [operation [index]]): 1 changes the items from index on,
// 2 appends, 3 (the default) starts a new list.
Value startListFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 3);
  TileState *t = tileArg(in, args[0]);
  int op = nargs > 1 && !args[1].isNil() ? lisp::intArg(in, args[1]) : 3;
  int index = nargs > 2 && !args[2].isNil() ? lisp::intArg(in, args[2]) : 0;
  return startList(t, op, index) ? args[0] : Value();
}

Value addListFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 1);
  return addList(lisp::strArg(in, args[0])) ? args[0] : Value();
}

Value endListFn(Interp &in, const Value *, int nargs) {
  lisp::needArgs(in, nargs, 0, 0);
  endList();
  return Value();
}

Value startImageFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 1);
  return startImage(tileArg(in, args[0])) ? args[0] : Value();
}

// vector_image, fill_image, slide_image: x1 y1 x2-or-width y2-or-height and
// a colour (the slide's name); each answers its last argument.
Value imageOp(Interp &in, const Value *args, int nargs, ImageOp::Kind kind) {
  lisp::needArgs(in, nargs, 5, 5);
  ImageOp op;
  op.kind = kind;
  op.x1 = lisp::intArg(in, args[0]);
  op.y1 = lisp::intArg(in, args[1]);
  op.x2 = lisp::intArg(in, args[2]);
  op.y2 = lisp::intArg(in, args[3]);
  if (kind == ImageOp::Slide)
    op.slide = lisp::strArg(in, args[4]);
  else
    op.color = lisp::intArg(in, args[4]);
  addImage(op);
  return args[4];
}
Value vectorImageFn(Interp &in, const Value *args, int nargs) { return imageOp(in, args, nargs, ImageOp::Vector); }
Value fillImageFn(Interp &in, const Value *args, int nargs) { return imageOp(in, args, nargs, ImageOp::Fill); }
Value slideImageFn(Interp &in, const Value *args, int nargs) { return imageOp(in, args, nargs, ImageOp::Slide); }

Value endImageFn(Interp &in, const Value *, int nargs) {
  lisp::needArgs(in, nargs, 0, 0);
  endImage();
  return Value();
}

Value dimTile(Interp &in, const Value *args, int nargs, bool x) {
  lisp::needArgs(in, nargs, 1, 1);
  TileState *t = tileArg(in, args[0]);
  if (!t) return Value();
  return Value::integer(x ? t->tile->width : t->tile->height);
}
Value dimxTileFn(Interp &in, const Value *args, int nargs) { return dimTile(in, args, nargs, true); }
Value dimyTileFn(Interp &in, const Value *args, int nargs) { return dimTile(in, args, nargs, false); }

}  // namespace

void installDialogLisp(lisp::Interp &in) {
  static const struct {
    const wchar_t *name;
    lisp::SubrFn fn;
  } table[] = {
      {L"load_dialog", loadDialogFn},       {L"unload_dialog", unloadDialogFn},
      {L"new_dialog", newDialogFn},         {L"start_dialog", startDialogFn},
      {L"done_dialog", doneDialogFn},       {L"term_dialog", termDialogFn},
      {L"action_tile", actionTileFn},       {L"set_tile", setTileFn},
      {L"get_tile", getTileFn},             {L"get_attr", getAttrFn},
      {L"mode_tile", modeTileFn},           {L"client_data_tile", clientDataTileFn},
      {L"start_list", startListFn},         {L"add_list", addListFn},
      {L"end_list", endListFn},             {L"start_image", startImageFn},
      {L"vector_image", vectorImageFn},     {L"fill_image", fillImageFn},
      {L"slide_image", slideImageFn},       {L"end_image", endImageFn},
      {L"dimx_tile", dimxTileFn},           {L"dimy_tile", dimyTileFn},
  };
  for (const auto &e : table) in.defineSubr(e.name, e.fn);
  // A tile's action attribute runs in the LISP of the current document.
  lispAction = [](const std::wstring &text) -> Action {
    Document *doc = Session::get().current();
    if (!doc) return [](const Event &) {};
    return makeAction(doc->lisp(), text);
  };
}

}  // namespace vantry::host::dcl
