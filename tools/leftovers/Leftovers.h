// What is left on this computer of commands that did not come to their end, and what is kept of
// devices: parts of cut downloads, backups, texts of edits that failed, scratch folders of
// processes that were killed.
//
//   for (const Leftover& each : leftoversIn("."))
//     ...
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "Utilities/PropertyDictionary.h"

namespace tarvo::tools {

struct Leftover {
  enum class Kind : std::uint8_t {
    kPart,     ///< of a download, beside its place
    kBackup,   ///< Kept::kBackup
    kEdit,     ///< Kept::kEdit
    kScratch,  ///< a ScratchFolder
  };

  Kind kind = Kind::kPart;
  std::string path{};
  std::string holds{};            ///< in words, "address book of TLA-000291: 3 contacts, 1 group"
  PropertyDictionary facts = {};  ///< the same: "object", "device", "what", "contacts", "groups"
  std::uint64_t size = 0;         ///< bytes, of a folder those of all its files
  std::time_t modified = 0;       ///< of a folder the latest of all that is in it
};

/// What lies at `path`; none where that is nothing of ours: of another user, of another name, in
/// another place, a link.
std::optional<Leftover> leftoverAt(const std::string& path);
/// Those that lie directly in `folder`, sorted; none of a folder that cannot be read.
std::vector<Leftover> leftoversIn(const std::string& folder);
/// "part", "backup", "edit" or "scratch".
const char* kindName(Leftover::Kind kind);
/// Whether it holds what a person may need and has nowhere else.
bool isPrecious(const Leftover& leftover);

/// Removes what is there still and nobody uses; what is left of it after an error is what the
/// system did not let go. None once it is gone, otherwise why it stays, a clause.
/// In use is a part that is open, an edit while any runs, and a scratch folder of a living process,
/// or one in which anything is younger than an hour: its process may have left it to another part
/// of itself.
std::optional<std::string> remove(const Leftover& leftover);

}  // namespace tarvo::tools
