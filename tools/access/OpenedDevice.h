// The device that a command works on: opened once, and held to the end of the command.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "platform/imagecapture/ImageCapture.h"
#include "tools/access/ToolContext.h"

namespace tarvo {
class XTImageCapturePTPDevice;
class XTPictureDevice;
}  // namespace tarvo

namespace tarvo::tools {

/// What --device can name.
struct Summary {
  std::string name{};
  std::optional<std::int32_t> location{};  ///< of the USB device
  std::string serial{};                    ///< of the USB device; empty where it has none
};

/// A device as it can be told without opening it.
struct DeviceSummary : Summary {
  ICAObject object = 0;
  bool speaksPTP = false;  ///< else it is a volume
  std::int32_t vendor = 0;
  std::int32_t product = 0;
  std::string path{};  ///< where a volume is mounted
  bool isOfMaker = false;
  bool isSupported = false;  ///< by the model table, or by what lies on the volume
};

/// Keys "name", "type" ("PTP" or "volume"), "location", "locationHex", "vendor", "product",
/// "serial", "path", "supported"; what is not known is left out.
PropertyDictionary asJSON(const DeviceSummary& device);
/// "SERIAL (NAME, location 0x01100000)".
std::string inWords(const Summary& summary);
/// "0x01100000"; empty without one.
std::string locationInHex(const Summary& summary);
/// A location as a user writes it: signed decimal, or 0x...; none for anything else.
std::optional<std::int32_t> locationFrom(std::string_view text);

/// Every PTP device and every volume of a USB device, in order of arrival.
std::vector<DeviceSummary> presentDevices(ToolPlatform& platform);
/// One of them; none when it has gone.
std::optional<DeviceSummary> summaryOf(ToolPlatform& platform, ICAObject object);

/// How a choice fails, in words.
struct ChoiceWords {
  std::string kind;
  std::string none;        ///< where there is none at all
  std::string noneAdvice;  ///< what to do then
  std::string state = "connected";
  std::string names = "serial number or location";  ///< by what one can be named
  std::string choose = "Choose one with --device SERIAL or --device LOCATION.";
  std::string look = "'tarvoctl devices' shows what is connected.";  ///< where none has the name
};

/// Raises what onlyOne() raises.
[[noreturn]] void refuseChoice(const std::string& operation, const std::string& wanted,
                               const ChoiceWords& words, const std::vector<std::string>& listed,
                               bool areSeveral);

/// The only one of `meant`. Raises a ToolError: kNoDevice where there is none, kBadUsage where
/// there are several; it lists those in `listed`. `wanted` is what --device says, or empty.
template <typename T>
T onlyOne(const std::string& operation, const std::string& wanted, const ChoiceWords& words,
          const std::vector<T>& listed, const std::vector<T>& meant) {
  if (meant.size() == 1) return meant.front();
  std::vector<std::string> texts;
  for (const T& each : listed)
    texts.push_back(inWords(each));
  refuseChoice(operation, wanted, words, texts, !meant.empty());
}

/// The device that --device names; without it the only PTP device of the maker. Raises as
/// onlyOne().
DeviceSummary chooseDevice(ToolContext& context, const std::string& operation);

/// The volume that --device names, by serial number, location or its own name (a unit can have
/// several); without it the only one. Raises as onlyOne().
DeviceSummary chooseVolume(ToolContext& context, const std::string& operation);

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
  [[nodiscard]] Status explained(Status status) const;
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
