// The maker's mass-storage units that are present, in the order of their arrival.
//
//   MSCRoom room({center});                            // the owner of the process, once
//   TarvoMSCDeviceList::sharedDeviceList()->devices();  // anybody, while the room lives
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <vector>

#include "msc/TarvoMSCDevice.h"
#include "platform/foundation/NotificationCenter.h"

namespace tarvo {

inline constexpr std::string_view kMSCDeviceAddedEvent = "XTMSCDeviceAddedEvent";

/// Main thread only, apart from the lock that every change holds.
class TarvoMSCDeviceList {
 public:
  /// An empty list that announces its devices on `center`, which must outlive it.
  explicit TarvoMSCDeviceList(NotificationCenter& center) : center_(center) {}
  TarvoMSCDeviceList(const TarvoMSCDeviceList&) = delete;
  TarvoMSCDeviceList& operator=(const TarvoMSCDeviceList&) = delete;

  /// The list of the current MSCRoom, made on the first call; null while no room lives.
  static TarvoMSCDeviceList* sharedDeviceList();

  /// Valid until the next change; the list keeps its devices alive.
  const std::vector<std::shared_ptr<TarvoMSCDevice>>& devices() const { return _devices; }
  /// The first device; null when there is none.
  std::shared_ptr<TarvoMSCDevice> mainDevice() const;

  /// Appends `device` and posts kMSCDeviceAddedEvent with it as object while the lock is held, so
  /// that an observer may change the list again. What an observer raises reaches the caller; the
  /// device stays in the list.
  TarvoMSCDeviceList& addDevice(std::shared_ptr<TarvoMSCDevice> device);
  /// Removes the first device with this GUID; without one nothing happens. Nothing is posted.
  TarvoMSCDeviceList& removeDevice(const std::vector<std::uint8_t>& guid);

 private:
  NotificationCenter& center_;
  std::vector<std::shared_ptr<TarvoMSCDevice>> _devices;
  std::recursive_mutex lock_;  ///< recursive: observers of an arrival run inside it
};

/// What the mass-storage room stands on.
struct MSCServices {
  NotificationCenter& center;  ///< where arrivals are announced; outlives the room
};

/// The process-wide state of this room. Its owner holds it for the life of the process; while it
/// lives, sharedDeviceList() reaches it. One at a time, main thread only.
class MSCRoom {
 public:
  explicit MSCRoom(MSCServices services);
  ~MSCRoom();
  MSCRoom(const MSCRoom&) = delete;
  MSCRoom& operator=(const MSCRoom&) = delete;

  /// Null while no room lives.
  static MSCRoom* current() { return current_; }
  /// Made on the first call; lives as long as the room.
  TarvoMSCDeviceList& list();

 private:
  static MSCRoom* current_;

  MSCServices services_;
  std::optional<TarvoMSCDeviceList> list_;
};

}  // namespace tarvo
