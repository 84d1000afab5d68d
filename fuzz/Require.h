// What a fuzz target holds to be true.
#pragma once

#include <cstdlib>

/// Reported by libFuzzer as a crash with its input.
inline void require(bool holds) {
  if (!holds) std::abort();
}
