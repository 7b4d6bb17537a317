// VANTRY_ASAN is 1 in a build with AddressSanitizer, whichever compiler made
// it: gcc says so with __SANITIZE_ADDRESS__, clang through __has_feature.
// Pools and stack guards that would hide misuse from it turn themselves off.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#define VANTRY_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VANTRY_ASAN 1
#endif
#endif
#ifndef VANTRY_ASAN
#define VANTRY_ASAN 0
#endif
