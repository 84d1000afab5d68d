// What became of the last reading and the last writing of orders and address book, for who must say
// what is missing: some failures end a list early or leave an entry out without a status.
//
//   const auto orders = device->emailOrderList();
//   if (!device->lastReading().isComplete()) say(device->lastReading());
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "NativeServices/PictureDevice/datasets/AddressBook.h"
#include "Utilities/Exception.h"
#include "Utilities/Status.h"

namespace tarvo {

/// Of an order list: order data sets, or marker files where the device keeps those. Of an address
/// book: contacts and groups, or address-book files.
struct ReadingReport {
  std::size_t listed = 0;    ///< objects that the device told of
  std::size_t read = 0;      ///< of these, those that were read as a whole
  std::size_t withheld = 0;  ///< read orders that the device does not want to be sent now
  /// Handles of those that were left out, or at which the reading ended.
  std::vector<std::uint32_t> unreadable;
  /// The first failure, also one that the result does not show: of listing the objects, of reading
  /// one, of asking for limits.
  Status status = status::kOK;

  bool isComplete() const { return status == status::kOK && read == listed; }
  /// Takes note of an object that could not be read, and traces it as "WHAT 0x... cannot be read".
  void leaveOut(const char* what, std::uint32_t handle, Status failure);
  /// Takes note of one that was read, or that was cut short, which counts as unread (0x2007): what
  /// did not come reads as zeros, and nobody may take those for the device's word.
  void take(const char* what, std::uint32_t handle, bool wasShort);
  /// Takes note of a failure that no single object is to blame for; 0 is none.
  void fail(Status failure);
};

/// What was sent to the device, in order; after a failure the last one is what failed, and what
/// comes behind it was not sent.
struct WritingReport {
  struct Step {
    DataSyncAction action = DataSyncAction::kNone;  ///< added, updated or deleted
    std::string what;                               ///< name of the group or of the file
    std::uint32_t handle = 0;                       ///< 0 where none was given
    Status status = status::kOK;
  };
  std::vector<Step> steps;
};

/// The status for an XTPTPException that ends a reading: its "ptpErrorCode", or 0 without one
/// (docs/oddities.md); the report and the trace tell of it all the same. Any other exception is not
/// for this.
[[nodiscard]] Status endedByPTPException(const Exception& exception, ReadingReport& report);

/// Runs `work`, which gives a status, and ends it with endedByPTPException().
template <typename Work>
[[nodiscard]] Status untilPTPException(ReadingReport& report, Work&& work) {
  try {
    return work();
  } catch (const Exception& exception) {
    if (exception.name() != exception_name::kPTP) throw;
    return endedByPTPException(exception, report);
  }
}

}  // namespace tarvo
