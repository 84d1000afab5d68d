#include "simulator/program/ObjectCommands.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <iostream>

#include "Utilities/Format.h"
#include "simulator/bytes/JsonNode.h"
#include "simulator/program/ControlSocket.h"

namespace tarvo::simulator {
namespace {

using nlohmann::json;

CLI::App* addCommand(CLI::App& app, ObjectOptions& options, const char* name, const char* help) {
  auto* command = app.add_subcommand(name, help);
  command->add_option("id", options.id, "Id of the device")->required();
  return command;
}

/// Names may hold anything, so what is no printable ASCII is escaped as in JSON.
void printObject(const json& object) {
  std::cout << tarvo::formatted(
                   "%10u  0x%08X  0x%04X  %12llu  %s  ", object["handle"].get<std::uint32_t>(),
                   object["storage"].get<std::uint32_t>(), object["format"].get<unsigned>(),
                   static_cast<unsigned long long>(object["size"].get<std::uint64_t>()),
                   object["protected"].get<bool>() ? "p" : "-")
            << object["name"].dump(-1, ' ', true) << "\n";
}

void printObjects(const json& answer, bool asJson) {
  const auto& objects = answer["objects"];
  const auto total = answer["total"].get<std::size_t>();
  if (total > objects.size()) {
    std::cerr << "only the first " << objects.size() << " of " << total << " objects are shown\n";
  }
  if (asJson) {
    std::cout << objects.dump(2) << "\n";
    return;
  }
  for (const auto& object : objects)
    printObject(object);
}

json requestFor(const std::string& command, const ObjectOptions& options) {
  json request = {{"command", command}, {"id", options.id}};
  if (!options.file.empty()) request["path"] = std::filesystem::absolute(options.file).string();
  if (!options.name.empty()) request["name"] = options.name;
  for (const auto& [key, text] :
       {std::pair{"handle", options.handle}, std::pair{"storage", options.storage},
        std::pair{"parent", options.parent}, std::pair{"format", options.format}}) {
    if (!text.empty()) request[key] = numberArgument(text, 0xFFFFFFFF);
  }
  return request;
}

}  // namespace

std::uint64_t numberArgument(const std::string& text, std::uint64_t maximum) {
  const auto number = parseNumber(text, maximum);
  if (!number) throw CLI::ValidationError("\"" + text + "\" is no number that fits");
  return *number;
}

void addObjectCommands(CLI::App& app, ObjectOptions& options) {
  auto* listed = addCommand(app, options, "objects", "Show what a camera holds");
  listed->add_flag("--json", options.asJson, "One JSON document");
  listed->add_option("--format", options.format, "Only those of this object format");
  auto* added =
      addCommand(app, options, "add", "Let a camera have a new object; prints its handle");
  added->add_option("file", options.file, "File with its bytes")->required();
  added->add_option("--name", options.name, "Its name (default: the file's)");
  added->add_option("--storage", options.storage, "Id of its store (default: the first)");
  added->add_option("--parent", options.parent, "Handle of its folder (default: the root)");
  auto* exported = addCommand(app, options, "export", "Write the bytes of an object to a file");
  exported->add_option("handle", options.handle, "Handle of the object")->required();
  exported->add_option("file", options.file, "File to write")->required();
  auto* shown = addCommand(app, options, "dataset", "Print a vendor data set in hexadecimal");
  shown->add_option("handle", options.handle, "Handle of the data set")->required();
  addCommand(app, options, "display", "Print the display request that a camera got last");
  auto* removed = addCommand(app, options, "remove", "Let a camera lose an object");
  removed->add_option("handle", options.handle, "Handle of the object")->required();
  auto* captured =
      addCommand(app, options, "capture", "Press a camera's shutter; prints the handle");
  captured->add_option("--storage", options.storage, "Id of the store (default: the first)");
}

bool runObjectCommand(const std::string& command, const std::string& socket,
                      const ObjectOptions& options) {
  static constexpr std::array<std::string_view, 7> kCommands = {
      "objects", "add", "export", "dataset", "display", "remove", "capture"};
  if (std::ranges::count(kCommands, command) == 0) return false;
  const auto answer = ask(socket, requestFor(command, options));
  if (answer.contains("objects")) printObjects(answer, options.asJson);
  if (answer.contains("hex")) std::cout << answer["hex"].get<std::string>() << "\n";
  if (answer.contains("handle")) std::cout << answer["handle"] << "\n";
  return true;
}

}  // namespace tarvo::simulator
