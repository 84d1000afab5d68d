#include "library/access/ObjectSelection.h"

#include <fnmatch.h>
#include <glib.h>

#include <algorithm>
#include <utility>

#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"

namespace tarvo::library {

Operands::Operands(const std::vector<std::string>& texts, bool ignoresCase, bool findsFolders)
    : ignoresCase_(ignoresCase), findsFolders_(findsFolders) {
  for (const auto& text : texts)
    operands_.push_back({text, text.find_first_of("*?[") != std::string::npos});
}

bool Operands::areComplete() const {
  return std::ranges::all_of(
      operands_, [](const Operand& each) { return each.wasMatched && !each.isPattern; });
}

Operands::Meant Operands::match(const Operand& operand, std::string_view name,
                                const std::string& path) const {
  const bool hasSlash = operand.text.find('/') != std::string::npos;
  const std::string compared = hasSlash ? path : std::string(name);
  if (operand.isPattern) {
    // As in a shell: a star stops at a slash, and finds no hidden name.
    const int flags = FNM_PATHNAME | FNM_PERIOD | (ignoresCase_ ? FNM_CASEFOLD : 0);
    return ::fnmatch(operand.text.c_str(), compared.c_str(), flags) == 0 ? Meant::kYes
                                                                         : Meant::kNot;
  }
  if (compared == operand.text) return Meant::kYes;
  const bool isNear = ignoresCase_ && operand.kept == kNone &&
                      g_ascii_strcasecmp(compared.c_str(), operand.text.c_str()) == 0;
  return isNear ? Meant::kNearly : Meant::kNot;
}

Operands::Meant Operands::take(std::string_view name, const std::string& path, bool isFolder) {
  Meant meant = Meant::kNot;
  bool isNear = false;
  for (auto& operand : operands_) {
    const bool isSpent = operand.isPattern ? isFolder && !findsFolders_ : operand.wasMatched;
    const Meant by = isSpent ? Meant::kNot : match(operand, name, path);
    if (by == Meant::kYes) operand.wasMatched = true;
    if (by == Meant::kNearly) operand.kept = kept_.size();
    isNear = isNear || by == Meant::kNearly;
    meant = std::max(meant, by);
  }
  // Empty where another operand means it, too: it is given once.
  if (isNear) kept_.emplace_back();
  return meant;
}

void Operands::keep(std::optional<ObjectInfo> object) { kept_.back() = std::move(object); }

void Operands::finish(const std::function<void(const ObjectInfo&)>& give,
                      const std::function<void(const std::string&)>& unmatched) const {
  auto left = kept_;
  for (const auto& operand : operands_) {
    if (operand.wasMatched) continue;
    if (operand.kept == kNone) {
      unmatched(operand.text);
    } else if (const auto object = std::exchange(left[operand.kept], std::nullopt)) {
      give(*object);
    }
  }
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

}  // namespace tarvo::library
