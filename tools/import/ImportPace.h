// What of an import is done, and how fast.
#pragma once

#include <chrono>
#include <cstdint>

namespace tarvo::tools {

struct ImportPace {
  std::uint64_t files = 0;
  std::uint64_t ofFiles = 0;
  std::uint64_t bytes = 0;
  std::uint64_t ofBytes = 0;
  std::chrono::milliseconds elapsed{0};

  /// Bytes a second; 0 is not known yet.
  std::uint64_t rate() const {
    return elapsed.count() <= 0 ? 0 : bytes * 1000 / static_cast<std::uint64_t>(elapsed.count());
  }
  /// 0 where the rate is not known.
  std::uint64_t secondsLeft() const {
    const std::uint64_t perSecond = rate();
    return perSecond == 0 || ofBytes <= bytes ? 0 : (ofBytes - bytes + perSecond - 1) / perSecond;
  }
};

}  // namespace tarvo::tools
