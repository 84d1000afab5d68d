// A mass-storage unit of the maker, as the agent sees it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Utilities/Object.h"
#include "Utilities/Status.h"
#include "platform/iokit/Registry.h"

namespace tarvo {

/// Main thread only.
class TarvoMSCDevice : public Object {
 public:
  /// True when the unit can switch itself off and return in another mode.
  virtual bool canAutoPowerCycle() = 0;
  /// Registry service of the unit.
  virtual ServiceHandle iokitService() const = 0;
  /// Identity of the unit in the list.
  virtual const std::vector<std::uint8_t>& guid() const = 0;
  /// 0 or the failing status.
  virtual Status unmountMedia() = 0;
  /// True on success.
  virtual bool ejectTray() = 0;
  /// Mode 1 is camera mode; `autowakeDelay` as the unit's mode page counts it. 0 or the failing
  /// status.
  virtual Status setUSBMode(int mode, bool powerDown, int autowakeDelay) = 0;
};

}  // namespace tarvo
