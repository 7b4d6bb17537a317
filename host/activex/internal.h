// Within host/activex: the three kinds of value ActiveX brings to LISP, how
// LISP values become the automation's arguments and back, and the object
// model's tables of properties and methods.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "activex/activex.h"

namespace vantry::host {
class Document;
}

namespace vantry::host::activex {

using lisp::Interp;
using lisp::Value;

// Automation value types (the variant type codes LISP programs see).
enum VarType : int {
  kVtEmpty = 0,
  kVtNull = 1,
  kVtInteger = 2,
  kVtLong = 3,
  kVtSingle = 4,
  kVtDouble = 5,
  kVtString = 8,
  kVtObject = 9,
  kVtBoolean = 11,
  kVtVariant = 12,
  kVtArray = 0x2000,
};

// A safearray: its element type, bounds per dimension (lower, upper) and
// elements in row-major order, each held as the LISP value it reads as (a
// number, a string, a VLA-object, :vlax-true, a variant, nil).
struct Safearray final : lisp::Foreign {
  int type = kVtDouble;
  std::vector<std::pair<int, int>> bounds;
  std::vector<Value> items;
  const wchar_t *typeName() const override { return L"SAFEARRAY"; }
  std::wstring printed() const override { return L"#<safearray...>"; }
};

// A variant: its type code and value (a safearray value for an array type).
struct Variant final : lisp::Foreign {
  Variant(int t, Value v) : type(t), value(std::move(v)) {}
  int type;
  Value value;
  const wchar_t *typeName() const override { return L"VARIANT"; }
  std::wstring printed() const override;
};

// A VLA-object: the application, a document (by its drawing's serial) or an
// object of a drawing (serial and handle). The objects of one drawing object
// are shared while LISP holds them, so eq sees one object, as on the host.
struct VlaObject final : lisp::Foreign {
  enum class Kind { Application, Document, Object };
  VlaObject(Kind k, int64_t s, uint64_t h) : kind(k), serial(s), handle(h) {}
  ~VlaObject() override;
  Kind kind;
  int64_t serial;
  uint64_t handle;
  bool released = false;
  std::wstring iface;  // the interface it prints with ("IAcadLine" ...)
  // Marks it released and lets the next conversion make a new one.
  void release();
  const wchar_t *typeName() const override { return L"VLA-OBJECT"; }
  std::wstring printed() const override;
};

template <class T>
T *foreign(const Value &v) {
  return v.type() == lisp::Type::Foreign ? dynamic_cast<T *>(v.as<lisp::Foreign>()) : nullptr;
}

// --- Errors, as the host's automation reports them
// "ActiveX Server returned the error: unknown name: NAME"
[[noreturn]] void unknownName(Interp &in, std::wstring_view name);
// "ActiveX Server returned an error: WHAT" (the automation's own failures:
// "Type mismatch", "Invalid index", "Parameter not optional" ...).
[[noreturn]] void serverError(Interp &in, const wchar_t *what);
// "Automation Error. WHAT" (the drawing's refusals: "Key not found" ...).
[[noreturn]] void automationError(Interp &in, const wchar_t *what);
// The automation error of a drawing database status.
[[noreturn]] void statusError(Interp &in, Acad::ErrorStatus es);

// --- Values (values.cpp)
Value variant(int type, Value v);
Value doubleArray(const std::vector<double> &values);  // a variant of a safearray of doubles
Value pointVariant(const AcGePoint3d &p);
Value vlaBool(Interp &in, bool b);  // :vlax-true / :vlax-false
// Readers of automation arguments; each raises "Type mismatch" for a value
// of another kind, as the host's automation does.
std::vector<double> doublesArg(Interp &in, const Value &v);  // a variant or safearray of numbers
AcGePoint3d pointArg(Interp &in, const Value &v);            // of 2 or 3 numbers
double realArg(Interp &in, const Value &v);
int integerArg(Interp &in, const Value &v);
std::wstring stringArg(Interp &in, const Value &v);
bool boolArg(Interp &in, const Value &v);
// The value as vlax-get answers it: variants opened, safearrays as lists.
Value toLisp(const Value &v);
// An argument as vlax-put and vlax-invoke pass it: a list of numbers becomes
// a variant of doubles.
Value fromLisp(const Value &v);
void installValueLisp(Interp &in);

// --- Objects (objects.cpp)
Value applicationValue();
Value documentValue(AcDbDatabase *db);
Value objectValue(AcDbObjectId id);  // nil for a null id
// A VLA-object argument resolved for a call: what it names, checked to be
// there (not released, its drawing open, the object not erased).
struct Target {
  VlaObject *self = nullptr;
  AcDbDatabase *db = nullptr;  // the drawing (null for the application)
  AcDbObjectId id;             // the object (null for the application and documents)
  AcRxClass *cls = nullptr;    // the object's class
  bool is(AcRxClass *c) const { return cls && cls->isDerivedFrom(c); }
};
VlaObject *vlaArg(Interp &in, const Value &v);  // "bad argument type: VLA-OBJECT"
// Raises the host's errors: not a VLA-object, released, its drawing closed,
// the object erased (unless erasedToo).
Target resolve(Interp &in, const Value &v, bool erasedToo = false);
// The document a target belongs to (the current one for the application).
vantry::host::Document *documentOf(Interp &in, const Target &t);
// ObjectName: the object's class name ("AcDbLine" ...).
std::wstring objectName(const AcDbObject *obj);
// The drawing object's id whatever its state (no checks): null for others.
AcDbObjectId objectIdOf(const VlaObject &o);

// --- The object model (model.cpp, entities.cpp)
struct Property {
  const wchar_t *name;
  bool (*applies)(const Target &);
  Value (*get)(Interp &, const Target &);
  void (*put)(Interp &, const Target &, const Value &);  // null: read-only
};
struct Method {
  const wchar_t *name;
  bool (*applies)(const Target &);
  Value (*call)(Interp &, const Target &, const Value *args, int nargs);
};
// The tables of the containers (model.cpp) and of the entities (entities.cpp).
const std::vector<Property> &containerProperties();
const std::vector<Method> &containerMethods();
const std::vector<Property> &entityProperties();
const std::vector<Method> &entityMethods();
// The member of that name (without case) the target has, or null.
const Property *findProperty(const Target &t, std::wstring_view name);
const Method *findMethod(const Target &t, std::wstring_view name);
// Whether any object has a property (a writable one) or method of the name.
bool anyProperty(std::wstring_view name, bool writable);
bool anyMethod(std::wstring_view name);

// The current layer's name (CLAYER), which new entities take.
std::wstring currentLayerName();

// The members of a collection (a table's records, a block's entities) that
// are not erased, and whether a target is such a collection.
std::vector<AcDbObjectId> members(const Target &t);
bool isCollectionTarget(const Target &t);

// Argument count checks of methods: "Parameter not optional" for too few,
// "Invalid number of parameters" for too many.
void methodArgs(Interp &in, int nargs, int min, int max);

// Opens the target's object for the length of f (read) and answers f's value.
template <class T, class F>
Value withRead(Interp &in, const Target &t, F f) {
  AcDbObjectPointer<T> p(t.id, AcDb::kForRead);
  if (p.openStatus() != Acad::eOk) statusError(in, p.openStatus());
  Value v = f(p.object());
  return v;
}
// Opens it for write and applies f (which answers a status); a refusal is
// raised after the object is closed. Arguments are read before this.
template <class T, class F>
void withWrite(Interp &in, const Target &t, F f) {
  Acad::ErrorStatus es;
  {
    AcDbObjectPointer<T> p(t.id, AcDb::kForWrite);
    es = p.openStatus();
    if (es == Acad::eOk) es = f(p.object());
  }
  if (es != Acad::eOk) statusError(in, es);
}

// The LISP data functions (ldata.cpp).
void installLdataLisp(Interp &in);

}  // namespace vantry::host::activex
