// Orders and the address book of simulated cameras of both generations, from one end to the other,
// with the number of transactions that it takes.
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
  "vendor": {"supportedDatasets": ["0xB201", "0xB202", "0xB203", "0xB204", "0xB205", "0xB209"],
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
    {"file": "WRAPPER.HOW", "text": "wrapper"}]}]
})";

/// Files alone.
constexpr char kFileCamera[] = R"({
  "vendor": {"addressBook": {"characterTypeLimitation": 3, "maxAddresses": 2,
                             "maxAddressLengthInBytes": 60, "maxNicknameLengthInBytes": 20}},
  "stores": [{"id": "0x00010001", "capacity": 9000000, "content": [
    {"file": "DCEMAIL.ABK", "text": "Anna <anna@example.org>\r\n <bo@example.org>\r\n"}]}]
})";

class OnACamera : public ::testing::Test {
 protected:
  TemporaryFolder folder_;
  ScopedEnvironment temporary_{"TMPDIR", folder_.path()};
};

using OrdersOnACamera = OnACamera;
using BookOnACamera = OnACamera;

TEST_F(OrdersOnACamera, WithDataSetsAreReadAndEveryPictureIsAskedForOnce) {
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
}

TEST_F(BookOnACamera, WithDataSetsIsTracedAndKeptAsItWasWritten) {
  SimulatedPTPDevice sim(kDataSetCamera);
  auto book = *sim->addressBookDict();
  EXPECT_TRUE(sim.trace.contains("AddressBookDict: {"));
  EXPECT_TRUE(sim.trace.contains("data: 0x14 0x0 0x0 0x0")) << "the last four of 28 bytes";
  ASSERT_THAT(*book.groups, SizeIs(2));
  (*book.groups)[1]->action = DataSyncAction::kDelete;
  EXPECT_EQ(sim->setAddressBookDict(book), 0);
  EXPECT_TRUE(sim.trace.contains("validateAddressBookDict:"));
  EXPECT_THAT(*sim->addressBookDictUncached()->groups, SizeIs(1));
  EXPECT_THAT(*sim->addressBookDict()->groups, SizeIs(1)) << "what is kept has been written";
  EXPECT_EQ(sim.camera->setFault("respond", "0x2019,0x1007"), "");
  const auto unlisted = sim->addressBookDictUncached();
  EXPECT_FALSE(unlisted && unlisted->contacts) << "never taken for empty";
  EXPECT_EQ(sim->lastReading().status, 0x2019);
}

TEST_F(BookOnACamera, WithFilesAloneIsReadAndReplaced) {
  SimulatedPTPDevice sim(kFileCamera);
  auto book = *sim->addressBookDict();
  ASSERT_TRUE(book.contacts);
  ASSERT_THAT(*book.contacts, SizeIs(2));
  EXPECT_EQ((*book.contacts)[0]->nickname, "Anna");
  EXPECT_FALSE(book.supportsGroups);
  const std::string own = folder_.write("MINE.ABK", "C <c@d.e>\r\nD <d@d.e>\r\nE <e@d.e>\r\n");
  EXPECT_EQ(sim->setAddressBook(own), 0);
  EXPECT_FALSE(sim->addressBookDictUncached()->contacts) << "more than the device allows";
  EXPECT_EQ(sim->lastReading().status, 0x10000001);

  EXPECT_EQ(sim->setAddressBookDict(book), 0);
  EXPECT_EQ(sim->numberOfObjectsOnStore(ptp::kAllStores, ptp::XTD_ADDRESS_BOOK_FILE), 1);
  EXPECT_THAT(*sim->addressBookDictUncached()->contacts, IsEmpty());
}

TEST_F(OnACamera, TheWrapperFileIsFetchedAndDeletedAndFavouritesWhereThereAreAny) {
  SimulatedPTPDevice sim(kDataSetCamera);
  EXPECT_THAT(sim->hostObjectWrapperFile().value_or(""), EndsWith("/WRAPPER.HOW"));
  EXPECT_EQ(sim->deleteHostObjectWrapperFiles(), 0);
  EXPECT_FALSE(sim->hostObjectWrapperFile());
  EXPECT_EQ(SimulatedPTPDevice(kFileCamera)->deleteBragbookFiles(), 0x200B);
}

}  // namespace
}  // namespace tarvo::test
