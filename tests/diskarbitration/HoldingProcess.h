// A process that holds something, for as long as its owner lives.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tarvo::test {

class HoldingProcess {
 public:
  /// The child calls `take`, which may become another program, and stays.
  template <typename Take>
  explicit HoldingProcess(Take take) {
    int ready[2];
    if (::pipe2(ready, O_CLOEXEC) != 0) return;
    pid_ = ::fork();
    if (pid_ == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);  // a test that crashes leaves nothing behind
      take();
      ::close(ready[1]);
      while (true)
        ::pause();
    }
    ::close(ready[1]);
    // The end of the pipe goes with the call or with the program that calls it.
    char end = 0;
    [[maybe_unused]] const ssize_t nothing = ::read(ready[0], &end, 1);
    ::close(ready[0]);
  }
  HoldingProcess(const HoldingProcess&) = delete;
  HoldingProcess& operator=(const HoldingProcess&) = delete;
  ~HoldingProcess() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }

  pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = -1;
};

}  // namespace tarvo::test
