// The address book of a device: with what is missing in it, and what is wrong with one.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "NativeServices/PictureDevice/datasets/AddressBook.h"
#include "NativeServices/PictureDevice/datasets/AddressBookValidation.h"
#include "NativeServices/PictureDevice/datasets/XTPTPDataSet.h"
#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "Utilities/Exception.h"
#include "library/access/DeviceState.h"
#include "tarvo/AddressBook.h"

namespace tarvo {

struct Unread::Data {
  std::string what{};
  std::uint32_t handle = 0;
  std::string why{};
};

struct ContactBook::Data {
  AddressBook book{};  ///< with contacts and groups, as far as they could be read
  std::vector<Unread> unread{};
};

namespace library {

using DeviceBook = ContactBook::Data;

void note(std::vector<Unread>& unread, Unread::Data entry);
/// Why an object cannot be read, as `status` says it.
std::string whyUnread(const OpenedDevice& device, Status status);

/// The handles of the objects of a format; where they cannot be told, `what` ("contacts") is
/// unread. Raises an error where the device has gone.
ObjectHandles listedHandles(const OpenedDevice& device, std::uint16_t format, const char* what,
                            std::vector<Unread>& unread);

/// Takes note of an object that did not come. Raises an error about `gone`, or the object, where
/// the device has gone.
void noteMissing(const OpenedDevice& device, const char* what, std::uint32_t handle,
                 std::vector<Unread>& unread, const char* gone = nullptr);

/// The record that `scan` makes of the data set of a handle. One that ends early, or was cut short,
/// is unread. Raises an error where the device has gone.
template <typename Scan>
std::optional<std::invoke_result_t<Scan, XTPTPDataSet&>> readRecord(const OpenedDevice& device,
                                                                    const char* what,
                                                                    std::uint32_t handle,
                                                                    std::uint16_t format, Scan scan,
                                                                    std::vector<Unread>& unread) {
  try {
    auto dataSet = device.transactions().getDataSet(handle, format);
    if (!dataSet) {
      noteMissing(device, what, handle, unread);
      return std::nullopt;
    }
    auto record = scan(*dataSet);
    if (!wasShort(device.transactions(), *dataSet, handle)) return record;
    note(unread, {what, handle, whyUnread(device, status::kPTPIncompleteTransfer)});
  } catch (const Exception& exception) {
    note(unread, {what, handle, exception.reason()});
  }
  return std::nullopt;
}

/// Whether the device keeps each contact by itself (as a data set), or all of them in one file.
bool keepsContactsSingly(const OpenedDevice& device);

/// Reads it anew, record by record where it cannot be had as a whole. Raises an error for a
/// device that keeps none, and where not even its limits can be read.
DeviceBook readDeviceBook(const OpenedDevice& device);

/// How many of the contacts, or of the groups, are not to be deleted.
template <typename Entries>
std::ptrdiff_t countKept(const std::optional<Entries>& entries) {
  const auto isKept = [](const auto& entry) { return entry->action != DataSyncAction::kDelete; };
  return entries ? std::ranges::count_if(*entries, isKept) : 0;
}

/// Which entry breaks which rule, for a person: "contact 3, Bob <bob@>: ...".
std::string inWords(const AddressBookFault& fault, const AddressBook& book);

}  // namespace library
}  // namespace tarvo
