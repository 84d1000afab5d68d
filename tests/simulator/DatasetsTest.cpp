// The vendor data sets that a device keeps: what a host may write, and what it gets wrong.
#include "tests/simulator/ResponderFixture.h"

namespace tarvo::simulator {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// Pictures 1 and 2; contacts Anna (3) and Bo (4); groups Both (5) and Nobody (6); an e-mail order
/// (7) of both pictures and a print order (8) of the second one.
constexpr const char* kDevice = R"(
  "vendor": {"supportedDatasets": ["0xB202", "0xB203", "0xB204", "0xB205", "0xB206"],
             "addressBook": {"maxAddresses": 3, "maxGroups": 3, "maxAddressesPerGroup": 2,
                             "maxAddressLengthInBytes": 5, "maxNicknameLengthInBytes": 4,
                             "maxGroupNameLengthInBytes": 60}},
  "datasets": {
    "contacts": [{"nickname": "Anna", "email": "a@b.c"}, {"nickname": "Bo", "email": "b@b.c"}],
    "groups": [{"name": "Both", "members": ["Anna", "Bo"], "image": 1}, {"name": "Nobody"}],
    "emailOrders": [{"to": ["Bo", "Anna"], "assets": ["A.JPG", "B.JPG"]}],
    "printOrders": [{"asset": "B.JPG"}]},
  "stores": [{"capacity": 4000, "content": [{"file": "A.JPG", "size": 3},
                                            {"file": "B.JPG", "size": 4}]}])";

class DatasetsOfADevice : public ResponderFixture {
 protected:
  DatasetsOfADevice() { describe(kDevice); }

  Bytes bytesOf(std::uint32_t handle) {
    const auto format = objects().object(handle).value().traits.format;
    return allBytes(*ask(ptp::XTO_GET_DATASET, {handle, format}).data);
  }

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
      {0x9204, {99, 0xB203}, {}, kInvalidObjectHandle, ""},
      {0x9205, {0xB201}, {}, kInvalidObjectFormatCode, "no data sets of format 0xB201"},
      {0x9205, {0xB202}, {}, kGeneralError, "format 0xB202 is malformed"},
      {0x9205, {0xB202}, with(group("N", {}), 0), kGeneralError, "is malformed"},
      {0x9205, {0xB202}, group("N", {3, 1}), kInvalidParameter, "handle 1 is that of no contact"},
      {0x9205, {0xB202}, group("N", {}, 77), kInvalidParameter, "handle 77 is that of no object"},
      {0x9205, {0xB202}, group("N", {3, 4, 3}), kInvalidParameter, "3 members, the limit is 2"},
      {0x9205, {0xB203}, contact("a@b.cd", "N"), kInvalidParameter, "6 units, the limit is 5"},
      {0x9205, {0xB203}, contact("a@b.c", "Nname"), kInvalidParameter, "5 units, the limit is 4"},
      {0x9205, {0xB203}, contact("a", "N", 1), kInvalidParameter, "has a picture"},
      {0x9205, {0xB203}, contact("a", "N", 0, {5}), kInvalidParameter, "has groups"},
      {0x9205, {0xB203}, contact("a", "N", 0, {}, 15), kGeneralError, "0xB203 is malformed"},
      {0x9207, {5, 0xB203}, contact("a", "N"), kInvalidObjectFormatCode, "object 5 of format"},
      {0x9207, {99, 0xB202}, group("N", {}), kInvalidObjectHandle, ""},
      {0x9208, {5, 1, 0}, {}, kInvalidObjectFormatCode, "object 5 is no order"},
      {0x9208, {7, 1, 1}, {}, kInvalidParameter, "with a third parameter"},
      {0x9208, {8, 1, 0}, {}, kInvalidParameter, ""},
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
  auto order = std::get<PrintOrderRecord>(responder_->state().datasets.record(8).value());
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

}  // namespace
}  // namespace tarvo::simulator
