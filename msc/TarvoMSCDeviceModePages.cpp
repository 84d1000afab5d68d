// The vendor mode pages of a unit: reading and writing them, and what they are for.
#include <algorithm>
#include <array>
#include <new>
#include <utility>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/TextFiles.h"
#include "Utilities/Exception.h"
#include "Utilities/Format.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "msc/MSCRoom.h"
#include "msc/ModePages.h"
#include "msc/TarvoMSCDevice.h"

namespace tarvo {
namespace {

constexpr std::uint8_t kModelPageCode = 0x26;
/// The page length of a page whose header is in front of it.
constexpr std::size_t kModelTextAt = 10;
constexpr std::size_t kHeaderSize = 8;
// Fixed-format sense data (SPC), up to the key-specific bytes.
constexpr std::size_t kSenseSize = 18;
constexpr std::chrono::milliseconds kSelectTimeout{6000};

std::string answerInWords(std::uint8_t taskStatus) {
  if (taskStatus == scsi::kNoTaskStatus) return "the unit gave no answer";
  return formatted("the unit answered with SCSI status 0x%02x", taskStatus);
}

/// Exclusive access to a unit, given up on every path.
class ExclusiveAccess {
 public:
  explicit ExclusiveAccess(SCSITaskDeviceInterface& device) : device_(&device) {}
  ~ExclusiveAccess() {
    if (device_) (void)device_->releaseExclusiveAccess();
  }
  ExclusiveAccess(const ExclusiveAccess&) = delete;
  ExclusiveAccess& operator=(const ExclusiveAccess&) = delete;

  // With its status, where it matters; the destructor is for the other paths.
  Status release() { return std::exchange(device_, nullptr)->releaseExclusiveAccess(); }

 private:
  SCSITaskDeviceInterface* device_;
};

}  // namespace

std::string senseInWords(std::span<const std::byte> sense) {
  const auto at = [&](std::size_t index) { return std::to_integer<unsigned>(sense[index]); };
  // SPC, "Sense data": 0x70 and 0x71 have fixed format, 0x72 and 0x73 descriptor format.
  const unsigned responseCode = at(0) & 0x7F;
  if (responseCode == 0x70 || responseCode == 0x71)
    return formatted(", sense %x/%02x/%02x", at(2) & 0x0F, at(12), at(13));
  if (responseCode == 0x72 || responseCode == 0x73)
    return formatted(", sense %x/%02x/%02x", at(1) & 0x0F, at(2), at(3));
  return {};
}

void TarvoMSCDevice::requireInterface() const {
  if (!_mmcDevice) raiseAssertion("No device interface!");
}

// MODE SENSE(10).

// Nothing longer than 4 GiB addresses, with block descriptors, current values.
Status TarvoMSCDevice::sense(std::uint8_t pageCode, std::span<std::byte> buffer,
                             std::uint8_t& taskStatus) {
  constexpr bool kLLBAA = false;
  constexpr bool kDBD = false;
  constexpr std::uint8_t kCurrentValues = 0;
  taskStatus = scsi::kNoTaskStatus;
  senseData_ = {};
  return _mmcDevice->modeSense10(kLLBAA, kDBD, kCurrentValues, pageCode, buffer, taskStatus,
                                 senseData_);
}

Status TarvoMSCDevice::_modeSensePageCode(std::uint8_t pageCode, std::vector<std::byte>* buffer,
                                          std::uint16_t* bufferSize) {
  assertParameter(buffer != nullptr, "buffer != NULL");
  assertParameter(bufferSize != nullptr, "bufferSize != NULL");
  lastFailure_ = {};
  // Twice: only the header says how long the page is.
  std::array<std::byte, kHeaderSize> header = {};
  std::uint8_t taskStatus = 0;
  Status called = sense(pageCode, header, taskStatus);
  if (called != status::kOK) {
    TraceLog::trace("Error: ModeSense10 failed err = 0x%08x\n", static_cast<unsigned>(called));
    return senseFailed(pageCode, called);
  }
  if (taskStatus != scsi::kGood) {
    TraceLog::trace("Error: ModeSense10 task status %x", taskStatus);
    return senseRefused(pageCode, taskStatus);
  }
  const auto modeDataLength =
      std::to_integer<unsigned>(header[0]) << 8 | std::to_integer<unsigned>(header[1]);
  // Six bytes more than the length says, in 16 bits: intended, see docs/oddities.md. A length near
  // the end wraps, and the buffer may then be shorter than the header.
  const auto size = static_cast<std::uint16_t>(modeDataLength + kHeaderSize);
  std::vector<std::byte> page;
  try {
    page.resize(size);
  } catch (const std::bad_alloc&) {
    TraceLog::trace("Error: malloc of %d bytes failed", size);
    return senseFailed(pageCode, status::kIOReturnError);
  }
  called = sense(pageCode, page, taskStatus);
  if (called != status::kOK) {
    // Printed, not logged: intended, see docs/oddities.md.
    std::FILE* output = MSCRoom::required().services().standardOutput;
    std::fprintf(output, "ModeSense10 failed err = 0x%08x\n", static_cast<unsigned>(called));
    std::fflush(output);
    return senseFailed(pageCode, called);
  }
  if (taskStatus != scsi::kGood) {
    TraceLog::trace("ModeSense10 task status %x", taskStatus);
    return senseRefused(pageCode, taskStatus);
  }
  // Only a whole answer reaches the caller.
  *buffer = std::move(page);
  *bufferSize = size;
  return status::kOK;
}

Status TarvoMSCDevice::senseFailed(std::uint8_t pageCode, Status called) {
  fail(called, formatted("mode page 0x%02x could not be read", pageCode));
  return called;
}

Status TarvoMSCDevice::senseRefused(std::uint8_t pageCode, std::uint8_t taskStatus) {
  fail(status::kIOReturnError, formatted("mode page 0x%02x could not be read: ", pageCode) +
                                   answerInWords(taskStatus) + senseInWords(senseData_));
  return status::kIOReturnError;
}

bool TarvoMSCDevice::_modeSenseTestPageCode(std::uint8_t pageCode, std::uint16_t* size) {
  std::vector<std::byte> page;
  std::uint16_t pageSize = 0;
  if (_modeSensePageCode(pageCode, &page, &pageSize) != status::kOK) return false;
  // At 9 the byte lies just behind what there is, which reads as zero.
  if (size && pageSize >= kModePageLengthAt)
    *size =
        pageSize > kModePageLengthAt ? std::to_integer<std::uint16_t>(page[kModePageLengthAt]) : 0;
  return true;
}

// MODE SELECT(10).

bool TarvoMSCDevice::_modeSelectPage(std::span<const std::byte> pageBuffer) {
  assertParameter(pageBuffer.data() != nullptr, "pageBuffer");
  requireInterface();
  if (!_scsi) raiseAssertion("No scsi task device interface!");
  lastFailure_ = {};
  // So that no other process comes in between with a command of its own.
  if (const Status failed = _scsi->obtainExclusiveAccess(); failed != status::kOK) {
    TraceLog::trace("Error: ObtainExclusiveAccess failed");
    fail(failed, "the unit could not be had exclusively");
    return false;
  }
  ExclusiveAccess access(*_scsi);
  auto task = _scsi->createSCSITask();
  if (!task) {
    TraceLog::trace("Error: CreateSCSITask failed");
    fail(status::kIOReturnError, "no SCSI task could be made");
  }
  // A copy, since the task wants bytes that it may write to.
  std::vector<std::byte> page(pageBuffer.begin(), pageBuffer.end());
  if (task && executeModeSelect(*task, page)) {
    // Before the access, which it uses.
    task.reset();
    // Its failure means nothing any more: a unit that switches may be gone by now.
    access.release();
    return true;
  }
  if (const Status failed = access.release(); failed != status::kOK)
    TraceLog::trace("Error: ReleaseExclusiveAccess failed err = 0x%08x\n",
                    static_cast<unsigned>(failed));
  return false;
}

bool TarvoMSCDevice::executeModeSelect(SCSITaskInterface& task, std::span<std::byte> page) {
  const auto succeeds = [this](const char* step, Status outcome) {
    if (outcome == status::kOK) return true;
    TraceLog::trace("Error: _modeSelectPage %s failed err = 0x%08x\n", step,
                    static_cast<unsigned>(outcome));
    fail(outcome, formatted("a mode page could not be written (%s)", step));
    return false;
  };
  // The page-format bit of byte 1 is not set: the vendor's pages are so (docs/oddities.md).
  const std::array<std::byte, 10> block = {std::byte{0x55},
                                           {},
                                           {},
                                           {},
                                           {},
                                           {},
                                           {},
                                           static_cast<std::byte>(page.size() >> 8),
                                           static_cast<std::byte>(page.size()),
                                           {}};
  std::array<std::byte, kSenseSize> sense = {};
  std::uint8_t taskStatus = scsi::kNoTaskStatus;
  std::uint64_t realised = 0;
  auto response = SCSIServiceResponse::kRequestInProcess;
  return succeeds("SetCommandDescriptorBlock", task.setCommandDescriptorBlock(block)) &&
         succeeds("SetScatterGatherEntries",
                  task.setScatterGatherEntries(
                      page, page.size(), SCSITaskInterface::Direction::kFromInitiatorToTarget)) &&
         succeeds("SetTimeoutDuration", task.setTimeoutDuration(kSelectTimeout)) &&
         succeeds("ExecuteTaskSync", task.executeTaskSync(sense, taskStatus, realised)) &&
         succeeds("GetSCSIServiceResponse", task.getSCSIServiceResponse(response)) &&
         isTaskComplete(taskStatus, response, sense);
}

bool TarvoMSCDevice::isTaskComplete(std::uint8_t taskStatus, SCSIServiceResponse response,
                                    std::span<const std::byte> sense) {
  if (taskStatus != scsi::kGood) {
    TraceLog::trace("SCSI task status:%0X", taskStatus);
    TraceLog::trace("Error: _modeSelectPage taskStatus is not good.");
    fail(status::kIOReturnError,
         "a mode page was not taken: " + answerInWords(taskStatus) + senseInWords(sense));
    return false;
  }
  switch (response) {
    case SCSIServiceResponse::kTaskComplete:
      return true;
    // Linked commands are long obsolete, but the command was carried out.
    case SCSIServiceResponse::kLinkCommandComplete:
      TraceLog::trace("SCSIServiceResponse = kSCSIServiceResponse_LINK_COMMAND_COMPLETE");
      return true;
    case SCSIServiceResponse::kFunctionComplete:
      TraceLog::trace("SCSIServiceResponse = kSCSIServiceResponse_FUNCTION_COMPLETE");
      return true;
    case SCSIServiceResponse::kServiceDeliveryOrTargetFailure:
      TraceLog::trace(
          "SCSIServiceResponse = kSCSIServiceResponse_SERVICE_DELIVERY_OR_TARGET_FAILURE");
      break;
    default:
      TraceLog::trace("SCSIServiceResponse = %d", static_cast<int>(response));
  }
  TraceLog::trace("Error: serviceResponse says task not complete: response = %d",
                  static_cast<int>(response));
  fail(status::kIOReturnError,
       formatted("a mode page was not taken: service response %d", static_cast<int>(response)));
  return false;
}

// The model page.

std::optional<std::string> TarvoMSCDevice::model() {
  // A unit keeps its model as long as it is plugged in.
  if (!_model) _model = _getModelString();
  return _model;
}

std::optional<std::string> TarvoMSCDevice::_getModelString() {
  requireInterface();
  std::vector<std::byte> page;
  std::uint16_t size = 0;
  if (_modeSensePageCode(kModelPageCode, &page, &size) != status::kOK) return std::nullopt;
  if (size <= kModelTextAt) {
    TraceLog::trace("Error: Mode sense data looks too short to contain model string.");
    fail(status::kIOReturnError, "the unit's model page is too short");
    return std::nullopt;
  }
  // A length beyond what is there means all that is there.
  const auto length = std::min<std::size_t>(std::to_integer<std::size_t>(page[kModePageLengthAt]),
                                            page.size() - kModelTextAt);
  const std::string_view bytes(reinterpret_cast<const char*>(page.data()) + kModelTextAt, length);
  const auto text = textInEncoding(bytes, MSCRoom::required().services().defaultEncoding);
  if (!text) {
    fail(status::kIOReturnError, "the unit's model is no text in the default encoding");
    return std::nullopt;
  }
  return withoutOuterControls(*text);
}

// The USB mode page.

std::optional<PropertyDictionary> TarvoMSCDevice::usbModeDictionary() {
  std::vector<std::byte> page;
  std::uint16_t size = 0;
  if (_modeSensePageCode(kUSBModePageCode, &page, &size) != status::kOK) return std::nullopt;
  auto mode = dictionaryFromUSBModePage(
      page, MSCRoom::required().services().defaults.boolForKey("OverrideSupportAutoRestart"));
  if (!mode) fail(status::kIOReturnError, "the unit's USB mode page is too short");
  return mode;
}

bool TarvoMSCDevice::canAutoPowerCycle() {
  std::vector<std::byte> page;
  std::uint16_t size = 0;
  return _modeSensePageCode(kUSBModePageCode, &page, &size) == status::kOK &&
         supportsAutoPowerCycle(page);
}

bool TarvoMSCDevice::setUSBModeDictionary(const PropertyDictionary& mode) {
  TraceLog::trace("setUSBModeDictionary");
  std::vector<std::byte> sensed;
  std::uint16_t size = 0;
  // Read first: a unit without the page is not sent one.
  if (_modeSensePageCode(kUSBModePageCode, &sensed, &size) != status::kOK)
    return couldNotSetUSBMode();
  USBModePage page = smartFinderUSBModePage(mode);
  // The size does not matter: a unit with a short page is written to as well
  // (docs/oddities.md).
  if (sensed.size() > kUSBModeCapabilities)
    // What the unit can do is not ours to change.
    page[kUSBModeCapabilities] = sensed[kUSBModeCapabilities];
  return _modeSelectPage(page) || couldNotSetUSBMode();
}

bool TarvoMSCDevice::setUSBMode(bool cameraMode, bool powerDown, std::uint32_t autowakeDelay) {
  if (!_modeSenseTestPageCode(kUSBModePageCode, nullptr)) return couldNotSetUSBMode();
  const auto page =
      usbModePage(cameraMode ? usb_mode::kCamera : usb_mode::kStartup, powerDown, autowakeDelay);
  return _modeSelectPage(page) || couldNotSetUSBMode();
}

bool TarvoMSCDevice::couldNotSetUSBMode() {
  TraceLog::trace("Error: Could not set USB mode.");
  return false;
}

// The clock page.

bool TarvoMSCDevice::setDateTime(std::optional<std::time_t> dateTime) {
  assertParameter(dateTime.has_value(), "dateTime");
  ClockPage page = {};
  bool isSet = _modeSenseTestPageCode(kClockPageCode, nullptr);
  if (isSet) {
    _fillOutDateStruct(page, *dateTime);
    isSet = _modeSelectPage(page);
  }
  if (isSet) {
    TraceLog::trace("Set date to %s", localDateText(*dateTime, "%Y-%m-%d %H:%M:%S %z").c_str());
  } else {
    TraceLog::trace("Error: Could not set date");
  }
  return isSet;
}

void TarvoMSCDevice::_fillOutDateStruct(ClockPage& page, std::time_t date) {
  const std::string digits = localDateText(date, "%Y%m%d%H%M%S");
  TraceLog::trace("Setting date: %s", digits.c_str());
  fillClockPage(page, digits);
}

}  // namespace tarvo
