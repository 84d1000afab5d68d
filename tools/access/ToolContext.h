// What a command works with: its surroundings, handed in, so that a test can run it in process.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

#include "Utilities/FileDescriptor.h"
#include "platform/foundation/Interrupt.h"
#include "tools/output/Output.h"

namespace tarvo {
struct MakerConstants;
class SupportedModels;
class TarvoMSCDeviceList;
struct PictureDeviceServices;
}  // namespace tarvo

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
  std::FILE* input;      ///< standard input
  std::string terminal;  ///< the device on which questions are asked: "/dev/tty"
};

/// The user's leave for what cannot be undone.
///
///   const Consent consent(context, "rm", options.yes, "delete objects");
///   ...
///   consent.require("Delete 3 objects?", "nothing was deleted");
class Consent {
 public:
  /// Raises kBadUsage where the leave is not given by the command line and nobody can be asked: a
  /// script that forgot it learns before a device is touched. `purpose` is what --yes is for.
  Consent(const ToolContext& context, std::string operation, bool isGiven,
          const std::string& purpose);

  /// Asks on the terminal, wherever the outputs lead, unless the leave is given. All but "y" and
  /// "yes" raises kCancelled, with `left`, what was left alone, as the reason; raises what ends an
  /// interrupted command.
  void require(const std::string& question, const std::string& left) const;

 private:
  const ToolContext& context_;
  std::string operation_;
  FileDescriptor terminal_;  ///< of nothing where the leave is given
};

/// Raises what ends a command that was interrupted, if it was.
void endIfInterrupted(const ToolContext& context, const std::string& operation);

// Files that a command is given to read, standard input among them.

/// All of a file; "-" is standard input. Raises a ToolError for one that cannot be read, and for
/// one of more than 64 MiB: nothing that a device takes this way is larger, and what is may be a
/// device that never ends.
std::vector<std::byte> readInput(const ToolContext& context, const std::string& operation,
                                 const std::string& path);
/// The same as text, whatever its bytes are, of 8 MiB at most.
std::string readInputText(const ToolContext& context, const std::string& operation,
                          const std::string& path);

}  // namespace tarvo::tools
