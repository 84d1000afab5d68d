// What a command works with: its surroundings, handed in, so that a test can run it in process.
#pragma once

#include <cstddef>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "Utilities/FileDescriptor.h"
#include "tarvo/Session.h"
#include "tools/output/Output.h"

namespace tarvo::tools {

struct ToolContext;

/// Gives the session, made when a command asks for it: most of what a user types needs no device.
using SessionSource = std::function<Session&()>;

struct ImportCommandOptions;
using ImportRun = int(ToolContext&, const ImportCommandOptions&);

/// Everything is lent for the length of the command.
struct ToolContext {
  const GlobalOptions& options;
  Output& output;
  const SessionSource& session;
  const StopSignals& interrupt;
  std::FILE* input;                  ///< standard input
  std::string terminal;              ///< the device on which questions are asked: "/dev/tty"
  char* const* arguments = nullptr;  ///< those of the process, its name first
  ImportRun* import = nullptr;       ///< null where another program does it
  std::string operation{};           ///< the command as it was typed: "orders list"
};

/// The user's leave for what cannot be undone.
///
///   const Consent consent(context, options.yes, "delete objects");
///   ...
///   consent.require("Delete 3 objects?", "nothing was deleted");
class Consent {
 public:
  /// Raises kBadUsage where the leave is not given by the command line and nobody can be asked: a
  /// script that forgot it learns before a device is touched. `purpose` is what --yes is for.
  Consent(const ToolContext& context, bool isGiven, const std::string& purpose);

  /// Asks on the terminal, wherever the outputs lead, unless the leave is given. All but "y" and
  /// "yes" raises kCancelled, with `left`, what was left alone, as the reason; raises what ends an
  /// interrupted command.
  void require(const std::string& question, const std::string& left) const;

 private:
  const ToolContext& context_;
  FileDescriptor terminal_;  ///< of nothing where the leave is given
};

/// What the library raised, as a failure that the command tells of and does not end with.
Failure failureOf(const ToolContext& context, const Error& error, const std::string& object = {});
/// Raises what ends a command that was interrupted, if it was.
void endIfInterrupted(const ToolContext& context);

// Files that a command is given to read, standard input among them.

/// All of a file; "-" is standard input. Raises a ToolError for one that cannot be read, and for
/// one of more than 64 MiB: nothing that a device takes this way is larger, and what is may be a
/// device that never ends.
std::vector<std::byte> readInput(const ToolContext& context, const std::string& path);
/// The same as text, whatever its bytes are, of 8 MiB at most.
std::string readInputText(const ToolContext& context, const std::string& path);

}  // namespace tarvo::tools
