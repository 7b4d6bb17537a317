// Argument readers and result helpers.
#include "frame/value_list.h"

#include <cmath>
#include <cstdlib>
#include <cwchar>

namespace vantry::frame {
namespace {

bool isInteger(const resbuf *rb) {
  return rb->restype == RTSHORT || rb->restype == RTLONG;
}
double numberOf(const resbuf *rb) {
  if (rb->restype == RTREAL) return rb->resval.rreal;
  return rb->restype == RTSHORT ? rb->resval.rint : rb->resval.rlong;
}

}  // namespace

bool readReal(resbuf *&cur, double &out) {
  if (!cur) return false;
  if (cur->restype == RTREAL) {
    out = cur->resval.rreal;
    cur = cur->rbnext;
    return true;
  }
  int i;
  if (!readInteger(cur, i)) return false;
  out = i;
  return true;
}

bool readRealStrict(resbuf *&cur, double &out) {
  if (!cur || cur->restype != RTREAL) return false;
  out = cur->resval.rreal;
  cur = cur->rbnext;
  return true;
}

bool readInteger(resbuf *&cur, int &out) {
  if (!cur) return false;
  switch (cur->restype) {
    case RTSHORT:
      out = cur->resval.rint;
      break;
    case RTLONG:
      out = cur->resval.rlong;
      break;
    case RTREAL: {
      double t = std::trunc(cur->resval.rreal);
      // A real beyond the 32-bit range saturates rather than overflowing; NaN, which has no whole
      // part, reads as 0.
      out = std::isnan(t) ? 0 : t >= 2147483647.0 ? 2147483647 : t <= -2147483648.0 ? int(-2147483647 - 1) : int(t);
      break;
    }
    default:
      if (cur->restype < 1000) {
        out = cur->restype;  // a group code reads as itself and stays put
        return true;
      }
      return false;
  }
  cur = cur->rbnext;
  return true;
}

bool readBoolean(resbuf *&cur, bool &out) {
  if (!cur || cur->restype == RTLB) return false;
  if (cur->restype == RTLE) {
    out = false;
    return true;
  }
  out = cur->restype != RTNIL;
  cur = cur->rbnext;
  return true;
}

bool readPoint(resbuf *&cur, ads_point out) {
  if (!cur) return false;
  int t = cur->restype;
  if (t == RTPOINT || t == RT3DPOINT || (t >= 10 && t <= 17)) {
    out[0] = cur->resval.rpoint[0];
    out[1] = cur->resval.rpoint[1];
    out[2] = t == RTPOINT ? 0.0 : cur->resval.rpoint[2];
    cur = cur->rbnext;
    return true;
  }
  if (!isNumber(cur) || !cur->rbnext || !isNumber(cur->rbnext)) return false;
  resbuf *p = cur;
  out[0] = numberOf(p);
  p = p->rbnext;
  out[1] = numberOf(p);
  p = p->rbnext;
  out[2] = 0.0;
  if (p && isNumber(p)) {
    out[2] = numberOf(p);
    p = p->rbnext;
  }
  cur = p;
  return true;
}

bool readString(resbuf *&cur, std::wstring &out) {
  if (!cur || cur->restype != RTSTR) return false;
  out = cur->resval.rstring ? cur->resval.rstring : L"";
  cur = cur->rbnext;
  return true;
}

bool readNarrowString(resbuf *&cur, std::string &out) {
  std::wstring w;
  if (!readString(cur, w)) return false;
  out.clear();
  for (wchar_t c : w) out += char(c & 0xFF);
  return true;
}

bool readEntityName(resbuf *&cur, ads_name out) {
  if (!cur || cur->restype != RTENAME) return false;
  out[0] = cur->resval.rlname[0];
  out[1] = cur->resval.rlname[1];
  cur = cur->rbnext;
  return true;
}

bool readObjectId(resbuf *&cur, AcDbObjectId &id) {
  resbuf *at = cur;
  ads_name name;
  if (!readEntityName(cur, name)) return false;
  if (acdbGetObjectId(id, name) != Acad::eOk) {
    cur = at;
    return false;
  }
  return true;
}

bool readListBegin(resbuf *&cur) {
  if (!cur || cur->restype != RTLB) return false;
  cur = cur->rbnext;
  return true;
}

bool readListEnd(resbuf *&cur) {
  if (!cur || cur->restype != RTLE) return false;
  cur = cur->rbnext;
  return true;
}

bool isNumber(const resbuf *rb) {
  return rb && (rb->restype == RTREAL || isInteger(rb));
}

void skipArgument(resbuf *&cur) {
  if (cur) cur = cur->rbnext;
}

void ResultChain::addText(const ACHAR *text) {
  if (resbuf *rb = add(RTSTR)) {
    rb->resval.rstring = static_cast<ACHAR *>(std::malloc((std::wcslen(text) + 1) * sizeof(ACHAR)));
    if (rb->resval.rstring)
      std::wcscpy(rb->resval.rstring, text);
    else
      ok_ = false;
  }
}

void ResultChain::addName(const ads_name name) {
  if (resbuf *rb = add(RTENAME)) {
    rb->resval.rlname[0] = name[0];
    rb->resval.rlname[1] = name[1];
  }
}

void ResultChain::addPair(const ACHAR *key, int32_t number) {
  append(acutBuildList(RTLB, RTSTR, key, RTDOTE, RTLONG, number, RTLE, 0));
}

void ResultChain::addPair(const ACHAR *key, double number) {
  append(acutBuildList(RTLB, RTSTR, key, RTDOTE, RTREAL, number, RTLE, 0));
}

void ResultChain::addPair(const ACHAR *key, const ads_name name) {
  append(name ? acutBuildList(RTLB, RTSTR, key, RTDOTE, RTENAME, name, RTLE, 0)
              : acutBuildList(RTLB, RTSTR, key, RTDOTE, RTNIL, RTLE, 0));
}

void ResultChain::append(resbuf *chain) {
  if (!ok_) {
    acutRelRb(chain);
    return;
  }
  if (!chain) return;
  (tail_ ? tail_->rbnext : head_) = chain;
  tail_ = chain;
  while (tail_->rbnext) tail_ = tail_->rbnext;
}

resbuf *ResultChain::release() {
  resbuf *h = head_;
  head_ = tail_ = nullptr;
  return h;
}

void ResultChain::returnToHost() {
  if (ok_ && head_)
    acedRetList(head_);
  else
    acedRetNil();
  acutRelRb(release());
  ok_ = true;
}

void returnObjectId(AcDbObjectId id) {
  ads_name name;
  if (acdbGetAdsName(name, id) == Acad::eOk)
    acedRetName(name, RTENAME);
  else
    acedRetNil();
}

void returnEntity(const AcDbObject *object) {
  returnObjectId(object ? object->objectId() : AcDbObjectId::kNull);
}

void returnInteger(int32_t value) {
  if (value >= -32768 && value <= 32767)
    acedRetInt(value);
  else
    acedRetReal(double(value));
}

}  // namespace vantry::frame
