// What a person reads of what a device gave: texts that cannot steer a terminal, and numbers as
// they are known. All of it from any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Utilities/Status.h"

namespace tarvo {

/// One line without control characters, which could steer a terminal; U+FFFD stands for each, and
/// for what is no UTF-8.
std::string printable(std::string_view text);
/// The same of several lines: tabs and the ends of lines (LF, or CR LF) stay.
std::string printableLines(std::string_view text);
/// One text of several: "a, b".
std::string joined(const std::vector<std::string>& texts, std::string_view separator = ", ");
/// What is known of a failure. What is empty, and status 0, is not said.
struct FailureWords {
  std::string_view operation{};
  std::string_view object{};
  Status status = status::kOK;
  std::string_view why{};     ///< a clause
  std::string_view advice{};  ///< sentences
};
/// "get TARV0001.JPG: device did not answer in time: WHY. ADVICE (0xffffd950)": words first, the
/// number last. One line, printable, whatever a device gave.
std::string inWords(const FailureWords& failure);
/// Object handles and store ids: "0x00010003".
std::string handleText(std::uint32_t handle);

}  // namespace tarvo
