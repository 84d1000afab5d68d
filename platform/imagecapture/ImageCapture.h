// The Image Capture service: devices as objects with property dictionaries, messages to them, and
// events about devices and stores that come and go.
//
// A PTP interface is a device with module "PTPCamera.app"; a mounted removable USB volume is one
// with module "MassStorageCamera.app" when it holds a folder DCIM, else "MassStorage.app". Keys of
// a device's dictionary: "ifil" (name), "device module" (path), "idVendor", "idProduct",
// "locationID" (unsigned numbers), "capa" (array of codes); on volumes "volume" and "bsdName";
// "tree" and "data" where they are loaded.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "Utilities/FourCharCode.h"
#include "Utilities/PropertyDictionary.h"
#include "Utilities/Status.h"
#include "platform/imagecapture/PTPPassThroughPB.h"

namespace tarvo {

/// Last components of the module paths by which clients tell the classes of devices apart.
namespace device_module {
inline constexpr std::string_view kPTPCamera = "PTPCamera.app";
inline constexpr std::string_view kMassStorageCamera = "MassStorageCamera.app";
inline constexpr std::string_view kMassStorage = "MassStorage.app";
}  // namespace device_module

/// Handle of a device, folder or file; 0 is none. A handle is never used twice.
using ICAObject = std::uint32_t;

/// Four-character codes of the service. First the types of objects: a list of devices, a device,
/// and the subtype of all devices.
namespace ica {
inline constexpr FourCharCode kObjectList = fourCharCode("objl");
inline constexpr FourCharCode kDevice = fourCharCode("icdv");
inline constexpr FourCharCode kCamera = fourCharCode("cmra");
/// On a device: a folder, or a file that is a picture or something else.
inline constexpr FourCharCode kDirectory = fourCharCode("dire");
inline constexpr FourCharCode kFile = fourCharCode("file");
inline constexpr FourCharCode kPictureFile = fourCharCode("imag");
inline constexpr FourCharCode kOtherFile = fourCharCode("othr");

/// Types of events. kExtended stands for what a device reports by itself.
inline constexpr FourCharCode kDeviceAdded = fourCharCode("edea");
inline constexpr FourCharCode kDeviceRemoved = fourCharCode("eder");
inline constexpr FourCharCode kStoreAdded = fourCharCode("esta");
inline constexpr FourCharCode kStoreRemoved = fourCharCode("estr");
inline constexpr FourCharCode kExtended = fourCharCode("extd");
/// An added device once more, for who watches beside the one that is registered for kDeviceAdded.
inline constexpr FourCharCode kICANotificationTypeDeviceAdded = fourCharCode("nadd");

/// Types of messages, with the data type of "pass"; then the one property of a volume and its type.
inline constexpr FourCharCode kMessagePass = fourCharCode("pass");
inline constexpr FourCharCode kMessageSyncClock = fourCharCode("sclk");
inline constexpr FourCharCode kMessageDelete = fourCharCode("del1");
inline constexpr FourCharCode kDataTypeData = fourCharCode("data");
inline constexpr FourCharCode kPropertyVolumeLabel = fourCharCode("voll");
inline constexpr FourCharCode kDataTypeText = fourCharCode("TEXT");
}  // namespace ica

/// What an object is: one of the codes above for its type and its subtype.
struct ICAObjectInfo {
  FourCharCode objectType = 0;
  FourCharCode objectSubtype = 0;
};

/// A member of an object, as getNthChild gives it.
struct ICAChildInfo {
  ICAObject object = 0;
  ICAObjectInfo info;
};

/// Type of a property's value and its size in bytes, as getPropertyData gives it.
struct ICAPropertyInfo {
  FourCharCode dataType = 0;
  std::size_t dataSize = 0;
};

/// The object-send-message parameter block.
/// The caller owns it and what it points to; the service keeps nothing of it after the call.
struct ICAObjectSendMessagePB {
  Status headerErr = 0;  ///< platform status of the message, filled in
  ICAObject object = 0;
  FourCharCode messageType = 0;
  std::uint32_t startByte = 0;
  PTPPassThroughRecord* data = nullptr;  ///< for "pass", lent; null otherwise
  std::uint32_t dataSize = 0;
  FourCharCode dataType = 0;
  std::uint32_t result = 0;
};

/// The object of a removal is off the device list already; its handle names it still.
struct ICAEvent {
  ICAObject object = 0;
  FourCharCode type = 0;
  /// "ifil" (name of what the event concerns) where the event has one. Of kExtended: "code" (PTP
  /// event code), "session", "transaction" (numbers) and "params" (array of at most 3 numbers).
  PropertyDictionary dictionary = PropertyDictionary::object();
};

/// Keeps a device's interface and session open while it lives.
/// Gives them back when it goes. Scopes may overlap, and a device may go while one lives: its
/// operations then answer kICADeviceGone.
class ICAScope {
 public:
  virtual ~ICAScope() = default;
};

/// Main thread only. Callbacks run from the main loop. Statuses: kICAInvalidObject for a handle
/// that names nothing or nothing of the needed kind; kICADeviceGone for a device that went;
/// kICADeviceBusy, kICAAccessDenied, kICADeviceGone, kICATimeout, kICAProtocolError and kIOError as
/// the transport gives them; kICATransactionRunning for a message to a PTP device that is begun
/// while another one to it runs, from a sink, a source or a progress callback that lets the main
/// loop run. A device that goes then ends that message as it would at any other time.
class ImageCapture {
 public:
  using EventCallback = std::function<void(const ICAEvent&)>;

  virtual ~ImageCapture() = default;

  /// The object that lists all devices.
  [[nodiscard]] virtual Status getDeviceList(ICAObject& list) = 0;
  /// `info` is left alone on failure.
  [[nodiscard]] virtual Status getObjectInfo(ICAObject object, ICAObjectInfo& info) = 0;
  /// `headerErr` is the parameter block's own error beside the call's status.
  /// The list has the devices for children; what lies on a device is not counted.
  [[nodiscard]] virtual Status getChildCount(ICAObject object, std::uint32_t& count,
                                             Status& headerErr) = 0;
  /// `index` from 0, in order of arrival. kICAInvalidObject beyond the last.
  [[nodiscard]] virtual Status getNthChild(ICAObject parent, std::uint32_t index,
                                           ICAChildInfo& child) = 0;
  /// A copy of the dictionary, which the caller may change.
  [[nodiscard]] virtual Status copyObjectPropertyDictionary(ICAObject object,
                                                            PropertyDictionary& dictionary) = 0;
  /// One value of the dictionary, loaded from the device where it is not there yet: "capa", "data"
  /// and "tree" of a PTP device are read on first need and are part of the dictionary then, until
  /// forgetContents(). kICAPropertyNotFound where there is no such key, otherwise as
  /// objectSendMessage(); `value` is left alone on failure.
  [[nodiscard]] virtual Status copyObjectProperty(ICAObject object, std::string_view key,
                                                  PropertyDictionary& value) = 0;
  /// What was loaded of a device's contents is stale: it is read again on the next need.
  virtual void forgetContents(ICAObject device) = 0;

  /// Registers for an event type of one object (0: any). Replaces the earlier registration of the
  /// same object and type; an empty callback ends it. A device that goes takes its registrations
  /// with it once its removal has been delivered. The events that a PTP device reports by itself
  /// are read while kExtended is registered for it and a scope on it lives; kStoreAdded and
  /// kStoreRemoved are told from among them.
  [[nodiscard]] virtual Status registerForEventNotification(ICAObject object, FourCharCode type,
                                                            EventCallback callback) = 0;

  /// "pass": one PTP transaction, the session opened and closed around it unless a scope lives;
  /// 'sclk': sets the device's clock to local time; 'del1': deletes the file object whose handle
  /// came with "icao". The result is also left in `block.headerErr`.
  [[nodiscard]] virtual Status objectSendMessage(ICAObjectSendMessagePB& block) = 0;

  /// kICAPropertyNotFound where the object has no such property; `info` is left alone then.
  [[nodiscard]] virtual Status getPropertyByType(ICAObject object, FourCharCode type,
                                                 ICAPropertyInfo& info) = 0;
  /// The value itself: for 'voll' the volume's name, UTF-8. Errors as for getPropertyByType.
  [[nodiscard]] virtual Status getPropertyData(ICAObject object, FourCharCode type,
                                               std::string& data) = 0;

  /// Downloads a file object into `folder` under its own name; `path` is the file that was made.
  [[nodiscard]] virtual Status downloadFile(ICAObject object, const std::string& folder,
                                            std::string& path) = 0;

  /// Opens a scope on a device: interface claimed, session open on first need. Null on failure,
  /// with the cause in `*failure` and, in words, `*why`. A device without an interface to claim (a
  /// volume) gives a scope that does nothing.
  virtual std::unique_ptr<ICAScope> openScope(ICAObject device, Status* failure,
                                              std::string* why) = 0;
};

}  // namespace tarvo
