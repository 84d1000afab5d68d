// The inside of a device that is held: a camera or a volume, and whose session it is of.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/operations/ObjectDownloads.h"
#include "NativeServices/PictureDevice/operations/VolumeFiles.h"
#include "library/access/OpenedDevice.h"
#include "library/access/OpenedVolume.h"
#include "tarvo/Device.h"

namespace tarvo {

struct DeviceInfo::Data {
  library::DeviceSummary summary;
  std::string description;
};

struct ObjectInfo::Data {
  /// Of a volume: what a camera would tell.
  std::shared_ptr<const XTExtendedObjectInfo> info;
  std::uint32_t handle = 0;
  std::string name{};  ///< of a volume: the bytes of the file system
  std::string path{};
  std::uint64_t size = 0;
  std::optional<std::time_t> modified{};
  FolderWalk::Kind kind = FolderWalk::Kind::kFile;
};

struct StoreInfo::Data {
  std::uint32_t id = 0;
  std::shared_ptr<const PTPStorageInfo> info;  ///< null where the slot is empty
};

struct PropertyInfo::Data {
  PTPPropertyDescription description;
};

namespace library {

DeviceInfo deviceInfo(DeviceSummary summary);

}  // namespace library

class DeviceState {
 public:
  /// Opens; raises as Session::open().
  DeviceState(std::shared_ptr<SessionState> session, library::DeviceSummary summary);
  ~DeviceState();
  DeviceState(const DeviceState&) = delete;
  DeviceState& operator=(const DeviceState&) = delete;

  const std::shared_ptr<SessionState>& session() const { return session_; }
  const DeviceInfo& info() const { return info_; }
  bool isCamera() const { return info_.kind() == DeviceKind::kCamera; }
  /// Raises kUnsupported for a volume.
  library::OpenedDevice& camera();
  /// The same for a camera.
  library::OpenedVolume& volume();

  /// Where a walk of the volume stands while an object of it is visited; null at any other time.
  const FolderWalk* walk = nullptr;
  std::string walkPath{};
  VolumeCopy copy;
  /// Of a camera; keeps memory from one object to the next.
  ObjectFetch& fetch();

 private:
  void close();

  std::shared_ptr<SessionState> session_;
  DeviceInfo info_;
  std::unique_ptr<library::OpenedDevice> camera_;
  std::unique_ptr<library::OpenedVolume> volume_;
  std::optional<ObjectFetch> fetch_;
};

namespace library {

/// A call to a device.
template <typename Work>
auto called(const std::shared_ptr<DeviceState>& state, const char* operation, const Work& work) {
  // A callback may let go of the device.
  const auto kept = state;  // NOLINT(performance-unnecessary-copy-initialization)
  return entered(kept->session(), operation, [&] { return work(*kept); });
}

/// The same to a camera.
template <typename Work>
auto asked(const std::shared_ptr<DeviceState>& state, const char* operation, const Work& work) {
  return called(state, operation, [&](DeviceState& device) { return work(device.camera()); });
}

}  // namespace library
}  // namespace tarvo
