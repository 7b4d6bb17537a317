// Extended data: per registered application, a chain of 1000-1071 groups.
#include <cstdlib>
#include <cstring>

#include "db/db.h"

namespace vantry::host {

resbuf *copyChain(const resbuf *rb) {
  resbuf *head = nullptr, **tail = &head;
  for (; rb; rb = rb->rbnext) {
    resbuf *c = acutNewRb(rb->restype);
    c->resval = rb->resval;
    switch (rbKind(rb->restype)) {
      case RbKind::String:
        acutNewString(rb->resval.rstring ? rb->resval.rstring : L"", c->resval.rstring);
        break;
      case RbKind::Binary: {
        short n = rb->resval.rbinary.clen;
        c->resval.rbinary.buf = static_cast<char *>(std::malloc(n > 0 ? n : 1));
        if (n > 0) std::memcpy(c->resval.rbinary.buf, rb->resval.rbinary.buf, n);
        break;
      }
      default:
        break;
    }
    *tail = c;
    tail = &c->rbnext;
  }
  return head;
}

namespace {

// The group codes extended data may hold after its 1001 name.
bool xdataCode(int code) {
  return code == 1000 || (code >= 1002 && code <= 1005) || (code >= 1010 && code <= 1013) ||
         (code >= 1040 && code <= 1042) || code == 1070 || code == 1071;
}

// Checks one application's items: known codes, strings present, braces
// "{" and "}" balanced.
Acad::ErrorStatus checkItems(const resbuf *rb) {
  int depth = 0;
  for (; rb && rb->restype != 1001; rb = rb->rbnext) {
    if (!xdataCode(rb->restype)) return Acad::eInvalidResBuf;
    if (rbKind(rb->restype) == RbKind::String && !rb->resval.rstring) return Acad::eInvalidResBuf;
    if (rb->restype == 1002) {
      std::wstring_view s = rb->resval.rstring;
      if (s == L"{")
        ++depth;
      else if (s == L"}" && depth > 0)
        --depth;
      else
        return Acad::eInvalidResBuf;
    }
  }
  return depth == 0 ? Acad::eOk : Acad::eInvalidResBuf;
}

}  // namespace
}  // namespace vantry::host

using namespace vantry::host;

resbuf *AcDbObject::xData(const ACHAR *regappName) const {
  std::wstring want = regappName ? upperKey(regappName) : std::wstring();
  resbuf *head = nullptr, **tail = &head;
  for (const XApp &a : xdata_) {
    if (regappName && upperKey(a.name) != want) continue;
    resbuf *name = acutNewRb(1001);
    acutNewString(a.name.c_str(), name->resval.rstring);
    name->rbnext = copyChain(a.items);
    *tail = name;
    while (*tail) tail = &(*tail)->rbnext;
  }
  return head;
}

Acad::ErrorStatus AcDbObject::setXData(const resbuf *xdata) {
  if (!xdata || xdata->restype != 1001 || !xdata->resval.rstring) return Acad::eInvalidResBuf;
  if (stub_ && !writer_) return Acad::eNotOpenForWrite;
  // Check everything before changing anything.
  for (const resbuf *p = xdata; p; p = p->rbnext) {
    if (p->restype != 1001) continue;
    if (!p->resval.rstring || !*p->resval.rstring) return Acad::eInvalidResBuf;
    if (stub_ && recordId(stub_->db->regAppTableId(), p->resval.rstring).isNull()) return Acad::eKeyNotFound;
    if (Acad::ErrorStatus es = checkItems(p->rbnext); es != Acad::eOk) return es;
  }
  for (const resbuf *p = xdata; p;) {
    std::wstring name = p->resval.rstring;
    const resbuf *first = p->rbnext, *end = first;
    while (end && end->restype != 1001) end = end->rbnext;
    // Copy just this application's items.
    resbuf *items = nullptr, **tail = &items;
    for (const resbuf *q = first; q != end; q = q->rbnext) {
      resbuf one = *q;
      one.rbnext = nullptr;
      *tail = copyChain(&one);
      tail = &(*tail)->rbnext;
    }
    auto it = xdata_.begin();
    while (it != xdata_.end() && upperKey(it->name) != upperKey(name)) ++it;
    if (it != xdata_.end()) {
      acutRelRb(it->items);
      if (items)
        it->items = items;
      else
        xdata_.erase(it);
    } else if (items) {
      xdata_.push_back({name, items});
    }
    p = end;
  }
  return Acad::eOk;
}

std::vector<std::wstring> AcDbObject::xDataApplications() const {
  std::vector<std::wstring> names;
  for (const XApp &a : xdata_) names.push_back(a.name);
  return names;
}
