#include "platform/files/FileCopy.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace tarvo {
namespace {

/// Between two questions whether to go on; even a slow card gives it within the blink of an eye.
constexpr std::size_t kPiece = 1 << 20;
/// Fits into the caches of any processor.
constexpr std::size_t kBuffer = 128 << 10;

/// What a system call says that cannot do it between these files, while another one may.
bool isNotPossible(int error) {
  return error == EXDEV || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP ||
         error == EPERM || error == ETXTBSY;
}

/// Tells of up to 4 GiB at once, which is more than the callback's number holds.
bool isCancelled(const ProgressCallback& progress, std::uint64_t bytes) {
  while (progress && bytes > 0) {
    const auto piece = static_cast<std::uint32_t>(std::min<std::uint64_t>(bytes, 1U << 30U));
    if (progress(piece)) return true;
    bytes -= piece;
  }
  return false;
}

}  // namespace

FileCopy::Outcome FileCopy::run(int source, int destination, std::uint64_t size,
                                const ProgressCallback& progress) {
  constexpr std::array<Step, 3> kSteps = {&FileCopy::copyRange, &FileCopy::sendFile,
                                          &FileCopy::readAndWrite};
  source_ = source;
  destination_ = destination;
  Outcome outcome;
  if (clone(size)) {
    outcome.copied = size;
    outcome.wasCancelled = isCancelled(progress, size);
    return outcome;
  }
  std::size_t step = 0;
  while (outcome.copied < size) {
    const auto length =
        static_cast<std::size_t>(std::min<std::uint64_t>(size - outcome.copied, kPiece));
    const auto moved = (this->*kSteps.at(step))(outcome.copied, length);
    const bool isLast = step + 1 == kSteps.size();
    // An end that comes early is believed only of a plain read: some file systems have none of the
    // other two and say so by moving nothing.
    if (!isLast && (moved == 0 || (moved < 0 && isNotPossible(errno)))) {
      ++step;
      continue;
    }
    if (moved < 0 && errno == EINTR) continue;
    if (moved <= 0) {
      outcome.error = moved < 0 ? errno : ENODATA;
      return outcome;
    }
    outcome.copied += static_cast<std::uint64_t>(moved);
    outcome.wasCancelled = isCancelled(progress, static_cast<std::uint64_t>(moved));
    if (outcome.wasCancelled) return outcome;
  }
  return outcome;
}

bool FileCopy::clone(std::uint64_t size) const {
  if (size == 0 || ::ioctl(destination_, FICLONE, source_) != 0) return false;
  struct stat attributes {};
  if (::fstat(destination_, &attributes) != 0) return false;
  const auto cloned = static_cast<std::uint64_t>(attributes.st_size);
  // The source may have grown meanwhile; where it has shrunk, the copying below finds out.
  return cloned > size ? ::ftruncate(destination_, static_cast<off_t>(size)) == 0 : cloned == size;
}

std::ptrdiff_t FileCopy::copyRange(std::uint64_t offset, std::size_t length) {
  auto from = static_cast<off_t>(offset);
  auto to = static_cast<off_t>(offset);
  return ::copy_file_range(source_, &from, destination_, &to, length, 0);
}

std::ptrdiff_t FileCopy::sendFile(std::uint64_t offset, std::size_t length) {
  auto from = static_cast<off_t>(offset);
  if (::lseek(destination_, from, SEEK_SET) < 0) return -1;
  return ::sendfile(destination_, source_, &from, length);
}

std::ptrdiff_t FileCopy::readAndWrite(std::uint64_t offset, std::size_t length) {
  buffer_.resize(kBuffer);
  const auto at = static_cast<off_t>(offset);
  const auto read = ::pread(source_, buffer_.data(), std::min(length, kBuffer), at);
  // A short write is no failure: the next one tells.
  return read <= 0 ? read
                   : ::pwrite(destination_, buffer_.data(), static_cast<std::size_t>(read), at);
}

}  // namespace tarvo
