// A loaded PTP device on a simulated camera, through the product's own Image Capture service and
// transport.
//
//   SimulatedPTPDevice sim(R"({"stores": [{"id": "0x00010001", "content": [
//                                {"folder": "DCIM", "content": [
//                                  {"file": "A.JPG", "size": 3000000}]}]}]})");
//   EXPECT_EQ(sim->numberOfObjectsOnStore(ptp::kAllStores, 0x3801), 1);
//   EXPECT_TRUE(sim.asked(0x1006));
//
// The description is laid over that of a camera of the maker. Whatever the host does against the
// protocol fails the test.
#pragma once

#include <algorithm>
#include <memory>
#include <string>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "NativeServices/models/SupportedModels.h"
#include "platform/imagecapture/ImageCaptureService.h"
#include "tests/support/FakeMountTable.h"
#include "tests/support/FakeRegistry.h"
#include "tests/support/FakeRunningApplications.h"
#include "tests/support/FakeUserDefaults.h"
#include "tests/support/ManualRunLoop.h"
#include "tests/support/RecordingSystemLog.h"
#include "tests/support/SimulatedUSBDevice.h"

namespace tarvo::test {

class SimulatedPTPDevice {
 public:
  explicit SimulatedPTPDevice(const std::string& json = "{}") : camera(makeCamera(json)) {
    const auto unit = registry.plug({{"IOClass", "usb_device"},
                                     {"USB Product Name", "Tarvo Lumo X2"},
                                     {"USB Device Node", "/dev/bus/usb/001/004"},
                                     {"idVendor", 0xF055},
                                     {"idProduct", 0x0302},
                                     {"locationID", 0x01420000U}});
    registry.plug({{"IOClass", "usb_interface"},
                   {"bInterfaceNumber", 0},
                   {"bInterfaceClass", 6},
                   {"bInterfaceSubClass", 1},
                   {"bInterfaceProtocol", 1}},
                  unit);
    ICAObject list = 0;
    ICAChildInfo child;
    service.getDeviceList(list);
    service.getNthChild(list, 0, child);
    std::string why;
    scope = service.openScope(child.object, nullptr, &why);
    Status failure = status::kOK;
    device = XTImageCapturePTPDevice::withICAObject(child.object, &failure);
    if (!device) throw std::runtime_error("no device: " + why + " " + statusText(failure));
  }
  ~SimulatedPTPDevice() {
    device.reset();
    scope.reset();
  }
  SimulatedPTPDevice(const SimulatedPTPDevice&) = delete;
  SimulatedPTPDevice& operator=(const SimulatedPTPDevice&) = delete;

  XTImageCapturePTPDevice* operator->() const { return device.get(); }
  XTImageCapturePTPDevice& operator*() const { return *device; }

  /// How often the camera was asked for an operation since it was plugged in.
  std::size_t asked(std::uint16_t operation) const {
    const auto operations = camera->operations();
    return static_cast<std::size_t>(std::ranges::count(operations, operation));
  }

  std::shared_ptr<simulator::PTPCamera> camera;
  ManualRunLoop loop;
  NotificationCenter center;
  NotificationQueue queue{center, loop};
  FakeRegistry registry;
  FakeMountTable mounts{"/media/u"};
  FakeRunningApplications applications;
  FakeUserDefaults defaults{{{"LOG_SUBSYS_CAMERA_VERBOSE", true}}};
  MakerConstants maker;
  RecordingSystemLog trace;  ///< trace lines
  RecordingSystemLog sink;   ///< what goes to the room's log
  LogState logState{defaults, trace};
  SupportedModels models{maker};
  SimulatedConnector connector{camera};
  ImageCaptureService service{registry, mounts, connector, LogSink()};
  PictureDeviceRoom room{
      {center, queue, loop, service, registry, mounts, applications, defaults, maker, sink.sink()}};
  std::unique_ptr<ICAScope> scope;  ///< one session for the whole test
  std::shared_ptr<XTImageCapturePTPDevice> device;

 private:
  static std::shared_ptr<simulator::PTPCamera> makeCamera(const std::string& json) {
    auto description = nlohmann::json::parse(R"({
      "kind": "ptp",
      "usb": {"vendor": "0xF055", "product": "0x0302", "manufacturer": "Tarvo Imaging",
              "name": "Tarvo Lumo X2", "serial": "TLX2-000417"},
      "deviceInfo": {"vendorExtensionID": "0x00005452", "version": "1.02",
                     "imageFormats": ["0x3801", "0x300D", "0x3001", "0xB803"]}
    })");
    description.merge_patch(nlohmann::json::parse(json));
    return simulatedCamera(description.dump());
  }
};

}  // namespace tarvo::test
