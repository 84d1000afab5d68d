#include "tools/CommandLine.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <chrono>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "Utilities/Exception.h"
#include "Utilities/TypedWords.h"
#include "tools/access/ToolContext.h"
#include "tools/output/Output.h"

namespace tarvo::tools {

using CommandAdder = void(CommandGroup& root);
// Each stands in the file of its commands.
CommandAdder addDeviceCommands;
CommandAdder addEventCommand;
CommandAdder addStorageCommands;
CommandAdder addListCommand;
CommandAdder addGetCommand;
CommandAdder addImportCommand;
CommandAdder addPutCommand;
CommandAdder addRemoveCommands;
CommandAdder addVolumeCommands;
CommandAdder addPropertyCommands;
CommandAdder addOrdersCommands;
CommandAdder addAddressBookCommands;
CommandAdder addAlbumCommands;
CommandAdder addDeviceFileCommands;
CommandAdder addMassStorageCommands;
CommandAdder addQueryCommand;
CommandAdder addModelCommands;
CommandAdder addRecordCommands;
CommandAdder addLeftoversCommand;
CommandAdder addCompletionCommand;

namespace {

/// In the order of the help.
constexpr CommandAdder* kCommands[] = {
    addDeviceCommands, addEventCommand,       addStorageCommands,     addListCommand,
    addGetCommand,     addImportCommand,      addPutCommand,          addRemoveCommands,
    addVolumeCommands, addPropertyCommands,   addOrdersCommands,      addAddressBookCommands,
    addAlbumCommands,  addDeviceFileCommands, addMassStorageCommands, addQueryCommand,
    addModelCommands,  addRecordCommands,     addLeftoversCommand,    addCompletionCommand};

constexpr double kShortestTimeout = 0.001;
constexpr double kLongestTimeout = 86400;
constexpr double kMillisecondsPerSecond = 1000;

/// What CLI11 fills in lies here, so it outlives the command.
class CommandTree {
 public:
  CommandTree() {
    addGlobals();
    CommandGroup root(app_, table_);
    for (const auto add : kCommands)
      add(root);
    app_.footer("'tarvoctl COMMAND --help' tells more.\n\nExample:\n  tarvoctl devices");
  }
  CommandTree(const CommandTree&) = delete;
  CommandTree& operator=(const CommandTree&) = delete;

  CLI::App& app() { return app_; }
  /// The options as parsed; what they say of the time-out is in seconds there.
  GlobalOptions globals() const {
    GlobalOptions options = globals_;
    if (timeoutSeconds_ > 0)
      options.timeout =
          std::chrono::milliseconds(static_cast<long>(timeoutSeconds_ * kMillisecondsPerSecond));
    return options;
  }
  /// Set by the parse.
  const CommandTable& table() const { return table_; }

 private:
  void addGlobals();

  CLI::App app_{"Everything that a Tarvo device can do, from a shell.", "tarvoctl"};
  GlobalOptions globals_;
  double timeoutSeconds_ = 0;
  CommandTable table_;
};

void CommandTree::addGlobals() {
  // Global options may stand behind the command, too.
  app_.fallthrough();
  app_.require_subcommand(1);
  app_.set_version_flag("--version", std::string("tarvoctl ") + TARVO_VERSION,
                        "Print the version and exit");
  app_.set_help_flag("-h,--help", "Print this help and exit");
  app_.add_flag("--json", globals_.json, "Results and errors as one JSON document");
  app_.add_option("--device", globals_.device, "Serial number, or USB location (decimal or 0x...)")
      ->type_name("SERIAL|LOCATION");
  app_.add_option("--config", globals_.configFile, "Read FILE in place of your own preferences")
      ->type_name("FILE");
  app_.add_flag("--quiet", globals_.quiet, "Neither messages nor progress");
  app_.add_option("--timeout", timeoutSeconds_, "How long the device may be silent")
      ->type_name("SECONDS")
      ->check(CLI::Range(kShortestTimeout, kLongestTimeout).description(""));
}

/// Where the command line cannot be parsed, its form of output is still wanted.
bool asksForJSON(std::span<const char* const> arguments) {
  return std::ranges::any_of(arguments,
                             [](const char* each) { return std::string_view(each) == "--json"; });
}

/// How the command that was meant is called, as far as it was understood.
std::string commandName(const CLI::App& app) {
  std::string name = app.get_name();
  for (const auto* command = &app; !command->get_subcommands().empty();) {
    command = command->get_subcommands().front();
    name += " " + command->get_name();
  }
  return name;
}

/// What is wrong with the command line. A command that there is none of is named, where the parser
/// says only that one is missing.
std::string reasonOf(const CLI::ParseError& error, const CLI::App& app) {
  const auto words = app.remaining(true);
  if (error.get_name() != "RequiredError" || words.empty()) return error.what();
  return "there is no command '" + words.front() + "'";
}

/// Says why the command ended, and gives its exit status.
int ended(ToolContext& context, const Failure& failure, int exitCode) {
  context.output.error(failure);
  context.output.flush();
  // Whatever broke when the user ended it, it is what the user wanted.
  return context.interrupt.isSet() ? int{kInterrupted} : exitCode;
}

int runGuarded(ToolContext& context, const Command& command) {
  try {
    const int exitCode = command(context);
    context.output.flush();
    return exitCode;
  } catch (const ToolError& error) {
    return ended(context, error.failure(), error.exitCode());
  } catch (const Error& error) {
    // A preferences file that cannot be read was named on the command line.
    const bool isUsage = error.kind() == ErrorKind::kHost && error.status() == status::kOK;
    if (isUsage) return ended(context, {.why = error.reason()}, kBadUsage);
    Failure failure = failureOf(context, error);
    const bool isCancelled = error.status() == status::kCancelled;
    return ended(context, ToolError(failure).failure(), isCancelled ? kInterrupted : kFailed);
  } catch (const Exception& exception) {
    return ended(context, {.status = status::kBadParameter, .why = exception.reason()}, kFailed);
  } catch (const BrokenPipe&) {
    throw;
  } catch (const std::bad_alloc&) {
    return ended(context, {.status = status::kOutOfMemory}, kFailed);
  } catch (const std::exception& exception) {
    return ended(context, {.status = status::kIOError, .why = exception.what()}, kFailed);
  }
}

}  // namespace

CommandLine readCommandLine(int argc, const char* const* argv, std::FILE* out, std::FILE* err) {
  // Kept by the command, whose options lie in it.
  const auto tree = std::make_shared<CommandTree>();
  try {
    parseAsTyped(tree->app(), argc, argv);
    return {.options = tree->globals(), .command = [tree](ToolContext& context) {
              context.operation = tree->table().name;
              return tree->table().chosen(context);
            }};
  } catch (const CLI::CallForHelp&) {
    std::fputs(tree->app().help().c_str(), out);
  } catch (const CLI::CallForVersion&) {
    std::fputs((tree->app().version() + "\n").c_str(), out);
  } catch (const CLI::ParseError& error) {
    GlobalOptions options;
    options.json = asksForJSON({argv, static_cast<std::size_t>(argc)});
    Output(out, err, options)
        .error({.why = reasonOf(error, tree->app()),
                .advice = "Try '" + commandName(tree->app()) + " --help'."});
    return {.exitCode = kBadUsage};
  }
  return {.exitCode = kDone};
}

int runCommand(ToolContext& context, const Command& command) {
  try {
    return runGuarded(context, command);
  } catch (const BrokenPipe&) {
    // Nobody reads any more, which is no failure of the command: "tarvoctl ls | head -1".
    return kDone;
  } catch (const ToolError& error) {
    // Saying what was wrong failed in its turn; the exit status is all that is left.
    return error.exitCode();
  }
}

}  // namespace tarvo::tools
