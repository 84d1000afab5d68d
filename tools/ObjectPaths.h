// Where an object lies: the names of the folders above it, asked of the device no more than needed.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "NativeServices/PictureDevice/PTPTransactions.h"

namespace tarvo::tools {

/// Main thread only.
class ObjectPaths {
 public:
  /// `device` is lent.
  explicit ObjectPaths(PTPTransactions& device) : device_(device) {}

  /// "DCIM/100TARVO/TARV0001.JPG". A folder that cannot be read, or that lies in itself, is left
  /// out.
  std::string pathOf(const XTExtendedObjectInfo& info);

 private:
  /// With a slash at its end; empty for the root.
  std::string folderPath(std::uint32_t handle, int depth);

  PTPTransactions& device_;
  std::map<std::uint32_t, std::string> folders_;
};

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

}  // namespace tarvo::tools
