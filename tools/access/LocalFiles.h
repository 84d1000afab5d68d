// Files on this side: where a download goes, and small files that are written whole or not at all.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "Utilities/Status.h"
#include "platform/files/WholeFile.h"
#include "tools/output/Output.h"

namespace tarvo::tools {

/// Where files go: into a folder, under their own names or under the one that was given.
struct LocalTarget {
  std::string folder = ".";
  std::optional<std::string> name{};
};

/// Makes it and those above it, where they are missing. Raises a ToolError.
void makeFolder(const std::string& folder);

/// What `output` means: a folder that is there, or ends with "/", is a folder, and so is any where
/// there is more than one object; it is made where it is missing. Otherwise it is the file's name.
/// Raises a ToolError for a folder that cannot be made and for a file's folder that is not there.
LocalTarget resolvedTarget(const std::string& output, bool isOneObject);

/// Warns of a folder without room for so many files that are `wanted`, "to be fetched". It is no
/// refusal: what fits is worth fetching, and somebody may make room meanwhile.
void warnOfRoom(Output& output, const std::string& folder, const std::string& wanted,
                std::size_t count, std::uint64_t bytes);

/// The path of a program that goes with this one, "tarvo-import": the one beside it, so that a
/// build that is not installed uses its own, else the installed one.
std::string ownProgram(const std::string& name);

// What is kept of a device on this computer, in dated files that nothing replaces.

enum class Kept : std::uint8_t {
  kBackup,  ///< what it held before it was changed
  kEdit,    ///< what its user makes of it, until that is on the device
};

/// $XDG_DATA_HOME/tarvo/backups, or edits. It need not be there.
std::string keptFolder(Kept kind);

/// Writes "SERIAL-WHAT-20261125T011500.EXTENSION" into that folder, readable for its owner alone,
/// and returns its path. A name that is taken gets a number. Raises a ToolError where it cannot be
/// written: then nothing may be sent.
std::string keepFile(const std::string& serial, Kept kind, std::string_view what,
                     std::string_view extension, std::span<const std::byte> content);

struct KeptName {
  std::string serial;  ///< as far as a name can hold it
  std::string what;
  std::string extension;
};
/// What such a name says; none for any other.
std::optional<KeptName> keptNameOf(const std::string& name);

}  // namespace tarvo::tools
