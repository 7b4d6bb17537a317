// The host's drawing database: object ids and handles, objects and how they
// are opened and closed, the database with its symbol tables and
// dictionaries, groups, extended data, transactions and the class
// descriptors of every database class. The entities live in
// host/acdb_entity.h, acdb_curves.h, acdb_polylines.h, acdb_annotation.h and
// acdb_references.h (included at the end), geometry in host/acge.h.
//
// Ownership:
//  - A database owns every object added to it (by appendAcDbEntity, add,
//    setAt, addAcDbObject) and deletes them when it is deleted. Never delete a
//    database-resident object; close it.
//  - An object made with new and not (yet) added to a database belongs to
//    whoever made it, who deletes it. close() on such an object does nothing.
//  - acdbOpenObject and the getAt/getObject calls hand out a pointer that
//    stays valid until the matching close(); the caller must close it on
//    every path (AcDbObjectPointer does so in its destructor). Objects got
//    through a transaction are closed when the transaction ends.
//  - Strings returned as ACHAR* by value (layer(), contents(), getName(ACHAR*&),
//    plotStyleName()) are the caller's, freed with acutDelString (or free).
//    xData() returns a chain the caller releases with acutRelRb.
//  - Iterators from newIterator()/vertexIterator() are deleted by the caller.
//
// Open discipline: an object may be open for read by up to 256 readers at
// once, or for write by one writer, never both; notify opens are always
// allowed. A second write open fails with eWasOpenForWrite, a read open of an
// object open for write with eWasOpenForWrite, a write open of an object open
// for read with eWasOpenForRead; an erased object opens only when asked for
// (openErased), else eWasErased; the typed open checks the class
// (eNotThatKindOfClass). Setters that return a status refuse with
// eNotOpenForWrite on a resident object that is not open for write.
//
// Entity names (ads_name) are (handle, database serial): acdbGetAdsName and
// acdbGetObjectId convert, and a name of a database that is gone, or a handle
// it never gave out, converts to nothing (eInvalidAdsName).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/acge.h"
#include "host/arx.h"

namespace Adesk {
typedef int8_t Int8;
typedef uint8_t UInt8;
typedef int16_t Int16;
typedef uint16_t UInt16;
typedef int32_t Int32;
typedef uint32_t UInt32;
typedef int64_t Int64;
typedef uint64_t UInt64;
typedef bool Boolean;
typedef intptr_t IntPtr;
}  // namespace Adesk

class AcDbDatabase;
class AcDbObject;
class AcDbEntity;
class AcDbDxfFiler;
struct AcDbStub;

namespace vantry::host {
struct DbAccess;
class CurvePath;
template <class Vertex>
class PolylineVertices;
}  // namespace vantry::host

// --- Class members ------------------------------------------------------------------

// Declares the run-time class members of a database class. Define them with
// ACRX_DXF_DEFINE_MEMBERS / ACRX_DEFINE_MEMBERS in one source file, then
// register the class with CLASS::rxInit() and acrxBuildClassHierarchy().
#ifndef ACRX_DECLARE_MEMBERS
#define ACRX_DECLARE_MEMBERS(CLASS)                                                                      \
  static AcRxClass *desc();                                                                              \
  static CLASS *cast(const AcRxObject *obj) {                                                            \
    return obj && obj->isKindOf(desc()) ? static_cast<CLASS *>(const_cast<AcRxObject *>(obj)) : nullptr; \
  }                                                                                                      \
  AcRxClass *isA() const override;                                                                       \
  static void rxInit()
#endif

#ifndef ACRX_DXF_DEFINE_MEMBERS
#define ACRX_DXF_DEFINE_MEMBERS(CLASS, PARENT, DWG_VERSION, MAINT_VERSION, PROXY_FLAGS, DXF_NAME, APP) \
  AcRxClass *CLASS::desc() {                                                                           \
    return acrxFindClass(ACRX_T(#CLASS));                                                              \
  }                                                                                                    \
  AcRxClass *CLASS::isA() const {                                                                      \
    return CLASS::desc();                                                                              \
  }                                                                                                    \
  void CLASS::rxInit() {                                                                               \
    newAcRxClass(                                                                                      \
        ACRX_T(#CLASS), ACRX_T(#PARENT), PROXY_FLAGS, []() -> AcRxObject * { return new CLASS(); },    \
        ACRX_T(#DXF_NAME), ACRX_T(#APP));                                                              \
  }
#define ACRX_DEFINE_MEMBERS(CLASS, PARENT)         \
  AcRxClass *CLASS::desc() {                       \
    return acrxFindClass(ACRX_T(#CLASS));          \
  }                                                \
  AcRxClass *CLASS::isA() const {                  \
    return CLASS::desc();                          \
  }                                                \
  void CLASS::rxInit() {                           \
    newAcRxClass(ACRX_T(#CLASS), ACRX_T(#PARENT)); \
  }
#endif

// --- Enumerations -------------------------------------------------------------------

namespace AcDb {
enum OpenMode { kForRead = 0, kForWrite = 1, kForNotify = 2 };
enum Visibility { kVisible = 0, kInvisible = 1 };
// Hundredths of a millimetre. Every standard weight is named, so that any
// of them (and anything a file holds up to 211) is a value of the type.
enum LineWeight {
  kLnWtByLayer = -1, kLnWtByBlock = -2, kLnWtByLwDefault = -3,
  kLnWt000 = 0, kLnWt005 = 5, kLnWt009 = 9, kLnWt013 = 13, kLnWt015 = 15, kLnWt018 = 18,
  kLnWt020 = 20, kLnWt025 = 25, kLnWt030 = 30, kLnWt035 = 35, kLnWt040 = 40, kLnWt050 = 50,
  kLnWt053 = 53, kLnWt060 = 60, kLnWt070 = 70, kLnWt080 = 80, kLnWt090 = 90, kLnWt100 = 100,
  kLnWt106 = 106, kLnWt120 = 120, kLnWt140 = 140, kLnWt158 = 158, kLnWt200 = 200, kLnWt211 = 211
};
enum Poly2dType { k2dSimplePoly = 0, k2dFitCurvePoly = 1, k2dQuadSplinePoly = 2, k2dCubicSplinePoly = 3 };
enum Poly3dType { k3dSimplePoly = 0, k3dQuadSplinePoly = 1, k3dCubicSplinePoly = 2 };
enum Vertex2dType { k2dVertex = 0, k2dSplineCtlVertex = 1, k2dSplineFitVertex = 2, k2dCurveFitVertex = 3 };
enum Vertex3dType { k3dSimpleVertex = 0, k3dControlVertex = 1, k3dFitVertex = 2 };
}  // namespace AcDb

// --- Handles and ids ----------------------------------------------------------------

// A database-unique, never reused object number, written in hexadecimal.
class AcDbHandle {
 public:
  AcDbHandle() = default;
  AcDbHandle(uint64_t v) : value_(v) {}  // NOLINT: handles convert from numbers, as on the host
  explicit AcDbHandle(const ACHAR *hex);
  bool isNull() const { return value_ == 0; }
  uint64_t value() const { return value_; }
  // Writes the upper-case hexadecimal form; false when the buffer is too small.
  bool getIntoAsciiBuffer(ACHAR *buf, size_t size) const;
  std::wstring toString() const;
  bool operator==(const AcDbHandle &h) const { return value_ == h.value_; }
  bool operator!=(const AcDbHandle &h) const { return value_ != h.value_; }

 private:
  uint64_t value_ = 0;
};

// Names one object of one database. Cheap to copy; stays valid as long as its
// database lives (after an erase too).
class AcDbObjectId {
 public:
  AcDbObjectId() = default;
  explicit AcDbObjectId(AcDbStub *stub) : stub_(stub) {}
  static const AcDbObjectId kNull;
  bool isNull() const { return stub_ == nullptr; }
  bool isValid() const;
  bool isErased() const;
  AcDbDatabase *database() const;
  AcDbHandle handle() const;
  AcDbObjectId &setNull() {
    stub_ = nullptr;
    return *this;
  }
  // The object's class, or null for a null id.
  AcRxClass *objectClass() const;
  AcDbStub *stub() const { return stub_; }
  bool operator==(const AcDbObjectId &o) const { return stub_ == o.stub_; }
  bool operator!=(const AcDbObjectId &o) const { return stub_ != o.stub_; }
  bool operator<(const AcDbObjectId &o) const;

 private:
  AcDbStub *stub_ = nullptr;
};
typedef AcArray<AcDbObjectId> AcDbObjectIdArray;

// --- Colours --------------------------------------------------------------------------

namespace AcCmEntityColor {
enum ColorMethod {
  kByLayer = 0xC0,
  kByBlock = 0xC1,
  kByColor = 0xC2,
  kByACI = 0xC3,
  kForeground = 0xC5,
  kNone = 0xC8
};
}

// An entity or layer colour: by layer, by block, an index colour (1-255) or a
// true colour.
class AcCmColor {
 public:
  AcCmColor() = default;
  AcCmEntityColor::ColorMethod colorMethod() const { return method_; }
  Acad::ErrorStatus setColorMethod(AcCmEntityColor::ColorMethod m);
  bool isByLayer() const { return method_ == AcCmEntityColor::kByLayer; }
  bool isByBlock() const { return method_ == AcCmEntityColor::kByBlock; }
  bool isByACI() const { return method_ == AcCmEntityColor::kByACI; }
  bool isByColor() const { return method_ == AcCmEntityColor::kByColor; }
  // 0 by block, 256 by layer, 1-255 an index colour; a true colour answers
  // 256 (no nearest index colour is computed).
  Adesk::UInt16 colorIndex() const;
  // 0 sets by block, 256 by layer, 1-255 an index colour; others are refused.
  Acad::ErrorStatus setColorIndex(Adesk::UInt16 index);
  Acad::ErrorStatus setRGB(Adesk::UInt8 r, Adesk::UInt8 g, Adesk::UInt8 b);
  Adesk::UInt8 red() const { return Adesk::UInt8(rgb_ >> 16); }
  Adesk::UInt8 green() const { return Adesk::UInt8(rgb_ >> 8); }
  Adesk::UInt8 blue() const { return Adesk::UInt8(rgb_); }
  bool operator==(const AcCmColor &o) const {
    return method_ == o.method_ && index_ == o.index_ && rgb_ == o.rgb_;
  }
  bool operator!=(const AcCmColor &o) const { return !(*this == o); }

 private:
  AcCmEntityColor::ColorMethod method_ = AcCmEntityColor::kByLayer;
  Adesk::UInt16 index_ = 256;
  uint32_t rgb_ = 0;
};

// --- Exchange form ------------------------------------------------------------------------

// The group-code form of one object's data: what entget shows and entmake and
// entmod read, and (with forFile) what a drawing exchange file holds. Writing
// appends items; dxfInFields reads them by code in any order. In the file
// form angles are degrees, otherwise radians.
class AcDbDxfFiler {
 public:
  struct Item {
    int code = 0;
    int dims = 0;  // 2 or 3 for a point, else 0
    double real[3] = {0, 0, 0};
    int64_t integer = 0;
    std::wstring text;
    AcDbObjectId id;
  };
  explicit AcDbDxfFiler(bool forFile = false) : forFile_(forFile) {}
  bool isFile() const { return forFile_; }

  void writeString(int code, const std::wstring &s);
  void writeItem(int code, const ACHAR *s) { writeString(code, s ? s : L""); }
  void writeDouble(int code, double v);
  void writeAngle(int code, double radians);
  void writeInt16(int code, int v);
  void writeInt32(int code, int32_t v);
  void writeBool(int code, bool v) { writeInt16(code, v ? 1 : 0); }
  void writePoint3d(int code, const AcGePoint3d &p);
  void writePoint2d(int code, const AcGePoint2d &p);
  void writeVector3d(int code, const AcGeVector3d &v) { writePoint3d(code, AcGePoint3d(v.x, v.y, v.z)); }
  void writeObjectId(int code, AcDbObjectId id);

  std::vector<Item> &items() { return items_; }
  const std::vector<Item> &items() const { return items_; }
  // The first item with the code, or null.
  const Item *find(int code) const;
  // Readers by code: true when the code is present (the first one counts).
  bool getString(int code, std::wstring &out) const;
  bool getDouble(int code, double &out) const;
  bool getAngle(int code, double &radians) const;
  bool getInt(int code, int64_t &out) const;
  bool getPoint(int code, AcGePoint3d &out) const;
  bool getVector(int code, AcGeVector3d &out) const;

 private:
  bool forFile_;
  std::vector<Item> items_;
};

// --- Objects ------------------------------------------------------------------------------

class AcDbObject : public AcRxObject {
 public:
  ACRX_DECLARE_MEMBERS(AcDbObject);
  AcDbObject();
  // Copies the object's data (extended data included), never its identity
  // or open state: a copy is not in any database.
  AcDbObject(const AcDbObject &other);
  AcDbObject &operator=(const AcDbObject &other);
  ~AcDbObject() override;

  AcDbObjectId objectId() const;
  AcDbObjectId ownerId() const { return owner_; }
  virtual Acad::ErrorStatus setOwnerId(AcDbObjectId owner);
  AcDbHandle handle() const { return objectId().handle(); }
  void getAcDbHandle(AcDbHandle &h) const { h = handle(); }
  AcDbDatabase *database() const;

  // Open state.
  Acad::ErrorStatus close();
  Acad::ErrorStatus upgradeOpen();
  Acad::ErrorStatus downgradeOpen();
  bool isReadEnabled() const { return readers_ > 0 || writer_; }
  bool isWriteEnabled() const { return writer_; }
  bool isNotifyEnabled() const { return notifiers_ > 0; }
  // Kept for classes written against the host: the stand-in checks write
  // access in the setters that return a status instead.
  void assertReadEnabled() const {}
  void assertWriteEnabled(bool = true, bool = true) {}
  void assertNotifyEnabled() const {}

  // Erases (or, with false, unerases) the object; it must be open for write.
  // An erased object keeps its id and handle until the database goes.
  Acad::ErrorStatus erase(bool erasing = true);
  bool isErased() const { return erased_; }

  // Extended data. xData(null) gives every application's data; xData(name)
  // that application's, as 1001 name followed by its items; null when there
  // is none. setXData takes one or more 1001 groups, each followed by its
  // items, and replaces the data of those applications; a 1001 group with no
  // items removes that application's data. Every application must be
  // registered in the object's database.
  resbuf *xData(const ACHAR *regappName = nullptr) const;
  Acad::ErrorStatus setXData(const resbuf *xdata);
  // The applications that hold data on this object, in the order they came.
  std::vector<std::wstring> xDataApplications() const;

  // Persistent reactors: the objects (groups) that follow this one.
  void addPersistentReactor(AcDbObjectId id);
  Acad::ErrorStatus removePersistentReactor(AcDbObjectId id);
  bool hasPersistentReactor(AcDbObjectId id) const;
  const std::vector<AcDbObjectId> &persistentReactorIds() const { return reactors_; }

  // Extension dictionaries are not built: always null.
  AcDbObjectId extensionDictionary() const { return AcDbObjectId::kNull; }

  // Group-code form of the object's own fields (handle, reactors and owner
  // for AcDbObject, then each class's subclass marker and fields).
  virtual Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const;
  virtual Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer);

  // A copy not in any database, of the same class; null for classes that
  // cannot be copied. The caller owns it.
  virtual AcRxObject *clone() const;
  // Takes over the data of another object of the same class.
  virtual Acad::ErrorStatus copyFrom(const AcRxObject *other);

 protected:
  // Called when the object has joined a database, so that sub-objects
  // (vertices) join too.
  virtual void subJoinedDatabase() {}

 private:
  friend struct vantry::host::DbAccess;
  struct XApp {
    std::wstring name;
    resbuf *items = nullptr;  // owned
  };
  void freeXData();
  AcDbStub *stub_ = nullptr;
  AcDbObjectId owner_;
  int readers_ = 0;
  bool writer_ = false;
  int notifiers_ = 0;
  bool erased_ = false;
  std::vector<XApp> xdata_;
  std::vector<AcDbObjectId> reactors_;
};

// Opens an object by id. On success obj points at it and the caller closes
// it; on failure obj is null and the status says why.
Acad::ErrorStatus acdbOpenAcDbObject(AcDbObject *&obj, AcDbObjectId id, AcDb::OpenMode mode,
                                     bool openErased = false);
Acad::ErrorStatus acdbOpenAcDbEntity(AcDbEntity *&ent, AcDbObjectId id, AcDb::OpenMode mode,
                                     bool openErased = false);
Acad::ErrorStatus acdbOpenObject(AcDbObject *&obj, AcDbObjectId id, AcDb::OpenMode mode,
                                 bool openErased = false);

// The typed open: fails with eNotThatKindOfClass (and leaves nothing open)
// when the object is not a T.
template <class T>
Acad::ErrorStatus acdbOpenObject(T *&obj, AcDbObjectId id, AcDb::OpenMode mode, bool openErased = false) {
  obj = nullptr;
  AcRxClass *cls = id.objectClass();
  if (!id.isNull() && cls && !cls->isDerivedFrom(T::desc())) return Acad::eNotThatKindOfClass;
  AcDbObject *o = nullptr;
  Acad::ErrorStatus es = acdbOpenAcDbObject(o, id, mode, openErased);
  if (es == Acad::eOk) obj = static_cast<T *>(o);
  return es;
}

// Entity names.
Acad::ErrorStatus acdbGetAdsName(ads_name &name, AcDbObjectId id);
Acad::ErrorStatus acdbGetObjectId(AcDbObjectId &id, const ads_name name);

// Holds an object open for the holder's life and closes it on every exit.
template <class T>
class AcDbObjectPointer {
 public:
  AcDbObjectPointer() = default;
  AcDbObjectPointer(AcDbObjectId id, AcDb::OpenMode mode, bool openErased = false) {
    status_ = acdbOpenObject(obj_, id, mode, openErased);
  }
  ~AcDbObjectPointer() { close(); }
  AcDbObjectPointer(const AcDbObjectPointer &) = delete;
  AcDbObjectPointer &operator=(const AcDbObjectPointer &) = delete;
  Acad::ErrorStatus open(AcDbObjectId id, AcDb::OpenMode mode, bool openErased = false) {
    close();
    return status_ = acdbOpenObject(obj_, id, mode, openErased);
  }
  // A new object that the holder owns (and deletes) until it joins a database.
  Acad::ErrorStatus create() {
    close();
    obj_ = new T();
    status_ = Acad::eOk;
    return status_;
  }
  Acad::ErrorStatus openStatus() const { return status_; }
  Acad::ErrorStatus close() {
    if (!obj_) return Acad::eNullObjectPointer;
    Acad::ErrorStatus es = Acad::eOk;
    if (obj_->objectId().isNull())
      delete obj_;
    else
      es = obj_->close();
    obj_ = nullptr;
    status_ = Acad::eNullObjectPointer;
    return es;
  }
  // Gives up the object without closing it.
  T *release() {
    T *o = obj_;
    obj_ = nullptr;
    return o;
  }
  T *object() const { return obj_; }
  T *operator->() const { return obj_; }
  operator T *() const { return obj_; }  // NOLINT

 private:
  T *obj_ = nullptr;
  Acad::ErrorStatus status_ = Acad::eNullObjectPointer;
};
template <class T>
using AcDbSmartObjectPointer = AcDbObjectPointer<T>;

// --- Transactions -----------------------------------------------------------------------

class AcTransaction : public AcRxObject {
 public:
  ACRX_DECLARE_MEMBERS(AcTransaction);
  Acad::ErrorStatus getObject(AcDbObject *&obj, AcDbObjectId id, AcDb::OpenMode mode,
                              bool openErased = false);

 private:
  friend class AcDbTransactionManager;
  struct Entry {
    AcDbObject *obj;
    bool write;
    AcRxObject *before;  // a copy from before the first write, restored on abort
    bool wasErased;      // the erase state then, restored on abort too
  };
  std::vector<Entry> entries_;
  class AcDbTransactionManager *manager_ = nullptr;
};

// One per database. Objects got through a transaction are closed by the end
// or abort of the outermost transaction that holds them; abort puts back what
// they held before they were first got for write.
class AcDbTransactionManager : public AcRxObject {
 public:
  ACRX_DECLARE_MEMBERS(AcDbTransactionManager);
  explicit AcDbTransactionManager(AcDbDatabase *db = nullptr) : db_(db) {}
  ~AcDbTransactionManager() override;
  virtual AcTransaction *startTransaction();
  virtual Acad::ErrorStatus endTransaction();
  virtual Acad::ErrorStatus abortTransaction();
  virtual int numActiveTransactions() const { return int(stack_.size()); }
  virtual AcTransaction *topTransaction() const { return stack_.empty() ? nullptr : stack_.back().get(); }
  virtual Acad::ErrorStatus getObject(AcDbObject *&obj, AcDbObjectId id, AcDb::OpenMode mode,
                                      bool openErased = false);

 private:
  friend class AcTransaction;
  Acad::ErrorStatus getIn(AcTransaction *t, AcDbObject *&obj, AcDbObjectId id, AcDb::OpenMode mode,
                          bool openErased);
  AcDbDatabase *db_;
  std::vector<std::unique_ptr<AcTransaction>> stack_;
};
class AcTransactionManager : public AcDbTransactionManager {
 public:
  using AcDbTransactionManager::AcDbTransactionManager;
};
// The transaction manager of the working database (null with no document).
AcTransactionManager *acdbWorkingTransactionManager();
#define acdbTransactionManager acdbWorkingTransactionManager()
#define actrTransactionManager acdbWorkingTransactionManager()

#include "host/acdb_entity.h"
#include "host/acdb_curves.h"
#include "host/acdb_text.h"
#include "host/acdb_shapes.h"
#include "host/acdb_polylines.h"
#include "host/acdb_annotation.h"
#include "host/acdb_references.h"
#include "host/acdb_tables.h"
