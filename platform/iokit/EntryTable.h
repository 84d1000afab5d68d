// Handles of registry entries and what must be remembered about each of them. Only entries that
// somebody was told of are here; everything else about a device is read when it is asked for.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/iokit/Registry.h"

namespace tarvo {

/// Main thread only.
class EntryTable {
 public:
  /// An entry somebody holds a handle of.
  struct Entry {
    ServiceHandle handle = 0;
    std::string path;  ///< in sysfs
    /// Properties that must outlive the device, because somebody waits for its end.
    std::optional<PropertyDictionary> kept;
  };

  /// The handle of the device at `path`, a new one when it has none yet.
  ServiceHandle intern(std::string_view path);
  /// Null when unknown. Valid until the next call of intern() or forget().
  Entry* find(ServiceHandle handle);
  /// By sysfs path; otherwise like find().
  Entry* findPath(std::string_view path);
  /// Known entries above `path`, the nearest first.
  std::vector<ServiceHandle> above(std::string_view path) const;
  /// Drops the entry; its handle never comes back.
  void forget(ServiceHandle handle);
  /// Number of entries, for those who watch that none is left behind.
  std::size_t size() const { return entries_.size(); }

 private:
  std::vector<Entry> entries_;  // a few dozen at most, so searching beats an index
  /// Counts up for the life of the table; 32 bits outlast any session.
  ServiceHandle lastHandle_ = 0;
};

}  // namespace tarvo
