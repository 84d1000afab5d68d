// The control socket: one JSON request and one JSON answer a connection, each on a line.
//
//   {"command": "plug", "description": {...}, "port": "1-4"}   ->  {"ok": true, "id": "1-4"}
//   {"command": "unplug", "id": "1-9"}                         ->  {"ok": false, "error": "..."}
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Utilities/FileDescriptor.h"

namespace tarvo::simulator {

/// TARVO_SIMULATOR_SOCKET, else tarvo-simulator.sock in XDG_RUNTIME_DIR, else in /tmp with the
/// user's id in its name.
std::string defaultSocketPath();

/// Asks the server at `path`. Raises std::runtime_error when there is none, when it goes away, and
/// with the server's words when it refuses. Waits for 30 s at most: a plug mounts volumes.
nlohmann::json ask(const std::string& path, const nlohmann::json& request);

/// Serves requests from the default main context. Only this user can connect (mode 0600).
class ControlSocket {
 public:
  /// What is raised becomes the answer "ok": false with its words; otherwise "ok": true is added.
  using Handler = std::function<nlohmann::json(const nlohmann::json& request)>;

  /// Raises std::runtime_error when another server answers at `path` or it cannot be made.
  ControlSocket(std::string path, Handler handler);
  ControlSocket(const ControlSocket&) = delete;
  ControlSocket& operator=(const ControlSocket&) = delete;
  ~ControlSocket();

  const std::string& path() const { return path_; }  ///< as given

 private:
  /// Takes one connection to its end; a client that is slow to ask holds the loop for 2 s at most.
  void serveOne();
  nlohmann::json answer(const std::string& line) const;

  std::string path_;
  Handler handler_;
  FileDescriptor listener_;
  unsigned source_ = 0;
};

// `tarvo-simulator run`: a program in the testbed that another process serves.
//
// The program itself is started unmodified: all that makes the testbed visible to it is its
// namespaces and its environment (LD_PRELOAD, UMOCKDEV_DIR).

/// Joins the namespaces of the server at `socket`, takes its environment, and becomes the program.
/// Returns only by raising std::runtime_error or std::system_error.
[[noreturn]] void runClient(const std::string& socket, const std::vector<std::string>& command);

/// Takes the descriptors of `slot` and becomes the program; the environment stays as it is.
[[noreturn]] void runInSlot(unsigned slot, const std::vector<std::string>& command);

}  // namespace tarvo::simulator
