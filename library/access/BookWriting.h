// An address book on its way to a device: by which operations, and what was written where that
// ends early.
//
// A device that keeps contacts singly gets each changed contact as a data set of its own, its
// groups by the library's synchronisation, and loses what is to go last of all: at no moment does
// it hold less than before and after, but where it is full. A device that keeps a file loses its
// old one and then gets a whole new one. The library's synchronisation by itself writes no contact
// on either.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "library/access/BookPlan.h"
#include "library/access/DeviceBook.h"

namespace tarvo::library {

enum class BookWay {
  kSingly,     ///< contacts and groups as data sets
  kFile,       ///< a new file with all contacts
  kGroups,     ///< setAddressBookDict() alone, which sends groups
  kEmptyFile,  ///< the same to a device that keeps a file
};
/// Whether the device keeps contacts singly.
inline bool isSingly(BookWay way) { return way == BookWay::kSingly || way == BookWay::kGroups; }

struct BookWritten {
  Status status = status::kOK;
  std::string why{};
  /// What the device said it did: beginnings of lines of the changes ("+ group Family").
  std::vector<std::string> done{};
  std::string outcome{};  ///< of a file: what the device holds now, where that is not plain
};

struct OutgoingBook {
  BookWay way = BookWay::kSingly;
  BookPlan plan{};
  std::string encoding{};                ///< the device's (an iconv name)
  std::set<std::uint32_t> recipients{};  ///< handles of contacts to whom orders go, or went
};

/// What a user has to know of the way before anything is sent, a sentence each.
std::vector<std::string> warningsOf(const OutgoingBook& book);
/// What cannot be sent that way. To be asked before anything is.
std::vector<BookObstacle> obstaclesTo(const OutgoingBook& book);
/// Writes the plan's book; its entries are brought up to date with what was written. Raises
/// nothing.
BookWritten writeBook(const OpenedDevice& device, OutgoingBook& book);

}  // namespace tarvo::library
