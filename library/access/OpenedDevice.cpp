#include "library/access/OpenedDevice.h"

#include <glib.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "NativeServices/PictureDevice/operations/ObjectListing.h"
#include "NativeServices/models/SupportedModels.h"
#include "Utilities/Exception.h"
#include "Utilities/Format.h"
#include "Utilities/Numbers.h"
#include "Utilities/Printable.h"
#include "library/access/UnitChooser.h"

namespace tarvo::library {

namespace {

constexpr int kAttempts = 10;
/// The agent's look at a new camera is over in a fraction of a second, or in this where the camera
/// has to be got back in step first.
constexpr int kAttemptsBesideTheAgent = 50;
constexpr gulong kAttemptIntervalMicroseconds = 200000;

}  // namespace

OpenedDevice::OpenedDevice(SessionState& session, DeviceSummary summary)
    : session_(session), summary_(std::move(summary)) {
  if (!summary_.speaksPTP)
    raise({.object = summary_.name,
           .status = status::kUnsupported,
           .why = "it is a volume, which does not speak PTP",
           .advice = "Its files are in " + summary_.path + "."});
  open();
  load();
}

void OpenedDevice::open() {
  Status failure = status::kOK;
  std::string why;
  auto& imageCapture = session_.platform().services().imageCapture;
  int most = kAttempts;
  for (int attempt = 1; !scope_ && attempt <= most; ++attempt) {
    session_.endIfInterrupted();
    // Here a wait is all right: the command has nothing else to do.
    if (attempt > 1) g_usleep(kAttemptIntervalMicroseconds);
    scope_ = imageCapture.openScope(summary_.object, &failure, &why);
    // Whatever else is wrong is the same a moment later.
    if (failure != status::kICADeviceBusy) break;
    if (why.find("process tarvo-agent ") != std::string::npos) most = kAttemptsBesideTheAgent;
  }
  if (!scope_) raise(this->failure(inWords(summary_), failure, why));
}

void OpenedDevice::load() {
  Status failure = status::kOK;
  device_ = XTImageCapturePTPDevice::withICAObject(summary_.object, &failure);
  if (device_) return;
  session_.endIfInterrupted();
  raise(this->failure(inWords(summary_), failure, "its information cannot be read"));
}

XTPictureDevice& OpenedDevice::device() const { return *device_; }

PTPTransactions& OpenedDevice::transactions() const { return *device_; }

Status OpenedDevice::explained(Status status) const {
  if (status == status::kOK || !device_) return status;
  // A device that went and one that is silent both come up as a general error.
  const Status transport = device_->lastMessageStatus();
  // A transfer that this side has ended (a file that cannot be written) is known here already.
  if (transport == status::kOK || transport == status::kCancelled) return status;
  const bool saysLittle = status == status::kPTPGeneralError || status == status::kIOError;
  return saysLittle || isDeviceLost(status) ? transport : status;
}

bool OpenedDevice::isLost(Status status) const {
  return session_.isInterrupted() || isDeviceLost(explained(status));
}

Failure OpenedDevice::failure(const std::string& object, Status status, std::string why) const {
  Failure failure = {.object = object, .status = explained(status), .why = std::move(why)};
  // The same status stands for files that cannot be written, where other advice helps.
  const bool isOnTheBus = device_ && device_->lastMessageStatus() == status::kIOError;
  if (failure.status == status::kIOError && isOnTheBus)
    failure.advice = "Check the cable and try again.";
  return failure;
}

void OpenedDevice::require(Status status, const std::string& object) const {
  if (status == status::kOK || status == status::kPTPOK) return;
  session_.endIfInterrupted();
  raise(failure(object, status));
}

void OpenedDevice::failWithout(const std::string& object) const {
  session_.endIfInterrupted();
  const Status outcome = transactions().lastOutcome();
  raise(failure(object, outcome == status::kOK ? status::kPTPGeneralError : outcome));
}

ObjectHandles OpenedDevice::objectHandles(std::uint16_t format, const std::string& what) const {
  ObjectHandles handles;
  require(ObjectListing(transactions()).handles({.format = format}, handles), what);
  return handles;
}

namespace {

/// The USB serial number of the device at a location; empty where it has none.
/// By location: the dictionary of a device has no serial number.
std::string serialAt(Registry& registry, std::int32_t location) {
  for (const ServiceHandle service : registry.servicesMatching(
           {{"IOClass", "usb_device"}, {"locationID", static_cast<std::uint32_t>(location)}})) {
    const auto properties = registry.properties(service);
    if (properties) return textForKey(*properties, "USB Serial Number").value_or("");
  }
  return {};
}

bool isSupported(SupportedModels& models, const DeviceSummary& device) {
  if (device.speaksPTP) return models.isValidDscVid(device.vendor, device.product);
  return models.isValidPVC(device.vendor, device.product) ||
         SupportedModels::isValidCard(device.path);
}

/// What the device itself says its serial number is; empty where it does not answer. The one on the
/// USB can differ from it.
std::string ownSerial(Platform& platform, const DeviceSummary& device) {
  const auto scope = platform.services().imageCapture.openScope(device.object, nullptr, nullptr);
  if (!scope) return {};
  try {
    Status failure = status::kOK;
    const auto opened = XTImageCapturePTPDevice::withICAObject(device.object, &failure);
    return opened ? opened->serialNumber() : "";
  } catch (const Exception&) {
    return {};  // a device that cannot be read is none that can be chosen by what it says
  }
}

/// Those that `wanted` names by what the USB says, or else by what the cameras themselves do.
std::vector<DeviceSummary> namedDevices(Platform& platform, const std::string& wanted,
                                        const std::vector<DeviceSummary>& devices) {
  auto meant = fitting(devices, wanted);
  if (!meant.empty()) return meant;
  std::vector<DeviceSummary> cameras;
  for (DeviceSummary camera : devices) {
    if (!camera.speaksPTP || !camera.isOfMaker) continue;
    camera.serial = ownSerial(platform, camera);
    cameras.push_back(std::move(camera));
  }
  return fitting(cameras, wanted);
}

/// What is to be said where no camera is; a device in another mode is what is looked for, mostly.
ChoiceWords wordsWithoutCamera(Platform& platform, const std::vector<DeviceSummary>& devices) {
  ChoiceWords words = {.kind = "device", .none = "no Tarvo device is connected"};
  const auto volume = std::ranges::find_if(
      devices, [](const DeviceSummary& device) { return !device.speaksPTP && device.isSupported; });
  if (volume != devices.end()) {
    words.none = volume->name + " is a volume, which does not speak PTP";
    words.noneAdvice = "Its files are in " + volume->path + ".";
    return words;
  }
  const auto units = presentUnits(platform);
  if (units.empty()) return words;
  words.none = inWords(units.front()) + " shows itself as a disk, and none of its cards is mounted";
  words.noneAdvice = "Switch it to camera mode, or mount its card.";
  return words;
}

}  // namespace

std::optional<std::int32_t> locationFrom(std::string_view text) {
  const bool isNegative = text.starts_with('-');
  if (isNegative) text.remove_prefix(1);
  const auto number = numberOf(text, isNegative ? 0x80000000U : 0xFFFFFFFFU);
  if (!number) return std::nullopt;
  const auto bits = static_cast<std::uint32_t>(*number);
  // A location is a signed number where others show it, and often negative.
  return static_cast<std::int32_t>(isNegative ? 0U - bits : bits);
}

std::string locationInHex(const Summary& summary) {
  return summary.location ? formatted("0x%08x", static_cast<unsigned>(*summary.location)) : "";
}

int fitOf(const Summary& device, const std::string& wanted) {
  constexpr int kSerial = 5, kLocation = 4, kName = 3, kFolded = 2, kBeginning = 1;
  if (device.serial == wanted) return kSerial;
  const auto location = locationFrom(wanted);
  if (location && device.location == location) return kLocation;
  if (device.name == wanted) return kName;
  int best = 0;
  const auto look = [&](std::string_view text) {
    const bool begins = text.size() >= wanted.size() &&
                        g_ascii_strncasecmp(text.data(), wanted.data(), wanted.size()) == 0;
    if (begins) best = std::max(best, text.size() == wanted.size() ? kFolded : kBeginning);
  };
  look(device.serial);
  look(locationInHex(device));
  // "lumo" is how people call a "Tarvo Lumo X2", and "card" a "TARVO_CARD".
  const std::string_view name = device.name;
  for (std::size_t at = 0; at < name.size();
       at = std::min(name.find_first_of(" _-", at), name.size()) + 1)
    look(name.substr(at));
  return best;
}

std::string inWords(const Summary& summary) {
  const std::string location = locationInHex(summary);
  return (summary.serial.empty() ? "(no serial number)" : summary.serial) + " (" + summary.name +
         (location.empty() ? "" : ", location " + location) + ")";
}

std::optional<DeviceSummary> summaryOf(Platform& platform, ICAObject object) {
  const auto& services = platform.services();
  PropertyDictionary dictionary;
  if (services.imageCapture.copyObjectPropertyDictionary(object, dictionary) != status::kOK)
    return std::nullopt;
  DeviceSummary device;
  device.object = object;
  device.name = textForKey(dictionary, "ifil").value_or("");
  device.speaksPTP = lastPathComponent(textForKey(dictionary, "device module").value_or("")) ==
                     device_module::kPTPCamera;
  device.vendor = int32ForKey(dictionary, "idVendor").value_or(0);
  device.product = int32ForKey(dictionary, "idProduct").value_or(0);
  device.location = int32ForKey(dictionary, "locationID");
  if (device.location) device.serial = serialAt(services.registry, *device.location);
  if (const auto volume = textForKey(dictionary, "volume"))
    device.path = services.mounts.volumesFolder() + "/" + *volume;
  device.isOfMaker = device.vendor == platform.maker().usbVendorID;
  device.isSupported = isSupported(platform.models(), device);
  return device;
}

std::vector<DeviceSummary> presentDevices(Platform& platform) {
  auto& imageCapture = platform.services().imageCapture;
  std::vector<DeviceSummary> devices;
  ICAObject list = 0;
  std::uint32_t count = 0;
  Status headerErr = status::kOK;
  if (imageCapture.getDeviceList(list) != status::kOK) return devices;
  if (imageCapture.getChildCount(list, count, headerErr) != status::kOK) return devices;
  for (std::uint32_t index = 0; index < count; ++index) {
    ICAChildInfo child;
    if (imageCapture.getNthChild(list, index, child) != status::kOK) continue;
    if (auto device = summaryOf(platform, child.object)) devices.push_back(std::move(*device));
  }
  return devices;
}

void refuseChoice(const std::string& wanted, const ChoiceWords& words,
                  const std::vector<std::string>& listed, bool areSeveral) {
  const std::string list = joined(listed);
  if (areSeveral)
    raise({.why = wanted.empty() ? "several " + words.kind + "s are " + words.state + ": " + list
                                 : "'" + wanted + "' may be each of these: " + list,
           .advice = "Name one by its serial number, location or name.",
           .kind = ErrorKind::kAmbiguous});
  Failure failure{.why = words.none, .advice = words.noneAdvice, .kind = ErrorKind::kNotFound};
  if (!wanted.empty())
    failure.why = "there is no " + words.kind + " with the serial number, location or name '" +
                  wanted + "'" + (list.empty() ? "" : "; " + words.state + ": " + list);
  raise(std::move(failure));
}

DeviceSummary chooseCamera(Platform& platform, const std::string& wanted) {
  auto devices = presentDevices(platform);
  auto cameras = devices;
  std::erase_if(cameras, [](const DeviceSummary& device) { return !device.speaksPTP; });
  if (!wanted.empty()) {
    auto meant = namedDevices(platform, wanted, cameras);
    // That a volume is none is said where it is opened.
    if (meant.empty()) meant = fitting(devices, wanted);
    return onlyOne(wanted, {.kind = "device", .none = ""}, devices, meant);
  }
  std::erase_if(cameras, [](const DeviceSummary& device) { return !device.isOfMaker; });
  return onlyOne(wanted,
                 cameras.empty() ? wordsWithoutCamera(platform, devices)
                                 : ChoiceWords{.kind = "device", .none = ""},
                 cameras, cameras);
}

DeviceSummary chooseVolume(Platform& platform, const std::string& wanted) {
  auto volumes = presentDevices(platform);
  std::erase_if(volumes, [](const DeviceSummary& device) { return device.path.empty(); });
  const bool isNamed = !wanted.empty() && !volumes.empty();
  return onlyOne(isNamed ? wanted : "",
                 {.kind = "volume",
                  .none = "no card and no camera is mounted",
                  .noneAdvice = "Connect one, and mount it.",
                  .state = "mounted"},
                 volumes, isNamed ? fitting(volumes, wanted) : volumes);
}

DeviceSummary chooseDevice(Platform& platform, const std::string& wanted) {
  const auto devices = presentDevices(platform);
  if (!wanted.empty())
    return onlyOne(wanted, {.kind = "device", .none = ""}, devices,
                   namedDevices(platform, wanted, devices));
  const bool hasCamera = std::ranges::any_of(
      devices, [](const DeviceSummary& device) { return device.speaksPTP && device.isOfMaker; });
  const bool hasVolume = std::ranges::any_of(
      devices, [](const DeviceSummary& device) { return !device.path.empty(); });
  return hasVolume && !hasCamera ? chooseVolume(platform, wanted) : chooseCamera(platform, wanted);
}

}  // namespace tarvo::library
