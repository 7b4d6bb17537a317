// The time and size budget of a modelling step (budget.h).
#include "budget.h"

#include <TopExp_Explorer.hxx>
#include <atomic>

#include "solid_body.h"

namespace vantry::solid {

namespace {
std::atomic<double> stepSeconds{20.0};
}

void setStepTimeLimit(double seconds) {
  stepSeconds = seconds > 0 ? seconds : 0;
}

Budget::Budget() {
  deadline_ = std::chrono::steady_clock::now() +
              std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                  std::chrono::duration<double>(stepSeconds.load()));
}

Standard_Boolean Budget::UserBreak() {
  if (!overrun_ && std::chrono::steady_clock::now() >= deadline_) overrun_ = true;
  return overrun_;
}

bool withinSize(const TopoDS_Shape &s) {
  int faces = 0;
  for (TopExp_Explorer ex(s, TopAbs_FACE); ex.More(); ex.Next())
    if (++faces > kMostFaces) return false;
  return true;
}

}  // namespace vantry::solid
