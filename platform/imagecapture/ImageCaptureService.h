// The Image Capture service of this process: PTP cameras and mounted USB volumes as objects.
//
// The sources find devices and describe them, the object table numbers them, the registrations hear
// of them, a channel per camera carries their messages, and the contents know their files.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Utilities/LogSink.h"
#include "platform/foundation/MountTable.h"
#include "platform/imagecapture/DeviceContents.h"
#include "platform/imagecapture/DeviceSources.h"
#include "platform/imagecapture/ImageCapture.h"
#include "platform/imagecapture/ObjectTable.h"
#include "platform/imagecapture/ptp/PTPConnection.h"
#include "platform/iokit/Registry.h"

namespace tarvo {

/// Main thread only. What it was made with must outlive it; it is the mount table's one watcher.
/// Nothing is looked for, opened or sent before a client asks for it. What is there by then is
/// announced to nobody.
class ImageCaptureService : public ImageCapture, private DeviceSink {
 public:
  ImageCaptureService(Registry& registry, MountTable& mounts, ptp::PTPConnector& connector,
                      LogSink log);
  ImageCaptureService(const ImageCaptureService&) = delete;
  ImageCaptureService& operator=(const ImageCaptureService&) = delete;
  /// Scopes may outlive the service; events end with it.
  ~ImageCaptureService() override;

  Status getDeviceList(ICAObject& list) override;
  Status getObjectInfo(ICAObject object, ICAObjectInfo& info) override;
  Status getChildCount(ICAObject object, std::uint32_t& count, Status& headerErr) override;
  Status getNthChild(ICAObject parent, std::uint32_t index, ICAChildInfo& child) override;
  Status copyObjectPropertyDictionary(ICAObject object, PropertyDictionary& dictionary) override;
  Status copyObjectProperty(ICAObject object, std::string_view key,
                            PropertyDictionary& value) override;
  void forgetContents(ICAObject device) override;
  /// kICAInvalidObject or kICADeviceGone for an object that is not there. Types that this service
  /// never sends may be registered, too.
  Status registerForEventNotification(ICAObject object, FourCharCode type,
                                      EventCallback callback) override;
  /// kBadParameter for "pass" without a record or with one that does not fit together, kUnsupported
  /// for other message types, kICAInvalidObject for a volume, for 'del1' of what is no file, and
  /// for any other message to one. 'del1' of a volume's file: kFileNotFound and kWriteNotPermitted,
  /// too.
  Status objectSendMessage(ICAObjectSendMessagePB& block) override;
  Status getPropertyByType(ICAObject object, FourCharCode type, ICAPropertyInfo& info) override;
  /// Only volumes have a property: their label.
  Status getPropertyData(ICAObject object, FourCharCode type, std::string& data) override;
  /// Of a file of a camera or a volume; kNotAFile for a folder, kICAInvalidObject for anything
  /// else. Errors as for downloadObject().
  Status downloadFile(ICAObject object, const std::string& folder, std::string& path) override;
  /// For a camera the interface is claimed before this returns; the session waits for the first
  /// operation that needs it.
  std::unique_ptr<ICAScope> openScope(ICAObject device, Status* failure, std::string* why) override;

 private:
  // What the sources tell.
  ICAObject deviceCame(FoundDevice device) override;
  void deviceWent(ICAObject object) override;

  /// Does `work` while the camera's channel is held; inside a scope that costs nothing.
  /// kICAInvalidObject for a volume.
  [[nodiscard]] Status withChannel(
      ICAObject device, const std::function<Status(PTPChannel& channel, std::string* why)>& work);
  [[nodiscard]] Status sendMessage(ICAObjectSendMessagePB& block);
  [[nodiscard]] Status deleteFile(const FileObject& file);
  /// Where a volume is mounted; empty for a camera.
  std::string mountPointOf(ICAObject device) const;
  /// Loads `key` of a device where it has not been.
  [[nodiscard]] Status loadProperty(ICAObject object, std::string_view key);

  // Events of cameras are watched exactly while somebody is registered for them.
  void updateWatching(const DeviceObject& device);
  void cameraReported(ICAObject object, const ptp::Event& event);

  /// Looks for devices from the first time on that somebody asks for them or wants to hear of them.
  void look();

  Registry& registry_;
  MountTable& mounts_;
  /// Handed to each camera's channel.
  ptp::PTPConnector& connector_;
  LogSink log_;
  ObjectTable objects_;
  DeviceContents contents_;
  /// Registrations of an object go with it.
  EventRegistrations events_;
  // The sources speak to the members above as soon as they are made, so they come last.
  std::optional<PTPSource> cameras_;
  std::optional<VolumeSource> volumes_;
};

}  // namespace tarvo
