#include <algorithm>
#include <memory>
#include <optional>
#include <utility>

#include "NativeServices/Logging.h"
#include "NativeServices/models/SupportedModels.h"
#include "identify/DeviceInfoSupport.h"
#include "library/access/SessionState.h"
#include "msc/MSCRoom.h"
#include "platform/desktop/BusConnection.h"
#include "platform/desktop/ProcessRunningApplications.h"
#include "platform/diskarbitration/UDisks2DiskArbitration.h"
#include "platform/foundation/GlibRunLoop.h"
#include "platform/foundation/JournalLog.h"
#include "platform/foundation/KeyFilePreferences.h"
#include "platform/foundation/NotificationCenter.h"
#include "platform/foundation/UnixMountTable.h"
#include "platform/imagecapture/ImageCaptureService.h"
#include "platform/imagecapture/ptp/LibusbDevice.h"
#include "platform/iokit/SgSCSIServices.h"
#include "platform/iokit/UdevRegistry.h"

namespace tarvo::library {
namespace {

/// What the platform says is beside the call, which reports its own failures; a program that takes
/// the log, and a user who looks into something, has it all.
LogSink sinkOf(const SessionOptions::Data& options, JournalLog& systemLog) {
  LogSink sink = systemLog.sink();
  if (options.log)
    sink = [log = options.log](LogLevel level, std::string_view line) {
      log(static_cast<Severity>(level), line);
    };
  const bool isQuiet = options.quiet && !options.log;
  return [sink, isQuiet](LogLevel level, std::string_view line) {
    const bool isAskedFor = LogCheck(kLogCameraVerbose) || LogCheck(kLogAppDebug);
    if (isAskedFor || (level >= LogLevel::kWarning && !isQuiet)) sink(level, line);
  };
}

/// A device may be silent as long as the program says, from its first word on and whatever it does;
/// getting back in step never takes longer.
ptp::Timeouts timeoutsFor(const SessionOptions::Data& options, const Interrupt* interrupt) {
  ptp::Timeouts timeouts;
  timeouts.interrupted = interrupt ? &interrupt->flag() : nullptr;
  timeouts.waiting = options.waiting;
  // Who makes a call waits for the rest of a film rather than for a plug to be pulled.
  timeouts.stale = std::chrono::minutes{1};
  if (!options.timeout) return timeouts;
  for (auto* limit : {&timeouts.bulk, &timeouts.firstWord, &timeouts.slow})
    *limit = *options.timeout;
  for (auto* limit : {&timeouts.control, &timeouts.recovery, &timeouts.takeOver})
    *limit = std::min(*limit, *options.timeout);
  return timeouts;
}

/// Log, preferences, main loop, models.
struct Base {
  explicit Base(const SessionOptions::Data& options)
      : systemLog(options.name, JournalLog::Destination::kStandardError),
        log(sinkOf(options, systemLog)),
        preferences(log, options.preferences) {}

  // To standard error even where there is a journal: whoever runs the program is to see it.
  JournalLog systemLog;
  LogSink log;
  KeyFilePreferences preferences;
  LogState logState{preferences, systemLog};
  MakerConstants constants = MakerConstants::load(preferences, log);
  SupportedModels models{constants};
  GlibRunLoop loop{log};
};

/// What reaches devices. Each member stands on those above it.
struct Devices {
  Devices(Base& base, const ptp::Timeouts& timeouts)
      : base_(base), connector(std::make_unique<ptp::LibusbDeviceOpener>(), timeouts, base.log) {}

  Base& base_;
  NotificationCenter center;
  NotificationQueue queue{center, base_.loop};
  ProcessRunningApplications applications;
  UnixMountTable mounts{base_.preferences, base_.log};
  UdevRegistry registry{base_.loop, base_.log};
  ptp::LibusbConnector connector;
  ImageCaptureService imageCapture{registry, mounts, connector, base_.log};
  PictureDeviceRoom room{{center, queue, base_.loop, imageCapture, registry, mounts, applications,
                          base_.preferences, base_.constants, base_.log,
                          defaultEncoding(base_.preferences, base_.log)}};
};

/// Connects to the system bus for the first operation on a disk: nothing else needs a bus.
class SessionDiskArbitration : public DiskArbitration {
 public:
  SessionDiskArbitration(RunLoop& loop, Registry& registry, const Interrupt* interrupt,
                         const LogSink& log)
      : systemBus_(loop, log), diskArbitration_(systemBus_, registry, interrupt, log) {}

  std::unique_ptr<DASession> createSession() override {
    if (!std::exchange(isStarted_, true)) {
      systemBus_.start();
      systemBus_.waitUntilSettled();
    }
    return diskArbitration_.createSession();
  }
  bool isInterrupted() const override { return diskArbitration_.isInterrupted(); }

 private:
  SystemBus systemBus_;
  UDisks2DiskArbitration diskArbitration_;
  bool isStarted_ = false;
};

/// What reaches units and their disks.
struct MassStorage {
  MassStorage(Base& base, Devices& devices, const Interrupt* interrupt)
      : scsi(devices.registry, interrupt ? &interrupt->flag() : nullptr, base.log),
        diskArbitration(base.loop, devices.registry, interrupt, base.log),
        identify({devices.imageCapture, devices.registry, devices.mounts}),
        room({devices.center, devices.registry, scsi, diskArbitration, devices.mounts,
              base.preferences, base.constants, base.log,
              defaultEncoding(base.preferences, base.log), stderr}) {}

  SgSCSIServices scsi;
  SessionDiskArbitration diskArbitration;
  IdentifyRoom identify;
  MSCRoom room;
};

class ProcessPlatform : public Platform {
 public:
  explicit ProcessPlatform(const SessionOptions::Data& options) : options_(options) {}

  const MakerConstants& maker() override { return base().constants; }
  SupportedModels& models() override { return base().models; }
  const PictureDeviceServices& services() override { return devices().room.services(); }
  TarvoMSCDeviceList& massStorage() override {
    if (!massStorage_) massStorage_.emplace(base(), devices(), interrupt());
    return massStorage_->room.list();
  }
  const Interrupt* interrupt() const override {
    return options_.stop ? &options_.stop->signals() : nullptr;
  }

 private:
  Base& base() { return base_ ? *base_ : base_.emplace(options_); }
  Devices& devices() {
    return devices_ ? *devices_ : devices_.emplace(base(), timeoutsFor(options_, interrupt()));
  }

  SessionOptions::Data options_;
  std::optional<Base> base_;
  std::optional<Devices> devices_;
  std::optional<MassStorage> massStorage_;
};

}  // namespace

std::unique_ptr<Platform> makeProcessPlatform(const SessionOptions::Data& options) {
  return std::make_unique<ProcessPlatform>(options);
}

}  // namespace tarvo::library
