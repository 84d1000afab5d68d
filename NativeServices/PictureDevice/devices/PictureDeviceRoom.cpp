#include "NativeServices/PictureDevice/devices/PictureDeviceRoom.h"

#include <utility>

#include "Utilities/Exception.h"

namespace tarvo {

namespace {

// Set by the room itself for its life. The class operations have no object to reach it through.
PictureDeviceRoom* currentRoom = nullptr;

}  // namespace

PictureDeviceRoom::PictureDeviceRoom(PictureDeviceServices services)
    : services_(std::move(services)),
      deviceRegistry_(services_.center, services_.queue, services_.runLoop, services_.log),
      pendingInspections_(services_.runLoop) {
  currentRoom = this;
}

PictureDeviceRoom::~PictureDeviceRoom() {
  // The wait for the helper's wireless device is observed in the room's name.
  services_.center.removeObserver(this);
  // While the room is still current: devices look it up as they end.
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
