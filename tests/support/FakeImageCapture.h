// Image Capture in memory: devices with property dictionaries, scripted PTP answers, and events
// that the test fires.
//
//   FakeImageCapture ica;
//   auto& camera = ica.addPTPCamera({.model = "Tarvo Lumo 500"});     // there, not announced
//   camera.answers[0x9009] = {.parameters = {3}};
//   ica.announce(camera.object);                                      // device added
//   ica.unplug(camera.object);                                        // gone, device removed
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "Utilities/PTPCodes.h"
#include "platform/imagecapture/ImageCapture.h"

namespace tarvo::test {

/// Little-endian bytes of a PTP data set, written down in order.
class PTPBytes {
 public:
  PTPBytes& u8(unsigned value) {
    bytes_.push_back(static_cast<std::uint8_t>(value));
    return *this;
  }
  PTPBytes& u16(unsigned value) { return u8(value).u8(value >> 8); }
  PTPBytes& u32(std::uint32_t value) { return u16(value & 0xFFFF).u16(value >> 16); }
  PTPBytes& codes(const std::vector<std::uint16_t>& values) {
    u32(static_cast<std::uint32_t>(values.size()));
    for (const auto value : values)
      u16(value);
    return *this;
  }
  /// ASCII only.
  PTPBytes& text(const std::string& value) {
    if (value.empty()) return u8(0);
    u8(static_cast<unsigned>(value.size() + 1));
    for (const char character : value)
      u16(static_cast<unsigned char>(character));
    return u16(0);
  }
  operator std::vector<std::uint8_t>() const { return bytes_; }  // NOLINT: that is its purpose

 private:
  std::vector<std::uint8_t> bytes_;
};

/// How one PTP operation is answered.
struct PTPAnswer {
  std::uint16_t responseCode = 0x2001;
  std::vector<std::uint8_t> data{};
  std::vector<std::uint32_t> parameters{};
  Status status = 0;      ///< of the service; no response arrives when it is not 0
  bool vanishes = false;  ///< the device is unplugged in the middle of it
};

/// A PTP camera in the words of its DeviceInfo; the defaults are a camera of the maker.
struct PTPCameraDescription {
  std::string model = "Tarvo Lumo 500";
  std::string manufacturer = "Tarvo Imaging";
  std::string serialNumber = "SN0001";
  std::string name{};  ///< "ifil"; the model when empty
  std::uint32_t vendorExtensionID = 0x00005452;
  std::uint32_t idVendor = 0xF055;
  std::uint32_t idProduct = 0x0302;
  std::uint32_t locationID = 0x01420000;
  std::vector<std::uint16_t> operations = {0x1001, 0x1002, 0x1003, 0x1014};
  std::vector<std::uint16_t> properties{};
  std::vector<std::uint16_t> imageFormats = {0x3801};

  std::vector<std::uint8_t> deviceInfo() const {
    PTPBytes info;
    info.u16(100).u32(vendorExtensionID).u16(100).text("maker").u16(0);
    info.codes(operations).codes({0x4004}).codes(properties).codes({0x3801}).codes(imageFormats);
    return info.text(manufacturer).text(model).text("1.02").text(serialNumber);
  }
};

class FakeImageCapture : public ImageCapture {
 public:
  struct Device {
    ICAObject object = 0;
    ICAObjectInfo info{ica::kDevice, ica::kCamera};
    PropertyDictionary properties = PropertyDictionary::object();
    std::map<std::uint16_t, PTPAnswer> answers;  ///< by operation code
    /// Where there is one it answers GetNumObjects by what it is given: the format.
    std::function<std::uint32_t(std::uint32_t format)> counts;
    Status dictionaryStatus = 0;  ///< of copying the property dictionary
    Status scopeStatus = 0;       ///< of opening a scope
    std::string scopeWhy;         ///< in words
    bool listed = true;           ///< in the device list
    int scopesOpened = 0;
    int openScopes = 0;
    std::vector<std::uint16_t> operations;  ///< sent, in order
    std::vector<PTPPassThroughPB> records;  ///< of each of them, as they were sent
    /// Payloads that came with them, of those that had one.
    std::vector<std::vector<std::uint8_t>> payloads;
    int forgotten = 0;  ///< calls of forgetContents
  };

  // What the test sets up and fires.

  Device& addDevice(PropertyDictionary properties) {
    auto device = std::make_unique<Device>();
    device->object = nextObject_++;
    device->properties = std::move(properties);
    devices_.push_back(std::move(device));
    return *devices_.back();
  }

  Device& addPTPCamera(const PTPCameraDescription& camera = {}) {
    auto& device = addDevice({{"ifil", camera.name.empty() ? camera.model : camera.name},
                              {"device module", "/System/Image Capture/Devices/PTPCamera.app"},
                              {"idVendor", camera.idVendor},
                              {"idProduct", camera.idProduct},
                              {"locationID", camera.locationID}});
    device.answers[ptp::kGetDeviceInfo] = {.data = camera.deviceInfo()};
    return device;
  }

  /// A mounted volume; `module` without its path.
  Device& addVolume(const std::string& volume, const std::string& bsdName,
                    const std::string& module = "MassStorageCamera.app") {
    auto& device = addDevice({{"ifil", volume},
                              {"device module", "/System/Image Capture/Devices/" + module},
                              {"volume", volume}});
    if (!bsdName.empty()) device.properties["bsdName"] = bsdName;
    return device;
  }

  Device* find(ICAObject object) {
    const auto found = std::ranges::find(devices_, object, &Device::object);
    return found == devices_.end() ? nullptr : found->get();
  }

  /// Fires an event as Image Capture would: to who registered for the object, then to who
  /// registered for any.
  void fire(ICAObject object, FourCharCode type) {
    const ICAEvent event{object, type, eventDictionary(object)};
    for (const ICAObject target : {object, ICAObject{0}}) {
      const auto found = callbacks_.find({target, type});
      if (found == callbacks_.end()) continue;
      const auto callback = found->second;
      callback(event);
    }
  }
  /// Fires what a device reports by itself.
  void report(ICAObject object, PropertyDictionary dictionary) {
    const auto found = callbacks_.find({object, ica::kExtended});
    if (found != callbacks_.end()) found->second({object, ica::kExtended, std::move(dictionary)});
  }
  void announce(ICAObject object) { fire(object, ica::kDeviceAdded); }
  /// Takes the device away without telling anybody.
  void vanish(ICAObject object) {
    std::erase_if(devices_, [&](const auto& device) { return device->object == object; });
  }
  /// Takes the device away and fires its removal; its registrations end with it.
  void unplug(ICAObject object) {
    vanish(object);
    fire(object, ica::kDeviceRemoved);
    std::erase_if(callbacks_, [&](const auto& entry) { return entry.first.first == object; });
  }

  bool isRegistered(ICAObject object, FourCharCode type) const {
    return callbacks_.contains({object, type});
  }

  Status deviceListStatus = 0;
  Status childCountStatus = 0;
  Status childCountHeaderErr = 0;
  std::map<std::uint32_t, Status> nthChildStatus;     ///< by index
  std::map<FourCharCode, Status> registrationStatus;  ///< by event type
  int registrations = 0;
  /// Messages other than "pass", to whatever object, in order; and how they all end.
  std::vector<std::pair<ICAObject, FourCharCode>> messages;
  Status messageStatus = 0;
  std::map<ICAObject, std::pair<std::string, std::string>> files;  ///< name and content

  // ImageCapture

  Status getDeviceList(ICAObject& list) override {
    list = kDeviceListObject;
    return deviceListStatus;
  }
  Status getObjectInfo(ICAObject object, ICAObjectInfo& info) override {
    if (object == kDeviceListObject) {
      info = {ica::kObjectList, ica::kDevice};
      return 0;
    }
    const auto* device = find(object);
    if (!device) return status::kICAInvalidObject;
    info = device->info;
    return 0;
  }
  Status getChildCount(ICAObject, std::uint32_t& count, Status& headerErr) override {
    count = static_cast<std::uint32_t>(listedDevices().size());
    headerErr = childCountHeaderErr;
    return childCountStatus;
  }
  Status getNthChild(ICAObject, std::uint32_t index, ICAChildInfo& child) override {
    if (const auto found = nthChildStatus.find(index); found != nthChildStatus.end())
      return found->second;
    const auto listed = listedDevices();
    if (index >= listed.size()) return status::kICAInvalidObject;
    child = {listed[index]->object, listed[index]->info};
    return 0;
  }
  Status copyObjectPropertyDictionary(ICAObject object, PropertyDictionary& dictionary) override {
    const auto* device = find(object);
    if (!device) return status::kICAInvalidObject;
    if (device->dictionaryStatus == 0) dictionary = device->properties;
    return device->dictionaryStatus;
  }
  Status copyObjectProperty(ICAObject object, std::string_view key,
                            PropertyDictionary& value) override {
    PropertyDictionary dictionary;
    const Status result = copyObjectPropertyDictionary(object, dictionary);
    if (result != 0) return result;
    if (!dictionary.contains(key)) return status::kICAPropertyNotFound;
    value = dictionary[key];
    return 0;
  }
  void forgetContents(ICAObject object) override {
    if (auto* device = find(object)) ++device->forgotten;
  }
  Status registerForEventNotification(ICAObject object, FourCharCode type,
                                      EventCallback callback) override {
    if (const auto found = registrationStatus.find(type); found != registrationStatus.end())
      return found->second;
    if (object != 0 && !find(object)) return status::kICAInvalidObject;
    ++registrations;
    callbacks_[{object, type}] = std::move(callback);
    if (!callbacks_[{object, type}]) callbacks_.erase({object, type});
    return 0;
  }

  Status objectSendMessage(ICAObjectSendMessagePB& block) override {
    auto* device = find(block.object);
    if (block.messageType != ica::kMessagePass) {
      messages.emplace_back(block.object, block.messageType);
      return block.headerErr = messageStatus;
    }
    if (!device) return block.headerErr = status::kICAInvalidObject;
    return block.headerErr = transact(*device, *block.data);
  }

  Status getPropertyByType(ICAObject, FourCharCode, ICAPropertyInfo&) override {
    return status::kICAPropertyNotFound;
  }
  Status getPropertyData(ICAObject, FourCharCode, std::string&) override {
    return status::kICAPropertyNotFound;
  }
  Status downloadFile(ICAObject object, const std::string& folder, std::string& path) override {
    const auto found = files.find(object);
    if (found == files.end()) return status::kICAInvalidObject;
    path = folder + "/" + found->second.first;
    std::ofstream(path) << found->second.second;
    return status::kOK;
  }

  std::unique_ptr<ICAScope> openScope(ICAObject object, Status* failure,
                                      std::string* why) override {
    auto* device = find(object);
    const Status status = device ? device->scopeStatus : status::kICAInvalidObject;
    if (failure) *failure = status;
    if (status != 0) {
      if (why && device) *why = device->scopeWhy;
      return nullptr;
    }
    ++device->scopesOpened;
    ++device->openScopes;
    return std::make_unique<Scope>(*this, object);
  }

 private:
  static constexpr ICAObject kDeviceListObject = 1;

  struct Scope : ICAScope {
    Scope(FakeImageCapture& service, ICAObject device) : ica(service), object(device) {}
    ~Scope() override {
      if (auto* device = ica.find(object)) --device->openScopes;
    }
    FakeImageCapture& ica;
    ICAObject object;
  };

  std::vector<Device*> listedDevices() const {
    std::vector<Device*> listed;
    for (const auto& device : devices_)
      if (device->listed) listed.push_back(device.get());
    return listed;
  }

  PropertyDictionary eventDictionary(ICAObject object) {
    auto dictionary = PropertyDictionary::object();
    const auto* device = find(object);
    if (device && device->properties.contains("ifil"))
      dictionary["ifil"] = device->properties["ifil"];
    return dictionary;
  }

  Status transact(Device& device, PTPPassThroughRecord& record) {
    auto& pb = record.pb();
    const auto code = static_cast<std::uint16_t>(pb.commandCode);
    device.operations.push_back(code);
    device.records.push_back(pb);
    if (record.source())
      device.records.back().dataSize = static_cast<std::uint32_t>(record.source()->size());
    const auto found = device.answers.find(code);
    PTPAnswer answer =
        found == device.answers.end() ? PTPAnswer{.responseCode = 0x2005} : found->second;
    if (device.counts && code == ptp::kGetNumObjects)
      answer = {.parameters = {device.counts(pb.params[1])}};
    if (answer.vanishes) {
      vanish(device.object);
      return status::kICADeviceGone;
    }
    if (answer.status != 0) return answer.status;
    if (pb.dataUsageMode == kDataFromDevice) receive(record, answer.data);
    if (pb.dataUsageMode == kDataToDevice) device.payloads.push_back(payloadOf(record));
    std::copy_n(answer.parameters.begin(), std::min<std::size_t>(answer.parameters.size(), 4),
                pb.params);
    pb.resultCode = answer.responseCode;
    return 0;
  }

  /// Into the record's sink, or its data area; what does not fit is dropped.
  static void receive(PTPPassThroughRecord& record, const std::vector<std::uint8_t>& data) {
    ptp::MemorySink area(record.data().first(record.sink() ? 0 : record.pb().dataSize));
    ptp::DataSink& sink = record.sink() ? *record.sink() : area;
    std::size_t taken = 0;
    while (taken < data.size()) {
      const auto room = sink.room(taken, data.size() - taken);
      if (room.empty()) break;
      std::memcpy(room.data(), data.data() + taken, room.size());
      taken += room.size();
      if (!sink.received(taken - room.size(), room.size())) break;
    }
    record.pb().dataSize = static_cast<std::uint32_t>(taken);
  }

  /// From the record's source, or its data area.
  static std::vector<std::uint8_t> payloadOf(PTPPassThroughRecord& record) {
    ptp::MemorySource area(record.data().first(record.source() ? 0 : record.pb().dataSize));
    ptp::DataSource& source = record.source() ? *record.source() : area;
    std::vector<std::uint8_t> payload;
    while (payload.size() < source.size()) {
      const auto bytes = source.bytes(payload.size(), source.size() - payload.size());
      if (bytes.empty()) break;
      for (const std::byte each : bytes)
        payload.push_back(std::to_integer<std::uint8_t>(each));
    }
    return payload;
  }

  ICAObject nextObject_ = 0x100;
  std::vector<std::unique_ptr<Device>> devices_;
  std::map<std::pair<ICAObject, FourCharCode>, EventCallback> callbacks_;
};

}  // namespace tarvo::test
