#include "tools/access/LocalFiles.h"

#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "platform/files/PartFile.h"
#include "tools/output/ToolError.h"

namespace tarvo::tools {
namespace {

namespace fs = std::filesystem;

void makeFolder(const std::string& operation, const fs::path& folder) {
  std::error_code error;
  fs::create_directories(folder, error);
  if (!error && fs::is_directory(folder, error)) return;
  throw ToolError({.operation = operation,
                   .object = folder.string(),
                   .status = status::kIOError,
                   .why = error ? error.message() : "it is no folder"});
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

FetchResult writeWhole(const FetchRequest& request, std::span<const std::byte> content,
                       std::optional<std::time_t> modified) {
  FetchResult result;
  FilePlace place(request, result);
  if (!place.prepare("") || !place.hasRoom(content.size())) return result;
  PartFile part(place.folder(), PartFile::nameFor(place.name(), ""));
  if (const int error = part.open(PartFile::Opening::kNew); error != 0) {
    place.failToWrite("no file can be made in the folder", error);
  } else if (!writeAll(part.descriptor(), content)) {
    place.failToWrite("the file cannot be written", errno);
  } else {
    place.put(part, modified);
  }
  return result;
}

}  // namespace tarvo::tools
