// The LISP functions that open, name, compact and close a database and
// report the engine's errors: vt_connect, vt_mdb, vt_close_db, vt_compact,
// vt_getVersion, vt_lastError, vt_resetLastError.
#include <limits.h>
#include <unistd.h>

#include <filesystem>

#include "database/context.h"
#include "frame/implementations.h"
#include "frame/support.h"
#include "common/files.h"
#include "common/text.h"
#include "frame/value_list.h"

namespace vantry::lispfn {
namespace {

using database::context;
using database::DatabaseContext;
using frame::ArgList;

const char kRepair[] = "*REPAIR*";

// A relative path made absolute against the working directory of now. The
// path is kept to reopen the database later (the per-call check, a failed
// statement), and by then the working directory may be another one.
std::wstring absolutePath(const std::wstring &path) {
  std::string native = text::nativePath(path);
  if (native.empty() || native[0] == '/') return path;
  char cwd[PATH_MAX];
  if (!::getcwd(cwd, sizeof cwd)) return path;
  return text::fromUtf8((std::filesystem::path(cwd) / native).lexically_normal().string());
}

// Finds a database file: the name as given, else each ACADPREFIX directory
// joined with "\" and the name exactly as they stand. Empty when not found;
// otherwise the path found, made absolute.
std::wstring resolveDatabasePath(const std::wstring &path) {
  // A database server's URL is not a file: the engine opens it as it stands.
  if (path.rfind(L"postgresql://", 0) == 0 || path.rfind(L"postgres://", 0) == 0) return path;
  if (files::isFile(path)) return absolutePath(path);
  std::wstring found = frame::findInSupportFolders(path);
  return found.empty() ? found : absolutePath(found);
}

// Asks the product's LISP to repair a damaged file: (compactDatabase path nil "Repair").
bool repairThroughLisp(const std::wstring &path) {
  resbuf *args = acutBuildList(RTSTR, L"compactDatabase", RTSTR, path.c_str(), RTNIL, RTSTR, L"Repair", 0);
  resbuf *result = nullptr;
  int rc = acedInvoke(args, &result);
  acutRelRb(args);
  bool ok = rc == RTNORM && result && result->restype != RTNIL;
  acutRelRb(result);
  return ok;
}

bool isGarbage(const database::DocumentDatabaseEntry &e) {
  return e.documentKey.empty() && !e.connection;
}

}  // namespace

int vt_connect() {
  acedRetNil();
  DatabaseContext &c = context();
  // 1. Entries with neither a document nor a connection are garbage.
  for (bool removed = true; removed;) {
    removed = false;
    for (auto it = c.entries.begin(); it != c.entries.end(); ++it) {
      if (isGarbage(*it)) {
        c.entries.erase(it);
        removed = true;
        break;
      }
    }
  }

  // 2. Arguments: path, then an optional mode and, with a mode, an optional flag.
  ArgList args;
  std::wstring path, mode = L"w";
  bool flag = false;
  if (!frame::readString(args.cursor(), path)) return 2;
  if (args.cursor()) {
    if (!frame::readString(args.cursor(), mode)) return 2;
    if (args.cursor() && !frame::readBoolean(args.cursor(), flag)) return 2;
  }
  int16_t readOnly = mode == L"w" ? 0 : -1;

  // 3. The current database: kept when it is the one asked for in the mode
  // asked for, otherwise closed.
  if (c.connection && c.connection->IsConnected()) {
    if (!c.connection->IsAlive()) {
      database::releaseCurrent();
    } else {
      bool samePath = text::samePath(path, c.path);
      if (!samePath) {
        std::wstring resolved = resolveDatabasePath(path);
        samePath = !resolved.empty() && text::samePath(resolved, c.path);
      }
      if (samePath && c.connection->IsUpdatable() != readOnly) {
        acedRetT();
        return 0;
      }
      c.connection->Close();
      if (!c.entries.empty()) {
        c.entries.front().connection.reset();
        c.entries.front().path.clear();
      }
      database::releaseCurrent();
    }
  }

  std::wstring resolved = path;
  if (!c.connection) {
    // 5. A new engine object for the new database.
    database::EngineConnection conn = database::newConnection();
    if (!conn) return 0;
    // 6. Find the file.
    resolved = resolveDatabasePath(path);
    if (resolved.empty()) return 0;
    // 7. Open it, repairing once through the product's LISP when it asks for that.
    std::string native = text::nativePath(resolved);
    std::string status = conn->Open(native, 0, readOnly != 0);
    if (status == kRepair) {
      conn->Close();
      if (repairThroughLisp(resolved)) {
        status = conn->Open(native, 0, readOnly != 0);
        if (status == kRepair) status.clear();
      } else {
        status.clear();
      }
    }
    if (status.empty() && database::reportEngineError(conn)) return flag ? 4 : 0;
    // The engine opens an Access file read-only whatever the mode asked.
    if (!status.empty() && conn->IsUpdatable() != -1) readOnly = -1;
    // 8.
    database::makeCurrent(conn, resolved, readOnly);
  }

  // 9. The document's entry goes to the head of the list.
  database::DocumentDatabaseEntry e;
  e.documentKey = database::currentDocumentKey();
  e.connection = c.connection;
  e.path = resolved;
  e.readOnly = readOnly == -1 ? 1 : 0;
  c.entries.insert(c.entries.begin(), std::move(e));
  acedRetT();
  return 0;
}

int vt_mdb() {
  acedRetNil();
  database::EngineConnection conn = database::currentConnection();
  if (!conn) return 0;
  std::wstring name = text::fromUtf8(conn->GetName());
  if (name.empty()) {
    database::reportEngineError();
    return 0;
  }
  acedRetStr(name.c_str());
  return 0;
}

int vt_close_db() {
  acedRetNil();
  if (database::closeCurrentDatabase()) acedRetT();
  return 0;
}

int vt_compact() {
  acedRetNil();
  ArgList args;
  std::wstring source, destination;
  if (!frame::readString(args.cursor(), source) || !frame::readString(args.cursor(), destination)) return 0;
  bool showBox = true;
  if (args.cursor()) frame::readBoolean(args.cursor(), showBox);

  database::EngineConnection conn = database::newConnection();
  if (!conn) return 0;
  if (conn->CompactDatabase(text::nativePath(source), text::nativePath(destination))) {
    acedRetStr(L"OK");
    return 0;
  }
  engine::LastError e = conn->GetLastError();
  std::wstring text = text::fromUtf8(e.description);
  if (conn->HasError()) {
    database::setLastError(e.number, text);
    database::printEngineError(e.number, text);
  }
  // Stopped by the person's Esc: the host says "*Cancel*"; no box asks about it.
  if (e.number == engine::errc::kCancelled) return 0;
  // A buffer of 15 characters: a longer name is not shown.
  wchar_t computer[15];
  DWORD size = 15;
  if (showBox && GetComputerNameW(computer, &size)) {
    text += L"\n(Your computer name is ";
    text += computer;
    text += L")";
    MessageBoxW(nullptr, text.c_str(), L"Database Error", MB_OK | MB_ICONERROR);
  }
  frame::returnInteger(int32_t(e.number));
  return 0;
}

int vt_getVersion() {
  acedRetNil();
  database::EngineConnection conn = database::newConnection();
  acedRetInt(conn ? conn->GetVersion() : 0);
  return 0;
}

int vt_lastError() {
  acedRetStr(context().lastError.c_str());
  return 0;
}

int vt_resetLastError() {
  context().lastError.clear();
  acedRetStr(L"");
  return 0;
}

}  // namespace vantry::lispfn
