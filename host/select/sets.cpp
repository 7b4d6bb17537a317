// Selection sets: the store behind the names that acedSSGet and acedSSAdd
// give out, and the set calls of host/aced_select.h.
//
// A set's name is (number, kSetTag): numbers count up from 1 and are never
// reused, so a freed set's name stays dead. Members are entity names
// (handle, database serial), not ids: a set outlives the drawing its members
// came from, and a name of a closed drawing converts to nothing where an id
// would point at freed memory. They keep the order they were selected in,
// with a hash index for membership. There is no limit on live sets; the LISP
// frees its sets only when the session resets (there is no garbage
// collection of selection-set values).
#include <algorithm>
#include <memory>
#include <unordered_map>
#include <unordered_set>

#include "select/select.h"

namespace vantry::host::select {
namespace {

constexpr int64_t kSetTag = 0x5353;  // "SS"

using Name = std::pair<int64_t, int64_t>;

struct NameHash {
  size_t operator()(const Name &n) const { return std::hash<int64_t>()(n.first * 1000003 + n.second); }
};

Name nameOf(AcDbObjectId id) {
  ads_name n;
  acdbGetAdsName(n, id);
  return {n[0], n[1]};
}

struct Set {
  std::vector<Name> names;
  std::unordered_set<Name, NameHash> members;
  bool add(Name n) {
    if (!members.insert(n).second) return false;
    names.push_back(n);
    return true;
  }
};

struct Store {
  int64_t next = 1;
  std::unordered_map<int64_t, std::unique_ptr<Set>> sets;
  std::vector<Name> previous;
};

Store &store() {
  static auto *s = new Store;
  return *s;
}

// The ids of the names that still name an entity, appended to out.
void liveIds(const std::vector<Name> &names, std::vector<AcDbObjectId> &out) {
  for (const Name &n : names) {
    ads_name name = {n.first, n.second};
    AcDbObjectId id;
    if (acdbGetObjectId(id, name) == Acad::eOk && AcDbEntity::cast(objectOf(id))) out.push_back(id);
  }
}

Set *find(const ads_name ss) {
  if (!ss || ss[1] != kSetTag) return nullptr;
  auto it = store().sets.find(ss[0]);
  return it == store().sets.end() ? nullptr : it->second.get();
}

Set *make(ads_name ss) {
  int64_t n = store().next++;
  Set *s = (store().sets[n] = std::make_unique<Set>()).get();
  ss[0] = n;
  ss[1] = kSetTag;
  return s;
}

bool entityId(const ads_name ent, AcDbObjectId &id) {
  return ent && acdbGetObjectId(id, ent) == Acad::eOk && id.isValid() && AcDbEntity::cast(objectOf(id));
}

}  // namespace

void newSet(const std::vector<AcDbObjectId> &ids, ads_name ss) {
  Set *s = make(ss);
  s->names.reserve(ids.size());
  for (AcDbObjectId id : ids) s->add(nameOf(id));
}

bool setMembers(const ads_name ss, std::vector<AcDbObjectId> &out) {
  Set *s = find(ss);
  if (!s) return false;
  liveIds(s->names, out);
  return true;
}

void setPrevious(const std::vector<AcDbObjectId> &ids) {
  store().previous.clear();
  for (AcDbObjectId id : ids) store().previous.push_back(nameOf(id));
}

std::vector<AcDbObjectId> previous() {
  std::vector<AcDbObjectId> out;
  liveIds(store().previous, out);
  return out;
}

void resetSelection() {
  store().sets.clear();
  store().previous.clear();
  indexReset();
}

int liveSets() {
  return int(store().sets.size());
}

}  // namespace vantry::host::select

using namespace vantry::host::select;

int acedSSFree(const ads_name ss) {
  if (!find(ss)) return RTERROR;
  store().sets.erase(ss[0]);
  return RTNORM;
}

int acedSSLength(const ads_name ss, int32_t *len) {
  Set *s = find(ss);
  if (!s || !len) return RTERROR;
  *len = int32_t(s->names.size());
  return RTNORM;
}

int acedSSName(const ads_name ss, int32_t i, ads_name entity) {
  Set *s = find(ss);
  if (!s || !entity || i < 0 || size_t(i) >= s->names.size()) return RTERROR;
  entity[0] = s->names[size_t(i)].first;
  entity[1] = s->names[size_t(i)].second;
  return RTNORM;
}

int acedSSAdd(const ads_name entity, const ads_name ss, ads_name result) {
  if (!result) return RTERROR;
  AcDbObjectId id;
  bool haveEntity = entity && (entity[0] || entity[1]);
  if (haveEntity && !entityId(entity, id)) return RTERROR;
  bool haveSet = ss && (ss[0] || ss[1]);
  if (!haveSet) {
    Set *s = make(result);
    if (haveEntity) s->add(nameOf(id));
    return RTNORM;
  }
  Set *s = find(ss);
  if (!s) return RTERROR;
  if (haveEntity) s->add(nameOf(id));
  result[0] = ss[0];
  result[1] = ss[1];
  return RTNORM;
}

int acedSSDel(const ads_name entity, const ads_name ss) {
  Set *s = find(ss);
  if (!s || !entity) return RTERROR;
  Name n{entity[0], entity[1]};
  if (!s->members.erase(n)) return RTERROR;
  s->names.erase(std::find(s->names.begin(), s->names.end(), n));
  return RTNORM;
}

int acedSSMemb(const ads_name entity, const ads_name ss) {
  Set *s = find(ss);
  if (!s || !entity) return RTERROR;
  return s->members.count(Name{entity[0], entity[1]}) ? RTNORM : RTERROR;
}
