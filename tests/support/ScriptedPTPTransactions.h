// What can be sent to a PTP device, in memory: objects with their information and content,
// properties as bytes, statuses by operation, and a list of what was asked.
//
//   ScriptedPTPTransactions device;
//   device.add(7, "IMG.JPG", "content");
//   device.failing["GetObject"] = 0x2009;
//   EXPECT_THAT(device.calls, ElementsAre("GetObject 7"));
#pragma once

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/operations/DataPhases.h"
#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "Utilities/Exception.h"
#include "Utilities/Format.h"

namespace tarvo::test {

class ScriptedPTPTransactions : public PTPTransactions {
 public:
  struct ScriptedObject {
    ObjectInfoPointer info;
    std::string content;
  };

  /// An object whose information says what is true of it; tests change it to lie.
  XTExtendedObjectInfo& add(std::uint32_t handle, const std::string& name, std::string content,
                            std::uint16_t format = 0x3801) {
    auto info = std::make_shared<XTExtendedObjectInfo>();
    info->setFileName(name);
    info->setObjFmtCode(format);
    info->setCompressedSize(static_cast<std::uint32_t>(content.size()));
    objects[handle] = {info, std::move(content)};
    return *info;
  }

  std::string model = "Tarvo Lumo 500";
  CodeList operations;
  CodeList properties;
  CodeList imageFormats;
  DeviceCapabilities capabilities;
  std::map<std::uint32_t, ScriptedObject> objects;
  std::map<std::uint16_t, std::vector<std::uint8_t>> descriptions;  ///< of properties
  std::map<std::uint16_t, std::vector<std::uint8_t>> values;        ///< of properties
  /// What an operation, by the name that `calls` has, ends with instead of working.
  std::map<std::string, Status, std::less<>> failing;
  /// What a whole call raises.
  std::map<std::string, Exception, std::less<>> raising;
  /// Bytes after which a transfer of content ends with `failing`, or as a success all the same.
  std::optional<std::uint64_t> endsAfter;
  bool knowsAllImageFormats = true;
  std::optional<std::vector<std::uint32_t>> pictureSizes;
  /// Vendor data sets by handle; an object of that handle makes it known to lists.
  std::map<std::uint32_t, std::vector<std::uint8_t>> dataSets;
  std::uint32_t newHandle = kNewHandle;  ///< of what createFormat makes
  ProgressCallback progress;

  std::vector<std::string> calls;                ///< "GetPartialObject 7 2097152 1"
  std::optional<XTExtendedObjectInfo> sentInfo;  ///< by sendObjectInfo and updateExtObjectInfo
  std::string sentData;
  std::vector<std::vector<std::byte>> sentDataSets;
  std::vector<std::byte> setValue;
  std::vector<std::uint32_t> invalidated;

  /// A vendor data set that is an object of the device.
  void addDataSet(std::uint32_t handle, std::uint16_t format, std::vector<std::uint8_t> bytes) {
    add(handle, "", "", format);
    dataSets[handle] = std::move(bytes);
  }
  /// The same of a record, by the function that writes it.
  template <typename Record>
  void addRecord(std::uint32_t handle, std::uint16_t format, const Record& record,
                 void (*store)(XTMutablePTPDataSet&, const Record&)) {
    auto dataSet = XTMutablePTPDataSet::dataSetWithByteOrder(kPTPByteOrder);
    store(dataSet, record);
    std::vector<std::uint8_t> bytes(dataSet.length());
    std::memcpy(bytes.data(), dataSet.buffer(), bytes.size());
    addDataSet(handle, format, std::move(bytes));
  }

  // PTPTransactions

  Status lastOutcome() const override { return lastOutcome_; }
  void setLastOutcome(Status outcome) override { lastOutcome_ = outcome; }
  std::uint32_t lastReceived() const override { return lastReceived_; }
  PTPDeviceFacts facts() const override {
    return {model, operations, properties, imageFormats, capabilities};
  }
  Status getDeviceInfo(PTPPassThroughRecord&) override { return call("GetDeviceInfo"); }
  const CodeList& supportedDatasets() override { return none_; }
  std::uint16_t displayRequestVersion() override { return 0; }
  Status displayRequest(XTMutablePTPDataSet&) override { return call("DisplayRequest"); }
  std::uint16_t bragbookVersion() override { return 0; }
  bool doesLCBInfoWork() override { return call("LCBInfo") == status::kOK; }
  Status addressBookInfo(XT_AddressBookInfo&) override { return call("AddressBookInfo"); }
  Status sendDeviceReset() override { return call("ResetDevice"); }

  std::optional<XTPTPDataSet> propertyDataSet(std::uint16_t property) override {
    return reader(call("GetDevicePropDesc " + formatted("%04X", property)), descriptions, property);
  }
  std::optional<XTPTPDataSet> propertyValueDataSet(std::uint16_t property) override {
    return reader(call("GetDevicePropValue " + formatted("%04X", property)), values, property);
  }
  Status setProperty(std::uint16_t property, std::span<const std::byte> value) override {
    setValue.assign(value.begin(), value.end());
    return call("SetDevicePropValue " + formatted("%04X", property));
  }

  std::optional<std::vector<std::uint32_t>> storageIDs() override { return std::nullopt; }
  std::shared_ptr<const PTPStorageInfo> storageInfo(std::uint32_t) override { return nullptr; }
  Status formatStore(std::uint32_t) override { return call("FormatStore"); }

  std::int32_t numberOfObjectsOnStore(std::uint32_t store, std::uint16_t type) override {
    if (call("GetNumObjects " + formatted("%X %04X", store, type)) != status::kOK) return -1;
    return static_cast<std::int32_t>(ofType(type).size());
  }
  std::int32_t numberOfObjectsOnStore(std::uint32_t store, std::uint16_t type,
                                      std::uint32_t) override {
    return numberOfObjectsOnStore(store, type);
  }
  std::optional<ObjectHandles> objectHandlesOnStore(std::uint32_t store,
                                                    std::uint16_t type) override {
    if (call("GetObjectHandles " + formatted("%X %04X", store, type)) != status::kOK) return {};
    return ofType(type);
  }
  std::optional<ObjectHandles> objectHandlesOnStore(std::uint32_t store, std::uint16_t type,
                                                    std::uint32_t) override {
    return objectHandlesOnStore(store, type);
  }
  Status listHandles(std::uint32_t store, std::uint16_t type, std::uint32_t association,
                     ObjectHandles& handles) override {
    const std::string where = association == 0 ? "" : formatted(" in %X", association);
    handles.clear();
    const Status status = call("GetObjectHandles " + formatted("%X %04X", store, type) + where);
    if (status != status::kOK) return status;
    for (const std::uint32_t handle : ofType(type)) {
      const std::uint32_t parent = objects[handle].info->parentObject();
      if (association == 0 || parent == (association == 0xFFFFFFFF ? 0 : association))
        handles.push_back(handle);
    }
    return status::kOK;
  }
  std::optional<std::vector<std::uint32_t>> pictureFilesizeOnStore(std::uint32_t store,
                                                                   std::uint16_t type) override {
    call("PictureFileSizes " + formatted("%X %04X", store, type));
    return pictureSizes;
  }
  Status objectInfo(ObjectInfoPointer& info, std::uint32_t handle) override {
    const Status status = call("GetObjectInfo " + std::to_string(handle));
    if (status != status::kOK) return status;
    const auto found = objects.find(handle);
    if (found == objects.end()) return lastOutcome_ = status::kPTPInvalidObjectHandle;
    info = found->second.info;
    return status::kOK;
  }
  void invalidateInfoCacheForObject(std::uint32_t handle) override {
    invalidated.push_back(handle);
  }
  Status deleteObject(std::uint32_t handle, std::uint16_t format, std::uint16_t opcode) override {
    return call("Delete " + formatted("%u %04X %04X", handle, format, opcode));
  }
  Status updateExtObjectInfo(XTExtendedObjectInfo& info, std::uint32_t handle) override {
    sentInfo = info;
    return call("UpdateExtObjectInfo " + std::to_string(handle));
  }

  Status downloadEntireObject(std::uint32_t handle, std::uint32_t size, ptp::DataSink& sink,
                              std::uint64_t& received) override {
    received = 0;
    if (size == 0) return status::kOK;
    const Status status = call("GetObject " + std::to_string(handle));
    return move(status, objects[handle].content, sink, received);
  }
  Status downloadPartialObject(std::uint32_t handle, std::uint32_t offset, std::uint32_t size,
                               ptp::DataSink& sink, std::uint64_t& received) override {
    received = 0;
    const Status status = call(formatted("GetPartialObject %u %u %u", handle, offset, size));
    const std::string_view content = objects[handle].content;
    return move(status, content.substr(std::min<std::size_t>(offset, content.size()), size), sink,
                received);
  }
  Status sendObjectInfo(XTExtendedObjectInfo& info, std::uint32_t storage, std::uint32_t parent,
                        std::uint32_t* resultHandle) override {
    sentInfo = info;
    const Status status = call(formatted("SendObjectInfo %u %u", storage, parent));
    if (status == status::kOK) *resultHandle = kNewHandle;
    return status;
  }
  Status sendObjectData(std::span<const std::byte> data) override {
    sentData.assign(reinterpret_cast<const char*>(data.data()), data.size());
    return call("SendObject");
  }
  Status sendContentsOfFile(const std::string&, XTExtendedObjectInfo&, std::uint32_t, std::uint32_t,
                            std::uint32_t*) override {
    return call("SendContentsOfFile");
  }

  std::optional<XTPTPDataSet> getDataSet(std::uint32_t handle, std::uint16_t format) override {
    const Status status = call("GetDataSet " + formatted("%u %04X", handle, format));
    auto dataSet = reader(status, dataSets, handle);
    if (dataSet) lastReceived_ = dataSet->length();
    return dataSet;
  }
  Status createFormat(std::uint16_t format, XTMutablePTPDataSet& dataSet,
                      std::uint32_t* resultHandle) override {
    sentDataSets.push_back(dataSet.data());
    const Status status = call("CreateDataSet " + formatted("%04X", format));
    if (status == status::kOK) *resultHandle = newHandle;
    return status;
  }
  Status updateObject(std::uint32_t handle, std::uint16_t format,
                      XTMutablePTPDataSet& dataSet) override {
    sentDataSets.push_back(dataSet.data());
    return call("UpdateDataSet " + formatted("%u %04X", handle, format));
  }
  Status sendIndicateFulfillment(std::uint32_t order, std::uint32_t asset) override {
    return call("ModifyAssetList " + formatted("%u %u", order, asset));
  }
  std::uint32_t maxSizeForDatasetFormat(std::uint16_t) override { return 0; }

  Status sendQuery(std::string_view, std::uint32_t*) override { return call("SendQuery"); }
  Status getDBRowsFromQuery(std::uint32_t, std::uint32_t, std::uint32_t, ByteBuffer&,
                            bool&) override {
    return call("GetDBRows");
  }
  Status endQuery(std::uint32_t, std::uint32_t) override { return call("EndQuery"); }

  bool reportProgress(std::uint32_t bytes) override { return progress && progress(bytes); }

  /// The handle of what was sent.
  static constexpr std::uint32_t kNewHandle = 77;

 private:
  /// Fails where the operation shall, or the whole call ("Delete 7 0000 100B").
  Status call(const std::string& text) {
    calls.push_back(text);
    if (const auto raised = raising.find(text); raised != raising.end()) throw raised->second;
    auto found = failing.find(text);
    if (found == failing.end()) found = failing.find(text.substr(0, text.find(' ')));
    // A transfer that ends in the middle fails at its end.
    return lastOutcome_ = found == failing.end() ? status::kOK : found->second;
  }

  template <typename Key>
  static std::optional<XTPTPDataSet> reader(Status status,
                                            const std::map<Key, std::vector<std::uint8_t>>& bytes,
                                            Key key) {
    const auto found = bytes.find(key);
    if (status != status::kOK || found == bytes.end()) return std::nullopt;
    auto dataSet = XTPTPDataSet::initWithData(std::as_bytes(std::span(found->second)));
    dataSet.setByteOrder(kPTPByteOrder);
    return dataSet;
  }

  ObjectHandles ofType(std::uint16_t type) const {
    const bool isForAllImages = type == 0xFFFF;
    if (isForAllImages && !knowsAllImageFormats) return {};
    ObjectHandles handles;
    for (const auto& [handle, object] : objects) {
      const unsigned format = object.info->objFmtCode();
      const bool isImage = format >> 8U == 0x38 || format >> 8U == 0xB8;
      if (isForAllImages ? isImage : type == 0 || format == type) handles.push_back(handle);
    }
    return handles;
  }

  /// Gives content to a sink in pieces of its choice.
  Status move(Status status, std::string_view content, ptp::DataSink& sink,
              std::uint64_t& received) const {
    if (status != status::kOK && !endsAfter) return status;
    const std::uint64_t end = std::min<std::uint64_t>(content.size(), endsAfter.value_or(~0ULL));
    while (received < end) {
      const auto room = sink.room(received, static_cast<std::size_t>(end - received));
      if (room.empty()) return status;  // full: what comes is dropped
      std::memcpy(room.data(), content.data() + received, room.size());
      received += room.size();
      if (!sink.received(received - room.size(), room.size())) return status::kCancelled;
    }
    return status;
  }

  CodeList none_;
  Status lastOutcome_ = status::kOK;
  std::uint32_t lastReceived_ = 0;
};

}  // namespace tarvo::test
