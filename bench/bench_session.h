// One headless host session for all benchmarks of a run: a document, the
// product module and the test module loaded.
#pragma once

#include <cstdlib>
#include <string>

#include "session/session.h"

namespace vantry::bench {

inline lisp::Interp &session() {
  static lisp::Interp *in = [] {
    host::Session &s = host::Session::get();
    s.newDocument(L"");
    if (!s.loadModule(L"Vantry2025x64.arx", false) || !s.loadModule(L"vantry_testmod.arx", false))
      std::abort();
    return &s.current()->lisp();
  }();
  return *in;
}

inline lisp::Value compile(const std::wstring &text) {
  return session().readAll(text, {L"bench", 1}).at(0);
}

}  // namespace vantry::bench
