// What UDisks2 knows of the disks, as far as unmounting and ejecting need it.
#pragma once

#include <gio/gio.h>

#include <string>
#include <string_view>
#include <vector>

namespace tarvo {

namespace udisks2 {
inline constexpr const char* kService = "org.freedesktop.UDisks2";
inline constexpr const char* kManagerPath = "/org/freedesktop/UDisks2";
inline constexpr const char* kBlock = "org.freedesktop.UDisks2.Block";
inline constexpr const char* kFilesystem = "org.freedesktop.UDisks2.Filesystem";
inline constexpr const char* kDrive = "org.freedesktop.UDisks2.Drive";
}  // namespace udisks2

/// A block device: a disk or a partition of one. Texts are empty where there is no such thing.
struct BlockObject {
  std::string path;    ///< of the object
  std::string device;  ///< its node, "/dev/sdb1"
  std::string drive;   ///< object path of the drive that holds it
  bool hasFilesystem = false;
  std::vector<std::string> mountPoints;

  /// The kernel's name of it, "sdb1".
  std::string bsdName() const { return device.substr(device.rfind('/') + 1); }
};

/// The block devices among the managed objects, type "a{oa{sa{sv}}}". Properties of another type
/// than they should have count as absent.
std::vector<BlockObject> blockObjects(GVariant* managedObjects);

/// The block device of that kernel name ("sdb1"); null where there is none. The name of an object
/// is no help: UDisks2 escapes it.
const BlockObject* blockNamed(const std::vector<BlockObject>& blocks, std::string_view bsdName);

}  // namespace tarvo
