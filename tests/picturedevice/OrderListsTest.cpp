// How orders and the address book are read from data sets and marker files, how they are deleted
// and written: what each step sends, and what a failure at each of them leaves behind.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/operations/AddressBookSync.h"
#include "NativeServices/PictureDevice/operations/OrderLists.h"
#include "tests/support/FakeImageCapture.h"
#include "tests/support/Raised.h"
#include "tests/support/ScriptedPTPTransactions.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TraceRecorder.h"

namespace tarvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

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
  EXPECT_THAT(prints_, ElementsAre(testing::Field(&PrintOrder::handle, 22U)));
  context_.allowedAssets.emplace();
  EXPECT_EQ(readEmailOrders(), 0);
  EXPECT_EQ(report_.withheld, 3U);
  EXPECT_TRUE(report_.isComplete());
}

TEST_F(OrderListsTest, SayWhatAFailureLeavesOut) {
  constexpr char kNoDataSet[] = "Error getting print order data set.";
  constexpr char kNoInformation[] =
      "Error getting object info for asset referenced by print order.";
  // orders: that are read
  const std::tuple<const char*, Status, const Exception*, Status, std::vector<std::uint32_t>,
                   Status, const char*>
      rows[] = {
          {"GetDataSet 11 B204", 0x2009, nullptr, 0, {12}, 0x2009, "cannot be read: 0x2009"},
          {"GetDataSet 11 B204", 0, &kWithCode, 0x200F, {}, 0x200F, nullptr},
          {"GetDataSet 12 B204", 0, &kWithoutCode, 0, {11}, 0x2019, "counts as success"},
          {"GetObjectInfo 1", 0x2009, nullptr, 0, {11, 12}, 0, "has no information: 0x2009"},
          {"GetDataSet 22 B205", 0x2019, nullptr, 0x2002, {21}, 0x2019, kNoDataSet},
          {"GetDataSet 22 B205", 0, &kWithCode, 0x200F, {21}, 0x200F, nullptr},
          {"GetObjectInfo 2", 0x2009, nullptr, 0x2002, {21}, 0x2009, kNoInformation},
      };
  for (const auto& [call, failure, exception, returned, orders, reported, trace] : rows) {
    TraceRecorder traces;
    device_.failing = {{call, failure}};
    device_.raising.clear();
    if (exception) device_.raising.emplace(call, *exception);
    emails_.clear();
    prints_.clear();
    report_ = {};
    const bool isPrint = !orders.empty() && orders.front() > 20;
    EXPECT_EQ(isPrint ? readPrintOrders() : readEmailOrders(), returned) << call;
    std::vector<std::uint32_t> read;
    for (const auto& order : emails_)
      read.push_back(order.handle);
    for (const auto& order : prints_)
      read.push_back(order.handle);
    EXPECT_EQ(read, orders) << call;
    EXPECT_EQ(report_.status, reported) << call;
    EXPECT_EQ(report_.isComplete(), reported == 0) << call;
    EXPECT_EQ(report_.read, read.size());
    if (trace) {
      EXPECT_THAT(traces.take(), ::testing::Contains(::testing::HasSubstr(trace))) << call;
    }
  }
  device_.dataSets[12].resize(30);
  EXPECT_EQ(raised([&] { readEmailOrders(); }).substr(0, 16), "NSRangeException");
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

  const std::tuple<const char*, std::size_t, std::size_t, std::vector<std::uint32_t>> rows[] = {
      {"GetObjectHandles FFFFFFFF 3006", 0, 0, {}},
      {"GetObjectInfo 44", 2, 3, {44}},  // it might be one
      {"GetObject 42", 1, 2, {42}},
      {"GetObject 43", 2, 2, {}},
  };
  for (const auto& [call, orders, listed, unreadable] : rows) {
    device_.failing = {{call, 0x2019}};
    emails_.clear();
    report_ = {};
    lists_.fillInFromMarkers(emails_, "UTF-8");
    EXPECT_EQ(emails_.size(), orders) << call;
    EXPECT_EQ(report_.listed, listed) << call;
    EXPECT_EQ(report_.unreadable, unreadable) << call;
    EXPECT_EQ(report_.isComplete(), std::string(call) == "GetObject 43") << call;
  }
}

TEST_F(OrderListsTest, AreDeletedByWholeNamesUntilOneFails) {
  device_.capabilities.hasDeleteObject = true;
  std::uint32_t handle = 41;
  for (const char* name : {"PRINTTAG.MRK", "EMAILTAG1.MRK", "EMAILTAG.MRK", "autxfer.mrk"})
    device_.add(handle++, name, "", kMarkerFormat);
  using Handles = std::vector<std::string>;
  const std::tuple<const char*, Status, Handles, Status, Handles, Status> rows[] = {
      // No such format is nothing to delete.
      {"GetObjectHandles", 0x200B, {}, 0, {}, 0},
      {"GetObjectInfo 41", 0x2009, {"43"}, 0, {"11", "12", "21", "22"}, 0},
      {"Delete 41 0000 100B", 0x200D, {"41"}, 0x200D, {"11", "12", "21", "22"}, 0},
      {"Delete 21 0000 9209", 0x200D, {"41", "43"}, 0, {"11", "12", "21"}, 0x200D},
      {"GetObjectHandles FFFFFFFF B205", 0x2019, {"41", "43"}, 0, {"11", "12"}, 0x2019},
  };
  const auto deletions = [&] {
    Handles handles;
    for (const auto& call : std::exchange(device_.calls, {}))
      if (call.starts_with("Delete")) handles.push_back(call.substr(7, 2));
    return handles;
  };
  for (const auto& [failing, failure, markers, markerStatus, dataSets, dataSetStatus] : rows) {
    device_.failing = {{failing, failure}};
    EXPECT_EQ(OrderDeletion(device_).deleteMarkers(), markerStatus) << failing;
    EXPECT_EQ(deletions(), markers) << failing;
    EXPECT_EQ(OrderDeletion(device_).deleteDataSets(), dataSetStatus) << failing;
    EXPECT_EQ(deletions(), dataSets) << failing;
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
  auto order = transfers.first(counts_);
  EXPECT_EQ(order.handle, 51U);
  EXPECT_EQ(order.record.sender, "Ann");
  EXPECT_THAT(counts_, ElementsAre(std::pair(51U, 2U)));
  EXPECT_EQ(transfers.firstCount(), 2);

  device_.failing["GetDataSet 12 B204"] = 0x2002;
  transfers.mergeOtherOrdersInto(order);
  EXPECT_THAT(transferReport.unreadable, ElementsAre(12U));
  EXPECT_THAT(order.record.assetHandles, ElementsAre(1U, 2U, 3U, 1U, 2U, 7U, 1U));
  device_.failing = {{"GetDataSet", 0x2002}};
  EXPECT_EQ(transfers.first(counts_), TransferOrder{.handle = 51});
  EXPECT_EQ(transfers.firstCount(), 0);
  // A count that no picture belongs to is still the device's word.
  device_.failing.clear();
  device_.dataSets[51].resize(22);
  device_.dataSets[51].insert(device_.dataSets[51].end(), {0, 0xFF, 0xFF, 0xFF, 0xFF});
  EXPECT_EQ(transfers.firstCount(), 0x7FFFFFFF);
}

const MakerConstants kMaker;

using enum DataSyncAction;

/// Contacts 1 and 2, groups 5 (both of them) and 6 (nobody).
struct DeviceWithBook : ScriptedPTPTransactions {
  DeviceWithBook() {
    for (const std::uint32_t handle : {1U, 2U})
      addRecord(handle, ptp::XTD_CONTACT, Contact{.email = "c" + std::to_string(handle)},
                storeContact);
    addGroup(5, {2, 1});
    addGroup(6, {});
  }
  void addGroup(std::uint32_t handle, const std::vector<std::uint32_t>& members) {
    addDataSet(handle, ptp::XTD_GROUP, {});
    auto& bytes = dataSets[handle];
    bytes = {0, 0, 0, 0, 0, static_cast<std::uint8_t>(members.size()), 0, 0, 0};
    for (const std::uint32_t member : members)
      bytes.insert(bytes.end(), {static_cast<std::uint8_t>(member), 0, 0, 0});
  }
};

TEST(AddressBookReading, GivesNothingAfterAFailureAtAnyStep) {
  for (const std::string call : {"GetDataSet 2 B203", "GetDataSet 6 B202"}) {
    for (const bool raises : {false, true}) {
      DeviceWithBook device;
      if (!raises) device.failing = {{call, 0x2019}};
      if (raises) device.raising.emplace(call, kWithCode);
      AddressBook book;
      ReadingReport report;
      EXPECT_EQ(AddressBookReading(device, report).fillInABDict(book, {1, 2}, {5, 6}),
                raises ? 0x200F : 0x2002);
      EXPECT_EQ(device.calls.back(), call);
      EXPECT_FALSE(book.contacts || book.groups) << call;
      EXPECT_EQ(report.read + 1, device.calls.size());
      EXPECT_EQ(report.status, raises ? 0x200F : 0x2019);
    }
  }
  DeviceWithBook device;
  AddressBook book;
  ReadingReport report;
  AddressBookReading reading(device, report);
  EXPECT_THAT(raised([&] { return reading.fillInABDict(book, {1}, {5}); }),
              HasSubstr("Could not find contacts for all members of group "));
  device.dataSets[1].resize(9);
  EXPECT_THAT(raised([&] { return reading.fillInABDict(book, {1}, {}); }),
              HasSubstr("NSRangeException"));
}

ContactGroupPointer group(const std::string& name, DataSyncAction action, std::uint32_t handle,
                          const Contacts& members = {}) {
  return std::make_shared<ContactGroup>(
      ContactGroup{.name = name, .members = members, .handle = handle, .action = action});
}

/// A book with a group of each action.
AddressBook bookOfAllActions() {
  const Contacts members = {std::make_shared<Contact>(Contact{.handle = 1}),
                            std::make_shared<Contact>(Contact{.handle = 2})};
  AddressBook book;
  book.contacts = members;
  book.contacts->push_back(std::make_shared<Contact>(Contact{.action = kAdd}));
  book.groups =
      ContactGroups{group("absent", kAbsent, 0),           group("none", kNone, 6, {members[0]}),
                    group("deleted", kDelete, 7),          group("updated", kUpdate, 8, members),
                    group("added", kAdd, 0, {members[1]}), group("other", kOther, 0)};
  return book;
}

TEST(AddressBookWriting, SendsTheGroupsThatAreToBeSentInOrder) {
  ScriptedPTPTransactions device;
  WritingReport report;
  AddressBook book = bookOfAllActions();
  const Contacts contacts = *book.contacts;
  EXPECT_EQ(AddressBookWriting(device, kMaker, report).setAddressBookDictToDatasets(book), 0);
  EXPECT_THAT(device.calls,
              ElementsAre("Delete 7 0000 9209", "UpdateDataSet 8 B202", "CreateDataSet B202"));
  EXPECT_EQ(book.contacts, contacts);
  EXPECT_EQ((*book.contacts)[2]->action, kAdd) << "no contact is sent";
  std::string left;
  for (const auto& each : *book.groups)
    left += each->name + (each->action == kNone ? " " : "! ");
  EXPECT_EQ(left, "absent! none updated added other ");
  EXPECT_EQ((*book.groups)[3]->handle, ScriptedPTPTransactions::kNewHandle);
  // "updated" without picture and with members 1 and 2.
  const std::vector<std::uint8_t> updated = PTPBytes().text("updated").u32(0).u32(2).u32(1).u32(2);
  EXPECT_THAT(device.sentDataSets[0],
              ::testing::ElementsAreArray(std::as_bytes(std::span(updated))));
  ASSERT_EQ(report.steps.size(), 3U);
  EXPECT_EQ(report.steps[2].what, "added");
  EXPECT_EQ(report.steps[2].handle, ScriptedPTPTransactions::kNewHandle);
}

TEST(AddressBookWriting, RefusesWhatHasNoHandle) {
  const Contacts stranger = {std::make_shared<Contact>()};
  const std::tuple<ContactGroupPointer, const char*, std::size_t> rows[] = {
      {group("G", kDelete, 0), "Group handle nil for group G", 0},
      {group("G", kAdd, 0, stranger), "Bogus group member handle", 0},
      {group("G", kUpdate, 0), "Bogus group handle", 0},
      {group("G", kAdd, 0), "Bogus handle!", 1},
      {group("G", kNone, 0, stranger), "", 0},
  };
  for (const auto& [group, reason, calls] : rows) {
    ScriptedPTPTransactions device;
    device.newHandle = 0;
    WritingReport report;
    AddressBook book;
    book.groups = ContactGroups{group};
    const std::string expected =
        *reason ? std::string("NSInternalInconsistencyException: ") + reason : "";
    EXPECT_EQ(
        raised([&] {
          return AddressBookWriting(device, kMaker, report).setAddressBookDictToDatasets(book);
        }),
        expected);
    EXPECT_EQ(device.calls.size(), calls) << reason;
  }
}

TEST(AddressBookFileWriting, PutsAnEmptyFileInPlaceOfTheOldOnes) {
  using Calls = std::vector<std::string>;
  // What is deleted between listing and the new file.
  const std::tuple<const char*, Status, Calls> rows[] = {
      {"", 0, {"Delete 3 0000 100B", "Delete 4 0000 100B"}},
      {"GetObjectHandles", 0, {}},  // the old file stays, which is traced
      {"Delete 3 0000 100B", 0, {"Delete 3 0000 100B"}},
      {"SendObject", 0x200C, {"Delete 3 0000 100B", "Delete 4 0000 100B"}},
  };
  for (const auto& [failing, status, deleted] : rows) {
    TraceRecorder traces;
    ScriptedPTPTransactions device;
    device.operations = {0x100C};
    device.capabilities.deviceSupportsAddressBooks = device.capabilities.hasDeleteObject = true;
    for (const std::uint32_t handle : {3U, 4U})
      device.add(handle, "DCEMAIL.ABK", "x", ptp::XTD_ADDRESS_BOOK_FILE);
    device.failing = {{failing, 0x200C}};
    WritingReport report;
    AddressBook book;
    book.contacts = Contacts{std::make_shared<Contact>(Contact{.email = "a@b.c", .nickname = "A"})};
    EXPECT_EQ(AddressBookWriting(device, kMaker, report).setAddressBookDictToABKFile(book), status);
    Calls expected = {"GetObjectHandles FFFFFFFF B003", "SendObjectInfo 0 0", "SendObject"};
    expected.insert(expected.begin() + 1, deleted.begin(), deleted.end());
    EXPECT_EQ(device.calls, expected) << failing;
    EXPECT_EQ(book.contacts->empty(), status == 0) << failing;
    EXPECT_EQ(report.steps.back().status, status);
    EXPECT_EQ(device.sentInfo->fileName(), "DCEMAIL.ABK");
    EXPECT_EQ(device.sentInfo->objFmtCode(), 0xB003);
    EXPECT_THAT(device.sentData, testing::IsEmpty());
    EXPECT_THAT(traces.take(), ::testing::Contains("Deleting A <a@b.c> from addresses"));
  }
  ScriptedPTPTransactions device;
  WritingReport report;
  AddressBookWriting writing(device, kMaker, report);
  AddressBook book;
  EXPECT_EQ(writing.setAddressBookDictToABKFile(book), 0x2005);
  device.capabilities.deviceSupportsAddressBooks = true;
  EXPECT_THAT(raised([&] { return writing.setAddressBookDictToABKFile(book); }),
              HasSubstr("setAddressBookDict requires a contacts array"));
}

}  // namespace
}  // namespace tarvo::test
