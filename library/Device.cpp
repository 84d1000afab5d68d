#include "tarvo/Device.h"

#include <algorithm>
#include <ostream>
#include <utility>

#include "NativeServices/PictureDevice/datasets/JSONValues.h"
#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/XTMutablePTPDataSet.h"
#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "NativeServices/PictureDevice/operations/ObjectListing.h"
#include "Utilities/Exception.h"
#include "Utilities/Format.h"
#include "Utilities/JSONReader.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/Numbers.h"
#include "Utilities/PTPCodes.h"
#include "Utilities/Printable.h"
#include "library/Records.h"
#include "library/access/DeviceState.h"
#include "platform/files/FilePlace.h"

namespace tarvo {

using namespace library;

struct DeviceFacts::Data {
  std::string name, manufacturer, model, version, serial;
  CodeList operations, properties, imageFormats;
  std::vector<std::pair<std::string, bool>> capabilities;
};

const std::string& DeviceFacts::name() const { return data_->name; }
const std::string& DeviceFacts::manufacturer() const { return data_->manufacturer; }
const std::string& DeviceFacts::model() const { return data_->model; }
const std::string& DeviceFacts::version() const { return data_->version; }
const std::string& DeviceFacts::serial() const { return data_->serial; }
const std::vector<std::uint16_t>& DeviceFacts::operations() const& { return data_->operations; }
std::vector<std::uint16_t> DeviceFacts::operations() && { return data_->operations; }
const std::vector<std::uint16_t>& DeviceFacts::properties() const& { return data_->properties; }
std::vector<std::uint16_t> DeviceFacts::properties() && { return data_->properties; }
const std::vector<std::uint16_t>& DeviceFacts::imageFormats() const& { return data_->imageFormats; }
std::vector<std::uint16_t> DeviceFacts::imageFormats() && { return data_->imageFormats; }
const std::vector<std::pair<std::string, bool>>& DeviceFacts::capabilities() const& {
  return data_->capabilities;
}
std::vector<std::pair<std::string, bool>> DeviceFacts::capabilities() && {
  return data_->capabilities;
}
bool DeviceFacts::can(std::string_view capability) const {
  return std::ranges::any_of(data_->capabilities, [&](const auto& each) {
    return each.first == capability && each.second;
  });
}

std::ostream& operator<<(std::ostream& out, const DeviceFacts& facts) {
  return out << printable(facts.name()) << ", " << printable(facts.manufacturer()) << ' '
             << printable(facts.model()) << ", serial number " << printable(facts.serial());
}

struct StoreInfo::Data {
  std::uint32_t id = 0;
  bool isEmpty = false;
  PTPStorageInfo info;  ///< of zeros where the slot is empty
};

std::uint32_t StoreInfo::id() const { return data_->id; }
bool StoreInfo::isEmpty() const { return data_->isEmpty; }
std::uint16_t StoreInfo::type() const { return data_->info.storageType; }
std::uint16_t StoreInfo::fileSystem() const { return data_->info.fileSymType; }
std::uint16_t StoreInfo::access() const { return data_->info.accessCapability; }
std::uint64_t StoreInfo::capacity() const { return data_->info.maxCapacity; }
std::uint64_t StoreInfo::freeBytes() const { return data_->info.freeSpaceInBytes; }
std::uint32_t StoreInfo::freePictures() const { return data_->info.freeSpaceInImages; }
std::string StoreInfo::label() const { return data_->info.label; }

const PTPStorageInfo& library::recordOf(const StoreInfo& store) { return store.data().info; }

std::ostream& operator<<(std::ostream& out, const StoreInfo& store) {
  return out << "store " << handleText(store.id()) << ", " << store.freeBytes() << " of "
             << store.capacity() << " bytes free";
}

struct PropertyInfo::Data : PTPPropertyDescription {};

const PTPPropertyDescription& library::recordOf(const PropertyInfo& property) {
  return property.data();
}

namespace {

std::string codeText(std::uint16_t code) { return formatted("0x%04x", unsigned{code}); }

std::string valueText(const PropertyDictionary& value) {
  return value.is_string() ? value.get<std::string>() : textOf(value);
}

}  // namespace

std::uint16_t PropertyInfo::code() const { return data_->code; }
std::uint16_t PropertyInfo::type() const { return data_->datatype; }
bool PropertyInfo::isWritable() const { return data_->isWritable; }
std::string PropertyInfo::value() const { return valueText(data_->current); }
std::string PropertyInfo::factoryDefault() const { return valueText(data_->factoryDefault); }
bool PropertyInfo::isRange() const { return data_->form == PTPPropertyDescription::Form::kRange; }
std::vector<std::string> PropertyInfo::allowed() const {
  std::vector<std::string> texts;
  for (const auto& value : data_->formValues)
    texts.push_back(valueText(value));
  return texts;
}

std::ostream& operator<<(std::ostream& out, const PropertyInfo& property) {
  return out << codeText(property.code()) << " = " << printable(property.value());
}

struct DeviceEvent::Data {
  bool isGone = false;
  std::uint16_t code = 0;
  std::uint32_t transaction = 0;
  std::vector<std::uint32_t> parameters{};
};

bool DeviceEvent::isGone() const { return data_->isGone; }
std::uint16_t DeviceEvent::code() const { return data_->code; }
std::uint32_t DeviceEvent::transaction() const { return data_->transaction; }
const std::vector<std::uint32_t>& DeviceEvent::parameters() const& { return data_->parameters; }
std::vector<std::uint32_t> DeviceEvent::parameters() && { return data_->parameters; }

std::ostream& operator<<(std::ostream& out, const DeviceEvent& event) {
  out << codeText(event.code());
  for (const std::uint32_t parameter : event.parameters())
    out << ' ' << handleText(parameter);
  return out;
}

const DeviceInfo& Device::info() const { return state_->info(); }

DeviceFacts Device::facts() const {
  return asked(state_, "facts", [](OpenedDevice& camera) {
    const auto& device = camera.device();
    const auto facts = camera.transactions().facts();
    const auto& can = facts.capabilities;
    return valueOf<DeviceFacts>({.name = device.name(),
                                 .manufacturer = device.manufacturer(),
                                 .model = device.model(),
                                 .version = device.deviceVersion(),
                                 .serial = device.serialNumber(),
                                 .operations = facts.operations,
                                 .properties = facts.properties,
                                 .imageFormats = facts.imageFormats,
                                 .capabilities = {{"acceptsFiles", can.deviceAcceptsFiles},
                                                  {"addressBooks", can.deviceSupportsAddressBooks},
                                                  {"albumNames", can.deviceSupportsAlbumNames},
                                                  {"capture", can.deviceSupportsCapture},
                                                  {"display", can.deviceSupportsCameraBackDisplay},
                                                  {"favourites", can.deviceSupportsBragbooks}}});
  });
}

std::vector<std::byte> Device::deviceInfo() {
  return asked(state_, "deviceInfo", [](OpenedDevice& camera) {
    const auto record = camera.device().deviceInfoDataset();
    if (!record) camera.failWithout(camera.info().description());
    const auto room = record->data();
    const auto bytes = room.first(std::min<std::size_t>(room.size(), record->pb().dataSize));
    return std::vector<std::byte>(bytes.begin(), bytes.end());
  });
}

std::optional<std::uint32_t> Device::count(std::uint32_t store) { return count(store, 0); }

std::optional<std::uint32_t> Device::count(std::uint32_t store, std::uint16_t format) {
  return asked(state_, "count", [&](OpenedDevice& camera) {
    const auto count =
        camera.transactions().numberOfObjectsOnStore(store == 0 ? ptp::kAllStores : store, format);
    return count < 0 ? std::nullopt : std::optional(static_cast<std::uint32_t>(count));
  });
}

void Device::remove(const ObjectInfo& object) {
  called(state_, "remove", [&](DeviceState& device) {
    if (device.isCamera()) {
      const std::string what = object.path() + " (" + handleText(object.handle()) + ")";
      const Status status = device.camera().device().deleteObject(ObjectReference(object.handle()));
      if (!isGood(status)) raise(device.camera().failure(what, status));
      return;
    }
    if (object.isFolder())
      raise({.object = object.path(), .status = status::kNotAFile, .why = "it is a folder"});
    const int error = device.volume().removeFile(object.path());
    if (error != 0)
      raise({.object = object.path(),
             .status = error == ENOENT ? status::kFileNotFound : status::kWriteNotPermitted,
             .why = errorText(error)});
  });
}

void Device::rename(std::uint32_t handle, const std::string& name) {
  asked(state_, "rename", [&](OpenedDevice& camera) {
    if (name.empty() || utf16Length(name) > kMostStringUnits)
      raise({.object = handleText(handle),
             .status = status::kBadParameter,
             .why = "a name has 1 to 254 characters",
             .advice = "Choose another name."});
    // For devices that know an object only once its folder was listed.
    ObjectListing(camera.transactions()).find(handle);
    camera.require(camera.device().renamePTPObject(handle, name), handleText(handle));
  });
}

namespace {

PropertyInfo describe(OpenedDevice& camera, std::uint16_t code) {
  try {
    if (auto dataSet = camera.transactions().propertyDataSet(code))
      return valueOf<PropertyInfo>({scanPropertyDescription(*dataSet)});
  } catch (const Exception& exception) {
    // What a device got wrong is the setting's failure.
    raise(camera.failure(codeText(code), status::kICAProtocolError, exception.reason()));
  }
  camera.session().endIfInterrupted();
  const bool isListed = containsCode(camera.transactions().facts().properties, code);
  raise(camera.failure(codeText(code), isListed ? camera.transactions().lastOutcome()
                                                : status::kPTPDevicePropNotSupported));
}

/// The JSON value that is meant. What is no JSON is a text.
PropertyDictionary valueFrom(const std::string& text, std::uint16_t datatype) {
  if (datatype == kPTPString || datatype == kPTPInt128 || datatype == kPTPUInt128) return text;
  if (datatype < kPTPArrayOfInt8) {
    // Codes are written in hexadecimal, which JSON does not have.
    if (const auto number = numberOf(text, UINT64_MAX)) return *number;
  }
  try {
    return jsonFromText(text);
  } catch (const Exception&) {
    return text;
  }
}

XTMutablePTPDataSet encodedValue(std::uint16_t code, std::uint16_t datatype,
                                 const std::string& text) {
  const auto refuseValue = [&](const std::string& why) {
    raise({.object = codeText(code),
           .status = status::kBadParameter,
           .why = "'" + text + "' does not fit: " + why});
  };
  // A longer text would wrap its count.
  if (datatype == kPTPString && utf16Length(text) > kMostStringUnits)
    refuseValue("it has 255 characters or more");
  auto dataSet = XTMutablePTPDataSet::dataSetWithByteOrder(kPTPByteOrder);
  try {
    storePropertyValue(dataSet, datatype, valueFrom(text, datatype));
  } catch (const Exception& exception) {
    refuseValue(exception.reason());
  }
  return dataSet;
}

}  // namespace

std::vector<PropertyInfo> Device::properties(
    const std::function<void(std::uint16_t code, const Error& error)>& unreadable) {
  return asked(state_, "properties", [&](OpenedDevice& camera) {
    std::vector<PropertyInfo> properties;
    const CodeList codes = camera.transactions().facts().properties;
    for (const std::uint16_t code : codes) {
      try {
        properties.push_back(describe(camera, code));
      } catch (const Error& error) {
        if (!unreadable || error.kind() == ErrorKind::kCancelled) throw;
        unreadable(code, error);
        if (error.endsDevice()) break;
      }
    }
    return properties;
  });
}

PropertyInfo Device::property(std::uint16_t code) {
  return asked(state_, "property", [&](OpenedDevice& camera) { return describe(camera, code); });
}

void Device::setProperty(std::uint16_t code, const std::string& value) {
  asked(state_, "setProperty", [&](OpenedDevice& camera) {
    const auto info = describe(camera, code);
    if (!info.isWritable()) raise(camera.failure(codeText(code), status::kWriteNotPermitted));
    const auto encoded = encodedValue(code, info.type(), value);
    camera.require(camera.transactions().setProperty(code, encoded.bytes()), codeText(code));
  });
}

std::optional<std::string> Device::clock() {
  return asked(state_, "clock", [](OpenedDevice& camera) {
    const bool has = containsCode(camera.transactions().facts().properties, ptp::kDateTime);
    return has ? camera.device().stringProperty(ptp::kDateTime) : std::nullopt;
  });
}

void Device::setClock() {
  asked(state_, "setClock", [](OpenedDevice& camera) {
    camera.require(camera.device().setDateTime(), camera.info().description());
  });
}

std::uint8_t Device::batteryLevel() {
  return asked(state_, "batteryLevel",
               [](OpenedDevice& camera) { return camera.device().batteryLevel(); });
}

std::vector<std::uint32_t> Device::storeIDs() {
  return asked(state_, "storeIDs", [](OpenedDevice& camera) {
    auto stores = camera.transactions().storageIDs();
    if (!stores) camera.failWithout("the stores");
    return *std::move(stores);
  });
}

StoreInfo Device::store(std::uint32_t id) {
  return asked(state_, "store", [&](OpenedDevice& camera) {
    const auto info = camera.transactions().storageInfo(id);
    if (!info) {
      camera.session().endIfInterrupted();
      const Status status = camera.explained(camera.transactions().lastOutcome());
      const bool isSlot = status == status::kPTPStoreNotAvailable || !ptp::hasLogicalStore(id);
      if (!isSlot) raise(camera.failure(handleText(id), status));
    }
    return valueOf<StoreInfo>({id, !info, info ? *info : PTPStorageInfo()});
  });
}

void Device::formatStore(std::uint32_t id) {
  asked(state_, "formatStore", [&](OpenedDevice& camera) {
    camera.require(camera.device().formatStore(id), "store " + handleText(id));
  });
}

void Device::reset() {
  asked(state_, "reset", [](OpenedDevice& camera) {
    camera.require(camera.transactions().sendDeviceReset(), camera.info().description());
  });
}

namespace {

/// What onEvent() stands for.
class EventWatch {
 public:
  using Told = std::function<void(const DeviceEvent&)>;

  EventWatch(std::shared_ptr<DeviceState> device, Told told)
      : device_(std::move(device)), told_(std::move(told)) {
    // Listened to first: an event that comes meanwhile is not lost.
    (void)listen(ica::kDeviceRemoved, [this](const ICAEvent&) { tell({.isGone = true}); });
    auto& camera = device_->camera();
    camera.require(
        listen(ica::kExtended, [this](const ICAEvent& event) { tell(dataOf(event.dictionary)); }),
        camera.info().description());
  }
  ~EventWatch() {
    if (device_->session()->isOver()) return;
    (void)listen(ica::kExtended, {});
    (void)listen(ica::kDeviceRemoved, {});
  }
  EventWatch(const EventWatch&) = delete;
  EventWatch& operator=(const EventWatch&) = delete;

 private:
  Status listen(FourCharCode type, ImageCapture::EventCallback callback) {
    return device_->session()->platform().services().imageCapture.registerForEventNotification(
        device_->info().id(), type, std::move(callback));
  }

  static DeviceEvent::Data dataOf(const PropertyDictionary& event) {
    DeviceEvent::Data data;
    data.code = static_cast<std::uint16_t>(int32ForKey(event, "code").value_or(0));
    data.transaction = event.value("transaction", data.transaction);
    const auto* parameters = arrayForKey(event, "params");
    for (const auto& each : parameters ? *parameters : PropertyDictionary::array())
      if (each.is_number_integer()) data.parameters.push_back(each.get<std::uint32_t>());
    return data;
  }

  void tell(DeviceEvent::Data data) {
    // What is called may let go of the subscription, which holds the device.
    device_->session()->tell([kept = device_, told = told_,
                              event = valueOf<DeviceEvent>(std::move(data))] { told(event); });
  }

  std::shared_ptr<DeviceState> device_;
  Told told_;
};

}  // namespace

Subscription Device::onEvent(std::function<void(const DeviceEvent& event)> told) {
  return called(state_, "onEvent", [&](DeviceState&) {
    return Subscription(std::make_shared<EventWatch>(state_, std::move(told)));
  });
}

}  // namespace tarvo
