// Where a device keeps what a host sends: the first mebibytes in memory, all of it in a temporary
// file once there is more, so that a host may send gigabytes.
//
//   Spool spool;
//   spool.append(bytes);
//   const std::shared_ptr<const Payload> content = spool.finish();
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "Utilities/FileDescriptor.h"
#include "simulator/bytes/Payload.h"

namespace tarvo::simulator {

/// Not locked. The file lies in TMPDIR without a name, and goes with the last payload over it.
class Spool {
 public:
  /// What more than this many bytes are kept in a file.
  static constexpr std::size_t kInMemory = std::size_t{4} * 1024 * 1024;

  /// Raises std::system_error where the file cannot be made or written.
  void append(std::span<const std::byte> bytes);
  void append(const Payload& payload);
  std::uint64_t size() const { return size_; }
  /// Hands over what was gathered; the spool is empty afterwards.
  std::shared_ptr<const Payload> finish();

 private:
  Bytes bytes_;
  FileDescriptor file_;
  std::uint64_t size_ = 0;
};

}  // namespace tarvo::simulator
