#include <map>
#include <ostream>
#include <utility>

#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "NativeServices/models/SupportedModels.h"
#include "Utilities/Printable.h"
#include "library/access/DeviceState.h"
#include "library/access/SessionState.h"
#include "library/access/UnitState.h"
#include "platform/foundation/MainLoopGuard.h"
#include "platform/foundation/MakerConstants.h"
#include "tarvo/Device.h"
#include "tarvo/Units.h"

namespace tarvo {

using namespace library;

DeviceKind DeviceInfo::kind() const {
  return data_->summary.speaksPTP ? DeviceKind::kCamera : DeviceKind::kVolume;
}
const std::string& DeviceInfo::name() const { return data_->summary.name; }
const std::string& DeviceInfo::serial() const { return data_->summary.serial; }
std::optional<std::int32_t> DeviceInfo::location() const { return data_->summary.location; }
std::uint16_t DeviceInfo::vendor() const {
  return static_cast<std::uint16_t>(data_->summary.vendor);
}
std::uint16_t DeviceInfo::product() const {
  return static_cast<std::uint16_t>(data_->summary.product);
}
const std::string& DeviceInfo::path() const { return data_->summary.path; }
bool DeviceInfo::isOfMaker() const { return data_->summary.isOfMaker; }
bool DeviceInfo::isSupported() const { return data_->summary.isSupported; }
std::uint32_t DeviceInfo::id() const { return data_->summary.object; }
std::string DeviceInfo::description() const { return data_->description; }

std::ostream& operator<<(std::ostream& out, const DeviceInfo& info) {
  return out << printable(info.description());
}

StopSignals::StopSignals() : signals_(std::make_unique<Signals>()) {}
StopSignals::~StopSignals() = default;

bool StopSignals::isSet() const noexcept { return signals_->isSet(); }

SessionOptions::SessionOptions() : data_(std::make_shared<Data>()) {}

SessionOptions& SessionOptions::timeout(std::chrono::milliseconds most) {
  ownOf(data_).timeout = most;
  return *this;
}
SessionOptions& SessionOptions::stopBy(const StopSignals& signals) {
  ownOf(data_).stop = &signals;
  return *this;
}
SessionOptions& SessionOptions::log(std::function<void(Severity, std::string_view)> sink) {
  ownOf(data_).log = std::move(sink);
  return *this;
}
SessionOptions& SessionOptions::quiet(bool is) {
  ownOf(data_).quiet = is;
  return *this;
}
SessionOptions& SessionOptions::name(std::string program) {
  ownOf(data_).name = std::move(program);
  return *this;
}
SessionOptions& SessionOptions::preferences(std::string file) {
  ownOf(data_).preferences = std::move(file);
  return *this;
}
SessionOptions& SessionOptions::mainContext(_GMainContext* context) {
  ownOf(data_).context = {g_main_context_ref(context), g_main_context_unref};
  return *this;
}
SessionOptions& SessionOptions::whileWaiting(std::function<void()> waiting) {
  ownOf(data_).waiting = std::move(waiting);
  return *this;
}

Subscription::Subscription() = default;
Subscription::Subscription(std::shared_ptr<void> hold) : hold_(std::move(hold)) {}
Subscription::Subscription(Subscription&&) noexcept = default;
Subscription& Subscription::operator=(Subscription&&) noexcept = default;
Subscription::~Subscription() = default;

Session::Session(const SessionOptions& options) {
  try {
    state_ = std::make_shared<SessionState>(options.data());
  } catch (const Error& error) {
    throw named(error, "Session");
  } catch (...) {
    throw errorOfRaised("Session");
  }
}

Session::Session(std::shared_ptr<SessionState> state) : state_(std::move(state)) {}

Session::~Session() { state_->end(); }

std::vector<DeviceInfo> Session::devices() {
  return entered(state_, "devices", [&] {
    state_->catchUp();
    std::vector<DeviceInfo> infos;
    for (auto& summary : presentDevices(state_->platform()))
      infos.push_back(deviceInfo(std::move(summary)));
    return infos;
  });
}

std::vector<UnitInfo> Session::units() {
  return entered(state_, "units", [&] {
    state_->catchUp();
    std::vector<UnitInfo> infos;
    for (const auto& summary : presentUnits(state_->platform()))
      infos.push_back(unitInfo(summary));
    return infos;
  });
}

DeviceInfo Session::findCamera(std::string_view wanted) {
  return entered(state_, "findCamera",
                 [&] { return deviceInfo(chooseCamera(state_->platform(), std::string(wanted))); });
}

DeviceInfo Session::findDevice(std::string_view wanted) {
  return entered(state_, "findDevice",
                 [&] { return deviceInfo(chooseDevice(state_->platform(), std::string(wanted))); });
}

DeviceInfo Session::findVolume(std::string_view wanted) {
  return entered(state_, "findVolume",
                 [&] { return deviceInfo(chooseVolume(state_->platform(), std::string(wanted))); });
}

UnitInfo Session::findUnit(std::string_view wanted) {
  return entered(state_, "findUnit",
                 [&] { return unitInfo(chooseUnit(state_->platform(), std::string(wanted))); });
}

Device Session::open(const DeviceInfo& info) {
  return entered(state_, "open", [&] {
    auto summary = summaryOf(state_->platform(), info.id());
    if (!summary) raise({.object = info.description(), .status = status::kICADeviceGone});
    return Device(std::make_shared<DeviceState>(state_, std::move(*summary)));
  });
}

Device Session::openCamera(std::string_view wanted) { return open(findCamera(wanted)); }

Device Session::openVolume(std::string_view wanted) { return open(findVolume(wanted)); }

Unit Session::open(const UnitInfo& info) {
  return entered(state_, "open", [&] { return Unit(std::make_shared<UnitState>(state_, info)); });
}

namespace {

/// What onDevice() stands for.
class DeviceWatch {
 public:
  using Told = std::function<void(Presence, const DeviceInfo&)>;

  DeviceWatch(std::shared_ptr<SessionState> state, Told told)
      : state_(std::move(state)), told_(std::move(told)) {
    listen(ica::kDeviceAdded, [this](const ICAEvent& event) { came(event.object); });
    listen(ica::kDeviceRemoved, [this](const ICAEvent& event) { went(event.object); });
    for (auto& summary : presentDevices(state_->platform())) {
      const ICAObject object = summary.object;
      known_.emplace(object, deviceInfo(std::move(summary)));
    }
  }
  ~DeviceWatch() {
    if (state_->isOver()) return;
    listen(ica::kDeviceAdded, {});
    listen(ica::kDeviceRemoved, {});
  }
  DeviceWatch(const DeviceWatch&) = delete;
  DeviceWatch& operator=(const DeviceWatch&) = delete;

 private:
  void listen(FourCharCode type, ImageCapture::EventCallback callback) {
    // Of all devices, which is never refused.
    (void)state_->platform().services().imageCapture.registerForEventNotification(
        0, type, std::move(callback));
  }

  void came(ICAObject object) {
    auto summary = summaryOf(state_->platform(), object);
    if (!summary) return;
    const auto info = deviceInfo(std::move(*summary));
    known_.insert_or_assign(object, info);
    tell(Presence::kCame, info);
  }
  /// Its properties have gone with it, so that what was known of it is told.
  void went(ICAObject object) {
    const auto known = known_.find(object);
    if (known == known_.end()) return;
    const DeviceInfo info = known->second;
    known_.erase(known);
    tell(Presence::kWent, info);
  }
  void tell(Presence presence, const DeviceInfo& info) {
    // What is called may let go of the subscription, and of the session.
    const auto state = state_;
    const auto told = told_;
    state->tell([&] { told(presence, info); });
  }

  std::shared_ptr<SessionState> state_;
  Told told_;
  std::map<ICAObject, DeviceInfo> known_;
};

}  // namespace

Subscription Session::onDevice(
    std::function<void(Presence presence, const DeviceInfo& info)> told) {
  return entered(state_, "onDevice", [&] {
    return Subscription(std::make_shared<DeviceWatch>(state_, std::move(told)));
  });
}

int Session::fd() {
  return entered(state_, "fd", [&] { return state_->pollDescriptor(); });
}

bool Session::dispatch() {
  return entered(state_, "dispatch", [&] { return state_->dispatch(); });
}

bool Session::wait(std::chrono::milliseconds most) {
  return entered(state_, "wait", [&] { return state_->wait(most); });
}

bool Session::isSupportedCamera(std::uint16_t vendor, std::uint16_t product) {
  return entered(state_, "isSupportedCamera", [&] {
    if (vendor == makerVendor() && !isSupportedVolume(vendor, product)) supportedCameras();
    return state_->platform().models().isValidDscVid(vendor, product);
  });
}

bool Session::isSupportedVolume(std::uint16_t vendor, std::uint16_t product) {
  return entered(state_, "isSupportedVolume",
                 [&] { return state_->platform().models().isValidPVC(vendor, product); });
}

std::vector<std::uint16_t> Session::supportedCameras() {
  return entered(state_, "supportedCameras", [&] {
    SupportedModels& models = state_->platform().models();
    models.getValidDscPids();
    if (!models.pidList())
      raise({.status = status::kFileNotFound,
             .why = "the list of models cannot be read from " +
                    state_->platform().maker().agentBundlePath + "/Resources/ggcam.inf",
             .advice = "Install tarvo, or set TARVO_AGENT_BUNDLE to the agent's bundle.",
             .kind = ErrorKind::kHost});
    // The file may name an id twice.
    std::vector<std::uint16_t> products(models.pidList()->begin(), models.pidList()->end());
    std::ranges::sort(products);
    products.erase(std::unique(products.begin(), products.end()), products.end());
    return products;
  });
}

std::uint16_t Session::makerVendor() {
  return entered(state_, "makerVendor", [&] {
    return static_cast<std::uint16_t>(state_->platform().maker().usbVendorID);
  });
}

}  // namespace tarvo
