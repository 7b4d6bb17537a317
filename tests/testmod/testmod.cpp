// A small module for the host's own tests: it registers a few external
// functions through the host's entry point, the same way the product module
// does, so the bridge between LISP and result buffers can be exercised
// without the product.
#include <cmath>
#include <cwchar>

#include "host/arx.h"

namespace {

// (tm-add a b): the sum of two numbers as a real.
int tmAdd() {
  resbuf *args = acedGetArgs();
  int rc = RSERR;
  resbuf *a = args, *b = args ? args->rbnext : nullptr;
  auto num = [](const resbuf *rb, double *out) {
    if (!rb) return false;
    if (rb->restype == RTREAL)
      *out = rb->resval.rreal;
    else if (rb->restype == RTSHORT)
      *out = rb->resval.rint;
    else if (rb->restype == RTLONG)
      *out = rb->resval.rlong;
    else
      return false;
    return true;
  };
  double x, y;
  if (num(a, &x) && num(b, &y)) {
    acedRetReal(x + y);
    rc = RSRSLT;
  }
  acutRelRb(args);
  return rc;
}

// (tm-sin x): the sine of one real, the cheapest useful external call.
int tmSin() {
  resbuf *args = acedGetArgs();
  int rc = RSERR;
  if (args && args->restype == RTREAL) {
    acedRetReal(std::sin(args->resval.rreal));
    rc = RSRSLT;
  }
  acutRelRb(args);
  return rc;
}

// (tm-echo args...): returns its arguments as the list it received.
int tmEcho() {
  resbuf *args = acedGetArgs();
  if (args)
    acedRetList(args);
  else
    acedRetNil();
  acutRelRb(args);
  return RSRSLT;
}

// (tm-types args...): the type code of every node of the argument chain.
int tmTypes() {
  resbuf *args = acedGetArgs();
  resbuf *head = nullptr, *tail = nullptr;
  for (resbuf *p = args; p; p = p->rbnext) {
    resbuf *n = acutBuildList(RTSHORT, int(p->restype), 0);
    if (tail)
      tail->rbnext = n;
    else
      head = n;
    tail = n;
  }
  if (head)
    acedRetList(head);
  else
    acedRetNil();
  acutRelRb(head);
  acutRelRb(args);
  return RSRSLT;
}

// (tm-fail): prints a message and fails.
int tmFail() {
  acutPrintf(L"\n%s failed on purpose.\n", L"tm-fail");
  return RSERR;
}

// (tm-invoke "name" args...): calls a LISP function through acedInvoke and
// returns its value, or the symbol-free string "RTERROR" when the call fails.
int tmInvoke() {
  resbuf *args = acedGetArgs();
  resbuf *result = nullptr;
  int rc = acedInvoke(args, &result);
  if (rc != RTNORM)
    acedRetStr(L"RTERROR");
  else if (result)
    acedRetVal(result);
  else
    acedRetNil();
  acutRelRb(result);
  acutRelRb(args);
  return RSRSLT;
}

// (tm-code): the function code the host handed back for this call.
int tmCode() {
  acedRetInt(acedGetFunCode());
  return RSRSLT;
}

// (tm-void): a blank result.
int tmVoid() {
  acedRetVoid();
  return RSRSLT;
}

// (tm-build): a list built with every kind of node acutBuildList knows.
int tmBuild() {
  ads_point p = {1.0, 2.0, 3.0};
  resbuf *list =
      acutBuildList(RTLB, RTSHORT, 7, RTLONG, 100000, RTREAL, 2.5, RTSTR, L"s", RT3DPOINT, p, RTLB, RTSTR,
                    L"k", RTDOTE, RTSHORT, 1, RTLE, RTLB, RTDXF0, L"LINE", 10, p, RTLE, RTT, RTNIL, RTLE, 0);
  acedRetList(list);
  acutRelRb(list);
  return RSRSLT;
}

struct Row {
  const wchar_t *name;
  int (*fn)();
};
const Row kRows[] = {
    {L"tm-add", tmAdd},     {L"tm-sin", tmSin},   {L"tm-echo", tmEcho},
    {L"tm-types", tmTypes}, {L"tm-fail", tmFail}, {L"tm-invoke", tmInvoke},
    {L"tm-code", tmCode},   {L"tm-void", tmVoid}, {L"tm-build", tmBuild},
};
const int kBase = 500;

}  // namespace

extern "C" AcRx::AppRetCode acrxEntryPoint(AcRx::AppMsgCode msg, void *appId) {
  switch (msg) {
    case AcRx::kInitAppMsg:
      acrxUnlockApplication(appId);
      acrxRegisterAppMDIAware(appId);
      break;
    case AcRx::kLoadDwgMsg:
      for (int i = 0; i < int(sizeof kRows / sizeof kRows[0]); ++i) {
        acedDefun(kRows[i].name, kBase + i);
        acedRegFunc(kRows[i].fn, kBase + i);
      }
      break;
    default:
      break;
  }
  return AcRx::kRetOK;
}
