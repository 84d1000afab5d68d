#include "tools/access/ToolContext.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>

#include "tools/access/LocalFiles.h"
#include "tools/output/Words.h"

namespace tarvo::tools {

Consent::Consent(const ToolContext& context, bool isGiven, const std::string& purpose)
    : context_(context) {
  if (isGiven) return;
  // The terminal and not standard input, which may be a file of names.
  terminal_ = FileDescriptor(::open(context.terminal.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (!terminal_.isOpen()) refuseUsage("there is nobody to ask; give --yes to " + purpose);
}

void Consent::require(const std::string& question, const std::string& left) const {
  if (!terminal_.isOpen()) return;
  const std::string asked = printable(question) + " [y/N] ";
  std::array<char, 64> line = {};
  // A terminal gives a line at a time.
  const ssize_t length = writeAll(terminal_.get(), std::as_bytes(std::span(asked)))
                             ? ::read(terminal_.get(), line.data(), line.size())
                             : 0;
  endIfInterrupted(context_);
  const std::string_view answer(line.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
  if (answer == "y\n" || answer == "Y\n" || answer == "yes\n" || answer == "Yes\n") return;
  throw ToolError({.status = status::kCancelled, .why = left});
}

Failure failureOf(const ToolContext& context, const Error& error, const std::string& object) {
  Failure failure = failureOf(error, object);
  failure.operation = context.operation;
  return failure;
}

void endIfInterrupted(const ToolContext& context) {
  if (context.interrupt.isSet()) throw ToolError({.status = status::kCancelled}, kInterrupted);
}

namespace {

constexpr std::size_t kLargestFile = 64U << 20;
constexpr std::size_t kLargestText = 8U << 20;

[[noreturn]] void failToRead(const std::string& path, int error) {
  throw ToolError({.object = path,
                   .status = error == ENOENT ? status::kFileNotFound : status::kIOError,
                   .why = std::strerror(error),
                   .advice = "Check the name."});
}

/// To the end of the stream. Raises a ToolError.
template <typename Content>
Content contentOf(std::FILE* file, const std::string& path, std::size_t most) {
  Content content;
  std::array<typename Content::value_type, 65536> piece{};
  while (const std::size_t length = std::fread(piece.data(), 1, piece.size(), file)) {
    content.insert(content.end(), piece.begin(), piece.begin() + static_cast<long>(length));
    if (content.size() > most)
      throw ToolError(
          {.object = path, .why = "it is larger than " + std::to_string(most >> 20) + " MiB"});
  }
  if (std::ferror(file) != 0) failToRead(path, errno);
  return content;
}

template <typename Content>
Content read(const ToolContext& context, const std::string& path, std::size_t most) {
  if (path == "-") return contentOf<Content>(context.input, "standard input", most);
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rbe"),
                                                             std::fclose);
  if (!file) failToRead(path, errno);
  return contentOf<Content>(file.get(), path, most);
}

}  // namespace

std::vector<std::byte> readInput(const ToolContext& context, const std::string& path) {
  return read<std::vector<std::byte>>(context, path, kLargestFile);
}

std::string readInputText(const ToolContext& context, const std::string& path) {
  return read<std::string>(context, path, kLargestText);
}

}  // namespace tarvo::tools
