// Feeds the reader of desktop entries any text, which every program of a user can leave in his
// folder of applications.
//
// The programs that are found stand in a line of the text, none in an entry that is hidden. A name
// that is quoted as the Desktop Entry Specification says comes back as it was, alone and out of a
// whole entry.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/Require.h"
#include "platform/desktop/ProcessRunningApplications.h"

namespace {

/// As an argument of an Exec value ("The Exec key").
std::string asArgument(std::string_view name) {
  std::string text = "\"";
  for (const char c : name) {
    if (c == '"' || c == '\\' || c == '`' || c == '$') text += '\\';
    text += c;
    if (c == '%') text += '%';
  }
  return text + "\"";
}

/// As a value of a key file.
std::string escaped(std::string_view value) {
  std::string text;
  for (const char c : value) {
    constexpr std::string_view kMeanings = " \n\t\r\\";
    const auto which = kMeanings.find(c);
    text +=
        which == std::string_view::npos ? std::string(1, c) : std::string("\\") + "sntr\\"[which];
  }
  return text;
}

void checkName(const std::string& name) {
  const std::string exec = asArgument(name) + " --flag %U";
  const auto program = tarvo::programOfExec(exec);
  require(name.empty() ? !program : program == name);
  if (name.empty()) return;
  const std::string entry = "[Desktop Entry]\nName=x\nExec=" + escaped(exec) + "\n";
  require(tarvo::programsOfDesktopEntry(entry) == std::set<std::string>{name});
  require(tarvo::programsOfDesktopEntry(entry + "[Desktop Action a]\nExec=other\n") ==
          std::set<std::string>{name});
  require(tarvo::programsOfDesktopEntry(entry + "Hidden=true\n").empty());
}

void checkExec(std::string_view exec) {
  const auto program = tarvo::programOfExec(exec);
  if (!program) return;
  require(!program->empty() && program->size() <= exec.size());
  // Of it nothing is made up.
  require(std::ranges::all_of(*program,
                              [&](char c) { return exec.find(c) != std::string_view::npos; }));
  // What stands behind is an argument.
  const bool isPlain = exec.find_first_of("\"\\%\t\r ") == std::string_view::npos;
  require(!isPlain || (*program == exec && tarvo::programOfExec(*program + " b") == program));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<char> copy(data, data + size);
  const std::string_view text(copy.data(), copy.size());
  const auto programs = tarvo::programsOfDesktopEntry(text);
  std::size_t bytes = 0;
  for (const auto& program : programs)
    bytes += program.size();
  require(bytes <= size);
  require(programs.empty() || text.find("Exec") != std::string_view::npos);
  checkExec(text);
  checkName(std::string(text));
  return 0;
}
