// Table cursors: order by index, walking both ways, seeks, errors, and a
// table changed by another connection while a cursor walks it.
#include <sqlite3.h>

#include "engine/engine.h"
#include "engine_testing.h"

namespace vantry::engine {
namespace {

using testing::field;
using testing::rawSql;
using testing::TempDir;

// The ids of `query` (one integer column), read with raw SQLite.
std::vector<int> rawIds(const std::string &path, const std::string &query) {
  std::vector<int> ids;
  sqlite3 *db = nullptr;
  sqlite3_open(path.c_str(), &db);
  sqlite3_stmt *st = nullptr;
  sqlite3_prepare_v2(db, query.c_str(), -1, &st, nullptr);
  while (sqlite3_step(st) == SQLITE_ROW) ids.push_back(sqlite3_column_int(st, 0));
  sqlite3_finalize(st);
  sqlite3_close(db);
  return ids;
}

class EngineCursorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    db = dir / "ducts.db";
    rawSql(db,
           "CREATE TABLE ducts(id INTEGER PRIMARY KEY AUTOINCREMENT, tag TEXT, width INTEGER, height INTEGER,"
           "  flow REAL, lined BIT, made DATETIME);"
           "CREATE INDEX by_size ON ducts(width, height);"
           "CREATE UNIQUE INDEX by_tag ON ducts(tag COLLATE NOCASE);"
           "CREATE INDEX by_flow_desc ON ducts(flow DESC);"
           "INSERT INTO ducts(tag, width, height, flow, lined, made) VALUES"
           " ('D-7', 400, 200, 1.5, 1, '2024-01-31 10:00:00'),"
           " ('a-1', 300, 250, NULL, 0, '2023-12-01 00:00:00'),"
           " ('C-3', NULL, 100, 2.5, NULL, NULL),"
           " ('b-2', 400, 150, 0.5, -1, '2024-02-01 00:00:00'),"
           " ('E-9', 300, 250, 3.0, 0, NULL),"
           " ('F-4', 500, 100, 5000000000, 0, NULL);"
           "CREATE TABLE loose(name TEXT, n INTEGER);"  // no primary key: insertion order
           "INSERT INTO loose VALUES ('z', 1), ('y', 2), ('x', 3);"
           "CREATE TABLE codes(code TEXT PRIMARY KEY, label TEXT);"
           "INSERT INTO codes VALUES ('m', 'mid'), ('a', 'first'), ('z', 'last');"
           "CREATE TABLE pts(x REAL, y REAL, z REAL, name TEXT);"
           "CREATE INDEX xyz ON pts(x, y, z);"
           "INSERT INTO pts VALUES (1, 2, 3, 'p123'), (1, 2, 4, 'p124'), (1, 5, 0, 'p150');"
           "CREATE TABLE empty(id INTEGER PRIMARY KEY, v TEXT);");
    e = createEngine();
    ASSERT_EQ(e->Open(db, 0, false), "OK");
  }

  // Walks the current table from the first record with Skip(step), reading `key`.
  std::vector<std::string> walk(const std::string &key, int step = 1) {
    std::vector<std::string> out;
    Record r;
    if (!(step > 0 ? e->MoveFirst(&r) : e->MoveLast(&r))) return out;
    do out.push_back(field(r, key));
    while (e->Skip(step, &r) && out.size() < 100);
    EXPECT_EQ(e->GetLastError().number, errc::kNoCurrentRecord);
    return out;
  }
  std::vector<std::string> asText(const std::vector<int> &ids) {
    std::vector<std::string> out;
    for (int i : ids) out.push_back(std::to_string(i));
    return out;
  }

  TempDir dir;
  std::string db;
  EngineConnection e;
};

TEST_F(EngineCursorTest, EachIndexWalksInItsOwnOrderBothWays) {
  struct Case {
    const char *index;
    const char *orderBy;
  } cases[] = {
      {"", "id"},
      {"PrimaryKey", "id"},
      {"by_size", "width, height, id"},  // the NULL width first
      {"BY_TAG", "tag COLLATE NOCASE"},
      {"by_flow_desc", "flow DESC, id"},  // NULL flow last
  };
  for (const Case &c : cases) {
    ASSERT_TRUE(e->OpenTable("ducts", c.index)) << c.index << ": " << e->GetLastError().description;
    std::vector<int> want = rawIds(db, std::string("SELECT id FROM ducts ORDER BY ") + c.orderBy);
    EXPECT_EQ(walk("id"), asText(want)) << c.index;
    std::reverse(want.begin(), want.end());
    EXPECT_EQ(walk("id", -1), asText(want)) << c.index;
    EXPECT_EQ(e->CurrentIndex(), c.index);
    EXPECT_EQ(e->CurrentTable(), "ducts");
  }
}

TEST_F(EngineCursorTest, TablesWithoutIntegerKeysUseInsertionOrderOrTheirPrimaryKey) {
  ASSERT_TRUE(e->OpenTable("LOOSE", ""));
  EXPECT_EQ(e->CurrentTable(), "loose");
  EXPECT_EQ(walk("name"), (std::vector<std::string>{"\"z\"", "\"y\"", "\"x\""}));
  EXPECT_FALSE(e->OpenTable("loose", "PrimaryKey"));
  EXPECT_EQ(e->GetLastError().number, errc::kNotAnIndex);
  // In insertion order there is no key to seek on: the hidden row number is
  // no field of the table and must never match.
  ASSERT_TRUE(e->OpenTable("loose", ""));
  Record r;
  for (int rowid : {1, 2, 3}) {
    EXPECT_FALSE(e->SeekValue(Value::integer(rowid), &r)) << rowid << ": " << testing::show(r);
    EXPECT_EQ(e->GetLastError().number, errc::kNoCurrentIndex);
  }
  // Walked in key order without an index named, as Access's Seek it has no
  // current index; named as "PrimaryKey", its counter is the key to seek.
  ASSERT_TRUE(e->OpenTable("ducts", ""));
  EXPECT_FALSE(e->SeekValue(Value::integer(3), &r));
  EXPECT_EQ(e->GetLastError().number, errc::kNoCurrentIndex);
  ASSERT_TRUE(e->OpenTable("ducts", "PrimaryKey"));
  ASSERT_TRUE(e->SeekValue(Value::integer(3), &r));
  EXPECT_EQ(field(r, "tag"), "\"C-3\"");
  for (const char *index : {"", "PrimaryKey"}) {
    ASSERT_TRUE(e->OpenTable("codes", index));
    EXPECT_EQ(walk("label"), (std::vector<std::string>{"\"first\"", "\"mid\"", "\"last\""})) << index;
  }
}

TEST_F(EngineCursorTest, SkipCountsMovesAndStopsAtEitherEnd) {
  ASSERT_TRUE(e->OpenTable("ducts", "by_tag"));  // a-1 b-2 C-3 D-7 E-9 F-4
  Record r;
  ASSERT_TRUE(e->GetRecord(&r));  // the first record is current after opening
  EXPECT_EQ(field(r, "tag"), "\"a-1\"");
  struct Step {
    int count;
    const char *tag;  // nullptr: 3021
  } steps[] = {{2, "C-3"},    {0, "C-3"}, {-1, "b-2"},   {3, "E-9"},    {2, nullptr}, {-1, "F-4"},
               {-6, nullptr}, {1, "a-1"}, {-1, nullptr}, {-1, nullptr}, {6, "F-4"},   {1, nullptr}};
  for (const Step &s : steps) {
    bool ok = e->Skip(s.count, &r);
    EXPECT_EQ(ok, s.tag != nullptr) << s.count;
    if (s.tag) {
      EXPECT_EQ(field(r, "tag"), "\"" + std::string(s.tag) + "\"") << s.count;
    } else {
      EXPECT_EQ(e->GetLastError().number, errc::kNoCurrentRecord) << s.count;
      EXPECT_FALSE(e->GetRecord(&r));
    }
  }
}

TEST_F(EngineCursorTest, SeeksFindTheFirstMatchInIndexOrder) {
  struct Case {
    const char *table, *index;
    std::vector<Value> keys;
    const char *field, *want;  // want nullptr: not found (3021)
  } cases[] = {
      {"ducts", "by_tag", {Value::text("c-3")}, "tag", "\"C-3\""},  // the index ignores case
      {"ducts", "by_tag", {Value::text("q-0")}, "tag", nullptr},
      {"ducts", "by_size", {Value::integer(300)}, "tag", "\"a-1\""},
      {"ducts", "by_size", {Value::integer(400), Value::integer(200)}, "tag", "\"D-7\""},
      {"ducts", "by_size", {Value::real(400.0)}, "tag", "\"b-2\""},
      {"ducts", "by_size", {Value::text("400")}, "tag", "\"b-2\""},  // text to a number field
      {"ducts", "by_size", {Value::integer(400), Value::integer(999)}, "tag", nullptr},
      {"ducts", "PrimaryKey", {Value::integer(5)}, "tag", "\"E-9\""},  // the counter
      {"ducts", "PrimaryKey", {Value::integer(77)}, "tag", nullptr},
      {"codes", "PrimaryKey", {Value::text("z")}, "label", "\"last\""},
      {"pts", "xyz", {Value::real(1), Value::real(2)}, "name", "\"p123\""},
  };
  for (const Case &c : cases) {
    ASSERT_TRUE(e->OpenTable(c.table, c.index));
    Record r;
    bool ok = c.keys.size() == 1 ? e->SeekValue(c.keys[0], &r) : [&] {
      std::array<Value, 10> keys;
      std::copy(c.keys.begin(), c.keys.end(), keys.begin());
      return e->SeekValues(keys, &r);
    }();
    std::string label = std::string(c.table) + "/" + c.index + " " + c.keys[0].debugString();
    EXPECT_EQ(ok, c.want != nullptr) << label;
    if (c.want) {
      EXPECT_EQ(field(r, c.field), c.want) << label;
    } else {
      EXPECT_EQ(e->GetLastError().number, errc::kNoCurrentRecord) << label;
    }
  }
  Record r;
  ASSERT_TRUE(e->OpenTable("pts", "xyz"));
  ASSERT_TRUE(e->SeekPoint3(1, 2, 4, &r));
  EXPECT_EQ(field(r, "name"), "\"p124\"");
  ASSERT_TRUE(e->SeekPoint2(1, 5, &r));
  EXPECT_EQ(field(r, "name"), "\"p150\"");
  ASSERT_TRUE(e->Skip(-1, &r));  // the walk goes on from the record found
  EXPECT_EQ(field(r, "name"), "\"p124\"");
  ASSERT_TRUE(e->OpenTable("codes", "PrimaryKey"));
  EXPECT_FALSE(e->SeekPoint2(1, 2, &r));  // more keys than the index has fields
  EXPECT_EQ(e->GetLastError().number, errc::kNotSupported);
}

TEST_F(EngineCursorTest, TextSeeksFindAKeyWrittenInAnotherCase) {
  rawSql(db,
         "CREATE TABLE layers(LayerName TEXT, n INTEGER);"
         "CREATE INDEX by_layer ON layers(LayerName);"  // ordered by bytes
         "INSERT INTO layers VALUES ('HVAC-L0004', 1), ('hvac-l0004', 2), ('Supply Air', 3), ('SUPPLY AIR', 4),"
         " ('Supply', 5), ('Z', 6), ('a', 7);");
  ASSERT_TRUE(e->OpenTable("layers", "by_layer"));
  Record r;
  // Every case variant finds the first of its equals in index order.
  for (const char *key : {"hvac-l0004", "HVAC-L0004", "Hvac-L0004"}) {
    ASSERT_TRUE(e->SeekValue(Value::text(key), &r)) << key;
    EXPECT_EQ(field(r, "n"), "1") << key;
  }
  ASSERT_TRUE(e->SeekValue(Value::text("supply air"), &r));
  EXPECT_EQ(field(r, "n"), "4");
  ASSERT_TRUE(e->SeekValue(Value::text("A"), &r));
  EXPECT_EQ(field(r, "n"), "7");
  EXPECT_FALSE(e->SeekValue(Value::text("supply ai"), &r));
  EXPECT_EQ(e->GetLastError().number, errc::kNoCurrentRecord);
}

TEST_F(EngineCursorTest, RecordsCarryTypedValues) {
  ASSERT_TRUE(e->OpenTable("ducts", ""));
  Record r;
  ASSERT_TRUE(e->MoveFirst(&r));
  EXPECT_EQ(testing::show(r),
            "id=1 tag=\"D-7\" width=400 height=200 flow=1.5r lined=<true> made=#2024-01-31 10:00:00#");
  ASSERT_TRUE(e->Skip(2, &r));
  EXPECT_EQ(testing::show(r), "id=3 tag=\"C-3\" width=<null> height=100 flow=2.5r lined=<null> made=<null>");
  ASSERT_TRUE(e->Skip(1, &r));
  EXPECT_EQ(field(r, "lined"), "<true>");  // -1, as another program may store yes
  ASSERT_TRUE(e->MoveLast(&r));
  EXPECT_EQ(field(r, "flow"), "5000000000r");
}

TEST_F(EngineCursorTest, ErrorsHaveTheirNumbers) {
  Record r;
  int32_t n = 0;
  EXPECT_FALSE(e->MoveFirst(&r));  // no table open
  EXPECT_EQ(e->GetLastError().number, errc::kNoCurrentRecord);
  EXPECT_FALSE(e->OpenTable("nowhere", ""));
  EXPECT_EQ(e->GetLastError().number, errc::kNoSuchTable);
  EXPECT_FALSE(e->OpenTable("sqlite_master", ""));
  EXPECT_EQ(e->GetLastError().number, errc::kNoSuchTable);
  EXPECT_FALSE(e->OpenTable("ducts", "by_nothing"));
  EXPECT_EQ(e->GetLastError().number, errc::kNotAnIndex);
  ASSERT_TRUE(e->OpenTable("empty", ""));
  EXPECT_FALSE(e->HasError());
  EXPECT_FALSE(e->GetRecord(&r));
  EXPECT_EQ(e->GetLastError().number, errc::kNoCurrentRecord);
  EXPECT_FALSE(e->Skip(1, &r));
  ASSERT_TRUE(e->RecordCount(&n));
  EXPECT_EQ(n, 0);
  EngineConnection closed = createEngine();
  EXPECT_FALSE(closed->OpenTable("ducts", ""));
  EXPECT_EQ(closed->GetLastError().number, errc::kNoDatabase);
}

TEST_F(EngineCursorTest, CountCloseAndSeveralTables) {
  int32_t n = 0;
  ASSERT_TRUE(e->OpenTable("ducts", ""));
  ASSERT_TRUE(e->OpenTable("loose", ""));
  ASSERT_TRUE(e->RecordCount(&n));
  EXPECT_EQ(n, 3);
  ASSERT_TRUE(e->CloseTable());
  EXPECT_EQ(e->CurrentTable(), "");
  EXPECT_FALSE(e->RecordCount(&n));
  EXPECT_FALSE(e->CloseTable());
  ASSERT_TRUE(e->OpenTable("ducts", ""));
  ASSERT_TRUE(e->RecordCount(&n));
  EXPECT_EQ(n, 6);
  ASSERT_TRUE(e->CloseAllTables());
  EXPECT_EQ(e->CurrentIndex(), "");
  EXPECT_FALSE(e->GetRecord(nullptr));
}

TEST_F(EngineCursorTest, AWalkSeesWhatAnotherConnectionChanged) {
  ASSERT_TRUE(e->OpenTable("ducts", "by_tag"));
  Record r;
  ASSERT_TRUE(e->Skip(1, &r));  // b-2; the walk now has its snapshot
  rawSql(db,
         "INSERT INTO ducts(tag) VALUES ('bb');"
         "DELETE FROM ducts WHERE tag = 'C-3';");
  ASSERT_TRUE(e->Skip(1, &r));
  EXPECT_EQ(field(r, "tag"), "\"bb\"");
  ASSERT_TRUE(e->Skip(1, &r));
  EXPECT_EQ(field(r, "tag"), "\"D-7\"");
  // The current record deleted elsewhere: the walk goes on from where it was.
  rawSql(db, "DELETE FROM ducts WHERE tag = 'D-7';");
  ASSERT_TRUE(e->Skip(-1, &r));
  EXPECT_EQ(field(r, "tag"), "\"bb\"");
  rawSql(db, "DELETE FROM ducts WHERE tag = 'bb';");
  ASSERT_TRUE(e->Skip(1, &r));
  EXPECT_EQ(field(r, "tag"), "\"E-9\"");
}

}  // namespace
}  // namespace vantry::engine
