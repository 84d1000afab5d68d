// The program that imports, and how it is started for a device.
#pragma once

#include <string>
#include <vector>

#include "relay/Arrival.h"

namespace tarvo::relay {

/// Where the program of the import is: $TARVO_TARVOCTL, else beside this one, installed or as
/// built.
std::string importProgram();
/// The words of the import of a device: with a conversation, or for a terminal.
std::vector<std::string> importWords(const std::string& program, const Arrival& arrival,
                                     bool isConversation);
/// Becomes the import in the terminal. Returns only where that fails: the exit status.
int importInTerminal(const Arrival& arrival);

}  // namespace tarvo::relay
