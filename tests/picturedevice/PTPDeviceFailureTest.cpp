// How the operations of a PTP device go out and fail: what is sent, returned and traced, and when
// the device is not asked at all.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/datasets/XTMutablePTPDataSet.h"
#include "Utilities/PTPCodes.h"
#include "tests/support/ScriptedPTPDevice.h"

namespace tarvo::test {
namespace {

using testing::IsEmpty;

/// One operation: how it is called, and what its failure lines begin with, of which the first word
/// is the method. The result line begins like the header line where `result` is null; one line
/// "status N response 0xN" where it is empty, and both in one line where it is ",".
struct Operation {
  std::uint16_t code;
  const char* sent;  ///< as ScriptedPTPDevice::sent() has it, where that is of interest
  const char* header;
  std::function<Status(XTImageCapturePTPDevice&)> call;
  const char* result = nullptr;

  /// Without its capability it is not as much as tried.
  bool needsCapability() const { return code == 0x9007 || code == 0x9011; }
};

/// A call whose result does not tell the status.
template <typename Call>
std::function<Status(XTImageCapturePTPDevice&)> failing(Call call) {
  return [call](XTImageCapturePTPDevice& device) {
    EXPECT_FALSE(call(device)) << "a failure has no result";
    return device.lastOutcome();
  };
}

std::vector<Operation> operations() {
  using D = XTImageCapturePTPDevice;
  static PTPPassThroughRecord record(1);
  static ObjectInfoPointer pointer;
  static XTExtendedObjectInfo info;
  static XTMutablePTPDataSet dataSet;
  static XT_AddressBookInfo addressBook;
  static ByteBuffer buffer;
  static std::uint64_t received;
  static std::uint32_t handle;
  static bool ends;
  static ptp::MemorySink sink({});
  static const std::vector<std::byte> bytes(3);
  return {
      {0x1001, nullptr, "getDeviceInfo GetDeviceInfo",
       [](D& d) { return d.getDeviceInfo(record); }},
      {0x1004, "1004()0<128", "storageIDs GetStorageIDs",
       failing([](D& d) { return d.storageIDs().has_value(); })},
      {0x1005, "1005(1)0<1176", "getStorageInfo GetStorageInfo",
       failing([](D& d) { return d.storageInfo(1) != nullptr; })},
      {0x1006, "1006(1)1-", "numberOfObjectsOnStore GetNumObjects",
       failing([](D& d) { return d.numberOfObjectsOnStore(1, 0) + 1; })},
      {0x1008, "1008(7)0<2356", "objectInfoUncached GetObjectInfo",
       [](D& d) { return d.objectInfo(pointer, 7); }},
      {0x1009, "1009(7)0<9", "downloadEntireObject GetObject",
       [](D& d) { return d.downloadEntireObject(7, 9, sink, received); }},
      {0x101B, "101b(7,0,9)0<9", "downloadPartialObject GetPartialObject",
       [](D& d) { return d.downloadPartialObject(7, 0, 9, sink, received); }},
      {0x100B, "100b(7,0)0-", "deleteIcaObject (opcode 0x100b)",
       [](D& d) { return d.deleteObject(7, 0, 0x100B); }, "deleteIcaObject"},
      {0x100F, "100f(1)0-", "formatStore (opcode 0x100f)", [](D& d) { return d.formatStore(1); },
       "formatStore"},
      {0x1010, "1010()0-", "sendDeviceReset (opcode 0x100f)",
       [](D& d) { return d.sendDeviceReset(); }, "sendDeviceReset"},
      {0x1014, "1014(5001)0<2048", "propertyDataSet GetDevicePropInfo 5001",
       failing([](D& d) { return d.propertyDataSet(0x5001).has_value(); }),
       "propertyDataSet GetDevicePropInfo"},
      {0x1015, "1015(5001)0<2048", "propertyDataSet GetDevicePropInfo 5001",
       failing([](D& d) { return d.propertyValueDataSet(0x5001).has_value(); }),
       "propertyDataSet GetDevicePropInfo"},
      {0x1016, "1016(5011)0>3", "setProperty SetDevicePropValue",
       [](D& d) { return d.setProperty(0x5011, bytes); }},
      {0x9007, "9007()0<28", "addressBookInfo XTO_GET_ADDRESS_BOOK_INFO",
       [](D& d) { return d.addressBookInfo(addressBook); }},
      {0x9008, nullptr, "displayRequest XTO_DISPLAY_REQUEST",
       [](D& d) { return d.displayRequest(dataSet); }},
      {0x9011, "9011()2-", "bragbookVersion XTO_GET_BRAGBOOK_VERSION",
       failing([](D& d) { return d.bragbookVersion(); })},
      {0x901A, "901a(5,1,0,40)2<64", "getDBRowsFromQuery XTO_GET_DB_ROWS",
       [](D& d) { return d.getDBRowsFromQuery(5, 1, 64, buffer, ends); }},
      {0x9206, nullptr, "updateExtObjectInfo XTO_UPDATE_EXT_OBJECT_INFO",
       [](D& d) { return d.updateExtObjectInfo(info, 7); }, ""},
      {0x9204, "9204(7,b205)0<2098", "getDataSet XTO_GET_DATASET",
       failing([](D& d) { return d.getDataSet(7, 0xB205).has_value(); })},
      {0x9205, nullptr, "createFormat",
       [](D& d) { return d.createFormat(0xB202, dataSet, &handle); }, ","},
      {0x9207, nullptr, "updateObject", [](D& d) { return d.updateObject(7, 0xB202, dataSet); },
       ","},
      {0x100C, nullptr, "sendObjectInfo kPTPCmdSendObjectInfo",
       [](D& d) { return d.sendObjectInfo(info, 0, 0, &handle); }, ""},
  };
}

/// What a failure with the response 0x2019 is traced as.
std::vector<std::string> failureLines(const Operation& operation) {
  const std::string header = operation.header;
  const std::string result = operation.result ? operation.result : header;
  const std::string failed = " objectSendMessagePB.header.err: 0x0";
  const std::string code = "result 0: resultCode: 0x2019";
  if (result.empty()) return {header + " status 0 response 0x2019"};
  if (result == ",") return {header + failed + ", " + code};
  return {header + failed, result + " " + code};
}

TEST(PTPFailures, ReturnTheResponseAndAreTracedUnderTheOperationsName) {
  const std::pair<PTPAnswer, Status> rows[] = {
      {{.responseCode = 0x2019}, 0x2019},
      {{.responseCode = 0}, 0x2002},
      {{.status = status::kICATimeout}, 0x2002},
      {{.status = status::kCancelled}, -490},
  };
  for (const auto& operation : operations()) {
    for (const auto& [answer, returned] : rows) {
      ScriptedPTPDevice scripted;
      scripted.camera.answers[operation.code] = answer;
      EXPECT_EQ(operation.call(*scripted), returned) << operation.header;
      EXPECT_TRUE(!operation.sent || scripted.sent().back() == operation.sent) << operation.sent;
      if (returned != 0x2019) continue;
      for (const auto& line : failureLines(operation))
        EXPECT_TRUE(scripted.room.trace.contains("XT PictureDevice - " + line)) << line;
    }
  }
}

TEST(PTPFailures, CostNoMessageOnADeviceThatIsGoneOrDoesNotListTheOperation) {
  for (const auto& operation : operations()) {
    ScriptedPTPDevice gone;
    gone->setDisconnected(true);
    EXPECT_EQ(operation.call(*gone), 0x2002) << operation.header;
    EXPECT_THAT(gone.sent(), IsEmpty()) << operation.header;
    EXPECT_TRUE(gone.room.trace.contains("Device 0x     100 is disconnected!"));

    if (operation.code == 0x1001) continue;  // always supported
    auto description = fullCamera();
    // The capability stays, so that the operation gets as far as it can.
    std::erase(description.operations, operation.code);
    ScriptedPTPDevice lacking(description);
    EXPECT_TRUE(operation.call(*lacking) == 0x2005 || operation.needsCapability())
        << operation.header;
    EXPECT_THAT(lacking.sent(), IsEmpty()) << operation.header;
  }
}

struct UnboundDevice : XTImageCapturePTPDevice {};

TEST(PTPFailures, AreSessionNotOpenOnADeviceWithoutAnImageCaptureObject) {
  PictureDeviceTestRoom room;
  UnboundDevice device;
  const auto hasTraced = [&](const std::string& method) {
    return room.trace.contains("XT PictureDevice - " + method + " couldn't get an ICA object");
  };
  for (const auto& operation : operations()) {
    // Of no property that is listed, none is asked for.
    if (operation.needsCapability() || operation.code == 0x1014 || operation.code == 0x1015)
      continue;
    EXPECT_EQ(operation.call(device), 0x2003) << operation.header;
    const std::string header = operation.header;
    EXPECT_TRUE(hasTraced(header.substr(0, header.find(' ')))) << header;
  }
  AddressBook book;
  EXPECT_EQ(device.deleteFilesOfType(0x3801), 0x2003);
  EXPECT_FALSE(device.addressBookDictUncached());
  EXPECT_EQ(device.setAddressBookDict(book), 0x2003);
  for (const char* method : {"deleteFilesOfType", "addressBookDictUncached", "setAddressBookDict"})
    EXPECT_TRUE(hasTraced(method)) << method;
  EXPECT_EQ(device.setAlbumNames("/nowhere"), 0x2005);
}

TEST(PTPFailures, OfMissingArgumentsAreBadParametersWithoutAMessage) {
  ScriptedPTPDevice scripted;
  XTExtendedObjectInfo info;
  EXPECT_EQ(scripted->deleteObject(0, 0, 0x100B), -50);
  EXPECT_EQ(scripted->updateExtObjectInfo(info, 0), -50);
  EXPECT_EQ(scripted->sendObjectInfo(info, 0, 0, nullptr), -50);
  EXPECT_THAT(scripted.sent(), IsEmpty());
  for (const char* method : {"deleteIcaObject", "updateExtObjectInfo"})
    EXPECT_TRUE(
        scripted.room.trace.contains(std::string(method) + " was passed a nil object handle"));
  EXPECT_TRUE(scripted.room.trace.contains("sendObjectInfo was passed a nil result handle"));
}

}  // namespace
}  // namespace tarvo::test
