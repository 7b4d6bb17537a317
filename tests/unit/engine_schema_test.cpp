// The engine's schema operations: tables from Access type names, field
// changes that rebuild a table and keep what it had, indexes, relations over
// foreign keys, linked tables, and the refusals with their error numbers.
#include <filesystem>

#include "engine/engine.h"
#include "engine/schema.h"
#include "engine_testing.h"

// Field lists are written as {name, type, size, scale, required}; a default is
// given only where a test needs one.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace vantry::engine {
namespace {

using testing::rawScalar;
using testing::rawSql;
using testing::TempDir;

class EngineSchemaTest : public ::testing::Test {
 protected:
  void SetUp() override {
    db = dir / "site.db";
    rawSql(db,
           "CREATE TABLE Systems(Name TEXT PRIMARY KEY, Kind VARCHAR(10));"
           "INSERT INTO Systems VALUES ('Supply', 'S'), ('Return', 'R');"
           "CREATE TABLE Ducts(ID INTEGER PRIMARY KEY AUTOINCREMENT, Tag VARCHAR(20) COLLATE NOCASE NOT NULL,"
           "  Width LONG DEFAULT 100, Flow DOUBLE CHECK (Flow >= 0), Note TEXT,"
           "  System TEXT CONSTRAINT SystemDucts REFERENCES Systems(Name) ON DELETE CASCADE);"
           "CREATE INDEX ByWidth ON Ducts(Width DESC);"
           "CREATE TABLE Log(n LONG);"
           "CREATE TRIGGER Logged AFTER INSERT ON Ducts BEGIN INSERT INTO Log VALUES (new.ID); END;"
           "INSERT INTO Ducts(Tag, Width, Flow, Note, System) VALUES ('D-1', 400, 1.5, '12', 'Supply'),"
           "  ('D-2', 300, NULL, 'x', 'Return'), ('D-3', 250, 2.0, NULL, NULL);"
           "DELETE FROM Ducts WHERE ID = 3;"
           "CREATE TABLE _vantry_queries(name TEXT, sql TEXT);"
           "CREATE VIEW Wide AS SELECT Tag FROM Ducts WHERE Width > 300;");
    open(false);
  }
  void open(bool readOnly) {
    e = createEngine();
    ASSERT_EQ(e->Open(db, 0, readOnly), "OK");
    s = e->schema();
    ASSERT_NE(s, nullptr);
  }
  long error() { return e->GetLastError().number; }
  std::string field(const std::string &table, const std::string &name) {
    std::vector<FieldSpec> fields;
    if (!s->Structure(table, &fields)) return "error " + std::to_string(error());
    for (const FieldSpec &f : fields)
      if (f.name == name)
        return f.type + "/" + std::to_string(f.size) + (f.required ? "/required" : "") +
               (f.defaultValue.empty() ? "" : "/=" + f.defaultValue);
    return "none";
  }
  std::string sql(const std::string &text) {
    ValueArray out;
    if (!e->ExecuteSql(text, &out)) return "error " + std::to_string(error());
    return testing::show(out);
  }

  TempDir dir;
  std::string db;
  EngineConnection e;
  Schema *s = nullptr;
};

TEST_F(EngineSchemaTest, ListsUserTablesOnlyAndReadsTypesAsAccessNames) {
  std::vector<std::string> names;
  ASSERT_TRUE(s->ListTables(false, &names));
  EXPECT_EQ(names, (std::vector<std::string>{"Ducts", "Log", "Systems"}));
  EXPECT_EQ(field("Ducts", "ID"), "Counter/4");
  EXPECT_EQ(field("Ducts", "Tag"), "Text/20/required");
  EXPECT_EQ(field("Ducts", "Width"), "Long/4/=100");
  EXPECT_EQ(field("Ducts", "Note"), "Memo/0");
  EXPECT_EQ(field("Nope", "x"), "error 3376");
  EXPECT_EQ(field("_vantry_queries", "name"), "error 3376");
}

TEST_F(EngineSchemaTest, CreatesTablesFromAccessTypesAndRefusesClashes) {
  std::vector<FieldSpec> fields = {{"ID", "Counter"},          {"Tag", "Text", 12, 0, true},
                                   {"Qty", "Integer"},         {"Price", "Currency", 0, 0, false, "0"},
                                   {"Ok", "YesNo"},            {"Made", "DateTime"},
                                   {"Ratio", "Decimal", 10, 3}};
  ASSERT_TRUE(s->CreateTable("Parts", fields, {"ID"})) << e->GetLastError().description;
  EXPECT_EQ(field("Parts", "ID"), "Counter/4");
  EXPECT_EQ(field("Parts", "Tag"), "Text/12/required");
  EXPECT_EQ(field("Parts", "Qty"), "Integer/2");
  EXPECT_EQ(field("Parts", "Ok"), "YesNo/1");
  EXPECT_EQ(field("Parts", "Ratio"), "Decimal/16");
  EXPECT_EQ(sql("INSERT INTO Parts(Tag, Ok) VALUES ('a', True)"), "1");
  EXPECT_EQ(sql("SELECT ID, Price, Ok FROM Parts"), "ID=1 Price=0r Ok=<true>");

  EXPECT_FALSE(s->CreateTable("parts", fields, {}));
  EXPECT_EQ(error(), 3010);
  EXPECT_FALSE(s->CreateTable("X", {{"a", "Text"}, {"A", "Long"}}, {}));
  EXPECT_EQ(error(), 3191);
  EXPECT_FALSE(s->CreateTable("X", {{"a", "Varchar"}}, {}));
  EXPECT_EQ(error(), 3259);
  EXPECT_FALSE(s->CreateTable("X", {{"ID", "Counter"}, {"b", "Long"}}, {"b"}));
  EXPECT_EQ(error(), 3251);
  EXPECT_FALSE(s->CreateTable("_vantry_x", {{"a", "Long"}}, {}));
  EXPECT_EQ(error(), 3125);
  EXPECT_FALSE(s->CreateTable("ByWidth", {{"a", "Long"}}, {}));  // an index's name
  EXPECT_EQ(error(), 3012);
}

TEST_F(EngineSchemaTest, RetypeKeepsDataIndexesTriggersRelationsAndTheCounter) {
  EXPECT_FALSE(s->AlterField("Ducts", {"Note", "Long"}));
  EXPECT_EQ(error(), 3421);
  EXPECT_EQ(field("Ducts", "Note"), "Memo/0") << "x does not fit: nothing changed";
  EXPECT_EQ(sql("DELETE FROM Ducts WHERE Note = 'x'"), "1");
  ASSERT_TRUE(s->AlterField("Ducts", {"Note", "Long"})) << e->GetLastError().description;
  EXPECT_EQ(field("Ducts", "Note"), "Long/4");
  EXPECT_EQ(sql("SELECT Note FROM Ducts"), "Note=12");
  // What the definition said of the other fields, the index, the trigger,
  // the relation and the counter's next value are all still there.
  EXPECT_EQ(sql("SELECT ID FROM Ducts WHERE Tag = 'd-1'"), "ID=1");
  EXPECT_EQ(sql("INSERT INTO Ducts(Tag, Flow) VALUES ('n', -1)"), "error 3317");
  EXPECT_EQ(sql("INSERT INTO Ducts(Tag, System) VALUES ('n', 'Nowhere')"), "error 3201");
  EXPECT_EQ(sql("INSERT INTO Ducts(Tag) VALUES ('n')"), "1");
  EXPECT_EQ(sql("SELECT ID, Width FROM Ducts WHERE Tag = 'n'"), "ID=4 Width=100");
  EXPECT_EQ(sql("SELECT count(*) AS n FROM Log"), "n=4") << "the trigger still runs";
  EXPECT_EQ(sql("SELECT Tag FROM Wide"), "Tag=\"D-1\"") << "the view still reads it";
  std::vector<IndexSpec> indexes;
  ASSERT_TRUE(s->ListIndexes("Ducts", &indexes));
  ASSERT_EQ(indexes.size(), 2u);
  EXPECT_EQ(indexes[1].name, "ByWidth");
  EXPECT_TRUE(indexes[1].descending[0]);
  std::vector<RelationSpec> relations;
  ASSERT_TRUE(s->ListRelations(&relations));
  ASSERT_EQ(relations.size(), 1u);
  EXPECT_EQ(relations[0].onDelete, "CASCADE");
}

TEST_F(EngineSchemaTest, RetypeToAShorterTextRefusesWhatDoesNotFit) {
  EXPECT_FALSE(s->AlterField("Ducts", {"Tag", "Text", 2, 0, true}));
  EXPECT_EQ(error(), 3163);
  EXPECT_EQ(field("Ducts", "Tag"), "Text/20/required");
  EXPECT_TRUE(s->AlterField("Ducts", {"Tag", "Text", 3, 0, true}));
  EXPECT_EQ(field("Ducts", "Tag"), "Text/3/required");
}

TEST_F(EngineSchemaTest, RebuildKeepsDefinitionsInAnyQuotingWithCommasInside) {
  rawSql(db,
         "CREATE TABLE [Odd Name] ([Col, A] TEXT DEFAULT 'x, (y)' NOT NULL, \"q\"\"uote\" INTEGER /* c, d */,"
         " `b` REAL DEFAULT -1.5, UNIQUE ([Col, A], b));"
         "INSERT INTO [Odd Name] VALUES ('k', 1, 2);");
  open(false);
  ASSERT_TRUE(s->AlterField("odd name", {"B", "Single"})) << e->GetLastError().description;
  EXPECT_EQ(field("Odd Name", "Col, A"), "Memo/0/required/='x, (y)'");
  EXPECT_EQ(field("Odd Name", "q\"uote"), "Long/4");
  EXPECT_EQ(field("Odd Name", "b"), "Single/4");
  EXPECT_EQ(sql("INSERT INTO [Odd Name] VALUES ('k', 5, 2)"), "error 3022") << "the unique constraint stayed";
  EXPECT_EQ(sql("INSERT INTO [Odd Name] ([q\"uote]) VALUES (9)"), "1");
  EXPECT_EQ(sql("SELECT [Col, A] AS c FROM [Odd Name] WHERE [q\"uote] = 9"), "c=\"x, (y)\"");
}

TEST_F(EngineSchemaTest, FieldsInUseAreNotDropped) {
  EXPECT_FALSE(s->DropField("Ducts", "Width"));
  EXPECT_EQ(error(), 3280);
  EXPECT_FALSE(s->DropField("Ducts", "ID"));
  EXPECT_EQ(error(), 3280);
  EXPECT_FALSE(s->DropField("Ducts", "System"));
  EXPECT_EQ(error(), 3303);
  EXPECT_FALSE(s->DropField("Ducts", "Nope"));
  EXPECT_EQ(error(), 3265);
  ASSERT_TRUE(s->DropField("Ducts", "Flow")) << e->GetLastError().description;
  EXPECT_EQ(field("Ducts", "Flow"), "none");
  EXPECT_EQ(sql("SELECT Tag FROM Ducts ORDER BY ID"), "Tag=\"D-1\" | Tag=\"D-2\"");
  EXPECT_FALSE(s->AddField("Ducts", {"tag", "Text"}));
  EXPECT_EQ(error(), 3380);
  EXPECT_FALSE(s->AddField("Ducts", {"Must", "Long", 0, 0, true}));
  EXPECT_EQ(error(), 3314) << "records would hold null";
  ASSERT_TRUE(s->AddField("Ducts", {"Must", "Long", 0, 0, true, "7"}));
  EXPECT_EQ(sql("SELECT Must FROM Ducts WHERE ID = 1"), "Must=7");
  ASSERT_TRUE(s->RenameField("Ducts", "Width", "Breadth"));
  EXPECT_EQ(sql("SELECT Breadth FROM Ducts WHERE ID = 1"), "Breadth=400");
}

TEST_F(EngineSchemaTest, RequiredRefusesNullsAndKeepsTheTable) {
  EXPECT_FALSE(s->SetRequired("Ducts", "Flow", true));
  EXPECT_EQ(error(), 3314);
  EXPECT_EQ(field("Ducts", "Flow"), "Double/8");
  EXPECT_TRUE(s->SetRequired("Ducts", "Tag", false));
  EXPECT_EQ(field("Ducts", "Tag"), "Text/20");
}

TEST_F(EngineSchemaTest, IndexesRefuseDuplicatesNamesAndASecondKey) {
  IndexSpec unique{"ByTag", {"Tag"}, {false}, true};
  ASSERT_TRUE(s->CreateIndex("Ducts", unique));
  EXPECT_EQ(sql("INSERT INTO Ducts(Tag) VALUES ('D-1')"), "error 3022");
  EXPECT_FALSE(s->CreateIndex("Ducts", unique));
  EXPECT_EQ(error(), 3284);
  sql("UPDATE Ducts SET Flow = 1.5");
  EXPECT_FALSE(s->CreateIndex("Ducts", {"ByFlow", {"Flow"}, {false}, true}));
  EXPECT_EQ(error(), 3022);
  EXPECT_FALSE(s->CreateIndex("Ducts", {"PK", {"Tag"}, {false}, true, true}));
  EXPECT_EQ(error(), 3283);
  sql("INSERT INTO Log VALUES (NULL)");
  EXPECT_FALSE(s->CreateIndex("Log", {"PK", {"n"}, {false}, true, true}));
  EXPECT_EQ(error(), 3058);
  sql("DELETE FROM Log");
  ASSERT_TRUE(s->CreateIndex("Log", {"PK", {"n"}, {false}, true, true})) << e->GetLastError().description;
  std::vector<IndexSpec> indexes;
  ASSERT_TRUE(s->ListIndexes("Log", &indexes));
  ASSERT_EQ(indexes.size(), 1u);
  EXPECT_EQ(indexes[0].name, "PrimaryKey");
  EXPECT_TRUE(indexes[0].primary);
  EXPECT_EQ(field("Log", "n"), "Long/4/required");
}

TEST_F(EngineSchemaTest, RelationsAreNamedEnforcedAndDeleted) {
  rawSql(db,
         "CREATE TABLE Fittings(ID INTEGER PRIMARY KEY, Duct INTEGER, FOREIGN KEY (Duct) REFERENCES Ducts"
         " ON UPDATE SET NULL);");
  open(false);
  std::vector<RelationSpec> r;
  ASSERT_TRUE(s->ListRelations(&r));
  ASSERT_EQ(r.size(), 2u);
  EXPECT_EQ(r[0].name, "DuctsFittings");
  EXPECT_EQ(r[0].fields, std::vector<std::string>{"ID"});
  EXPECT_EQ(r[0].onUpdate, "SET NULL");
  EXPECT_EQ(r[0].onDelete, "RESTRICT");
  EXPECT_EQ(r[1].name, "SystemDucts");
  EXPECT_EQ(r[1].table, "Systems");
  EXPECT_FALSE(s->DeleteTable("Systems"));
  EXPECT_EQ(error(), 3303);
  EXPECT_EQ(sql("DELETE FROM Systems WHERE Name = 'Supply'"), "1");
  EXPECT_EQ(sql("SELECT count(*) AS n FROM Ducts"), "n=1") << "the cascade ran";
  ASSERT_TRUE(s->DeleteRelation("systemducts")) << e->GetLastError().description;
  ASSERT_TRUE(s->ListRelations(&r));
  ASSERT_EQ(r.size(), 1u);
  EXPECT_EQ(sql("INSERT INTO Ducts(Tag, System) VALUES ('free', 'Nowhere')"), "1");
  EXPECT_FALSE(s->DeleteRelation("SystemDucts"));
  EXPECT_EQ(error(), 3265);
  EXPECT_TRUE(s->DeleteTable("Systems"));
}

TEST_F(EngineSchemaTest, RenameAndDeleteTables) {
  ASSERT_TRUE(s->RenameTable("Systems", "Sys"));
  EXPECT_EQ(sql("INSERT INTO Ducts(Tag, System) VALUES ('n', 'Supply')"), "1") << "the relation followed";
  EXPECT_FALSE(s->RenameTable("Sys", "ducts"));
  EXPECT_EQ(error(), 3010);
  EXPECT_FALSE(s->RenameTable("Nope", "X"));
  EXPECT_EQ(error(), 3376);
  EXPECT_TRUE(s->DeleteTable("Log"));
  EXPECT_FALSE(s->DeleteTable("Log"));
  EXPECT_EQ(error(), 3376);
}

TEST_F(EngineSchemaTest, ChangesAreRefusedReadOnlyAndCommittedOtherwise) {
  ASSERT_TRUE(s->AddField("Ducts", {"Lined", "YesNo"}));
  EXPECT_EQ(rawScalar(db, "SELECT count(*) FROM pragma_table_info('Ducts') WHERE name = 'Lined'"), "1");
  open(true);
  EXPECT_FALSE(s->AddField("Ducts", {"More", "Long"}));
  EXPECT_EQ(error(), 3027);
  EXPECT_FALSE(s->CreateTable("T", {{"a", "Long"}}, {}));
  EXPECT_EQ(error(), 3027);
  EXPECT_FALSE(s->DeleteTable("Log"));
  EXPECT_EQ(error(), 3027);
  int32_t attributes = 0;
  ASSERT_TRUE(s->FieldAttributes("Ducts", "Tag", &attributes));
  EXPECT_EQ(attributes, 2) << "variable, not updatable read-only";
}

TEST_F(EngineSchemaTest, LinkedTablesSurviveReopeningAndSayWhenTheirFileHasGone) {
  std::string other = dir / "other.db";
  rawSql(other, "CREATE TABLE Catalog(Code TEXT PRIMARY KEY, Size LONG); INSERT INTO Catalog VALUES ('A', 1);");
  ASSERT_TRUE(s->LinkTable(other, "catalog")) << e->GetLastError().description;
  EXPECT_FALSE(s->LinkTable(other, "Catalog"));
  EXPECT_EQ(error(), 3010);
  EXPECT_FALSE(s->LinkTable(other, "Nothing"));
  EXPECT_EQ(error(), 3011);
  EXPECT_FALSE(s->LinkTable(dir / "none.db", "Catalog"));
  EXPECT_EQ(error(), 3024);
  open(false);
  std::vector<std::string> names;
  ASSERT_TRUE(s->ListTables(false, &names));
  EXPECT_EQ(names, (std::vector<std::string>{"Catalog", "Ducts", "Log", "Systems"}));
  EXPECT_EQ(sql("SELECT Size FROM Catalog"), "Size=1");
  ASSERT_TRUE(e->OpenTable("Catalog", "PrimaryKey"));
  Record rec;
  ASSERT_TRUE(e->MoveFirst(&rec));
  int32_t attributes = 0;
  ASSERT_TRUE(s->TableAttributes("Catalog", &attributes));
  EXPECT_EQ(attributes, 0x40000000);
  EXPECT_FALSE(s->DropField("Catalog", "Size"));
  EXPECT_EQ(error(), 3251);

  e->Close();
  std::filesystem::remove(other);
  open(false);
  EXPECT_EQ(sql("SELECT Size FROM Catalog"), "error 3024");
  EXPECT_FALSE(e->OpenTable("Catalog", ""));
  EXPECT_EQ(error(), 3024);
  EXPECT_NE(e->GetLastError().description.find("other.db"), std::string::npos);
  EXPECT_TRUE(s->DeleteTable("Catalog")) << "the link goes, the file was gone already";
  ASSERT_TRUE(s->ListTables(false, &names));
  EXPECT_EQ(names.size(), 3u);
}

TEST_F(EngineSchemaTest, ALinkUnderAnotherNameReachesItsOwnFileAndNoOther) {
  // Both other files hold a Catalog, and one holds a Ducts as this file does:
  // each name must reach the file its link says.
  std::string other = dir / "other.db", third = dir / "third.db";
  rawSql(other,
         "CREATE TABLE Ducts(ID INTEGER PRIMARY KEY, Tag TEXT); CREATE INDEX ByTag ON Ducts(Tag DESC);"
         "INSERT INTO Ducts(Tag) VALUES ('X-1'), ('X-2');"
         "CREATE TABLE Catalog(Code TEXT PRIMARY KEY); INSERT INTO Catalog VALUES ('A');");
  rawSql(third, "CREATE TABLE Catalog(Code TEXT PRIMARY KEY); INSERT INTO Catalog VALUES ('Z');");
  ASSERT_TRUE(s->LinkTable(third, "catalog", "ZCat")) << e->GetLastError().description;
  ASSERT_TRUE(s->LinkTable(other, "ducts", "RefDucts")) << e->GetLastError().description;
  ASSERT_TRUE(s->LinkTable(other, "Catalog", ""));
  EXPECT_FALSE(s->LinkTable(other, "Ducts", "systems"));
  EXPECT_EQ(error(), 3010);
  EXPECT_FALSE(s->LinkTable(other, "Ducts", "Bad[Name"));
  EXPECT_EQ(error(), 3125);
  for (bool reopened : {false, true}) {
    SCOPED_TRACE(reopened ? "reopened" : "as linked");
    if (reopened) open(false);
    EXPECT_EQ(sql("SELECT Code FROM Catalog"), "Code=\"A\"");
    EXPECT_EQ(sql("SELECT Code FROM [ZCat] WHERE Code = 'z'"), "Code=\"Z\"");
    EXPECT_EQ(sql("SELECT count(*) AS n FROM RefDucts"), "n=2");
    EXPECT_EQ(sql("SELECT r.Tag FROM Ducts AS d INNER JOIN RefDucts r ON r.ID = d.ID WHERE d.ID = 1"),
              "Tag=\"X-1\"");
    EXPECT_EQ(sql("SELECT Tag FROM RefDucts WHERE ID IN (SELECT ID FROM RefDucts WHERE Tag = 'x-2')"),
              "Tag=\"X-2\"");
    std::vector<std::string> names;
    ASSERT_TRUE(s->ListTables(false, &names));
    EXPECT_EQ(names, (std::vector<std::string>{"Catalog", "Ducts", "Log", "RefDucts", "Systems", "ZCat"}));
    EXPECT_EQ(field("RefDucts", "Tag"), "Memo/0");
  }
  // A cursor in the linked table's own index, and writes that land in its file.
  ASSERT_TRUE(e->OpenTable("RefDucts", "ByTag")) << e->GetLastError().description;
  Record rec;
  ASSERT_TRUE(e->MoveFirst(&rec));
  EXPECT_EQ(testing::field(rec, "Tag"), "\"X-2\"");
  ASSERT_TRUE(e->AppendRecord({{"Tag", Value::text("X-3")}}, false, &rec)) << e->GetLastError().description;
  int32_t n = 0;
  ASSERT_TRUE(e->ExecuteCommand("UPDATE RefDucts SET Tag = 'Y' WHERE Tag = 'X-1'", &n));
  EXPECT_EQ(n, 1);
  ASSERT_TRUE(e->ExecuteCommand("INSERT INTO RefDucts (Tag) VALUES ('X-4')", &n));
  ASSERT_TRUE(e->ExecuteCommand("DELETE FROM RefDucts WHERE Tag = 'X-2'", &n));
  EXPECT_EQ(rawScalar(other, "SELECT group_concat(Tag) FROM (SELECT Tag FROM Ducts ORDER BY ID)"), "Y,X-3,X-4");
  EXPECT_EQ(rawScalar(db, "SELECT count(*) FROM Ducts WHERE Tag LIKE 'X%' OR Tag = 'Y'"), "0");
  std::vector<IndexSpec> indexes;
  ASSERT_TRUE(s->ListIndexes("RefDucts", &indexes));
  EXPECT_EQ(indexes.size(), 2u) << "its key and ByTag";

  // Renamed, the link answers to its new name only; with its file gone, to 3024.
  ASSERT_TRUE(s->RenameTable("refducts", "OldDucts")) << e->GetLastError().description;
  EXPECT_EQ(sql("SELECT count(*) AS n FROM OldDucts"), "n=3");
  EXPECT_EQ(sql("SELECT count(*) AS n FROM RefDucts"), "error 3078");
  EXPECT_FALSE(s->RenameTable("OldDucts", "Catalog"));
  EXPECT_EQ(error(), 3010);
  e->Close();
  std::filesystem::remove(third);
  open(false);
  EXPECT_EQ(sql("SELECT Code FROM ZCat"), "error 3024");
  EXPECT_EQ(sql("SELECT count(*) AS n FROM OldDucts"), "n=3");
}

}  // namespace
}  // namespace vantry::engine
