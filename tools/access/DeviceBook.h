// The address book of a device as a command reads it: with what is missing in it, and what it would
// be on paper.
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
#include "tools/access/OpenedDevice.h"

namespace tarvo::tools {

struct UnreadEntry {
  std::string what{};        ///< "contact", "marker file", or what was to be listed: "contacts"
  std::uint32_t handle = 0;  ///< 0 where no single object is to blame
  std::string why{};         ///< a clause
};

/// "contact 0x00010003 cannot be read: it was cut short".
std::string inWords(const UnreadEntry& entry);
/// What a command says of it, with the command that removes it.
Failure failureOf(const OpenedDevice& device, const UnreadEntry& entry);
/// "handle" and "unread", as far as they are known.
PropertyDictionary asJSON(const UnreadEntry& entry);
/// Why an object cannot be read, as `status` says it.
std::string whyUnread(const OpenedDevice& device, Status status);

/// The handles of the objects of a format; where they cannot be told, `what` ("contacts") is
/// unread. Raises a ToolError where the device has gone.
ObjectHandles listedHandles(const OpenedDevice& device, std::uint16_t format, const char* what,
                            std::vector<UnreadEntry>& unread);

/// The data set of a handle, for `scan`; none where it is unread. Raises a ToolError where the
/// device has gone.
std::optional<XTPTPDataSet> dataSetOf(const OpenedDevice& device, const char* what,
                                      std::uint32_t handle, std::uint16_t format,
                                      std::vector<UnreadEntry>& unread);

/// The record that `scan` makes of the data set of a handle. One that ends early, or was cut short,
/// is unread. Raises a ToolError where the device has gone.
template <typename Scan>
std::optional<std::invoke_result_t<Scan, XTPTPDataSet&>> readRecord(
    const OpenedDevice& device, const char* what, std::uint32_t handle, std::uint16_t format,
    Scan scan, std::vector<UnreadEntry>& unread) {
  try {
    auto dataSet = dataSetOf(device, what, handle, format, unread);
    if (!dataSet) return std::nullopt;
    auto record = scan(*dataSet);
    if (!wasShort(device.transactions(), *dataSet, handle)) return record;
    unread.push_back({what, handle, whyUnread(device, status::kPTPIncompleteTransfer)});
  } catch (const Exception& exception) {
    unread.push_back({what, handle, exception.reason()});
  }
  return std::nullopt;
}

struct DeviceBook {
  AddressBook book;  ///< with contacts and groups, as far as they could be read
  /// What could not be: while there is any, nothing may be written back, and nobody be taken for
  /// gone.
  std::vector<UnreadEntry> unread;
};

/// Whether the device keeps each contact by itself (as a data set), or all of them in one file.
bool keepsContactsSingly(const OpenedDevice& device);

/// Reads it anew, record by record where it cannot be had as a whole. Raises a ToolError for a
/// device that keeps none, and where not even its limits can be read.
DeviceBook readDeviceBook(const ToolContext& context, const OpenedDevice& device);

/// Which entry breaks which rule, for a person: "contact 3, Bob <bob@>: ...".
std::string inWords(const AddressBookError& error, const AddressBook& book);
/// "valid", and for an invalid book "ptpErrorCode", "errorObject" (where a value is to blame) and
/// "message".
PropertyDictionary validityAsJSON(const std::optional<AddressBookError>& error,
                                  const AddressBook& book);

}  // namespace tarvo::tools
