#include "simulator/description/UnitDescription.h"

#include <memory>

#include "simulator/description/DeviceDescription.h"

namespace tarvo::simulator {
namespace {

ScsiDescription readScsi(const JsonNode& node) {
  node.allowKeys({"type", "vendor", "model", "revision"});
  ScsiDescription scsi;
  if (const auto type = node.find("type")) scsi.type = static_cast<unsigned>(type->number(0x1F));
  node.read("vendor", scsi.vendor);
  node.read("model", scsi.model);
  node.read("revision", scsi.revision);
  return scsi;
}

ModePageLies readLies(const JsonNode& node) {
  ModePageLies lies;
  if (const auto size = node.find("size")) {
    lies.size = static_cast<std::size_t>(size->number(0xFFFF));
  }
  if (node.find("modeDataLength")) node.at("modeDataLength").get(lies.modeDataLength);
  if (node.find("pageLength")) node.at("pageLength").get(lies.pageLength);
  return lies;
}

UsbModeDescription readUsbMode(const JsonNode& node) {
  node.allowKeys({"autoPowerCycle", "variableAutoWakeup", "composite", "flags", "delay", "size",
                  "modeDataLength", "pageLength"});
  UsbModeDescription mode;
  node.read("autoPowerCycle", mode.autoPowerCycle);
  node.read("variableAutoWakeup", mode.variableAutoWakeup);
  node.read("composite", mode.composite);
  node.read("flags", mode.flags);
  node.read("delay", mode.delay);
  mode.lies = readLies(node);
  return mode;
}

ModelPageDescription readModelPage(const JsonNode& node) {
  ModelPageDescription model;
  if (node.json().is_string()) {
    const auto text = std::as_bytes(std::span(node.json().get_ref<const std::string&>()));
    model.text.assign(text.begin(), text.end());
  } else {
    node.allowKeys({"text", "bytes", "size", "modeDataLength", "pageLength"});
    if (const auto text = node.find("text")) model = readModelPage(*text);
    if (const auto bytes = node.find("bytes")) {
      model.text.clear();
      for (const auto& item : bytes->items())
        model.text.push_back(static_cast<std::byte>(item.number(0xFF)));
    }
    model.lies = readLies(node);
  }
  if (model.text.size() > 0xFF) node.fail("at most 255 bytes are expected");
  return model;
}

ModePagesDescription readModePages(const JsonNode& node) {
  node.allowKeys({"usbMode", "model", "clock"});
  ModePagesDescription pages;
  if (const auto mode = node.find("usbMode")) pages.usbMode = readUsbMode(*mode);
  if (const auto model = node.find("model")) pages.model = readModelPage(*model);
  node.read("clock", pages.hasClock);
  return pages;
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

void readMilliseconds(const JsonNode& node, const char* key, std::chrono::milliseconds& field) {
  constexpr std::uint64_t kLongest = 600'000;
  if (const auto time = node.find(key)) field = std::chrono::milliseconds(time->number(kLongest));
}

/// The camera that the unit comes back as. Without a serial number of its own it has the unit's, so
/// that a host can tell that it is the same device.
std::shared_ptr<const DeviceDescription> readCamera(const JsonNode& node, const UsbIdentity& unit) {
  auto json = node.json();
  if (!json.is_object()) node.fail("an object is expected, or a name in a file");
  if (json.contains("usb") && json["usb"].is_object() && !json["usb"].contains("serial")) {
    json["usb"]["serial"] = unit.serial;
  }
  try {
    return std::make_shared<const DeviceDescription>(DeviceDescription::fromJson(json));
  } catch (const DescriptionError& error) {
    node.fail(error.what());
  }
}

}  // namespace

void readUnitDescription(const JsonNode& root, DeviceDescription& device) {
  root.allowKeys({"kind", "comment", "usb", "scsi", "modePages", "image", "volume", "camera",
                  "leaveAfter", "wakeAfter", "faults"});
  device.faults = Faults(FaultTarget::kUnit);
  if (const auto scsi = root.find("scsi")) device.scsi = readScsi(*scsi);
  if (const auto pages = root.find("modePages")) device.modePages = readModePages(*pages);
  if (const auto volume = root.find("volume")) device.volume = readVolume(*volume);
  root.read("image", device.image);
  if (const auto camera = root.find("camera")) device.camera = readCamera(*camera, device.usb);
  readMilliseconds(root, "leaveAfter", device.leaveAfter);
  readMilliseconds(root, "wakeAfter", device.wakeAfter);
  if (const auto faults = root.find("faults")) readFaults(*faults, device.faults);
}

}  // namespace tarvo::simulator
