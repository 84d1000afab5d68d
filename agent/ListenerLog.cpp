#include "agent/ListenerLog.h"

#include <cstdarg>

#include "NativeServices/Logging.h"
#include "Utilities/Format.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "agent/ListenerMain.h"

namespace tarvo {

const std::wstring sRLAListener = L"RLA_Listener";

void logListener(const char* format, ...) {
  if (!LogCheck(kLogListener)) return;
  std::va_list arguments;
  va_start(arguments, format);
  const std::string message = formattedV(format, arguments);
  va_end(arguments);
  // UTF-16 in wide characters: one beyond 16 bits becomes two elements.
  Log(kLogListener, sRLAListener, stdWStringUTF16(message));
}

void logSeparator() {
  systemLogLine(std::string(90, '-'));
}

}  // namespace tarvo
