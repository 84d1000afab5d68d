// A mass-storage unit that only writes down what is asked of it.
#pragma once

#include <string>
#include <vector>

#include "Utilities/Format.h"
#include "msc/TarvoMSCDevice.h"

namespace tarvo::test {

struct RecordingUnit : TarvoMSCDevice {
  explicit RecordingUnit(std::uint8_t id, bool powerCycles = false, ServiceHandle handle = 0)
      : guidBytes{id}, autoPowerCycle(powerCycles), service(handle) {}

  bool canAutoPowerCycle() override { return autoPowerCycle; }
  ServiceHandle iokitService() const override { return service; }
  const std::vector<std::uint8_t>& guid() const override { return guidBytes; }
  Status unmountMedia() override {
    calls.emplace_back("unmountMedia");
    return status::kOK;
  }
  bool ejectTray() override {
    calls.emplace_back("ejectTray");
    return true;
  }
  Status setUSBMode(int mode, bool powerDown, int autowakeDelay) override {
    calls.push_back(formatted("setUSBMode %d %d %d", mode, powerDown, autowakeDelay));
    return status::kOK;
  }

  std::vector<std::uint8_t> guidBytes;
  bool autoPowerCycle;
  ServiceHandle service;
  std::vector<std::string> calls;
};

}  // namespace tarvo::test
