// Record editing on the current table: append, replace, delete.
//
// Every write is one transaction committed before the call returns. The
// counter is the first field when it is the table's INTEGER PRIMARY KEY.
// With AUTOINCREMENT SQLite never hands out a number twice; without it the
// engine numbers above both the table's highest rowid and the last number it
// gave in this connection, so an append always consumes a fresh number even
// when the record before it was deleted again.
#include <algorithm>

#include "sqlite_internal.h"

namespace vantry::engine::sqlite {

namespace {

// The table's column for a field name (names compare without case), or -1.
int columnOf(const TableInfo &t, const std::string &name) {
  std::string want = asciiLower(name);
  for (size_t i = 0; i < t.columns.size(); ++i)
    if (asciiLower(t.columns[i].name) == want) return static_cast<int>(i);
  return -1;
}

bool sameRaw(const RawValue &a, const RawValue &b) {
  if (a.type != b.type) return false;
  switch (a.type) {
    case SQLITE_INTEGER:
      return a.i == b.i;
    case SQLITE_FLOAT:
      return a.d == b.d;
    case SQLITE_NULL:
      return true;
    default:
      return a.s == b.s;
  }
}

}  // namespace

// Turns a record into (column, stored value) pairs; later fields of the same
// name win. False with the error recorded.
static bool mapFields(SqliteEngine *e, const TableInfo &t, const Record &record,
                      std::vector<std::pair<int, RawValue>> *out) {
  for (const Field &f : record) {
    int col = columnOf(t, f.name);
    if (col < 0)
      return e->fail(errc::kItemNotFound, "Item not found in this collection: field '" + f.name + "'.");
    RawValue raw;
    std::string why;
    if (!toRaw(f.value, t.columns[col], &raw, &why)) return e->fail(errc::kConversion, why);
    auto same = std::find_if(out->begin(), out->end(), [&](const auto &p) { return p.first == col; });
    if (same != out->end())
      same->second = std::move(raw);
    else
      out->emplace_back(col, std::move(raw));
  }
  return true;
}

bool SqliteEngine::AppendRecord(const Record &record, bool keepCounter, Record *stored) {
  clearError();
  if (!needWritable() || !needCursor()) return false;
  if (!decimalTriggers_.empty()) guardDecimals();  // another program may have changed the schema
  Cursor *c = current_;
  const TableInfo &t = c->table;
  std::vector<std::pair<int, RawValue>> fields;
  if (!mapFields(this, t, record, &fields)) return false;
  if (t.counter >= 0) {
    auto it = std::find_if(fields.begin(), fields.end(), [&](const auto &p) { return p.first == t.counter; });
    if (it != fields.end() && (!keepCounter || it->second.type == SQLITE_NULL)) fields.erase(it);
  }
  bool numbered =
      t.counter >= 0 && !t.autoincrement &&
      std::none_of(fields.begin(), fields.end(), [&](const auto &p) { return p.first == t.counter; });
  // One write transaction holds the numbering, the insert and the read-back,
  // so the record answered is the record committed, with no second locking.
  if (!txn(Txn::kBeginImmediate)) return false;
  // Records the failure (while SQLite's message is still the failing one),
  // then rolls back, keeping that error.
  auto abandon = [&](int rc) {
    if (rc != SQLITE_OK) {
      try {
        failSqlite(rc);
      } catch (...) {
        txn(Txn::kRollback);
        throw;
      }
    }
    LastError kept = error_;
    txn(Txn::kRollback);
    error_ = kept;
    return false;
  };
  auto cached = [&](const std::string &sql) -> Stmt * {
    auto it = c->seekStmts.find(sql);
    if (it == c->seekStmts.end()) {
      Stmt st = prepare(sql);
      if (!st) return nullptr;
      it = c->seekStmts.emplace(sql, std::move(st)).first;
    }
    return &it->second;
  };
  if (numbered) {
    Stmt *top = cached("SELECT max(" + quoteIdent(t.rowid) + ") FROM " + t.from());
    if (!top) return abandon(SQLITE_OK);
    int rc = sqlite3_step(top->get());
    int64_t highest = rc == SQLITE_ROW ? sqlite3_column_int64(top->get(), 0) : 0;
    top->reset();
    if (rc != SQLITE_ROW) return abandon(rc);
    int64_t next = std::max<int64_t>(highest + 1, 1);
    int64_t &given = nextCounter_[asciiLower(t.name)];
    next = std::max(next, given);
    given = next + 1;
    fields.emplace_back(t.counter, RawValue{SQLITE_INTEGER, next, 0, {}});
  }
  std::string names, marks;
  for (const auto &[col, raw] : fields) {
    names += (names.empty() ? "" : ", ") + quoteIdent(t.columns[col].name);
    marks += marks.empty() ? "?" : ", ?";
  }
  Stmt *ins = cached("INSERT INTO " + t.from() +
                     (fields.empty() ? " DEFAULT VALUES" : " (" + names + ") VALUES (" + marks + ")"));
  if (!ins) return abandon(SQLITE_OK);
  for (size_t i = 0; i < fields.size(); ++i) ins->bind(static_cast<int>(i + 1), fields[i].second);
  int rc = sqlite3_step(ins->get());
  ins->reset();
  if (rc != SQLITE_DONE) return abandon(rc);
  Record row;
  if (!readRow(c, sqlite3_last_insert_rowid(db_), &row)) return abandon(SQLITE_OK);
  if (!txn(Txn::kCommit)) return abandon(SQLITE_OK);
  afterWrite(nullptr);
  if (stored) *stored = std::move(row);
  return true;
}

bool SqliteEngine::DeleteRecord() {
  clearError();
  if (!needWritable() || !needCursor()) return false;
  Cursor *c = current_;
  if (c->where != Cursor::Where::kOn) return fail(errc::kNoCurrentRecord, noCurrentRecordText());
  if (!exec("BEGIN IMMEDIATE")) return false;
  uint32_t before = dataVersion();  // the write transaction has seen every commit so far
  Stmt del =
      prepare("DELETE FROM " + c->table.from() + " WHERE " + quoteIdent(c->table.rowid) + " = ?1");
  int rc = SQLITE_OK;
  if (del) {
    sqlite3_bind_int64(del.get(), 1, c->rowid);
    rc = sqlite3_step(del.get());
  }
  if (!del || rc != SQLITE_DONE) {
    if (del) failSqlite(rc);  // before the rollback replaces SQLite's message
    sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
    return false;
  }
  bool deleted = sqlite3_changes(db_) > 0;
  if (!exec("COMMIT")) {
    sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
    return false;
  }
  bool keep = c->snapValid && before == c->snapVersion;
  if (keep) {
    auto at = c->indexOf.find(c->rowid);
    if (at != c->indexOf.end()) c->gone[at->second] = 1;
  }
  afterWrite(keep ? c : nullptr);
  c->where = Cursor::Where::kGone;
  c->gapIndex.reset();
  if (!deleted) return fail(errc::kNoCurrentRecord, noCurrentRecordText());
  return true;
}

bool SqliteEngine::ReplaceRecord(const Record &record, Record *stored) {
  clearError();
  if (!needWritable() || !needCursor()) return false;
  if (!decimalTriggers_.empty()) guardDecimals();  // another program may have changed the schema
  Cursor *c = current_;
  const TableInfo &t = c->table;
  if (c->where != Cursor::Where::kOn) return fail(errc::kNoCurrentRecord, noCurrentRecordText());
  std::vector<std::pair<int, RawValue>> fields;
  if (!mapFields(this, t, record, &fields)) return false;
  bool moves = false;  // whether the record changes its place in the cursor's order
  std::string sets;
  for (auto it = fields.begin(); it != fields.end();) {
    if (it->first == t.counter) {
      if (it->second.type != SQLITE_INTEGER || it->second.i != c->rowid)
        return fail(errc::kFieldNotUpdatable, "Field '" + t.columns[t.counter].name + "' cannot be updated.");
      it = fields.erase(it);
      continue;
    }
    for (size_t k = 0; k < c->order.size(); ++k)
      if (c->order[k].column == it->first && !sameRaw(c->key[k], it->second)) moves = true;
    sets += (sets.empty() ? "" : ", ") + quoteIdent(t.columns[it->first].name) + " = ?";
    ++it;
  }
  if (fields.empty()) return readRow(c, c->rowid, stored);
  if (!exec("BEGIN IMMEDIATE")) return false;
  uint32_t before = dataVersion();
  Stmt up =
      prepare("UPDATE " + t.from() + " SET " + sets + " WHERE " + quoteIdent(t.rowid) + " = ?");
  int rc = SQLITE_OK;
  if (up) {
    for (size_t i = 0; i < fields.size(); ++i) up.bind(static_cast<int>(i + 1), fields[i].second);
    sqlite3_bind_int64(up.get(), static_cast<int>(fields.size() + 1), c->rowid);
    rc = sqlite3_step(up.get());
  }
  if (!up || rc != SQLITE_DONE) {
    if (up) failSqlite(rc);  // before the rollback replaces SQLite's message
    sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
    return false;
  }
  bool changed = sqlite3_changes(db_) > 0;
  if (!exec("COMMIT")) {
    sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
    return false;
  }
  afterWrite(!moves && c->snapValid && before == c->snapVersion ? c : nullptr);
  if (!changed) return fail(errc::kNoCurrentRecord, noCurrentRecordText());
  return readRow(c, c->rowid, stored);
}

}  // namespace vantry::engine::sqlite
