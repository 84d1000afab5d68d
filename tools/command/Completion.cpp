// completion: what a shell has to know of the commands, and the part of the manual that is about
// them, told from the commands themselves.
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

/// An option or an operand.
struct Argument {
  std::string name{};    ///< "--format"; of an operand "FILE"
  std::string letter{};  ///< "-o", of an option that has one
  std::string value{};   ///< what the help calls its value, "FORMAT"; empty for a flag
  std::string help{};
  std::vector<std::string> words{};  ///< all that the value may be, where that is known
  bool isRequired = false;
  bool isRepeated = false;

  bool isFile() const { return value == "FILE" || value == "PATH"; }
  bool isFolder() const { return value == "DIR"; }
  /// What 'tarvoctl complete' is asked for it; empty where no device knows more.
  std::string kind() const {
    if (name == "--device") return "device";
    if (name == "--store" || value == "STORE") return "store";
    if (value == "PROPERTY") return "property";
    return value == "OBJECT" ? "object" : "";
  }
};

/// The program, a group of commands, or a command.
struct Outline {
  std::string path{};  ///< "volume ls"; empty for the program
  std::string help{};
  std::string more{};  ///< what the help says before its example
  std::vector<Argument> options{};
  std::vector<Argument> operands{};
  std::vector<Outline> commands{};

  std::string name() const { return path.substr(path.rfind(' ') + 1); }
};

Argument argumentOf(const CLI::Option& option, const CommandTable& table) {
  const bool isOperand = option.get_positional();
  const auto words = table.words.find(&option);
  return {.name = isOperand ? option.get_name(true) : "--" + option.get_lnames().front(),
          .letter = option.get_snames().empty() ? "" : "-" + option.get_snames().front(),
          .value = isOperand ? option.get_name(true) : option.get_type_name(),
          .help = option.get_description(),
          .words = words == table.words.end() ? std::vector<std::string>() : words->second,
          .isRequired = option.get_required(),
          .isRepeated = option.get_items_expected_max() > 1};
}

Outline outlineOf(const CLI::App& app, const CommandTable& table, const std::string& path) {
  const std::string footer = app.get_footer();
  Outline outline{.path = path,
                  .help = app.get_description(),
                  .more = footer.substr(0, footer.find("Example:"))};
  outline.more.erase(outline.more.find_last_not_of('\n') + 1);
  for (const auto* option : app.get_options()) {
    // The program's own stands behind every command.
    if (option == app.get_help_ptr() && !path.empty()) continue;
    auto& arguments = option->get_positional() ? outline.operands : outline.options;
    arguments.push_back(argumentOf(*option, table));
  }
  for (const auto* command : app.get_subcommands({})) {
    if (command->get_group().empty()) continue;
    const std::string before = path.empty() ? path : path + " ";
    outline.commands.push_back(outlineOf(*command, table, before + command->get_name()));
  }
  return outline;
}

/// Calls it for this one, and for all below.
void forEach(const Outline& outline, const std::function<void(const Outline&)>& visit) {
  visit(outline);
  for (const auto& command : outline.commands)
    forEach(command, visit);
}

/// With a backslash before each of `special`.
std::string escaped(std::string_view text, std::string_view special) {
  std::string made;
  for (const char each : text) {
    if (special.find(each) != std::string_view::npos) made += '\\';
    made += each;
  }
  return made;
}

/// One word for bash and zsh.
std::string shellWord(std::string_view text) {
  std::string made = "'";
  for (const char each : text)
    made += each == '\'' ? "'\\''" : std::string(1, each);
  return made + "'";
}

// bash.

constexpr const char* kBashStart =
    R"(# bash completion for tarvoctl, as 'tarvoctl completion bash' prints it

# What may follow the command $1.
_tarvoctl_command() {
  case $1 in
)";

// Nothing that was typed is evaluated, nor what a device says.
constexpr const char* kBashEnd = R"(  esac
}

# What the device knows of the kind $1, quoted for the line.
_tarvoctl_known() {
  local word
  tarvoctl complete "$@" 2>/dev/null | while IFS=$'\t' read -r word _; do
    printf '%q\n' "$word"
  done
}

_tarvoctl() {
  local current=${COMP_WORDS[COMP_CWORD]} command='' option='' kind word
  local commands='' options='' repeated=''
  local -a operands=() device=()
  local -A values=()
  local -i i count=0
  _tarvoctl_command ''
  for ((i = 1; i < COMP_CWORD; i++)); do
    word=${COMP_WORDS[i]}
    if [[ $word == = ]]; then
      : # bash takes --option=value apart
    elif [[ -n $option ]]; then
      [[ $option == --device ]] && device=(--device "$word")
      option=''
    elif [[ $word == -* ]]; then
      [[ -n ${values[$word]+known} ]] && option=$word
    elif [[ " $commands " == *" $word "* ]]; then
      command+="${command:+ }$word"
      _tarvoctl_command "$command"
    else
      count+=1
      commands=''
    fi
  done
  [[ $current == = ]] && current=''
  if [[ -n $option ]]; then
    kind=${values[$option]}
  elif [[ $current == -* ]]; then
    kind=$options
  else
    kind=${commands:-${operands[count]-$repeated}}
  fi
  COMPREPLY=()
  if [[ $kind == '-T '* ]]; then
    mapfile -t COMPREPLY < <(_tarvoctl_known "${kind#-T }" "${device[@]}" -- "$current")
  elif [[ $kind == '-o '* ]]; then
    compopt $kind # files, by readline itself, which knows how their names are quoted
  else
    mapfile -t COMPREPLY < <(compgen -W "$kind" -- "$current")
  fi
}
complete -F _tarvoctl tarvoctl
)";

/// All that a value may be, or how readline completes it.
std::string bashKind(const Argument& argument) {
  if (argument.isFile()) return shellWord("-o default");
  if (argument.isFolder()) return shellWord("-o dirnames");
  if (!argument.kind().empty()) return shellWord("-T " + argument.kind());
  return shellWord(joined(argument.words, " "));
}

std::string bashCommand(const Outline& outline) {
  std::vector<std::string> commands;
  for (const auto& command : outline.commands)
    commands.push_back(command.name());
  std::string options;
  std::string values;
  for (const auto& option : outline.options) {
    options += " " + option.name;
    if (option.value.empty()) continue;
    for (const auto& name : {option.name, option.letter})
      if (!name.empty()) values += "[" + name + "]=" + bashKind(option) + " ";
  }
  std::string operands;
  std::string repeated;
  for (const auto& operand : outline.operands)
    (operand.isRepeated ? repeated : operands) += bashKind(operand) + " ";
  return "    " + shellWord(outline.path) + ") commands=" + shellWord(joined(commands, " ")) +
         " options+=" + shellWord(options) + " values+=(" + values + ") operands=(" + operands +
         ") repeated=" + repeated + " ;;\n";
}

std::string bashScript(const Outline& program) {
  std::string script = kBashStart;
  forEach(program, [&](const Outline& outline) { script += bashCommand(outline); });
  return script + kBashEnd;
}

// zsh.

constexpr const char* kZshKnown = R"(
# What the device knows of a kind.
_tarvoctl_known() {
  local -a found device
  local -i at=${_tarvoctl_words[(I)--device]}
  [[ $@[-1] != device ]] && ((at)) && device=(--device "$_tarvoctl_words[at+1]")
  found=("${(@f)$(tarvoctl complete $@[-1] $device -- "$PREFIX" 2>/dev/null)}")
  found=(${found%%$'\t'*})
  compadd -a found
}
)";

constexpr const char* kZshGroup = R"(
  )
  _arguments -C $_tarvoctl_globals '1:command:->command' '*::argument:->argument'
  case $state in
    command) _describe command parts ;;
    argument) (($+functions[${self}_$words[1]])) && ${self}_$words[1] ;;
  esac
}
)";

// Sourced, or called as what the system's folder of functions has.
constexpr const char* kZshEnd = R"(
if [[ $funcstack[1] == _tarvoctl ]]; then
  _tarvoctl "$@"
else
  compdef _tarvoctl tarvoctl
fi
)";

std::string zshValue(const Argument& argument) {
  std::string action = argument.words.empty() ? " " : "(" + joined(argument.words, " ") + ")";
  if (argument.isFile()) action = "_files";
  if (argument.isFolder()) action = "_files -/";
  if (!argument.kind().empty()) action = "_tarvoctl_known " + argument.kind();
  return ":" + escaped(argument.value, "\\:") + ":" + action;
}

/// Options and operands as _arguments takes them, one a line.
std::string zshArguments(const Outline& outline) {
  std::string text;
  for (const auto& option : outline.options) {
    const bool isFlag = option.value.empty();
    const std::string after =
        "[" + escaped(option.help, "\\[]:") + "]" + (isFlag ? "" : zshValue(option));
    text += "\n    " + shellWord(option.name + (isFlag ? "" : "=") + after);
    if (!option.letter.empty()) text += "\n    " + shellWord(option.letter + after);
  }
  int place = 0;
  for (const auto& operand : outline.operands) {
    const std::string at = std::to_string(++place);
    text += "\n    " + shellWord((operand.isRepeated ? "*" : at) + zshValue(operand));
  }
  return text;
}

std::string zshFunction(const Outline& outline) {
  std::string name = outline.path.empty() ? "_tarvoctl" : "_tarvoctl_" + outline.path;
  std::ranges::replace(name, ' ', '_');
  std::string text = "\n" + name + "() {\n";
  if (outline.path.empty()) text += "  local -a _tarvoctl_words=(\"${words[@]}\")\n";
  if (outline.commands.empty())
    return text + "  local -a own=(" + zshArguments(outline) +
           "\n  )\n  _arguments $_tarvoctl_globals $own\n}\n";
  text += "  local self=" + name + " curcontext=$curcontext state line\n  local -A opt_args\n" +
          "  local -a parts=(";
  for (const auto& command : outline.commands)
    text += "\n    " + shellWord(command.name() + ":" + escaped(command.help, "\\:"));
  return text + kZshGroup;
}

std::string zshScript(const Outline& program) {
  std::string script =
      "#compdef tarvoctl\n# zsh completion for tarvoctl, as 'tarvoctl completion zsh' prints it\n\n"
      "_tarvoctl_globals=(" +
      zshArguments(program) + "\n)\n" + kZshKnown;
  forEach(program, [&](const Outline& outline) { script += zshFunction(outline); });
  return script + kZshEnd;
}

// fish.

constexpr const char* kFishStart =
    R"(# fish completion for tarvoctl, as 'tarvoctl completion fish' prints it

# Whether the words before the cursor are that command with as many behind it:
# __tarvoctl_at -eq 0 volume ls
function __tarvoctl_at
    set -l compare $argv[1..2]
    set -e argv[1..2]
    set -l words
    set -l isValue 0
    for word in (commandline -opc)
        if test $isValue = 1
            set isValue 0
        else if contains -- $word $__tarvoctl_valued
            set isValue 1
        else if not string match -q -- '-*' $word
            set -a words $word
        end
    end
    set -e words[1]
    string match -q -- (string join ' ' $argv '*') "$words "
    and test (count $words) $compare[1] (math (count $argv) + $compare[2])
end

# What the device knows of a kind.
function __tarvoctl_known
    set -l words (commandline -opc)
    set -l device
    if test $argv != device; and set -l at (contains -i -- --device $words)
        set device --device $words[(math $at + 1)]
    end
    tarvoctl complete $argv $device -- (commandline -ct) 2>/dev/null
end

complete -c tarvoctl -f
)";

std::string fishQuoted(std::string_view text) {
  return "'" + escaped(text, "\\'") + "'";
}

/// What completes that command where so many words are behind it: "-eq 0".
std::string fishRule(const Outline& outline, const std::string& count, const std::string& rule) {
  const std::string path = outline.path.empty() ? "" : " " + outline.path;
  return "complete -c tarvoctl -n '__tarvoctl_at " + count + path + "'" + rule + "\n";
}

/// " -F" for files, " -a 'json vcard'"; empty where nothing is known of the value.
std::string fishValue(const Argument& argument) {
  if (argument.isFile()) return " -F";
  if (argument.isFolder()) return " -a '(__fish_complete_directories)'";
  if (!argument.kind().empty()) return " -a '(__tarvoctl_known " + argument.kind() + ")'";
  return argument.words.empty() ? "" : " -a " + fishQuoted(joined(argument.words, " "));
}

std::string fishOption(const Argument& option) {
  const std::string letter = option.letter.empty() ? "" : " -s " + option.letter.substr(1);
  std::string text = letter + " -l " + option.name.substr(2) + " -d " + fishQuoted(option.help);
  if (option.value.empty()) return text;
  return text + (option.isFile() ? " -r" : " -x") + fishValue(option);
}

std::string fishRules(const Outline& outline) {
  std::string text;
  for (const auto& command : outline.commands)
    text += fishRule(outline, "-eq 0", " -a " + command.name() + " -d " + fishQuoted(command.help));
  for (const auto& option : outline.options)
    text += fishRule(outline, "-ge 0", fishOption(option));
  int place = 0;
  for (const auto& operand : outline.operands) {
    const std::string count = (operand.isRepeated ? "-ge " : "-eq ") + std::to_string(place++);
    const std::string value = fishValue(operand);
    if (!value.empty()) text += fishRule(outline, count, value);
  }
  return text;
}

std::string fishScript(const Outline& program) {
  std::set<std::string> valued;
  std::string rules;
  forEach(program, [&](const Outline& outline) {
    rules += fishRules(outline);
    for (const auto& option : outline.options)
      if (!option.value.empty()) valued.insert({option.name, option.letter});
  });
  return kFishStart + ("set -g __tarvoctl_valued " + joined({valued.begin(), valued.end()}, " ")) +
         "\n" + rules;
}

// The manual, in the language of its pages.

/// Options in bold, the rest as it is.
std::string manText(std::string_view text) {
  std::string made;
  while (!text.empty()) {
    const bool isOption = text.starts_with("--");
    const auto end = isOption ? text.find_first_not_of("-abcdefghijklmnopqrstuvwxyz") : 1;
    const bool beginsLine = made.empty() || made.back() == '\n';
    if (beginsLine && text.front() == '.') made += "\\&";
    if (isOption) made += "\\fB";
    for (const char each : text.substr(0, end))
      made += each == '-'    ? "\\-"
              : each == '\'' ? "\\(aq"
              : each == '\\' ? "\\e"
                             : std::string(1, each);
    if (isOption) made += "\\fP";
    text.remove_prefix(std::min(end, text.size()));
  }
  return made;
}

std::string manArguments(const std::vector<Argument>& arguments) {
  std::string text;
  for (const auto& argument : arguments) {
    const bool isOperand = argument.name == argument.value;
    const std::string letter = argument.letter.empty() ? "" : "\\fB\\" + argument.letter + "\\fP, ";
    text += ".TP\n" + (isOperand ? "" : letter + manText(argument.name));
    if (!isOperand && !argument.value.empty()) text += " ";
    if (!argument.value.empty()) text += "\\fI" + argument.value + "\\fP";
    text += "\n" + manText(argument.help) + "\n";
  }
  return text;
}

/// Each command with its arguments, below each group its commands.
std::string manCommands(const std::vector<Outline>& commands) {
  std::string text;
  for (const auto& command : commands) {
    text += ".TP\n\\fB" + manText(command.path) + "\\fP";
    for (const auto& operand : command.operands) {
      const std::string name = "\\fI" + operand.name + "\\fP" + (operand.isRepeated ? "..." : "");
      text += operand.isRequired ? " " + name : " [" + name + "]";
    }
    text +=
        (command.options.empty() ? "\n" : " [\\fIOPTION\\fP...]\n") + manText(command.help) + ".\n";
    if (!command.more.empty()) text += manText(command.more) + "\n";
    const std::string below = manArguments(command.operands) + manArguments(command.options) +
                              manCommands(command.commands);
    if (!below.empty()) text += ".RS 4\n" + below + ".RE\n";
  }
  return text;
}

std::string manPart(const Outline& program) {
  return ".SH OPTIONS\nThese may stand before the command or behind it.\n" +
         manArguments(program.options) + ".SH COMMANDS\n" + manCommands(program.commands);
}

struct Form {
  const char* name;
  std::string (*make)(const Outline& program);
};
constexpr Form kForms[] = {
    {"bash", bashScript}, {"zsh", zshScript}, {"fish", fishScript}, {"man", manPart}};

}  // namespace

void addCompletionCommand(CommandGroup& root) {
  const auto form = std::make_shared<std::string>();
  std::vector<std::string> names;
  for (const auto& each : kForms)
    names.emplace_back(each.name);
  // Both live as long as the command.
  const auto run = [form, &app = root.app(), &table = root.table()](ToolContext& context) {
    const auto* wanted = std::ranges::find(kForms, *form, &Form::name);
    context.output.text(wanted->make(outlineOf(app, table, {})));
    return int{kDone};
  };
  root.command("completion", "The script that completes commands in a shell",
               "tarvoctl completion bash", run)
      .required("SHELL", *form, "bash, zsh or fish; man for the manual's part about commands")
      .oneOf(names)
      .more("No device is asked. An installation has the scripts in their places.");
}

}  // namespace tarvo::tools
