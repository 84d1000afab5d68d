// Whether this machine has what the device registry lives on.
#pragma once

#include <string>

namespace tarvo {

/// Says in words what is missing: device events from the kernel, sysfs, or the udev daemon. Empty
/// text when all of it is there. `root` is put before every path. Any thread.
/// The daemon is known by its control socket, as libudev itself looks for it.
std::string missingPartOfUdev(const std::string& root = {});

}  // namespace tarvo
