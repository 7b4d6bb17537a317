// Freeing values and small list utilities.
#include "host/lisp/value.h"

#include <cstdlib>
#include <new>

namespace vantry::lisp {

// A long list freed cell by cell through the destructors would recurse once
// per cell; instead the tail of a dying cell is detached and freed by the
// loop while it is held by no one else.
namespace {

// One free list per object size (Cons and String are both 48 or 56 bytes);
// sizes above kMaxSmall go straight to the allocator. Under the address
// sanitizer nothing is kept, so that use after free is still caught.
#if defined(__SANITIZE_ADDRESS__)
constexpr size_t kKeepObjects = 0;
#else
constexpr size_t kKeepObjects = 1 << 20;
#endif
constexpr size_t kMaxSmall = 64;
struct FreeObject {
  FreeObject *next;
};
// initial-exec: the host library is linked, never loaded late, so its
// thread-locals sit at a fixed offset and cost no lookup call.
__attribute__((tls_model("initial-exec"))) thread_local FreeObject *freeObjects[kMaxSmall / 8 + 1];
__attribute__((tls_model("initial-exec"))) thread_local size_t freeObjectCount;

}  // namespace

void *takeSmallObject(size_t size) {
  if (size <= kMaxSmall) {
    FreeObject *&head = freeObjects[(size + 7) / 8];
    if (FreeObject *p = head) {
      head = p->next;
      --freeObjectCount;
      return p;
    }
  }
  if (void *p = std::malloc(size)) return p;
  throw std::bad_alloc();
}

void giveSmallObject(void *p, size_t size) {
  if (size <= kMaxSmall && freeObjectCount < kKeepObjects) {
    FreeObject *o = static_cast<FreeObject *>(p);
    FreeObject *&head = freeObjects[(size + 7) / 8];
    o->next = head;
    head = o;
    ++freeObjectCount;
    return;
  }
  std::free(p);
}

void destroyObject(Object *o) {
  while (o) {
    Object *next = nullptr;
    if (o->type == Type::List) {
      Cons *c = static_cast<Cons *>(o);
      if (c->cdr.isObject() && c->cdr.obj()->refs == 1) next = c->cdr.detach();
    }
    delete o;
    o = next;
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
