#include "simulator/DeviceDescription.h"

#include <array>
#include <cstdio>
#include <fstream>
#include <limits>
#include <utility>

namespace tarvo::simulator {
namespace {

constexpr std::uint64_t kMaximum32 = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint64_t kMaximum64 = std::numeric_limits<std::uint64_t>::max();

std::uint16_t code(const JsonNode& node) {
  return static_cast<std::uint16_t>(node.number(0xFFFF));
}

/// A name that may become a file name on a real file system.
std::string fileName(const JsonNode& node) {
  auto name = node.text();
  if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos) {
    node.fail("a file name without \"/\" is expected");
  }
  return name;
}

UsbIdentity readUsb(const JsonNode& node) {
  node.allowKeys({"vendor", "product", "release", "manufacturer", "name", "serial", "speed"});
  UsbIdentity usb;
  usb.vendor = code(node.at("vendor"));
  usb.product = code(node.at("product"));
  usb.release = static_cast<std::uint16_t>(node.numberOr("release", 0xFFFF, usb.release));
  usb.manufacturer = node.textOr("manufacturer", "");
  usb.name = node.textOr("name", "");
  usb.serial = node.textOr("serial", "");
  const auto speed = node.textOr("speed", "high");
  if (speed != "high" && speed != "full") node.at("speed").fail("\"high\" or \"full\" is expected");
  usb.speed = speed == "full" ? UsbSpeed::kFull : UsbSpeed::kHigh;
  return usb;
}

/// Generated files have 32-bit handles and no text; the bound keeps a listing of them in memory.
ContentNode readGenerated(const JsonNode& node) {
  node.allowKeys({"count", "size", "prefix", "extension"});
  ContentNode content;
  content.kind = ContentNode::Kind::kGenerated;
  content.generated.count = static_cast<std::uint32_t>(node.at("count").number(10'000'000));
  content.generated.size = static_cast<std::uint32_t>(node.numberOr("size", kMaximum32, 0));
  content.generated.prefix = node.textOr("prefix", "TARV");
  content.generated.extension = node.textOr("extension", "JPG");
  return content;
}

ContentNode readFile(const JsonNode& node) {
  node.allowKeys({"file", "size", "text", "format"});
  ContentNode content;
  content.name = fileName(node.at("file"));
  content.format = static_cast<std::uint16_t>(node.numberOr("format", 0xFFFF, 0));
  if (const auto text = node.find("text")) {
    content.text = text->text();
    content.size = content.text->size();
  } else {
    content.size = node.numberOr("size", kMaximum32, 0);
  }
  return content;
}

std::vector<ContentNode> readContent(const std::optional<JsonNode>& list);

ContentNode readContentNode(const JsonNode& node) {
  if (const auto generated = node.find("generate")) return readGenerated(*generated);
  if (!node.find("folder")) return readFile(node);
  node.allowKeys({"folder", "content"});
  ContentNode content;
  content.kind = ContentNode::Kind::kFolder;
  content.name = fileName(node.at("folder"));
  content.children = readContent(node.find("content"));
  return content;
}

std::vector<ContentNode> readContent(const std::optional<JsonNode>& list) {
  std::vector<ContentNode> content;
  if (!list) return content;
  for (const auto& item : list->items())
    content.push_back(readContentNode(item));
  return content;
}

/// What is left out is taken over from the USB identity, as the two mostly agree on real cameras.
DeviceInfo readDeviceInfo(const JsonNode& node, const UsbIdentity& usb) {
  node.allowKeys({"vendorExtensionID", "vendorExtensionVersion", "vendorExtensionDescription",
                  "functionalMode", "operations", "events", "captureFormats", "imageFormats",
                  "manufacturer", "model", "version", "serial"});
  DeviceInfo info;
  info.vendorExtensionID =
      static_cast<std::uint32_t>(node.numberOr("vendorExtensionID", kMaximum32, 0));
  info.vendorExtensionVersion =
      static_cast<std::uint16_t>(node.numberOr("vendorExtensionVersion", 0xFFFF, 100));
  info.vendorExtensionDescription = node.textOr("vendorExtensionDescription", "");
  info.functionalMode = static_cast<std::uint16_t>(node.numberOr("functionalMode", 0xFFFF, 0));
  if (node.find("operations")) info.operations = node.codesOr("operations", {});
  info.events = node.codesOr("events", {0x4002, 0x4003, 0x4004, 0x4005});
  info.captureFormats = node.codesOr("captureFormats", {});
  info.imageFormats = node.codesOr("imageFormats", {0x3801, 0x3001});
  info.manufacturer = node.textOr("manufacturer", usb.manufacturer);
  info.model = node.textOr("model", usb.name);
  info.version = node.textOr("version", "1.0");
  info.serial = node.textOr("serial", usb.serial);
  return info;
}

/// Datatype codes of ISO 15740; 128-bit numbers are left out, as no property of these cameras has
/// them.
std::uint16_t readDatatype(const JsonNode& node) {
  static constexpr std::array<std::pair<std::string_view, std::uint16_t>, 13> kTypes = {{
      {"INT8", 0x0001},
      {"UINT8", 0x0002},
      {"INT16", 0x0003},
      {"UINT16", 0x0004},
      {"INT32", 0x0005},
      {"UINT32", 0x0006},
      {"INT64", 0x0007},
      {"UINT64", 0x0008},
      {"AINT8", 0x4001},
      {"AUINT8", 0x4002},
      {"AUINT16", 0x4004},
      {"AUINT32", 0x4006},
      {"STR", 0xFFFF},
  }};
  const auto name = node.text();
  for (const auto& [known, datatype] : kTypes) {
    if (known == name) return datatype;
  }
  node.fail("a PTP datatype such as \"UINT8\" or \"STR\" is expected");
}

/// A value as JSON of the form that `datatype` needs.
nlohmann::json readValue(const JsonNode& node, std::uint16_t datatype) {
  if (datatype == 0xFFFF) return node.text();
  // Negative numbers are JSON integers; texts in hexadecimal form go through number().
  if (datatype < 0x4000) {
    return node.json().is_number_integer() ? node.json() : nlohmann::json(node.number(kMaximum64));
  }
  auto list = nlohmann::json::array();
  for (const auto& item : node.items())
    list.push_back(readValue(item, datatype - 0x4000));
  return list;
}

PropertyDescription readProperty(const JsonNode& node) {
  node.allowKeys({"code", "type", "value", "default", "writable", "range", "choices"});
  PropertyDescription property;
  property.code = code(node.at("code"));
  property.datatype = readDatatype(node.at("type"));
  property.writable = node.booleanOr("writable", false);
  property.value = readValue(node.at("value"), property.datatype);
  const auto otherwise = node.find("default");
  property.defaultValue = otherwise ? readValue(*otherwise, property.datatype) : property.value;
  if (const auto range = node.find("range")) {
    for (const auto& item : range->items()) {
      property.range.push_back(readValue(item, property.datatype));
    }
    if (property.range.size() != 3) range->fail("minimum, maximum and step are expected");
  }
  if (const auto choices = node.find("choices")) {
    for (const auto& item : choices->items()) {
      property.choices.push_back(readValue(item, property.datatype));
    }
  }
  return property;
}

VendorDescription readVendor(const JsonNode& node) {
  node.allowKeys({"supportedDatasets", "displayRequestVersion", "bragbookVersion", "lcbInfo"});
  VendorDescription vendor;
  if (node.find("supportedDatasets")) {
    vendor.supportedDatasets = node.codesOr("supportedDatasets", {});
  }
  if (const auto version = node.find("displayRequestVersion")) {
    vendor.displayRequestVersion = static_cast<std::uint32_t>(version->number(kMaximum32));
  }
  if (const auto version = node.find("bragbookVersion")) {
    vendor.bragbookVersion = static_cast<std::uint32_t>(version->number(kMaximum32));
  }
  if (const auto bytes = node.find("lcbInfo")) {
    vendor.lcbInfo.emplace();
    for (const auto& item : bytes->items()) {
      vendor.lcbInfo->push_back(static_cast<std::uint8_t>(item.number(0xFF)));
    }
  }
  return vendor;
}

StoreDescription readStore(const JsonNode& node) {
  node.allowKeys({"id", "description", "label", "capacity", "free", "removable", "content"});
  StoreDescription store;
  store.id = static_cast<std::uint32_t>(node.numberOr("id", kMaximum32, store.id));
  store.description = node.textOr("description", "Memory card");
  store.label = node.textOr("label", "");
  store.capacity = node.numberOr("capacity", kMaximum64, 4'000'000'000);
  store.free = node.numberOr("free", kMaximum64, store.capacity / 2);
  store.removable = node.booleanOr("removable", true);
  store.content = readContent(node.find("content"));
  return store;
}

ScsiDescription readScsi(const JsonNode& node) {
  node.allowKeys({"type", "vendor", "model", "revision"});
  ScsiDescription scsi;
  scsi.type = static_cast<unsigned>(node.numberOr("type", 0x1F, 0));
  scsi.vendor = node.textOr("vendor", "TARVO");
  scsi.model = node.textOr("model", "Camera Disk");
  scsi.revision = node.textOr("revision", scsi.revision);
  return scsi;
}

/// true and false switch a fault; a number is its operation, bytes or milliseconds.
Faults readFaults(const JsonNode& node) {
  Faults faults;
  for (const auto& [name, value] : node.entries()) {
    std::string text;
    if (value.json().is_boolean()) {
      text = value.boolean() ? "" : "off";
    } else {
      text = std::to_string(value.number(kMaximum32));
    }
    if (const auto problem = faults.set(name, text); !problem.empty()) value.fail(problem);
  }
  return faults;
}

void readPTP(const JsonNode& root, DeviceDescription& device) {
  root.allowKeys(
      {"kind", "comment", "usb", "deviceInfo", "properties", "vendor", "stores", "faults"});
  device.info = readDeviceInfo(root.at("deviceInfo"), device.usb);
  if (const auto properties = root.find("properties")) {
    for (const auto& item : properties->items())
      device.properties.push_back(readProperty(item));
  }
  if (const auto vendor = root.find("vendor")) device.vendor = readVendor(*vendor);
  if (const auto stores = root.find("stores")) {
    for (const auto& item : stores->items())
      device.stores.push_back(readStore(item));
  }
  if (const auto faults = root.find("faults")) device.faults = readFaults(*faults);
}

void readMassStorage(const JsonNode& root, DeviceDescription& device) {
  root.allowKeys({"kind", "comment", "usb", "scsi", "volume"});
  if (const auto scsi = root.find("scsi")) device.scsi = readScsi(*scsi);
  if (const auto volume = root.find("volume")) {
    volume->allowKeys({"label", "content"});
    device.volume =
        VolumeDescription{fileName(volume->at("label")), readContent(volume->find("content"))};
  }
}

}  // namespace

std::string GeneratedFiles::nameOf(std::uint32_t index) const {
  std::array<char, 16> digits{};
  std::snprintf(digits.data(), digits.size(), "%06u", index + 1);
  return prefix + digits.data() + "." + extension;
}

DeviceDescription DeviceDescription::fromJson(const nlohmann::json& json) {
  const JsonNode root(json, "");
  DeviceDescription device;
  device.usb = readUsb(root.at("usb"));
  const auto kind = root.textOr("kind", "ptp");
  if (kind == "ptp") {
    readPTP(root, device);
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
