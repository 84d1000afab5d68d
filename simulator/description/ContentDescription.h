// The files and folders of a device, as its JSON description lists them. docs/simulator.md has the
// schema.
//
//   {"folder": "DCIM", "content": [{"file": "A.JPG", "size": 1000, "thumbnail": true}]}
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tarvo::simulator {

class JsonNode;

/// Objects that are made when they are asked for: `count` files of `size` bytes.
struct GeneratedFiles {
  std::uint32_t count = 0;
  std::uint32_t size = 0;
  std::string prefix = "TARV";  ///< a name is prefix, number from 1 in six digits, ".", extension
  std::string extension = "JPG";
  /// Name of the file at `index`, counted from 0.
  std::string nameOf(std::uint32_t index) const;
};

/// What the description of a PTP object may say beside its name and its bytes.
struct ObjectTraits {
  std::uint16_t format = 0;  ///< PTP object format; 0: by the extension
  std::string captured = "20240615T120000";
  std::string modified = "20240615T120000";
  std::string keywords;
  bool isProtected = false;
  bool hasThumbnail = false;
  bool hidesSize = false;   ///< ObjectInfo says 0xFFFFFFFF, as for an object that is still growing
  std::string appearsWith;  ///< not listed before the ObjectInfo of the file of this name was read
};

/// A folder, a file, or generated files in the folder that holds them.
struct ContentNode {
  enum class Kind { kFolder, kFile, kGenerated };
  Kind kind = Kind::kFile;
  std::u16string name;                ///< of a PTP device: any units, also what is no file name
  std::uint64_t size = 0;             ///< of a file
  std::optional<std::string> text;    ///< bytes of a file; absent: a pattern
  ObjectTraits traits;                ///< of a PTP device
  std::vector<ContentNode> children;  ///< of a folder
  GeneratedFiles generated;           ///< of kGenerated, which has no name of its own
};

/// Whether names have to be good on a real file system. Texts always have to; a device may be
/// described with other names in the form {"raw": TEXT} or {"utf16": [UNITS]}.
enum class NameRule { kRealFile, kAnything };

/// A list of nodes; raises DescriptionError, and so do the others.
std::vector<ContentNode> readContent(const JsonNode& list, NameRule rule);
/// One node of such a list.
ContentNode readContentNode(const JsonNode& node, NameRule rule);
/// Text that may be any units: TEXT, {"raw": TEXT} or {"utf16": [UNITS]}, the last two with
/// "repeat".
std::u16string readUnits(const JsonNode& node);
/// A file name as text.
std::string readFileName(const JsonNode& node);

// The described content of a volume as real files.

/// Makes files and folders in `folder`, which must exist. A file without text is a hole of its
/// size, which takes no room. Raises std::system_error.
void writeContent(const std::filesystem::path& folder, const std::vector<ContentNode>& content);

}  // namespace tarvo::simulator
