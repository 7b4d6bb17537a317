// Access files written by Access itself (the shared data folder), imported
// and opened through the engine: row counts, values of every type, keys,
// indexes, relations, stored queries; and the encrypted and damaged files.
// Skipped when the shared data folder is absent.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include "access/reader.h"
#include "engine/access.h"
#include "engine_testing.h"

namespace vantry::engine::access {
namespace {

namespace fs = std::filesystem;
using testing::rawScalar;
using testing::TempDir;

std::string data(const std::string &name) { return (fs::path(VANTRY_SHARED_DATA) / "access" / name).string(); }

#define NEED_DATA()                                                                          \
  if (!fs::exists(data("SOURCES.md"))) GTEST_SKIP() << "no Access files at " << data("") \
                                                    << " (the shared data folder is absent)"

class AccessImport : public ::testing::Test {
 protected:
  // Imports `name` once per test into the temporary folder.
  std::string imported(const std::string &name) {
    std::string out = dir / (name + ".db");
    if (!fs::exists(out)) {
      ImportReport r = importFile(data(name), out);
      EXPECT_TRUE(r.ok) << name << ": " << r.message;
    }
    return out;
  }
  std::string q(const std::string &name, const std::string &sql) { return rawScalar(imported(name), sql); }
  TempDir dir;
};

TEST_F(AccessImport, EveryReadableFileImportsWithItsRowCounts) {
  NEED_DATA();
  // Tables and rows as the folder's list says, formats Jet 3 to ACE 14.
  std::map<std::string, std::map<std::string, int>> files = {
      {"compIndexTestV2003.mdb", {{"Table1", 512}}},
      {"indexTestV2000.mdb", {{"Table1", 4}, {"Table2", 3}, {"Table3", 4}}},
      {"indexTestV2010.accdb", {{"Table1", 4}, {"Table2", 3}, {"Table3", 4}}},
      {"oldDatesV2007.accdb", {{"Table1", 4}}},
      {"overflowTestV2003.mdb", {{"Table1", 7}}},
      {"queryTestV2003.mdb", {{"Table1", 0}, {"Table2", 0}, {"Table3", 0}}},
      {"queryTestV2010.accdb", {{"Table1", 0}, {"Table2", 0}, {"Table3", 0}}},
      {"test2V1997.mdb", {{"MSP_PROJECTS", 1}}},
      {"testV2000.mdb", {{"Table1", 2}, {"Table2", 0}, {"Table3", 0}, {"Table4", 0}}},
      {"testV2007.accdb", {{"Table1", 2}, {"Table2", 0}, {"Table3", 0}, {"Table4", 0}}},
      {"testV2010.accdb", {{"Table1", 2}, {"Table2", 0}, {"Table3", 0}, {"Table4", 0}}},
      {"currency_V2016.accdb", {{"Table", 1}}},
      {"longtext_V2016.accdb", {{"Table1", 1}}},
      {"numeric_V2000.mdb", {{"test", 1}}},
  };
  for (const auto &[file, tables] : files) {
    std::string db = imported(file);
    EXPECT_EQ(rawScalar(db, "SELECT count(*) FROM sqlite_master WHERE type = 'table' AND name NOT LIKE '\\_%' "
                            "ESCAPE '\\' AND name <> 'sqlite_sequence'"),
              std::to_string(tables.size()))
        << file;
    for (const auto &[table, rows] : tables)
      EXPECT_EQ(rawScalar(db, "SELECT count(*) FROM \"" + table + "\""), std::to_string(rows)) << file << " " << table;
  }
}

TEST_F(AccessImport, ValuesOfEveryTypeAreExact) {
  NEED_DATA();
  for (const char *file : {"testV2000.mdb", "testV2007.accdb", "testV2010.accdb"}) {
    std::string row = "SELECT %s FROM Table1 WHERE A = 'abcdefg'";
    auto col = [&](const char *c) {
      std::string sql = row;
      sql.replace(sql.find("%s"), 2, c);
      return q(file, sql);
    };
    EXPECT_EQ(col("B"), "hijklmnop") << file;
    EXPECT_EQ(col("C || ' ' || typeof(C)"), "2 integer");  // byte
    EXPECT_EQ(col("D"), "222");                            // integer
    EXPECT_EQ(col("E"), "333333333");                      // long
    EXPECT_EQ(col("F = 444.555"), "1");                    // double
    EXPECT_EQ(col("G"), "1974-09-21 00:00:00");            // date
    EXPECT_EQ(col("H = 3.5"), "1");                        // currency
    EXPECT_EQ(col("I"), "-1");                             // yes
    EXPECT_EQ(q(file, "SELECT H || '/' || I FROM Table1 WHERE A = 'a'"), "0/0");
  }
  // Dates before 1900, and before the Gregorian reform, count on the same calendar.
  EXPECT_EQ(q("oldDatesV2007.accdb", "SELECT group_concat(DateField, ',') FROM (SELECT DateField FROM Table1 ORDER BY ID)"),
            "1582-10-15 00:00:00,1582-10-14 00:00:00,1492-01-10 00:00:00,1392-01-10 00:00:00");
  EXPECT_EQ(q("numeric_V2000.mdb", "SELECT col1 || '|' || col2 || '|' || col5 || '|' || col6 FROM test"),
            "some data|1|4|-1");
  // A long text kept whole, not cut at a bind size.
  EXPECT_EQ(q("longtext_V2016.accdb", "SELECT length(LongText) > 255 FROM Table1"), "1");
  // Jet 3: the code page's pound sign, a memo past 256 bytes, an OLE object whole.
  EXPECT_EQ(q("test2V1997.mdb", "SELECT PROJ_OPT_CURRENCY_SYMBOL FROM MSP_PROJECTS"), "\xC2\xA3");
  EXPECT_EQ(q("test2V1997.mdb", "SELECT length(PROJ_PROP_AUTHOR) FROM MSP_PROJECTS"), "348");
  EXPECT_EQ(q("test2V1997.mdb", "SELECT PROJ_INFO_START_DATE FROM MSP_PROJECTS"), "2006-02-03 08:00:00");
  // An OLE object of 22,970 bytes over a chain of long-value pages, as a blob.
  EXPECT_EQ(q("test2V1997.mdb", "SELECT typeof(RESERVED_BINARY_DATA) || ' ' || length(RESERVED_BINARY_DATA) || ' ' || "
                                "hex(substr(RESERVED_BINARY_DATA, 1, 8)) FROM MSP_PROJECTS"),
            "blob 22970 151C2D0002000000");
  // Rows moved to other pages are read where they went, once each.
  EXPECT_EQ(q("overflowTestV2003.mdb", "SELECT count(*) FROM Table1 WHERE 'row3col9' IN (data1, data9)"), "1");
  EXPECT_EQ(q("overflowTestV2003.mdb", "SELECT data7 FROM Table1 WHERE data1 = 'row7col1'"), "row7col7");
}

TEST_F(AccessImport, CurrencyIsReadAsAnExactCount) {
  NEED_DATA();
  Reader reader;
  std::string why;
  bool encrypted = false;
  ASSERT_TRUE(reader.open(data("currency_V2016.accdb"), &why, &encrypted)) << why;
  std::vector<Value> row;
  ASSERT_TRUE(reader.scan(0, [&](std::vector<Value> &v) { row = v; }, &why)) << why;
  ASSERT_EQ(row.size(), 2u);
  EXPECT_EQ(row[1].kind, Value::kCurrency);
  EXPECT_EQ(row[1].integer, 420000);
  EXPECT_EQ(row[1].text, "42.0000");
}

TEST_F(AccessImport, AttachmentsAreReadWithNameTypeAndUnpackedBytes) {
  NEED_DATA();
  // No sample has an attachment or multi-valued field in a table of its
  // own; the ACE files keep their theme as an attachment of their own
  // resources table, which is read here.
  for (const char *name : {"currency_V2016.accdb", "oldDatesV2007.accdb", "indexTestV2010.accdb"}) {
    SCOPED_TRACE(name);
    Reader reader;
    std::string why;
    bool encrypted = false;
    ASSERT_TRUE(reader.open(data(name), &why, &encrypted)) << why;
    std::vector<ComplexField> fields = reader.complexFields(&why);
    ASSERT_EQ(fields.size(), 1u) << why;
    EXPECT_EQ(fields[0].table, "MSysResources");
    EXPECT_EQ(fields[0].column, "Data");
    EXPECT_TRUE(fields[0].attachment);
    std::vector<ComplexValue> values;
    ASSERT_TRUE(reader.scanComplex(0, [&](ComplexValue &v) { values.push_back(v); }, &why)) << why;
    ASSERT_EQ(values.size(), 1u);
    EXPECT_EQ(values[0].key, 1);
    EXPECT_EQ(values[0].fileName.text, "Office Theme.thmx");
    EXPECT_EQ(values[0].fileType.text, "thmx");
    // A theme is a zip archive: whole, it starts with a local header and
    // ends with the end of its central directory (22 bytes, no comment).
    const std::string &bytes = values[0].data.text;
    ASSERT_GT(bytes.size(), 22u);
    EXPECT_EQ(bytes.substr(0, 4), std::string("PK\x03\x04", 4));
    EXPECT_EQ(bytes.substr(bytes.size() - 22, 4), std::string("PK\x05\x06", 4));
  }
  Reader jet;
  std::string why;
  bool encrypted = false;
  ASSERT_TRUE(jet.open(data("testV2000.mdb"), &why, &encrypted)) << why;
  EXPECT_TRUE(jet.complexFields(&why).empty()) << "Jet 4 has no complex fields";
}

TEST_F(AccessImport, KeysIndexesRelationsAndCounters) {
  NEED_DATA();
  std::string t = imported("testV2000.mdb");
  EXPECT_EQ(rawScalar(t, "SELECT group_concat(name) FROM pragma_table_info('Table1') WHERE pk > 0"), "A");
  EXPECT_EQ(rawScalar(t, "SELECT \"unique\" FROM pragma_index_list('Table1') WHERE name = 'B'"), "0");
  // A counter that is the key is numbered on from the highest value.
  EXPECT_NE(rawScalar(t, "SELECT sql FROM sqlite_master WHERE name = 'Table3'").find("AUTOINCREMENT"), std::string::npos);
  std::string c = imported("compIndexTestV2003.mdb");
  EXPECT_EQ(rawScalar(c, "SELECT \"desc\" FROM pragma_index_xinfo('CD_AGENTE') WHERE cid >= 0"), "1");

  for (const char *file : {"indexTestV2000.mdb", "indexTestV2010.accdb"}) {
    std::string i = imported(file);
    EXPECT_EQ(rawScalar(i, "SELECT group_concat(\"table\" || '.' || \"to\" || ' ' || on_update || ' ' || on_delete, '; ') "
                           "FROM (SELECT * FROM pragma_foreign_key_list('Table1') ORDER BY \"table\")"),
              "Table2.id NO ACTION CASCADE; Table3.id CASCADE NO ACTION")
        << file;
    // The relation holds in the copy: an id with no Table2 row is refused.
    sqlite3 *db = nullptr;
    ASSERT_EQ(sqlite3_open(i.c_str(), &db), SQLITE_OK);
    sqlite3_exec(db, "PRAGMA foreign_keys=ON", nullptr, nullptr, nullptr);
    EXPECT_NE(sqlite3_exec(db, "INSERT INTO Table1 (id, otherfk1, otherfk2) VALUES (99, 12345, 1)", nullptr,
                           nullptr, nullptr),
              SQLITE_OK);
    sqlite3_close(db);
  }
}

TEST_F(AccessImport, StoredQueriesAreRebuiltAndRun) {
  NEED_DATA();
  for (const char *file : {"queryTestV2003.mdb", "queryTestV2010.accdb"}) {
    std::string db = imported(file);
    EXPECT_EQ(rawScalar(db, "SELECT count(*) FROM _vantry_queries"), "9") << file;
    EXPECT_EQ(rawScalar(db, "SELECT sql FROM _vantry_queries WHERE name = 'DeleteQuery'"),
              "DELETE * FROM Table1 WHERE (((Table1.col1)>\"blah\"))");
    EXPECT_EQ(rawScalar(db, "SELECT substr(sql, 1, 36) FROM _vantry_queries WHERE name = 'UpdateQuery'"),
              "PARAMETERS [User Name] Text;\nUPDATE ");
    EXPECT_EQ(rawScalar(db, "SELECT sql FROM _vantry_queries WHERE name = 'DataDefinitionQuery'"),
              "CREATE TABLE Table5 (col1 CHAR, col2 CHAR);");

    // Through the engine, on the imported file: the select and the
    // make-table query run (over empty tables) and answer no rows.
    EngineConnection e = createEngine();
    ASSERT_EQ(e->Open(db, 0, false), "OK");
    ValueArray result;
    EXPECT_TRUE(e->RunQuery("SelectQuery", {}, &result)) << e->GetLastError().description;
    EXPECT_TRUE(result.empty());
    EXPECT_TRUE(e->ExecuteSql("SELECT * FROM SelectQuery", &result)) << e->GetLastError().description;
    EXPECT_TRUE(e->RunQuery("DeleteQuery", {}, &result)) << e->GetLastError().description;
  }
}

TEST(AccessQueries, RebuiltFromTheirCatalogRows) {
  // (attribute, flag, name1, name2, expression), as the query catalog holds them.
  auto rows = [](std::vector<QueryRow> r) { return r; };
  StoredQuery sel = rebuildQuery(
      "Wide", rows({{1, 1, "", "", ""},
                    {2, 4, "Min Width", "", ""},
                    {3, 2, "", "", ""},
                    {5, 0, "Ducts", "d", ""},
                    {5, 0, "Systems", "", ""},
                    {6, 0, "Tag", "", "d.Tag"},
                    {6, 0, "", "", "Systems.Name"},
                    {7, 2, "d", "Systems", "d.SystemId = Systems.Id"},
                    {8, 0, "", "", "d.Width >= [Min Width]"},
                    {11, 0, "D", "", "d.Width"}}));
  EXPECT_EQ(sel.type, 1);
  EXPECT_EQ(sel.sql,
            "PARAMETERS [Min Width] Long;\nSELECT DISTINCT d.Tag AS Tag, Systems.Name FROM Ducts AS d LEFT JOIN "
            "Systems ON (d.SystemId = Systems.Id) WHERE d.Width >= [Min Width] ORDER BY d.Width DESC");
  StoredQuery upd = rebuildQuery("Widen", rows({{1, 4, "", "", ""},
                                                {5, 0, "Ducts", "", ""},
                                                {6, 0, "", "Ducts.Width", "[Width] + 50"},
                                                {8, 0, "", "", "Ducts.Lined = True"}}));
  EXPECT_EQ(upd.sql, "UPDATE Ducts SET Width = [Width] + 50 WHERE Ducts.Lined = True");
  StoredQuery app = rebuildQuery("Add", rows({{1, 3, "Log", "", ""}, {6, 0, "", "Note", "'added'"}}));
  EXPECT_EQ(app.sql, "INSERT INTO Log (Note) VALUES ('added')");
  StoredQuery top = rebuildQuery("Top", rows({{1, 1, "", "", ""}, {3, 16 | 32, "10", "", ""}, {5, 0, "Ducts", "", ""},
                                              {6, 0, "", "", "*"}}));
  EXPECT_EQ(top.sql, "SELECT TOP 10 PERCENT * FROM Ducts");
}

TEST_F(AccessImport, EncryptedAndDamagedFilesSayWhich) {
  NEED_DATA();
  ImportReport enc = importFile(data("db2013-enc.accdb"), dir / "enc.db");
  EXPECT_FALSE(enc.ok);
  EXPECT_EQ(enc.number, 3031);
  EXPECT_NE(enc.message.find("encrypted"), std::string::npos) << enc.message;
  EXPECT_FALSE(fs::exists(dir / "enc.db"));

  // Cut short, and scribbled over: a clear "damaged", never a crash here.
  std::ifstream in(data("testV2000.mdb"), std::ios::binary);
  std::string whole((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::ofstream(dir / "cut.mdb", std::ios::binary) << whole.substr(0, 3 * 4096 + 100);
  std::string scribbled = whole;
  for (size_t i = 4 * 4096; i < scribbled.size(); i += 97) scribbled[i] = char(scribbled[i] * 31 + 7);
  std::ofstream(dir / "scribbled.mdb", std::ios::binary) << scribbled;
  for (const char *name : {"cut.mdb", "scribbled.mdb"}) {
    ImportReport r = importFile(dir / name, dir / (std::string(name) + ".db"));
    if (r.ok) continue;  // what survived the scribbling may still read
    EXPECT_EQ(r.number, errc::kCorrupt) << name << ": " << r.message;
    EXPECT_NE(r.message.find("damaged"), std::string::npos) << r.message;
  }
  std::ofstream(dir / "text.mdb") << "not a database at all";
  EXPECT_EQ(importFile(dir / "text.mdb", dir / "text.db").number, errc::kUnrecognizedFormat);

  // A target that exists is left as it was when the import fails.
  std::ofstream(dir / "keep.db") << "keep";
  importFile(data("db2013-enc.accdb"), dir / "keep.db");
  std::ifstream kept(dir / "keep.db");
  std::string content;
  kept >> content;
  EXPECT_EQ(content, "keep");
}

TEST_F(AccessImport, AReaderThatCrashesOrHangsIsADamagedFileNotADeadCaller) {
  NEED_DATA();
  ::setenv("VANTRY_ACCESS_SILENCE_SECONDS", "1", 1);
  std::ofstream(dir / "keep.db") << "keep";
  for (const char *fault : {"crash", "hang"}) {
    ::setenv("VANTRY_ACCESS_FAULT", fault, 1);
    ImportReport r = importFile(data("testV2000.mdb"), dir / "keep.db");
    EXPECT_FALSE(r.ok) << fault;
    EXPECT_EQ(r.number, errc::kCorrupt) << fault;
    EXPECT_NE(r.message.find(std::string(fault) == "crash" ? "signal" : "progress"), std::string::npos) << r.message;
  }
  ::unsetenv("VANTRY_ACCESS_FAULT");
  ::unsetenv("VANTRY_ACCESS_SILENCE_SECONDS");
  std::ifstream kept(dir / "keep.db");
  std::string content;
  kept >> content;
  EXPECT_EQ(content, "keep");  // the target is left as it was
}

TEST_F(AccessImport, TheEngineOpensAnAccessFileReadOnlyFromACachedCopy) {
  NEED_DATA();
  TempDir cache;
  ::setenv("VANTRY_ACCESS_CACHE", cache.path().c_str(), 1);
  fs::copy_file(data("testV2000.mdb"), dir / "standards.mdb");
  std::string path = dir / "standards.mdb";

  EngineConnection e = createEngine();
  ASSERT_EQ(e->Open(path, 0, false), "OK") << e->GetLastError().description;
  EXPECT_EQ(e->IsUpdatable(), 0);
  EXPECT_EQ(e->GetName(), path);
  ValueArray result;
  ASSERT_TRUE(e->ExecuteSql("SELECT E FROM Table1 WHERE A = 'abcdefg'", &result));
  EXPECT_EQ(testing::show(result), "E=333333333");
  int32_t n = 0;
  EXPECT_FALSE(e->ExecuteCommand("DELETE FROM Table1", &n));
  EXPECT_EQ(e->GetLastError().number, errc::kReadOnly);
  EXPECT_NE(e->GetLastError().description.find("vantry import"), std::string::npos);
  e->Close();

  // The copy is reused while the file is unchanged, and remade when it changes.
  fs::path copy;
  for (const auto &f : fs::directory_iterator(cache.path()))
    if (f.path().extension() == ".db") copy = f.path();
  ASSERT_FALSE(copy.empty());
  auto made = fs::last_write_time(copy);
  ASSERT_EQ(e->Open(path, 0, true), "OK");
  EXPECT_EQ(fs::last_write_time(copy), made);
  e->Close();
  fs::copy_file(data("test2V1997.mdb"), path, fs::copy_options::overwrite_existing);
  ASSERT_EQ(e->Open(path, 0, true), "OK") << e->GetLastError().description;
  ASSERT_TRUE(e->ExecuteSql("SELECT PROJ_NAME FROM MSP_PROJECTS", &result));
  EXPECT_EQ(testing::show(result), "PROJ_NAME=\"Project1\"");
  e->Close();

  EXPECT_EQ(e->Open(data("db2013-enc.accdb"), 0, true), "");
  EXPECT_EQ(e->GetLastError().number, 3031);
  ::unsetenv("VANTRY_ACCESS_CACHE");
}

}  // namespace
}  // namespace vantry::engine::access
