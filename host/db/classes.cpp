// Class descriptors of the database classes, copying by class, the
// annotative protocol extension and transactions.
#include <unordered_map>

#include "db/db.h"

using namespace vantry::host;

namespace {

// How objects of a class are copied: a new copy, and assignment onto an
// object of the same class. Classes without them cannot be cloned or
// restored by a transaction abort.
struct Copier {
  AcDbObject *(*clone)(const AcDbObject *) = nullptr;
  void (*assign)(AcDbObject *, const AcDbObject *) = nullptr;
};

std::unordered_map<const AcRxClass *, Copier> &copiers() {
  static auto *m = new std::unordered_map<const AcRxClass *, Copier>();
  return *m;
}

template <class T>
AcRxObject *make() {
  return new T();
}

template <class T>
void registerCopier(AcRxClass *cls) {
  copiers()[cls] =
      Copier{[](const AcDbObject *o) -> AcDbObject * { return new T(*static_cast<const T *>(o)); },
             [](AcDbObject *d, const AcDbObject *s) { *static_cast<T *>(d) = *static_cast<const T *>(s); }};
}

}  // namespace

// Descriptors are made once, parents first, and never deleted; desc() caches them.
#define VANTRY_DB_MEMBERS(CLASS, PARENT, DXF, CTOR, COPY)                    \
  namespace {                                                                \
  AcRxClass *g_##CLASS = nullptr;                                            \
  }                                                                          \
  AcRxClass *CLASS::desc() {                                                 \
    if (!g_##CLASS) registerDatabaseClasses();                               \
    return g_##CLASS;                                                        \
  }                                                                          \
  AcRxClass *CLASS::isA() const {                                            \
    return CLASS::desc();                                                    \
  }                                                                          \
  void CLASS::rxInit() {                                                     \
    if (g_##CLASS) return;                                                   \
    g_##CLASS = newAcRxClass(ACRX_T(#CLASS), ACRX_T(#PARENT), 0, CTOR, DXF); \
    COPY;                                                                    \
  }

#define NO_COPY (void)0
#define COPIES(CLASS) registerCopier<CLASS>(g_##CLASS)

VANTRY_DB_MEMBERS(AcDbObject, AcRxObject, nullptr, nullptr, NO_COPY)
VANTRY_DB_MEMBERS(AcDbDatabase, AcRxObject, nullptr, nullptr, NO_COPY)
VANTRY_DB_MEMBERS(AcTransaction, AcRxObject, nullptr, nullptr, NO_COPY)
VANTRY_DB_MEMBERS(AcDbTransactionManager, AcRxObject, nullptr, nullptr, NO_COPY)
VANTRY_DB_MEMBERS(AcDbAnnotativeObjectPE, AcRxObject, nullptr, nullptr, NO_COPY)
VANTRY_DB_MEMBERS(AcDbSymbolTable, AcDbObject, L"TABLE", nullptr, NO_COPY)
VANTRY_DB_MEMBERS(AcDbBlockTable, AcDbSymbolTable, L"TABLE", make<AcDbBlockTable>, NO_COPY)
VANTRY_DB_MEMBERS(AcDbLayerTable, AcDbSymbolTable, L"TABLE", make<AcDbLayerTable>, NO_COPY)
VANTRY_DB_MEMBERS(AcDbTextStyleTable, AcDbSymbolTable, L"TABLE", make<AcDbTextStyleTable>, NO_COPY)
VANTRY_DB_MEMBERS(AcDbRegAppTable, AcDbSymbolTable, L"TABLE", make<AcDbRegAppTable>, NO_COPY)
VANTRY_DB_MEMBERS(AcDbLinetypeTable, AcDbSymbolTable, L"TABLE", make<AcDbLinetypeTable>, NO_COPY)
VANTRY_DB_MEMBERS(AcDbSymbolTableRecord, AcDbObject, nullptr, nullptr, NO_COPY)
VANTRY_DB_MEMBERS(AcDbBlockTableRecord, AcDbSymbolTableRecord, L"BLOCK_RECORD", make<AcDbBlockTableRecord>,
                  COPIES(AcDbBlockTableRecord))
VANTRY_DB_MEMBERS(AcDbLayerTableRecord, AcDbSymbolTableRecord, L"LAYER", make<AcDbLayerTableRecord>,
                  COPIES(AcDbLayerTableRecord))
VANTRY_DB_MEMBERS(AcDbTextStyleTableRecord, AcDbSymbolTableRecord, L"STYLE", make<AcDbTextStyleTableRecord>,
                  COPIES(AcDbTextStyleTableRecord))
VANTRY_DB_MEMBERS(AcDbRegAppTableRecord, AcDbSymbolTableRecord, L"APPID", make<AcDbRegAppTableRecord>,
                  COPIES(AcDbRegAppTableRecord))
VANTRY_DB_MEMBERS(AcDbLinetypeTableRecord, AcDbSymbolTableRecord, L"LTYPE", make<AcDbLinetypeTableRecord>,
                  COPIES(AcDbLinetypeTableRecord))
VANTRY_DB_MEMBERS(AcDbDictionary, AcDbObject, L"DICTIONARY", make<AcDbDictionary>, COPIES(AcDbDictionary))
VANTRY_DB_MEMBERS(AcDbGroup, AcDbObject, L"GROUP", make<AcDbGroup>, COPIES(AcDbGroup))
VANTRY_DB_MEMBERS(AcDbEntity, AcDbObject, nullptr, nullptr, NO_COPY)
VANTRY_DB_MEMBERS(AcDbCurve, AcDbEntity, nullptr, nullptr, NO_COPY)
VANTRY_DB_MEMBERS(AcDbLine, AcDbCurve, L"LINE", make<AcDbLine>, COPIES(AcDbLine))
VANTRY_DB_MEMBERS(AcDbCircle, AcDbCurve, L"CIRCLE", make<AcDbCircle>, COPIES(AcDbCircle))
VANTRY_DB_MEMBERS(AcDbArc, AcDbCurve, L"ARC", make<AcDbArc>, COPIES(AcDbArc))
VANTRY_DB_MEMBERS(AcDbPolyline, AcDbCurve, L"LWPOLYLINE", make<AcDbPolyline>, COPIES(AcDbPolyline))
VANTRY_DB_MEMBERS(AcDbVertex, AcDbEntity, nullptr, nullptr, NO_COPY)
VANTRY_DB_MEMBERS(AcDb2dVertex, AcDbVertex, L"VERTEX", make<AcDb2dVertex>, COPIES(AcDb2dVertex))
VANTRY_DB_MEMBERS(AcDb3dPolylineVertex, AcDbVertex, L"VERTEX", make<AcDb3dPolylineVertex>,
                  COPIES(AcDb3dPolylineVertex))
VANTRY_DB_MEMBERS(AcDbSequenceEnd, AcDbEntity, L"SEQEND", make<AcDbSequenceEnd>, COPIES(AcDbSequenceEnd))
VANTRY_DB_MEMBERS(AcDb2dPolyline, AcDbCurve, L"POLYLINE", make<AcDb2dPolyline>, NO_COPY)
VANTRY_DB_MEMBERS(AcDb3dPolyline, AcDbCurve, L"POLYLINE", make<AcDb3dPolyline>, NO_COPY)
VANTRY_DB_MEMBERS(AcDbMText, AcDbEntity, L"MTEXT", make<AcDbMText>, COPIES(AcDbMText))
VANTRY_DB_MEMBERS(AcDbLeader, AcDbCurve, L"LEADER", make<AcDbLeader>, COPIES(AcDbLeader))
VANTRY_DB_MEMBERS(AcDbFace, AcDbEntity, L"3DFACE", make<AcDbFace>, COPIES(AcDbFace))
VANTRY_DB_MEMBERS(AcDbBlockReference, AcDbEntity, L"INSERT", make<AcDbBlockReference>,
                  COPIES(AcDbBlockReference))
VANTRY_DB_MEMBERS(AcDbMInsertBlock, AcDbBlockReference, L"INSERT", make<AcDbMInsertBlock>,
                  COPIES(AcDbMInsertBlock))
VANTRY_DB_MEMBERS(AcDbText, AcDbEntity, L"TEXT", make<AcDbText>, COPIES(AcDbText))
VANTRY_DB_MEMBERS(AcDbAttributeDefinition, AcDbText, L"ATTDEF", make<AcDbAttributeDefinition>,
                  COPIES(AcDbAttributeDefinition))
VANTRY_DB_MEMBERS(AcDbAttribute, AcDbText, L"ATTRIB", make<AcDbAttribute>, COPIES(AcDbAttribute))
VANTRY_DB_MEMBERS(AcDbPoint, AcDbEntity, L"POINT", make<AcDbPoint>, COPIES(AcDbPoint))
VANTRY_DB_MEMBERS(AcDbSolid, AcDbEntity, L"SOLID", make<AcDbSolid>, COPIES(AcDbSolid))
VANTRY_DB_MEMBERS(AcDbTrace, AcDbSolid, L"TRACE", make<AcDbTrace>, COPIES(AcDbTrace))
VANTRY_DB_MEMBERS(AcDbEllipse, AcDbCurve, L"ELLIPSE", make<AcDbEllipse>, COPIES(AcDbEllipse))
VANTRY_DB_MEMBERS(AcDbSpline, AcDbCurve, L"SPLINE", make<AcDbSpline>, COPIES(AcDbSpline))
VANTRY_DB_MEMBERS(AcDbXline, AcDbEntity, L"XLINE", make<AcDbXline>, COPIES(AcDbXline))
VANTRY_DB_MEMBERS(AcDbRay, AcDbXline, L"RAY", make<AcDbRay>, COPIES(AcDbRay))
VANTRY_DB_MEMBERS(AcDbGroupedEntity, AcDbEntity, nullptr, nullptr, NO_COPY)
VANTRY_DB_MEMBERS(AcDbHatch, AcDbGroupedEntity, L"HATCH", make<AcDbHatch>, COPIES(AcDbHatch))
VANTRY_DB_MEMBERS(AcDbDimension, AcDbGroupedEntity, L"DIMENSION", make<AcDbDimension>, COPIES(AcDbDimension))
// Each object names its own file type (VerbatimEntity::dxfType).
VANTRY_DB_MEMBERS(VerbatimEntity, AcDbEntity, nullptr, make<VerbatimEntity>, COPIES(VerbatimEntity))
VANTRY_DB_MEMBERS(VerbatimObject, AcDbObject, nullptr, make<VerbatimObject>, COPIES(VerbatimObject))

namespace vantry::host {

void registerDatabaseClasses() {
  static bool done = false;
  if (done) return;
  done = true;
  AcDbObject::rxInit();
  AcDbDatabase::rxInit();
  AcTransaction::rxInit();
  AcDbTransactionManager::rxInit();
  AcDbAnnotativeObjectPE::rxInit();
  AcDbSymbolTable::rxInit();
  AcDbBlockTable::rxInit();
  AcDbLayerTable::rxInit();
  AcDbTextStyleTable::rxInit();
  AcDbRegAppTable::rxInit();
  AcDbLinetypeTable::rxInit();
  AcDbSymbolTableRecord::rxInit();
  AcDbBlockTableRecord::rxInit();
  AcDbLayerTableRecord::rxInit();
  AcDbTextStyleTableRecord::rxInit();
  AcDbRegAppTableRecord::rxInit();
  AcDbLinetypeTableRecord::rxInit();
  AcDbDictionary::rxInit();
  AcDbGroup::rxInit();
  AcDbEntity::rxInit();
  AcDbCurve::rxInit();
  AcDbLine::rxInit();
  AcDbCircle::rxInit();
  AcDbArc::rxInit();
  AcDbPolyline::rxInit();
  AcDbVertex::rxInit();
  AcDb2dVertex::rxInit();
  AcDb3dPolylineVertex::rxInit();
  AcDbSequenceEnd::rxInit();
  AcDb2dPolyline::rxInit();
  AcDb3dPolyline::rxInit();
  AcDbMText::rxInit();
  AcDbLeader::rxInit();
  AcDbFace::rxInit();
  AcDbBlockReference::rxInit();
  AcDbMInsertBlock::rxInit();
  AcDbText::rxInit();
  AcDbAttributeDefinition::rxInit();
  AcDbAttribute::rxInit();
  AcDbPoint::rxInit();
  AcDbSolid::rxInit();
  AcDbTrace::rxInit();
  AcDbEllipse::rxInit();
  AcDbSpline::rxInit();
  AcDbXline::rxInit();
  AcDbRay::rxInit();
  AcDbGroupedEntity::rxInit();
  AcDbHatch::rxInit();
  AcDbDimension::rxInit();
  VerbatimEntity::rxInit();
  VerbatimObject::rxInit();

  // The annotative protocol for the classes that support it; never freed.
  static auto *pe = new AcDbAnnotativeObjectPE();
  AcDbMText::desc()->addX(AcDbAnnotativeObjectPE::desc(), pe);
  AcDbLeader::desc()->addX(AcDbAnnotativeObjectPE::desc(), pe);
  AcDbBlockTableRecord::desc()->addX(AcDbAnnotativeObjectPE::desc(), pe);
}

namespace {
// Registered when the host library loads, so modules find the classes by name.
const bool registered = (registerDatabaseClasses(), true);
}  // namespace

}  // namespace vantry::host

AcRxObject *AcDbObject::clone() const {
  auto it = copiers().find(isA());
  if (it == copiers().end() || !it->second.clone) return nullptr;
  return it->second.clone(this);
}

Acad::ErrorStatus AcDbObject::copyFrom(const AcRxObject *other) {
  auto *o = AcDbObject::cast(other);
  if (!o || o->isA() != isA()) return Acad::eWrongObjectType;
  auto it = copiers().find(isA());
  if (it == copiers().end() || !it->second.assign) return Acad::eNotApplicable;
  it->second.assign(this, o);
  return Acad::eOk;
}

// --- Annotative protocol -------------------------------------------------------------------------

namespace {

const wchar_t kAnnoApp[] = L"AcadAnnotative";

}  // namespace

// Kept as the host keeps it: "AcadAnnotative" data ("AnnotativeData" { 1 flag }).
bool AcDbAnnotativeObjectPE::annotative(AcDbObject *obj) const {
  if (!obj) return false;
  resbuf *xd = obj->xData(kAnnoApp);
  bool on = false;
  int shorts = 0;
  for (resbuf *p = xd; p; p = p->rbnext)
    if (p->restype == 1070 && ++shorts == 2) on = p->resval.rint == 1;
  acutRelRb(xd);
  return on;
}

Acad::ErrorStatus AcDbAnnotativeObjectPE::setAnnotative(AcDbObject *obj, bool on) {
  if (!obj) return Acad::eNullObjectPointer;
  if (obj->objectId().isNull()) return Acad::eNullObjectId;
  if (!obj->isWriteEnabled()) return Acad::eNotOpenForWrite;
  ensureRecord(obj->database()->regAppTableId(), AcDbRegAppTableRecord::desc(), kAnnoApp);
  resbuf *rb = acutBuildList(1001, kAnnoApp, 1000, L"AnnotativeData", 1002, L"{", 1070, 1, 1070, on ? 1 : 0,
                             1002, L"}", 0);
  Acad::ErrorStatus es = obj->setXData(rb);
  acutRelRb(rb);
  return es;
}

// --- Transactions ---------------------------------------------------------------------------------

Acad::ErrorStatus AcTransaction::getObject(AcDbObject *&obj, AcDbObjectId id, AcDb::OpenMode mode,
                                           bool openErased) {
  obj = nullptr;
  if (!manager_) return Acad::eInvalidContext;
  return manager_->getIn(this, obj, id, mode, openErased);
}

AcDbTransactionManager::~AcDbTransactionManager() {
  while (!stack_.empty()) endTransaction();
}

AcTransaction *AcDbTransactionManager::startTransaction() {
  stack_.push_back(std::make_unique<AcTransaction>());
  stack_.back()->manager_ = this;
  return stack_.back().get();
}

Acad::ErrorStatus AcDbTransactionManager::getObject(AcDbObject *&obj, AcDbObjectId id, AcDb::OpenMode mode,
                                                    bool openErased) {
  obj = nullptr;
  if (stack_.empty()) return Acad::eInvalidContext;
  return getIn(stack_.back().get(), obj, id, mode, openErased);
}

// An object is held by one transaction at a time; getting it again answers
// the same pointer, upgraded to write when asked.
Acad::ErrorStatus AcDbTransactionManager::getIn(AcTransaction *t, AcDbObject *&obj, AcDbObjectId id,
                                                AcDb::OpenMode mode, bool openErased) {
  obj = nullptr;
  if (id.isNull()) return Acad::eNullObjectId;
  for (auto &tr : stack_)
    for (AcTransaction::Entry &e : tr->entries_) {
      if (e.obj->objectId() != id) continue;
      if (e.obj->isErased() && !openErased) return Acad::eWasErased;
      if (mode == AcDb::kForWrite && !e.write) {
        if (Acad::ErrorStatus es = e.obj->upgradeOpen(); es != Acad::eOk) return es;
        e.write = true;
        e.before = e.obj->clone();
        e.wasErased = e.obj->isErased();
      }
      obj = e.obj;
      return Acad::eOk;
    }
  AcDbObject *o = nullptr;
  AcDb::OpenMode m = mode == AcDb::kForWrite ? AcDb::kForWrite : AcDb::kForRead;
  if (Acad::ErrorStatus es = acdbOpenAcDbObject(o, id, m, openErased); es != Acad::eOk) return es;
  t->entries_.push_back(
      {o, m == AcDb::kForWrite, m == AcDb::kForWrite ? o->clone() : nullptr, o->isErased()});
  obj = o;
  return Acad::eOk;
}

Acad::ErrorStatus AcDbTransactionManager::endTransaction() {
  if (stack_.empty()) return Acad::eInvalidContext;
  std::unique_ptr<AcTransaction> t = std::move(stack_.back());
  stack_.pop_back();
  if (!stack_.empty()) {
    auto &outer = stack_.back()->entries_;
    outer.insert(outer.end(), t->entries_.begin(), t->entries_.end());
    return Acad::eOk;
  }
  for (AcTransaction::Entry &e : t->entries_) {
    delete e.before;
    e.obj->close();
  }
  return Acad::eOk;
}

Acad::ErrorStatus AcDbTransactionManager::abortTransaction() {
  if (stack_.empty()) return Acad::eInvalidContext;
  std::unique_ptr<AcTransaction> t = std::move(stack_.back());
  stack_.pop_back();
  for (AcTransaction::Entry &e : t->entries_) {
    if (e.before) e.obj->copyFrom(e.before);
    if (e.write) DbAccess::setErased(e.obj, e.wasErased);
    delete e.before;
    e.obj->close();
  }
  return Acad::eOk;
}
