// Where an object lies: the names of the folders above it, asked of the device no more than needed.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "NativeServices/PictureDevice/operations/ObjectListing.h"

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

}  // namespace tarvo::tools
