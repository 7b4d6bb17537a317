// Shared fixture of the duct fitting tests: a session with the module (and through it the solid
// module) started on one document, LISP evaluation, and access to the solids a call made.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <string>

#include "database/context.h"
#include "session/session.h"
#include "solid/hvac_solid.h"
#include "module_fixture.h"

namespace vantry::ducts::testing {

// One run list as the fitting functions read it.
struct RunList {
  double x0 = 0, y0 = 0, z0 = 0, x1 = 1000, y1 = 0, z1 = 0;
  double width = 200, depth = 100;
  std::string shape = "RC";
  std::string horizontal = "", vertical = "";
  double head = 0, tail = 0, extraA = 0, extraB = 0;
  int useOffset = 0;
  double offset = 0;
  int code = 0;
  std::string lisp() const {
    std::ostringstream o;
    o.precision(17);
    o << "(list " << x0 << ' ' << y0 << ' ' << z0 << ' ' << x1 << ' ' << y1 << ' ' << z1 << ' ' << code << ' '
      << head << ' ' << tail << ' ' << width << ' ' << depth << " \"" << shape << "\" " << extraA << ' '
      << extraB << " \"" << horizontal << "\" \"" << vertical << "\" " << useOffset << ' ' << offset << ")";
    return o.str();
  }
};

class DuctsTest : public ModuleFixture {
 protected:
  lisp::Value evalValue(const std::string &text) {
    lisp::Interp &in = host::Session::get().current()->lisp();
    lisp::Value v;
    for (const lisp::Value &f : in.readAll(std::wstring(text.begin(), text.end()), {L"test.lsp", 1}))
      v = in.eval(f);
    return v;
  }
  // The printed value, or "ERROR: message".
  std::string lisp(const std::string &text) {
    try {
      lisp::Interp &in = host::Session::get().current()->lisp();
      std::wstring w = in.toString(evalValue(text), true);
      return std::string(w.begin(), w.end());
    } catch (const lisp::LispError &e) {
      return "ERROR: " + std::string(e.message.begin(), e.message.end());
    }
  }
  // The object named by the entity name a LISP expression yields; null when it yields none.
  AcDbObjectId idOf(const std::string &expr) {
    lisp::Interp &in = host::Session::get().current()->lisp();
    lisp::Value v = evalValue(expr);
    resbuf *rb = host::valueToArgs(in, &v, 1);
    AcDbObjectId id;
    if (rb && rb->restype == RTENAME) acdbGetObjectId(id, rb->resval.rlname);
    acutRelRb(rb);
    return id;
  }
  // The number a LISP expression yields, to the last bit (printing keeps six digits).
  double realOf(const std::string &expr) {
    lisp::Interp &in = host::Session::get().current()->lisp();
    lisp::Value v = evalValue(expr);
    resbuf *rb = host::valueToArgs(in, &v, 1);
    double out = rb && rb->restype == RTREAL ? rb->resval.rreal : std::nan("");
    acutRelRb(rb);
    return out;
  }
  // The solid's volume; a solid with any volume must also pass the modeller's own check, so every
  // solid a test measures is checked.
  double volumeOf(AcDbObjectId id) {
    AcDbObjectPointer<ol_hvacSolid> s(id, AcDb::kForRead);
    if (s.openStatus() != Acad::eOk) return -1;
    EXPECT_TRUE(!(s->volume() > 0) || s->isValid()) << "not a valid solid";
    return s->volume();
  }
  // The modeller's own check of the solid: closed, valid, of positive volume.
  bool validOf(AcDbObjectId id) {
    AcDbObjectPointer<ol_hvacSolid> s(id, AcDb::kForRead);
    return s.openStatus() == Acad::eOk && s->isValid();
  }
  AcDbExtents extentsOf(AcDbObjectId id) {
    AcDbExtents e;
    AcDbObjectPointer<AcDbEntity> s(id, AcDb::kForRead);
    if (s.openStatus() == Acad::eOk) s->getGeomExtents(e);
    return e;
  }
  std::string transcript() {
    std::wstring t = host::Session::get().transcript();
    return std::string(t.begin(), t.end());
  }
};

inline double rel(double got, double want) {
  return std::abs(got - want) / std::abs(want);
}

inline void expectPoint(const AcGePoint3d &got, double x, double y, double z, double tol = 1e-6) {
  EXPECT_NEAR(got.x, x, tol);
  EXPECT_NEAR(got.y, y, tol);
  EXPECT_NEAR(got.z, z, tol);
}

}  // namespace vantry::ducts::testing
