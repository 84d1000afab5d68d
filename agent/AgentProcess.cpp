#include "agent/AgentProcess.h"

#include <csignal>
#include <cstdio>
#include <utility>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "NativeServices/models/SupportedModels.h"
#include "Utilities/Exception.h"
#include "Utilities/Format.h"
#include "agent/AgentStatus.h"
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

}  // namespace tarvo
