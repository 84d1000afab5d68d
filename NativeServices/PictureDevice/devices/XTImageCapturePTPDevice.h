// A camera or frame that speaks PTP: every transaction is one pass-through message to its Image
// Capture object.
//
// Its sources are split by theme: the device itself with its properties and queries
// (XTImageCapturePTPDevice.cpp), ...Objects, ...Transfers, ...DataSets with the maker's files.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "NativeServices/PictureDevice/devices/XTImageCaptureDevice.h"
#include "NativeServices/PictureDevice/operations/PTPTransactions.h"

namespace tarvo {

class PassThroughTransaction;
struct PTPRequest;

/// Main thread only.
///
/// The lists are those of the DeviceInfo, in its order. Nothing is asked twice during one arrival.
class XTImageCapturePTPDevice : public XTImageCaptureDevice, public PTPTransactions {
 public:
  /// A device bound to `object` and loaded; null, with the status in `*failure` (where given), when
  /// it cannot be read. Raises what the codec raises on a malformed DeviceInfo and what the vendor
  /// queries raise.
  static std::shared_ptr<XTImageCapturePTPDevice> withICAObject(ICAObject object, Status* failure);

  std::string_view className() const override { return "XTImageCapturePTPDevice"; }
  bool isPTPDevice() const override { return true; }
  /// 0x2005 without a message for an operation that the device does not offer.
  Status icaObjectSendMessage(ICAObjectSendMessagePB& block) override;
  /// Reads DeviceInfo, the supported data sets, the capabilities and the display-request version.
  Status loadDeviceInfoUncached() override;
  /// Sets the capability flags.
  void checkCapabilitesFromManufacturer(const std::string& manufacturer,
                                        std::uint32_t vendorExtensionID, const CodeList& opcodes,
                                        const CodeList& properties, const CodeList& imageFormats,
                                        const CodeList& datasets);

  const CodeList* opCodeList() override { return &operationList_; }
  const CodeList* eventCodeList() override { return &eventList_; }
  const CodeList* propertyList() override { return &propertyList_; }
  const CodeList* captureFormatList() override { return &captureFormatList_; }
  const CodeList* imageFormatList() override { return &imageFormatList_; }
  /// Asks anew; null when the transaction fails.
  std::unique_ptr<PTPPassThroughRecord> deviceInfoDataset() override;
  Status displayOnDevice(std::string_view, std::string_view, std::string_view, std::string_view,
                         std::string_view, std::string_view) override {
    return status::kIOError;
  }

  // What the base class asks of a device. An object is the number that is its handle; anything else
  // names none: 0x2009, 0 or none.

  PTPTransactions* ptpTransactions() override { return this; }
  /// As the device counts them, by GetNumObjects.
  std::int32_t imageCount() override;
  /// Of all stores.
  std::optional<ObjectReferences> pictureFiles() override;
  PropertyDictionary getPictureFileSizesDict() override;
  std::uint8_t batteryLevel() override;
  bool isDocked() override;
  bool isWireless() override;
  bool isProtected(const ObjectReference& object) override;
  /// From the object's information; sizes in bytes, 0 without it.
  std::int64_t thumbSize(const ObjectReference& object) override;
  std::int64_t objectSize(const ObjectReference& object) override;
  std::optional<std::string> objectFilename(const ObjectReference& object) override;
  ObjectInfoPointer objectInfoForHandle(const ObjectReference& object) override;
  /// The encoded thumbnail, as long as its object says; none where there is none, and on failure.
  std::optional<ByteBuffer> downloadThumb(const ObjectReference& object) override;
  Status downloadImage(const ObjectReference& object, const std::string& destination) override;
  Status downloadFile(const ObjectReference& object, const std::string& destination) override;
  std::optional<ByteBuffer> downloadObject(const ObjectReference& object) override;
  Status deleteObject(const ObjectReference& object) override;
  /// Every object of that format, on all stores, while deleting succeeds; the first failure.
  Status deleteFilesOfType(std::uint16_t type) override;

  // Orders, the address book and the maker's files. 0x2003 without an Image Capture object.

  std::optional<EmailOrders> emailOrderList() override;
  std::optional<PrintOrders> printOrderList() override;
  std::int32_t squirtTransferCount() override;
  Status deleteOrderFiles() override;
  Status indicateFulfillment(std::uint32_t order, std::uint32_t asset) override;
  std::optional<AddressBook> addressBookDictUncached() override;
  Status setAddressBookDict(AddressBook& book) override;
  /// Puts a file in place of the device's address book. 0x2005 on a device without one. Old files
  /// that cannot be deleted are traced, and the new one is sent all the same.
  Status setAddressBook(const std::string& path) override;
  /// The device's album names as a file of the temporary folder, which belongs to the caller.
  std::optional<std::string> albumNames();
  [[nodiscard]] Status setAlbumNames(const std::string& path);
  std::optional<std::string> hostObjectWrapperFile() override;
  Status deleteHostObjectWrapperFiles() override;
  /// Favourites, of the newer form where the device lists it. 0x200B on a device without them.
  Status deleteBragbookFiles() override;
  /// The settings for a wireless network ("NETCONF.XML"); none where the device holds none.
  std::optional<ByteBuffer> wirelessConfigData();

  // PTPTransactions. The base class has some of these operations, too, and one answer serves both.

  PTPDeviceFacts facts() const override;
  Status lastOutcome() const override { return lastOutcome_; }
  void setLastOutcome(Status outcome) override { lastOutcome_ = outcome; }
  std::uint32_t lastReceived() const override { return lastReceived_; }
  Status getDeviceInfo(PTPPassThroughRecord& record) override;
  const CodeList& supportedDatasets() override;
  std::uint16_t displayRequestVersion() override;
  Status displayRequest(XTMutablePTPDataSet& request) override;
  std::uint16_t bragbookVersion() override;
  bool doesLCBInfoWork() override;
  Status addressBookInfo(XT_AddressBookInfo& info) override;
  Status sendDeviceReset() override;

  std::optional<XTPTPDataSet> propertyDataSet(std::uint16_t property) override;
  std::optional<XTPTPDataSet> propertyValueDataSet(std::uint16_t property) override;
  Status setProperty(std::uint16_t property, std::span<const std::byte> value) override;

  std::optional<std::vector<std::uint32_t>> storageIDs() override;
  std::shared_ptr<const PTPStorageInfo> storageInfo(std::uint32_t storageID) override;
  Status formatStore(std::uint32_t storageID) override;

  std::int32_t numberOfObjectsOnStore(std::uint32_t store, std::uint16_t type) override;
  std::int32_t numberOfObjectsOnStore(std::uint32_t store, std::uint16_t type,
                                      std::uint32_t association) override;
  std::optional<ObjectHandles> objectHandlesOnStore(std::uint32_t store,
                                                    std::uint16_t type) override;
  std::optional<ObjectHandles> objectHandlesOnStore(std::uint32_t store, std::uint16_t type,
                                                    std::uint32_t association) override;
  Status listHandles(std::uint32_t store, std::uint16_t format, std::uint32_t association,
                     ObjectHandles& handles) override;
  std::optional<std::vector<std::uint32_t>> pictureFilesizeOnStore(std::uint32_t store,
                                                                   std::uint16_t type) override;
  Status objectInfo(ObjectInfoPointer& info, std::uint32_t handle) override;
  void invalidateInfoCacheForObject(std::uint32_t handle) override;
  Status deleteObject(std::uint32_t handle, std::uint16_t format, std::uint16_t opcode) override;
  Status updateExtObjectInfo(XTExtendedObjectInfo& info, std::uint32_t handle) override;

  Status downloadEntireObject(std::uint32_t handle, std::uint32_t size, ptp::DataSink& sink,
                              std::uint64_t& received) override;
  Status downloadPartialObject(std::uint32_t handle, std::uint32_t offset, std::uint32_t size,
                               ptp::DataSink& sink, std::uint64_t& received) override;
  Status sendObjectInfo(XTExtendedObjectInfo& info, std::uint32_t storage, std::uint32_t parent,
                        std::uint32_t* resultHandle) override;
  Status sendObjectData(std::span<const std::byte> data) override;
  Status sendContentsOfFile(const std::string& path, XTExtendedObjectInfo& info,
                            std::uint32_t storage, std::uint32_t parent,
                            std::uint32_t* resultHandle) override;

  std::optional<XTPTPDataSet> getDataSet(std::uint32_t handle, std::uint16_t format) override;
  Status createFormat(std::uint16_t format, XTMutablePTPDataSet& dataSet,
                      std::uint32_t* resultHandle) override;
  Status updateObject(std::uint32_t handle, std::uint16_t format,
                      XTMutablePTPDataSet& dataSet) override;
  Status sendIndicateFulfillment(std::uint32_t order, std::uint32_t asset) override;
  std::uint32_t maxSizeForDatasetFormat(std::uint16_t format) override;
  /// Bytes that an array of all contacts, and of all groups, takes. The two counts are kept as long
  /// as the device, or until they are forgotten.
  std::uint32_t maxContactArrayLength();
  /// Counts the groups only as long as the contacts have not been counted (docs/oddities.md).
  std::uint32_t maxGroupArrayLength();
  /// For whoever has changed the address book and reads it again: data sets may have become larger
  /// than the room that the kept counts give them.
  void forgetBookCounts();

  Status sendQuery(std::string_view query, std::uint32_t* resultHandle) override;
  Status getDBRowsFromQuery(std::uint32_t query, std::uint32_t sqlOp, std::uint32_t maxSize,
                            ByteBuffer& data, bool& endOfData) override;
  Status endQuery(std::uint32_t query, std::uint32_t sqlOp) override;

  bool reportProgress(std::uint32_t bytes) override;

  /// Handle and information of the object whose information was read last; 0 and null after that
  /// object was deleted.
  std::uint32_t cachedObject() const { return cachedObject_; }
  const ObjectInfoPointer& cachedObjectInfo() const { return cachedObjectInfo_; }

 protected:
  XTImageCapturePTPDevice() = default;

 private:
  /// Which objects a count or a list is about.
  struct ObjectQuery {
    /// As GetNumObjects and GetObjectHandles take them.
    std::vector<std::uint32_t> parameters() const;

    std::uint32_t store;
    std::uint16_t type;
    std::optional<std::uint32_t> association{};
  };

  /// Runs it on this device and keeps its outcome; true when the device answered OK.
  bool run(PassThroughTransaction& transaction);

  /// Takes the lists and the identity from the record's room; a short DeviceInfo reads as zeros.
  void parseDeviceInfo(const PTPPassThroughRecord& record);
  void scanDeviceInfo(XTPTPDataSet& dataSet);
  /// `read` is the number of bytes that the lists and texts would have needed.
  void reportShortDeviceInfo(std::uint32_t read, const PTPPassThroughRecord& record) const;

  std::optional<XTPTPDataSet> propertyBytes(std::uint16_t property, std::uint16_t operation,
                                            const char* method);

  std::int32_t numberOfObjects(const ObjectQuery& query);
  std::optional<ObjectHandles> objectHandles(const ObjectQuery& query, std::int32_t count);
  /// What a request answers with for `count` objects, one number each; `selector` is for traces.
  std::optional<std::vector<std::uint32_t>> arrayOfObjects(PTPRequest request, const char* selector,
                                                           std::int32_t count);
  /// Asks the device; the standard form is read, whatever `extended` says.
  [[nodiscard]] Status objectInfoUncached(ObjectInfoPointer& info, std::uint32_t handle,
                                          bool extended);
  /// After what this side changed on the device: what was counted and listed is asked for anew.
  void contentsChanged();

  /// XTO_GET_ADDRESS_BOOK_INFO, whatever is kept; `received` is the number of bytes that came.
  [[nodiscard]] Status readAddressBookInfo(XT_AddressBookInfo& info, std::size_t& received,
                                           bool isTraced);
  /// An object in a file of the temporary folder, also from a device without GetPartialObject.
  std::optional<std::string> downloadIcaObject(std::uint32_t handle);
  /// The first of these that can be downloaded.
  std::optional<std::string> firstFileOf(std::span<const std::uint32_t> handles);
  /// Sends a file after deleting those of its format.
  [[nodiscard]] Status replaceFilesOfType(std::uint16_t format, const std::string& path);
  /// Fills the book with what the device keeps, as data sets or as a file; what that lacks is in
  /// lastReading().
  void fillFromDataSets(AddressBook& book);
  void fillFromFile(AddressBook& book);

  [[nodiscard]] Status sendWholeFile(const std::string& path, XTExtendedObjectInfo& info,
                                     std::uint32_t storage, std::uint32_t parent,
                                     std::uint32_t& handle);
  [[nodiscard]] Status sendContentsOfFileInParts(const std::string& path,
                                                 XTExtendedObjectInfo& info, std::uint32_t storage,
                                                 std::uint32_t parent, std::uint32_t& handle);
  /// One part, of at most 2 MiB.
  [[nodiscard]] Status sendPart(int descriptor, std::uint32_t offset, std::uint32_t size,
                                bool isLast);

  /// The parameters of XTO_GET_DB_ROWS, in their order.
  struct DBRowsRequest {
    std::uint32_t query;
    std::uint32_t sqlOp;
    std::uint32_t finalize;
    std::uint32_t maxSize;
  };
  [[nodiscard]] Status getDBRows(const DBRowsRequest& request, ByteBuffer& data, bool& endOfData);

  CodeList operationList_;
  CodeList eventList_;
  CodeList captureFormatList_;
  CodeList imageFormatList_;
  CodeList propertyList_;
  /// None until they were read, or while the device does not list the operation.
  std::optional<CodeList> supportedDatasets_;
  std::uint32_t cachedObject_ = 0;
  ObjectInfoPointer cachedObjectInfo_;
  std::uint16_t displayRequestVersion_ = 0;  ///< 0 is not known
  XT_AddressBookInfo cachedABInfo_;          ///< of version 0 until it was read
  std::int32_t cachedContactCountForDatasetSizeEstimate_ = -1;
  std::int32_t cachedGroupCountForDatasetSizeEstimate_ = -1;
  Status lastOutcome_ = status::kOK;
  std::uint32_t lastReceived_ = 0;
};

}  // namespace tarvo
