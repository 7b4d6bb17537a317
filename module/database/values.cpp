#include "database/values.h"

#include <cstdlib>
#include <cwchar>
#include <string_view>
#include <vector>

#include "common/text.h"
#include "frame/value_list.h"

namespace vantry::database {

using frame::ResultChain;

namespace {

// A node's text as UTF-8. Field names and most values are ASCII, copied as
// they stand; anything else goes through the module's UTF-8 writing.
std::string utf8Of(const ACHAR *w) {
  if (!w) return std::string();
  size_t n = 0;
  bool ascii = true;
  for (; w[n]; ++n) ascii &= static_cast<uint32_t>(w[n]) < 0x80;
  if (!ascii) return text::toUtf8(std::wstring_view(w, n));
  std::string s;
  s.resize(n);
  for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>(w[i]);
  return s;
}

}  // namespace

bool toEngineValue(const resbuf *rb, engine::Value &out) {
  if (!rb) return false;
  switch (rb->restype) {
    case RTREAL:
      out = engine::Value::real(rb->resval.rreal);
      return true;
    case RTSHORT:
      out = engine::Value::integer(rb->resval.rint);
      return true;
    case RTLONG:
      out = engine::Value::integer(rb->resval.rlong);
      return true;
    case RTSTR:
      out = engine::Value::text(utf8Of(rb->resval.rstring));
      return true;
    case RTT:
      out = engine::Value::boolean(true);
      return true;
    case RTNIL:
      out = engine::Value();
      return true;
    default:
      return false;
  }
}

namespace {

// Copies s into w (room for its bytes and the terminator) byte for byte, and answers whether it
// was all ASCII, so that the copy is the text: one pass, since texts are ASCII far more often than
// not.
bool copiedAscii(const std::string &s, ACHAR *w) {
  unsigned char high = 0;
  for (size_t i = 0; i < s.size(); ++i) {
    auto ch = static_cast<unsigned char>(s[i]);
    high |= ch;
    w[i] = static_cast<ACHAR>(ch);
  }
  w[s.size()] = 0;
  return high < 0x80;
}

// ASCII is copied as it stands; anything else goes through the module's
// UTF-8 reading, so the result is the same either way.
ACHAR *newWideString(const std::string &s) {
  auto *w = static_cast<ACHAR *>(std::malloc((s.size() + 1) * sizeof(ACHAR)));
  if (!w) return nullptr;
  if (copiedAscii(s, w)) return w;
  std::free(w);
  std::wstring wide = text::fromUtf8(s);
  w = static_cast<ACHAR *>(std::malloc((wide.size() + 1) * sizeof(ACHAR)));
  if (w) std::wmemcpy(w, wide.c_str(), wide.size() + 1);
  return w;
}

// An integer in a node: 16-bit when it fits, 32-bit otherwise.
void putInteger(resbuf *rb, int32_t i) {
  if (i >= -32768 && i <= 32767) {
    rb->restype = RTSHORT;
    rb->resval.rint = static_cast<short>(i);
  } else {
    rb->restype = RTLONG;
    rb->resval.rlong = i;
  }
}

// Records reach LISP by the hundred thousand, so values are put straight
// into nodes of the chain, and text is decoded straight into the string the
// node owns (acutRelRb frees both).
void addText(ResultChain &c, const std::string &utf8) {
  if (resbuf *rb = c.add(RTSTR)) {
    rb->resval.rstring = newWideString(utf8);
    if (!rb->resval.rstring) c.spoil();
  }
}

void addValue(ResultChain &c, const engine::Value &v) {
  switch (v.type()) {
    case engine::ValueType::kEmpty:
    case engine::ValueType::kNull:
      c.add(RTNIL);
      return;
    case engine::ValueType::kInteger:
      if (resbuf *rb = c.add(RTNIL)) putInteger(rb, v.asInteger());
      return;
    case engine::ValueType::kReal:
      if (resbuf *rb = c.add(RTREAL)) rb->resval.rreal = v.asReal();
      return;
    case engine::ValueType::kText:
    case engine::ValueType::kDate:
      addText(c, v.asText());
      return;
    case engine::ValueType::kBoolean:
      c.add(v.asBoolean() ? RTT : RTNIL);
      return;
  }
  c.add(RTNIL);
}


// The chain of the last record returned, kept for the next one. Walks and
// seeks return records of the same fields by the hundred thousand, and the
// host copies a returned list, so the nodes and the field names are made
// once per table and only the value nodes change; a text value reuses its
// string when it fits.
class RecordChain {
 public:
  ~RecordChain() { acutRelRb(head_); }

  // The record's list, or null when memory ran out.
  const resbuf *build(const engine::Record &record) {
    if (!sameFields(record) && !rebuild(record)) return nullptr;
    for (size_t i = 0; i < record.size(); ++i)
      if (!setValue(slots_[i], record[i].value)) return nullptr;
    return head_;
  }

 private:
  struct Slot {
    resbuf *node = nullptr;  // the value node after RTDOTE
    size_t capacity = 0;     // characters its string can hold, with the 0
  };

  bool sameFields(const engine::Record &record) const {
    if (!head_ || record.size() != names_.size()) return false;
    for (size_t i = 0; i < record.size(); ++i)
      if (record[i].name != names_[i]) return false;
    return true;
  }

  bool rebuild(const engine::Record &record) {
    acutRelRb(head_);
    head_ = nullptr;
    names_.clear();
    slots_.clear();
    ResultChain c;
    c.add(RTLB);
    for (const engine::Field &f : record) {
      c.add(RTLB);
      addText(c, f.name);
      c.add(RTDOTE);
      Slot slot;
      slot.node = c.add(RTNIL);
      c.add(RTLE);
      slots_.push_back(slot);
    }
    c.add(RTLE);
    if (!c.ok()) {
      slots_.clear();
      return false;
    }
    head_ = c.release();
    for (const engine::Field &f : record) names_.push_back(f.name);
    return true;
  }

  static bool setValue(Slot &slot, const engine::Value &v) {
    resbuf *rb = slot.node;
    bool text = v.type() == engine::ValueType::kText || v.type() == engine::ValueType::kDate;
    if (!text && rb->restype == RTSTR) {
      std::free(rb->resval.rstring);
      rb->resval.rstring = nullptr;
      slot.capacity = 0;
    }
    switch (v.type()) {
      case engine::ValueType::kInteger:
        putInteger(rb, v.asInteger());
        return true;
      case engine::ValueType::kReal:
        rb->restype = RTREAL;
        rb->resval.rreal = v.asReal();
        return true;
      case engine::ValueType::kBoolean:
        rb->restype = v.asBoolean() ? RTT : RTNIL;
        return true;
      case engine::ValueType::kText:
      case engine::ValueType::kDate:
        return setText(slot, v.asText());
      default:
        rb->restype = RTNIL;
        return true;
    }
  }

  static bool setText(Slot &slot, const std::string &utf8) {
    resbuf *rb = slot.node;
    size_t n = utf8.size();
    // Copied while it is checked, in the string the node has.
    if (rb->restype == RTSTR && slot.capacity >= n + 1 && copiedAscii(utf8, rb->resval.rstring)) return true;
    bool ascii = true;
    for (char ch : utf8) ascii &= static_cast<unsigned char>(ch) < 0x80;
    if (!ascii) {
      // Rare: made afresh through the module's UTF-8 reading.
      if (rb->restype == RTSTR) std::free(rb->resval.rstring);
      rb->restype = RTSTR;
      rb->resval.rstring = newWideString(utf8);
      slot.capacity = rb->resval.rstring ? std::wcslen(rb->resval.rstring) + 1 : 0;
      return rb->resval.rstring != nullptr;
    }
    if (rb->restype != RTSTR || slot.capacity < n + 1) {
      if (rb->restype == RTSTR) std::free(rb->resval.rstring);
      size_t cap = n + 1 < 32 ? 32 : n + 1;
      rb->restype = RTSTR;
      rb->resval.rstring = static_cast<ACHAR *>(std::malloc(cap * sizeof(ACHAR)));
      slot.capacity = rb->resval.rstring ? cap : 0;
      if (!rb->resval.rstring) {
        rb->restype = RTNIL;
        return false;
      }
    }
    ACHAR *w = rb->resval.rstring;
    for (size_t i = 0; i < n; ++i) w[i] = static_cast<ACHAR>(utf8[i]);
    w[n] = 0;
    return true;
  }

  resbuf *head_ = nullptr;
  std::vector<std::string> names_;
  std::vector<Slot> slots_;
};

}  // namespace

void returnRecord(const engine::Record &record) {
  if (record.empty()) {
    acedRetNil();
    return;
  }
  static RecordChain last;  // released when the module unloads
  if (const resbuf *list = last.build(record))
    acedRetList(list);
  else
    acedRetNil();
}

// A statement's answer made into its result list as it is read. The field
// names, which every row repeats, are one wide copy per name, made once per
// answer (the host copies what it reads), that each row's name nodes borrow;
// they are detached again before the chain is released. An answer of
// 100,000 rows of 8 fields made and freed 800,000 copies of the same 8
// names. The answer's text values are written one after another into large
// blocks and borrowed the same way, where each had been a string of its own
// to allocate and, after the host's copy, to free.
ChainAnswer::ChainAnswer() {
  chain_.add(RTLB);
}

ChainAnswer::~ChainAnswer() {
  detach();
  for (ACHAR *w : owned_) std::free(w);
}

void ChainAnswer::value(engine::Value &&v) {
  addValue(chain_, v);
}

void ChainAnswer::beginRow() {
  chain_.add(RTLB);
}

void ChainAnswer::endRow() {
  chain_.add(RTLE);
}

// ("name" . value) for the field at `place` in a row.
void ChainAnswer::field(size_t place, const std::string &name, engine::Value &&value) {
  chain_.add(RTLB);
  if (resbuf *rb = chain_.add(RTSTR)) {
    if (const ACHAR *w = wideName(place, name)) {
      rb->resval.rstring = const_cast<ACHAR *>(w);
      borrowed_.push_back(rb);
    } else {
      chain_.spoil();
    }
  }
  chain_.add(RTDOTE);
  if (value.type() == engine::ValueType::kText || value.type() == engine::ValueType::kDate) {
    if (resbuf *rb = chain_.add(RTSTR)) {
      if (ACHAR *w = blockText(value.asText())) {
        rb->resval.rstring = w;
        borrowed_.push_back(rb);
      } else {
        chain_.spoil();
      }
    }
  } else {
    addValue(chain_, value);
  }
  chain_.add(RTLE);
}

void ChainAnswer::returnToHost() {
  chain_.add(RTLE);
  // A list of nothing but its ends: an answer of no values is nil.
  if (!chain_.ok() || chain_.head()->rbnext->restype == RTLE) {
    acedRetNil();
    return;
  }
  acedRetList(chain_.head());
  detach();
}

// Gives the chain's borrowed strings back to us, so that releasing the
// chain frees none of them.
void ChainAnswer::detach() {
  for (resbuf *rb : borrowed_) rb->resval.rstring = nullptr;
  borrowed_.clear();
}

const ACHAR *ChainAnswer::wideName(size_t k, const std::string &name) {
  if (k < names_.size() && names_[k] == name) return wide_[k];
  ACHAR *w = newWideString(name);
  if (!w) return nullptr;
  owned_.push_back(w);
  if (k >= names_.size()) {
    names_.resize(k + 1);
    wide_.resize(k + 1);
  }
  names_[k] = name;
  wide_[k] = w;
  return w;
}

// A wide copy of the text in the current block (a new one when it is full).
ACHAR *ChainAnswer::blockText(const std::string &utf8) {
  size_t n = utf8.size();
  unsigned char high = 0;
  for (char ch : utf8) high |= static_cast<unsigned char>(ch);
  if (high >= 0x80) {
    std::wstring wide = text::fromUtf8(utf8);
    ACHAR *w = blockRoom(wide.size() + 1);
    if (w) std::wmemcpy(w, wide.c_str(), wide.size() + 1);
    return w;
  }
  ACHAR *w = blockRoom(n + 1);
  if (!w) return nullptr;
  for (size_t i = 0; i < n; ++i) w[i] = static_cast<ACHAR>(static_cast<unsigned char>(utf8[i]));
  w[n] = 0;
  return w;
}

ACHAR *ChainAnswer::blockRoom(size_t n) {
  if (n > kBlockChars / 4) {  // a long text keeps an allocation of its own
    auto *w = static_cast<ACHAR *>(std::malloc(n * sizeof(ACHAR)));
    if (w) owned_.push_back(w);
    return w;
  }
  if (size_t(blockEnd_ - blockNext_) < n) {
    auto *b = static_cast<ACHAR *>(std::malloc(kBlockChars * sizeof(ACHAR)));
    if (!b) return nullptr;
    owned_.push_back(b);
    blockNext_ = b;
    blockEnd_ = b + kBlockChars;
  }
  ACHAR *w = blockNext_;
  blockNext_ += n;
  return w;
}

void returnValueArray(const engine::ValueArray &values) {
  ChainAnswer answer;
  engine::replayAnswer(values, &answer);
  answer.returnToHost();
}

namespace {
engine::ValueArray *sharedAnswer = nullptr;  // released when the module unloads
bool sharedAnswerInUse = false;
}  // namespace

AnswerBuffer::AnswerBuffer() : shared_(!sharedAnswerInUse) {
  if (shared_) {
    static engine::ValueArray shared;
    sharedAnswer = &shared;
    sharedAnswerInUse = true;
    shared.clear();
  }
  values_ = shared_ ? sharedAnswer : &own_;
}

AnswerBuffer::~AnswerBuffer() {
  if (!shared_) return;
  sharedAnswer->clear();  // the values go; the room stays
  sharedAnswerInUse = false;
}

bool readRecord(resbuf *cur, engine::Record &out) {
  out.clear();
  out.reserve(16);  // one allocation for a record of any usual size, not one per doubling
  for (;;) {
    while (cur && (cur->restype == RTLB || cur->restype == RTLE || cur->restype == RTDOTE)) cur = cur->rbnext;
    if (!cur) break;
    if (cur->restype != RTSTR) return false;
    engine::Field f;
    f.name = utf8Of(cur->resval.rstring);
    cur = cur->rbnext;
    if (cur && cur->restype == RTDOTE) cur = cur->rbnext;
    if (!cur) return false;
    if (cur->restype == RTLE) {
      f.value = engine::Value::null();
    } else {
      if (!toEngineValue(cur, f.value)) return false;
      cur = cur->rbnext;
    }
    out.push_back(std::move(f));
  }
  return !out.empty();
}

bool flattenArguments(const resbuf *cur, engine::ValueArray &out) {
  engine::ValueArray values;
  bool ok = true;
  for (; cur; cur = cur->rbnext) {
    switch (cur->restype) {
      case RTLB:
        values.push_back(engine::Value::text(engine::kMarkerListBegin));
        break;
      case RTLE:
        values.push_back(engine::Value::text(engine::kMarkerListEnd));
        break;
      case RTDOTE:
        values.push_back(engine::Value::text(engine::kMarkerDot));
        break;
      default: {
        engine::Value v;
        if (toEngineValue(cur, v))
          values.push_back(std::move(v));
        else
          ok = false;  // the walk still runs to the end
      }
    }
  }
  if (!ok) return false;
  out = std::move(values);
  return true;
}

void returnCount(int32_t n) {
  frame::returnInteger(n);
}

}  // namespace vantry::database
