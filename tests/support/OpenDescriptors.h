// What this process has open, for tests that nothing is left open.
#pragma once

#include <filesystem>
#include <iterator>

namespace tarvo::test {

inline auto openDescriptors() {
  using Entries = std::filesystem::directory_iterator;
  return std::distance(Entries("/proc/self/fd"), Entries());
}

}  // namespace tarvo::test
