// A child that says what a test has written, line by line, in a shell.
#pragma once

#include <csignal>
#include <string>
#include <vector>

#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {

/// SIGPIPE is ignored for the whole program, as the window's has it.
class FakeImport {
 public:
  FakeImport() { std::signal(SIGPIPE, SIG_IGN); }

  /// The words of a child. Its script has these beside the shell's own: `say '{...}'` prints a
  /// line, `hears WORD` reads commands up to one with WORD in it, `forever` lives until it is
  /// killed.
  std::vector<std::string> words(const std::string& script) const {
    return {
        folder_.writeScript("import",
                            "say() { printf '%s\\n' \"$@\"; }\n"
                            "forever() { mkfifo \"$0.$$\"; exec 9<>\"$0.$$\"; read -r _ <&9; }\n"
                            "hears() { while read -r line; do echo \"$line\" >> \"${0%/*}/heard\"\n"
                            "  case $line in *\"$1\"*) return;; esac; done; exit 0; }\n" +
                                script + "\n")};
  }
  /// What it has read.
  std::string heard() const { return folder_.read("heard"); }
  const std::string& folder() const { return folder_.path(); }

 private:
  TemporaryFolder folder_;
};

}  // namespace tarvo::test
