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
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>

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
  ctimeTrusted_ = alive && haveOwn && settled(own.st_ctim);
  if (ctimeTrusted_) trustedCtime_ = own.st_ctim;
  return alive && vouch(now, changes);
}

bool SqliteEngine::vouch(int64_t now, uint64_t changes) {
  vouchedUntil_ = now + kVouchNs;
  vouchedChanges_ = changes;
  return true;
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
}

bool SqliteEngine::changeStamp(ChangeStamp *out) {
  if (!db_) return false;
  if (wal_) {
    sqlite3_file *f = nullptr;
    volatile void *region = nullptr;
    // bExtend = 0: only a region SQLite has mapped already; nothing is created.
    if (sqlite3_file_control(db_, "main", SQLITE_FCNTL_FILE_POINTER, &f) != SQLITE_OK || !f || !f->pMethods ||
        f->pMethods->iVersion < 2 || !f->pMethods->xShmMap ||
        f->pMethods->xShmMap(f, 0, kWalIndexRegion, 0, &region) != SQLITE_OK || !region)
      return false;
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
