// The engine's connection: open statuses and errors, liveness when the file
// changes behind its back, damage and repair, compaction, the factory.
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>

#include "engine/engine.h"
#include "engine_testing.h"

namespace vantry::engine {
namespace {

using testing::rawScalar;
using testing::rawSql;
using testing::TempDir;

class EngineConnectionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    db = dir / "parts.db";
    rawSql(db,
           "CREATE TABLE parts(id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT, size REAL);"
           "INSERT INTO parts(name, size) VALUES ('elbow', 1.5), ('tee', 2.0), ('wye', 3.25);");
    e = createEngine();
    ASSERT_TRUE(e);
  }
  // A database large enough that damage in its middle leaves most rows readable.
  void makeBig(const std::string &path, int rows) {
    rawSql(path,
           "PRAGMA page_size=1024; CREATE TABLE t(id INTEGER PRIMARY KEY, label TEXT);"
           "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
               std::to_string(rows) +
               ") INSERT INTO t SELECT i, printf('row %06d %s', i, hex(randomblob(20))) FROM n;");
  }

  TempDir dir;
  std::string db;
  EngineConnection e;
};

TEST_F(EngineConnectionTest, OpenAnswersStatusAndErrorNumberPerKindOfPath) {
  std::string garbage = dir / "notes.db";
  std::ofstream(garbage) << std::string(4096, 'x');
  std::string empty = dir / "empty.db";
  std::ofstream{empty};
  struct Case {
    std::string path;
    std::string status;
    long error;
  } cases[] = {
      {db, "OK", errc::kNone},
      {dir / "missing.db", "", errc::kCouldNotFindFile},
      {dir / "no/such/dir/x.db", "", errc::kInvalidPath},
      {"", "", errc::kInvalidPath},
      {dir.path(), "", errc::kCannotOpen},
      {garbage, "*REPAIR*", errc::kCorrupt},
  };
  for (const Case &c : cases) {
    EXPECT_EQ(e->Open(c.path, 0, false), c.status) << c.path;
    EXPECT_EQ(e->GetLastError().number, c.error) << c.path;
    EXPECT_EQ(e->HasError(), c.error != errc::kNone) << c.path;
    EXPECT_EQ(e->IsConnected(), c.status == "OK") << c.path;
    if (c.error != errc::kNone) {
      EXPECT_FALSE(e->GetLastError().description.empty());
    }
  }
  // An empty file is a database with no tables yet, as SQLite makes them.
  EXPECT_EQ(e->Open(empty, 0, true), "OK");
}

TEST_F(EngineConnectionTest, BackslashPathsOpenAndTheNameStaysAsGiven) {
  std::string windows = db;
  for (char &c : windows)
    if (c == '/') c = '\\';
  ASSERT_EQ(e->Open(windows, 0, false), "OK");
  EXPECT_EQ(e->GetName(), windows);
  EXPECT_TRUE(e->IsAlive());
  e->Close();
  EXPECT_FALSE(e->IsConnected());
  EXPECT_EQ(e->GetName(), "");
}

TEST_F(EngineConnectionTest, UpdatableFollowsTheRequestedMode) {
  ASSERT_EQ(e->Open(db, 0, false), "OK");
  EXPECT_EQ(e->IsUpdatable(), -1);
  ASSERT_EQ(e->Open(db, 0, true), "OK");  // reopening closes the first
  EXPECT_EQ(e->IsUpdatable(), 0);
  e->Close();
  EXPECT_EQ(e->IsUpdatable(), 0);
}

TEST_F(EngineConnectionTest, AliveUntilTheFileIsDeletedMovedOrReplaced) {
  struct Case {
    const char *what;
    std::function<void()> act;
  } cases[] = {
      {"untouched", [] {}},
      {"deleted", [&] { ::unlink(db.c_str()); }},
      {"moved", [&] { std::rename(db.c_str(), (dir / "moved.db").c_str()); }},
      {"replaced",
       [&] {
         std::string other = dir / "other.db";
         rawSql(other, "CREATE TABLE x(a);");
         std::rename(other.c_str(), db.c_str());
       }},
  };
  for (const Case &c : cases) {
    std::filesystem::remove(dir / "moved.db");
    std::filesystem::remove(db);
    SetUp();
    ASSERT_EQ(e->Open(db, 0, false), "OK") << c.what;
    c.act();
    EXPECT_EQ(e->IsAlive(), std::string(c.what) == "untouched") << c.what;
    EXPECT_TRUE(e->IsConnected()) << c.what;
  }
  e->Close();
  EXPECT_FALSE(e->IsAlive());
}

TEST_F(EngineConnectionTest, ReadOnlyIsHonouredBySqliteItself) {
  ASSERT_EQ(e->Open(db, 0, true), "OK");
  int32_t n = 0;
  EXPECT_FALSE(e->ExecuteCommand("DELETE FROM parts", &n));
  EXPECT_EQ(e->GetLastError().number, errc::kReadOnly);
  EXPECT_EQ(rawScalar(db, "SELECT count(*) FROM parts"), "3");
}

TEST_F(EngineConnectionTest, DamagedSmallFileNeedsRepairAndCompactRecoversTheReadableRows) {
  std::string big = dir / "big.db";
  makeBig(big, 4000);
  long pages = std::stol(rawScalar(big, "PRAGMA page_count"));
  // Garbage over a few leaf pages in the middle of the table.
  testing::overwrite(big, (pages / 2) * 1024, std::string(3 * 1024, '\x5a'));
  EXPECT_EQ(e->Open(big, 0, false), "*REPAIR*");
  EXPECT_FALSE(e->IsConnected());
  EXPECT_EQ(e->GetLastError().number, errc::kCorrupt);

  std::string fixed = dir / "fixed.db";
  ASSERT_TRUE(e->CompactDatabase(big, fixed)) << e->GetLastError().description;
  ASSERT_EQ(e->Open(fixed, 0, false), "OK");
  long rows = std::stol(rawScalar(fixed, "SELECT count(*) FROM t"));
  EXPECT_GT(rows, 3800);  // three pages lost, about 25 rows each
  EXPECT_LT(rows, 4000);
  // Rows on both sides of the damage are there and intact.
  EXPECT_EQ(rawScalar(fixed, "SELECT substr(label, 1, 10) FROM t WHERE id = 1"), "row 000001");
  EXPECT_EQ(rawScalar(fixed, "SELECT substr(label, 1, 10) FROM t WHERE id = 4000"), "row 004000");
  EXPECT_EQ(rawScalar(fixed, "SELECT count(*) FROM t WHERE label NOT LIKE 'row %'"), "0");
  EXPECT_EQ(rawScalar(fixed, "PRAGMA integrity_check"), "ok");
}

// 500 bytes flipped in the middle of a table's pages used to send the
// salvage round the damaged stretch for ever (its keys read out of order).
// Each of these places hung it; now each compact ends, with a sound copy or
// the engine's error, and the damaged source is left byte for byte as it was.
TEST_F(EngineConnectionTest, CompactOfAFileWith500BytesFlippedEndsAndLeavesTheSource) {
  for (long offset : {913743L, 285855L, 596117L, 80904L, 248141L, 496391L}) {
    std::string src = dir / "flipped.db", out = dir / "salvaged.db";
    std::filesystem::remove(src);
    std::filesystem::remove(out);
    rawSql(src,
           "CREATE TABLE t(id INTEGER PRIMARY KEY AUTOINCREMENT, label TEXT, w REAL); CREATE INDEX tl ON t(label);"
           "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 20000)"
           " INSERT INTO t(label, w) SELECT printf('HVAC-L%05d', i), i * 1.5 FROM n;");
    std::string bytes;
    {
      std::ifstream in(src, std::ios::binary);
      bytes.assign(std::istreambuf_iterator<char>(in), {});
    }
    ASSERT_LT(offset + 500, static_cast<long>(bytes.size()));
    std::string flipped = bytes.substr(offset, 500);
    for (char &c : flipped) c = static_cast<char>(~c);
    testing::overwrite(src, offset, flipped);
    {
      std::ifstream in(src, std::ios::binary);
      bytes.assign(std::istreambuf_iterator<char>(in), {});
    }
    if (e->CompactDatabase(src, out)) {
      EXPECT_EQ(rawScalar(out, "PRAGMA integrity_check"), "ok") << offset;
      EXPECT_GT(std::stol(rawScalar(out, "SELECT count(*) FROM t")), 10000) << offset;
    } else {
      EXPECT_TRUE(e->HasError()) << offset;
      EXPECT_FALSE(std::filesystem::exists(out)) << offset;
    }
    std::ifstream in(src, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), bytes) << offset;
  }
}

// The person's interrupt stops a compact, sound or salvaging, with 3059 and
// no copy left behind; it stops a statement too, whose changes are undone.
TEST_F(EngineConnectionTest, AnInterruptStopsCompactAndStatementsAndUndoesTheirWork) {
  static std::atomic<int> asked{0};
  static int stopAfter = 0;
  setInterruptCheck([] { return ++asked > stopAfter; });
  std::string big = dir / "big.db";
  makeBig(big, 4000);
  for (bool damaged : {false, true}) {
    if (damaged) testing::overwrite(big, 40 * 1024, std::string(3 * 1024, '\x5a'));
    std::string out = dir / "copy.db";
    asked = 0;
    EXPECT_FALSE(e->CompactDatabase(big, out)) << damaged;
    EXPECT_EQ(e->GetLastError().number, errc::kCancelled) << damaged;
    EXPECT_GT(asked, 0) << damaged;
    EXPECT_FALSE(std::filesystem::exists(out)) << damaged;
  }
  ASSERT_EQ(e->Open(db, 0, false), "OK");
  asked = 0;
  stopAfter = 3;
  int32_t n = 0;
  EXPECT_FALSE(e->ExecuteCommand(
      "INSERT INTO parts(name) SELECT 'x' FROM (WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 "
      "FROM n WHERE i < 100000000) SELECT i FROM n)",
      &n));
  EXPECT_EQ(e->GetLastError().number, errc::kCancelled);
  setInterruptCheck(nullptr);
  EXPECT_EQ(rawScalar(db, "SELECT count(*) FROM parts"), "3");
  ValueArray rows;
  EXPECT_TRUE(e->ExecuteSql("SELECT count(*) FROM parts", &rows));
}

// A database the engine wrote used to stay in WAL mode, and a WAL file on
// media that cannot be written could not be opened even read-only (3051).
// Now the engine leaves what it wrote in the rollback journal's mode, and a
// WAL file (as another program leaves it) opens read-only from read-only
// media. The media is a tmpfs mounted read-only in a mount namespace of a
// child process; where that cannot be made, that half is skipped.
TEST_F(EngineConnectionTest, ReadOnlyMediaOpenAWalFileAndWhatTheEngineWroteIsNotLeftInWal) {
  auto journalByte = [](const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    char header[20] = {};
    in.read(header, sizeof header);
    return int(header[18]);  // 1 rollback journal, 2 WAL
  };
  ASSERT_EQ(e->Open(db, 0, false), "OK");
  int32_t n = 0;
  ASSERT_TRUE(e->ExecuteCommand("INSERT INTO parts(name) VALUES ('cap')", &n));
  EXPECT_EQ(journalByte(db), 2);  // writing journals in WAL
  e->Close();
  EXPECT_EQ(journalByte(db), 1);
  EXPECT_FALSE(std::filesystem::exists(db + "-wal"));

  std::string media = dir / "media";
  std::filesystem::create_directories(media);
  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("none", media.c_str(), "tmpfs", 0, nullptr) != 0)
      ::_exit(77);
    std::string wal = media + "/wal.db";
    rawSql(wal, "PRAGMA journal_mode=WAL; CREATE TABLE t(a); INSERT INTO t VALUES (1), (2);");
    if (journalByte(wal) != 2) ::_exit(10);
    if (::mount("none", media.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0) ::_exit(77);
    EngineConnection ro = createEngine();
    if (ro->Open(wal, 0, true) != "OK") ::_exit(11);
    ValueArray rows;
    if (!ro->ExecuteSql("SELECT count(*) AS n FROM t", &rows) || rows.size() != 3 || rows[2].asInteger() != 2)
      ::_exit(12);
    int32_t changed = 0;
    if (ro->ExecuteCommand("DELETE FROM t", &changed)) ::_exit(13);
    ro->Close();
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "no read-only media here: cannot mount a tmpfs in a mount namespace";
  EXPECT_EQ(WEXITSTATUS(status), 0) << "10 not WAL, 11 open failed, 12 read failed, 13 a write went through";
}

TEST_F(EngineConnectionTest, CompactCopiesEverythingOfASoundFileAndKeepsCounters) {
  rawSql(db,
         "CREATE INDEX parts_name ON parts(name); CREATE VIEW big AS SELECT * FROM parts WHERE size > 2;"
         "DELETE FROM parts WHERE name = 'wye';");
  std::string out = dir / "compact.db";
  ASSERT_TRUE(e->CompactDatabase(db, out)) << e->GetLastError().description;
  EXPECT_FALSE(e->HasError());
  EXPECT_EQ(rawScalar(out, "SELECT group_concat(name) FROM parts"), "elbow,tee");
  EXPECT_EQ(rawScalar(out, "SELECT count(*) FROM sqlite_master WHERE name IN ('parts_name', 'big')"), "2");
  EXPECT_EQ(rawScalar(out, "SELECT seq FROM sqlite_sequence WHERE name = 'parts'"), "3");
}

TEST_F(EngineConnectionTest, CompactRefusesBadSourcesAndDestinations) {
  std::string taken = dir / "taken.db";
  rawSql(taken, "CREATE TABLE keep(a); INSERT INTO keep VALUES (42);");
  std::string garbage = dir / "garbage.db";
  std::ofstream(garbage) << std::string(8192, '\x33');
  struct Case {
    std::string src, dst;
    long error;
  } cases[] = {
      {dir / "none.db", dir / "a.db", errc::kCouldNotFindFile},
      {db, taken, errc::kDatabaseExists},
      {db, db, errc::kDatabaseExists},
      {db, dir / "nodir/a.db", errc::kInvalidPath},
      {garbage, dir / "b.db", errc::kUnrecognizedFormat},
  };
  for (const Case &c : cases) {
    EXPECT_FALSE(e->CompactDatabase(c.src, c.dst)) << c.src << " -> " << c.dst;
    EXPECT_EQ(e->GetLastError().number, c.error) << c.src << " -> " << c.dst;
  }
  EXPECT_EQ(rawScalar(taken, "SELECT a FROM keep"), "42");
  EXPECT_FALSE(std::filesystem::exists(dir / "b.db"));
}

TEST_F(EngineConnectionTest, DamageFoundLaterMakesTheConnectionDeadAndTheNextOpenAsksForRepair) {
  std::string big = dir / "large.db";
  makeBig(big, 60000);  // above the size that is fully checked on open
  long pages = std::stol(rawScalar(big, "PRAGMA page_count"));
  ASSERT_GT(pages * 1024, 2 << 20);
  testing::overwrite(big, (pages / 2) * 1024, std::string(2 * 1024, '\x5a'));
  ASSERT_EQ(e->Open(big, 0, true), "OK");
  ValueArray rows;
  EXPECT_FALSE(e->ExecuteSql("SELECT count(label) FROM t", &rows));
  EXPECT_EQ(e->GetLastError().number, errc::kCorrupt);
  EXPECT_FALSE(e->IsAlive());
  EXPECT_EQ(e->Open(big, 0, true), "*REPAIR*");
}

TEST(EngineFactory, FailsWhileItsEnvSaysSoAndHandlesAreShared) {
  int32_t hr = 0;
  {
    testing::FailingCreation fault;
    EXPECT_FALSE(createEngine(&hr));
    EXPECT_EQ(hr, hr::kClassNotRegistered);
    EXPECT_LT(hr, 0);
  }
  EngineConnection a = createEngine(&hr);
  ASSERT_TRUE(a);
  EXPECT_EQ(hr, hr::kOk);
  EngineConnection b = a;
  EXPECT_EQ(a.use_count(), 2);
  EXPECT_FALSE(a->IsConnected());
  EXPECT_FALSE(a->HasError());
}

TEST(EngineFactory, VersionIsMajorAndMinorOfTheLibrary) {
  int major = 0, minor = 0;
  ASSERT_EQ(std::sscanf(sqlite3_libversion(), "%d.%d", &major, &minor), 2);
  EXPECT_EQ(createEngine()->GetVersion(), major * 100 + minor);
}

TEST(EngineValues, DatesNormaliseToSortableText) {
  struct Case {
    const char *in, *out;
  } cases[] = {
      {"2024-01-31", "2024-01-31 00:00:00"},
      {"2024-01-31 13:05", "2024-01-31 13:05:00"},
      {"2024-01-31T13:05:09", "2024-01-31 13:05:09"},
      {"1/31/2024", "2024-01-31 00:00:00"},
      {"12/1/2023 1:30 PM", "2023-12-01 13:30:00"},
      {"12/1/2023 12:00:05 am", "2023-12-01 00:00:05"},
      {"2024-02-29", "2024-02-29 00:00:00"},
      {"2023-02-29", nullptr},
      {"2024-13-01", nullptr},
      {"31/1/2024", nullptr},
      {"2024-01-31 24:00", nullptr},
      {"yesterday", nullptr},
      {"2024-01-31x", nullptr},
      {"", nullptr},
  };
  for (const Case &c : cases) {
    std::string out;
    EXPECT_EQ(normalizeDate(c.in, &out), c.out != nullptr) << c.in;
    if (c.out) {
      EXPECT_EQ(out, c.out) << c.in;
    }
  }
}

}  // namespace
}  // namespace vantry::engine
