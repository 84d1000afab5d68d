// A mass-storage camera or card: a volume of Image Capture with the USB identity of the unit that
// it lies on.
#pragma once

#include <memory>
#include <string>

#include "NativeServices/PictureDevice/devices/XTImageCaptureDevice.h"

namespace tarvo {

/// Main thread only.
///
/// It is a camera when its USB ids are those of one, a card when its volume holds the marks that a
/// camera leaves, and unknown otherwise; unknown ones enter the registry too, and whoever hears of
/// them filters.
class XTImageCaptureMSCDevice : public XTImageCaptureDevice {
 public:
  /// kUnknown until the unit was classified, and when it is neither.
  enum class MSCType { kUnknown = 0, kCamera = 1, kCard = 2 };

  /// A device bound to `object` and loaded; null, with the status in `*failure` (where given), when
  /// it cannot be identified.
  static std::shared_ptr<XTImageCaptureMSCDevice> withICAObject(ICAObject object, Status* failure);

  std::string_view className() const override { return "XTImageCaptureMSCDevice"; }
  /// Volume name and BSD name from Image Capture (the latter from the mount table when it is
  /// missing), then doIOKitDiscovery(). -36 without a dictionary.
  Status loadDeviceInfoUncached() override;
  /// By its "icao". A file that is there is not replaced. kICAInvalidObject without a handle;
  /// otherwise as ImageCapture::downloadFile(), and -36 for a file that cannot be put in its place.
  Status downloadFile(const ObjectReference& object, const std::string& destination) override;
  bool isMSCamera() const override { return mscType_ == MSCType::kCamera; }
  bool isMSCard() const override { return mscType_ == MSCType::kCard; }

  const std::string& volumeName() const { return volumeName_; }
  /// Where the volume is mounted: the folder of removable volumes joined with its name.
  std::string logicalMountPath() const;
  /// The node of the block device.
  std::string physicalMountPath() const { return "/dev/" + bsdName_; }
  /// USB ids and location, as signed numbers, of the unit's USB device; 0 where it has none.
  std::int32_t vid() const { return vid_; }
  std::int32_t pid() const { return pid_; }
  std::int32_t usbLocID() const { return usbLocID_; }

 protected:
  XTImageCaptureMSCDevice() = default;

 private:
  /// Takes the identity of the nearest USB device above the block device and classifies the unit.
  /// 0, -36 when the registry cannot be asked, 998 when there is no USB device.
  [[nodiscard]] Status doIOKitDiscovery();
  void takeUSBIdentity(const PropertyDictionary& usbDevice);
  /// Kernel name of what is mounted at logicalMountPath(); empty, and traced, when nothing is.
  std::string mountedDeviceName() const;

  /// One path component, whatever the device calls its volume.
  std::string volumeName_;
  std::string bsdName_;
  std::int32_t vid_ = 0;
  std::int32_t pid_ = 0;
  std::int32_t usbLocID_ = 0;
  MSCType mscType_ = MSCType::kUnknown;
};

}  // namespace tarvo
