#include "library/access/ObjectSelection.h"

#include <fnmatch.h>

#include <algorithm>
#include <optional>
#include <set>

#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/Numbers.h"
#include "library/access/OpenedDevice.h"

namespace tarvo::library {
namespace {

bool isPattern(const std::string& operand) {
  return operand.find_first_of("*?[") != std::string::npos;
}

/// One run over the objects.
class Selection {
 public:
  Selection(OpenedDevice& device, const std::vector<std::string>& operands, bool all,
            const SelectionVisitor& visitor)
      : device_(device), all_(all), visitor_(visitor), paths_(device.transactions()) {
    for (const auto& operand : operands) {
      if (const auto handle = numberOf(operand, 0xFFFFFFFF)) {
        handles_.push_back(static_cast<std::uint32_t>(*handle));
      } else {
        names_.push_back({operand, isPattern(operand)});
      }
    }
  }

  void run() {
    // Handles first: they cost one question each, names the whole listing.
    for (const std::uint32_t handle : handles_) {
      if (!visitor_.goesOn()) return;
      visit(handle, ObjectListing(device_.transactions()).find(handle), true);
    }
    if (names_.empty() && !all_) return;
    const Status listed = ObjectListing(device_.transactions())
                              .visit({}, [this](std::uint32_t handle, const ReadInfo& read) {
                                visit(handle, read, false);
                                // A name without a pattern is done with when it is found, which may
                                // be long before the end.
                                return visitor_.goesOn() && !isComplete();
                              });
    if (!visitor_.goesOn()) return;
    device_.require(listed, "the objects");
    for (const auto& name : names_) {
      if (!name.wasMatched) visitor_.onUnmatched(name.text);
    }
  }

 private:
  struct Name {
    std::string text;
    bool isPattern = false;
    bool wasMatched = false;
  };

  /// Whether only names were asked for and each has its object.
  bool isComplete() const {
    return !all_ && std::ranges::all_of(names_, [](const Name& name) {
      return name.wasMatched && !name.isPattern;
    });
  }

  void visit(std::uint32_t handle, const ReadInfo& read, bool isChosen) {
    // One whose content is missing comes a second time.
    if (!visited_.insert(handle).second && read.info) return;
    if (!read.info) {
      visitor_.onUnreadable(handle, read.status, read.why);
      return;
    }
    const std::string path = paths_.pathOf(*read.info);
    const bool isNamed = isChosen || isMeant(*read.info, path);
    if (isNamed || (all_ && !isFolder(*read.info)))
      visitor_.onObject(handle, read.info, path, isNamed);
  }

  bool isMeant(const XTExtendedObjectInfo& info, const std::string& path) {
    const bool folder = isFolder(info);
    bool wanted = false;
    for (auto& name : names_) {
      const bool hasFound = name.wasMatched && !name.isPattern;
      if (hasFound || (folder && name.isPattern)) continue;
      if (!matches(name, info.fileName(), path)) continue;
      name.wasMatched = true;
      wanted = true;
    }
    return wanted;
  }

  static bool matches(const Name& name, const std::string& fileName, const std::string& path) {
    const std::string& compared = name.text.find('/') == std::string::npos ? fileName : path;
    if (!name.isPattern) return compared == name.text;
    // As in a shell: a star stops at a slash, and finds no hidden name.
    return ::fnmatch(name.text.c_str(), compared.c_str(), FNM_PATHNAME | FNM_PERIOD) == 0;
  }

  OpenedDevice& device_;
  bool all_;
  const SelectionVisitor& visitor_;
  ObjectPaths paths_;
  std::vector<std::uint32_t> handles_;
  std::vector<Name> names_;
  std::set<std::uint32_t> visited_;
};

}  // namespace

void visitSelection(OpenedDevice& device, const std::vector<std::string>& operands, bool all,
                    const SelectionVisitor& visitor) {
  Selection(device, operands, all, visitor).run();
}

namespace {

/// Deeper than any device goes; a device that puts two folders into each other has no end.
constexpr int kDeepest = 16;

}  // namespace

std::string ObjectPaths::pathOf(const XTExtendedObjectInfo& info) {
  return folderPath(info.parentObject(), 0) + info.fileName();
}

std::string ObjectPaths::folderPath(std::uint32_t handle, int depth) {
  // Devices name the root in either way.
  if (handle == 0 || handle == ListingQuery::kTop || depth == kDeepest) return {};
  // Each folder is asked for once in a run.
  if (const auto known = folders_.find(handle); known != folders_.end()) return known->second;
  const auto info = readInfo(device_, handle).info;
  std::string path;
  if (info) path = folderPath(info->parentObject(), depth + 1) + info->fileName() + "/";
  return folders_[handle] = path;
}

std::size_t nameLength(const std::string& name) { return utf16FromUTF8(name).size(); }

}  // namespace tarvo::library
