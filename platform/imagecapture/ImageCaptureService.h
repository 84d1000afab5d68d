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
#include <string_view>
#include <utility>
#include <vector>

#include "Utilities/LogSink.h"
#include "Utilities/PropertyDictionary.h"
#include "platform/foundation/MountTable.h"
#include "platform/imagecapture/DeviceContents.h"
#include "platform/imagecapture/ImageCapture.h"
#include "platform/imagecapture/PTPChannel.h"
#include "platform/imagecapture/ptp/PTPConnection.h"
#include "platform/imagecapture/ptp/USBDevice.h"
#include "platform/iokit/Registry.h"

namespace tarvo {

// Where the devices of the service come from: PTP interfaces of the device registry, and mounted
// volumes of removable USB disks. Each source tells the service, as its sink, what came and went.

/// A device as its source describes it.
struct FoundDevice {
  PropertyDictionary dictionary;  ///< as copyObjectPropertyDictionary gives it
  /// The interface that its messages go to; none for a volume.
  std::optional<ptp::USBInterfaceAddress> interface;
};

/// Main thread only.
class DeviceSink {
 public:
  virtual ~DeviceSink() = default;
  /// Makes an object of the device and tells who is registered for it.
  /// The handle is never 0; listeners have been called when it is returned.
  virtual ICAObject deviceCame(FoundDevice device) = 0;
  /// Ends the object, tells who is registered for it, and lets the registrations go with it.
  virtual void deviceWent(ICAObject object) = 0;
};

/// Properties of the USB device above a registry entry; none when there is no such ancestor.
/// It is the nearest ancestor with a "USB Product Name", so that a hub is never taken for the
/// device.
std::optional<PropertyDictionary> usbDeviceAbove(Registry& registry, ServiceHandle service);

/// The dictionary that every device starts with: its name, its module and the identity of the USB
/// device behind it. "capa" is empty until the capabilities have been read from the device.
PropertyDictionary deviceDictionary(const std::string& name, std::string_view module,
                                    const PropertyDictionary& usbDevice);

// Finds PTP cameras: every USB interface of class 6, subclass 1, protocol 1 is a device, whoever
// made it.

/// Main thread only.
/// The triple is that of the USB Still Image Capture Device Definition: base class 6, subclass
/// 1, protocol 1.
class PTPSource {
 public:
  /// Reports what is there at once, and what comes and goes while it lives.
  /// Both must outlive the source. Devices that are there when it goes are not reported as gone.
  PTPSource(Registry& registry, DeviceSink& sink, LogSink log);

 private:
  /// Called for what is found and for what is announced; one that is known already is left alone.
  void interfaceCame(ServiceHandle service);
  /// Its properties cannot be read any more; the handle is enough.
  void interfaceWent(ServiceHandle service);
  /// None for an interface that has lost its device or its place by now.
  std::optional<FoundDevice> describe(ServiceHandle service);

  Registry& registry_;
  DeviceSink& sink_;
  LogSink log_;
  // Handles are what tells an interface that is found and announced as well from two.
  std::map<ServiceHandle, ICAObject> devices_;
  /// Last, so that no callback comes once the members above have gone.
  std::unique_ptr<RegistrySubscription> subscription_;
};

// Finds volumes: every filesystem on a USB disk that is mounted directly in the volumes folder is a
// device, a camera's when it holds a folder DCIM.

/// Main thread only. The one watcher of the mount table.
/// Volumes are compared by device and mount point, so that a card changed for another in the same
/// folder is a new device.
class VolumeSource {
 public:
  /// Reports what is mounted at once, and what comes and goes while it lives.
  /// What it was made with must outlive it; its end ends the watching.
  VolumeSource(Registry& registry, MountTable& mounts, DeviceSink& sink, LogSink log);
  ~VolumeSource();
  VolumeSource(const VolumeSource&) = delete;
  VolumeSource& operator=(const VolumeSource&) = delete;

 private:
  /// A mount in the volumes folder.
  struct Volume {
    Mount mount;
    ICAObject object;  // 0 for one that is no device, kept so that it is examined once only
  };

  /// Compares the table with what is known. The kernel says that something changed, never what.
  void mountsChanged();
  /// Remembers the mount, and reports it if it is a device.
  void volumeCame(const Mount& mount);
  /// What is seen in the volumes folder now, each folder once.
  std::vector<Mount> volumesMounted() const;
  /// Last component of a path directly in the volumes folder; empty for any other.
  std::string nameOfVolume(std::string_view mountPoint) const;
  /// None for what is not mounted from a disk on USB.
  std::optional<FoundDevice> describe(const Mount& mount);

  Registry& registry_;
  MountTable& mounts_;
  DeviceSink& sink_;
  LogSink log_;
  /// As the table stood at its last change, those that are no devices included.
  std::vector<Volume> volumes_;
};

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
