// Entity data lists: an object's group-code form as a LISP list and back,
// extended data included. Shared by the entity and table built-ins.
//
// A list element is (code . value), or (code x y [z]) for a point code; -1
// carries the entity name, 0 the type, -3 the extended data as
// ((app (code . value) ...) ...).
#include "db/lisp_data.h"
#include "lisp/lisp.h"
#include "session/session.h"

namespace vantry::host {

using lisp::Interp;
using lisp::ListBuilder;
using lisp::Type;
using lisp::Value;

Value enameValue(AcDbObjectId id) {
  ads_name n;
  if (acdbGetAdsName(n, id) != Acad::eOk) return Value();
  return Value(new lisp::Handle2(Type::Ename, n[0], n[1]));
}

bool idFromValue(const Value &v, AcDbObjectId &id) {
  id = AcDbObjectId::kNull;
  if (v.type() != Type::Ename) return false;
  ads_name n = {v.as<lisp::Handle2>()->w0, v.as<lisp::Handle2>()->w1};
  return acdbGetObjectId(id, n) == Acad::eOk && id.isValid();
}

AcDbObjectId entityArg(Interp &in, const Value &v) {
  if (v.type() != Type::Ename) in.badArgType(L"lentityp", v);
  AcDbObjectId id;
  idFromValue(v, id);
  return id;
}

namespace {

Value point(const double *r, int dims) {
  ListBuilder b;
  for (int i = 0; i < dims; ++i) b.add(Value::real(r[i]));
  return b.take();
}

Value itemValue(const AcDbDxfFiler::Item &it) {
  if (it.dims) return point(it.real, it.dims);
  switch (rbKind(it.code)) {
    case RbKind::Real:
      return Value::real(it.real[0]);
    case RbKind::Short:
    case RbKind::Long:
      return Value::integer(int32_t(it.integer));
    case RbKind::Int64:
      return Value::real(double(it.integer));
    case RbKind::String:
      return lisp::makeString(it.text);
    case RbKind::Name:
      return enameValue(it.id);
    default:
      return Value();
  }
}

// One extended-data node as a LISP pair.
Value xdataItem(const resbuf *rb) {
  Value code = Value::integer(rb->restype);
  switch (rbKind(rb->restype)) {
    case RbKind::Real:
      return lisp::cons(code, Value::real(rb->resval.rreal));
    case RbKind::Short:
      return lisp::cons(code, Value::integer(rb->resval.rint));
    case RbKind::Long:
      return lisp::cons(code, Value::integer(rb->resval.rlong));
    case RbKind::String:
      return lisp::cons(code, lisp::makeString(rb->resval.rstring ? rb->resval.rstring : L""));
    case RbKind::Point:
      return lisp::cons(code, point(rb->resval.rpoint, 3));
    default:
      return Value();
  }
}

bool wanted(const std::wstring &app, const std::vector<std::wstring> &patterns) {
  std::wstring up = upperKey(app);
  for (const std::wstring &p : patterns)
    if (lisp::wcmatch(up, upperKey(p))) return true;
  return false;
}

}  // namespace

Value entityData(AcDbObject *obj, const std::vector<std::wstring> *apps) {
  AcDbDxfFiler f;
  obj->dxfOutFields(&f);
  ListBuilder b;
  b.add(lisp::cons(Value::integer(-1), enameValue(obj->objectId())));
  const ACHAR *type = dxfTypeOf(obj);
  b.add(lisp::cons(Value::integer(0), lisp::makeString(type ? type : obj->isA()->name())));
  for (const auto &it : f.items()) {
    if (rbKind(it.code) == RbKind::Name && !it.dims && it.id.isNull()) continue;
    b.add(lisp::cons(Value::integer(it.code), itemValue(it)));
  }
  if (apps && !apps->empty()) {
    ListBuilder xd;
    for (const std::wstring &app : obj->xDataApplications()) {
      if (!wanted(app, *apps)) continue;
      resbuf *chain = obj->xData(app.c_str());
      ListBuilder one;
      one.add(lisp::makeString(app));
      for (resbuf *p = chain ? chain->rbnext : nullptr; p; p = p->rbnext) {
        Value v = xdataItem(p);
        if (!v.isNil()) one.add(v);
      }
      acutRelRb(chain);
      xd.add(one.take());
    }
    if (!xd.empty()) b.add(lisp::cons(Value::integer(-3), xd.take()));
  }
  return b.take();
}

namespace {

bool number(const Value &v, double &out) {
  if (!v.isNumber()) return false;
  out = v.number();
  return true;
}

bool readPoint(const Value &v, double *r, int &dims) {
  dims = 0;
  for (const Value *p = &v; p->isCons(); p = &lisp::cdr(*p)) {
    if (dims == 3 || !number(lisp::car(*p), r[dims])) return false;
    ++dims;
  }
  if (dims == 2) r[2] = 0;
  return dims >= 2;
}

// Extended data ((app (code . value) ...) ...) as a chain for setXData.
bool xdataChain(const Value &apps, resbuf *&out) {
  out = nullptr;
  resbuf **tail = &out;
  auto add = [&](int type) {
    resbuf *rb = acutNewRb(type);
    *tail = rb;
    tail = &rb->rbnext;
    return rb;
  };
  for (const Value *a = &apps; a->isCons(); a = &lisp::cdr(*a)) {
    const Value &app = lisp::car(*a);
    if (!app.isCons() || lisp::car(app).type() != Type::Str) return false;
    acutNewString(lisp::str(lisp::car(app)).c_str(), add(1001)->resval.rstring);
    for (const Value *p = &lisp::cdr(app); p->isCons(); p = &lisp::cdr(*p)) {
      const Value &item = lisp::car(*p);
      if (!item.isCons() || lisp::car(item).type() != Type::Int) return false;
      int code = lisp::car(item).asInt();
      const Value &val = lisp::cdr(item);
      if (code < 1000 || code > 1071 || code == 1001) return false;
      switch (rbKind(code)) {
        case RbKind::String:
          if (val.type() != Type::Str) return false;
          acutNewString(lisp::str(val).c_str(), add(code)->resval.rstring);
          break;
        case RbKind::Real:
          if (!number(val, add(code)->resval.rreal)) return false;
          break;
        case RbKind::Short:
          if (val.type() != Type::Int || val.asInt() < -32768 || val.asInt() > 32767) return false;
          add(code)->resval.rint = short(val.asInt());
          break;
        case RbKind::Long:
          if (val.type() != Type::Int) return false;
          add(code)->resval.rlong = val.asInt();
          break;
        case RbKind::Point: {
          int dims;
          if (!readPoint(val, add(code)->resval.rpoint, dims)) return false;
          break;
        }
        default:
          return false;
      }
    }
  }
  return true;
}

}  // namespace

bool parseEntityData(const Value &list, AcDbDxfFiler &f, ParsedData &parsed) {
  if (!list.isCons() || lisp::listLength(list) < 0) return false;
  for (const Value *p = &list; p->isCons(); p = &lisp::cdr(*p)) {
    const Value &e = lisp::car(*p);
    if (!e.isCons() || lisp::car(e).type() != Type::Int) return false;
    int code = lisp::car(e).asInt();
    const Value &val = lisp::cdr(e);
    switch (code) {
      case -1:
        if (!idFromValue(val, parsed.self)) return false;
        continue;
      case 0:
        if (val.type() != Type::Str) return false;
        parsed.type = upperKey(lisp::str(val));
        continue;
      case -3:
        parsed.hasXData = true;
        if (!xdataChain(val, parsed.xdata)) return false;
        continue;
      case 5:
      case 100:
      case 102:
      case 330:
      case 360:
      case 410:
        continue;  // the database's own bookkeeping
      default:
        break;
    }
    AcDbDxfFiler::Item it;
    it.code = code;
    switch (rbKind(code)) {
      case RbKind::Point:
        if (!readPoint(val, it.real, it.dims)) return false;
        break;
      case RbKind::Real:
        if (!number(val, it.real[0])) return false;
        break;
      case RbKind::Short:
      case RbKind::Long:
      case RbKind::Int64:
        if (val.type() != Type::Int) return false;
        it.integer = val.asInt();
        break;
      case RbKind::String:
        if (val.type() != Type::Str) return false;
        it.text = lisp::str(val);
        break;
      case RbKind::Name:
        if (!idFromValue(val, it.id)) return false;
        break;
      default:
        return false;
    }
    f.items().push_back(std::move(it));
  }
  return true;
}

}  // namespace vantry::host
