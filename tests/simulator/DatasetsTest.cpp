// The vendor data sets that a device keeps: their bytes, what a host may write, what hangs together
// with what, and orders whose pictures are done.
#include "simulator/bytes/ByteWriter.h"
#include "tests/simulator/ResponderFixture.h"

namespace tarvo::simulator {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// Pictures 1 and 2; contacts Anna (3) and Bo (4); groups Both (5) and Nobody (6); an e-mail order
/// (7) of both pictures, a print order (8) and a transfer order (9) of the second one.
constexpr const char* kDevice = R"(
  "vendor": {"supportedDatasets": ["0xB202", "0xB203", "0xB204", "0xB205", "0xB206"],
             "addressBook": {"maxAddresses": 3, "maxGroups": 3, "maxAddressesPerGroup": 2,
                             "maxAddressLengthInBytes": 5, "maxNicknameLengthInBytes": 4,
                             "maxGroupNameLengthInBytes": 60}},
  "datasets": {
    "contacts": [{"guid": "000102030405060708090a0b0c0d0e0f", "nickname": "Anna", "email": "a@b.c",
                  "firstName": "1", "lastName": "2", "street": "3", "street2": "4", "city": "5",
                  "state": "6", "country": "7", "zip": "8", "phone": "9", "image": "B.JPG",
                  "sharingPreference": 10, "prints": 11},
                 {"nickname": "Bo", "email": "b@b.c"}],
    "groups": [{"name": "Both", "members": ["Anna", "Bo"], "image": 1}, {"name": "Nobody"}],
    "emailOrders": [{"serviceType": 1, "sender": "s", "to": ["Bo", "Anna"], "subject": "x",
                     "body": "y", "assets": ["A.JPG", "B.JPG", "A.JPG"]}],
    "printOrders": [{"accessCode": "c", "serviceType": 1, "type": 2, "multiUp": 3, "paperSize": 4,
                     "assetsRemaining": 5, "quantity": 6, "enhance": 7, "annotation": "n",
                     "date": 8, "assetSize": 9, "asset": "B.JPG"}],
    "transferOrders": [{"type": 3, "sender": "t", "assets": ["B.JPG"]}]},
  "stores": [{"capacity": 4000, "content": [{"file": "A.JPG", "size": 3},
                                            {"file": "B.JPG", "size": 4}]}])";

class DatasetsOfADevice : public ResponderFixture {
 protected:
  DatasetsOfADevice() { describe(kDevice); }

  Bytes bytesOf(std::uint32_t handle) {
    const auto format = objects().object(handle).value().traits.format;
    return allBytes(*ask(ptp::XTO_GET_DATASET, {handle, format}).data);
  }
  DatasetRecord recordOf(std::uint32_t handle) {
    return responder_->state().datasets.record(handle).value();
  }
  Handles groupsOf(std::uint32_t contact) {
    return std::get<ContactRecord>(recordOf(contact)).groups;
  }
  Handles membersOf(std::uint32_t group) { return std::get<GroupRecord>(recordOf(group)).members; }

  static Bytes group(const char* name, const Handles& members, std::uint32_t image = 0) {
    ByteWriter writer;
    writer.text(name);
    writer.u32(image);
    writer.u32Array(members);
    return writer.take();
  }
  static Bytes contact(const char* email, const char* nickname, std::uint32_t image = 0,
                       const Handles& groups = {}, std::uint32_t guid = 16) {
    ByteWriter writer;
    writer.u32(guid);
    writer.raw(Bytes(16, std::byte{1}));
    writer.text(email);
    writer.text(nickname);
    for (int text = 0; text < 9; ++text)
      writer.text("");
    writer.u32(image);
    writer.u32Array(groups);
    writer.u16(0);
    writer.u16(0);
    return writer.take();
  }
  static Bytes with(Bytes bytes, std::uint8_t last) {
    bytes.push_back(std::byte{last});
    return bytes;
  }
};

TEST_F(DatasetsOfADevice, AContactHasItsFieldsInTheOrderOfTheWire) {
  const auto bytes = bytesOf(3);
  ByteReader reader(bytes);
  EXPECT_EQ(reader.u32(), 16U);
  EXPECT_EQ(reader.bytes(16)[15], std::byte{15});
  for (const auto* text : {u"a@b.c", u"Anna", u"1", u"2", u"3", u"4", u"5", u"6", u"7", u"8", u"9"})
    EXPECT_EQ(reader.text(), text);
  EXPECT_EQ(reader.u32(), 2U) << "the picture";
  EXPECT_THAT(reader.u32Array(), ElementsAre(5));
  EXPECT_EQ(reader.u16(), 10U);
  EXPECT_EQ(reader.u16(), 11U);
  EXPECT_THAT(reader.rest(), IsEmpty());
  EXPECT_FALSE(reader.failed());
}

TEST_F(DatasetsOfADevice, OrdersAndGroupsToo) {
  EXPECT_EQ(bytesOf(5), group("Both", {3, 4}, 1));
  ByteWriter email;
  email.u32(16);
  email.raw(std::get<EmailOrderRecord>(recordOf(7)).guid);
  email.u16(1);
  email.text("s");
  email.u32Array(Handles{4, 3});
  email.text("x");
  email.text("y");
  email.u32Array(Handles{1, 2, 1});
  EXPECT_EQ(bytesOf(7), email.take());
  ByteWriter print;
  print.u32(16);
  print.raw(std::get<PrintOrderRecord>(recordOf(8)).guid);
  print.text("c");
  for (const std::uint16_t number : {1, 2, 3})
    print.u16(number);
  print.u32(4);
  for (const std::uint16_t number : {5, 6, 7})
    print.u16(number);
  print.text("n");
  for (const std::uint32_t number : {8U, 9U, 2U})
    print.u32(number);
  EXPECT_EQ(bytesOf(8), print.take());
  EXPECT_EQ(littleEndian(bytesOf(9), 20, 2), 3U);
}

TEST_F(DatasetsOfADevice, AreObjectsOfTheirFormat) {
  EXPECT_THAT(ask(ptp::kGetNumObjects, {0xFFFFFFFF, ptp::XTD_CONTACT}).parameters, ElementsAre(2));
  const auto info = allBytes(*ask(ptp::kGetObjectInfo, {5}).data);
  EXPECT_EQ(littleEndian(info, 4, 2), 0xB202U);
  EXPECT_EQ(littleEndian(info, 8, 4), bytesOf(5).size());
}

TEST_F(DatasetsOfADevice, WhatAHostGetsWrongIsRefusedAndSaid) {
  struct Row {
    std::uint16_t operation;
    std::vector<std::uint32_t> parameters;
    Bytes data;
    std::uint16_t expected;
    const char* complaint;  ///< empty: none
  };
  const Row rows[] = {
      {0x9204, {3, 0xB202}, {}, kInvalidObjectFormatCode, "object 3 of format 0xB203 was named as"},
      {0x9204, {1, 0x3801}, {}, kInvalidObjectFormatCode, "object 1 of format 0x3801 was named as"},
      {0x9204, {99, 0xB203}, {}, kInvalidObjectHandle, ""},
      {0x9205, {0xB201}, {}, kInvalidObjectFormatCode, "no data sets of format 0xB201"},
      {0x9205, {0xB202}, {}, kGeneralError, "format 0xB202 is malformed"},
      {0x9205, {0xB202}, with(group("N", {}), 0), kGeneralError, "is malformed"},
      {0x9205, {0xB202}, group("N", {3, 1}), kInvalidParameter, "handle 1 is that of no contact"},
      {0x9205, {0xB202}, group("N", {0}), kInvalidParameter, "handle 0 is that of no contact"},
      {0x9205, {0xB202}, group("N", {}, 77), kInvalidParameter, "handle 77 is that of no object"},
      {0x9205, {0xB202}, group("N", {3, 4, 3}), kInvalidParameter, "3 members, the limit is 2"},
      {0x9205, {0xB203}, contact("a@b.cd", "N"), kInvalidParameter, "6 units, the limit is 5"},
      {0x9205, {0xB203}, contact("a@b.c", "Nname"), kInvalidParameter, "5 units, the limit is 4"},
      {0x9205, {0xB203}, contact("a", "N", 1), kInvalidParameter, "has a picture"},
      {0x9205, {0xB203}, contact("a", "N", 0, {5}), kInvalidParameter, "has groups"},
      {0x9205, {0xB203}, contact("a", "N", 0, {}, 15), kGeneralError, "0xB203 is malformed"},
      {0x9207, {5, 0xB203}, contact("a", "N"), kInvalidObjectFormatCode, "object 5 of format"},
      {0x9207, {5, 0xB202}, group("N", {9}), kInvalidParameter, "handle 9 is that of no contact"},
      {0x9207, {99, 0xB202}, group("N", {}), kInvalidObjectHandle, ""},
      {0x9208, {5, 1, 0}, {}, kInvalidObjectFormatCode, "object 5 is no order"},
      {0x9208, {7, 1, 1}, {}, kInvalidParameter, "with a third parameter"},
      {0x9208, {8, 1, 0}, {}, kInvalidParameter, ""},
      {0x9208, {99, 1, 0}, {}, kInvalidObjectHandle, ""},
  };
  const auto before = objects().handles({});
  for (const auto& row : rows) {
    complaints_.clear();
    EXPECT_EQ(code(row.operation, row.parameters, row.data), row.expected) << row.complaint;
    EXPECT_EQ(complaints_.size(), row.complaint[0] == '\0' ? 0U : 1U) << row.complaint;
    if (!complaints_.empty()) {
      EXPECT_THAT(complaints_[0], HasSubstr(row.complaint));
    }
  }
  EXPECT_EQ(objects().handles({}), before);
  EXPECT_EQ(bytesOf(5), group("Both", {3, 4}, 1));
}

TEST_F(DatasetsOfADevice, TheLimitsAreReachedAndNotPassed) {
  EXPECT_EQ(code(ptp::XTO_CREATE_DATASET, {0xB202}, group("3rd", {})), kOK);
  EXPECT_EQ(code(ptp::XTO_CREATE_DATASET, {0xB203}, contact("a", "N")), kOK);
  EXPECT_THAT(complaints_, IsEmpty());
  EXPECT_EQ(code(ptp::XTO_CREATE_DATASET, {0xB202}, group("4th", {})), kStoreFull);
  EXPECT_EQ(code(ptp::XTO_CREATE_DATASET, {0xB203}, contact("a", "N")), kStoreFull);
  EXPECT_THAT(complaints_, ElementsAre(HasSubstr("more data sets of format 0xB202"),
                                       HasSubstr("more data sets of format 0xB203")));
}

// Print orders are the only ones with an even number of bytes, so only they ever need it.
TEST_F(DatasetsOfADevice, TheByteThatPadsAContainerIsNoPartOfIt) {
  auto order = std::get<PrintOrderRecord>(recordOf(8));
  order.accessCode.clear();
  order.annotation.assign(32, u'n');
  const auto exact = datasetBytes(order);
  ASSERT_EQ((exact.size() + 12) % 64, 0U);
  EXPECT_EQ(code(ptp::XTO_UPDATE_DATASET, {8, 0xB205}, with(exact, 0)), kOK);
  EXPECT_EQ(bytesOf(8), exact);
  EXPECT_EQ(code(ptp::XTO_UPDATE_DATASET, {8, 0xB205}, with(exact, 1)), kGeneralError);
  order.annotation += u'n';
  EXPECT_EQ(code(ptp::XTO_UPDATE_DATASET, {8, 0xB205}, with(datasetBytes(order), 0)),
            kGeneralError);
}

TEST_F(DatasetsOfADevice, ContactsKnowTheirGroups) {
  EXPECT_EQ(code(ptp::XTO_UPDATE_DATASET, {5, 0xB202}, group("One", {4})), kOK);
  EXPECT_THAT(groupsOf(3), IsEmpty());
  EXPECT_THAT(groupsOf(4), ElementsAre(5));
  const auto made = ask(ptp::XTO_CREATE_DATASET, {0xB202}, group("New", {4, 3})).parameters.at(0);
  EXPECT_THAT(groupsOf(4), ElementsAre(5, made));
  EXPECT_EQ(code(kVendorDelete, {5, 0}), kOK);
  EXPECT_THAT(groupsOf(4), ElementsAre(made));
  EXPECT_EQ(code(kVendorDelete, {4, 0}), kOK);
  EXPECT_THAT(membersOf(made), ElementsAre(3));
  EXPECT_THAT(complaints_, IsEmpty());
}

TEST_F(DatasetsOfADevice, AContactKeepsItsGroupsAndLosesItsPictureWhenItIsReplaced) {
  EXPECT_EQ(code(ptp::XTO_UPDATE_DATASET, {3, 0xB203}, contact("z@b.c", "Zoe")), kOK);
  const auto now = std::get<ContactRecord>(recordOf(3));
  EXPECT_EQ(now.texts[kContactNickname], u"Zoe");
  EXPECT_EQ(now.image, 0U);
  EXPECT_THAT(now.groups, ElementsAre(5));
  EXPECT_EQ(now.prints, 0U);
}

TEST_F(DatasetsOfADevice, AnOrderLosesThePicturesThatAreDoneAndGoesWithTheLast) {
  EXPECT_EQ(code(ptp::XTO_MODIFY_ASSET_LIST, {7, 1, 0}), kOK);
  EXPECT_THAT(assetsOf(recordOf(7)), ElementsAre(2)) << "it was there twice";
  EXPECT_EQ(code(ptp::XTO_MODIFY_ASSET_LIST, {7, 1, 0}), kInvalidParameter);
  for (const std::uint32_t order : {7U, 8U, 9U}) {
    EXPECT_EQ(code(ptp::XTO_MODIFY_ASSET_LIST, {order, 2, 0}), kOK) << order;
    EXPECT_FALSE(objects().object(order)) << order;
  }
  EXPECT_TRUE(objects().object(2)) << "the picture stays";
  EXPECT_THAT(complaints_, IsEmpty());
}

TEST(DatasetDescriptions, HoldGeneratedWirelessAndMalformedOnes) {
  const DeviceState state(DeviceDescription::fromJson(nlohmann::json::parse(R"({
      "usb": {"vendor": 1, "product": 2}, "deviceInfo": {}, "stores": [{}],
      "datasets": {"contacts": [{"generate": 1000, "nickname": "P#", "email": "p#@x.example"}],
                   "emailOrders": [{"to": ["P1000", 7], "wireless": true}],
                   "raw": [{"format": "0xB203", "hex": "10ff"}]}})")));
  EXPECT_EQ(state.datasets.count(ptp::XTD_CONTACT), 1001U);
  EXPECT_EQ(std::get<ContactRecord>(*state.datasets.record(17)).texts[kContactEmail],
            u"p17@x.example");
  EXPECT_EQ(state.objects.object(1001)->traits.format, ptp::XTD_SQUIRT_EMAIL_ORDER);
  EXPECT_THAT(std::get<EmailOrderRecord>(*state.datasets.record(1001)).recipients,
              ElementsAre(1000, 7));
  EXPECT_FALSE(state.datasets.record(1002));
  EXPECT_EQ(allBytes(*state.objects.object(1002)->content), (Bytes{std::byte{16}, std::byte{255}}));
}

}  // namespace
}  // namespace tarvo::simulator
