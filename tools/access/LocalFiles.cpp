#include "tools/access/LocalFiles.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <regex>
#include <system_error>

#include "Utilities/FileDescriptor.h"
#include "platform/files/FileNames.h"
#include "platform/files/FilePlace.h"
#include "tools/output/ToolError.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace fs = std::filesystem;

void makeFolder(const std::string& folder) {
  std::error_code error;
  fs::create_directories(folder, error);
  if (!error && fs::is_directory(folder, error)) return;
  throw ToolError({.object = folder,
                   .status = status::kIOError,
                   .why = error ? error.message() : "it is no folder"});
}

std::string ownProgram(const std::string& name) {
  std::error_code error;
  const fs::path beside = fs::read_symlink("/proc/self/exe", error).parent_path() / name;
  const bool isThere = !error && fs::exists(beside, error);
  return isThere ? beside.string() : std::string(TARVO_LIBEXEC) + "/" + name;
}

LocalTarget resolvedTarget(const std::string& output, bool isOneObject) {
  if (output.empty()) return {};
  std::error_code error;
  // A slash at the end says that a folder is meant, also one that is not there yet.
  const bool isFolder = output.ends_with('/') || fs::is_directory(output, error);
  if (isFolder || !isOneObject) {
    makeFolder(output);
    // Paths are shown with one slash behind the folder; "/" is a folder of its own.
    const auto end = output.find_last_not_of('/');
    return {.folder = end == std::string::npos ? "/" : output.substr(0, end + 1)};
  }
  const fs::path path(output);
  const std::string folder = path.has_parent_path() ? path.parent_path().string() : ".";
  if (!fs::is_directory(folder, error))
    throw ToolError({.object = output,
                     .status = status::kFileNotFound,
                     .why = "its folder is not there",
                     .advice = "Make the folder first."});
  return {.folder = folder, .name = path.filename().string()};
}

void warnOfRoom(Output& output, const std::string& folder, const std::string& wanted,
                std::size_t count, std::uint64_t bytes) {
  const auto here = fileSystemSizeOf(folder);
  if (!here || bytes <= here->free) return;
  output.message("There is no room for all that is " + wanted + " (" + counted(count, "files") +
                 ", " + sizeInWords(bytes) + "): " + sizeInWords(here->free) + " are free in '" +
                 folder + "', " + sizeInWords(bytes - here->free) + " are missing.");
}

namespace {

constexpr unsigned kMostInASecond = 100;
constexpr std::size_t kLongestSerial = 64;

[[noreturn]] void fail(const std::string& path, const std::string& why) {
  throw ToolError(
      {.object = path,
       .status = status::kIOError,
       .why = "no file of this computer can be written (" + why + "), so nothing was sent",
       .advice = "Make room, or set XDG_DATA_HOME to a folder where you may write."});
}

/// A serial number is whatever a device says: of it stays what no file name or shell minds.
std::string safeSerial(const std::string& serial) {
  std::string safe;
  for (const char letter : serial.substr(0, kLongestSerial))
    safe += g_ascii_isalnum(letter) || letter == '-' ? letter : '_';
  return safe.empty() ? "device" : safe;
}

/// Folders of their owner alone: what lies in them are people's addresses.
std::string madeKeptFolder(Kept kind) {
  const fs::path folder = keptFolder(kind);
  std::error_code error;
  fs::create_directories(folder.parent_path().parent_path(), error);
  // mkdir() by itself, since create_directories() has no mode to give.
  for (const fs::path& each : {folder.parent_path(), folder}) {
    if (!error && ::mkdir(each.c_str(), 0700) != 0 && errno != EEXIST)
      error.assign(errno, std::generic_category());
  }
  if (error) fail(folder.string(), error.message());
  return folder.string();
}

}  // namespace

std::string keptFolder(Kept kind) {
  return userDataFolder() + "/tarvo/" + (kind == Kept::kBackup ? "backups" : "edits");
}

std::optional<KeptName> keptNameOf(const std::string& name) {
  // Serial numbers have hyphens, too.
  const std::regex shape(R"((.+)-([a-z]+)-\d{8}T\d{6}(-\d+)?\.([a-z]+))");
  std::smatch found;
  if (!std::regex_match(name, found, shape)) return std::nullopt;
  return KeptName{.serial = found[1], .what = found[2], .extension = found[4]};
}

std::string keepFile(const std::string& serial, Kept kind, std::string_view what,
                     std::string_view extension, std::span<const std::byte> content) {
  const std::string folder = madeKeptFolder(kind);
  const std::string name = safeSerial(serial) + "-" + std::string(what) + "-" +
                           localDateText(std::time(nullptr), "%Y%m%dT%H%M%S");
  std::string path;
  FileDescriptor file;
  for (unsigned number = 1; !file.isOpen() && number <= kMostInASecond; ++number) {
    // Without blanks, so that the path can be pasted into the command that puts it back.
    const std::string which = number == 1 ? "" : "-" + std::to_string(number);
    path = (fs::path(folder) / (name + which + "." + std::string(extension))).string();
    // O_EXCL: none replaces another.
    file = FileDescriptor(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!file.isOpen() && errno != EEXIST) break;
  }
  if (!file.isOpen()) fail(path, std::strerror(errno));
  // On the disk before the device is changed: a power cut takes both otherwise.
  if (!writeAll(file.get(), content) || ::fsync(file.get()) != 0) {
    const std::string why = std::strerror(errno);
    ::unlink(path.c_str());
    fail(path, why);
  }
  return path;
}

}  // namespace tarvo::tools
