// The drawing database's insides, shared by the host/db/*.cpp files and the
// stand-in's LISP entity functions. Module code never includes this.
//
// Store: a database keeps one AcDbStub per object it ever held, in a deque
// (stable addresses), in the order the objects joined. An object's handle is
// its stub's index + 1, so a handle or entity name converts to an id in
// constant time, and handles are never reused. An erased object keeps its
// stub and its object until the database goes.
#pragma once

#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/acdb.h"

namespace vantry::lisp {
class Interp;
}

struct AcDbStub {
  AcDbDatabase *db = nullptr;
  AcDbObject *obj = nullptr;
  uint64_t handle = 0;
};

namespace vantry::host {
// What the host's UNDO keeps of a database (host/session/undo.cpp): told of
// each object just before it changes (opened for write) or just after it
// joined the database.
class UndoRecorder {
 public:
  virtual ~UndoRecorder() = default;
  virtual void changing(AcDbStub *s, bool joined) = 0;
};
}  // namespace vantry::host

struct AcDbDatabase::Impl {
  int64_t serial = 0;
  std::deque<AcDbStub> stubs;
  AcDbObjectId blockTable, layerTable, styleTable, regAppTable, linetypeTable;
  AcDbObjectId nod, groupDict;
  AcDbObjectId modelSpace, paperSpace;
  AcDbObjectId byLayer, byBlock, continuous;
  AcDbObjectId clayer, textstyle, celtype;
  AcCmColor cecolor;
  double textsize = 2.5;
  Adesk::Int16 splinesegs = 8, splinetype = 6;
  std::unique_ptr<AcTransactionManager> transactions;
  // Objects written since the selection index last looked (host/select/index.cpp).
  // While `tracking`, every open for write, write close and join records the
  // object's stub (noteWritten); past a limit the list is dropped, tracking
  // stops and `touchOverflow` makes the index rebuild in full.
  bool tracking = false;
  bool touchOverflow = false;
  std::vector<AcDbStub *> touched;
  // The ATTRIBs a drawing file gave an INSERT, and the VERTEX records and
  // end marker of a mesh kept as groups (VerbatimEntity objects owned by
  // it), by the owner's stub; the writer puts them after it again.
  std::map<const AcDbStub *, std::vector<AcDbObjectId>> attributes;
  // Tables the database does not model, as a drawing file gave them:
  // "DIMSTYLE", "VPORT", "VIEW", "UCS" by name, each with its head (a
  // VerbatimObject "TABLE", null when the file had none) and its records
  // (VerbatimObject), each once by name, in the file's order.
  struct KeptTable {
    AcDbObjectId head;
    std::vector<AcDbObjectId> records;
  };
  std::map<std::wstring, KeptTable> keptTables;
  // Extension dictionaries a drawing file gave objects (an AcDbDictionary
  // owned by the object), by the object's stub.
  std::map<const AcDbStub *, AcDbObjectId> extensionDictionaries;
  // Objects of the file that no dictionary, extension dictionary or kept
  // object reaches (VerbatimObject), in the file's order.
  std::vector<AcDbObjectId> looseObjects;
  // The file's CLASS records, each as its groups.
  std::vector<std::vector<AcDbDxfFiler::Item>> classes;
  // The handles the file gave the BLOCK and ENDBLK of a block record.
  std::map<const AcDbStub *, std::pair<uint64_t, uint64_t>> blockEnds;
  // The drawing's own system variables other than the settings above, by
  // upper-case name without the $, as their header group: read from a
  // file's header, set by setvar, written back when the drawing is saved.
  std::map<std::wstring, AcDbDxfFiler::Item> vars;
  // The undo record, once the host's commands have been used on the database.
  std::unique_ptr<vantry::host::UndoRecorder> undo;
};

namespace vantry::host {

// What kind of value a result buffer of a given type code holds: the RT
// codes and the drawing-data group codes by their ranges.
enum class RbKind { None, Real, Point, Short, Long, Int64, String, Name, Binary };
RbKind rbKind(int restype);

// The drawing database's surroundings: the faults a host or a test can
// switch on. The session installs one that answers its host:fault switches;
// with none installed nothing fails.
class DbEnv {
 public:
  virtual ~DbEnv() = default;
  // Whether block table records refuse new entities now, as when memory
  // runs out (eOutOfMemory).
  virtual bool appendRefused() = 0;
};
// Installs env (null: none). The caller keeps env alive while installed.
void setDbEnv(DbEnv *env);
DbEnv *dbEnv();

// Records that an object of a database may have changed (see Impl::touched).
inline void noteWritten(AcDbStub *s) {
  if (!s || !s->db) return;
  AcDbDatabase::Impl *d = s->db->impl();
  if (!d->tracking) return;
  if (d->touched.size() >= 4096 && d->touched.size() >= d->stubs.size() / 4) {
    d->touched.clear();
    d->touchOverflow = true;
    d->tracking = false;
    return;
  }
  d->touched.push_back(s);
}

// Tells the undo record that an object is about to change, or has joined.
inline void noteChanging(AcDbStub *s, bool joined) {
  if (s && s->db && s->db->impl()->undo) s->db->impl()->undo->changing(s, joined);
}

// Reaches the private parts of database classes for the store and the
// host's own operations.
struct DbAccess {
  static AcDbStub *stub(const AcDbObject *o) { return o->stub_; }
  // Gives a new object a stub in db, owned by owner; it joins open for write
  // when openForWrite, else closed.
  static AcDbObjectId addToDatabase(AcDbDatabase *db, AcDbObject *obj, AcDbObjectId owner, bool openForWrite);
  // Counts one more open of o in mode; the caller has checked the conflicts.
  static Acad::ErrorStatus open(AcDbObject *o, AcDb::OpenMode mode, int maxReaders) {
    if (mode == AcDb::kForWrite) {
      noteChanging(o->stub_, false);
      o->writer_ = true;
      noteWritten(o->stub_);
    }
    else if (mode == AcDb::kForNotify)
      ++o->notifiers_;
    else if (o->readers_ >= maxReaders)
      return Acad::eAtMaxReaders;
    else
      ++o->readers_;
    return Acad::eOk;
  }
  static void setOwner(AcDbObject *o, AcDbObjectId owner) { o->owner_ = owner; }
  static void setErased(AcDbObject *o, bool erased) { o->erased_ = erased; }
  static void addTableRecord(AcDbSymbolTable *t, const std::wstring &key, AcDbObjectId id);
  static void setTableKey(AcDbSymbolTable *t, const std::wstring &key, AcDbObjectId id);
  static void removeTableKey(AcDbSymbolTable *t, const std::wstring &key);
  static std::vector<AcDbObjectId> &blockEntities(AcDbBlockTableRecord *b) { return b->entities_; }
  static void setVertexType(AcDb2dVertex *v, AcDb::Vertex2dType t) { v->type_ = t; }
  static std::vector<AcDb2dVertex *> &vertices2d(AcDb2dPolyline *p) { return p->verts_.list; }
  static void setPolyType(AcDb2dPolyline *p, AcDb::Poly2dType t) { p->type_ = t; }
  static AcDbSequenceEnd *seqend2d(const AcDb2dPolyline *p) { return p->verts_.seqend; }
  static AcDbSequenceEnd *seqend3d(const AcDb3dPolyline *p) { return p->verts_.seqend; }
  static bool openForWriteOrNew(const AcDbObject *o) { return !o->stub_ || o->writer_; }
  // An iterator over ids of a database (the caller deletes it).
  static AcDbObjectIterator *objectIterator(std::vector<AcDbObjectId> ids) {
    auto *it = new AcDbObjectIterator;
    it->ids_ = std::move(ids);
    it->ents_.assign(it->ids_.size(), nullptr);
    return it;
  }
};

// The database of a serial, or null when it is gone.
AcDbDatabase *databaseBySerial(int64_t serial);
// The object of an id, open or not, erased or not; null for a null id.
inline AcDbObject *objectOf(AcDbObjectId id) {
  return id.isNull() ? nullptr : id.stub()->obj;
}
// Case-insensitive key of symbol tables and dictionaries.
std::wstring upperKey(std::wstring_view s);
// Whether a symbol table record name is acceptable.
bool validSymbolName(std::wstring_view name);
// The name of a symbol table record (empty for a null id or another object).
std::wstring recordName(AcDbObjectId id);
// The id of a record of a table by name, or null.
AcDbObjectId recordId(AcDbObjectId table, std::wstring_view name);
// Adds a record with that name to a table when there is none; answers its id.
AcDbObjectId ensureRecord(AcDbObjectId table, AcRxClass *recordClass, std::wstring_view name);
// A system variable the drawing keeps (Impl::vars), or null.
const AcDbDxfFiler::Item *drawingVar(const AcDbDatabase *db, const std::wstring &name);
// The working database: the current document's, or null.
AcDbDatabase *workingDatabase();
// A new INSERT for these groups: a grid of copies (MINSERT) when they give
// more than one column or row, else a plain block reference.
AcDbBlockReference *newBlockReference(const AcDbDxfFiler &groups);
// Registers the annotative protocol extension and every database class.
void registerDatabaseClasses();

// The normal of a planar entity carried by a uniformly scaled orthogonal
// transform: its object coordinate axes transformed and crossed, so that a
// figure stays counter-clockwise about it (a mirror turns it over).
AcGeVector3d transformedNormal(const AcGeVector3d &normal, const AcGeMatrix3d &xform);

// Copies a result-buffer chain, strings and binary chunks included.
resbuf *copyChain(const resbuf *rb);

// --- Curve geometry --------------------------------------------------------------------------

// A curve as a run of line and circular-arc segments, each mapping t in
// [0, 1] linearly onto its parameter range [par0, par1]. Arc segment:
// point(t) = c + r (cos(a0 + t sweep) u + sin(a0 + t sweep) v), u and v
// orthonormal, sweep signed.
class CurvePath {
 public:
  struct Seg {
    bool arc = false;
    AcGePoint3d p0, p1;
    AcGePoint3d c;
    AcGeVector3d u, v;
    double r = 0, a0 = 0, sweep = 0;
    double par0 = 0, par1 = 0;
    double len = 0;
  };
  explicit CurvePath(const AcDbCurve &curve);
  CurvePath() = default;
  void addLine(const AcGePoint3d &p0, const AcGePoint3d &p1, double par0, double par1);
  void addArc(const AcGePoint3d &c, const AcGeVector3d &u, const AcGeVector3d &v, double r, double a0,
              double sweep, double par0, double par1);
  // A segment of a bulged polyline in the plane of normal (points in world).
  void addBulge(const AcGePoint3d &p0, const AcGePoint3d &p1, double bulge, const AcGeVector3d &normal,
                double par0, double par1);
  // An empty path answers its parameters as these (an empty polyline).
  void setEmptyParams(double start, double end) { emptyStart_ = start, emptyEnd_ = end; }
  void setClosed(bool c) { closed_ = c; }

  const std::vector<Seg> &segments() const { return segs_; }
  bool empty() const { return segs_.empty(); }
  double startParam() const { return segs_.empty() ? emptyStart_ : segs_.front().par0; }
  double endParam() const { return segs_.empty() ? emptyEnd_ : segs_.back().par1; }
  double length() const;

  Acad::ErrorStatus pointAtParam(double param, AcGePoint3d &p) const;
  Acad::ErrorStatus derivAtParam(double param, AcGeVector3d &d) const;
  Acad::ErrorStatus distAtParam(double param, double &dist) const;
  Acad::ErrorStatus paramAtDist(double dist, double &param) const;
  Acad::ErrorStatus paramAtPoint(const AcGePoint3d &p, double &param) const;
  Acad::ErrorStatus closestPoint(const AcGePoint3d &q, const AcGeVector3d *direction, bool extend,
                                 AcGePoint3d &out) const;
  Acad::ErrorStatus area(double &a) const;
  void addExtents(AcDbExtents &ext) const;

  static AcGePoint3d segPoint(const Seg &s, double t);
  static AcGeVector3d segDeriv(const Seg &s, double t);  // d point / d t

 private:
  // The segment and local t of a parameter; false when outside the curve.
  bool locate(double param, size_t &seg, double &t) const;
  // The nearest (segment, t) to q, optionally along a direction.
  void nearest(const AcGePoint3d &q, const AcGeVector3d *dir, bool extend, size_t &seg, double &t) const;
  double tolerance() const;
  std::vector<Seg> segs_;
  std::vector<double> cum_;  // length before each segment
  bool closed_ = false;
  double emptyStart_ = 0, emptyEnd_ = 0;
};

// --- Entities kept as their groups -------------------------------------------------------------

// An entity of a kind the database does not model (TEXT, HATCH, DIMENSION,
// SPLINE, ATTRIB ...), read from a drawing file and written back as it came.
// Layer, linetype, colour, lineweight, linetype scale and visibility are the
// entity's own (AcDbEntity), so they can change; every other group is kept
// as read: those of the entity part the database does not model (material,
// transparency, proxy graphics ...) and everything from the first subclass
// marker after it. References keep their ids, so a saved handle still names
// its object.
class VerbatimEntity : public AcDbEntity {
 public:
  ACRX_DECLARE_MEMBERS(VerbatimEntity);
  VerbatimEntity() = default;
  explicit VerbatimEntity(std::wstring type) : type_(std::move(type)) {}
  // The entity's type as the file names it (0 group).
  const std::wstring &dxfType() const { return type_; }
  const std::vector<AcDbDxfFiler::Item> &groups() const { return groups_; }
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 private:
  std::wstring type_;
  std::vector<AcDbDxfFiler::Item> extra_;   // unmodelled groups of the entity part
  std::vector<AcDbDxfFiler::Item> groups_;  // the kind's own groups
};

// Puts in the subclass markers an old file's entity of this kind lacks
// (verbatim.cpp); dimensions read without markers use it too (shapes.cpp).
void addKindMarkers(const std::wstring &type, std::vector<AcDbDxfFiler::Item> &groups);

// A non-graphical object of a kind the database does not model (a
// dimension style ...), read from a drawing file and written back as its
// groups.
class VerbatimObject : public AcDbObject {
 public:
  ACRX_DECLARE_MEMBERS(VerbatimObject);
  VerbatimObject() = default;
  explicit VerbatimObject(std::wstring type) : type_(std::move(type)) {}
  const std::wstring &dxfType() const { return type_; }
  const std::vector<AcDbDxfFiler::Item> &groups() const { return groups_; }
  // The record's name (group 2), for table records.
  std::wstring name() const;
  Acad::ErrorStatus dxfOutFields(AcDbDxfFiler *filer) const override;
  Acad::ErrorStatus dxfInFields(AcDbDxfFiler *filer) override;

 private:
  std::wstring type_;
  std::vector<AcDbDxfFiler::Item> groups_;
};

// The type an object has in drawing data (group 0): its class's DXF name,
// or the type a kept-verbatim entity or object was read with; null when
// it has none.
const ACHAR *dxfTypeOf(const AcDbObject *obj);

// Installs entget, entmake, entmakex, entmod, entdel, entlast, entnext,
// handent, entupd (db_lisp_entities.cpp) and tblsearch, tblnext, tblobjname,
// namedobjdict, dictsearch, dictnext, regapp (db_lisp_tables.cpp).
void installEntityLisp(lisp::Interp &in);
void installTableLisp(lisp::Interp &in);

}  // namespace vantry::host
