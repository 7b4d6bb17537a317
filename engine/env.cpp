// The system's Env and the one installed for the process.
#include <time.h>

#include <atomic>

#include "engine/engine.h"

namespace vantry::engine {

namespace {

int64_t read(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return int64_t(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

// The coarse clocks are read without the cycle counter: every call of every
// database function asks the monotonic one.
class SystemEnv final : public Env {
 public:
  int64_t monotonicNanos() override { return read(CLOCK_MONOTONIC_COARSE); }
  int64_t wallNanos() override { return read(CLOCK_REALTIME_COARSE); }
  bool creationFails() override { return false; }
};

SystemEnv g_system;
std::atomic<Env *> g_env{&g_system};

}  // namespace

Env *defaultEnv() {
  return &g_system;
}

void setEnv(Env *e) {
  g_env.store(e ? e : &g_system, std::memory_order_release);
}

Env &env() {
  return *g_env.load(std::memory_order_acquire);
}

}  // namespace vantry::engine
