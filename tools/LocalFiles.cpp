#include "tools/LocalFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "Utilities/FileDescriptor.h"
#include "tools/ToolError.h"

namespace tarvo::tools {
namespace {

namespace fs = std::filesystem;

constexpr unsigned kMostNumbers = 10000;

void makeFolder(const std::string& operation, const fs::path& folder) {
  std::error_code error;
  fs::create_directories(folder, error);
  if (!error && fs::is_directory(folder, error)) return;
  throw ToolError({.operation = operation,
                   .object = folder.string(),
                   .status = status::kIOError,
                   .why = error ? error.message() : "it is no folder"});
}

/// Gives the finished file its name, without ever replacing one unasked. 0 or an errno.
int nameFile(const std::string& temporary, const std::string& path, bool replaces) {
  if (replaces) return ::rename(temporary.c_str(), path.c_str()) == 0 ? 0 : errno;
  return ::renameat2(AT_FDCWD, temporary.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) == 0
             ? 0
             : errno;
}

WrittenFile finish(const std::string& temporary, const fs::path& folder, const std::string& name,
                   ExistingFile existing) {
  const unsigned last = existing == ExistingFile::kKeepBoth ? kMostNumbers : 1;
  int error = EEXIST;
  std::string path;
  for (unsigned number = 1; error == EEXIST && number <= last; ++number) {
    path = (folder / numberedName(name, number)).string();
    error = nameFile(temporary, path, existing == ExistingFile::kOverwrite);
  }
  if (error == 0) return {.path = path};
  ::unlink(temporary.c_str());
  return {.status = error == EEXIST ? status::kDuplicateFile : status::kIOError,
          .why = error == EEXIST ? "" : std::strerror(error),
          .path = path};
}

}  // namespace

bool writeAll(int descriptor, std::span<const std::byte> content) {
  while (!content.empty()) {
    const ssize_t written = ::write(descriptor, content.data(), content.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    content = content.subspan(static_cast<std::size_t>(written));
  }
  return true;
}

std::string numberedName(const std::string& name, unsigned number) {
  if (number == 1) return name;
  const fs::path path(name);
  return path.stem().string() + " (" + std::to_string(number) + ")" + path.extension().string();
}

LocalTarget resolvedTarget(const std::string& operation, const std::string& output,
                           bool isOneObject) {
  if (output.empty()) return {};
  std::error_code error;
  const bool isFolder = output.ends_with('/') || fs::is_directory(output, error);
  if (isFolder || !isOneObject) {
    makeFolder(operation, output);
    // Paths are shown with one slash behind the folder; "/" is a folder of its own.
    const auto end = output.find_last_not_of('/');
    return {.folder = end == std::string::npos ? "/" : output.substr(0, end + 1)};
  }
  const fs::path path(output);
  const std::string folder = path.has_parent_path() ? path.parent_path().string() : ".";
  if (!fs::is_directory(folder, error))
    throw ToolError({.operation = operation,
                     .object = output,
                     .status = status::kFileNotFound,
                     .why = "its folder is not there",
                     .advice = "Make the folder first."});
  return {.folder = folder, .name = path.filename().string()};
}

bool hasFileOfSize(const std::string& folder, const std::string& name, std::uint64_t size) {
  for (unsigned number = 1; number <= kMostNumbers; ++number) {
    std::error_code error;
    const auto there = fs::file_size(fs::path(folder) / numberedName(name, number), error);
    if (error) return false;
    if (there == size) return true;
  }
  return false;
}

WrittenFile writeWhole(const std::string& folder, const std::string& name,
                       std::span<const std::byte> content, ExistingFile existing) {
  std::string temporary = (fs::path(folder) / ".tarvoctl-XXXXXX").string();
  FileDescriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
  if (!file.isOpen()) return {.status = status::kIOError, .why = std::strerror(errno)};
  if (!writeAll(file.get(), content)) {
    const std::string why = std::strerror(errno);
    ::unlink(temporary.c_str());
    return {.status = status::kIOError, .why = why};
  }
  // Made for its owner alone; the user's mask decides as for any other file.
  const mode_t mask = ::umask(0);
  ::umask(mask);
  ::fchmod(file.get(), 0666 & ~mask);
  return finish(temporary, folder, name, existing);
}

}  // namespace tarvo::tools
