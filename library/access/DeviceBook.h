// The address book of a device: with what is missing in it, and what is wrong with one.
#pragma once

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
#include "Utilities/PropertyDictionary.h"
#include "library/access/OpenedDevice.h"
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

/// The data set of a handle, for `scan`; none where it is unread. Raises an error where the
/// device has gone.
std::optional<XTPTPDataSet> dataSetOf(const OpenedDevice& device, const char* what,
                                      std::uint32_t handle, std::uint16_t format,
                                      std::vector<Unread>& unread);

/// The record that `scan` makes of the data set of a handle. One that ends early, or was cut short,
/// is unread. Raises an error where the device has gone.
template <typename Scan>
std::optional<std::invoke_result_t<Scan, XTPTPDataSet&>> readRecord(const OpenedDevice& device,
                                                                    const char* what,
                                                                    std::uint32_t handle,
                                                                    std::uint16_t format, Scan scan,
                                                                    std::vector<Unread>& unread) {
  try {
    auto dataSet = dataSetOf(device, what, handle, format, unread);
    if (!dataSet) return std::nullopt;
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

/// Which entry breaks which rule, for a person: "contact 3, Bob <bob@>: ...".
std::string inWords(const AddressBookFault& fault, const AddressBook& book);

}  // namespace library
}  // namespace tarvo
