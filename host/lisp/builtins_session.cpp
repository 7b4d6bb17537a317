// Built-ins about the LISP session itself: the symbol table, the blackboard
// shared by every document, functions kept as lists (defun-q), tracing, the
// error-mode stack of *error* handlers, the version and the pause marker.
#include <algorithm>

#include "lisp/lisp.h"

namespace vantry::lisp {

void installCvunit(Interp &in);  // builtins_cvunit.cpp

namespace {

Value carried(Interp &to, const Value &v, int depth) {
  if (depth > 10000) return Value();
  if (v.type() == Type::Sym) return Value(to.intern(v.as<Symbol>()->name));
  if (v.type() == Type::Usubr) {
    const Usubr *from = v.as<Usubr>();
    auto *made = new Usubr();
    Value fn(made);
    made->name = from->name;
    for (Symbol *p : from->params) made->params.push_back(to.intern(p->name));
    for (Symbol *l : from->locals) made->locals.push_back(to.intern(l->name));
    made->names = carried(to, from->names, depth + 1);
    made->body = carried(to, from->body, depth + 1);
    return fn;
  }
  if (!v.isCons()) return v;
  ListBuilder b;
  const Value *p = &v;
  for (; p->isCons(); p = &p->as<Cons>()->cdr) b.add(carried(to, p->as<Cons>()->car, depth + 1));
  if (!p->isNil()) b.dot(carried(to, *p, depth + 1));
  return b.take();
}

}  // namespace

Value carryOver(Interp &to, const Value &v) {
  return carried(to, v, 0);
}

namespace {

Symbol *symbolArg(Interp &in, const Value &v) {
  if (v.type() != Type::Sym) in.badArgType(L"symbolp", v);
  return v.as<Symbol>();
}

// The blackboard: one namespace for the whole session, readable and
// writable from every document.
std::unordered_map<std::wstring, Value> &blackboard() {
  static std::unordered_map<std::wstring, Value> board;
  return board;
}

// (atoms-family format [names]): every symbol with a value, as symbols
// (format 0) or as their names (format 1); with names, each one that has a
// value, or nil in its place.
Value fAtomsFamily(Interp &in, const Value *a, int n) {
  needArgs(in, n, 1, 2);
  int32_t format = intArg(in, a[0]);
  if (format != 0 && format != 1) in.error(L"bad argument value: " + in.toString(a[0], true));
  auto item = [&](Symbol *s) { return format == 0 ? Value(s) : makeString(s->name); };
  ListBuilder b;
  if (n == 2 && !a[1].isNil()) {
    listArg(in, a[1]);
    for (const Value *p = &a[1]; p->isCons(); p = &p->as<Cons>()->cdr) {
      Symbol *s = in.intern(strArg(in, p->as<Cons>()->car));
      b.add(s->value.isNil() ? Value() : item(s));
    }
    return b.take();
  }
  std::vector<Symbol *> all;
  in.forEachSymbol([&](Symbol *s) {
    if (!s->value.isNil()) all.push_back(s);
  });
  std::sort(all.begin(), all.end(), [](Symbol *x, Symbol *y) { return x->name < y->name; });
  for (Symbol *s : all) b.add(item(s));
  return b.take();
}

// (vl-bb-set 'sym value) / (vl-bb-ref 'sym)
Value fBbSet(Interp &in, const Value *a, int n) {
  needArgs(in, n, 2, 2);
  Symbol *s = symbolArg(in, a[0]);
  if (a[1].isNil())
    blackboard().erase(s->name);
  else
    blackboard()[s->name] = a[1];
  return a[1];
}
Value fBbRef(Interp &in, const Value *a, int n) {
  needArgs(in, n, 1, 1);
  Symbol *s = symbolArg(in, a[0]);
  auto it = blackboard().find(s->name);
  return it == blackboard().end() ? Value() : carryOver(in, it->second);
}

// (vl-doc-set 'sym value) / (vl-doc-ref 'sym): the document's own namespace,
// which is this interpreter's: code loaded here runs in it already.
Value fDocSet(Interp &in, const Value *a, int n) {
  needArgs(in, n, 2, 2);
  Symbol *s = symbolArg(in, a[0]);
  if (s == in.symT) in.error(L"attempt to set a constant: T");
  s->value = a[1];
  return a[1];
}
Value fDocRef(Interp &in, const Value *a, int n) {
  needArgs(in, n, 1, 1);
  return symbolArg(in, a[0])->value;
}

// (defun-q name (params / locals) body...): the function is kept as the
// list ((params / locals) body...), which defun-q-list-ref shows and
// programs may change (S::STARTUP is built this way).
Value fDefunQ(Interp &in, const Value &args) {
  if (!args.isCons() || !cdr(args).isCons()) in.tooFewArgs();
  Symbol *name = symbolArg(in, car(args));
  const Value &params = car(cdr(args));
  if (!params.isList()) in.badArgType(L"listp", params);
  name->value = cdr(args);
  return Value(name);
}
Value fDefunQListRef(Interp &in, const Value *a, int n) {
  needArgs(in, n, 1, 1);
  const Value &v = symbolArg(in, a[0])->value;
  return v.isCons() ? v : Value();
}
Value fDefunQListSet(Interp &in, const Value *a, int n) {
  needArgs(in, n, 2, 2);
  Symbol *s = symbolArg(in, a[0]);
  if (!a[1].isList()) in.badArgType(L"listp", a[1]);
  s->value = a[1];
  return Value(s);
}

// (trace fn...) / (untrace fn...): the last name given, or nil.
template <bool On>
Value fTrace(Interp &in, const Value &args) {
  Value last;
  for (const Value *p = &args; p->isCons(); p = &p->as<Cons>()->cdr) {
    Symbol *s = symbolArg(in, p->as<Cons>()->car);
    if (On)
      in.traced.insert(s->name);
    else
      in.traced.erase(s->name);
    last = Value(s);
  }
  return last;
}

// (vl-exit-with-error "msg"): leaves an error handler, handing the message
// on as the error of the code that called it. With one namespace that is
// an error raised with this message.
Value fExitWithError(Interp &in, const Value *a, int n) {
  needArgs(in, n, 1, 1);
  std::wstring message = strArg(in, a[0]);
  if (in.inErrorHandler) throw ErrorHandled{message};
  in.error(message);
}

// (vl-exit-with-value v): leaves an error handler quietly; the evaluation
// that failed ends there (with one namespace there is no caller in another
// to hand the value to).
Value fExitWithValue(Interp &in, const Value *a, int n) {
  needArgs(in, n, 1, 1);
  if (in.inErrorHandler) throw ErrorHandled{L""};
  return a[0];
}

// The error-mode stack: *push-error-using-command* lets an *error* handler
// call command, *push-error-using-stack* gives it the locals of the failed
// function (which dynamic binding does in either mode here); *pop-error-mode*
// goes back to the mode before.
std::vector<int> &errorModes() {
  static std::vector<int> modes;
  return modes;
}
template <int Mode>
Value fPushErrorMode(Interp &in, const Value *, int n) {
  needArgs(in, n, 0, 0);
  errorModes().push_back(Mode);
  return in.makeT();
}
Value fPopErrorMode(Interp &in, const Value *, int n) {
  needArgs(in, n, 0, 0);
  if (!errorModes().empty()) errorModes().pop_back();
  return in.makeT();
}

Value fVer(Interp &in, const Value *, int n) {
  needArgs(in, n, 0, 0);
  return makeString(L"Visual LISP 2025 (en)");
}

}  // namespace

void installSessionLisp(Interp &in) {
  in.defineSubr(L"ATOMS-FAMILY", fAtomsFamily);
  in.defineSubr(L"VL-BB-SET", fBbSet);
  in.defineSubr(L"VL-BB-REF", fBbRef);
  in.defineSubr(L"VL-DOC-SET", fDocSet);
  in.defineSubr(L"VL-DOC-REF", fDocRef);
  in.defineSpecial(L"DEFUN-Q", fDefunQ);
  in.defineSubr(L"DEFUN-Q-LIST-REF", fDefunQListRef);
  in.defineSubr(L"DEFUN-Q-LIST-SET", fDefunQListSet);
  in.defineSpecial(L"TRACE", fTrace<true>);
  in.defineSpecial(L"UNTRACE", fTrace<false>);
  in.defineSubr(L"VL-EXIT-WITH-ERROR", fExitWithError);
  in.defineSubr(L"VL-EXIT-WITH-VALUE", fExitWithValue);
  in.defineSubr(L"*PUSH-ERROR-USING-COMMAND*", fPushErrorMode<1>);
  in.defineSubr(L"*PUSH-ERROR-USING-STACK*", fPushErrorMode<2>);
  in.defineSubr(L"*POP-ERROR-MODE*", fPopErrorMode);
  in.defineSubr(L"VER", fVer);
  // pause in a command's arguments hands that input to the person.
  in.setSymbolValue(L"PAUSE", makeString(L"\\"));
  installCvunit(in);
}

}  // namespace vantry::lisp
