#include "tarvo/Session.h"

#include <map>
#include <ostream>
#include <set>
#include <utility>

#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "NativeServices/models/SupportedModels.h"
#include "Utilities/Printable.h"
#include "library/access/DeviceChoice.h"
#include "library/access/DeviceState.h"
#include "platform/foundation/MakerConstants.h"

namespace tarvo {

using namespace library;

DeviceKind DeviceInfo::kind() const { return data_->kind; }
const std::string& DeviceInfo::name() const { return data_->name; }
const std::string& DeviceInfo::serial() const { return data_->serial; }
std::optional<std::int32_t> DeviceInfo::location() const { return data_->location; }
std::uint16_t DeviceInfo::vendor() const { return static_cast<std::uint16_t>(data_->vendor); }
std::uint16_t DeviceInfo::product() const { return static_cast<std::uint16_t>(data_->product); }
const std::string& DeviceInfo::path() const { return data_->path; }
bool DeviceInfo::isOfMaker() const { return data_->isOfMaker; }
bool DeviceInfo::isSupported() const { return data_->isSupported; }
std::uint32_t DeviceInfo::id() const { return data_->object; }
std::string DeviceInfo::description() const {
  return inWords(data_->serial, data_->name, data_->location);
}

std::ostream& operator<<(std::ostream& out, const DeviceInfo& info) {
  return out << printable(info.description());
}

StopSignals::StopSignals() : signals_(std::make_unique<Signals>()) {}
StopSignals::~StopSignals() = default;

bool StopSignals::isSet() const noexcept { return signals_->isSet(); }

SessionOptions::SessionOptions() : data_(std::make_shared<Data>()) {}

SessionOptions& SessionOptions::timeout(std::chrono::milliseconds most) {
  return set<&Data::timeout>(*this, data_, most);
}
SessionOptions& SessionOptions::stopBy(const StopSignals& signals) {
  return set<&Data::stop>(*this, data_, &signals);
}
SessionOptions& SessionOptions::log(std::function<void(Severity, std::string_view)> sink) {
  return set<&Data::log>(*this, data_, std::move(sink));
}
SessionOptions& SessionOptions::quiet(bool is) { return set<&Data::quiet>(*this, data_, is); }
SessionOptions& SessionOptions::name(std::string program) {
  return set<&Data::name>(*this, data_, std::move(program));
}
SessionOptions& SessionOptions::preferences(std::string file) {
  return set<&Data::preferences>(*this, data_, std::move(file));
}
SessionOptions& SessionOptions::mainContext(_GMainContext* context) {
  using Owner = std::shared_ptr<GMainContext>;
  return set<&Data::context>(*this, data_,
                             Owner(g_main_context_ref(context), g_main_context_unref));
}
SessionOptions& SessionOptions::whileWaiting(std::function<void()> waiting) {
  return set<&Data::waiting>(*this, data_, std::move(waiting));
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
    return presentDevices(state_->platform());
  });
}

std::vector<UnitInfo> Session::units() {
  return entered(state_, "units", [&] {
    state_->catchUp();
    return presentUnits(state_->platform());
  });
}

DeviceInfo Session::findCamera(std::string_view wanted) {
  return entered(state_, "findCamera", [&] { return chooseCamera(state_->platform(), wanted); });
}

DeviceInfo Session::findDevice(std::string_view wanted) {
  return entered(state_, "findDevice", [&] { return chooseDevice(state_->platform(), wanted); });
}

DeviceInfo Session::findVolume(std::string_view wanted) {
  return entered(state_, "findVolume", [&] { return chooseVolume(state_->platform(), wanted); });
}

UnitInfo Session::findUnit(std::string_view wanted) {
  return entered(state_, "findUnit", [&] { return chooseUnit(state_->platform(), wanted); });
}

Device Session::open(const DeviceInfo& info) {
  return entered(state_, "open", [&] {
    auto present = presentDevice(state_->platform(), info.id());
    if (!present) raise({.object = info.description(), .status = status::kICADeviceGone});
    return Device(std::make_shared<DeviceState>(state_, *std::move(present)));
  });
}

Device Session::openCamera(std::string_view wanted) { return open(findCamera(wanted)); }

Device Session::openVolume(std::string_view wanted) { return open(findVolume(wanted)); }

namespace {

/// What onDevice() stands for.
class DeviceWatch {
 public:
  using Told = std::function<void(Presence, const DeviceInfo&)>;

  DeviceWatch(std::shared_ptr<SessionState> state, Told told)
      : state_(std::move(state)), told_(std::move(told)) {
    listen(ica::kDeviceAdded, [this](const ICAEvent& event) { came(event.object); });
    listen(ica::kDeviceRemoved, [this](const ICAEvent& event) { went(event.object); });
    for (const auto& info : presentDevices(state_->platform()))
      known_.emplace(info.id(), info);
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
    const auto info = presentDevice(state_->platform(), object);
    if (!info) return;
    known_.insert_or_assign(object, *info);
    tell(Presence::kCame, *info);
  }
  /// Its properties have gone with it, so that what was known of it is told.
  void went(ICAObject object) {
    if (const auto known = known_.extract(object)) tell(Presence::kWent, known.mapped());
  }
  void tell(Presence presence, const DeviceInfo& info) {
    // What is called may let go of the subscription.
    state_->tell([told = told_, &presence, &info] { told(presence, info); });
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
    const std::set<std::uint16_t> products(models.pidList()->begin(), models.pidList()->end());
    return std::vector(products.begin(), products.end());
  });
}

std::uint16_t Session::makerVendor() {
  return entered(state_, "makerVendor", [&] {
    return static_cast<std::uint16_t>(state_->platform().maker().usbVendorID);
  });
}

}  // namespace tarvo
