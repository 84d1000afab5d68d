#include "simulator/ptp/PropertyOperations.h"

#include <algorithm>
#include <string>

#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"

namespace tarvo::simulator {
namespace {

constexpr std::uint32_t kEveryProperty = 0xFFFFFFFF;

/// Whether the property's form lets it have the value.
bool allows(const PropertyDescription& property, const nlohmann::json& value) {
  const auto& choices = property.choices;
  if (!property.range.empty()) return value >= property.range[0] && value <= property.range[1];
  return choices.empty() || std::find(choices.begin(), choices.end(), value) != choices.end();
}

}  // namespace

void PropertyOperations::addTo(OperationTable& table) {
  using enum DataDirection;
  using Self = PropertyOperations;
  table[ptp::kGetDevicePropDesc] = {kFromDevice, 1, 1, calling(this, &Self::getDescription)};
  table[ptp::kGetDevicePropValue] = {kFromDevice, 1, 1, calling(this, &Self::getValue)};
  table[ptp::kSetDevicePropValue] = {kToDevice, 1, 1, calling(this, &Self::setValue)};
  table[ptp::kResetDevicePropValue] = {kNone, 1, 1, calling(this, &Self::resetValue)};
}

PropertyDescription* PropertyOperations::property(std::uint32_t code) {
  auto& properties = state_.description.properties;
  const auto found = std::find_if(properties.begin(), properties.end(),
                                  [&](const auto& each) { return each.code == code; });
  return found == properties.end() ? nullptr : &*found;
}

PTPReply PropertyOperations::getDescription(const PTPRequest& request) {
  const auto* found = property(request.parameters[0]);
  if (found == nullptr) return refuse(kDevicePropNotSupported);
  ByteWriter writer;
  writePropertyDescription(writer, *found);
  return reply(writer);
}

PTPReply PropertyOperations::getValue(const PTPRequest& request) {
  const auto* found = property(request.parameters[0]);
  if (found == nullptr) return refuse(kDevicePropNotSupported);
  ByteWriter writer;
  writePropertyValue(writer, found->datatype, found->value);
  return reply(writer);
}

PTPReply PropertyOperations::setValue(const PTPRequest& request) {
  auto* found = property(request.parameters[0]);
  if (found == nullptr) return refuse(kDevicePropNotSupported);
  if (!found->writable) return refuse(kAccessDenied);
  auto value = readPropertyValue(allBytes(*request.data), found->datatype);
  if (value.is_null()) return refuse(kInvalidDevicePropFormat);
  if (!allows(*found, value)) return refuse(kInvalidDevicePropValue);
  found->value = std::move(value);
  return {};
}

PTPReply PropertyOperations::resetValue(const PTPRequest& request) {
  if (request.parameters[0] == kEveryProperty) {
    for (auto& each : state_.description.properties) {
      if (each.writable) each.value = each.defaultValue;
    }
    return {};
  }
  auto* found = property(request.parameters[0]);
  if (found == nullptr) return refuse(kDevicePropNotSupported);
  if (!found->writable) return refuse(kAccessDenied);
  found->value = found->defaultValue;
  return {};
}

namespace {

constexpr std::uint16_t kText = 0xFFFF;
constexpr std::uint16_t kArray = 0x4000;

/// Bytes of one number: INT8 and UINT8 are codes 1 and 2, each further pair doubles the size.
std::size_t sizeOf(std::uint16_t scalar) {
  return std::size_t{1} << ((scalar - 1) / 2);
}

/// The two's complement of a negative number, of which the writer takes the low bytes.
std::uint64_t integer(const nlohmann::json& value) {
  if (value.is_number_unsigned()) return value.get<std::uint64_t>();
  if (value.is_number_integer()) return static_cast<std::uint64_t>(value.get<std::int64_t>());
  return 0;
}

nlohmann::json number(std::span<const std::byte> bytes, std::size_t offset, std::uint16_t scalar) {
  const auto size = sizeOf(scalar);
  const auto value = littleEndian(bytes, offset, size);
  // Even codes are unsigned. The shift carries the sign bit to the top and back.
  if (scalar % 2 == 0) return value;
  const unsigned shift = 64 - 8 * static_cast<unsigned>(size);
  return static_cast<std::int64_t>(value << shift) >> shift;
}

/// Whether exactly `size` bytes are there, or one more, which is padding: a host keeps its data
/// containers off multiples of 64 bytes with it.
bool holds(std::span<const std::byte> bytes, std::uint64_t size) {
  return bytes.size() == size || bytes.size() == size + 1;
}

nlohmann::json readText(std::span<const std::byte> bytes) {
  if (bytes.empty()) return nullptr;
  const auto count = std::to_integer<std::size_t>(bytes[0]);
  if (!holds(bytes, 1 + 2 * count)) return nullptr;
  std::u16string units;
  for (std::size_t i = 0; i + 1 < count; ++i) {
    units.push_back(static_cast<char16_t>(littleEndian(bytes, 1 + 2 * i, 2)));
  }
  return utf8(units);
}

nlohmann::json readArray(std::span<const std::byte> bytes, std::uint16_t scalar) {
  // The count is believed only where that many elements are there.
  const auto count = littleEndian(bytes, 0, 4);
  if (!holds(bytes, 4 + count * sizeOf(scalar))) return nullptr;
  auto list = nlohmann::json::array();
  for (std::uint64_t i = 0; i < count; ++i) {
    list.push_back(number(bytes, 4 + i * sizeOf(scalar), scalar));
  }
  return list;
}

}  // namespace

void writePropertyValue(ByteWriter& writer, std::uint16_t datatype, const nlohmann::json& value) {
  if (datatype == kText) {
    writer.text(value.is_string() ? value.get_ref<const std::string&>() : std::string());
  } else if (datatype >= kArray) {
    writer.u32(static_cast<std::uint32_t>(value.size()));
    for (const auto& item : value)
      writer.integer(integer(item), sizeOf(datatype - kArray));
  } else {
    writer.integer(integer(value), sizeOf(datatype));
  }
}

void writePropertyDescription(ByteWriter& writer, const PropertyDescription& property) {
  writer.u16(property.code);
  writer.u16(property.datatype);
  writer.u8(property.writable ? 1 : 0);
  writePropertyValue(writer, property.datatype, property.defaultValue);
  writePropertyValue(writer, property.datatype, property.value);
  const bool ranged = !property.range.empty();
  writer.u8(ranged ? 1 : property.choices.empty() ? 0 : 2);
  if (!ranged && !property.choices.empty()) {
    writer.u16(static_cast<std::uint16_t>(property.choices.size()));
  }
  for (const auto& value : ranged ? property.range : property.choices) {
    writePropertyValue(writer, property.datatype, value);
  }
}

nlohmann::json readPropertyValue(std::span<const std::byte> bytes, std::uint16_t datatype) {
  if (datatype == kText) return readText(bytes);
  if (datatype >= kArray) return readArray(bytes, datatype - kArray);
  if (!holds(bytes, sizeOf(datatype))) return nullptr;
  return number(bytes, 0, datatype);
}

void CaptureOperations::addTo(OperationTable& table) {
  using enum DataDirection;
  using Self = CaptureOperations;
  table[ptp::kInitiateCapture] = {kNone, 0, 2, calling(this, &Self::initiateCapture)};
  table[ptp::kInitiateOpenCapture] = {kNone, 0, 2, calling(this, &Self::initiateOpenCapture)};
  table[ptp::kTerminateOpenCapture] = {kNone, 1, 1, calling(this, &Self::terminateOpenCapture)};
}

std::uint32_t CaptureOperations::pictureFolder(std::uint32_t storage) const {
  std::uint32_t folder = 0;
  for (const auto handle : state_.objects.handles({storage, StoredObject::kAssociation, 0})) {
    const auto parent = state_.objects.object(state_.objects.object(handle)->parent);
    if (parent && parent->name == u"DCIM") folder = handle;
  }
  return folder;
}

PTPReply CaptureOperations::capture(std::uint32_t storage) {
  const auto& stores = state_.objects.stores();
  if (storage == 0 && !stores.empty()) storage = stores.front().description.id;
  const auto* store = state_.objects.store(storage);
  if (store == nullptr) return refuse(kInvalidStorageID);
  if (store->description.access != StoreAccess::kReadWrite) return refuse(kStoreReadOnly);
  const auto& making = state_.description.capture;
  if (store->free < making.size) return refuse(kStoreFull);
  StoredObject picture;
  picture.storage = storage;
  picture.parent = pictureFolder(storage);
  picture.size = making.size;
  picture.name = utf16(making.prefix + formatted("%04u.JPG", ++state_.captures));
  picture.traits.format = formatOfExtension(".jpg");
  picture.traits.hasThumbnail = true;
  PTPReply made;
  made.events.push_back({kObjectAdded, {state_.objects.add(std::move(picture))}});
  if (store->free < making.size) made.events.push_back({kStoreFullEvent, {storage}});
  return made;
}

PTPReply CaptureOperations::initiateCapture(const PTPRequest& request) {
  auto made = capture(request.parameters[0]);
  if (made.code == kOK) made.events.push_back({kCaptureComplete, {request.transactionID}});
  return made;
}

PTPReply CaptureOperations::initiateOpenCapture(const PTPRequest& request) {
  if (state_.openCapture) return refuse(kDeviceBusy);
  if (request.parameters[0] != 0 && state_.objects.store(request.parameters[0]) == nullptr) {
    return refuse(kInvalidStorageID);
  }
  state_.openCapture = request.transactionID;
  state_.openCaptureStorage = request.parameters[0];
  return {};
}

// The parameter is the transaction id of the operation that began the capture.
PTPReply CaptureOperations::terminateOpenCapture(const PTPRequest& request) {
  if (!state_.openCapture) return refuse(kCaptureAlreadyTerminated);
  if (*state_.openCapture != request.parameters[0]) return refuse(kInvalidTransactionID);
  auto made = capture(state_.openCaptureStorage);
  if (made.code == kOK) made.events.push_back({kCaptureComplete, {*state_.openCapture}});
  state_.openCapture.reset();
  return made;
}

}  // namespace tarvo::simulator
