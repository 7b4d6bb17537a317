// Record editing on the current table: append, replace, delete.
//
// Every write is one transaction committed before the call returns. The
// counter is the first field when it is the table's INTEGER PRIMARY KEY.
// With AUTOINCREMENT SQLite never hands out a number twice; without it the
// engine numbers above both the table's highest rowid and the last number it
// gave in this connection, so an append always consumes a fresh number even
// when the record before it was deleted again.
#include <algorithm>
#include <cmath>

#include "schema_rules.h"
#include "sqlite_internal.h"

namespace vantry::engine::sqlite {

namespace {

// The table's column for a field name (names compare without case, in
// ASCII, as SQLite's do), or -1. `hint` is tried first: records of one
// program give their fields in the table's order.
int columnOf(const TableInfo &t, const std::string &name, size_t hint) {
  if (hint < t.columns.size() && sameName(t.columns[hint].name, name)) return static_cast<int>(hint);
  for (size_t i = 0; i < t.columns.size(); ++i)
    if (sameName(t.columns[i].name, name)) return static_cast<int>(i);
  return -1;
}

// Whether SQLite stores `v` in a field of `affinity` exactly as it is bound,
// so that the stored record can be told without reading it back. Anything
// that the field's affinity could turn into another type (a text that might
// read as a number, a whole real in an integer field, a number in a text
// field) is not; nor is a null, which a NOT NULL ... ON CONFLICT REPLACE
// field would replace by its default.
bool storedAsBound(const RawValue &v, Affinity affinity) {
  switch (v.type) {
    case SQLITE_INTEGER:
      return affinity == Affinity::kInteger || affinity == Affinity::kNumeric || affinity == Affinity::kBlob;
    case SQLITE_FLOAT:
      // SQLite stores a NaN as null, and may keep a whole real as an
      // integer on disk, which reads back without the sign of a -0.0.
      if (std::isnan(v.d) || (v.d == 0 && std::signbit(v.d))) return false;
      if (affinity == Affinity::kReal || affinity == Affinity::kBlob) return true;
      if (affinity == Affinity::kText) return false;
      return std::isfinite(v.d) && v.d != std::floor(v.d);  // a fraction stays a real
    case SQLITE_TEXT:
      if (affinity == Affinity::kText || affinity == Affinity::kBlob) return true;
      // A numeric field turns a text that reads as a number into one: a text
      // with any character that no number has is kept as text.
      return v.s.find_first_not_of(" \t\n\f\r\v+-.0123456789eE") != std::string::npos;
    case SQLITE_BLOB:
      return true;
    default:
      return false;
  }
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
  out->reserve(record.size() + 1);
  for (const Field &f : record) {
    int col = columnOf(t, f.name, out->empty() ? 0 : static_cast<size_t>(out->back().first) + 1);
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
  // The record as stored is the record as bound when every field is given a
  // value that its affinity keeps as it is (no default filled in, nothing
  // converted) and no trigger changes a row; then nothing is read back.
  std::vector<const RawValue *> byColumn(t.columns.size(), nullptr);
  for (const auto &[col, raw] : fields) byColumn[col] = &raw;
  bool known = !c->appendReadsBack &&
               sqlite3_column_count(c->fetch.get()) == static_cast<int>(t.columns.size()) + 1;
  for (size_t i = 0; known && i < t.columns.size(); ++i) {
    if (static_cast<int>(i) == t.counter && !byColumn[i]) continue;  // the rowid
    known = byColumn[i] && storedAsBound(*byColumn[i], t.columns[i].affinity);
  }
  // A numbering or a read-back shares one write transaction with the
  // insert, so the record answered is the record committed; a plain insert
  // is one statement in its own transaction.
  const bool ownTxn = numbered || !known;
  if (ownTxn && !txn(Txn::kBeginImmediate)) return false;
  // Records the failure (while SQLite's message is still the failing one),
  // then rolls back, keeping that error.
  auto abandon = [&](int rc) {
    if (!ownTxn) {  // SQLite rolled the statement back itself
      if (rc != SQLITE_OK) failSqlite(rc);
      return false;
    }
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
  if (numbered) {
    auto it = c->seekStmts.find("?max");  // "?max" cannot begin an SQL text
    if (it == c->seekStmts.end()) {
      Stmt st = prepare("SELECT max(" + quoteIdent(t.rowid) + ") FROM " + t.from());
      if (!st) return abandon(SQLITE_OK);
      it = c->seekStmts.emplace("?max", std::move(st)).first;
    }
    Stmt *top = &it->second;
    int rc = sqlite3_step(top->get());
    int64_t highest = rc == SQLITE_ROW ? sqlite3_column_int64(top->get(), 0) : 0;
    top->reset();
    if (rc != SQLITE_ROW) return abandon(rc);
    int64_t next = std::max<int64_t>(highest + 1, 1);
    int64_t &given = nextCounter_[asciiLower(t.name)];
    next = std::max(next, given);
    given = next + 1;
    fields.emplace_back(t.counter, RawValue{SQLITE_INTEGER, next, 0, {}});
    byColumn.assign(t.columns.size(), nullptr);  // `fields` may have moved
    for (const auto &[col, raw] : fields) byColumn[col] = &raw;
  }
  // The statement is kept under the fields it sets, in their order ("?ins:"
  // cannot begin an SQL text), so its text is made once per shape.
  std::string shape = "?ins:";
  for (const auto &field : fields) {
    if (field.first < 255) {
      shape += static_cast<char>(field.first + 1);  // one byte a field, never 0
    } else {
      shape += '\0';
      shape += std::to_string(field.first) + ',';
    }
  }
  auto it = c->seekStmts.find(shape);
  if (it == c->seekStmts.end()) {
    std::string names, marks;
    for (const auto &[col, raw] : fields) {
      names += (names.empty() ? "" : ", ") + quoteIdent(t.columns[col].name);
      marks += marks.empty() ? "?" : ", ?";
    }
    Stmt st = prepare("INSERT INTO " + t.from() +
                      (fields.empty() ? " DEFAULT VALUES" : " (" + names + ") VALUES (" + marks + ")"));
    if (!st) return abandon(SQLITE_OK);
    it = c->seekStmts.emplace(shape, std::move(st)).first;
  }
  Stmt *ins = &it->second;
  // Texts are bound in place: `fields` outlives the step, and the reset
  // after it unbinds them.
  for (size_t i = 0; i < fields.size(); ++i) {
    const RawValue &v = fields[i].second;
    if (v.type == SQLITE_TEXT)
      sqlite3_bind_text(ins->get(), static_cast<int>(i + 1), v.s.data(), static_cast<int>(v.s.size()), SQLITE_STATIC);
    else
      ins->bind(static_cast<int>(i + 1), v);
  }
  const int64_t changesBefore = sqlite3_total_changes64(db_);
  int rc = sqlite3_step(ins->get());
  ins->reset();
  if (rc != SQLITE_DONE) return abandon(rc);
  const int64_t rowid = sqlite3_last_insert_rowid(db_);
  // SQLite counts the rows that triggers change with the insert's own.
  if (known && sqlite3_total_changes64(db_) - changesBefore != 1) {
    known = false;
    c->appendReadsBack = true;  // from now on in the insert's transaction
  }
  Record row;
  if (!known) {
    bool read = readRow(c, rowid, &row);
    if (!ownTxn) {  // committed already (found out only now, once per table)
      afterWrite(nullptr);
      if (read && stored) *stored = std::move(row);
      return read;
    }
    if (!read) return abandon(SQLITE_OK);
  } else if (stored) {
    row.reserve(t.columns.size());
    for (size_t i = 0; i < t.columns.size(); ++i) {
      RawValue raw = byColumn[i] ? *byColumn[i] : RawValue{SQLITE_INTEGER, rowid, 0, {}};
      row.push_back(Field{t.columns[i].name, fromRaw(std::move(raw), t.columns[i].kind)});
    }
  }
  if (ownTxn && !txn(Txn::kCommit)) return abandon(SQLITE_OK);
  if (known) {  // the new record becomes current, as readRow makes it
    c->rowid = rowid;
    c->where = Cursor::Where::kOn;
    c->gapIndex.reset();
    c->key.resize(c->order.size());
    for (size_t i = 0; i < c->order.size(); ++i) {
      const RawValue *raw = byColumn[c->order[i].column];
      c->key[i] = raw ? *raw : RawValue{SQLITE_INTEGER, rowid, 0, {}};
    }
  }
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
    if (std::optional<size_t> at = snapshotPlace(*c, c->rowid)) c->gone[*at] = 1;
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
