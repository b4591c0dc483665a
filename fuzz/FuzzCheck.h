#pragma once

#include <cstdio>
#include <cstdlib>

// What must hold besides the sanitizers. Active in every build type: a broken property is a
// finding, so it aborts and libFuzzer saves the input.
#define FUZZ_CHECK(condition)                                                          \
  do {                                                                                 \
    if (!(condition)) {                                                                \
      std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                    \
    }                                                                                  \
  } while (false)
