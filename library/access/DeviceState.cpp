#include "library/access/DeviceState.h"

#include <glib.h>

#include <utility>

#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "platform/files/FilePlace.h"

namespace tarvo {

using namespace library;

namespace {

constexpr int kAttempts = 10;
/// The agent's look at a new camera is over in a fraction of a second, or in this where the camera
/// has to be got back in step first.
constexpr int kAttemptsBesideTheAgent = 50;
constexpr gulong kAttemptIntervalMicroseconds = 200000;

}  // namespace

OpenedDevice::OpenedDevice(SessionState& session, DeviceInfo info)
    : session_(session), info_(std::move(info)) {
  Status failure = status::kOK;
  std::string why;
  auto& imageCapture = session_.platform().services().imageCapture;
  int most = kAttempts;
  for (int attempt = 1; !scope_ && attempt <= most; ++attempt) {
    session_.endIfInterrupted();
    // Here a wait is all right: the command has nothing else to do.
    if (attempt > 1) g_usleep(kAttemptIntervalMicroseconds);
    scope_ = imageCapture.openScope(info_.id(), &failure, &why);
    // Whatever else is wrong is the same a moment later.
    if (failure != status::kICADeviceBusy) break;
    if (why.find("process tarvo-agent ") != std::string::npos) most = kAttemptsBesideTheAgent;
  }
  if (!scope_) raise(this->failure(info_.description(), failure, why));
  device_ = XTImageCapturePTPDevice::withICAObject(info_.id(), &failure);
  if (device_) return;
  session_.endIfInterrupted();
  raise(this->failure(info_.description(), failure, "its information cannot be read"));
}

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
  if (isGood(status)) return;
  session_.endIfInterrupted();
  raise(failure(object, status));
}

std::vector<std::byte> OpenedDevice::require(const std::optional<ByteBuffer>& bytes,
                                             const std::string& object) const {
  if (!bytes) failWithout(object);
  return {bytes->begin(), bytes->end()};
}

void OpenedDevice::failWithout(const std::string& object) const {
  session_.endIfInterrupted();
  const Status outcome = transactions().lastOutcome();
  raise(failure(object, outcome == status::kOK ? status::kPTPGeneralError : outcome));
}

ObjectHandles OpenedDevice::objectHandles(const ListingQuery& query,
                                          const std::string& what) const {
  ObjectHandles handles;
  require(ObjectListing(transactions()).handles(query, handles), what);
  return handles;
}

DeviceState::DeviceState(std::shared_ptr<SessionState> session, DeviceInfo info)
    : session_(std::move(session)), info_(std::move(info)) {
  if (!session_->hold(info_.id()))
    refuse("it is held already by this session", info_.description());
  try {
    if (isCamera()) {
      camera_.emplace(*session_, info_);
    } else if (!volume_.emplace(info_.path()).isOpen()) {
      raise(
          {.object = info_.path(), .status = status::kIOError, .why = errorText(volume_->error())});
    }
  } catch (...) {
    session_->letGo(info_.id());
    throw;
  }
  session_->onEnd(this, [this] { close(); });
}

DeviceState::~DeviceState() {
  if (session_->isOver()) return;
  session_->forget(this);
  // Closing talks to the device, through what is of the session's context.
  const auto context = session_->contextOfThread();
  close();
}

void DeviceState::close() {
  fetch_.reset();
  camera_.reset();
  volume_.reset();
  session_->letGo(info_.id());
}

OpenedDevice& DeviceState::camera() {
  if (!camera_)
    raise({.object = info_.name(),
           .status = status::kUnsupported,
           .why = "it is a volume, which does not speak PTP",
           .advice = "Its files are in " + info_.path() + "."});
  return *camera_;
}

ObjectFetch& DeviceState::fetch() {
  if (!fetch_) fetch_.emplace(camera().transactions());
  return *fetch_;
}

const FolderTree& DeviceState::volume() const {
  if (!volume_) raise({.object = info_.name(), .status = status::kUnsupported});
  return *volume_;
}

}  // namespace tarvo
