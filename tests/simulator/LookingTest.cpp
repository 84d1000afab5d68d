// What a host can find out: information, listings, thumbnails, names of every kind, properties, and
// the maker's questions.
#include "simulator/bytes/ByteWriter.h"
#include "tests/simulator/ResponderFixture.h"

namespace tarvo::simulator {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint32_t kAll = 0xFFFFFFFF;

class Looking : public ResponderFixture {
 protected:
  /// The name in the ObjectInfo data set of an object.
  std::u16string nameOf(std::uint32_t handle) {
    const auto bytes = allBytes(*ask(ptp::kGetObjectInfo, {handle}).data);
    const std::span whole(bytes);
    ByteReader reader(whole.subspan(52));
    return reader.text();
  }
  std::vector<std::uint32_t> listOf(const PTPReply& reply) {
    const auto bytes = allBytes(*reply.data);
    std::vector<std::uint32_t> list;
    ByteReader reader(bytes);
    for (auto left = reader.u32(); left > 0; --left)
      list.push_back(reader.u32());
    return list;
  }
};

TEST_F(Looking, TheThumbnailIsAsLargeAsObjectInfoSays) {
  describeStores();
  const auto info = allBytes(*ask(ptp::kGetObjectInfo, {2}).data);
  const auto thumb = allBytes(*ask(ptp::kGetThumb, {2}).data);
  EXPECT_EQ(littleEndian(info, 12, 2), 0x3808U);
  EXPECT_EQ(littleEndian(info, 14, 4), thumb.size());
  EXPECT_EQ(littleEndian(thumb, 0, 2), 0xD8FFU);
  EXPECT_EQ(littleEndian(thumb, thumb.size() - 2, 2), 0xD9FFU);
  EXPECT_EQ(code(ptp::kGetThumb, {3}), kNoThumbnailPresent);
  EXPECT_EQ(code(ptp::kGetThumb, {77}), kInvalidObjectHandle);
}

TEST_F(Looking, FileSizesComeInTheOrderOfTheHandles) {
  describeStores(R"("vendor": {"operations": ["0x9203"]},)");
  EXPECT_THAT(listOf(ask(ptp::kGetObjectHandles, {kAll, 0x3801, 0})), ElementsAre(2, 3, 5));
  EXPECT_THAT(listOf(ask(ptp::XTO_GET_PICTURE_FILE_SIZES, {kAll, 0x3801, 0})),
              ElementsAre(300, 100, 7));
}

TEST_F(Looking, NamesGoOutAsTheyAreDescribed) {
  describe(R"("stores": [{"content": [
      {"file": {"raw": "../../etc/x\n"}}, {"file": {"utf16": [55296, 65]}},
      {"file": {"raw": "x", "repeat": 254}}, {"file": {"raw": ""}}]}])");
  EXPECT_EQ(nameOf(1), u"../../etc/x\n");
  EXPECT_EQ(nameOf(2), (std::u16string{0xD800, u'A'}));
  EXPECT_EQ(nameOf(3), std::u16string(254, u'x'));
  EXPECT_EQ(nameOf(4), u"");
  EXPECT_EQ(objects().object(2)->nameText(),
            "\xEF\xBF\xBD"
            "A");
}

TEST_F(Looking, ASizeOfMoreThan32BitsIsNotTold) {
  describe(R"("stores": [{"content": [{"file": "A.MOV", "size": 5000000000},
                                      {"file": "B.MOV", "size": 5, "hidesSize": true}]}])");
  for (const std::uint32_t handle : {1U, 2U}) {
    EXPECT_EQ(littleEndian(allBytes(*ask(ptp::kGetObjectInfo, {handle}).data), 8, 4), kAll);
  }
  EXPECT_EQ(ask(ptp::kGetObject, {1}).data->size(), 5000000000U);
}

TEST_F(Looking, ADeviceOffersWhatItsDescriptionSays) {
  describeStores();
  EXPECT_EQ(code(ptp::XTO_GET_ADDRESS_BOOK_INFO), kOperationNotSupported);
  describeStores(R"("vendor": {"addressBook": {"maxAddresses": 9}, "displayRequestVersion": 1},)");
  const auto limits = allBytes(*ask(ptp::XTO_GET_ADDRESS_BOOK_INFO).data);
  EXPECT_EQ(limits.size(), 28U);
  EXPECT_EQ(littleEndian(limits, 4, 4), 9U);
  EXPECT_EQ(code(ptp::XTO_DISPLAY_REQUEST, {}, Bytes(3)), kOK);
  EXPECT_EQ(responder_->state().displayRequest.size(), 3U);
  EXPECT_EQ(code(kVendorDelete, {2, 0}), kOperationNotSupported);
}

TEST_F(Looking, AQueryGivesItsRowsInBlocksUntilItIsEnded) {
  describeStores(R"("vendor": {"queryRows": ["one", "two", "three"]},)");
  code(ptp::kSendObjectInfo, {0, 0}, objectInfo("q", ptp::XTD_QUERY, 1));
  code(ptp::kSendObject, {}, Bytes(1));
  const auto rows = [&](std::uint32_t ends) {
    const auto reply = ask(ptp::XTO_GET_DB_ROWS, {6, 1, ends, 7});
    return std::pair(allBytes(*reply.data).size(), reply.parameters.at(1));
  };
  EXPECT_EQ(rows(0), std::pair(std::size_t{6}, 0U));
  EXPECT_EQ(rows(0), std::pair(std::size_t{5}, 1U));
  EXPECT_EQ(rows(1), std::pair(std::size_t{0}, 1U));
  EXPECT_EQ(code(ptp::XTO_GET_DB_ROWS, {6, 1, 0, 7}), kInvalidObjectHandle);
  EXPECT_EQ(code(ptp::XTO_GET_DB_ROWS, {2, 1, 0, 7}), kInvalidObjectHandle);
}

TEST_F(Looking, PropertiesKeepToTheirForm) {
  describe(R"("properties": [
      {"code": 1, "type": "UINT8", "value": 5, "writable": true, "range": [0, 9, 1]},
      {"code": 2, "type": "UINT16", "value": 7, "default": 8, "writable": true, "choices": [7, 8]},
      {"code": 3, "type": "UINT8", "value": 1}])");
  const Bytes nine = {std::byte{9}};
  const Bytes ten = {std::byte{10}};
  EXPECT_EQ(code(ptp::kSetDevicePropValue, {1}, nine), kOK);
  EXPECT_EQ(code(ptp::kSetDevicePropValue, {1}, ten), kInvalidDevicePropValue);
  EXPECT_EQ(code(ptp::kSetDevicePropValue, {2}, nine), kInvalidDevicePropFormat);
  EXPECT_EQ(code(ptp::kSetDevicePropValue, {2}, {std::byte{9}, {}}), kInvalidDevicePropValue);
  EXPECT_EQ(code(ptp::kSetDevicePropValue, {3}, nine), kAccessDenied);
  EXPECT_EQ(code(ptp::kResetDevicePropValue, {2}), kOK);
  EXPECT_EQ(allBytes(*ask(ptp::kGetDevicePropValue, {2}).data)[0], std::byte{8});
  EXPECT_EQ(code(ptp::kResetDevicePropValue, {kAll}), kOK);
  EXPECT_EQ(allBytes(*ask(ptp::kGetDevicePropValue, {1}).data)[0], std::byte{5});
  EXPECT_EQ(code(ptp::kGetDevicePropDesc, {4}), kDevicePropNotSupported);
  EXPECT_THAT(complaints_, IsEmpty());
}

}  // namespace
}  // namespace tarvo::simulator
