// Table cursors: opening a table by an index, moving through it, seeking.
//
// A cursor's order is that of its index (column, collation, direction, as
// SQLite keeps them), then rowid, so that every record has one place. First,
// last and seeks are single indexed queries. Skip works on a snapshot of the
// table's rowids in that order (see Cursor); nothing is held open between
// calls, so no lock outlives a call.
#include <strings.h>

#include <cctype>
#include <algorithm>

#include "sqlite_internal.h"

namespace vantry::engine::sqlite {

namespace {

std::string text(sqlite3_stmt *st, int col) {
  const unsigned char *p = sqlite3_column_text(st, col);
  return p ? reinterpret_cast<const char *>(p) : std::string();
}

// "rows strictly before (key, rowid)" in the cursor's order, with ?i the
// value of term i (1-based) and ?(terms + 1) the rowid. NULL sorts first, as
// in SQLite's indexes.
std::string beforeExpr(const Cursor &c) {
  std::string out, eqs;
  for (size_t i = 0; i < c.order.size(); ++i) {
    const OrderTerm &t = c.order[i];
    std::string col = quoteIdent(c.table.columns[t.column].name);
    std::string val = "?" + std::to_string(i + 1) + " COLLATE " + t.collation;
    bool null = c.key[i].type == SQLITE_NULL;
    std::string less;
    if (!t.desc)
      less = null ? "0" : "(" + col + " IS NULL OR " + col + " < " + val + ")";
    else
      less = null ? col + " IS NOT NULL" : col + " > " + val;
    out += (out.empty() ? "(" : " OR (") + eqs + less + ")";
    eqs += null ? col + " IS NULL AND " : col + " = " + val + " AND ";
  }
  return out + (out.empty() ? "(" : " OR (") + eqs + quoteIdent(c.table.rowid) + " < ?" +
         std::to_string(c.order.size() + 1) + ")";
}

}  // namespace

bool SqliteEngine::openCursorOrder(Cursor *c, const std::string &index) {
  const std::string &t = c->table.source;
  Stmt list = prepare(c->table.pragma("index_list", t));
  if (!list) return false;
  std::string pkIndex, chosen;
  bool wantPk = index.empty() || asciiLower(index) == "primarykey";
  while (sqlite3_step(list.get()) == SQLITE_ROW) {
    std::string name = text(list.get(), 1);
    if (text(list.get(), 3) == "pk") pkIndex = name;
    // An index imported from Access whose name another table's index took
    // is named "table.index" (index names are per table there).
    if (!wantPk && (asciiLower(name) == asciiLower(index) || asciiLower(name) == asciiLower(t + "." + index)))
      chosen = name;
  }
  if (wantPk) {
    chosen = pkIndex;  // empty: the primary key is the rowid, or there is none
    if (chosen.empty() && !index.empty() && !c->table.hasPrimaryKey)
      return fail(errc::kNotAnIndex, "'" + index + "' isn't an index in this table.");
  } else if (chosen.empty()) {
    return fail(errc::kNotAnIndex, "'" + index + "' isn't an index in this table.");
  }
  if (!chosen.empty()) {
    Stmt info = prepare(c->table.pragma("index_xinfo", chosen));
    if (!info) return false;
    while (sqlite3_step(info.get()) == SQLITE_ROW) {
      if (sqlite3_column_int(info.get(), 5) == 0) continue;  // not a key column
      int cid = sqlite3_column_int(info.get(), 1);
      if (cid < 0 || cid >= static_cast<int>(c->table.columns.size()))
        return fail(errc::kNotSupported, "Index '" + chosen +
                                             "' orders by an expression; it cannot be "
                                             "used as a table's index.");
      c->order.push_back({cid, text(info.get(), 4), sqlite3_column_int(info.get(), 3) != 0});
    }
  }
  for (const OrderTerm &o : c->order) {
    std::string term = quoteIdent(c->table.columns[o.column].name) + " COLLATE " + o.collation;
    c->orderBy += term + (o.desc ? " DESC, " : ", ");
    c->orderByReverse += term + (o.desc ? ", " : " DESC, ");
  }
  c->orderBy += quoteIdent(c->table.rowid);
  c->orderByReverse += quoteIdent(c->table.rowid) + " DESC";
  return true;
}

bool SqliteEngine::OpenTable(const std::string &table, const std::string &index) {
  clearError();
  if (!needDatabase()) return false;
  auto c = std::make_unique<Cursor>();
  if (!loadTable(table, &c->table) || !openCursorOrder(c.get(), index)) return false;
  c->indexName = index;
  c->fetch = prepare("SELECT " + quoteIdent(c->table.rowid) + ", * FROM " + c->table.from() +
                     " WHERE " + quoteIdent(c->table.rowid) + " = ?1");
  if (!c->fetch) return false;
  Cursor *raw = c.get();
  cursors_[asciiLower(c->table.name)] = std::move(c);
  current_ = raw;
  Record first;
  if (!firstInOrder(raw, false, &first)) {
    if (error_.number != errc::kNoCurrentRecord) return false;
    clearError();  // an empty table opens with no current record
  }
  return true;
}

void SqliteEngine::takeRow(Cursor *c, sqlite3_stmt *st, Record *out) {
  const std::vector<ColumnInfo> &cols = c->table.columns;
  c->rowid = sqlite3_column_int64(st, 0);
  c->where = Cursor::Where::kOn;
  c->gapIndex.reset();
  c->key.resize(c->order.size());
  for (size_t i = 0; i < c->order.size(); ++i) c->key[i] = RawValue::column(st, 1 + c->order[i].column);
  if (!out) return;
  out->clear();
  out->reserve(cols.size());
  int n = std::min(static_cast<int>(cols.size()), sqlite3_column_count(st) - 1);
  for (int i = 0; i < n; ++i) out->push_back(Field{cols[i].name, columnValue(st, i + 1, cols[i].kind)});
}

bool SqliteEngine::readRow(Cursor *c, int64_t rowid, Record *out) {
  sqlite3_stmt *st = c->fetch.get();
  sqlite3_bind_int64(st, 1, rowid);
  int rc = sqlite3_step(st);
  if (rc == SQLITE_ROW) takeRow(c, st, out);
  sqlite3_reset(st);
  if (rc == SQLITE_ROW) return true;
  if (rc == SQLITE_DONE) return fail(errc::kNoCurrentRecord, noCurrentRecordText());
  return failSqlite(rc);
}

bool SqliteEngine::firstInOrder(Cursor *c, bool last, Record *out) {
  std::string sql = "SELECT " + quoteIdent(c->table.rowid) + ", * FROM " + c->table.from() +
                    " ORDER BY " + (last ? c->orderByReverse : c->orderBy) + " LIMIT 1";
  auto it = c->seekStmts.find(sql);
  if (it == c->seekStmts.end()) {
    Stmt st = prepare(sql);
    if (!st) return false;
    it = c->seekStmts.emplace(sql, std::move(st)).first;
  }
  sqlite3_stmt *st = it->second.get();
  int rc = sqlite3_step(st);
  if (rc == SQLITE_ROW) takeRow(c, st, out);
  sqlite3_reset(st);
  if (rc == SQLITE_ROW) return true;
  if (rc != SQLITE_DONE) return failSqlite(rc);
  c->where = last ? Cursor::Where::kEof : Cursor::Where::kBof;
  return fail(errc::kNoCurrentRecord, noCurrentRecordText());
}

bool SqliteEngine::MoveFirst(Record *out) {
  clearError();
  return needCursor() && firstInOrder(current_, false, out);
}

bool SqliteEngine::MoveLast(Record *out) {
  clearError();
  return needCursor() && firstInOrder(current_, true, out);
}

bool SqliteEngine::GetRecord(Record *out) {
  clearError();
  if (!needCursor()) return false;
  if (current_->where != Cursor::Where::kOn) return fail(errc::kNoCurrentRecord, noCurrentRecordText());
  return readRow(current_, current_->rowid, out);
}

std::optional<size_t> snapshotPlace(const Cursor &c, int64_t rowid) {
  if (c.order.empty()) {
    auto it = std::lower_bound(c.rows.begin(), c.rows.end(), rowid);
    if (it == c.rows.end() || *it != rowid) return std::nullopt;
    return static_cast<size_t>(it - c.rows.begin());
  }
  auto it = c.indexOf.find(rowid);
  if (it == c.indexOf.end()) return std::nullopt;
  return it->second;
}

bool SqliteEngine::buildSnapshot(Cursor *c) {
  Stmt st = prepare("SELECT " + quoteIdent(c->table.rowid) + " FROM " + c->table.from() +
                    " ORDER BY " + c->orderBy);
  if (!st) return false;
  c->rows.clear();
  c->indexOf.clear();
  // In rowid order the snapshot is sorted and is searched as it stands; an
  // index order keeps a map from rowid to place.
  const bool byRowid = c->order.empty();
  int rc;
  while ((rc = sqlite3_step(st.get())) == SQLITE_ROW) {
    int64_t id = sqlite3_column_int64(st.get(), 0);
    if (!byRowid) c->indexOf.emplace(id, c->rows.size());
    c->rows.push_back(id);
  }
  if (rc != SQLITE_DONE) return failSqlite(rc);
  c->gone.assign(c->rows.size(), 0);
  c->snapValid = true;
  c->snapVersion = dataVersion();
  return true;
}

// The cursor's place in a valid snapshot: on (or at the tombstone of) a row,
// or `gap` before rows[index] when its row is no longer in the snapshot.
bool SqliteEngine::locate(Cursor *c, size_t *index, bool *gap) {
  *gap = false;
  if (c->where == Cursor::Where::kGone && c->gapIndex) {
    *index = *c->gapIndex;
    *gap = true;
    return true;
  }
  if (std::optional<size_t> at = snapshotPlace(*c, c->rowid)) {
    *index = *at;
    return true;
  }
  // Deleted since: count the rows that sort before where it was.
  Stmt st = prepare("SELECT count(*) FROM " + c->table.from() + " WHERE " + beforeExpr(*c));
  if (!st) return false;
  for (size_t i = 0; i < c->order.size(); ++i) st.bind(static_cast<int>(i + 1), c->key[i]);
  sqlite3_bind_int64(st.get(), static_cast<int>(c->order.size() + 1), c->rowid);
  int rc = sqlite3_step(st.get());
  if (rc != SQLITE_ROW) return failSqlite(rc);
  *index = static_cast<size_t>(sqlite3_column_int64(st.get(), 0));
  *gap = true;
  return true;
}

bool SqliteEngine::Skip(int32_t count, Record *out) {
  clearError();
  if (!needCursor()) return false;
  Cursor *c = current_;
  if (count == 0) return GetRecord(out);
  const Cursor::Where where0 = c->where;
  const int64_t rowid0 = c->rowid;
  const std::optional<size_t> gap0 = c->gapIndex;
  // The cursor's key changes only when a block is read, so it is kept for a
  // retry only then: most steps are served from the block already read, and
  // a copy of the key per step cost more than the step.
  std::optional<std::vector<RawValue>> key0;
  for (int attempt = 0; attempt < 2; ++attempt) {
    bool fresh = !c->snapValid;
    if (fresh && !buildSnapshot(c)) return false;
    c->where = where0, c->rowid = rowid0, c->gapIndex = gap0;
    if (key0) c->key = *key0;
    const long n = static_cast<long>(c->rows.size());
    long step = count > 0 ? 1 : -1;
    long i;
    if (where0 == Cursor::Where::kBof) {
      if (step < 0) return fail(errc::kNoCurrentRecord, noCurrentRecordText());
      i = 0;
    } else if (where0 == Cursor::Where::kEof) {
      if (step > 0) return fail(errc::kNoCurrentRecord, noCurrentRecordText());
      i = n - 1;
    } else {
      size_t at = 0;
      bool gap = false;
      if (!locate(c, &at, &gap)) return false;
      i = static_cast<long>(at) + (gap ? (step > 0 ? 0 : -1) : step);
    }
    long need = count > 0 ? count : -static_cast<long>(count);
    for (; i >= 0 && i < n; i += step)
      if (!c->gone[i] && --need == 0) break;
    if (i < 0 || i >= n) {
      if (!fresh && dataVersion() != c->snapVersion) {
        c->snapValid = false;  // the table changed: count again on a fresh snapshot
        continue;
      }
      c->where = step > 0 ? Cursor::Where::kEof : Cursor::Where::kBof;
      return fail(errc::kNoCurrentRecord, noCurrentRecordText());
    }
    size_t at = static_cast<size_t>(i);
    ChangeStamp stamp;
    if (!c->block.empty() && at >= c->blockStart && at - c->blockStart < c->block.size() &&
        c->blockRowids[at - c->blockStart] == c->rows[at] && changeStamp(&stamp) && stamp == c->blockStamp) {
      size_t k = at - c->blockStart;
      c->where = Cursor::Where::kOn;
      c->gapIndex.reset();
      c->rowid = c->rows[at];
      c->key = std::move(c->blockKeys[k]);
      c->blockRowids[k] = INT64_MIN;  // served: moved out below
      if (out) *out = std::move(c->block[k]);
      return true;
    }
    if (!key0) key0 = c->key;
    int got = readBlock(c, i, step, fresh, out);
    if (got != 0) return got > 0;
  }
  return fail(errc::kNoCurrentRecord, noCurrentRecordText());
}

int SqliteEngine::readBlock(Cursor *c, long i, long step, bool fresh, Record *out) {
  constexpr long kAhead = 256;
  ChangeStamp stamp{};
  bool keep = changeStamp(&stamp);  // before reading: a later change shows as a new stamp
  c->block.clear();
  c->blockKeys.clear();
  c->blockRowids.clear();
  if (!txn(Txn::kBegin)) return -1;
  auto end = [&](int result) {
    LastError kept = error_;
    txn(Txn::kCommit);  // a read: nothing to lose if it fails
    error_ = kept;
    return result;
  };
  Record rec;
  if (!readRow(c, c->rows[i], &rec)) {
    if (fresh || error_.number != errc::kNoCurrentRecord) return end(-1);
    clearError();
    c->snapValid = false;
    return end(0);
  }
  // The read began the transaction, so the data version is current now.
  if (!fresh && dataVersion() != c->snapVersion) {
    c->snapValid = false;
    return end(0);
  }
  const int64_t rowid = c->rowid;
  const std::vector<RawValue> key = c->key;
  long n = static_cast<long>(c->rows.size());
  long lo = step > 0 ? i : std::max(0L, i - kAhead + 1), hi = step > 0 ? std::min(n, i + kAhead) : i + 1;
  bool whole = keep && (c->order.empty() ? readRange(c, lo, hi) : readRows(c, lo, hi, i));
  if (!whole) {
    c->block.clear();
    c->blockKeys.clear();
    c->blockRowids.clear();
  } else {
    // The record made current now is served from `rec`, not from the block.
    c->blockRowids[i - lo] = INT64_MIN;
    c->block[i - lo].clear();
  }
  c->blockStart = static_cast<size_t>(lo);
  c->blockStamp = stamp;
  c->where = Cursor::Where::kOn;
  c->gapIndex.reset();
  c->rowid = rowid;
  c->key = key;
  if (out) *out = std::move(rec);
  return end(1);
}

// Block rows [lo, hi) one by one (orders by an index). Tombstones take a place
// that is never served.
bool SqliteEngine::readRows(Cursor *c, long lo, long hi, long current) {
  for (long k = lo; k < hi; ++k) {
    Record r;
    if (c->gone[k] || k == current) {
      c->rowid = INT64_MIN;
    } else if (!readRow(c, c->rows[k], &r)) {
      clearError();
      return false;
    }
    c->block.push_back(std::move(r));
    c->blockKeys.push_back(c->key);
    c->blockRowids.push_back(c->rowid);
  }
  return true;
}

// Block rows [lo, hi) in rowid order with one range query. The snapshot is
// current (checked in this transaction), so the table's rows in the range are
// the snapshot's, less its tombstones; anything else gives up the block.
bool SqliteEngine::readRange(Cursor *c, long lo, long hi) {
  if (!c->range) {
    std::string id = quoteIdent(c->table.rowid);
    c->range = prepare("SELECT " + id + ", * FROM " + c->table.from() + " WHERE " + id +
                       " BETWEEN ?1 AND ?2 ORDER BY " + id);
    if (!c->range) {
      clearError();
      return false;
    }
  }
  sqlite3_stmt *st = c->range.get();
  sqlite3_bind_int64(st, 1, c->rows[lo]);
  sqlite3_bind_int64(st, 2, c->rows[hi - 1]);
  long k = lo;
  bool ok = true;
  auto tombstone = [&] {
    c->block.emplace_back();
    c->blockKeys.emplace_back();
    c->blockRowids.push_back(INT64_MIN);
    ++k;
  };
  int rc = SQLITE_DONE;
  while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
    int64_t id = sqlite3_column_int64(st, 0);
    while (k < hi && c->rows[k] != id && c->gone[k]) tombstone();
    if (k >= hi || c->rows[k] != id) {
      ok = false;
      break;
    }
    c->block.emplace_back();
    takeRow(c, st, &c->block.back());
    c->blockKeys.emplace_back();
    c->blockRowids.push_back(id);
    ++k;
  }
  sqlite3_reset(st);
  if (rc != SQLITE_ROW && rc != SQLITE_DONE) ok = false;
  while (ok && k < hi && c->gone[k]) tombstone();
  return ok && k == hi;
}

bool SqliteEngine::CloseTable() {
  clearError();
  if (!needCursor()) return false;
  cursors_.erase(asciiLower(current_->table.name));
  current_ = nullptr;
  return true;
}

bool SqliteEngine::CloseAllTables() {
  clearError();
  if (!needDatabase()) return false;
  cursors_.clear();
  current_ = nullptr;
  return true;
}

bool SqliteEngine::RecordCount(int32_t *count) {
  clearError();
  if (!needCursor()) return false;
  Stmt st = prepare("SELECT count(*) FROM " + current_->table.from());
  if (!st) return false;
  int rc = sqlite3_step(st.get());
  if (rc != SQLITE_ROW) return failSqlite(rc);
  *count = static_cast<int32_t>(std::min<int64_t>(sqlite3_column_int64(st.get(), 0), INT32_MAX));
  return true;
}

bool SqliteEngine::seekKeys(const Value *keys, size_t count, Record *out) {
  clearError();
  if (!needCursor()) return false;
  Cursor *c = current_;
  size_t n = count;
  while (n > 0 && keys[n - 1].isEmptyOrNull()) --n;
  if (n == 0) return fail(errc::kNoCurrentRecord, "No current record: no key value was given.");
  // As Access's Seek: a table opened without naming an index has no current
  // index to seek on, even where its records come in primary key order.
  // ("PrimaryKey" names the key; a table without one cannot open by it.)
  if (c->indexName.empty())
    return fail(errc::kNoCurrentIndex, "Operation invalid without a current index (table '" + c->table.name +
                                           "' was opened without one).");
  size_t terms = c->order.empty() ? 1 : c->order.size();
  if (n > terms)
    return fail(errc::kNotSupported,
                "Too many key values (" + std::to_string(n) + ") for index '" + c->indexName + "'.");
  // The statement depends only on which of the n keys are null; it is kept
  // under that shape ("?seek:" cannot begin an SQL text) and made once.
  // At most two values per key (a text key binds two forms).
  std::array<RawValue, 20> binds;
  size_t bound = 0;
  std::string shape = "?seek:";
  for (size_t i = 0; i < n; ++i) {
    RawValue raw;
    if (c->order.empty()) {  // the rowid order: the key is the rowid
      raw = toRawPlain(keys[i]);
    } else {
      std::string why;
      const ColumnInfo &col = c->table.columns[c->order[i].column];
      if (!toRaw(keys[i], col, &raw, &why)) return fail(errc::kConversion, why);
    }
    // Text compares without regard to case, as in Access. On an index that
    // orders by bytes, every case variant of the key lies between its
    // upper-case and its lower-case form, so that range keeps the index in
    // use and a hit is the range's first entry or close to it.
    // A key without letters has no other case: plain equality does.
    bool folded = raw.type == SQLITE_TEXT && !c->order.empty() &&
                  strcasecmp(c->order[i].collation.c_str(), "binary") == 0 &&
                  std::any_of(raw.s.begin(), raw.s.end(), [](char ch) {
                    return (ch >= 'a' && ch <= 'z') || (ch >= 'A' && ch <= 'Z');
                  });
    shape += raw.type == SQLITE_NULL ? 'n' : folded ? 't' : 'v';
    if (folded) {  // binds the upper-case form, then the lower-case one
      std::string lower = raw.s;
      for (char &ch : lower)
        if (ch >= 'A' && ch <= 'Z') ch = static_cast<char>(ch - 'A' + 'a');
      for (char &ch : raw.s)
        if (ch >= 'a' && ch <= 'z') ch = static_cast<char>(ch - 'a' + 'A');
      binds[bound++] = std::move(raw);
      binds[bound++] = RawValue{SQLITE_TEXT, 0, 0, std::move(lower)};
    } else if (raw.type != SQLITE_NULL) {
      binds[bound++] = std::move(raw);
    }
  }
  if (!c->lastSeek || c->lastSeekShape != shape) {
    auto it = c->seekStmts.find(shape);
    if (it == c->seekStmts.end()) {
      std::string sql =
          "SELECT " + quoteIdent(c->table.rowid) + ", * FROM " + c->table.from() + " WHERE ";
      int marks = 0;
      for (size_t i = 0; i < n; ++i) {
        if (i) sql += " AND ";
        sql += quoteIdent(c->order.empty() ? c->table.rowid : c->table.columns[c->order[i].column].name);
        if (shape[6 + i] == 'n') {
          sql += " IS NULL";
        } else if (shape[6 + i] == 't') {
          std::string col = quoteIdent(c->table.columns[c->order[i].column].name);
          sql += " >= ?" + std::to_string(marks + 1) + " AND " + col + " <= ?" + std::to_string(marks + 2) + " AND " +
                 col + " = ?" + std::to_string(marks + 1) + " COLLATE NOCASE";
          marks += 2;
        } else {
          sql += " = ?" + std::to_string(++marks);
          if (!c->order.empty()) sql += " COLLATE " + c->order[i].collation;
        }
      }
      sql += " ORDER BY " + c->orderBy + " LIMIT 1";
      Stmt st = prepare(sql);
      if (!st) return false;
      it = c->seekStmts.emplace(shape, std::move(st)).first;
    }
    c->lastSeek = &it->second;
    c->lastSeekShape = shape;
  }
  Stmt &st = *c->lastSeek;
  // Texts are bound in place (they outlive the step) and unbound after it.
  for (size_t i = 0; i < bound; ++i) {
    if (binds[i].type == SQLITE_TEXT)
      sqlite3_bind_text(st.get(), static_cast<int>(i + 1), binds[i].s.data(), static_cast<int>(binds[i].s.size()),
                        SQLITE_STATIC);
    else
      st.bind(static_cast<int>(i + 1), binds[i]);
  }
  int rc = sqlite3_step(st.get());
  if (rc == SQLITE_ROW) takeRow(c, st.get(), out);
  sqlite3_reset(st.get());
  sqlite3_clear_bindings(st.get());
  if (rc == SQLITE_ROW) return true;
  if (rc != SQLITE_DONE) return failSqlite(rc);
  return fail(errc::kNoCurrentRecord, "No current record: the key was not found.");
}

bool SqliteEngine::SeekValue(const Value &key, Record *out) {
  return seekKeys(&key, 1, out);
}

bool SqliteEngine::SeekPoint2(double x, double y, Record *out) {
  const Value keys[] = {Value::real(x), Value::real(y)};
  return seekKeys(keys, 2, out);
}

bool SqliteEngine::SeekPoint3(double x, double y, double z, Record *out) {
  const Value keys[] = {Value::real(x), Value::real(y), Value::real(z)};
  return seekKeys(keys, 3, out);
}

bool SqliteEngine::SeekValues(const std::array<Value, 10> &keys, Record *out) {
  return seekKeys(keys.data(), keys.size(), out);
}

}  // namespace vantry::engine::sqlite
