// An interpreter with every built-in family installed, and table-driven
// checks of what a LISP caller sees: the printed (prin1) value of the last
// form, or "ERROR: <message>" (no *error* handler is set, so errors arrive
// as LispError).
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "lisp/lisp.h"

namespace vantry::lisp {

struct Case {
  const wchar_t *expr;
  const wchar_t *want;  // prin1 form of the value, or the error message
};

class LispFixture : public ::testing::Test {
 protected:
  LispFixture() { installAll(in); }

  std::wstring run(std::wstring_view text) {
    try {
      Value v;
      for (const Value &form : in.readAll(text, {L"t", 1})) v = in.eval(form);
      return in.toString(v, true);
    } catch (const LispError &e) {
      return L"ERROR: " + e.message;
    }
  }
  void expectValues(const std::vector<Case> &cases, std::wstring_view prefix = L"") {
    for (const Case &c : cases) EXPECT_EQ(run(c.expr), std::wstring(prefix) + c.want) << c.expr;
  }
  void expectErrors(const std::vector<Case> &cases) { expectValues(cases, L"ERROR: "); }

  Interp in;
};

}  // namespace vantry::lisp
