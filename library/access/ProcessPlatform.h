// The platform of a process: the smaller twin of the agent's. It owns the platform services and the
// state of the rooms, in the order in which they need each other, without a listener, and makes
// each no earlier than something needs it.
#pragma once

#include <memory>

#include "library/access/Platform.h"
#include "library/access/SessionState.h"

namespace tarvo::library {

/// One in a process, on the main context that is its thread's default while it is made and used.
class ProcessPlatform : public Platform {
 public:
  explicit ProcessPlatform(SessionOptions::Data options);
  ~ProcessPlatform() override;

  const MakerConstants& maker() override;
  SupportedModels& models() override;
  const PictureDeviceServices& services() override;
  TarvoMSCDeviceList& massStorage() override;
  const Interrupt* interrupt() const override;

 private:
  struct Base;
  struct Devices;
  struct MassStorage;

  Base& base();
  Devices& devices();

  SessionOptions::Data options_;
  std::unique_ptr<Base> base_;                ///< log, preferences, main loop, models
  std::unique_ptr<Devices> devices_;          ///< what reaches devices
  std::unique_ptr<MassStorage> massStorage_;  ///< what reaches units and their disks
};

}  // namespace tarvo::library
