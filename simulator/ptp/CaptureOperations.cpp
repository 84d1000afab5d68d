#include "simulator/ptp/CaptureOperations.h"

#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"

namespace tarvo::simulator {

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
