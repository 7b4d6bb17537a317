// The engine on both back ends: the same cases on SQLite and on a real local
// PostgreSQL server (skipped with the reason when it cannot start), then
// what only a server has: two users' commits and conflicts, a lost server,
// and the ways the product names a server.
#include <gtest/gtest.h>
#include <libpq-fe.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "engine/engine.h"
#include "engine/schema.h"
#include "moved_clock.h"
#include "pg_server.h"

namespace vantry::engine {
namespace {

using testing::MovedClock;
using testing::PgServer;

std::string show(const Record &r, const std::string &name) {
  for (const Field &f : r)
    if (f.name == name) return f.value.debugString();
  return "<missing>";
}

class TempDir {
 public:
  TempDir() {
    std::string tmpl = (std::filesystem::temp_directory_path() / "vantry-pg-XXXXXX").string();
    path_ = mkdtemp(tmpl.data());
  }
  ~TempDir() { std::filesystem::remove_all(path_); }
  std::string operator/(const std::string &name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// One database on either back end, opened through createEngine as the module opens it.
class BothEngines : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    if (GetParam() == "postgresql") {
      if (!PgServer::shared().running()) GTEST_SKIP() << "no PostgreSQL server: " << PgServer::shared().why();
      target = PgServer::shared().freshSchema("both");
    } else {
      target = dir / "both.db";
      LastError err;
      ASSERT_TRUE(CreateDatabaseFile(target, &err)) << err.description;
    }
    e = createEngine();
    ASSERT_EQ(e->Open(target, 0, false), "OK") << e->GetLastError().description;
    sql("CREATE TABLE ducts (id COUNTER PRIMARY KEY, tag TEXT(20), width LONG, height LONG, flow DOUBLE, "
        "lined YESNO, made DATETIME)");
    sql("CREATE UNIQUE INDEX by_tag ON ducts (tag)");
    sql("CREATE INDEX by_size ON ducts (width, height)");
    for (const char *row : {"'D-7', 400, 200, 1.5, True, #1/31/2024#", "'a-1', 300, 250, NULL, False, NULL",
                            "'b-2', 400, 150, 0.5, True, NULL", "'E-9', 300, 250, 3, False, NULL"})
      sql(std::string("INSERT INTO ducts (tag, width, height, flow, lined, made) VALUES (") + row + ")");
  }

  void sql(const std::string &text, ValueArray *out = nullptr) {
    ValueArray ignored;
    ASSERT_TRUE(e->ExecuteSql(text, out ? out : &ignored)) << text << ": " << e->GetLastError().description;
  }

  std::vector<std::string> walk(int step) {
    std::vector<std::string> tags;
    Record r;
    bool ok = step > 0 ? e->MoveFirst(&r) : e->MoveLast(&r);
    for (; ok; ok = e->Skip(step, &r)) tags.push_back(show(r, "tag"));
    EXPECT_EQ(e->GetLastError().number, errc::kNoCurrentRecord);
    return tags;
  }

  TempDir dir;
  std::string target;
  EngineConnection e;
};

TEST_P(BothEngines, CursorsOrderByIndexWalkBothWaysAndSeek) {
  ASSERT_TRUE(e->OpenTable("DUCTS", "by_tag"));
  EXPECT_EQ(e->CurrentTable(), "ducts");
  // The server walks a text index without regard to case; SQLite walks an
  // index that SQL made in the order of its bytes (upper case first).
  std::vector<std::string> up = GetParam() == "postgresql"
                                    ? std::vector<std::string>{"\"a-1\"", "\"b-2\"", "\"D-7\"", "\"E-9\""}
                                    : std::vector<std::string>{"\"D-7\"", "\"E-9\"", "\"a-1\"", "\"b-2\""};
  EXPECT_EQ(walk(1), up);
  Record r;
  EXPECT_FALSE(e->Skip(1, &r));  // past the end stays past it
  EXPECT_EQ(e->GetLastError().number, errc::kNoCurrentRecord);
  EXPECT_FALSE(e->GetRecord(&r));
  EXPECT_EQ(walk(-1), std::vector<std::string>(up.rbegin(), up.rend()));
  EXPECT_FALSE(e->Skip(-1, &r));
  EXPECT_EQ(e->GetLastError().number, errc::kNoCurrentRecord);
  ASSERT_TRUE(e->Skip(1, &r));  // from before the first, a step forward lands on it
  EXPECT_EQ(show(r, "tag"), up[0]);
  ASSERT_TRUE(e->MoveFirst(&r));
  ASSERT_TRUE(e->Skip(2, &r));
  EXPECT_EQ(show(r, "tag"), up[2]);
  ASSERT_TRUE(e->Skip(-1, &r));
  EXPECT_EQ(show(r, "tag"), up[1]);

  // Seeks compare text without regard to case, and on leading fields only.
  ASSERT_TRUE(e->SeekValue(Value::text("d-7"), &r)) << e->GetLastError().description;
  EXPECT_EQ(show(r, "width"), "400");
  EXPECT_EQ(show(r, "lined"), "<true>");
  EXPECT_EQ(show(r, "made"), "#2024-01-31 00:00:00#");
  ASSERT_TRUE(e->Skip(1, &r));  // the walk goes on from the record found
  EXPECT_EQ(show(r, "tag"), up[(std::find(up.begin(), up.end(), "\"D-7\"") - up.begin()) + 1]);
  EXPECT_FALSE(e->SeekValue(Value::text("zz"), &r));
  EXPECT_EQ(e->GetLastError().number, errc::kNoCurrentRecord);

  ASSERT_TRUE(e->OpenTable("ducts", "by_size"));
  std::array<Value, 10> keys{Value::integer(400)};
  ASSERT_TRUE(e->SeekValues(keys, &r));
  EXPECT_EQ(show(r, "tag"), "\"b-2\"");  // 400 x 150 before 400 x 200
  int32_t n = 0;
  ASSERT_TRUE(e->RecordCount(&n));
  EXPECT_EQ(n, 4);

  ASSERT_TRUE(e->OpenTable("ducts", ""));
  EXPECT_FALSE(e->SeekValue(Value::integer(1), &r));
  EXPECT_EQ(e->GetLastError().number, errc::kNoCurrentIndex);
  EXPECT_FALSE(e->OpenTable("ducts", "nonesuch"));
  EXPECT_EQ(e->GetLastError().number, errc::kNotAnIndex);
  EXPECT_FALSE(e->OpenTable("nowhere", ""));
  EXPECT_EQ(e->GetLastError().number, errc::kNoSuchTable);
}

TEST_P(BothEngines, RecordsAreWrittenOrRefusedWhole) {
  ASSERT_TRUE(e->OpenTable("ducts", "by_tag"));
  Record stored;
  ASSERT_TRUE(e->AppendRecord({{"tag", Value::text("F-1")}, {"width", Value::integer(600)}}, false, &stored))
      << e->GetLastError().description;
  EXPECT_EQ(show(stored, "id"), "5");
  EXPECT_EQ(show(stored, "flow"), "<null>");
  Record r;
  ASSERT_TRUE(e->Skip(-1, &r));  // the appended record is current in index order
  EXPECT_EQ(show(r, "tag"), "\"E-9\"");

  EXPECT_FALSE(e->AppendRecord({{"tag", Value::text("F-1")}}, false, &stored));
  EXPECT_EQ(e->GetLastError().number, errc::kDuplicateKey) << e->GetLastError().description;
  EXPECT_FALSE(e->AppendRecord({{"colour", Value::text("red")}}, false, &stored));
  EXPECT_EQ(e->GetLastError().number, errc::kItemNotFound);
  EXPECT_FALSE(e->AppendRecord({{"tag", Value::text("G")}, {"width", Value::text("wide")}}, false, &stored));
  EXPECT_EQ(e->GetLastError().number, errc::kConversion);

  ASSERT_TRUE(e->SeekValue(Value::text("a-1"), &r));
  ASSERT_TRUE(e->ReplaceRecord({{"width", Value::integer(350)}}, &stored));
  EXPECT_EQ(show(stored, "width"), "350");
  EXPECT_EQ(show(stored, "tag"), "\"a-1\"");
  EXPECT_FALSE(e->ReplaceRecord({{"id", Value::integer(99)}}, &stored));
  EXPECT_EQ(e->GetLastError().number, errc::kFieldNotUpdatable);
  ASSERT_TRUE(e->DeleteRecord());
  EXPECT_FALSE(e->GetRecord(&r));
  EXPECT_EQ(e->GetLastError().number, errc::kNoCurrentRecord);
  ASSERT_TRUE(e->Skip(1, &r));  // from the gap the deletion left, to the next record
  EXPECT_EQ(show(r, "tag"), "\"b-2\"");

  ValueArray rows;
  sql("SELECT tag, width FROM ducts WHERE tag = 'B-2'", &rows);
  ASSERT_EQ(rows.size(), 5u);
  EXPECT_EQ(rows[2].debugString(), "\"b-2\"");
}

TEST_P(BothEngines, AccessSqlStoredQueriesAndErrors) {
  ValueArray out;
  sql("UPDATE ducts SET flow = 2 WHERE width = 300", &out);
  ASSERT_EQ(out.size(), 1u);
  EXPECT_EQ(out[0].debugString(), "2");
  sql("SELECT TOP 1 [tag] & '/' & width AS label FROM ducts WHERE tag LIKE 'd*' ORDER BY tag", &out);
  ASSERT_EQ(out.size(), 3u);
  EXPECT_EQ(out[2].debugString(), "\"D-7/400\"");
  int32_t n = -1;
  EXPECT_FALSE(e->ExecuteCommand("SELECT * FROM ducts", &n));
  EXPECT_EQ(e->GetLastError().number, errc::kCannotExecuteSelect);
  EXPECT_FALSE(e->ExecuteSql("SELECT * FROM nowhere", &out));
  EXPECT_EQ(e->GetLastError().number, errc::kNoSuchTable);
  EXPECT_FALSE(e->ExecuteSql("DELETE FROM ducts; DELETE FROM ducts", &out));
  EXPECT_EQ(e->GetLastError().number, errc::kCharsAfterEnd);

  ASSERT_TRUE(e->CreateQuery("wide", "PARAMETERS w Long; SELECT tag FROM ducts WHERE width >= w ORDER BY tag"))
      << e->GetLastError().description;
  EXPECT_FALSE(e->CreateQuery("WIDE", "SELECT 1"));
  EXPECT_EQ(e->GetLastError().number, errc::kObjectExists);
  ASSERT_TRUE(e->RunQuery("wide", {Value::integer(400)}, &out)) << e->GetLastError().description;
  ASSERT_EQ(out.size(), 6u);
  EXPECT_EQ(out[2].debugString(), "\"b-2\"");
  EXPECT_FALSE(e->RunQuery("wide", {}, &out));
  EXPECT_EQ(e->GetLastError().number, errc::kTooFewParameters);

  // Names that the dialect's functions share (vt_..., Len, Nz) name a
  // table's things where they are not called.
  ASSERT_TRUE(e->ExecuteSql("CREATE INDEX vt_by_width ON ducts (width)", &out)) << e->GetLastError().description;
  ASSERT_TRUE(e->ExecuteSql("CREATE TABLE vt_notes (len LONG, nz TEXT(10))", &out)) << e->GetLastError().description;
  ASSERT_TRUE(e->ExecuteSql("INSERT INTO vt_notes (len, nz) VALUES (3, 'abc')", &out)) << e->GetLastError().description;
  ASSERT_TRUE(e->ExecuteSql("SELECT len, Len(nz) AS n FROM vt_notes", &out)) << e->GetLastError().description;
  ASSERT_EQ(out.size(), 5u);  // the row's marker, then name and value of each field
  EXPECT_EQ(out[2].debugString(), "3");
  EXPECT_EQ(out[4].debugString(), "3") << "Len(nz) of 'abc'";
}

INSTANTIATE_TEST_SUITE_P(Engines, BothEngines, ::testing::Values("sqlite", "postgresql"),
                         [](const auto &info) { return info.param; });

// --- What only a server has ---

class PgServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!PgServer::shared().running()) GTEST_SKIP() << "no PostgreSQL server: " << PgServer::shared().why();
    url = PgServer::shared().freshSchema("srv");
    a = open();
    ValueArray out;
    ASSERT_TRUE(a->ExecuteSql("CREATE TABLE parts (id COUNTER PRIMARY KEY, name TEXT(30), qty LONG)", &out));
    for (int i = 1; i <= 600; ++i)
      ASSERT_TRUE(a->ExecuteSql("INSERT INTO parts (name, qty) VALUES ('p" + std::to_string(i) + "', " +
                                    std::to_string(i) + ")",
                                &out));
  }
  EngineConnection open() {
    EngineConnection e = createEngine();
    EXPECT_EQ(e->Open(url, 0, false), "OK") << e->GetLastError().description;
    return e;
  }
  // The schema the fixture's URL names.
  std::string schema() const { return url.substr(url.find("schema=") + 7); }
  MovedClock clock;
  std::string url;
  EngineConnection a;
};

TEST_F(PgServerTest, TwoUsersSeeEachOthersCommitsAndConflicts) {
  EngineConnection b = open();
  ASSERT_TRUE(a->OpenTable("parts", ""));
  ASSERT_TRUE(b->OpenTable("parts", ""));
  Record r, stored;
  ASSERT_TRUE(b->AppendRecord({{"name", Value::text("from b")}}, false, &stored));
  clock.later();
  ASSERT_TRUE(a->MoveLast(&r));
  EXPECT_EQ(show(r, "name"), "\"from b\"");

  // Both read record 1; b writes first; a's write of what it read is refused.
  ASSERT_TRUE(a->MoveFirst(&r));
  ASSERT_TRUE(b->MoveFirst(&r));
  ASSERT_TRUE(b->ReplaceRecord({{"qty", Value::integer(-5)}}, &stored));
  EXPECT_FALSE(a->ReplaceRecord({{"qty", Value::integer(7)}}, &stored));
  EXPECT_EQ(a->GetLastError().number, 3260) << a->GetLastError().description;
  ASSERT_TRUE(a->GetRecord(&r));  // read again, it can be written
  EXPECT_EQ(show(r, "qty"), "-5");
  ASSERT_TRUE(a->ReplaceRecord({{"qty", Value::integer(7)}}, &stored));

  // A row held by another user's open transaction: the lock error after a moment.
  PGconn *raw = PQconnectdb(url.substr(0, url.find('?')).c_str());
  PQclear(PQexec(raw, ("BEGIN; UPDATE " + schema() + ".parts SET qty = 0 WHERE id = 1").c_str()));
  EXPECT_FALSE(a->ReplaceRecord({{"qty", Value::integer(8)}}, &stored));
  EXPECT_EQ(a->GetLastError().number, errc::kLocked) << a->GetLastError().description;
  PQclear(PQexec(raw, "ROLLBACK"));
  PQfinish(raw);

  // Records another user deletes during a walk are passed over.
  ASSERT_TRUE(a->MoveFirst(&r));
  ValueArray out;
  ASSERT_TRUE(b->ExecuteSql("DELETE FROM parts WHERE id BETWEEN 2 AND 300", &out));
  clock.later();
  ASSERT_TRUE(a->Skip(1, &r));
  EXPECT_EQ(show(r, "id"), "301");
}

// Seeks in a text field's order, which is case-blind, are indexed queries:
// the cursor makes an index of its own for that order, which the schema's
// listings leave out. Counted by the server: its statistics of the rows it
// read, by scans of the table or through an index (a seek that scans the key
// in order until a name matches reads thousands), written when the seeking
// connection ends. Making the index reads the table once, the cursor's keys
// once more.
TEST_F(PgServerTest, ASeekInACaseBlindOrderIsAnIndexedQueryThroughAnIndexNoListingShows) {
  ValueArray out;
  ASSERT_TRUE(a->ExecuteSql("CREATE INDEX by_name ON parts (name)", &out)) << a->GetLastError().description;
  const std::string table = schema() + ".parts";
  ASSERT_TRUE(PgServer::shared().admin("INSERT INTO " + table +
                                       " (name, qty) SELECT 'Q' || g, g FROM generate_series(1, 20000) g; ANALYZE " +
                                       table));
  PGconn *raw = PQconnectdb(url.substr(0, url.find('?')).c_str());
  ASSERT_EQ(PQstatus(raw), CONNECTION_OK);
  auto stats = [&](long long *rowsRead, long long *indexScans) {
    PGresult *r = PQexec(raw, ("SELECT coalesce(seq_tup_read, 0) + coalesce(idx_tup_fetch, 0), coalesce(idx_scan, 0) "
                               "FROM pg_stat_user_tables "
                               "WHERE schemaname = '" + schema() + "' AND relname = 'parts'")
                                  .c_str());
    ASSERT_EQ(PQntuples(r), 1) << PQerrorMessage(raw);
    *rowsRead = std::atoll(PQgetvalue(r, 0, 0));
    *indexScans = std::atoll(PQgetvalue(r, 0, 1));
    PQclear(r);
  };
  long long rows0 = 0, scans0 = 0, rows = 0, scans = 0;
  stats(&rows0, &scans0);
  constexpr int kSeeks = 20;
  {
    EngineConnection b = open();
    ASSERT_TRUE(b->OpenTable("parts", "by_name")) << b->GetLastError().description;
    Record r;
    for (int i = 1; i <= kSeeks; ++i) {
      std::string n = std::to_string(i * 997);
      ASSERT_TRUE(b->SeekValue(Value::text("q" + n), &r)) << n << ": " << b->GetLastError().description;
      EXPECT_EQ(show(r, "qty"), n);
    }
    EXPECT_FALSE(b->SeekValue(Value::text("nonesuch"), &r));
    // A walk from a seek goes on in the order, through the blocks read by range.
    ASSERT_TRUE(b->SeekValue(Value::text("Q19998"), &r));
    ASSERT_TRUE(b->Skip(1, &r));
    EXPECT_EQ(show(r, "name"), "\"Q19999\"");
    ASSERT_TRUE(b->Skip(1, &r));
    EXPECT_EQ(show(r, "name"), "\"Q2\"");
  }
  for (int wait = 0; wait < 100; ++wait) {
    stats(&rows, &scans);
    if (scans - scans0 >= kSeeks) break;
    usleep(100'000);
  }
  EXPECT_GE(scans - scans0, kSeeks);
  EXPECT_LT(rows - rows0, 3 * 20600) << "the seeks read the table row by row";

  // The index is there, and no listing of the schema's shows it.
  PGresult *hidden = PQexec(raw, ("SELECT indexname FROM pg_indexes WHERE schemaname = '" + schema() +
                                  "' AND tablename = 'parts' AND indexname LIKE 'vt\\_order\\_%'")
                                     .c_str());
  ASSERT_EQ(PQntuples(hidden), 1);
  const std::string hiddenName = PQgetvalue(hidden, 0, 0);
  PQclear(hidden);
  PQfinish(raw);
  std::vector<IndexSpec> indexes;
  ASSERT_TRUE(a->schema()->ListIndexes("parts", &indexes));
  std::vector<std::string> names;
  for (const IndexSpec &ix : indexes) names.push_back(ix.name);
  EXPECT_EQ(names, (std::vector<std::string>{"PrimaryKey", "by_name"}));
  ASSERT_TRUE(a->OpenTable("parts", "by_name"));
  EXPECT_FALSE(a->OpenTable("parts", hiddenName));
  EXPECT_EQ(a->GetLastError().number, errc::kNotAnIndex);
  // An index of the user's may be named alike.
  ASSERT_TRUE(PgServer::shared().admin("CREATE INDEX vt_order_qty ON " + table + " (qty)"));
  EXPECT_TRUE(a->OpenTable("parts", "vt_order_qty")) << a->GetLastError().description;
}

// A walk asks for its next block while it serves the one before: a block
// asked for before another user's commit, and taken after the read-ahead's
// time, is read again, never served.
TEST_F(PgServerTest, ABlockAskedForAheadOfAWalkIsNotServedStale) {
  ASSERT_TRUE(PgServer::shared().admin("INSERT INTO " + schema() +
                                       ".parts (name, qty) SELECT 'r' || g, g FROM generate_series(601, 3000) g"));
  EngineConnection b = open();
  ASSERT_TRUE(a->OpenTable("parts", ""));
  Record r;
  ASSERT_TRUE(a->MoveFirst(&r));
  // Step by step, so that the blocks grow and the next is asked for: the
  // record that ends the second block.
  for (int id = 2; id <= 768; ++id) ASSERT_TRUE(a->Skip(1, &r)) << id;
  EXPECT_EQ(show(r, "id"), "768");
  ValueArray out;
  ASSERT_TRUE(b->ExecuteSql("UPDATE parts SET qty = -769 WHERE id = 769", &out));
  ASSERT_TRUE(b->ExecuteSql("DELETE FROM parts WHERE id = 770", &out));
  clock.later();
  ASSERT_TRUE(a->Skip(1, &r));
  EXPECT_EQ(show(r, "qty"), "-769");
  ASSERT_TRUE(a->Skip(1, &r));
  EXPECT_EQ(show(r, "id"), "771");
  // And to the end, every record once.
  int n = 0;
  while (a->Skip(1, &r)) ++n;
  EXPECT_EQ(n, 3000 - 771);
  EXPECT_EQ(a->GetLastError().number, errc::kNoCurrentRecord);
}

// A walk in a text index's order reads its blocks as ranges of that order;
// a record whose place another user changed, or whose field they emptied,
// is still served at its place in the walk, with its values as they are now.
TEST_F(PgServerTest, AWalkInATextOrderServesRecordsAnotherUserMoved) {
  ValueArray out;
  ASSERT_TRUE(a->ExecuteSql("CREATE INDEX by_name ON parts (name)", &out)) << a->GetLastError().description;
  EngineConnection b = open();
  ASSERT_TRUE(a->OpenTable("parts", "by_name"));
  Record r;
  std::vector<std::string> order;
  for (bool ok = a->MoveFirst(&r); ok; ok = a->Skip(1, &r)) order.push_back(show(r, "id"));
  ASSERT_EQ(order.size(), 600u);
  EXPECT_EQ(std::vector<std::string>(order.begin(), order.begin() + 4), (std::vector<std::string>{"1", "10", "100", "101"}));
  ASSERT_TRUE(a->MoveFirst(&r));
  ASSERT_TRUE(b->ExecuteSql("UPDATE parts SET name = 'ZZZ' WHERE id = " + order[3], &out));
  ASSERT_TRUE(b->ExecuteSql("UPDATE parts SET name = NULL WHERE id = " + order[4], &out));
  clock.later();
  for (size_t i = 1; i < 8; ++i) {
    ASSERT_TRUE(a->Skip(1, &r)) << i;
    EXPECT_EQ(show(r, "id"), order[i]);
    if (i == 3) {
      EXPECT_EQ(show(r, "name"), "\"ZZZ\"");
    }
    if (i == 4) {
      EXPECT_EQ(show(r, "name"), Value::null().debugString());
    }
  }
}

TEST_F(PgServerTest, ALostServerConnectionIsADeadEngineAndLosesNothing) {
  ASSERT_TRUE(a->OpenTable("parts", ""));
  Record r;
  ASSERT_TRUE(a->Skip(300, &r));
  EXPECT_EQ(show(r, "id"), "301");
  // Only this connection is cut: other tests use the same server at once.
  // Its last statement carries a mark the others' do not.
  std::string mark = "lost " + schema();
  ValueArray out;
  ASSERT_TRUE(a->ExecuteSql("SELECT '" + mark + "' AS m", &out)) << a->GetLastError().description;
  ASSERT_TRUE(PgServer::shared().admin("SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE query LIKE '%" +
                                       mark + "%' AND pid <> pg_backend_pid()"));
  Record stored;
  EXPECT_FALSE(a->ReplaceRecord({{"qty", Value::integer(0)}}, &stored));
  EXPECT_EQ(a->GetLastError().number, errc::kDiskOrNetwork) << a->GetLastError().description;
  EXPECT_FALSE(a->IsAlive());
  // The per-call check reopens: the table is lost, the data whole.
  EngineConnection again = open();
  ASSERT_TRUE(again->OpenTable("parts", ""));
  int32_t n = 0;
  ASSERT_TRUE(again->RecordCount(&n));
  EXPECT_EQ(n, 600);
  ASSERT_TRUE(again->ExecuteSql("SELECT qty FROM parts WHERE id = 301", &out));
  EXPECT_EQ(out[2].debugString(), "301");
}

TEST_F(PgServerTest, TheProductNamesAServerByUrlOrByAFileBesideTheDrawing) {
  TempDir dir;
  std::ofstream(dir / "standards.pgconnect") << "# the office's server\n" << url << "\n";
  std::ofstream(dir / "standards.mdb") << "";
  for (const std::string &path : {dir / "standards.pgconnect", dir / "standards.mdb"}) {
    EngineConnection e = createEngine();
    ASSERT_EQ(e->Open(path, 0, false), "OK") << path << ": " << e->GetLastError().description;
    ASSERT_TRUE(e->OpenTable("parts", "PrimaryKey"));
    int32_t n = 0;
    ASSERT_TRUE(e->RecordCount(&n));
    EXPECT_EQ(n, 600);
  }
  EngineConnection e = createEngine();
  EXPECT_EQ(e->Open(url.substr(0, url.find('?')) + "?schema=nonesuch", 0, false), "");
  EXPECT_EQ(e->GetLastError().number, errc::kCouldNotFindFile);
  EXPECT_EQ(e->Open("postgresql://vantry@127.0.0.1:1/postgres", 0, false), "");
  EXPECT_EQ(e->GetLastError().number, errc::kDiskOrNetwork);
  EngineConnection ro = createEngine();
  ASSERT_EQ(ro->Open(url, 0, true), "OK");
  EXPECT_EQ(ro->IsUpdatable(), 0);
  ASSERT_TRUE(ro->OpenTable("parts", ""));
  Record stored;
  EXPECT_FALSE(ro->AppendRecord({{"name", Value::text("x")}}, false, &stored));
  EXPECT_EQ(ro->GetLastError().number, errc::kReadOnly);
}

}  // namespace
}  // namespace vantry::engine
