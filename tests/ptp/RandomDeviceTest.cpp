// Whatever a device does, a conversation with it ends, and nothing is written beyond the room.
#include <gtest/gtest.h>

#include <random>

#include "tests/ptp/RandomConversation.h"

namespace tarvo::ptp {
namespace {

TEST(RandomDevice, NeverKeepsAConversationFromEndingOrWritesBeyondTheRoom) {
  std::mt19937 random(20240117);  // NOLINT(bugprone-random-generator-seed): the same every time.
  std::uniform_int_distribution<int> byte(0, 255);
  std::uniform_int_distribution<std::size_t> length(0, 400);
  std::uint64_t transactions = 0;
  for (int round = 0; round < 1000; ++round) {
    std::vector<std::uint8_t> bytes(length(random));
    for (auto& value : bytes)
      value = static_cast<std::uint8_t>(byte(random));
    const test::RandomConversation conversation(bytes);
    EXPECT_TRUE(conversation.keptToTheRoom()) << "round " << round;
    transactions += conversation.answered();
  }
  EXPECT_GT(transactions, 400U);  // The random devices are not so bad that nothing is tested.
}

}  // namespace
}  // namespace tarvo::ptp
