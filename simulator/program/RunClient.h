// `tarvo-simulator run`: a program in the testbed that another process serves.
//
// The program itself is started unmodified: all that makes the testbed visible to it is its
// namespaces and its environment (LD_PRELOAD, UMOCKDEV_DIR).
#pragma once

#include <string>
#include <vector>

namespace tarvo::simulator {

/// Joins the namespaces of the server at `socket`, takes its environment, and becomes the program.
/// Returns only by raising std::runtime_error or std::system_error.
[[noreturn]] void runClient(const std::string& socket, const std::vector<std::string>& command);

/// Takes the descriptors of `slot` and becomes the program; the environment stays as it is.
[[noreturn]] void runInSlot(unsigned slot, const std::vector<std::string>& command);

}  // namespace tarvo::simulator
