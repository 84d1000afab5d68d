// The picture device that stands for one Image Capture object.
//
// The class side watches Image Capture, inspects each device that comes, chooses the class that
// represents it and enters the finished device in the registry; what goes leaves the registry.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "NativeServices/PictureDevice/datasets/XTPTPDataSet.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "NativeServices/PictureDevice/operations/DataPhases.h"
#include "Utilities/ByteBuffer.h"
#include "Utilities/Status.h"
#include "platform/imagecapture/ImageCapture.h"
#include "platform/imagecapture/PTPPassThroughPB.h"

namespace tarvo {

inline constexpr std::string_view kStoreAddedNotification = "StoreAdded";
inline constexpr std::string_view kStoreRemovedNotification = "StoreRemoved";

/// Main thread only. All but the registry's look-ups need a PictureDeviceRoom.
class XTImageCaptureDevice : public XTPictureDevice {
 public:
  // Registration. Each raises "ICARegisterEventNotification" when Image Capture refuses, but
  // registerForStoreRemovedEvent(), which only traces.

  /// Registers for arrivals, once, and inspects what is there.
  static void registerDeviceAddedNotifications();
  /// Each of these replaces an earlier registration for the same object, and ends with the object.
  static void registerForDeviceRemovedEvent(ICAObject object);
  static void registerForStoreAddedEvent(ICAObject object);
  static void registerForStoreRemovedEvent(ICAObject object);

  // Enumeration and inspection.

  /// Inspects every device that Image Capture lists; one that raises does not stop the others.
  static void checkForDevicesAtStartup(bool ignored = false);
  /// Names of the devices that Image Capture lists; `classes`, where given, gets the name of the
  /// class of each where its module has one, `objects` the handles. None when Image Capture fails.
  static std::optional<std::vector<std::string>> icaDevices(std::vector<std::string>* classes,
                                                            std::vector<ICAObject>* objects);
  /// The camera at `index` of the device list; 0 when that child is no camera.
  static ICAObject cameraObjectAtIndex(std::uint32_t index, ICAObject deviceList);
  /// Copies the property dictionary and inspects the device; nothing when it has gone meanwhile.
  /// Raises as completeDeviceInspection().
  static void primeICADevice(ICAObject object);
  /// Registers for the device's removal, builds the device and enters it in the registry. The
  /// interface is let go before the device is announced. An interface that somebody else holds is
  /// tried again later when the device is of the maker.
  static void completeDeviceInspection(ICAObject object, const PropertyDictionary& properties);
  /// The device for an Image Capture object, loaded; null when it is none of ours or cannot be
  /// read. `why`, where given, says it in words then. Raises what the codec and the vendor queries
  /// of a PTP device raise.
  static std::shared_ptr<XTImageCaptureDevice> deviceFromICAObject(
      ICAObject object, const PropertyDictionary* properties, std::string* why = nullptr);
  /// The registered device of an object, or null. Safe without a room.
  static std::shared_ptr<XTImageCaptureDevice> deviceWithICAObject(ICAObject object);
  /// Volume label of an object; none when it has none.
  static std::optional<std::string> getICADeviceName(ICAObject object);

  // Events.

  /// Schedules the inspection half a second from now, unless the device is known or waits already.
  static void deviceAdded(ICAObject object);
  /// Drops what is scheduled, marks the device disconnected and takes it out of the registry.
  static void deviceRemoved(ICAObject object);
  /// A card came or went: the device forgets what it has read, and "StoreAdded" or "StoreRemoved"
  /// is posted with it.
  static void storeAdded(ICAObject object);
  static void storeRemoved(ICAObject object);

  // The instance side.

  /// Binds to the object and loads the device information. 0, or the failing status, after which
  /// the device is of no use.
  [[nodiscard]] Status initObject(ICAObject object);
  /// 0 until initObject().
  ICAObject icaObject() const { return icaObject_; }
  /// As last copied from Image Capture.
  const std::optional<PropertyDictionary>& icaDictionary() const { return icaDictionary_; }
  /// Copies the property dictionary when it is absent or dirty. 0, -36 without an object, or the
  /// status of Image Capture.
  [[nodiscard]] Status refreshIcaDictionary();
  /// Sends a message; the one door to the device. 0 when the service accepted it (the PTP response
  /// is in the block's record), 0x2002 on a disconnected device, or the status of Image Capture.
  [[nodiscard]] virtual Status icaObjectSendMessage(ICAObjectSendMessagePB& block);
  /// Forgets what was read from the stores, here and in the service, so that it is read again on
  /// next use.
  void storesChanged();
  /// From now on what the device reports by itself goes to handlePTPEvent(), from the main loop and
  /// while somebody holds a scope on the device. The status of Image Capture, traced where it is a
  /// failure.
  [[nodiscard]] Status registerForExtendedEvents();
  /// Ends that.
  void unregisterForExtendedEvents();
  /// Appends to `list` every file below `node` (a dictionary with "tree") whose "ifil" ends with
  /// `suffix`; case matters. The number of the node's own children.
  std::size_t parseTreeForFiles(const PropertyDictionary& node, std::string_view suffix,
                                ObjectReferences& list);
  /// Downloads every ".MRK" file below `node`, each to a temporary folder of its own, and appends
  /// its path, which belongs to the caller with the folder, to `list`. One that cannot be
  /// downloaded is traced and passed over. The number of the node's own children.
  std::size_t parseTreeForOrderFiles(const PropertyDictionary& node,
                                     std::vector<std::string>& list);
  /// Whether the device's USB vendor id is the maker's.
  bool isOfMaker() const;
  /// Why the last message failed in the service; 0 when it did not.
  Status lastMessageStatus() const { return lastMessageStatus_; }

  std::string_view className() const override { return "XTImageCaptureDevice"; }
  std::string description() const override;
  /// True for one of the same object, too, whatever the device said of itself at each inspection.
  bool isSameDeviceAs(const XTPictureDevice& other) const override;
  /// The name, which stands for the model too. -36 without a dictionary or a name.
  Status loadDeviceInfoUncached() override;
  /// Pictures are the elements under "data" of the dictionary, as it is now; without one there are
  /// none.
  std::int32_t imageCount() override;
  std::optional<ObjectReferences> pictureFiles() override;
  /// Sets the device's clock to this host's time. -1400 on a device without the capability 'sclk';
  /// otherwise as icaObjectSendMessage(), or why the capabilities cannot be read.
  Status setDateTime() override;
  /// Deletes the object behind "icao", which leaves the list of pictures. kICAInvalidObject for an
  /// object without one; otherwise as icaObjectSendMessage().
  Status deleteObject(const ObjectReference& object) override;
  /// From the object's dictionary: "tsiz", "isiz" (both bytes, 0 where missing) and "ifil". An
  /// object that is no dictionary is a failed assertion of objectSize().
  std::int64_t thumbSize(const ObjectReference& object) override;
  std::int64_t objectSize(const ObjectReference& object) override;
  std::optional<std::string> objectFilename(const ObjectReference& object) override;
  std::optional<ByteBuffer> downloadObject(const ObjectReference&) override { return std::nullopt; }
  Status deleteFilesOfType(std::uint16_t) override { return status::kOK; }
  /// Paths of all marker files, downloaded as parseTreeForOrderFiles() does.
  std::optional<std::vector<std::string>> orderFiles() override;
  /// From the marker files, each through downloadFile(). None as soon as one fails.
  std::optional<EmailOrders> emailOrderList() override;
  std::optional<PrintOrders> printOrderList() override;
  /// Deletes all marker files; the first failure.
  Status deleteOrderFiles() override;
  /// A device that does not speak PTP has no lists, which is no missing implementation.
  const CodeList* opCodeList() override { return nullptr; }
  const CodeList* eventCodeList() override { return nullptr; }
  const CodeList* propertyList() override { return nullptr; }
  const CodeList* captureFormatList() override { return nullptr; }
  const CodeList* imageFormatList() override { return nullptr; }
  Status displayOnDevice(std::string_view, std::string_view, std::string_view, std::string_view,
                         std::string_view, std::string_view) override {
    return status::kOK;
  }

 protected:
  XTImageCaptureDevice() = default;

  /// `device` bound to `object` and loaded, or null with the status in `*failure` (where given).
  /// A status of the service, which says more, stands in for the PTP status that it led to.
  template <typename Device>
  static std::shared_ptr<Device> initialized(const std::shared_ptr<Device>& device,
                                             ICAObject object, Status* failure) {
    Status status = device->initObject(object);
    if (status != status::kOK && device->lastMessageStatus() != status::kOK) {
      status = device->lastMessageStatus();
    }
    if (failure) *failure = status;
    return status == status::kOK ? device : nullptr;
  }

  /// What the dictionary has under `key` ("capa", "data", "tree"), which the service reads from the
  /// device at the first need; null where there is nothing, with the cause in `*failure` (where
  /// given). Valid until the next refresh.
  const PropertyDictionary* loadedProperty(const std::string& key, Status* failure = nullptr);
  /// What is known of pictures and files does not hold any more.
  void forgetContents();

  ICAObject icaObject_ = 0;
  std::optional<PropertyDictionary> icaDictionary_;
  /// The copy is stale: the next refresh fetches it again.
  bool icaDictionaryDirty_ = true;

 private:
  /// The marker files of the device; `failure` says why they cannot be known.
  ObjectReferences markerFiles(Status& failure);
  /// Downloads each marker file that `isWanted` for `parse`, until one of both fails.
  [[nodiscard]] Status eachMarkerFile(bool (*isWanted)(std::string_view),
                                      const std::function<Status(const std::string& path)>& parse);
  /// Dictionary of an event of the type kExtended.
  void extendedEvent(const PropertyDictionary& event);

  /// Keys that were asked for since the dictionary was copied.
  std::set<std::string> loadedKeys_;
  Status lastMessageStatus_ = status::kOK;
};

// One PTP transaction over Image Capture's pass-through message, in the shape that all operations
// share.
//
//   PassThroughTransaction transaction({.method = "storageIDs",
//                                       .operation = ptp::kGetStorageIDs,
//                                       .dataUsageMode = kDataFromDevice,
//                                       .room = 128});
//   if (!transaction.run(device)) return transaction.outcome();
//   auto ids = transaction.reader().scanUInt32Array();
//
// Data sets are small and lie in the record. The bytes of an object do not: they go straight to a
// sink or come straight from a source.

class XTImageCaptureDevice;

/// In which lines a failure is traced, each behind a text of the operation.
enum class FailureTrace : std::uint8_t {
  kHeaderAndResult,       ///< "... objectSendMessagePB.header.err: ", "... result N: resultCode: "
  kStatusAndResponse,     ///< "... status N response 0xN"
  kHeaderAndResultInOne,  ///< "... objectSendMessagePB.header.err: , result N: resultCode: "
};

/// What a transaction is made of. `data` is lent to the constructor only, `sink` and `source` until
/// run() returns.
struct PTPRequest {
  /// Name of the operation in "... couldn't get an ICA object".
  std::string method;
  /// What the two failure lines begin with; `method` where empty.
  std::string headerFailure{};
  std::string resultFailure{};
  std::uint16_t operation = 0;
  std::vector<std::uint32_t> parameters{};  ///< at most 4
  std::uint32_t responseParameters = 0;     ///< wanted
  /// Which way the data phase goes; without one none of the next four counts.
  PTPDataUsageMode dataUsageMode = kNoData;
  std::size_t room = 0;               ///< bytes that may be received, also into `sink`
  std::span<const std::byte> data{};  ///< to send
  ptp::DataSink* sink = nullptr;      ///< takes what is received in place of the record
  ptp::DataSource* source = nullptr;  ///< gives what is sent in place of `data`
  /// Reason of the malloc exception; lent to the constructor.
  const char* mallocFailure = "malloc failed.";
  FailureTrace failureTrace = FailureTrace::kHeaderAndResult;
  /// A response code that is an answer like any other: it is no success, but is not traced.
  std::uint16_t untracedResponse = 0;
};

/// Main thread only.
/// The record lies in one allocation with the room for the data phase, and is sent once.
class PassThroughTransaction {
 public:
  /// Rooms up to this size, in bytes, lie in the record and are cleared. A size that a device
  /// claims may be any: a larger room costs only what arrives in it.
  static constexpr std::size_t kLargestClearedRoom = std::size_t{1} << 20;
  /// No list is longer: 16 million objects have room in it. Sinks may take more.
  static constexpr std::size_t kLargestRoom = std::size_t{1} << 26;

  /// Raises the malloc exception, also for more room than the largest, and for 4 GiB and more into
  /// a sink or from a source, which no record can announce.
  explicit PassThroughTransaction(PTPRequest request);
  PassThroughTransaction(const PassThroughTransaction&) = delete;
  PassThroughTransaction& operator=(const PassThroughTransaction&) = delete;

  /// Sends it to `device`; true when the device answered OK. Any other end is traced.
  bool run(XTImageCaptureDevice& device);

  /// 0 after success; 0x2003 without an Image Capture object; -490 when this side ended it; else
  /// the response code, 0x2002 where there is none, or the message's status where the response was
  /// OK all the same.
  Status outcome() const;
  /// What sending the message returned.
  Status status() const { return status_; }
  /// The parameter block's own error.
  Status headerErr() const { return headerErr_; }
  /// 0 before run().
  std::uint32_t responseCode() const { return record_.pb().resultCode; }
  /// `index` is 0 to 3; one that the device left out reads as 0.
  std::uint32_t responseParameter(std::size_t index) const { return record_.pb().params[index]; }

  /// Bytes of the data phase: what the service says of a receive, what was announced of a send.
  std::uint32_t dataSize() const { return record_.pb().dataSize; }
  /// What the device sent, at most the room; nothing where it went into a sink.
  std::span<const std::byte> received() const;
  /// A little-endian reader over the whole room, which was cleared: a short answer reads as zeros.
  /// Of a room that was too large to be cleared only what was received can be read. Valid as long
  /// as the transaction.
  XTPTPDataSet reader() const;
  /// The same over the first `length` bytes of the room at most.
  XTPTPDataSet reader(std::size_t length) const;
  /// True, and traced, when `reader` has gone beyond what the device sent.
  bool wasShort(const XTPTPDataSet& reader) const;

  /// Gives the record up to the caller; the transaction is of no use afterwards.
  PTPPassThroughRecord takeRecord() { return std::move(record_); }

 private:
  /// Makes a sink of our own for a large room.
  void makeLargeRoom();
  void traceFailure() const;

  PTPRequest request_;
  PTPPassThroughRecord record_;
  /// The data phase where the room is larger than the record's own may be.
  ByteBuffer largeData_;
  std::unique_ptr<BufferSink> largeSink_;
  Status status_ = status::kOK;
  Status headerErr_ = status::kOK;
  /// False until a device with an Image Capture object got the message.
  bool hadObject_ = false;
};

}  // namespace tarvo
