// The commands of tarvo-simulator that look at a camera's objects or let it do something by itself,
// on both sides of the control socket.
#pragma once

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace tarvo::simulator {

class PTPCamera;

/// What their command lines say.
struct ObjectOptions {
  std::string id;
  std::string file;
  std::string name;
  std::string handle;
  std::string storage;
  std::string parent;
  std::string format;
  bool asJson = false;
};

/// Adds the commands; `options` must outlive `app`.
void addObjectCommands(CLI::App& app, ObjectOptions& options);

/// Runs the command of that name through the control socket and prints its result; false where it
/// is none of these. Raises std::exception in words for what is wrong, CLI::ValidationError for a
/// number that is none.
bool runObjectCommand(const std::string& command, const std::string& socket,
                      const ObjectOptions& options);

/// The number in a command line's text; raises CLI::ValidationError.
std::uint64_t numberArgument(const std::string& text, std::uint64_t maximum);

// Requests of the control socket about what a camera holds, and about what it does by itself.

/// Answers "objects", "add", "remove", "export", "dataset", "display" and "capture" for the camera
/// that the request names; none for another command. Paths in requests are absolute. Raises
/// std::exception in words for what is wrong.
std::optional<nlohmann::json> answerObjectRequest(PTPCamera& camera, const nlohmann::json& request);

}  // namespace tarvo::simulator
