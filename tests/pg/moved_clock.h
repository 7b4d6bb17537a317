// The engine's clock, moved on at will: a test goes past the server engine's time limits (how long
// records and keys read ahead are served, when the translator reads the server's names again)
// instead of waiting for them or hoping the machine is slow enough.
#pragma once

#include <cstdint>

#include "engine/engine.h"

namespace vantry::engine::testing {

class MovedClock : public EnvWrapper {
 public:
  MovedClock() : EnvWrapper(defaultEnv()) { setEnv(this); }
  ~MovedClock() override { setEnv(nullptr); }
  int64_t monotonicNanos() override { return target()->monotonicNanos() + shift_; }
  // Two seconds on: past each of those limits.
  void later() { shift_ += 2'000'000'000; }

 private:
  int64_t shift_ = 0;
};

}  // namespace vantry::engine::testing
