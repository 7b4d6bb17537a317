// The timer that refreshes a jig's drawing while the person drags. One timer
// at most: a second start replaces the first. The headless host draws
// nothing and has no clock to tick, so the timer is its state alone: running
// or not, and its interval.
#include <optional>

#include "frame/implementations.h"
#include "frame/value_list.h"

namespace vantry::lispfn {
namespace {

using frame::ArgList;

// The running timer's interval in milliseconds; none when stopped.
std::optional<int> g_jigTimerInterval;

}  // namespace

// Arguments: interval in milliseconds (a positive integer). T; the interval
// replaces a running timer's. A real interval is truncated; one below 1 ms
// is bad data.
int ol_ol_createJigTimer() {
  acedRetNil();
  ArgList args;
  int interval = 0;
  if (!frame::readInteger(args.cursor(), interval)) return 2;
  if (interval < 1) return 3;
  g_jigTimerInterval = interval;
  acedRetT();
  return 0;
}

// No arguments. T when a timer was running and is stopped now, else nil.
int ol_ol_killJigTimer() {
  acedRetNil();
  ArgList args;
  if (g_jigTimerInterval) acedRetT();
  g_jigTimerInterval.reset();
  return 0;
}

}  // namespace vantry::lispfn
