// `vantry import FILE.mdb postgresql://...`: real Access files written into
// a throw-away server, compared with the SQLite copy that `vantry import`
// makes of the same file (fields, records, indexes, relations), and checked
// in the server's catalogue; a failed import leaves the server as it was.
// Skipped, saying why, without the server or the shared Access files.
#include <gtest/gtest.h>
#include <libpq-fe.h>
#include <stdlib.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "engine/access.h"
#include "engine/engine.h"
#include "engine/schema.h"
#include "pg_server.h"

namespace vantry::engine {
namespace {

using testing::PgServer;

std::string accessFile(const std::string &name) {
  const char *shared = std::getenv("VANTRY_SHARED_DATA");
  std::string dir = shared ? std::string(shared) : std::string(VANTRY_SOURCE_DIR) + "/../shared/data";
  return dir + "/access/" + name;
}

class PgAccessImport : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!PgServer::shared().running()) GTEST_SKIP() << "no PostgreSQL server: " << PgServer::shared().why();
    if (!std::filesystem::exists(accessFile("indexTestV2000.mdb")))
      GTEST_SKIP() << "no Access files at " << accessFile("") << ": the import cannot be tried";
    url = PgServer::shared().freshSchema("imp");
    schemaName = url.substr(url.find("schema=") + 7);
    std::string tmpl = (std::filesystem::temp_directory_path() / "vantry-pgimport-XXXXXX").string();
    dir = mkdtemp(tmpl.data());
  }
  void TearDown() override {
    if (raw) PQfinish(raw);
    if (!dir.empty()) std::filesystem::remove_all(dir);
  }
  // The server's answer, asked without the engine: first column of each row, joined by ",".
  std::string catalog(const std::string &sql) {
    if (!raw) {
      raw = PQconnectdb(url.substr(0, url.find('?')).c_str());
      PQclear(PQexec(raw, ("SET search_path TO " + schemaName).c_str()));
    }
    PGresult *r = PQexec(raw, sql.c_str());
    std::string out = PQresultStatus(r) == PGRES_TUPLES_OK ? "" : std::string("<error ") + PQresultErrorMessage(r) + ">";
    for (int i = 0; PQresultStatus(r) == PGRES_TUPLES_OK && i < PQntuples(r); ++i)
      out += (i ? "," : "") + std::string(PQgetvalue(r, i, 0));
    PQclear(r);
    return out;
  }
  std::string tables() {
    return catalog("SELECT relname FROM pg_class WHERE relnamespace = current_schema()::regnamespace AND relkind = 'r' "
                   "ORDER BY 1");
  }
  // Every record of every table, in key order, as the engine reads it.
  static std::string contents(const EngineConnection &e) {
    std::vector<std::string> names;
    std::string out;
    if (!e->schema()->ListTables(false, &names)) return "error " + e->GetLastError().description;
    for (const std::string &t : names) {
      std::vector<IndexSpec> indexes;
      e->schema()->ListIndexes(t, &indexes);
      bool keyed = !indexes.empty() && indexes[0].primary;
      if (!e->OpenTable(t, keyed ? "PrimaryKey" : "")) return "error " + e->GetLastError().description;
      out += t + ":";
      Record r;
      for (bool more = e->MoveFirst(&r); more; more = e->Skip(1, &r)) {
        out += " (";
        for (const Field &f : r) out += f.name + "=" + f.value.debugString() + " ";
        out += ")";
      }
      out += "\n";
    }
    return out;
  }
  static std::string describe(const EngineConnection &e) {
    std::vector<std::string> names;
    std::string out;
    e->schema()->ListTables(false, &names);
    for (const std::string &t : names) {
      std::vector<FieldSpec> fields;
      std::vector<IndexSpec> indexes;
      e->schema()->Structure(t, &fields);
      e->schema()->ListIndexes(t, &indexes);
      out += t + ":";
      // A key's fields are required on the server, as the schema functions
      // make a key on either engine; the SQLite copy leaves them as the file had them.
      std::vector<std::string> key;
      if (!indexes.empty() && indexes[0].primary) key = indexes[0].fields;
      for (const FieldSpec &f : fields) {
        bool inKey = std::find(key.begin(), key.end(), f.name) != key.end();
        out += " " + f.name + " " + f.type + "/" + std::to_string(f.size) + (f.required && !inKey ? "/required" : "") +
               (f.defaultValue.empty() ? "" : "/=" + f.defaultValue);
      }
      for (const IndexSpec &ix : indexes) {
        out += " [" + std::string(ix.primary ? "key" : ix.unique ? "unique" : "index");
        for (const std::string &f : ix.fields) out += " " + f;
        out += "]";
      }
      out += "\n";
    }
    std::vector<RelationSpec> relations;
    e->schema()->ListRelations(&relations);
    for (const RelationSpec &r : relations)
      out += "relation " + r.table + "." + r.fields[0] + " <- " + r.foreignTable + "." + r.foreignFields[0] + " " +
             r.onUpdate + "/" + r.onDelete + "\n";
    return out;
  }

  std::string url, schemaName, dir;
  PGconn *raw = nullptr;
};

TEST_F(PgAccessImport, AnAccessFileLandsOnTheServerAsItsSqliteCopyHoldsIt) {
  for (const char *file : {"indexTestV2000.mdb", "compIndexTestV2003.mdb", "testV2010.accdb"}) {
    SCOPED_TRACE(file);
    url = PgServer::shared().freshSchema("imp");
    schemaName = url.substr(url.find("schema=") + 7);
    if (raw) PQfinish(raw);
    raw = nullptr;
    std::string copy = dir + "/" + file + ".db";
    access::ImportReport local = access::importFile(accessFile(file), copy);
    ASSERT_TRUE(local.ok) << local.message;
    size_t calls = 0;
    access::ImportReport r =
        access::importFileToServer(accessFile(file), url, [&](size_t, size_t, const std::string &) { ++calls; });
    ASSERT_TRUE(r.ok) << r.number << " " << r.message;
    EXPECT_EQ(r.tables, local.tables);
    EXPECT_EQ(r.rows, local.rows);
    EXPECT_EQ(r.relations, local.relations);
    EXPECT_GT(calls, 0u);

    EngineConnection sqlite = createEngine(), server = createEngine();
    ASSERT_EQ(sqlite->Open(copy, 0, true), "OK");
    ASSERT_EQ(server->Open(url, 0, true), "OK") << server->GetLastError().description;
    if (std::string(file) == "testV2010.accdb") {
      // A GUID is its text on the server; the SQLite copy declares it GUID,
      // which the SQLite engine describes as a number.
      std::vector<FieldSpec> fields;
      ASSERT_TRUE(server->schema()->Structure("Table4", &fields));
      EXPECT_EQ(fields[1].type + "/" + std::to_string(fields[1].size), "Text/38");
      EXPECT_EQ(describe(server).substr(0, describe(server).find("Table4")),
                describe(sqlite).substr(0, describe(sqlite).find("Table4")));
    } else {
      EXPECT_EQ(describe(server), describe(sqlite));
    }
    EXPECT_EQ(contents(server), contents(sqlite));
    // The server's own catalogue holds the tables and their rows.
    std::string names = tables();
    size_t counted = 0, found = 0;
    for (size_t at = 0; at <= names.size() && !names.empty();) {
      size_t end = names.find(',', at);
      if (end == std::string::npos) end = names.size();
      counted += std::stoul(catalog("SELECT count(*) FROM \"" + names.substr(at, end - at) + "\""));
      ++found;
      at = end + 1;
    }
    EXPECT_EQ(found, local.tables) << names;
    EXPECT_EQ(counted, local.rows);
  }
  // Relations are the server's foreign keys, indexes its indexes.
  url = PgServer::shared().freshSchema("imp");
  schemaName = url.substr(url.find("schema=") + 7);
  if (raw) PQfinish(raw);
  raw = nullptr;
  ASSERT_TRUE(access::importFileToServer(accessFile("indexTestV2000.mdb"), url).ok);
  EXPECT_EQ(catalog("SELECT count(*) FROM pg_constraint WHERE contype = 'f' AND connamespace = "
                    "current_schema()::regnamespace"),
            "2");
  EXPECT_EQ(catalog("SELECT count(*) FROM pg_index i JOIN pg_class c ON c.oid = i.indrelid WHERE c.relnamespace = "
                    "current_schema()::regnamespace AND i.indisprimary"),
            "3");
}

TEST_F(PgAccessImport, AFailedImportLeavesTheServerAsItWas) {
  // The file's last table is taken: the first two are written, then undone.
  ASSERT_TRUE(PgServer::shared().admin("CREATE TABLE " + schemaName + ".table3 (kept integer); INSERT INTO " +
                                       schemaName + ".table3 VALUES (7)"));
  access::ImportReport r = access::importFileToServer(accessFile("indexTestV2000.mdb"), url);
  EXPECT_FALSE(r.ok);
  EXPECT_EQ(r.number, 3010) << r.message;
  EXPECT_NE(r.message.find("Table3"), std::string::npos) << r.message;
  EXPECT_EQ(tables(), "table3");
  EXPECT_EQ(catalog("SELECT kept FROM table3"), "7");
  EXPECT_EQ(catalog("SELECT count(*) FROM pg_class WHERE relnamespace = current_schema()::regnamespace"), "1")
      << "no index, sequence or query table left behind";

  r = access::importFileToServer(accessFile("db2013-enc.accdb"), url);
  EXPECT_FALSE(r.ok);
  EXPECT_EQ(r.number, 3031) << r.message;
  r = access::importFileToServer(dir + "/none.mdb", url);
  EXPECT_FALSE(r.ok);
  EXPECT_EQ(r.number, 3024) << r.message;
  r = access::importFileToServer(accessFile("indexTestV2000.mdb"), "postgresql://vantry@127.0.0.1:1/postgres");
  EXPECT_FALSE(r.ok);
  EXPECT_EQ(r.number, 3043) << r.message;
  EXPECT_EQ(tables(), "table3");
}

TEST_F(PgAccessImport, TheCommandImportsIntoAServerAndRefusesASecondTime) {
  std::string command = std::string(VANTRY_BIN_DIR) + "/vantry import " + accessFile("compIndexTestV2003.mdb") + " '" +
                        url + "' 2>" + dir + "/err";
  FILE *p = popen(command.c_str(), "r");
  ASSERT_NE(p, nullptr);
  char buf[512] = {};
  std::string out;
  while (fgets(buf, sizeof buf, p)) out += buf;
  EXPECT_EQ(pclose(p), 0) << out;
  EXPECT_NE(out.find("imported 1 tables, 512 rows"), std::string::npos) << out;
  EXPECT_EQ(catalog("SELECT count(*) FROM \"Table1\""), "512");
  EXPECT_EQ(std::system(command.c_str()) >> 8, 1);
  std::ifstream err(dir + "/err");
  std::string text((std::istreambuf_iterator<char>(err)), std::istreambuf_iterator<char>());
  EXPECT_NE(text.find("(3010)"), std::string::npos) << text;
  EXPECT_EQ(catalog("SELECT count(*) FROM \"Table1\""), "512") << "the second import changed nothing";
}

}  // namespace
}  // namespace vantry::engine
