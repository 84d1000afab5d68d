#include "tools/leftovers/Leftovers.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "Utilities/Exception.h"
#include "Utilities/FileDescriptor.h"
#include "Utilities/JSONReader.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "platform/files/FilePlace.h"
#include "platform/files/PartFile.h"
#include "platform/files/ScratchFolder.h"
#include "tools/access/LocalFiles.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

namespace fs = std::filesystem;

constexpr std::time_t kQuietTime = 60 * 60;

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

}  // namespace

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

bool isPrecious(const Leftover& leftover) {
  return leftover.kind == Leftover::Kind::kBackup || leftover.kind == Leftover::Kind::kEdit;
}

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

}  // namespace tarvo::tools
