// The inside of a device that is held: a camera or a volume, and whose session it is of.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "NativeServices/PictureDevice/operations/ObjectDownloads.h"
#include "NativeServices/PictureDevice/operations/ObjectListing.h"
#include "NativeServices/PictureDevice/operations/VolumeFiles.h"
#include "Utilities/ByteBuffer.h"
#include "library/access/SessionState.h"
#include "platform/files/FolderTree.h"
#include "platform/imagecapture/ImageCapture.h"
#include "tarvo/Device.h"

namespace tarvo {

class XTImageCapturePTPDevice;

namespace library {

/// A camera. Main thread only. The interface is claimed and the session open while it lives.
class OpenedDevice {
 public:
  /// Opens it. Raises for a device that another process holds, that may not be opened, that is
  /// silent or that does not speak PTP. One that is held is waited for a moment: the agent looks at
  /// each arrival. `session` is lent.
  OpenedDevice(SessionState& session, DeviceInfo info);
  OpenedDevice(const OpenedDevice&) = delete;
  OpenedDevice& operator=(const OpenedDevice&) = delete;

  XTImageCapturePTPDevice& device() const { return *device_; }
  PTPTransactions& transactions() const;
  const DeviceInfo& info() const { return info_; }
  SessionState& session() const { return session_; }

  /// `status` of an operation of this device, or what the transport says in its place: a device
  /// that has gone is no "general error".
  [[nodiscard]] Status explained(Status status) const;
  /// Whether nothing more can be had from the device, or wanted.
  bool isLost(Status status) const;
  /// What went wrong with `object`.
  Failure failure(const std::string& object, Status status, std::string why = {}) const;
  /// Raises unless `status` is 0 or the PTP OK.
  void require(Status status, const std::string& object = {}) const;
  /// Raises unless `bytes` are there, which it gives.
  std::vector<std::byte> require(const std::optional<ByteBuffer>& bytes,
                                 const std::string& object) const;
  /// The same where the operation gave nothing and no status.
  [[noreturn]] void failWithout(const std::string& object) const;
  /// Raises an error about `what` where the device does not tell the handles.
  ObjectHandles objectHandles(const ListingQuery& query, const std::string& what) const;

 private:
  SessionState& session_;
  DeviceInfo info_;
  std::unique_ptr<ICAScope> scope_;
  std::shared_ptr<XTImageCapturePTPDevice> device_;
};

}  // namespace library

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

/// An object of a camera, with what it has told.
ObjectInfo cameraObject(std::uint32_t handle, ObjectInfoPointer info, std::string path);
/// One of a volume; without attributes nothing is known but its name and kind.
ObjectInfo volumeObject(const FolderWalk::Entry& entry,
                        const std::optional<struct stat>& attributes);

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
