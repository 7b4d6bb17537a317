// The spatial index over a database's model space: a uniform grid of the
// entities' plan extents, so that a window meets only the entities near it.
//
// Build: on the first query of a database, from every live model-space
// entity's getGeomExtents; the grid covers their union with about one cell
// per entity (at most 2^20 cells); an entity whose box spans more than 64
// cells goes to a short list that every query reads. Boxes outside the grid
// clamp to its edge cells, which keeps every query correct as the drawing
// grows.
//
// Updates: while an index exists the database records every object written
// (opened for write, closed after a write, or joined: noteWritten in
// host/db/db.h). Before answering, the index reads that list and
// re-files each model-space entity on it (a vertex or end marker stands for
// its polyline); an entity still open for write stays on a pending list and
// is answered by every query until it is closed. A change to a block
// definition's entities or to a text style, or a list that grew too long,
// makes the next query rebuild the whole index.
#include <algorithm>
#include <cmath>
#include <memory>
#include <unordered_map>

#include "select/select.h"

namespace vantry::host::select {
namespace {

constexpr int kMaxCellsPerEntity = 64;
constexpr int64_t kMaxCells = int64_t(1) << 20;

struct Entry {
  AcDbStub *stub = nullptr;
  Box box;
  int cx0 = 0, cy0 = 0, cx1 = -1, cy1 = -1;  // cells filed in; none when cx1 < cx0
  bool big = false;
};

class Index {
 public:
  Index(AcDbDatabase *db) : db_(db), serial_(db->serial()) {}
  int64_t serial() const { return serial_; }
  void build();
  bool sync();  // false: rebuild needed
  void query(const Box &box, std::vector<AcDbObjectId> &out);

 private:
  void cellRange(const Box &b, int &x0, int &y0, int &x1, int &y1) const;
  void file(int slot);
  void unfile(int slot);
  void refresh(AcDbStub *stub);
  int slotOf(AcDbStub *stub);

  AcDbDatabase *db_;
  int64_t serial_;
  Box bounds_;
  int nx_ = 1, ny_ = 1;
  double cw_ = 1, ch_ = 1;
  std::vector<std::vector<int32_t>> cells_;
  std::vector<Entry> entries_;
  std::vector<int32_t> slotByHandle_;
  std::vector<int32_t> big_;
  std::vector<AcDbStub *> pending_;  // open for write when last seen
  std::vector<uint32_t> stamp_;
  uint32_t epoch_ = 0;
};

int builds = 0;

std::unordered_map<AcDbDatabase *, std::unique_ptr<Index>> &indexes() {
  static auto *m = new std::unordered_map<AcDbDatabase *, std::unique_ptr<Index>>();
  return *m;
}

Box extentsOf(AcDbObject *obj) {
  Box b;
  auto *ent = AcDbEntity::cast(obj);
  AcDbExtents e;
  if (!ent || ent->isErased() || ent->getGeomExtents(e) != Acad::eOk || e.isEmpty()) return b;
  b.add(P2{e.minPoint().x, e.minPoint().y});
  b.add(P2{e.maxPoint().x, e.maxPoint().y});
  return b;
}

void Index::cellRange(const Box &b, int &x0, int &y0, int &x1, int &y1) const {
  // Clamped as a double first: a point far outside the grid (or NaN) is no int.
  auto cell = [](double at, int n) { return at >= 0 ? (at < n - 1 ? int(at) : n - 1) : 0; };
  auto cx = [&](double x) { return cell((x - bounds_.x0) / cw_, nx_); };
  auto cy = [&](double y) { return cell((y - bounds_.y0) / ch_, ny_); };
  x0 = cx(b.x0), x1 = cx(b.x1), y0 = cy(b.y0), y1 = cy(b.y1);
}

void Index::file(int slot) {
  Entry &e = entries_[slot];
  e.cx1 = -1;
  e.big = false;
  if (e.box.empty()) return;
  cellRange(e.box, e.cx0, e.cy0, e.cx1, e.cy1);
  if (int64_t(e.cx1 - e.cx0 + 1) * (e.cy1 - e.cy0 + 1) > kMaxCellsPerEntity) {
    e.big = true;
    big_.push_back(slot);
    return;
  }
  for (int y = e.cy0; y <= e.cy1; ++y)
    for (int x = e.cx0; x <= e.cx1; ++x) cells_[size_t(y) * nx_ + x].push_back(slot);
}

void Index::unfile(int slot) {
  Entry &e = entries_[slot];
  auto drop = [slot](std::vector<int32_t> &v) {
    auto it = std::find(v.begin(), v.end(), slot);
    if (it != v.end()) {
      *it = v.back();
      v.pop_back();
    }
  };
  if (e.big) {
    drop(big_);
  } else {
    for (int y = e.cy0; y <= e.cy1; ++y)
      for (int x = e.cx0; x <= e.cx1; ++x) drop(cells_[size_t(y) * nx_ + x]);
  }
  e.cx1 = -1;
  e.big = false;
}

int Index::slotOf(AcDbStub *stub) {
  size_t h = size_t(stub->handle - 1);
  if (h >= slotByHandle_.size()) slotByHandle_.resize(db_->impl()->stubs.size(), -1);
  if (slotByHandle_[h] < 0) {
    slotByHandle_[h] = int32_t(entries_.size());
    Entry e;
    e.stub = stub;
    entries_.push_back(e);
    stamp_.push_back(0);
  }
  return slotByHandle_[h];
}

void Index::build() {
  ++builds;
  AcDbDatabase::Impl *impl = db_->impl();
  impl->touched.clear();
  impl->touchOverflow = false;
  impl->tracking = true;
  entries_.clear();
  big_.clear();
  pending_.clear();
  stamp_.clear();
  slotByHandle_.assign(impl->stubs.size(), -1);
  const std::vector<AcDbObjectId> &ids = currentSpace(db_);
  bounds_ = Box();
  std::vector<Box> boxes;
  boxes.reserve(ids.size());
  for (AcDbObjectId id : ids) {
    Box b = extentsOf(objectOf(id));
    boxes.push_back(b);
    bounds_.add(b);
    if (objectOf(id) && objectOf(id)->isWriteEnabled()) pending_.push_back(id.stub());
  }
  if (bounds_.empty()) bounds_.add(P2{0, 0});
  double w = std::max(bounds_.x1 - bounds_.x0, 1e-9), h = std::max(bounds_.y1 - bounds_.y0, 1e-9);
  double cells = std::clamp(double(ids.size()), 1.0, double(kMaxCells));
  nx_ = std::clamp(int(std::ceil(std::sqrt(cells * w / h))), 1, int(kMaxCells));
  ny_ = std::clamp(int(std::ceil(cells / nx_)), 1, int(kMaxCells / nx_));
  cw_ = w / nx_, ch_ = h / ny_;
  cells_.assign(size_t(nx_) * ny_, {});
  entries_.reserve(ids.size());
  for (size_t i = 0; i < ids.size(); ++i) {
    int slot = slotOf(ids[i].stub());
    entries_[slot].box = boxes[i];
    file(slot);
  }
}

// Re-files the model-space entity that a written object stands for.
void Index::refresh(AcDbStub *stub) {
  AcDbObject *obj = stub->obj;
  if (!obj) return;
  AcDbObjectId model = db_->impl()->modelSpace;
  if (AcDbVertex::cast(obj) || AcDbSequenceEnd::cast(obj)) {
    AcDbObject *owner = objectOf(obj->ownerId());
    if (!owner || owner->ownerId() != model) return;
    stub = owner->objectId().stub();
    obj = owner;
  }
  if (!AcDbEntity::cast(obj) || obj->ownerId() != model) {
    // An entity elsewhere may be a block definition's (the references'
    // extents change); only model-space entities are filed.
    size_t h = size_t(stub->handle - 1);
    if (h < slotByHandle_.size() && slotByHandle_[h] >= 0) {
      unfile(slotByHandle_[h]);
      entries_[slotByHandle_[h]].box = Box();
    }
    return;
  }
  int slot = slotOf(stub);
  unfile(slot);
  entries_[slot].box = extentsOf(obj);
  file(slot);
  if (obj->isWriteEnabled()) pending_.push_back(stub);
}

bool Index::sync() {
  AcDbDatabase::Impl *impl = db_->impl();
  if (impl->touchOverflow || !impl->tracking) return false;
  if (impl->touched.empty() && pending_.empty()) return true;
  std::vector<AcDbStub *> todo;
  todo.swap(impl->touched);
  todo.insert(todo.end(), pending_.begin(), pending_.end());
  pending_.clear();
  std::sort(todo.begin(), todo.end());
  todo.erase(std::unique(todo.begin(), todo.end()), todo.end());
  AcDbObjectId model = impl->modelSpace;
  for (AcDbStub *s : todo) {
    AcDbObject *obj = s->obj;
    if (!obj) continue;
    if (AcDbTextStyleTableRecord::cast(obj)) return false;
    if (AcDbEntity::cast(obj) && !AcDbVertex::cast(obj) && !AcDbSequenceEnd::cast(obj)) {
      AcDbObjectId owner = obj->ownerId();
      if (owner != model && owner != impl->paperSpace && AcDbBlockTableRecord::cast(objectOf(owner)))
        return false;
    }
    refresh(s);
  }
  return true;
}

void Index::query(const Box &box, std::vector<AcDbObjectId> &out) {
  if (++epoch_ == 0) {
    std::fill(stamp_.begin(), stamp_.end(), 0);
    epoch_ = 1;
  }
  auto take = [&](int32_t slot) {
    if (stamp_[slot] == epoch_) return;
    stamp_[slot] = epoch_;
    const Entry &e = entries_[slot];
    if (e.box.intersects(box) && e.stub->obj && !e.stub->obj->isErased()) out.push_back(AcDbObjectId(e.stub));
  };
  int x0, y0, x1, y1;
  cellRange(box, x0, y0, x1, y1);
  for (int y = y0; y <= y1; ++y)
    for (int x = x0; x <= x1; ++x)
      for (int32_t slot : cells_[size_t(y) * nx_ + x]) take(slot);
  for (int32_t slot : big_) take(slot);
  // Entities open for write may be changing: answer them whatever their box.
  for (AcDbStub *s : pending_) {
    int slot = slotOf(s);
    if (stamp_[slot] == epoch_) continue;
    stamp_[slot] = epoch_;
    if (s->obj && !s->obj->isErased()) out.push_back(AcDbObjectId(s));
  }
}

}  // namespace

void indexQuery(AcDbDatabase *db, const Box &box, std::vector<AcDbObjectId> &out) {
  auto &all = indexes();
  auto it = all.find(db);
  if (it != all.end() && it->second->serial() != db->serial()) {
    all.erase(it);
    it = all.end();
  }
  if (it == all.end()) {
    // Forget the indexes of databases that are gone.
    for (auto i = all.begin(); i != all.end();)
      i = databaseBySerial(i->second->serial()) ? std::next(i) : all.erase(i);
    it = all.emplace(db, std::make_unique<Index>(db)).first;
    it->second->build();
  } else if (!it->second->sync()) {
    it->second->build();
  }
  it->second->query(box, out);
}

void indexReset() {
  for (auto &[db, index] : indexes())
    if (databaseBySerial(index->serial()) == db) db->impl()->tracking = false, db->impl()->touched.clear();
  indexes().clear();
}

int indexBuilds() {
  return builds;
}

}  // namespace vantry::host::select
