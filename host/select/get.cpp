// acedSSGet: the selection modes that need no person, and the dispatch to the
// person's selection (ss_prompt.cpp).
//
// The mode string is read without regard to case, underscores dropped: a
// method ("", "C", "W", "CP", "WP", "X", "A"/"ALL", "L", "P", "I"), then
// options each starting with a colon (":$" prompts, ":K" keywords, ":S" one
// selection only; others are accepted and ignored). A method given with
// options other than those of the person's selection, an unknown method, a
// missing corner or a malformed point list answer RTERROR; so does a
// selection that finds nothing (no set is made). On RTNORM the caller owns
// the set and frees it with acedSSFree; the selection becomes the previous
// one ("P").
#include <cwctype>

#include "common/text.h"
#include "select/select.h"

namespace vantry::host::select {
namespace {

struct Mode {
  std::wstring method;
  bool prompts = false, keywords = false, single = false;
};

bool parseMode(const ACHAR *text, Mode &m) {
  std::wstring s;
  for (const ACHAR *p = text ? text : L""; *p; ++p)
    if (*p != L'_') s += wchar_t(std::towupper(*p));
  size_t colon = s.find(L':');
  m.method = s.substr(0, colon);
  while (colon != std::wstring::npos) {
    size_t next = s.find(L':', colon + 1);
    std::wstring opt =
        s.substr(colon + 1, next == std::wstring::npos ? std::wstring::npos : next - colon - 1);
    if (opt == L"$")
      m.prompts = true;
    else if (opt == L"K")
      m.keywords = true;
    else if (opt == L"S")
      m.single = true;
    else if (opt.empty())
      return false;
    colon = next;
  }
  return true;
}

// Reads a polygon: a chain of RTPOINT / RT3DPOINT nodes, at least three.
bool polygonOf(const void *pt1, std::vector<P2> &out) {
  for (auto *rb = static_cast<const resbuf *>(pt1); rb; rb = rb->rbnext) {
    if (rb->restype != RTPOINT && rb->restype != RT3DPOINT) return false;
    out.push_back(P2{rb->resval.rpoint[0], rb->resval.rpoint[1]});
  }
  return out.size() >= 3;
}

int finish(const std::vector<AcDbObjectId> &ids, ads_name ss) {
  if (ids.empty()) return RTERROR;
  newSet(ids, ss);
  setPrevious(ids);
  return RTNORM;
}

std::vector<AcDbObjectId> filtered(const std::vector<AcDbObjectId> &ids, const Filter &filter) {
  std::vector<AcDbObjectId> out;
  for (AcDbObjectId id : ids) {
    auto *ent = AcDbEntity::cast(objectOf(id));
    if (ent && !ent->isErased() && filter.matches(*ent)) out.push_back(id);
  }
  return out;
}

}  // namespace
}  // namespace vantry::host::select

using namespace vantry::host::select;

int acedSSGet(const ACHAR *mode, const void *pt1, const void *pt2, const struct resbuf *filterList,
              ads_name ss) {
  if (!ss) return RTERROR;
  AcDbDatabase *db = vantry::host::workingDatabase();
  Mode m;
  Filter filter;
  if (!db || !parseMode(mode, m) || !filter.parse(filterList)) return RTERROR;
  const std::wstring &how = m.method;

  if (how.empty()) {
    PersonSelection person;
    if (m.prompts && pt1) {
      auto *prompts = static_cast<const ACHAR *const *>(pt1);
      if (prompts[0] && *prompts[0]) person.addPrompt = prompts[0];
      if (prompts[1] && *prompts[1]) person.removePrompt = prompts[1];
    }
    if (m.keywords && pt2) person.keywords = static_cast<const ACHAR *>(pt2);
    person.single = m.single;
    std::vector<AcDbObjectId> ids;
    int rc = person.run(db, filter, ids);
    return rc == RTNORM ? finish(ids, ss) : rc;
  }
  if (m.prompts || m.keywords) return RTERROR;
  if (how == L"C" || how == L"W") {
    if (!pt1 || !pt2) return RTERROR;
    auto *a = static_cast<const ads_real *>(pt1), *b = static_cast<const ads_real *>(pt2);
    Area area = Area::rectangle(P2{a[0], a[1]}, P2{b[0], b[1]});
    return finish(selectArea(db, area, how == L"C", filter), ss);
  }
  if (how == L"CP" || how == L"WP") {
    std::vector<P2> pts;
    if (!polygonOf(pt1, pts)) return RTERROR;
    return finish(selectArea(db, Area::poly(std::move(pts)), how == L"CP", filter), ss);
  }
  if (how == L"X") return finish(selectAll(db, filter, Reach::Everything), ss);
  if (how == L"A" || how == L"ALL") return finish(selectAll(db, filter, Reach::All), ss);
  if (how == L"L") {
    AcDbObjectId last = lastEntity(db);
    if (last.isNull()) return RTERROR;
    return finish(filtered({last}, filter), ss);
  }
  if (how == L"P") return finish(filtered(previous(), filter), ss);
  // "I" (the implied selection: nothing is ever selected before a command
  // here), fence and anything else.
  return RTERROR;
}
