// The address book of a device: with what is missing in it, and what is wrong with one.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
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

/// What is read of a device, object by object. What cannot be read is noted in `unread`; that the
/// device has gone is raised as an error. Both are lent.
struct Reading {
  const OpenedDevice& device;
  std::vector<Unread>& unread;

  void note(Unread::Data entry) const { unread.push_back(valueOf<Unread>(std::move(entry))); }
  /// Takes note of an object that did not come. `gone` is what the error is about, or else it is
  /// the object.
  void noteMissing(const char* what, std::uint32_t handle, const char* gone = nullptr) const;
  /// Why an object cannot be read, as `status` says it.
  std::string why(Status status) const;

  /// The handles of the objects of a format; where they cannot be told, `what` ("contacts") is
  /// unread.
  ObjectHandles handles(std::uint16_t format, const char* what) const;

  /// The record that `scan` makes of the data set of a handle. One that ends early, or was cut
  /// short, is unread.
  template <typename Scan>
  std::optional<std::invoke_result_t<Scan, XTPTPDataSet&>> record(const char* what,
                                                                  std::uint32_t handle,
                                                                  std::uint16_t format,
                                                                  Scan scan) const {
    try {
      auto dataSet = device.transactions().getDataSet(handle, format);
      if (!dataSet) {
        noteMissing(what, handle);
        return std::nullopt;
      }
      auto record = scan(*dataSet);
      if (!wasShort(device.transactions(), *dataSet, handle)) return record;
      note({what, handle, why(status::kPTPIncompleteTransfer)});
    } catch (const Exception& exception) {
      note({what, handle, exception.reason()});
    }
    return std::nullopt;
  }
};

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
