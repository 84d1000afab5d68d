// A Listener over fakes: the test plugs devices into Image Capture, moves the clock, ends child
// processes, and reads the log lines that came out.
//
//   TEST_F(ListenerTest, ...) {
//     start();                               // system version 0; start(0x1062) for recovery
//     arrive(camera(0x0302, 0xFA200000));    // "DeviceAdded" for a supported camera
//     EXPECT_EQ(relay().arguments, ...);
//   }
#pragma once

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "NativeServices/models/SupportedModels.h"
#include "agent/ListenerMain.h"
#include "identify/DeviceInfoSupport.h"
#include "msc/MSCRoom.h"
#include "tests/support/FakeDiskArbitration.h"
#include "tests/support/FakeImageCapture.h"
#include "tests/support/FakeMountTable.h"
#include "tests/support/FakeRegistry.h"
#include "tests/support/FakeRunningApplications.h"
#include "tests/support/FakeSCSIServices.h"
#include "tests/support/FakeUserDefaults.h"
#include "tests/support/LocalDistributedCenter.h"
#include "tests/support/ManualRunLoop.h"
#include "tests/support/RecordingSystemLog.h"
#include "tests/support/RecordingTaskFactory.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {

using Lines = std::vector<std::string>;
using namespace std::chrono_literals;

inline const std::string kShortSeparator(90, '-');
inline const std::string kStartSeparator = std::string(11, '-') + std::string(95, '=');
inline const std::string kRelayLine =
    "createTaskForPath '/opt/tarvo/Tarvo Relay.app/Contents/Library/Tarvo Relay'";
inline const std::string kWirelessLine =
    "createTaskForPath '/opt/tarvo/TARVO Wireless Utility.app/Contents/MacOS/TARVO Wireless "
    "Utility'";
inline const std::string kViewerLine =
    "createTaskForPath '/opt/tarvo/ViewerApp.app/Contents/MacOS/ViewerApp'";

class ListenerTest : public ::testing::Test {
 public:
  ListenerTest() {
    constants.agentBundlePath = "/opt/tarvo/Tarvo Relay.app/Contents/Library/Tarvo Agent.app";
    models.getValidDscPids();
  }

  void start(std::uint32_t systemVersion = 0) {
    listener = Listener::init({center, workspace, distributed, loop, tasks, applications,
                               imageCapture, constants, systemVersion, warnings.sink(),
                               [this] { ++stateChanges; }, [this] { return now; }});
    startLines = takeLines();
  }

  /// A PTP camera of the maker, loaded but not in the registry.
  std::shared_ptr<XTPictureDevice> camera(std::uint32_t product = 0x0302,
                                          std::uint32_t location = 0x01420000) {
    auto& plugged = imageCapture.addPTPCamera({.idProduct = product, .locationID = location});
    plugged.listed = false;
    Status failure = 0;
    return XTImageCapturePTPDevice::withICAObject(plugged.object, &failure);
  }
  /// Plugs in a USB device with a volume, and tells Image Capture.
  void plugVolume(const std::string& name, std::uint32_t product, std::uint32_t location) {
    const ServiceHandle usb = registry.plug({{"IOClass", "usb_device"},
                                             {"USB Product Name", name},
                                             {"USB Serial Number", "SN-" + name},
                                             {"idVendor", 0xF055},
                                             {"idProduct", product},
                                             {"locationID", location}});
    registry.plug({{"IOClass", "block"}, {"BSD Name", "disk-" + name}}, usb);
    imageCapture.announce(imageCapture.addVolume(name, "disk-" + name).object);
    loop.advance(500ms);
  }
  void arrive(const std::shared_ptr<Object>& device) { center.post({"DeviceAdded", device}); }
  /// Plugs in a unit that the list finds, with the name of a disk, below a USB device of the maker.
  void plug(const std::shared_ptr<FakeSCSIUnit>& unit, std::uint32_t location) {
    const ServiceHandle usb =
        registry.add({{"IOClass", "usb_device"}, {"idVendor", 0xF055}, {"locationID", location}});
    const ServiceHandle service = registry.add(unitProperties("sr0"), usb);
    scsi.units[service] = unit;
    registry.announce(service);
  }
  void arriveMSC(const std::shared_ptr<Object>& unit) {
    center.post({"XTMSCDeviceAddedEvent", unit});
  }
  void setSessionActive(bool active) {
    workspace.post({active ? "NSWorkspaceSessionDidBecomeActiveNotification"
                           : "NSWorkspaceSessionDidResignActiveNotification",
                    nullptr});
  }

  std::vector<std::shared_ptr<RecordingTask>> relays() {
    return tasks.tasksAt("/Library/Tarvo Relay");
  }

  /// The lines since the last call; those of the Listener without their tag.
  Lines takeLines() {
    constexpr std::string_view tag = "RLA_Listener - ";
    Lines lines = log.lines();
    log.clear();
    for (std::string& line : lines)
      if (line.starts_with(tag)) line.erase(0, tag.size());
    return lines;
  }

  /// What the user is told of a device that was ignored, without its name; empty where it is
  /// nothing. One line since the last call.
  std::string takeWhyIgnored() {
    std::string why;
    for (const auto& [level, text] : warnings.entries())
      if (level == LogLevel::kInfo) why += text.substr(text.find(" is ignored: ") + 13);
    warnings.clear();
    return why;
  }

  FakeUserDefaults defaults{{{"LOG_SUBSYS_LISTENER", true}}};
  RecordingSystemLog log;
  RecordingSystemLog warnings;  ///< what is told with tracing off, too
  LogState logState{defaults, log};
  NotificationCenter center;
  NotificationCenter workspace;
  LocalDistributedCenter distributed;
  ManualRunLoop loop;
  NotificationQueue queue{center, loop};
  RecordingTaskFactory tasks{center};
  FakeRunningApplications applications;
  FakeImageCapture imageCapture;
  FakeRegistry registry;
  TemporaryFolder folder;
  FakeMountTable mounts{folder.path("media")};
  MakerConstants constants;
  SupportedModels models{withoutModels(folder)};
  PictureDeviceRoom pictureDevices{
      {center, queue, loop, imageCapture, registry, mounts, applications, defaults, constants, {}}};
  IdentifyRoom identify{{imageCapture, registry, mounts}};
  FakeSCSIServices scsi;
  FakeDiskArbitration disks;
  MSCRoom massStorage{
      {center, registry, scsi, disks, mounts, defaults, constants, warnings.sink()}};
  std::unique_ptr<Listener> listener;
  Lines startLines;
  int stateChanges = 0;
  AppBlocker::Clock::time_point now{1795683600s};

 private:
  /// A bundle whose file lists no model: the fixed product ids (0x302 to 0x311) are supported.
  static MakerConstants withoutModels(const TemporaryFolder& folder) {
    folder.write("bundle/Resources/ggcam.inf", "[Models.NTx86]\r\n");
    MakerConstants constants;
    constants.agentBundlePath = folder.path("bundle");
    return constants;
  }
};

}  // namespace tarvo::test
