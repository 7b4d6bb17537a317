// A fresh host session with the module started through its entry point and
// one document loaded, and LISP run in that document as a script would.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "database/context.h"
#include "session/session.h"

extern "C" AcRx::AppRetCode acrxEntryPoint(AcRx::AppMsgCode msg, void *appId);

namespace vantry {

class ModuleFixture : public ::testing::Test {
 protected:
  ModuleFixture() {
    host::Session::get().reset();
    database::clearContext();
    host::Session::get().newDocument(L"");
    EXPECT_EQ(acrxEntryPoint(AcRx::kInitAppMsg, this), AcRx::kRetOK);
    EXPECT_EQ(acrxEntryPoint(AcRx::kLoadDwgMsg, this), AcRx::kRetOK);
  }
  ~ModuleFixture() override {
    acrxEntryPoint(AcRx::kUnloadAppMsg, this);
    host::Session::get().reset();
  }

  // The printed value of the last form, or "ERROR: message".
  std::wstring lisp(const std::wstring &text) {
    lisp::Interp &in = host::Session::get().current()->lisp();
    try {
      lisp::Value v;
      for (const lisp::Value &f : in.readAll(text, {L"test.lsp", 1})) v = in.eval(f);
      return in.toString(v, true);
    } catch (const lisp::LispError &e) {
      return L"ERROR: " + e.message;
    }
  }
};

}  // namespace vantry
