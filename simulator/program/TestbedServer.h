// `tarvo-simulator serve`: a testbed, its control socket, and a program that runs in it.
//
// Without a program it prints the environment that shows the testbed, as lines for a shell, and
// serves until it is told to end. Everything that it made goes with it.
#pragma once

#include <string>
#include <vector>

#include "simulator/program/Server.h"

namespace tarvo::simulator {

class Testbed;

/// The command line of `serve`.
struct ServeOptions {
  ServerOptions server;
  std::string volumes;               ///< empty: /media/USER, on a file system of the testbed's own
  std::string bundle;                ///< folder that `bundle` made, shown to the agent; or empty
  std::vector<std::string> command;  ///< empty: serve until SIGTERM or SIGINT
};

/// Main thread only, after TestbedProcess::enter.
class TestbedServer : public Server {
 public:
  /// Raises std::runtime_error (in words) when it cannot serve.
  explicit TestbedServer(const ServeOptions& options);
  /// Ends the command, if it still runs.
  ~TestbedServer() override;

 protected:
  void start() override;
  std::optional<nlohmann::json> answerMore(const nlohmann::json& request) override;

 private:
  /// What `run` needs to start a program here: whose namespaces to join, and its environment.
  nlohmann::json client();
  void printEnvironment() const;
  void startCommand();
  static void commandEnded(GPid pid, gint status, gpointer self);

  ServeOptions options_;
  Testbed& testbed_;  ///< the base owns it
  GPid command_ = 0;  ///< 0: there is none, or it has ended
  unsigned watch_ = 0;
};

}  // namespace tarvo::simulator
