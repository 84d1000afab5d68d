// The abstract base of every picture device: identity, capabilities and caches, the class side of
// the device registry, and the interface that concrete classes implement.
//
//   for (const auto& device : XTPictureDevice::deviceList()) use(device->name());
//
// Devices are never made by plain construction: a concrete class makes them and enters them in the
// registry with cache().
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "NativeServices/PictureDevice/datasets/AddressBook.h"
#include "NativeServices/PictureDevice/datasets/AddressBookValidation.h"
#include "NativeServices/PictureDevice/datasets/Orders.h"
#include "NativeServices/PictureDevice/operations/DataPhases.h"
#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "NativeServices/PictureDevice/operations/ReadingReport.h"
#include "Utilities/ByteBuffer.h"
#include "Utilities/FourCharCode.h"
#include "Utilities/LogSink.h"
#include "Utilities/Object.h"
#include "Utilities/PropertyDictionary.h"
#include "Utilities/Status.h"
#include "platform/desktop/Desktop.h"
#include "platform/foundation/MakerConstants.h"
#include "platform/foundation/MountTable.h"
#include "platform/foundation/NotificationCenter.h"
#include "platform/foundation/RunLoop.h"
#include "platform/foundation/UserDefaults.h"
#include "platform/imagecapture/ImageCapture.h"
#include "platform/imagecapture/PTPPassThroughPB.h"
#include "platform/iokit/Registry.h"

namespace tarvo {

// The process-wide state of the picture devices. The owner of the process makes one and holds it
// for its life; while it lives, the class operations of the devices reach it.

class XTPictureDevice;

inline constexpr std::string_view kDeviceAddedNotification = "DeviceAdded";
inline constexpr std::string_view kDeviceRemovedNotification = "DeviceRemoved";

/// Main thread only.
///
/// The registry shares each device with whoever got it from the list: a device that has left lives
/// on, disconnected, until the last of them lets it go.
class DeviceRegistry {
 public:
  using DeviceList = std::vector<std::shared_ptr<XTPictureDevice>>;

  DeviceRegistry(NotificationCenter& center, NotificationQueue& queue, RunLoop& runLoop,
                 LogSink log)
      : center_(center), queue_(queue), runLoop_(runLoop), log_(std::move(log)) {}
  ~DeviceRegistry() { *alive_ = false; }
  DeviceRegistry(const DeviceRegistry&) = delete;
  DeviceRegistry& operator=(const DeviceRegistry&) = delete;

  /// In the order of arrival. Valid until the next change; observers take a copy.
  const DeviceList& devices() const { return deviceSet_; }

  /// Appends the device and announces it, unless one that is the same device is there already,
  /// which is logged. What an observer raises is logged and passed on; the device stays in the
  /// list.
  void add(const std::shared_ptr<XTPictureDevice>& device);
  /// Ends the device's observing, announces its removal and drops it; nothing for a device that is
  /// not in the list. What an observer raises is passed on after the device has been dropped.
  void remove(XTPictureDevice& device);
  /// Drops every device without a notification.
  void clear() { deviceSet_.clear(); }

  /// Posts the notification about `device` as the posting style says: when the main loop is idle,
  /// with the style that holds then, or at once.
  void notify(std::string_view name, XTPictureDevice& device);

  /// kWhenIdle while discovery runs at the start, so that the observers are called when all of it
  /// is known; kNow otherwise.
  PostingStyle discoveryNotificationPostingStyle = PostingStyle::kNow;

 private:
  /// From the loop: the second half of a deferred notify().
  void postAtIdleTime(const Notification& notification);

  NotificationCenter& center_;
  NotificationQueue& queue_;
  RunLoop& runLoop_;
  LogSink log_;
  DeviceList deviceSet_;
  /// Tells deferred calls that their registry has gone.
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

// Inspections of Image Capture devices that wait for their time: the half second after an arrival,
// and the retries while somebody else holds the device's interface.

/// Main thread only. At most one inspection of an object waits; destroying this drops them all.
///
/// A timer of the main loop waits for each, none of them repeats, and none is left when nothing
/// waits.
class PendingInspections {
 public:
  explicit PendingInspections(RunLoop& runLoop) : runLoop_(runLoop) {}
  ~PendingInspections();
  PendingInspections(const PendingInspections&) = delete;
  PendingInspections& operator=(const PendingInspections&) = delete;

  /// Whether an inspection of the object is scheduled.
  bool isWaiting(ICAObject object) const;
  /// Calls `inspect` once after `delay`. Replaces what waits for the same object.
  void schedule(ICAObject object, std::chrono::milliseconds delay, std::function<void()> inspect);
  /// Counts a retry and gives its number, from 1 on; 0 once `limit` retries have been counted since
  /// the last forget().
  int countRetry(ICAObject object, int limit);
  /// Drops what waits for the object, and its count of retries.
  void forget(ICAObject object);

 private:
  void cancelTimer(ICAObject object);

  RunLoop& runLoop_;
  /// Only timers that have not fired.
  std::map<ICAObject, std::shared_ptr<Timer>> timers_;
  /// Of objects whose interface was refused, until forget().
  std::map<ICAObject, int> retries_;
};

/// What the picture devices use of the platform; lent for the life of the room.
struct PictureDeviceServices {
  NotificationCenter& center;
  NotificationQueue& queue;
  RunLoop& runLoop;
  ImageCapture& imageCapture;
  Registry& registry;
  MountTable& mounts;
  RunningApplications& applications;
  const UserDefaults& defaults;
  const MakerConstants& maker;
  LogSink log;
  /// The 8-bit encoding of text files on devices and cards, by the name that iconv has for it.
  std::string defaultEncoding = "UTF-8";
};

/// Main thread only. Destroying it drops every device and everything that is scheduled.
///
///   PictureDeviceRoom room({center, queue, loop, imageCapture, registry, mounts, applications,
///                           defaults, maker, log});
///   XTPictureDevice::registerAllNotifications();
///
/// Devices and callbacks may outlive it: what they need of it they look up anew each time.
class PictureDeviceRoom {
 public:
  /// Becomes the current room.
  explicit PictureDeviceRoom(PictureDeviceServices services);
  ~PictureDeviceRoom();
  PictureDeviceRoom(const PictureDeviceRoom&) = delete;
  PictureDeviceRoom& operator=(const PictureDeviceRoom&) = delete;

  /// The room that lives now; null when there is none.
  static PictureDeviceRoom* current();
  /// The same where there must be one; raises an assertion otherwise.
  static PictureDeviceRoom& required();
  /// The Image Capture service of the required room.
  static ImageCapture& imageCapture() { return required().services().imageCapture; }

  /// The services are of the platform and outlive the room.
  const PictureDeviceServices& services() const { return services_; }
  DeviceRegistry& deviceRegistry() { return deviceRegistry_; }
  PendingInspections& pendingInspections() { return pendingInspections_; }

  /// Set after the device-added event has been registered.
  bool registeredForDeviceAdded = false;
  /// Selects the asynchronous inspection, which yields no device; never set.
  bool gEnableAsyncDeviceInspection = false;

 private:
  PictureDeviceServices services_;
  DeviceRegistry deviceRegistry_;
  PendingInspections pendingInspections_;
};

class PTPTransactions;
class XTExtendedObjectInfo;
struct OrderContext;
struct PTPStorageInfo;

/// Names an object on a device, as its class understands it: a PTP object handle (number), an
/// Image Capture object dictionary, or the path of a file on a volume.
using ObjectReference = PropertyDictionary;
using ObjectReferences = std::vector<ObjectReference>;

/// What the base stores of a device; the field names are those of the device records.
struct PictureDeviceFields {
  std::string deviceName;
  std::string deviceManufacturer;
  std::string deviceModel;
  std::string deviceVersion;
  std::string deviceSerialNumber;  ///< with the manufacturer it identifies a physical device
  std::string deviceIcon;          ///< encoded image; empty where there is none
  std::uint32_t vendorExtensionID = 0;
  DeviceCapabilities capabilities;

  std::optional<AddressBook> cachedAddressBook;
  std::optional<PropertyDictionary> cachedAlbumDict;
  bool deviceInfoLoaded = false;
  bool disconnected = false;
  std::uint32_t acquisitions = 0;  ///< downloads under way
  /// The standard or the vendor operation that sends objects; 0 until it was chosen.
  std::uint16_t sendObjectOpcode = 0;
  std::map<std::uint32_t, std::shared_ptr<XTExtendedObjectInfo>> objectInfoCache;
  std::map<std::uint32_t, std::uint32_t> orderAssetCounts;  ///< by order object handle
  /// None until read, and again after a card came or went.
  std::optional<std::vector<std::uint32_t>> storageIDCache;

  // Counts that size receive buffers; -1 is unknown.
  std::int32_t cachedImageCountForDatasetSizeEstimate = -1;
  std::int32_t cachedAlbumCountForDatasetSizeEstimate = -1;
  std::int32_t cachedEmailOrderCountForDatasetSizeEstimate = -1;
  std::int32_t cachedPrintOrderCountForDatasetSizeEstimate = -1;
  std::int32_t cachedTransferOrderCountForDatasetSizeEstimate = -1;
  std::int32_t cachedAudioAnnotationCountForDatasetSizeEstimate = -1;

  std::uint32_t cachedBragbookAssociationObject = 0;
  std::optional<std::string> cachedDefaultCollectionID;  ///< upper case
  std::optional<TransferOrder> cachedSquirtTransferFiles;
  std::optional<std::string> cachedUILanguage;
  std::optional<std::string> cachedDeviceLocalization;
  BadNicknameSet badNicknameSet;  ///< made on first use
  ProgressCallback downloadUpdateCb;
};

/// Main thread only.
/// Shared by the registry and whoever keeps a device. Once disconnected() a device answers from
/// what it has read and reaches nothing any more.
class XTPictureDevice : public Object {
 public:
  ~XTPictureDevice() override;

  // The class side.

  /// A copy of the registry, in its order; empty without a room.
  static std::vector<std::shared_ptr<XTPictureDevice>> deviceList();
  /// Starts discovery: at once, or, when the helper application launched this process, once
  /// "XTWirelessDeviceDestroyed" is posted. What is found meanwhile is announced from the main
  /// loop. Raises as XTImageCaptureDevice::registerDeviceAddedNotifications().
  static void registerAllNotifications();
  /// Empties the registry, without notifications.
  static void unregisterAllNotifications();
  /// Loads every registered device's information and returns the names that are not empty;
  /// `classes` and `devices`, where given, get the class name and the device of each.
  static std::vector<std::string> detectAllDevices(
      std::vector<std::string>* classes, std::vector<std::shared_ptr<XTPictureDevice>>* devices);
  /// The first with that serial number, or null. Vendors do not all give serial numbers: an empty
  /// one finds the first device without.
  static std::shared_ptr<XTPictureDevice> deviceWithSerialNumber(std::string_view serialNumber);
  /// The device at `index` if it has that name, else the first of that name, else null.
  static std::shared_ptr<XTPictureDevice> device(std::string_view name, std::size_t index);
  /// Always null: devices behind URLs are not supported.
  static std::shared_ptr<XTPictureDevice> deviceWithName(std::string_view name,
                                                         std::string_view url);
  /// See FileTypeTables.h.
  static FourCharCode OSTypeFromExt(std::string_view extension);
  static std::uint16_t PTPTypeFromExt(std::string_view extension);

  // Identity and registry.

  /// As devices are named in traces and in detectAllDevices().
  virtual std::string_view className() const = 0;
  /// "CLASS named NAME, model MODEL and serial# SERIAL".
  std::string description() const override;
  /// True for a device of exactly the same class, serial number and manufacturer. One without a
  /// serial number is the same as itself alone.
  virtual bool isSameDeviceAs(const XTPictureDevice& other) const;

  /// Enters the registry, which announces the device, unless the same device is there already.
  std::shared_ptr<XTPictureDevice> cache();
  /// Leaves the registry, which announces the removal; nothing when not in it.
  void uncache();
  void removeFromCache() { uncache(); }
  /// For the registry: trace and announce.
  void notifySelfAdded();
  void notifySelfRemoved();

  /// Loads the device information once; later calls answer 0. The status of
  /// loadDeviceInfoUncached().
  [[nodiscard]] virtual Status loadDeviceInfo();
  /// Drops the cached album names when "XTDeviceSerialNumber" names this device.
  void deviceWasSetupNotification(const Notification& notification);

  const std::string& name() const { return fields_.deviceName; }
  const std::string& manufacturer() const { return fields_.deviceManufacturer; }
  const std::string& model() const { return fields_.deviceModel; }
  const std::string& deviceVersion() const { return fields_.deviceVersion; }
  const std::string& serialNumber() const { return fields_.deviceSerialNumber; }
  const std::string& icon() const { return fields_.deviceIcon; }
  /// Whose vendor operations the device means (ISO 15740, DeviceInfo); 0 for none.
  std::uint32_t vendorExtensionID() const { return fields_.vendorExtensionID; }
  /// Set when the device was unplugged; never taken back.
  void setDisconnected(bool disconnected) { fields_.disconnected = disconnected; }
  bool disconnected() const { return fields_.disconnected; }

  // Capabilities.

  const DeviceCapabilities& capabilities() const { return fields_.capabilities; }
  bool supportsAddressBooks() const { return capabilities().deviceSupportsAddressBooks; }
  bool requiresYCC422() const { return capabilities().deviceRequiresYCC422; }
  bool supportsCapture() const { return capabilities().deviceSupportsCapture; }
  bool supportsIntention() const { return capabilities().deviceSupportsIntention; }
  bool supportsCameraBackDisplay() const { return capabilities().deviceSupportsCameraBackDisplay; }
  bool acceptsFiles() const { return capabilities().deviceAcceptsFiles; }
  /// Whether the device lists the query for vendor data sets.
  bool supportsCobaltDatasets();
  /// Whether it holds settings for a wireless network; asks the device.
  bool canBeWireless();
  /// Whether the device's share intentions have a bit of `mask`. Only a device in reach of a
  /// wireless network has any; asks the device.
  bool hasIntention(std::uint32_t mask);
  bool hasSyncIntention() { return hasIntention(1); }
  bool hasSquirtPrintIntention() { return hasIntention(4); }
  bool hasSquirtEmailIntention() { return hasIntention(8); }
  /// As the others, and only while the device is not in its dock.
  bool hasSquirtTransferIntention();
  /// Whether an operation may be sent: the three session operations always, others only when the
  /// device lists them, and vendor operations only to a device with the maker's extension.
  bool supportsOperation(std::uint16_t operation);

  // Names and settings that the device keeps. A getter gives 0 or no text where the device does not
  // list the property or does not answer; a setter 0x200A where it does not list it.

  std::optional<std::string> deviceID();
  /// Reads the property of deviceID(), while setDefaultHostID() writes one of its own.
  std::optional<std::string> defaultHostID();
  [[nodiscard]] Status setDefaultHostID(const std::string& guid);
  std::optional<std::string> deviceUserName();
  [[nodiscard]] Status setDeviceUserName(const std::string& name);
  /// The language that the user reads on this host, as the application has it; kept.
  std::string deviceLocalization();

  std::uint32_t UInt32Property(std::uint16_t property);
  std::uint16_t UInt16Property(std::uint16_t property);
  std::uint8_t UInt8Property(std::uint16_t property);
  std::optional<std::string> GUIDProperty(std::uint16_t property);
  /// From the property's description. A property that is no text is a failed assertion.
  std::optional<std::string> stringProperty(std::uint16_t property);
  [[nodiscard]] Status setPropertyGuid(std::uint16_t property, const std::string& guid);
  [[nodiscard]] Status setPropertyString(std::uint16_t property, const std::string& text);

  // Stores and objects in sum.

  /// "XTPictureDeviceInternalMemoryKey", "...InternalFreeKey" and "...InternalImagesKey" for fixed
  /// memory, the same with "Removable" for a card; none where there is neither. Sizes are the low
  /// 32 bits of the bytes.
  std::optional<PropertyDictionary> storageInfoDict();
  /// The size of each of pictureFiles(), in bytes, by its reference as text.
  virtual PropertyDictionary getPictureFileSizesDict();

  // Orders and the address book. What a device notes as files or as vendor data sets reads alike.

  /// Kept, unless the preference "XTPictureDeviceCacheAddressBook" is there and false. None where
  /// it cannot be read.
  std::optional<AddressBook> addressBookDict();
  /// What setAddressBookDict() would refuse in the book; none when it is valid for this device.
  std::optional<AddressBookError> validateAddressBookDict(const AddressBook& book);
  [[nodiscard]] Status validateAddressBook(const AddressBook& book);
  /// The order for transfer over a wireless network; kept. None on a device without such orders
  /// or without the intention; of handle 0 and without assets where there is none at the moment.
  std::optional<TransferOrder> squirtTransferFiles();
  /// The pictures that orders may be about now: those of squirtTransferFiles() while the device
  /// waits for that transfer, none where all may. Asks the device.
  std::optional<std::unordered_set<std::uint32_t>> allowedAssets();
  /// Puts the pictures of all e-mail and print orders before those of `order`; duplicates stay.
  void mergePrintAndEmailOrderAssetsIntoSquirtTransferAssets(TransferOrder& order);
  /// None where the device does not speak PTP. What could not be read is left out, which
  /// lastReading() tells.
  std::optional<EmailOrders> emailOrderListPTP();
  std::optional<PrintOrders> printOrderListPTP();
  /// Deletes marker files and, where the device keeps them, order data sets; the first failure.
  [[nodiscard]] Status deleteOrderFilesPTP();
  /// The contents of the marker files; those that cannot be read are left out.
  std::vector<ByteBuffer> orderFilesPTP();
  [[nodiscard]] Status setAddressBookDictPTP(AddressBook& book);
  /// XTO_MODIFY_ASSET_LIST: the picture is no longer one of those that the order waits for.
  [[nodiscard]] Status indicateFulfillmentPTP(std::uint32_t order, std::uint32_t asset);
  /// Pictures of the order for transfer that waits first; 0 without the intention.
  std::int32_t squirtTransferCountPTP();
  /// Of the last list of orders, of the last address book that was read from the device, and of the
  /// last one that was written.
  const ReadingReport& lastReading() const { return lastReading_; }
  const WritingReport& lastWriting() const { return lastWriting_; }
  /// Pictures of an order, as read from the device, by the order's handle.
  const std::map<std::uint32_t, std::uint32_t>& orderAssetCounts() const {
    return fields_.orderAssetCounts;
  }

  /// The id under which the device files what it gets by itself: a property or a file of it. Upper
  /// case, kept.
  std::optional<std::string> defaultCollectionID();
  /// None and empty take it away. 0x200A where the device has none.
  [[nodiscard]] Status setDefaultCollectionID(const std::optional<std::string>& collectionID);

  /// Sends a shoebox file. `resultHandle` is left alone on a device of the maker's own class.
  [[nodiscard]] Status sendShoeboxPTP(const std::string& path, std::uint32_t* resultHandle);
  /// -43 where the image cannot be read.
  [[nodiscard]] Status addImageToShoebox(const std::string& path);

  // Transfers. Where the device speaks PTP they are done by its operations; elsewhere -1400.

  /// Asked while a download runs; true cancels it.
  void setDownloadUpdateCb(ProgressCallback callback);
  const ProgressCallback& downloadUpdateCb() const { return fields_.downloadUpdateCb; }
  /// The whole object in memory; none on failure, and on a device without GetPartialObject.
  std::optional<ByteBuffer> downloadObjectData(const ObjectReference& object);
  /// Sends a file as a new object; 0 for `storage` and `parent` leaves the place to the device.
  [[nodiscard]] virtual Status sendFile(const std::string& path, std::uint32_t storage = 0,
                                        std::uint32_t parent = 0,
                                        std::uint32_t* resultHandle = nullptr);
  /// Sends bytes as a new object. -1400 where the device takes none.
  [[nodiscard]] Status sendData(std::span<const std::byte> data, XTExtendedObjectInfo& info,
                                std::uint32_t storage, std::uint32_t parent,
                                std::uint32_t* resultHandle);
  [[nodiscard]] virtual Status deleteObject(const ObjectReference& object);

  // What PTP has for it; -1400, 0 or none on a device that does not speak PTP. Objects are handles.

  /// The operations of this device; null where it does not speak PTP.
  virtual PTPTransactions* ptpTransactions() { return nullptr; }
  std::optional<ByteBuffer> downloadObjectDataPTP(std::uint32_t handle);
  /// In pieces of 2 MiB where the object is larger and the device gives pieces. A file that is
  /// there is replaced; a failure leaves none.
  [[nodiscard]] Status downloadFilePTP(std::uint32_t handle, const std::string& destination);
  /// By one streamed GetObject, with the progress callback asked on the way. -48 where the file is
  /// there already; a failure leaves none.
  [[nodiscard]] Status downloadImagePTP(std::uint32_t handle, const std::string& destination);
  /// Into a file of the temporary folder, whose path it gives.
  std::optional<std::string> downloadObjectPTP(std::uint32_t handle);
  [[nodiscard]] Status sendFilePTP(const std::string& path, std::uint32_t storage,
                                   std::uint32_t parent, std::uint32_t* resultHandle);
  [[nodiscard]] Status sendFilePTP(const std::string& path, std::uint32_t storage,
                                   std::uint32_t parent, std::span<const std::byte> content,
                                   XTExtendedObjectInfo& info, std::uint32_t* resultHandle);
  /// Fills `info` from a local file, as the device can take it. -43, -1302 (no regular file), -127
  /// (no type, size or date), 0x200B (no format that the device knows).
  [[nodiscard]] Status fillInObjInfo(XTExtendedObjectInfo& info, const std::string& path,
                                     const CodeList* supportedOperations, bool* xtSendRequired);
  /// -1400 without a list of operations, 0x2005 where the device cannot delete.
  [[nodiscard]] Status deleteObjectPTP(std::uint32_t handle);
  [[nodiscard]] Status deleteVendorObjectPTP(std::uint32_t handle);
  /// Gives an object another name on the device. 0x2005 where the device cannot.
  [[nodiscard]] Status renamePTPObject(std::uint32_t handle, const std::string& name);
  std::int32_t imageCountPTP();
  /// Handles of the pictures (formats 0x38xx and the maker's 0xB8xx) of a store.
  std::optional<ObjectReferences> pictureFilesOnStore(std::uint32_t store);
  PropertyDictionary getPictureFileSizesDictPTP();
  /// False where it is not known. Asks the device where MakerConstants names the property.
  bool isDockedPTP();
  /// Whether the device holds settings for a wireless network; asks it.
  bool isWirelessPTP();
  /// Whether a local file is a favourite, by its name.
  static bool isBragbookFilename(std::string_view path);
  /// "de" gives "German", as the device's settings name languages; the code where it is unknown.
  static std::string languageCodeAsLanguageName(std::string_view code);
  /// The language that the device shows, by the property for it; none where it has none. Kept.
  std::optional<std::string> deviceUILanguageSetting();
  /// The localization of this host that suits the language of the device.
  std::string deviceLocalizationPTP();

  /// Takes note of what the device reported: caches that became stale are dropped, and
  /// "DeviceEvent" is posted with the device and "code", "session", "transaction" and "params".
  void handlePTPEvent(std::uint16_t code, std::uint32_t session, std::uint32_t transaction,
                      std::span<const std::uint32_t> params);
  void postDeviceEventDict(const PropertyDictionary& event);

  // The information of objects, kept by handle.

  void cacheObject(std::uint32_t handle, std::shared_ptr<XTExtendedObjectInfo> info);
  /// Null where it is not kept.
  std::shared_ptr<XTExtendedObjectInfo> cachedInfoForObject(std::uint32_t handle) const;
  void invalidateInfoCacheForObject(std::uint32_t handle);
  void invalidateObjectInfoCacheForType(std::uint16_t format);
  /// Called after every send and delete.
  void invalidateCachedCountsUsedForDatasetSizes();

  // Bytes that the array of all objects of a kind takes in a vendor data set. The kind is counted
  // when that has not been done since the last send or delete.

  std::uint32_t maxAssetArrayLength();
  std::uint32_t maxAlbumArrayLength();
  std::uint32_t maxEmailOrderArrayLength();
  std::uint32_t maxPrintOrderArrayLength();
  std::uint32_t maxTransferOrderArrayLength();
  std::uint32_t maxAudioAnnotationArrayLength();

  // Operations with a fixed answer, which a concrete class may override.

  /// False and 0 mean "not that one knows of"; none of these asks the device here.
  virtual bool isDocked() { return false; }
  virtual bool isWireless() { return false; }
  virtual bool isProtected(const ObjectReference&) { return false; }
  virtual bool doesLCBInfoWork() { return false; }
  virtual bool isPTPDevice() const { return false; }
  virtual bool isMSCamera() const { return false; }
  virtual bool isMSCard() const { return false; }
  [[nodiscard]] virtual Status indicateBusy() { return status::kOK; }
  virtual std::uint16_t displayRequestVersion() { return 0; }
  [[nodiscard]] virtual Status displayOnDevice(std::string_view title1, std::string_view title2,
                                               std::string_view line1, std::string_view line2,
                                               std::string_view line3, std::string_view bottom);
  [[nodiscard]] virtual Status indicateFulfillment(std::uint32_t order, std::uint32_t asset);
  /// Calls of the power management, before sleep and after it.
  virtual void systemWillSleep() {}
  virtual void systemAwake() {}
  virtual void loadDeviceIcon() {}
  virtual bool systemCanSleep() { return true; }

  // The abstract interface. A class that does not provide an operation logs "Subclass
  // responsibility not overridden" and answers the default: none, or the value given here.

  /// The lists belong to the device and stay valid until it loads its information again.
  virtual const CodeList* opCodeList();
  virtual const CodeList* eventCodeList();
  virtual const CodeList* propertyList();
  virtual const CodeList* captureFormatList();
  virtual const CodeList* imageFormatList();

  /// As the property of that name gives it (ISO 15740, BatteryLevel).
  virtual std::uint8_t batteryLevel();                    ///< 255
  [[nodiscard]] virtual Status setDateTime();             ///< -1400
  [[nodiscard]] virtual Status loadDeviceInfoUncached();  ///< -50
  virtual std::unique_ptr<PTPPassThroughRecord> deviceInfoDataset();

  // Counts and lists. Counts: 0, that of objects on a store: -1.
  virtual std::int32_t imageCount();
  virtual std::int32_t squirtTransferCount();
  virtual std::int32_t squirtPrintCount();
  virtual std::int32_t squirtEmailCount();
  virtual std::int32_t numberOfObjectsOnStore(std::uint32_t store, std::uint16_t type);
  virtual std::int32_t numberOfObjectsOnStore(std::uint32_t store, std::uint16_t type,
                                              std::uint32_t association);  ///< 0
  /// Lists are none where the class has none, and empty where there is nothing in them.
  virtual std::optional<ObjectReferences> pictureFiles();
  virtual std::optional<std::vector<std::string>> orderFiles();  ///< local paths
  virtual std::optional<EmailOrders> emailOrderList();
  virtual std::optional<PrintOrders> printOrderList();
  virtual std::optional<std::vector<TransferOrder>> transferOrderList();

  // Stores.
  virtual std::optional<std::vector<std::uint32_t>> storageIDs();
  /// `storageID` is one of storageIDs() (ISO 15740, StorageInfo).
  virtual std::shared_ptr<const PTPStorageInfo> storageInfo(std::uint32_t storageID);
  /// -50, also reported as not recognised
  [[nodiscard]] virtual Status formatStore(std::uint32_t storageID);

  // Address book.
  [[nodiscard]] virtual Status addressBookInfo(XT_AddressBookInfo& info);  ///< 0
  virtual std::optional<AddressBook> addressBookDictUncached();
  /// Writes the book after validating it, and brings its contacts and groups up to date with what
  /// was written. What is written depends on the device: groups alone where it keeps vendor data
  /// sets, an empty file elsewhere (docs/oddities.md).
  [[nodiscard]] virtual Status setAddressBookDict(AddressBook& book);    ///< -1400
  [[nodiscard]] virtual Status setAddressBook(const std::string& path);  ///< -1400

  // Objects. Sizes in bytes: 0; objectInfo: -4.
  virtual std::int64_t thumbSize(const ObjectReference& object);
  virtual std::int64_t objectSize(const ObjectReference& object);
  virtual std::optional<std::string> objectFilename(const ObjectReference& object);
  virtual std::shared_ptr<XTExtendedObjectInfo> objectInfoForHandle(const ObjectReference& object);
  [[nodiscard]] virtual Status objectInfo(std::shared_ptr<XTExtendedObjectInfo>& info,
                                          std::uint32_t handle);
  virtual std::optional<std::string> hostObjectWrapperFile();  ///< local path

  // Transfers. Statuses of downloads: -1400, of sends: -50.
  /// `destination` is a path of the host.
  virtual std::optional<ByteBuffer> downloadThumb(const ObjectReference& object);
  [[nodiscard]] virtual Status downloadImage(const ObjectReference& object,
                                             const std::string& destination);
  [[nodiscard]] virtual Status downloadFile(const ObjectReference& object,
                                            const std::string& destination);
  virtual std::optional<ByteBuffer> downloadObject(const ObjectReference& object);
  /// Announces an object, whose data sendObjectData() gives then. `resultHandle` may be null.
  [[nodiscard]] virtual Status sendObjectInfo(XTExtendedObjectInfo& info, std::uint32_t storage,
                                              std::uint32_t parent, std::uint32_t* resultHandle);
  [[nodiscard]] virtual Status updateExtObjectInfo(XTExtendedObjectInfo& info,
                                                   std::uint32_t handle);
  [[nodiscard]] virtual Status sendObjectData(std::span<const std::byte> data);

  // Deleting. Statuses: -1400, of bragbooks and host object wrappers: 0x200B.
  [[nodiscard]] virtual Status deleteFilesOfType(std::uint16_t type);
  [[nodiscard]] virtual Status deleteOrderFiles();
  [[nodiscard]] virtual Status deleteBragbookFiles();
  [[nodiscard]] virtual Status deleteHostObjectWrapperFiles();

 protected:
  XTPictureDevice() = default;

  PictureDeviceFields fields_;
  ReadingReport lastReading_;
  WritingReport lastWriting_;

 private:
  /// What registerAllNotifications() put off for the helper's wireless device.
  static void deferredRegistrations();
  /// Which pictures of orders may be sent now, and who the recipients may be.
  OrderContext orderContext(bool needsContacts);
  std::uint32_t arrayLengthOf(std::int32_t& kept, std::initializer_list<std::uint16_t> formats);
};

}  // namespace tarvo
