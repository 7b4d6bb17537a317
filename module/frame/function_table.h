// The module's LISP function registry and the call frame around every call.
//
// A FunctionTable is an ordered, constant array of rows (LISP name, entry
// routine). A function's code is its row index plus the table's base: the
// database table has codes 0 to 62, the drawing table 63 to 173. The host
// calls a row's entry routine when LISP calls the name; the entry runs the
// implementation inside the call frame.
//
// An implementation takes no parameters (it reads its arguments from the
// host) and returns a status: 0 done, 1 too few arguments, 2 wrong type of
// arguments, 3 bad data, 4 failure already reported; any other value counts
// as done.
#pragma once

#include "host/arx.h"

namespace vantry::frame {

using Implementation = int (*)();

struct FunctionRow {
  const ACHAR *name;
  int (*entry)();
};

constexpr int kDatabaseCount = 63;
constexpr int kDrawingCount = 111;
constexpr int kDatabaseBase = 0;
constexpr int kDrawingBase = 63;
extern const FunctionRow kDatabaseFunctions[kDatabaseCount];
extern const FunctionRow kDrawingFunctions[kDrawingCount];

// Defines every row with the host (acedDefun then acedRegFunc, code = index
// + base). Host results are ignored: one failing row does not stop the rest.
void registerFunctions(const FunctionRow *table, int count, int base);
// Drops every row's handler, then its definition.
void unregisterFunctions(const FunctionRow *table, int count, int base);
// The LISP name of a function code, or null.
const ACHAR *functionName(int code);

// Runs an implementation as the host expects: the current document locked
// for writing around it, its status turned into RSRSLT or RSERR with the
// status's message. Exceptions are not caught here. A call that stopped for
// the person's interrupt (cancelCall) answers RTCAN whatever its status: the
// host cancels the LISP that called it, as Esc does.
int callFrame(Implementation impl);

// Tells the running call that it stopped for the person's interrupt (a long
// call that saw acedUsrBrk answer 1 and left its work consistent).
void cancelCall();

// Runs the database layer's per-call check (database/context.cpp).
void checkDatabaseBeforeCall();

template <Implementation Impl>
int drawingEntry() {
  return callFrame(Impl);
}

template <Implementation Impl>
int databaseEntry() {
  checkDatabaseBeforeCall();
  return callFrame(Impl);
}

// The implementation of every row not built yet: prints
// "\n<name> is not available in this build.\n" and returns 4.
int notAvailable();

}  // namespace vantry::frame
