// Which objects ls, get and rm are about, besides their names, and in which order.
//
//   addFilterOptions(command, options.filter);
//   ...
//   ObjectSieve sieve(options.filter);  // raises for options that make no sense
//   sieve.useStoresOf(device);
//   if (sieve.passes(object)) found.push_back(object);
//   sieve.arrange(found);
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tarvo/Device.h"
#include "tools/command/CommandGroup.h"

namespace tarvo::tools {

/// As a user writes it; what is empty chooses nothing.
struct ObjectFilter {
  bool pictures = false;
  bool films = false;    ///< both: either
  std::string since{};   ///< "2026-11-20", "today", "7d"
  std::string format{};  ///< code or extension
  std::string store{};   ///< label or id
  std::string sort{};    ///< "name", "date" or "size"
  std::optional<std::uint64_t> limit{};
};

CommandOptions& addFilterOptions(CommandOptions& command, ObjectFilter& filter);

/// What the options mean.
class ObjectSieve {
 public:
  /// Raises kBadUsage for a date and a format that are none. The filter is lent.
  explicit ObjectSieve(const ObjectFilter& filter);

  /// Before the first object: asks the device for its stores where one is named. Raises as
  /// storeArgument(), and kBadUsage for a volume, which has no stores.
  void useStoresOf(Device& device);

  /// Whether the options let the object through. What has no date is no object since anything, and
  /// a folder is none of a kind, a date or a format.
  bool passes(const ObjectInfo& object) const;
  /// Whether all but the store and the number is left open.
  bool isOpen() const { return !filter_.pictures && !filter_.films && since_.empty() && !format_; }
  /// Whether more than the names of objects is asked for.
  bool needsDetails() const { return !since_.empty() || (isSorted() && filter_.sort != "name"); }
  bool isSorted() const { return !filter_.sort.empty(); }
  bool isEnough(std::uint64_t count) const { return filter_.limit && count >= *filter_.limit; }
  /// In order, and no more than wanted.
  void arrange(std::vector<ObjectInfo>& objects) const;

  std::uint16_t format() const { return format_; }
  std::uint32_t store() const { return store_; }  ///< 0: every one

 private:
  const ObjectFilter& filter_;
  std::string since_;  ///< as PTP has dates; empty: ever
  std::uint16_t format_ = 0;
  std::uint32_t store_ = 0;
};

/// The PTP date "20261120T000000" that a person means by a date with or without a time, "today",
/// "yesterday", or how long before `now`: "12h", "7d", "2w"; none for anything else.
std::optional<std::string> dateSince(const std::string& words, std::time_t now);

}  // namespace tarvo::tools
