#include "tools/access/ObjectPaths.h"

namespace tarvo::tools {
namespace {

/// Deeper than any device goes; a device that puts two folders into each other has no end.
constexpr int kDeepest = 16;

}  // namespace

std::string ObjectPaths::pathOf(const XTExtendedObjectInfo& info) {
  return folderPath(info.parentObject(), 0) + info.fileName();
}

std::string ObjectPaths::folderPath(std::uint32_t handle, int depth) {
  // Devices name the root in either way.
  if (handle == 0 || handle == 0xFFFFFFFF || depth == kDeepest) return {};
  if (const auto known = folders_.find(handle); known != folders_.end()) return known->second;
  const auto info = readInfo(device_, handle).info;
  std::string path;
  if (info) path = folderPath(info->parentObject(), depth + 1) + info->fileName() + "/";
  return folders_[handle] = path;
}

}  // namespace tarvo::tools
