#include "platform/iokit/SgCommand.h"

#include <pthread.h>
#include <scsi/sg_pt.h>
#include <signal.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Utilities/Format.h"

namespace tarvo {
namespace {

using Direction = SCSITaskInterface::Direction;

/// The most that the kernel hands out (its length is one byte, in multiples of four).
/// A shorter area would cut descriptor-format sense data, in which the code we look for may stand
/// last.
constexpr std::size_t kLongestSense = 252;
/// Host statuses of the kernel's SCSI layer that have an IOKit status of their own; of the others
/// only a log can make something.
constexpr int kHostNoConnect = 0x01;
constexpr int kHostTimeOut = 0x03;

struct DestructPassThrough {
  void operator()(sg_pt_base* object) const { ::destruct_scsi_pt_obj(object); }
};
using PassThrough = std::unique_ptr<sg_pt_base, DestructPassThrough>;

std::uint8_t* bytes(std::span<std::byte> area) {
  return reinterpret_cast<std::uint8_t*>(area.data());
}

/// " 55 00 11": pages whole, anything longer by its beginning.
std::string hexText(std::span<const std::byte> area) {
  constexpr std::size_t kMost = 256;
  std::string text;
  for (const std::byte byte : area.first(std::min(area.size(), kMost)))
    text += formatted(" %02x", std::to_integer<unsigned>(byte));
  return area.size() > kMost ? text + " ..." : text;
}

/// A residual is what the unit claims; it may be anything.
std::size_t bytesMoved(const SgCommand& command, int residual) {
  if (command.direction == Direction::kNone || residual < 0) return command.data.size();
  // A residual larger than the data would be bytes that came before they were sent.
  return command.data.size() - std::min(command.data.size(), static_cast<std::size_t>(residual));
}

Status deliveryStatus(const sg_pt_base* object) {
  // A status other than GOOD is an answer of the unit; only what never reached it is a failure
  // here.
  if (::get_scsi_pt_result_category(object) != SCSI_PT_RESULT_TRANSPORT_ERR) return status::kOK;
  switch (::get_scsi_pt_transport_err(object)) {
    case kHostNoConnect:
      return status::kIOReturnNoDevice;
    case kHostTimeOut:
      return status::kIOReturnTimeout;
    default:
      return status::kIOReturnError;
  }
}

/// `result` of do_scsi_pt(): a negative errno, or one of the library's own reasons.
Status submissionStatus(int result) {
  switch (result) {
    case SCSI_PT_DO_START_OK:
      return status::kOK;
    case SCSI_PT_DO_BAD_PARAMS:
      return status::kIOReturnBadArgument;
    case SCSI_PT_DO_TIMEOUT:
      return status::kIOReturnTimeout;
    default:
      return ioKitStatusOfErrno(-result);
  }
}

/// What is started meanwhile has no signals either: the kernel would send a command once more that
/// one has interrupted, and the unit carries both out.
class WithoutSignals {
 public:
  WithoutSignals() {
    sigset_t all;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &former_);
  }
  ~WithoutSignals() { ::pthread_sigmask(SIG_SETMASK, &former_, nullptr); }
  WithoutSignals(const WithoutSignals&) = delete;
  WithoutSignals& operator=(const WithoutSignals&) = delete;

 private:
  sigset_t former_;
};

/// A command with memory of its own: where nobody waits for it any more, the thread that sends it
/// keeps it.
class Sending {
 public:
  /// By descriptor: the node that was opened, and no other that may have its name by now.
  Sending(SgNode node, const SgCommand& command)
      : node_(std::move(node)),
        object_(::construct_scsi_pt_obj_with_fd(node_->get(), 0)),
        block_(command.block.begin(), command.block.end()),
        data_(command.data.size()) {
    // An area of our own for sense data: the library clears the whole of what it is given.
    if (!object_) return;
    ::set_scsi_pt_sense(object(), bytes(sense_), static_cast<int>(sense_.size()));
    ::set_scsi_pt_cdb(object(), bytes(block_), static_cast<int>(block_.size()));
    const int length = static_cast<int>(data_.size());
    if (length == 0) return;
    if (command.direction == Direction::kFromTargetToInitiator) {
      // A unit that sends less leaves zeros behind, and never what was in memory before.
      ::set_scsi_pt_data_in(object(), bytes(data_), length);
    } else if (command.direction == Direction::kFromInitiatorToTarget) {
      std::ranges::copy(command.data, data_.begin());
      ::set_scsi_pt_data_out(object(), bytes(data_), length);
    }
  }
  /// Null where there is no memory.
  sg_pt_base* object() const { return object_.get(); }
  std::span<const std::byte> data() const { return data_; }
  std::span<const std::byte> sense() const {
    const int length = std::clamp(::get_scsi_pt_sense_len(object()), 0, int{kLongestSense});
    return std::span(sense_).first(static_cast<std::size_t>(length));
  }

 private:
  SgNode node_;
  PassThrough object_;
  std::vector<std::byte> block_;
  std::vector<std::byte> data_;
  std::array<std::byte, kLongestSense> sense_{};
};

/// How often it is looked whether somebody has interrupted.
constexpr std::chrono::milliseconds kInterruptionInterval{50};

/// What do_scsi_pt() says; none where it was interrupted. In a thread, for the system call ends for
/// no signal that comes just before it.
std::optional<int> send(const std::shared_ptr<Sending>& sending, std::chrono::seconds timeout,
                        const std::atomic<bool>* interrupted) {
  const auto isInterrupted = [&] { return interrupted != nullptr && interrupted->load(); };
  if (isInterrupted()) return std::nullopt;
  std::packaged_task<int()> task([sending, timeout] {
    return ::do_scsi_pt(sending->object(), -1, static_cast<int>(timeout.count()), 0);
  });
  auto ended = task.get_future();
  std::thread thread;
  {
    const WithoutSignals guard;
    thread = std::thread(std::move(task));
  }
  while (ended.wait_for(kInterruptionInterval) != std::future_status::ready)
    if (isInterrupted()) {
      thread.detach();
      return std::nullopt;
    }
  // Whoever wants the node to himself next must not find it open here.
  thread.join();
  return ended.get();
}

void logRequest(std::string_view node, const SgCommand& command, const LogSink& log) {
  const bool sends = command.direction == Direction::kFromInitiatorToTarget;
  logTo(log, LogLevel::kDebug,
        "SCSI " + std::string(node) + " command" + hexText(command.block) +
            (sends ? " data" + hexText(command.data) : ""));
}

void logOutcome(const sg_pt_base* object, const SgCommand& command, const SgOutcome& outcome,
                std::string_view node, std::span<const std::byte> sense, const LogSink& log) {
  std::string line = "SCSI " + std::string(node);
  if (outcome.failure() != status::kOK) {
    line += " failed: " + statusText(outcome.failure());
    line += formatted(", host status 0x%02x",
                      static_cast<unsigned>(::get_scsi_pt_transport_err(object)));
  } else {
    line += formatted(" status 0x%02x, %zu of %zu bytes", outcome.taskStatus, outcome.realised,
                      command.data.size());
    if (command.direction == Direction::kFromTargetToInitiator)
      line += ":" + hexText(command.data.first(outcome.realised));
  }
  if (!sense.empty()) line += ", sense" + hexText(sense);
  logTo(log, LogLevel::kDebug, line);
}

}  // namespace

Status ioKitStatusOfErrno(int error) {
  switch (error) {
    case EBUSY:
      return status::kIOReturnExclusiveAccess;
    case EACCES:
    case EPERM:
      return status::kIOReturnNotPrivileged;
    case ENODEV:
    case ENXIO:
    case ENOENT:  // the node went with the unit
      return status::kIOReturnNoDevice;
    default:
      return status::kIOReturnError;
  }
}

SgOutcome executeSgCommand(const SgNode& node, std::string_view name, const SgCommand& command,
                           const LogSink& log, const std::atomic<bool>* interrupted) {
  SgOutcome outcome;
  outcome.submitted = status::kIOReturnError;
  if (command.data.size() > INT_MAX) return outcome;
  const auto sending = std::make_shared<Sending>(node, command);
  const sg_pt_base* object = sending->object();
  if (object == nullptr) return outcome;
  logRequest(name, command, log);
  // The library counts in seconds, and 0 would be a default of its own.
  const auto timeout = std::chrono::ceil<std::chrono::seconds>(command.timeout);
  const auto sent =
      send(sending, std::clamp(timeout, std::chrono::seconds(1), std::chrono::seconds(3600)),
           interrupted);
  outcome.submitted = sent ? submissionStatus(*sent) : status::kIOReturnAborted;
  // The library's object is the thread's still.
  if (!sent) return outcome;

  std::span<const std::byte> given;
  if (command.direction == Direction::kFromTargetToInitiator)
    std::ranges::copy(sending->data(), command.data.begin());
  if (outcome.submitted == status::kOK) {
    outcome.delivered = deliveryStatus(object);
    given = sending->sense();
    std::ranges::copy(given.first(std::min(given.size(), command.sense.size())),
                      command.sense.begin());
    outcome.realised = bytesMoved(command, ::get_scsi_pt_resid(object));
  }
  if (outcome.failure() == status::kOK)
    outcome.taskStatus = static_cast<std::uint8_t>(::get_scsi_pt_status_response(object));
  logOutcome(object, command, outcome, name, given, log);
  return outcome;
}

}  // namespace tarvo
