#include "platform/imagecapture/ptp/LibusbConnector.h"

#include <gmock/gmock.h>

#include <vector>

#include "platform/imagecapture/ptp/LibusbDeviceOpener.h"
#include "tests/support/ScriptedUSBDevice.h"

namespace tarvo::ptp {
namespace {

class ScriptedOpener : public USBDeviceOpener {
 public:
  explicit ScriptedOpener(test::USBScript* script) : script_(script) {}
  std::unique_ptr<USBDevice> open(const USBInterfaceAddress&, Status* failure,
                                  std::string* why) override {
    if (script_ != nullptr) return std::make_unique<test::ScriptedUSBDevice>(*script_);
    *failure = status::kICADeviceBusy;
    *why = "in use by process x (pid 1)";
    return nullptr;
  }

 private:
  test::USBScript* script_;
};

TEST(LibusbConnector, SaysInOneLineEachThatItConnectsAndDisconnects) {
  std::vector<std::string> lines;
  const LogSink log = [&](LogLevel level, std::string_view line) {
    EXPECT_EQ(level, LogLevel::kDebug);
    lines.emplace_back(line);
  };
  test::USBScript script;
  LibusbConnector connector(std::make_unique<ScriptedOpener>(&script), {}, log);
  Status failure = -1;
  std::string why;
  auto connection = connector.connect({"/dev/bus/usb/001/004", 2}, &failure, &why);
  ASSERT_NE(connection, nullptr);
  EXPECT_EQ(failure, 0);
  connection.reset();
  EXPECT_THAT(lines,
              testing::ElementsAre("PTP: connected to /dev/bus/usb/001/004 interface 2",
                                   "PTP: disconnected from /dev/bus/usb/001/004 interface 2 after "
                                   "0 transactions, 0 bytes sent, 0 received"));

  LibusbConnector busy(std::make_unique<ScriptedOpener>(nullptr), {}, log);
  EXPECT_EQ(busy.connect({"/dev/bus/usb/001/004", 2}, &failure, &why), nullptr);
  EXPECT_EQ(failure, status::kICADeviceBusy);
  EXPECT_EQ(why, "in use by process x (pid 1)");
  EXPECT_EQ(lines.back(), "PTP: no connection: in use by process x (pid 1)");
}

TEST(LibusbDeviceOpener, SaysThatANodeIsGoneOrIsNone) {
  LibusbDeviceOpener opener;
  Status failure = 0;
  std::string why;
  EXPECT_EQ(opener.open({"/dev/bus/usb/999/999", 0}, &failure, &why), nullptr);
  EXPECT_EQ(failure, status::kICADeviceGone);
  EXPECT_EQ(why, "/dev/bus/usb/999/999 is gone");
  EXPECT_EQ(opener.open({"/dev/null", 0}, &failure, &why), nullptr);
  EXPECT_EQ(failure, status::kIOError);
  EXPECT_THAT(why, testing::HasSubstr("/dev/null"));
}

}  // namespace
}  // namespace tarvo::ptp
