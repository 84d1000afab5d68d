#include "platform/foundation/MainLoopGuard.h"

#include <string>

#include "Utilities/Exception.h"

namespace tarvo {
namespace {

std::string reasonOf(const std::exception_ptr& raised) {
  try {
    std::rethrow_exception(raised);
  } catch (const Exception& exception) {
    return exception.reason();
  } catch (const std::exception& exception) {
    return exception.what();
  } catch (...) {
    return "unknown exception";
  }
}

}  // namespace

void logUncaughtException(const LogSink& log, const char* name,
                          const std::exception_ptr& raised) noexcept {
  try {
    logTo(log, LogLevel::kError,
          "handling uncaught exception in " + std::string(name) + ": " + reasonOf(raised));
  } catch (...) {
    // A log that fails leaves nobody to tell.
  }
}

}  // namespace tarvo
