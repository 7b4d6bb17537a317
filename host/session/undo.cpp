// The host's undo record for a drawing: what UNDO and U go back through.
//
// Once the commands have been used on a database, every object that changes
// is kept as it was before its first change in the current step (a copy of
// its data and whether it was erased), and every object that joins is noted.
// A step is one command, or everything between UNDO BEgin and End (a group),
// or the changes LISP made between commands. Going back a step puts each
// changed object's data back, erases what joined (symbol table records leave
// their table too) and puts back the current layer, colour, linetype and
// text style and size as they were when the step began. Marks stop Back
// and numbered undos.
//
// Objects of classes the database cannot copy (the old-style polylines) get
// only their erased state back.
#include <unordered_set>

#include "session/internal.h"
#include "session/session.h"

#include "db/db.h"

namespace vantry::host {
namespace {

// The current values a step puts back.
const wchar_t *const kRestored[] = {L"CLAYER", L"CECOLOR", L"CELTYPE", L"TEXTSTYLE", L"TEXTSIZE"};

struct Entry {
  AcDbStub *stub = nullptr;
  bool joined = false;
  bool wasErased = false;
  AcDbObject *before = nullptr;  // owned
};

struct Step {
  std::wstring name;  // what undoing it prints ("GROUP" for a group)
  bool mark = false;
  std::vector<Entry> entries;
  std::unordered_set<const AcDbStub *> seen;
  std::vector<resbuf> vars;
  bool varsTaken = false;

  void takeVars() {
    if (varsTaken) return;
    varsTaken = true;
    for (const wchar_t *name : kRestored) {
      resbuf rb{};
      if (acedGetVar(name, &rb) != RTNORM) rb.restype = RTNONE;
      vars.push_back(rb);
    }
  }
  void clear() {
    for (Entry &e : entries) delete e.before;
    entries.clear();
    seen.clear();
    for (resbuf &rb : vars)
      if (rb.restype == RTSTR) acutDelString(rb.resval.rstring);
    vars.clear();
    varsTaken = false;
  }
  bool empty() const { return entries.empty(); }
};

class Log final : public UndoRecorder {
 public:
  ~Log() override {
    for (Step &s : done_) s.clear();
    current_.clear();
  }

  void changing(AcDbStub *s, bool joined) override {
    if (!s->obj || replaying_) return;
    if (!current_.seen.insert(s).second) return;
    current_.takeVars();
    Entry e;
    e.stub = s;
    e.joined = joined;
    if (!joined) {
      e.wasErased = s->obj->isErased();
      e.before = AcDbObject::cast(s->obj->clone());
    }
    current_.entries.push_back(e);
  }

  // Closes the changes made since the last step into a step of their own.
  void closeLoose() {
    if (group_ || current_.empty()) return;
    push(L"");
  }
  void commandStarts(const std::wstring &name) {
    closeLoose();
    if (!group_) current_.name = name;
    current_.takeVars();
  }
  void commandEnds() {
    if (!group_) push(current_.name);
  }
  void begin() {
    closeLoose();
    if (group_) push(L"GROUP");
    group_ = true;
    current_.name = L"GROUP";
    current_.takeVars();
  }
  void end() {
    if (!group_) return;
    group_ = false;
    push(L"GROUP");
  }
  void mark() {
    if (group_) return;  // marks are not kept inside a group
    closeLoose();
    Step m;
    m.mark = true;
    done_.push_back(std::move(m));
  }
  bool group() const { return group_; }
  int marks() const {
    int n = 0;
    for (const Step &s : done_) n += s.mark;
    return n;
  }
  bool hasMark() const { return marks() > 0; }

  // Goes back count steps (count < 0: to the last mark, which goes too).
  // Inside a group, a count undoes what the group did so far and keeps it open.
  void back(int count) {
    std::wstring said;
    if (group_ && count >= 0) {
      undo(current_);
      current_.clear();
      current_.takeVars();
      Session::get().print(L"GROUP\n");
      return;
    }
    closeLoose();
    if (group_) end();
    int undone = 0;
    while (count < 0 || undone < count) {
      if (done_.empty()) {
        said += L"Everything has been undone";
        break;
      }
      Step s = std::move(done_.back());
      done_.pop_back();
      if (s.mark) {
        if (count < 0) break;
        done_.push_back(std::move(s));  // a numbered undo stops before it
        said += L"Mark encountered";
        break;
      }
      undo(s);
      if (!s.name.empty()) said += s.name + L" ";
      s.clear();
      ++undone;
    }
    if (!said.empty()) Session::get().print(said + L"\n");
  }

 private:
  void push(const std::wstring &name) {
    current_.name = name;
    done_.push_back(std::move(current_));
    current_ = Step();
  }

  void undo(Step &s) {
    replaying_ = true;
    for (auto it = s.entries.rbegin(); it != s.entries.rend(); ++it) {
      AcDbObject *obj = it->stub->obj;
      if (!obj) continue;
      if (it->joined) {
        if (auto *rec = AcDbSymbolTableRecord::cast(obj))
          if (auto *table = AcDbSymbolTable::cast(objectOf(rec->ownerId())))
            if (recordId(table->objectId(), rec->name()) == AcDbObjectId(it->stub))
              DbAccess::removeTableKey(table, upperKey(rec->name()));
        DbAccess::setErased(obj, true);
      } else {
        if (it->before) obj->copyFrom(it->before);
        DbAccess::setErased(obj, it->wasErased);
      }
      noteWritten(it->stub);  // the selection index looks again
    }
    for (size_t i = 0; i < s.vars.size(); ++i)
      if (s.vars[i].restype != RTNONE) acedSetVar(kRestored[i], &s.vars[i]);
    replaying_ = false;
  }

  std::vector<Step> done_;
  Step current_;
  bool group_ = false;
  bool replaying_ = false;
};

Log &logOf(AcDbDatabase *db) {
  auto &slot = db->impl()->undo;
  if (!slot) slot = std::make_unique<Log>();
  return static_cast<Log &>(*slot);
}

}  // namespace

void undoCommandStarts(AcDbDatabase *db, const std::wstring &name) {
  logOf(db).commandStarts(name);
}
void undoCommandEnds(AcDbDatabase *db) {
  logOf(db).commandEnds();
}
void undoBegin(AcDbDatabase *db) {
  logOf(db).begin();
}
void undoEnd(AcDbDatabase *db) {
  logOf(db).end();
}
void undoMark(AcDbDatabase *db) {
  logOf(db).mark();
}
bool undoHasMark(AcDbDatabase *db) {
  return logOf(db).hasMark();
}
void undoBack(AcDbDatabase *db, int count) {
  logOf(db).back(count);
}
// UNDOCTL: on, Auto, zooms and layer changes combined (53), a group active (8);
// UNDOMARKS: the marks kept.
void undoPublishState(AcDbDatabase *db) {
  Log &log = logOf(db);
  resbuf rb{};
  rb.restype = RTSHORT;
  rb.resval.rint = short(53 | (log.group() ? 8 : 0));
  setSystemValue(L"UNDOCTL", rb);
  rb.resval.rint = short(log.marks());
  setSystemValue(L"UNDOMARKS", rb);
}

}  // namespace vantry::host
