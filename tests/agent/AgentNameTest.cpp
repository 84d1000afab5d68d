#include "agent/AgentName.h"

#include <gmock/gmock.h>

#include "platform/foundation/GlibRunLoop.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/RecordingSystemLog.h"

namespace tarvo::test {
namespace {

/// One agent's connection to a bus, and its claim.
struct Claimant {
  explicit Claimant(const std::string& address) : bus("session bus", address, loop, {}) {
    bus.start();
    bus.waitUntilSettled();
  }

  RecordingSystemLog log;
  GlibRunLoop loop{{}};
  BusConnection bus;
  int timesTaken = 0;
  AgentName name{bus, log.sink(), [this] { ++timesTaken; }};
};

TEST(AgentName, IsOwnedByTheFirstAndTakenForTheSecond) {
  const RunningBus bus;
  Claimant first(bus.address());
  first.name.claim();
  EXPECT_FALSE(first.name.isTaken());
  {
    Claimant second(bus.address());
    second.name.claim();
    EXPECT_TRUE(second.name.isTaken());
    EXPECT_EQ(second.timesTaken, 1);
    EXPECT_TRUE(second.log.contains("Another agent is running"));
  }
  EXPECT_EQ(first.timesTaken, 0);
  EXPECT_TRUE(first.log.lines().empty());
}

TEST(AgentName, IsFreeAgainOnceItsOwnerHasGone) {
  const RunningBus bus;
  {
    Claimant first(bus.address());
    first.name.claim();
  }
  EXPECT_TRUE(waitUntil([&] {
    Claimant second(bus.address());
    second.name.claim();
    return !second.name.isTaken();
  }));
}

TEST(AgentName, IsNotTakenWhereThereIsNoBus) {
  Claimant alone("unix:path=/nonexistent/bus");
  alone.name.claim();
  EXPECT_FALSE(alone.name.isTaken());
  EXPECT_EQ(alone.timesTaken, 0);
}

}  // namespace
}  // namespace tarvo::test
