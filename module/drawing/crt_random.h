// The C run-time's random numbers as the host's platform makes them, so that
// LISP code sees the same range (0..32767) and, for the same seed, the same
// sequence as it does there: a linear congruential generator,
// state = state * 214013 + 2531011, answering bits 16..30 of the new state.
// The state starts at 1, as the C library's does before any srand.
#pragma once

namespace vantry::crt {

inline constexpr int kRandMax = 32767;

void srand(unsigned seed);
int rand();

}  // namespace vantry::crt
