// The vertex ownership that 2D and 3D old-style polylines share
// (PolylineVertices), and the iterator over their vertices.
#include "db/db.h"

namespace vantry::host {

void copyEntityLook(AcDbEntity *dst, const AcDbEntity &src);

template <class Vertex>
PolylineVertices<Vertex>::PolylineVertices(const PolylineVertices &other) {
  for (const Vertex *v : other.list) list.push_back(new Vertex(*v));
}

template <class Vertex>
PolylineVertices<Vertex>::~PolylineVertices() {
  if (resident_) return;  // the database owns them
  for (Vertex *v : list) delete v;
}

template <class Vertex>
Acad::ErrorStatus PolylineVertices<Vertex>::append(AcDbEntity &polyline, Vertex *vertex, AcDbObjectId *id) {
  if (id) *id = AcDbObjectId::kNull;
  if (!vertex) return Acad::eNullEntityPointer;
  if (!vertex->objectId().isNull()) return Acad::eAlreadyInDb;
  list.push_back(vertex);
  if (!polyline.objectId().isNull()) {
    copyEntityLook(vertex, polyline);
    AcDbObjectId joined = DbAccess::addToDatabase(polyline.database(), vertex, polyline.objectId(), false);
    if (id) *id = joined;
  }
  return Acad::eOk;
}

template <class Vertex>
void PolylineVertices<Vertex>::join(AcDbEntity &polyline) {
  resident_ = true;
  for (Vertex *v : list) {
    copyEntityLook(v, polyline);
    DbAccess::addToDatabase(polyline.database(), v, polyline.objectId(), false);
  }
  seqend = new AcDbSequenceEnd;
  copyEntityLook(seqend, polyline);
  DbAccess::addToDatabase(polyline.database(), seqend, polyline.objectId(), false);
}

template <class Vertex>
void PolylineVertices<Vertex>::subentities(std::vector<AcDbEntity *> &out) const {
  out.insert(out.end(), list.begin(), list.end());
  if (seqend) out.push_back(seqend);
}

template <class Vertex>
AcDbObjectId PolylineVertices<Vertex>::sequenceEndId() const {
  return seqend ? seqend->objectId() : AcDbObjectId::kNull;
}

template <class Vertex>
AcDbObjectIterator *PolylineVertices<Vertex>::iterator() const {
  auto *it = new AcDbObjectIterator;
  for (Vertex *v : list) {
    it->ids_.push_back(v->objectId());
    it->ents_.push_back(v);
  }
  return it;
}

template class PolylineVertices<AcDb2dVertex>;
template class PolylineVertices<AcDb3dPolylineVertex>;

}  // namespace vantry::host

void AcDbObjectIterator::step(bool backwards, bool) {
  if (backwards) {
    pos_ = pos_ == 0 ? ids_.size() : pos_ - 1;
  } else if (pos_ < ids_.size()) {
    ++pos_;
  }
}
