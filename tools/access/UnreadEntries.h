// What a device holds and cannot be read: a contact that was cut short, an order whose picture has
// gone. Each is named by its handle and hides nothing else.
//
//   std::vector<UnreadEntry> unread;
//   for (const auto handle : listedHandles(device, ptp::XTD_CONTACT, "contacts", unread))
//     if (auto contact = readRecord(device, "contact", handle, ptp::XTD_CONTACT, scanContact,
//     unread))
//       use(*contact);
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "NativeServices/PictureDevice/datasets/XTPTPDataSet.h"
#include "Utilities/Exception.h"
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

}  // namespace tarvo::tools
