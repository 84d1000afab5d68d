// Who else has a device node open, so that a busy device can be explained.
#pragma once

#include <string>

namespace tarvo::ptp {

/// "process NAME (pid N)" of a process other than this one that has the file behind the descriptor
/// `node` open, and "or" between several: having it open is not yet having its interface. Empty
/// when none is found. Only processes whose descriptors this user may see are looked at.
std::string processHolding(int node);

}  // namespace tarvo::ptp
