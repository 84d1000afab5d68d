#include "simulator/ptp/SendingOperations.h"

#include <utility>

#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"
#include "simulator/bytes/ByteWriter.h"

namespace tarvo::simulator {
namespace {

constexpr std::uint32_t kAnyStore = 0;

/// The data operation that goes with an information operation.
std::uint16_t dataOperation(std::uint16_t infoOperation) {
  switch (infoOperation) {
    case kVendorSendInfo:
      return kVendorSendData;
    case kAlternateSendInfo:
      return kAlternateSendData;
    default:
      return ptp::kSendObject;
  }
}

/// Whether the container of so many bytes would be of a length that hosts avoid with one byte more.
bool needsPadding(std::uint64_t size) {
  return (size + ptp::kContainerHeaderSize) % 64 == 0;
}

PTPReply complain(std::uint16_t code, std::string complaint) {
  auto made = refuse(code);
  made.complaints.push_back(std::move(complaint));
  return made;
}

void take(const ReceivedObjectInfo& info, StoredObject& object) {
  object.name = info.name;
  object.traits.isProtected = info.protection != 0;
  object.traits.captured = utf8(info.captured);
  object.traits.modified = utf8(info.modified);
  object.traits.keywords = utf8(info.keywords);
  if (!info.extension.empty()) object.extension = info.extension;
}

}  // namespace

void SendingOperations::addTo(OperationTable& table) {
  using enum DataDirection;
  using Self = SendingOperations;
  for (const std::uint16_t code :
       {std::uint16_t{ptp::kSendObjectInfo}, std::uint16_t{kVendorSendInfo},
        std::uint16_t{kAlternateSendInfo}, std::uint16_t{kSendExtendedInfo}}) {
    table[code] = {kToDevice, 0, 2, calling(this, &Self::sendInfo)};
  }
  for (const std::uint16_t code : {std::uint16_t{ptp::kSendObject}, std::uint16_t{kVendorSendData},
                                   std::uint16_t{kAlternateSendData}}) {
    table[code] = {kToDevice, 0, 0, calling(this, &Self::sendData)};
  }
  table[ptp::XTO_SEND_OBJECT_PART] = {kToDevice, 2, 2, calling(this, &Self::sendPart)};
  table[ptp::XTO_UPDATE_EXT_OBJECT_INFO] = {kToDevice, 1, 1, calling(this, &Self::updateInfo)};
}

std::uint16_t SendingOperations::place(const PTPRequest& request, const ReceivedObjectInfo& info,
                                       StoredObject& object) const {
  object.storage = request.parameters[0];
  object.parent = request.parameters[1] == ObjectFilter::kRoot ? 0 : request.parameters[1];
  const auto folder = state_.objects.object(object.parent);
  if (object.parent != 0 && (!folder || !folder->isFolder())) return kInvalidParentObject;
  const auto& stores = state_.objects.stores();
  if (object.storage == kAnyStore && state_.description.habits.choosesNoStore)
    return kInvalidStorageID;
  if (object.storage == kAnyStore && folder) object.storage = folder->storage;
  if (object.storage == kAnyStore && !stores.empty()) {
    object.storage = stores.front().description.id;
  }
  const auto* store = state_.objects.store(object.storage);
  if (store == nullptr) return kInvalidStorageID;
  if (folder && folder->storage != object.storage) return kInvalidParentObject;
  if (store->description.access != StoreAccess::kReadWrite) return kStoreReadOnly;
  return store->free < info.size ? std::uint16_t{kStoreFull} : std::uint16_t{kOK};
}

PTPReply SendingOperations::sendInfo(const PTPRequest& request) {
  const auto info = ReceivedObjectInfo::parse(allBytes(*request.data));
  if (!info) return complain(kGeneralError, "the ObjectInfo data set is malformed");
  PTPReply made;
  PendingObject pending;
  made.code = place(request, *info, pending.object);
  if (made.code != kOK) return made;
  const bool extended = request.operation == kSendExtendedInfo;
  if (extended == info->extension.empty()) {
    made.complaints.emplace_back(extended ? "an ObjectInfo without the extension"
                                          : "an ObjectInfo with the maker's extension");
  }
  take(*info, pending.object);
  pending.object.traits.format = info->format;
  pending.object.handle = state_.objects.reserveHandle();
  pending.announced = info->size;
  pending.infoOperation = request.operation;
  made.parameters = {pending.object.storage, pending.object.parent, pending.object.handle};
  state_.pending = std::move(pending);
  // A folder has no bytes to wait for.
  if (info->format == StoredObject::kAssociation) finish(nullptr);
  return made;
}

void SendingOperations::finish(std::shared_ptr<const Payload> content) {
  auto object = std::move(state_.pending->object);
  state_.pending.reset();
  object.size = content ? content->size() : 0;
  object.content = std::move(content);
  state_.objects.add(std::move(object));
}

PTPReply SendingOperations::sendData(const PTPRequest& request) {
  const auto code = request.operation;
  if (!state_.pending) return complain(kNoValidObjectInfo, "object bytes without an ObjectInfo");
  if (dataOperation(state_.pending->infoOperation) != code) {
    return complain(kNoValidObjectInfo, formatted("operation 0x%04X does not go with 0x%04X", code,
                                                  state_.pending->infoOperation));
  }
  const auto announced = state_.pending->announced;
  const auto size = request.data->size();
  if (size != announced) {
    auto made =
        complain(kIncompleteTransfer, formatted("%u bytes of an object were announced, %llu came",
                                                announced, static_cast<unsigned long long>(size)));
    return made;
  }
  finish(request.data);
  return {};
}

PTPReply SendingOperations::sendPart(const PTPRequest& request) {
  if (!state_.pending) return complain(kNoValidObjectInfo, "a part without an ObjectInfo");
  const std::uint64_t part = request.parameters[0];
  const bool last = request.parameters[1] == 1;
  if (request.parameters[1] > 1) return complain(kInvalidParameter, "a last-part flag beyond 1");
  const auto sent = request.data->size();
  if (sent != part + (needsPadding(part) ? 1 : 0)) {
    return complain(kIncompleteTransfer,
                    formatted("a part of %u bytes was announced, %llu came", request.parameters[0],
                              static_cast<unsigned long long>(sent)));
  }
  auto& pending = *state_.pending;
  pending.parts.append(PartPayload(request.data, 0, part));
  const auto size = pending.parts.size();
  // What was announced counts the byte that a container of the whole object would need.
  const std::uint64_t expected = pending.announced;
  const bool whole = size == expected || (size + 1 == expected && needsPadding(size));
  if (last != whole || size > expected) {
    auto made = complain(kIncompleteTransfer,
                         formatted("%llu of %llu bytes have come in parts, and the last-part flag "
                                   "is %u",
                                   static_cast<unsigned long long>(size),
                                   static_cast<unsigned long long>(expected), last ? 1U : 0U));
    state_.pending.reset();
    return made;
  }
  if (last) finish(pending.parts.finish());
  return {};
}

// The size and the format are the object's own: nothing that a host writes changes them.
PTPReply SendingOperations::updateInfo(const PTPRequest& request) {
  const auto info = ReceivedObjectInfo::parse(allBytes(*request.data));
  if (!info) return complain(kGeneralError, "the ObjectInfo data set is malformed");
  const auto object = state_.objects.object(request.parameters[0]);
  if (!object) return refuse(kInvalidObjectHandle);
  const auto& store = state_.objects.store(object->storage)->description;
  if (store.access != StoreAccess::kReadWrite) return refuse(kStoreReadOnly);
  state_.objects.change(object->handle, [&](StoredObject& changed) { take(*info, changed); });
  return {};
}

namespace {

/// Passes over the maker's fields, which a device keeps as they are.
void skipExtension(ByteReader& reader) {
  reader.text();                        // date of creation
  reader.skipArray(1);                  // quick fingerprint
  reader.skipArray(1);                  // full fingerprint
  reader.u16();                         // favourite
  reader.u16();                         // retention
  reader.text();                        // annotation
  for (int list = 0; list < 5; ++list)  // audio, albums, e-mail, print and transfer orders
    reader.skipArray(4);
  reader.u32();         // size of the source picture
  reader.skipArray(1);  // its fingerprints
  reader.skipArray(1);
}

}  // namespace

std::optional<ReceivedObjectInfo> ReceivedObjectInfo::parse(std::span<const std::byte> bytes) {
  ByteReader reader(bytes);
  ReceivedObjectInfo info;
  reader.u32();  // the store stands in the operation's parameters
  info.format = reader.u16();
  info.protection = reader.u16();
  info.size = reader.u32();
  reader.u16();                // format of a thumbnail, which the device makes itself
  for (int i = 0; i < 6; ++i)  // its size, width and height, then the picture's, and its depth
    reader.u32();
  reader.u32();  // the parent stands in the parameters too
  reader.u16();  // association: type, description
  reader.u32();
  reader.u32();  // sequence number
  info.name = reader.text();
  info.captured = reader.text();
  info.modified = reader.text();
  info.keywords = reader.text();
  const auto standard = bytes.size() - reader.rest().size();
  if (reader.failed()) return std::nullopt;
  if (isPadding(reader.rest(), standard)) return info;
  const auto extension = reader.rest();
  skipExtension(reader);
  const auto whole = bytes.size() - reader.rest().size();
  if (reader.failed() || !isPadding(reader.rest(), whole)) return std::nullopt;
  const auto own = extension.first(whole - standard);
  info.extension.assign(own.begin(), own.end());
  return info;
}

}  // namespace tarvo::simulator
