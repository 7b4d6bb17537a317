// Dictionaries and groups.
#include <algorithm>

#include "db/db.h"

using namespace vantry::host;

// --- Dictionaries -----------------------------------------------------------------------------

int AcDbDictionary::indexOf(const std::wstring &key) const {
  std::wstring k = upperKey(key);
  for (size_t i = 0; i < entries_.size(); ++i)
    if (upperKey(entries_[i].first) == k) return int(i);
  return -1;
}

Acad::ErrorStatus AcDbDictionary::getAt(const ACHAR *key, AcDbObjectId &id) const {
  id = AcDbObjectId::kNull;
  if (!key) return Acad::eInvalidKey;
  int i = indexOf(key);
  if (i < 0 || entries_[i].second.isErased()) return Acad::eKeyNotFound;
  id = entries_[i].second;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbDictionary::getAt(const ACHAR *key, AcDbObject *&obj, AcDb::OpenMode mode) const {
  obj = nullptr;
  AcDbObjectId id;
  if (Acad::ErrorStatus es = getAt(key, id); es != Acad::eOk) return es;
  return acdbOpenObject(obj, id, mode);
}

Acad::ErrorStatus AcDbDictionary::nameAt(AcDbObjectId id, ACHAR *&key) const {
  key = nullptr;
  for (const auto &[name, entry] : entries_)
    if (entry == id) {
      acutNewString(name.c_str(), key);
      return Acad::eOk;
    }
  return Acad::eKeyNotFound;
}

bool AcDbDictionary::has(const ACHAR *key) const {
  AcDbObjectId id;
  return getAt(key, id) == Acad::eOk;
}

bool AcDbDictionary::has(AcDbObjectId id) const {
  for (const auto &e : entries_)
    if (e.second == id && !id.isErased()) return true;
  return false;
}

Acad::ErrorStatus AcDbDictionary::setAt(const ACHAR *key, AcDbObject *obj, AcDbObjectId &id) {
  id = AcDbObjectId::kNull;
  if (!key || !*key) return Acad::eInvalidKey;
  if (!obj) return Acad::eNullObjectPointer;
  if (objectId().isNull()) return Acad::eNullObjectId;
  if (!isWriteEnabled()) return Acad::eNotOpenForWrite;
  if (obj->objectId().isNull()) {
    id = DbAccess::addToDatabase(database(), obj, objectId(), true);
  } else {
    if (obj->database() != database()) return Acad::eWrongDatabase;
    id = obj->objectId();
    DbAccess::setOwner(obj, objectId());
  }
  // The dictionary is its entry's persistent reactor, to hear of its erasure.
  objectOf(id)->addPersistentReactor(objectId());
  int i = indexOf(key);
  if (i >= 0) {
    AcDbObjectId old = entries_[i].second;
    if (old != id && !old.isNull() && objectOf(old)) DbAccess::setErased(objectOf(old), true);
    entries_[i].second = id;
  } else {
    entries_.emplace_back(key, id);
  }
  return Acad::eOk;
}

Acad::ErrorStatus AcDbDictionary::remove(const ACHAR *key) {
  AcDbObjectId id;
  return remove(key, id);
}

Acad::ErrorStatus AcDbDictionary::remove(const ACHAR *key, AcDbObjectId &id) {
  id = AcDbObjectId::kNull;
  if (!key) return Acad::eInvalidKey;
  if (!DbAccess::openForWriteOrNew(this)) return Acad::eNotOpenForWrite;
  int i = indexOf(key);
  if (i < 0) return Acad::eKeyNotFound;
  id = entries_[i].second;
  if (AcDbObject *o = objectOf(id)) {
    DbAccess::setOwner(o, AcDbObjectId::kNull);
    o->removePersistentReactor(objectId());
  }
  entries_.erase(entries_.begin() + i);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbDictionary::setName(const ACHAR *oldName, const ACHAR *newName) {
  if (!oldName || !newName || !*newName) return Acad::eInvalidKey;
  if (!DbAccess::openForWriteOrNew(this)) return Acad::eNotOpenForWrite;
  int i = indexOf(oldName);
  if (i < 0) return Acad::eKeyNotFound;
  int j = indexOf(newName);
  if (j >= 0 && j != i) return Acad::eDuplicateKey;
  entries_[i].first = newName;
  return Acad::eOk;
}

AcDbDictionaryIterator *AcDbDictionary::newIterator() const {
  auto *it = new AcDbDictionaryIterator;
  for (const auto &e : entries_)
    if (!e.second.isErased()) it->entries_.push_back(e);
  return it;
}

// DICTIONARY: 280 hard owner, 281 duplicate record cloning, then each entry
// as 3 key and 350 object.
Acad::ErrorStatus AcDbDictionary::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbObject::dxfOutFields(f);
  f->writeString(100, L"AcDbDictionary");
  f->writeInt16(280, 0);
  f->writeInt16(281, 1);
  for (const auto &[key, id] : entries_) {
    if (id.isErased()) continue;
    f->writeString(3, key);
    f->writeObjectId(350, id);
  }
  return Acad::eOk;
}

const ACHAR *AcDbDictionaryIterator::name() const {
  return done() ? nullptr : entries_[pos_].first.c_str();
}
AcDbObjectId AcDbDictionaryIterator::objectId() const {
  return done() ? AcDbObjectId::kNull : entries_[pos_].second;
}
Acad::ErrorStatus AcDbDictionaryIterator::getObject(AcDbObject *&obj, AcDb::OpenMode mode) {
  obj = nullptr;
  if (done()) return Acad::eInvalidIndex;
  return acdbOpenObject(obj, entries_[pos_].second, mode);
}
bool AcDbDictionaryIterator::next() {
  if (!done()) ++pos_;
  return !done();
}

// --- Groups -------------------------------------------------------------------------------------

AcDbGroup::AcDbGroup(const ACHAR *description, bool selectable)
    : description_(description ? description : L""), selectable_(selectable) {}

Acad::ErrorStatus AcDbGroup::setDescription(const ACHAR *text) {
  if (!DbAccess::openForWriteOrNew(this)) return Acad::eNotOpenForWrite;
  description_ = text ? text : L"";
  return Acad::eOk;
}

Acad::ErrorStatus AcDbGroup::setSelectable(bool selectable) {
  if (!DbAccess::openForWriteOrNew(this)) return Acad::eNotOpenForWrite;
  selectable_ = selectable;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbGroup::getName(ACHAR *&name) const {
  name = nullptr;
  auto *dict = AcDbDictionary::cast(objectOf(ownerId()));
  if (!dict) return Acad::eKeyNotFound;
  return dict->nameAt(objectId(), name);
}

Acad::ErrorStatus AcDbGroup::setAnonymous() {
  if (!DbAccess::openForWriteOrNew(this)) return Acad::eNotOpenForWrite;
  anonymous_ = true;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbGroup::checkMember(AcDbObjectId id) const {
  if (objectId().isNull()) return Acad::eNullObjectId;
  if (!isWriteEnabled()) return Acad::eNotOpenForWrite;
  if (id.isNull()) return Acad::eNullObjectId;
  if (id.database() != database()) return Acad::eWrongDatabase;
  if (!AcDbEntity::cast(objectOf(id))) return Acad::eNotAnEntity;
  if (id.isErased()) return Acad::eWasErased;
  if (std::find(members_.begin(), members_.end(), id) != members_.end()) return Acad::eDuplicateKey;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbGroup::insertAt(Adesk::UInt32 index, AcDbObjectId id) {
  if (Acad::ErrorStatus es = checkMember(id); es != Acad::eOk) return es;
  if (index > members_.size()) return Acad::eInvalidIndex;
  members_.insert(members_.begin() + index, id);
  objectOf(id)->addPersistentReactor(objectId());
  return Acad::eOk;
}

Acad::ErrorStatus AcDbGroup::append(AcDbObjectId id) {
  return insertAt(Adesk::UInt32(members_.size()), id);
}
Acad::ErrorStatus AcDbGroup::prepend(AcDbObjectId id) {
  return insertAt(0, id);
}

Acad::ErrorStatus AcDbGroup::append(const AcDbObjectIdArray &ids) {
  for (AcDbObjectId id : ids)
    if (Acad::ErrorStatus es = append(id); es != Acad::eOk) return es;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbGroup::remove(AcDbObjectId id) {
  if (!isWriteEnabled()) return Acad::eNotOpenForWrite;
  auto it = std::find(members_.begin(), members_.end(), id);
  if (it == members_.end()) return Acad::eKeyNotFound;
  members_.erase(it);
  if (AcDbObject *o = objectOf(id)) o->removePersistentReactor(objectId());
  return Acad::eOk;
}

Acad::ErrorStatus AcDbGroup::removeAt(Adesk::UInt32 index) {
  if (index >= members_.size()) return Acad::eInvalidIndex;
  return remove(members_[index]);
}

Acad::ErrorStatus AcDbGroup::clear() {
  if (!isWriteEnabled()) return Acad::eNotOpenForWrite;
  while (!members_.empty()) remove(members_.back());
  return Acad::eOk;
}

bool AcDbGroup::has(const AcDbEntity *ent) const {
  return ent && !ent->objectId().isNull() &&
         std::find(members_.begin(), members_.end(), ent->objectId()) != members_.end();
}

Acad::ErrorStatus AcDbGroup::getIndex(AcDbObjectId id, Adesk::UInt32 &index) const {
  Adesk::UInt32 i = 0;
  for (AcDbObjectId m : members_) {
    if (m.isErased()) continue;
    if (m == id) {
      index = i;
      return Acad::eOk;
    }
    ++i;
  }
  return Acad::eKeyNotFound;
}

Adesk::UInt32 AcDbGroup::numEntities() const {
  Adesk::UInt32 n = 0;
  for (AcDbObjectId m : members_) n += m.isErased() ? 0 : 1;
  return n;
}

Adesk::UInt32 AcDbGroup::allEntityIds(AcDbObjectIdArray &ids) const {
  ids.removeAll();
  for (AcDbObjectId m : members_)
    if (!m.isErased()) ids.append(m);
  return Adesk::UInt32(ids.length());
}

// GROUP: 300 description, 70 unnamed, 71 selectable, 340 each member.
Acad::ErrorStatus AcDbGroup::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbObject::dxfOutFields(f);
  f->writeString(100, L"AcDbGroup");
  f->writeString(300, description_);
  f->writeInt16(70, anonymous_ ? 1 : 0);
  f->writeInt16(71, selectable_ ? 1 : 0);
  for (AcDbObjectId m : members_)
    if (!m.isErased()) f->writeObjectId(340, m);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbGroup::dxfInFields(AcDbDxfFiler *f) {
  int64_t v;
  f->getString(300, description_);
  if (f->getInt(70, v)) anonymous_ = v != 0;
  if (f->getInt(71, v)) selectable_ = v != 0;
  std::vector<AcDbObjectId> members;
  for (const auto &it : f->items())
    if (it.code == 340 && !it.id.isNull()) members.push_back(it.id);
  if (members.empty() && !f->find(340)) return Acad::eOk;
  if (objectId().isNull()) {
    members_ = members;  // joined later by the maker
    return Acad::eOk;
  }
  bool wasWrite = isWriteEnabled();
  if (!wasWrite) return Acad::eNotOpenForWrite;
  clear();
  for (AcDbObjectId id : members)
    if (Acad::ErrorStatus es = append(id); es != Acad::eOk) return es;
  return Acad::eOk;
}
