// The evaluator: symbols, function calls, dynamic binding and the one place
// where LISP errors are raised.
#include <pthread.h>

#include <csignal>
#include <cwctype>
#include <fstream>
#include <new>
#include <sstream>

#include "common/sanitizer.h"
#include "lisp/lisp.h"

namespace vantry::lisp {
namespace {

// The lowest address this thread's stack may grow to before a runaway
// recursion must stop, leaving room for the error path itself.
uintptr_t stackFloor() {
  thread_local uintptr_t floor = [] {
    pthread_attr_t attr;
    void *base = nullptr;
    size_t size = 0;
    if (pthread_getattr_np(pthread_self(), &attr) == 0) {
      pthread_attr_getstack(&attr, &base, &size);
      pthread_attr_destroy(&attr);
    }
    if (!base) return uintptr_t(0);
    size_t reserve = size / 4 < (1u << 20) ? size / 4 : (1u << 20);
#if VANTRY_ASAN
    // AddressSanitizer unpoisons the whole stack below a throw and fails its
    // own checks when that stack is hundreds of megabytes deep: a sanitized
    // build recurses in the top 32 MB only.
    if (size > (size_t(40) << 20)) reserve = size - (size_t(32) << 20);
#endif
    return reinterpret_cast<uintptr_t>(base) + reserve;
  }();
  return floor;
}

// Restores the dynamic bindings made since it was built, on every exit.
struct BindingScope {
  Interp &in;
  size_t mark;
  explicit BindingScope(Interp &i) : in(i), mark(i.bindings.size()) {}
  ~BindingScope() {
    while (in.bindings.size() > mark) {
      Interp::Binding &b = in.bindings.back();
      b.sym->value = std::move(b.old);
      in.bindings.pop_back();
    }
  }
};

constexpr const wchar_t *kStackLimit = L"internal stack limit reached (simulated)";
constexpr const wchar_t *kOutOfMemory = L"insufficient memory";

bool stackNearlyFull() {
  char probe;
  return reinterpret_cast<uintptr_t>(&probe) < stackFloor();
}

// A user function's call: counted against the interpreter's depth limit.
// (The stack itself was checked by the safe point of the call or apply that
// led here.)
struct DepthScope {
  Interp &in;
  explicit DepthScope(Interp &i) : in(i) {
    if (++in.depth > in.maxDepth) {
      --in.depth;
      in.error(kStackLimit);
    }
  }
  ~DepthScope() { --in.depth; }
};

// Arguments of one call, on the C++ stack when there are few.
class ArgBuffer {
 public:
  explicit ArgBuffer(int n) : n_(n) {
    if (n > kInline) heap_.resize(n);
  }
  Value *data() { return n_ > kInline ? heap_.data() : inline_; }
  int size() const { return n_; }

 private:
  static constexpr int kInline = 8;
  int n_;
  Value inline_[kInline];
  std::vector<Value> heap_;
};

}  // namespace

Interp::Interp() {
  symT = intern(L"T");
  symT->value = Value(symT);
  symQuote = intern(L"QUOTE");
  symLambda = intern(L"LAMBDA");
  symFunction = intern(L"FUNCTION");
  symError = intern(L"*ERROR*");
}

Interp::~Interp() {
  // Values may refer to symbols and symbols to values; drop the values first.
  for (auto &entry : symbols_) entry.second.as<Symbol>()->value = Value();
  symbols_.clear();
}

Symbol *Interp::intern(std::wstring_view name) {
  std::wstring key = upcase(name);
  auto it = symbols_.find(key);
  if (it != symbols_.end()) return it->second.as<Symbol>();
  Symbol *s = new Symbol(key);
  symbols_.emplace(std::move(key), Value(s));
  return s;
}

void Interp::defineSubr(std::wstring_view name, SubrFn fn) {
  Symbol *s = intern(name);
  s->value = Value(new Subr(s->name, fn));
}

void Interp::defineSpecial(std::wstring_view name, SpecialFn fn) {
  Symbol *s = intern(name);
  s->value = Value(new Subr(s->name, fn));
}

void Interp::forEachSymbol(const std::function<void(Symbol *)> &visit) const {
  for (const auto &entry : symbols_) visit(entry.second.as<Symbol>());
}

Value Interp::symbolValue(std::wstring_view name) {
  return intern(name)->value;
}
void Interp::setSymbolValue(std::wstring_view name, Value v) {
  intern(name)->value = std::move(v);
}

// --- Errors -------------------------------------------------------------------

void Interp::error(std::wstring message) {
  if (catchDepth == 0 && !inErrorHandler) {
    Value handler = symError->value;
    if (handler.type() == Type::Usubr || handler.type() == Type::Subr || handler.type() == Type::Exrxsubr) {
      inErrorHandler = true;
      try {
        Value arg = makeString(message);
        apply(handler, &arg, 1);
      } catch (const LispError &inner) {
        reportError(L"An error has occurred inside the *error* function" + inner.message);
      } catch (const ErrorHandled &) {
      } catch (const Stopped &) {
        inErrorHandler = false;
        throw;
      }
      inErrorHandler = false;
      throw ErrorHandled{std::move(message)};
    }
  }
  throw LispError{std::move(message)};
}

// The host writes a colon after some predicates and not after others:
// "numberp: nil" and "fixnump: 1.5", but "stringp nil" and "consp 3".
void Interp::badArgType(std::wstring_view predicate, const Value &v) {
  bool colon = predicate == L"numberp" || predicate == L"fixnump" || predicate == L"2D/3D point";
  error(L"bad argument type: " + std::wstring(predicate) + (colon ? L": " : L" ") + toString(v, true));
}
void Interp::tooFewArgs() {
  error(L"too few arguments");
}
void Interp::tooManyArgs() {
  error(L"too many arguments");
}

void Interp::reportError(const std::wstring &message) {
  if (output) output(L"; error: " + message + L"\n");
}

// --- Evaluation -------------------------------------------------------------------

Value Interp::eval(const Value &form) {
  switch (form.type()) {
    case Type::Sym:
      return form.as<Symbol>()->value;
    case Type::List:
      return evalCall(form);
    default:
      return form;
  }
}

namespace {

// A list (LAMBDA (params) body...) called as a function; also the list form
// that defun-q gives a function, ((params) body...), passed here as its cdr's
// owner: lambdaFromList(in, cons(LAMBDA, defunQList)).
Value lambdaFromList(Interp &in, const Value &list) {
  Usubr *u = new Usubr();
  Value fn(u);
  Value params = car(cdr(list));
  bool afterSlash = false;
  for (const Value *p = &params; p->isCons(); p = &p->as<Cons>()->cdr) {
    const Value &s = p->as<Cons>()->car;
    if (s.type() != Type::Sym) in.badArgType(L"symbolp", s);
    if (s.as<Symbol>()->name == L"/") {
      afterSlash = true;
      continue;
    }
    (afterSlash ? u->locals : u->params).push_back(s.as<Symbol>());
  }
  u->names = params;
  u->body = cdr(cdr(list));
  return fn;
}

// The function a symbol names, following symbols whose value is another
// symbol's name: a parameter that holds 'car, passed on as (function f),
// still calls CAR. A chain that goes round is cut off as a bad function.
Value resolveFunctionSymbol(Interp &in, Value fn) {
  for (int hops = 0; fn.type() == Type::Sym; ++hops) {
    Value v = fn.as<Symbol>()->value;
    if (v.isNil()) in.error(L"no function definition: " + fn.as<Symbol>()->name);
    if (hops > 64 || v.same(fn)) in.error(L"bad function: " + in.toString(fn, true));
    fn = std::move(v);
  }
  return fn;
}

}  // namespace

namespace safe {
constinit __attribute__((tls_model("initial-exec"))) thread_local uintptr_t stackLimit = UINTPTR_MAX;
volatile std::sig_atomic_t interrupt = 0;
}  // namespace safe

// safe::interrupt: 0 nothing, 1 a cancel waiting for the next safe point,
// 2 a stop, which is never consumed.
void requestInterrupt() {
  if (safe::interrupt != 2) safe::interrupt = 1;
}

bool takeInterrupt() {
  if (!safe::interrupt) return false;
  if (safe::interrupt == 1) safe::interrupt = 0;
  return true;
}

void requestStop() {
  safe::interrupt = 2;
}

void clearInterrupts() {
  safe::interrupt = 0;
}

// The first safe point of a thread learns its stack's floor here (the limit
// starts above any address, so the fast test sends it here).
void Interp::safePointSlow() {
  safe::stackLimit = stackFloor();
  if (stackNearlyFull()) error(kStackLimit);
  if (safe::interrupt == 2) throw Stopped{};
  if (takeInterrupt()) {
    if (output) output(L"*Cancel*\n");
    error(L"Function cancelled");
  }
}

// Every call checks the thread's stack, not only user functions': built-ins
// recurse too ((eval f) with f '(eval f), forms nested a million deep). Memory
// running out inside a call is a LISP error like any other, which *error*
// and vl-catch-all-apply see; the session goes on.
Value Interp::evalCall(const Value &form) {
  safePoint();
  try {
    return evalCallBody(form);
  } catch (const std::bad_alloc &) {
    error(kOutOfMemory);
  }
}

Value Interp::evalCallBody(const Value &form) {
  const Value &head = form.as<Cons>()->car;
  Value fn = head.type() == Type::Sym ? head.as<Symbol>()->value : eval(head);
  const Value &argForms = form.as<Cons>()->cdr;

  if (fn.type() == Type::Subr && fn.as<Subr>()->special) return fn.as<Subr>()->special(*this, argForms);
  if (fn.type() == Type::List && car(fn).same(Value(symLambda))) fn = lambdaFromList(*this, fn);

  Type t = fn.type();
  if (t != Type::Subr && t != Type::Usubr && t != Type::Exrxsubr) {
    if (head.type() == Type::Sym && fn.isNil()) error(L"no function definition: " + head.as<Symbol>()->name);
    if (fn.type() == Type::List && car(fn).isList()) fn = lambdaFromList(*this, cons(Value(symLambda), fn));
    if (fn.type() == Type::Sym) {
      // A variable holding a function's name calls that function: (setq f '1+) (f 1).
      fn = resolveFunctionSymbol(*this, fn);
      if (fn.type() == Type::Subr && fn.as<Subr>()->special) return fn.as<Subr>()->special(*this, argForms);
      if (fn.type() == Type::List && car(fn).same(Value(symLambda))) fn = lambdaFromList(*this, fn);
      if (fn.type() == Type::List && car(fn).isList()) fn = lambdaFromList(*this, cons(Value(symLambda), fn));
    }
    t = fn.type();
  }
  if (t != Type::Subr && t != Type::Usubr && t != Type::Exrxsubr) {
    error(L"bad function: " + toString(fn, true));
  }

  int n = 0;
  for (const Value *p = &argForms; p->isCons(); p = &p->as<Cons>()->cdr) ++n;
  ArgBuffer args(n);
  Value *a = args.data();
  int i = 0;
  for (const Value *p = &argForms; p->isCons(); p = &p->as<Cons>()->cdr) a[i++] = eval(p->as<Cons>()->car);

  if (t == Type::Subr) return fn.as<Subr>()->fn(*this, a, n);
  if (t == Type::Usubr) return callUsubr(fn.as<Usubr>(), a, n);
  if (!callExternal) error(L"no function definition: " + fn.as<Exrxsubr>()->name);
  return callExternal(*this, *fn.as<Exrxsubr>(), a, n);
}

// A traced function's call: its entry with the arguments, then its result.
// Recursive calls come back through callUsubr and show too.
Value Interp::callTraced(Usubr *f, const Value *args, int nargs) {
  Value keep(f);
  std::wstring call = L"(" + f->name;
  for (int i = 0; i < nargs; ++i) call += L" " + toString(args[i], true);
  if (output) output(L"Entering " + call + L")\n");
  Value result = callUsubrPlain(f, args, nargs);
  if (output) output(L"Result: " + toString(result, true) + L"\n");
  return result;
}

Value Interp::callUsubr(Usubr *f, const Value *args, int nargs) {
  if (!traced.empty() && !f->name.empty() && traced.count(f->name)) [[unlikely]]
    return callTraced(f, args, nargs);
  return callUsubrPlain(f, args, nargs);
}

Value Interp::callUsubrPlain(Usubr *f, const Value *args, int nargs) {
  int np = int(f->params.size());
  if (nargs < np) tooFewArgs();
  if (nargs > np) tooManyArgs();
  DepthScope depthGuard(*this);
  Value keep(f);  // a body may redefine the function while it runs
  BindingScope scope(*this);
  for (int i = 0; i < np; ++i) {
    Symbol *s = f->params[i];
    bindings.push_back({s, std::move(s->value)});
    s->value = args[i];
  }
  for (Symbol *s : f->locals) {
    bindings.push_back({s, std::move(s->value)});
    s->value = Value();
  }
  Value result;
  for (const Value *p = &f->body; p->isCons(); p = &p->as<Cons>()->cdr) result = eval(p->as<Cons>()->car);
  return result;
}

Value Interp::apply(const Value &fn, const Value *args, int nargs) {
  safePoint();
  try {
    return applyBody(fn, args, nargs);
  } catch (const std::bad_alloc &) {
    error(kOutOfMemory);
  }
}

Value Interp::applyBody(const Value &fnIn, const Value *args, int nargs) {
  Value fn = fnIn;
  if (fn.type() == Type::Sym) fn = resolveFunctionSymbol(*this, fn);
  if (fn.type() == Type::List && car(fn).same(Value(symLambda))) fn = lambdaFromList(*this, fn);
  if (fn.type() == Type::List && car(fn).isList()) fn = lambdaFromList(*this, cons(Value(symLambda), fn));
  switch (fn.type()) {
    case Type::Subr: {
      Subr *s = fn.as<Subr>();
      if (s->fn) return s->fn(*this, args, nargs);
      // A special form applied to values: hand it the values quoted.
      ListBuilder forms;
      for (int i = 0; i < nargs; ++i) forms.add(cons(Value(symQuote), cons(args[i], Value())));
      return s->special(*this, forms.take());
    }
    case Type::Usubr:
      return callUsubr(fn.as<Usubr>(), args, nargs);
    case Type::Exrxsubr:
      if (!callExternal) error(L"no function definition: " + fn.as<Exrxsubr>()->name);
      return callExternal(*this, *fn.as<Exrxsubr>(), args, nargs);
    default:
      error(L"bad function: " + toString(fn, true));
  }
}

Value Interp::applyList(const Value &fn, const Value &argList) {
  std::vector<Value> args = listToVector(argList);
  return apply(fn, args.data(), int(args.size()));
}

// --- Top level ------------------------------------------------------------------

Value Interp::evalText(std::wstring_view text, const SourcePos &where) {
  try {
    return evalForms(text, where);
  } catch (LispError &e) {
    reportError(e.message);
    throw ErrorHandled{std::move(e.message)};
  }
}

Value Interp::loadFile(const std::wstring &path) {
  std::ifstream f(nativePath(path), std::ios::binary);
  if (!f) error(L"LOAD failed: " + toString(makeString(path), true));
  std::ostringstream buf;
  buf << f.rdbuf();
  return evalForms(fromUtf8(buf.str()), SourcePos{path, 1});
}

// --- Argument helpers for built-ins ---------------------------------------------------

void needArgs(Interp &in, int nargs, int min, int max) {
  if (nargs < min) in.tooFewArgs();
  if (max >= 0 && nargs > max) in.tooManyArgs();
}

double numArg(Interp &in, const Value &v) {
  if (v.type() == Type::Int) return v.asInt();
  if (v.type() == Type::Real) return v.asReal();
  in.badArgType(L"numberp", v);
}

int32_t intArg(Interp &in, const Value &v) {
  if (v.type() != Type::Int) in.badArgType(L"fixnump", v);
  return v.asInt();
}

const std::wstring &strArg(Interp &in, const Value &v) {
  if (v.type() != Type::Str) in.badArgType(L"stringp", v);
  return str(v);
}

Value listArg(Interp &in, const Value &v) {
  if (!v.isList()) in.badArgType(L"listp", v);
  return v;
}

void installAll(Interp &in) {
  installCore(in);
  installLists(in);
  installMath(in);
  installStrings(in);
  installFiles(in);
  installSessionLisp(in);
}

}  // namespace vantry::lisp
