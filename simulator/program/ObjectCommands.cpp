#include "simulator/program/ObjectCommands.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <vector>

#include "Utilities/Format.h"
#include "simulator/bytes/JsonNode.h"
#include "simulator/bytes/Payload.h"
#include "simulator/description/DatasetDescription.h"
#include "simulator/program/ControlSocket.h"
#include "simulator/ptp/PTPCamera.h"

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

namespace {

constexpr std::size_t kPiece = std::size_t{1} << 20;
/// An answer of the control socket is one line, which has to stay bearable.
constexpr std::size_t kMostListed = 10'000;

std::shared_ptr<const Payload> contentOfFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path);
  Spool spool;
  std::vector<char> piece(kPiece);
  while (file.read(piece.data(), static_cast<std::streamsize>(piece.size())) || file.gcount() > 0) {
    const auto count = static_cast<std::size_t>(file.gcount());
    spool.append(std::as_bytes(std::span(piece.data(), count)));
  }
  return spool.finish();
}

void writeFile(const Payload& content, const std::string& path) {
  std::ofstream file(path, std::ios::binary);
  std::vector<std::byte> piece(kPiece);
  for (std::uint64_t offset = 0; offset < content.size() && file; offset += piece.size()) {
    const auto left = std::min<std::uint64_t>(content.size() - offset, piece.size());
    const auto room = std::span(piece).first(static_cast<std::size_t>(left));
    content.read(offset, room);
    file.write(reinterpret_cast<const char*>(room.data()),
               static_cast<std::streamsize>(room.size()));
  }
  if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

nlohmann::json described(const StoredObject& object) {
  return {{"handle", object.handle},
          {"storage", object.storage},
          {"parent", object.parent},
          {"format", object.traits.format},
          {"size", object.size},
          {"name", object.nameText()},
          {"protected", object.traits.isProtected},
          {"captured", object.traits.captured},
          {"extended", !object.extension.empty()}};
}

nlohmann::json listObjects(const PTPCamera& camera, std::uint16_t format) {
  auto list = nlohmann::json::array();
  const auto handles = camera.handles({.format = format});
  for (const auto handle : std::span(handles).first(std::min(handles.size(), kMostListed))) {
    if (const auto object = camera.object(handle)) list.push_back(described(*object));
  }
  return {{"objects", std::move(list)}, {"total", handles.size()}};
}

nlohmann::json hexOf(const Bytes& bytes) {
  std::string text;
  for (const auto byte : bytes)
    text += formatted("%02x", static_cast<unsigned>(byte));
  return {{"hex", text}};
}

nlohmann::json showDataset(const PTPCamera& camera, std::uint32_t handle) {
  const auto object = camera.object(handle);
  if (!object || !isDatasetFormat(object->traits.format)) {
    throw std::runtime_error("no data set has that handle");
  }
  return hexOf(camera.bytes(handle));
}

nlohmann::json addObject(PTPCamera& camera, const nlohmann::json& request) {
  const std::filesystem::path path = request.at("path").get<std::string>();
  StoredObject object;
  object.storage = request.value("storage", 0U);
  object.parent = request.value("parent", 0U);
  object.name = utf16(request.value("name", path.filename().string()));
  object.traits.format = formatOfExtension(object.nameText());
  object.content = contentOfFile(path.string());
  object.size = object.content->size();
  const auto handle = camera.addObject(std::move(object));
  if (handle == 0) throw std::runtime_error("there is no such store or folder");
  return {{"handle", handle}};
}

nlohmann::json exportObject(const PTPCamera& camera, std::uint32_t handle,
                            const std::string& path) {
  const auto content = camera.content(handle);
  if (!content) throw std::runtime_error("no file has that handle");
  writeFile(*content, path);
  return {{"size", content->size()}};
}

}  // namespace

std::optional<nlohmann::json> answerObjectRequest(PTPCamera& camera,
                                                  const nlohmann::json& request) {
  const auto command = request.at("command").get<std::string>();
  const auto handle = request.value("handle", 0U);
  if (command == "objects") return listObjects(camera, request.value("format", std::uint16_t{0}));
  if (command == "add") return addObject(camera, request);
  if (command == "export") {
    return exportObject(camera, handle, request.at("path").get<std::string>());
  }
  if (command == "dataset") return showDataset(camera, handle);
  if (command == "display") return hexOf(camera.displayRequest());
  if (command == "remove") {
    if (!camera.removeObject(handle)) throw std::runtime_error("no object can be removed there");
    return nlohmann::json::object();
  }
  if (command == "capture") {
    const auto made = camera.capture(request.value("storage", 0U));
    if (made == 0) throw std::runtime_error("the store takes no picture");
    return nlohmann::json{{"handle", made}};
  }
  return std::nullopt;
}

}  // namespace tarvo::simulator
