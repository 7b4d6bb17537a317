// A fresh host session with one untitled drawing, and a way to run LISP in
// the current document as a script would.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "session/session.h"
#include "session/internal.h"

namespace vantry::host {

class HostTest : public ::testing::Test {
 protected:
  HostTest() {
    Session::get().reset();
    Session::get().newDocument(L"");
    Session::get().clearTranscript();
  }
  ~HostTest() override { Session::get().reset(); }

  Session &s() { return Session::get(); }

  // The prin1 form of the last value, or "ERROR: message".
  std::wstring lisp(const std::wstring &text) {
    lisp::Interp &in = s().current()->lisp();
    try {
      lisp::Value v;
      for (const lisp::Value &f : in.readAll(text, {L"test.lsp", 1})) v = in.eval(f);
      return in.toString(v, true);
    } catch (const lisp::LispError &e) {
      return L"ERROR: " + e.message;
    } catch (const lisp::ErrorHandled &e) {
      return L"HANDLED: " + e.message;
    }
  }

  void queueText(const std::wstring &t) {
    InputItem item;
    item.kind = InputItem::Text;
    item.text = t;
    s().input.push_back(item);
  }
  void queuePoint(double x, double y, double z = 0) {
    InputItem item;
    item.kind = InputItem::Point;
    item.pt[0] = x;
    item.pt[1] = y;
    item.pt[2] = z;
    s().input.push_back(item);
  }
  void queue(InputItem::Kind kind) {
    InputItem item;
    item.kind = kind;
    s().input.push_back(item);
  }
};

}  // namespace vantry::host
