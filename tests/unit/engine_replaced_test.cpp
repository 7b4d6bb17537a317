// A database file replaced behind the engine's back: deleted and copied anew,
// renamed over, or overwritten in place. The journal the engine wrote for the
// old file must never reach the new one, and the engine must see the change.
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "engine/engine.h"
#include "engine_testing.h"

namespace vantry::engine {
namespace {

using testing::ManualClock;
using testing::rawScalar;
using testing::rawSql;
using testing::TempDir;

namespace fs = std::filesystem;

struct Replacement {
  const char *how;
  std::function<void(const std::string &fresh, const std::string &db)> act;
};

const Replacement kReplacements[] = {
    {"deleted and copied anew",
     [](const std::string &fresh, const std::string &db) {
       fs::remove(db);
       fs::copy_file(fresh, db);
     }},
    {"renamed over",
     [](const std::string &fresh, const std::string &db) {
       fs::copy_file(fresh, db + ".tmp");
       fs::rename(db + ".tmp", db);
     }},
    {"overwritten in place",
     [](const std::string &fresh, const std::string &db) {
       fs::copy_file(fresh, db, fs::copy_options::overwrite_existing);
     }},
};

class EngineReplacedFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fresh = dir / "fresh.db";
    db = dir / "layers.db";
    rawSql(fresh,
           "CREATE TABLE Layers(LayerName TEXT, Color INTEGER);"
           "INSERT INTO Layers VALUES ('HVAC-L0001', 1), ('HVAC-L0002', 2);");
  }
  // Connects to a copy of the fresh file and appends GHOST to it.
  EngineConnection writeGhost() {
    fs::remove(db);
    fs::copy_file(fresh, db);
    EngineConnection e = createEngine();
    EXPECT_EQ(e->Open(db, 0, false), "OK");
    EXPECT_TRUE(e->OpenTable("Layers", ""));
    Record stored;
    EXPECT_TRUE(e->AppendRecord({{"LayerName", Value::text("GHOST")}}, false, &stored));
    return e;
  }
  std::string rows(Engine &e) {
    ValueArray out;
    EXPECT_TRUE(e.ExecuteSql("SELECT LayerName FROM Layers ORDER BY LayerName", &out));
    return testing::show(out);
  }
  const std::string kFreshRows = "LayerName=\"HVAC-L0001\" | LayerName=\"HVAC-L0002\"";

  TempDir dir;
  std::string fresh, db;
};

TEST_F(EngineReplacedFileTest, ReplacedFileIsSeenAndNeverGetsTheOldJournal) {
  for (const Replacement &r : kReplacements) {
    SCOPED_TRACE(r.how);
    ManualClock clock;
    EngineConnection old = writeGhost();
    r.act(fresh, db);
    clock.advance(std::chrono::milliseconds(5));
    EXPECT_FALSE(old->IsAlive());
    EXPECT_TRUE(old->IsConnected());

    // A new connection while the old one is still held (vt_connect's way).
    EngineConnection next = createEngine();
    ASSERT_EQ(next->Open(db, 0, false), "OK");
    EXPECT_EQ(rows(*next), kFreshRows);
    old->Close();
    EXPECT_EQ(rows(*next), kFreshRows);
    next->Close();
    EXPECT_EQ(rawScalar(db, "SELECT group_concat(LayerName) FROM Layers"), "HVAC-L0001,HVAC-L0002");
  }
}

TEST_F(EngineReplacedFileTest, ReopeningTheSameConnectionReadsTheReplacement) {
  // The per-call check's way: the lost connection is closed and opened again.
  for (const Replacement &r : kReplacements) {
    SCOPED_TRACE(r.how);
    ManualClock clock;
    EngineConnection e = writeGhost();
    r.act(fresh, db);
    clock.advance(std::chrono::milliseconds(5));
    EXPECT_FALSE(e->IsAlive());
    e->Close();
    ASSERT_EQ(e->Open(db, 0, false), "OK");
    EXPECT_EQ(rows(*e), kFreshRows);
    e->Close();
    EXPECT_FALSE(fs::exists(db + "-wal") && fs::file_size(db + "-wal") > 0 &&
                 rawScalar(db, "SELECT count(*) FROM Layers WHERE LayerName = 'GHOST'") != "0");
  }
}

TEST_F(EngineReplacedFileTest, OwnWritesAndCheckpointsAreNotAReplacement) {
  ManualClock clock;
  EngineConnection e = writeGhost();
  for (int i = 0; i < 300; ++i) {
    Record stored;
    ASSERT_TRUE(e->AppendRecord({{"LayerName", Value::text(std::string(2000, 'x'))}}, false, &stored));
    clock.advance(std::chrono::milliseconds(2));
    ASSERT_TRUE(e->IsAlive()) << i;
  }
  // Another connection's writes and checkpoint do not count either.
  rawSql(db, "INSERT INTO Layers VALUES ('OTHER', 3); PRAGMA wal_checkpoint(TRUNCATE);");
  clock.advance(std::chrono::milliseconds(2));
  EXPECT_TRUE(e->IsAlive());
  EXPECT_EQ(rawScalar(db, "SELECT count(*) FROM Layers WHERE LayerName = 'GHOST'"), "1");
}

}  // namespace
}  // namespace vantry::engine
