#include "agent/AgentProcess.h"

#include <csignal>
#include <cstdio>
#include <string_view>
#include <utility>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "NativeServices/models/SupportedModels.h"
#include "Utilities/Exception.h"
#include "Utilities/Format.h"
#include "agent/AgentInterface.h"
#include "agent/ListenerMain.h"
#include "identify/DeviceInfoSupport.h"
#include "msc/MSCRoom.h"
#include "platform/desktop/BusConnection.h"
#include "platform/desktop/DBusNotificationCenter.h"
#include "platform/desktop/LogindSessionMonitor.h"
#include "platform/desktop/ProcessRunningApplications.h"
#include "platform/diskarbitration/UDisks2DiskArbitration.h"
#include "platform/foundation/GlibRunLoop.h"
#include "platform/foundation/JournalLog.h"
#include "platform/foundation/KeyFilePreferences.h"
#include "platform/foundation/MainLoopGuard.h"
#include "platform/foundation/NotificationCenter.h"
#include "platform/foundation/ProcessSearch.h"
#include "platform/foundation/SpawnedTask.h"
#include "platform/foundation/UnixMountTable.h"
#include "platform/imagecapture/ImageCaptureService.h"
#include "platform/imagecapture/ptp/LibusbDevice.h"
#include "platform/iokit/SgSCSIServices.h"
#include "platform/iokit/UdevRegistry.h"

namespace tarvo {

namespace {

// What the platform tells about each device that comes and goes is for who looks into it, and would
// bury the few lines that a user needs. Before the preferences have been read it is dropped.
LogSink withoutUnaskedDetails(LogSink sink) {
  return [sink = std::move(sink)](LogLevel level, std::string_view line) {
    if (level != LogLevel::kDebug || LogCheck(kLogCameraVerbose) || LogCheck(kLogAppDebug))
      sink(level, line);
  };
}

/// At most 5 seconds for a device that is silent, and 8 for all that one is asked when it arrives,
/// of which opening it may take one; what ends the agent is heard within one.
ptp::Timeouts arrivalTimeouts(const Interrupt& interrupt) {
  ptp::Timeouts timeouts;
  timeouts.whole = std::chrono::seconds{7};
  timeouts.leaving = std::chrono::milliseconds{300};
  timeouts.interrupted = &interrupt.flag();
  return timeouts;
}

}  // namespace

// What the process needs before it may touch a device. The log comes first: everything else speaks
// through it, the preferences while they are being read.
struct AgentProcess::Base {
  Base(const AgentOptions& options, std::function<AgentStatus::Values()> readStatus)
      : preferences(log, options.configFile), status(loop, std::move(readStatus), log) {}

  // What the agent writes is for its user alone, and no core file holds what devices have sent;
  // children get what this process was started with.
  Inheritance forChildren = exchangeInheritance({0077, 0});
  JournalLog systemLog;
  LogSink log = withoutUnaskedDetails(systemLog.sink());
  KeyFilePreferences preferences;
  LogState logState{preferences, systemLog};
  MakerConstants constants = MakerConstants::load(preferences, log);
  GlibRunLoop loop{log};
  SessionBus sessionBus{loop, log};
  AgentStatus status;
  AgentName name{sessionBus, log, [this] { loop.quit(); }};
};

// The platform, and upon it the rooms and the Listener: each member stands on those above it, and
// goes before them, so that nobody calls into a service that has gone.
// Made after the name is owned: making the registry and the sources is what brings the first
// arrivals.
struct AgentProcess::Devices {
  explicit Devices(Base& base) : base_(base) {}
  void arm();

  Base& base_;
  NotificationCenter center;
  NotificationCenter workspaceCenter;
  NotificationQueue queue{center, base_.loop};
  DBusNotificationCenter distributedCenter{base_.sessionBus, base_.log};
  SystemBus systemBus{base_.loop, base_.log};
  LogindSessionMonitor session{systemBus, base_.log};
  SpawnedTaskFactory tasks{center, base_.log, base_.forChildren};
  ApplicationScopes scopes{base_.sessionBus, base_.log};
  ProcessRunningApplications applications{DesktopEntries(), "/proc", &scopes};
  UnixMountTable mounts{base_.preferences, base_.log};
  UdevRegistry registry{base_.loop, base_.log};
  ptp::LibusbConnector connector{std::make_unique<ptp::LibusbDeviceOpener>(),
                                 arrivalTimeouts(*base_.loop.interrupt()), base_.log};
  ImageCaptureService imageCapture{registry, mounts, connector, base_.log};
  SgSCSIServices scsi{registry, &base_.loop.interrupt()->flag(), base_.log};
  UDisks2DiskArbitration diskArbitration{systemBus, registry, base_.loop.interrupt(), base_.log};
  // Read once, so that all rooms read the cards of one session alike.
  std::string encoding = defaultEncoding(base_.preferences, base_.log);

  SupportedModels models{base_.constants};
  PictureDeviceRoom pictureDevices{{center, queue, base_.loop, imageCapture, registry, mounts,
                                    applications, base_.preferences, base_.constants, base_.log,
                                    encoding}};
  IdentifyRoom identify{{imageCapture, registry, mounts}};
  MSCRoom massStorage{{center, registry, scsi, diskArbitration, mounts, base_.preferences,
                       base_.constants, base_.log, encoding}};
  std::unique_ptr<Listener> listener;
};

void AgentProcess::Devices::arm() {
  // Read now, so that an arrival need not wait for it, and a user learns early what is missing.
  models.getValidDscPids();
  if (!models.pidList())
    logTo(base_.log, LogLevel::kWarning,
          "No camera will be recognised: the list of supported models cannot be read from " +
              base_.constants.agentBundlePath + "/Resources/ggcam.inf");
  const std::string& relay = base_.constants.relayBundleIdentifier;
  if (!applications.hasDesktopEntry(relay))
    // Only a warning: a Relay that the agent itself has started is known without it.
    logTo(
        base_.log, LogLevel::kWarning,
        "A Relay application that somebody else starts will not be recognised: no desktop entry " +
            relay + ".desktop names a program that is installed");
  // Before the Listener observes: its handler may raise, and later ones are not called then.
  for (const char* name : {"DeviceAdded", "DeviceRemoved"})
    center.addObserver(&base_.status, name, [this](const Notification&) { base_.status.update(); });
  // The bus is waited for, since a unit that is attached may have to be unmounted at once, and
  // before anything is asked on it whose answer the Listener would miss. logind's answer is not
  // waited for: until it comes, and without it, the session counts as active.
  systemBus.start();
  systemBus.waitUntilSettled();
  session.start(workspaceCenter);
  const std::int32_t version = systemVersion(base_.preferences, base_.log);
  listener =
      Listener::init({center, workspaceCenter, distributedCenter, base_.loop, tasks, applications,
                      imageCapture, base_.constants, static_cast<std::uint32_t>(version), base_.log,
                      [this] { base_.status.update(); }});
}

AgentProcess::AgentProcess(AgentOptions options) : options_(std::move(options)) {}

AgentProcess::~AgentProcess() = default;

int AgentProcess::run() {
  // A log or a bus whose other end closes must not end the agent.
  std::signal(SIGPIPE, SIG_IGN);
  try {
    base_ = std::make_unique<Base>(options_, [this] { return statusNow(); });
  } catch (const Exception& exception) {
    // There is no log yet, and whoever gave the file reads standard error.
    std::fprintf(stderr, "tarvo-agent: %s\n", exception.reason().c_str());
    // A file of preferences that was named and cannot be read is a mistake on the command line.
    return kExitUsage;
  }
  base_->loop.quitOnTerminationSignals();
  if (!ownName()) return kExitNameRefused;
  if (!armListener()) {
    systemLogLine("Failed to alloc listener");
    // Not a failure that a restart would mend, so that systemd does not try again.
    return kExitNormal;
  }
  base_->status.update();
  logTo(base_->log, LogLevel::kInfo, "tarvo-agent " + options_.version + " ready");
  base_->loop.run();
  return base_->name.isRefused() ? kExitNameRefused : kExitNormal;
}

// Nothing may reach a device before: a second agent must not launch anything. Where there is no bus
// there is nobody to ask; the name is claimed when the bus comes.
bool AgentProcess::ownName() {
  // Registered before the name is claimed, so that the object is there when the name is.
  base_->sessionBus.addObserver(
      &base_->status,
      [this](GDBusConnection* connection) { (void)base_->status.attach(connection); },
      [this] { base_->status.detach(); });
  base_->sessionBus.start();
  base_->sessionBus.waitUntilSettled();
  base_->name.claim();
  return !base_->name.isRefused();
}

bool AgentProcess::armListener() {
  // What a device brings about while the agent starts must not end it.
  guardedEntry(base_->log, "init", [this] {
    devices_ = std::make_unique<Devices>(*base_);
    devices_->arm();
  });
  return devices_ && devices_->listener;
}

AgentStatus::Values AgentProcess::statusNow() const {
  // Asked of the bus before the devices are there: everything is still false and empty.
  if (!devices_ || !devices_->listener) return {};
  const Listener& listener = *devices_->listener;
  const auto busySince = listener.wirelessBusySince().value_or(AppBlocker::Clock::time_point());
  const auto since1970 =
      std::chrono::duration_cast<std::chrono::microseconds>(busySince.time_since_epoch());
  return {listener.isActive(),        listener.relayIsRunning(),
          listener.wirelessIsBusy(),  static_cast<std::uint64_t>(since1970.count()),
          listener.recoveryIsArmed(), presentDevices()};
}

namespace {

// The agent does nothing meanwhile; a bus that works answers within a few milliseconds.
constexpr int kAnswerTimeoutMs = 2000;

// Flags and answers of org.freedesktop.DBus.RequestName (D-Bus specification).
constexpr guint32 kDoNotQueue = 4;
constexpr guint32 kNameExists = 3;

GVariantPtr askBus(GDBusConnection* connection, const char* method, GVariant* arguments,
                   GErrorHolder& error) {
  return GVariantPtr(
      g_dbus_connection_call_sync(connection, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                  "org.freedesktop.DBus", method, arguments, G_VARIANT_TYPE("(u)"),
                                  G_DBUS_CALL_FLAGS_NONE, kAnswerTimeoutMs, nullptr, error.out()));
}

// Whoever it is, the user can look into it: any process of theirs may take the name first.
std::string ownerOfAgentName(GDBusConnection* connection) {
  GErrorHolder error;
  const GVariantPtr answer =
      askBus(connection, "GetConnectionUnixProcessID", g_variant_new("(s)", kAgentBusName), error);
  if (!answer) return "a process that cannot be named: " + error.message();
  guint32 pid = 0;
  g_variant_get(answer.get(), "(u)", &pid);
  return formatted("process %u: %s", pid, commandOfProcess(static_cast<pid_t>(pid)).c_str());
}

}  // namespace

AgentName::AgentName(BusConnection& bus, LogSink log, std::function<void()> refused)
    : bus_(bus), log_(std::move(log)), whenRefused_(std::move(refused)) {}

AgentName::~AgentName() {
  bus_.removeObserver(this);
}

void AgentName::claim() {
  bus_.addObserver(this, [this](GDBusConnection* connection) { claimOn(connection); }, {});
}

void AgentName::claimOn(GDBusConnection* connection) {
  refused_ = false;
  // Asked directly: g_bus_own_name would answer from the main loop, after the first arrivals, and
  // would not tell a name that is refused from a bus that fails.
  GErrorHolder error;
  const GVariantPtr answer =
      askBus(connection, "RequestName", g_variant_new("(su)", kAgentBusName, kDoNotQueue), error);
  if (answer) {
    guint32 result = 0;
    g_variant_get(answer.get(), "(u)", &result);
    // Otherwise it is owned now, or was already.
    if (result == kNameExists)
      refused(formatted("The name %s on the session bus is owned already, by %s", kAgentBusName,
                        ownerOfAgentName(connection).c_str()));
    return;
  }
  // What the bus itself answers is a refusal; the bus that does not answer gives an error of GIO.
  const bool isAnswered = g_dbus_error_is_remote_error(error.get()) != 0;
  const std::string words =
      formatted("The name %s cannot be owned: %s", kAgentBusName, error.message().c_str());
  if (isAnswered) {
    refused(words);
  } else {
    logTo(log_, LogLevel::kWarning, words);
  }
}

void AgentName::refused(const std::string& why) {
  refused_ = true;
  logTo(log_, LogLevel::kError, why);
  if (whenRefused_) whenRefused_();
}

namespace {

using Values = AgentStatus::Values;

// A serial number or a path may hold bytes that are no UTF-8, which D-Bus does not carry.
GVariant* textVariant(const std::string& text) {
  return g_variant_new_take_string(
      g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
}

GVariant* devicesVariant(const Values& values) {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE("a(siss)"));
  for (const AgentStatus::Device& device : values.devices) {
    g_variant_builder_add(&builder, "(@si@s@s)", textVariant(device.type), device.location,
                          textVariant(device.path), textVariant(device.serialNumber));
  }
  return g_variant_builder_end(&builder);
}

struct Property {
  std::string_view name;
  GVariant* (*variant)(const Values&);
  bool (*differs)(const Values&, const Values&);
};

template <auto Member>
bool differs(const Values& a, const Values& b) {
  return a.*Member != b.*Member;
}

template <auto Member>
GVariant* boolVariant(const Values& values) {
  return g_variant_new_boolean(values.*Member);
}

template <auto Member>
constexpr Property boolProperty(std::string_view name) {
  return {name, boolVariant<Member>, differs<Member>};
}

GVariant* busySinceVariant(const Values& values) {
  return g_variant_new_uint64(values.wirelessBusySince);
}

// In the order of the interface's description.
constexpr Property kProperties[] = {
    boolProperty<&Values::active>("Active"),
    boolProperty<&Values::relayRunning>("RelayRunning"),
    boolProperty<&Values::wirelessBusy>("WirelessBusy"),
    {"WirelessBusySince", busySinceVariant, differs<&Values::wirelessBusySince>},
    boolProperty<&Values::recoveryArmed>("RecoveryArmed"),
    {"Devices", devicesVariant, differs<&Values::devices>},
};

GVariant* getProperty(GDBusConnection*, const char*, const char*, const char*, const char* name,
                      GError** error, gpointer status) {
  for (const Property& property : kProperties) {
    if (property.name == name)
      return property.variant(static_cast<const AgentStatus*>(status)->values());
  }
  g_set_error(error, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_PROPERTY, "No property %s", name);
  return nullptr;
}

// GDBus checks names, types and access against the description before it calls; nothing can be set.
constexpr GDBusInterfaceVTable kVTable = {nullptr, getProperty, nullptr, {}};

using NodeInfo = std::unique_ptr<GDBusNodeInfo, GlibRelease<g_dbus_node_info_unref>>;

}  // namespace

AgentStatus::AgentStatus(RunLoop& loop, std::function<Values()> read, LogSink log)
    : loop_(loop), read_(std::move(read)), log_(std::move(log)) {}

AgentStatus::~AgentStatus() {
  detach();
}

bool AgentStatus::attach(GDBusConnection* connection) {
  // A bus that has come back is another connection.
  detach();
  const NodeInfo node(g_dbus_node_info_new_for_xml(kAgentInterfaceXML, nullptr));
  GErrorHolder error;
  registration_ = g_dbus_connection_register_object(
      connection, kAgentObjectPath, g_dbus_node_info_lookup_interface(node.get(), kAgentInterface),
      &kVTable, this, nullptr, error.out());
  if (registration_ == 0) {
    logTo(log_, LogLevel::kWarning,
          formatted("The status object cannot be shown on the bus: %s", error.message().c_str()));
    return false;
  }
  connection_ = retained(connection);
  return true;
}

void AgentStatus::detach() {
  if (!connection_) return;
  g_dbus_connection_unregister_object(connection_.get(), std::exchange(registration_, 0));
  connection_.reset();
}

// Read when idle, because reading looks at mount points and an arrival must not wait for that.
void AgentStatus::update() {
  // Several changes of one arrival are one signal.
  if (std::exchange(updatePending_, true)) return;
  loop_.performWhenIdle([this, alive = std::weak_ptr(alive_)] {
    if (alive.expired()) return;
    updatePending_ = false;
    refresh();
  });
}

void AgentStatus::refresh() {
  const Values before = std::exchange(values_, read_());
  if (connection_ && values_ != before) announce(before);
}

void AgentStatus::announce(const Values& before) const {
  GVariantBuilder changed;
  g_variant_builder_init(&changed, G_VARIANT_TYPE("a{sv}"));
  for (const Property& property : kProperties) {
    if (property.differs(values_, before))
      g_variant_builder_add(&changed, "{sv}", property.name.data(), property.variant(values_));
  }
  // A closed connection refuses the signal; its end is reported where the bus is watched.
  g_dbus_connection_emit_signal(connection_.get(), nullptr, kAgentObjectPath,
                                "org.freedesktop.DBus.Properties", "PropertiesChanged",
                                g_variant_new("(sa{sv}as)", kAgentInterface, &changed, nullptr),
                                nullptr);
}

// Asked anew each time: what a device is may show later than its arrival (a volume that is
// mounted), and nothing has to be kept in step.
std::vector<AgentStatus::Device> presentDevices() {
  const SupportedModels* models = SupportedModels::current();
  std::vector<AgentStatus::Device> shown;
  for (const auto& device : XTPictureDevice::deviceList()) {
    AgentStatus::Device& row = shown.emplace_back();
    row.serialNumber = device->serialNumber();
    // Without the list of models each look at a camera would try, and log, its reading once more.
    if (device->isPTPDevice() && (!models || !models->pidList())) continue;
    DeviceInfoSupport::getInfoForDevice(device, &row.type, &row.location, &row.path);
  }
  return shown;
}

}  // namespace tarvo
