// The bridge between the host's AutoLISP and external modules: function
// registration per document, the conversion of LISP values to result-buffer
// chains and back, the calls themselves, and acedInvoke.
//
// LISP to chain (the arguments of an external function):
//   nil -> RTNIL; T -> RTT; integer -> RTSHORT when it fits 16 bits, else
//   RTLONG; real -> RTREAL; string -> RTSTR; other symbol -> RTSTR of its
//   name; entity name -> RTENAME; selection set -> RTPICKS;
//   a list of two or three numbers -> RTPOINT / RT3DPOINT;
//   a list whose every element is (code . value) or (code x y [z]) with a
//   drawing-data group code whose value fits the code -> RTLB, one node per
//   element with restype = code, RTLE (the way entity data and filters pass);
//   any other list -> RTLB elements RTLE, a dotted tail as RTDOTE tail;
//   anything else (functions, files) -> RTNIL.
// Chain to LISP (what a function returns) is the same table read backwards;
// a group-code node inside a list becomes (code . value), or (code x y z) for
// a point code; RTLB RTLE reads as nil; RTVOID reads as the null symbol.
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "activex/activex.h"
#include "common/text.h"
#include "engine/engine.h"
#include "session/session.h"
#include "session/internal.h"

namespace vantry::host {
namespace {

using lisp::Cons;
using lisp::Interp;
using lisp::ListBuilder;
using lisp::Type;
using lisp::Value;

// The message with which a LISP call fails when its external function
// answers RSERR.
const wchar_t kExternalFailed[] = L"ADS request error";

// The chain being built for a call's arguments; released if the conversion
// fails part way (a list nested too deep for the stack).
struct Chain {
  Interp &in;
  resbuf *head = nullptr, *tail = nullptr;
  explicit Chain(Interp &i) : in(i) {}
  Chain(const Chain &) = delete;
  ~Chain() { acutRelRb(head); }
  resbuf *take() {
    resbuf *h = head;
    head = tail = nullptr;
    return h;
  }
  resbuf *add(int type) {
    resbuf *rb = acutNewRb(type);
    if (tail)
      tail->rbnext = rb;
    else
      head = rb;
    tail = rb;
    return rb;
  }
};

bool isPointList(const Value &v) {
  int n = 0;
  for (const Value *p = &v; p->isCons(); p = &p->as<Cons>()->cdr) {
    if (!p->as<Cons>()->car.isNumber()) return false;
    ++n;
  }
  return (n == 2 || n == 3) && lisp::listLength(v) == n;
}

void setString(resbuf *rb, const std::wstring &s) {
  acutNewString(s.c_str(), rb->resval.rstring);
}

// Whether one element of a list can travel as a group-code node.
bool fitsGroupCode(const Value &item) {
  if (!item.isCons() || car(item).type() != Type::Int) return false;
  int code = car(item).asInt();
  if (code < -5 || code > 1071) return false;
  const Value &val = cdr(item);
  switch (rbKind(code)) {
    case RbKind::Real:
      return val.isNumber();
    case RbKind::Short:
    case RbKind::Long:
    case RbKind::Int64:
      return val.type() == Type::Int;
    case RbKind::String:
      return val.type() == Type::Str;
    case RbKind::Name:
      return val.type() == Type::Ename;
    case RbKind::Point:
      return isPointList(val);
    case RbKind::None:
      return code == -3 && val.isList();
    case RbKind::Binary:
      return false;
  }
  return false;
}

bool isGroupCodeList(const Value &v) {
  if (!v.isCons() || lisp::listLength(v) < 0) return false;
  for (const Value *p = &v; p->isCons(); p = &p->as<Cons>()->cdr)
    if (!fitsGroupCode(p->as<Cons>()->car)) return false;
  return true;
}

void appendValue(Chain &c, const Value &v);

void appendGroupCode(Chain &c, const Value &item) {
  int code = car(item).asInt();
  const Value &val = cdr(item);
  resbuf *rb = c.add(code);
  switch (rbKind(code)) {
    case RbKind::Real:
      rb->resval.rreal = val.number();
      break;
    case RbKind::Short:
      rb->resval.rint = short(val.asInt());
      break;
    case RbKind::Long:
      rb->resval.rlong = val.asInt();
      break;
    case RbKind::Int64:
      rb->resval.mnInt64 = val.asInt();
      break;
    case RbKind::String:
      setString(rb, str(val));
      break;
    case RbKind::Name:
      rb->resval.rlname[0] = val.as<lisp::Handle2>()->w0;
      rb->resval.rlname[1] = val.as<lisp::Handle2>()->w1;
      break;
    case RbKind::Point: {
      int i = 0;
      for (const Value *p = &val; p->isCons() && i < 3; p = &p->as<Cons>()->cdr)
        rb->resval.rpoint[i++] = p->as<Cons>()->car.number();
      break;
    }
    case RbKind::None:
      // Extended data: -3 followed by each application's list as it stands.
      for (const Value *p = &val; p->isCons(); p = &p->as<Cons>()->cdr) appendValue(c, p->as<Cons>()->car);
      break;
    case RbKind::Binary:
      break;
  }
}

void appendValue(Chain &c, const Value &v) {
  switch (v.type()) {
    case Type::Nil:
      c.add(RTNIL);
      return;
    case Type::Int: {
      int32_t i = v.asInt();
      if (i >= -32768 && i <= 32767)
        c.add(RTSHORT)->resval.rint = short(i);
      else
        c.add(RTLONG)->resval.rlong = i;
      return;
    }
    case Type::Real:
      c.add(RTREAL)->resval.rreal = v.asReal();
      return;
    case Type::Str:
      setString(c.add(RTSTR), str(v));
      return;
    case Type::Sym:
      if (v.as<lisp::Symbol>()->name == L"T")
        c.add(RTT);
      else
        setString(c.add(RTSTR), v.as<lisp::Symbol>()->name);
      return;
    case Type::Ename:
    case Type::Pickset: {
      resbuf *rb = c.add(v.type() == Type::Ename ? RTENAME : RTPICKS);
      rb->resval.rlname[0] = v.as<lisp::Handle2>()->w0;
      rb->resval.rlname[1] = v.as<lisp::Handle2>()->w1;
      return;
    }
    case Type::List: {
      if (isPointList(v)) {
        int n = lisp::listLength(v);
        resbuf *rb = c.add(n == 2 ? RTPOINT : RT3DPOINT);
        int i = 0;
        for (const Value *p = &v; p->isCons(); p = &p->as<Cons>()->cdr)
          rb->resval.rpoint[i++] = p->as<Cons>()->car.number();
        return;
      }
      c.in.safePoint();
      c.add(RTLB);
      if (isGroupCodeList(v)) {
        for (const Value *p = &v; p->isCons(); p = &p->as<Cons>()->cdr)
          appendGroupCode(c, p->as<Cons>()->car);
      } else {
        const Value *p = &v;
        for (; p->isCons(); p = &p->as<Cons>()->cdr) appendValue(c, p->as<Cons>()->car);
        if (!p->isNil()) {
          c.add(RTDOTE);
          appendValue(c, *p);
        }
      }
      c.add(RTLE);
      return;
    }
    default:
      c.add(RTNIL);
      return;
  }
}

Value pointValue(const resbuf *rb, int n) {
  ListBuilder b;
  for (int i = 0; i < n; ++i) b.add(Value::real(rb->resval.rpoint[i]));
  return b.take();
}

// Short strings that crossed lately as keys, for reuse: the field names of
// records and the keys of association lists come back with every result,
// and a shared string costs nothing to make. LISP strings are never changed in
// place, so sharing one is safe.
class RecentStrings {
 public:
  Value get(const wchar_t *text) {
    size_t n = 0;
    uint32_t h = 2166136261u;
    for (; text[n] && n <= kLongest; ++n) h = (h ^ uint32_t(text[n])) * 16777619u;
    if (n > kLongest) return lisp::makeString(text);
    Value &slot = slots_[h % kSlots];
    if (slot.type() == Type::Str && slot.as<lisp::String>()->text == std::wstring_view(text, n)) return slot;
    slot = lisp::makeString(std::wstring(text, n));
    return slot;
  }
  // The key of the pair at place `key` of its list: records of one table
  // bring the same keys in the same order, so the key at the same place in
  // the record before (of this result or the one before) is looked at
  // first, which costs one comparison and no hashing.
  Value getKey(const wchar_t *text, size_t key) {
    if (key >= kSlots) return get(text);
    Value &last = byPlace_[key];
    if (last.type() == Type::Str && equals(last.as<lisp::String>()->text, text)) return last;
    last = get(text);
    return last;
  }

 private:
  static bool equals(const std::wstring &s, const wchar_t *text) {
    size_t n = s.size();
    for (size_t i = 0; i < n; ++i)
      if (s[i] != text[i]) return false;  // a shorter text stops at its 0
    return text[n] == 0;
  }
  static constexpr size_t kLongest = 24, kSlots = 256;
  Value slots_[kSlots];
  Value byPlace_[kSlots];
};

RecentStrings &recentStrings() {
  static RecentStrings *cache = new RecentStrings;  // outlives every interpreter
  return *cache;
}

// The place of the element being read in the list around it, set by that
// list before each element: the k-th pair of every record of an answer
// finds its key in the same slot.
size_t listPlace = 0;

// A ("key" . value) element with a one-node value, as every field of a
// record, read in one step: false, moving nothing, for anything else.
// Kept out of readValue, which stays small for the calls it makes of itself.
__attribute__((noinline)) bool readFieldPair(Interp &in, const resbuf *&rb, size_t place, ListBuilder &b) {
  const resbuf *key = rb->rbnext;
  if (!key || key->restype != RTSTR || !key->rbnext || key->rbnext->restype != RTDOTE) return false;
  const resbuf *v = key->rbnext->rbnext;
  if (!v || !v->rbnext || v->rbnext->restype != RTLE) return false;
  Value value;
  switch (v->restype) {
    case RTSTR:
      value = lisp::makeString(v->resval.rstring ? v->resval.rstring : L"");
      break;
    case RTSHORT:
      value = Value::integer(v->resval.rint);
      break;
    case RTLONG:
      value = Value::integer(v->resval.rlong);
      break;
    case RTREAL:
      value = Value::real(v->resval.rreal);
      break;
    case RTT:
      value = in.makeT();
      break;
    case RTNIL:
      break;
    default:
      return false;
  }
  b.add(lisp::cons(recentStrings().getKey(key->resval.rstring ? key->resval.rstring : L"", place), std::move(value)));
  listPlace = 1;  // as the pair's own reading leaves it
  rb = v->rbnext->rbnext;
  return true;
}

// Reads one value starting at *rb and moves *rb past it.
Value readValue(Interp &in, const resbuf *&rb) {
  const resbuf *node = rb;
  rb = rb->rbnext;
  int t = node->restype;
  switch (t) {
    case RTNIL:
      return Value();
    case RTT:
      return in.makeT();
    case RTVOID:
      return Value(in.intern(L""));
    case RTSHORT:
      return Value::integer(node->resval.rint);
    case RTLONG:
      return Value::integer(node->resval.rlong);
    case RTINT64:
    case RTLONG_PTR: {
      int64_t i = node->resval.mnInt64;
      return i >= INT32_MIN && i <= INT32_MAX ? Value::integer(int32_t(i)) : Value::real(double(i));
    }
    case RTREAL:
    case RTANG:
      return Value::real(node->resval.rreal);
    case RTSTR:
      return lisp::makeString(node->resval.rstring ? node->resval.rstring : L"");
    case RTPOINT:
      return pointValue(node, 2);
    case RT3DPOINT:
      return pointValue(node, 3);
    case RTENAME:
    case RTPICKS:
      return Value(new lisp::Handle2(t == RTENAME ? Type::Ename : Type::Pickset, node->resval.rlname[0],
                                     node->resval.rlname[1]));
    case RTLB: {
      in.safePoint();
      const size_t place = listPlace;
      ListBuilder b;
      size_t n = 0;
      // A list that begins with a string is most often a (key . value) pair
      // of a record or an association list: its key is shared with the
      // same key of the records before it.
      if (rb && rb->restype == RTSTR) {
        Value key = recentStrings().getKey(rb->resval.rstring ? rb->resval.rstring : L"", place);
        rb = rb->rbnext;
        // ("key" . value) with a value of one node, as every field of a
        // record: made as the one cell it is, without the list builder.
        if (rb && rb->restype == RTDOTE && rb->rbnext) {
          const resbuf *value = rb->rbnext;
          const int vt = value->restype;
          if (vt >= RTNONE && vt != RTLB && vt != RTLE && vt != RTDOTE && value->rbnext &&
              value->rbnext->restype == RTLE) {
            rb = value;
            listPlace = 1;
            Value v = readValue(in, rb);  // one node: rb is now the RTLE
            rb = rb->rbnext;
            return lisp::cons(std::move(key), std::move(v));
          }
        }
        b.add(std::move(key));
        ++n;
      }
      while (rb && rb->restype != RTLE) {
        if (rb->restype == RTDOTE) {
          rb = rb->rbnext;
          listPlace = n++;
          if (rb && rb->restype != RTLE) b.dot(readValue(in, rb));
          continue;
        }
        listPlace = n++;
        if (rb->restype == RTLB && readFieldPair(in, rb, n - 1, b)) continue;
        b.add(readValue(in, rb));
      }
      if (rb) rb = rb->rbnext;  // the RTLE
      return b.take();
    }
    case RTLE:
    case RTDOTE:
      return Value();
    default:
      break;
  }
  // A drawing-data group code: (code . value), (code x y z) for points.
  Value code = Value::integer(t);
  switch (rbKind(t)) {
    case RbKind::Real:
      return lisp::cons(code, Value::real(node->resval.rreal));
    case RbKind::Short:
      return lisp::cons(code, Value::integer(node->resval.rint));
    case RbKind::Long:
      return lisp::cons(code, Value::integer(node->resval.rlong));
    case RbKind::Int64:
      return lisp::cons(code, Value::real(double(node->resval.mnInt64)));
    case RbKind::String:
      return lisp::cons(code, lisp::makeString(node->resval.rstring ? node->resval.rstring : L""));
    case RbKind::Name:
      return lisp::cons(
          code, Value(new lisp::Handle2(Type::Ename, node->resval.rlname[0], node->resval.rlname[1])));
    case RbKind::Point:
      return lisp::cons(code, pointValue(node, 3));
    case RbKind::None:
    case RbKind::Binary:
      break;
  }
  if (t == -3) {
    // Extended data runs to the end of the enclosing list.
    ListBuilder apps;
    while (rb && rb->restype != RTLE) apps.add(readValue(in, rb));
    return lisp::cons(code, apps.take());
  }
  return Value();
}

Session::Call *currentCall() {
  auto &calls = Session::get().calls;
  return calls.empty() ? nullptr : calls.back();
}

Document *documentOf(void *owner) {
  for (auto &d : Session::get().documents())
    if (d.get() == owner) return d.get();
  return nullptr;
}

// Calls the handler registered for an external function with LISP values.
// A script whose own document was closed goes on (the runner keeps its
// interpreter): its external functions are then the current document's
// functions of the same name and code, as a module defines them afresh in
// every document it is loaded into.
Value callExternal(Interp &in, const lisp::Exrxsubr &fn, const Value *args, int nargs) {
  Document *doc = documentOf(fn.owner);
  if (!doc && (doc = Session::get().current())) {
    auto name = doc->functions().names.find(fn.code);
    if (name == doc->functions().names.end() || vantry::text::upcase(name->second) != vantry::text::upcase(fn.name)) doc = nullptr;
  }
  int (*handler)() = nullptr;
  if (doc) {
    auto it = doc->functions().handlers.find(fn.code);
    if (it != doc->functions().handlers.end()) handler = it->second;
  }
  if (!handler) in.error(L"no function definition: " + in.intern(fn.name)->name);

  Session::Call call;
  call.code = fn.code;
  call.interp = &in;
  call.args.assign(args, args + nargs);
  auto &calls = Session::get().calls;
  calls.push_back(&call);
  int rc;
  try {
    rc = handler();
  } catch (const vantry::lisp::Stopped &) {
    calls.pop_back();
    throw;
  } catch (...) {
    calls.pop_back();
    in.error(L"unhandled exception in external function " + in.intern(fn.name)->name);
  }
  calls.pop_back();
  if (call.pendingError) in.error(*call.pendingError);
  if (rc == RSERR) in.error(kExternalFailed);
  if (rc == RTCAN) {
    // The function stopped for the person's Esc: the LISP is cancelled with it.
    if (in.output) in.output(L"*Cancel*\n");
    in.error(L"Function cancelled");
  }
  return call.result;
}

Interp *activeInterp() {
  if (Session::Call *call = currentCall()) return call->interp;
  Document *doc = Session::get().current();
  return doc ? &doc->lisp() : nullptr;
}

}  // namespace

resbuf *valueToArgs(Interp &in, const Value *args, int nargs) {
  Chain c(in);
  for (int i = 0; i < nargs; ++i) appendValue(c, args[i]);
  return c.take();
}

Value chainToValue(Interp &in, const resbuf *rb) {
  if (!rb) return Value();
  listPlace = 0;
  // A chain that is exactly one list is that list; otherwise its elements
  // make the list.
  const resbuf *p = rb;
  Value first = readValue(in, p);
  if (!p && rb->restype == RTLB) return first;
  ListBuilder b;
  b.add(std::move(first));
  for (size_t n = 1; p; ++n) {
    listPlace = n;
    b.add(readValue(in, p));
  }
  return b.take();
}

void installSelectionLisp(Interp &in);  // host/select/lisp.cpp

void installHostLisp(Interp &in) {
  in.callExternal = callExternal;
  in.supportPath = supportDirectories;
  in.filesChanged = engine::noteFileSystemChange;
  installEditorInput(in);
  installHostFunctions(in);
  installEntityLisp(in);
  installSelectionLisp(in);
  installActiveXLisp(in);
}

}  // namespace vantry::host

using vantry::host::Document;
using vantry::host::Session;
using vantry::lisp::Value;

int acedDefun(const ACHAR *name, int funcno) {
  Document *doc = Session::get().current();
  if (!doc || !name || !*name) return RTERROR;
  vantry::lisp::Symbol *sym = doc->lisp().intern(name);
  sym->value = Value(new vantry::lisp::Exrxsubr(name, funcno, doc));
  doc->functions().names[funcno] = name;
  return RTNORM;
}

int acedRegFunc(int (*fhdl)(), int fcode) {
  Document *doc = Session::get().current();
  if (!doc) return RTERROR;
  if (fhdl)
    doc->functions().handlers[fcode] = fhdl;
  else
    doc->functions().handlers.erase(fcode);
  return RTNORM;
}

int acedUndef(const ACHAR *name, int funcno) {
  Document *doc = Session::get().current();
  if (!doc || !name) return RTERROR;
  vantry::lisp::Symbol *sym = doc->lisp().intern(name);
  if (sym->value.type() == vantry::lisp::Type::Exrxsubr &&
      sym->value.as<vantry::lisp::Exrxsubr>()->code == funcno)
    sym->value = Value();
  doc->functions().names.erase(funcno);
  return RTNORM;
}

int acedGetFunCode() {
  Session::Call *call = vantry::host::currentCall();
  return call ? call->code : RTERROR;
}

namespace {

// Runs a conversion for the module's call without letting a LISP error
// unwind through the module's frames: *error* is held back (as inside
// vl-catch-all-apply) and the error waits on the call, which raises it when
// the function returns. Answers whether the conversion finished.
template <class F>
bool convertForModule(Session::Call *call, F convert) {
  vantry::lisp::Interp &in = *call->interp;
  ++in.catchDepth;
  try {
    convert();
  } catch (const vantry::lisp::LispError &e) {
    --in.catchDepth;
    if (!call->pendingError) call->pendingError = e.message;
    return false;
  }
  --in.catchDepth;
  return true;
}

}  // namespace

struct resbuf *acedGetArgs() {
  Session::Call *call = vantry::host::currentCall();
  if (!call) return nullptr;
  resbuf *args = nullptr;
  convertForModule(call, [&] { args = vantry::host::valueToArgs(*call->interp, call->args.data(), int(call->args.size())); });
  return args;
}

namespace {
int ret(Value v) {
  Session::Call *call = vantry::host::currentCall();
  if (!call) return RTERROR;
  call->result = std::move(v);
  call->resultSet = true;
  return RTNORM;
}
vantry::lisp::Interp *callInterp() {
  Session::Call *call = vantry::host::currentCall();
  return call ? call->interp : nullptr;
}
}  // namespace

int acedRetInt(int ival) {
  return ret(Value::integer(ival));
}
int acedRetReal(ads_real rval) {
  return ret(Value::real(rval));
}
int acedRetPoint(const ads_point pt) {
  vantry::lisp::ListBuilder b;
  for (int i = 0; i < 3; ++i) b.add(Value::real(pt[i]));
  return ret(b.take());
}
int acedRetStr(const ACHAR *s) {
  return ret(vantry::lisp::makeString(s ? s : L""));
}
int acedRetName(const ads_name aname, int type) {
  if (type != RTENAME && type != RTPICKS) return RTERROR;
  return ret(Value(new vantry::lisp::Handle2(
      type == RTENAME ? vantry::lisp::Type::Ename : vantry::lisp::Type::Pickset, aname[0], aname[1])));
}
int acedRetVal(const struct resbuf *rbuf) {
  Session::Call *call = vantry::host::currentCall();
  if (!call || !rbuf) return RTERROR;
  // One value: the first node, or the whole list it opens.
  vantry::host::listPlace = 0;
  const resbuf *p = rbuf;
  Value v;
  if (!convertForModule(call, [&] { v = vantry::host::readValue(*call->interp, p); })) return RTERROR;
  return ret(std::move(v));
}
int acedRetList(const struct resbuf *rbuf) {
  Session::Call *call = vantry::host::currentCall();
  if (!call) return RTERROR;
  Value v;
  if (!convertForModule(call, [&] { v = vantry::host::chainToValue(*call->interp, rbuf); })) return RTERROR;
  return ret(std::move(v));
}
int acedRetNil() {
  return ret(Value());
}
int acedRetT() {
  vantry::lisp::Interp *in = callInterp();
  return in ? ret(in->makeT()) : RTERROR;
}
int acedRetVoid() {
  vantry::lisp::Interp *in = callInterp();
  return in ? ret(Value(in->intern(L""))) : RTERROR;
}

int acedInvoke(const struct resbuf *args, struct resbuf **result) {
  if (result) *result = nullptr;
  if (!args || args->restype != RTSTR || !args->resval.rstring) return RTERROR;
  vantry::lisp::Interp *in = vantry::host::activeInterp();
  if (!in) return RTERROR;
  Value fn = in->intern(args->resval.rstring)->value;
  if (fn.isNil()) return RTERROR;
  std::vector<Value> values;
  vantry::host::listPlace = 0;
  for (const resbuf *p = args->rbnext; p;) values.push_back(vantry::host::readValue(*in, p));
  ++in->catchDepth;
  try {
    Value v = in->apply(fn, values.data(), int(values.size()));
    --in->catchDepth;
    if (result) *result = vantry::host::valueToArgs(*in, &v, 1);
    return RTNORM;
  } catch (const vantry::lisp::LispError &) {
    --in->catchDepth;
    return RTERROR;
  } catch (...) {
    --in->catchDepth;
    throw;
  }
}
