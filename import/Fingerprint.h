// A file's content in 32 letters.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

struct XXH3_state_s;

namespace tarvo::importing {

/// XXH3 with 128 bits, in hexadecimal, of a content while it comes. It tells pictures apart, but
/// proves nothing against somebody who wants two alike. Any thread, one at a time.
class Fingerprint {
 public:
  /// Raises std::bad_alloc.
  Fingerprint();
  /// The bytes at `offset`.
  void add(std::uint64_t offset, std::span<const std::byte> bytes);
  /// Of the first `size` bytes; none unless these were added, and no others, from first to last.
  std::optional<std::string> of(std::uint64_t size) const;

 private:
  struct Closer {
    void operator()(XXH3_state_s* state) const;
  };
  std::unique_ptr<XXH3_state_s, Closer> state_;
  std::uint64_t size_ = 0;
  bool isBroken_ = false;
};

/// The same of all that an open file holds, from its beginning wherever it stands. None, with
/// errno, where the file cannot be read. Any thread.
std::optional<std::string> fingerprintOf(int descriptor);

}  // namespace tarvo::importing
