// A PTP device on a simulated camera, through the service and the transport: what is moved from one
// end to the other, and what is left afterwards. The camera checks the host as strictly as the
// standard lets it.
#include <gtest/gtest.h>

#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/operations/DataPhases.h"
#include "Utilities/PTPCodes.h"
#include "tests/support/SimulatedPTPDevice.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {
namespace {

constexpr std::uint32_t kMebibyte = 1U << 20;
constexpr std::uint32_t kStore = 0x00010001;

/// Two pictures, and what a part at a time can be sent to.
constexpr char kFullCamera[] = R"({
  "vendor": {"operations": ["0x9019"]},
  "stores": [
    {"id": "0x00010001", "capacity": 1000000000, "free": 500000000, "content": [
      {"file": "A.JPG", "size": 3000000}, {"file": "B.JPG", "size": 1000}]}]
})";

std::uint32_t handleNamed(const SimulatedPTPDevice& sim, const std::string& name) {
  for (const std::uint32_t handle : sim.camera->handles())
    if (sim->objectFilename(handle) == name) return handle;
  ADD_FAILURE() << "no object " << name;
  return 0;
}

/// An address book as data sets.
constexpr char kDataSetCamera[] = R"({
  "vendor": {"supportedDatasets": ["0xB201", "0xB202", "0xB203", "0xB204", "0xB205", "0xB209"],
             "addressBook": {"characterTypeLimitation": 3, "maxAddresses": 8, "maxGroups": 4,
                             "maxAddressesPerGroup": 4, "maxAddressLengthInBytes": 60,
                             "maxNicknameLengthInBytes": 20, "maxGroupNameLengthInBytes": 20}},
  "datasets": {
    "contacts": [{"nickname": "Anna", "email": "anna@example.org"},
                 {"nickname": "Bo", "email": "bo@example.org"}],
    "groups": [{"name": "Family", "members": ["Bo", "Anna"]}, {"name": "Nobody"}]},
  "stores": [{"id": "0x00010001", "capacity": 9000000, "content": [
    {"file": "A.JPG", "size": 100}, {"file": "B.JPG", "size": 200}]}]
})";

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
  EXPECT_EQ(sim->imageCount(), 2);

  const auto path = folder.write("x", std::string(2 * kMebibyte + 5, 'x'));
  const auto send = [&](std::uint32_t size) {
    XTExtendedObjectInfo info;
    info.setObjFmtCode(0x3801);
    info.setCompressedSize(size);
    std::uint32_t handle = 0;
    return sim->sendContentsOfFile(path, info, kStore, 0, &handle);
  };
  EXPECT_EQ(send(3 * kMebibyte), -36) << "the file is shorter";
  EXPECT_EQ(sim->imageCount(), 2);
  sim->setDownloadUpdateCb([](std::uint32_t bytes) { return bytes > 0; });
  EXPECT_EQ(send(kMebibyte), -490);
  EXPECT_EQ(sim->imageCount(), 2);
  sim.camera->forgetViolations();  // data that ended early
}

TEST(SimulatedDevice, HasItsAddressBookTracedAndKeptAsItWasWritten) {
  SimulatedPTPDevice sim(kDataSetCamera);
  auto book = *sim->addressBookDict();
  EXPECT_TRUE(sim.trace.contains("AddressBookDict: {"));
  EXPECT_TRUE(sim.trace.contains("data: 0x14 0x0 0x0 0x0")) << "the last four of 28 bytes";
  (*book.groups)[1]->action = DataSyncAction::kDelete;
  EXPECT_EQ(sim->setAddressBookDict(book), 0);
  EXPECT_TRUE(sim.trace.contains("validateAddressBookDict:"));
  EXPECT_EQ(sim->addressBookDictUncached()->groups->size(), 1U);
  EXPECT_EQ(sim->addressBookDict()->groups->size(), 1U) << "what is kept has been written";
  EXPECT_EQ(sim.camera->setFault("respond", "0x2019,0x1007"), "");
  const auto unlisted = sim->addressBookDictUncached();
  EXPECT_FALSE(unlisted && unlisted->contacts) << "never taken for empty";
  EXPECT_EQ(sim->lastReading().status, 0x2019);
}

TEST(SimulatedDevice, WhoseAnswersAreCutReadsAsZerosAndSaysSo) {
  SimulatedPTPDevice sim(kFullCamera);
  ASSERT_EQ(sim.camera->setFault("truncate", "20,0x1008"), "");
  EXPECT_EQ(sim->objectFilename(sim.camera->handles().back()), "");
  EXPECT_TRUE(sim.trace.contains("objectInfoUncached read "));
}

}  // namespace
}  // namespace tarvo::test
