// `tarvo-simulator serve`: a testbed, its control socket, and a program that runs in it.
//
// Without a program it prints the environment that shows the testbed, as lines for a shell, and
// serves until it is told to end. Everything that it made goes with it.
#pragma once

#include <glib.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "simulator/program/ControlSocket.h"
#include "simulator/testbed/Testbed.h"

namespace tarvo::simulator {

/// The command line of `serve`.
struct ServeOptions {
  std::string socket;                ///< path of the control socket
  std::string volumes;               ///< empty: /media/USER, on a file system of the testbed's own
  std::string bundle;                ///< folder that `bundle` made, shown to the agent; or empty
  std::vector<std::string> devices;  ///< files or names, plugged in at the start
  std::vector<std::string> command;  ///< empty: serve until SIGTERM or SIGINT
  bool strict = false;               ///< a program that breaks the protocol makes the exit code 1
};

/// Main thread only, after TestbedProcess::enter.
class Server {
 public:
  /// Raises std::runtime_error (in words) when it cannot serve.
  explicit Server(ServeOptions options);
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  ~Server();

  /// Serves; returns the exit code of the command, or 0 after a signal.
  int run();

 private:
  /// Answers a request of the control socket; raises std::exception in words for what is wrong.
  nlohmann::json handle(const nlohmann::json& request);
  nlohmann::json plug(const nlohmann::json& request);
  nlohmann::json list() const;
  nlohmann::json setFault(const nlohmann::json& request);
  nlohmann::json sendEvent(const nlohmann::json& request);
  /// What `run` needs to start a program here: whose namespaces to join, and its environment.
  nlohmann::json client();
  /// The device that a request names; raises when there is none of that id.
  HostedDevice& device(const nlohmann::json& request);
  /// The camera that a request names; raises when there is none of that id, or no camera.
  PTPCamera& camera(const nlohmann::json& request);

  nlohmann::json unplug(const std::string& id);
  /// Prints what hosts did against the protocol at a device that is about to go.
  void reportViolations(const HostedDevice& device);
  void printEnvironment() const;
  void startCommand();
  static void commandEnded(GPid pid, gint status, gpointer self);
  static gboolean signalled(gpointer self);

  ServeOptions options_;
  std::unique_ptr<GMainLoop, decltype(&g_main_loop_unref)> loop_;
  Testbed testbed_;
  ControlSocket control_;
  std::vector<unsigned> sources_;  ///< of the main context, removed at the end; the watch is last
  GPid command_ = 0;               ///< 0: there is none, or it has ended
  int exitCode_ = 0;               ///< of the command
  bool violated_ = false;          ///< a host has broken the protocol
};

}  // namespace tarvo::simulator
