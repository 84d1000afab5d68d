// A mounted card or camera volume as a picture device: its pictures are files, named by their
// paths.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "NativeServices/PictureDevice/devices/XTImageCaptureDevice.h"
#include "NativeServices/PictureDevice/operations/VolumeFiles.h"
#include "Utilities/FileDescriptor.h"

namespace tarvo {

/// Main thread only.
///
/// It is the class that icaDevices() names for "MassStorage.app", while deviceFromICAObject() makes
/// an XTImageCaptureMSCDevice. Object references are full paths; one that is none is a
/// failed assertion. Links on the volume are neither pictures nor followed, and other mounts below
/// it are not entered.
class XTImageCaptureVolume : public XTImageCaptureDevice {
 public:
  /// A device bound to `object` and loaded. Never null: a volume that is not mounted is a device
  /// without a path. Raises where the object has no dictionary.
  static std::shared_ptr<XTImageCaptureVolume> withICAObject(ICAObject object, Status* failure);

  std::string_view className() const override { return "XTImageCaptureVolume"; }
  /// Finds where the volume is mounted. Always 0. Without a dictionary an assertion fails.
  Status loadDeviceInfo() override;
  /// None when it is not mounted.
  const std::optional<std::string>& volumePath() const { return volumePath_; }

  /// Pictures below volumePath(), without which an assertion fails. What cannot be read is traced
  /// and passed over.
  std::int32_t imageCount() override;
  /// Their full paths, ascending byte by byte; all in memory at once.
  std::optional<ObjectReferences> pictureFiles() override;
  /// Whether its owner may not write it, or it is immutable. False where there is no such file.
  bool isProtected(const ObjectReference& path) override;
  /// In bytes, the low 32 bits. Where there is no such file an assertion fails, as in the base.
  std::int64_t objectSize(const ObjectReference& path) override;
  std::optional<std::string> objectFilename(const ObjectReference& path) override;
  /// As far as the file can be told of; see fillInObjInfo().
  std::shared_ptr<XTExtendedObjectInfo> objectInfoForHandle(const ObjectReference& path) override;
  /// Copies a file to a new one at `destination`, as VolumeCopy does, with the progress callback
  /// asked on the way. -48 where there is one, -490 when cancelled, -36 otherwise.
  Status downloadImage(const ObjectReference& path, const std::string& destination) override;
  /// 0: nothing is transferred. So for the next three.
  [[nodiscard]] Status downloadVolumeObject(const ObjectReference& path);
  Status sendFile(const std::string&, std::uint32_t, std::uint32_t, std::uint32_t*) override {
    return status::kOK;
  }
  Status deleteFilesOfType(std::uint16_t) override { return status::kOK; }
  Status deleteOrderFiles() override { return status::kOK; }
  /// Removes a file or a link. -43 where there is none, -61 where it cannot be removed, as a
  /// folder.
  Status deleteObject(const ObjectReference& path) override;

 protected:
  XTImageCaptureVolume() = default;

 private:
  /// Calls `onPicture` with the path of each, relative to the volume.
  void eachPicture(const char* operation,
                   const std::function<void(const std::string& path)>& onPicture) const;
  /// A path on the volume without the volume's own; none for any other path.
  std::optional<std::string> pathOnVolume(const std::string& path) const;
  /// The file at a path, for reading; links on the volume are not followed.
  FileDescriptor openSource(const std::string& path) const;

  std::optional<std::string> volumePath_;
  VolumeCopy copy_;
};

}  // namespace tarvo
