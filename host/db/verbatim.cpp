// Entities of kinds the database does not model, kept as the groups a
// drawing file gave them (db.h, VerbatimEntity).
#include <algorithm>

#include "db/db.h"

using namespace vantry::host;

namespace {

// The groups AcDbEntity reads and writes itself; the rest of the entity
// part is kept as read.
bool entityOwnCode(int code) {
  switch (code) {
    case 6: case 8: case 48: case 60: case 62: case 67: case 370: case 410: case 420:
      return true;
    default:
      return false;
  }
}

}  // namespace

// Old files (before subclass markers) give no 100 groups; newer readers
// expect them in entities of a file with markers. The kinds that old files
// hold and that are kept as groups get them as the layout of their kind
// places them: one marker first, for text kinds a second before the
// vertical alignment (73, or 74 for ATTRIB/ATTDEF), for dimensions one per
// part, for meshes the kind of mesh or of vertex. Other kinds are left as
// they are. Entities kept by their groups use it, and so do dimensions read
// without markers (shapes.cpp).
void vantry::host::addKindMarkers(const std::wstring &type, std::vector<AcDbDxfFiler::Item> &groups) {
  auto marker = [](const wchar_t *name) {
    AcDbDxfFiler::Item it;
    it.code = 100;
    it.text = name;
    return it;
  };
  std::vector<AcDbDxfFiler::Item> out;
  if (type == L"POINT") {
    out.push_back(marker(L"AcDbPoint"));
  } else if (type == L"SOLID" || type == L"TRACE") {
    out.push_back(marker(L"AcDbTrace"));
  } else if (type == L"DIMENSION") {
    // The common dimension part, then the kind's own (by the low bits of
    // 70): a linear dimension's points under the aligned marker and its
    // angles under the rotated one.
    auto common = [](int c) {
      switch (c) {
        case 1: case 2: case 3: case 10: case 20: case 30: case 11: case 21: case 31: case 12: case 22:
        case 32: case 41: case 42: case 51: case 53: case 70: case 71: case 72: case 210: case 220: case 230:
          return true;
        default:
          return false;
      }
    };
    int64_t flags = 0;
    for (const auto &it : groups)
      if (it.code == 70) flags = it.integer;
    std::vector<AcDbDxfFiler::Item> own, last;
    out.push_back(marker(L"AcDbDimension"));
    for (auto &it : groups) {
      bool angle = it.code == 50 || it.code == 52;
      (common(it.code) ? out : (flags & 7) == 0 && angle ? last : own).push_back(std::move(it));
    }
    constexpr const wchar_t *kKinds[] = {L"AcDbAlignedDimension",  L"AcDbAlignedDimension",
                                         L"AcDb2LineAngularDimension", L"AcDbDiametricDimension",
                                         L"AcDbRadialDimension",   L"AcDb3PointAngularDimension",
                                         L"AcDbOrdinateDimension", L"AcDbAlignedDimension"};
    out.push_back(marker(kKinds[flags & 7]));
    for (auto &it : own) out.push_back(std::move(it));
    if ((flags & 7) == 0) out.push_back(marker(L"AcDbRotatedDimension"));
    for (auto &it : last) out.push_back(std::move(it));
    groups = std::move(out);
    return;
  } else if (type == L"POLYLINE" || type == L"VERTEX") {
    // Meshes (the only polylines kept as groups): the head says which kind,
    // each vertex whether it is a mesh vertex or a face record.
    int64_t flags = 0;
    for (const auto &it : groups)
      if (it.code == 70) flags = it.integer;
    if (type == L"POLYLINE") {
      out.push_back(marker(flags & 64 ? L"AcDbPolyFaceMesh" : L"AcDbPolygonMesh"));
    } else if ((flags & 128) && !(flags & 64)) {
      out.push_back(marker(L"AcDbFaceRecord"));
    } else {
      out.push_back(marker(L"AcDbVertex"));
      out.push_back(marker(flags & 128 ? L"AcDbPolyFaceMeshVertex" : L"AcDbPolygonMeshVertex"));
    }
  } else if (type == L"TEXT" || type == L"ATTRIB" || type == L"ATTDEF") {
    // Text part, then the second text marker and the kind's own part (tag,
    // prompt, flags, vertical alignment).
    out.push_back(marker(L"AcDbText"));
    std::vector<AcDbDxfFiler::Item> own;
    int vertical = type == L"TEXT" ? 73 : 74;
    for (auto &it : groups) {
      bool ownCode = it.code == vertical || (type != L"TEXT" && (it.code == 2 || it.code == 3 || it.code == 70 ||
                                                                 it.code == 73));
      (ownCode ? own : out).push_back(std::move(it));
    }
    if (type == L"TEXT") {
      out.push_back(marker(L"AcDbText"));
    } else {
      out.push_back(marker(type == L"ATTRIB" ? L"AcDbAttribute" : L"AcDbAttributeDefinition"));
    }
    for (auto &it : own) out.push_back(std::move(it));
    groups = std::move(out);
    return;
  } else {
    return;
  }
  for (auto &it : groups) out.push_back(std::move(it));
  groups = std::move(out);
}

Acad::ErrorStatus VerbatimEntity::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbEntity::dxfOutFields(f);
  for (const auto &it : extra_) f->items().push_back(it);
  for (const auto &it : groups_) f->items().push_back(it);
  return Acad::eOk;
}

// Splits the groups at the entity part: its own groups go to AcDbEntity, the
// rest of it to extra_, what follows to groups_. Properties AcDbEntity
// refuses (an unknown linetype, a colour out of range) are left at their
// defaults: the entity is kept whatever they say.
Acad::ErrorStatus VerbatimEntity::dxfInFields(AcDbDxfFiler *f) {
  if (AcDbEntity::dxfInFields(f) != Acad::eOk) {
    AcDbDxfFiler common(f->isFile());
    for (const auto &it : f->items())
      if (it.code == 8) common.items().push_back(it);
    AcDbEntity::dxfInFields(&common);
  }
  extra_.clear();
  groups_.clear();
  const auto &its = f->items();
  auto entityMarker = std::find_if(its.begin(), its.end(), [](const AcDbDxfFiler::Item &it) {
    return it.code == 100 && it.text == L"AcDbEntity";
  });
  if (entityMarker == its.end()) {
    // No markers, or none for the entity part: everything but the entity's
    // own groups is the kind's.
    bool markers = std::any_of(its.begin(), its.end(), [](const auto &it) { return it.code == 100; });
    for (const auto &it : its)
      if (!entityOwnCode(it.code) && !(it.code == 5 || it.code == 330)) groups_.push_back(it);
    if (!markers) addKindMarkers(type_, groups_);
    return Acad::eOk;
  }
  auto it = entityMarker + 1;
  for (; it != its.end() && it->code != 100; ++it)
    if (!entityOwnCode(it->code)) extra_.push_back(*it);
  groups_.assign(it, its.end());
  return Acad::eOk;
}

std::wstring VerbatimObject::name() const {
  for (const auto &it : groups_)
    if (it.code == 2) return it.text;
  return {};
}

Acad::ErrorStatus VerbatimObject::dxfOutFields(AcDbDxfFiler *f) const {
  AcDbObject::dxfOutFields(f);
  for (const auto &it : groups_) f->items().push_back(it);
  return Acad::eOk;
}

// The handle (5, a dimension style's 105), the owner and the 102 groups
// before the first subclass marker (reactors, extension dictionary) are the
// object's own; a 330 or a 5 after a marker is a field like any other (a
// layout's block record, a SORTENTSTABLE's sort handle).
Acad::ErrorStatus VerbatimObject::dxfInFields(AcDbDxfFiler *f) {
  groups_.clear();
  bool marker = false;
  for (const auto &it : f->items()) {
    marker = marker || it.code == 100;
    if (it.code == 105 || (!marker && ((it.code == 5 && type_ != L"DIMSTYLE") || it.code == 330 || it.code == 102 || it.code == 360)))
      continue;
    groups_.push_back(it);
  }
  return Acad::eOk;
}

const ACHAR *vantry::host::dxfTypeOf(const AcDbObject *obj) {
  if (auto *e = VerbatimEntity::cast(obj)) return e->dxfType().c_str();
  if (auto *o = VerbatimObject::cast(obj)) return o->dxfType().c_str();
  return obj ? obj->isA()->dxfName() : nullptr;
}
