// Disk Arbitration's statuses, for what IOKit's would say of a unit.
#pragma once

#include "Utilities/Status.h"

namespace tarvo::status {

inline constexpr Status kDAReturnError = ioKitStatus(0xF8DA0001);
inline constexpr Status kDAReturnNotFound = ioKitStatus(0xF8DA0006);
inline constexpr Status kDAReturnNotPermitted = ioKitStatus(0xF8DA0008);
inline constexpr Status kDAReturnNotReady = ioKitStatus(0xF8DA000A);  ///< nobody can be asked
inline constexpr Status kDAReturnUnsupported = ioKitStatus(0xF8DA000C);

}  // namespace tarvo::status
