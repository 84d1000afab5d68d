// The examples of docs/wireless.md, as programs of others, against the agent's own side.
#include <gmock/gmock.h>

#include <optional>
#include <string>
#include <vector>

#include "agent/AppBlocker.h"
#include "platform/desktop/DBusNotificationCenter.h"
#include "platform/foundation/GlibRunLoop.h"
#include "tests/support/MainContextWait.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/RecordingSystemLog.h"

namespace tarvo::test {
namespace {

class BusyExample : public testing::TestWithParam<const char*> {
 protected:
  BusyExample() {
    connection_.start();
    connection_.waitUntilSettled();
  }
  GObjectPtr<GSubprocess> start(const char* first, const char* second = nullptr) {
    const GObjectPtr<GSubprocessLauncher> launcher(
        g_subprocess_launcher_new(G_SUBPROCESS_FLAGS_STDOUT_PIPE));
    g_subprocess_launcher_setenv(launcher.get(), "DBUS_SESSION_BUS_ADDRESS", bus_.address().c_str(),
                                 TRUE);
    return GObjectPtr<GSubprocess>(
        g_subprocess_launcher_spawn(launcher.get(), nullptr, GetParam(), first, second, nullptr));
  }

  RunningBus bus_;
  RecordingSystemLog log_;
  GlibRunLoop loop_{log_.sink()};
  BusConnection connection_{"session bus", bus_.address(), loop_, log_.sink()};
  DBusNotificationCenter center_{connection_, log_.sink()};
};

TEST_P(BusyExample, IsBusyForAsLongAsItsCommandRunsAlsoWhereItFails) {
  std::vector<bool> told;
  const auto blocker = AppBlocker::initForBlockingOnWRLA(center_);
  blocker->setChangeListener([&] { told.push_back(blocker->isBusy()); });
  const auto failing = start("false");
  ASSERT_TRUE(waitUntil([&] { return told.size() == 2; }));
  EXPECT_THAT(told, testing::ElementsAre(true, false));
  g_subprocess_wait(failing.get(), nullptr, nullptr);
  EXPECT_NE(g_subprocess_get_exit_status(failing.get()), 0);
}

TEST_P(BusyExample, HearsTheRelaysSide) {
  const auto watching = start("--watch");
  GDataInputStream* lines = g_data_input_stream_new(g_subprocess_get_stdout_pipe(watching.get()));
  const GObjectPtr<GDataInputStream> owner(lines);
  const auto next = [&] {
    return takeText(g_data_input_stream_read_line(lines, nullptr, nullptr, nullptr));
  };
  EXPECT_EQ(next(), "listening");
  const auto blocker = AppBlocker::initForBlockingOnWRLA(center_);
  blocker->SendBusyNotification();
  blocker->SendDoneNotification();
  EXPECT_EQ(next(), "the Relay works on a device");
  EXPECT_EQ(next(), "the Relay has finished");
  g_subprocess_force_exit(watching.get());
  g_subprocess_wait(watching.get(), nullptr, nullptr);
}

INSTANTIATE_TEST_SUITE_P(InBothLanguages, BusyExample, testing::Values(BUSY_CPP, BUSY_PYTHON));

}  // namespace
}  // namespace tarvo::test
