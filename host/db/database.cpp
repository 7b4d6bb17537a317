// The drawing database: its object store, its default contents and settings.
#include <cwctype>
#include <functional>
#include <map>

#include "db/db.h"
#include "common/text.h"

using vantry::host::DbAccess;

namespace vantry::host {

// Chooses the handle an object joins a database with, while a drawing file
// is read into it (0: the next new handle). Declared where it is used
// (host/dxf/internal.h); null removes the chooser.
using HandleChooser = std::function<uint64_t(const AcDbObject *)>;
namespace {
DbEnv *g_dbEnv = nullptr;
}  // namespace

void setDbEnv(DbEnv *env) {
  g_dbEnv = env;
}

DbEnv *dbEnv() {
  return g_dbEnv;
}

void setHandleChooser(const AcDbDatabase *db, HandleChooser chooser);

namespace {

// Databases by serial; a deleted database leaves null behind. Serials are
// never reused, so an entity name of a deleted drawing converts to nothing.
std::vector<AcDbDatabase *> &registry() {
  static auto *r = new std::vector<AcDbDatabase *>();
  return *r;
}

AcDbObjectId addRecord(AcDbDatabase *db, AcDbObjectId table, AcDbSymbolTableRecord *rec,
                       const wchar_t *name) {
  rec->setName(name);
  AcDbObjectId id = DbAccess::addToDatabase(db, rec, table, false);
  DbAccess::addTableRecord(static_cast<AcDbSymbolTable *>(objectOf(table)), upperKey(name), id);
  return id;
}

}  // namespace

AcDbDatabase *databaseBySerial(int64_t serial) {
  auto &r = registry();
  return serial > 0 && size_t(serial) <= r.size() ? r[size_t(serial - 1)] : nullptr;
}

namespace {

std::map<const AcDbDatabase *, HandleChooser> &choosers() {
  static auto *m = new std::map<const AcDbDatabase *, HandleChooser>();
  return *m;
}

// The stub a joining object takes: the free stub of the handle the chooser
// answers (one the reader reserved), else a new one at the end.
AcDbStub *stubFor(AcDbDatabase *db, const AcDbObject *obj) {
  auto &stubs = db->impl()->stubs;
  if (!choosers().empty()) {
    auto it = choosers().find(db);
    uint64_t h = it == choosers().end() ? 0 : it->second(obj);
    if (h > 0 && h <= stubs.size() && !stubs[size_t(h - 1)].obj) return &stubs[size_t(h - 1)];
  }
  stubs.push_back(AcDbStub{db, nullptr, stubs.size() + 1});
  return &stubs.back();
}

}  // namespace

void setHandleChooser(const AcDbDatabase *db, HandleChooser chooser) {
  if (chooser)
    choosers()[db] = std::move(chooser);
  else
    choosers().erase(db);
}

AcDbObjectId DbAccess::addToDatabase(AcDbDatabase *db, AcDbObject *obj, AcDbObjectId owner,
                                     bool openForWrite) {
  AcDbStub *stub = stubFor(db, obj);
  stub->obj = obj;
  obj->stub_ = stub;
  obj->owner_ = owner;
  obj->writer_ = openForWrite;
  obj->readers_ = 0;
  obj->subJoinedDatabase();
  noteWritten(obj->stub_);
  noteChanging(obj->stub_, true);
  return AcDbObjectId(obj->stub_);
}

std::wstring upperKey(std::wstring_view s) {
  return text::upcase(s);
}

bool validSymbolName(std::wstring_view name) {
  if (name.empty() || name.size() > 255) return false;
  for (wchar_t c : name)
    if (std::wcschr(L"<>/\\\":;?*|,=`", c) || c < 32) return false;
  return true;
}

std::wstring recordName(AcDbObjectId id) {
  auto *rec = AcDbSymbolTableRecord::cast(objectOf(id));
  return rec ? rec->name() : std::wstring();
}

AcDbObjectId recordId(AcDbObjectId table, std::wstring_view name) {
  auto *t = AcDbSymbolTable::cast(objectOf(table));
  AcDbObjectId id;
  if (!t || t->getAt(std::wstring(name).c_str(), id) != Acad::eOk) return AcDbObjectId::kNull;
  return id;
}

AcDbObjectId ensureRecord(AcDbObjectId table, AcRxClass *recordClass, std::wstring_view name) {
  AcDbObjectId id = recordId(table, name);
  if (!id.isNull() || !validSymbolName(name)) return id;
  auto *rec = AcDbSymbolTableRecord::cast(recordClass->create());
  if (!rec) return id;
  return addRecord(table.database(), table, rec, std::wstring(name).c_str());
}

AcDbDatabase *workingDatabase() {
  AcDbHostApplicationServices *s = acdbHostApplicationServices();
  return s ? s->workingDatabase() : nullptr;
}

}  // namespace vantry::host

using namespace vantry::host;

AcDbDatabase::AcDbDatabase(bool buildDefaultDrawing, bool) : impl_(new Impl) {
  registerDatabaseClasses();
  registry().push_back(this);
  impl_->serial = int64_t(registry().size());
  impl_->transactions = std::make_unique<AcTransactionManager>(this);
  if (!buildDefaultDrawing) return;

  auto table = [&](AcDbSymbolTable *t) {
    return DbAccess::addToDatabase(this, t, AcDbObjectId::kNull, false);
  };
  impl_->blockTable = table(new AcDbBlockTable);
  impl_->layerTable = table(new AcDbLayerTable);
  impl_->styleTable = table(new AcDbTextStyleTable);
  impl_->linetypeTable = table(new AcDbLinetypeTable);
  impl_->regAppTable = table(new AcDbRegAppTable);

  impl_->byBlock = addRecord(this, impl_->linetypeTable, new AcDbLinetypeTableRecord, L"ByBlock");
  impl_->byLayer = addRecord(this, impl_->linetypeTable, new AcDbLinetypeTableRecord, L"ByLayer");
  auto *solid = new AcDbLinetypeTableRecord;
  solid->setComments(L"Solid line");
  impl_->continuous = addRecord(this, impl_->linetypeTable, solid, L"Continuous");

  auto *zero = new AcDbLayerTableRecord;
  AcCmColor white;
  white.setColorIndex(7);
  zero->setColor(white);
  zero->setLinetypeObjectId(impl_->continuous);
  impl_->clayer = addRecord(this, impl_->layerTable, zero, L"0");

  auto *standard = new AcDbTextStyleTableRecord;
  standard->setFileName(L"txt");
  standard->setXScale(1.0);
  impl_->textstyle = addRecord(this, impl_->styleTable, standard, L"Standard");

  impl_->modelSpace = addRecord(this, impl_->blockTable, new AcDbBlockTableRecord, ACDB_MODEL_SPACE);
  impl_->paperSpace = addRecord(this, impl_->blockTable, new AcDbBlockTableRecord, ACDB_PAPER_SPACE);
  addRecord(this, impl_->regAppTable, new AcDbRegAppTableRecord, L"ACAD");

  impl_->nod = DbAccess::addToDatabase(this, new AcDbDictionary, AcDbObjectId::kNull, true);
  AcDbObjectId groups;
  static_cast<AcDbDictionary *>(objectOf(impl_->nod))->setAt(L"ACAD_GROUP", new AcDbDictionary, groups);
  objectOf(groups)->close();
  objectOf(impl_->nod)->close();
  impl_->groupDict = groups;
  impl_->celtype = impl_->byLayer;
}

AcDbDatabase::~AcDbDatabase() {
  impl_->transactions.reset();
  registry()[size_t(impl_->serial - 1)] = nullptr;
  for (AcDbStub &s : impl_->stubs) {
    delete s.obj;
    s.obj = nullptr;
  }
  delete impl_;
}

int64_t AcDbDatabase::serial() const {
  return impl_->serial;
}

namespace {

template <class T>
Acad::ErrorStatus openTable(AcDbObjectId id, T *&table, AcDb::OpenMode mode) {
  table = nullptr;
  if (id.isNull()) return Acad::eMissingSymbolTable;
  return acdbOpenObject(table, id, mode);
}

}  // namespace

Acad::ErrorStatus AcDbDatabase::getBlockTable(AcDbBlockTable *&t, AcDb::OpenMode m) {
  return openTable(impl_->blockTable, t, m);
}
Acad::ErrorStatus AcDbDatabase::getLayerTable(AcDbLayerTable *&t, AcDb::OpenMode m) {
  return openTable(impl_->layerTable, t, m);
}
Acad::ErrorStatus AcDbDatabase::getTextStyleTable(AcDbTextStyleTable *&t, AcDb::OpenMode m) {
  return openTable(impl_->styleTable, t, m);
}
Acad::ErrorStatus AcDbDatabase::getRegAppTable(AcDbRegAppTable *&t, AcDb::OpenMode m) {
  return openTable(impl_->regAppTable, t, m);
}
Acad::ErrorStatus AcDbDatabase::getLinetypeTable(AcDbLinetypeTable *&t, AcDb::OpenMode m) {
  return openTable(impl_->linetypeTable, t, m);
}
AcDbObjectId AcDbDatabase::blockTableId() const {
  return impl_->blockTable;
}
AcDbObjectId AcDbDatabase::layerTableId() const {
  return impl_->layerTable;
}
AcDbObjectId AcDbDatabase::textStyleTableId() const {
  return impl_->styleTable;
}
AcDbObjectId AcDbDatabase::regAppTableId() const {
  return impl_->regAppTable;
}
AcDbObjectId AcDbDatabase::linetypeTableId() const {
  return impl_->linetypeTable;
}
AcDbObjectId AcDbDatabase::namedObjectsDictionaryId() const {
  return impl_->nod;
}
AcDbObjectId AcDbDatabase::groupDictionaryId() const {
  return impl_->groupDict;
}

Acad::ErrorStatus AcDbDatabase::getNamedObjectsDictionary(AcDbDictionary *&d, AcDb::OpenMode m) {
  return openTable(impl_->nod, d, m);
}
Acad::ErrorStatus AcDbDatabase::getGroupDictionary(AcDbDictionary *&d, AcDb::OpenMode m) {
  return openTable(impl_->groupDict, d, m);
}

Acad::ErrorStatus AcDbDatabase::getAcDbObjectId(AcDbObjectId &id, bool, const AcDbHandle &h, Adesk::UInt32) {
  id = AcDbObjectId::kNull;
  if (h.isNull()) return Acad::eNullHandle;
  if (h.value() > impl_->stubs.size()) return Acad::eUnknownHandle;
  id = AcDbObjectId(&impl_->stubs[size_t(h.value() - 1)]);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbDatabase::addAcDbObject(AcDbObjectId &id, AcDbObject *obj) {
  id = AcDbObjectId::kNull;
  if (!obj) return Acad::eNullObjectPointer;
  if (!obj->objectId().isNull()) return Acad::eAlreadyInDb;
  id = DbAccess::addToDatabase(this, obj, AcDbObjectId::kNull, true);
  return Acad::eOk;
}

Acad::ErrorStatus AcDbDatabase::addAcDbObject(AcDbObject *obj) {
  AcDbObjectId id;
  return addAcDbObject(id, obj);
}

namespace {

// A setting that names a record must name one of this database's table.
Acad::ErrorStatus setRecord(AcDbObjectId &slot, AcDbObjectId id, AcDbObjectId table) {
  if (id.isNull() || !id.isValid()) return Acad::eNullObjectId;
  if (objectOf(id)->ownerId() != table) return Acad::eWrongObjectType;
  slot = id;
  return Acad::eOk;
}

}  // namespace

AcDbObjectId AcDbDatabase::clayer() const {
  return impl_->clayer;
}
Acad::ErrorStatus AcDbDatabase::setClayer(AcDbObjectId id) {
  return setRecord(impl_->clayer, id, impl_->layerTable);
}
AcDbObjectId AcDbDatabase::textstyle() const {
  return impl_->textstyle;
}
Acad::ErrorStatus AcDbDatabase::setTextstyle(AcDbObjectId id) {
  return setRecord(impl_->textstyle, id, impl_->styleTable);
}
AcDbObjectId AcDbDatabase::celtype() const {
  return impl_->celtype;
}
Acad::ErrorStatus AcDbDatabase::setCeltype(AcDbObjectId id) {
  return setRecord(impl_->celtype, id, impl_->linetypeTable);
}
AcCmColor AcDbDatabase::cecolor() const {
  return impl_->cecolor;
}
Acad::ErrorStatus AcDbDatabase::setCecolor(const AcCmColor &c) {
  impl_->cecolor = c;
  return Acad::eOk;
}
double AcDbDatabase::textsize() const {
  return impl_->textsize;
}
Acad::ErrorStatus AcDbDatabase::setTextsize(double s) {
  if (!(s > 0)) return Acad::eInvalidInput;
  impl_->textsize = s;
  return Acad::eOk;
}
AcDbObjectId AcDbDatabase::byLayerLinetype() const {
  return impl_->byLayer;
}
AcDbObjectId AcDbDatabase::byBlockLinetype() const {
  return impl_->byBlock;
}
AcDbObjectId AcDbDatabase::continuousLinetype() const {
  return impl_->continuous;
}
Adesk::Int16 AcDbDatabase::splinesegs() const {
  return impl_->splinesegs;
}
Acad::ErrorStatus AcDbDatabase::setSplinesegs(Adesk::Int16 n) {
  if (n == 0) return Acad::eInvalidInput;
  impl_->splinesegs = n;
  return Acad::eOk;
}
Adesk::Int16 AcDbDatabase::splinetype() const {
  return impl_->splinetype;
}
Acad::ErrorStatus AcDbDatabase::setSplinetype(Adesk::Int16 t) {
  if (t != 5 && t != 6) return Acad::eInvalidInput;
  impl_->splinetype = t;
  return Acad::eOk;
}

AcTransactionManager *AcDbDatabase::transactionManager() const {
  return impl_->transactions.get();
}

AcTransactionManager *acdbWorkingTransactionManager() {
  AcDbDatabase *db = vantry::host::workingDatabase();
  return db ? db->transactionManager() : nullptr;
}
