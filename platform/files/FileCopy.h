// The content of a file, moved by the kernel where it can.
//
//   FileCopy copy;
//   const auto outcome = copy.run(source.get(), part.descriptor(), size, progress);
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Utilities/ByteBuffer.h"

namespace tarvo {

/// Any thread, one at a time. Holds no content but, where the kernel cannot copy between the two
/// files, one small buffer.
class FileCopy {
 public:
  struct Outcome {
    int error = 0;  ///< errno of what failed; ENODATA where the source ended before `size`
    bool wasCancelled = false;
    std::uint64_t copied = 0;  ///< bytes
  };

  /// Copies the first `size` bytes of `source`, a regular file, to the beginning of `destination`,
  /// an empty one; both are lent. In the order of what costs least: shared extents (FICLONE),
  /// copy_file_range(2), sendfile(2), reading and writing. `progress` may be empty; it is asked at
  /// least after every MiB, but for shared extents.
  Outcome run(int source, int destination, std::uint64_t size, const ProgressCallback& progress);

 private:
  using Step = std::ptrdiff_t (FileCopy::*)(std::uint64_t offset, std::size_t length);

  std::ptrdiff_t copyRange(std::uint64_t offset, std::size_t length);
  std::ptrdiff_t sendFile(std::uint64_t offset, std::size_t length);
  std::ptrdiff_t readAndWrite(std::uint64_t offset, std::size_t length);
  [[nodiscard]] bool clone(std::uint64_t size) const;

  int source_ = -1;
  int destination_ = -1;
  std::vector<std::byte> buffer_;
};

}  // namespace tarvo
