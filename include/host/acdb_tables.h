// The drawing database and its containers: symbol tables and their records,
// block table records with their entity iterators, dictionaries, groups and
// the annotative protocol extension. Part of host/acdb.h; include that.
#pragma once

#include <map>

// --- Symbol tables -------------------------------------------------------------------------

class AcDbSymbolTableRecord : public AcDbObject {
 public:
  ACRX_DECLARE_MEMBERS(AcDbSymbolTableRecord);
  // The caller frees the copy with acutDelString.
  Acad::ErrorStatus getName(ACHAR *&name) const;
  // A pointer into the record, valid while it is open.
  Acad::ErrorStatus getName(const ACHAR *&name) const;
  const std::wstring &name() const { return name_; }
  // Names may not be empty nor hold <>/\":;?*|,=` characters.
  Acad::ErrorStatus setName(const ACHAR *name);
  bool isDependent() const { return false; }
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 private:
  std::wstring name_;
};

class AcDbSymbolTableIterator {
 public:
  void start(bool atBeginning = true, bool skipDeleted = true);
  bool done() const { return pos_ < 0 || pos_ >= int(ids_.size()); }
  void step(bool forward = true, bool skipDeleted = true);
  Acad::ErrorStatus getRecordId(AcDbObjectId &id) const;
  Acad::ErrorStatus getRecord(AcDbSymbolTableRecord *&rec, AcDb::OpenMode mode,
                              bool openErased = false) const;

 private:
  friend class AcDbSymbolTable;
  void skip(bool forward, bool skipDeleted);
  std::vector<AcDbObjectId> ids_;
  int pos_ = 0;
};

// A symbol table: records by case-insensitive name, in the order they were
// added.
class AcDbSymbolTable : public AcDbObject {
 public:
  ACRX_DECLARE_MEMBERS(AcDbSymbolTable);
  Acad::ErrorStatus getAt(const ACHAR *name, AcDbSymbolTableRecord *&rec, AcDb::OpenMode mode,
                          bool openErased = false) const;
  Acad::ErrorStatus getAt(const ACHAR *name, AcDbObjectId &id, bool getErased = false) const;
  Acad::ErrorStatus getIdAt(const ACHAR *name, AcDbObjectId &id, bool getErased = false) const {
    return getAt(name, id, getErased);
  }
  bool has(const ACHAR *name) const;
  bool has(AcDbObjectId id) const;
  // Adds a record (the table must be open for write); the record joins the
  // database open for write and the caller closes it.
  Acad::ErrorStatus add(AcDbSymbolTableRecord *rec);
  Acad::ErrorStatus add(AcDbObjectId &id, AcDbSymbolTableRecord *rec);
  Acad::ErrorStatus newIterator(AcDbSymbolTableIterator *&it, bool atBeginning = true,
                                bool skipDeleted = true) const;
  // The record ids in order, erased records included.
  const std::vector<AcDbObjectId> &recordIds() const { return order_; }
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;

 protected:
  // The record class this table holds.
  virtual AcRxClass *recordClass() const = 0;

 private:
  friend struct vantry::host::DbAccess;
  std::map<std::wstring, AcDbObjectId> byName_;  // upper-case names
  std::vector<AcDbObjectId> order_;
};

// Declares a table class with typed getAt and add for its record class.
#define VANTRY_DECLARE_SYMBOL_TABLE(TABLE, RECORD)                                \
  class RECORD;                                                                   \
  class TABLE : public AcDbSymbolTable {                                          \
   public:                                                                        \
    ACRX_DECLARE_MEMBERS(TABLE);                                                  \
    using AcDbSymbolTable::add;                                                   \
    using AcDbSymbolTable::getAt;                                                 \
    Acad::ErrorStatus getAt(const ACHAR *name, RECORD *&rec, AcDb::OpenMode mode, \
                            bool openErased = false) const;                       \
                                                                                  \
   protected:                                                                     \
    AcRxClass *recordClass() const override;                                      \
  }

VANTRY_DECLARE_SYMBOL_TABLE(AcDbBlockTable, AcDbBlockTableRecord);
VANTRY_DECLARE_SYMBOL_TABLE(AcDbLayerTable, AcDbLayerTableRecord);
VANTRY_DECLARE_SYMBOL_TABLE(AcDbTextStyleTable, AcDbTextStyleTableRecord);
VANTRY_DECLARE_SYMBOL_TABLE(AcDbRegAppTable, AcDbRegAppTableRecord);
VANTRY_DECLARE_SYMBOL_TABLE(AcDbLinetypeTable, AcDbLinetypeTableRecord);

#define ACDB_MODEL_SPACE ACRX_T("*Model_Space")
#define ACDB_PAPER_SPACE ACRX_T("*Paper_Space")

class AcDbBlockTableRecordIterator {
 public:
  void start(bool atBeginning = true, bool skipDeleted = true);
  bool done() const { return pos_ < 0 || pos_ >= int(ids_->size()); }
  void step(bool forward = true, bool skipDeleted = true);
  Acad::ErrorStatus getEntityId(AcDbObjectId &id) const;
  Acad::ErrorStatus getEntity(AcDbEntity *&ent, AcDb::OpenMode mode, bool openErased = false) const;
  Acad::ErrorStatus seek(AcDbObjectId id);

 private:
  friend class AcDbBlockTableRecord;
  void skip(bool forward, bool skipDeleted);
  const std::vector<AcDbObjectId> *ids_ = nullptr;
  int pos_ = 0;
};

// A block definition: model space, paper space or a user block. It holds its
// entities in the order they were appended.
class AcDbBlockTableRecord : public AcDbSymbolTableRecord {
 public:
  ACRX_DECLARE_MEMBERS(AcDbBlockTableRecord);
  // The record must be resident and open for write; the entity must not be in
  // a database. The entity joins open for write (the caller closes it) and
  // takes the database's defaults for what it left unset (its layer).
  Acad::ErrorStatus appendAcDbEntity(AcDbEntity *ent);
  Acad::ErrorStatus appendAcDbEntity(AcDbObjectId &id, AcDbEntity *ent);
  // The iterator walks the record's entity list as it is when it starts.
  Acad::ErrorStatus newIterator(AcDbBlockTableRecordIterator *&it, bool atBeginning = true,
                                bool skipDeleted = true) const;
  AcGePoint3d origin() const { return origin_; }
  Acad::ErrorStatus setOrigin(const AcGePoint3d &p);
  bool isLayout() const;
  bool isAnonymous() const { return !name().empty() && name()[0] == L'*' && !isLayout(); }
  bool hasAttributeDefinitions() const { return false; }
  const std::vector<AcDbObjectId> &entityIds() const { return entities_; }
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 private:
  friend struct vantry::host::DbAccess;
  AcGePoint3d origin_;
  std::vector<AcDbObjectId> entities_;
};

class AcDbLayerTableRecord : public AcDbSymbolTableRecord {
 public:
  ACRX_DECLARE_MEMBERS(AcDbLayerTableRecord);
  AcDbLayerTableRecord();
  AcCmColor color() const { return color_; }
  void setColor(const AcCmColor &c) { color_ = c; }
  bool isFrozen() const { return frozen_; }
  Acad::ErrorStatus setIsFrozen(bool v);
  bool isLocked() const { return locked_; }
  void setIsLocked(bool v) { locked_ = v; }
  bool isOff() const { return off_; }
  void setIsOff(bool v) { off_ = v; }
  bool isPlottable() const { return plottable_; }
  Acad::ErrorStatus setIsPlottable(bool v);
  AcDbObjectId linetypeObjectId() const { return linetype_; }
  void setLinetypeObjectId(AcDbObjectId id) { linetype_ = id; }
  AcDb::LineWeight lineWeight() const { return lineWeight_; }
  Acad::ErrorStatus setLineWeight(AcDb::LineWeight w);
  ACHAR *plotStyleName() const;  // the caller frees it
  Acad::ErrorStatus setPlotStyleName(const ACHAR *name);
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 private:
  AcCmColor color_;
  bool frozen_ = false, locked_ = false, off_ = false, plottable_ = true;
  AcDbObjectId linetype_;
  AcDb::LineWeight lineWeight_ = AcDb::kLnWtByLwDefault;
  std::wstring plotStyle_ = L"Normal";
};

class AcDbTextStyleTableRecord : public AcDbSymbolTableRecord {
 public:
  ACRX_DECLARE_MEMBERS(AcDbTextStyleTableRecord);
  Acad::ErrorStatus fileName(const ACHAR *&name) const {
    name = font_.c_str();
    return Acad::eOk;
  }
  Acad::ErrorStatus setFileName(const ACHAR *name);
  Acad::ErrorStatus bigFontFileName(const ACHAR *&name) const {
    name = bigFont_.c_str();
    return Acad::eOk;
  }
  Acad::ErrorStatus setBigFontFileName(const ACHAR *name);
  double textSize() const { return size_; }
  Acad::ErrorStatus setTextSize(double size);
  double xScale() const { return xScale_; }
  Acad::ErrorStatus setXScale(double scale);
  double obliquingAngle() const { return oblique_; }
  Acad::ErrorStatus setObliquingAngle(double a);
  double priorSize() const { return priorSize_; }
  Acad::ErrorStatus setPriorSize(double s);
  Adesk::UInt8 flagBits() const { return flags_; }
  void setFlagBits(Adesk::UInt8 f) { flags_ = f; }
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 private:
  std::wstring font_ = L"txt", bigFont_;
  double size_ = 0, xScale_ = 1, oblique_ = 0, priorSize_ = 2.5;
  Adesk::UInt8 flags_ = 0;
};

class AcDbRegAppTableRecord : public AcDbSymbolTableRecord {
 public:
  ACRX_DECLARE_MEMBERS(AcDbRegAppTableRecord);
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
};

class AcDbLinetypeTableRecord : public AcDbSymbolTableRecord {
 public:
  ACRX_DECLARE_MEMBERS(AcDbLinetypeTableRecord);
  Acad::ErrorStatus comments(const ACHAR *&text) const {
    text = comments_.c_str();
    return Acad::eOk;
  }
  Acad::ErrorStatus setComments(const ACHAR *text);
  double patternLength() const { return 0; }
  int numDashes() const { return 0; }
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 private:
  std::wstring comments_;
};

// --- Dictionaries and groups ---------------------------------------------------------------

class AcDbDictionaryIterator {
 public:
  const ACHAR *name() const;
  AcDbObjectId objectId() const;
  Acad::ErrorStatus getObject(AcDbObject *&obj, AcDb::OpenMode mode);
  bool done() const { return pos_ >= entries_.size(); }
  bool next();

 private:
  friend class AcDbDictionary;
  std::vector<std::pair<std::wstring, AcDbObjectId>> entries_;
  size_t pos_ = 0;
};

// Named entries, keys compared without case, kept in the order they were set.
// The dictionary owns its entries.
class AcDbDictionary : public AcDbObject {
 public:
  ACRX_DECLARE_MEMBERS(AcDbDictionary);
  Acad::ErrorStatus getAt(const ACHAR *key, AcDbObject *&obj, AcDb::OpenMode mode) const;
  Acad::ErrorStatus getAt(const ACHAR *key, AcDbObjectId &id) const;
  Acad::ErrorStatus nameAt(AcDbObjectId id, ACHAR *&key) const;  // the caller frees key
  bool has(const ACHAR *key) const;
  bool has(AcDbObjectId id) const;
  Adesk::UInt32 numEntries() const { return Adesk::UInt32(entries_.size()); }
  // Puts an object under a key (the dictionary must be resident and open for
  // write). A new object joins the database and stays open for write: the
  // caller closes it. An object already under the key is replaced and erased.
  Acad::ErrorStatus setAt(const ACHAR *key, AcDbObject *obj, AcDbObjectId &id);
  // Removes the entry; the object stays in the database, without an owner.
  Acad::ErrorStatus remove(const ACHAR *key);
  Acad::ErrorStatus remove(const ACHAR *key, AcDbObjectId &id);
  Acad::ErrorStatus setName(const ACHAR *oldName, const ACHAR *newName);
  // The caller deletes the iterator.
  AcDbDictionaryIterator *newIterator() const;
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;

 private:
  int indexOf(const std::wstring &key) const;
  std::vector<std::pair<std::wstring, AcDbObjectId>> entries_;
};

// An ordered collection of entities, named by its key in the group dictionary.
// Members follow the group through a persistent reactor; an erased member
// stays listed but is skipped.
class AcDbGroup : public AcDbObject {
 public:
  ACRX_DECLARE_MEMBERS(AcDbGroup);
  explicit AcDbGroup(const ACHAR *description = nullptr, bool selectable = true);
  const ACHAR *description() const { return description_.c_str(); }
  Acad::ErrorStatus setDescription(const ACHAR *text);
  bool isSelectable() const { return selectable_; }
  Acad::ErrorStatus setSelectable(bool selectable);
  // The key under which the group dictionary holds the group; the caller
  // frees it.
  Acad::ErrorStatus getName(ACHAR *&name) const;
  bool isAnonymous() const { return anonymous_; }
  Acad::ErrorStatus setAnonymous();
  // Members: the group must be resident and open for write; an entity may
  // appear once, and must be in the same database.
  Acad::ErrorStatus append(AcDbObjectId id);
  Acad::ErrorStatus append(const AcDbObjectIdArray &ids);
  Acad::ErrorStatus prepend(AcDbObjectId id);
  Acad::ErrorStatus insertAt(Adesk::UInt32 index, AcDbObjectId id);
  Acad::ErrorStatus remove(AcDbObjectId id);
  Acad::ErrorStatus removeAt(Adesk::UInt32 index);
  Acad::ErrorStatus clear();
  bool has(const AcDbEntity *ent) const;
  Acad::ErrorStatus getIndex(AcDbObjectId id, Adesk::UInt32 &index) const;
  // Members that are not erased, in order.
  Adesk::UInt32 numEntities() const;
  Adesk::UInt32 allEntityIds(AcDbObjectIdArray &ids) const;
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 private:
  Acad::ErrorStatus checkMember(AcDbObjectId id) const;
  std::wstring description_;
  bool selectable_ = true;
  bool anonymous_ = false;
  std::vector<AcDbObjectId> members_;
};

// --- The database ------------------------------------------------------------------------

// A drawing. A new one holds layer "0", linetypes ByBlock, ByLayer and
// Continuous, text style "Standard" (font "txt", width factor 1), the
// blocks *Model_Space and *Paper_Space, the registered application "ACAD"
// and the named object dictionary with its "ACAD_GROUP" dictionary.
class AcDbDatabase : public AcRxObject {
 public:
  ACRX_DECLARE_MEMBERS(AcDbDatabase);
  explicit AcDbDatabase(bool buildDefaultDrawing = true, bool noDocument = false);
  ~AcDbDatabase() override;
  AcDbDatabase(const AcDbDatabase &) = delete;
  AcDbDatabase &operator=(const AcDbDatabase &) = delete;

  Acad::ErrorStatus getBlockTable(AcDbBlockTable *&table, AcDb::OpenMode mode);
  Acad::ErrorStatus getLayerTable(AcDbLayerTable *&table, AcDb::OpenMode mode);
  Acad::ErrorStatus getTextStyleTable(AcDbTextStyleTable *&table, AcDb::OpenMode mode);
  Acad::ErrorStatus getRegAppTable(AcDbRegAppTable *&table, AcDb::OpenMode mode);
  Acad::ErrorStatus getLinetypeTable(AcDbLinetypeTable *&table, AcDb::OpenMode mode);
  Acad::ErrorStatus getSymbolTable(AcDbBlockTable *&t, AcDb::OpenMode m) { return getBlockTable(t, m); }
  Acad::ErrorStatus getSymbolTable(AcDbLayerTable *&t, AcDb::OpenMode m) { return getLayerTable(t, m); }
  Acad::ErrorStatus getSymbolTable(AcDbTextStyleTable *&t, AcDb::OpenMode m) {
    return getTextStyleTable(t, m);
  }
  Acad::ErrorStatus getSymbolTable(AcDbRegAppTable *&t, AcDb::OpenMode m) { return getRegAppTable(t, m); }
  Acad::ErrorStatus getSymbolTable(AcDbLinetypeTable *&t, AcDb::OpenMode m) { return getLinetypeTable(t, m); }
  AcDbObjectId blockTableId() const;
  AcDbObjectId layerTableId() const;
  AcDbObjectId textStyleTableId() const;
  AcDbObjectId regAppTableId() const;
  AcDbObjectId linetypeTableId() const;

  AcDbObjectId namedObjectsDictionaryId() const;
  AcDbObjectId groupDictionaryId() const;
  Acad::ErrorStatus getNamedObjectsDictionary(AcDbDictionary *&dict, AcDb::OpenMode mode);
  Acad::ErrorStatus getGroupDictionary(AcDbDictionary *&dict, AcDb::OpenMode mode);

  // The id of the object with a handle; eUnknownHandle when there is none.
  Acad::ErrorStatus getAcDbObjectId(AcDbObjectId &id, bool createIfNotFound, const AcDbHandle &handle,
                                    Adesk::UInt32 xRefId = 0);
  // Adds an object without an owner; it joins open for write (the caller closes it).
  Acad::ErrorStatus addAcDbObject(AcDbObjectId &id, AcDbObject *obj);
  Acad::ErrorStatus addAcDbObject(AcDbObject *obj);

  // Defaults that new entities take (setDatabaseDefaults).
  AcDbObjectId clayer() const;
  Acad::ErrorStatus setClayer(AcDbObjectId layer);
  AcDbObjectId textstyle() const;
  Acad::ErrorStatus setTextstyle(AcDbObjectId style);
  AcDbObjectId celtype() const;
  Acad::ErrorStatus setCeltype(AcDbObjectId linetype);
  AcCmColor cecolor() const;
  Acad::ErrorStatus setCecolor(const AcCmColor &color);
  double textsize() const;
  Acad::ErrorStatus setTextsize(double size);
  AcDbObjectId byLayerLinetype() const;
  AcDbObjectId byBlockLinetype() const;
  AcDbObjectId continuousLinetype() const;
  // Spline fitting of 2D polylines: segments per span and 5 quadratic / 6 cubic.
  Adesk::Int16 splinesegs() const;
  Acad::ErrorStatus setSplinesegs(Adesk::Int16 n);
  Adesk::Int16 splinetype() const;
  Acad::ErrorStatus setSplinetype(Adesk::Int16 type);

  AcTransactionManager *transactionManager() const;

  // The stand-in's own: the serial that entity names carry, and the store.
  int64_t serial() const;
  struct Impl;
  Impl *impl() const { return impl_; }

 private:
  Impl *impl_;
};

// --- Protocol extensions -----------------------------------------------------------------

// Annotative scaling of an object. The host registers one for text, MText,
// leaders and block definitions on their class descriptors; get it with
// AcDbAnnotativeObjectPE::cast(obj->isA()->queryX(AcDbAnnotativeObjectPE::desc())).
// The setting is kept as the object's "AcadAnnotative" extended data.
class AcDbAnnotativeObjectPE : public AcRxObject {
 public:
  ACRX_DECLARE_MEMBERS(AcDbAnnotativeObjectPE);
  virtual bool annotative(AcDbObject *obj) const;
  // The object must be resident and open for write.
  virtual Acad::ErrorStatus setAnnotative(AcDbObject *obj, bool annotative);
};
