// How a command of tarvoctl says its words: what it is called, what it is for, which options it
// has. Each file of commands has one function that adds them; CommandLine.cpp has the list of
// those.
//
//   void runQuery(ToolContext& context, const QueryOptions& options);
//
//   void addQueryCommand(CommandGroup& root) {
//     auto [command, options] = root.command("query", "Rows of the device's own database",
//                                            "tarvoctl query 'SELECT 1'", runQuery);
//     command.required("SQL", options.sql, "The query");
//   }
//
// Behind it is CLI11, which only the sources of the command line know: it is slow to compile.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace tarvo::tools {

struct ToolContext;

/// Runs a command and gives its exit status; raises what the command raises.
using Command = std::function<int(ToolContext&)>;

/// What the commands leave behind.
struct CommandTable {
  Command chosen{};    ///< the one that was asked for; set by the parse
  std::string name{};  ///< as it was typed: "orders list"
  /// All that an option or operand may be, where that is known.
  std::map<const CLI::Option*, std::vector<std::string>> words{};
};

/// The options and operands of one command. The places of their values are lent and filled in by
/// the parse, so the command itself has to own them.
class CommandOptions {
 public:
  CommandOptions(CLI::App& app, CommandTable& table) : app_(app), table_(table) {}

  /// `name` is the long one; --long, --recursive, --output, --yes and --dry-run go by a letter,
  /// too.
  CommandOptions& flag(const std::string& name, bool& value, const std::string& help);
  /// `type` is what the help calls the value. A shell completes FILE and PATH as files, DIR as
  /// folders; operands by their name likewise.
  CommandOptions& option(const std::string& name, std::string& value, const std::string& type,
                         const std::string& help);
  /// A number of things, which is not negative; the help calls it N.
  CommandOptions& count(const std::string& name, std::optional<std::uint64_t>& value,
                        const std::string& help);
  CommandOptions& count(const std::string& name, std::uint32_t& value, const std::string& help);
  /// By its place. It may be missing.
  CommandOptions& operand(const std::string& name, std::string& value, const std::string& help);
  CommandOptions& operand(const std::string& name, std::vector<std::string>& values,
                          const std::string& help);
  /// An operand that may not.
  template <typename Value>
  CommandOptions& required(const std::string& name, Value& value, const std::string& help) {
    return operand(name, value, help).require();
  }

  /// These two are about what was added last.
  CommandOptions& oneOf(std::vector<std::string> words);
  /// Only together with that option.
  CommandOptions& needs(const std::string& option);

  /// What the help and the manual say of the command before its example: lines of at most 80
  /// columns; one that begins with a blank stays a line.
  CommandOptions& more(const std::string& text);
  /// For programs: neither the help nor the manual has it.
  CommandOptions& hidden();

 private:
  CommandOptions& require();
  CommandOptions& last(CLI::Option* option);

  CLI::App& app_;
  CommandTable& table_;
  CLI::Option* last_ = nullptr;
};

/// A command, and the options that it owns.
template <typename Options>
struct CommandWithOptions {
  CommandOptions words;
  Options& options;
};

/// What holds commands: the program, or a word before them. Lives as long as the CLI::App.
class CommandGroup {
 public:
  /// Both are lent.
  CommandGroup(CLI::App& app, CommandTable& table) : app_(app), table_(table) {}

  /// A command that does something. Its help ends with `example`.
  CommandOptions command(const std::string& name, const std::string& description,
                         const std::string& example, Command run);
  /// The same of a function, which may give no status where it only ever ends well.
  template <typename Result>
  CommandOptions command(const std::string& name, const std::string& description,
                         const std::string& example, Result (*run)(ToolContext&)) {
    return command(name, description, example,
                   Command([run](ToolContext& context) { return statusOf(run, context); }));
  }
  template <typename Result, typename Options>
  CommandWithOptions<Options> command(const std::string& name, const std::string& description,
                                      const std::string& example,
                                      Result (*run)(ToolContext&, const Options&)) {
    const auto options = std::make_shared<Options>();
    return {command(name, description, example, Command([run, options](ToolContext& context) {
                      return statusOf(run, context, *options);
                    })),
            *options};
  }
  CommandGroup group(const std::string& name, const std::string& description,
                     const std::string& example);

  const CLI::App& app() const { return app_; }
  const CommandTable& table() const { return table_; }

 private:
  template <typename Result, typename... Options>
  static int statusOf(Result (*run)(ToolContext&, const Options&...), ToolContext& context,
                      const Options&... options) {
    if constexpr (std::is_void_v<Result>) {
      run(context, options...);
      return 0;
    } else {
      return run(context, options...);
    }
  }

  CLI::App& app_;
  CommandTable& table_;
};

/// The words of a command line with the names of commands and options in place of their synonyms:
/// "tarvoctl delete" is "tarvoctl rm". What the program is called is not among `words`.
std::vector<std::string> asMeant(const CLI::App& program, const std::vector<std::string>& words);
/// What may have been meant by `word`: the command below `app`, or where it begins with '-' the
/// option, that is one or two mistakes away; empty for none.
std::string nearestWord(const CLI::App& app, const std::string& word);

}  // namespace tarvo::tools
