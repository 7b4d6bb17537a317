// The schema operations on both back ends: the same cases on SQLite and on a
// real local PostgreSQL server, each checked in the back end's own catalogue
// (raw SQLite, raw libpq) as well as through the engine, so that a change
// the engine only claims to have made, or a refusal that changed something
// anyway, is caught. Then what only a server has: no linked files, views
// that hold a field, and work that lands whole or not at all.
#include <gtest/gtest.h>
#include <libpq-fe.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <filesystem>

#include "engine/engine.h"
#include "engine/schema.h"
#include "../../engine/pg/pg_engine.h"
#include "moved_clock.h"
#include "pg_server.h"

// Field lists are written as {name, type, size, scale, required}; a default is
// given only where a test needs one.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace vantry::engine {
namespace {

using testing::MovedClock;
using testing::PgServer;

class TempDir {
 public:
  TempDir() {
    std::string tmpl = (std::filesystem::temp_directory_path() / "vantry-pgschema-XXXXXX").string();
    path_ = mkdtemp(tmpl.data());
  }
  ~TempDir() { std::filesystem::remove_all(path_); }
  std::string operator/(const std::string &name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

class BothSchemas : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    if (pg()) {
      if (!PgServer::shared().running()) GTEST_SKIP() << "no PostgreSQL server: " << PgServer::shared().why();
      target = PgServer::shared().freshSchema("schema");
      ASSERT_FALSE(target.empty());
    } else {
      target = dir / "site.db";
      LastError err;
      ASSERT_TRUE(CreateDatabaseFile(target, &err)) << err.description;
    }
    open(false);
    for (const char *text :
         // Brackets keep the names' case on the server, which folds a bare name.
         {"CREATE TABLE [Systems] ([Name] TEXT(20) PRIMARY KEY, [Kind] TEXT(10))",
          "INSERT INTO Systems (Name, Kind) VALUES ('Supply', 'S')",
          "INSERT INTO Systems (Name, Kind) VALUES ('Return', 'R')",
          "CREATE TABLE [Ducts] ([ID] COUNTER PRIMARY KEY, [Tag] TEXT(20) NOT NULL, [Width] LONG DEFAULT 100, "
          "[Flow] DOUBLE, [Note] MEMO, [System] TEXT(20), CONSTRAINT [SystemDucts] FOREIGN KEY ([System]) "
          "REFERENCES [Systems] ([Name]) ON DELETE CASCADE)",
          "CREATE INDEX [ByWidth] ON Ducts (Width DESC)", "CREATE TABLE [Log] ([n] LONG)",
          "INSERT INTO Ducts (Tag, Width, Flow, Note, System) VALUES ('D-1', 400, 1.5, '12', 'Supply')",
          "INSERT INTO Ducts (Tag, Width, Flow, Note, System) VALUES ('D-2', 300, NULL, 'x', 'Return')"})
      ASSERT_EQ(sql(text).rfind("error", 0), std::string::npos) << text << ": " << e->GetLastError().description;
  }
  void TearDown() override {
    if (raw_) PQfinish(raw_);
  }

  bool pg() const { return GetParam() == "postgresql"; }
  void open(bool readOnly) {
    e = createEngine();
    ASSERT_EQ(e->Open(target, 0, readOnly), "OK") << e->GetLastError().description;
    s = e->schema();
    ASSERT_NE(s, nullptr);
  }
  long error() { return e->GetLastError().number; }
  std::string sql(const std::string &text) {
    ValueArray out;
    if (!e->ExecuteSql(text, &out)) return "error " + std::to_string(error());
    std::string shown;
    for (const Value &v : out) shown += (shown.empty() ? "" : " ") + v.debugString();
    return shown;
  }
  // "Type/size[/required][/=default]" as the engine describes the field.
  std::string field(const std::string &table, const std::string &name) {
    std::vector<FieldSpec> fields;
    if (!s->Structure(table, &fields)) return "error " + std::to_string(error());
    for (const FieldSpec &f : fields)
      if (f.name == name)
        return f.type + "/" + std::to_string(f.size) + (f.required ? "/required" : "") +
               (f.defaultValue.empty() ? "" : "/=" + f.defaultValue);
    return "none";
  }

  // The back end's own answer to `pgSql` or `sqliteSql`, asked without the
  // engine: the first column of each row, joined by ",".
  std::string catalog(const std::string &pgSql, const std::string &sqliteSql) {
    std::string out;
    if (pg()) {
      if (!raw_) {
        raw_ = PQconnectdb(target.substr(0, target.find('?')).c_str());
        PQclear(PQexec(raw_, ("SET search_path TO " + target.substr(target.find("schema=") + 7)).c_str()));
      }
      PGresult *r = PQexec(raw_, pgSql.c_str());
      if (PQresultStatus(r) != PGRES_TUPLES_OK) out = std::string("<error ") + PQresultErrorMessage(r) + ">";
      for (int i = 0; PQresultStatus(r) == PGRES_TUPLES_OK && i < PQntuples(r); ++i)
        out += (i ? "," : "") + std::string(PQgetvalue(r, i, 0));
      PQclear(r);
      return out;
    }
    sqlite3 *db = nullptr;
    sqlite3_open_v2(target.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
    sqlite3_stmt *st = nullptr;
    if (sqlite3_prepare_v2(db, sqliteSql.c_str(), -1, &st, nullptr) != SQLITE_OK) out = "<error>";
    for (bool first = true; st && sqlite3_step(st) == SQLITE_ROW; first = false) {
      const unsigned char *t = sqlite3_column_text(st, 0);
      out += (first ? "" : ",") + std::string(t ? reinterpret_cast<const char *>(t) : "");
    }
    sqlite3_finalize(st);
    sqlite3_close(db);
    return out;
  }
  // The declared type of a column in the catalogue, " not null" when required.
  std::string columnType(const std::string &table, const std::string &column) {
    return catalog("SELECT format_type(a.atttypid, a.atttypmod) || CASE WHEN a.attnotnull THEN ' not null' ELSE '' "
                   "END FROM pg_attribute a JOIN pg_class c ON c.oid = a.attrelid JOIN pg_namespace n ON n.oid = "
                   "c.relnamespace WHERE n.nspname = current_schema() AND c.relname = '" +
                       table + "' AND a.attname = '" + column + "' AND NOT a.attisdropped",
                   "SELECT type || CASE WHEN \"notnull\" THEN ' not null' ELSE '' END FROM pragma_table_info('" +
                       table + "') WHERE name = '" + column + "'");
  }
  std::string tables() {
    return catalog("SELECT relname FROM pg_class WHERE relnamespace = current_schema()::regnamespace AND relkind = 'r' "
                   "ORDER BY lower(relname)",
                   "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite%' ORDER BY "
                   "lower(name)");
  }
  std::string indexNames(const std::string &table) {
    return catalog("SELECT c.relname FROM pg_index i JOIN pg_class c ON c.oid = i.indexrelid JOIN pg_class t ON t.oid "
                   "= i.indrelid WHERE t.relname = '" +
                       table + "' AND t.relnamespace = current_schema()::regnamespace AND NOT i.indisprimary ORDER BY 1",
                   "SELECT name FROM pragma_index_list('" + table + "') WHERE origin = 'c' ORDER BY 1");
  }
  // The names of the foreign keys from `table` that name the referenced table `parent`.
  std::string foreignKeys(const std::string &table) {
    return catalog("SELECT confrelid::regclass::text FROM pg_constraint WHERE contype = 'f' AND conrelid = '\"" +
                       table + "\"'::regclass ORDER BY 1",
                   "SELECT DISTINCT \"table\" FROM pragma_foreign_key_list('" + table + "') ORDER BY 1");
  }
  // The server's type, or SQLite's declared type, whichever back end this is.
  std::string either(const std::string &server, const std::string &file) const { return pg() ? server : file; }

  TempDir dir;
  std::string target;
  EngineConnection e;
  Schema *s = nullptr;
  PGconn *raw_ = nullptr;
};

TEST_P(BothSchemas, TablesFromAccessTypesReadBackAlikeAndClashesAreRefused) {
  std::vector<std::string> names;
  ASSERT_TRUE(s->ListTables(false, &names));
  EXPECT_EQ(names, (std::vector<std::string>{"Ducts", "Log", "Systems"}));
  EXPECT_EQ(field("Ducts", "ID"), "Counter/4");
  EXPECT_EQ(field("Ducts", "Tag"), "Text/20/required");
  EXPECT_EQ(field("Ducts", "Width"), "Long/4/=100");
  EXPECT_EQ(field("Ducts", "Note"), "Memo/0");
  EXPECT_EQ(field("ducts", "Flow"), "Double/8");
  EXPECT_EQ(field("Nope", "x"), "error 3376");
  EXPECT_EQ(field("_vantry_queries", "name"), "error 3376");

  std::vector<FieldSpec> fields = {{"ID", "Counter"},
                                   {"Tag", "Text", 12, 0, true},
                                   {"Qty", "Integer"},
                                   {"Small", "Byte"},
                                   {"Price", "Currency", 0, 0, false, "0"},
                                   {"Ok", "YesNo", 0, 0, false, "-1"},
                                   {"Made", "DateTime"},
                                   {"Ratio", "Decimal", 10, 3},
                                   {"Part", "Single"},
                                   {"Memo", "Memo", 0, 0, false, "'none'"},
                                   {"Pic", "OLE"}};
  ASSERT_TRUE(s->CreateTable("Parts", fields, {"ID"})) << e->GetLastError().description;
  const char *described[] = {"Counter/4",  "Text/12/required", "Integer/2",  "Byte/1",   "Currency/8/=0",
                             "YesNo/1/=-1", "DateTime/8",       "Decimal/16", "Single/4", "Memo/0/='none'",
                             "OLE/0"};
  for (size_t i = 0; i < fields.size(); ++i) EXPECT_EQ(field("Parts", fields[i].name), described[i]) << i;
  EXPECT_EQ(columnType("Parts", "Tag"), either("character varying(12) not null", "VARCHAR(12) not null"));
  EXPECT_EQ(columnType("Parts", "Qty"), either("smallint", "SHORT"));
  EXPECT_EQ(columnType("Parts", "Ok"), either("boolean", "YESNO"));
  EXPECT_EQ(columnType("Parts", "Ratio"), either("numeric(10,3)", "DECIMAL(10,3)"));
  EXPECT_EQ(columnType("Parts", "Made"), either("timestamp(0) without time zone", "DATETIME"));
  EXPECT_EQ(sql("INSERT INTO Parts (Tag) VALUES ('a')"), "1");
  EXPECT_EQ(sql("SELECT ID, Price, Ok, Memo FROM Parts"), "\"*NewRecord*\" \"ID\" 1 \"Price\" 0r \"Ok\" <true> \"Memo\" \"none\"");
  // The server holds a byte to 0 to 255 (a check); SQLite keeps what it is given.
  if (pg()) {
    EXPECT_EQ(sql("INSERT INTO Parts (Tag, Small) VALUES ('b', 256)"), "error 3317");
  }

  size_t before = tables().size();
  EXPECT_FALSE(s->CreateTable("parts", fields, {}));
  EXPECT_EQ(error(), 3010);
  EXPECT_FALSE(s->CreateTable("X", {{"a", "Text"}, {"A", "Long"}}, {}));
  EXPECT_EQ(error(), 3191);
  EXPECT_FALSE(s->CreateTable("X", {{"a", "Varchar"}}, {}));
  EXPECT_EQ(error(), 3259);
  EXPECT_FALSE(s->CreateTable("X", {{"ID", "Counter"}, {"b", "Long"}}, {"b"}));
  EXPECT_EQ(error(), 3251);
  EXPECT_FALSE(s->CreateTable("X", {{"a", "Long"}}, {"c"}));
  EXPECT_EQ(error(), 3265);
  EXPECT_FALSE(s->CreateTable("X", {}, {}));
  EXPECT_EQ(error(), 3264);
  EXPECT_FALSE(s->CreateTable("_vantry_x", {{"a", "Long"}}, {}));
  EXPECT_EQ(error(), 3125);
  EXPECT_FALSE(s->CreateTable("Bad[Name", {{"a", "Long"}}, {}));
  EXPECT_EQ(error(), 3125);
  EXPECT_FALSE(s->CreateTable("ByWidth", {{"a", "Long"}}, {}));  // an index's name
  EXPECT_EQ(error(), 3012);
  EXPECT_EQ(tables().size(), before) << "no refusal made a table: " << tables();
  EXPECT_NE(e->GetLastError().description.find("ByWidth"), std::string::npos);

  // Views and stored queries are listed with the tables when asked for.
  ASSERT_EQ(sql("CREATE VIEW [Wide] AS SELECT Tag FROM Ducts WHERE Width > 300"), "");
  ASSERT_TRUE(e->CreateQuery("Narrow", "SELECT Tag FROM Ducts WHERE Width < 300"));
  ASSERT_TRUE(s->ListTables(true, &names));
  EXPECT_EQ(names, (std::vector<std::string>{"Ducts", "Log", "Narrow", "Parts", "Systems", "Wide"}));
  EXPECT_FALSE(s->CreateTable("narrow", {{"a", "Long"}}, {}));
  EXPECT_EQ(error(), 3012);
}

TEST_P(BothSchemas, FieldsAreAddedRenamedAndDroppedUnlessInUse) {
  EXPECT_FALSE(s->DropField("Ducts", "Width"));
  EXPECT_EQ(error(), 3280);
  EXPECT_FALSE(s->DropField("Ducts", "ID"));
  EXPECT_EQ(error(), 3280);
  EXPECT_FALSE(s->DropField("Ducts", "System"));
  EXPECT_EQ(error(), 3303);
  EXPECT_FALSE(s->DropField("Ducts", "Nope"));
  EXPECT_EQ(error(), 3265);
  EXPECT_FALSE(s->DropField("Log", "n"));
  EXPECT_EQ(error(), 3264);
  EXPECT_NE(columnType("Ducts", "Width"), "") << "refused, the field is still there";
  ASSERT_TRUE(s->DropField("ducts", "flow")) << e->GetLastError().description;
  EXPECT_EQ(columnType("Ducts", "Flow"), "");
  EXPECT_EQ(field("Ducts", "Flow"), "none");

  EXPECT_FALSE(s->AddField("Ducts", {"tag", "Text"}));
  EXPECT_EQ(error(), 3380);
  EXPECT_FALSE(s->AddField("Ducts", {"Must", "Long", 0, 0, true}));
  EXPECT_EQ(error(), 3314) << "records would hold null";
  EXPECT_EQ(columnType("Ducts", "Must"), "");
  EXPECT_FALSE(s->AddField("Ducts", {"Auto", "Counter"}));
  EXPECT_EQ(error(), 3251);
  ASSERT_TRUE(s->AddField("Ducts", {"Must", "Long", 0, 0, true, "7"})) << e->GetLastError().description;
  EXPECT_EQ(columnType("Ducts", "Must"), either("integer not null", "LONG not null"));
  EXPECT_EQ(catalog("SELECT \"Must\" FROM \"Ducts\" ORDER BY \"ID\"", "SELECT Must FROM Ducts ORDER BY ID"), "7,7");
  ASSERT_TRUE(s->AddField("Ducts", {"Lined", "YesNo", 0, 0, false, "0"})) << e->GetLastError().description;
  EXPECT_EQ(field("Ducts", "Lined"), "YesNo/1/=0");

  ASSERT_TRUE(s->RenameField("Ducts", "width", "Breadth")) << e->GetLastError().description;
  EXPECT_EQ(columnType("Ducts", "Width"), "");
  EXPECT_EQ(catalog("SELECT \"Breadth\" FROM \"Ducts\" ORDER BY \"ID\"", "SELECT Breadth FROM Ducts ORDER BY ID"),
            "400,300");
  EXPECT_FALSE(s->RenameField("Ducts", "Breadth", "TAG"));
  EXPECT_EQ(error(), 3380);
  std::vector<IndexSpec> indexes;
  ASSERT_TRUE(s->ListIndexes("Ducts", &indexes));
  ASSERT_EQ(indexes.size(), 2u);
  EXPECT_EQ(indexes[1].fields, std::vector<std::string>{"Breadth"}) << "the index followed the name";

  ASSERT_EQ(sql("UPDATE Ducts SET Note = NULL WHERE Tag = 'D-2'"), "1");
  EXPECT_FALSE(s->SetRequired("Ducts", "Note", true));
  EXPECT_EQ(error(), 3314);
  EXPECT_EQ(columnType("Ducts", "Note"), either("text", "LONGTEXT"));
  ASSERT_TRUE(s->SetRequired("Ducts", "Tag", false));
  EXPECT_EQ(columnType("Ducts", "Tag"), either("character varying(20)", "TEXT(20)"));
  ASSERT_TRUE(s->SetRequired("Ducts", "Tag", true));
  EXPECT_EQ(field("Ducts", "Tag"), "Text/20/required");
  if (pg()) {
    // The server holds no null in a primary key: its fields stay required.
    EXPECT_FALSE(s->SetRequired("Systems", "Name", false));
    EXPECT_EQ(error(), 3280);
    ASSERT_TRUE(s->CreateIndex("Log", {"PK", {"n"}, {false}, true, true})) << e->GetLastError().description;
    ASSERT_TRUE(s->AlterField("Log", {"n", "Double"})) << e->GetLastError().description;
    EXPECT_EQ(columnType("Log", "n"), "double precision not null");
  }
}

TEST_P(BothSchemas, RetypeConvertsOrRefusesWholeAndKeepsTheRest) {
  EXPECT_FALSE(s->AlterField("Ducts", {"Note", "Long"}));
  EXPECT_EQ(error(), 3421);
  EXPECT_EQ(columnType("Ducts", "Note"), either("text", "LONGTEXT")) << "x does not fit: nothing changed";
  ASSERT_EQ(sql("DELETE FROM Ducts WHERE Note = 'x'"), "1");
  ASSERT_TRUE(s->AlterField("Ducts", {"Note", "Long"})) << e->GetLastError().description;
  EXPECT_EQ(field("Ducts", "Note"), "Long/4");
  EXPECT_EQ(columnType("Ducts", "Note"), either("integer", "LONG"));
  EXPECT_EQ(sql("SELECT Note FROM Ducts"), "\"*NewRecord*\" \"Note\" 12");

  EXPECT_FALSE(s->AlterField("Ducts", {"Tag", "Text", 2, 0, true}));
  EXPECT_EQ(error(), 3163);
  EXPECT_EQ(field("Ducts", "Tag"), "Text/20/required");
  ASSERT_TRUE(s->AlterField("Ducts", {"Tag", "Text", 3, 0, true}));
  EXPECT_EQ(columnType("Ducts", "Tag"), either("character varying(3) not null", "VARCHAR(3) not null"));

  EXPECT_FALSE(s->AlterField("Ducts", {"Width", "Byte"}));
  EXPECT_EQ(error(), 3421) << "400 is no byte";
  EXPECT_FALSE(s->AlterField("Ducts", {"Flow", "Long"}));
  EXPECT_EQ(error(), 3421) << "1.5 is no whole number";
  ASSERT_TRUE(s->AlterField("Ducts", {"Flow", "YesNo"})) << e->GetLastError().description;
  EXPECT_EQ(sql("SELECT Flow FROM Ducts"), "\"*NewRecord*\" \"Flow\" <true>");
  ASSERT_TRUE(s->AlterField("Ducts", {"Width", "Double", 0, 0, true, "5"})) << e->GetLastError().description;
  EXPECT_EQ(field("Ducts", "Width"), "Double/8/required/=5");
  EXPECT_EQ(columnType("Ducts", "Width"), either("double precision not null", "DOUBLE not null"));

  EXPECT_FALSE(s->AlterField("Ducts", {"ID", "Long"}));
  EXPECT_EQ(error(), 3251);
  EXPECT_FALSE(s->AlterField("Ducts", {"System", "Memo"}));
  EXPECT_EQ(error(), 3303);
  EXPECT_FALSE(s->AlterField("Ducts", {"Nope", "Memo"}));
  EXPECT_EQ(error(), 3265);
  EXPECT_FALSE(s->AlterField("Ducts", {"Note", "Blob"}));
  EXPECT_EQ(error(), 3259);
  // The index, the relation and the counter's next value are still there.
  EXPECT_EQ(indexNames("Ducts"), "ByWidth");
  EXPECT_EQ(foreignKeys("Ducts"), either("\"Systems\"", "Systems"));
  ASSERT_EQ(sql("INSERT INTO Ducts (Tag) VALUES ('n')"), "1");
  EXPECT_EQ(sql("SELECT ID, Width FROM Ducts WHERE Tag = 'n'"), "\"*NewRecord*\" \"ID\" 3 \"Width\" 5r");
  EXPECT_EQ(sql("INSERT INTO Ducts (Tag, System) VALUES ('m', 'Nowhere')"), "error 3201");
}

TEST_P(BothSchemas, IndexesRefuseDuplicatesNamesNullsAndASecondKey) {
  IndexSpec unique{"ByTag", {"Tag"}, {false}, true};
  ASSERT_TRUE(s->CreateIndex("Ducts", unique)) << e->GetLastError().description;
  EXPECT_EQ(indexNames("Ducts"), "ByTag,ByWidth");
  EXPECT_EQ(sql("INSERT INTO Ducts (Tag) VALUES ('D-1')"), "error 3022");
  EXPECT_FALSE(s->CreateIndex("Ducts", unique));
  EXPECT_EQ(error(), 3284);
  EXPECT_FALSE(s->CreateIndex("Ducts", {"Systems", {"Tag"}, {false}}));
  EXPECT_EQ(error(), 3284) << "a table's name";
  ASSERT_EQ(sql("UPDATE Ducts SET Flow = 1.5"), "2");
  EXPECT_FALSE(s->CreateIndex("Ducts", {"ByFlow", {"Flow"}, {false}, true}));
  EXPECT_EQ(error(), 3022);
  EXPECT_FALSE(s->CreateIndex("Ducts", {"ByNone", {"Nope"}, {false}}));
  EXPECT_EQ(error(), 3265);
  EXPECT_FALSE(s->CreateIndex("Ducts", {"ByNothing", {}, {}}));
  EXPECT_EQ(error(), 3264);
  EXPECT_EQ(indexNames("Ducts"), "ByTag,ByWidth") << "no refusal left an index";
  EXPECT_FALSE(s->CreateIndex("Ducts", {"PK", {"Tag"}, {false}, true, true}));
  EXPECT_EQ(error(), 3283);

  ASSERT_EQ(sql("INSERT INTO Log (n) VALUES (NULL)"), "1");
  EXPECT_FALSE(s->CreateIndex("Log", {"PK", {"n"}, {false}, true, true}));
  EXPECT_EQ(error(), 3058);
  ASSERT_EQ(sql("DELETE FROM Log"), "1");
  ASSERT_TRUE(s->CreateIndex("Log", {"PK", {"n"}, {false}, true, true})) << e->GetLastError().description;
  EXPECT_EQ(field("Log", "n"), "Long/4/required");
  EXPECT_EQ(columnType("Log", "n"), either("integer not null", "LONG not null"));
  ASSERT_TRUE(s->CreateIndex("Log", {"Sparse", {"n"}, {true}, false, false, true}));

  std::vector<IndexSpec> indexes;
  ASSERT_TRUE(s->ListIndexes("log", &indexes));
  ASSERT_EQ(indexes.size(), 2u);
  EXPECT_EQ(indexes[0].name, "PrimaryKey");
  EXPECT_TRUE(indexes[0].primary);
  EXPECT_TRUE(indexes[0].unique);
  EXPECT_EQ(indexes[1].name, "Sparse");
  EXPECT_TRUE(indexes[1].descending[0]);
  EXPECT_TRUE(indexes[1].ignoreNulls);
  EXPECT_FALSE(indexes[1].unique);
  ASSERT_TRUE(s->ListIndexes("Ducts", &indexes));
  ASSERT_EQ(indexes.size(), 3u);
  EXPECT_EQ(indexes[0].name, "PrimaryKey");
  EXPECT_EQ(indexes[0].fields, std::vector<std::string>{"ID"});
  EXPECT_TRUE(indexes[1].unique);
  EXPECT_TRUE(indexes[2].descending[0]);
  // A cursor finds the new index by its name, and the key as "PrimaryKey".
  ASSERT_TRUE(e->OpenTable("Ducts", "ByTag")) << e->GetLastError().description;
  ASSERT_TRUE(e->OpenTable("Log", "PrimaryKey")) << e->GetLastError().description;
}

TEST_P(BothSchemas, RelationsAreNamedEnforcedAndDeleted) {
  ASSERT_EQ(sql("CREATE TABLE [Fittings] ([ID] LONG PRIMARY KEY, [Duct] LONG, FOREIGN KEY ([Duct]) REFERENCES Ducts (ID) "
                "ON UPDATE SET NULL)"),
            "");
  std::vector<RelationSpec> r;
  ASSERT_TRUE(s->ListRelations(&r));
  ASSERT_EQ(r.size(), 2u);
  EXPECT_EQ(r[0].name, "DuctsFittings") << "an unnamed one is called after its tables";
  EXPECT_EQ(r[0].table, "Ducts");
  EXPECT_EQ(r[0].fields, std::vector<std::string>{"ID"});
  EXPECT_EQ(r[0].foreignTable, "Fittings");
  EXPECT_EQ(r[0].foreignFields, std::vector<std::string>{"Duct"});
  EXPECT_EQ(r[0].onUpdate, "SET NULL");
  EXPECT_EQ(r[0].onDelete, "RESTRICT");
  EXPECT_EQ(r[1].name, "SystemDucts");
  EXPECT_EQ(r[1].table, "Systems");
  EXPECT_EQ(r[1].onDelete, "CASCADE");

  EXPECT_FALSE(s->DeleteTable("Systems"));
  EXPECT_EQ(error(), 3303);
  EXPECT_NE(tables().find("Systems"), std::string::npos);
  EXPECT_EQ(sql("DELETE FROM Systems WHERE Name = 'Supply'"), "1");
  EXPECT_EQ(catalog("SELECT count(*) FROM \"Ducts\"", "SELECT count(*) FROM Ducts"), "1") << "the cascade ran";

  ASSERT_TRUE(s->DeleteRelation("systemducts")) << e->GetLastError().description;
  EXPECT_EQ(foreignKeys("Ducts"), "");
  EXPECT_EQ(sql("INSERT INTO Ducts (Tag, System) VALUES ('free', 'Nowhere')"), "1");
  EXPECT_FALSE(s->DeleteRelation("SystemDucts"));
  EXPECT_EQ(error(), 3265);
  ASSERT_TRUE(s->DeleteRelation("DuctsFittings")) << e->GetLastError().description;
  EXPECT_EQ(foreignKeys("Fittings"), "");
  ASSERT_TRUE(s->ListRelations(&r));
  EXPECT_TRUE(r.empty());
  EXPECT_TRUE(s->DeleteTable("Systems"));
  EXPECT_EQ(tables(), "Ducts,Fittings,Log");
}

TEST_P(BothSchemas, TablesAreRenamedDeletedAndRefusedReadOnly) {
  ASSERT_TRUE(s->RenameTable("systems", "Sys")) << e->GetLastError().description;
  EXPECT_EQ(tables(), "Ducts,Log,Sys");
  EXPECT_EQ(sql("INSERT INTO Ducts (Tag, System) VALUES ('n', 'Supply')"), "1") << "the relation followed";
  EXPECT_FALSE(s->RenameTable("Sys", "ducts"));
  EXPECT_EQ(error(), 3010);
  EXPECT_FALSE(s->RenameTable("Nope", "X"));
  EXPECT_EQ(error(), 3376);
  ASSERT_TRUE(e->OpenTable("Log", ""));
  EXPECT_TRUE(s->DeleteTable("Log"));
  EXPECT_EQ(e->CurrentTable(), "") << "the deleted table's cursor went with it";
  EXPECT_FALSE(s->DeleteTable("Log"));
  EXPECT_EQ(error(), 3376);
  EXPECT_EQ(tables(), "Ducts,Sys");

  int32_t attributes = -1;
  ASSERT_TRUE(s->TableAttributes("Ducts", &attributes));
  EXPECT_EQ(attributes, 0);
  ASSERT_TRUE(s->FieldAttributes("Ducts", "ID", &attributes));
  EXPECT_EQ(attributes, 1 | 16);
  ASSERT_TRUE(s->FieldAttributes("Ducts", "Width", &attributes));
  EXPECT_EQ(attributes, 1 | 32);
  EXPECT_FALSE(s->FieldAttributes("Ducts", "Nope", &attributes));
  EXPECT_EQ(error(), 3265);

  open(true);
  EXPECT_FALSE(s->AddField("Ducts", {"More", "Long"}));
  EXPECT_EQ(error(), 3027);
  EXPECT_FALSE(s->CreateTable("T", {{"a", "Long"}}, {}));
  EXPECT_EQ(error(), 3027);
  EXPECT_FALSE(s->DeleteTable("SYS"));  // any case
  EXPECT_EQ(error(), 3027);
  EXPECT_FALSE(s->CreateIndex("Ducts", {"ByTag", {"Tag"}, {false}}));
  EXPECT_EQ(error(), 3027);
  EXPECT_EQ(tables(), "Ducts,Sys");
  ASSERT_TRUE(s->FieldAttributes("Ducts", "Tag", &attributes));
  EXPECT_EQ(attributes, 2) << "variable, not updatable read-only";
}

INSTANTIATE_TEST_SUITE_P(Engines, BothSchemas, ::testing::Values("sqlite", "postgresql"),
                         [](const auto &info) { return info.param; });

// --- What only a server has ---

class PgServerSchema : public BothSchemas {};

TEST_P(PgServerSchema, RefusesLinksAndChangesUnderViewsAndSaysWhy) {
  EXPECT_FALSE(s->LinkTable(dir / "other.db", "Catalog", ""));
  EXPECT_EQ(error(), 3251);
  EXPECT_NE(e->GetLastError().description.find("server"), std::string::npos) << e->GetLastError().description;
  EXPECT_EQ(tables(), "Ducts,Log,Systems");

  ASSERT_EQ(sql("CREATE VIEW [Wide] AS SELECT Tag, Flow FROM Ducts WHERE Width > 300"), "");
  EXPECT_FALSE(s->DropField("Ducts", "Flow"));
  EXPECT_EQ(error(), 3251);
  EXPECT_NE(e->GetLastError().description.find("depend"), std::string::npos) << e->GetLastError().description;
  EXPECT_EQ(columnType("Ducts", "Flow"), "double precision");
  EXPECT_FALSE(s->AlterField("Ducts", {"Flow", "Single"}));
  EXPECT_EQ(error(), 3251);
  EXPECT_EQ(columnType("Ducts", "Flow"), "double precision");

  // A text the checks let through but the server cannot read as a date.
  ASSERT_EQ(sql("DROP VIEW Wide"), "");
  ASSERT_EQ(sql("UPDATE Ducts SET Tag = '2024-13-45' WHERE Tag = 'D-1'"), "1");
  EXPECT_FALSE(s->AlterField("Ducts", {"Tag", "DateTime"}));
  EXPECT_EQ(error(), 3421) << e->GetLastError().description;
  EXPECT_EQ(columnType("Ducts", "Tag"), "character varying(20) not null");
  EXPECT_EQ(catalog("SELECT \"Tag\" FROM \"Ducts\" ORDER BY \"ID\"", ""), "2024-13-45,D-2");
}

TEST_P(PgServerSchema, AUserWithoutTheRightToChangeTablesIsToldSo) {
  std::string schemaName = target.substr(target.find("schema=") + 7), role = "reader_" + schemaName;
  ASSERT_TRUE(PgServer::shared().admin("DROP ROLE IF EXISTS " + role + "; CREATE ROLE " + role +
                                       " LOGIN; GRANT USAGE ON SCHEMA " + schemaName + " TO " + role +
                                       "; GRANT SELECT ON ALL TABLES IN SCHEMA " + schemaName + " TO " + role));
  std::string base = target.substr(0, target.find('?'));
  std::string url = "postgresql://" + role + "@" + base.substr(base.find('@') + 1) + "?schema=" + schemaName;
  EngineConnection reader = createEngine();
  ASSERT_EQ(reader->Open(url, 0, false), "OK") << reader->GetLastError().description;
  std::vector<FieldSpec> fields;
  EXPECT_TRUE(reader->schema()->Structure("Ducts", &fields)) << "reading the design needs no right to change it";
  EXPECT_FALSE(reader->schema()->AddField("Ducts", {"More", "Long"}));
  EXPECT_EQ(reader->GetLastError().number, 3051) << reader->GetLastError().description;
  EXPECT_FALSE(reader->schema()->CreateTable("Mine", {{"a", "Long"}}, {}));
  EXPECT_EQ(reader->GetLastError().number, 3051) << reader->GetLastError().description;
  EXPECT_EQ(tables(), "Ducts,Log,Systems");
  EXPECT_EQ(columnType("Ducts", "More"), "");
  reader->Close();
  PgServer::shared().admin("DROP OWNED BY " + role + "; DROP ROLE " + role);
}

TEST_P(PgServerSchema, WorkLandsWholeOrNotAtAll) {
  // The import's way: many schema changes in one transaction of the server's,
  // each change a savepoint within it.
  pg::PgEngine server;
  ASSERT_EQ(server.Open(target, 0, false), "OK") << server.GetLastError().description;
  Schema *schema = server.schema();
  ASSERT_TRUE(server.BeginWork());
  ASSERT_TRUE(schema->CreateTable("Kept", {{"a", "Long"}}, {}));
  EXPECT_FALSE(schema->CreateTable("kept", {{"a", "Long"}}, {}));
  EXPECT_EQ(server.GetLastError().number, 3010);
  ASSERT_TRUE(server.BeginWork());
  ASSERT_TRUE(schema->CreateTable("Undone", {{"a", "Long"}}, {}));
  EXPECT_FALSE(server.EndWork(false));
  EXPECT_EQ(tables(), "Ducts,Log,Systems") << "another user sees nothing before the commit";
  ASSERT_TRUE(schema->CreateIndex("Kept", {"ByA", {"a"}, {false}, true})) << server.GetLastError().description;
  ASSERT_TRUE(server.EndWork(true)) << server.GetLastError().description;
  EXPECT_EQ(tables(), "Ducts,Kept,Log,Systems");
  EXPECT_EQ(indexNames("Kept"), "ByA");

  ASSERT_TRUE(server.BeginWork());
  ASSERT_TRUE(schema->DeleteTable("Kept"));
  ASSERT_TRUE(schema->CreateTable("Gone", {{"a", "Long"}}, {}));
  EXPECT_FALSE(server.EndWork(false));
  EXPECT_EQ(tables(), "Ducts,Kept,Log,Systems") << "undone whole";
  EXPECT_FALSE(server.InWork());
}

TEST_P(PgServerSchema, SqlNamesMixedCaseTablesAndFieldsWithoutRegardToCase) {
  MovedClock clock;
  ASSERT_TRUE(s->CreateTable("Fittings", {{"FittingID", "Counter"}, {"Kind", "Text", 10}}, {}));
  EXPECT_EQ(sql("INSERT INTO FITTINGS (kind) VALUES ('Elbow')"), "1");
  EXPECT_EQ(sql("SELECT fittingid, KIND FROM fittings"), "\"*NewRecord*\" \"FittingID\" 1 \"Kind\" \"Elbow\"");
  EXPECT_EQ(sql("SELECT [kind] FROM [fittings] WHERE Kind LIKE 'e*'"), "\"*NewRecord*\" \"Kind\" \"Elbow\"");
  // Another user's table shows a second later; a name spelled two ways on
  // the server is left to the server's own folding.
  ASSERT_TRUE(PgServer::shared().admin("CREATE TABLE " + target.substr(target.find("schema=") + 7) +
                                       ".\"Hangers\" (\"Rod\" integer); CREATE TABLE " +
                                       target.substr(target.find("schema=") + 7) +
                                       ".kinds (kind text); INSERT INTO " + target.substr(target.find("schema=") + 7) +
                                       ".kinds VALUES ('lower')"));
  clock.later();
  EXPECT_EQ(sql("SELECT rod FROM hangers"), "");
  EXPECT_EQ(sql("SELECT kind FROM kinds"), "\"*NewRecord*\" \"kind\" \"lower\"");
  EXPECT_EQ(sql("SELECT Kind FROM Fittings"), "error 3061") << "the bare name folds to the server's kind";
  EXPECT_EQ(sql("SELECT [Kind] FROM Fittings"), "\"*NewRecord*\" \"Kind\" \"Elbow\"");
}

INSTANTIATE_TEST_SUITE_P(Pg, PgServerSchema, ::testing::Values("postgresql"),
                         [](const auto &info) { return info.param; });

}  // namespace
}  // namespace vantry::engine
