#include "platform/iokit/SCSIUnitAssembly.h"

#include <gmock/gmock.h>

#include "tests/support/ManualRunLoop.h"

namespace tarvo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Node = SCSIUnitAssembly::Node;

class Assembly : public testing::Test {
 protected:
  test::ManualRunLoop loop;
  std::vector<std::string> complete;
  SCSIUnitAssembly assembly{loop, [this](const std::string& unit) { complete.push_back(unit); }};
};

TEST_F(Assembly, IsCompleteOnceBothNodesWereSeenInAnyOrder) {
  assembly.unitSeen("/a", true);
  assembly.nodeSeen("/a", true, Node::kBlock);
  assembly.nodeSeen("/b", true, Node::kGeneric);
  assembly.unitSeen("/b", true);
  EXPECT_THAT(complete, IsEmpty());
  EXPECT_TRUE(assembly.isWaiting("/a"));

  assembly.nodeSeen("/a", true, Node::kGeneric);
  assembly.nodeSeen("/b", true, Node::kBlock);
  EXPECT_THAT(complete, ElementsAre("/a", "/b"));
  EXPECT_FALSE(assembly.isWaiting("/a"));
  loop.advance(SCSIUnitAssembly::kPatience);
  EXPECT_EQ(complete.size(), 2U);
}

TEST_F(Assembly, WaitsForNoBlockDeviceWhereThereWillBeNone) {
  assembly.unitSeen("/enclosure", false);
  assembly.nodeSeen("/enclosure", false, Node::kGeneric);
  EXPECT_THAT(complete, ElementsAre("/enclosure"));
}

TEST_F(Assembly, EndsWhenItsTimeHasPassed) {
  assembly.unitSeen("/a", true);
  assembly.nodeSeen("/a", true, Node::kGeneric);
  assembly.nodeSeen("/a", true, Node::kGeneric);
  loop.advance(SCSIUnitAssembly::kPatience - std::chrono::milliseconds(1));
  EXPECT_THAT(complete, IsEmpty());
  loop.advance(std::chrono::milliseconds(1));
  EXPECT_THAT(complete, ElementsAre("/a"));
}

TEST_F(Assembly, ForgetsAUnitThatGoesAndLeavesNoTimer) {
  assembly.unitSeen("/a", true);
  assembly.unitGone("/a");
  assembly.unitGone("/never seen");
  EXPECT_EQ(loop.validTimerCount(), 0U);
  loop.advance(SCSIUnitAssembly::kPatience);
  EXPECT_THAT(complete, IsEmpty());
}

TEST_F(Assembly, LeavesNoTimerBehind) {
  {
    SCSIUnitAssembly shortLived(loop, [](const std::string&) { FAIL(); });
    shortLived.unitSeen("/a", true);
  }
  EXPECT_EQ(loop.validTimerCount(), 0U);
}

}  // namespace
}  // namespace tarvo
