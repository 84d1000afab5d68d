#include "platform/foundation/DefaultEncoding.h"

#include <string_view>

#include "platform/foundation/GlibPtr.h"

namespace tarvo {

namespace {

/// Everything that has a meaning in the text files of devices; UTF-16 and EBCDIC are out.
constexpr std::string_view kSyntax = "\r\n \"<>[]=@.0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";

bool isUsable(const std::string& encoding) {
  const GCharPtr text(g_convert(kSyntax.data(), static_cast<gssize>(kSyntax.size()), "UTF-8",
                                encoding.c_str(), nullptr, nullptr, nullptr));
  return text && text.get() == kSyntax;
}

}  // namespace

std::string defaultEncoding(const UserDefaults& defaults, const LogSink& log) {
  const auto configured = defaults.text("Platform", "DefaultEncoding");
  if (configured && !configured->empty()) {
    if (isUsable(*configured)) return *configured;
    logTo(log, LogLevel::kWarning,
          "[Platform] DefaultEncoding is ignored: '" + *configured +
              "' is no 8-bit encoding that is known");
  }
  const char* ofLocale = "UTF-8";
  g_get_charset(&ofLocale);
  return ofLocale;
}

}  // namespace tarvo
