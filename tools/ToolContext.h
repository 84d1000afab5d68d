// What a command works with: its surroundings, handed in, so that a test can run it in process.
#pragma once

#include <cstdio>
#include <string>

#include "NativeServices/PictureDevice/PictureDeviceRoom.h"
#include "identify/models/SupportedModels.h"
#include "msc/TarvoMSCDeviceList.h"
#include "platform/foundation/Interrupt.h"
#include "platform/foundation/MakerConstants.h"
#include "tools/GlobalOptions.h"
#include "tools/Output.h"

namespace tarvo::tools {

using tarvo::Interrupt;

/// The platform, made when a command asks for it: most of what a user types needs no device.
///
/// Main thread only. What is returned lives as long as this. Each raises
/// NSInvalidArgumentException when the preferences file that was asked for cannot be read.
class ToolPlatform {
 public:
  virtual ~ToolPlatform() = default;
  virtual const MakerConstants& maker() = 0;
  virtual SupportedModels& models() = 0;
  /// Makes what reaches devices, and the room of the picture devices, at the first call.
  virtual const PictureDeviceServices& services() = 0;
  /// The maker's mass-storage units. Makes what reaches them, their room and that of the
  /// identification, at the first call.
  virtual TarvoMSCDeviceList& massStorage() = 0;
};

/// Everything is lent for the length of the command.
struct ToolContext {
  const GlobalOptions& options;
  Output& output;
  ToolPlatform& platform;
  const Interrupt& interrupt;
  std::FILE* input;  ///< where answers to questions come from
};

/// Whether there is a person to ask.
bool canAsk(const ToolContext& context);
/// Asks on standard error; true for "y" and "yes". False at the end of the input. Raises what ends
/// an interrupted command.
bool isConfirmed(ToolContext& context, const std::string& question);

/// Raises what ends a command to which the user said no: kCancelled, with `left` as the reason, as
/// "nothing was deleted".
[[noreturn]] void endDeclined(const std::string& operation, const std::string& left);
/// Raises what ends a command that was interrupted, if it was.
void endIfInterrupted(const ToolContext& context, const std::string& operation);

}  // namespace tarvo::tools
