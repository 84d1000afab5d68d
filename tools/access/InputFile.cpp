#include "tools/access/InputFile.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace tarvo::tools {
namespace {

constexpr std::size_t kLargestFile = 64U << 20;

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

Failure unreadable(const std::string& operation, const std::string& path, int error) {
  return {.operation = operation,
          .object = path,
          .status = error == ENOENT ? status::kFileNotFound : status::kIOError,
          .why = std::strerror(error),
          .advice = "Check the name."};
}

/// To the end of the stream. Raises a ToolError.
std::vector<std::byte> contentOf(std::FILE* file, const std::string& operation,
                                 const std::string& path) {
  std::vector<std::byte> content;
  std::array<std::byte, 65536> piece{};
  while (const std::size_t length = std::fread(piece.data(), 1, piece.size(), file)) {
    content.insert(content.end(), piece.begin(), piece.begin() + static_cast<long>(length));
    if (content.size() > kLargestFile)
      throw ToolError({.operation = operation, .object = path, .why = "it is larger than 64 MB"});
  }
  if (std::ferror(file) != 0) throw ToolError(unreadable(operation, path, errno));
  return content;
}

}  // namespace

std::vector<std::byte> readInput(const ToolContext& context, const std::string& operation,
                                 const std::string& path) {
  if (path == "-") return contentOf(context.input, operation, "standard input");
  const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path.c_str(), "rbe"));
  if (!file) throw ToolError(unreadable(operation, path, errno));
  return contentOf(file.get(), operation, path);
}

std::string readInputText(const ToolContext& context, const std::string& operation,
                          const std::string& path) {
  const auto content = readInput(context, operation, path);
  return {reinterpret_cast<const char*>(content.data()), content.size()};
}

}  // namespace tarvo::tools
