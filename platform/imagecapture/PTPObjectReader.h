// What lies on a PTP device, as far as the service shows it: handles, the few fields of ObjectInfo
// that its dictionaries have, and the list of properties in DeviceInfo (ISO 15740, clause 5).
//
// Whatever comes from the device is checked against the bytes that came before anything is made of
// it.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Utilities/Status.h"
#include "platform/imagecapture/PTPChannel.h"

namespace tarvo {

/// An object on a device.
struct PTPObject {
  std::uint32_t handle = 0;
  std::uint32_t store = 0;  ///< id of the store it lies on
  std::uint16_t format = 0;
  std::uint32_t size = 0;           ///< bytes; ptp::kUnknownObjectSize where it is not known
  std::uint32_t thumbnailSize = 0;  ///< bytes, 0 where it has none
  std::uint32_t parent = 0;         ///< handle of the folder it lies in, 0 at the top
  std::string name{};               ///< UTF-8, as the device gave it: it may hold anything

  bool isFolder() const;
  bool isPicture() const;
};

/// None when the data set ends before the file name does. What stands behind that is not looked at.
std::optional<PTPObject> decodeObject(std::uint32_t handle, std::span<const std::byte> objectInfo);

/// None when there are more handles than bytes.
std::optional<std::vector<std::uint32_t>> decodeHandles(std::span<const std::byte> array);

/// Whether DeviceInfo lists the property; false, too, where it ends before the list does.
bool listsProperty(std::span<const std::byte> deviceInfo, std::uint16_t property);

// The same from the device. The caller holds the channel. Errors: a response code other than OK;
// kICAProtocolError for a data set that says more than it holds; or as for PTPChannel::transact.

/// All objects of all stores. Objects that the device does not tell of are left out.
[[nodiscard]] Status readObjects(PTPChannel& channel, std::vector<PTPObject>& objects,
                                 std::string* why);
/// Needs no session.
[[nodiscard]] Status readWhetherPropertyIsListed(PTPChannel& channel, std::uint16_t property,
                                                 bool& isListed, std::string* why);
[[nodiscard]] Status deleteObject(PTPChannel& channel, std::uint32_t handle, std::string* why);

// A file of a PTP device, whole or not at all, in a folder of this machine.

/// Downloads `object` by one GetObject into `folder`, under the safeFileName() of its name. It lies
/// in a hidden file beside that until it is whole and as long as announced, and that file is
/// removed on failure. The caller holds the channel.
///
/// `path` is the file that was made; it is left alone on failure. kFileNotFound for a name that is
/// none (empty, "." and ".."), and for a folder that is not there;
/// kDuplicateFile for a file that is; kIOError when it cannot be written or came short; a response
/// code other than OK; otherwise as for PTPChannel::transact.
[[nodiscard]] Status downloadObject(PTPChannel& channel, const PTPObject& object,
                                    const std::string& folder, std::string& path, std::string* why);

}  // namespace tarvo
