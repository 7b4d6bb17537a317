// The database context and the per-call check.
#include "database/context.h"

#include <algorithm>
#include <cstdio>

#include "frame/function_table.h"
#include "common/text.h"
#include "host/arx.h"

namespace vantry::database {

namespace {

// The engine's long operations ask this at their safe points: the person's
// Esc (acedUsrBrk) stops them, and the call that ran them ends cancelled.
bool userBreak() {
  if (acedUsrBrk() == 0) return false;
  frame::cancelCall();
  return true;
}

}  // namespace

DatabaseContext &context() {
  static DatabaseContext ctx;
  return ctx;
}

EngineConnection currentConnection() {
  return context().connection;
}
int16_t currentReadOnly() {
  return context().readOnly;
}

void makeCurrent(EngineConnection connection, std::wstring path, int16_t readOnly) {
  DatabaseContext &c = context();
  c.connection = std::move(connection);
  c.path = std::move(path);
  c.readOnly = readOnly;
  if (!c.connection) {
    c.path.clear();
    c.readOnly = 0;
  }
}

void releaseCurrent() {
  makeCurrent(nullptr, L"", 0);
}

void setLastError(long number, const std::wstring &description) {
  wchar_t prefix[32];
  std::swprintf(prefix, 32, L"(%ld) ", number);
  context().lastError = prefix + description;
}

void printEngineError(long number, const std::wstring &description) {
  // Running off a table's end is how a walk ends; a cancel is told by the
  // host's "*Cancel*".
  if (number == engine::errc::kNoCurrentRecord || number == engine::errc::kCancelled) return;
  if (number == engine::errc::kDiskOrNetwork) {
    acutPrintf(L"%s", L"\nA disk or network error occurred while trying to access the database.");
    acutPrintf(
        L"%s",
        L"Try the command again. If it continues to not work, try restarting AutoCAD. If that does not "
        L"fix the error, try restarting your computer.");
    return;
  }
  acutPrintf(L"\nVantry Error: %s", description.c_str());
}

bool reportEngineError(const EngineConnection &connection) {
  acedRetNil();
  if (!connection || !connection->HasError()) return false;
  engine::LastError e = connection->GetLastError();
  std::wstring description = text::fromUtf8(e.description);
  setLastError(e.number, description);
  printEngineError(e.number, description);
  return true;
}

bool reportEngineError() {
  return reportEngineError(context().connection);
}

int catchEngineError(int (*body)()) {
  try {
    return body();
  } catch (const engine::EngineError &e) {
    acedRetNil();
    bool none = e.hresult() == engine::hr::kPointer;
    long number = none ? engine::errc::kNoDatabase : engine::errc::kGeneric;
    std::wstring text = none ? L"Object invalid or no longer set: no database is open."
                             : text::fromUtf8(e.what());
    setLastError(number, text);
    printEngineError(number, text);
    return 0;
  }
}

bool closeCurrentDatabase() {
  DatabaseContext &c = context();
  if (!c.connection) return false;
  c.connection->Close();
  releaseCurrent();
  if (!c.entries.empty()) c.entries.front().path.clear();
  return true;
}

std::wstring currentDocumentKey() {
  AcApDocument *doc = acDocManager->curDocument();
  return doc && doc->fileName() ? doc->fileName() : L"";
}

void addDocumentRecord(const std::wstring &fileName) {
  DocumentDatabaseEntry e;
  e.documentKey = fileName;
  context().entries.push_back(std::move(e));
}

void removeDocumentRecord(const std::wstring &fileName) {
  frame::checkDatabaseBeforeCall();
  DatabaseContext &c = context();
  if (c.connection) {
    c.connection->CloseAllTables();
    closeCurrentDatabase();
  }
  auto it = std::find_if(c.entries.begin(), c.entries.end(),
                         [&](const DocumentDatabaseEntry &e) { return e.documentKey == fileName; });
  if (it != c.entries.end()) c.entries.erase(it);
}

void clearContext() {
  DatabaseContext &c = context();
  engine::setInterruptCheck(nullptr);  // the module's code goes with its unload
  releaseCurrent();
  c.entries.clear();
  c.lastError.clear();
}

EngineConnection newConnection() {
  return engine::createEngine();
}

}  // namespace vantry::database

namespace vantry::frame {

using database::context;
using database::DatabaseContext;
using database::makeCurrent;

// Brings the current connection in line with the current document. The usual
// case (the document's entry first, its connection current, connected and
// alive) costs one lookup of the document and two calls into the engine.
void checkDatabaseBeforeCall() {
  DatabaseContext &c = context();
  engine::setInterruptCheck(database::userBreak);  // cleared when the module unloads
  // The document's name is compared in place: this runs before every call.
  AcApDocument *current = acDocManager->curDocument();
  const ACHAR *doc = current && current->fileName() ? current->fileName() : L"";
  if (c.entries.empty()) {
    makeCurrent(nullptr, L"", 0);
    return;
  }
  auto &first = c.entries.front();
  if (first.documentKey != doc) {
    auto it = std::find_if(c.entries.begin() + 1, c.entries.end(),
                           [&](const database::DocumentDatabaseEntry &e) { return e.documentKey == doc; });
    if (it == c.entries.end()) {
      makeCurrent(nullptr, L"", 0);
      return;
    }
    // Move to front, keeping the others in order, so that each document's
    // newest entry stays ahead of its older ones.
    std::rotate(c.entries.begin(), it, it + 1);
    makeCurrent(first.connection, first.path, first.readOnly ? -1 : 0);
  } else if (first.connection != c.connection) {
    makeCurrent(first.connection, first.path, first.readOnly ? -1 : 0);
  }
  if (!c.connection) return;
  bool connected = c.connection->IsConnected();
  if (connected && c.connection->IsAlive()) return;

  if (!connected) {
    // The engine has dropped the database: forget it everywhere it is held.
    // The path stays with the context so that it can be reopened below.
    database::EngineConnection lost = c.connection;
    std::wstring path = c.path;
    int16_t readOnly = c.readOnly;
    makeCurrent(nullptr, L"", 0);
    for (auto &e : c.entries) {
      if (e.connection && !e.connection->IsConnected()) {
        e.connection.reset();
        e.path.clear();
      }
    }
    c.connection = lost;
    c.path = path;
    c.readOnly = readOnly;
  } else {
    // Still held but no longer usable: close it as vt_close_db does, keeping
    // the path to reopen from.
    std::wstring path = c.path;
    int16_t readOnly = c.readOnly;
    database::EngineConnection conn = c.connection;
    database::closeCurrentDatabase();
    c.connection = conn;
    c.path = path;
    c.readOnly = readOnly;
  }

  if (c.path.empty()) {
    makeCurrent(nullptr, L"", 0);
    return;
  }
  std::string status = c.connection->Open(text::nativePath(c.path), 0, c.readOnly != 0);
  if (status.empty() || status == "*REPAIR*") {
    makeCurrent(nullptr, L"", 0);
    return;
  }
  c.entries.front().connection = c.connection;
  c.entries.front().path = c.path;
}

}  // namespace vantry::frame
