// The transaction ids of one session (ISO 15740, 9.3.1): 1, 2, ... 0xFFFFFFFE, and 1 again.
#pragma once

#include <cstdint>

namespace tarvo::ptp {

/// Outside a session, and for OpenSession itself, the id is 0.
inline constexpr std::uint32_t kNoTransactionID = 0;

///   TransactionIDs ids;  // of one session
///   ids.next();          // 1
class TransactionIDs {
 public:
  /// `last` is the id that was used before the first next(); tests begin near the end of the range.
  explicit TransactionIDs(std::uint32_t last = 0) : last_(last) {}

  /// Never 0 and never 0xFFFFFFFF, which are reserved.
  std::uint32_t next() {
    last_ = last_ >= 0xFFFFFFFE ? 1 : last_ + 1;
    return last_;
  }

 private:
  std::uint32_t last_;
};

}  // namespace tarvo::ptp
