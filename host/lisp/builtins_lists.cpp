// AutoLISP's list functions and type predicates.
//
// Lists are immutable, so a function that returns part of its argument (cdr,
// member, the last list of append) shares those cells rather than copying
// them. Functions that take a function argument call it through Interp::apply
// and let its errors unwind untouched.
//
// Equality: `equal` and everything that searches with it (member, assoc,
// subst, vl-remove, vl-position) compare numbers by value (1 equals 1.0),
// strings by their characters, lists element by element and other objects by
// identity; entity names and selection sets by the names they carry.
//
// Sorting: vl-sort and vl-sort-i use one merge sort that calls the predicate
// only as "does a come before b", so a predicate that is not a strict order
// (<=, or one with side effects) never upsets it. Elements the predicate
// cannot tell apart come out with the later one first, which is the order
// vl-sort-i is documented to give for (3 2 1 3) with < : (2 1 3 0). vl-sort
// then drops an element that is eq to the one kept just before it (the same
// number or symbol twice), so (vl-sort '(3 2 1 3) '<) is (1 2 3) while
// strings and lists, never eq to one another, are all kept.
#include <algorithm>
#include <iterator>

#include "lisp/lisp.h"

namespace vantry::lisp {
namespace {

// --- car, cdr and the c[ad]{2,4}r family -------------------------------------

const Value &carOf(Interp &in, const Value &v) {
  if (v.isCons()) return v.as<Cons>()->car;
  if (!v.isNil()) in.badArgType(L"consp", v);
  return v;
}

const Value &cdrOf(Interp &in, const Value &v) {
  if (v.isCons()) return v.as<Cons>()->cdr;
  if (!v.isNil()) in.badArgType(L"consp", v);
  return v;
}

// The a/d letters of a c...r name, encoded two bits each from the rightmost
// letter (applied first): 1 is car, 2 is cdr, 0 ends the path.
constexpr unsigned cxrPath(const char *letters) {
  unsigned n = 0;
  while (letters[n]) ++n;
  unsigned code = 0;
  for (unsigned i = 0; i < n; ++i) code |= (letters[n - 1 - i] == 'a' ? 1u : 2u) << (2 * i);
  return code;
}

template <unsigned Path>
Value fCxr(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  const Value *v = &args[0];
  for (unsigned p = Path; p; p >>= 2) v = (p & 3) == 1 ? &carOf(in, *v) : &cdrOf(in, *v);
  return *v;
}

// --- Equality -------------------------------------------------------------------

bool atomsEqual(const Value &a, const Value &b, double fuzz) {
  if (a.isNumber() && b.isNumber()) {
    if (a.type() == Type::Int && b.type() == Type::Int && fuzz == 0) return a.asInt() == b.asInt();
    double d = a.number() - b.number();
    return (d < 0 ? -d : d) <= fuzz;
  }
  if (a.type() != b.type()) return false;
  switch (a.type()) {
    case Type::Str:
      return str(a) == str(b);
    case Type::Ename:
    case Type::Pickset:
      return a.as<Handle2>()->w0 == b.as<Handle2>()->w0 && a.as<Handle2>()->w1 == b.as<Handle2>()->w1;
    default:
      return a.same(b);
  }
}

// Recursive over cars, iterative along cdrs, so long lists cost no stack.
bool lispEqual(Interp &in, const Value &a, const Value &b, double fuzz) {
  const Value *x = &a, *y = &b;
  while (x->isCons() && y->isCons()) {
    if (x->obj() == y->obj()) return true;
    const Value &xcar = x->as<Cons>()->car;
    if (xcar.isCons()) in.safePoint();  // lists nested deep through their cars
    if (!lispEqual(in, xcar, y->as<Cons>()->car, fuzz)) return false;
    x = &x->as<Cons>()->cdr;
    y = &y->as<Cons>()->cdr;
  }
  if (x->isCons() || y->isCons()) return false;
  return atomsEqual(*x, *y, fuzz);
}

// A proper list argument; a dotted list is refused as listp refuses it.
const Value &properList(Interp &in, const Value &v) {
  if (!v.isList() || listLength(v) < 0) in.badArgType(L"listp", v);
  return v;
}

// A list argument, by reference so the cells can be walked in place.
const Value &anyList(Interp &in, const Value &v) {
  if (!v.isList()) in.badArgType(L"listp", v);
  return v;
}

// `for (const Value *c : cells(list))` visits each cons cell of a list; a
// dotted tail ends the walk.
struct Cells {
  struct It {
    const Value *p;
    const Value *operator*() const { return p; }
    It &operator++() {
      p = &p->as<Cons>()->cdr;
      return *this;
    }
    bool operator!=(std::default_sentinel_t) const { return p->isCons(); }
  };
  const Value *head;
  It begin() const { return {head}; }
  std::default_sentinel_t end() const { return {}; }
};
Cells cells(const Value &list) {
  return {&list};
}
const Value &item(const Value *cell) {
  return cell->as<Cons>()->car;
}

// --- Building and taking apart ---------------------------------------------------

Value fCons(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, 2);
  return cons(args[0], args[1]);
}

Value fList(Interp &, const Value *args, int nargs) {
  ListBuilder b;
  for (int i = 0; i < nargs; ++i) b.add(args[i]);
  return b.take();
}

// (vl-list* a b ... tail): the last argument becomes the tail.
Value fListStar(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, -1);
  ListBuilder b;
  for (int i = 0; i + 1 < nargs; ++i) b.add(args[i]);
  b.dot(args[nargs - 1]);
  return b.take();
}

// Copies every list but the last, which becomes the shared tail (and so may
// be a dotted list).
Value fAppend(Interp &in, const Value *args, int nargs) {
  for (int i = 0; i + 1 < nargs; ++i) properList(in, args[i]);
  if (nargs > 0) anyList(in, args[nargs - 1]);
  ListBuilder b;
  for (int i = 0; i + 1 < nargs; ++i)
    for (const Value *c : cells(args[i])) b.add(item(c));
  if (nargs > 0) b.dot(args[nargs - 1]);
  return b.take();
}

Value fReverse(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  Value out;
  for (const Value *c : cells(properList(in, args[0]))) out = cons(item(c), std::move(out));
  return out;
}

Value fLength(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  return Value::integer(listLength(properList(in, args[0])));
}

Value fVlListLength(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  int n = listLength(anyList(in, args[0]));
  return n < 0 ? Value() : Value::integer(n);
}

Value fNth(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, 2);
  int32_t n = intArg(in, args[0]);
  anyList(in, args[1]);
  if (n < 0) return Value();
  for (const Value *c : cells(args[1])) {
    if (n-- == 0) return item(c);
  }
  return Value();
}

Value fLast(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  const Value *last = nullptr;
  for (const Value *c : cells(anyList(in, args[0]))) last = c;
  if (!last) return Value();
  // A dotted list ends in its tail atom: (last '(1 2 . 3)) is 3.
  const Value &tail = last->as<Cons>()->cdr;
  return tail.isNil() ? item(last) : tail;
}

// --- Searching -----------------------------------------------------------------

Value fMember(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, 2);
  for (const Value *c : cells(anyList(in, args[1]))) {
    if (lispEqual(in, args[0], item(c), 0)) return *c;
  }
  return Value();
}

// Elements that are not lists are passed over, as the host does.
Value fAssoc(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, 2);
  for (const Value *c : cells(anyList(in, args[1]))) {
    const Value &entry = item(c);
    if (entry.isCons() && lispEqual(in, args[0], entry.as<Cons>()->car, 0)) return entry;
  }
  return Value();
}

Value fVlPosition(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, 2);
  int i = 0;
  for (const Value *c : cells(anyList(in, args[1]))) {
    if (lispEqual(in, args[0], item(c), 0)) return Value::integer(i);
    ++i;
  }
  return Value();
}

// Replaces top-level elements only; the cells after the last replacement are
// shared with the argument, and a list without the old item comes back as is.
Value fSubst(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 3, 3);
  const Value &list = anyList(in, args[2]);
  const Value *lastHit = nullptr, *lastCell = nullptr;
  for (const Value *c : cells(list)) {
    if (lispEqual(in, args[1], item(c), 0)) lastHit = c;
    lastCell = c;
  }
  // The tail atom of a dotted list is an item too: (subst 2 1 '(0 . 1)) is (0 . 2).
  const Value *tail = lastCell ? &lastCell->as<Cons>()->cdr : nullptr;
  if (tail && !tail->isNil() && lispEqual(in, args[1], *tail, 0)) {
    ListBuilder b;
    for (const Value *c : cells(list)) b.add(lispEqual(in, args[1], item(c), 0) ? args[0] : item(c));
    b.dot(args[0]);
    return b.take();
  }
  if (!lastHit) return list;
  ListBuilder b;
  const Value *c = &list;
  for (;; c = &c->as<Cons>()->cdr) {
    b.add(lispEqual(in, args[1], item(c), 0) ? args[0] : item(c));
    if (c == lastHit) break;
  }
  b.dot(c->as<Cons>()->cdr);
  return b.take();
}

Value fVlRemove(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, 2);
  ListBuilder b;
  for (const Value *c : cells(properList(in, args[1]))) {
    if (!lispEqual(in, args[0], item(c), 0)) b.add(item(c));
  }
  return b.take();
}

// --- Functions applied over lists ----------------------------------------------------

bool test(Interp &in, const Value &fn, const Value &item) {
  return !in.apply(fn, &item, 1).isNil();
}

template <bool Keep>
Value fRemoveIf(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, 2);
  ListBuilder b;
  for (const Value *c : cells(properList(in, args[1]))) {
    if (test(in, args[0], item(c)) == Keep) b.add(item(c));
  }
  return b.take();
}

template <bool Want>
Value fMemberIf(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, 2);
  for (const Value *c : cells(anyList(in, args[1]))) {
    if (test(in, args[0], item(c)) == Want) return *c;
  }
  return Value();
}

// Walks several lists in step, calling `visit` with one element of each until
// the shortest ends; `visit` returns false to stop early.
template <class Visit>
void inStep(Interp &in, const Value *lists, int count, Visit visit) {
  std::vector<const Value *> cursor(count);
  std::vector<Value> items(count);
  for (int i = 0; i < count; ++i) cursor[i] = &anyList(in, lists[i]);
  for (;;) {
    for (int i = 0; i < count; ++i) {
      if (!cursor[i]->isCons()) return;
      items[i] = cursor[i]->as<Cons>()->car;
      cursor[i] = &cursor[i]->as<Cons>()->cdr;
    }
    if (!visit(items.data())) return;
  }
}

Value fMapcar(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, -1);
  ListBuilder b;
  inStep(in, args + 1, nargs - 1, [&](const Value *items) {
    b.add(in.apply(args[0], items, nargs - 1));
    return true;
  });
  return b.take();
}

Value fVlSome(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, -1);
  Value found;
  inStep(in, args + 1, nargs - 1, [&](const Value *items) {
    found = in.apply(args[0], items, nargs - 1);
    return found.isNil();
  });
  return found;
}

Value fVlEvery(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, -1);
  bool all = true;
  inStep(in, args + 1, nargs - 1, [&](const Value *items) {
    all = !in.apply(args[0], items, nargs - 1).isNil();
    return all;
  });
  return in.boolean(all);
}

// --- Sorting ---------------------------------------------------------------------

// Sorts `order` (indices into items) by `before`, merging bottom-up. Where
// `before` holds neither way the element from the left run goes first; the
// callers fill `order` last index first, so equal keys end up later-first.
template <class Before>
void mergeSort(std::vector<int> &order, Before before) {
  size_t n = order.size();
  std::vector<int> tmp(n);
  for (size_t width = 1; width < n; width *= 2) {
    for (size_t lo = 0; lo < n; lo += 2 * width) {
      size_t mid = std::min(lo + width, n), hi = std::min(lo + 2 * width, n);
      size_t i = lo, j = mid, k = lo;
      while (i < mid && j < hi) tmp[k++] = before(order[j], order[i]) ? order[j++] : order[i++];
      while (i < mid) tmp[k++] = order[i++];
      while (j < hi) tmp[k++] = order[j++];
    }
    order.swap(tmp);
  }
}

std::vector<int> sortedOrder(Interp &in, const std::vector<Value> &items, const Value &fn) {
  std::vector<int> order(items.size());
  for (size_t i = 0; i < order.size(); ++i) order[i] = int(order.size() - 1 - i);
  mergeSort(order, [&](int a, int b) {
    Value pair[2] = {items[a], items[b]};
    return !in.apply(fn, pair, 2).isNil();
  });
  return order;
}

Value fVlSort(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, 2);
  std::vector<Value> items = listToVector(properList(in, args[0]));
  std::vector<int> order = sortedOrder(in, items, args[1]);
  ListBuilder b;
  const Value *kept = nullptr;
  for (int i : order) {
    if (kept && kept->same(items[i])) continue;
    b.add(items[i]);
    kept = &items[i];
  }
  return b.take();
}

Value fVlSortI(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, 2);
  std::vector<Value> items = listToVector(properList(in, args[0]));
  ListBuilder b;
  for (int i : sortedOrder(in, items, args[1])) b.add(Value::integer(i));
  return b.take();
}

// Letters compare without regard to case; strings that differ only in case
// keep a fixed order (upper case first). A list holding anything but strings
// answers nil.
Value fStrlsort(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  std::vector<Value> items = listToVector(properList(in, args[0]));
  std::vector<std::wstring> keys;
  keys.reserve(items.size());
  for (const Value &v : items) {
    if (v.type() != Type::Str) return Value();
    keys.push_back(upcase(str(v)));
  }
  std::vector<int> order(items.size());
  for (size_t i = 0; i < order.size(); ++i) order[i] = int(i);
  mergeSort(order, [&](int a, int b) {
    int c = keys[a].compare(keys[b]);
    return c != 0 ? c < 0 : str(items[a]) < str(items[b]);
  });
  ListBuilder b;
  for (int i : order) b.add(items[i]);
  return b.take();
}

// --- Predicates -------------------------------------------------------------------

Value fListp(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  return in.boolean(args[0].isList());
}
Value fAtom(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  return in.boolean(!args[0].isCons());
}
Value fVlConsp(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  return in.boolean(args[0].isCons());
}
Value fNumberp(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  return in.boolean(args[0].isNumber());
}
Value fVlSymbolp(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  return in.boolean(args[0].type() == Type::Sym);
}
Value fNull(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  return in.boolean(args[0].isNil());
}

Value fBoundp(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  if (args[0].isNil()) return Value();
  if (args[0].type() != Type::Sym) in.badArgType(L"symbolp", args[0]);
  return in.boolean(!args[0].as<Symbol>()->value.isNil());
}

Value fEq(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, 2);
  const Value &a = args[0], &b = args[1];
  bool handles = (a.type() == Type::Ename || a.type() == Type::Pickset) && a.type() == b.type();
  return in.boolean(handles ? atomsEqual(a, b, 0) : a.same(b));
}

Value fEqual(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 2, 3);
  double fuzz = nargs == 3 ? numArg(in, args[2]) : 0.0;
  return in.boolean(lispEqual(in, args[0], args[1], fuzz < 0 ? -fuzz : fuzz));
}

Value fType(Interp &in, const Value *args, int nargs) {
  needArgs(in, nargs, 1, 1);
  const wchar_t *name = nullptr;
  switch (args[0].type()) {
    case Type::Nil:
      return Value();
    case Type::Int:
      name = L"INT";
      break;
    case Type::Real:
      name = L"REAL";
      break;
    case Type::Str:
      name = L"STR";
      break;
    case Type::Sym:
      name = L"SYM";
      break;
    case Type::List:
      name = L"LIST";
      break;
    case Type::Subr:
      name = L"SUBR";
      break;
    case Type::Usubr:
      name = L"USUBR";
      break;
    case Type::Exrxsubr:
      name = L"EXRXSUBR";
      break;
    case Type::Ename:
      name = L"ENAME";
      break;
    case Type::Pickset:
      name = L"PICKSET";
      break;
    case Type::File:
      name = L"FILE";
      break;
    case Type::CatchError:
      name = L"VL-CATCH-ALL-APPLY-ERROR";
      break;
    case Type::Foreign:
      name = args[0].as<Foreign>()->typeName();
      break;
  }
  return Value(in.intern(name));
}

struct Entry {
  const wchar_t *name;
  SubrFn fn;
};

const Entry kLists[] = {
    {L"CAR", fCxr<cxrPath("a")>},
    {L"CDR", fCxr<cxrPath("d")>},
    {L"CAAR", fCxr<cxrPath("aa")>},
    {L"CADR", fCxr<cxrPath("ad")>},
    {L"CDAR", fCxr<cxrPath("da")>},
    {L"CDDR", fCxr<cxrPath("dd")>},
    {L"CAAAR", fCxr<cxrPath("aaa")>},
    {L"CAADR", fCxr<cxrPath("aad")>},
    {L"CADAR", fCxr<cxrPath("ada")>},
    {L"CADDR", fCxr<cxrPath("add")>},
    {L"CDAAR", fCxr<cxrPath("daa")>},
    {L"CDADR", fCxr<cxrPath("dad")>},
    {L"CDDAR", fCxr<cxrPath("dda")>},
    {L"CDDDR", fCxr<cxrPath("ddd")>},
    {L"CAAAAR", fCxr<cxrPath("aaaa")>},
    {L"CAAADR", fCxr<cxrPath("aaad")>},
    {L"CAADAR", fCxr<cxrPath("aada")>},
    {L"CAADDR", fCxr<cxrPath("aadd")>},
    {L"CADAAR", fCxr<cxrPath("adaa")>},
    {L"CADADR", fCxr<cxrPath("adad")>},
    {L"CADDAR", fCxr<cxrPath("adda")>},
    {L"CADDDR", fCxr<cxrPath("addd")>},
    {L"CDAAAR", fCxr<cxrPath("daaa")>},
    {L"CDAADR", fCxr<cxrPath("daad")>},
    {L"CDADAR", fCxr<cxrPath("dada")>},
    {L"CDADDR", fCxr<cxrPath("dadd")>},
    {L"CDDAAR", fCxr<cxrPath("ddaa")>},
    {L"CDDADR", fCxr<cxrPath("ddad")>},
    {L"CDDDAR", fCxr<cxrPath("ddda")>},
    {L"CDDDDR", fCxr<cxrPath("dddd")>},
    {L"CONS", fCons},
    {L"LIST", fList},
    {L"VL-LIST*", fListStar},
    {L"APPEND", fAppend},
    {L"REVERSE", fReverse},
    {L"LENGTH", fLength},
    {L"VL-LIST-LENGTH", fVlListLength},
    {L"NTH", fNth},
    {L"LAST", fLast},
    {L"MEMBER", fMember},
    {L"ASSOC", fAssoc},
    {L"VL-POSITION", fVlPosition},
    {L"SUBST", fSubst},
    {L"VL-REMOVE", fVlRemove},
    {L"VL-REMOVE-IF", fRemoveIf<false>},
    {L"VL-REMOVE-IF-NOT", fRemoveIf<true>},
    {L"VL-MEMBER-IF", fMemberIf<true>},
    {L"VL-MEMBER-IF-NOT", fMemberIf<false>},
    {L"MAPCAR", fMapcar},
    {L"VL-SOME", fVlSome},
    {L"VL-EVERY", fVlEvery},
    {L"VL-SORT", fVlSort},
    {L"VL-SORT-I", fVlSortI},
    {L"ACAD_STRLSORT", fStrlsort},
    {L"LISTP", fListp},
    {L"ATOM", fAtom},
    {L"VL-CONSP", fVlConsp},
    {L"NUMBERP", fNumberp},
    {L"VL-SYMBOLP", fVlSymbolp},
    {L"NULL", fNull},
    {L"NOT", fNull},
    {L"BOUNDP", fBoundp},
    {L"EQ", fEq},
    {L"EQUAL", fEqual},
    {L"TYPE", fType},
};

}  // namespace

void installLists(Interp &in) {
  for (const Entry &e : kLists) in.defineSubr(e.name, e.fn);
}

}  // namespace vantry::lisp
