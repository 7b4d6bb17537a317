// The engine on a PostgreSQL server, through libpq. Internal to engine/pg;
// the module reaches it through the routing engine that createEngine() makes
// (routing.cpp), which hands it every call once Open was given a server's URL.
#pragma once

#include <libpq-fe.h>

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "engine/engine.h"

namespace vantry::engine::pg {

class PgSchema;  // pg_schema.h

// Couldn't update; the record was changed or is locked by another user.
inline constexpr long kChangedByOther = 3260;

// The URL that `path` names: the path itself when it is a "postgresql://" or
// "postgres://" URL, the first line of the file when it is a ".pgconnect"
// file, the first line of "<stem>.pgconnect" beside a database file; false
// when `path` names no server.
bool serverUrlOf(const std::string &path, std::string *url);

// Frees a result when it goes out of scope.
struct ResultDeleter {
  void operator()(PGresult *r) const { PQclear(r); }
};
using Result = std::unique_ptr<PGresult, ResultDeleter>;

struct PgColumn {
  std::string name;
  Oid type = 0;
  std::string typeName;  // as format_type() spells it: "integer", "text" ...
  bool counter = false;  // filled by the server (identity or serial)
};

struct PgTable {
  std::string name;       // as declared
  std::string qualified;  // "schema"."name"
  std::vector<PgColumn> columns;
  std::string keyExpr;    // the row's key: the one primary key field, else ctid
  std::string keyType;    // its type, for an array of keys ("integer", "tid" ...)
};

struct PgRow {
  Record record;
  std::string key;
  std::string xmin;  // the row version read: a replace of a changed row is refused
};

// A table opened with OpenTable. As the SQLite engine's cursor: navigation
// works on the table's keys in index order, read once (the keyset); records
// are read in blocks of those keys.
struct PgCursor {
  uint64_t id = 0;  // this session's number for it, for the block read ahead of it
  PgTable table;
  std::string indexName;
  std::string orderBy;           // index fields, then the key
  std::vector<int> indexColumns;  // for seeks
  std::vector<std::string> keys;
  std::vector<bool> gone;  // deleted through this cursor
  bool keysValid = false;
  int64_t keysRead = 0;  // monotonic nanoseconds
  std::unordered_map<std::string, size_t> positions;  // key -> index in keys, built for seeks

  enum class Where : uint8_t { kBof, kEof, kOn, kGone } where = Where::kBof;
  size_t at = 0;  // index in keys when kOn or kGone
  std::string key;
  std::string xmin;

  size_t blockStart = 0;
  std::vector<std::optional<PgRow>> block;
  int64_t blockRead = 0;
  size_t blockSize = 0;  // grows while blocks are read one after another

  bool ascending = true;  // every field of the order ascends (a block is a range of the order)
  bool indexed = true;    // an index serves the order (for text fields, the cursor's own)
};

class PgEngine : public Engine {
 public:
  PgEngine();
  ~PgEngine() override;

  std::string Open(const std::string &url, int32_t options, bool readOnly) override;
  bool IsConnected() override { return conn_ != nullptr; }
  bool IsAlive() override;
  std::string GetName() override { return name_; }
  void Close() override;
  LastError GetLastError() override { return error_; }
  int16_t IsUpdatable() override { return conn_ && !readOnly_ ? -1 : 0; }
  bool HasError() override { return error_.number != errc::kNone; }
  bool CompactDatabase(const std::string &, const std::string &) override;
  int32_t GetVersion() override;

  bool OpenTable(const std::string &table, const std::string &index) override;
  bool MoveFirst(Record *out) override;
  bool Skip(int32_t count, Record *out) override;
  bool GetRecord(Record *out) override;
  bool MoveLast(Record *out) override;
  bool CloseTable() override;
  bool CloseAllTables() override;
  bool RecordCount(int32_t *count) override;
  std::string CurrentIndex() override { return current_ ? current_->indexName : ""; }
  std::string CurrentTable() override { return current_ ? current_->table.name : ""; }
  bool SeekValue(const Value &key, Record *out) override;
  bool SeekPoint2(double x, double y, Record *out) override;
  bool SeekPoint3(double x, double y, double z, Record *out) override;
  bool SeekValues(const std::array<Value, 10> &keys, Record *out) override;

  bool AppendRecord(const Record &record, bool keepCounter, Record *stored) override;
  bool DeleteRecord() override;
  bool ReplaceRecord(const Record &record, Record *stored) override;

  bool ExecuteSql(const std::string &sql, ValueArray *result) override;
  bool RunQuery(const std::string &name, const ValueArray &params, ValueArray *result) override;
  bool CreateQuery(const std::string &name, const std::string &sql) override;
  bool ExecuteCommand(const std::string &sql, int32_t *affected) override;

  // Tables, fields, indexes and relations in the connection's schema
  // (pg_schema.cpp); owned by the engine.
  Schema *schema() override;

  // Work that must land whole: between BeginWork and EndWork every change
  // is one transaction of the server's, committed by EndWork(true) and
  // undone by EndWork(false). Nested work is a savepoint of the work around
  // it. A lost connection undoes it all (the server rolls back).
  bool BeginWork();
  bool EndWork(bool commit);
  bool InWork() const { return !work_.empty(); }

 private:
  friend class PgSchema;

  // Errors.
  void clearError() { error_ = {}; }
  bool fail(long number, const std::string &description);
  // Sets the error that a failed result (or a lost connection) means; false.
  bool failFrom(const PGresult *r);
  bool needDatabase();
  bool needCursor();
  bool needWritable();

  // One statement with text parameters (nullopt is null); null on failure,
  // with the error set.
  Result exec(const std::string &sql, const std::vector<std::optional<std::string>> &params = {});
  // The same, for the statements a cursor repeats: each text is prepared
  // once per connection (parsed and planned once), then only executed.
  Result run(const std::string &sql, const std::vector<std::optional<std::string>> &params = {});
  // A walk's next block, asked for while the walk goes through the one
  // before it: the server reads it while the module serves records. Any
  // other statement first takes the answer and drops it (drain).
  struct Ahead {
    bool active = false;
    uint64_t cursor = 0;
    size_t from = 0, to = 0;
    int64_t asked = 0;  // monotonic nanoseconds: a block is fresh from when it was asked for
  };
  bool askAhead(const std::string &sql, const std::vector<std::optional<std::string>> &params, const Ahead &what);
  Result takeAhead(uint64_t cursor, size_t from, size_t to, int64_t *asked);
  void drain();
  // Whether a statement can be sent: an answer read ahead is taken and
  // dropped, and a connection must be there (else "no database is open").
  bool canSend();
  // Whether a statement's result is an answer (rows, or done); the time of
  // the server's answer is noted.
  bool answered(const Result &r);

  // Tables and values (pg_values.cpp).
  bool loadTable(const std::string &name, PgTable *out);
  bool findIndex(PgCursor *c, const std::string &index);
  bool ensureOrderIndex(const PgTable &t, const std::string &tableOid, const std::string &columns);
  static Value valueOf(const PGresult *r, int row, int col);
  // The text that stands for `v` as a parameter of a field of `col`'s type.
  static bool paramOf(const Value &v, const PgColumn *col, std::optional<std::string> *out);
  std::string selectList(const PgTable &t) const;  // fields, then key and xmin
  PgRow rowOf(const PgTable &t, const PGresult *r, int row) const;

  // Cursors (pg_cursor.cpp).
  bool readKeys(PgCursor *c);
  bool readBlock(PgCursor *c, size_t at, int step);
  bool moveTo(PgCursor *c, long i, int step, Record *out);
  bool locate(PgCursor *c);
  // Whether a record may follow (step 1) or precede (step -1) the one keyed
  // `key` in the cursor's order: one indexed question instead of reading the
  // keys again; true when it cannot tell.
  bool mayBeBeyond(PgCursor *c, const std::string &key, int step);
  bool seek(const std::vector<Value> &keys, Record *out);
  void become(PgCursor *c, size_t at, PgRow row, Record *out);

  // SQL (pg_sql.cpp).
  // Makes this connection's own functions and collation for translated statements.
  bool prepareSession();
  bool runStatement(const std::string &sql, const std::vector<std::optional<std::string>> &params,
                    bool allowRows, ValueArray *result, int32_t *affected);
  std::string translate(const std::string &sql, const std::vector<std::string> &params = {});
  // The schema's names (tables, views, indexes, fields) that the server
  // keeps in mixed case, by their lower-case form: the server folds a bare
  // name to lower case, Access compares names without regard to case, so
  // the translator writes such a name quoted as it is declared. Read again
  // after this connection changes the schema, and once a second for other
  // users' changes.
  const std::unordered_map<std::string, std::string> &mixedCaseNames();
  void namesChanged() { namesRead_ = 0; }

  PGconn *conn_ = nullptr;
  std::string name_;
  std::string url_;
  std::string schema_ = "public";
  bool readOnly_ = false;
  LastError error_;
  std::string lastState_;  // the SQLSTATE of the last refusal from the server; "" for others
  int64_t lastContact_ = 0;  // monotonic nanoseconds of the last answer from the server
  std::map<std::string, std::unique_ptr<PgCursor>> cursors_;  // by lower-case table name
  PgCursor *current_ = nullptr;
  std::unordered_map<std::string, std::string> names_;
  int64_t namesRead_ = 0;   // monotonic nanoseconds; 0: to be read
  std::vector<bool> work_;  // per level of BeginWork: true for a savepoint
  std::unique_ptr<PgSchema> schemaOps_;
  std::unordered_map<std::string, std::string> prepared_;  // statement text -> its name on the server
  int preparedSerial_ = 0;
  Ahead ahead_;
  std::set<std::string> orderIndexRefused_;  // the cursors' own indexes the server does not let this user make
  uint64_t cursorSerial_ = 0;
};

}  // namespace vantry::engine::pg
