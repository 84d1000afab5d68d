// What lies on the devices of the service: loaded on first need, shown in their dictionaries,
// and reachable by a handle for each file and folder.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Utilities/Status.h"
#include "platform/imagecapture/ImageCapture.h"
#include "platform/imagecapture/PTPChannel.h"
#include "platform/imagecapture/PTPObjectReader.h"

namespace tarvo {

/// Whether a file of that name is a picture or a film: by its extension, without regard to case,
/// and never a hidden one. Any thread.
bool isPictureName(std::string_view name);

/// A file or folder of a volume.
struct VolumeObject {
  PTPObject object{};  ///< handle and parent number the objects of one reading; name is UTF-8
  std::string path{};  ///< below the mount point, bytes as the file system has them
};

/// All files and folders below `mountPoint`; links and other mounts are left out, and so is what
/// cannot be read. kICADeviceGone where nothing can be read there; kOutOfMemory for more than a
/// dictionary can hold with sense (100,000).
[[nodiscard]] Status readVolume(const std::string& mountPoint, std::vector<VolumeObject>& objects);

/// Copies a file into `folder` under its own name; kinds of failure as for downloadObject(), and
/// kFileNotFound for a file that is not there.
[[nodiscard]] Status copyFromVolume(const std::string& mountPoint, const VolumeObject& file,
                                    const std::string& folder, std::string& path);

/// kFileNotFound where it is not there, kWriteNotPermitted where it cannot be removed.
[[nodiscard]] Status removeFromVolume(const std::string& mountPoint, const std::string& path);

/// A file or folder of a device, as the service knows it.
struct FileObject {
  ICAObject handle = 0;
  ICAObject device = 0;
  PTPObject object{};
  std::string path{};  ///< on a volume, below its mount point; empty on a camera

  /// "ifil", "icao", "isiz" and "tsiz".
  PropertyDictionary dictionary() const;
};

/// Pictures and folders of one device as its dictionary has them.
///
/// "data": the pictures in the device's order. "tree": what lies at the top; a folder has a "tree"
/// of its own. A folder that lies in itself, in a file, in nothing that is there, or too deep for
/// anybody's recursion is shown at the top.
PropertyDictionary pictureList(const std::vector<FileObject>& files);
PropertyDictionary folderTree(const std::vector<FileObject>& files);

/// Main thread only.
class DeviceContents {
 public:
  /// Handles of files are told from those of devices by their size.
  static constexpr ICAObject kFirstFile = 0x80000000;

  /// Whether load() has something to do for `key` in the dictionary of a PTP device.
  bool isMissing(ICAObject device, const PropertyDictionary& dictionary,
                 std::string_view key) const;
  /// Reads "capa", or "data" and "tree", into the device's dictionary; it is left alone on failure.
  /// The caller holds the channel. Files get new handles, and those that the device's had go.
  /// Errors as in PTPObjectReader.h, and kOutOfMemory when there are no handles left.
  [[nodiscard]] Status load(ICAObject device, PTPChannel& channel, std::string_view key,
                            PropertyDictionary& dictionary, std::string* why);

  /// The same for "data" and "tree" of a volume. Errors as for readVolume().
  [[nodiscard]] Status loadVolume(ICAObject device, const std::string& mountPoint,
                                  PropertyDictionary& dictionary);

  /// What was loaded is read again on the next need. Files can still be named until then.
  void forget(ICAObject device, PropertyDictionary& dictionary);
  /// The device's files are not what they were, or not there.
  void dropFiles(ICAObject device);
  void dropFile(ICAObject handle) { files_.erase(handle); }
  /// The device went.
  void dropDevice(ICAObject device);

  /// Null when `handle` names no file or folder. Valid until the next change.
  const FileObject* file(ICAObject handle) const {
    const auto found = files_.find(handle);
    return found == files_.end() ? nullptr : &found->second;
  }

 private:
  [[nodiscard]] Status loadCapabilities(ICAObject device, PTPChannel& channel,
                                        PropertyDictionary& dictionary, std::string* why);
  [[nodiscard]] Status loadFiles(ICAObject device, PTPChannel& channel,
                                 PropertyDictionary& dictionary, std::string* why);

  /// Gives the files handles, and shows them in the dictionary.
  [[nodiscard]] Status take(std::vector<FileObject> files, ICAObject device,
                            PropertyDictionary& dictionary);

  std::set<ICAObject> withCapabilities_;
  std::map<ICAObject, FileObject> files_;
  ICAObject nextFile_ = kFirstFile;
};

}  // namespace tarvo
