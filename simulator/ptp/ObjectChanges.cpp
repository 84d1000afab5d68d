#include "simulator/ptp/ObjectChanges.h"

#include "Utilities/PTPCodes.h"

namespace tarvo::simulator {
namespace {

constexpr std::uint32_t kEveryObject = 0xFFFFFFFF;
constexpr std::uint32_t kEveryImage = 0xFFFFFFFF;  // in place of a format
constexpr std::uint32_t kRoot = 0xFFFFFFFF;

bool isImageFormat(std::uint16_t format) {
  return format >= 0x3800 && format < 0x4000;
}

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
  const ObjectFilter filter{ptp::kAllStores, wanted, format == 0 ? kRoot : 0};
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
  parent = request.parameters[2] == kRoot ? 0 : request.parameters[2];
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
