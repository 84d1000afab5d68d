// A mass-storage unit of the maker, as the agent sees it: a camera or dock that shows itself as a
// disk until it is told to come back as a camera.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Utilities/Object.h"
#include "Utilities/Status.h"
#include "platform/iokit/Registry.h"

namespace tarvo {

/// Main thread only. Every call but iokitService() and guid() may have to wait for the unit.
class TarvoMSCDevice : public Object {
 public:
  /// True when the unit can switch itself off and return in another mode.
  virtual bool canAutoPowerCycle() = 0;
  /// Registry service of the unit, from which its USB device is found; 0 when there is none.
  virtual ServiceHandle iokitService() const = 0;
  /// Identity of the unit in the list; the same for as long as the object lives.
  virtual const std::vector<std::uint8_t>& guid() const = 0;
  /// Unmounts every volume of the unit. 0, also when it has none, or the failing status.
  virtual Status unmountMedia() = 0;
  /// Unmounts what is still mounted, then has the unit open its tray. True on success.
  virtual bool ejectTray() = 0;
  /// Sends the unit to another USB mode; 1 is camera mode. With `powerDown` it switches itself off
  /// and wakes after `autowakeDelay`, in tenths of what its mode page counts. 0 or the failing
  /// status.
  virtual Status setUSBMode(int mode, bool powerDown, int autowakeDelay) = 0;
};

}  // namespace tarvo
