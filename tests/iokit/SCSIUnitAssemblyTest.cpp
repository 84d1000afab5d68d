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

TEST_F(Assembly, LeavesNoTimerForAUnitThatGoesNorForItself) {
  {
    SCSIUnitAssembly shortLived(loop, [](const std::string&) { FAIL(); });
    shortLived.unitSeen("/a", true);
  }
  assembly.unitSeen("/a", true);
  assembly.unitGone("/a");
  assembly.unitGone("/never seen");
  EXPECT_EQ(loop.validTimerCount(), 0U);
}

}  // namespace
}  // namespace tarvo
