// Objects from the host: what goes with what, how many bytes, and where they end up.
#include "tests/simulator/ResponderFixture.h"

namespace tarvo::simulator {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr std::uint32_t kCard = 0x00010001;

class Sending : public ResponderFixture {
 protected:
  Sending() {
    describeStores(R"("vendor": {"operations": ["0x9001", "0x9002", "0x9005", "0x9006", "0x9019",
                                                "0x9202", "0x9206"]},)");
  }
  static Bytes bytes(std::size_t count) { return Bytes(count, std::byte{7}); }
};

TEST_F(Sending, AnObjectIsThereOnceItsBytesHaveCome) {
  const auto reply = ask(ptp::kSendObjectInfo, {kCard, 0xFFFFFFFF}, objectInfo("N.JPG", 0x3801, 9));
  EXPECT_THAT(reply.parameters, ElementsAre(kCard, 0, 6));
  EXPECT_FALSE(objects().object(6));
  EXPECT_EQ(code(ptp::kSendObject, {}, bytes(9)), kOK);
  ASSERT_TRUE(objects().object(6));
  EXPECT_EQ(objects().object(6)->nameText(), "N.JPG");
  EXPECT_EQ(objects().object(6)->traits.captured, "20240101T000000");
  EXPECT_EQ(allBytes(*ask(ptp::kGetObject, {6}).data), bytes(9));
  EXPECT_EQ(freeBytes(kCard), 991U);
  EXPECT_THAT(complaints_, IsEmpty());
}

TEST_F(Sending, AFolderNeedsNoBytes) {
  EXPECT_EQ(code(ptp::kSendObjectInfo, {kCard, 1}, objectInfo("NEW", 0x3001, 0)), kOK);
  EXPECT_EQ(objects().object(6)->parent, 1U);
  EXPECT_EQ(code(ptp::kSendObject, {}, bytes(1)), kNoValidObjectInfo);
}

TEST_F(Sending, TheStoreAndTheFolderMustTakeIt) {
  struct Row {
    std::vector<std::uint32_t> place;
    std::uint32_t size;
    std::uint16_t expected;
  };
  const Row rows[] = {
      {{kCard, 1}, 1001, kStoreFull},
      {{kCard, 4}, 1, kInvalidParentObject},
      {{kCard, 77}, 1, kInvalidParentObject},
      {{7, 0}, 1, kInvalidStorageID},
      {{0x00020001, 0}, 1, kStoreReadOnly},
      {{0x00030001, 1}, 1, kInvalidParentObject},
      {{}, 1000, kOK},
      {{0, 1}, 5, kOK},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(code(ptp::kSendObjectInfo, row.place, objectInfo("X", 0x3801, row.size)),
              row.expected)
        << row.size;
  }
}

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
      if (infos[i] == kSendExtendedInfo) info = extended(info);
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

TEST_F(Sending, AnUpdateRenamesAndLeavesTheExtensionThatItDoesNotCarry) {
  EXPECT_EQ(code(ptp::XTO_UPDATE_EXT_OBJECT_INFO, {2}, extended(objectInfo("E.JPG", 0, 0))), kOK);
  const auto kept = objects().object(2)->extension;
  EXPECT_FALSE(kept.empty());
  EXPECT_EQ(code(ptp::XTO_UPDATE_EXT_OBJECT_INFO, {2}, objectInfo("F.JPG", 0, 0)), kOK);
  EXPECT_EQ(objects().object(2)->nameText(), "F.JPG");
  EXPECT_EQ(objects().object(2)->size, 300U);
  EXPECT_EQ(objects().object(2)->extension, kept);
  EXPECT_EQ(code(ptp::XTO_UPDATE_EXT_OBJECT_INFO, {99}, objectInfo("F", 0, 0)),
            kInvalidObjectHandle);
  EXPECT_THAT(complaints_, IsEmpty());
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

TEST(Spool, KeepsMoreThanItsMemoryInAFile) {
  Spool spool;
  const Bytes piece(Spool::kInMemory - 3, std::byte{1});
  spool.append(piece);
  spool.append(Bytes(10, std::byte{2}));
  const auto content = spool.finish();
  ASSERT_EQ(content->size(), Spool::kInMemory + 7);
  Bytes room(12);
  content->read(Spool::kInMemory - 5, room);
  EXPECT_EQ(room[1], std::byte{1});
  EXPECT_EQ(room[2], std::byte{2});
  EXPECT_EQ(room[11], std::byte{2});
  EXPECT_EQ(spool.size(), 0U);
}

}  // namespace
}  // namespace tarvo::simulator
