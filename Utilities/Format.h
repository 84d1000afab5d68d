// printf-style formatting into a std::string, for log lines whose texts are given as such.
#pragma once

#include <cstdarg>
#include <string>

namespace tarvo {

/// vsnprintf into a string of the right size. Never pass text that came from a device as `format`.
[[gnu::format(printf, 1, 2)]] std::string formatted(const char* format, ...);
[[gnu::format(printf, 1, 0)]] std::string formattedV(const char* format, std::va_list arguments);

}  // namespace tarvo
