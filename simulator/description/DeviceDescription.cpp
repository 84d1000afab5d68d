#include "simulator/description/DeviceDescription.h"

#include <fstream>

#include "simulator/description/PTPDescription.h"

namespace tarvo::simulator {
namespace {

UsbIdentity readUsb(const JsonNode& node) {
  node.allowKeys({"vendor", "product", "release", "manufacturer", "name", "serial", "speed"});
  UsbIdentity usb;
  node.at("vendor").get(usb.vendor);
  node.at("product").get(usb.product);
  node.read("release", usb.release);
  node.read("manufacturer", usb.manufacturer);
  node.read("name", usb.name);
  node.read("serial", usb.serial);
  std::string speed = "high";
  node.read("speed", speed);
  if (speed != "high" && speed != "full") node.at("speed").fail("\"high\" or \"full\" is expected");
  usb.speed = speed == "full" ? UsbSpeed::kFull : UsbSpeed::kHigh;
  return usb;
}

nlohmann::json readJson(const std::filesystem::path& path) {
  std::ifstream file(path);
  if (!file) throw DescriptionError("cannot read " + path.string());
  try {
    return nlohmann::json::parse(file);
  } catch (const nlohmann::json::parse_error& error) {
    throw DescriptionError(path.string() + ": " + error.what());
  }
}

}  // namespace

DeviceDescription DeviceDescription::fromJson(const nlohmann::json& json) {
  const JsonNode root(json, "");
  DeviceDescription device;
  device.usb = readUsb(root.at("usb"));
  std::string kind = "ptp";
  root.read("kind", kind);
  if (kind == "ptp") {
    readPTPDescription(root, device);
  } else if (kind == "massStorage") {
    device.kind = DeviceKind::kMassStorage;
    readUnitDescription(root, device);
  } else {
    root.at("kind").fail("\"ptp\" or \"massStorage\" is expected");
  }
  return device;
}

DeviceDescription DeviceDescription::fromFile(const std::filesystem::path& path) {
  const auto json = jsonFromFile(path);
  // Whoever reads the message has several files, and the key path alone does not tell which.
  try {
    return fromJson(json);
  } catch (const DescriptionError& error) {
    throw DescriptionError(path.string() + ": " + error.what());
  }
}

nlohmann::json DeviceDescription::jsonFromFile(const std::filesystem::path& path) {
  auto json = readJson(path);
  if (!json.is_object() || !json.contains("camera") || !json["camera"].is_string()) return json;
  const auto name = json["camera"].get<std::string>();
  auto camera = readJson(path.parent_path() / (name + ".json"));
  // Of these a device has one each, whichever way it shows itself.
  for (const char* part : {"usb", "deviceInfo"}) {
    if (camera.is_object() && camera.contains(part) && camera[part].is_object()) {
      camera[part].erase("serial");
    }
  }
  json["camera"] = std::move(camera);
  return json;
}

/// true and false switch a fault; a number or a text is its value.
void readFaults(const JsonNode& node, Faults& faults) {
  for (const auto& [name, value] : node.entries()) {
    std::string text;
    if (value.json().is_boolean()) {
      text = value.boolean() ? "" : "off";
    } else if (value.json().is_string()) {
      text = value.text();
    } else {
      text = std::to_string(value.number(std::numeric_limits<std::uint32_t>::max()));
    }
    if (const auto problem = faults.set(name, text); !problem.empty()) value.fail(problem);
  }
}

}  // namespace tarvo::simulator
