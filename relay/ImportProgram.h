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
/// Imports in the terminal, as a child: this process stays what it is known by as running. Gives
/// the exit status.
int importInTerminal(const Arrival& arrival);
/// For a child between fork and exec; `parent` is the process that it is to end with. An import's
/// input ends with it, too; this reaches one that does not read.
void endWithParent(void* parent);

}  // namespace tarvo::relay
