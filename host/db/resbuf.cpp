// Result buffers: allocation, release and the variadic list builder.
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "common/sanitizer.h"
#include "db/db.h"

namespace vantry::host {

// Value kinds of the drawing-data group codes follow the drawing exchange
// format's code ranges; codes 10-17, 110-112, 210 and 1010-1013 hold whole
// points.
namespace {

constexpr RbKind kindOf(int t) {
  switch (t) {
    case RTREAL:
    case RTANG:
      return RbKind::Real;
    case RTPOINT:
    case RT3DPOINT:
      return RbKind::Point;
    case RTSHORT:
      return RbKind::Short;
    case RTLONG:
      return RbKind::Long;
    case RTINT64:
    case RTLONG_PTR:
      return RbKind::Int64;
    case RTSTR:
    case RTDXF0:
      return RbKind::String;
    case RTENAME:
    case RTPICKS:
      return RbKind::Name;
    default:
      break;
  }
  if (t >= 5000) return RbKind::None;
  if (t == -1 || t == -2) return RbKind::Name;
  if (t == -4) return RbKind::String;
  if (t == -3 || t == -5) return RbKind::None;
  if (t >= 0 && t <= 9) return RbKind::String;
  if (t >= 10 && t <= 18) return RbKind::Point;
  if (t >= 19 && t <= 59) return RbKind::Real;
  if (t >= 60 && t <= 79) return RbKind::Short;
  if (t >= 90 && t <= 99) return RbKind::Long;
  if (t == 100 || t == 101 || t == 102 || t == 105) return RbKind::String;
  if (t >= 110 && t <= 112) return RbKind::Point;
  if (t >= 113 && t <= 149) return RbKind::Real;
  if (t >= 160 && t <= 169) return RbKind::Int64;
  if (t >= 170 && t <= 179) return RbKind::Short;
  if (t == 210) return RbKind::Point;
  if (t >= 211 && t <= 239) return RbKind::Real;
  if (t >= 270 && t <= 299) return RbKind::Short;
  if (t >= 300 && t <= 309) return RbKind::String;
  if (t >= 310 && t <= 319) return RbKind::Binary;
  if (t >= 320 && t <= 329) return RbKind::String;
  if (t >= 330 && t <= 369) return RbKind::Name;
  if (t >= 370 && t <= 389) return RbKind::Short;
  if (t >= 390 && t <= 399) return RbKind::String;
  if (t >= 400 && t <= 409) return RbKind::Short;
  if (t >= 410 && t <= 419) return RbKind::String;
  if (t >= 420 && t <= 429) return RbKind::Long;
  if (t >= 430 && t <= 439) return RbKind::String;
  if (t >= 440 && t <= 459) return RbKind::Long;
  if (t >= 460 && t <= 469) return RbKind::Real;
  if (t >= 470 && t <= 479) return RbKind::String;
  if (t >= 480 && t <= 481) return RbKind::String;
  if (t == 999) return RbKind::String;
  if (t == 1004) return RbKind::Binary;
  if (t >= 1000 && t <= 1009) return RbKind::String;
  if (t >= 1010 && t <= 1013) return RbKind::Point;
  if (t >= 1014 && t <= 1059) return RbKind::Real;
  if (t >= 1060 && t <= 1070) return RbKind::Short;
  if (t == 1071) return RbKind::Long;
  return RbKind::None;
}

// Every node that is released or read asks its kind, so the group codes
// (-5 to 1071) and the result types (5000 on) are looked up in tables the
// compiler makes from the ranges above.
template <int Low, int High>
struct KindTable {
  static constexpr int kLow = Low, kHigh = High;
  RbKind kinds[kHigh - kLow + 1];
  constexpr KindTable() : kinds() {
    for (int t = kLow; t <= kHigh; ++t) kinds[t - kLow] = kindOf(t);
  }
};
constexpr KindTable<-5, 1071> kCodeKinds;
constexpr KindTable<5000, 5063> kResultKinds;

}  // namespace

// Inline here so that releasing a chain asks no call per node.
inline RbKind kindFast(int t) {
  if (t >= kResultKinds.kLow && t <= kResultKinds.kHigh) return kResultKinds.kinds[t - kResultKinds.kLow];
  if (t >= kCodeKinds.kLow && t <= kCodeKinds.kHigh) return kCodeKinds.kinds[t - kCodeKinds.kLow];
  return kindOf(t);
}

RbKind rbKind(int t) {
  return kindFast(t);
}

}  // namespace vantry::host

using vantry::host::RbKind;
using vantry::host::rbKind;

namespace {

// Nodes come from blocks of many and go back to a free list, never to the
// allocator: a record crossing to LISP takes dozens of nodes and a query's
// answer millions, and one malloc and free per node (with the allocator
// consolidating its small chunks after each large answer) was the larger
// part of the cost. The host keeps as many nodes as were ever in use at
// once. Under the sanitizers every node is its own allocation and goes back
// at once, so misuse is still caught.
#if VANTRY_ASAN
constexpr bool kPoolNodes = false;
#else
constexpr bool kPoolNodes = true;
#endif
constexpr size_t kBlockNodes = 512;
// initial-exec: the host library is linked, never loaded late, so its
// thread-locals sit at a fixed offset and cost no lookup call.
__attribute__((tls_model("initial-exec"))) thread_local resbuf *freeNodes = nullptr;

resbuf *allocNode() {
  if (!kPoolNodes) return static_cast<resbuf *>(std::calloc(1, sizeof(resbuf)));
  if (!freeNodes) {
    auto *block = static_cast<resbuf *>(std::malloc(kBlockNodes * sizeof(resbuf)));
    if (!block) return nullptr;
    for (size_t i = 0; i + 1 < kBlockNodes; ++i) block[i].rbnext = &block[i + 1];
    block[kBlockNodes - 1].rbnext = nullptr;
    freeNodes = block;
  }
  resbuf *rb = freeNodes;
  freeNodes = rb->rbnext;
  rb->rbnext = nullptr;
  rb->restype = 0;
  std::memset(&rb->resval, 0, sizeof rb->resval);
  return rb;
}

void freeNode(resbuf *rb) {
  if (!kPoolNodes) {
    std::free(rb);
    return;
  }
  rb->rbnext = freeNodes;
  freeNodes = rb;
}

}  // namespace

struct resbuf *acutNewRb(int type) {
  resbuf *rb = allocNode();
  if (rb) rb->restype = short(type);
  return rb;
}

int acutRelRb(struct resbuf *rb) {
  while (rb) {
    resbuf *next = rb->rbnext;
    RbKind k = vantry::host::kindFast(rb->restype);
    if (k == RbKind::String) std::free(rb->resval.rstring);
    if (k == RbKind::Binary) std::free(rb->resval.rbinary.buf);
    freeNode(rb);
    rb = next;
  }
  return RTNORM;
}

int acutNewString(const ACHAR *src, ACHAR *&dest) {
  dest = nullptr;
  if (!src) return RTNORM;
  size_t n = std::wcslen(src) + 1;
  dest = static_cast<ACHAR *>(std::malloc(n * sizeof(ACHAR)));
  if (!dest) return RTERROR;
  std::wmemcpy(dest, src, n);
  return RTNORM;
}

int acutDelString(ACHAR *&str) {
  std::free(str);
  str = nullptr;
  return RTNORM;
}

struct resbuf *acutBuildList(int rtype, ...) {
  va_list ap;
  va_start(ap, rtype);
  resbuf *head = nullptr, *tail = nullptr;
  for (int type = rtype; type != 0 && type != RTNONE; type = va_arg(ap, int)) {
    // Group code 0 would end the argument list, so it is written RTDXF0.
    resbuf *rb = acutNewRb(type == RTDXF0 ? 0 : type);
    if (!rb) break;
    if (tail)
      tail->rbnext = rb;
    else
      head = rb;
    tail = rb;
    switch (rbKind(type)) {
      case RbKind::None:
        break;
      case RbKind::Real:
        rb->resval.rreal = va_arg(ap, double);
        break;
      case RbKind::Point: {
        const ads_real *p = va_arg(ap, const ads_real *);
        rb->resval.rpoint[0] = p[0];
        rb->resval.rpoint[1] = p[1];
        rb->resval.rpoint[2] = type == RTPOINT ? 0.0 : p[2];
        break;
      }
      case RbKind::Short:
        rb->resval.rint = short(va_arg(ap, int));
        break;
      case RbKind::Long:
        rb->resval.rlong = va_arg(ap, int32_t);
        break;
      case RbKind::Int64:
        rb->resval.mnInt64 = va_arg(ap, int64_t);
        break;
      case RbKind::String:
        acutNewString(va_arg(ap, const ACHAR *), rb->resval.rstring);
        break;
      case RbKind::Name: {
        const int64_t *n = va_arg(ap, const int64_t *);
        rb->resval.rlname[0] = n[0];
        rb->resval.rlname[1] = n[1];
        break;
      }
      case RbKind::Binary: {
        const ads_binary *b = va_arg(ap, const ads_binary *);
        rb->resval.rbinary.clen = b->clen;
        rb->resval.rbinary.buf = static_cast<char *>(std::malloc(b->clen > 0 ? b->clen : 1));
        if (b->clen > 0) std::memcpy(rb->resval.rbinary.buf, b->buf, b->clen);
        break;
      }
    }
    bool valueless = type == RTLB || type == RTLE || type == RTDOTE || type == RTNIL || type == RTT ||
                     type == RTVOID || type == -3;
    if (rbKind(type) == RbKind::None && !valueless) {
      // A type the builder does not know: the list cannot be trusted.
      acutRelRb(head);
      va_end(ap);
      return nullptr;
    }
  }
  va_end(ap);
  return head;
}
