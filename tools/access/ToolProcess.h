// tarvoctl as a process: the smaller twin of the agent's. It owns the platform services and the
// state of the rooms, in the order in which they need each other, without a listener, and makes
// each no earlier than a command needs it.
#pragma once

#include <memory>

#include "tools/access/ToolContext.h"

namespace tarvo::tools {

/// Main thread only. One in a process.
class ToolProcess : public ToolPlatform {
 public:
  /// All are lent. A flag of `interrupt` ends transactions that are running; `output` says what is
  /// waited for.
  ToolProcess(const GlobalOptions& options, Output& output, const Interrupt& interrupt);
  ~ToolProcess() override;

  const MakerConstants& maker() override;
  SupportedModels& models() override;
  const PictureDeviceServices& services() override;
  TarvoMSCDeviceList& massStorage() override;

 private:
  struct Base;
  struct Devices;
  struct MassStorage;

  Base& base();
  Devices& devices();

  const GlobalOptions& options_;
  Output& output_;
  const Interrupt& interrupt_;
  std::unique_ptr<Base> base_;                ///< log, preferences, main loop, models
  std::unique_ptr<Devices> devices_;          ///< what reaches devices
  std::unique_ptr<MassStorage> massStorage_;  ///< what reaches units and their disks
};

}  // namespace tarvo::tools
