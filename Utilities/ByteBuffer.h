// Bytes of an object or a data set, as a whole in memory, and who is told while they move.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <utility>
#include <vector>

namespace tarvo {

/// An allocator whose vectors do not clear what they make room for: pages that are never filled
/// cost nothing, and nothing is written twice.
template <typename T>
struct UnclearedAllocator : std::allocator<T> {
  template <typename U>
  struct rebind {  // NOLINT(readability-identifier-naming): the standard's name
    using other = UnclearedAllocator<U>;
  };
  template <typename U, typename... Arguments>
  void construct(U* place, Arguments&&... arguments) {
    if constexpr (sizeof...(Arguments) == 0) {
      ::new (static_cast<void*>(place)) U;
    } else {
      ::new (static_cast<void*>(place)) U(std::forward<Arguments>(arguments)...);
    }
  }
};

/// What is downloaded or sent as a whole; large objects go by file instead. resize() leaves new
/// bytes undefined.
using ByteBuffer = std::vector<std::byte, UnclearedAllocator<std::byte>>;

/// Given the bytes that have just been moved; true ends the transfer.
using ProgressCallback = std::function<bool(std::uint32_t bytes)>;

/// Gets bytes of an object as they come, and where in it they belong. It raises nothing.
using ContentCallback = std::function<void(std::uint64_t offset, std::span<const std::byte> bytes)>;

}  // namespace tarvo
