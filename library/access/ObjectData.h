// How the public values of objects are made, and what visits them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "NativeServices/PictureDevice/operations/ObjectListing.h"
#include "library/access/DeviceState.h"
#include "tarvo/Objects.h"

namespace tarvo {

struct ObjectQuery::Data {
  bool isRecursive = false;
  std::uint16_t format = 0;
  std::uint32_t store = 0;
  std::uint32_t folder = 0;
  std::optional<std::string> path{};  ///< of a folder on a volume; none: all that there is
  bool namesOnly = false;
};

struct ObjectChoice::Data {
  std::vector<std::string> names{};
  bool ignoresCase = false;
  bool findsFolders = false;  ///< by patterns
  Others others = Others::kNone;
  bool namesOnly = false;
};

struct ObjectVisitor::Data {
  std::function<bool(const ObjectInfo&, bool)> onObject{};
  std::function<bool(std::uint32_t, const std::string&, const Error&)> onUnreadable{};
  std::function<void(const std::string&)> onUnmatched{};
  std::function<void()> onLooked{};
};

namespace library {

ListingQuery listingQuery(const ObjectQuery::Data& query);
ObjectInfo cameraObject(std::uint32_t handle, ObjectInfoPointer info, std::string path);
ObjectInfo volumeObject(const FolderWalk::Entry& entry,
                        const std::optional<struct stat>& attributes);

void visitObjects(DeviceState& device, const ObjectQuery& query, const ObjectVisitor& visitor);
std::uint64_t visitObjects(DeviceState& device, const ObjectChoice& choice,
                           const ObjectVisitor& visitor);

}  // namespace library
}  // namespace tarvo
