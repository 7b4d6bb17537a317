// Freeing values and small list utilities.
#include "lisp/value.h"

#include <cstdlib>
#include <new>

namespace vantry::lisp {

namespace pool {

constinit __attribute__((tls_model("initial-exec"))) thread_local FreeObject *freeObjects[kMaxSmall / 8 + 1] = {};

namespace {
// The block objects are being cut from. Blocks are never freed: what is cut
// from them lives on as objects or on the free lists.
constexpr size_t kBlockBytes = 256 << 10;
constinit __attribute__((tls_model("initial-exec"))) thread_local char *blockNext = nullptr;
constinit __attribute__((tls_model("initial-exec"))) thread_local char *blockEnd = nullptr;
}  // namespace

void *allocate(size_t size) {
  if (kKeepObjects && size <= kMaxSmall) {
    // Whole 8-byte units, as the free lists are kept: an object goes back
    // to the list of its size's class and comes out for any size of it.
    size = (size + 7) & ~size_t(7);
    if (size_t(blockEnd - blockNext) < size) {
      blockNext = static_cast<char *>(std::malloc(kBlockBytes));
      if (!blockNext) {
        blockEnd = nullptr;
        throw std::bad_alloc();
      }
      blockEnd = blockNext + kBlockBytes;
    }
    void *p = blockNext;
    blockNext += size;
    return p;
  }
  if (void *p = std::malloc(size)) return p;
  throw std::bad_alloc();
}

}  // namespace pool

// A long list freed cell by cell through the destructors would recurse once
// per cell, and a list nested deep through its cars once per level; instead
// a dying cell's tail, and its car when that is a list, are detached and
// freed by this loop while no one else holds them. The car goes first and
// the tail waits: a list is freed in the order it was made, element by
// element (a large answer's records lie one after another in memory), where
// freeing the whole spine first and then each element jumped through all of
// it twice. Calls nest (a function's body dies inside its destructor), so
// each call works only the pending cells above the mark it found.
//
// Values that live in static storage die after the thread's own
// variables: once the pending list is gone, a call keeps a list of its own.
namespace {
constinit __attribute__((tls_model("initial-exec"))) thread_local bool pendingGone = false;
struct Pending {
  std::vector<Object *> cells;
  ~Pending() { pendingGone = true; }
};
__attribute__((tls_model("initial-exec"))) thread_local Pending threadPending;
}  // namespace

void destroyObject(Object *o) {
  std::vector<Object *> own;
  std::vector<Object *> &pending = pendingGone ? own : threadPending.cells;
  size_t mark = pending.size();
  for (;;) {
    while (o) {
      Object *next = nullptr;
      if (o->type == Type::List) {
        // A cell is a Cons and nothing else: freed without the virtual call.
        Cons *c = static_cast<Cons *>(o);
        if (c->cdr.isObject() && c->cdr.obj()->refs == 1) next = c->cdr.detach();
        if (c->car.isCons() && c->car.obj()->refs == 1) {
          if (next) pending.push_back(next);
          next = c->car.detach();
        }
        c->Cons::~Cons();
        Cons::operator delete(c, sizeof(Cons));
      } else {
        delete o;
      }
      o = next;
    }
    if (pending.size() == mark) return;
    o = pending.back();
    pending.pop_back();
  }
}

int listLength(const Value &v) {
  int n = 0;
  const Value *p = &v;
  while (p->isCons()) {
    ++n;
    p = &p->as<Cons>()->cdr;
  }
  return p->isNil() ? n : -1;
}

std::vector<Value> listToVector(const Value &v) {
  std::vector<Value> out;
  for (const Value *p = &v; p->isCons(); p = &p->as<Cons>()->cdr) out.push_back(p->as<Cons>()->car);
  return out;
}

Value vectorToList(const std::vector<Value> &items) {
  ListBuilder b;
  for (const Value &v : items) b.add(v);
  return b.take();
}

}  // namespace vantry::lisp
