// LISP values of the host's AutoLISP.
//
// A Value is a small tagged word: nil, a 32-bit integer and a double real are
// held inline; everything else points at a reference-counted Object. AutoLISP
// has no operations that mutate a list cell, so values can never form a cycle
// and plain reference counting frees everything. Values are not thread-safe:
// one interpreter runs on one thread.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/sanitizer.h"

namespace vantry::lisp {

class Interp;

enum class Type : uint8_t {
  Nil,
  Int,
  Real,
  Str,
  Sym,
  List,        // a cons cell
  Subr,        // a built-in function or special form
  Usubr,       // a function made by defun or lambda
  Exrxsubr,    // a function registered by an external module
  Ename,       // an entity name
  Pickset,     // a selection set
  File,        // an open file descriptor
  CatchError,  // the error object of vl-catch-all-apply
  Foreign,     // a value a host room defines (ActiveX objects, variants, safearrays)
};

struct Object {
  explicit Object(Type t) : type(t) {}
  virtual ~Object() = default;
  Object(const Object &) = delete;
  Object &operator=(const Object &) = delete;
  uint32_t refs = 0;
  Type type;
};

void destroyObject(Object *o);  // frees o (iteratively along list tails)

class Value {
 public:
  Value() : type_(Type::Nil), i_(0) {}
  Value(const Value &v) : type_(v.type_), bits_(v.bits_) {
    if (isObject()) ++o_->refs;
  }
  Value(Value &&v) noexcept : type_(v.type_), bits_(v.bits_) { v.type_ = Type::Nil; }
  explicit Value(Object *o) : type_(o->type), o_(o) { ++o->refs; }
  ~Value() { release(); }
  Value &operator=(const Value &v) {
    // v may live inside the object this value releases (v = car(v)): take
    // what is needed from it first.
    Type t = v.type_;
    uint64_t b = v.bits_;
    if (v.isObject()) ++v.o_->refs;
    release();
    type_ = t;
    bits_ = b;
    return *this;
  }
  Value &operator=(Value &&v) noexcept {
    if (this != &v) {
      release();
      type_ = v.type_;
      bits_ = v.bits_;
      v.type_ = Type::Nil;
    }
    return *this;
  }

  static Value integer(int32_t i) {
    Value v;
    v.type_ = Type::Int;
    v.i_ = i;
    return v;
  }
  static Value real(double r) {
    Value v;
    v.type_ = Type::Real;
    v.r_ = r;
    return v;
  }

  Type type() const { return type_; }
  bool isNil() const { return type_ == Type::Nil; }
  bool isObject() const { return type_ > Type::Real; }
  bool isNumber() const { return type_ == Type::Int || type_ == Type::Real; }
  bool isList() const { return type_ == Type::List || type_ == Type::Nil; }
  bool isCons() const { return type_ == Type::List; }
  int32_t asInt() const { return i_; }
  double asReal() const { return r_; }
  double number() const { return type_ == Type::Int ? double(i_) : r_; }
  Object *obj() const { return o_; }
  // Gives up this value's reference without releasing it; the value becomes
  // nil. Used to free long lists without recursion.
  Object *detach() {
    Object *o = isObject() ? o_ : nullptr;
    type_ = Type::Nil;
    return o;
  }
  template <class T>
  T *as() const {
    return static_cast<T *>(o_);
  }

  // Identity as eq sees it: same object, or same immediate.
  bool same(const Value &v) const {
    if (type_ != v.type_) return false;
    if (type_ == Type::Nil) return true;
    if (type_ == Type::Int) return i_ == v.i_;
    if (type_ == Type::Real) return r_ == v.r_;
    return o_ == v.o_;
  }

 private:
  void release() {
    if (isObject() && --o_->refs == 0) destroyObject(o_);
  }
  Type type_;
  union {
    int32_t i_;
    double r_;
    Object *o_;
    uint64_t bits_;
  };
};

// Conses and strings are made and dropped by the million (every record read
// from a database becomes dozens of them): they are cut from blocks, and
// released ones are kept for reuse on one free list per size (Cons and
// String are both 48 or 56 bytes), never given back to the allocator. A
// large answer's two million objects then cost a pointer bump each, where
// each had been a call into the allocator and another to free it; what the
// lists keep is the most the program ever held at once, as the host keeps
// the memory it had (the session's mallopt). The common case, a list that
// has one, is inline; sizes above kMaxSmall go to the allocator. Under the
// address sanitizer every object comes from and goes back to the allocator,
// so that use after free is still caught.
namespace pool {
#if VANTRY_ASAN
constexpr bool kKeepObjects = false;
#else
constexpr bool kKeepObjects = true;
#endif
constexpr size_t kMaxSmall = 64;
struct FreeObject {
  FreeObject *next;
};
// initial-exec: the host library is linked, never loaded late, so its
// thread-locals sit at a fixed offset and cost no lookup call; constinit
// tells every includer that they need no initialising call either. Only
// programs and libraries linked at start-up include this header.
extern constinit
    __attribute__((tls_model("initial-exec"))) thread_local FreeObject *freeObjects[kMaxSmall / 8 + 1];
void *allocate(size_t size);  // cut from a block (small) or from the allocator; throws std::bad_alloc
}  // namespace pool

inline void *takeSmallObject(size_t size) {
  if (size <= pool::kMaxSmall) {
    pool::FreeObject *&head = pool::freeObjects[(size + 7) / 8];
    if (pool::FreeObject *p = head) {
      head = p->next;
      return p;
    }
  }
  return pool::allocate(size);
}

inline void giveSmallObject(void *p, size_t size) {
  if (pool::kKeepObjects && size <= pool::kMaxSmall) {
    auto *o = static_cast<pool::FreeObject *>(p);
    pool::FreeObject *&head = pool::freeObjects[(size + 7) / 8];
    o->next = head;
    head = o;
    return;
  }
  std::free(p);
}

struct Cons : Object {
  Cons(Value a, Value d) : Object(Type::List), car(std::move(a)), cdr(std::move(d)) {}
  Value car, cdr;
  static void *operator new(size_t size) { return takeSmallObject(size); }
  static void operator delete(void *p, size_t size) { giveSmallObject(p, size); }
};

struct String : Object {
  explicit String(std::wstring s) : Object(Type::Str), text(std::move(s)) {}
  std::wstring text;
  static void *operator new(size_t size) { return takeSmallObject(size); }
  static void operator delete(void *p, size_t size) { giveSmallObject(p, size); }
};

// Symbols are interned per interpreter; names are held upper-case. A symbol
// has one value slot: a function is the value of its name.
struct Symbol : Object {
  explicit Symbol(std::wstring n) : Object(Type::Sym), name(std::move(n)) {}
  std::wstring name;
  Value value;
};

// A built-in. A normal one receives its arguments evaluated; a special form
// receives the unevaluated argument list (the form's cdr).
using SubrFn = Value (*)(Interp &, const Value *args, int nargs);
using SpecialFn = Value (*)(Interp &, const Value &argForms);

struct Subr : Object {
  Subr(std::wstring n, SubrFn f) : Object(Type::Subr), name(std::move(n)), fn(f) {}
  Subr(std::wstring n, SpecialFn s) : Object(Type::Subr), name(std::move(n)), special(s) {}
  std::wstring name;
  SubrFn fn = nullptr;
  SpecialFn special = nullptr;
};

struct Usubr : Object {
  Usubr() : Object(Type::Usubr) {}
  std::wstring name;  // empty for a lambda
  std::vector<Symbol *> params;
  std::vector<Symbol *> locals;
  // The (params / locals) list as written: it holds their symbols, so they
  // live as long as the function does, even when the function outlives the
  // interpreter that read it (a value on the blackboard of a closed drawing).
  Value names;
  Value body;  // the list of body forms
};

// A function of an external module: the host's bridge knows how to call it by
// its code. `owner` is the bridge's registry entry, opaque to the LISP.
struct Exrxsubr : Object {
  Exrxsubr(std::wstring n, int c, void *o) : Object(Type::Exrxsubr), name(std::move(n)), code(c), owner(o) {}
  std::wstring name;
  int code;
  void *owner;
};

// Entity names and selection sets carry the host's two-word names.
struct Handle2 : Object {
  Handle2(Type t, int64_t a, int64_t b) : Object(t), w0(a), w1(b) {}
  int64_t w0, w1;
};

struct File : Object {
  File(std::wstring n, FILE *f, wchar_t m) : Object(Type::File), name(std::move(n)), fp(f), mode(m) {}
  ~File() override {
    if (fp) fclose(fp);
  }
  std::wstring name;
  FILE *fp;
  wchar_t mode;  // 'r', 'w' or 'a'
};

struct CatchError : Object {
  explicit CatchError(std::wstring m) : Object(Type::CatchError), message(std::move(m)) {}
  std::wstring message;
};

// A value whose kind a room of the host defines (host/activex: VLA-objects,
// variants, safearrays). The LISP core knows of it only what `type` answers
// and what the printer shows; everything else is the defining room's.
struct Foreign : Object {
  Foreign() : Object(Type::Foreign) {}
  // What `type` answers (an upper-case symbol name: "VLA-OBJECT" ...).
  virtual const wchar_t *typeName() const = 0;
  // The printed form ("#<variant 5 1.0>" ...), the same for prin1 and princ.
  virtual std::wstring printed() const = 0;
};

// --- Constructors and accessors ---------------------------------------------

inline Value makeString(std::wstring s) {
  return Value(new String(std::move(s)));
}
inline Value cons(Value a, Value d) {
  return Value(new Cons(std::move(a), std::move(d)));
}
inline const Value &car(const Value &v) {
  static const Value nil;
  return v.isCons() ? v.as<Cons>()->car : nil;
}
inline const Value &cdr(const Value &v) {
  static const Value nil;
  return v.isCons() ? v.as<Cons>()->cdr : nil;
}
inline const std::wstring &str(const Value &v) {
  return v.as<String>()->text;
}

// Builds a proper list, appending at the tail in O(1).
class ListBuilder {
 public:
  void add(Value v) {
    Value cell = cons(std::move(v), Value());
    Cons *c = cell.as<Cons>();
    if (tail_)
      tail_->cdr = std::move(cell);
    else
      head_ = std::move(cell);
    tail_ = c;
  }
  // Ends the list with a non-nil tail (a dotted list); on an empty builder the
  // tail itself is the result.
  void dot(Value v) {
    if (tail_)
      tail_->cdr = std::move(v);
    else
      head_ = std::move(v);
  }
  Value take() {
    tail_ = nullptr;
    return std::move(head_);
  }
  bool empty() const { return head_.isNil(); }

 private:
  Value head_;
  Cons *tail_ = nullptr;
};

// The number of cells in a proper list; -1 for a dotted list.
int listLength(const Value &v);
// The elements of a proper list (a dotted tail is ignored).
std::vector<Value> listToVector(const Value &v);
Value vectorToList(const std::vector<Value> &items);

}  // namespace vantry::lisp
