#include "simulator/description/DeviceDescription.h"
#include "simulator/bytes/JsonNode.h"

#include <array>
#include <fstream>
#include <limits>
#include <memory>
#include <utility>

namespace tarvo::simulator {
namespace {

UsbIdentity readUsb(const JsonNode& node) {
  UsbIdentity usb;
  node.at("vendor").get(usb.vendor);
  node.at("product").get(usb.product);
  node.readAll({"vendor", "product", "speed"}, Key("release", usb.release),
               Key("manufacturer", usb.manufacturer), Key("name", usb.name),
               Key("serial", usb.serial));
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

namespace {

/// One of a few words for a value.
template <typename Value, std::size_t kCount>
Value oneOf(const JsonNode& node,
            const std::array<std::pair<std::string_view, Value>, kCount>& words) {
  const auto text = node.text();
  std::string known;
  for (const auto& [word, value] : words) {
    if (word == text) return value;
    known.append(known.empty() ? "" : ", ").append(word);
  }
  node.fail("one of these is expected: " + known);
}

/// What is left out is taken over from the USB identity, as the two mostly agree on real cameras.
DeviceInfo readDeviceInfo(const JsonNode& node, const UsbIdentity& usb) {
  DeviceInfo info;
  info.manufacturer = usb.manufacturer;
  info.model = usb.name;
  info.serial = usb.serial;
  node.readAll({}, Key("vendorExtensionID", info.vendorExtensionID),
               Key("vendorExtensionVersion", info.vendorExtensionVersion),
               Key("vendorExtensionDescription", info.vendorExtensionDescription),
               Key("functionalMode", info.functionalMode), Key("operations", info.operations),
               Key("events", info.events), Key("captureFormats", info.captureFormats),
               Key("imageFormats", info.imageFormats), Key("manufacturer", info.manufacturer),
               Key("model", info.model), Key("version", info.version), Key("serial", info.serial),
               Key("bytesBehind", info.bytesBehind));
  return info;
}

/// Datatype codes of ISO 15740; 128-bit numbers are left out, as no property of these cameras has
/// them.
constexpr std::array<std::pair<std::string_view, std::uint16_t>, 16> kDatatypes = {{
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
    {"AINT16", 0x4003},
    {"AUINT16", 0x4004},
    {"AINT32", 0x4005},
    {"AUINT32", 0x4006},
    {"AUINT64", 0x4008},
    {"STR", 0xFFFF},
}};

/// A value as JSON of the form that `datatype` needs.
nlohmann::json readValue(const JsonNode& node, std::uint16_t datatype) {
  if (datatype == 0xFFFF) return node.text();
  // Negative numbers are JSON integers; texts in hexadecimal form go through number().
  if (datatype < 0x4000) {
    if (node.json().is_number_integer()) return node.json();
    return node.number(std::numeric_limits<std::uint64_t>::max());
  }
  auto list = nlohmann::json::array();
  for (const auto& item : node.items())
    list.push_back(readValue(item, datatype - 0x4000));
  return list;
}

PropertyDescription readProperty(const JsonNode& node) {
  node.allowKeys({"code", "type", "value", "default", "writable", "range", "choices"});
  PropertyDescription property;
  node.at("code").get(property.code);
  property.datatype = oneOf(node.at("type"), kDatatypes);
  const auto value = [&](const JsonNode& item) { return readValue(item, property.datatype); };
  node.read("writable", property.writable);
  property.value = value(node.at("value"));
  const auto otherwise = node.find("default");
  property.defaultValue = otherwise ? value(*otherwise) : property.value;
  node.readList("range", property.range, value);
  if (!property.range.empty() && property.range.size() != 3) {
    node.at("range").fail("minimum, maximum and step are expected");
  }
  node.readList("choices", property.choices, value);
  return property;
}

AddressBookLimits readAddressBook(const JsonNode& node) {
  AddressBookLimits limits;
  node.readAll({}, Key("version", limits.version),
               Key("characterTypeLimitation", limits.characterTypeLimitation),
               Key("maxAddresses", limits.maxAddresses), Key("maxGroups", limits.maxGroups),
               Key("maxAddressesPerGroup", limits.maxAddressesPerGroup),
               Key("maxAddressLengthInBytes", limits.maxAddressLengthInBytes),
               Key("maxNicknameLengthInBytes", limits.maxNicknameLengthInBytes),
               Key("maxGroupNameLengthInBytes", limits.maxGroupNameLengthInBytes));
  return limits;
}

VendorDescription readVendor(const JsonNode& node) {
  VendorDescription vendor;
  node.readAll({"addressBook"}, Key("operations", vendor.operations),
               Key("supportedDatasets", vendor.supportedDatasets),
               Key("displayRequestVersion", vendor.displayRequestVersion),
               Key("bragbookVersion", vendor.bragbookVersion), Key("lcbInfo", vendor.lcbInfo),
               Key("queryRows", vendor.queryRows));
  if (const auto limits = node.find("addressBook")) vendor.addressBook = readAddressBook(*limits);
  return vendor;
}

StoreDescription readStore(const JsonNode& node) {
  static constexpr std::array<std::pair<std::string_view, StoreAccess>, 3> kAccess = {{
      {"readWrite", StoreAccess::kReadWrite},
      {"readOnly", StoreAccess::kReadOnly},
      {"readAndDelete", StoreAccess::kReadAndDelete},
  }};
  StoreDescription store;
  node.readAll({"free", "access", "content"}, Key("id", store.id),
               Key("description", store.description), Key("label", store.label),
               Key("capacity", store.capacity), Key("removable", store.removable),
               Key("vendorDelete", store.vendorDelete), Key("emptySlot", store.isEmptySlot));
  store.free = store.capacity / 2;
  node.read("free", store.free);
  if (const auto access = node.find("access")) store.access = oneOf(*access, kAccess);
  if (const auto list = node.find("content")) {
    store.content = readContent(*list, NameRule::kAnything);
  }
  return store;
}

Habits readHabits(const JsonNode& node) {
  Habits habits;
  node.readAll(
      {}, Key("sessionBeforeDeviceInfo", habits.sessionBeforeDeviceInfo),
      Key("checksTransactionIDs", habits.checksTransactionIDs),
      Key("noClassRequests", habits.noClassRequests),
      Key("allStoresResponse", habits.allStoresResponse),
      Key("formatResponse", habits.formatResponse), Key("ignoresFormat", habits.ignoresFormat),
      Key("needsAllParameters", habits.needsAllParameters),
      Key("choosesNoStore", habits.choosesNoStore),
      Key("listsFolderByFolder", habits.listsFolderByFolder), Key("rootParent", habits.rootParent));
  return habits;
}

CaptureDescription readCapture(const JsonNode& node) {
  CaptureDescription capture;
  node.readAll({}, Key("size", capture.size), Key("prefix", capture.prefix));
  return capture;
}

}  // namespace

void readPTPDescription(const JsonNode& root, DeviceDescription& device) {
  root.allowKeys({"kind", "comment", "usb", "deviceInfo", "habits", "properties", "vendor",
                  "datasets", "capture", "stores", "faults"});
  device.info = readDeviceInfo(root.at("deviceInfo"), device.usb);
  if (const auto habits = root.find("habits")) device.habits = readHabits(*habits);
  root.readList("properties", device.properties, readProperty);
  root.readList("stores", device.stores, readStore);
  if (const auto vendor = root.find("vendor")) device.vendor = readVendor(*vendor);
  if (const auto datasets = root.find("datasets")) device.datasets = readDatasets(*datasets);
  if (const auto capture = root.find("capture")) device.capture = readCapture(*capture);
  if (const auto faults = root.find("faults")) readFaults(*faults, device.faults);
}

namespace {

ScsiDescription readScsi(const JsonNode& node) {
  ScsiDescription scsi;
  if (const auto type = node.find("type")) scsi.type = static_cast<unsigned>(type->number(0x1F));
  node.readAll({"type"}, Key("vendor", scsi.vendor), Key("model", scsi.model),
               Key("revision", scsi.revision));
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
  UsbModeDescription mode;
  node.readAll({"size", "modeDataLength", "pageLength"}, Key("autoPowerCycle", mode.autoPowerCycle),
               Key("variableAutoWakeup", mode.variableAutoWakeup), Key("composite", mode.composite),
               Key("flags", mode.flags), Key("delay", mode.delay));
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
