#include "platform/foundation/KeyFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

#include "Utilities/FileDescriptor.h"

namespace tarvo {
namespace {

// The carriage return counts as a blank, which takes care of CR LF.
constexpr std::string_view kBlanks = " \t\r";

std::string_view takeLine(std::string_view& rest) {
  const std::string_view line = rest.substr(0, rest.find('\n'));
  rest.remove_prefix(std::min(rest.size(), line.size() + 1));
  return trimmedBlanks(line);
}

}  // namespace

std::string_view trimmedBlanks(std::string_view text) {
  const auto first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::optional<int> readKeyFile(std::string_view text,
                               const std::function<bool(const KeyFileLine&)>& take) {
  KeyFileLine current;
  while (!text.empty()) {
    const std::string_view line = takeLine(text);
    ++current.number;
    if (line.empty() || line.front() == '#') continue;
    if (line.front() == '[') {
      // A group needs a name; the Desktop Entry Specification knows no line end after the bracket
      // either.
      if (line.size() < 3 || line.back() != ']') return current.number;
      current.group = line.substr(1, line.size() - 2);
      continue;
    }
    const auto equals = line.find('=');
    if (equals == std::string_view::npos) return current.number;
    current.key = trimmedBlanks(line.substr(0, equals));
    current.value = trimmedBlanks(line.substr(equals + 1));
    if (current.key.empty()) return current.number;
    if (!take(current)) return std::nullopt;
  }
  return std::nullopt;
}

std::optional<std::string> unescapedKeyFileValue(std::string_view value) {
  constexpr std::string_view kLetters = "sntr\\";
  constexpr std::string_view kMeanings = " \n\t\r\\";
  std::string text;
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (value[i] != '\\') {
      text += value[i];
      continue;
    }
    // The two lists run side by side: the letter's place is its meaning's place.
    const auto which = ++i < value.size() ? kLetters.find(value[i]) : std::string_view::npos;
    if (which == std::string_view::npos) return std::nullopt;
    text += kMeanings[which];
  }
  return text;
}

std::optional<std::string> readWholeFile(const std::string& path, std::size_t limit,
                                         std::string* reason) {
  const auto fail = [&](int error) {
    if (reason != nullptr) *reason = std::generic_category().message(error);
    errno = error;
    return std::nullopt;
  };
  const FileDescriptor file(
      ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));  // not held up by a FIFO
  struct stat status {};
  if (!file.isOpen() || ::fstat(file.get(), &status) != 0) return fail(errno);
  // open() succeeds on folders, devices and sockets' kin as well; reading one could wait for ever.
  if (S_ISDIR(status.st_mode)) return fail(EISDIR);
  if (!S_ISREG(status.st_mode)) return fail(EINVAL);

  std::string content;
  std::array<char, 4096> buffer;
  for (;;) {
    const ssize_t size = ::read(file.get(), buffer.data(), buffer.size());
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) return fail(errno);
    if (size == 0) return content;
    // The size that fstat tells is 0 for files of /proc, so what arrives is counted.
    if (content.size() + static_cast<std::size_t>(size) > limit) return fail(EFBIG);
    content.append(buffer.data(), static_cast<std::size_t>(size));
  }
}

}  // namespace tarvo
