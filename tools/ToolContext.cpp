#include "tools/ToolContext.h"

#include <unistd.h>

#include <array>

#include "tools/Words.h"

namespace tarvo::tools {

bool canAsk(const ToolContext& context) {
  return ::isatty(::fileno(context.input)) == 1 && context.output.errIsTerminal();
}

bool isConfirmed(ToolContext& context, const std::string& question) {
  context.output.beside(printable(question) + " [y/N] ");
  std::array<char, 64> answer = {};
  const bool wasAnswered = std::fgets(answer.data(), answer.size(), context.input) != nullptr;
  endIfInterrupted(context, "");
  if (!wasAnswered) return false;
  const std::string text(answer.data());
  return text == "y\n" || text == "Y\n" || text == "yes\n" || text == "Yes\n";
}

void endDeclined(const std::string& operation, const std::string& left) {
  throw ToolError({.operation = operation, .status = status::kCancelled, .why = left});
}

void endIfInterrupted(const ToolContext& context, const std::string& operation) {
  if (!context.interrupt.isSet()) return;
  throw ToolError({.operation = operation, .status = status::kCancelled}, kInterrupted);
}

}  // namespace tarvo::tools
