#include "simulator/program/ObjectRequests.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <vector>

#include "Utilities/Format.h"
#include "simulator/bytes/Spool.h"
#include "simulator/description/DatasetRecords.h"

namespace tarvo::simulator {
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
  const auto handles = camera.handles({0xFFFFFFFF, format, 0});
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
