// An Image Capture service over fakes: cameras are plugged into the registry, volumes are mounted
// in a folder of the test's own, and behind every camera is the simulated one.
#pragma once

#include <gmock/gmock.h>

#include "platform/imagecapture/ImageCaptureService.h"
#include "tests/support/FakeMountTable.h"
#include "tests/support/FakeRegistry.h"
#include "tests/support/SimulatedUSBDevice.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo {

class ServiceFixture : public testing::Test {
 protected:
  ServiceFixture() { describe(); }

  /// From the next connection on there is this camera: a description over that of an empty one.
  void describe(const std::string& json = "{}") {
    auto description = nlohmann::json::parse(R"({"usb": {"vendor": "0xF055", "product": "0x0A01"},
                                                 "deviceInfo": {}, "stores": [{"content": []}]})");
    description.merge_patch(nlohmann::json::parse(json));
    simulated = connector.camera = test::simulatedCamera(description.dump());
  }
  auto asked(std::uint16_t operation) {
    return std::ranges::count(simulated->operations(), operation);
  }
  /// See "Faults" in docs/simulator.md.
  void fail(const char* fault, const char* value) {
    EXPECT_EQ(simulated->setFault(fault, value), "");
  }

  /// A USB device with this name.
  ServiceHandle plugDevice(const std::string& name) {
    return registry.plug({{"IOClass", "usb_device"},
                          {"USB Product Name", name},
                          {"USB Device Node", "/dev/bus/usb/001/004"},
                          {"idVendor", 0xF055},
                          {"idProduct", 0x0A01},
                          {"locationID", 0xFA200000U}});
  }
  /// An interface of it; the default classes are those of a PTP camera.
  void plugInterface(ServiceHandle device, std::array<unsigned, 3> classes = {6, 1, 1}) {
    registry.plug({{"IOClass", "usb_interface"},
                   {"bInterfaceNumber", 2},
                   {"bInterfaceClass", classes[0]},
                   {"bInterfaceSubClass", classes[1]},
                   {"bInterfaceProtocol", classes[2]}},
                  device);
  }
  ServiceHandle plugCamera(const std::string& name = "Tarvo N10") {
    const ServiceHandle device = plugDevice(name);
    plugInterface(device);
    return device;
  }
  /// A USB disk "/dev/BSDNAME".
  void plugDisk(const std::string& bsdName) {
    registry.plug({{"IOClass", "block"}, {"BSD Name", bsdName}}, plugDevice("Tarvo Lumo 100"));
  }

  /// Notes "NAME: IFIL" at each event of this type.
  void listen(ICAObject object, FourCharCode type, const std::string& name) {
    const auto note = [this, name](const ICAEvent& event) {
      heard.push_back(name + ": " + event.dictionary.value("ifil", "?"));
      objects.push_back(event.object);
    };
    EXPECT_EQ(service().registerForEventNotification(object, type, note), status::kOK);
  }

  ImageCaptureService& service() {
    if (!service_)
      service_ = std::make_unique<ImageCaptureService>(registry, mounts, connector, LogSink());
    return *service_;
  }
  std::vector<ICAObject> devices() {
    ICAObject list = 0;
    service().getDeviceList(list);
    std::vector<ICAObject> found;
    ICAChildInfo child;
    while (service().getNthChild(list, static_cast<std::uint32_t>(found.size()), child) == 0)
      found.push_back(child.object);
    return found;
  }
  PropertyDictionary dictionaryOf(ICAObject object) {
    PropertyDictionary dictionary;
    EXPECT_EQ(service().copyObjectPropertyDictionary(object, dictionary), status::kOK);
    return dictionary;
  }

  test::FakeRegistry registry;
  const test::TemporaryFolder folder;
  test::FakeMountTable mounts{folder.path()};
  std::shared_ptr<simulator::PTPCamera> simulated;
  test::SimulatedConnector connector{nullptr};
  std::vector<std::string> heard;
  std::vector<ICAObject> objects;

 private:
  std::unique_ptr<ImageCaptureService> service_;
};

}  // namespace tarvo
