#include "platform/desktop/BusConnection.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

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
  using Events = std::vector<std::string>;

  /// A connection on its way. It has settled without a bus where `absence` says why.
  std::unique_ptr<BusConnection> start(
      const std::string& address, const std::string& absence = "",
      std::chrono::milliseconds answerTimeout = std::chrono::seconds(10)) {
    auto bus =
        std::make_unique<BusConnection>("session bus", address, loop_, log_.sink(), answerTimeout);
    bus->addObserver(
        this, [this](GDBusConnection*) { events_.push_back("connected"); },
        [this] { events_.push_back("lost"); });
    bus->start();
    if (absence.empty()) return bus;
    EXPECT_FALSE(bus->waitUntilSettled());
    EXPECT_EQ(log_.count("session bus is absent: " + absence), 1U) << absence;
    return bus;
  }
  static bool waitFor(const BusConnection& bus, bool connected) {
    return waitUntil([&] { return (bus.connection() != nullptr) == connected; });
  }

  RecordingSystemLog log_;
  GlibRunLoop loop_{log_.sink()};
  PrivateBus bus_;
  Events events_;
};

TEST_F(BusConnectionTest, ABusThatIsThereIsJoinedWithoutAWord) {
  bus_.start();
  const auto connection = start(bus_.address());
  EXPECT_EQ(connection->connection(), nullptr) << "start does not wait";
  EXPECT_TRUE(connection->waitUntilSettled());
  EXPECT_FALSE(g_dbus_connection_get_exit_on_close(connection->connection()));
  connection->addObserver(&bus_, [this](GDBusConnection*) { events_.push_back("late observer"); },
                          {});
  EXPECT_EQ(events_, (Events{"connected", "late observer"}));
  EXPECT_EQ(log_.lines(), Events{});
}

TEST_F(BusConnectionTest, ABusIsJoinedWhenItAppearsAndEachTimeThatItComesBack) {
  const auto connection = start(bus_.address(), "Could not connect");
  bus_.start();  // makes the socket's folder, too
  EXPECT_TRUE(waitFor(*connection, true));
  EXPECT_TRUE(log_.contains("session bus is there"));
  for (const bool folderGoes : {false, true, false}) {
    events_.clear();
    log_.clear();
    bus_.stop();
    EXPECT_TRUE(waitFor(*connection, false));
    if (folderGoes) std::filesystem::remove(bus_.runFolder());
    drainMainContext();
    bus_.start();
    EXPECT_TRUE(waitFor(*connection, true));
    EXPECT_EQ(events_, (Events{"lost", "connected"}));
    EXPECT_EQ(log_.entries().size(), 2U);
    EXPECT_TRUE(log_.contains("session bus is lost: "));
    EXPECT_TRUE(log_.contains("session bus is there"));
  }
}

TEST_F(BusConnectionTest, ABusThatIsNotThereOrNeverAnswersDoesNotHoldTheStart) {
  start("", "its address is not known");
  start("unix:path=/dev/null/bus", "Could not connect");
  std::filesystem::create_directories(bus_.runFolder());
  const FileDescriptor silent(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un name{};
  name.sun_family = AF_UNIX;
  bus_.socketPath().copy(name.sun_path, sizeof name.sun_path - 1);
  ASSERT_EQ(::bind(silent.get(), reinterpret_cast<sockaddr*>(&name), sizeof name), 0);
  ASSERT_EQ(::listen(silent.get(), 8), 0);
  start(bus_.address(), "it does not answer", std::chrono::milliseconds(50));
}

TEST_F(BusConnectionTest, AConnectionMayGoWhileItIsBeingMade) {
  bus_.start();
  start(bus_.address()).reset();
  const auto later = start(bus_.address());
  EXPECT_TRUE(later->waitUntilSettled());
  EXPECT_EQ(events_, (Events{"connected"}));
}

TEST_F(BusConnectionTest, AnObserverThatRaisesOrLeavesDoesNotDisturbTheOthers) {
  bus_.start();
  const auto connection = start(bus_.address());
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
  EXPECT_TRUE(connection->waitUntilSettled());
  EXPECT_EQ(events_, (Events{"connected", "last"}));
  EXPECT_EQ(log_.lines(), (Events{"handling uncaught exception in connected: observer"}));
}

TEST(SocketPathOfBusAddressTest, IsTheFirstUnixSocketUnescaped) {
  const std::pair<const char*, const char*> rows[] = {
      {"unix:path=/run/user/1000/bus", "/run/user/1000/bus"},
      {"unix:guid=0123,path=/tmp/a%20b", "/tmp/a b"},
      {"tcp:host=x,path=/no;unix:path=/tmp/second", "/tmp/second"},
      {"unix:abstract=/tmp/dbus-x", ""},
      {"", ""}};
  for (const auto& [address, path] : rows)
    EXPECT_EQ(socketPathOfBusAddress(address), path) << address;
}

TEST_F(BusConnectionTest, TheSessionBusIsFoundByTheRuntimeFolderWhereNoAddressIsGiven) {
  bus_.start();
  const ScopedEnvironment address("DBUS_SESSION_BUS_ADDRESS", "");
  const ScopedEnvironment folder("XDG_RUNTIME_DIR", bus_.runFolder());
  SessionBus session(loop_, log_.sink());
  session.start();
  EXPECT_TRUE(session.waitUntilSettled());
}

}  // namespace
}  // namespace tarvo::test
