#include "tools/command/CommandGroup.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <utility>

namespace tarvo::tools {
namespace {

/// A number of things: CLI11 would take -1 for a very large one.
const CLI::Validator kCount = CLI::Validator(CLI::NonNegativeNumber).description("");

CLI::App& added(CLI::App& parent, const std::string& name, const std::string& description,
                const std::string& example) {
  auto* app = parent.add_subcommand(name, description);
  app->footer("Example:\n  " + example);
  return *app;
}

}  // namespace

CommandOptions& CommandOptions::flag(const std::string& name, bool& value,
                                     const std::string& help) {
  last_ = app_.add_flag(name, value, help);
  return *this;
}

CommandOptions& CommandOptions::option(const std::string& name, std::string& value,
                                       const std::string& type, const std::string& help) {
  last_ = app_.add_option(name, value, help)->type_name(type);
  return *this;
}

CommandOptions& CommandOptions::count(const std::string& name, std::optional<std::uint64_t>& value,
                                      const std::string& help) {
  last_ = app_.add_option(name, value, help)->type_name("N")->check(kCount);
  return *this;
}

CommandOptions& CommandOptions::count(const std::string& name, std::uint32_t& value,
                                      const std::string& help) {
  last_ = app_.add_option(name, value, help)->type_name("N");
  return *this;
}

CommandOptions& CommandOptions::operand(const std::string& name, std::string& value,
                                        const std::string& help) {
  return option(name, value, "", help);
}

CommandOptions& CommandOptions::operand(const std::string& name, std::vector<std::string>& values,
                                        const std::string& help) {
  last_ = app_.add_option(name, values, help)->type_name("");
  return *this;
}

CommandOptions& CommandOptions::required() {
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

CommandOptions& CommandOptions::more(const std::string& text) {
  app_.footer(text + "\n\n" + app_.get_footer());
  return *this;
}

namespace {

/// "orders list".
std::string nameBelowProgram(const CLI::App& app) {
  std::string name = app.get_name();
  for (const auto* group = app.get_parent(); group && group->get_parent();
       group = group->get_parent())
    name = group->get_name() + " " + name;
  return name;
}

}  // namespace

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

}  // namespace tarvo::tools
