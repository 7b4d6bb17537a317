// The vlax- functions over objects and the vla- functions: one
// vla-get-NAME / vla-put-NAME per property name and one vla-NAME per method
// name of the object model's tables, each calling the member of that name
// on the object it is given. A name the object does not have fails as the
// host's automation fails ("unknown name").
#include <algorithm>

#include "activex/internal.h"
#include "db/lisp_data.h"

namespace vantry::host::activex {
namespace {

using lisp::Type;

// The member names of the tables, each once (the first spelling), in
// table order: the vla- functions are made from this list.
const std::vector<std::wstring> &memberNames() {
  static const std::vector<std::wstring> names = [] {
    std::vector<std::wstring> out;
    auto add = [&](const wchar_t *name) {
      for (const std::wstring &n : out)
        if (upperKey(n) == upperKey(name)) return;
      out.push_back(name);
    };
    for (const auto *list : {&containerProperties(), &entityProperties()})
      for (const Property &p : *list) add(p.name);
    for (const auto *list : {&containerMethods(), &entityMethods()})
      for (const Method &m : *list) add(m.name);
    return out;
  }();
  return names;
}
constexpr size_t kMaxMembers = 160;

// A member name given to vlax-get-property and its kin: a symbol or a string.
std::wstring nameArg(Interp &in, const Value &v) {
  if (v.type() == Type::Sym) return v.as<lisp::Symbol>()->name;
  if (v.type() == Type::Str) return lisp::str(v);
  in.badArgType(L"symbolp", v);
}

Value getProperty(Interp &in, const Value &obj, std::wstring_view name) {
  Target t = resolve(in, obj);
  const Property *p = findProperty(t, name);
  if (!p) unknownName(in, name);
  return p->get(in, t);
}

void putProperty(Interp &in, const Value &obj, std::wstring_view name, const Value &v) {
  Target t = resolve(in, obj);
  const Property *p = findProperty(t, name);
  if (!p) unknownName(in, name);
  if (!p->put) serverError(in, L"Member not found");
  p->put(in, t, v);
}

Value invoke(Interp &in, const Value &obj, std::wstring_view name, const Value *args, int nargs) {
  Target t = resolve(in, obj);
  const Method *m = findMethod(t, name);
  if (!m) unknownName(in, name);
  return m->call(in, t, args, nargs);
}

template <size_t I>
Value vlaGet(Interp &in, const Value *a, int n) {
  lisp::needArgs(in, n, 1, 1);
  return getProperty(in, a[0], memberNames()[I]);
}
template <size_t I>
Value vlaPut(Interp &in, const Value *a, int n) {
  lisp::needArgs(in, n, 2, 2);
  putProperty(in, a[0], memberNames()[I], a[1]);
  return Value();
}
template <size_t I>
Value vlaCall(Interp &in, const Value *a, int n) {
  if (n < 1) in.tooFewArgs();
  return invoke(in, a[0], memberNames()[I], a + 1, n - 1);
}

template <size_t... I>
void defineMembers(Interp &in, std::index_sequence<I...>) {
  const lisp::SubrFn gets[] = {vlaGet<I>...};
  const lisp::SubrFn puts[] = {vlaPut<I>...};
  const lisp::SubrFn calls[] = {vlaCall<I>...};
  const std::vector<std::wstring> &names = memberNames();
  if (names.size() > sizeof...(I)) in.error(L"internal error: the object model has more member names than vla- functions");
  for (size_t i = 0; i < names.size(); ++i) {
    if (anyProperty(names[i], false)) in.defineSubr(L"VLA-GET-" + names[i], gets[i]);
    if (anyProperty(names[i], true)) in.defineSubr(L"VLA-PUT-" + names[i], puts[i]);
    if (anyMethod(names[i])) in.defineSubr(L"VLA-" + names[i], calls[i]);
  }
}

Value getPropertyFn(Interp &in, const Value *a, int n) {
  lisp::needArgs(in, n, 2, 2);
  return getProperty(in, a[0], nameArg(in, a[1]));
}
Value putPropertyFn(Interp &in, const Value *a, int n) {
  lisp::needArgs(in, n, 3, 3);
  putProperty(in, a[0], nameArg(in, a[1]), a[2]);
  return Value();
}
Value invokeMethodFn(Interp &in, const Value *a, int n) {
  if (n < 2) in.tooFewArgs();
  return invoke(in, a[0], nameArg(in, a[1]), a + 2, n - 2);
}

// The compatible forms: lists in, lists out.
Value getFn(Interp &in, const Value *a, int n) {
  return toLisp(getPropertyFn(in, a, n));
}
Value putFn(Interp &in, const Value *a, int n) {
  lisp::needArgs(in, n, 3, 3);
  putProperty(in, a[0], nameArg(in, a[1]), fromLisp(a[2]));
  return Value();
}
Value invokeFn(Interp &in, const Value *a, int n) {
  if (n < 2) in.tooFewArgs();
  std::vector<Value> args;
  for (int i = 2; i < n; ++i) args.push_back(fromLisp(a[i]));
  return toLisp(invoke(in, a[0], nameArg(in, a[1]), args.data(), int(args.size())));
}

// (vlax-property-available-p obj prop [check-modify])
Value propertyAvailableFn(Interp &in, const Value *a, int n) {
  lisp::needArgs(in, n, 2, 3);
  Target t = resolve(in, a[0], true);
  const Property *p = findProperty(t, nameArg(in, a[1]));
  bool writable = n == 3 && !a[2].isNil();
  return in.boolean(p && (!writable || p->put));
}
Value methodApplicableFn(Interp &in, const Value *a, int n) {
  lisp::needArgs(in, n, 2, 2);
  Target t = resolve(in, a[0], true);
  return in.boolean(findMethod(t, nameArg(in, a[1])) != nullptr);
}

Value acadObjectFn(Interp &in, const Value *, int n) {
  lisp::needArgs(in, n, 0, 0);
  return applicationValue();
}

Value enameToObjectFn(Interp &in, const Value *a, int n) {
  lisp::needArgs(in, n, 1, 1);
  AcDbObjectId id = entityArg(in, a[0]);
  return objectValue(id);
}

Value objectToEnameFn(Interp &in, const Value *a, int n) {
  lisp::needArgs(in, n, 1, 1);
  Target t = resolve(in, a[0], true);
  return enameValue(t.id);
}

Value releaseFn(Interp &in, const Value *a, int n) {
  lisp::needArgs(in, n, 1, 1);
  vlaArg(in, a[0])->release();
  return Value();
}

Value releasedPFn(Interp &in, const Value *a, int n) {
  lisp::needArgs(in, n, 1, 1);
  return in.boolean(vlaArg(in, a[0])->released);
}

// T for an object of a drawing that is erased (or whose drawing is gone).
Value erasedPFn(Interp &in, const Value *a, int n) {
  lisp::needArgs(in, n, 1, 1);
  VlaObject *o = vlaArg(in, a[0]);
  if (o->kind != VlaObject::Kind::Object) return Value();
  AcDbObjectId id = objectIdOf(*o);
  return in.boolean(id.isNull() || id.isErased());
}

// (vlax-for symbol collection body...): the body for each member in turn,
// the symbol bound to it for the loop only; the last value of the body.
Value vlaxForFn(Interp &in, const Value &args) {
  if (!args.isCons() || !lisp::cdr(args).isCons()) in.tooFewArgs();
  const Value &var = lisp::car(args);
  if (var.type() != Type::Sym) in.badArgType(L"symbolp", var);
  auto *sym = var.as<lisp::Symbol>();
  Value collection = in.eval(lisp::car(lisp::cdr(args)));
  Target t = resolve(in, collection);
  if (!isCollectionTarget(t)) unknownName(in, L"_NewEnum");
  std::vector<AcDbObjectId> items = members(t);
  in.bindings.push_back({sym, sym->value});
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
  for (AcDbObjectId id : items) {
    in.safePoint();
    if (id.isErased()) continue;  // erased by an earlier turn
    sym->value = objectValue(id);
    for (const Value *p = &lisp::cdr(lisp::cdr(args)); p->isCons(); p = &p->as<lisp::Cons>()->cdr)
      result = in.eval(p->as<lisp::Cons>()->car);
  }
  return result;
}

}  // namespace

}  // namespace vantry::host::activex

namespace vantry::host {

void installActiveXLisp(lisp::Interp &in) {
  using namespace activex;
  static const struct {
    const wchar_t *name;
    lisp::SubrFn fn;
  } table[] = {
      {L"VLAX-GET-ACAD-OBJECT", acadObjectFn},
      {L"VLAX-ENAME->VLA-OBJECT", enameToObjectFn},
      {L"VLAX-VLA-OBJECT->ENAME", objectToEnameFn},
      {L"VLAX-GET-PROPERTY", getPropertyFn},
      {L"VLAX-PUT-PROPERTY", putPropertyFn},
      {L"VLAX-INVOKE-METHOD", invokeMethodFn},
      {L"VLAX-GET", getFn},
      {L"VLAX-PUT", putFn},
      {L"VLAX-INVOKE", invokeFn},
      {L"VLAX-PROPERTY-AVAILABLE-P", propertyAvailableFn},
      {L"VLAX-METHOD-APPLICABLE-P", methodApplicableFn},
      {L"VLAX-RELEASE-OBJECT", releaseFn},
      {L"VLAX-OBJECT-RELEASED-P", releasedPFn},
      {L"VLAX-ERASED-P", erasedPFn},
  };
  for (const auto &e : table) in.defineSubr(e.name, e.fn);
  in.defineSpecial(L"VLAX-FOR", vlaxForFn);
  defineMembers(in, std::make_index_sequence<kMaxMembers>());
  installValueLisp(in);
  installLdataLisp(in);
}

}  // namespace vantry::host
