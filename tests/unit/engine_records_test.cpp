// Record editing: the counter, conversions and refusals, positions after a
// delete, read-only databases, and writes that survive a killed process.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>

#include "engine/engine.h"
#include "engine_testing.h"

namespace vantry::engine {
namespace {

using testing::field;
using testing::rawScalar;
using testing::rawSql;
using testing::TempDir;

Record rec(std::initializer_list<std::pair<const char *, Value>> fields) {
  Record r;
  for (const auto &[name, value] : fields) r.push_back({name, value});
  return r;
}

class EngineRecordsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    db = dir / "rooms.db";
    rawSql(
        db,
        "CREATE TABLE rooms(id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT NOT NULL, area REAL,"
        "  floor INTEGER, heated YESNO, checked DATE);"
        "CREATE UNIQUE INDEX by_name ON rooms(name);"
        "INSERT INTO rooms(name, area, floor) VALUES ('hall', 20, 0), ('office', 12.5, 1), ('store', 8, 1);"
        "CREATE TABLE plain(id INTEGER PRIMARY KEY, v TEXT);"  // a counter without AUTOINCREMENT
        "INSERT INTO plain VALUES (1, 'one'), (2, 'two');");
    e = createEngine();
    ASSERT_EQ(e->Open(db, 0, false), "OK");
  }
  // The counter of the last record, then climbs to `n` as the LISP caller does:
  // append, and delete again until the counter is n.
  std::string appendWithCounter(int n, const Record &r) {
    Record last, stored;
    int l = e->MoveLast(&last) ? last[0].value.asInteger() : 0;
    if (n < l) return "unable to match";
    for (;;) {
      if (!e->AppendRecord(r, false, &stored)) return "error " + std::to_string(e->GetLastError().number);
      int v = stored[0].value.asInteger();
      if (v == n) return testing::show(stored);
      if (v > n) return "unable to match";
      if (!e->DeleteRecord()) return "failed to delete";
    }
  }

  TempDir dir;
  std::string db;
  EngineConnection e;
};

TEST_F(EngineRecordsTest, AppendNumbersTheCounterAndReturnsTheStoredRecord) {
  ASSERT_TRUE(e->OpenTable("rooms", ""));
  Record stored;
  ASSERT_TRUE(e->AppendRecord(rec({{"name", Value::text("lab")},
                                   {"AREA", Value::integer(30)},
                                   {"heated", Value::boolean(true)},
                                   {"checked", Value::text("3/4/2024")},
                                   {"id", Value::integer(99)}}),
                              false, &stored));
  EXPECT_EQ(testing::show(stored),
            "id=4 name=\"lab\" area=30r floor=<null> heated=<true> checked=#2024-03-04 00:00:00#");
  EXPECT_EQ(rawScalar(db, "SELECT heated || '|' || checked FROM rooms WHERE id = 4"),
            "-1|2024-03-04 00:00:00");
  Record now;
  ASSERT_TRUE(e->GetRecord(&now));  // the new record is current
  EXPECT_EQ(now, stored);
  ASSERT_TRUE(
      e->AppendRecord(rec({{"name", Value::text("attic")}, {"id", Value::integer(40)}}), true, &stored));
  EXPECT_EQ(field(stored, "id"), "40");  // kept when asked to
}

// An append answers the record as the file holds it: what the table's
// defaults, its fields' affinities and its triggers made of the values, not
// the values as given; and a record given whole is current after the append
// as one read back is.
TEST_F(EngineRecordsTest, TheStoredRecordIsWhatTheFileHoldsAfterDefaultsAffinitiesAndTriggers) {
  rawSql(db,
         "CREATE TABLE parts(id INTEGER PRIMARY KEY AUTOINCREMENT, tag TEXT, size NUMERIC, note TEXT,"
         "  made DATETIME DEFAULT '2020-01-02 03:04:05', weight REAL);"
         "CREATE INDEX parts_tag ON parts(tag);");
  ASSERT_TRUE(e->OpenTable("parts", "parts_tag"));
  auto append = [&](const Record &r) {
    Record stored, now;
    EXPECT_TRUE(e->AppendRecord(r, false, &stored)) << e->GetLastError().description;
    EXPECT_TRUE(e->GetRecord(&now));
    EXPECT_EQ(now, stored) << "the answer differs from the record read back";
    return stored;
  };
  // Every field given, each kept as it is.
  EXPECT_EQ(testing::show(append(rec({{"tag", Value::text("B-1")}, {"size", Value::real(2.5)}, {"note", Value::text("x")},
                        {"made", Value::text("2024-05-06 07:08:09")}, {"weight", Value::integer(3)}}))),
            "id=1 tag=\"B-1\" size=2.5r note=\"x\" made=#2024-05-06 07:08:09# weight=3r");
  // A text that reads as a number becomes one in a numeric field (which
  // reads as a real, as Access's NUMERIC does); a number in a text field
  // becomes text; an integer in a real field a real.
  EXPECT_EQ(testing::show(append(rec({{"tag", Value::integer(7)}, {"size", Value::text("42")}, {"note", Value::text("y")},
                        {"made", Value::text("2024-05-06")}, {"weight", Value::real(1.5)}}))),
            "id=2 tag=\"7\" size=42r note=\"y\" made=#2024-05-06 00:00:00# weight=1.5r");
  EXPECT_EQ(testing::show(append(rec({{"tag", Value::text("C")}, {"size", Value::real(4.0)}, {"note", Value::null()},
                        {"made", Value::text("2024-05-06")}, {"weight", Value::real(1)}}))),
            "id=3 tag=\"C\" size=4r note=<null> made=#2024-05-06 00:00:00# weight=1r");
  // SQLite keeps a NaN as null.
  EXPECT_EQ(field(append(rec({{"tag", Value::text("N")}, {"size", Value::real(2.5)}, {"note", Value::text("z")},
                              {"made", Value::text("2024-05-06")}, {"weight", Value::real(std::nan(""))}})),
                  "weight"),
            "<null>");
  // A field left out takes its default.
  EXPECT_EQ(testing::show(append(rec({{"tag", Value::text("D")}}))),
            "id=5 tag=\"D\" size=<null> note=<null> made=#2020-01-02 03:04:05# weight=<null>");
  // A trigger that rewrites the new row is seen in the answer, every time.
  rawSql(db, "CREATE TRIGGER stamp AFTER INSERT ON parts BEGIN UPDATE parts SET note = 'seen ' || NEW.tag "
             "WHERE id = NEW.id; END;");
  for (const char *tag : {"E", "F"})
    EXPECT_EQ(field(append(rec({{"tag", Value::text(tag)}, {"size", Value::real(2.5)}, {"note", Value::text("x")},
                                {"made", Value::text("2024-05-06 07:08:09")}, {"weight", Value::real(2)}})),
                    "note"),
              std::string("\"seen ") + tag + "\"");
  EXPECT_EQ(rawScalar(db, "SELECT group_concat(note, ',') FROM parts WHERE tag IN ('E', 'F')"), "seen E,seen F");
  // The cursor stands on the last record appended, in the index's order.
  Record next;
  EXPECT_TRUE(e->Skip(-1, &next));
  EXPECT_EQ(field(next, "tag"), "\"E\"");
}

// Yes is -1 in the file, as Access stores it, whichever way it arrives; a yes
// written as 1 by another program still reads as yes, and seeks for yes find
// the stored -1.
TEST_F(EngineRecordsTest, YesIsStoredAsMinusOneAndStillFoundAsYes) {
  rawSql(db, "CREATE INDEX by_heated ON rooms(heated); UPDATE rooms SET heated = 1 WHERE name = 'hall';");
  ASSERT_TRUE(e->OpenTable("rooms", ""));
  Record stored;
  const std::pair<const char *, Value> ways[] = {
      {"boolean", Value::boolean(true)}, {"text", Value::text("Yes")}, {"number", Value::integer(5)}};
  for (const auto &[name, value] : ways)
    ASSERT_TRUE(e->AppendRecord(
        rec({{"name", Value::text(name)}, {"heated", value}, {"floor", Value::boolean(true)}}), false,
        &stored))
        << name;
  ASSERT_TRUE(
      e->AppendRecord(rec({{"name", Value::text("no")}, {"heated", Value::text("off")}}), false, &stored));
  EXPECT_EQ(rawScalar(db,
                      "SELECT group_concat(name || '=' || heated || '/' || ifnull(floor, '-')) FROM rooms "
                      "WHERE heated IS NOT NULL"),
            "hall=1/0,boolean=-1/-1,text=-1/-1,number=-1/-1,no=0/-");
  ValueArray rows;
  ASSERT_TRUE(e->ExecuteSql("SELECT name, heated FROM rooms WHERE heated = True ORDER BY id", &rows));
  EXPECT_EQ(testing::show(rows),
            "name=\"boolean\" heated=<true> | name=\"text\" heated=<true> | name=\"number\" heated=<true>");
  ASSERT_TRUE(e->ExecuteSql("SELECT name, heated FROM rooms WHERE name = 'hall'", &rows));
  EXPECT_EQ(testing::show(rows), "name=\"hall\" heated=<true>");
  ASSERT_TRUE(e->OpenTable("rooms", "by_heated"));
  ASSERT_TRUE(e->SeekValue(Value::boolean(true), &stored));
  EXPECT_EQ(field(stored, "name"), "\"boolean\"");
  ASSERT_TRUE(e->SeekValue(Value::boolean(false), &stored));
  EXPECT_EQ(field(stored, "name"), "\"no\"");
}

TEST_F(EngineRecordsTest, EveryAppendConsumesACounterValueSoACallerCanClimbToOne) {
  for (const char *table : {"rooms", "plain"}) {
    ASSERT_TRUE(e->OpenTable(table, ""));
    const char *nameField = std::string(table) == "rooms" ? "name" : "v";
    Record stored;
    ASSERT_TRUE(e->AppendRecord(rec({{nameField, Value::text("tmp")}}), false, &stored));
    int first = stored[0].value.asInteger();
    ASSERT_TRUE(e->DeleteRecord());
    ASSERT_TRUE(e->AppendRecord(rec({{nameField, Value::text("tmp")}}), false, &stored));
    EXPECT_EQ(stored[0].value.asInteger(), first + 1) << table;
    ASSERT_TRUE(e->DeleteRecord());
    // Three numbers above the next one: three appends are deleted, the fourth stays.
    int target = first + 5;
    std::string got = appendWithCounter(target, rec({{nameField, Value::text("kept")}}));
    EXPECT_NE(got.find("=" + std::to_string(target) + " "), std::string::npos) << table << ": " << got;
    EXPECT_EQ(rawScalar(db, std::string("SELECT count(*) FROM ") + table + " WHERE id > " +
                                std::to_string(first - 1)),
              "1")
        << table;
    EXPECT_EQ(appendWithCounter(target - 1, rec({{nameField, Value::text("no")}})), "unable to match");
  }
}

TEST_F(EngineRecordsTest, RefusalsHaveTheirNumbersAndChangeNothing) {
  ASSERT_TRUE(e->OpenTable("rooms", ""));
  struct Case {
    const char *what;
    Record record;
    long error;
  } cases[] = {
      {"unknown field", rec({{"name", Value::text("x")}, {"colour", Value::text("red")}}),
       errc::kItemNotFound},
      {"duplicate key", rec({{"name", Value::text("HALL")}, {"name", Value::text("hall")}}),
       errc::kDuplicateKey},
      {"required field", rec({{"area", Value::real(1)}}), errc::kRequired},
      {"text into a number", rec({{"name", Value::text("y")}, {"floor", Value::text("first")}}),
       errc::kConversion},
      {"text into a date", rec({{"name", Value::text("y")}, {"checked", Value::text("soon")}}),
       errc::kConversion},
      {"text into yes/no", rec({{"name", Value::text("y")}, {"heated", Value::text("maybe")}}),
       errc::kConversion},
      {"fraction into an integer", rec({{"name", Value::text("y")}, {"floor", Value::real(2.5)}}),
       errc::kConversion},
      {"fraction as text into an integer", rec({{"name", Value::text("y")}, {"floor", Value::text("2.5")}}),
       errc::kConversion},
  };
  Record stored;
  for (const Case &c : cases) {
    EXPECT_FALSE(e->AppendRecord(c.record, false, &stored)) << c.what;
    EXPECT_EQ(e->GetLastError().number, c.error) << c.what;
    EXPECT_TRUE(e->HasError()) << c.what;
  }
  EXPECT_EQ(rawScalar(db, "SELECT count(*) FROM rooms"), "3");
  ASSERT_TRUE(e->MoveFirst(&stored));
  EXPECT_FALSE(e->ReplaceRecord(rec({{"id", Value::integer(7)}}), &stored));
  EXPECT_EQ(e->GetLastError().number, errc::kFieldNotUpdatable);
  EXPECT_FALSE(e->ReplaceRecord(rec({{"name", Value::text("office")}}), &stored));
  EXPECT_EQ(e->GetLastError().number, errc::kDuplicateKey);
  EXPECT_EQ(rawScalar(db, "SELECT group_concat(name) FROM rooms"), "hall,office,store");
  // No transaction is left open by a refusal: another connection can write.
  rawSql(db, "UPDATE rooms SET floor = 2 WHERE name = 'store'");
}

TEST_F(EngineRecordsTest, FractionIntoAnAccessIntegerTypeIsRefusedAndWholeRealsAreKept) {
  rawSql(db, "CREATE TABLE sizes(b BYTE, s SHORT, l LONG, t LONGTEXT, r DOUBLE);");
  ASSERT_TRUE(e->OpenTable("sizes", ""));
  Record stored;
  for (const char *name : {"b", "s", "l"}) {
    EXPECT_FALSE(e->AppendRecord(rec({{name, Value::real(-0.5)}}), false, &stored)) << name;
    EXPECT_EQ(e->GetLastError().number, errc::kConversion) << name;
    ASSERT_TRUE(e->AppendRecord(rec({{name, Value::real(3.0)}}), false, &stored)) << name;
    EXPECT_EQ(testing::field(stored, name), "3") << name;
  }
  ASSERT_TRUE(e->AppendRecord(rec({{"t", Value::real(2.5)}, {"r", Value::real(2.5)}}), false, &stored));
  EXPECT_EQ(testing::field(stored, "r"), "2.5r");
}

TEST_F(EngineRecordsTest, ReplaceSetsTheGivenFieldsOfTheCurrentRecord) {
  ASSERT_TRUE(e->OpenTable("rooms", "by_name"));
  Record r;
  ASSERT_TRUE(e->SeekValue(Value::text("office"), &r));
  ASSERT_TRUE(e->ReplaceRecord(rec({{"id", Value::integer(2)},
                                    {"area", Value::null()},
                                    {"floor", Value::real(3)},
                                    {"name", Value::text("archive")}}),
                               &r));
  EXPECT_EQ(testing::show(r), "id=2 name=\"archive\" area=<null> floor=3 heated=<null> checked=<null>");
  // The record moved in the index order; the walk follows its new place.
  ASSERT_TRUE(e->MoveFirst(&r));
  EXPECT_EQ(field(r, "name"), "\"archive\"");
  ASSERT_TRUE(e->Skip(1, &r));
  EXPECT_EQ(field(r, "name"), "\"hall\"");
  ASSERT_TRUE(e->Skip(1, &r));
  EXPECT_EQ(field(r, "name"), "\"store\"");
}

TEST_F(EngineRecordsTest, AfterADeleteThereIsNoCurrentRecordAndSkipGoesOnFromItsPlace) {
  for (int direction : {1, -1}) {
    rawSql(db, "DELETE FROM rooms; INSERT INTO rooms(name) VALUES ('a'), ('b'), ('c'), ('d');");
    ASSERT_TRUE(e->OpenTable("rooms", "by_name"));
    Record r;
    ASSERT_TRUE(e->Skip(1, &r));  // b, and the walk has its snapshot
    ASSERT_TRUE(e->Skip(1, &r));  // c
    ASSERT_TRUE(e->DeleteRecord());
    EXPECT_FALSE(e->GetRecord(&r));
    EXPECT_EQ(e->GetLastError().number, errc::kNoCurrentRecord);
    EXPECT_FALSE(e->DeleteRecord());
    ASSERT_TRUE(e->Skip(direction, &r));
    EXPECT_EQ(field(r, "name"), direction > 0 ? "\"d\"" : "\"b\"");
    // A delete with no snapshot (after an append) keeps its place too.
    ASSERT_TRUE(e->AppendRecord(rec({{"name", Value::text("bb")}}), false, &r));
    ASSERT_TRUE(e->DeleteRecord());
    ASSERT_TRUE(e->Skip(direction, &r));
    EXPECT_EQ(field(r, "name"), direction > 0 ? "\"d\"" : "\"b\"");
  }
}

TEST_F(EngineRecordsTest, ReadOnlyDatabaseRefusesEveryWrite) {
  ASSERT_EQ(e->Open(db, 0, true), "OK");
  ASSERT_TRUE(e->OpenTable("rooms", ""));
  Record r;
  int32_t n = 0;
  EXPECT_FALSE(e->AppendRecord(rec({{"name", Value::text("x")}}), false, &r));
  EXPECT_EQ(e->GetLastError().number, errc::kReadOnly);
  EXPECT_FALSE(e->ReplaceRecord(rec({{"name", Value::text("x")}}), &r));
  EXPECT_EQ(e->GetLastError().number, errc::kReadOnly);
  EXPECT_FALSE(e->DeleteRecord());
  EXPECT_EQ(e->GetLastError().number, errc::kReadOnly);
  EXPECT_FALSE(e->ExecuteCommand("UPDATE rooms SET area = 0", &n));
  EXPECT_EQ(e->GetLastError().number, errc::kReadOnly);
  EXPECT_EQ(rawScalar(db, "SELECT group_concat(name || area) FROM rooms"), "hall20.0,office12.5,store8.0");
}

TEST_F(EngineRecordsTest, AWriteThatReturnedSurvivesTheProcessBeingKilled) {
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    EngineConnection w = createEngine();
    Record r;
    bool ok = w->Open(db, 0, false) == "OK" && w->OpenTable("rooms", "") &&
              w->AppendRecord(rec({{"name", Value::text("kept")}}), false, &r) && w->MoveFirst(&r) &&
              w->DeleteRecord();
    int32_t n = 0;
    ok = ok && w->ExecuteCommand("UPDATE rooms SET area = 99 WHERE name = 'store'", &n);
    if (!ok) _exit(1);
    kill(getpid(), SIGKILL);  // no close, no destructor, no checkpoint
  }
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFSIGNALED(status)) << "the child failed before it was killed";
  EXPECT_EQ(rawScalar(db, "SELECT group_concat(name || ifnull(area, '-')) FROM rooms"),
            "office12.5,store99.0,kept-");
}

}  // namespace
}  // namespace vantry::engine
