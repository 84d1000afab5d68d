// A loaded PTP device whose transactions are answered from the test.
//
//   ScriptedPTPDevice scripted;
//   scripted.camera.answers[0x1006] = {.parameters = {3}};
//   EXPECT_EQ(scripted->numberOfObjectsOnStore(1, 0x3801), 3);
//   EXPECT_THAT(scripted.sent(), ElementsAre("1006(1,3801)1-"));
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "Utilities/Format.h"
#include "tests/support/PictureDeviceTestRoom.h"

namespace tarvo::test {

/// A camera of the maker that lists every operation of the device classes.
inline PTPCameraDescription fullCamera() {
  PTPCameraDescription description;
  for (std::uint16_t code = 0x1001; code <= 0x101C; ++code)
    description.operations.push_back(code);
  for (const std::uint16_t code : {0x9007, 0x9008, 0x9009, 0x900C, 0x9011, 0x9019, 0x901A, 0x9202,
                                   0x9203, 0x9204, 0x9205, 0x9206, 0x9207, 0x9208, 0x9209, 0x920A})
    description.operations.push_back(code);
  description.properties = {0x5001, 0x5011, 0xD201};
  return description;
}

struct ScriptedPTPDevice {
  explicit ScriptedPTPDevice(const PTPCameraDescription& description = fullCamera())
      : camera(room.ica.addPTPCamera(description)) {
    camera.answers[0x920A] = {.data = PTPBytes().codes({0xB203})};
    camera.answers[0x900C] = {.data = std::vector<std::uint8_t>(12)};
    camera.answers[0x9009] = {.parameters = {3}};
    device = XTImageCapturePTPDevice::withICAObject(camera.object, nullptr);
    forget();
  }

  XTImageCapturePTPDevice* operator->() const { return device.get(); }
  XTImageCapturePTPDevice& operator*() const { return *device; }

  /// What was sent and traced up to now does not count.
  void forget() {
    camera.operations.clear();
    camera.records.clear();
    camera.payloads.clear();
    room.trace.clear();
  }

  /// Each transaction as "OPERATION(PARAMETER,...)", in hexadecimal, with the number of response
  /// parameters that are wanted and the data phase: "-" for none, "<" and the room, ">" and the
  /// size.
  std::vector<std::string> sent() const {
    std::vector<std::string> texts;
    for (const auto& pb : camera.records) {
      std::string list;
      for (std::size_t i = 0; i < pb.numOfInputParams; ++i)
        list += (list.empty() ? "" : ",") + formatted("%x", pb.params[i]);
      auto text = formatted("%04x(%s)%u", pb.commandCode, list.c_str(), pb.numOfOutputParams);
      text += pb.dataUsageMode == kNoData
                  ? "-"
                  : formatted("%c%u", pb.dataUsageMode == kDataToDevice ? '>' : '<', pb.dataSize);
      texts.push_back(std::move(text));
    }
    return texts;
  }

  PictureDeviceTestRoom room;
  FakeImageCapture::Device& camera;
  std::shared_ptr<XTImageCapturePTPDevice> device;
};

}  // namespace tarvo::test
