// The Image Capture service of this process: PTP cameras and mounted USB volumes as objects.
//
// The sources find devices and describe them, the object table numbers them, the registrations hear
// of them, a channel per camera carries their messages, and the contents know their files.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Utilities/LogSink.h"
#include "platform/foundation/MountTable.h"
#include "platform/imagecapture/DeviceContents.h"
#include "platform/imagecapture/DeviceSources.h"
#include "platform/imagecapture/ImageCapture.h"
#include "platform/imagecapture/PTPChannel.h"
#include "platform/imagecapture/ptp/PTPConnection.h"
#include "platform/iokit/Registry.h"

namespace tarvo {

// The objects that the service shows, the device list and the devices in it, and who has registered
// for their events.

/// A device with what its messages need.
struct DeviceObject {
  ICAObject handle = 0;
  PropertyDictionary dictionary;
  std::shared_ptr<PTPChannel> channel;  ///< null for a volume

  bool isVolume() const { return channel == nullptr; }
};

/// Main thread only.
class ObjectTable {
 public:
  /// Handle of the list of devices.
  static constexpr ICAObject kDeviceList = 1;

  /// Gives the device a handle that was never used before.
  const DeviceObject& add(PropertyDictionary dictionary, std::shared_ptr<PTPChannel> channel);
  /// Takes the device off the table; an empty object when it is not there.
  DeviceObject remove(ICAObject handle);
  /// Null when `handle` is no device. Valid until the next add() or remove().
  const DeviceObject* device(ICAObject handle) const;
  DeviceObject* device(ICAObject handle) {
    return const_cast<DeviceObject*>(std::as_const(*this).device(handle));
  }
  /// In order of arrival.
  const std::vector<DeviceObject>& devices() const { return devices_; }
  /// Whether it is the device list or one of the devices.
  bool contains(ICAObject handle) const { return handle == kDeviceList || device(handle); }
  /// What to answer where device() gave null: kICADeviceGone for a device that went, otherwise
  /// kICAInvalidObject.
  [[nodiscard]] Status statusOfMissing(ICAObject handle) const;

 private:
  std::vector<DeviceObject> devices_;
  /// What lies between the list and this one, and is not in the table, is a device that went.
  ICAObject lastHandle_ = kDeviceList;
};

// Who wants to hear of which events.

/// Main thread only. A callback may register, end registrations and send messages.
class EventRegistrations {
 public:
  explicit EventRegistrations(LogSink log) : log_(std::move(log)) {}

  /// One callback for each object (0: any) and type; an empty one ends the registration.
  void set(ICAObject object, FourCharCode type, ImageCapture::EventCallback callback);
  /// Calls who is registered for the event's object, then who is registered for any. An exception
  /// is logged and keeps the event from nobody else.
  void deliver(const ICAEvent& event) const;
  /// Whether an event of this type of the object would be heard by anybody.
  bool hears(ICAObject object, FourCharCode type) const {
    return callbacks_.contains({object, type}) || callbacks_.contains({0, type});
  }
  /// Ends every registration of the object.
  void forget(ICAObject object);

 private:
  /// Calls who is registered for `registered`, which is the event's object or 0.
  void deliverTo(ICAObject registered, const ICAEvent& event) const;

  LogSink log_;
  /// An empty function never stands here.
  std::map<std::pair<ICAObject, FourCharCode>, ImageCapture::EventCallback> callbacks_;
};

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
