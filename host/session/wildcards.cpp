// acutWcMatch: the host's wild-card matcher, the one wcmatch uses, offered
// to modules through the host's API.
#include "host/arx.h"
#include "lisp/lisp.h"

int acutWcMatch(const ACHAR *string, const ACHAR *pattern) {
  if (!string || !pattern) return RTERROR;
  return vantry::lisp::wcmatch(string, pattern) ? RTNORM : RTERROR;
}
