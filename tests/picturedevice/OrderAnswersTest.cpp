// What the base of the picture devices makes of orders, the address book, its default collection,
// the shoebox and the operations of a concrete class: which way it goes, and what it keeps.
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
using ::testing::IsEmpty;

constexpr char kOrder[] = "00112233-4455-6677-8899-AABBCCDDEEFF";

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
                            {.orderID = kOrder, .destContacts = {31}, .assetHandles = {1}},
                            storeEmailOrder);
    transactions_.addRecord(51, ptp::XTD_SQUIRT_TRANSFER_ORDER, {.orderID = kOrder},
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
  const std::tuple<bool, bool, std::uint32_t, std::size_t> rows[] = {
      {true, false, 2, 0}, {false, false, 2, 1}, {true, true, 2, 1}, {true, false, 9, 1}};
  setIntentions(2);
  device_->wireless = true;
  auto waiting =
      std::exchange(transactions_.objects[51], {std::make_shared<XTExtendedObjectInfo>(), ""});
  EXPECT_EQ(device_->squirtTransferFiles(), TransferOrder()) << "not kept";
  transactions_.objects[51] = waiting;
  for (const auto& [wireless, docked, intentions, orders] : rows) {
    device_->wireless = wireless;
    device_->docked = docked;
    setIntentions(intentions);
    EXPECT_EQ(device_->emailOrderListPTP()->size(), orders);
    EXPECT_EQ(device_->squirtTransferFiles().has_value(), wireless) << "kept since the first";
    // Those that wait are not deleted by this side.
    transactions_.calls.clear();
    EXPECT_EQ(device_->deleteOrderFilesPTP(), 0);
    EXPECT_EQ(transactions_.calls.back() == "GetObjectHandles FFFFFFFF B205", orders == 1);
  }
}

TEST_F(OrderAnswers, ComeFromMarkersWithoutDataSets) {
  TemporaryFolder folder;
  const ScopedEnvironment temporary("TMPDIR", folder.path());
  PictureDeviceServices services = room_.room->services();
  services.defaultEncoding = "ISO-8859-1";
  const PictureDeviceRoom room(services);
  transactions_.operations = {0x101B};
  transactions_.add(41, "EMAILTAG.MRK", "\n[JOB]\nDST EML=\"\xFC@b\"\nIMG SRC=\"A.JPG\"\n",
                    kMarkerFormat);
  EXPECT_EQ(*device_->emailOrderListPTP(),
            EmailOrders(1, {.destAddresses = {"\xC3\xBC@b"}, .assets = {"A.JPG"}}));
  transactions_.add(42, "X.MRK", "x", kMarkerFormat);
  transactions_.failing = {{"GetObject 41", 0x2009}};
  EXPECT_THAT(device_->orderFilesPTP(), ::testing::SizeIs(1));
  EXPECT_THAT(device_->lastReading().unreadable, ElementsAre(41U));
}

TEST_F(OrderAnswers, KeepTheAddressBookAsThePreferenceSays) {
  device_->book.emplace();
  for (int i = 0; i < 2; ++i)
    EXPECT_TRUE(device_->addressBookDict());
  EXPECT_EQ(device_->booksRead, 1);
  room_.defaults.setBool("XTPictureDeviceCacheAddressBook", false);
  device_->book.reset();
  EXPECT_FALSE(device_->addressBookDict());
  EXPECT_EQ(device_->booksRead, 2);
}

TEST_F(OrderAnswers, WriteTheBookTheWayThatTheDeviceTakesIt) {
  const std::tuple<CodeList, std::uint32_t, const char*, Status, const char*> rows[] = {
      {{0x100C, 0x9207}, 1, "", 0, "CreateDataSet B202"},
      {{0x100C, 0x9204}, 1, "", 0, "SendObject"},
      {{0x9207}, 1, "CreateDataSet", 0x200C, "CreateDataSet B202"},
      {{0x100C}, 1, "SendObject", 0x200C, "SendObject"},
      {{0x9207}, 0, "", 0x10000001, ""},
  };
  for (const auto& [operations, maxAddresses, failing, status, lastCall] : rows) {
    transactions_.operations = operations;
    transactions_.calls = {""};
    transactions_.failing = {{failing, 0x200C}};
    device_->fields().cachedAddressBook.emplace();
    AddressBook book;
    book.limits = {1, 3, maxAddresses, 9, 9, 100, 100, 100};
    book.contacts = Contacts{
        std::make_shared<Contact>(Contact{.email = "a@b.c", .nickname = "A", .handle = 1})};
    book.groups = ContactGroups{
        std::make_shared<ContactGroup>(ContactGroup{.name = "G", .action = DataSyncAction::kAdd})};
    EXPECT_EQ(device_->setAddressBookDictPTP(book), status) << lastCall;
    EXPECT_EQ(transactions_.calls.back(), lastCall);
    // What may have been changed is not kept.
    EXPECT_EQ(device_->fields().cachedAddressBook.has_value(), status != 0x200C);
    EXPECT_EQ(device_->lastWriting().steps.empty(), *lastCall == 0) << lastCall;
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
  transactions_.properties = {0xD204};
  transactions_.values[0xD204] = PTPBytes().u32(16).u32(0).u32(0).u32(0).u32(0);
  for (int i = 0; i < 2; ++i)
    EXPECT_EQ(device_->defaultCollectionID(), "00000000-0000-0000-0000-000000000000");
  EXPECT_EQ(device_->setDefaultCollectionID(std::nullopt), 0);
  EXPECT_EQ(transactions_.setValue, std::vector<std::byte>(4));
  device_->defaultCollectionID();
  EXPECT_THAT(transactions_.calls, ElementsAre("GetDevicePropValue D204", "SetDevicePropValue D204",
                                               "GetDevicePropValue D204"));
}

TEST(CollectionIDFile, IsOneFileOnTheInnerStoreOfEachModel) {
  const MakerConstants maker;
  const std::tuple<const char*, const char*, Status, const char*> rows[] = {
      {"ID", "", 0, "SendObject"},
      {"", "Delete", 0x200C, "Delete 4 0000 100B"},
      {"ID", "Delete", 0, "SendObject"},  // the old one stays, which is traced
      {"", "GetObjectHandles", 0x200C, "GetObjectHandles 20001 3004"},
      {"\xC3\xBC", "", -50, ""},  // no ASCII
  };
  for (const auto& [id, failing, status, last] : rows) {
    ScriptedPTPTransactions device;
    device.operations = {0x100C, 0x101B};
    device.capabilities.hasDeleteObject = true;
    device.add(3, "prefguid.txt", "no", 0x3004);
    device.add(4, "PREFGUID.TXT", "text", 0x3004);
    CollectionIDFile file(device, maker);
    EXPECT_EQ(file.defaultCollectionIDFromFile(), "text");
    device.calls = {""};
    device.failing = {{failing, 0x200C}};
    EXPECT_EQ(file.storeDefaultCollectionIDInFile(id), status) << failing;
    EXPECT_EQ(device.calls.back(), last) << failing;
  }
  ScriptedPTPTransactions viewer;
  viewer.operations = {0x100C, 0x101B};
  viewer.capabilities.hasDeleteObject = true;
  viewer.model = "Tarvo Brisklink picture viewer";
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
  transactions_.operations = {0x100C, 0x100D};
  for (const Status status : {0x200C, 0}) {
    auto stale = std::make_shared<XTExtendedObjectInfo>();
    stale->setObjFmtCode(kShoeboxFormat);
    device_->cacheObject(9, stale);
    transactions_.failing = {{"SendObject", status}};
    EXPECT_EQ(device_->sendShoeboxPTP(box, nullptr), status);
    EXPECT_EQ(device_->addImageToShoebox(folder.write("my.jpg", "image")), status);
    EXPECT_EQ(device_->cachedInfoForObject(9) == nullptr, status == 0);
    EXPECT_TRUE(room_.trace.contains(formatted("sendData status: %d", status)));
  }
  EXPECT_EQ(device_->addImageToShoebox(folder.path("none")), -43);
  EXPECT_TRUE(room_.trace.contains("Could not find image file '" + folder.path("none") + "'."));
  EXPECT_THAT(raised([&] { return device_->addImageToShoebox(""); }),
              testing::HasSubstr("Invalid parameter not satisfying: "));
  EXPECT_EQ(Shoebox(transactions_, room_.maker).sendContents(box, &transactions_.operations), 0);
  EXPECT_EQ(transactions_.calls.back(), "SendContentsOfFile");
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

  const auto paths = *card.device->orderFiles();
  EXPECT_THAT(paths, ElementsAre(::testing::EndsWith("/EMAILTAG.MRK"),
                                 ::testing::EndsWith("/AUTPRINT.MRK")));
  EXPECT_TRUE(std::filesystem::exists(paths[0]));
  EXPECT_TRUE(card.room.trace.contains("parseTreeForOrderFiles downloadFilePB.header.err: 0x"));
  EXPECT_EQ(card.device->lastReading().listed, 3U);
  const ObjectReference marker = {{"icao", 0x201}};
  for (const Status status : {status::kOK, status::kDuplicateFile})
    EXPECT_EQ(card.device->downloadFile(marker, folder.path("marker")), status);
  EXPECT_EQ(card.device->downloadFile({{"ifil", "x"}}, folder.path("x")),
            status::kICAInvalidObject);
}

TEST(MarkerFiles, AreDeletedUntilOneFails) {
  CardWithMarkers card;
  auto& ica = card.room.ica;
  EXPECT_EQ(card.device->deleteOrderFiles(), 0);
  ica.messageStatus = -61;
  EXPECT_EQ(card.device->deleteOrderFiles(), -61);
  std::vector<ICAObject> deleted;
  for (const auto& [object, message] : ica.messages)
    deleted.push_back(object);
  EXPECT_THAT(deleted, ElementsAre(0x201U, 0x203U, 0x204U, 0x201U));
  card.device->storesChanged();
  ica.find(card.device->icaObject())->dictionaryStatus = status::kICATimeout;
  EXPECT_EQ(card.device->deleteOrderFiles(), status::kICATimeout) << "not knowing is a failure";
  EXPECT_EQ(card.device->orderFiles(), std::vector<std::string>());
  EXPECT_EQ(card.device->lastReading().status, status::kICATimeout);
}

class PictureDeviceAnswers : public ::testing::Test {
 protected:
  PictureDeviceTestRoom room_;
  std::shared_ptr<ScriptedDevice> device_ = std::make_shared<ScriptedDevice>();
};

TEST_F(PictureDeviceAnswers, SumUpTheStoresByTheirKind) {
  EXPECT_FALSE(device_->storageInfoDict());
  device_->stores = {0x10001, 0x20000, 0x20001, 0x30001, 0x40001};
  device_->infos[0x20000] = {.storageType = 4, .maxCapacity = 9};  // a slot without a card
  EXPECT_FALSE(device_->storageInfoDict());
  device_->infos[0x10001] = {.storageType = 3, .maxCapacity = 0x100000007, .freeSpaceInBytes = 2};
  device_->infos[0x20001] = {.storageType = 4, .maxCapacity = 11, .freeSpaceInBytes = 10};
  device_->infos[0x30001] = {.storageType = 2, .maxCapacity = 21, .freeSpaceInBytes = 20};
  device_->transactions.add(1, "a.jpg", "");
  EXPECT_EQ(device_->storageInfoDict(),
            PropertyDictionary({{"XTPictureDeviceInternalMemoryKey", 7},
                                {"XTPictureDeviceInternalFreeKey", 2},
                                {"XTPictureDeviceInternalImagesKey", 1},
                                {"XTPictureDeviceRemovableMemoryKey", 21},
                                {"XTPictureDeviceRemovableFreeKey", 20},
                                {"XTPictureDeviceRemovableImagesKey", 1}}));
  EXPECT_EQ(device_->transactions.calls.back(), "GetNumObjects 30001 FFFF");
}

TEST_F(PictureDeviceAnswers, SendDataWhereTheDeviceTakesObjects) {
  auto& transactions = device_->transactions;
  std::uint32_t handle = 0;
  const auto send = [&](const CodeList& operations) {
    XTExtendedObjectInfo info;
    transactions.operations = operations;
    return device_->sendData(std::as_bytes(std::span(std::string_view("abc"))), info, 1, 2,
                             &handle);
  };
  EXPECT_EQ(send({0x100D, 0x9006}), -1400);
  EXPECT_EQ(send({0x9005}), 0);
  EXPECT_EQ(handle, ScriptedPTPTransactions::kNewHandle);
  device_->fields().capabilities.hasSendVendorObject = true;
  handle = 0;
  transactions.failing["SendObject"] = 0x200C;
  EXPECT_EQ(send({}), 0x200C);
  EXPECT_EQ(handle, 0U);
  EXPECT_EQ(transactions.sentData, "abc");
}

TEST_F(PictureDeviceAnswers, ReadOnePropertyForTheHostAndWriteAnother) {
  auto& transactions = device_->transactions;
  transactions.properties = {0xD201, 0xD202, 0xD203};
  transactions.values[0xD201] = PTPBytes().u32(16).u32(1).u32(0).u32(0).u32(0);
  EXPECT_EQ(device_->deviceID(), "01000000-0000-0000-0000-000000000000");
  EXPECT_EQ(device_->defaultHostID(), device_->deviceID());
  EXPECT_EQ(device_->setDefaultHostID("01000000-0000-0000-0000-000000000000"), 0);
  EXPECT_EQ(transactions.calls.back(), "SetDevicePropValue D203");
  EXPECT_EQ(device_->setDeviceUserName("Ann"), 0);
  EXPECT_EQ(transactions.calls.back(), "SetDevicePropValue D202");
}

TEST_F(PictureDeviceAnswers, TellIntentionsOfAWirelessDeviceAlone) {
  device_->transactions.properties = {0xD206};
  device_->transactions.values[0xD206] = PTPBytes().u32(2 | 8);
  for (const auto& [supports, wireless, docked] : {std::tuple(true, true, false),
                                                   {false, true, false},
                                                   {true, false, false},
                                                   {true, true, true}}) {
    device_->fields().capabilities.deviceSupportsIntention = supports;
    device_->wireless = wireless;
    device_->docked = docked;
    EXPECT_EQ(device_->hasSquirtEmailIntention(), supports && wireless);
    EXPECT_EQ(device_->hasSquirtTransferIntention(), supports && wireless && !docked);
    EXPECT_FALSE(device_->hasSyncIntention() || device_->hasSquirtPrintIntention());
  }
}

TEST_F(PictureDeviceAnswers, KeepTheLanguagesOfDeviceAndHost) {
  const ScopedEnvironment all("LC_ALL", "sv_SE.UTF-8");
  const ScopedEnvironment language("LANGUAGE", "");
  EXPECT_EQ(device_->deviceLocalizationPTP(), "sv_SE");
  const ScopedEnvironment changed("LC_ALL", "fr_FR.UTF-8");
  EXPECT_EQ(device_->deviceLocalization(), "sv_SE");
  room_.maker.uiLanguageProperty = 0xD207;
  device_->transactions.properties = {0xD207};
  device_->transactions.descriptions[0xD207] =
      PTPBytes().u16(0xD207).u16(0xFFFF).u8(1).text("en").text("German");
  EXPECT_EQ(device_->deviceUILanguageSetting(), "German");
  EXPECT_EQ(device_->deviceLocalizationPTP(), "de");
  EXPECT_THAT(device_->transactions.calls, ElementsAre("GetDevicePropDesc D207"));
}

TEST_F(PictureDeviceAnswers, DownloadAndDeleteByHandle) {
  TemporaryFolder folder;
  const ScopedEnvironment temporary("TMPDIR", folder.path());
  auto& transactions = device_->transactions;
  transactions.add(7, "../a.txt", "abc");
  EXPECT_FALSE(device_->downloadObjectData(7) || device_->downloadObjectPTP(7));
  transactions.operations = {0x101B};
  EXPECT_EQ(device_->downloadObjectData(7)->size(), 3U);
  EXPECT_FALSE(device_->downloadObjectData("7"));
  EXPECT_TRUE(device_->downloadObjectPTP(7).value_or("").ends_with("/a.txt"));
  EXPECT_TRUE(room_.trace.contains("ObjectInfo: fileName: ../a.txt"));

  device_->fields().cachedImageCountForDatasetSizeEstimate = 4;
  transactions.capabilities.hasDeleteObject = true;
  EXPECT_EQ(device_->deleteObject(7), 0);
  EXPECT_EQ(device_->fields().cachedImageCountForDatasetSizeEstimate, -1);
  device_->pictures = {7, "/a.jpg"};
  EXPECT_EQ(device_->getPictureFileSizesDict(), PropertyDictionary({{"7", 6}, {"/a.jpg", 5}}));
}

}  // namespace
}  // namespace tarvo::test
