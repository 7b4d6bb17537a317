// Internals of the SQLite engine, shared by its source files. Nothing here is
// part of the engine's interface (engine.h).
#pragma once

#include <sqlite3.h>
#include <sys/types.h>
#include <time.h>

#include <array>
#include <functional>
#include <map>
#include <set>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "engine/engine.h"

namespace vantry::engine {
struct IndexSpec;  // engine/schema.h
}

namespace vantry::engine::sqlite {

// A value as SQLite stores it (one of its five storage classes).
struct RawValue {
  int type = SQLITE_NULL;  // SQLITE_NULL, SQLITE_INTEGER, SQLITE_FLOAT, SQLITE_TEXT, SQLITE_BLOB
  int64_t i = 0;
  double d = 0;
  std::string s;  // text or blob bytes
  static RawValue column(sqlite3_stmt *st, int col);
};

// Owns one prepared statement; finalized on destruction.
class Stmt {
 public:
  Stmt() = default;
  explicit Stmt(sqlite3_stmt *st) : st_(st) {}
  Stmt(Stmt &&o) noexcept : st_(o.st_) { o.st_ = nullptr; }
  Stmt &operator=(Stmt &&o) noexcept;
  Stmt(const Stmt &) = delete;
  Stmt &operator=(const Stmt &) = delete;
  ~Stmt() { sqlite3_finalize(st_); }
  sqlite3_stmt *get() const { return st_; }
  explicit operator bool() const { return st_ != nullptr; }
  void bind(int pos, const RawValue &v);
  void reset() {
    sqlite3_reset(st_);
    sqlite3_clear_bindings(st_);
  }

 private:
  sqlite3_stmt *st_ = nullptr;
};

// How a field's values cross the interface, from its declared type.
// kReal: a number type of Access's that holds fractions (SINGLE, DOUBLE,
// CURRENCY, DECIMAL ...): SQLite keeps a whole value there as an integer,
// which reads back as a real, as the field's type says.
enum class FieldKind : uint8_t { kPlain, kYesNo, kDate, kReal };
// SQLite's column affinity, from the declared type by SQLite's own rules.
enum class Affinity : uint8_t { kInteger, kText, kBlob, kReal, kNumeric };

struct ColumnInfo {
  std::string name;
  std::string declType;
  FieldKind kind = FieldKind::kPlain;
  Affinity affinity = Affinity::kBlob;
  // What toRaw reads from declType, worked out at its first value (reading
  // the type per value cost more than the value): -1 not yet known.
  mutable int8_t wholeNumbers = -1;  // 1 a field of whole numbers
  mutable int8_t decimal = -1;       // 1 DECIMAL(p,s), with these:
  mutable int8_t decimalPrecision = 0, decimalScale = 0;
};

FieldKind fieldKindOf(const std::string &declType);
Affinity affinityOf(const std::string &declType);
// Engine value from a stored value of a field of `kind` (its text moves into the value).
Value fromRaw(RawValue raw, FieldKind kind);
// The same straight from a column of a row, without the stored value between:
// equal to fromRaw(RawValue::column(st, col), kind).
Value columnValue(sqlite3_stmt *st, int col, FieldKind kind);
// Stored value for a field; false with *error (an errc description) when the
// value does not fit the field (errc::kConversion).
bool toRaw(const Value &v, const ColumnInfo &col, RawValue *out, std::string *error);
// The precision and scale of a field declared DECIMAL(p,s) or NUMERIC(p,s);
// false for any other declared type.
bool decimalShape(const std::string &declType, int *precision, int *scale);
// The message a decimal guard trigger aborts with, before the field's name.
inline constexpr const char *kDecimalRefusal = "vantry: decimal too wide: ";
// d rounded to `places` decimals as its printed form rounds it (SQLite's own
// round() can land an ulp off the nearest double to that decimal).
double roundDecimal(double d, int places);
// The same, as the SQL function kDecimalRound(x, places), for the guards.
inline constexpr const char *kDecimalRound = "_vantry_round";
void registerDecimalRounding(sqlite3 *db);
// Plain conversion with no field to fit (statement parameters).
RawValue toRawPlain(const Value &v);

// "name" quoted as an SQL identifier.
std::string quoteIdent(const std::string &name);
// 'text' as an SQL string literal.
std::string sqlString(const std::string &text);
// Lower-cases ASCII letters (SQLite names compare case-insensitively in ASCII).
std::string asciiLower(std::string s);

struct TableInfo {
  std::string name;  // as declared (a linked table: as the link names it)
  // Where SQL finds the table: its schema ("" for SQLite's own lookup by
  // name, else the quoted schema and a dot) and its name there. They differ
  // from the plain name only for a table linked under another name.
  std::string schema, source;
  std::string from() const { return schema + quoteIdent(source); }
  // "PRAGMA what(arg)" in the table's schema.
  std::string pragma(const std::string &what, const std::string &arg) const {
    return "PRAGMA " + schema + what + "(" + quoteIdent(arg) + ")";
  }
  std::vector<ColumnInfo> columns;
  int counter = -1;  // column index of the counter (the first field when it is the rowid), or -1
  bool autoincrement = false;
  bool hasPrimaryKey = false;
  std::string rowid = "rowid";  // a name for the rowid that no column hides
};

// What changes whenever anyone commits to the database: in WAL mode the
// WAL-index header (shared memory), otherwise the file's identity, size and
// modification time. Compared whole.
using ChangeStamp = std::array<uint64_t, 6>;

// One ordering term of a cursor: a column of its index.
struct OrderTerm {
  int column = 0;  // index into TableInfo::columns
  std::string collation;
  bool desc = false;
};

// A table opened with OpenTable. The order is that of its index, then rowid.
// Navigation works on a snapshot of the table's rowids in that order, built
// when a Skip needs it and valid while the database's data version is the one
// it was built at (or the engine's own writes kept it up to date).
struct Cursor {
  TableInfo table;
  std::string indexName;  // as given to OpenTable
  std::vector<OrderTerm> order;
  std::string orderBy;  // "t.a COLLATE x DESC, ..., rowid"
  std::string orderByReverse;

  // Position: on a record, before the first, after the last, or in the gap
  // left by a deleted record (then `gapIndex` is the snapshot index of the
  // first record after it, or `rowid` is a tombstone in the snapshot).
  enum class Where : uint8_t { kBof, kEof, kOn, kGone } where = Where::kBof;
  int64_t rowid = 0;
  std::vector<RawValue> key;  // order-term values of the current/deleted record

  bool snapValid = false;
  uint32_t snapVersion = 0;
  std::vector<int64_t> rows;
  std::vector<uint8_t> gone;  // tombstones, parallel to rows
  std::unordered_map<int64_t, size_t> indexOf;  // index orders only: see snapshotPlace
  std::optional<size_t> gapIndex;

  // Records read ahead for Skip: snapshot indexes [blockStart, blockStart +
  // block.size()), valid while the database's change stamp is the one taken
  // before they were read and the engine wrote nothing since. A record is
  // moved out when served; its rowid becomes INT64_MIN, so a second visit
  // reads it again.
  std::vector<Record> block;
  std::vector<std::vector<RawValue>> blockKeys;
  std::vector<int64_t> blockRowids;
  size_t blockStart = 0;
  ChangeStamp blockStamp{};

  Stmt fetch;  // SELECT rowid, * FROM t WHERE rowid = ?1
  Stmt range;  // SELECT rowid, * FROM t WHERE rowid BETWEEN ?1 AND ?2 ORDER BY rowid (rowid order only)
  std::map<std::string, Stmt> seekStmts;  // by their SQL text
  // The seek statement used last, and its key's shape: seeks on one index
  // come by the thousand with keys of one shape.
  std::string lastSeekShape;
  Stmt *lastSeek = nullptr;
  // Set once an append saw a trigger change rows: the stored record is read
  // back from then on, in the append's own transaction.
  bool appendReadsBack = false;
};

// The place of `rowid` in the cursor's snapshot, if it is there: a binary
// search in rowid order (the snapshot is sorted), a map look-up otherwise.
std::optional<size_t> snapshotPlace(const Cursor &c, int64_t rowid);

class SqliteEngine final : public Engine {
 public:
  SqliteEngine() = default;
  ~SqliteEngine() override;

  std::string Open(const std::string &path, int32_t options, bool readOnly) override;
  // A connection let go because its file was replaced (detach) still counts
  // as connected, and never as alive, until it is closed or opened again.
  bool IsConnected() override { return db_ != nullptr || detached_; }
  bool IsAlive() override;
  std::string GetName() override { return db_ || detached_ ? name_ : std::string(); }
  void Close() override;
  LastError GetLastError() override { return error_; }
  int16_t IsUpdatable() override { return db_ && !readOnly_ ? -1 : 0; }
  bool HasError() override { return error_.number != errc::kNone; }
  bool CompactDatabase(const std::string &source, const std::string &destination) override;
  int32_t GetVersion() override;

  bool OpenTable(const std::string &table, const std::string &index) override;
  bool MoveFirst(Record *out) override;
  bool Skip(int32_t count, Record *out) override;
  bool GetRecord(Record *out) override;
  bool MoveLast(Record *out) override;
  bool CloseTable() override;
  bool CloseAllTables() override;
  bool RecordCount(int32_t *count) override;
  std::string CurrentIndex() override { return current_ ? current_->indexName : std::string(); }
  std::string CurrentTable() override { return current_ ? current_->table.name : std::string(); }
  bool SeekValue(const Value &key, Record *out) override;
  bool SeekPoint2(double x, double y, Record *out) override;
  bool SeekPoint3(double x, double y, double z, Record *out) override;
  bool SeekValues(const std::array<Value, 10> &keys, Record *out) override;

  bool AppendRecord(const Record &record, bool keepCounter, Record *stored) override;
  bool DeleteRecord() override;
  bool ReplaceRecord(const Record &record, Record *stored) override;

  bool ExecuteSql(const std::string &sql, ValueArray *result) override;
  bool ExecuteSqlInto(const std::string &sql, AnswerSink *sink) override;
  bool RunQuery(const std::string &name, const ValueArray &params, ValueArray *result) override;
  bool CreateQuery(const std::string &name, const std::string &sql) override;
  bool ExecuteCommand(const std::string &sql, int32_t *affected) override;

  // --- shared by the engine's files ---
  sqlite3 *db() const { return db_; }
  void clearError() { error_ = {}; }
  // Records the error and answers false, so callers can `return fail(...)`.
  bool fail(long number, std::string description);
  // Maps an SQLite failure to an Access-style error; `sql` picks the syntax
  // error number by statement kind. Marks the connection dead on I/O or damage.
  bool failSqlite(int rc, const std::string &sql = std::string());
  bool needDatabase();  // false with errc::kNoDatabase when none is open
  bool needWritable();  // also refuses a read-only database
  bool needCursor();    // also refuses when no table is current
  // Prepares `sql`; on failure records the error and answers an empty Stmt.
  Stmt prepare(const std::string &sql);
  // Runs a statement that returns no rows, in autocommit.
  bool exec(const std::string &sql);
  // Transaction control on statements prepared once per connection (they
  // run on every append and every read-ahead block).
  enum class Txn : uint8_t { kBegin, kBeginImmediate, kCommit, kRollback };
  bool txn(Txn what);
  uint32_t dataVersion();
  // Called after every write this engine commits: snapshots that `keep` does
  // not vouch for are dropped, and the data version is taken as seen.
  void afterWrite(Cursor *keep);
  bool loadTable(const std::string &name, TableInfo *out);

  // --- schema and linked tables (sqlite_schema.cpp, sqlite_links.cpp) ---
  Schema *schema() override;
  void forgetTable(const std::string &name);  // closes its cursor: its definition changes
  // The schema that holds `table`: "main", or the attached file of a linked
  // table, and the table's name there (`source`: a link's table may have
  // another name in its own file). False, with error 3024, when a linked
  // table's file has gone.
  bool linkSchema(const std::string &table, std::string *schema, std::string *source = nullptr);
  void attachLinks();  // at Open: attaches the files of the linked tables
  struct Link {
    std::string schema, path;
    bool attached = false;
    std::string source;  // the table's name in its own file
  };
  std::map<std::string, Link> links_;  // by lower-case table name
  std::shared_ptr<Schema> schema_;

 private:
  bool openCursorOrder(Cursor *c, const std::string &index);
  bool readRow(Cursor *c, int64_t rowid, Record *out);
  void takeRow(Cursor *c, sqlite3_stmt *st, Record *out);  // columns: rowid, then every field
  bool locate(Cursor *c, size_t *index, bool *gap);
  bool firstInOrder(Cursor *c, bool last, Record *out);
  bool buildSnapshot(Cursor *c);
  bool seekKeys(const Value *keys, size_t count, Record *out);
  // Hands the answer to `sink` (null: none is wanted); after a failure the
  // sink may have had part of it.
  bool runStatement(const std::string &sql, const std::vector<RawValue> &params, AnswerSink *sink,
                    int32_t *affected, bool refuseSelect, bool expanded = false);
  // Names in `sql` that SQLite cannot resolve by itself, put in place: a
  // stored query that is no view (it declares parameters, or names a query
  // that does) becomes a subquery of its text, its parameters added to
  // `names` and `types` after those there; a table linked under another name
  // becomes its file's table. False, with the error, for a malformed or
  // circular query. (sqlite_sql.cpp)
  bool expandTableNames(std::string *sql, std::vector<std::string> *names, std::vector<std::string> *types,
                        int depth = 0);
  // The text of the stored query `name` when no view stands for it.
  bool storedQueryText(const std::string &name, std::string *sql);
  bool checkFileDamage();
  // Makes each stored query without parameters a temporary view of this
  // connection, so that another statement can name it in FROM or JOIN as
  // Access allows. Nothing is written to the file. (sqlite_sql.cpp)
  void attachStoredQueries();
  // The stamp of the database as it is now; false when no stamp can vouch
  // for an unchanged database (then nothing read may be kept). No system
  // call in WAL mode, one fstat otherwise. (sqlite_liveness.cpp)
  bool changeStamp(ChangeStamp *out);
  // The open database's file in SQLite's VFS, asked once per connection: a
  // step of a walk reads the change stamp through it. Forgotten by Open.
  sqlite3_file *mainFile();
  sqlite3_file *mainFile_ = nullptr;
  // After Open and after a statement that may switch the journal mode.
  void noteJournalMode();
  // Opens the descriptor that IsAlive watches; closed by Close.
  void watchFile();
  void unwatchFile();
  // Replacement of the file (sqlite_liveness.cpp). The journal identity and
  // the file's state are taken after Open and after each own checkpoint.
  struct FileState {
    int64_t size = -1;
    std::string header;  // the first 100 bytes
    // Not the modification time: touching a file changes nothing in it, and
    // taking that for a replacement would throw away the WAL's writes.
    bool operator==(const FileState &) const = default;
  };
  using CheckpointMark = std::array<uint32_t, 4>;
  bool checkpointMark(CheckpointMark *out);
  bool readFileState(FileState *out);
  void noteOwnFileState();
  // True when the file at the path is the one opened but was rewritten by
  // someone else than a user of its WAL (so the WAL no longer belongs to it).
  bool replacedInPlace();
  // True when the path no longer names the file opened, or it was rewritten.
  bool fileReplaced();
  // Closes SQLite's connection; when the file was replaced, without
  // checkpointing into it and removing the journal it left at the path.
  void closeDatabase();
  // Lets go of a connection whose journal sits beside a file that is no
  // longer its own, before another connection opens that file.
  void detach();
  // Detaches every other connection of this process whose journal is the one
  // beside `path` now but whose file is no longer the one there.
  void releaseForeignJournals(const struct stat &file);
  // Reads snapshot row i (made current, into *out) and up to 63 more ahead in
  // the direction of `step`, in one read transaction. 1 done, 0 the snapshot
  // is stale (dropped; try again), -1 failed with the error recorded.
  int readBlock(Cursor *c, long i, long step, bool fresh, Record *out);
  bool readRows(Cursor *c, long lo, long hi, long current);
  bool readRange(Cursor *c, long lo, long hi);

  sqlite3 *db_ = nullptr;
  std::string name_;  // path as given to Open
  std::string path_;  // path with "/" separators
  bool readOnly_ = false;
  bool fromAccess_ = false;  // answering from the SQLite copy of an Access file
  std::string readOnlyMessage() const {
    return fromAccess_ ? "Cannot update. Database or object is read-only: an Access database is read from a "
                         "copy; import it with 'vantry import' to write to it."
                       : "Cannot update. Database or object is read-only.";
  }
  bool dead_ = false;
  dev_t dev_ = 0;
  ino_t ino_ = 0;
  // IsAlive's state (sqlite_liveness.cpp): an O_PATH descriptor of the file,
  // and the change time that a full check of the path last vouched for.
  std::array<Stmt, 4> txnStmts_;  // by Txn
  int pathFd_ = -1;
  bool ctimeTrusted_ = false;
  timespec trustedCtime_{};
  // A look that found the file alive stands until then (monotonic ns), while
  // the process's count of file changes is still the one seen.
  int64_t vouchedUntil_ = 0;
  uint64_t vouchedChanges_ = 0;
  bool vouch(int64_t now, uint64_t changes);
  bool wal_ = false;  // the connection journals in WAL mode
  bool detached_ = false;
  bool replaced_ = false;
  std::pair<dev_t, ino_t> walId_{}, shmId_{};
  CheckpointMark mark_{};
  bool haveMark_ = false;
  FileState fileState_;
  uint32_t seenVersion_ = 0;
  // The fields declared as text in every table and view that has a field of
  // that name (lower-case), for the dialect's "+"; kept per schema version.
  const std::set<std::string> &textFields();
  std::set<std::string> textFields_;
  int textFieldsVersion_ = -1;
  // SQL writes to DECIMAL(p,s) fields are rounded and range-checked by
  // temporary triggers (record writes fit their values in toRaw); rebuilt
  // when the schema version moves, and dropped before any change of the
  // schema (SQLite checks triggers against a changed table).
  void guardDecimals();
  void dropDecimalGuards();
  std::vector<std::string> decimalTriggers_;
  int decimalsVersion_ = -1;
  // Whether this connection wrote since it opened: one that wrote nothing
  // leaves the journal mode alone when it closes.
  bool wrote_ = false;
  LastError error_;
  std::map<std::string, std::unique_ptr<Cursor>> cursors_;  // by lower-case table name
  Cursor *current_ = nullptr;
  std::map<std::string, int64_t> nextCounter_;  // per table without AUTOINCREMENT
};

// Access dialect (access_sql.cpp): the statement rewritten for SQLite; a
// statement that uses nothing of the dialect comes back unchanged. Names
// (bare or bracketed) equal to params[i] become the bound parameter ?(i+1).
// Parameters named in `textParams` hold text: compared with a field, they
// compare without regard to case, as literals do.
// `textFields` names (lower-case) the fields the schema declares as text:
// "+" between two of them joins texts, as Access's does.
std::string rewriteAccessSql(const std::string &sql, const std::vector<std::string> &params = {},
                             const std::vector<std::string> &textParams = {},
                             const std::set<std::string> &textFields = {});
// CREATE [UNIQUE] INDEX i ON t (fields) WITH PRIMARY [DISALLOW NULL | IGNORE
// NULL]: the table and the key, for the schema to make as it makes any
// primary key (refused where the table has one). False for any other text.
bool primaryIndexStatement(const std::string &sql, std::string *table, IndexSpec *index);
// Splits "PARAMETERS a Text, [b c] Long; body" into names, types and body.
// Text without the clause gives no names and the whole text as body; false
// when the clause is malformed.
bool splitParameters(const std::string &sql, std::vector<std::string> *names, std::vector<std::string> *types,
                     std::string *body);
// A table named where a statement expects one: after FROM, JOIN, a FROM
// list's comma (or parentheses opened there), INTO or UPDATE (`target`).
struct TableName {
  std::string name;      // brackets and quotes removed
  bool target = false;   // written to: INTO, UPDATE
  bool aliased = false;  // an alias follows (AS x, or a bare name)
};
// The statement with each such name replaced by what `replace` answers for
// it; an empty answer leaves the name as written. Unchanged text comes back
// byte for byte.
std::string replaceTableNames(const std::string &sql, const std::function<std::string(const TableName &)> &replace);
// Access wildcard pattern (* ? # [list] [!list]) to an anchored regular expression.
std::string accessPatternToRegex(const std::string &pattern);
// Access's Format(value, format): `value` as text, and as a number when
// `numeric`. Date formats (yyyy mm dd hh nn ss, "Short Date" ...) apply to
// text that reads as a date; number pictures (0 # , . %, "Fixed" ...) to numbers.
std::string formatValue(const std::string &value, bool numeric, double number, const std::string &format);
// Registers the dialect's functions (IIf, Nz, UCase, ...) on a connection.
void registerAccessFunctions(sqlite3 *db);
// Makes every statement on `db` ask interruptRequested() every few thousand
// steps; an interrupted statement fails with SQLITE_INTERRUPT and SQLite
// rolls its changes back (engine.cpp).
void watchInterrupts(sqlite3 *db);
// Registers the dialect's date, conversion and other functions (access_dates.cpp).
void registerAccessDateFunctions(sqlite3 *db);

inline std::string noCurrentRecordText() {
  return "No current record.";
}

// Paths: "\" separators read as "/".
std::string normalizePath(std::string path);

}  // namespace vantry::engine::sqlite
