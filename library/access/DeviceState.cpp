#include "library/access/DeviceState.h"

#include <utility>

#include "platform/files/FilePlace.h"

namespace tarvo {

using namespace library;

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
