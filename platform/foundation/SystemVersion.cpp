#include "platform/foundation/SystemVersion.h"

#include <limits>
#include <string>

#include "platform/foundation/Numbers.h"

namespace tarvo {

std::int32_t systemVersion(const UserDefaults& defaults, const LogSink& log) {
  const auto text = defaults.text("Platform", "SystemVersion");
  const auto number =
      text ? numberOf(*text, std::numeric_limits<std::int32_t>::max()) : std::nullopt;
  if (text && !number) {
    logTo(log, LogLevel::kWarning,
          "[Platform] SystemVersion is ignored: '" + *text + "' is no number of its range");
  }
  return static_cast<std::int32_t>(number.value_or(0));
}

}  // namespace tarvo
