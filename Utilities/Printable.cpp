#include "Utilities/Printable.h"

#include <algorithm>

#include "Utilities/Format.h"
#include "Utilities/NSStringUtilsCategory.h"

namespace tarvo {
namespace {

constexpr std::string_view kReplacementText = "\xEF\xBF\xBD";

}  // namespace

std::string printable(std::string_view text) {
  // As most text is: a list of thousands is said as fast as it comes.
  if (std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; }))
    return std::string(text);
  return replacingControls(validUTF8(text), [](char32_t) { return std::string(kReplacementText); });
}

std::string printableLines(std::string_view text) {
  std::string lines;
  while (!text.empty()) {
    std::string_view line = text.substr(0, text.find('\n'));
    const bool isEnded = line.size() < text.size();
    text.remove_prefix(line.size() + (isEnded ? 1 : 0));
    if (isEnded && line.ends_with('\r')) line.remove_suffix(1);
    lines += replacingControls(validUTF8(line), [](char32_t character) {
      return std::string(character == '\t' ? "\t" : kReplacementText);
    });
    if (isEnded) lines += '\n';
  }
  return lines;
}

std::string joined(const std::vector<std::string>& texts, std::string_view separator) {
  std::string all;
  for (const auto& text : texts) {
    if (!all.empty()) all += separator;
    all += text;
  }
  return all;
}

namespace {

/// Whether the reason says all that the status says, and more.
bool isSaidByReason(Status status) {
  return status == status::kBadParameter || status == status::kIOError ||
         status == status::kFileNotFound || status == status::kNotAFile ||
         status >= status::kAddressBookTooManyContacts || !statusWords(status);
}

}  // namespace

std::string inWords(const FailureWords& failure) {
  std::string words(failure.operation);
  const auto append = [&words](const char* separator, std::string_view text) {
    if (text.empty()) return;
    if (!words.empty()) words += separator;
    words += text;
  };
  const Status status = failure.status;
  append(" ", failure.object);
  if (status != status::kOK && (failure.why.empty() || !isSaidByReason(status)))
    append(": ", statusWords(status) ? statusWords(status) : "it ended in a way that nobody knows");
  append(": ", failure.why);
  if (!failure.advice.empty() && !words.ends_with('.')) words += '.';
  append(" ", failure.advice);
  if (status != status::kOK) append(" ", formatted("(0x%x)", static_cast<unsigned>(status)));
  return printable(words);
}

std::string handleText(std::uint32_t handle) {
  return formatted("0x%08x", unsigned{handle});
}

}  // namespace tarvo
