// The SQLite engine's connection: opening, liveness, errors and table schemas.
//
// A database opened for writing is switched to WAL journalling with
// synchronous=NORMAL: a write that returned is in the WAL file and survives
// the process being killed; appends stay fast.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <mutex>
#include <set>
#include <tuple>

#include "sqlite_internal.h"
#include "engine/access.h"

namespace vantry::engine::sqlite {

namespace {

// SQLite's memory statistics take a process-wide mutex around every
// allocation and release it makes (a seek made some 260 of them), and the
// engine asks for no statistics and sets no heap limit. The setting can
// only be made before SQLite starts, so it is made when this library is
// loaded; when something in the process started SQLite before us, it is
// refused and nothing changes.
[[gnu::constructor]] void noMemoryStatistics() {
  sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
}

// Files found damaged by a read, by identity and state: the next Open of the
// same unchanged file answers "*REPAIR*" even when its first pages are sound.
using FileStamp = std::tuple<dev_t, ino_t, off_t, int64_t>;
std::mutex g_damagedMutex;
std::set<FileStamp> g_damaged;

bool stampOf(const std::string &path, FileStamp *out) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return false;
  *out = {st.st_dev, st.st_ino, st.st_size, int64_t(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec};
  return true;
}

std::string parentDir(const std::string &path) {
  size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string firstWord(const std::string &sql) {
  size_t b = sql.find_first_not_of(" \t\r\n(");
  if (b == std::string::npos) return {};
  size_t e = b;
  while (e < sql.size() && std::isalpha(static_cast<unsigned char>(sql[e]))) ++e;
  std::string w = sql.substr(b, e - b);
  for (char &c : w) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return w;
}

std::string afterColon(const std::string &msg) {
  size_t c = msg.find(": ");
  return c == std::string::npos ? msg : msg.substr(c + 2);
}

// Files at most this large get a full page check on every Open; it costs a
// few milliseconds there. Larger files get the header and schema check, plus
// the memory of damage found later.
constexpr off_t kFullCheckBytes = 2 << 20;

}  // namespace

namespace {

// Whether nothing can write at `path`: its file system is mounted read-only,
// or neither the file nor its folder may be written.
bool onReadOnlyMedia(const std::string &path) {
  struct statvfs fs {};
  if (::statvfs(path.c_str(), &fs) == 0 && (fs.f_flag & ST_RDONLY)) return true;
  size_t slash = path.find_last_of('/');
  std::string dir = slash == std::string::npos ? "." : (slash == 0 ? "/" : path.substr(0, slash));
  return ::access(path.c_str(), W_OK) != 0 && ::access(dir.c_str(), W_OK) != 0;
}

// A path as the path of a "file:" URI: '%', '?' and '#' escaped.
std::string uriPath(const std::string &path) {
  std::string out;
  for (char c : path) {
    if (c == '%' || c == '?' || c == '#') {
      char buf[4];
      std::snprintf(buf, sizeof buf, "%%%02X", static_cast<unsigned char>(c));
      out += buf;
    } else {
      out += c;
    }
  }
  return out;
}

}  // namespace

SqliteEngine::~SqliteEngine() {
  Close();
}

bool SqliteEngine::fail(long number, std::string description) {
  error_.number = number;
  error_.description = std::move(description);
  return false;
}

bool SqliteEngine::failSqlite(int rc, const std::string &sql) {
  std::string msg = db_ ? sqlite3_errmsg(db_) : sqlite3_errstr(rc);
  switch (rc & 0xff) {
    case SQLITE_NOMEM:
      throw EngineError(hr::kOutOfMemory, msg);
    case SQLITE_MISUSE:
      throw EngineError(hr::kUnexpected, msg);
    case SQLITE_CONSTRAINT:
      switch (rc) {
        case SQLITE_CONSTRAINT_NOTNULL:
          return fail(errc::kRequired, "The field '" + afterColon(msg) +
                                           "' cannot contain a Null value because it is required.");
        case SQLITE_CONSTRAINT_TRIGGER:
          if (msg.rfind(kDecimalRefusal, 0) == 0)
            return fail(errc::kConversion, "Data type conversion error: a value does not fit field '" +
                                               msg.substr(std::strlen(kDecimalRefusal)) + "'.");
          [[fallthrough]];  // another trigger's refusal is a rule's, as a CHECK's is
        case SQLITE_CONSTRAINT_CHECK:
          return fail(errc::kValidationRule,
                      "One or more values are prohibited by the validation rule (" + msg + ").");
        case SQLITE_CONSTRAINT_FOREIGNKEY:
          return fail(errc::kRelatedRecord,
                      "You cannot add or change a record because a related record "
                      "is required.");
        default:
          return fail(errc::kDuplicateKey,
                      "The changes you requested to the table were not successful because they would "
                      "create duplicate values in the index, primary key, or relationship (" +
                          afterColon(msg) + ").");
      }
    case SQLITE_READONLY:
      return fail(errc::kReadOnly, readOnlyMessage());
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return fail(errc::kLocked, "Could not update; currently locked.");
    case SQLITE_IOERR:
    case SQLITE_FULL:
      dead_ = true;
      return fail(errc::kDiskOrNetwork, "Disk or network error.");
    case SQLITE_CORRUPT: {
      dead_ = true;
      FileStamp stamp;
      if (!path_.empty() && stampOf(path_, &stamp)) {
        std::lock_guard<std::mutex> lock(g_damagedMutex);
        g_damaged.insert(stamp);
      }
      return fail(errc::kCorrupt, "The database '" + name_ + "' is damaged and needs to be repaired.");
    }
    case SQLITE_NOTADB:
      dead_ = true;
      return fail(errc::kUnrecognizedFormat, "Unrecognized database format '" + name_ + "'.");
    case SQLITE_INTERRUPT:
      return fail(errc::kCancelled, "Operation canceled by user.");
    case SQLITE_CANTOPEN:
      return fail(errc::kCannotOpen, "The database engine cannot open or write to the file '" + name_ + "'.");
    default:
      break;
  }
  std::string unused;
  if (msg.rfind("no such table: ", 0) == 0 && !linkSchema(afterColon(msg), &unused)) return false;
  if (msg.rfind("no such table", 0) == 0 || msg.rfind("no such view", 0) == 0)
    return fail(errc::kNoSuchTable, "The database engine cannot find the input table or query '" +
                                        afterColon(msg) +
                                        "'. Make sure it exists and that its name is "
                                        "spelled correctly.");
  if (msg.rfind("no such column", 0) == 0)
    return fail(errc::kTooFewParameters,
                "Too few parameters. Expected 1. (unknown name '" + afterColon(msg) + "')");
  if (msg.rfind("no such function", 0) == 0 || msg.find("wrong number of arguments to function") == 0)
    return fail(errc::kUndefinedFunction, "Undefined function '" + afterColon(msg) + "' in expression.");
  if (msg.find("already exists") != std::string::npos)
    return fail(errc::kObjectExists, "Object already exists (" + msg + ").");
  if (msg.find("syntax error") != std::string::npos || msg.find("incomplete input") != std::string::npos ||
      msg.find("unrecognized token") != std::string::npos) {
    std::string w = firstWord(sql);
    if (w == "SELECT" || w == "WITH" || w == "DELETE" || w == "TRANSFORM")
      return fail(errc::kSyntaxExpression, "Syntax error in query expression (" + msg + ").");
    if (w == "INSERT")
      return fail(errc::kSyntaxInsert, "Syntax error in INSERT INTO statement (" + msg + ").");
    if (w == "UPDATE") return fail(errc::kSyntaxUpdate, "Syntax error in UPDATE statement (" + msg + ").");
    if (w == "CREATE") return fail(errc::kSyntaxCreate, "Syntax error in CREATE statement (" + msg + ").");
    if (w == "DROP") return fail(errc::kSyntaxDrop, "Syntax error in DROP statement (" + msg + ").");
    if (w == "ALTER") return fail(errc::kSyntaxAlter, "Syntax error in ALTER TABLE statement (" + msg + ").");
    return fail(errc::kInvalidStatement,
                "Invalid SQL statement; expected 'DELETE', 'INSERT', 'PROCEDURE', "
                "'SELECT', or 'UPDATE' (" +
                    msg + ").");
  }
  return fail(errc::kGeneric, msg);
}

bool SqliteEngine::needDatabase() {
  if (db_) return true;
  return fail(errc::kNoDatabase, "Object invalid or no longer set: no database is open.");
}

bool SqliteEngine::needWritable() {
  if (!needDatabase()) return false;
  if (readOnly_) return fail(errc::kReadOnly, readOnlyMessage());
  return true;
}

bool SqliteEngine::needCursor() {
  if (!needDatabase()) return false;
  if (!current_) return fail(errc::kNoCurrentRecord, "No current record: no table is open.");
  return true;
}

Stmt SqliteEngine::prepare(const std::string &sql) {
  sqlite3_stmt *st = nullptr;
  int rc = sqlite3_prepare_v2(db_, sql.c_str(), static_cast<int>(sql.size()), &st, nullptr);
  if (rc != SQLITE_OK) {
    sqlite3_finalize(st);
    failSqlite(rc, sql);
    return Stmt();
  }
  return Stmt(st);
}

bool SqliteEngine::exec(const std::string &sql) {
  int rc = sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr);
  return rc == SQLITE_OK || failSqlite(rc, sql);
}

bool SqliteEngine::txn(Txn what) {
  static const char *const kSql[] = {"BEGIN", "BEGIN IMMEDIATE", "COMMIT", "ROLLBACK"};
  Stmt &st = txnStmts_[static_cast<size_t>(what)];
  if (!st) {
    st = prepare(kSql[static_cast<size_t>(what)]);
    if (!st) return false;
  }
  int rc = sqlite3_step(st.get());
  bool ok = rc == SQLITE_DONE || failSqlite(rc, kSql[static_cast<size_t>(what)]);
  sqlite3_reset(st.get());
  return ok;
}

uint32_t SqliteEngine::dataVersion() {
  unsigned int v = 0;
  if (db_) sqlite3_file_control(db_, "main", SQLITE_FCNTL_DATA_VERSION, &v);
  return v;
}

void SqliteEngine::afterWrite(Cursor *keep) {
  wrote_ = true;
  // A commit may have checkpointed into the file: its new state is our own.
  CheckpointMark mark{};
  if (haveMark_ && checkpointMark(&mark) && mark != mark_) noteOwnFileState();
  uint32_t v = dataVersion();
  for (auto &[name, c] : cursors_) {
    c->block.clear();
    if (c.get() == keep && c->snapValid)
      c->snapVersion = v;
    else
      c->snapValid = false;
  }
}

bool SqliteEngine::checkFileDamage() {
  // The page count in the header is trusted when its version stamp matches
  // the change counter; a file shorter than that count has lost pages.
  int fd = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  unsigned char h[100];
  ssize_t n = ::pread(fd, h, sizeof h, 0);
  struct stat st {};
  ::fstat(fd, &st);
  ::close(fd);
  if (n == 0 && st.st_size == 0) return false;  // an empty file is an empty database
  if (n != static_cast<ssize_t>(sizeof h)) return true;
  auto be32 = [&](int o) {
    return uint32_t(h[o]) << 24 | uint32_t(h[o + 1]) << 16 | uint32_t(h[o + 2]) << 8 | h[o + 3];
  };
  uint32_t pageSize = uint32_t(h[16]) << 8 | h[17];
  if (pageSize == 1) pageSize = 65536;
  uint32_t pages = be32(28);
  if (pages != 0 && be32(24) == be32(92) && off_t(pages) * pageSize > st.st_size) return true;
  return false;
}

std::string SqliteEngine::Open(const std::string &path, int32_t options, bool readOnly) {
  clearError();
  if (db_ || detached_) Close();
  mainFile_ = nullptr;  // the connection about to be opened has its own
  name_ = path;
  path_ = normalizePath(path);
  auto failOpen = [&](long number, std::string description) {
    fail(number, std::move(description));
    path_.clear();
    return std::string();
  };
  if (path_.empty()) return failOpen(errc::kInvalidPath, "'' is not a valid path.");
  struct stat st {};
  if (::stat(path_.c_str(), &st) != 0) {
    struct stat dir {};
    std::string parent = parentDir(path_);
    if (errno == ENOENT && (::stat(parent.c_str(), &dir) != 0 || !S_ISDIR(dir.st_mode)))
      return failOpen(errc::kInvalidPath, "'" + parent +
                                              "' is not a valid path. Make sure that the path "
                                              "name is spelled correctly.");
    if (errno == ENOENT) return failOpen(errc::kCouldNotFindFile, "Could not find file '" + path + "'.");
    return failOpen(errc::kCannotOpen, "The database engine cannot open or write to the file '" + path +
                                           "': " + std::strerror(errno) + ".");
  }
  fromAccess_ = false;
  if (S_ISREG(st.st_mode) && access::isAccessFile(path_)) {
    // An Access file answers read-only from its SQLite copy (engine/access/).
    std::string copy;
    access::ImportReport made = access::cachedCopy(path_, &copy);
    if (!made.ok) return failOpen(made.number, made.message);
    path_ = copy;
    readOnly = true;
    fromAccess_ = true;
    if (::stat(path_.c_str(), &st) != 0) return failOpen(errc::kCannotOpen, "Cannot open '" + copy + "'.");
  }
  if (S_ISDIR(st.st_mode) || (!readOnly && ::access(path_.c_str(), W_OK) != 0))
    return failOpen(errc::kCannotOpen, "The database engine cannot open or write to the file '" + path +
                                           "'. It is already opened exclusively by another user, or you "
                                           "need permission to view and write its data.");
  FileStamp stamp;
  bool remembered = false;
  if (stampOf(path_, &stamp)) {
    std::lock_guard<std::mutex> lock(g_damagedMutex);
    remembered = g_damaged.count(stamp) > 0;
  }
  auto needsRepair = [&] {
    if (db_) sqlite3_close_v2(db_);
    db_ = nullptr;
    fail(errc::kCorrupt, "The database '" + path +
                             "' is damaged or is not a database and needs to be "
                             "repaired.");
    path_.clear();
    return std::string("*REPAIR*");
  };
  if (remembered || checkFileDamage()) return needsRepair();
  releaseForeignJournals(st);

  // One thread per engine object (engine.h): SQLite need not lock the
  // connection around every call.
  int flags = (readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE) | SQLITE_OPEN_NOMUTEX;
  int rc = sqlite3_open_v2(path_.c_str(), &db_, flags, nullptr);
  if (rc != SQLITE_OK) {
    if ((rc & 0xff) == SQLITE_NOTADB || (rc & 0xff) == SQLITE_CORRUPT) return needsRepair();
    failSqlite(rc);
    sqlite3_close_v2(db_);
    db_ = nullptr;
    path_.clear();
    return std::string();
  }
  // A real read: the header and the whole schema must parse.
  bool full = (options & 1) != 0 || st.st_size <= kFullCheckBytes;
  bool sound = false;
  auto probeFile = [&] {
    sqlite3_extended_result_codes(db_, 1);
    sqlite3_busy_timeout(db_, 2000);
    const char *probe = full ? "PRAGMA quick_check(1)" : "SELECT count(*) FROM sqlite_master";
    sqlite3_stmt *ps = nullptr;
    rc = sqlite3_prepare_v2(db_, probe, -1, &ps, nullptr);
    if (rc == SQLITE_OK) rc = sqlite3_step(ps);
    sound = rc == SQLITE_ROW &&
            (!full || std::strcmp(reinterpret_cast<const char *>(sqlite3_column_text(ps, 0)), "ok") == 0);
    sqlite3_finalize(ps);
  };
  probeFile();
  if (!sound && (rc & 0xff) == SQLITE_CANTOPEN && readOnly && onReadOnlyMedia(path_)) {
    // A file in WAL mode (another program left it so) on media nothing can
    // write: SQLite cannot make the journal's index beside it. Nothing can
    // change the file there either, so it is read as immutable.
    sqlite3_close_v2(db_);
    db_ = nullptr;
    char *uri = sqlite3_mprintf("file:%s?immutable=1", uriPath(path_).c_str());
    rc = sqlite3_open_v2(uri, &db_, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_URI, nullptr);
    sqlite3_free(uri);
    if (rc == SQLITE_OK) probeFile();
  }
  int primary = rc & 0xff;
  if (!sound && (primary == SQLITE_ROW || primary == SQLITE_NOTADB || primary == SQLITE_CORRUPT))
    return needsRepair();
  if (!sound) {
    failSqlite(rc);
    Close();
    return std::string();
  }
  if (!readOnly) {
    // Either may fail when another process holds the file; the database still works.
    sqlite3_exec(db_, "PRAGMA journal_mode=WAL", nullptr, nullptr, nullptr);
    sqlite3_exec(db_, "PRAGMA synchronous=NORMAL", nullptr, nullptr, nullptr);
  }
  sqlite3_exec(db_, "PRAGMA foreign_keys=ON", nullptr, nullptr, nullptr);
  // Pages are read through a memory map rather than copied in by a system
  // call each: a seek reads a few pages, and the copies were a good part of
  // its cost. SQLite falls back to plain reads where mapping is not possible.
  sqlite3_exec(db_, "PRAGMA mmap_size=268435456", nullptr, nullptr, nullptr);
  wrote_ = false;
  registerAccessFunctions(db_);
  registerDecimalRounding(db_);
  watchInterrupts(db_);
  attachStoredQueries();
  attachLinks();
  readOnly_ = readOnly;
  dead_ = false;
  dev_ = st.st_dev;
  ino_ = st.st_ino;
  watchFile();
  noteJournalMode();
  return "OK";
}

void SqliteEngine::Close() {
  closeDatabase();
  detached_ = false;
  name_.clear();
  path_.clear();
  readOnly_ = false;
  dead_ = false;
}

int32_t SqliteEngine::GetVersion() {
  int v = sqlite3_libversion_number();  // X * 1000000 + Y * 1000 + Z
  return (v / 1000000) * 100 + (v / 1000) % 1000;
}

bool SqliteEngine::loadTable(const std::string &name, TableInfo *out) {
  std::string schemaName, source;
  if (!linkSchema(name, &schemaName, &source)) return false;
  Stmt st = prepare("SELECT name, sql FROM " + quoteIdent(schemaName) +
                    ".sqlite_master WHERE type = 'table' AND name = ?1 COLLATE NOCASE");
  if (!st) return false;
  sqlite3_bind_text(st.get(), 1, source.c_str(), -1, SQLITE_TRANSIENT);
  int rc = sqlite3_step(st.get());
  if (rc == SQLITE_DONE || (rc == SQLITE_ROW && std::strncmp(name.c_str(), "sqlite_", 7) == 0))
    return fail(errc::kNoSuchTable, "The database engine cannot find the input table or query '" + name +
                                        "'. Make sure it exists and that its name is spelled correctly.");
  if (rc != SQLITE_ROW) return failSqlite(rc);
  TableInfo t;
  t.source = reinterpret_cast<const char *>(sqlite3_column_text(st.get(), 0));
  t.name = t.source;
  if (schemaName != "main") {  // a linked table, found in its own file
    t.schema = quoteIdent(schemaName) + ".";
    if (asciiLower(source) != asciiLower(name)) t.name = name;  // linked under another name
  }
  const unsigned char *sqlText = sqlite3_column_text(st.get(), 1);
  std::string ddl = sqlText ? asciiLower(reinterpret_cast<const char *>(sqlText)) : std::string();
  std::string squeezed;
  for (char c : ddl)
    if (!std::isspace(static_cast<unsigned char>(c))) squeezed += c;
  if (squeezed.find(")withoutrowid") != std::string::npos)
    return fail(errc::kNotSupported, "Tables without rowid ('" + t.name + "') cannot be opened as a table.");
  t.autoincrement = ddl.find("autoincrement") != std::string::npos;

  Stmt info = prepare(t.pragma("table_info", t.source));
  if (!info) return false;
  int pkColumns = 0;
  bool firstIsIntegerPk = false;
  while ((rc = sqlite3_step(info.get())) == SQLITE_ROW) {
    ColumnInfo col;
    col.name = reinterpret_cast<const char *>(sqlite3_column_text(info.get(), 1));
    const unsigned char *type = sqlite3_column_text(info.get(), 2);
    col.declType = type ? reinterpret_cast<const char *>(type) : "";
    col.kind = fieldKindOf(col.declType);
    col.affinity = affinityOf(col.declType);
    int pk = sqlite3_column_int(info.get(), 5);
    if (pk > 0) ++pkColumns;
    if (t.columns.empty() && pk == 1 && asciiLower(col.declType) == "integer") firstIsIntegerPk = true;
    t.columns.push_back(std::move(col));
  }
  if (rc != SQLITE_DONE) return failSqlite(rc);
  if (firstIsIntegerPk && pkColumns == 1) t.counter = 0;
  t.hasPrimaryKey = pkColumns > 0;
  for (const char *alias : {"rowid", "_rowid_", "oid", ""}) {
    t.rowid = alias;
    bool hidden = false;
    for (const ColumnInfo &c : t.columns) hidden |= asciiLower(c.name) == alias;
    if (!hidden) break;
  }
  if (t.rowid.empty())
    return fail(errc::kNotSupported, "Table '" + t.name + "' hides every name of its rowid.");
  *out = std::move(t);
  return true;
}

}  // namespace vantry::engine::sqlite
