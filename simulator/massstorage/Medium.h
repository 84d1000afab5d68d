// The blocks of a unit's medium: a file, or a FAT file system that is made of the described volume
// when a block or the capacity is first asked for.
//
//   auto medium = Medium::of(description);
//   medium->blocks();
//   const auto payload = medium->read(0, 8);
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "Utilities/FileDescriptor.h"
#include "simulator/bytes/Payload.h"
#include "simulator/description/DeviceDescription.h"

namespace tarvo::simulator {

/// Not locked: its unit guards it. The first call of most functions makes the file system by
/// mkfs.fat and mcopy (packages dosfstools and mtools), in a temporary file without a name.
class Medium {
 public:
  /// Null where the unit has none. Raises nothing: what goes wrong makes the medium unreadable.
  static std::unique_ptr<Medium> of(const DeviceDescription& description);

  unsigned blockSize() const { return blockSize_; }  ///< bytes
  bool isWritable() const { return isWritable_; }
  /// 0 where the medium cannot be read.
  std::uint64_t blocks();
  /// `count` blocks, which must exist. The payload reads what is there when it is asked.
  std::shared_ptr<const Payload> read(std::uint64_t first, std::uint64_t count);
  /// Whole blocks, which must exist; false where they cannot be written.
  bool write(std::uint64_t first, std::span<const std::byte> data);

 private:
  explicit Medium(const DeviceDescription& description);
  void open();

  std::optional<VolumeDescription> volume_;
  std::string image_;
  bool isOptical_;
  unsigned blockSize_;
  bool isWritable_;
  bool isOpened_ = false;
  std::shared_ptr<const FileDescriptor> file_;  ///< of no file where the medium cannot be read
  std::uint64_t blocks_ = 0;
};

// A described volume as a FAT file system in a file, by the system's own tools.

/// A card has one partition, an optical medium none.
enum class FatLayout { kPartition, kWholeMedium };

/// Makes the file system, with some room left, in a temporary file without a name. `blockSize`: of
/// the medium, in bytes. Waits for mkfs.fat and mcopy; raises std::runtime_error or
/// std::system_error where one of them is missing or fails.
FileDescriptor makeFatImage(const VolumeDescription& volume, unsigned blockSize, FatLayout layout);

}  // namespace tarvo::simulator
