// Table cursors and navigation: vt_table, vt_current_table,
// vt_current_index, vt_top, vt_bottom, vt_skip, vt_getrec, vt_seek, vt_count,
// vt_close_table, vt_closeall_tables. The cursor lives in the engine; every
// function works on the current connection and answers nil without one.
#include <array>

#include "database/context.h"
#include "database/values.h"
#include "frame/implementations.h"
#include "common/text.h"
#include "frame/value_list.h"

namespace vantry::lispfn {
namespace {

using database::EngineConnection;
using frame::ArgList;

// A record from a positioning call, or the engine's error.
int answerRecord(const EngineConnection &c, bool found, const engine::Record &record) {
  if (found)
    database::returnRecord(record);
  else
    database::reportEngineError(c);
  return 0;
}

template <class Move>
int positioning(Move move) {
  acedRetNil();
  EngineConnection c = database::currentConnection();
  if (!c) return 0;
  engine::Record record;
  bool found = move(*c, &record);
  return answerRecord(c, found, record);
}

}  // namespace

int vt_table() {
  acedRetNil();
  EngineConnection c = database::currentConnection();
  if (!c) return 0;
  ArgList args;
  resbuf *first = args.cursor();
  if (!first) return 1;
  resbuf *second = first->rbnext;
  // Refused only when no argument is a string: a first argument that is not
  // one passes when a string index name follows it, and a second that is not
  // one passes behind a string table name. An argument that is not a string
  // gives the empty name, so the engine answers for it (no table of that
  // name; the table's own order for the index).
  bool firstText = first->restype == RTSTR, secondText = second && second->restype == RTSTR;
  if (!firstText && !secondText) return 2;
  std::wstring table, index;
  if (firstText) frame::readString(first, table);
  if (secondText) frame::readString(second, index);
  if (c->OpenTable(text::toUtf8(table), text::toUtf8(index)))
    acedRetStr(table.c_str());
  else
    database::reportEngineError(c);
  return 0;
}

int vt_current_table() {
  acedRetNil();
  EngineConnection c = database::currentConnection();
  if (c) acedRetStr(text::fromUtf8(c->CurrentTable()).c_str());
  return 0;
}

int vt_current_index() {
  acedRetNil();
  EngineConnection c = database::currentConnection();
  if (c) acedRetStr(text::fromUtf8(c->CurrentIndex()).c_str());
  return 0;
}

int vt_top() {
  return positioning([](engine::Engine &e, engine::Record *r) { return e.MoveFirst(r); });
}
int vt_bottom() {
  return positioning([](engine::Engine &e, engine::Record *r) { return e.MoveLast(r); });
}
int vt_getrec() {
  return positioning([](engine::Engine &e, engine::Record *r) { return e.GetRecord(r); });
}

int vt_skip() {
  acedRetNil();
  EngineConnection c = database::currentConnection();
  if (!c) return 0;
  ArgList args;
  int count = 1;
  if (args.cursor() && !frame::readInteger(args.cursor(), count)) return 2;
  engine::Record record;
  bool found = c->Skip(count, &record);
  return answerRecord(c, found, record);
}

int vt_seek() {
  acedRetNil();
  EngineConnection c = database::currentConnection();
  if (!c) return 0;
  ArgList args;
  resbuf *cur = args.cursor();
  if (!cur) return 1;
  engine::Record record;
  bool found;
  if (cur->restype == RT3DPOINT) {
    found = c->SeekPoint3(cur->resval.rpoint[0], cur->resval.rpoint[1], cur->resval.rpoint[2], &record);
  } else if (cur->restype == RTPOINT) {
    found = c->SeekPoint2(cur->resval.rpoint[0], cur->resval.rpoint[1], &record);
  } else if (cur->restype == RTLB || cur->rbnext) {
    // Several keys: the elements of the list, or the arguments in order; ten at most.
    std::array<engine::Value, 10> keys;
    bool inList = cur->restype == RTLB;
    resbuf *p = inList ? cur->rbnext : cur;
    for (int n = 0; p && n < 10; p = p->rbnext, ++n) {
      if (inList && p->restype == RTLE) break;
      if (!database::toEngineValue(p, keys[n])) return 2;
    }
    found = c->SeekValues(keys, &record);
  } else if (cur->restype == RTNIL) {
    return 0;
  } else {
    engine::Value key;
    if (!database::toEngineValue(cur, key)) return 2;
    found = c->SeekValue(key, &record);
  }
  return answerRecord(c, found, record);
}

int vt_count() {
  acedRetNil();
  EngineConnection c = database::currentConnection();
  if (!c) return 0;
  int32_t count = 0;
  if (c->RecordCount(&count))
    database::returnCount(count);
  else
    database::reportEngineError(c);
  return 0;
}

int vt_close_table() {
  acedRetNil();
  EngineConnection c = database::currentConnection();
  if (c && !c->CloseTable()) database::reportEngineError(c);
  return 0;
}

int vt_closeall_tables() {
  acedRetNil();
  EngineConnection c = database::currentConnection();
  if (c && !c->CloseAllTables()) database::reportEngineError(c);
  return 0;
}

}  // namespace vantry::lispfn
