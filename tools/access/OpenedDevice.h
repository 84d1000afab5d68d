// The device that a command works on: opened once, and held to the end of the command.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "tools/access/DeviceChooser.h"
#include "tools/access/ToolContext.h"

namespace tarvo {
class PTPTransactions;
class XTImageCapturePTPDevice;
class XTPictureDevice;
}  // namespace tarvo

namespace tarvo::tools {

/// Main thread only. The interface is claimed and the session open while it lives.
class OpenedDevice {
 public:
  /// Chooses and opens. Raises a ToolError: as chooseDevice(), and for a device that another
  /// process holds, that may not be opened, that is silent or that does not speak PTP. One that is
  /// held is waited for a moment: the agent looks at each arrival.
  OpenedDevice(ToolContext& context, std::string operation);
  OpenedDevice(const OpenedDevice&) = delete;
  OpenedDevice& operator=(const OpenedDevice&) = delete;

  XTPictureDevice& device() const;
  PTPTransactions& transactions() const;
  /// For what only a device of this class has.
  XTImageCapturePTPDevice& ptpDevice() const { return *device_; }
  const DeviceSummary& summary() const { return summary_; }
  const std::string& operation() const { return operation_; }

  /// `status` of an operation of this device, or what the transport says in its place: a device
  /// that has gone is no "general error".
  Status explained(Status status) const;
  /// Whether nothing more can be had from the device, or wanted.
  bool isLost(Status status) const;
  /// What went wrong with `object`.
  Failure failure(const std::string& object, Status status, std::string why = {}) const;
  /// Raises a ToolError about the whole command unless `status` is 0 or the PTP OK.
  void require(Status status, const std::string& object = {}) const;
  /// The same where the operation gave nothing and no status.
  [[noreturn]] void failWithout(const std::string& object) const;
  /// The handles of the objects of a format, wherever they lie; 0 is every format. Raises a
  /// ToolError about `what` where the device does not tell them.
  ObjectHandles objectHandles(std::uint16_t format, const std::string& what) const;

 private:
  void open();
  void load();

  ToolContext& context_;
  std::string operation_;
  DeviceSummary summary_;
  std::unique_ptr<ICAScope> scope_;
  std::shared_ptr<XTImageCapturePTPDevice> device_;
};

/// "0x00010003".
std::string handleText(std::uint32_t handle);
/// Handles, store ids and codes as a user writes them, decimal or 0x...; raises kBadUsage with
/// `what` for what is no number up to `maximum`.
std::uint32_t numberArgument(const std::string& operation, const std::string& what,
                             const std::string& text, std::uint32_t maximum = 0xFFFFFFFF);

}  // namespace tarvo::tools
