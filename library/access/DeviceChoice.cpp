#include "library/access/DeviceChoice.h"

#include <glib.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "NativeServices/models/SupportedModels.h"
#include "Utilities/Exception.h"
#include "Utilities/Format.h"
#include "Utilities/Numbers.h"
#include "Utilities/Printable.h"
#include "library/access/SessionState.h"

namespace tarvo::library {
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

bool isSupported(SupportedModels& models, const DeviceInfo::Data& device) {
  if (device.kind == DeviceKind::kCamera)
    return models.isValidDscVid(device.vendor, device.product);
  return models.isValidPVC(device.vendor, device.product) ||
         SupportedModels::isValidCard(device.path);
}

std::optional<DeviceInfo::Data> readDevice(Platform& platform, ICAObject object) {
  const auto& services = platform.services();
  PropertyDictionary dictionary;
  if (services.imageCapture.copyObjectPropertyDictionary(object, dictionary) != status::kOK)
    return std::nullopt;
  DeviceInfo::Data device;
  device.object = object;
  device.name = textForKey(dictionary, "ifil").value_or("");
  if (lastPathComponent(textForKey(dictionary, "device module").value_or("")) ==
      device_module::kPTPCamera)
    device.kind = DeviceKind::kCamera;
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

/// What the device itself says its serial number is; empty where it does not answer. The one on the
/// USB can differ from it.
std::string ownSerial(Platform& platform, ICAObject device) {
  const auto scope = platform.services().imageCapture.openScope(device, nullptr, nullptr);
  if (!scope) return {};
  try {
    Status failure = status::kOK;
    const auto opened = XTImageCapturePTPDevice::withICAObject(device, &failure);
    return opened ? opened->serialNumber() : "";
  } catch (const Exception&) {
    return {};  // a device that cannot be read is none that can be chosen by what it says
  }
}

/// "0x01100000"; empty without one.
std::string inHex(std::optional<std::int32_t> location) {
  return location ? formatted("0x%08x", static_cast<unsigned>(*location)) : "";
}

/// A location as a user writes it: signed decimal, or 0x...; none for anything else.
std::optional<std::int32_t> locationFrom(std::string_view text) {
  const bool isNegative = text.starts_with('-');
  if (isNegative) text.remove_prefix(1);
  const auto number = numberOf(text, isNegative ? 0x80000000U : 0xFFFFFFFFU);
  if (!number) return std::nullopt;
  const auto bits = static_cast<std::uint32_t>(*number);
  // A location is a signed number where others show it, and often negative.
  return static_cast<std::int32_t>(isNegative ? 0U - bits : bits);
}

/// How well what a person wrote names a device or a unit, the better the more; 0: not at all. Its
/// serial number, its location and its name count in this order, then the first two or a word of
/// the name without regard to case, then how one of these begins.
template <typename Info>
int fitOf(const Info& info, std::string_view wanted) {
  constexpr int kSerial = 5, kLocation = 4, kName = 3, kFolded = 2, kBeginning = 1;
  if (info.serial() == wanted) return kSerial;
  const auto location = locationFrom(wanted);
  if (location && info.location() == location) return kLocation;
  if (info.name() == wanted) return kName;
  int best = 0;
  const auto look = [&](std::string_view text) {
    const bool begins = text.size() >= wanted.size() &&
                        g_ascii_strncasecmp(text.data(), wanted.data(), wanted.size()) == 0;
    if (begins) best = std::max(best, text.size() == wanted.size() ? kFolded : kBeginning);
  };
  look(info.serial());
  look(inHex(info.location()));
  // "lumo" is how people call a "Tarvo Lumo X2", and "card" a "TARVO_CARD".
  const std::string_view name = info.name();
  for (std::size_t at = 0; at < name.size();
       at = std::min(name.find_first_of(" _-", at), name.size()) + 1)
    look(name.substr(at));
  return best;
}

/// Those that `wanted` names best; none where it names none.
template <typename Info>
std::vector<Info> fitting(const std::vector<Info>& all, std::string_view wanted) {
  std::vector<Info> best;
  int most = 1;
  for (const Info& each : all) {
    const int fit = fitOf(each, wanted);
    if (fit > most) best.clear();
    if (fit >= most) best.push_back(each);
    most = std::max(most, fit);
  }
  return best;
}

/// How a choice fails, in words.
struct ChoiceWords {
  std::string kind = "device";
  std::string none{};  ///< where there is none at all
  std::string noneAdvice = "Connect one, and switch it on.";
  std::string state = "connected";
};

/// The only one of `meant`. Raises kNotFound where there is none, kAmbiguous where there are
/// several; it lists those, or those in `listed`. `wanted` is what the caller named, or empty.
template <typename Info>
Info onlyOne(std::string_view wanted, const ChoiceWords& words, const std::vector<Info>& listed,
             const std::vector<Info>& meant) {
  if (meant.size() == 1) return meant.front();
  const std::string name(wanted);
  std::vector<std::string> texts;
  for (const Info& each : meant.empty() ? listed : meant)
    texts.push_back(each.description());
  const std::string list = joined(texts);
  if (!meant.empty())
    raise({.why = wanted.empty() ? "several " + words.kind + "s are " + words.state + ": " + list
                                 : "'" + name + "' may be each of these: " + list,
           .advice = "Name one by its serial number, location or name.",
           .kind = ErrorKind::kAmbiguous});
  Failure failure{.why = words.none, .advice = words.noneAdvice, .kind = ErrorKind::kNotFound};
  if (!wanted.empty())
    failure.why = "there is no " + words.kind + " with the serial number, location or name '" +
                  name + "'" + (list.empty() ? "" : "; " + words.state + ": " + list);
  raise(std::move(failure));
}

bool isMakersCamera(const DeviceInfo& device) {
  return device.kind() == DeviceKind::kCamera && device.isOfMaker();
}

/// Those that `wanted` names by what the USB says, or else by what the cameras themselves do.
std::vector<DeviceInfo> namedDevices(Platform& platform, std::string_view wanted,
                                     const std::vector<DeviceInfo>& devices) {
  auto meant = fitting(devices, wanted);
  if (!meant.empty()) return meant;
  std::vector<DeviceInfo> cameras;
  for (const DeviceInfo& device : devices) {
    if (!isMakersCamera(device)) continue;
    auto camera = readDevice(platform, device.id());
    if (!camera) continue;
    camera->serial = ownSerial(platform, device.id());
    cameras.push_back(valueOf<DeviceInfo>(*std::move(camera)));
  }
  return fitting(cameras, wanted);
}

/// What is to be said where no camera is; a device in another mode is what is looked for, mostly.
ChoiceWords wordsWithoutCamera(Platform& platform, const std::vector<DeviceInfo>& devices) {
  ChoiceWords words = {.none = "no Tarvo device is connected"};
  const auto volume = std::ranges::find_if(devices, [](const DeviceInfo& device) {
    return device.kind() == DeviceKind::kVolume && device.isSupported();
  });
  if (volume != devices.end()) {
    words.none = volume->name() + " is a volume, which does not speak PTP";
    words.noneAdvice = "Its files are in " + volume->path() + ".";
    return words;
  }
  const auto units = presentUnits(platform);
  if (units.empty()) return words;
  words.none =
      units.front().description() + " shows itself as a disk, and none of its cards is mounted";
  words.noneAdvice = "Switch it to camera mode, or mount its card.";
  return words;
}

DeviceInfo cameraAmong(const std::vector<DeviceInfo>& devices, Platform& platform,
                       std::string_view wanted) {
  auto cameras = devices;
  if (!wanted.empty()) {
    std::erase_if(cameras, [](const auto& each) { return each.kind() != DeviceKind::kCamera; });
    auto meant = namedDevices(platform, wanted, cameras);
    // That a volume is none is said where it is opened.
    if (meant.empty()) meant = fitting(devices, wanted);
    return onlyOne(wanted, {}, devices, meant);
  }
  std::erase_if(cameras, [](const auto& each) { return !isMakersCamera(each); });
  return onlyOne(wanted, cameras.empty() ? wordsWithoutCamera(platform, devices) : ChoiceWords{},
                 cameras, cameras);
}

DeviceInfo volumeAmong(std::vector<DeviceInfo> volumes, std::string_view wanted) {
  std::erase_if(volumes, [](const DeviceInfo& device) { return device.path().empty(); });
  const bool isNamed = !wanted.empty() && !volumes.empty();
  return onlyOne(isNamed ? wanted : std::string_view(),
                 {.kind = "volume",
                  .none = "no card and no camera is mounted",
                  .noneAdvice = "Connect one, and mount it.",
                  .state = "mounted"},
                 volumes, isNamed ? fitting(volumes, wanted) : volumes);
}

}  // namespace

std::string inWords(const std::string& serial, const std::string& name,
                    std::optional<std::int32_t> location) {
  return (serial.empty() ? "(no serial number)" : serial) + " (" + name +
         (location ? ", location " + inHex(location) : "") + ")";
}

std::optional<DeviceInfo> presentDevice(Platform& platform, ICAObject object) {
  auto device = readDevice(platform, object);
  return device ? std::optional(valueOf<DeviceInfo>(*std::move(device))) : std::nullopt;
}

std::vector<DeviceInfo> presentDevices(Platform& platform) {
  auto& imageCapture = platform.services().imageCapture;
  std::vector<DeviceInfo> devices;
  ICAObject list = 0;
  std::uint32_t count = 0;
  Status headerErr = status::kOK;
  if (imageCapture.getDeviceList(list) != status::kOK) return devices;
  if (imageCapture.getChildCount(list, count, headerErr) != status::kOK) return devices;
  for (std::uint32_t index = 0; index < count; ++index) {
    ICAChildInfo child;
    if (imageCapture.getNthChild(list, index, child) != status::kOK) continue;
    if (const auto device = presentDevice(platform, child.object)) devices.push_back(*device);
  }
  return devices;
}

DeviceInfo chooseCamera(Platform& platform, std::string_view wanted) {
  return cameraAmong(presentDevices(platform), platform, wanted);
}

DeviceInfo chooseVolume(Platform& platform, std::string_view wanted) {
  return volumeAmong(presentDevices(platform), wanted);
}

DeviceInfo chooseDevice(Platform& platform, std::string_view wanted) {
  const auto devices = presentDevices(platform);
  if (!wanted.empty()) return onlyOne(wanted, {}, devices, namedDevices(platform, wanted, devices));
  const bool hasCamera = std::ranges::any_of(devices, isMakersCamera);
  const bool hasVolume =
      std::ranges::any_of(devices, [](const auto& each) { return !each.path().empty(); });
  return hasVolume && !hasCamera ? volumeAmong(devices, wanted)
                                 : cameraAmong(devices, platform, wanted);
}

UnitInfo chooseUnit(Platform& platform, std::string_view wanted) {
  const auto units = presentUnits(platform);
  return onlyOne(wanted,
                 {.kind = "unit",
                  .none = "no Tarvo device is connected that shows itself as a disk",
                  .noneAdvice = ""},
                 units, wanted.empty() ? units : fitting(units, wanted));
}

}  // namespace tarvo::library
