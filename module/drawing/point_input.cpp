// Point input for LISP: a point with the caller's prompt, a point or a
// keyword, and the opposite corner of a rectangle. Cancel, Enter and input
// errors answer nil; only a missing base point of ol_ol-getCorner is an
// error.
#include <string>

#include "frame/implementations.h"
#include "frame/value_list.h"

namespace vantry::lispfn {
namespace {

using frame::ArgList;

// The keyword fetch buffer of ol_ol-getPoint-withKWords, in characters with
// the terminating zero: a longer keyword comes back cut to 19 characters.
constexpr size_t kKeywordBufferSize = 20;

// An absent or non-string argument reads as the empty prompt; the cursor
// stays on it then.
std::wstring optionalString(resbuf *&cur) {
  std::wstring text;
  if (!frame::readString(cur, text)) text.clear();
  return text;
}

}  // namespace

// Arguments: [prompt].
int ol_ol_getPoint() {
  acedRetNil();
  ArgList args;
  std::wstring prompt = optionalString(args.cursor());
  ads_point p;
  if (acedGetPoint(nullptr, prompt.c_str(), p) == RTNORM) acedRetPoint(p);
  return 0;
}

// Arguments: [prompt [keywords]]. Enter is refused (the person must answer a
// point, a keyword or cancel). The keyword comes back whole, as the host
// completes it from its abbreviation.
int ol_ol_getPoint_withKWords() {
  acedRetNil();
  ArgList args;
  resbuf *&cur = args.cursor();
  std::wstring prompt = optionalString(cur);
  std::wstring keywords = optionalString(cur);
  acedInitGet(1, keywords.c_str());
  ads_point p;
  int rc = acedGetPoint(nullptr, prompt.c_str(), p);
  if (rc == RTKWORD) {
    ACHAR keyword[kKeywordBufferSize];
    int got = acedGetInput(keyword, kKeywordBufferSize);
    if (got == RTNORM || got == RTINPUTTRUNC) acedRetStr(keyword);
  } else if (rc == RTNORM) {
    acedRetPoint(p);
  }
  return 0;
}

// Arguments: base point (a point, or two or three numbers), [prompt].
int ol_ol_getCorner() {
  acedRetNil();
  ArgList args;
  resbuf *&cur = args.cursor();
  ads_point base;
  if (!frame::readPoint(cur, base)) return 2;
  std::wstring prompt = optionalString(cur);
  ads_point corner;
  if (acedGetCorner(base, prompt.c_str(), corner) == RTNORM) acedRetPoint(corner);
  return 0;
}

}  // namespace vantry::lispfn
