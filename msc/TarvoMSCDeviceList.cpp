#include "msc/TarvoMSCDeviceList.h"

#include <algorithm>
#include <utility>

namespace tarvo {

TarvoMSCDeviceList* TarvoMSCDeviceList::sharedDeviceList() {
  MSCRoom* room = MSCRoom::current();
  return room ? &room->list() : nullptr;
}

std::shared_ptr<TarvoMSCDevice> TarvoMSCDeviceList::mainDevice() const {
  return _devices.empty() ? nullptr : _devices.front();
}

TarvoMSCDeviceList& TarvoMSCDeviceList::addDevice(std::shared_ptr<TarvoMSCDevice> device) {
  const std::lock_guard lock(lock_);
  // Before the post, so that an observer finds the device in the list.
  _devices.push_back(device);
  center_.post({std::string(kMSCDeviceAddedEvent), std::move(device)});
  return *this;
}

TarvoMSCDeviceList& TarvoMSCDeviceList::removeDevice(const std::vector<std::uint8_t>& guid) {
  const std::lock_guard lock(lock_);
  const auto found = std::find_if(_devices.begin(), _devices.end(),
                                  [&](const auto& device) { return device->guid() == guid; });
  if (found != _devices.end()) _devices.erase(found);
  return *this;
}

MSCRoom* MSCRoom::current_ = nullptr;

MSCRoom::MSCRoom(MSCServices services) : services_(services) {
  current_ = this;
}

// A later room may have taken its place.
MSCRoom::~MSCRoom() {
  if (current_ == this) current_ = nullptr;
}

// Made by the first question: a process that never asks for units has no list.
TarvoMSCDeviceList& MSCRoom::list() {
  if (!list_) list_.emplace(services_.center);
  return *list_;
}

}  // namespace tarvo
