// Logging as in a process whose preferences turn the given keys on, with the lines kept:
//
//   TraceRecorder traces;                      // the device library's traces
//   EXPECT_THAT(traces.take(), ElementsAre("..."));
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "NativeServices/Logging.h"
#include "tests/support/FakeUserDefaults.h"
#include "tests/support/RecordingSystemLog.h"

namespace tarvo::test {

class TraceRecorder {
 public:
  explicit TraceRecorder(
      std::map<std::string, bool, std::less<>> keys = {{"LOG_SUBSYS_CAMERA_VERBOSE", true}})
      : defaults_(std::move(keys)) {}

  /// The messages of the lines that were traced since the last call, without their facility.
  std::vector<std::string> take() {
    constexpr std::string_view kFacility = "XT PictureDevice - ";
    std::vector<std::string> messages;
    for (const auto& line : log_.lines())
      messages.push_back(line.starts_with(kFacility) ? line.substr(kFacility.size()) : line);
    log_.clear();
    return messages;
  }

  RecordingSystemLog& log() { return log_; }

 private:
  FakeUserDefaults defaults_;
  RecordingSystemLog log_;
  LogState state_{defaults_, log_};
};

}  // namespace tarvo::test
