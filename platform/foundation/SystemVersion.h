// The version of the system as the preferences tell it.
#pragma once

#include <cstdint>

#include "Utilities/LogSink.h"
#include "platform/foundation/UserDefaults.h"

namespace tarvo {

/// The number under SystemVersion of group [Platform], decimal or 0x..., for example 0x1062 for
/// 10.6.2. 0 when it is absent, and, which `log` is told, when it cannot be read. Any thread.
std::int32_t systemVersion(const UserDefaults& defaults, const LogSink& log = {});

}  // namespace tarvo
