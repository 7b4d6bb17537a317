// The database engine: one open database file and the table, record and query
// operations that the module's database functions (vt_*) run against it.
//
// The module reaches the engine only through `Engine`, by way of a shared
// `EngineConnection` handle made by `createEngine()`. The operations and their
// arguments follow the engine's interface as the database functions use it;
// each keeps its last error as an Access-style number and a description
// (see `errc` below). Refusals (no record, duplicate key, bad SQL ...) are
// answered with a false flag or an empty status and leave that error pending
// (`HasError`); `EngineError` is raised only where the interface itself fails
// (out of memory, misuse of the underlying library), as a COM engine would
// answer with a failing HRESULT.
//
// The engine knows nothing of the host. All strings are UTF-8. Paths may use
// "\" as a separator; it is read as "/". Not thread-safe: one thread per
// engine object (the host calls from its main thread).
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace vantry::engine {

class Schema;  // engine/schema.h

// Access-style error numbers kept as the last error.
namespace errc {
inline constexpr long kNone = 0;
inline constexpr long kSyntaxExpression = 3075;     // syntax error in query expression / SELECT
inline constexpr long kGeneric = 3000;              // any other failure; the description says what
inline constexpr long kObjectExists = 3012;         // a table, view or query of that name exists
inline constexpr long kNoCurrentIndex = 3019;      // a seek on a table opened in insertion order
inline constexpr long kNoCurrentRecord = 3021;      // past either end, key not found, record deleted
inline constexpr long kDuplicateKey = 3022;         // unique index or primary key violated
inline constexpr long kCouldNotFindFile = 3024;
inline constexpr long kCancelled = 3059;            // stopped by the person's interrupt (Esc)     // database file does not exist
inline constexpr long kReadOnly = 3027;             // write on a database opened read-only
inline constexpr long kDiskOrNetwork = 3043;        // I/O failure, file vanished
inline constexpr long kInvalidPath = 3044;          // directory part of a path does not exist
inline constexpr long kCorrupt = 3049;              // database damaged (needs repair)
inline constexpr long kCannotOpen = 3051;           // cannot open or write (permissions, locked, a directory)
inline constexpr long kTooFewParameters = 3061;     // unknown name in SQL, or parameters missing
inline constexpr long kCannotExecuteSelect = 3065;  // ExecuteCommand given a SELECT
inline constexpr long kUndefinedFunction = 3085;    // unknown function in an expression
inline constexpr long kNoSuchTable = 3078;          // no such table or query
inline constexpr long kInvalidStatement = 3129;     // text is not a statement the engine knows
inline constexpr long kSyntaxInsert = 3134;         // syntax error in INSERT INTO
inline constexpr long kCharsAfterEnd = 3142;        // more than one statement
inline constexpr long kSyntaxUpdate = 3144;         // syntax error in UPDATE
inline constexpr long kFieldNotUpdatable = 3164;    // the counter of a record cannot be changed
inline constexpr long kRelatedRecord = 3201;        // foreign key violated
inline constexpr long kDatabaseExists = 3204;       // compact destination exists
inline constexpr long kLocked = 3218;               // busy: locked by another user
inline constexpr long kNotSupported = 3251;         // operation not supported for this object
inline constexpr long kItemNotFound = 3265;         // unknown field name
inline constexpr long kSyntaxCreate = 3290;         // syntax error in CREATE
inline constexpr long kSyntaxDrop = 3295;           // syntax error in DROP
inline constexpr long kSyntaxAlter = 3293;          // syntax error in ALTER
inline constexpr long kRequired = 3314;             // NOT NULL field left null
inline constexpr long kValidationRule = 3317;       // CHECK constraint failed
inline constexpr long kUnrecognizedFormat = 3343;   // not a database file
inline constexpr long kNoDatabase = 3420;           // no database open in this engine object
inline constexpr long kConversion = 3421;           // value does not fit the field's type
inline constexpr long kNotAnIndex = 3800;           // unknown index name for this table
}  // namespace errc

// HRESULT-style codes carried by EngineError and reported by createEngine.
namespace hr {
inline constexpr int32_t kOk = 0;
inline constexpr int32_t kFail = static_cast<int32_t>(0x80004005);
inline constexpr int32_t kPointer = static_cast<int32_t>(0x80004003);
inline constexpr int32_t kOutOfMemory = static_cast<int32_t>(0x8007000E);
inline constexpr int32_t kUnexpected = static_cast<int32_t>(0x8000FFFF);
inline constexpr int32_t kClassNotRegistered = static_cast<int32_t>(0x80040154);
}  // namespace hr

// Raised where the interface itself fails; refusals are flags plus last error.
class EngineError : public std::runtime_error {
 public:
  EngineError(int32_t hresult, const std::string &what) : std::runtime_error(what), hresult_(hresult) {}
  int32_t hresult() const { return hresult_; }

 private:
  int32_t hresult_;
};

enum class ValueType : uint8_t {
  kEmpty,    // no value given (a LISP nil, a key position left out)
  kNull,     // a field's null
  kInteger,  // 32-bit signed
  kReal,     // 64-bit floating point; integers beyond 32 bits arrive as reals
  kText,
  kBoolean,  // a yes/no field
  kDate,     // a date/time field, as text "YYYY-MM-DD HH:MM:SS" that sorts and compares
};

// One typed value crossing the interface. Empty and null both store as SQL NULL.
class Value {
 public:
  Value() = default;
  static Value null() { return Value(ValueType::kNull); }
  static Value integer(int32_t i) {
    Value v(ValueType::kInteger);
    v.num_.i = i;
    return v;
  }
  static Value real(double d) {
    Value v(ValueType::kReal);
    v.num_.d = d;
    return v;
  }
  static Value text(std::string s) {
    Value v(ValueType::kText);
    v.text_ = std::move(s);
    return v;
  }
  static Value boolean(bool b) {
    Value v(ValueType::kBoolean);
    v.num_.i = b ? 1 : 0;
    return v;
  }
  // `iso` should be "YYYY-MM-DD HH:MM:SS"; see normalizeDate() for accepted input.
  static Value date(std::string iso) {
    Value v(ValueType::kDate);
    v.text_ = std::move(iso);
    return v;
  }

  ValueType type() const { return type_; }
  bool isEmptyOrNull() const { return type_ == ValueType::kEmpty || type_ == ValueType::kNull; }
  int32_t asInteger() const { return static_cast<int32_t>(num_.i); }
  double asReal() const { return num_.d; }
  bool asBoolean() const { return num_.i != 0; }
  const std::string &asText() const { return text_; }  // text and date values
  // True for the list structure markers "*RTLB*", "*RTLE*" and "*RTDOTE*".
  bool isListMarker() const;

  bool operator==(const Value &o) const;
  std::string debugString() const;  // for test messages

 private:
  explicit Value(ValueType t) : type_(t) {}
  ValueType type_ = ValueType::kEmpty;
  union {
    int64_t i;
    double d;
  } num_{0};
  std::string text_;
};

inline constexpr const char *kMarkerListBegin = "*RTLB*";
inline constexpr const char *kMarkerListEnd = "*RTLE*";
inline constexpr const char *kMarkerDot = "*RTDOTE*";
// In a statement's result array, starts each selected row (see ExecuteSql).
inline constexpr const char *kNewRecordMarker = "*NewRecord*";

// One field of a record: its name as the table declares it, and its value.
struct Field {
  std::string name;
  Value value;
  bool operator==(const Field &o) const { return name == o.name && value == o.value; }
};
// A record in the table's field order. Given to the engine, only the named fields are set.
using Record = std::vector<Field>;
// A statement's answer: plain values, then per row kNewRecordMarker and name, value pairs.
using ValueArray = std::vector<Value>;

// A statement's answer handed over as it is read, for a caller that makes its
// own form of it (the module's result lists) without a ValueArray in between.
// The calls come in the array's order: the plain values, then each row
// between beginRow and endRow, its fields in column order.
class AnswerSink {
 public:
  virtual ~AnswerSink() = default;
  virtual void value(Value &&v) = 0;
  virtual void beginRow() = 0;
  // The field at `place` in the row; rows of one answer have the same names
  // at the same places.
  virtual void field(size_t place, const std::string &name, Value &&v) = 0;
  virtual void endRow() = 0;
};

// Hands an answer read into an array to a sink: a name the array ends
// without its value gives an empty value, a name that is not a text "".
void replayAnswer(const ValueArray &answer, AnswerSink *sink);

// The sink that makes the array: what ExecuteSql answers.
class ArrayAnswer final : public AnswerSink {
 public:
  explicit ArrayAnswer(ValueArray *out) : out_(out) {}
  void value(Value &&v) override { out_->push_back(std::move(v)); }
  void beginRow() override { out_->push_back(Value::text(kNewRecordMarker)); }
  void field(size_t, const std::string &name, Value &&v) override {
    out_->push_back(Value::text(name));
    out_->push_back(std::move(v));
  }
  void endRow() override {}

 private:
  ValueArray *out_;
};

struct LastError {
  long number = errc::kNone;
  std::string description;
};

// Turns "YYYY-MM-DD[ HH:MM[:SS]]", "YYYY-MM-DDTHH:MM:SS" and "M/D/YYYY[ H:MM[:SS][ AM|PM]]"
// into "YYYY-MM-DD HH:MM:SS"; false for anything else or an impossible date.
// `out` may be `&in`: the input is read whole before anything is written.
bool normalizeDate(const std::string &in, std::string *out);

// One open database. Operations that take no database answer "no database"
// (errc::kNoDatabase) when none is open. Every operation except the queries
// IsConnected, IsAlive, GetName, IsUpdatable, HasError, GetLastError,
// CurrentTable, CurrentIndex and GetVersion clears the pending error first.
class Engine {
 public:
  virtual ~Engine() = default;

  // --- Connection ---
  // Opens `path` (never creates it). Answers "OK" when open, "*REPAIR*" when the
  // file is damaged or is not a database (nothing stays open), "" with an error
  // otherwise. `options` bit 0 asks for a full page check. An open database is
  // closed first.
  virtual std::string Open(const std::string &path, int32_t options, bool readOnly) = 0;
  virtual bool IsConnected() = 0;
  // False once the file was deleted, moved or replaced since Open, or the
  // engine hit an I/O or damage error on it.
  virtual bool IsAlive() = 0;
  virtual std::string GetName() = 0;  // the path as given to Open; "" when none
  virtual void Close() = 0;
  virtual LastError GetLastError() = 0;
  virtual int16_t IsUpdatable() = 0;  // -1 open for writing, 0 read-only or none
  virtual bool HasError() = 0;
  // Writes a compacted copy of `source` to `destination`, which must not exist.
  // A damaged source is salvaged: every table, row and index that can still be
  // read lands in the copy. Works without an open database.
  virtual bool CompactDatabase(const std::string &source, const std::string &destination) = 0;
  // Engine version as major * 100 + minor of the SQLite library (3.40 -> 340).
  virtual int32_t GetVersion() = 0;

  // --- Table cursors ---
  // `index`: "" the primary key order (insertion order when there is none),
  // "PrimaryKey" the primary key, any other name an index of the table. The
  // first record becomes current. The opened table becomes the current table.
  virtual bool OpenTable(const std::string &table, const std::string &index) = 0;
  virtual bool MoveFirst(Record *out) = 0;
  virtual bool Skip(int32_t count, Record *out) = 0;  // count < 0 moves back; 0 re-reads
  virtual bool GetRecord(Record *out) = 0;
  virtual bool MoveLast(Record *out) = 0;
  virtual bool CloseTable() = 0;  // the current table
  virtual bool CloseAllTables() = 0;
  virtual bool RecordCount(int32_t *count) = 0;
  virtual std::string CurrentIndex() = 0;  // as given to OpenTable
  virtual std::string CurrentTable() = 0;  // the table's declared name; "" when none
  // Seeks by equality on the leading fields of the current index; the first
  // match in index order becomes current. Not found: false, error 3021.
  virtual bool SeekValue(const Value &key, Record *out) = 0;
  virtual bool SeekPoint2(double x, double y, Record *out) = 0;
  virtual bool SeekPoint3(double x, double y, double z, Record *out) = 0;
  // Keys after the last non-empty value are left out; a null key among the
  // given ones matches null.
  virtual bool SeekValues(const std::array<Value, 10> &keys, Record *out) = 0;

  // --- Records (each write is committed when the call returns) ---
  // Appends to the current table; the new record becomes current and is
  // returned as stored. The counter (a first field that is an INTEGER PRIMARY
  // KEY) is numbered by the engine and every append consumes a number, even if
  // the record is deleted again. `keepCounter` true keeps a counter value that
  // the record gives; false ignores it.
  virtual bool AppendRecord(const Record &record, bool keepCounter, Record *stored) = 0;
  virtual bool DeleteRecord() = 0;  // the current record; afterwards there is none
  // Sets the given fields of the current record. The counter cannot change.
  virtual bool ReplaceRecord(const Record &record, Record *stored) = 0;

  // --- SQL (the Access dialect is accepted; see access_sql.cpp) ---
  // One statement. Rows come back as kNewRecordMarker, name, value, ...; a
  // statement that changes rows answers the number of rows changed as one
  // plain value; other statements answer nothing.
  virtual bool ExecuteSql(const std::string &sql, ValueArray *result) = 0;
  // ExecuteSql with the answer handed to `sink` as it is read. When it fails
  // the sink may have had part of an answer, which the caller drops. By
  // default through ExecuteSql and its array.
  virtual bool ExecuteSqlInto(const std::string &sql, AnswerSink *sink);
  // Runs a stored query or a view by name. `params` bind in order to the
  // query's parameters; list markers among them are skipped.
  virtual bool RunQuery(const std::string &name, const ValueArray &params, ValueArray *result) = 0;
  // Stores a named statement in the database file (errc::kObjectExists when a
  // table, view or query has that name). The text may begin with
  // "PARAMETERS name type, ...;"; the body names those parameters.
  virtual bool CreateQuery(const std::string &name, const std::string &sql) = 0;
  virtual bool ExecuteCommand(const std::string &sql, int32_t *affected) = 0;

  // --- Schema (engine/schema.h) ---
  // The schema operations of the open database, owned by the engine; null
  // from an engine that has none.
  virtual Schema *schema() { return nullptr; }
};

// The shared, reference-counted handle on one engine object. The last holder
// to let go closes the database.
using EngineConnection = std::shared_ptr<Engine>;

// Makes a new engine object with no database open. Answers an empty handle
// (and *hresult = hr::kClassNotRegistered) when the installed Env says
// creation fails, as when the engine's server is not registered.
EngineConnection createEngine(int32_t *hresult = nullptr);

// The engine's surroundings: the clocks its liveness checks read and the
// faults that can be switched on. Every engine of the process asks the one
// installed; the default reads the system's coarse clocks and fails nothing.
// A host or a test wraps it (EnvWrapper) to make creation fail, or to move
// time on instead of waiting it out.
class Env {
 public:
  virtual ~Env() = default;
  // Monotonic time and wall-clock time (that of file time stamps), in
  // nanoseconds; a few milliseconds fine is enough.
  virtual int64_t monotonicNanos() = 0;
  virtual int64_t wallNanos() = 0;
  // Whether createEngine fails now.
  virtual bool creationFails() = 0;
};

// Passes every call on to another Env; override what differs.
class EnvWrapper : public Env {
 public:
  explicit EnvWrapper(Env *target) : target_(target) {}
  int64_t monotonicNanos() override { return target_->monotonicNanos(); }
  int64_t wallNanos() override { return target_->wallNanos(); }
  bool creationFails() override { return target_->creationFails(); }
  Env *target() const { return target_; }

 private:
  Env *target_;
};

// The system's Env (never deleted).
Env *defaultEnv();
// Installs env for every engine of the process; null puts the default back.
// The caller keeps env, which must stay alive while installed.
void setEnv(Env *env);
Env &env();

// Tells every engine that this process changed files (deleted, renamed or
// overwrote one), so that the next IsAlive looks at its file again instead of
// trusting its last look. Changes made by other processes are seen at most a
// few milliseconds late (sqlite_liveness.cpp).
void noteFileSystemChange();

// The person's interrupt, asked by long operations (a statement's run, a
// fetch of many rows, a compact's salvage, a long walk) at their safe points.
// When `check` answers true the operation stops there, what it had begun is
// rolled back, and it fails with errc::kCancelled. The module installs the
// host's user break; null (the default) never interrupts. `check` may
// consume the request: an operation that saw it true stops for certain.
void setInterruptCheck(bool (*check)());
bool interruptRequested();

// Creates a new, empty database file of the engine's kind at `path` ("\" read
// as "/"). False, with *error set, when the file exists already (3204) or
// cannot be written (3044 no such directory, 3051 otherwise). (engine/create.cpp)
bool CreateDatabaseFile(const std::string &path, LastError *error);

}  // namespace vantry::engine
