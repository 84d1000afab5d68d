#include "simulator/ptp/ObjectOperations.h"

#include <algorithm>
#include <initializer_list>

#include "Utilities/PTPCodes.h"

namespace tarvo::simulator {
namespace {

constexpr std::uint16_t kJFIF = 0x3808;

bool isImage(const StoredObject& object) {
  return isImageFormat(object.traits.format);
}

/// Format, size, width and height of the thumbnail; zeros where there is none.
void writeThumbnailFields(ByteWriter& writer, const StoredObject& object) {
  const bool there = object.traits.hasThumbnail;
  writer.u16(there ? kJFIF : 0);
  writer.u32(there ? static_cast<std::uint32_t>(thumbnailJPEG(object.handle).size()) : 0);
  writer.u32(there ? kThumbnailWidth : 0);
  writer.u32(there ? kThumbnailHeight : 0);
}

}  // namespace

std::uint32_t toldSize(const StoredObject& object) {
  if (object.traits.hidesSize) return ptp::kUnknownObjectSize;
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(object.size, ptp::kUnknownObjectSize));
}

void ObjectOperations::addTo(OperationTable& table) {
  using enum DataDirection;
  using Self = ObjectOperations;
  table[ptp::kGetNumObjects] = {kNone, 1, 3, calling(this, &Self::getNumObjects)};
  table[ptp::kGetObjectHandles] = {kFromDevice, 1, 3, calling(this, &Self::getObjectHandles)};
  table[ptp::kGetObjectInfo] = {kFromDevice, 1, 1, calling(this, &Self::getObjectInfo)};
  table[ptp::kGetObject] = {kFromDevice, 1, 1, calling(this, &Self::getObject)};
  table[ptp::kGetPartialObject] = {kFromDevice, 3, 3, calling(this, &Self::getPartialObject)};
  table[ptp::kGetThumb] = {kFromDevice, 1, 1, calling(this, &Self::getThumb)};
  table[ptp::XTO_GET_PICTURE_FILE_SIZES] = {kFromDevice, 3, 3,
                                            calling(this, &Self::getPictureFileSizes)};
}

std::uint16_t ObjectOperations::filterFor(const PTPRequest& request, ObjectFilter& filter) const {
  filter.storage = request.parameters[0];
  filter.format = static_cast<std::uint16_t>(request.parameters[1]);
  filter.association = request.parameters[2];
  const auto& habits = state_.description.habits;
  if (habits.needsAllParameters && request.parameterCount < 3)
    return kSpecificationByFormatUnsupported;
  if (filter.storage == ptp::kAllStores && habits.allStoresResponse)
    return *habits.allStoresResponse;
  if (filter.format != 0 && habits.formatResponse) return *habits.formatResponse;
  if (habits.ignoresFormat) filter.format = 0;
  if (habits.listsFolderByFolder && filter.association == 0)
    filter.association = ObjectFilter::kRoot;
  const auto* store = state_.objects.store(filter.storage);
  if (filter.storage != ptp::kAllStores && store == nullptr) return kInvalidStorageID;
  if (store != nullptr && store->description.isEmptySlot) return kStoreNotAvailable;
  if (filter.association != 0 && filter.association != ObjectFilter::kRoot) {
    const auto parent = state_.objects.object(filter.association);
    if (!parent || !parent->isFolder()) return kInvalidParentObject;
  }
  return kOK;
}

PTPReply ObjectOperations::getNumObjects(const PTPRequest& request) {
  ObjectFilter filter;
  auto counted = refuse(filterFor(request, filter));
  if (counted.code == kOK) counted.parameters = {state_.objects.count(filter)};
  return counted;
}

PTPReply ObjectOperations::getObjectHandles(const PTPRequest& request) {
  ObjectFilter filter;
  const auto code = filterFor(request, filter);
  if (code != kOK) return refuse(code);
  const auto handles = state_.objects.handles(filter);
  state_.listed.insert(handles.begin(), handles.end());
  ByteWriter writer;
  writer.u32Array(handles);
  return reply(writer);
}

// One size for each handle that GetObjectHandles gives, in the same order.
PTPReply ObjectOperations::getPictureFileSizes(const PTPRequest& request) {
  ObjectFilter filter;
  const auto code = filterFor(request, filter);
  if (code != kOK) return refuse(code);
  std::vector<std::uint32_t> sizes;
  for (const auto handle : state_.objects.handles(filter))
    sizes.push_back(toldSize(*state_.objects.object(handle)));
  ByteWriter writer;
  writer.u32Array(sizes);
  return reply(writer);
}

PTPReply ObjectOperations::getObjectInfo(const PTPRequest& request) {
  const auto object = state_.objects.object(request.parameters[0]);
  if (!object) return refuse(kInvalidObjectHandle);
  state_.objects.reveal(object->nameText());
  const bool image = isImage(*object);
  ByteWriter writer;
  writer.u32(object->storage);
  writer.u16(object->traits.format);
  writer.u16(object->traits.isProtected ? 1 : 0);
  writer.u32(toldSize(*object));
  writeThumbnailFields(writer, *object);
  writer.u32(image ? 4000 : 0);
  writer.u32(image ? 3000 : 0);
  writer.u32(image ? 24 : 0);
  writer.u32(object->parent == 0 ? state_.description.habits.rootParent : object->parent);
  writer.u16(object->isFolder() ? 1 : 0);  // generic folder
  writer.u32(0);
  writer.u32(0);
  writer.text(object->name);
  writer.text(object->traits.captured);
  writer.text(object->traits.modified);
  writer.text(object->traits.keywords);
  return reply(writer);
}

PTPReply ObjectOperations::getObject(const PTPRequest& request) {
  const auto object = state_.objects.object(request.parameters[0]);
  if (!object || object->isFolder()) return refuse(kInvalidObjectHandle);
  PTPReply sent;
  sent.data = ObjectStore::content(*object);
  return sent;
}

PTPReply ObjectOperations::getPartialObject(const PTPRequest& request) {
  const auto object = state_.objects.object(request.parameters[0]);
  if (!object || object->isFolder()) return refuse(kInvalidObjectHandle);
  const auto offset = request.parameters[1];
  if (offset > object->size) return refuse(kInvalidParameter);
  const auto size = std::min<std::uint64_t>(request.parameters[2], object->size - offset);
  PTPReply sent;
  sent.parameters = {static_cast<std::uint32_t>(size)};
  sent.data = std::make_shared<PartPayload>(ObjectStore::content(*object), offset, size);
  return sent;
}

PTPReply ObjectOperations::getThumb(const PTPRequest& request) {
  const auto object = state_.objects.object(request.parameters[0]);
  if (!object) return refuse(kInvalidObjectHandle);
  if (!object->traits.hasThumbnail) return refuse(kNoThumbnailPresent);
  PTPReply sent;
  sent.data = std::make_shared<BytesPayload>(thumbnailJPEG(object->handle));
  return sent;
}

namespace {

/// A marker segment: 0xFF, the marker, the length with itself, the bytes.
void segment(ByteWriter& writer, std::uint8_t marker, std::initializer_list<std::uint8_t> bytes) {
  writer.u8(0xFF);
  writer.u8(marker);
  writer.u8(0);
  writer.u8(static_cast<std::uint8_t>(bytes.size() + 2));
  for (const auto byte : bytes)
    writer.u8(byte);
}

void quantisationTable(ByteWriter& writer) {
  writer.u8(0xFF);
  writer.u8(0xDB);
  writer.u8(0);
  writer.u8(67);
  writer.u8(0);
  for (int i = 0; i < 64; ++i)
    writer.u8(8);
}

/// Bits, the first in the highest place.
class BitWriter {
 public:
  explicit BitWriter(ByteWriter& writer) : writer_(writer) {}
  void put(unsigned bits, unsigned count) {
    for (unsigned i = count; i-- > 0;) {
      byte_ = static_cast<std::uint8_t>((byte_ << 1) | ((bits >> i) & 1));
      if (++filled_ == 8) flush();
    }
  }
  /// What is left of the last byte is filled with ones.
  void end() {
    while (filled_ != 0)
      put(1, 1);
  }

 private:
  void flush() {
    writer_.u8(byte_);
    filled_ = 0;
  }
  ByteWriter& writer_;
  std::uint8_t byte_ = 0;
  unsigned filled_ = 0;
};

}  // namespace

// Two DC codes: "0" is no difference to the block before, "10" a difference of seven bits. One AC
// code: "0" ends the block. So the first block sets the brightness and the others repeat it. No
// byte of it can become 0xFF, which would need stuffing.
Bytes thumbnailJPEG(std::uint32_t handle) {
  constexpr unsigned kBlocks = kThumbnailWidth / 8 * (kThumbnailHeight / 8);
  ByteWriter writer;
  writer.u8(0xFF);
  writer.u8(0xD8);
  segment(writer, 0xE0, {'J', 'F', 'I', 'F', 0, 1, 1, 0, 0, 1, 0, 1, 0, 0});
  quantisationTable(writer);
  segment(writer, 0xC0, {8, 0, kThumbnailHeight, 0, kThumbnailWidth, 1, 1, 0x11, 0});
  segment(writer, 0xC4, {0x00, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7});
  segment(writer, 0xC4, {0x10, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
  segment(writer, 0xDA, {1, 1, 0x00, 0, 63, 0});
  BitWriter bits(writer);
  bits.put(0b10, 2);
  bits.put(64 + handle % 64, 7);
  bits.put(0, 1);
  for (unsigned block = 1; block < kBlocks; ++block)
    bits.put(0, 2);
  bits.end();
  writer.u8(0xFF);
  writer.u8(0xD9);
  return writer.take();
}

namespace {

constexpr std::uint32_t kEveryObject = 0xFFFFFFFF;
constexpr std::uint32_t kEveryImage = 0xFFFFFFFF;  // in place of a format

}  // namespace

void ObjectChanges::addTo(OperationTable& table) {
  using enum DataDirection;
  using Self = ObjectChanges;
  table[ptp::kDeleteObject] = {kNone, 1, 2, calling(this, &Self::deleteObject)};
  table[kVendorDelete] = {kNone, 1, 2, calling(this, &Self::deleteObject)};
  table[ptp::kSetObjectProtection] = {kNone, 2, 2, calling(this, &Self::setObjectProtection)};
  table[ptp::kMoveObject] = {kNone, 2, 3, calling(this, &Self::moveObject)};
  table[ptp::kCopyObject] = {kNone, 2, 3, calling(this, &Self::copyObject)};
}

std::uint16_t ObjectChanges::deleteOne(std::uint32_t handle, std::uint16_t operation) {
  const auto object = state_.objects.object(handle);
  if (!object) return kInvalidObjectHandle;
  const auto& store = state_.objects.store(object->storage)->description;
  if (store.access == StoreAccess::kReadOnly) return kStoreReadOnly;
  if (store.vendorDelete && operation != kVendorDelete) return kAccessDenied;
  const auto removal = state_.objects.remove(handle);
  if (removal.removed > 0) state_.datasets.forget(*object);
  if (removal.kept == 0) return kOK;
  return removal.removed == 0 ? kObjectWriteProtected : kPartialDeletion;
}

PTPReply ObjectChanges::deleteObject(const PTPRequest& request) {
  if (request.parameters[0] == kEveryObject) return deleteAll(request);
  auto done = refuse(deleteOne(request.parameters[0], request.operation));
  if (request.parameters[1] != 0) done.complaints = {"DeleteObject of one object with a format"};
  return done;
}

// Part of it is a success of its own kind; nothing at all is the first object's failure.
PTPReply ObjectChanges::deleteAll(const PTPRequest& request) {
  const auto format = request.parameters[1];
  const bool images = format == kEveryImage;
  const auto wanted = images ? std::uint16_t{0} : static_cast<std::uint16_t>(format);
  // Without a format what lies in folders goes with them.
  const ObjectFilter filter{ptp::kAllStores, wanted, format == 0 ? ObjectFilter::kRoot : 0};
  std::uint16_t failure = kOK;
  bool any = false;
  for (const auto handle : state_.objects.handles(filter)) {
    const auto object = state_.objects.object(handle);
    if (!object || (images && !isImageFormat(object->traits.format))) continue;
    const auto code = deleteOne(handle, request.operation);
    any = any || code == kOK || code == kPartialDeletion;
    if (code != kOK && failure == kOK) failure = code;
  }
  return refuse(failure != kOK && any ? std::uint16_t{kPartialDeletion} : failure);
}

PTPReply ObjectChanges::setObjectProtection(const PTPRequest& request) {
  if (request.parameters[1] > 1) return refuse(kInvalidParameter);
  const auto object = state_.objects.object(request.parameters[0]);
  if (!object) return refuse(kInvalidObjectHandle);
  const auto& store = state_.objects.store(object->storage)->description;
  if (store.access != StoreAccess::kReadWrite) return refuse(kStoreReadOnly);
  state_.objects.change(object->handle, [&](StoredObject& changed) {
    changed.traits.isProtected = request.parameters[1] == 1;
  });
  return {};
}

std::uint16_t ObjectChanges::destination(const PTPRequest& request, std::uint32_t& storage,
                                         std::uint32_t& parent) const {
  storage = request.parameters[1];
  parent = request.parameters[2] == ObjectFilter::kRoot ? 0 : request.parameters[2];
  const auto* store = state_.objects.store(storage);
  if (store == nullptr) return kInvalidStorageID;
  if (store->description.access != StoreAccess::kReadWrite) return kStoreReadOnly;
  if (parent == 0) return kOK;
  const auto folder = state_.objects.object(parent);
  // A folder cannot go into itself.
  if (!folder || !folder->isFolder() || folder->storage != storage ||
      state_.objects.isWithin(parent, request.parameters[0])) {
    return kInvalidParentObject;
  }
  return kOK;
}

PTPReply ObjectChanges::moveObject(const PTPRequest& request) {
  const auto object = state_.objects.object(request.parameters[0]);
  if (!object) return refuse(kInvalidObjectHandle);
  std::uint32_t storage = 0;
  std::uint32_t parent = 0;
  const auto code = destination(request, storage, parent);
  if (code != kOK) return refuse(code);
  if (object->traits.isProtected) return refuse(kObjectWriteProtected);
  const auto* from = state_.objects.store(object->storage);
  if (from->description.access == StoreAccess::kReadOnly) return refuse(kStoreReadOnly);
  const bool elsewhere = object->storage != storage;
  if (elsewhere && state_.objects.store(storage)->free < state_.objects.totalSize(object->handle)) {
    return refuse(kStoreFull);
  }
  state_.objects.move(object->handle, storage, parent);
  return {};
}

PTPReply ObjectChanges::copyObject(const PTPRequest& request) {
  const auto object = state_.objects.object(request.parameters[0]);
  if (!object) return refuse(kInvalidObjectHandle);
  std::uint32_t storage = 0;
  std::uint32_t parent = 0;
  const auto code = destination(request, storage, parent);
  if (code != kOK) return refuse(code);
  if (state_.objects.store(storage)->free < state_.objects.totalSize(object->handle)) {
    return refuse(kStoreFull);
  }
  PTPReply done;
  done.parameters = {state_.objects.copy(object->handle, storage, parent)};
  return done;
}

}  // namespace tarvo::simulator
