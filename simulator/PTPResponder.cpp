#include "simulator/PTPResponder.h"

#include <algorithm>

#include "Utilities/PTPCodes.h"
#include "Utilities/Status.h"
#include "simulator/PropertyCodec.h"

namespace tarvo::simulator {
namespace {

constexpr std::uint16_t kPTPVersion = 100;  // 1.00

/// A response without data.
PTPReply refuse(Status code) {
  return {static_cast<std::uint16_t>(code), {}, nullptr};
}

PTPReply data(ByteWriter& writer) {
  return {static_cast<std::uint16_t>(status::kPTPOK),
          {},
          std::make_shared<BytesPayload>(writer.take())};
}

/// A part of another payload.
class PartPayload : public Payload {
 public:
  PartPayload(std::shared_ptr<const Payload> whole, std::uint64_t offset, std::uint64_t size)
      : whole_(std::move(whole)), offset_(offset), size_(size) {}
  std::uint64_t size() const override { return size_; }
  void read(std::uint64_t offset, std::span<std::byte> room) const override {
    whole_->read(offset_ + offset, room);
  }

 private:
  std::shared_ptr<const Payload> whole_;
  std::uint64_t offset_;
  std::uint64_t size_;
};

}  // namespace

PTPResponder::PTPResponder(const DeviceDescription& description)
    : description_(description), objects_(description.stores), table_(standardOperations()) {
  addVendorOperations();
  // A device does what it says that it can do, and nothing else.
  if (!description_.info.operations) return;
  std::erase_if(table_, [&](const auto& entry) {
    const auto& listed = *description_.info.operations;
    return std::find(listed.begin(), listed.end(), entry.first) == listed.end();
  });
}

const PTPResponder::Table& PTPResponder::standardOperations() {
  using enum DataDirection;
  static const Table table = {
      {ptp::kGetDeviceInfo, {kFromDevice, false, &PTPResponder::getDeviceInfo}},
      {ptp::kOpenSession, {kNone, false, &PTPResponder::openSession}},
      {ptp::kCloseSession, {kNone, true, &PTPResponder::closeSession}},
      {ptp::kGetStorageIDs, {kFromDevice, true, &PTPResponder::getStorageIDs}},
      {ptp::kGetStorageInfo, {kFromDevice, true, &PTPResponder::getStorageInfo}},
      {ptp::kGetNumObjects, {kNone, true, &PTPResponder::getNumObjects}},
      {ptp::kGetObjectHandles, {kFromDevice, true, &PTPResponder::getObjectHandles}},
      {ptp::kGetObjectInfo, {kFromDevice, true, &PTPResponder::getObjectInfo}},
      {ptp::kGetObject, {kFromDevice, true, &PTPResponder::getObject}},
      {ptp::kGetPartialObject, {kFromDevice, true, &PTPResponder::getPartialObject}},
      {ptp::kGetThumb, {kFromDevice, true, &PTPResponder::getThumb}},
      {ptp::kGetDevicePropDesc, {kFromDevice, true, &PTPResponder::getDevicePropDesc}},
      {ptp::kGetDevicePropValue, {kFromDevice, true, &PTPResponder::getDevicePropValue}},
      {ptp::kSetDevicePropValue, {kToDevice, true, &PTPResponder::setDevicePropValue}},
  };
  return table;
}

void PTPResponder::addVendorOperations() {
  using enum DataDirection;
  const auto& vendor = description_.vendor;
  if (vendor.supportedDatasets) {
    table_[ptp::XTO_GET_SUPPORTED_DATASETS] = {kFromDevice, true,
                                               &PTPResponder::getSupportedDatasets};
  }
  if (vendor.displayRequestVersion) {
    table_[ptp::XT_GET_DISPLAY_REQUEST_VERSION] = {kNone, true,
                                                   &PTPResponder::getDisplayRequestVersion};
  }
  if (vendor.bragbookVersion) {
    table_[ptp::XTO_GET_BRAGBOOK_VERSION] = {kNone, true, &PTPResponder::getBragbookVersion};
  }
  if (vendor.lcbInfo) {
    table_[ptp::XTO_GET_LCB_INFO] = {kFromDevice, true, &PTPResponder::getLCBInfo};
  }
}

DataDirection PTPResponder::direction(std::uint16_t operation) const {
  const auto found = table_.find(operation);
  return found == table_.end() ? DataDirection::kNone : found->second.direction;
}

PTPReply PTPResponder::execute(const PTPRequest& request) {
  const auto found = table_.find(request.operation);
  if (found == table_.end()) return refuse(status::kPTPOperationNotSupported);
  if (found->second.needsSession && session_ == 0) return refuse(status::kPTPSessionNotOpen);
  return (this->*found->second.run)(request);
}

std::vector<std::uint16_t> PTPResponder::operations() const {
  if (description_.info.operations) return *description_.info.operations;
  std::vector<std::uint16_t> codes;
  for (const auto& [code, operation] : table_)
    codes.push_back(code);
  return codes;
}

PTPReply PTPResponder::getDeviceInfo(const PTPRequest&) {
  const auto& info = description_.info;
  std::vector<std::uint16_t> properties;
  for (const auto& each : description_.properties)
    properties.push_back(each.code);
  ByteWriter writer;
  writer.u16(kPTPVersion);
  writer.u32(info.vendorExtensionID);
  writer.u16(info.vendorExtensionVersion);  // 100 is 1.00
  writer.text(info.vendorExtensionDescription);
  writer.u16(info.functionalMode);
  writer.u16Array(operations());
  writer.u16Array(info.events);
  writer.u16Array(properties);
  writer.u16Array(info.captureFormats);
  writer.u16Array(info.imageFormats);
  writer.text(info.manufacturer);
  writer.text(info.model);
  writer.text(info.version);
  writer.text(info.serial);
  return data(writer);
}

PTPReply PTPResponder::openSession(const PTPRequest& request) {
  // ISO 15740: the response to a second one carries the id of the open session.
  if (session_ != 0) {
    auto reply = refuse(status::kPTPSessionAlreadyOpen);
    reply.parameters = {session_};
    return reply;
  }
  if (request.parameters[0] == 0) return refuse(status::kPTPInvalidParameter);
  session_ = request.parameters[0];
  return {};
}

PTPReply PTPResponder::closeSession(const PTPRequest&) {
  session_ = 0;
  return {};
}

const StoreDescription* PTPResponder::store(std::uint32_t id) const {
  const auto found = std::find_if(description_.stores.begin(), description_.stores.end(),
                                  [&](const auto& each) { return each.id == id; });
  return found == description_.stores.end() ? nullptr : &*found;
}

PTPReply PTPResponder::getStorageIDs(const PTPRequest&) {
  std::vector<std::uint32_t> ids;
  for (const auto& each : description_.stores)
    ids.push_back(each.id);
  ByteWriter writer;
  writer.u32Array(ids);
  return data(writer);
}

PTPReply PTPResponder::getStorageInfo(const PTPRequest& request) {
  const auto* found = store(request.parameters[0]);
  if (found == nullptr) return refuse(status::kPTPInvalidStorageID);
  ByteWriter writer;
  writer.u16(found->removable ? 0x0004 : 0x0003);  // removable or fixed RAM
  writer.u16(0x0003);                              // DCF file system
  writer.u16(0x0000);                              // read and write
  writer.u64(found->capacity);
  writer.u64(found->free);
  writer.u32(0xFFFFFFFF);  // the number of images that fit is not told
  writer.text(found->description);
  writer.text(found->label);
  return data(writer);
}

std::uint16_t PTPResponder::filterFor(const PTPRequest& request, ObjectFilter& filter) const {
  filter.storage = request.parameters[0];
  filter.format = static_cast<std::uint16_t>(request.parameters[1]);
  filter.association = request.parameters[2];
  if (filter.storage != ptp::kAllStores && store(filter.storage) == nullptr) {
    return static_cast<std::uint16_t>(status::kPTPInvalidStorageID);
  }
  if (filter.association != 0 && filter.association != 0xFFFFFFFF) {
    const auto parent = objects_.object(filter.association);
    if (!parent || !parent->isFolder()) {
      return static_cast<std::uint16_t>(status::kPTPInvalidParentObject);
    }
  }
  return static_cast<std::uint16_t>(status::kPTPOK);
}

PTPReply PTPResponder::getNumObjects(const PTPRequest& request) {
  ObjectFilter filter;
  PTPReply reply;
  reply.code = filterFor(request, filter);
  if (reply.code == status::kPTPOK) reply.parameters = {objects_.count(filter)};
  return reply;
}

PTPReply PTPResponder::getObjectHandles(const PTPRequest& request) {
  ObjectFilter filter;
  const auto code = filterFor(request, filter);
  if (code != status::kPTPOK) return refuse(code);
  ByteWriter writer;
  writer.u32Array(objects_.handles(filter));
  return data(writer);
}

PTPReply PTPResponder::getObjectInfo(const PTPRequest& request) {
  const auto object = objects_.object(request.parameters[0]);
  if (!object) return refuse(status::kPTPInvalidObjectHandle);
  const bool image = object->format >= 0x3800 && object->format < 0x4000;
  ByteWriter writer;
  writer.u32(object->storage);
  writer.u16(object->format);
  writer.u16(0);  // not protected
  writer.u32(object->size);
  writer.u16(0);  // no thumbnail
  for (int i = 0; i < 3; ++i)
    writer.u32(0);
  writer.u32(image ? 4000 : 0);
  writer.u32(image ? 3000 : 0);
  writer.u32(image ? 24 : 0);
  writer.u32(object->parent);
  writer.u16(object->isFolder() ? 1 : 0);  // generic folder
  writer.u32(0);
  writer.u32(0);
  writer.text(object->name);
  writer.text("20240615T120000");
  writer.text("20240615T120000");
  writer.text("");
  return data(writer);
}

PTPReply PTPResponder::getObject(const PTPRequest& request) {
  const auto object = objects_.object(request.parameters[0]);
  if (!object || object->isFolder()) return refuse(status::kPTPInvalidObjectHandle);
  PTPReply reply;
  reply.data = ObjectStore::content(*object);
  return reply;
}

PTPReply PTPResponder::getPartialObject(const PTPRequest& request) {
  const auto object = objects_.object(request.parameters[0]);
  if (!object || object->isFolder()) return refuse(status::kPTPInvalidObjectHandle);
  const auto offset = request.parameters[1];
  if (offset > object->size) return refuse(status::kPTPInvalidParameter);
  const auto size = std::min(request.parameters[2], object->size - offset);
  PTPReply reply;
  reply.parameters = {size};
  reply.data = std::make_shared<PartPayload>(ObjectStore::content(*object), offset, size);
  return reply;
}

PTPReply PTPResponder::getThumb(const PTPRequest& request) {
  if (!objects_.object(request.parameters[0])) return refuse(status::kPTPInvalidObjectHandle);
  return refuse(status::kPTPNoThumbnailPresent);
}

PropertyDescription* PTPResponder::property(std::uint32_t code) {
  auto& properties = description_.properties;
  const auto found = std::find_if(properties.begin(), properties.end(),
                                  [&](const auto& each) { return each.code == code; });
  return found == properties.end() ? nullptr : &*found;
}

PTPReply PTPResponder::getDevicePropDesc(const PTPRequest& request) {
  const auto* found = property(request.parameters[0]);
  if (found == nullptr) return refuse(status::kPTPDevicePropNotSupported);
  ByteWriter writer;
  writePropertyDescription(writer, *found);
  return data(writer);
}

PTPReply PTPResponder::getDevicePropValue(const PTPRequest& request) {
  const auto* found = property(request.parameters[0]);
  if (found == nullptr) return refuse(status::kPTPDevicePropNotSupported);
  ByteWriter writer;
  writePropertyValue(writer, found->datatype, found->value);
  return data(writer);
}

PTPReply PTPResponder::setDevicePropValue(const PTPRequest& request) {
  auto* found = property(request.parameters[0]);
  if (found == nullptr) return refuse(status::kPTPDevicePropNotSupported);
  if (!found->writable) return refuse(status::kPTPAccessDenied);
  auto value = readPropertyValue(request.data, found->datatype);
  if (value.is_null()) return refuse(status::kPTPInvalidParameter);
  found->value = std::move(value);
  return {};
}

PTPReply PTPResponder::getSupportedDatasets(const PTPRequest&) {
  ByteWriter writer;
  writer.u16Array(*description_.vendor.supportedDatasets);
  return data(writer);
}

PTPReply PTPResponder::getDisplayRequestVersion(const PTPRequest&) {
  PTPReply reply;
  reply.parameters = {*description_.vendor.displayRequestVersion};
  return reply;
}

PTPReply PTPResponder::getBragbookVersion(const PTPRequest&) {
  PTPReply reply;
  reply.parameters = {*description_.vendor.bragbookVersion};
  return reply;
}

PTPReply PTPResponder::getLCBInfo(const PTPRequest&) {
  ByteWriter writer;
  for (const auto byte : *description_.vendor.lcbInfo)
    writer.u8(byte);
  return data(writer);
}

}  // namespace tarvo::simulator
