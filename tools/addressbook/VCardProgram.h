// tarvo-vcard, the program that knows the syntax of vCards, as a child process.
#pragma once

#include <string>

namespace tarvo::tools {

/// What the program answers to `input`; `mode` is "read" or "write". It is the one that the
/// environment variable TARVO_VCARD names, else the one beside this program, else the installed
/// one. Raises a ToolError about `object` where there is none, and where it failed.
std::string runVCardProgram(const std::string& operation, const std::string& object,
                            const std::string& mode, const std::string& input);

}  // namespace tarvo::tools
