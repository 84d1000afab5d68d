// The session of tarvoctl as a process: made from what the command line says.
#pragma once

#include <optional>

#include "tools/access/ToolContext.h"

namespace tarvo::tools {

/// Main thread only. One in a process.
class ToolSession : public SessionSource {
 public:
  /// All are lent. A signal ends transactions that are running; `output` says what is waited for.
  ToolSession(const GlobalOptions& options, Output& output, const StopSignals& interrupt)
      : options_(options), output_(output), interrupt_(interrupt) {}

  Session& session() override {
    if (!session_) session_.emplace(sessionOptions());
    return *session_;
  }

 private:
  SessionOptions sessionOptions() const {
    SessionOptions options;
    options.stopBy(interrupt_).name("tarvoctl").quiet(options_.quiet || output_.isJSON());
    options.whileWaiting([&output = output_] {
      output.message("The device is still at it; Ctrl-C ends the wait.");
    });
    if (options_.timeout) options.timeout(*options_.timeout);
    if (options_.configFile) options.preferences(*options_.configFile);
    return options;
  }

  const GlobalOptions& options_;
  Output& output_;
  const StopSignals& interrupt_;
  std::optional<Session> session_;
};

}  // namespace tarvo::tools
