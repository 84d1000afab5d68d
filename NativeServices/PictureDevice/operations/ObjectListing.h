// Which objects a device holds, whatever way of listing it has.
//
//   ObjectListing listing(device);
//   const Status status = listing.visit({.format = 0x3801}, [&](std::uint32_t handle,
//                                                               const ReadInfo& read) {
//     show(handle, read);
//     return wantsMore();
//   });
//
// The standard (ISO 15740, GetObjectHandles) lets a host choose by store, format and folder. What
// devices make of that differs: some refuse a list over all stores, or never answer it; some refuse
// to choose by format, or pass over it; some name only what lies at the top, and know an object
// only once its folder was listed. Each is asked in the form that it answers, and what it answers
// is checked.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_set>

#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "Utilities/PropertyDictionary.h"

namespace tarvo {

/// The information of an object, or why there is none. What a device got wrong is a failure of that
/// object and raises nothing.
struct ReadInfo {
  ObjectInfoPointer info{};  ///< null on failure
  Status status = status::kOK;
  std::string why{};
};
ReadInfo readInfo(PTPTransactions& device, std::uint32_t handle);

/// Folders and other associations (ISO 15740, format 0x3001).
bool isFolder(const XTExtendedObjectInfo& info);

/// Which objects.
struct ListingQuery {
  static constexpr std::uint32_t kAnywhere = 0;
  static constexpr std::uint32_t kTop = 0xFFFFFFFF;

  std::uint32_t store = ptp::kAllStores;
  std::uint16_t format = 0;  ///< 0: every format
  /// A folder's handle, or one of the two above.
  std::uint32_t folder = kAnywhere;
  bool isDeep = false;  ///< also what lies in the folders below it
};

/// Main thread only. Made for one list.
///
/// Nothing is counted beforehand, and no list is longer than PTPTransactions::kMostObjects.
/// Statuses are those of listHandles(), and of storageIDs() where that is asked; a format that the
/// device does not know has no objects, and so has a slot without a card beside a store that has
/// some.
class ObjectListing {
 public:
  /// False ends the list.
  using Visitor = std::function<bool(std::uint32_t handle, const ReadInfo& read)>;

  /// `device` is lent.
  explicit ObjectListing(PTPTransactions& device) : device_(device) {}

  /// Appends the handles, each once, by as few transactions as it takes.
  [[nodiscard]] Status handles(const ListingQuery& query, ObjectHandles& handles);
  /// Gives each object with its information as soon as it is known, and once; one without
  /// information counts as of any format. What turns up while the others are read is there, too.
  [[nodiscard]] Status visit(const ListingQuery& query, const Visitor& visitor);
  /// The information of an object, also where the device knows it only after its folder was listed.
  ReadInfo find(std::uint32_t handle);

 private:
  /// `read` is null for an object that was not looked at; false ends the list.
  using Found = std::function<bool(std::uint32_t handle, const ReadInfo* read)>;

  [[nodiscard]] Status list(const ListingQuery& query, const Found& found);
  /// `ask` for each store that the query means.
  [[nodiscard]] Status eachStore(const ListingQuery& query,
                                 const std::function<Status(std::uint32_t)>& ask);
  [[nodiscard]] Status listStore(std::uint32_t store, std::uint16_t format, const Found& found);
  /// All that there is, until nothing more turns up.
  [[nodiscard]] Status giveAll(std::uint32_t store, ObjectHandles& all, const Found& found);
  [[nodiscard]] Status listFolder(const ListingQuery& query, std::uint32_t store,
                                  const Found& found);
  /// All that the device names at once. `isAll`: nothing is left for a walk through the folders.
  [[nodiscard]] Status listAtOnce(std::uint32_t store, ObjectHandles& handles, bool& isAll);
  /// As listHandles(), or of every format where the device does not choose.
  [[nodiscard]] Status listMembers(std::uint32_t store, std::uint16_t format, std::uint32_t folder,
                                   ObjectHandles& handles);
  [[nodiscard]] Status walk(std::uint32_t store, const ObjectHandles& top, bool isDeep,
                            const Found& found);
  /// Gives those that were not given yet.
  void give(const ObjectHandles& handles, const Found& found);

  PTPTransactions& device_;
  std::unordered_set<std::uint32_t> seen_;
  bool readsObjects_ = false;
  bool hasEnded_ = false;
};

// The pictures of a PTP device: how many, which, and how large.

/// Whether a format is one of pictures: by its bits 15 to 8, 0x38 of the standard (ISO 15740,
/// "Object formats") or 0xB8 of a vendor. Films, sounds and text are none.
bool isPictureFormat(std::uint16_t format);

/// Main thread only.
///
/// A device is first asked for all its pictures at once, as the standard lets it; one that answers
/// nothing to that is asked for each picture format that its DeviceInfo lists.
class DevicePictures {
 public:
  /// `device` is lent.
  explicit DevicePictures(PTPTransactions& device) : device_(device) {}

  /// On all stores; 0 where the device does not answer.
  std::int32_t count();
  /// Handles in the order of the device; kAllStores names every store. None on failure.
  std::optional<ObjectHandles> handles(std::uint32_t store);
  /// Size in bytes by handle in decimal digits, of every picture on all stores: by
  /// XTO_GET_PICTURE_FILE_SIZES alone, where the answer has a size for each handle; else also by
  /// the information of each object, which a picture that has none is left out for.
  PropertyDictionary fileSizes();

 private:
  /// Sizes that go with `handles`, in their order; none where the two do not match.
  std::optional<std::vector<std::uint32_t>> listedSizes(const ObjectHandles& handles);

  PTPTransactions& device_;
};

}  // namespace tarvo
