// What every stand-in does: write one line about how it was started, then stay until it is told to
// end. Environment:
//
//   TARVO_STANDIN_LOG      file to append the line to (one JSON object); none: standard output
//   TARVO_STANDIN_CLAIM    "1": the Relay tries to claim the device of its command line
//   TARVO_STANDIN_SECONDS  ends by itself after that time; none: stays until SIGTERM
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace tarvo::simulator {

/// "program", "pid" and "arguments" of this process, and "started": seconds of the monotonic clock,
/// which other processes on the machine can compare with their own.
nlohmann::json standinReport(int argc, char** argv);
/// Ends the process with 1 when the line cannot be written: a launch that nobody sees helps nobody.
void writeReport(const nlohmann::json& report);
/// Returns when the stand-in is to end.
void stay();

}  // namespace tarvo::simulator
