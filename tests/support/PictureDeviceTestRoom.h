// The picture devices with everything that they stand on, in memory.
//
//   PictureDeviceTestRoom room;
//   auto& camera = room.ica.addPTPCamera();
//   XTImageCaptureDevice::registerDeviceAddedNotifications();
//   EXPECT_EQ(room.added.size(), 1U);
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "NativeServices/models/SupportedModels.h"
#include "tests/support/FakeImageCapture.h"
#include "tests/support/FakeMountTable.h"
#include "tests/support/FakeRegistry.h"
#include "tests/support/FakeRunningApplications.h"
#include "tests/support/FakeUserDefaults.h"
#include "tests/support/ManualRunLoop.h"
#include "tests/support/RecordingSystemLog.h"

namespace tarvo::test {

struct PictureDeviceTestRoom {
  PictureDeviceTestRoom() {
    record("DeviceAdded", added);
    record("DeviceRemoved", removed);
  }
  ~PictureDeviceTestRoom() { center.removeObserver(this); }

  void record(const std::string& name, std::vector<std::shared_ptr<Object>>& heard) {
    center.addObserver(this, name,
                       [&heard](const Notification& posted) { heard.push_back(posted.object); });
  }

  /// A USB unit with one block device below it, as the device registry shows it.
  ServiceHandle addUSBUnit(const std::string& bsdName, std::uint32_t idProduct,
                           const std::string& serialNumber = "SN0001",
                           std::uint32_t idVendor = 0xF055) {
    const auto usbDevice = registry.add({{"IOClass", "usb_device"},
                                         {"USB Product Name", "Lumo"},
                                         {"USB Vendor Name", "Tarvo Imaging"},
                                         {"USB Serial Number", serialNumber},
                                         {"idVendor", idVendor},
                                         {"idProduct", idProduct},
                                         {"locationID", 0xFA200000U}});
    const auto interface = registry.add({{"IOClass", "usb_interface"}}, usbDevice);
    return registry.add({{"IOClass", "block"}, {"BSD Name", bsdName}}, interface);
  }

  /// Lines that `log` got at a level that a user sees.
  std::vector<std::string> visibleLines() const {
    std::vector<std::string> lines;
    for (const auto& entry : sink.entries()) {
      if (entry.level != LogLevel::kDebug) lines.push_back(entry.text);
    }
    return lines;
  }

  ManualRunLoop loop;
  NotificationCenter center;
  NotificationQueue queue{center, loop};
  FakeImageCapture ica;
  FakeRegistry registry;
  FakeMountTable mounts{"/media/u"};
  FakeRunningApplications applications;
  FakeUserDefaults defaults{{{"LOG_SUBSYS_CAMERA_VERBOSE", true}, {"LOG_SUBSYS_APP_DEBUG", true}}};
  MakerConstants maker;
  RecordingSystemLog trace;  ///< trace and system log lines
  RecordingSystemLog sink;   ///< what goes to the room's log
  LogState logState{defaults, trace};
  SupportedModels models{maker};
  std::unique_ptr<PictureDeviceRoom> room =
      std::make_unique<PictureDeviceRoom>(PictureDeviceServices{
          center, queue, loop, ica, registry, mounts, applications, defaults, maker, sink.sink()});
  std::vector<std::shared_ptr<Object>> added;
  std::vector<std::shared_ptr<Object>> removed;
};

/// A device that is nothing but its identity.
class PlainDevice : public XTPictureDevice {
 public:
  explicit PlainDevice(std::string name, std::string serialNumber = "SN1",
                       std::string manufacturer = "Tarvo Imaging") {
    fields_.deviceName = std::move(name);
    fields_.deviceSerialNumber = std::move(serialNumber);
    fields_.deviceManufacturer = std::move(manufacturer);
  }
  std::string_view className() const override { return "PlainDevice"; }
  PictureDeviceFields& fields() { return fields_; }
};

}  // namespace tarvo::test
