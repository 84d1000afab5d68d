// The devices that there are, and a camera that is held.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "library/access/SessionState.h"
#include "platform/imagecapture/ImageCapture.h"

namespace tarvo {
class XTImageCapturePTPDevice;
class XTPictureDevice;
}  // namespace tarvo

namespace tarvo::library {

/// What a person can name.
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

/// "SERIAL (NAME, location 0x01100000)".
std::string inWords(const Summary& summary);
/// "0x01100000"; empty without one.
std::string locationInHex(const Summary& summary);
/// A location as a user writes it: signed decimal, or 0x...; none for anything else.
std::optional<std::int32_t> locationFrom(std::string_view text);

/// Every PTP device and every volume of a USB device, in order of arrival.
std::vector<DeviceSummary> presentDevices(Platform& platform);
/// One of them; none when it has gone.
std::optional<DeviceSummary> summaryOf(Platform& platform, ICAObject object);

/// How a choice fails, in words.
struct ChoiceWords {
  std::string kind;
  std::string none;  ///< where there is none at all
  std::string noneAdvice = "Connect one, and switch it on.";
  std::string state = "connected";
};

/// Raises what onlyOne() raises.
[[noreturn]] void refuseChoice(const std::string& wanted, const ChoiceWords& words,
                               const std::vector<std::string>& listed, bool areSeveral);

/// How well what a person wrote names a device, the better the more; 0: not at all. Its serial
/// number, its location and its name count in this order, then the first two or a word of the name
/// without regard to case, then how one of these begins.
int fitOf(const Summary& device, const std::string& wanted);

/// Those that `wanted` names best; none where it names none.
template <typename T>
std::vector<T> fitting(const std::vector<T>& all, const std::string& wanted) {
  std::vector<T> best;
  int most = 1;
  for (const T& each : all) {
    const int fit = fitOf(each, wanted);
    if (fit > most) best.clear();
    if (fit >= most) best.push_back(each);
    most = std::max(most, fit);
  }
  return best;
}

/// The only one of `meant`. Raises kNotFound where there is none, kAmbiguous where there are
/// several; it lists those, or those in `listed`. `wanted` is what the caller named, or empty.
template <typename T>
T onlyOne(const std::string& wanted, const ChoiceWords& words, const std::vector<T>& listed,
          const std::vector<T>& meant) {
  if (meant.size() == 1) return meant.front();
  std::vector<std::string> texts;
  for (const T& each : meant.empty() ? listed : meant)
    texts.push_back(inWords(each));
  refuseChoice(wanted, words, texts, !meant.empty());
}

/// The camera that is `wanted`, by what the USB or the device itself says; without that the only
/// one of the maker. Each raises as onlyOne().
DeviceSummary chooseCamera(Platform& platform, const std::string& wanted);
/// The volume that is `wanted`; without that the only one.
DeviceSummary chooseVolume(Platform& platform, const std::string& wanted);
/// Either; without `wanted` the only camera of the maker, and where there is none the only volume.
DeviceSummary chooseDevice(Platform& platform, const std::string& wanted);

/// Main thread only. The interface is claimed and the session open while it lives.
class OpenedDevice {
 public:
  /// Opens it. Raises for a device that another process holds, that may not be opened, that is
  /// silent or that does not speak PTP. One that is held is waited for a moment: the agent looks at
  /// each arrival. `session` is lent.
  OpenedDevice(SessionState& session, DeviceSummary summary);
  OpenedDevice(const OpenedDevice&) = delete;
  OpenedDevice& operator=(const OpenedDevice&) = delete;

  XTPictureDevice& device() const;
  PTPTransactions& transactions() const;
  /// For what only a device of this class has.
  XTImageCapturePTPDevice& ptpDevice() const { return *device_; }
  const DeviceSummary& summary() const { return summary_; }
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
  /// The same where the operation gave nothing and no status.
  [[noreturn]] void failWithout(const std::string& object) const;
  /// The handles of the objects of a format, wherever they lie; 0 is every format. Raises an
  /// error about `what` where the device does not tell them.
  ObjectHandles objectHandles(std::uint16_t format, const std::string& what) const;

 private:
  void open();
  void load();

  SessionState& session_;
  DeviceSummary summary_;
  std::unique_ptr<ICAScope> scope_;
  std::shared_ptr<XTImageCapturePTPDevice> device_;
};

}  // namespace tarvo::library
