// What is connected, and which of it a person means.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "library/access/Platform.h"
#include "platform/imagecapture/ImageCapture.h"
#include "tarvo/Session.h"
#include "tarvo/Units.h"

namespace tarvo {

struct DeviceInfo::Data {
  std::string name{};
  std::optional<std::int32_t> location{};  ///< of the USB device
  std::string serial{};                    ///< of the USB device; empty where it has none
  ICAObject object = 0;
  DeviceKind kind = DeviceKind::kVolume;
  std::int32_t vendor = 0;
  std::int32_t product = 0;
  std::string path{};  ///< where a volume is mounted
  bool isOfMaker = false;
  bool isSupported = false;  ///< by the model table, or by what lies on the volume
};

namespace library {

/// Every PTP device and every volume of a USB device, in order of arrival.
std::vector<DeviceInfo> presentDevices(Platform& platform);
/// One of them; none when it has gone.
std::optional<DeviceInfo> presentDevice(Platform& platform, ICAObject object);
/// The maker's mass-storage units, in order of arrival.
std::vector<UnitInfo> presentUnits(Platform& platform);

// How each of these fails: kNotFound where nothing is meant, kAmbiguous where several are; it lists
// those, or what there is.

/// The camera that is `wanted`, by what the USB or the device itself says; without that the only
/// one of the maker.
DeviceInfo chooseCamera(Platform& platform, std::string_view wanted);
/// The volume that is `wanted`; without that the only one.
DeviceInfo chooseVolume(Platform& platform, std::string_view wanted);
/// Either; without `wanted` the only camera of the maker, and where there is none the only volume.
DeviceInfo chooseDevice(Platform& platform, std::string_view wanted);
/// The unit that is `wanted`; without that the only one.
UnitInfo chooseUnit(Platform& platform, std::string_view wanted);

/// What a person can name: "SERIAL (NAME, location 0x01100000)".
std::string inWords(const std::string& serial, const std::string& name,
                    std::optional<std::int32_t> location);

}  // namespace library
}  // namespace tarvo
