// Table cursors and records on the server. As the SQLite engine's cursors:
// the table's keys in index order are read once (the keyset), and records
// are read by key in blocks of kBlock, so that a walk costs one round trip a
// block. A block is served for kFresh after it was read; later it is read
// again, so another user's commits show at once in a new call and within a
// few milliseconds in a walk. Rows another user deleted are passed over;
// rows another user added appear when the keys are read again (a move to
// either end, a seek, or a step off either end).
#include <cstdint>
#include <cstring>

#include "pg_text.h"
#include "pg_engine.h"

namespace vantry::engine::pg {

namespace {

// Blocks start small, so that a call that reads one record reads few, and
// double while a walk goes on, to kMaxBlock: fewer round trips and
// statements a walk, while a block is still used up well within kFresh.
constexpr size_t kBlock = 256;
constexpr size_t kMaxBlock = 2048;
constexpr int64_t kFresh = 20'000'000;  // nanoseconds

// Text types compare and order without regard to case, as Access's do.
bool isText(const PgColumn &c) {
  return c.typeName == "text" || c.typeName.rfind("character", 0) == 0 || c.typeName == "citext";
}

// `keys` as an array literal of the server's.
std::string arrayLiteral(const std::vector<std::string> &keys, size_t from, size_t to) {
  std::string out = "{";
  for (size_t i = from; i < to; ++i) {
    if (i > from) out += ',';
    out += '"';
    for (char ch : keys[i]) {
      if (ch == '"' || ch == '\\') out += '\\';
      out += ch;
    }
    out += '"';
  }
  return out + "}";
}

const char *noCurrentRecord() {
  return "No current record.";
}

// A field of the order, as the cursor compares it, on the row named `alias`.
std::string orderTerm(const PgColumn &col, const std::string &alias) {
  std::string field = alias + "." + quoteIdent(col.name);
  return isText(col) ? "lower(" + field + ") COLLATE \"C\"" : field;
}

// The cursor's order on the row named `alias`: its fields, then the key.
std::string orderTuple(const PgCursor &c, const std::string &alias) {
  std::string out;
  for (int k : c.indexColumns) out += orderTerm(c.table.columns[k], alias) + ", ";
  return out + alias + "." + c.table.keyExpr;
}

uint64_t fnv1a(const std::string &s) {
  uint64_t h = 1469598103934665603ull;
  for (unsigned char ch : s) h = (h ^ ch) * 1099511628211ull;
  return h;
}

}  // namespace

bool PgEngine::findIndex(PgCursor *c, const std::string &index) {
  const PgTable &t = c->table;
  c->indexColumns.clear();
  c->orderBy.clear();
  // The fields are named with the table: a bare name in ORDER BY means an
  // output column first, and the select lists also give the key as text
  // under the key's own name, which would order "10" before "9" (or be
  // ambiguous beside the field itself).
  const std::string key = t.qualified + "." + t.keyExpr;
  if (index.empty()) {
    c->orderBy = key;
    return true;
  }
  Result r = exec(
      "SELECT ci.relname, i.indisprimary, i.indkey::text, i.indoption::text, i.indrelid::text, "
      "  i.indpred IS NULL FROM pg_index i "
      "JOIN pg_class ci ON ci.oid = i.indexrelid "
      "WHERE i.indrelid = $1::regclass AND (lower(ci.relname) = lower($2) OR ($2 = 'PrimaryKey' AND i.indisprimary)) "
      "AND ci.relname !~ '^vt_order_[0-9]+_[0-9a-f]{12}$' "
      "ORDER BY i.indisprimary DESC LIMIT 1",
      {t.qualified, index});
  if (!r) return false;
  if (PQntuples(r.get()) == 0)
    return fail(errc::kNotAnIndex, "'" + index + "' is not an index in this table.");
  // indkey: attribute numbers (0 for an expression); indoption bit 0: descending.
  std::vector<int> attnums, options;
  for (const char *p = PQgetvalue(r.get(), 0, 2); *p;) attnums.push_back(static_cast<int>(std::strtol(p, const_cast<char **>(&p), 10)));
  for (const char *p = PQgetvalue(r.get(), 0, 3); *p;) options.push_back(static_cast<int>(std::strtol(p, const_cast<char **>(&p), 10)));
  // Attribute numbers count dropped columns too: map them by name.
  Result names = exec("SELECT attnum, attname FROM pg_attribute WHERE attrelid = $1::regclass AND attnum > 0",
                      {t.qualified});
  if (!names) return false;
  std::string hiddenColumns;  // the order as an index of the server's would hold it
  std::string included;  // the text fields themselves: the keys are then read from the index alone
  c->ascending = true;
  // An index that leaves records out (one that ignores nulls) cannot serve a range of all of them.
  c->indexed = PQgetvalue(r.get(), 0, 5)[0] == 't';
  for (size_t k = 0; k < attnums.size(); ++k) {
    int col = -1;
    for (int j = 0; j < PQntuples(names.get()); ++j)
      if (std::atoi(PQgetvalue(names.get(), j, 0)) == attnums[k])
        for (size_t m = 0; m < t.columns.size(); ++m)
          if (t.columns[m].name == PQgetvalue(names.get(), j, 1)) col = static_cast<int>(m);
    if (col < 0) return fail(errc::kNotSupported, "The index '" + index + "' orders by an expression; open it by field.");
    bool desc = k < options.size() && (options[k] & 1);
    const PgColumn &pc = t.columns[col];
    std::string field = t.qualified + "." + quoteIdent(pc.name);
    std::string term = isText(pc) ? "lower(" + field + ") COLLATE \"C\"" : field;
    c->orderBy += term + (desc ? " DESC, " : ", ");
    c->indexColumns.push_back(col);
    c->ascending &= !desc;
    if (isText(pc)) included += (included.empty() ? "" : ", ") + quoteIdent(pc.name);
    if (!hiddenColumns.empty()) hiddenColumns += ", ";
    hiddenColumns += isText(pc) ? "(lower(" + quoteIdent(pc.name) + ") COLLATE \"C\")" : quoteIdent(pc.name);
    if (desc) hiddenColumns += " DESC";
  }
  c->orderBy += key;
  if (!included.empty()) {
    if (t.keyExpr != "ctid") hiddenColumns += ", " + t.keyExpr;
    hiddenColumns += ") INCLUDE (" + included;
    c->indexed = ensureOrderIndex(t, PQgetvalue(r.get(), 0, 4), hiddenColumns);
  }
  return true;
}

// Text fields order without regard to case, which the server's own indexes
// on them cannot serve: a seek would read the whole table, and a step off
// an end would sort it. The cursor's order gets an index of its own, made
// on first use, named "vt_order_..." and left out of the indexes listed.
// It holds the text fields too, so that the keys in order come from the
// index alone once the server's vacuum has marked the table's pages.
// Not made on a read-only connection nor inside open work (a failure would
// end that work); a table another user holds is not waited for. True when
// the index is there.
bool PgEngine::ensureOrderIndex(const PgTable &t, const std::string &tableOid, const std::string &columns) {
  char name[48];
  std::snprintf(name, sizeof name, "vt_order_%s_%012llx", tableOid.c_str(),
                static_cast<unsigned long long>(fnv1a(columns) & 0xffffffffffffull));
  Result there = run("SELECT 1 FROM pg_class WHERE relname = $1 AND relnamespace = $2::regnamespace",
                     {std::string(name), quoteIdent(schema_)});
  if (!there || PQntuples(there.get()) > 0 || readOnly_ || InWork() || orderIndexRefused_.count(name)) {
    clearError();
    return there && PQntuples(there.get()) > 0;
  }
  std::string sql = "BEGIN; SET LOCAL lock_timeout = '100ms'; CREATE INDEX IF NOT EXISTS " + quoteIdent(name) +
                    " ON " + t.qualified + " (" + columns + "); COMMIT";
  Result r(PQexec(conn_, sql.c_str()));
  bool made = r && PQresultStatus(r.get()) == PGRES_COMMAND_OK;
  if (!made) {
    Result undo(PQexec(conn_, "ROLLBACK"));
    // Not the table's owner: not asked again in this session. Held by another user: asked next time.
    const char *state = r ? PQresultErrorField(r.get(), PG_DIAG_SQLSTATE) : nullptr;
    if (state && std::strcmp(state, "42501") == 0) orderIndexRefused_.insert(name);
  }
  lastContact_ = env().monotonicNanos();
  return made;
}

bool PgEngine::readKeys(PgCursor *c) {
  Result r = run("SELECT " + c->table.keyExpr + "::text FROM " + c->table.qualified + " ORDER BY " + c->orderBy);
  if (!r) return false;
  int n = PQntuples(r.get());
  c->keys.clear();
  c->keys.reserve(n);
  for (int i = 0; i < n; ++i) c->keys.emplace_back(PQgetvalue(r.get(), i, 0), PQgetlength(r.get(), i, 0));
  c->gone.assign(n, false);
  c->positions.clear();
  c->keysValid = true;
  c->keysRead = env().monotonicNanos();
  c->block.clear();
  return true;
}

bool PgEngine::readBlock(PgCursor *c, size_t at, int step) {
  bool onward = !c->block.empty() && (step > 0 ? at == c->blockStart + c->block.size() : at + 1 == c->blockStart);
  c->blockSize = onward ? std::min(kMaxBlock, c->blockSize * 2) : kBlock;
  const size_t size = c->blockSize;
  size_t from = step > 0 ? at : (at + 1 >= size ? at + 1 - size : 0);
  size_t to = std::min(c->keys.size(), from + size);
  int64_t asked = env().monotonicNanos();
  const PgTable &t = c->table;
  std::unordered_map<std::string, PgRow> byKey;
  auto take = [&](const PGresult *r) {
    for (int i = 0; i < PQntuples(r); ++i) {
      PgRow row = rowOf(t, r, i);
      std::string key = row.key;
      byKey.emplace(std::move(key), std::move(row));
    }
  };
  std::vector<std::string> missing;
  const bool ranged = c->ascending && c->indexed;
  std::string rangeSql;
  if (ranged) {
    // The rows between a block's first and last record in the order: one
    // range of the index. Rows another user added in between are not the
    // keyset's and are left; a row whose place another user changed is
    // read by its key below.
    const std::string a = orderTuple(*c, "a"), b = orderTuple(*c, "b");
    auto bound = [&](const char *param) {
      return "(SELECT " + b + " FROM " + t.qualified + " b WHERE b." + t.keyExpr + " = " + param + "::" + t.keyType +
             ")";
    };
    rangeSql = "SELECT " + selectList(t) + " FROM " + t.qualified + " a WHERE (" + a + ") >= " + bound("$1") +
               " AND (" + a + ") <= " + bound("$2");
  }
  if (ranged && to - from > 1) {
    Result r = takeAhead(c->id, from, to, &asked);
    if (r && env().monotonicNanos() - asked >= kFresh) r.reset();  // asked for too long ago: stale
    if (!r) {
      asked = env().monotonicNanos();
      r = run(rangeSql, {c->keys[from], c->keys[to - 1]});
    }
    if (!r) return false;
    take(r.get());
    for (size_t i = from; i < to; ++i)
      if (!byKey.count(c->keys[i])) missing.push_back(c->keys[i]);
  } else {
    missing.assign(c->keys.begin() + static_cast<long>(from), c->keys.begin() + static_cast<long>(to));
  }
  if (!missing.empty()) {
    Result r = run("SELECT " + selectList(t) + " FROM " + t.qualified + " WHERE " + t.keyExpr + " = ANY($1::" +
                       t.keyType + "[])",
                   {arrayLiteral(missing, 0, missing.size())});
    if (!r) return false;
    take(r.get());
  }
  c->block.assign(to - from, std::nullopt);
  for (size_t i = from; i < to; ++i) {
    auto it = byKey.find(c->keys[i]);
    if (it != byKey.end()) c->block[i - from] = std::move(it->second);
  }
  c->blockStart = from;
  c->blockRead = asked;
  // A walk onward: the next block is asked for now, and read while this one is served.
  const size_t next = std::min(c->keys.size(), to + std::min(kMaxBlock, size * 2));
  if (ranged && onward && step > 0 && next - to > 1) {
    Ahead what;
    what.cursor = c->id;
    what.from = to;
    what.to = next;
    what.asked = env().monotonicNanos();
    askAhead(rangeSql, {c->keys[to], c->keys[next - 1]}, what);
  }
  return true;
}

void PgEngine::become(PgCursor *c, size_t at, PgRow row, Record *out) {
  c->where = PgCursor::Where::kOn;
  c->at = at;
  c->key = std::move(row.key);
  c->xmin = std::move(row.xmin);
  if (out) *out = std::move(row.record);
}

// Finds the current record's key in the keyset, reading the keys again
// when they are stale or the record came after them (an append, a seek).
bool PgEngine::locate(PgCursor *c) {
  if (c->keysValid && c->at < c->keys.size() && c->keys[c->at] == c->key) return true;
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (!c->keysValid && !readKeys(c)) return false;
    if (c->positions.empty())
      for (size_t i = 0; i < c->keys.size(); ++i) c->positions.emplace(c->keys[i], i);
    auto it = c->positions.find(c->key);
    if (it != c->positions.end()) {
      c->at = it->second;
      return true;
    }
    c->keysValid = false;
  }
  c->where = PgCursor::Where::kBof;
  return fail(errc::kNoCurrentRecord, noCurrentRecord());
}

// From keyset index i, walking by step, the |count|-th record that exists.
bool PgEngine::moveTo(PgCursor *c, long i, int step, Record *out) {
  long need = 1;
  const long n = static_cast<long>(c->keys.size());
  for (; i >= 0 && i < n; i += step) {
    if (c->gone[i]) continue;
    size_t at = static_cast<size_t>(i);
    // A row served once has an empty key: a later visit reads it again.
    bool inBlock = at >= c->blockStart && at - c->blockStart < c->block.size() &&
                   env().monotonicNanos() - c->blockRead < kFresh &&
                   (!c->block[at - c->blockStart] || !c->block[at - c->blockStart]->key.empty());
    if (!inBlock && !readBlock(c, at, step)) return false;
    std::optional<PgRow> &row = c->block[at - c->blockStart];
    if (!row) {  // deleted by another user
      c->gone[i] = true;
      continue;
    }
    if (--need == 0) {
      PgRow r = std::move(*row);
      row->key.clear();
      become(c, at, std::move(r), out);
      return true;
    }
  }
  c->where = step > 0 ? PgCursor::Where::kEof : PgCursor::Where::kBof;
  return fail(errc::kNoCurrentRecord, noCurrentRecord());
}

bool PgEngine::OpenTable(const std::string &table, const std::string &index) {
  clearError();
  if (!needDatabase()) return false;
  auto c = std::make_unique<PgCursor>();
  c->id = ++cursorSerial_;
  if (!loadTable(table, &c->table) || !findIndex(c.get(), index) || !readKeys(c.get())) return false;
  c->indexName = index;
  PgCursor *raw = c.get();
  cursors_[lower(c->table.name)] = std::move(c);
  current_ = raw;
  if (!moveTo(raw, 0, 1, nullptr)) {
    if (error_.number != errc::kNoCurrentRecord) return false;
    clearError();
  }
  return true;
}

bool PgEngine::MoveFirst(Record *out) {
  clearError();
  if (!needCursor()) return false;
  if (env().monotonicNanos() - current_->keysRead >= kFresh && !readKeys(current_)) return false;
  return moveTo(current_, 0, 1, out);
}

bool PgEngine::MoveLast(Record *out) {
  clearError();
  if (!needCursor()) return false;
  if (env().monotonicNanos() - current_->keysRead >= kFresh && !readKeys(current_)) return false;
  return moveTo(current_, static_cast<long>(current_->keys.size()) - 1, -1, out);
}

bool PgEngine::Skip(int32_t count, Record *out) {
  clearError();
  if (!needCursor()) return false;
  if (count == 0) return GetRecord(out);
  PgCursor *c = current_;
  const int step = count > 0 ? 1 : -1;
  for (int attempt = 0; attempt < 2; ++attempt) {
    long i;
    if (c->where == PgCursor::Where::kBof) {
      if (step < 0) return fail(errc::kNoCurrentRecord, noCurrentRecord());
      if (!c->keysValid && !readKeys(c)) return false;
      i = 0;
    } else if (c->where == PgCursor::Where::kEof) {
      if (step > 0) return fail(errc::kNoCurrentRecord, noCurrentRecord());
      if (!c->keysValid && !readKeys(c)) return false;
      i = static_cast<long>(c->keys.size()) - 1;
    } else {
      if (!locate(c)) return false;
      i = static_cast<long>(c->at) + step;
    }
    // Skip |count| - 1 records that exist, then land on the next.
    long skipped = 0, want = (count > 0 ? count : -static_cast<long>(count)) - 1;
    const long n = static_cast<long>(c->keys.size());
    while (skipped < want && i >= 0 && i < n) {
      if (!c->gone[i]) ++skipped;
      i += step;
    }
    const PgCursor::Where where0 = c->where;
    const std::string key0 = c->key;
    const size_t at0 = c->at;
    if (moveTo(c, i, step, out)) return true;
    if (error_.number != errc::kNoCurrentRecord) return false;
    // Off the end: another user may have added records since the keys were read.
    if (attempt == 1 || env().monotonicNanos() - c->keysRead < kFresh) return false;
    if (where0 == PgCursor::Where::kOn && !key0.empty()) {
      const PgCursor::Where end = c->where;
      if (!mayBeBeyond(c, key0, step)) {
        if (error_.number != errc::kNone && error_.number != errc::kNoCurrentRecord) return false;
        c->where = end;
        return fail(errc::kNoCurrentRecord, noCurrentRecord());
      }
    }
    clearError();
    c->where = where0, c->key = key0, c->at = at0;
    if (where0 == PgCursor::Where::kBof || where0 == PgCursor::Where::kEof) {
      if (!readKeys(c)) return false;
    } else {
      c->keysValid = false;
    }
  }
  return fail(errc::kNoCurrentRecord, noCurrentRecord());
}

bool PgEngine::mayBeBeyond(PgCursor *c, const std::string &key, int step) {
  const PgTable &t = c->table;
  if (!c->ascending) return true;
  std::string nulls;
  for (int k : c->indexColumns) nulls += " OR a." + quoteIdent(t.columns[k].name) + " IS NULL";
  const std::string mine = orderTuple(*c, "a"), theirs = orderTuple(*c, "b");
  const char *dir = step > 0 ? ", " : " DESC, ";
  std::string order;  // nearest first, so that the index answers at once
  for (int k : c->indexColumns) order += orderTerm(t.columns[k], "a") + dir;
  order += "a." + t.keyExpr + (step > 0 ? "" : " DESC");
  // Nulls order last, and compare as unknown: a null in the order answers "may be".
  Result r = run("SELECT (SELECT 1 FROM " + t.qualified + " a WHERE (" + mine + ") " + (step > 0 ? ">" : "<") +
                     " (SELECT " + theirs + " FROM " + t.qualified + " b WHERE b." + t.keyExpr + " = $1::" +
                     t.keyType + ") ORDER BY " + order + " LIMIT 1) IS NOT NULL OR NOT EXISTS (SELECT 1 FROM " + t.qualified + " a WHERE a." + t.keyExpr +
                     " = $1::" + t.keyType + ")" + (nulls.empty() ? "" : " OR EXISTS (SELECT 1 FROM " + t.qualified +
                     " a WHERE false" + nulls + ")"),
                 {key});
  if (!r) return true;
  return PQgetvalue(r.get(), 0, 0)[0] == 't';
}

bool PgEngine::GetRecord(Record *out) {
  clearError();
  if (!needCursor()) return false;
  PgCursor *c = current_;
  if (c->where != PgCursor::Where::kOn) return fail(errc::kNoCurrentRecord, noCurrentRecord());
  Result r = run("SELECT " + selectList(c->table) + " FROM " + c->table.qualified + " WHERE " + c->table.keyExpr +
                     " = $1::" + c->table.keyType,
                 {c->key});
  if (!r) return false;
  if (PQntuples(r.get()) == 0) {
    c->where = PgCursor::Where::kGone;
    if (c->keysValid && c->at < c->gone.size() && c->keys[c->at] == c->key) c->gone[c->at] = true;
    return fail(errc::kNoCurrentRecord, noCurrentRecord());
  }
  PgRow row = rowOf(c->table, r.get(), 0);
  c->xmin = row.xmin;
  if (out) *out = std::move(row.record);
  return true;
}

bool PgEngine::CloseTable() {
  clearError();
  if (!needCursor()) return false;
  cursors_.erase(lower(current_->table.name));
  current_ = nullptr;
  return true;
}

bool PgEngine::CloseAllTables() {
  clearError();
  if (!needDatabase()) return false;
  cursors_.clear();
  current_ = nullptr;
  return true;
}

bool PgEngine::RecordCount(int32_t *count) {
  clearError();
  if (!needCursor()) return false;
  Result r = exec("SELECT count(*) FROM " + current_->table.qualified);
  if (!r) return false;
  if (count) *count = static_cast<int32_t>(std::strtol(PQgetvalue(r.get(), 0, 0), nullptr, 10));
  return true;
}

bool PgEngine::seek(const std::vector<Value> &keys, Record *out) {
  clearError();
  if (!needCursor()) return false;
  PgCursor *c = current_;
  if (c->indexColumns.empty())
    return fail(errc::kNoCurrentIndex, "Operation invalid without a current index.");
  size_t used = 0;
  for (size_t k = 0; k < keys.size(); ++k)
    if (keys[k].type() != ValueType::kEmpty) used = k + 1;
  if (used == 0 || used > c->indexColumns.size())
    return fail(errc::kNoCurrentRecord, noCurrentRecord());
  std::string where;
  std::vector<std::optional<std::string>> params;
  for (size_t k = 0; k < used; ++k) {
    const PgColumn &col = c->table.columns[c->indexColumns[k]];
    if (k) where += " AND ";
    std::string name = c->table.qualified + "." + quoteIdent(col.name);
    if (keys[k].isEmptyOrNull()) {
      where += name + " IS NULL";
      continue;
    }
    std::optional<std::string> p;
    if (!paramOf(keys[k], &col, &p))
      return fail(errc::kConversion, "Data type mismatch in criteria expression.");
    params.push_back(std::move(p));
    std::string ph = "$" + std::to_string(params.size()) + "::" + col.typeName;
    // As the order writes it, so that the cursor's own index serves the seek.
    where += isText(col) ? orderTerm(col, c->table.qualified) + " = lower(" + ph + ")" : name + " = " + ph;
  }
  Result r = run("SELECT " + selectList(c->table) + " FROM " + c->table.qualified + " WHERE " + where +
                      " ORDER BY " + c->orderBy + " LIMIT 1",
                  params);
  if (!r) return false;
  if (PQntuples(r.get()) == 0) return fail(errc::kNoCurrentRecord, noCurrentRecord());
  // Its place among the keys is found when a step needs it (locate).
  become(c, SIZE_MAX, rowOf(c->table, r.get(), 0), out);
  return true;
}

bool PgEngine::SeekValue(const Value &key, Record *out) {
  return seek({key}, out);
}

bool PgEngine::SeekPoint2(double x, double y, Record *out) {
  return seek({Value::real(x), Value::real(y)}, out);
}

bool PgEngine::SeekPoint3(double x, double y, double z, Record *out) {
  return seek({Value::real(x), Value::real(y), Value::real(z)}, out);
}

bool PgEngine::SeekValues(const std::array<Value, 10> &keys, Record *out) {
  return seek(std::vector<Value>(keys.begin(), keys.end()), out);
}

// --- Records ---

namespace {

const PgColumn *columnNamed(const PgTable &t, const std::string &name, int *index) {
  for (size_t i = 0; i < t.columns.size(); ++i)
    if (lower(t.columns[i].name) == lower(name)) {
      *index = static_cast<int>(i);
      return &t.columns[i];
    }
  return nullptr;
}

}  // namespace

bool PgEngine::AppendRecord(const Record &record, bool keepCounter, Record *stored) {
  clearError();
  if (!needWritable()) return false;
  PgCursor *c = current_;
  std::string names, values;
  std::vector<std::optional<std::string>> params;
  const PgColumn *keptCounter = nullptr;
  for (const Field &f : record) {
    int idx = 0;
    const PgColumn *col = columnNamed(c->table, f.name, &idx);
    if (!col) return fail(errc::kItemNotFound, "Item not found in this collection: field '" + f.name + "'.");
    if (col->counter && (!keepCounter || f.value.isEmptyOrNull())) continue;
    if (col->counter) keptCounter = col;
    std::optional<std::string> p;
    if (!paramOf(f.value, col, &p))
      return fail(errc::kConversion, "Data type conversion error: field '" + col->name + "'.");
    params.push_back(std::move(p));
    names += (names.empty() ? "" : ", ") + quoteIdent(col->name);
    values += (values.empty() ? "$" : ", $") + std::to_string(params.size()) + "::" + col->typeName;
  }
  std::string sql = "INSERT INTO " + c->table.qualified +
                    (names.empty() ? " DEFAULT VALUES" : " (" + names + ") VALUES (" + values + ")") + " RETURNING " +
                    selectList(c->table);
  Result r = run(sql, params);
  if (!r) return false;
  PgRow row = rowOf(c->table, r.get(), 0);
  if (keptCounter) {
    // A counter given by the record moves the numbering past it.
    std::string col = quoteIdent(keptCounter->name);
    exec("SELECT setval(s, greatest((SELECT max(" + col + ") FROM " + c->table.qualified +
             "), nextval(s) - 1)) FROM pg_get_serial_sequence($1, $2) AS s WHERE s IS NOT NULL",
         {c->table.qualified, keptCounter->name});
    clearError();  // the record is stored; a numbering left behind is not its failure
  }
  c->keysValid = false;
  c->block.clear();
  become(c, SIZE_MAX, std::move(row), stored);
  return true;
}

bool PgEngine::DeleteRecord() {
  clearError();
  if (!needWritable()) return false;
  PgCursor *c = current_;
  if (c->where != PgCursor::Where::kOn) return fail(errc::kNoCurrentRecord, noCurrentRecord());
  Result r = run("DELETE FROM " + c->table.qualified + " WHERE " + c->table.keyExpr + " = $1::" + c->table.keyType,
                 {c->key});
  if (!r) return false;
  bool deleted = std::strtol(PQcmdTuples(r.get()), nullptr, 10) > 0;
  if (c->keysValid && c->at < c->keys.size() && c->keys[c->at] == c->key) c->gone[c->at] = true;
  c->where = PgCursor::Where::kGone;
  if (!deleted) return fail(errc::kNoCurrentRecord, noCurrentRecord());
  return true;
}

bool PgEngine::ReplaceRecord(const Record &record, Record *stored) {
  clearError();
  if (!needWritable()) return false;
  PgCursor *c = current_;
  if (c->where != PgCursor::Where::kOn) return fail(errc::kNoCurrentRecord, noCurrentRecord());
  std::string sets;
  std::vector<std::optional<std::string>> params{c->key, c->xmin};
  bool orderChanges = false;
  for (const Field &f : record) {
    int idx = 0;
    const PgColumn *col = columnNamed(c->table, f.name, &idx);
    if (!col) return fail(errc::kItemNotFound, "Item not found in this collection: field '" + f.name + "'.");
    std::optional<std::string> p;
    if (!paramOf(f.value, col, &p))
      return fail(errc::kConversion, "Data type conversion error: field '" + col->name + "'.");
    if (col->counter) {
      // The counter may be given unchanged (it is the record's key), never changed.
      if (c->table.keyExpr == quoteIdent(col->name) && p && *p == c->key) continue;
      return fail(errc::kFieldNotUpdatable, "Field '" + col->name + "' cannot be updated: it is the record's counter.");
    }
    sets += (sets.empty() ? "" : ", ") + quoteIdent(col->name) + " = $" + std::to_string(params.size() + 1) +
            "::" + col->typeName;
    params.push_back(std::move(p));
    for (int k : c->indexColumns) orderChanges |= k == idx;
    orderChanges |= c->table.keyExpr == quoteIdent(col->name);
  }
  if (sets.empty()) return GetRecord(stored);
  // The row is written only as it was read: a row another user changed in
  // between is refused, never overwritten.
  Result r = run("UPDATE " + c->table.qualified + " SET " + sets + " WHERE " + c->table.keyExpr + " = $1::" +
                      c->table.keyType + " AND xmin::text = $2 RETURNING " + selectList(c->table),
                  params);
  if (!r) return false;
  if (PQntuples(r.get()) == 0) {
    Result still = exec("SELECT 1 FROM " + c->table.qualified + " WHERE " + c->table.keyExpr + " = $1::" +
                            c->table.keyType,
                        {c->key});
    if (!still) return false;
    if (PQntuples(still.get()) == 0) {
      c->where = PgCursor::Where::kGone;
      return fail(errc::kNoCurrentRecord, noCurrentRecord());
    }
    return fail(kChangedByOther,
                "Could not update; the record was changed by another user since it was read. Read it again.");
  }
  PgRow row = rowOf(c->table, r.get(), 0);
  if (orderChanges || row.key != c->key) {
    c->keysValid = false;
  } else {
    c->block.clear();
  }
  become(c, c->at, std::move(row), stored);
  return true;
}

}  // namespace vantry::engine::pg
