// leftovers: what is left on this computer of commands that did not come to their end, and what is
// kept of devices: parts of cut downloads, backups, texts of edits that failed, scratch folders of
// processes that were killed.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "Utilities/Exception.h"
#include "Utilities/FileDescriptor.h"
#include "Utilities/JSONReader.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "platform/files/FilePlace.h"
#include "platform/files/PartFile.h"
#include "platform/files/ScratchFolder.h"
#include "tools/access/Batch.h"
#include "tools/access/LocalFiles.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/output/Output.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

namespace fs = std::filesystem;

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

constexpr std::time_t kQuietTime = std::time_t{60} * 60;

bool liesIn(const fs::path& path, const fs::path& folder) {
  std::error_code error;
  return fs::equivalent(path.parent_path(), folder, error) && !error;
}

/// A book that lies in a file; null where that is none.
PropertyDictionary bookIn(const Leftover& found) {
  if (found.size > kMostJSONBytes) return nullptr;
  std::string text(found.size, '\0');
  std::ifstream(found.path, std::ios::binary).read(text.data(), std::ssize(text));
  try {
    return jsonFromText(text);
  } catch (const Exception&) {
    return nullptr;  // what it is worth is not the question here
  }
}

/// How many entries of each kind a book has that lies in a file, as its JSON tells it.
void countEntries(Leftover& found) {
  const auto book = bookIn(found);
  if (!book.is_object()) return;
  const auto count = [&](const char* key, const char* things) {
    const auto entries = book.find(key);
    if (entries == book.end() || !entries->is_array()) return;
    found.facts[things] = entries->size();
    found.holds += (found.facts.size() == 3 ? ": " : ", ") + counted(entries->size(), things);
  };
  count("XTAddressBookContactsKey", "contacts");
  count("XTAddressBookGroupsKey", "groups");
}

/// What is kept in its folder has its name from keepFile().
bool describeKept(Leftover& found, const fs::path& path) {
  for (const Leftover::Kind kind : {Leftover::Kind::kBackup, Leftover::Kind::kEdit})
    if (liesIn(path, keptFolder(kind == Leftover::Kind::kBackup ? Kept::kBackup : Kept::kEdit)))
      found.kind = kind;
  const auto name = keptNameOf(path.filename());
  if (found.kind == Leftover::Kind::kPart || !name) return false;
  found.facts = {{"device", validUTF8(name->serial)}, {"what", name->what}};
  const bool isBook = name->what == "addressbook";
  const char* what = !isBook                    ? "album names"
                     : name->extension == "bin" ? "an entry of the address book"
                                                : "address book";
  found.holds = what + (" of " + name->serial);
  if (name->extension == "json") countEntries(found);
  return true;
}

bool describePart(Leftover& found, const fs::path& path) {
  const auto object = PartFile::objectOf(path.filename().native());
  if (!object) return false;
  found.facts = {{"object", validUTF8(*object)}};
  found.holds = "what came of " + *object;
  return true;
}

/// Adds what lies in a scratch folder.
void describeScratch(Leftover& found) {
  std::size_t files = 0;
  std::error_code error;
  const auto skip = fs::directory_options::skip_permission_denied;
  for (fs::recursive_directory_iterator entry(found.path, skip, error), end; !error && entry != end;
       entry.increment(error)) {
    struct stat attributes {};
    if (::lstat(entry->path().c_str(), &attributes) != 0) continue;
    found.modified = std::max(found.modified, attributes.st_mtime);
    if (!S_ISREG(attributes.st_mode)) continue;
    ++files;
    found.size += static_cast<std::uint64_t>(attributes.st_size);
  }
  found.facts = {{"files", files}};
  found.holds = counted(files, "files");
}

/// An open folder, locked for this process alone; none where another has it.
FileDescriptor lockedFolder(const std::string& path) {
  FileDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (folder.isOpen() && ::flock(folder.get(), LOCK_EX | LOCK_NB) != 0) return {};
  return folder;
}

std::optional<std::string> removePart(const fs::path& path) {
  const FileDescriptor folder(
      ::open(path.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  PartFile part(folder.get(), path.filename());
  const int error = part.open(PartFile::Opening::kContinue);
  if (error == EBUSY) return "it is being fetched";
  // Not kept, it goes with its owner.
  return error == 0 ? std::nullopt : std::optional(errorText(error));
}

std::optional<std::string> removeKept(const Leftover& leftover) {
  const bool isEdit = leftover.kind == Leftover::Kind::kEdit;
  if (isEdit && !lockedFolder(keptFolder(Kept::kEdit)).isOpen())
    return "an address book is being edited";
  if (::unlink(leftover.path.c_str()) != 0) return errorText(errno);
  return std::nullopt;
}

std::optional<std::string> removeScratch(const Leftover& leftover) {
  const FileDescriptor folder = lockedFolder(leftover.path);
  if (!folder.isOpen()) return "the process that made it uses it";
  if (leftover.modified > std::time(nullptr) - kQuietTime)
    return "it was written to within the last hour";
  std::error_code error;
  fs::remove_all(leftover.path, error);
  return error ? std::optional(error.message()) : std::nullopt;
}

/// What lies at `path`; none where that is nothing of ours: of another user, of another name, in
/// another place, a link.
std::optional<Leftover> leftoverAt(const std::string& path) {
  fs::path at = fs::path(path).lexically_normal();
  if (!at.has_filename()) at = at.parent_path();
  // So that every path has a folder.
  if (!at.has_parent_path()) at = "." / at;
  struct stat attributes {};
  if (::lstat(at.c_str(), &attributes) != 0 || attributes.st_uid != ::geteuid())
    return std::nullopt;
  Leftover found = {.path = path, .modified = attributes.st_mtime};
  if (S_ISDIR(attributes.st_mode)) {
    if (!isScratchFolder(at.string())) return std::nullopt;
    found.kind = Leftover::Kind::kScratch;
    describeScratch(found);
    return found;
  }
  // A second name says that somebody else wants it, too.
  if (!S_ISREG(attributes.st_mode) || attributes.st_nlink != 1) return std::nullopt;
  found.size = static_cast<std::uint64_t>(attributes.st_size);
  return describePart(found, at) || describeKept(found, at) ? std::optional(found) : std::nullopt;
}

/// Those that lie directly in `folder`, sorted; none of a folder that cannot be read.
std::vector<Leftover> leftoversIn(const std::string& folder) {
  std::vector<Leftover> all;
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    if (auto found = leftoverAt(entry->path())) all.push_back(std::move(*found));
  }
  std::ranges::sort(all, {}, &Leftover::path);
  return all;
}

const char* kindName(Leftover::Kind kind) {
  constexpr std::array kNames = {"part", "backup", "edit", "scratch"};
  return kNames.at(static_cast<std::size_t>(kind));
}

/// Removes what is there still and nobody uses; what is left of it after an error is what the
/// system did not let go. None once it is gone, otherwise why it stays, a clause.
/// In use is a part that is open, an edit while any runs, and a scratch folder of a living process,
/// or one in which anything is younger than an hour: its process may have left it to another part
/// of itself.
std::optional<std::string> remove(const Leftover& leftover) {
  // What was looked at may be another thing by now.
  const auto now = leftoverAt(leftover.path);
  if (!now || now->kind != leftover.kind) return "it is not there any more";
  auto why = now->kind == Leftover::Kind::kPart      ? removePart(now->path)
             : now->kind == Leftover::Kind::kScratch ? removeScratch(*now)
                                                     : removeKept(*now);
  struct stat attributes {};
  if (!why && ::lstat(now->path.c_str(), &attributes) == 0) why = "its folder does not let it go";
  return why;
}

struct LeftoversOptions {
  std::vector<std::string> paths{};  ///< left-overs, or folders in which they lie
  bool remove = false;
  bool yes = false;
};

std::string ageInWords(const Leftover& leftover) {
  const std::time_t age = std::max<std::time_t>(std::time(nullptr) - leftover.modified, 0);
  const auto [unit, name] = age >= 86400  ? std::pair(86400, "days")
                            : age >= 3600 ? std::pair(3600, "hours")
                            : age >= 60   ? std::pair(60, "minutes")
                                          : std::pair(1, "seconds");
  return counted(static_cast<std::uint64_t>(age / unit), name);
}

std::string inWords(const Leftover& leftover) {
  return std::string(kindName(leftover.kind)) + " " + leftover.path + " (" + leftover.holds + ", " +
         sizeInWords(leftover.size) + ", " + ageInWords(leftover) + " old)";
}

std::string dateText(std::time_t date) {
  std::tm utc = {};
  std::array<char, 32> text{};
  if (::gmtime_r(&date, &utc) == nullptr) return {};
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &utc)};
}

PropertyDictionary leftoverAsJSON(const Leftover& leftover) {
  PropertyDictionary json = {{"kind", kindName(leftover.kind)},
                             {"path", validUTF8(leftover.path)},
                             {"holds", validUTF8(leftover.holds)},
                             {"size", leftover.size},
                             {"modified", dateText(leftover.modified)}};
  json.update(leftover.facts);
  return json;
}

/// The folders where something may lie when nobody says where.
std::vector<std::string> usualFolders() {
  std::error_code error;
  std::vector<std::string> folders = {".", keptFolder(Kept::kBackup), keptFolder(Kept::kEdit),
                                      fs::temp_directory_path(error).string()};
  // Nothing is told twice.
  const bool isTwice = std::any_of(folders.begin() + 1, folders.end(), [](const auto& folder) {
    std::error_code unlike;
    return fs::equivalent(".", folder, unlike);
  });
  if (isTwice) folders.erase(folders.begin());
  return folders;
}

/// Those that `path` names, which is one of them or a folder.
std::vector<Leftover> leftoversNamed(const std::string& path) {
  if (auto one = leftoverAt(path)) return {std::move(*one)};
  std::error_code error;
  const fs::directory_iterator readable(path, error);
  if (!error) return leftoversIn(path);
  const bool isOther = error == std::errc::not_a_directory;
  throw ToolError({.object = path,
                   .status = isOther ? status::kBadParameter : status::kFileNotFound,
                   .why = isOther ? "it is nothing that tarvoctl has left" : error.message(),
                   .advice = "Name a folder, or what 'tarvoctl leftovers' lists."});
}

std::vector<Leftover> leftoversOf(const std::vector<std::string>& paths) {
  std::vector<Leftover> all;
  for (const auto& path : paths.empty() ? usualFolders() : paths) {
    auto found = paths.empty() ? leftoversIn(path) : leftoversNamed(path);
    std::ranges::move(found, std::back_inserter(all));
  }
  return all;
}

int list(ToolContext& context, const std::vector<Leftover>& all) {
  Listing listing(context.output, {{"KIND"}, {"SIZE", 0, true}, {"AGE"}, {"HOLDS"}, {"PATH"}});
  for (const Leftover& each : all)
    listing.add(leftoverAsJSON(each), {kindName(each.kind), sizeInWords(each.size),
                                       ageInWords(each), each.holds, each.path});
  return listing.finish("Nothing was left.");
}

/// Why it is not even asked about; empty where it is.
std::string obstacleTo(const Leftover& leftover, const LeftoversOptions& options) {
  const bool isPrecious =
      leftover.kind == Leftover::Kind::kBackup || leftover.kind == Leftover::Kind::kEdit;
  // A folder's name says nothing of what lies in it.
  const bool isNamed = std::ranges::count(options.paths, leftover.path) > 0;
  return isPrecious && !isNamed ? "name it to remove it: nothing else may hold the same" : "";
}

void keep(ToolContext& context, const Leftover& leftover, const std::string& why) {
  auto json = leftoverAsJSON(leftover);
  json["kept"] = validUTF8(why);
  context.output.item(json);
  context.output.message("Kept: " + inWords(leftover) + ": " + why + ".");
}

int removeAll(ToolContext& context, const std::vector<Leftover>& all,
              const LeftoversOptions& options, const Consent& consent) {
  const auto isMeant = [&](const Leftover& each) { return obstacleTo(each, options).empty(); };
  const auto count = static_cast<std::uint64_t>(std::ranges::count_if(all, isMeant));
  for (const Leftover& each : all)
    if (isMeant(each) && !options.yes) context.output.message(inWords(each));
  if (count > 0)
    consent.require("Remove " + counted(count, "left-overs") + "?", "none was removed");
  Batch batch(context, "left-overs removed");
  for (const Leftover& each : all) {
    const std::string obstacle = obstacleTo(each, options);
    const auto why = obstacle.empty() ? remove(each) : std::optional(obstacle);
    if (why) {
      keep(context, each, *why);
      continue;
    }
    auto json = leftoverAsJSON(each);
    json["removed"] = true;
    batch.succeeded(json, inWords(each), each.size);
  }
  return batch.finish();
}

int runLeftovers(ToolContext& context, const LeftoversOptions& options) {
  const Consent consent(context, options.yes || !options.remove, "remove left-overs");
  const auto all = leftoversOf(options.paths);
  return options.remove ? removeAll(context, all, options, consent) : list(context, all);
}

}  // namespace

void addLeftoversCommand(CommandGroup& root) {
  auto [command, options] =
      root.command("leftovers", "What earlier commands have left on this computer",
                   "tarvoctl leftovers pictures/ --remove", runLeftovers);
  command.operand("PATH", options.paths, "Folders to look in, or left-overs by name; see below")
      .flag("--remove", options.remove, "Remove them, after asking")
      .flag("--yes", options.yes, "Do not ask")
      .more(
          "Parts of cut downloads, backups of what a device held before it was changed,\n"
          "texts of edits that did not reach it, and scratch folders of killed processes.\n"
          "Without PATH the current folder is looked in, the folders in which backups and\n"
          "edits are kept, and the temporary folder; folders in them are not. What a\n"
          "running process uses stays, and so do backups and edits that are not named\n"
          "themselves.");
}

}  // namespace tarvo::tools
