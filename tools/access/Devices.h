// The device that a command is for: what --device names, or the only one.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tarvo/AddressBook.h"
#include "tarvo/Device.h"
#include "tarvo/Units.h"
#include "tools/access/ToolContext.h"

namespace tarvo::tools {

/// Opened, and held until it goes. Each raises a ToolError: kNoDevice where there is none,
/// kBadUsage where there are several, and what the library raises for one that cannot be opened.
/// A camera or a volume, not opened.
DeviceInfo findDevice(const ToolContext& context);
/// The same opened; where a camera is the only one and cards are connected, too, says so.
Device openDevice(const ToolContext& context, bool onlyVolumes = false);
Device openCamera(const ToolContext& context);
Device openVolume(const ToolContext& context);
Unit openUnit(const ToolContext& context);

/// Keys "name", "type" ("PTP" or "volume"), "location", "locationHex", "vendor", "product",
/// "serial", "path", "supported", "kind" ("camera" or "card") and "can" (what can be done with it,
/// in words); what is not known is left out.
PropertyDictionary asJSON(const DeviceInfo& device);
/// Keys "name", "location", "locationHex", "serial", "bsdName", "volume", "volumeBSDName", "kind"
/// ("unit") and "can", the same way.
PropertyDictionary asJSON(const UnitInfo& unit);
/// "0x01100000"; empty without one.
std::string locationInHex(std::optional<std::int32_t> location);

/// As questions call it.
std::string nameOf(const Device& device);

/// "DCIM/TARV0001.JPG (0x00000003)"; on a volume the path alone.
std::string objectInWords(const ObjectInfo& object);
/// Keys "name", `pathKey` for the path on the device, and of a camera's "handle".
PropertyDictionary identityOf(const ObjectInfo& object, const char* pathKey);

/// A path on a device as a user writes it, without slashes at its ends: empty for the top.
std::string pathArgument(const std::string& text);
/// The object that a handle, a name or a path means. Raises kNotFound.
ObjectInfo objectArgument(const ToolContext& context, Device& device, const std::string& text,
                          bool ignoringCase = false);
/// The id of a store by its id, or by its label without regard to case. Raises kBadUsage.
std::uint32_t storeArgument(Device& device, const std::string& text);

/// Of an entry that cannot be read: keys "unread" and "handle"; and how it is said.
PropertyDictionary asJSON(const Unread& entry);
Failure failureOf(const ToolContext& context, const Unread& entry);
/// Adds to a list what the library raised about one of its entries, of which `json` is known and
/// which a person knows as `object`. False where the list ends with it: the next question would
/// only cost another time-out. Raises what ends an interrupted command.
bool addFailure(const ToolContext& context, Listing& listing, PropertyDictionary json,
                const Error& error, const std::string& object = {});

/// A handle or a store id as a user writes it, decimal or 0x...; none for anything else.
std::optional<std::uint32_t> handleArgument(const std::string& text);

}  // namespace tarvo::tools
