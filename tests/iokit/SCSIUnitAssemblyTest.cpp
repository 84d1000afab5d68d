#include "platform/iokit/UdevRegistry.h"

#include <gmock/gmock.h>

#include <set>

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
  std::set<Node> made;
  SCSIUnitAssembly assembly{loop,
                            [this](const std::string&, Node node) { return made.contains(node); },
                            [this](const std::string& unit) { complete.push_back(unit); }};
};

TEST_F(Assembly, IsCompleteOnceItsNodesWereSeenInAnyOrder) {
  assembly.unitSeen("/a", true);
  assembly.nodeSeen("/a", true, Node::kBlock);
  assembly.nodeSeen("/b", true, Node::kGeneric);
  assembly.unitSeen("/b", true);
  assembly.unitSeen("/enclosure", false);
  EXPECT_THAT(complete, IsEmpty());
  EXPECT_TRUE(assembly.isWaiting("/a"));

  assembly.nodeSeen("/a", true, Node::kGeneric);
  assembly.nodeSeen("/b", true, Node::kBlock);
  assembly.nodeSeen("/enclosure", false, Node::kGeneric);
  EXPECT_THAT(complete, ElementsAre("/a", "/b", "/enclosure"));
  EXPECT_FALSE(assembly.isWaiting("/a"));
  EXPECT_EQ(loop.validTimerCount(), 0U);
}

// What is announced before udev has dealt with its nodes cannot be opened.
TEST_F(Assembly, WaitsLongerForNodesThatTheKernelHasMade) {
  made = {Node::kGeneric, Node::kBlock};
  assembly.unitSeen("/slow", true);
  assembly.nodeSeen("/slow", true, Node::kGeneric);
  loop.advance(std::chrono::milliseconds(9000));
  EXPECT_THAT(complete, IsEmpty());
  assembly.nodeSeen("/slow", true, Node::kBlock);
  EXPECT_THAT(complete, ElementsAre("/slow"));
  assembly.unitSeen("/stuck", true);
  loop.advance(std::chrono::milliseconds(9999));
  EXPECT_TRUE(assembly.isWaiting("/stuck"));
  loop.advance(std::chrono::milliseconds(1));
  EXPECT_THAT(complete, ElementsAre("/slow", "/stuck"));
  EXPECT_EQ(loop.validTimerCount(), 0U);
}

TEST_F(Assembly, LeavesNoTimerForAUnitThatGoesNorForItself) {
  {
    SCSIUnitAssembly shortLived(
        loop, [](const std::string&, Node) { return false; }, [](const std::string&) { FAIL(); });
    shortLived.unitSeen("/a", true);
  }
  assembly.unitSeen("/a", true);
  assembly.unitGone("/a");
  assembly.unitGone("/never seen");
  EXPECT_EQ(loop.validTimerCount(), 0U);
}

}  // namespace
}  // namespace tarvo
