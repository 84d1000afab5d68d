#include "simulator/ptp/ObjectOperations.h"

#include <algorithm>

#include "Utilities/PTPCodes.h"
#include "simulator/ptp/Thumbnail.h"

namespace tarvo::simulator {
namespace {

constexpr std::uint16_t kJFIF = 0x3808;

bool isImage(const StoredObject& object) {
  return object.traits.format >= 0x3800 && object.traits.format < 0x4000;
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
  if (object.traits.hidesSize) return 0xFFFFFFFF;
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(object.size, 0xFFFFFFFF));
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
  if (habits.listsFolderByFolder && filter.association == 0) filter.association = 0xFFFFFFFF;
  const auto* store = state_.objects.store(filter.storage);
  if (filter.storage != ptp::kAllStores && store == nullptr) return kInvalidStorageID;
  if (store != nullptr && store->description.isEmptySlot) return kStoreNotAvailable;
  if (filter.association != 0 && filter.association != 0xFFFFFFFF) {
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

}  // namespace tarvo::simulator
