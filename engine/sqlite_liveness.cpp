// Noticing what happens to the database behind the engine's back, cheaply
// enough to ask on every call: whether its file is still the one opened
// (IsAlive), and whether anyone committed since records were read ahead
// (changeStamp).
//
// A look at the file is a system call, which costs as much as reading a
// record; so a look that found the file alive vouches for it during the next
// millisecond (on the Env's coarse clock, so a few at most), unless this process
// changed files meanwhile (the host says so through noteFileSystemChange). A
// file deleted by another process is thus noticed within a few milliseconds.
//
// IsAlive watches the file through an O_PATH descriptor: fstat on it shows a
// link count of 0 once the file is deleted or another file is renamed over
// its name, and a new change time once it is moved. A stat of the path
// (compared by device and inode) is the full check; it runs when the change
// time differs from the one the last full check vouched for, and always
// while that change time is too recent to tell a later change apart (time
// stamps are coarser than a clock tick). O_PATH matters: closing any other
// descriptor of the file would drop SQLite's POSIX locks on it.
//
// In WAL mode the change stamp is the WAL-index header in shared memory,
// which every commit by any connection rewrites (its change counter and
// frame count); it is read through SQLite's own mapping, with no system call.
// Without WAL the stamp is the file's identity, size and modification time,
// and it vouches for nothing while that time is recent, for the same reason.
//
// A replaced file must never receive the WAL written for the file it
// replaced: SQLite ties a WAL to a path, not to a file, so the next
// connection to the path would replay it into the newcomer. Three ways of
// replacing are told apart here. A file deleted or renamed over shows as a
// different identity at the path. A file overwritten in place keeps its
// identity, but its size or header (the first 100 bytes) change while the
// WAL-index shows no checkpoint: every legitimate writer of a WAL database
// writes the main file only by checkpointing, which moves the checkpoint
// counters or the salts of the WAL-index. A connection whose file was
// replaced is closed without the checkpoint SQLite makes on closing, and the
// journal files it owned (by identity) are removed from the path. Before any
// connection of this process opens a path, the other connections whose
// journal lies beside a file not their own are let go the same way, so the
// journal is gone before the new file is opened. (A journal left by a process
// that died cannot be told apart from the file's own and is replayed by
// SQLite as usual.)
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <set>

#include "sqlite_internal.h"

namespace vantry::engine::sqlite {

namespace {

// Time stamps on files are taken from a coarse clock; a stamp this much older
// than now cannot be repeated by a change made from now on.
constexpr int64_t kStampSlackNs = 50'000'000;

int64_t nanos(const timespec &t) {
  return int64_t(t.tv_sec) * 1'000'000'000 + t.tv_nsec;
}

constexpr int64_t kVouchNs = 1'000'000;
std::atomic<uint64_t> g_fileChanges{0};

int64_t monotonicNow() {
  return env().monotonicNanos();
}

bool settled(const timespec &stamp) {
  return nanos(stamp) < env().wallNanos() - kStampSlackNs;
}

// WAL-index header: two 48-byte copies at the start of the shared memory.
constexpr int kWalIndexRegion = 32768;
constexpr size_t kWalHeaderBytes = 48;
static_assert(sizeof(ChangeStamp) == kWalHeaderBytes);

// The first region of the WAL index in shared memory, through SQLite's own
// mapping (bExtend = 0: only a region SQLite has mapped already; nothing is
// created), or null.
volatile void *walIndex(sqlite3_file *f) {
  volatile void *region = nullptr;
  if (!f || !f->pMethods || f->pMethods->iVersion < 2 || !f->pMethods->xShmMap ||
      f->pMethods->xShmMap(f, 0, kWalIndexRegion, 0, &region) != SQLITE_OK)
    return nullptr;
  return region;
}
// WAL-index offsets: the salts in the header, and in the checkpoint
// information after the two header copies, nBackfill and nBackfillAttempted.
constexpr size_t kSaltOffset = 32;
constexpr size_t kBackfillOffset = 96;
constexpr size_t kBackfillAttemptedOffset = 128;
constexpr size_t kHeaderBytes = 100;

// The engines of this process with an open database.
std::mutex g_openMutex;
std::set<SqliteEngine *> g_open;

std::pair<dev_t, ino_t> identityOf(const std::string &path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return {};
  return {st.st_dev, st.st_ino};
}

void removeIfSame(const std::string &path, std::pair<dev_t, ino_t> id) {
  if (id.second != 0 && identityOf(path) == id) ::unlink(path.c_str());
}

}  // namespace

}  // namespace vantry::engine::sqlite

namespace vantry::engine {
void noteFileSystemChange() {
  sqlite::g_fileChanges.fetch_add(1, std::memory_order_relaxed);
}
}  // namespace vantry::engine

namespace vantry::engine::sqlite {

void SqliteEngine::watchFile() {
  unwatchFile();
  int fd = ::open(path_.c_str(), O_PATH | O_CLOEXEC);
  struct stat st {};
  if (fd >= 0 && (::fstat(fd, &st) != 0 || st.st_dev != dev_ || st.st_ino != ino_)) {
    ::close(fd);  // already replaced: the full check will say so
    fd = -1;
  }
  pathFd_ = fd;
}

void SqliteEngine::unwatchFile() {
  if (pathFd_ >= 0) ::close(pathFd_);
  pathFd_ = -1;
  ctimeTrusted_ = false;
  vouchedUntil_ = 0;
}

bool SqliteEngine::IsAlive() {
  if (!db_ || dead_) return false;
  uint64_t changes = g_fileChanges.load(std::memory_order_relaxed);
  int64_t now = monotonicNow();
  if (now < vouchedUntil_ && changes == vouchedChanges_) return true;
  vouchedUntil_ = 0;
  struct stat own {};
  bool haveOwn = pathFd_ >= 0 && ::fstat(pathFd_, &own) == 0;
  if (haveOwn) {
    if (own.st_nlink == 0) return false;
    if (ctimeTrusted_ && nanos(own.st_ctim) == nanos(trustedCtime_)) return vouch(now, changes);
  }
  struct stat st {};
  bool alive = ::stat(path_.c_str(), &st) == 0 && st.st_dev == dev_ && st.st_ino == ino_;
  if (alive && replacedInPlace()) alive = false;
  ctimeTrusted_ = alive && haveOwn && settled(own.st_ctim);
  if (ctimeTrusted_) trustedCtime_ = own.st_ctim;
  return alive && vouch(now, changes);
}

bool SqliteEngine::vouch(int64_t now, uint64_t changes) {
  vouchedUntil_ = now + kVouchNs;
  vouchedChanges_ = changes;
  return true;
}

bool SqliteEngine::checkpointMark(CheckpointMark *out) {
  if (!db_ || !wal_) return false;
  volatile void *region = walIndex(mainFile());
  if (!region) return false;
  const volatile unsigned char *b = static_cast<const volatile unsigned char *>(region);
  auto u32 = [&](size_t at) {
    uint32_t v;
    unsigned char bytes[4] = {b[at], b[at + 1], b[at + 2], b[at + 3]};
    std::memcpy(&v, bytes, 4);
    return v;
  };
  *out = {u32(kSaltOffset), u32(kSaltOffset + 4), u32(kBackfillOffset), u32(kBackfillAttemptedOffset)};
  return true;
}

bool SqliteEngine::readFileState(FileState *out) {
  struct stat st {};
  if (pathFd_ < 0 || ::fstat(pathFd_, &st) != 0) return false;
  out->size = st.st_size;
  out->header.clear();
  // Read through SQLite's own descriptor: opening and closing another one
  // would drop SQLite's locks. A file shorter than the header has none.
  sqlite3_file *f = nullptr;
  if (st.st_size >= off_t(kHeaderBytes) &&
      sqlite3_file_control(db_, "main", SQLITE_FCNTL_FILE_POINTER, &f) == SQLITE_OK && f && f->pMethods) {
    out->header.resize(kHeaderBytes);
    if (f->pMethods->xRead(f, out->header.data(), int(kHeaderBytes), 0) != SQLITE_OK) out->header.clear();
  }
  return true;
}

void SqliteEngine::noteOwnFileState() {
  haveMark_ = checkpointMark(&mark_);
  if (haveMark_ && !readFileState(&fileState_)) haveMark_ = false;
}

bool SqliteEngine::replacedInPlace() {
  if (replaced_) return true;
  if (!haveMark_) return false;
  CheckpointMark now{};
  if (!checkpointMark(&now)) return false;
  if (now != mark_) {  // someone checkpointed: the file's new state is the database's
    noteOwnFileState();
    return false;
  }
  FileState state;
  if (!readFileState(&state) || state == fileState_) return false;
  replaced_ = true;
  return true;
}

bool SqliteEngine::fileReplaced() {
  if (replaced_) return true;
  struct stat st {};
  if (::stat(path_.c_str(), &st) != 0 || st.st_dev != dev_ || st.st_ino != ino_) {
    replaced_ = true;
    return true;
  }
  return replacedInPlace();
}

void SqliteEngine::closeDatabase() {
  {
    std::lock_guard<std::mutex> lock(g_openMutex);
    g_open.erase(this);
  }
  bool drop = false;
  if (db_) {
    drop = wal_ && fileReplaced();
    // The replacement must not receive the old file's pages.
    if (drop) sqlite3_db_config(db_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, static_cast<int *>(nullptr));
    // Writing needs WAL; a file this connection wrote is left in the
    // rollback journal's mode, which every reader can open, also from media
    // that cannot be written (a WAL file there cannot be opened without its
    // index beside it). The switch writes the file's header twice over an
    // open and close, so a connection that wrote nothing skips it; when
    // another connection still has the file open, the switch waits for it.
    if (!drop && wal_ && !readOnly_ && wrote_) {
      sqlite3_busy_timeout(db_, 0);
      sqlite3_exec(db_, "PRAGMA journal_mode=DELETE", nullptr, nullptr, nullptr);
    }
  }
  unwatchFile();
  wal_ = false;
  for (Stmt &st : txnStmts_) st = Stmt();  // finalized before the connection closes
  cursors_.clear();
  current_ = nullptr;
  nextCounter_.clear();
  // What was kept per schema version belongs to this connection (its temporary
  // triggers go with it); another file can stand at the same version.
  textFieldsVersion_ = decimalsVersion_ = -1;
  decimalTriggers_.clear();
  if (db_) sqlite3_close_v2(db_);
  db_ = nullptr;
  if (drop) {
    removeIfSame(path_ + "-wal", walId_);
    removeIfSame(path_ + "-shm", shmId_);
  }
  walId_ = shmId_ = {};
  haveMark_ = false;
  replaced_ = false;
}

void SqliteEngine::detach() {
  replaced_ = true;
  closeDatabase();
  detached_ = true;
}

void SqliteEngine::releaseForeignJournals(const struct stat &file) {
  std::pair<dev_t, ino_t> wal = identityOf(path_ + "-wal");
  if (wal.second == 0) return;
  std::vector<SqliteEngine *> stale;
  {
    std::lock_guard<std::mutex> lock(g_openMutex);
    for (SqliteEngine *e : g_open)
      if (e != this && e->walId_ == wal) stale.push_back(e);
  }
  // Engine objects are used by one thread at a time, the module's.
  for (SqliteEngine *e : stale)
    if (e->dev_ != file.st_dev || e->ino_ != file.st_ino || e->replacedInPlace()) e->detach();
}

void SqliteEngine::noteJournalMode() {
  wal_ = false;
  if (!db_) return;
  sqlite3_stmt *st = nullptr;
  if (sqlite3_prepare_v2(db_, "PRAGMA main.journal_mode", -1, &st, nullptr) == SQLITE_OK &&
      sqlite3_step(st) == SQLITE_ROW) {
    const unsigned char *mode = sqlite3_column_text(st, 0);
    wal_ = mode && std::strcmp(reinterpret_cast<const char *>(mode), "wal") == 0;
  }
  sqlite3_finalize(st);
  if (!wal_) return;
  // A read maps the WAL-index and opens the WAL, whose identities are kept.
  sqlite3_exec(db_, "SELECT count(*) FROM sqlite_master", nullptr, nullptr, nullptr);
  walId_ = identityOf(path_ + "-wal");
  shmId_ = identityOf(path_ + "-shm");
  noteOwnFileState();
  std::lock_guard<std::mutex> lock(g_openMutex);
  g_open.insert(this);
}

sqlite3_file *SqliteEngine::mainFile() {
  if (!mainFile_ && db_ &&
      sqlite3_file_control(db_, "main", SQLITE_FCNTL_FILE_POINTER, &mainFile_) != SQLITE_OK)
    mainFile_ = nullptr;
  return mainFile_;
}

bool SqliteEngine::changeStamp(ChangeStamp *out) {
  if (!db_) return false;
  if (wal_) {
    volatile void *region = walIndex(mainFile());
    if (!region) return false;
    std::memcpy(out->data(), const_cast<const void *>(region), kWalHeaderBytes);
    return true;
  }
  struct stat st {};
  if (pathFd_ < 0 || ::fstat(pathFd_, &st) != 0 || !settled(st.st_mtim)) return false;
  *out = {uint64_t(st.st_dev),         uint64_t(st.st_ino),   uint64_t(st.st_size),
          uint64_t(nanos(st.st_mtim)), uint64_t(st.st_nlink), 0};
  return true;
}

}  // namespace vantry::engine::sqlite
