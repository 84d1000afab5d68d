// What the mass-storage units use of the platform. The owner of the process makes one room and
// holds it for its life.
#pragma once

#include <cstdio>
#include <optional>
#include <string>

#include "Utilities/LogSink.h"
#include "msc/TarvoMSCDeviceList.h"
#include "platform/diskarbitration/DiskArbitration.h"
#include "platform/foundation/MakerConstants.h"
#include "platform/foundation/MountTable.h"
#include "platform/foundation/NotificationCenter.h"
#include "platform/foundation/UserDefaults.h"
#include "platform/iokit/Registry.h"
#include "platform/iokit/SCSITask.h"

namespace tarvo {

/// Lent for the life of the room.
struct MSCServices {
  NotificationCenter& center;  ///< where arrivals are announced
  Registry& registry;
  SCSIServices& scsi;
  DiskArbitration& diskArbitration;
  const MountTable& mounts;
  const UserDefaults& defaults;
  const MakerConstants& maker;
  LogSink log;  ///< what must be learnt even with tracing off
  /// The 8-bit encoding of model texts, by the name that iconv has for it.
  std::string defaultEncoding = "UTF-8";
  /// Where the one message goes that is printed and not logged.
  std::FILE* standardOutput = stdout;
};

/// The process-wide state of this room; while it lives, sharedDeviceList() and the units reach it.
/// One at a time, main thread only. Of the identification it needs an IdentifyRoom beside it.
///
///   MSCRoom room({center, registry, scsi, diskArbitration, mounts, defaults, maker, log});
///   TarvoMSCDeviceList::sharedDeviceList()->devices();
class MSCRoom {
 public:
  explicit MSCRoom(MSCServices services);
  ~MSCRoom();
  MSCRoom(const MSCRoom&) = delete;
  MSCRoom& operator=(const MSCRoom&) = delete;

  /// Null while no room lives.
  static MSCRoom* current() { return current_; }
  /// The same where there must be one; raises an assertion otherwise.
  static MSCRoom& required();

  const MSCServices& services() const { return services_; }
  /// Made on the first call, which announces what is attached; lives as long as the room.
  TarvoMSCDeviceList& list();

 private:
  static MSCRoom* current_;

  MSCServices services_;
  std::optional<TarvoMSCDeviceList> list_;
};

}  // namespace tarvo
