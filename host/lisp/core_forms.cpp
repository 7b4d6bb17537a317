// Special forms, evaluation and error built-ins: the part of AutoLISP that
// decides what gets evaluated when.
#include "lisp/lisp.h"

namespace vantry::lisp {
namespace {

int count(const Value &list) {
  int n = 0;
  for (const Value *p = &list; p->isCons(); p = &p->as<Cons>()->cdr) ++n;
  return n;
}

Value progn(Interp &in, const Value &body) {
  Value result;
  for (const Value *p = &body; p->isCons(); p = &p->as<Cons>()->cdr) result = in.eval(p->as<Cons>()->car);
  return result;
}

Symbol *symbolArg(Interp &in, const Value &v) {
  if (v.type() != Type::Sym) in.badArgType(L"symbolp", v);
  return v.as<Symbol>();
}

// Builds a USUBR from (params... / locals...) and the body forms.
Value makeUsubr(Interp &in, std::wstring name, const Value &paramList, const Value &body) {
  if (!paramList.isList()) in.badArgType(L"listp", paramList);
  Usubr *u = new Usubr();
  Value fn(u);
  u->name = std::move(name);
  bool afterSlash = false;
  for (const Value *p = &paramList; p->isCons(); p = &p->as<Cons>()->cdr) {
    Symbol *s = symbolArg(in, p->as<Cons>()->car);
    if (s->name == L"/") {
      afterSlash = true;
      continue;
    }
    (afterSlash ? u->locals : u->params).push_back(s);
  }
  u->names = paramList;
  u->body = body;
  return fn;
}

Value fQuote(Interp &in, const Value &args) {
  int n = count(args);
  if (n < 1) in.tooFewArgs();
  if (n > 1) in.tooManyArgs();
  return car(args);
}

Value fFunction(Interp &in, const Value &args) {
  Value v = fQuote(in, args);
  if (v.isCons() && car(v).same(Value(in.symLambda))) return makeUsubr(in, L"", car(cdr(v)), cdr(cdr(v)));
  return v;
}

Value fLambda(Interp &in, const Value &args) {
  if (!args.isCons()) in.tooFewArgs();
  return makeUsubr(in, L"", car(args), cdr(args));
}

Value fSetq(Interp &in, const Value &args) {
  Value result;
  const Value *p = &args;
  // (setq) with no pairs sets nothing and answers nil.
  while (p->isCons()) {
    Symbol *s = symbolArg(in, p->as<Cons>()->car);
    const Value &rest = p->as<Cons>()->cdr;
    if (!rest.isCons()) in.tooFewArgs();
    result = in.eval(rest.as<Cons>()->car);
    if (s == in.symT) in.error(L"attempt to set a constant: T");
    s->value = result;
    p = &rest.as<Cons>()->cdr;
  }
  return result;
}

Value fDefun(Interp &in, const Value &args) {
  if (count(args) < 2) in.tooFewArgs();
  Symbol *name = symbolArg(in, car(args));
  name->value = makeUsubr(in, name->name, car(cdr(args)), cdr(cdr(args)));
  return Value(name);
}

Value fIf(Interp &in, const Value &args) {
  int n = count(args);
  if (n < 2) in.tooFewArgs();
  if (n > 3) in.tooManyArgs();
  if (!in.eval(car(args)).isNil()) return in.eval(car(cdr(args)));
  return n == 3 ? in.eval(car(cdr(cdr(args)))) : Value();
}

Value fCond(Interp &in, const Value &args) {
  for (const Value *p = &args; p->isCons(); p = &p->as<Cons>()->cdr) {
    const Value &clause = p->as<Cons>()->car;
    if (!clause.isCons()) in.badArgType(L"consp", clause);
    Value test = in.eval(car(clause));
    if (test.isNil()) continue;
    if (!cdr(clause).isCons()) return test;
    return progn(in, cdr(clause));
  }
  return Value();
}

Value fProgn(Interp &in, const Value &args) {
  return progn(in, args);
}

Value fWhile(Interp &in, const Value &args) {
  if (!args.isCons()) in.tooFewArgs();
  Value result;
  const Value &test = car(args);
  // Each turn is a safe point: a loop of atoms alone makes no call that
  // would notice an interrupt.
  while (!in.eval(test).isNil()) {
    in.safePoint();
    result = progn(in, cdr(args));
  }
  return result;
}

Value fRepeat(Interp &in, const Value &args) {
  if (!args.isCons()) in.tooFewArgs();
  Value times = in.eval(car(args));
  int32_t n = intArg(in, times);
  Value result;
  for (int32_t i = 0; i < n; ++i) {
    in.safePoint();
    result = progn(in, cdr(args));
  }
  return result;
}

Value fForeach(Interp &in, const Value &args) {
  if (count(args) < 2) in.tooFewArgs();
  Symbol *var = symbolArg(in, car(args));
  Value list = in.eval(car(cdr(args)));
  if (!list.isList()) in.badArgType(L"listp", list);
  // The loop variable is bound for the loop only.
  in.bindings.push_back({var, var->value});
  size_t mark = in.bindings.size() - 1;
  struct Restore {
    Interp &in;
    size_t mark;
    ~Restore() {
      while (in.bindings.size() > mark) {
        in.bindings.back().sym->value = std::move(in.bindings.back().old);
        in.bindings.pop_back();
      }
    }
  } restore{in, mark};
  Value result;
  for (const Value *p = &list; p->isCons(); p = &p->as<Cons>()->cdr) {
    var->value = p->as<Cons>()->car;
    result = progn(in, cdr(cdr(args)));
  }
  return result;
}

Value fAnd(Interp &in, const Value &args) {
  for (const Value *p = &args; p->isCons(); p = &p->as<Cons>()->cdr)
    if (in.eval(p->as<Cons>()->car).isNil()) return Value();
  return in.makeT();
}

Value fOr(Interp &in, const Value &args) {
  for (const Value *p = &args; p->isCons(); p = &p->as<Cons>()->cdr)
    if (!in.eval(p->as<Cons>()->car).isNil()) return in.makeT();
  return Value();
}

// --- Normal functions ----------------------------------------------------------

Value fEval(Interp &in, const Value *a, int n) {
  needArgs(in, n, 1, 1);
  return in.eval(a[0]);
}

Value fApply(Interp &in, const Value *a, int n) {
  needArgs(in, n, 2, 2);
  listArg(in, a[1]);
  return in.applyList(a[0], a[1]);
}

Value fSet(Interp &in, const Value *a, int n) {
  needArgs(in, n, 2, 2);
  Symbol *s = symbolArg(in, a[0]);
  if (s == in.symT) in.error(L"attempt to set a constant: T");
  s->value = a[1];
  return a[1];
}

Value fCatchAllApply(Interp &in, const Value *a, int n) {
  needArgs(in, n, 2, 2);
  listArg(in, a[1]);
  ++in.catchDepth;
  try {
    Value result = in.applyList(a[0], a[1]);
    --in.catchDepth;
    return result;
  } catch (LispError &e) {
    --in.catchDepth;
    return Value(new CatchError(std::move(e.message)));
  } catch (...) {
    --in.catchDepth;
    throw;
  }
}

Value fCatchAllErrorP(Interp &in, const Value *a, int n) {
  needArgs(in, n, 1, 1);
  return in.boolean(a[0].type() == Type::CatchError);
}

Value fCatchAllErrorMessage(Interp &in, const Value *a, int n) {
  needArgs(in, n, 1, 1);
  if (a[0].type() != Type::CatchError) in.badArgType(L"vl-catch-all-apply-error-p", a[0]);
  return makeString(a[0].as<CatchError>()->message);
}

Value fExit(Interp &in, const Value *, int n) {
  needArgs(in, n, 0, 0);
  in.error(L"quit / exit abort");
}

Value fNoop(Interp &, const Value *, int) {
  return Value();
}

}  // namespace

void installCore(Interp &in) {
  in.defineSpecial(L"QUOTE", fQuote);
  in.defineSpecial(L"FUNCTION", fFunction);
  in.defineSpecial(L"LAMBDA", fLambda);
  in.defineSpecial(L"SETQ", fSetq);
  in.defineSpecial(L"DEFUN", fDefun);
  in.defineSpecial(L"IF", fIf);
  in.defineSpecial(L"COND", fCond);
  in.defineSpecial(L"PROGN", fProgn);
  in.defineSpecial(L"WHILE", fWhile);
  in.defineSpecial(L"REPEAT", fRepeat);
  in.defineSpecial(L"FOREACH", fForeach);
  in.defineSpecial(L"AND", fAnd);
  in.defineSpecial(L"OR", fOr);
  in.defineSubr(L"EVAL", fEval);
  in.defineSubr(L"APPLY", fApply);
  in.defineSubr(L"SET", fSet);
  in.defineSubr(L"VL-CATCH-ALL-APPLY", fCatchAllApply);
  in.defineSubr(L"VL-CATCH-ALL-ERROR-P", fCatchAllErrorP);
  in.defineSubr(L"VL-CATCH-ALL-ERROR-MESSAGE", fCatchAllErrorMessage);
  in.defineSubr(L"EXIT", fExit);
  in.defineSubr(L"QUIT", fExit);
  // Loading the automation extensions is a no-op here; scripts call it freely.
  in.defineSubr(L"VL-LOAD-COM", fNoop);
}

}  // namespace vantry::lisp
