// Orders, the address book and the maker's files of simulated cameras of both generations, from one
// end to the other, with the number of transactions that it takes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "NativeServices/PictureDevice/operations/OrderLists.h"
#include "Utilities/PTPCodes.h"
#include "tests/support/SimulatedPTPDevice.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::SizeIs;

/// Data sets of every kind.
constexpr char kDataSetCamera[] = R"({
  "properties": [{"code": "0xD204", "type": "AUINT8", "writable": true,
                  "value": [16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31]}],
  "vendor": {"operations": ["0x9202", "0x9206"], "bragbookVersion": 2,
             "supportedDatasets": ["0xB201", "0xB202", "0xB203", "0xB204", "0xB205", "0xB209"],
             "addressBook": {"characterTypeLimitation": 3, "maxAddresses": 8, "maxGroups": 4,
                             "maxAddressesPerGroup": 4, "maxAddressLengthInBytes": 60,
                             "maxNicknameLengthInBytes": 20, "maxGroupNameLengthInBytes": 20}},
  "datasets": {
    "contacts": [{"nickname": "Anna", "email": "anna@example.org"},
                 {"nickname": "Bo", "email": "bo@example.org"}],
    "groups": [{"name": "Family", "members": ["Bo", "Anna"]}, {"name": "Nobody"}],
    "emailOrders": [{"to": ["Anna", "Bo"], "subject": "Hi", "assets": ["A.JPG", "B.JPG"]},
                    {"to": ["Bo"], "assets": ["B.JPG"]}],
    "printOrders": [{"asset": "B.JPG", "quantity": 3}]},
  "stores": [{"id": "0x00010001", "capacity": 9000000, "content": [
    {"folder": "DCIM", "content": [{"file": "A.JPG", "size": 100}, {"file": "B.JPG", "size": 200}]},
    {"file": "ALBUMS.LCB", "text": "Summer\n"},
    {"file": "NETCONF.XML", "format": "0xB20A", "text": "<network/>"},
    {"file": "WRAPPER.HOW", "text": "wrapper"},
    {"file": "FAV0001.JPG", "size": 10, "format": "0xB803"}]}]
})";

/// Files alone.
constexpr char kFileCamera[] = R"({
  "vendor": {"addressBook": {"characterTypeLimitation": 3, "maxAddresses": 2,
                             "maxAddressLengthInBytes": 60, "maxNicknameLengthInBytes": 20}},
  "stores": [
    {"id": "0x00010001", "capacity": 9000000, "content": [
      {"file": "DCEMAIL.ABK", "text": "Anna <anna@example.org>\r\n <bo@example.org>\r\n"}]},
    {"id": "0x00020001", "capacity": 9000000, "content": [
      {"folder": "MISC", "content": [
        {"file": "EMAILTAG.MRK", "format": "0x3006",
         "text": "[HDR]\r\n[JOB]\r\nDST EML=\"bo@example.org\"\r\nIMG SRC=\"../A.JPG\"\r\n"},
        {"file": "PRINTTAG.MRK", "format": "0x3006",
         "text": "\n[JOB]\nPRT QTY=2\n<IMG SRC=\"B.JPG\">\n"}]},
      {"file": "PREFGUID.TXT", "text": "0F1E"}]}]
})";

class OnACamera : public ::testing::Test {
 protected:
  TemporaryFolder folder_;
  ScopedEnvironment temporary_{"TMPDIR", folder_.path()};
};

using OrdersOnACamera = OnACamera;
using BookOnACamera = OnACamera;

TEST_F(OrdersOnACamera, WithDataSetsAreReadFulfilledAndDeleted) {
  SimulatedPTPDevice sim(kDataSetCamera);
  const auto emails = *sim->emailOrderList();
  ASSERT_THAT(emails, SizeIs(2));
  EXPECT_THAT(emails[0].destAddresses, ElementsAre("anna@example.org", "bo@example.org"));
  EXPECT_THAT(emails[0].assets, ElementsAre("A.JPG", "B.JPG"));
  EXPECT_EQ(emails[0].record->subject, "Hi");
  const auto prints = *sim->printOrderList();
  ASSERT_THAT(prints, SizeIs(1));
  EXPECT_EQ(prints[0].quantity, 3);
  EXPECT_TRUE(sim->lastReading().isComplete());
  // 2 contacts, 2 groups, 2 e-mail orders and a print order; every picture's information once.
  EXPECT_EQ(sim.asked(ptp::XTO_GET_DATASET), 7U);
  EXPECT_EQ(sim.asked(ptp::kGetObjectInfo), 2U);

  EXPECT_EQ(sim->indicateFulfillment(emails[0].handle, emails[0].record->assetHandles[0]), 0);
  EXPECT_THAT(sim->emailOrderList()->front().assets, ElementsAre("B.JPG"));
  EXPECT_EQ(sim->deleteOrderFiles(), 0);
  EXPECT_THAT(*sim->emailOrderList(), IsEmpty());
  EXPECT_TRUE(sim->lastReading().isComplete());
  EXPECT_THAT(*sim->printOrderList(), IsEmpty());
  EXPECT_EQ(sim->numberOfObjectsOnStore(ptp::kAllStores, ptp::XTD_CONTACT), 2);
}

TEST_F(BookOnACamera, WithDataSetsIsReadAndItsGroupsAreWritten) {
  SimulatedPTPDevice sim(kDataSetCamera);
  auto book = *sim->addressBookDict();
  EXPECT_EQ(book.limits.maxAddresses, 8U);
  EXPECT_TRUE(sim.trace.contains("AddressBookDict: {"));
  EXPECT_TRUE(sim.trace.contains("data: 0x14 0x0 0x0 0x0")) << "the last four of 28 bytes";
  EXPECT_TRUE(book.supportsGroups);
  ASSERT_THAT(*book.contacts, SizeIs(2));
  ASSERT_THAT(*book.groups, SizeIs(2));
  const auto& contacts = *book.contacts;
  EXPECT_EQ((*book.groups)[0]->members, Contacts({contacts[1], contacts[0]}));
  (*book.groups)[0]->members = {contacts[0]};
  (*book.groups)[0]->action = DataSyncAction::kUpdate;
  (*book.groups)[1]->action = DataSyncAction::kDelete;
  book.groups->push_back(std::make_shared<ContactGroup>(
      ContactGroup{.name = "New", .members = contacts, .action = DataSyncAction::kAdd}));
  EXPECT_EQ(sim->setAddressBookDict(book), 0);
  EXPECT_TRUE(sim.trace.contains("validateAddressBookDict:"));
  EXPECT_THAT(sim->lastWriting().steps, SizeIs(3));

  const auto after = *sim->addressBookDictUncached();
  ASSERT_THAT(*after.groups, SizeIs(2));
  EXPECT_THAT((*after.groups)[0]->members, SizeIs(1));
  EXPECT_EQ((*after.groups)[1]->name, "New");
  EXPECT_EQ((*after.groups)[1]->handle, (*book.groups)[1]->handle);
  EXPECT_EQ((*after.contacts)[0]->email, "anna@example.org");
  EXPECT_THAT(*sim->addressBookDict()->groups, SizeIs(2)) << "what is kept has been written";
}

TEST_F(BookOnACamera, IsNeverTakenForEmptyWhereItCannotBeRead) {
  for (const char* fault : {"respond 0x2019,0x9204", "respond 0x2019,0x1006",
                            "respond 0x2019,0x1007", "respond 0x2019,0x9007"}) {
    const std::string text(fault);
    SimulatedPTPDevice sim(kDataSetCamera);
    sim.camera->setFault(text.substr(0, text.find(' ')), text.substr(text.find(' ') + 1));
    const auto book = sim->addressBookDictUncached();
    EXPECT_FALSE(book && book->contacts) << fault;
    EXPECT_EQ(sim->lastReading().status, 0x2019) << fault;
  }
}

TEST_F(OrdersOnACamera, WithFilesAloneAreReadAndDeleted) {
  SimulatedPTPDevice sim(kFileCamera);
  EXPECT_EQ(sim->emailOrderList(),
            EmailOrders(1, {.destAddresses = {"bo@example.org"}, .assets = {"A.JPG"}}));
  EXPECT_EQ(sim->printOrderList(), PrintOrders(1, {.quantity = 2, .assets = {"B.JPG"}}));
  EXPECT_THAT(sim->orderFilesPTP(), SizeIs(2));
  EXPECT_EQ(sim->indicateFulfillment(1, 2), 0x2005);
  EXPECT_EQ(sim->deleteOrderFiles(), 0);
  EXPECT_THAT(*sim->emailOrderList(), IsEmpty());
  EXPECT_EQ(sim->numberOfObjectsOnStore(ptp::kAllStores, kMarkerFormat), 0);
}

TEST_F(BookOnACamera, WithFilesAloneIsReadAndWrittenEmpty) {
  SimulatedPTPDevice sim(kFileCamera);
  auto book = *sim->addressBookDict();
  ASSERT_TRUE(book.contacts);
  ASSERT_THAT(*book.contacts, SizeIs(2));
  EXPECT_EQ((*book.contacts)[0]->nickname, "Anna");
  EXPECT_EQ((*book.contacts)[1]->email, "bo@example.org");
  EXPECT_FALSE(book.supportsGroups);
  const std::string own = folder_.write("MINE.ABK", "C <c@d.e>\r\nD <d@d.e>\r\nE <e@d.e>\r\n");
  EXPECT_EQ(sim->setAddressBook(own), 0);
  EXPECT_FALSE(sim->addressBookDictUncached()->contacts) << "more than the device allows";
  EXPECT_EQ(sim->lastReading().status, 0x10000001);

  EXPECT_EQ(sim->setAddressBookDict(book), 0);
  EXPECT_THAT(*book.contacts, IsEmpty());
  ASSERT_EQ(sim->numberOfObjectsOnStore(ptp::kAllStores, ptp::XTD_ADDRESS_BOOK_FILE), 1);
  EXPECT_EQ(sim->objectFilename(
                sim->objectHandlesOnStore(ptp::kAllStores, ptp::XTD_ADDRESS_BOOK_FILE)->front()),
            "DCEMAIL.ABK");
  EXPECT_THAT(*sim->addressBookDictUncached()->contacts, IsEmpty());
}

TEST_F(OnACamera, TheMakersFilesAreFetchedReplacedAndDeleted) {
  SimulatedPTPDevice sim(kDataSetCamera);
  EXPECT_THAT(sim->albumNames().value_or(""), EndsWith("/ALBUMS.LCB"));
  EXPECT_THAT(sim->hostObjectWrapperFile().value_or(""), EndsWith("/WRAPPER.HOW"));
  EXPECT_EQ(sim->wirelessConfigData()->size(), 10U);
  EXPECT_EQ(sim->setAlbumNames(folder_.write("NEW.LCB", "Winter")), 0);
  EXPECT_THAT(sim->albumNames().value_or(""), EndsWith("/NEW.LCB"));
  EXPECT_EQ(sim->deleteHostObjectWrapperFiles(), 0);
  EXPECT_FALSE(sim->hostObjectWrapperFile());
  EXPECT_EQ(sim->deleteBragbookFiles(), 0);
  EXPECT_EQ(sim->numberOfObjectsOnStore(ptp::kAllStores, ptp::XTD_BRAGBOOK2), 0);

  EXPECT_EQ(sim->defaultCollectionID(), "10111213-1415-1617-1819-1A1B1C1D1E1F");
  EXPECT_EQ(sim->setDefaultCollectionID("00000000-0000-0000-0000-0000000000ff"), 0);
  EXPECT_EQ(sim->defaultCollectionID(), "00000000-0000-0000-0000-0000000000FF");
  EXPECT_EQ(sim->sendShoeboxPTP(folder_.write("my.sbx", "box"), nullptr), 0);
  EXPECT_EQ(sim->addImageToShoebox(folder_.write("my.jpg", "image")), 0);
  EXPECT_EQ(sim->numberOfObjectsOnStore(ptp::kAllStores, ptp::XTD_SHOEBOX_IMAGE), 1);

  SimulatedPTPDevice older(kFileCamera);
  EXPECT_EQ(older->defaultCollectionID(), "0F1E");
  EXPECT_EQ(older->setDefaultCollectionID("ab"), 0);
  EXPECT_EQ(older->defaultCollectionID(), "AB");
  EXPECT_EQ(older->setDefaultCollectionID(""), 0);
  EXPECT_FALSE(older->defaultCollectionID());
  EXPECT_EQ(older->deleteBragbookFiles(), 0x200B);
  EXPECT_FALSE(older->wirelessConfigData() || older->albumNames());
}

struct UnboundDevice : XTImageCapturePTPDevice {};

TEST_F(OnACamera, NothingIsAskedWithoutAnImageCaptureObject) {
  SimulatedPTPDevice sim(kFileCamera);
  UnboundDevice device;
  AddressBook book;
  EXPECT_FALSE(device.addressBookDictUncached());
  EXPECT_TRUE(sim.trace.contains("addressBookDictUncached couldn't get an ICA object"));
  EXPECT_EQ(device.setAddressBookDict(book), 0x2003);
  EXPECT_TRUE(sim.trace.contains("setAddressBookDict couldn't get an ICA object"));
  EXPECT_EQ(device.setAddressBook("/nowhere"), 0x2005);
  EXPECT_EQ(device.setAlbumNames("/nowhere"), 0x2005);
  EXPECT_EQ(device.deleteHostObjectWrapperFiles(), 0x2003);
}

}  // namespace
}  // namespace tarvo::test
