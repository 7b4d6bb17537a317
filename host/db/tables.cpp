// Symbol tables and their records, block table records and their iterators.
#include <cwchar>

#include "db/db.h"

using namespace vantry::host;

namespace {

ACHAR *dupString(const std::wstring &s) {
  ACHAR *out = nullptr;
  acutNewString(s.c_str(), out);
  return out;
}

bool writable(const AcDbObject *o) {
  return DbAccess::openForWriteOrNew(o);
}

}  // namespace

void DbAccess::addTableRecord(AcDbSymbolTable *t, const std::wstring &key, AcDbObjectId id) {
  t->byName_[key] = id;
  t->order_.push_back(id);
}

void DbAccess::setTableKey(AcDbSymbolTable *t, const std::wstring &key, AcDbObjectId id) {
  t->byName_[key] = id;
}

void DbAccess::removeTableKey(AcDbSymbolTable *t, const std::wstring &key) {
  t->byName_.erase(key);
}

// --- Records ------------------------------------------------------------------------------

Acad::ErrorStatus AcDbSymbolTableRecord::getName(ACHAR *&name) const {
  name = dupString(name_);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbSymbolTableRecord::getName(const ACHAR *&name) const {
  name = name_.c_str();
  return Acad::eOk;
}

// A resident record is renamed in its table too; a name the table holds
// already is refused.
Acad::ErrorStatus AcDbSymbolTableRecord::setName(const ACHAR *name) {
  if (!name) return Acad::eInvalidInput;
  std::wstring n = name;
  bool anonymous = !n.empty() && n[0] == L'*';
  if (!validSymbolName(anonymous ? std::wstring_view(n).substr(1) : std::wstring_view(n)))
    return Acad::eInvalidSymbolTableName;
  if (!writable(this)) return Acad::eNotOpenForWrite;
  if (auto *table = AcDbSymbolTable::cast(objectOf(ownerId())); table && !objectId().isNull()) {
    if (upperKey(n) != upperKey(name_)) {
      if (table->has(name)) return Acad::eDuplicateRecordName;
      DbAccess::removeTableKey(table, upperKey(name_));
      name_ = n;
      DbAccess::setTableKey(table, upperKey(n), objectId());
      return Acad::eOk;
    }
  }
  name_ = n;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbSymbolTableRecord::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbObject::dxfOutFields(f);
  f->writeString(100, L"AcDbSymbolTableRecord");
  return Acad::eOk;
}

Acad::ErrorStatus AcDbSymbolTableRecord::dxfInFields(AcDbDxfFiler *f) {
  std::wstring n;
  if (f->getString(2, n) && n != name_) return setName(n.c_str());
  return Acad::eOk;
}

AcDbLayerTableRecord::AcDbLayerTableRecord() {
  color_.setColorIndex(7);
}

Acad::ErrorStatus AcDbLayerTableRecord::setIsFrozen(bool v) {
  frozen_ = v;
  return Acad::eOk;
}
Acad::ErrorStatus AcDbLayerTableRecord::setIsPlottable(bool v) {
  plottable_ = v;
  return Acad::eOk;
}
Acad::ErrorStatus AcDbLayerTableRecord::setLineWeight(AcDb::LineWeight w) {
  if (w < AcDb::kLnWtByLwDefault || w > 211) return Acad::eInvalidInput;
  lineWeight_ = w;
  return Acad::eOk;
}
ACHAR *AcDbLayerTableRecord::plotStyleName() const {
  return dupString(plotStyle_);
}
Acad::ErrorStatus AcDbLayerTableRecord::setPlotStyleName(const ACHAR *name) {
  if (!name || !*name) return Acad::eInvalidInput;
  plotStyle_ = name;
  return Acad::eOk;
}

// LAYER: 2 name, 70 flags (1 frozen, 4 locked), 62 colour (negative when
// off; 7 for a true colour, whose 420 follows),
// 6 linetype name, 290 plottable, 370 lineweight.
Acad::ErrorStatus AcDbLayerTableRecord::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbSymbolTableRecord::dxfOutFields(f);
  f->writeString(100, L"AcDbLayerTableRecord");
  f->writeString(2, name());
  f->writeInt16(70, (frozen_ ? 1 : 0) | (locked_ ? 4 : 0));
  int c = color_.isByColor() ? 7 : color_.colorIndex();
  f->writeInt16(62, off_ ? -c : c);
  if (color_.isByColor()) f->writeInt32(420, (color_.red() << 16) | (color_.green() << 8) | color_.blue());
  std::wstring lt = recordName(linetype_);
  f->writeString(6, lt.empty() ? L"Continuous" : lt);
  f->writeBool(290, plottable_);
  f->writeInt16(370, lineWeight_);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbLayerTableRecord::dxfInFields(AcDbDxfFiler *f) {
  if (Acad::ErrorStatus es = AcDbSymbolTableRecord::dxfInFields(f); es != Acad::eOk) return es;
  int64_t v;
  if (f->getInt(70, v)) frozen_ = v & 1, locked_ = (v & 4) != 0;
  if (f->getInt(62, v)) {
    if (v == 0 || v < -255 || v > 255) return Acad::eInvalidInput;
    off_ = v < 0;
    color_.setColorIndex(Adesk::UInt16(v < 0 ? -v : v));
  }
  if (f->getInt(420, v)) color_.setRGB(Adesk::UInt8(v >> 16), Adesk::UInt8(v >> 8), Adesk::UInt8(v));
  std::wstring lt;
  if (f->getString(6, lt) && database()) {
    AcDbObjectId id = recordId(database()->linetypeTableId(), lt);
    if (id.isNull()) return Acad::eKeyNotFound;
    linetype_ = id;
  }
  if (f->getInt(290, v)) plottable_ = v != 0;
  if (f->getInt(370, v)) {
    // Checked before it becomes a lineweight: a number outside the
    // enumeration's range is no value of it at all.
    if (v < AcDb::kLnWtByLwDefault || v > 211) return Acad::eInvalidInput;
    return setLineWeight(AcDb::LineWeight(v));
  }
  return Acad::eOk;
}

Acad::ErrorStatus AcDbTextStyleTableRecord::setFileName(const ACHAR *name) {
  font_ = name ? name : L"";
  return Acad::eOk;
}
Acad::ErrorStatus AcDbTextStyleTableRecord::setBigFontFileName(const ACHAR *name) {
  bigFont_ = name ? name : L"";
  return Acad::eOk;
}
Acad::ErrorStatus AcDbTextStyleTableRecord::setTextSize(double s) {
  if (!(s >= 0)) return Acad::eInvalidInput;
  size_ = s;
  return Acad::eOk;
}
Acad::ErrorStatus AcDbTextStyleTableRecord::setXScale(double s) {
  if (!(s > 0)) return Acad::eInvalidInput;
  xScale_ = s;
  return Acad::eOk;
}
Acad::ErrorStatus AcDbTextStyleTableRecord::setObliquingAngle(double a) {
  oblique_ = a;
  return Acad::eOk;
}
Acad::ErrorStatus AcDbTextStyleTableRecord::setPriorSize(double s) {
  if (!(s > 0)) return Acad::eInvalidInput;
  priorSize_ = s;
  return Acad::eOk;
}

// STYLE: 2 name, 70 flags, 40 fixed height, 41 width factor, 50 obliquing
// angle, 71 generation flags, 42 last height used, 3 font, 4 big font.
Acad::ErrorStatus AcDbTextStyleTableRecord::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbSymbolTableRecord::dxfOutFields(f);
  f->writeString(100, L"AcDbTextStyleTableRecord");
  f->writeString(2, name());
  f->writeInt16(70, flags_);
  f->writeDouble(40, size_);
  f->writeDouble(41, xScale_);
  f->writeAngle(50, oblique_);
  f->writeInt16(71, 0);
  f->writeDouble(42, priorSize_);
  f->writeString(3, font_);
  f->writeString(4, bigFont_);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbTextStyleTableRecord::dxfInFields(AcDbDxfFiler *f) {
  if (Acad::ErrorStatus es = AcDbSymbolTableRecord::dxfInFields(f); es != Acad::eOk) return es;
  double d;
  int64_t i;
  std::wstring s;
  if (f->getDouble(40, d) && setTextSize(d) != Acad::eOk) return Acad::eInvalidInput;
  if (f->getDouble(41, d) && setXScale(d) != Acad::eOk) return Acad::eInvalidInput;
  if (f->getAngle(50, d)) oblique_ = d;
  if (f->getDouble(42, d) && d > 0) priorSize_ = d;
  if (f->getInt(70, i)) flags_ = Adesk::UInt8(i);
  if (f->getString(3, s)) font_ = s;
  if (f->getString(4, s)) bigFont_ = s;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbRegAppTableRecord::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbSymbolTableRecord::dxfOutFields(f);
  f->writeString(100, L"AcDbRegAppTableRecord");
  f->writeString(2, name());
  f->writeInt16(70, 0);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbLinetypeTableRecord::setComments(const ACHAR *text) {
  comments_ = text ? text : L"";
  return Acad::eOk;
}

Acad::ErrorStatus AcDbLinetypeTableRecord::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbSymbolTableRecord::dxfOutFields(f);
  f->writeString(100, L"AcDbLinetypeTableRecord");
  f->writeString(2, name());
  f->writeInt16(70, 0);
  f->writeString(3, comments_);
  f->writeInt16(72, 65);
  f->writeInt16(73, 0);
  f->writeDouble(40, 0.0);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbLinetypeTableRecord::dxfInFields(AcDbDxfFiler *f) {
  if (Acad::ErrorStatus es = AcDbSymbolTableRecord::dxfInFields(f); es != Acad::eOk) return es;
  f->getString(3, comments_);
  return Acad::eOk;
}

// --- Tables ---------------------------------------------------------------------------------

Acad::ErrorStatus AcDbSymbolTable::getAt(const ACHAR *name, AcDbObjectId &id, bool getErased) const {
  id = AcDbObjectId::kNull;
  if (!name) return Acad::eInvalidInput;
  auto it = byName_.find(upperKey(name));
  if (it == byName_.end() || (it->second.isErased() && !getErased)) return Acad::eKeyNotFound;
  id = it->second;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbSymbolTable::getAt(const ACHAR *name, AcDbSymbolTableRecord *&rec, AcDb::OpenMode mode,
                                         bool openErased) const {
  rec = nullptr;
  AcDbObjectId id;
  if (Acad::ErrorStatus es = getAt(name, id, openErased); es != Acad::eOk) return es;
  return acdbOpenObject(rec, id, mode, openErased);
}

bool AcDbSymbolTable::has(const ACHAR *name) const {
  AcDbObjectId id;
  return getAt(name, id) == Acad::eOk;
}

bool AcDbSymbolTable::has(AcDbObjectId id) const {
  return !id.isNull() && !id.isErased() && objectOf(id)->ownerId() == objectId();
}

Acad::ErrorStatus AcDbSymbolTable::add(AcDbSymbolTableRecord *rec) {
  AcDbObjectId id;
  return add(id, rec);
}

Acad::ErrorStatus AcDbSymbolTable::add(AcDbObjectId &id, AcDbSymbolTableRecord *rec) {
  id = AcDbObjectId::kNull;
  if (!rec) return Acad::eNullObjectPointer;
  if (objectId().isNull()) return Acad::eNullObjectId;
  if (!isWriteEnabled()) return Acad::eNotOpenForWrite;
  if (!rec->objectId().isNull()) return Acad::eAlreadyInDb;
  if (!rec->isKindOf(recordClass())) return Acad::eWrongObjectType;
  if (rec->name().empty()) return Acad::eInvalidSymbolTableName;
  std::wstring key = upperKey(rec->name());
  auto it = byName_.find(key);
  if (it != byName_.end() && !it->second.isErased()) return Acad::eDuplicateRecordName;
  id = DbAccess::addToDatabase(database(), rec, objectId(), true);
  DbAccess::addTableRecord(this, key, id);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbSymbolTable::newIterator(AcDbSymbolTableIterator *&it, bool atBeginning,
                                               bool skipDeleted) const {
  it = new AcDbSymbolTableIterator;
  it->ids_ = order_;
  it->start(atBeginning, skipDeleted);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbSymbolTable::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbObject::dxfOutFields(f);
  f->writeString(100, L"AcDbSymbolTable");
  int n = 0;
  for (AcDbObjectId id : order_) n += id.isErased() ? 0 : 1;
  f->writeInt16(70, n);
  return Acad::eOk;
}

void AcDbSymbolTableIterator::start(bool atBeginning, bool skipDeleted) {
  pos_ = atBeginning ? 0 : int(ids_.size()) - 1;
  skip(atBeginning, skipDeleted);
}

void AcDbSymbolTableIterator::step(bool forward, bool skipDeleted) {
  pos_ += forward ? 1 : -1;
  skip(forward, skipDeleted);
}

void AcDbSymbolTableIterator::skip(bool forward, bool skipDeleted) {
  while (skipDeleted && !done() && ids_[pos_].isErased()) pos_ += forward ? 1 : -1;
}

Acad::ErrorStatus AcDbSymbolTableIterator::getRecordId(AcDbObjectId &id) const {
  if (done()) return Acad::eInvalidIndex;
  id = ids_[pos_];
  return Acad::eOk;
}

Acad::ErrorStatus AcDbSymbolTableIterator::getRecord(AcDbSymbolTableRecord *&rec, AcDb::OpenMode mode,
                                                     bool openErased) const {
  rec = nullptr;
  if (done()) return Acad::eInvalidIndex;
  return acdbOpenObject(rec, ids_[pos_], mode, openErased);
}

#define VANTRY_DEFINE_SYMBOL_TABLE(TABLE, RECORD)                                                        \
  Acad::ErrorStatus TABLE::getAt(const ACHAR *name, RECORD *&rec, AcDb::OpenMode mode, bool openErased)  \
      const {                                                                                            \
    rec = nullptr;                                                                                       \
    AcDbObjectId id;                                                                                     \
    if (Acad::ErrorStatus es = AcDbSymbolTable::getAt(name, id, openErased); es != Acad::eOk) return es; \
    return acdbOpenObject(rec, id, mode, openErased);                                                    \
  }                                                                                                      \
  AcRxClass *TABLE::recordClass() const {                                                                \
    return RECORD::desc();                                                                               \
  }

VANTRY_DEFINE_SYMBOL_TABLE(AcDbBlockTable, AcDbBlockTableRecord)
VANTRY_DEFINE_SYMBOL_TABLE(AcDbLayerTable, AcDbLayerTableRecord)
VANTRY_DEFINE_SYMBOL_TABLE(AcDbTextStyleTable, AcDbTextStyleTableRecord)
VANTRY_DEFINE_SYMBOL_TABLE(AcDbRegAppTable, AcDbRegAppTableRecord)
VANTRY_DEFINE_SYMBOL_TABLE(AcDbLinetypeTable, AcDbLinetypeTableRecord)

// --- Block table records ---------------------------------------------------------------------

Acad::ErrorStatus AcDbBlockTableRecord::appendAcDbEntity(AcDbEntity *ent) {
  AcDbObjectId id;
  return appendAcDbEntity(id, ent);
}

Acad::ErrorStatus AcDbBlockTableRecord::appendAcDbEntity(AcDbObjectId &id, AcDbEntity *ent) {
  id = AcDbObjectId::kNull;
  if (!ent) return Acad::eNullEntityPointer;
  if (objectId().isNull()) return Acad::eNullObjectId;
  if (!isWriteEnabled()) return Acad::eNotOpenForWrite;
  if (!ent->objectId().isNull()) return Acad::eAlreadyInDb;
  if (DbEnv *env = dbEnv(); env && env->appendRefused()) return Acad::eOutOfMemory;
  if (ent->layerId().isNull() || ent->layerId().database() != database())
    ent->setDatabaseDefaults(database());
  id = DbAccess::addToDatabase(database(), ent, objectId(), true);
  entities_.push_back(id);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbBlockTableRecord::newIterator(AcDbBlockTableRecordIterator *&it, bool atBeginning,
                                                    bool skipDeleted) const {
  it = new AcDbBlockTableRecordIterator;
  it->ids_ = &entities_;
  it->start(atBeginning, skipDeleted);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbBlockTableRecord::setOrigin(const AcGePoint3d &p) {
  if (!writable(this)) return Acad::eNotOpenForWrite;
  origin_ = p;
  return Acad::eOk;
}

bool AcDbBlockTableRecord::isLayout() const {
  std::wstring key = upperKey(name());
  return key == L"*MODEL_SPACE" || key.rfind(L"*PAPER_SPACE", 0) == 0;
}

// BLOCK_RECORD as entget shows it: 2 name, 70 flags, 10 origin. (The block
// entity's own 10 lives in the BLOCK header of a file.)
Acad::ErrorStatus AcDbBlockTableRecord::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbSymbolTableRecord::dxfOutFields(f);
  f->writeString(100, L"AcDbBlockTableRecord");
  f->writeString(2, name());
  f->writeInt16(70, isAnonymous() ? 1 : 0);
  if (!f->isFile()) f->writePoint3d(10, origin_);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbBlockTableRecord::dxfInFields(AcDbDxfFiler *f) {
  if (Acad::ErrorStatus es = AcDbSymbolTableRecord::dxfInFields(f); es != Acad::eOk) return es;
  f->getPoint(10, origin_);
  return Acad::eOk;
}

void AcDbBlockTableRecordIterator::start(bool atBeginning, bool skipDeleted) {
  pos_ = atBeginning ? 0 : int(ids_->size()) - 1;
  skip(atBeginning, skipDeleted);
}

void AcDbBlockTableRecordIterator::step(bool forward, bool skipDeleted) {
  pos_ += forward ? 1 : -1;
  skip(forward, skipDeleted);
}

void AcDbBlockTableRecordIterator::skip(bool forward, bool skipDeleted) {
  while (skipDeleted && !done() && (*ids_)[pos_].isErased()) pos_ += forward ? 1 : -1;
}

Acad::ErrorStatus AcDbBlockTableRecordIterator::getEntityId(AcDbObjectId &id) const {
  if (done()) return Acad::eInvalidIndex;
  id = (*ids_)[pos_];
  return Acad::eOk;
}

Acad::ErrorStatus AcDbBlockTableRecordIterator::getEntity(AcDbEntity *&ent, AcDb::OpenMode mode,
                                                          bool openErased) const {
  ent = nullptr;
  if (done()) return Acad::eInvalidIndex;
  return acdbOpenObject(ent, (*ids_)[pos_], mode, openErased);
}

Acad::ErrorStatus AcDbBlockTableRecordIterator::seek(AcDbObjectId id) {
  for (size_t i = 0; i < ids_->size(); ++i)
    if ((*ids_)[i] == id) {
      pos_ = int(i);
      return Acad::eOk;
    }
  return Acad::eInvalidInput;
}
