// The mass-storage room over fakes, with what is traced kept.
#pragma once

#include <gmock/gmock.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "identify/DeviceInfoSupport.h"
#include "msc/MSCRoom.h"
#include "tests/support/FakeDiskArbitration.h"
#include "tests/support/FakeImageCapture.h"
#include "tests/support/FakeMountTable.h"
#include "tests/support/FakeRegistry.h"
#include "tests/support/FakeSCSIServices.h"
#include "tests/support/Raised.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TraceRecorder.h"

namespace tarvo::test {

using Lines = std::vector<std::string>;

class MSCTest : public ::testing::Test {
 public:
  /// A unit outside the list, with a disk of its own, below a USB device.
  std::shared_ptr<TarvoMSCDevice> unit(const Pages& pages = {{0x25, kUSBModePageAnswer}}) {
    usb = registry.add({{"IOClass", "usb_device"},
                        {"idVendor", 0xF055},
                        {"idProduct", 0x0302},
                        {"locationID", 0xFA200000}});
    answers = plugFakeUnit(registry, scsi, "sr0", pages, usb);
    return TarvoMSCDevice::initWithMMCDevice(answers, scsi.units.rbegin()->first, "Lumo 700",
                                             std::vector<std::uint8_t>{1});
  }
  /// A volume that Image Capture shows, on a disk of its own below `usbDevice`.
  void addVolume(const std::string& name, const std::string& bsdName, ServiceHandle usbDevice) {
    registry.add({{"IOClass", "block"}, {"BSD Name", bsdName}}, usbDevice);
    imageCapture.addVolume(name, bsdName);
  }

  /// What was printed since the last call, one line of it.
  std::string takePrinted() {
    char text[80] = "";
    // By the descriptor, which shows what was flushed.
    EXPECT_GE(::pread(::fileno(printed), text, sizeof text - 1, 0), 0);
    EXPECT_EQ(::ftruncate(::fileno(printed), 0), 0);
    std::rewind(printed);
    return text;
  }

  ~MSCTest() override { std::fclose(printed); }

  TraceRecorder traces;
  RecordingSystemLog log;
  NotificationCenter center;
  FakeRegistry registry;
  FakeImageCapture imageCapture;
  TemporaryFolder folder;
  FakeMountTable mounts{folder.path("media")};
  FakeUserDefaults defaults;
  MakerConstants maker;
  FakeSCSIServices scsi;
  FakeDiskArbitration disks;
  std::FILE* printed = std::tmpfile();
  IdentifyRoom identify{{imageCapture, registry, mounts}};
  MSCRoom room{
      {center, registry, scsi, disks, mounts, defaults, maker, log.sink(), "ISO-8859-1", printed}};
  std::shared_ptr<FakeSCSIUnit> answers;
  ServiceHandle usb = 0;
};

}  // namespace tarvo::test
