#include "tools/command/CommandGroup.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <numeric>
#include <utility>

namespace tarvo::tools {
namespace {

/// The same letter for the same option, whatever command has it.
std::string withLetter(const std::string& name) {
  constexpr std::string_view kWithLetters[] = {"--long", "--recursive", "--output", "--yes"};
  if (name == "--dry-run") return "-n," + name;  // as in rsync and make
  const bool hasLetter = std::ranges::find(kWithLetters, name) != std::end(kWithLetters);
  return hasLetter ? "-" + name.substr(2, 1) + "," + name : name;
}

/// A number of things: CLI11 would take -1 for a very large one.
const CLI::Validator kCount = CLI::Validator(CLI::NonNegativeNumber).description("");

CLI::App& added(CLI::App& parent, const std::string& name, const std::string& description,
                const std::string& example) {
  auto* app = parent.add_subcommand(name, description);
  app->footer("Example:\n  " + example);
  return *app;
}

/// "orders list".
std::string nameBelowProgram(const CLI::App& app) {
  std::string name = app.get_name();
  for (const auto* group = app.get_parent(); group && group->get_parent();
       group = group->get_parent())
    name.insert(0, group->get_name() + " ");
  return name;
}

}  // namespace

CommandOptions& CommandOptions::last(CLI::Option* option) {
  last_ = option;
  return *this;
}

CommandOptions& CommandOptions::flag(const std::string& name, bool& value,
                                     const std::string& help) {
  return last(app_.add_flag(withLetter(name), value, help));
}

CommandOptions& CommandOptions::option(const std::string& name, std::string& value,
                                       const std::string& type, const std::string& help) {
  return last(app_.add_option(withLetter(name), value, help)->type_name(type));
}

CommandOptions& CommandOptions::count(const std::string& name, std::optional<std::uint64_t>& value,
                                      const std::string& help) {
  return last(app_.add_option(name, value, help)->type_name("N")->check(kCount));
}

CommandOptions& CommandOptions::count(const std::string& name, std::uint32_t& value,
                                      const std::string& help) {
  return last(app_.add_option(name, value, help)->type_name("N"));
}

CommandOptions& CommandOptions::operand(const std::string& name, std::string& value,
                                        const std::string& help) {
  return option(name, value, "", help);
}

CommandOptions& CommandOptions::operand(const std::string& name, std::vector<std::string>& values,
                                        const std::string& help) {
  return last(app_.add_option(name, values, help)->type_name(""));
}

CommandOptions& CommandOptions::require() {
  last_->required();
  return *this;
}

CommandOptions& CommandOptions::oneOf(std::vector<std::string> words) {
  last_->check(CLI::IsMember(words).description(""));
  table_.words[last_] = std::move(words);
  return *this;
}

CommandOptions& CommandOptions::needs(const std::string& option) {
  last_->needs(app_.get_option(option));
  return *this;
}

CommandOptions& CommandOptions::hidden() {
  app_.group("");
  return *this;
}

CommandOptions& CommandOptions::more(const std::string& text) {
  app_.footer(text + "\n\n" + app_.get_footer());
  return *this;
}

CommandOptions CommandGroup::command(const std::string& name, const std::string& description,
                                     const std::string& example, Command run) {
  auto& app = added(app_, name, description, example);
  app.callback([&table = table_, typed = nameBelowProgram(app), run = std::move(run)] {
    table.chosen = run;
    table.name = typed;
  });
  return {app, table_};
}

CommandGroup CommandGroup::group(const std::string& name, const std::string& description,
                                 const std::string& example) {
  auto& app = added(app_, name, description, example);
  app.require_subcommand(1);
  return {app, table_};
}

namespace {

using Words = std::vector<std::string_view>;

/// Words of one meaning, one line each: a command or an option that has one of them goes by all.
/// They stand in no help, as one word for one thing is enough to learn.
const std::vector<Words>& synonyms() {
  static const std::vector<Words> kSynonyms = {
      {"ls", "list", "dir"},
      {"get", "download", "fetch", "pull"},
      {"put", "upload", "send", "push"},
      {"rm", "delete", "remove", "del"},
      {"rename", "mv"},
      {"unmount", "umount", "eject"},
      {"show", "list", "ls", "view"},
      {"devices", "device"},
      {"volume", "volumes", "card", "cards"},
      {"storage", "store", "stores"},
      {"orders", "order"},
      {"albums", "album"},
      {"property", "properties"},
      {"addressbook", "address-book", "contacts"},
      {"favourites", "favorites", "favourite", "favorite"},
      {"fulfil", "fulfill"},
      {"leftovers", "left-overs"},
      {"msc", "unit", "units", "dock"},
      {"--recursive", "-R"},
      {"--to", "--parent", "--into", "--folder"},
      {"--output", "--out", "--output-dir", "--folder"},
      {"--pictures", "--photos", "--images"},
      {"--films", "--movies", "--videos"},
      {"--thumbnail", "--thumbnails"},
      {"--since", "--after"},
      {"--dry-run", "--dryrun"},
      {"--yes", "--assume-yes"},
      {"--device", "--serial"},
      {"--overwrite", "--replace"},
  };
  return kSynonyms;
}

/// An option of the command or of what holds it.
const CLI::Option* optionOf(const CLI::App* app, const std::string& name) {
  for (; app; app = app->get_parent())
    if (const auto* option = app->get_option_no_throw(name)) return option;
  return nullptr;
}

const CLI::App* commandOf(const CLI::App& app, std::string_view name) {
  for (const auto* command : app.get_subcommands([](const CLI::App*) { return true; }))
    if (command->get_name() == name) return command;
  return nullptr;
}

/// The synonym of `word` for which `has` something; `word` itself where there is none.
std::string synonymOf(const std::string& word, const std::function<bool(const std::string&)>& has) {
  if (has(word)) return word;
  for (const Words& words : synonyms()) {
    if (std::ranges::find(words, word) == words.end()) continue;
    const auto meant =
        std::ranges::find_if(words, [&](const auto& each) { return has(std::string(each)); });
    if (meant != words.end()) return std::string(*meant);
  }
  return word;
}

/// How many letters have to be put, taken, changed or exchanged with the next one.
std::size_t distance(std::string_view from, std::string_view to) {
  std::vector<std::size_t> before;
  std::vector<std::size_t> last(to.size() + 1);
  std::iota(last.begin(), last.end(), 0U);
  for (std::size_t i = 1; i <= from.size(); ++i) {
    std::vector<std::size_t> row = {i};
    for (std::size_t j = 1; j <= to.size(); ++j) {
      const std::size_t changed = last[j - 1] + (from[i - 1] == to[j - 1] ? 0 : 1);
      row.push_back(std::min({last[j] + 1, row[j - 1] + 1, changed}));
      const bool isExchanged =
          i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1];
      if (isExchanged) row[j] = std::min(row[j], before[j - 2] + 1);
    }
    before = std::exchange(last, std::move(row));
  }
  return last.back();
}

}  // namespace

std::vector<std::string> asMeant(const CLI::App& program, const std::vector<std::string>& words) {
  std::vector<std::string> meant;
  const CLI::App* app = &program;
  bool isValue = false;
  bool areOperands = false;
  for (const auto& word : words) {
    areOperands = areOperands || (word == "--" && !isValue);
    if (std::exchange(isValue, false) || areOperands || word == "-") {
      meant.push_back(word);
    } else if (word.starts_with('-')) {
      const auto end = std::min(word.find('='), word.size());
      const auto name = synonymOf(word.substr(0, end), [&](const std::string& each) {
        return optionOf(app, each) != nullptr;
      });
      const auto* option = optionOf(app, name);
      isValue = end == word.size() && option && option->get_items_expected_min() > 0;
      // What was once this option's value is an operand by itself.
      const bool isFormer = name == "--association" && app->get_name() == "ls";
      if (!isFormer) meant.push_back(name + word.substr(end));
      if (isFormer && end < word.size()) meant.push_back(word.substr(end + 1));
    } else {
      const auto name = synonymOf(
          word, [&](const std::string& each) { return commandOf(*app, each) != nullptr; });
      // What is no command of this place is an operand; a program has none.
      if (const auto* command = commandOf(*app, name)) app = command;
      meant.push_back(name);
    }
  }
  return meant;
}

std::string nearestWord(const CLI::App& app, const std::string& word) {
  std::vector<std::string> known;
  if (word.starts_with('-')) {
    for (const auto* each = &app; each; each = each->get_parent())
      for (const auto* option : each->get_options())
        for (const auto& name : option->get_lnames())
          known.push_back("--" + name);
  } else {
    for (const auto* command : app.get_subcommands([](const CLI::App*) { return true; }))
      known.push_back(command->get_name());
  }
  const auto far = [&](const std::string& each) { return distance(word, each); };
  const auto nearest = std::ranges::min_element(known, {}, far);
  // Of a short word there is little left after two mistakes.
  const bool isNear = nearest != known.end() && far(*nearest) <= (word.size() < 4 ? 1U : 2U);
  return isNear ? *nearest : "";
}

}  // namespace tarvo::tools
