// A PTP device on a simulated camera, through the service and the transport: every operation from
// one end to the other. The camera checks the host as strictly as the standard lets it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/operations/DataPhases.h"
#include "Utilities/PTPCodes.h"
#include "tests/support/MainContextWait.h"
#include "tests/support/SimulatedPTPDevice.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

constexpr std::uint32_t kMiB = 1U << 20;
constexpr std::uint32_t kStore = 0x00010001;
constexpr std::uint32_t kSecondStore = 0x00030001;

/// Two stores with pictures, and everything of the maker's extension.
constexpr char kFullCamera[] = R"({
  "properties": [{"code": "0x5001", "type": "UINT8", "value": 80},
                 {"code": "0x5011", "type": "STR", "value": "20240615T120000", "writable": true},
                 {"code": "0xD2F0", "type": "AUINT8", "value": [1, 2], "writable": true}],
  "vendor": {"operations": ["0x9019", "0x9202", "0x9203", "0x9206", "0x9209"],
             "supportedDatasets": ["0xB201", "0xB203"], "displayRequestVersion": 1,
             "bragbookVersion": 2, "lcbInfo": [1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0],
             "queryRows": ["first row", "second row"]},
  "stores": [
    {"id": "0x00010001", "capacity": 1000000000, "free": 500000000, "content": [
      {"folder": "DCIM", "content": [
        {"file": "A.JPG", "size": 3000000, "thumbnail": true},
        {"file": "B.JPG", "size": 1000},
        {"file": "C.MOV", "size": 2000, "hidesSize": true}]},
      {"file": "NOTES.TXT", "text": "notes"}]},
    {"id": "0x00030001", "capacity": 1000000, "free": 500000,
     "content": [{"file": "D.JPG", "size": 4000}]}]
})";

std::uint32_t handleNamed(const SimulatedPTPDevice& sim, const std::string& name) {
  for (const std::uint32_t handle : sim.camera->handles())
    if (sim->objectFilename(handle) == name) return handle;
  ADD_FAILURE() << "no object " << name;
  return 0;
}

std::string textOf(std::span<const std::byte> bytes) {
  std::string text;
  for (const std::byte each : bytes)
    text += static_cast<char>(each);
  return text;
}

std::string onCamera(const SimulatedPTPDevice& sim, std::uint32_t handle) {
  return textOf(sim.camera->bytes(handle));
}

TEST(SimulatedStores, AreListedCountedAndFormatted) {
  SimulatedPTPDevice sim(kFullCamera);
  EXPECT_THAT(*sim->storageIDs(), ElementsAre(kStore, kSecondStore));
  EXPECT_EQ(sim->storageInfo(kStore)->maxCapacity, 1000000000U);
  EXPECT_EQ(sim->storageInfo(0x00050001), nullptr);
  const struct {
    std::uint32_t store;
    std::uint16_t type;
    std::int32_t count;
  } rows[] = {{ptp::kAllStores, 0, 6},
              {kStore, 0, 5},
              {kSecondStore, 0, 1},
              {ptp::kAllStores, 0x3801, 3},
              {kStore, 0x3801, 2},
              {kStore, 0x300D, 1},
              {kStore, ptp::XTD_ADDRESS_BOOK_FILE, 0},
              {0x00010000, 0, -1},
              {0x00050001, 0, -1}};
  for (const auto& row : rows) {
    EXPECT_EQ(sim->numberOfObjectsOnStore(row.store, row.type), row.count) << row.type;
    EXPECT_THAT(*sim->objectHandlesOnStore(row.store, row.type), SizeIs(std::max(row.count, 0)));
  }
  const auto folder = handleNamed(sim, "DCIM");
  EXPECT_EQ(sim->numberOfObjectsOnStore(kStore, 0x3801, folder), 2);
  EXPECT_THAT(*sim->objectHandlesOnStore(kStore, 0x3801, folder), SizeIs(2));
  EXPECT_EQ(sim->formatStore(kSecondStore), 0);
  EXPECT_EQ(sim->numberOfObjectsOnStore(kSecondStore, 0), 0);
  EXPECT_EQ(sim->formatStore(0x00050001), 0x2008);
}

TEST(SimulatedPictures, AreListedFromHandlesAloneAndAskedForOnce) {
  SimulatedPTPDevice sim(kFullCamera);
  EXPECT_EQ(sim->imageCount(), 3);
  const auto pictures = *sim->pictureFiles();
  EXPECT_THAT(pictures, SizeIs(3));
  EXPECT_EQ(sim.asked(ptp::kGetObjectInfo), 0U);
  for (int i = 0; i < 2; ++i)
    for (const auto& picture : pictures)
      EXPECT_GT(sim->objectSize(picture), 0);
  EXPECT_EQ(sim.asked(ptp::kGetObjectInfo), 3U);
  EXPECT_EQ(sim->getPictureFileSizesDict()[std::to_string(pictures[0].get<std::uint32_t>())],
            sim->objectSize(pictures[0]));
  EXPECT_EQ(sim.asked(ptp::XTO_GET_PICTURE_FILE_SIZES), 1U);
}

// How a device is sent to depends on what it is.
TEST(SimulatedModels, AreSentToAsTheyTakeIt) {
  const struct {
    const char* description;
    std::vector<std::uint16_t> operations;
    std::uint16_t format;
  } rows[] = {
      {R"({"deviceInfo": {"model": "Tarvo Lumo X2"}})", {0x100C, 0x100D}, 0x3801},
      {R"({"deviceInfo": {"model": "Tarvo Lumo N10"}})", {0x100C, 0x100D}, 0x3000},
      {R"({"deviceInfo": {"operations": ["0x1001", "0x1002", "0x1003", "0x1008", "0x9005",
                                         "0x9006"]}})",
       {0x9005, 0x9006},
       0x3801},
  };
  for (const auto& row : rows) {
    auto description = nlohmann::json::parse(row.description);
    description["stores"] =
        nlohmann::json::parse(R"([{"id": "0x00010001", "capacity": 1000000, "free": 500000}])");
    SimulatedPTPDevice sim(description.dump());
    XTExtendedObjectInfo info;
    info.setObjFmtCode(0x3801);
    info.setFileName("F.JPG");
    info.setCompressedSize(3);
    std::uint32_t handle = 0;
    ASSERT_EQ(sim->sendObjectInfo(info, 0, 0, &handle), 0) << row.description;
    ASSERT_EQ(sim->sendObjectData(std::vector<std::byte>(3)), 0);
    for (const std::uint16_t operation : row.operations)
      EXPECT_EQ(sim.asked(operation), 1U) << row.description;
    ObjectInfoPointer sent;
    EXPECT_EQ(sim->objectInfo(sent, handle), 0);
    EXPECT_EQ(sent->objFmtCode(), row.format);
  }
}

TEST(SimulatedDownloads, BringTheBytesOfTheObject) {
  SimulatedPTPDevice sim(kFullCamera);
  TemporaryFolder folder;
  const auto picture = handleNamed(sim, "A.JPG");
  const auto content = onCamera(sim, picture);
  EXPECT_TRUE(textOf(*sim->downloadObject(picture)) == content);
  EXPECT_EQ(sim->downloadFile(picture, folder.path("file.jpg")), 0);
  EXPECT_EQ(sim->downloadImage(picture, folder.path("image.jpg")), 0);
  for (const char* name : {"file.jpg", "image.jpg"})
    EXPECT_TRUE(folder.read(name) == content) << name;
  const auto thumb = sim->downloadThumb(picture);
  ASSERT_TRUE(thumb);
  EXPECT_EQ(std::ssize(*thumb), sim->thumbSize(picture));
  EXPECT_FALSE(sim->downloadThumb(handleNamed(sim, "B.JPG")));
  EXPECT_EQ(sim->downloadFile(0x7777, folder.path("none")), status::kDeviceNotFound);
  EXPECT_FALSE(folder.exists("none"));
}

TEST(SimulatedDownloads, OfAnUnknownSizeAreReadToTheEndAndPartsWhereTheyAreAsked) {
  SimulatedPTPDevice sim(kFullCamera);
  const auto movie = handleNamed(sim, "C.MOV");
  EXPECT_EQ(sim->objectSize(movie), 0xFFFFFFFF);
  std::vector<std::byte> memory(5000);
  std::uint64_t received = 0;
  ptp::MemorySink whole(memory);
  EXPECT_EQ(sim->downloadEntireObject(movie, 0xFFFFFFFF, whole, received), 0);
  EXPECT_EQ(received, 2000U);
  ptp::MemorySink part(memory);
  EXPECT_EQ(sim->downloadPartialObject(movie, 1500, 100, part, received), 0);
  EXPECT_EQ(received, 100U);
  EXPECT_EQ(textOf(std::span(memory).first(1)), onCamera(sim, movie).substr(1500, 1));
  EXPECT_EQ(sim->downloadPartialObject(movie, 1950, 100, part, received), 0);
  EXPECT_EQ(received, 50U) << "what there is";
}

TEST(SimulatedSending, ArrivesAsItWasOnTheHostWithAtMostAByteOfPadding) {
  const struct {
    std::uint32_t size;
    std::size_t parts;
  } rows[] = {{0, 0}, {51, 0}, {52, 0}, {500, 0}, {2 * kMiB, 0}, {2 * kMiB + 52, 2}, {5 * kMiB, 3}};
  for (const auto& row : rows) {
    SimulatedPTPDevice sim(kFullCamera);
    TemporaryFolder folder;
    std::string content(row.size, 'x');
    for (std::size_t i = 0; i < content.size(); ++i)
      content[i] = static_cast<char>(i >> 8 ^ i);
    XTExtendedObjectInfo info;
    info.setObjFmtCode(0x3801);
    info.setFileName("SENT.JPG");
    info.setCompressedSize(row.size);
    std::uint32_t handle = 0;
    ASSERT_EQ(sim->sendContentsOfFile(folder.write("x", content), info, kStore, 0, &handle), 0)
        << row.size;
    EXPECT_EQ(sim.asked(ptp::XTO_SEND_OBJECT_PART), row.parts);
    EXPECT_EQ(sim->objectFilename(handle), "SENT.JPG");
    content.resize(sim->objectSize(handle));
    // The size of a part tells the device what is padding.
    const bool isPadded = row.parts == 0 && (row.size + 12) % 64 == 0;
    EXPECT_EQ(content.size(), row.size + (isPadded ? 1 : 0));
    EXPECT_TRUE(onCamera(sim, handle) == content) << row.size;
  }
}

TEST(SimulatedSending, OfExtendedInformationCanBeChangedAfterwards) {
  SimulatedPTPDevice sim(kFullCamera);
  auto info = XTExtendedObjectInfo::initExtended();
  info.setObjFmtCode(0x3801);
  info.setFileName("E.JPG");
  info.setCompressedSize(3);
  std::uint32_t handle = 0;
  ASSERT_EQ(sim->sendObjectInfo(info, kStore, 0, &handle), 0);
  ASSERT_EQ(sim->sendObjectData(std::vector<std::byte>(3)), 0);
  EXPECT_EQ(sim.asked(0x9202), 1U);
  EXPECT_EQ(sim->objectFilename(handle), "E.JPG");
  info.setFileName("RENAMED.JPG");
  EXPECT_EQ(sim->updateExtObjectInfo(info, handle), 0);
  EXPECT_EQ(sim->objectFilename(handle), "RENAMED.JPG");
}

/// Wants no more after the first piece.
struct ImpatientSink : ptp::MemorySink {
  using MemorySink::MemorySink;
  bool received(std::uint64_t, std::size_t) override { return false; }
};

TEST(SimulatedTransfers, ThatThisSideEndsLeaveADeviceThatWorksOn) {
  SimulatedPTPDevice sim(kFullCamera);
  TemporaryFolder folder;
  std::vector<std::byte> memory(3000000);
  ImpatientSink sink(memory);
  std::uint64_t received = 0;
  const auto picture = handleNamed(sim, "A.JPG");
  EXPECT_EQ(sim->downloadEntireObject(picture, 3000000, sink, received), -490);
  EXPECT_GT(received, 0U);
  EXPECT_EQ(sim->imageCount(), 3);

  XTExtendedObjectInfo info;
  info.setObjFmtCode(0x3801);
  info.setFileName("SHORT.JPG");
  info.setCompressedSize(3 * kMiB);
  std::uint32_t handle = 0;
  const auto path = folder.write("x", std::string(2 * kMiB + 5, 'x'));
  EXPECT_EQ(sim->sendContentsOfFile(path, info, kStore, 0, &handle), -36);
  EXPECT_EQ(sim->imageCount(), 3);
  sim->setDownloadUpdateCb([](std::uint32_t bytes) { return bytes > 0; });
  info.setCompressedSize(1 * kMiB);
  EXPECT_EQ(sim->sendContentsOfFile(path, info, kStore, 0, &handle), -490);
  EXPECT_EQ(sim->imageCount(), 3);
  sim.camera->forgetViolations();  // data that ended early
}

TEST(SimulatedDeleting, UsesTheOperationThatTheStoreTakes) {
  SimulatedPTPDevice sim(kFullCamera);
  for (const auto& [name, operation] :
       {std::pair("B.JPG", ptp::kDeleteObject), {"D.JPG", ptp::Operation(0x9209)}}) {
    const auto handle = handleNamed(sim, name);
    EXPECT_EQ(sim->deleteObject(ObjectReference(handle)), 0);
    EXPECT_EQ(sim.asked(operation), 1U) << name;
    EXPECT_FALSE(sim.camera->object(handle));
    EXPECT_EQ(sim->deleteObject(ObjectReference(handle)), 0x2009);
    EXPECT_FALSE(sim->objectFilename(handle)) << "nothing is remembered of it";
  }
  EXPECT_EQ(sim->deleteFilesOfType(0x3801), 0);
  EXPECT_EQ(sim->imageCount(), 0);
  EXPECT_EQ(sim->deleteFilesOfType(0x3801), 0) << "none is no failure";
}

TEST(SimulatedProperties, AreReadAndSetOneContainerLengthApart) {
  SimulatedPTPDevice sim(kFullCamera);
  EXPECT_EQ(sim->batteryLevel(), 80);
  EXPECT_EQ(sim->propertyDataSet(0x5001)->scanUInt16(), 0x5001);
  EXPECT_FALSE(sim->propertyDataSet(0x5002));
  // 52 bytes of value would make a container of 64.
  for (const std::uint32_t elements : {47U, 48U, 49U}) {
    auto value = XTMutablePTPDataSet::dataSetWithByteOrder(kPTPByteOrder);
    value.storeByteArray(std::vector<std::uint8_t>(elements, 9));
    EXPECT_EQ(sim->setProperty(0xD2F0, value.bytes()), 0) << elements;
    EXPECT_EQ(sim.camera->propertyValue(0xD2F0).size(), elements);
  }
  EXPECT_EQ(sim->setProperty(0x5001, std::vector<std::byte>(1)), 0x200F) << "read-only";
  EXPECT_EQ(sim->setDateTime(), 0);
  EXPECT_NE(sim.camera->propertyValue(0x5011), "20240615T120000");
}

TEST(SimulatedVendorQueries, AreAnswered) {
  SimulatedPTPDevice sim(kFullCamera);
  EXPECT_THAT(sim->supportedDatasets(), ElementsAre(0xB201, 0xB203));
  EXPECT_EQ(sim->displayRequestVersion(), 1);
  EXPECT_EQ(sim->bragbookVersion(), 2);
  EXPECT_TRUE(sim->doesLCBInfoWork());
  auto request = XTMutablePTPDataSet::dataSetWithByteOrder(kPTPByteOrder);
  request.storeString("hello");
  EXPECT_EQ(sim->displayRequest(request), 0x2001);
  EXPECT_EQ(sim.camera->displayRequest().size(), request.length());

  std::uint32_t query = 0;
  ASSERT_EQ(sim->sendQuery("SELECT * FROM pictures", &query), 0);
  ByteBuffer rows;
  bool ends = false;
  for (int i = 0; i < 5 && !ends; ++i)
    EXPECT_EQ(sim->getDBRowsFromQuery(query, 1, 12, rows, ends), 0);
  EXPECT_TRUE(ends);
  EXPECT_EQ(textOf(rows), "first rowsecond row");
  EXPECT_EQ(sim->endQuery(query, 1), 0);
  EXPECT_EQ(sim->getDBRowsFromQuery(query, 1, 12, rows, ends), 0x2009);
}

TEST(SimulatedDevice, WorksOnAfterAReset) {
  SimulatedPTPDevice sim(kFullCamera);
  EXPECT_EQ(sim->imageCount(), 3);
  EXPECT_EQ(sim->sendDeviceReset(), 0);
  EXPECT_EQ(sim->imageCount(), 3);
}

TEST(SimulatedDevice, ThatIsUnpluggedAnswersWithAStatusFromThenOn) {
  SimulatedPTPDevice sim(kFullCamera);
  const auto picture = handleNamed(sim, "A.JPG");
  ASSERT_EQ(sim.camera->setFault("vanish", "0x1009"), "");
  std::vector<std::byte> memory(3000000);
  ptp::MemorySink sink(memory);
  std::uint64_t received = 0;
  EXPECT_EQ(sim->downloadEntireObject(picture, 3000000, sink, received), 0x2002);
  EXPECT_EQ(sim->lastMessageStatus(), status::kICADeviceGone);
  EXPECT_EQ(sim->numberOfObjectsOnStore(kStore, 0), -1);
  EXPECT_EQ(sim->lastOutcome(), 0x2002);
}

TEST(SimulatedDevice, WhoseAnswersAreCutReadsAsZerosAndSaysSo) {
  SimulatedPTPDevice sim(kFullCamera);
  const auto picture = sim.camera->handles().back();
  ASSERT_EQ(sim.camera->setFault("truncate", "20,0x1008"), "");
  EXPECT_EQ(sim->objectFilename(picture), "");
  EXPECT_TRUE(sim.trace.contains("objectInfoUncached read "));
  ASSERT_EQ(sim.camera->setFault("truncate", "6,0x1005"), "");
  EXPECT_EQ(sim->storageInfo(kStore)->maxCapacity, 0U);
  EXPECT_TRUE(sim.trace.contains("getStorageInfo read 26 bytes, the device sent 6"));
}

TEST(SimulatedDevice, IsAskedAnewAboutAnObjectOfWhichItReportedAChange) {
  SimulatedPTPDevice sim(kFullCamera);
  const auto picture = handleNamed(sim, "B.JPG");
  const auto before = sim.asked(ptp::kGetObjectInfo);
  ASSERT_EQ(sim->registerForExtendedEvents(), 0);
  int reported = 0;
  sim.center.addObserver(&reported, "DeviceEvent", [&](const Notification&) { ++reported; });
  sim.camera->removeObject(picture);
  EXPECT_TRUE(waitUntil([&] { return reported > 0; }));
  EXPECT_FALSE(sim->objectFilename(picture));
  EXPECT_GT(sim.asked(ptp::kGetObjectInfo), before);
  sim.center.removeObserver(&reported);
}

}  // namespace
}  // namespace tarvo::test
