// How the address book is read from data sets and written to a device: what each step sends, and
// what a failure at each of them leaves behind.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/operations/AddressBookSync.h"
#include "tests/support/FakeImageCapture.h"
#include "tests/support/Raised.h"
#include "tests/support/ScriptedPTPTransactions.h"
#include "tests/support/TraceRecorder.h"

namespace tarvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

const MakerConstants kMaker;
const Exception kWithCode("XTPTPException", "refused", {{"ptpErrorCode", 0x200F}});

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
  for (const char* call : {"GetDataSet 2 B203", "GetDataSet 6 B202"}) {
    for (const bool raises : {false, true}) {
      DeviceWithBook device;
      if (raises) {
        device.raising.emplace(call, kWithCode);
      } else {
        device.failing = {{call, 0x2019}};
      }
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

const std::vector<std::string> kCalls = {"Delete 7 0000 9209", "UpdateDataSet 8 B202",
                                         "CreateDataSet B202"};

TEST(AddressBookWriting, SendsTheGroupsThatAreToBeSentInOrder) {
  ScriptedPTPTransactions device;
  WritingReport report;
  AddressBook book = bookOfAllActions();
  const Contacts contacts = *book.contacts;
  EXPECT_EQ(AddressBookWriting(device, kMaker, report).setAddressBookDictToDatasets(book), 0);
  EXPECT_EQ(device.calls, kCalls);
  EXPECT_EQ(book.contacts, contacts);
  EXPECT_EQ((*book.contacts)[2]->action, kAdd) << "no contact is sent";
  std::vector<std::pair<std::string, DataSyncAction>> left;
  for (const auto& each : *book.groups)
    left.emplace_back(each->name, each->action);
  EXPECT_THAT(left, ElementsAre(std::pair("absent", kAbsent), std::pair("none", kNone),
                                std::pair("updated", kNone), std::pair("added", kNone),
                                std::pair("other", kNone)));
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
  const struct {
    ContactGroupPointer group;
    std::uint32_t newHandle;
    const char* reason;
    std::size_t calls;
  } rows[] = {
      {group("G", kDelete, 0), 9, "Group handle nil for group G", 0},
      {group("G", kAdd, 0, stranger), 9, "Bogus group member handle", 0},
      {group("G", kOther, 0, stranger), 9, "Bogus group member handle", 0},
      {group("G", kUpdate, 0), 9, "Bogus group handle", 0},
      {group("G", kAdd, 0), 0, "Bogus handle!", 1},
      {group("G", kNone, 0, stranger), 9, "", 0},
  };
  for (const auto& row : rows) {
    ScriptedPTPTransactions device;
    device.newHandle = row.newHandle;
    WritingReport report;
    AddressBookWriting writing(device, kMaker, report);
    AddressBook book;
    book.groups = ContactGroups{row.group};
    const std::string expected =
        *row.reason ? std::string("NSInternalInconsistencyException: ") + row.reason : "";
    EXPECT_EQ(raised([&] { return writing.setAddressBookDictToDatasets(book); }), expected);
    EXPECT_EQ(device.calls.size(), row.calls) << row.reason;
  }
}

TEST(AddressBookFileWriting, PutsAnEmptyFileInPlaceOfTheOldOnes) {
  const std::vector<std::string> all = {"GetObjectHandles FFFFFFFF B003", "Delete 3 0000 100B",
                                        "Delete 4 0000 100B", "SendObjectInfo 0 0", "SendObject"};
  const struct {
    const char* failing;
    Status status;
    std::vector<std::size_t> calls;  ///< of those above
  } rows[] = {
      {"", 0, {0, 1, 2, 3, 4}},
      {"GetObjectHandles", 0, {0, 3, 4}},  // the old file stays, which is traced
      {"Delete 3 0000 100B", 0, {0, 1, 3, 4}},
      {"SendObjectInfo", 0x200C, {0, 1, 2, 3}},
      {"SendObject", 0x200C, {0, 1, 2, 3, 4}},
  };
  for (const auto& row : rows) {
    TraceRecorder traces;
    ScriptedPTPTransactions device;
    device.operations = {0x100C};
    device.capabilities.deviceSupportsAddressBooks = device.capabilities.hasDeleteObject = true;
    device.add(3, "DCEMAIL.ABK", "x", ptp::XTD_ADDRESS_BOOK_FILE);
    device.add(4, "OLD.ABK", "x", ptp::XTD_ADDRESS_BOOK_FILE);
    device.failing = {{row.failing, 0x200C}};
    WritingReport report;
    AddressBook book;
    book.contacts = Contacts{std::make_shared<Contact>(Contact{.email = "a@b.c", .nickname = "A"})};
    EXPECT_EQ(AddressBookWriting(device, kMaker, report).setAddressBookDictToABKFile(book),
              row.status);
    std::vector<std::string> expected;
    for (const std::size_t index : row.calls)
      expected.push_back(all[index]);
    EXPECT_EQ(device.calls, expected) << row.failing;
    EXPECT_EQ(book.contacts->empty(), row.status == 0) << row.failing;
    EXPECT_EQ(report.steps.back().status, row.status);
    EXPECT_EQ(device.sentInfo->fileName(), "DCEMAIL.ABK");
    EXPECT_EQ(device.sentInfo->objFmtCode(), 0xB003);
    EXPECT_EQ(device.sentInfo->compressedSize(), 0U);
    EXPECT_THAT(device.sentData, IsEmpty());
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
  EXPECT_THAT(device.calls, IsEmpty());
}

}  // namespace
}  // namespace tarvo::test
