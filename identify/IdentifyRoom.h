// What device identification uses of the platform. The owner of the process makes one room and
// holds it for its life.
#pragma once

#include "platform/foundation/MountTable.h"
#include "platform/imagecapture/ImageCapture.h"
#include "platform/iokit/Registry.h"

namespace tarvo {

/// Lent for the life of the room.
struct IdentifyServices {
  ImageCapture& imageCapture;
  Registry& registry;
  MountTable& mounts;
};

/// Main thread only.
///
///   const IdentifyRoom room({imageCapture, registry, mounts});
///   const auto volumes = GetICABSDNames();
class IdentifyRoom {
 public:
  explicit IdentifyRoom(IdentifyServices services);
  ~IdentifyRoom();
  IdentifyRoom(const IdentifyRoom&) = delete;
  IdentifyRoom& operator=(const IdentifyRoom&) = delete;

  /// The room that lives now; null when there is none.
  static IdentifyRoom* current();

  const IdentifyServices& services() const { return services_; }

 private:
  IdentifyServices services_;
};

}  // namespace tarvo
