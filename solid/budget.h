// The time and size budget of a modelling step.
//
// Open CASCADE's long operations (booleans, lofts, meshing) poll a progress indicator for a user
// break. A Budget is such an indicator that asks for the break once its step has run past the time
// limit, so a step that runs away on input the checks let through ends as a failed fitting rather
// than a hung session. Steps that take no progress indicator (face unification, the full check) are
// bounded by size instead: a result with more faces than any duct fitting has is refused before they
// run on it.
#pragma once

#include <Message_ProgressIndicator.hxx>
#include <Message_ProgressRange.hxx>
#include <TopoDS_Shape.hxx>
#include <chrono>

namespace vantry::solid {

// The most faces a body may have: a fitting has a few dozen; a boolean that made more has gone wrong.
inline constexpr int kMostFaces = 5000;

class Budget : public Message_ProgressIndicator {
 public:
  Budget();
  // True once the step ran past its time limit (the operation was told to stop).
  bool overrun() const { return overrun_; }

 protected:
  Standard_Boolean UserBreak() override;
  void Show(const Message_ProgressScope &, const Standard_Boolean) override {}

 private:
  std::chrono::steady_clock::time_point deadline_;
  bool overrun_ = false;
};

// The reason a step gives when its budget ran out.
inline constexpr const char *kOverrun = "the modeller ran past its time limit";

// True when the shape has no more faces than kMostFaces.
bool withinSize(const TopoDS_Shape &s);

}  // namespace vantry::solid
