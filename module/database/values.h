// Values between LISP and the engine.
//
// LISP to engine: real -> real; short and long integers -> 32-bit integer;
// string -> text; T -> boolean true; nil -> no value (empty); anything else
// cannot be converted.
// Engine to LISP: empty and null -> nil; integer -> integer (RTSHORT when it
// fits 16 bits, RTLONG otherwise); real -> real; text -> string; boolean ->
// T or nil; date -> its text "YYYY-MM-DD HH:MM:SS".
//
// A record goes to LISP as ((name . value) ...) in the engine's field order.
// A statement's answer goes to LISP as its plain values, then one record
// list per "*NewRecord*" marker.
#pragma once

#include <string>
#include <vector>

#include "engine/engine.h"
#include "frame/value_list.h"
#include "host/arx.h"

namespace vantry::database {

// Converts the node under the cursor; false when its type cannot travel.
bool toEngineValue(const resbuf *rb, engine::Value &out);
// A record as a LISP list of dotted pairs, returned to the host.
void returnRecord(const engine::Record &record);
// A statement's answer as a LISP list, returned to the host (nil when empty).
void returnValueArray(const engine::ValueArray &values);

// A statement's answer made into its LISP list as the engine reads it
// (Engine::ExecuteSqlInto), then returned to the host with returnToHost
// (nil when empty, or when memory ran out).
class ChainAnswer final : public engine::AnswerSink {
 public:
  ChainAnswer();
  ~ChainAnswer() override;
  ChainAnswer(const ChainAnswer &) = delete;
  ChainAnswer &operator=(const ChainAnswer &) = delete;

  void value(engine::Value &&v) override;
  void beginRow() override;
  void field(size_t place, const std::string &name, engine::Value &&v) override;
  void endRow() override;
  void returnToHost();

 private:
  void detach();
  const ACHAR *wideName(size_t place, const std::string &name);
  ACHAR *blockText(const std::string &utf8);
  ACHAR *blockRoom(size_t n);

  static constexpr size_t kBlockChars = 32 << 10;
  frame::ResultChain chain_;        // first: released after the strings are detached
  std::vector<std::string> names_;  // by place in the row
  std::vector<const ACHAR *> wide_;
  std::vector<ACHAR *> owned_;
  std::vector<resbuf *> borrowed_;
  ACHAR *blockNext_ = nullptr;
  ACHAR *blockEnd_ = nullptr;
};

// The array a statement's answer is read into. One array serves every
// answer and keeps its room between them: an answer of 100,000 rows is
// 1.7 million values, which in an array of its own were mapped afresh by
// the allocator, page by page, and copied as it grew, at every query. The
// values are released when the buffer goes out of scope; a nested buffer
// (none is expected) gets an array of its own.
class AnswerBuffer {
 public:
  AnswerBuffer();
  ~AnswerBuffer();
  AnswerBuffer(const AnswerBuffer &) = delete;
  AnswerBuffer &operator=(const AnswerBuffer &) = delete;
  engine::ValueArray &values() { return *values_; }

 private:
  engine::ValueArray own_;
  engine::ValueArray *values_;
  bool shared_;
};

// Reads a record from the cursor to the end of the arguments: names and
// values, in pairs, flat or as (name . value) / (name value) lists; list
// marks are skipped; a name followed directly by a list end gets null.
// False for a name that is not a string, a missing or unconvertible value,
// or no field at all.
bool readRecord(resbuf *cur, engine::Record &out);

// The whole argument list from the cursor on, flattened: list marks become
// the texts "*RTLB*", "*RTLE*", "*RTDOTE*", every other node one value.
// False (and nothing produced) when any node cannot be converted.
bool flattenArguments(const resbuf *cur, engine::ValueArray &out);

// An integer result: 16-bit when it fits, a real otherwise.
void returnCount(int32_t n);

}  // namespace vantry::database
