#include "NativeServices/PictureDevice/operations/ObjectListing.h"

#include <algorithm>
#include <deque>
#include <string>
#include <utility>

#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "Utilities/Exception.h"
#include "Utilities/PTPCodes.h"

namespace tarvo {
namespace {

/// The maker's operations lie between these.
constexpr std::uint16_t kFirstOfMaker = 0x9001;
constexpr std::uint16_t kLastOfMaker = ptp::XTO_GET_SUPPORTED_DATASETS;
/// Deeper than any device goes. A device may put two folders into each other, or a new one into
/// each that is listed.
constexpr unsigned kDeepest = 32;
/// What turns up while objects are read does so in a few rounds, or for ever.
constexpr int kMostRounds = 8;

/// The stores cannot be asked together, or this one has no card in it.
bool isStoreRefused(Status status) {
  return status == status::kPTPInvalidStorageID || status == status::kPTPStoreNotAvailable;
}

bool isFormatRefused(Status status) {
  return status == status::kPTPSpecificationByFormatUnsupported ||
         status == status::kPTPOperationNotSupported || status == status::kPTPInvalidParameter;
}

/// The device cannot list by folder at all.
/// Parameters in this place are optional (ISO 15740, GetObjectHandles), so that a device may refuse
/// them in several ways.
bool isFolderRefused(Status status) {
  return isFormatRefused(status) || status == status::kPTPInvalidParentObject ||
         status == status::kPTPParameterNotSupported;
}

/// A vendor's own (ISO 15740, "Object format codes"), on a device that has the maker's operations.
bool isOfMaker(std::uint16_t format, const CodeList& operations) {
  return format >> 12U == 0xB && std::ranges::any_of(operations, [](std::uint16_t operation) {
           return operation >= kFirstOfMaker && operation <= kLastOfMaker;
         });
}

/// Nothing more can be asked.
bool isWithoutAnswer(Status status) {
  return status < status::kOK && status != status::kICAProtocolError;
}

/// A folder that is there, and of which the device does not tell what lies in it.
bool isUnlisted(const ReadInfo& read) {
  return read.info && read.status != status::kOK;
}

}  // namespace

ReadInfo readInfo(PTPTransactions& device, std::uint32_t handle) {
  // Not left to the caller: one malformed ObjectInfo must not end a listing of ten thousand.
  ReadInfo result;
  try {
    result.status = device.objectInfo(result.info, handle);
    if (result.status != status::kOK) result.info.reset();
  } catch (const Exception& exception) {
    return {.status = status::kICAProtocolError, .why = exception.reason()};
  }
  if (!result.info && result.status == status::kOK) result.status = status::kPTPGeneralError;
  return result;
}

bool isFolder(const XTExtendedObjectInfo& info) {
  return info.objFmtCode() == ptp::kAssociationFormat;
}

Status ObjectListing::handles(const ListingQuery& query, ObjectHandles& handles) {
  Status failure = status::kOK;
  const Status status = list(query, [&](std::uint32_t handle, const ReadInfo* read) {
    // What lies in a folder that cannot be listed is missing; an object without information is not.
    const bool isGap = read && (isWithoutAnswer(read->status) || isUnlisted(*read));
    if (isGap) failure = read->status;
    // One that cannot be looked at might be of any format, and what is done with a format may be
    // deleting.
    const bool isWanted =
        query.format == 0 || !read || (read->info && read->info->objFmtCode() == query.format);
    if (isWanted && !isGap) handles.push_back(handle);
    return !isGap;
  });
  return failure == status::kOK ? status : failure;
}

Status ObjectListing::visit(const ListingQuery& query, const Visitor& visitor) {
  readsObjects_ = true;
  return list(query, [&](std::uint32_t handle, const ReadInfo* known) {
    ReadInfo read = known ? *known : readInfo(device_, handle);
    if (isUnlisted(read)) read.info.reset();
    const bool isOther = query.format != 0 && read.info && read.info->objFmtCode() != query.format;
    return isOther || visitor(handle, read);
  });
}

ReadInfo ObjectListing::find(std::uint32_t handle) {
  ReadInfo read = readInfo(device_, handle);
  // A device that knows objects only once their folder was listed calls this one invalid until
  // then; any other refusal would be the same after a listing.
  if (read.info || read.status != status::kPTPInvalidObjectHandle) return read;
  // A list that cannot be had leaves the device's own refusal.
  (void)list({}, [&](std::uint32_t listed, const ReadInfo* known) {
    if (listed != handle) return true;
    read = known ? *known : readInfo(device_, handle);
    return false;
  });
  return read;
}

Status ObjectListing::list(const ListingQuery& query, const Found& found) {
  const bool isEverything = query.folder == ListingQuery::kAnywhere ||
                            (query.folder == ListingQuery::kTop && query.isDeep);
  if (isEverything)
    return eachStore(query, [&](auto store) { return listStore(store, query.format, found); });
  // Asked of its own store where the device tells it: over all stores is the question that some
  // never answer.
  if (query.folder != ListingQuery::kTop && query.store == ptp::kAllStores) {
    const auto folder = ObjectListing(device_).find(query.folder).info;
    if (folder && folder->storageID() != 0) return listFolder(query, folder->storageID(), found);
  }
  return eachStore(query, [&](auto store) { return listFolder(query, store, found); });
}

Status ObjectListing::eachStore(const ListingQuery& query,
                                const std::function<Status(std::uint32_t)>& ask) {
  if (query.store != ptp::kAllStores) return ask(query.store);
  // The maker's records may lie on no store that is listed, and the maker's devices tell of them
  // over all stores. Others may never answer that, which ends the conversation, and some answer
  // nothing afterwards until they are switched off.
  if (isOfMaker(query.format, device_.facts().operations)) {
    const Status status = ask(ptp::kAllStores);
    if (!isStoreRefused(status)) return status;
  }
  // A device that does not tell its stores is asked over all of them; that is what the question is
  // made for.
  const auto stores = device_.storageIDs();
  if (!stores || stores->empty()) return ask(ptp::kAllStores);
  Status refusal = status::kOK;
  bool hasAnswered = false;
  for (const std::uint32_t store : *stores) {
    if (hasEnded_) break;
    // The end of a list that was cut.
    if (store == 0) return status::kPTPIncompleteTransfer;
    if (!ptp::hasLogicalStore(store)) continue;
    const Status status = ask(store);
    if (status != status::kOK && !isStoreRefused(status)) return status;
    // An empty slot is a store like any other to some devices. It is an error only where no store
    // has answered.
    if (status != status::kOK) refusal = status;
    hasAnswered = hasAnswered || status == status::kOK;
  }
  return hasAnswered ? status::kOK : refusal;
}

Status ObjectListing::listStore(std::uint32_t store, std::uint16_t format, const Found& found) {
  ObjectHandles chosen;
  Status status = status::kOK;
  // By format first, for the answer to that costs one transaction, and reading every object to
  // learn its format one for each.
  if (format != 0) {
    status = device_.listHandles(store, format, ListingQuery::kAnywhere, chosen);
    if (status == status::kPTPInvalidObjectFormatCode) return status::kOK;
    if (status != status::kOK && !isFormatRefused(status)) return status;
    const bool hasNone = status == status::kOK && chosen.empty();
    if (hasNone && device_.isKnownToListBelowTop()) return status::kOK;
  }
  const bool hasChosen = format != 0 && status == status::kOK;
  ObjectHandles all;
  bool isAll = false;
  // None of a format may be the truth, or a device that lists the top alone: only the comparison
  // below tells.
  status = listAtOnce(store, all, isAll);
  if (status != status::kOK) return status;
  // A device that passes over the format gives everything.
  if (isAll && hasChosen && chosen.size() < all.size()) {
    give(chosen, found);
    return status::kOK;
  }
  if (!isAll || format != 0) return walk(store, all, !isAll, found);
  return giveAll(store, all, found);
}

// Objects may turn up while others are read.
Status ObjectListing::giveAll(std::uint32_t store, ObjectHandles& all, const Found& found) {
  // Only where objects are read, for only reading makes such a device find more of them.
  for (int round = 0; round < kMostRounds; ++round) {
    const std::size_t before = seen_.size();
    give(all, found);
    if (seen_.size() == before || hasEnded_ || !readsObjects_) break;
    const Status status = device_.listHandles(store, 0, ListingQuery::kAnywhere, all);
    if (status != status::kOK) return status;
  }
  return status::kOK;
}

Status ObjectListing::listAtOnce(std::uint32_t store, ObjectHandles& handles, bool& isAll) {
  Status status = device_.listHandles(store, 0, ListingQuery::kAnywhere, handles);
  isAll = true;
  if (status != status::kOK || handles.empty() || device_.isKnownToListBelowTop()) return status;
  ObjectHandles others;
  // A device that lists everything has more than what is at the top. Asked once a device:
  // noteListsBelowTop() remembers it.
  status = device_.listHandles(store, 0, ListingQuery::kTop, others);
  if (isFolderRefused(status)) return status::kOK;
  if (status != status::kOK) return status;
  if (handles.size() > others.size()) {
    device_.noteListsBelowTop();
    return status::kOK;
  }
  // Nothing lies below the top, or it is not told. Without folders there is nothing to be told.
  status = device_.listHandles(store, ptp::kAssociationFormat, ListingQuery::kAnywhere, others);
  const bool isTold = status == status::kOK || status == status::kPTPInvalidObjectFormatCode;
  isAll = isTold && others.empty();
  return isTold || isFormatRefused(status) ? status::kOK : status;
}

Status ObjectListing::listMembers(std::uint32_t store, std::uint16_t format, std::uint32_t folder,
                                  ObjectHandles& handles) {
  const Status status = device_.listHandles(store, format, folder, handles);
  if (format == 0) return status;
  if (status == status::kPTPInvalidObjectFormatCode) return status::kOK;
  return isFormatRefused(status) ? device_.listHandles(store, 0, folder, handles) : status;
}

Status ObjectListing::listFolder(const ListingQuery& query, std::uint32_t store,
                                 const Found& found) {
  ObjectHandles members;
  // Of every format where the folders below are wanted, too.
  const std::uint16_t format = query.isDeep ? std::uint16_t{0} : query.format;
  const Status status = listMembers(store, format, query.folder, members);
  if (status != status::kOK) return status;
  if (query.isDeep || format != 0) return walk(store, members, query.isDeep, found);
  give(members, found);
  return status::kOK;
}

Status ObjectListing::walk(std::uint32_t store, const ObjectHandles& top, bool isDeep,
                           const Found& found) {
  struct Place {
    std::uint32_t handle;
    unsigned depth;
  };
  std::deque<Place> left;
  const auto add = [&](const ObjectHandles& handles, unsigned depth) {
    for (const std::uint32_t handle : handles)
      left.push_back({handle, depth});
  };
  add(top, 1);
  for (; !left.empty() && !hasEnded_; left.pop_front()) {
    const auto [handle, depth] = left.front();
    if (!seen_.insert(handle).second) continue;
    ReadInfo read = readInfo(device_, handle);
    hasEnded_ = !found(handle, &read);
    if (hasEnded_ || !isDeep || !read.info || !isFolder(*read.info)) continue;
    ObjectHandles members;
    const Status status = device_.listHandles(store, 0, handle, members);
    if (isWithoutAnswer(status)) return status;
    // The walk is bounded in depth and in number: a device may invent folders faster than they are
    // read.
    if (status == status::kOK && depth < kDeepest && left.size() < PTPTransactions::kMostObjects) {
      add(members, depth + 1);
    } else if (status != status::kOK || !members.empty()) {
      read.status = status == status::kOK ? status::kICAProtocolError : status;
      read.why = "what lies in it cannot be listed";
      hasEnded_ = !found(handle, &read);
    }
  }
  return status::kOK;
}

void ObjectListing::give(const ObjectHandles& handles, const Found& found) {
  for (const std::uint32_t handle : handles) {
    if (hasEnded_) return;
    if (seen_.insert(handle).second) hasEnded_ = !found(handle, nullptr);
  }
}

bool isPictureFormat(std::uint16_t format) {
  // ISO 15740, "Object format codes": 0x38xx are images; a vendor's own ones are 0xB8xx.
  constexpr unsigned kStandardPictures = 0x38;
  constexpr unsigned kVendorPictures = 0xB8;
  const unsigned kind = format >> 8U;
  return kind == kStandardPictures || kind == kVendorPictures;
}

std::int32_t DevicePictures::count() {
  const std::int32_t all = device_.numberOfObjectsOnStore(ptp::kAllStores, ptp::kAllImageFormats);
  // 0 may be an empty store as well as a device that does not know the question; asking on costs a
  // few transactions on an empty device alone.
  if (all > 0) return all;
  std::int32_t sum = 0;
  for (const std::uint16_t format : device_.facts().imageFormats) {
    if (!isPictureFormat(format)) continue;
    sum += std::max(0, device_.numberOfObjectsOnStore(ptp::kAllStores, format));
  }
  return sum;
}

// kAllImageFormats (0xFFFFFFFF) is the standard's own way to ask, and not every device knows it.
std::optional<ObjectHandles> DevicePictures::handles(std::uint32_t store) {
  auto handles = device_.objectHandlesOnStore(store, ptp::kAllImageFormats);
  if (handles && !handles->empty()) return handles;
  // Grouped by format then, in the order of the device's list.
  handles.emplace();
  for (const std::uint16_t format : device_.facts().imageFormats) {
    if (!isPictureFormat(format)) continue;
    const auto ofFormat = device_.objectHandlesOnStore(store, format);
    if (!ofFormat) return std::nullopt;
    handles->insert(handles->end(), ofFormat->begin(), ofFormat->end());
  }
  return handles;
}

std::optional<std::vector<std::uint32_t>> DevicePictures::listedSizes(
    const ObjectHandles& handles) {
  // The maker's operation gives all sizes in one transaction; elsewhere it is one for each picture.
  if (!containsCode(device_.facts().operations, ptp::XTO_GET_PICTURE_FILE_SIZES)) {
    return std::nullopt;
  }
  // By the same question as the handles, for only then are the two in step.
  auto sizes = device_.pictureFilesizeOnStore(ptp::kAllStores, ptp::kAllImageFormats);
  return sizes && sizes->size() == handles.size() ? std::move(sizes) : std::nullopt;
}

PropertyDictionary DevicePictures::fileSizes() {
  auto sizes = PropertyDictionary::object();
  const auto pictures = handles(ptp::kAllStores).value_or(ObjectHandles());
  const auto listed = listedSizes(pictures);
  for (std::size_t i = 0; i < pictures.size(); ++i) {
    const std::string key = std::to_string(pictures[i]);
    ObjectInfoPointer info;
    if (listed) {
      sizes[key] = (*listed)[i];
    } else if (device_.objectInfo(info, pictures[i]) == status::kOK && info) {
      sizes[key] = info->compressedSize();
    }
  }
  return sizes;
}

}  // namespace tarvo
