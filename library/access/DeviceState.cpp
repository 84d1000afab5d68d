#include "library/access/DeviceState.h"

#include <utility>

namespace tarvo {

using namespace library;

DeviceInfo library::deviceInfo(DeviceSummary summary) {
  std::string description = inWords(summary);
  return DeviceInfo(std::make_shared<const DeviceInfo::Data>(
      DeviceInfo::Data{std::move(summary), std::move(description)}));
}

DeviceState::DeviceState(std::shared_ptr<SessionState> session, DeviceSummary summary)
    : session_(std::move(session)), info_(deviceInfo(summary)) {
  if (!session_->hold(summary.object))
    refuse("it is held already by this session", inWords(summary));
  try {
    if (summary.speaksPTP) {
      camera_ = std::make_unique<OpenedDevice>(*session_, std::move(summary));
    } else {
      volume_ = std::make_unique<OpenedVolume>(std::move(summary));
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

OpenedVolume& DeviceState::volume() {
  if (!volume_) raise({.object = info_.name(), .status = status::kUnsupported});
  return *volume_;
}

}  // namespace tarvo
