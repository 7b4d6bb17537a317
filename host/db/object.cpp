// Objects, ids and handles, and the open/close discipline.
#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <cwctype>

#include "db/db.h"

using vantry::host::DbAccess;

// --- Handles and ids -------------------------------------------------------------------

AcDbHandle::AcDbHandle(const ACHAR *hex) {
  if (!hex) return;
  uint64_t v = 0;
  for (const ACHAR *p = hex; *p; ++p) {
    int d;
    if (*p >= L'0' && *p <= L'9')
      d = *p - L'0';
    else if (*p >= L'a' && *p <= L'f')
      d = *p - L'a' + 10;
    else if (*p >= L'A' && *p <= L'F')
      d = *p - L'A' + 10;
    else
      return;  // not a handle: stays null
    if (v >> 60) return;
    v = v * 16 + d;
  }
  value_ = v;
}

std::wstring AcDbHandle::toString() const {
  wchar_t buf[24];
  std::swprintf(buf, 24, L"%llX", static_cast<unsigned long long>(value_));
  return buf;
}

bool AcDbHandle::getIntoAsciiBuffer(ACHAR *buf, size_t size) const {
  std::wstring s = toString();
  if (!buf || size <= s.size()) return false;
  std::wcscpy(buf, s.c_str());
  return true;
}

const AcDbObjectId AcDbObjectId::kNull;

bool AcDbObjectId::isValid() const {
  return stub_ && stub_->obj;
}
bool AcDbObjectId::isErased() const {
  return stub_ && stub_->obj && stub_->obj->isErased();
}
AcDbDatabase *AcDbObjectId::database() const {
  return stub_ ? stub_->db : nullptr;
}
AcDbHandle AcDbObjectId::handle() const {
  return stub_ ? AcDbHandle(stub_->handle) : AcDbHandle();
}
AcRxClass *AcDbObjectId::objectClass() const {
  return stub_ && stub_->obj ? stub_->obj->isA() : nullptr;
}
bool AcDbObjectId::operator<(const AcDbObjectId &o) const {
  if (!stub_ || !o.stub_) return stub_ < o.stub_;
  if (stub_->db != o.stub_->db) return stub_->db < o.stub_->db;
  return stub_->handle < o.stub_->handle;
}

// --- Objects ---------------------------------------------------------------------------

AcDbObject::AcDbObject() = default;

AcDbObject::AcDbObject(const AcDbObject &other) : AcRxObject() {
  *this = other;
}

AcDbObject &AcDbObject::operator=(const AcDbObject &other) {
  if (this == &other) return *this;
  freeXData();
  for (const XApp &a : other.xdata_) xdata_.push_back({a.name, vantry::host::copyChain(a.items)});
  return *this;
}

AcDbObject::~AcDbObject() {
  freeXData();
}

void AcDbObject::freeXData() {
  for (XApp &a : xdata_) acutRelRb(a.items);
  xdata_.clear();
}

AcDbObjectId AcDbObject::objectId() const {
  return AcDbObjectId(stub_);
}
AcDbDatabase *AcDbObject::database() const {
  return stub_ ? stub_->db : nullptr;
}

Acad::ErrorStatus AcDbObject::setOwnerId(AcDbObjectId owner) {
  owner_ = owner;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbObject::close() {
  if (!stub_) return Acad::eOk;  // not in a database: the maker deletes it
  if (writer_) {
    writer_ = false;
    vantry::host::noteWritten(stub_);
    return Acad::eOk;
  }
  if (readers_ > 0) {
    --readers_;
    return Acad::eOk;
  }
  if (notifiers_ > 0) {
    --notifiers_;
    return Acad::eOk;
  }
  return Acad::eNotOpenForRead;
}

Acad::ErrorStatus AcDbObject::upgradeOpen() {
  if (writer_) return Acad::eWasOpenForWrite;
  if (!stub_) return Acad::eOk;
  if (readers_ == 0) return Acad::eNotOpenForRead;
  if (readers_ > 1) return Acad::eHadMultipleReaders;
  vantry::host::noteChanging(stub_, false);
  readers_ = 0;
  writer_ = true;
  vantry::host::noteWritten(stub_);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbObject::downgradeOpen() {
  if (!writer_) return Acad::eNotOpenForWrite;
  writer_ = false;
  readers_ = 1;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbObject::erase(bool erasing) {
  if (!stub_) return Acad::eNullObjectId;
  if (!writer_) return Acad::eNotOpenForWrite;
  if (erased_ == erasing) return erasing ? Acad::eWasErased : Acad::eWasNotErased;
  erased_ = erasing;
  return Acad::eOk;
}

void AcDbObject::addPersistentReactor(AcDbObjectId id) {
  if (!hasPersistentReactor(id)) reactors_.push_back(id);
}

Acad::ErrorStatus AcDbObject::removePersistentReactor(AcDbObjectId id) {
  auto it = std::find(reactors_.begin(), reactors_.end(), id);
  if (it == reactors_.end()) return Acad::eKeyNotFound;
  reactors_.erase(it);
  return Acad::eOk;
}

bool AcDbObject::hasPersistentReactor(AcDbObjectId id) const {
  return std::find(reactors_.begin(), reactors_.end(), id) != reactors_.end();
}

// The object part of the exchange form: handle, reactors, owner.
Acad::ErrorStatus AcDbObject::dxfOutFields(AcDbDxfFiler *f) const {
  if (stub_) f->writeString(5, handle().toString());
  if (!reactors_.empty()) {
    f->writeString(102, L"{ACAD_REACTORS");
    for (AcDbObjectId r : reactors_) f->writeObjectId(330, r);
    f->writeString(102, L"}");
  }
  f->writeObjectId(330, owner_);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbObject::dxfInFields(AcDbDxfFiler *) {
  return Acad::eOk;
}

// --- Opening -----------------------------------------------------------------------------

namespace {

const int kMaxReaders = 256;

}  // namespace

Acad::ErrorStatus acdbOpenAcDbObject(AcDbObject *&obj, AcDbObjectId id, AcDb::OpenMode mode,
                                     bool openErased) {
  obj = nullptr;
  if (id.isNull()) return Acad::eNullObjectId;
  AcDbObject *o = id.stub()->obj;
  if (!o) return Acad::ePermanentlyErased;
  if (o->isErased() && !openErased) return Acad::eWasErased;
  switch (mode) {
    case AcDb::kForRead:
      if (o->isWriteEnabled()) return Acad::eWasOpenForWrite;
      break;
    case AcDb::kForWrite:
      if (o->isWriteEnabled()) return Acad::eWasOpenForWrite;
      if (o->isReadEnabled()) return Acad::eWasOpenForRead;
      // An entity of a block on a locked layer cannot be changed.
      if (auto *ent = AcDbEntity::cast(o); ent && AcDbBlockTableRecord::cast(vantry::host::objectOf(ent->ownerId())))
        if (auto *layer = AcDbLayerTableRecord::cast(vantry::host::objectOf(ent->layerId())); layer && layer->isLocked())
          return Acad::eOnLockedLayer;
      break;
    case AcDb::kForNotify:
      break;
  }
  Acad::ErrorStatus es = DbAccess::open(o, mode, kMaxReaders);
  if (es == Acad::eOk) obj = o;
  return es;
}

Acad::ErrorStatus acdbOpenObject(AcDbObject *&obj, AcDbObjectId id, AcDb::OpenMode mode, bool openErased) {
  return acdbOpenAcDbObject(obj, id, mode, openErased);
}

Acad::ErrorStatus acdbOpenAcDbEntity(AcDbEntity *&ent, AcDbObjectId id, AcDb::OpenMode mode,
                                     bool openErased) {
  return acdbOpenObject(ent, id, mode, openErased);
}

// --- Entity names --------------------------------------------------------------------------

Acad::ErrorStatus acdbGetAdsName(ads_name &name, AcDbObjectId id) {
  name[0] = name[1] = 0;
  if (id.isNull()) return Acad::eNullObjectId;
  name[0] = int64_t(id.stub()->handle);
  name[1] = id.stub()->db->serial();
  return Acad::eOk;
}

Acad::ErrorStatus acdbGetObjectId(AcDbObjectId &id, const ads_name name) {
  id = AcDbObjectId::kNull;
  if (!name) return Acad::eInvalidAdsName;
  AcDbDatabase *db = vantry::host::databaseBySerial(name[1]);
  if (!db || name[0] <= 0 || uint64_t(name[0]) > db->impl()->stubs.size()) return Acad::eInvalidAdsName;
  id = AcDbObjectId(&db->impl()->stubs[size_t(name[0] - 1)]);
  return Acad::eOk;
}

// --- Colours ------------------------------------------------------------------------------

Acad::ErrorStatus AcCmColor::setColorMethod(AcCmEntityColor::ColorMethod m) {
  method_ = m;
  if (m == AcCmEntityColor::kByLayer) index_ = 256;
  if (m == AcCmEntityColor::kByBlock) index_ = 0;
  if (m == AcCmEntityColor::kForeground) index_ = 7;
  return Acad::eOk;
}

Adesk::UInt16 AcCmColor::colorIndex() const {
  switch (method_) {
    case AcCmEntityColor::kByLayer:
      return 256;
    case AcCmEntityColor::kByBlock:
      return 0;
    case AcCmEntityColor::kByACI:
    case AcCmEntityColor::kForeground:
      return index_;
    default:
      return 256;
  }
}

Acad::ErrorStatus AcCmColor::setColorIndex(Adesk::UInt16 index) {
  if (index > 256) return Acad::eInvalidInput;
  index_ = index;
  method_ = index == 256 ? AcCmEntityColor::kByLayer
            : index == 0 ? AcCmEntityColor::kByBlock
                         : AcCmEntityColor::kByACI;
  return Acad::eOk;
}

Acad::ErrorStatus AcCmColor::setRGB(Adesk::UInt8 r, Adesk::UInt8 g, Adesk::UInt8 b) {
  method_ = AcCmEntityColor::kByColor;
  rgb_ = (uint32_t(r) << 16) | (uint32_t(g) << 8) | b;
  return Acad::eOk;
}

// --- Exchange form ---------------------------------------------------------------------------

void AcDbDxfFiler::writeString(int code, const std::wstring &s) {
  Item it;
  it.code = code;
  it.text = s;
  items_.push_back(std::move(it));
}

void AcDbDxfFiler::writeDouble(int code, double v) {
  Item it;
  it.code = code;
  it.real[0] = v;
  items_.push_back(std::move(it));
}

void AcDbDxfFiler::writeAngle(int code, double radians) {
  writeDouble(code, forFile_ ? radians * 180.0 / M_PI : radians);
}

void AcDbDxfFiler::writeInt16(int code, int v) {
  Item it;
  it.code = code;
  it.integer = v;
  items_.push_back(std::move(it));
}

void AcDbDxfFiler::writeInt32(int code, int32_t v) {
  writeInt16(code, v);
}

void AcDbDxfFiler::writePoint3d(int code, const AcGePoint3d &p) {
  Item it;
  it.code = code;
  it.dims = 3;
  it.real[0] = p.x, it.real[1] = p.y, it.real[2] = p.z;
  items_.push_back(std::move(it));
}

void AcDbDxfFiler::writePoint2d(int code, const AcGePoint2d &p) {
  Item it;
  it.code = code;
  it.dims = 2;
  it.real[0] = p.x, it.real[1] = p.y;
  items_.push_back(std::move(it));
}

void AcDbDxfFiler::writeObjectId(int code, AcDbObjectId id) {
  Item it;
  it.code = code;
  it.id = id;
  items_.push_back(std::move(it));
}

const AcDbDxfFiler::Item *AcDbDxfFiler::find(int code) const {
  for (const Item &it : items_)
    if (it.code == code) return &it;
  return nullptr;
}

bool AcDbDxfFiler::getString(int code, std::wstring &out) const {
  const Item *it = find(code);
  if (!it) return false;
  out = it->text;
  return true;
}

bool AcDbDxfFiler::getDouble(int code, double &out) const {
  const Item *it = find(code);
  if (!it) return false;
  out = it->real[0];
  return true;
}

bool AcDbDxfFiler::getAngle(int code, double &radians) const {
  if (!getDouble(code, radians)) return false;
  if (forFile_) radians = radians * M_PI / 180.0;
  return true;
}

bool AcDbDxfFiler::getInt(int code, int64_t &out) const {
  const Item *it = find(code);
  if (!it) return false;
  out = it->integer;
  return true;
}

bool AcDbDxfFiler::getPoint(int code, AcGePoint3d &out) const {
  const Item *it = find(code);
  if (!it) return false;
  out = AcGePoint3d(it->real[0], it->real[1], it->dims == 3 ? it->real[2] : 0.0);
  return true;
}

bool AcDbDxfFiler::getVector(int code, AcGeVector3d &out) const {
  AcGePoint3d p;
  if (!getPoint(code, p)) return false;
  out = p.asVector();
  return true;
}
