// How orders are read from data sets and marker files, what is left out of them, and how they are
// deleted: with a failure at every step.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/operations/OrderLists.h"
#include "tests/support/Raised.h"
#include "tests/support/ScriptedPTPTransactions.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TraceRecorder.h"

namespace tarvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::Field;

constexpr char kID[] = "00112233-4455-6677-8899-AABBCCDDEEFF";

const Exception kWithCode("XTPTPException", "refused", {{"ptpErrorCode", 0x200F}});
const Exception kWithoutCode("XTPTPException", "refused", {{"ptpResponseCode", 0x2019}});

/// Pictures 1 and 2 with names, e-mail orders 11 and 12, print orders 21 and 22.
class OrderListsTest : public ::testing::Test {
 protected:
  OrderListsTest() {
    device_.add(1, "DCIM/A.JPG", "");
    device_.add(2, "B.JPG", "");
    for (const std::uint32_t handle : {11U, 12U})
      device_.addRecord(handle, ptp::XTD_EMAIL_ORDER,
                        {.orderID = kID, .destContacts = {31, 99}, .assetHandles = {1, 2, 3}},
                        storeEmailOrder);
    for (const std::uint32_t handle : {21U, 22U})
      device_.addRecord(handle, ptp::XTD_PRINT_ORDER,
                        {.orderID = kID, .quantity = 3, .asset = handle - 20}, storePrintOrder);
    auto contact = std::make_shared<Contact>();
    contact->email = "a@b.example";
    context_.contacts[31] = contact;
  }

  Status readEmailOrders() { return lists_.fillInEmailOrderList(emails_, {11, 12}, context_); }
  Status readPrintOrders() { return lists_.fillInPrintOrderList(prints_, {21, 22}, context_); }

  ScriptedPTPTransactions device_;
  OrderContext context_;
  std::map<std::uint32_t, std::uint32_t> counts_;
  ReadingReport report_;
  OrderLists lists_{device_, counts_, report_};
  EmailOrders emails_;
  PrintOrders prints_;
};

TEST_F(OrderListsTest, KeepOfATransferWhatIsAllowed) {
  context_.allowedAssets = {2};
  EXPECT_EQ(readEmailOrders(), 0);
  EXPECT_EQ(readPrintOrders(), 0);
  EXPECT_THAT(emails_[0].destAddresses, ElementsAre("a@b.example")) << "those that are known";
  EXPECT_THAT(emails_[0].assets, ElementsAre("B.JPG"));
  EXPECT_THAT(emails_[0].record->assetHandles, ElementsAre(2U));
  EXPECT_EQ(counts_[11], 3U) << "as many as were read";
  EXPECT_THAT(prints_, ElementsAre(Field(&PrintOrder::handle, 22U)));
  EXPECT_THAT(prints_[0].assets, ElementsAre("B.JPG"));
  context_.allowedAssets.emplace();
  EXPECT_EQ(readEmailOrders(), 0);
  EXPECT_EQ(emails_.size(), 2U);
  EXPECT_EQ(report_.withheld, 3U);
  EXPECT_TRUE(report_.isComplete());
}

TEST_F(OrderListsTest, SayWhatAFailureLeavesOut) {
  constexpr char kNoDataSet[] = "Error getting print order data set.";
  constexpr char kNoInformation[] =
      "Error getting object info for asset referenced by print order.";
  const struct {
    const char* call;
    Status failure;
    const Exception* raised;
    Status returned;
    std::vector<std::uint32_t> orders;  ///< that are read
    Status reported;
    const char* trace;
  } rows[] = {
      {"GetDataSet 11 B204", 0x2009, nullptr, 0, {12}, 0x2009, "cannot be read: 0x2009"},
      {"GetDataSet 11 B204", 0, &kWithCode, 0x200F, {}, 0x200F, nullptr},
      {"GetDataSet 12 B204", 0, &kWithoutCode, 0, {11}, 0x2019, "counts as success"},
      {"GetObjectInfo 1", 0x2009, nullptr, 0, {11, 12}, 0, "has no information: 0x2009"},
      {"GetDataSet 22 B205", 0x2019, nullptr, 0x2002, {21}, 0x2019, kNoDataSet},
      {"GetDataSet 22 B205", 0, &kWithCode, 0x200F, {21}, 0x200F, nullptr},
      {"GetObjectInfo 2", 0x2009, nullptr, 0x2002, {21}, 0x2009, kNoInformation},
  };
  for (const auto& row : rows) {
    TraceRecorder traces;
    device_.failing = {{row.call, row.failure}};
    device_.raising.clear();
    if (row.raised) device_.raising.emplace(row.call, *row.raised);
    emails_.clear();
    prints_.clear();
    report_ = {};
    const bool isPrint = !row.orders.empty() && row.orders.front() > 20;
    EXPECT_EQ(isPrint ? readPrintOrders() : readEmailOrders(), row.returned) << row.call;
    std::vector<std::uint32_t> read;
    for (const auto& order : emails_)
      read.push_back(order.handle);
    for (const auto& order : prints_)
      read.push_back(order.handle);
    EXPECT_EQ(read, row.orders) << row.call;
    EXPECT_EQ(report_.status, row.reported) << row.call;
    EXPECT_EQ(report_.listed, 2U);
    EXPECT_EQ(report_.isComplete(), row.reported == 0) << row.call;
    EXPECT_EQ(report_.read, read.size());
    if (row.trace) {
      EXPECT_THAT(traces.take(), ::testing::Contains(::testing::HasSubstr(row.trace))) << row.call;
    }
  }
  device_.dataSets[12].resize(30);
  EXPECT_EQ(raised([&] { readEmailOrders(); }).substr(0, 16), "NSRangeException");
}

TEST_F(OrderListsTest, CountWhatWasCutShortAsUnread) {
  device_.addRecord(51, ptp::XTD_SQUIRT_TRANSFER_ORDER,
                    {.orderID = kID, .type = 4, .sender = "Ann", .assetHandles = {7}},
                    storeTransferOrder);
  TransferOrders transfers(device_, report_);
  const std::function<void()> readings[] = {[&] { readEmailOrders(); }, [&] { readPrintOrders(); },
                                            [&] { static_cast<void>(transfers.first(counts_)); },
                                            [&] { static_cast<void>(transfers.firstCount()); }};
  for (const std::size_t length : {0U, 3U, 20U, 26U}) {
    device_.cutAfter = length;
    for (const auto& read : readings) {
      report_ = {};
      read();
      EXPECT_EQ(report_.read, 0U) << length;
      EXPECT_EQ(report_.status, 0x2007) << length;
    }
  }
}

TEST_F(OrderListsTest, ReadMarkersByTheBeginningOfTheirNames) {
  TemporaryFolder folder;
  const ScopedEnvironment temporary("TMPDIR", folder.path());
  const std::string email = "\n[JOB]\nDST EML=\"x@y.z\"\nIMG SRC=\"../A.JPG\"\n";
  const std::string print = "\n[JOB]\nPRT QTY=2\n<IMG SRC=\"B.JPG\">\n";
  device_.operations = {0x101B};
  device_.add(41, "EMAILTAG1.MRK", email, kMarkerFormat);
  device_.add(42, "AUTXFER.MRK", email, kMarkerFormat);
  device_.add(43, "PRINTTAG.MRK", print, kMarkerFormat);
  device_.add(44, "AUTPRINT", print, kMarkerFormat);
  device_.add(45, "xEMAILTAG.MRK", email, kMarkerFormat);
  device_.add(46, "EMAILTAG.MRK", email, 0x3004);
  lists_.fillInFromMarkers(emails_, "UTF-8");
  EXPECT_EQ(emails_, EmailOrders(2, {.destAddresses = {"x@y.z"}, .assets = {"A.JPG"}}));
  lists_.fillInFromMarkers(prints_, "UTF-8");
  EXPECT_EQ(prints_, PrintOrders(2, {.quantity = 2, .assets = {"B.JPG"}}));
  EXPECT_TRUE(report_.isComplete());
  EXPECT_EQ(report_.listed, 4U);
  for (const auto& left : std::filesystem::recursive_directory_iterator(folder.path()))
    EXPECT_TRUE(left.is_directory()) << left.path();

  const struct {
    const char* call;
    std::size_t orders;
    std::size_t listed;
    std::vector<std::uint32_t> unreadable;
  } rows[] = {
      {"GetObjectHandles FFFFFFFF 3006", 0, 0, {}},
      {"GetObjectInfo 41", 1, 2, {41}},
      {"GetObjectInfo 44", 2, 3, {44}},  // it might be one
      {"GetObject 42", 1, 2, {42}},
      {"GetObject 43", 2, 2, {}},
  };
  for (const auto& row : rows) {
    device_.failing = {{row.call, 0x2019}};
    emails_.clear();
    report_ = {};
    lists_.fillInFromMarkers(emails_, "UTF-8");
    EXPECT_EQ(emails_.size(), row.orders) << row.call;
    EXPECT_EQ(report_.listed, row.listed) << row.call;
    EXPECT_EQ(report_.unreadable, row.unreadable) << row.call;
    EXPECT_EQ(report_.isComplete(), std::string(row.call) == "GetObject 43") << row.call;
  }
}

TEST_F(OrderListsTest, AreDeletedByWholeNamesUntilOneFails) {
  device_.capabilities.hasDeleteObject = true;
  std::uint32_t handle = 41;
  for (const char* name : {"PRINTTAG.MRK", "EMAILTAG1.MRK", "EMAILTAG.MRK", "autxfer.mrk",
                           "AUTXFER.MRK", "AUTPRINT.MRK"})
    device_.add(handle++, name, "", kMarkerFormat);
  const std::vector<std::string> markers = {"Delete 41 0000 100B", "Delete 43 0000 100B",
                                            "Delete 45 0000 100B", "Delete 46 0000 100B"};
  const std::vector<std::string> dataSets = {"Delete 11 0000 9209", "Delete 12 0000 9209",
                                             "Delete 21 0000 9209", "Delete 22 0000 9209"};
  const struct {
    const char* failing;
    Status failure;
    std::size_t markers;  ///< deletions that are tried
    Status markerStatus;
    std::size_t dataSets;
    Status dataSetStatus;
  } rows[] = {
      {"GetObjectHandles", 0x200B, 0, 0, 0, 0},  // no such format is nothing to delete
      {"GetObjectInfo 41", 0x2009, 3, 0, 4, 0},
      {"Delete 41 0000 100B", 0x200D, 1, 0x200D, 4, 0},
      {"Delete 21 0000 9209", 0x200D, 4, 0, 3, 0x200D},
      {"GetObjectHandles FFFFFFFF B205", 0x2019, 4, 0, 2, 0x2019},
  };
  const auto deletions = [&] {
    std::vector<std::string> calls = std::exchange(device_.calls, {});
    std::erase_if(calls, [](const auto& call) { return !call.starts_with("Delete"); });
    return calls;
  };
  for (const auto& row : rows) {
    device_.failing = {{row.failing, row.failure}};
    EXPECT_EQ(OrderDeletion(device_).deleteMarkers(), row.markerStatus) << row.failing;
    const auto tried = deletions();
    EXPECT_EQ(tried.size(), row.markers) << row.failing;
    EXPECT_THAT(tried, ::testing::IsSubsetOf(markers));
    EXPECT_EQ(OrderDeletion(device_).deleteDataSets(), row.dataSetStatus) << row.failing;
    EXPECT_EQ(deletions(),
              std::vector(dataSets.begin(), dataSets.begin() + static_cast<int>(row.dataSets)));
  }
}

TEST_F(OrderListsTest, ForTransferAreTheFirstAndJoinedByTheOthers) {
  ReadingReport transferReport;
  TransferOrders transfers(device_, transferReport);
  EXPECT_EQ(transfers.first(counts_), TransferOrder());
  EXPECT_EQ(transfers.firstCount(), 0);
  device_.addRecord(51, ptp::XTD_SQUIRT_TRANSFER_ORDER,
                    {.orderID = kID, .type = 4, .sender = "Ann", .assetHandles = {7, 1}},
                    storeTransferOrder);
  device_.addRecord(52, ptp::XTD_SQUIRT_TRANSFER_ORDER, TransferOrderRecord(), storeTransferOrder);
  device_.calls.clear();
  auto order = transfers.first(counts_);
  EXPECT_THAT(device_.calls, ElementsAre("GetObjectHandles FFFFFFFF B209", "GetDataSet 51 B209"));
  EXPECT_EQ(order.handle, 51U);
  EXPECT_EQ(order.record.sender, "Ann");
  EXPECT_THAT(counts_, ElementsAre(std::pair(51U, 2U)));
  EXPECT_EQ(transfers.firstCount(), 2);

  EXPECT_TRUE(transferReport.isComplete());
  device_.failing["GetDataSet 12 B204"] = 0x2002;
  transfers.mergeOtherOrdersInto(order);
  EXPECT_THAT(transferReport.unreadable, ElementsAre(12U));
  EXPECT_THAT(order.record.assetHandles, ElementsAre(1U, 2U, 3U, 1U, 2U, 7U, 1U));
  device_.failing = {{"GetObjectHandles", 0x2002}};
  const auto merged = order;
  transfers.mergeOtherOrdersInto(order);
  EXPECT_EQ(order, merged);
  device_.failing = {{"GetDataSet", 0x2002}};
  EXPECT_EQ(transfers.first(counts_), TransferOrder{.handle = 51});
  EXPECT_EQ(transfers.firstCount(), 0);
  // A count that no picture belongs to is still the device's word.
  device_.failing.clear();
  device_.dataSets[51].resize(22);
  for (const unsigned byte : {0U, 0xFFU, 0xFFU, 0xFFU, 0xFFU})
    device_.dataSets[51].push_back(static_cast<std::uint8_t>(byte));
  EXPECT_EQ(transfers.firstCount(), 0x7FFFFFFF);
}

}  // namespace
}  // namespace tarvo::test
