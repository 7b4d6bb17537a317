// LISP value lists as the module reads and writes them.
//
// Every LISP function of the module receives its arguments as one result-
// buffer chain (acedGetArgs) and walks it with the readers below, in the
// order of its documented arguments. A reader looks at the node under the
// cursor; on success it fills its output, advances the cursor past what it
// consumed and returns true; on failure it returns false and moves nothing.
// Readers never print: the caller turns a failure into a status for the call
// frame, which prints the message.
//
// Ownership: the chain belongs to the implementation, which releases it with
// acutRelRb on every exit path (ArgList does that). Result lists built here
// are handed to acedRetList and released at once: the host keeps a copy.
#pragma once

#include <string>

#include "host/arx.h"

namespace vantry::frame {

using LispValueList = resbuf;

// The argument chain of the call in progress, released on every exit.
class ArgList {
 public:
  ArgList() : head_(acedGetArgs()), cursor_(head_) {}
  ~ArgList() { acutRelRb(head_); }
  ArgList(const ArgList &) = delete;
  ArgList &operator=(const ArgList &) = delete;
  resbuf *head() const { return head_; }
  // The reading position; readers advance it.
  resbuf *&cursor() { return cursor_; }

 private:
  resbuf *head_;
  resbuf *cursor_;
};

// RTREAL; otherwise whatever readInteger accepts, widened.
bool readReal(resbuf *&cur, double &out);
// RTREAL only.
bool readRealStrict(resbuf *&cur, double &out);
// RTSHORT, RTLONG, RTREAL (truncated toward zero), or a group-code node
// (code below 1000), which yields the code itself without advancing.
bool readInteger(resbuf *&cur, int &out);
// Anything but RTLB: RTNIL is false and advances; RTLE is false and stays
// (a missing trailing flag inside a list); any other node is true and
// advances.
bool readBoolean(resbuf *&cur, bool &out);
// One RTPOINT (z = 0), RT3DPOINT or point group code (10 to 17); or two or
// three numbers in a row (z = 0 when only two).
bool readPoint(resbuf *&cur, ads_point out);
// RTSTR, copied.
bool readString(resbuf *&cur, std::wstring &out);
// RTSTR reduced to the low 8 bits of each character.
bool readNarrowString(resbuf *&cur, std::string &out);
// RTENAME.
bool readEntityName(resbuf *&cur, ads_name out);
// RTENAME converted to its object id (acdbGetObjectId); fails, moving
// nothing, also when the name maps to no object of an open drawing.
bool readObjectId(resbuf *&cur, AcDbObjectId &id);
bool readListBegin(resbuf *&cur);
bool readListEnd(resbuf *&cur);
// Whether the node is a number: RTREAL, RTSHORT or RTLONG (false for null).
bool isNumber(const resbuf *rb);
// Advances one node when there is one; never fails.
void skipArgument(resbuf *&cur);

// A chain of result buffers under construction, grown at its tail: the one
// way the module builds what it returns. It owns its nodes until it hands
// them on (release, returnToHost), so a chain dropped on an early return or
// a failure is released. When memory runs out the chain is spoiled: later
// additions do nothing and returnToHost answers nil. A list result is the
// chain RTLB ... RTLE.
class ResultChain {
 public:
  ResultChain() = default;
  ~ResultChain() { acutRelRb(head_); }
  ResultChain(const ResultChain &) = delete;
  ResultChain &operator=(const ResultChain &) = delete;

  bool ok() const { return ok_; }
  resbuf *head() const { return head_; }
  // A new node of the type at the tail, or null (spoiling the chain) when
  // memory ran out. Inline: records reach LISP through here by the hundred
  // thousand.
  resbuf *add(int type) {
    resbuf *rb = ok_ ? acutNewRb(type) : nullptr;
    if (!rb) {
      ok_ = false;
      return nullptr;
    }
    (tail_ ? tail_->rbnext : head_) = rb;
    tail_ = rb;
    return rb;
  }
  // Marks the chain spoiled, when a node's value could not be made.
  void spoil() { ok_ = false; }
  void addText(const ACHAR *text);  // RTSTR, copied
  void addName(const ads_name name);
  // ("key" . number), ("key" . real), ("key" . entity) or ("key") for a
  // null name.
  void addPair(const ACHAR *key, int32_t number);
  void addPair(const ACHAR *key, double number);
  void addPair(const ACHAR *key, const ads_name name);
  // Takes over a chain; null adds nothing.
  void append(resbuf *chain);
  // The nodes, now the caller's; the chain is empty again.
  resbuf *release();
  // Hands the chain to the host as the result (the host keeps its own copy)
  // and releases it; nil when it is spoiled.
  void returnToHost();

 private:
  resbuf *head_ = nullptr, *tail_ = nullptr;
  bool ok_ = true;
};

// A 16-bit integer when it fits, else a real.
void returnInteger(int32_t value);
// The id as an entity name (acdbGetAdsName), or nil when it has none.
void returnObjectId(AcDbObjectId id);
// returnObjectId of the object's id.
void returnEntity(const AcDbObject *object);

}  // namespace vantry::frame
