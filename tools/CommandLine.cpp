#include "tools/CommandLine.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <charconv>
#include <chrono>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Utilities/Exception.h"
#include "Utilities/TypedWords.h"
#include "tools/access/ToolContext.h"
#include "tools/output/Output.h"

namespace tarvo::tools {

using CommandAdder = void(CommandGroup& root);
// Each stands in the file of its commands.
CommandAdder addDeviceCommands;
CommandAdder addInfoCommand;
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
CommandAdder addCompleteCommand;
CommandAdder addDoctorCommand;

namespace {

/// In the order of the help.
constexpr CommandAdder* kCommands[] = {
    addDeviceCommands,      addInfoCommand,       addEventCommand,       addStorageCommands,
    addListCommand,         addGetCommand,        addImportCommand,      addPutCommand,
    addRemoveCommands,      addVolumeCommands,    addPropertyCommands,   addOrdersCommands,
    addAddressBookCommands, addAlbumCommands,     addDeviceFileCommands, addMassStorageCommands,
    addQueryCommand,        addModelCommands,     addRecordCommands,     addLeftoversCommand,
    addDoctorCommand,       addCompletionCommand, addCompleteCommand};

/// "5", "2.5s", "500ms" or "2m"; none for anything else and for what is no time to wait.
std::optional<std::chrono::milliseconds> durationFrom(std::string_view text) {
  constexpr double kSecond = 1000;
  constexpr double kMinute = 60 * kSecond;
  constexpr double kLongest = 24 * 60 * kMinute;
  double time = 0;
  const auto read = std::from_chars(text.data(), text.data() + text.size(), time);
  const std::string_view unit = text.substr(static_cast<std::size_t>(read.ptr - text.data()));
  if (unit.empty() || unit == "s") time *= kSecond;
  if (unit == "m" || unit == "min") time *= kMinute;
  const bool isUnit = unit.empty() || unit == "s" || unit == "m" || unit == "min" || unit == "ms";
  const bool isTime = read.ec == std::errc() && isUnit && time >= 1 && time <= kLongest;
  return isTime ? std::optional(std::chrono::milliseconds(static_cast<long>(time))) : std::nullopt;
}

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
  const GlobalOptions& globals() const { return globals_; }
  /// Set by the parse.
  const CommandTable& table() const { return table_; }

 private:
  void addGlobals();

  CLI::App app_{"Everything that a Tarvo device can do, from a shell.", "tarvoctl"};
  GlobalOptions globals_;
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
  app_.add_flag("--json-lines", globals_.jsonLines, "The same, a line each, lists entry by entry");
  app_.add_option("--device", globals_.device,
                  "Its serial number, location or name, or how one of these begins")
      ->type_name("DEVICE");
  app_.add_option("--config", globals_.configFile, "Read FILE in place of your own preferences")
      ->type_name("FILE");
  app_.add_flag("-q,--quiet", globals_.quiet, "Neither messages nor progress");
  const auto takeTimeout = [this](const std::string& text) {
    globals_.timeout = durationFrom(text);
    if (!globals_.timeout)
      throw CLI::ValidationError("--timeout", "'" + text +
                                                  "' is no time: give seconds, or 500ms, "
                                                  "5s, 2m, a day at most");
  };
  app_.add_option_function<std::string>("--timeout", takeTimeout,
                                        "How long the device may be silent")
      ->type_name("SECONDS");
}

/// Where the command line cannot be parsed, its form of output is still wanted.
bool asksFor(std::string_view option, std::span<const char* const> arguments) {
  return std::ranges::any_of(arguments,
                             [&](const char* each) { return std::string_view(each) == option; });
}

/// What is wrong with the command line, in words: the parser says only that a command is missing,
/// or that a word was not expected.
Failure failureOf(const CLI::ParseError& error, const CLI::App& app) {
  // The command that was meant, as far as it was understood.
  const auto* command = &app;
  std::string name = app.get_name();
  while (!command->get_subcommands().empty()) {
    command = command->get_subcommands().front();
    name += " " + command->get_name();
  }
  Failure failure{.why = error.what(), .advice = "Try '" + name + " --help'."};
  const auto words = app.remaining(true);
  const auto option = std::ranges::find_if(
      words, [](const auto& word) { return word.size() > 1 && word.starts_with('-'); });
  const bool isOption = option != words.end();
  const bool isUnknown = dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr ||
                         error.get_name() == "RequiredError";
  if (!isUnknown || words.empty()) return failure;
  const std::string word = isOption ? option->substr(0, option->find('=')) : words.front();
  const bool isCommand = !isOption && error.get_name() == "RequiredError";
  if (!isOption && !isCommand) return failure;
  failure.why = (isOption ? "there is no option '" : "there is no command '") + word + "'";
  const std::string nearest = nearestWord(*command, word);
  if (!nearest.empty()) failure.advice = "Did you mean '" + nearest + "'? " + failure.advice;
  return failure;
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
  std::vector<std::string> words(argv + 1, argv + argc);
  words = asMeant(tree->app(), words);
  std::vector<const char*> meant(argv, argv + 1);
  for (const auto& word : words)
    meant.push_back(word.c_str());
  try {
    parseAsTyped(tree->app(), static_cast<int>(meant.size()), meant.data());
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
    options.json = asksFor("--json", {argv, static_cast<std::size_t>(argc)});
    options.jsonLines = asksFor("--json-lines", {argv, static_cast<std::size_t>(argc)});
    Output(out, err, options).error(failureOf(error, tree->app()));
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
