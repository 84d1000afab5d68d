#include "tools/access/ToolProcess.h"

#include <algorithm>
#include <utility>

#include "NativeServices/Logging.h"
#include "NativeServices/models/SupportedModels.h"
#include "identify/DeviceInfoSupport.h"
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

namespace tarvo::tools {
namespace {

/// What the platform says is beside the command, which reports its own failures; a user who looks
/// into something has it all.
LogSink toolSink(LogSink sink, bool isQuiet) {
  return [sink = std::move(sink), isQuiet](LogLevel level, std::string_view line) {
    const bool isAskedFor = LogCheck(kLogCameraVerbose) || LogCheck(kLogAppDebug);
    if (isAskedFor || (level >= LogLevel::kWarning && !isQuiet)) sink(level, line);
  };
}

/// A device may be silent as long as the user says, from its first word on and whatever it does;
/// getting back in step never takes longer.
ptp::Timeouts timeoutsFor(const GlobalOptions& options, Output& output,
                          const Interrupt& interrupt) {
  ptp::Timeouts timeouts;
  timeouts.interrupted = &interrupt.flag();
  timeouts.waiting = [&output] {
    output.message("The device is still at it; Ctrl-C ends the wait.");
  };
  // Who started a command waits for the rest of a film rather than for a plug to be pulled.
  timeouts.stale = std::chrono::minutes{1};
  if (!options.timeout) return timeouts;
  for (auto* limit : {&timeouts.bulk, &timeouts.firstWord, &timeouts.slow})
    *limit = *options.timeout;
  for (auto* limit : {&timeouts.control, &timeouts.recovery, &timeouts.takeOver})
    *limit = std::min(*limit, *options.timeout);
  return timeouts;
}

}  // namespace

struct ToolProcess::Base {
  explicit Base(const GlobalOptions& options)
      : log(toolSink(systemLog.sink(), options.quiet || options.json)),
        preferences(log, options.configFile) {}

  // To standard error even where there is a journal: whoever has typed the command is to see it.
  JournalLog systemLog{"tarvoctl", JournalLog::Destination::kStandardError};
  LogSink log;
  KeyFilePreferences preferences;
  LogState logState{preferences, systemLog};
  MakerConstants constants = MakerConstants::load(preferences, log);
  SupportedModels models{constants};
  GlibRunLoop loop{log};
};

// Each member stands on those above it.
struct ToolProcess::Devices {
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

/// Connects to the system bus for the first operation on a disk: no other command needs a bus.
class ToolDiskArbitration : public DiskArbitration {
 public:
  ToolDiskArbitration(RunLoop& loop, Registry& registry, const Interrupt& interrupt,
                      const LogSink& log)
      : systemBus_(loop, log), diskArbitration_(systemBus_, registry, &interrupt, log) {}

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

struct ToolProcess::MassStorage {
  MassStorage(Base& base, Devices& devices, const Interrupt& interrupt)
      : scsi(devices.registry, &interrupt.flag(), base.log),
        diskArbitration(base.loop, devices.registry, interrupt, base.log),
        identify({devices.imageCapture, devices.registry, devices.mounts}),
        room({devices.center, devices.registry, scsi, diskArbitration, devices.mounts,
              base.preferences, base.constants, base.log,
              defaultEncoding(base.preferences, base.log), stderr}) {}

  SgSCSIServices scsi;
  ToolDiskArbitration diskArbitration;
  IdentifyRoom identify;
  MSCRoom room;
};

ToolProcess::ToolProcess(const GlobalOptions& options, Output& output, const Interrupt& interrupt)
    : options_(options), output_(output), interrupt_(interrupt) {}

ToolProcess::~ToolProcess() = default;

ToolProcess::Base& ToolProcess::base() {
  if (!base_) base_ = std::make_unique<Base>(options_);
  return *base_;
}

const MakerConstants& ToolProcess::maker() {
  return base().constants;
}

SupportedModels& ToolProcess::models() {
  return base().models;
}

ToolProcess::Devices& ToolProcess::devices() {
  if (!devices_)
    devices_ = std::make_unique<Devices>(base(), timeoutsFor(options_, output_, interrupt_));
  return *devices_;
}

const PictureDeviceServices& ToolProcess::services() {
  return devices().room.services();
}

TarvoMSCDeviceList& ToolProcess::massStorage() {
  if (!massStorage_) massStorage_ = std::make_unique<MassStorage>(base(), devices(), interrupt_);
  return massStorage_->room.list();
}

}  // namespace tarvo::tools
