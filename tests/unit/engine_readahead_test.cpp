// What the engine notices cheaply on every call: records read ahead by Skip
// are never served once anyone changed the database, long walks cross their
// read-ahead blocks in order both ways, and IsAlive still sees a file
// deleted, moved or replaced after it has been trusted by its change time.
#include <sqlite3.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <thread>

#include "engine/engine.h"
#include "engine_testing.h"

namespace vantry::engine {
namespace {

using testing::field;
using testing::rawSql;
using testing::TempDir;

constexpr int kRows = 300;  // several read-ahead blocks

// Longer than the slack the engine allows for coarse file time stamps, so
// that its fast paths are the ones under test. A real wait: the stamps come
// from the kernel's clock, which no test can move.
void letTimeStampsSettle() {
  std::this_thread::sleep_for(std::chrono::milliseconds(120));
}

class EngineReadAheadTest : public ::testing::Test {
 protected:
  void SetUp() override {
    db = dir / "walk.db";
    rawSql(db,
           "CREATE TABLE t(id INTEGER PRIMARY KEY, tag TEXT, made DATETIME);"
           "CREATE INDEX by_tag ON t(tag DESC);"
           "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
               std::to_string(kRows) +
               ") INSERT INTO t SELECT i, printf('T%04d', i), printf('2024-01-%02d 08:00:00', i % 28 + 1) "
               "FROM n;");
    e = createEngine();
  }

  TempDir dir;
  std::string db;
  EngineConnection e;
};

TEST_F(EngineReadAheadTest, LongWalksFollowTheOrderBothWaysAcrossBlocks) {
  ASSERT_EQ(e->Open(db, 0, false), "OK");
  struct Case {
    const char *index;
    int step;
    int first, direction;  // expected ids: first, then |step| apart in `direction`
  } cases[] = {
      {"", 1, 1, 1},        {"", 3, 1, 1}, {"", -1, kRows, -1}, {"", -7, kRows, -1}, {"by_tag", 1, kRows, -1},
      {"by_tag", -2, 1, 1},
  };
  for (const Case &c : cases) {
    ASSERT_TRUE(e->OpenTable("t", c.index));
    Record r;
    ASSERT_TRUE(c.step > 0 ? e->MoveFirst(&r) : e->MoveLast(&r));
    int expected = c.first, seen = 0;
    do {
      ASSERT_EQ(field(r, "id"), std::to_string(expected)) << c.index << " step " << c.step;
      ASSERT_EQ(field(r, "made"), "#2024-01-" + std::string(expected % 28 + 1 < 10 ? "0" : "") +
                                      std::to_string(expected % 28 + 1) + " 08:00:00#");
      expected += c.direction * std::abs(c.step);
      ++seen;
    } while (e->Skip(c.step, &r));
    EXPECT_EQ(seen, (kRows - 1) / std::abs(c.step) + 1) << c.index << " step " << c.step;
    EXPECT_EQ(e->GetLastError().number, errc::kNoCurrentRecord);
  }
}

TEST_F(EngineReadAheadTest, ARecordServedTwiceIsReadAgain) {
  ASSERT_EQ(e->Open(db, 0, false), "OK");
  ASSERT_TRUE(e->OpenTable("t", ""));
  Record r;
  ASSERT_TRUE(e->Skip(1, &r));  // 2: the block now holds 2..65
  ASSERT_TRUE(e->Skip(1, &r));  // 3, served from the block
  ASSERT_TRUE(e->Skip(-1, &r));
  EXPECT_EQ(field(r, "id"), "2");
  ASSERT_TRUE(e->Skip(1, &r));
  EXPECT_EQ(field(r, "id"), "3");
  EXPECT_EQ(field(r, "tag"), "\"T0003\"");
}

// Another connection changes the table between two Skips; the second must
// show the change. Both journal modes, and both with time stamps fresh and
// settled, so that every way the engine decides to keep a block is crossed.
TEST_F(EngineReadAheadTest, ChangesByAnotherConnectionAreNeverHiddenByReadAhead) {
  struct Change {
    const char *what;
    const char *sql;
    std::string nextTag;  // tag of the record after id 2
  } changes[] = {
      {"update", "UPDATE t SET tag = 'changed' WHERE id = 3;", "\"changed\""},
      {"delete", "DELETE FROM t WHERE id = 3;", "\"T0004\""},
      {"same size", "UPDATE t SET tag = 'X0003' WHERE id = 3;", "\"X0003\""},
  };
  for (bool wal : {true, false}) {
    for (bool settle : {false, true}) {
      for (const Change &c : changes) {
        std::string what = std::string(c.what) + (wal ? " wal" : " rollback") + (settle ? " settled" : "");
        std::remove(db.c_str());
        std::remove((db + "-wal").c_str());
        std::remove((db + "-shm").c_str());
        SetUp();
        if (!wal) rawSql(db, "PRAGMA journal_mode=DELETE;");
        // Read-only keeps a rollback journal as it is; writable switches to WAL.
        ASSERT_EQ(e->Open(db, 0, !wal), "OK") << what;
        ASSERT_TRUE(e->OpenTable("t", "")) << what;
        if (settle) letTimeStampsSettle();
        Record r;
        ASSERT_TRUE(e->Skip(1, &r)) << what;  // 2, with what follows read ahead
        rawSql(db, c.sql);
        ASSERT_TRUE(e->Skip(1, &r)) << what;
        EXPECT_EQ(field(r, "tag"), c.nextTag) << what;
        e->Close();
      }
    }
  }
}

TEST_F(EngineReadAheadTest, OwnDeletesLeaveGapsThatTheWalkPassesOver) {
  ASSERT_EQ(e->Open(db, 0, false), "OK");
  ASSERT_TRUE(e->OpenTable("t", ""));
  Record r;
  ASSERT_TRUE(e->MoveFirst(&r));
  for (int id = 1; id <= 100; ++id) {  // deletes every third record from 3 to 99
    if (id % 3 == 0) {
      ASSERT_TRUE(e->DeleteRecord()) << id;
    }
    ASSERT_TRUE(e->Skip(1, &r)) << id;
  }
  EXPECT_EQ(field(r, "id"), "101");
  std::vector<std::string> back;
  while (back.size() < 8 && e->Skip(-1, &r)) back.push_back(field(r, "id"));
  EXPECT_EQ(back, (std::vector<std::string>{"100", "98", "97", "95", "94", "92", "91", "89"}));
}

// Appends run numbering, insert and read-back in one transaction; a refused
// one must still say why, and leave nothing behind.
TEST_F(EngineReadAheadTest, ARefusedAppendKeepsItsReasonAndStoresNothing) {
  rawSql(db, "CREATE UNIQUE INDEX one_tag ON t(tag);");
  ASSERT_EQ(e->Open(db, 0, false), "OK");
  ASSERT_TRUE(e->OpenTable("t", ""));
  Record stored;
  EXPECT_FALSE(e->AppendRecord({{"tag", Value::text("T0007")}}, false, &stored));
  EXPECT_EQ(e->GetLastError().number, errc::kDuplicateKey);
  EXPECT_NE(e->GetLastError().description.find("t.tag"), std::string::npos) << e->GetLastError().description;
  EXPECT_EQ(testing::rawScalar(db, "SELECT count(*) FROM t"), std::to_string(kRows));
  ASSERT_TRUE(e->AppendRecord({{"tag", Value::text("new")}}, false, &stored));
  EXPECT_EQ(field(stored, "tag"), "\"new\"");
  EXPECT_EQ(testing::rawScalar(db, "SELECT tag FROM t WHERE id = " + field(stored, "id")), "new");
  EXPECT_EQ(testing::rawScalar(db, "SELECT count(*) FROM t"), std::to_string(kRows + 1));
  // The same for a replace that would duplicate the key.
  EXPECT_FALSE(e->ReplaceRecord({{"tag", Value::text("T0007")}}, &stored));
  EXPECT_EQ(e->GetLastError().number, errc::kDuplicateKey);
  EXPECT_NE(e->GetLastError().description.find("t.tag"), std::string::npos) << e->GetLastError().description;
  EXPECT_EQ(testing::rawScalar(db, "SELECT count(*) FROM t WHERE tag = 'new'"), "1");
}

TEST_F(EngineReadAheadTest, AliveChecksHoldOnceTheChangeTimeIsTrusted) {
  struct Case {
    const char *what;
    std::function<void()> act;
    bool alive;
  } cases[] = {
      {"untouched", [] {}, true},
      {"written by another connection", [&] { rawSql(db, "INSERT INTO t(tag) VALUES ('new');"); }, true},
      {"deleted", [&] { ::unlink(db.c_str()); }, false},
      {"moved", [&] { std::rename(db.c_str(), (dir / "moved.db").c_str()); }, false},
      {"replaced",
       [&] {
         rawSql(dir / "other.db", "CREATE TABLE x(a);");
         std::rename((dir / "other.db").c_str(), db.c_str());
       },
       false},
  };
  // A change is seen at once when the process says it changed files, and
  // once the last look's vouch (a millisecond) has run out when another
  // process made it unannounced; until then the last look stands.
  for (bool told : {true, false}) {
    for (const Case &c : cases) {
      std::remove((dir / "moved.db").c_str());
      std::remove(db.c_str());
      SetUp();
      ASSERT_EQ(e->Open(db, 0, false), "OK") << c.what;
      letTimeStampsSettle();
      testing::ManualClock clock;
      ASSERT_TRUE(e->IsAlive()) << c.what;  // a full check; from now on the change time vouches
      ASSERT_TRUE(e->IsAlive()) << c.what;
      c.act();
      if (told) {
        noteFileSystemChange();
      } else {
        EXPECT_TRUE(e->IsAlive()) << c.what << " (within the vouch)";
        clock.advance(std::chrono::milliseconds(2));
      }
      EXPECT_EQ(e->IsAlive(), c.alive) << c.what << (told ? " (told)" : " (later)");
      EXPECT_EQ(e->IsAlive(), c.alive) << c.what << " (asked again)";
      e->Close();
      EXPECT_FALSE(e->IsAlive()) << c.what;
    }
  }
}

}  // namespace
}  // namespace vantry::engine
