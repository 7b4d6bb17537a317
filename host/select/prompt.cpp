// The person's selection: acedSSGet's "" mode over the input queue, and its
// keyword callback.
//
// Answers at "Select objects: " (or the ":$" prompts):
//   a pick                 the entity under the point (see pickAt);
//   a point                the same; on empty ground it opens a window whose
//                          other corner is the next answer: to the right of
//                          the first a window, to the left a crossing;
//   W, C, BOX              a window, a crossing, or either by direction, from
//                          two corners asked next;
//   WP, CP                 a window or crossing polygon: points until Enter
//                          ("U" takes the last point back);
//   ALL, L, P              everything but frozen layers, the last entity,
//                          the previous selection;
//   R, A                   go on removing, go on adding;
//   a ":K" keyword         (after the options above, which win) calls the
//                          keyword callback if one is set, whose answer adds
//                          entities (RTENAME, RTPICKS) or prints a message
//                          (RTSTR); with no callback the keyword ends the
//                          selection: RTKWORD, acedGetInput hands it over;
//   Enter                  ends the selection; Esc cancels it (RTCAN).
// Anything else is "*Invalid selection*" and the prompt again. After each
// answer the transcript says how many were found (or removed) and the total.
// The filter applies to everything chosen.
#include <algorithm>
#include <cwctype>

#include "editor/editor.h"
#include "common/text.h"
#include "session/session.h"
#include "select/select.h"

namespace vantry::host::select {
namespace {

resbuf *(*keywordCallback)(const ACHAR *) = nullptr;

std::wstring option(const std::wstring &text) {
  std::wstring t = text::upcase(text);
  t.erase(std::remove_if(t.begin(), t.end(), [](wchar_t c) { return std::iswspace(c); }), t.end());
  if (!t.empty() && t[0] == L'_') t.erase(0, 1);
  return t;
}

bool builtIn(const std::wstring &opt) {
  static const wchar_t *const names[] = {L"W", L"C", L"BOX", L"WP", L"CP", L"ALL", L"L", L"P", L"R", L"A"};
  for (const wchar_t *n : names)
    if (opt == n) return true;
  return false;
}

class Run {
 public:
  Run(const PersonSelection &p, AcDbDatabase *db, const Filter &f) : p_(p), db_(db), filter_(f) {}
  int go(std::vector<AcDbObjectId> &out);

 private:
  // One answer of a point kind, or nullopt with status set (cancel) or an
  // Enter (status RTNONE).
  std::optional<P2> point(const wchar_t *prompt, int &status);
  void apply(const std::vector<AcDbObjectId> &ids);
  void invalid() {
    s_.print(
        L"*Invalid selection*\nExpects a point or "
        L"Window/Last/Crossing/BOX/ALL/WPolygon/CPolygon/Add/Remove/Previous\n");
  }
  std::vector<AcDbObjectId> area(P2 a, P2 b, bool crossing) {
    return selectArea(db_, Area::rectangle(a, b), crossing, filter_);
  }
  int polygon(bool crossing);
  int keyword(const editor::Keyword &k);

  const PersonSelection &p_;
  AcDbDatabase *db_;
  const Filter &filter_;
  Session &s_ = Session::get();
  bool removing_ = false;
  bool chose_ = false;
  std::vector<AcDbObjectId> chosen_;
};

std::optional<P2> Run::point(const wchar_t *prompt, int &status) {
  for (;;) {
    s_.print(prompt);
    InputItem item = s_.nextInput();
    s_.print(editor::echoOf(item) + L"\n");
    if (item.kind == InputItem::Cancel) {
      status = RTCAN;
      return std::nullopt;
    }
    if (item.kind == InputItem::Empty) {
      status = RTNONE;
      return std::nullopt;
    }
    if (item.kind != InputItem::Text) return P2{item.pt[0], item.pt[1]};
    if (auto p = editor::parsePoint(item.text, {0, 0, 0}, 0)) return P2{(*p)[0], (*p)[1]};
    if (option(item.text) == L"U") {
      status = RTREJ;  // take the last point back
      return std::nullopt;
    }
    s_.print(L"Invalid point.\n");
  }
}

void Run::apply(const std::vector<AcDbObjectId> &ids) {
  int count = 0, duplicates = 0;
  for (AcDbObjectId id : ids) {
    auto it = std::find(chosen_.begin(), chosen_.end(), id);
    if (removing_) {
      if (it != chosen_.end()) chosen_.erase(it), ++count;
    } else if (it == chosen_.end()) {
      chosen_.push_back(id), ++count;
    } else {
      ++duplicates;
    }
  }
  std::wstring line =
      std::to_wstring(removing_ ? count : count + duplicates) + (removing_ ? L" removed" : L" found");
  if (duplicates) line += L" (" + std::to_wstring(duplicates) + L" duplicate)";
  if (size_t(count) != chosen_.size() || duplicates || removing_)
    line += L", " + std::to_wstring(chosen_.size()) + L" total";
  s_.print(line + L"\n");
  chose_ = chose_ || !ids.empty();
}

int Run::polygon(bool crossing) {
  std::vector<P2> pts;
  for (;;) {
    int status = RTNORM;
    auto p = point(pts.empty() ? L"First polygon point: " : L"Specify endpoint of line or [Undo]: ", status);
    if (p) {
      pts.push_back(*p);
      continue;
    }
    if (status == RTCAN) return RTCAN;
    if (status == RTREJ) {
      if (!pts.empty()) pts.pop_back();
      continue;
    }
    break;  // Enter closes the polygon
  }
  if (pts.size() < 3) {
    s_.print(L"A polygon needs at least three points.\n");
    return RTNORM;
  }
  apply(selectArea(db_, Area::poly(std::move(pts)), crossing, filter_));
  return RTNORM;
}

int Run::keyword(const editor::Keyword &k) {
  if (!keywordCallback) return RTKWORD;
  resbuf *answer = keywordCallback(k.global.c_str());
  std::vector<AcDbObjectId> ids;
  for (resbuf *rb = answer; rb; rb = rb->rbnext) {
    if (rb->restype == RTENAME) {
      AcDbObjectId id;
      if (acdbGetObjectId(id, rb->resval.rlname) == Acad::eOk && AcDbEntity::cast(objectOf(id)))
        ids.push_back(id);
    } else if (rb->restype == RTPICKS) {
      setMembers(rb->resval.rlname, ids);
    } else if (rb->restype == RTSTR && rb->resval.rstring) {
      s_.print(std::wstring(rb->resval.rstring) + L"\n");
    }
  }
  acutRelRb(answer);
  std::vector<AcDbObjectId> kept;
  for (AcDbObjectId id : ids)
    if (filter_.matches(*AcDbEntity::cast(objectOf(id)))) kept.push_back(id);
  if (!kept.empty()) apply(kept);
  return RTNORM;
}

int Run::go(std::vector<AcDbObjectId> &out) {
  std::vector<editor::Keyword> keywords = editor::parseKeywords(p_.keywords);
  for (;;) {
    if (p_.single && chose_) break;
    const std::wstring &prompt = removing_ ? p_.removePrompt : p_.addPrompt;
    // A keyword is taken through the editor's keyword request, so that
    // acedGetInput hands it over as after any other request.
    if (!keywords.empty() && !s_.input.empty() && s_.input.front().kind == InputItem::Text &&
        !builtIn(option(s_.input.front().text))) {
      if (const editor::Keyword *k = editor::matchKeyword(keywords, s_.input.front().text)) {
        editor::initGet(0, p_.keywords);
        editor::Query q;
        q.kind = editor::Kind::Kword;
        q.prompt = prompt;
        editor::ask(q);
        if (keyword(*k) == RTKWORD) return RTKWORD;
        continue;
      }
    }
    s_.print(prompt);
    InputItem item = s_.nextInput();
    s_.print(editor::echoOf(item) + L"\n");
    if (item.kind == InputItem::Cancel) return RTCAN;
    if (item.kind == InputItem::Empty) break;
    std::optional<P2> at;
    std::wstring opt;
    if (item.kind == InputItem::Text) {
      if (auto p = editor::parsePoint(item.text, {0, 0, 0}, 0))
        at = P2{(*p)[0], (*p)[1]};
      else
        opt = option(item.text);
    } else {
      at = P2{item.pt[0], item.pt[1]};
    }
    int status = RTNORM;
    if (at) {
      AcDbObjectId hit = pickAt(db_, *at);
      if (!hit.isNull() && filter_.matches(*AcDbEntity::cast(objectOf(hit)))) {
        apply({hit});
      } else if (!hit.isNull() || item.kind == InputItem::Pick) {
        apply({});
      } else {
        // Empty ground: the point opens a window.
        auto other = point(L"Specify opposite corner: ", status);
        if (status == RTCAN) return RTCAN;
        if (other) apply(area(*at, *other, other->x < at->x));
      }
      continue;
    }
    if (opt == L"W" || opt == L"C" || opt == L"BOX") {
      auto a = point(L"Specify first corner: ", status);
      if (status == RTCAN) return RTCAN;
      if (!a) continue;
      auto b = point(L"Specify opposite corner: ", status);
      if (status == RTCAN) return RTCAN;
      if (!b) continue;
      bool crossing = opt == L"C" || (opt == L"BOX" && b->x < a->x);
      apply(area(*a, *b, crossing));
    } else if (opt == L"WP" || opt == L"CP") {
      if (polygon(opt == L"CP") == RTCAN) return RTCAN;
    } else if (opt == L"ALL") {
      apply(selectAll(db_, filter_, Reach::All));
    } else if (opt == L"L") {
      AcDbObjectId last = lastEntity(db_);
      bool keep = !last.isNull() && filter_.matches(*AcDbEntity::cast(objectOf(last)));
      apply(keep ? std::vector<AcDbObjectId>{last} : std::vector<AcDbObjectId>{});
    } else if (opt == L"P") {
      std::vector<AcDbObjectId> prev;
      for (AcDbObjectId id : previous()) {
        auto *ent = AcDbEntity::cast(objectOf(id));
        if (ent && !ent->isErased() && filter_.matches(*ent)) prev.push_back(id);
      }
      apply(prev);
    } else if (opt == L"R") {
      removing_ = true;
    } else if (opt == L"A") {
      removing_ = false;
    } else {
      invalid();
    }
  }
  out = chosen_;
  return RTNORM;
}

}  // namespace

int PersonSelection::run(AcDbDatabase *db, const Filter &filter, std::vector<AcDbObjectId> &out) {
  return Run(*this, db, filter).go(out);
}

}  // namespace vantry::host::select

int acedSSSetKwordCallbackPtr(struct resbuf *(*cb)(const ACHAR *)) {
  vantry::host::select::keywordCallback = cb;
  return RTNORM;
}

int acedSSGetKwordCallbackPtr(struct resbuf *(**cb)(const ACHAR *)) {
  if (!cb) return RTERROR;
  *cb = vantry::host::select::keywordCallback;
  return RTNORM;
}
