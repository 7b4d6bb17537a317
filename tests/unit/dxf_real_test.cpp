// Drawings written by other programs (the shared data's dxf folder), and the
// faults they showed: each opens, saves and opens again with every entity
// kept by type and handle. The saved files are left for the outside audit
// (tests/tools/dxf_compare.py, run by CTest after this).
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "dxf/internal.h"
#include "dxf_fixture.h"

namespace vantry::host {
namespace {

namespace fs = std::filesystem;
using Entities = std::set<std::pair<uint64_t, std::wstring>>;

std::string readAll(const fs::path &path) {
  std::ifstream f(path, std::ios::binary);
  std::ostringstream s;
  s << f.rdbuf();
  return s.str();
}

fs::path outDir() {
  const char *env = std::getenv("VANTRY_DXF_REAL_OUT");
  fs::path dir = env ? fs::path(env) : fs::temp_directory_path() / "vantry-dxf-real";
  fs::create_directories(dir);
  return dir;
}

std::wstring typeOf(const AcDbEntity *e) {
  if (auto *v = VerbatimEntity::cast(e)) return v->dxfType();
  return e->isA()->dxfName();
}

// Every entity of every block record, attributes included, by handle and type.
Entities entitiesOf(AcDbDatabase &db) {
  Entities out;
  auto *impl = db.impl();
  auto *blocks = AcDbSymbolTable::cast(objectOf(impl->blockTable));
  for (AcDbObjectId b : blocks->recordIds()) {
    auto *btr = AcDbBlockTableRecord::cast(objectOf(b));
    for (AcDbObjectId id : btr->entityIds()) {
      auto *e = AcDbEntity::cast(objectOf(id));
      if (!e || e->isErased()) continue;
      out.insert({id.handle().value(), typeOf(e)});
      auto att = impl->attributes.find(DbAccess::stub(e));
      if (att != impl->attributes.end())
        for (AcDbObjectId a : att->second) out.insert({a.handle().value(), L"ATTRIB"});
    }
  }
  return out;
}

// The entities as the file itself lists them (ENTITIES and BLOCKS, ATTRIBs
// of INSERTs), by handle and type: those with a handle.
Entities entitiesInFile(const std::string &text) {
  dxf::Drawing d;
  std::wstring error;
  EXPECT_TRUE(dxf::parseDxf(text, d, &error)) << text::toUtf8(error);
  Entities out;
  auto add = [&](const std::vector<dxf::Record> &records) {
    for (const dxf::Record &r : records) {
      if (r.handle) out.insert({r.handle, r.type});
      if (r.type == L"INSERT")
        for (const dxf::Record &s : r.subs)
          if (s.type == L"ATTRIB" && s.handle) out.insert({s.handle, s.type});
    }
  };
  add(d.entities);
  for (const dxf::Block &b : d.blocks) add(b.entities);
  return out;
}

TEST(DxfRealDrawings, EveryFileOpensSavesAndReopensWithEveryEntity) {
  fs::path dir = fs::path(VANTRY_SHARED_DATA) / "dxf";
  if (!fs::is_directory(dir)) GTEST_SKIP() << "no real drawings at " << dir << " (the shared data folder is absent)";
  int files = 0;
  for (const auto &entry : fs::directory_iterator(dir)) {
    if (entry.path().extension() != ".dxf") continue;
    ++files;
    std::string name = entry.path().filename().string();
    SCOPED_TRACE(name);
    AcDbDatabase db;
    std::wstring notes;
    ASSERT_EQ(openDxf(entry.path().string(), &db, &notes), Acad::eOk) << text::toUtf8(notes);
    Entities read = entitiesOf(db);
    Entities listed = entitiesInFile(readAll(entry.path()));
    Entities missing;
    for (const auto &e : listed)
      if (!read.count(e)) missing.insert(e);
    EXPECT_TRUE(missing.empty()) << missing.size() << " entities of the file are not in the drawing";

    std::string saved = (outDir() / name).string();
    std::wstring error;
    ASSERT_EQ(saveDxf(&db, saved, &error), Acad::eOk) << text::toUtf8(error);
    AcDbDatabase again;
    ASSERT_EQ(openDxf(saved, &again, &error), Acad::eOk) << text::toUtf8(error);
    EXPECT_TRUE(error.empty()) << "the saved file needed repairs: " << text::toUtf8(error);
    EXPECT_EQ(entitiesOf(again), read);
  }
  EXPECT_GT(files, 0) << "no drawings in " << dir;
}

}  // namespace
}  // namespace vantry::host
