// An Image Capture service over fakes: cameras are plugged into the registry, volumes are mounted
// in a folder of the test's own, and the cameras answer from the test.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "platform/imagecapture/ImageCaptureService.h"
#include "tests/support/FakeMountTable.h"
#include "tests/support/FakePTPConnector.h"
#include "tests/support/FakeRegistry.h"

namespace tarvo {

class ServiceFixture : public testing::Test {
 public:
  ServiceFixture() { std::filesystem::create_directories(folder); }
  ~ServiceFixture() override { std::filesystem::remove_all(folder); }

 protected:
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
  ServiceHandle plugInterface(ServiceHandle device, unsigned interfaceClass = 6,
                              unsigned subclass = 1, unsigned protocol = 1) {
    return registry.plug({{"IOClass", "usb_interface"},
                          {"bInterfaceNumber", 2},
                          {"bInterfaceClass", interfaceClass},
                          {"bInterfaceSubClass", subclass},
                          {"bInterfaceProtocol", protocol}},
                         device);
  }
  ServiceHandle plugCamera(const std::string& name = "Tarvo N10") {
    const ServiceHandle device = plugDevice(name);
    plugInterface(device);
    return device;
  }
  /// A USB disk "/dev/BSDNAME".
  ServiceHandle plugDisk(const std::string& bsdName) {
    const ServiceHandle device = plugDevice("Tarvo Lumo 100");
    registry.plug({{"IOClass", "block"}, {"BSD Name", bsdName}}, device);
    return device;
  }
  std::string mountPoint(const std::string& name) const { return folder + "/" + name; }

  ImageCaptureService& service() {
    if (!service_)
      service_ = std::make_unique<ImageCaptureService>(registry, mounts, connector, LogSink());
    return *service_;
  }
  std::vector<ICAObject> devices() {
    ICAObject list = 0;
    std::uint32_t count = 0;
    Status headerErr = status::kOK;
    service().getDeviceList(list);
    service().getChildCount(list, count, headerErr);
    std::vector<ICAObject> found;
    for (std::uint32_t i = 0; i < count; ++i) {
      ICAChildInfo child;
      EXPECT_EQ(service().getNthChild(list, i, child), status::kOK);
      found.push_back(child.object);
    }
    return found;
  }
  PropertyDictionary dictionaryOf(ICAObject object) {
    PropertyDictionary dictionary;
    EXPECT_EQ(service().copyObjectPropertyDictionary(object, dictionary), status::kOK);
    return dictionary;
  }
  std::string moduleOf(ICAObject object) {
    return lastPathComponent(textForKey(dictionaryOf(object), "device module").value_or(""));
  }

  test::FakeRegistry registry;
  std::string folder = testing::TempDir() + "imagecapture." + std::to_string(::getpid());
  test::FakeMountTable mounts{folder};
  test::FakePTPConnector connector;

 private:
  std::unique_ptr<ImageCaptureService> service_;
};

}  // namespace tarvo
