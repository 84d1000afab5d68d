#include "simulator/DeviceDescription.h"

#include <fstream>

#include "simulator/PTPDescription.h"

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

ScsiDescription readScsi(const JsonNode& node) {
  node.allowKeys({"type", "vendor", "model", "revision"});
  ScsiDescription scsi;
  if (const auto type = node.find("type")) scsi.type = static_cast<unsigned>(type->number(0x1F));
  node.read("vendor", scsi.vendor);
  node.read("model", scsi.model);
  node.read("revision", scsi.revision);
  return scsi;
}

VolumeDescription readVolume(const JsonNode& node) {
  node.allowKeys({"label", "content"});
  VolumeDescription volume;
  volume.label = readFileName(node.at("label"));
  if (const auto list = node.find("content")) {
    volume.content = readContent(*list, NameRule::kRealFile);
  }
  return volume;
}

void readMassStorage(const JsonNode& root, DeviceDescription& device) {
  root.allowKeys({"kind", "comment", "usb", "scsi", "volume"});
  if (const auto scsi = root.find("scsi")) device.scsi = readScsi(*scsi);
  if (const auto volume = root.find("volume")) device.volume = readVolume(*volume);
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
    readMassStorage(root, device);
  } else {
    root.at("kind").fail("\"ptp\" or \"massStorage\" is expected");
  }
  return device;
}

DeviceDescription DeviceDescription::fromFile(const std::filesystem::path& path) {
  std::ifstream file(path);
  if (!file) throw DescriptionError("cannot read " + path.string());
  nlohmann::json json;
  try {
    json = nlohmann::json::parse(file);
  } catch (const nlohmann::json::parse_error& error) {
    throw DescriptionError(path.string() + ": " + error.what());
  }
  // Whoever reads the message has several files, and the key path alone does not tell which.
  try {
    return fromJson(json);
  } catch (const DescriptionError& error) {
    throw DescriptionError(path.string() + ": " + error.what());
  }
}

}  // namespace tarvo::simulator
