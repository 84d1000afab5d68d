// Objects from the host: what goes with what, and how many bytes.
#include "tests/simulator/ResponderFixture.h"

namespace tarvo::simulator {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::SizeIs;

class Sending : public ResponderFixture {
 protected:
  Sending() {
    describe(R"("stores": [{"free": 2000}], "vendor": {"operations": [
        "0x9001", "0x9002", "0x9005", "0x9006", "0x9019", "0x9202"]})");
  }
  static Bytes bytes(std::size_t count) { return Bytes(count, std::byte{7}); }
  /// An ObjectInfo data set as a host writes it.
  static Bytes objectInfo(const char* name, std::uint16_t format, std::uint32_t size) {
    ByteWriter writer;
    writer.u32(0);
    writer.u16(format);
    writer.u16(0);
    writer.u32(size);
    writer.raw(Bytes(40));
    for (const char* text : {name, "20240101T000000", "20240101T000000", ""})
      writer.text(text);
    return writer.take();
  }
};

TEST_F(Sending, EachInformationOperationGoesWithOneDataOperation) {
  const std::uint16_t infos[] = {ptp::kSendObjectInfo, kVendorSendInfo, kAlternateSendInfo,
                                 kSendExtendedInfo};
  const std::uint16_t fitting[] = {ptp::kSendObject, kVendorSendData, kAlternateSendData,
                                   ptp::kSendObject};
  for (std::size_t i = 0; i < std::size(infos); ++i) {
    for (const std::uint16_t data :
         {std::uint16_t{ptp::kSendObject}, std::uint16_t{kVendorSendData},
          std::uint16_t{kAlternateSendData}}) {
      complaints_.clear();
      auto info = objectInfo("X", 0x3801, 1);
      // The maker's extension with nothing in it.
      if (infos[i] == kSendExtendedInfo) info.resize(info.size() + 46);
      ASSERT_EQ(code(infos[i], {}, info), kOK);
      EXPECT_EQ(code(data, {}, bytes(1)), data == fitting[i] ? kOK : kNoValidObjectInfo);
      EXPECT_EQ(complaints_.empty(), data == fitting[i]) << infos[i] << " and " << data;
    }
  }
}

TEST_F(Sending, TheBytesMustBeAsManyAsWereAnnounced) {
  for (const std::size_t count : {8U, 10U}) {
    complaints_.clear();
    ASSERT_EQ(code(ptp::kSendObjectInfo, {}, objectInfo("X", 0x3801, 9)), kOK);
    EXPECT_EQ(code(ptp::kSendObject, {}, bytes(count)), kIncompleteTransfer);
    EXPECT_THAT(complaints_, ElementsAre(HasSubstr("9 bytes of an object were announced")));
  }
  EXPECT_EQ(code(ptp::kSendObject, {}, bytes(9)), kOK) << "the information holds for a new try";
}

TEST_F(Sending, PartsMakeTheWholeAndTheLastOneSaysSo) {
  struct Row {
    std::uint32_t announced;
    std::vector<std::array<std::uint32_t, 3>> parts;  // size, flag, bytes sent
    std::uint16_t expected;                           // of the last part
  };
  const Row rows[] = {
      {10, {{6, 0, 6}, {4, 1, 4}}, kOK},
      {53, {{52, 1, 53}}, kOK},                           // the byte that the container needs
      {10, {{6, 0, 6}, {4, 0, 4}}, kIncompleteTransfer},  // not flagged
      {10, {{6, 1, 6}}, kIncompleteTransfer},             // flagged too early
      {10, {{6, 0, 6}, {6, 1, 6}}, kIncompleteTransfer},  // too much
      {10, {{6, 0, 5}}, kIncompleteTransfer},             // less than it says
      {10, {{10, 2, 10}}, kInvalidParameter},
  };
  for (const auto& row : rows) {
    complaints_.clear();
    ASSERT_EQ(code(ptp::kSendObjectInfo, {}, objectInfo("X", 0x3801, row.announced)), kOK);
    std::uint16_t last = 0;
    for (const auto& part : row.parts)
      last = code(ptp::XTO_SEND_OBJECT_PART, {part[0], part[1]}, bytes(part[2]));
    EXPECT_EQ(last, row.expected) << row.announced << " in " << row.parts.size();
    EXPECT_EQ(complaints_.empty(), row.expected == kOK);
  }
}

TEST_F(Sending, AMalformedObjectInfoIsTheHostsFault) {
  const auto whole = objectInfo("X", 0x3801, 1);
  auto longer = whole;
  longer.resize(longer.size() + 2);
  const Bytes cut(whole.begin(), whole.end() - 3);
  for (const auto& bytes : {Bytes(), cut, longer})
    EXPECT_EQ(code(ptp::kSendObjectInfo, {}, bytes), kGeneralError);
  EXPECT_THAT(complaints_, SizeIs(3));
}

}  // namespace
}  // namespace tarvo::simulator
