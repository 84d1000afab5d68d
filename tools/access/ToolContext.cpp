#include "tools/access/ToolContext.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <string_view>
#include <utility>

#include "tools/access/LocalFiles.h"
#include "tools/output/Words.h"

namespace tarvo::tools {

Consent::Consent(const ToolContext& context, std::string operation, bool isGiven,
                 const std::string& purpose)
    : context_(context), operation_(std::move(operation)) {
  if (isGiven) return;
  terminal_ = FileDescriptor(::open(context.terminal.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (!terminal_.isOpen())
    refuseUsage(operation_, "there is nobody to ask; give --yes to " + purpose);
}

void Consent::require(const std::string& question, const std::string& left) const {
  if (!terminal_.isOpen()) return;
  const std::string asked = printable(question) + " [y/N] ";
  std::array<char, 64> line = {};
  // A terminal gives a line at a time.
  const ssize_t length = writeAll(terminal_.get(), std::as_bytes(std::span(asked)))
                             ? ::read(terminal_.get(), line.data(), line.size())
                             : 0;
  endIfInterrupted(context_, operation_);
  const std::string_view answer(line.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
  if (answer == "y\n" || answer == "Y\n" || answer == "yes\n" || answer == "Yes\n") return;
  throw ToolError({.operation = operation_, .status = status::kCancelled, .why = left});
}

void endIfInterrupted(const ToolContext& context, const std::string& operation) {
  if (!context.interrupt.isSet()) return;
  throw ToolError({.operation = operation, .status = status::kCancelled}, kInterrupted);
}

}  // namespace tarvo::tools
