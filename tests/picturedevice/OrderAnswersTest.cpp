// What a picture device makes of orders, the address book, its default collection and the shoebox:
// which way it goes, in which order it asks, and what it keeps.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/devices/XTImageCaptureMSCDevice.h"
#include "NativeServices/PictureDevice/operations/OrderLists.h"
#include "NativeServices/PictureDevice/operations/VendorFiles.h"
#include "tests/support/Raised.h"
#include "tests/support/ScriptedDevice.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr char kID[] = "00112233-4455-6677-8899-AABBCCDDEEFF";

class OrderAnswers : public ::testing::Test {
 protected:
  OrderAnswers() {
    transactions_.operations = {0x920A, 0x101B, 0x100C};
    device_->fields().capabilities.deviceSupportsIntention = true;
    device_->fields().capabilities.deviceSupportsAddressBooks = true;
    transactions_.capabilities.deviceSupportsAddressBooks = true;
    transactions_.capabilities.hasDeleteObject = true;
    transactions_.properties = {0xD206};
  }
  /// Order 11 of picture 1 for contact 31, and a transfer order of no picture.
  void addOrders() {
    transactions_.add(1, "A.JPG", "");
    transactions_.addRecord(11, ptp::XTD_EMAIL_ORDER,
                            {.orderID = kID, .destContacts = {31}, .assetHandles = {1}},
                            storeEmailOrder);
    transactions_.addRecord(51, ptp::XTD_SQUIRT_TRANSFER_ORDER, {.orderID = kID},
                            storeTransferOrder);
    device_->book.emplace().contacts =
        Contacts{std::make_shared<Contact>(Contact{.email = "first", .handle = 31}),
                 std::make_shared<Contact>(Contact{.email = "second", .handle = 31})};
  }
  void setIntentions(std::uint32_t mask) { transactions_.values[0xD206] = PTPBytes().u32(mask); }

  PictureDeviceTestRoom room_;
  std::shared_ptr<ScriptedDevice> device_ = std::make_shared<ScriptedDevice>();
  ScriptedPTPTransactions& transactions_ = device_->transactions;
};

TEST_F(OrderAnswers, ComeFromDataSetsWithTheBookThatTheDeviceHas) {
  EXPECT_THAT(*device_->emailOrderListPTP(), IsEmpty());
  EXPECT_EQ(device_->booksRead, 0) << "no order, no recipient";
  addOrders();
  const auto orders = *device_->emailOrderListPTP();
  ASSERT_EQ(orders.size(), 1U);
  EXPECT_THAT(orders[0].destAddresses, ElementsAre("first"));
  EXPECT_THAT(device_->orderAssetCounts(), ElementsAre(std::pair(11U, 1U)));
  EXPECT_TRUE(device_->lastReading().isComplete());
  EXPECT_THAT(*device_->printOrderListPTP(), IsEmpty());
  EXPECT_EQ(device_->booksRead, 1);

  transactions_.failing = {{"GetObjectHandles", 0x2019}};
  EXPECT_THAT(*device_->emailOrderListPTP(), IsEmpty());
  EXPECT_EQ(device_->lastReading().status, 0x2019) << "that there are none is not known";
}

TEST_F(OrderAnswers, AreNarrowedOnlyWhileTheDeviceWaitsForATransfer) {
  addOrders();
  const struct {
    bool wireless;
    bool docked;
    std::uint32_t intentions;
    std::size_t orders;
  } rows[] = {{true, false, 2, 0}, {false, false, 2, 1}, {true, true, 2, 1}, {true, false, 9, 1}};
  setIntentions(2);
  device_->wireless = true;
  auto waiting =
      std::exchange(transactions_.objects[51], {std::make_shared<XTExtendedObjectInfo>(), ""});
  EXPECT_EQ(device_->squirtTransferFiles(), TransferOrder()) << "not kept";
  transactions_.objects[51] = waiting;
  for (const auto& row : rows) {
    device_->wireless = row.wireless;
    device_->docked = row.docked;
    setIntentions(row.intentions);
    EXPECT_EQ(device_->emailOrderListPTP()->size(), row.orders);
    EXPECT_EQ(device_->squirtTransferFiles().has_value(), row.wireless) << "kept since the first";
    // Those that wait are not deleted by this side.
    transactions_.calls.clear();
    EXPECT_EQ(device_->deleteOrderFilesPTP(), 0);
    EXPECT_EQ(transactions_.calls.back() == "GetObjectHandles FFFFFFFF B205", row.orders == 1);
  }
}

TEST_F(OrderAnswers, ComeFromMarkersWithoutDataSets) {
  TemporaryFolder folder;
  const ScopedEnvironment temporary("TMPDIR", folder.path());
  PictureDeviceServices services = room_.room->services();
  services.defaultEncoding = "ISO-8859-1";
  const PictureDeviceRoom room(services);
  addOrders();
  transactions_.operations = {0x101B};
  transactions_.add(41, "EMAILTAG.MRK", "\n[JOB]\nDST EML=\"\xFC@b\"\nIMG SRC=\"A.JPG\"\n",
                    kMarkerFormat);
  const auto orders = *device_->emailOrderListPTP();
  ASSERT_EQ(orders.size(), 1U);
  EXPECT_THAT(orders[0].destAddresses, ElementsAre("\xC3\xBC@b"));
  EXPECT_FALSE(orders[0].record);
  transactions_.add(42, "X.MRK", "x", kMarkerFormat);
  transactions_.failing = {{"GetObject 41", 0x2009}};
  EXPECT_THAT(device_->orderFilesPTP(), ::testing::SizeIs(1));
  EXPECT_THAT(device_->lastReading().unreadable, ElementsAre(41U));
  EXPECT_EQ(device_->deleteOrderFilesPTP(), 0);
  EXPECT_THAT(transactions_.calls, ::testing::Contains("Delete 41 0000 100B"));
}

TEST_F(OrderAnswers, KeepTheAddressBookAsThePreferenceSays) {
  device_->book.emplace();
  device_->addressBookDict();
  EXPECT_TRUE(device_->addressBookDict());
  EXPECT_EQ(device_->booksRead, 1);
  room_.defaults.setBool("XTPictureDeviceCacheAddressBook", true);
  device_->addressBookDict();
  EXPECT_EQ(device_->booksRead, 1);
  room_.defaults.setBool("XTPictureDeviceCacheAddressBook", false);
  device_->book.reset();
  EXPECT_FALSE(device_->addressBookDict());
  EXPECT_EQ(device_->booksRead, 2);
}

TEST_F(OrderAnswers, WriteTheBookTheWayThatTheDeviceTakesIt) {
  const struct {
    CodeList operations;
    std::uint32_t maxAddresses;
    const char* failing;
    Status status;
    const char* lastCall;
    bool isKept;
  } rows[] = {
      {{0x100C, 0x9207}, 1, "", 0, "CreateDataSet B202", true},
      {{0x100C, 0x9204}, 1, "", 0, "SendObject", true},
      {{0x9207}, 1, "CreateDataSet", 0x200C, "CreateDataSet B202", false},
      {{0x100C}, 1, "SendObject", 0x200C, "SendObject", false},
      {{0x9207}, 0, "", 0x10000001, "", true},
  };
  for (const auto& row : rows) {
    transactions_.operations = row.operations;
    transactions_.calls = {""};
    transactions_.failing = {{row.failing, 0x200C}};
    device_->fields().cachedAddressBook.emplace();
    AddressBook book;
    book.limits = {1, 3, row.maxAddresses, 9, 9, 100, 100, 100};
    book.contacts = Contacts{
        std::make_shared<Contact>(Contact{.email = "a@b.c", .nickname = "A", .handle = 1})};
    book.groups = ContactGroups{
        std::make_shared<ContactGroup>(ContactGroup{.name = "G", .action = DataSyncAction::kAdd})};
    EXPECT_EQ(device_->setAddressBookDictPTP(book), row.status) << row.lastCall;
    EXPECT_EQ(transactions_.calls.back(), row.lastCall);
    EXPECT_EQ(device_->fields().cachedAddressBook.has_value(), row.isKept) << row.lastCall;
    EXPECT_EQ(device_->lastWriting().steps.empty(), *row.lastCall == 0) << row.lastCall;
  }
}

TEST_F(OrderAnswers, AskTheDevicesOwnSetOfBadNicknames) {
  device_->fields().capabilities.deviceSupportsAddressBooks = true;
  AddressBook book;
  book.limits = {1, 0, 9, 9, 9, 100, 100, 100};
  book.contacts = Contacts{std::make_shared<Contact>(Contact{.email = "a@b.c", .nickname = "A"})};
  EXPECT_EQ(device_->validateAddressBook(book), 0x10000010);
  ASSERT_TRUE(device_->fields().badNicknameSet) << "kept";
  device_->fields().badNicknameSet = [](char16_t unit) { return unit == u'B'; };
  EXPECT_EQ(device_->validateAddressBook(book), 0);
}

TEST_F(OrderAnswers, KeepTheCollectionUntilItIsSet) {
  auto& calls = transactions_.calls;
  EXPECT_EQ(device_->setDefaultCollectionID("ab-c"), 0);
  EXPECT_EQ(transactions_.sentData, "AB-C");
  transactions_.properties = {0xD204};
  transactions_.values[0xD204] = PTPBytes().u32(16).u32(0).u32(0).u32(0).u32(0);
  EXPECT_EQ(device_->defaultCollectionID(), "00000000-0000-0000-0000-000000000000");
  calls.clear();
  device_->defaultCollectionID();
  EXPECT_THAT(calls, IsEmpty());
  EXPECT_EQ(device_->setDefaultCollectionID(std::nullopt), 0);
  EXPECT_EQ(transactions_.setValue, std::vector<std::byte>(4));
  device_->defaultCollectionID();
  EXPECT_THAT(calls, ElementsAre("SetDevicePropValue D204", "GetDevicePropValue D204"));
}

TEST(CollectionIDFile, IsOneFileOnTheInnerStoreOfEachModel) {
  const MakerConstants maker;
  const std::vector<std::string> all = {
      "GetObjectHandles 20001 3004", "GetObjectInfo 3",         "GetObjectInfo 4",
      "Delete 4 0000 100B",          "SendObjectInfo 131073 0", "SendObject"};
  const struct {
    const char* id;
    const char* failing;
    Status status;
    std::size_t calls;  ///< of those above
  } rows[] = {
      {"ID", "", 0, 6},
      {"", "", 0, 4},
      {"", "Delete", 0x200C, 4},
      {"ID", "Delete", 0, 6},  // the old one stays, which is traced
      {"", "GetObjectHandles", 0x200C, 1},
      {"ID", "SendObjectInfo", 0x200C, 5},
      {"\xC3\xBC", "", -50, 0},  // no ASCII
  };
  for (const auto& row : rows) {
    ScriptedPTPTransactions device;
    device.operations = {0x100C, 0x101B};
    device.capabilities.hasDeleteObject = true;
    device.add(3, "prefguid.txt", "no", 0x3004);
    device.add(4, "PREFGUID.TXT", "text", 0x3004);
    CollectionIDFile file(device, maker);
    EXPECT_EQ(file.defaultCollectionIDFromFile(), "text");
    device.calls.clear();
    device.failing = {{row.failing, 0x200C}};
    EXPECT_EQ(file.storeDefaultCollectionIDInFile(row.id), row.status) << row.failing;
    EXPECT_EQ(device.calls, std::vector(all.begin(), all.begin() + static_cast<int>(row.calls)));
  }
  ScriptedPTPTransactions viewer;
  viewer.model = "Tarvo Brisklink picture viewer";
  viewer.operations = {0x100C, 0x101B};
  viewer.capabilities.hasDeleteObject = true;
  viewer.add(5, "PREFGUID.HOW", "\xFC", 0xB008);
  CollectionIDFile file(viewer, maker);
  EXPECT_FALSE(file.defaultCollectionIDFromFile()) << "no ASCII";
  EXPECT_EQ(file.storeDefaultCollectionIDInFile("ID"), 0);
  EXPECT_EQ(viewer.sentInfo->fileName(), "PREFGUID.HOW");
  EXPECT_EQ(viewer.sentInfo->objFmtCode(), 0xB008);
}

TEST_F(OrderAnswers, SendTheShoeboxWholeAndItsPictures) {
  TemporaryFolder folder;
  const std::string box = folder.write("my.sbx", "box");
  const std::string image = folder.write("my.jpg", "image");
  transactions_.operations = {0x100C, 0x100D};
  for (const Status status : {0x200C, 0}) {
    auto stale = std::make_shared<XTExtendedObjectInfo>();
    stale->setObjFmtCode(kShoeboxFormat);
    device_->cacheObject(9, stale);
    transactions_.failing = {{"SendObject", status}};
    EXPECT_EQ(device_->sendShoeboxPTP(box, nullptr), status);
    EXPECT_EQ(transactions_.sentInfo->fileName(), "tarvodsb.sbx");
    EXPECT_EQ(device_->addImageToShoebox(image), status);
    EXPECT_EQ(transactions_.sentInfo->fileName(), "sbximg.jpg");
    EXPECT_EQ(transactions_.sentInfo->objFmtCode(), 0xB805);
    EXPECT_EQ(device_->cachedInfoForObject(9) == nullptr, status == 0);
    EXPECT_TRUE(room_.trace.contains(formatted("sendData status: %d", status)));
  }
  EXPECT_EQ(device_->addImageToShoebox(folder.path("none")), -43);
  EXPECT_TRUE(room_.trace.contains("Could not find image file '" + folder.path("none") + "'."));
  EXPECT_THAT(raised([&] { return device_->addImageToShoebox(""); }),
              HasSubstr("Invalid parameter not satisfying: "));
  transactions_.calls.clear();
  EXPECT_EQ(Shoebox(transactions_, room_.maker).sendContents(box, &transactions_.operations), 0);
  EXPECT_THAT(transactions_.calls, ElementsAre("SendContentsOfFile"));
}

/// A card with markers in two folders.
struct CardWithMarkers {
  CardWithMarkers() {
    room.addUSBUnit("sdb1", 0x0302);
    auto& volume = room.ica.addVolume("CARD", "sdb1");
    const auto marker = [&](const char* name, ICAObject object, const char* content) {
      room.ica.files[object] = {name, content};
      return PropertyDictionary{{"ifil", name}, {"icao", object}};
    };
    const auto none = PropertyDictionary::array();
    constexpr char kEmail[] = "\n[JOB]\nDST EML=\"x@y.z\"\nIMG SRC=\"A.JPG\"\n";
    constexpr char kPrint[] = "\n[JOB]\nPRT QTY=2\n<IMG SRC=\"B.JPG\">\n";
    volume.properties["tree"] = {PropertyDictionary{{"ifil", "EMPTY.MRK"}, {"tree", none}},
                                 marker("EMAILTAG.MRK", 0x201, kEmail), marker("a.mrk", 0x202, ""),
                                 PropertyDictionary{{"ifil", "MISC"},
                                                    {"tree",
                                                     {marker("AUTPRINT.MRK", 0x203, kPrint),
                                                      marker("AUTXFER.MRK", 0x204, kEmail)}}}};
    device = XTImageCaptureMSCDevice::withICAObject(volume.object, nullptr);
  }
  PictureDeviceTestRoom room;
  std::shared_ptr<XTImageCaptureMSCDevice> device;
};

TEST(MarkerFiles, AreReadThroughImageCaptureUntilOneFails) {
  TemporaryFolder folder;
  const ScopedEnvironment temporary("TMPDIR", folder.path());
  CardWithMarkers card;
  EXPECT_EQ(card.device->emailOrderList(),
            EmailOrders(2, {.destAddresses = {"x@y.z"}, .assets = {"A.JPG"}}));
  EXPECT_EQ(card.device->printOrderList(), PrintOrders(1, {.quantity = 2, .assets = {"B.JPG"}}));
  EXPECT_EQ(card.device->lastReading().read, 1U);
  EXPECT_TRUE(card.room.trace.contains("this node's name is CARD, and it has 4 members"));
  EXPECT_TRUE(card.room.trace.contains("node 3 is another tree: MISC"));
  for (const auto& left : std::filesystem::recursive_directory_iterator(folder.path()))
    EXPECT_TRUE(left.is_directory()) << left.path();
  card.room.ica.files.erase(0x204);
  EXPECT_FALSE(card.device->emailOrderList());
  EXPECT_THAT(card.device->lastReading().unreadable, ElementsAre(0x204U));
  EXPECT_TRUE(card.device->printOrderList());

  card.room.ica.files[0x204] = {"AUTXFER.MRK", "x"};
  const auto paths = *card.device->orderFiles();
  EXPECT_THAT(
      paths, ElementsAre(::testing::EndsWith("/EMAILTAG.MRK"), ::testing::EndsWith("/AUTPRINT.MRK"),
                         ::testing::EndsWith("/AUTXFER.MRK")));
  EXPECT_TRUE(std::filesystem::exists(paths[0]));
  card.room.ica.files.erase(0x203);
  EXPECT_THAT(*card.device->orderFiles(), ::testing::SizeIs(2)) << "the others all the same";
  EXPECT_TRUE(card.room.trace.contains("parseTreeForOrderFiles downloadFilePB.header.err: 0x"));
  EXPECT_EQ(card.device->lastReading().listed, 3U);
  const ObjectReference marker = {{"icao", 0x201}};
  EXPECT_EQ(card.device->downloadFile(marker, folder.path("marker")), status::kOK);
  EXPECT_EQ(card.device->downloadFile(marker, folder.path("marker")), status::kDuplicateFile);
  EXPECT_EQ(card.device->downloadFile({{"ifil", "x"}}, folder.path("x")),
            status::kICAInvalidObject);
}

TEST(MarkerFiles, AreDeletedUntilOneFails) {
  CardWithMarkers card;
  EXPECT_EQ(card.device->deleteOrderFiles(), 0);
  std::vector<ICAObject> deleted;
  for (const auto& [object, message] : card.room.ica.messages)
    deleted.push_back(object);
  EXPECT_THAT(deleted, ElementsAre(0x201U, 0x203U, 0x204U));
  card.room.ica.messageStatus = -61;
  EXPECT_EQ(card.device->deleteOrderFiles(), -61);
  EXPECT_EQ(card.room.ica.messages.size(), 4U);
  card.device->storesChanged();
  card.room.ica.find(card.device->icaObject())->dictionaryStatus = status::kICATimeout;
  EXPECT_EQ(card.device->deleteOrderFiles(), status::kICATimeout) << "not knowing is a failure";
  EXPECT_EQ(card.device->orderFiles(), std::vector<std::string>());
  EXPECT_EQ(card.device->lastReading().status, status::kICATimeout);
}

}  // namespace
}  // namespace tarvo::test
