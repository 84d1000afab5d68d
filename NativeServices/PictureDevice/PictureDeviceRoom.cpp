#include "NativeServices/PictureDevice/PictureDeviceRoom.h"

#include <utility>

#include "Utilities/Exception.h"

namespace tarvo {

namespace {

PictureDeviceRoom* currentRoom = nullptr;

}  // namespace

PictureDeviceRoom::PictureDeviceRoom(PictureDeviceServices services)
    : services_(std::move(services)),
      deviceRegistry_(services_.center, services_.queue, services_.runLoop),
      pendingInspections_(services_.runLoop) {
  currentRoom = this;
}

PictureDeviceRoom::~PictureDeviceRoom() {
  services_.center.removeObserver(this);
  deviceRegistry_.clear();
  if (currentRoom == this) currentRoom = nullptr;
}

PictureDeviceRoom* PictureDeviceRoom::current() {
  return currentRoom;
}

PictureDeviceRoom& PictureDeviceRoom::required() {
  if (!currentRoom) raiseAssertion("There is no PictureDeviceRoom.");
  return *currentRoom;
}

}  // namespace tarvo
