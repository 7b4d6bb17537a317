// Shared helpers of the solid modeller's tests: frames, points and hand-worked areas.
#pragma once

#include <cmath>

#include "solid_body.h"

namespace vantry::solid::testing {

// The frame of a horizontal run heading at plan angle `a` (radians): x along the run, y to its
// left, z up.
inline Frame planFrame(double a) {
  return {{std::cos(a), std::sin(a), 0}, {-std::sin(a), std::cos(a), 0}, {0, 0, 1}};
}
inline const Frame kEast = planFrame(0);
inline const Frame kNorth = planFrame(M_PI / 2);

inline Pt at(double x, double y, double z) {
  return {x, y, z};
}

// Relative difference, for volumes.
inline double rel(double got, double want) {
  return std::abs(got - want) / std::abs(want);
}

}  // namespace vantry::solid::testing
