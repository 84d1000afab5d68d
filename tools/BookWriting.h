// An address book on its way to a device: by which operations, and what was written where that
// ends early.
//
// A device that keeps contacts singly gets each changed contact as a data set of its own, its
// groups by the library's synchronisation, and loses what is to go last of all: at no moment does
// it hold less than before and after. A device that keeps a file gets a whole new file in place of
// its old one. The library's synchronisation by itself writes no contact on either.
#pragma once

#include <string>
#include <vector>

#include "tools/AddressBookChanges.h"
#include "tools/DeviceBook.h"
#include "tools/OpenedDevice.h"

namespace tarvo::tools {

enum class BookWay {
  kSingly,           ///< contacts and groups as data sets
  kFile,             ///< a new file with all contacts
  kSynchronisation,  ///< setAddressBookDict() alone: groups, or an empty file
};

struct BookWritten {
  Status status = status::kOK;
  std::string why{};
  std::vector<std::string> done{};     ///< as in the lines of the changes
  std::vector<std::string> pending{};  ///< what was not written
  std::string outcome{};               ///< what the device holds now, where that is not plain
};

/// What a user has to know of a way before anything is sent, a sentence each.
std::vector<std::string> warningsOf(BookWay way, const OpenedDevice& device, const BookPlan& plan);
/// What no device can be given, in words; empty where all is well. To be asked before anything is
/// sent. `encoding` is the device's (an iconv name).
std::string obstacleTo(BookWay way, const BookPlan& plan, const std::string& encoding);
/// Writes the plan's book; its entries are brought up to date with what was written. Raises
/// nothing.
BookWritten writeBook(BookWay way, const OpenedDevice& device, BookPlan& plan,
                      const std::string& encoding);

}  // namespace tarvo::tools
