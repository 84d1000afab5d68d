// The device that a command is for: what --device names, or the only one.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tarvo/AddressBook.h"
#include "tarvo/Device.h"
#include "tarvo/Units.h"
#include "tools/access/ToolContext.h"

namespace tarvo::tools {

/// Opened, and held until it goes. Each raises a ToolError: kNoDevice where there is none,
/// kBadUsage where there are several, and what the library raises for one that cannot be opened.
Device openCamera(const ToolContext& context);
Device openVolume(const ToolContext& context);
Unit openUnit(const ToolContext& context);

/// Keys "name", "type" ("PTP" or "volume"), "location", "locationHex", "vendor", "product",
/// "serial", "path", "supported"; what is not known is left out.
PropertyDictionary asJSON(const DeviceInfo& device);
/// Keys "name", "location", "locationHex", "serial", "bsdName", "volume", "volumeBSDName", the same
/// way.
PropertyDictionary asJSON(const UnitInfo& unit);
/// "0x01100000"; empty without one.
std::string locationInHex(std::optional<std::int32_t> location);

/// "DCIM/TARV0001.JPG (0x00000003)"; on a volume the path alone.
std::string objectInWords(const ObjectInfo& object);
/// What operands mean, and with `all` everything but folders.
ObjectChoice chosen(const std::vector<std::string>& names, bool all);

/// Of an entry that cannot be read: keys "unread" and "handle"; and how it is said.
PropertyDictionary asJSON(const Unread& entry);
Failure failureOf(const ToolContext& context, const Unread& entry);

/// Handles, store ids and codes as a user writes them, decimal or 0x...; raises kBadUsage with
/// `what` for what is no number up to `maximum`.
std::uint32_t numberArgument(const std::string& operation, const std::string& what,
                             const std::string& text, std::uint32_t maximum = 0xFFFFFFFF);

}  // namespace tarvo::tools
