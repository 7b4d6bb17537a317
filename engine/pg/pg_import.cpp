// An Access file imported into a PostgreSQL server (include/engine/access.h).
//
// The file is first imported into a SQLite copy in a temporary folder, as
// `vantry import` does for a file target (the same reader in its child
// process, the same notes of what is left out). The copy is then written
// into the server through the engines' own operations: each table's fields
// as the SQLite engine describes them go to the server's CreateTable, its
// records from a SQLite cursor to the server's AppendRecord (counters
// kept), its indexes to CreateIndex, the relations to CreateRelation and
// the stored queries to CreateQuery; so a field's type is mapped to the
// server's exactly as the schema functions map it. All of it is one
// transaction of the server's: an import that fails, or is cut off, leaves
// the server as it was.
#include <sqlite3.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <map>

#include "pg_text.h"
#include "engine/access.h"
#include "pg_schema.h"

namespace vantry::engine::access {

namespace {

using pg::upper;

// A SQLite copy in a folder of its own, removed with it.
class TempCopy {
 public:
  TempCopy() {
    std::string tmpl = (std::filesystem::temp_directory_path() / "vantry-import-XXXXXX").string();
    if (mkdtemp(tmpl.data())) dir_ = tmpl;
  }
  ~TempCopy() {
    std::error_code ec;
    if (!dir_.empty()) std::filesystem::remove_all(dir_, ec);
  }
  bool ok() const { return !dir_.empty(); }
  std::string path() const { return dir_ + "/copy.db"; }

 private:
  std::string dir_;
};

// Rows of a statement on the copy, read with SQLite itself: what the engine
// does not describe (declared types, the stored queries' table).
std::vector<std::vector<std::string>> rawRows(const std::string &path, const std::string &sql,
                                              const std::string &arg = {}) {
  std::vector<std::vector<std::string>> rows;
  sqlite3 *db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
    sqlite3_stmt *st = nullptr;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &st, nullptr) == SQLITE_OK) {
      if (!arg.empty()) sqlite3_bind_text(st, 1, arg.c_str(), -1, SQLITE_TRANSIENT);
      while (sqlite3_step(st) == SQLITE_ROW) {
        std::vector<std::string> row;
        for (int i = 0; i < sqlite3_column_count(st); ++i) {
          const unsigned char *t = sqlite3_column_text(st, i);
          row.emplace_back(t ? reinterpret_cast<const char *>(t) : "");
        }
        rows.push_back(std::move(row));
      }
    }
    sqlite3_finalize(st);
  }
  sqlite3_close(db);
  return rows;
}

// What the SQLite copy declares that the Access type names alone do not
// say, put right for the server: a Decimal's precision, a GUID as its text
// (the server compares it as text, as the copy does), the copy's clock
// defaults as Access's Now() and Date(). A note for what cannot be kept.
void fitForServer(const std::string &copy, const std::string &table, std::vector<FieldSpec> *fields,
                  std::string *notes) {
  auto declared = rawRows(copy, "SELECT name, type FROM pragma_table_info(?1)", table);
  for (FieldSpec &f : *fields) {
    std::string type;
    for (const auto &row : declared)
      if (row[0] == f.name) type = upper(row[1]);
    if (type.rfind("DECIMAL(", 0) == 0 || type.rfind("NUMERIC(", 0) == 0) {
      f.size = std::atoi(type.c_str() + type.find('(') + 1);
    } else if (type == "GUID") {
      f.type = "Text";
      f.size = 38;
    }
    std::string d = f.defaultValue;
    if (d.find("strftime('%Y-%m-%d %H:%M:%S'") != std::string::npos) {
      f.defaultValue = "Now()";
    } else if (d.find("strftime('%Y-%m-%d 00:00:00'") != std::string::npos) {
      f.defaultValue = "Date()";
    } else if (d.find("randomblob") != std::string::npos) {
      f.defaultValue = "'{' || upper(gen_random_uuid()::text) || '}'";
    }
    if (f.type == "OLE" && notes)
      *notes += "table " + table + ", field " + f.name +
                ": OLE Object and binary values are not written into a server; the field is left empty\n";
  }
}

ImportReport failed(ImportReport r, const LastError &e, const std::string &what) {
  r.ok = false;
  r.number = e.number ? e.number : errc::kGeneric;
  r.message = what + ": " + e.description;
  return r;
}

}  // namespace

ImportReport importFileToServer(const std::string &accessPath, const std::string &url, const Progress &progress) {
  ImportReport report;
  std::string serverUrl;
  if (!pg::serverUrlOf(url, &serverUrl)) {
    report.number = errc::kCouldNotFindFile;
    report.message = "'" + url + "' names no database server (a postgresql:// URL).";
    return report;
  }
  // The server first: a server that cannot be reached is said before the file is read.
  pg::PgEngine server;
  if (server.Open(serverUrl, 0, false).empty()) return failed(report, server.GetLastError(), "Cannot open the server");
  TempCopy temp;
  if (!temp.ok()) {
    report.number = errc::kCannotOpen;
    report.message = "Cannot make a temporary folder for the copy of '" + accessPath + "'.";
    return report;
  }
  size_t readTotal = 0;
  ImportReport copy = importFile(accessPath, temp.path(), [&](size_t done, size_t total, const std::string &table) {
    readTotal = total;
    if (progress) progress(done / 2, total, table);  // reading is the first half of the work
  });
  if (!copy.ok) return copy;
  report.notes = copy.notes;

  EngineConnection source = createEngine();
  if (source->Open(temp.path(), 0, true) != "OK")
    return failed(report, source->GetLastError(), "Cannot read the copy of '" + accessPath + "'");
  Schema *from = source->schema();
  auto *to = static_cast<pg::PgSchema *>(server.schema());
  if (!server.BeginWork()) return failed(report, server.GetLastError(), "Cannot begin the import");
  // Any failure from here on: the transaction is rolled back, the server is as it was.
  auto abandon = [&](const LastError &e, const std::string &what) {
    server.EndWork(false);
    return failed(report, e, what);
  };

  std::vector<std::string> tables;
  if (!from->ListTables(false, &tables)) return abandon(source->GetLastError(), "Cannot list the tables");
  size_t done = 0, total = std::max(readTotal, copy.rows);
  for (const std::string &table : tables) {
    std::vector<FieldSpec> fields;
    std::vector<IndexSpec> indexes;
    if (!from->Structure(table, &fields) || !from->ListIndexes(table, &indexes))
      return abandon(source->GetLastError(), "Cannot read table '" + table + "'");
    fitForServer(temp.path(), table, &fields, &report.notes);
    std::vector<std::string> key;
    bool counter = false;
    for (const FieldSpec &f : fields) counter |= f.type == "Counter";
    for (const IndexSpec &ix : indexes)
      if (ix.primary && !counter) key = ix.fields;
    if (!to->CreateTable(table, fields, key)) return abandon(server.GetLastError(), "Cannot create table '" + table + "'");
    ++report.tables;

    // The records, each as the SQLite engine reads it, without its OLE values.
    if (!source->OpenTable(table, "") || !server.OpenTable(table, ""))
      return abandon(source->HasError() ? source->GetLastError() : server.GetLastError(),
                     "Cannot open table '" + table + "'");
    Record record, stored;
    for (bool more = source->MoveFirst(&record); more; more = source->Skip(1, &record)) {
      Record kept;
      for (Field &f : record) {
        bool binary = false;
        for (const FieldSpec &s : fields) binary |= s.name == f.name && s.type == "OLE";
        if (!binary) kept.push_back(std::move(f));
      }
      if (!server.AppendRecord(kept, true, &stored))
        return abandon(server.GetLastError(), "Cannot write a record of table '" + table + "'");
      ++report.rows;
      if (progress && (++done % 256 == 0)) progress(total / 2 + done / 2, total, table);
    }
    if (source->GetLastError().number != errc::kNoCurrentRecord)
      return abandon(source->GetLastError(), "Cannot read the records of table '" + table + "'");
    server.CloseAllTables();

    for (const IndexSpec &ix : indexes) {
      if (ix.primary) continue;
      IndexSpec made = ix;
      // An index name may be taken by a table on the server (one name space),
      // and the copy names a clash "table.index", which no name may hold.
      for (char &ch : made.name)
        if (ch == '.') ch = '_';
      bool ok = to->CreateIndex(table, made);
      if (!ok && server.GetLastError().number == errc::kIndexExists) {
        made.name = table + "_" + made.name;
        for (char &ch : made.name)
          if (ch == '.') ch = '_';
        ok = to->CreateIndex(table, made);
      }
      if (ok) {
        ++report.indexes;
        if (made.name != ix.name)
          report.notes += "table " + table + ": index " + ix.name + " is named " + made.name + " on the server\n";
      } else {
        report.notes += "table " + table + ": index " + ix.name + " left out: " + server.GetLastError().description + "\n";
      }
    }
  }

  std::vector<RelationSpec> relations;
  if (!from->ListRelations(&relations)) return abandon(source->GetLastError(), "Cannot read the relations");
  for (const RelationSpec &r : relations) {
    if (to->CreateRelation(r))
      ++report.relations;
    else
      report.notes += "relation " + r.name + " left out: " + server.GetLastError().description + "\n";
  }

  // Stored queries, each in a savepoint: one the server cannot compile is
  // left out without undoing the rest. A query naming another is tried
  // again once the others are in.
  auto queries = rawRows(temp.path(), "SELECT name, sql FROM _vantry_queries ORDER BY rowid");
  for (int pass = 0; pass < 2 && !queries.empty(); ++pass) {
    std::vector<std::vector<std::string>> later;
    for (const auto &q : queries) {
      if (!server.BeginWork()) return abandon(server.GetLastError(), "Cannot store query '" + q[0] + "'");
      bool ok = server.CreateQuery(q[0], q[1]);
      LastError why = server.GetLastError();
      server.EndWork(ok);
      if (ok) {
        ++report.queries;
      } else if (pass == 0) {
        later.push_back(q);
      } else {
        report.notes += "query " + q[0] + " left out: the server cannot run it (" + why.description + ")\n";
      }
    }
    queries = std::move(later);
  }

  if (!server.EndWork(true)) return failed(report, server.GetLastError(), "Cannot commit the import");
  if (progress) progress(total, total, "");
  report.ok = true;
  return report;
}

}  // namespace vantry::engine::access
