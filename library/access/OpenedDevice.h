// A camera that is held.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "NativeServices/PictureDevice/operations/ObjectListing.h"
#include "Utilities/ByteBuffer.h"
#include "library/access/SessionState.h"
#include "platform/imagecapture/ImageCapture.h"

namespace tarvo {
class XTImageCapturePTPDevice;
}  // namespace tarvo

namespace tarvo::library {

/// Main thread only. The interface is claimed and the session open while it lives.
class OpenedDevice {
 public:
  /// Opens it. Raises for a device that another process holds, that may not be opened, that is
  /// silent or that does not speak PTP. One that is held is waited for a moment: the agent looks at
  /// each arrival. `session` is lent.
  OpenedDevice(SessionState& session, DeviceInfo info);
  OpenedDevice(const OpenedDevice&) = delete;
  OpenedDevice& operator=(const OpenedDevice&) = delete;

  XTImageCapturePTPDevice& device() const { return *device_; }
  PTPTransactions& transactions() const;
  const DeviceInfo& info() const { return info_; }
  SessionState& session() const { return session_; }

  /// `status` of an operation of this device, or what the transport says in its place: a device
  /// that has gone is no "general error".
  [[nodiscard]] Status explained(Status status) const;
  /// Whether nothing more can be had from the device, or wanted.
  bool isLost(Status status) const;
  /// What went wrong with `object`.
  Failure failure(const std::string& object, Status status, std::string why = {}) const;
  /// Raises unless `status` is 0 or the PTP OK.
  void require(Status status, const std::string& object = {}) const;
  /// Raises unless `bytes` are there, which it gives.
  std::vector<std::byte> require(const std::optional<ByteBuffer>& bytes,
                                 const std::string& object) const;
  /// The same where the operation gave nothing and no status.
  [[noreturn]] void failWithout(const std::string& object) const;
  /// Raises an error about `what` where the device does not tell the handles.
  ObjectHandles objectHandles(const ListingQuery& query, const std::string& what) const;

 private:
  void open();
  void load();

  SessionState& session_;
  DeviceInfo info_;
  std::unique_ptr<ICAScope> scope_;
  std::shared_ptr<XTImageCapturePTPDevice> device_;
};

}  // namespace tarvo::library
