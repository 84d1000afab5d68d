#include "msc/MSCRoom.h"

#include <utility>

#include "Utilities/Exception.h"

namespace tarvo {

MSCRoom* MSCRoom::current_ = nullptr;

MSCRoom::MSCRoom(MSCServices services) : services_(std::move(services)) {
  current_ = this;
}

// A later room may have taken its place.
MSCRoom::~MSCRoom() {
  if (current_ == this) current_ = nullptr;
}

MSCRoom& MSCRoom::required() {
  if (!current_) raiseAssertion("no mass-storage room");
  return *current_;
}

// Made by the first question: a process that never asks for units has no list. It has to be there
// before it is filled: observers of the arrivals ask for it.
TarvoMSCDeviceList& MSCRoom::list() {
  if (!list_) {
    list_.emplace();
    list_->init();
  }
  return *list_;
}

}  // namespace tarvo
