// What can be sent to a PTP device: one method an operation. The device classes implement it;
// everything that is built on the operations takes this face, and tests script it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "NativeServices/PictureDevice/datasets/XTPTPDataSet.h"
#include "Utilities/ByteBuffer.h"
#include "Utilities/PTPCodes.h"
#include "Utilities/Status.h"
#include "platform/imagecapture/PTPPassThroughPB.h"
#include "platform/imagecapture/ptp/DataPhase.h"

namespace tarvo {

class XTExtendedObjectInfo;
class XTMutablePTPDataSet;
struct PTPStorageInfo;
struct XT_AddressBookInfo;

/// PTP codes in the order in which the device lists them.
using CodeList = std::vector<std::uint16_t>;

/// Lists hold a few dozen codes, so they are searched as they stand.
bool containsCode(const CodeList& codes, std::uint16_t code);

/// All false until CapabilityDetection has filled it in; a mass-storage device leaves it so.
struct DeviceCapabilities {
  bool deviceSupportsAddressBooks = false;
  bool deviceSupportsAlbumNames = false;
  bool deviceSupportsBragbooks = false;
  bool deviceRequiresYCC422 = false;  ///< needs JPEG images with 4:2:2 sampling
  bool deviceSupportsCapture = false;
  bool deviceSupportsIntention = false;  ///< reports share intentions
  /// Pictures can be sent to the device, in whichever way.
  bool deviceAcceptsFiles = false;
  bool deviceSupportsCameraBackDisplay = false;
  bool xtSendRequired = false;  ///< objects must be sent with the vendor send operation
  /// Which of the standard and the vendor operations the device lists.
  bool hasDeleteObject = false;
  bool hasDeleteVendorObject = false;
  bool hasSendVendorObject = false;
  bool supportsDirectBragbookImages = false;

  friend bool operator==(const DeviceCapabilities&, const DeviceCapabilities&) = default;
};

/// What the device said of itself in its DeviceInfo (ISO 15740), and what follows from that. Lent;
/// valid until the device loads its information again.
struct PTPDeviceFacts {
  const std::string& model;
  const CodeList& operations;
  const CodeList& properties;
  const CodeList& imageFormats;
  const DeviceCapabilities& capabilities;
};

using ObjectHandles = std::vector<std::uint32_t>;
using ObjectInfoPointer = std::shared_ptr<XTExtendedObjectInfo>;

/// Main thread only. A status is 0, the PTP response code of the device, or 0x2002 where no
/// response arrived, 0x2003 without an Image Capture object and 0x2005 for an operation that the
/// device does not offer.
///
/// Each call is one transaction, unless it says otherwise, which blocks until it has ended; what is
/// said to be read once is kept. Objects are named by their handles, stores by their ids;
/// kAllStores names every store.
class PTPTransactions {
 public:
  virtual ~PTPTransactions() = default;

  // The device.

  virtual PTPDeviceFacts facts() const = 0;
  /// How the last transaction ended, for operations whose result does not tell: 0 or a status;
  /// 0x2007 also where a list of handles or an object's information was cut short.
  virtual Status lastOutcome() const { return status::kOK; }
  /// For an operation that refuses what the device offers: its outcome counts as the last one.
  virtual void setLastOutcome(Status /*outcome*/) {}
  /// The position in the data set that getDataSet() got last, up to which the device sent it.
  virtual std::uint32_t lastReceived() const { return 0; }
  /// GetDeviceInfo (0x1001); on success `record` becomes the transaction's record.
  /// Needs no session (ISO 15740, GetDeviceInfo).
  [[nodiscard]] virtual Status getDeviceInfo(PTPPassThroughRecord& record) = 0;
  /// XTO_GET_SUPPORTED_DATASETS (0x920A): the vendor data set formats that the device knows; empty
  /// when it does not list the operation. Read once. Raises XTPTPException, with the status under
  /// "ptpResponseCode", when the transaction fails.
  virtual const CodeList& supportedDatasets() = 0;
  /// XT_GET_DISPLAY_REQUEST_VERSION (0x9009); 0 on a device without a back display. Raises like
  /// supportedDatasets().
  virtual std::uint16_t displayRequestVersion() = 0;
  /// XTO_DISPLAY_REQUEST (0x9008). 0x2001, not 0, after success.
  [[nodiscard]] virtual Status displayRequest(XTMutablePTPDataSet& request) = 0;
  /// XTO_GET_BRAGBOOK_VERSION (0x9011); 0 without a transaction on a device without favourites.
  virtual std::uint16_t bragbookVersion() = 0;
  /// Whether XTO_GET_LCB_INFO (0x900C) is listed and answered with OK.
  virtual bool doesLCBInfoWork() = 0;
  /// XTO_GET_ADDRESS_BOOK_INFO (0x9007); kept once it has a version. 0x2005 on a device without an
  /// address book.
  [[nodiscard]] virtual Status addressBookInfo(XT_AddressBookInfo& info) = 0;
  /// ResetDevice (0x1010).
  [[nodiscard]] virtual Status sendDeviceReset() = 0;

  // Properties.

  /// GetDevicePropDesc (0x1014) as a reader of the received bytes, little-endian; none when the
  /// device does not list the property or the transaction fails.
  virtual std::optional<XTPTPDataSet> propertyDataSet(std::uint16_t property) = 0;
  /// GetDevicePropValue (0x1015), the same way.
  virtual std::optional<XTPTPDataSet> propertyValueDataSet(std::uint16_t property) = 0;
  /// SetDevicePropValue (0x1016); `value` is a data set, padded here where its size demands it.
  [[nodiscard]] virtual Status setProperty(std::uint16_t property,
                                           std::span<const std::byte> value) = 0;

  // Stores.

  /// GetStorageIDs (0x1004). Read once, and again after a card came or went. None on failure.
  virtual std::optional<std::vector<std::uint32_t>> storageIDs() = 0;
  /// GetStorageInfo (0x1005); null on failure.
  virtual std::shared_ptr<const PTPStorageInfo> storageInfo(std::uint32_t storageID) = 0;
  /// FormatStore (0x100F).
  [[nodiscard]] virtual Status formatStore(std::uint32_t storageID) = 0;

  // Objects.

  /// GetNumObjects (0x1006); `type` 0 is every format. 0 for a format that the device does not
  /// know, -1 on any other failure and, without a transaction, for a store without a logical part.
  virtual std::int32_t numberOfObjectsOnStore(std::uint32_t store, std::uint16_t type) = 0;
  /// The same within an association; 0xFFFFFFFF is the root.
  virtual std::int32_t numberOfObjectsOnStore(std::uint32_t store, std::uint16_t type,
                                              std::uint32_t association) = 0;
  /// GetObjectHandles (0x1007), in the order of the device, after GetNumObjects, whose count is the
  /// room. None on failure; empty where there are none and where they cannot be counted:
  /// lastOutcome() tells these apart. Raises the malloc exception.
  virtual std::optional<ObjectHandles> objectHandlesOnStore(std::uint32_t store,
                                                            std::uint16_t type) = 0;
  virtual std::optional<ObjectHandles> objectHandlesOnStore(std::uint32_t store, std::uint16_t type,
                                                            std::uint32_t association) = 0;
  /// GetObjectHandles (0x1007) with all three parameters and without counting: `format` 0 is every
  /// format, `association` 0 every object, 0xFFFFFFFF the top. What devices make of it differs:
  /// ObjectListing takes care of that. `handles` is left empty on failure; kICAProtocolError for
  /// fewer handles than the device announces, and for more than kMostObjects.
  [[nodiscard]] virtual Status listHandles(std::uint32_t store, std::uint16_t format,
                                           std::uint32_t association, ObjectHandles& handles) = 0;
  /// A device with more objects is none that a person could look through.
  static constexpr std::size_t kMostObjects = std::size_t{1} << 20;
  /// Whether the device has been seen to name, for association 0, what lies in folders: many name
  /// the top alone. Known once for the device's life.
  bool isKnownToListBelowTop() const { return listsBelowTop_; }
  void noteListsBelowTop() { listsBelowTop_ = true; }
  /// XTO_GET_PICTURE_FILE_SIZES (0x9203): bytes, in the order of objectHandlesOnStore().
  virtual std::optional<std::vector<std::uint32_t>> pictureFilesizeOnStore(std::uint32_t store,
                                                                           std::uint16_t type) = 0;
  /// GetObjectInfo (0x1008), unless the information is cached; `info` is shared with the cache and
  /// left alone on failure.
  [[nodiscard]] virtual Status objectInfo(ObjectInfoPointer& info, std::uint32_t handle) = 0;
  /// The next objectInfo() asks the device again.
  virtual void invalidateInfoCacheForObject(std::uint32_t handle) = 0;
  /// DeleteObject, by the standard (0x100B) or the vendor's (0x9209) operation; `format` 0 is any.
  [[nodiscard]] virtual Status deleteObject(std::uint32_t handle, std::uint16_t format,
                                            std::uint16_t opcode) = 0;
  /// XTO_UPDATE_EXT_OBJECT_INFO (0x9206). -50 without a handle.
  [[nodiscard]] virtual Status updateExtObjectInfo(XTExtendedObjectInfo& info,
                                                   std::uint32_t handle) = 0;

  // Transfers. `received` counts what came into the sink. A sink that ends the transfer gives -490,
  // and so does the progress callback.

  /// GetObject (0x1009) into `sink`. `size` is what ObjectInfo says; 0 is done at once; 0xFFFFFFFF
  /// reads to the end, whatever there is.
  [[nodiscard]] virtual Status downloadEntireObject(std::uint32_t handle, std::uint32_t size,
                                                    ptp::DataSink& sink,
                                                    std::uint64_t& received) = 0;
  /// GetPartialObject (0x101B): `size` bytes from `offset` on. The progress callback is asked with
  /// 0 before it, and told `size` after success.
  [[nodiscard]] virtual Status downloadPartialObject(std::uint32_t handle, std::uint32_t offset,
                                                     std::uint32_t size, ptp::DataSink& sink,
                                                     std::uint64_t& received) = 0;
  /// SendObjectInfo, by the operation that the device takes for the object. Adjusts the format and
  /// the announced size in `info`. `*resultHandle` is left alone on failure; -50 without it.
  [[nodiscard]] virtual Status sendObjectInfo(XTExtendedObjectInfo& info, std::uint32_t storage,
                                              std::uint32_t parent,
                                              std::uint32_t* resultHandle) = 0;
  /// SendObject, by the operation that belongs to the last sendObjectInfo().
  [[nodiscard]] virtual Status sendObjectData(std::span<const std::byte> data) = 0;
  /// sendObjectInfo() and the file's bytes, in parts of 2 MiB (XTO_SEND_OBJECT_PART, 0x9019) where
  /// the device takes them and the file is larger. Nothing of the file is kept in memory. -43 for a
  /// file that cannot be read, -36 for one that ends early, -50 for one of 4 GiB and more.
  [[nodiscard]] virtual Status sendContentsOfFile(const std::string& path,
                                                  XTExtendedObjectInfo& info, std::uint32_t storage,
                                                  std::uint32_t parent,
                                                  std::uint32_t* resultHandle) = 0;

  // Vendor data sets.

  /// XTO_GET_DATASET (0x9204): a reader of the whole record, which it owns, at the beginning of the
  /// data set, behind the 44 bytes of the record's header. None on failure, and (0x2007) for a data
  /// set that is larger than maxSizeForDatasetFormat(). A shorter one reads as zeros behind its
  /// end: see wasShort(). Raises the malloc exception.
  virtual std::optional<XTPTPDataSet> getDataSet(std::uint32_t handle, std::uint16_t format) = 0;
  /// XTO_CREATE_DATASET (0x9205); pads the data set where its size demands it. `*resultHandle` is
  /// left alone on failure.
  [[nodiscard]] virtual Status createFormat(std::uint16_t format, XTMutablePTPDataSet& dataSet,
                                            std::uint32_t* resultHandle) = 0;
  /// XTO_UPDATE_DATASET (0x9207), the same way.
  [[nodiscard]] virtual Status updateObject(std::uint32_t handle, std::uint16_t format,
                                            XTMutablePTPDataSet& dataSet) = 0;
  /// XTO_MODIFY_ASSET_LIST (0x9208): the order no longer waits for the picture.
  [[nodiscard]] virtual Status sendIndicateFulfillment(std::uint32_t order,
                                                       std::uint32_t asset) = 0;
  /// Bytes that a data set of the format can have at most, by what the device holds; asks the
  /// device for counts that are not known.
  virtual std::uint32_t maxSizeForDatasetFormat(std::uint16_t format) = 0;

  // Queries of the device's database.

  /// Sends the query as an object of format XTD_QUERY; its handle names it from then on.
  [[nodiscard]] virtual Status sendQuery(std::string_view query, std::uint32_t* resultHandle) = 0;
  /// XTO_GET_DB_ROWS (0x901A): appends at most `maxSize` bytes of rows to `data`.
  [[nodiscard]] virtual Status getDBRowsFromQuery(std::uint32_t query, std::uint32_t sqlOp,
                                                  std::uint32_t maxSize, ByteBuffer& data,
                                                  bool& endOfData) = 0;
  /// Lets the query go.
  [[nodiscard]] virtual Status endQuery(std::uint32_t query, std::uint32_t sqlOp) = 0;

  // What long transfers tell and ask.

  /// `bytes` more have been moved; true when the transfer shall be cancelled.
  virtual bool reportProgress(std::uint32_t bytes) = 0;

 private:
  bool listsBelowTop_ = false;
};

/// True, and traced, when `dataSet`, which is that of the last getDataSet(), was read beyond what
/// the device sent of it.
bool wasShort(const PTPTransactions& device, const XTPTPDataSet& dataSet, std::uint32_t handle);

/// Finds the objects of a format as objectHandlesOnStore() has them, on all stores unless one is
/// named. 0, also where there are none and where the device does not know the format; otherwise why
/// they cannot be told. ObjectListing finds them on devices that list in ways of their own, too.
[[nodiscard]] Status listObjects(PTPTransactions& device, std::uint16_t format,
                                 ObjectHandles& handles, std::uint32_t store = ptp::kAllStores);

// How large the vendor data sets of a device can be, by what it holds: the room for receiving them.
//
// A list in a data set can be no longer than there are objects of its kind on the device. Each kind
// is counted once and the count kept, until its owner sets it to -1.

/// Bytes of a UINT32 array of `count` elements; a count that is not known (-1) gives 0.
std::uint32_t arrayLength(std::int64_t count);
/// The same of `kept` elements, which are counted first where that is -1. `count` gives -1 where it
/// cannot tell.
std::uint32_t arrayLength(std::int32_t& kept, const std::function<std::int32_t()>& count);

/// Number of objects of some formats together, each counted by `count`; -1 where one of them cannot
/// be told.
std::int32_t sumOfCounts(std::initializer_list<std::uint16_t> formats,
                         const std::function<std::int32_t(std::uint16_t format)>& count);

/// Bytes of a data set with arrays of that length and `rest` beside them, at most what 32 bits can
/// say.
std::uint32_t roomForDataSet(std::uint64_t arrays, std::uint32_t rest);

}  // namespace tarvo
