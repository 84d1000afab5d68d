// What a process that is locked down can still do, by trying it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <string>

#include "tools/vcard/Lockdown.h"

namespace tarvo::test {
namespace {

using ::testing::ExitedWithCode;
using ::testing::KilledBySignal;

/// The exit status of a process whose attempt had that result: an error number, 0 for success.
[[noreturn]] void endWith(long result) {
  ::_exit(result < 0 ? errno : 0);
}

long opened(int flags) {
  return ::open("/etc/passwd", flags | O_CLOEXEC);
}

/// Through a pipe that is both of its own standard streams.
[[noreturn]] void useWhatIsOpen() {
  std::array<int, 2> ends = {};
  const bool isOpen = ::pipe(ends.data()) == 0 && ::dup2(ends[1], STDOUT_FILENO) >= 0 &&
                      ::dup2(ends[0], STDIN_FILENO) >= 0;
  vcard::lockDown();
  std::string text(1 << 20, 'x');
  const bool isWhole = isOpen && ::write(STDOUT_FILENO, text.data(), 9) == 9 &&
                       ::read(STDIN_FILENO, text.data(), 9) == 9;
  endWith(isWhole ? 0 : -1);
}

TEST(VCardLock, LeavesMemoryAndWhatIsOpen) {
  EXPECT_EXIT(useWhatIsOpen(), ExitedWithCode(0), "");
}

TEST(VCardLock, LeavesNothingElse) {
  const struct {
    const char* what;
    long (*attempt)();
    int signal;  ///< that ends the process, or 0 where it is told EACCES
  } rows[] = {
      {"a file", [] { return opened(O_RDONLY); }, 0},
      {"a new file", [] { return opened(O_WRONLY | O_CREAT | O_EXCL); }, 0},
      {"a socket", [] { return long{::socket(AF_INET, SOCK_STREAM, 0)}; }, SIGSYS},
      {"a socket of this machine", [] { return long{::socket(AF_UNIX, SOCK_STREAM, 0)}; }, SIGSYS},
      {"a process", [] { return long{::fork()}; }, SIGSYS},
      {"a program", [] { return long{::execl("/bin/true", "true", nullptr)}; }, SIGSYS},
      {"a signal", [] { return long{::kill(::getppid(), 0)}; }, SIGSYS},
      {"another file", [] { return long{::unlink("/nowhere/file")}; }, SIGSYS},
      {"another descriptor", [] { return long{::dup(STDIN_FILENO)}; }, SIGSYS},
      {"code",
       [] {
         const void* room =
             ::mmap(nullptr, 4096, PROT_READ | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
         return room == MAP_FAILED ? -1L : 0L;
       },
       SIGSYS}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    const auto locked = [&] {
      vcard::lockDown();
      endWith(row.attempt());
    };
    if (row.signal == 0) {
      EXPECT_EXIT(locked(), ExitedWithCode(EACCES), "");
    } else {
      EXPECT_EXIT(locked(), KilledBySignal(row.signal), "");
    }
  }
}

TEST(VCardLock, OpensNoFileByLandlockAlone) {
  EXPECT_EXIT(
      {
        if (!vcard::denyFiles()) ::_exit(EACCES);  // a kernel without it
        endWith(opened(O_RDONLY));
      },
      ExitedWithCode(EACCES), "");
}

}  // namespace
}  // namespace tarvo::test
