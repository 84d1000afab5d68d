// What the program and the module with its window have in common.
#pragma once

namespace tarvo::relay {

/// The module's file, beside the program's.
inline constexpr const char* kWindowModule = "relay-window.so";
/// Its entry, a WindowMain: shows the window for the command line until it is closed, and gives the
/// exit status.
inline constexpr const char* kWindowMain = "tarvoRelayWindow";
using WindowMain = int (*)(int argc, char** argv);
/// In place of a status: the display that is named does not answer.
inline constexpr int kNoDisplay = -1;

}  // namespace tarvo::relay
