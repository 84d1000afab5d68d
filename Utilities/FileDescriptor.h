// A file descriptor that closes itself.
#pragma once

#include <unistd.h>

#include <utility>

namespace tarvo {

/// The one owner of a descriptor. It can be moved, not copied; any thread, one at a time.
///
///   FileDescriptor node(::open(path, O_RDWR | O_CLOEXEC));
///   if (!node.isOpen()) return errno;
class FileDescriptor {
 public:
  FileDescriptor() = default;
  /// Takes `fd` over. A negative one, as a failed call returns it, gives an owner of nothing.
  explicit FileDescriptor(int fd) : fd_(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  /// Swaps, so what was held here is closed with `other`, and moving onto itself is harmless.
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() {
    // Not repeated after EINTR: on Linux the descriptor is gone by then, and its number may
    // already be that of another thread's file.
    if (fd_ >= 0) ::close(fd_);
  }

  /// The descriptor, lent; -1 when there is none.
  int get() const noexcept { return fd_; }
  bool isOpen() const noexcept { return fd_ >= 0; }
  /// Gives the descriptor up to the caller, who closes it.
  int release() noexcept { return std::exchange(fd_, -1); }

 private:
  int fd_ = -1;
};

}  // namespace tarvo
