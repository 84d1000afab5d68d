// What the operations of a PTP device share: its description, its objects, and what a session has
// left half done.
#pragma once

#include <cstdint>
#include <optional>
#include <set>

#include "simulator/bytes/Payload.h"
#include "simulator/description/DeviceDescription.h"
#include "simulator/ptp/ObjectStore.h"
#include "simulator/ptp/PTPMessages.h"

namespace tarvo::simulator {

/// An object whose information has come and whose bytes have not (ISO 15740, SendObjectInfo).
struct PendingObject {
  StoredObject object;
  std::uint32_t announced = 0;  ///< bytes, as the information said
  std::uint16_t infoOperation = 0;
  Spool parts;  ///< what has come of it in parts
};

/// Not locked: PTPCamera holds its own lock over everything that reaches it.
struct DeviceState {
  explicit DeviceState(const DeviceDescription& described)
      : description(described),
        objects(described.stores),
        datasets(objects, described.datasets.value_or(DatasetsDescription())),
        firstNewHandle(objects.nextHandle()) {}

  /// Whether the device knows an object of this handle, or would if it were there.
  bool knows(std::uint32_t handle) const {
    return !description.habits.listsFolderByFolder || handle == 0 || handle >= firstNewHandle ||
           listed.contains(handle);
  }

  /// As after a reset: the session and what it has left half done are forgotten.
  void forgetSession() {
    session = 0;
    listed.clear();
    pending.reset();
    openCapture.reset();
  }

  DeviceDescription description;  ///< whose property values the host may change
  ObjectStore objects;
  Datasets datasets;               ///< keeps its data sets among the objects
  std::uint32_t session = 0;       ///< id of the open session; 0: none
  std::uint32_t firstNewHandle;    ///< of what is not in the description
  std::set<std::uint32_t> listed;  ///< handles that a list of this session has named
  std::optional<PendingObject> pending;
  std::optional<std::uint32_t> openCapture;  ///< transaction id of InitiateOpenCapture
  std::uint32_t openCaptureStorage = 0;      ///< where it puts its picture
  std::uint32_t captures = 0;                ///< pictures made so far
  Bytes displayRequest;                      ///< what the host wants to be shown
};

}  // namespace tarvo::simulator
