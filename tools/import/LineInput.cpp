#include "tools/import/LineInput.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace tarvo::tools {

std::optional<std::string> LineInput::next() {
  constexpr std::size_t kLongest = std::size_t{1} << 20;
  for (;;) {
    const auto end = pending_.find('\n');
    if (end != std::string::npos) {
      std::string line = pending_.substr(0, end);
      pending_.erase(0, end + 1);
      return line;
    }
    if (pending_.size() > kLongest) hasEnded_ = true;
    if (hasEnded_ || !read()) return std::nullopt;
  }
}

bool LineInput::read() {
  pollfd input = {.fd = descriptor_, .events = POLLIN, .revents = 0};
  if (::poll(&input, 1, 0) <= 0) return false;
  std::array<char, 65536> piece{};
  const ssize_t length = ::read(descriptor_, piece.data(), piece.size());
  if (length < 0 && (errno == EINTR || errno == EAGAIN)) return false;
  hasEnded_ = length <= 0;
  if (length > 0) pending_.append(piece.data(), static_cast<std::size_t>(length));
  return length > 0;
}

}  // namespace tarvo::tools
