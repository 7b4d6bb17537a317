// SQL statements and stored queries: vt_sql, vt_sql-nil, vt_sql-error,
// vt_command, vt_query, vt_create_query.
//
//   (vt_create_query name sql)   stores a named statement in the database;
//                                the text may begin with an Access
//                                "PARAMETERS name type, ...;" clause. T, or nil
//                                with the engine's error (a name that a table,
//                                view or stored query already has: 3012; a
//                                stored query is never replaced).
//   (vt_query name values...)    runs a stored query or a view, binding the
//                                values in order to its parameters; a value
//                                that cannot be converted gives nil with the
//                                wrong-type status.
#include <memory>

#include "database/context.h"
#include "database/values.h"
#include "frame/implementations.h"
#include "common/text.h"
#include "frame/value_list.h"

namespace vantry::lispfn {
namespace {

using database::EngineConnection;
using frame::ArgList;

const wchar_t kConnectionErrorText[] =
    L"Database connection error.\nClose and reopen AutoCAD.\n\nIf you are getting this error frequently, "
    L"press "
    L"\"Yes\" to send an error report to Orlec Support.";

// Answers a connection failure as the mode asks. Returns the status.
int connectionFailure(const EngineConnection &c, int mode, const wchar_t *label, const std::wstring &sql) {
  if (mode == 1) return 0;
  if (mode == 2) {
    acedRetStr(L"*ERROR*");
    return 0;
  }
  // The box belongs to the window the person is working in, and that window
  // gets the activation back once the box is answered.
  HWND active = GetActiveWindow();
  int answer = MessageBoxW(active, kConnectionErrorText, L"Orlec", MB_YESNO | MB_DEFBUTTON2 | MB_ICONERROR);
  SetActiveWindow(active);
  if (answer != IDYES) return 0;
  acutPrintf(L"%s%s", label, sql.c_str());
  database::reportEngineError(c);
  return 3;
}

// Runs one statement, with one reopen and retry when it fails.
int runStatement(const std::wstring &sql, int mode) {
  EngineConnection c = database::currentConnection();
  if (!c) return 0;
  std::string text = text::toUtf8(sql);
  // The rows go straight into the result list as they are read.
  auto answer = std::make_unique<database::ChainAnswer>();
  bool ok = c->ExecuteSqlInto(text, answer.get());
  if (!ok && c->GetLastError().number == engine::errc::kCancelled) {
    // Stopped by the person's Esc, its changes rolled back: not a lost
    // connection, so no reopen and no second run.
    database::reportEngineError(c);
    return 0;
  }
  if (!ok) {
    std::wstring path = text::fromUtf8(c->GetName());
    bool readOnly;
    if (path.empty()) {
      path = database::context().path;
      readOnly = database::currentReadOnly() != 0;
    } else {
      readOnly = c->IsUpdatable() != -1;
      c->Close();
    }
    if (path.empty()) return connectionFailure(c, mode, L"\nQuery 1: ", sql);
    std::string status = c->Open(text::nativePath(path), 0, readOnly);
    if (status.empty() || status == "*REPAIR*") {
      database::reportEngineError(c);
      if (mode == 1) return 0;
      if (mode == 2) {
        acedRetStr(L"*ERROR*");
        return 0;
      }
      return 3;
    }
    answer = std::make_unique<database::ChainAnswer>();
    if (!c->ExecuteSqlInto(text, answer.get())) return connectionFailure(c, mode, L"\nQuery 2: ", sql);
  }
  answer->returnToHost();
  return 0;
}

// Reads the SQL text: status 1 without arguments, 2 when it is not a string.
int readSql(ArgList &args, std::wstring &sql) {
  if (!args.cursor()) return 1;
  if (!frame::readString(args.cursor(), sql)) return 2;
  return 0;
}

}  // namespace

int vt_sql() {
  acedRetNil();
  if (!database::currentConnection()) return 0;
  ArgList args;
  std::wstring sql;
  if (int st = readSql(args, sql)) return st;
  int mode = 0;
  if (args.cursor() && !frame::readInteger(args.cursor(), mode)) return 2;
  return runStatement(sql, mode);
}

int vt_sql_nil() {
  acedRetNil();
  if (!database::currentConnection()) return 0;
  ArgList args;
  std::wstring sql;
  if (int st = readSql(args, sql)) return st;
  return runStatement(sql, 1);
}

int vt_sql_error() {
  acedRetNil();
  if (!database::currentConnection()) return 0;
  ArgList args;
  std::wstring sql;
  if (int st = readSql(args, sql)) return st;
  return runStatement(sql, 2);
}

int vt_command() {
  acedRetNil();
  EngineConnection c = database::currentConnection();
  if (!c) return 0;
  ArgList args;
  std::wstring sql;
  if (int st = readSql(args, sql)) return st;
  int32_t affected = 0;
  if (c->ExecuteCommand(text::toUtf8(sql), &affected))
    database::returnCount(affected);
  else
    database::reportEngineError(c);
  return 0;
}

int vt_query() {
  acedRetNil();
  EngineConnection c = database::currentConnection();
  if (!c) return 0;
  ArgList args;
  std::wstring name;
  if (int st = readSql(args, name)) return st;
  engine::ValueArray params;
  database::AnswerBuffer answer;
  engine::ValueArray &result = answer.values();
  if (!database::flattenArguments(args.cursor(), params)) return 2;
  if (c->RunQuery(text::toUtf8(name), params, &result))
    database::returnValueArray(result);
  else
    database::reportEngineError(c);
  return 0;
}

int vt_create_query() {
  acedRetNil();
  EngineConnection c = database::currentConnection();
  if (!c) return 0;
  ArgList args;
  std::wstring name, sql;
  if (int st = readSql(args, name)) return st;
  // Too few arguments means none at all; a missing SQL text is not a string.
  if (!frame::readString(args.cursor(), sql)) return 2;
  if (c->CreateQuery(text::toUtf8(name), text::toUtf8(sql)))
    acedRetT();
  else
    database::reportEngineError(c);
  return 0;
}

}  // namespace vantry::lispfn
