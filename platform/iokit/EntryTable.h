// Handles of registry entries and what is remembered about each of them. Only entries that somebody
// was told of are here.
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
    /// What tells it from those that were at the path before it, see plugNumber().
    std::string plug;
    /// As they were read last, none before anybody has asked; they outlive the device.
    std::optional<PropertyDictionary> properties;
    /// Its ancestors, likewise.
    std::optional<std::vector<ServiceHandle>> ancestors;
  };

  /// The entry of the device at `path` with that plug number, a new one when it has none yet. Valid
  /// until the next call of intern() or forget().
  Entry& intern(std::string_view path, std::string_view plug);
  /// Null when unknown; otherwise like intern().
  Entry* find(ServiceHandle handle);
  /// Those at `path`, the latest last: the end of one may not have been heard of yet when the next
  /// is there.
  std::vector<ServiceHandle> at(std::string_view path) const;
  const std::vector<Entry>& all() const { return entries_; }
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
