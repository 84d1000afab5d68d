// What a session stands on: the rooms with their state, made when they are asked for.
#pragma once

namespace tarvo {
struct MakerConstants;
struct PictureDeviceServices;
class Interrupt;
class SupportedModels;
class TarvoMSCDeviceList;
class Session;
}  // namespace tarvo

namespace tarvo::library {

/// One thread. What is returned lives as long as this. Each raises NSInvalidArgumentException when
/// the preferences file that was asked for cannot be read.
class Platform {
 public:
  virtual ~Platform() = default;
  virtual const MakerConstants& maker() = 0;
  virtual SupportedModels& models() = 0;
  /// Makes what reaches devices, and the room of the picture devices, at the first call.
  virtual const PictureDeviceServices& services() = 0;
  /// The maker's mass-storage units. Makes what reaches them, their room and that of the
  /// identification, at the first call.
  virtual TarvoMSCDeviceList& massStorage() = 0;
  /// What ends a running call; null where nothing does.
  virtual const Interrupt* interrupt() const = 0;
};

}  // namespace tarvo::library
