// The inside of a device that is held: a camera or a volume, and whose session it is of.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "NativeServices/PictureDevice/operations/ObjectDownloads.h"
#include "NativeServices/PictureDevice/operations/VolumeFiles.h"
#include "library/access/OpenedDevice.h"
#include "platform/files/FolderTree.h"
#include "tarvo/Device.h"

namespace tarvo {

class DeviceState {
 public:
  /// Opens; raises as Session::open(), and for a volume that cannot be read.
  DeviceState(std::shared_ptr<SessionState> session, DeviceInfo info);
  ~DeviceState();
  DeviceState(const DeviceState&) = delete;
  DeviceState& operator=(const DeviceState&) = delete;

  const std::shared_ptr<SessionState>& session() const { return session_; }
  const DeviceInfo& info() const { return info_; }
  bool isCamera() const { return info_.kind() == DeviceKind::kCamera; }
  /// Raises kUnsupported for a volume.
  library::OpenedDevice& camera();
  /// The same for a camera.
  const FolderTree& volume() const;

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
  std::optional<library::OpenedDevice> camera_;
  std::optional<FolderTree> volume_;
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
