// Deleting, moving, copying, protecting, formatting: what becomes of objects and of the room.
#include "tests/simulator/ResponderFixture.h"

namespace tarvo::simulator {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr std::uint32_t kCard = 0x00010001;
constexpr std::uint32_t kReadOnlyStore = 0x00020001;
constexpr std::uint32_t kVendorStore = 0x00030001;
constexpr std::uint32_t kAll = 0xFFFFFFFF;

class Changes : public ResponderFixture {};

TEST_F(Changes, DeleteTakesWhatIsNotProtectedAndSaysSo) {
  describeStores();
  EXPECT_EQ(code(ptp::kDeleteObject, {3}), kObjectWriteProtected);
  EXPECT_EQ(code(ptp::kDeleteObject, {1}), kPartialDeletion);
  EXPECT_THAT(objects().handles({kCard, 0, 0}), ElementsAre(1, 3, 4));
  EXPECT_EQ(freeBytes(kCard), 1300U);
  EXPECT_EQ(code(ptp::kSetObjectProtection, {3, 0}), kOK);
  EXPECT_EQ(code(ptp::kDeleteObject, {1}), kOK);
  EXPECT_EQ(code(ptp::kDeleteObject, {1}), kInvalidObjectHandle);
  EXPECT_EQ(code(ptp::kDeleteObject, {5}), kStoreReadOnly);
  EXPECT_EQ(freeBytes(kCard), 1400U);
  EXPECT_THAT(complaints_, IsEmpty());
}

TEST_F(Changes, DeleteOfEverythingGoesAsFarAsItMay) {
  describeStores();
  EXPECT_EQ(code(ptp::kDeleteObject, {kAll, 0x3004}), kOK);
  EXPECT_THAT(objects().handles({kCard, 0, 0}), ElementsAre(1, 2, 3));
  EXPECT_EQ(code(ptp::kDeleteObject, {kAll}), kPartialDeletion);
  EXPECT_THAT(objects().handles({}), ElementsAre(1, 3, 5));
  EXPECT_EQ(code(ptp::kDeleteObject, {kAll, 0xFFFFFFFF}), kObjectWriteProtected);
}

TEST_F(Changes, AStoreOfTheMakerIsEmptiedByItsOwnOperationOnly) {
  describeStores(R"("vendor": {"operations": ["0x9209"]},)");
  const auto copy = ask(ptp::kCopyObject, {4, kVendorStore}).parameters.at(0);
  EXPECT_EQ(code(ptp::kDeleteObject, {copy}), kAccessDenied);
  EXPECT_EQ(code(kVendorDelete, {copy, 0}), kOK);
  EXPECT_EQ(freeBytes(kVendorStore), 200U);
}

TEST_F(Changes, HandlesAreNeverUsedAgain) {
  describeStores();
  code(ptp::kDeleteObject, {4});
  EXPECT_EQ(ask(ptp::kCopyObject, {2, kCard}).parameters.at(0), 6U);
  code(ptp::kDeleteObject, {6});
  EXPECT_EQ(ask(ptp::kCopyObject, {2, kCard}).parameters.at(0), 7U);
}

TEST_F(Changes, ACopyHasTheBytesOfItsOriginal) {
  describeStores();
  const auto copy = ask(ptp::kCopyObject, {1, kCard}).parameters.at(0);
  const auto inside = objects().handles({kCard, 0, copy});
  ASSERT_THAT(inside, SizeIs(2));
  EXPECT_EQ(allBytes(*ask(ptp::kGetObject, {inside[0]}).data),
            allBytes(*ask(ptp::kGetObject, {2}).data));
  EXPECT_EQ(freeBytes(kCard), 600U);
}

TEST_F(Changes, MoveAndCopyGoOnlyWhereThereIsAPlace) {
  describeStores();
  struct Row {
    std::uint16_t operation;
    std::vector<std::uint32_t> parameters;
    std::uint16_t expected;
  };
  const Row rows[] = {
      {ptp::kMoveObject, {9, kCard, 0}, kInvalidObjectHandle},
      {ptp::kMoveObject, {2, 5, 0}, kInvalidStorageID},
      {ptp::kMoveObject, {2, kReadOnlyStore, 0}, kStoreReadOnly},
      {ptp::kMoveObject, {5, kCard, 0}, kStoreReadOnly},
      {ptp::kMoveObject, {2, kCard, 4}, kInvalidParentObject},
      {ptp::kMoveObject, {1, kCard, 1}, kInvalidParentObject},
      {ptp::kMoveObject, {3, kCard, 0}, kObjectWriteProtected},
      {ptp::kMoveObject, {2, kVendorStore, 0}, kStoreFull},
      {ptp::kCopyObject, {2, kVendorStore, 0}, kStoreFull},
      {ptp::kCopyObject, {5, kCard, 1}, kOK},
      {ptp::kMoveObject, {4, kCard, 1}, kOK},
      {ptp::kMoveObject, {2, kCard, 0xFFFFFFFF}, kOK},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(code(row.operation, row.parameters), row.expected)
        << "object " << row.parameters[0] << " to " << row.parameters[1];
  }
  EXPECT_EQ(objects().object(4)->parent, 1U);
  EXPECT_EQ(objects().object(2)->parent, 0U);
}

TEST_F(Changes, FormattingEmptiesOneStore) {
  describeStores();
  EXPECT_EQ(code(ptp::kFormatStore, {kReadOnlyStore}), kStoreReadOnly);
  EXPECT_EQ(code(ptp::kFormatStore, {1}), kInvalidStorageID);
  EXPECT_EQ(code(ptp::kFormatStore, {kCard}), kOK);
  EXPECT_THAT(objects().handles({}), ElementsAre(5));
  EXPECT_EQ(freeBytes(kCard), 2000U);
}

TEST_F(Changes, GeneratedFilesAreChangedOneByOne) {
  describe(R"("stores": [{"capacity": 5000000, "free": 0, "content": [
      {"folder": "D", "content": [{"generate": {"count": 100000, "size": 10}}]}]}])");
  EXPECT_EQ(code(ptp::kDeleteObject, {50}), kOK);
  EXPECT_EQ(code(ptp::kSetObjectProtection, {60, 1}), kOK);
  EXPECT_EQ(objects().count({}), 100000U);
  EXPECT_FALSE(objects().object(50));
  EXPECT_EQ(code(ptp::kDeleteObject, {kAll}), kPartialDeletion);
  EXPECT_THAT(objects().handles({}), ElementsAre(1, 60));
  EXPECT_EQ(objects().object(60)->nameText(), "TARV000059.JPG");
  EXPECT_EQ(freeBytes(0x00010001), 999990U);
}

TEST_F(Changes, ACaptureMakesAPictureAndTellsOfIt) {
  describeStores(R"("capture": {"size": 600},)");
  const auto reply = ask(ptp::kInitiateCapture, {0, 0});
  ASSERT_THAT(reply.events, SizeIs(3));
  EXPECT_EQ(reply.events[0].code, kObjectAdded);
  EXPECT_THAT(reply.events[0].parameters, ElementsAre(6));
  EXPECT_EQ(reply.events[1].code, kStoreFullEvent);
  EXPECT_EQ(reply.events[2].code, kCaptureComplete);
  EXPECT_THAT(reply.events[2].parameters, ElementsAre(transaction_));
  EXPECT_EQ(objects().object(6)->nameText(), "CAPT0001.JPG");
  EXPECT_EQ(code(ptp::kInitiateCapture, {kCard, 0}), kStoreFull);
}

TEST_F(Changes, AnOpenCaptureIsEndedByItsTransaction) {
  describeStores(R"("capture": {"size": 6},)");
  EXPECT_EQ(code(ptp::kTerminateOpenCapture, {1}), kCaptureAlreadyTerminated);
  EXPECT_EQ(code(ptp::kInitiateOpenCapture, {0, 0}), kOK);
  const auto begun = transaction_;
  EXPECT_EQ(code(ptp::kInitiateOpenCapture, {0, 0}), kDeviceBusy);
  EXPECT_EQ(code(ptp::kTerminateOpenCapture, {99}), kInvalidTransactionID);
  const auto reply = ask(ptp::kTerminateOpenCapture, {begun});
  ASSERT_THAT(reply.events, SizeIs(2));
  EXPECT_THAT(reply.events[1].parameters, ElementsAre(begun));
}

}  // namespace
}  // namespace tarvo::simulator
