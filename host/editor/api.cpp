// The editor's C API over the shared input code of host/editor/editor.h.
#include <cwchar>

#include "editor/editor.h"

namespace {

using vantry::host::editor::ask;
using vantry::host::editor::Kind;
using vantry::host::editor::Query;
using vantry::host::editor::Reply;

Query query(Kind kind, const ACHAR *prompt, const ads_point base = nullptr) {
  Query q;
  q.kind = kind;
  q.prompt = prompt ? prompt : L"";
  if (base) q.base = vantry::host::editor::Point{base[0], base[1], base[2]};
  return q;
}

// Copies text into a caller's buffer; false when it had to be cut.
bool copyOut(const std::wstring &text, ACHAR *buf, size_t size) {
  if (!buf || size == 0) return false;
  size_t n = text.size() < size - 1 ? text.size() : size - 1;
  std::wmemcpy(buf, text.data(), n);
  buf[n] = L'\0';
  return n == text.size();
}

int pointRequest(Kind kind, const ads_point base, const ACHAR *prompt, ads_point result) {
  Reply r = ask(query(kind, prompt, base));
  if (r.status == RTNORM && result)
    for (int i = 0; i < 3; ++i) result[i] = r.point[i];
  return r.status;
}

int realRequest(Kind kind, const ads_point base, const ACHAR *prompt, ads_real *result) {
  Reply r = ask(query(kind, prompt, base));
  if (r.status == RTNORM && result) *result = r.real;
  return r.status;
}

}  // namespace

int acedInitGet(int val, const ACHAR *kwl) {
  vantry::host::editor::initGet(val, kwl ? kwl : L"");
  return RTNORM;
}

int acedGetPoint(const ads_point pt, const ACHAR *prmpt, ads_point result) {
  return pointRequest(Kind::Point, pt, prmpt, result);
}

int acedGetCorner(const ads_point pt, const ACHAR *prmpt, ads_point result) {
  if (!pt) return RTERROR;  // a corner needs its first corner
  return pointRequest(Kind::Corner, pt, prmpt, result);
}

int acedGetInt(const ACHAR *prmpt, int *result) {
  Reply r = ask(query(Kind::Int, prmpt));
  if (r.status == RTNORM && result) *result = int(r.integer);
  return r.status;
}

int acedGetReal(const ACHAR *prmpt, ads_real *result) {
  return realRequest(Kind::Real, nullptr, prmpt, result);
}
int acedGetDist(const ads_point pt, const ACHAR *prmpt, ads_real *result) {
  return realRequest(Kind::Dist, pt, prmpt, result);
}
int acedGetAngle(const ads_point pt, const ACHAR *prmpt, ads_real *result) {
  return realRequest(Kind::Angle, pt, prmpt, result);
}
int acedGetOrient(const ads_point pt, const ACHAR *prmpt, ads_real *result) {
  return realRequest(Kind::Orient, pt, prmpt, result);
}

int acedGetString(int cronly, const ACHAR *prmpt, ACHAR *result, size_t bufsize) {
  Query q = query(Kind::String, prmpt);
  q.spaces = cronly != 0;
  Reply r = ask(q);
  if (r.status == RTNORM && !copyOut(r.text, result, bufsize)) return RTINPUTTRUNC;
  return r.status;
}

int acedGetKword(const ACHAR *prmpt, ACHAR *result, size_t bufsize) {
  Reply r = ask(query(Kind::Kword, prmpt));
  if (r.status == RTNORM && !copyOut(r.text, result, bufsize)) return RTINPUTTRUNC;
  return r.status;
}

int acedGetInput(ACHAR *str, size_t bufsize) {
  return copyOut(vantry::host::editor::lastInput(), str, bufsize) ? RTNORM : RTINPUTTRUNC;
}
