// The LISP side of selection: ssget, sslength, ssname, ssadd, ssdel,
// ssmemb, entsel and nentsel, over the C calls of host/aced_select.h.
//
// (ssget [mode] [pt1 [pt2]] [pt-list] [filter]):
//   (ssget [filter])                     the person selects
//   (ssget pt [filter])                  the entity at a point
//   (ssget ":$" '("add" "remove") [filter]), (ssget ":S" [filter]) ...
//   (ssget "C"|"W" pt1 pt2 [filter])     crossing, window
//   (ssget "CP"|"WP" pt-list [filter])   polygons
//   (ssget "X"|"A"|"L"|"P"|"I" [filter]) everything, all, last, previous, implied
// Modes may carry an underscore. A selection set or nil (nothing selected);
// Esc is the error "Function cancelled"; an unknown mode "bad ssget mode
// string"; a malformed filter or point list "bad SSGET list".
// Selection sets made from LISP live until the session resets.
#include <cwctype>

#include "lisp/lisp.h"
#include "session/session.h"
#include "select/select.h"

namespace vantry::host {
namespace {

using lisp::Interp;
using lisp::Type;
using lisp::Value;

struct Chain {
  resbuf *rb = nullptr;
  Chain() = default;
  explicit Chain(resbuf *r) : rb(r) {}
  Chain(const Chain &) = delete;
  Chain &operator=(const Chain &) = delete;
  ~Chain() { acutRelRb(rb); }
};

Value setValue(const ads_name ss) {
  return Value(new lisp::Handle2(Type::Pickset, ss[0], ss[1]));
}

Value nameValue(const ads_name n) {
  return Value(new lisp::Handle2(Type::Ename, n[0], n[1]));
}

void setArg(Interp &in, const Value &v, ads_name out) {
  if (v.type() != Type::Pickset) in.badArgType(L"lselsetp", v);
  out[0] = v.as<lisp::Handle2>()->w0;
  out[1] = v.as<lisp::Handle2>()->w1;
}

void nameArg(Interp &in, const Value &v, ads_name out) {
  if (v.type() != Type::Ename) in.badArgType(L"lentityp", v);
  out[0] = v.as<lisp::Handle2>()->w0;
  out[1] = v.as<lisp::Handle2>()->w1;
}

bool isPoint(const Value &v) {
  int n = lisp::listLength(v);
  if (!v.isCons() || n < 2 || n > 3) return false;
  for (const Value &x : lisp::listToVector(v))
    if (!x.isNumber()) return false;
  return true;
}

void pointOf(const Value &v, ads_point p) {
  p[2] = 0;
  int i = 0;
  for (const Value &x : lisp::listToVector(v)) p[i++] = x.number();
}

Value pointValue(const ads_point p) {
  lisp::ListBuilder b;
  for (int i = 0; i < 3; ++i) b.add(Value::real(p[i]));
  return b.take();
}

std::wstring modeMethod(const std::wstring &mode) {
  std::wstring m;
  for (wchar_t c : mode)
    if (c != L'_') m += wchar_t(std::towupper(c));
  return m.substr(0, m.find(L':'));
}

// Runs acedSSGet and turns its answer into the LISP result.
Value runSSGet(Interp &in, const wchar_t *mode, const void *pt1, const void *pt2, const Value *filter) {
  Chain f(filter && !filter->isNil() ? valueToArgs(in, filter, 1) : nullptr);
  if (filter && !filter->isNil()) {
    select::Filter check;
    if (!filter->isCons() || !check.parse(f.rb)) in.error(L"bad SSGET list");
  }
  ads_name ss;
  int rc = acedSSGet(mode, pt1, pt2, f.rb, ss);
  if (rc == RTCAN) in.error(L"Function cancelled");
  return rc == RTNORM ? setValue(ss) : Value();
}

Value ssgetFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 0, 4);
  if (nargs == 0) return runSSGet(in, L"", nullptr, nullptr, nullptr);
  if (args[0].type() != Type::Str) {
    if (isPoint(args[0])) {
      // The entity passing through a point.
      lisp::needArgs(in, nargs, 1, 2);
      ads_point p;
      pointOf(args[0], p);
      AcDbDatabase *db = workingDatabase();
      select::Filter filter;
      Chain f(nargs == 2 ? valueToArgs(in, &args[1], 1) : nullptr);
      if (nargs == 2 && (!args[1].isList() || !filter.parse(f.rb))) in.error(L"bad SSGET list");
      AcDbObjectId id = db ? select::pickAt(db, select::P2{p[0], p[1]}, &filter) : AcDbObjectId::kNull;
      if (id.isNull()) return Value();
      ads_name ss;
      select::newSet({id}, ss);
      select::setPrevious({id});
      return setValue(ss);
    }
    lisp::needArgs(in, nargs, 1, 1);
    if (!args[0].isList()) in.error(L"bad ssget mode string");
    return runSSGet(in, L"", nullptr, nullptr, &args[0]);
  }
  const std::wstring &mode = lisp::str(args[0]);
  std::wstring how = modeMethod(mode);
  const Value *rest = args + 1;
  int left = nargs - 1;
  auto filterArg = [&](int at) -> const Value * {
    if (left > at + 1) in.error(L"too many arguments");
    return left == at + 1 ? &rest[at] : nullptr;
  };
  if (how == L"C" || how == L"W") {
    if (left < 2 || !isPoint(rest[0]) || !isPoint(rest[1])) in.error(L"bad point argument");
    ads_point a, b;
    pointOf(rest[0], a);
    pointOf(rest[1], b);
    return runSSGet(in, mode.c_str(), a, b, filterArg(2));
  }
  if (how == L"CP" || how == L"WP") {
    if (left < 1 || !rest[0].isCons()) in.error(L"bad SSGET list");
    Chain pts;
    resbuf *tail = nullptr;
    for (const Value &p : lisp::listToVector(rest[0])) {
      if (!isPoint(p)) in.error(L"bad SSGET list");
      resbuf *rb = acutNewRb(RT3DPOINT);
      pointOf(p, rb->resval.rpoint);
      (tail ? tail->rbnext : pts.rb) = rb;
      tail = rb;
    }
    return runSSGet(in, mode.c_str(), pts.rb, nullptr, filterArg(1));
  }
  if (how.empty()) {
    // The person selects, with ":$" prompts as a list of two strings.
    if (mode.find(L'$') != std::wstring::npos) {
      if (left < 1 || !rest[0].isCons())
        in.error(L"bad argument type: consp " + in.toString(left ? rest[0] : Value(), true));
      std::vector<Value> texts = lisp::listToVector(rest[0]);
      std::wstring add = !texts.empty() && texts[0].type() == Type::Str ? lisp::str(texts[0]) : L"";
      std::wstring remove = texts.size() > 1 && texts[1].type() == Type::Str ? lisp::str(texts[1]) : L"";
      const ACHAR *prompts[2] = {add.c_str(), remove.c_str()};
      return runSSGet(in, mode.c_str(), prompts, nullptr, filterArg(1));
    }
    return runSSGet(in, mode.c_str(), nullptr, nullptr, filterArg(0));
  }
  static const wchar_t *const plain[] = {L"X", L"A", L"ALL", L"L", L"P", L"I"};
  for (const wchar_t *p : plain)
    if (how == p) return runSSGet(in, mode.c_str(), nullptr, nullptr, filterArg(0));
  in.error(L"bad ssget mode string");
}

Value sslengthFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 1);
  ads_name ss;
  setArg(in, args[0], ss);
  int32_t n = 0;
  if (acedSSLength(ss, &n) != RTNORM) return Value();
  return Value::integer(n);
}

Value ssnameFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 2, 2);
  ads_name ss, ent;
  setArg(in, args[0], ss);
  if (!args[1].isNumber()) in.badArgType(L"numberp", args[1]);
  double i = args[1].number();
  if (i < 0 || i > 2147483647.0) return Value();
  if (acedSSName(ss, int32_t(i), ent) != RTNORM) return Value();
  return nameValue(ent);
}

Value ssaddFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 0, 2);
  ads_name ent = {0, 0}, ss = {0, 0}, result;
  if (nargs >= 1) nameArg(in, args[0], ent);
  if (nargs == 2) setArg(in, args[1], ss);
  if (acedSSAdd(nargs >= 1 ? ent : nullptr, nargs == 2 ? ss : nullptr, result) != RTNORM) return Value();
  return nargs == 2 ? args[1] : setValue(result);
}

Value ssdelFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 2, 2);
  ads_name ent, ss;
  nameArg(in, args[0], ent);
  setArg(in, args[1], ss);
  return acedSSDel(ent, ss) == RTNORM ? args[1] : Value();
}

Value ssmembFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 2, 2);
  ads_name ent, ss;
  nameArg(in, args[0], ent);
  setArg(in, args[1], ss);
  return acedSSMemb(ent, ss) == RTNORM ? args[0] : Value();
}

// What entsel and nentsel answer for a status other than RTNORM.
Value notPicked(Interp &in, int rc) {
  if (rc == RTCAN) in.error(L"Function cancelled");
  if (rc == RTKWORD) {
    ACHAR buf[512];
    if (acedGetInput(buf, 512) == RTNORM) return lisp::makeString(buf);
  }
  return Value();
}

const ACHAR *promptArg(Interp &in, const Value *args, int nargs, std::wstring &keep) {
  lisp::needArgs(in, nargs, 0, 1);
  if (nargs == 0) return nullptr;
  keep = lisp::strArg(in, args[0]);
  return keep.c_str();
}

Value entselFn(Interp &in, const Value *args, int nargs) {
  std::wstring prompt;
  const ACHAR *p = promptArg(in, args, nargs, prompt);
  ads_name ent;
  ads_point pt;
  int rc = acedEntSel(p, ent, pt);
  if (rc != RTNORM) return notPicked(in, rc);
  return lisp::cons(nameValue(ent), lisp::cons(pointValue(pt), Value()));
}

// (nentsel [prompt]): (ename point) for an entity of the drawing itself,
// (ename point matrix refs) for one inside block references.
Value nentselFn(Interp &in, const Value *args, int nargs) {
  std::wstring prompt;
  const ACHAR *p = promptArg(in, args, nargs, prompt);
  ads_name ent;
  ads_point pt, xf[4];
  resbuf *refs = nullptr;
  int rc = acedNEntSel(p, ent, pt, xf, &refs);
  if (rc != RTNORM) return notPicked(in, rc);
  Chain keep(refs);
  lisp::ListBuilder out;
  out.add(nameValue(ent));
  out.add(pointValue(pt));
  if (refs) {
    lisp::ListBuilder m, r;
    for (int i = 0; i < 4; ++i) m.add(pointValue(xf[i]));
    for (resbuf *rb = refs; rb; rb = rb->rbnext) r.add(nameValue(rb->resval.rlname));
    out.add(m.take());
    out.add(r.take());
  }
  return out.take();
}

}  // namespace

void installSelectionLisp(lisp::Interp &in) {
  static const struct {
    const wchar_t *name;
    lisp::SubrFn fn;
  } table[] = {
      {L"ssget", ssgetFn}, {L"sslength", sslengthFn}, {L"ssname", ssnameFn}, {L"ssadd", ssaddFn},
      {L"ssdel", ssdelFn}, {L"ssmemb", ssmembFn},     {L"entsel", entselFn}, {L"nentsel", nentselFn},
  };
  for (const auto &e : table) in.defineSubr(e.name, e.fn);
}

}  // namespace vantry::host
