// What a process needs to be a testbed: the preload, and namespaces of its own.
//
//   int main(int argc, char** argv) {
//     TestbedProcess::enter(argv);
//     Testbed testbed(volumes);
//     ...start programs with TestbedProcess::environment(testbed) added to theirs...
//   }
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace tarvo::simulator {

class Testbed;

class TestbedProcess {
 public:
  /// To be called first thing in main(), before any thread exists. Starts the program anew with the
  /// preload when it is missing, then enters a mount, an IPC and a network namespace (and, for a
  /// user other than root, a user namespace with the same ids). Mounts made from then on are seen
  /// by this process and its children only; /run/udev there is the testbed's own. Raises
  /// std::system_error when the system refuses namespaces or the preload is not installed.
  static void enter(char** argv);

  /// The environment that shows `testbed` to a program, beside what the program needs itself.
  static std::map<std::string, std::string> environment(const Testbed& testbed);
};

/// The preload's value for LD_PRELOAD, with a sanitizer's runtime before it where this program has
/// one.
std::string preloadValue();

/// Takes this process's lowest free descriptors, to be inherited by the program that it becomes.
/// Two programs that listen for device events must not do so on the same descriptor number, so each
/// is started with a slot of its own (Testbed::nextClientSlot). Raises std::system_error.
void takeDescriptorsForClient(unsigned slot);

}  // namespace tarvo::simulator
