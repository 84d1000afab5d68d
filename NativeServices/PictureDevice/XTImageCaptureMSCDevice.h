// A mass-storage camera or card: a volume of Image Capture with the USB identity of the unit that
// it lies on.
#pragma once

#include <memory>
#include <string>

#include "NativeServices/PictureDevice/XTImageCaptureDevice.h"

namespace tarvo {

/// Main thread only.
class XTImageCaptureMSCDevice : public XTImageCaptureDevice {
 public:
  enum class MSCType { kUnknown = 0, kCamera = 1, kCard = 2 };

  /// A device bound to `object` and loaded; null, with the status in `*failure` (where given), when
  /// it cannot be identified.
  static std::shared_ptr<XTImageCaptureMSCDevice> withICAObject(ICAObject object, Status* failure);

  std::string_view className() const override { return "XTImageCaptureMSCDevice"; }
  /// Volume name and BSD name from Image Capture (the latter from the mount table when it is
  /// missing), then doIOKitDiscovery(). -36 without a dictionary.
  Status loadDeviceInfoUncached() override;
  bool isMSCamera() const override { return mscType_ == MSCType::kCamera; }
  bool isMSCard() const override { return mscType_ == MSCType::kCard; }

  const std::string& volumeName() const { return volumeName_; }
  /// Where the volume is mounted: the folder of removable volumes joined with its name.
  std::string logicalMountPath() const;
  std::string physicalMountPath() const { return "/dev/" + bsdName_; }
  std::int32_t vid() const { return vid_; }
  std::int32_t pid() const { return pid_; }
  std::int32_t usbLocID() const { return usbLocID_; }

 protected:
  XTImageCaptureMSCDevice() = default;

 private:
  /// Takes the identity of the nearest USB device above the block device and classifies the unit.
  /// 0, -36 when the registry cannot be asked, 998 when there is no USB device.
  Status doIOKitDiscovery();
  void takeUSBIdentity(const PropertyDictionary& usbDevice);
  std::string mountedDeviceName() const;

  std::string volumeName_;
  std::string bsdName_;
  std::int32_t vid_ = 0;
  std::int32_t pid_ = 0;
  std::int32_t usbLocID_ = 0;
  MSCType mscType_ = MSCType::kUnknown;
};

}  // namespace tarvo
