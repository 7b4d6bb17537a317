// The host's AutoLISP built-ins that need the session or the drawing:
// namespaces across documents (vl-propagate, vl-load-all), the settings
// store (getcfg, setcfg), dialogs answered by the scripted person (getfiled,
// acad_colordlg, acad_truecolordlg), the screen that a headless host does not
// have (grdraw, grvecs, grtext, redraw), the pick-first set, layouts,
// dictionaries, extended data room, coordinate systems (trans) and text
// extents (textbox).
#include <cmath>

#include "db/lisp_data.h"
#include "mtext/layout.h"
#include "session/internal.h"
#include "session/session.h"

namespace vantry::host {
namespace {

using lisp::Interp;
using lisp::Type;
using lisp::Value;

Session &session() {
  return Session::get();
}

AcDbDatabase *drawing() {
  return session().current() ? session().current()->database() : acdbHostApplicationServices()->workingDatabase();
}

lisp::Symbol *symbolArg(Interp &in, const Value &v) {
  if (v.type() != Type::Sym) in.badArgType(L"symbolp", v);
  return v.as<lisp::Symbol>();
}

// What every document gets, now and when it opens later.
struct Shared {
  std::vector<std::pair<std::wstring, Value>> propagated;  // name, value (in the setter's symbols)
  std::vector<std::wstring> loadAll;                       // files loaded into every document
};
Shared &shared() {
  static Shared s;
  return s;
}

// (vl-propagate 'sym): the symbol's value copied into every open document
// and every document opened later in the session.
Value propagateFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 1);
  lisp::Symbol *s = symbolArg(in, args[0]);
  Value v = s->value;
  for (const auto &doc : session().documents())
    if (&doc->lisp() != &in) doc->lisp().intern(s->name)->value = lisp::carryOver(doc->lisp(), v);
  auto &list = shared().propagated;
  std::erase_if(list, [&](const auto &e) { return e.first == s->name; });
  list.emplace_back(s->name, v);
  return v;
}

// (vl-load-all path): loads the file into every open document now and into
// each one opened later. nil; a file that cannot be found is the load error.
Value loadAllFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 1);
  const std::wstring &name = lisp::strArg(in, args[0]);
  Value found = in.apply(Value(in.intern(L"FINDFILE")), args, 1);
  if (found.isNil()) in.error(L"LOAD failed: " + in.toString(args[0], true));
  std::wstring path = lisp::str(found);
  for (const auto &doc : session().documents()) doc->lisp().loadFile(path);
  shared().loadAll.push_back(path);
  (void)name;
  return Value();
}

// (startapp program [file]): a headless host starts no programs: nil, and
// the transcript says what was asked.
Value startappFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 2);
  std::wstring line = lisp::strArg(in, args[0]);
  if (nargs == 2) line += L" " + lisp::strArg(in, args[1]);
  session().print(L"[startapp] " + line + L" (not started: no programs run on a headless host)\n");
  return Value();
}

// The settings store behind getcfg and setcfg, and the variables the host
// keeps in its settings: one per session.
std::map<std::wstring, std::wstring> &settings() {
  static std::map<std::wstring, std::wstring> store;
  return store;
}

// A configuration name: "AppData/application/section/parameter", at most
// 496 characters, kept without regard to case.
bool cfgName(const std::wstring &name, std::wstring &key) {
  key = text::upcase(name);
  return key.rfind(L"APPDATA/", 0) == 0 && key.size() > 8 && key.size() <= 496;
}

Value getcfgFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 1);
  std::wstring key;
  if (!cfgName(lisp::strArg(in, args[0]), key)) return Value();
  auto it = settings().find(key);
  return it == settings().end() ? lisp::makeString(L"") : lisp::makeString(it->second);
}

Value setcfgFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 2, 2);
  std::wstring key;
  const std::wstring &value = lisp::strArg(in, args[1]);
  if (!cfgName(lisp::strArg(in, args[0]), key)) return Value();
  settings()[key] = value;
  return args[1];
}

// A dialog's answer from the person: the queued text, or nothing (which is
// a cancel). The transcript shows the dialog and the answer.
std::optional<std::wstring> dialogAnswer(const std::wstring &title) {
  session().print(L"[" + title + L"]");
  auto answer = session().nextDialogAnswer();
  session().print(answer ? L" -> " + *answer + L"\n" : std::wstring(L" -> Cancel (no answer queued)\n"));
  if (answer && text::upcase(*answer) == L"CANCEL") return std::nullopt;
  return answer;
}

// (getfiled title default extension flags): the file the person chose, or
// nil when they cancelled. Flag 1 (a new file) asks before replacing one
// that exists only on the host's screen; here the answer stands. An answer
// without an extension takes the default one unless flag 4 allows any.
Value getfiledFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 4, 4);
  const std::wstring &title = lisp::strArg(in, args[0]);
  lisp::strArg(in, args[1]);
  std::wstring ext = lisp::strArg(in, args[2]);
  int32_t flags = lisp::intArg(in, args[3]);
  auto answer = dialogAnswer(title);
  if (!answer || answer->empty()) return Value();
  std::wstring path = *answer;
  size_t slash = path.find_last_of(L"/\\");
  bool hasExt = path.find(L'.', slash == std::wstring::npos ? 0 : slash + 1) != std::wstring::npos;
  size_t semi = ext.find(L';');
  if (semi != std::wstring::npos) ext = ext.substr(0, semi);
  if (!hasExt && !(flags & 4) && !ext.empty() && ext != L"*") path += L"." + ext;
  return lisp::makeString(path);
}

// (acad_colordlg index [flag]): the colour index chosen (0-256), nil on
// cancel. The answer is the index as text.
Value colordlgFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 2);
  lisp::intArg(in, args[0]);
  auto answer = dialogAnswer(L"Select Color");
  if (!answer) return Value();
  wchar_t *end = nullptr;
  long index = std::wcstol(answer->c_str(), &end, 10);
  if (end == answer->c_str() || *end || index < 0 || index > 256) return Value();
  return Value::integer(int32_t(index));
}

// (acad_truecolordlg color [allowbylayer] [bylayercolor]): ((62 . index))
// for an index answer, or ((62 . nearest) (420 . rgb)) for an answer
// "r,g,b"; nil on cancel.
Value truecolordlgFn(Interp &in, const Value * /*args*/, int nargs) {
  lisp::needArgs(in, nargs, 1, 3);
  auto answer = dialogAnswer(L"Select Color");
  if (!answer) return Value();
  int r, g, b;
  wchar_t tail;
  if (swscanf(answer->c_str(), L"%d,%d,%d%lc", &r, &g, &b, &tail) == 3 && r >= 0 && r < 256 && g >= 0 &&
      g < 256 && b >= 0 && b < 256) {
    lisp::ListBuilder out;
    out.add(lisp::cons(Value::integer(62), Value::integer(7)));
    out.add(lisp::cons(Value::integer(420), Value::integer((r << 16) | (g << 8) | b)));
    return out.take();
  }
  wchar_t *end = nullptr;
  long index = std::wcstol(answer->c_str(), &end, 10);
  if (end == answer->c_str() || *end || index < 0 || index > 256) return Value();
  return lisp::cons(lisp::cons(Value::integer(62), Value::integer(int32_t(index))), Value());
}

// The screen functions draw nowhere: a headless host has no screen.
Value grdrawFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 3, 4);
  lisp::intArg(in, args[2]);
  return Value();
}
Value grvecsFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 2);
  lisp::listArg(in, args[0]);
  return Value();
}
// (grtext [box text [highlight]]): the text, as the host answers after
// showing it; nil without arguments (the screen restored).
Value grtextFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 0, 3);
  if (nargs == 0) return Value();
  if (nargs < 2) in.tooFewArgs();
  lisp::intArg(in, args[0]);
  return args[1].type() == Type::Str ? args[1] : (lisp::strArg(in, args[1]), Value());
}
Value redrawFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 0, 2);
  if (nargs >= 1) {
    AcDbObjectId id;
    if (!idFromValue(args[0], id)) in.badArgType(L"lentityp", args[0]);
  }
  if (nargs == 2) lisp::intArg(in, args[1]);
  return Value();
}

// The pick-first set: what sssetfirst selected, until it is set again.
struct PickFirst {
  Value grips, picked;
};
PickFirst &pickFirst() {
  static PickFirst p;
  return p;
}
Value ssgetfirstFn(Interp &in, const Value *, int nargs) {
  lisp::needArgs(in, nargs, 0, 0);
  return lisp::cons(pickFirst().grips, lisp::cons(pickFirst().picked, Value()));
}
Value sssetfirstFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 2);
  for (int i = 0; i < nargs; ++i)
    if (!args[i].isNil() && args[i].type() != Type::Pickset) in.badArgType(L"lselsetp", args[i]);
  pickFirst().grips = args[0];
  pickFirst().picked = nargs == 2 ? args[1] : Value();
  return lisp::cons(pickFirst().grips, lisp::cons(pickFirst().picked, Value()));
}

// (layoutlist): the paper-space layouts by name, from the drawing's layout
// dictionary; a drawing without one has the two of a new drawing.
Value layoutlistFn(Interp &in, const Value *, int nargs) {
  lisp::needArgs(in, nargs, 0, 0);
  lisp::ListBuilder b;
  AcDbDictionary *nod = nullptr;
  bool found = false;
  if (acdbOpenObject(nod, drawing()->namedObjectsDictionaryId(), AcDb::kForRead) == Acad::eOk) {
    AcDbObjectId layoutsId;
    AcDbDictionary *layouts = nullptr;
    if (nod->getAt(L"ACAD_LAYOUT", layoutsId) == Acad::eOk &&
        acdbOpenObject(layouts, layoutsId, AcDb::kForRead) == Acad::eOk) {
      found = true;
      std::unique_ptr<AcDbDictionaryIterator> it(layouts->newIterator());
      for (; !it->done(); it->next())
        if (text::upcase(it->name()) != L"MODEL") b.add(lisp::makeString(it->name()));
      layouts->close();
    }
    nod->close();
  }
  if (!found) {
    b.add(lisp::makeString(L"Layout1"));
    b.add(lisp::makeString(L"Layout2"));
  }
  return b.take();
}

// --- Dictionaries -------------------------------------------------------------------

AcDbDictionary *openDictionary(Interp &in, const Value &v, AcDb::OpenMode mode) {
  AcDbObjectId id;
  if (!idFromValue(v, id)) in.badArgType(L"lentityp", v);
  AcDbDictionary *dict = nullptr;
  if (acdbOpenObject(dict, id, mode) != Acad::eOk) return nullptr;
  return dict;
}

// (dictadd dict key object): the object, now filed under key; nil when the
// key is taken or the object cannot be filed.
Value dictaddFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 3, 3);
  const std::wstring &key = lisp::strArg(in, args[1]);
  AcDbObjectId objId;
  if (!idFromValue(args[2], objId)) in.badArgType(L"lentityp", args[2]);
  AcDbDictionary *dict = openDictionary(in, args[0], AcDb::kForWrite);
  if (!dict) return Value();
  Value result;
  AcDbObject *obj = nullptr;
  if (!dict->has(key.c_str()) && acdbOpenObject(obj, objId, AcDb::kForWrite) == Acad::eOk) {
    AcDbObjectId id;
    if (dict->setAt(key.c_str(), obj, id) == Acad::eOk) result = args[2];
    obj->close();
  }
  dict->close();
  return result;
}

// (dictremove dict key): the entry's object, taken out of the dictionary
// (not erased); nil when there is no such key.
Value dictremoveFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 2, 2);
  const std::wstring &key = lisp::strArg(in, args[1]);
  AcDbDictionary *dict = openDictionary(in, args[0], AcDb::kForWrite);
  if (!dict) return Value();
  AcDbObjectId id;
  Acad::ErrorStatus es = dict->remove(key.c_str(), id);
  dict->close();
  return es == Acad::eOk ? enameValue(id) : Value();
}

// (dictrename dict old new): the new name, or nil (no such entry, or the
// new name is taken).
Value dictrenameFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 3, 3);
  const std::wstring &from = lisp::strArg(in, args[1]);
  const std::wstring &to = lisp::strArg(in, args[2]);
  AcDbDictionary *dict = openDictionary(in, args[0], AcDb::kForWrite);
  if (!dict) return Value();
  Acad::ErrorStatus es = dict->setName(from.c_str(), to.c_str());
  dict->close();
  return es == Acad::eOk ? args[2] : Value();
}

// --- Extended data room -----------------------------------------------------------

// An object holds at most 16383 bytes of extended data. Sizes as stored:
// each application name 2 bytes (a reference to its record); each group a
// 1-byte code and its value: strings and binary chunks 2 bytes of length and
// their bytes, a handle 8, a control string 1, points 24, reals 8, 16-bit
// integers 2, 32-bit integers 4.
constexpr int kXDataLimit = 16383;

int groupSize(int code, const Value &v) {
  switch (code) {
    case 1000:
    case 1003:
    case 1004:
      return 1 + 2 + (v.type() == Type::Str ? int(text::toUtf8(lisp::str(v)).size()) : 0);
    case 1002:
      return 2;
    case 1005:
      return 9;
    case 1070:
      return 3;
    case 1071:
      return 5;
    default:
      if (code >= 1010 && code <= 1013) return 25;
      if (code >= 1040 && code <= 1042) return 9;
      return -1;
  }
}

// The size of an entity-data list's extended data: ((-3 ("APP" groups...)))
// or the list of application lists itself.
int xdataSize(const Value &list) {
  const Value *apps = &list;
  for (const Value *p = &list; p->isCons(); p = &p->as<lisp::Cons>()->cdr) {
    const Value &e = p->as<lisp::Cons>()->car;
    if (e.isCons() && lisp::car(e).type() == Type::Int && lisp::car(e).asInt() == -3) apps = &lisp::cdr(e);
  }
  int total = 0;
  for (const Value *p = apps; p->isCons(); p = &p->as<lisp::Cons>()->cdr) {
    const Value &app = p->as<lisp::Cons>()->car;
    if (!app.isCons() || lisp::car(app).type() != Type::Str) return -1;
    total += 2;
    for (const Value *g = &lisp::cdr(app); g->isCons(); g = &g->as<lisp::Cons>()->cdr) {
      const Value &group = g->as<lisp::Cons>()->car;
      if (!group.isCons() || lisp::car(group).type() != Type::Int) return -1;
      int size = groupSize(lisp::car(group).asInt(), lisp::cdr(group));
      if (size < 0) return -1;
      total += size;
    }
  }
  return total;
}

// (xdsize list): the bytes the extended data of list would take; nil (and
// ERRNO set) for a list that is not extended data.
Value xdsizeFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 1);
  lisp::listArg(in, args[0]);
  int size = xdataSize(args[0]);
  return size < 0 ? Value() : Value::integer(size);
}

// (xdroom ename): the bytes of extended data the object still has room for.
Value xdroomFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 1);
  AcDbObjectId id;
  if (!idFromValue(args[0], id)) in.badArgType(L"lentityp", args[0]);
  AcDbObject *obj = nullptr;
  if (acdbOpenObject(obj, id, AcDb::kForRead) != Acad::eOk) return Value();
  std::vector<std::wstring> all{L"*"};
  Value data = entityData(obj, &all);
  obj->close();
  int used = xdataSize(data);
  return Value::integer(kXDataLimit - (used < 0 ? 0 : used));
}

// --- trans ------------------------------------------------------------------------

struct Frame {
  AcGePoint3d origin;
  AcGeVector3d x{1, 0, 0}, y{0, 1, 0}, z{0, 0, 1};
  AcGePoint3d toWorld(const AcGePoint3d &p, bool displacement) const {
    AcGeVector3d v = x * p.x + y * p.y + z * p.z;
    return displacement ? AcGePoint3d(v.x, v.y, v.z) : origin + v;
  }
  AcGePoint3d fromWorld(const AcGePoint3d &p, bool displacement) const {
    AcGeVector3d d = displacement ? AcGeVector3d(p.x, p.y, p.z) : p - origin;
    return AcGePoint3d(d.dotProduct(x), d.dotProduct(y), d.dotProduct(z));
  }
};

// The host's arbitrary axis rule: the X axis of a plane with normal n.
Frame frameOfNormal(AcGeVector3d n) {
  Frame f;
  n = n.normal();
  AcGeVector3d ax = (std::fabs(n.x) < 1.0 / 64 && std::fabs(n.y) < 1.0 / 64) ? AcGeVector3d(0, 1, 0).crossProduct(n)
                                                                           : AcGeVector3d(0, 0, 1).crossProduct(n);
  f.x = ax.normal();
  f.y = n.crossProduct(f.x).normal();
  f.z = n;
  return f;
}

bool pointVar(const wchar_t *name, AcGePoint3d &p) {
  resbuf rb{};
  if (acedGetVar(name, &rb) != RTNORM || (rb.restype != RT3DPOINT && rb.restype != RTPOINT)) return false;
  p = AcGePoint3d(rb.resval.rpoint[0], rb.resval.rpoint[1], rb.restype == RT3DPOINT ? rb.resval.rpoint[2] : 0);
  return true;
}

Frame userFrame() {
  Frame f;
  AcGePoint3d o, xd(1, 0, 0), yd(0, 1, 0);
  pointVar(L"UCSORG", o);
  pointVar(L"UCSXDIR", xd);
  pointVar(L"UCSYDIR", yd);
  f.origin = o;
  f.x = AcGeVector3d(xd.x, xd.y, xd.z).normal();
  f.y = AcGeVector3d(yd.x, yd.y, yd.z).normal();
  f.z = f.x.crossProduct(f.y).normal();
  return f;
}

// The display system: origin at TARGET (in the user system), Z along the
// view direction (VIEWDIR, also in the user system).
Frame displayFrame() {
  Frame ucs = userFrame();
  AcGePoint3d target, dir(0, 0, 1);
  pointVar(L"TARGET", target);
  pointVar(L"VIEWDIR", dir);
  AcGePoint3d dw = ucs.toWorld(dir, true);
  Frame f = frameOfNormal(AcGeVector3d(dw.x, dw.y, dw.z));
  f.origin = ucs.toWorld(target, false);
  return f;
}

// A trans system argument: 0 world, 1 user, 2 display, 3 paper-space
// display (the display system here: no viewports), an entity name (its
// object system, from its extrusion) or an extrusion vector.
Frame frameArg(Interp &in, const Value &v) {
  if (v.type() == Type::Int) {
    switch (v.asInt()) {
      case 0:
        return Frame{};
      case 1:
        return userFrame();
      case 2:
      case 3:
        return displayFrame();
    }
    in.error(L"bad argument value: " + in.toString(v, true));
  }
  if (v.type() == Type::Ename) {
    AcDbObjectId id;
    idFromValue(v, id);
    AcDbObject *obj = nullptr;
    AcGeVector3d n(0, 0, 1);
    if (acdbOpenObject(obj, id, AcDb::kForRead) == Acad::eOk) {
      Value data = entityData(obj, nullptr);
      obj->close();
      for (const Value *p = &data; p->isCons(); p = &p->as<lisp::Cons>()->cdr) {
        const Value &g = p->as<lisp::Cons>()->car;
        if (g.isCons() && lisp::car(g).type() == Type::Int && lisp::car(g).asInt() == 210 && lisp::cdr(g).isCons()) {
          std::vector<Value> xyz = lisp::listToVector(lisp::cdr(g));
          if (xyz.size() == 3) n = AcGeVector3d(xyz[0].number(), xyz[1].number(), xyz[2].number());
        }
      }
    }
    return frameOfNormal(n);
  }
  if (v.isCons()) {
    std::vector<Value> xyz = lisp::listToVector(v);
    if (xyz.size() == 3 && xyz[0].isNumber() && xyz[1].isNumber() && xyz[2].isNumber()) {
      AcGeVector3d n(xyz[0].number(), xyz[1].number(), xyz[2].number());
      if (n.length() > 1e-12) return frameOfNormal(n);
    }
  }
  in.badArgType(L"coordinate system", v);
}

// (trans point from to [displacement]): the point in the other system; a
// 2D point keeps its two coordinates' form.
Value transFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 3, 4);
  std::vector<Value> xyz = args[0].isCons() ? lisp::listToVector(args[0]) : std::vector<Value>{};
  bool ok = (xyz.size() == 2 || xyz.size() == 3);
  for (const Value &c : xyz) ok = ok && c.isNumber();
  if (!ok) in.badArgType(L"2D/3D point", args[0]);
  Frame from = frameArg(in, args[1]), to = frameArg(in, args[2]);
  bool disp = nargs == 4 && !args[3].isNil();
  AcGePoint3d p(xyz[0].number(), xyz[1].number(), xyz.size() == 3 ? xyz[2].number() : 0.0);
  AcGePoint3d out = to.fromWorld(from.toWorld(p, disp), disp);
  lisp::ListBuilder b;
  b.add(Value::real(out.x));
  b.add(Value::real(out.y));
  if (xyz.size() == 3) b.add(Value::real(out.z));
  return b.take();
}

// --- textbox ------------------------------------------------------------------------

const Value *group(const Value &list, int code) {
  for (const Value *p = &list; p->isCons(); p = &p->as<lisp::Cons>()->cdr) {
    const Value &g = p->as<lisp::Cons>()->car;
    if (g.isCons() && lisp::car(g).type() == Type::Int && lisp::car(g).asInt() == code) return &lisp::cdr(g);
  }
  return nullptr;
}

// (textbox elist): the corners of the box around a text's characters, in
// the text's own system with its insertion point at the origin: ((x1 y1 0)
// (x2 y2 0)). Height, width factor and style default to the drawing's
// current ones; the font is measured as MText measures it.
Value textboxFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 1);
  lisp::listArg(in, args[0]);
  const Value *textV = group(args[0], 1);
  if (!textV || textV->type() != Type::Str) return Value();
  double height = 0, widthFactor = 1;
  if (const Value *h = group(args[0], 40); h && h->isNumber()) height = h->number();
  if (const Value *w = group(args[0], 41); w && w->isNumber()) widthFactor = w->number();
  std::wstring styleName;
  if (const Value *s = group(args[0], 7); s && s->type() == Type::Str) styleName = lisp::str(*s);
  if (styleName.empty()) {
    resbuf rb{};
    if (acedGetVar(L"TEXTSTYLE", &rb) == RTNORM && rb.restype == RTSTR) {
      styleName = rb.resval.rstring;
      acutDelString(rb.resval.rstring);
    }
  }
  std::wstring font;
  AcDbTextStyleTable *table = nullptr;
  if (drawing()->getTextStyleTable(table, AcDb::kForRead) == Acad::eOk) {
    AcDbTextStyleTableRecord *rec = nullptr;
    if (table->getAt(styleName.c_str(), rec, AcDb::kForRead) == Acad::eOk) {
      const ACHAR *file = nullptr;
      if (rec->fileName(file) == Acad::eOk && file) font = file;
      if (height <= 0) height = rec->textSize();
      if (!group(args[0], 41)) widthFactor = rec->xScale();
      rec->close();
    }
    table->close();
  }
  if (height <= 0) {
    resbuf rb{};
    height = acedGetVar(L"TEXTSIZE", &rb) == RTNORM && rb.restype == RTREAL ? rb.resval.rreal : 2.5;
  }
  // Plain text: backslashes and braces are characters, not format codes.
  std::wstring contents;
  for (wchar_t c : lisp::str(*textV)) {
    if (c == L'\\' || c == L'{' || c == L'}') contents += L'\\';
    contents += c;
  }
  MTextLayoutInput layoutIn;
  layoutIn.contents = contents;
  layoutIn.textHeight = height;
  layoutIn.fontName = font;
  layoutIn.widthFactor = widthFactor;
  MTextLayout layout = layoutMText(layoutIn);
  const MTextLine &line = layout.lines.front();
  lisp::ListBuilder lo, hi, box;
  for (double v : {0.0, -line.descent, 0.0}) lo.add(Value::real(v));
  for (double v : {line.width, line.text.empty() ? 0.0 : line.ascent, 0.0}) hi.add(Value::real(v));
  box.add(lo.take());
  box.add(hi.take());
  return box.take();
}

// --- nentselp ---------------------------------------------------------------

// (nentselp [prompt] [point]): nentsel at the point given (no person asked),
// or from the person; the block transformation as a 4x4 matrix of rows.
Value nentselpFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 0, 2);
  Value prompt;
  const Value *point = nullptr;
  for (int i = 0; i < nargs; ++i) {
    if (args[i].type() == Type::Str)
      prompt = args[i];
    else if (args[i].isCons())
      point = &args[i];
    else if (!args[i].isNil())
      in.badArgType(L"stringp", args[i]);
  }
  if (point) {
    std::vector<Value> xyz = lisp::listToVector(*point);
    bool ok = xyz.size() == 2 || xyz.size() == 3;
    for (const Value &c : xyz) ok = ok && c.isNumber();
    if (!ok) in.badArgType(L"2D/3D point", *point);
    InputItem pick;
    pick.kind = InputItem::Pick;
    for (size_t k = 0; k < xyz.size(); ++k) pick.pt[k] = xyz[k].number();
    session().input.push_front(pick);
  }
  Value r = prompt.isNil() ? in.apply(Value(in.intern(L"NENTSEL")), nullptr, 0)
                           : in.apply(Value(in.intern(L"NENTSEL")), &prompt, 1);
  if (lisp::listLength(r) != 4) return r;
  std::vector<Value> parts = lisp::listToVector(r);
  std::vector<Value> cols = lisp::listToVector(parts[2]);  // X axis, Y axis, Z axis, origin
  lisp::ListBuilder m;
  for (int row = 0; row < 3; ++row) {
    lisp::ListBuilder line;
    for (const Value &col : cols) line.add(lisp::listToVector(col)[row]);
    m.add(line.take());
  }
  lisp::ListBuilder last;
  for (double v : {0.0, 0.0, 0.0, 1.0}) last.add(Value::real(v));
  m.add(last.take());
  lisp::ListBuilder out;
  out.add(parts[0]);
  out.add(parts[1]);
  out.add(m.take());
  out.add(parts[3]);
  return out.take();
}

}  // namespace

void applySharedLisp(Document &doc) {
  for (const auto &[name, v] : shared().propagated) doc.lisp().intern(name)->value = lisp::carryOver(doc.lisp(), v);
  for (const std::wstring &path : shared().loadAll) {
    try {
      doc.lisp().loadFile(path);
    } catch (const lisp::LispError &e) {
      doc.lisp().reportError(e.message);
    } catch (const lisp::ErrorHandled &) {
    }
  }
}

void resetSharedLisp() {
  shared() = Shared{};
  settings().clear();
  pickFirst() = PickFirst{};
}

void installSessionBuiltins(lisp::Interp &in) {
  static const struct {
    const wchar_t *name;
    lisp::SubrFn fn;
  } table[] = {
      {L"vl-propagate", propagateFn},
      {L"vl-load-all", loadAllFn},
      {L"startapp", startappFn},
      {L"getcfg", getcfgFn},
      {L"setcfg", setcfgFn},
      {L"getfiled", getfiledFn},
      {L"acad_colordlg", colordlgFn},
      {L"acad_truecolordlg", truecolordlgFn},
      {L"grdraw", grdrawFn},
      {L"grvecs", grvecsFn},
      {L"grtext", grtextFn},
      {L"redraw", redrawFn},
      {L"ssgetfirst", ssgetfirstFn},
      {L"sssetfirst", sssetfirstFn},
      {L"layoutlist", layoutlistFn},
      {L"dictadd", dictaddFn},
      {L"dictremove", dictremoveFn},
      {L"dictrename", dictrenameFn},
      {L"xdsize", xdsizeFn},
      {L"xdroom", xdroomFn},
      {L"trans", transFn},
      {L"textbox", textboxFn},
      {L"nentselp", nentselpFn},
  };
  for (const auto &e : table) in.defineSubr(e.name, e.fn);
}

}  // namespace vantry::host
