#include "platform/foundation/BusConnection.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Utilities/Exception.h"
#include "Utilities/FileDescriptor.h"
#include "platform/foundation/GlibRunLoop.h"
#include "tests/support/MainContextWait.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/RecordingSystemLog.h"

namespace tarvo::test {
namespace {

class BusConnectionTest : public testing::Test {
 protected:
  std::unique_ptr<BusConnection> makeConnection(
      const std::string& address,
      std::chrono::milliseconds answerTimeout = std::chrono::seconds(10)) {
    auto connection =
        std::make_unique<BusConnection>("session bus", address, loop_, log_.sink(), answerTimeout);
    connection->addObserver(
        this, [this](GDBusConnection*) { events_.push_back("connected"); },
        [this] { events_.push_back("lost"); });
    return connection;
  }

  using Events = std::vector<std::string>;
  RecordingSystemLog log_;
  GlibRunLoop loop_{log_.sink()};
  PrivateBus bus_;
  Events events_;
};

TEST_F(BusConnectionTest, ABusThatIsThereIsJoinedWithoutAWord) {
  bus_.start();
  const auto connection = makeConnection(bus_.address());
  connection->start();
  EXPECT_EQ(connection->connection(), nullptr) << "start does not wait";
  EXPECT_TRUE(connection->waitUntilSettled());
  ASSERT_NE(connection->connection(), nullptr);
  EXPECT_FALSE(g_dbus_connection_get_exit_on_close(connection->connection()));
  EXPECT_EQ(events_, (Events{"connected"}));
  connection->addObserver(&bus_, [this](GDBusConnection*) { events_.push_back("late observer"); },
                          {});
  EXPECT_EQ(events_, (Events{"connected", "late observer"}));
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(BusConnectionTest, AnAbsentBusIsLoggedOnceAndJoinedWhenItAppears) {
  const auto connection = makeConnection(bus_.address());
  connection->start();
  EXPECT_FALSE(connection->waitUntilSettled());
  EXPECT_EQ(log_.count("session bus is absent: "), 1U);
  bus_.start();  // makes the socket's folder, too
  EXPECT_TRUE(waitUntil([&] { return connection->connection() != nullptr; }));
  EXPECT_EQ(events_, (Events{"connected"}));
  EXPECT_EQ(log_.entries().size(), 2U);
  EXPECT_TRUE(log_.contains("session bus is there"));
}

TEST_F(BusConnectionTest, ALostBusIsJoinedAgainEachTimeThatItComesBack) {
  bus_.start();
  const auto connection = makeConnection(bus_.address());
  connection->start();
  ASSERT_TRUE(connection->waitUntilSettled());
  for (int round = 0; round < 3; ++round) {
    events_.clear();
    log_.clear();
    bus_.stop();
    EXPECT_TRUE(waitUntil([&] { return connection->connection() == nullptr; }));
    bus_.start();
    EXPECT_TRUE(waitUntil([&] { return connection->connection() != nullptr; }));
    EXPECT_EQ(events_, (Events{"lost", "connected"}));
    EXPECT_EQ(log_.entries().size(), 2U);
    EXPECT_TRUE(log_.contains("session bus is lost: "));
    EXPECT_TRUE(log_.contains("session bus is there"));
  }
}

TEST_F(BusConnectionTest, ARemovedSocketFolderIsFollowedToo) {
  bus_.start();
  const auto connection = makeConnection(bus_.address());
  connection->start();
  ASSERT_TRUE(connection->waitUntilSettled());
  bus_.stop();
  EXPECT_TRUE(waitUntil([&] { return connection->connection() == nullptr; }));
  std::filesystem::remove(bus_.runFolder());
  drainMainContext();
  bus_.start();
  EXPECT_TRUE(waitUntil([&] { return connection->connection() != nullptr; }));
}

TEST_F(BusConnectionTest, ABusThatAcceptsAndNeverAnswersDoesNotHoldTheStart) {
  std::filesystem::create_directories(bus_.runFolder());
  const FileDescriptor silent(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un name{};
  name.sun_family = AF_UNIX;
  bus_.socketPath().copy(name.sun_path, sizeof name.sun_path - 1);
  ASSERT_EQ(::bind(silent.get(), reinterpret_cast<sockaddr*>(&name), sizeof name), 0);
  ASSERT_EQ(::listen(silent.get(), 8), 0);

  const auto connection = makeConnection(bus_.address(), std::chrono::milliseconds(50));
  connection->start();
  EXPECT_FALSE(connection->waitUntilSettled());
  EXPECT_EQ(log_.lines(), (Events{"session bus is absent: it does not answer"}));
}

TEST_F(BusConnectionTest, AnUnknownAddressIsLoggedAndNothingIsTried) {
  const auto connection = makeConnection("");
  connection->start();
  EXPECT_FALSE(connection->waitUntilSettled());
  EXPECT_EQ(log_.lines(), (Events{"session bus is absent: its address is not known"}));
}

TEST_F(BusConnectionTest, AConnectionMayGoWhileItIsBeingMade) {
  bus_.start();
  auto connection = makeConnection(bus_.address());
  connection->start();
  connection.reset();
  bool settled = false;
  loop_.scheduleTimer(std::chrono::milliseconds(100), false, [&] { settled = true; });
  EXPECT_TRUE(waitUntil([&] { return settled; }));
  EXPECT_TRUE(events_.empty());
}

TEST_F(BusConnectionTest, AnObserverThatRaisesOrLeavesDoesNotDisturbTheOthers) {
  bus_.start();
  const auto connection = makeConnection(bus_.address());
  int raising = 0;
  int leaving = 0;
  connection->addObserver(&raising,
                          [&](GDBusConnection*) {
                            connection->removeObserver(&leaving);
                            raiseAssertion("observer");
                          },
                          {});
  connection->addObserver(&leaving, [&](GDBusConnection*) { events_.push_back("left"); }, {});
  connection->addObserver(&events_, [&](GDBusConnection*) { events_.push_back("last"); }, {});
  connection->start();
  EXPECT_TRUE(connection->waitUntilSettled());
  EXPECT_EQ(events_, (Events{"connected", "last"}));
  EXPECT_EQ(log_.lines(), (Events{"handling uncaught exception in connected: observer"}));
}

TEST(SocketPathOfBusAddressTest, IsTheFirstUnixSocketUnescaped) {
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"unix:path=/run/user/1000/bus", "/run/user/1000/bus"},
      {"unix:path=/tmp/a%20b,guid=0123", "/tmp/a b"},
      {"unix:guid=0123,path=/tmp/bus", "/tmp/bus"},
      {"tcp:host=x,port=1;unix:path=/tmp/second", "/tmp/second"},
      {"unix:abstract=/tmp/dbus-x", ""},
      {"tcp:host=x,path=/no", ""},
      {"", ""},
      {";;,,", ""},
  };
  for (const auto& [address, path] : rows)
    EXPECT_EQ(socketPathOfBusAddress(address), path) << address;
}

TEST_F(BusConnectionTest, TheSessionAndSystemBusAreFoundByTheEnvironment) {
  bus_.start();
  {
    const ScopedEnvironment address("DBUS_SESSION_BUS_ADDRESS", bus_.address());
    SessionBus session(loop_, log_.sink());
    session.start();
    EXPECT_TRUE(session.waitUntilSettled());
  }
  {
    const ScopedEnvironment address("DBUS_SESSION_BUS_ADDRESS", "");
    const ScopedEnvironment folder("XDG_RUNTIME_DIR", bus_.runFolder());
    SessionBus session(loop_, log_.sink());
    session.start();
    EXPECT_TRUE(session.waitUntilSettled());
  }
  const ScopedEnvironment address("DBUS_SYSTEM_BUS_ADDRESS", bus_.address());
  SystemBus system(loop_, log_.sink());
  system.start();
  EXPECT_TRUE(system.waitUntilSettled());
}

}  // namespace
}  // namespace tarvo::test
