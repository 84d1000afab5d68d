// What `tarvo-simulator serve` and `usbip` have in common: virtual devices in some place where
// programs find them, and a control socket to plug, unplug and watch them.
#pragma once

#include <glib.h>

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "simulator/host/DeviceHost.h"
#include "simulator/program/ControlSocket.h"

namespace tarvo::simulator {

struct ServerOptions {
  std::string socket;                ///< path of the control socket
  std::vector<std::string> devices;  ///< files or names, plugged in at the start
  bool strict = false;               ///< a host that breaks the protocol makes the exit code 1
};

/// Main thread only.
class Server {
 public:
  /// Raises std::runtime_error (in words) when it cannot serve.
  Server(ServerOptions options, std::unique_ptr<DeviceHost> host);
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  virtual ~Server();

  /// Serves until it is told to end, by a signal too; returns the exit code.
  int run();

 protected:
  /// Called once, before it serves.
  virtual void start();
  /// Answers a request that a place of its own kind has; none: there is no such request.
  virtual std::optional<nlohmann::json> answerMore(const nlohmann::json& request);

  const std::string& socketPath() const { return control_.path(); }
  /// The place that the server was made with.
  DeviceHost& host() { return *host_; }
  void end(int exitCode);

 private:
  /// Answers a request of the control socket; raises std::exception in words for what is wrong.
  nlohmann::json handle(const nlohmann::json& request);
  nlohmann::json plug(const nlohmann::json& request);
  nlohmann::json list() const;
  nlohmann::json setFault(const nlohmann::json& request);
  nlohmann::json sendEvent(const nlohmann::json& request);
  /// The device that a request names; raises when there is none of that id.
  HostedDevice& device(const nlohmann::json& request);
  /// The camera that a request names; raises when there is none of that id, or no camera.
  PTPCamera& camera(const nlohmann::json& request);
  nlohmann::json unplug(const std::string& id);
  /// Prints what hosts did against the protocol at a device that is about to go.
  void reportViolations(const HostedDevice& device);
  static gboolean signalled(gpointer self);

  ServerOptions options_;
  std::unique_ptr<GMainLoop, decltype(&g_main_loop_unref)> loop_;
  std::unique_ptr<DeviceHost> host_;
  ControlSocket control_;
  std::vector<unsigned> sources_;  ///< of the main context, removed at the end
  int exitCode_ = 0;
  bool violated_ = false;  ///< a host has broken the protocol
};

// Where device descriptions are found.

/// The file that `text` names: a path, or the name of a description that comes with the program.
/// Raises DescriptionError, with the known names, when there is none.
std::filesystem::path findDeviceFile(const std::string& text);

/// The shipped ggcam.inf; empty when there is none.
std::filesystem::path findModelsFile();

}  // namespace tarvo::simulator
