#include "tools/CommandLine.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <charconv>
#include <chrono>
#include <clocale>
#include <csignal>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Utilities/Exception.h"
#include "Utilities/TypedWords.h"
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

/// A file of commands, and the words that it adds to the program.
struct CommandFile {
  CommandAdder* add;
  std::vector<std::string_view> names;
};

/// In the order of the help.
const CommandFile kCommands[] = {
    {addDeviceCommands, {"devices", "clock", "reset"}},
    {addInfoCommand, {"info"}},
    {addEventCommand, {"events"}},
    {addStorageCommands, {"storage"}},
    {addListCommand, {"ls"}},
    {addGetCommand, {"get"}},
    {addImportCommand, {"import"}},
    {addPutCommand, {"put"}},
    {addRemoveCommands, {"rm", "rename"}},
    {addVolumeCommands, {"volume"}},
    {addPropertyCommands, {"property"}},
    {addOrdersCommands, {"orders"}},
    {addAddressBookCommands, {"addressbook"}},
    {addAlbumCommands, {"albums", "favourites"}},
    {addDeviceFileCommands, {"collection", "shoebox", "wireless-config", "display"}},
    {addMassStorageCommands, {"eject", "msc"}},
    {addQueryCommand, {"query"}},
    {addModelCommands, {"models"}},
    {addRecordCommands, {"decode", "encode"}},
    {addLeftoversCommand, {"leftovers"}},
    {addDoctorCommand, {"doctor"}},
    {addCompletionCommand, {}},  // it tells of all
    {addCompleteCommand, {"complete"}}};

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

void addGlobals(CLI::App& app, GlobalOptions& globals) {
  // Global options may stand behind the command, too.
  app.fallthrough();
  app.require_subcommand(1);
  app.set_version_flag("--version", std::string("tarvoctl ") + TARVO_VERSION,
                       "Print the version and exit");
  app.set_help_flag("-h,--help", "Print this help and exit");
  app.add_flag("--json", globals.json, "Results and errors as one JSON document");
  app.add_flag("--json-lines", globals.jsonLines, "The same, a line each, lists entry by entry");
  app.add_option("--device", globals.device,
                 "Its serial number, location or name, or how one of these begins")
      ->type_name("DEVICE");
  app.add_option("--config", globals.configFile, "Read FILE in place of your own preferences")
      ->type_name("FILE");
  app.add_flag("-q,--quiet", globals.quiet, "Neither messages nor progress");
  const auto takeTimeout = [&globals](const std::string& text) {
    globals.timeout = durationFrom(text);
    if (!globals.timeout)
      throw CLI::ValidationError("--timeout", "'" + text +
                                                  "' is no time: give seconds, or 500ms, "
                                                  "5s, 2m, a day at most");
  };
  app.add_option_function<std::string>("--timeout", takeTimeout,
                                       "How long the device may be silent")
      ->type_name("SECONDS");
}

/// What CLI11 fills in lies here, so it outlives the command.
struct CommandTree {
  /// With all commands, or with those that are among the words.
  CommandTree(bool isWhole, const std::vector<std::string>& words) {
    addGlobals(app, globals);
    CommandGroup root(app, table);
    for (const auto& [add, names] : kCommands)
      if (isWhole || std::ranges::find_first_of(words, names) != words.end()) add(root);
    app.footer("'tarvoctl COMMAND --help' tells more.\n\nExample:\n  tarvoctl devices");
  }
  CommandTree(const CommandTree&) = delete;
  CommandTree& operator=(const CommandTree&) = delete;

  CLI::App app{"Everything that a Tarvo device can do, from a shell.", "tarvoctl"};
  GlobalOptions globals{};
  CommandTable table{};  ///< set by the parse
};

/// What is wrong with the command line, in words: the parser says only that a command is missing,
/// or that a word was not expected.
Failure parseFailureOf(const CLI::ParseError& error, const CLI::App& app) {
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
  } catch (const OutputError& error) {
    return ended(context, error.failure(), error.exitCode());
  } catch (const ToolError& error) {
    Failure failure = error.failure();
    failure.operation = context.operation;
    if (error.exitCode() == kBadUsage && failure.advice.empty())
      failure.advice = "Try 'tarvoctl " + context.operation + " --help'.";
    return ended(context, failure, error.exitCode());
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

/// Gives the help that was asked for, or says what is wrong; gives the exit status.
int endedBy(const CommandTree& tree, const CLI::ParseError& error,
            const std::vector<std::string>& words, std::FILE* out, std::FILE* err) {
  if (dynamic_cast<const CLI::CallForHelp*>(&error) != nullptr) {
    std::fputs(tree.app.help().c_str(), out);
    return kDone;
  }
  // Its form of output is wanted all the same.
  GlobalOptions options;
  options.json = std::ranges::count(words, "--json") > 0;
  options.jsonLines = std::ranges::count(words, "--json-lines") > 0;
  Output(out, err, options).error(parseFailureOf(error, tree.app));
  return kBadUsage;
}

/// What the command line says of it. A signal ends transactions that are running.
SessionOptions sessionOptions(const GlobalOptions& given, Output& output,
                              const StopSignals& interrupt) {
  SessionOptions options;
  options.stopBy(interrupt).name("tarvoctl").quiet(given.quiet || output.isJSON());
  options.whileWaiting(
      [&output] { output.message("The device is still at it; Ctrl-C ends the wait."); });
  if (given.timeout) options.timeout(*given.timeout);
  if (given.configFile) options.preferences(*given.configFile);
  return options;
}

}  // namespace

CommandLine readCommandLine(int argc, const char* const* argv, std::FILE* out, std::FILE* err) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  // The words of all commands are most of what a start costs. What is not understood, help and
  // words of the same meaning among it, is read again with all of them.
  for (bool isWhole = false;; isWhole = true) {
    // Kept by the command, whose options lie in it.
    const auto tree = std::make_shared<CommandTree>(isWhole, words);
    const auto meant = asMeant(tree->app, words);
    std::vector<const char*> arguments(argv, argv + 1);
    for (const auto& word : meant)
      arguments.push_back(word.c_str());
    try {
      parseAsTyped(tree->app, static_cast<int>(arguments.size()), arguments.data());
      return {.options = tree->globals, .command = [tree](ToolContext& context) {
                context.operation = tree->table.name;
                return tree->table.chosen(context);
              }};
    } catch (const CLI::CallForVersion&) {
      std::fputs((tree->app.version() + "\n").c_str(), out);
      return {.exitCode = kDone};
    } catch (const CLI::ParseError& error) {
      if (isWhole) return {.exitCode = endedBy(*tree, error, meant, out, err)};
    }
  }
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

int runProgram(int argc, char** argv, ImportRun* import) {
  // For the words of the C library's errors.
  std::setlocale(LC_ALL, "");
  // A reader that leaves is met where it is written to, so that a session on a device is closed.
  std::signal(SIGPIPE, SIG_IGN);
  const CommandLine line = readCommandLine(argc, argv, stdout, stderr);
  if (line.exitCode) return *line.exitCode;
  const StopSignals interrupt;
  Output output(stdout, stderr, line.options);
  std::optional<Session> session;
  const SessionSource source = [&]() -> Session& {
    return session ? *session : session.emplace(sessionOptions(line.options, output, interrupt));
  };
  ToolContext context{line.options, output, source, interrupt, stdin, "/dev/tty", argv, import};
  return runCommand(context, line.command);
}

}  // namespace tarvo::tools
