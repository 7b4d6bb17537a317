// The module's database state: which database is open, for which drawing
// document, in which mode, and the last engine error.
//
// Each drawing document that connected keeps its own entry; the entry of the
// document for which the current connection was last chosen is always first
// (move-to-front). Before every database function, checkDatabaseBeforeCall
// brings the current connection in line with the current document and
// reopens a database that the engine has lost.
//
// Everything here runs on the host's main thread, inside the call frame.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/engine.h"

namespace vantry::database {

using engine::EngineConnection;

struct DocumentDatabaseEntry {
  std::wstring documentKey;     // the document's file name
  EngineConnection connection;  // may be empty
  std::wstring path;            // empty when no database is open
  uint8_t readOnly = 0;         // 1 read-only, 0 writable
};

struct DatabaseContext {
  EngineConnection connection;  // the current connection, may be empty
  std::wstring path;            // its database path
  int16_t readOnly = 0;         // 0 false, -1 true
  std::vector<DocumentDatabaseEntry> entries;
  std::wstring lastError;  // "(<number>) <description>", empty when reset
};

// The single context, from module load to unload.
DatabaseContext &context();

EngineConnection currentConnection();
int16_t currentReadOnly();
void makeCurrent(EngineConnection connection, std::wstring path, int16_t readOnly);
void releaseCurrent();
void setLastError(long number, const std::wstring &description);

// Sets nil as the LISP result; when `connection` (by default the current
// one) has an error pending, records and prints it and answers true, and the
// caller ends its LISP function at once.
bool reportEngineError();
bool reportEngineError(const EngineConnection &connection);
// Prints an engine error as the database functions do: nothing for 3021, two
// lines for 3043, "\nVantry Error: <description>" otherwise.
void printEngineError(long number, const std::wstring &description);

// Runs a database function's body and catches the engine's error, which the
// call frame would otherwise leave to the host (and the document locked): it
// is recorded and printed as the engine's other errors are (no database open
// as 3420), and the function answers nil with status 0.
int catchEngineError(int (*body)());

// vt_close_db's work: closes the current database and forgets it; the first
// entry keeps its place with an empty path. False when none was open.
bool closeCurrentDatabase();

// The name under which the current document keys its entry.
std::wstring currentDocumentKey();

// Lifecycle hooks: a document's record made at document load, removed (with
// its database closed) at document unload; the whole context cleared at
// module unload.
void addDocumentRecord(const std::wstring &fileName);
void removeDocumentRecord(const std::wstring &fileName);
void clearContext();

// Creates an engine object, as the module does for every connection. Empty
// when the engine cannot be created.
EngineConnection newConnection();

}  // namespace vantry::database
