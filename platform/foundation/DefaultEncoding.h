// The 8-bit encoding of text that does not say its own, on cards and devices.
#pragma once

#include <string>

#include "Utilities/LogSink.h"
#include "platform/foundation/UserDefaults.h"

namespace tarvo {

/// The encoding under DefaultEncoding of group [Platform], by a name that iconv knows, for example
/// "ISO-8859-1"; without the key the character set of the locale that the program has set. One that
/// is unknown, or has other bytes than ASCII for what ASCII has, is ignored, which `log` is told.
/// Main thread.
std::string defaultEncoding(const UserDefaults& defaults, const LogSink& log = {});

}  // namespace tarvo
