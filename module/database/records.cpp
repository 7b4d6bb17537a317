// Record editing: vt_append, vt_append_withindex, vt_replace, vt_delete.
// They work on the table open in the current connection. Without one, the
// engine call fails as a call through an empty interface pointer does, with
// an engine error carrying E_POINTER; each function catches it itself
// (catchEngineError), so the call ends with nil and the frame unlocks.
#include <cmath>
#include <optional>

#include "database/context.h"
#include "database/values.h"
#include "frame/function_table.h"
#include "frame/implementations.h"
#include "frame/value_list.h"

namespace vantry::lispfn {
namespace {

using database::EngineConnection;
using frame::ArgList;

const wchar_t kUnableToMatch[] = L"error - unable to match index";
const wchar_t kFailedToDelete[] = L"error - failed to delete record";

EngineConnection requireConnection() {
  EngineConnection c = database::currentConnection();
  if (!c) throw engine::EngineError(engine::hr::kPointer, "no database is open");
  return c;
}

// The counter: the value of a record's first field, when it is a number.
std::optional<double> counterOf(const engine::Record &r) {
  if (r.empty()) return std::nullopt;
  const engine::Value &v = r.front().value;
  if (v.type() == engine::ValueType::kInteger) return v.asInteger();
  if (v.type() == engine::ValueType::kReal) return v.asReal();
  return std::nullopt;
}

// Counters cross the engine's interface as 32-bit integers.
constexpr double kLargestCounter = 2147483647.0;

int vt_appendBody() {
  acedRetNil();
  ArgList args;
  resbuf *cur = args.cursor();
  bool keepCounter = frame::isNumber(cur);
  if (keepCounter) cur = cur->rbnext;
  engine::Record record;
  if (!database::readRecord(cur, record)) return 0;
  EngineConnection c = requireConnection();
  engine::Record stored;
  if (c->AppendRecord(record, keepCounter, &stored))
    database::returnRecord(stored);
  else
    database::reportEngineError(c);
  return 0;
}

int vt_append_withindexBody() {
  acedRetNil();
  ArgList args;
  resbuf *cur = args.cursor();
  int target;
  if (!frame::isNumber(cur)) return 2;
  // A real beyond the counters' range would be read as the largest counter
  // and climbed to for ever; no counter can match it.
  bool beyondRange = cur->restype == RTREAL && std::abs(cur->resval.rreal) > kLargestCounter;
  if (!frame::readInteger(cur, target)) return 2;
  const wchar_t *message = nullptr;
  engine::Record record;
  if (database::readRecord(cur, record)) {
    EngineConnection c = requireConnection();
    engine::Record last;
    std::optional<double> previous = c->MoveLast(&last) ? counterOf(last) : std::optional<double>(0);
    if (beyondRange || !previous || target < *previous) {
      message = kUnableToMatch;
    } else {
      // Each append consumes one counter value, so appending and deleting
      // climbs to the target; a record with another counter never stays.
      // The climb needs a counter that the engine numbers: a first field
      // that is not a number, or does not grow from one append to the next,
      // can never reach the target, and the loop would not end.
      for (;;) {
        engine::Record stored;
        if (!c->AppendRecord(record, false, &stored)) {
          database::reportEngineError(c);
          break;
        }
        std::optional<double> v = counterOf(stored);
        if (v && *v == target) {
          database::returnRecord(stored);
          break;
        }
        bool stop = !v || *v > target || *v <= *previous;
        if (stop) message = kUnableToMatch;
        if (!c->DeleteRecord()) {
          message = kFailedToDelete;
          break;
        }
        if (stop) break;
        // A long climb stops at the person's Esc, the table as it was.
        if (acedUsrBrk()) {
          frame::cancelCall();
          break;
        }
        previous = v;
      }
    }
  }
  if (message) acedRetStr(message);
  return 0;
}

int vt_replaceBody() {
  acedRetNil();
  ArgList args;
  engine::Record record;
  if (!database::readRecord(args.cursor(), record)) return 0;
  EngineConnection c = requireConnection();
  engine::Record stored;
  if (c->ReplaceRecord(record, &stored))
    database::returnRecord(stored);
  else
    database::reportEngineError(c);
  return 0;
}

int vt_deleteBody() {
  acedRetNil();
  EngineConnection c = requireConnection();
  if (c->DeleteRecord())
    acedRetT();
  else
    database::reportEngineError(c);
  return 0;
}

}  // namespace

int vt_append() {
  return database::catchEngineError(vt_appendBody);
}
int vt_append_withindex() {
  return database::catchEngineError(vt_append_withindexBody);
}
int vt_replace() {
  return database::catchEngineError(vt_replaceBody);
}
int vt_delete() {
  return database::catchEngineError(vt_deleteBody);
}

}  // namespace vantry::lispfn
