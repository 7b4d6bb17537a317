// Record editing: vt_append, vt_append_withindex, vt_replace, vt_delete.
// They work on the table open in the current connection. Without one, the
// engine call fails as a call through an empty interface pointer does: an
// engine error with E_POINTER that the call frame leaves to the host.
#include "database/context.h"
#include "database/values.h"
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

// The counter: the value of a record's first field, as a number.
double counterOf(const engine::Record &r) {
  if (r.empty()) return 0;
  const engine::Value &v = r.front().value;
  if (v.type() == engine::ValueType::kInteger) return v.asInteger();
  if (v.type() == engine::ValueType::kReal) return v.asReal();
  return 0;
}

}  // namespace

int vt_append() {
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

int vt_append_withindex() {
  acedRetNil();
  ArgList args;
  resbuf *cur = args.cursor();
  int target;
  if (!frame::isNumber(cur) || !frame::readInteger(cur, target)) return 2;
  const wchar_t *message = nullptr;
  engine::Record record;
  if (database::readRecord(cur, record)) {
    EngineConnection c = requireConnection();
    engine::Record last;
    double lastCounter = c->MoveLast(&last) ? counterOf(last) : 0;
    if (target < lastCounter) {
      message = kUnableToMatch;
    } else {
      // Each append consumes one counter value, so appending and deleting
      // climbs to the target; a record with another counter never stays.
      for (;;) {
        engine::Record stored;
        if (!c->AppendRecord(record, false, &stored)) {
          database::reportEngineError(c);
          break;
        }
        double v = counterOf(stored);
        if (v == target) {
          database::returnRecord(stored);
          break;
        }
        bool past = v > target;
        if (past) message = kUnableToMatch;
        if (!c->DeleteRecord()) {
          message = kFailedToDelete;
          break;
        }
        if (past) break;
      }
    }
  }
  if (message) acedRetStr(message);
  return 0;
}

int vt_replace() {
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

int vt_delete() {
  acedRetNil();
  EngineConnection c = requireConnection();
  if (c->DeleteRecord())
    acedRetT();
  else
    database::reportEngineError(c);
  return 0;
}

}  // namespace vantry::lispfn
