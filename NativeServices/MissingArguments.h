// What printf-style formatting makes of a text when every argument is missing.
//
// The log hands its finished line to the system log as a format string, so a "%" that came with a
// device's or a user's text acts as a directive. This does the same without reading arguments that
// are not there.
#pragma once

#include <string>
#include <string_view>

namespace tarvo {

/// The line that formatting `format` without any argument gives. It never fails and takes time in
/// proportion to the text; the result is at most kWidest (64) characters and a few longer for each
/// directive, so text of a device cannot blow a line up.
///
///   expandMissingArguments("100%% of %d")  gives "100% of 0"
///
/// "%%" gives "%", integer and floating directives give zero, "%s" and "%@" give "(null)", "%c" and
/// "%n" nothing. Flags, width and precision count, width and precision up to 64; what is no
/// directive stays as it stands. Any thread.
std::string expandMissingArguments(std::string_view format);

}  // namespace tarvo
