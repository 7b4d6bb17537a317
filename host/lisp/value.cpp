// Freeing values and small list utilities.
#include "lisp/value.h"

#include <cstdlib>
#include <new>

namespace vantry::lisp {

namespace pool {

constinit thread_local FreeObject *freeObjects[kMaxSmall / 8 + 1] = {};
constinit thread_local size_t freeObjectCount = 0;

void *allocate(size_t size) {
  if (void *p = std::malloc(size)) return p;
  throw std::bad_alloc();
}

}  // namespace pool

// A long list freed cell by cell through the destructors would recurse once
// per cell; instead the tail of a dying cell is detached and freed by the
// loop while it is held by no one else.
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
