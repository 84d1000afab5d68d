// What was fetched, on its way to being safe: flushed to the disk, compared, remembered, and only
// then deleted from the device.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "import/History.h"
#include "import/Items.h"

namespace tarvo::importing {

/// One thread; everything is lent. Files are flushed in groups: of 64 MiB, of 256 files, or of a
/// second.
class Securing {
 public:
  Securing(Device& device, History* history, const ImportOptions& options, ImportObserver& observer,
           ImportSum& sum);

  /// A file that was made of an object, or found; `date` is the one of its own EXIF block, if any.
  /// Its fingerprint is known from when it came.
  struct File {
    const Item* item;
    std::string path;
    std::string fingerprint{};
    std::optional<CalendarTime> date{};
    bool wasThere = false;     ///< nothing was added, and the object stays on the device
    bool isElsewhere = false;  ///< `path` is where one of the same content was put some time
  };
  void add(File file);
  /// What is due, or all. Raises Error for a device that fails at deleting; all are remembered by
  /// then.
  void flushIfDue();
  void flush();

 private:
  using Clock = std::chrono::steady_clock;

  /// Why a file is not safe; empty where it is.
  std::string secure(const File& file) const;
  void remember(const std::vector<File>& files);
  void removeFromDevice(const Item& item);

  Device& device_;
  History* history_;
  const ImportOptions& options_;
  ImportObserver& observer_;
  ImportSum& sum_;
  std::vector<File> files_;
  std::uint64_t bytes_ = 0;
  Clock::time_point since_;
  std::unordered_map<std::string, std::uint32_t> copies_;  ///< of each content in this run
};

}  // namespace tarvo::importing
