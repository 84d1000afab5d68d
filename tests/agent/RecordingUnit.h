// A mass-storage unit that only writes down what is asked of it.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "Utilities/Format.h"
#include "msc/TarvoMSCDevice.h"

namespace tarvo::test {

class RecordingUnit : public TarvoMSCDevice {
 public:
  explicit RecordingUnit(std::vector<std::uint8_t> guid, bool autoPowerCycle = false,
                         ServiceHandle service = 0)
      : guid_(std::move(guid)), autoPowerCycle_(autoPowerCycle), service_(service) {}

  bool canAutoPowerCycle() override { return autoPowerCycle_; }
  ServiceHandle iokitService() const override { return service_; }
  const std::vector<std::uint8_t>& guid() const override { return guid_; }
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

  std::vector<std::string> calls;

 private:
  std::vector<std::uint8_t> guid_;
  bool autoPowerCycle_;
  ServiceHandle service_;
};

}  // namespace tarvo::test
