// Variants and safearrays: the automation's value types as LISP values,
// the readers that turn LISP arguments into what a property or method
// takes, and the vlax- functions that make and open them.
#include <cmath>

#include "activex/internal.h"

namespace vantry::host::activex {
namespace {

using lisp::Type;

// The text of a value inside a variant's printed form.
std::wstring plain(const Value &v) {
  switch (v.type()) {
    case Type::Nil:
      return L"";
    case Type::Int:
      return std::to_wstring(v.asInt());
    case Type::Real:
      return Interp::formatReal(v.asReal());
    case Type::Str:
      return lisp::str(v);
    case Type::Sym:
      return v.as<lisp::Symbol>()->name;
    case Type::Foreign:
      return v.as<lisp::Foreign>()->printed();
    default:
      return L"...";
  }
}

bool isSymbolNamed(const Value &v, std::wstring_view name) {
  return v.type() == Type::Sym && v.as<lisp::Symbol>()->name == name;
}

// The value inside a variant, or the value itself.
const Value &opened(const Value &v) {
  if (auto *var = foreign<Variant>(v)) return var->value;
  return v;
}

bool numeric(const Value &v) {
  return opened(v).isNumber();
}

// Half-way cases round to the even integer, as the automation's conversion does.
int32_t roundToInt(Interp &in, double d) {
  double r = std::nearbyint(d);
  if (!(r >= -2147483648.0 && r <= 2147483647.0)) serverError(in, L"Overflow");
  return int32_t(r);
}

// The element an empty array of a type holds.
Value emptyElement(Interp &in, int type) {
  switch (type) {
    case kVtInteger:
    case kVtLong:
      return Value::integer(0);
    case kVtSingle:
    case kVtDouble:
      return Value::real(0.0);
    case kVtString:
      return lisp::makeString(L"");
    case kVtBoolean:
      return vlaBool(in, false);
    case kVtVariant:
      return variant(kVtEmpty, Value());
    default:
      return Value();  // an object: nil
  }
}

// A value converted to an element or variant type; "Type mismatch" when it
// does not convert.
Value coerce(Interp &in, const Value &given, int type) {
  const Value &v = type == kVtVariant ? given : opened(given);
  switch (type) {
    case kVtInteger:
    case kVtLong: {
      int32_t i = 0;
      if (v.type() == Type::Int) i = v.asInt();
      else if (v.type() == Type::Real) i = roundToInt(in, v.asReal());
      else if (isSymbolNamed(v, L":VLAX-TRUE")) i = -1;
      else if (isSymbolNamed(v, L":VLAX-FALSE")) i = 0;
      else serverError(in, L"Type mismatch");
      if (type == kVtInteger && (i < -32768 || i > 32767)) serverError(in, L"Overflow");
      return Value::integer(i);
    }
    case kVtSingle:
    case kVtDouble:
      if (!v.isNumber()) serverError(in, L"Type mismatch");
      return Value::real(type == kVtSingle ? double(float(v.number())) : v.number());
    case kVtString:
      if (v.type() == Type::Str) return v;
      if (v.type() == Type::Int) return lisp::makeString(std::to_wstring(v.asInt()));
      if (v.type() == Type::Real) return lisp::makeString(Interp::formatReal(v.asReal()));
      serverError(in, L"Type mismatch");
    case kVtBoolean:
      if (isSymbolNamed(v, L":VLAX-TRUE") || isSymbolNamed(v, L":VLAX-FALSE")) return v;
      if (v.isNumber()) return vlaBool(in, v.number() != 0);
      serverError(in, L"Type mismatch");
    case kVtObject:
      if (v.isNil() || foreign<VlaObject>(v)) return v;
      serverError(in, L"Type mismatch");
    case kVtVariant:
      return v;
    default:
      serverError(in, L"Type mismatch");
  }
}

// The variant type a value takes when none is asked for.
int naturalType(Interp &in, const Value &v) {
  switch (v.type()) {
    case Type::Nil:
      return kVtEmpty;
    case Type::Int:
      return kVtLong;
    case Type::Real:
      return kVtDouble;
    case Type::Str:
      return kVtString;
    case Type::Sym:
      if (isSymbolNamed(v, L":VLAX-TRUE") || isSymbolNamed(v, L":VLAX-FALSE")) return kVtBoolean;
      if (isSymbolNamed(v, L":VLAX-NULL")) return kVtNull;
      break;
    case Type::Foreign:
      if (foreign<VlaObject>(v)) return kVtObject;
      if (auto *a = foreign<Safearray>(v)) return kVtArray | a->type;
      if (auto *var = foreign<Variant>(v)) return var->type;
      break;
    default:
      break;
  }
  in.error(L"lisp value has no coercion to VARIANT with this type:  " + in.toString(v, true));
}

Safearray *safearrayArg(Interp &in, const Value &v) {
  Safearray *a = foreign<Safearray>(v);
  if (!a) in.badArgType(L"safearrayp", v);
  return a;
}

// The row-major position of an element from its indexes; "Invalid index"
// when one is outside its dimension.
size_t elementIndex(Interp &in, const Safearray &a, const Value *idx, int n) {
  if (n != int(a.bounds.size())) serverError(in, L"Invalid number of parameters");
  size_t pos = 0;
  for (int d = 0; d < n; ++d) {
    int i = lisp::intArg(in, idx[d]);
    auto [lo, hi] = a.bounds[d];
    if (i < lo || i > hi) serverError(in, L"Invalid index");
    pos = pos * size_t(hi - lo + 1) + size_t(i - lo);
  }
  return pos;
}

// The elements from `from` of dimension d on, as nested lists.
Value arrayList(const Safearray &a, size_t d, size_t &from) {
  lisp::ListBuilder b;
  int count = a.bounds[d].second - a.bounds[d].first + 1;
  for (int i = 0; i < count; ++i) {
    if (d + 1 == a.bounds.size())
      b.add(toLisp(a.items[from++]));
    else
      b.add(arrayList(a, d + 1, from));
  }
  return b.take();
}

// (vlax-make-variant [value [type]])
Value makeVariantFn(Interp &in, const Value *a, int n) {
  lisp::needArgs(in, n, 0, 2);
  if (n == 0) return variant(kVtEmpty, Value());
  int type = n == 2 && !a[1].isNil() ? lisp::intArg(in, a[1]) : naturalType(in, a[0]);
  if (type == kVtEmpty || type == kVtNull) return variant(type, Value());
  if (type & kVtArray) {
    auto *arr = foreign<Safearray>(opened(a[0]));
    if (!arr || (arr->type != (type & ~kVtArray) && (type & ~kVtArray) != kVtVariant)) serverError(in, L"Type mismatch");
    return variant(type, opened(a[0]));
  }
  return variant(type, coerce(in, a[0], type));
}

Value variantValueFn(Interp &in, const Value *a, int n) {
  lisp::needArgs(in, n, 1, 1);
  auto *var = foreign<Variant>(a[0]);
  if (!var) in.badArgType(L"variantp", a[0]);
  return var->value;
}

Value variantTypeFn(Interp &in, const Value *a, int n) {
  lisp::needArgs(in, n, 1, 1);
  auto *var = foreign<Variant>(a[0]);
  if (!var) in.badArgType(L"variantp", a[0]);
  return Value::integer(var->type);
}

// (vlax-make-safearray type '(l . u) ...): at most 16 dimensions.
Value makeSafearrayFn(Interp &in, const Value *a, int n) {
  if (n < 2) in.tooFewArgs();
  if (n > 17) in.tooManyArgs();
  int type = lisp::intArg(in, a[0]);
  static const int kTypes[] = {kVtInteger, kVtLong,   kVtSingle,  kVtDouble,
                               kVtString,  kVtObject, kVtBoolean, kVtVariant};
  if (std::find(std::begin(kTypes), std::end(kTypes), type) == std::end(kTypes))
    serverError(in, L"Type mismatch");
  auto *arr = new Safearray;
  Value result(arr);
  arr->type = type;
  size_t count = 1;
  for (int i = 1; i < n; ++i) {
    const Value &b = a[i];
    if (!b.isCons() || car(b).type() != Type::Int || cdr(b).type() != Type::Int) in.badArgType(L"consp", b);
    int lo = car(b).asInt(), hi = cdr(b).asInt();
    if (hi < lo) serverError(in, L"Invalid index");
    count *= size_t(hi - lo + 1);
    if (count > (1u << 24)) in.error(L"insufficient memory");
    arr->bounds.push_back({lo, hi});
  }
  arr->items.assign(count, emptyElement(in, type));
  return result;
}

Value safearrayToListFn(Interp &in, const Value *a, int n) {
  lisp::needArgs(in, n, 1, 1);
  Safearray *arr = safearrayArg(in, opened(a[0]));
  size_t from = 0;
  return arr->items.empty() ? Value() : arrayList(*arr, 0, from);
}

Value safearrayPutFn(Interp &in, const Value *a, int n) {
  if (n < 3) in.tooFewArgs();
  Safearray *arr = safearrayArg(in, a[0]);
  size_t pos = elementIndex(in, *arr, a + 1, n - 2);
  arr->items[pos] = coerce(in, a[n - 1], arr->type);
  return a[n - 1];
}

Value safearrayGetFn(Interp &in, const Value *a, int n) {
  if (n < 2) in.tooFewArgs();
  Safearray *arr = safearrayArg(in, a[0]);
  return arr->items[elementIndex(in, *arr, a + 1, n - 1)];
}

// (vlax-safearray-fill array '(elements...)): nested lists for more dimensions.
Value safearrayFillFn(Interp &in, const Value *a, int n) {
  lisp::needArgs(in, n, 2, 2);
  Safearray *arr = safearrayArg(in, a[0]);
  std::vector<Value> flat;
  std::vector<Value> level = lisp::listToVector(lisp::listArg(in, a[1]));
  for (size_t d = 0; d < arr->bounds.size(); ++d) {
    size_t expect = size_t(arr->bounds[d].second - arr->bounds[d].first + 1);
    if (level.size() > expect) serverError(in, L"Invalid index");
    if (d + 1 == arr->bounds.size()) break;
    std::vector<Value> next;
    for (const Value &row : level) {
      std::vector<Value> items = lisp::listToVector(lisp::listArg(in, row));
      if (items.size() != size_t(arr->bounds[d + 1].second - arr->bounds[d + 1].first + 1))
        serverError(in, L"Invalid index");
      next.insert(next.end(), items.begin(), items.end());
    }
    level = std::move(next);
  }
  for (size_t i = 0; i < level.size() && i < arr->items.size(); ++i) flat.push_back(coerce(in, level[i], arr->type));
  for (size_t i = 0; i < flat.size(); ++i) arr->items[i] = flat[i];
  return a[0];
}

Value safearrayTypeFn(Interp &in, const Value *a, int n) {
  lisp::needArgs(in, n, 1, 1);
  return Value::integer(safearrayArg(in, a[0])->type);
}

Value safearrayDimFn(Interp &in, const Value *a, int n) {
  lisp::needArgs(in, n, 1, 1);
  return Value::integer(int(safearrayArg(in, a[0])->bounds.size()));
}

template <bool Upper>
Value safearrayBoundFn(Interp &in, const Value *a, int n) {
  lisp::needArgs(in, n, 2, 2);
  Safearray *arr = safearrayArg(in, a[0]);
  int d = lisp::intArg(in, a[1]);
  if (d < 1 || d > int(arr->bounds.size())) serverError(in, L"Invalid index");
  return Value::integer(Upper ? arr->bounds[d - 1].second : arr->bounds[d - 1].first);
}

// (vlax-3d-point list) or (vlax-3d-point x y [z])
Value point3dFn(Interp &in, const Value *a, int n) {
  lisp::needArgs(in, n, 1, 3);
  std::vector<Value> xyz = n == 1 ? lisp::listToVector(lisp::listArg(in, a[0])) : std::vector<Value>(a, a + n);
  if (xyz.size() < 2 || xyz.size() > 3) in.badArgType(L"2D/3D point", a[0]);
  std::vector<double> p;
  for (const Value &c : xyz) p.push_back(lisp::numArg(in, c));
  if (p.size() == 2) p.push_back(0.0);
  return doubleArray(p);
}

}  // namespace

std::wstring Variant::printed() const {
  if (type & kVtArray) return L"#<variant " + std::to_wstring(type) + L" ...>";
  return L"#<variant " + std::to_wstring(type) + L" " + plain(value) + L">";
}

[[noreturn]] void unknownName(Interp &in, std::wstring_view name) {
  in.error(L"ActiveX Server returned the error: unknown name: " + std::wstring(name));
}
[[noreturn]] void serverError(Interp &in, const wchar_t *what) {
  in.error(std::wstring(L"ActiveX Server returned an error: ") + what);
}
[[noreturn]] void automationError(Interp &in, const wchar_t *what) {
  in.error(std::wstring(L"Automation Error. ") + what);
}

[[noreturn]] void statusError(Interp &in, Acad::ErrorStatus es) {
  switch (es) {
    case Acad::eKeyNotFound:
      automationError(in, L"Key not found");
    case Acad::eInvalidInput:
      automationError(in, L"Invalid input");
    case Acad::eWasErased:
      automationError(in, L"Object was erased");
    case Acad::eDuplicateRecordName:
    case Acad::eDuplicateKey:
      automationError(in, L"Duplicate record name");
    case Acad::eInvalidSymbolTableName:
      automationError(in, L"Invalid symbol table name");
    case Acad::eWasOpenForWrite:
    case Acad::eWasOpenForRead:
      automationError(in, L"Object is open");
    case Acad::eOutOfMemory:
      in.error(L"insufficient memory");
    case Acad::eNotApplicable:
      automationError(in, L"Not applicable");
    default:
      automationError(in, L"Description was not provided.");
  }
}

Value variant(int type, Value v) {
  return Value(new Variant(type, std::move(v)));
}

Value doubleArray(const std::vector<double> &values) {
  auto *arr = new Safearray;
  Value a(arr);
  arr->type = kVtDouble;
  arr->bounds.push_back({0, int(values.size()) - 1});
  for (double d : values) arr->items.push_back(Value::real(d));
  return variant(kVtArray | kVtDouble, a);
}

Value pointVariant(const AcGePoint3d &p) {
  return doubleArray({p.x, p.y, p.z});
}

Value vlaBool(Interp &in, bool b) {
  return Value(in.intern(b ? L":VLAX-TRUE" : L":VLAX-FALSE"));
}

std::vector<double> doublesArg(Interp &in, const Value &v) {
  auto *arr = foreign<Safearray>(opened(v));
  if (!arr || arr->bounds.size() != 1) serverError(in, L"Type mismatch");
  std::vector<double> out;
  for (const Value &e : arr->items) {
    if (!numeric(e)) serverError(in, L"Type mismatch");
    out.push_back(opened(e).number());
  }
  return out;
}

AcGePoint3d pointArg(Interp &in, const Value &v) {
  std::vector<double> p = doublesArg(in, v);
  if (p.size() != 2 && p.size() != 3) automationError(in, L"Invalid input");
  return AcGePoint3d(p[0], p[1], p.size() == 3 ? p[2] : 0.0);
}

double realArg(Interp &in, const Value &v) {
  return coerce(in, v, kVtDouble).asReal();
}
int integerArg(Interp &in, const Value &v) {
  return coerce(in, v, kVtLong).asInt();
}
std::wstring stringArg(Interp &in, const Value &v) {
  return lisp::str(coerce(in, v, kVtString));
}
bool boolArg(Interp &in, const Value &v) {
  return isSymbolNamed(coerce(in, v, kVtBoolean), L":VLAX-TRUE");
}

Value toLisp(const Value &v) {
  if (auto *var = foreign<Variant>(v)) return toLisp(var->value);
  if (auto *arr = foreign<Safearray>(v)) {
    size_t from = 0;
    return arr->items.empty() ? Value() : arrayList(*arr, 0, from);
  }
  return v;
}

Value fromLisp(const Value &v) {
  if (!v.isCons()) return v;
  std::vector<double> numbers;
  for (const Value &e : lisp::listToVector(v)) {
    if (!e.isNumber() || lisp::listLength(v) < 0) return v;
    numbers.push_back(e.number());
  }
  return doubleArray(numbers);
}

void installValueLisp(Interp &in) {
  static const struct {
    const wchar_t *name;
    lisp::SubrFn fn;
  } table[] = {
      {L"VLAX-MAKE-VARIANT", makeVariantFn},
      {L"VLAX-VARIANT-VALUE", variantValueFn},
      {L"VLAX-VARIANT-TYPE", variantTypeFn},
      {L"VLAX-MAKE-SAFEARRAY", makeSafearrayFn},
      {L"VLAX-SAFEARRAY->LIST", safearrayToListFn},
      {L"VLAX-SAFEARRAY-PUT-ELEMENT", safearrayPutFn},
      {L"VLAX-SAFEARRAY-GET-ELEMENT", safearrayGetFn},
      {L"VLAX-SAFEARRAY-FILL", safearrayFillFn},
      {L"VLAX-SAFEARRAY-TYPE", safearrayTypeFn},
      {L"VLAX-SAFEARRAY-GET-DIM", safearrayDimFn},
      {L"VLAX-SAFEARRAY-GET-L-BOUND", safearrayBoundFn<false>},
      {L"VLAX-SAFEARRAY-GET-U-BOUND", safearrayBoundFn<true>},
      {L"VLAX-3D-POINT", point3dFn},
  };
  for (const auto &e : table) in.defineSubr(e.name, e.fn);
  // The type constants, and the truth values that evaluate to themselves.
  static const struct {
    const wchar_t *name;
    int value;
  } constants[] = {
      {L"VLAX-VBEMPTY", kVtEmpty},     {L"VLAX-VBNULL", kVtNull},       {L"VLAX-VBINTEGER", kVtInteger},
      {L"VLAX-VBLONG", kVtLong},       {L"VLAX-VBSINGLE", kVtSingle},   {L"VLAX-VBDOUBLE", kVtDouble},
      {L"VLAX-VBSTRING", kVtString},   {L"VLAX-VBOBJECT", kVtObject},   {L"VLAX-VBBOOLEAN", kVtBoolean},
      {L"VLAX-VBVARIANT", kVtVariant}, {L"VLAX-VBARRAY", kVtArray},
      {L"ACBYBLOCK", 0},               {L"ACBYLAYER", 256},             {L"ACRED", 1},
      {L"ACYELLOW", 2},                {L"ACGREEN", 3},                 {L"ACCYAN", 4},
      {L"ACBLUE", 5},                  {L"ACMAGENTA", 6},               {L"ACWHITE", 7},
      {L"ACLNWTBYLAYER", -1},          {L"ACLNWTBYBLOCK", -2},          {L"ACLNWTBYLWDEFAULT", -3},
  };
  for (const auto &c : constants) in.setSymbolValue(c.name, Value::integer(c.value));
  for (const wchar_t *name : {L":VLAX-TRUE", L":VLAX-FALSE", L":VLAX-NULL"})
    in.setSymbolValue(name, Value(in.intern(name)));
}

}  // namespace vantry::host::activex
