#include "identify/IdentifyRoom.h"

namespace tarvo {

namespace {

// Set by the room itself for its life.
IdentifyRoom* currentRoom = nullptr;

}  // namespace

IdentifyRoom::IdentifyRoom(IdentifyServices services) : services_(services) {
  currentRoom = this;
}

IdentifyRoom::~IdentifyRoom() {
  if (currentRoom == this) currentRoom = nullptr;
}

IdentifyRoom* IdentifyRoom::current() {
  return currentRoom;
}

}  // namespace tarvo
